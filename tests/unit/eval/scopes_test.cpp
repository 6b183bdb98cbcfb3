// The look-up of variables step by step, with its slot cache. What scripts can see of it stands in
// tests/scripts/scopes.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "eval/variable_access.h"
#include "interpreter/dovrel_script.h"

namespace {

class Scopes : public testing::Test {
protected:
    /// Runs code with `callable` as the running fast callable.
    class FastBody {
    public:
        FastBody(DovrelScript& interpreter, const std::vector<std::string>& parameters,
                 std::vector<Variable> arguments)
            : interpreter_(interpreter), arguments_(std::move(arguments)) {
            for (const std::string& name : parameters) {
                callable_.parameters.push_back(interpreter.names.intern(name));
            }
            interpreter_.fastCallable = &callable_;
            interpreter_.fastArgs = Arguments(arguments_);
            interpreter_.fastFrameBase = interpreter_.frameScopes.size();
        }
        ~FastBody() {
            interpreter_.fastCallable = nullptr;
            interpreter_.fastArgs = Arguments();
            interpreter_.fastFrameBase = 0;
        }
        FastBody(const FastBody&) = delete;
        FastBody& operator=(const FastBody&) = delete;
        [[nodiscard]] const Variable& argument(std::size_t index) const {
            return arguments_[index];
        }

    private:
        DovrelScript& interpreter_;
        ScriptCallable callable_;
        std::vector<Variable> arguments_;
    };

    Name name(const std::string& text) { return interpreter_.names.intern(text); }
    TokenAnalysis token(const std::string& text) { return interpreter_.analyseToken(text); }
    Scope& pushFrame(const std::string& text, int value) {
        Scope& scope = interpreter_.frameScopes.push(1);
        scope.append(name(text), Variable::makeInt(value));
        return scope;
    }
    Scope& pushBlock(const std::string& text, int value) {
        interpreter_.pushBlockScope();
        interpreter_.blockScopes.back().append(name(text), Variable::makeInt(value));
        return interpreter_.blockScopes.back();
    }
    void setGlobal(const std::string& text, int value) {
        interpreter_.pushVariable(text, Variable::makeInt(value));
    }
    std::string read(const TokenAnalysis& analysis) {
        const Variable* value = interpreter_.resolveVariableFastPtr(analysis);
        return value == nullptr ? "null" : value->toString();
    }
    std::string write(const TokenAnalysis& analysis) {
        const Variable* value = interpreter_.resolveExistingVariableFastMutable(analysis);
        return value == nullptr ? "null" : value->toString();
    }
    std::string uncached(const std::string& text) {
        const Variable* value = interpreter_.resolveVariablePtr(name(text));
        return value == nullptr ? "null" : value->toString();
    }
    template <typename Action>
    static std::string messageOf(Action action) {
        try {
            action();
        } catch (const std::exception& error) {
            return error.what();
        }
        return "nothing was raised";
    }

    DovrelScript interpreter_;
};

TEST_F(Scopes, AGlobalHasASlotForLife) {
    const std::size_t slot = interpreter_.globalValues.size();
    setGlobal("x", 1);
    EXPECT_EQ(interpreter_.globalSlots.at("x"), slot);
    EXPECT_EQ(interpreter_.globalValues[slot].asInt(), 1);
    EXPECT_TRUE(interpreter_.globalAssigned[slot]);
    setGlobal("x", 2);
    EXPECT_EQ(interpreter_.globalSlots.at("x"), slot);
    EXPECT_EQ(interpreter_.globalValues[slot].asInt(), 2);
    EXPECT_EQ(interpreter_.globalValues.size(), slot + 1);
    EXPECT_EQ(interpreter_.globalAssigned.size(), slot + 1);
}

TEST_F(Scopes, AnUnknownNameIsNullEverywhere) {
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "null");
    EXPECT_EQ(write(x), "null");
    EXPECT_EQ(uncached("x"), "null");
    EXPECT_EQ(interpreter_.resolveExistingVariable(name("x")), nullptr);
    pushFrame("y", 1);
    pushBlock("z", 2);
    EXPECT_EQ(read(token("x")), "null");
    EXPECT_EQ(write(token("x")), "null");
    EXPECT_EQ(uncached("x"), "null");
}

TEST_F(Scopes, AMissIsAskedOnce) {
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "null");
    EXPECT_TRUE(x.globalSlotChecked);
    EXPECT_FALSE(x.globalSlotFound);
    setGlobal("x", 1);
    EXPECT_EQ(read(x), "null");
    pushFrame("y", 0);
    EXPECT_EQ(read(x), "null");
    pushBlock("z", 0);
    EXPECT_EQ(read(x), "null");
    EXPECT_EQ(read(token("x")), "1");
    EXPECT_EQ(uncached("x"), "1");
}

TEST_F(Scopes, AFoundGlobalIsRemembered) {
    setGlobal("x", 1);
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "1");
    EXPECT_TRUE(x.globalSlotChecked);
    EXPECT_TRUE(x.globalSlotFound);
    EXPECT_EQ(x.globalSlot, interpreter_.globalSlots.at("x"));
    setGlobal("x", 2);
    EXPECT_EQ(read(x), "2");
}

TEST_F(Scopes, BlocksComeBeforeParametersBeforeFramesBeforeGlobals) {
    setGlobal("x", 1);
    EXPECT_EQ(read(token("x")), "1");
    pushFrame("x", 2);
    EXPECT_EQ(read(token("x")), "2");
    pushFrame("x", 3);
    EXPECT_EQ(read(token("x")), "3");
    pushFrame("y", 0);
    EXPECT_EQ(read(token("x")), "3");
    const FastBody body(interpreter_, {"x"}, {Variable::makeInt(4)});
    EXPECT_EQ(read(token("x")), "4");
    pushBlock("x", 5);
    EXPECT_EQ(read(token("x")), "5");
    pushBlock("x", 6);
    EXPECT_EQ(read(token("x")), "6");
}

TEST_F(Scopes, OnlyReadsOfTokensSeeParameters) {
    setGlobal("x", 1);
    pushFrame("x", 2);
    const FastBody body(interpreter_, {"x"}, {Variable::makeInt(3)});
    EXPECT_EQ(read(token("x")), "3");
    EXPECT_EQ(write(token("x")), "2");
    EXPECT_EQ(uncached("x"), "2");
    interpreter_.assignVariable(name("x"), Variable::makeInt(9), ScopeTarget::Default);
    EXPECT_EQ(interpreter_.frameScopes[0][0].value.asInt(), 9);
    EXPECT_EQ(body.argument(0).asInt(), 3);
}

TEST_F(Scopes, ABlockVariableIsCachedByItsPlace) {
    pushBlock("y", 0);
    Scope& scope = interpreter_.blockScopes.back();
    scope.append(name("x"), Variable::makeInt(7));
    pushBlock("z", 0);
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "7");
    EXPECT_EQ(x.slotKind, SlotKind::Block);
    EXPECT_EQ(x.slotDepth, 1);
    EXPECT_EQ(x.slotIndex, 1);
    EXPECT_EQ(x.slotScope, &interpreter_.blockScopes[0]);
}

TEST_F(Scopes, AFrameVariableIsCachedByItsPlace) {
    pushFrame("x", 7);
    pushFrame("y", 0);
    pushFrame("z", 0);
    for (const bool writing : {false, true}) {
        const TokenAnalysis x = token("x");
        EXPECT_EQ(writing ? write(x) : read(x), "7");
        EXPECT_EQ(x.slotKind, SlotKind::Frame);
        EXPECT_EQ(x.slotDepth, 2);
        EXPECT_EQ(x.slotIndex, 0);
        EXPECT_EQ(x.slotScope, &interpreter_.frameScopes[0]);
    }
}

TEST_F(Scopes, AParameterIsCachedByItsNumber) {
    pushFrame("p", 0);
    const FastBody body(interpreter_, {"p", "x"}, {Variable::makeInt(1), Variable::makeInt(2)});
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "2");
    EXPECT_EQ(x.slotKind, SlotKind::Parameter);
    EXPECT_EQ(x.slotDepth, 0);
    EXPECT_EQ(x.slotIndex, 1);
    EXPECT_EQ(interpreter_.resolveVariableFastPtr(x), &body.argument(1));
}

TEST_F(Scopes, AParameterWithoutArgumentIsTheSharedNil) {
    const FastBody body(interpreter_, {"p", "x", "y"}, {Variable::makeInt(1)});
    const TokenAnalysis x = token("x");
    const Variable* const first = interpreter_.resolveVariableFastPtr(x);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->isNil());
    EXPECT_EQ(first, &nilValue());
    // The second read goes through the cache.
    EXPECT_EQ(x.slotKind, SlotKind::Parameter);
    EXPECT_EQ(interpreter_.resolveVariableFastPtr(x), &nilValue());
    EXPECT_EQ(interpreter_.resolveVariableFastPtr(token("y")), &nilValue());
}

TEST_F(Scopes, TheFirstOfTwoEqualParametersCounts) {
    const FastBody body(interpreter_, {"x", "x"}, {Variable::makeInt(1), Variable::makeInt(2)});
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "1");
    EXPECT_EQ(x.slotIndex, 0);
}

TEST_F(Scopes, ACachedParameterServesTheNextCall) {
    const TokenAnalysis x = token("x");
    {
        const FastBody body(interpreter_, {"p", "x"}, {Variable::makeInt(1), Variable::makeInt(2)});
        EXPECT_EQ(read(x), "2");
    }
    // By its number: the name is not compared again.
    const FastBody body(interpreter_, {"a", "b"}, {Variable::makeInt(3), Variable::makeInt(4)});
    EXPECT_EQ(read(x), "4");
}

TEST_F(Scopes, ACachedParameterIsDroppedWhereItCannotBe) {
    const TokenAnalysis x = token("x");
    {
        const FastBody body(interpreter_, {"p", "x"}, {Variable::makeInt(1), Variable::makeInt(2)});
        EXPECT_EQ(read(x), "2");
    }
    setGlobal("x", 7);
    pushFrame("y", 0);
    {
        const FastBody body(interpreter_, {"p"}, {Variable::makeInt(3)});
        EXPECT_EQ(read(x), "7");
        EXPECT_EQ(x.slotKind, SlotKind::Global);
    }
    EXPECT_EQ(read(x), "7");
}

// While a call from inside a fast body runs in a frame, its own frames come first, then the fast
// parameters, then the older frames.
TEST_F(Scopes, ANewerFrameSuspendsTheFastCallable) {
    pushFrame("x", 1);
    const FastBody body(interpreter_, {"x", "p"}, {Variable::makeInt(2), Variable::makeInt(3)});
    const TokenAnalysis x = token("x");
    const TokenAnalysis p = token("p");
    EXPECT_EQ(read(x), "2");
    EXPECT_EQ(x.slotKind, SlotKind::Parameter);
    pushFrame("x", 4);
    EXPECT_EQ(read(x), "4");
    EXPECT_EQ(x.slotKind, SlotKind::Frame);
    EXPECT_EQ(read(p), "3");
    EXPECT_EQ(p.slotKind, SlotKind::None) << "no parameter is cached while it is suspended";
    interpreter_.frameScopes.pop();
    EXPECT_EQ(read(p), "3");
    EXPECT_EQ(p.slotKind, SlotKind::Parameter);
    EXPECT_EQ(read(token("x")), "2");
}

TEST_F(Scopes, AGlobalIsCachedWithTheNumberOfFrames) {
    setGlobal("x", 7);
    pushFrame("y", 0);
    pushFrame("z", 0);
    for (const bool writing : {false, true}) {
        const TokenAnalysis x = token("x");
        EXPECT_EQ(writing ? write(x) : read(x), "7");
        EXPECT_EQ(x.slotKind, SlotKind::Global);
        EXPECT_EQ(x.slotDepth, 2);
        EXPECT_EQ(x.slotScope, nullptr);
        EXPECT_TRUE(x.globalSlotFound);
        EXPECT_EQ(x.globalSlot, interpreter_.globalSlots.at("x"));
    }
}

TEST_F(Scopes, AGlobalIsNotCachedUnderABlock) {
    setGlobal("x", 7);
    pushBlock("y", 0);
    for (const bool writing : {false, true}) {
        const TokenAnalysis x = token("x");
        EXPECT_EQ(writing ? write(x) : read(x), "7");
        EXPECT_EQ(x.slotKind, SlotKind::None);
        EXPECT_TRUE(x.globalSlotFound);
    }
}

TEST_F(Scopes, ACachedGlobalLooksIntoNoFrame) {
    setGlobal("x", 7);
    const TokenAnalysis x = token("x");
    pushFrame("y", 0);
    EXPECT_EQ(read(x), "7");
    interpreter_.frameScopes.pop();
    pushFrame("x", 1);
    EXPECT_EQ(read(x), "7");
    EXPECT_EQ(write(x), "7");
    // With another number of frames the search runs, and finds the frame.
    pushFrame("z", 0);
    EXPECT_EQ(read(x), "1");
    EXPECT_EQ(x.slotKind, SlotKind::Frame);
}

TEST_F(Scopes, ACachedGlobalYieldsToABlock) {
    setGlobal("x", 7);
    pushFrame("y", 0);
    for (const bool writing : {false, true}) {
        const TokenAnalysis x = token("x");
        EXPECT_EQ(read(x), "7");
        pushBlock("x", 1);
        EXPECT_EQ(writing ? write(x) : read(x), "1");
        interpreter_.blockScopes.pop();
        EXPECT_EQ(writing ? write(x) : read(x), "7");
    }
}

TEST_F(Scopes, TheAddressOfTheScopeIsEnough) {
    const TokenAnalysis x = token("x");
    const TokenAnalysis target = token("x");
    pushFrame("x", 1);
    EXPECT_EQ(read(x), "1");
    EXPECT_EQ(write(target), "1");
    interpreter_.frameScopes.pop();
    pushFrame("another", 2);
    EXPECT_EQ(read(x), "2");
    EXPECT_EQ(write(target), "2");
    EXPECT_EQ(x.slotKind, SlotKind::Frame);
}

TEST_F(Scopes, AtAnotherAddressTheNameIsCompared) {
    const TokenAnalysis x = token("x");
    pushFrame("x", 1);
    EXPECT_EQ(read(x), "1");
    const Scope* const before = x.slotScope;
    // Growth moves the stack; the entry is still where it was within its scope.
    for (int i = 0; i < 40; ++i) pushFrame("y", 0);
    for (int i = 0; i < 40; ++i) interpreter_.frameScopes.pop();
    ASSERT_NE(&interpreter_.frameScopes[0], before);
    EXPECT_EQ(read(x), "1");
    EXPECT_EQ(x.slotScope, &interpreter_.frameScopes[0]);
}

TEST_F(Scopes, AtAnotherAddressAnotherNameClearsTheCache) {
    for (const bool writing : {false, true}) {
        const TokenAnalysis x = token("x");
        pushFrame("x", 1);
        EXPECT_EQ(read(x), "1");
        interpreter_.frameScopes.pop();
        // The same depth from the top, but a scope at another address.
        pushFrame("x", 2);
        pushFrame("y", 3);
        EXPECT_EQ(writing ? write(x) : read(x), "2");
        EXPECT_EQ(x.slotKind, SlotKind::Frame);
        EXPECT_EQ(x.slotDepth, 1);
        interpreter_.frameScopes.popTo(0);
    }
}

TEST_F(Scopes, AnIndexOutsideTheScopeClearsTheCache) {
    setGlobal("x", 9);
    const TokenAnalysis x = token("x");
    pushFrame("y", 0).append(name("x"), Variable::makeInt(1));
    EXPECT_EQ(read(x), "1");
    interpreter_.frameScopes.pop();
    pushFrame("y", 0);
    EXPECT_EQ(read(x), "9");
    EXPECT_EQ(x.slotKind, SlotKind::Global);
}

TEST_F(Scopes, ADepthBeyondTheStackClearsTheCache) {
    setGlobal("x", 9);
    for (const bool writing : {false, true}) {
        const TokenAnalysis inFrame = token("x");
        pushFrame("x", 1);
        pushFrame("y", 0);
        EXPECT_EQ(read(inFrame), "1");
        interpreter_.frameScopes.popTo(0);
        pushFrame("y", 0);
        EXPECT_EQ(writing ? write(inFrame) : read(inFrame), "9");
        EXPECT_EQ(inFrame.slotKind, SlotKind::Global);
        interpreter_.frameScopes.popTo(0);

        const TokenAnalysis inBlock = token("x");
        pushBlock("x", 2);
        pushBlock("y", 0);
        EXPECT_EQ(read(inBlock), "2");
        interpreter_.blockScopes.popTo(0);
        pushBlock("y", 0);
        EXPECT_EQ(writing ? write(inBlock) : read(inBlock), "9");
        EXPECT_EQ(inBlock.slotKind, SlotKind::None);
        EXPECT_EQ(inBlock.slotScope, nullptr);
        interpreter_.blockScopes.popTo(0);
    }
}

TEST_F(Scopes, ACachedFrameIsPreferredToANewBlock) {
    const TokenAnalysis x = token("x");
    const TokenAnalysis target = token("x");
    pushFrame("x", 1);
    EXPECT_EQ(read(x), "1");
    EXPECT_EQ(write(target), "1");
    pushBlock("x", 2);
    EXPECT_EQ(read(x), "1");
    EXPECT_EQ(write(target), "1");
    EXPECT_EQ(read(token("x")), "2");
}

TEST_F(Scopes, BlocksBelowTheFloorAreNotVisible) {
    setGlobal("x", 1);
    pushBlock("x", 2);
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "2");
    interpreter_.blockScopeFloor = 1;
    EXPECT_FALSE(interpreter_.blockScopeVisible());
    EXPECT_EQ(read(token("x")), "1");
    EXPECT_EQ(write(token("x")), "1");
    EXPECT_EQ(uncached("x"), "1");
    pushBlock("y", 0);
    EXPECT_EQ(read(x), "1") << "the cached depth leads below the floor";
    EXPECT_EQ(read(token("x")), "1");
    interpreter_.blockScopeFloor = 0;
    EXPECT_EQ(read(token("x")), "2");
}

TEST_F(Scopes, AWriteSkipsParametersWithoutForgettingThem) {
    pushFrame("y", 0);
    const FastBody body(interpreter_, {"x"}, {Variable::makeInt(1)});
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "1");
    EXPECT_EQ(write(x), "null");
    EXPECT_EQ(x.slotKind, SlotKind::Parameter);
    EXPECT_EQ(read(x), "1");
}

TEST_F(Scopes, AWriteHonoursACachedMissOnlyWithoutLocals) {
    const TokenAnalysis x = token("x");
    EXPECT_EQ(write(x), "null");
    EXPECT_TRUE(x.globalSlotChecked);
    setGlobal("x", 1);
    EXPECT_EQ(write(x), "null");
    pushFrame("y", 0);
    EXPECT_EQ(write(x), "1");
    EXPECT_TRUE(x.globalSlotFound);
    EXPECT_EQ(read(x), "1") << "the slot has gone into the token's cache";

    const TokenAnalysis other = token("z");
    EXPECT_EQ(write(other), "null");
    setGlobal("z", 2);
    interpreter_.frameScopes.pop();
    EXPECT_EQ(write(other), "2") << "under a frame the miss has not been cached";
}

TEST_F(Scopes, ADefaultAssignmentCreatesAndCachesAGlobal) {
    const TokenAnalysis x = token("x");
    EXPECT_EQ(read(x), "null");
    interpreter_.assignVariableFast(x, Variable::makeInt(5), ScopeTarget::Default);
    EXPECT_EQ(interpreter_.globalSlots.at("x"), interpreter_.globalValues.size() - 1);
    EXPECT_TRUE(x.globalSlotChecked);
    EXPECT_TRUE(x.globalSlotFound);
    EXPECT_EQ(x.globalSlot, interpreter_.globalValues.size() - 1);
    EXPECT_EQ(read(x), "5") << "the cached miss is overwritten";
}

TEST_F(Scopes, ATokenThatOnlyWritesIsCachedToo) {
    pushFrame("y", 0);
    const TokenAnalysis created = token("x");
    interpreter_.assignVariableFast(created, Variable::makeInt(5), ScopeTarget::Default);
    const TokenAnalysis found = token("x");
    EXPECT_EQ(write(found), "5");
    for (const TokenAnalysis* analysis : {&created, &found}) {
        EXPECT_TRUE(analysis->globalSlotChecked);
        EXPECT_TRUE(analysis->globalSlotFound);
        EXPECT_EQ(analysis->globalSlot, interpreter_.globalSlots.at("x"));
    }
}

// Kept: the value is stored by name, in the right slot, but the cache is set to the newest global.
TEST_F(Scopes, AnAssignmentAfterACachedMissLeavesTheCacheOnTheNewestGlobal) {
    const TokenAnalysis x = token("x");
    EXPECT_EQ(write(x), "null");
    setGlobal("x", 1);
    setGlobal("newest", 2);
    interpreter_.assignVariableFast(x, Variable::makeInt(3), ScopeTarget::Default);
    EXPECT_EQ(uncached("x"), "3");
    EXPECT_EQ(uncached("newest"), "2");
    EXPECT_EQ(x.globalSlot, interpreter_.globalSlots.at("newest"));
    EXPECT_EQ(read(x), "2");
    interpreter_.assignVariableFast(x, Variable::makeInt(4), ScopeTarget::Default);
    EXPECT_EQ(uncached("x"), "3");
    EXPECT_EQ(uncached("newest"), "4");
}

TEST_F(Scopes, ADefaultAssignmentOverwritesWhereTheNameStands) {
    setGlobal("x", 1);
    pushFrame("x", 2);
    pushFrame("y", 0);
    const std::size_t globals = interpreter_.globalValues.size();
    interpreter_.assignVariable(name("x"), Variable("frame"), ScopeTarget::Default);
    EXPECT_EQ(interpreter_.frameScopes[0][0].value.asString(), "frame");
    pushBlock("x", 3);
    pushBlock("z", 0);
    interpreter_.assignVariableFast(token("x"), Variable("block"), ScopeTarget::Default);
    EXPECT_EQ(interpreter_.blockScopes[0][0].value.asString(), "block");
    EXPECT_EQ(interpreter_.frameScopes[0][0].value.asString(), "frame");
    EXPECT_EQ(interpreter_.globalValues.size(), globals);
    interpreter_.assignVariable(name("new"), Variable("global"), ScopeTarget::Default);
    EXPECT_EQ(interpreter_.globalValues.size(), globals + 1);
    EXPECT_EQ(uncached("new"), "global");
}

TEST_F(Scopes, ANativeGoesIntoTheTopFrame) {
    interpreter_.assignVariable(name("x"), Variable::makeInt(1), ScopeTarget::Native);
    ASSERT_EQ(interpreter_.frameScopes.size(), 1U) << "made on demand";
    EXPECT_EQ(uncached("x"), "1");
    pushFrame("y", 0);
    interpreter_.assignVariableFast(token("x"), Variable::makeInt(2), ScopeTarget::Native);
    ASSERT_EQ(interpreter_.frameScopes.size(), 2U);
    EXPECT_EQ(interpreter_.frameScopes[0][0].value.asInt(), 1);
    EXPECT_EQ(interpreter_.frameScopes[1][1].value.asInt(), 2);
    interpreter_.assignVariable(name("x"), Variable::makeInt(3), ScopeTarget::Native);
    EXPECT_EQ(interpreter_.frameScopes[1].size(), 2U);
    EXPECT_FALSE(interpreter_.globalSlots.contains("x"));
}

TEST_F(Scopes, ALocalGoesIntoTheTopBlock) {
    interpreter_.assignVariable(name("x"), Variable::makeInt(1), ScopeTarget::Local);
    ASSERT_EQ(interpreter_.blockScopes.size(), 1U) << "made on demand";
    EXPECT_EQ(read(token("x")), "1");
    interpreter_.pushBlockScope();
    interpreter_.assignVariableFast(token("x"), Variable::makeInt(2), ScopeTarget::Local);
    ASSERT_EQ(interpreter_.blockScopes.size(), 2U);
    EXPECT_EQ(interpreter_.blockScopes[0][0].value.asInt(), 1);
    EXPECT_EQ(interpreter_.blockScopes[1][0].value.asInt(), 2);
    EXPECT_FALSE(interpreter_.globalSlots.contains("x"));
}

TEST_F(Scopes, ADamagedSlotIsReported) {
    interpreter_.globalSlots["broken"] = 1000000;
    EXPECT_EQ(messageOf([&] { setGlobal("broken", 1); }),
              "Internal slot error while setting variable: broken");
    EXPECT_EQ(messageOf([&] {
                  interpreter_.assignVariable(name("broken"), Variable(), ScopeTarget::Default);
              }),
              "Internal slot error while assigning variable: broken");
    EXPECT_EQ(messageOf([&] {
                  interpreter_.assignVariableFast(token("broken"), Variable(),
                                                  ScopeTarget::Default);
              }),
              "Internal slot error while assigning variable: broken");
    pushFrame("y", 0);
    EXPECT_EQ(messageOf([&] { static_cast<void>(write(token("broken"))); }),
              "Internal slot error while assigning variable: broken");
    EXPECT_EQ(read(token("broken")), "null");
    EXPECT_EQ(uncached("broken"), "null");
}

TEST_F(Scopes, TheFirstSlotBehindTheValuesIsDamagedToo) {
    interpreter_.globalSlots["broken"] = interpreter_.globalValues.size();
    EXPECT_EQ(messageOf([&] { setGlobal("broken", 1); }),
              "Internal slot error while setting variable: broken");
    EXPECT_EQ(messageOf([&] { static_cast<void>(write(token("broken"))); }),
              "Internal slot error while assigning variable: broken");
    EXPECT_EQ(read(token("broken")), "null");
    EXPECT_EQ(uncached("broken"), "null");
}

TEST_F(Scopes, ASlotWithoutItsBitIsDamagedToo) {
    setGlobal("x", 1);
    interpreter_.globalAssigned.pop_back();
    EXPECT_EQ(messageOf([&] { static_cast<void>(write(token("x"))); }),
              "Internal slot error while assigning variable: x");
    EXPECT_EQ(read(token("x")), "null");
    EXPECT_EQ(uncached("x"), "null");
}

TEST_F(Scopes, ADamagedSlotIsReportedByStatements) {
    interpreter_.globalSlots["broken"] = 1000000;
    for (const std::string line : {"broken = 1", "broken += 1", "broken[1] = 1", "broken = [1]",
                                   "broken, x = 1, 2", "for i = 1, 1; broken = 1; end"}) {
        const std::string message = messageOf([&] { interpreter_.runScript(line); });
        EXPECT_TRUE(message.starts_with(
            "DovrelScript error: Internal slot error while assigning variable: broken\n"))
            << line << ": " << message;
    }
    EXPECT_EQ(messageOf([&] { interpreter_.runScript("x = broken"); }), "nothing was raised");
    EXPECT_EQ(uncached("x"), "not");
}

TEST_F(Scopes, AnUnsetSlotIsNoVariable) {
    setGlobal("x", 1);
    interpreter_.globalAssigned[interpreter_.globalSlots.at("x")] = false;
    EXPECT_EQ(uncached("x"), "null");
    EXPECT_EQ(read(token("x")), "null");
    setGlobal("x", 2);
    EXPECT_EQ(uncached("x"), "2");
}

TEST_F(Scopes, TheInlineReadGivesWhatTheLookUpGives) {
    setGlobal("x", 1);
    const TokenAnalysis inlined = token("x");
    const TokenAnalysis called = token("x");
    const auto both = [&] {
        const Variable* const fast = interpreter_.readVariable(inlined);
        EXPECT_EQ(fast, interpreter_.resolveVariableFastPtr(called));
        return fast == nullptr ? "null" : fast->toString();
    };
    // Twice at each place: once with the search and once through the cache.
    EXPECT_EQ(both(), "1");
    EXPECT_EQ(both(), "1");
    pushFrame("x", 2);
    EXPECT_EQ(both(), "2");
    EXPECT_EQ(both(), "2");
    pushFrame("y", 3);
    EXPECT_EQ(both(), "2");
    EXPECT_EQ(both(), "2");
    {
        const FastBody body(interpreter_, {"p", "x"}, {Variable::makeInt(4)});
        interpreter_.frameScopes.popTo(1);
        interpreter_.fastFrameBase = 1;
        static_cast<void>(both());
        static_cast<void>(both());
    }
    pushBlock("x", 5);
    static_cast<void>(both());
    interpreter_.frameScopes.popTo(0);
    EXPECT_EQ(both(), "5");
    EXPECT_EQ(both(), "5");
    interpreter_.blockScopes.popTo(0);
    EXPECT_EQ(both(), "1");
    EXPECT_EQ(both(), "1");
}

// A budget of statements bounds what a script does: none of them may cost the depth.
TEST_F(Scopes, ASearchFromEachLevelDoesNotCostTheDepth) {
    constexpr std::size_t kLevels = 5000;
    const std::string depth = std::to_string(kLevels);
    interpreter_.runScript(
        "function rec(n)\n native r = 0\n v = v + 1\n if n > 0\n local w = v\n r = rec(n - 1)\n"
        "v = w + 1\n end\n return r\nend\n"
        "function outer(n, v)\n native r = rec(n)\n return v\nend\n"
        "result = outer(" +
        depth + ", 0)");
    EXPECT_EQ(interpreter_.resolveVariablePtr(name("result"))->toString(), "2");
    const std::uint64_t searched = interpreter_.frameScopes.farScopesSearched() +
                                   interpreter_.blockScopes.all().farScopesSearched();
    EXPECT_GT(searched, kLevels);
    EXPECT_LT(searched, 200 * kLevels);
}

}  // namespace
