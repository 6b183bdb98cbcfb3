// Memory kept for whoever catches an error that says there is none left.
#pragma once

/// A block that is freed when memory has run out, so that the report can be made and the script can
/// go on behind its `pcall`. Nobody touches it: it takes addresses, and no memory of the machine.
/// Inside of other programs there is none, since how much memory a script may take is theirs to
/// say.
class MemoryReserve {
public:
    MemoryReserve();
    ~MemoryReserve() { release(); }
    MemoryReserve(const MemoryReserve&) = delete;
    MemoryReserve& operator=(const MemoryReserve&) = delete;

    [[nodiscard]] bool isHeld() const noexcept { return block_ != nullptr; }
    /// Takes a reserve if there is none and as much again stays free.
    void hold() noexcept;
    void release() noexcept;

private:
    void* block_ = nullptr;
};
