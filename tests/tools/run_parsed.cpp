// Runs a whole script through the parsed-block executor, which otherwise runs only functions that
// are declared in a coroutine's turn. The script tests of the control-flow areas go through it a
// second time: what the two executors share must come out the same.
#include <cstddef>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"
#include "script_program.h"

namespace {

void runLines(DovrelScript& interpreter, const std::vector<ParsedScriptLine>& lines) {
    BlockSignal signal = BlockSignal::None;
    for (std::size_t index = 0; index < lines.size() && signal == BlockSignal::None; ++index) {
        // Stops early at a line that closes a block. There is none around it, so go on behind it.
        static_cast<void>(interpreter.executeParsedBlock(lines, index, signal));
    }
    interpreter.rethrowPendingCoroutineException();
    if (signal == BlockSignal::Break) throw std::runtime_error("break used outside a loop");
}

void run(const std::string& source, const std::string&) {
    DovrelScript interpreter;
    // Outside the handler, so that the lines are alive while a report is built.
    std::vector<ParsedScriptLine> lines;
    try {
        lines = interpreter.parseLines(source);
        runLines(interpreter, lines);
    } catch (const std::exception& error) {
        interpreter.rethrowLocated(error, "script");
    }
}

}  // namespace

int main(int argc, char** argv) { return runScriptProgram(argc, argv, run); }
