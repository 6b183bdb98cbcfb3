#include <gtest/gtest.h>

#include <string>

#include "compiled_text.h"

namespace {

class GeneralTier : public testing::Test {
protected:
    GeneralTier() {
        calls = 0;
        interpreter.pushFunction("count", [](DovrelScript&, Arguments args) {
            ++calls;
            return args.empty() ? Variable() : args[0];
        });
        interpreter.runScript(
            "zero = 0; five = 5; half = 0.5; yes = true; text = \"text\"\n"
            "numbers = [10, 0.5, \"s\"]; fields = {n: 7, s: \"s\"}\n"
            "function same(v); return v; end\n"
            "function risky(); error(\"boom\"); return 1; end\n");
    }

    /// The general tier on the root.
    std::string general(const std::string& source) {
        const CompiledText compiled(interpreter, source);
        EXPECT_TRUE(compiled.expression.valid) << source;
        return shown(interpreter.evaluateFastExpressionNode(
            compiled.expression, compiled.expression.root, compiled.analysis));
    }
    /// A whole expression, as statements evaluate it.
    std::string whole(const std::string& source) {
        const CompiledText compiled(interpreter, source);
        EXPECT_TRUE(compiled.expression.valid) << source;
        return shown(interpreter.evaluateFastExpression(compiled.expression, compiled.analysis));
    }
    /// The concat form; "declined" if it is none.
    std::string concat(const std::string& source) {
        const CompiledText compiled(interpreter, source);
        EXPECT_TRUE(compiled.expression.valid) << source;
        std::string out = "<";
        const bool answered = interpreter.appendFastStringConcatNode(
            compiled.expression, compiled.expression.root, compiled.analysis, out);
        return answered ? out : "declined";
    }
    std::string raised(const std::string& source) {
        return messageOf([&] { static_cast<void>(general(source)); });
    }
    template <typename Action>
    int callsOf(Action&& action) {
        calls = 0;
        static_cast<void>(action());
        return calls;
    }

    DovrelScript interpreter;
    static inline int calls = 0;
};

TEST_F(GeneralTier, TakesNoNodeForNil) {
    const CompiledText compiled(interpreter, "five + 1");
    for (const int outside : {-1, -2147483647, 3, 1000}) {
        EXPECT_TRUE(
            interpreter.evaluateFastExpressionNode(compiled.expression, outside, compiled.analysis)
                .isNil())
            << outside;
    }
    EXPECT_TRUE(interpreter.evaluateFastExpression(FastExpression(), {}).isNil());
}

TEST_F(GeneralTier, RefusesUnknownKinds) {
    for (const std::uint32_t kind : {0U, 27U, 4294967295U}) {
        FastExpression expression;
        expression.valid = true;
        expression.root = 0;
        FastExprNode node;
        node.kind = static_cast<NodeKind>(kind);
        expression.nodes = {node};
        EXPECT_EQ(messageOf([&] {
                      static_cast<void>(interpreter.evaluateFastExpressionNode(expression, 0, {}));
                  }),
                  "Invalid fast expression node")
            << kind;
    }
}

TEST_F(GeneralTier, TakesEveryLiteralAndVariable) {
    EXPECT_EQ(general("5"), "int 5");
    EXPECT_EQ(general("1.5"), "float 1.500000");
    EXPECT_EQ(general("\"5\""), "string 5");
    EXPECT_EQ(general("false"), "bool false");
    EXPECT_EQ(general("not"), "not not");
    EXPECT_EQ(general("text"), "string text");
    EXPECT_EQ(general("unknown"), "not not");
}

TEST_F(GeneralTier, DiffersFromTheScalarTierInThreeOperators) {
    EXPECT_EQ(general("2 ^ 3"), "int 8");
    EXPECT_EQ(whole("2 ^ 3"), "float 8.000000");
    EXPECT_EQ(general("16777217 + half"), "float 16777216.000000");
    EXPECT_EQ(whole("16777217 + half"), "float 16777218.000000");
    EXPECT_EQ(general("16777217 % 1.5"), "float 1.000000");
    EXPECT_EQ(whole("16777217 % 1.5"), "float 0.500000");
}

TEST_F(GeneralTier, RemainderIsAnIntForTwoIntsOnly) {
    EXPECT_EQ(general("five % 3"), "int 2");
    EXPECT_EQ(general("yes % 2"), "float 1.000000");
    EXPECT_EQ(general("five % yes"), "float 0.000000");
    EXPECT_EQ(general("yes % yes"), "float 0.000000");
    EXPECT_EQ(whole("yes % 2"), "int 1");
}

TEST_F(GeneralTier, TruthOfNumbers) {
    EXPECT_EQ(general("not zero"), "bool false");
    EXPECT_EQ(whole("not zero"), "bool true");
    EXPECT_EQ(general("zero and text"), "string text");
    EXPECT_EQ(whole("zero and text"), "int 0");
    EXPECT_EQ(general("zero or text"), "int 0");
    EXPECT_EQ(general("zero or five"), "int 0");
    EXPECT_EQ(whole("zero or five"), "int 5");
}

TEST_F(GeneralTier, ABoolIsAPositionOfAnArrayWhereTheIntTierTakesIt) {
    EXPECT_EQ(general("numbers[true]"), "int 10");
    EXPECT_EQ(general("numbers[yes]"), "int 10");
    EXPECT_EQ(general("numbers[yes + yes]"), "float 0.500000");
    EXPECT_EQ(general("numbers[1 == 1]"), "not not");
    EXPECT_EQ(general("numbers[not zero]"), "not not");
    // A table has keys for bools.
    EXPECT_EQ(general("fields[yes]"), "not not");
}

TEST_F(GeneralTier, EvaluatesAKeyByItsOwnRulesWhereTheIntTierDeclines) {
    EXPECT_EQ(general("numbers[zero or 2]"), "not not");
    EXPECT_EQ(whole("numbers[zero or 2]"), "float 0.500000");
    EXPECT_EQ(general("numbers[zero and 2]"), "float 0.500000");
    EXPECT_EQ(whole("numbers[zero and 2]"), "not not");
    EXPECT_EQ(general("numbers[4294967296.0 \\ 4294967296.0 * 2]"), "float 0.500000");
    // The base of an element of an element is left to the general tier by every tier.
    interpreter.runScript("rows = [[1], [2]]");
    EXPECT_EQ(whole("rows[zero and 2][1]"), "int 2");
    EXPECT_EQ(messageOf([&] { static_cast<void>(whole("rows[zero or 2][1]")); }),
              "Indexing requires an array, table, or string");
}

TEST_F(GeneralTier, ReadsElements) {
    EXPECT_EQ(general("numbers[3]"), "string s");
    EXPECT_EQ(general("numbers[2.0]"), "float 0.500000");
    EXPECT_EQ(general("numbers[1.5]"), "not not");
    EXPECT_EQ(general("numbers[0]"), "not not");
    EXPECT_EQ(general("numbers[4]"), "not not");
    EXPECT_EQ(general("numbers[\"1\"]"), "not not");
    EXPECT_EQ(general("fields[\"s\"]"), "string s");
    EXPECT_EQ(general("fields[\"none\"]"), "not not");
    EXPECT_EQ(general("text[2]"), "string e");
    EXPECT_EQ(general("\"text\"[1]"), "string t");
    EXPECT_EQ(general("text[\"len\"]()"), "int 4");
    EXPECT_EQ(raised("five[1]"), "Indexing requires an array, table, or string");
    EXPECT_EQ(raised("five[\"name\"]"), "Indexing requires an array, table, or string");
    EXPECT_EQ(raised("fields[not]"), "Table key must be string, number, or bool");
    EXPECT_EQ(raised("text[1.0]"), "String index must be an int or string method name");
}

TEST_F(GeneralTier, AKeyThatReplacesTheBaseIsAppliedToTheNewOne) {
    interpreter.runScript("function swap(); numbers = [\"new\"]; return 1; end");
    EXPECT_EQ(general("numbers[swap()]"), "string new");
    interpreter.runScript("function drop(); numbers = 5; return 1; end");
    EXPECT_EQ(raised("numbers[drop()]"), "Indexing requires an array, table, or string");
}

TEST_F(GeneralTier, Unaries) {
    EXPECT_EQ(general("-five"), "int -5");
    EXPECT_EQ(general("-half"), "float -0.500000");
    EXPECT_EQ(general("-yes"), "int -1");
    for (const char* source : {"-text", "-unknown", "-numbers", "-same"}) {
        EXPECT_EQ(raised(source), "Unary '-' requires a numeric value") << source;
    }
    EXPECT_EQ(general("#numbers"), "int 3");
    EXPECT_EQ(raised("#five"), "len(x) expects an array, table, or string");
}

TEST_F(GeneralTier, ArithmeticOfOtherKindsIsRefused) {
    for (const char* op : {"+", "-", "*", "/", "\\", "%", "^"}) {
        const std::string refusal = std::string("Unsupported operation '") + op + "' between types";
        EXPECT_EQ(raised(std::string("unknown ") + op + " 1"), refusal);
        EXPECT_EQ(raised(std::string("1 ") + op + " numbers"), refusal);
    }
    for (const char* op : {"/", "\\", "%"}) {
        EXPECT_EQ(raised(std::string("five ") + op + " zero"), "Division by zero") << op;
        EXPECT_EQ(raised(std::string("half ") + op + " false"), "Division by zero") << op;
    }
    EXPECT_EQ(general("five \\ 4294967296.0"), "int 0");
    EXPECT_EQ(general("5000000000.0 \\ 1"), "int 2147483647");
}

TEST_F(GeneralTier, ArgumentsComeBeforeTheCallee) {
    interpreter.runScript(
        "order = \"\"\n"
        "function mark(m); order = order + m; return same; end\n");
    EXPECT_EQ(general("mark(\"c\")(mark(\"a\"), mark(\"b\"))"), "function [function]");
    EXPECT_EQ(general("order"), "string abc");
}

TEST_F(GeneralTier, CallsWhateverIsCallable) {
    EXPECT_EQ(general("same(text)"), "string text");
    EXPECT_EQ(general("string[\"upper\"](text)"), "string TEXT");
    EXPECT_EQ(general("string[\"lower\"](text)"), "string text");
    EXPECT_EQ(general("count(1, 2, 3, 4, 5, 6, 7, 8, 9)"), "int 1");
    EXPECT_EQ(raised("five(1)"), "Attempted to call a non-function value of type int");
    EXPECT_EQ(raised("unknown()"), "Attempted to call a non-function value of type not");
    EXPECT_EQ(callsOf([&] { return raised("unknown(count(1))"); }), 1);
}

TEST_F(GeneralTier, AWholeCallIsEvaluatedOnce) {
    EXPECT_EQ(callsOf([&] { return whole("same(count(text))"); }), 1);
    EXPECT_EQ(callsOf([&] { return whole("toString(count(1))"); }), 1);
    // Below an operator the scalar tier has its attempt.
    interpreter.runScript("function long(v); zero = 0; return v; end");
    EXPECT_EQ(callsOf([&] { return whole("long(count(1))"); }), 1);
    EXPECT_EQ(callsOf([&] { return whole("1 + long(count(1))"); }), 2);
    EXPECT_EQ(callsOf([&] { return general("1 + long(count(1))"); }), 1);
}

TEST_F(GeneralTier, ConcatTakesLiteralsAndToStringCalls) {
    EXPECT_EQ(concat("\"a\" + \"b\""), "<ab");
    EXPECT_EQ(concat("\"a\" + toString(five) + \"b\""), "<a5b");
    EXPECT_EQ(concat("toString(half) + toString(unknown) + toString(numbers)"),
              "<0.500000not[10, 0.500000, s]");
    EXPECT_EQ(concat("\"a\" + (\"b\" + (toString(yes) + \"c\"))"), "<abtruec");
    // Single leaves are chains of one.
    EXPECT_EQ(concat("\"a\""), "<a");
    EXPECT_EQ(concat("toString(five)"), "<5");
}

TEST_F(GeneralTier, ConcatDeclinesEveryOtherLeaf) {
    for (const char* source :
         {"\"a\" + five", "text + \"a\"", "\"a\" + 5", "\"a\" + tostring(five)",
          "\"a\" + toString(five, 1)", "\"a\" + toString()", "\"a\" + same(five)",
          "\"a\" + unknown(five)", "\"a\" + fields[\"s\"]", "\"a\" * 2", "-five"}) {
        EXPECT_EQ(concat(source), "declined") << source;
    }
    interpreter.runScript("other = toString; function toString(v); return \"mine\"; end");
    EXPECT_EQ(concat("\"a\" + toString(five)"), "declined");
    EXPECT_EQ(concat("\"a\" + other(five)"), "<a5");
}

TEST_F(GeneralTier, ABrokenChainIsEvaluatedAgain) {
    EXPECT_EQ(callsOf([&] { return concat("toString(count(1)) + \"a\""); }), 1);
    EXPECT_EQ(callsOf([&] { return concat("toString(count(1)) + five"); }), 1);
    EXPECT_EQ(callsOf([&] { return concat("five + toString(count(1))"); }), 0);
    EXPECT_EQ(callsOf([&] { return general("toString(count(1)) + five"); }), 2);
    EXPECT_EQ(callsOf([&] { return whole("toString(count(1)) + five"); }), 3);
    EXPECT_EQ(callsOf([&] { return whole("\"a\" + toString(count(1)) + five"); }), 3);
    EXPECT_EQ(whole("\"a\" + toString(count(1)) + five"), "string a15");
}

TEST_F(GeneralTier, AddJoinsTexts) {
    EXPECT_EQ(general("text + 1"), "string text1");
    EXPECT_EQ(general("1 + text"), "string 1text");
    EXPECT_EQ(general("unknown + text + yes + half"), "string nottexttrue0.500000");
    EXPECT_EQ(general("numbers + text"), "string [10, 0.500000, s]text");
    EXPECT_EQ(general("five + 1 + text"), "string 6text");
}

TEST_F(GeneralTier, ASoftErrorGivesNilBeforeAnythingIsApplied) {
    for (const char* source :
         {"risky() + 1", "1 + risky()", "risky() - text", "risky() < text", "risky() == 1",
          "-risky()", "not risky()", "#risky()", "risky() or text", "text and risky()",
          "risky()[1]", "numbers[risky()]", "fields[risky()]", "risky()()", "count(risky())",
          "risky()(count(1))", "string[\"upper\"](risky())", "\"a\" + toString(risky())",
          "toString(risky()) + five"}) {
        interpreter.protectedCallDepths.push_back(0);
        interpreter.callDepth = 1;
        for (const bool asWhole : {false, true}) {
            EXPECT_EQ(asWhole ? whole(source) : general(source), "not not") << source;
            EXPECT_TRUE(interpreter.softErrorUnwinding()) << source;
            EXPECT_EQ(interpreter.softErrorMessage, "boom") << source;
            interpreter.softErrorPending = false;
            interpreter.noteAttention();
        }
        interpreter.callDepth = 0;
        interpreter.protectedCallDepths.clear();
    }
    // What stands in front of the failing call has run, what stands behind it has not.
    interpreter.protectedCallDepths.push_back(0);
    interpreter.callDepth = 1;
    EXPECT_EQ(callsOf([&] { return general("count(1) + risky() + count(2)"); }), 1);
    interpreter.softErrorPending = false;
    interpreter.noteAttention();
    EXPECT_EQ(callsOf([&] { return general("same(count(1), risky(), count(2))"); }), 1);
}

}  // namespace
