#include "library/host_stack.h"

#include <gtest/gtest.h>

#include <cstddef>

#include "host/large_stack.h"

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

TEST(HostStack, HasRoomForLittle) {
    EXPECT_TRUE(hasHostStackFor(0, 1000));
    EXPECT_TRUE(hasHostStackFor(static_cast<std::size_t>(-1), 0));
    EXPECT_TRUE(hasHostStackFor(100, 1000));
}

TEST(HostStack, KnowsTheStackThatRuns) {
    bool hasSome = false;
    bool hasAnything = true;
    bool hasAnyCount = true;
    runOnLargeStack([&] {
        hasSome = hasHostStackFor(8 * kMebibyte, 1);
        hasAnything = hasHostStackFor(1, std::size_t{1} << 50);
        hasAnyCount = hasHostStackFor(static_cast<std::size_t>(-1), 1000);
    });
    EXPECT_TRUE(hasSome);
    EXPECT_FALSE(hasAnything);
    EXPECT_FALSE(hasAnyCount);
    // Back on the stack of the first thread.
    EXPECT_FALSE(hasHostStackFor(std::size_t{1} << 30, std::size_t{1} << 20));
}

}  // namespace
