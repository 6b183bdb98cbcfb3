// The bytes of bytecode files, built field by field: what the writer and the reader are measured
// against. Knows all three versions, while the writer knows the newest only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "exec/bytecode_program.h"

using FileBytes = std::vector<unsigned char>;

class ByteBuilder {
public:
    ByteBuilder& u8(unsigned int value) {
        bytes_.push_back(static_cast<unsigned char>(value & 0xFF));
        return *this;
    }
    ByteBuilder& u16(unsigned int value) { return u8(value).u8(value >> 8); }
    ByteBuilder& u32(std::uint64_t value) {
        return u16(static_cast<unsigned int>(value & 0xFFFF))
            .u16(static_cast<unsigned int>((value >> 16) & 0xFFFF));
    }
    ByteBuilder& raw(std::string_view text) {
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        return *this;
    }
    ByteBuilder& str(std::string_view text) { return u32(text.size()).raw(text); }
    /// Magic, version, and the header strings of that version.
    ByteBuilder& header(unsigned int version, std::string_view directory = "",
                        std::string_view name = "") {
        raw("DVBC").u16(version).str(directory);
        return version >= 5 ? str(name) : *this;
    }
    /// The counts of `tables` empty tables.
    ByteBuilder& emptyTables(int tables) {
        for (int i = 0; i < tables; ++i) u32(0);
        return *this;
    }
    [[nodiscard]] const FileBytes& bytes() const { return bytes_; }

private:
    FileBytes bytes_;
};

namespace bytecode_bytes {

template <typename Loop>
void appendPairs(ByteBuilder& out, const std::vector<Loop>& loops,
                 std::uint32_t Loop::*firstField) {
    out.u32(loops.size());
    for (const Loop& loop : loops) out.u32(loop.*firstField).u32(loop.bodyChunk);
}

inline void appendLines(ByteBuilder& out, const BytecodeProgram& program, unsigned int version) {
    out.u32(program.lines.size());
    for (const ParsedScriptLine& line : program.lines.records()) {
        out.str(line.source);
        if (version >= 6) out.u32(line.lineNumber);
        out.u32(line.tokens.size());
        for (const std::string& token : line.tokens) out.str(token);
    }
}

inline void appendCode(ByteBuilder& out, const BytecodeProgram& program) {
    out.u32(program.code.size());
    for (const BytecodeInstruction& instruction : program.code) {
        out.u8(static_cast<std::uint8_t>(instruction.opcode))
            .u32(instruction.operand)
            .u32(instruction.reserved);
    }
    out.u32(program.chunks.size());
    for (const BytecodeChunkRange& chunk : program.chunks) {
        out.u32(chunk.firstInstruction).u32(chunk.instructionCount);
        out.u8(chunk.hasLocalDeclaration ? 1 : 0);
    }
    out.u32(program.ifGroups.size());
    for (const BytecodeIfGroup& group : program.ifGroups) {
        out.u32(group.branches.size());
        for (const BytecodeIfBranch& branch : group.branches) {
            out.u32(branch.conditionLine).u32(branch.bodyChunk).u8(branch.isElse ? 1 : 0);
        }
    }
}

inline void appendFunctions(ByteBuilder& out, const BytecodeProgram& program,
                            unsigned int version) {
    out.u32(program.functionDecls.size());
    for (const BytecodeFunctionDecl& function : program.functionDecls) {
        out.u32(function.declarationLine).u32(function.bodyChunk);
        out.u32(function.bodyFirstLine).u32(function.bodyEndLine).str(function.baseDirectory);
        if (version >= 5) out.str(function.scriptName);
    }
}

}  // namespace bytecode_bytes

/// The whole file of a program in the form of `version`.
inline FileBytes fileOf(const BytecodeProgram& program, unsigned int version = 6) {
    ByteBuilder out;
    out.header(version, program.baseDirectory, program.scriptName);
    bytecode_bytes::appendLines(out, program, version);
    bytecode_bytes::appendCode(out, program);
    bytecode_bytes::appendPairs(out, program.whileLoops, &BytecodeWhileLoop::conditionLine);
    bytecode_bytes::appendPairs(out, program.repeatLoops, &BytecodeRepeatLoop::untilLine);
    bytecode_bytes::appendPairs(out, program.numericFors, &BytecodeForLoop::headerLine);
    bytecode_bytes::appendPairs(out, program.genericFors, &BytecodeForLoop::headerLine);
    bytecode_bytes::appendFunctions(out, program, version);
    return out.bytes();
}
