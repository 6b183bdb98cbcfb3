// What the token-stream evaluator and skipper share: a position in a line's tokens.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/operator_table.h"
#include "frontend/token_analysis.h"
#include "interpreter/dovrel_script.h"

/// Walks over tokens. Each token that `consume` passes becomes the interpreter's last token before
/// anything can fail, which is how an error deep in a call still names a token. Binary operators
/// are passed silently.
class TokenCursor {
public:
    TokenCursor(DovrelScript& interpreter, const std::vector<std::string>& tokens,
                std::size_t& position, const std::vector<TokenAnalysis>* analysis)
        : interpreter_(interpreter), tokens_(tokens), position_(position), analysis_(analysis) {}

    /// Passes over tokens of length zero; raises "Unexpected end of expression" if none is left.
    void skipToExpression() {
        while (!atEnd() && token().empty()) ++position_;
        if (atEnd()) throwEndOfExpression();
    }

protected:
    [[nodiscard]] bool atEnd() const { return position_ >= tokens_.size(); }
    [[nodiscard]] const std::string& token() const { return tokens_[position_]; }
    /// `text` is not empty. Nearly every token asked about differs in its first character.
    [[nodiscard]] bool nextIs(std::string_view text) const {
        return !atEnd() && token().size() == text.size() && token()[0] == text[0] &&
               token() == text;
    }
    [[nodiscard]] bool tokenIs(std::size_t index, std::string_view text) const {
        return index < tokens_.size() && tokens_[index] == text;
    }
    /// The next token and ":" or "=" behind it: a table entry with a name key.
    [[nodiscard]] bool nextIsNameKey() const {
        return tokenIs(position_ + 1, ":") || tokenIs(position_ + 1, "=");
    }
    [[nodiscard]] bool nextIsUnaryOperator() const {
        return token().size() == 1 &&
               std::string_view("#+-!").find(token()[0]) != std::string_view::npos;
    }
    /// A "not" in front of the next token is the logical operator.
    [[nodiscard]] bool notHasOperand() const {
        return !atEnd() && !isStandaloneNotBoundary(token());
    }

    const std::string& consume() {
        interpreter_.lastToken = tokens_[position_];
        interpreter_.lastTokenIndex = position_;
        return tokens_[position_++];
    }
    bool consumeIf(std::string_view text) {
        if (!nextIs(text)) return false;
        consume();
        return true;
    }
    /// Consumes `text` or raises `message` near the token there, or near `text` at the end.
    void expect(std::string_view text, const char* message) {
        if (!consumeIf(text)) throwNear(message, text);
    }
    /// Raises `message` near the next token, or near `fallback` at the end of the tokens.
    [[noreturn]] void throwNear(const std::string& message, std::string_view fallback) {
        interpreter_.throwError(message, atEnd() ? fallback : std::string_view(token()));
    }
    [[noreturn]] void throwEndOfExpression() {
        interpreter_.throwError("Unexpected end of expression", "EOF");
    }
    /// The operator number of the next token if it binds at least as tight as `level`, else
    /// kNoOperator.
    [[nodiscard]] int operatorAtLevel(int level) const {
        if (atEnd()) return kNoOperator;
        const int number = classifyBinaryOperator(token());
        return kPrecedence[static_cast<std::size_t>(number)] < level ? kNoOperator : number;
    }
    /// The analysis of the token at `index`: the line's, with its cache, or one made on the spot
    /// in `scratch`.
    [[nodiscard]] const TokenAnalysis& analysisOf(std::size_t index, TokenAnalysis& scratch) {
        if (analysis_ != nullptr && index < analysis_->size()) return (*analysis_)[index];
        scratch = interpreter_.analyseToken(tokens_[index]);
        return scratch;
    }

    DovrelScript& interpreter_;
    const std::vector<std::string>& tokens_;
    std::size_t& position_;
    const std::vector<TokenAnalysis>* analysis_;
};
