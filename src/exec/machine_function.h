// What is known of a chunk as compiled code. A program keeps one for each chunk that has been run.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "exec/machine_code.h"
#include "value/names.h"

struct MachineDraft;

struct MachineFunction {
    MachineFunction();
    ~MachineFunction();

    BytecodeProgram* program = nullptr;
    std::uint32_t chunk = 0;
    std::vector<Name> parameters;
    bool hasFrame = true;
    struct Form {
        bool isRefused = false;
        std::uint8_t renewals = 0;
        std::unique_ptr<MachineDraft> draft;
        std::unique_ptr<MachineCode> plain;
        std::unique_ptr<MachineCode> turns;  // once it is needed
    };
    std::array<Form, 2> forms;  // with no block scope visible at its start, and with one
    /// Code that has been replaced: somebody may run it still.
    std::vector<std::unique_ptr<MachineCode>> replaced;
};

/// The functions of a program, by chunk. A copy knows nothing: the code leads into the program that
/// it was made from.
struct MachineFunctions {
    MachineFunctions();
    MachineFunctions(const MachineFunctions&);
    MachineFunctions(MachineFunctions&&) noexcept;
    MachineFunctions& operator=(const MachineFunctions&);
    MachineFunctions& operator=(MachineFunctions&&) noexcept;
    ~MachineFunctions();

    std::vector<std::unique_ptr<MachineFunction>> byChunk;
};
