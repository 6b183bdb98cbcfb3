// Runs the programs of patterns over texts.
//
// Two ways of running give the same match. The first takes one way at a time and comes back to the
// next when it fails; texts as scripts have them need little of that. When it has cost more than a
// few looks at each byte, or has kept many ways open, the second takes over: it goes through the
// text once and follows all ways at the same time. So the time for a search is bounded by the text
// times the pattern, and the memory by the pattern. Neither recurses.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "library/pattern_program.h"

/// The bytes of a text from the offset `first` up to, not including, `end`.
struct TextRange {
    std::size_t first = 0;
    std::size_t end = 0;
};

/// Where a match and its groups stand. One object serves any number of searches and allocates for
/// patterns of many groups only.
class PatternMatch {
public:
    PatternMatch() = default;
    PatternMatch(const PatternMatch&) = delete;
    PatternMatch& operator=(const PatternMatch&) = delete;

    /// How many groups there are, with the whole match as group 0.
    [[nodiscard]] std::size_t size() const { return size_; }
    /// Whether `group`, below `size()`, took part.
    [[nodiscard]] bool has(std::size_t group) const { return slots_[2 * group + 1] != kUnset; }
    /// The range of a group that took part.
    [[nodiscard]] TextRange range(std::size_t group) const {
        return {slots_[2 * group], slots_[2 * group + 1]};
    }
    /// The range of the whole match.
    [[nodiscard]] TextRange whole() const { return {slots_[0], slots_[1]}; }
    /// The text of `group` in `text`; empty if it took no part.
    [[nodiscard]] std::string_view text(std::string_view text, std::size_t group) const {
        if (!has(group)) return {};
        return text.substr(slots_[2 * group], slots_[2 * group + 1] - slots_[2 * group]);
    }

    /// Makes room for `size` groups, none of which takes part.
    void reset(std::size_t size) {
        size_ = size;
        if (size > kFewGroups) {
            many_.resize(2 * size);
            slots_ = many_.data();
        } else {
            slots_ = few_.data();
        }
        for (std::size_t i = 0; i < 2 * size; ++i) slots_[i] = kUnset;
    }
    void set(std::size_t group, TextRange range) {
        slots_[2 * group] = range.first;
        slots_[2 * group + 1] = range.end;
    }
    /// The places of all groups, the start and the end of each; kUnset for none.
    [[nodiscard]] std::size_t* slots() { return slots_; }

    static constexpr std::size_t kUnset = static_cast<std::size_t>(-1);

private:
    static constexpr std::size_t kFewGroups = 8;

    std::size_t size_ = 0;
    std::array<std::size_t, 2 * kFewGroups> few_;
    std::vector<std::size_t> many_;
    std::size_t* slots_ = few_.data();
};

/// What a search may do.
struct SearchMode {
    bool atLineBegin = true;    // nothing stands before the place where the search begins
    bool onlyHere = false;      // a match must begin at that place
    bool refusesEmpty = false;  // an empty match at that place does not count; only with `onlyHere`
};

/// What the searches of one walk through a text know of each other: from which states and positions
/// nothing can match. It is kept once they have looked far ahead in vain several times, so that a
/// walk takes no longer than the text times the pattern either, however many matches it finds.
class WalkMemory {
public:
    WalkMemory() = default;
    /// `patience` is how many steps may be in vain for each byte of the text before.
    explicit WalkMemory(std::size_t patience) : patience_(patience) {}

private:
    friend class PatternMatcher;

    std::size_t patience_ = 32;
    std::size_t spent_ = 0;              // steps that were in vain
    std::vector<std::uint64_t> failed_;  // a bit for each state and position; empty if not kept
};

/// Searches by programs. It keeps its working storage from one search to the next.
class PatternMatcher {
public:
    PatternMatcher() = default;
    PatternMatcher(const PatternMatcher&) = delete;
    PatternMatcher& operator=(const PatternMatcher&) = delete;

    /// Finds the leftmost match of `program` in `text` at or behind the offset `from`, which is at
    /// most the text's size. True with `match` filled, false with its groups undefined. `memory` is
    /// that of the walk: each search of it begins where the last match ends, or behind.
    [[nodiscard]] bool search(const PatternProgram& program, std::string_view text,
                              std::size_t from, SearchMode mode, PatternMatch& match,
                              WalkMemory* memory = nullptr);

    /// The same, by the second way from the start.
    [[nodiscard]] bool searchAllWays(const PatternProgram& program, std::string_view text,
                                     std::size_t from, SearchMode mode, PatternMatch& match);

private:
    /// What to do when the present way has failed: put `position` back into `slot`, or else go on
    /// by `edge` at `position`.
    struct Retreat {
        std::size_t position;
        std::uint32_t edge;  // 0 for a slot
        std::uint32_t slot;
    };
    enum class Verdict : std::uint8_t { Failed, Matched, TooCostly };

    /// One search under way.
    struct Run {
        const PatternProgram& program;
        std::string_view text;
        std::size_t from;
        SearchMode mode;
        std::size_t* slots;
        std::size_t slotCount;
        std::ptrdiff_t steps;   // how many are left for the first way
        std::uint64_t* failed;  // the memory of the walk, if it is kept
    };

    template <bool kLooksAtWords>
    [[nodiscard]] Verdict runFrom(Run& run, std::uint16_t state, std::size_t start,
                                  std::size_t position);
    [[nodiscard]] Verdict tryAt(Run& run, std::uint16_t state, std::size_t start,
                                std::size_t position);
    [[nodiscard]] static bool searchOneRun(const PatternProgram& program, std::string_view text,
                                           std::size_t from, SearchMode mode, PatternMatch& match);
    [[nodiscard]] bool searchWays(Run& run);
    static void rememberFrom(WalkMemory& memory, const Run& run);
    [[nodiscard]] bool runAllWays(Run& run, std::size_t start);
    [[nodiscard]] bool followThread(Run& run, std::uint16_t state, const std::size_t* slots,
                                    std::size_t position);

    std::vector<Retreat> retreats_;
    std::vector<std::size_t> fallback_;  // the slots of the match that stands if nothing else does

    /// The states that are alive between two bytes, the preferred first, and the slots of each.
    struct Threads {
        std::vector<std::uint16_t> states;
        std::vector<std::size_t> slots;  // of all states in turn; those behind are not in use
    };
    Threads alive_;
    Threads next_;
    std::vector<std::size_t> reachedAt_;  // for each state, one more than the position in `next_`
};
