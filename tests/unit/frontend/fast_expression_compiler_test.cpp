#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "frontend/fast_expression.h"
#include "frontend/token_analysis.h"
#include "interpreter/dovrel_script.h"

namespace {

using Nodes = std::vector<std::string>;

const std::map<NodeKind, std::string>& kindNames() {
    static const std::map<NodeKind, std::string> kNames = {
        {NodeKind::IntLiteral, "int"},
        {NodeKind::FloatLiteral, "float"},
        {NodeKind::StringLiteral, "text"},
        {NodeKind::BoolLiteral, "bool"},
        {NodeKind::NilLiteral, "nil"},
        {NodeKind::Variable, "name"},
        {NodeKind::Index, "index"},
        {NodeKind::Call, "call"},
        {NodeKind::Negate, "negate"},
        {NodeKind::Not, "not"},
        {NodeKind::Length, "length"},
        {NodeKind::Add, "+"},
        {NodeKind::Subtract, "-"},
        {NodeKind::Multiply, "*"},
        {NodeKind::Divide, "/"},
        {NodeKind::IntDivide, "\\"},
        {NodeKind::Modulo, "%"},
        {NodeKind::Power, "^"},
        {NodeKind::Equal, "=="},
        {NodeKind::NotEqual, "!="},
        {NodeKind::Less, "<"},
        {NodeKind::Greater, ">"},
        {NodeKind::LessEqual, "<="},
        {NodeKind::GreaterEqual, ">="},
        {NodeKind::And, "and"},
        {NodeKind::Or, "or"},
    };
    return kNames;
}

class FastExpressionCompiler : public testing::Test {
protected:
    FastExpression compileRange(const std::string& line, std::size_t first, std::size_t last) {
        tokens = interpreter.tokenise(line);
        analysis.clear();
        for (const std::string& token : tokens) analysis.push_back(interpreter.analyseToken(token));
        return compileFastExpressionRange(tokens, analysis, first, last);
    }
    FastExpression compile(const std::string& line) {
        const std::size_t count = interpreter.tokenise(line).size();
        return compileRange(line, 0, count);
    }

    template <typename T>
    static std::vector<T> elements(const SharedArray<T>& array) {
        return {array.begin(), array.end()};
    }
    /// One text for each node, in order: what it is, its children, "@" and its token, and "f" for
    /// a float result. A call names its callee and its arguments.
    static Nodes describe(const FastExpression& expression) {
        Nodes result;
        for (const FastExprNode& node : expression.nodes) {
            std::string text = kindNames().at(node.kind);
            switch (node.kind) {
                case NodeKind::IntLiteral: text += " " + std::to_string(node.intValue); break;
                case NodeKind::FloatLiteral: text += " " + std::to_string(node.floatValue); break;
                case NodeKind::StringLiteral:
                    text += " " + expression.strings[node.stringIndex];
                    break;
                case NodeKind::BoolLiteral: text += node.boolValue ? " true" : " false"; break;
                case NodeKind::NilLiteral:
                case NodeKind::Variable: break;
                case NodeKind::Call:
                    text += " " + std::to_string(node.left) + "(";
                    for (std::int32_t i = 0; i < node.intValue; ++i) {
                        const auto at = static_cast<std::size_t>(node.right + i);
                        if (i > 0) text += " ";
                        text += std::to_string(expression.callArguments[at]);
                    }
                    text += ")";
                    break;
                default:
                    text += " " + std::to_string(node.left);
                    if (node.right >= 0) text += " " + std::to_string(node.right);
                    break;
            }
            text += " @" + std::to_string(node.tokenIndex);
            if (node.floatResult) text += " f";
            result.push_back(text);
        }
        return result;
    }
    /// The nodes of a whole line; the last of them must be the root.
    Nodes nodes(const std::string& line) {
        const FastExpression expression = compile(line);
        EXPECT_TRUE(expression.valid) << line;
        EXPECT_EQ(expression.root, static_cast<int>(expression.nodes.size()) - 1) << line;
        return describe(expression);
    }
    void expectInvalid(const FastExpression& expression, const std::string& line) {
        EXPECT_FALSE(expression.valid) << line;
        EXPECT_EQ(expression.root, -1) << line;
        EXPECT_TRUE(expression.nodes.empty()) << line;
        EXPECT_TRUE(expression.strings.empty()) << line;
        EXPECT_TRUE(expression.callArguments.empty()) << line;
    }
    void expectRefused(const std::string& line) { expectInvalid(compile(line), line); }
    bool floatResult(const std::string& line) {
        const FastExpression expression = compile(line);
        EXPECT_TRUE(expression.valid) << line;
        return expression.valid && expression.rootNode().floatResult;
    }

    DovrelScript interpreter;
    std::vector<std::string> tokens;
    std::vector<TokenAnalysis> analysis;
};

TEST(NodeKind, HasFixedValues) {
    EXPECT_EQ(static_cast<int>(NodeKind::IntLiteral), 1);
    EXPECT_EQ(static_cast<int>(NodeKind::FloatLiteral), 2);
    EXPECT_EQ(static_cast<int>(NodeKind::StringLiteral), 3);
    EXPECT_EQ(static_cast<int>(NodeKind::BoolLiteral), 4);
    EXPECT_EQ(static_cast<int>(NodeKind::NilLiteral), 5);
    EXPECT_EQ(static_cast<int>(NodeKind::Variable), 6);
    EXPECT_EQ(static_cast<int>(NodeKind::Index), 7);
    EXPECT_EQ(static_cast<int>(NodeKind::Call), 8);
    EXPECT_EQ(static_cast<int>(NodeKind::Negate), 9);
    EXPECT_EQ(static_cast<int>(NodeKind::Not), 10);
    EXPECT_EQ(static_cast<int>(NodeKind::Length), 11);
    EXPECT_EQ(static_cast<int>(NodeKind::Add), 12);
    EXPECT_EQ(static_cast<int>(NodeKind::Subtract), 13);
    EXPECT_EQ(static_cast<int>(NodeKind::Multiply), 14);
    EXPECT_EQ(static_cast<int>(NodeKind::Divide), 15);
    EXPECT_EQ(static_cast<int>(NodeKind::IntDivide), 16);
    EXPECT_EQ(static_cast<int>(NodeKind::Modulo), 17);
    EXPECT_EQ(static_cast<int>(NodeKind::Power), 18);
    EXPECT_EQ(static_cast<int>(NodeKind::Equal), 19);
    EXPECT_EQ(static_cast<int>(NodeKind::NotEqual), 20);
    EXPECT_EQ(static_cast<int>(NodeKind::Less), 21);
    EXPECT_EQ(static_cast<int>(NodeKind::Greater), 22);
    EXPECT_EQ(static_cast<int>(NodeKind::LessEqual), 23);
    EXPECT_EQ(static_cast<int>(NodeKind::GreaterEqual), 24);
    EXPECT_EQ(static_cast<int>(NodeKind::And), 25);
    EXPECT_EQ(static_cast<int>(NodeKind::Or), 26);
}

TEST(FastExpression, IsInvalidByDefault) {
    const FastExpression expression;
    EXPECT_FALSE(expression.valid);
    EXPECT_EQ(expression.root, -1);
    EXPECT_FALSE(expression.isCall());
    const FastExprNode node;
    EXPECT_EQ(node.left, -1);
    EXPECT_EQ(node.right, -1);
}

// ------------------------------------------------------------------------- operands

TEST_F(FastExpressionCompiler, CompilesLiterals) {
    EXPECT_EQ(nodes("12"), Nodes{"int 12 @0"});
    EXPECT_EQ(nodes("1.5"), Nodes{"float 1.500000 @0 f"});
    EXPECT_EQ(nodes(".5"), Nodes{"float 0.500000 @0 f"});
    EXPECT_EQ(nodes("\"a\\tb\""), Nodes{"text a\tb @0"});
    EXPECT_EQ(nodes("'it\\'s'"), Nodes{"text it's @0"});
    EXPECT_EQ(nodes("true"), Nodes{"bool true @0"});
    EXPECT_EQ(nodes("tre"), Nodes{"bool true @0"});
    EXPECT_EQ(nodes("flase"), Nodes{"bool false @0"});
    EXPECT_EQ(nodes("not"), Nodes{"nil @0"});
    EXPECT_EQ(nodes("speed"), Nodes{"name @0"});
    EXPECT_EQ(nodes("nil"), Nodes{"name @0"});
    EXPECT_EQ(nodes("end"), Nodes{"name @0"});
}

TEST_F(FastExpressionCompiler, CompilesALargeWholeNumberAsAFloat) {
    EXPECT_EQ(nodes("2147483647"), Nodes{"int 2147483647 @0"});
    EXPECT_EQ(nodes("2147483648"), Nodes{"float 2147483648.000000 @0 f"});
    EXPECT_EQ(nodes("99999999999"), Nodes{"float 99999997952.000000 @0 f"});
    EXPECT_EQ(nodes("-2147483648"), (Nodes{"float 2147483648.000000 @1 f", "negate 0 @0 f"}));
    expectRefused(std::string(50, '9'));
    expectRefused("1 + " + std::string(50, '9') + ".5");
}

TEST_F(FastExpressionCompiler, CompilesUnaryOperators) {
    EXPECT_EQ(nodes("-a"), (Nodes{"name @1", "negate 0 @0"}));
    EXPECT_EQ(nodes("!a"), (Nodes{"name @1", "not 0 @0"}));
    EXPECT_EQ(nodes("#a"), (Nodes{"name @1", "length 0 @0"}));
    EXPECT_EQ(nodes("not a"), (Nodes{"name @1", "not 0 @0"}));
    EXPECT_EQ(nodes("- -!#a"),
              (Nodes{"name @4", "length 0 @3", "not 1 @2", "negate 2 @1", "negate 3 @0"}));
    EXPECT_EQ(nodes("not not a"), (Nodes{"name @2", "not 0 @1", "not 1 @0"}));
}

TEST_F(FastExpressionCompiler, LeavesNoTraceOfUnaryPlus) {
    EXPECT_EQ(nodes("+a"), Nodes{"name @1"});
    EXPECT_EQ(nodes("++1"), Nodes{"int 1 @2"});
    EXPECT_EQ(nodes("1 + +2"), (Nodes{"int 1 @0", "int 2 @3", "+ 0 1 @1"}));
    EXPECT_EQ(nodes("a * +b + c"),
              (Nodes{"name @0", "name @3", "* 0 1 @1", "name @5", "+ 2 3 @4"}));
}

TEST_F(FastExpressionCompiler, TakesNotAsNilInFrontOfABoundary) {
    EXPECT_EQ(nodes("not -1"), (Nodes{"nil @0", "int 1 @2", "- 0 1 @1"}));
    EXPECT_EQ(nodes("not + 1"), (Nodes{"nil @0", "int 1 @2", "+ 0 1 @1"}));
    EXPECT_EQ(nodes("not == a"), (Nodes{"nil @0", "name @2", "== 0 1 @1"}));
    EXPECT_EQ(nodes("not or a"), (Nodes{"nil @0", "name @2", "or 0 1 @1"}));
    EXPECT_EQ(nodes("(not)"), Nodes{"nil @1"});
    EXPECT_EQ(nodes("f(not, not)"), (Nodes{"name @0", "nil @2", "nil @4", "call 0(1 2) @1"}));
    EXPECT_EQ(nodes("a[not]"), (Nodes{"name @0", "nil @2", "index 0 1 @1"}));
    EXPECT_EQ(nodes("not(a)"), (Nodes{"name @2", "not 0 @0"}));
    EXPECT_EQ(nodes("not !a"), (Nodes{"name @2", "not 0 @1", "not 1 @0"}));
    EXPECT_EQ(nodes("not 1"), (Nodes{"int 1 @1", "not 0 @0"}));
}

TEST_F(FastExpressionCompiler, SeesTheRangeOnlyBehindNot) {
    // The boundary test looks at tokens of the range: what follows it does not count.
    const FastExpression expression = compileRange("not a", 0, 1);
    ASSERT_TRUE(expression.valid);
    EXPECT_EQ(describe(expression), Nodes{"nil @0"});
}

TEST_F(FastExpressionCompiler, CompilesParentheses) {
    EXPECT_EQ(nodes("(a)"), Nodes{"name @1"});
    EXPECT_EQ(nodes("((1 + 2))"), (Nodes{"int 1 @2", "int 2 @4", "+ 0 1 @3"}));
    EXPECT_EQ(nodes("(a)(1)"), (Nodes{"name @1", "int 1 @4", "call 0(1) @3"}));
    EXPECT_EQ(nodes("(a + b)[1]"),
              (Nodes{"name @1", "name @3", "+ 0 1 @2", "int 1 @6", "index 2 3 @5"}));
}

// ------------------------------------------------------------------------- postfix parts

TEST_F(FastExpressionCompiler, CompilesIndices) {
    EXPECT_EQ(nodes("a[1]"), (Nodes{"name @0", "int 1 @2", "index 0 1 @1"}));
    EXPECT_EQ(nodes("a[b + 1][\"k\"]"), (Nodes{"name @0", "name @2", "int 1 @4", "+ 1 2 @3",
                                               "index 0 3 @1", "text k @7", "index 4 5 @6"}));
    EXPECT_EQ(nodes("a[b[1]]"),
              (Nodes{"name @0", "name @2", "int 1 @4", "index 1 2 @3", "index 0 3 @1"}));
}

TEST_F(FastExpressionCompiler, AcceptsPostfixPartsBehindAnyOperand) {
    EXPECT_EQ(nodes("true[1]"), (Nodes{"bool true @0", "int 1 @2", "index 0 1 @1"}));
    EXPECT_EQ(nodes("5[1]"), (Nodes{"int 5 @0", "int 1 @2", "index 0 1 @1"}));
    EXPECT_EQ(nodes("2.5()"), (Nodes{"float 2.500000 @0 f", "call 0() @1"}));
    EXPECT_EQ(nodes("\"abc\"[2]"), (Nodes{"text abc @0", "int 2 @2", "index 0 1 @1"}));
    // "[" and "(" are no boundaries: the bracket belongs to the operand of "not".
    EXPECT_EQ(nodes("not (1)"), (Nodes{"int 1 @2", "not 0 @0"}));
    expectRefused("not[1]");
}

TEST_F(FastExpressionCompiler, CompilesCalls) {
    EXPECT_EQ(nodes("f()"), (Nodes{"name @0", "call 0() @1"}));
    EXPECT_EQ(nodes("f(1)"), (Nodes{"name @0", "int 1 @2", "call 0(1) @1"}));
    EXPECT_EQ(nodes("f(1, a + 2)"),
              (Nodes{"name @0", "int 1 @2", "name @4", "int 2 @6", "+ 2 3 @5", "call 0(1 4) @1"}));
    EXPECT_EQ(nodes("f()()"), (Nodes{"name @0", "call 0() @1", "call 1() @3"}));
    EXPECT_EQ(nodes("t[\"m\"](1)[2]"), (Nodes{"name @0", "text m @2", "index 0 1 @1", "int 1 @5",
                                              "call 2(3) @4", "int 2 @8", "index 4 5 @7"}));
    EXPECT_EQ(nodes("-f(1)"), (Nodes{"name @1", "int 1 @3", "call 0(1) @2", "negate 2 @0"}));
}

TEST_F(FastExpressionCompiler, KeepsTheArgumentsOfEachCallTogether) {
    EXPECT_EQ(nodes("f(1, g(2))"), (Nodes{"name @0", "int 1 @2", "name @4", "int 2 @6",
                                          "call 2(3) @5", "call 0(1 4) @1"}));
    const FastExpression expression = compile("f(1, g(2, h(3)), 4)");
    ASSERT_TRUE(expression.valid);
    EXPECT_EQ(elements(expression.callArguments), (std::vector<std::uint32_t>{5, 3, 6, 1, 7, 8}));
    const FastExprNode& root = expression.rootNode();
    EXPECT_EQ(root.kind, NodeKind::Call);
    EXPECT_EQ(root.right, 3);
    EXPECT_EQ(root.intValue, 3);
    EXPECT_TRUE(expression.isCall());
    EXPECT_FALSE(compile("1 + f()").isCall());
}

TEST_F(FastExpressionCompiler, PutsChildrenBeforeTheirParents) {
    const FastExpression expression = compile("a[f(1, -b)] * (c or #d[2]) ^ 3");
    ASSERT_TRUE(expression.valid);
    for (std::size_t i = 0; i < expression.nodes.size(); ++i) {
        const FastExprNode& node = expression.nodes[i];
        EXPECT_LT(node.left, static_cast<int>(i));
        if (node.kind == NodeKind::Call) continue;  // an index of `callArguments`
        EXPECT_LT(node.right, static_cast<int>(i));
    }
}

TEST_F(FastExpressionCompiler, DecodesEachStringOnce) {
    const FastExpression expression = compile("\"a\" + 'b\\n' + \"a\"");
    ASSERT_TRUE(expression.valid);
    EXPECT_EQ(elements(expression.strings), (std::vector<std::string>{"a", "b\n", "a"}));
    EXPECT_EQ(expression.nodes[0].stringIndex, 0);
    EXPECT_EQ(expression.nodes[1].stringIndex, 1);
    EXPECT_EQ(expression.nodes[3].stringIndex, 2);
}

// ------------------------------------------------------------------------- binary operators

TEST_F(FastExpressionCompiler, CompilesEveryBinaryOperator) {
    const std::vector<std::pair<std::string, std::string>> operators = {
        {"+", "+"},   {"-", "-"},   {"*", "*"},     {"/", "/ f"},  {"\\", "\\"}, {"%", "%"},
        {"^", "^ f"}, {"==", "=="}, {"!=", "!="},   {"~=", "!="},  {"<", "<"},   {">", ">"},
        {"<=", "<="}, {">=", ">="}, {"and", "and"}, {"&&", "and"}, {"or", "or"}, {"||", "or"},
    };
    for (const auto& [token, name] : operators) {
        const bool isFloat = name.ends_with(" f");
        const std::string kind = isFloat ? name.substr(0, name.size() - 2) : name;
        EXPECT_EQ(nodes("a " + token + " b"),
                  (Nodes{"name @0", "name @2", kind + " 0 1 @1" + (isFloat ? " f" : "")}))
            << token;
    }
}

TEST_F(FastExpressionCompiler, CompilesTheSumOfAVariableAndAnInt) {
    const FastExpression expression = compile("a + 1");
    EXPECT_TRUE(expression.valid);
    EXPECT_EQ(expression.root, 2);
    EXPECT_EQ(describe(expression), (Nodes{"name @0", "int 1 @2", "+ 0 1 @1"}));
}

TEST_F(FastExpressionCompiler, BindsByPrecedence) {
    EXPECT_EQ(nodes("1 + 2 * 3"),
              (Nodes{"int 1 @0", "int 2 @2", "int 3 @4", "* 1 2 @3", "+ 0 3 @1"}));
    EXPECT_EQ(nodes("1 * 2 + 3"),
              (Nodes{"int 1 @0", "int 2 @2", "* 0 1 @1", "int 3 @4", "+ 2 3 @3"}));
    EXPECT_EQ(nodes("a or b and c"),
              (Nodes{"name @0", "name @2", "name @4", "and 1 2 @3", "or 0 3 @1"}));
    EXPECT_EQ(nodes("a == b < c"),
              (Nodes{"name @0", "name @2", "name @4", "< 1 2 @3", "== 0 3 @1"}));
    EXPECT_EQ(nodes("a and b == c"),
              (Nodes{"name @0", "name @2", "name @4", "== 1 2 @3", "and 0 3 @1"}));
    EXPECT_EQ(nodes("a < b + c"), (Nodes{"name @0", "name @2", "name @4", "+ 1 2 @3", "< 0 3 @1"}));
    EXPECT_EQ(nodes("(1 + 2) * 3"),
              (Nodes{"int 1 @1", "int 2 @3", "+ 0 1 @2", "int 3 @6", "* 2 3 @5"}));
}

TEST_F(FastExpressionCompiler, AssociatesToTheLeftButForPower) {
    EXPECT_EQ(nodes("a - b - c"), (Nodes{"name @0", "name @2", "- 0 1 @1", "name @4", "- 2 3 @3"}));
    EXPECT_EQ(nodes("a \\ b * c"),
              (Nodes{"name @0", "name @2", "\\ 0 1 @1", "name @4", "* 2 3 @3"}));
    EXPECT_EQ(nodes("a < b > c"), (Nodes{"name @0", "name @2", "< 0 1 @1", "name @4", "> 2 3 @3"}));
    EXPECT_EQ(nodes("a or b || c"),
              (Nodes{"name @0", "name @2", "or 0 1 @1", "name @4", "or 2 3 @3"}));
    EXPECT_EQ(nodes("a ^ b ^ c"),
              (Nodes{"name @0", "name @2", "name @4", "^ 1 2 @3 f", "^ 0 3 @1 f"}));
}

TEST_F(FastExpressionCompiler, BindsUnaryOperatorsTighterThanAllButPower) {
    EXPECT_EQ(nodes("-x ^ 2"), (Nodes{"name @1", "int 2 @3", "^ 0 1 @2 f", "negate 2 @0 f"}));
    EXPECT_EQ(nodes("-x * 2"), (Nodes{"name @1", "negate 0 @0", "int 2 @3", "* 1 2 @2"}));
    EXPECT_EQ(nodes("2 ^ -1"), (Nodes{"int 2 @0", "int 1 @3", "negate 1 @2", "^ 0 2 @1 f"}));
    EXPECT_EQ(nodes("!a == b"), (Nodes{"name @1", "not 0 @0", "name @3", "== 1 2 @2"}));
    EXPECT_EQ(nodes("not a ^ b"), (Nodes{"name @1", "name @3", "^ 0 1 @2 f", "not 2 @0"}));
    EXPECT_EQ(nodes("#a + 1"), (Nodes{"name @1", "length 0 @0", "int 1 @3", "+ 1 2 @2"}));
    EXPECT_EQ(nodes("2 ^ -a * b"),
              (Nodes{"int 2 @0", "name @3", "negate 1 @2", "^ 0 2 @1 f", "name @5", "* 3 4 @4 f"}));
}

// ------------------------------------------------------------------------- floatResult

TEST_F(FastExpressionCompiler, MarksWhatAFloatTakesPartIn) {
    for (const char* line :
         {"1.5",       "-1.5",        "- -1.5",  "1 + 2.5",        "2.5 + 1",    "a - 1.0",
          "a * .5",    "5. % a",      "1 / 2",   "a / b",          "2 ^ 3",      "a ^ b",
          "1 + 2 / 3", "(1 / 2) * 3", "a < 1.5", "1.5 == a",       "a / b >= c", "a and 1.5",
          "1.5 or a",  "-(1 / 2)",    "+1.5",    "99999999999 + 1"}) {
        EXPECT_TRUE(floatResult(line)) << line;
    }
}

TEST_F(FastExpressionCompiler, LeavesTheMarkOffEverythingElse) {
    for (const char* line :
         {"1",      "a",       "\"1.5\"",      "true",        "not",          "1 + 2",
          "-1",     "-a",      "1 \\ 2",       "1.5 \\ 2",    "(1 / 2) \\ 3", "a % b",
          "a == b", "a and b", "f(1.5)",       "t[1.5]",      "f(1.5) + 1",   "!1.5",
          "#1.5",   "not 1.5", "1 + t[1 / 2]", "!(1 / 2) + 1"}) {
        EXPECT_FALSE(floatResult(line)) << line;
    }
}

// ------------------------------------------------------------------------- refusals and ranges

TEST_F(FastExpressionCompiler, RefusesLiteralsOfContainers) {
    for (const char* line : {"[1, 2]", "[]", "{}", "{a: 1}", "f([1])", "f({})", "a + [1]", "a[[1]]",
                             "[1][1]", "({})", "-[1]", "not [1]", "true or [1]"}) {
        expectRefused(line);
    }
}

TEST_F(FastExpressionCompiler, RefusesWordsThatMeanNothing) {
    for (const char* line : {"...", "f(...)", "a.b", "\"x\" .. y", "1e5", "0x10", "a?", "@", "a&b",
                             "~", "1 + 1.2.3", "\xC3\xA9"}) {
        expectRefused(line);
    }
}

TEST_F(FastExpressionCompiler, RefusesTokensThatAreLeft) {
    for (const char* line : {"a b", "1 2", "a)", "a]", "a, b", "f(1) g", "a = 1", "a += 1", "a : b",
                             "a;", "\"a\" \"b\"", "(a) b", "true false"}) {
        expectRefused(line);
    }
}

TEST_F(FastExpressionCompiler, RefusesWhatIsIncomplete) {
    for (const char* line :
         {"a +",    "a and", "-",    "!",    "#",  "+",   "(",       "(a",        "(a]",   "()",
          "a[",     "a[1",   "a[1)", "a[]",  "f(", "f(1", "f(1,",    "f(1,)",     "f(,)",  "f(,1)",
          "f(1 2)", "f(1]",  "* a",  "== 1", ")",  "]",   "a + * b", "a or or b", "1 + ()"}) {
        expectRefused(line);
    }
}

TEST_F(FastExpressionCompiler, RefusesAnEmptyOrWrongRange) {
    expectInvalid(compileRange("a + 1", 0, 0), "empty");
    expectInvalid(compileRange("a + 1", 2, 2), "empty");
    expectInvalid(compileRange("a + 1", 2, 1), "reversed");
    expectInvalid(compileRange("a + 1", 0, 4), "too long");
    expectInvalid(compileRange("a + 1", 5, 6), "beyond");
    expectInvalid(compileRange("", 0, 0), "no tokens");
}

TEST_F(FastExpressionCompiler, RefusesAnAnalysisOfAnotherLength) {
    static_cast<void>(compile("a + 1"));
    EXPECT_TRUE(compileFastExpressionRange(tokens, analysis, 0, 1).valid);
    analysis.push_back(interpreter.analyseToken("b"));
    expectInvalid(compileFastExpressionRange(tokens, analysis, 0, 1), "long analysis");
    analysis.resize(2);
    expectInvalid(compileFastExpressionRange(tokens, analysis, 0, 1), "short analysis");
}

TEST_F(FastExpressionCompiler, CompilesARangeInsideALine) {
    const FastExpression expression = compileRange("x, y = a + 1, b", 4, 7);
    ASSERT_TRUE(expression.valid);
    EXPECT_EQ(describe(expression), (Nodes{"name @4", "int 1 @6", "+ 0 1 @5"}));
    // A bracket that closes behind the range is not seen.
    expectInvalid(compileRange("f(a)", 0, 3), "f(a");
    expectInvalid(compileRange("a[1]", 0, 3), "a[1");
    expectInvalid(compileRange("a + 1", 0, 2), "a +");
}

TEST_F(FastExpressionCompiler, SkipsNoEmptyTokens) {
    tokens = {"", "a"};
    analysis = {interpreter.analyseToken(""), interpreter.analyseToken("a")};
    expectInvalid(compileFastExpressionRange(tokens, analysis, 0, 2), "empty token");
    EXPECT_TRUE(compileFastExpressionRange(tokens, analysis, 1, 2).valid);
}

TEST_F(FastExpressionCompiler, RefusesTokensBeyondSixteenBits) {
    std::string line = "a";
    for (int i = 0; i < 32768; ++i) line += "+a";
    const std::size_t count = interpreter.tokenise(line).size();
    ASSERT_EQ(count, 65537U);
    expectInvalid(compileRange(line, 0, count), "65537 tokens");
    const FastExpression fits = compileRange(line, 0, 65535);
    ASSERT_TRUE(fits.valid);
    EXPECT_EQ(fits.rootNode().tokenIndex, 65533);
    EXPECT_TRUE(compileRange(line, 65534, 65535).valid);
    EXPECT_FALSE(compileRange(line, 65536, 65537).valid);
}

}  // namespace
