#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

/// No script can make a value of these kinds; a host can.
TEST(BaseFunctions, TypeOfKnowsTheKindsOfTheHost) {
    DovrelScript interpreter;
    const Variable typeOf = *interpreter.resolveVariablePtr(interpreter.names.intern("typeOf"));
    const auto wordFor = [&](const Variable& value) {
        return interpreter.invokeCallableFast(typeOf, Arguments(std::vector<Variable>{value}))
            .toString();
    };
    EXPECT_EQ(wordFor(Variable(VarType::Raw, ValueStorage(std::vector<char>{'a'}))), "userdata");
    EXPECT_EQ(wordFor(Variable(VarType::Pointer, ValueStorage(static_cast<void*>(nullptr)))),
              "userdata");
}

}  // namespace
