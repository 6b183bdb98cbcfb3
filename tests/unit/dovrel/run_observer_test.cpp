// What an observer of a run is told, and when.
#include "interpreter/run_observer.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>

#include "eval/scope.h"
#include "exec/bytecode_program.h"
#include "interpreter/dovrel_script.h"

namespace {

/// Writes down what it is told, a word each.
class Recorder : public RunObserver {
public:
    explicit Recorder(DovrelScript& interpreter) : interpreter_(interpreter) {}

    void programMade(const BytecodeProgram& program, const std::string& source) override {
        add("made" + std::to_string(program.lines.size()) + (source.empty() ? "empty" : ""));
    }
    void programBegins(const BytecodeProgram& /*program*/) override { add("program"); }
    void programEnds() noexcept override { add("<end>"); }
    void statementBegins(const ParsedScriptLine& line) override {
        add(std::to_string(line.lineNumber + 1));
    }
    void iterationBegins(const ParsedScriptLine& /*header*/, const Scope& variables) override {
        std::string text = "turn";
        for (std::size_t i = 0; i < variables.size(); ++i) {
            text += ',' + variables[i].name->text + '=' + variables[i].value.toString();
        }
        add(text);
    }
    void assigned(const ParsedScriptLine& /*line*/, const std::string& name,
                  std::span<const Variable> keys, const Variable& value) override {
        std::string text = name;
        for (const Variable& key : keys) text += '[' + key.toString() + ']';
        add(text + '=' + value.toString());
    }
    void callBegins(const ScriptCallable& callable, Arguments args) override {
        std::string text = callable.isLoadedChunk ? "<loaded>" : callable.name;
        text += '(';
        for (std::size_t i = 0; i < args.size(); ++i)
            text += (i == 0 ? "" : ",") + args[i].toString();
        add(text + ':');
    }
    void callEnds(CallEnd end) noexcept override {
        add(end == CallEnd::Returned ? ")" : end == CallEnd::Raised ? "!)" : "again)");
    }
    void turnBegins(const CoroutineState& coroutine) override {
        add("{" + coroutine.callable->name);
    }
    void turnEnds() noexcept override { add("}"); }
    void errorRaised(std::string_view message) noexcept override {
        std::string text = "error<" + std::string(message) + ">";
        // What a debugger shows: the scopes of the statement that failed.
        for (std::size_t i = 0; i < interpreter_.frameScopes.size(); ++i) {
            const Scope& scope = interpreter_.frameScopes[i];
            for (std::size_t j = 0; j < scope.size(); ++j) {
                text += scope[j].name->text + '=' + scope[j].value.toString() + ';';
            }
        }
        add(text);
    }

    std::string told;

private:
    void add(const std::string& text) { told += (told.empty() ? "" : " ") + text; }

    DovrelScript& interpreter_;
};

/// What is told of a script, without the beginning and the end that all have.
std::string toldOf(const std::string& script) {
    DovrelScript interpreter;
    Recorder recorder(interpreter);
    interpreter.setObserver(recorder);
    try {
        interpreter.runScript(script);
    } catch (const std::exception& error) {
        recorder.told += " -> " + std::string(error.what()).substr(0, 27);
    }
    const std::size_t start = recorder.told.find("program ");
    const std::size_t end = recorder.told.find(" <end>");
    if (start == std::string::npos || end == std::string::npos) return "broken: " + recorder.told;
    return recorder.told.substr(start + 8, end - start - 8) + recorder.told.substr(end + 6);
}

TEST(RunObserver, IsToldOfEachStatementAndConditionThatRuns) {
    EXPECT_EQ(
        toldOf("a = 1\n\nif a == 2\n b = 1\nelseif a == 1\n b = 2\nelse\n b = 3\nend\nb += 1"),
        "1 a=1 3 5 6 b=2 10 b=3");
    EXPECT_EQ(toldOf("i = 0\nwhile i < 2\n i += 1\nend\nrepeat\n i -= 1\nuntil i == 0"),
              "1 i=0 2 3 i=1 2 3 i=2 2 6 i=1 7 6 i=0 7");
    EXPECT_EQ(toldOf("for i = 1, 2\n x = i\n if i == 2\n  break\n end\nend"),
              "1 turn,i=1 2 x=1 3 turn,i=2 2 x=2 3 4");
    EXPECT_EQ(toldOf("for k, v in ipairs([7, 8])\n local y = v\nend"),
              "1 turn,k=1,v=7 2 y=7 turn,k=2,v=8 2 y=8");
}

TEST(RunObserver, IsToldOfWhatIsAssigned) {
    EXPECT_EQ(toldOf("a, b = 1, 2; native c = 3; local d = 4; e = [1]; e[1] += 4; e['x'] = a"),
              "1 a=1 b=2 1 c=3 1 d=4 1 e=[1] 1 e[1]=5 1 e[x]=1");
    EXPECT_EQ(toldOf("t[1][2] = 3; s = 'a'; s += 1; f, g = (2)"),
              "1 t[1][2]=3 1 s=a 1 s=a1 1 f=2 g=not");
}

TEST(RunObserver, IsToldOfCalls) {
    EXPECT_EQ(toldOf("function f(a)\n b = a\n return b\nend\nx = f(1)"), "1 5 f(1: 2 b=1 3 ) x=1");
    EXPECT_EQ(toldOf("function f(a)\n return a + 1\nend\nx = f(1)\ny = [f(2)]"),
              "1 4 f(1: 2 ) x=2 5 f(2: 2 ) y=[3]");
    EXPECT_EQ(toldOf("g = load('x = 1\\ny = 2')\ng()"),
              "1 made2 g=[function] 2 <loaded>(: 1 x=1 2 y=2 )");
}

TEST(RunObserver, TellsACallThatIsMadeAgain) {
    EXPECT_EQ(toldOf("function f(a)\n return a + 'x'\nend\ny = 'z' + f(1)"), "1 4 f(1: 2 ) y=z1x");
    EXPECT_EQ(toldOf("function f(a)\n return a + 'x'\nend\ny = f('1') + 'z'"),
              "1 4 f(1: 2 again) f(1: 2 ) y=1xz");
}

TEST(RunObserver, IsToldOfEachTurnOfACoroutine) {
    EXPECT_EQ(toldOf("decay function f(a)\n b = a\n c = a\nend\nf(1)\nx = 1\ny = 2\nz = 3"),
              "1 5 {f 2 b=1 } 6 x=1 {f 3 c=1 } 7 y=2 {f } 8 z=3");
}

TEST(RunObserver, IsToldOfAnErrorOnceWithItsScopes) {
    EXPECT_EQ(
        toldOf("function f(a)\n for i = 1, 2\n  x = a / 0\n end\nend\nf(1)"),
        "1 6 f(1: 2 turn,i=1 3 error<Division by zero>a=1;i=1; !) -> DovrelScript error: Divisio");
    EXPECT_EQ(toldOf("function f(a)\n return a / 0\nend\nok, e = pcall(f, 1)").substr(0, 45),
              "1 4 f(1: 2 error<Division by zero> !) ok=fals");
    EXPECT_EQ(toldOf("function f(a)\n error('no')\n x = 1\nend\nok, e = pcall(f, 1)"),
              "1 5 f(1: 2 error<no>a=1; ) ok=false e=no");
    EXPECT_EQ(toldOf("function f(a)\n if a < 1\n  error('low')\n end\n return a\nend\n"
                     "ok, e = pcall(f, 0)\nok, e = pcall(f, 2)"),
              "1 7 f(0: 2 3 error<low>a=0; ) ok=false e=low 8 f(2: 2 5 ) ok=true e=2");
    EXPECT_EQ(toldOf("ok, e = pcall(error, 'a'); error(e)"),
              "1 error<a> ok=false e=a 1 error<a> -> DovrelScript error: a\n  at ");
    EXPECT_EQ(toldOf("a = 1 +"),
              "1 error<Unexpected end of expression> -> DovrelScript error: Unexpec");
}

/// All programs of this kind come out the same with an observer.
TEST(RunObserver, ChangesNothingThatAScriptSees) {
    const std::string script =
        "decay function f()\n n += 1\n n += 1\nend\nn = 0\nf()\nt = []\nfor i = 1, 4\n t[i] = n\n"
        "end\nr = toString(t)";
    const auto resultOf = [&](bool isObserved) {
        DovrelScript interpreter;
        Recorder recorder(interpreter);
        if (isObserved) interpreter.setObserver(recorder);
        interpreter.runScript(script);
        return interpreter.globalValues[interpreter.globalSlots.at("r")].toString();
    };
    EXPECT_EQ(resultOf(true), resultOf(false));
}

TEST(RunObserver, CanEndTheRun) {
    class Stopper : public RunObserver {
    public:
        void statementBegins(const ParsedScriptLine& line) override {
            if (line.lineNumber == 2) throw ScriptStopped{};
        }
    };
    DovrelScript interpreter;
    Stopper stopper;
    interpreter.setObserver(stopper);
    EXPECT_THROW(interpreter.runScript("a = 1\nwhile true\n a += 1\nend"), ScriptStopped);
}

}  // namespace
