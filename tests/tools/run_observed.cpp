// Runs a script with an observer that looks at everything: what a script can see must be what it is
// without one. The script tests of the areas that runs can be observed in go through it again.
#include <memory>
#include <string>

#include "dovrel/checked_run.h"
#include "interpreter/dovrel_script.h"
#include "script_program.h"

namespace {

void run(const std::string& source, const std::string& path) {
    std::unique_ptr<CheckedRun> checked;
    DovrelScript interpreter;
    checked = std::make_unique<CheckedRun>(
        interpreter, path, CheckedMode::Tell,
        [](const std::string&, const std::string&, const std::string&) {});
    interpreter.setObserver(*checked);
    interpreter.runScript(source);
}

}  // namespace

int main(int argc, char** argv) { return runScriptProgram(argc, argv, run); }
