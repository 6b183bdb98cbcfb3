// What tests of scripts compare, and how a difference is told.
#include "dovrel/test_library.h"

#include <gtest/gtest.h>

#include <string>

#include "dovrel/junit_report.h"

namespace {

/// The difference of two variables `a` and `b` that a script makes.
std::string difference(const std::string& script) {
    DovrelScript interpreter;
    interpreter.runScript(script);
    const auto value = [&](const char* name) {
        return interpreter.globalValues[interpreter.globalSlots.at(name)];
    };
    const std::string text = describeDifference(value("a"), value("b"));
    // What holds itself is never freed unless it is emptied.
    interpreter.runScript("pcall(clear, a); pcall(clear, b)");
    return text;
}

TEST(DescribeDifference, ComparesContainersByWhatTheyHold) {
    EXPECT_EQ(difference("a = [1, {x: [2, 'y']}]; b = [1, {x: [2, 'y']}]"), "");
    EXPECT_EQ(difference("a = {}; b = {}"), "");
    EXPECT_EQ(difference("a = 1; b = 1.0"), "");
    EXPECT_EQ(difference("a = print; b = print"), "");
    EXPECT_EQ(difference("a = not; b = not"), "");
    EXPECT_EQ(difference("a = 1; b = '1'"), "expected: \"1\"\nactual:   1");
    EXPECT_EQ(difference("a = []; b = {}"), "expected: {}\nactual:   []");
}

TEST(DescribeDifference, LeadsToTheFirstPlace) {
    EXPECT_EQ(difference("a = {k: [1, 2]}; b = {k: [1, 3]}"),
              "expected: {k: [1, 3]}\nactual:   {k: [1, 2]}\nat [\"k\"][2]: expected 3, actual 2");
    EXPECT_EQ(difference("a = {x: 1}; b = {x: 1, y: not}"),
              "expected: {x: 1, y: not}\nactual:   {x: 1}\n"
              "at [\"y\"]: expected not, actual nothing");
    EXPECT_EQ(difference("a = [1, 2]; b = [1]"),
              "expected: [1]\nactual:   [1, 2]\nat [2]: expected nothing, actual 2");
}

TEST(DescribeDifference, EndsForContainersThatHoldThemselves) {
    EXPECT_EQ(difference("a = [1]; push(a, a); b = [1]; push(b, b)"), "");
    EXPECT_NE(difference("a = [1]; push(a, a); b = [2]; push(b, b)"), "");
}

TEST(DescribeDifference, ComparesLongTextsByLines) {
    EXPECT_EQ(difference("a = 'x\\ny\\n'; b = 'x\\nz\\n'"),
              "the texts differ\n--- expected\n+++ actual\n@@ -1,2 +1,2 @@\n x\n-z\n+y");
    EXPECT_EQ(difference("a = 'x\\ny'; b = 'x\\ny\\n'"),
              "the texts differ: one of them ends in a line end");
}

TEST(EscapeXml, LeavesNothingThatXmlCannotHold) {
    EXPECT_EQ(escapeXml("a<b>&\"c\"\t\n"), "a&lt;b&gt;&amp;&quot;c&quot;\t\n");
    EXPECT_EQ(escapeXml("ä€😀"), "ä€😀");
    EXPECT_EQ(escapeXml(std::string("\x01\xff\xc3") + " (\xc3"), "??? (?");
}

}  // namespace
