// The interpreter behind the prompt: inputs are run one after the other, and nothing that goes
// wrong in one ends it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/line_editor.h"
#include "interpreter/dovrel_script.h"

/// An input needs further lines: a bracket, a string or a block is open at its end.
[[nodiscard]] bool isUnfinished(const std::string& text);

/// The same input in one line, for the history; empty if it says nothing. Comments go.
[[nodiscard]] std::string inOneLine(const std::string& text);

/// What an input has come to.
struct PromptResult {
    bool isInterrupted = false;
    std::string report;             // of an error; empty if there was none
    std::optional<Variable> value;  // of the expression that stood last, if there is one to show
};

class PromptSession {
public:
    PromptSession();

    /// Runs an input. Ctrl-C ends it, and it alone.
    [[nodiscard]] PromptResult run(const std::string& text);
    /// The value of an expression.
    [[nodiscard]] PromptResult evaluate(const std::string& expression);
    /// Runs a file, which reports then name.
    [[nodiscard]] PromptResult runFile(const std::string& path);
    /// Forgets all variables.
    void reset();

    /// What Tab may make of a line that ends with `line`: names, words, keys, commands.
    [[nodiscard]] Completion complete(std::string_view line) const;
    /// The globals that the library has not made, in the order in which they came.
    [[nodiscard]] std::vector<std::string> ownGlobals() const;
    /// The global called `name`, or null.
    [[nodiscard]] const Variable* global(const std::string& name) const;

private:
    PromptResult runNamed(const std::string& text, const std::string& directory,
                          const std::string& name);

    std::unique_ptr<DovrelScript> interpreter_;
    std::size_t libraryGlobals_ = 0;
};

/// The commands of the prompt, with their colons.
[[nodiscard]] const std::vector<std::string>& promptCommands();
