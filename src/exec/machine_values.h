// Values as the machine's loop sees them: the kinds that its instructions serve at once.
#pragma once

#include "value/arithmetic.h"
#include "value/variable.h"

[[gnu::always_inline]] inline bool isNilValue(const Variable& value) {
    return value.tag() == Variable::kNilTag;
}
[[gnu::always_inline]] inline bool isIntValue(const Variable& value) {
    return value.tag() == Variable::kIntTag;
}
[[gnu::always_inline]] inline bool isFloatValue(const Variable& value) {
    return value.tag() == Variable::kFloatTag;
}
[[gnu::always_inline]] inline bool isBoolValue(const Variable& value) {
    return value.tag() == Variable::kBoolTag;
}
[[gnu::always_inline]] inline bool isTextValue(const Variable& value) {
    return value.tag() == Variable::kStringTag;
}
[[gnu::always_inline]] inline bool isArrayValue(const Variable& value) {
    return value.tag() == Variable::kArrayTag;
}
[[gnu::always_inline]] inline bool isTableValue(const Variable& value) {
    return value.tag() == Variable::kTableTag;
}
[[gnu::always_inline]] inline bool areInts(const Variable& a, const Variable& b) {
    return isIntValue(a) && isIntValue(b);
}
[[gnu::always_inline]] inline bool areFloats(const Variable& a, const Variable& b) {
    return isFloatValue(a) && isFloatValue(b);
}
/// A number whose content is of another kind: a compound assignment has failed half-way.
[[gnu::always_inline]] inline bool isSpoiled(const Variable& value) {
    switch (value.type) {
        case VarType::Int: return value.alternative() != Alternative::Int;
        case VarType::Float: return value.alternative() != Alternative::Float;
        case VarType::Bool: return value.alternative() != Alternative::Bool;
        default: return false;
    }
}
