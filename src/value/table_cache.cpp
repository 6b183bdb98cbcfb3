#include "value/table_cache.h"

#include <algorithm>

#include "value/numbers.h"
#include "value/text.h"

namespace {

constexpr std::size_t kSmallestSweep = 256;

/// A key text read back as a value: a decimal int, else what strtof reads whole, else the text.
Variable keyValueFromText(const std::string& text) {
    if (int number = 0; parseIntStrict(text, number)) return Variable::makeInt(number);
    if (float number = 0.0F; parseFloatStrict(text, number)) return Variable::makeFloat(number);
    return Variable(text);
}

std::shared_ptr<const TableSnapshot> makeSnapshot(const TableStorage& table) {
    auto snapshot = std::make_shared<TableSnapshot>();
    snapshot->keys.reserve(table.size());
    for (const auto& entry : table) snapshot->keys.push_back(entry.first);
    std::sort(snapshot->keys.begin(), snapshot->keys.end());
    snapshot->keyValues.reserve(table.size());
    for (const std::string& key : snapshot->keys) {
        snapshot->keyValues.push_back(keyValueFromText(key));
    }
    return snapshot;
}

}  // namespace

std::size_t TableSnapshot::positionOf(const std::string& key) const {
    if (index_.empty()) {
        index_.reserve(keys.size());
        for (std::size_t i = 0; i < keys.size(); ++i) index_.emplace(keys[i], i);
    }
    const auto found = index_.find(key);
    return found != index_.end() ? found->second : keys.size();
}

TableCacheEntry& TableCache::entryFor(const std::shared_ptr<TableStorage>& table) {
    // Sweeping when the cache has doubled keeps its cost in proportion to the tables used.
    if (entries_.size() >= sweepAt_) {
        sweep();
        sweepAt_ = std::max(kSmallestSweep, entries_.size() * 2);
    }
    TableCacheEntry& entry = entries_[table.get()];
    if (entry.owner.expired()) {
        entry = TableCacheEntry();
        entry.owner = table;
    }
    return entry;
}

std::shared_ptr<const TableSnapshot> TableCache::snapshot(
    const std::shared_ptr<TableStorage>& table) {
    if (table == nullptr) {
        static const auto kEmpty = std::make_shared<const TableSnapshot>();
        return kEmpty;
    }
    TableCacheEntry& entry = entryFor(table);
    if (entry.snapshotGeneration != entry.generation) {
        entry.snapshot = makeSnapshot(*table);
        entry.snapshotGeneration = entry.generation;
    }
    return entry.snapshot;
}

int TableCache::numericLength(const std::shared_ptr<TableStorage>& table) {
    if (table == nullptr) return 0;
    TableCacheEntry& entry = entryFor(table);
    if (entry.lengthGeneration != entry.generation) {
        std::string key;
        for (;;) {
            key.clear();
            appendIntFast(key, entry.numericLength + 1);
            if (table->find(key) == table->end()) break;
            ++entry.numericLength;
        }
        entry.lengthGeneration = entry.generation;
    }
    return entry.numericLength;
}

void TableCache::markMutated(const std::shared_ptr<TableStorage>& table, TableChange change) {
    if (table == nullptr || entries_.empty()) return;
    const auto found = entries_.find(table.get());
    if (found == entries_.end()) return;
    TableCacheEntry& entry = found->second;
    ++entry.generation;
    if (change == TableChange::KeysRemoved) entry.numericLength = 0;
    if (change == TableChange::LastKeyRemoved && entry.numericLength > 0) --entry.numericLength;
}

void TableCache::sweep() {
    std::erase_if(entries_, [](const auto& item) { return item.second.owner.expired(); });
}
