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

ArgumentList::ArgumentList(const std::vector<Variable>& values)
    : ArgumentList(values.data(), values.size()) {}

ArgumentList::ArgumentList(const Variable* values, std::size_t count) {
    pointers_.reserve(count);
    for (std::size_t i = 0; i < count; ++i) pointers_.push_back(values + i);
}
