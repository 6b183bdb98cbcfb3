// A host stack that is large enough for deep scripts.
#pragma once

#include <functional>

/// Runs `work` on a stack of gigabytes, reserved but not touched, on the calling thread. Script
/// calls, nested brackets, deep containers and the regular-expression matcher all recurse on the
/// host's stack, and the language sets no limit. `work` must not let an exception out.
void runOnLargeStack(const std::function<void()>& work);
