// The first steps of a variable's look-up, inline for the evaluators. They return what
// resolveVariableFastPtr and resolveExistingVariableFastMutable return.
#pragma once

#include "interpreter/dovrel_script.h"

/// The nil that a read of a parameter without an argument yields. Nobody writes through it.
inline const Variable& nilValue() {
    static const Variable kNilValue;
    return kNilValue;
}

/// The element at the 1-based `position`, or the shared nil outside the array.
[[gnu::always_inline]] inline const Variable& elementOrNil(const ArrayStorage& array,
                                                           int position) {
    const auto index = static_cast<std::size_t>(static_cast<std::int64_t>(position) - 1);
    return index < array.size() ? array[index] : nilValue();
}

/// The entry of a cached scope: by address without looking at the name, else by name.
[[gnu::always_inline]] inline const Variable* cachedScopeEntry(const TokenAnalysis& token,
                                                               const Scope& scope) {
    if (token.slotIndex >= scope.size()) return nullptr;
    const ScopeEntry entry = scope[token.slotIndex];
    if (token.slotScope == &scope) return &entry.value;
    if (entry.name != token.name) return nullptr;
    token.slotScope = &scope;
    return &entry.value;
}

inline const Variable* DovrelScript::fastParameter(const TokenAnalysis& token) const {
    if (fastCallable == nullptr || frameScopes.size() != fastFrameBase ||
        token.slotIndex >= fastCallable->parameters.size()) {
        return nullptr;
    }
    return token.slotIndex < fastArgs.size() ? &fastArgs[token.slotIndex] : &nilValue();
}

[[gnu::always_inline]] inline Variable* DovrelScript::cachedVariable(const TokenAnalysis& token) {
    if (token.slotKind == SlotKind::Global) {
        if (frameScopes.size() == token.slotDepth && !blockScopeVisible()) {
            return token.globalValue;
        }
    } else if (token.slotKind == SlotKind::Frame) {
        if (token.slotDepth < frameScopes.size()) {
            // Found through a const scope, but the variables are ours.
            return const_cast<Variable*>(
                cachedScopeEntry(token, frameScopes.fromTop(token.slotDepth)));
        }
    }
    return nullptr;
}

/// For a token whose cache has a global or nothing.
inline Variable* DovrelScript::unhiddenGlobal(const TokenAnalysis& token) {
    if (token.globalValue == nullptr || fastCallable != nullptr || !isInNoScope(token.name)) {
        return nullptr;
    }
    if (!blockScopeVisible() && frameScopes.empty()) return nullptr;
    token.slotKind = blockScopeVisible() ? SlotKind::None : SlotKind::Global;
    if (!blockScopeVisible()) token.slotDepth = static_cast<std::uint16_t>(frameScopes.size());
    token.slotScope = nullptr;
    return token.globalValue;
}

inline const Variable* DovrelScript::readVariable(const TokenAnalysis& token) {
    if (valuesAreWatched) return lookUpVariable(token);
    if (const Variable* value = cachedVariable(token)) return value;
    if (token.slotKind == SlotKind::Parameter) {
        if (const Variable* value = fastParameter(token)) return value;
    }
    return readVariableSlowly(token);
}

inline Variable* DovrelScript::variableForWriting(const TokenAnalysis& token) {
    Variable* value = cachedVariable(token);
    if (value == nullptr) value = resolveExistingVariableFastMutable(token);
    observeFound(token, value, true);
    return value;
}
