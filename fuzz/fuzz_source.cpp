// Any text through the front end and the compiler. Nothing runs; what is refused must be refused by
// an exception.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "exec/bytecode_file.h"
#include "exec/bytecode_program.h"
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    runInFreshInterpreter([&](DovrelScript& interpreter) {
        std::vector<ParsedScriptLine> lines = interpreter.parseLines(text);
        // A second time, as for the lines that a function takes over.
        interpreter.prepareParsedLines(lines);
    });
    runInFreshInterpreter([&](DovrelScript& interpreter) {
        static_cast<void>(serializeBytecode(interpreter.compileToBytecodeInternal(text)));
    });
    return 0;
}
