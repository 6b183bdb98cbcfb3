// Scripts that nobody has read, as the library runs them: whatever they do, they end, within their
// limits, in a value or in an Error, and give back what they have taken. The first byte chooses
// between the rest as a text and a program that a grammar makes of it.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/dovrel.h"
#include "program_generator.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t kMemory = std::size_t{8} << 20;
constexpr std::size_t kReserve = std::size_t{1} << 20;

dovrel::Options tightLimits() {
    dovrel::Options options = dovrel::Options::sandbox();
    options.limits.statements = 10000;
    options.limits.memory = kMemory;
    options.limits.recursion = 100;
    options.limits.time = std::chrono::seconds(20);
    return options;
}

void require(bool holds, const std::string& script, const char* what) {
    if (holds) return;
    std::cerr << "---- " << what << "\n" << script;
    std::abort();
}

/// What a host does with a script: natives that take and give, a run, a look at what is left.
void runAsAHostDoes(const std::string& script) {
    dovrel::Interpreter interpreter(tightLimits());
    std::size_t printed = 0;
    interpreter.setOutput([&](std::string_view text) { printed += text.size(); });
    std::vector<dovrel::Value> kept;
    interpreter.define("keep", [&](const dovrel::Value& value) {
        if (kept.size() < 100) kept.push_back(value);
        return value;
    });
    interpreter.define("again", [](const dovrel::Value& function, dovrel::Arguments rest) {
        return function.callWith(rest.begin(), rest.size());
    });
    bool stopped = false;
    try {
        kept.push_back(interpreter.run(script, "fuzz"));
    } catch (const dovrel::Error& error) {
        stopped = error.isStop();
    }
    require(interpreter.memoryUsed() <= kMemory + kReserve, script, "beyond the limit of memory");
    // It can be used on, whatever has happened, unless what is left takes all of the memory.
    try {
        require(interpreter.run("return 6 * 7").as<int>() == 42, script, "another value");
    } catch (const dovrel::Error& error) {
        // A coroutine goes on in the next run, with the errors that it has.
        require(error.isStop() || !stopped, script, error.what());
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string script =
        data[0] % 2 == 0 ? std::string(reinterpret_cast<const char*>(data) + 1, size - 1)
                         : ProgramGenerator(data + 1, size - 1, ProgramKind::Any).program();
    runAsAHostDoes(script);
    return 0;
}
