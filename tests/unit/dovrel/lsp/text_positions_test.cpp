#include "dovrel/lsp/text_positions.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr PositionEncoding kUtf8 = PositionEncoding::Utf8;
constexpr PositionEncoding kUtf16 = PositionEncoding::Utf16;

/// The start of each line, separated by blanks.
std::string startsOf(const LineStarts& lines) {
    std::string text;
    for (std::size_t i = 0; i < lines.count(); ++i) {
        text += (i == 0 ? "" : " ") + std::to_string(lines.startOf(i));
    }
    return text;
}

}  // namespace

TEST(LineStarts, CountsLineEndsOfAllKinds) {
    EXPECT_EQ(startsOf(LineStarts("")), "0");
    EXPECT_EQ(startsOf(LineStarts("a\nb\r\nc\rd")), "0 2 5 7");
    EXPECT_EQ(startsOf(LineStarts("\r\r\n\n")), "0 1 3 4");
}

TEST(LineStarts, StaysRightWhenTheTextChanges) {
    // Each way to change a short text of line ends, against the lines of the result counted anew.
    const std::string alphabet = "a\r\n";
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; texts[i].size() < 3; ++i) {
        for (const char c : alphabet) texts.push_back(texts[i] + c);
    }
    for (const std::string& text : texts) {
        for (std::size_t first = 0; first <= text.size(); ++first) {
            for (std::size_t last = first; last <= text.size(); ++last) {
                for (const std::string& put : texts) {
                    if (put.size() > 2) break;
                    LineStarts lines(text);
                    std::string changed = text;
                    changed.replace(first, last - first, put);
                    lines.replace(changed, first, last - first, put.size());
                    ASSERT_EQ(startsOf(lines), startsOf(LineStarts(changed)));
                }
            }
        }
    }
}

TEST(LineStarts, CountsUnitsOfTheEncoding) {
    const std::string text = "x\n\xC3\xA4\xF0\x9D\x84\x9E\xE2\x82\xACz\n";  // ä, a clef, €, z
    const LineStarts lines(text);
    const std::size_t z = text.find('z');
    EXPECT_EQ(lines.positionOf(text, z, kUtf8).character, 9U);
    EXPECT_EQ(lines.positionOf(text, z, kUtf16).character, 4U);
    EXPECT_EQ(lines.offsetOf(text, {1, 9}, kUtf8), z);
    EXPECT_EQ(lines.offsetOf(text, {1, 4}, kUtf16), z);
    // The second half of a pair is its beginning.
    EXPECT_EQ(lines.offsetOf(text, {1, 2}, kUtf16), 4U);
    EXPECT_EQ(lines.offsetOf(text, {1, 1}, kUtf16), 4U);
}

TEST(LineStarts, KeepsWithinTheText) {
    const std::string text = "ab\r\ncd";
    const LineStarts lines(text);
    EXPECT_EQ(lines.offsetOf(text, {0, 99}, kUtf16), 2U);
    EXPECT_EQ(lines.offsetOf(text, {1, 99}, kUtf16), 6U);
    EXPECT_EQ(lines.offsetOf(text, {7, 0}, kUtf16), 6U);
    EXPECT_EQ(lines.positionOf(text, 99, kUtf16).line, 1U);
}

TEST(LineStarts, TakesBytesThatAreNoCharacters) {
    EXPECT_EQ(unitsOf("\xFFx\x80\xC3", kUtf16), 4U);
    EXPECT_EQ(unitsOf("\xF0\x9D\x84", kUtf16), 3U);
}
