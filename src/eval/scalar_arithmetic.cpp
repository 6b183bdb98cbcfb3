#include "eval/scalar_arithmetic.h"

#include <cmath>

namespace {

char operatorCharacter(NodeKind kind) {
    switch (kind) {
        case NodeKind::Add: return '+';
        case NodeKind::Subtract: return '-';
        default: return '*';
    }
}

float dividedFloats(FastScalarValue left, FastScalarValue right) {
    const double divisor = fastScalarToDouble(right);
    if (divisor == 0.0) throwDivisionByZero();
    return static_cast<float>(fastScalarToDouble(left) / divisor);
}

float floatRemainder(FastScalarValue left, FastScalarValue right) {
    const double divisor = fastScalarToDouble(right);
    if (divisor == 0.0) throwDivisionByZero();
    return static_cast<float>(std::fmod(fastScalarToDouble(left), divisor));
}

/// An operation on two numbers of which one is a float, or that always gives a float. It is made in
/// double and rounded once, where the general tier narrows its operands first; kept.
FastScalarValue applyFloatOperator(NodeKind kind, FastScalarValue left, FastScalarValue right) {
    switch (kind) {
        case NodeKind::Divide: return FastScalarValue::fromFloat(dividedFloats(left, right));
        case NodeKind::Power:
            return FastScalarValue::fromFloat(
                static_cast<float>(std::pow(fastScalarToDouble(left), fastScalarToDouble(right))));
        case NodeKind::IntDivide:
            return FastScalarValue::fromInt(
                checkedDivide(fastScalarToInt(left), fastScalarToInt(right)));
        case NodeKind::Modulo: return FastScalarValue::fromFloat(floatRemainder(left, right));
        default:
            return FastScalarValue::fromFloat(static_cast<float>(doubleArithmetic(
                fastScalarToDouble(left), operatorCharacter(kind), fastScalarToDouble(right))));
    }
}

bool isEqualityNode(NodeKind kind) { return kind == NodeKind::Equal || kind == NodeKind::NotEqual; }

}  // namespace

int applyIntOperator(NodeKind kind, int a, int b) {
    switch (kind) {
        case NodeKind::Add: return wrapAdd(a, b);
        case NodeKind::Subtract: return wrapSubtract(a, b);
        case NodeKind::Multiply: return wrapMultiply(a, b);
        case NodeKind::IntDivide: return checkedDivide(a, b);
        default: return checkedRemainder(a, b);
    }
}

FastScalarValue mixedArithmetic(NodeKind kind, FastScalarValue left, FastScalarValue right) {
    if (!left.isNumeric() || !right.isNumeric()) return {};
    const bool alwaysFloat = kind == NodeKind::Divide || kind == NodeKind::Power;
    if (alwaysFloat || left.kind == ScalarKind::Float || right.kind == ScalarKind::Float) {
        return applyFloatOperator(kind, left, right);
    }
    return FastScalarValue::fromInt(applyIntOperator(kind, left.intValue, right.intValue));
}

bool mixedComparison(NodeKind kind, FastScalarValue left, FastScalarValue right, bool& out) {
    if (left.isNumeric() && right.isNumeric()) {
        out = compareNumbers(kind, fastScalarToDouble(left), fastScalarToDouble(right));
        return true;
    }
    if (!isEqualityNode(kind)) return false;
    // One of them is nil, and nil equals only nil.
    out = (left.kind == right.kind) == (kind == NodeKind::Equal);
    return true;
}
