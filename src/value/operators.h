// The binary operators on values. Comparison and logic operators are built by the evaluators from
// compareVariables and variablesEqual.
#pragma once

#include "value/variable.h"

/// The value of `lhs op rhs` for op one of + - * / \ % ^. Raises "Unsupported operation ..." or
/// "Division by zero"; the operands never change.
[[nodiscard]] Variable performOperation(const Variable& lhs, char op, const Variable& rhs);

/// Makes `target` hold `target op rhs`, without a temporary where the kinds allow. False, with
/// nothing changed, if the caller must use performOperation instead. A failure is raised before
/// anything has changed.
[[nodiscard]] bool tryApplyOperationInPlace(Variable& target, char op, const Variable& rhs);

/// -1, 0 or 1. Numbers compare by value in any mix of kinds (a NaN gives -1), strings by bytes;
/// anything else raises "Cannot compare A with B".
[[nodiscard]] int compareVariables(const Variable& lhs, const Variable& rhs);

/// Numbers by value, strings by bytes, containers and functions by identity; never raises.
[[nodiscard]] bool variablesEqual(const Variable& lhs, const Variable& rhs);
