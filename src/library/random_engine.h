// The interpreter's random numbers: the standard 32-bit Mersenne Twister (MT19937), stepped by
// hand so that a fixed seed gives the same sequence everywhere.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

class RandomEngine {
public:
    /// Rebuilds the state from `seed` by the standard recurrence.
    void seed(std::uint32_t seed);
    /// The next 32-bit output.
    [[nodiscard]] std::uint32_t next();

private:
    void refill();

    std::array<std::uint32_t, 624> words_{};
    std::size_t index_ = 0;  // of the next word; a multiple of the size means: refill first
};
