// A sequence that never changes once made, in one allocation; its copies share the elements.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

/// Memory for the arrays of a line that is read, run once and forgotten. What does not fit comes
/// from the heap.
class PassingMemory {
public:
    PassingMemory() = default;
    PassingMemory(const PassingMemory&) = delete;
    PassingMemory& operator=(const PassingMemory&) = delete;

    /// Memory for `size` bytes, or null. All that was taken before must have been destroyed when
    /// `reset` is called.
    [[nodiscard]] void* take(std::size_t size) {
        const std::size_t rounded =
            (size + sizeof(std::uint64_t) - 1) & ~(sizeof(std::uint64_t) - 1);
        if (rounded > sizeof(bytes_) - used_) return nullptr;
        void* taken = bytes_ + used_;
        used_ += rounded;
        return taken;
    }
    void reset() { used_ = 0; }

    /// While it lives, the arrays that this thread makes take their memory from `memory`.
    class Use {
    public:
        explicit Use(PassingMemory& memory) : outer_(std::exchange(current_, &memory)) {}
        ~Use() { current_ = outer_; }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

    private:
        PassingMemory* outer_;
    };
    [[nodiscard]] static PassingMemory* current() { return current_; }

private:
    static inline thread_local PassingMemory* current_ = nullptr;

    std::size_t used_ = 0;
    alignas(std::uint64_t) std::byte bytes_[4096];
};

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
        if (block_ != nullptr && (--block_->owners & ~kPassing) == 0) destroy();
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
    /// In the count of owners: the memory is not the array's.
    static constexpr std::uint32_t kPassing = std::uint32_t{1} << 31U;

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
        const std::size_t size = sizeof(Block) + count * sizeof(T);
        PassingMemory* const memory = PassingMemory::current();
        void* const taken = memory != nullptr ? memory->take(size) : nullptr;
        auto* block = new (taken != nullptr ? taken : ::operator new(size)) Block;
        if (taken != nullptr) block->owners |= kPassing;
        std::uninitialized_copy_n(first, count, block->elements());
        block->count = static_cast<std::uint32_t>(count);
        array.block_ = block;
        return array;
    }
    /// Apart from the destructor, which is mostly done without it.
    [[gnu::noinline]] void destroy() {
        std::destroy_n(block_->elements(), block_->count);
        if (block_->owners == 0) ::operator delete(block_);
    }

    Block* block_ = nullptr;
};

/// One thing that never changes once made, or nothing; its copies share it.
template <typename T>
class SharedRecord {
public:
    SharedRecord() = default;
    [[nodiscard]] static SharedRecord of(T&& value) {
        SharedRecord record;
        std::array<T, 1> one = {std::move(value)};
        record.value_ = SharedArray<T>::movedFrom(one);
        return record;
    }
    void reset() { value_ = {}; }
    [[nodiscard]] const T& operator*() const { return *value_.begin(); }
    [[nodiscard]] const T* operator->() const { return value_.begin(); }
    [[nodiscard]] const T* get() const { return value_.data(); }
    [[nodiscard]] bool operator==(std::nullptr_t) const { return value_.empty(); }

private:
    SharedArray<T> value_;
};
