#include "value/text.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "value/script_callable.h"

namespace {

TEST(Text, IntsOfEveryWidth) {
    // Both sides of each power of ten, where the number of digits changes.
    long long power = 1;
    for (int digits = 1; digits <= 10; ++digits, power *= 10) {
        for (const long long near : {power - 1, power, power + 1, 2 * power + 1}) {
            for (const long long signedNumber : {near, -near}) {
                if (signedNumber > std::numeric_limits<int>::max()) continue;
                const int number = static_cast<int>(signedNumber);
                std::string text = "<";
                appendIntFast(text, number);
                EXPECT_EQ(text, "<" + std::to_string(number));
                EXPECT_EQ(estimateVariableStringSize(Variable::makeInt(number)), text.size() - 1);
            }
        }
    }
}

TEST(Text, TheLimitsOfAnInt) {
    std::string text;
    appendIntFast(text, std::numeric_limits<int>::min());
    text += ' ';
    appendIntFast(text, std::numeric_limits<int>::max());
    EXPECT_EQ(text, "-2147483648 2147483647");
}

TEST(Text, AppendsWhatToStringGives) {
    int target = 0;
    const std::vector<Variable> values = {
        Variable(),
        Variable::makeInt(-42),
        Variable::makeFloat(1.5F),
        Variable(std::string("a\0b", 3)),
        Variable(""),
        Variable(VarType::Raw, ValueStorage(std::vector<char>{'a'})),
        Variable::makeBool(true),
        Variable::makeBool(false),
        Variable(VarType::Pointer, ValueStorage(static_cast<void*>(&target))),
        Variable::makeArray(ArrayStorage{Variable::makeInt(1), Variable("x")}),
        Variable::makeTable(TableStorage{{"k", Variable()}}),
        Variable::makeMulti({}),
        Variable::makeFunction(std::make_shared<ScriptCallable>())};
    for (const Variable& value : values) {
        std::string text = "before ";
        appendVariableStringFast(text, value);
        EXPECT_EQ(text, "before " + value.toString()) << typeName(value.type);
        EXPECT_EQ(estimateVariableStringSize(value), value.toString().size())
            << typeName(value.type);
    }
}

TEST(Text, FloatsHaveSixDecimals) {
    EXPECT_EQ(floatText(1.5F), "1.500000");
    EXPECT_EQ(floatText(-0.0F), "-0.000000");
    EXPECT_EQ(floatText(0.0000015F), "0.000002");
    EXPECT_EQ(floatText(std::numeric_limits<float>::infinity()), "inf");
    EXPECT_EQ(floatText(std::numeric_limits<float>::max()),
              "340282346638528859811704183484516925440.000000");
}

}  // namespace
