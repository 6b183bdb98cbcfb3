#include <gtest/gtest.h>

#include "compiled_text.h"

namespace {

TEST(Calls, AFunctionValueWithoutARecordCannotBeCalled) {
    DovrelScript interpreter;
    const Variable empty = Variable::makeFunction(nullptr);
    EXPECT_EQ(messageOf([&] { interpreter.invokeCallableFast(empty, Arguments()); }),
              "Attempted to call an invalid function value");
    EXPECT_EQ(interpreter.callDepth, 0U);
}

}  // namespace
