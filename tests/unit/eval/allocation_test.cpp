// In the steady state nothing of a hot loop may allocate: a loop of ten times as many iterations
// makes no more allocations than the loop itself. Every allocation of this program is counted, so
// it is a program of its own.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

#include "interpreter/dovrel_script.h"

namespace {

std::size_t allocations = 0;

void* counted(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}

}  // namespace

// The array forms of the library end in these.
void* operator new(std::size_t size) { return counted(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++allocations;
    return std::malloc(size != 0 ? size : 1);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

class Allocations : public testing::Test {
protected:
    void setUp(const std::string& source) { interpreter.runScript(source); }

    /// The allocations of `source` with the global `n` as given.
    std::size_t allocationsOf(const std::string& source, int n) {
        interpreter.pushVariable("n", Variable::makeInt(n));
        const std::size_t before = allocations;
        interpreter.runScript(source);
        return allocations - before;
    }
    /// `source` must loop `n` times.
    void expectSteady(const std::string& source) {
        // The first run makes the globals and the stacks grow to what they need; a function is
        // translated in the second.
        static_cast<void>(allocationsOf(source, 1000));
        static_cast<void>(allocationsOf(source, 1000));
        const std::size_t few = allocationsOf(source, 100);
        const std::size_t many = allocationsOf(source, 1000);
        EXPECT_EQ(many, few) << "in 900 iterations of\n" << source;
        EXPECT_GT(few, 0U) << "nothing is counted";
    }
    /// A body of one or several lines, in a loop at the top of the script.
    void expectSteadyBody(const std::string& body) {
        expectSteady("for i = 1, n\n" + body + "\nend");
    }

    DovrelScript interpreter;
};

TEST_F(Allocations, IntsInGlobals) {
    setUp("x = 1; y = 2; yes = true");
    expectSteadyBody("x = x + i * 2 - 1");
    expectSteadyBody("x = (x * 31 + i) % 1000");
    expectSteadyBody("x = i \\ 3");
    expectSteadyBody("x = -i");
    expectSteadyBody("x += i");
    expectSteadyBody("x -= y * 3");
    expectSteadyBody("x *= 3; x %= 1000; x \\= 2");
    expectSteadyBody("x = yes + i");
    expectSteadyBody("x = y; y = i; x = y");
    expectSteadyBody("x = nil; x = i; x = true; x = 5");
}

TEST_F(Allocations, FloatsInGlobals) {
    setUp("f = 1.5; g = 0.5");
    expectSteadyBody("f = f * 0.5 + 1.5");
    expectSteadyBody("f = i / 3 - g");
    expectSteadyBody("f = i % 1.5");
    expectSteadyBody("f = g ^ 2");
    expectSteadyBody("f = -g");
    expectSteadyBody("f += 0.25; f -= g; f *= 0.5; f /= 3; f %= 2");
    expectSteadyBody("f = i; f = 0.5");
}

TEST_F(Allocations, Parameters) {
    setUp(
        "function ints(n, p)\nfor i = 1, n\np = (p * 3 + i) % 1000\np += 1\nend\nend\n"
        "function floats(n, p)\nfor i = 1, n\np = p * 0.5 + i\np -= 0.25\nend\nend\n");
    expectSteady("ints(n, 3)");
    expectSteady("floats(n, 1.5)");
}

TEST_F(Allocations, FrameVariables) {
    setUp(
        "function ints(n)\nnative x = 0\nnative y = 1\nfor i = 1, n\nx = (x + y * i) % 1000\n"
        "y += 1\nend\nend\n"
        "function floats(n)\nnative x = 0.5\nfor i = 1, n\nx = x * 0.5 + i\nx += 0.5\nend\nend\n"
        "function whiles(n)\nnative i = 0\nwhile i < n\ni += 1\nend\nend\n");
    expectSteady("ints(n)");
    expectSteady("floats(n)");
    expectSteady("whiles(n)");
}

TEST_F(Allocations, BlockVariables) {
    setUp(
        "function ints(n)\nlocal x = 0\nlocal y = 1\nfor i = 1, n\nx = (x + y * i) % 1000\n"
        "y += 1\nend\nend\n"
        "function inner(n)\nfor i = 1, n\nlocal x = i * 2\nlocal f = 0.5\nx += 1\nend\nend\n");
    expectSteady("ints(n)");
    expectSteady("inner(n)");
    expectSteady("if true\nlocal x = 0.5\nfor i = 1, n\nx = x * 0.5 + i\nend\nend");
    expectSteadyBody("if i > 0\nlocal x = i\nx += 1\nend");
}

TEST_F(Allocations, Loops) {
    setUp("x = 0");
    expectSteady("i = 0\nwhile i < n\ni += 1\nend");
    expectSteady("i = 0\nrepeat\ni += 1\nuntil i >= n");
    expectSteady("for i = n, 1, -1\nx = i\nend");
    expectSteadyBody("for j = 1, 3\nx = i * j\nend");
    expectSteadyBody("x = 0\nwhile x < 3\nx += 1\nend");
    expectSteadyBody("for j = 1, 3\nif j == 2\nbreak\nend\nend");
}

TEST_F(Allocations, Conditions) {
    setUp(
        "x = 0; f = 0.5; yes = true; text = \"a text too long to be kept in place\"; a = [1, 2]\n"
        "function longBody(v)\nx = v\nreturn v\nend");
    expectSteadyBody("if i == 5\nx = 1\nelseif i < 10 and f > 0.25\nx = 2\nelse\nx = 3\nend");
    expectSteadyBody("if not (i % 2 == 0) or yes\nx = 1\nend");
    expectSteadyBody("if i\nx = 1\nend");
    expectSteadyBody("if a[1] > 0 and a[2] != a[1]\nx = 1\nend");
    expectSteadyBody("if x == nil\nx = 1\nend");
    expectSteadyBody("if text == text\nx = 1\nend");
    expectSteadyBody("if text\nx = 1\nend");
    expectSteadyBody("if longBody(i) > 50\nx = 1\nend");
    expectSteadyBody("x = i > 5 and i < 10");
    expectSteadyBody("x = not yes or f");
}

TEST_F(Allocations, ElementsOfArrays) {
    setUp(
        "a = array()\nfor i = 1, 1000\na[i] = i\nend\n"
        "rows = array()\nfor i = 1, 10\nrows[i] = [1, 2, 3, 4, 5, 6, 7, 8, 9, 10]\nend\n"
        "x = 0; k = 1\n");
    expectSteadyBody("x = a[i]");
    expectSteadyBody("x = a[i] + a[1001 - i] * 2");
    expectSteadyBody("a[i] = i");
    expectSteadyBody("a[i] = x");
    expectSteadyBody("a[i] = i * 2 + 1");
    expectSteadyBody("a[i] = 0.5");
    expectSteadyBody("a[i] = a[1] + 1");
    expectSteadyBody("a[i] += 3");
    expectSteadyBody("a[k] = a[k] + i");
    expectSteadyBody("a[1], a[2] = a[2], a[1]");
    expectSteadyBody("x = rows[3][k + 1]");
    expectSteadyBody("rows[i % 10 + 1][k] = i");
    expectSteadyBody("rows[k][k] += 1");
    expectSteadyBody("x += rows[1][2] * rows[2][1]");
}

TEST_F(Allocations, EntriesOfTables) {
    setUp("t = {n: 1, m: 2.5}; x = 0");
    expectSteadyBody("x = t[\"n\"]");
    expectSteadyBody("x = t[\"n\"] + t[\"m\"]");
    expectSteadyBody("t[\"n\"] = i");
    expectSteadyBody("t[\"n\"] = t[\"n\"] + 1");
    expectSteadyBody("t[\"n\"] += i");
}

TEST_F(Allocations, CallsOfOneLineFunctions) {
    setUp(
        "function square(v)\nreturn v * v\nend\n"
        "function sum(a, b)\nreturn a + b\nend\n"
        "function nested(a)\nreturn sum(square(a), 1)\nend\n"
        "function choose(a)\nreturn a > 5 and a or 0.5\nend\n"
        "functions = {square: square}; x = 0");
    expectSteadyBody("x = square(i)");
    expectSteadyBody("x = sum(x, i) % 1000");
    expectSteadyBody("x = 1 + sum(square(i), 2) * 3");
    expectSteadyBody("x = nested(i) + 1");
    expectSteadyBody("x = choose(i)");
    expectSteadyBody("if square(i) > 10\nx = 1\nend");
    expectSteadyBody("square(i)");
    expectSteadyBody("x = functions[\"square\"](i)");
    expectSteadyBody("x = 1 + functions[\"square\"](i)");
}

TEST_F(Allocations, CallsOfScalarNatives) {
    setUp("text = \"a text too long to be kept in place\"; a = [1, 2, 3]; x = 0; f = 0.5");
    expectSteadyBody("x = len(a)");
    expectSteadyBody("x = len(text) + 1");
    expectSteadyBody("x = #a + #text");
    expectSteadyBody("x = string[\"len\"](text)");
    expectSteadyBody("x = 1 + string[\"len\"](text)");
    expectSteadyBody("x = string[\"byte\"](text, 5)");
    expectSteadyBody("x = string[\"byte\"](text, i % 30 + 1) + 1");
    expectSteadyBody("x = math[\"floor\"](f * i)");
    expectSteadyBody("x = 1 + math[\"max\"](i, 5, f)");
    expectSteadyBody("x = math[\"sqrt\"](i) + math[\"abs\"](-f)");
    expectSteadyBody("x = toNumber(i)");
    expectSteadyBody("x = 0 * getTimeMs()");
}

TEST_F(Allocations, CallsWithAFrame) {
    setUp(
        "function add(a, b)\nif a > 500\na = a - 500\nend\nreturn a + b\nend\n"
        "function withVariables(a)\nnative x = a * 2\nnative y = x + 1\nreturn x + y\nend\n"
        "function withLoop(a)\nnative sum = 0\nfor i = 1, 3\nsum += a\nend\nreturn sum\nend\n"
        "function deep(a)\nif a < 1\nreturn 0\nend\nreturn deep(a - 1) + 1\nend\n"
        "function fib(a)\nif a < 2\nreturn a\nend\nreturn fib(a - 1) + fib(a - 2)\nend\n"
        "function nothing()\nx = 1\nend\n"
        "functions = {add: add}; x = 0");
    expectSteadyBody("x = add(i, 1)");
    expectSteadyBody("x = 1 + add(i, x % 10)");
    expectSteadyBody("add(i, 2)");
    expectSteadyBody("nothing()");
    expectSteadyBody("x = add(add(i, 1), add(2, i))");
    expectSteadyBody("x = withVariables(i)");
    expectSteadyBody("x = withLoop(i)");
    expectSteadyBody("x = deep(10)");
    expectSteadyBody("x = fib(6)");
    expectSteadyBody("x = functions[\"add\"](i, 1)");
    expectSteadyBody("if add(i, 1) > 5\nx = 1\nend");
}

}  // namespace
