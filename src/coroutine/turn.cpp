// One turn of a coroutine. The body's lines are interpreted directly, and an explicit stack of
// frames stands in for the host's call stack, so that the coroutine can stop after any statement,
// deep inside nested blocks.
//
// The block links of a body that the bytecode executor declared count from the start of its
// program, while the frames count from the start of the body. They are used as they stand: kept. A
// block may then run over its end and past it, so every access to a line is checked.
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "exec/for_header.h"
#include "exec/function_declaration.h"
#include "exec/machine.h"
#include "frontend/line_preparation.h"
#include "interpreter/dovrel_script.h"
#include "value/array_storage.h"
#include "value/numbers.h"

namespace {

/// The statement is one call, whose arguments make none: a coroutine that it starts ends this one
/// with nothing left to be unwound, and need not raise anything.
bool isOneCall(const ParsedScriptLine& line) {
    if (line.assignment != nullptr || !line.expression.isCall()) return false;
    const FastExpression& expression = line.expression;
    const FastExprNode& call = expression.rootNode();
    const auto count = static_cast<std::size_t>(call.intValue);
    for (std::size_t i = 0; i < count; ++i) {
        const auto node = expression.callArguments[static_cast<std::size_t>(call.right) + i];
        if (expression.nodes[node].holdsCall) return false;
    }
    return expression.nodes[static_cast<std::size_t>(call.left)].kind == NodeKind::Variable;
}

class LastCallGuard {
public:
    LastCallGuard(DovrelScript& interpreter, const ParsedScriptLine& line)
        : interpreter_(interpreter) {
        // Who watches is told of the end by what is raised.
        const bool endsQuietly = interpreter.observer == nullptr && isOneCall(line);
        interpreter.lastCallDepth = endsQuietly ? interpreter.callDepth + 1 : 0;
    }
    ~LastCallGuard() { interpreter_.lastCallDepth = 0; }
    LastCallGuard(const LastCallGuard&) = delete;
    LastCallGuard& operator=(const LastCallGuard&) = delete;

private:
    DovrelScript& interpreter_;
};

class CoroutineTurn {
public:
    CoroutineTurn(DovrelScript& interpreter, CoroutineState& state)
        : interpreter_(interpreter), state_(state), lines_(*state.callable->bodyLines) {}

    /// Runs until one plain statement has run; true when the coroutine has finished.
    bool run();

private:
    /// What a step of the walk has led to.
    enum class Step : std::uint8_t {
        GoOn,      // the turn goes on with the top frame
        TurnOver,  // a statement has run
        Finished,  // the coroutine has ended
    };

    Step stepBlock();
    Step stepLine(std::size_t index);
    Step enterIf(std::size_t index);
    void enterLoop(CoroutineFrameKind kind, std::size_t index, std::size_t header);
    Step declare(std::size_t index);
    Step runBreak();
    Step runPlainLine(const ParsedScriptLine& line, std::size_t index);
    void stepWhile();
    void stepRepeat();
    Step stepNumericFor();
    Step stepGenericFor();
    bool startGenericFor(const ParsedScriptLine& line);
    bool collectRows(const ParsedScriptLine& line, std::size_t iterator);
    bool collectBuiltinRows(const ParsedScriptLine& line);

    const ParsedScriptLine& lineAt(std::size_t index) const {
        if (index >= lines_.size()) throwOutOfRange();
        return lines_[index];
    }
    [[noreturn]] static void throwOutOfRange() {
        throwPlainError("Coroutine line index out of range");
    }
    const ParsedScriptLine& select(std::size_t index) {
        const ParsedScriptLine& line = lineAt(index);
        interpreter_.selectLine(line);
        return line;
    }
    /// The same for a statement that is about to run, or a condition to be tested.
    const ParsedScriptLine& begin(std::size_t index) {
        const ParsedScriptLine& line = lineAt(index);
        interpreter_.beginStatement(line);
        return line;
    }
    bool evaluateCondition(const ParsedScriptLine& line, std::string_view word) {
        return interpreter_.evaluateCondition(line, word, DovrelScript::ConditionTiers::BoolFirst);
    }
    [[nodiscard]] bool unwinding() const { return interpreter_.softErrorUnwinding(); }
    [[nodiscard]] CoroutineFrame& top() { return state_.frames.back(); }
    Step finish() {
        state_.frames.clear();
        return Step::Finished;
    }
    [[nodiscard]] Step turnOver() const {
        return state_.frames.empty() ? Step::Finished : Step::TurnOver;
    }
    void pushBlockFrame(std::size_t firstLine, std::size_t endLine);
    void popBlockFrame();
    void popLoopFrame();

    DovrelScript& interpreter_;
    CoroutineState& state_;
    const std::vector<ParsedScriptLine>& lines_;
};

bool CoroutineTurn::run() {
    while (!state_.frames.empty()) {
        Step step = Step::GoOn;
        switch (top().kind) {
            case CoroutineFrameKind::Block: step = stepBlock(); break;
            case CoroutineFrameKind::While: stepWhile(); break;
            case CoroutineFrameKind::Repeat: stepRepeat(); break;
            case CoroutineFrameKind::NumericFor: step = stepNumericFor(); break;
            case CoroutineFrameKind::GenericFor: step = stepGenericFor(); break;
        }
        if (step == Step::GoOn && unwinding()) step = finish();
        if (step == Step::TurnOver) return false;
        if (step == Step::Finished) return true;
    }
    return true;
}

void CoroutineTurn::pushBlockFrame(std::size_t firstLine, std::size_t endLine) {
    CoroutineFrame frame;
    frame.nextLine = firstLine;
    frame.endLine = endLine;
    frame.savedBlockScopeCount = interpreter_.blockScopes.size();
    frame.savedBlockScopeFloor = interpreter_.blockScopeFloor;
    frame.ownsBlockScope = true;
    interpreter_.pushBlockScope();
    state_.frames.push_back(std::move(frame));
}

void CoroutineTurn::popBlockFrame() {
    if (state_.frames.empty()) return;
    if (top().ownsBlockScope) {
        interpreter_.blockScopes.popTo(top().savedBlockScopeCount);
        interpreter_.blockScopeFloor = top().savedBlockScopeFloor;
    }
    state_.frames.pop_back();
}

void CoroutineTurn::popLoopFrame() {
    if (state_.frames.empty()) return;
    const bool hasScope = top().kind == CoroutineFrameKind::NumericFor ||
                          top().kind == CoroutineFrameKind::GenericFor;
    if (hasScope && !interpreter_.frameScopes.empty()) interpreter_.frameScopes.pop();
    state_.frames.pop_back();
}

CoroutineTurn::Step CoroutineTurn::stepBlock() {
    CoroutineFrame& frame = top();
    while (frame.nextLine < frame.endLine && lineAt(frame.nextLine).tokens.empty()) {
        ++frame.nextLine;
    }
    if (frame.nextLine >= frame.endLine) {
        popBlockFrame();
        return Step::GoOn;
    }
    return stepLine(frame.nextLine);
}

CoroutineTurn::Step CoroutineTurn::stepLine(std::size_t index) {
    const ParsedScriptLine& line = select(index);
    switch (line.kind) {
        case LineKind::ElseIf:
        case LineKind::Else:
        case LineKind::End:
        case LineKind::Until: top().nextLine = index + 1; return Step::GoOn;
        case LineKind::If: return enterIf(index);
        case LineKind::While: enterLoop(CoroutineFrameKind::While, index, index); return Step::GoOn;
        case LineKind::Repeat:
            enterLoop(CoroutineFrameKind::Repeat, index, line.matchingEnd);
            return Step::GoOn;
        case LineKind::For:
            enterLoop(isNumericForLine(line) ? CoroutineFrameKind::NumericFor
                                             : CoroutineFrameKind::GenericFor,
                      index, index);
            return Step::GoOn;
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: return declare(index);
        case LineKind::Return:
            // The values are never evaluated: kept. The scopes die with the state.
            begin(index);
            return finish();
        case LineKind::Break: begin(index); return runBreak();
        default: begin(index); return runPlainLine(line, index);
    }
}

CoroutineTurn::Step CoroutineTurn::enterIf(std::size_t index) {
    const std::size_t behind = lineAt(index).matchingEnd + 1;
    for (std::size_t branch = index;;) {
        const ParsedScriptLine& line = select(branch);
        if (line.kind != LineKind::Else) begin(branch);
        const bool holds = line.kind == LineKind::Else || evaluateCondition(line, "if");
        if (unwinding()) return finish();
        if (holds) {
            const std::size_t bodyEnd =
                line.nextBranch != kNoLine ? line.nextBranch : line.matchingEnd;
            top().nextLine = behind;
            if (branch + 1 < bodyEnd) pushBlockFrame(branch + 1, bodyEnd);
            return Step::GoOn;
        }
        if (line.nextBranch == kNoLine) break;
        branch = line.nextBranch;
    }
    top().nextLine = behind;
    return Step::GoOn;
}

void CoroutineTurn::enterLoop(CoroutineFrameKind kind, std::size_t index, std::size_t header) {
    const std::size_t end = lineAt(index).matchingEnd;
    CoroutineFrame loop;
    loop.kind = kind;
    loop.headerLine = header;
    loop.bodyFirstLine = index + 1;
    loop.bodyEndLine = end;
    top().nextLine = end + 1;
    state_.frames.push_back(std::move(loop));
}

CoroutineTurn::Step CoroutineTurn::declare(std::size_t index) {
    const ParsedScriptLine& line = begin(index);
    declareFunction(interpreter_, line, NewBase::Table, [&](ScriptCallable& callable) {
        if (line.matchingEnd > lines_.size()) throwOutOfRange();
        attachParsedBody(interpreter_, callable, lines_, index + 1, line.matchingEnd);
    });
    if (unwinding()) return finish();
    top().nextLine = line.matchingEnd + 1;
    return Step::GoOn;
}

CoroutineTurn::Step CoroutineTurn::runBreak() {
    do {
        popBlockFrame();
        if (state_.frames.empty()) throwPlainError("break used outside a loop");
    } while (top().kind == CoroutineFrameKind::Block);
    popLoopFrame();
    return turnOver();
}

CoroutineTurn::Step CoroutineTurn::runPlainLine(const ParsedScriptLine& line, std::size_t index) {
    if (!interpreter_.machine->runTurnLine(*state_.callable, index)) {
        const LastCallGuard lastCall(interpreter_, line);
        Variable value;
        interpreter_.executePlainLine(line, value, DovrelScript::DiscardedCall::ClearsValue);
    }
    if (unwinding() || interpreter_.coroutineTurnEnded) return finish();
    ++top().nextLine;
    return turnOver();
}

void CoroutineTurn::stepWhile() {
    const bool holds = evaluateCondition(begin(top().headerLine), "while");
    if (unwinding()) return;
    if (holds) {
        pushBlockFrame(top().bodyFirstLine, top().bodyEndLine);
    } else {
        popLoopFrame();
    }
}

void CoroutineTurn::stepRepeat() {
    CoroutineFrame& frame = top();
    if (!frame.started || !frame.repeatBodyDone) {
        frame.started = true;
        frame.repeatBodyDone = true;
        pushBlockFrame(frame.bodyFirstLine, frame.bodyEndLine);
        return;
    }
    const bool holds = evaluateCondition(begin(frame.headerLine), "until");
    if (unwinding()) return;
    if (holds) {
        popLoopFrame();
    } else {
        frame.repeatBodyDone = false;
    }
}

CoroutineTurn::Step CoroutineTurn::stepNumericFor() {
    if (!top().started) {
        const ParsedScriptLine& line = begin(top().headerLine);
        NumericForRange range;
        if (!evaluateNumericForRange(interpreter_, line, range)) return finish();
        interpreter_.frameScopes.push(1).append(
            loopVariableName(line, forHeaderOf(line).numericVariable),
            Variable::makeInt(range.start));
        CoroutineFrame& frame = top();
        frame.forCurrent = range.start;
        frame.forLimit = range.limit;
        frame.forStep = range.step;
        frame.started = true;
    }
    CoroutineFrame& frame = top();
    if (frame.forStep >= 1 ? frame.forCurrent > frame.forLimit
                           : frame.forCurrent < frame.forLimit) {
        popLoopFrame();
    } else if (frame.bodyIssued) {
        frame.forCurrent = wrapAdd(frame.forCurrent, frame.forStep);
        frame.bodyIssued = false;
    } else {
        if (interpreter_.frameScopes.empty() || interpreter_.frameScopes.back().empty()) {
            throwPlainError("numeric for loop scope is missing");
        }
        interpreter_.frameScopes.back()[0].value = Variable::makeInt(frame.forCurrent);
        interpreter_.observeIteration(lineAt(frame.headerLine));
        frame.bodyIssued = true;
        pushBlockFrame(frame.bodyFirstLine, frame.bodyEndLine);
    }
    return Step::GoOn;
}

CoroutineTurn::Step CoroutineTurn::stepGenericFor() {
    if (!top().started && !startGenericFor(begin(top().headerLine))) return finish();
    CoroutineFrame& frame = top();
    if (frame.rowIndex >= frame.iterationRows.size()) {
        popLoopFrame();
    } else if (frame.bodyIssued) {
        ++frame.rowIndex;
        frame.bodyIssued = false;
    } else {
        if (interpreter_.frameScopes.empty()) {
            throwPlainError("generic for loop scope is missing");
        }
        Scope& scope = interpreter_.frameScopes.back();
        const std::vector<Variable>& row = frame.iterationRows[frame.rowIndex];
        for (std::size_t i = 0; i < frame.loopVariables.size() && i < scope.size(); ++i) {
            scope[i].value = i < row.size() ? row[i] : Variable();
        }
        interpreter_.observeIteration(lineAt(frame.headerLine));
        frame.bodyIssued = true;
        pushBlockFrame(frame.bodyFirstLine, frame.bodyEndLine);
    }
    return Step::GoOn;
}

/// Computes all iterations before the first one, so that the loop does not see what its body does
/// to the container. False if a soft error is unwinding.
bool CoroutineTurn::startGenericFor(const ParsedScriptLine& line) {
    const GenericForNames variables = readGenericForNames(interpreter_, line);
    if (variables.names.empty()) {
        throwPlainError("generic for loop requires at least one loop variable");
    }
    top().loopVariables = variables.names;
    top().iterationRows.clear();
    top().rowIndex = 0;
    if (!collectRows(line, variables.iterator)) return false;
    Scope& scope = interpreter_.frameScopes.push(variables.names.size());
    for (const Name name : variables.names) scope.append(name);
    top().started = true;
    return true;
}

bool CoroutineTurn::collectRows(const ParsedScriptLine& line, std::size_t iterator) {
    // What the name `pairs` means now is not asked here: kept.
    if (forHeaderOf(line).genericBuiltin != BuiltinId::None) return collectBuiltinRows(line);
    const auto elements = evaluateGenericIterator(interpreter_, line, iterator);
    if (elements == nullptr) return false;
    const bool spreads = top().loopVariables.size() > 1;
    for (const Variable& element : *elements) {
        if (spreads && element.type == VarType::Array) {
            const ArrayStorage& row = *element.asArray();
            top().iterationRows.emplace_back(row.begin(), row.end());
        } else {
            top().iterationRows.push_back({element});
        }
    }
    return true;
}

bool CoroutineTurn::collectBuiltinRows(const ParsedScriptLine& line) {
    const ParsedForHeader& header = forHeaderOf(line);
    const bool isIpairs = header.genericBuiltin == BuiltinId::Ipairs;
    Variable container;
    if (header.genericIterator.valid) {
        container = interpreter_.evaluateFastExpression(header.genericIterator, line.tokenAnalysis);
        if (unwinding()) return false;
    }
    const bool single = top().loopVariables.size() == 1;
    const auto addRow = [&](const Variable& key, const Variable& element) {
        if (single) {
            top().iterationRows.push_back({Variable::makeArray({key, element})});
        } else {
            top().iterationRows.push_back({key, element});
        }
    };
    if (container.type == VarType::Array) {
        const ArrayStorage& array = *container.asArray();
        for (std::size_t i = 0; i < array.size(); ++i) {
            addRow(Variable::makeInt(static_cast<int>(i + 1)), array[i]);
        }
    } else if (container.type == VarType::Table && isIpairs) {
        const int length = interpreter_.numericTableLength(container.asTable());
        for (int i = 1; i <= length; ++i) {
            addRow(Variable::makeInt(i), liveTableEntry(*container.asTable(), intKeyText(i)));
        }
    } else if (container.type == VarType::Table) {
        const auto snapshot = container.asTable()->snapshot();
        for (std::size_t i = 0; i < snapshot->keys.size(); ++i) {
            addRow(snapshot->keyValues[i], liveTableEntry(*container.asTable(), snapshot->keys[i]));
        }
    } else {
        throwPlainError(isIpairs ? "ipairs(container) expects an array or table"
                                 : "pairs(container) expects an array or table");
    }
    return true;
}

}  // namespace

bool DovrelScript::executeCoroutineTurn(CoroutineState& state) {
    if (state.callable == nullptr || state.callable->bodyLines == nullptr || state.frames.empty()) {
        return true;
    }
    return CoroutineTurn(*this, state).run();
}
