// Running hot code.
#include <algorithm>
#include <array>

#include "eval/errors.h"
#include "eval/scalar_step.h"
#include "exec/chunk_run.h"
#include "exec/for_header.h"

class ChunkRun::HotRun {
public:
    HotRun(ChunkRun& run, const HotCode& code)
        : run_(run), interpreter_(run.interpreter_), code_(code) {
        forgetVariables();
        expectTurns();
    }
    ~HotRun() {
        while (openFors_ > 0) closeFor();
    }
    HotRun(const HotRun&) = delete;
    HotRun& operator=(const HotRun&) = delete;

    Flow run();

    // What the instructions of expressions ask for.
    [[nodiscard, gnu::always_inline]] FastScalarValue scalar(std::uint16_t variable) {
        const Variable* value = place(variable);
        return value != nullptr ? scalarFromVariable(*value) : FastScalarValue{};
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

    bool storeElement(const ScalarInstruction& instruction, FastScalarValue key,
                      FastScalarValue value);
    bool updateElement(const ScalarInstruction& instruction, FastScalarValue key,
                       FastScalarValue value);
    ArrayStorage* arrayFor(const ScalarInstruction& instruction, FastScalarValue key);
    Position startFor(const HotStatement& header, const NumericForRange& range);
    bool nextTurn(OpenFor& loop);
    void closeFor() {
        interpreter_.frameScopes.pop();
        --openFors_;
    }

    /// Where the code goes on after the executor has run the statement; null to leave.
    Position runByExecutor(const HotStatement& statement);
    Position afterCondition(const HotStatement& statement, const char* word);
    /// The turn of a coroutine behind a statement. False to leave.
    bool giveTurn();
    void expectTurns() {
        expectsTurns_ = interpreter_.scheduledCoroutine != nullptr ||
                        interpreter_.pendingCoroutineException != nullptr;
    }

    [[nodiscard]] Variable* bind(std::uint16_t variable) {
        bound_[variable] = interpreter_.cachedVariable(*code_.variables[variable]);
        return bound_[variable];
    }
    void forgetVariables() {
        std::fill_n(bound_.begin(), code_.variables.size(), nullptr);
    }
    [[nodiscard]] Position positionOf(std::uint32_t index) const {
        return code_.code.data() + index;
    }
    [[nodiscard]] const HotStatement& statementAt(Position at) const;
    void showTo(Position at);

    ChunkRun& run_;
    DovrelScript& interpreter_;
    const HotCode& code_;
    std::array<Variable*, kMostHotVariables> bound_;  // null where nothing is bound
    std::array<OpenFor, kMostHotFors> fors_;          // the first `openFors_` are open
    std::size_t openFors_ = 0;
    Position lastStatement_ = nullptr;  // in the statement that ran last here, null for others
    Position lastElement_ = nullptr;    // in an element assignment whose last token nobody has seen
    bool clearsValue_ = false;          // the chunk's value is nil, and is not yet written
    bool expectsTurns_ = false;         // a coroutine may have a turn behind each statement
    bool inExecutor_ = false;           // a statement runs by the executor
};

const HotCode* ChunkRun::hotCodeOf(BytecodeOp opcode, std::uint32_t operand,
                                   std::uint32_t bodyChunk) {
    std::vector<std::unique_ptr<const HotCode>>& loops = program_->hotLoops;
    if (loops.size() < program_->chunks.size()) loops.resize(program_->chunks.size());
    std::unique_ptr<const HotCode>& code = loops[bodyChunk];
    const auto byte = static_cast<std::uint8_t>(opcode);
    if (code == nullptr) {
        code = std::make_unique<const HotCode>(compileHotLoop(*program_, byte, operand));
    }
    // In a damaged file several loops may share a body.
    const bool fits = code->opcode == byte && code->operand == operand && !code->code.empty();
    return fits ? code.get() : nullptr;
}

ChunkRun::Flow ChunkRun::runHotCode(const HotCode& code) { return HotRun(*this, code).run(); }

ChunkRun::Flow ChunkRun::HotRun::run() {
    Position at = positionOf(0);
    std::array<FastScalarValue, kHotStackSize> stack;     // left uninitialised
    std::array<const Variable*, kPlaceStackSize> places;  // left uninitialised
    FastScalarValue* top = stack.data();
    const Variable** place = places.data();
    try {
    for (;;) {
        const ScalarInstruction& instruction = *at;
        bool declines = false;
        if (instruction.opcode < kFirstHotOpcode) {
            if (stepScalarCode(at, top, place, *this)) {
                ++at;
                continue;
            }
            declines = true;
        } else
        switch (instruction.opcode) {
            case ScalarOpcode::StoreVariable: {
                Variable* variable = this->place(instruction.token);
                if (variable == nullptr) {
                    declines = true;
                    break;
                }
                assignFastScalarToVariable(*variable, *--top);
                goto statementDone;
            }
            case ScalarOpcode::UpdateVariable: {
                Variable* variable = this->place(instruction.token);
                if (variable == nullptr ||
                    !tryApplyFastScalarOperationInPlace(
                        *variable, static_cast<char>(instruction.kind), *--top)) {
                    declines = true;
                    break;
                }
                goto statementDone;
            }
            case ScalarOpcode::StoreElement:
                top -= 2;
                if (storeElement(instruction, top[0], top[1])) goto elementDone;
                declines = true;
                break;
            case ScalarOpcode::UpdateElement:
                top -= 2;
                if (updateElement(instruction, top[0], top[1])) goto elementDone;
                declines = true;
                break;
            case ScalarOpcode::JumpIfFalse:
                lastStatement_ = at;
                at = isScalarTruthy(*--top) ? at + 1 : positionOf(instruction.intValue);
                continue;
            case ScalarOpcode::RepeatIfTrue:
            case ScalarOpcode::RepeatIfFalse:
                lastStatement_ = at;
                if (interpreter_.softErrorUnwinding()) return run_.leaveWithNil();
                at = isScalarTruthy(*--top) == (instruction.opcode == ScalarOpcode::RepeatIfTrue)
                         ? positionOf(instruction.intValue)
                         : at + 1;
                continue;
            case ScalarOpcode::Break: lastStatement_ = at; [[fallthrough]];
            case ScalarOpcode::Jump: at = positionOf(instruction.intValue); continue;
            case ScalarOpcode::ForStart: {
                top -= 3;
                if (top[0].kind != ScalarKind::Int || top[1].kind != ScalarKind::Int ||
                    top[2].kind != ScalarKind::Int) {
                    declines = true;
                    break;
                }
                const NumericForRange range{top[0].intValue, top[1].intValue, top[2].intValue};
                if (range.step == 0) throwPlainError("for loop step must not be 0");
                lastStatement_ = at;
                at = startFor(code_.statements[static_cast<std::size_t>(instruction.intValue)],
                              range);
                continue;
            }
            case ScalarOpcode::ForNext:
                if (interpreter_.softErrorUnwinding()) return run_.leaveWithNil();
                at = nextTurn(fors_[instruction.token]) ? positionOf(instruction.intValue) : at + 1;
                continue;
            case ScalarOpcode::ForLeave:
                closeFor();
                ++at;
                continue;
            case ScalarOpcode::SelectLine:
                lastStatement_ = at++;
                continue;
            case ScalarOpcode::RunStatement: declines = true; break;
            case ScalarOpcode::Finish: showTo(lastStatement_); return Flow::Next;
            default: __builtin_unreachable();
            elementDone:
                lastElement_ = at;
            statementDone:
                lastStatement_ = at++;
                clearsValue_ = true;
                if (expectsTurns_ && !giveTurn()) return run_.leaveWithNil();
                continue;
        }
        if (declines) {
            at = runByExecutor(statementAt(at));
            if (at == nullptr) return run_.leaveWithNil();
            top = stack.data();
            place = places.data();
        }
    }
    } catch (...) {
        if (!inExecutor_) {
            // The counting of a `for` belongs to no statement.
            showTo(at->opcode == ScalarOpcode::ForNext ? lastStatement_ : at);
        }
        throw;
    }
}

/// The array in the variable of an instruction; null if the variable, its value or the key is
/// something else.
ArrayStorage* ChunkRun::HotRun::arrayFor(const ScalarInstruction& instruction,
                                         FastScalarValue key) {
    if (key.kind != ScalarKind::Int || key.intValue < 1) return nullptr;
    Variable* variable = place(instruction.token);
    if (variable == nullptr || variable->type != VarType::Array) return nullptr;
    return variable->asArray().get();
}

bool ChunkRun::HotRun::storeElement(const ScalarInstruction& instruction, FastScalarValue key,
                                    FastScalarValue value) {
    ArrayStorage* array = arrayFor(instruction, key);
    if (array == nullptr) return false;
    const auto index = static_cast<std::size_t>(key.intValue) - 1;
    if (index > array->size()) return false;
    if (index == array->size()) array->emplace_back();
    assignFastScalarToVariable((*array)[index], value);
    return true;
}

/// Ints only: mixed kinds have rules of their own, and so has a divisor of 0.
bool ChunkRun::HotRun::updateElement(const ScalarInstruction& instruction, FastScalarValue key,
                                     FastScalarValue value) {
    ArrayStorage* array = arrayFor(instruction, key);
    if (array == nullptr) return false;
    const auto index = static_cast<std::size_t>(key.intValue) - 1;
    if (index >= array->size() || (*array)[index].type != VarType::Int ||
        value.kind != ScalarKind::Int || value.intValue == 0) {
        return false;
    }
    return tryApplyFastScalarOperationInPlace((*array)[index],
                                              static_cast<char>(instruction.kind), value);
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
    loop.counter = wrapAdd(loop.counter, loop.step);
    if (loop.step >= 1 ? loop.counter > loop.limit : loop.counter < loop.limit) return false;
    interpreter_.frameScopes.back()[0].value.intReference() = loop.counter;
    return true;
}

ChunkRun::HotRun::Position ChunkRun::HotRun::runByExecutor(const HotStatement& statement) {
    showTo(nullptr);
    inExecutor_ = true;
    Position next = nullptr;
    switch (statement.kind) {
        case HotStatementKind::Plain: {
            BlockSignal signal = BlockSignal::None;
            const BytecodeInstruction& instruction = run_.program_->code[statement.instruction];
            if (run_.executeInline(instruction, signal) == Flow::Next) {
                next = positionOf(statement.next);
            }
            break;
        }
        case HotStatementKind::IfCondition: {
            const bool isWhile = run_.lines_[statement.line].kind == LineKind::While;
            next = afterCondition(statement, isWhile ? "while" : "if");
            break;
        }
        case HotStatementKind::LoopCondition: next = afterCondition(statement, "while"); break;
        case HotStatementKind::UntilCondition: next = afterCondition(statement, "until"); break;
        case HotStatementKind::ForHeader: {
            NumericForRange range;
            const ParsedScriptLine& line = run_.selectLine(statement.line);
            if (evaluateNumericForRange(interpreter_, line, range)) {
                next = startFor(statement, range);
            }
            break;
        }
        case HotStatementKind::Marker: break;
    }
    inExecutor_ = false;
    lastStatement_ = nullptr;
    forgetVariables();
    expectTurns();
    return next;
}

ChunkRun::HotRun::Position ChunkRun::HotRun::afterCondition(const HotStatement& statement,
                                                            const char* word) {
    const bool holds = run_.evaluateCondition(run_.selectLine(statement.line), word);
    if (run_.unwinding()) return nullptr;
    return positionOf(holds ? statement.next : statement.otherwise);
}

bool ChunkRun::HotRun::giveTurn() {
    showTo(lastStatement_);
    inExecutor_ = true;
    const Flow flow = run_.endInlineStatement();
    inExecutor_ = false;
    forgetVariables();
    expectTurns();
    return flow == Flow::Next;
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
