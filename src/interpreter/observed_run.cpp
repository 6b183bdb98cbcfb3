// What the interpreter tells an observer. Nothing here is reached without one.
#include "interpreter/observed_run.h"

#include <exception>
#include <string>
#include <string_view>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"

// In a build that cannot be observed there is never an observer, and the compiler must not see it
// here: it would complain of the calls.

void DovrelScript::tellProgram(const BytecodeProgram& program, const std::string& source) {
    RunObserver* told = observer;
    if (told != nullptr) told->programMade(program, source);
}

void DovrelScript::tellStatement(const ParsedScriptLine& line) {
    RunObserver* told = observer;
    if (told == nullptr) return;
    told->errorIsTold = false;
    told->statementBegins(line);
}

void DovrelScript::tellIteration(const ParsedScriptLine& header) {
    RunObserver* told = observer;
    if (told != nullptr) told->iterationBegins(header, frameScopes.back());
}

void DovrelScript::tellAssigned(const ParsedScriptLine& line, std::size_t nameToken,
                                std::span<const Variable> keys, const Variable& value) {
    RunObserver* told = observer;
    if (told != nullptr) told->assigned(line, line.tokens[nameToken], keys, value);
}

/// An exception passes several places that could tell it. The first one does: it has the scopes.
/// From the end of its statement on it is a located report, which has been told.
void DovrelScript::tellError(std::string_view message) {
    RunObserver* told = observer;
    if (told == nullptr || isLocatedReport(message) || told->errorIsTold) return;
    tellRaised(message);
}

void DovrelScript::tellRaised(std::string_view message) {
    RunObserver* told = observer;
    if (told == nullptr) return;
    told->errorIsTold = true;
    told->errorRaised(message);
}

/// The exception on its way has come to its end.
void DovrelScript::tellCaught() {
    RunObserver* told = observer;
    if (told != nullptr) told->errorIsTold = false;
}
