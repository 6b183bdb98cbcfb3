#include "eval/binary_operation.h"

#include "frontend/operator_table.h"
#include "value/operators.h"

Variable applyBinaryOperator(int number, const Variable& lhs, const Variable& rhs) {
    switch (number) {
        case kEqual: return Variable::makeBool(variablesEqual(lhs, rhs));
        case kNotEqual: return Variable::makeBool(!variablesEqual(lhs, rhs));
        case kLess: return Variable::makeBool(compareVariables(lhs, rhs) < 0);
        case kGreater: return Variable::makeBool(compareVariables(lhs, rhs) > 0);
        case kLessEqual: return Variable::makeBool(compareVariables(lhs, rhs) <= 0);
        case kGreaterEqual: return Variable::makeBool(compareVariables(lhs, rhs) >= 0);
        case kAdd: return performOperation(lhs, '+', rhs);
        case kSubtract: return performOperation(lhs, '-', rhs);
        case kMultiply: return performOperation(lhs, '*', rhs);
        case kDivide: return performOperation(lhs, '/', rhs);
        case kIntDivide: return performOperation(lhs, '\\', rhs);
        case kModulo: return performOperation(lhs, '%', rhs);
        default: return performOperation(lhs, '^', rhs);
    }
}
