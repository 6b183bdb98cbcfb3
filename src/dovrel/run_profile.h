// Where the time of an observed run goes: by line, by function, and by who has called whom.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "dovrel/run_counts.h"

/// A function as called from one chain of functions.
struct ProfileNode {
    const ObservedFunction* function = nullptr;  // null for the root
    std::uint64_t calls = 0;
    std::int64_t ownTime = 0;  // nanoseconds, as all times here
    std::unordered_map<const ObservedFunction*, ProfileNode*> callees;
    ProfileNode* caller = nullptr;
};

/// All time from the first event to the last one is somebody's own: that of the line whose
/// statement began last in the innermost call, and of the function and the chain that it stands in.
/// What the profile itself takes is left out. A coroutine's turns stand below the root, since
/// nobody calls them.
class RunProfile : public RunCounts {
public:
    RunProfile(DovrelScript& interpreter, std::string mainName);

    void programBegins(const BytecodeProgram& program) override;
    void programEnds() noexcept override;
    void statementBegins(const ParsedScriptLine& line) override;
    void iterationBegins(const ParsedScriptLine& header, const Scope& variables) override;
    void callBegins(const ScriptCallable& callable, Arguments args) override;
    void callEnds(CallEnd end) noexcept override;
    void turnBegins(const CoroutineState& coroutine) override;
    void turnEnds() noexcept override;

    /// The time of the statements of a line alone; 1-based.
    [[nodiscard]] std::int64_t timeOf(const ObservedScript& script, std::size_t line) const;
    [[nodiscard]] std::int64_t ownTimeOf(const ObservedFunction& function) const;
    /// With what it has called; of a recursion, from the outermost call on.
    [[nodiscard]] std::int64_t totalTimeOf(const ObservedFunction& function) const;
    [[nodiscard]] std::int64_t totalTime() const { return total_; }
    [[nodiscard]] const ProfileNode& root() const { return nodes_.front(); }

private:
    using Clock = std::chrono::steady_clock;

    struct FunctionTime {
        std::int64_t own = 0;
        std::int64_t total = 0;
        std::size_t active = 0;      // its calls under way
        std::int64_t enteredAt = 0;  // the time of the run when the outermost one began
    };

    void charge();
    void resume() { last_ = Clock::now(); }
    void enter(ProfileNode& caller);
    void leave();

    std::vector<std::vector<std::int64_t>> lineTimes_;  // by script, by line
    std::vector<FunctionTime> functionTimes_;           // by function
    std::deque<ProfileNode> nodes_;
    std::vector<ProfileNode*> chain_;  // the nodes of the frames
    Clock::time_point last_;
    std::int64_t total_ = 0;
};
