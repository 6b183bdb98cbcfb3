#include "library/random_engine.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

TEST(RandomEngine, GivesThePublishedOutputs) {
    RandomEngine engine;
    engine.seed(5489);
    EXPECT_EQ(engine.next(), 3499211612U);
    EXPECT_EQ(engine.next(), 581869302U);
    EXPECT_EQ(engine.next(), 3890346734U);
    EXPECT_EQ(engine.next(), 3586334585U);
    EXPECT_EQ(engine.next(), 545404204U);
    std::uint32_t output = 0;
    for (int i = 6; i <= 10000; ++i) output = engine.next();
    EXPECT_EQ(output, 4123659995U);
}

TEST(RandomEngine, AgreesWithTheStandardEngineForAnySeed) {
    for (const std::uint32_t seed : {0U, 1U, 42U, 2147483648U, 4294967295U}) {
        RandomEngine engine;
        engine.seed(seed);
        std::mt19937 standard(seed);
        for (int i = 0; i < 2000; ++i) ASSERT_EQ(engine.next(), standard()) << seed << ", " << i;
    }
}

TEST(RandomEngine, StartsOverWithASeed) {
    RandomEngine engine;
    engine.seed(7);
    const std::uint32_t first = engine.next();
    for (int i = 0; i < 1000; ++i) static_cast<void>(engine.next());
    engine.seed(7);
    EXPECT_EQ(engine.next(), first);
}

}  // namespace
