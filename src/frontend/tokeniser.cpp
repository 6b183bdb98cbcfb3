// Cutting one logical line into token texts.
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Characters that form a token alone or together with a following "=".
bool isOperatorCharacter(char c) {
    return std::string_view("!%*+-/<=>\\^").find(c) != std::string_view::npos;
}

/// Characters that always form a token alone.
bool isPunctuation(char c) {
    return std::string_view("#(),:;[]{}").find(c) != std::string_view::npos;
}

/// The length of the operator or punctuation token at `at`, or 0 where a word stands. A third
/// character is never joined.
std::size_t symbolLength(std::string_view text, std::size_t at) {
    const char c = text[at];
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    if (isOperatorCharacter(c)) return next == '=' ? 2 : 1;
    if (isPunctuation(c)) return 1;
    // Alone these three are word characters.
    if ((c == '&' || c == '|') && next == c) return 2;
    if (c == '~' && next == '=') return 2;
    return 0;
}

/// The index of the quote that closes the string opened at `open`, or kNone.
std::size_t findClosingQuote(std::string_view text, std::size_t open) {
    bool escaped = false;
    for (std::size_t i = open + 1; i < text.size(); ++i) {
        if (escaped) {
            escaped = false;
        } else if (text[i] == text[open]) {
            return i;
        } else {
            escaped = text[i] == '\\';
        }
    }
    return kNone;
}

}  // namespace

std::vector<std::string> DovrelScript::tokenise(const std::string& source) {
    std::vector<std::string> tokens;
    tokens.reserve(source.size() / 2 + 8);
    std::size_t wordStart = kNone;
    const auto flushWord = [&](std::size_t end) {
        if (wordStart == kNone) return;
        tokens.emplace_back(source, wordStart, end - wordStart);
        wordStart = kNone;
    };

    std::size_t i = 0;
    while (i < source.size()) {
        const char c = source[i];
        if (c == '@' && i + 1 < source.size() && source[i + 1] == '@') break;  // comment
        if (c == '"' || c == '\'') {
            flushWord(i);
            const std::size_t close = findClosingQuote(source, i);
            if (close == kNone) {
                throwError("Unterminated string literal", std::string_view(source).substr(i));
            }
            tokens.emplace_back(source, i, close - i + 1);
            i = close + 1;
        } else if (isSpace(c)) {
            flushWord(i++);
        } else if (const std::size_t length = symbolLength(source, i); length != 0) {
            flushWord(i);
            tokens.emplace_back(source, i, length);
            i += length;
        } else {
            if (wordStart == kNone) wordStart = i;
            ++i;
        }
    }
    flushWord(i);
    tokens.shrink_to_fit();
    return tokens;
}
