#include "value/operators.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "value/array_storage.h"
#include "value/script_callable.h"

namespace {

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

Variable number(int value) { return Variable::makeInt(value); }
Variable number(float value) { return Variable::makeFloat(value); }
Variable number(bool value) { return Variable::makeBool(value); }

Variable rawOf(const std::string& bytes) {
    return Variable(VarType::Raw, ValueStorage(std::vector<char>(bytes.begin(), bytes.end())));
}

std::string failureOf(const Variable& lhs, char op, const Variable& rhs) {
    try {
        static_cast<void>(performOperation(lhs, op, rhs));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

/// The same kind and, since the text would raise for any other content, the same content.
void expectSame(const Variable& actual, const Variable& expected, const std::string& what) {
    EXPECT_EQ(actual.type, expected.type) << what;
    EXPECT_EQ(actual.toString(), expected.toString()) << what;
}

std::vector<Variable> samples() {
    return {Variable(),
            number(0),
            number(7),
            number(-1),
            number(16777217),
            number(kLowest),
            number(kHighest),
            number(0.0F),
            number(0.5F),
            number(-7.5F),
            number(1e20F),
            number(true),
            number(false),
            Variable(""),
            Variable("text"),
            Variable::makeArray(ArrayStorage{number(1)}),
            Variable::makeTable(),
            Variable::makeMulti({}),
            Variable(VarType::Pointer, ValueStorage(static_cast<void*>(nullptr))),
            Variable::makeFunction(Shared<ScriptCallable>::make())};
}

TEST(Operators, AnUnknownOperatorIsNamed) {
    EXPECT_EQ(failureOf(number(1), '&', number(2)), "Unsupported operation: &");
    EXPECT_EQ(failureOf(Variable(), '?', Variable()), "Unsupported operation: ?");
    EXPECT_EQ(failureOf(Variable("a"), '=', Variable("b")), "Unsupported operation: =");
}

TEST(Operators, KindsThatNoScriptCanMakeDoNotCompute) {
    EXPECT_EQ(failureOf(rawOf("1"), '+', number(1)), "Unsupported operation '+' between types");
    EXPECT_EQ(failureOf(number(1), '%',
                        Variable(VarType::Pointer, ValueStorage(static_cast<void*>(nullptr)))),
              "Unsupported operation '%' between types");
}

TEST(Operators, ResultsHaveTheKindOfTheTable) {
    EXPECT_EQ(performOperation(number(7), '/', number(2)).type, VarType::Float);
    EXPECT_EQ(performOperation(number(6), '/', number(3)).asFloat(), 2.0F);
    EXPECT_EQ(performOperation(number(7.5F), '\\', number(2)).asInt(), 3);
    EXPECT_EQ(performOperation(number(true), '+', number(true)).asInt(), 2);
    EXPECT_EQ(performOperation(number(true), '%', number(2)).asInt(), 1);
    EXPECT_EQ(performOperation(number(true), '^', number(2)).asFloat(), 1.0F);
    EXPECT_EQ(performOperation(number(2), '^', number(10)).asInt(), 1024);
    EXPECT_EQ(performOperation(number(2), '^', number(-1)).asFloat(), 0.5F);
    EXPECT_EQ(performOperation(number(-2), '^', number(31)).asInt(), kLowest);
    EXPECT_EQ(performOperation(number(2), '^', number(31)).asFloat(), 2147483648.0F);
    EXPECT_EQ(performOperation(number(0), '^', number(0)).asInt(), 1);
}

TEST(Operators, MixedSumsNarrowTheIntFirst) {
    EXPECT_EQ(performOperation(number(16777217), '+', number(1.0F)).asFloat(), 16777216.0F);
    EXPECT_EQ(performOperation(number(16777217), '%', number(2.0F)).asFloat(), 0.0F);
    // Division is made in double precision: a narrowed 16777217 would give 3355443.25.
    EXPECT_EQ(performOperation(number(16777217), '/', number(5.0F)).asFloat(), 3355443.5F);
}

TEST(Operators, OperandsNeverChange) {
    for (const char op : std::string("+-*/\\%^?")) {
        for (const Variable& lhs : samples()) {
            for (const Variable& rhs : samples()) {
                const Variable left = lhs;
                const Variable right = rhs;
                try {
                    static_cast<void>(performOperation(left, op, right));
                } catch (const std::runtime_error&) {
                    // Failures leave the operands alone as well.
                }
                expectSame(left, lhs, "left");
                expectSame(right, rhs, "right");
            }
        }
    }
}

// The result, or the failure, of an operation in place is that of the operation; when it refuses,
// nothing has happened.
TEST(Operators, InPlaceAgreesWithTheOperation) {
    for (const char op : std::string("+-*/\\%^?")) {
        for (const Variable& lhs : samples()) {
            for (const Variable& rhs : samples()) {
                const std::string what = typeName(lhs.type) + " " + lhs.toString() + " " + op +
                                         " " + typeName(rhs.type) + " " + rhs.toString();
                const std::string failure = failureOf(lhs, op, rhs);
                Variable target = lhs;
                bool done = false;
                std::string raised;
                try {
                    done = tryApplyOperationInPlace(target, op, rhs);
                } catch (const std::runtime_error& error) {
                    raised = error.what();
                }
                if (done) {
                    ASSERT_EQ(failure, "") << what;
                    expectSame(target, performOperation(lhs, op, rhs), what);
                } else {
                    expectSame(target, lhs, what);
                    EXPECT_TRUE(raised.empty() || raised == failure) << what;
                }
            }
        }
    }
}

TEST(Operators, InPlaceDeclinesPowersAndOtherKinds) {
    Variable target = number(2);
    EXPECT_FALSE(tryApplyOperationInPlace(target, '^', number(3)));
    EXPECT_FALSE(tryApplyOperationInPlace(target, '&', number(3)));
    EXPECT_FALSE(tryApplyOperationInPlace(target, '+', Variable()));
    EXPECT_FALSE(tryApplyOperationInPlace(target, '-', Variable("1")));
    EXPECT_EQ(target.asInt(), 2);
    Variable nothing;
    EXPECT_FALSE(tryApplyOperationInPlace(nothing, '+', number(1)));
    EXPECT_TRUE(nothing.isNil());
}

TEST(Operators, InPlaceTakesEveryNumericMix) {
    for (const char op : std::string("+-*/\\%")) {
        for (const Variable& lhs : {number(7), number(7.5F), number(true)}) {
            for (const Variable& rhs : {number(2), number(2.0F), number(true)}) {
                Variable target = lhs;
                EXPECT_TRUE(tryApplyOperationInPlace(target, op, rhs)) << op;
            }
        }
    }
}

TEST(Operators, InPlaceJoinsATextWithItself) {
    Variable text("ab");
    EXPECT_TRUE(tryApplyOperationInPlace(text, '+', text));
    EXPECT_EQ(text.asString(), "abab");
    Variable array = Variable::makeArray();
    EXPECT_TRUE(tryApplyOperationInPlace(array, '+', Variable("!")));
    EXPECT_EQ(array.asString(), "[]!");
}

TEST(Operators, AZeroDivisorIsFoundBeforeTheTargetChanges) {
    for (const char op : std::string("/\\%")) {
        for (const Variable& zero : {number(0), number(0.0F), number(false)}) {
            for (const Variable& lhs : {number(7), number(7.5F), number(true)}) {
                EXPECT_EQ(failureOf(lhs, op, zero), "Division by zero");
                Variable target = lhs;
                EXPECT_THROW(static_cast<void>(tryApplyOperationInPlace(target, op, zero)),
                             std::runtime_error);
                expectSame(target, lhs, std::string(1, op));
            }
        }
    }
    EXPECT_EQ(failureOf(number(7), '\\', number(0.5F)), "Division by zero");
    EXPECT_EQ(failureOf(number(7), '%', number(0.5F)), "");
}

TEST(Operators, ComparisonGivesASign) {
    EXPECT_EQ(compareVariables(number(1), number(2)), -1);
    EXPECT_EQ(compareVariables(number(2), number(1.5F)), 1);
    EXPECT_EQ(compareVariables(number(true), number(1.0F)), 0);
    EXPECT_EQ(compareVariables(Variable("a"), Variable("b")), -1);
    EXPECT_EQ(compareVariables(Variable("b"), Variable("a")), 1);
    EXPECT_EQ(compareVariables(Variable("ab"), Variable("ab")), 0);
    EXPECT_EQ(compareVariables(Variable("ab"), Variable("abc")), -1);
    EXPECT_EQ(compareVariables(Variable("\xff"), Variable("a")), 1);
    EXPECT_EQ(compareVariables(Variable(std::string("a\0b", 3)), Variable("a")), 1);
    const Variable nan = number(std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(compareVariables(nan, number(1)), -1);
    EXPECT_EQ(compareVariables(number(1), nan), -1);
    EXPECT_EQ(compareVariables(nan, nan), -1);
}

TEST(Operators, ComparisonNamesBothKinds) {
    const auto failure = [](const Variable& lhs, const Variable& rhs) -> std::string {
        try {
            return std::to_string(compareVariables(lhs, rhs));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    EXPECT_EQ(failure(Variable("a"), number(1)), "Cannot compare string with int");
    EXPECT_EQ(failure(Variable(), Variable()), "Cannot compare not with not");
    EXPECT_EQ(failure(rawOf("a"), rawOf("a")), "Cannot compare raw with raw");
    EXPECT_EQ(failure(Variable(VarType::Pointer, ValueStorage(static_cast<void*>(nullptr))),
                      number(1.0F)),
              "Cannot compare pointer with float");
    EXPECT_EQ(failure(Variable::makeMulti({}), number(true)),
              "Cannot compare multivalue with bool");
}

TEST(Operators, EqualityOfNumbersIsByValue) {
    EXPECT_TRUE(variablesEqual(number(1), number(1.0F)));
    EXPECT_TRUE(variablesEqual(number(true), number(1)));
    EXPECT_TRUE(variablesEqual(number(0.0F), number(-0.0F)));
    EXPECT_FALSE(variablesEqual(number(16777217), number(16777216.0F)));
    const Variable nan = number(std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(variablesEqual(nan, nan));
}

TEST(Operators, EqualityOfOtherKinds) {
    EXPECT_TRUE(variablesEqual(Variable(), Variable()));
    EXPECT_FALSE(variablesEqual(Variable(), number(false)));
    EXPECT_FALSE(variablesEqual(Variable("1"), number(1)));
    EXPECT_TRUE(variablesEqual(Variable(std::string("a\0b", 3)), Variable(std::string("a\0b", 3))));
    EXPECT_FALSE(
        variablesEqual(Variable(std::string("a\0b", 3)), Variable(std::string("a\0c", 3))));
    EXPECT_TRUE(variablesEqual(rawOf("ab"), rawOf("ab")));
    EXPECT_FALSE(variablesEqual(rawOf("ab"), rawOf("abc")));
    EXPECT_FALSE(variablesEqual(rawOf("ab"), Variable("ab")));
    int first = 0;
    int second = 0;
    const auto pointer = [](int& target) {
        return Variable(VarType::Pointer, ValueStorage(static_cast<void*>(&target)));
    };
    EXPECT_TRUE(variablesEqual(pointer(first), pointer(first)));
    EXPECT_FALSE(variablesEqual(pointer(first), pointer(second)));
}

TEST(Operators, SharedValuesAreEqualByIdentity) {
    for (const auto& make :
         {+[] { return Variable::makeArray(); }, +[] { return Variable::makeTable(); },
          +[] { return Variable::makeMulti({}); },
          +[] { return Variable::makeFunction(Shared<ScriptCallable>::make()); }}) {
        const Variable one = make();
        const Variable other = make();
        const Variable copy = one;
        EXPECT_TRUE(variablesEqual(one, copy));
        EXPECT_FALSE(variablesEqual(one, other));
    }
}

}  // namespace
