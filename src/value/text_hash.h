// The hash of texts. The order in which a table is walked follows from it, and scripts see that
// order, so it is the same wherever the interpreter is built: that of the standard library which
// the programs are built with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>

/// What std::hash gives for a text where that is the library at hand and addresses have 64 bits,
/// written out for those that have another one: MurmurHash64A by the little-endian words of the
/// text, with the library's seed.
[[nodiscard]] inline std::uint64_t writtenOutTextHash(std::string_view text) noexcept {
    constexpr std::uint64_t kSeed = 0xc70f6907;
    constexpr std::uint64_t kFactor = 0xc6a4a7935bd1e995;
    const auto mixed = [](std::uint64_t bits) { return bits ^ (bits >> 47U); };

    std::uint64_t hash = kSeed ^ (text.size() * kFactor);
    const char* at = text.data();
    const char* const end = at + text.size() / 8 * 8;
    for (; at != end; at += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, at, sizeof(word));
        hash = (hash ^ (mixed(word * kFactor) * kFactor)) * kFactor;
    }
    if (const std::size_t rest = text.size() % 8; rest != 0) {
        std::uint64_t word = 0;
        std::memcpy(&word, at, rest);
        hash = (hash ^ word) * kFactor;
    }
    return mixed(mixed(hash) * kFactor);
}

/// The hash of `text`.
[[nodiscard]] inline std::uint64_t standardTextHash(std::string_view text) noexcept {
#ifdef __GLIBCXX__
    static_assert(sizeof(std::size_t) == sizeof(std::uint64_t));
    return std::hash<std::string_view>()(text);
#else
    return writtenOutTextHash(text);
#endif
}
