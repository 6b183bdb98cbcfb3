// Block scopes that the loop has put off: they are opened for whoever looks.
#include <algorithm>

#include "exec/machine.h"

/// Opens the blocks of all activations, from the outermost on that may have any to open.
void Machine::openBlocks() {
    if (activations_.empty()) return;
    ScopeStack& scopes = interpreter_.blockScopes.open();
    std::size_t outermost = 0;
    while (outermost + 1 < activations_.size() && !activations_.around(outermost).isAmongOpen) {
        ++outermost;
    }
    std::uint32_t opened = 0;
    for (std::size_t distance = outermost + 1; distance-- > 0;) {
        Activation& running = activations_.around(distance);
        // What has been put off around it was not counted at its entry.
        running.blocks += opened;
        running.isAmongOpen = true;
        opened += openBlocksOf(running, scopes);
    }
    interpreter_.blockScopes.forget(opened);
    counts.blocksOpened += opened;
}

/// How many it has opened.
std::uint32_t Machine::openBlocksOf(Activation& running, ScopeStack& scopes) {
    const std::vector<BlockState>& known = running.code->blockStates;
    const std::size_t levels = known[running.blockState].level;
    // A turn of a coroutine has scopes of its own, and nothing has changed around it.
    if (running.blockState == running.openState && running.openBlocks == levels) return 0;
    std::array<const BlockState*, kMostNestedBlocks + 1> states{};
    std::size_t level = levels;
    for (std::uint16_t state = running.blockState; level > 0; state = known[state].outer) {
        states[--level] = &known[state];
    }
    std::uint32_t opened = 0;
    for (; level < levels; ++level) {
        const BlockState& state = *states[level];
        const ScopeWindow& window = running.code->windows[state.window];
        if (level >= running.openBlocks) {
            scopes.pushWindow().openWindow(window.names.data(), running.base + window.first, 0,
                                           static_cast<std::uint32_t>(window.names.size()));
            ++running.openBlocks;
            ++opened;
        }
        Scope& scope = scopes[running.blocks + level];
        while (scope.size() < state.declared) scope.declareNext();
    }
    running.openState = running.blockState;
    return opened;
}

void Machine::closeBlock(Activation& running, std::uint16_t state) {
    if (running.openBlocks <= running.code->blockStates[state].level) {
        interpreter_.blockScopes.forget(1);
        return;
    }
    interpreter_.blockScopes.open().pop();
    --running.openBlocks;
    // Those around it are as they were when it was opened.
    running.openState = state;
}

/// A name that scopes have, or blocks that have been put off may have.
bool Machine::isHidden(Name name) {
    if (name->isCounted() || interpreter_.isInUncountedFrame(name)) return true;
    if (!interpreter_.blockScopes.isPutOff()) return false;
    constexpr std::size_t kMostLookedAt = 8;
    for (std::size_t distance = 0; distance < activations_.size(); ++distance) {
        if (distance >= kMostLookedAt) return !interpreter_.isInNoScope(name);
        const Activation& running = activations_.around(distance);
        const std::vector<BlockState>& known = running.code->blockStates;
        for (std::uint16_t at = running.blockState; at != 0; at = known[at].outer) {
            const BlockState& state = known[at];
            const Name* const names = running.code->windows[state.window].names.data();
            if (std::find(names, names + state.declared, name) != names + state.declared) {
                return true;
            }
        }
        if (running.isAmongOpen) return false;
    }
    return false;
}
