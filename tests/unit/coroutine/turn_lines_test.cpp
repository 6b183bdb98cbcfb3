// What of a coroutine runs in the compiled form: the lines of its body, once turns have run them
// often, and the end of a turn, which takes no exception where nothing is left to be done.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "../eval/random_program.h"
#include "../exec/report_of.h"
#include "exec/machine.h"
#include "interpreter/dovrel_script.h"

namespace {

std::string textOf(const DovrelScript& interpreter, const std::string& name) {
    const auto slot = interpreter.globalSlots.find(name);
    if (slot == interpreter.globalSlots.end()) return "missing";
    try {
        return interpreter.globalValues[slot->second].toString();
    } catch (const std::exception& error) {
        return error.what();  // spoiled by a compound assignment of mixed kinds
    }
}

constexpr const char* kDeclarations =
    "g = 1; h = 2; s = \"text\"; a = [1, 2, 3]; t = {n: 1, list: [1, 2]}; rounds = 0\n"
    "function one(v)\nreturn v\nend\n"
    "function several(v)\nnative w = v\nreturn w\nend\n"
    "function pair(v)\nnative w = v\nreturn w, w\nend\n"
    "object = {}\nfunction object[\"add\"](self, v)\nself[\"n\"] = v\nreturn v\nend\n";

/// A coroutine of `lines` that goes round `rounds` times, and the statements that give it its
/// turns.
std::string programOf(const std::string& lines, int rounds) {
    return "decay function body(n, ...)\n" + lines +
           "\nagain(n)\nend\n"
           "function again(n)\nnative next = n + 1\nrounds += 1\n"
           "if rounds < " +
           std::to_string(rounds) +
           "\nbody(next, 5)\nend\nreturn 1\nend\n"
           "body(3, 4)\nfor i = 1, 400\nx = i\nend\n";
}

class TurnLine : public testing::TestWithParam<const char*> {};

TEST_P(TurnLine, IsCompiledOnceItHasRunOften) {
    DovrelScript interpreter;
    interpreter.runScript(kDeclarations);
    const std::string program = programOf(GetParam(), 40);
    ASSERT_EQ(reportOf(interpreter, program), "");
    ASSERT_EQ(textOf(interpreter, "rounds"), "40");
    EXPECT_EQ(interpreter.scheduledCoroutine, nullptr);
    const Machine::Counts& counts = interpreter.machine->counts;
    const std::string lines = GetParam();
    const std::uint64_t count =
        1 + static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
    // Each line but for its first runs, `again` among them.
    EXPECT_GE(counts.turnLines, 33 * (count + 1));
    EXPECT_EQ(counts.quietEnds, 38U);  // the first call of `again` is the executor's
    EXPECT_EQ(counts.byTiers, 0U);

    DovrelScript executed;
    executed.runsCompiledForm = false;
    executed.runScript(kDeclarations);
    ASSERT_EQ(reportOf(executed, program), "");
    EXPECT_EQ(executed.machine->counts.turnLines, 0U);
    for (const char* name : {"g", "h", "s", "a", "t", "rounds", "object"}) {
        EXPECT_EQ(textOf(interpreter, name), textOf(executed, name)) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, TurnLine,
    testing::Values("g = n", "g = g * 3 % 1000 + n", "g += n", "g -= 1", "s = \"n\" + g + \"!\"",
                    "native k = n * 2\ng = k", "native k = n\nk += 1\ng = k",
                    "local k = n + g\ng = k % 100", "local k = one(n)\nk *= 2\nh = k", "g = one(n)",
                    "g = several(n)", "g += several(n)", "g += one(n)", "several(n)",
                    "object[\"add\"](object, n)", "g = object[\"add\"](object, 2)",
                    "a[1] = a[2] + n", "a[2] += 1", "t[\"n\"] = t[\"n\"] + 1", "t[\"list\"][1] = n",
                    "g, h = h, g", "g, h = pair(n)", "a[1], a[2] = a[2], a[1]",
                    "ok, e = pcall(several, n)\ng = e", "g = len(a) + #s", "g = [n, 1][1]",
                    "t = {n: n, list: [n]}", "g = n > 5 and 1 or 2", "push(a, n)\npop(a)",
                    "g = math[\"floor\"](n / 2)"));

TEST(TurnLines, AgreeWithTheTiersOnRandomStatements) {
    int finished = 0;
    for (std::uint32_t seed = 1; seed <= 1500; ++seed) {
        RandomProgram random(seed);
        const std::string declarations = random.declarations().plain;
        // One line, since texts double in each round.
        std::string lines = random.statement().plain;
        while (std::count(lines.begin(), lines.end(), '\n') > 1) lines = random.statement().plain;
        DovrelScript compiled;
        DovrelScript executed;
        executed.runsCompiledForm = false;
        std::vector<std::string> reports;
        for (DovrelScript* interpreter : {&compiled, &executed}) {
            interpreter->runScript(declarations + "rounds = 0\n");
            reports.push_back(reportOf(*interpreter, programOf(lines, 12)));
        }
        ASSERT_EQ(reports[0], reports[1]) << "seed " << seed << "\n" << lines;
        for (const std::string& name : RandomProgram::variables()) {
            ASSERT_EQ(textOf(compiled, name), textOf(executed, name))
                << name << ", seed " << seed << "\n"
                << lines;
        }
        ASSERT_EQ(textOf(compiled, "rounds"), textOf(executed, "rounds")) << lines;
        if (reports[0].empty()) {
            ++finished;
            ASSERT_GT(compiled.machine->counts.turnLines, 0U) << "seed " << seed;
        }
    }
    EXPECT_GT(finished, 300);
}

TEST(TurnLines, BelongToTheirDeclaration) {
    DovrelScript interpreter;
    interpreter.runScript(
        "sum = 0\n"
        "function again(n)\nrounds += 1\nif rounds < 20\nwork(n)\nend\nend\n"
        "for version = 1, 3\n"
        "decay function work(n)\nsum += n\nagain(n)\nend\n"
        "rounds = 0\nwork(version)\n"
        "for i = 1, 60\nx = i\nend\nend\n");
    EXPECT_EQ(textOf(interpreter, "sum"), "120");
    // Each is compiled behind its seventh run.
    EXPECT_EQ(interpreter.machine->counts.turnLines, 3U * 2U * 13U);
}

/// Counts the ends of turns that took no exception.
std::uint64_t quietEnds(const std::string& source) {
    DovrelScript interpreter;
    EXPECT_EQ(reportOf(interpreter, source), "");
    EXPECT_EQ(interpreter.callDepth, 0U);
    EXPECT_TRUE(interpreter.frameScopes.empty());
    EXPECT_TRUE(interpreter.protectedCallDepths.empty());
    EXPECT_FALSE(interpreter.coroutineTurnEnded);
    EXPECT_EQ(interpreter.lastCallDepth, 0U);
    return interpreter.machine->counts.quietEnds;
}

TEST(EndOfATurn, TakesNoExceptionDeepInsideOfFunctions) {
    EXPECT_EQ(quietEnds("decay function f()\nouter(1)\nend\n"
                        "decay function g()\nx = 1\nend\n"
                        "function outer(n)\nlocal k = n\nfor i = 1, 3\nfor v in list\n"
                        "ok, e = pcall(inner, v)\nend\nend\nend\n"
                        "function inner(v)\nlocal w = v\nif w == 2\ng()\nend\nreturn w\nend\n"
                        "list = [1, 2]\nf()\nx = 2\ny = x"),
              1U);
}

TEST(EndOfATurn, TakesNoExceptionForKill) {
    EXPECT_EQ(quietEnds("decay function f()\nstop(1)\nx = 5\nend\n"
                        "function stop(n)\nif n == 1\nkill()\nend\nx = 6\nend\n"
                        "stop(0)\nx = 1\nf()\ny = 2\nif x != 1\nerror(\"went on\")\nend"),
              1U);
}

TEST(EndOfATurn, IsNoneWhereTheStatementGoesOn) {
    // The tiers evaluate the statement, and have more to do behind the call.
    EXPECT_EQ(quietEnds("decay function f()\nx = 1 + outer(1)\nend\n"
                        "decay function g()\ny = 1\nend\n"
                        "function outer(n)\ng()\nx = 6\nreturn n\nend\n"
                        "x = 1\nf()\nz = 2\nif x != 1\nerror(\"went on\")\nend"),
              0U);
}

TEST(EndOfATurn, LeavesASortAlone) {
    DovrelScript interpreter;
    EXPECT_EQ(reportOf(interpreter,
                       "sort = table[\"sort\"]\nlist = [3, 2, 1]\ncalls = 0\n"
                       "decay function f()\nsort(list, compare)\nend\n"
                       "decay function g()\ny = 1\nend\n"
                       "function compare(v, w)\ncalls += 1\ng()\nreturn v < w\nend\n"
                       "f()\nx = 2"),
              "");
    EXPECT_EQ(textOf(interpreter, "calls"), "1");
    EXPECT_EQ(textOf(interpreter, "list"), "[3, 2, 1]");
}

}  // namespace
