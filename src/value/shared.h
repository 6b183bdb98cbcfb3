// A reference-counted pointer of one word. The program runs on one thread, so the count is a plain
// number; and it stands at the front of the block whatever the block holds, so that a value can
// raise and lower it without knowing what it shares.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

/// The front of each shared block. 2^32 references would take more memory than a program is given.
struct SharedCount {
    std::uint32_t count = 1;
};

#ifdef DOVREL_EMBEDDED
/// What the block of a `T` has beside the `T`: nothing, but for the containers (value_storage.h).
template <class T>
struct BlockFront {};
#endif

// Where one thread uses all blocks, the memory of those that are gone waits for the next ones.
// Under the address sanitizer it goes at once, or else nobody would see who comes too late.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DOVREL_SEES_ADDRESSES
#endif
#endif
#if !defined(DOVREL_EMBEDDED) && !defined(DOVREL_OBSERVABLE) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(DOVREL_SEES_ADDRESSES)
#define DOVREL_KEEPS_BLOCKS

/// The memory of blocks of `kSize` bytes that are gone, as far as it is kept.
template <std::size_t kSize>
class SpareBlocks {
public:
    [[nodiscard]] static void* take() {
        if (first_ == nullptr) return ::operator new(kSize);
        --count_;
        return std::exchange(first_, *static_cast<void**>(first_));
    }
    static void giveBack(void* memory) noexcept {
        if (count_ == kMost) {
            ::operator delete(memory);
            return;
        }
        ++count_;
        *static_cast<void**>(memory) = std::exchange(first_, memory);
    }

private:
    static constexpr std::size_t kMost = 256;

    inline static constinit void* first_ = nullptr;  // each leads to the next one
    inline static constinit std::size_t count_ = 0;
};
#endif

/// Shares a `T`, or is null. `T` may be incomplete where pointers are copied and dropped; it must
/// be complete where one is made, followed, or dropped for the last time (`destroy`).
template <class T>
class Shared {
public:
    Shared() noexcept = default;
    Shared(std::nullptr_t) noexcept {}
    Shared(const Shared& other) noexcept : block_(other.block_) {
        if (block_ != nullptr) ++block_->count;
    }
    Shared(Shared&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    Shared& operator=(const Shared& other) noexcept {
        Shared copy(other);
        swap(copy);
        return *this;
    }
    Shared& operator=(Shared&& other) noexcept {
        // The old content goes last: it may own what `other` stands in.
        Shared taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Shared() {
        if (block_ != nullptr && --block_->count == 0) destroy(block_);
    }

    /// A new block with a `T` made from `arguments`.
    template <class... Arguments>
    [[nodiscard]] static Shared make(Arguments&&... arguments) {
        Shared made;
        made.block_ = std::make_unique<Block>(std::forward<Arguments>(arguments)...).release();
        return made;
    }

    [[nodiscard]] T* get() const noexcept {
        return block_ != nullptr ? &static_cast<Block*>(block_)->value : nullptr;
    }
    [[nodiscard]] T& operator*() const noexcept { return static_cast<Block*>(block_)->value; }
    [[nodiscard]] T* operator->() const noexcept { return &static_cast<Block*>(block_)->value; }
    [[nodiscard]] explicit operator bool() const noexcept { return block_ != nullptr; }
    /// Of the content, not of what it holds: two pointers are equal if they share one block.
    [[nodiscard]] bool operator==(const Shared& other) const noexcept = default;
    [[nodiscard]] bool operator==(std::nullptr_t) const noexcept { return block_ == nullptr; }

    /// How many pointers share the content; 0 for a null pointer.
    [[nodiscard]] std::size_t useCount() const noexcept {
        return block_ != nullptr ? block_->count : 0;
    }
    void reset() noexcept { Shared().swap(*this); }
    void swap(Shared& other) noexcept { std::swap(block_, other.block_); }

    /// Ends the content of a block whose count has come to 0, and frees it.
    static void destroy(SharedCount* block) noexcept;
#ifdef DOVREL_EMBEDDED
    /// The content of the block that has `front`.
    [[nodiscard]] static T& contentOf(BlockFront<T>& front) noexcept {
        return static_cast<Block&>(front).value;
    }
    /// Frees a block, once its content has nothing to share any more.
    static void free(BlockFront<T>& front) noexcept {
        std::unique_ptr<Block>(&static_cast<Block&>(front)).reset();
    }
    [[nodiscard]] static BlockFront<T>& frontOf(SharedCount* block) noexcept {
        return *static_cast<Block*>(block);
    }
#endif

private:
#ifdef DOVREL_EMBEDDED
    struct Block : SharedCount, BlockFront<T> {
#else
    struct Block : SharedCount {
#endif
        template <class... Arguments>
        explicit Block(Arguments&&... arguments) : value(std::forward<Arguments>(arguments)...) {}
#ifdef DOVREL_KEEPS_BLOCKS
        static void* operator new(std::size_t) { return SpareBlocks<sizeof(Block)>::take(); }
        static void operator delete(void* memory) noexcept {
            SpareBlocks<sizeof(Block)>::giveBack(memory);
        }
#endif
        T value;
    };

    SharedCount* block_ = nullptr;
};

template <class T>
void Shared<T>::destroy(SharedCount* block) noexcept {
    std::unique_ptr<Block>(static_cast<Block*>(block)).reset();
}
