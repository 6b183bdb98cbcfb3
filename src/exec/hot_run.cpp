// Running hot code: the loop over its instructions.
#include "exec/hot_run.h"

#include <algorithm>

#include "eval/errors.h"

namespace {

/// What fails in such an instruction is reported with the statement that ran last. The counting of
/// a `for` is among them.
bool standsBetweenStatements(ScalarOpcode opcode) {
    switch (opcode) {
        case ScalarOpcode::BeginStatement:
        case ScalarOpcode::EndBlock:
        case ScalarOpcode::ClearValue:
        case ScalarOpcode::PushBlock:
        case ScalarOpcode::PopBlock:
        case ScalarOpcode::Jump:
        case ScalarOpcode::ForNext:
        case ScalarOpcode::ForLeave:
        case ScalarOpcode::Finish: return true;
        default: return false;
    }
}

}  // namespace

const HotCode* ChunkRun::hotLoop(BytecodeOp opcode, std::uint32_t operand,
                                 std::uint32_t bodyChunk) {
    if (!interpreter_.runsHotCode) return nullptr;
    HotChunk& known = program_->hotChunks[bodyChunk];
    const auto byte = static_cast<std::uint8_t>(opcode);
    if (known.loop == nullptr) {
        known.loop = std::make_unique<const HotCode>(compileHotLoop(*program_, byte, operand));
        known.loopOpcode = byte;
        known.loopOperand = operand;
    }
    // In a damaged file several loops may share a body.
    const bool fits = known.loopOpcode == byte && known.loopOperand == operand;
    return fits && !known.loop->code.empty() ? known.loop.get() : nullptr;
}

const HotCode* ChunkRun::hotCode(std::uint32_t chunk) {
    HotChunk& known = program_->hotChunks[chunk];
    const bool amongBlocks = interpreter_.blockScopeVisible();
    std::unique_ptr<const HotCode>& code = amongBlocks ? known.chunkAmongBlocks : known.chunk;
    if (code == nullptr) {
        if (!std::exchange(known.hasRun, true)) return nullptr;
        code = std::make_unique<const HotCode>(compileHotChunk(*program_, chunk, amongBlocks));
    }
    return code->code.empty() ? nullptr : code.get();
}

ChunkRun::Flow ChunkRun::runHotLoop(const HotCode& code) {
    BlockSignal signal = BlockSignal::None;  // an inlinable loop has none to give
    return HotRun(*this, code, signal).run();
}

Variable ChunkRun::runHot(const HotCode& code, BlockSignal& signal) {
    signal = BlockSignal::None;
    try {
        HotRun(*this, code, signal).run();
    } catch (const std::exception& error) {
        rethrowLocated(error);
    }
    return std::move(value_);
}

ChunkRun::Flow ChunkRun::HotRun::run() {
    std::array<FastScalarValue, kHotStackSize> stack;     // left uninitialised
    std::array<const Variable*, kPlaceStackSize> places;  // left uninitialised
    FastScalarValue* top = stack.data();
    const Variable** place = places.data();
    Position at = positionOf(0);
    try {
        for (;;) {
            const ScalarInstruction& instruction = *at;
            if (instruction.opcode < kFirstHotOpcode) {
                if (stepScalarCode(at, top, place, *this)) {
                    ++at;
                    continue;
                }
            } else {
                switch (instruction.opcode) {
                    case ScalarOpcode::BeginStatement:
                        if (!beginStatement()) return Flow::Leave;
                        ++at;
                        continue;
                    case ScalarOpcode::EndBlock:
                        if (expectsTurns_) giveTurns(1);
                        ++at;
                        continue;
                    case ScalarOpcode::ClearValue:
                        clearsValue_ = true;
                        ++at;
                        continue;
                    case ScalarOpcode::PushBlock:
                        pushBlock();
                        ++at;
                        continue;
                    case ScalarOpcode::PopBlock:
                        closeBlocks(openBlocks_ - 1);
                        bindAnew();
                        ++at;
                        continue;
                    case ScalarOpcode::StoreVariable: {
                        Variable* variable = this->place(instruction.token);
                        if (variable == nullptr) break;
                        assignFastScalarToVariable(*variable, *--top);
                        goto statementDone;
                    }
                    case ScalarOpcode::UpdateVariable: {
                        Variable* variable = this->place(instruction.token);
                        if (variable == nullptr ||
                            !tryApplyFastScalarOperationInPlace(
                                *variable, static_cast<char>(instruction.kind), *--top)) {
                            break;
                        }
                        goto statementDone;
                    }
                    case ScalarOpcode::Declare:
                        if (!declare(instruction, *--top)) break;
                        goto statementDone;
                    case ScalarOpcode::StoreElement:
                        top -= 2;
                        if (!storeElement(instruction, top[0], top[1])) break;
                        lastElement_ = at;
                        goto statementDone;
                    case ScalarOpcode::UpdateElement:
                        top -= 2;
                        if (!updateElement(instruction, top[0], top[1])) break;
                        lastElement_ = at;
                        goto statementDone;
                    case ScalarOpcode::StoreEntry:
                    case ScalarOpcode::UpdateEntry:
                        if (!storeEntry(instruction, *--top)) break;
                        lastElement_ = at;
                        goto statementDone;
                    case ScalarOpcode::StoreVariables:
                        top -= instruction.kind;
                        if (!storeVariables(instruction, top)) break;
                        goto statementDone;
                    case ScalarOpcode::StoreElements:
                        top -= 2 * instruction.kind;
                        if (!storeElements(instruction, top, top + instruction.kind)) break;
                        goto statementDone;
                    case ScalarOpcode::JumpIfFalse:
                        lastStatement_ = at;
                        at = isScalarTruthy(*--top) ? at + 1 : positionOf(instruction.intValue);
                        continue;
                    case ScalarOpcode::RepeatIfTrue:
                    case ScalarOpcode::RepeatIfFalse:
                        lastStatement_ = at;
                        if (interpreter_.softErrorUnwinding()) break;
                        at = isScalarTruthy(*--top) ==
                                     (instruction.opcode == ScalarOpcode::RepeatIfTrue)
                                 ? positionOf(instruction.intValue)
                                 : at + 1;
                        continue;
                    case ScalarOpcode::Jump: at = positionOf(instruction.intValue); continue;
                    case ScalarOpcode::Break:
                        lastStatement_ = at;
                        at = breakFrom(statement(instruction));
                        continue;
                    case ScalarOpcode::ForStart: {
                        top -= 3;
                        if (top[0].kind != ScalarKind::Int || top[1].kind != ScalarKind::Int ||
                            top[2].kind != ScalarKind::Int) {
                            break;
                        }
                        const NumericForRange range{top[0].intValue, top[1].intValue,
                                                    top[2].intValue};
                        if (range.step == 0) throwPlainError("for loop step must not be 0");
                        lastStatement_ = at;
                        at = startFor(statement(instruction), range);
                        continue;
                    }
                    case ScalarOpcode::ForNext:
                        at = nextTurn(fors_[instruction.token]) ? positionOf(instruction.intValue)
                                                                : at + 1;
                        continue;
                    case ScalarOpcode::ForLeave:
                        closeFor();
                        ++at;
                        continue;
                    case ScalarOpcode::SelectLine: lastStatement_ = at++; continue;
                    case ScalarOpcode::ReturnValue:
                        lastStatement_ = at;
                        return returnFrom(statement(instruction), *--top);
                    case ScalarOpcode::RunStatement:
                        at = runByExecutor(statement(instruction));
                        if (at == nullptr) return Flow::Leave;
                        continue;
                    case ScalarOpcode::BeginCalls:
                        beginCalls(statement(instruction));
                        ++at;
                        continue;
                    case ScalarOpcode::RequireFrameCall:
                        if (!runsInFrame(instruction.token)) break;
                        ++at;
                        continue;
                    case ScalarOpcode::RequireNoAssert:
                        if (isAssert(instruction.token)) break;
                        ++at;
                        continue;
                    case ScalarOpcode::PushAny:
                        *top++ = anyOf(instruction);
                        ++at;
                        continue;
                    case ScalarOpcode::PushLent:
                        *top++ = lentArgument(instruction);
                        ++at;
                        continue;
                    case ScalarOpcode::PushText:
                        *top++ = hold(Variable(key(instruction.intValue)));
                        ++at;
                        continue;
                    case ScalarOpcode::OperateAny:
                        --top;
                        top[-1] =
                            operateAny(static_cast<NodeKind>(instruction.kind), top[-1], top[0]);
                        ++at;
                        continue;
                    case ScalarOpcode::CallVariable:
                    case ScalarOpcode::CallEntry:
                    case ScalarOpcode::CallDirect:
                        top -= instruction.kind;
                        *top = instruction.opcode == ScalarOpcode::CallDirect
                                   ? callDirect(instruction, top)
                                   : call(instruction, top);
                        ++top;
                        if (interpreter_.softErrorUnwinding()) {
                            unwindFrom(statementAt(at));
                            return Flow::Leave;
                        }
                        ++at;
                        continue;
                    case ScalarOpcode::AssignAny:
                        if (!assignAny(statement(instruction), *--top)) return Flow::Leave;
                        ++at;
                        continue;
                    case ScalarOpcode::ReturnAny: return returnAny(statement(instruction), *--top);
                    case ScalarOpcode::DiscardAny:
                        if (!discardAny(statement(instruction), *--top)) return Flow::Leave;
                        ++at;
                        continue;
                    case ScalarOpcode::Finish: showTo(lastStatement_); return Flow::Next;
                    default:
                        __builtin_unreachable();
                    statementDone:
                        lastStatement_ = at++;
                        clearsValue_ = true;
                        if (expectsTurns_ && !giveTurn(statementAt(lastStatement_))) {
                            return Flow::Leave;
                        }
                        continue;
                }
            }
            // Whatever has declined goes by the executor.
            at = runByExecutor(statementAt(at));
            if (at == nullptr) return Flow::Leave;
            top = stack.data();
            place = places.data();
        }
    } catch (...) {
        if (!inExecutor_) {
            showTo(standsBetweenStatements(at->opcode) ? lastStatement_ : at);
        }
        throw;
    }
}

/// Opens a `for`; returns where the code goes on.
ChunkRun::HotRun::Position ChunkRun::HotRun::startFor(const HotStatement& header,
                                                      const NumericForRange& range) {
    const ParsedScriptLine& line = run_.lines_[header.line];
    Scope& scope = interpreter_.frameScopes.push(1);
    fors_[openFors_++] = {range.start, range.limit, range.step};
    scope.append(loopVariableName(line, forHeaderOf(line).numericVariable),
                 Variable::makeInt(range.start));
    const bool hasTurn = range.step >= 1 ? range.start <= range.limit : range.start >= range.limit;
    return positionOf(hasTurn ? header.next : header.otherwise);
}

/// Counts, and writes the loop variable if there is another turn: only its int alternative, never
/// the kind, so that a body which has put another alternative there fails here.
bool ChunkRun::HotRun::nextTurn(OpenFor& loop) {
    // Nothing unwinds here, but whoever counts the steps of a script counts this one.
    static_cast<void>(interpreter_.softErrorUnwinding());
    loop.counter = wrapAdd(loop.counter, loop.step);
    if (loop.step >= 1 ? loop.counter > loop.limit : loop.counter < loop.limit) return false;
    interpreter_.frameScopes.back()[0].value.intReference() = loop.counter;
    return true;
}

ChunkRun::HotRun::Position ChunkRun::HotRun::runByExecutor(const HotStatement& statement) {
    showTo(nullptr);
    lastStatement_ = nullptr;
    inExecutor_ = true;
    Position next = nullptr;
    switch (statement.kind) {
        case HotStatementKind::Whole: next = runWhole(statement); break;
        case HotStatementKind::IfCondition: {
            const bool isWhile = run_.lines_[statement.line].kind == LineKind::While;
            next = afterCondition(statement, isWhile ? "while" : "if");
            break;
        }
        case HotStatementKind::WhileCondition: next = afterCondition(statement, "while"); break;
        case HotStatementKind::UntilCondition: next = afterCondition(statement, "until"); break;
        case HotStatementKind::ForHeader: {
            NumericForRange range;
            const ParsedScriptLine& line = run_.selectLine(statement.line);
            next = evaluateNumericForRange(interpreter_, line, range) ? startFor(statement, range)
                                                                      : unwindFrom(statement);
            break;
        }
        case HotStatementKind::Marker: break;
    }
    inExecutor_ = false;
    if (next != nullptr) bindAnew();
    return next;
}

ChunkRun::HotRun::Position ChunkRun::HotRun::runWhole(const HotStatement& statement) {
    const BytecodeInstruction& instruction = run_.program_->code[statement.instruction];
    BlockSignal signal = BlockSignal::None;
    if (!statement.isRecursive) {
        return run_.executeInline(instruction, signal) == Flow::Next ? positionOf(statement.next)
                                                                     : unwindFrom(statement);
    }
    const Flow flow = run_.execute(instruction, signal);
    if (flow == Flow::Next) {
        interpreter_.runTurnHook();
        return positionOf(statement.next);
    }
    if (signal == BlockSignal::Break && statement.loopEnd != 0) return breakFrom(statement);
    signal_ = signal;
    if (interpreter_.scheduledCoroutine != nullptr) giveTurns(statement.depth);
    return nullptr;
}

ChunkRun::HotRun::Position ChunkRun::HotRun::afterCondition(const HotStatement& statement,
                                                            const char* word) {
    const bool holds = run_.evaluateCondition(run_.selectLine(statement.line), word);
    if (run_.unwinding()) return unwindFrom(statement);
    return positionOf(holds ? statement.next : statement.otherwise);
}

/// Out of the innermost loop: the statements on the way end one after the other.
ChunkRun::HotRun::Position ChunkRun::HotRun::breakFrom(const HotStatement& statement) {
    if (expectsTurns_) giveTurns(std::size_t{statement.depth} - statement.loopDepth);
    if (openBlocks_ > statement.loopBlocks) {
        closeBlocks(statement.loopBlocks);
        bindAnew();
    }
    return positionOf(statement.loopEnd);
}

/// Out of the code because of a soft error.
ChunkRun::HotRun::Position ChunkRun::HotRun::unwindFrom(const HotStatement& statement) {
    run_.leaveWithNil();
    giveTurns(statement.depth);
    return nullptr;
}

ChunkRun::Flow ChunkRun::HotRun::returnFrom(const HotStatement& statement, FastScalarValue value) {
    clearsValue_ = false;
    showTo(lastStatement_);
    assignFastScalarToVariable(run_.value_, value);
    signal_ = BlockSignal::Return;
    if (expectsTurns_) giveTurns(statement.depth);
    return Flow::Leave;
}

bool ChunkRun::HotRun::giveTurn(const HotStatement& statement) {
    if (statement.isRecursive) {
        giveTurns(1);
        return true;
    }
    showTo(lastStatement_);
    inExecutor_ = true;
    const Flow flow = run_.endInlineStatement();
    inExecutor_ = false;
    bindAnew();
    if (flow == Flow::Next) return true;
    unwindFrom(statement);
    return false;
}

void ChunkRun::HotRun::giveTurns(std::size_t count) {
    showTo(lastStatement_);
    for (std::size_t i = 0; i < count; ++i) interpreter_.runTurnHook();
    bindAnew();
}

/// The start of a statement of a recursive run, where a turn's error comes out.
bool ChunkRun::HotRun::beginStatement() {
    if (expectsTurns_) {
        showTo(lastStatement_);
        inExecutor_ = true;
        interpreter_.rethrowPendingCoroutineException();
        inExecutor_ = false;
    }
    if (!run_.unwinding()) return true;
    run_.leaveWithNil();
    return false;
}

const HotStatement& ChunkRun::HotRun::statementAt(Position at) const {
    const auto index = static_cast<std::uint32_t>(at - code_.code.data());
    const auto behind = std::upper_bound(
        code_.statements.begin(), code_.statements.end(), index,
        [](std::uint32_t i, const HotStatement& statement) { return i < statement.first; });
    return *std::prev(behind);
}

/// Writes what the executor would have written by now; `at` stands in the statement that ran last,
/// null if that was none of hot code.
void ChunkRun::HotRun::showTo(Position at) {
    if (clearsValue_) run_.value_.setNil();
    clearsValue_ = false;
    if (lastElement_ != nullptr) {
        const ParsedScriptLine& line = run_.lines_[statementAt(lastElement_).line];
        const std::size_t token = line.assignment->valueRanges[0].last - 1;
        interpreter_.lastToken = line.tokens[token];
        interpreter_.lastTokenIndex = token;
        lastElement_ = nullptr;
    }
    if (at != nullptr) run_.selectLine(statementAt(at).line);
}
