#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "compiled_text.h"
#include "frontend/parsed_script_line.h"

namespace {

using Tiers = DovrelScript::ConditionTiers;

class Conditions : public testing::Test {
protected:
    Conditions() {
        calls = 0;
        interpreter.pushFunction("count", [](DovrelScript&, Arguments args) {
            ++calls;
            return args.empty() ? Variable() : args[0];
        });
        interpreter.runScript(
            "zero = 0; one = 1; text = \"\"; numbers = [0, 0.0, \"s\"]\n"
            "function same(v); return v; end\n"
            "function long(v); one = 1; return v; end\n"
            "function risky(); error(\"boom\"); return 1; end\n");
    }

    ParsedScriptLine line(const std::string& source) {
        std::vector<ParsedScriptLine> lines = interpreter.parseLines(source);
        EXPECT_EQ(lines.size(), 1U);
        return lines.at(0);
    }
    bool holds(const std::string& condition, Tiers tiers = Tiers::BoolFirst) {
        return interpreter.evaluateCondition(line("if " + condition), "if", tiers);
    }
    int callsOf(const std::string& condition, Tiers tiers) {
        calls = 0;
        static_cast<void>(holds(condition, tiers));
        return calls;
    }
    std::string returned(const std::string& values) {
        return shown(interpreter.evaluateReturnValues(line("return " + values)));
    }

    DovrelScript interpreter;
    static inline int calls = 0;
};

TEST_F(Conditions, ZeroIsFalseForTheScalarTiers) {
    for (const Tiers tiers : {Tiers::BoolFirst, Tiers::ScalarOnly}) {
        for (const char* condition :
             {"0", "zero", "0.0", "-0.0", "zero + 0", "numbers[1]", "numbers[2]", "same(0)",
              "zero and text", "zero or false", "unknown", "not"}) {
            EXPECT_FALSE(holds(condition, tiers)) << condition;
        }
        for (const char* condition : {"1", "0.5", "one", "same(1)", "not zero", "not same(0)"}) {
            EXPECT_TRUE(holds(condition, tiers)) << condition;
        }
    }
}

TEST_F(Conditions, ZeroIsTrueByTheGeneralRule) {
    for (const Tiers tiers : {Tiers::BoolFirst, Tiers::ScalarOnly}) {
        for (const char* condition : {"long(0)", "text", "\"\"", "numbers", "zero or text",
                                      "one and long(0)", "[0][1]", "{}"}) {
            EXPECT_TRUE(holds(condition, tiers)) << condition;
        }
        for (const char* condition : {"not long(0)", "not text", "not [0][1]", "[false][1]"}) {
            EXPECT_FALSE(holds(condition, tiers)) << condition;
        }
    }
}

TEST_F(Conditions, WithoutCompiledFormsZeroIsTrue) {
    interpreter.compileExpressions = false;
    for (const char* condition : {"0", "zero", "0.0", "numbers[1]", "same(0)", "not not 0"}) {
        EXPECT_TRUE(holds(condition)) << condition;
    }
    EXPECT_FALSE(holds("unknown"));
    EXPECT_FALSE(holds("false"));
}

TEST_F(Conditions, EachTierEvaluatesACallAnew) {
    const auto expectCalls = [&](const char* condition, int boolFirst, int scalarOnly) {
        EXPECT_EQ(callsOf(condition, Tiers::BoolFirst), boolFirst) << condition;
        EXPECT_EQ(callsOf(condition, Tiers::ScalarOnly), scalarOnly) << condition;
    };
    // The scalar tier, then the general tier: the bool tier knows no calls, and a whole expression
    // with a call at its root has no scalar attempt.
    expectCalls("long(count(1))", 2, 2);
    // The bool tier, the scalar tier, the whole expression's scalar attempt, the general tier.
    expectCalls("not long(count(1))", 4, 3);
    expectCalls("long(count(1)) == 1", 4, 3);
    expectCalls("long(count(1)) and one", 4, 3);
    expectCalls("same(1) and long(count(1))", 4, 3);
    // Behind a left side of its own the bool tier does not try the call.
    expectCalls("one and long(count(1))", 3, 3);
    // A scalar tier that succeeds is the last.
    expectCalls("same(count(1))", 1, 1);
    expectCalls("len(count(\"text\")) == 4", 1, 1);
    // By tokens everything runs once.
    expectCalls("[long(count(1))][1]", 1, 1);
}

TEST_F(Conditions, AStrayTokenIsReportedWithTheStatementsWord) {
    const auto reported = [&](const std::string& source, std::string_view word) {
        const ParsedScriptLine parsed = line(source);
        const std::string message = messageOf([&] {
            static_cast<void>(interpreter.evaluateCondition(parsed, word, Tiers::BoolFirst));
        });
        return message.substr(0, message.find('\n'));
    };
    EXPECT_EQ(reported("if one two", "if"),
              "DovrelScript error: Unexpected token after if condition");
    EXPECT_EQ(reported("while one two", "while"),
              "DovrelScript error: Unexpected token after while condition");
    EXPECT_EQ(reported("until one two", "until"),
              "DovrelScript error: Unexpected token after until condition");
    EXPECT_EQ(reported("if", "if"), "DovrelScript error: Unexpected end of expression");
}

TEST_F(Conditions, ASoftErrorMakesThemFalse) {
    for (const char* condition :
         {"risky()", "not risky()", "risky() == 1", "not numbers[risky()]",
          "numbers[risky()] or one", "not [risky()][1]", "[risky()] stray"}) {
        for (const Tiers tiers : {Tiers::BoolFirst, Tiers::ScalarOnly}) {
            interpreter.protectedCallDepths.push_back(0);
            interpreter.callDepth = 1;
            EXPECT_FALSE(holds(condition, tiers)) << condition;
            EXPECT_TRUE(interpreter.softErrorUnwinding()) << condition;
            interpreter.softErrorPending = false;
            interpreter.noteAttention();
            interpreter.callDepth = 0;
            interpreter.protectedCallDepths.clear();
        }
    }
}

TEST_F(Conditions, ReturnValuesBecomeOneValue) {
    EXPECT_EQ(returned(""), "not not");
    EXPECT_EQ(returned("5"), "int 5");
    EXPECT_EQ(returned("2 ^ 3"), "float 8.000000");
    EXPECT_EQ(returned("[5]"), "array [5]");
    const Variable several = interpreter.evaluateReturnValues(line("return 2 ^ 3, \"a\", unknown"));
    ASSERT_EQ(several.type, VarType::Multi);
    ASSERT_EQ(several.asMulti()->values.size(), 3U);
    EXPECT_EQ(shown(several.asMulti()->values[0]), "float 8.000000");
    EXPECT_EQ(shown(several.asMulti()->values[1]), "string a");
    EXPECT_EQ(shown(several.asMulti()->values[2]), "not not");
}

TEST_F(Conditions, OneValueThatDoesNotCompileSendsAllByTokens) {
    const Variable several = interpreter.evaluateReturnValues(line("return 2 ^ 3, [1]"));
    ASSERT_EQ(several.type, VarType::Multi);
    EXPECT_EQ(shown(several.asMulti()->values[0]), "int 8");
    EXPECT_EQ(shown(several.asMulti()->values[1]), "array [1]");
    // A comma at the very end is accepted, and one value stays one.
    EXPECT_EQ(returned("[1],"), "array [1]");
    EXPECT_EQ(returned("5,"), "int 5");
    const std::string message = messageOf([&] { static_cast<void>(returned("5 6")); });
    EXPECT_EQ(message.substr(0, message.find('\n')),
              "DovrelScript error: Unexpected token after return value");
}

TEST_F(Conditions, ASoftErrorLeavesNoReturnValue) {
    for (const char* values : {"risky()", "1, risky(), 2", "[risky()]", "risky(), [1]"}) {
        interpreter.protectedCallDepths.push_back(0);
        interpreter.callDepth = 1;
        EXPECT_EQ(returned(values), "not not") << values;
        interpreter.softErrorPending = false;
        interpreter.noteAttention();
        interpreter.callDepth = 0;
        interpreter.protectedCallDepths.clear();
    }
}

}  // namespace
