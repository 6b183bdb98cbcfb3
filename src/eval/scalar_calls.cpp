// Calls in the scalar tier: natives with a scalar result, and script functions with a fast body.
#include <algorithm>
#include <array>
#include <stdexcept>
#include <vector>

#include "eval/errors.h"
#include "eval/scalar_math.h"
#include "eval/variable_access.h"
#include "library/natives.h"

using TokenAnalyses = std::vector<TokenAnalysis>;

namespace {

constexpr std::size_t kArgumentsOnStack = 8;

using Scalars = std::vector<FastScalarValue>;

/// Literals and variables only.
bool argumentsAreLeaves(const FastExpression& expression, const FastExprNode& call) {
    for (int i = 0; i < call.intValue; ++i) {
        const auto argument = expression.callArguments[static_cast<std::size_t>(call.right + i)];
        if (expression.nodes[argument].kind > NodeKind::Variable) return false;
    }
    return true;
}

bool hasFastBody(const Variable& callee) {
    return callee.type == VarType::Function && callee.asFunction() != nullptr &&
           callee.asFunction()->fastBodyKind != FastBodyKind::None;
}

/// No argument at all: what the natives say. A wrong count otherwise declines.
bool tryWithoutArguments(DovrelScript& interpreter, BuiltinId id, FastScalarValue& out) {
    switch (id) {
        case BuiltinId::GetTimeMs:
            out = FastScalarValue::fromInt(interpreter.elapsedMilliseconds());
            return true;
        case BuiltinId::MathMin: throwPlainError("math['min'](...) requires at least 1 argument");
        case BuiltinId::MathMax: throwPlainError("math['max'](...) requires at least 1 argument");
        default: return false;
    }
}

}  // namespace

const Variable* DovrelScript::calleeInPlace(const FastExpression& expression, int index,
                                            const TokenAnalyses& analysis) {
    const FastExprNode& node = expression.nodes[static_cast<std::size_t>(index)];
    if (node.kind == NodeKind::Variable) return readVariable(analysis[node.tokenIndex]);
    if (node.kind != NodeKind::Index) return nullptr;
    const FastExprNode& key = expression.nodes[static_cast<std::size_t>(node.right)];
    if (key.kind != NodeKind::StringLiteral) return nullptr;
    const Variable* base = variableInPlace(expression, node.left, analysis);
    if (base == nullptr || base->type != VarType::Table) return nullptr;
    const TableStorage& table = *base->asTable();
    const auto* found = table.find(expression.strings[key.stringIndex]);
    return found != nullptr ? found : nullptr;
}

const ScriptCallable* DovrelScript::findNativeCallee(const FastExpression& expression, int callee,
                                                     const TokenAnalyses& analysis) {
    return nativeOf(calleeInPlace(expression, callee, analysis));
}

bool DovrelScript::tryScalarCall(const FastExpression& expression, const FastExprNode& node,
                                 const TokenAnalyses& analysis, FastScalarValue& out) {
    const ScriptCallable* native = findNativeCallee(expression, node.left, analysis);
    const BuiltinId id = native != nullptr ? native->builtinId : BuiltinId::None;
    if (id == BuiltinId::None) return tryScalarScriptCall(expression, node, analysis, out);
    if (!mayGiveScalar(id)) return false;  // before anything has been evaluated
    return takesScalars(id) ? tryScalarBuiltinOnScalars(expression, node, analysis, id, out)
                            : tryScalarBuiltinOnValues(expression, node, analysis, id, out);
}

bool DovrelScript::tryScalarBuiltinOnValues(const FastExpression& expression,
                                            const FastExprNode& node, const TokenAnalyses& analysis,
                                            BuiltinId id, FastScalarValue& out) {
    ArgumentFrame arguments(argumentStack, static_cast<std::size_t>(node.intValue));
    if (!evaluateLentArguments(expression, node, analysis, arguments)) return false;
    return tryScalarBuiltin(id, arguments.view(), out);
}

bool DovrelScript::tryScalarBuiltin(BuiltinId id, Arguments args, FastScalarValue& out) {
    if (id == BuiltinId::StringByte && !stringByteRangeReturnsScalar(args)) return false;
    if (id == BuiltinId::ToNumber && (args.empty() || args.size() > 2)) return false;
    return tryFastScalarFromVariable(dispatchBuiltinFast(id, args), out);
}

bool DovrelScript::tryScalarBuiltinOnScalars(const FastExpression& expression,
                                             const FastExprNode& node,
                                             const TokenAnalyses& analysis, BuiltinId id,
                                             FastScalarValue& out) {
    const std::size_t count = static_cast<std::size_t>(node.intValue);
    std::array<FastScalarValue, kArgumentsOnStack> few;
    Scalars many;
    if (count > few.size()) many.resize(count);
    FastScalarValue* values = count > few.size() ? many.data() : few.data();
    for (std::size_t i = 0; i < count; ++i) {
        const auto argument = static_cast<std::size_t>(node.right) + i;
        if (!tryEvaluateFastExpressionScalarNode(
                expression, static_cast<int>(expression.callArguments[argument]), analysis,
                values[i])) {
            return false;
        }
    }
    if (softErrorUnwinding()) return false;
    return tryScalarBuiltin(id, values, count, out);
}

bool DovrelScript::tryScalarBuiltin(BuiltinId id, const FastScalarValue* values, std::size_t count,
                                    FastScalarValue& out) {
    if (count == 0) return tryWithoutArguments(*this, id, out);
    if (id == BuiltinId::GetTimeMs) throwPlainError("getTimeMs function takes no arguments");
    if (!std::all_of(values, values + count,
                     [](const FastScalarValue& value) { return value.isNumeric(); })) {
        return false;
    }
    return tryScalarMath(id, values, count, out);
}

bool DovrelScript::tryScalarScriptCall(const FastExpression& expression, const FastExprNode& node,
                                       const TokenAnalyses& analysis, FastScalarValue& out) {
    if (argumentsAreLeaves(expression, node)) {
        // Nobody can see such arguments evaluated, and none of them raises, so a callee that is
        // bound to decline is asked first.
        const Variable* known = calleeInPlace(expression, node.left, analysis);
        if (known != nullptr && !hasFastBody(*known)) return false;
    }
    ArgumentFrame arguments(argumentStack, static_cast<std::size_t>(node.intValue));
    if (!evaluateCallArguments(expression, node, analysis, arguments)) return false;
    const Variable callee = evaluateFastExpressionNode(expression, node.left, analysis);
    if (softErrorUnwinding() || callee.type != VarType::Function) return false;
    if (hasFastBody(callee)) observeCall(analysis[node.tokenIndex], callee);
    return tryEvaluateFastCallableScalar(callee.asFunction(), arguments.view(), out) &&
           !softErrorUnwinding();
}
