// The command line: four modes around one interpreter object. Any error that gets here becomes one
// line on standard error and status 1.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "eval/exhaustion.h"
#include "exec/bytecode_file.h"
#include "exec/bytecode_program.h"
#include "host/large_stack.h"
#include "interpreter/dovrel_script.h"
#include "value/stack_end.h"

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;

int printUsage(const char* programName) {
    std::cerr << "Usage:\n"
              << "  " << programName << " <script.dv>\n"
              << "  " << programName << " --compile <script.dv> <output.dvbc>\n"
              << "  " << programName << " --run-bytecode <input.dvbc>\n"
              << "  " << programName << " --repl\n";
    return kFailure;
}

/// A directory opens as a stream but cannot be read, so it counts as not open.
bool isOpen(const std::ifstream& file, const std::string& path) {
    std::error_code ignored;
    return file && !std::filesystem::is_directory(path, ignored);
}

/// One file under two names, or one: what is in it would be lost when it is opened for writing. A
/// device, such as a terminal, may be both read and written.
bool isSameFile(const std::string& path, const std::string& other) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored) &&
           std::filesystem::equivalent(path, other, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    if (!isOpen(file, path)) throw std::runtime_error("failed to open file: " + path);
    std::ostringstream text;
    // An empty file would set the fail bit of the target.
    if (file.peek() != std::ifstream::traits_type::eof()) text << file.rdbuf();
    return std::move(text).str();
}

std::vector<unsigned char> readBytecodeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!isOpen(file, path)) {
        throw std::runtime_error("Failed to open bytecode file for reading: " + path);
    }
    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg();
    if (size < 0) throw std::runtime_error("Failed to size bytecode file: " + path);
    file.seekg(0);
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    if (!bytes.empty()) file.read(reinterpret_cast<char*>(bytes.data()), size);
    if (!file) throw std::runtime_error("Invalid bytecode file (truncated data): " + path);
    return bytes;
}

void compileFile(DovrelScript& interpreter, const std::string& script, const std::string& output) {
    const BytecodeProgram program = interpreter.compileToBytecodeInternal(readFile(script));
    const std::vector<unsigned char> bytes = serializeBytecode(program);
    if (isSameFile(script, output)) throw std::runtime_error("failed to open file: " + output);
    // Opened only now: a script that does not compile leaves an older file alone.
    std::ofstream file(output, std::ios::binary | std::ios::trunc);
    if (!file) throw std::runtime_error("Failed to open bytecode file for writing: " + output);
    // A file that must not grow as large is a failure like others, and no end by a signal.
    std::signal(SIGXFSZ, SIG_IGN);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw std::runtime_error("failed to write file: " + output);
}

void runBytecodeFile(DovrelScript& interpreter, const std::string& path) {
    interpreter.runBytecodeProgram(std::make_shared<BytecodeProgram>(
        interpreter.deserializeBytecode(readBytecodeFile(path), path)));
}

/// Each line is a whole script of its own; the interpreter keeps its globals from line to line.
/// There is no handler here: an error ends the process, and the prompt does not come back. Kept.
void runPrompt(DovrelScript& interpreter) {
    std::string line;
    for (;;) {
        std::cout << "dv> " << std::flush;
        if (!std::getline(std::cin, line) || line == "exit" || line == "quit") return;
        if (!line.empty()) interpreter.runScript(line);
    }
}

/// A descriptor of a standard stream that is closed would be taken by the first file that is
/// opened: what is printed would go into a script's file. The null device stands in.
void openClosedStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest free descriptor is the one that was found closed.
        if (fcntl(stream, F_GETFD) < 0) static_cast<void>(open("/dev/null", O_RDWR));
    }
}

/// For the end of the stack, which is told nothing.
const DovrelScript* running = nullptr;

int runMode(int argc, char** argv) {
    // Made before any argument is looked at.
    DovrelScript interpreter;
    running = &interpreter;
    if (argc <= 1) return printUsage(argv[0]);
    const std::string_view mode = argv[1];
    if (mode == "--run-bytecode") {
        if (argc != 3) return printUsage(argv[0]);
        interpreter.leavesProgramsToSystem = true;
        runBytecodeFile(interpreter, argv[2]);
    } else if (mode == "--compile") {
        if (argc != 4) return printUsage(argv[0]);
        compileFile(interpreter, argv[2], argv[3]);
    } else if (mode == "--repl") {
        runPrompt(interpreter);
    } else {
        if (argc != 2) return printUsage(argv[0]);
        interpreter.leavesProgramsToSystem = true;
        interpreter.runScript(readFile(argv[1]));
    }
    return kSuccess;
}

}  // namespace

int main(int argc, char** argv) {
    openClosedStreams();
    int status = kFailure;
    setAtStackEnd([] {
        if (running != nullptr) endByStackOverflow(*running);
    });
    runOnLargeStack([&] {
        try {
            status = runMode(argc, argv);
        } catch (const std::exception& error) {
            // The interpreter is gone by now: its files are closed and flushed.
            std::cerr << "dovrelscript: " << error.what() << std::endl;
            status = kFailure;
        }
    });
    return status;
}
