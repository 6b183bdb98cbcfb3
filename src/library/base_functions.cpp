// The natives that deal with values and errors.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "exec/machine.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"
#include "value/array_storage.h"
#include "value/numbers.h"
#include "value/text.h"

namespace {

/// A whole text in a base other than 10; nil if anything is wrong with it.
Variable numberInBase(const std::string& text, int base) {
    errno = 0;
    char* stop = nullptr;
    const long long number = std::strtoll(text.c_str(), &stop, base);
    if (errno != 0 || stop == text.c_str() || stop != text.c_str() + text.size()) return {};
    return Variable::makeInt(
        static_cast<int>(static_cast<std::uint32_t>(static_cast<unsigned long long>(number))));
}

Variable decimalNumber(const std::string& text) {
    // Tested first, so that the common int text takes one pass.
    if (text.find_first_of(".eE") == std::string::npos) {
        if (int number = 0; parseIntStrict(text, number)) return Variable::makeInt(number);
    }
    if (float number = 0.0F; parseFloatStrict(text, number)) return Variable::makeFloat(number);
    return {};
}

std::vector<Variable> copyOf(Arguments args) {
    std::vector<Variable> values;
    values.reserve(args.size());
    for (std::size_t i = 0; i < args.size(); ++i) values.push_back(args[i]);
    return values;
}

const char* typeWord(VarType type) {
    switch (type) {
        case VarType::Nil: return "nil";
        case VarType::Int:
        case VarType::Float: return "number";
        case VarType::String: return "string";
        case VarType::Bool: return "boolean";
        case VarType::Raw:
        case VarType::Pointer: return "userdata";
        case VarType::Array:
        case VarType::Multi:
        case VarType::Table: return "table";
        case VarType::Function: return "function";
    }
    return "unknown";
}

/// The last of `values` from the 1-based `index` on: one value by itself, or a multi-value.
template <typename ValueAt>
Variable selectFrom(int index, std::size_t count, ValueAt valueAt) {
    if (index < 1) throwPlainError("select index must be >= 1");
    const std::size_t first = static_cast<std::size_t>(index) - 1;
    if (first >= count) return {};
    if (first + 1 == count) return valueAt(first);
    std::vector<Variable> rest;
    rest.reserve(count - first);
    for (std::size_t i = first; i < count; ++i) rest.push_back(valueAt(i));
    return Variable::makeMulti(std::move(rest));
}

}  // namespace

Variable printFunction(DovrelScript& interpreter, Arguments args) {
    std::string text;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (i > 0) text += ' ';
        appendVariableStringFast(text, args[i]);
    }
    text += '\n';
    if (interpreter.host.output) [[unlikely]] {
        interpreter.host.output(text);
        return {};
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    return {};
}

int DovrelScript::elapsedMilliseconds() const {
    const auto elapsed = std::chrono::steady_clock::now() - startTime;
    return static_cast<int>(static_cast<std::uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()));
}

Variable getTimeMsFunction(DovrelScript& interpreter, Arguments args) {
    if (!args.empty()) throwPlainError("getTimeMs function takes no arguments");
    return Variable::makeInt(interpreter.elapsedMilliseconds());
}

Variable toStringFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1) throwPlainError("toString function requires exactly 1 argument");
    return Variable(args[0].toString());
}

Variable toNumberFunction(DovrelScript&, Arguments args) {
    if (args.empty() || args.size() > 2) {
        throwPlainError("toNumber(x[, base]) requires 1 or 2 arguments");
    }
    const int base = args.size() == 2 ? toInt(args[1]) : 10;
    if (base < 2 || base > 36) return {};
    const Variable& value = args[0];
    switch (value.type) {
        case VarType::Int:
        case VarType::Float: return value;
        case VarType::Bool: return Variable::makeInt(value.asBool() ? 1 : 0);
        case VarType::String:
            return base == 10 ? decimalNumber(value.asString())
                              : numberInBase(value.asString(), base);
        default: return {};
    }
}

Variable typeOfFunction(DovrelScript& interpreter, Arguments args) {
    if (args.size() != 1) throwPlainError("typeOf(x) requires exactly 1 argument");
    return Variable(interpreter.machine->typeText(args[0].type, typeWord(args[0].type)));
}

Variable assertFunction(DovrelScript& interpreter, Arguments args) {
    if (args.empty()) throwPlainError("assert requires at least 1 argument");
    if (isTruthy(args[0])) {
        return args.size() == 1 ? args[0] : Variable::makeMulti(copyOf(args));
    }
    interpreter.raiseScriptErrorSoft(args.size() > 1 ? args[1].toString() : "assertion failed!");
    return {};
}

Variable errorFunction(DovrelScript& interpreter, Arguments args) {
    interpreter.raiseScriptErrorSoft(args.empty() ? "error" : args[0].toString());
    return {};
}

Variable pcallFunction(DovrelScript& interpreter, Arguments args) {
    if (args.empty()) throwPlainError("pcall requires a callable value");
    return interpreter.protectedCall(args);
}

Variable DovrelScript::protectedCall(Arguments args) {
    settleMemoryIfDue();
    const std::uint64_t depth = callDepth;
    protectedCallDepths.push_back(depth);
    const auto failed = [](std::string message) {
        return Variable::makeMulti({Variable::makeBool(false), Variable(std::move(message))});
    };
    Variable result;
    try {
        result = invokeCallableFast(args[0], args.from(1));
    } catch (const std::exception& error) {
        // A coroutine's end is no standard exception: it passes, and leaves its entry to the
        // scheduler, which drops the whole stack.
        protectedCallDepths.pop_back();
        observeError(error);
        if (observer != nullptr) tellCaught();
        noteError(error.what());
        settleMemoryIfDue();
        return failed(error.what());
    }
    protectedCallDepths.pop_back();
    if (softErrorPending && softErrorDepth == depth) {
        softErrorPending = false;
        noteAttention();
        softErrorDepth = 0;
        settleMemoryIfDue();
        return failed(std::exchange(softErrorMessage, std::string()));
    }
    std::vector<Variable> values = {Variable::makeBool(true)};
    if (result.type == VarType::Multi) {
        const std::vector<Variable>& results = result.asMulti()->values;
        values.insert(values.end(), results.begin(), results.end());
    } else if (!result.isNil()) {
        values.push_back(std::move(result));
    }
    return Variable::makeMulti(std::move(values));
}

Variable selectFunction(DovrelScript&, Arguments args) {
    if (args.size() < 2) throwPlainError("select(index, values...) requires at least 2 arguments");
    if (args[0].type != VarType::Int) {
        throwPlainError("select(index, values...) requires an integer index");
    }
    const int index = args[0].asInt();
    // A single array or multi-value stands for its elements.
    if (args.size() == 2 && (args[1].type == VarType::Array || args[1].type == VarType::Multi)) {
        const std::span<const Variable> values =
            args[1].type == VarType::Array ? std::span<const Variable>(*args[1].asArray())
                                           : std::span<const Variable>(args[1].asMulti()->values);
        return selectFrom(index, values.size(), [&](std::size_t i) { return values[i]; });
    }
    return selectFrom(index, args.size() - 1, [&](std::size_t i) { return args[i + 1]; });
}

// Nothing waits to be collected: each value goes with its last reference.
Variable collectGarbageFunction(DovrelScript&, Arguments) { return {}; }

Variable killFunction(DovrelScript& interpreter, Arguments args) {
    if (!args.empty()) throwPlainError("kill() takes no arguments");
    interpreter.killCoroutine();
    return {};
}
