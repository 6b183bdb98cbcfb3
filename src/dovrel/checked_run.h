// A sanitizer for scripts: a run that tells what the language does in silence and is likely to be a
// mistake. The results are those of any other run.
#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "dovrel/run_counts.h"

/// What a checked run does with what it finds.
enum class CheckedMode {
    Off,    // there is none
    Tell,   // each place is told once
    Error,  // it is an error of the script, which `pcall` may catch
};

/// "off", "warn" or "error", and "" for "warn".
[[nodiscard]] CheckedMode checkedModeFrom(const std::string& word);

class CheckedRun : public RunCounts {
public:
    /// `tell` gets a place, a message and the line there, when a place is found for the first time.
    using Tell = std::function<void(const std::string& place, const std::string& message,
                                    const std::string& source)>;
    CheckedRun(DovrelScript& interpreter, std::string mainName, CheckedMode mode, Tell tell);

    void statementBegins(const ParsedScriptLine& line) override;
    void callBegins(const ScriptCallable& callable, Arguments args) override;
    void callEnds(CallEnd end) noexcept override;
    void turnBegins(const CoroutineState& coroutine) override;
    void turnEnds() noexcept override;
    void programBegins(const BytecodeProgram& program) override;
    void programEnds() noexcept override;

    void variableFound(const TokenAnalysis& token, const Variable* found, bool isWritten) override;
    void callEvaluated(const TokenAnalysis& place, const Variable& callee) override;
    void elementMissing(std::int64_t position, std::size_t count) override;
    void compoundChangedKind(const ParsedScriptLine& line, const std::string& name, VarType before,
                             const Variable& after) override;
    void numberAttemptBegins() override;
    void numberAttemptEnds(bool isAnswered) override;
    void zeroDropped(const TokenAnalysis& place) override;

private:
    /// What has happened in the statement that runs, by frame.
    struct Statement {
        std::vector<const TokenAnalysis*> calls;
    };
    /// Where a name is found by a search, and in which kind of place.
    struct Found {
        const Variable* value = nullptr;
        bool isBlock = false;
        std::size_t scope = 0;
    };

    void tell(const std::string& what, const std::string& message);
    [[nodiscard]] Found search(Name name, bool isWritten) const;
    [[nodiscard]] std::string nameOf(const Variable* value) const;
    void checkHidden(Name name, const Found& found);

    CheckedMode mode_;
    Tell tell_;
    std::set<std::tuple<std::size_t, std::size_t, std::string>> told_;  // script, line, what
    std::vector<Statement> statements_;                                 // by frame
    std::size_t droppedZeros_ = 0;                                      // in the attempts under way
    std::vector<std::size_t> attempts_;  // of each attempt, how many there were at its beginning
};
