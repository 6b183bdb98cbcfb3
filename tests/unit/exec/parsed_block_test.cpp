#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

using Lines = std::vector<ParsedScriptLine>;

/// Blocks that no compiled script can hand to the executor: those that are not closed.
class ParsedBlock : public testing::Test {
protected:
    Lines parse(const std::string& source) { return interpreter.parseLines(source); }
    Variable run(const Lines& lines, std::size_t first = 0) {
        index = first;
        signal = BlockSignal::Break;
        return interpreter.executeParsedBlock(lines, index, signal);
    }
    void fails(const Lines& lines, const std::string& message) {
        try {
            run(lines);
            ADD_FAILURE() << "no failure: " << message;
        } catch (const std::runtime_error& error) {
            EXPECT_TRUE(
                std::string(error.what()).starts_with("DovrelScript error: " + message + "\n"))
                << error.what();
        }
        EXPECT_TRUE(interpreter.blockScopes.empty());
        EXPECT_TRUE(interpreter.frameScopes.empty());
    }
    void fails(const std::string& source, const std::string& message) {
        fails(parse(source), message);
    }
    [[nodiscard]] int global(const std::string& name) {
        return interpreter.globalValues[interpreter.globalSlots.at(name)].asInt();
    }

    DovrelScript interpreter;
    std::size_t index = 0;
    BlockSignal signal = BlockSignal::None;
};

TEST_F(ParsedBlock, NoLinesGiveNil) {
    EXPECT_TRUE(run({}).isNil());
    EXPECT_EQ(index, 0U);
    EXPECT_EQ(signal, BlockSignal::None);
    const Lines lines = parse("5");
    EXPECT_TRUE(run(lines, 1).isNil());
    EXPECT_EQ(index, 1U);
}

TEST_F(ParsedBlock, RunsFromALineToTheEnd) {
    const Lines lines = parse("x = 1\n\nx = 2\nx + 5\n");
    EXPECT_EQ(run(lines, 1).asInt(), 7);
    EXPECT_EQ(index, 4U);
    EXPECT_EQ(signal, BlockSignal::None);
    EXPECT_TRUE(interpreter.blockScopes.empty());
}

TEST_F(ParsedBlock, StopsAtALineThatClosesABlock) {
    for (const char* closing : {"end", "else", "elseif true", "until true", "end = 5"}) {
        const Lines lines = parse(std::string("5\n") + closing + "\n6");
        EXPECT_EQ(run(lines).asInt(), 5) << closing;
        EXPECT_EQ(index, 1U) << closing;
        EXPECT_EQ(signal, BlockSignal::None) << closing;
    }
}

TEST_F(ParsedBlock, TellsWhyItStopped) {
    EXPECT_EQ(run(parse("while true\nif true\nreturn 5\nend\nend\n6")).asInt(), 5);
    EXPECT_EQ(signal, BlockSignal::Return);
    EXPECT_EQ(run(parse("5\nif true\n6\nbreak\nend\n7")).asInt(), 6);
    EXPECT_EQ(signal, BlockSignal::Break);
    EXPECT_EQ(run(parse("while true\nbreak\nend\n7")).asInt(), 7);
    EXPECT_EQ(signal, BlockSignal::None);
}

TEST_F(ParsedBlock, AReturnOfSeveralValuesIsAMulti) {
    const Variable result = run(parse("return 1, 2"));
    ASSERT_EQ(result.type, VarType::Multi);
    EXPECT_EQ(result.asMulti()->values.size(), 2U);
    EXPECT_EQ(signal, BlockSignal::Return);
}

TEST_F(ParsedBlock, AnIfWithNoEndIsReported) {
    fails("if true\nx = 1", "Missing 'end' for if block");
    fails("if false\nx = 1", "Missing 'end' for if block");
    fails("if false\nelse\nx = 1", "Missing 'end' for if block");
    fails("if false\nelseif true\nx = 1", "Missing 'end' for if block");
    EXPECT_FALSE(interpreter.globalSlots.contains("x"));
}

TEST_F(ParsedBlock, OtherBlocksWithNoEndAreReported) {
    fails("while true\nx = 1", "Missing 'end' for block");
    fails("for i = 1, 2\nx = 1", "Missing 'end' for block");
    fails("for v in [1]\nx = 1", "Missing 'end' for block");
    fails("function f()\nx = 1", "Missing 'end' for block");
    fails("repeat\nx = 1", "Missing 'until' for repeat block");
    EXPECT_FALSE(interpreter.globalSlots.contains("x"));
    EXPECT_FALSE(interpreter.globalSlots.contains("f"));
}

TEST_F(ParsedBlock, AHeaderIsCheckedBeforeItsEnd) {
    fails("function f(1)", "Expected function parameter name");
}

TEST_F(ParsedBlock, AnUntilOutsideTheLinesIsReported) {
    Lines lines = parse("repeat\nx = 1\nuntil true");
    lines[0].matchingEnd = 3;
    fails(lines, "Missing 'until' for repeat block");
}

TEST_F(ParsedBlock, AFailurePopsEveryScope) {
    fails("for i = 1, 2\nfor v in [1]\nlocal a = nil + 1\nend\nend",
          "Unsupported operation '+' between types");
}

TEST_F(ParsedBlock, ABlockHasAScopeOfItsOwn) {
    run(parse(
        "local a = 1\nif true\nlocal a = 2\nlocal b = 3\nend\nx = a\ny = 0\nif b\ny = 1\nend"));
    EXPECT_EQ(global("x"), 1);
    EXPECT_EQ(global("y"), 0);
    EXPECT_TRUE(interpreter.blockScopes.empty());
}

TEST_F(ParsedBlock, PopsBackToTheCountAndTheFloorAtItsStart) {
    const Lines lines = parse("x = 1");
    interpreter.blockScopes.push(1);
    interpreter.blockScopeFloor = 1;
    run(lines);
    EXPECT_EQ(interpreter.blockScopes.size(), 1U);
    EXPECT_EQ(interpreter.blockScopeFloor, 1U);
}

}  // namespace
