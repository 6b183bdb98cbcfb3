// Any bytes as a bytecode file: they are refused or they run, until the budget is spent.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "exec/bytecode_program.h"
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<unsigned char> bytes(data, data + size);
    runInFreshInterpreter([&](DovrelScript& interpreter) {
        interpreter.runBytecodeProgram(
            std::make_shared<BytecodeProgram>(interpreter.deserializeBytecode(bytes, "fuzz.dvbc")));
    });
    return 0;
}
