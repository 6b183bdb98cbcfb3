// Ctrl-C while a script runs.
#pragma once

#include <csignal>

/// Ctrl-C stops the script by a ScriptStopped while this lives, and not the program. A script
/// that is inside of the library for long is not reached by the first one; the third one ends the
/// program.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    struct sigaction before_ {};
};
