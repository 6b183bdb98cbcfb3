// Functions that are called from hot code and are hot code themselves. They run in the loop over
// instructions that runs their caller, so that a call costs no frame of the host's stack.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "eval/exhaustion.h"
#include "eval/frame_call.h"
#include "exec/hot_run.h"
#include "value/stack_end.h"

/// One such function while it runs.
struct HotFrame {
    HotFrame(DovrelScript& interpreter, const Shared<ScriptCallable>& callable, const HotCode& code,
             ChunkRun::HotRun& caller)
        : depth(interpreter.callDepth),
          call(interpreter, callable),
          run(interpreter, call.callable().program, 0),
          hot(run, code, signal, &caller) {}

    CallDepthGuard depth;
    FrameCall call;
    BlockSignal signal = BlockSignal::None;
    ChunkRun run;
    ChunkRun::HotRun hot;
};

/// The stack of them. A frame never moves, and the storage of one that has ended is used again.
class HotFrames {
public:
    [[nodiscard]] std::size_t size() const { return count_; }
    /// An endless recursion goes on upon the host's stack, and ends there.
    [[nodiscard]] bool isFull() const { return count_ == kMostFrames; }
    [[nodiscard]] HotFrame& back() { return **frames_[count_ - 1]; }

    template <typename... Parts>
    HotFrame& push(Parts&&... parts) {
        if (count_ == made_) grow();
        HotFrame& frame = frames_[count_]->emplace(std::forward<Parts>(parts)...);
        ++count_;
        return frame;
    }
    void pop() { frames_[--count_]->reset(); }
    void popTo(std::size_t count) {
        while (count_ > count) pop();
    }

private:
    static constexpr std::size_t kMostFrames = std::size_t{1} << 18;

    [[gnu::noinline]] void grow() {
        constexpr std::size_t kAskedEvery = 1024;
        if (made_ % kAskedEvery == 0 && made_ > 0 &&
            !memoryIsLeft(kAskedEvery * sizeof(HotFrame))) {
            endOfStack();
        }
        frames_.push_back(std::make_unique<std::optional<HotFrame>>());
        ++made_;
    }

    std::vector<std::unique_ptr<std::optional<HotFrame>>>
        frames_;  // the first `count_` are on the stack
    std::size_t count_ = 0;
    std::size_t made_ = 0;  // the size of `frames_`
};
