// The table of the language: a hash map from key text to value, and what is remembered about it.
//
// The map walks in the order of a standard map from std::string with the standard hash, since
// scripts see that order. Its keys are counted texts that know their hash, so that a look-up with a
// text that is at hand computes none and compares addresses first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "value/text_block.h"
#include "value/variable.h"
#include "value/walk_order_map.h"

/// The standard hash of a text. It is not declared noexcept: the map then keeps each hash beside
/// its entry, and reads no text to tell two keys apart.
struct TextHash {
    using is_transparent = void;
    [[nodiscard]] std::uint64_t operator()(const Text& text) const { return text->hash(); }
    [[nodiscard]] std::uint64_t operator()(std::string_view text) const {
        return standardTextHash(text);
    }
};

struct TextEqual {
    using is_transparent = void;
    [[nodiscard]] bool operator()(const Text& a, const Text& b) const {
        return a == b || (a->hash() == b->hash() && a->text == b->text);
    }
    [[nodiscard]] bool operator()(std::string_view a, const Text& b) const { return a == b->text; }
    [[nodiscard]] bool operator()(const Text& a, std::string_view b) const { return a->text == b; }
};

/// The decimal text of an int as a key. Those from 0 to 1023 are ready.
[[nodiscard]] Text intKeyText(int number);

/// The key text of `key`; raises as `keyToString` does.
[[nodiscard]] Text keyText(const Variable& key);

/// The keys of a table in byte order of their texts, as they stood at one moment. A walk holds it
/// by shared pointer: a nested walk of the same table may make a newer one meanwhile.
struct TableSnapshot {
    std::vector<Text> keys;
    std::vector<Variable> keyValues;  // each key read back as an int, a float or a string

    /// The 0-based position of `key` in `keys`, or the number of keys if it is not among them. In
    /// constant time: the index is made at the first question, since most walks ask none.
    [[nodiscard]] std::size_t positionOf(std::string_view key) const;

private:
    mutable std::unordered_map<Text, std::size_t, TextHash, TextEqual> index_;
};

class TableStorage {
public:
    using Map = WalkOrderMap<Text, Variable, TextHash, TextEqual>;
    using const_iterator = Map::const_iterator;
    using Layout = Map::Layout;

    TableStorage() = default;
    TableStorage(std::initializer_list<std::pair<std::string_view, Variable>> entries);
    TableStorage(const TableStorage& other);
    TableStorage(TableStorage&& other) noexcept;
    TableStorage& operator=(const TableStorage&) = delete;
    TableStorage& operator=(TableStorage&&) = delete;
    ~TableStorage() = default;

    [[nodiscard]] std::size_t size() const { return map_.size(); }
    [[nodiscard]] bool empty() const { return map_.empty(); }
    [[nodiscard]] float max_load_factor() const { return map_.max_load_factor(); }
    // The entries in the map's own order.
    [[nodiscard]] const_iterator begin() const { return map_.begin(); }
    [[nodiscard]] const_iterator end() const { return map_.end(); }

    // The value under a key, or null. Its address holds until `generation` moves.
    [[nodiscard]] const Variable* find(std::string_view key) const { return valueAt(key); }
    [[nodiscard]] const Variable* find(const Text& key) const {
        return const_cast<TableStorage*>(this)->find(key);
    }
    [[nodiscard]] Variable* find(std::string_view key) {
        return const_cast<Variable*>(valueAt(key));
    }
    [[nodiscard, gnu::always_inline]] Variable* find(const Text& key) {
        Variable* const value = map_.valueAt(key->place, key);
        return value != nullptr ? value : findAndNote(key);
    }
    /// The same by a value; raises "Table key must be string, number, or bool" for other kinds.
    [[nodiscard]] const Variable* findValue(const Variable& key) const;
    [[nodiscard]] Variable* findValue(const Variable& key) {
        return const_cast<Variable*>(std::as_const(*this).findValue(key));
    }
    /// The same by the text of an int.
    [[nodiscard]] const Variable* findInt(int key) const;
    [[nodiscard]] Variable* findInt(int key) {
        return const_cast<Variable*>(std::as_const(*this).findInt(key));
    }
    template <typename Key>
    [[nodiscard]] bool contains(const Key& key) const {
        return find(key) != nullptr;
    }
    /// The value under `key`; raises "unordered_map::at: key not found".
    template <typename Key>
    [[nodiscard]] const Variable& at(const Key& key) const {
        const Variable* value = find(key);
        if (value == nullptr) throwKeyNotFound();
        return *value;
    }

    // The value under a key, which is made with nil if it is not there.
    Variable& operator[](const Text& key);
    Variable& operator[](std::string_view key);

    /// Has the next `count` new entries made in one piece of memory.
    void reserve(std::size_t count) { map_.reserve(count); }
    /// Adds the keys of a layout to a table that never had one. Their values are nil; `give` gets
    /// the number of each key, counted from 0, and its value.
    template <class Give>
    void fill(const Layout& layout, Give give) {
        map_.fill(layout, give);
        keyAdded();
    }

    /// Adds an entry unless the key is there.
    void emplace(std::string_view key, Variable value);

    /// Removes a key. False if it is not there.
    bool erase(std::string_view key);
    void clear();

    /// Moves whenever a key is removed, and is never the same for two tables: while it stands, the
    /// addresses of this table's values hold.
    [[nodiscard]] std::uint64_t generation() const { return generation_; }

    /// The keys in order, made anew only if the set of keys has changed. Never null.
    [[nodiscard]] const std::shared_ptr<const TableSnapshot>& snapshot() const;

    /// The border: the number of keys "1", "2", ... up to the first missing one.
    [[nodiscard]] int border() const;

private:
    [[nodiscard]] Variable* findAndNote(const Text& key);
    [[noreturn]] static void throwKeyNotFound();
    [[nodiscard]] static std::uint64_t nextGeneration() noexcept;

    template <typename Key>
    [[nodiscard]] const Variable* valueAt(const Key& key) const {
        const auto found = map_.find(key);
        return found != map_.end() ? &found->second : nullptr;
    }
    void keyAdded() {
        if (snapshot_ != nullptr) snapshot_.reset();
        borderIsExact_ = false;
    }
    void keyRemoved();

    Map map_;
    std::uint64_t generation_ = nextGeneration();
    mutable std::shared_ptr<const TableSnapshot> snapshot_;  // null when stale
    // The keys "1" to the text of this number are there; all of them if it is exact. A removal
    // lowers it at once, so a growing table is not measured from 1 again.
    mutable int leastBorder_ = 0;
    mutable bool borderIsExact_ = true;
};

inline TableStorage& Variable::rawTable() const noexcept { return *tableContent(); }
