// Stepping over expressions without evaluating them.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

class TokenSkipper : public testing::Test {
protected:
    /// Where skipping `text` at `level` ends, as the texts of the tokens that are left; or the
    /// first line of the failure and its near token.
    std::string rest(const std::string& text, int level = 1) {
        return restOf(interpreter_.tokenise(text), level);
    }
    std::string restOf(const std::vector<std::string>& tokens, int level = 1) {
        std::string first = outcome(tokens, level, nullptr);
        std::vector<TokenAnalysis> analysis;
        for (const std::string& token : tokens) {
            analysis.push_back(interpreter_.analyseToken(token));
        }
        EXPECT_EQ(outcome(tokens, level, &analysis), first) << "with an analysis";
        return first;
    }

    DovrelScript interpreter_;

private:
    std::string outcome(const std::vector<std::string>& tokens, int level,
                        const std::vector<TokenAnalysis>* analysis) {
        std::size_t position = 0;
        try {
            interpreter_.skipExpression(tokens, position, level, analysis);
        } catch (const std::runtime_error& error) {
            const std::string report = error.what();
            const std::string marker = "DovrelScript error: ";
            const std::string near = ", near token '";
            const std::size_t lineEnd = report.find('\n');
            const std::size_t clause = report.find(near);
            const std::size_t token = clause + near.size();
            return report.substr(marker.size(), lineEnd - marker.size()) + " | " +
                   (clause == std::string::npos
                        ? "nothing"
                        : report.substr(token, report.find("'\n", token) - token));
        }
        std::string left;
        for (std::size_t i = position; i < tokens.size(); ++i) left += tokens[i] + " ";
        return left;
    }
};

TEST_F(TokenSkipper, StepsOverEveryForm) {
    for (const std::string text : {"1",
                                   "1.5",
                                   "name",
                                   "'text'",
                                   "true",
                                   "flse",
                                   "...",
                                   "not",
                                   "not x",
                                   "not not",
                                   "!x",
                                   "-1",
                                   "- - 1",
                                   "+x",
                                   "#x",
                                   "(1)",
                                   "((1 + 2))",
                                   "[]",
                                   "[1, 2]",
                                   "[1,]",
                                   "[[1], {}]",
                                   "{}",
                                   "{1, 2,}",
                                   "{a: 1, b = 2}",
                                   "{'q': 1, 5: 2, true: 3}",
                                   "{[1]: 2, [x] = 3}",
                                   "{1, x: 2}",
                                   "f()",
                                   "f(1)",
                                   "f(1, g(2))",
                                   "a[1]",
                                   "a[1][2]",
                                   "f(1)(2)[3](4)",
                                   "'text'[1]",
                                   "(f)(1)",
                                   "[1, 2][1]",
                                   "{a: 1}['a']",
                                   "1 + 2",
                                   "1 + 2 * 3 ^ 4 ^ 5",
                                   "a and b or not c",
                                   "a == b != c ~= d",
                                   "1 < 2 && 3 >= 4 || 5",
                                   "-x ^ -y",
                                   "2 ^ not x",
                                   "1 \\ 2 % 3 / 4"}) {
        EXPECT_EQ(rest(text), "") << text;
    }
}

TEST_F(TokenSkipper, StopsBehindTheExpression) {
    EXPECT_EQ(rest("1 2"), "2 ");
    EXPECT_EQ(rest("a b"), "b ");
    EXPECT_EQ(rest("1, 2"), ", 2 ");
    EXPECT_EQ(rest("1)"), ") ");
    EXPECT_EQ(rest("a] = 2"), "] = 2 ");
    EXPECT_EQ(rest("x = 1"), "= 1 ");
    EXPECT_EQ(rest("x : 1"), ": 1 ");
    EXPECT_EQ(rest("not - 1"), "");
    EXPECT_EQ(rest("not end"), "end ");
    EXPECT_EQ(rest("not )"), ") ");
}

TEST_F(TokenSkipper, LiteralsWithoutPostfixStopInFront) {
    EXPECT_EQ(rest("5[1]"), "[ 1 ] ");
    EXPECT_EQ(rest("true(1)"), "( 1 ) ");
    EXPECT_EQ(rest("...[1]"), "[ 1 ] ");
    EXPECT_EQ(rest("not(1)[2]"), "");
}

TEST_F(TokenSkipper, StopsAtOperatorsBelowItsLevel) {
    EXPECT_EQ(rest("1 or 2", 2), "or 2 ");
    EXPECT_EQ(rest("1 and 2 or 3", 2), "or 3 ");
    EXPECT_EQ(rest("1 == 2 and 3", 3), "and 3 ");
    EXPECT_EQ(rest("1 < 2 == 3", 4), "== 3 ");
    EXPECT_EQ(rest("1 + 2 < 3", 5), "< 3 ");
    EXPECT_EQ(rest("1 * 2 + 3", 6), "+ 3 ");
    EXPECT_EQ(rest("1 ^ 2 * 3", 7), "* 3 ");
    EXPECT_EQ(rest("-1 * 3", 7), "* 3 ");
    EXPECT_EQ(rest("1 ^ 2 ^ 3", 7), "");
}

TEST_F(TokenSkipper, RaisesTheMessagesOfTheEvaluator) {
    EXPECT_EQ(rest(""), "Unexpected end of expression | EOF");
    EXPECT_EQ(rest("-"), "Unexpected end of expression | EOF");
    EXPECT_EQ(rest("1 +"), "Unexpected end of expression | EOF");
    EXPECT_EQ(rest("("), "Unexpected end of expression | EOF");
    EXPECT_EQ(rest("(1"), "Expected closing parenthesis | )");
    EXPECT_EQ(rest("(1 2)"), "Expected closing parenthesis | )");
    EXPECT_EQ(rest("a[1"), "Expected closing bracket | ]");
    EXPECT_EQ(rest("a[1 2]"), "Expected closing bracket | ]");
    EXPECT_EQ(rest("a[]"), "Unknown token: ] | ]");
    EXPECT_EQ(rest("f(1"), "Expected ',' or ')' after function argument | )");
    EXPECT_EQ(rest("f(1 2)"), "Expected ',' or ')' after function argument | 2");
    EXPECT_EQ(rest("f(1,)"), "Unknown token: ) | )");
    EXPECT_EQ(rest("[1"), "Expected ',' or ']' in array literal | ]");
    EXPECT_EQ(rest("[1 2]"), "Expected ',' or ']' in array literal | 2");
    EXPECT_EQ(rest("[1,"), "Unexpected end of expression | EOF");
    EXPECT_EQ(rest("{"), "Unexpected end of table literal | EOF");
    EXPECT_EQ(rest("{1,"), "Unexpected end of table literal | EOF");
    EXPECT_EQ(rest("{1"), "Expected ',' or '}' in table literal | }");
    EXPECT_EQ(rest("{a 1}"), "Expected ',' or '}' in table literal | 1");
    EXPECT_EQ(rest("{[1"), "Expected ']' after table key | ]");
    EXPECT_EQ(rest("{[1)"), "Expected ']' after table key | )");
    EXPECT_EQ(rest("{[1]"), "Expected ':' after table key | :");
    EXPECT_EQ(rest("{[1] 2}"), "Expected ':' after table key | 2");
    EXPECT_EQ(rest("{: 1}"), "Unknown token: : | :");
    EXPECT_EQ(rest("a.b"), "Unknown token: a.b | a.b");
    EXPECT_EQ(rest("1e5"), "Unknown token: 1e5 | 1e5");
    EXPECT_EQ(rest("1 == = 2"), "Unknown token: = | =");
}

TEST_F(TokenSkipper, PassesWhatOnlyAValueWouldShow) {
    EXPECT_EQ(rest("1 / 0"), "");
    EXPECT_EQ(rest("-'text'"), "");
    EXPECT_EQ(rest("unknown()[1]"), "");
    EXPECT_EQ(rest("99999999999999999999999999999999999999999999999999"), "");
    EXPECT_EQ(rest("{+: 1}"), "");
    EXPECT_EQ(rest("{a.b = 1}"), "");
}

TEST_F(TokenSkipper, RunsNothing) {
    interpreter_.runScript("calls = 0\nfunction f()\n  calls += 1\nend");
    EXPECT_EQ(rest("f() + [f(), {a: f()}][f()]"), "");
    EXPECT_EQ(interpreter_.resolveVariablePtr(interpreter_.names.intern("calls"))->asInt(), 0);
}

TEST_F(TokenSkipper, NumbersMayHaveASign) {
    // Such tokens come from a bytecode file only.
    EXPECT_EQ(restOf({"-1"}), "");
    EXPECT_EQ(restOf({"+1.5"}), "");
    EXPECT_EQ(restOf({"."}), "Unknown token: . | .");
    EXPECT_EQ(restOf({"1.2.3"}), "Unknown token: 1.2.3 | 1.2.3");
    EXPECT_EQ(restOf({"5."}), "");
    EXPECT_EQ(restOf({".5"}), "");
}

TEST_F(TokenSkipper, AnEmptyTokenIsNoOperand) {
    EXPECT_EQ(restOf({""}), "Unknown token:  | nothing");
    EXPECT_EQ(restOf({"not", ""}), " ");
    EXPECT_EQ(restOf({"1", "", "2"}), " 2 ");
}

TEST_F(TokenSkipper, LeavesTheLastTokenBehind) {
    EXPECT_EQ(rest("f(a, [1]) + b"), "");
    EXPECT_EQ(interpreter_.lastToken, "b");
    EXPECT_EQ(interpreter_.lastTokenIndex, 9U);
    EXPECT_EQ(rest("a + (b) 7"), "7 ");
    EXPECT_EQ(interpreter_.lastToken, ")");
    EXPECT_EQ(rest("not"), "");
    EXPECT_EQ(interpreter_.lastToken, "not");
    // Operators are passed silently.
    EXPECT_EQ(rest("a +"), "Unexpected end of expression | EOF");
    EXPECT_EQ(interpreter_.lastToken, "a");
    EXPECT_EQ(rest("a + - %"), "Unknown token: % | %");
    EXPECT_EQ(interpreter_.lastToken, "%");
}

}  // namespace
