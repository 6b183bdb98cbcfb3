// A scope: a short list of names and values, searched from the front.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "eval/far_searches.h"
#include "value/names.h"
#include "value/variable.h"

/// One variable of a scope, where it stands.
struct ScopeEntry {
    Name name;
    Variable& value;
};

/// The variables of one block or one call, in order of first assignment. A scope never loses an
/// entry except by being destroyed whole. Scopes hold a handful of names, so a linear search over
/// interned names beats a map.
///
/// Names and values stand in arrays of the scope's own, or, in a scope that compiled code has
/// opened, in registers of that code: such a scope is a window into them.
class Scope {
public:
    Scope() = default;
    ~Scope() { clear(); }
    Scope(Scope&& other) noexcept
        : names_(std::exchange(other.names_, nullptr)),
          values_(std::exchange(other.values_, nullptr)),
          count_(std::exchange(other.count_, 0)),
          capacity_(std::exchange(other.capacity_, 0)),
          ownNames_(std::move(other.ownNames_)),
          ownValues_(std::move(other.ownValues_)),
          ownCapacity_(std::exchange(other.ownCapacity_, 0)) {}
    Scope& operator=(Scope&&) = delete;
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] ScopeEntry operator[](std::size_t index) const {
        return {names_[index], values_[index]};
    }

    /// The 0-based index of the first entry called `name`, or `size()`.
    [[nodiscard]] std::size_t find(Name name) const {
        std::size_t index = 0;
        while (index < count_ && names_[index] != name) ++index;
        return index;
    }
    /// Overwrites the entry called `name`, or appends one.
    void set(Name name, const Variable& value) {
        const std::size_t index = find(name);
        if (index < count_) {
            values_[index] = value;
        } else {
            append(name, Variable(value));  // a copy: growing moves the values of this scope
        }
    }
    /// Appends an entry with nil without looking for an older one of that name. Returns its value.
    Variable& append(Name name) {
        countNames();
        if (count_ == room()) grow(room() == 0 ? 4 : 2 * room() + 1);
        // The names of compiled code stand in their places already, and are not ours to write.
        if (names_[count_] != name) names_[count_] = name;
        ++name->scopeEntries;
        return values_[count_++];
    }
    void append(Name name, Variable&& value) { append(name) = std::move(value); }
    /// Makes an empty scope one with room for `count` entries of its own.
    void reserve(std::size_t count) {
        if (count > ownCapacity_) growOwn(static_cast<std::uint32_t>(count));
        names_ = ownNames_.get();
        values_ = ownValues_.get();
        capacity_ = ownCapacity_;
    }
    /// Makes an empty scope a window: its entries will be `values`, which hold nil and stay in
    /// place while the scope lives, under the names `names`, of which the first `count` are there.
    /// `capacity` is how many there can be, with `kUncounted` if they need not be counted.
    [[gnu::always_inline]] void openWindow(const Name* names, Variable* values, std::uint32_t count,
                                           std::uint32_t capacity) {
        names_ = const_cast<Name*>(names);
        values_ = values;
        count_ = count;
        capacity_ = capacity;
        if ((capacity & kUncounted) == 0) {
            for (std::uint32_t i = 0; i < count; ++i) ++names[i]->scopeEntries;
        }
    }
    /// The same with names of its own, since their order is not known before for all of them.
    void openWindowWithOwnNames(const Name* names, Variable* values, std::uint32_t count,
                                std::uint32_t capacity) {
        if (capacity > ownCapacity_) {
            capacity_ = 0;  // the mark goes even if this fails
            growOwn(capacity);
        }
        std::copy_n(names, capacity, ownNames_.get());
        openWindow(ownNames_.get(), values, count, capacity);
    }
    /// It is a window into the registers of compiled code.
    [[nodiscard]] bool isWindow() const { return values_ != ownValues_.get(); }
    /// A mark that stays until the scope is opened anew; see FarSearches.
    [[nodiscard]] bool isMarked() const { return (capacity_ & kMark) != 0; }
    void mark() const { capacity_ |= kMark; }
    /// Counts the next entry of a window, whose value stands in its place and whose name is known.
    void declareNext() {
        if ((capacity_ & kUncounted) == 0) ++names_[count_]->scopeEntries;
        ++count_;
    }
    /// Counts the names of a window that has been opened without.
    void countNames() {
        if ((capacity_ & kUncounted) == 0) return;
        capacity_ &= ~kUncounted;
        for (std::uint32_t i = 0; i < count_; ++i) ++names_[i]->scopeEntries;
    }

    /// Destroys the values, first to last; the storage stays for the next use.
    [[gnu::always_inline]] void clear() {
        if ((capacity_ & kUncounted) == 0) [[unlikely]] {
            for (std::uint32_t i = 0; i < count_; ++i) --names_[i]->scopeEntries;
        }
        Variable* const end = values_ + count_;
        for (Variable* value = values_; value != end; ++value) value->overwriteNil();
        count_ = 0;
    }

    /// Mark of a window's capacity: its names are not counted, see NameRecord.
    static constexpr std::uint32_t kUncounted = std::uint32_t{1} << 30U;

private:
    static constexpr std::uint32_t kMark = std::uint32_t{1} << 31U;

    [[nodiscard]] std::uint32_t room() const { return capacity_ & ~(kMark | kUncounted); }
    void growOwn(std::uint32_t capacity) {
        auto names = std::make_unique<Name[]>(capacity);
        auto values = std::make_unique<Variable[]>(capacity);
        ownNames_ = std::move(names);
        ownValues_ = std::move(values);
        ownCapacity_ = capacity;
    }
    [[gnu::noinline]] void grow(std::uint32_t capacity) {
        auto names = std::make_unique<Name[]>(capacity);
        auto values = std::make_unique<Variable[]>(capacity);
        for (std::uint32_t i = 0; i < count_; ++i) {
            names[i] = names_[i];
            values[i] = std::move(values_[i]);
        }
        ownNames_ = std::move(names);
        ownValues_ = std::move(values);
        ownCapacity_ = capacity;
        names_ = ownNames_.get();
        values_ = ownValues_.get();
        capacity_ = capacity;
    }

    Name* names_ = nullptr;  // the first `count_` are used, the other values hold nil
    Variable* values_ = nullptr;
    std::uint32_t count_ = 0;
    // Each opening sets it, so that the marks in its upper bits go without a step of their own.
    // They are no part of what the scope holds.
    mutable std::uint32_t capacity_ = 0;
    // Storage of its own, kept for the next use while the scope is a window.
    std::unique_ptr<Name[]> ownNames_;
    std::unique_ptr<Variable[]> ownValues_;
    std::uint32_t ownCapacity_ = 0;
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
    /// Grows as `count` pushes would, which cannot fail then.
    [[gnu::always_inline]] void prepare(std::size_t count) {
        while (made_ < count_ + count) grow();
    }
    /// Pushes an empty scope for the caller to open as a window.
    [[gnu::always_inline]] Scope& pushWindow() {
        if (count_ == made_) grow();
        return scopes_[count_++];
    }
    [[gnu::always_inline]] void pop() { scopes_[--count_].clear(); }
    void popTo(std::size_t count) {
        while (count_ > count) pop();
    }
    void swap(ScopeStack& other) noexcept {
        scopes_.swap(other.scopes_);
        std::swap(count_, other.count_);
        std::swap(made_, other.made_);
        far_.swap(other.far_);
    }

    /// The innermost entry called `name` in the scopes [floor, ceiling), counted from the outermost
    /// one. In the long run its cost does not depend on how many there are.
    [[nodiscard]] EntryPlace find(Name name, std::size_t floor, std::size_t ceiling) const {
        const std::size_t near = ceiling > floor + kNear ? ceiling - kNear : floor;
        for (std::size_t i = ceiling; i-- > near;) {
            const std::size_t entry = scopes_[i].find(name);
            if (entry < scopes_[i].size()) return {i, entry};
        }
        return near == floor ? EntryPlace{} : findFar(name, floor, near);
    }
    /// Counts the names of all scopes, those that they will get included.
    void countNames() {
        for (std::size_t i = 0; i < count_; ++i) scopes_[i].countNames();
    }
    /// How many scopes have been looked into by all searches that went far.
    [[nodiscard]] std::uint64_t farScopesSearched() const {
        return far_ != nullptr ? far_->scopesSearched : 0;
    }

    /// Destroys spare scopes that are far more than those in use, of which `expected` more will be
    /// there soon, and gives their memory back to the system. The addresses of scopes stay what
    /// they are and will be. True if there were such.
    bool giveBack(std::size_t expected = 0) noexcept;

private:
    /// So many scopes are looked into before anything is remembered.
    static constexpr std::size_t kNear = 16;

    [[gnu::noinline]] void grow() {
        scopes_.emplace_back();
        ++made_;
    }
    [[nodiscard]] EntryPlace findFar(Name name, std::size_t floor, std::size_t ceiling) const;

    std::vector<Scope> scopes_;  // the first `count_` are on the stack, the others are spare
    std::size_t count_ = 0;
    std::size_t made_ = 0;                      // its size
    mutable std::unique_ptr<FarSearches> far_;  // made by the first search that goes far
};

/// Puts off the opening of block scopes until somebody looks at them.
class BlockScopeSource {
public:
    /// Opens what has been put off: the scopes are as they should be now.
    virtual void openBlocks() = 0;

protected:
    ~BlockScopeSource() = default;
};

/// The block scopes. Compiled code that knows where its variables are puts off opening its own;
/// whoever looks here finds them.
class BlockScopeStack {
public:
    [[nodiscard]] std::size_t size() const { return opened().size(); }
    [[nodiscard]] bool empty() const { return size() == 0; }
    [[nodiscard]] const Scope& operator[](std::size_t index) const { return opened()[index]; }
    [[nodiscard]] Scope& operator[](std::size_t index) { return opened()[index]; }
    [[nodiscard]] Scope& back() { return opened().back(); }
    [[nodiscard]] const Scope& fromTop(std::size_t depth) const { return opened().fromTop(depth); }
    [[nodiscard]] const ScopeStack& all() const { return opened(); }
    [[nodiscard]] ScopeStack& all() { return opened(); }
    Scope& push(std::size_t expectedEntries) { return opened().push(expectedEntries); }
    void pop() { opened().pop(); }
    void popTo(std::size_t count) { opened().popTo(count); }
    /// Other scopes take the place of these, for a flow of their own or to come back from it.
    void swap(ScopeStack& other) {
        // Behind this, the source has nothing left to open among those that go.
        opened().swap(other);
    }

    /// Who puts off opening block scopes; it lives as long as these are in use.
    void setSource(BlockScopeSource& source) { source_ = &source; }
    /// The source has put off opening one more. The stack grows as it would have grown: that
    /// changes the addresses of scopes, which caches compare.
    [[gnu::always_inline]] void putOff() {
        scopes_.prepare(putOff_ + 1);
        ++putOff_;
        isPutOff_ = true;
    }
    /// So many of those have been opened, or are over.
    void forget(std::size_t count) { putOff_ -= count; }
    /// See ScopeStack.
    bool giveBack() noexcept { return scopes_.giveBack(putOff_); }
    /// The source has put off something within one of its blocks.
    void putOffEntry() { isPutOff_ = true; }
    /// The source may have put off something since it has opened its blocks.
    [[nodiscard]] bool isPutOff() const { return isPutOff_; }
    /// For the source itself: only those that are open.
    [[nodiscard]] ScopeStack& open() { return scopes_; }
    [[nodiscard]] const ScopeStack& open() const { return scopes_; }

private:
    ScopeStack& opened() const {
        if (isPutOff_) [[unlikely]] {
            source_->openBlocks();
            isPutOff_ = false;
        }
        return scopes_;
    }

    mutable ScopeStack scopes_;
    mutable bool isPutOff_ = false;
    std::size_t putOff_ = 0;
    BlockScopeSource* source_ = nullptr;
};

/// The value of entry `index` if there is one and it is called `name`, else null.
[[nodiscard]] inline const Variable* getCachedScopeValue(const Scope& scope, Name name,
                                                         std::size_t index) {
    return index < scope.size() && scope[index].name == name ? &scope[index].value : nullptr;
}
