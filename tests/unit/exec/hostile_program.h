// Running programs that no compiler writes.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "bytecode_bytes.h"
#include "exec/bytecode_program.h"
#include "host/large_stack.h"
#include "interpreter/dovrel_script.h"

namespace hostile {

inline constexpr std::uint32_t kFarAway = 0xFFFFFFFF;
inline constexpr int kMostTicks = 300;

inline int ticksLeft = kMostTicks;

/// A native that ends every script that goes on for ever, and hands its argument back.
inline Variable tick(DovrelScript&, Arguments args) {
    if (--ticksLeft < 0) throw std::runtime_error("out of ticks");
    return args.empty() ? Variable() : args[0];
}

/// Runs `work` in a fresh interpreter that has the native `tick`, on the host's large stack.
inline void inInterpreter(const std::function<void(DovrelScript&)>& work) {
    runOnLargeStack([&] {
        ticksLeft = kMostTicks;
        DovrelScript interpreter;
        interpreter.pushFunction("tick", tick);
        work(interpreter);
    });
}

inline BytecodeProgram compile(const std::string& script) {
    DovrelScript interpreter;
    return interpreter.compileToBytecodeInternal(script);
}

/// The message that running `program` as it stands ends in; empty if it ends well.
inline std::string runAsItStands(const std::shared_ptr<BytecodeProgram>& program,
                                 std::string* result = nullptr) {
    std::string message;
    inInterpreter([&](DovrelScript& interpreter) {
        try {
            const Variable value = interpreter.runBytecodeProgram(program);
            if (result != nullptr) *result = value.toString();
        } catch (const std::exception& error) {
            message = error.what();
        }
    });
    return message;
}

/// The same for a program that has been written to a file and read again.
inline std::string runAsFile(const BytecodeProgram& program, std::string* result = nullptr) {
    DovrelScript reader;
    return runAsItStands(std::make_shared<BytecodeProgram>(
                             reader.deserializeBytecode(fileOf(program), "hostile.dvbc")),
                         result);
}

/// The text between "DovrelScript error: " and the line's end; the whole of a bare message.
inline std::string messageOf(const std::string& text) {
    const std::string marker = "DovrelScript error: ";
    if (text.rfind(marker, 0) != 0) return text;
    return text.substr(marker.size(), text.find('\n') - marker.size());
}

}  // namespace hostile
