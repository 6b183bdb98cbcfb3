// An allocator that fails on demand. It replaces the program's own, so the tests that use it are a
// program apart.
#pragma once

#include <cstddef>
#include <cstdint>

/// What fails from the n-th allocation on.
enum class Shortage {
    Once,     // that one alone
    ForEver,  // that one and all that follow
};

/// While it lives, the `first`-th allocation (from 1) fails, and every one above `largest` bytes.
class FailingAllocations {
public:
    FailingAllocations(std::size_t first, Shortage shortage, std::size_t largest = SIZE_MAX);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    /// An allocation has failed.
    [[nodiscard]] static bool happened();
};

inline constexpr std::size_t kNoFailure = 0;
