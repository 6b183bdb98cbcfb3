// Each allocation of a run fails, one run for each: the run ends in an error report, its stacks are
// back where they were, and the interpreter goes on working.
#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "eval/errors.h"
#include "exec/bytecode_program.h"
#include "failing_allocations.h"
#include "interpreter/dovrel_script.h"

namespace {

// Texts are longer than what a string holds without an allocation.
const std::vector<std::string> kScripts = {
    "a long name of a script = 1",
    "function h(n, s)\nif n < 1\nreturn s\nend\nreturn h(n - 1, s + \" and a piece more\")\nend\n"
    "function g(s)\nreturn s\nend\nfunction c(a, b)\nreturn a - b\nend\n"
    "for i = 1, 4\nx = h(3, \"a text that is long enough\")\ny = g(x) == x\nz = c(c(i, 1), 2) % 7\n"
    "u = h(i, \"b\") + g(\"another text that is long enough\")\nend\n",
    "x = \"a text that is long enough\" + \" to be allocated somewhere\"; y = x + x\n",
    "t = {n: \"a text that is long enough\", m: [1, 2, {k: \"and another such text here\"}]}\n"
    "t[\"a key that is long enough\"] = t[\"n\"]; t[\"m\"][4] = 5; x, t[\"m\"][1] = t[\"n\"], x\n",
    "for i = 1, 3\nlocal a = [i, \"a text that is long enough\"]\nx = toString(a)\nend\n"
    "n = 0\nwhile n < 3\nn += 1\nend\nrepeat\nn -= 1\nuntil n <= 0\n"
    "for k, v in pairs({a: 1, b: 2})\nx = k + v\nend\nfor i, v in ipairs([1, 2])\nx = v\nend\n",
    "function join(a, b, ...)\nc, d = ...\nif a\nreturn a + b, c, d\nend\nreturn b\nend\n"
    "function short(a)\nreturn a + \" and a text that is long enough\"\nend\n"
    "x, y, z = join(\"a text that is long enough\", \"b\", 1, 2)\nv = short(short(\"a\"))\n"
    "t = {f: short}; w = t[\"f\"](\"b\")\n"
    "function deep(n)\nif n < 1\nreturn 0\nend\nreturn 1 + deep(n - 1)\nend\nu = deep(20)\n",
    "s = \"a text of 12 words that is long enough\"; u = s[\"upper\"]()\n"
    "g = string[\"gsub\"](s, \"%w+\", \"[%0]\"); f = string[\"format\"](\"%-40s|%d\", s, 5)\n"
    "for w in string[\"gmatch\"](s, \"%a+\")\nx = w\nend\nb, e, c = string[\"find\"](s, "
    "\"(%d+)\")\n"
    "r = string[\"rep\"](s, 3); j = table[\"concat\"]([s, s, s], \", and then \")\n"
    "a = [\"the one that is long enough\", \"another one that is longer\"]\ntable[\"sort\"](a)\n",
    "decay function later(text, ...)\nlocal held = text + text\nfor i = 1, 2\nx = held\nend\n"
    "function inner(a)\na += 1\nreturn a\nend\ny = inner(4)\nend\n"
    "later(\"a text that is long enough\", 1, 2)\nz = 1\nz = 2\nz = 3\nz = 4\nz = 5\nz = 6\nz = "
    "7\n",
    "function fails(a)\nerror(\"a message that is long enough: \" + a)\nend\nfails(1)\n",
    "x = nothing[\"a key that is long enough\"](1)",
};

// Those that may go on behind the failure.
const std::vector<std::string> kProtectingScripts = {
    "function work(a)\nlocal t = {text: \"a text that is long enough\" + a}\nfor i = 1, 2\n"
    "t[i] = [a, i, \"another text that is long\"]\nend\nreturn t[\"text\"]\nend\n"
    "ok, e = pcall(work, \"and more of it\")\nok, f = pcall(pcall, work, 2)\n",
    "function fails(a)\nif a\nerror(\"a message that is long enough: \" + a)\nend\nreturn 1\nend\n"
    "function guarded(a)\nif a == 3\nerror(\"the guard of a function fired\")\nend\nreturn a\nend\n"
    "ok, e = pcall(fails, 1); ok, e = pcall(guarded, 3); ok, e = pcall(pcall, fails, 2)\n"
    "ok, e = pcall(string[\"rep\"], \"a text that is long enough\", 4)\n",
    "function grow(a, ...)\nnative t = [a, \"a text that is long enough\" + a]\nnative b, c = ...\n"
    "return t[2], b, c\nend\n"
    "function chain(n)\nnative ok, v = true, \"a text that is long enough\"\nif n > 0\n"
    "ok, v = pcall(chain, n - 1)\nelse\nerror(\"a message that is long enough\")\nend\n"
    "return v + n\nend\n"
    "for i = 1, 3\nok, e, f = pcall(grow, i, \"x\", i)\nok, e = pcall(chain, 12)\nend\n",
    // What fails while a text is compiled is the second result of `load`.
    "f, message = load(\"x = \\\"a text that is long enough\\\"; return x\")\n"
    "if f\ny = f()\nend\nf, message = load(\"if this is a script without its end\")\n",
};

void expectNothingLeft(const DovrelScript& interpreter) {
    EXPECT_EQ(interpreter.frameScopes.size(), 0U);
    EXPECT_EQ(interpreter.blockScopes.size(), 0U);
    EXPECT_EQ(interpreter.blockScopeFloor, 0U);
    EXPECT_EQ(interpreter.varargStack.size(), 0U);
    EXPECT_EQ(interpreter.baseDirectoryStack.size(), 0U);
    EXPECT_EQ(interpreter.scriptNameStack.size(), 0U);
    EXPECT_EQ(interpreter.protectedCallDepths.size(), 0U);
    EXPECT_EQ(interpreter.callDepth, 0U);
    EXPECT_EQ(interpreter.fastCallable, nullptr);
    EXPECT_FALSE(interpreter.softErrorPending);
    EXPECT_FALSE(interpreter.inCoroutineTurn);
    EXPECT_EQ(interpreter.pendingCoroutineException, nullptr);
}

std::string errorOf(DovrelScript& interpreter, const std::string& script) {
    try {
        interpreter.runScript(script);
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

/// A report afterwards reads the line's text and the last token, and must find them.
void expectToWork(DovrelScript& interpreter) {
    interpreter.killCoroutine();
    EXPECT_EQ(errorOf(interpreter, "q = [1, 2]; p = q[2] + 40; assert(p == 42)"), "");
    EXPECT_TRUE(isLocatedReport(errorOf(interpreter, "error(\"still there\")")));
}

std::string undisturbedError(const std::string& script) {
    DovrelScript interpreter;
    return errorOf(interpreter, script);
}

/// Runs `script` with the `first`-th allocation failing. False if it has not that many.
bool runWithFailure(const std::string& script, std::size_t first, Shortage shortage) {
    SCOPED_TRACE("allocation " + std::to_string(first) + " of " + script);
    DovrelScript interpreter;
    std::string text = script;
    std::string error;
    bool happened = false;
    {
        const FailingAllocations failing(first, shortage);
        try {
            interpreter.runScript(text);
        } catch (const std::exception& raised) {
            happened = FailingAllocations::happened();
            const FailingAllocations reprieve(kNoFailure, Shortage::Once);
            error = raised.what();
        }
        happened = happened || FailingAllocations::happened();
    }
    if (!happened) return false;
    // Some need not succeed: nothing is lost if a vector cannot be made smaller.
    if (error.find("std::bad_alloc") == std::string::npos) {
        EXPECT_EQ(error, undisturbedError(script));
    }
    expectNothingLeft(interpreter);
    expectToWork(interpreter);
    return true;
}

void failEveryAllocation(const std::vector<std::string>& scripts, Shortage shortage) {
    for (const std::string& script : scripts) {
        std::size_t first = 1;
        while (runWithFailure(script, first, shortage)) {
            ++first;
            if (testing::Test::HasFailure()) return;
        }
        EXPECT_GT(first, 20U) << script;
    }
}

TEST(AllocationFailure, EndsInAReport) { failEveryAllocation(kScripts, Shortage::Once); }

TEST(AllocationFailure, EndsInAnErrorWhenNoneSucceedsAfterwards) {
    failEveryAllocation(kScripts, Shortage::ForEver);
}

TEST(AllocationFailure, IsCaughtByAProtectedCall) {
    failEveryAllocation(kProtectingScripts, Shortage::Once);
}

TEST(AllocationFailure, LeavesAProtectedCallWhenNoneSucceedsAfterwards) {
    failEveryAllocation(kProtectingScripts, Shortage::ForEver);
}

TEST(AllocationFailure, LeavesNoNameOfAScriptBehind) {
    for (std::size_t first = 1;; ++first) {
        DovrelScript interpreter;
        auto program = std::make_shared<BytecodeProgram>(interpreter.compileToBytecodeInternal(
            "function short(a)\nreturn a + 1\nend\nfunction framed(a)\nb = a\nreturn b\nend\n"
            "x = short(framed(1))\n"));
        program->baseDirectory = "a directory that is long enough";
        program->scriptName = "a name of a script that is long";
        for (BytecodeFunctionDecl& declaration : program->functionDecls) {
            declaration.baseDirectory = program->baseDirectory;
            declaration.scriptName = program->scriptName;
        }
        {
            const FailingAllocations failing(first, Shortage::Once);
            try {
                interpreter.runBytecodeProgram(program);
            } catch (const std::exception&) {
                // Which one is told by the tests above.
            }
            if (!FailingAllocations::happened()) break;
        }
        SCOPED_TRACE(first);
        expectNothingLeft(interpreter);
        ASSERT_LT(first, 1000U);
    }
}

TEST(AllocationFailure, IsAMessageForAProtectedCall) {
    DovrelScript interpreter;
    const std::string script =
        "ok, e = pcall(string[\"rep\"], \"x\", 1000000)\nassert(e == \"std::bad_alloc\", e)\n"
        "assert(ok == false)\n";
    const FailingAllocations failing(kNoFailure, Shortage::Once, 500000);
    EXPECT_EQ(errorOf(interpreter, script), "");
    EXPECT_TRUE(FailingAllocations::happened());
}

TEST(AllocationFailure, OfTheInterpreterItselfIsRaised) {
    for (std::size_t first = 1;; ++first) {
        const FailingAllocations failing(first, Shortage::Once);
        try {
            const DovrelScript interpreter;
            if (!FailingAllocations::happened()) break;
            ADD_FAILURE() << "allocation " << first << " failed unnoticed";
        } catch (const std::bad_alloc&) {
        }
        ASSERT_LT(first, 100000U);
    }
}

}  // namespace
