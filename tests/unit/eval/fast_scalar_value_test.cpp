#include "eval/fast_scalar_value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "compiled_text.h"

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

Variable text(const char* content) { return Variable(std::string(content)); }

/// An array of an int, a float, a bool, a nil and a text.
Variable mixedArray() {
    return Variable::makeArray({Variable::makeInt(10), Variable::makeFloat(2.5F),
                                Variable::makeBool(true), Variable(), text("s")});
}

std::string element(const Variable& base, const Variable& key) {
    FastScalarValue out{};
    const bool answered = tryFastScalarFromIndexedValue(base, key, out);
    EXPECT_EQ(answered, out.isSet());
    return shown(out);
}

/// The target after `target op value`; "declined" if the operation is left to others.
std::string applied(Variable target, char op, const FastScalarValue& value) {
    const std::string before = shown(target);
    if (tryApplyFastScalarOperationInPlace(target, op, value)) return shown(target);
    EXPECT_EQ(shown(target), before);
    return "declined";
}

std::string applied(int target, char op, const FastScalarValue& value) {
    return applied(Variable::makeInt(target), op, value);
}

std::string applied(float target, char op, const FastScalarValue& value) {
    return applied(Variable::makeFloat(target), op, value);
}

FastScalarValue scalar(int number) { return FastScalarValue::fromInt(number); }
FastScalarValue scalar(float number) { return FastScalarValue::fromFloat(number); }
FastScalarValue scalar(bool truth) { return FastScalarValue::fromBool(truth); }

TEST(FastScalarValue, KindsHaveTheirFixedValues) {
    EXPECT_EQ(static_cast<int>(FastScalarValue().kind), 0);
    EXPECT_EQ(static_cast<int>(FastScalarValue::nil().kind), 1);
    EXPECT_EQ(static_cast<int>(scalar(7).kind), 2);
    EXPECT_EQ(static_cast<int>(scalar(1.5F).kind), 3);
    EXPECT_EQ(static_cast<int>(scalar(true).kind), 4);
}

TEST(FastScalarValue, OnlyNumbersAreNumericAndNilIsSet) {
    EXPECT_FALSE(FastScalarValue().isSet());
    EXPECT_TRUE(FastScalarValue::nil().isSet());
    EXPECT_FALSE(FastScalarValue().isNumeric());
    EXPECT_FALSE(FastScalarValue::nil().isNumeric());
    EXPECT_TRUE(scalar(0).isNumeric());
    EXPECT_TRUE(scalar(0.0F).isNumeric());
    EXPECT_TRUE(scalar(false).isNumeric());
}

TEST(FastScalarToInt, CutsTowardZero) {
    EXPECT_EQ(fastScalarToInt(scalar(7)), 7);
    EXPECT_EQ(fastScalarToInt(scalar(true)), 1);
    EXPECT_EQ(fastScalarToInt(scalar(false)), 0);
    EXPECT_EQ(fastScalarToInt(scalar(2.9F)), 2);
    EXPECT_EQ(fastScalarToInt(scalar(-2.9F)), -2);
    EXPECT_EQ(fastScalarToInt(scalar(-0.5F)), 0);
}

TEST(FastScalarToInt, KeepsTheLow32BitsOf64) {
    EXPECT_EQ(fastScalarToInt(scalar(2147483648.0F)), kLowest);
    EXPECT_EQ(fastScalarToInt(scalar(4294967296.0F)), 0);
    EXPECT_EQ(fastScalarToInt(scalar(5000000000.0F)), 705032704);
    EXPECT_EQ(fastScalarToInt(scalar(-5000000000.0F)), -705032704);
}

TEST(FastScalarToInt, SaturatesAt64Bits) {
    // 2 to the 63rd and beyond: the low half of the largest number is all ones, of the smallest 0.
    EXPECT_EQ(fastScalarToInt(scalar(9223372036854775808.0F)), -1);
    EXPECT_EQ(fastScalarToInt(scalar(1e20F)), -1);
    EXPECT_EQ(fastScalarToInt(scalar(kInfinity)), -1);
    EXPECT_EQ(fastScalarToInt(scalar(-9223372036854775808.0F)), 0);
    EXPECT_EQ(fastScalarToInt(scalar(-1e20F)), 0);
    EXPECT_EQ(fastScalarToInt(scalar(-kInfinity)), 0);
    EXPECT_EQ(fastScalarToInt(scalar(kNan)), 0);
}

TEST(FastScalarToDouble, WidensExactly) {
    EXPECT_EQ(fastScalarToDouble(scalar(16777217)), 16777217.0);
    EXPECT_EQ(fastScalarToDouble(scalar(0.1F)), static_cast<double>(0.1F));
    EXPECT_EQ(fastScalarToDouble(scalar(true)), 1.0);
    EXPECT_EQ(fastScalarToDouble(scalar(false)), 0.0);
}

TEST(FastScalarConversions, RefuseNilAndUnset) {
    const std::string refusal = "Expected a numeric value";
    for (const FastScalarValue& value : {FastScalarValue::nil(), FastScalarValue()}) {
        EXPECT_EQ(messageOf([&] { static_cast<void>(fastScalarToInt(value)); }), refusal);
        EXPECT_EQ(messageOf([&] { static_cast<void>(fastScalarToDouble(value)); }), refusal);
    }
}

TEST(FastScalarTruth, TakesZeroForFalse) {
    EXPECT_FALSE(isScalarTruthy(FastScalarValue()));
    EXPECT_FALSE(isScalarTruthy(FastScalarValue::nil()));
    EXPECT_FALSE(isScalarTruthy(scalar(0)));
    EXPECT_FALSE(isScalarTruthy(scalar(0.0F)));
    EXPECT_FALSE(isScalarTruthy(scalar(-0.0F)));
    EXPECT_FALSE(isScalarTruthy(scalar(false)));
    EXPECT_TRUE(isScalarTruthy(scalar(-1)));
    EXPECT_TRUE(isScalarTruthy(scalar(0.25F)));
    EXPECT_TRUE(isScalarTruthy(scalar(kNan)));
    EXPECT_TRUE(isScalarTruthy(scalar(true)));
}

TEST(FastScalarFromVariable, TakesNilAndNumbersOnly) {
    EXPECT_EQ(shown(scalarFromVariable(Variable())), "not not");
    EXPECT_EQ(shown(scalarFromVariable(Variable::makeInt(5))), "int 5");
    EXPECT_EQ(shown(scalarFromVariable(Variable::makeFloat(1.5F))), "float 1.500000");
    EXPECT_EQ(shown(scalarFromVariable(Variable::makeBool(false))), "bool false");
    for (const Variable& other : {text("5"), Variable::makeArray(), Variable::makeTable(),
                                  Variable::makeMulti({}), Variable::makeFunction(nullptr)}) {
        FastScalarValue out{};
        EXPECT_FALSE(tryFastScalarFromVariable(other, out));
        EXPECT_FALSE(scalarFromVariable(other).isSet());
    }
}

TEST(FastScalarToVariable, GivesNilForWhatIsUnset) {
    EXPECT_EQ(shown(variableFromFastScalar(scalar(5))), "int 5");
    EXPECT_EQ(shown(variableFromFastScalar(scalar(1.5F))), "float 1.500000");
    EXPECT_EQ(shown(variableFromFastScalar(scalar(true))), "bool true");
    EXPECT_EQ(shown(variableFromFastScalar(FastScalarValue::nil())), "not not");
    EXPECT_EQ(shown(variableFromFastScalar(FastScalarValue())), "not not");
}

TEST(FastScalarAssignment, OverwritesEveryKind) {
    for (const Variable& before :
         {Variable(), Variable::makeInt(1), Variable::makeFloat(1.0F), Variable::makeBool(true),
          text("a text too long to be kept in place"), Variable::makeArray()}) {
        Variable target = before;
        assignFastScalarToVariable(target, scalar(5));
        EXPECT_EQ(shown(target), "int 5");
        target = before;
        assignFastScalarToVariable(target, scalar(1.5F));
        EXPECT_EQ(shown(target), "float 1.500000");
        target = before;
        assignFastScalarToVariable(target, scalar(true));
        EXPECT_EQ(shown(target), "bool true");
        target = before;
        assignFastScalarToVariable(target, FastScalarValue::nil());
        EXPECT_EQ(shown(target), "not not");
        // A nil holds the int 0, whatever stood there.
        EXPECT_EQ(target.asInt(), 0);
        target = before;
        assignFastScalarToVariable(target, FastScalarValue());
        EXPECT_EQ(shown(target), "not not");
    }
}

TEST(FastScalarElement, OfAnArrayByPosition) {
    const Variable array = mixedArray();
    EXPECT_EQ(element(array, Variable::makeInt(1)), "int 10");
    EXPECT_EQ(element(array, Variable::makeInt(2)), "float 2.500000");
    EXPECT_EQ(element(array, Variable::makeInt(3)), "bool true");
    EXPECT_EQ(element(array, Variable::makeInt(4)), "not not");
    EXPECT_EQ(element(array, Variable::makeInt(5)), "unset");
    // Outside it is nil, which is an answer.
    for (const int outside : {0, -1, 6, kLowest, kHighest}) {
        EXPECT_EQ(element(array, Variable::makeInt(outside)), "not not") << outside;
    }
}

TEST(FastScalarElement, OfAnArrayByAWholeFloat) {
    const Variable array = mixedArray();
    EXPECT_EQ(element(array, Variable::makeFloat(1.0F)), "int 10");
    EXPECT_EQ(element(array, Variable::makeFloat(0.0F)), "not not");
    EXPECT_EQ(element(array, Variable::makeFloat(2147483648.0F)), "not not");
    EXPECT_EQ(element(array, Variable::makeFloat(-2147483648.0F)), "not not");
    for (const float other : {1.5F, 2147483904.0F, -2147483904.0F, kInfinity, kNan}) {
        EXPECT_EQ(element(array, Variable::makeFloat(other)), "unset") << other;
    }
}

TEST(FastScalarElement, OfAnArrayByAnotherKeyDeclines) {
    const Variable array = mixedArray();
    for (const Variable& key : {Variable(), Variable::makeBool(true), text("1"), array}) {
        EXPECT_EQ(element(array, key), "unset") << shown(key);
    }
}

TEST(FastScalarElement, OfATableByKeyText) {
    TableStorage entries;
    entries["1"] = Variable::makeInt(10);
    entries["1.500000"] = Variable::makeFloat(2.5F);
    entries["true"] = Variable::makeBool(true);
    entries["nothing"] = Variable();
    entries["text"] = text("s");
    const Variable table = Variable::makeTable(std::move(entries));
    EXPECT_EQ(element(table, Variable::makeInt(1)), "int 10");
    EXPECT_EQ(element(table, text("1")), "int 10");
    EXPECT_EQ(element(table, Variable::makeFloat(1.5F)), "float 2.500000");
    EXPECT_EQ(element(table, Variable::makeFloat(1.0F)), "not not");
    EXPECT_EQ(element(table, Variable::makeBool(true)), "bool true");
    EXPECT_EQ(element(table, text("nothing")), "not not");
    EXPECT_EQ(element(table, text("missing")), "not not");
    EXPECT_EQ(element(table, text("text")), "unset");
    EXPECT_EQ(element(table, Variable()), "unset");
    EXPECT_EQ(element(table, table), "unset");
}

TEST(FastScalarElement, OfAnythingElseDeclines) {
    for (const Variable& base : {Variable(), Variable::makeInt(5), text("text"),
                                 Variable::makeMulti({Variable::makeInt(1)})}) {
        EXPECT_EQ(element(base, Variable::makeInt(1)), "unset") << shown(base);
    }
}

TEST(FastScalarInPlace, IntsWithIntsAndBools) {
    EXPECT_EQ(applied(5, '+', scalar(3)), "int 8");
    EXPECT_EQ(applied(5, '-', scalar(8)), "int -3");
    EXPECT_EQ(applied(5, '*', scalar(-3)), "int -15");
    EXPECT_EQ(applied(kHighest, '+', scalar(1)), "int -2147483648");
    EXPECT_EQ(applied(kLowest, '-', scalar(1)), "int 2147483647");
    EXPECT_EQ(applied(kHighest, '*', scalar(2)), "int -2");
    EXPECT_EQ(applied(5, '+', scalar(true)), "int 6");
    EXPECT_EQ(applied(-7, '\\', scalar(2)), "int -3");
    EXPECT_EQ(applied(kLowest, '\\', scalar(-1)), "int -2147483648");
    EXPECT_EQ(applied(-7, '%', scalar(2)), "int -1");
    EXPECT_EQ(applied(kLowest, '%', scalar(-1)), "int 0");
    EXPECT_EQ(applied(7, '%', scalar(true)), "int 0");
}

TEST(FastScalarInPlace, FloatsInSinglePrecision) {
    EXPECT_EQ(applied(1.5F, '+', scalar(1)), "float 2.500000");
    EXPECT_EQ(applied(1.5F, '-', scalar(0.25F)), "float 1.250000");
    EXPECT_EQ(applied(1.5F, '*', scalar(true)), "float 1.500000");
    // The value is narrowed first: no float holds 16777217.
    EXPECT_EQ(applied(0.5F, '+', scalar(16777217)), "float 16777216.000000");
    EXPECT_EQ(applied(1.5F, '*', scalar(16777217)), "float 25165824.000000");
}

TEST(FastScalarInPlace, FloatsDividedInDouble) {
    EXPECT_EQ(applied(7.5F, '/', scalar(2.5F)), "float 3.000000");
    EXPECT_EQ(applied(7.0F, '/', scalar(2)), "float 3.500000");
    EXPECT_EQ(applied(7.0F, '/', scalar(true)), "float 7.000000");
    EXPECT_EQ(applied(7.5F, '%', scalar(2)), "float 1.500000");
    EXPECT_EQ(applied(-7.5F, '%', scalar(2)), "float -1.500000");
    // The divisor is not narrowed: no float holds 16777217, and 16777216 would leave 0.
    EXPECT_EQ(applied(33554432.0F, '%', scalar(16777217)), "float 16777215.000000");
}

TEST(FastScalarInPlace, IntsCutTheirFloatDivisor) {
    EXPECT_EQ(applied(7, '\\', scalar(2.9F)), "int 3");
    EXPECT_EQ(applied(7, '\\', scalar(-1.5F)), "int -7");
}

TEST(FastScalarInPlace, DeclinesOtherKindsAndOperators) {
    EXPECT_EQ(applied(text("a"), '+', scalar(1)), "declined");
    EXPECT_EQ(applied(Variable(), '+', scalar(1)), "declined");
    EXPECT_EQ(applied(mixedArray(), '+', scalar(1)), "declined");
    EXPECT_EQ(applied(5, '+', FastScalarValue::nil()), "declined");
    EXPECT_EQ(applied(5, '+', FastScalarValue()), "declined");
    EXPECT_EQ(applied(5, '^', scalar(2)), "declined");
    EXPECT_EQ(applied(5, '=', scalar(2)), "declined");
    EXPECT_EQ(applied(5, '\0', scalar(2)), "declined");
}

TEST(FastScalarInPlace, ZeroDivisorsChangeNothing) {
    for (const char op : {'/', '\\', '%'}) {
        for (const FastScalarValue& zero : {scalar(0), scalar(0.0F), scalar(false)}) {
            for (const Variable& before :
                 {Variable::makeInt(7), Variable::makeFloat(7.5F), Variable::makeBool(true)}) {
                Variable target = before;
                const std::string message = messageOf([&] {
                    static_cast<void>(tryApplyFastScalarOperationInPlace(target, op, zero));
                });
                EXPECT_EQ(message, "Division by zero") << op;
                EXPECT_EQ(shown(target), shown(before)) << op;
            }
        }
    }
    Variable target = Variable::makeInt(7);
    EXPECT_EQ(messageOf([&] {
                  static_cast<void>(tryApplyFastScalarOperationInPlace(target, '\\', scalar(0.9F)));
              }),
              "Division by zero");
    EXPECT_EQ(shown(target), "int 7");
}

/// A mix of kinds fails behind the change of kind and before the change of content.
void expectSpoiled(Variable target, char op, const FastScalarValue& value, VarType kindAfter) {
    const Variable before = target;
    SCOPED_TRACE(shown(target) + " " + op + " " + shown(value));
    EXPECT_EQ(messageOf([&] {
                  static_cast<void>(tryApplyFastScalarOperationInPlace(target, op, value));
              }),
              "bad_variant_access");
    EXPECT_EQ(target.type, kindAfter);
    EXPECT_TRUE(target.sameContent(before));
}

TEST(FastScalarInPlace, MixedKindsSpoilTheTarget) {
    const Variable integer = Variable::makeInt(7);
    const Variable real = Variable::makeFloat(7.5F);
    const Variable truth = Variable::makeBool(true);
    for (const char op : {'+', '-', '*'}) {
        expectSpoiled(integer, op, scalar(0.5F), VarType::Float);
        expectSpoiled(truth, op, scalar(0.5F), VarType::Float);
        expectSpoiled(truth, op, scalar(1), VarType::Int);
        expectSpoiled(truth, op, scalar(true), VarType::Int);
    }
    for (const FastScalarValue& value : {scalar(2), scalar(0.5F), scalar(true)}) {
        expectSpoiled(integer, '/', value, VarType::Float);
        expectSpoiled(truth, '/', value, VarType::Float);
    }
    expectSpoiled(real, '\\', scalar(2), VarType::Int);
    expectSpoiled(real, '\\', scalar(2.0F), VarType::Int);
    expectSpoiled(truth, '\\', scalar(2), VarType::Int);
    expectSpoiled(truth, '%', scalar(2), VarType::Int);
    expectSpoiled(truth, '%', scalar(2.0F), VarType::Float);
    expectSpoiled(integer, '%', scalar(0.5F), VarType::Float);
}

}  // namespace
