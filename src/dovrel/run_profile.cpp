#include "dovrel/run_profile.h"

#include <utility>

RunProfile::RunProfile(DovrelScript& interpreter, std::string mainName)
    : RunCounts(interpreter, std::move(mainName)) {
    nodes_.emplace_back();
}

/// The time since the last event belongs to what ran until now.
void RunProfile::charge() {
    if (frames().empty()) return;
    const std::int64_t passed =
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - last_).count();
    const Frame& frame = top();
    grownTo(grownTo(lineTimes_, frame.function->script->index), frame.line) += passed;
    grownTo(functionTimes_, frame.function->index).own += passed;
    chain_.back()->ownTime += passed;
    total_ += passed;
}

void RunProfile::enter(ProfileNode& caller) {
    const ObservedFunction* function = top().function;
    ProfileNode*& node = caller.callees[function];
    if (node == nullptr) {
        node = &nodes_.emplace_back();
        node->function = function;
        node->caller = &caller;
    }
    ++node->calls;
    chain_.push_back(node);
    FunctionTime& time = grownTo(functionTimes_, function->index);
    if (time.active++ == 0) time.enteredAt = total_;
}

void RunProfile::leave() {
    FunctionTime& time = functionTimes_[top().function->index];
    if (--time.active == 0) time.total += total_ - time.enteredAt;
    chain_.pop_back();
}

void RunProfile::programBegins(const BytecodeProgram& program) {
    charge();
    RunCounts::programBegins(program);
    enter(chain_.empty() ? nodes_.front() : *chain_.back());
    resume();
}

void RunProfile::programEnds() noexcept {
    charge();
    leave();
    RunCounts::programEnds();
    resume();
}

void RunProfile::statementBegins(const ParsedScriptLine& line) {
    charge();
    RunCounts::statementBegins(line);
    resume();
}

/// Between two turns of a loop its header runs.
void RunProfile::iterationBegins(const ParsedScriptLine& header, const Scope& /*variables*/) {
    charge();
    if (!frames().empty()) top().line = header.lineNumber + 1;
    resume();
}

void RunProfile::callBegins(const ScriptCallable& callable, Arguments args) {
    charge();
    RunCounts::callBegins(callable, args);
    enter(chain_.empty() ? nodes_.front() : *chain_.back());
    resume();
}

void RunProfile::callEnds(CallEnd end) noexcept {
    charge();
    if (end == CallEnd::WillRepeat) --chain_.back()->calls;
    leave();
    RunCounts::callEnds(end);
    resume();
}

void RunProfile::turnBegins(const CoroutineState& coroutine) {
    charge();
    RunCounts::turnBegins(coroutine);
    enter(nodes_.front());
    resume();
}

void RunProfile::turnEnds() noexcept {
    charge();
    leave();
    RunCounts::turnEnds();
    resume();
}

std::int64_t RunProfile::timeOf(const ObservedScript& script, std::size_t line) const {
    if (script.index >= lineTimes_.size() || line >= lineTimes_[script.index].size()) return 0;
    return lineTimes_[script.index][line];
}

std::int64_t RunProfile::ownTimeOf(const ObservedFunction& function) const {
    return function.index < functionTimes_.size() ? functionTimes_[function.index].own : 0;
}

std::int64_t RunProfile::totalTimeOf(const ObservedFunction& function) const {
    return function.index < functionTimes_.size() ? functionTimes_[function.index].total : 0;
}
