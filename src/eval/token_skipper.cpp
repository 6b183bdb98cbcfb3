// The twin of the token-stream evaluator that steps over an expression: the same grammar, the same
// messages at the same places, but no look-ups, no calls and no arithmetic.
#include "eval/token_cursor.h"
#include "value/stack_end.h"

namespace {

class TokenSkipper : public TokenCursor {
public:
    using TokenCursor::TokenCursor;

    void skip(int level);

private:
    void skipOperand();
    void skipPrimary();
    void skipPostfix();
    void skipArrayLiteral();
    void skipTableLiteral();
};

void TokenSkipper::skip(int level) {
    requireHostStack();
    skipOperand();
    for (;;) {
        const int number = operatorAtLevel(level);
        if (number == kNoOperator) return;
        ++position_;
        skip(rightLevel(number));
    }
}

void TokenSkipper::skipOperand() {
    if (atEnd()) throwEndOfExpression();
    if (nextIsUnaryOperator()) {
        consume();
        skip(kUnaryLevel);
    } else if (consumeIf("not")) {
        if (notHasOperand()) skip(kUnaryLevel);
    } else {
        skipPrimary();
    }
}

void TokenSkipper::skipPrimary() {
    const std::size_t index = position_;
    const std::string& text = consume();
    if (text == "...") return;
    if (text == "{") {
        skipTableLiteral();
    } else if (text == "[") {
        skipArrayLiteral();
    } else if (text == "(") {
        skip(1);
        if (!nextIs(")")) interpreter_.throwError("Expected closing parenthesis", ")");
        consume();
    } else if (!isQuotedToken(text)) {
        TokenAnalysis scratch;
        const TokenAnalysis& known = analysisOf(index, scratch);
        if (known.isTrue || known.isFalse) return;
        if (!known.isIdentifier) {
            if (!known.isNumeric) interpreter_.throwError("Unknown token: " + text, text);
            return;
        }
    }
    skipPostfix();
}

void TokenSkipper::skipPostfix() {
    for (;;) {
        if (consumeIf("[")) {
            skip(1);
            if (!nextIs("]")) interpreter_.throwError("Expected closing bracket", "]");
            consume();
        } else if (consumeIf("(")) {
            if (consumeIf(")")) continue;
            do {
                skip(1);
            } while (consumeIf(","));
            expect(")", "Expected ',' or ')' after function argument");
        } else {
            return;
        }
    }
}

void TokenSkipper::skipArrayLiteral() {
    while (!consumeIf("]")) {
        skip(1);
        if (consumeIf(",")) continue;
        expect("]", "Expected ',' or ']' in array literal");
        return;
    }
}

void TokenSkipper::skipTableLiteral() {
    if (consumeIf("}")) return;
    do {
        if (atEnd()) interpreter_.throwError("Unexpected end of table literal", "EOF");
        if (nextIs("}")) break;
        if (consumeIf("[")) {
            skip(1);
            expect("]", "Expected ']' after table key");
            if (!nextIs(":") && !nextIs("=")) throwNear("Expected ':' after table key", ":");
            consume();
        } else if (nextIsNameKey()) {
            consume();
            consume();
        }
        skip(1);
    } while (consumeIf(","));
    expect("}", "Expected ',' or '}' in table literal");
}

}  // namespace

void DovrelScript::skipExpression(const std::vector<std::string>& tokens, std::size_t& pos,
                                  int level, const std::vector<TokenAnalysis>* analysis) {
    TokenSkipper(*this, tokens, pos, analysis).skip(level);
}
