#include "value/text.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "value/array_storage.h"
#include "value/operators.h"
#include "value/script_callable.h"
#include "value/table.h"

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
        Variable::makeFunction(Shared<ScriptCallable>::make())};
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

TEST(Text, ATextThatNobodySharesGrowsInPlace) {
    Variable text(std::string(100, 'a'));
    text.mutableString().reserve(1000);
    const TextBlock* const block = text.asText().get();
    const char* const bytes = text.asString().data();
    static_cast<void>(text.asText()->hash());
    appendToString(text, Variable("bc"));
    appendToString(text, Variable::makeInt(-7));
    appendToString(text, text);
    EXPECT_EQ(text.asText().get(), block);
    EXPECT_EQ(text.asString().data(), bytes);
    const std::string half = std::string(100, 'a') + "bc-7";
    EXPECT_EQ(text.asString(), half + half);
    EXPECT_EQ(text.asText()->hash(), std::hash<std::string>()(half + half));
}

TEST(Text, ASharedTextStaysAsItIs) {
    Variable text("abc");
    const Variable other = text;
    appendToString(text, Variable("d"));
    EXPECT_EQ(text.asString(), "abcd");
    EXPECT_EQ(other.asString(), "abc");
    Variable twice = other;
    appendToString(twice, other);
    EXPECT_EQ(twice.asString(), "abcabc");
    EXPECT_EQ(other.asString(), "abc");
}

TEST(Text, NothingIsAppendedOfAValueWithoutText) {
    Variable text("abc");
    Variable damaged = Variable::makeInt(1);
    damaged.type = VarType::Float;
    const Variable nested = Variable::makeArray(ArrayStorage{Variable("x"), damaged});
    EXPECT_THROW(appendToString(text, damaged), std::runtime_error);
    EXPECT_THROW(appendToString(text, nested), std::runtime_error);
    EXPECT_EQ(text.asString(), "abc");
}

// 1,000,000 pieces: a copy for each would move terabytes.
TEST(Text, ALongTextIsPutTogetherInTimeOfItsLength) {
    Variable text("");
    const Variable piece("xyz");
    for (int i = 0; i < 1000000; ++i) {
        ASSERT_TRUE(tryApplyOperationInPlace(text, '+', piece));
    }
    EXPECT_EQ(text.asString().size(), 3000000U);
}

}  // namespace
