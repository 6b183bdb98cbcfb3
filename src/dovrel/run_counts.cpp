#include "dovrel/run_counts.h"

#include "frontend/parsed_script_line.h"

std::uint64_t& RunCounts::lineCount(const ObservedScript& script, std::size_t line) {
    return grownTo(grownTo(lines_, script.index), line);
}

std::uint64_t& RunCounts::callCount(const ObservedFunction& function) {
    return grownTo(calls_, function.index);
}

std::uint64_t RunCounts::countOf(const ObservedScript& script, std::size_t line) const {
    if (script.index >= lines_.size() || line >= lines_[script.index].size()) return 0;
    return lines_[script.index][line];
}

std::uint64_t RunCounts::callsOf(const ObservedFunction& function) const {
    return function.index < calls_.size() ? calls_[function.index] : 0;
}

void RunCounts::statementBegins(const ParsedScriptLine& line) {
    CallChain::statementBegins(line);
    if (frames().empty()) return;
    ++lineCount(*top().function->script, top().line);
    if (top().isShort) shortLines_.push_back(top().line);
}

void RunCounts::callBegins(const ScriptCallable& callable, Arguments args) {
    CallChain::callBegins(callable, args);
    ++callCount(*top().function);
    if (top().isShort) shortStarts_.push_back(shortLines_.size());
}

void RunCounts::callEnds(CallEnd end) noexcept {
    if (top().isShort) {
        const std::size_t start = shortStarts_.back();
        if (end == CallEnd::WillRepeat) {
            --callCount(*top().function);
            for (std::size_t i = start; i < shortLines_.size(); ++i) {
                --lineCount(*top().function->script, shortLines_[i]);
            }
        }
        shortLines_.resize(start);
        shortStarts_.pop_back();
    }
    CallChain::callEnds(end);
}

void RunCounts::turnBegins(const CoroutineState& coroutine) {
    CallChain::turnBegins(coroutine);
    ++callCount(*top().function);
}
