#include "frontend/token_analysis.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "interpreter/dovrel_script.h"

namespace {

TEST(IsIdentifier, TakesLettersDigitsUnderscoreAndDollar) {
    for (const char* word :
         {"a", "Z", "_", "$", "x1", "_9", "$$", "camelCase", "if", "end", "not", "true", "tre"}) {
        EXPECT_TRUE(isIdentifier(word)) << word;
    }
    for (const char* word : {"", "1", "1a", "a.b", "a-b", "a b", "...", "a?", "@a", "\"a\"", "'a'",
                             "+", "a\xC3\xA9", "\xC3\xA9", "a\x01"}) {
        EXPECT_FALSE(isIdentifier(word)) << word;
    }
    EXPECT_FALSE(isIdentifier(std::string("a\0", 2)));
}

TEST(IsTrueToken, KnowsFourSpellings) {
    for (const char* word : {"true", "ture", "tre", "tue"}) {
        EXPECT_TRUE(isTrueToken(word)) << word;
        EXPECT_FALSE(isFalseToken(word)) << word;
    }
    for (const char* word : {"", "True", "TRUE", "t", "tru", "treu", "truee", " true", "1"}) {
        EXPECT_FALSE(isTrueToken(word)) << word;
    }
}

TEST(IsFalseToken, KnowsFourSpellings) {
    for (const char* word : {"false", "flase", "fasle", "flse"}) {
        EXPECT_TRUE(isFalseToken(word)) << word;
        EXPECT_FALSE(isTrueToken(word)) << word;
    }
    for (const char* word : {"", "False", "fals", "fales", "falsee", "0", "nil", "not"}) {
        EXPECT_FALSE(isFalseToken(word)) << word;
    }
}

TEST(IsQuotedToken, NeedsTheSameQuoteAtBothEnds) {
    EXPECT_TRUE(isQuotedToken("\"\""));
    EXPECT_TRUE(isQuotedToken("'a'"));
    for (const char* token : {"", "\"", "'", "a", "\"a'", "'a\"", "\"a", "a\"", "aa"}) {
        EXPECT_FALSE(isQuotedToken(token)) << token;
    }
}

TEST(DecodeStringToken, TakesQuotesOffAndResolvesEscapes) {
    EXPECT_EQ(decodeStringToken("\"abc\""), "abc");
    EXPECT_EQ(decodeStringToken("'abc'"), "abc");
    EXPECT_EQ(decodeStringToken("\"\""), "");
    EXPECT_EQ(decodeStringToken("'it\\'s'"), "it's");
    EXPECT_EQ(decodeStringToken("\"a\\\"b\""), "a\"b");
    EXPECT_EQ(decodeStringToken("\"\\n\\r\\t\""), "\n\r\t");
    EXPECT_EQ(decodeStringToken("\"a\\\\n\""), "a\\n");
    EXPECT_EQ(decodeStringToken("\"\\\\\\\\\""), "\\\\");
}

TEST(DecodeStringToken, DropsTheBackslashOfAnUnknownEscape) {
    EXPECT_EQ(decodeStringToken("\"a\\qb\""), "aqb");
    EXPECT_EQ(decodeStringToken("\"\\0\\x41\\u\\ \""), "0x41u ");
    EXPECT_EQ(decodeStringToken("\"\\N\\T\""), "NT");
}

TEST(DecodeStringToken, KeepsABackslashAtTheEnd) {
    EXPECT_EQ(decodeStringToken("\"a\\\""), "a\\");
    EXPECT_EQ(decodeStringToken("\"\\\""), "\\");
}

TEST(DecodeStringToken, LeavesOtherTextsAlone) {
    for (const std::string text : {"", "a", "\"", "'", "\"a'", "a\\nb", "\"a", "12"}) {
        EXPECT_EQ(decodeStringToken(text), text);
    }
}

class AnalyseToken : public testing::Test {
protected:
    TokenAnalysis analyse(const std::string& token) { return interpreter.analyseToken(token); }

    void expectInt(const std::string& token, int value) {
        const TokenAnalysis known = analyse(token);
        EXPECT_TRUE(known.isNumeric) << token;
        EXPECT_FALSE(known.isFloat) << token;
        EXPECT_TRUE(known.hasIntValue) << token;
        EXPECT_EQ(known.intValue, value) << token;
        EXPECT_FALSE(known.isIdentifier) << token;
    }
    void expectFloat(const std::string& token) {
        const TokenAnalysis known = analyse(token);
        EXPECT_TRUE(known.isNumeric) << token;
        EXPECT_TRUE(known.isFloat) << token;
        EXPECT_FALSE(known.hasIntValue) << token;
    }
    void expectWholeNumberWithoutIntValue(const std::string& token) {
        const TokenAnalysis known = analyse(token);
        EXPECT_TRUE(known.isNumeric) << token;
        EXPECT_FALSE(known.isFloat) << token;
        EXPECT_FALSE(known.hasIntValue) << token;
    }
    void expectNoNumber(const std::string& token) {
        const TokenAnalysis known = analyse(token);
        EXPECT_FALSE(known.isNumeric) << token;
        EXPECT_FALSE(known.isFloat) << token;
        EXPECT_FALSE(known.hasIntValue) << token;
    }

    DovrelScript interpreter;
};

TEST_F(AnalyseToken, ReadsInts) {
    expectInt("0", 0);
    expectInt("12", 12);
    expectInt("007", 7);
    expectInt("2147483647", std::numeric_limits<int>::max());
    expectInt("-5", -5);
    expectInt("-2147483648", std::numeric_limits<int>::min());
}

TEST_F(AnalyseToken, GivesLargeAndPlusSignedNumbersNoIntValue) {
    expectWholeNumberWithoutIntValue("2147483648");
    expectWholeNumberWithoutIntValue("-2147483649");
    expectWholeNumberWithoutIntValue("99999999999");
    expectWholeNumberWithoutIntValue("+5");
    expectWholeNumberWithoutIntValue(std::string(50, '9'));
}

TEST_F(AnalyseToken, KnowsFloatsByTheirPoint) {
    for (const char* token : {"1.5", ".5", "5.", "0.0", "-1.5", "+.5", "-5.", "00.50"}) {
        expectFloat(token);
    }
}

TEST_F(AnalyseToken, KnowsWhatIsNoNumber) {
    for (const char* token :
         {"",      ".",   "..",  "...", "+",  "-",  "+.",  "-.", "1e5", "1.5e3", "1e",  "0x10",
          "1.2.3", "1..", "--1", "1-",  "1a", "a1", "1_0", " 1", "1 ",  "inf",   "nan", "\"1\""}) {
        expectNoNumber(token);
    }
}

TEST_F(AnalyseToken, KnowsWords) {
    const TokenAnalysis word = analyse("tre");
    EXPECT_TRUE(word.isIdentifier);
    EXPECT_TRUE(word.isTrue);
    EXPECT_FALSE(word.isFalse);
    EXPECT_FALSE(word.isNumeric);

    EXPECT_TRUE(analyse("flse").isFalse);
    EXPECT_FALSE(analyse("flse").isTrue);

    const TokenAnalysis keyword = analyse("if");
    EXPECT_TRUE(keyword.isIdentifier);
    EXPECT_FALSE(keyword.isTrue);

    for (const char* token : {"a.b", "1e5", "+", "\"true\"", "..."}) {
        const TokenAnalysis other = analyse(token);
        EXPECT_FALSE(other.isIdentifier) << token;
        EXPECT_FALSE(other.isTrue) << token;
        EXPECT_FALSE(other.isFalse) << token;
    }
}

TEST_F(AnalyseToken, InternsNames) {
    ASSERT_NE(analyse("speed").name, nullptr);
    EXPECT_EQ(analyse("speed").name->text, "speed");
    EXPECT_EQ(analyse("speed").name, analyse("speed").name);
    EXPECT_NE(analyse("speed").name, analyse("Speed").name);
    EXPECT_EQ(analyse("12").name, nullptr);
    EXPECT_EQ(analyse("\"speed\"").name, nullptr);
}

TEST_F(AnalyseToken, LeavesTheCacheEmpty) {
    interpreter.pushVariable("known", Variable());
    const TokenAnalysis known = analyse("known");
    EXPECT_EQ(known.slotKind, SlotKind::None);
    EXPECT_FALSE(known.globalSlotFound);
    EXPECT_FALSE(known.globalSlotChecked);
    EXPECT_EQ(known.slotDepth, 0);
    EXPECT_EQ(known.slotIndex, 0);
    EXPECT_EQ(known.globalSlot, 0U);
    EXPECT_EQ(known.slotScope, nullptr);
}

}  // namespace
