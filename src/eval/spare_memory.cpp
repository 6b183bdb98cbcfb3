// Memory behind a recursion, and behind an exhaustion: what is far beyond the need goes back to the
// system, and a reserve is there for whoever catches the error.
//
// A recursion takes storage for each level, in stacks that keep it for the next one. That they are
// deep is noticed where they grow, and that it is over is asked in a few places that cost nothing:
// where compiled code leaves a segment of registers (exec/machine_calls.cpp), and else where
// `memoryIsUnsettled` is looked at, by protected calls, by the statements of the executor, and
// where compiled code leaves expressions to the tiers.
#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "eval/memory_reserve.h"
#include "exec/machine.h"
#include "interpreter/dovrel_script.h"
#include "value/page_release.h"
#include "value/stack_end.h"

#if defined(__GLIBC__) && !defined(DOVREL_EMBEDDED)
#include <malloc.h>
#endif

// How much memory a script may take is the host's to say, and the sanitizer fills what it is asked
// for.
#if defined(DOVREL_EMBEDDED) || defined(__SANITIZE_ADDRESS__)
#define DOVREL_NO_RESERVE 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DOVREL_NO_RESERVE 1
#endif
#endif

namespace {

#ifndef DOVREL_NO_RESERVE
constexpr std::size_t kReserve = std::size_t{4} << 20;
#endif

/// What a vector has beyond its elements. They stay where they are, since somebody may hold one.
template <typename Value>
void releaseSpare(std::vector<Value>& values) {
    releasePages(values.data() + values.size(), values.data() + values.capacity());
}

/// What the allocator has been given back goes on to the system.
void releaseFreedMemory() {
#if defined(__GLIBC__) && !defined(DOVREL_EMBEDDED)
    malloc_trim(0);
#endif
}

}  // namespace

void DovrelScript::giveMemoryBack() noexcept {
    bool isMuch = giveStackBack();
    isMuch |= frameScopes.giveBack();
    isMuch |= blockScopes.giveBack();
    if (!isMuch) return;
    machine->giveMemoryBack();
    argumentStack.giveBack();
    releaseSpare(baseDirectoryStack);
    releaseSpare(scriptNameStack);
    releaseSpare(varargStack);
    releaseSpare(protectedCallDepths);
    releaseFreedMemory();
}

void DovrelScript::settleMemory() noexcept {
#ifndef DOVREL_EMBEDDED
    unsettledMemory = 0;
#endif
    giveMemoryBack();
    memoryReserve.hold();
#ifndef DOVREL_NO_RESERVE
    if (!memoryReserve.isHeld()) unsettledMemory = 1;
#endif
}

void DovrelScript::noteError(std::string_view message) const noexcept {
    // The text of the standard library: to ask for the type takes as long as the rest.
    if (message == "std::bad_alloc") memoryReserve.release();
}

#ifdef DOVREL_NO_RESERVE

MemoryReserve::MemoryReserve() = default;
void MemoryReserve::hold() noexcept {}
void MemoryReserve::release() noexcept {}

#else

MemoryReserve::MemoryReserve() : block_(std::malloc(kReserve)) {}

void MemoryReserve::hold() noexcept {
    if (block_ != nullptr) return;
    // With less left beside it, whoever goes on behind an exhaustion would be at its end again.
    void* const twice = std::malloc(2 * kReserve);
    if (twice == nullptr) return;
    std::free(twice);
    block_ = std::malloc(kReserve);
}

void MemoryReserve::release() noexcept {
    if (block_ == nullptr) return;
    std::free(std::exchange(block_, nullptr));
    unsettledMemory = 1;
}

#endif
