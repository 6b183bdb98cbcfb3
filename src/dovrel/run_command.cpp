// `dovrel run`: a script as the interpreter runs it, with arguments.
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "dovrel/checked_run.h"
#include "dovrel/commands.h"
#include "dovrel/script_run.h"

namespace {

/// Among what the script writes, where it belongs.
void tellPlace(const std::string& place, const std::string& message, const std::string& source) {
    std::cout << std::flush;
    std::cerr << "dovrel: checked: " << place << ": " << message << "\n    " << source << std::endl;
}

}  // namespace

int runRunCommand(const RunOptions& options) {
    try {
        const std::optional<NamedScript> script = findNamedScript(options, "run");
        if (!script) return kMisuse;
        // The interpreter is gone before an error is written: its files are closed and flushed.
        std::unique_ptr<CheckedRun> checked;
        DovrelScript interpreter;
        const CheckedMode mode = checkedModeFrom(options.checked);
        if (mode != CheckedMode::Off) {
            checked = std::make_unique<CheckedRun>(interpreter, script->name, mode, tellPlace);
            interpreter.setObserver(*checked);
        }
        runNamedScript(interpreter, *script);
    } catch (const std::exception& error) {
        std::cerr << "dovrel: " << error.what() << std::endl;
        return kFailure;
    }
    return kSuccess;
}
