// The parsed-block executor: runs prepared lines with no compiled program, by the block links of
// the lines. It runs the bodies of functions that were declared here or in a coroutine's turn. The
// statement machinery is shared with the bytecode executor; what differs on purpose: conditions
// skip the bool tier, `for` clauses go by tokens, the loop variable is written afresh, and the last
// value includes that of a general multiple assignment.
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "exec/for_header.h"
#include "exec/function_declaration.h"
#include "frontend/line_preparation.h"
#include "interpreter/dovrel_script.h"
#include "value/numbers.h"

namespace {

using Lines = std::vector<ParsedScriptLine>;

/// One run of a block: from a line to a line that closes the block, or to the end.
class BlockRun {
public:
    BlockRun(DovrelScript& interpreter, const Lines& lines, std::size_t& index, BlockSignal& signal)
        : interpreter_(interpreter),
          lines_(lines),
          index_(index),
          signal_(signal),
          savedCount_(interpreter.blockScopes.size()),
          savedFloor_(interpreter.blockScopeFloor) {
        interpreter.pushBlockScope();
    }
    ~BlockRun() {
        interpreter_.blockScopes.popTo(savedCount_);
        interpreter_.blockScopeFloor = savedFloor_;
    }
    BlockRun(const BlockRun&) = delete;
    BlockRun& operator=(const BlockRun&) = delete;

    Variable run();

private:
    enum class Flow : std::uint8_t { Next, Leave };

    Flow runStatement(const ParsedScriptLine& line);
    Flow runIf();
    Flow runWhile();
    Flow runRepeat();
    Flow runNumericFor(const ParsedScriptLine& line);
    Flow runGenericFor(const ParsedScriptLine& line);
    Flow runFunctionDeclaration(const ParsedScriptLine& line);
    Flow runReturn(const ParsedScriptLine& line);
    Flow runPlain(const ParsedScriptLine& line);

    struct GenericLoop;
    BuiltinId directIterator(const ParsedScriptLine& line, std::size_t iterator,
                             Variable& container);
    Flow walkBuiltin(GenericLoop& loop, BuiltinId builtin, const Variable& container);
    bool runIteration(GenericLoop& loop);

    /// Runs the lines from `first` on as a nested block; `stop` becomes the line where it ended.
    BlockSignal runNested(std::size_t first, std::size_t& stop) {
        BlockSignal nested = BlockSignal::None;
        stop = first;
        last_ = interpreter_.executeParsedBlock(lines_, stop, nested);
        return nested;
    }
    /// What a loop does after its body: true if it goes on. Otherwise `flow` is set.
    bool continuesAfterBody(BlockSignal nested, Flow& flow);
    bool evaluateCondition(const ParsedScriptLine& line, std::string_view word) {
        return interpreter_.evaluateCondition(line, word, DovrelScript::ConditionTiers::ScalarOnly);
    }
    [[nodiscard]] bool unwinding() const { return interpreter_.softErrorUnwinding(); }
    Flow leaveWithNil() {
        last_ = Variable();
        return Flow::Leave;
    }
    Flow continueBehind(std::size_t line) {
        index_ = line + 1;
        return Flow::Next;
    }

    DovrelScript& interpreter_;
    const Lines& lines_;
    std::size_t& index_;
    BlockSignal& signal_;
    std::size_t savedCount_;
    std::size_t savedFloor_;
    Variable last_;  // the value of the block so far
};

bool closesBlock(LineKind kind) {
    return kind == LineKind::ElseIf || kind == LineKind::Else || kind == LineKind::End ||
           kind == LineKind::Until;
}

Variable BlockRun::run() {
    signal_ = BlockSignal::None;
    while (index_ < lines_.size()) {
        interpreter_.rethrowPendingCoroutineException();
        if (unwinding()) return {};
        const ParsedScriptLine& line = lines_[index_];
        interpreter_.selectLine(line);
        if (line.tokens.empty()) {
            ++index_;
            continue;
        }
        // The caller looks at the line where a nested run has stopped.
        if (closesBlock(line.kind)) break;
        Flow flow = Flow::Next;
        try {
            flow = runStatement(line);
            interpreter_.runTurnHook();
        } catch (const std::exception& error) {
            interpreter_.rethrowLocated(error, line.tokens[0]);
        }
        if (flow == Flow::Leave) break;
    }
    return std::move(last_);
}

BlockRun::Flow BlockRun::runStatement(const ParsedScriptLine& line) {
    switch (line.kind) {
        case LineKind::If: return runIf();
        case LineKind::While: return runWhile();
        case LineKind::Repeat: return runRepeat();
        default: break;
    }
    interpreter_.beginStatement(line);
    switch (line.kind) {
        case LineKind::For:
            return isNumericForLine(line) ? runNumericFor(line) : runGenericFor(line);
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: return runFunctionDeclaration(line);
        case LineKind::Return: return runReturn(line);
        case LineKind::Break: signal_ = BlockSignal::Break; return Flow::Leave;
        default: return runPlain(line);
    }
}

BlockRun::Flow BlockRun::runPlain(const ParsedScriptLine& line) {
    interpreter_.executePlainLine(line, last_, DovrelScript::DiscardedCall::KeepsValue);
    if (unwinding()) return leaveWithNil();
    ++index_;
    return Flow::Next;
}

BlockRun::Flow BlockRun::runReturn(const ParsedScriptLine& line) {
    last_ = interpreter_.evaluateReturnValues(line);
    if (unwinding()) return leaveWithNil();
    signal_ = BlockSignal::Return;
    return Flow::Leave;
}

bool BlockRun::continuesAfterBody(BlockSignal nested, Flow& flow) {
    if (unwinding()) {
        flow = leaveWithNil();
        return false;
    }
    if (nested == BlockSignal::Return) {
        signal_ = BlockSignal::Return;
        flow = Flow::Leave;
        return false;
    }
    return nested == BlockSignal::None;
}

BlockRun::Flow BlockRun::runIf() {
    std::size_t branch = index_;
    for (;;) {
        const ParsedScriptLine& line = lines_[branch];
        const bool isElse = line.kind == LineKind::Else;
        if (!isElse && line.kind != LineKind::If && line.kind != LineKind::ElseIf) {
            return Flow::Next;
        }
        if (isElse) {
            interpreter_.selectLine(line);
        } else {
            interpreter_.beginStatement(line);
        }
        const bool holds = isElse || evaluateCondition(line, "if");
        if (unwinding()) return leaveWithNil();
        if (holds) break;
        if (line.nextBranch == kNoLine || line.nextBranch >= lines_.size()) {
            if (line.matchingEnd == kNoLine) throwPlainError("Missing 'end' for if block");
            return continueBehind(line.matchingEnd);
        }
        branch = line.nextBranch;
    }
    if (lines_[branch].matchingEnd == kNoLine && lines_[branch].nextBranch == kNoLine) {
        throwPlainError("Missing 'end' for if block");
    }
    std::size_t stop = 0;
    const BlockSignal nested = runNested(branch + 1, stop);
    if (unwinding()) return leaveWithNil();
    if (nested != BlockSignal::None) {
        signal_ = nested;
        return Flow::Leave;
    }
    return continueBehind(findMatchingEnd(lines_, index_ + 1));
}

BlockRun::Flow BlockRun::runWhile() {
    const std::size_t header = index_;
    const std::size_t end = findMatchingEnd(lines_, header + 1);
    Flow flow = Flow::Next;
    for (;;) {
        interpreter_.beginStatement(lines_[header]);
        const bool holds = evaluateCondition(lines_[header], "while");
        if (unwinding()) return leaveWithNil();
        if (!holds) return continueBehind(end);
        std::size_t stop = 0;
        const BlockSignal nested = runNested(header + 1, stop);
        if (!continuesAfterBody(nested, flow)) break;
        if (stop >= lines_.size() || lines_[stop].tokens.empty() ||
            lines_[stop].tokens[0] != "end") {
            interpreter_.throwError("Missing 'end' for while block", "end");
        }
    }
    return flow == Flow::Leave ? flow : continueBehind(end);
}

BlockRun::Flow BlockRun::runRepeat() {
    const std::size_t until = lines_[index_].matchingEnd;
    if (until == kNoLine || until >= lines_.size()) {
        throwPlainError("Missing 'until' for repeat block");
    }
    const std::size_t header = index_;
    Flow flow = Flow::Next;
    for (;;) {
        std::size_t stop = 0;
        const BlockSignal nested = runNested(header + 1, stop);
        if (!continuesAfterBody(nested, flow)) break;
        if (stop != until) {
            interpreter_.throwError("repeat block did not terminate at matching until", "until");
        }
        const ParsedScriptLine& line = lines_[until];
        interpreter_.beginStatement(line);
        if (line.tokens.empty() || line.tokens[0] != "until") {
            interpreter_.throwError("Missing until condition", "until");
        }
        const bool holds = evaluateCondition(line, "until");
        if (unwinding()) return leaveWithNil();
        if (holds) break;
    }
    return flow == Flow::Leave ? flow : continueBehind(until);
}

BlockRun::Flow BlockRun::runNumericFor(const ParsedScriptLine& line) {
    const std::size_t header = index_;
    const std::size_t end = findMatchingEnd(lines_, header + 1);
    NumericForRange range;
    if (!evaluateNumericForRangeByTokens(interpreter_, line, range)) return leaveWithNil();

    const LoopScopeGuard scope(interpreter_, 1);
    interpreter_.frameScopes.back().append(line.tokenAnalysis[1].name);
    Flow flow = Flow::Next;
    for (int counter = range.start;
         range.step > 0 ? counter <= range.limit : counter >= range.limit;
         counter = wrapAdd(counter, range.step)) {
        interpreter_.frameScopes.back()[0].value.setInt(counter);
        interpreter_.observeIteration(line);
        std::size_t stop = 0;
        const BlockSignal nested = runNested(header + 1, stop);
        if (!continuesAfterBody(nested, flow)) break;
    }
    return flow == Flow::Leave ? flow : continueBehind(end);
}

/// A generic loop under way.
struct BlockRun::GenericLoop {
    std::size_t header;
    std::size_t names;
    Flow flow = Flow::Next;
};

BlockRun::Flow BlockRun::runGenericFor(const ParsedScriptLine& line) {
    const std::size_t header = index_;
    const std::size_t end = findMatchingEnd(lines_, header + 1);
    const GenericForNames variables = readGenericForNamesByTokens(interpreter_, line);
    Variable container;
    const BuiltinId builtin = directIterator(line, variables.iterator, container);
    if (unwinding()) return leaveWithNil();
    if (builtin == BuiltinId::None) {
        std::size_t position = variables.iterator;
        container = interpreter_.evaluateExpression(line.tokens, position, &line.tokenAnalysis);
        if (unwinding()) return leaveWithNil();
        if (position < line.tokens.size()) {
            interpreter_.throwError("Unexpected token after for iterator", line.tokens[position]);
        }
        if (container.type != VarType::Array) {
            throwPlainError("generic for loops expect an array iterator");
        }
    }

    const LoopScopeGuard scope(interpreter_, variables.names.size());
    for (const Name name : variables.names) {
        interpreter_.frameScopes.back().append(name);
    }
    GenericLoop loop{header, variables.names.size()};
    if (builtin != BuiltinId::None) {
        walkBuiltin(loop, builtin, container);
    } else {
        const Shared<ArrayStorage> elements = container.asArray();
        for (std::size_t i = 0; i < elements->size(); ++i) {
            const Variable element = (*elements)[i];
            assignIterationElement(interpreter_.frameScopes.back(), loop.names, element);
            if (!runIteration(loop)) break;
        }
    }
    return loop.flow == Flow::Leave ? loop.flow : continueBehind(end);
}

/// `pairs` or `ipairs` if the iterator is a call of the native with one argument, whose value is
/// then in `container`.
BuiltinId BlockRun::directIterator(const ParsedScriptLine& line, std::size_t iterator,
                                   Variable& container) {
    if (iterator + 3 > line.tokens.size() || line.tokens[iterator + 1] != "(" ||
        !line.tokenAnalysis[iterator].isIdentifier) {
        return BuiltinId::None;
    }
    const Variable* value = interpreter_.resolveVariableFastPtr(line.tokenAnalysis[iterator]);
    if (value == nullptr || value->type != VarType::Function) return BuiltinId::None;
    const Shared<ScriptCallable> callable = value->asFunction();
    if (callable == nullptr || !callable->isNative ||
        (callable->name != "pairs" && callable->name != "ipairs")) {
        return BuiltinId::None;
    }
    std::size_t position = iterator + 2;
    container = interpreter_.evaluateExpression(line.tokens, position, &line.tokenAnalysis);
    if (position + 1 != line.tokens.size() || line.tokens[position] != ")") {
        return BuiltinId::None;
    }
    return callable->name == "pairs" ? BuiltinId::Pairs : BuiltinId::Ipairs;
}

BlockRun::Flow BlockRun::walkBuiltin(GenericLoop& loop, BuiltinId builtin,
                                     const Variable& container) {
    const auto runPair = [&](const Variable& key, const Variable& element) {
        assignIterationPair(interpreter_.frameScopes.back(), loop.names, key, element);
        return runIteration(loop);
    };
    if (container.type == VarType::Array) {
        const Shared<ArrayStorage> array = container.asArray();
        for (std::size_t i = 0; i < array->size(); ++i) {
            const Variable element = (*array)[i];
            if (!runPair(Variable::makeInt(static_cast<int>(i + 1)), element)) break;
        }
    } else if (container.type == VarType::Table && builtin == BuiltinId::Ipairs) {
        const Shared<TableStorage> table = container.asTable();
        const int length = interpreter_.numericTableLength(table);
        for (int i = 1; i <= length; ++i) {
            const Variable element = liveTableEntry(*table, intKeyText(i));
            if (!runPair(Variable::makeInt(i), element)) break;
        }
    } else if (container.type == VarType::Table) {
        const Shared<TableStorage> table = container.asTable();
        const auto snapshot = table->snapshot();
        for (std::size_t i = 0; i < snapshot->keys.size(); ++i) {
            const Variable element = liveTableEntry(*table, snapshot->keys[i]);
            if (!runPair(snapshot->keyValues[i], element)) break;
        }
    } else {
        throwPlainError(builtin == BuiltinId::Ipairs
                            ? "ipairs(container) expects an array or table"
                            : "pairs(container) expects an array or table");
    }
    return loop.flow;
}

bool BlockRun::runIteration(GenericLoop& loop) {
    interpreter_.observeIteration(lines_[loop.header]);
    std::size_t stop = 0;
    const BlockSignal nested = runNested(loop.header + 1, stop);
    return continuesAfterBody(nested, loop.flow);
}

BlockRun::Flow BlockRun::runFunctionDeclaration(const ParsedScriptLine& line) {
    const std::size_t header = index_;
    // The header is checked before the end is looked for.
    std::size_t end = header;
    declareFunction(interpreter_, line, NewBase::ByKey, [&](ScriptCallable& callable) {
        end = findMatchingEnd(lines_, header + 1);
        attachParsedBody(interpreter_, callable, lines_, header + 1, end);
    });
    if (unwinding()) return leaveWithNil();
    return continueBehind(end);
}

}  // namespace

Variable DovrelScript::executeParsedBlock(const std::vector<ParsedScriptLine>& lines,
                                          std::size_t& index, BlockSignal& signal) {
    return BlockRun(*this, lines, index, signal).run();
}
