// The token-stream evaluator: the complete expression language, by precedence climbing over a
// line's tokens. Everything that the expression compiler refuses ends here, so it defines the
// language and the fast tiers must agree with it. It allocates freely: the statements try the
// compiled form first.
//
// When a soft error is unwinding after an operand or a call, evaluation returns nil at once, before
// the operator, index or call around it is applied.
#include <string>
#include <utility>
#include <vector>

#include "eval/binary_operation.h"
#include "eval/token_cursor.h"
#include "value/numbers.h"
#include "value/stack_end.h"
#include "value/text.h"

namespace {

class TokenEvaluator : public TokenCursor {
public:
    using TokenCursor::TokenCursor;

    Variable evaluate(int level);

private:
    Variable evaluateOperand();
    Variable evaluateUnary();
    Variable evaluateNegation(const Variable& operand);
    Variable evaluatePrimary();
    Variable evaluateWord(std::size_t index);
    Variable evaluatePostfix(Variable value);
    Variable evaluateCall(const Variable& callee);
    Variable evaluateArrayLiteral();
    Variable evaluateTableLiteral();
    /// Steps over the side of "and" or "or" that does not count.
    void skipOperand(int level) {
        skipToExpression();
        interpreter_.skipExpression(tokens_, position_, level, analysis_);
    }
    [[nodiscard]] bool unwinding() const { return interpreter_.softErrorUnwinding(); }
};

Variable TokenEvaluator::evaluate(int level) {
    requireHostStack();
    Variable left = evaluateOperand();
    for (;;) {
        if (unwinding()) return {};
        const int number = operatorAtLevel(level);
        if (number == kNoOperator) return left;
        ++position_;
        if (number == kOr || number == kAnd) {
            // The result is one of the operands, not a truth value.
            if (isTruthy(left) == (number == kAnd)) {
                left = evaluate(rightLevel(number));
            } else {
                skipOperand(rightLevel(number));
            }
            continue;
        }
        const Variable right = evaluate(rightLevel(number));
        if (unwinding()) return {};
        if (number == kAdd && left.type == VarType::String) {
            // A chain grows one text, where a new one for each "+" would take the square of its
            // length.
            appendToString(left, right);
            continue;
        }
        left = applyBinaryOperator(number, left, right);
    }
}

Variable TokenEvaluator::evaluateOperand() {
    if (atEnd()) throwEndOfExpression();
    if (nextIsUnaryOperator()) return evaluateUnary();
    if (nextIs("not")) {
        consume();
        // Alone, "not" is the absent value.
        if (!notHasOperand()) return {};
        const Variable operand = evaluate(kUnaryLevel);
        if (unwinding()) return {};
        return Variable::makeBool(!isTruthy(operand));
    }
    return evaluatePrimary();
}

Variable TokenEvaluator::evaluateUnary() {
    const char operation = consume()[0];
    Variable operand = evaluate(kUnaryLevel);
    if (unwinding()) return {};
    switch (operation) {
        case '-': return evaluateNegation(operand);
        case '!': return Variable::makeBool(!isTruthy(operand));
        case '#': return Variable::makeInt(interpreter_.arrayLength(operand));
        default: return operand;
    }
}

Variable TokenEvaluator::evaluateNegation(const Variable& operand) {
    switch (operand.type) {
        case VarType::Int:
        case VarType::Bool: return Variable::makeInt(wrapNegate(toInt(operand)));
        case VarType::Float: return Variable::makeFloat(-operand.asFloat());
        default: interpreter_.throwError("Unary '-' requires a numeric value", "-");
    }
}

Variable TokenEvaluator::evaluatePrimary() {
    const std::size_t index = position_;
    const std::string& text = consume();
    const char first = text.size() == 1 ? text[0] : '\0';
    if (first == '{') return evaluatePostfix(evaluateTableLiteral());
    if (first == '[') return evaluatePostfix(evaluateArrayLiteral());
    if (first == '(') {
        Variable value = evaluate(1);
        if (unwinding()) return {};
        if (!nextIs(")")) interpreter_.throwError("Expected closing parenthesis", ")");
        consume();
        return evaluatePostfix(std::move(value));
    }
    if (text == "...") {
        const auto& varargs = interpreter_.varargStack;
        return varargs.empty() ? Variable()
                               : Variable::makeMulti(std::vector<Variable>(varargs.back()));
    }
    if (isQuotedToken(text)) return evaluatePostfix(Variable(decodeStringToken(text)));
    return evaluateWord(index);
}

Variable TokenEvaluator::evaluateWord(std::size_t index) {
    TokenAnalysis scratch;
    const TokenAnalysis& known = analysisOf(index, scratch);
    if (known.isTrue || known.isFalse) return Variable::makeBool(known.isTrue);
    if (known.isIdentifier) {
        // An unknown name is nil, not an error.
        const Variable* found = interpreter_.lookUpVariable(known);
        return evaluatePostfix(found != nullptr ? *found : Variable());
    }
    const std::string& text = tokens_[index];
    if (known.isNumeric) {
        if (known.hasIntValue) return Variable::makeInt(known.intValue);
        float number = 0.0F;
        if (!parseFloatStrict(text, number)) {
            interpreter_.throwError("Invalid numeric format", text);
        }
        return Variable::makeFloat(number);
    }
    interpreter_.throwError("Unknown token: " + text, text);
}

Variable TokenEvaluator::evaluatePostfix(Variable value) {
    for (;;) {
        if (unwinding()) return {};
        if (consumeIf("[")) {
            const Variable key = evaluate(1);
            if (unwinding()) return {};
            if (!nextIs("]")) interpreter_.throwError("Expected closing bracket", "]");
            consume();
            interpreter_.observeElement(value, key);
            value = interpreter_.getIndexedValue(value, key);
        } else if (consumeIf("(")) {
            value = evaluateCall(value);
        } else {
            return value;
        }
    }
}

Variable TokenEvaluator::evaluateCall(const Variable& callee) {
    std::vector<Variable> arguments;
    if (!consumeIf(")")) {
        arguments.reserve(4);  // most calls have no more
        do {
            arguments.push_back(evaluate(1));
            if (unwinding()) return {};
        } while (consumeIf(","));
        expect(")", "Expected ',' or ')' after function argument");
    }
    return interpreter_.invokeCallableFast(callee, Arguments(arguments));
}

Variable TokenEvaluator::evaluateArrayLiteral() {
    ArrayStorage elements;
    while (!consumeIf("]")) {
        elements.push_back(evaluate(1));
        if (unwinding()) return {};
        if (consumeIf(",")) continue;
        expect("]", "Expected ',' or ']' in array literal");
        break;
    }
    return Variable::makeArray(std::move(elements));
}

/// Collects the entries of a table literal. Without a keyed entry the literal is an array.
class LiteralEntries {
public:
    void addPositional(Variable value) {
        if (hasKeys_) keyed_[std::to_string(positional_.size() + 1)] = value;
        positional_.push_back(std::move(value));
    }
    /// From the first keyed entry on, positional values have their positions as keys.
    void promote() {
        if (hasKeys_) return;
        hasKeys_ = true;
        for (std::size_t i = 0; i < positional_.size(); ++i) {
            keyed_[std::to_string(i + 1)] = positional_[i];
        }
    }
    void addKeyed(const std::string& key, Variable value) { keyed_[key] = std::move(value); }
    Variable finish() {
        return hasKeys_ ? Variable::makeTable(std::move(keyed_))
                        : Variable::makeArray(std::move(positional_));
    }

private:
    ArrayStorage positional_;
    TableStorage keyed_;
    bool hasKeys_ = false;
};

Variable TokenEvaluator::evaluateTableLiteral() {
    if (consumeIf("}")) return Variable::makeTable();
    LiteralEntries entries;
    do {
        if (atEnd()) interpreter_.throwError("Unexpected end of table literal", "EOF");
        if (nextIs("}")) break;  // behind a trailing comma
        if (consumeIf("[")) {
            const Variable key = evaluate(1);
            if (unwinding()) return {};
            expect("]", "Expected ']' after table key");
            if (!nextIs(":") && !nextIs("=")) throwNear("Expected ':' after table key", ":");
            consume();
            entries.promote();
            Variable value = evaluate(1);
            if (unwinding()) return {};
            entries.addKeyed(keyToString(key), std::move(value));
        } else if (nextIsNameKey()) {
            TokenAnalysis scratch;
            const TokenAnalysis& known = analysisOf(position_, scratch);
            const std::string& word = consume();
            if (!isQuotedToken(word) && !known.isIdentifier && !known.isNumeric) {
                interpreter_.throwError("Invalid table key", word);
            }
            consume();
            entries.promote();
            Variable value = evaluate(1);
            if (unwinding()) return {};
            entries.addKeyed(decodeStringToken(word), std::move(value));
        } else {
            entries.addPositional(evaluate(1));
            if (unwinding()) return {};
        }
    } while (consumeIf(","));
    expect("}", "Expected ',' or '}' in table literal");
    return entries.finish();
}

}  // namespace

Variable DovrelScript::evaluateExpression(const std::vector<std::string>& tokens, std::size_t& pos,
                                          const std::vector<TokenAnalysis>* analysis) {
    TokenEvaluator evaluator(*this, tokens, pos, analysis);
    evaluator.skipToExpression();
    return evaluator.evaluate(1);
}
