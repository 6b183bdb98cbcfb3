#include "library/pattern_source.h"

#include <array>
#include <cstddef>
#include <optional>

#include "eval/errors.h"

namespace {

constexpr std::string_view kRegexPrefix = "re:";

/// What one letter behind a "%" stands for.
struct ClassTranslation {
    char letter;
    std::string_view outsideSet;
    std::string_view insideSet;
};

// kept: inside a set a negative class is a caret in front of its ranges. It negates the set when it
// stands first, and is a literal caret further on; scripts write "[%A]" for a negation.
constexpr std::array<ClassTranslation, 16> kClasses = {{
    {'a', "[A-Za-z]", "A-Za-z"},
    {'A', "[^A-Za-z]", "^A-Za-z"},
    {'d', R"(\d)", R"(\d)"},
    {'D', R"(\D)", R"(\D)"},
    {'l', "[a-z]", "a-z"},
    {'L', "[^a-z]", "^a-z"},
    {'p', R"([!-/:-@\[-`\{-~])", R"(!-/:-@\[-`\{-~)"},
    {'P', R"([^!-/:-@\[-`\{-~])", R"(^!-/:-@\[-`\{-~)"},
    {'s', R"(\s)", R"(\s)"},
    {'S', R"(\S)", R"(\S)"},
    {'u', "[A-Z]", "A-Z"},
    {'U', "[^A-Z]", "^A-Z"},
    {'w', R"(\w)", R"(\w)"},
    {'W', R"(\W)", R"(\W)"},
    {'x', "[A-Fa-f0-9]", "A-Fa-f0-9"},
    {'X', "[^A-Fa-f0-9]", "^A-Fa-f0-9"},
}};

/// Locale-independent on purpose: clearing the case bit leaves one range to test.
[[nodiscard]] constexpr bool isAsciiLetter(char c) {
    return static_cast<unsigned char>((static_cast<unsigned char>(c) & 0xDFU) - 'A') < 26;
}

/// The text that stands for the byte `c` itself in a regular expression.
[[nodiscard]] std::string escapeRegexLiteralChar(char c) {
    constexpr std::string_view kSpecial = R"($()*+.?[\]^{|})";
    if (kSpecial.find(c) == std::string_view::npos) return {c};
    return {'\\', c};
}

void appendClass(std::string& source, char letter, bool insideSet) {
    for (const ClassTranslation& translation : kClasses) {
        if (translation.letter != letter) continue;
        source += insideSet ? translation.insideSet : translation.outsideSet;
        return;
    }
    source += escapeRegexLiteralChar(letter);
}

/// Translates a byte that stands outside a set; true if it opens one.
[[nodiscard]] bool appendOutsideSet(std::string& source, char c) {
    constexpr std::string_view kKeepTheirMeaning = "$()*+.?^";
    if (c == '-') {
        source += "*?";
    } else if (c == '[' || kKeepTheirMeaning.find(c) != std::string_view::npos) {
        source += c;
    } else {
        source += escapeRegexLiteralChar(c);
    }
    return c == '[';
}

/// Translates a byte that stands inside a set; true unless it closes the set.
[[nodiscard]] bool appendInsideSet(std::string& source, char c) {
    // kept: a caret is literal right behind the bracket too, so the dialect negates no set by it.
    if (c == '\\' || c == '^') source += '\\';
    source += c;
    return c != ']';
}

[[nodiscard]] std::string translatePattern(std::string_view pattern) {
    std::string source;
    source.reserve(pattern.size() * 2);
    bool insideSet = false;
    for (std::size_t index = 0; index < pattern.size(); ++index) {
        const char c = pattern[index];
        if (c == '%' && index + 1 < pattern.size()) {
            ++index;
            appendClass(source, pattern[index], insideSet);
        } else {
            insideSet = insideSet ? appendInsideSet(source, c) : appendOutsideSet(source, c);
        }
    }
    return source;
}

/// The parts of a pattern of the form "/source/flags".
struct DelimitedRegex {
    std::string_view source;
    std::string_view flags;
};

/// Reads the delimited form. Nothing for a pattern that lacks the closing slash or has anything but
/// letters behind it: such a pattern is in the dialect, where a slash is an ordinary byte.
[[nodiscard]] std::optional<DelimitedRegex> readDelimitedRegex(std::string_view pattern) {
    if (pattern.size() < 2 || pattern[0] != '/') return std::nullopt;
    std::size_t closing = 0;
    for (std::size_t index = 1; index < pattern.size(); ++index) {
        if (pattern[index] == '\\') {
            ++index;
        } else if (pattern[index] == '/') {
            closing = index;
        }
    }
    if (closing == 0) return std::nullopt;
    const std::string_view flags = pattern.substr(closing + 1);
    for (const char flag : flags) {
        if (!isAsciiLetter(flag)) return std::nullopt;
    }
    return DelimitedRegex{pattern.substr(1, closing - 1), flags};
}

/// Rewrites `source` so that its dots match line ends as well, which the standard library has no
/// option for.
[[nodiscard]] std::string makeDotsMatchAll(std::string_view source) {
    std::string rewritten;
    bool insideSet = false;
    for (std::size_t index = 0; index < source.size(); ++index) {
        const char c = source[index];
        if (c == '.' && !insideSet) {
            rewritten += R"([\s\S])";
            continue;
        }
        rewritten += c;
        if (c == '\\' && index + 1 < source.size()) {
            ++index;
            rewritten += source[index];
        } else if (c == '[') {
            insideSet = true;
        } else if (c == ']') {
            insideSet = false;
        }
    }
    return rewritten;
}

[[nodiscard]] PatternSource readDelimited(const DelimitedRegex& delimited) {
    PatternSource result;
    bool dotsMatchAll = false;
    for (const char flag : delimited.flags) {
        if (flag == 'i') {
            result.ignoresCase = true;
        } else if (flag == 'm') {
            dotsMatchAll = true;
        } else {
            throwPlainError(std::string("gsub: unsupported regex flag '") + flag +
                            "' (supported: i, m)");
        }
    }
    result.expression =
        dotsMatchAll ? makeDotsMatchAll(delimited.source) : std::string(delimited.source);
    return result;
}

}  // namespace

PatternSource readPatternSource(std::string_view pattern) {
    if (pattern.starts_with(kRegexPrefix)) {
        return {std::string(pattern.substr(kRegexPrefix.size())), false};
    }
    if (const auto delimited = readDelimitedRegex(pattern)) return readDelimited(*delimited);
    return {translatePattern(pattern), false};
}
