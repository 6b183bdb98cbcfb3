#include "frontend/token_analysis.h"

#include <algorithm>

#include "frontend/character_class.h"
#include "interpreter/dovrel_script.h"
#include "value/numbers.h"

namespace {

/// An optional sign, then digits with at most one "." among them and at least one digit. An
/// exponent makes no number.
bool hasNumericForm(std::string_view token) {
    if (token[0] == '+' || token[0] == '-') token.remove_prefix(1);
    std::size_t digits = 0;
    std::size_t points = 0;
    for (const char c : token) {
        if (hasClass(c, kDigitCharacter)) {
            ++digits;
        } else if (c != '.' || ++points > 1) {
            return false;
        }
    }
    return digits > 0;
}

}  // namespace

bool isIdentifier(std::string_view token) {
    return !token.empty() && hasClass(token[0], kIdentifierStart) &&
           std::all_of(token.begin() + 1, token.end(),
                       [](char c) { return hasClass(c, kIdentifierStart | kDigitCharacter); });
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

void DovrelScript::analyseIdentifier(std::string_view token, TokenAnalysis& analysis) {
    analysis.isIdentifier = true;
    analysis.isTrue = token[0] == 't' && isTrueToken(token);
    analysis.isFalse = token[0] == 'f' && isFalseToken(token);
    analysis.name = names.intern(token);
}

TokenAnalysis DovrelScript::analyseToken(std::string_view token) {
    TokenAnalysis analysis;
    if (token.empty()) return analysis;
    // The first character tells which of the forms to look for.
    if (hasClass(token[0], kIdentifierStart)) {
        analysis.isIdentifier = isIdentifier(token);
        if (!analysis.isIdentifier) return analysis;
        analyseIdentifier(token, analysis);
        return analysis;
    }
    analysis.isNumeric = hasNumericForm(token);
    if (analysis.isNumeric) {
        analysis.isFloat = token.find('.') != std::string_view::npos;
        // A whole number beyond 32 bits has no int value; the evaluators make it a float.
        analysis.hasIntValue = !analysis.isFloat && parseIntStrict(token, analysis.intValue);
        if (!analysis.hasIntValue) analysis.intValue = 0;
    }
    return analysis;
}
