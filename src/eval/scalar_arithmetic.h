// The operators of the scalar tier on two scalars.
#pragma once

#include "eval/fast_scalar_value.h"
#include "frontend/fast_expression.h"
#include "value/arithmetic.h"

/// `left op right` for an arithmetic node kind, of any two scalars; unset if one is no number.
/// Always an int for two int-like operands but for "/" and "^". Raises "Division by zero".
[[nodiscard]] FastScalarValue mixedArithmetic(NodeKind kind, FastScalarValue left,
                                              FastScalarValue right);

/// The truth of a comparison node kind on any two scalars that are set; false declines.
[[nodiscard]] bool mixedComparison(NodeKind kind, FastScalarValue left, FastScalarValue right,
                                   bool& out);

/// The int operation of an arithmetic node kind other than "/" and "^".
[[nodiscard]] int applyIntOperator(NodeKind kind, int a, int b);

template <typename Number>
[[nodiscard]] inline bool compareNumbers(NodeKind kind, Number a, Number b) {
    switch (kind) {
        case NodeKind::Equal: return a == b;
        case NodeKind::NotEqual: return a != b;
        // Written by what does not hold, so that a NaN makes "<" and "<=" true.
        case NodeKind::Less: return !(a >= b);
        case NodeKind::LessEqual: return !(a > b);
        case NodeKind::Greater: return a > b;
        default: return a >= b;
    }
}

/// `mixedArithmetic` with the common kinds inline. One rounding of the double result of two floats
/// is that of the operation in single precision.
[[nodiscard, gnu::always_inline]] inline FastScalarValue scalarArithmeticOn(NodeKind kind,
                                                                            FastScalarValue left,
                                                                            FastScalarValue right) {
    if (left.kind == ScalarKind::Int && right.kind == ScalarKind::Int) {
        switch (kind) {
            case NodeKind::Add:
                return FastScalarValue::fromInt(wrapAdd(left.intValue, right.intValue));
            case NodeKind::Subtract:
                return FastScalarValue::fromInt(wrapSubtract(left.intValue, right.intValue));
            case NodeKind::Multiply:
                return FastScalarValue::fromInt(wrapMultiply(left.intValue, right.intValue));
            case NodeKind::Modulo:
                if (right.intValue == 0) break;
                return FastScalarValue::fromInt(wrapRemainder(left.intValue, right.intValue));
            case NodeKind::IntDivide:
                if (right.intValue == 0) break;
                return FastScalarValue::fromInt(wrapDivide(left.intValue, right.intValue));
            default: break;
        }
    } else if (left.kind == ScalarKind::Float && right.kind == ScalarKind::Float) {
        switch (kind) {
            case NodeKind::Add:
                return FastScalarValue::fromFloat(left.floatValue + right.floatValue);
            case NodeKind::Subtract:
                return FastScalarValue::fromFloat(left.floatValue - right.floatValue);
            case NodeKind::Multiply:
                return FastScalarValue::fromFloat(left.floatValue * right.floatValue);
            default: break;
        }
    }
    return mixedArithmetic(kind, left, right);
}

/// `mixedComparison` with two numbers of a kind inline; unset if it declines.
[[nodiscard, gnu::always_inline]] inline FastScalarValue scalarComparisonOn(NodeKind kind,
                                                                            FastScalarValue left,
                                                                            FastScalarValue right) {
    if (left.kind == ScalarKind::Int && right.kind == ScalarKind::Int) {
        return FastScalarValue::fromBool(compareNumbers(kind, left.intValue, right.intValue));
    }
    if (left.kind == ScalarKind::Float && right.kind == ScalarKind::Float) {
        return FastScalarValue::fromBool(compareNumbers(kind, left.floatValue, right.floatValue));
    }
    bool truth = false;
    return mixedComparison(kind, left, right, truth) ? FastScalarValue::fromBool(truth)
                                                     : FastScalarValue{};
}

/// Any binary operator but "and" and "or".
[[nodiscard, gnu::always_inline]] inline FastScalarValue scalarOperationOn(NodeKind kind,
                                                                           FastScalarValue left,
                                                                           FastScalarValue right) {
    return kind < NodeKind::Equal ? scalarArithmeticOn(kind, left, right)
                                  : scalarComparisonOn(kind, left, right);
}
