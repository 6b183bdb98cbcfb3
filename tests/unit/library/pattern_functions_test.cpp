#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>

#include "interpreter/dovrel_script.h"

namespace {

TEST(Gsub, ATableWithoutContentIsNoReplacement) {
    DovrelScript interpreter;
    const Shared<TableStorage> nothing;
    interpreter.pushVariable("empty", Variable(VarType::Table, ValueStorage(nothing)));
    try {
        interpreter.runScript("result = gsub(\"text\", \"t\", empty)");
        FAIL() << "nothing was raised";
    } catch (const std::exception& error) {
        EXPECT_EQ(std::string(error.what()).substr(0, 66),
                  "DovrelScript error: gsub internal error: replacement table missing");
    }
}

}  // namespace
