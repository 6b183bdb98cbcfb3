// Cutting one logical line into token texts.
#include "frontend/tokeniser.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/character_class.h"
#include "interpreter/dovrel_script.h"

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

/// A number of so many digits is an int.
constexpr std::size_t kSafeDigits = 9;

/// Whatever is no part of a word, wherever it stands.
constexpr unsigned kNoWord =
    kSpaceCharacter | kOperatorCharacter | kPunctuationCharacter | kQuoteCharacter;

/// The length of the operator or punctuation token at `at`, or 0 where a word stands. A third
/// character is never joined.
std::size_t symbolLength(std::string_view text, std::size_t at) {
    const char c = text[at];
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    if (hasClass(c, kPunctuationCharacter)) return 1;
    if (hasClass(c, kOperatorCharacter)) return next == '=' ? 2 : 1;
    // Alone these three are word characters.
    if ((c == '&' || c == '|') && next == c) return 2;
    if (c == '~' && next == '=') return 2;
    return 0;
}

/// A comment begins at `at`.
bool startsComment(std::string_view text, std::size_t at) {
    return text[at] == '@' && at + 1 < text.size() && text[at + 1] == '@';
}

/// The end of the word at `at`, which holds one character at least.
std::size_t findWordEnd(std::string_view text, std::size_t at) {
    for (++at; at < text.size(); ++at) {
        if (!hasClass(text[at], kNoWord | kPairCharacter)) continue;
        if (hasClass(text[at], kNoWord)) break;
        if (symbolLength(text, at) != 0 || startsComment(text, at)) break;
    }
    return at;
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

bool nextToken(std::string_view text, std::size_t& at, std::string_view& token) {
    while (at < text.size() && hasClass(text[at], kSpaceCharacter)) ++at;
    if (at == text.size() || startsComment(text, at)) return false;
    std::size_t end = at;
    if (hasClass(text[at], kQuoteCharacter)) {
        const std::size_t close = findClosingQuote(text, at);
        if (close == kNone) return false;
        end = close + 1;
    } else if (const std::size_t length = symbolLength(text, at); length != 0) {
        end = at + length;
    } else {
        end = findWordEnd(text, at);
    }
    token = text.substr(at, end - at);
    at = end;
    return true;
}

void DovrelScript::readTokens(std::string_view text, std::vector<TokenAnalysis>& analysis) {
    tokenTexts.clear();
    analysis.clear();
    std::size_t at = 0;
    const auto characters = [&](std::size_t end, unsigned properties) {
        while (end < text.size() && hasClass(text[end], properties)) ++end;
        return end;
    };
    // A character that may be part of a word needs a closer look.
    const auto endsHere = [&](std::size_t end) {
        return end == text.size() || hasClass(text[end], kNoWord);
    };
    while (at < text.size()) {
        const char c = text[at];
        if (hasClass(c, kSpaceCharacter)) {
            ++at;
            continue;
        }
        // The forms of nearly all tokens, told apart by their first character.
        if (hasClass(c, kIdentifierStart)) {
            const std::size_t end = characters(at + 1, kIdentifierStart | kDigitCharacter);
            if (endsHere(end)) {
                const std::string_view token = text.substr(at, end - at);
                tokenTexts.push_back(token);
                analyseIdentifier(token, analysis.emplace_back());
                at = end;
                continue;
            }
        } else if (hasClass(c, kOperatorCharacter | kPunctuationCharacter)) {
            const std::size_t length = symbolLength(text, at);
            tokenTexts.push_back(text.substr(at, length));
            analysis.emplace_back();
            at += length;
            continue;
        } else if (hasClass(c, kDigitCharacter)) {
            const std::size_t end = characters(at + 1, kDigitCharacter);
            if (endsHere(end) && end - at <= kSafeDigits) {
                TokenAnalysis& number = analysis.emplace_back();
                number.isNumeric = number.hasIntValue = true;
                for (std::size_t i = at; i < end; ++i) {
                    number.intValue = 10 * number.intValue + (text[i] - '0');
                }
                tokenTexts.push_back(text.substr(at, end - at));
                at = end;
                continue;
            }
        }
        std::string_view token;
        if (!nextToken(text, at, token)) break;
        tokenTexts.push_back(token);
        analysis.push_back(analyseToken(token));
    }
    if (at < text.size() && hasClass(text[at], kQuoteCharacter)) {
        throwError("Unterminated string literal", text.substr(at));
    }
}

std::vector<std::string> DovrelScript::tokenise(const std::string& source) {
    std::vector<TokenAnalysis> analysis;
    readTokens(source, analysis);
    return {tokenTexts.begin(), tokenTexts.end()};
}
