// Runs a whole script through the parsed-block executor, which otherwise runs only functions that
// are declared in a coroutine's turn. The script tests of the control-flow areas go through it a
// second time: what the two executors share must come out the same.
#include <cstddef>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/large_stack.h"
#include "interpreter/dovrel_script.h"

namespace {

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("failed to open file: " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void runLines(DovrelScript& interpreter, const std::vector<ParsedScriptLine>& lines) {
    BlockSignal signal = BlockSignal::None;
    for (std::size_t index = 0; index < lines.size() && signal == BlockSignal::None; ++index) {
        // Stops early at a line that closes a block. There is none around it, so go on behind it.
        static_cast<void>(interpreter.executeParsedBlock(lines, index, signal));
    }
    interpreter.rethrowPendingCoroutineException();
    if (signal == BlockSignal::Break) throw std::runtime_error("break used outside a loop");
}

void runScript(DovrelScript& interpreter, const std::string& source) {
    // Outside the handler, so that the lines are alive while a report is built.
    std::vector<ParsedScriptLine> lines;
    try {
        lines = interpreter.parseLines(source);
        runLines(interpreter, lines);
    } catch (const std::exception& error) {
        interpreter.rethrowLocated(error, "script");
    }
}

void runFile(const std::string& path) {
    DovrelScript interpreter;
    runScript(interpreter, readFile(path));
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
