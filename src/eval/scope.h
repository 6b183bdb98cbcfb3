// A scope: a short list of names and values, searched from the front.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "value/names.h"
#include "value/variable.h"

/// One variable of a scope.
struct ScopeEntry {
    Name name = nullptr;
    Variable value;
};

/// The variables of one block or one call, in order of first assignment. A scope never loses an
/// entry except by being destroyed whole. Scopes hold a handful of names, so a linear search over
/// interned names beats a map.
class Scope {
public:
    Scope() = default;
    ~Scope() { clear(); }
    Scope(Scope&& other) noexcept
        : entries_(std::move(other.entries_)),
          count_(std::exchange(other.count_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    Scope& operator=(Scope&&) = delete;
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] const ScopeEntry& operator[](std::size_t index) const { return entries_[index]; }
    [[nodiscard]] ScopeEntry& operator[](std::size_t index) { return entries_[index]; }
    /// The entry at `index`, or null if there are not so many.
    [[nodiscard]] const ScopeEntry* at(std::size_t index) const {
        return index < count_ ? &entries_[index] : nullptr;
    }

    /// The 0-based index of the first entry called `name`, or `size()`.
    [[nodiscard]] std::size_t find(Name name) const {
        std::size_t index = 0;
        while (index < count_ && entries_[index].name != name) ++index;
        return index;
    }
    /// Overwrites the entry called `name`, or appends one.
    void set(Name name, const Variable& value) {
        const std::size_t index = find(name);
        if (index < count_) {
            entries_[index].value = value;
        } else {
            append(name, Variable(value));  // a copy: growing moves the values of this scope
        }
    }
    /// Appends an entry with nil without looking for an older one of that name. Returns its value.
    Variable& append(Name name) {
        if (count_ == capacity_) grow(2 * capacity_ + 1);
        ScopeEntry& entry = entries_[count_++];
        entry.name = name;
        ++name->scopeEntries;
        return entry.value;
    }
    void append(Name name, Variable&& value) { append(name) = std::move(value); }
    void reserve(std::size_t count) {
        if (count > capacity_) grow(count);
    }

    /// Destroys the values, first to last; the storage stays for the next use.
    void clear() {
        for (std::size_t i = 0; i < count_; ++i) {
            --entries_[i].name->scopeEntries;
            entries_[i].value.setNil();
        }
        count_ = 0;
    }

private:
    [[gnu::noinline]] void grow(std::size_t capacity) {
        auto larger = std::make_unique<ScopeEntry[]>(capacity);
        for (std::size_t i = 0; i < count_; ++i) larger[i] = std::move(entries_[i]);
        entries_ = std::move(larger);
        capacity_ = capacity;
    }

    std::unique_ptr<ScopeEntry[]> entries_;  // the first `count_` are used, the others hold nil
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
};

/// A stack of scopes. It grows as a vector does, so that a scope's address changes when the stack
/// has to grow and at no other time: the slot caches compare addresses. A scope that has been
/// popped keeps its storage for the next push.
class ScopeStack {
public:
    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] const Scope& operator[](std::size_t index) const { return scopes_[index]; }
    [[nodiscard]] Scope& operator[](std::size_t index) { return scopes_[index]; }
    /// The innermost scope.
    [[nodiscard]] Scope& back() { return scopes_[count_ - 1]; }
    /// The scope `depth` below the innermost one.
    [[nodiscard]] const Scope& fromTop(std::size_t depth) const {
        return scopes_[count_ - 1 - depth];
    }

    /// Pushes an empty scope with room for `expectedEntries`.
    Scope& push(std::size_t expectedEntries) {
        if (count_ == made_) grow();
        Scope& scope = scopes_[count_];
        scope.reserve(expectedEntries);
        ++count_;  // last: the stack is as it was if memory runs out
        return scope;
    }
    void pop() { scopes_[--count_].clear(); }
    void popTo(std::size_t count) {
        while (count_ > count) pop();
    }
    void swap(ScopeStack& other) noexcept {
        scopes_.swap(other.scopes_);
        std::swap(count_, other.count_);
        std::swap(made_, other.made_);
    }

private:
    [[gnu::noinline]] void grow() {
        scopes_.emplace_back();
        ++made_;
    }

    std::vector<Scope> scopes_;  // the first `count_` are on the stack, the others are spare
    std::size_t count_ = 0;
    std::size_t made_ = 0;  // its size
};

/// A stack of pointers to variables. What is pushed has no content yet, and moves when more is
/// pushed; a caller asks for it again after that.
class BoundVariables {
public:
    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] Variable** from(std::size_t index) { return pointers_.data() + index; }
    void push(std::size_t count) {
        if (pointers_.size() - count_ < count) pointers_.resize(2 * (count_ + count));
        count_ += count;
    }
    void popTo(std::size_t count) { count_ = count; }

private:
    std::vector<Variable*> pointers_;  // the first `count_` are on the stack
    std::size_t count_ = 0;
};

/// The value of entry `index` if there is one and it is called `name`, else null.
[[nodiscard]] inline const Variable* getCachedScopeValue(const Scope& scope, Name name,
                                                         std::size_t index) {
    return index < scope.size() && scope[index].name == name ? &scope[index].value : nullptr;
}
