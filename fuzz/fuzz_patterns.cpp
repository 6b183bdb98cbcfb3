// The library's matcher and the standard library's must find the same in the same text. The first
// byte chooses whether the rest are choices of a grammar for patterns and texts, or the pattern
// itself up to a zero byte and a text behind it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "library/pattern_comparison.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr int kTextsForEachPattern = 4;

std::string compareChosen(const std::uint8_t* data, const std::uint8_t* end) {
    PatternPairs pairs(
        [&](unsigned int count) { return data != end && count > 0 ? *data++ % count : 0U; });
    const std::string pattern = pairs.pattern();
    ComparisonTally tally;
    return comparePattern(
        pattern, kTextsForEachPattern, [&] { return pairs.text(); }, tally);
}

std::string compareGiven(const std::uint8_t* data, const std::uint8_t* end) {
    const std::uint8_t* const separator = std::find(data, end, std::uint8_t{0});
    const std::string pattern(data, separator);
    const std::string text(separator == end ? end : separator + 1, end);
    ComparisonTally tally;
    return comparePattern(
        pattern, 1, [&] { return text; }, tally);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string difference = data[0] % 4 == 3 ? compareGiven(data + 1, data + size)
                                                    : compareChosen(data + 1, data + size);
    if (!difference.empty()) {
        std::fprintf(stderr, "behaves differently: %s\n", difference.c_str());
        std::abort();
    }
    return 0;
}
