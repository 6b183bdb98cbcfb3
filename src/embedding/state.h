// What stands behind the public header: an interpreter with all that belongs to it, and the
// contents of its values. The header's types hold these by shared pointers, so that nothing of the
// interpreter's own types can be seen from outside.
//
// 1. Whatever touches an interpreter or a value of it does so inside of an Inside, and whatever
// calls
//    the host, an Outside. So the host's memory is not counted as a script's, nor the other way
//    round, and numbers are read and written the same way in every locale.
// 2. Scripts run on the state's own large stack. No exception crosses from there: `enter` carries
// it.
// 3. Objects that the host holds, these here among them, are made and freed outside of the context.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "dovrel/dovrel.h"
#include "host/large_stack.h"
#include "interpreter/dovrel_script.h"
#include "value/run_context.h"

namespace dovrel::detail {

/// The parts of an Error.
class ErrorFields {
public:
    Reason reason = Reason::Script;
    std::string report;
    std::string message;
    std::string script;
    int line = 0;
    std::string nearToken;
    std::string sourceLine;
    std::string hint;
};

/// The fields of a located report; a text that is none becomes the message.
[[nodiscard]] ErrorFields fieldsOf(std::string_view report);

/// The bytes of a String, or a reference to what an interpreter has.
struct Content {
    Content() = default;
    virtual ~Content() = default;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
};

struct TextContent final : Content {
    explicit TextContent(std::string_view bytes) : text(bytes) {}
    std::string text;
};

/// What a native of the host gives, before it has become a value of a script.
struct SeveralContent final : Content {
    std::vector<Value> values;
};

struct State;

/// Stands in the list of its state, which lets go of the variable when it ends.
struct Reference final : Content {
    Reference(std::shared_ptr<State> owner, const Variable& held);
    ~Reference() override;

    std::shared_ptr<State> state;
    Variable variable;
    Reference* previous = nullptr;
    Reference* next = nullptr;
};

/// While it lives, this thread is inside of the interpreter of `state`: the "C" locale, its
/// context.
class Inside {
public:
    explicit Inside(State& state) noexcept;
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

private:
    ContextScope context_;
    void* locale_;
};

/// While it lives, it is outside again.
class Outside {
public:
    explicit Outside(State& state) noexcept;
    ~Outside();
    Outside(const Outside&) = delete;
    Outside& operator=(const Outside&) = delete;

private:
    ContextScope context_;
    void* locale_;
};

struct State : std::enable_shared_from_this<State> {
    explicit State(Interpreter& owner, const Options& options);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// The end of the interpreter: values that the host still holds come to nothing.
    void close() noexcept;

    /// Runs `work` inside, on the large stack, with the limits of a run if it is the outermost one.
    /// What ends it becomes an Error, and the interpreter is as it was before.
    void enter(const std::function<void()>& work);
    /// Runs `work` inside, on the stack of the caller: for what runs no script code.
    template <class Work>
    auto visit(Work work) {
        requireOpen();
        checkThread();
        std::exception_ptr failure;
        try {
            const Inside inside(*this);
            return work();
        } catch (...) {
            failure = std::current_exception();
        }
        rethrowOutside(failure);
    }

    // Values. Both ways inside.
    [[nodiscard]] Value valueOf(const Variable& variable);
    [[nodiscard]] Variable variableOf(const Value& value);
    [[nodiscard]] static const Reference* referenceOf(const Value& value);
    /// The state of a value that is a reference; raises Error for one that has come to nothing.
    [[nodiscard]] static State& stateOf(const Value& value);
    [[nodiscard]] static Value severalOf(const Value* values, std::size_t count);

    /// Calls `callee` from outside.
    Value call(const Variable& callee, const Value* arguments, std::size_t count);
    /// Calls a native of the host from inside.
    Variable callNative(NativeBase& native, ::Arguments args);

    void requireOpen() const;
    void checkThread() const;

    Interpreter* owner;
    Limits limits;
    LargeStack stack;
    RunContext context;
    std::unique_ptr<DovrelScript> script;
    Reference* references = nullptr;
    std::size_t depth = 0;  // runs inside of each other, with natives between them
    std::thread::id runner;
    std::exception_ptr foreign;  // raised by a native, and no standard exception
    bool onStack = false;

private:
    struct Position;
    void run(const std::function<void()>& work, std::exception_ptr& failure);
    [[nodiscard]] std::exception_ptr translated(const std::exception_ptr& failure);
    [[nodiscard]] ErrorFields stopped(StopReason reason) const;
    [[noreturn]] void rethrowOutside(const std::exception_ptr& failure);
};

}  // namespace dovrel::detail
