// A run that an editor watches and stops. It is the observer of the interpreter: between two
// statements it looks for requests and breakpoints, and at a stop it answers requests until the run
// is to go on. All of that happens on the thread of the script.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/dap/breakpoints.h"
#include "dovrel/dap/debug_channel.h"
#include "dovrel/dap/debug_values.h"
#include "interpreter/dovrel_script.h"
#include "interpreter/run_observer.h"

class Debugger : public RunObserver {
public:
    using Json = nlohmann::json;

    explicit Debugger(DebugChannel& channel);

    /// Speaks with the editor from the first request to the last, and runs the script between.
    void run();

    void statementBegins(const ParsedScriptLine& line) override;
    void callBegins(const ScriptCallable& callable, Arguments args) override;
    void callEnds(CallEnd end) noexcept override;
    void turnBegins(const CoroutineState& coroutine) override;
    void turnEnds() noexcept override;
    void errorRaised(std::string_view message) noexcept override;

private:
    /// One call, or the top of the script, or the body of the coroutine.
    struct Frame {
        std::string name;
        std::string path;      // canonical; empty for a text that is no file
        std::size_t line = 0;  // counted from 1
        // The scopes of the interpreter that its caller can see.
        std::size_t frameScopes = 0;
        std::size_t blockScopes = 0;
        const ScriptCallable* callable = nullptr;
        Arguments args;
        bool isShort = false;  // has no frame scope of its own
        std::multimap<std::size_t, Breakpoint>* breakpoints = nullptr;
    };
    /// How far the run goes until it stops by itself.
    enum class Goal : std::uint8_t { End, NextStatement, NextInCall, Caller };
    enum Thread : int { kMainThread = 1, kCoroutineThread = 2 };
    using Handler = std::function<Json(const Json& arguments)>;

    // debugger.cpp
    void addControls();
    void takeRequest(const Json& request);
    void takeNews();
    void runScript();
    void stop(const std::string& reason, const std::string& text, int breakpoint);
    void goOn(Goal goal);
    [[nodiscard]] Thread thread() const { return inTurn_ ? kCoroutineThread : kMainThread; }
    [[nodiscard]] std::size_t depth() const { return frames_.size() - (inTurn_ ? turnBase_ : 0); }
    [[nodiscard]] bool reachesGoal() const;
    /// True if the run stops here.
    bool takeBreakpoint(Breakpoint& breakpoint, std::string& problem);
    [[nodiscard]] std::string logText(const std::string& message);
    void refreshBreakpoints();
    /// Where the lines of a function are: its file, by one path however it was loaded.
    const std::string& pathOf(const ScriptCallable& callable);

    // debugger_views.cpp
    void addViews();
    [[nodiscard]] Json threads() const;
    [[nodiscard]] Json stackTrace(const Json& arguments) const;
    [[nodiscard]] Json scopes(std::size_t frame);
    [[nodiscard]] std::vector<DebugScope> scopesOf(std::size_t frame);
    [[nodiscard]] Json evaluation(const Json& arguments);
    /// Evaluates an expression where the script stands. Raises what the script would.
    [[nodiscard]] Variable evaluate(const std::string& expression);
    [[nodiscard]] Json frameJson(std::size_t index) const;
    [[nodiscard]] Json sourceJson(const std::string& path) const;
    [[nodiscard]] std::size_t waitingCoroutineLine() const;

    DebugChannel& channel_;
    DovrelScript interpreter_;
    DebugValues values_;
    Breakpoints breakpoints_;
    std::map<std::string, Handler> handlers_;

    // What the editor has asked for.
    Json launch_;
    bool isLaunched_ = false;
    bool isConfigured_ = false;
    bool isOver_ = false;  // the editor wants no more
    bool stopsAtErrors_ = false;
    bool stopsAtUncaughtErrors_ = false;
    std::size_t lineOffset_ = 1;  // what the first line of a file is called

    // The run.
    std::vector<Frame> frames_;
    std::map<std::string, std::string> canonicalPaths_;  // of the names of scripts
    const CoroutineState* turn_ = nullptr;               // the coroutine whose turn it is
    bool inTurn_ = false;
    std::size_t turnBase_ = 0;  // the frames of the main flow, in a turn
    Goal goal_ = Goal::End;
    std::size_t goalDepth_ = 0;
    Thread goalThread_ = kMainThread;
    bool wantsPause_ = false;
    bool isEntry_ = false;  // the first statement is still to come
    bool isStopped_ = false;
    bool isEvaluating_ = false;
    bool isRunning_ = false;
    std::string errorText_;  // at a stop for an error
};
