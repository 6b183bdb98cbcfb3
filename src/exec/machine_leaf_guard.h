// A function of one line while somebody else evaluates what is in it.
#pragma once

#include "exec/machine.h"

/// The innermost activation as a fast body, for whoever looks its parameters up by name.
class Machine::LeafGuard {
public:
    LeafGuard(Machine& machine, bool isLeaf)
        : interpreter_(machine.interpreter_),
          isLeaf_(isLeaf),
          callable_(interpreter_.fastCallable),
          args_(interpreter_.fastArgs),
          frameBase_(interpreter_.fastFrameBase) {
        if (!isLeaf) return;
        const Activation& running = machine.activations_.back();
        interpreter_.fastCallable = running.slot->asFunction().get();
        interpreter_.fastArgs = Arguments(running.base, running.code->parameterCount);
        interpreter_.fastFrameBase = interpreter_.frameScopes.size();
    }
    ~LeafGuard() {
        if (!isLeaf_) return;
        interpreter_.fastCallable = callable_;
        interpreter_.fastArgs = args_;
        interpreter_.fastFrameBase = frameBase_;
    }
    LeafGuard(const LeafGuard&) = delete;
    LeafGuard& operator=(const LeafGuard&) = delete;

private:
    DovrelScript& interpreter_;
    bool isLeaf_;
    const ScriptCallable* callable_;
    Arguments args_;
    std::size_t frameBase_;
};
