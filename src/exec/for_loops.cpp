// The numeric `for`. The loop variable lives in a frame scope of its own, pushed for the whole
// loop, so that the body's chunk can still run inline.
#include <string>
#include <string_view>

#include "eval/errors.h"
#include "exec/chunk_run.h"
#include "exec/for_header.h"
#include "value/numbers.h"

const ParsedForHeader& forHeaderOf(const ParsedScriptLine& line) {
    static const ParsedForHeader kNoHeader;
    return line.forHeader != nullptr ? *line.forHeader : kNoHeader;
}

Name loopVariableName(const ParsedScriptLine& line, std::size_t token) {
    if (token >= line.tokenAnalysis.size() || line.tokenAnalysis[token].name == nullptr) {
        throwPlainError("Compiled generic-for variable index out of range");
    }
    return line.tokenAnalysis[token].name;
}

namespace {

/// One evaluation of a numeric clause.
class NumericForEvaluation {
public:
    NumericForEvaluation(DovrelScript& interpreter, const ParsedScriptLine& line)
        : interpreter_(interpreter), line_(line), header_(forHeaderOf(line)) {}

    [[nodiscard]] bool evaluate(NumericForRange& range);
    [[nodiscard]] bool evaluateByTokens(NumericForRange& range);

private:
    [[nodiscard]] bool evaluateTokens(Variable& start, Variable& limit, Variable& step);
    static void convert(NumericForRange& range, const Variable& start, const Variable& limit,
                        const Variable& step);
    [[nodiscard]] bool tryInts(NumericForRange& range);
    [[nodiscard]] bool tryInt(const FastExpression& expression, int& out) {
        return interpreter_.tryEvaluateFastExpressionIntNode(expression, expression.root,
                                                             line_.tokenAnalysis, out);
    }
    [[nodiscard]] Variable compiled(const FastExpression& expression) {
        return interpreter_.evaluateFastExpression(expression, line_.tokenAnalysis);
    }
    [[nodiscard]] Variable byTokens(std::size_t& position) {
        return interpreter_.evaluateExpression(line_.tokens, position, &line_.tokenAnalysis);
    }
    [[nodiscard]] bool tokenIs(std::size_t index, std::string_view text) const {
        return index < line_.tokens.size() && line_.tokens[index] == text;
    }
    [[nodiscard]] bool unwinding() const { return interpreter_.softErrorUnwinding(); }

    DovrelScript& interpreter_;
    const ParsedScriptLine& line_;
    const ParsedForHeader& header_;
};

bool NumericForEvaluation::evaluate(NumericForRange& range) {
    if (tryInts(range)) return true;
    if (unwinding()) return false;
    Variable start;
    Variable limit;
    Variable step = Variable::makeInt(1);
    if (header_.numericStart.valid && header_.numericLimit.valid) {
        start = compiled(header_.numericStart);
        if (unwinding()) return false;
        limit = compiled(header_.numericLimit);
        if (unwinding()) return false;
        if (header_.hasNumericStep) {
            step = header_.numericStep.valid ? compiled(header_.numericStep) : Variable();
            if (unwinding()) return false;
        }
    } else if (!evaluateTokens(start, limit, step)) {
        return false;
    }
    convert(range, start, limit, step);
    return true;
}

bool NumericForEvaluation::evaluateByTokens(NumericForRange& range) {
    Variable start;
    Variable limit;
    Variable step = Variable::makeInt(1);
    if (!evaluateTokens(start, limit, step)) return false;
    convert(range, start, limit, step);
    return true;
}

void NumericForEvaluation::convert(NumericForRange& range, const Variable& start,
                                   const Variable& limit, const Variable& step) {
    range.start = toInt(start);
    range.limit = toInt(limit);
    range.step = toInt(step);
    if (range.step == 0) throwPlainError("for loop step must not be 0");
}

bool NumericForEvaluation::tryInts(NumericForRange& range) {
    if (!header_.numericStart.valid || !header_.numericLimit.valid) return false;
    if (!tryInt(header_.numericStart, range.start) || !tryInt(header_.numericLimit, range.limit)) {
        return false;
    }
    range.step = 1;
    if (!header_.hasNumericStep) return true;
    if (!header_.numericStep.valid || !tryInt(header_.numericStep, range.step)) return false;
    if (range.step == 0) throwPlainError("for loop step must not be 0");
    return true;
}

bool NumericForEvaluation::evaluateTokens(Variable& start, Variable& limit, Variable& step) {
    std::size_t position = 3;
    start = byTokens(position);
    if (unwinding()) return false;
    if (!tokenIs(position, ",")) {
        interpreter_.throwError("Expected ',' after for start value",
                                position < line_.tokens.size() ? line_.tokens[position] : ",");
    }
    limit = byTokens(++position);
    if (unwinding()) return false;
    if (tokenIs(position, ",")) {
        step = byTokens(++position);
        if (unwinding()) return false;
    }
    if (position < line_.tokens.size()) {
        interpreter_.throwError("Unexpected token after for clause", line_.tokens[position]);
    }
    return true;
}

}  // namespace

bool evaluateNumericForRange(DovrelScript& interpreter, const ParsedScriptLine& line,
                             NumericForRange& range) {
    return NumericForEvaluation(interpreter, line).evaluate(range);
}

bool evaluateNumericForRangeByTokens(DovrelScript& interpreter, const ParsedScriptLine& line,
                                     NumericForRange& range) {
    return NumericForEvaluation(interpreter, line).evaluateByTokens(range);
}

ChunkRun::Flow ChunkRun::runNumericFor(std::uint32_t index, BlockSignal& signal, Mode mode) {
    if (index >= program_->numericFors.size()) {
        throwPlainError(mode == Mode::Inline ? "Inline bytecode numeric-for index out of range"
                                             : "Bytecode numeric-for index out of range");
    }
    const BytecodeForLoop loop = program_->numericFors[index];
    const ParsedScriptLine& line = beginStatement(loop.headerLine);
    NumericForRange range;
    if (!evaluateNumericForRange(interpreter_, line, range)) return leaveWithNil();

    const LoopScopeGuard scope(interpreter_, 1);
    interpreter_.frameScopes.back().append(
        loopVariableName(line, forHeaderOf(line).numericVariable), Variable::makeInt(range.start));
    // Behind the clause: a call in it may have left a scope, if the program is a damaged file.
    const bool isInline = mode == Mode::Inline || canRunInline(loop.bodyChunk);
    const bool upward = range.step >= 1;
    if (upward ? range.start > range.limit : range.start < range.limit) return Flow::Next;

    BlockSignal nested = BlockSignal::None;
    Flow flow = Flow::Next;
    int counter = range.start;
    do {
        // Only the int alternative is written, never the kind: kept. A body that has put another
        // alternative there fails here; one that assigned nil goes on and still reads nil.
        interpreter_.frameScopes.back()[0].value.replaceInt(counter);
        interpreter_.observeIteration(line);
        runBody(loop.bodyChunk, isInline, nested);
        if (!continuesAfterBody(nested, signal, flow)) return flow;
        counter = wrapAdd(counter, range.step);
    } while (upward ? counter <= range.limit : counter >= range.limit);
    return Flow::Next;
}
