// The four stores of variables: block scopes, parameters of the running fast callable, frame
// scopes, globals, searched in that order. Scoping is dynamic: nothing hides a caller's scopes.
//
// What the slot cache of a token relies on:
//   1. Slots of globals never move, so a cached global never goes stale.
//   2. A scope's address is compared and never dereferenced. A hit by address checks no name, so
//      another scope that stands at the same place passes; kept, no string is touched on that path.
//   3. A cached miss of the global map is never asked again by reads.
//   4. A cached parameter counts only while no frame is newer than the fast body.
//
// A search by name looks into the nearest scopes one by one. What is farther away is remembered
// (eval/far_searches.h), so that no search costs the depth of the recursion that it is made in.
#include <string>
#include <utility>

#include "eval/errors.h"
#include "eval/variable_access.h"
#include "interpreter/dovrel_script.h"

namespace {

void clearCache(const TokenAnalysis& token) {
    token.slotKind = SlotKind::None;
    token.slotScope = nullptr;
}

void cacheSlot(const TokenAnalysis& token, SlotKind kind, std::size_t depth, std::size_t index,
               const Scope* scope) {
    token.slotKind = kind;
    token.slotDepth = static_cast<std::uint16_t>(depth);
    token.slotIndex = static_cast<std::uint16_t>(index);
    token.slotScope = scope;
}

/// The cached entry of `token` in `scope`, or null with the cache cleared.
const Variable* validateCachedEntry(const TokenAnalysis& token, const Scope& scope) {
    if (token.slotScope == &scope && token.slotIndex < scope.size()) {
        return &scope[token.slotIndex].value;
    }
    if (const Variable* value = getCachedScopeValue(scope, token.name, token.slotIndex)) {
        token.slotScope = &scope;
        return value;
    }
    clearCache(token);
    return nullptr;
}

/// Searches scopes [floor, ceiling) of `scopes` from the top; a hit is cached as `kind`.
const Variable* searchScopes(const ScopeStack& scopes, std::size_t floor, std::size_t ceiling,
                             SlotKind kind, const TokenAnalysis& token) {
    if (!token.name->mayBeInScopes()) return nullptr;
    const EntryPlace place = scopes.find(token.name, floor, ceiling);
    if (!place.isFound()) return nullptr;
    const Scope& scope = scopes[place.scope];
    cacheSlot(token, kind, scopes.size() - 1 - place.scope, place.entry, &scope);
    return &scope[place.entry].value;
}

}  // namespace

void DovrelScript::pushVariable(const std::string& name, Variable value) {
    const auto [found, isNew] = globalSlots.try_emplace(name, globalValues.size());
    if (isNew) {
        globalValues.push_back(std::move(value));
        globalAssigned.push_back(true);
        countInFrames(name);
        return;
    }
    if (found->second >= globalValues.size()) {
        throwPlainError("Internal slot error while setting variable: " + name);
    }
    globalValues[found->second] = std::move(value);
    globalAssigned[found->second] = true;
}

void DovrelScript::countInFrames(const std::string& name) {
    const Name known = names.find(name);
    if (known == nullptr || !known->mayBeInFrames()) return;
    ++frameNamesVersion;
    // The scopes of another flow cannot be seen from here: the mark makes all look for the name.
    if (scheduledCoroutine != nullptr || inCoroutineTurn) return;
    frameScopes.countNames();
    known->unmarkForFrames();
}

Variable* DovrelScript::globalAt(std::size_t slot) {
    if (slot >= globalValues.size() || slot >= globalAssigned.size() || !globalAssigned[slot]) {
        return nullptr;
    }
    return &globalValues[slot];
}

std::size_t DovrelScript::findGlobalSlot(Name name) const {
    if (name->globalSlot == kNoGlobalSlot) {
        const auto found = globalSlots.find(name->text);
        if (found != globalSlots.end()) name->globalSlot = found->second;
    }
    return name->globalSlot;
}

void DovrelScript::consultGlobalCache(const TokenAnalysis& token) {
    if (token.globalSlotChecked) return;
    token.globalSlotChecked = true;
    const std::size_t slot = findGlobalSlot(token.name);
    if (slot != kNoGlobalSlot) cacheGlobal(token, slot);
}

void DovrelScript::cacheGlobal(const TokenAnalysis& token, std::size_t slot) {
    token.globalSlotChecked = true;
    token.globalSlotFound = true;
    token.globalSlot = static_cast<std::uint32_t>(slot);
    token.globalValue = globalAt(slot);
}

Variable* DovrelScript::findInScopes(Name name) {
    if (isInNoScope(name)) return nullptr;
    const EntryPlace inBlocks = blockScopes.all().find(name, blockScopeFloor, blockScopes.size());
    if (inBlocks.isFound()) return &blockScopes[inBlocks.scope][inBlocks.entry].value;
    const EntryPlace inFrames = frameScopes.find(name, 0, frameScopes.size());
    if (inFrames.isFound()) return &frameScopes[inFrames.scope][inFrames.entry].value;
    return nullptr;
}

Variable* DovrelScript::resolveVariablePtr(Name name) {
    if (Variable* value = findInScopes(name)) return value;
    const std::size_t slot = findGlobalSlot(name);
    return slot == kNoGlobalSlot ? nullptr : globalAt(slot);
}

const Variable* DovrelScript::readVariableSlowly(const TokenAnalysis& token) {
    if (token.slotKind == SlotKind::Global || token.slotKind == SlotKind::None) {
        if (const Variable* value = unhiddenGlobal(token)) return value;
    }
    return resolveVariableFastPtr(token);
}

const Variable* DovrelScript::resolveVariableFastPtr(const TokenAnalysis& token) {
    if (token.slotKind == SlotKind::Global && !blockScopeVisible() &&
        frameScopes.size() == token.slotDepth && token.globalSlotFound) {
        return globalAt(token.globalSlot);
    }
    if (!blockScopeVisible() && frameScopes.empty() && fastCallable == nullptr) {
        consultGlobalCache(token);
        if (!token.globalSlotFound) return nullptr;
        if (token.slotKind == SlotKind::None) {
            cacheSlot(token, SlotKind::Global, 0, token.slotIndex, nullptr);
        }
        return globalAt(token.globalSlot);
    }
    switch (token.slotKind) {
        case SlotKind::None: return searchVariable(token);
        case SlotKind::Parameter:
            if (const Variable* value = fastParameter(token)) return value;
            clearCache(token);
            break;
        case SlotKind::Frame:
            if (token.slotDepth < frameScopes.size()) {
                const Scope& scope = frameScopes.fromTop(token.slotDepth);
                if (const Variable* value = validateCachedEntry(token, scope)) return value;
            } else {
                clearCache(token);
            }
            break;
        case SlotKind::Block:
            if (token.slotDepth < blockScopes.size() - blockScopeFloor) {
                const Scope& scope = blockScopes.fromTop(token.slotDepth);
                if (const Variable* value = validateCachedEntry(token, scope)) return value;
            } else {
                clearCache(token);
            }
            break;
        case SlotKind::Global: clearCache(token); break;
    }
    return searchVariable(token);
}

const Variable* DovrelScript::searchVariable(const TokenAnalysis& token) {
    if (const Variable* value = searchScopes(blockScopes.all(), blockScopeFloor, blockScopes.size(),
                                             SlotKind::Block, token)) {
        return value;
    }
    // Frames that the running fast body has pushed by its calls come before its parameters.
    const std::size_t base = fastCallable != nullptr ? fastFrameBase : 0;
    if (const Variable* value =
            searchScopes(frameScopes, base, frameScopes.size(), SlotKind::Frame, token)) {
        return value;
    }
    if (fastCallable != nullptr) {
        const auto& parameters = fastCallable->parameters;
        for (std::size_t i = 0; i < parameters.size(); ++i) {
            if (parameters[i] != token.name) continue;
            if (frameScopes.size() == fastFrameBase) {
                cacheSlot(token, SlotKind::Parameter, 0, i, nullptr);
            }
            return i < fastArgs.size() ? &fastArgs[i] : &nilValue();
        }
        if (const Variable* value = searchScopes(frameScopes, 0, base, SlotKind::Frame, token)) {
            return value;
        }
    }
    consultGlobalCache(token);
    const Variable* value = token.globalSlotFound ? globalAt(token.globalSlot) : nullptr;
    if (value != nullptr && !blockScopeVisible()) {
        cacheSlot(token, SlotKind::Global, frameScopes.size(), token.slotIndex, nullptr);
    }
    return value;
}

Variable* DovrelScript::resolveExistingVariable(Name name) {
    if (Variable* value = findInScopes(name)) return value;
    const std::size_t slot = findGlobalSlot(name);
    return slot == kNoGlobalSlot ? nullptr : assignableGlobal(slot, name->text);
}

Variable* DovrelScript::assignableGlobal(std::size_t slot, const std::string& name) {
    if (slot >= globalValues.size() || slot >= globalAssigned.size()) {
        throwPlainError("Internal slot error while assigning variable: " + name);
    }
    return &globalValues[slot];
}

Variable* DovrelScript::resolveExistingVariableFastMutable(const TokenAnalysis& token) {
    // Among blocks no cache leads to a global, but one that the token has met and that nothing
    // hides is what the search below would find.
    if (token.slotKind == SlotKind::None && token.globalSlotFound &&
        token.globalSlot == token.name->globalSlot && blockScopeVisible() &&
        token.globalValue != nullptr && isInNoScope(token.name)) {
        return token.globalValue;
    }
    if (token.slotKind == SlotKind::Global) {
        if (!blockScopeVisible() && frameScopes.size() == token.slotDepth &&
            token.globalSlotFound) {
            return assignableGlobal(token.globalSlot, token.name->text);
        }
        if (blockScopeVisible() || !frameScopes.empty() || fastCallable != nullptr) {
            clearCache(token);
        }
    }
    if (!blockScopeVisible() && frameScopes.empty() && fastCallable == nullptr) {
        // Only here, where no local can exist, does a cached miss stand for a write.
        consultGlobalCache(token);
        if (!token.globalSlotFound) return nullptr;
        if (token.slotKind == SlotKind::None) {
            cacheSlot(token, SlotKind::Global, 0, token.slotIndex, nullptr);
        }
        return assignableGlobal(token.globalSlot, token.name->text);
    }
    const Variable* value = nullptr;
    if (token.slotKind == SlotKind::Frame) {
        if (token.slotDepth < frameScopes.size()) {
            value = validateCachedEntry(token, frameScopes.fromTop(token.slotDepth));
        } else {
            clearCache(token);
        }
    } else if (token.slotKind == SlotKind::Block) {
        if (token.slotDepth < blockScopes.size() - blockScopeFloor) {
            value = validateCachedEntry(token, blockScopes.fromTop(token.slotDepth));
        } else {
            clearCache(token);
        }
    }
    if (value == nullptr) {
        value = searchScopes(blockScopes.all(), blockScopeFloor, blockScopes.size(),
                             SlotKind::Block, token);
    }
    if (value == nullptr) {
        value = searchScopes(frameScopes, 0, frameScopes.size(), SlotKind::Frame, token);
    }
    if (value != nullptr) return const_cast<Variable*>(value);

    const std::size_t slot = findGlobalSlot(token.name);
    if (slot == kNoGlobalSlot) return nullptr;
    cacheGlobal(token, slot);
    Variable* global = assignableGlobal(slot, token.name->text);
    if (!blockScopeVisible()) {
        cacheSlot(token, SlotKind::Global, frameScopes.size(), token.slotIndex, nullptr);
    }
    return global;
}

void DovrelScript::assignVariable(Name name, const Variable& value, ScopeTarget target) {
    switch (target) {
        case ScopeTarget::Native:
            // Outside every call the frame is made on demand, and stays.
            if (frameScopes.empty()) frameScopes.push(4);
            frameScopes.back().set(name, value);
            return;
        case ScopeTarget::Local:
            // Lives until an enclosing guard pops down to its saved count, or for good.
            if (!blockScopeVisible()) pushBlockScope();
            blockScopes.back().set(name, value);
            return;
        case ScopeTarget::Default: break;
    }
    if (Variable* existing = resolveExistingVariable(name)) {
        *existing = value;
    } else {
        pushVariable(name->text, value);
    }
}

void DovrelScript::assignVariableFast(const TokenAnalysis& token, const Variable& value,
                                      ScopeTarget target) {
    if (target != ScopeTarget::Default) {
        assignVariable(token.name, value, target);
    } else if (Variable* existing = resolveExistingVariableFastMutable(token)) {
        observeFound(token, existing, true);
        *existing = value;
    } else {
        createGlobal(token, value);
    }
}

void DovrelScript::createGlobal(const TokenAnalysis& token, Variable value) {
    pushVariable(token.name->text, std::move(value));
    // Kept: if this position had cached a miss although the global exists, the cache is left on
    // the newest global, whichever that is.
    cacheGlobal(token, globalValues.size() - 1);
}
