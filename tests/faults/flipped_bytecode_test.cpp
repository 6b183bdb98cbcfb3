// A bytecode file with one wrong bit or byte: it is refused or it runs, and comes to an end.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "exec/bytecode_file.h"
#include "exec/bytecode_program.h"
#include "failing_allocations.h"
#include "host/large_stack.h"
#include "interpreter/dovrel_script.h"

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int kDamagedFiles = 10000;  // each takes many times longer
#else
constexpr int kDamagedFiles = 100000;
#endif
constexpr int kMostTicks = 200;
// A count with a wrong high bit asks for tables of up to a gigabyte.
constexpr std::size_t kLargestTable = std::size_t{1} << 20;

// Every block ticks twice and every condition once, so that no single wrong byte keeps a loop or a
// recursion from ending.
constexpr const char* kTickingScript =
    "tick(1)\ntick(2)\n"
    "list = {n: [1, 2.5, 'three'], \"m\": {k: not true}}\n"
    "function brief(x)\nreturn tick(x) + 1\nend\n"
    "function verbose(x, ...)\ntick(1)\ntick(2)\na, b = ...\ny = brief(tick(x))\nreturn y, b\nend\n"
    "function watched(x)\nif tick(x) == 3\nerror(\"boom\")\nend\nreturn x * 2\nend\n"
    "decay function slowly(p)\ntick(1)\ntick(2)\np += 1\ntick(p)\nend\n"
    "slowly(tick(1))\n"
    "for i = 1, 3\ntick(1)\ntick(2)\nif tick(i) == 1\ntick(1)\ntick(2)\n"
    "elseif tick(i) == 2\ntick(1)\ntick(2)\nelse\ntick(1)\ntick(2)\nend\nend\n"
    "c = 0\nwhile tick(c) < 2\ntick(1)\ntick(2)\nlocal z = c\nc += 1\nend\n"
    "repeat\ntick(1)\ntick(2)\nc -= 1\nuntil tick(c) <= 0\n"
    "for k, v in pairs(list[\"n\"])\ntick(1)\ntick(2)\nw = k + toString(v)\nend\n"
    "for v in [4, 5]\ntick(1)\ntick(2)\nbreak\nend\n"
    "ok, e = pcall(watched, 3); q, r = verbose(tick(5), 1, 2)\n"
    "s = string[\"format\"](\"%5.1f|%s\", c, \"text\") + string[\"gsub\"](\"abc\", \"%w\", \"x\")\n"
    "return s\n";

int ticksLeft = 0;

/// Ends every script that goes on for ever, and hands its argument back.
Variable tick(DovrelScript&, Arguments args) {
    if (--ticksLeft < 0) throw std::runtime_error("out of ticks");
    return args.empty() ? Variable() : args[0];
}

struct Result {
    std::string value;
    std::string error;
};

Result runBytes(const std::vector<unsigned char>& bytes) {
    Result result;
    ticksLeft = kMostTicks;
    DovrelScript interpreter;
    interpreter.pushFunction("tick", tick);
    const FailingAllocations large(kNoFailure, Shortage::Once, kLargestTable);
    try {
        const auto program = std::make_shared<BytecodeProgram>(
            interpreter.deserializeBytecode(bytes, "flipped.dvbc"));
        result.value = interpreter.runBytecodeProgram(program).toString();
    } catch (const std::exception& error) {
        result.error = error.what();
    }
    return result;
}

std::vector<unsigned char> goodBytes() {
    DovrelScript interpreter;
    return serializeBytecode(interpreter.compileToBytecodeInternal(kTickingScript));
}

TEST(FlippedBytecode, RunsWellBeforeAnyFlip) {
    const Result result = runBytes(goodBytes());
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.value, "  0.0|textxxx");
}

TEST(FlippedBytecode, ComesToAnEndWithAnyBitOrByteWrong) {
    std::vector<unsigned char> bytes = goodBytes();
    std::mt19937 random(20);
    const std::size_t bits = bytes.size() * 8;
    std::size_t refused = 0;
    runOnLargeStack([&] {
        for (std::size_t i = 0; i < kDamagedFiles; ++i) {
            // Each bit once, in a scattered order, and then bytes at random.
            const std::size_t bit = i < bits ? i * 7919 % bits : random() % bits;
            unsigned char& damaged = bytes[bit / 8];
            const unsigned char whole = damaged;
            damaged = i < bits ? static_cast<unsigned char>(whole ^ (1U << (bit % 8)))
                               : static_cast<unsigned char>(random());
            if (!runBytes(bytes).error.empty()) ++refused;
            damaged = whole;
        }
    });
    // Some bits change nothing that runs; most do.
    EXPECT_GT(refused, kDamagedFiles / 4U);
    EXPECT_EQ(runBytes(bytes).error, "");
}

}  // namespace
