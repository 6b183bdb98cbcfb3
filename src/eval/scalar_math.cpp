#include "eval/scalar_math.h"

#include <algorithm>
#include <cmath>

#include "library/natives.h"
#include "value/arithmetic.h"

namespace {

FastScalarValue smallest(const FastScalarValue* values, std::size_t count) {
    FastScalarValue winner = values[0];
    for (std::size_t i = 1; i < count; ++i) {
        if (!(fastScalarToDouble(values[i]) >= fastScalarToDouble(winner))) winner = values[i];
    }
    return winner;
}

FastScalarValue largest(const FastScalarValue* values, std::size_t count) {
    FastScalarValue winner = values[0];
    for (std::size_t i = 1; i < count; ++i) {
        if (fastScalarToDouble(values[i]) > fastScalarToDouble(winner)) winner = values[i];
    }
    return winner;
}

FastScalarValue absolute(const FastScalarValue& value) {
    if (value.kind == ScalarKind::Float) {
        return FastScalarValue::fromFloat(std::fabs(value.floatValue));
    }
    const int number = fastScalarToInt(value);
    return FastScalarValue::fromInt(std::max(number, wrapNegate(number)));
}

FastScalarValue narrowed(double number) {
    return FastScalarValue::fromFloat(static_cast<float>(number));
}

}  // namespace

bool tryScalarMath(BuiltinId id, const FastScalarValue* values, std::size_t count,
                   FastScalarValue& out) {
    if (id == BuiltinId::MathMin || id == BuiltinId::MathMax) {
        out = id == BuiltinId::MathMin ? smallest(values, count) : largest(values, count);
        return true;
    }
    if (id == BuiltinId::MathLog && count == 2) {
        out = narrowed(
            checkedLogarithm(fastScalarToDouble(values[0]), fastScalarToDouble(values[1])));
        return true;
    }
    if (count != 1) return false;
    const double x = fastScalarToDouble(values[0]);
    switch (id) {
        case BuiltinId::MathFloor:
            out = FastScalarValue::fromInt(saturateToInt(std::floor(x)));
            return true;
        case BuiltinId::MathCeil:
            out = FastScalarValue::fromInt(saturateToInt(std::ceil(x)));
            return true;
        case BuiltinId::MathAbs: out = absolute(values[0]); return true;
        case BuiltinId::MathSin: out = narrowed(std::sin(x)); return true;
        case BuiltinId::MathCos: out = narrowed(std::cos(x)); return true;
        case BuiltinId::MathRad: out = narrowed(radiansFromDegrees(x)); return true;
        case BuiltinId::MathLog: out = narrowed(checkedLogarithm(x)); return true;
        case BuiltinId::MathSqrt: out = narrowed(checkedSquareRoot(x)); return true;
        default: return false;
    }
}
