#include "dovrel/dap/breakpoints.h"

#include <gtest/gtest.h>

namespace {

/// Which of the hits 1 to 6 count.
std::string countedHits(const std::string& condition) {
    std::string counted;
    for (std::size_t hit = 1; hit <= 6; ++hit) {
        if (hitCounts(condition, hit)) counted += std::to_string(hit);
    }
    return counted;
}

}  // namespace

TEST(Breakpoints, HitConditionsCount) {
    EXPECT_EQ(countedHits("3"), "3");
    EXPECT_EQ(countedHits(" == 3 "), "3");
    EXPECT_EQ(countedHits(">3"), "456");
    EXPECT_EQ(countedHits(">= 3"), "3456");
    EXPECT_EQ(countedHits("< 3"), "12");
    EXPECT_EQ(countedHits("<=3"), "123");
    EXPECT_EQ(countedHits("% 2"), "246");
    EXPECT_EQ(countedHits("%0"), "");
    EXPECT_EQ(countedHits("often"), "123456");
}

TEST(Breakpoints, OnesInFilesThatCannotBeReadAreNotVerified) {
    Breakpoints breakpoints;
    const auto answer = breakpoints.set("/nowhere/at all.dv", {{{"line", 3}}});
    ASSERT_EQ(answer.size(), 1U);
    EXPECT_EQ(answer[0]["verified"], false);
    EXPECT_NE(breakpoints.of("/nowhere/at all.dv"), nullptr);
    EXPECT_EQ(breakpoints.of("/nowhere/else.dv"), nullptr);
}
