#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "compiled_text.h"

namespace {

/// An interpreter with some globals, and a native that counts its calls.
class ScalarTiers : public testing::Test {
protected:
    ScalarTiers() {
        calls = 0;
        interpreter.pushFunction("count", [](DovrelScript&, Arguments args) {
            ++calls;
            return args.empty() ? Variable() : args[0];
        });
        interpreter.runScript(
            "zero = 0; one = 1; five = 5; half = 0.5; yes = true; no = false; text = \"text\"\n"
            "numbers = [10, 0.5, true, nil, \"s\"]; fields = {n: 7, s: \"s\"}\n"
            "function same(v); return v; end\n"
            "function long(v); five = 5; return v; end\n");
    }

    std::string scalar(const std::string& source) {
        const CompiledText compiled(interpreter, source);
        EXPECT_TRUE(compiled.expression.valid) << source;
        FastScalarValue out{};
        const bool answered = interpreter.tryEvaluateFastExpressionScalarNode(
            compiled.expression, compiled.expression.root, compiled.analysis, out);
        EXPECT_TRUE(!answered || out.isSet());
        return answered ? shown(out) : "declined";
    }
    std::string integer(const std::string& source) {
        const CompiledText compiled(interpreter, source);
        EXPECT_TRUE(compiled.expression.valid) << source;
        int out = 0;
        return interpreter.tryEvaluateFastExpressionIntNode(
                   compiled.expression, compiled.expression.root, compiled.analysis, out)
                   ? std::to_string(out)
                   : "declined";
    }
    std::string truth(const std::string& source) {
        const CompiledText compiled(interpreter, source);
        EXPECT_TRUE(compiled.expression.valid) << source;
        bool out = false;
        if (!interpreter.tryEvaluateFastExpressionBoolNode(
                compiled.expression, compiled.expression.root, compiled.analysis, out)) {
            return "declined";
        }
        return out ? "true" : "false";
    }
    /// How often `count` runs while `action` does.
    template <typename Action>
    int callsOf(Action&& action) {
        calls = 0;
        static_cast<void>(action());
        return calls;
    }

    DovrelScript interpreter;
    static inline int calls = 0;
};

// ---------------------------------------------------------------------------- scalar tier

TEST_F(ScalarTiers, ScalarTakesNoNodeForNil) {
    const CompiledText compiled(interpreter, "five + 1");
    for (const int outside : {-1, -2147483647, 3, 1000}) {
        FastScalarValue out = FastScalarValue::fromInt(1);
        EXPECT_TRUE(interpreter.tryEvaluateFastExpressionScalarNode(compiled.expression, outside,
                                                                    compiled.analysis, out));
        EXPECT_EQ(shown(out), "not not") << outside;
    }
    const FastExpression empty;
    FastScalarValue out{};
    EXPECT_TRUE(interpreter.tryEvaluateFastExpressionScalarNode(empty, empty.root, {}, out));
    EXPECT_EQ(shown(out), "not not");
}

TEST_F(ScalarTiers, EveryTierDeclinesUnknownKinds) {
    for (const std::uint32_t kind : {0U, 27U, 4294967295U}) {
        FastExpression expression;
        expression.valid = true;
        expression.root = 0;
        FastExprNode node;
        node.kind = static_cast<NodeKind>(kind);
        expression.nodes = {node};
        FastScalarValue value{};
        int number = 0;
        bool answer = false;
        EXPECT_FALSE(interpreter.tryEvaluateFastExpressionScalarNode(expression, 0, {}, value));
        EXPECT_FALSE(interpreter.tryEvaluateFastExpressionIntNode(expression, 0, {}, number));
        EXPECT_FALSE(interpreter.tryEvaluateFastExpressionBoolNode(expression, 0, {}, answer));
    }
}

TEST_F(ScalarTiers, ScalarTakesLiteralsButTexts) {
    EXPECT_EQ(scalar("5"), "int 5");
    EXPECT_EQ(scalar("1.5"), "float 1.500000");
    EXPECT_EQ(scalar("true"), "bool true");
    EXPECT_EQ(scalar("not"), "not not");
    EXPECT_EQ(scalar("\"5\""), "declined");
}

TEST_F(ScalarTiers, ScalarTakesVariablesThatHoldScalars) {
    EXPECT_EQ(scalar("five"), "int 5");
    EXPECT_EQ(scalar("half"), "float 0.500000");
    EXPECT_EQ(scalar("no"), "bool false");
    EXPECT_EQ(scalar("unknown"), "not not");
    EXPECT_EQ(scalar("text"), "declined");
    EXPECT_EQ(scalar("numbers"), "declined");
    EXPECT_EQ(scalar("same"), "declined");
}

TEST_F(ScalarTiers, ScalarReadsElements) {
    EXPECT_EQ(scalar("numbers[1]"), "int 10");
    EXPECT_EQ(scalar("numbers[one + 1]"), "float 0.500000");
    EXPECT_EQ(scalar("numbers[3.0]"), "bool true");
    EXPECT_EQ(scalar("numbers[4]"), "not not");
    EXPECT_EQ(scalar("numbers[99]"), "not not");
    EXPECT_EQ(scalar("numbers[5]"), "declined");
    EXPECT_EQ(scalar("numbers[1.5]"), "declined");
    EXPECT_EQ(scalar("numbers[yes]"), "declined");
    EXPECT_EQ(scalar("numbers[\"1\"]"), "declined");
    EXPECT_EQ(scalar("numbers[not]"), "declined");
    EXPECT_EQ(scalar("fields[\"n\"]"), "int 7");
    EXPECT_EQ(scalar("fields[\"none\"]"), "not not");
    EXPECT_EQ(scalar("fields[\"s\"]"), "declined");
    EXPECT_EQ(scalar("fields[fields[\"s\"]]"), "declined");
    EXPECT_EQ(scalar("fields[text]"), "not not");
    EXPECT_EQ(scalar("fields[not]"), "declined");
    EXPECT_EQ(scalar("unknown[1]"), "declined");
    EXPECT_EQ(scalar("text[1]"), "declined");
}

TEST_F(ScalarTiers, ScalarUnaries) {
    EXPECT_EQ(scalar("-five"), "int -5");
    EXPECT_EQ(scalar("-half"), "float -0.500000");
    EXPECT_EQ(scalar("-yes"), "int -1");
    EXPECT_EQ(scalar("-unknown"), "declined");
    EXPECT_EQ(scalar("-text"), "declined");
    EXPECT_EQ(scalar("not zero"), "bool true");
    EXPECT_EQ(scalar("not unknown"), "bool true");
    EXPECT_EQ(scalar("not half"), "bool false");
    EXPECT_EQ(scalar("not text"), "declined");
    EXPECT_EQ(scalar("#numbers"), "int 5");
    EXPECT_EQ(scalar("#text"), "int 4");
}

TEST_F(ScalarTiers, LengthDeclinesOnNoKind) {
    // It raises for what has no length, where every other node would decline.
    const std::string refusal = "len(x) expects an array, table, or string";
    for (const char* source : {"#five", "#unknown", "#same", "#(five + 1)"}) {
        EXPECT_EQ(messageOf([&] { static_cast<void>(scalar(source)); }), refusal) << source;
        EXPECT_EQ(messageOf([&] { static_cast<void>(integer(source)); }), refusal) << source;
    }
}

TEST_F(ScalarTiers, NumericForm) {
    EXPECT_EQ(scalar("five + one"), "int 6");
    EXPECT_EQ(scalar("yes + yes"), "int 2");
    EXPECT_EQ(scalar("five - half"), "float 4.500000");
    EXPECT_EQ(scalar("five / 2"), "float 2.500000");
    EXPECT_EQ(scalar("five / five"), "float 1.000000");
    EXPECT_EQ(scalar("7.9 \\ 2.9"), "int 3");
    EXPECT_EQ(scalar("five % 3"), "int 2");
    EXPECT_EQ(scalar("five % yes"), "int 0");
    EXPECT_EQ(scalar("five % 1.5"), "float 0.500000");
    EXPECT_EQ(scalar("2 ^ 3"), "float 8.000000");
    for (const char* op : {"+", "-", "*", "/", "\\", "%", "^"}) {
        EXPECT_EQ(scalar(std::string("unknown ") + op + " 1"), "declined") << op;
        EXPECT_EQ(scalar(std::string("1 ") + op + " unknown"), "declined") << op;
        EXPECT_EQ(scalar(std::string("text ") + op + " 1"), "declined") << op;
        EXPECT_EQ(scalar(std::string("1 ") + op + " numbers"), "declined") << op;
    }
}

TEST_F(ScalarTiers, FloatResultOnlySavesTime) {
    // The mark is clear on variables, elements and calls, whatever they hold at run time.
    EXPECT_EQ(scalar("half + half"), "float 1.000000");
    EXPECT_EQ(scalar("numbers[2] + 1"), "float 1.500000");
    EXPECT_EQ(scalar("half < one"), "bool true");
    EXPECT_EQ(scalar("same(0.5) + one"), "float 1.500000");
}

TEST_F(ScalarTiers, ComparisonForm) {
    EXPECT_EQ(scalar("one == 1.0"), "bool true");
    EXPECT_EQ(scalar("yes == one"), "bool true");
    EXPECT_EQ(scalar("unknown == not"), "bool true");
    EXPECT_EQ(scalar("unknown == zero"), "bool false");
    EXPECT_EQ(scalar("no != unknown"), "bool true");
    EXPECT_EQ(scalar("unknown != nothing"), "bool false");
    EXPECT_EQ(scalar("text == text"), "declined");
    EXPECT_EQ(scalar("text == unknown"), "declined");
    EXPECT_EQ(scalar("unknown != text"), "declined");
    for (const char* op : {"<", ">", "<=", ">="}) {
        EXPECT_EQ(scalar(std::string("unknown ") + op + " 1"), "declined") << op;
        EXPECT_EQ(scalar(std::string("1 ") + op + " unknown"), "declined") << op;
        EXPECT_EQ(scalar(std::string("unknown ") + op + " unknown"), "declined") << op;
        EXPECT_EQ(scalar(std::string("text ") + op + " 1"), "declined") << op;
    }
    EXPECT_EQ(scalar("half < yes"), "bool true");
    EXPECT_EQ(scalar("five >= 5.0"), "bool true");
}

TEST_F(ScalarTiers, NotANumberIsLess) {
    interpreter.pushVariable("nan", Variable::makeFloat(std::numeric_limits<float>::quiet_NaN()));
    for (const char* source : {"nan < 1", "nan <= 1", "1 < nan", "1.5 <= nan", "nan != nan"}) {
        EXPECT_EQ(scalar(source), "bool true") << source;
        EXPECT_EQ(truth(source), "true") << source;
    }
    for (const char* source : {"nan > 1", "nan >= 1", "1 > nan", "1.5 >= nan", "nan == nan"}) {
        EXPECT_EQ(scalar(source), "bool false") << source;
        EXPECT_EQ(truth(source), "false") << source;
    }
}

TEST_F(ScalarTiers, LogicGivesOneOfItsOperands) {
    EXPECT_EQ(scalar("five and half"), "float 0.500000");
    EXPECT_EQ(scalar("zero and half"), "int 0");
    EXPECT_EQ(scalar("unknown and half"), "not not");
    EXPECT_EQ(scalar("five or half"), "int 5");
    EXPECT_EQ(scalar("zero or half"), "float 0.500000");
    EXPECT_EQ(scalar("no or unknown"), "not not");
    // Only a side that is needed can decline.
    EXPECT_EQ(scalar("zero and text"), "int 0");
    EXPECT_EQ(scalar("five or text"), "int 5");
    EXPECT_EQ(scalar("five and text"), "declined");
    EXPECT_EQ(scalar("zero or text"), "declined");
    EXPECT_EQ(scalar("text or five"), "declined");
}

TEST_F(ScalarTiers, CallsWithAScalarResult) {
    EXPECT_EQ(scalar("len(numbers)"), "int 5");
    EXPECT_EQ(scalar("string[\"len\"](text)"), "int 4");
    EXPECT_EQ(scalar("string[\"byte\"](text)"), "int 116");
    EXPECT_EQ(scalar("string[\"byte\"](text, 99)"), "not not");
    EXPECT_EQ(scalar("string[\"byte\"](text, 1, 2)"), "declined");
    EXPECT_EQ(scalar("utf8[\"len\"](text)"), "int 4");
    EXPECT_EQ(scalar("toNumber(\"12\")"), "int 12");
    EXPECT_EQ(scalar("toNumber(text)"), "not not");
    EXPECT_EQ(scalar("toNumber()"), "declined");
    EXPECT_EQ(scalar("toNumber(1, 2, 3)"), "declined");
    EXPECT_EQ(scalar("math[\"floor\"](half)"), "int 0");
    EXPECT_EQ(scalar("math[\"max\"](one, 1.0, half)"), "int 1");
    EXPECT_EQ(scalar("math[\"min\"](yes, 1)"), "bool true");
    EXPECT_EQ(scalar("math[\"abs\"](-half)"), "float 0.500000");
    EXPECT_EQ(scalar("math[\"floor\"]()"), "declined");
    EXPECT_EQ(scalar("math[\"floor\"](1, 2)"), "declined");
    EXPECT_EQ(scalar("math[\"floor\"](text)"), "declined");
    EXPECT_EQ(scalar("math[\"floor\"](unknown)"), "declined");
    EXPECT_EQ(scalar("math[\"log\"](1, 2, 3)"), "declined");
    EXPECT_EQ(scalar("toString(five)"), "declined");
    EXPECT_EQ(scalar("same(five)"), "int 5");
    EXPECT_EQ(scalar("same()"), "not not");
    EXPECT_EQ(scalar("same(text)"), "declined");
    EXPECT_EQ(scalar("long(five)"), "declined");
    EXPECT_EQ(scalar("unknown(five)"), "declined");
    EXPECT_EQ(scalar("five(1)"), "declined");
}

TEST_F(ScalarTiers, ANativeIsIdentifiedOnlyByNameOrMember) {
    // Reached in any other way it has no id here, and declines behind its arguments.
    EXPECT_EQ(scalar("fields[\"n\"](count(1))"), "declined");
    interpreter.runScript(
        "fields[\"length\"] = len; key = \"length\"; function give(); return len; end");
    EXPECT_EQ(scalar("fields[\"length\"](text)"), "int 4");
    EXPECT_EQ(scalar("fields[key](text)"), "declined");
    EXPECT_EQ(scalar("give()(text)"), "declined");
    EXPECT_EQ(callsOf([&] { return scalar("fields[key](count(text))"); }), 1);
}

TEST_F(ScalarTiers, ADeclinedCallHasRunItsArguments) {
    EXPECT_EQ(callsOf([&] { return scalar("toString(count(1))"); }), 0);
    EXPECT_EQ(callsOf([&] { return scalar("long(count(1))"); }), 1);
    EXPECT_EQ(callsOf([&] { return scalar("unknown(count(1), count(2))"); }), 2);
    EXPECT_EQ(callsOf([&] { return scalar("toNumber(count(1), 2, 3)"); }), 1);
    EXPECT_EQ(callsOf([&] { return scalar("string[\"byte\"](count(text), 1, 2)"); }), 1);
    // The left side has declined before the right one is looked at.
    EXPECT_EQ(callsOf([&] { return scalar("text + long(count(1))"); }), 0);
    EXPECT_EQ(callsOf([&] { return scalar("long(1) + long(count(1))"); }), 0);
    EXPECT_EQ(callsOf([&] { return scalar("five + long(count(1))"); }), 1);
    // A native without an id is no scalar call, and is left to the general tier.
    EXPECT_EQ(callsOf([&] { return scalar("count(5)"); }), 0);
    EXPECT_EQ(callsOf([&] { return scalar("count(count(5))"); }), 1);
}

TEST_F(ScalarTiers, NineArgumentsGoTheSameWay) {
    EXPECT_EQ(scalar("math[\"max\"](1, 2, 3, 4, 5, 6, 7, 8, 9)"), "int 9");
    EXPECT_EQ(scalar("math[\"max\"](1, 2, 3, 4, 5, 6, 7, 8, text)"), "declined");
    EXPECT_EQ(scalar("same(1, 2, 3, 4, 5, 6, 7, 8, 9)"), "int 1");
    EXPECT_EQ(messageOf([&] { static_cast<void>(scalar("len(1, 2, 3, 4, 5, 6, 7, 8, 9)")); }),
              messageOf([&] { static_cast<void>(scalar("len(1, 2)")); }));
}

TEST_F(ScalarTiers, NativesRaiseInTheScalarTier) {
    const auto raised = [&](const std::string& source) {
        return messageOf([&] { static_cast<void>(scalar(source)); });
    };
    EXPECT_EQ(raised("1 / 0"), "Division by zero");
    EXPECT_EQ(raised("1 \\ half"), "Division by zero");
    EXPECT_EQ(raised("1.5 % no"), "Division by zero");
    EXPECT_EQ(raised("getTimeMs(1)"), "getTimeMs function takes no arguments");
    EXPECT_EQ(raised("math[\"min\"]()"), "math['min'](...) requires at least 1 argument");
    EXPECT_EQ(raised("math[\"max\"]()"), "math['max'](...) requires at least 1 argument");
    EXPECT_EQ(raised("math[\"sqrt\"](-1)"), "math['sqrt'] requires a non-negative value");
    EXPECT_EQ(raised("math[\"log\"](0)"), "math['log'] requires a positive value");
    EXPECT_EQ(raised("math[\"log\"](8, 1)"),
              "math['log'] base must be positive and not equal to 1");
}

TEST_F(ScalarTiers, StraightLineCodeKeepsTheOrderOfFailures) {
    EXPECT_EQ(messageOf([&] { static_cast<void>(scalar("numbers[unknown[1]][1 \\ 0]")); }),
              "Indexing requires an array, table, or string");
    EXPECT_EQ(messageOf([&] { static_cast<void>(scalar("unknown[\"k\"][1 \\ 0]")); }),
              "Indexing requires an array, table, or string");
    EXPECT_EQ(messageOf([&] { static_cast<void>(scalar("unknown[1 \\ 0]")); }), "Division by zero");
    EXPECT_EQ(messageOf([&] { static_cast<void>(scalar("(five \\ 0) + (text % 0)")); }),
              "Division by zero");
}

TEST_F(ScalarTiers, StraightLineCodeIsGivenUpWhereItIsDeep) {
    std::string source = "five";
    for (int i = 0; i < 300; ++i) source = "1 + (" + source + ")";
    EXPECT_EQ(scalar(source), "int 305");
    source = "five";
    for (int i = 0; i < 300; ++i) source = "1 - (0 - (" + source + "))";
    EXPECT_EQ(scalar(source), "int 305");
}

// ---------------------------------------------------------------------------- int tier

TEST_F(ScalarTiers, IntTakesIntsAndBools) {
    EXPECT_EQ(integer("5"), "5");
    EXPECT_EQ(integer("true"), "1");
    EXPECT_EQ(integer("five"), "5");
    EXPECT_EQ(integer("yes"), "1");
    EXPECT_EQ(integer("no"), "0");
    EXPECT_EQ(integer("numbers[1]"), "10");
    EXPECT_EQ(integer("numbers[3]"), "1");
    EXPECT_EQ(integer("fields[\"n\"]"), "7");
    EXPECT_EQ(integer("-five"), "-5");
    EXPECT_EQ(integer("-yes"), "-1");
    EXPECT_EQ(integer("#text"), "4");
    EXPECT_EQ(integer("five + yes * 2 - 1"), "6");
    EXPECT_EQ(integer("-7 \\ 2"), "-3");
    EXPECT_EQ(integer("-7 % 2"), "-1");
    EXPECT_EQ(integer("2147483647 + 1"), "-2147483648");
}

TEST_F(ScalarTiers, IntDeclinesTheRest) {
    for (const char* source :
         {"1.5",        "\"5\"",      "not",        "unknown",      "half",     "text",
          "numbers[2]", "numbers[4]", "numbers[5]", "numbers[yes]", "-half",    "five + half",
          "five / 5",   "2 ^ 3",      "1 == 1",     "1 < 2",        "not zero", "yes and one",
          "yes or one", "len(text)",  "same(5)"}) {
        EXPECT_EQ(integer(source), "declined") << source;
    }
    const CompiledText compiled(interpreter, "five");
    int out = 0;
    EXPECT_FALSE(interpreter.tryEvaluateFastExpressionIntNode(compiled.expression, -1,
                                                              compiled.analysis, out));
}

TEST_F(ScalarTiers, IntRunsNoCallButAnIndex) {
    EXPECT_EQ(callsOf([&] { return integer("same(count(1))"); }), 0);
    EXPECT_EQ(callsOf([&] { return integer("1 + len(count(text))"); }), 0);
    EXPECT_EQ(callsOf([&] { return integer("numbers[len(count(text)) - 3]"); }), 1);
    EXPECT_EQ(callsOf([&] { return integer("#count(text)"); }), 1);
}

TEST_F(ScalarTiers, IntRaisesForAZeroDivisor) {
    for (const char* source : {"five \\ zero", "five % zero", "five \\ no", "1 + 1 % no"}) {
        EXPECT_EQ(messageOf([&] { static_cast<void>(integer(source)); }), "Division by zero")
            << source;
    }
}

// ---------------------------------------------------------------------------- bool tier

TEST_F(ScalarTiers, BoolTakesTheFormsOfConditions) {
    EXPECT_EQ(truth("0"), "false");
    EXPECT_EQ(truth("3"), "true");
    EXPECT_EQ(truth("true"), "true");
    EXPECT_EQ(truth("zero"), "false");
    EXPECT_EQ(truth("half"), "true");
    EXPECT_EQ(truth("no"), "false");
    EXPECT_EQ(truth("unknown"), "false");
    EXPECT_EQ(truth("not zero"), "true");
    EXPECT_EQ(truth("five == 5.0"), "true");
    EXPECT_EQ(truth("unknown != zero"), "true");
    EXPECT_EQ(truth("five < half"), "false");
    EXPECT_EQ(truth("five and half"), "true");
    EXPECT_EQ(truth("zero or no"), "false");
}

TEST_F(ScalarTiers, BoolDeclinesTheRest) {
    for (const char* source :
         {"0.5", "\"text\"", "not", "text", "numbers", "numbers[1]", "-five", "#text", "five + 1",
          "same(1)", "len(text)", "not text", "text == text", "unknown < 1"}) {
        EXPECT_EQ(truth(source), "declined") << source;
    }
    const CompiledText compiled(interpreter, "five");
    bool out = false;
    EXPECT_FALSE(interpreter.tryEvaluateFastExpressionBoolNode(compiled.expression, -1,
                                                               compiled.analysis, out));
}

TEST_F(ScalarTiers, BoolAsksTheScalarTierBehindNot) {
    EXPECT_EQ(truth("not numbers[1]"), "false");
    EXPECT_EQ(truth("not 0.0"), "true");
    EXPECT_EQ(truth("not (five - 5)"), "true");
    EXPECT_EQ(truth("not same(0)"), "true");
    EXPECT_EQ(truth("not not numbers[4]"), "false");
}

TEST_F(ScalarTiers, BoolAsksTheScalarTierOnTheLeft) {
    EXPECT_EQ(truth("numbers[1] and yes"), "true");
    EXPECT_EQ(truth("(five - 5) and text"), "false");
    EXPECT_EQ(truth("same(0) or yes"), "true");
    EXPECT_EQ(truth("numbers[1] or text"), "true");
    EXPECT_EQ(truth("text and yes"), "declined");
    EXPECT_EQ(truth("numbers and yes"), "declined");
}

TEST_F(ScalarTiers, OnlyALeftSideOfTheScalarTierGivesTheRightSideASecondChance) {
    EXPECT_EQ(truth("numbers[1] and numbers[2]"), "true");
    EXPECT_EQ(truth("yes and numbers[2]"), "declined");
    EXPECT_EQ(truth("five == 5 and same(1)"), "declined");
    EXPECT_EQ(truth("same(1) and same(1)"), "true");
    EXPECT_EQ(truth("numbers[4] or numbers[2]"), "true");
    EXPECT_EQ(truth("no or numbers[2]"), "declined");
    EXPECT_EQ(truth("zero or same(1)"), "declined");
    // What settles the matter on the left needs no right side.
    EXPECT_EQ(truth("no and numbers[2]"), "false");
    EXPECT_EQ(truth("yes or text"), "true");
}

TEST_F(ScalarTiers, BoolLeavesWhatItDoesNotNeed) {
    EXPECT_EQ(callsOf([&] { return truth("no and len(count(text)) == 4"); }), 0);
    EXPECT_EQ(callsOf([&] { return truth("yes or len(count(text)) == 4"); }), 0);
    EXPECT_EQ(callsOf([&] { return truth("yes and len(count(text)) == 4"); }), 1);
}

// ---------------------------------------------------------------------------- soft errors

TEST_F(ScalarTiers, ASoftErrorDeclines) {
    interpreter.runScript("function risky(); error(\"boom\"); return 1; end");
    for (const char* source : {"len(risky())", "same(risky())", "numbers[risky()]", "risky()[1]",
                               "#risky()", "not #risky()", "-#risky()", "#risky() + 1",
                               "#risky() == 1", "#risky() and 1", "math[\"floor\"](#risky())"}) {
        // As within a protected call, one level down.
        interpreter.protectedCallDepths.push_back(0);
        interpreter.callDepth = 1;
        EXPECT_EQ(scalar(source), "declined") << source;
        EXPECT_TRUE(interpreter.softErrorUnwinding()) << source;
        EXPECT_EQ(interpreter.softErrorMessage, "boom");
        interpreter.softErrorPending = false;
        interpreter.noteAttention();
        EXPECT_EQ(truth(source), "declined") << source;
        interpreter.softErrorPending = false;
        interpreter.noteAttention();
        EXPECT_EQ(integer(source), "declined") << source;
        interpreter.softErrorPending = false;
        interpreter.noteAttention();
        interpreter.callDepth = 0;
        interpreter.protectedCallDepths.clear();
    }
}

}  // namespace
