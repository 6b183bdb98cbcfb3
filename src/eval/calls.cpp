// Calls. A call of a native or script function ends in invokeCallableFast, which takes one of five
// routes: start a coroutine, native by id, native by function object, fast body, frame. Compiled
// code takes the last two in places of its own, exec/machine.cpp, and natives by id may be called
// directly; all follow the same rules.
//
// What a call leaves as it found it, on every way out: callDepth, frameScopes, varargStack, the two
// name stacks, and the fast-call fields. The callable is held by reference count for the whole
// call, since the call may overwrite the variable that named it.
#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "eval/frame_call.h"
#include "eval/name_stack_guard.h"
#include "exec/bytecode_program.h"
#include "exec/machine.h"
#include "interpreter/dovrel_script.h"
#include "interpreter/observed_run.h"

namespace {

/// Gives the parameters, which are the first entries of a scope, their values. Without a search: of
/// a name used twice, the first entry is the one found.
void bindParameters(Scope& scope, Arguments args) {
    const std::size_t given = std::min(args.size(), scope.size());
    for (std::size_t i = 0; i < given; ++i) scope[i].value = args[i];
}

std::vector<Variable> extraArguments(const ScriptCallable& callable, Arguments args) {
    std::vector<Variable> extra;
    for (std::size_t i = callable.parameters.size(); i < args.size(); ++i) {
        extra.push_back(args[i]);
    }
    return extra;
}

/// The extra arguments of a variadic call.
class VarargGuard {
public:
    VarargGuard(DovrelScript& interpreter, const ScriptCallable& callable, Arguments args)
        : interpreter_(interpreter), isVariadic_(callable.isVariadic) {
        if (isVariadic_) interpreter.varargStack.push_back(extraArguments(callable, args));
    }
    ~VarargGuard() {
        if (isVariadic_) interpreter_.varargStack.pop_back();
    }
    VarargGuard(const VarargGuard&) = delete;
    VarargGuard& operator=(const VarargGuard&) = delete;

private:
    DovrelScript& interpreter_;
    bool isVariadic_;
};

/// Makes a callable the running fast one: its parameters are found in the caller's arguments.
class FastCallGuard {
public:
    FastCallGuard(DovrelScript& interpreter, const ScriptCallable& callable, Arguments args)
        : interpreter_(interpreter),
          savedCallable_(interpreter.fastCallable),
          savedArgs_(interpreter.fastArgs),
          savedFrameBase_(interpreter.fastFrameBase),
          savedFloor_(interpreter.blockScopeFloor),
          names_(interpreter, callable.baseDirectory, callable.scriptName) {
        interpreter.fastCallable = &callable;
        interpreter.fastArgs = args;
        interpreter.fastFrameBase = interpreter.frameScopes.size();
        // Its parameters are found by name, as entries of scopes are.
        for (const Name name : callable.parameters) ++name->scopeEntries;
    }
    ~FastCallGuard() {
        for (const Name name : interpreter_.fastCallable->parameters) --name->scopeEntries;
        interpreter_.fastCallable = savedCallable_;
        interpreter_.fastArgs = savedArgs_;
        interpreter_.fastFrameBase = savedFrameBase_;
        interpreter_.blockScopeFloor = savedFloor_;
    }
    FastCallGuard(const FastCallGuard&) = delete;
    FastCallGuard& operator=(const FastCallGuard&) = delete;

private:
    DovrelScript& interpreter_;
    const ScriptCallable* savedCallable_;
    Arguments savedArgs_;
    std::size_t savedFrameBase_;
    std::size_t savedFloor_;
    NameStackGuard names_;
};

/// Notes that the function which runs now has been called by a protected call itself.
class ProtectedFrameGuard {
public:
    explicit ProtectedFrameGuard(DovrelScript& interpreter)
        : interpreter_(interpreter), saved_(interpreter.protectedFrameDepth) {
        if (!interpreter.protectedCallDepths.empty() &&
            interpreter.callDepth == interpreter.protectedCallDepths.back() + 1) {
            interpreter.protectedFrameDepth = interpreter.callDepth;
        }
    }
    ~ProtectedFrameGuard() { interpreter_.protectedFrameDepth = saved_; }
    ProtectedFrameGuard(const ProtectedFrameGuard&) = delete;
    ProtectedFrameGuard& operator=(const ProtectedFrameGuard&) = delete;

private:
    DovrelScript& interpreter_;
    std::uint64_t saved_;
};

const ParsedScriptLine* bodyLine(const ScriptCallable& callable, std::size_t index) {
    const auto& lines = callable.bodyLines;
    return lines != nullptr && index < lines->size() ? &(*lines)[index] : nullptr;
}

/// The guard of a guarded body holds.
bool guardFires(DovrelScript& interpreter, const ScriptCallable& callable) {
    if (callable.fastBodyKind != FastBodyKind::GuardAndReturn) return false;
    const ParsedScriptLine* guard = bodyLine(callable, callable.fastGuardLine);
    if (guard == nullptr) return false;
    interpreter.observeShortStatement(*guard);
    if (!interpreter.evaluateCondition(*guard, "if", DovrelScript::ConditionTiers::ScalarOnly)) {
        return false;
    }
    if (interpreter.observer != nullptr) {
        // The call of `error` is the first line behind the guard that is not empty.
        std::size_t raise = callable.fastGuardLine + std::size_t{1};
        while ((*callable.bodyLines)[raise].kind == LineKind::Empty) ++raise;
        interpreter.observeShortStatement((*callable.bodyLines)[raise]);
    }
    return true;
}

/// Runs the body of a short function, whose errors are told while its parameters can be found.
template <typename Body>
auto runObserved(DovrelScript& interpreter, const Body& body) {
    if (interpreter.observer == nullptr) return body();
    try {
        return body();
    } catch (const std::exception& error) {
        interpreter.observeError(error);
        throw;
    }
}

/// The one compiled return expression of a fast body that the scalar tier may try, or null.
const ParsedScriptLine* scalarReturnLine(const Shared<ScriptCallable>& callable) {
    if (callable == nullptr || callable->isNative || callable->isDecay ||
        callable->fastBodyKind == FastBodyKind::None) {
        return nullptr;
    }
    const ParsedScriptLine* line = bodyLine(*callable, callable->fastReturnLine);
    if (line == nullptr || line->returnValues.size() != 1 || !line->returnValues[0].valid) {
        return nullptr;
    }
    return line;
}

bool isErrorCallOfLiteral(const ParsedScriptLine& line) {
    const auto& tokens = line.tokens;
    return tokens.size() == 4 && tokens[0] == "error" && tokens[1] == "(" &&
           isQuotedToken(tokens[2]) && tokens[3] == ")";
}

}  // namespace

void DovrelScript::prepareFastCallableBody(ScriptCallable& callable) {
    callable.fastBodyKind = FastBodyKind::None;
    callable.fastGuardLine = 0;
    callable.fastReturnLine = 0;
    callable.fastGuardMessage.clear();
    // A variadic body needs its extra arguments on the stack, so it takes a frame.
    if (callable.bodyLines == nullptr || callable.isVariadic) return;

    const std::vector<ParsedScriptLine>& lines = *callable.bodyLines;
    std::vector<std::size_t> used;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].kind == LineKind::Empty) continue;
        used.push_back(i);
        if (used.size() > 4) return;
    }
    if (used.empty() || used.back() > UINT16_MAX || lines[used.back()].kind != LineKind::Return) {
        return;
    }
    if (used.size() == 1) {
        callable.fastBodyKind = FastBodyKind::SingleReturn;
    } else if (used.size() == 4) {
        const ParsedScriptLine& guard = lines[used[0]];
        const ParsedScriptLine& raise = lines[used[1]];
        if (guard.kind != LineKind::If || lines[used[2]].kind != LineKind::End ||
            guard.nextBranch != kNoLine || guard.matchingEnd != used[2] ||
            !isErrorCallOfLiteral(raise)) {
            return;
        }
        callable.fastBodyKind = FastBodyKind::GuardAndReturn;
        callable.fastGuardMessage = decodeStringToken(raise.tokens[2]);
        callable.fastGuardLine = static_cast<std::uint16_t>(used[0]);
    } else {
        return;
    }
    callable.fastReturnLine = static_cast<std::uint16_t>(used.back());
}

/// Runs a body in a frame of its own.
Variable DovrelScript::runInFrame(Shared<ScriptCallable> callable, Arguments args) {
    Variable result;
    const ProtectedFrameGuard protectedFrame(*this);
    if (callable->program != nullptr && machine->tryCall(callable, args, result)) {
        if (softErrorUnwinding()) return {};
        return result;
    }
    BlockSignal signal = BlockSignal::None;
    {
        FrameCall call(*this, std::move(callable));
        bindParameters(call.scope(), args);
        const ScriptCallable& called = call.callable();
        const ObservedCall observed(*this, called, args);
        if (called.program != nullptr) {
            result = executeBytecodeChunkInternal(called.program, called.chunkIndex, signal);
        } else if (called.bodyLines != nullptr) {
            std::size_t index = 0;
            result = executeParsedBlock(*called.bodyLines, index, signal);
        }
        rethrowPendingCoroutineException();
    }
    if (softErrorUnwinding()) return {};
    if (signal == BlockSignal::Break) throwPlainError("break used outside a loop");
    return result;
}

Variable DovrelScript::invokeCallableFast(const Variable& callee, Arguments args) {
    const CallDepthGuard depth(*this);
    if (callee.type != VarType::Function) {
        throwPlainError("Attempted to call a non-function value of type " + typeName(callee.type));
    }
    Shared<ScriptCallable> callable = callee.asFunction();
    if (callable == nullptr) throwPlainError("Attempted to call an invalid function value");
    if (callable->isDecay) {
        startCoroutine(callable, args);
        return {};
    }
    if (callable->isNative) {
        Variable result = callable->builtinId != BuiltinId::None
                              ? dispatchBuiltinFast(callable->builtinId, args)
                              : callable->nativeFunction(args);
        if (softErrorUnwinding()) return {};
        return result;
    }
    if (callable->fastBodyKind != FastBodyKind::None) {
        Variable result;
        if (observer == nullptr && machine->tryCallLeaf(callable, args, result)) return result;
        return runFastBody(*callable, args);
    }
    if (callable->isLoadedChunk && !args.empty()) {
        throwPlainError("Loaded script chunks do not accept call arguments");
    }
    const VarargGuard varargs(*this, *callable, args);
    return runInFrame(std::move(callable), args);
}

Variable DovrelScript::runFastBody(const ScriptCallable& callable, Arguments args) {
    const FastCallGuard fastCall(*this, callable, args);
    const ObservedCall observed(*this, callable, args);
    return runObserved(*this, [&]() -> Variable {
        if (guardFires(*this, callable)) {
            raiseScriptErrorSoft(callable.fastGuardMessage);
            return {};
        }
        if (softErrorUnwinding()) return {};
        const ParsedScriptLine* line = bodyLine(callable, callable.fastReturnLine);
        if (line == nullptr) return {};
        observeShortStatement(*line);
        Variable result = evaluateReturnValues(*line);
        if (softErrorUnwinding()) return {};
        return result;
    });
}

bool DovrelScript::tryEvaluateFastCallableScalar(const Shared<ScriptCallable>& callable,
                                                 Arguments args, FastScalarValue& out) {
    const ParsedScriptLine* line = scalarReturnLine(callable);
    if (line == nullptr) return false;
    const CallDepthGuard depth(*this);
    const FastCallGuard fastCall(*this, *callable, args);
    ObservedCall observed(*this, *callable, args);
    return observed.answered(runObserved(*this, [&] {
        if (guardFires(*this, *callable)) {
            raiseScriptErrorSoft(callable->fastGuardMessage);
            out = FastScalarValue::nil();
            return true;
        }
        if (softErrorUnwinding()) return false;
        observeShortStatement(*line);
        const FastExpression& value = line->returnValues[0];
        // Whoever tries again evaluates this expression in the same way first.
        ObservedAttempt attempt(*this);
        return attempt.answered(
            tryEvaluateFastExpressionScalarNode(value, value.root, line->tokenAnalysis, out));
    }));
}

bool DovrelScript::tryEvaluateProtectedFastCallableScalar(const Shared<ScriptCallable>& callable,
                                                          Arguments args, bool& ok,
                                                          FastScalarValue& out,
                                                          std::string& message) {
    ok = true;
    message.clear();
    const ParsedScriptLine* line = scalarReturnLine(callable);
    if (line == nullptr) return false;
    const CallDepthGuard depth(*this);
    const FastCallGuard fastCall(*this, *callable, args);
    ObservedCall observed(*this, *callable, args);
    return observed.answered(runObserved(*this, [&] {
        if (guardFires(*this, *callable)) {
            // The caller is the protected call: nothing is recorded or raised.
            observeRaised(callable->fastGuardMessage);
            ok = false;
            message = callable->fastGuardMessage;
            out = FastScalarValue::nil();
            return true;
        }
        if (softErrorUnwinding()) return false;
        observeShortStatement(*line);
        const FastExpression& value = line->returnValues[0];
        // Whoever tries again evaluates this expression in the same way first.
        ObservedAttempt attempt(*this);
        return attempt.answered(
            tryEvaluateFastExpressionScalarNode(value, value.root, line->tokenAnalysis, out));
    }));
}

void DovrelScript::startCoroutine(const Shared<ScriptCallable>& callable, Arguments args) {
    auto state = std::make_shared<CoroutineState>();
    state->callable = callable;
    Scope& scope = state->flow.frameScopes.push(callable->parameters.size());
    for (const Name name : callable->parameters) scope.append(name);
    bindParameters(scope, args);
    if (callable->isVariadic) {
        state->flow.varargStack.push_back(extraArguments(*callable, args));
    }
    if (!callable->baseDirectory.empty()) {
        state->flow.baseDirectoryStack.push_back(&callable->baseDirectory);
    }
    if (!callable->scriptName.empty()) {
        state->flow.scriptNameStack.push_back(&callable->scriptName);
    }
    state->flow.blockScopes.push(0);
    CoroutineFrame frame;
    frame.endLine = callable->bodyLines != nullptr ? callable->bodyLines->size() : 0;
    frame.ownsBlockScope = true;
    state->frames.push_back(std::move(frame));
    if (inCoroutineTurn) {
        // The coroutine that makes the call ends here; the new one goes on at the next turn.
        replacementCoroutine = std::move(state);
        coroutineTurnEnded = true;
        if (callDepth == lastCallDepth) return;
        throw CoroutineTerminated();
    }
    scheduledCoroutine = std::move(state);
    noteAttention();
}
