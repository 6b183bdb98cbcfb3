#include "pattern_comparison.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

namespace {

/// How many pairs to compare: a number from the environment for a longer run.
std::uint64_t wantedPairs(std::uint64_t usual) {
    const char* const wanted = std::getenv("DOVREL_PATTERN_PAIRS");
    return wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : usual;
}

TEST(PatternComparison, RandomPatternsMatchAsTheStandardLibraryMatchesThem) {
    constexpr int kTextsForEachPattern = 10;
    const char* const seed = std::getenv("DOVREL_PATTERN_SEED");
    std::mt19937 random(
        static_cast<std::uint32_t>(seed != nullptr ? std::strtoul(seed, nullptr, 10) : 20240607));
    PatternPairs pairs(
        [&](unsigned int count) { return static_cast<unsigned int>(random()) % count; });
    ComparisonTally tally;
    const std::uint64_t wanted = wantedPairs(60000);
    while (tally.compared < wanted) {
        const std::string pattern = pairs.pattern();
        const std::string difference = comparePattern(
            pattern, kTextsForEachPattern, [&] { return pairs.text(); }, tally);
        ASSERT_EQ(difference, "");
    }
    RecordProperty("patterns", std::to_string(tally.patterns));
    std::printf(
        "%llu patterns (%llu invalid, %llu not read), %llu pairs (%llu with a match), "
        "%llu abandoned\n",
        static_cast<unsigned long long>(tally.patterns),
        static_cast<unsigned long long>(tally.invalid),
        static_cast<unsigned long long>(tally.unread),
        static_cast<unsigned long long>(tally.compared),
        static_cast<unsigned long long>(tally.matched),
        static_cast<unsigned long long>(tally.abandoned));
    // A generator that makes nothing to compare would make the test pass.
    EXPECT_LT(tally.invalid, tally.patterns / 2);
    EXPECT_LT(tally.unread, tally.patterns / 10);
    EXPECT_GT(tally.matched, tally.compared / 4);
    EXPECT_LT(tally.abandoned, tally.compared / 20);
}

}  // namespace
