// Callees that do not run in the loop, what goes by the executor, and calls that come into the loop
// from outside.
#include <utility>

#include "eval/errors.h"
#include "eval/exhaustion.h"
#include "eval/frame_call.h"
#include "eval/variable_access.h"
#include "exec/bytecode_program.h"
#include "exec/chunk_run.h"
#include "exec/machine.h"
#include "library/natives.h"
#include "value/operators.h"
#include "value/string_methods.h"
#include "value/table.h"

void Machine::clearArguments(Variable* slot, std::size_t count) {
    for (std::size_t i = 0; i <= count; ++i) slot[i].setNil();
}

/// Activation `entry` is the statement of a coroutine's turn, or the only call in it: nothing is
/// left to be done behind it, whatever has been called from there.
bool Machine::isStatementOfTurn(std::size_t entry) {
    const std::size_t inner = activations_.size() - 1 - entry;
    const Activation& outermost = activations_.around(inner);
    if (outermost.code->isTurnLine) return true;
    return interpreter_.inCoroutineTurn && interpreter_.lastCallDepth != 0 &&
           interpreter_.callDepth - inner == interpreter_.lastCallDepth &&
           !outermost.is(Activation::kProgram);
}

/// A call that may end the running turn as the last thing that happens in it, so that the end is
/// passed on by returning: an exception takes a hundred times as long.
class Machine::LastCall {
public:
    LastCall(DovrelScript& interpreter, bool isLast)
        : interpreter_(interpreter), outer_(interpreter.lastCallDepth), isLast_(isLast) {
        if (isLast) interpreter.lastCallDepth = interpreter.callDepth + 1;
    }
    ~LastCall() {
        if (isLast_) interpreter_.lastCallDepth = outer_;
    }
    LastCall(const LastCall&) = delete;
    LastCall& operator=(const LastCall&) = delete;

    [[nodiscard]] bool hasEndedTurn() const { return isLast_ && interpreter_.coroutineTurnEnded; }

private:
    DovrelScript& interpreter_;
    std::uint64_t outer_;
    bool isLast_;
};

/// A callee that does not run in this loop.
bool Machine::callOther(Variable* slot, std::size_t count, std::uint8_t marks, std::size_t entry) {
    showToken();
    const Arguments args(slot + 1, count);
    Variable result;
    const ScriptCallable* callable =
        slot->type == VarType::Function ? slot->asFunction().get() : nullptr;
    bool wasScalar = false;
    // What starts a coroutine, and the native `kill`, which has no id.
    const LastCall lastCall(
        interpreter_,
        interpreter_.inCoroutineTurn && callable != nullptr &&
            (callable->isDecay || (callable->isNative && callable->builtinId == BuiltinId::None)) &&
            isStatementOfTurn(entry));
    if (callable != nullptr && callable->isNative && !callable->isDecay) {
        if ((marks & kDiscards) != 0 && callable->builtinId == BuiltinId::Assert) {
            // A statement of its own: it is no call.
            if (count == 0) throwPlainError("assert requires at least 1 argument");
            if (!isTruthy(slot[1])) {
                interpreter_.raiseScriptErrorSoft(count > 1 ? slot[2].toString()
                                                            : "assertion failed!");
            }
            clearArguments(slot, count);
            lastCallWasScalar_ = false;
            return false;
        }
        FastScalarValue scalar{};
        if ((marks & kDirectCall) != 0 && callable->builtinId != BuiltinId::None &&
            interpreter_.tryEvaluateNativeBuiltinScalar(callable->builtinId, args, scalar)) {
            wasScalar = true;
            result = variableFromFastScalar(scalar);
        } else {
            result = interpreter_.invokeCallableFast(*slot, args);
        }
    } else if (callable != nullptr && (marks & kDirectCall) != 0) {
        FastScalarValue scalar{};
        if (interpreter_.tryEvaluateFastCallableScalar(slot->asFunction(), args, scalar)) {
            wasScalar = true;
            result = variableFromFastScalar(scalar);
        } else if (!interpreter_.softErrorUnwinding()) {
            result = interpreter_.invokeCallableFast(*slot, args);
        }
        interpreter_.settleMemoryIfDue();
    } else {
        result = interpreter_.invokeCallableFast(*slot, args);
    }
    if (lastCall.hasEndedTurn()) {
        ++counts.quietEnds;
        return true;
    }
    clearArguments(slot, count);
    *slot = std::move(result);
    lastCallWasScalar_ = wasScalar;  // whatever else has been called meanwhile
    return false;
}

/// A native in `slot`, which holds it while it runs.
void Machine::callPlainNative(Variable* slot, std::size_t count, const ScriptCallable& native,
                              std::uint8_t marks) {
    showToken();
    const Arguments args(slot + 1, count);
    const bool hasBody = native.builtinId != BuiltinId::None;
    Variable result;
    FastScalarValue scalar{};
    const bool wasScalar =
        (marks & kDirectCall) != 0 && hasBody &&
        interpreter_.tryEvaluateNativeBuiltinScalar(native.builtinId, args, scalar);
    if (wasScalar) {
        result = variableFromFastScalar(scalar);
    } else {
        const CallDepthGuard depth(interpreter_);
        result = hasBody ? interpreter_.dispatchBuiltinFast(native.builtinId, args)
                         : native.nativeFunction(args);
        if (interpreter_.softErrorUnwinding()) result.setNil();
    }
    clearArguments(slot, count);
    *slot = std::move(result);
    lastCallWasScalar_ = wasScalar;  // whatever else has been called meanwhile
}

/// A member of a library table goes straight to its fast body, outside the count of calls.
void Machine::callMemberNative(Variable* slot, std::size_t count, BuiltinId id) {
    showToken();
    const Arguments args(slot + 1, count);
    Variable result = interpreter_.dispatchBuiltinFast(id, args);
    if (interpreter_.softErrorUnwinding()) result.setNil();
    clearArguments(slot, count);
    *slot = std::move(result);
}

/// `s["method"](x)`: what the function that `s["method"]` is bound to gives, which nobody sees.
/// False, with nothing done, if there is none.
bool Machine::callOfText(Variable* slot, std::size_t count, const Variable& text,
                         const Text& method) {
    const Variable* found = findStringMethod(interpreter_, method);
    if (found == nullptr) return false;
    showToken();
    // Copies: what is called may change both.
    const Variable callee = *found;
    *slot = text;
    // A first argument that equals the receiver is the receiver.
    const bool repeatsReceiver = count != 0 && variablesEqual(slot[1], text);
    const Arguments args(slot, count + 1);
    Variable result =
        interpreter_.invokeCallableFast(callee, repeatsReceiver ? args.from(1) : args);
    clearArguments(slot, count);
    *slot = std::move(result);
    lastCallWasScalar_ = false;
    return true;
}

/// `a, b = f(x)`: what the call gives, a multi-value or its only value.
Variable Machine::spreadCall(Variable* slot, std::size_t count) {
    showToken();
    const Arguments args(slot + 1, count);
    const Variable callee = *slot;
    const ScriptCallable* callable =
        callee.type == VarType::Function ? callee.asFunction().get() : nullptr;
    Variable result;
    if (callable != nullptr && callable->isNative && !callable->isDecay &&
        callable->builtinId == BuiltinId::Pcall) {
        result = interpreter_.spreadProtectedCall(args);
    } else {
        FastScalarValue scalar{};
        if (callable != nullptr && !callable->isNative &&
            interpreter_.tryEvaluateFastCallableScalar(callee.asFunction(), args, scalar)) {
            result = variableFromFastScalar(scalar);
        } else if (!interpreter_.softErrorUnwinding()) {
            result = interpreter_.invokeCallableFast(callee, args);
        }
    }
    interpreter_.settleMemoryIfDue();
    clearArguments(slot, count);
    return result;
}

// ---------------------------------------------------------------- by the executor

/// Runs a statement by the executor. What follows it: the next one, or the end of the function.
Machine::StatementEnd Machine::runStatement(const MachineCode& code,
                                            const MachineStatement& statement) {
    showToken();
    const Activation running = activations_.back();
    const std::shared_ptr<BytecodeProgram>& program =
        running.owner != nullptr ? *running.owner : running.slot->asFunction()->program;
    // The function may be overwritten by what it calls, but its slot holds it.
    const std::shared_ptr<BytecodeProgram> held = program;
    const BytecodeInstruction& instruction = held->code[statement.instruction];
    ChunkRun run(interpreter_, held, 0);
    BlockSignal signal = BlockSignal::None;
    run.value() = std::move(running.base[code.chunkValue]);
    running.base[code.chunkValue].setNil();
    const bool goesOn = run.runOne(instruction, signal);
    activations_.back().base[code.chunkValue] = std::move(run.value());
    if (goesOn) return StatementEnd::GoesOn;
    if (signal == BlockSignal::None) return StatementEnd::Unwinds;
    leaveSignal_ = signal;
    return StatementEnd::Leaves;
}

// ---------------------------------------------------------------- from outside

bool Machine::tryCall(const Shared<ScriptCallable>& callable, Arguments args, Variable& result) {
    if (interpreter_.softErrorPending) return false;
    MachineFunction* function = functionOf(*callable);
    if (function == nullptr) return false;
    const MachineCode* code = codeOf(*function, interpreter_.blockScopeVisible());
    if (code == nullptr) return false;
    bool newSegment = false;
    Variable* const slot = roomFor(top(), 0, args.size() + 2, newSegment);
    *slot = Variable::makeFunction(callable);
    for (std::size_t i = 0; i < args.size(); ++i) slot[1 + i] = args[i];
#ifdef DOVREL_EMBEDDED
    interpreter_.watch.count(code->statements.size());
#endif
    const std::size_t outer = activations_.size();
    const auto restore = [&] {
        clearArguments(slot, args.size());
        if (newSegment) dropSegment();
    };
    try {
        enter(*function, *code, slot, args.size(), true);
        result = run();
        restore();
    } catch (...) {
        if (activations_.size() > outer) abandonActivation();
        restore();
        throw;
    }
    return true;
}

bool Machine::tryCallLeaf(const Shared<ScriptCallable>& callable, Arguments args,
                          Variable& result) {
    if (interpreter_.softErrorPending) return false;
    const MachineCode* code = leafCode(*callable);
    if (code == nullptr) return false;
    activations_.reserveOne();
    bool newSegment = false;
    Variable* const slot = roomFor(top(), 0, std::size_t{1} + code->registerCount, newSegment);
    *slot = Variable::makeFunction(callable);
    for (std::size_t i = 0; i < code->parameterCount; ++i) {
        slot[1 + i] = i < args.size() ? args[i] : Variable();
    }
#ifdef DOVREL_EMBEDDED
    interpreter_.watch.count(1);
#endif
    const bool amongBlocks = interpreter_.blockScopeVisible();
    Activation& entered = activations_.push();
    entered.code = code;
    entered.base = slot + 1;
    entered.slot = slot;
    entered.amongBlocks = amongBlocks;
    entered.set(Activation::kEntry);
    ++counts.calls;
    declined_ = diverged_ = nullptr;
    const auto restore = [&] {
        clearArguments(slot, code->parameterCount);
        declined_ = diverged_ = nullptr;
        if (newSegment) dropSegment();
    };
    try {
        result = run();
    } catch (...) {
        restore();
        throw;
    }
    restore();
    return true;
}

bool Machine::tryRun(const std::shared_ptr<BytecodeProgram>& program, Variable& result,
                     BlockSignal& signal) {
    if (!interpreter_.runsCompiledForm) return false;
    if (program->chunks.empty()) return false;
    if (interpreter_.softErrorPending) return false;
    auto& functions = program->machineFunctions.byChunk;
    if (functions.size() < program->chunks.size()) functions.resize(program->chunks.size());
    std::unique_ptr<MachineFunction>& function = functions[0];
    if (function == nullptr) {
        function = std::make_unique<MachineFunction>();
        function->program = program.get();
        function->hasFrame = false;
        function->runsOnce = true;
    }
    if (function->hasFrame) return false;
    const MachineCode* code = codeOf(*function, interpreter_.blockScopeVisible());
    if (code == nullptr) return false;
#ifdef DOVREL_EMBEDDED
    interpreter_.watch.count(code->statements.size());
#endif
    activations_.reserveOne();
    Activation entered;
    entered.code = code;
    entered.owner = &program;
    entered.lineAtEntry = interpreter_.currentLine;
    entered.frames = static_cast<std::uint32_t>(interpreter_.frameScopes.size());
    entered.blocks = static_cast<std::uint32_t>(interpreter_.blockScopes.open().size());
    entered.set(Activation::kEntry);
    entered.set(Activation::kProgram);
    bool hasSegment = false;
    entered.base = roomFor(top(), 0, code->registerCount, hasSegment);
    entered.set(Activation::kSegment, hasSegment);
    activations_.push() = entered;
    leaveSignal_ = BlockSignal::None;
    result = run();
    signal = leaveSignal_;
    return true;
}
