#include "value/stack_end.h"

namespace {

AtStackEnd atStackEnd = nullptr;
GiveStackBack stackGiver = nullptr;

}  // namespace

void setAtStackEnd(AtStackEnd handler) noexcept { atStackEnd = handler; }

bool hasAtStackEnd() noexcept { return atStackEnd != nullptr; }

void endOfStack() {
    if (atStackEnd != nullptr) atStackEnd();
#ifdef DOVREL_EMBEDDED
    if (RunContext::running() != nullptr) throw ScriptStopped{StopReason::Stack};
#endif
}

void setGiveStackBack(GiveStackBack giver) noexcept { stackGiver = giver; }

bool giveStackBack() noexcept { return stackGiver != nullptr && stackGiver(); }
