#include "library/pattern_matcher.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "library/pattern_graph.h"
#include "library/patterns.h"

namespace {

std::unique_ptr<const PatternProgram> programOf(std::string_view expression) {
    const auto graph = readPatternGraph(expression, false);
    return graph ? PatternProgram::make(*graph) : nullptr;
}

std::string placesOf(const PatternMatch& match) {
    std::string places;
    for (std::size_t group = 0; group < match.size(); ++group) {
        if (group > 0) places += ' ';
        if (!match.has(group)) {
            places += '-';
            continue;
        }
        places += std::to_string(match.range(group).first) + ".." +
                  std::to_string(match.range(group).end);
    }
    return places;
}

/// The places of the first match, found in both ways.
std::string search(std::string_view expression, std::string_view text, std::size_t from = 0,
                   SearchMode mode = {}) {
    const auto program = programOf(expression);
    if (program == nullptr) return "no program";
    PatternMatcher matcher;
    PatternMatch match;
    const std::string found =
        matcher.search(*program, text, from, mode, match) ? placesOf(match) : "none";
    const std::string foundAllWays =
        matcher.searchAllWays(*program, text, from, mode, match) ? placesOf(match) : "none";
    EXPECT_EQ(found, foundAllWays);
    return found;
}

TEST(PatternMatcher, TakesTheLeftmostMatchAndThePreferredWay) {
    EXPECT_EQ(search("a+", "baab"), "1..3");
    EXPECT_EQ(search("a+?", "baab"), "1..2");
    EXPECT_EQ(search("a|ab", "ab"), "0..1");
    EXPECT_EQ(search("(.*)-(.*)", "a-b-c"), "0..5 0..3 4..5");
    EXPECT_EQ(search("(.*?)-(.*)", "a-b-c"), "0..5 0..1 2..5");
    EXPECT_EQ(search("x*", "aax"), "0..0");
    EXPECT_EQ(search("b", "aaa"), "none");
}

TEST(PatternMatcher, GroupsKeepWhatTheyMatchedLast) {
    EXPECT_EQ(search("(?:(a)|(b))*", "ab"), "0..2 0..1 1..2");
    EXPECT_EQ(search("(a)?b", "b"), "0..1 -");
    EXPECT_EQ(search("(a*)*", "aa"), "0..2 2..2");
    EXPECT_EQ(search("(a*)+", ""), "0..0 0..0");
}

TEST(PatternMatcher, AFailedStartLeavesNothingInTheGroups) {
    EXPECT_EQ(search("(a)?(b)?c", "abxc"), "3..4 - -");
}

TEST(PatternMatcher, KnowsWhereASearchBegins) {
    EXPECT_EQ(search("^a", "aa", 1), "1..2");
    EXPECT_EQ(search("^a", "aa", 1, {.atLineBegin = false}), "none");
    EXPECT_EQ(search("\\ba", "aa", 1), "1..2");
    EXPECT_EQ(search("\\ba", "aa", 1, {.atLineBegin = false}), "none");
    EXPECT_EQ(search("a", "ba", 0, {.onlyHere = true}), "none");
    EXPECT_EQ(search("a*?", "aa", 0, {.onlyHere = true, .refusesEmpty = true}), "0..1");
    EXPECT_EQ(search("a*", "b", 0, {.onlyHere = true, .refusesEmpty = true}), "none");
    EXPECT_EQ(search("$", "ab", 2), "2..2");
}

TEST(PatternMatcher, ChangesItsWayInTheMiddleOfASearch) {
    // The first match stands behind thousands of starts that have looked far ahead in vain.
    const std::string text = std::string(3000, 'a') + "\nbaac" + std::string(2000, 'a');
    EXPECT_EQ(search("(a.*)c", text), "3002..3005 3002..3004");
    EXPECT_EQ(search("((a)|.)*c", text), "3001..3005 3003..3004 3003..3004");
}

TEST(PatternMatcher, KeepsFewWaysOpen) {
    const std::string text(600000, 'a');
    EXPECT_EQ(search("(?:a|(b))*(?:a|c)c?d?$", text), "0..600000 -");
}

TEST(PatternMatcher, HoldsAnyNumberOfGroups) {
    std::string expression;
    std::string places = "0..20";
    for (int i = 0; i < 20; ++i) {
        expression += "(.)";
        places += " " + std::to_string(i) + ".." + std::to_string(i + 1);
    }
    EXPECT_EQ(search(expression, std::string(20, 'x')), places);
}

TEST(PatternProgram, IsMadeOfNestedRepetitions) {
    std::string expression = "a";
    for (int i = 0; i < 40; ++i) expression = "(?:" + expression + ")*";
    EXPECT_EQ(search(expression + "b", "aab"), "0..3");
    for (int i = 0; i < 40; ++i) expression += "+";
    EXPECT_EQ(search(expression, "aab"), "0..2");
}

TEST(PatternProgram, IsNotMadeIfItsTablesWouldBeTooLarge) {
    std::string expression;
    for (int i = 0; i < 4000; ++i) expression += "a?";
    EXPECT_EQ(programOf(expression), nullptr);
    // It is matched all the same.
    const CompiledPattern compiled("re:" + expression);
    EXPECT_EQ(compiled.program(), nullptr);
    PatternMatch match;
    EXPECT_TRUE(compiled.search("aa", 0, {}, match));
    EXPECT_EQ(match.whole().end, 2U);
}

TEST(CompiledPattern, HasAProgramForTheDialect) {
    for (const char* const pattern :
         {"%a+", "[%A]", "(%w+)%s*=%s*(.-)$", "[^a]", "%", "a-++", "/x|y/i", "re:\\d{4}"}) {
        EXPECT_NE(CompiledPattern(pattern).program(), nullptr) << pattern;
    }
    EXPECT_EQ(CompiledPattern("re:(a)\\1").program(), nullptr);
}

TEST(CompiledPattern, IsMadeOnce) {
    const CompiledPattern& first = compiledPattern("made once %d");
    for (int i = 0; i < 500; ++i) (void)compiledPattern("another " + std::to_string(i));
    EXPECT_EQ(&compiledPattern("made once %d"), &first);
}

}  // namespace
