// Values as the machine's loop sees them: the kinds that its instructions serve at once.
#pragma once

#include "value/arithmetic.h"
#include "value/variable.h"

[[gnu::always_inline]] inline bool isIntValue(const Variable& value) {
    return value.type == VarType::Int && value.value.alternative() == Alternative::Int;
}
[[gnu::always_inline]] inline bool isFloatValue(const Variable& value) {
    return value.type == VarType::Float && value.value.alternative() == Alternative::Float;
}
[[gnu::always_inline]] inline bool isBoolValue(const Variable& value) {
    return value.type == VarType::Bool && value.value.alternative() == Alternative::Bool;
}
[[gnu::always_inline]] inline bool isTextValue(const Variable& value) {
    return value.type == VarType::String && value.value.alternative() == Alternative::String;
}
[[gnu::always_inline]] inline bool areInts(const Variable& a, const Variable& b) {
    return isIntValue(a) && isIntValue(b);
}
[[gnu::always_inline]] inline bool areFloats(const Variable& a, const Variable& b) {
    return isFloatValue(a) && isFloatValue(b);
}
