// Values as the machine's loop sees them: the kinds that its instructions serve at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "value/arithmetic.h"
#include "value/array_storage.h"
#include "value/table.h"
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
/// An array, a table or a function.
[[gnu::always_inline]] inline bool isReferenceValue(const Variable& value) {
    return isArrayValue(value) || isTableValue(value) || value.tag() == Variable::kFunctionTag;
}
[[gnu::always_inline]] inline bool areInts(const Variable& a, const Variable& b) {
    return isIntValue(a) && isIntValue(b);
}
[[gnu::always_inline]] inline bool areFloats(const Variable& a, const Variable& b) {
    return isFloatValue(a) && isFloatValue(b);
}
/// A number whose content is of another kind: a compound assignment has failed half-way.
[[gnu::always_inline]] inline bool isSpoiled(const Variable& value) {
    if (isIntValue(value) || isFloatValue(value)) return false;  // most values that are asked
    switch (value.type) {
        case VarType::Int: return value.alternative() != Alternative::Int;
        case VarType::Float: return value.alternative() != Alternative::Float;
        case VarType::Bool: return value.alternative() != Alternative::Bool;
        default: return false;
    }
}

/// Whether two texts are equal. Their ends tell most of those apart that have the same length.
[[gnu::always_inline]] inline bool isSameText(const Text& left, const Text& right) {
    if (left == right) return true;
    const std::string& a = left->text;
    const std::string& b = right->text;
    const std::size_t size = a.size();
    if (size != b.size()) return false;
    if (size == 0) return true;
    if (a[0] != b[0] || a[size - 1] != b[size - 1]) return false;
    return size <= 2 || std::memcmp(a.data(), b.data(), size) == 0;
}

/// `variable op= operand` for two numbers of a kind and the common operators; false, with nothing
/// done, for everything else.
[[gnu::always_inline]] inline bool updateNumber(Variable& variable, std::uint8_t operation,
                                                const Variable& operand) {
    if (areInts(variable, operand)) {
        const int left = variable.rawInt();
        const int right = operand.rawInt();
        switch (operation) {
            case '+': variable.overwriteInt(wrapAdd(left, right)); return true;
            case '-': variable.overwriteInt(wrapSubtract(left, right)); return true;
            case '*': variable.overwriteInt(wrapMultiply(left, right)); return true;
            default: return false;
        }
    }
    if (areFloats(variable, operand)) {
        const float left = variable.rawFloat();
        const float right = operand.rawFloat();
        switch (operation) {
            case '+': variable.overwriteFloat(left + right); return true;
            case '-': variable.overwriteFloat(left - right); return true;
            case '*': variable.overwriteFloat(left * right); return true;
            default: return false;
        }
    }
    return false;
}

/// The element that is there: of an array by its position, of a table by a text; null for all else.
[[gnu::always_inline]] inline Variable* elementAt(Variable& base, const Variable& key) {
    if (isArrayValue(base) && isIntValue(key)) {
        ArrayStorage& array = base.rawArray();
        const auto place = static_cast<std::size_t>(static_cast<std::int64_t>(key.rawInt()) - 1);
        return place < array.size() ? &array[place] : nullptr;
    }
    if (isTableValue(base) && isTextValue(key)) return base.rawTable().find(key.asText());
    return nullptr;
}

/// The same for reading, and by a position.
[[gnu::always_inline]] inline const Variable* elementThere(const Variable& base,
                                                           const Variable& key) {
    return elementAt(const_cast<Variable&>(base), key);
}
[[gnu::always_inline]] inline const Variable* elementThere(const Variable& base, int position) {
    if (!isArrayValue(base)) return nullptr;
    const ArrayStorage& array = base.rawArray();
    const auto place = static_cast<std::size_t>(static_cast<std::int64_t>(position) - 1);
    return place < array.size() ? &array[place] : nullptr;
}
