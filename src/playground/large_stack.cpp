// The stack that scripts run on in a browser: there is one, whose size the linker is told.
#include "host/large_stack.h"

void runOnLargeStack(const std::function<void()>& work) { work(); }

class LargeStack::Mapping {};

LargeStack::LargeStack(std::size_t) {}
LargeStack::~LargeStack() = default;

void LargeStack::run(const std::function<void()>& work) { work(); }

std::uintptr_t LargeStack::lowest() const { return 0; }
std::size_t LargeStack::size() const { return 0; }
