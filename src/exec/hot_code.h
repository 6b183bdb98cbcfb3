// Hot code: a loop of a script as one straight sequence of instructions.
//
// The executor runs a program statement by statement and looks up every variable through the cache
// of its token. In a loop over numbers that is nearly all of the work. So a loop whose body can run
// inline is translated, at its first run, into the instructions of its expressions joined by jumps
// and stores, and its variables are looked up once and kept.
//
// What makes this right:
//   1. Only a loop that may run inline is translated, so there is no scope to push for a block.
//   2. Instructions of hot code run no script code, so variables that have been bound stay in
//      place. Any other statement is run by the executor, and then everything is bound anew.
//   3. A variable is bound only where its token's cache is good. Where it is not, and wherever an
//      instruction declines, the executor runs the whole statement instead.
//   4. Whoever looks from outside - an error, another statement, a turn of a coroutine - finds the
//      current line, the last token and the chunk's value as the executor would have left them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frontend/scalar_code.h"

struct BytecodeProgram;
struct TokenAnalysis;

/// What the executor has to do for a statement that hot code cannot run.
enum class HotStatementKind : std::uint8_t {
    Plain,          // a Statement or a FastAssign
    IfCondition,    // of an `if` or `elseif`
    LoopCondition,  // of a `while`
    UntilCondition,
    ForHeader,  // of a numeric `for`
    Marker,     // nothing; it only has a line
};

/// One statement of hot code, or one condition. Positions are indices of instructions.
struct HotStatement {
    HotStatementKind kind;
    std::uint32_t line;             // index of its line
    std::uint32_t instruction = 0;  // of the program, for a plain statement
    std::uint32_t first = 0;        // where its code begins
    std::uint32_t next = 0;         // where it goes on: behind it, or if the condition holds
    std::uint32_t otherwise = 0;    // if the condition does not hold, or the `for` has no turn
    std::uint16_t loop = 0;         // for a `for` header: how many are open around it
};

/// How many variables a loop may name, and how deep its `for`s may nest.
inline constexpr std::size_t kMostHotVariables = 96;
inline constexpr std::size_t kMostHotFors = 8;

/// How many values the code may hold: those of an expression, above the other two of a header.
inline constexpr std::size_t kHotStackSize = kScalarStackSize + 2;

/// The hot code of one loop. The pointers lead into the program, which owns it.
struct HotCode {
    std::uint8_t opcode = 0;              // the instruction of the program that it stands for
    std::uint32_t operand = 0;            // the same
    std::vector<ScalarInstruction> code;  // empty for a loop that is not fit for it
    std::vector<HotStatement> statements;         // by ascending `first`
    std::vector<const TokenAnalysis*> variables;  // one for each place that names one
    std::vector<const std::string*> keys;         // literal keys of table entries
};

/// Translates the loop that an instruction of the program runs; its body must be inlinable.
[[nodiscard]] HotCode compileHotLoop(const BytecodeProgram& program, std::uint8_t opcode,
                                     std::uint32_t operand);
