// The exact tier: the scalar results that are certain to be what the token-stream evaluator gives.
// It serves statements that go by tokens, and leaves alone whatever the two could see differently:
// truth of numbers, "^", an int mixed with a float, anything that raises, anything that runs code.
#include "eval/scalar_arithmetic.h"
#include "eval/variable_access.h"
#include "value/arithmetic.h"

using TokenAnalyses = std::vector<TokenAnalysis>;

namespace {

FastScalarValue exactInts(NodeKind kind, int a, int b) {
    switch (kind) {
        case NodeKind::Add: return FastScalarValue::fromInt(wrapAdd(a, b));
        case NodeKind::Subtract: return FastScalarValue::fromInt(wrapSubtract(a, b));
        case NodeKind::Multiply: return FastScalarValue::fromInt(wrapMultiply(a, b));
        case NodeKind::Divide:
            if (b == 0) return {};
            return FastScalarValue::fromFloat(
                static_cast<float>(static_cast<double>(a) / static_cast<double>(b)));
        case NodeKind::IntDivide:
            return b == 0 ? FastScalarValue{} : FastScalarValue::fromInt(wrapDivide(a, b));
        case NodeKind::Modulo:
            return b == 0 ? FastScalarValue{} : FastScalarValue::fromInt(wrapRemainder(a, b));
        default: return {};
    }
}

/// Two floats: here one rounding in single precision and one of the double result are the same.
FastScalarValue exactFloats(NodeKind kind, float a, float b) {
    switch (kind) {
        case NodeKind::Add: return FastScalarValue::fromFloat(a + b);
        case NodeKind::Subtract: return FastScalarValue::fromFloat(a - b);
        case NodeKind::Multiply: return FastScalarValue::fromFloat(a * b);
        case NodeKind::Divide:
            if (b == 0.0F) return {};
            return FastScalarValue::fromFloat(
                static_cast<float>(static_cast<double>(a) / static_cast<double>(b)));
        default: return {};
    }
}

FastScalarValue exactComparison(NodeKind kind, int a, int b) {
    switch (kind) {
        case NodeKind::Equal: return FastScalarValue::fromBool(a == b);
        case NodeKind::NotEqual: return FastScalarValue::fromBool(a != b);
        case NodeKind::Less: return FastScalarValue::fromBool(a < b);
        case NodeKind::Greater: return FastScalarValue::fromBool(a > b);
        case NodeKind::LessEqual: return FastScalarValue::fromBool(a <= b);
        case NodeKind::GreaterEqual: return FastScalarValue::fromBool(a >= b);
        default: return {};
    }
}

}  // namespace

FastScalarValue exactOperation(NodeKind kind, FastScalarValue left, FastScalarValue right) {
    if (left.kind == ScalarKind::Int && right.kind == ScalarKind::Int) {
        return kind >= NodeKind::Equal ? exactComparison(kind, left.intValue, right.intValue)
                                       : exactInts(kind, left.intValue, right.intValue);
    }
    if (left.kind == ScalarKind::Float && right.kind == ScalarKind::Float) {
        return exactFloats(kind, left.floatValue, right.floatValue);
    }
    return {};
}

FastScalarValue DovrelScript::exactScalar(const FastExpression& expression, int index,
                                          const TokenAnalyses& analysis) {
    const FastExprNode& node = expression.nodes[static_cast<std::size_t>(index)];
    switch (node.kind) {
        case NodeKind::IntLiteral: return FastScalarValue::fromInt(node.intValue);
        case NodeKind::FloatLiteral: return FastScalarValue::fromFloat(node.floatValue);
        case NodeKind::BoolLiteral: return FastScalarValue::fromBool(node.boolValue);
        case NodeKind::Variable: {
            const Variable* value = readVariable(analysis[node.tokenIndex]);
            return value != nullptr ? soundScalar(*value) : FastScalarValue::nil();
        }
        case NodeKind::Index: {
            const Variable* base = variableInPlace(expression, node.left, analysis);
            if (base == nullptr) return {};
            if (base->type == VarType::Table) {
                const Variable* entry = calleeInPlace(expression, index, analysis);
                return entry != nullptr ? soundScalar(*entry) : FastScalarValue{};
            }
            if (base->type != VarType::Array) return {};
            const FastScalarValue key = exactScalar(expression, node.right, analysis);
            if (key.kind != ScalarKind::Int) return {};
            return soundScalar(elementOrNil(*base->asArray(), key.intValue));
        }
        case NodeKind::Add:
        case NodeKind::Subtract:
        case NodeKind::Multiply:
        case NodeKind::Divide:
        case NodeKind::IntDivide:
        case NodeKind::Modulo:
        case NodeKind::Equal:
        case NodeKind::NotEqual:
        case NodeKind::Less:
        case NodeKind::Greater:
        case NodeKind::LessEqual:
        case NodeKind::GreaterEqual: {
            const FastScalarValue left = exactScalar(expression, node.left, analysis);
            if (!left.isNumeric()) return {};
            return exactOperation(node.kind, left, exactScalar(expression, node.right, analysis));
        }
        default: return {};
    }
}
