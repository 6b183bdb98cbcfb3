// What is known of a chunk as compiled code. A program keeps one for each chunk that has been run.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
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
    bool runsOnce =
        false;  // as a whole text does, loaded or not: only its loops are worth compiling
    /// Code, and the same with turns of a coroutine once that is needed.
    struct Version {
        std::unique_ptr<MachineDraft> draft;
        std::unique_ptr<MachineCode> plain;
        std::unique_ptr<MachineCode> turns;
    };
    /// The code for a start with no block scope visible, or for one with a block scope.
    struct Form {
        bool isRefused = false;
        std::uint8_t renewals = 0;
        std::uint32_t requests = 0;  // for another renewal, since the last one
        std::vector<std::unique_ptr<Version>>
            versions;  // the newest last; older ones may run still
    };
    std::array<Form, 2> forms;
    /// The newest code of each form, without turns; null if there is none, or it is stale.
    std::array<const MachineCode*, 2> ready{};
    // What calls push, which is the program's own text where it is the same, so that a call from
    // the same script has nothing to push.
    const std::string* baseDirectory = nullptr;
    const std::string* scriptName = nullptr;
    // The same for functions that push the same: the program, or the function itself.
    const void* names = nullptr;
    std::string ownDirectory;
    std::string ownName;
};

/// The lines of a coroutine's body as code, each on its own: a turn runs one of them.
struct TurnLines {
    struct Line {
        std::uint8_t runs = 0;  // before it was compiled
        bool isRefused = false;
        std::unique_ptr<MachineFunction> function;
    };
    std::vector<Line> lines;  // by their places in the body
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
    std::vector<bool> haveBeenCalled;  // by chunk
};
