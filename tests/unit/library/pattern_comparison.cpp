#include "pattern_comparison.h"

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <regex>
#include <string_view>
#include <vector>

#include "library/pattern_graph.h"
#include "library/pattern_source.h"
#include "library/patterns.h"

namespace {

/// The standard matcher has looked at more than it may.
struct TooLong {};

/// How much the standard matcher may still do. It has no bound of its own, so its iterators count.
long stepsLeft = 0;

void countStep() {
    if (--stepsLeft < 0) throw TooLong();
}

/// An iterator over bytes that counts what is done with it.
class CountingIterator {
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator() = default;
    explicit CountingIterator(const char* place) : place_(place) {}

    reference operator*() const {
        countStep();
        return *place_;
    }
    CountingIterator& operator++() {
        ++place_;
        return *this;
    }
    CountingIterator operator++(int) { return CountingIterator(place_++); }
    CountingIterator& operator--() {
        --place_;
        return *this;
    }
    CountingIterator operator--(int) { return CountingIterator(place_--); }
    bool operator==(const CountingIterator& other) const {
        countStep();
        return place_ == other.place_;
    }
    [[nodiscard]] const char* place() const { return place_; }

private:
    const char* place_ = nullptr;
};

using CountingMatch = std::match_results<CountingIterator>;
using CountingWalk = std::regex_iterator<CountingIterator>;

/// A match in words: the places of the groups, or "-" for one that took no part.
std::string describe(const CountingMatch& match, const std::string& text) {
    std::string result;
    for (std::size_t group = 0; group < match.size(); ++group) {
        if (!match[group].matched) {
            result += "- ";
            continue;
        }
        result += std::to_string(match[group].first.place() - text.data()) + ".." +
                  std::to_string(match[group].second.place() - text.data()) + " ";
    }
    return result;
}

std::string describe(const PatternMatch& match) {
    std::string result;
    for (std::size_t group = 0; group < match.size(); ++group) {
        if (!match.has(group)) {
            result += "- ";
            continue;
        }
        result += std::to_string(match.range(group).first) + ".." +
                  std::to_string(match.range(group).end) + " ";
    }
    return result;
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += {'\\', c};
        } else if (byte >= ' ' && byte < 127) {
            result += c;
        } else {
            constexpr std::string_view kDigits = "0123456789abcdef";
            result += {'\\', 'x', kDigits[byte / 16], kDigits[byte % 16]};
        }
    }
    return result + "\"";
}

/// One pattern in both matchers.
class Comparison {
public:
    Comparison(std::string pattern, const std::regex& standard, const CompiledPattern& own)
        : pattern_(std::move(pattern)), standard_(standard), own_(own) {}

    /// The text of the first difference.
    std::string compare(const std::string& text, ComparisonTally& tally) {
        stepsLeft = 40000;
        try {
            for (std::size_t from = 0; from <= text.size(); from += from < 2 ? 1 : 4) {
                for (const SearchMode mode :
                     {SearchMode{true, false, false}, SearchMode{false, false, false},
                      SearchMode{true, true, true}, SearchMode{false, true, true}}) {
                    if (from == 0 && !mode.atLineBegin) continue;
                    const std::string difference = compareSearch(text, from, mode, tally);
                    if (!difference.empty()) return difference;
                }
            }
            const std::string difference = compareWalk(text);
            if (!difference.empty()) return difference;
        } catch (const TooLong&) {
            ++tally.abandoned;
            return runAlone(text);
        }
        ++tally.compared;
        return {};
    }

private:
    std::string compareSearch(const std::string& text, std::size_t from, SearchMode mode,
                              ComparisonTally& tally) {
        auto flags = std::regex_constants::match_default;
        if (!mode.atLineBegin) flags |= std::regex_constants::match_prev_avail;
        if (mode.onlyHere) flags |= std::regex_constants::match_continuous;
        if (mode.refusesEmpty) flags |= std::regex_constants::match_not_null;
        CountingMatch expected;
        std::string wanted = "none";
        if (std::regex_search(CountingIterator(text.data() + from),
                              CountingIterator(text.data() + text.size()), expected, standard_,
                              flags)) {
            wanted = describe(expected, text);
            if (from == 0 && !mode.onlyHere) ++tally.matched;
        }
        const std::string place = " from " + std::to_string(from) +
                                  (mode.atLineBegin ? "" : " behind a byte") +
                                  (mode.onlyHere ? " only there" : "");
        PatternMatch match;
        const std::string found = own_.search(text, from, mode, match) ? describe(match) : "none";
        if (found != wanted) return report(text, "search" + place, wanted, found);
        const std::string foundAllWays =
            matcher_.searchAllWays(*own_.program(), text, from, mode, match) ? describe(match)
                                                                             : "none";
        if (foundAllWays != wanted) {
            return report(text, "search of all ways" + place, wanted, foundAllWays);
        }
        return {};
    }

    std::string compareWalk(const std::string& text) {
        std::string wanted;
        const CountingWalk end;
        for (CountingWalk walk(CountingIterator(text.data()),
                               CountingIterator(text.data() + text.size()), standard_);
             walk != end; ++walk) {
            wanted += describe(*walk, text) + "| ";
        }
        for (const std::size_t patience : {std::size_t{32}, std::size_t{0}}) {
            std::string found;
            PatternWalk walk(text, own_, WalkMemory(patience));
            while (walk.next()) found += describe(walk.match()) + "| ";
            if (found != wanted) {
                return report(text, "walk with patience " + std::to_string(patience), wanted,
                              found);
            }
        }
        return {};
    }

    /// Where the standard matcher takes too long, this one must come to an end all the same, and in
    /// the same way by both ways.
    std::string runAlone(const std::string& text) {
        PatternMatch match;
        const std::string found = own_.search(text, 0, {}, match) ? describe(match) : "none";
        const std::string foundAllWays =
            matcher_.searchAllWays(*own_.program(), text, 0, {}, match) ? describe(match) : "none";
        if (found == foundAllWays) return {};
        return report(text, "search of all ways against one way", found, foundAllWays);
    }

    [[nodiscard]] std::string report(const std::string& text, const std::string& what,
                                     const std::string& wanted, const std::string& found) const {
        return "pattern " + quoted(pattern_) + " in " + quoted(text) + ", " + what + ": " + found +
               "instead of " + wanted;
    }

    std::string pattern_;
    const std::regex& standard_;
    const CompiledPattern& own_;
    PatternMatcher matcher_;
};

std::unique_ptr<const std::regex> standardOf(const PatternSource& source) {
    try {
        return std::make_unique<const std::regex>(standardExpression(source));
    } catch (const std::regex_error&) {
        return nullptr;
    }
}

}  // namespace

std::string PatternPairs::literal(Form form) {
    static constexpr std::array<std::string_view, 24> kTexts = {
        "a",  "b",  "a",  "b",    "A",    "B", "c", "1", "_", " ", "x", "\n",
        "\r", "\v", "\t", "\xe9", "\x80", ",", "-", "]", "}", "%", "{", "."};
    const std::size_t index = pick_(kTexts.size() + 1);
    if (index == kTexts.size()) return std::string(1, '\0');
    const std::string text(kTexts[index]);
    if (index < 18 || pick_(3) == 0) return text;
    return (form == Form::Dialect ? "%" : "\\") + text;
}

std::string PatternPairs::setMember(Form form) {
    static constexpr std::array<std::string_view, 16> kDialect = {
        "a",  "b",  "a-c", "A-Z", "%a", "%d", "%s", "^",
        "%w", "%A", "%D",  "-",   "%u", "%-", "[",  "\\"};
    static constexpr std::array<std::string_view, 20> kExpression = {
        "a", "b",   "a-c", "A-Z", "\\d",   "\\s",     "\\w", "^",  "\\W",  "\\D",
        "-", "\\b", "[",   ".",   "\\x41", "\\u0162", "\\]", "\\", "\\cA", "a-\\x7a"};
    static constexpr std::array<std::string_view, 16> kNames = {
        "[:alpha:]", "[:alnum:]", "[:blank:]", "[:cntrl:]", "[:digit:]", "[:graph:]",
        "[:lower:]", "[:print:]", "[:punct:]", "[:space:]", "[:UPPER:]", "[:xdigit:]",
        "[:w:]",     "[:d:]",     "[:none:]",  "[=a=]"};
    switch (pick_(9)) {
        case 0: return literal(form);
        case 8: return std::string(kNames[pick_(kNames.size())]);
        case 1: return literal(form) + "-" + literal(form);
        default:
            return std::string(form == Form::Dialect ? kDialect[pick_(kDialect.size())]
                                                     : kExpression[pick_(kExpression.size())]);
    }
}

std::string PatternPairs::set(Form form) {
    std::string result = "[";
    if (pick_(3) == 1) result += '^';
    for (unsigned int count = pick_(4); count > 0; --count) result += setMember(form);
    if (pick_(40) != 1) result += ']';
    return result;
}

std::string PatternPairs::quantifier(Form form) {
    static constexpr std::array<std::string_view, 8> kDialect = {"",  "*", "+",  "?",
                                                                 "-", "*", "-+", "*?"};
    static constexpr std::array<std::string_view, 16> kExpression = {
        "",    "*",   "+",    "?",    "*?",    "+?",     "?",     "??",
        "{2}", "{0}", "{1,}", "{0,}", "{0,2}", "{1,2}?", "{2,}?", "{2,1}"};
    // Most have none.
    if (pick_(5) < 2) return {};
    std::string result(form == Form::Dialect ? kDialect[pick_(kDialect.size())]
                                             : kExpression[pick_(kExpression.size())]);
    if (pick_(8) == 1) result += quantifier(form);
    return result;
}

std::string PatternPairs::atom(Form form, int depth) {
    static constexpr std::array<std::string_view, 12> kDialect = {
        "%a", "%d", "%s", "%w", "%l", "%u", "%p", "%x", "%A", "%S", "%W", "%P"};
    static constexpr std::array<std::string_view, 18> kExpression = {
        "\\w", "\\d",  "\\s", "\\W", "\\D", "\\S",   "\\b",   "\\B",     "\\n",
        "\\v", "\\cA", "\\-", "\\0", "\\1", "\\x61", "(?=a)", "\\u00e9", "[[:alpha:]]"};
    switch (pick_(12)) {
        case 0:
        case 1:
        case 2: return literal(form);
        case 3:
        case 4:
            return std::string(form == Form::Dialect ? kDialect[pick_(kDialect.size())]
                                                     : kExpression[pick_(kExpression.size())]);
        case 5: return ".";
        case 6: return set(form);
        case 7: return pick_(3) == 0 ? "^" : "$";
        case 8: return {};
        default:
            if (depth == 0) return literal(form);
            return (form == Form::Expression && pick_(3) == 0 ? "(?:" : "(") +
                   sequence(form, depth - 1) + ")";
    }
}

std::string PatternPairs::sequence(Form form, int depth) {
    std::string result;
    for (unsigned int count = pick_(4); count > 0; --count) {
        const std::string part = atom(form, depth);
        // A quantifier behind nothing or behind an anchor is an error; few of those will do.
        const bool takesQuantifier =
            !part.empty() && part != "^" && part != "$" && part != "\\b" && part != "\\B";
        result += part;
        if (takesQuantifier || pick_(24) == 1) result += quantifier(form);
    }
    if (form == Form::Expression && pick_(5) == 1) result += "|" + sequence(form, depth);
    return result;
}

std::string PatternPairs::pattern() {
    const unsigned int choice = pick_(16);
    std::string result;
    if (choice < 9) {
        result = sequence(Form::Dialect, 2) + sequence(Form::Dialect, 1);
    } else {
        result = sequence(Form::Expression, 2) + sequence(Form::Expression, 1);
        static constexpr std::array<std::string_view, 3> kFlags = {"i", "m", "im"};
        result = choice < 12 ? "re:" + result
                             : "/" + result + "/" + std::string(kFlags[pick_(kFlags.size())]);
    }
    if (pick_(24) == 1 && !result.empty()) {
        result.erase(pick_(static_cast<unsigned int>(result.size())), 1);
    }
    return result;
}

std::string PatternPairs::text() {
    static constexpr std::array<std::string_view, 32> kPieces = {
        "a",  "b", "a", "b", "aa", "ab",   "A",    "B", "c", "1", "_", " ", "x",  "\n", "\r",  "\v",
        "\t", "-", "^", "]", ",",  "\xe9", "\x80", "%", ".", "a", "b", "Z", "\\", "{",  "aab", "["};
    std::string result;
    const unsigned int most = pick_(4) == 1 ? 24 : 8;
    for (unsigned int count = pick_(most); count > 0; --count) {
        const unsigned int piece = pick_(kPieces.size() + 1);
        if (piece == kPieces.size()) {
            result += '\0';
        } else {
            result += kPieces[piece];
        }
    }
    return result;
}

std::string comparePattern(const std::string& pattern, int count,
                           const std::function<std::string()>& nextText, ComparisonTally& tally) {
    ++tally.patterns;
    PatternSource source;
    try {
        source = readPatternSource(pattern);
    } catch (const std::exception&) {
        ++tally.invalid;  // a flag that is none
        return {};
    }
    const auto standard = standardOf(source);
    const bool isRead = readPatternGraph(source.expression, source.ignoresCase).has_value();
    if (standard == nullptr) {
        ++tally.invalid;
        return isRead ? "pattern " + quoted(pattern) + " was read, and is invalid" : "";
    }
    const CompiledPattern own(pattern);
    if (own.program() == nullptr) {
        ++tally.unread;
        return {};
    }
    Comparison comparison(pattern, *standard, own);
    for (int i = 0; i < count; ++i) {
        std::string difference = comparison.compare(nextText(), tally);
        if (!difference.empty()) return difference;
    }
    return {};
}
