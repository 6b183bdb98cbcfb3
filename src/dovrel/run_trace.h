// What a script does, line by line, as it does it; and at an error, who had called whom with what.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "dovrel/call_chain.h"
#include "dovrel/terminal.h"

/// What of a trace is wanted. Empty lists leave nothing out.
struct TraceFilter {
    struct Lines {
        std::string file;  // empty for any; else the end of the script's name
        std::size_t first = 0;
        std::size_t last = 0;
    };
    std::vector<std::string> functions;
    std::vector<Lines> lines;
    std::vector<std::string> variables;  // statements that assign one of these
    bool takesNothing = false;
};

class RunTrace : public CallChain {
public:
    /// Writes to `out` while the script runs.
    RunTrace(DovrelScript& interpreter, std::string mainName, const TraceFilter& filter,
             std::ostream& out, const Palette& palette);

    void programBegins(const BytecodeProgram& program) override;
    void statementBegins(const ParsedScriptLine& line) override;
    void iterationBegins(const ParsedScriptLine& header, const Scope& variables) override;
    void assigned(const ParsedScriptLine& line, const std::string& name,
                  std::span<const Variable> keys, const Variable& value) override;
    void callBegins(const ScriptCallable& callable, Arguments args) override;
    void callEnds(CallEnd end) noexcept override;
    void errorRaised(std::string_view message) noexcept override;

    /// Writes what is still held back.
    void flush();
    /// The chain of calls at the last error that no `pcall` was there to catch, innermost first,
    /// with the line and the variables of each.
    [[nodiscard]] const std::string& errorChain() const { return errorChain_; }

private:
    [[nodiscard]] bool wantsFunction(const ObservedFunction& function) const;
    [[nodiscard]] bool wantsPlace() const;
    [[nodiscard]] bool wantsVariable(const std::string& name) const;
    [[nodiscard]] std::string place() const;
    void write(const std::string& text);
    void writeNote(const std::string& note);
    [[nodiscard]] std::string describeChain() const;
    void describeFrame(std::size_t index, std::string& text) const;
    void describeGlobals(std::string& text) const;

    const TraceFilter& filter_;
    std::ostream& out_;
    const Palette& palette_;
    std::string held_;     // a statement whose assignments are still to come
    bool isHeld_ = false;  // there is one
    std::string noted_;    // its assignments
    std::size_t libraryGlobals_ = 0;
    std::string errorChain_;
};
