#include <cstdint>
#include <string>

#include "exec/bytecode_file.h"
#include "exec/bytecode_program.h"

namespace {

/// Appends the primitive encodings. Nothing is checked to fit: the low 32 bits are kept.
class ByteWriter {
public:
    void u8(std::uint8_t value) { bytes_.push_back(value); }
    void u16(std::uint16_t value) {
        u8(static_cast<std::uint8_t>(value & 0xFF));
        u8(static_cast<std::uint8_t>(value >> 8));
    }
    void u32(std::size_t value) {
        for (int shift = 0; shift < 32; shift += 8) {
            u8(static_cast<std::uint8_t>((value >> shift) & 0xFF));
        }
    }
    void bool8(bool value) { u8(value ? 1 : 0); }
    void str(const std::string& text) {
        u32(text.size());
        bytes_.insert(bytes_.end(), text.begin(), text.end());
    }
    std::vector<unsigned char> take() { return std::move(bytes_); }

private:
    std::vector<unsigned char> bytes_;
};

void writeLines(ByteWriter& out, const LineTable& lines) {
    out.u32(lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const ParsedScriptLine& line = lines[i];
        out.str(line.source);
        out.u32(line.lineNumber);
        out.u32(line.tokens.size());
        for (const std::string& token : line.tokens) out.str(token);
    }
}

void writeCode(ByteWriter& out, const BytecodeProgram& program) {
    out.u32(program.code.size());
    for (const BytecodeInstruction& instruction : program.code) {
        out.u8(static_cast<std::uint8_t>(program.opOf(instruction)));
        out.u32(instruction.operand);
        out.u32(instruction.reserved);
    }
    out.u32(program.chunks.size());
    for (const BytecodeChunkRange& chunk : program.chunks) {
        out.u32(chunk.firstInstruction);
        out.u32(chunk.instructionCount);
        out.bool8(chunk.hasLocalDeclaration);
    }
}

void writeIfGroups(ByteWriter& out, const std::vector<BytecodeIfGroup>& groups) {
    out.u32(groups.size());
    for (const BytecodeIfGroup& group : groups) {
        out.u32(group.branches.size());
        for (const BytecodeIfBranch& branch : group.branches) {
            out.u32(branch.conditionLine);
            out.u32(branch.bodyChunk);
            out.bool8(branch.isElse);
        }
    }
}

void writeForLoops(ByteWriter& out, const std::vector<BytecodeForLoop>& loops) {
    out.u32(loops.size());
    for (const BytecodeForLoop& loop : loops) {
        out.u32(loop.headerLine);
        out.u32(loop.bodyChunk);
    }
}

void writeLoops(ByteWriter& out, const BytecodeProgram& program) {
    out.u32(program.whileLoops.size());
    for (const BytecodeWhileLoop& loop : program.whileLoops) {
        out.u32(loop.conditionLine);
        out.u32(loop.bodyChunk);
    }
    out.u32(program.repeatLoops.size());
    for (const BytecodeRepeatLoop& loop : program.repeatLoops) {
        out.u32(loop.untilLine);
        out.u32(loop.bodyChunk);
    }
    writeForLoops(out, program.numericFors);
    writeForLoops(out, program.genericFors);
}

void writeFunctions(ByteWriter& out, const std::vector<BytecodeFunctionDecl>& functions) {
    out.u32(functions.size());
    for (const BytecodeFunctionDecl& function : functions) {
        out.u32(function.declarationLine);
        out.u32(function.bodyChunk);
        out.u32(function.bodyFirstLine);
        out.u32(function.bodyEndLine);
        out.str(function.baseDirectory);
        out.str(function.scriptName);
    }
}

}  // namespace

std::vector<unsigned char> serializeBytecode(const BytecodeProgram& program) {
    ByteWriter out;
    for (const char c : {'D', 'V', 'B', 'C'}) out.u8(static_cast<std::uint8_t>(c));
    out.u16(program.version);
    out.str(program.baseDirectory);
    out.str(program.scriptName);
    writeLines(out, program.lines);
    writeCode(out, program);
    writeIfGroups(out, program.ifGroups);
    writeLoops(out, program);
    writeFunctions(out, program.functionDecls);
    return out.take();
}
