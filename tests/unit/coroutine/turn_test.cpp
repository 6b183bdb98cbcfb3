#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "coroutine/coroutine_state.h"
#include "interpreter/dovrel_script.h"

namespace {

using Kind = CoroutineFrameKind;

class Turn : public testing::Test {
protected:
    /// Schedules a coroutine whose block links count from the start of its body.
    std::shared_ptr<CoroutineState> start(const std::string& body) {
        auto callable = Shared<ScriptCallable>::make();
        callable->isDecay = true;
        callable->bodyLines =
            std::make_shared<const std::vector<ParsedScriptLine>>(interpreter.parseLines(body));
        interpreter.startCoroutine(callable, {});
        return interpreter.scheduledCoroutine;
    }
    void turn() { interpreter.serviceScheduledCoroutineTurn(); }
    void turnFails(const std::string& message) {
        try {
            turn();
            ADD_FAILURE() << "no failure: " << message;
        } catch (const std::runtime_error& error) {
            EXPECT_TRUE(std::string(error.what()).starts_with("DovrelScript error: " + message))
                << error.what();
        }
    }
    [[nodiscard]] bool finished() const { return interpreter.scheduledCoroutine == nullptr; }
    static std::vector<Kind> kindsOf(const CoroutineState& state) {
        std::vector<Kind> kinds;
        for (const CoroutineFrame& frame : state.frames) kinds.push_back(frame.kind);
        return kinds;
    }
    template <typename Scopes>
    static void empty(Scopes& scopes) {
        scopes = Scopes();
    }

    DovrelScript interpreter;
};

TEST_F(Turn, AStatementMovesTheBlockFrameByOne) {
    const auto state = start("x = 1\n\nx = 2\n");
    turn();
    ASSERT_EQ(kindsOf(*state), (std::vector{Kind::Block}));
    EXPECT_EQ(state->frames[0].nextLine, 1U);
    turn();
    EXPECT_EQ(state->frames[0].nextLine, 3U);
    EXPECT_FALSE(finished());
    turn();
    EXPECT_TRUE(finished());
    EXPECT_TRUE(state->frames.empty());
    EXPECT_TRUE(state->flow.blockScopes.empty());
}

TEST_F(Turn, AnEmptyBodyIsFinishedAtOnce) {
    start("");
    turn();
    EXPECT_TRUE(finished());
    start("\n\n");
    turn();
    EXPECT_TRUE(finished());
}

TEST_F(Turn, NothingToRunIsFinished) {
    CoroutineState noCallable;
    noCallable.frames.emplace_back();
    EXPECT_TRUE(interpreter.executeCoroutineTurn(noCallable));
    const auto noFrames = start("x = 1");
    noFrames->frames.clear();
    EXPECT_TRUE(interpreter.executeCoroutineTurn(*noFrames));
}

TEST_F(Turn, AnIfPushesItsBranch) {
    const auto state = start("if false\nx = 1\nelseif true\nx = 2\nelse\nx = 3\nend\nx = 4");
    turn();
    ASSERT_EQ(kindsOf(*state), (std::vector{Kind::Block, Kind::Block}));
    EXPECT_EQ(state->frames[0].nextLine, 7U);
    EXPECT_EQ(state->frames[1].nextLine, 4U);
    EXPECT_EQ(state->frames[1].endLine, 4U);
    EXPECT_TRUE(state->frames[1].ownsBlockScope);
    EXPECT_EQ(state->frames[1].savedBlockScopeCount, 1U);
    EXPECT_EQ(state->flow.blockScopes.size(), 2U);
    turn();
    EXPECT_EQ(kindsOf(*state), (std::vector{Kind::Block}));
    EXPECT_EQ(state->flow.blockScopes.size(), 1U);
}

TEST_F(Turn, AnEmptyBranchPushesNothing) {
    const auto state = start("if true\nelse\nx = 1\nend\nx = 2");
    turn();
    EXPECT_EQ(kindsOf(*state), (std::vector{Kind::Block}));
    EXPECT_EQ(state->frames[0].nextLine, 5U);
}

TEST_F(Turn, AWhilePushesALoopFrameAndABody) {
    const auto state = start("while n < 2\nn += 1\nend\nn = 9");
    interpreter.pushVariable("n", Variable::makeInt(0));
    turn();
    ASSERT_EQ(kindsOf(*state), (std::vector{Kind::Block, Kind::While, Kind::Block}));
    EXPECT_EQ(state->frames[0].nextLine, 3U);
    EXPECT_EQ(state->frames[1].headerLine, 0U);
    EXPECT_EQ(state->frames[1].bodyFirstLine, 1U);
    EXPECT_EQ(state->frames[1].bodyEndLine, 2U);
    EXPECT_EQ(state->flow.frameScopes.size(), 1U);
    turn();
    EXPECT_EQ(state->frames.size(), 3U);
    turn();
    EXPECT_EQ(kindsOf(*state), (std::vector{Kind::Block}));
    EXPECT_EQ(state->flow.blockScopes.size(), 1U);
}

TEST_F(Turn, ARepeatRemembersThatItsBodyHasRun) {
    const auto state = start("repeat\nn += 1\nuntil n == 2\nn = 9");
    interpreter.pushVariable("n", Variable::makeInt(0));
    turn();
    ASSERT_EQ(kindsOf(*state), (std::vector{Kind::Block, Kind::Repeat, Kind::Block}));
    EXPECT_EQ(state->frames[1].headerLine, 2U);
    EXPECT_EQ(state->frames[1].bodyFirstLine, 1U);
    EXPECT_EQ(state->frames[1].bodyEndLine, 2U);
    EXPECT_TRUE(state->frames[1].started);
    EXPECT_TRUE(state->frames[1].repeatBodyDone);
    turn();
    turn();
    EXPECT_EQ(kindsOf(*state), (std::vector{Kind::Block}));
    EXPECT_EQ(state->frames[0].nextLine, 4U);
}

TEST_F(Turn, ANumericForKeepsItsCounterInTheFrame) {
    const auto state = start("for i = 5, 1, 0 - 2\nx = i\nend");
    turn();
    ASSERT_EQ(kindsOf(*state), (std::vector{Kind::Block, Kind::NumericFor, Kind::Block}));
    EXPECT_TRUE(state->frames[1].started);
    EXPECT_TRUE(state->frames[1].bodyIssued);
    EXPECT_EQ(state->frames[1].forCurrent, 5);
    EXPECT_EQ(state->frames[1].forLimit, 1);
    EXPECT_EQ(state->frames[1].forStep, -2);
    ASSERT_EQ(state->flow.frameScopes.size(), 2U);
    EXPECT_EQ(state->flow.frameScopes[1][0].name->text, "i");
    turn();
    EXPECT_EQ(state->frames[1].forCurrent, 3);
    EXPECT_EQ(state->flow.frameScopes[1][0].value.asInt(), 3);
    turn();
    turn();
    EXPECT_TRUE(finished());
    EXPECT_EQ(state->flow.frameScopes.size(), 1U);
}

TEST_F(Turn, AGenericForKeepsItsRowsInTheFrame) {
    interpreter.pushVariable("list",
                             Variable::makeArray({Variable::makeInt(7), Variable::makeInt(8)}));
    const auto state = start("for k, v, w in pairs(list)\nx = v\nend");
    turn();
    ASSERT_EQ(kindsOf(*state), (std::vector{Kind::Block, Kind::GenericFor, Kind::Block}));
    const CoroutineFrame& loop = state->frames[1];
    ASSERT_EQ(loop.loopVariables.size(), 3U);
    EXPECT_EQ(loop.loopVariables[2]->text, "w");
    ASSERT_EQ(loop.iterationRows.size(), 2U);
    EXPECT_EQ(loop.iterationRows[1][0].asInt(), 2);
    EXPECT_EQ(loop.iterationRows[1][1].asInt(), 8);
    EXPECT_EQ(loop.rowIndex, 0U);
    EXPECT_TRUE(loop.bodyIssued);
    turn();
    EXPECT_EQ(state->frames[1].rowIndex, 1U);
    turn();
    EXPECT_TRUE(finished());
    EXPECT_EQ(state->flow.frameScopes.size(), 1U);
}

TEST_F(Turn, AReturnPopsNoScopes) {
    const auto state = start("for i = 1, 2\nwhile true\nx = 1\nreturn\nend\nend");
    turn();
    turn();
    EXPECT_TRUE(finished());
    EXPECT_TRUE(state->frames.empty());
    EXPECT_EQ(state->flow.blockScopes.size(), 3U);
    EXPECT_EQ(state->flow.frameScopes.size(), 2U);
}

TEST_F(Turn, ABreakPopsTheScopesOfTheLoop) {
    const auto state = start("for i = 1, 2\nif true\nlocal a = 1\nbreak\nend\nend\nx = 1");
    turn();
    EXPECT_EQ(state->flow.blockScopes.size(), 3U);
    EXPECT_EQ(state->flow.frameScopes.size(), 2U);
    turn();
    ASSERT_EQ(kindsOf(*state), (std::vector{Kind::Block}));
    EXPECT_EQ(state->frames[0].nextLine, 6U);
    EXPECT_EQ(state->flow.blockScopes.size(), 1U);
    EXPECT_EQ(state->flow.frameScopes.size(), 1U);
}

TEST_F(Turn, AMissingLoopScopeIsReported) {
    auto state = start("for i = 1, 2\nx = i\nend");
    turn();
    empty(state->flow.frameScopes);
    turnFails("numeric for loop scope is missing");
    EXPECT_TRUE(finished());

    interpreter.pushVariable("list",
                             Variable::makeArray({Variable::makeInt(7), Variable::makeInt(8)}));
    state = start("for v in list\nx = v\nend");
    turn();
    empty(state->flow.frameScopes);
    turnFails("generic for loop scope is missing");
    EXPECT_TRUE(finished());
}

TEST_F(Turn, ALineIndexOutsideTheBodyIsReported) {
    auto state = start("x = 1\nx = 2");
    state->frames[0].nextLine = 5;
    state->frames[0].endLine = 9;
    turnFails("Coroutine line index out of range");
    state = start("while true\nx = 1\nend");
    turn();
    state->frames[1].headerLine = 3;
    turnFails("Coroutine line index out of range");
}

TEST_F(Turn, ASoftErrorEndsTheCoroutine) {
    const auto state = start("x = 1\nx = 2\nx = 3");
    turn();
    // A soft error that a protected call has left behind.
    state->flow.callDepth = 1;
    state->flow.softErrorPending = true;
    turn();
    EXPECT_TRUE(finished());
    EXPECT_TRUE(state->frames.empty());
    EXPECT_FALSE(interpreter.softErrorPending);
}

TEST_F(Turn, ADeclarationGetsItsBodyPreparedAnew) {
    start("x = 1\nfunction f(a)\nif a\nx = 2\nend\nreturn x\nend\nx = 3");
    turn();
    turn();
    EXPECT_EQ(interpreter.globalValues[interpreter.globalSlots.at("x")].asInt(), 3);
    const auto function = interpreter.globalValues[interpreter.globalSlots.at("f")].asFunction();
    EXPECT_EQ(function->program, nullptr);
    ASSERT_NE(function->bodyLines, nullptr);
    ASSERT_EQ(function->bodyLines->size(), 4U);
    EXPECT_EQ((*function->bodyLines)[0].matchingEnd, 2U);
}

}  // namespace
