// What is remembered about tables that have been walked or measured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "value/variable.h"

/// The keys of a table in byte order of their texts, as they stood at one moment. A walk holds it
/// by shared pointer: a nested walk of the same table may make a newer one meanwhile.
struct TableSnapshot {
    std::vector<std::string> keys;
    std::vector<Variable> keyValues;  // each key read back as an int, a float or a string

    /// The 0-based position of `key` in `keys`, or the number of keys if it is not among them. In
    /// constant time: the index is made at the first question, since most walks ask none.
    [[nodiscard]] std::size_t positionOf(const std::string& key) const;

private:
    mutable std::unordered_map<std::string, std::size_t> index_;
};

/// How the key set of a table has changed.
enum class TableChange : std::uint8_t {
    KeyAdded,        // one key is new; none is gone
    KeysRemoved,     // keys are gone, or anything else happened
    LastKeyRemoved,  // of the keys "1", "2", ... up to the border, the last one is gone
};

struct TableCacheEntry {
    std::weak_ptr<TableStorage> owner;  // proves that the address is still the same table
    std::uint64_t generation = 0;       // moves with each change of the key set
    std::uint64_t snapshotGeneration = ~std::uint64_t{0};  // of `snapshot`
    std::shared_ptr<const TableSnapshot> snapshot;
    std::uint64_t lengthGeneration = ~std::uint64_t{0};  // of `numericLength`
    // The border. While stale it is still a lower bound, since only removals can lower a border
    // and they reset it; so a growing table is not measured from 1 again.
    int numericLength = 0;
};

/// The cache, keyed by the address of the table's map so that a look-up counts no references. An
/// entry keeps no table alive; it goes stale when its table dies, and `owner` tells when another
/// table has the address. A table without an entry has nothing cached, so changing it costs one
/// look-up.
class TableCache {
public:
    /// The keys of `table` in order, made anew only if the key set has changed. Never null; a null
    /// table gives an empty snapshot.
    [[nodiscard]] std::shared_ptr<const TableSnapshot> snapshot(
        const std::shared_ptr<TableStorage>& table);

    /// The border of `table`: the number of keys "1", "2", ... up to the first missing one. 0 for
    /// a null table.
    [[nodiscard]] int numericLength(const std::shared_ptr<TableStorage>& table);

    /// Must be called after any change to the set of keys; not for a change of value.
    void markMutated(const std::shared_ptr<TableStorage>& table, TableChange change);

    /// Drops the entries of tables that are gone.
    void sweep();

    [[nodiscard]] std::size_t size() const { return entries_.size(); }

private:
    TableCacheEntry& entryFor(const std::shared_ptr<TableStorage>& table);

    std::unordered_map<const TableStorage*, TableCacheEntry> entries_;
    std::size_t sweepAt_ = 256;  // entry count at which the next sweep is due
};
