#include "value/array_storage.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace {

void moveBytes(Variable* target, const Variable* source, std::size_t count) noexcept {
    if (count != 0) {
        std::memmove(static_cast<void*>(target), static_cast<const void*>(source),
                     count * sizeof(Variable));
    }
}

Variable* allocate(std::size_t places) {
    if (places > ArrayStorage::max_size()) throw std::bad_alloc();
    return static_cast<Variable*>(::operator new(places * sizeof(Variable)));
}

}  // namespace

std::size_t ArrayStorage::max_size() noexcept {
    return std::min<std::size_t>(std::numeric_limits<std::int32_t>::max(),
                                 std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Variable));
}

ArrayStorage::ArrayStorage(std::span<const Variable> elements) {
    reserve(elements.size());
    last_ = std::uninitialized_copy(elements.begin(), elements.end(), first_);
}

ArrayStorage::~ArrayStorage() {
    std::destroy(first_, last_);
    ::operator delete(block());
}

std::size_t ArrayStorage::grownBy(std::size_t more) const {
    if (more > max_size() - size()) throw std::bad_alloc();
    return std::min(size() + std::max(size(), more), max_size());
}

void ArrayStorage::beginAt(Variable* block, std::size_t offset, std::size_t count) noexcept {
    first_ = block + offset;
    last_ = first_ + count;
    end_ = first_ + std::min<std::size_t>(capacity_, places() - offset);
    room_.offset = static_cast<std::uint32_t>(offset) & 0x7FFFFFFFU;
}

void ArrayStorage::moveTo(std::size_t capacity, bool isWide, std::size_t offset) {
    const std::size_t count = size();
    Variable* const moved = allocate(isWide ? widePlaces(capacity) : capacity);
    moveBytes(moved + offset, first_, count);
    ::operator delete(block());
    capacity_ = static_cast<std::uint32_t>(capacity);
    room_.isWide = isWide ? 1 : 0;
    beginAt(moved, offset, count);
}

void ArrayStorage::slideTo(std::size_t offset) noexcept {
    const std::size_t count = size();
    moveBytes(block() + offset, first_, count);
    beginAt(block(), offset, count);
}

void ArrayStorage::makeRoomBehind() {
    if (size() == capacity_) {
        const std::size_t grown = grownBy(1);
        if (room_.isWide != 0 && grown <= kFewPlaces) {
            capacity_ = static_cast<std::uint32_t>(grown);
            room_.isWide = grown < kFewPlaces ? 1 : 0;
            slideTo(0);
        } else {
            moveTo(grown, capacity_ == 0, 0);
        }
    } else if (room_.offset >= size() / 2) {
        // As many have been removed as half of those that move now, so that each removal pays for
        // two moves at most.
        slideTo(0);
    } else {
        // A queue that nearly fills its block. With half as much again, the above holds for ever.
        moveTo(capacity_, true, 0);
    }
}

void ArrayStorage::pushSlowly(Variable value) {
    makeRoomBehind();
    std::construct_at(last_, std::move(value));
    ++last_;
}

void ArrayStorage::makeRoomInFront() {
    const std::size_t count = size();
    if (count == capacity_) {
        const std::size_t grown = grownBy(1);
        moveTo(grown, false, (grown - count + 1) / 2);
        return;
    }
    const std::size_t free = places() - count;
    if (free > count / 2) {
        slideTo((free + 1) / 2);
    } else {
        moveTo(capacity_, true, (widePlaces(capacity_) - count + 1) / 2);
    }
}

void ArrayStorage::insert(Variable* place, Variable value) {
    const auto before = static_cast<std::size_t>(place - first_);
    const std::size_t behind = size() - before;
    if (before == 0 && behind != 0 && room_.offset == 0) makeRoomInFront();
    if (before < behind && room_.offset != 0 && size() != capacity_) {
        moveBytes(first_ - 1, first_, before);
        beginAt(block(), room_.offset - 1, size() + 1);
    } else {
        if (last_ == end_) makeRoomBehind();
        moveBytes(first_ + before + 1, first_ + before, behind);
        ++last_;
    }
    std::construct_at(first_ + before, std::move(value));
}

void ArrayStorage::erase(Variable* place) noexcept {
    // Ends last, since it may own much.
    const Variable removed(std::move(*place));
    const auto before = static_cast<std::size_t>(place - first_);
    const std::size_t behind = size() - before - 1;
    if (before < behind) {
        moveBytes(first_ + 1, first_, before);
        beginAt(block(), room_.offset + 1, size() - 1);
    } else {
        moveBytes(place, place + 1, behind);
        --last_;
    }
}

void ArrayStorage::clear() noexcept {
    Variable* const old = last_;
    last_ = first_;
    std::destroy(first_, old);
    slideTo(0);
}

void ArrayStorage::reserve(std::size_t wanted) {
    if (wanted <= capacity_) return;
    moveTo(wanted, false, 0);
}

void ArrayStorage::resize(std::size_t wanted) {
    const std::size_t count = size();
    if (wanted < count) {
        Variable* const old = last_;
        last_ = first_ + wanted;
        std::destroy(last_, old);
        return;
    }
    if (wanted > capacity_) {
        moveTo(grownBy(wanted - count), false, 0);
    } else if (wanted > static_cast<std::size_t>(end_ - first_)) {
        slideTo(0);
    }
    last_ = std::uninitialized_value_construct_n(last_, wanted - count);
}
