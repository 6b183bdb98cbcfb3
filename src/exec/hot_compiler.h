// The translation of loops and chunks into hot code.
//
//   hot_code.cpp       blocks, plain assignments, expressions without calls
//   hot_call_code.cpp  statements with calls
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "exec/bytecode_program.h"
#include "exec/inline_chunks.h"

/// One translation. It gives up by clearing `ok_`; what it has emitted is then of no use.
class HotCompiler {
public:
    explicit HotCompiler(BytecodeProgram& program) : program_(program) {}

    HotCode compileLoop(BytecodeOp opcode, std::uint32_t operand) {
        mode_ = {false, false, 0};
        emitInstruction(opcode, operand, 0);
        return finish();
    }
    HotCode compileChunk(std::uint32_t chunk, bool amongBlocks) {
        mode_ = {true, amongBlocks, 1};
        const BytecodeChunkRange& range = program_.chunks[chunk];
        if (!rangeIsInside(range, program_)) return {};
        // Behind a `return` nobody sees the value of what ran before.
        valueCounts_ =
            range.instructionCount == 0 ||
            opcodeAt(range.firstInstruction + range.instructionCount - 1) != BytecodeOp::Return;
        emitChunk(chunk);
        return finish();
    }

private:
    /// More than in any code that a person writes, but a damaged file may unfold into much more.
    static constexpr std::size_t kMostInstructions = 1 << 14;

    using Jumps = std::vector<std::uint32_t>;

    /// How the chunk being translated runs.
    struct Mode {
        bool isRecursive = false;
        bool amongBlocks = false;  // a block scope is visible
        std::uint16_t depth = 0;   // see HotStatement
    };
    /// The innermost loop.
    struct Loop {
        std::vector<std::size_t> inside;  // the statements of its body that are in no other loop
        std::uint16_t depth = 0;          // of its own statement
        std::uint16_t openBlocks = 0;     // around it
    };

    // What has been emitted so far, to take back what follows.
    struct Mark {
        std::size_t code;
        std::size_t variables;
        std::size_t keys;
        std::size_t scalarNodes;
    };
    [[nodiscard]] Mark mark() const {
        return {code_.code.size(), code_.variables.size(), code_.keys.size(),
                code_.scalarNodes.size()};
    }
    void takeBack(const Mark& to);

    HotCode finish();
    void emitChunk(std::uint32_t chunk);
    void emitNestedChunk(std::uint32_t chunk);
    void emitInstruction(BytecodeOp opcode, std::uint32_t operand, std::uint32_t position);
    void emitWhole(std::uint32_t line, std::uint32_t position);
    void emitPlain(BytecodeOp opcode, std::uint32_t line, std::uint32_t position);
    bool emitAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    bool emitElementAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    bool emitParallelAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    bool emitReturn(const ParsedScriptLine& line, std::size_t statement);
    // Statements with calls, in hot_call_code.cpp.
    bool emitCalls(const ParsedScriptLine& line, BytecodeOp opcode, std::size_t statement);
    bool emitStatementCall(const ParsedScriptLine& line, std::size_t statement);
    bool emitReturnedCalls(const ParsedScriptLine& line, std::size_t statement);
    bool emitAssignedCalls(const ParsedScriptLine& line, std::size_t statement);
    bool emitDirectCall(const ParsedScriptLine& line, std::size_t statement);
    bool emitFrameCallChain(const ParsedScriptLine& line, const FastExpression& value);
    bool emitAny(const ParsedScriptLine& line, const FastExpression& expression, int index,
                 std::size_t operands, bool beginsWithFrameCall = false);
    bool emitCall(const ParsedScriptLine& line, const FastExpression& expression,
                  const FastExprNode& call, std::size_t operands);
    bool emitArguments(const ParsedScriptLine& line, const FastExpression& expression,
                       const FastExprNode& call, std::size_t operands);
    bool emitScalars(const ParsedScriptLine& line, const FastExpression& expression, int index,
                     std::size_t operands);
    bool emitScalarCall(const ParsedScriptLine& line, const FastExpression& expression, int index,
                        std::size_t operands);
    bool emitWithoutCall(const ParsedScriptLine& line, const FastExpression& expression, int index,
                         std::size_t operands);
    bool emitLiteral(const FastExprNode& node);
    void emitAnyVariable(const ParsedScriptLine& line, const FastExprNode& node,
                         std::uint8_t marks = 0);
    std::int32_t keyAt(const FastExpression& expression, const FastExprNode& text);
    std::uint16_t calleeAt(const ParsedScriptLine& line, std::size_t token);

    // Blocks.
    void emitBreak(std::uint32_t line);
    void emitIfGroup(const BytecodeIfGroup& group);
    void emitWhileLoop(const BytecodeWhileLoop& loop);
    void emitRepeatLoop(const BytecodeRepeatLoop& loop);
    void emitNumericFor(const BytecodeForLoop& loop);
    void emitLoopBody(std::uint32_t chunk, Loop& loop);
    void endLoop(const Loop& loop);
    bool emitForClause(const ParsedScriptLine& line);
    void emitCondition(HotStatementKind kind, std::uint32_t line, ScalarOpcode jump);
    void emitExpression(const ParsedScriptLine& line, const FastExpression& expression,
                        bool isExact) {
        emitCode(line, expression, expression.scalarCode, isExact);
    }
    void emitCode(const ParsedScriptLine& line, const FastExpression& expression,
                  const SharedArray<ScalarInstruction>& code, bool isExact);
    std::uint16_t variableAt(const ParsedScriptLine& line, std::size_t token);

    ScalarInstruction& emit(ScalarOpcode opcode, std::int32_t value = 0) {
        ok_ = ok_ && code_.code.size() < kMostInstructions;
        code_.code.push_back({opcode, 0, 0, {value}});
        return code_.code.back();
    }
    [[nodiscard]] std::uint32_t here() const {
        return static_cast<std::uint32_t>(code_.code.size());
    }
    void jumpTo(std::uint32_t position, std::uint32_t target) {
        code_.code[position].intValue = static_cast<std::int32_t>(target);
    }
    [[nodiscard]] BytecodeOp opcodeAt(std::uint32_t position) const {
        return static_cast<BytecodeOp>(program_.code[position].opcode);
    }
    std::size_t beginStatement(HotStatementKind kind, std::uint32_t line);
    /// In a recursive run there is something to do where a statement begins, and where a block
    /// statement ends.
    void beginRecursiveStatement() {
        if (mode_.isRecursive && !hasBegun_) emit(ScalarOpcode::BeginStatement);
        hasBegun_ = false;
    }
    void endBlockStatement() {
        if (mode_.isRecursive) emit(ScalarOpcode::EndBlock);
    }
    void runByExecutor(std::size_t statement) {
        emit(ScalarOpcode::RunStatement, static_cast<std::int32_t>(statement));
    }
    /// The line, or null, with the translation given up.
    const ParsedScriptLine* lineAt(std::uint32_t index) {
        if (index < program_.lines.size()) return &program_.lines[index];
        ok_ = false;
        return nullptr;
    }
    /// The record at `index`, or null, with the translation given up.
    template <typename Record>
    const Record* recordAt(const std::vector<Record>& table, std::uint32_t index) {
        if (index < table.size()) return &table[index];
        ok_ = false;
        return nullptr;
    }
    [[nodiscard]] bool isInlinable(std::uint32_t chunk) {
        return !mode_.amongBlocks && chunkIsInlinable(program_, chunk);
    }

    BytecodeProgram& program_;
    HotCode code_;
    Mode mode_;
    Loop* loop_ = nullptr;
    std::uint16_t openFors_ = 0;
    std::uint16_t openBlocks_ = 0;
    std::size_t nestedBlocks_ = 0;
    bool valueCounts_ = false;
    bool hasBegun_ = false;  // since the last statement began, nothing could give a turn
    bool ok_ = true;
};
