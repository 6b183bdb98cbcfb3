#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

using Tokens = std::vector<std::string>;

class Tokeniser : public testing::Test {
protected:
    Tokens tokens(const std::string& line) { return interpreter.tokenise(line); }

    /// The report that cutting `line` raises; empty if it raises nothing.
    std::string report(const std::string& line) {
        try {
            static_cast<void>(interpreter.tokenise(line));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return {};
    }

    DovrelScript interpreter;
};

TEST_F(Tokeniser, GivesNothingForNothing) {
    EXPECT_EQ(tokens(""), Tokens{});
    EXPECT_EQ(tokens(" \t\r\n\v\f "), Tokens{});
    EXPECT_EQ(tokens("@@ a comment"), Tokens{});
}

TEST_F(Tokeniser, EndsWordsAtEveryWhiteSpace) {
    EXPECT_EQ(tokens("a b\tc\rd\ne\vf\fg"), (Tokens{"a", "b", "c", "d", "e", "f", "g"}));
    EXPECT_EQ(tokens("  a  \t b\r"), (Tokens{"a", "b"}));
}

TEST_F(Tokeniser, JoinsNoSignToANumber) {
    EXPECT_EQ(tokens("-1"), (Tokens{"-", "1"}));
    EXPECT_EQ(tokens("x=-1"), (Tokens{"x", "=", "-", "1"}));
    EXPECT_EQ(tokens("1e-5"), (Tokens{"1e", "-", "5"}));
    EXPECT_EQ(tokens("1e5 1.5 .5 5. 1.2.3"), (Tokens{"1e5", "1.5", ".5", "5.", "1.2.3"}));
}

TEST_F(Tokeniser, KnowsAllTokensOfTwoCharacters) {
    for (const std::string symbol :
         {"!=", "%=", "*=", "+=", "-=", "/=", "<=", "==", ">=", "\\=", "^=", "&&", "||", "~="}) {
        EXPECT_EQ(tokens("a" + symbol + "b"), (Tokens{"a", symbol, "b"})) << symbol;
        EXPECT_EQ(tokens(symbol), Tokens{symbol});
        EXPECT_EQ(tokens(symbol + symbol), (Tokens{symbol, symbol})) << symbol;
    }
}

TEST_F(Tokeniser, KnowsAllTokensOfOneCharacter) {
    for (const char c : std::string("!#%()*+,-/:;<=>[\\]^{}")) {
        const std::string symbol(1, c);
        EXPECT_EQ(tokens("a" + symbol + "b"), (Tokens{"a", symbol, "b"})) << symbol;
        EXPECT_EQ(tokens("a" + symbol), (Tokens{"a", symbol})) << symbol;
        EXPECT_EQ(tokens(symbol), Tokens{symbol});
        EXPECT_EQ(tokens(symbol + " ="), (Tokens{symbol, "="})) << symbol;
    }
}

TEST_F(Tokeniser, JoinsEqualsSignsToOperatorsOnly) {
    for (const char c : std::string("#(),:;[]{}")) {
        const std::string symbol(1, c);
        EXPECT_EQ(tokens("a" + symbol + "=b"), (Tokens{"a", symbol, "=", "b"})) << symbol;
    }
}

TEST_F(Tokeniser, JoinsNoThirdCharacter) {
    EXPECT_EQ(tokens("==="), (Tokens{"==", "="}));
    EXPECT_EQ(tokens("===="), (Tokens{"==", "=="}));
    EXPECT_EQ(tokens("<<="), (Tokens{"<", "<="}));
    EXPECT_EQ(tokens("a<<b"), (Tokens{"a", "<", "<", "b"}));
    EXPECT_EQ(tokens("&&&"), (Tokens{"&&", "&"}));
    EXPECT_EQ(tokens("|||"), (Tokens{"||", "|"}));
    EXPECT_EQ(tokens("=>"), (Tokens{"=", ">"}));
    EXPECT_EQ(tokens("=!"), (Tokens{"=", "!"}));
}

TEST_F(Tokeniser, KeepsLoneAmpersandsBarsAndTildesInWords) {
    EXPECT_EQ(tokens("a&b a|b a~b"), (Tokens{"a&b", "a|b", "a~b"}));
    EXPECT_EQ(tokens("a &"), (Tokens{"a", "&"}));
    EXPECT_EQ(tokens("a& a| a~"), (Tokens{"a&", "a|", "a~"}));
    EXPECT_EQ(tokens("& | ~"), (Tokens{"&", "|", "~"}));
    EXPECT_EQ(tokens("&= |="), (Tokens{"&", "=", "|", "="}));
    EXPECT_EQ(tokens("~~="), (Tokens{"~", "~="}));
    EXPECT_EQ(tokens("&|&&"), (Tokens{"&|", "&&"}));
}

TEST_F(Tokeniser, TakesAllOtherBytesAsWords) {
    EXPECT_EQ(tokens("a.b $x _y ?z `q` a@b @ ..."),
              (Tokens{"a.b", "$x", "_y", "?z", "`q`", "a@b", "@", "..."}));
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool isSpace = byte == ' ' || (byte >= 9 && byte <= 13);
        const bool isSymbol = std::string("!#%()*+,-/:;<=>[\\]^{}\"'").find(c) != std::string::npos;
        if (isSpace || isSymbol) continue;
        const std::string word = std::string("a") + c + "b";
        EXPECT_EQ(tokens(word), Tokens{word}) << byte;
        EXPECT_EQ(tokens(std::string(1, c)), Tokens{std::string(1, c)}) << byte;
    }
    const std::string zero("a\0b", 3);
    EXPECT_EQ(tokens(zero), Tokens{zero});
}

TEST_F(Tokeniser, CutsStatements) {
    EXPECT_EQ(tokens("a+=1"), (Tokens{"a", "+=", "1"}));
    EXPECT_EQ(tokens("a+ =1"), (Tokens{"a", "+", "=", "1"}));
    EXPECT_EQ(tokens("x!=y"), (Tokens{"x", "!=", "y"}));
    EXPECT_EQ(tokens("f(a,b)"), (Tokens{"f", "(", "a", ",", "b", ")"}));
    EXPECT_EQ(tokens("t[\"k\"]=#s"), (Tokens{"t", "[", "\"k\"", "]", "=", "#", "s"}));
}

TEST_F(Tokeniser, StopsAtAComment) {
    EXPECT_EQ(tokens("x = 1 @@ y"), (Tokens{"x", "=", "1"}));
    EXPECT_EQ(tokens("a@@b"), Tokens{"a"});
    EXPECT_EQ(tokens("a@@"), Tokens{"a"});
    EXPECT_EQ(tokens("f(@@)"), (Tokens{"f", "("}));
    EXPECT_EQ(tokens("a@ @b@@@c"), (Tokens{"a@", "@b"}));
    EXPECT_EQ(tokens("@@ \"open"), Tokens{});
}

TEST_F(Tokeniser, KeepsQuotesAndEscapesOfStrings) {
    EXPECT_EQ(tokens("'it\\'s'"), Tokens{"'it\\'s'"});
    EXPECT_EQ(tokens("\"a\\\"b\""), Tokens{"\"a\\\"b\""});
    EXPECT_EQ(tokens("\"a\\\\\" b"), (Tokens{"\"a\\\\\"", "b"}));
    EXPECT_EQ(tokens("\"it's\" 'a \"b\"'"), (Tokens{"\"it's\"", "'a \"b\"'"}));
    EXPECT_EQ(tokens("\"@@\" '; ( ['"), (Tokens{"\"@@\"", "'; ( ['"}));
    EXPECT_EQ(tokens("\"\" ''"), (Tokens{"\"\"", "''"}));
    EXPECT_EQ(tokens("\"a\nb\tc\""), Tokens{"\"a\nb\tc\""});
}

TEST_F(Tokeniser, EndsAWordAtAQuote) {
    EXPECT_EQ(tokens("print\"x\"y"), (Tokens{"print", "\"x\"", "y"}));
    EXPECT_EQ(tokens("\"a\"\"b\"'c'"), (Tokens{"\"a\"", "\"b\"", "'c'"}));
    EXPECT_EQ(tokens("a'b'&&'c'"), (Tokens{"a", "'b'", "&&", "'c'"}));
}

TEST_F(Tokeniser, RefusesAnOpenString) {
    const std::string line = "x = \"abc 'd' @@";
    interpreter.currentLine = &line;
    interpreter.currentLineNumber = 6;
    EXPECT_EQ(report(line),
              "DovrelScript error: Unterminated string literal\n"
              "  at line 7, near token '\"abc 'd' @@'\n"
              "  x = \"abc 'd' @@\n"
              "      ^~~~~~~~~~~\n"
              "  hint: check spelling, operators, parentheses, and quote matching\n");
    interpreter.currentLine = nullptr;
}

TEST_F(Tokeniser, RefusesEveryFormOfAnOpenString) {
    EXPECT_NE(report("\""), "");
    EXPECT_NE(report("a '"), "");
    EXPECT_NE(report("\"a\\\""), "");
    EXPECT_NE(report("\"a\\"), "");
    EXPECT_NE(report("'a\"b"), "");
    EXPECT_EQ(report("\"a\\\\\""), "");
}

}  // namespace
