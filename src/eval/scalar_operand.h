// The way into the scalar tier, inline: nearly all operands are variables and int literals.
#pragma once

#include "eval/variable_access.h"

inline FastScalarValue DovrelScript::scalarVariable(const TokenAnalysis& token) {
    const Variable* value = readVariable(token);
    return value != nullptr ? scalarFromVariable(*value) : FastScalarValue::nil();
}

inline FastScalarValue DovrelScript::scalarOperand(const FastExpression& expression, int index,
                                                   const std::vector<TokenAnalysis>& analysis) {
    const FastExprNode& node = expression.nodes[static_cast<std::size_t>(index)];
    if (node.kind == NodeKind::Variable) return scalarVariable(analysis[node.tokenIndex]);
    if (node.kind == NodeKind::IntLiteral) return FastScalarValue::fromInt(node.intValue);
    return scalarNode(expression, node, analysis);
}
