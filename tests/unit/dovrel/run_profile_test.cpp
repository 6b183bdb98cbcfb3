// How often lines and functions run, and whose the time is: against runs whose counts are known.
#include "dovrel/run_profile.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>

#include "dovrel/profile_report.h"

namespace {

/// A profile of a script that has run.
class Profiled {
public:
    explicit Profiled(const std::string& script) : profile_(interpreter_, "main.dv") {
        interpreter_.setObserver(profile_);
        try {
            interpreter_.runScript(script);
        } catch (const std::exception& error) {
            report = error.what();
        }
    }

    /// The counts of the lines of the script that can run: "1:1 2:10".
    [[nodiscard]] std::string lines() const {
        const ObservedScript& script = profile_.scripts().front();
        std::string text;
        for (const std::size_t line : script.statementLines) {
            if (!text.empty()) text += ' ';
            text += std::to_string(line) + ':' + std::to_string(profile_.countOf(script, line));
        }
        return text;
    }
    /// The calls of each function: "f:2 g:1".
    [[nodiscard]] std::string calls() const {
        std::string text;
        for (const ObservedFunction& function : profile_.functions()) {
            if (function.line == 0) continue;
            if (!text.empty()) text += ' ';
            text += function.name + ':' + std::to_string(profile_.callsOf(function));
        }
        return text;
    }
    [[nodiscard]] const RunProfile& profile() const { return profile_; }

    std::string report;

private:
    DovrelScript interpreter_;
    RunProfile profile_;
};

TEST(RunCounts, CountsStatementsAndConditions) {
    const Profiled run(
        "n = 0\nfor i = 1, 10\n n += i\n if n % 2 == 0\n  n += 1\n else\n  n += 2\n end\nend\n"
        "while n > 0\n n = 0\nend\nrepeat\n n += 1\nuntil n == 3");
    EXPECT_EQ(run.lines(), "1:1 2:1 3:10 4:10 5:4 7:6 10:2 11:1 14:3 15:3");
}

TEST(RunCounts, CountsCallsOfEveryKind) {
    const Profiled run(
        "function short(a)\n return a + 1\nend\nfunction long(a)\n local b = short(a)\n"
        " return b\nend\nx = 0\nfor i = 1, 100\n x = x + long(i)\n x = short(x)\n"
        " ok, e = pcall(long, x)\nend\nt = [3, 1, 2]\n"
        "function less(a, b)\n return a < b\nend\ntable[\"sort\"](t, less)");
    EXPECT_EQ(run.calls().substr(0, 18), "short:300 long:200");
    EXPECT_EQ(run.lines().substr(0, 43), "1:1 2:300 4:1 5:200 6:200 8:1 9:1 10:100 11");
}

TEST(RunCounts, CountsACallThatIsMadeAgainOnce) {
    const Profiled run(
        "function name(a)\n return a + 'x'\nend\nfor i = 1, 5\n s = name('a') + 'b'\nend");
    EXPECT_EQ(run.calls(), "name:5");
    EXPECT_EQ(run.lines(), "1:1 2:5 4:1 5:5");
}

TEST(RunCounts, CountsRecursion) {
    const Profiled run(
        "function fib(n)\n if n < 2\n  return n\n end\n return fib(n - 1) + fib(n - 2)\nend\n"
        "x = fib(10)");
    EXPECT_EQ(run.calls(), "fib:177");
    EXPECT_EQ(run.lines(), "1:1 2:177 3:89 5:88 7:1");
}

TEST(RunCounts, CountsTheTurnsOfCoroutines) {
    const Profiled run(
        "decay function beat(n)\n a = n\n b = n\n inner()\nend\nfunction inner()\n c = 1\n"
        " return c\nend\nbeat(1)\nfor i = 1, 10\n x = i\nend");
    EXPECT_EQ(run.calls(), "beat:4 inner:1");
    EXPECT_EQ(run.lines(), "1:1 2:1 3:1 4:1 6:1 7:1 8:1 10:1 11:1 12:10");
}

TEST(RunCounts, CountsLoadedTextsApart) {
    const Profiled run("f = load('a = 1\\nb = 2')\nf()\nf()\nf()");
    EXPECT_EQ(run.lines(), "1:1 2:1 3:1 4:1");
    const ObservedScript& loaded = run.profile().scripts().back();
    EXPECT_EQ(loaded.name, "(text in main.dv)");
    EXPECT_EQ(run.profile().countOf(loaded, 2), 3U);
}

TEST(RunCounts, CountsUpToAnError) {
    const Profiled run("function f()\n error('no')\nend\na = 1\nf()\nb = 2");
    EXPECT_NE(run.report, "");
    EXPECT_EQ(run.lines(), "1:1 2:1 4:1 5:1 6:0");
}

/// Each moment is somebody's, and nobody's twice.
TEST(RunProfile, TimesAddUp) {
    const Profiled run(
        "function work(n)\n local s = 0\n for i = 1, n\n  s += i\n end\n return s\nend\n"
        "function outer(n)\n local a = work(n)\n return a + work(n)\nend\n"
        "decay function side()\n x = work(50)\n y = 1\nend\n"
        "side()\nfor k = 1, 20\n z = outer(20)\nend");
    const RunProfile& profile = run.profile();
    std::int64_t functions = 0;
    for (const ObservedFunction& function : profile.functions()) {
        functions += profile.ownTimeOf(function);
        EXPECT_GE(profile.totalTimeOf(function), profile.ownTimeOf(function)) << function.name;
    }
    EXPECT_EQ(functions, profile.totalTime());
    std::int64_t lines = 0;
    for (std::size_t line = 0; line <= 20; ++line) {
        lines += profile.timeOf(profile.scripts().front(), line);
    }
    EXPECT_EQ(lines, profile.totalTime());
    EXPECT_GT(profile.totalTime(), 0);
    EXPECT_EQ(run.calls(), "work:41 outer:20 side:3");
}

TEST(RunProfile, KnowsWhoHasCalledWhom) {
    const Profiled run(
        "function leaf(n)\n local s = n\n return s\nend\nfunction one()\n x = leaf(1)\nend\n"
        "function two()\n x = leaf(2)\n x = leaf(3)\nend\none()\ntwo()\ntwo()\n"
        "decay function side()\n y = leaf(4)\nend\nside()");
    const auto calleeOf = [](const ProfileNode& node, const std::string& name) -> ProfileNode* {
        for (const auto& [function, callee] : node.callees) {
            if (function->name == name) return callee;
        }
        return nullptr;
    };
    const ProfileNode& root = run.profile().root();
    const ProfileNode* script = calleeOf(root, "(script)");
    ASSERT_NE(script, nullptr);
    const ProfileNode* two = calleeOf(*script, "two");
    ASSERT_NE(two, nullptr);
    EXPECT_EQ(two->calls, 2U);
    EXPECT_EQ(calleeOf(*two, "leaf")->calls, 4U);
    EXPECT_EQ(calleeOf(*calleeOf(*script, "one"), "leaf")->calls, 1U);
    // Nobody calls the turns of a coroutine.
    EXPECT_EQ(calleeOf(*script, "side"), nullptr);
    EXPECT_EQ(calleeOf(*calleeOf(root, "side"), "leaf")->calls, 1U);
    const std::string image = flameGraph(run.profile(), "a < b");
    EXPECT_NE(image.find("a &lt; b"), std::string::npos);
    EXPECT_NE(image.find("<title>leaf, main.dv:1: "), std::string::npos);
}

TEST(RunProfile, TakesDeepRecursions) {
    const Profiled run(
        "function down(n)\n if n == 0\n  return 0\n end\n local x = down(n - 1)\n return x\nend\n"
        "r = down(500)");
    EXPECT_EQ(run.calls(), "down:501");
    const std::string image = flameGraph(run.profile(), "deep");
    EXPECT_LT(image.size(), 200000U);
}

}  // namespace
