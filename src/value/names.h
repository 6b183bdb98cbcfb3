// Interned identifiers: each name stands once, so that two names are equal exactly when their
// addresses are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kNoGlobalSlot = static_cast<std::size_t>(-1);

/// What the interpreter keeps of one identifier.
struct NameRecord {
    std::string text;
    /// How many entries of living scopes have this name, those of a waiting coroutine included, as
    /// far as they are counted.
    /// With none, the name can only be a global, and no scope has to be searched: without this
    /// count a deep recursion would search all its frames for each global.
    std::size_t scopeEntries = 0;
    /// The compiled form puts off opening block scopes. A name that any of those may hold is marked
    /// in `scopeEntries` by this, so that one comparison tells both.
    static constexpr std::size_t kMayBeInBlocks = std::size_t{1} << (6 * sizeof(std::size_t));
    void markForBlocks() { scopeEntries |= kMayBeInBlocks; }
    /// The scopes of compiled functions do not count their names where none of these is a global's:
    /// nobody asks then. A name that any such scope may hold has this mark.
    static constexpr std::size_t kMayBeInFrames = 2 * kMayBeInBlocks;
    void markForFrames() { scopeEntries |= kMayBeInFrames; }
    void unmarkForFrames() { scopeEntries &= ~kMayBeInFrames; }
    [[nodiscard]] bool mayBeInFrames() const { return (scopeEntries & kMayBeInFrames) != 0; }
    /// An entry that is counted has the name.
    [[nodiscard]] bool isCounted() const {
        return (scopeEntries & ~(kMayBeInBlocks | kMayBeInFrames)) != 0;
    }
    /// An entry of a scope that is open may have the name.
    [[nodiscard]] bool mayBeInScopes() const { return (scopeEntries & ~kMayBeInBlocks) != 0; }
    /// The slot of the global of this name, once it has been looked up; slots never change.
    std::size_t globalSlot = kNoGlobalSlot;
};

/// An interned identifier. It lives as long as its NamePool.
using Name = NameRecord*;

/// The interpreter's set of names: a hash table of open addressing. Each identifier of each line is
/// looked up here once.
class NamePool {
public:
    /// The one record for `text`.
    [[nodiscard]] Name intern(std::string_view text) {
        const Name known = placeOf(text);
        return known != nullptr ? known : add(text);
    }
    /// The record for `text` if there is one, else null.
    [[nodiscard]] Name find(std::string_view text) { return placeOf(text); }

private:
    static constexpr std::size_t kFirstSize = 512;  // a power of two, as all sizes are

    /// Eight bytes at a time; the last step takes some again.
    static std::size_t hashOf(std::string_view text) {
        const std::size_t size = text.size();
        const auto bytes = [&text](std::size_t at, std::size_t count) {
            std::uint64_t word = 0;
            std::memcpy(&word, text.data() + at, count);
            return word;
        };
        const auto mixed = [](std::uint64_t hash) {
            return (hash ^ hash >> 32U) * 0x9E3779B97F4A7C15U;
        };
        std::uint64_t hash = size;
        if (size >= 8) {
            for (std::size_t at = 0; at + 8 < size; at += 8) hash = mixed(hash ^ bytes(at, 8));
            hash ^= bytes(size - 8, 8);
        } else if (size >= 4) {
            hash ^= bytes(0, 4) << 32U ^ bytes(size - 4, 4);
        } else if (size > 0) {
            hash ^= bytes(0, 1) << 24U ^ bytes(size / 2, 1) << 16U ^ bytes(size - 1, 1) << 8U;
        }
        return static_cast<std::size_t>(mixed(hash) >> 32U);
    }
    /// Where `text` stands, or the free place where it belongs.
    Name& placeOf(std::string_view text) {
        const std::size_t mask = places_.size() - 1;
        std::size_t at = hashOf(text) & mask;
        while (places_[at] != nullptr && places_[at]->text != text) at = (at + 1) & mask;
        return places_[at];
    }
    Name add(std::string_view text) {
        if (2 * records_.size() >= places_.size()) grow();
        const Name added = &records_.emplace_back(NameRecord{std::string(text)});
        placeOf(text) = added;
        return added;
    }
    void grow() {
        places_.assign(2 * places_.size(), nullptr);
        for (NameRecord& record : records_) placeOf(record.text) = &record;
    }

    std::deque<NameRecord> records_;                            // never moves one
    std::vector<Name> places_ = std::vector<Name>(kFirstSize);  // at most half of them are taken
};
