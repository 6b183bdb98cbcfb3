// Who runs what in an observed run: the scripts that were compiled, their functions, and the chain
// of calls under way with the line of each. What profiles, traces, coverage and checked runs stand
// on.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "interpreter/dovrel_script.h"
#include "interpreter/run_observer.h"

struct ObservedScript;

/// A function of a script, or the statements outside of all functions. All values that the same
/// declaration makes are one.
struct ObservedFunction {
    std::string name;  // as declared, `t["add"]` for one; "(script)" for those outside
    const ObservedScript* script = nullptr;
    std::size_t line = 0;  // 1-based, of its declaration; 0 for "(script)"
    bool isDecay = false;
    std::size_t index = 0;  // in the order in which they were met
};

/// A text that has been compiled. The same text under the same name is the same script.
struct ObservedScript {
    std::string name;     // as reports name it, or the name that the main script was given
    bool isFile = false;  // the text is what the file of that name holds
    std::string givenName;
    std::string source;
    std::vector<std::size_t> statementLines;  // 1-based, ascending: where something can run
    std::size_t index = 0;                    // in the order in which they were met
    ObservedFunction* outside = nullptr;
    std::vector<ObservedFunction*> declared;  // by line
};

class CallChain : public RunObserver {
public:
    /// What runs now, or waits for a call to end.
    struct Frame {
        ObservedFunction* function = nullptr;
        const ScriptCallable* callable = nullptr;  // null for a program
        const ParsedScriptLine* statement = nullptr;
        std::size_t line = 0;  // 1-based, of the statement that began last; 0 before the first
        // The scopes of the call are those from here on, up to those of the next frame.
        std::size_t firstFrameScope = 0;
        std::size_t firstBlockScope = 0;
        Arguments arguments;   // of a short function, which has no scope
        bool isShort = false;  // it has none
        bool isTurn = false;   // a coroutine's turn: scopes of its own, and nobody called it
    };

    /// `mainName` stands for scripts without a name: the one that the host runs.
    CallChain(DovrelScript& interpreter, std::string mainName);

    void programMade(const BytecodeProgram& program, const std::string& source) override;
    void programBegins(const BytecodeProgram& program) override;
    void programEnds() noexcept override;
    void statementBegins(const ParsedScriptLine& line) override;
    void callBegins(const ScriptCallable& callable, Arguments args) override;
    void callEnds(CallEnd end) noexcept override;
    void turnBegins(const CoroutineState& coroutine) override;
    void turnEnds() noexcept override;

    /// Outermost first. Empty before the program begins and while a function is called by the host.
    [[nodiscard]] const std::vector<Frame>& frames() const { return frames_; }
    [[nodiscard]] const std::deque<ObservedScript>& scripts() const { return scripts_; }
    [[nodiscard]] const std::deque<ObservedFunction>& functions() const { return functions_; }

    /// The parameters, loop variables and locals of a frame, in the order in which they came.
    [[nodiscard]] std::vector<ScopeEntry> variablesOf(std::size_t index) const;

    /// "total.dv:12", or "line 12" of a script without a name.
    [[nodiscard]] static std::string placeOf(const ObservedScript& script, std::size_t line);

protected:
    [[nodiscard]] const DovrelScript& interpreter() const { return interpreter_; }
    /// The innermost one; there must be one.
    [[nodiscard]] Frame& top() { return frames_.back(); }

private:
    struct Program {
        ObservedScript* script = nullptr;
        std::unordered_map<std::uint32_t, ObservedFunction*> byChunk;
    };

    ObservedScript& scriptCalled(const std::string& name, const std::string& source);
    ObservedFunction& functionAt(ObservedScript& script, const std::string& name, std::size_t line);
    ObservedFunction& functionOf(const ScriptCallable& callable);
    void push(ObservedFunction& function, const ScriptCallable* callable);

    DovrelScript& interpreter_;
    std::string mainName_;
    std::deque<ObservedScript> scripts_;
    std::deque<ObservedFunction> functions_;
    std::map<std::pair<std::size_t, std::pair<std::size_t, std::string>>, ObservedFunction*> known_;
    std::unordered_map<const ParsedScriptLine*, Program> programs_;  // by where their lines stand
    std::vector<Frame> frames_;
    const CoroutineState* turn_ = nullptr;  // whose turn it is
};
