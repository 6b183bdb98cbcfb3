// What searches by name have found far down a stack of scopes, so that a recursion whose levels all
// ask for a variable of a caller far outside does not search all levels between each time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "value/names.h"

/// Where an entry stands: the scope's place in its stack and the entry's place in the scope.
struct EntryPlace {
    static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
    std::size_t scope = kNowhere;
    std::size_t entry = 0;

    [[nodiscard]] bool isFound() const { return scope != kNowhere; }
};

/// The memory of one stack's searches. As long as a scope is on the stack, those below it neither
/// go nor get entries. So an answer for all scopes below one stays right until that one is popped,
/// which costs nobody anything: a scope that is remembered carries a mark, which the next opening
/// of it takes away, and a number tells the marks of one place apart.
struct FarSearches {
    /// Answers are kept for the scopes below each scope whose place is a multiple of this.
    static constexpr std::size_t kStride = 16;

    /// An answer: the innermost entry of a name in the scopes below `below`.
    struct Answer {
        std::size_t below = 0;
        std::uint64_t mark = 0;  // of the scope at `below` when it was given
        EntryPlace place;
    };

    /// By name, from the bottom of the stack up.
    std::unordered_map<Name, std::vector<Answer>> answers;
    /// The number of the mark at each place that is a multiple of kStride, if the scope has one.
    std::vector<std::uint64_t> marks;
    std::uint64_t lastMark = 0;
    /// So many scopes have been looked into beyond the near ones, for tests that bound it.
    std::uint64_t scopesSearched = 0;
};
