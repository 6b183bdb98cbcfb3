// What a checked run tells: each kind of place, once, and nothing of what is well.
#include "dovrel/checked_run.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace {

/// What is told of a script: "line: message" for each place.
std::string toldOf(const std::string& script, CheckedMode mode = CheckedMode::Tell) {
    DovrelScript interpreter;
    std::string told;
    CheckedRun checked(
        interpreter, "", mode,
        [&](const std::string& place, const std::string& message, const std::string& /*source*/) {
            told += place.substr(5) + ": " + message + '\n';
        });
    interpreter.setObserver(checked);
    try {
        interpreter.runScript(script);
    } catch (const std::exception& error) {
        const std::string report = error.what();
        told += "error: " + report.substr(0, report.find("\n"));
    }
    return told;
}

TEST(CheckedRun, TellsOfNamesThatLeadElsewhere) {
    const std::string script =
        "function f()\n print(x)\nend\nfunction g()\n native x = 1\n f()\nend\n"
        "function h()\n native y = 2\n f()\n native z = y\nend\ng()\n";
    testing::internal::CaptureStdout();
    EXPECT_EQ(toldOf(script), "");
    EXPECT_EQ(toldOf(script + "h()"),
              "2: `x` leads to the variable `y` here: this place remembers where it found `x` "
              "before\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "1\n1\n2\n");
}

TEST(CheckedRun, TellsOfWritesThatLeadElsewhere) {
    EXPECT_EQ(
        toldOf("function f()\n x += 1\nend\nfunction g()\n native x = 1\n f()\n native w = x\n"
               "end\nfunction h()\n native y = 2\n f()\n native w = y\nend\ng()\nh()"),
        "2: `x` leads to the variable `y` here: this place remembers where it found `x` "
        "before\n");
}

TEST(CheckedRun, FindsParametersOfShortFunctions) {
    EXPECT_EQ(toldOf("function add(a, b)\n return a + (b or 1)\nend\nx = add(1, 2)\ny = add(3)\n"
                     "function twice(a)\n return add(a, a) + add(a, 1)\nend\nz = twice(4)"),
              "");
}

TEST(CheckedRun, TellsOfADroppedZeroWhereItIsDropped) {
    EXPECT_EQ(toldOf("n = 0\nfunction f(a)\n return a or 3\nend\nx = f(n)\ny = [n or 3]\n"
                     "z = 1 + (n or 3)\nw = (n or 3) + 'a'"),
              "3: `or` drops the number 0 on its left\n7: `or` drops the number 0 on its left\n");
}

TEST(CheckedRun, StaysRightBehindAnErrorInAnAttempt) {
    EXPECT_EQ(toldOf("function f(a)\n return (a or 1) + 1 / 0\nend\nok, e = pcall(f, 0)\n"
                     "n = 0\nx = n or 5\ny = not or 5"),
              "6: `or` drops the number 0 on its left\n");
}

TEST(CheckedRun, TellsNothingOfTurnsThatAreWell) {
    EXPECT_EQ(toldOf("decay function beat(n)\n local a = n\n total = a\n total += a\nend\n"
                     "total = 0\nbeat(2)\nfor i = 1, 5\n local a = i\n total += a\nend"),
              "");
}

TEST(CheckedRun, MakesErrors) {
    EXPECT_EQ(toldOf("list = [1]\nx = list[2]", CheckedMode::Error),
              "error: DovrelScript error: checked: there is no element 2 in an array of 1: this is "
              "the absent value");
    EXPECT_EQ(toldOf("n = 0\nfunction f()\n native r = n or 1\n return r\nend\n"
                     "ok, e = pcall(f)\nif ok\n error('not told')\nend",
                     CheckedMode::Error),
              "");
}

}  // namespace
