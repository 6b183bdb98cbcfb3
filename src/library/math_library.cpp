// The `math` table and the global `random`. Floats are computed in double precision and narrowed
// once, at the end.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"
#include "value/numbers.h"
#include "value/operators.h"

namespace {

constexpr double kRadiansPerDegree = 0.017453292519943295;
// Brings an output of the generator to at most 1, in single precision; rounding can make it 1.
constexpr float kUnitPerOutput = 2.3283064e-10F;

Variable narrowed(double number) { return Variable::makeFloat(static_cast<float>(number)); }

/// The one argument of a native that takes a number; `message` is for a wrong count.
double onlyNumber(Arguments args, const char* message) {
    if (args.size() != 1) throwPlainError(message);
    return toDouble(args[0]);
}

double checkedBaseLogarithm(double base) {
    if (!(base > 0.0) || base == 1.0) {
        throwPlainError("math['log'] base must be positive and not equal to 1");
    }
    return std::log(base);
}

/// The first argument that no later one beats; `sign` is the comparison that beats.
Variable extreme(Arguments args, int sign) {
    std::size_t best = 0;
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (compareVariables(args[i], args[best]) == sign) best = i;
    }
    return args[best];
}

Variable randomUpTo(std::uint32_t output, const Variable& limit) {
    if (limit.type != VarType::Int) {
        throwPlainError("random function with one argument requires an integer");
    }
    if (limit.asInt() < 1) {
        throwPlainError("random function requires a positive maximum value");
    }
    const std::uint32_t value = output % static_cast<std::uint32_t>(limit.asInt()) + 1U;
    return Variable::makeInt(static_cast<int>(value));
}

Variable randomBetween(std::uint32_t output, const Variable& least, const Variable& greatest) {
    if (least.type != VarType::Int || greatest.type != VarType::Int) {
        throwPlainError("random function with two arguments requires integers");
    }
    if (least.asInt() > greatest.asInt()) {
        throwPlainError("random function requires min <= max");
    }
    const auto first = static_cast<std::uint32_t>(least.asInt());
    const std::uint32_t range = static_cast<std::uint32_t>(greatest.asInt()) - first + 1U;
    // The full 32 bits wrap to a range of 0, and any output will do.
    const std::uint32_t value = range == 0 ? output : output % range;
    return Variable::makeInt(static_cast<int>(value + first));
}

}  // namespace

double radiansFromDegrees(double degrees) { return degrees * kRadiansPerDegree; }

double checkedLogarithm(double x) {
    if (!(x > 0.0)) throwPlainError("math['log'] requires a positive value");
    return std::log(x);
}

double checkedLogarithm(double x, double base) {
    const double logarithm = checkedLogarithm(x);
    return logarithm / checkedBaseLogarithm(base);
}

double checkedSquareRoot(double x) {
    if (!(x >= 0.0)) throwPlainError("math['sqrt'] requires a non-negative value");
    return std::sqrt(x);
}

Variable mathFloorFunction(DovrelScript&, Arguments args) {
    const double x = onlyNumber(args, "math['floor'](x) requires exactly 1 argument");
    return Variable::makeInt(saturateToInt(std::floor(x)));
}

Variable mathCeilFunction(DovrelScript&, Arguments args) {
    const double x = onlyNumber(args, "math['ceil'](x) requires exactly 1 argument");
    return Variable::makeInt(saturateToInt(std::ceil(x)));
}

Variable mathAbsFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1) throwPlainError("math['abs'](x) requires exactly 1 argument");
    if (args[0].type == VarType::Float) return Variable::makeFloat(std::fabs(args[0].asFloat()));
    const int x = toInt(args[0]);
    // The smallest int has no counterpart and comes back unchanged.
    return Variable::makeInt(std::max(x, wrapNegate(x)));
}

Variable mathMinFunction(DovrelScript&, Arguments args) {
    if (args.empty()) throwPlainError("math['min'](...) requires at least 1 argument");
    return extreme(args, -1);
}

Variable mathMaxFunction(DovrelScript&, Arguments args) {
    if (args.empty()) throwPlainError("math['max'](...) requires at least 1 argument");
    return extreme(args, 1);
}

Variable mathSinFunction(DovrelScript&, Arguments args) {
    return narrowed(std::sin(onlyNumber(args, "math['sin'](x) requires exactly 1 argument")));
}

Variable mathCosFunction(DovrelScript&, Arguments args) {
    return narrowed(std::cos(onlyNumber(args, "math['cos'](x) requires exactly 1 argument")));
}

Variable mathRadFunction(DovrelScript&, Arguments args) {
    const double degrees = onlyNumber(args, "math['rad'](x) requires exactly 1 argument");
    return narrowed(radiansFromDegrees(degrees));
}

Variable mathLogFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1 && args.size() != 2) {
        throwPlainError("math['log'](x[, base]) requires 1 or 2 arguments");
    }
    const double logarithm = checkedLogarithm(toDouble(args[0]));
    if (args.size() == 1) return narrowed(logarithm);
    return narrowed(logarithm / checkedBaseLogarithm(toDouble(args[1])));
}

Variable mathSqrtFunction(DovrelScript&, Arguments args) {
    const double x = onlyNumber(args, "math['sqrt'](x) requires exactly 1 argument");
    return narrowed(checkedSquareRoot(x));
}

Variable randomFunction(DovrelScript& interpreter, Arguments args) {
    // Drawn before any check, so that a call that fails has advanced the generator: kept, the
    // sequence of a seeded script depends on it.
    const std::uint32_t output = interpreter.randomEngine.next();
    switch (args.size()) {
        case 0: return Variable::makeFloat(static_cast<float>(output) * kUnitPerOutput);
        case 1: return randomUpTo(output, args[0]);
        case 2: return randomBetween(output, args[0], args[1]);
        default: throwPlainError("random function takes 0, 1, or 2 arguments");
    }
}

Variable randomSeedFunction(DovrelScript& interpreter, Arguments args) {
    if (args.size() != 1) {
        throwPlainError("math['randomSeed'](seed) requires exactly 1 argument");
    }
    interpreter.randomEngine.seed(static_cast<std::uint32_t>(toInt(args[0])));
    return Variable();
}
