// The allocator of the library. It counts what the interpreter that this thread is in takes, and
// refuses what is beyond its limit. Outside of every interpreter it is malloc and free, and blocks
// may come from one of these and go by the other: so nothing is kept beside a block, and the
// allocator itself knows its size.
//
// Where the library is installed, these operators are its own and not the host's: the shared
// library hides them, and in the static one they are local symbols.
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

#include "value/run_context.h"

namespace {

/// Beyond the limit, small blocks are still granted up to a reserve, so that the script can be
/// ended in good order: it stops at its next step.
constexpr std::size_t kSmall = 4096;
constexpr std::size_t kReserve = std::size_t{256} << 10;
/// What is asked for at once is going to be gone through.
constexpr std::size_t kBytesForEachStatement = 4096;

bool isGranted(RunContext& context, std::size_t size) {
    if (size > kSmall) context.watch.count(size / kBytesForEachStatement);
    if (context.memoryLimit == 0) return true;
    if (size <= context.memoryLimit && context.memoryUsed <= context.memoryLimit - size) {
        return true;
    }
    context.watch.noteMemoryExceeded();
    return size <= kSmall && context.memoryUsed <= context.memoryLimit + kReserve;
}

void* allocateOrNull(std::size_t size) noexcept {
    RunContext* const context = RunContext::running();
    if (context != nullptr && !isGranted(*context, size)) return nullptr;
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (context != nullptr && memory != nullptr) {
        context->memoryUsed += malloc_usable_size(memory);
    }
    return memory;
}

void* allocate(std::size_t size) {
    void* const memory = allocateOrNull(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept {
    if (RunContext* const context = RunContext::running(); context != nullptr) {
        context->memoryUsed -= std::min(context->memoryUsed, malloc_usable_size(memory));
    }
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }

// Most of a script's bytes are in texts, whose members the C++ library has in itself: these would
// not come by here.
template class std::basic_string<char>;
