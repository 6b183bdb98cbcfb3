#include <gtest/gtest.h>

#include "compiled_text.h"

namespace {

TEST(DiscardedCall, ChecksThatItsArgumentsAreThere) {
    DovrelScript interpreter;
    CompiledText call(interpreter, "assert(false, \"raised\")");
    ASSERT_TRUE(call.expression.valid);
    const auto run = [&] {
        EXPECT_TRUE(interpreter.tryExecuteDiscardedFastCall(call.expression, call.analysis));
    };
    EXPECT_EQ(messageOf(run), "raised");
    call.expression.callArguments = {call.expression.callArguments[0]};
    EXPECT_EQ(messageOf(run), "Invalid fast call argument range");
}

}  // namespace
