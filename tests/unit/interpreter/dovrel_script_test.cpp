#include "interpreter/dovrel_script.h"

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "exec/bytecode_program.h"

namespace {

constexpr const char* kHint =
    "  hint: check spelling, operators, parentheses, and quote matching\n";

/// Heights of the interpreter's stacks, noted by the native `note`.
struct Heights {
    std::size_t directories = 0;
    std::size_t names = 0;
};
Heights noted;

Variable noteHeights(DovrelScript& interpreter, Arguments /*args*/) {
    noted = {interpreter.baseDirectoryStack.size(), interpreter.scriptNameStack.size()};
    return {};
}

Variable throwInt(DovrelScript& /*interpreter*/, Arguments /*args*/) { throw 42; }

Variable throwReport(DovrelScript& /*interpreter*/, Arguments /*args*/) {
    throw std::runtime_error("DovrelScript error: a finished report");
}

Variable throwBare(DovrelScript& /*interpreter*/, Arguments /*args*/) {
    throw std::logic_error("bare DovrelScript error: text");
}

class DovrelScriptObject : public testing::Test {
protected:
    std::shared_ptr<BytecodeProgram> compile(const std::string& source) {
        return std::make_shared<BytecodeProgram>(interpreter.compileToBytecodeInternal(source));
    }
    Variable valueOf(const std::string& source) {
        return interpreter.runBytecodeProgram(compile(source));
    }
    /// The text with which `source` fails; empty if it does not.
    std::string failureOf(const std::string& source) {
        try {
            interpreter.runScript(source);
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }
    std::string programFailureOf(const std::shared_ptr<BytecodeProgram>& program) {
        try {
            interpreter.runBytecodeProgram(program);
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }
    std::string global(const std::string& name) {
        const auto found = interpreter.globalSlots.find(name);
        if (found == interpreter.globalSlots.end()) return "(unset)";
        return interpreter.globalValues.at(found->second).toString();
    }
    void expectUnwound() {
        EXPECT_TRUE(interpreter.baseDirectoryStack.empty());
        EXPECT_TRUE(interpreter.scriptNameStack.empty());
        EXPECT_TRUE(interpreter.frameScopes.empty());
        EXPECT_TRUE(interpreter.blockScopes.empty());
        EXPECT_EQ(interpreter.blockScopeFloor, 0U);
        EXPECT_TRUE(interpreter.varargStack.empty());
        EXPECT_EQ(interpreter.callDepth, 0U);
        EXPECT_TRUE(interpreter.protectedCallDepths.empty());
        EXPECT_FALSE(interpreter.softErrorPending);
        EXPECT_EQ(interpreter.fastCallable, nullptr);
        EXPECT_EQ(interpreter.pendingCoroutineException, nullptr);
        EXPECT_FALSE(interpreter.inCoroutineTurn);
    }

    DovrelScript interpreter;
};

// ------------------------------------------------------------------------- construction

TEST_F(DovrelScriptObject, StartsAtRest) {
    expectUnwound();
    EXPECT_EQ(interpreter.currentLine, nullptr);
    EXPECT_EQ(interpreter.currentLineNumber, 0U);
    EXPECT_TRUE(interpreter.currentLineTextOverride.empty());
    EXPECT_TRUE(interpreter.lastToken.empty());
    EXPECT_EQ(interpreter.lastTokenIndex, 0U);
    EXPECT_TRUE(interpreter.softErrorMessage.empty());
    EXPECT_EQ(interpreter.scheduledCoroutine, nullptr);
    EXPECT_EQ(interpreter.replacementCoroutine, nullptr);
    EXPECT_TRUE(interpreter.scriptFileCache.empty());
}

TEST_F(DovrelScriptObject, RegistersTheLibrary) {
    EXPECT_EQ(global("print"), "[function]");
    EXPECT_NE(global("DOVREL_VERSION"), "(unset)");
    EXPECT_EQ(global("nosuch"), "(unset)");
    EXPECT_GE(interpreter.elapsedMilliseconds(), 0);
}

TEST_F(DovrelScriptObject, SeedsEachGeneratorAnew) {
    DovrelScript other;
    bool differ = false;
    for (int i = 0; i < 4; ++i) {
        differ = differ || interpreter.randomEngine.next() != other.randomEngine.next();
    }
    EXPECT_TRUE(differ);
}

TEST_F(DovrelScriptObject, KeepsItsStateFromOtherObjects) {
    DovrelScript other;
    interpreter.runScript("x = 1");
    EXPECT_EQ(global("x"), "1");
    EXPECT_FALSE(other.globalSlots.contains("x"));
}

// ------------------------------------------------------------------------- values of runs

TEST_F(DovrelScriptObject, GivesTheReturnedValue) {
    EXPECT_EQ(valueOf("return 5").toString(), "5");
    EXPECT_EQ(valueOf("x = 1\nreturn x + 1\nx = 9").toString(), "2");
    EXPECT_TRUE(valueOf("return").isNil());
    const Variable several = valueOf("return 1, \"b\"");
    ASSERT_EQ(several.type, VarType::Multi);
    ASSERT_EQ(several.asMulti()->values.size(), 2U);
    EXPECT_EQ(several.asMulti()->values[1].toString(), "b");
}

TEST_F(DovrelScriptObject, GivesTheValueOfTheLastExpression) {
    EXPECT_EQ(valueOf("5").toString(), "5");
    EXPECT_EQ(valueOf("5\n[1, 2]").toString(), "[1, 2]");
    EXPECT_EQ(valueOf("5\n\n@@ a comment\n").toString(), "5");
    EXPECT_EQ(valueOf("if true\n7\nend").toString(), "7");
    EXPECT_TRUE(valueOf("5\nx = 1").isNil());
    EXPECT_TRUE(valueOf("x = 1").isNil());
    EXPECT_TRUE(valueOf("").isNil());
}

TEST_F(DovrelScriptObject, RunsAProgramTwice) {
    interpreter.runScript("count = 0");
    const auto program = compile("count += 1\ncount");
    EXPECT_EQ(interpreter.runBytecodeProgram(program).toString(), "1");
    EXPECT_EQ(interpreter.runBytecodeProgram(program).toString(), "2");
}

// ------------------------------------------------------------------------- several runs

TEST_F(DovrelScriptObject, DoesNothingForAnEmptyText) {
    EXPECT_NO_THROW(interpreter.runScript(""));
    EXPECT_NO_THROW(interpreter.runScript("\n  \n@@ a comment"));
    expectUnwound();
}

TEST_F(DovrelScriptObject, DropsTheReturnedValueOfAScript) {
    EXPECT_NO_THROW(interpreter.runScript("x = 1\nreturn 5\nx = 2"));
    EXPECT_EQ(global("x"), "1");
}

TEST_F(DovrelScriptObject, KeepsGlobalsBetweenRuns) {
    interpreter.runScript("x = 1");
    interpreter.runScript("x += 41\ny = x");
    EXPECT_EQ(global("y"), "42");
}

TEST_F(DovrelScriptObject, ShowsASecondRunTheGlobalsOfTheFirst) {
    const std::string source = "runs = runs + \"x\"\nif runs == \"notx\"\nfirst = true\nend";
    interpreter.runScript(source);
    EXPECT_EQ(global("runs"), "notx");
    EXPECT_EQ(global("first"), "true");
    interpreter.runScript(source);
    EXPECT_EQ(global("runs"), "notxx");
}

TEST_F(DovrelScriptObject, CallsFunctionsOfAnEarlierRun) {
    interpreter.runScript("function double(n)\nreturn n * 2\nend");
    interpreter.runScript("function sum(a, b)\ntotal = a + b\nreturn total\nend");
    interpreter.runScript("x = double(4)\ny = sum(x, 1)");
    EXPECT_EQ(global("x"), "8");
    EXPECT_EQ(global("y"), "9");
}

TEST_F(DovrelScriptObject, KeepsAProgramAliveForItsFunctionsOnly) {
    auto plain = compile("x = 1");
    const std::weak_ptr<BytecodeProgram> released = plain;
    interpreter.runBytecodeProgram(plain);
    plain.reset();
    EXPECT_TRUE(released.expired());

    auto declaring = compile("function f()\nx = 1\nreturn x\nend");
    const std::weak_ptr<BytecodeProgram> held = declaring;
    interpreter.runBytecodeProgram(declaring);
    declaring.reset();
    EXPECT_FALSE(held.expired());
    interpreter.runScript("y = f()");
    EXPECT_EQ(global("y"), "1");
}

// ------------------------------------------------------------------------- failures

TEST_F(DovrelScriptObject, LocatesABareFailure) {
    interpreter.pushFunction("bare", throwBare);
    EXPECT_EQ(failureOf("x = 1\nbare()"),
              std::string("DovrelScript error: bare DovrelScript error: text\n"
                          "  at line 2, near token 'bare'\n"
                          "  bare()\n"
                          "  ^~~~\n") +
                  kHint);
}

TEST_F(DovrelScriptObject, LeavesAFinishedReportAlone) {
    interpreter.pushFunction("report", throwReport);
    EXPECT_EQ(failureOf("report()"), "DovrelScript error: a finished report");
}

TEST_F(DovrelScriptObject, LocatesAFailureOfTheFrontEnd) {
    EXPECT_EQ(failureOf("x = 1\nif x\ny = 2"),
              std::string("DovrelScript error: Missing 'end' for if block\n"
                          "  at line 1, near token 'script'\n"
                          "  y = 2\n"
                          "       ^\n") +
                  kHint);
    EXPECT_EQ(global("x"), "(unset)");
}

TEST_F(DovrelScriptObject, NamesTheLastTokenOfAnEarlierRun) {
    interpreter.runScript("x = [1] == alpha");
    EXPECT_EQ(interpreter.lastToken, "alpha");
    EXPECT_EQ(failureOf("while alphabet"),
              std::string("DovrelScript error: Missing 'end' for while block\n"
                          "  at line 1, near token 'alpha'\n"
                          "  while alphabet\n"
                          "        ^~~~~\n") +
                  kHint);
}

TEST_F(DovrelScriptObject, ReportsABreakAtTheTopOfAScript) {
    EXPECT_EQ(failureOf("x = 1\nbreak\nx = 2"),
              std::string("DovrelScript error: break used outside a loop\n"
                          "  at line 2, near token 'script'\n"
                          "  break\n"
                          "       ^\n") +
                  kHint);
    EXPECT_EQ(global("x"), "1");
}

TEST_F(DovrelScriptObject, GivesTheBareMessageForABreakAtTheTopOfAProgram) {
    EXPECT_EQ(programFailureOf(compile("x = 1\nif x\nbreak\nend\nx = 2")),
              "break used outside a loop");
    EXPECT_EQ(global("x"), "1");
}

TEST_F(DovrelScriptObject, LocatesFailuresInsideAProgram) {
    EXPECT_EQ(programFailureOf(compile("\nnosuch()")),
              std::string("DovrelScript error: Attempted to call a non-function value of type not\n"
                          "  at line 2, near token 'nosuch'\n"
                          "  nosuch()\n"
                          "  ^~~~~~\n") +
                  kHint);
}

TEST_F(DovrelScriptObject, LetsOtherExceptionsThrough) {
    interpreter.pushFunction("other", throwInt);
    EXPECT_THROW(interpreter.runScript("local x = 1\nother()"), int);
    expectUnwound();
    EXPECT_THROW(interpreter.runScript("function f(a, ...)\nlocal b\nother()\nend\nf(1, 2)"), int);
    expectUnwound();
    EXPECT_THROW(interpreter.runScript("for i = 1, 2\nlocal y = other()\nend"), int);
    expectUnwound();
}

TEST_F(DovrelScriptObject, UnwindsEverythingAfterAFailure) {
    for (const std::string source :
         {"nosuch()", "local x = 1\nnosuch()", "for i = 1, 3\nlocal y = i\nnosuch()\nend",
          "for k, v in pairs({a: 1})\nwhile true\nnosuch()\nend\nend",
          "function f(a, ...)\nlocal b = 1\nreturn nosuch()\nend\nf(1, 2, 3)",
          "function g(a)\nreturn a / 0\nend\nx = g(1)\ny = [g(1)]",
          "function h(n)\nif n == 0\nerror(\"deep\")\nend\nh(n - 1)\nend\nh(20)",
          "function p()\nx = 1\nnosuch()\nend\npcall(p)\nnosuch()",
          "function q()\nx = 1\nerror(\"soft\")\nend\npcall(q)\nerror(\"hard\")",
          "f = load(\"local z = 1\\nnosuch()\", \"named\")\nf()", "dofile(\"nosuch.dv\")",
          "load(\"if x\", \"named\")\nx = 1\nbreak", "x = \"open", "if x", "break",
          "function c(a, b)\nd = a\nreturn nosuch()\nend\ntable[\"sort\"]([2, 1], c)"}) {
        EXPECT_NE(failureOf(source), "") << source;
        expectUnwound();
    }
}

TEST_F(DovrelScriptObject, RunsOnAfterAFailure) {
    EXPECT_NE(failureOf("x = 1\nlocal y = nosuch()"), "");
    interpreter.runScript("x += 1");
    EXPECT_EQ(global("x"), "2");
    EXPECT_NE(failureOf("z = \"open"), "");
    interpreter.runScript("x += 1");
    EXPECT_EQ(global("x"), "3");
}

TEST_F(DovrelScriptObject, RunsAnEmptyTextAfterAFailure) {
    // The line of the failure is gone with its program; nothing may look at it any more.
    EXPECT_NE(failureOf("nosuch(\"a text that does not fit into the string object itself\")"), "");
    EXPECT_NO_THROW(interpreter.runScript(""));
    EXPECT_NE(failureOf("nosuch(\"a text that does not fit into the string object itself\")"), "");
    EXPECT_NO_THROW(interpreter.runScript("\n"));
    EXPECT_NE(programFailureOf(compile("nosuch(\"a text that does not fit into the string\")")),
              "");
    EXPECT_NO_THROW(interpreter.runScript("@@ a comment"));
    EXPECT_NE(programFailureOf(compile("nosuch(\"a text that does not fit into the string\")")),
              "");
    EXPECT_THROW(interpreter.throwError("message", "token"), std::runtime_error);
}

TEST_F(DovrelScriptObject, RunsAnEmptyTextAfterAProgramThatIsGone) {
    EXPECT_EQ(valueOf("\"a text that does not fit into the string object itself\"; 7").toString(),
              "7");
    EXPECT_NO_THROW(interpreter.runScript(""));
    EXPECT_EQ(valueOf("\"a text that does not fit into the string object itself\"").type,
              VarType::String);
    EXPECT_THROW(interpreter.throwError("message", "token"), std::runtime_error);
}

// ------------------------------------------------------------------------- names of programs

TEST_F(DovrelScriptObject, PushesTheNamesThatAProgramHas) {
    interpreter.pushFunction("note", noteHeights);
    const auto program = compile("note()");
    interpreter.runBytecodeProgram(program);
    EXPECT_EQ(noted.directories, 0U);
    EXPECT_EQ(noted.names, 0U);

    program->baseDirectory = "/scripts";
    interpreter.runBytecodeProgram(program);
    EXPECT_EQ(noted.directories, 1U);
    EXPECT_EQ(noted.names, 0U);

    program->baseDirectory.clear();
    program->scriptName = "main.dv";
    interpreter.runBytecodeProgram(program);
    EXPECT_EQ(noted.directories, 0U);
    EXPECT_EQ(noted.names, 1U);
    expectUnwound();
}

TEST_F(DovrelScriptObject, NamesTheProgramInReports) {
    const auto program = compile("x = 1\nnosuch()");
    program->scriptName = "main.dv";
    EXPECT_NE(programFailureOf(program).find("\n  at main.dv:2, near token 'nosuch'\n"),
              std::string::npos);
    expectUnwound();
}

TEST_F(DovrelScriptObject, PopsTheNamesOnEveryWayOut) {
    interpreter.pushFunction("other", throwInt);
    for (const std::string source : {"x = 1", "nosuch()", "break", "return 1", "error(\"e\")"}) {
        const auto program = compile(source);
        program->baseDirectory = "/scripts";
        program->scriptName = "main.dv";
        static_cast<void>(programFailureOf(program));
        expectUnwound();
    }
    const auto program = compile("other()");
    program->baseDirectory = "/scripts";
    program->scriptName = "main.dv";
    EXPECT_THROW(interpreter.runBytecodeProgram(program), int);
    expectUnwound();
}

TEST_F(DovrelScriptObject, LeavesTheNamesBelowAlone) {
    const std::string directory = "/outer";
    const std::string name = "outer.dv";
    interpreter.baseDirectoryStack = {&directory};
    interpreter.scriptNameStack = {&name};
    EXPECT_NE(failureOf("nosuch()").find("\n  at outer.dv:1, near"), std::string::npos);
    EXPECT_EQ(interpreter.baseDirectoryStack, (std::vector<const std::string*>{&directory}));
    EXPECT_EQ(interpreter.scriptNameStack, (std::vector<const std::string*>{&name}));
    interpreter.baseDirectoryStack.clear();
    interpreter.scriptNameStack.clear();
}

TEST_F(DovrelScriptObject, GivesAScriptNoNameFromEmptyStacks) {
    const auto program = compile("x = 1");
    EXPECT_EQ(program->baseDirectory, "");
    EXPECT_EQ(program->scriptName, "");
}

// ------------------------------------------------------------------------- pending errors

TEST_F(DovrelScriptObject, RaisesAPendingErrorOnce) {
    EXPECT_NO_THROW(interpreter.rethrowPendingCoroutineException());
    interpreter.pendingCoroutineException = std::make_exception_ptr(std::runtime_error("waiting"));
    interpreter.noteAttention();
    EXPECT_THROW(interpreter.rethrowPendingCoroutineException(), std::runtime_error);
    EXPECT_EQ(interpreter.pendingCoroutineException, nullptr);
    EXPECT_NO_THROW(interpreter.rethrowPendingCoroutineException());
}

TEST_F(DovrelScriptObject, RaisesAPendingErrorAtTheEndOfARun) {
    const auto program = compile("");
    program->baseDirectory = "/scripts";
    program->scriptName = "main.dv";
    interpreter.pendingCoroutineException = std::make_exception_ptr(std::runtime_error("waiting"));
    interpreter.noteAttention();
    EXPECT_EQ(programFailureOf(program), "waiting");
    expectUnwound();
}

TEST_F(DovrelScriptObject, LocatesAPendingErrorAtTheEndOfAScript) {
    interpreter.pendingCoroutineException = std::make_exception_ptr(std::runtime_error("waiting"));
    interpreter.noteAttention();
    EXPECT_EQ(failureOf(""), std::string("DovrelScript error: waiting\n"
                                         "  at line 1, near token 'script'\n"
                                         "  \n"
                                         "  ^\n") +
                                 kHint);
    expectUnwound();
}

TEST_F(DovrelScriptObject, RaisesAPendingErrorBeforeTheNextStatement) {
    interpreter.runScript("x = 1");
    interpreter.pendingCoroutineException = std::make_exception_ptr(std::runtime_error("waiting"));
    interpreter.noteAttention();
    EXPECT_NE(failureOf("x = 2\nx = 3").find("DovrelScript error: waiting\n"), std::string::npos);
    EXPECT_EQ(global("x"), "1");
}

TEST_F(DovrelScriptObject, DropsAPendingErrorWithTheObject) {
    DovrelScript other;
    other.pendingCoroutineException = std::make_exception_ptr(std::runtime_error("waiting"));
    other.noteAttention();
}

// ------------------------------------------------------------------------- reports

TEST_F(DovrelScriptObject, LaysAReportOutByItsToken) {
    const std::string line = "alpha = beta + beta";
    const auto report = [&](const std::string& message, const std::string& token) {
        interpreter.currentLine = &line;
        interpreter.currentLineNumber = 11;
        try {
            interpreter.throwError(message, token);
        } catch (const std::runtime_error& error) {
            interpreter.currentLine = nullptr;
            return std::string(error.what());
        }
    };
    EXPECT_EQ(report("m", "beta"), std::string("DovrelScript error: m\n"
                                               "  at line 12, near token 'beta'\n"
                                               "  alpha = beta + beta\n"
                                               "          ^~~~\n") +
                                       kHint);
    EXPECT_EQ(report("m", "+"), std::string("DovrelScript error: m\n"
                                            "  at line 12, near token '+'\n"
                                            "  alpha = beta + beta\n"
                                            "               ^\n") +
                                    kHint);
    // No token: no clause, and the caret stands behind the text.
    EXPECT_EQ(report("m", ""), std::string("DovrelScript error: m\n"
                                           "  at line 12\n"
                                           "  alpha = beta + beta\n"
                                           "                     ^\n") +
                                   kHint);
    EXPECT_EQ(report("", "EOF"), std::string("DovrelScript error: \n"
                                             "  at line 12, near token 'EOF'\n"
                                             "  alpha = beta + beta\n"
                                             "                     ^\n") +
                                     kHint);
    EXPECT_EQ(report("m", "gamma"), std::string("DovrelScript error: m\n"
                                                "  at line 12, near token 'gamma'\n"
                                                "  alpha = beta + beta\n"
                                                "                     ^\n") +
                                        kHint);
}

TEST_F(DovrelScriptObject, PutsTheCaretOfEofBehindTheLine) {
    const std::string line = "EOF = 1 +";
    interpreter.currentLine = &line;
    try {
        interpreter.throwError("m", "EOF");
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("\n  EOF = 1 +\n           ^\n"),
                  std::string::npos)
            << error.what();
    }
    interpreter.currentLine = nullptr;
}

TEST_F(DovrelScriptObject, UnderlinesATokenThatIsTheWholeLine) {
    const std::string line = "until";
    interpreter.currentLine = &line;
    try {
        interpreter.throwError("m", "until");
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("\n  until\n  ^~~~~\n"), std::string::npos);
    }
    interpreter.currentLine = nullptr;
}

TEST_F(DovrelScriptObject, NamesNoScriptForAnEmptyName) {
    const std::string empty;
    interpreter.scriptNameStack = {&empty};
    try {
        interpreter.throwError("m", "t");
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("\n  at line 1, near"), std::string::npos);
    }
    interpreter.scriptNameStack.clear();
}

// ------------------------------------------------------------------------- soft errors

TEST_F(DovrelScriptObject, RaisesAnErrorOutsideAProtectedCall) {
    EXPECT_THROW(interpreter.raiseScriptErrorSoft("hard"), std::exception);
    EXPECT_FALSE(interpreter.softErrorPending);
    EXPECT_TRUE(interpreter.softErrorMessage.empty());
}

TEST_F(DovrelScriptObject, RecordsTheFirstErrorInsideAProtectedCall) {
    interpreter.protectedCallDepths = {0, 3};
    EXPECT_NO_THROW(interpreter.raiseScriptErrorSoft("first"));
    interpreter.protectedCallDepths = {0, 5};
    EXPECT_NO_THROW(interpreter.raiseScriptErrorSoft("second"));
    EXPECT_TRUE(interpreter.softErrorPending);
    EXPECT_EQ(interpreter.softErrorDepth, 3U);
    EXPECT_EQ(interpreter.softErrorMessage, "first");

    interpreter.callDepth = 4;
    EXPECT_TRUE(interpreter.softErrorUnwinding());
    interpreter.callDepth = 3;
    EXPECT_FALSE(interpreter.softErrorUnwinding());
    interpreter.callDepth = 4;
    interpreter.softErrorPending = false;
    interpreter.noteAttention();
    EXPECT_FALSE(interpreter.softErrorUnwinding());
}

}  // namespace
