#include "library/patterns.h"

#include <array>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>

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

/// Rewrites `source` so that its dots match line ends as well, which the engine has no option for.
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

[[nodiscard]] std::regex compileRegex(const std::string& source, std::regex::flag_type options) {
    try {
        return std::regex(source, options);
    } catch (const std::regex_error& error) {
        // The source is shown, not the script's pattern: the engine's words are about the source.
        throwPlainError("gsub: invalid regex pattern '" + source + "': " + error.what());
    }
}

[[nodiscard]] std::regex compileDelimitedRegex(const DelimitedRegex& delimited) {
    std::regex::flag_type options = std::regex::ECMAScript;
    bool dotsMatchAll = false;
    for (const char flag : delimited.flags) {
        if (flag == 'i') {
            options |= std::regex::icase;
        } else if (flag == 'm') {
            dotsMatchAll = true;
        } else {
            throwPlainError(std::string("gsub: unsupported regex flag '") + flag +
                            "' (supported: i, m)");
        }
    }
    return compileRegex(
        dotsMatchAll ? makeDotsMatchAll(delimited.source) : std::string(delimited.source), options);
}

[[nodiscard]] std::regex compilePattern(std::string_view pattern) {
    if (pattern.starts_with(kRegexPrefix)) {
        return compileRegex(std::string(pattern.substr(kRegexPrefix.size())),
                            std::regex::ECMAScript);
    }
    if (const auto delimited = readDelimitedRegex(pattern)) {
        return compileDelimitedRegex(*delimited);
    }
    return compileRegex(translatePattern(pattern), std::regex::ECMAScript);
}

/// The end of the run of bytes at `start` that satisfy `belongs`; `start` itself if it is empty.
[[nodiscard]] std::size_t endOfRun(std::string_view text, std::size_t start,
                                   bool (*belongs)(char)) {
    while (start < text.size() && belongs(text[start])) ++start;
    return start;
}

}  // namespace

const CompiledGsubPattern& getCachedGsubPattern(const std::string& pattern) {
    // Without a limit: compiling costs far more than a match, and scripts have few patterns.
    static std::unordered_map<std::string, std::unique_ptr<const CompiledGsubPattern>> cache;
    if (const auto found = cache.find(pattern); found != cache.end()) return *found->second;
    // Compiled first, so that a failure leaves no entry behind.
    auto compiled =
        std::make_unique<const CompiledGsubPattern>(CompiledGsubPattern{compilePattern(pattern)});
    return *cache.emplace(pattern, std::move(compiled)).first->second;
}

bool findDigitRun(std::string_view text, std::size_t start, TextRange& run) {
    for (std::size_t index = start; index < text.size(); ++index) {
        if (!isAsciiDigit(text[index])) continue;
        run = {index, endOfRun(text, index, isAsciiDigit)};
        return true;
    }
    return false;
}

bool findAlphaDashDigitsMatch(std::string_view text, std::size_t start, TextRange& letters,
                              TextRange& digits) {
    for (std::size_t index = start; index < text.size();) {
        const std::size_t lettersEnd = endOfRun(text, index, isAsciiLetter);
        if (lettersEnd == index) {
            ++index;
            continue;
        }
        if (lettersEnd < text.size() && text[lettersEnd] == '-') {
            const std::size_t digitsEnd = endOfRun(text, lettersEnd + 1, isAsciiDigit);
            if (digitsEnd > lettersEnd + 1) {
                letters = {index, lettersEnd};
                digits = {lettersEnd + 1, digitsEnd};
                return true;
            }
        }
        // What stands behind the run decides, so no later letter of it can do better.
        index = lettersEnd;
    }
    return false;
}

Variable matchValue(const std::smatch& match, Variable (*makeSeveral)(std::vector<Variable>&&)) {
    if (match.size() <= 2) return Variable(match[match.size() - 1].str());
    std::vector<Variable> groups;
    groups.reserve(match.size() - 1);
    for (std::size_t group = 1; group < match.size(); ++group) {
        groups.push_back(match[group].matched ? Variable(match[group].str()) : Variable());
    }
    return makeSeveral(std::move(groups));
}

GmatchWalk::GmatchWalk(const std::string& text, const std::string& pattern)
    : text_(text), scansDigitRuns_(pattern == kDigitRunPattern) {
    if (scansDigitRuns_) return;
    match_ =
        std::sregex_iterator(text_.cbegin(), text_.cend(), getCachedGsubPattern(pattern).regex);
}

bool GmatchWalk::next(Variable& element) {
    if (scansDigitRuns_) return nextDigitRun(element);
    const std::sregex_iterator end;
    // A step is made only when it is asked for: a search that fails must not cost the element
    // before it.
    if (started_ && match_ != end) ++match_;
    started_ = true;
    if (match_ == end) return false;
    element = matchValue(*match_, Variable::makeArray);
    return true;
}

bool GmatchWalk::nextDigitRun(Variable& element) {
    TextRange run;
    if (!findDigitRun(text_, position_, run)) return false;
    position_ = run.end;
    element = Variable(text_.substr(run.first, run.end - run.first));
    return true;
}
