#include "value/arguments.h"

#include <algorithm>

namespace {

constexpr std::size_t kBlockCapacity = 1024;

}  // namespace

ArgumentStack::ArgumentStack() { blocks_.emplace_back(); }

void ArgumentStack::openBlockFor(std::size_t count) {
    // An opened block starts empty, since every frame behind it has been released. One that is too
    // small for a very long argument list is replaced.
    const std::size_t next = blocks_[current_].used == 0 ? current_ : current_ + 1;
    if (next == blocks_.size()) blocks_.emplace_back();
    Block& block = blocks_[next];
    if (block.capacity < count) {
        const std::size_t capacity = std::max(count, kBlockCapacity);
        block.values = std::make_unique<Variable[]>(capacity);
        block.pointers = std::make_unique<const Variable*[]>(capacity);
        block.capacity = capacity;
    }
    current_ = next;
}

ArgumentFrame::ArgumentFrame(ArgumentStack& stack, std::size_t count)
    : stack_(stack), count_(count), previousBlock_(stack.current_) {
    const ArgumentStack::Block* block = &stack.blocks_[stack.current_];
    if (block->capacity - block->used < count) stack.openBlockFor(count);
    ArgumentStack::Block& target = stack.blocks_[stack.current_];
    values_ = target.values.get() + target.used;
    pointers_ = target.pointers.get() + target.used;
    for (std::size_t i = 0; i < count; ++i) pointers_[i] = &values_[i];
    target.used += count;
}

ArgumentFrame::~ArgumentFrame() {
    // The values must go now and not when the slot is used again: a file handle closes with its
    // last reference.
    for (std::size_t i = 0; i < count_; ++i) values_[i].setNil();
    stack_.blocks_[stack_.current_].used -= count_;
    stack_.current_ = previousBlock_;
}

ArgumentList::ArgumentList(const std::vector<Variable>& values)
    : ArgumentList(values.data(), values.size()) {}

ArgumentList::ArgumentList(const Variable* values, std::size_t count) {
    pointers_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) pointers_.push_back(values + i);
}
