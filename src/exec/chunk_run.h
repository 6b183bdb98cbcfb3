// One run of a chunk of bytecode: the executor's main loop and everything that it runs.
//
// Rules for the code behind this header:
//   1. A run that is recursive has a scope guard, a conversion handler and a turn hook around each
//      statement. An inline run shares the state of the recursive run around it and has none of
//      these; it is legal only while no block scope is visible and only for inlinable chunks.
//   2. `signal` tells why a run stopped; the value goes to `value_`. A run that is left by a soft
//      error has the value nil and no signal.
//   3. Every index from a program is checked before use: a loaded file is not trusted.
//   4. Scripts run anywhere below a statement, so nothing that points into a scope, an array or a
//      table is kept across one.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "exec/bytecode_program.h"
#include "exec/inline_chunks.h"
#include "interpreter/dovrel_script.h"

class ChunkRun {
public:
    /// `nesting` counts the chunks around this one, up to that of the script or function.
    ChunkRun(DovrelScript& interpreter, const std::shared_ptr<BytecodeProgram>& program,
             std::uint32_t nesting)
        : interpreter_(interpreter), program_(program), lines_(program->lines), nesting_(nesting) {}

    /// Runs the instructions of `range`, which lies inside the code, and returns the chunk's value.
    Variable run(const BytecodeChunkRange& range, BlockSignal& signal);
    /// Runs one instruction of a recursive run, without the turn behind it. False to leave the
    /// chunk: because of `signal`, or of a soft error.
    bool runOne(const BytecodeInstruction& instruction, BlockSignal& signal);
    /// What the run has come to so far.
    [[nodiscard]] Variable& value() { return value_; }

private:
    /// What follows an instruction.
    enum class Flow : std::uint8_t {
        Next,   // the next instruction
        Leave,  // the run ends
    };
    /// How a run treats its statements.
    enum class Mode : std::uint8_t { Recursive, Inline };

    // The two dispatchers.
    Flow execute(const BytecodeInstruction& instruction, BlockSignal& signal);
    void runChunkInline(std::uint32_t chunk, BlockSignal& signal);
    Flow executeInline(const BytecodeInstruction& instruction, BlockSignal& signal);
    Flow executeObserved(const BytecodeInstruction& instruction, BlockSignal& signal);
    Flow endInlineStatement();

    // Instructions.
    void runUnread(std::uint32_t line);
    void runStatement(std::uint32_t line);
    void runFastAssign(std::uint32_t line);
    Flow runIfGroup(std::uint32_t index, BlockSignal& signal, Mode mode);
    Flow runWhileLoop(std::uint32_t index, BlockSignal& signal, Mode mode);
    Flow runRepeatLoop(std::uint32_t index, BlockSignal& signal, Mode mode);
    Flow runNumericFor(std::uint32_t index, BlockSignal& signal, Mode mode);
    Flow runGenericFor(std::uint32_t index, BlockSignal& signal);
    void runFunctionDecl(std::uint32_t index);
    Flow runReturn(std::uint32_t line, BlockSignal& signal);

    // FastAssign.
    bool evaluateAssignedValue(const ParsedScriptLine& line, FastScalarValue& scalar,
                               Variable& value);
    bool evaluateDirectCall(const ParsedScriptLine& line, FastScalarValue& scalar, Variable& value);
    /// Calls the variable at a token. True if the result is `scalar`, else it is `value`.
    bool callDirectly(const TokenAnalysis& name, Arguments args, FastScalarValue& scalar,
                      Variable& value);
    void assignValue(const ParsedScriptLine& line, const FastScalarValue& scalar, bool isScalar,
                     Variable& value);
    void storeAssigned(const ParsedScriptLine& line, const FastScalarValue& scalar, bool isScalar,
                       Variable& value);
    void applyCompound(const ParsedScriptLine& line, const FastScalarValue& scalar, bool isScalar,
                       const Variable& value);

    // Generic for.
    struct GenericLoop;
    BuiltinId loopBuiltin(const ParsedScriptLine& line, std::size_t iterator);
    Flow walkBuiltin(GenericLoop& loop, BuiltinId builtin);
    bool tryWalkCall(GenericLoop& loop, Flow& flow);
    Flow walkGmatch(GenericLoop& loop, Arguments args);
    Flow walkBytes(GenericLoop& loop, Arguments args);
    Flow walkArrayPairs(GenericLoop& loop, const Shared<ArrayStorage>& array);
    Flow walkTableSequence(GenericLoop& loop, const Shared<TableStorage>& table);
    Flow walkTableKeys(GenericLoop& loop, const Shared<TableStorage>& table);
    Flow walkElements(GenericLoop& loop, const Shared<ArrayStorage>& elements);
    bool runPair(GenericLoop& loop, const Variable& key, const Variable& element);
    /// Runs the body once; false if the loop is over, with `loop.flow` saying what follows it.
    bool runLoopBody(GenericLoop& loop);

    // Bodies of blocks.
    [[nodiscard]] bool canRunInline(std::uint32_t chunk) {
        return !interpreter_.blockScopeVisible() && chunkIsInlinable(*program_, chunk);
    }
    void runBody(std::uint32_t chunk, bool isInline, BlockSignal& nested) {
        nested = BlockSignal::None;
        if (isInline) {
            runChunkInline(chunk, nested);
        } else {
            runNestedChunk(chunk, nested);
        }
    }
    void runNestedChunk(std::uint32_t chunk, BlockSignal& nested);
    /// What a loop does after its body has run: true if the loop goes on. Otherwise `flow` is set.
    bool continuesAfterBody(BlockSignal nested, BlockSignal& signal, Flow& flow);

    const ParsedScriptLine& selectLine(std::uint32_t index);
    /// The same for a statement that is about to run, or a condition to be tested.
    const ParsedScriptLine& beginStatement(std::uint32_t index) {
        const ParsedScriptLine& line = selectLine(index);
        interpreter_.beginStatement(line);
        return line;
    }
    /// The end of every statement of a recursive run that raises. Called from a handler.
    [[noreturn]] void rethrowLocated(const std::exception& error);
    /// The same where a protected call can do with less: true if the chunk is left with nil.
    bool tryRecordFault(const std::exception& error);
    /// What a report of the statement is near to if no token has been read.
    [[nodiscard]] std::string_view tokenOfStatement() const;
    bool evaluateCondition(const ParsedScriptLine& line, std::string_view word) {
        return interpreter_.evaluateCondition(line, word, DovrelScript::ConditionTiers::BoolFirst);
    }
    [[nodiscard]] bool unwinding() const { return interpreter_.softErrorUnwinding(); }
    /// Leaves the chunk because of a soft error.
    Flow leaveWithNil() {
        value_ = Variable();
        return Flow::Leave;
    }

    DovrelScript& interpreter_;
    const std::shared_ptr<BytecodeProgram>& program_;
    const LineTable& lines_;  // the program's
    std::uint32_t nesting_;
    Variable value_;  // of the last expression statement or nested body
    static constexpr std::uint32_t kNoStatement = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t statementLine_ = kNoStatement;  // the line that runs
};
