// A sequence that never changes once made, in one allocation; its copies share the elements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

/// What a line's parse is made of: most of these arrays hold one element or none, there are
/// hundreds of thousands of them, and the copies of a line share them. So an array is one pointer,
/// null if it is empty. Copies are counted without regard to threads.
template <typename T>
class SharedArray {
public:
    SharedArray() = default;
    SharedArray(std::initializer_list<T> elements) : SharedArray(copyOf(elements)) {}
    SharedArray(const SharedArray& other) noexcept : block_(other.block_) {
        if (block_ != nullptr) ++block_->owners;
    }
    SharedArray(SharedArray&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    SharedArray& operator=(SharedArray other) noexcept {
        std::swap(block_, other.block_);
        return *this;
    }
    ~SharedArray() {
        if (block_ != nullptr && --block_->owners == 0) destroy();
    }

    /// Holds what the container `elements` holds.
    template <typename Container>
    [[nodiscard]] static SharedArray copyOf(const Container& elements) {
        return make(elements.begin(), elements.size());
    }
    /// The same with the elements moved.
    template <typename Container>
    [[nodiscard]] static SharedArray movedFrom(Container& elements) {
        return make(std::make_move_iterator(elements.begin()), elements.size());
    }

    [[nodiscard]] std::size_t size() const { return block_ == nullptr ? 0 : block_->count; }
    [[nodiscard]] bool empty() const { return block_ == nullptr; }
    [[nodiscard]] const T* data() const { return block_ == nullptr ? nullptr : block_->elements(); }
    [[nodiscard]] const T* begin() const { return data(); }
    [[nodiscard]] const T* end() const { return data() + size(); }
    [[nodiscard]] const T& operator[](std::size_t index) const { return block_->elements()[index]; }

private:
    /// Stands in front of the elements.
    struct alignas(std::uint64_t) Block {
        std::uint32_t owners = 1;
        std::uint32_t count = 0;

        [[nodiscard]] T* elements() {
            static_assert(alignof(T) <= alignof(Block));
            return reinterpret_cast<T*>(this + 1);
        }
    };

    template <typename Iterator>
    static SharedArray make(Iterator first, std::size_t count) {
        static_assert(std::is_nothrow_constructible_v<T, decltype(*first)>);
        SharedArray array;
        if (count == 0) return array;
        auto* block = new (::operator new(sizeof(Block) + count * sizeof(T))) Block;
        std::uninitialized_copy_n(first, count, block->elements());
        block->count = static_cast<std::uint32_t>(count);
        array.block_ = block;
        return array;
    }
    /// Apart from the destructor, which is mostly done without it.
    [[gnu::noinline]] void destroy() {
        std::destroy_n(block_->elements(), block_->count);
        ::operator delete(block_);
    }

    Block* block_ = nullptr;
};
