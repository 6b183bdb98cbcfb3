// Arithmetic on the host's numbers that values and scalars share.
#pragma once

#include <stdexcept>

#include "value/numbers.h"

[[noreturn]] inline void throwDivisionByZero() { throw std::runtime_error("Division by zero"); }

/// `+`, `-` and `*` on ints, wrapping.
[[nodiscard]] inline int intArithmetic(int a, char op, int b) {
    switch (op) {
        case '+': return wrapAdd(a, b);
        case '-': return wrapSubtract(a, b);
        default: return wrapMultiply(a, b);
    }
}

/// `+`, `-` and `*` in single precision.
[[nodiscard]] inline float floatArithmetic(float a, char op, float b) {
    switch (op) {
        case '+': return a + b;
        case '-': return a - b;
        default: return a * b;
    }
}

/// `+`, `-` and `*` in double precision.
[[nodiscard]] inline double doubleArithmetic(double a, char op, double b) {
    switch (op) {
        case '+': return a + b;
        case '-': return a - b;
        default: return a * b;
    }
}

/// Truncating division; raises "Division by zero".
[[nodiscard]] inline int checkedDivide(int a, int b) {
    if (b == 0) throwDivisionByZero();
    return wrapDivide(a, b);
}

/// The remainder of truncating division; raises "Division by zero".
[[nodiscard]] inline int checkedRemainder(int a, int b) {
    if (b == 0) throwDivisionByZero();
    return wrapRemainder(a, b);
}
