// `dovrel run`: a script as the interpreter runs it, with arguments.
#include <exception>
#include <iostream>
#include <optional>

#include "dovrel/commands.h"
#include "dovrel/script_run.h"

int runRunCommand(const RunOptions& options) {
    try {
        const std::optional<NamedScript> script = findNamedScript(options, "run");
        if (!script) return kMisuse;
        // The interpreter is gone before an error is written: its files are closed and flushed.
        DovrelScript interpreter;
        runNamedScript(interpreter, *script);
    } catch (const std::exception& error) {
        std::cerr << "dovrel: " << error.what() << std::endl;
        return kFailure;
    }
    return kSuccess;
}
