#include "dovrel/token_spacing.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "frontend/character_class.h"
#include "frontend/operator_table.h"

namespace {

bool isWordOperator(std::string_view token) {
    return token == "and" || token == "or" || token == "not";
}

/// A word of the statement, in front of an expression: `if`, `return` and their like as the first
/// word, `in` of a `for` line.
bool isStatementWord(const ParsedScriptLine& line, std::size_t index) {
    const std::string& token = line.tokens[index];
    if (line.kind == LineKind::For && token == "in") {
        const auto first = std::find(line.tokens.begin(), line.tokens.end(), "in");
        return static_cast<std::size_t>(first - line.tokens.begin()) == index;
    }
    if (index != 0) return false;
    switch (line.kind) {
        case LineKind::If:
        case LineKind::ElseIf:
        case LineKind::While:
        case LineKind::Until:
        case LineKind::For:
        case LineKind::Return: return true;
        default: return false;
    }
}

bool isOneOf(std::string_view token, std::string_view characters) {
    return token.size() == 1 && characters.find(token[0]) != std::string_view::npos;
}

/// The token is an operator in front of its operand, which it touches.
bool isPrefix(const ParsedScriptLine& line, std::size_t index) {
    const std::string& token = line.tokens[index];
    if (isOneOf(token, "!#")) return true;
    return isOneOf(token, "+-") && (index == 0 || !endsOperand(line, index - 1));
}

/// Without a blank the two would be read as other tokens.
bool wouldMerge(std::string_view left, std::string_view right) {
    const auto isWord = [](char c) {
        return !hasClass(
            c, kSpaceCharacter | kOperatorCharacter | kPunctuationCharacter | kQuoteCharacter);
    };
    if (isWord(left.back()) && isWord(right.front())) return true;
    return hasClass(left.back(), kOperatorCharacter | kPairCharacter) && left.size() == 1 &&
           right.front() == '=';
}

}  // namespace

bool endsOperand(const ParsedScriptLine& line, std::size_t index) {
    const std::string& token = line.tokens[index];
    if (isOneOf(token, ")]}") || isQuotedToken(token)) return true;
    // In front of a binary operator, "+" and "-" included, `not` is the absent value.
    if (token == "not") {
        return index + 1 >= line.tokens.size() || isStandaloneNotBoundary(line.tokens[index + 1]);
    }
    if (isWordOperator(token) || isStatementWord(line, index)) return false;
    return !hasClass(token.back(), kOperatorCharacter | kPunctuationCharacter) &&
           classifyBinaryOperator(token) == kNoOperator;
}

bool wantsBlankBefore(const ParsedScriptLine& line, std::size_t index) {
    const std::string& left = line.tokens[index - 1];
    const std::string& right = line.tokens[index];
    if (wouldMerge(left, right)) return true;
    if (isOneOf(left, "([{") || isOneOf(right, ")]},;:")) return false;
    if (isPrefix(line, index - 1)) return false;
    if (isOneOf(right, "([")) return !endsOperand(line, index - 1);
    return true;
}
