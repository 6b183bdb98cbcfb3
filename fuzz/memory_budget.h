// What one execution may take from the allocator. A script that doubles a text in a loop would
// otherwise end the fuzzer and not the script.
#pragma once

/// While it lives, an allocation on this thread that is too large, or that comes after too many
/// bytes, raises std::bad_alloc. Small ones always succeed, so that errors can be reported.
class MemoryBudget {
public:
    MemoryBudget();
    ~MemoryBudget();
    MemoryBudget(const MemoryBudget&) = delete;
    MemoryBudget& operator=(const MemoryBudget&) = delete;
};
