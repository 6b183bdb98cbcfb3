#include "harness.h"

#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "eval/errors.h"
#include "host/large_stack.h"
#include "memory_budget.h"

namespace {

constexpr std::size_t kMostPrinted = std::size_t{1} << 20;
constexpr std::uint64_t kStepsOfOneExecution = 20000;

std::string* printedText = nullptr;

Variable printIntoOutcome(DovrelScript&, Arguments args) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (i > 0) *printedText += ' ';
        *printedText += args[i].toString();
    }
    *printedText += '\n';
    if (printedText->size() > kMostPrinted) throw std::bad_alloc();
    return {};
}

/// Nothing that a script can name reaches a file, a command, a clock or the entropy of the machine.
void shutDoors(DovrelScript& interpreter) {
    for (const char* name :
         {"io", "os", "loadFile", "loadfile", "runFile", "dofile", "getTimeMs"}) {
        interpreter.pushVariable(name, Variable());
    }
    interpreter.pushFunction("print", printIntoOutcome);
    interpreter.randomEngine.seed(1);
}

void show(const NamedOutcome& run) {
    std::cerr << "---- " << run.name << " printed\n"
              << run.outcome.printed << "---- and ended in\n"
              << run.outcome.error << '\n';
}

/// The message in a report; a bare message as it stands.
std::string_view messageOf(std::string_view error) {
    if (!isLocatedReport(error)) return error;
    error.remove_prefix(kReportMarker.size() + 1);
    return error.substr(0, error.find("\n  at "));
}

bool sameError(const std::string& a, const std::string& b, Reports reports) {
    const bool wholly = reports == Reports::Whole && isLocatedReport(a) && isLocatedReport(b);
    return wholly ? a == b : messageOf(a) == messageOf(b);
}

}  // namespace

Outcome runInFreshInterpreter(const std::function<void(DovrelScript&)>& work) {
    Outcome outcome;
    runOnLargeStack([&] {
        // Outside the budget: a host that cannot make an interpreter has nothing to test.
        DovrelScript interpreter;
        shutDoors(interpreter);
        interpreter.statementBudget = kStepsOfOneExecution;
        printedText = &outcome.printed;
        const MemoryBudget memory;
        try {
            work(interpreter);
        } catch (const std::bad_alloc&) {
            outcome.outOfBudget = true;
        } catch (const std::exception& error) {
            outcome.error = error.what();
        }
        outcome.outOfBudget = outcome.outOfBudget || interpreter.statementBudget == 0 ||
                              outcome.error.find("std::bad_alloc") != std::string::npos;
    });
    return outcome;
}

void runParsedLines(DovrelScript& interpreter, const std::string& source) {
    // Outside the handler, so that the lines are alive while a report is built.
    std::vector<ParsedScriptLine> lines;
    try {
        lines = interpreter.parseLines(source);
        BlockSignal signal = BlockSignal::None;
        std::size_t index = 0;
        static_cast<void>(interpreter.executeParsedBlock(lines, index, signal));
        interpreter.rethrowPendingCoroutineException();
        if (signal == BlockSignal::Break) throw std::runtime_error("break used outside a loop");
    } catch (const std::exception& error) {
        interpreter.rethrowLocated(error, "script");
    }
}

void requireSameOutcome(const std::string& script, const NamedOutcome& first,
                        const NamedOutcome& second, Reports reports) {
    if (first.outcome.outOfBudget || second.outcome.outOfBudget) return;
    if (first.outcome.printed == second.outcome.printed &&
        sameError(first.outcome.error, second.outcome.error, reports)) {
        return;
    }
    std::cerr << "---- this script behaves differently\n" << script;
    show(first);
    show(second);
    std::abort();
}
