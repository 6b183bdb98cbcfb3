#include "eval/errors.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "interpreter/dovrel_script.h"

#if !defined(__SANITIZE_ADDRESS__)

namespace {
int raised = 0;
}  // namespace

// These stand in front of the library's own and count what is raised, under names that the compiler
// has no declaration for. The sanitizer has its own as well.
[[noreturn, gnu::used]] void countThrow(void* object, void* type,
                                        void (*destroy)(void*)) __asm__("__cxa_throw");
[[noreturn, gnu::used]] void countRethrow() __asm__("__cxa_rethrow");

void countThrow(void* object, void* type, void (*destroy)(void*)) {
    ++raised;
    using Throw = void (*)(void*, void*, void (*)(void*));
    static const auto next = reinterpret_cast<Throw>(dlsym(RTLD_NEXT, "__cxa_throw"));
    next(object, type, destroy);
    std::abort();
}

void countRethrow() {
    ++raised;
    using Rethrow = void (*)();
    static const auto next = reinterpret_cast<Rethrow>(dlsym(RTLD_NEXT, "__cxa_rethrow"));
    next();
    std::abort();
}

#endif

namespace {

constexpr const char* kHint =
    "  hint: check spelling, operators, parentheses, and quote matching\n";

class Errors : public testing::Test {
protected:
    void standAt(const std::string& source, std::size_t lineNumber) {
        source_ = source;
        interpreter_.currentLine = &source_;
        interpreter_.currentLineNumber = lineNumber;
    }
    std::string report(const std::string& message, std::string_view token) {
        try {
            interpreter_.throwError(message, token);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }
    std::string located(const std::string& message, std::string_view fallback) {
        try {
            try {
                throw std::runtime_error(message);
            } catch (const std::exception& error) {
                interpreter_.rethrowLocated(error, fallback);
            }
        } catch (const std::exception& error) {
            return error.what();
        }
        return "";
    }

    DovrelScript interpreter_;
    std::string source_;
};

TEST_F(Errors, AReportHasFiveLines) {
    const std::string name = "main";
    interpreter_.scriptNameStack.push_back(&name);
    standAt("x = foo + 1", 11);
    EXPECT_EQ(report("What happened", "foo"), std::string("DovrelScript error: What happened\n"
                                                          "  at main:12, near token 'foo'\n"
                                                          "  x = foo + 1\n"
                                                          "      ^~~\n") +
                                                  kHint);
}

TEST_F(Errors, WithoutANameTheLineIsNamed) {
    standAt("x", 0);
    EXPECT_EQ(
        report("m", "x"),
        std::string("DovrelScript error: m\n  at line 1, near token 'x'\n  x\n  ^\n") + kHint);
    const std::string empty;
    interpreter_.scriptNameStack.push_back(&empty);
    EXPECT_EQ(
        report("m", "x"),
        std::string("DovrelScript error: m\n  at line 1, near token 'x'\n  x\n  ^\n") + kHint);
}

TEST_F(Errors, TheInnermostScriptIsNamed) {
    const std::string outer = "outer";
    const std::string inner = "inner";
    interpreter_.scriptNameStack.push_back(&outer);
    interpreter_.scriptNameStack.push_back(&inner);
    standAt("x", 4);
    EXPECT_NE(report("m", "x").find("  at inner:5, near token 'x'\n"), std::string::npos);
    interpreter_.scriptNameStack.pop_back();
    EXPECT_NE(report("m", "x").find("  at outer:5, near token 'x'\n"), std::string::npos);
}

TEST_F(Errors, AnEmptyTokenGivesNoClause) {
    standAt("abc", 2);
    EXPECT_EQ(report("m", ""),
              std::string("DovrelScript error: m\n  at line 3\n  abc\n     ^\n") + kHint);
}

TEST_F(Errors, TheEndOfTheFileIsBehindTheText) {
    standAt("abcEOF", 2);
    EXPECT_EQ(
        report("m", "EOF"),
        std::string("DovrelScript error: m\n  at line 3, near token 'EOF'\n  abcEOF\n        ^\n") +
            kHint);
}

TEST_F(Errors, TheFirstOccurrenceIsMarked) {
    standAt("ab + ab", 0);
    EXPECT_NE(report("m", "ab").find("\n  ab + ab\n  ^~\n"), std::string::npos);
    // By bytes: the token may stand inside another word.
    standAt("cab + ab", 0);
    EXPECT_NE(report("m", "ab").find("\n  cab + ab\n   ^~\n"), std::string::npos);
}

TEST_F(Errors, AMissingTokenIsMarkedBehindTheText) {
    standAt("abc", 0);
    EXPECT_EQ(
        report("m", "stale"),
        std::string("DovrelScript error: m\n  at line 1, near token 'stale'\n  abc\n     ^\n") +
            kHint);
}

TEST_F(Errors, WithoutALineTheTextIsEmpty) {
    EXPECT_EQ(
        report("m", "script"),
        std::string("DovrelScript error: m\n  at line 1, near token 'script'\n  \n  ^\n") + kHint);
}

TEST_F(Errors, AMessageMayHaveLines) {
    standAt("x", 0);
    EXPECT_TRUE(report("one\ntwo", "x").starts_with("DovrelScript error: one\ntwo\n  at line 1"));
}

TEST_F(Errors, AReportIsKnownByItsFirstWords) {
    EXPECT_TRUE(isLocatedReport("DovrelScript error:"));
    EXPECT_TRUE(isLocatedReport("DovrelScript error: anything"));
    EXPECT_FALSE(isLocatedReport("DovrelScript error"));
    EXPECT_FALSE(isLocatedReport(" DovrelScript error:"));
    EXPECT_FALSE(isLocatedReport("x DovrelScript error: y"));
    EXPECT_FALSE(isLocatedReport(""));
}

TEST_F(Errors, AReportPassesUnchanged) {
    standAt("x", 0);
    EXPECT_EQ(located("DovrelScript error: as it is", "x"), "DovrelScript error: as it is");
    EXPECT_TRUE(located("bare", "x").starts_with("DovrelScript error: bare\n  at line 1, near "));
}

TEST_F(Errors, TheLastTokenIsNamedBeforeAnyOther) {
    standAt("x y", 0);
    EXPECT_NE(located("bare", "x").find("near token 'x'"), std::string::npos);
    interpreter_.lastToken = "y";
    EXPECT_NE(located("bare", "x").find("near token 'y'"), std::string::npos);
}

TEST_F(Errors, ASoftErrorWithoutProtectionIsRaised) {
    try {
        interpreter_.raiseScriptErrorSoft("message");
        FAIL();
    } catch (const RaisedScriptError& error) {
        EXPECT_STREQ(error.what(), "message");
    }
    EXPECT_FALSE(interpreter_.softErrorPending);
    EXPECT_EQ(interpreter_.softErrorMessage, "");
}

TEST_F(Errors, ASoftErrorUnderProtectionIsRecorded) {
    interpreter_.protectedCallDepths = {1, 4};
    interpreter_.raiseScriptErrorSoft("first");
    EXPECT_TRUE(interpreter_.softErrorPending);
    EXPECT_EQ(interpreter_.softErrorDepth, 4U);
    EXPECT_EQ(interpreter_.softErrorMessage, "first");
    // The first one stands.
    interpreter_.protectedCallDepths.push_back(9);
    interpreter_.raiseScriptErrorSoft("second");
    EXPECT_EQ(interpreter_.softErrorDepth, 4U);
    EXPECT_EQ(interpreter_.softErrorMessage, "first");
}

TEST_F(Errors, UnwindingStopsAtTheProtectedCall) {
    EXPECT_FALSE(interpreter_.softErrorUnwinding());
    interpreter_.callDepth = 6;
    EXPECT_FALSE(interpreter_.softErrorUnwinding());
    interpreter_.protectedCallDepths = {4};
    interpreter_.raiseScriptErrorSoft("m");
    EXPECT_TRUE(interpreter_.softErrorUnwinding());
    interpreter_.callDepth = 5;
    EXPECT_TRUE(interpreter_.softErrorUnwinding());
    interpreter_.callDepth = 4;
    EXPECT_FALSE(interpreter_.softErrorUnwinding());
    interpreter_.callDepth = 3;
    EXPECT_FALSE(interpreter_.softErrorUnwinding());
}

TEST_F(Errors, TheCoroutineSignalIsNoStandardException) {
    EXPECT_TRUE((std::is_base_of_v<std::exception, RaisedScriptError>));
    EXPECT_FALSE((std::is_base_of_v<std::exception, CoroutineTerminated>));
    EXPECT_TRUE(std::is_empty_v<CoroutineTerminated>);
}

// A script leaves nothing behind that a later report could read after it is gone.
TEST_F(Errors, ReportsOutliveTheirScripts) {
    EXPECT_THROW(interpreter_.runScript("x = [1 2]"), std::runtime_error);
    EXPECT_EQ(interpreter_.lastToken, "1");
    EXPECT_TRUE(report("m", interpreter_.lastToken).starts_with("DovrelScript error: m\n"));
    try {
        interpreter_.runScript("y = 1 / 0");
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  std::string("DovrelScript error: Division by zero\n"
                              "  at line 1, near token '1'\n  y = 1 / 0\n      ^\n") +
                      kHint);
    }
}

#if !defined(__SANITIZE_ADDRESS__)

/// How often `source` raises or raises again, above what an empty script does.
int raisedBy(const std::string& source) {
    DovrelScript interpreter;
    const int before = raised;
    interpreter.runScript(source);
    return raised - before;
}

TEST(Faults, UnderAProtectedCallAreRaisedOnce) {
    const std::string calls = "for i = 1, 100\nok, message = pcall(f, i)\nend";
    EXPECT_EQ(raisedBy("function f(n)\nnative x = n\nreturn x + nosuch\nend\n" + calls), 100);
    EXPECT_EQ(raisedBy("function f(n)\nif n > 0\nlocal x = nosuch[1]\nend\nend\n" + calls), 100);
    EXPECT_EQ(raisedBy("function f(n)\nfor k = 1, 2\nx = k \\ 0\nend\nend\n" + calls), 100);
}

TEST(Faults, AreNoneForErrorsOfAScript) {
    EXPECT_EQ(raisedBy("function f(n)\nerror(n)\nend\n"
                       "for i = 1, 100\nok, message = pcall(f, i)\nend"),
              0);
}

#endif

}  // namespace
