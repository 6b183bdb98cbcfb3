// What somebody who watches a run is told: a tracer, a profiler, a debugger. The interpreter itself
// is built without it (DOVREL_OBSERVABLE); the companion's core has it, and asks nobody unless an
// observer is set.
//
// An observed program runs by the executors and never in the compiled form, so that each statement,
// call and turn passes the places that tell. What a script can see stays the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "value/arguments.h"
#include "value/names.h"
#include "value/variable.h"

class Scope;
struct BytecodeProgram;
struct CoroutineState;
struct ParsedScriptLine;
struct ScriptCallable;
struct TokenAnalysis;

/// How a call has ended.
enum class CallEnd : std::uint8_t {
    Returned,   // it has run to its end, or a soft error has stopped it
    Raised,     // an exception has left it
    WillRepeat  // the scalar tier has declined its result, and the call is made again at once
};

/// Everything is told on the interpreter's thread, in the order in which it happens; the
/// interpreter may be looked at, but not changed. What is handed in lives for the duration of the
/// call only, apart from callables, programs and lines, which live as long as what they stand for
/// runs. A function that is not marked `noexcept` may throw a ScriptStopped to end the run.
class RunObserver {
public:
    RunObserver() = default;
    virtual ~RunObserver() = default;
    RunObserver(const RunObserver&) = delete;
    RunObserver& operator=(const RunObserver&) = delete;

    /// A text has been compiled, by the host or by `load`, `loadFile` or `runFile`. The program
    /// moves afterwards, its lines stay where they are.
    virtual void programMade(const BytecodeProgram& program, const std::string& source);
    /// A whole program runs, one of the host's: what scripts load runs as a call.
    virtual void programBegins(const BytecodeProgram& program);
    virtual void programEnds() noexcept;

    /// A statement is about to run, or the condition of an `if`, `elseif`, `while` or `until` to be
    /// tested, each time that it is; of a `for`, its header before the first turn. The lines of a
    /// short function are told too, although reports never show them.
    virtual void statementBegins(const ParsedScriptLine& line);
    /// A turn of a `for` begins; `variables` holds its variables and stands above the function's
    /// own frame. What a body of the parsed form does to it is in it as well.
    virtual void iterationBegins(const ParsedScriptLine& header, const Scope& variables);
    /// A statement has stored `value` in a variable, or in the element of it that `keys` lead to.
    /// Not told of declared functions and of variables of loops.
    virtual void assigned(const ParsedScriptLine& line, const std::string& name,
                          std::span<const Variable> keys, const Variable& value);

    /// The body of a script function, or a loaded text, is about to run. Its parameters stand in
    /// the top frame scope, or, for a short function, in `args` alone, which stay until the end.
    virtual void callBegins(const ScriptCallable& callable, Arguments args);
    /// The call that began last and has not ended. Its scopes are still there.
    virtual void callEnds(CallEnd end) noexcept;

    /// A coroutine's turn begins: what runs until it ends is the coroutine's. `mainFlow` holds the
    /// scopes of the main flow meanwhile.
    virtual void turnBegins(const CoroutineState& coroutine);
    virtual void turnEnds() noexcept;

    /// An error is raised, caught or not; once for each, where the scopes of the statement that has
    /// raised it are still there. `message` has no location.
    virtual void errorRaised(std::string_view message) noexcept;

    // What follows is told if `watchesValues` holds when the observer is set. These may raise
    // errors of the script as well.
    bool watchesValues = false;

    /// The variable of a token has been looked up, for reading or writing, and `found` is what the
    /// evaluator goes on with; null for none.
    virtual void variableFound(const TokenAnalysis& token, const Variable* found, bool isWritten);
    /// A call inside of an expression is about to be made; `place` is the same each time.
    virtual void callEvaluated(const TokenAnalysis& place, const Variable& callee);
    /// An array has no element at `position`, and the absent value is read.
    virtual void elementMissing(std::int64_t position, std::size_t count);
    /// A compound assignment has made a value of another kind than it was.
    virtual void compoundChangedKind(const ParsedScriptLine& line, const std::string& name,
                                     VarType before, const Variable& after);
    /// An expression is tried as a number. What is told of 0 until the end is void if that says
    /// that the attempt has failed: the expression is then evaluated anew by other rules. A failed
    /// one is told while an exception leaves as well, and raises nothing.
    virtual void numberAttemptBegins();
    virtual void numberAttemptEnds(bool isAnswered);
    /// `or` has dropped the number 0 on its left; `place` is its operator.
    virtual void zeroDropped(const TokenAnalysis& place);

    bool errorIsTold = false;  // the interpreter's own note: the exception on its way has been told
};
