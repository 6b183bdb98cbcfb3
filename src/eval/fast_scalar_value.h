// The value of the scalar tier: a number, a truth value or nil, with nothing to allocate or free.
#pragma once

#include <cstdint>

#include "value/array_storage.h"
#include "value/variable.h"

enum class ScalarKind : std::uint32_t {
    Unset = 0,
    Nil = 1,
    Int = 2,
    Float = 3,
    Bool = 4,
};

/// Two words without a constructor, so that it travels in registers: write `FastScalarValue{}` for
/// an unset one. A tier that declines gives an unset value.
struct FastScalarValue {
    ScalarKind kind;
    union {
        int intValue;      // when `kind` is Int; when it is Bool, 0 or 1
        float floatValue;  // when `kind` is Float
    };

    [[gnu::always_inline]] static FastScalarValue nil() {
        FastScalarValue value{};
        value.kind = ScalarKind::Nil;
        return value;
    }
    [[gnu::always_inline]] static FastScalarValue fromInt(int number) {
        FastScalarValue value{};
        value.kind = ScalarKind::Int;
        value.intValue = number;
        return value;
    }
    [[gnu::always_inline]] static FastScalarValue fromFloat(float number) {
        FastScalarValue value{};
        value.kind = ScalarKind::Float;
        value.floatValue = number;
        return value;
    }
    [[gnu::always_inline]] static FastScalarValue fromBool(bool truth) {
        FastScalarValue value{};
        value.kind = ScalarKind::Bool;
        value.intValue = truth ? 1 : 0;
        return value;
    }

    /// When `kind` is Bool.
    [[nodiscard]] bool truth() const { return intValue != 0; }
    [[nodiscard]] bool isSet() const { return kind != ScalarKind::Unset; }
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
[[nodiscard, gnu::always_inline]] inline bool isScalarTruthy(const FastScalarValue& value) {
    if (value.kind == ScalarKind::Bool || value.kind == ScalarKind::Int) return value.intValue != 0;
    return value.kind == ScalarKind::Float && value.floatValue != 0.0F;
}

/// Nil, Int, Float and Bool as a scalar; unset for every other kind.
[[nodiscard, gnu::always_inline]] inline FastScalarValue scalarFromVariable(const Variable& value) {
    if (value.type == VarType::Int) return FastScalarValue::fromInt(value.asInt());
    if (value.type == VarType::Float) return FastScalarValue::fromFloat(value.asFloat());
    if (value.type == VarType::Bool) return FastScalarValue::fromBool(value.asBool());
    return value.type == VarType::Nil ? FastScalarValue::nil() : FastScalarValue{};
}

/// The same, but unset also for a variable whose kind and content disagree. Nothing raises here:
/// what such a variable comes to is for the caller's next tier to say.
[[nodiscard, gnu::always_inline]] inline FastScalarValue soundScalar(const Variable& value) {
    const Alternative content = value.alternative();
    if (value.type == VarType::Int && content == Alternative::Int) {
        return FastScalarValue::fromInt(value.asInt());
    }
    if (value.type == VarType::Float && content == Alternative::Float) {
        return FastScalarValue::fromFloat(value.asFloat());
    }
    if (value.type == VarType::Bool && content == Alternative::Bool) {
        return FastScalarValue::fromBool(value.asBool());
    }
    return value.type == VarType::Nil ? FastScalarValue::nil() : FastScalarValue{};
}

/// The same as a test: false for every other kind.
[[nodiscard]] inline bool tryFastScalarFromVariable(const Variable& value, FastScalarValue& out) {
    out = scalarFromVariable(value);
    return out.isSet();
}

/// The value as a Variable; an unset value gives nil.
[[nodiscard]] Variable variableFromFastScalar(const FastScalarValue& value);

/// Overwrites kind and content of `target`.
[[gnu::always_inline]] inline void assignFastScalarToVariable(Variable& target,
                                                              const FastScalarValue& value) {
    if (value.kind == ScalarKind::Int) {
        target.setInt(value.intValue);
    } else if (value.kind == ScalarKind::Float) {
        target.setFloat(value.floatValue);
    } else if (value.kind == ScalarKind::Bool) {
        target.setBool(value.truth());
    } else {
        target.setNil();
    }
}

/// The element at the 1-based `position` as a scalar; nil outside the array, unset for an element
/// of another kind.
[[nodiscard]] inline FastScalarValue scalarFromElement(const ArrayStorage& array, int position) {
    const auto index = static_cast<std::size_t>(static_cast<std::int64_t>(position) - 1);
    return index < array.size() ? scalarFromVariable(array[index]) : FastScalarValue::nil();
}

/// The element of an array or table at `key`, as a scalar; a missing one is nil. False if the base,
/// the key or the element is of another kind.
[[nodiscard]] bool tryFastScalarFromIndexedValue(const Variable& base, const Variable& key,
                                                 FastScalarValue& out);

/// `target op value` in place, for op one of + - * / \ %. False, with nothing changed, if the kinds
/// or the operator are others. The kind of `target` is written before its content is converted, so
/// that a mix of kinds fails with "bad_variant_access" and leaves the new kind behind; kept.
[[nodiscard]] bool tryApplyFastScalarOperationInPlace(Variable& target, char op,
                                                      const FastScalarValue& value);
