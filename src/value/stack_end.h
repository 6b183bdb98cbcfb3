// The end of a recursion that has none: a process that has no room for another level, and what it
// does then. The host decides what that is, since it ends the process. A build that runs inside of
// other programs must not end theirs: there the recursion looks at the stack and stops the script.
#pragma once

#include <csignal>
#include <cstdint>

#include "value/run_context.h"

/// Is called when a recursion is at its end: possibly in a signal handler, on a stack of its own,
/// so that it may do only what is safe there. Must not return.
using AtStackEnd = void (*)();

/// Sets what `endOfStack` calls; null for nothing. Counts for the whole process.
void setAtStackEnd(AtStackEnd handler) noexcept;

/// There is something to call.
[[nodiscard]] bool hasAtStackEnd() noexcept;

/// Called by whoever finds that a recursion cannot go on. Returns if the host has set nothing; the
/// caller goes on then, until the system stops it. Inside of another program it raises
/// ScriptStopped.
void endOfStack();

/// Gives back what of the host's stack is far below where it is in use. True if that was something.
using GiveStackBack = bool (*)() noexcept;

/// Sets what `giveStackBack` calls; null for nothing. Counts for the whole process.
void setGiveStackBack(GiveStackBack giver) noexcept;

/// To be called where a recursion may have ended.
bool giveStackBack() noexcept;

#ifdef DOVREL_EMBEDDED
// Hosts have their stacks, and memory of their own to manage.
constexpr bool memoryIsUnsettled() { return false; }
#else
/// Set, possibly in a signal handler, when a recursion has taken much memory that it will leave
/// behind, or when memory has run out. See DovrelScript::settleMemory.
inline volatile std::sig_atomic_t unsettledMemory = 0;
inline bool memoryIsUnsettled() { return unsettledMemory != 0; }
#endif

/// To be asked at each level of a recursion that only the host's stack bounds.
inline void requireHostStack() {
#ifdef DOVREL_EMBEDDED
    const char here = 0;
    const RunContext* const context = RunContext::running();
    if (context != nullptr && reinterpret_cast<std::uintptr_t>(&here) < context->stackFloor) {
        endOfStack();
    }
#endif
}

/// The same in the front end. What it reads is gone through again by others, whose levels take
/// more: so it gets a smaller share, counted from where it began.
inline void requireParsingStack() {
#ifdef DOVREL_EMBEDDED
    constexpr std::uintptr_t kShare = std::uintptr_t{8} << 20;
    const char here = 0;
    const RunContext* const context = RunContext::running();
    if (context != nullptr && context->parsingStart > kShare &&
        reinterpret_cast<std::uintptr_t>(&here) < context->parsingStart - kShare) {
        endOfStack();
    }
#endif
}

/// While it lives, the front end is at work.
class ParsingStack {
public:
#ifdef DOVREL_EMBEDDED
    ParsingStack() noexcept {
        const char here = 0;
        RunContext* const context = RunContext::running();
        if (context == nullptr) return;
        before_ = context->parsingStart;
        context->parsingStart = reinterpret_cast<std::uintptr_t>(&here);
    }
    ~ParsingStack() {
        if (RunContext* const context = RunContext::running()) context->parsingStart = before_;
    }

private:
    std::uintptr_t before_ = 0;

public:
#else
    ParsingStack() noexcept {}
    ~ParsingStack() {}
#endif
    ParsingStack(const ParsingStack&) = delete;
    ParsingStack& operator=(const ParsingStack&) = delete;
};
