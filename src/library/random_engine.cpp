#include "library/random_engine.h"

namespace {

// The parameters of MT19937.
constexpr std::size_t kShift = 397;
constexpr std::uint32_t kUpperBit = 0x80000000U;
constexpr std::uint32_t kLowerBits = 0x7FFFFFFFU;
constexpr std::uint32_t kTwist = 0x9908B0DFU;
constexpr std::uint32_t kSeedFactor = 1812433253U;

std::uint32_t tempered(std::uint32_t word) {
    word ^= word >> 11;
    word ^= (word << 7) & 0x9D2C5680U;
    word ^= (word << 15) & 0xEFC60000U;
    return word ^ (word >> 18);
}

}  // namespace

void RandomEngine::seed(std::uint32_t seed) {
    words_[0] = seed;
    for (std::size_t i = 1; i < words_.size(); ++i) {
        const std::uint32_t previous = words_[i - 1];
        words_[i] = kSeedFactor * (previous ^ (previous >> 30)) + static_cast<std::uint32_t>(i);
    }
    index_ = 0;
}

std::uint32_t RandomEngine::next() {
    if (index_ % words_.size() == 0) refill();
    return tempered(words_[index_++]);
}

void RandomEngine::refill() {
    const std::size_t count = words_.size();
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t mixed =
            (words_[i] & kUpperBit) | (words_[(i + 1) % count] & kLowerBits);
        const std::uint32_t twist = (mixed & 1U) != 0 ? kTwist : 0U;
        words_[i] = words_[(i + kShift) % count] ^ (mixed >> 1) ^ twist;
    }
    index_ = 0;
}
