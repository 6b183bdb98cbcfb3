// The scalar, int and bool tiers: evaluators over the nodes of a compiled expression that build no
// Variable and allocate nothing on their main paths. Each may decline by returning false; the
// caller then evaluates the node again by the next tier.
//
// The rules that keep them right:
//   1. Skipping an evaluation that the next tier repeats is allowed only where nobody could see the
//      repetition: no call below the node. So the int tier runs ahead of the scalar tier only for
//      nodes that hold a call; without one, the scalar operands decide the same.
//   2. Every result that leaves a node is narrowed to 32 bits.
//   3. Here 0 is false. The general tier says otherwise; kept, conditions rely on it.
//   4. Whatever runs script code is followed by a test for a soft error, which declines.
//   5. No pointer to a variable is kept across anything that may run script code.
#include "eval/scalar_arithmetic.h"
#include "eval/scalar_operand.h"
#include "value/arithmetic.h"

using TokenAnalyses = std::vector<TokenAnalysis>;

namespace {

const FastExprNode& nodeAt(const FastExpression& expression, int index) {
    return expression.nodes[static_cast<std::size_t>(index)];
}

/// True for the index of a node; a negative index or one past the array stands for nil.
bool isNodeIndex(const FastExpression& expression, int index) {
    return static_cast<std::size_t>(index) < expression.nodes.size();
}

}  // namespace

bool DovrelScript::tryEvaluateFastExpressionScalarNode(const FastExpression& expression, int index,
                                                       const TokenAnalyses& analysis,
                                                       FastScalarValue& out) {
    out = isNodeIndex(expression, index) ? scalarOperand(expression, index, analysis)
                                         : FastScalarValue::nil();
    return out.isSet();
}

FastScalarValue DovrelScript::scalarNode(const FastExpression& expression, const FastExprNode& node,
                                         const TokenAnalyses& analysis) {
    switch (node.kind) {
        case NodeKind::IntLiteral: return FastScalarValue::fromInt(node.intValue);
        case NodeKind::FloatLiteral: return FastScalarValue::fromFloat(node.floatValue);
        case NodeKind::BoolLiteral: return FastScalarValue::fromBool(node.boolValue);
        case NodeKind::NilLiteral: return FastScalarValue::nil();
        case NodeKind::Variable: {
            const Variable* value = readVariable(analysis[node.tokenIndex]);
            return value != nullptr ? scalarFromVariable(*value) : FastScalarValue::nil();
        }
        case NodeKind::Index: return scalarIndex(expression, node, analysis);
        case NodeKind::Call: {
            FastScalarValue result{};
            return tryScalarCall(expression, node, analysis, result) ? result : FastScalarValue{};
        }
        case NodeKind::Negate: {
            const FastScalarValue operand = scalarOperand(expression, node.left, analysis);
            if (!operand.isNumeric()) return {};
            return operand.kind == ScalarKind::Float
                       ? FastScalarValue::fromFloat(-operand.floatValue)
                       : FastScalarValue::fromInt(wrapNegate(fastScalarToInt(operand)));
        }
        case NodeKind::Not: {
            const FastScalarValue operand = scalarOperand(expression, node.left, analysis);
            return operand.isSet() ? FastScalarValue::fromBool(!isScalarTruthy(operand)) : operand;
        }
        case NodeKind::Length: {
            int length = 0;
            return tryScalarLength(expression, node, analysis, length)
                       ? FastScalarValue::fromInt(length)
                       : FastScalarValue{};
        }
        case NodeKind::Add:
        case NodeKind::Subtract:
        case NodeKind::Multiply:
        case NodeKind::Divide:
        case NodeKind::IntDivide:
        case NodeKind::Modulo:
        case NodeKind::Power: return scalarArithmetic(expression, node, analysis);
        case NodeKind::Equal:
        case NodeKind::NotEqual:
        case NodeKind::Less:
        case NodeKind::Greater:
        case NodeKind::LessEqual:
        case NodeKind::GreaterEqual: {
            bool truth = false;
            return tryScalarComparison(expression, node, analysis, truth)
                       ? FastScalarValue::fromBool(truth)
                       : FastScalarValue{};
        }
        case NodeKind::And:
        case NodeKind::Or: {
            const FastScalarValue left = scalarOperand(expression, node.left, analysis);
            if (!left.isSet() || isScalarTruthy(left) != (node.kind == NodeKind::And)) return left;
            if (valuesAreWatched && node.kind == NodeKind::Or && left.isNumeric() &&
                left.kind != ScalarKind::Bool) {
                tellDroppedZero(analysis[node.tokenIndex]);
            }
            return scalarOperand(expression, node.right, analysis);
        }
        case NodeKind::StringLiteral:
        case NodeKind::ArrayLiteral:
        case NodeKind::TableLiteral:
        case NodeKind::Varargs:
        case NodeKind::None: break;
    }
    return {};
}

FastScalarValue DovrelScript::scalarArithmetic(const FastExpression& expression,
                                               const FastExprNode& node,
                                               const TokenAnalyses& analysis) {
    if (node.holdsCall) [[unlikely]] {
        int a = 0;
        int b = 0;
        if (tryIntOperandsFirst(expression, node, analysis, a, b)) {
            return FastScalarValue::fromInt(applyIntOperator(node.kind, a, b));
        }
        if (softErrorUnwinding()) return {};
    }
    const FastScalarValue left = scalarOperand(expression, node.left, analysis);
    if (!left.isNumeric()) return {};
    const FastScalarValue right = scalarOperand(expression, node.right, analysis);
    return scalarArithmeticOn(node.kind, left, right);
}

/// The int tier on both operands of a node that holds a call, as long as no float is in sight.
bool DovrelScript::tryIntOperandsFirst(const FastExpression& expression, const FastExprNode& node,
                                       const TokenAnalyses& analysis, int& a, int& b) {
    if (node.floatResult || node.kind == NodeKind::Divide || node.kind == NodeKind::Power) {
        return false;
    }
    return tryEvaluateFastExpressionIntNode(expression, node.left, analysis, a) &&
           tryEvaluateFastExpressionIntNode(expression, node.right, analysis, b);
}

bool DovrelScript::tryScalarComparison(const FastExpression& expression, const FastExprNode& node,
                                       const TokenAnalyses& analysis, bool& out) {
    if (node.holdsCall) [[unlikely]] {
        int a = 0;
        int b = 0;
        if (tryIntOperandsFirst(expression, node, analysis, a, b)) {
            out = compareNumbers(node.kind, a, b);
            return true;
        }
        if (softErrorUnwinding()) return false;
    }
    const FastScalarValue left = scalarOperand(expression, node.left, analysis);
    if (!left.isSet()) return false;
    const FastScalarValue right = scalarOperand(expression, node.right, analysis);
    if (!right.isSet()) return false;
    const FastScalarValue result = scalarComparisonOn(node.kind, left, right);
    out = result.truth();
    return result.isSet();
}

const Variable* DovrelScript::variableInPlace(const FastExpression& expression, int index,
                                              const TokenAnalyses& analysis) {
    const FastExprNode& node = nodeAt(expression, index);
    return node.kind == NodeKind::Variable ? readVariable(analysis[node.tokenIndex]) : nullptr;
}

/// Where a node's value stands, as long as it is a variable or an element of one; null otherwise.
const Variable* DovrelScript::valueInPlace(const FastExpression& expression, int index,
                                           const TokenAnalyses& analysis) {
    const FastExprNode& node = nodeAt(expression, index);
    if (node.kind == NodeKind::Variable) return readVariable(analysis[node.tokenIndex]);
    return node.kind == NodeKind::Index ? elementInPlace(expression, node, analysis) : nullptr;
}

/// The element that an index node leads to in the general tier, where it stands: every step is an
/// array with a key of the int tier or a table with a literal one, and no call is in sight. The
/// shared nil for a missing one, null where the general tier has to look itself.
const Variable* DovrelScript::elementInPlace(const FastExpression& expression,
                                             const FastExprNode& node,
                                             const TokenAnalyses& analysis) {
    if (node.holdsCall) return nullptr;
    const Variable* base = valueInPlace(expression, node.left, analysis);
    if (base == nullptr) return nullptr;
    if (base->type == VarType::Array) {
        int key = 0;
        if (!tryEvaluateFastExpressionIntNode(expression, node.right, analysis, key)) {
            return nullptr;
        }
        observeElement(*base->asArray(), key);
        return &elementOrNil(*base->asArray(), key);
    }
    const FastExprNode& keyNode = nodeAt(expression, node.right);
    if (base->type != VarType::Table || keyNode.kind != NodeKind::StringLiteral) return nullptr;
    const TableStorage& table = *base->asTable();
    const auto* found = table.find(expression.strings[keyNode.stringIndex]);
    return found != nullptr ? found : &nilValue();
}

/// The base of an index is the general tier's; only the last key is a scalar of this tier.
FastScalarValue DovrelScript::scalarIndex(const FastExpression& expression,
                                          const FastExprNode& node, const TokenAnalyses& analysis) {
    if (!node.holdsCall) {
        const Variable* base = valueInPlace(expression, node.left, analysis);
        if (base != nullptr && base->type == VarType::Array) {
            const FastScalarValue key = scalarOperand(expression, node.right, analysis);
            if (key.kind == ScalarKind::Int) {
                observeElement(*base->asArray(), key.intValue);
                return scalarFromElement(*base->asArray(), key.intValue);
            }
        }
    }
    return scalarIndexSlowly(expression, node, analysis);
}

FastScalarValue DovrelScript::scalarIndexSlowly(const FastExpression& expression,
                                                const FastExprNode& node,
                                                const TokenAnalyses& analysis) {
    Variable temporary;
    const Variable* base = variableInPlace(expression, node.left, analysis);
    if (base == nullptr) {
        temporary = evaluateFastExpressionNode(expression, node.left, analysis);
        if (softErrorUnwinding()) return {};
        base = &temporary;
    }
    const FastExprNode& keyNode = nodeAt(expression, node.right);
    if (keyNode.kind == NodeKind::StringLiteral) {
        // On any other base a string key declines.
        if (base->type != VarType::Table) return {};
        const TableStorage& table = *base->asTable();
        const auto* found = table.find(expression.strings[keyNode.stringIndex]);
        return found != nullptr ? scalarFromVariable(*found) : FastScalarValue::nil();
    }

    const FastScalarValue scalarKey = scalarOperand(expression, node.right, analysis);
    if (scalarKey.kind == ScalarKind::Int && base->type == VarType::Array && !keyNode.holdsCall) {
        observeElement(*base->asArray(), scalarKey.intValue);
        return scalarFromElement(*base->asArray(), scalarKey.intValue);
    }
    if (softErrorUnwinding()) return {};
    Variable key = variableFromFastScalar(scalarKey);
    if (!scalarKey.isSet()) {
        key = evaluateFastExpressionNode(expression, node.right, analysis);
        if (softErrorUnwinding()) return {};
    }
    if (keyNode.holdsCall && base != &temporary) {
        base = variableInPlace(expression, node.left, analysis);
        if (base == nullptr) return {};
    }
    observeElement(*base, key);
    FastScalarValue element{};
    return tryFastScalarFromIndexedValue(*base, key, element) ? element : FastScalarValue{};
}

bool DovrelScript::tryScalarLength(const FastExpression& expression, const FastExprNode& node,
                                   const TokenAnalyses& analysis, int& out) {
    if (const Variable* operand = variableInPlace(expression, node.left, analysis)) {
        out = arrayLength(*operand);
        return true;
    }
    const Variable operand = evaluateFastExpressionNode(expression, node.left, analysis);
    if (softErrorUnwinding()) return false;
    out = arrayLength(operand);
    return true;
}

bool DovrelScript::tryEvaluateFastExpressionIntNode(const FastExpression& expression, int index,
                                                    const TokenAnalyses& analysis, int& out) {
    if (!isNodeIndex(expression, index)) return false;
    const FastExprNode& node = nodeAt(expression, index);
    switch (node.kind) {
        case NodeKind::IntLiteral: out = node.intValue; return true;
        case NodeKind::BoolLiteral: out = node.boolValue ? 1 : 0; return true;
        case NodeKind::Variable: {
            const Variable* value = readVariable(analysis[node.tokenIndex]);
            if (value == nullptr) return false;
            if (value->type == VarType::Int) {
                out = value->asInt();
                return true;
            }
            if (value->type != VarType::Bool) return false;
            out = value->asBool() ? 1 : 0;
            return true;
        }
        case NodeKind::Index: {
            const FastScalarValue element = scalarIndex(expression, node, analysis);
            if (element.kind != ScalarKind::Int && element.kind != ScalarKind::Bool) return false;
            out = fastScalarToInt(element);
            return true;
        }
        case NodeKind::Negate:
            if (!tryEvaluateFastExpressionIntNode(expression, node.left, analysis, out)) {
                return false;
            }
            out = wrapNegate(out);
            return true;
        case NodeKind::Length: return tryScalarLength(expression, node, analysis, out);
        case NodeKind::Add:
        case NodeKind::Subtract:
        case NodeKind::Multiply:
        case NodeKind::IntDivide:
        case NodeKind::Modulo: {
            int a = 0;
            int b = 0;
            if (!tryEvaluateFastExpressionIntNode(expression, node.left, analysis, a) ||
                !tryEvaluateFastExpressionIntNode(expression, node.right, analysis, b)) {
                return false;
            }
            out = applyIntOperator(node.kind, a, b);
            return true;
        }
        default: return false;
    }
}

bool DovrelScript::tryScalarTruth(const FastExpression& expression, int index,
                                  const TokenAnalyses& analysis, bool& out) {
    if (softErrorUnwinding()) return false;
    FastScalarValue value{};
    if (!tryEvaluateFastExpressionScalarNode(expression, index, analysis, value)) return false;
    out = isScalarTruthy(value);
    return true;
}

bool DovrelScript::tryEvaluateFastExpressionBoolNode(const FastExpression& expression, int index,
                                                     const TokenAnalyses& analysis, bool& out) {
    if (!isNodeIndex(expression, index)) return false;
    const FastExprNode& node = nodeAt(expression, index);
    switch (node.kind) {
        case NodeKind::IntLiteral: out = node.intValue != 0; return true;
        case NodeKind::BoolLiteral: out = node.boolValue; return true;
        case NodeKind::Variable: {
            const Variable* value = readVariable(analysis[node.tokenIndex]);
            FastScalarValue scalar = FastScalarValue::nil();
            if (value != nullptr && !tryFastScalarFromVariable(*value, scalar)) return false;
            out = isScalarTruthy(scalar);
            return true;
        }
        case NodeKind::Not:
            if (!tryEvaluateFastExpressionBoolNode(expression, node.left, analysis, out) &&
                !tryScalarTruth(expression, node.left, analysis, out)) {
                return false;
            }
            out = !out;
            return true;
        case NodeKind::Equal:
        case NodeKind::NotEqual:
        case NodeKind::Less:
        case NodeKind::Greater:
        case NodeKind::LessEqual:
        case NodeKind::GreaterEqual: return tryScalarComparison(expression, node, analysis, out);
        case NodeKind::And:
        case NodeKind::Or: return tryBoolLogic(expression, node, analysis, out);
        default: return false;
    }
}

bool DovrelScript::tryBoolLogic(const FastExpression& expression, const FastExprNode& node,
                                const TokenAnalyses& analysis, bool& out) {
    const bool leftByBoolTier =
        tryEvaluateFastExpressionBoolNode(expression, node.left, analysis, out);
    if (!leftByBoolTier && !tryScalarTruth(expression, node.left, analysis, out)) return false;
    if (out != (node.kind == NodeKind::And)) return true;
    if (tryEvaluateFastExpressionBoolNode(expression, node.right, analysis, out)) return true;
    // Kept: only a left side that the scalar tier decided gives the right side this second chance.
    return !leftByBoolTier && tryScalarTruth(expression, node.right, analysis, out);
}
