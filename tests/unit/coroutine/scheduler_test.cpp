#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "coroutine/coroutine_state.h"
#include "interpreter/dovrel_script.h"

namespace {

/// What the scripts' native `probe` does.
std::function<void(DovrelScript&)>& onProbe() {
    static std::function<void(DovrelScript&)> action;
    return action;
}

Variable probeFunction(DovrelScript& interpreter, Arguments) {
    if (onProbe()) onProbe()(interpreter);
    return {};
}

/// The fields that a turn exchanges, as far as they can be compared.
struct FlowSnapshot {
    std::size_t frameScopes = 0;
    std::size_t blockScopes = 0;
    std::size_t blockScopeFloor = 0;
    std::vector<const std::string*> baseDirectoryStack;
    std::vector<const std::string*> scriptNameStack;
    std::size_t varargStack = 0;
    std::uint64_t callDepth = 0;
    std::vector<std::uint64_t> protectedCallDepths;
    bool softErrorPending = false;
    std::uint64_t softErrorDepth = 0;
    std::string softErrorMessage;
    const ScriptCallable* fastCallable = nullptr;
    std::size_t fastArgCount = 0;
    std::size_t currentLineNumber = 0;
    std::size_t lastTokenIndex = 0;
    std::string currentLine;
    std::string currentLineTextOverride;

    explicit FlowSnapshot(const DovrelScript& interpreter)
        : frameScopes(interpreter.frameScopes.size()),
          blockScopes(interpreter.blockScopes.size()),
          blockScopeFloor(interpreter.blockScopeFloor),
          baseDirectoryStack(interpreter.baseDirectoryStack),
          scriptNameStack(interpreter.scriptNameStack),
          varargStack(interpreter.varargStack.size()),
          callDepth(interpreter.callDepth),
          protectedCallDepths(interpreter.protectedCallDepths),
          softErrorPending(interpreter.softErrorPending),
          softErrorDepth(interpreter.softErrorDepth),
          softErrorMessage(interpreter.softErrorMessage),
          fastCallable(interpreter.fastCallable),
          fastArgCount(interpreter.fastArgs.size()),
          currentLineNumber(interpreter.currentLineNumber),
          lastTokenIndex(interpreter.lastTokenIndex),
          currentLine(interpreter.currentLine != nullptr ? *interpreter.currentLine : ""),
          currentLineTextOverride(interpreter.currentLineTextOverride) {}

    bool operator==(const FlowSnapshot&) const = default;
};

class Scheduler : public testing::Test {
protected:
    Scheduler() {
        onProbe() = nullptr;
        interpreter.pushFunction("probe", probeFunction);
    }
    ~Scheduler() override { onProbe() = nullptr; }

    /// Gives every exchanged field of the main flow a value that no coroutine starts with.
    void occupyMainFlow() {
        for (int i = 0; i < 3; ++i) interpreter.frameScopes.push(1);
        for (int i = 0; i < 4; ++i) interpreter.blockScopes.push(4);
        interpreter.blockScopeFloor = 2;
        interpreter.baseDirectoryStack = {&directory};
        interpreter.scriptNameStack = {&name, &name};
        interpreter.varargStack = {{Variable::makeInt(1)}, {}};
        interpreter.callDepth = 7;
        interpreter.protectedCallDepths = {3, 5};
        interpreter.softErrorPending = true;
        interpreter.noteAttention();
        interpreter.softErrorDepth = 3;
        interpreter.softErrorMessage = "on its way";
        interpreter.fastCallable = &callable;
        interpreter.fastArgs = arguments;
        interpreter.currentLineNumber = 41;
        interpreter.lastTokenIndex = 9;
        interpreter.currentLine = &lineText;
        interpreter.currentLineTextOverride = "shown instead";
        interpreter.lastToken = "stale";
    }
    /// Runs a turn that must leave the main flow as it was.
    void turnThatRestores() {
        const FlowSnapshot before(interpreter);
        try {
            interpreter.serviceScheduledCoroutineTurn();
        } catch (...) {
            expectAtRest(before);
            throw;
        }
        expectAtRest(before);
    }
    void expectAtRest(const FlowSnapshot& before) {
        EXPECT_EQ(FlowSnapshot(interpreter), before);
        EXPECT_FALSE(interpreter.inCoroutineTurn);
        EXPECT_FALSE(interpreter.coroutineTurnEnded);
        EXPECT_EQ(interpreter.replacementCoroutine, nullptr);
    }
    [[nodiscard]] int global(const std::string& wanted) {
        return interpreter.globalValues[interpreter.globalSlots.at(wanted)].asInt();
    }

    const std::string directory = "main directory";
    const std::string name = "main script";
    const std::string lineText = "the main flow's line";
    const ScriptCallable callable;
    const std::vector<Variable> values{Variable::makeInt(1), Variable::makeInt(2)};
    const Arguments arguments{values};
    DovrelScript interpreter;
};

TEST_F(Scheduler, ATurnExchangesTheStateOfTheFlow) {
    interpreter.runScript("decay function f(a, b)\nprobe()\nprobe()\nend\nf(1, 2)");
    occupyMainFlow();
    std::unique_ptr<FlowSnapshot> inside;
    onProbe() = [&](DovrelScript& running) {
        inside = std::make_unique<FlowSnapshot>(running);
        EXPECT_TRUE(running.inCoroutineTurn);
        EXPECT_TRUE(running.lastToken.empty());
    };
    turnThatRestores();

    ASSERT_NE(inside, nullptr);
    EXPECT_EQ(inside->frameScopes, 1U);
    EXPECT_EQ(inside->blockScopes, 1U);
    EXPECT_EQ(inside->blockScopeFloor, 0U);
    EXPECT_TRUE(inside->baseDirectoryStack.empty());
    EXPECT_TRUE(inside->scriptNameStack.empty());
    EXPECT_EQ(inside->varargStack, 0U);
    EXPECT_EQ(inside->callDepth, 1U);  // the call of the probe
    EXPECT_TRUE(inside->protectedCallDepths.empty());
    EXPECT_FALSE(inside->softErrorPending);
    EXPECT_EQ(inside->softErrorDepth, 0U);
    EXPECT_TRUE(inside->softErrorMessage.empty());
    EXPECT_EQ(inside->fastCallable, nullptr);
    EXPECT_EQ(inside->fastArgCount, 0U);
    EXPECT_EQ(inside->currentLineNumber, 2U);
    EXPECT_EQ(inside->currentLine, "probe()");
    EXPECT_TRUE(inside->currentLineTextOverride.empty());
    EXPECT_EQ(inside->lastTokenIndex, 0U);
}

TEST_F(Scheduler, TheStateOfTheCoroutineIsKeptFromTurnToTurn) {
    interpreter.runScript(
        "decay function f(a, ...)\nlocal x = a\nnative y = x\nprobe()\nend\nf(1, 2, 3)");
    interpreter.serviceScheduledCoroutineTurn();
    occupyMainFlow();
    bool probed = false;
    onProbe() = [&](DovrelScript& running) {
        probed = true;
        EXPECT_EQ(running.frameScopes.size(), 1U);
        EXPECT_EQ(running.frameScopes.back().size(), 2U);  // a, y
        EXPECT_EQ(running.blockScopes.back().size(), 1U);  // x
        ASSERT_EQ(running.varargStack.size(), 1U);
        EXPECT_EQ(running.varargStack[0].size(), 2U);
    };
    turnThatRestores();
    EXPECT_TRUE(probed);
}

TEST_F(Scheduler, ATurnLeavesEverythingElseInPlace) {
    interpreter.runScript("decay function f()\nlist = [7]\nend\nlist = [8]\nx = 1\nf()");
    // The last token is not exchanged: what the turn has left stays.
    EXPECT_EQ(interpreter.lastToken, "]");
    interpreter.lastToken = "stale";
    interpreter.runScript("f()");
    EXPECT_EQ(interpreter.lastToken, "]");
    EXPECT_EQ(global("x"), 1);
}

TEST_F(Scheduler, StartMakesAStateOfItsOwn) {
    interpreter.runScript("decay function f(a, b, ...)\nx = 1\ny = 2\nend");
    const auto body = interpreter.globalValues[interpreter.globalSlots.at("f")].asFunction();
    body->baseDirectory = "lib";
    body->scriptName = "lib/f.dv";
    const std::vector<Variable> given{Variable::makeInt(1)};
    interpreter.startCoroutine(body, Arguments(given));

    const std::shared_ptr<CoroutineState> state = interpreter.scheduledCoroutine;
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->callable, body);
    ASSERT_EQ(state->flow.frameScopes.size(), 1U);
    const Scope& parameters = state->flow.frameScopes[0];
    ASSERT_EQ(parameters.size(), 2U);
    EXPECT_EQ(parameters[0].name->text, "a");
    EXPECT_EQ(parameters[0].value.asInt(), 1);
    EXPECT_EQ(parameters[1].name->text, "b");
    EXPECT_TRUE(parameters[1].value.isNil());
    ASSERT_EQ(state->flow.varargStack.size(), 1U);
    EXPECT_TRUE(state->flow.varargStack[0].empty());
    ASSERT_EQ(state->flow.baseDirectoryStack.size(), 1U);
    EXPECT_EQ(*state->flow.baseDirectoryStack[0], "lib");
    ASSERT_EQ(state->flow.scriptNameStack.size(), 1U);
    EXPECT_EQ(*state->flow.scriptNameStack[0], "lib/f.dv");
    ASSERT_EQ(state->flow.blockScopes.size(), 1U);
    EXPECT_TRUE(state->flow.blockScopes[0].empty());
    EXPECT_EQ(state->flow.callDepth, 0U);
    ASSERT_EQ(state->frames.size(), 1U);
    const CoroutineFrame& frame = state->frames[0];
    EXPECT_EQ(frame.kind, CoroutineFrameKind::Block);
    EXPECT_EQ(frame.nextLine, 0U);
    EXPECT_EQ(frame.endLine, 2U);
    EXPECT_TRUE(frame.ownsBlockScope);
    EXPECT_EQ(frame.savedBlockScopeCount, 0U);
    EXPECT_EQ(frame.savedBlockScopeFloor, 0U);
}

TEST_F(Scheduler, ReplacementReleasesTheFirstAtOnce) {
    interpreter.runScript("decay function f()\nx = 1\nx = 2\nend\nf()");
    const std::weak_ptr<CoroutineState> first = interpreter.scheduledCoroutine;
    ASSERT_FALSE(first.expired());
    interpreter.runScript("f()");
    EXPECT_TRUE(first.expired());
    EXPECT_NE(interpreter.scheduledCoroutine, nullptr);
}

TEST_F(Scheduler, AFinishedCoroutineIsReleased) {
    interpreter.runScript("decay function f()\nx = 1\nend\nf()");
    EXPECT_NE(interpreter.scheduledCoroutine, nullptr);
    turnThatRestores();
    EXPECT_EQ(interpreter.scheduledCoroutine, nullptr);
}

constexpr const char* kDeepFunction =
    "function deep(action, ...)\n"
    "local a = 1\n"
    "for i = 1, 2\n"
    "for k, v in pairs([1])\n"
    "ok = pcall(action, 1)\n"
    "end\nend\nend\n";

TEST_F(Scheduler, KillDeepInsideRestoresTheMainFlow) {
    interpreter.runScript(std::string(kDeepFunction) +
                          "function stop()\nlocal b = 1\nkill()\nend\n"
                          "decay function f()\nx = 1\ndeep(stop, 1, 2)\nend\nf()");
    occupyMainFlow();
    turnThatRestores();
    EXPECT_EQ(interpreter.scheduledCoroutine, nullptr);
}

TEST_F(Scheduler, StartDeepInsideRestoresTheMainFlow) {
    interpreter.runScript(std::string(kDeepFunction) +
                          "decay function g(n)\nx = n\nend\n"
                          "decay function f()\nx = 5\ndeep(g, 1, 2)\nend\nf()");
    const std::weak_ptr<CoroutineState> first = interpreter.scheduledCoroutine;
    occupyMainFlow();
    turnThatRestores();
    EXPECT_TRUE(first.expired());
    ASSERT_NE(interpreter.scheduledCoroutine, nullptr);
    EXPECT_EQ(interpreter.scheduledCoroutine->callable->name, "g");
    EXPECT_EQ(global("x"), 5);
    turnThatRestores();
    EXPECT_EQ(global("x"), 1);
}

TEST_F(Scheduler, AFailureDeepInsideRestoresTheMainFlow) {
    interpreter.runScript(
        "function deep(...)\nlocal a = 1\nfor i = 1, 2\nfor k, v in pairs([1])\n"
        "x = nil + 1\nend\nend\nend\n"
        "decay function f()\nx = 1\ndeep(1, 2)\nend\nf()");
    occupyMainFlow();
    EXPECT_THROW(turnThatRestores(), std::runtime_error);
    EXPECT_EQ(interpreter.scheduledCoroutine, nullptr);
}

TEST_F(Scheduler, AForeignExceptionPassesAndRestoresTheMainFlow) {
    interpreter.runScript(std::string(kDeepFunction) +
                          "decay function f()\nx = 1\ndeep(probe)\nend\nf()");
    occupyMainFlow();
    onProbe() = [](DovrelScript&) { throw 5; };
    EXPECT_THROW(turnThatRestores(), int);
    EXPECT_EQ(interpreter.scheduledCoroutine, nullptr);
}

TEST_F(Scheduler, TheHookParksAFailure) {
    interpreter.runScript("decay function f()\nx = 1\nx = nil + 1\nend\nf()");
    interpreter.runTurnHook();
    EXPECT_NE(interpreter.pendingCoroutineException, nullptr);
    EXPECT_EQ(interpreter.scheduledCoroutine, nullptr);
    EXPECT_THROW(interpreter.rethrowPendingCoroutineException(), std::runtime_error);
    EXPECT_EQ(interpreter.pendingCoroutineException, nullptr);
    interpreter.rethrowPendingCoroutineException();
}

TEST_F(Scheduler, TheHookGivesNoTurnWhileAFailureWaits) {
    interpreter.runScript("decay function f()\nx = 1\nx = 2\nend\nf()");
    interpreter.pendingCoroutineException = std::make_exception_ptr(std::runtime_error("waiting"));
    interpreter.noteAttention();
    interpreter.runTurnHook();
    EXPECT_EQ(global("x"), 1);
    interpreter.pendingCoroutineException = nullptr;
    interpreter.noteAttention();
    interpreter.runTurnHook();
    EXPECT_EQ(global("x"), 2);
}

TEST_F(Scheduler, TheHookGivesNoTurnInsideATurn) {
    interpreter.runScript("decay function f()\nx = 1\nx = 2\nend\nf()");
    interpreter.inCoroutineTurn = true;
    interpreter.runTurnHook();
    EXPECT_EQ(global("x"), 1);
    interpreter.inCoroutineTurn = false;
}

TEST_F(Scheduler, ServiceWithNoCoroutineDoesNothing) {
    const FlowSnapshot before(interpreter);
    interpreter.lastToken = "kept";
    interpreter.serviceScheduledCoroutineTurn();
    EXPECT_EQ(FlowSnapshot(interpreter), before);
    EXPECT_EQ(interpreter.lastToken, "kept");
}

TEST_F(Scheduler, AWaitingFailureIsDroppedWithTheInterpreter) {
    auto other = std::make_unique<DovrelScript>();
    other->runScript("decay function f()\nx = 1\nx = nil + 1\nend\nf()");
    other->runTurnHook();
    ASSERT_NE(other->pendingCoroutineException, nullptr);
    other.reset();
}

TEST_F(Scheduler, AScheduledCoroutineGoesWithTheInterpreter) {
    auto other = std::make_unique<DovrelScript>();
    other->runScript("decay function f(a)\nlocal b = a\nx = 1\nend\nf(1)");
    const std::weak_ptr<CoroutineState> state = other->scheduledCoroutine;
    ASSERT_FALSE(state.expired());
    other.reset();
    EXPECT_TRUE(state.expired());
}

}  // namespace
