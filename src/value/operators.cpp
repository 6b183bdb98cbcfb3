#include "value/operators.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

#include "value/arithmetic.h"
#include "value/numbers.h"
#include "value/text.h"

namespace {

[[noreturn]] void throwUnsupported(char op) {
    // Complete texts: see RuntimeError.
    switch (op) {
        case '+': throw std::runtime_error("Unsupported operation '+' between types");
        case '-': throw std::runtime_error("Unsupported operation '-' between types");
        case '*': throw std::runtime_error("Unsupported operation '*' between types");
        case '/': throw std::runtime_error("Unsupported operation '/' between types");
        case '\\': throw std::runtime_error("Unsupported operation '\\' between types");
        case '%': throw std::runtime_error("Unsupported operation '%' between types");
        default: throw std::runtime_error("Unsupported operation '^' between types");
    }
}

bool eitherIsFloat(const Variable& lhs, const Variable& rhs) {
    return lhs.type == VarType::Float || rhs.type == VarType::Float;
}

/// Each operand is narrowed to single precision before the operation, an int too.
float narrowed(const Variable& value) { return static_cast<float>(toDouble(value)); }

Variable divide(const Variable& lhs, const Variable& rhs) {
    const double divisor = toDouble(rhs);
    if (divisor == 0.0) throwDivisionByZero();
    return Variable::makeFloat(static_cast<float>(toDouble(lhs) / divisor));
}

Variable divideInts(const Variable& lhs, const Variable& rhs) {
    const int divisor = toInt(rhs);
    if (divisor == 0) throwDivisionByZero();
    return Variable::makeInt(wrapDivide(toInt(lhs), divisor));
}

Variable remainder(const Variable& lhs, const Variable& rhs) {
    if (toDouble(rhs) == 0.0) throwDivisionByZero();
    if (eitherIsFloat(lhs, rhs)) {
        return Variable::makeFloat(std::fmod(narrowed(lhs), narrowed(rhs)));
    }
    return Variable::makeInt(wrapRemainder(toInt(lhs), toInt(rhs)));
}

/// Square and multiply within 32 bits; false as soon as a step leaves them.
bool tryIntPower(int base, int exponent, int& out) {
    std::int64_t accumulator = 1;
    std::int64_t square = base;
    for (;;) {
        if ((exponent & 1) != 0) {
            accumulator *= square;
            if (accumulator < std::numeric_limits<int>::min() ||
                accumulator > std::numeric_limits<int>::max()) {
                return false;
            }
        }
        if (exponent < 2) {
            out = static_cast<int>(accumulator);
            return true;
        }
        exponent >>= 1;
        square *= square;
        if (square >= std::int64_t{1} << 31) return false;
    }
}

Variable power(const Variable& lhs, const Variable& rhs) {
    const bool intForm = lhs.type == VarType::Int && rhs.type == VarType::Int && rhs.asInt() >= 0;
    if (intForm) {
        int result = 1;
        if (rhs.asInt() == 0 || tryIntPower(lhs.asInt(), rhs.asInt(), result)) {
            return Variable::makeInt(result);
        }
    }
    const double result = std::pow(toDouble(lhs), toDouble(rhs));
    if (intForm) {
        // A result that left the int route on its way may have come back into range.
        const double rounded = std::round(result);
        if (std::fabs(rounded - result) < 0.000001 && rounded >= -2147483648.0 &&
            rounded <= 2147483647.0) {
            return Variable::makeInt(static_cast<int>(rounded));
        }
    }
    return Variable::makeFloat(static_cast<float>(result));
}

bool isStringJoin(const Variable& lhs, char op, const Variable& rhs) {
    return op == '+' && (lhs.type == VarType::String || rhs.type == VarType::String);
}

}  // namespace

Variable performOperation(const Variable& lhs, char op, const Variable& rhs) {
    if (isStringJoin(lhs, op, rhs)) return Variable(joinedText(lhs, rhs));
    switch (op) {
        case '+':
        case '-':
        case '*':
        case '/':
        case '\\':
        case '%':
        case '^': break;
        default: throw std::runtime_error(std::string("Unsupported operation: ") + op);
    }
    if (!lhs.isNumeric() || !rhs.isNumeric()) throwUnsupported(op);
    switch (op) {
        case '/': return divide(lhs, rhs);
        case '\\': return divideInts(lhs, rhs);
        case '%': return remainder(lhs, rhs);
        case '^': return power(lhs, rhs);
        default: break;
    }
    if (eitherIsFloat(lhs, rhs)) {
        return Variable::makeFloat(floatArithmetic(narrowed(lhs), op, narrowed(rhs)));
    }
    return Variable::makeInt(intArithmetic(toInt(lhs), op, toInt(rhs)));
}

bool tryApplyOperationInPlace(Variable& target, char op, const Variable& rhs) {
    if (isStringJoin(target, op, rhs)) {
        if (target.type == VarType::String) {
            appendToString(target, rhs);
        } else {
            target = Variable(joinedText(target, rhs));
        }
        return true;
    }
    if (!target.isNumeric() || !rhs.isNumeric()) return false;
    switch (op) {
        case '+':
        case '-':
        case '*':
            if (target.type == VarType::Int && rhs.type == VarType::Int) {
                target.replaceInt(intArithmetic(target.asInt(), op, rhs.asInt()));
            } else if (target.type == VarType::Float) {
                target.replaceFloat(floatArithmetic(target.asFloat(), op, narrowed(rhs)));
            } else {
                target = performOperation(target, op, rhs);
            }
            return true;
        case '/':
        case '\\':
        case '%': target = performOperation(target, op, rhs); return true;
        default: return false;
    }
}

int compareVariables(const Variable& lhs, const Variable& rhs) {
    if (lhs.isNumeric() && rhs.isNumeric()) {
        const double a = toDouble(lhs);
        const double b = toDouble(rhs);
        if (a > b) return 1;
        return a == b ? 0 : -1;
    }
    if (lhs.type == VarType::String && rhs.type == VarType::String) {
        const int order = lhs.asString().compare(rhs.asString());
        return order > 0 ? 1 : (order < 0 ? -1 : 0);
    }
    throw std::runtime_error("Cannot compare " + typeName(lhs.type) + " with " +
                             typeName(rhs.type));
}

bool variablesEqual(const Variable& lhs, const Variable& rhs) {
    if (lhs.isNumeric() && rhs.isNumeric()) return toDouble(lhs) == toDouble(rhs);
    if (lhs.type != rhs.type) return false;
    switch (lhs.type) {
        case VarType::Nil: return true;
        case VarType::String: return lhs.asString() == rhs.asString();
        default: return lhs.sameContent(rhs);
    }
}
