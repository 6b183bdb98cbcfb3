// The compiled form of one script text: its prepared lines, and their block structure as chunks of
// coarse instructions. An instruction is one statement or one whole control structure; there are no
// jumps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "exec/machine_function.h"
#include "frontend/line_table.h"

/// What an instruction runs. `operand` is an index into the table named here.
enum class BytecodeOp : std::uint16_t {
    Statement = 0,     // lines
    FastAssign = 1,    // lines; one plain target, one compiled value
    IfGroup = 2,       // ifGroups
    WhileLoop = 3,     // whileLoops
    RepeatLoop = 4,    // repeatLoops
    NumericFor = 5,    // numericFors
    GenericFor = 6,    // genericFors
    FunctionDecl = 7,  // functionDecls
    Return = 8,        // lines
    Break = 9,         // lines
    // Never in a file: Statement or FastAssign, which the line tells when it is read.
    Unread = 256,  // lines
};

struct BytecodeInstruction {
    std::uint16_t opcode = 0;  // a BytecodeOp; a loaded file may hold any byte
    std::uint32_t operand = 0;
    std::uint32_t reserved = 0;  // always 0; read and written, otherwise unused
};

/// The instructions of one block.
struct BytecodeChunkRange {
    std::uint32_t firstInstruction = 0;
    std::uint32_t instructionCount = 0;
    bool hasLocalDeclaration = true;  // a line of the block itself, not of a nested one, is `local`
};

struct BytecodeIfBranch {
    std::uint32_t conditionLine = 0;  // the `if`, `elseif` or `else` line
    std::uint32_t bodyChunk = 0;
    bool isElse = false;
};

struct BytecodeIfGroup {
    std::vector<BytecodeIfBranch> branches;
};

struct BytecodeWhileLoop {
    std::uint32_t conditionLine = 0;
    std::uint32_t bodyChunk = 0;
};

struct BytecodeRepeatLoop {
    std::uint32_t untilLine = 0;  // the `until` line, not the `repeat` line
    std::uint32_t bodyChunk = 0;
};

struct BytecodeForLoop {
    std::uint32_t headerLine = 0;
    std::uint32_t bodyChunk = 0;
};

struct BytecodeFunctionDecl {
    std::uint32_t declarationLine = 0;
    std::uint32_t bodyChunk = 0;
    std::uint32_t bodyFirstLine = 0;  // the body is the line range [bodyFirstLine, bodyEndLine)
    std::uint32_t bodyEndLine = 0;
    std::string baseDirectory;
    std::string scriptName;
};

/// Whether a chunk can run inline, once somebody has asked.
enum class ChunkInlineState : std::uint8_t {
    Unknown = 0,
    No = 1,
    Yes = 2,
    BeingExamined = 3,  // met again below itself: a damaged file whose chunk holds itself
};

inline constexpr std::uint16_t kBytecodeVersion = 6;

/// A compiled script. `chunks` is in pre-order (chunk 0 is the top level), `code` and the side
/// tables are in post-order; the instructions of one chunk stand side by side. Held by shared
/// pointer by all functions that it declares. Nothing changes after compiling but the inline
/// states, the compiled form and the slot caches of the lines.
struct BytecodeProgram {
    std::uint16_t version = kBytecodeVersion;
    std::string baseDirectory;  // directory of the script, or empty
    std::string scriptName;     // name for error reports, or empty
    LineTable lines;
    std::vector<BytecodeInstruction> code;
    std::vector<BytecodeChunkRange> chunks;
    std::vector<BytecodeIfGroup> ifGroups;
    std::vector<BytecodeWhileLoop> whileLoops;
    std::vector<BytecodeRepeatLoop> repeatLoops;
    std::vector<BytecodeForLoop> numericFors;
    std::vector<BytecodeForLoop> genericFors;
    std::vector<BytecodeFunctionDecl> functionDecls;
    std::vector<ChunkInlineState> chunkInlineStates;  // one per chunk once sized; never stored
    MachineFunctions machineFunctions;                // the same

    /// What an instruction is, with its line read if that takes it.
    [[nodiscard]] BytecodeOp opOf(const BytecodeInstruction& instruction) const {
        const auto op = static_cast<BytecodeOp>(instruction.opcode);
        if (op != BytecodeOp::Unread) return op;
        return lines[instruction.operand].isFastAssignment ? BytecodeOp::FastAssign
                                                           : BytecodeOp::Statement;
    }
};
