// What a debugger shows of a run that stands: its threads, calls, scopes and values.
#include <algorithm>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "coroutine/coroutine_state.h"
#include "dovrel/dap/debugger.h"
#include "eval/errors.h"
#include "frontend/token_analysis.h"
#include "value/script_callable.h"

namespace {

/// Everything of the interpreter that the evaluation of an expression may leave otherwise.
class EvaluationGuard {
public:
    explicit EvaluationGuard(DovrelScript& interpreter)
        : interpreter_(interpreter),
          frames_(interpreter.frameScopes.size()),
          blocks_(interpreter.blockScopes.size()),
          blockFloor_(interpreter.blockScopeFloor),
          directories_(interpreter.baseDirectoryStack.size()),
          names_(interpreter.scriptNameStack.size()),
          varargs_(interpreter.varargStack.size()),
          callDepth_(interpreter.callDepth),
          currentLineNumber_(interpreter.currentLineNumber),
          currentLine_(interpreter.currentLine),
          currentText_(interpreter.currentLineTextOverride),
          lastToken_(interpreter.lastToken),
          lastTokenIndex_(interpreter.lastTokenIndex),
          softErrorPending_(std::exchange(interpreter.softErrorPending, false)),
          softErrorDepth_(interpreter.softErrorDepth),
          softErrorMessage_(interpreter.softErrorMessage),
          errorIsTold_(interpreter.observer->errorIsTold) {
        // An error is to come out here and not to wait for a `pcall` of the script, and no
        // statement that runs meanwhile gives the coroutine a turn.
        protectedDepths_.swap(interpreter.protectedCallDepths);
        coroutine_ = std::move(interpreter.scheduledCoroutine);
        interpreter.noteAttention();
    }
    ~EvaluationGuard() {
        interpreter_.frameScopes.popTo(frames_);
        interpreter_.blockScopes.popTo(blocks_);
        interpreter_.blockScopeFloor = blockFloor_;
        interpreter_.baseDirectoryStack.resize(directories_);
        interpreter_.scriptNameStack.resize(names_);
        interpreter_.varargStack.resize(varargs_);
        interpreter_.callDepth = callDepth_;
        interpreter_.currentLineNumber = currentLineNumber_;
        interpreter_.currentLineTextOverride = currentText_;
        interpreter_.currentLine = currentLine_;
        interpreter_.lastToken = lastToken_;
        interpreter_.lastTokenIndex = lastTokenIndex_;
        interpreter_.softErrorPending = softErrorPending_;
        interpreter_.softErrorDepth = softErrorDepth_;
        interpreter_.softErrorMessage = softErrorMessage_;
        interpreter_.protectedCallDepths.swap(protectedDepths_);
        interpreter_.pendingCoroutineException = nullptr;
        interpreter_.scheduledCoroutine = std::move(coroutine_);
        interpreter_.noteAttention();
        interpreter_.observer->errorIsTold = errorIsTold_;
    }
    EvaluationGuard(const EvaluationGuard&) = delete;
    EvaluationGuard& operator=(const EvaluationGuard&) = delete;

private:
    DovrelScript& interpreter_;
    std::size_t frames_;
    std::size_t blocks_;
    std::size_t blockFloor_;
    std::size_t directories_;
    std::size_t names_;
    std::size_t varargs_;
    std::uint64_t callDepth_;
    std::size_t currentLineNumber_;
    const std::string* currentLine_;
    std::string currentText_;
    std::string lastToken_;
    std::size_t lastTokenIndex_;
    bool softErrorPending_;
    std::uint64_t softErrorDepth_;
    std::string softErrorMessage_;
    bool errorIsTold_;
    std::vector<std::uint64_t> protectedDepths_;
    std::shared_ptr<CoroutineState> coroutine_;
};

class FlagGuard {
public:
    explicit FlagGuard(bool& flag) : flag_(flag) { flag_ = true; }
    ~FlagGuard() { flag_ = false; }
    FlagGuard(const FlagGuard&) = delete;
    FlagGuard& operator=(const FlagGuard&) = delete;

private:
    bool& flag_;
};

/// The message of a report, without its place.
std::string messageOf(std::string_view report) {
    if (!isLocatedReport(report)) return std::string(report);
    report.remove_prefix(kReportMarker.size() + 1);
    return std::string(report.substr(0, report.find("\n  at ")));
}

}  // namespace

Variable Debugger::evaluate(const std::string& expression) {
    const FlagGuard evaluating(isEvaluating_);
    const EvaluationGuard untouched(interpreter_);
    try {
        // In parentheses, so that a word that begins a statement does not.
        const std::vector<ParsedScriptLine> lines = interpreter_.parseLines("(" + expression + ")");
        if (lines.size() != 1) throw std::runtime_error("this is not one expression");
        const ParsedScriptLine& line = lines.front();
        std::size_t position = 0;
        Variable value =
            interpreter_.evaluateExpression(line.tokens, position, &line.tokenAnalysis);
        if (position != line.tokens.size()) {
            throw std::runtime_error("Unexpected trailing token");
        }
        return value;
    } catch (const ScriptStopped&) {
        throw std::runtime_error("the evaluation was interrupted");
    } catch (const std::exception& error) {
        throw std::runtime_error(messageOf(error.what()));
    }
}

void Debugger::addViews() {
    handlers_["threads"] = [this](const Json&) { return threads(); };
    handlers_["stackTrace"] = [this](const Json& arguments) { return stackTrace(arguments); };
    handlers_["scopes"] = [this](const Json& arguments) {
        return scopes(arguments.at("frameId").get<std::size_t>() - 1);
    };
    handlers_["variables"] = [this](const Json& arguments) {
        return Json{{"variables", values_.variables(arguments.at("variablesReference").get<int>(),
                                                    arguments.value("start", std::size_t{0}),
                                                    arguments.value("count", std::size_t{0}))}};
    };
    handlers_["setVariable"] = [this](const Json& arguments) {
        const std::string name = arguments.at("name").get<std::string>();
        const Variable value = evaluate(arguments.at("value").get<std::string>());
        if (!values_.store(arguments.at("variablesReference").get<int>(), name, value)) {
            throw std::runtime_error(name +
                                     " cannot be set: it is a parameter of a short function");
        }
        return values_.describe(value);
    };
    handlers_["evaluate"] = [this](const Json& arguments) { return evaluation(arguments); };
    handlers_["exceptionInfo"] = [this](const Json&) {
        const bool isCaught = !interpreter_.protectedCallDepths.empty();
        return Json{{"exceptionId", errorText_},
                    {"description", errorText_},
                    {"breakMode", isCaught ? "always" : "unhandled"}};
    };
}

Debugger::Json Debugger::threads() const {
    Json list = {{{"id", kMainThread}, {"name", "main flow"}}};
    const CoroutineState* coroutine = inTurn_ ? turn_ : interpreter_.scheduledCoroutine.get();
    if (coroutine != nullptr) {
        list.push_back(
            {{"id", kCoroutineThread}, {"name", "coroutine " + coroutine->callable->name}});
    }
    return {{"threads", std::move(list)}};
}

Debugger::Json Debugger::sourceJson(const std::string& path) const {
    return {{"name", std::filesystem::path(path).filename().string()}, {"path", path}};
}

Debugger::Json Debugger::frameJson(std::size_t index) const {
    const Frame& frame = frames_[index];
    Json told = {{"id", index + 1},
                 {"name", frame.name},
                 {"line", frame.line + lineOffset_ - 1},
                 {"column", lineOffset_}};
    if (!frame.path.empty()) told["source"] = sourceJson(frame.path);
    return told;
}

/// The line that the next turn of the coroutine runs.
std::size_t Debugger::waitingCoroutineLine() const {
    const CoroutineState& coroutine = *interpreter_.scheduledCoroutine;
    const auto& lines = coroutine.callable->bodyLines;
    for (auto frame = coroutine.frames.rbegin(); frame != coroutine.frames.rend(); ++frame) {
        const bool isBlock = frame->kind == CoroutineFrameKind::Block;
        const std::size_t next = isBlock ? frame->nextLine : frame->headerLine;
        if (isBlock && next >= frame->endLine) continue;
        if (lines != nullptr && next < lines->size()) return (*lines)[next].lineNumber + 1;
    }
    return 1;
}

Debugger::Json Debugger::stackTrace(const Json& arguments) const {
    if (!isStopped_) throw std::runtime_error("the script is not stopped");
    const bool isCoroutine = arguments.value("threadId", 1) == kCoroutineThread;
    Json list = Json::array();
    if (isCoroutine && !inTurn_) {
        // It waits for its turn, and has no call but its own body.
        if (interpreter_.scheduledCoroutine != nullptr) {
            const ScriptCallable& body = *interpreter_.scheduledCoroutine->callable;
            const std::string path =
                body.scriptName.empty() ? frames_.front().path : canonicalPath(body.scriptName);
            list.push_back({{"id", frames_.size() + 1},
                            {"name", body.name},
                            {"line", waitingCoroutineLine() + lineOffset_ - 1},
                            {"column", lineOffset_},
                            {"source", sourceJson(path)}});
        }
        return {{"stackFrames", list}, {"totalFrames", list.size()}};
    }
    const std::size_t first = isCoroutine ? turnBase_ : 0;
    const std::size_t last = isCoroutine || !inTurn_ ? frames_.size() : turnBase_;
    const std::size_t skipped = arguments.value("startFrame", std::size_t{0});
    std::size_t levels = arguments.value("levels", std::size_t{0});
    if (levels == 0) levels = frames_.size();
    for (std::size_t i = last; i-- > first && list.size() < levels;) {
        if (last - 1 - i < skipped) continue;
        list.push_back(frameJson(i));
    }
    return {{"stackFrames", list}, {"totalFrames", last - first}};
}

std::vector<DebugScope> Debugger::scopesOf(std::size_t index) {
    std::vector<DebugScope> scopes;
    // Which flow the frame belongs to, and where its scopes are.
    const bool isWaiting = index >= frames_.size();
    FlowState* other = nullptr;
    if (isWaiting && interpreter_.scheduledCoroutine != nullptr) {
        other = &interpreter_.scheduledCoroutine->flow;
    } else if (inTurn_ && index < turnBase_) {
        other = &const_cast<CoroutineState*>(turn_)->flow;
    }
    ScopeStack& frames = other != nullptr ? other->frameScopes : interpreter_.frameScopes;
    ScopeStack& blocks = other != nullptr ? other->blockScopes : interpreter_.blockScopes.all();
    const std::size_t floor =
        other != nullptr ? other->blockScopeFloor : interpreter_.blockScopeFloor;
    const std::size_t begin = inTurn_ && other == nullptr ? turnBase_ : 0;
    const std::size_t end = inTurn_ && other != nullptr ? turnBase_ : frames_.size();
    std::size_t frameCount = frames.size();
    std::size_t blockCount = blocks.size();
    if (!isWaiting && index + 1 < end) {
        const Frame& inner = frames_[index + 1];
        frameCount = std::min(frameCount, inner.frameScopes - (inner.isShort ? 0 : 1));
        blockCount = std::min(blockCount, inner.blockScopes);
    }
    for (std::size_t i = blockCount; i > std::min(floor, blockCount); --i) {
        if (blocks[i - 1].empty()) continue;
        scopes.push_back({DebugScope::Kind::Entries, "Block", &blocks[i - 1], nullptr, {}});
    }
    const auto addShort = [&](const Frame& frame) {
        DebugScope scope;
        scope.kind = DebugScope::Kind::ShortCall;
        scope.name = frame.name + ": parameters";
        scope.callable = frame.callable;
        scope.args = frame.args;
        scopes.push_back(std::move(scope));
    };
    // The calls from the inside; between two of them stand the scopes of loops.
    std::size_t at = frameCount;
    const std::size_t top = isWaiting ? begin : std::min(index + 1, end);
    for (std::size_t call = top; call-- > begin;) {
        const Frame& frame = frames_[call];
        const bool isBody = frame.callable != nullptr && !frame.isShort && call > begin;
        const std::size_t base = call == begin ? 0 : frame.frameScopes - (frame.isShort ? 0 : 1);
        while (at > base) {
            --at;
            if (frames[at].empty()) continue;
            const bool isOwn = isBody && at == base;
            scopes.push_back({DebugScope::Kind::Entries,
                              frame.name + (isOwn ? ": parameters and natives" : ": variables"),
                              &frames[at],
                              nullptr,
                              {}});
        }
        if (frame.isShort && call + 1 == top) addShort(frame);
    }
    for (; isWaiting && at > 0; --at) {
        if (frames[at - 1].empty()) continue;
        scopes.push_back(
            {DebugScope::Kind::Entries, "coroutine: variables", &frames[at - 1], nullptr, {}});
    }
    scopes.push_back({DebugScope::Kind::Globals, "Globals", nullptr, nullptr, {}});
    scopes.push_back({DebugScope::Kind::Library, "Library", nullptr, nullptr, {}});
    return scopes;
}

Debugger::Json Debugger::scopes(std::size_t frame) {
    if (!isStopped_) throw std::runtime_error("the script is not stopped");
    Json list = Json::array();
    bool isFirst = true;
    for (DebugScope& scope : scopesOf(frame)) {
        Json told = {{"name", scope.name}, {"expensive", scope.kind == DebugScope::Kind::Library}};
        if (isFirst && scope.kind != DebugScope::Kind::Globals) {
            told["presentationHint"] = "locals";
        }
        isFirst = false;
        told["variablesReference"] = values_.numberOf(std::move(scope));
        list.push_back(std::move(told));
    }
    return {{"scopes", std::move(list)}};
}

Debugger::Json Debugger::evaluation(const Json& arguments) {
    if (!isStopped_) throw std::runtime_error("the script is not stopped");
    const std::string expression = arguments.at("expression").get<std::string>();
    const std::size_t frame = arguments.value("frameId", frames_.size()) - 1;
    const auto told = [&](const Variable& value) {
        Json result = values_.describe(value);
        result["result"] = result["value"];
        result.erase("value");
        return result;
    };
    if (frame + 1 == frames_.size()) return told(evaluate(expression));
    // Further out nothing can run, but names can be looked up.
    if (!isIdentifier(expression)) {
        throw std::runtime_error("only names can be looked up in a call that waits");
    }
    for (const DebugScope& scope : scopesOf(frame)) {
        if (const Variable* value = values_.find(scope, expression)) return told(*value);
    }
    return told(Variable());
}
