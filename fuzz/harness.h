// What the fuzz targets share: a fresh interpreter for each execution, with budgets for its steps
// and its memory, and with nothing in reach that touches the machine.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "interpreter/dovrel_script.h"

/// What a script has done.
struct Outcome {
    std::string printed;
    std::string error;         // the report or message that it ended in; empty if it ended well
    bool outOfBudget = false;  // it was cut short, so that it compares with nothing
};

/// Runs `work` on the host's large stack with a fresh interpreter. Files, pipes and clocks are gone
/// from its globals, `print` goes to the outcome, and the random numbers are the same in each run.
Outcome runInFreshInterpreter(const std::function<void(DovrelScript&)>& work);

/// Runs the lines of a script through the parsed-block executor, as if they were a function's body.
void runParsedLines(DovrelScript& interpreter, const std::string& source);

/// How much of two error reports must agree.
enum class Reports : std::uint8_t {
    Whole,        // all of it, if both are located; a bare message is compared with a message
    MessageOnly,  // the message and not the place: the executors differ in their near tokens
};

/// One way to run a script, for the report of a difference.
struct NamedOutcome {
    const char* name;
    Outcome outcome;
};

/// Writes `script` and both outcomes to standard error and aborts, if they differ although both
/// scripts stayed inside their budgets.
void requireSameOutcome(const std::string& script, const NamedOutcome& first,
                        const NamedOutcome& second, Reports reports);
