// A host stack that is large enough for deep scripts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

/// Runs `work` on a stack of gigabytes, reserved but not touched, on the calling thread. Script
/// calls, nested brackets, deep containers and the regular-expression matcher all recurse on the
/// host's stack. `work` must not let an exception out.
///
/// The stack ends at 4 GiB, or where the machine has no more memory to give in a reasonable time,
/// or where the levels of the recursion keep too much beside it. What setAtStackEnd has set is
/// called then; without that the process dies of a signal. Calls may nest.
void runOnLargeStack(const std::function<void()>& work);

/// Such a stack for many runs, one at a time, without a handler of faults: whatever runs on it asks
/// how much is left.
class LargeStack {
public:
    /// Of at most `most` bytes.
    explicit LargeStack(std::size_t most);
    ~LargeStack();
    LargeStack(const LargeStack&) = delete;
    LargeStack& operator=(const LargeStack&) = delete;

    /// Runs `work` there, or on the stack of the caller if there was no room for another one.
    /// `work` must not let an exception out.
    void run(const std::function<void()>& work);
    /// Its lowest address, and its size; both are 0 if there was no room.
    [[nodiscard]] std::uintptr_t lowest() const;
    [[nodiscard]] std::size_t size() const;

private:
    class Mapping;
    std::unique_ptr<Mapping> mapping_;
};
