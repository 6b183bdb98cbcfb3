#include "value/numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "value/script_callable.h"

namespace {

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

TEST(Numbers, ToIntCutsTowardZero) {
    EXPECT_EQ(toInt(Variable::makeFloat(2.9F)), 2);
    EXPECT_EQ(toInt(Variable::makeFloat(-2.9F)), -2);
    EXPECT_EQ(toInt(Variable::makeFloat(0.9F)), 0);
    EXPECT_EQ(toInt(Variable::makeInt(kLowest)), kLowest);
    EXPECT_EQ(toInt(Variable::makeBool(true)), 1);
    EXPECT_EQ(toInt(Variable::makeBool(false)), 0);
}

TEST(Numbers, ToIntSaturates) {
    EXPECT_EQ(toInt(Variable::makeFloat(1e20F)), kHighest);
    EXPECT_EQ(toInt(Variable::makeFloat(-1e20F)), kLowest);
    EXPECT_EQ(toInt(Variable::makeFloat(2147483648.0F)), kHighest);
    EXPECT_EQ(toInt(Variable::makeFloat(-2147483648.0F)), kLowest);
    EXPECT_EQ(toInt(Variable::makeFloat(std::numeric_limits<float>::infinity())), kHighest);
    EXPECT_EQ(toInt(Variable::makeFloat(-std::numeric_limits<float>::infinity())), kLowest);
    EXPECT_EQ(toInt(Variable::makeFloat(std::numeric_limits<float>::quiet_NaN())), 0);
    EXPECT_EQ(saturateToInt(2147483647.5), kHighest);
    EXPECT_EQ(saturateToInt(-2147483648.9), kLowest);
    EXPECT_EQ(saturateToInt(2147483646.9), 2147483646);
}

TEST(Numbers, ToDoubleWidensExactly) {
    EXPECT_EQ(toDouble(Variable::makeInt(16777217)), 16777217.0);
    EXPECT_EQ(toDouble(Variable::makeFloat(0.1F)), static_cast<double>(0.1F));
    EXPECT_EQ(toDouble(Variable::makeBool(true)), 1.0);
    EXPECT_EQ(toDouble(Variable::makeBool(false)), 0.0);
}

TEST(Numbers, OtherKindsAreNoNumbers) {
    const std::vector<Variable> others = {
        Variable(),
        Variable("5"),
        Variable::makeArray(),
        Variable::makeTable(),
        Variable::makeMulti({}),
        Variable(VarType::Pointer, ValueStorage(static_cast<void*>(nullptr))),
        Variable::makeFunction(Shared<ScriptCallable>::make())};
    for (const Variable& value : others) {
        for (const bool asInt : {true, false}) {
            try {
                if (asInt) {
                    static_cast<void>(toInt(value));
                } else {
                    static_cast<void>(toDouble(value));
                }
                ADD_FAILURE() << typeName(value.type);
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "Expected a numeric value");
            }
        }
    }
}

TEST(Numbers, ParseIntTakesWholeDecimalTexts) {
    const auto parses = [](std::string_view text, int expected) {
        int number = 0;
        return parseIntStrict(text, number) && number == expected;
    };
    EXPECT_TRUE(parses("12", 12));
    EXPECT_TRUE(parses("-3", -3));
    EXPECT_TRUE(parses("007", 7));
    EXPECT_TRUE(parses("-0", 0));
    EXPECT_TRUE(parses("2147483647", kHighest));
    EXPECT_TRUE(parses("-2147483648", kLowest));
}

TEST(Numbers, ParseIntRefusesEverythingElse) {
    for (const std::string text : {"", "+3", " 3", "3 ", "3.0", "3x", "-", "--3", "- 3", "0x10",
                                   "1e3", "2147483648", "-2147483649", "99999999999"}) {
        int number = 0;
        EXPECT_FALSE(parseIntStrict(text, number)) << text;
    }
    int number = 0;
    EXPECT_FALSE(parseIntStrict(std::string_view("1\0", 2), number));
}

TEST(Numbers, ParseFloatTakesWhatTheStandardReaderTakes) {
    const auto parses = [](const std::string& text, float expected) {
        float number = -1.0F;
        return parseFloatStrict(text, number) && number == expected;
    };
    EXPECT_TRUE(parses("1.5", 1.5F));
    EXPECT_TRUE(parses(" 1.5", 1.5F));
    EXPECT_TRUE(parses("\t\n1.5", 1.5F));
    EXPECT_TRUE(parses("+2", 2.0F));
    EXPECT_TRUE(parses("-2.", -2.0F));
    EXPECT_TRUE(parses(".5", 0.5F));
    EXPECT_TRUE(parses("1e3", 1000.0F));
    EXPECT_TRUE(parses("0x10", 16.0F));
    EXPECT_TRUE(parses("0", 0.0F));
    EXPECT_TRUE(parses("99999999999", 99999999999.0F));
    EXPECT_TRUE(parses("inf", std::numeric_limits<float>::infinity()));
    EXPECT_TRUE(parses("-Infinity", -std::numeric_limits<float>::infinity()));
    float number = 0.0F;
    EXPECT_TRUE(parseFloatStrict("nan", number));
    EXPECT_TRUE(std::isnan(number));
}

TEST(Numbers, ParseFloatRefusesRestsAndRangeErrors) {
    for (const std::string text :
         {"", " ", "1.5x", "1.5 ", "x", "e3", ".", "1e99", "-1e99", "1e-99", "1.2.3", "+-1"}) {
        float number = 7.0F;
        EXPECT_FALSE(parseFloatStrict(text, number)) << text;
        EXPECT_EQ(number, 7.0F) << text;
    }
    float number = 7.0F;
    EXPECT_FALSE(parseFloatStrict(std::string("1\0", 2), number));
    EXPECT_EQ(number, 7.0F);
}

TEST(Numbers, WholeFloatsWithinTheRangeArePositions) {
    int number = 0;
    EXPECT_TRUE(wholeFloatToInt(2.0F, number));
    EXPECT_EQ(number, 2);
    EXPECT_TRUE(wholeFloatToInt(-0.0F, number));
    EXPECT_EQ(number, 0);
    EXPECT_TRUE(wholeFloatToInt(-2147483648.0F, number));
    EXPECT_EQ(number, kLowest);
    EXPECT_TRUE(wholeFloatToInt(2147483648.0F, number));
    EXPECT_EQ(number, kHighest);
    EXPECT_FALSE(wholeFloatToInt(2.5F, number));
    EXPECT_FALSE(wholeFloatToInt(2147483904.0F, number));
    EXPECT_FALSE(wholeFloatToInt(-2147483904.0F, number));
    EXPECT_FALSE(wholeFloatToInt(std::numeric_limits<float>::infinity(), number));
    EXPECT_FALSE(wholeFloatToInt(std::numeric_limits<float>::quiet_NaN(), number));
}

TEST(Numbers, ArithmeticWrapsAround) {
    static_assert(wrapAdd(kHighest, 1) == kLowest);
    static_assert(wrapSubtract(kLowest, 1) == kHighest);
    static_assert(wrapMultiply(kHighest, 2) == -2);
    static_assert(wrapMultiply(65536, 65536) == 0);
    static_assert(wrapNegate(kLowest) == kLowest);
    static_assert(wrapNegate(5) == -5);
    static_assert(wrapDivide(kLowest, -1) == kLowest);
    static_assert(wrapDivide(-7, 2) == -3);
    static_assert(wrapRemainder(kLowest, -1) == 0);
    static_assert(wrapRemainder(-7, 2) == -1);
    EXPECT_EQ(wrapAdd(kHighest, kHighest), -2);
}

}  // namespace
