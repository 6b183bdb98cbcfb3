// The binary operators by number, for the evaluators that have both operands as values.
#pragma once

#include "value/variable.h"

/// The value of operator `number` (kEqual to kPower of the operator table) on two values.
[[nodiscard]] Variable applyBinaryOperator(int number, const Variable& lhs, const Variable& rhs);
