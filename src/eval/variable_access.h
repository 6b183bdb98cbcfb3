// The first steps of a variable read, inline for the evaluators. They return what
// resolveVariableFastPtr returns, but leave the cache alone on a miss.
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

inline const Variable* DovrelScript::readVariable(const TokenAnalysis& token) {
    switch (token.slotKind) {
        case SlotKind::Global:
            if (!blockScopeVisible() && frameScopes.size() == token.slotDepth &&
                token.globalSlotFound && token.globalSlot < globalValues.size()) {
                return &globalValues[token.globalSlot];
            }
            break;
        case SlotKind::Parameter:
            if (const Variable* value = fastParameter(token)) return value;
            break;
        case SlotKind::Frame:
            if (token.slotDepth < frameScopes.size()) {
                const Scope& scope = frameScopes[frameScopes.size() - 1 - token.slotDepth];
                if (token.slotScope == &scope && token.slotIndex < scope.size()) {
                    return &scope[token.slotIndex].value;
                }
            }
            break;
        case SlotKind::Block:
            if (token.slotDepth < blockScopes.size() - blockScopeFloor) {
                const Scope& scope = blockScopes[blockScopes.size() - 1 - token.slotDepth];
                if (token.slotScope == &scope && token.slotIndex < scope.size()) {
                    return &scope[token.slotIndex].value;
                }
            }
            break;
        case SlotKind::None:
            if (token.globalSlotFound && !blockScopeVisible() && frameScopes.empty() &&
                fastCallable == nullptr && token.globalSlot < globalValues.size()) {
                return &globalValues[token.globalSlot];
            }
            break;
    }
    return resolveVariableFastPtr(token);
}
