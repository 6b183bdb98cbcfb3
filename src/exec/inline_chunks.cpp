#include "exec/inline_chunks.h"

namespace {

bool allBodiesInlinable(BytecodeProgram& program, const BytecodeChunkRange& range) {
    const auto bodyInlinable = [&program](const auto& table, std::uint32_t index) {
        return index < table.size() && chunkIsInlinable(program, table[index].bodyChunk);
    };
    for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
        const BytecodeInstruction& instruction = program.code[range.firstInstruction + i];
        bool fits = false;
        switch (static_cast<BytecodeOp>(instruction.opcode)) {
            case BytecodeOp::Statement:
            case BytecodeOp::FastAssign:
            case BytecodeOp::Unread:
            case BytecodeOp::Break: fits = true; break;
            case BytecodeOp::IfGroup:
                fits = instruction.operand < program.ifGroups.size();
                if (fits) {
                    for (const auto& branch : program.ifGroups[instruction.operand].branches) {
                        fits = fits && chunkIsInlinable(program, branch.bodyChunk);
                    }
                }
                break;
            case BytecodeOp::WhileLoop:
                fits = bodyInlinable(program.whileLoops, instruction.operand);
                break;
            case BytecodeOp::RepeatLoop:
                fits = bodyInlinable(program.repeatLoops, instruction.operand);
                break;
            case BytecodeOp::NumericFor:
                fits = bodyInlinable(program.numericFors, instruction.operand);
                break;
            default: break;
        }
        if (!fits) return false;
    }
    return true;
}

}  // namespace

bool rangeIsInside(const BytecodeChunkRange& range, const BytecodeProgram& program) {
    return std::uint64_t{range.firstInstruction} + range.instructionCount <= program.code.size();
}

bool chunkIsInlinable(BytecodeProgram& program, std::uint32_t chunk) {
    if (chunk >= program.chunks.size()) return false;
    if (program.chunkInlineStates.size() < program.chunks.size()) {
        program.chunkInlineStates.resize(program.chunks.size(), ChunkInlineState::Unknown);
    }
    const ChunkInlineState known = program.chunkInlineStates[chunk];
    if (known != ChunkInlineState::Unknown) return known == ChunkInlineState::Yes;

    // Marked while it is examined: a damaged file may hold a chunk that contains itself.
    program.chunkInlineStates[chunk] = ChunkInlineState::BeingExamined;
    const BytecodeChunkRange& range = program.chunks[chunk];
    const bool inlinable = !range.hasLocalDeclaration && rangeIsInside(range, program) &&
                           allBodiesInlinable(program, range);
    program.chunkInlineStates[chunk] = inlinable ? ChunkInlineState::Yes : ChunkInlineState::No;
    return inlinable;
}
