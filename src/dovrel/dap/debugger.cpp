#include "dovrel/dap/debugger.h"

#include <unistd.h>

#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "coroutine/coroutine_state.h"
#include "dovrel/text_file.h"
#include "dovrel/value_display.h"
#include "eval/name_stack_guard.h"
#include "exec/bytecode_program.h"
#include "value/script_callable.h"

Debugger::Debugger(DebugChannel& channel)
    : channel_(channel), values_(interpreter_, interpreter_.globalValues.size()) {
    interpreter_.setObserver(*this);
    addControls();
    addViews();
}

void Debugger::run() {
    while (!isOver_ && !(isLaunched_ && isConfigured_)) {
        const auto request = channel_.next();
        if (!request) return;
        takeRequest(*request);
    }
    if (!isOver_) runScript();
    while (!isOver_) {
        const auto request = channel_.next();
        if (!request) return;
        takeRequest(*request);
    }
}

void Debugger::runScript() {
    int status = 0;
    isRunning_ = true;
    isEntry_ = launch_.value("stopOnEntry", false);
    frames_.emplace_back();
    frames_.back().name = "script";
    const std::string path = canonicalPath(launch_.value("program", ""));
    frames_.back().path = path;
    refreshBreakpoints();
    // Outside the handler, so that the lines are alive while a report is built.
    std::shared_ptr<BytecodeProgram> program;
    try {
        const std::string text = readTextFile(path);
        ArrayStorage elements;
        if (launch_.contains("args")) {
            for (const Json& one : launch_["args"]) {
                elements.push_back(Variable(one.get<std::string>()));
            }
        }
        interpreter_.pushVariable("args", Variable::makeArray(std::move(elements)));
        interpreter_.runScript(text);
    } catch (const ScriptStopped&) {
        status = 1;
    } catch (const std::exception& error) {
        status = 1;
        std::cerr << "dovrel: " << error.what() << std::endl;
    }
    isRunning_ = false;
    RunContext::current().watch.forgetInterruption();
    frames_.clear();
    values_.clear();
    channel_.flushOutput();
    channel_.sendEvent("exited", {{"exitCode", status}});
    channel_.sendEvent("terminated");
}

void Debugger::addControls() {
    handlers_["initialize"] = [this](const Json& arguments) {
        lineOffset_ = arguments.value("linesStartAt1", true) ? 1 : 0;
        const Json filters = {
            {{"filter", "uncaught"}, {"label", "Errors that nothing catches"}, {"default", true}},
            {{"filter", "raised"}, {"label", "All errors, before pcall catches them"}}};
        return Json{
            {"supportsConfigurationDoneRequest", true},  {"supportsConditionalBreakpoints", true},
            {"supportsHitConditionalBreakpoints", true}, {"supportsLogPoints", true},
            {"supportsEvaluateForHovers", true},         {"supportsSetVariable", true},
            {"supportsExceptionInfoRequest", true},      {"supportsTerminateRequest", true},
            {"supportTerminateDebuggee", true},          {"exceptionBreakpointFilters", filters}};
    };
    handlers_["launch"] = [this](const Json& arguments) {
        launch_ = arguments;
        if (launch_.value("program", "").empty()) {
            throw std::runtime_error("no script is named: `program` is missing");
        }
        const std::string folder = launch_.value("cwd", "");
        if (!folder.empty() && chdir(folder.c_str()) != 0) {
            throw std::runtime_error("there is no folder " + folder);
        }
        if (access(launch_.value("program", "").c_str(), R_OK) != 0) {
            throw std::runtime_error("failed to open file: " + launch_.value("program", ""));
        }
        isLaunched_ = true;
        return Json::object();
    };
    handlers_["configurationDone"] = [this](const Json&) {
        isConfigured_ = true;
        return Json::object();
    };
    handlers_["setBreakpoints"] = [this](const Json& arguments) {
        Json wanted = arguments.value("breakpoints", Json::array());
        for (Json& one : wanted) {
            one["line"] = one.value("line", std::size_t{0}) + 1 - lineOffset_;
        }
        const std::string path = arguments.at("source").value("path", "");
        Json set = breakpoints_.set(path, wanted);
        for (Json& one : set) one["line"] = one["line"].get<std::size_t>() + lineOffset_ - 1;
        refreshBreakpoints();
        return Json{{"breakpoints", std::move(set)}};
    };
    handlers_["setExceptionBreakpoints"] = [this](const Json& arguments) {
        stopsAtErrors_ = stopsAtUncaughtErrors_ = false;
        for (const Json& filter : arguments.at("filters")) {
            if (filter == "raised") stopsAtErrors_ = true;
            if (filter == "uncaught") stopsAtUncaughtErrors_ = true;
        }
        return Json::object();
    };
    handlers_["pause"] = [this](const Json&) {
        wantsPause_ = !isStopped_;
        return Json::object();
    };
    const auto addStep = [this](const char* command, Goal goal) {
        handlers_[command] = [this, goal](const Json&) {
            if (!isStopped_) throw std::runtime_error("the script is not stopped");
            goOn(goal);
            return Json{{"allThreadsContinued", true}};
        };
    };
    addStep("continue", Goal::End);
    addStep("next", Goal::NextInCall);
    addStep("stepIn", Goal::NextStatement);
    addStep("stepOut", Goal::Caller);
    const auto end = [this](const Json&) {
        isOver_ = true;
        isStopped_ = false;
        if (isRunning_) RunContext::current().watch.interrupt();
        return Json::object();
    };
    handlers_["disconnect"] = end;
    handlers_["terminate"] = [this, end](const Json& arguments) {
        end(arguments);
        // A disconnect follows.
        isOver_ = false;
        wantsPause_ = false;
        goal_ = Goal::End;
        return Json::object();
    };
}

void Debugger::takeRequest(const Json& request) {
    const std::string command = request.value("command", "");
    const auto handler = handlers_.find(command);
    if (handler == handlers_.end()) {
        channel_.sendFailure(request, "there is no command " + command);
        return;
    }
    try {
        const Json arguments = request.value("arguments", Json::object());
        channel_.sendResponse(request, handler->second(arguments));
        if (command == "initialize") channel_.sendEvent("initialized");
    } catch (const std::exception& error) {
        channel_.sendFailure(request, error.what());
    }
}

/// Requests that have come while the script runs.
void Debugger::takeNews() {
    while (const auto request = channel_.nextIfAny()) takeRequest(*request);
    if (channel_.isClosed()) isOver_ = true;
}

void Debugger::goOn(Goal goal) {
    goal_ = goal;
    goalDepth_ = depth();
    goalThread_ = thread();
    isStopped_ = false;
    errorText_.clear();
    values_.clear();
}

/// Answers requests until the run is to go on.
void Debugger::stop(const std::string& reason, const std::string& text, int breakpoint) {
    isStopped_ = true;
    wantsPause_ = false;
    goal_ = Goal::End;
    channel_.flushOutput();
    Json body = {{"reason", reason}, {"threadId", thread()}, {"allThreadsStopped", true}};
    if (!text.empty()) body["text"] = text;
    if (breakpoint != 0) body["hitBreakpointIds"] = {breakpoint};
    channel_.sendEvent("stopped", std::move(body));
    while (isStopped_ && !isOver_) {
        const auto request = channel_.next();
        if (!request) {
            isOver_ = true;
            break;
        }
        takeRequest(*request);
    }
    isStopped_ = false;
}

bool Debugger::reachesGoal() const {
    if (goal_ == Goal::End) return false;
    if (goalThread_ != thread()) {
        // A coroutine that has ended will not come back: the main flow is where it goes on.
        return goalThread_ == kCoroutineThread && interpreter_.scheduledCoroutine == nullptr;
    }
    if (goal_ == Goal::NextStatement) return true;
    return goal_ == Goal::NextInCall ? depth() <= goalDepth_ : depth() < goalDepth_;
}

void Debugger::statementBegins(const ParsedScriptLine& line) {
    if (isEvaluating_) return;
    if (channel_.hasNews()) takeNews();
    if (isOver_) throw ScriptStopped{};
    Frame& frame = frames_.back();
    frame.line = line.lineNumber + 1;
    std::string problem;
    int hit = 0;
    if (frame.breakpoints != nullptr) {
        const auto [first, last] = frame.breakpoints->equal_range(frame.line);
        for (auto one = first; one != last; ++one) {
            if (takeBreakpoint(one->second, problem)) hit = one->second.id;
        }
    }
    if (hit != 0) {
        stop("breakpoint", problem, hit);
    } else if (isEntry_) {
        stop("entry", "", 0);
    } else if (wantsPause_) {
        stop("pause", "", 0);
    } else if (reachesGoal()) {
        stop("step", "", 0);
    }
    isEntry_ = false;
    if (isOver_) throw ScriptStopped{};
}

bool Debugger::takeBreakpoint(Breakpoint& breakpoint, std::string& problem) {
    if (!breakpoint.condition.empty()) {
        try {
            if (!isTruthy(evaluate(breakpoint.condition))) return false;
        } catch (const std::exception& error) {
            // Whoever has written it wants to know.
            problem = "the condition of the breakpoint fails: " + std::string(error.what());
        }
    }
    ++breakpoint.hits;
    if (!breakpoint.hitCondition.empty() && !hitCounts(breakpoint.hitCondition, breakpoint.hits)) {
        return false;
    }
    if (breakpoint.logMessage.empty()) return true;
    channel_.flushOutput();
    channel_.sendEvent("output", {{"category", "console"},
                                  {"output", logText(breakpoint.logMessage) + '\n'},
                                  {"source", sourceJson(frames_.back().path)},
                                  {"line", breakpoint.line + lineOffset_ - 1}});
    return false;
}

std::string Debugger::logText(const std::string& message) {
    std::string text;
    for (std::size_t at = 0; at < message.size();) {
        const std::size_t open = std::min(message.find('{', at), message.size());
        const std::size_t close = message.find('}', open);
        text.append(message, at, open - at);
        if (open == message.size() || close == std::string::npos) {
            text.append(message, open, std::string::npos);
            break;
        }
        try {
            text += evaluate(message.substr(open + 1, close - open - 1)).toString();
        } catch (const std::exception& error) {
            text += error.what();
        }
        at = close + 1;
    }
    return text;
}

void Debugger::refreshBreakpoints() {
    for (Frame& frame : frames_) {
        frame.breakpoints = frame.path.empty() ? nullptr : breakpoints_.of(frame.path);
    }
}

const std::string& Debugger::pathOf(const ScriptCallable& callable) {
    static const std::string none;
    if (callable.scriptName.empty()) return callable.isLoadedChunk ? none : frames_.front().path;
    // Each call comes here, and the file system takes long to say.
    const auto [known, isNew] = canonicalPaths_.try_emplace(callable.scriptName);
    if (isNew) known->second = canonicalPath(callable.scriptName);
    return known->second;
}

void Debugger::callBegins(const ScriptCallable& callable, Arguments args) {
    if (isEvaluating_) return;
    Frame frame;
    frame.name = callable.isLoadedChunk ? "loaded script" : callable.name;
    frame.path = pathOf(callable);
    frame.frameScopes = interpreter_.frameScopes.size();
    frame.blockScopes = interpreter_.blockScopes.size();
    frame.callable = &callable;
    frame.args = args;
    frame.isShort = interpreter_.fastCallable == &callable;
    frame.breakpoints = frame.path.empty() ? nullptr : breakpoints_.of(frame.path);
    frames_.push_back(std::move(frame));
}

void Debugger::callEnds(CallEnd /*end*/) noexcept {
    if (!isEvaluating_) frames_.pop_back();
}

void Debugger::turnBegins(const CoroutineState& coroutine) {
    if (isEvaluating_) return;
    turn_ = &coroutine;
    inTurn_ = true;
    turnBase_ = frames_.size();
    Frame frame;
    frame.name = coroutine.callable->name;
    frame.path = pathOf(*coroutine.callable);
    frame.callable = coroutine.callable.get();
    frame.breakpoints = breakpoints_.of(frame.path);
    frames_.push_back(std::move(frame));
}

void Debugger::turnEnds() noexcept {
    if (isEvaluating_) return;
    frames_.resize(turnBase_);
    inTurn_ = false;
    turn_ = nullptr;
}

void Debugger::errorRaised(std::string_view message) noexcept {
    if (isEvaluating_ || isOver_ || frames_.empty()) return;
    const bool isCaught = !interpreter_.protectedCallDepths.empty();
    if (!stopsAtErrors_ && (isCaught || !stopsAtUncaughtErrors_)) return;
    try {
        errorText_ = message;
        stop("exception", errorText_, 0);
    } catch (...) {
        // Nothing that goes wrong in telling may end the run.
        isStopped_ = false;
    }
}
