#include "embedding/state.h"

#include <locale.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "exec/machine.h"
#include "value/table.h"

namespace dovrel::detail {

namespace {

/// A quarter of it is for recursions that nobody asks about; see `requireHostStack`.
constexpr std::size_t kStackSize = std::size_t{512} << 20;
constexpr std::size_t kKept = std::size_t{256} << 10;  // of a stack that is not ours

/// Never freed: interpreters may live as long as the process.
locale_t plainLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

Reason reasonOf(StopReason reason) {
    switch (reason) {
        case StopReason::Statements: return Reason::Statements;
        case StopReason::Memory: return Reason::Memory;
        case StopReason::Time: return Reason::Time;
        case StopReason::Recursion:
        case StopReason::Stack: return Reason::Recursion;
        case StopReason::None:
        case StopReason::Interrupted: break;
    }
    return Reason::Interrupted;
}

StopReason stopOf(Reason reason) {
    switch (reason) {
        case Reason::Statements: return StopReason::Statements;
        case Reason::Memory: return StopReason::Memory;
        case Reason::Time: return StopReason::Time;
        case Reason::Recursion: return StopReason::Recursion;
        default: return StopReason::Interrupted;
    }
}

std::string stopMessage(StopReason reason, const Limits& limits) {
    using std::chrono::milliseconds;
    switch (reason) {
        case StopReason::Statements:
            return "the limit of " + std::to_string(limits.statements) +
                   " statements has been reached";
        case StopReason::Memory:
            return "the limit of " + std::to_string(limits.memory) +
                   " bytes of memory has been reached";
        case StopReason::Time:
            return "the limit of " +
                   std::to_string(std::chrono::duration_cast<milliseconds>(limits.time).count()) +
                   " milliseconds has been reached";
        case StopReason::Recursion:
            return "the limit of " + std::to_string(limits.recursion) +
                   " calls inside of each other has been reached";
        case StopReason::Stack: return "stack overflow";
        case StopReason::None:
        case StopReason::Interrupted: break;
    }
    return "interrupted";
}

}  // namespace

// ---------------------------------------------------------------- inside and outside

Inside::Inside(State& state) noexcept
    : context_(&state.context), locale_(uselocale(plainLocale())) {}
Inside::~Inside() { uselocale(static_cast<locale_t>(locale_)); }

Outside::Outside(State&) noexcept : context_(nullptr), locale_(uselocale(LC_GLOBAL_LOCALE)) {}
Outside::~Outside() { uselocale(static_cast<locale_t>(locale_)); }

// ---------------------------------------------------------------- references

Reference::Reference(std::shared_ptr<State> owner, const Variable& held)
    : state(std::move(owner)), variable(held), next(state->references) {
    if (next != nullptr) next->previous = this;
    state->references = this;
}

Reference::~Reference() {
    if (previous == nullptr && state->references != this) return;  // the state has ended
    (previous != nullptr ? previous->next : state->references) = next;
    if (next != nullptr) next->previous = previous;
    const ContextScope inside(&state->context);
    variable.setNil();
}

// ---------------------------------------------------------------- life

State::State(Interpreter& interpreter, const Options& options)
    : owner(&interpreter), limits(options.limits), stack(kStackSize) {
    const Inside inside(*this);
    script = std::make_unique<DovrelScript>();
    script->host.mayUseFiles = options.files;
    script->host.mayRunCommands = options.processes;
    context.memoryLimit = limits.memory;
}

State::~State() = default;

void State::close() noexcept {
    // Natives of the host go with the globals, and may hold values of this interpreter.
    const std::shared_ptr<State> alive = shared_from_this();
    const Inside inside(*this);
    while (references != nullptr) {
        Reference* const reference = references;
        references = reference->next;
        if (references != nullptr) references->previous = nullptr;
        reference->next = reference->previous = nullptr;
        const Variable held = std::move(reference->variable);
    }
    context.memoryLimit = 0;
    script.reset();
    context.patterns.reset();
    for (Text& text : context.readyTexts) text = nullptr;
    context.releaseContainers();
}

void State::requireOpen() const {
    if (script == nullptr) throw Error("the interpreter has ended", Reason::Usage);
}

void State::checkThread() const {
    if (depth != 0 && runner != std::this_thread::get_id()) {
        throw Error("the interpreter is at work on another thread", Reason::Usage);
    }
}

// ---------------------------------------------------------------- runs

/// What a run that is left in the middle must leave as it was.
struct State::Position {
    explicit Position(DovrelScript& interpreter)
        : script(interpreter),
          callDepth(interpreter.callDepth),
          protectedFrameDepth(std::exchange(interpreter.protectedFrameDepth, 0)),
          protectedCalls(std::exchange(interpreter.protectedCallDepths, {})),
          directories(interpreter.baseDirectoryStack.size()),
          names(interpreter.scriptNameStack.size()),
          varargs(interpreter.varargStack.size()),
          frames(interpreter.frameScopes.size()),
          blocks(interpreter.blockScopes.size()),
          blockFloor(interpreter.blockScopeFloor),
          fastCallable(std::exchange(interpreter.fastCallable, nullptr)),
          fastArgs(interpreter.fastArgs),
          fastFrameBase(interpreter.fastFrameBase) {}
    /// To be done on every way out.
    void restore(bool failed, bool stopped, bool isOutermost) {
        script.protectedFrameDepth = protectedFrameDepth;
        script.protectedCallDepths = std::move(protectedCalls);
        script.fastCallable = fastCallable;
        script.fastArgs = fastArgs;
        script.fastFrameBase = fastFrameBase;
        if (!failed) return;
        script.callDepth = callDepth;
        script.softErrorPending = false;
        script.noteAttention();
        script.softErrorDepth = 0;
        script.softErrorMessage.clear();
        script.baseDirectoryStack.resize(directories);
        script.scriptNameStack.resize(names);
        script.varargStack.resize(varargs);
        script.blockScopeFloor = blockFloor;
        if (!isOutermost) return;
        script.pendingCoroutineException = nullptr;
        if (stopped) script.scheduledCoroutine.reset();
        script.noteAttention();
        // A program keeps a frame that it has made on demand; one that has failed, too.
        if (script.blockScopes.size() > blocks) script.blockScopes.popTo(blocks);
        if (script.frameScopes.size() > frames + 1) script.frameScopes.popTo(frames + 1);
    }

    DovrelScript& script;
    std::uint64_t callDepth;
    std::uint64_t protectedFrameDepth;
    std::vector<std::uint64_t> protectedCalls;
    std::size_t directories;
    std::size_t names;
    std::size_t varargs;
    std::size_t frames;
    std::size_t blocks;
    std::size_t blockFloor;
    const ScriptCallable* fastCallable;
    ::Arguments fastArgs;
    std::size_t fastFrameBase;
};

void State::run(const std::function<void()>& work, std::exception_ptr& failure) {
    const Inside inside(*this);
    const bool isOutermost = depth == 1;
    const char here = 0;
    if (isOutermost) {
        const auto address = reinterpret_cast<std::uintptr_t>(&here);
        const std::uintptr_t lowest = stack.lowest();
        const bool isOurs = lowest != 0 && address > lowest && address - lowest < stack.size();
        context.stackFloor = isOurs ? lowest + stack.size() / 2 : address - kKept;
        context.memoryLimit = limits.memory;
        context.watch.begin(limits.statements,
                            static_cast<std::uint64_t>(std::max<std::int64_t>(
                                0, std::chrono::nanoseconds(limits.time).count())),
                            limits.recursion);
    }
    std::exception_ptr raised;
    {
        bool stopped = false;
        Position position(*script);
        try {
            work();
            script->rethrowPendingCoroutineException();
            if (context.watch.isMemoryExceeded()) throw ScriptStopped{StopReason::Memory};
        } catch (const ScriptStopped&) {
            stopped = true;
            raised = std::current_exception();
        } catch (...) {
            raised = std::current_exception();
        }
        if (stopped) script->machine->forgetLastToken();
        if (raised != nullptr) {
            script->keepCurrentLineText();
            failure = translated(raised);
        }
        position.restore(raised != nullptr, stopped, isOutermost);
    }
    raised = nullptr;
    if (isOutermost) context.watch.end();
}

void State::enter(const std::function<void()>& work) {
    requireOpen();
    checkThread();
    const std::shared_ptr<State> alive = shared_from_this();
    std::exception_ptr failure;
    const std::thread::id before = std::exchange(runner, std::this_thread::get_id());
    ++depth;
    if (depth > 1) {
        run(work, failure);
    } else {
        const std::function<void()> entered = [&] {
            // Where the stack is another thread's, that thread is the runner.
            const std::thread::id outer = std::exchange(runner, std::this_thread::get_id());
            run(work, failure);
            runner = outer;
        };
        stack.run(entered);
    }
    --depth;
    runner = before;
    if (failure != nullptr) std::rethrow_exception(failure);
}

/// The Error that the host gets for what has been raised inside.
std::exception_ptr State::translated(const std::exception_ptr& failure) {
    ErrorFields fields;
    try {
        std::rethrow_exception(failure);
    } catch (const ScriptStopped& stop) {
        if (foreign != nullptr) {
            // Through runs and natives to whoever has made the outermost run.
            return depth == 1 ? std::exchange(foreign, nullptr) : foreign;
        }
        const ContextScope outside(nullptr);
        fields = stopped(stop.reason);
    } catch (const std::exception& error) {
        const ContextScope outside(nullptr);
        if (context.watch.isMemoryExceeded()) {
            fields = stopped(StopReason::Memory);
        } else if (const auto* own = dynamic_cast<const Error*>(&error)) {
            fields = *own->fields_;
        } else {
            fields = fieldsOf(error.what());
        }
    } catch (...) {
        return failure;
    }
    const ContextScope outside(nullptr);
    return std::make_exception_ptr(Error(std::make_shared<const ErrorFields>(std::move(fields))));
}

ErrorFields State::stopped(StopReason reason) const {
    ErrorFields fields;
    fields.reason = reasonOf(reason);
    fields.message = stopMessage(reason, limits);
    fields.script = script->stoppedIn;
    fields.line = static_cast<int>(script->currentLineNumber) + 1;
    if (script->currentLine != nullptr) fields.sourceLine = *script->currentLine;
    fields.report = std::string(kReportMarker) + " " + fields.message + "\n  at " +
                    (fields.script.empty() ? "line " : fields.script + ":") +
                    std::to_string(fields.line) + "\n  " + fields.sourceLine + "\n";
    return fields;
}

void State::rethrowOutside(const std::exception_ptr& failure) {
    std::exception_ptr error;
    {
        const Inside inside(*this);
        try {
            std::rethrow_exception(failure);
        } catch (const Error&) {
            error = failure;
        } catch (...) {
            error = translated(failure);
        }
        // What has failed between two runs is no matter of the next one.
        if (depth == 0) context.watch.end();
    }
    std::rethrow_exception(error);
}

// ---------------------------------------------------------------- calls

Value State::call(const Variable& callee, const Value* arguments, std::size_t count) {
    Value result;
    enter([&] {
        std::vector<Variable> values;
        values.reserve(count);
        for (std::size_t i = 0; i < count; ++i) values.push_back(variableOf(arguments[i]));
        Variable given;
        try {
            given = script->invokeCallableFast(callee, ::Arguments(values));
            script->rethrowPendingCoroutineException();
        } catch (const std::exception& error) {
            script->rethrowLocated(error, "");
        }
        result = valueOf(given);
    });
    return result;
}

Variable State::callNative(NativeBase& native, ::Arguments args) {
    std::vector<Value> values;
    {
        const ContextScope outside(nullptr);
        values.reserve(args.size());
    }
    // Without the reserve, growing would mix the host's memory and the script's.
    for (std::size_t i = 0; i < args.size(); ++i) values.push_back(valueOf(args[i]));
    Value result;
    // The host's memory, which must not be taken for the script's when it goes.
    struct HostText {
        std::optional<std::string> text;
        ~HostText() {
            const ContextScope outside(nullptr);
            text.reset();
        }
    } message;
    bool failed = false;
    bool turnEnded = false;
    StopReason stop = StopReason::None;
    {
        const Outside outside(*this);
        try {
            result = native.call(*owner, values.data(), values.size());
        } catch (const Error& error) {
            failed = true;
            if (error.isStop()) stop = stopOf(error.reason());
            // The report of a script that the native has run goes on as it is.
            message.text = error.what();
        } catch (const std::exception& error) {
            failed = true;
            message.text = error.what();
        } catch (const CoroutineTerminated&) {
            // What it has run has called `kill` in a turn: that is for the scheduler.
            turnEnded = true;
        } catch (...) {
            failed = true;
            foreign = std::current_exception();
            stop = StopReason::Interrupted;
        }
        values = {};
    }
    if (turnEnded) throw CoroutineTerminated();
    if (stop != StopReason::None) throw ScriptStopped{stop};
    if (!failed) {
        Variable given = variableOf(result);
        const ContextScope outside(nullptr);
        result = Value();
        return given;
    }
    throw RuntimeError(*message.text);
}

}  // namespace dovrel::detail
