#include "failing_allocations.h"

#include <cstdlib>
#include <new>

namespace {

std::size_t untilFailure = kNoFailure;  // allocations up to and with the one that fails
std::size_t largestAllocation = SIZE_MAX;
bool failsForEver = false;
bool hasFailed = false;

bool fails(std::size_t size) {
    if (size > largestAllocation) return true;
    if (untilFailure == kNoFailure) return failsForEver && hasFailed;
    return --untilFailure == 0;
}

void* allocateOrNull(std::size_t size) noexcept {
    if (!fails(size)) return std::malloc(size != 0 ? size : 1);
    hasFailed = true;
    return nullptr;
}

void* allocate(std::size_t size) {
    void* const memory = allocateOrNull(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

FailingAllocations::FailingAllocations(std::size_t first, Shortage shortage, std::size_t largest) {
    hasFailed = false;
    failsForEver = shortage == Shortage::ForEver;
    largestAllocation = largest;
    untilFailure = first;
}

FailingAllocations::~FailingAllocations() {
    untilFailure = kNoFailure;
    failsForEver = false;
    largestAllocation = SIZE_MAX;
}

bool FailingAllocations::happened() { return hasFailed; }

// All forms but the aligned ones, which the interpreter has no use for.
void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
