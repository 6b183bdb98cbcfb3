// A host stack that is large enough for deep scripts.
#pragma once

#include <functional>

/// Runs `work` on a stack of gigabytes, reserved but not touched, on the calling thread. Script
/// calls, nested brackets, deep containers and the regular-expression matcher all recurse on the
/// host's stack. `work` must not let an exception out.
///
/// The stack ends at 4 GiB, or where the machine has no more memory to give in a reasonable time,
/// or where the levels of the recursion keep too much beside it. What setAtStackEnd has set is
/// called then; without that the process dies of a signal. Calls may nest.
void runOnLargeStack(const std::function<void()>& work);
