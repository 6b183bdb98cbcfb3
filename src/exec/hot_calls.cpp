// Statements of hot code that make calls, by the rules of the general tier.
#include "eval/binary_operation.h"
#include "exec/hot_run.h"

namespace {

/// How many arguments go into a frame without a detour.
constexpr std::size_t kMostFrameArguments = 8;

}  // namespace

/// From here to its end the statement runs as in the executor: its line is the current one.
void ChunkRun::HotRun::beginCalls(const HotStatement& statement) {
    showTo(nullptr);
    lastStatement_ = nullptr;
    inExecutor_ = true;
    answersInScalars_ = false;
    run_.selectLine(statement.line);
}

bool ChunkRun::HotRun::runsInFrame(std::uint16_t token) {
    const Variable* callee = anyVariable(token);
    if (callee == nullptr || callee->type != VarType::Function) return false;
    const std::shared_ptr<ScriptCallable>& callable = callee->asFunction();
    return callable != nullptr && !callable->isNative &&
           callable->fastBodyKind == FastBodyKind::None;
}

bool ChunkRun::HotRun::isAssert(std::uint16_t token) {
    const ScriptCallable* native = nativeOf(anyVariable(token));
    return native != nullptr && native->builtinId == BuiltinId::Assert;
}

/// A variable as an operand: a scalar or a copy.
FastScalarValue ChunkRun::HotRun::anyOf(const ScalarInstruction& push) {
    const Variable* variable = anyVariable(push.token);
    if (variable == nullptr) return FastScalarValue::nil();
    if (push.kind == kCheckedVariable) static_cast<void>(scalarFromVariable(*variable));
    return anyFrom(Variable(*variable));
}

/// A variable as an argument of a call whose arguments make no calls: it stays as it is until then.
FastScalarValue ChunkRun::HotRun::lentArgument(const ScalarInstruction& push) {
    const Variable* variable = anyVariable(push.token);
    if (variable == nullptr) return FastScalarValue::nil();
    if (push.kind == kCheckedVariable) static_cast<void>(scalarFromVariable(*variable));
    FastScalarValue value = soundScalar(*variable);
    if (value.isSet()) return value;
    value = FastScalarValue::fromInt(push.token);
    value.kind = ScalarKind::Lent;
    return value;
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
        case ScalarKind::Lent: return *anyVariable(static_cast<std::uint16_t>(value.intValue));
        default: return variableFromFastScalar(value);
    }
}

FastScalarValue ChunkRun::HotRun::operateOnOthers(NodeKind kind, FastScalarValue left,
                                                  FastScalarValue right) {
    Variable first = taken(left);
    const Variable second = taken(right);
    return anyFrom(generalOperation(kind, first, second));
}

/// Arguments that `lends` is false for are copied: the callee may change the variable.
void ChunkRun::HotRun::fillArguments(ArgumentFrame& frame, const FastScalarValue* args,
                                     bool lends) {
    for (std::size_t i = 0; i < frame.size(); ++i) {
        if (args[i].kind == ScalarKind::Lent && lends) {
            frame.lend(i, *anyVariable(static_cast<std::uint16_t>(args[i].intValue)));
        } else if (args[i].kind >= ScalarKind::Held) {
            frame[i] = taken(args[i]);
        } else {
            assignFastScalarToVariable(frame[i], args[i]);
        }
    }
}

FastScalarValue ChunkRun::HotRun::call(const ScalarInstruction& instruction,
                                       const FastScalarValue* args) {
    const std::size_t count = instruction.kind;
    const Variable* callee = anyVariable(instruction.token);
    const bool isMember = instruction.opcode == ScalarOpcode::CallEntry;
    Variable elsewhere;
    if (isMember && callee != nullptr && callee->type == VarType::Table) {
        const TableStorage& table = *callee->asTable();
        const auto found = table.find(key(instruction.intValue));
        callee = found != table.end() ? &found->second : nullptr;
    } else if (isMember) {
        elsewhere = interpreter_.getIndexedValue(callee != nullptr ? *callee : nilValue(),
                                                 Variable(key(instruction.intValue)));
        callee = &elsewhere;
    }
    if (callee == nullptr) callee = &nilValue();
    const ScriptCallable* callable =
        callee->type == VarType::Function ? callee->asFunction().get() : nullptr;
    if (callable != nullptr && callable->runsInFrame() && count <= kMostFrameArguments) {
        std::array<const Variable*, kMostFrameArguments> others;  // left uninitialised
        for (std::size_t i = 0; i < count; ++i) {
            const auto number = static_cast<std::size_t>(args[i].intValue);
            others[i] = args[i].kind == ScalarKind::Held ? &interpreter_.heldValues[number]
                        : args[i].kind == ScalarKind::Lent
                            ? anyVariable(static_cast<std::uint16_t>(number))
                            : nullptr;
        }
        Variable result =
            interpreter_.callInFrame(callee->asFunction(), args, others.data(), count);
        bindAnew();
        return anyFrom(std::move(result));
    }
    ArgumentFrame frame(interpreter_.argumentStack, count);
    const bool lends =
        callable != nullptr && callable->isNative && runsNoScriptCode(callable->builtinId);
    fillArguments(frame, args, lends);
    if (lends) return anyFrom(interpreter_.dispatchBuiltinFast(callable->builtinId, frame.view()));
    Variable result =
        interpreter_.callFound(*callee, isMember && callee != &elsewhere, frame.view());
    bindAnew();
    return anyFrom(std::move(result));
}

/// The call of `x = f(...)`, where one-line functions and natives may answer in the scalar tier.
FastScalarValue ChunkRun::HotRun::callDirect(const ScalarInstruction& instruction,
                                             const FastScalarValue* args) {
    const Variable* callee = anyVariable(instruction.token);
    const ScriptCallable* callable = callee != nullptr && callee->type == VarType::Function
                                         ? callee->asFunction().get()
                                         : nullptr;
    if (callable != nullptr && callable->runsInFrame()) return call(instruction, args);
    const bool runsNoCode =
        callable != nullptr && callable->isNative && runsNoScriptCode(callable->builtinId);
    ArgumentFrame frame(interpreter_.argumentStack, instruction.kind);
    fillArguments(frame, args, runsNoCode);
    FastScalarValue scalar{};
    Variable value;
    answersInScalars_ =
        run_.callDirectly(*code_.variables[instruction.token], frame.view(), scalar, value);
    if (!runsNoCode) bindAnew();
    return answersInScalars_ ? scalar : anyFrom(std::move(value));
}

/// The end of a statement with calls. False to leave.
bool ChunkRun::HotRun::endCalls(const HotStatement& statement) {
    inExecutor_ = false;
    releaseHeld();
    return !expectsTurns_ || giveTurn(statement);
}

bool ChunkRun::HotRun::assignAny(const HotStatement& statement, FastScalarValue value) {
    // A compound assignment sees the difference between a scalar and a variable that holds one.
    Variable other;
    if (!answersInScalars_) other = taken(value);
    run_.assignValue(run_.lines_[statement.line], value, answersInScalars_, other);
    run_.value_.setNil();
    return endCalls(statement);
}

bool ChunkRun::HotRun::discardAny(const HotStatement& statement, FastScalarValue value) {
    run_.value_ = taken(value);
    return endCalls(statement);
}

ChunkRun::Flow ChunkRun::HotRun::returnAny(const HotStatement& statement, FastScalarValue value) {
    run_.value_ = taken(value);
    signal_ = BlockSignal::Return;
    if (interpreter_.scheduledCoroutine != nullptr) giveTurns(statement.depth);
    return Flow::Leave;
}
