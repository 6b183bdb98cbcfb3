// The pattern dialect of the string library, and what the library and the `for` loops share about
// matching.
//
// The dialect has no matcher of its own: a pattern is translated once into the source of an
// ECMAScript regular expression, compiled, and cached for the life of the process. A pattern that
// begins with "re:" is a regular expression as it stands, and so is one between slashes, as in
// "/source/flags" with the flags i (ignore case) and m (a dot matches every byte).
//
// A few patterns of hot loops are recognised by their exact text and served by scanners, which
// give what the regular expression would give. Everything works on bytes; the scanners know ASCII
// only, whatever the locale.
#pragma once

#include <cstddef>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "value/variable.h"

// The patterns that have a scanner.
inline constexpr std::string_view kDigitPattern = "%d";      // string.gsub
inline constexpr std::string_view kDigitRunPattern = "%d+";  // string.find, string.gmatch
inline constexpr std::string_view kAlphaDashDigitsPattern = "(%a+)%-(%d+)";  // string.match

[[nodiscard]] constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

/// A compiled pattern.
struct CompiledGsubPattern {
    std::regex regex;
};

/// The compiled form of `pattern`, from the cache if it has been used before. Raises "gsub: invalid
/// regex pattern ..." or "gsub: unsupported regex flag ...", and does so at each use. The cache
/// keeps ownership and is never emptied, so the reference stays good.
[[nodiscard]] const CompiledGsubPattern& getCachedGsubPattern(const std::string& pattern);

/// The bytes of a text from the offset `first` up to, not including, `end`.
struct TextRange {
    std::size_t first = 0;
    std::size_t end = 0;
};

/// Finds the first run of digits at or behind `start`; false, with `run` unchanged, without one.
[[nodiscard]] bool findDigitRun(std::string_view text, std::size_t start, TextRange& run);

/// Finds the leftmost run of letters at or behind `start` that is followed by a dash and a digit;
/// `digits` is the whole run of digits. False, with both unchanged, if there is none.
[[nodiscard]] bool findAlphaDashDigitsMatch(std::string_view text, std::size_t start,
                                            TextRange& letters, TextRange& digits);

/// What a match hands to a script: the whole match if the pattern has no group, the group's text
/// if it has one (empty if the group took no part), else what `makeSeveral` makes of all groups,
/// with nil for each that took no part.
[[nodiscard]] Variable matchValue(const std::smatch& match,
                                  Variable (*makeSeveral)(std::vector<Variable>&&));

/// A walk over all matches of a pattern, one element at a time. It keeps the text itself, so that
/// script code may run between two steps.
class GmatchWalk {
public:
    /// Raises what getCachedGsubPattern raises.
    GmatchWalk(const std::string& text, const std::string& pattern);
    GmatchWalk(const GmatchWalk&) = delete;
    GmatchWalk& operator=(const GmatchWalk&) = delete;

    /// Stores the next match's value in `element`, several groups as a new array. False, with
    /// `element` unchanged, when the matches are at an end.
    [[nodiscard]] bool next(Variable& element);

private:
    [[nodiscard]] bool nextDigitRun(Variable& element);

    std::string text_;
    bool scansDigitRuns_;       // the pattern is kDigitRunPattern
    std::size_t position_ = 0;  // where the next digit run is looked for
    bool started_ = false;      // `match_` is the match handed out last, no longer the next one
    std::sregex_iterator match_;
};
