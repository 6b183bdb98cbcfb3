// Runs a script with an observer that looks at everything: what a script can see must be what it is
// without one. The script tests of the areas that runs can be observed in go through it again.
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include "dovrel/checked_run.h"
#include "host/large_stack.h"
#include "interpreter/dovrel_script.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("failed to open file: " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void runFile(const std::string& path) {
    std::unique_ptr<CheckedRun> checked;
    DovrelScript interpreter;
    checked = std::make_unique<CheckedRun>(
        interpreter, path, CheckedMode::Tell,
        [](const std::string&, const std::string&, const std::string&) {});
    interpreter.setObserver(*checked);
    interpreter.runScript(readFile(path));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: " << argv[0] << " <script.dv>\n";
        return 1;
    }
    int status = 1;
    runOnLargeStack([&] {
        try {
            runFile(argv[1]);
            status = 0;
        } catch (const std::exception& error) {
            std::cerr << "dovrelscript: " << error.what() << std::endl;
        }
    });
    return status;
}
