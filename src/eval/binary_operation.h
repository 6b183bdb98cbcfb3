// The binary operators by number, for the evaluators that have both operands as values.
#pragma once

#include "value/variable.h"

enum class NodeKind : std::uint32_t;

/// The value of operator `number` (kEqual to kPower of the operator table) on two values.
[[nodiscard]] Variable applyBinaryOperator(int number, const Variable& lhs, const Variable& rhs);

/// The value of a binary node of the general tier, other than "and" and "or", on two values. `left`
/// may be used up.
[[nodiscard]] Variable generalOperation(NodeKind kind, Variable& left, const Variable& right);
