// The functions of dovrel_c.h, upon dovrel.h and nothing else.
#include <algorithm>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "dovrel/dovrel.h"
#include "dovrel/dovrel_c.h"

using dovrel::Error;
using dovrel::Kind;
using dovrel::Options;
using dovrel::Reason;
using dovrel::Value;

struct dovrel_interpreter {
    explicit dovrel_interpreter(const Options& options) : interpreter(options) {}
    dovrel::Interpreter interpreter;
};
struct dovrel_value {
    Value value;
};

static_assert(static_cast<int>(Kind::Several) == DOVREL_SEVERAL);
static_assert(static_cast<int>(Reason::Recursion) == DOVREL_RECURSION);

namespace {

constexpr dovrel_error kNone = {DOVREL_BY_USAGE, "", "", "", 0, "", "", ""};
constexpr dovrel_error kNoMemory = {
    DOVREL_MEMORY, "out of memory", "out of memory", "", 0, "", "", ""};

/// What the last failure of this thread was. The exception itself goes on when a native gives it
/// back, since it may be more to the interpreter than its text: the end of a run or of a turn.
struct Failure {
    std::exception_ptr exception;
    std::string message, script, nearToken, sourceLine, hint;
    dovrel_error shown = kNone;

    void show(const Error& error) {
        message = error.message();
        script = error.script();
        nearToken = error.nearToken();
        sourceLine = error.sourceLine();
        hint = error.hint();
        // The exception keeps the report.
        shown = {static_cast<dovrel_reason>(error.reason()),
                 error.what(),
                 message.c_str(),
                 script.c_str(),
                 error.line(),
                 nearToken.c_str(),
                 sourceLine.c_str(),
                 hint.c_str()};
    }
    /// Takes the exception that is being handled.
    void take() noexcept {
        exception = std::current_exception();
        shown = kNoMemory;
        try {
            throw;
        } catch (const Error& error) {
            try {
                show(error);
            } catch (...) {
                shown = kNoMemory;
            }
        } catch (const std::bad_alloc&) {
        } catch (const std::exception& error) {
            shown = kNone;
            shown.report = shown.message = error.what();
        } catch (...) {
            shown = kNone;
            shown.report = shown.message = "an exception of an unknown type";
        }
    }
};

thread_local Failure lastFailure;

/// Runs `work`, and gives what it gives; zero of that type if it fails.
template <class Work>
auto guarded(Work work) noexcept -> decltype(work()) {
    try {
        return work();
    } catch (...) {
        lastFailure.take();
        return {};
    }
}

/// The same with a value, for the caller to own.
template <class Work>
dovrel_value* guardedValue(Work work) noexcept {
    return guarded([&] { return new dovrel_value{work()}; });
}

/// The same for what gives nothing.
template <class Work>
bool done(Work work) noexcept {
    return guarded([&] {
        work();
        return true;
    });
}

const Value& of(const dovrel_value* value) {
    static const Value nil{};
    return value == nullptr ? nil : value->value;
}

/// `Handle` may be const.
template <class Handle>
requires std::same_as<std::remove_const_t<Handle>, dovrel_interpreter>
auto& of(Handle* handle) {
    if (handle == nullptr) throw Error("there is no interpreter", Reason::Usage);
    return handle->interpreter;
}

std::string_view of(const char* text) { return text == nullptr ? std::string_view() : text; }

std::vector<Value> listOf(const dovrel_value* const* values, std::size_t count) {
    std::vector<Value> list;
    list.reserve(count);
    for (std::size_t i = 0; i < count; ++i) list.push_back(of(values[i]));
    return list;
}

Value callWith(const Value& function, const dovrel_value* const* arguments, std::size_t count) {
    const std::vector<Value> list = listOf(arguments, count);
    return function.callWith(list.data(), list.size());
}

Options optionsOf(const dovrel_options& given) {
    Options options;
    options.files = given.files;
    options.processes = given.processes;
    constexpr std::uint64_t longest = std::chrono::nanoseconds::max().count();
    options.limits = {given.statements, static_cast<std::size_t>(given.memory), given.recursion,
                      std::chrono::nanoseconds(std::min(given.nanoseconds, longest))};
    return options;
}

/// A native of the host with what belongs to it.
struct HostFunction {
    dovrel_interpreter* interpreter;
    dovrel_native native;
    std::shared_ptr<void> user;

    Value operator()(dovrel::Arguments arguments) const {
        std::vector<dovrel_value> handles;
        std::vector<const dovrel_value*> pointers;
        handles.reserve(arguments.size());
        for (const Value& argument : arguments) {
            handles.push_back({argument});
            pointers.push_back(&handles.back());
        }
        lastFailure.exception = nullptr;
        dovrel_value* result = nullptr;
        const bool succeeded =
            native(interpreter, pointers.data(), pointers.size(), &result, user.get());
        const std::unique_ptr<dovrel_value> owned(result);
        if (succeeded) return of(result);
        if (lastFailure.exception) std::rethrow_exception(lastFailure.exception);
        throw Error("a function of the host has failed");
    }
};

Value functionOf(dovrel_interpreter* interpreter, std::string_view name, dovrel_native native,
                 std::shared_ptr<void> user) {
    return of(interpreter).makeFunction(name, HostFunction{interpreter, native, std::move(user)});
}

std::shared_ptr<void> ownerOf(void* user, void (*release)(void*)) {
    return {user, [release](void* held) {
                if (release != nullptr) release(held);
            }};
}

}  // namespace

const dovrel_error* dovrel_last_error() { return &lastFailure.shown; }

dovrel_options dovrel_sandbox_options() {
    const Options options = Options::sandbox();
    return {options.files,
            options.processes,
            options.limits.statements,
            options.limits.memory,
            options.limits.recursion,
            static_cast<std::uint64_t>(options.limits.time.count())};
}

dovrel_interpreter* dovrel_new(const dovrel_options* options) {
    return guarded([&] {
        return new dovrel_interpreter(options == nullptr ? Options() : optionsOf(*options));
    });
}
void dovrel_free(dovrel_interpreter* interpreter) { delete interpreter; }

dovrel_value* dovrel_run(dovrel_interpreter* interpreter, const char* text, size_t length,
                         const char* name) {
    return guardedValue([&] { return of(interpreter).run({text, length}, of(name)); });
}
dovrel_value* dovrel_run_file(dovrel_interpreter* interpreter, const char* path) {
    return guardedValue([&] { return of(interpreter).runFile(of(path)); });
}
dovrel_value* dovrel_call(dovrel_interpreter* interpreter, const char* function,
                          const dovrel_value* const* arguments, size_t count) {
    return guardedValue([&] {
        const Value callee = of(interpreter).global(of(function));
        // Without arguments, for its error.
        if (callee.kind() != Kind::Function) return of(interpreter).call(of(function));
        return callWith(callee, arguments, count);
    });
}
dovrel_value* dovrel_call_value(const dovrel_value* function, const dovrel_value* const* arguments,
                                size_t count) {
    return guardedValue([&] { return callWith(of(function), arguments, count); });
}

dovrel_value* dovrel_global(const dovrel_interpreter* interpreter, const char* name) {
    return guardedValue([&] { return of(interpreter).global(of(name)); });
}
bool dovrel_set_global(dovrel_interpreter* interpreter, const char* name,
                       const dovrel_value* value) {
    return done([&] { of(interpreter).setGlobal(of(name), of(value)); });
}

dovrel_value* dovrel_function(dovrel_interpreter* interpreter, dovrel_native native, void* user,
                              void (*release)(void* user)) {
    return guardedValue(
        [&] { return functionOf(interpreter, {}, native, ownerOf(user, release)); });
}
bool dovrel_define(dovrel_interpreter* interpreter, const char* name, dovrel_native native,
                   void* user, void (*release)(void* user)) {
    return done([&] {
        const Value function = functionOf(interpreter, of(name), native, ownerOf(user, release));
        of(interpreter).setGlobal(of(name), function);
    });
}
bool dovrel_fail(const char* message) {
    return guarded([&]() -> bool { throw Error(of(message)); });
}

bool dovrel_set_output(dovrel_interpreter* interpreter,
                       void (*output)(const char* text, size_t length, void* user), void* user) {
    return done([&] {
        if (output == nullptr) return of(interpreter).setOutput(nullptr);
        of(interpreter).setOutput([=](std::string_view text) {
            output(text.data(), text.size(), user);
        });
    });
}

void dovrel_interrupt(dovrel_interpreter* interpreter) {
    if (interpreter != nullptr) interpreter->interpreter.interrupt();
}

dovrel_value* dovrel_boolean(bool truth) {
    return guardedValue([&] { return Value(truth); });
}
dovrel_value* dovrel_integer(int32_t number) {
    return guardedValue([&] { return Value(number); });
}
dovrel_value* dovrel_float(double number) {
    return guardedValue([&] { return Value(number); });
}
dovrel_value* dovrel_text(const char* bytes, size_t length) {
    return guardedValue([&] { return Value(std::string_view(bytes, length)); });
}
dovrel_value* dovrel_array(dovrel_interpreter* interpreter) {
    return guardedValue([&] { return of(interpreter).makeArray(); });
}
dovrel_value* dovrel_table(dovrel_interpreter* interpreter) {
    return guardedValue([&] { return of(interpreter).makeTable(); });
}
dovrel_value* dovrel_several(const dovrel_value* const* values, size_t count) {
    return guardedValue([&] {
        const std::vector<Value> list = listOf(values, count);
        return dovrel::detail::several(list.data(), list.size());
    });
}
dovrel_value* dovrel_copy(const dovrel_value* value) {
    return guardedValue([&] { return of(value); });
}
void dovrel_value_free(dovrel_value* value) { delete value; }

dovrel_kind dovrel_kind_of(const dovrel_value* value) {
    return static_cast<dovrel_kind>(of(value).kind());
}
bool dovrel_is_true(const dovrel_value* value) { return of(value).isTrue(); }
bool dovrel_to_boolean(const dovrel_value* value, bool* out) {
    return done([&] { *out = of(value).as<bool>(); });
}
bool dovrel_to_integer(const dovrel_value* value, int32_t* out) {
    return done([&] { *out = of(value).as<std::int32_t>(); });
}
bool dovrel_to_float(const dovrel_value* value, double* out) {
    return done([&] { *out = of(value).as<double>(); });
}
const char* dovrel_bytes(const dovrel_value* value, size_t* length) {
    return guarded([&] {
        const std::string_view text = of(value).text();
        if (length != nullptr) *length = text.size();
        return text.data();
    });
}
dovrel_value* dovrel_shown(const dovrel_value* value) {
    return guardedValue([&] { return Value(of(value).toString()); });
}

bool dovrel_size(const dovrel_value* value, size_t* out) {
    return done([&] { *out = of(value).size(); });
}
dovrel_value* dovrel_get(const dovrel_value* container, const dovrel_value* key) {
    return guardedValue([&] { return of(container)[of(key)]; });
}
bool dovrel_set(const dovrel_value* container, const dovrel_value* key, const dovrel_value* value) {
    return done([&] { of(container).set(of(key), of(value)); });
}
dovrel_value* dovrel_get_at(const dovrel_value* container, size_t position) {
    return guardedValue([&] { return of(container)[Value(position)]; });
}
dovrel_value* dovrel_get_field(const dovrel_value* table, const char* name) {
    return guardedValue([&] { return of(table)[Value(of(name))]; });
}
bool dovrel_set_field(const dovrel_value* table, const char* name, const dovrel_value* value) {
    return done([&] { of(table).set(Value(of(name)), of(value)); });
}
bool dovrel_push(const dovrel_value* array, const dovrel_value* value) {
    return done([&] { of(array).push(of(value)); });
}
bool dovrel_each(const dovrel_value* container,
                 bool (*visit)(const dovrel_value* key, const dovrel_value* value, void* user),
                 void* user) {
    return done([&] {
        for (const Value& key : of(container).keys()) {
            const dovrel_value held[] = {{key}, {of(container)[key]}};
            if (!visit(&held[0], &held[1], user)) break;
        }
    });
}
