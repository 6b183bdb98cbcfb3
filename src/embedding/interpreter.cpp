#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "embedding/state.h"
#include "eval/errors.h"
#include "eval/name_stack_guard.h"
#include "exec/bytecode_program.h"

namespace dovrel {

using detail::State;

namespace {

/// Runs a text whose directory and name are `directory` and `name`, inside.
Variable runText(DovrelScript& script, const std::string& text, const std::string& directory,
                 const std::string& name) {
    // Outside the handler, so that the lines are alive while a report is built.
    std::shared_ptr<BytecodeProgram> program;
    try {
        const NameStackGuard names(script, directory, name);
        // A report of an open block shows a line number: that of this text.
        script.currentLineNumber = 0;
        script.lastToken.clear();
        program = script.readProgram(std::string(text), true);
        Variable value = script.runBytecodeProgram(program);
        script.rethrowPendingCoroutineException();
        return value;
    } catch (const std::exception& error) {
        script.rethrowLocated(error, "script");
    }
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    if (file && file.peek() != std::ifstream::traits_type::eof()) {
        text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    } else if (!file.is_open() || !file.eof()) {
        throw Error("Failed to open script file: " + path, Reason::Usage);
    }
    return text;
}

}  // namespace

Interpreter::Interpreter(const Options& options)
    : state_(std::make_shared<State>(*this, options)) {}

Interpreter::~Interpreter() { state_->close(); }

Value Interpreter::run(std::string_view text, std::string_view name) {
    Value result;
    state_->enter([&] {
        result = state_->valueOf(
            runText(*state_->script, std::string(text), std::string(), std::string(name)));
    });
    return result;
}

Value Interpreter::runFile(std::string_view path) {
    const std::string file(path);
    const std::string text = readFile(file);
    const std::size_t slash = file.rfind('/');
    const std::string directory =
        slash == std::string::npos ? std::string() : file.substr(0, slash);
    Value result;
    state_->enter(
        [&] { result = state_->valueOf(runText(*state_->script, text, directory, file)); });
    return result;
}

Value Interpreter::callGlobal(std::string_view function, const Value* arguments,
                              std::size_t count) {
    const Value callee = global(function);
    if (callee.kind() != Kind::Function) {
        throw Error("there is no function '" + std::string(function) + "'", Reason::Usage);
    }
    return callee.callWith(arguments, count);
}

Value Interpreter::global(std::string_view name) const {
    return state_->visit([&] {
        const DovrelScript& script = *state_->script;
        const auto found = script.globalSlots.find(std::string(name));
        if (found == script.globalSlots.end() || !script.globalAssigned[found->second]) {
            return Value();
        }
        return state_->valueOf(script.globalValues[found->second]);
    });
}

void Interpreter::setGlobal(std::string_view name, const Value& value) {
    state_->visit(
        [&] { state_->script->pushVariable(std::string(name), state_->variableOf(value)); });
}

Value Interpreter::makeArray() {
    return state_->visit([&] { return state_->valueOf(Variable::makeArray()); });
}

Value Interpreter::makeTable() {
    return state_->visit([&] { return state_->valueOf(Variable::makeTable()); });
}

Value Interpreter::wrapNative(std::shared_ptr<detail::NativeBase> native) {
    return state_->visit([&] {
        // It ends when the interpreter does at the latest, and is the host's to free.
        struct Held {
            explicit Held(std::shared_ptr<detail::NativeBase>&& function)
                : native(std::move(function)) {}
            ~Held() {
                const ContextScope outside(nullptr);
                native.reset();
            }
            Held(const Held&) = delete;
            Held& operator=(const Held&) = delete;
            std::shared_ptr<detail::NativeBase> native;
        };
        auto held = std::make_shared<Held>(std::move(native));
        return state_->valueOf(makeNativeCallable(
            [state = state_.get(), held](::Arguments args) {
                // The call may overwrite the last variable that holds the function.
                const std::shared_ptr<Held> alive = held;
                return state->callNative(*alive->native, args);
            },
            ""));
    });
}

void Interpreter::setOutput(std::function<void(std::string_view)> output) {
    if (!output) {
        state_->script->host.output = nullptr;
        return;
    }
    state_->script->host.output = [state = state_.get(),
                                   output = std::move(output)](std::string_view text) {
        const detail::Outside outside(*state);
        output(text);
    };
}

void Interpreter::setInput(std::function<std::optional<std::string>()> input) {
    if (!input) {
        state_->script->host.input = nullptr;
        return;
    }
    state_->script->host.input = [state = state_.get(), input = std::move(input)] {
        std::optional<std::string> line;
        {
            const detail::Outside outside(*state);
            line = input();
        }
        // What goes into the script is the script's memory, and what comes from the host is the
        // host's.
        std::optional<std::string> copy;
        if (line) copy.emplace(line->data(), line->size());
        const ContextScope outside(nullptr);
        line.reset();
        return copy;
    };
}

void Interpreter::setLimits(const Limits& limits) {
    state_->limits = limits;
    if (state_->depth == 0) state_->context.memoryLimit = limits.memory;
}

const Limits& Interpreter::limits() const noexcept { return state_->limits; }

std::uint64_t Interpreter::statementsRun() const noexcept {
    return state_->context.watch.statementsRun();
}

std::size_t Interpreter::memoryUsed() const noexcept { return state_->context.memoryUsed; }

void Interpreter::interrupt() noexcept { state_->context.watch.interrupt(); }

}  // namespace dovrel
