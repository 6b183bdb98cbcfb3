// What a call that runs in a frame holds while it runs, released on every way out.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "interpreter/dovrel_script.h"
#include "value/stack_end.h"

/// One more active call.
class CallDepthGuard {
public:
    explicit CallDepthGuard(DovrelScript& interpreter) : depth_(interpreter.callDepth) {
#ifdef DOVREL_EMBEDDED
        if (interpreter.watch.isTooDeep(depth_ + 1)) interpreter.stop(StopReason::Recursion);
        requireHostStack();
#endif
        ++depth_;
    }
    ~CallDepthGuard() { --depth_; }
    CallDepthGuard(const CallDepthGuard&) = delete;
    CallDepthGuard& operator=(const CallDepthGuard&) = delete;

private:
    std::uint64_t& depth_;
};

/// The callable, the scope of its frame, and the directory and name of its script.
class FrameCall {
public:
    FrameCall(DovrelScript& interpreter, Shared<ScriptCallable> callable)
        : FrameCall(std::move(callable), interpreter) {
        Scope& scope = interpreter.frameScopes.push(callable_->parameters.size());
        hasScope_ = true;
        for (const Name name : callable_->parameters) scope.append(name);
        hasBaseDirectory_ = push(interpreter.baseDirectoryStack, callable_->baseDirectory);
        hasScriptName_ = push(interpreter.scriptNameStack, callable_->scriptName);
    }
    ~FrameCall() {
        if (hasScriptName_) interpreter_.scriptNameStack.pop_back();
        if (hasBaseDirectory_) interpreter_.baseDirectoryStack.pop_back();
        if (hasScope_) interpreter_.frameScopes.pop();
        // The record of the current line outlives the call.
        interpreter_.retireCallable(std::move(callable_), lineAtEntry_);
    }
    FrameCall(const FrameCall&) = delete;
    FrameCall& operator=(const FrameCall&) = delete;

    [[nodiscard]] const ScriptCallable& callable() const { return *callable_; }
    /// Its first entries are the parameters, nil at first.
    [[nodiscard]] Scope& scope() { return interpreter_.frameScopes.back(); }

private:
    /// An empty text says nothing, and in a recursion the text is there already.
    static bool push(std::vector<const std::string*>& stack, const std::string& text) {
        if (text.empty() || (!stack.empty() && stack.back() == &text)) return false;
        stack.push_back(&text);
        return true;
    }
    /// Holds nothing but the callable yet. What comes after it is released even if it fails.
    FrameCall(Shared<ScriptCallable>&& callable, DovrelScript& interpreter)
        : interpreter_(interpreter),
          callable_(std::move(callable)),
          lineAtEntry_(interpreter.currentLine) {}

    DovrelScript& interpreter_;
    Shared<ScriptCallable> callable_;
    const std::string* lineAtEntry_;
    // What has been pushed.
    bool hasScope_ = false;
    bool hasBaseDirectory_ = false;
    bool hasScriptName_ = false;
};
