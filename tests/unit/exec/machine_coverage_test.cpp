// What runs in the compiled form: each of these bodies must be compiled, and once its tokens have
// met their places, nothing of it may go by the executor or by the tiers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "exec/machine.h"
#include "interpreter/dovrel_script.h"

namespace {

constexpr const char* kDeclarations =
    "g = 1; s = \"text\"; a = [1, 2, 3]; t = {n: 1, list: [1, 2]}; flag = true\n"
    "function one(v)\nreturn v\nend\n"
    "function several(v)\nnative w = v\nreturn w\nend\n"
    "function pair(v)\nnative w = v\nreturn w, w\nend\n"
    "function any(...)\nnative w = 1\nreturn w\nend\n"
    "object = {n: 0}\nfunction object[\"add\"](self, v)\nself[\"n\"] += v\nreturn v\nend\n";

const std::vector<std::string> kBodies = {
    "local x = 1\nx = x + 2\nx += 3\n",
    "local x\nlocal y = x\n",
    "native x = n\nx = x * 2 - n / 2\n",
    "g = g + n; g += 1; g -= 1\n",
    "native i = 0\nwhile i < 3\nnative k = i * 2\nnative v, w = k, i\ni = k + 1\nk = v\nend\n"
    "native z = k\n",
    "for i = 1, 3\nnative k = i\nnative v, w = k, i\nif k > 1\nnative u = v\nv = u + k\nend\nend\n",
    "for i = 1, 2\na[1], a[n] = a[n], a[1]\nend\n",
    "native list = [1, 2]\nfor i = 1, 2\nlist[1], list[i] = list[i], list[1]\nend\n",
    "local x = \"n\" + toString(n)\nx = s + n + \"!\"\ng = g + n\ng = g + n + n\n",
    "local x = s + \"more\" + n\nx += \"!\"\ns = s + \"\"\n",
    "local x = not flag and n > 2 or n == 1\nif x\ng = 1\nelseif flag\ng = 2\nelse\ng = 3\nend\n",
    "local i = 0\nwhile i < 3\nlocal k = i\ni = k + 1\nif i == 2\nbreak\nend\nend\n",
    "local i = 0\nrepeat\ni += 1\nuntil i > 3\n",
    "for i = 1, 3\nlocal k = i * 2\nfor j = i, 1, -1\ng = k + j\nend\nend\n",
    "for k, v in pairs(t)\ng = 1\nend\n",
    "for i, v in ipairs(a)\ng = i + v\nend\n",
    "for v in a\ng = v\nend\n",
    "for w in string[\"gmatch\"](\"a b c\", \"%a+\")\nlocal x = w\nend\n",
    "a[1] = a[2] + a[3]; a[n] += 1; t[\"n\"] = t[\"n\"] + 1; t[\"list\"][1] = 2\n",
    "local u = [1, n, \"x\"]\nlocal v = {x: n, y: [n]}\nlocal w = u[1] + v[\"x\"]\n",
    "local x = #a + #s + len(a)\npush(a, x); x = pop(a)\n",
    "local x = one(n)\nx = several(n)\none(n); several(n)\n",
    "local x = several(n) + 1\nx = several(one(2))\n",
    "if several(n) == n\ng = 1\nend\n",
    "local x, y = pair(n)\nx, y = y, x\nx, y = 1, 2\n",
    "local x = object[\"add\"](object, n)\nobject[\"add\"](object, x)\n",
    "local x = any(n, 2, 3)\nx = any()\n",
    "local x = math[\"floor\"](2.5)\nx = string[\"sub\"](s, 1, 2)\n",
    "ok, e = pcall(several, n)\n",
    "if n == 0\nreturn\nend\nif n == -1\nreturn 1, 2\nend\n",
};

TEST(CompiledStatements, NeitherGoByTheExecutorNorByTheTiers) {
    for (const std::string& body : kBodies) {
        DovrelScript interpreter;
        interpreter.runScript(kDeclarations);
        interpreter.runScript("function body(n, ...)\n" + body + "return n\nend\n");
        for (int i = 0; i < 12; ++i) interpreter.runScript("r = body(3, 4)");
        const Machine::Counts before = interpreter.machine->counts;
        interpreter.runScript("r = body(3, 4)");
        const Machine::Counts& after = interpreter.machine->counts;
        EXPECT_GT(after.calls, before.calls) << body;
        EXPECT_EQ(after.byExecutor, before.byExecutor) << body;
        EXPECT_EQ(after.byTiers, before.byTiers) << body;
        EXPECT_EQ(after.recompiled, before.recompiled) << body;
        EXPECT_EQ(after.refused, 0U) << body;
    }
}

TEST(CompiledStatements, OfAProgramAreCompiledIfTheyHoldALoop) {
    DovrelScript interpreter;
    interpreter.runScript("x = 1");
    EXPECT_EQ(interpreter.machine->counts.compiled, 0U);
    interpreter.runScript("for i = 1, 3\nx = x + i\nend");
    EXPECT_EQ(interpreter.machine->counts.compiled, 1U);
    interpreter.runScript("load(\"while x > 0; x = x - 1; end\")()");
    EXPECT_EQ(interpreter.machine->counts.compiled, 2U);
}

TEST(CompiledStatements, OfAFunctionAreCompiledAtItsSecondCallUnlessItLoops) {
    DovrelScript interpreter;
    interpreter.runScript(
        "function plain(v)\nnative w = v\nif w > 1\nw = 2\nend\nreturn w\nend\n"
        "function looping(v)\nif v > 0\nwhile v > 1\nv -= 1\nend\nend\nreturn v\nend\n"
        "function line(v)\nreturn v\nend\n");
    const Machine::Counts& counts = interpreter.machine->counts;
    interpreter.runScript("r = plain(1); r = line(1)");
    EXPECT_EQ(counts.compiled, 0U);
    interpreter.runScript("r = plain(2)");
    EXPECT_EQ(counts.compiled, 1U);
    interpreter.runScript("r = looping(2)");
    EXPECT_EQ(counts.compiled, 2U);
    // Its function was made anew, but its body is the same.
    interpreter.runScript(
        "function maker(v)\nfunction made(u)\nnative w = u\nreturn w\nend\nreturn made(v)\nend\n"
        "for i = 1, 4\nr = maker(i)\nend\n");
    EXPECT_EQ(counts.refused, 0U);
    EXPECT_EQ(counts.compiled, 5U);  // the loop, `maker` and `made`
}

TEST(CompiledStatements, OfFunctionsOfOneLineRunAsLeaves) {
    DovrelScript interpreter;
    interpreter.runScript(
        "function inc(v)\nreturn v + 1\nend\nfunction make(x, y)\nreturn {x: x, y: [y]}\nend\n"
        "for i = 1, 5\nr = inc(i)\nt = make(i, r)\nend");
    const Machine::Counts& counts = interpreter.machine->counts;
    EXPECT_GE(counts.compiled, 3U);
    EXPECT_GE(counts.calls, 8U);
    EXPECT_EQ(counts.refused, 0U);
}

TEST(ProtectedCalls, AreMadeWithinTheLoop) {
    DovrelScript interpreter;
    interpreter.runScript(
        "function risky(v)\nif v > 2\nerror(\"large\")\nend\nnative w = 6 \\ v\nreturn w\nend\n"
        "function outer(n)\nnative ok, v = pcall(risky, n)\nreturn v\nend\n"
        "ok, r = pcall(outer, 1)");
    const std::uint64_t before = interpreter.machine->counts.protectedCalls;
    interpreter.runScript("for i = 0, 4\nok, r = pcall(outer, i)\nend");
    EXPECT_EQ(interpreter.machine->counts.protectedCalls - before, 10U);
}

/// How many block scopes are opened by `script`, once all that it calls has been compiled.
std::uint64_t blocksOpenedBy(const std::string& functions, const std::string& script) {
    DovrelScript interpreter;
    interpreter.runScript(functions);
    for (int i = 0; i < 12; ++i) interpreter.runScript(script);
    const std::uint64_t before = interpreter.machine->counts.blocksOpened;
    interpreter.runScript(script);
    return interpreter.machine->counts.blocksOpened - before;
}

TEST(BlockScopes, AreNotOpenedWhereNobodyLooks) {
    const std::string function =
        "function inner(v)\nlocal d = v + 1\nreturn d\nend\n"
        "function outer(n)\nlocal s = 0\nlocal i = 0\nwhile i < n\nlocal k = inner(i)\n"
        "if k > 2\nlocal m = k\ns += m\nend\ni += 1\nend\nreturn s\nend\n";
    EXPECT_EQ(blocksOpenedBy(function, "r = outer(5)"), 0U);
}

TEST(BlockScopes, AreOpenedForACalleeThatReadsThem) {
    const std::string functions =
        "function reader(v)\nnative w = hidden + v\nreturn w\nend\n"
        "function outer(n)\nlocal hidden = n\nif n > 0\nlocal other = 1\n"
        "hidden += reader(other)\nend\nreturn hidden\nend\n";
    // The two of `outer`, and that of `reader`, since a chunk among blocks has a block of its own.
    EXPECT_EQ(blocksOpenedBy(functions, "r = outer(5)"), 3U);
}

/// Whether the frames of `reader`, whose names are `v` and `w`, count these after `script`. It is
/// compiled at its second call.
bool framesCountNames(const std::string& script) {
    DovrelScript interpreter;
    interpreter.runScript("function reader(v)\nnative w = v\nreturn w\nend\n" + script);
    return !interpreter.names.intern("v")->mayBeInFrames();
}

TEST(FrameScopes, CountTheirNamesWhereOneIsAGlobal) {
    const std::string twice = "r = reader(1)\nr = reader(1)\n";
    EXPECT_FALSE(framesCountNames(twice));
    EXPECT_TRUE(framesCountNames("w = 1\n" + twice));
    EXPECT_FALSE(framesCountNames(twice + "w = 1\n"));
    EXPECT_TRUE(framesCountNames(twice + "v = 1\nr = reader(1)"));
}

TEST(FrameScopes, LeaveNoNameCounted) {
    DovrelScript interpreter;
    interpreter.runScript(
        "function inner(v)\nlater = v\nnative later2 = v\nreturn later2\nend\n"
        "function outer(v)\nmade = v\nnative made = inner(v)\nnative later = made\n"
        "return later\nend\n"
        "for i = 1, 3\nr = outer(i)\nend\nok, e = pcall(outer)");
    for (const char* name : {"v", "later", "later2", "made", "i"}) {
        EXPECT_FALSE(interpreter.names.intern(name)->isCounted()) << name;
    }
}

}  // namespace
