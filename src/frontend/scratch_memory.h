// Memory for what a function puts together before its size is known.
#pragma once

#include <array>
#include <cstddef>
#include <memory_resource>

/// A little memory on the stack, for vectors that last no longer than this does; they get more from
/// the heap when it is used up. Nothing is given back before the end.
class ScratchMemory {
public:
    ScratchMemory() = default;
    ScratchMemory(const ScratchMemory&) = delete;
    ScratchMemory& operator=(const ScratchMemory&) = delete;

    /// What a vector takes as its allocator.
    [[nodiscard]] std::pmr::memory_resource* resource() { return &resource_; }

private:
    alignas(std::max_align_t) std::array<std::byte, 1024> bytes_;
    std::pmr::monotonic_buffer_resource resource_{bytes_.data(), bytes_.size()};
};
