// A list for what a function puts together before its size is known.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

/// A list of which the first `kInside` elements stand in the list itself, so that most need no
/// memory from the heap. It stays where it is made, and its elements may move when it grows.
template <typename T, std::size_t kInside>
class ScratchList {
public:
    ScratchList() = default;
    ScratchList(const ScratchList&) = delete;
    ScratchList& operator=(const ScratchList&) = delete;
    ~ScratchList() {
        std::destroy_n(elements_, count_);
        release();
    }

    void push_back(T element) {
        if (count_ == room_) grow();
        std::construct_at(elements_ + count_, std::move(element));
        ++count_;
    }
    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] T* begin() { return elements_; }
    [[nodiscard]] T* end() { return elements_ + count_; }
    [[nodiscard]] const T* begin() const { return elements_; }
    [[nodiscard]] const T* end() const { return elements_ + count_; }
    [[nodiscard]] const T& operator[](std::size_t index) const { return elements_[index]; }

private:
    [[nodiscard]] T* inside() { return reinterpret_cast<T*>(inside_); }
    void release() {
        if (elements_ != inside()) ::operator delete(elements_);
    }
    [[gnu::noinline]] void grow() {
        auto* moved = static_cast<T*>(::operator new(2 * room_ * sizeof(T)));
        std::uninitialized_move_n(elements_, count_, moved);
        std::destroy_n(elements_, count_);
        release();
        elements_ = moved;
        room_ *= 2;
    }

    alignas(T) std::byte inside_[kInside * sizeof(T)];
    T* elements_ = inside();
    std::size_t count_ = 0;
    std::size_t room_ = kInside;
};
