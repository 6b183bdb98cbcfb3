// Comparisons of texts, line by line.
#include "dovrel/text_difference.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>

namespace {

/// The lines that one side of a comparison has, joined again.
std::string side(const std::vector<DifferenceLine>& lines, char mark) {
    std::string text;
    for (const DifferenceLine& line : lines) {
        if (line.mark == ' ' || line.mark == mark) text.append(line.text) += '\n';
    }
    return text;
}

TEST(CompareLines, MarksWhatWentAndWhatCame) {
    std::string shown;
    for (const DifferenceLine& line : compareLines("a\nb\nc\n", "a\nx\nc\nd\n")) {
        shown += line.mark;
        shown.append(line.text) += '\n';
    }
    EXPECT_EQ(shown, " a\n-b\n+x\n c\n+d\n");
}

TEST(CompareLines, GivesBothTextsAndNoLongWay) {
    std::mt19937 random(3);
    for (int round = 0; round < 500; ++round) {
        std::string a;
        std::string b;
        for (auto i = random() % 12; i > 0; --i) a += std::string(1, "abc"[random() % 3]) + '\n';
        for (auto i = random() % 12; i > 0; --i) b += std::string(1, "abc"[random() % 3]) + '\n';
        const auto lines = compareLines(a, b);
        ASSERT_EQ(side(lines, '-'), a);
        ASSERT_EQ(side(lines, '+'), b);
        // No comparison is longer than the texts one behind the other, and equal texts keep all.
        if (a == b) {
            ASSERT_EQ(lines.size(), a.size() / 2);
        }
    }
}

TEST(UnifiedDifference, IsEmptyForEqualTexts) {
    EXPECT_EQ(unifiedDifference("a\nb\n", "a\nb\n", "x", "y"), "");
    EXPECT_EQ(unifiedDifference("", "", "x", "y"), "");
}

TEST(UnifiedDifference, CountsFromTheRightLines) {
    EXPECT_EQ(unifiedDifference("", "a\n", "x", "y"), "--- x\n+++ y\n@@ -0,0 +1 @@\n+a\n");
    EXPECT_EQ(unifiedDifference("a\n", "", "x", "y"), "--- x\n+++ y\n@@ -1 +0,0 @@\n-a\n");
    std::string before;
    for (int i = 1; i <= 20; ++i) before += std::to_string(i) + '\n';
    std::string after = before;
    after.replace(after.find("2\n"), 2, "two\n");
    after.replace(after.find("19\n"), 3, "");
    EXPECT_EQ(unifiedDifference(before, after, "x", "y"),
              "--- x\n+++ y\n@@ -1,5 +1,5 @@\n 1\n-2\n+two\n 3\n 4\n 5\n"
              "@@ -16,5 +16,4 @@\n 16\n 17\n 18\n-19\n 20\n");
}

}  // namespace
