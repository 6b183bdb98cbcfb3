// Statements of hot code that make calls, by the rules of the general tier.
#include <algorithm>

#include "eval/binary_operation.h"
#include "eval/errors.h"
#include "exec/hot_frames.h"

bool ChunkRun::HotRun::runsInFrame(std::uint16_t token) {
    const Variable* callee = place(token);
    if (callee == nullptr || callee->type != VarType::Function) return false;
    const Shared<ScriptCallable>& callable = callee->asFunction();
    return callable != nullptr && !callable->isNative &&
           callable->fastBodyKind == FastBodyKind::None;
}

bool ChunkRun::HotRun::isAssert(std::uint16_t token) {
    const ScriptCallable* native = nativeOf(place(token));
    return native != nullptr && native->builtinId == BuiltinId::Assert;
}

/// A variable as the operand that goes to `at`: a scalar, or a copy, or a reference to where it
/// stands.
FastScalarValue ChunkRun::HotRun::anyOf(std::uint16_t token, std::uint8_t marks,
                                        const FastScalarValue* at) {
    const Variable* variable = place(token);
    if (variable == nullptr) return FastScalarValue::nil();
    if ((marks & kCheckedVariable) != 0) static_cast<void>(scalarFromVariable(*variable));
    const FastScalarValue scalar = soundScalar(*variable);
    if (scalar.isSet()) return scalar;
    if ((marks & kLentVariable) == 0) return hold(Variable(*variable));
    const auto number = static_cast<int>(at - stack_.data());
    lent_[static_cast<std::size_t>(number)] = variable;
    FastScalarValue lent = FastScalarValue::fromInt(number);
    lent.kind = ScalarKind::Lent;
    return lent;
}

/// What scalars alone do not do, where it is marked to go on. False declines.
bool ChunkRun::HotRun::stepOther(const ScalarInstruction& instruction, FastScalarValue*& top) {
    if ((instruction.kind & kScalarNode) != 0) return evaluateScalar(instruction.intValue, top);
    if ((instruction.kind & kAnyOperands) == 0) return false;
    stepAny(instruction, top);
    return true;
}

/// An operator or a variable by the general tier.
void ChunkRun::HotRun::stepAny(const ScalarInstruction& instruction, FastScalarValue*& top) {
    const ScalarOpcode opcode = instruction.opcode;
    if (opcode == ScalarOpcode::PushVariable) {
        *top = anyOf(instruction.token, instruction.kind, top);
        ++top;
        return;
    }
    ScalarOpcode group = ScalarOpcode::Add;
    if (opcode >= ScalarOpcode::AddInt) {
        const bool isInt = opcode < ScalarOpcode::AddVariable;
        group = isInt ? ScalarOpcode::AddInt : ScalarOpcode::AddVariable;
        *top = anyOf(instruction.token, 0, top);
        ++top;
        *top = isInt ? FastScalarValue::fromInt(instruction.intValue)
                     : anyOf(static_cast<std::uint16_t>(instruction.intValue), 0, top);
        ++top;
    }
    --top;
    top[-1] = operateAny(operatorKind(group, opcode), top[-1], top[0]);
}

/// A value for its only use.
Variable ChunkRun::HotRun::taken(FastScalarValue value) {
    switch (value.kind) {
        case ScalarKind::Held: {
            Variable& held = interpreter_.heldValues[static_cast<std::size_t>(value.intValue)];
            Variable result = std::move(held);
            held.setNil();
            return result;
        }
        case ScalarKind::Lent: return lent(value);
        default: return variableFromFastScalar(value);
    }
}

FastScalarValue ChunkRun::HotRun::operateAny(NodeKind kind, FastScalarValue left,
                                             FastScalarValue right) {
    const FastScalarValue exact = scalarOperationOn(kind, left, right, true);
    if (exact.isSet()) return exact;
    Variable first = taken(left);
    const Variable second = taken(right);
    return anyFrom(generalOperation(kind, first, second));
}

void ChunkRun::HotRun::fillArguments(ArgumentFrame& frame, const FastScalarValue* args) {
    for (std::size_t i = 0; i < frame.size(); ++i) {
        if (args[i].kind >= ScalarKind::Held) {
            frame[i] = taken(args[i]);
        } else {
            assignFastScalarToVariable(frame[i], args[i]);
        }
    }
}

/// Makes the code of a function the next to run, if it runs in a frame and is hot code.
[[gnu::always_inline]] inline bool ChunkRun::HotRun::tryEnter(const Variable& callee,
                                                              const FastScalarValue* args,
                                                              std::size_t count) {
    if (callee.type != VarType::Function) return false;
    const Shared<ScriptCallable>& callable = callee.asFunction();
    if (callable == nullptr || !callable->runsInFrame() || callable->program == nullptr) {
        return false;
    }
    // While a soft error is pending, functions further in do not run.
    HotFrames& frames = *interpreter_.hotFrames;
    if (frames.isFull() || interpreter_.softErrorPending) return false;
    const HotCode* code = knownHotCode(interpreter_, *callable->program, callable->chunkIndex);
    if (code == nullptr) return false;
    HotFrame& frame = frames.push(interpreter_, callable, *code, *this);
    bindParameters(frame.call.scope(), args, count);
    return true;
}

FastScalarValue ChunkRun::HotRun::call(const ScalarInstruction& instruction,
                                       const FastScalarValue* args) {
    const Variable* callee = place(instruction.token);
    if (instruction.opcode == ScalarOpcode::CallEntry) return callEntry(instruction, args, callee);
    if (callee == nullptr) callee = &nilValue();
    if (tryEnter(*callee, args, instruction.kind)) return {};
    return callValue(*callee, false, args, instruction.kind);
}

FastScalarValue ChunkRun::HotRun::callEntry(const ScalarInstruction& instruction,
                                            const FastScalarValue* args, const Variable* base) {
    const std::string& name = key(instruction.intValue);
    if (base == nullptr || base->type != VarType::Table) {
        const Variable elsewhere =
            interpreter_.getIndexedValue(base != nullptr ? *base : nilValue(), Variable(name));
        return callValue(elsewhere, false, args, instruction.kind);
    }
    const Variable& entry = *entryOf(*base, name);
    if (tryEnter(entry, args, instruction.kind)) return {};
    return callValue(entry, true, args, instruction.kind);
}

/// Calls any value; `isMember` if it was found in a table.
FastScalarValue ChunkRun::HotRun::callValue(const Variable& callee, bool isMember,
                                            const FastScalarValue* args, std::size_t count) {
    const ScriptCallable* callable =
        callee.type == VarType::Function ? callee.asFunction().get() : nullptr;
    if (callable != nullptr) {
        const FastScalarValue result = resultOfBody(*callable, args, count);
        if (result.isSet()) return result;
    }
    ArgumentFrame frame(interpreter_.argumentStack, count);
    const bool runsNoCode = callable != nullptr && callable->isNative &&
                            interpreter_.mayCallDirectly(callable->builtinId, isMember);
    fillArguments(frame, args);
    if (runsNoCode)
        return anyFrom(interpreter_.dispatchBuiltinFast(callable->builtinId, frame.view()));
    Variable result = interpreter_.callFound(callee, isMember, frame.view());
    loseBindings();
    return anyFrom(std::move(result));
}

void ChunkRun::HotRun::bindParameters(Scope& scope, const FastScalarValue* args,
                                      std::size_t count) {
    const std::size_t given = std::min(count, scope.size());
    for (std::size_t i = 0; i < given; ++i) {
        Variable& parameter = scope[i].value;
        if (args[i].kind < ScalarKind::Held) {
            assignFastScalarToVariable(parameter, args[i]);
        } else {
            parameter = taken(args[i]);
        }
    }
}

/// Ends the innermost frame, whose caller this is. Its value, as an operand.
FastScalarValue ChunkRun::HotRun::resultOfCall() {
    HotFrames& frames = *interpreter_.hotFrames;
    interpreter_.rethrowPendingCoroutineException();
    HotFrame& frame = frames.back();
    if (interpreter_.softErrorUnwinding()) {
        frames.pop();
        loseBindings();
        return FastScalarValue::nil();
    }
    const BlockSignal signal = frame.signal;
    FastScalarValue value = soundScalar(frame.run.value());
    if (value.isSet()) {
        frames.pop();
    } else {
        Variable result = std::move(frame.run.value());
        frames.pop();
        value = hold(std::move(result));
    }
    if (signal == BlockSignal::Break) throwPlainError("break used outside a loop");
    loseBindings();
    return value;
}

/// Ends the innermost frame, whose caller this is and whose result is known.
void ChunkRun::HotRun::endCallAtOnce() {
    interpreter_.hotFrames->pop();
    loseBindings();
}

/// Ends the calls that this run has made.
void ChunkRun::HotRun::closeCalls() {
    HotFrames& frames = *interpreter_.hotFrames;
    while (&frames.back().hot != this) frames.pop();
}

/// The call of `x = f(...)`, where one-line functions and natives may answer in the scalar tier.
FastScalarValue ChunkRun::HotRun::callDirect(const ScalarInstruction& instruction,
                                             const FastScalarValue* args) {
    const Variable* callee = place(instruction.token);
    const ScriptCallable* callable = callee != nullptr && callee->type == VarType::Function
                                         ? callee->asFunction().get()
                                         : nullptr;
    if (callable != nullptr && callable->runsInFrame()) return call(instruction, args);
    if (callable != nullptr) {
        const FastScalarValue result = resultOfBody(*callable, args, instruction.kind);
        answersInScalars_ = result.isSet();
        if (answersInScalars_) return result;
    }
    const bool runsNoCode =
        callable != nullptr && callable->isNative && runsNoScriptCode(callable->builtinId);
    ArgumentFrame frame(interpreter_.argumentStack, instruction.kind);
    fillArguments(frame, args);
    FastScalarValue scalar{};
    Variable value;
    answersInScalars_ =
        run_.callDirectly(*code_.variables[instruction.token], frame.view(), scalar, value);
    if (!runsNoCode) loseBindings();
    return answersInScalars_ ? scalar : anyFrom(std::move(value));
}

/// The end of a statement with calls. False to leave.
bool ChunkRun::HotRun::endCalls(const HotStatement& statement) {
    inExecutor_ = false;
    if (heldCount_ > 0) releaseHeld();
    return !expectsTurns_ || giveTurn(statement);
}

bool ChunkRun::HotRun::assignAny(const HotStatement& statement, FastScalarValue value) {
    // A compound assignment sees the difference between a scalar and a variable that holds one.
    Variable other;
    if (!answersInScalars_) other = taken(value);
    const ParsedScriptLine& line = run_.lines_[statement.line];
    run_.assignValue(line, value, answersInScalars_, other);
    run_.value_.setNil();
    // A declaration may append to a scope, which moves what is bound there.
    if (line.assignmentScope != ScopeTarget::Default) loseBindings();
    return endCalls(statement);
}

bool ChunkRun::HotRun::discardAny(const HotStatement& statement, FastScalarValue value) {
    run_.value_ = taken(value);
    return endCalls(statement);
}

void ChunkRun::HotRun::returnAny(const HotStatement& statement, FastScalarValue value) {
    if (value.kind < ScalarKind::Held) {
        assignFastScalarToVariable(run_.value_, value);
    } else {
        run_.value_ = taken(value);
    }
    signal_ = BlockSignal::Return;
    if (interpreter_.scheduledCoroutine != nullptr) giveTurns(statement.depth);
}
