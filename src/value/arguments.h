// The arguments of one call, as callees see them, and the stack that holds them while a call runs.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "value/variable.h"

/// A view of a call's arguments, which stand side by side. It owns nothing: the caller keeps the
/// values alive and in place for the whole call.
class Arguments {
public:
    Arguments() = default;
    Arguments(const Variable* values, std::size_t count) : values_(values), count_(count) {}
    /// All of `values`, which must stay as they are.
    explicit Arguments(const std::vector<Variable>& values)
        : Arguments(values.data(), values.size()) {}

    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    /// The argument at the 0-based `index`, which must be below `size()`.
    [[nodiscard]] const Variable& operator[](std::size_t index) const { return values_[index]; }
    /// The arguments from the 0-based `first` on; empty if there are none.
    [[nodiscard]] Arguments from(std::size_t first) const {
        return first < count_ ? Arguments(values_ + first, count_ - first) : Arguments();
    }

private:
    const Variable* values_ = nullptr;
    std::size_t count_ = 0;
};

/// Where the evaluators keep argument values: one stack beside the host's, in blocks that never
/// move. It keeps argument arrays out of the frames that recurse, and a call in the steady state
/// allocates nothing. Use it through ArgumentFrame.
class ArgumentStack {
public:
    ArgumentStack();
    ArgumentStack(const ArgumentStack&) = delete;
    ArgumentStack& operator=(const ArgumentStack&) = delete;

    /// Frees blocks that are far more than those in use.
    void giveBack() noexcept;

private:
    friend class ArgumentFrame;

    struct Block {
        std::unique_ptr<Variable[]> values;
        std::size_t capacity = 0;
        std::size_t used = 0;
    };

    /// Makes a block with room for `count` more values the current one.
    void openBlockFor(std::size_t count);

    std::vector<Block> blocks_;
    std::size_t current_ = 0;  // index of the block that serves the next frame
};

/// The argument values of one call under evaluation: `count` values, all nil at first. Frames nest
/// strictly; the destructor releases the values.
class ArgumentFrame {
public:
    ArgumentFrame(ArgumentStack& stack, std::size_t count)
        : stack_(stack), count_(count), previousBlock_(stack.current_) {
        ArgumentStack::Block* block = &stack.blocks_[stack.current_];
        if (block->capacity - block->used < count) {
            stack.openBlockFor(count);
            block = &stack.blocks_[stack.current_];
        }
        values_ = block->values.get() + block->used;
        block->used += count;
    }
    ~ArgumentFrame() {
        // The values must go now and not when the slot is used again: a file handle closes with
        // its last reference.
        for (std::size_t i = 0; i < count_; ++i) values_[i].setNil();
        stack_.blocks_[stack_.current_].used -= count_;
        stack_.current_ = previousBlock_;
    }
    ArgumentFrame(const ArgumentFrame&) = delete;
    ArgumentFrame& operator=(const ArgumentFrame&) = delete;

    [[nodiscard]] Variable& operator[](std::size_t index) { return values_[index]; }
    [[nodiscard]] Arguments view() const { return {values_, count_}; }
    /// The same as a span. Of an empty frame there is no first one to take the address of.
    [[nodiscard]] std::span<const Variable> values() const { return {values_, count_}; }
    [[nodiscard]] std::size_t size() const { return count_; }

private:
    ArgumentStack& stack_;
    Variable* values_;
    std::size_t count_;
    std::size_t previousBlock_;
};
