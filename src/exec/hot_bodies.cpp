// Calls of one-line functions from hot code, and assigned values that go by the scalar tier.
#include "exec/hot_frames.h"

/// The variables of a one-line body whose parameters are the operands of its call. Whatever is not
/// certain to be found where the token's cache leads declines, with nothing done.
struct ChunkRun::HotRun::BodyVariables {
    HotRun& run;
    const ScriptCallable& callable;
    const FastExpression& expression;
    const std::vector<TokenAnalysis>& analysis;
    const FastScalarValue* args;
    std::size_t count;

    [[nodiscard]] FastScalarValue scalar(std::uint16_t token) const {
        const TokenAnalysis& name = analysis[token];
        if (name.slotKind == SlotKind::Parameter && isParameter(name)) {
            if (name.slotIndex >= count) return FastScalarValue::nil();
            const FastScalarValue& arg = args[name.slotIndex];
            return arg.kind < ScalarKind::Held ? arg : soundScalar(run.operand(arg));
        }
        const Variable* value = run.interpreter_.cachedVariable(name);
        return value != nullptr ? soundScalar(*value) : FastScalarValue{};
    }
    [[nodiscard]] const Variable* place(std::uint16_t token) const {
        const TokenAnalysis& name = analysis[token];
        if (name.slotKind != SlotKind::Parameter) return run.interpreter_.cachedVariable(name);
        if (!isParameter(name) || name.slotIndex >= count) return nullptr;
        const FastScalarValue& arg = args[name.slotIndex];
        return arg.kind < ScalarKind::Held ? nullptr : &run.operand(arg);
    }
    [[nodiscard]] const std::string& key(int index) const {
        return expression.strings[static_cast<std::size_t>(index)];
    }

private:
    [[nodiscard]] bool isParameter(const TokenAnalysis& name) const {
        return name.slotIndex < callable.parameters.size();
    }
};

/// The result of a one-line function whose expression makes no calls: neither a scope nor an
/// argument array is needed, since nothing can look for them. Unset, with nothing done, for any
/// other function and any other result than a scalar.
FastScalarValue ChunkRun::HotRun::resultOfBody(const ScriptCallable& callable,
                                               const FastScalarValue* args, std::size_t count) {
    if (callable.fastBodyKind != FastBodyKind::SingleReturn || callable.isNative ||
        callable.isDecay || interpreter_.softErrorPending) {
        return {};
    }
    const std::vector<ParsedScriptLine>& lines = *callable.bodyLines;
    if (callable.fastReturnLine >= lines.size()) return {};
    const ParsedScriptLine& line = lines[callable.fastReturnLine];
    if (line.returnValues.size() != 1 || line.returnValues[0].scalarCode.empty()) return {};
    const FastExpression& expression = line.returnValues[0];

    std::array<FastScalarValue, kScalarStackSize> stack;  // left uninitialised
    std::array<const Variable*, kPlaceStackSize> places;  // left uninitialised
    FastScalarValue* top = stack.data();
    const Variable** place = places.data();
    const BodyVariables variables{*this, callable, expression, line.tokenAnalysis, args, count};
    const ScalarInstruction* at = expression.scalarCode.data();
    const ScalarInstruction* const end = at + expression.scalarCode.size();
    for (; at != end; ++at) {
        if (!stepScalarCode(at, top, place, variables)) return {};
    }
    // The call is over, and with it the values that were made for it alone.
    for (std::size_t i = 0; i < count; ++i) {
        if (args[i].kind == ScalarKind::Held) static_cast<void>(taken(args[i]));
    }
    return top[-1];
}

/// The function of a call in the scalar tier, if it is one for `resultOfBody` to try.
bool ChunkRun::HotRun::findBody(const ScalarInstruction& call) {
    const HotScalarNode& node = scalarNode(call);
    const Variable* callee = place(call.token);
    if (callee != nullptr && node.key != nullptr) {
        callee = callee->type == VarType::Table ? entryOf(*callee, *node.key) : nullptr;
    }
    body_ = callee != nullptr && callee->type == VarType::Function ? callee->asFunction().get()
                                                                   : nullptr;
    return body_ != nullptr && body_->fastBodyKind == FastBodyKind::SingleReturn &&
           !body_->isNative && !body_->isDecay;
}

FastScalarValue ChunkRun::HotRun::callScalar(const ScalarInstruction& call,
                                             const FastScalarValue* args) {
    const HotScalarNode& node = scalarNode(call);
    // Arguments with calls may have changed the callee, and must not run again for this tier.
    if (node.argumentsHoldCall) {
        bind(call.token, nullptr);
        hasCalled_ = true;
    }
    if (!node.argumentsHoldCall || findBody(call)) {
        const FastScalarValue result = resultOfBody(*body_, args, call.kind);
        if (result.isSet()) return result;
    }
    ArgumentFrame frame(interpreter_.argumentStack, call.kind);
    fillArguments(frame, args);
    hasCalled_ = true;
    const FastExpression& expression = *node.expression;
    const int callee = expression.nodes[static_cast<std::size_t>(node.node)].left;
    const Variable found =
        interpreter_.evaluateFastExpressionNode(expression, callee, *node.analysis);
    FastScalarValue result{};
    const bool isScalar =
        !run_.unwinding() && found.type == VarType::Function &&
        interpreter_.tryEvaluateFastCallableScalar(found.asFunction(), frame.view(), result) &&
        !run_.unwinding();
    loseBindings();
    return isScalar ? result : FastScalarValue{};
}

/// Pushes what the scalar tier makes of a node; false if it declines.
bool ChunkRun::HotRun::evaluateScalar(std::int32_t index, FastScalarValue*& top) {
    const HotScalarNode& node = code_.scalarNodes[static_cast<std::size_t>(index)];
    hasCalled_ = true;
    const bool isScalar = interpreter_.tryEvaluateFastExpressionScalarNode(
        *node.expression, node.node, *node.analysis, *top);
    loseBindings();
    if (!isScalar || run_.unwinding()) return false;
    ++top;
    return true;
}

bool ChunkRun::HotRun::assignScalar(const HotStatement& statement, FastScalarValue value) {
    answersInScalars_ = true;
    hasCalled_ = false;
    return assignAny(statement, value);
}

/// The rest of an assignment whose value the scalar tier has declined behind a call: the next tier
/// evaluates it, as in the executor.
ChunkRun::HotRun::Position ChunkRun::HotRun::assignByGeneralTier(const HotStatement& statement) {
    hasCalled_ = false;
    if (heldCount_ > 0) releaseHeld();
    if (run_.unwinding()) {
        unwindFromCall(statement);
        return nullptr;
    }
    const ParsedScriptLine& line = run_.lines_[statement.line];
    const FastExpression& value = line.assignment->values[0];
    Variable result =
        interpreter_.evaluateFastExpressionNode(value, value.root, line.tokenAnalysis);
    loseBindings();
    if (run_.unwinding()) {
        unwindFromCall(statement);
        return nullptr;
    }
    run_.assignValue(line, FastScalarValue{}, false, result);
    run_.value_.setNil();
    return endCalls(statement) ? positionOf(statement.next) : nullptr;
}
