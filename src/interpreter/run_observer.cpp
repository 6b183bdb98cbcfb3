#include "interpreter/run_observer.h"

void RunObserver::programMade(const BytecodeProgram& /*program*/, const std::string& /*source*/) {}
void RunObserver::programBegins(const BytecodeProgram& /*program*/) {}
void RunObserver::programEnds() noexcept {}
void RunObserver::statementBegins(const ParsedScriptLine& /*line*/) {}
void RunObserver::iterationBegins(const ParsedScriptLine& /*header*/, const Scope& /*variables*/) {}
void RunObserver::assigned(const ParsedScriptLine& /*line*/, const std::string& /*name*/,
                           std::span<const Variable> /*keys*/, const Variable& /*value*/) {}
void RunObserver::callBegins(const ScriptCallable& /*callable*/, Arguments /*args*/) {}
void RunObserver::callEnds(CallEnd /*end*/) noexcept {}
void RunObserver::turnBegins(const CoroutineState& /*coroutine*/) {}
void RunObserver::turnEnds() noexcept {}
void RunObserver::errorRaised(std::string_view /*message*/) noexcept {}
