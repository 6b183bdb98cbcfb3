#include "memory_budget.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kLargestAllocation = std::size_t{1} << 20;
constexpr std::size_t kBytesOfOneExecution = std::size_t{256} << 20;
constexpr std::size_t kAlwaysGranted = 4096;

thread_local bool isLimited = false;
thread_local std::size_t bytesLeft = 0;

bool isGranted(std::size_t size) {
    if (!isLimited || size <= kAlwaysGranted) return true;
    if (size > kLargestAllocation || size > bytesLeft) return false;
    bytesLeft -= size;
    return true;
}

void* allocateOrNull(std::size_t size) noexcept {
    return isGranted(size) ? std::malloc(size != 0 ? size : 1) : nullptr;
}

void* allocate(std::size_t size) {
    void* const memory = allocateOrNull(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

MemoryBudget::MemoryBudget() {
    bytesLeft = kBytesOfOneExecution;
    isLimited = true;
}

MemoryBudget::~MemoryBudget() { isLimited = false; }

// All forms but the aligned ones, which the interpreter has no use for. The sanitizer still watches
// malloc.
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
