// Conditions and return values: what the executors share of a line's expressions.
#include <string>
#include <utility>
#include <vector>

#include "interpreter/dovrel_script.h"

bool DovrelScript::evaluateCondition(const ParsedScriptLine& line, std::string_view word,
                                     ConditionTiers tiers) {
    const FastExpression& condition = line.condition;
    if (!condition.valid) {
        std::size_t position = 1;
        const Variable value = evaluateExpression(line.tokens, position, &line.tokenAnalysis);
        if (softErrorUnwinding()) return false;
        if (position < line.tokens.size()) {
            throwError("Unexpected token after " + std::string(word) + " condition",
                       line.tokens[position]);
        }
        return isTruthy(value);
    }
    bool truth = false;
    if (tiers == ConditionTiers::BoolFirst &&
        tryEvaluateFastExpressionBoolNode(condition, condition.root, line.tokenAnalysis, truth)) {
        return truth;
    }
    // The rule of truth is that of the tier that decides: a plain 0 is false here, true below.
    if (tryScalarTruth(condition, condition.root, line.tokenAnalysis, truth)) return truth;
    if (softErrorUnwinding()) return false;
    if (const Variable* value = variableInPlace(condition, condition.root, line.tokenAnalysis)) {
        return isTruthy(*value);
    }
    return isTruthy(evaluateFastExpression(condition, line.tokenAnalysis));
}

Variable DovrelScript::evaluateReturnValues(const ParsedScriptLine& line) {
    if (line.tokens.size() < 2) return {};
    if (line.returnValues.size() == 1 && line.returnValues[0].valid) {
        return evaluateFastExpression(line.returnValues[0], line.tokenAnalysis);
    }
    std::vector<Variable> values;
    if (line.hasCompiledReturnValues()) {
        values.reserve(line.returnValues.size());
        for (const FastExpression& expression : line.returnValues) {
            values.push_back(evaluateFastExpression(expression, line.tokenAnalysis));
            if (softErrorUnwinding()) return {};
        }
    } else {
        std::size_t position = 1;
        for (;;) {
            values.push_back(evaluateExpression(line.tokens, position, &line.tokenAnalysis));
            if (softErrorUnwinding()) return {};
            if (position >= line.tokens.size()) break;
            if (line.tokens[position] != ",") {
                throwError("Unexpected token after return value", line.tokens[position]);
            }
            if (++position >= line.tokens.size()) break;  // a comma at the very end
        }
    }
    if (values.size() == 1) return std::move(values[0]);
    return Variable::makeMulti(std::move(values));
}
