// Running hot code.
#include <algorithm>
#include <array>

#include "eval/binary_operation.h"
#include "eval/errors.h"
#include "eval/scalar_step.h"
#include "exec/chunk_run.h"
#include "exec/for_header.h"

namespace {

/// How many arguments go into a frame without a detour.
constexpr std::size_t kMostFrameArguments = 8;

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

class ChunkRun::HotRun {
public:
    HotRun(ChunkRun& run, const HotCode& code, BlockSignal& signal)
        : run_(run),
          interpreter_(run.interpreter_),
          code_(code),
          signal_(signal),
          boundBase_(interpreter_.boundVariables.size()),
          heldBase_(interpreter_.heldValues.size()),
          blockFloor_(interpreter_.blockScopeFloor),
          blocksAtStart_(interpreter_.blockScopes.size()) {
        interpreter_.boundVariables.push(code.variables.size());
        bindAnew();
    }
    ~HotRun() {
        while (openFors_ > 0) closeFor();
        if (openBlocks_ > 0) closeBlocks(0);
        interpreter_.boundVariables.popTo(boundBase_);
        releaseHeld();
    }
    HotRun(const HotRun&) = delete;
    HotRun& operator=(const HotRun&) = delete;

    Flow run();

    // What the instructions of expressions ask for.
    [[nodiscard, gnu::always_inline]] FastScalarValue scalar(std::uint16_t variable) {
        const Variable* value = place(variable);
        return value != nullptr ? soundScalar(*value) : FastScalarValue{};
    }
    [[nodiscard, gnu::always_inline]] Variable* place(std::uint16_t variable) {
        Variable* value = bound_[variable];
        return value != nullptr ? value : bind(variable);
    }
    [[nodiscard]] const std::string& key(int index) const {
        return *code_.keys[static_cast<std::size_t>(index)];
    }

private:
    using Position = const ScalarInstruction*;

    /// A `for` that is open.
    struct OpenFor {
        int counter;
        int limit;
        int step;
    };

    // Statements.
    bool declare(const ScalarInstruction& instruction, FastScalarValue value);
    bool storeElement(const ScalarInstruction& instruction, FastScalarValue key,
                      FastScalarValue value);
    bool updateElement(const ScalarInstruction& instruction, FastScalarValue key,
                       FastScalarValue value);
    static bool updateInt(Variable& element, std::uint8_t operation, FastScalarValue value);
    bool storeEntry(const ScalarInstruction& instruction, FastScalarValue value);
    bool storeVariables(const ScalarInstruction& instruction, const FastScalarValue* values);
    bool storeElements(const ScalarInstruction& instruction, const FastScalarValue* keys,
                       const FastScalarValue* values);
    ArrayStorage* arrayFor(std::uint16_t token, FastScalarValue key);
    Position startFor(const HotStatement& header, const NumericForRange& range);
    bool nextTurn(OpenFor& loop);
    void closeFor() {
        interpreter_.frameScopes.pop();
        --openFors_;
    }
    void pushBlock() {
        interpreter_.pushBlockScope();
        ++openBlocks_;
        bindAnew();
    }
    /// Pops block scopes until `count` of this run are open.
    void closeBlocks(std::size_t count) {
        interpreter_.blockScopes.popTo(blocksAtStart_ + count);
        interpreter_.blockScopeFloor = blockFloor_;
        openBlocks_ = count;
    }

    // What goes by the executor. A null position leaves the code, `leaves_` being set before.
    Position runByExecutor(const HotStatement& statement);
    Position runWhole(const HotStatement& statement);
    Position afterCondition(const HotStatement& statement, const char* word);
    Position breakFrom(const HotStatement& statement);
    Position unwindFrom(const HotStatement& statement);
    Flow returnFrom(const HotStatement& statement, FastScalarValue value);

    // Statements with calls.
    void beginCalls(const HotStatement& statement);
    bool runsInFrame(std::uint16_t token);
    bool isAssert(std::uint16_t token);
    FastScalarValue anyOf(const ScalarInstruction& push);
    FastScalarValue lentArgument(const ScalarInstruction& push);
    FastScalarValue hold(Variable&& value) {
        interpreter_.heldValues.push_back(std::move(value));
        const auto number = static_cast<int>(interpreter_.heldValues.size() - 1);
        FastScalarValue held = FastScalarValue::fromInt(number);
        held.kind = ScalarKind::Held;
        return held;
    }
    FastScalarValue anyFrom(Variable&& value) {
        const FastScalarValue scalar = soundScalar(value);
        return scalar.isSet() ? scalar : hold(std::move(value));
    }
    Variable taken(FastScalarValue value);
    [[gnu::always_inline]] FastScalarValue operateAny(NodeKind kind, FastScalarValue left,
                                                      FastScalarValue right) {
        const FastScalarValue exact = scalarOperationOn(kind, left, right, true);
        return exact.isSet() ? exact : operateOnOthers(kind, left, right);
    }
    FastScalarValue operateOnOthers(NodeKind kind, FastScalarValue left, FastScalarValue right);
    const Variable* anyVariable(std::uint16_t token) {
        const Variable* variable = place(token);
        return variable != nullptr ? variable : interpreter_.readVariable(*code_.variables[token]);
    }
    FastScalarValue call(const ScalarInstruction& instruction, const FastScalarValue* args);
    void fillArguments(ArgumentFrame& frame, const FastScalarValue* args, bool lends);
    FastScalarValue callDirect(const ScalarInstruction& instruction, const FastScalarValue* args);
    bool assignAny(const HotStatement& statement, FastScalarValue value);
    Flow returnAny(const HotStatement& statement, FastScalarValue value);
    bool discardAny(const HotStatement& statement, FastScalarValue value);
    bool endCalls(const HotStatement& statement);
    void releaseHeld() {
        if (interpreter_.heldValues.size() > heldBase_) interpreter_.heldValues.resize(heldBase_);
    }

    // Turns of a coroutine.
    void expectTurns() {
        expectsTurns_ = interpreter_.scheduledCoroutine != nullptr ||
                        interpreter_.pendingCoroutineException != nullptr;
    }
    /// The end of a statement. False to leave.
    bool giveTurn(const HotStatement& statement);
    /// The end of `count` statements of recursive runs.
    void giveTurns(std::size_t count);
    bool beginStatement();

    // Variables.
    [[nodiscard, gnu::noinline]] Variable* bind(std::uint16_t variable) {
        const TokenAnalysis& token = *code_.variables[variable];
        Variable* value = interpreter_.cachedVariable(token);
        if (value == nullptr) value = interpreter_.bindableVariable(token);
        bound_[variable] = value;
        return value;
    }
    void bindAnew() {
        bound_ = interpreter_.boundVariables.from(boundBase_);
        const std::size_t count = code_.variables.size();
        for (std::size_t i = 0; i < count; ++i) bound_[i] = nullptr;
        expectTurns();
    }

    [[nodiscard]] Position positionOf(std::int64_t index) const {
        return code_.code.data() + index;
    }
    [[nodiscard]] const HotStatement& statementAt(Position at) const;
    [[nodiscard]] const HotStatement& statement(const ScalarInstruction& instruction) const {
        return code_.statements[static_cast<std::size_t>(instruction.intValue)];
    }
    void showTo(Position at);

    ChunkRun& run_;
    DovrelScript& interpreter_;
    const HotCode& code_;
    BlockSignal& signal_;
    Variable** bound_ = nullptr;  // null where nothing is bound
    std::size_t boundBase_;       // where they begin in the interpreter's stack of them
    std::size_t heldBase_;        // where the values begin that are held here
    std::size_t blockFloor_;
    std::size_t blocksAtStart_;
    std::array<OpenFor, kMostHotFors> fors_;  // the first `openFors_` are open
    std::size_t openFors_ = 0;
    std::size_t openBlocks_ = 0;
    Position lastStatement_ = nullptr;  // in the statement that ran last here, null for others
    Position lastElement_ = nullptr;    // in an element assignment whose last token nobody has seen
    bool clearsValue_ = false;          // the chunk's value is nil, and is not yet written
    bool expectsTurns_ = false;         // a coroutine may have a turn behind each statement
    bool answersInScalars_ = false;     // the call of `x = f(...)` has been made in the scalar tier
    bool inExecutor_ = false;           // the current line and the last token are as they should
};

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

/// `local x = ...` and `native x = ...`. A scope is made on demand by the executor only.
bool ChunkRun::HotRun::declare(const ScalarInstruction& instruction, FastScalarValue value) {
    const auto target = static_cast<ScopeTarget>(instruction.kind);
    ScopeStack& scopes =
        target == ScopeTarget::Local ? interpreter_.blockScopes : interpreter_.frameScopes;
    if (target == ScopeTarget::Local ? !interpreter_.blockScopeVisible() : scopes.empty()) {
        return false;
    }
    Scope& scope = scopes.back();
    const Name name = code_.variables[instruction.token]->name;
    const std::size_t index = scope.find(name);
    if (index < scope.size()) {
        assignFastScalarToVariable(scope[index].value, value);
    } else {
        scope.append(name, variableFromFastScalar(value));
        bindAnew();  // the scope may have moved its variables, and has one more
    }
    return true;
}

/// The array in a variable; null if the variable, its value or the key is something else.
ArrayStorage* ChunkRun::HotRun::arrayFor(std::uint16_t token, FastScalarValue key) {
    if (key.kind != ScalarKind::Int || key.intValue < 1) return nullptr;
    Variable* variable = place(token);
    if (variable == nullptr || variable->type != VarType::Array) return nullptr;
    return variable->asArray().get();
}

bool ChunkRun::HotRun::storeElement(const ScalarInstruction& instruction, FastScalarValue key,
                                    FastScalarValue value) {
    ArrayStorage* array = arrayFor(instruction.token, key);
    if (array == nullptr) return false;
    const auto index = static_cast<std::size_t>(key.intValue) - 1;
    if (index > array->size()) return false;
    if (index == array->size()) array->emplace_back();
    assignFastScalarToVariable((*array)[index], value);
    return true;
}

/// Ints only: mixed kinds have rules of their own, and so has a divisor of 0.
bool ChunkRun::HotRun::updateInt(Variable& element, std::uint8_t operation, FastScalarValue value) {
    if (element.type != VarType::Int || value.kind != ScalarKind::Int || value.intValue == 0) {
        return false;
    }
    return tryApplyFastScalarOperationInPlace(element, static_cast<char>(operation), value);
}

bool ChunkRun::HotRun::updateElement(const ScalarInstruction& instruction, FastScalarValue key,
                                     FastScalarValue value) {
    ArrayStorage* array = arrayFor(instruction.token, key);
    if (array == nullptr) return false;
    const auto index = static_cast<std::size_t>(key.intValue) - 1;
    return index < array->size() && updateInt((*array)[index], instruction.kind, value);
}

/// An entry that is there, so that the table's set of keys stays as it is.
bool ChunkRun::HotRun::storeEntry(const ScalarInstruction& instruction, FastScalarValue value) {
    Variable* variable = place(instruction.token);
    if (variable == nullptr || variable->type != VarType::Table) return false;
    TableStorage& table = *variable->asTable();
    const auto found = table.find(key(instruction.intValue));
    if (found == table.end()) return false;
    if (instruction.opcode == ScalarOpcode::UpdateEntry) {
        return updateInt(found->second, instruction.kind, value);
    }
    assignFastScalarToVariable(found->second, value);
    return true;
}

/// All or none: a store that has been made could not be repeated.
bool ChunkRun::HotRun::storeVariables(const ScalarInstruction& instruction,
                                      const FastScalarValue* values) {
    std::array<Variable*, kMostParallelTargets> targets;  // left uninitialised
    for (std::uint16_t i = 0; i < instruction.kind; ++i) {
        targets[i] = place(static_cast<std::uint16_t>(instruction.token + i));
        if (targets[i] == nullptr) return false;
    }
    for (std::size_t i = 0; i < instruction.kind; ++i) {
        assignFastScalarToVariable(*targets[i], values[i]);
    }
    return true;
}

bool ChunkRun::HotRun::storeElements(const ScalarInstruction& instruction,
                                     const FastScalarValue* keys, const FastScalarValue* values) {
    std::array<Variable*, kMostParallelTargets> targets;  // left uninitialised
    for (std::uint16_t i = 0; i < instruction.kind; ++i) {
        ArrayStorage* array = arrayFor(static_cast<std::uint16_t>(instruction.token + i), keys[i]);
        if (array == nullptr) return false;
        const auto index = static_cast<std::size_t>(keys[i].intValue) - 1;
        if (index >= array->size()) return false;
        targets[i] = &(*array)[index];
    }
    // The elements that go may hold the arrays of the others: they go together, at the end.
    std::array<Variable, kMostParallelTargets> old;
    for (std::size_t i = 0; i < instruction.kind; ++i) {
        if (!targets[i]->isNumeric()) std::swap(old[i], *targets[i]);
        assignFastScalarToVariable(*targets[i], values[i]);
    }
    return true;
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

/// From here to its end the statement runs as in the executor: its line is the current one.
void ChunkRun::HotRun::beginCalls(const HotStatement& statement) {
    showTo(nullptr);
    lastStatement_ = nullptr;
    inExecutor_ = true;
    answersInScalars_ = false;
    run_.selectLine(statement.line);
}

bool ChunkRun::HotRun::runsInFrame(std::uint16_t token) {
    const Variable* callee = anyVariable(token);
    if (callee == nullptr || callee->type != VarType::Function) return false;
    const std::shared_ptr<ScriptCallable>& callable = callee->asFunction();
    return callable != nullptr && !callable->isNative &&
           callable->fastBodyKind == FastBodyKind::None;
}

bool ChunkRun::HotRun::isAssert(std::uint16_t token) {
    const ScriptCallable* native = nativeOf(anyVariable(token));
    return native != nullptr && native->builtinId == BuiltinId::Assert;
}

/// A variable as an operand: a scalar or a copy.
FastScalarValue ChunkRun::HotRun::anyOf(const ScalarInstruction& push) {
    const Variable* variable = anyVariable(push.token);
    if (variable == nullptr) return FastScalarValue::nil();
    if (push.kind == kCheckedVariable) static_cast<void>(scalarFromVariable(*variable));
    return anyFrom(Variable(*variable));
}

/// A variable as an argument of a call whose arguments make no calls: it stays as it is until then.
FastScalarValue ChunkRun::HotRun::lentArgument(const ScalarInstruction& push) {
    const Variable* variable = anyVariable(push.token);
    if (variable == nullptr) return FastScalarValue::nil();
    if (push.kind == kCheckedVariable) static_cast<void>(scalarFromVariable(*variable));
    FastScalarValue value = soundScalar(*variable);
    if (value.isSet()) return value;
    value = FastScalarValue::fromInt(push.token);
    value.kind = ScalarKind::Lent;
    return value;
}

/// A value for its only use.
Variable ChunkRun::HotRun::taken(FastScalarValue value) {
    switch (value.kind) {
        case ScalarKind::Held: {
            Variable& held = interpreter_.heldValues[static_cast<std::size_t>(value.intValue)];
            Variable result = std::move(held);
            held.setNil();
            return result;
        }
        case ScalarKind::Lent: return *anyVariable(static_cast<std::uint16_t>(value.intValue));
        default: return variableFromFastScalar(value);
    }
}

FastScalarValue ChunkRun::HotRun::operateOnOthers(NodeKind kind, FastScalarValue left,
                                                  FastScalarValue right) {
    Variable first = taken(left);
    const Variable second = taken(right);
    return anyFrom(generalOperation(kind, first, second));
}

/// Arguments that `lends` is false for are copied: the callee may change the variable.
void ChunkRun::HotRun::fillArguments(ArgumentFrame& frame, const FastScalarValue* args,
                                     bool lends) {
    for (std::size_t i = 0; i < frame.size(); ++i) {
        if (args[i].kind == ScalarKind::Lent && lends) {
            frame.lend(i, *anyVariable(static_cast<std::uint16_t>(args[i].intValue)));
        } else if (args[i].kind >= ScalarKind::Held) {
            frame[i] = taken(args[i]);
        } else {
            assignFastScalarToVariable(frame[i], args[i]);
        }
    }
}

FastScalarValue ChunkRun::HotRun::call(const ScalarInstruction& instruction,
                                       const FastScalarValue* args) {
    const std::size_t count = instruction.kind;
    const Variable* callee = anyVariable(instruction.token);
    const bool isMember = instruction.opcode == ScalarOpcode::CallEntry;
    Variable elsewhere;
    if (isMember && callee != nullptr && callee->type == VarType::Table) {
        const TableStorage& table = *callee->asTable();
        const auto found = table.find(key(instruction.intValue));
        callee = found != table.end() ? &found->second : nullptr;
    } else if (isMember) {
        elsewhere = interpreter_.getIndexedValue(callee != nullptr ? *callee : nilValue(),
                                                 Variable(key(instruction.intValue)));
        callee = &elsewhere;
    }
    if (callee == nullptr) callee = &nilValue();
    const ScriptCallable* callable =
        callee->type == VarType::Function ? callee->asFunction().get() : nullptr;
    if (callable != nullptr && callable->runsInFrame() && count <= kMostFrameArguments) {
        std::array<const Variable*, kMostFrameArguments> others;  // left uninitialised
        for (std::size_t i = 0; i < count; ++i) {
            const auto number = static_cast<std::size_t>(args[i].intValue);
            others[i] = args[i].kind == ScalarKind::Held ? &interpreter_.heldValues[number]
                        : args[i].kind == ScalarKind::Lent
                            ? anyVariable(static_cast<std::uint16_t>(number))
                            : nullptr;
        }
        Variable result =
            interpreter_.callInFrame(callee->asFunction(), args, others.data(), count);
        bindAnew();
        return anyFrom(std::move(result));
    }
    ArgumentFrame frame(interpreter_.argumentStack, count);
    const bool lends =
        callable != nullptr && callable->isNative && runsNoScriptCode(callable->builtinId);
    fillArguments(frame, args, lends);
    if (lends) return anyFrom(interpreter_.dispatchBuiltinFast(callable->builtinId, frame.view()));
    Variable result =
        interpreter_.callFound(*callee, isMember && callee != &elsewhere, frame.view());
    bindAnew();
    return anyFrom(std::move(result));
}

/// The call of `x = f(...)`, where one-line functions and natives may answer in the scalar tier.
FastScalarValue ChunkRun::HotRun::callDirect(const ScalarInstruction& instruction,
                                             const FastScalarValue* args) {
    const Variable* callee = anyVariable(instruction.token);
    const ScriptCallable* callable = callee != nullptr && callee->type == VarType::Function
                                         ? callee->asFunction().get()
                                         : nullptr;
    if (callable != nullptr && callable->runsInFrame()) return call(instruction, args);
    const bool runsNoCode =
        callable != nullptr && callable->isNative && runsNoScriptCode(callable->builtinId);
    ArgumentFrame frame(interpreter_.argumentStack, instruction.kind);
    fillArguments(frame, args, runsNoCode);
    FastScalarValue scalar{};
    Variable value;
    answersInScalars_ =
        run_.callDirectly(*code_.variables[instruction.token], frame.view(), scalar, value);
    if (!runsNoCode) bindAnew();
    return answersInScalars_ ? scalar : anyFrom(std::move(value));
}

/// The end of a statement with calls. False to leave.
bool ChunkRun::HotRun::endCalls(const HotStatement& statement) {
    inExecutor_ = false;
    releaseHeld();
    return !expectsTurns_ || giveTurn(statement);
}

bool ChunkRun::HotRun::assignAny(const HotStatement& statement, FastScalarValue value) {
    // A compound assignment sees the difference between a scalar and a variable that holds one.
    Variable other;
    if (!answersInScalars_) other = taken(value);
    run_.assignValue(run_.lines_[statement.line], value, answersInScalars_, other);
    run_.value_.setNil();
    return endCalls(statement);
}

bool ChunkRun::HotRun::discardAny(const HotStatement& statement, FastScalarValue value) {
    run_.value_ = taken(value);
    return endCalls(statement);
}

ChunkRun::Flow ChunkRun::HotRun::returnAny(const HotStatement& statement, FastScalarValue value) {
    run_.value_ = taken(value);
    signal_ = BlockSignal::Return;
    if (interpreter_.scheduledCoroutine != nullptr) giveTurns(statement.depth);
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
