// Hot code: a loop or a chunk as one straight sequence of instructions.
//
// The executor runs a program statement by statement and looks up every variable through the cache
// of its token. In code that runs often that is nearly all of the work. So a loop that may run
// inline is translated at its first run, and a chunk at its second, into the instructions of its
// expressions joined by jumps and stores; and its variables are looked up once and kept.
//
// What makes this right:
//   1. Instructions of hot code run no script code, but for those that call or give turns, so a
//      variable that has been bound stays in place. Whenever script code has run, all variables are
//      bound anew before any of them is met again.
//   2. A variable is read as the executor reads it. It is bound for writing only where its token's
//      cache is good; where it is not, and wherever an instruction declines, the executor runs the
//      whole statement instead. Nothing that can be seen has been done by then, or else the
//      statement goes on by the tier that comes next.
//   3. Whoever looks from outside - an error, another statement, a turn of a coroutine - finds the
//      current line, the last token and the chunk's value as the executor would have left them.
//   4. Turns of a coroutine come where they come in the executor: in a recursive run behind each
//      statement and each block statement, in an inline run behind plain statements.
//   5. A function that is called from hot code and is hot code itself runs in the same loop over
//      instructions, in a HotFrame. Its errors are located in it, and pass its callers as they are.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frontend/scalar_code.h"

struct BytecodeProgram;
struct FastExpression;
struct TokenAnalysis;
struct Variable;

/// What the executor has to do for a statement that hot code cannot run.
enum class HotStatementKind : std::uint8_t {
    Whole,        // an instruction of the program
    IfCondition,  // of an `if` or `elseif`
    WhileCondition,
    UntilCondition,
    ForHeader,  // of a numeric `for`
    Marker,     // nothing; it only has a line
};

/// One statement of hot code, or one condition. Positions are indices of instructions of hot code.
struct HotStatement {
    HotStatementKind kind = HotStatementKind::Whole;
    bool isRecursive = false;       // in a recursive run, not in an inline one
    std::uint16_t depth = 0;        // statements of recursive runs that end with it, if it leaves
    std::uint16_t loopDepth = 0;    // the same of the innermost loop's statement
    std::uint16_t loopBlocks = 0;   // block scopes of this code that are open around that loop
    std::uint32_t line = 0;         // index of its line
    std::uint32_t instruction = 0;  // of the program, for a whole instruction
    std::uint32_t first = 0;        // where its code begins
    std::uint32_t next = 0;         // where it goes on: behind it, or if the condition holds
    std::uint32_t otherwise = 0;    // if the condition does not hold, or the `for` has no turn
    std::uint32_t loopEnd = 0;      // where a break goes; 0 outside loops
};

/// How many `for`s may be open in hot code, and how many variables it may name.
inline constexpr std::size_t kMostHotFors = 8;
inline constexpr std::size_t kMostHotVariables = 512;

/// What is bound where nothing is ever bound.
inline constexpr std::array<Variable*, kMostHotVariables> kNothingBound{};

/// How many targets an assignment may have in hot code.
inline constexpr std::size_t kMostParallelTargets = 4;

/// How many values the code may hold: those of an expression, above the keys and the other values
/// of an assignment.
inline constexpr std::size_t kHotStackSize = kScalarStackSize + 2 * kMostParallelTargets;

/// A node that goes by the scalar tier in an assigned value with calls.
struct HotScalarNode {
    const FastExpression* expression = nullptr;
    const std::vector<TokenAnalysis>* analysis = nullptr;
    int node = 0;
    // Of a call only.
    const std::string* key = nullptr;  // of the callee, if it is an entry of a table
    bool argumentsHoldCall = false;
    std::uint32_t behind = 0;  // where the code goes on with the result
};

/// The pointers lead into the program, which owns the code.
struct HotCode {
    /// Where nothing could be translated, there is no instruction.
    [[nodiscard]] bool isUsable() const { return !code.empty(); }

    bool goesBack = false;  // there is a loop, so that a variable may be met more than once
    std::vector<ScalarInstruction> code;
    std::vector<HotStatement> statements;         // by ascending `first`
    std::vector<const TokenAnalysis*> variables;  // one for each place that names one
    std::vector<const std::string*> keys;         // literal keys of table entries
    std::vector<HotScalarNode> scalarNodes;
};

/// What is known of a chunk, or of the loop around it, as hot code. A copy knows nothing: the code
/// leads into the program that it was made from.
struct HotChunk {
    HotChunk() = default;
    HotChunk(const HotChunk&) {}
    HotChunk(HotChunk&&) noexcept = default;
    HotChunk& operator=(const HotChunk&) { return *this = HotChunk(); }
    HotChunk& operator=(HotChunk&&) noexcept = default;
    ~HotChunk() = default;

    bool hasRun = false;
    std::unique_ptr<const HotCode> chunk;             // once translated, while no block scope is
    std::unique_ptr<const HotCode> chunkAmongBlocks;  // visible around it, and while one is
    std::unique_ptr<const HotCode> loop;              // the loop whose body this is, run inline
    std::uint8_t loopOpcode = 0;                      // the instruction that `loop` stands for
    std::uint32_t loopOperand = 0;
};

/// Translates the loop that an instruction runs. Its body must be inlinable, and no block scope
/// visible when the code runs.
[[nodiscard]] HotCode compileHotLoop(BytecodeProgram& program, std::uint8_t opcode,
                                     std::uint32_t operand);

/// Translates a chunk for a recursive run, for when a block scope is visible around it or when none
/// is.
[[nodiscard]] HotCode compileHotChunk(BytecodeProgram& program, std::uint32_t chunk,
                                      bool amongBlocks);
