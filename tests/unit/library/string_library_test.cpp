#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

/// The text of what `native` gives for `values`, or the message that it raises.
std::string answer(const NativeFunction& native, const std::vector<Variable>& values) {
    try {
        return native(Arguments(values)).toString();
    } catch (const std::exception& error) {
        return error.what();
    }
}

/// A script's call of string["len"] is dispatched by its id. The function object, which only C++
/// code can reach, has messages of its own.
TEST(StringLibrary, TheFunctionObjectOfLenHasItsOwnMessages) {
    DovrelScript interpreter;
    const Variable* library = interpreter.resolveVariablePtr(interpreter.names.intern("string"));
    ASSERT_NE(library, nullptr);
    const NativeFunction& native = library->asTable()->at("len").asFunction()->nativeFunction;
    const Variable text(std::string("four"));
    EXPECT_EQ(answer(native, {text}), "4");
    EXPECT_EQ(answer(native, {}), "string['len'](s) requires exactly 1 argument");
    EXPECT_EQ(answer(native, {text, text}), "string['len'](s) requires exactly 1 argument");
    EXPECT_EQ(answer(native, {Variable::makeInt(4)}), "string['len'](s) expects a string");
}

}  // namespace
