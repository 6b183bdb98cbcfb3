#include "value/arguments.h"

#include <algorithm>

namespace {

constexpr std::size_t kBlockCapacity = 1024;
/// So many spare blocks are never far more than needed.
constexpr std::size_t kMostSpareBlocks = 64;

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
        block.capacity = capacity;
    }
    current_ = next;
}

void ArgumentStack::giveBack() noexcept {
    const std::size_t needed = current_ + 1;
    if (blocks_.size() > 2 * needed + kMostSpareBlocks) {
        blocks_.resize(needed + kMostSpareBlocks / 2);
    }
}
