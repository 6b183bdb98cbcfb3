#include "frontend/token_analysis.h"

#include <algorithm>

#include "interpreter/dovrel_script.h"
#include "value/numbers.h"

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isIdentifierStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$';
}

/// An optional sign, then digits with at most one "." among them and at least one digit. An
/// exponent makes no number.
bool hasNumericForm(std::string_view token) {
    if (!token.empty() && (token[0] == '+' || token[0] == '-')) token.remove_prefix(1);
    const auto digits = std::count_if(token.begin(), token.end(), isDigit);
    const auto points = std::count(token.begin(), token.end(), '.');
    return digits > 0 && points <= 1 && static_cast<std::size_t>(digits + points) == token.size();
}

}  // namespace

bool isIdentifier(std::string_view token) {
    return !token.empty() && isIdentifierStart(token[0]) &&
           std::all_of(token.begin() + 1, token.end(),
                       [](char c) { return isIdentifierStart(c) || isDigit(c); });
}

bool isTrueToken(std::string_view token) {
    return token == "true" || token == "ture" || token == "tre" || token == "tue";
}

bool isFalseToken(std::string_view token) {
    return token == "false" || token == "flase" || token == "fasle" || token == "flse";
}

bool isQuotedToken(std::string_view token) {
    return token.size() >= 2 && (token.front() == '"' || token.front() == '\'') &&
           token.back() == token.front();
}

std::string decodeStringToken(const std::string& token) {
    if (!isQuotedToken(token)) return token;
    const std::string_view inner = std::string_view(token).substr(1, token.size() - 2);
    std::string text;
    text.reserve(inner.size());
    for (std::size_t i = 0; i < inner.size(); ++i) {
        if (inner[i] != '\\' || i + 1 == inner.size()) {
            text += inner[i];
            continue;
        }
        const char escaped = inner[++i];
        switch (escaped) {
            case 'n': text += '\n'; break;
            case 'r': text += '\r'; break;
            case 't': text += '\t'; break;
            default: text += escaped; break;
        }
    }
    return text;
}

TokenAnalysis DovrelScript::analyseToken(const std::string& token) {
    TokenAnalysis analysis;
    analysis.isTrue = isTrueToken(token);
    analysis.isFalse = isFalseToken(token);
    analysis.isIdentifier = isIdentifier(token);
    if (analysis.isIdentifier) analysis.name = names.intern(token);
    analysis.isNumeric = hasNumericForm(token);
    if (analysis.isNumeric) {
        analysis.isFloat = token.find('.') != std::string::npos;
        // A whole number beyond 32 bits has no int value; the evaluators make it a float.
        analysis.hasIntValue = !analysis.isFloat && parseIntStrict(token, analysis.intValue);
        if (!analysis.hasIntValue) analysis.intValue = 0;
    }
    return analysis;
}
