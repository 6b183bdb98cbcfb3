#include "frontend/line_preparation.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "interpreter/dovrel_script.h"
#include "library/builtin_id.h"

namespace {

using Tokens = std::vector<std::string>;
using Range = std::pair<std::size_t, std::size_t>;
using Ranges = std::vector<Range>;
using Lines = std::vector<ParsedScriptLine>;

Ranges rangesOf(const SharedArray<TokenRange>& ranges) {
    Ranges result;
    for (const TokenRange& range : ranges) result.emplace_back(range.first, range.last);
    return result;
}

class LinePreparation : public testing::Test {
protected:
    Lines prepare(const std::string& source) { return interpreter.parseLines(source); }
    ParsedScriptLine one(const std::string& source) {
        Lines lines = prepare(source);
        EXPECT_EQ(lines.size(), 1U) << source;
        return std::move(lines.front());
    }
    std::size_t find(const std::string& line, std::size_t start, std::string_view terminator) {
        return findTopLevelToken(interpreter.tokenise(line), start, terminator);
    }
    void expectNoAssignment(const std::string& source) {
        EXPECT_EQ(one(source).assignment, nullptr) << source;
    }

    DovrelScript interpreter;
};

// ------------------------------------------------------------------------- findTopLevelToken

TEST_F(LinePreparation, FindsTheTerminatorOutsideBrackets) {
    EXPECT_EQ(find("a , b", 0, ""), 1U);
    EXPECT_EQ(find("a , b", 0, ","), 1U);
    EXPECT_EQ(find("f ( a , b ) , c", 0, ""), 6U);
    EXPECT_EQ(find("[ a , b ] , c", 0, ""), 5U);
    EXPECT_EQ(find("{ a , b } , c", 0, ""), 5U);
    EXPECT_EQ(find("( [ { , } , ] , ) , c", 0, ""), 9U);
    EXPECT_EQ(find("a = b", 0, "="), 1U);
}

TEST_F(LinePreparation, FindsTheTerminatorFromTheStartOn) {
    EXPECT_EQ(find("a , b , c", 2, ""), 3U);
    EXPECT_EQ(find("a , b , c", 1, ""), 1U);
    EXPECT_EQ(find(", a", 0, ""), 0U);
}

TEST_F(LinePreparation, GivesTheTokenCountForAMissingTerminator) {
    EXPECT_EQ(find("a b c", 0, ""), 3U);
    EXPECT_EQ(find("( a , b", 0, ""), 4U);
    EXPECT_EQ(find("", 0, ""), 0U);
}

TEST_F(LinePreparation, GivesAStartBehindTheEnd) {
    EXPECT_EQ(find("a , b", 3, ""), 3U);
    EXPECT_EQ(find("a , b", 7, ""), 7U);
}

TEST_F(LinePreparation, FindsTheCloserThatNothingOpened) {
    EXPECT_EQ(find("a ]", 0, "]"), 1U);
    EXPECT_EQ(find("a [ 1 ] ] = 2", 0, "]"), 4U);
    EXPECT_EQ(find("f ( x ) ) y", 0, ")"), 4U);
    EXPECT_EQ(find("] a", 0, "]"), 0U);
    EXPECT_EQ(find("[ ] ]", 0, "]"), 2U);
}

TEST_F(LinePreparation, LowersNoDepthBelowZero) {
    EXPECT_EQ(find(") ] } , a", 0, ""), 3U);
    EXPECT_EQ(find(") ( , ) , a", 0, ""), 4U);
    EXPECT_EQ(find("( ] , ) , a", 0, ""), 4U);
}

// ------------------------------------------------------------------------- kinds

TEST_F(LinePreparation, DecidesKindsByTheFirstTokens) {
    const std::vector<std::pair<std::string, LineKind>> kinds = {
        {"x = 1", LineKind::Plain},
        {"print(1)", LineKind::Plain},
        {"if x", LineKind::If},
        {"elseif x", LineKind::ElseIf},
        {"else", LineKind::Else},
        {"end", LineKind::End},
        {"while x", LineKind::While},
        {"repeat", LineKind::Repeat},
        {"until x", LineKind::Until},
        {"for i = 1, 2", LineKind::For},
        {"function f()", LineKind::Function},
        {"decay function f()", LineKind::DecayFunction},
        {"native function f()", LineKind::NativeFunction},
        {"local function f()", LineKind::LocalFunction},
        {"return", LineKind::Return},
        {"break", LineKind::Break},
        {"decay", LineKind::Plain},
        {"decay x", LineKind::Plain},
        {"native", LineKind::Plain},
        {"local", LineKind::Plain},
        {"local x", LineKind::Plain},
        {"decay function", LineKind::DecayFunction},
        {"end = 5", LineKind::End},
        {"x end", LineKind::Plain},
        {"function", LineKind::Function},
        {"If x", LineKind::Plain},
        {"ends", LineKind::Plain},
        {"\"if\" x", LineKind::Plain},
        {"then", LineKind::Plain},
        {"do", LineKind::Plain},
        {"local local function", LineKind::Plain},
    };
    for (const auto& [source, kind] : kinds) EXPECT_EQ(one(source).kind, kind) << source;
}

TEST_F(LinePreparation, NumbersTheKinds) {
    EXPECT_EQ(static_cast<int>(LineKind::Empty), 0);
    EXPECT_EQ(static_cast<int>(LineKind::Plain), 1);
    EXPECT_EQ(static_cast<int>(LineKind::If), 2);
    EXPECT_EQ(static_cast<int>(LineKind::End), 5);
    EXPECT_EQ(static_cast<int>(LineKind::For), 9);
    EXPECT_EQ(static_cast<int>(LineKind::LocalFunction), 13);
    EXPECT_EQ(static_cast<int>(LineKind::Break), 15);
}

TEST_F(LinePreparation, LeavesAPlainLineWithoutLinksAndParses) {
    const ParsedScriptLine line = one("print(1)");
    EXPECT_TRUE(line.prepared);
    EXPECT_EQ(line.matchingEnd, kNoLine);
    EXPECT_EQ(line.nextBranch, kNoLine);
    EXPECT_EQ(line.assignmentScope, ScopeTarget::Default);
    EXPECT_EQ(line.assignment, nullptr);
    EXPECT_EQ(line.forHeader, nullptr);
    EXPECT_FALSE(line.condition.valid);
    EXPECT_EQ(line.condition.root, -1);
    EXPECT_TRUE(line.returnValues.empty());
}

TEST(ParsedScriptLine, IsUnlinkedAndInvalidByDefault) {
    const ParsedScriptLine line;
    EXPECT_EQ(line.matchingEnd, ~std::size_t{0});
    EXPECT_EQ(line.nextBranch, ~std::size_t{0});
    EXPECT_FALSE(line.prepared);
    EXPECT_EQ(line.kind, LineKind::Empty);
    EXPECT_EQ(line.assignment, nullptr);
    EXPECT_FALSE(line.expression.valid);
    EXPECT_EQ(line.expression.root, -1);
}

// ------------------------------------------------------------------------- assignments

TEST_F(LinePreparation, ParsesASimpleAssignment) {
    const ParsedScriptLine line = one("x = a + 1");
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(line.assignment->operatorIndex, 1U);
    ASSERT_EQ(line.assignment->targets.size(), 1U);
    EXPECT_EQ(line.assignment->targets[0].nameToken, 0U);
    EXPECT_TRUE(line.assignment->targets[0].indexRanges.empty());
    EXPECT_EQ(rangesOf(line.assignment->valueRanges), (Ranges{{2, 5}}));
    ASSERT_EQ(line.assignment->values.size(), 1U);
    EXPECT_TRUE(line.assignment->values[0].valid);
    EXPECT_TRUE(line.assignment->isSimple());
    EXPECT_NE(line.assignment->simpleValue(), nullptr);
    EXPECT_FALSE(line.assignment->simpleCall.valid);
    EXPECT_FALSE(line.expression.valid);
}

TEST_F(LinePreparation, KnowsAllAssignmentOperators) {
    for (const std::string op : {"=", "+=", "-=", "*=", "/=", "\\=", "%=", "^="}) {
        const ParsedScriptLine line = one("x " + op + " 1");
        ASSERT_NE(line.assignment, nullptr) << op;
        EXPECT_EQ(line.assignment->isPlain, op == "=") << op;
        EXPECT_EQ(line.assignment->operation, op[0]) << op;
        EXPECT_EQ(line.tokens[line.assignment->operatorIndex], op);
    }
    for (const std::string op : {"==", "!=", "~=", "<=", ">=", "&&", "||", ":", "+", "<"}) {
        expectNoAssignment("x " + op + " 1");
    }
}

TEST_F(LinePreparation, ParsesSeveralTargetsAndValues) {
    const ParsedScriptLine line = one("a, b = 1, f(2, 3)");
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(line.assignment->operatorIndex, 3U);
    ASSERT_EQ(line.assignment->targets.size(), 2U);
    EXPECT_EQ(line.assignment->targets[0].nameToken, 0U);
    EXPECT_EQ(line.assignment->targets[1].nameToken, 2U);
    EXPECT_EQ(rangesOf(line.assignment->valueRanges), (Ranges{{4, 5}, {6, 12}}));
    ASSERT_EQ(line.assignment->values.size(), 2U);
    EXPECT_TRUE(line.assignment->values[0].valid);
    EXPECT_TRUE(line.assignment->values[1].valid);
    EXPECT_FALSE(line.assignment->isSimple());
    EXPECT_EQ(line.assignment->simpleValue(), nullptr);
    EXPECT_FALSE(line.assignment->simpleCall.valid);
}

TEST_F(LinePreparation, ParsesOneTargetWithSeveralValues) {
    const ParsedScriptLine line = one("a = f(), 2");
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(rangesOf(line.assignment->valueRanges), (Ranges{{2, 5}, {6, 7}}));
    EXPECT_FALSE(line.assignment->isSimple());
    EXPECT_FALSE(line.assignment->simpleCall.valid);
}

TEST_F(LinePreparation, ParsesIndexedTargets) {
    const ParsedScriptLine line = one("t[i + 1] = 2");
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(line.assignment->operatorIndex, 6U);
    ASSERT_EQ(line.assignment->targets.size(), 1U);
    EXPECT_EQ(rangesOf(line.assignment->targets[0].indexRanges), (Ranges{{2, 5}}));
    ASSERT_EQ(line.assignment->targets[0].indexExpressions.size(), 1U);
    EXPECT_TRUE(line.assignment->targets[0].indexExpressions[0].valid);
    EXPECT_FALSE(line.assignment->isSimple());
    EXPECT_EQ(line.assignment->simpleValue(), nullptr);
}

TEST_F(LinePreparation, ParsesNestedIndices) {
    const ParsedScriptLine calls = one("t[f(x)][g(y)] = 1");
    ASSERT_NE(calls.assignment, nullptr);
    EXPECT_EQ(rangesOf(calls.assignment->targets[0].indexRanges), (Ranges{{2, 6}, {8, 12}}));

    const ParsedScriptLine brackets = one("t[a[1]] = 2");
    ASSERT_NE(brackets.assignment, nullptr);
    EXPECT_EQ(rangesOf(brackets.assignment->targets[0].indexRanges), (Ranges{{2, 6}}));

    const ParsedScriptLine mixed = one("a, t[1][\"k\"], b = 1");
    ASSERT_NE(mixed.assignment, nullptr);
    ASSERT_EQ(mixed.assignment->targets.size(), 3U);
    EXPECT_EQ(mixed.assignment->targets[1].nameToken, 2U);
    EXPECT_EQ(rangesOf(mixed.assignment->targets[1].indexRanges), (Ranges{{4, 5}, {7, 8}}));
    EXPECT_EQ(mixed.assignment->targets[2].nameToken, 10U);
}

TEST_F(LinePreparation, KeepsThePlacesOfInvalidExpressions) {
    const ParsedScriptLine line = one("t[[1]][2], b = [3], 4, {}");
    ASSERT_NE(line.assignment, nullptr);
    const auto& keys = line.assignment->targets[0].indexExpressions;
    ASSERT_EQ(keys.size(), 2U);
    EXPECT_FALSE(keys[0].valid);
    EXPECT_TRUE(keys[1].valid);
    ASSERT_EQ(line.assignment->values.size(), 3U);
    EXPECT_FALSE(line.assignment->values[0].valid);
    EXPECT_TRUE(line.assignment->values[1].valid);
    EXPECT_FALSE(line.assignment->values[2].valid);

    const ParsedScriptLine simple = one("x = [1]");
    ASSERT_NE(simple.assignment, nullptr);
    EXPECT_TRUE(simple.assignment->isSimple());
    EXPECT_EQ(simple.assignment->simpleValue(), nullptr);
}

TEST_F(LinePreparation, ParsesDeclarations) {
    const ParsedScriptLine line = one("local a, b");
    EXPECT_EQ(line.assignmentScope, ScopeTarget::Local);
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(line.assignment->operatorIndex, 4U);
    ASSERT_EQ(line.assignment->targets.size(), 2U);
    EXPECT_EQ(line.assignment->targets[0].nameToken, 1U);
    EXPECT_EQ(line.assignment->targets[1].nameToken, 3U);
    EXPECT_TRUE(line.assignment->valueRanges.empty());
    EXPECT_TRUE(line.assignment->values.empty());
    EXPECT_TRUE(line.assignment->isPlain);

    const ParsedScriptLine comma = one("local a,");
    ASSERT_NE(comma.assignment, nullptr);
    EXPECT_EQ(comma.assignment->targets.size(), 1U);
    EXPECT_EQ(comma.assignment->operatorIndex, 3U);

    const ParsedScriptLine indexed = one("local t[1]");
    ASSERT_NE(indexed.assignment, nullptr);
    EXPECT_EQ(rangesOf(indexed.assignment->targets[0].indexRanges), (Ranges{{3, 4}}));
}

TEST_F(LinePreparation, TakesTheScopeFromTheFirstWord) {
    EXPECT_EQ(one("x = 1").assignmentScope, ScopeTarget::Default);
    EXPECT_EQ(one("native x = 1").assignmentScope, ScopeTarget::Native);
    EXPECT_EQ(one("local x = 1").assignmentScope, ScopeTarget::Local);
    EXPECT_EQ(one("local function f()").assignmentScope, ScopeTarget::Local);
    EXPECT_EQ(one("native function f()").assignmentScope, ScopeTarget::Native);
    EXPECT_EQ(one("local").assignmentScope, ScopeTarget::Local);
    EXPECT_EQ(one("x = local").assignmentScope, ScopeTarget::Default);

    const ParsedScriptLine line = one("native x += 1");
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(line.assignment->targets[0].nameToken, 1U);
    EXPECT_EQ(line.assignment->operatorIndex, 2U);
}

TEST_F(LinePreparation, ToleratesACommaAtTheEndOfTheValues) {
    const ParsedScriptLine line = one("a = 1,");
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(rangesOf(line.assignment->valueRanges), (Ranges{{2, 3}}));
    EXPECT_TRUE(line.assignment->isSimple());
}

TEST_F(LinePreparation, RefusesWhatIsNoAssignment) {
    for (const std::string source :
         {"a =",     "a +=",        "a = , 1",   "a = 1,, 2", "a == 1",   "a",       "a, b",
          "a,",      "native a",    "local",     "f(x)",      "f(x) = 1", "5 = 1",   "\"a\" = 1",
          "(a) = 1", "a, 5 = 1, 2", "a, = 1",    "a b = 1",   "a[] = 1",  "a[1 = 2", "a.b = 1",
          "= 1",     "local = 1",   "local a b", "local 5",   "-a = 1"}) {
        expectNoAssignment(source);
    }
}

TEST_F(LinePreparation, ParsesAnAssignmentWhateverTheKindIs) {
    const ParsedScriptLine line = one("end = 5");
    EXPECT_EQ(line.kind, LineKind::End);
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_EQ(line.assignment->targets[0].nameToken, 0U);
    EXPECT_EQ(rangesOf(line.assignment->valueRanges), (Ranges{{2, 3}}));
    EXPECT_NE(one("return = 1").assignment, nullptr);
    EXPECT_NE(one("if[1] = 2").assignment, nullptr);
    EXPECT_EQ(one("for i = 1, 2").assignment, nullptr);
    EXPECT_NE(one("local function = 5").assignment, nullptr);
}

TEST_F(LinePreparation, CompilesALoneExpressionOnly) {
    EXPECT_TRUE(one("f(x)").expression.valid);
    EXPECT_TRUE(one("a == 1").expression.valid);
    EXPECT_FALSE(one("a =").expression.valid);
    EXPECT_FALSE(one("a = 1").expression.valid);
    EXPECT_FALSE(one("f(x) g").expression.valid);
    EXPECT_FALSE(one("[1]").expression.valid);
    EXPECT_FALSE(one("break").expression.valid);
    EXPECT_FALSE(one("return x").expression.valid);
}

// ------------------------------------------------------------------------- direct calls

TEST_F(LinePreparation, RecognisesDirectCalls) {
    const ParsedScriptLine line = one("x = g(1, a + 2)");
    ASSERT_NE(line.assignment, nullptr);
    const FastCallExpression& call = line.assignment->simpleCall;
    EXPECT_TRUE(call.valid);
    EXPECT_EQ(call.nameToken, 2U);
    ASSERT_EQ(call.arguments.size(), 2U);
    EXPECT_TRUE(call.arguments[0].valid);
    EXPECT_TRUE(call.arguments[1].valid);
    EXPECT_TRUE(line.assignment->simpleValueIsCall());

    EXPECT_TRUE(one("x = g()").assignment->simpleCall.valid);
    EXPECT_TRUE(one("x = g()").assignment->simpleCall.arguments.empty());
    EXPECT_EQ(one("local x = g(1)").assignment->simpleCall.nameToken, 3U);
    EXPECT_TRUE(one("x += g(1)").assignment->simpleCall.valid);
    EXPECT_EQ(one("x = g(h(1, 2), t[3])").assignment->simpleCall.arguments.size(), 2U);
}

TEST_F(LinePreparation, ToleratesACommaAtTheEndOfTheArguments) {
    const ParsedScriptLine line = one("x = g(1,)");
    ASSERT_NE(line.assignment, nullptr);
    EXPECT_TRUE(line.assignment->simpleCall.valid);
    EXPECT_EQ(line.assignment->simpleCall.arguments.size(), 1U);
    EXPECT_EQ(line.assignment->simpleValue(), nullptr);
}

TEST_F(LinePreparation, RefusesWhatIsNoDirectCall) {
    for (const std::string source :
         {"x = g(1)[2]", "x = t[1](2)", "x = g(1)(2)", "x = g()()", "x = g(1) + h(2)", "x = (g)(1)",
          "x = g(,)", "x = g(1,,2)", "x = g([1])", "x = g(1 2)", "x = g", "x = 5(1)",
          "x = \"s\"(1)", "x = -g(1)", "x = (1)", "t[1] = g(1)"}) {
        const ParsedScriptLine line = one(source);
        ASSERT_NE(line.assignment, nullptr) << source;
        EXPECT_FALSE(line.assignment->simpleCall.valid) << source;
    }
    EXPECT_FALSE(one("x, y = g(1)").assignment->simpleCall.valid);
}

TEST_F(LinePreparation, TakesNoLiteralForTheNameOfADirectCall) {
    for (const std::string word :
         {"not", "true", "ture", "tre", "tue", "false", "flase", "fasle", "flse"}) {
        EXPECT_FALSE(one("x = " + word + "(a > 5)").assignment->simpleCall.valid) << word;
    }
    EXPECT_TRUE(one("x = nil(a)").assignment->simpleCall.valid);
}

// ------------------------------------------------------------------------- conditions, returns

TEST_F(LinePreparation, CompilesConditionsFromTheSecondToken) {
    for (const std::string word : {"if", "elseif", "while", "until"}) {
        EXPECT_TRUE(one(word + " a < 1").condition.valid) << word;
        EXPECT_FALSE(one(word).condition.valid) << word;
        EXPECT_FALSE(one(word + " a b").condition.valid) << word;
        EXPECT_FALSE(one(word + " [1]").condition.valid) << word;
    }
    EXPECT_FALSE(one("else a").condition.valid);
    EXPECT_FALSE(one("repeat a").condition.valid);
}

TEST_F(LinePreparation, CompilesEachReturnValue) {
    EXPECT_TRUE(one("return").returnValues.empty());
    EXPECT_FALSE(one("return").hasCompiledReturnValues());

    const ParsedScriptLine one_value = one("return f(1, 2)");
    ASSERT_EQ(one_value.returnValues.size(), 1U);
    EXPECT_TRUE(one_value.returnValues[0].isCall());
    EXPECT_TRUE(one_value.hasCompiledReturnValues());

    const ParsedScriptLine several = one("return 1, [2], t[3, 4]");
    ASSERT_EQ(several.returnValues.size(), 3U);
    EXPECT_TRUE(several.returnValues[0].valid);
    EXPECT_FALSE(several.returnValues[1].valid);
    EXPECT_FALSE(several.returnValues[2].valid);
    EXPECT_FALSE(several.hasCompiledReturnValues());
}

TEST_F(LinePreparation, StopsAtAnEmptyReturnValue) {
    EXPECT_EQ(one("return 1,").returnValues.size(), 1U);
    EXPECT_EQ(one("return 1, 2,, 3").returnValues.size(), 2U);
    EXPECT_TRUE(one("return , 1").returnValues.empty());
    const ParsedScriptLine stray = one("return 1 2");
    ASSERT_EQ(stray.returnValues.size(), 1U);
    EXPECT_FALSE(stray.returnValues[0].valid);
}

// ------------------------------------------------------------------------- for headers

TEST_F(LinePreparation, ParsesNumericForLines) {
    const ParsedScriptLine plain = one("for i = 1, 10");
    ASSERT_NE(plain.forHeader, nullptr);
    EXPECT_TRUE(isNumericForLine(plain));
    EXPECT_EQ(plain.forHeader->numericVariable, 1U);
    EXPECT_TRUE(plain.forHeader->numericStart.valid);
    EXPECT_TRUE(plain.forHeader->numericLimit.valid);
    EXPECT_FALSE(plain.forHeader->hasNumericStep);
    EXPECT_FALSE(plain.forHeader->numericStep.valid);
    EXPECT_TRUE(plain.forHeader->genericVariables.empty());

    const ParsedScriptLine step = one("for i = 1, 10, 2");
    EXPECT_TRUE(step.forHeader->hasNumericStep);
    EXPECT_TRUE(step.forHeader->numericStep.valid);

    const ParsedScriptLine call = one("for i = f(1, 2), 3");
    EXPECT_TRUE(call.forHeader->numericStart.isCall());
    EXPECT_TRUE(call.forHeader->numericLimit.valid);
    EXPECT_FALSE(call.forHeader->hasNumericStep);
}

TEST_F(LinePreparation, KeepsAnInvalidPartOfANumericForLine) {
    const ParsedScriptLine start = one("for i = [1], 2, 3");
    EXPECT_FALSE(start.forHeader->numericStart.valid);
    EXPECT_TRUE(start.forHeader->numericLimit.valid);
    EXPECT_TRUE(start.forHeader->hasNumericStep);

    const ParsedScriptLine step = one("for i = 1, 2, [3]");
    EXPECT_TRUE(step.forHeader->numericStart.valid);
    EXPECT_TRUE(step.forHeader->hasNumericStep);
    EXPECT_FALSE(step.forHeader->numericStep.valid);
}

TEST_F(LinePreparation, LeavesAMalformedNumericForLineUnprepared) {
    for (const std::string source : {"for i = 1", "for i = , 3", "for i = 1,", "for i = 1,, 2",
                                     "for i = 1, 3,", "for i = 1, 3, 1, 9", "for i = 1, 3,, 9"}) {
        const ParsedScriptLine line = one(source);
        EXPECT_TRUE(isNumericForLine(line)) << source;
        ASSERT_NE(line.forHeader, nullptr) << source;
        EXPECT_EQ(line.forHeader->numericVariable, 1U) << source;
        EXPECT_FALSE(line.forHeader->numericStart.valid) << source;
        EXPECT_FALSE(line.forHeader->numericLimit.valid) << source;
    }
    for (const std::string source : {"for i = 1 2, 3", "for i = 1, 2 3"}) {
        const ParsedScriptLine line = one(source);
        const ParsedForHeader& header = *line.forHeader;
        EXPECT_FALSE(header.numericStart.valid && header.numericLimit.valid) << source;
    }
}

TEST_F(LinePreparation, TellsNumericForLinesFromGenericOnes) {
    EXPECT_TRUE(isNumericForLine(one("for i = 1, 2")));
    EXPECT_TRUE(isNumericForLine(one("for end = x")));
    for (const std::string source :
         {"for", "for i", "for i =", "for i in t", "for 1 = 2, 3", "for i, k = 1", "for i == 1"}) {
        EXPECT_FALSE(isNumericForLine(one(source))) << source;
    }
}

TEST_F(LinePreparation, ParsesGenericForLines) {
    const ParsedScriptLine line = one("for a, b, c in walk(t)");
    ASSERT_NE(line.forHeader, nullptr);
    EXPECT_EQ(line.forHeader->numericVariable, 0U);
    EXPECT_EQ(line.forHeader->genericVariables, (std::vector<std::size_t>{1, 3, 5}));
    EXPECT_TRUE(line.forHeader->genericIterator.isCall());
    EXPECT_EQ(line.forHeader->genericBuiltin, BuiltinId{});

    const ParsedScriptLine invalid = one("for x in [1, 2]");
    EXPECT_EQ(invalid.forHeader->genericVariables, (std::vector<std::size_t>{1}));
    EXPECT_FALSE(invalid.forHeader->genericIterator.valid);
}

TEST_F(LinePreparation, RecognisesDirectIterators) {
    const ParsedScriptLine pairs = one("for k, v in pairs(t)");
    EXPECT_EQ(pairs.forHeader->genericBuiltin, BuiltinId::Pairs);
    ASSERT_TRUE(pairs.forHeader->genericIterator.valid);
    EXPECT_EQ(pairs.forHeader->genericIterator.rootNode().kind, NodeKind::Variable);
    EXPECT_EQ(pairs.forHeader->genericIterator.rootNode().tokenIndex, 7U);

    const ParsedScriptLine ipairs = one("for k in ipairs(f(x)[1])");
    EXPECT_EQ(ipairs.forHeader->genericBuiltin, BuiltinId::Ipairs);
    EXPECT_EQ(ipairs.forHeader->genericIterator.rootNode().kind, NodeKind::Index);

    const ParsedScriptLine nested = one("for k in ipairs(string[\"gmatch\"](s, p))");
    EXPECT_EQ(nested.forHeader->genericBuiltin, BuiltinId::Ipairs);
    EXPECT_TRUE(nested.forHeader->genericIterator.isCall());
}

TEST_F(LinePreparation, KeepsADirectIteratorWithAnInvalidArgument) {
    for (const std::string source : {"for k in pairs(a, b)", "for k in pairs({a: 1})"}) {
        const ParsedScriptLine line = one(source);
        EXPECT_EQ(line.forHeader->genericBuiltin, BuiltinId::Pairs) << source;
        EXPECT_FALSE(line.forHeader->genericIterator.valid) << source;
    }
}

TEST_F(LinePreparation, TakesNothingElseForADirectIterator) {
    for (const std::string source :
         {"for k in pairs()", "for k in pairs", "for k in pairs(t)[1]", "for k in pairs(t)(u)",
          "for k in next(t)", "for k in (pairs(t))", "for k in x + pairs(t)"}) {
        EXPECT_EQ(one(source).forHeader->genericBuiltin, BuiltinId{}) << source;
    }
    EXPECT_TRUE(one("for k in pairs()").forHeader->genericIterator.isCall());
}

TEST_F(LinePreparation, LeavesAMalformedGenericForLineUnprepared) {
    for (const std::string source :
         {"for", "for k in", "for k of t", "for 1 = 2, 3", "for k, 5 in t", "for k, v", "for k v t",
          "for k, in t", "for \"k\" in t"}) {
        const ParsedScriptLine line = one(source);
        ASSERT_NE(line.forHeader, nullptr) << source;
        EXPECT_EQ(line.forHeader->numericVariable, 0U) << source;
        EXPECT_TRUE(line.forHeader->genericVariables.empty()) << source;
        EXPECT_FALSE(line.forHeader->genericIterator.valid) << source;
        EXPECT_EQ(line.forHeader->genericBuiltin, BuiltinId{}) << source;
    }
}

// ------------------------------------------------------------------------- blocks

TEST_F(LinePreparation, LinksEachBlockToItsEnd) {
    for (const std::string header :
         {"while x", "for i = 1, 2", "for", "function f()", "decay function f()",
          "native function f()", "local function f()"}) {
        const Lines lines = prepare(header + "\nx = 1\nend\ny = 2");
        EXPECT_EQ(lines[0].matchingEnd, 2U) << header;
        EXPECT_EQ(lines[0].nextBranch, kNoLine) << header;
        EXPECT_EQ(lines[1].matchingEnd, kNoLine) << header;
        EXPECT_EQ(lines[2].matchingEnd, kNoLine) << header;
    }
}

TEST_F(LinePreparation, LinksARepeatToItsUntil) {
    const Lines lines = prepare("repeat\nx = 1\nuntil x");
    EXPECT_EQ(lines[0].matchingEnd, 2U);
}

TEST_F(LinePreparation, LinksTheBranchesOfAnIf) {
    const Lines lines = prepare("if a\nx = 1\nelseif b\nelseif c\nx = 2\nelse\nx = 3\nend");
    EXPECT_EQ(lines[0].nextBranch, 2U);
    EXPECT_EQ(lines[2].nextBranch, 3U);
    EXPECT_EQ(lines[3].nextBranch, 5U);
    EXPECT_EQ(lines[5].nextBranch, kNoLine);
    for (const std::size_t branch : {0U, 2U, 3U, 5U}) {
        EXPECT_EQ(lines[branch].matchingEnd, 7U) << branch;
    }
}

TEST_F(LinePreparation, LinksBranchesInAnyOrder) {
    const Lines lines = prepare("if a\nelse\nelseif b\nelse\nend");
    EXPECT_EQ(lines[0].nextBranch, 1U);
    EXPECT_EQ(lines[1].nextBranch, 2U);
    EXPECT_EQ(lines[2].nextBranch, 3U);
    EXPECT_EQ(lines[3].nextBranch, kNoLine);
    EXPECT_EQ(lines[1].matchingEnd, 4U);
}

TEST_F(LinePreparation, LinksNestedBlocks) {
    const Lines lines = prepare(
        "function f()\nif a\nwhile b\nrepeat\nx = 1\nuntil c\nend\nelse\nfor i = 1, 2\nend\nend\n"
        "end");
    EXPECT_EQ(lines[0].matchingEnd, 11U);
    EXPECT_EQ(lines[1].matchingEnd, 10U);
    EXPECT_EQ(lines[1].nextBranch, 7U);
    EXPECT_EQ(lines[2].matchingEnd, 6U);
    EXPECT_EQ(lines[3].matchingEnd, 5U);
    EXPECT_EQ(lines[7].matchingEnd, 10U);
    EXPECT_EQ(lines[8].matchingEnd, 9U);
}

TEST_F(LinePreparation, LinksARepeatThatAnEndCloses) {
    const Lines lines = prepare("repeat\nx = 1\nend\nuntil x");
    EXPECT_EQ(lines[0].matchingEnd, 2U);
}

TEST_F(LinePreparation, IgnoresClosingLinesOfNoBlock) {
    const Lines stray = prepare("end\nelse\nelseif a\nuntil b\nwhile c\nend\nend");
    EXPECT_EQ(stray[4].matchingEnd, 5U);
    EXPECT_EQ(stray[1].nextBranch, kNoLine);

    const Lines otherBlock = prepare("repeat\nif a\nuntil b\nend\nuntil c");
    EXPECT_EQ(otherBlock[1].matchingEnd, 3U);
    EXPECT_EQ(otherBlock[0].matchingEnd, 4U);

    const Lines otherElse = prepare("if a\nwhile b\nelse\nend\nend");
    EXPECT_EQ(otherElse[0].nextBranch, kNoLine);
    EXPECT_EQ(otherElse[0].matchingEnd, 4U);
    EXPECT_EQ(otherElse[1].matchingEnd, 3U);
    EXPECT_EQ(otherElse[2].matchingEnd, kNoLine);
}

TEST_F(LinePreparation, LeavesOpenBlocksUnlinked) {
    const Lines lines = prepare("if a\nelse\nwhile b\nrepeat\nx = 1");
    for (const ParsedScriptLine& line : lines) EXPECT_EQ(line.matchingEnd, kNoLine);
    EXPECT_EQ(lines[0].nextBranch, 1U);
}

TEST_F(LinePreparation, CountsEmptyRecordsInItsLinks) {
    const Lines lines = prepare("\nif a\n\n@@ note\nelse\n\nend");
    EXPECT_EQ(lines[1].nextBranch, 4U);
    EXPECT_EQ(lines[1].matchingEnd, 6U);
}

TEST_F(LinePreparation, MakesLinksRelativeWhenItRunsOverABody) {
    Lines lines = prepare("x = 1\nfunction f()\nif a\ny = 2\nelse\nend\nend");
    EXPECT_EQ(lines[2].nextBranch, 4U);
    EXPECT_EQ(lines[2].matchingEnd, 5U);
    Lines body(lines.begin() + 2, lines.begin() + 6);
    interpreter.prepareParsedLines(body);
    EXPECT_EQ(body[0].nextBranch, 2U);
    EXPECT_EQ(body[0].matchingEnd, 3U);
    EXPECT_TRUE(body[0].condition.valid);
    ASSERT_NE(body[1].assignment, nullptr);
    EXPECT_EQ(rangesOf(body[1].assignment->valueRanges), (Ranges{{2, 3}}));
}

TEST_F(LinePreparation, ForgetsWhatALineWasBefore) {
    Lines lines = prepare("local x = f(1)\nif a\nelse\nend\nfor i = 1, 2\nend\nreturn 1\ng(x)");
    for (ParsedScriptLine& line : lines) {
        line.tokens.clear();
        line.tokenAnalysis.clear();
    }
    interpreter.prepareParsedLines(lines);
    for (const ParsedScriptLine& line : lines) {
        EXPECT_EQ(line.kind, LineKind::Empty);
        EXPECT_TRUE(line.prepared);
        EXPECT_EQ(line.assignmentScope, ScopeTarget::Default);
        EXPECT_EQ(line.matchingEnd, kNoLine);
        EXPECT_EQ(line.nextBranch, kNoLine);
        EXPECT_EQ(line.assignment, nullptr);
        EXPECT_EQ(line.forHeader, nullptr);
        EXPECT_FALSE(line.condition.valid);
        EXPECT_FALSE(line.expression.valid);
        EXPECT_TRUE(line.returnValues.empty());
    }
}

TEST_F(LinePreparation, GivesTheSameTheSecondTime) {
    Lines lines =
        prepare("if f(a)\nx, t[1] = 1, [2]\nelse\nreturn 1, 2\nend\nfor k in pairs(t)\nend");
    interpreter.prepareParsedLines(lines);
    EXPECT_EQ(lines[0].nextBranch, 2U);
    EXPECT_EQ(lines[0].matchingEnd, 4U);
    EXPECT_TRUE(lines[0].condition.valid);
    ASSERT_NE(lines[1].assignment, nullptr);
    EXPECT_EQ(lines[1].assignment->targets.size(), 2U);
    EXPECT_EQ(lines[1].assignment->values.size(), 2U);
    EXPECT_EQ(lines[3].returnValues.size(), 2U);
    EXPECT_EQ(lines[5].forHeader->genericVariables.size(), 1U);
    EXPECT_EQ(lines[5].forHeader->genericBuiltin, BuiltinId::Pairs);
    EXPECT_EQ(lines[5].matchingEnd, 6U);
}

TEST_F(LinePreparation, FindsTheMatchingEndFromTheLineBehindTheHeader) {
    const Lines lines = prepare("while a\nx = 1\nend\nwhile b");
    EXPECT_EQ(findMatchingEnd(lines, 1), 2U);
    for (const std::size_t index : {0U, 2U, 3U, 4U, 5U, 100U}) {
        try {
            static_cast<void>(findMatchingEnd(lines, index));
            ADD_FAILURE() << index;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Missing 'end' for block") << index;
        }
    }
}

}  // namespace
