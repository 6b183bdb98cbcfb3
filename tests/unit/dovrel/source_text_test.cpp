// The places of tokens, comments and open ends in a text.
#include "dovrel/source_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

/// Each token as it stands in the text.
std::vector<std::string> tokensInPlace(const ParsedSource& script) {
    std::vector<std::string> tokens;
    for (std::size_t line = 0; line < script.lines().size(); ++line) {
        for (std::size_t token = 0; token < script.lines()[line].tokens.size(); ++token) {
            tokens.emplace_back(script.source().slice(script.tokenRange(line, token)));
        }
    }
    return tokens;
}

TEST(ParsedSource, FindsEachTokenInTheText) {
    const ParsedSource script("a = (1 +  @@ note\n   a)\nb=\"x\n  y\"; c = 'a'\n");
    EXPECT_EQ(tokensInPlace(script),
              (std::vector<std::string>{"a", "=", "(", "1", "+", "a", ")", "b", "=", "\"x\n  y\"",
                                        "c", "=", "'a'"}));
    const SourcePosition place = script.source().positionOf(script.tokenRange(0, 5).first);
    EXPECT_EQ(place.line, 1U);
    EXPECT_EQ(place.column, 3U);
}

TEST(ParsedSource, LinksBlocksAmongTheLinesThatItKeeps) {
    const ParsedSource script("\n\nif a\n\n\nb()\n\nend\n");
    ASSERT_EQ(script.lines().size(), 3U);
    EXPECT_EQ(script.lines()[0].matchingEnd, 2U);
}

TEST(SourceText, TellsWhatIsOpenAtTheEnd) {
    EXPECT_EQ(SourceText("a = 'b").openString(), 4U);
    EXPECT_EQ(SourceText("a = f(1, [2, 3)").openBracket(), 9U);
    EXPECT_EQ(SourceText("a = f(1, [2, 3])").openBracket(), std::nullopt);
    const SourceText closed("a = 'b\nc' @@ 'x");
    EXPECT_EQ(closed.openString(), std::nullopt);
    ASSERT_EQ(closed.longStrings().size(), 1U);
    EXPECT_EQ(closed.slice(closed.longStrings()[0]), "'b\nc'");
    ASSERT_EQ(closed.comments().size(), 1U);
    EXPECT_EQ(closed.slice(closed.comments()[0]), "@@ 'x");
}

TEST(SourceText, SeparatesStatementsOutsideOfBracketsOnly) {
    const SourceText text("a; f(1;2); 'x;y'");
    EXPECT_EQ(text.semicolons(), (std::vector<std::size_t>{1, 9}));
    EXPECT_EQ(text.lines().size(), 3U);
}

}  // namespace
