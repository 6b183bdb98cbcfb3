// The compiled form against the executor: random programs, each run by both, must leave the same
// variables and the same reports. The statements stand in loops and in functions, which are called
// several times, with and without block scopes around.
#include "exec/machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "../eval/random_program.h"
#include "interpreter/dovrel_script.h"
#include "random_calls.h"
#include "report_of.h"

namespace {

std::string valueText(const Variable& value) {
    if (value.type == VarType::Float && std::isnan(value.asFloat())) return "nan";
    return typeName(value.type) + " " + value.toString();
}

/// All variables, one a line.
std::string stateOf(const DovrelScript& interpreter) {
    std::string result;
    for (const std::string& name : RandomProgram::variables()) {
        const auto slot = interpreter.globalSlots.find(name);
        if (slot == interpreter.globalSlots.end()) continue;
        std::string text;
        try {
            text = valueText(interpreter.globalValues[slot->second]);
        } catch (const std::exception& error) {
            text = error.what();  // spoiled by a compound assignment of mixed kinds
        }
        result += name + " = " + text + "\n";
    }
    return result;
}

/// The same statements in the ways in which code gets compiled.
std::string programOf(RandomProgram& random, std::uint32_t seed) {
    std::string statements;
    for (int i = 0; i < 2; ++i) statements += random.statement().plain + "\n";
    switch (seed % 4) {
        case 0: return "for turn = 1, 3\n" + statements + "end\n";
        case 1: return "function work()\n" + statements + "end\nfor turn = 1, 3\nwork()\nend\n";
        case 2:
            return "function work(i)\nlocal own = i\n" + statements +
                   "native other = own\nreturn other + 1\nend\nfor turn = 1, 3\nown = "
                   "work(turn)\n" +
                   "end\n";
        default:
            return "function work(i)\nlocal left = 3\nwhile left > 0\nleft = left - 1\n" +
                   statements +
                   "if left == 1\nreturn left\nend\nend\nend\nwork(1)\nwork(2)\nwork(3)\n";
    }
}

TEST(CompiledForm, AgreesWithTheExecutorOnRandomPrograms) {
    constexpr std::uint32_t kPrograms = 3000;
    int finished = 0;
    for (std::uint32_t seed = 1; seed <= kPrograms; ++seed) {
        RandomProgram random(seed);
        const std::string declarations = random.declarations().plain;
        const std::string program = programOf(random, seed);
        DovrelScript compiled;
        DovrelScript executed;
        executed.runsCompiledForm = false;
        ASSERT_EQ(reportOf(compiled, declarations), "");
        ASSERT_EQ(reportOf(executed, declarations), "");
        const std::string report = reportOf(compiled, program);
        ASSERT_EQ(report, reportOf(executed, program)) << "seed " << seed << "\n"
                                                       << declarations << program;
        ASSERT_EQ(stateOf(compiled), stateOf(executed)) << "seed " << seed << "\n"
                                                        << declarations << program;
        ASSERT_EQ(compiled.frameScopes.size(), executed.frameScopes.size()) << "seed " << seed;
        ASSERT_EQ(compiled.blockScopes.size(), executed.blockScopes.size()) << "seed " << seed;
        ASSERT_GT(compiled.machine->counts.compiled, 0U) << "seed " << seed;
        ASSERT_EQ(executed.machine->counts.compiled, 0U);
        if (report.empty()) ++finished;
    }
    // The programs are worth something only if many of them come to their end.
    EXPECT_GE(finished, static_cast<int>(kPrograms / 5));
}

/// The same statements in a loop, in a function, among block scopes, and beside a coroutine.
std::string callsOf(RandomCalls& random, std::uint32_t seed) {
    std::string statements;
    for (int i = 0; i < 3; ++i) statements += random.statement() + "\n";
    switch (seed % 5) {
        case 0: return "for turn = 1, 4\n" + statements + "end\n";
        case 1:
            return "function work(turn)\n" + statements + "return " + random.expression(2) +
                   "\nend\nfor i = 1, 4\nown = work(i)\nend\n";
        case 2:
            return "function work(turn)\nlocal own = turn\n" + statements + "return " +
                   random.expression(2) + "\nend\nfor i = 1, 4\nx = work(i)\nend\n";
        case 3:
            return "decay function beside()\nfor i = 1, 9\nlog = log + \".\"\nend\nend\n"
                   "function work(turn)\n" +
                   statements +
                   "return turn\nend\nbeside()\nfor i = 1, 4\nok, e = pcall(compiled, i)\nend\n";
        default:
            return "function work(turn)\n" + statements + "return turn + 1\nend\n" +
                   "for i = 1, 4\nok, e = pcall(compiled, i)\nlog = log + toString(e)\nend\n";
    }
}

std::string textOf(const DovrelScript& interpreter, const std::string& name) {
    const auto slot = interpreter.globalSlots.find(name);
    if (slot == interpreter.globalSlots.end()) return "absent";
    try {
        return valueText(interpreter.globalValues[slot->second]);
    } catch (const std::exception& error) {
        return error.what();  // spoiled by a compound assignment of mixed kinds
    }
}

TEST(CompiledForm, AgreesWithTheExecutorOnRandomCalls) {
    constexpr std::uint32_t kPrograms = 5000;
    int finished = 0;
    for (std::uint32_t seed = 1; seed <= kPrograms; ++seed) {
        RandomCalls random(seed);
        const std::string program = callsOf(random, seed);
        DovrelScript compiled;
        DovrelScript executed;
        executed.runsCompiledForm = false;
        ASSERT_EQ(reportOf(compiled, RandomCalls::declarations()), "");
        ASSERT_EQ(reportOf(executed, RandomCalls::declarations()), "");
        const std::string report = reportOf(compiled, program);
        ASSERT_EQ(report, reportOf(executed, program)) << "seed " << seed << "\n" << program;
        for (const char* name : {"log", "count", "x", "y", "z", "own", "a", "ok", "e", "n"}) {
            ASSERT_EQ(textOf(compiled, name), textOf(executed, name))
                << name << ", seed " << seed << "\n"
                << program;
        }
        ASSERT_EQ(compiled.frameScopes.size(), executed.frameScopes.size()) << "seed " << seed;
        ASSERT_EQ(compiled.blockScopes.size(), executed.blockScopes.size()) << "seed " << seed;
        ASSERT_EQ(compiled.callDepth, 0U) << "seed " << seed;
        ASSERT_GT(compiled.machine->counts.compiled, 0U) << "seed " << seed;
        ASSERT_EQ(executed.machine->counts.compiled, 0U);
        ASSERT_EQ(compiled.scriptNameStack.size(), 0U) << "seed " << seed;
        if (report.empty()) ++finished;
    }
    EXPECT_GE(finished, static_cast<int>(kPrograms / 5));
}

TEST(CompiledForm, IsNotCopiedWithAProgram) {
    MachineFunctions known;
    known.byChunk.push_back(std::make_unique<MachineFunction>());
    const MachineFunctions copy(known);
    EXPECT_TRUE(copy.byChunk.empty());
}

}  // namespace
