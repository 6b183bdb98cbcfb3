// The interpreter as a page in a browser sees it: a few functions for the program around it, which
// puts files into the memory of the module, takes what is written to the standard streams, and
// starts anew for each run.
#include <emscripten/emscripten.h>
#include <emscripten/stack.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "dovrel/check_script.h"
#include "dovrel/formatter.h"
#include "eval/exhaustion.h"
#include "interpreter/dovrel_script.h"
#include "value/run_context.h"
#include "value/stack_end.h"

/// Asks the program around for a line and writes its size. It is the caller's to free; null at the
/// end.
extern "C" char* playground_ask_line(std::size_t* size);

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
/// Of the stack in the module's memory, for what does not ask how much is left.
constexpr std::uintptr_t kReserve = std::uintptr_t{4} << 20;

/// For the end of the stack, which is told nothing.
const DovrelScript* running = nullptr;

/// What a function gives beside its number. It lasts until the next call.
std::string answer;

std::string readScript(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("failed to open file: " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::optional<std::string> nextLine() {
    std::size_t size = 0;
    const std::unique_ptr<char, decltype(&std::free)> line(playground_ask_line(&size), &std::free);
    if (line == nullptr) return std::nullopt;
    return std::string(line.get(), size);
}

void runScript(const std::string& path, bool asks) {
    DovrelScript interpreter;
    running = &interpreter;
    if (asks) interpreter.host.input = nextLine;
    interpreter.leavesProgramsToSystem = true;
    interpreter.runScript(readScript(path));
}

void appendQuoted(std::string& json, std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    json += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) {
            json += "\\u00";
            json += kDigits[byte >> 4U];
            json += kDigits[byte & 15U];
            continue;
        }
        if (c == '"' || c == '\\') json += '\\';
        json += c;
    }
    json += '"';
}

void appendFinding(std::string& json, const CheckResult& result, const Finding& finding) {
    json += "{\"code\":";
    appendQuoted(json, finding.code->code);
    json += ",\"severity\":";
    appendQuoted(json, finding.code->severity == Severity::Error ? "error" : "warning");
    json += ",\"message\":";
    appendQuoted(json, finding.message);
    json += ",\"explanation\":";
    appendQuoted(json, finding.code->explanation);
    const SourceRange range = finding.range;
    json += ",\"line\":" + std::to_string(result.source.positionOf(range.first).line + 1) +
            ",\"first\":" + std::to_string(range.first) +
            ",\"last\":" + std::to_string(range.last) + '}';
}

}  // namespace

extern "C" {

/// Runs the file `path` as the command line does: output and error texts go to the standard
/// streams. Gives the exit status. A script that ends the process leaves by an exception of the
/// program around, which knows the status. With `asks`, standard input is asked for line by line,
/// and not the file of that name: that would be read ahead, and not go on behind its end. To be
/// called once.
EMSCRIPTEN_KEEPALIVE int playground_run(const char* path, bool asks) {
    RunContext context;
    const ContextScope inside(&context);
    context.stackFloor = emscripten_stack_get_end() + kReserve;
    setAtStackEnd([] {
        if (running != nullptr) endByStackOverflow(*running);
    });
    int status = kSuccess;
    try {
        runScript(path, asks);
    } catch (const std::exception& error) {
        std::cerr << "dovrelscript: " << error.what() << std::endl;
        status = kFailure;
    }
    running = nullptr;
    std::cout.flush();
    return status;
}

/// The stack of the program around has ended in a run: that of the module's calls, which the module
/// cannot see. Ends it as the other one's end does.
EMSCRIPTEN_KEEPALIVE void playground_stack_end() {
    if (running != nullptr) endByStackOverflow(*running);
}

/// What is to be said about the script of `size` bytes at `text`, in the order of the text: a JSON
/// array of objects with `code`, `severity` ("error" or "warning"), `message`, `explanation`,
/// `line` (1-based), `first` and `last` (offsets of bytes, the last one behind the place). Gives
/// the size of that answer.
EMSCRIPTEN_KEEPALIVE std::size_t playground_check(const char* text, std::size_t size) {
    answer = "[";
    const CheckResult result = checkScript(std::string(text, size), "");
    for (const Finding& finding : result.findings) {
        if (answer.size() > 1) answer += ',';
        appendFinding(answer, result, finding);
    }
    answer += ']';
    return answer.size();
}

/// Lays out the script of `size` bytes at `text`. Gives whether that was possible; the answer is
/// the new text, or why there is none.
EMSCRIPTEN_KEEPALIVE bool playground_format(const char* text, std::size_t size) {
    try {
        answer = formatScript(std::string(text, size));
        return true;
    } catch (const std::exception& error) {
        answer = error.what();
        return false;
    }
}

/// The answer of the last call, and its size in bytes.
EMSCRIPTEN_KEEPALIVE const char* playground_answer() { return answer.data(); }
EMSCRIPTEN_KEEPALIVE std::size_t playground_answer_size() { return answer.size(); }

}  // extern "C"
