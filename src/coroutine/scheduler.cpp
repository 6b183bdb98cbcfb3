// The one scheduled coroutine: its turns, its replacement, its end. A turn swaps the interpreter's
// per-flow state with the coroutine's, runs one statement, and swaps back; nothing is copied.
#include <exception>
#include <utility>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "interpreter/observed_run.h"

namespace {

/// Exchanges the interpreter's per-flow state with a coroutine's.
void swapFlow(DovrelScript& interpreter, FlowState& flow) {
    interpreter.frameScopes.swap(flow.frameScopes);
    interpreter.blockScopes.swap(flow.blockScopes);
    std::swap(interpreter.blockScopeFloor, flow.blockScopeFloor);
    std::swap(interpreter.baseDirectoryStack, flow.baseDirectoryStack);
    std::swap(interpreter.scriptNameStack, flow.scriptNameStack);
    std::swap(interpreter.varargStack, flow.varargStack);
    std::swap(interpreter.callDepth, flow.callDepth);
    std::swap(interpreter.protectedCallDepths, flow.protectedCallDepths);
    std::swap(interpreter.softErrorPending, flow.softErrorPending);
    std::swap(interpreter.softErrorDepth, flow.softErrorDepth);
    std::swap(interpreter.softErrorMessage, flow.softErrorMessage);
    interpreter.noteAttention();
}

/// The position and the running fast call of the main flow, which a turn starts without.
struct MainFlowPosition {
    const ScriptCallable* fastCallable = nullptr;
    Arguments fastArgs;
    std::size_t fastFrameBase = 0;
    std::size_t currentLineNumber = 0;
    std::size_t lastTokenIndex = 0;
    const std::string* currentLine = nullptr;
    std::string currentLineTextOverride;
    Shared<ScriptCallable> retiredCallable;
    const std::string* retiredLine = nullptr;

    void exchange(DovrelScript& interpreter) {
        std::swap(interpreter.fastCallable, fastCallable);
        std::swap(interpreter.fastArgs, fastArgs);
        std::swap(interpreter.fastFrameBase, fastFrameBase);
        std::swap(interpreter.currentLineNumber, currentLineNumber);
        std::swap(interpreter.lastTokenIndex, lastTokenIndex);
        // The override is where `currentLine` may point, so the two travel together.
        const bool ownsText = interpreter.currentLine == &interpreter.currentLineTextOverride;
        const bool owned = currentLine == &currentLineTextOverride;
        std::swap(interpreter.currentLine, currentLine);
        std::swap(interpreter.currentLineTextOverride, currentLineTextOverride);
        if (ownsText) currentLine = &currentLineTextOverride;
        if (owned) interpreter.currentLine = &interpreter.currentLineTextOverride;
        std::swap(interpreter.retiredCallable, retiredCallable);
        std::swap(interpreter.retiredLine, retiredLine);
    }
};

/// A turn under way: the coroutine's state is the interpreter's while this lives.
class TurnGuard {
public:
    TurnGuard(DovrelScript& interpreter, CoroutineState& state)
        : interpreter_(interpreter), state_(state) {
        interpreter.inCoroutineTurn = true;
        interpreter.coroutineTurnEnded = false;
        interpreter.replacementCoroutine.reset();
        swapFlow(interpreter, state.flow);
        main_.exchange(interpreter);
        interpreter.lastToken.clear();
    }
    ~TurnGuard() {
        main_.exchange(interpreter_);
        swapFlow(interpreter_, state_.flow);
        interpreter_.inCoroutineTurn = false;
    }
    TurnGuard(const TurnGuard&) = delete;
    TurnGuard& operator=(const TurnGuard&) = delete;

private:
    DovrelScript& interpreter_;
    CoroutineState& state_;
    MainFlowPosition main_;
};

/// Runs one turn; true when the coroutine has finished or has been told to end. A standard
/// exception leaves located, with the coroutine's line.
bool runTurn(DovrelScript& interpreter, CoroutineState& state) {
    const TurnGuard turn(interpreter, state);
    const ObservedTurn observed(interpreter, state);
    try {
        return interpreter.executeCoroutineTurn(state);
    } catch (const CoroutineTerminated&) {
        interpreter.coroutineTurnEnded = true;
        return true;
    } catch (const std::exception& error) {
        interpreter.rethrowLocated(error, "script");
    }
}

}  // namespace

void DovrelScript::serviceScheduledCoroutineTurn() {
    const std::shared_ptr<CoroutineState> running = scheduledCoroutine;
    if (running == nullptr) return;
    bool finished = false;
    try {
        finished = runTurn(*this, *running);
    } catch (...) {
        // A failing coroutine is gone; its error goes to the main flow.
        coroutineTurnEnded = false;
        replacementCoroutine.reset();
        if (scheduledCoroutine == running) scheduledCoroutine.reset();
        noteAttention();
        throw;
    }
    if (coroutineTurnEnded && replacementCoroutine != nullptr) {
        scheduledCoroutine = std::move(replacementCoroutine);
    } else if ((coroutineTurnEnded || finished) && scheduledCoroutine == running) {
        scheduledCoroutine.reset();
    }
    coroutineTurnEnded = false;
    replacementCoroutine.reset();
    noteAttention();
}

void DovrelScript::giveCoroutineTurn() {
    // A failed turn blocks further ones until its error has been raised.
    if (inCoroutineTurn || pendingCoroutineException) return;
    try {
        serviceScheduledCoroutineTurn();
    } catch (...) {
        pendingCoroutineException = std::current_exception();
        noteAttention();
    }
}

void DovrelScript::rethrowPendingCoroutineException() {
    if (pendingCoroutineException) {
        const std::exception_ptr raised = std::exchange(pendingCoroutineException, nullptr);
        noteAttention();
        std::rethrow_exception(raised);
    }
}

void DovrelScript::killCoroutine() {
    if (inCoroutineTurn) {
        coroutineTurnEnded = true;
        replacementCoroutine.reset();
        throw CoroutineTerminated();
    }
    scheduledCoroutine.reset();
    replacementCoroutine.reset();
    noteAttention();
}
