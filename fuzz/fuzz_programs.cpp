// Programs that a grammar makes out of the bytes run in several ways, which must print the same and
// end in the same error: from source, through a bytecode file, and, where the two executors define
// the same, through the parsed-block executor. The first byte chooses the kind of program.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "exec/bytecode_file.h"
#include "exec/bytecode_program.h"
#include "harness.h"
#include "program_generator.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

Outcome runFromSource(const std::string& script) {
    return runInFreshInterpreter([&](DovrelScript& interpreter) { interpreter.runScript(script); });
}

Outcome runThroughBytecode(const std::string& script) {
    return runInFreshInterpreter([&](DovrelScript& interpreter) {
        const auto bytes = serializeBytecode(interpreter.compileToBytecodeInternal(script));
        interpreter.runBytecodeProgram(
            std::make_shared<BytecodeProgram>(interpreter.deserializeBytecode(bytes, "fuzz.dvbc")));
    });
}

Outcome runParsed(const std::string& script) {
    return runInFreshInterpreter(
        [&](DovrelScript& interpreter) { runParsedLines(interpreter, script); });
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const ProgramKind kind = data[0] % 4 == 3 ? ProgramKind::Plain : ProgramKind::Any;
    const std::string script = ProgramGenerator(data + 1, size - 1, kind).program();
    const NamedOutcome source{"the source", runFromSource(script)};
    requireSameOutcome(script, source, {"the bytecode", runThroughBytecode(script)},
                       Reports::Whole);
    if (kind == ProgramKind::Plain) {
        requireSameOutcome(script, source, {"the parsed block", runParsed(script)},
                           Reports::MessageOnly);
    }
    return 0;
}
