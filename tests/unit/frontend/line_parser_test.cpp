#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

using Tokens = std::vector<std::string>;

/// What the line parser itself fills of a record.
struct Record {
    std::string source;
    std::size_t lineNumber;

    bool operator==(const Record&) const = default;
};

void PrintTo(const Record& record, std::ostream* out) {
    *out << record.lineNumber << ": " << testing::PrintToString(record.source);
}

class LineParser : public testing::Test {
protected:
    std::vector<Record> records(const std::string& source) {
        std::vector<Record> result;
        for (const ParsedScriptLine& line : interpreter.parseLines(source)) {
            result.push_back({line.source, line.lineNumber});
        }
        return result;
    }
    /// The tokens of a text that is one logical line.
    Tokens tokensOf(const std::string& source) {
        const std::vector<ParsedScriptLine> lines = interpreter.parseLines(source);
        EXPECT_EQ(lines.size(), 1U);
        return lines.empty() ? Tokens{} : lines[0].tokens;
    }

    DovrelScript interpreter;
};

using Records = std::vector<Record>;

TEST_F(LineParser, GivesNoRecordsForAnEmptySource) { EXPECT_EQ(records(""), Records{}); }

TEST_F(LineParser, GivesOneRecordForEachLine) {
    EXPECT_EQ(records("a = 1\nb = 2\nc = 3"), (Records{{"a = 1", 0}, {"b = 2", 1}, {"c = 3", 2}}));
}

TEST_F(LineParser, StartsNoLineBehindAFinalLineFeed) {
    EXPECT_EQ(records("a = 1\n"), (Records{{"a = 1", 0}}));
    EXPECT_EQ(records("\n"), (Records{{"", 0}}));
    EXPECT_EQ(records("a\n\n"), (Records{{"a", 0}, {"", 1}}));
}

TEST_F(LineParser, GivesAnEmptyRecordForAnEmptyLine) {
    EXPECT_EQ(records("\n\na\n\nb"), (Records{{"", 0}, {"", 1}, {"a", 2}, {"", 3}, {"b", 4}}));
}

TEST_F(LineParser, GivesNoRecordForALineOfBlanks) {
    EXPECT_EQ(records("  \n\t\n \t \na"), (Records{{"a", 3}}));
}

TEST_F(LineParser, GivesARecordForACommentAtTheStartOfALineOnly) {
    EXPECT_EQ(records("@@ note\na"), (Records{{"", 0}, {"a", 1}}));
    EXPECT_EQ(records("  @@ note\na"), (Records{{"a", 1}}));
    EXPECT_EQ(records("@@\n@@@@\n"), (Records{{"", 0}, {"", 1}}));
    EXPECT_EQ(records(";@@ note"), Records{});
}

TEST_F(LineParser, LeavesEmptyRecordsWithoutTokens) {
    const std::vector<ParsedScriptLine> lines = interpreter.parseLines("\n@@ note\n");
    ASSERT_EQ(lines.size(), 2U);
    for (const ParsedScriptLine& line : lines) {
        EXPECT_TRUE(line.source.empty());
        EXPECT_TRUE(line.tokens.empty());
        EXPECT_TRUE(line.tokenAnalysis.empty());
        EXPECT_TRUE(line.prepared);
        EXPECT_EQ(line.kind, LineKind::Empty);
    }
}

TEST_F(LineParser, TrimsBlanksAndTabsOnly) {
    EXPECT_EQ(records(" \t a = 1 \t "), (Records{{"a = 1", 0}}));
    EXPECT_EQ(records("a = 1\r\nb"), (Records{{"a = 1\r", 0}, {"b", 1}}));
    EXPECT_EQ(records("\f a \v"), (Records{{"\f a \v", 0}}));
    EXPECT_EQ(records("\r\n"), (Records{{"\r", 0}}));
}

TEST_F(LineParser, CutsCommentsOff) {
    EXPECT_EQ(records("a = 1 @@ b"), (Records{{"a = 1", 0}}));
    EXPECT_EQ(records("a = 1@@ ; b = 2"), (Records{{"a = 1", 0}}));
    EXPECT_EQ(records("a = \"@@\" @@ b"), (Records{{"a = \"@@\"", 0}}));
    EXPECT_EQ(records("a@b"), (Records{{"a@b", 0}}));
    EXPECT_EQ(records("a @"), (Records{{"a @", 0}}));
}

TEST_F(LineParser, EndsAStatementAtASemicolon) {
    EXPECT_EQ(records("a = 1; b = 2"), (Records{{"a = 1", 0}, {"b = 2", 0}}));
    EXPECT_EQ(records("if x; print(1); end"), (Records{{"if x", 0}, {"print(1)", 0}, {"end", 0}}));
    EXPECT_EQ(records("a;b;\nc;"), (Records{{"a", 0}, {"b", 0}, {"c", 1}}));
}

TEST_F(LineParser, GivesNoRecordForAnEmptyStatement) {
    EXPECT_EQ(records(";;"), Records{});
    EXPECT_EQ(records("; a ;; ; b ;"), (Records{{"a", 0}, {"b", 0}}));
    EXPECT_EQ(records(" ;\t;"), Records{});
}

TEST_F(LineParser, KeepsSemicolonsInStringsAndBrackets) {
    EXPECT_EQ(records("x = \"a;b\""), (Records{{"x = \"a;b\"", 0}}));
    EXPECT_EQ(records("x = ';' ; y"), (Records{{"x = ';'", 0}, {"y", 0}}));
    for (const std::string text : {"f(1;2)", "a[1;2]", "t = {1;2}"}) {
        EXPECT_EQ(records(text), (Records{{text, 0}}));
    }
    EXPECT_EQ(tokensOf("f(1;2)"), (Tokens{"f", "(", "1", ";", "2", ")"}));
}

TEST_F(LineParser, JoinsLinesWhileABracketIsOpen) {
    for (const std::string pair : {"()", "[]", "{}"}) {
        const std::string open(1, pair[0]);
        const std::string close(1, pair[1]);
        EXPECT_EQ(records("x = " + open + "\n  1\n" + close + "\ny"),
                  (Records{{"x = " + open + " 1 " + close, 0}, {"y", 3}}));
    }
    EXPECT_EQ(records("a = ([{\n}\n]\n)\nb"), (Records{{"a = ([{ } ] )", 0}, {"b", 4}}));
}

TEST_F(LineParser, DropsBlankLinesAndCommentsInsideBrackets) {
    EXPECT_EQ(records("a\nt = { @@ first\n\n  \t\n@@ second\n  k: 1, @@ }\n}\nb"),
              (Records{{"a", 0}, {"t = { k: 1, }", 1}, {"b", 7}}));
}

TEST_F(LineParser, CountsBracketsByKind) {
    EXPECT_EQ(records("f(]\n)\nb"), (Records{{"f(] )", 0}, {"b", 2}}));
    EXPECT_EQ(records("f[}\n)\n]\nb"), (Records{{"f[} ) ]", 0}, {"b", 3}}));
}

TEST_F(LineParser, CountsNoBracketBelowZero) {
    EXPECT_EQ(records(")]}\na"), (Records{{")]}", 0}, {"a", 1}}));
    EXPECT_EQ(records(")(\n)\na"), (Records{{")( )", 0}, {"a", 2}}));
    EXPECT_EQ(records("); a"), (Records{{")", 0}, {"a", 0}}));
}

TEST_F(LineParser, IgnoresBracketsInStringsAndComments) {
    EXPECT_EQ(records("x = \"(\"\ny = '[' @@ {\nz"),
              (Records{{"x = \"(\"", 0}, {"y = '['", 1}, {"z", 2}}));
}

TEST_F(LineParser, JoinsAStringOverLinesWithOneBlank) {
    EXPECT_EQ(records("x = \"abc  \t\n \t def\"\ny"), (Records{{"x = \"abc def\"", 0}, {"y", 2}}));
    EXPECT_EQ(tokensOf("x = \"abc\n\n\ndef\""), (Tokens{"x", "=", "\"abc def\""}));
    EXPECT_EQ(tokensOf("x = 'a\n;@@\n('"), (Tokens{"x", "=", "'a ;@@ ('"}));
    EXPECT_EQ(tokensOf("x = \"a\r\nb\""), (Tokens{"x", "=", "\"a\r b\""}));
}

TEST_F(LineParser, AgreesWithTheTokeniserOnAnEscapeAtTheEndOfALine) {
    EXPECT_EQ(tokensOf("x = \"a\\\nb\""), (Tokens{"x", "=", "\"a\\ b\""}));
    EXPECT_EQ(tokensOf("x = \"a\\\n\""), (Tokens{"x", "=", "\"a\\ \""}));
    EXPECT_EQ(tokensOf("x = \"a\\\n\n\""), (Tokens{"x", "=", "\"a\\ \""}));
    EXPECT_EQ(tokensOf("x = \"a\\  \n\""), (Tokens{"x", "=", "\"a\\ \""}));
    EXPECT_EQ(tokensOf("x = \"a\\\\\n\""), (Tokens{"x", "=", "\"a\\\\ \""}));
    EXPECT_EQ(records("x = \"a\\\n\"\ny"), (Records{{"x = \"a\\ \"", 0}, {"y", 2}}));
}

TEST_F(LineParser, AgreesWithTheTokeniserOnQuotes) {
    EXPECT_EQ(records("x = \"it's\"; y"), (Records{{"x = \"it's\"", 0}, {"y", 0}}));
    EXPECT_EQ(records("x = \"\\\";\"; y"), (Records{{"x = \"\\\";\"", 0}, {"y", 0}}));
    EXPECT_EQ(records("x = \"\\\\\"; y"), (Records{{"x = \"\\\\\"", 0}, {"y", 0}}));
}

TEST_F(LineParser, NumbersAStatementByTheLineOnWhichItBegan) {
    EXPECT_EQ(records("\n  a = (\n 1); b = [\n2]\nc"),
              (Records{{"", 0}, {"a = ( 1)", 1}, {"b = [ 2]", 2}, {"c", 4}}));
    EXPECT_EQ(records("x;  \n(\n\n1)"), (Records{{"x", 0}, {"( 1)", 1}}));
}

TEST_F(LineParser, FlushesAnOpenBracketAtTheEnd) {
    EXPECT_EQ(records("a = (1"), (Records{{"a = (1", 0}}));
    EXPECT_EQ(records("a = (1\nb = 2\n\n"), (Records{{"a = (1 b = 2", 0}}));
}

TEST_F(LineParser, JoinsNothingForAnOperatorOrComma) {
    EXPECT_EQ(records("a = 1 +\n2,\n3"), (Records{{"a = 1 +", 0}, {"2,", 1}, {"3", 2}}));
}

TEST_F(LineParser, TokenisesAndAnalysesEachLine) {
    const std::vector<ParsedScriptLine> lines = interpreter.parseLines("speed = 12 + tre\n");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].tokens, (Tokens{"speed", "=", "12", "+", "tre"}));
    ASSERT_EQ(lines[0].tokenAnalysis.size(), 5U);
    EXPECT_TRUE(lines[0].tokenAnalysis[0].isIdentifier);
    EXPECT_FALSE(lines[0].tokenAnalysis[1].isIdentifier);
    EXPECT_EQ(lines[0].tokenAnalysis[2].intValue, 12);
    EXPECT_TRUE(lines[0].tokenAnalysis[4].isTrue);
}

TEST_F(LineParser, PreparesTheLines) {
    const std::vector<ParsedScriptLine> lines = interpreter.parseLines("if x\ny = 1\nend");
    ASSERT_EQ(lines.size(), 3U);
    for (const ParsedScriptLine& line : lines) EXPECT_TRUE(line.prepared);
    EXPECT_EQ(lines[0].matchingEnd, 2U);
}

TEST_F(LineParser, RaisesNothingButAnOpenString) {
    for (const std::string text : {"a = (1", "end\nelse\nuntil", "if", "for", ")]}", "x = = 1"}) {
        EXPECT_NO_THROW(static_cast<void>(interpreter.parseLines(text))) << text;
    }
    try {
        static_cast<void>(interpreter.parseLines("a = 1\nb = [2,\n 'open"));
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(),
                     "DovrelScript error: Unterminated string literal\n"
                     "  at line 1, near token ''open'\n"
                     "  b = [2, 'open\n"
                     "          ^~~~~\n"
                     "  hint: check spelling, operators, parentheses, and quote matching\n");
    }
}

TEST_F(LineParser, LeavesTheNumberOfTheLastLineThatRan) {
    interpreter.runScript("x = 1\n\n\nx = 2");
    try {
        static_cast<void>(interpreter.parseLines("y = 1\nz = \"open"));
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("at line 4, near token '\"open'\n  z = \"open\n"),
                  std::string::npos)
            << error.what();
    }
}

TEST_F(LineParser, TakesLongTextsAndManyLines) {
    std::string source;
    for (int i = 0; i < 5000; ++i) source += "value = [" + std::string(300, ' ') + "\n1]\n";
    const std::vector<Record> all = records(source);
    ASSERT_EQ(all.size(), 5000U);
    EXPECT_EQ(all[4999], (Record{"value = [ 1]", 9998}));
}

}  // namespace
