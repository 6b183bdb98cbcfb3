// How often each line and each function of an observed run has run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "dovrel/call_chain.h"

/// Counts statements by line: each that begins, a condition each time that it is tested, the header
/// of a `for` once. A line with several statements has their sum. Of a function its calls are
/// counted, and of a coroutine its turns. A call that is made again, since the scalar tier has
/// declined its result, counts once.
class RunCounts : public CallChain {
public:
    using CallChain::CallChain;

    void statementBegins(const ParsedScriptLine& line) override;
    void callBegins(const ScriptCallable& callable, Arguments args) override;
    void callEnds(CallEnd end) noexcept override;
    void turnBegins(const CoroutineState& coroutine) override;

    /// `line` is 1-based.
    [[nodiscard]] std::uint64_t countOf(const ObservedScript& script, std::size_t line) const;
    /// Calls or turns; 0 for statements outside of functions.
    [[nodiscard]] std::uint64_t callsOf(const ObservedFunction& function) const;

private:
    std::uint64_t& lineCount(const ObservedScript& script, std::size_t line);
    std::uint64_t& callCount(const ObservedFunction& function);

    std::vector<std::vector<std::uint64_t>> lines_;  // by script, by line
    std::vector<std::uint64_t> calls_;               // by function
    // Lines of the short functions under way, whose calls may turn out to be made again.
    std::vector<std::size_t> shortLines_;
    std::vector<std::size_t> shortStarts_;  // by short function under way
};

/// The element `index`, of a vector that grows to have it.
template <typename Value>
Value& grownTo(std::vector<Value>& values, std::size_t index) {
    if (index >= values.size()) values.resize(index + 1);
    return values[index];
}
