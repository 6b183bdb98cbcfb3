#include "eval/fast_scalar_value.h"

#include <cmath>
#include <limits>
#include <stdexcept>

#include "value/arithmetic.h"
#include "value/numbers.h"
#include "value/table.h"

namespace {

[[noreturn]] void throwNotNumeric() { throw std::runtime_error("Expected a numeric value"); }

/// Toward zero to 64 bits, saturating there; the low 32 bits count.
int lowBitsOfFloat(float number) {
    constexpr float kLimit = 9223372036854775808.0F;
    std::int64_t wide = 0;
    if (number >= kLimit) {
        wide = std::numeric_limits<std::int64_t>::max();
    } else if (number <= -kLimit) {
        wide = std::numeric_limits<std::int64_t>::min();
    } else if (!std::isnan(number)) {
        wide = static_cast<std::int64_t>(number);
    }
    return static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(wide)));
}

bool isFloatOperation(const Variable& target, const FastScalarValue& value) {
    return target.type == VarType::Float || value.kind == ScalarKind::Float;
}

void addInPlace(Variable& target, char op, const FastScalarValue& value) {
    if (target.type == VarType::Float) {
        const auto operand = static_cast<float>(fastScalarToDouble(value));
        target.replaceFloat(floatArithmetic(target.asFloat(), op, operand));
    } else if (value.kind == ScalarKind::Float) {
        target.type = VarType::Float;
        const double number = toDouble(target);
        target.setFloat(static_cast<float>(doubleArithmetic(number, op, value.floatValue)));
    } else {
        target.type = VarType::Int;
        const int number = toInt(target);
        target.setInt(intArithmetic(number, op, fastScalarToInt(value)));
    }
}

void divideInPlace(Variable& target, const FastScalarValue& value) {
    const double divisor = fastScalarToDouble(value);
    if (divisor == 0.0) throwDivisionByZero();
    target.type = VarType::Float;
    const double number = toDouble(target);
    target.setFloat(static_cast<float>(number / divisor));
}

void divideIntsInPlace(Variable& target, const FastScalarValue& value) {
    const int divisor = fastScalarToInt(value);
    if (divisor == 0) throwDivisionByZero();
    target.type = VarType::Int;
    const int number = toInt(target);
    target.setInt(wrapDivide(number, divisor));
}

void takeRemainderInPlace(Variable& target, const FastScalarValue& value) {
    if (isFloatOperation(target, value)) {
        const double divisor = fastScalarToDouble(value);
        if (divisor == 0.0) throwDivisionByZero();
        target.type = VarType::Float;
        const double number = toDouble(target);
        target.setFloat(static_cast<float>(std::fmod(number, divisor)));
    } else {
        const int divisor = fastScalarToInt(value);
        if (divisor == 0) throwDivisionByZero();
        target.type = VarType::Int;
        const int number = toInt(target);
        target.setInt(wrapRemainder(number, divisor));
    }
}

}  // namespace

int fastScalarToInt(const FastScalarValue& value) {
    switch (value.kind) {
        case ScalarKind::Int:
        case ScalarKind::Bool: return value.intValue;
        case ScalarKind::Float: return lowBitsOfFloat(value.floatValue);
        default: throwNotNumeric();
    }
}

double fastScalarToDouble(const FastScalarValue& value) {
    switch (value.kind) {
        case ScalarKind::Int:
        case ScalarKind::Bool: return static_cast<double>(value.intValue);
        case ScalarKind::Float: return static_cast<double>(value.floatValue);
        default: throwNotNumeric();
    }
}

Variable variableFromFastScalar(const FastScalarValue& value) {
    switch (value.kind) {
        case ScalarKind::Int: return Variable::makeInt(value.intValue);
        case ScalarKind::Float: return Variable::makeFloat(value.floatValue);
        case ScalarKind::Bool: return Variable::makeBool(value.truth());
        default: return {};
    }
}

bool tryFastScalarFromIndexedValue(const Variable& base, const Variable& key,
                                   FastScalarValue& out) {
    if (base.type == VarType::Array) {
        int position = 0;
        if (key.type == VarType::Int) {
            position = key.asInt();
        } else if (key.type != VarType::Float || !wholeFloatToInt(key.asFloat(), position)) {
            return false;
        }
        out = scalarFromElement(*base.asArray(), position);
        return out.isSet();
    }
    if (base.type != VarType::Table) return false;
    if (!key.isNumeric() && key.type != VarType::String) return false;
    const TableStorage& table = *base.asTable();
    const Variable* found = table.findValue(key);
    if (found != nullptr) return tryFastScalarFromVariable(*found, out);
    out = FastScalarValue::nil();
    return true;
}

bool tryApplyFastScalarOperationInPlace(Variable& target, char op, const FastScalarValue& value) {
    if (target.type == VarType::Int && value.kind == ScalarKind::Int) {
        // Counters: nothing else is as frequent.
        if (op == '+') {
            target.replaceInt(wrapAdd(target.asInt(), value.intValue));
            return true;
        }
    }
    if (!target.isNumeric() || !value.isNumeric()) return false;
    switch (op) {
        case '+':
        case '-':
        case '*': addInPlace(target, op, value); return true;
        case '/': divideInPlace(target, value); return true;
        case '\\': divideIntsInPlace(target, value); return true;
        case '%': takeRemainderInPlace(target, value); return true;
        default: return false;
    }
}
