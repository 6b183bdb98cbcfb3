// What the library and the `for` loops share about matching.
//
// A pattern stands for an ECMAScript expression (pattern_source.h). What can be read of these with
// certainty, the dialect of the language in the first place, has a program (pattern_graph.h,
// pattern_program.h) and is matched by it (pattern_matcher.h). The rest is matched by the standard
// library, which also judges what is no valid expression. Both give the same results. Patterns are
// kept in a cache for the life of the process.
//
// For many short texts: take the CompiledPattern once and one PatternMatch, and search with these.
// Such a search allocates nothing, and what was matched is positions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "library/pattern_matcher.h"
#include "library/pattern_source.h"
#include "value/variable.h"

/// The one pattern that string.gsub treats by its exact text.
inline constexpr std::string_view kDigitPattern = "%d";

[[nodiscard]] constexpr bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }

/// Who matches a pattern.
enum class MatchedBy : std::uint8_t {
    Whoever,          // the program, or the standard library for what has none
    StandardLibrary,  // the standard library; for comparisons
};

/// `source` in the standard library's form. Raises std::regex_error.
[[nodiscard]] std::regex standardExpression(const PatternSource& source);

class CompiledPattern {
public:
    /// Raises "gsub: invalid regex pattern ..." or "gsub: unsupported regex flag ...".
    explicit CompiledPattern(std::string_view pattern, MatchedBy by = MatchedBy::Whoever);
    CompiledPattern(const CompiledPattern&) = delete;
    CompiledPattern& operator=(const CompiledPattern&) = delete;

    /// Finds the leftmost match in `text` at or behind the offset `from`, which is at most the
    /// text's size. True with `match` filled, false with its groups undefined. For an expression
    /// that the standard library matches, raises its text for an exhausted stack, before matching,
    /// if `text` might take more of the host's stack than is left. `memory` is that of the walk.
    [[nodiscard]] bool search(std::string_view text, std::size_t from, SearchMode mode,
                              PatternMatch& match, WalkMemory* memory = nullptr) const;
    /// The program; null for an expression that the standard library matches.
    [[nodiscard]] const PatternProgram* program() const { return program_.get(); }

private:
    [[nodiscard]] bool searchStandard(std::string_view text, std::size_t from, SearchMode mode,
                                      PatternMatch& match) const;

    std::unique_ptr<const PatternProgram> program_;
    std::unique_ptr<const std::regex> standard_;  // null if there is a program
    std::size_t stackForEachByte_ = 0;            // that the standard library may need
};

/// The compiled form of `pattern`, from the cache if it has been used before. Raises what the
/// constructor of CompiledPattern raises, and does so at each use. The cache keeps ownership and is
/// never emptied, so the reference stays good.
[[nodiscard]] const CompiledPattern& compiledPattern(const std::string& pattern);

/// A step through all matches in a text, which must stay in place, as the standard library's
/// iterator goes: behind an empty match, a match at the same place that is not empty comes next.
class PatternWalk {
public:
    PatternWalk(std::string_view text, const CompiledPattern& pattern, WalkMemory memory = {})
        : text_(text), pattern_(pattern), memory_(std::move(memory)) {}

    /// Goes to the next match; false when there is none.
    [[nodiscard]] bool next();
    /// The match that the last step has found.
    [[nodiscard]] const PatternMatch& match() const { return match_; }

private:
    std::string_view text_;
    const CompiledPattern& pattern_;
    PatternMatch match_;
    WalkMemory memory_;
    bool started_ = false;
    bool ended_ = false;
    bool atLineBegin_ = true;  // no search was begun behind a match yet
};

/// What a match in `text` hands to a script: the whole match if the pattern has no group, the
/// group's text if it has one (empty if the group took no part), else what `makeSeveral` makes of
/// all groups, with nil for each that took no part.
template <class Values>
[[nodiscard]] Variable matchValue(std::string_view text, const PatternMatch& match,
                                  Variable (*makeSeveral)(Values&&));

/// A walk over all matches of a pattern, one element at a time. It keeps the text itself, so that
/// script code may run between two steps.
class GmatchWalk {
public:
    /// Raises what compiledPattern raises.
    GmatchWalk(const std::string& text, const std::string& pattern)
        : text_(text), walk_(text_, compiledPattern(pattern)) {}
    GmatchWalk(const GmatchWalk&) = delete;
    GmatchWalk& operator=(const GmatchWalk&) = delete;

    /// Stores the next match's value in `element`, several groups as a new array. False, with
    /// `element` unchanged, when the matches are at an end.
    [[nodiscard]] bool next(Variable& element);

private:
    std::string text_;
    PatternWalk walk_;
};
