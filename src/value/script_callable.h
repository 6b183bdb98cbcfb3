// The record behind every function value, native or script.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "value/arguments.h"
#include "value/names.h"
#include "value/variable.h"

struct BytecodeProgram;
struct MachineFunction;
struct TurnLines;
struct ParsedScriptLine;
enum class BuiltinId : std::uint8_t;

/// The body of a native: arguments in, result out. Failures are raised.
using NativeFunction = std::function<Variable(Arguments)>;

/// What kind of short body a script function has, if it can run without a scope of its own.
enum class FastBodyKind : std::uint8_t {
    None = 0,            // runs in a frame
    SingleReturn = 1,    // one `return` line
    GuardAndReturn = 2,  // `if` C, `error` of a literal, `end`, `return`
};

/// A native or script function. Shared by reference counting; a call holds a reference for as long
/// as it runs, since the variable that named the function may be overwritten by the call itself.
struct ScriptCallable {
    bool isNative = false;
    bool isDecay = false;     // a call starts a coroutine instead of running the body
    bool isVariadic = false;  // the parameter list ended in "..."
    NativeFunction nativeFunction;
    std::string name;                          // as registered or declared
    BuiltinId builtinId{};                     // 0 for none
    std::vector<Name> parameters;              // without the "..."
    std::shared_ptr<BytecodeProgram> program;  // holds the body when it is bytecode, else null
    std::uint32_t chunkIndex = 0;              // the body's chunk in `program`
    bool isLoadedChunk = false;                // made from a loaded text; refuses arguments
    /// The body's lines, for bodies without a program, for coroutines and for fast bodies. Null
    /// where nothing reads them.
    std::shared_ptr<const std::vector<ParsedScriptLine>> bodyLines;
    std::string baseDirectory;  // pushed on the directory stack during a call, when not empty
    std::string scriptName;     // pushed on the name stack during a call, when not empty
    FastBodyKind fastBodyKind = FastBodyKind::None;
    std::uint16_t fastGuardLine = 0;   // index in `bodyLines` of the guarding `if`
    std::uint16_t fastReturnLine = 0;  // index in `bodyLines` of the `return`
    std::string fastGuardMessage;      // decoded message of the guard's `error` call
    // Its compiled form, once somebody has asked; the program owns it.
    mutable MachineFunction* machineFunction = nullptr;
    mutable MachineFunction* directFunction = nullptr;  // the same if it `runsInFrame`
    mutable bool isMachineRefused = false;
    // The compiled form of a body of one line without calls, which runs without a scope.
    mutable std::shared_ptr<MachineFunction> leaf;
    mutable bool isLeafRefused = false;
    mutable bool hasBeenCalled = false;  // known of such a function alone
    // Of a decay function: the lines of its body that turns have run often.
    mutable std::shared_ptr<TurnLines> turnLines;

    /// A call pushes a frame with the parameters and nothing else.
    [[nodiscard]] bool runsInFrame() const {
        return !isNative && !isDecay && !isVariadic && !isLoadedChunk &&
               fastBodyKind == FastBodyKind::None;
    }
};

inline ScriptCallable* Variable::rawFunction() const noexcept { return callableContent().get(); }

/// The native that a value is; null for a null pointer and for every other value.
[[nodiscard]] inline const ScriptCallable* nativeOf(const Variable* value) {
    if (value == nullptr || value->type != VarType::Function) return nullptr;
    const ScriptCallable* callable = value->asFunction().get();
    return callable != nullptr && callable->isNative ? callable : nullptr;
}
