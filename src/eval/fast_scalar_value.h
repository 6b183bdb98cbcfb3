// The value of the scalar tier: a number, a truth value or nil, with nothing to allocate or free.
#pragma once

#include <cstdint>

#include "value/variable.h"

enum class ScalarKind : std::uint8_t {
    Unset = 0,
    Nil = 1,
    Int = 2,
    Float = 3,
    Bool = 4,
};

struct FastScalarValue {
    ScalarKind kind = ScalarKind::Unset;
    bool boolValue = false;   // when `kind` is Bool
    int intValue = 0;         // when `kind` is Int
    float floatValue = 0.0F;  // when `kind` is Float

    static FastScalarValue nil() {
        FastScalarValue value;
        value.kind = ScalarKind::Nil;
        return value;
    }
    static FastScalarValue fromInt(int number) {
        FastScalarValue value;
        value.kind = ScalarKind::Int;
        value.intValue = number;
        return value;
    }
    static FastScalarValue fromFloat(float number) {
        FastScalarValue value;
        value.kind = ScalarKind::Float;
        value.floatValue = number;
        return value;
    }
    static FastScalarValue fromBool(bool truth) {
        FastScalarValue value;
        value.kind = ScalarKind::Bool;
        value.boolValue = truth;
        return value;
    }

    /// Int, Float or Bool.
    [[nodiscard]] bool isNumeric() const { return kind >= ScalarKind::Int; }
};

/// Bool as 0 or 1, Float cut toward zero to 64 bits and then to the low 32. Nil and an unset value
/// raise "Expected a numeric value".
[[nodiscard]] int fastScalarToInt(const FastScalarValue& value);

/// Bool as 0.0 or 1.0, Float widened. Nil and an unset value raise "Expected a numeric value".
[[nodiscard]] double fastScalarToDouble(const FastScalarValue& value);

/// Scalar truth: nil is false, a number is true if it is not 0. It differs from the general rule on
/// purpose; a condition follows the rule of the tier that decides it.
[[nodiscard]] bool isScalarTruthy(const FastScalarValue& value);

/// Nil, Int, Float and Bool convert; false for every other kind.
[[nodiscard]] bool tryFastScalarFromVariable(const Variable& value, FastScalarValue& out);

/// The value as a Variable; an unset value gives nil.
[[nodiscard]] Variable variableFromFastScalar(const FastScalarValue& value);

/// Overwrites kind and content of `target`.
void assignFastScalarToVariable(Variable& target, const FastScalarValue& value);

/// The element of an array or table at `key`, as a scalar; a missing one is nil. False if the base,
/// the key or the element is of another kind.
[[nodiscard]] bool tryFastScalarFromIndexedValue(const Variable& base, const Variable& key,
                                                 FastScalarValue& out);

/// The element at the 1-based `position` as a scalar; nil outside the array. False if the element
/// is of another kind.
[[nodiscard]] inline bool tryFastScalarFromElement(const ArrayStorage& array, int position,
                                                   FastScalarValue& out) {
    if (position < 1 || static_cast<std::size_t>(position) > array.size()) {
        out = FastScalarValue::nil();
        return true;
    }
    return tryFastScalarFromVariable(array[static_cast<std::size_t>(position) - 1], out);
}

/// `target op value` in place, for op one of + - * / \ %. False, with nothing changed, if the kinds
/// or the operator are others. The kind of `target` is written before its content is converted, so
/// that a mix of kinds fails with "bad_variant_access" and leaves the new kind behind; kept.
[[nodiscard]] bool tryApplyFastScalarOperationInPlace(Variable& target, char op,
                                                      const FastScalarValue& value);
