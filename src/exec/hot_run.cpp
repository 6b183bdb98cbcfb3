// Running hot code: the loop over its instructions.
#include "exec/hot_run.h"

#include <algorithm>
#include <cassert>

#include "eval/errors.h"
#include "exec/hot_frames.h"

namespace {

/// Takes off what is left of the calls of a run that has failed.
class HotFramesGuard {
public:
    explicit HotFramesGuard(HotFrames& frames) : frames_(frames), count_(frames.size()) {}
    ~HotFramesGuard() { frames_.popTo(count_); }
    HotFramesGuard(const HotFramesGuard&) = delete;
    HotFramesGuard& operator=(const HotFramesGuard&) = delete;

private:
    HotFrames& frames_;
    std::size_t count_;
};

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
    return fits && known.loop->isUsable() ? known.loop.get() : nullptr;
}

const HotCode* ChunkRun::hotCode(std::uint32_t chunk) {
    HotChunk& known = program_->hotChunks[chunk];
    const bool amongBlocks = interpreter_.blockScopeVisible();
    std::unique_ptr<const HotCode>& code = amongBlocks ? known.chunkAmongBlocks : known.chunk;
    if (code == nullptr) {
        if (!std::exchange(known.hasRun, true)) return nullptr;
        code = std::make_unique<const HotCode>(compileHotChunk(*program_, chunk, amongBlocks));
    }
    return code->isUsable() ? code.get() : nullptr;
}

ChunkRun::Flow ChunkRun::runHotLoop(const HotCode& code) {
    BlockSignal signal = BlockSignal::None;  // an inlinable loop has none to give
    HotRun hot(*this, code, signal);
    return HotRun::run(hot);
}

Variable ChunkRun::runHot(const HotCode& code, BlockSignal& signal) {
    signal = BlockSignal::None;
    if (unwinding()) return {};
    try {
        HotRun hot(*this, code, signal);
        HotRun::run(hot);
    } catch (const std::exception& error) {
        if (tryRecordFault(error)) return {};
        rethrowLocated(error);
    }
    return std::move(value_);
}

ChunkRun::Flow ChunkRun::HotRun::run(HotRun& outermost) {
    DovrelScript& interpreter = outermost.interpreter_;
    const HotFramesGuard frames(*interpreter.hotFrames);
    HotRun* self = &outermost;
    FastScalarValue* top = self->stack_.data();
    const Variable** place = self->places_.data();
    Position at = self->firstPosition();
    Flow flow = Flow::Leave;
    try {
        for (;;) {
            const ScalarInstruction& instruction = *at;
            // The compiler limits how many values wait; an array in the frame is no place to grow.
            assert(self->holds(top, place));
            if (instruction.opcode < kFirstHotOpcode) {
                if (stepScalarCode(at, top, place, *self)) {
                    ++at;
                    continue;
                }
                if (self->stepOther(*at, top)) {
                    ++at;
                    continue;
                }
            } else {
                switch (instruction.opcode) {
                    case ScalarOpcode::BeginStatement:
                        if (self->expectsTurns_ && !self->beginStatement()) goto leave;
                        ++at;
                        continue;
                    case ScalarOpcode::EndBlock:
                        if (self->expectsTurns_) self->giveTurns(1);
                        ++at;
                        continue;
                    case ScalarOpcode::ClearValue:
                        self->clearsValue_ = true;
                        ++at;
                        continue;
                    case ScalarOpcode::PushBlock:
                        self->pushBlock();
                        ++at;
                        continue;
                    case ScalarOpcode::PopBlock:
                        self->closeBlocks(self->openBlocks_ - 1);
                        self->bindAnew();
                        ++at;
                        continue;
                    case ScalarOpcode::StoreVariable: {
                        Variable* variable = self->target(instruction.token);
                        if (variable == nullptr) break;
                        assignFastScalarToVariable(*variable, *--top);
                        goto statementDone;
                    }
                    case ScalarOpcode::UpdateVariable: {
                        Variable* variable = self->target(instruction.token);
                        if (variable == nullptr ||
                            !tryApplyFastScalarOperationInPlace(
                                *variable, static_cast<char>(instruction.kind), *--top)) {
                            break;
                        }
                        goto statementDone;
                    }
                    case ScalarOpcode::Declare:
                        if (!self->declare(instruction, *--top)) break;
                        goto statementDone;
                    case ScalarOpcode::StoreElement:
                        top -= 2;
                        if (!self->storeElement(instruction, top[0], top[1])) break;
                        self->lastElement_ = at;
                        goto statementDone;
                    case ScalarOpcode::UpdateElement:
                        top -= 2;
                        if (!self->updateElement(instruction, top[0], top[1])) break;
                        self->lastElement_ = at;
                        goto statementDone;
                    case ScalarOpcode::StoreEntry:
                    case ScalarOpcode::UpdateEntry:
                        if (!self->storeEntry(instruction, *--top)) break;
                        self->lastElement_ = at;
                        goto statementDone;
                    case ScalarOpcode::StoreVariables:
                        top -= instruction.kind;
                        if (!self->storeVariables(instruction, top)) break;
                        goto statementDone;
                    case ScalarOpcode::StoreElements:
                        top -= 2 * instruction.kind;
                        if (!self->storeElements(instruction, top, top + instruction.kind)) break;
                        goto statementDone;
                    case ScalarOpcode::JumpIfFalse:
                        self->lastStatement_ = at;
                        at = isScalarTruthy(*--top) ? at + 1
                                                    : self->positionOf(instruction.intValue);
                        continue;
                    case ScalarOpcode::RepeatIfTrue:
                    case ScalarOpcode::RepeatIfFalse:
                        self->lastStatement_ = at;
                        if (interpreter.softErrorUnwinding()) break;
                        self->goBack();
                        at = isScalarTruthy(*--top) ==
                                     (instruction.opcode == ScalarOpcode::RepeatIfTrue)
                                 ? self->positionOf(instruction.intValue)
                                 : at + 1;
                        continue;
                    case ScalarOpcode::Jump: at = self->positionOf(instruction.intValue); continue;
                    case ScalarOpcode::Break:
                        self->lastStatement_ = at;
                        at = self->breakFrom(self->statement(instruction));
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
                        self->lastStatement_ = at;
                        at = self->startFor(self->statement(instruction), range);
                        continue;
                    }
                    case ScalarOpcode::ForNext:
                        self->goBack();
                        at = self->nextTurn(self->fors_[instruction.token])
                                 ? self->positionOf(instruction.intValue)
                                 : at + 1;
                        continue;
                    case ScalarOpcode::ForLeave:
                        self->closeFor();
                        ++at;
                        continue;
                    case ScalarOpcode::SelectLine: self->lastStatement_ = at++; continue;
                    case ScalarOpcode::ReturnValue:
                        self->beginReturn(self->statement(instruction));
                        if (self->returnsAtOnce(*--top)) goto returnAtOnce;
                        self->returnFrom(self->statement(instruction), *top);
                        goto leave;
                    case ScalarOpcode::RunStatement:
                        at = self->runByExecutor(self->statement(instruction));
                        if (at == nullptr) goto leave;
                        continue;
                    case ScalarOpcode::BeginCalls:
                        self->beginCalls(self->statement(instruction));
                        ++at;
                        continue;
                    case ScalarOpcode::JumpUnlessFrameCall:
                        at = self->runsInFrame(instruction.token)
                                 ? at + 1
                                 : self->positionOf(instruction.intValue);
                        continue;
                    case ScalarOpcode::RequireNoAssert:
                        if (self->isAssert(instruction.token)) break;
                        ++at;
                        continue;
                    case ScalarOpcode::PushText:
                        *top++ = self->hold(Variable(self->key(instruction.intValue)));
                        ++at;
                        continue;
                    case ScalarOpcode::CallVariable:
                    case ScalarOpcode::CallEntry:
                    case ScalarOpcode::CallDirect:
                        top -= instruction.kind;
                        *top = instruction.opcode == ScalarOpcode::CallDirect
                                   ? self->callDirect(instruction, top)
                                   : self->call(instruction, top);
                        if (top->isSet()) goto called;
                        self->resumeAt_ = at;
                        self->resumeTop_ = top;
                        self = &interpreter.hotFrames->back().hot;
                        at = self->firstPosition();
                        top = self->stack_.data();
                        place = self->places_.data();
                        continue;
                    called:
                        ++top;
                        if (interpreter.softErrorUnwinding()) {
                            self->unwindFromCall(self->statementAt(at));
                            goto leave;
                        }
                        ++at;
                        continue;
                    case ScalarOpcode::BeginScalarCall:
                        if (self->findBody(instruction)) {
                            ++at;
                            continue;
                        }
                        if (!self->evaluateScalar(instruction.intValue, top)) break;
                        at = self->positionOf(self->scalarNode(instruction).behind);
                        continue;
                    case ScalarOpcode::CallScalar:
                        top -= instruction.kind;
                        *top = self->callScalar(instruction, top);
                        if (!top->isSet()) break;
                        ++top;
                        ++at;
                        continue;
                    case ScalarOpcode::EvaluateScalar:
                        if (!self->evaluateScalar(instruction.intValue, top)) break;
                        ++at;
                        continue;
                    case ScalarOpcode::RequireNumber:
                        if (!top[-1].isNumeric()) break;
                        ++at;
                        continue;
                    case ScalarOpcode::AssignScalar:
                        if (!self->assignScalar(self->statement(instruction), *--top)) goto leave;
                        ++at;
                        continue;
                    case ScalarOpcode::AssignAny:
                        if (!self->assignAny(self->statement(instruction), *--top)) goto leave;
                        ++at;
                        continue;
                    case ScalarOpcode::ReturnAny:
                        if (self->returnsAtOnce(*--top)) goto returnAtOnce;
                        self->returnAny(self->statement(instruction), *top);
                        goto leave;
                    returnAtOnce : {
                        const FastScalarValue result = *top;
                        self = self->caller_;
                        top = self->resumeTop_;
                        *top = result;
                        self->endCallAtOnce();
                        ++top;
                        at = self->resumeAt_ + 1;
                        place = self->places_.data();
                        continue;
                    }
                    case ScalarOpcode::DiscardAny:
                        if (!self->discardAny(self->statement(instruction), *--top)) goto leave;
                        ++at;
                        continue;
                    case ScalarOpcode::Finish:
                        self->showTo(self->lastStatement_);
                        flow = Flow::Next;
                    leave:
                        if (self == &outermost) return flow;
                        flow = Flow::Leave;
                        self = self->caller_;
                        *self->resumeTop_ = self->resultOfCall();
                        at = self->resumeAt_;
                        top = self->resumeTop_;
                        place = self->places_.data();
                        goto called;
                    default:
                        __builtin_unreachable();
                    statementDone:
                        self->lastStatement_ = at++;
                        self->clearsValue_ = true;
                        if (self->expectsTurns_ &&
                            !self->giveTurn(self->statementAt(self->lastStatement_))) {
                            goto leave;
                        }
                        continue;
                }
            }
            // Whatever has declined goes by the executor.
            at = self->hasCalled_ ? self->assignByGeneralTier(self->statementAt(at))
                                  : self->runByExecutor(self->statementAt(at));
            if (at == nullptr) goto leave;
            top = self->stack_.data();
            place = self->places_.data();
        }
    } catch (const std::exception& error) {
        self->showFailure(at);
        if (self != &outermost) {
            self->closeCalls();
            self->run_.rethrowLocated(error);
        }
        if (self->run_.tryRecordFault(error)) return self->run_.leaveWithNil();
        throw;
    } catch (...) {
        self->showFailure(at);
        throw;
    }
}

void ChunkRun::HotRun::showFailure(Position at) {
    if (inExecutor_) return;
    showTo(standsBetweenStatements(at->opcode) ? lastStatement_ : at);
    if (at->opcode != ScalarOpcode::ForNext || at->kind == 0) return;
    // The statements of a body of its own are not this run's: the `for` is the one that failed.
    const Position start = positionOf(at->intValue) - 1;  // ForStart stands in front of the body
    run_.statementTokens_ = &run_.lines_[statementAt(start).line].tokens;
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
    interpreter_.frameScopes.back()[0].value.replaceInt(loop.counter);
    return true;
}

ChunkRun::HotRun::Position ChunkRun::HotRun::runByExecutor(const HotStatement& statement) {
    show();
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

void ChunkRun::HotRun::closeAll() {
    while (openFors_ > 0) closeFor();
    if (openBlocks_ > 0) closeBlocks(0);
    if (heldCount_ > 0) releaseHeld();
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

/// The same out of a plain statement, which ends first: in an inline run a turn follows it.
void ChunkRun::HotRun::unwindFromCall(const HotStatement& statement) {
    if (!statement.isRecursive) run_.endInlineStatement();
    unwindFrom(statement);
}

void ChunkRun::HotRun::returnFrom(const HotStatement& statement, FastScalarValue value) {
    assignFastScalarToVariable(run_.value_, value);
    signal_ = BlockSignal::Return;
    if (expectsTurns_) giveTurns(statement.depth);
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
    showTo(lastStatement_);
    inExecutor_ = true;
    interpreter_.rethrowPendingCoroutineException();
    inExecutor_ = false;
    if (!run_.unwinding()) return true;
    run_.leaveWithNil();
    return false;
}

const Variable* ChunkRun::HotRun::bindOther(std::uint16_t variable) {
    const Variable* value = interpreter_.readVariable(*code_.variables[variable]);
    // Nothing is written through it: what an instruction writes has a token of its own.
    bind(variable, const_cast<Variable*>(value));
    return value;
}

/// Null where writing could mean another variable than the token's cache leads to.
Variable* ChunkRun::HotRun::bindForWriting(std::uint16_t variable) {
    const TokenAnalysis& token = *code_.variables[variable];
    Variable* value = interpreter_.cachedVariable(token);
    if (value == nullptr) value = interpreter_.bindableVariable(token);
    bind(variable, value);
    return value;
}

const HotStatement& ChunkRun::HotRun::statementAt(Position at) const {
    const auto index = static_cast<std::uint32_t>(at - code_.code.data());
    const auto behind = std::upper_bound(
        code_.statements.begin(), code_.statements.end(), index,
        [](std::uint32_t i, const HotStatement& statement) { return i < statement.first; });
    return *std::prev(behind);
}

void ChunkRun::HotRun::showPending() {
    if (clearsValue_) run_.value_.setNil();
    clearsValue_ = false;
    if (lastElement_ == nullptr) return;
    const ParsedScriptLine& line = run_.lines_[statementAt(lastElement_).line];
    const std::size_t token = line.assignment->valueRanges[0].last - 1;
    interpreter_.lastToken = line.tokens[token];
    interpreter_.lastTokenIndex = token;
    lastElement_ = nullptr;
}

void ChunkRun::HotRun::showTo(Position at) {
    show();
    if (at != nullptr) selectLine(statementAt(at));
}
