// The elements of an array, in one block of memory. To its users it is a vector, which can also
// lose elements at the front without moving the others: a queue takes the same time however long it
// is.
//
// 1. `first_` and `last_` bound the elements; the block may have room in front of them too. An
// element
//    is found as in a vector, with nothing added.
// 2. `capacity()` is what a vector would have after the same calls, since scripts see it. The block
//    has at least that many places. It has more once a queue has run into its end, and while an
//    array grows to its first few elements, which would otherwise move at each of them.
// 3. Elements are moved as bytes: a Variable is two words that know nothing of their address.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <utility>

#include "value/variable.h"

/// A dense sequence; the language counts its positions from 1.
class ArrayStorage {
public:
    using value_type = Variable;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using reference = Variable&;
    using const_reference = const Variable&;
    using iterator = Variable*;
    using const_iterator = const Variable*;

    ArrayStorage() noexcept = default;
    ArrayStorage(std::initializer_list<Variable> elements)
        : ArrayStorage(std::span(elements.begin(), elements.size())) {}
    /// With copies of these.
    explicit ArrayStorage(std::span<const Variable> elements);
    ArrayStorage(const ArrayStorage& other) : ArrayStorage(std::span<const Variable>(other)) {}
    ArrayStorage(ArrayStorage&& other) noexcept { swap(other); }
    ArrayStorage& operator=(const ArrayStorage& other) {
        ArrayStorage copy(other);
        swap(copy);
        return *this;
    }
    ArrayStorage& operator=(ArrayStorage&& other) noexcept {
        ArrayStorage taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~ArrayStorage();

    [[nodiscard]] std::size_t size() const noexcept {
        return static_cast<std::size_t>(last_ - first_);
    }
    [[nodiscard]] bool empty() const noexcept { return first_ == last_; }
    /// How many elements there are before the next that is added makes it grow.
    [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }
    /// No array has more elements; whoever wants more gets std::bad_alloc.
    [[nodiscard]] static std::size_t max_size() noexcept;

    [[nodiscard]] Variable* data() noexcept { return first_; }
    [[nodiscard]] const Variable* data() const noexcept { return first_; }
    [[nodiscard]] Variable* begin() noexcept { return first_; }
    [[nodiscard]] const Variable* begin() const noexcept { return first_; }
    [[nodiscard]] Variable* end() noexcept { return last_; }
    [[nodiscard]] const Variable* end() const noexcept { return last_; }
    [[nodiscard]] Variable& operator[](std::size_t place) noexcept { return first_[place]; }
    [[nodiscard]] const Variable& operator[](std::size_t place) const noexcept {
        return first_[place];
    }
    [[nodiscard]] Variable& front() noexcept { return *first_; }
    [[nodiscard]] const Variable& front() const noexcept { return *first_; }
    [[nodiscard]] Variable& back() noexcept { return last_[-1]; }
    [[nodiscard]] const Variable& back() const noexcept { return last_[-1]; }

    /// The value may be one of the elements.
    void push_back(const Variable& value) {
        if (last_ == end_) [[unlikely]] {
            pushSlowly(value);
            return;
        }
        std::construct_at(last_, value);
        ++last_;
    }
    void push_back(Variable&& value) {
        if (last_ == end_) [[unlikely]] {
            pushSlowly(std::move(value));
            return;
        }
        std::construct_at(last_, std::move(value));
        ++last_;
    }
    void pop_back() noexcept {
        --last_;
        std::destroy_at(last_);
    }
    /// Puts the value in front of the element at `place`, and moves those of the shorter side if it
    /// can.
    void insert(Variable* place, Variable value);
    /// Removes the element at `place`; those of the shorter side move.
    void erase(Variable* place) noexcept;
    void clear() noexcept;
    void reserve(std::size_t wanted);
    /// New elements are nil.
    void resize(std::size_t wanted);
    void swap(ArrayStorage& other) noexcept {
        std::swap(first_, other.first_);
        std::swap(last_, other.last_);
        std::swap(end_, other.end_);
        std::swap(capacity_, other.capacity_);
        std::swap(room_, other.room_);
    }

private:
    [[nodiscard]] Variable* block() const noexcept { return first_ - room_.offset; }
    static constexpr std::size_t kFewPlaces = 4;
    [[nodiscard]] static std::size_t widePlaces(std::size_t capacity) noexcept {
        return std::max(capacity + capacity / 2 + 1, kFewPlaces);
    }
    [[nodiscard]] std::size_t places() const noexcept {
        return room_.isWide != 0 ? widePlaces(capacity_) : capacity_;
    }
    /// The elements begin so many places behind the begin of the block.
    void beginAt(Variable* block, std::size_t offset, std::size_t count) noexcept;
    /// The capacity of a vector that grows for so many elements more.
    [[nodiscard]] std::size_t grownBy(std::size_t more) const;
    /// Moves the elements into a new block for that capacity, `offset` places behind its begin.
    void moveTo(std::size_t capacity, bool isWide, std::size_t offset);
    /// Moves the elements within the block.
    void slideTo(std::size_t offset) noexcept;
    void makeRoomBehind();
    void pushSlowly(Variable value);
    void makeRoomInFront();

    Variable* first_ = nullptr;
    Variable* last_ = nullptr;
    Variable* end_ = nullptr;  // where adding takes more: the capacity or the block ends there
    std::uint32_t capacity_ = 0;
    struct Room {
        std::uint32_t offset : 31 = 0;  // of the first element in the block
        std::uint32_t isWide : 1 = 0;   // the block has more places than the capacity
    } room_;
};

inline ArrayStorage& Variable::rawArray() const noexcept { return *arrayContent(); }
