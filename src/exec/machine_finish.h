// The last step of compiling: what only turns need is left out or kept, and jumps get their
// targets.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "exec/machine_code.h"

/// Code whose places are labels yet.
struct MachineDraft {
    MachineCode tables;  // all but the code; its sites hold labels
    std::vector<MachineInstruction> code;
    std::vector<std::uint32_t> labels;                           // indices of `code`
    std::vector<std::pair<std::uint32_t, std::uint32_t>> jumps;  // instructions and their labels
};

/// The code of a draft; empty if a distance does not fit.
[[nodiscard]] MachineCode finishMachineCode(const MachineDraft& draft, bool forTurns);

/// Tells each of the two codes of a draft where the other has the same.
void linkMachineCode(const MachineDraft& draft, MachineCode& plain, MachineCode& turns);
