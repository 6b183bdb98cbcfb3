// What a host may do to scripts that it does not trust: limits, interruptions, a closed box. And
// what it gets back: all of their memory.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "dovrel/dovrel.h"

namespace {

using namespace std::chrono_literals;
using dovrel::Error;
using dovrel::Interpreter;
using dovrel::Options;
using dovrel::Reason;

/// Why `script` ends in an error, in a word; "none" if it does not.
std::string endOf(Interpreter& interpreter, std::string_view script) {
    try {
        interpreter.run(script);
    } catch (const Error& error) {
        switch (error.reason()) {
            case Reason::Script: return "script: " + std::string(error.message());
            case Reason::Usage: return "usage";
            case Reason::Interrupted: return "interrupted";
            case Reason::Statements: return "statements";
            case Reason::Memory: return "memory";
            case Reason::Time: return "time";
            case Reason::Recursion: return "recursion";
        }
    }
    return "none";
}

std::string endWithin(const dovrel::Limits& limits, std::string_view script) {
    Options options;
    options.limits = limits;
    Interpreter interpreter(options);
    const std::string end = endOf(interpreter, script);
    // It can be used on.
    EXPECT_EQ(interpreter.run("return 1 + 1").as<int>(), 2) << script;
    return end;
}

// Each runs for ever in another way.
const char* const kEndless[] = {
    "while true\nend",
    "x = 0\nrepeat\n x += 1\nuntil false",
    "for i = 1, 2147483647\n for j = 1, 2147483647\n end\nend",
    "while true\n pcall(error, 'no')\nend",
    "function f(n)\n if n < 1\n  return 1\n end\n local a = f(n - 1)\n return f(n - 1)\nend\nf(60)",
    "function f(n) \n return n < 1 or (f(n - 1) and f(n - 1))\nend\nf(60)",
    "function work()\n while true\n end\nend\nwhile true\n pcall(work)\nend",
    "decay function beside()\n while true\n  x = 1\n end\nend\nbeside()\nwhile true\nend",
    "load('while true\\nend')()",
    "a = [3, 1, 2]\nwhile true\n table['sort'](a, function_that_is_not)\nend",
    "function less(a, b)\n while true\n end\n return a < b\nend\ntable['sort']([3, 1, 2], less)",
    "t = {a: 1}\nwhile true\n for k, v in pairs(t)\n end\nend",
    "local x = 1\nwhile x\n local y = x\n x = y\nend",
};

TEST(Limits, StatementsEndEveryLoop) {
    dovrel::Limits limits;
    limits.statements = 100000;
    for (const char* script : kEndless)
        EXPECT_EQ(endWithin(limits, script), "statements") << script;
}

TEST(Limits, TimeEndsEveryLoop) {
    dovrel::Limits limits;
    limits.time = 20ms;
    for (const char* script : kEndless) EXPECT_EQ(endWithin(limits, script), "time") << script;
}

TEST(Limits, CountAtLeastEachStatement) {
    Options options;
    options.limits.statements = 1000;
    Interpreter interpreter(options);
    EXPECT_EQ(endOf(interpreter, "x = 1\ny = 2"), "none");
    EXPECT_GE(interpreter.statementsRun(), 2U);
    // A hundred statements in each turn, in whatever form they run.
    std::string body;
    for (int i = 0; i < 100; ++i) body += " x += 1\n";
    EXPECT_EQ(endOf(interpreter, "x = 0\nfor i = 1, 100\n" + body + "end"), "statements");
    EXPECT_LE(interpreter.global("x").as<int>(), 1200);
    EXPECT_EQ(endOf(interpreter, "function f()\n" + body + "end\nx = 0\nwhile true\n f()\nend"),
              "statements");
    EXPECT_LE(interpreter.global("x").as<int>(), 1200);
}

TEST(Limits, TheReportTellsWhere) {
    Options options;
    options.limits.statements = 1000;
    Interpreter interpreter(options);
    try {
        interpreter.run("x = 1\nwhile true\n x += 1\nend", "loop.dv");
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.message(), "the limit of 1000 statements has been reached");
        EXPECT_EQ(error.script(), "loop.dv");
        EXPECT_GE(error.line(), 2);
        EXPECT_LE(error.line(), 3);
        EXPECT_TRUE(error.isStop());
    }
}

TEST(Limits, TheMessageTellsWhich) {
    const auto messageOf = [](const dovrel::Limits& limits, const char* script) {
        Options options;
        options.limits = limits;
        Interpreter interpreter(options);
        try {
            interpreter.run(script);
        } catch (const Error& error) {
            return std::string(error.message());
        }
        return std::string("none");
    };
    dovrel::Limits limits;
    limits.time = 5ms;
    EXPECT_EQ(messageOf(limits, "while true\nend"), "the limit of 5 milliseconds has been reached");
    limits = {};
    limits.memory = 2000000;
    EXPECT_EQ(messageOf(limits, "s = string['rep']('x', 3000000)"),
              "the limit of 2000000 bytes of memory has been reached");
    limits = {};
    limits.recursion = 100;
    EXPECT_EQ(messageOf(limits, "function f(n)\n native x = f(n)\n return x\nend\nf(1)"),
              "the limit of 100 calls inside of each other has been reached");
}

// Each takes more and more memory.
const char* const kGreedy[] = {
    "a = []\nwhile true\n push(a, 'text' + toString(len(a)))\nend",
    "t = {}\ni = 0\nwhile true\n i += 1\n t['k' + toString(i)] = i\nend",
    "s = 'x'\nwhile true\n s = s + s\nend",
    "s = 'x'\nwhile true\n s += 'yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy'\nend",
    "s = string['rep']('x', 2000000000)",
    "a = []\nreserve(a, 2000000000)",
    "a = []\nwhile true\n pcall(string['rep'], 'x', 2000000000)\nend",
    "a = [1]\nfor i = 1, 60\n a = [a, a]\nend\ns = toString(a)",
    "a = ['x']\nfor i = 1, 30\n a = [a, a]\nend\ns = 'x' + a",
    "while true\n a = []\n push(a, a)\n push(a, string['rep']('x', 10000))\nend",
    "while true\n a = {}\n a['self'] = a\nend",
    "s = string['rep']('a', 1000000)\nwhile true\n s = gsub(s, 'a', 'aaaa')\nend",
    "s = string['format']('%2000000000d', 1)",
    "i = 0\nwhile true\n i += 1\n load('x' + toString(i) + ' = 1')\nend",
    "i = 0\nwhile true\n i += 1\n string['find']('x', 'pattern' + toString(i))\nend",
    "a = []\nwhile true\n a = [a]\nend",
    "s = string['rep']('x = 1\\n', 4000000)\nload(s)",
    "a = [string['rep']('x', 1000000)]\nfor i = 1, 1000\n push(a, a[1])\nend\ntable['concat'](a)",
};

TEST(Limits, MemoryEndsEveryGrowth) {
    for (const char* script : kGreedy) {
        Options options;
        options.limits.memory = std::size_t{4} << 20;
        Interpreter interpreter(options);
        const std::size_t before = interpreter.memoryUsed();
        EXPECT_EQ(endOf(interpreter, script), "memory") << script;
        EXPECT_LE(interpreter.memoryUsed(), std::size_t{5} << 20) << script;
        EXPECT_GE(interpreter.memoryUsed(), before) << script;
    }
}

TEST(Limits, MemoryIsCountedBack) {
    Options options;
    options.limits.memory = std::size_t{16} << 20;
    Interpreter interpreter(options);
    interpreter.run(
        "function make()\n local a = []\n for i = 1, 100\n"
        "  push(a, string['rep']('x', 20000))\n end\n return 0\nend");
    interpreter.call("make");
    const std::size_t once = interpreter.memoryUsed();
    for (int i = 0; i < 50; ++i) interpreter.call("make");
    EXPECT_LT(interpreter.memoryUsed(), once + 100000);
}

TEST(Limits, AnErrorBehindTheLimitIsTheErrorThatItIs) {
    Options options;
    options.limits.memory = std::size_t{4} << 20;
    Interpreter interpreter(options);
    const dovrel::Value table = interpreter.makeTable();
    EXPECT_EQ(endOf(interpreter, "s = string['rep']('x', 10000000)"), "memory");
    try {
        table.set(table, 1);
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.message(), "Table key must be string, number, or bool");
    }
    try {
        table.set("large", std::string(5000000, 'x'));
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.reason(), Reason::Memory);
    }
}

// Each recurses without end.
const char* const kDeep[] = {
    "function f(n)\n local x = f(n + 1)\n return x\nend\nf(1)",
    "function f(n) \n return f(n + 1)\nend\nf(1)",
    "function f(n)\n pcall(f, n + 1)\n return 1\nend\nf(1)",
    "function f(a, b)\n table['sort']([2, 1], f)\n return true\nend\nf(1, 2)",
    "function f()\n load('f()')()\nend\nf()",
    "function f(n)\n if n\n  if n\n   while n\n    native y = f(n)\n   end\n  end\n end\nend\nf(1)",
    "function f(n)\n native t = [f(n)]\n return t\nend\nf(1)",
};

TEST(Limits, RecursionEndsAtTheLimit) {
    dovrel::Limits limits;
    limits.recursion = 5000;
    for (const char* script : kDeep) EXPECT_EQ(endWithin(limits, script), "recursion") << script;
}

TEST(Limits, TheStackEndsNoProcess) {
    // By the registers and by the host's stack.
    for (const char* script : {kDeep[0], kDeep[2], kDeep[6]}) {
        EXPECT_EQ(endWithin({}, script), "recursion") << script;
    }
}

TEST(Limits, DeepThingsEndNoProcess) {
    Options options;
    options.limits.memory = std::size_t{512} << 20;
    Interpreter interpreter(options);
    // Built, shown and let go of.
    EXPECT_EQ(endOf(interpreter, "a = []\nfor i = 1, 500000\n a = [a]\nend\na = 0"), "none");
    EXPECT_EQ(endOf(interpreter, "a = {}\nfor i = 1, 300000\n a = {x: a}\nend\na = 0"), "none");
    const std::string shown =
        endOf(interpreter, "a = []\nfor i = 1, 2000000\n a = [a]\nend\ns = toString(a)");
    EXPECT_TRUE(shown == "recursion" || shown == "none") << shown;
    EXPECT_EQ(endOf(interpreter, "a = []\npush(a, a)\ns = toString(a)"), "recursion");
    const char* const kNested[] = {
        "'return ' + string['rep']('(', 1000000) + '1'", "string['rep']('[', 1000000)",
        "'x = ' + string['rep']('not ', 1000000) + '1'",
        "string['rep']('if 1\\n', 300000) + string['rep']('end\\n', 300000)",
        "'x = ' + string['rep']('-', 1000000) + '1'"};
    for (const std::string text : kNested) {
        const std::string end =
            endOf(interpreter, "f = load(" + text + ")\nok, m = pcall(f)\nreturn 1");
        EXPECT_TRUE(end == "recursion" || end == "none") << text << ": " << end;
    }
}

TEST(Limits, WhatTakesLongOfItselfIsBounded) {
    Options options;
    options.limits.time = 200ms;
    const auto seconds = [&](const char* script) {
        Interpreter interpreter(options);
        const auto start = std::chrono::steady_clock::now();
        endOf(interpreter, script);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    // The first would take the C++ library longer than anybody waits.
    EXPECT_LT(seconds("string['find'](string['rep']('a', 60) + 'b', 're:(a+)+\\\\1c')"), 8);
    EXPECT_LT(seconds("s = string['rep']('a', 4000000)\n"
                      "string['find'](s, string['rep']('a', 2000000) + 'b', 1, true)"),
              8);
    EXPECT_LT(seconds("s = string['rep']('a', 1000000)\n"
                      "string['find'](s, 're:(a?){40}(a*)*b')"),
              8);
    Interpreter interpreter(options);
    EXPECT_EQ(endOf(interpreter, "string['find']('aa', 're:(a)\\\\1')"),
              "script: gsub: pattern '(a)\\1' takes a matcher that has no limits");
}

TEST(Limits, AnInterruptionComesFromAnotherThread) {
    for (const char* script : kEndless) {
        Interpreter interpreter;
        std::atomic<bool> runs = false;
        interpreter.define("started", [&] { runs = true; });
        std::atomic<bool> ended = false;
        std::thread other([&] {
            while (!runs && !ended) std::this_thread::yield();
            interpreter.interrupt();
        });
        EXPECT_EQ(endOf(interpreter, std::string("started()\n") + script), "interrupted") << script;
        ended = true;
        other.join();
        EXPECT_EQ(interpreter.run("return 3").as<int>(), 3);
    }
    Interpreter idle;
    idle.interrupt();
    EXPECT_EQ(idle.run("return 3").as<int>(), 3);
}

TEST(Limits, ANativeCannotHoldAStopUp) {
    Options options;
    options.limits.statements = 5000;
    Interpreter interpreter(options);
    interpreter.define("swallow", [](Interpreter& inner) {
        try {
            inner.run("while true\nend");
        } catch (const Error&) {
        }
    });
    EXPECT_EQ(endOf(interpreter, "while true\n swallow()\nend"), "statements");
    interpreter.define("pass", [](Interpreter& inner) { inner.run("while true\nend"); });
    EXPECT_EQ(endOf(interpreter, "pcall(pass)\nreached = 1"), "statements");
    EXPECT_TRUE(interpreter.global("reached").isNil());
}

TEST(Sandbox, HasNoFilesAndNoProcesses) {
    Interpreter interpreter(Options::sandbox());
    EXPECT_EQ(endOf(interpreter, "io['open']('/etc/passwd')"),
              "script: io['open']: scripts may not use files here");
    EXPECT_EQ(endOf(interpreter, "io['popen']('true')"),
              "script: io['popen']: scripts may not run commands here");
    EXPECT_EQ(endOf(interpreter, "loadFile('/etc/passwd')"),
              "script: loadFile(path): scripts may not use files here");
    EXPECT_EQ(endOf(interpreter, "dofile('/etc/passwd')"),
              "script: loadFile(path): scripts may not use files here");
}

TEST(Threads, EachInterpreterRunsOnAThreadOfItsOwn) {
    constexpr int kThreads = 4;
    std::vector<std::string> results(kThreads);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([number, &results] {
            for (int round = 0; round < 20; ++round) {
                Interpreter interpreter;
                interpreter.setGlobal("seed", number);
                results[static_cast<std::size_t>(number)] =
                    interpreter
                        .run(
                            "t = {}\nfor i = 1, 2000\n t[i % 700] = gsub('a' + toString(i), "
                            "'%d+', 'n')\n t['k' + toString(i)] = {x: i}\nend\n"
                            "function f(n)\n if n < 2\n  return n\n end\n"
                            " native a = f(n - 1)\n native b = f(n - 2)\n return a + b\nend\n"
                            "ok, m = pcall(error, 'e' + toString(f(12)))\n"
                            "return t[5] + m + toString(seed)")
                        .as<std::string>();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int number = 0; number < kThreads; ++number) {
        EXPECT_EQ(results[static_cast<std::size_t>(number)], "ane144" + std::to_string(number));
    }
}

TEST(Threads, AnInterpreterMayWander) {
    Interpreter interpreter;
    interpreter.run("t = {}\nfor i = 1, 100\n t[i] = i\nend");
    for (int round = 0; round < 5; ++round) {
        std::thread([&] { interpreter.run("for i = 1, 100\n t[i] += 1\nend"); }).join();
        interpreter.run("for i = 1, 100\n t[i] += 1\nend");
    }
    EXPECT_EQ(interpreter.run("return t[100]").as<int>(), 110);
}

TEST(Threads, AThreadCannotCutInOnAnother) {
    Interpreter interpreter;
    std::string message;
    interpreter.define("other", [&] {
        std::thread([&] {
            try {
                interpreter.run("x = 1");
            } catch (const Error& error) {
                message = error.message();
            }
        }).join();
    });
    interpreter.run("other()");
    EXPECT_EQ(message, "the interpreter is at work on another thread");
}

}  // namespace
