#include "host/large_stack.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>

#include "interpreter/dovrel_script.h"

namespace {

constexpr std::size_t kFrameBytes = 1024;

/// Takes a kilobyte of stack for each level, on the way down and on the way up.
std::size_t descend(std::size_t levels) {
    volatile char frame[kFrameBytes];
    frame[0] = static_cast<char>(levels);
    frame[kFrameBytes - 1] = 1;
    const std::size_t below = levels == 0 ? 0 : descend(levels - 1);
    return below + static_cast<std::size_t>(frame[kFrameBytes - 1]);
}

/// What `source` leaves in the global `result`, run on a large stack.
std::string resultOf(const std::string& source) {
    std::string result;
    runOnLargeStack([&] {
        try {
            DovrelScript interpreter;
            interpreter.runScript(source);
            result = interpreter.globalValues.at(interpreter.globalSlots.at("result")).toString();
        } catch (const std::exception& error) {
            result = error.what();
        }
    });
    return result;
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) result += text;
    return result;
}

TEST(LargeStack, RunsTheWorkOnce) {
    int runs = 0;
    runOnLargeStack([&] { ++runs; });
    EXPECT_EQ(runs, 1);
}

#if !defined(__SANITIZE_ADDRESS__)
TEST(LargeStack, StaysOnTheThread) {
    std::thread::id inside;
    runOnLargeStack([&] { inside = std::this_thread::get_id(); });
    EXPECT_EQ(inside, std::this_thread::get_id());
}
#endif

TEST(LargeStack, HoldsMoreThanAnOrdinaryStack) {
    std::size_t levels = 0;
    runOnLargeStack([&] { levels = descend(64 * 1024); });
    EXPECT_EQ(levels, 64U * 1024U + 1U);
}

TEST(LargeStack, LetsTheWorkCatchItsExceptions) {
    std::string message;
    runOnLargeStack([&] {
        try {
            if (descend(20000) > 0) throw std::runtime_error("from below");
        } catch (const std::exception& error) {
            message = error.what();
        }
    });
    EXPECT_EQ(message, "from below");
}

TEST(LargeStack, CanBeUsedAgainAndAgain) {
    std::size_t total = 0;
    for (int i = 0; i < 100; ++i) runOnLargeStack([&] { total += descend(20); });
    EXPECT_EQ(total, 2100U);
}

TEST(LargeStack, CanBeUsedInsideItself) {
    std::size_t total = 0;
    runOnLargeStack([&] {
        total += descend(20000);
        runOnLargeStack([&] { total += descend(20000); });
        total += descend(20000);
    });
    EXPECT_EQ(total, 60003U);
}

TEST(LargeStack, HoldsADeepRecursionOfAScript) {
    EXPECT_EQ(resultOf("function down(n)\nif n == 0\nreturn 0\nend\nreturn 1 + down(n - 1)\nend\n"
                       "result = down(20000)"),
              "20000");
    EXPECT_EQ(resultOf("function sum(n)\nreturn n <= 0 or sum(n - 1)\nend\nresult = sum(20000)"),
              "true");
}

TEST(LargeStack, HoldsADeepRecursionThroughProtectedCalls) {
    EXPECT_EQ(resultOf("function down(n)\nif n == 0\nerror(\"bottom\")\nend\n"
                       "ok, e = pcall(down, n - 1)\nerror(e)\nend\n"
                       "ok, result = pcall(down, 5000)"),
              "bottom");
}

#if !defined(__SANITIZE_ADDRESS__)
// The address sanitizer cannot follow an exception over a stack this large.
TEST(LargeStack, HoldsAnErrorFromFarBelow) {
    const std::string report =
        resultOf("function down(n)\nif n == 0\nnosuch()\nend\nx = down(n - 1)\nend\ndown(20000)");
    EXPECT_NE(report.find("at line 3, near token 'nosuch'"), std::string::npos) << report;
}
#endif

TEST(LargeStack, HoldsDeepBrackets) {
    EXPECT_EQ(resultOf("result = " + repeated("(", 20000) + "7" + repeated(")", 20000)), "7");
    // Too many tokens for the compiled form: by tokens.
    EXPECT_EQ(resultOf("result = " + repeated("(", 50000) + "7" + repeated(")", 50000)), "7");
    EXPECT_EQ(resultOf("result = len(" + repeated("[", 20000) + repeated("]", 20000) + ")"), "1");
    EXPECT_EQ(resultOf("result = true or " + repeated("[", 50000) + repeated("]", 50000)), "true");
    EXPECT_EQ(resultOf("result = " + repeated("- ", 30000) + "7"), "7");
}

TEST(LargeStack, HoldsDeepBlocks) {
    EXPECT_EQ(resultOf(repeated("if true\n", 5000) + "result = 7\n" + repeated("end\n", 5000)),
              "7");
}

TEST(LargeStack, HoldsDeepContainers) {
    EXPECT_EQ(resultOf("a = [7]\nfor i = 1, 50000\na = [a]\nend\nresult = len(toString(a))\na = 0"),
              "100003");
    EXPECT_EQ(resultOf("t = {}\nfor i = 1, 50000\nu = {}\nu[\"k\"] = t\nt = u\nend\n"
                       "u = 0\nt = 0\nresult = 7"),
              "7");
}

}  // namespace
