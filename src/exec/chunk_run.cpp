// The bytecode executor: the main loop, statements, and blocks. Loops over `for` headers are in
// for_loops.cpp and generic_for.cpp, FastAssign is in fast_assign.cpp.
#include "exec/chunk_run.h"

#include <utility>

#include "eval/errors.h"
#include "exec/function_declaration.h"
#include "exec/inline_chunks.h"
#include "value/stack_end.h"

namespace {

/// Pushes a block scope if a chunk needs one, and pops down to the count at its start.
class LocalScopeGuard {
public:
    LocalScopeGuard(DovrelScript& interpreter, bool active)
        : interpreter_(interpreter),
          savedFloor_(interpreter.blockScopeFloor),
          savedCount_(interpreter.blockScopes.size()),
          active_(active) {
        if (active_) interpreter_.pushBlockScope();
    }
    ~LocalScopeGuard() {
        if (!active_) return;
        interpreter_.blockScopes.popTo(savedCount_);
        interpreter_.blockScopeFloor = savedFloor_;
    }
    LocalScopeGuard(const LocalScopeGuard&) = delete;
    LocalScopeGuard& operator=(const LocalScopeGuard&) = delete;

private:
    DovrelScript& interpreter_;
    std::size_t savedFloor_;
    std::size_t savedCount_;
    bool active_;
};

/// The record at `index` of a side table; raises `message` for an index outside.
template <typename Record>
const Record& tableEntry(const std::vector<Record>& table, std::uint32_t index,
                         const char* message) {
    if (index >= table.size()) throwPlainError(message);
    return table[index];
}

}  // namespace

Variable DovrelScript::executeBytecodeChunkInternal(const std::shared_ptr<BytecodeProgram>& program,
                                                    std::uint32_t chunk, BlockSignal& signal,
                                                    std::uint32_t nesting) {
    if (program == nullptr || chunk >= program->chunks.size()) {
        throwPlainError("Invalid bytecode chunk index");
    }
    requireHostStack();
    ChunkRun run(*this, program, nesting);
    const BytecodeChunkRange range = program->chunks[chunk];
    const LocalScopeGuard scope(*this, range.hasLocalDeclaration || blockScopeVisible());
    if (!rangeIsInside(range, *program)) throwPlainError("Bytecode chunk range is out of bounds");
    signal = BlockSignal::None;
    return run.run(range, signal);
}

Variable ChunkRun::run(const BytecodeChunkRange& range, BlockSignal& signal) {
    const BytecodeInstruction* instruction = program_->code.data() + range.firstInstruction;
    const BytecodeInstruction* const end = instruction + range.instructionCount;
    for (; instruction != end; ++instruction) {
        try {
            if (interpreter_.pendingCoroutineException) {
                interpreter_.rethrowPendingCoroutineException();
            }
            if (unwinding()) return {};
            const Flow flow = execute(*instruction, signal);
            interpreter_.runTurnHook();
            interpreter_.settleMemoryIfDue();
            if (flow == Flow::Leave) break;
        } catch (const std::exception& error) {
            if (tryRecordFault(error)) return {};
            rethrowLocated(error);
        }
    }
    return std::move(value_);
}

bool ChunkRun::runOne(const BytecodeInstruction& instruction, BlockSignal& signal) {
    try {
        return execute(instruction, signal) == Flow::Next;
    } catch (const std::exception& error) {
        rethrowLocated(error);
    }
}

std::string_view ChunkRun::tokenOfStatement() const {
    const std::string_view token =
        statementLine_ != kNoStatement ? lines_.firstTokenOf(statementLine_) : std::string_view();
    return token.data() != nullptr ? token : "script";
}

void ChunkRun::rethrowLocated(const std::exception& error) {
    interpreter_.rethrowLocated(error, tokenOfStatement());
}

bool ChunkRun::tryRecordFault(const std::exception& error) {
    return interpreter_.tryRecordFault(error, tokenOfStatement());
}

const ParsedScriptLine& ChunkRun::selectLine(std::uint32_t index) {
    if (index >= lines_.size()) throwPlainError("Bytecode line index out of range");
    const ParsedScriptLine& line = lines_.forRunning(index);
    interpreter_.selectLine(line);
    statementLine_ = index;
    return line;
}

ChunkRun::Flow ChunkRun::execute(const BytecodeInstruction& instruction, BlockSignal& signal) {
    const std::uint32_t operand = instruction.operand;
    switch (static_cast<BytecodeOp>(instruction.opcode)) {
        case BytecodeOp::Unread: runUnread(operand); break;
        case BytecodeOp::Statement: runStatement(operand); break;
        case BytecodeOp::FastAssign: runFastAssign(operand); break;
        case BytecodeOp::IfGroup: return runIfGroup(operand, signal, Mode::Recursive);
        case BytecodeOp::WhileLoop: return runWhileLoop(operand, signal, Mode::Recursive);
        case BytecodeOp::RepeatLoop: return runRepeatLoop(operand, signal, Mode::Recursive);
        case BytecodeOp::NumericFor: return runNumericFor(operand, signal, Mode::Recursive);
        case BytecodeOp::GenericFor: return runGenericFor(operand, signal);
        case BytecodeOp::FunctionDecl: runFunctionDecl(operand); break;
        case BytecodeOp::Return: return runReturn(operand, signal);
        case BytecodeOp::Break:
            beginStatement(operand);
            signal = BlockSignal::Break;
            return Flow::Leave;
        default: return Flow::Next;  // a byte that no compiler writes does nothing
    }
    return unwinding() ? leaveWithNil() : Flow::Next;
}

/// The end of an inline statement raises what a turn has left straight out of here; a recursive
/// statement's turn leaves it to the start of the next one.
void ChunkRun::runChunkInline(std::uint32_t chunk, BlockSignal& signal) {
    const BytecodeChunkRange& range = program_->chunks[chunk];
    const BytecodeInstruction* instruction = program_->code.data() + range.firstInstruction;
    const BytecodeInstruction* const end = instruction + range.instructionCount;
    signal = BlockSignal::None;
    for (; instruction != end; ++instruction) {
        const Flow flow = interpreter_.observer != nullptr ? executeObserved(*instruction, signal)
                                                           : executeInline(*instruction, signal);
        if (flow == Flow::Leave) return;
    }
}

/// An inline statement has no handler of its own, and the next one is too far outside to find the
/// variables of the loops between.
ChunkRun::Flow ChunkRun::executeObserved(const BytecodeInstruction& instruction,
                                         BlockSignal& signal) {
    try {
        return executeInline(instruction, signal);
    } catch (const std::exception& error) {
        interpreter_.observeError(error);
        throw;
    }
}

ChunkRun::Flow ChunkRun::executeInline(const BytecodeInstruction& instruction,
                                       BlockSignal& signal) {
    const std::uint32_t operand = instruction.operand;
    switch (static_cast<BytecodeOp>(instruction.opcode)) {
        case BytecodeOp::Unread: runUnread(operand); break;
        case BytecodeOp::Statement: runStatement(operand); break;
        case BytecodeOp::FastAssign: runFastAssign(operand); break;
        case BytecodeOp::IfGroup: return runIfGroup(operand, signal, Mode::Inline);
        case BytecodeOp::WhileLoop: return runWhileLoop(operand, signal, Mode::Inline);
        case BytecodeOp::RepeatLoop: return runRepeatLoop(operand, signal, Mode::Inline);
        case BytecodeOp::NumericFor: return runNumericFor(operand, signal, Mode::Inline);
        case BytecodeOp::Break:
            beginStatement(operand);
            signal = BlockSignal::Break;
            return Flow::Leave;
        default: throwPlainError("Unexpected non-inline opcode");
    }
    return endInlineStatement();
}

/// The turn of a coroutine that follows an inline statement.
ChunkRun::Flow ChunkRun::endInlineStatement() {
    if (interpreter_.scheduledCoroutine != nullptr && !interpreter_.inCoroutineTurn &&
        !interpreter_.pendingCoroutineException) {
        interpreter_.serviceScheduledCoroutineTurn();
    }
    if (interpreter_.pendingCoroutineException) interpreter_.rethrowPendingCoroutineException();
    return unwinding() ? Flow::Leave : Flow::Next;
}

void ChunkRun::runNestedChunk(std::uint32_t chunk, BlockSignal& nested) {
    // In a damaged file a chunk may hold itself. It is found when chunks are nested deeper than
    // there are chunks, before the host's stack is at its end.
    if (nesting_ >= program_->chunks.size()) throwPlainError("Invalid bytecode chunk index");
    value_ = interpreter_.executeBytecodeChunkInternal(program_, chunk, nested, nesting_ + 1);
}

void ChunkRun::runUnread(std::uint32_t index) {
    if (index < lines_.size() && lines_.forRunning(index).isFastAssignment) {
        runFastAssign(index);
    } else {
        runStatement(index);
    }
}

void ChunkRun::runStatement(std::uint32_t index) {
    const ParsedScriptLine& line = beginStatement(index);
    if (line.tokens.empty()) return;
    interpreter_.executePlainLine(line, value_, DovrelScript::DiscardedCall::ClearsValue);
}

ChunkRun::Flow ChunkRun::runIfGroup(std::uint32_t index, BlockSignal& signal, Mode mode) {
    const BytecodeIfGroup& group =
        tableEntry(program_->ifGroups, index,
                   mode == Mode::Inline ? "Inline bytecode if-group index out of range"
                                        : "Bytecode if-group index out of range");
    for (const BytecodeIfBranch& branch : group.branches) {
        const ParsedScriptLine& line =
            branch.isElse ? selectLine(branch.conditionLine) : beginStatement(branch.conditionLine);
        if (!branch.isElse) {
            const bool holds =
                evaluateCondition(line, line.kind == LineKind::While ? "while" : "if");
            if (unwinding()) return leaveWithNil();
            if (!holds) continue;
        }
        BlockSignal nested = BlockSignal::None;
        runBody(branch.bodyChunk, mode == Mode::Inline || canRunInline(branch.bodyChunk), nested);
        if (unwinding()) return leaveWithNil();
        if (nested == BlockSignal::None) return Flow::Next;
        signal = nested;
        return Flow::Leave;
    }
    return Flow::Next;
}

bool ChunkRun::continuesAfterBody(BlockSignal nested, BlockSignal& signal, Flow& flow) {
    if (unwinding()) {
        flow = leaveWithNil();
        return false;
    }
    if (nested == BlockSignal::None) return true;
    if (nested == BlockSignal::Return) {
        signal = BlockSignal::Return;
        flow = Flow::Leave;
    } else {
        flow = Flow::Next;
    }
    return false;
}

ChunkRun::Flow ChunkRun::runWhileLoop(std::uint32_t index, BlockSignal& signal, Mode mode) {
    const BytecodeWhileLoop loop =
        tableEntry(program_->whileLoops, index,
                   mode == Mode::Inline ? "Inline bytecode while-loop index out of range"
                                        : "Bytecode while-loop index out of range");
    selectLine(loop.conditionLine);
    const bool isInline = mode == Mode::Inline || canRunInline(loop.bodyChunk);
    BlockSignal nested = BlockSignal::None;
    Flow flow = Flow::Next;
    do {
        const bool holds = evaluateCondition(beginStatement(loop.conditionLine), "while");
        if (unwinding()) return leaveWithNil();
        if (!holds) return Flow::Next;
        runBody(loop.bodyChunk, isInline, nested);
    } while (continuesAfterBody(nested, signal, flow));
    return flow;
}

ChunkRun::Flow ChunkRun::runRepeatLoop(std::uint32_t index, BlockSignal& signal, Mode mode) {
    const BytecodeRepeatLoop loop =
        tableEntry(program_->repeatLoops, index,
                   mode == Mode::Inline ? "Inline bytecode repeat-loop index out of range"
                                        : "Bytecode repeat-loop index out of range");
    const bool isInline = mode == Mode::Inline || canRunInline(loop.bodyChunk);
    BlockSignal nested = BlockSignal::None;
    Flow flow = Flow::Next;
    for (;;) {
        runBody(loop.bodyChunk, isInline, nested);
        if (!continuesAfterBody(nested, signal, flow)) return flow;
        // The body's scope is gone by now, so the condition does not see its locals.
        const ParsedScriptLine& line = beginStatement(loop.untilLine);
        if (line.tokens.empty() || line.tokens[0] != "until") {
            interpreter_.throwError("Missing until condition", "until");
        }
        const bool holds = evaluateCondition(line, "until");
        if (unwinding()) return leaveWithNil();
        if (holds) return Flow::Next;
    }
}

ChunkRun::Flow ChunkRun::runReturn(std::uint32_t index, BlockSignal& signal) {
    const ParsedScriptLine& line = beginStatement(index);
    value_ = interpreter_.evaluateReturnValues(line);
    if (unwinding()) return leaveWithNil();
    signal = BlockSignal::Return;
    return Flow::Leave;
}

void ChunkRun::runFunctionDecl(std::uint32_t index) {
    if (index >= program_->functionDecls.size()) {
        throwPlainError("Bytecode function-declaration index out of range");
    }
    const BytecodeFunctionDecl& declaration = program_->functionDecls[index];
    const ParsedScriptLine& line = beginStatement(declaration.declarationLine);
    declareFunction(interpreter_, line, NewBase::Table, [&](ScriptCallable& callable) {
        callable.program = program_;
        callable.chunkIndex = declaration.bodyChunk;
        callable.baseDirectory = declaration.baseDirectory;
        callable.scriptName = declaration.scriptName;
        attachCompiledBody(callable, *program_, declaration);
    });
}
