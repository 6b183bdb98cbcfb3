#include "value/stack_end.h"

namespace {

AtStackEnd atStackEnd = nullptr;

}  // namespace

void setAtStackEnd(AtStackEnd handler) noexcept { atStackEnd = handler; }

bool hasAtStackEnd() noexcept { return atStackEnd != nullptr; }

void endOfStack() noexcept {
    if (atStackEnd != nullptr) atStackEnd();
}
