// A scope: a short list of names and values, searched from the front.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "value/names.h"
#include "value/variable.h"

/// One variable of a scope.
struct ScopeEntry {
    Name name;
    Variable value;
};

/// The variables of one block or one call, in order of first assignment. A scope never loses an
/// entry except by being destroyed whole. Scopes hold a handful of names, so a linear search over
/// interned names beats a map.
class Scope {
public:
    Scope() = default;
    ~Scope() { uncountEntries(); }
    Scope(Scope&& other) noexcept = default;
    Scope& operator=(Scope&& other) noexcept {
        uncountEntries();
        entries_ = std::move(other.entries_);
        other.entries_.clear();
        return *this;
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    /// A scope that uses the storage of `entries`, which must be empty.
    explicit Scope(std::vector<ScopeEntry>&& entries) : entries_(std::move(entries)) {}

    [[nodiscard]] std::size_t size() const { return entries_.size(); }
    [[nodiscard]] bool empty() const { return entries_.empty(); }
    [[nodiscard]] const ScopeEntry& operator[](std::size_t index) const { return entries_[index]; }
    [[nodiscard]] ScopeEntry& operator[](std::size_t index) { return entries_[index]; }

    /// The 0-based index of the first entry called `name`, or `size()`.
    [[nodiscard]] std::size_t find(Name name) const {
        std::size_t index = 0;
        while (index < entries_.size() && entries_[index].name != name) ++index;
        return index;
    }
    /// Overwrites the entry called `name`, or appends one.
    void set(Name name, const Variable& value) {
        const std::size_t index = find(name);
        if (index < entries_.size()) {
            entries_[index].value = value;
        } else {
            append(name, value);
        }
    }
    /// Appends an entry without looking for an older one of that name.
    void append(Name name, const Variable& value) {
        entries_.push_back({name, value});
        ++name->scopeEntries;
    }
    void append(Name name, Variable&& value) {
        entries_.push_back({name, std::move(value)});
        ++name->scopeEntries;
    }
    void reserve(std::size_t count) { entries_.reserve(count); }

    /// Gives up the entries, values destroyed, for their storage.
    [[nodiscard]] std::vector<ScopeEntry> release() {
        uncountEntries();
        entries_.clear();
        return std::move(entries_);
    }

private:
    void uncountEntries() {
        for (const ScopeEntry& entry : entries_) --entry.name->scopeEntries;
    }

    std::vector<ScopeEntry> entries_;
};

/// The value of entry `index` if there is one and it is called `name`, else null.
[[nodiscard]] inline const Variable* getCachedScopeValue(const Scope& scope, Name name,
                                                         std::size_t index) {
    return index < scope.size() && scope[index].name == name ? &scope[index].value : nullptr;
}
