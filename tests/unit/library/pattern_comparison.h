// Random patterns and texts, and the comparison of the library's matcher with the standard
// library's on them. The unit tests make them from a seed, the fuzz target from its bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// Makes patterns and texts out of choices: `pick(count)` gives a number below `count`, the
/// simplest choice being 0.
class PatternPairs {
public:
    explicit PatternPairs(std::function<unsigned int(unsigned int)> pick)
        : pick_(std::move(pick)) {}

    /// A pattern in one of the three forms; one in some is no valid one.
    [[nodiscard]] std::string pattern();
    /// A text of the bytes that such patterns are about.
    [[nodiscard]] std::string text();

private:
    enum class Form : std::uint8_t { Dialect, Expression };

    [[nodiscard]] std::string sequence(Form form, int depth);
    [[nodiscard]] std::string atom(Form form, int depth);
    [[nodiscard]] std::string set(Form form);
    [[nodiscard]] std::string setMember(Form form);
    [[nodiscard]] std::string quantifier(Form form);
    [[nodiscard]] std::string literal(Form form);

    std::function<unsigned int(unsigned int)> pick_;
};

/// How many pairs were compared, and how many were not because of what the standard matcher takes.
struct ComparisonTally {
    std::uint64_t patterns = 0;
    std::uint64_t invalid = 0;    // patterns
    std::uint64_t unread = 0;     // patterns that the standard library matches alone
    std::uint64_t compared = 0;   // pairs
    std::uint64_t abandoned = 0;  // pairs: the standard matcher took too long
    std::uint64_t matched = 0;    // pairs with a match
};

/// Compares all searches and walks over `count` texts that `nextText` makes. The text of the
/// first difference; empty if there is none.
[[nodiscard]] std::string comparePattern(const std::string& pattern, int count,
                                         const std::function<std::string()>& nextText,
                                         ComparisonTally& tally);
