// The first steps of a variable's look-up, inline for the evaluators. They return what
// resolveVariableFastPtr and resolveExistingVariableFastMutable return.
#pragma once

#include "interpreter/dovrel_script.h"

/// The nil that a read of a parameter without an argument yields. Nobody writes through it.
inline const Variable& nilValue() {
    static const Variable kNilValue;
    return kNilValue;
}

inline const Variable* DovrelScript::fastParameter(const TokenAnalysis& token) const {
    if (fastCallable == nullptr || frameScopes.size() != fastFrameBase ||
        token.slotIndex >= fastCallable->parameters.size()) {
        return nullptr;
    }
    return token.slotIndex < fastArgs.size() ? &fastArgs[token.slotIndex] : &nilValue();
}

/// The entry of a cached scope: by address without looking at the name, else by name.
inline const Variable* cachedScopeEntry(const TokenAnalysis& token, const Scope& scope) {
    if (token.slotIndex >= scope.size()) return nullptr;
    const ScopeEntry& entry = scope[token.slotIndex];
    if (token.slotScope == &scope) return &entry.value;
    if (entry.name != token.name) return nullptr;
    token.slotScope = &scope;
    return &entry.value;
}

/// A global that is known to this token, where nothing can hide it.
inline const Variable* DovrelScript::cachedGlobal(const TokenAnalysis& token) {
    if (!token.globalSlotFound || token.globalSlot >= globalValues.size()) return nullptr;
    if (blockScopeVisible()) return nullptr;
    const bool noLocals = frameScopes.empty() && fastCallable == nullptr;
    if (!noLocals && frameScopes.size() != token.slotDepth) {
        // What a search would find and cache, without the search: no scope has the name.
        if (fastCallable != nullptr || token.name->scopeEntries != 0) return nullptr;
        token.slotKind = SlotKind::Global;
        token.slotDepth = static_cast<std::uint16_t>(frameScopes.size());
    } else if (!noLocals && token.slotKind == SlotKind::None) {
        return nullptr;
    }
    return &globalValues[token.globalSlot];
}

inline const Variable* DovrelScript::readVariable(const TokenAnalysis& token) {
    switch (token.slotKind) {
        case SlotKind::Frame:
            if (token.slotDepth < frameScopes.size()) {
                const Scope& scope = frameScopes.fromTop(token.slotDepth);
                if (const Variable* value = cachedScopeEntry(token, scope)) return value;
            }
            break;
        case SlotKind::Block:
            if (token.slotDepth < blockScopes.size() - blockScopeFloor) {
                const Scope& scope = blockScopes.fromTop(token.slotDepth);
                if (const Variable* value = cachedScopeEntry(token, scope)) return value;
            }
            break;
        case SlotKind::Parameter:
            if (const Variable* value = fastParameter(token)) return value;
            break;
        case SlotKind::Global:
        case SlotKind::None:
            if (const Variable* value = cachedGlobal(token)) return value;
            break;
    }
    return resolveVariableFastPtr(token);
}

inline Variable* DovrelScript::variableForWriting(const TokenAnalysis& token) {
    const Variable* cached = nullptr;
    switch (token.slotKind) {
        case SlotKind::Frame:
            if (token.slotDepth < frameScopes.size()) {
                cached = cachedScopeEntry(token, frameScopes.fromTop(token.slotDepth));
            }
            break;
        case SlotKind::Block:
            if (token.slotDepth < blockScopes.size() - blockScopeFloor) {
                cached = cachedScopeEntry(token, blockScopes.fromTop(token.slotDepth));
            }
            break;
        case SlotKind::Global:
        case SlotKind::None: {
            if (!token.globalSlotFound || token.globalSlot >= globalValues.size()) break;
            if (blockScopeVisible()) break;
            const bool noLocals = frameScopes.empty() && fastCallable == nullptr;
            if (noLocals ||
                (token.slotKind == SlotKind::Global && frameScopes.size() == token.slotDepth)) {
                return &globalValues[token.globalSlot];
            }
            break;
        }
        case SlotKind::Parameter: break;
    }
    // Found through a const scope, but the variables are ours.
    return cached != nullptr ? const_cast<Variable*>(cached)
                             : resolveExistingVariableFastMutable(token);
}
