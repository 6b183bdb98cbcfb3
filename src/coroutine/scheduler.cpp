// The one scheduled coroutine: its turns, its replacement, its end. A turn swaps the interpreter's
// per-flow state with the coroutine's, runs one statement, and swaps back; nothing is copied.
#include <exception>
#include <utility>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "interpreter/observed_run.h"

namespace {

/// Exchanges what both flows seldom have.
template <typename Contents>
void swapUnlessEmpty(Contents& ours, Contents& theirs) {
    if (!ours.empty() || !theirs.empty()) ours.swap(theirs);
}

/// Exchanges the interpreter's per-flow state with a coroutine's.
void swapFlow(DovrelScript& interpreter, FlowState& flow) {
    interpreter.frameScopes.swap(flow.frameScopes);
    interpreter.blockScopes.swap(flow.blockScopes);
    std::swap(interpreter.blockScopeFloor, flow.blockScopeFloor);
    swapUnlessEmpty(interpreter.baseDirectoryStack, flow.baseDirectoryStack);
    swapUnlessEmpty(interpreter.scriptNameStack, flow.scriptNameStack);
    swapUnlessEmpty(interpreter.varargStack, flow.varargStack);
    std::swap(interpreter.callDepth, flow.callDepth);
    swapUnlessEmpty(interpreter.protectedCallDepths, flow.protectedCallDepths);
    std::swap(interpreter.softErrorPending, flow.softErrorPending);
    std::swap(interpreter.softErrorDepth, flow.softErrorDepth);
    swapUnlessEmpty(interpreter.softErrorMessage, flow.softErrorMessage);
    interpreter.noteAttention();
}

/// The position and the running fast call of the main flow, taken from the interpreter for a turn,
/// which starts without.
class MainFlowPosition {
public:
    explicit MainFlowPosition(DovrelScript& interpreter)
        : fastCallable_(std::exchange(interpreter.fastCallable, nullptr)),
          fastArgs_(std::exchange(interpreter.fastArgs, Arguments())),
          fastFrameBase_(std::exchange(interpreter.fastFrameBase, 0)),
          currentLineNumber_(std::exchange(interpreter.currentLineNumber, 0)),
          lastTokenIndex_(std::exchange(interpreter.lastTokenIndex, 0)),
          currentLine_(std::exchange(interpreter.currentLine, nullptr)),
          retiredCallable_(std::move(interpreter.retiredCallable)),
          retiredLine_(std::exchange(interpreter.retiredLine, nullptr)) {
        swapUnlessEmpty(interpreter.currentLineTextOverride, lineText_);
    }
    void giveBack(DovrelScript& interpreter) {
        interpreter.fastCallable = fastCallable_;
        interpreter.fastArgs = fastArgs_;
        interpreter.fastFrameBase = fastFrameBase_;
        interpreter.currentLineNumber = currentLineNumber_;
        interpreter.lastTokenIndex = lastTokenIndex_;
        // It may point to the text that comes back to where it was.
        interpreter.currentLine = currentLine_;
        swapUnlessEmpty(interpreter.currentLineTextOverride, lineText_);
        // What the turn has left goes last, since it may be a callable's last reference.
        interpreter.retiredCallable.swap(retiredCallable_);
        interpreter.retiredLine = retiredLine_;
    }

private:
    const ScriptCallable* fastCallable_;
    Arguments fastArgs_;
    std::size_t fastFrameBase_;
    std::size_t currentLineNumber_;
    std::size_t lastTokenIndex_;
    const std::string* currentLine_;
    std::string lineText_;
    Shared<ScriptCallable> retiredCallable_;
    const std::string* retiredLine_;
};

/// A turn under way: the coroutine's state is the interpreter's while this lives.
class TurnGuard {
public:
    TurnGuard(DovrelScript& interpreter, CoroutineState& state)
        : interpreter_(interpreter), state_(state), main_(interpreter) {
        interpreter.inCoroutineTurn = true;
        swapFlow(interpreter, state.flow);
        interpreter.lastToken.clear();
    }
    ~TurnGuard() {
        main_.giveBack(interpreter_);
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
    // Opens what the main flow has put off. It may find no memory, and nothing has changed yet.
    static_cast<void>(interpreter.blockScopes.size());
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
    if (scheduledCoroutine == nullptr) return;
    // Nothing is scheduled while a turn runs, so calls in it have nothing to look after.
    std::shared_ptr<CoroutineState> running = std::move(scheduledCoroutine);
    coroutineTurnEnded = false;
    replacementCoroutine.reset();
    bool finished = false;
    try {
        finished = runTurn(*this, *running);
    } catch (...) {
        // A failing coroutine is gone; its error goes to the main flow.
        coroutineTurnEnded = false;
        replacementCoroutine.reset();
        noteAttention();
        throw;
    }
    if (coroutineTurnEnded) {
        scheduledCoroutine = std::move(replacementCoroutine);
        coroutineTurnEnded = false;
    } else if (!finished) {
        scheduledCoroutine = std::move(running);
    }
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
        if (callDepth == lastCallDepth) return;
        throw CoroutineTerminated();
    }
    scheduledCoroutine.reset();
    replacementCoroutine.reset();
    noteAttention();
}
