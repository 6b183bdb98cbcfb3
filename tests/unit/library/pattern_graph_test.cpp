#include "library/pattern_graph.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

bool isRead(std::string_view expression) { return readPatternGraph(expression, false).has_value(); }

/// The bytes of the only set of an expression.
std::string bytesOf(std::string_view expression, bool ignoresCase = false) {
    const auto graph = readPatternGraph(expression, ignoresCase);
    if (!graph || graph->sets.size() != 1) return "no such set";
    std::string bytes;
    graph->sets[0].forEach([&](unsigned char byte) { bytes += static_cast<char>(byte); });
    return bytes;
}

TEST(PatternGraph, ReadsWhatTheDialectIsTranslatedTo) {
    for (const char* const expression :
         {"", "abc", "(\\w+)=([^,]*)", "^.*?$", "[A-Za-z]+\\-", "a**", "()", "a|b|", "(?:a|b)+?",
          "a{2,3}", "a{2}", "a{2,}?", "\\bword\\B", "[]", "[^]", "]}", "\\x41\\u0041\\cA\\0"}) {
        EXPECT_TRUE(isRead(expression)) << expression;
    }
}

TEST(PatternGraph, LeavesToTheStandardLibraryWhatOnlyThatKnows) {
    for (const char* const expression : {"(a)\\1", "(?=a)", "(?!a)", "[[=a=]]", "[[.a.]]"}) {
        EXPECT_FALSE(isRead(expression)) << expression;
    }
}

TEST(PatternGraph, RefusesWhatIsNoExpression) {
    for (const char* const expression :
         {"(",     ")",       "[a",         "*",         "a|*",       "^*",
          "a{",    "a{2",     "a{,2}",      "a{3,2}",    "{2}",       "\\",
          "[b-a]", "[\\d-x]", "[a-\\d]",    "(?a)",      "\\x4",      "\\u004",
          "[\\B]", "\\c",     "[[:name:]]", "[[:alpha]", "[[:alpha:", "[a-[:alpha:]]",
          "[["}) {
        EXPECT_FALSE(isRead(expression)) << expression;
    }
}

TEST(PatternGraph, RefusesWhatWouldBeTooLarge) {
    EXPECT_TRUE(isRead(std::string(5000, 'a')));
    EXPECT_FALSE(isRead(std::string(30000, 'a')));
    EXPECT_FALSE(isRead("((((a{99}){99}){99}){99}"));
    EXPECT_FALSE(isRead(std::string(300, '(') + std::string(300, ')')));
}

TEST(PatternGraph, ReadsTheOddSets) {
    EXPECT_EQ(bytesOf("[a^]"), "^a");
    EXPECT_EQ(bytesOf("[-a]"), "-a");
    EXPECT_EQ(bytesOf("[a-]"), "-a");
    EXPECT_EQ(bytesOf("[a-c-e]"), "-abce");
    EXPECT_EQ(bytesOf("[+--]"), "+,-");
    EXPECT_EQ(bytesOf("[[\\]]"), "[]");
    EXPECT_EQ(bytesOf("[\\b\\n]"), "\b\n");
    EXPECT_EQ(bytesOf("\\s"), "\t\n\v\f\r ");
    EXPECT_EQ(bytesOf("[B-D]", true), "BCDbcd");
    EXPECT_EQ(bytesOf("k", true), "Kk");
    EXPECT_EQ(bytesOf("\\u0162"), "b");
    EXPECT_EQ(bytesOf("[[:Blank:]_]"), "\t _");
    EXPECT_EQ(bytesOf("[[:upper:]]", true), bytesOf("[a-z]", true));
}

TEST(PatternGraph, ADotTakesNoLineEnd) {
    const std::string bytes = bytesOf(".");
    EXPECT_EQ(bytes.size(), 254U);
    EXPECT_EQ(bytes.find('\n'), std::string::npos);
    EXPECT_EQ(bytes.find('\r'), std::string::npos);
    EXPECT_NE(bytes.find('\v'), std::string::npos);
    EXPECT_NE(bytes.find('\0'), std::string::npos);
}

}  // namespace
