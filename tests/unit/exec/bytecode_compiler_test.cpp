#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "exec/bytecode_program.h"
#include "interpreter/dovrel_script.h"

namespace {

using Indices = std::vector<std::uint32_t>;
using Code = std::vector<std::pair<BytecodeOp, std::uint32_t>>;

constexpr auto kStatement = BytecodeOp::Statement;
constexpr auto kFastAssign = BytecodeOp::FastAssign;
constexpr auto kIfGroup = BytecodeOp::IfGroup;
constexpr auto kWhileLoop = BytecodeOp::WhileLoop;
constexpr auto kRepeatLoop = BytecodeOp::RepeatLoop;
constexpr auto kNumericFor = BytecodeOp::NumericFor;
constexpr auto kGenericFor = BytecodeOp::GenericFor;
constexpr auto kFunctionDecl = BytecodeOp::FunctionDecl;
constexpr auto kReturn = BytecodeOp::Return;
constexpr auto kBreak = BytecodeOp::Break;

class BytecodeCompiler : public testing::Test {
protected:
    BytecodeProgram compile(const std::string& source) {
        return interpreter.compileToBytecodeInternal(source);
    }
    static Code codeOf(const BytecodeProgram& program, std::size_t chunk) {
        const BytecodeChunkRange& range = program.chunks.at(chunk);
        Code code;
        for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
            const BytecodeInstruction& instruction = program.code.at(range.firstInstruction + i);
            code.emplace_back(static_cast<BytecodeOp>(instruction.opcode), instruction.operand);
        }
        return code;
    }
    Code topLevel(const std::string& source) { return codeOf(compile(source), 0); }
    /// The message that stops the compilation of `source`; empty if nothing does.
    std::string refusal(const std::string& source) {
        try {
            static_cast<void>(compile(source));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return {};
    }
    bool hasLocal(const std::string& source, std::size_t chunk = 0) {
        return compile(source).chunks.at(chunk).hasLocalDeclaration;
    }

    DovrelScript interpreter;
};

/// What holds for every compiled program.
void expectInvariants(const BytecodeProgram& program) {
    // The chunks cut the code into runs that touch each other and leave nothing out.
    std::vector<std::size_t> order(program.chunks.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return program.chunks[a].firstInstruction < program.chunks[b].firstInstruction ||
               (program.chunks[a].firstInstruction == program.chunks[b].firstInstruction &&
                program.chunks[a].instructionCount < program.chunks[b].instructionCount);
    });
    std::size_t next = 0;
    for (const std::size_t chunk : order) {
        EXPECT_EQ(program.chunks[chunk].firstInstruction, next) << chunk;
        next += program.chunks[chunk].instructionCount;
    }
    EXPECT_EQ(next, program.code.size());
    // Chunk 0 is finished last.
    ASSERT_FALSE(program.chunks.empty());
    EXPECT_EQ(program.chunks[0].firstInstruction + program.chunks[0].instructionCount,
              program.code.size());

    for (const BytecodeInstruction& instruction : program.code) {
        EXPECT_EQ(instruction.reserved, 0U);
        std::size_t tableSize = program.lines.size();
        switch (static_cast<BytecodeOp>(instruction.opcode)) {
            case BytecodeOp::Statement:
            case BytecodeOp::FastAssign:
            case BytecodeOp::Return:
            case BytecodeOp::Break: break;
            case BytecodeOp::IfGroup: tableSize = program.ifGroups.size(); break;
            case BytecodeOp::WhileLoop: tableSize = program.whileLoops.size(); break;
            case BytecodeOp::RepeatLoop: tableSize = program.repeatLoops.size(); break;
            case BytecodeOp::NumericFor: tableSize = program.numericFors.size(); break;
            case BytecodeOp::GenericFor: tableSize = program.genericFors.size(); break;
            case BytecodeOp::FunctionDecl: tableSize = program.functionDecls.size(); break;
            default: FAIL() << "opcode " << static_cast<int>(instruction.opcode);
        }
        EXPECT_LT(instruction.operand, tableSize);
    }

    // A chunk stands before those that are nested in it, and its code behind theirs.
    const auto bodiesOf = [&](const BytecodeInstruction& instruction) -> Indices {
        const std::uint32_t at = instruction.operand;
        switch (static_cast<BytecodeOp>(instruction.opcode)) {
            case BytecodeOp::IfGroup: {
                Indices bodies;
                for (const BytecodeIfBranch& branch : program.ifGroups[at].branches) {
                    bodies.push_back(branch.bodyChunk);
                }
                return bodies;
            }
            case BytecodeOp::WhileLoop: return {program.whileLoops[at].bodyChunk};
            case BytecodeOp::RepeatLoop: return {program.repeatLoops[at].bodyChunk};
            case BytecodeOp::NumericFor: return {program.numericFors[at].bodyChunk};
            case BytecodeOp::GenericFor: return {program.genericFors[at].bodyChunk};
            case BytecodeOp::FunctionDecl: return {program.functionDecls[at].bodyChunk};
            default: return {};
        }
    };
    std::vector<int> uses(program.chunks.size(), 0);
    for (std::size_t chunk = 0; chunk < program.chunks.size(); ++chunk) {
        const BytecodeChunkRange& range = program.chunks[chunk];
        for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
            for (const std::uint32_t body : bodiesOf(program.code[range.firstInstruction + i])) {
                ASSERT_LT(body, program.chunks.size());
                EXPECT_GT(body, chunk);
                const BytecodeChunkRange& nested = program.chunks[body];
                EXPECT_LE(nested.firstInstruction + nested.instructionCount,
                          range.firstInstruction);
                ++uses[body];
            }
        }
    }
    for (std::size_t chunk = 1; chunk < uses.size(); ++chunk) EXPECT_EQ(uses[chunk], 1) << chunk;
    EXPECT_EQ(uses[0], 0);
    EXPECT_TRUE(program.chunkInlineStates.empty());
}

TEST(BytecodeOp, HasFixedValues) {
    EXPECT_EQ(static_cast<int>(BytecodeOp::Statement), 0);
    EXPECT_EQ(static_cast<int>(BytecodeOp::FastAssign), 1);
    EXPECT_EQ(static_cast<int>(BytecodeOp::IfGroup), 2);
    EXPECT_EQ(static_cast<int>(BytecodeOp::WhileLoop), 3);
    EXPECT_EQ(static_cast<int>(BytecodeOp::RepeatLoop), 4);
    EXPECT_EQ(static_cast<int>(BytecodeOp::NumericFor), 5);
    EXPECT_EQ(static_cast<int>(BytecodeOp::GenericFor), 6);
    EXPECT_EQ(static_cast<int>(BytecodeOp::FunctionDecl), 7);
    EXPECT_EQ(static_cast<int>(BytecodeOp::Return), 8);
    EXPECT_EQ(static_cast<int>(BytecodeOp::Break), 9);
}

// ------------------------------------------------------------------------- statements

TEST_F(BytecodeCompiler, CompilesAnEmptySource) {
    const BytecodeProgram program = compile("");
    EXPECT_EQ(program.version, 6);
    EXPECT_TRUE(program.lines.empty());
    EXPECT_TRUE(program.code.empty());
    ASSERT_EQ(program.chunks.size(), 1U);
    EXPECT_EQ(program.chunks[0].firstInstruction, 0U);
    EXPECT_EQ(program.chunks[0].instructionCount, 0U);
    EXPECT_FALSE(program.chunks[0].hasLocalDeclaration);
    EXPECT_TRUE(program.ifGroups.empty());
    EXPECT_TRUE(program.whileLoops.empty());
    EXPECT_TRUE(program.repeatLoops.empty());
    EXPECT_TRUE(program.numericFors.empty());
    EXPECT_TRUE(program.genericFors.empty());
    EXPECT_TRUE(program.functionDecls.empty());
    EXPECT_TRUE(program.chunkInlineStates.empty());
}

TEST_F(BytecodeCompiler, EmitsNothingForBlankLines) {
    const BytecodeProgram program = compile("\n@@ note\n\n");
    EXPECT_EQ(program.lines.size(), 3U);
    EXPECT_TRUE(program.code.empty());
    EXPECT_EQ(program.chunks.size(), 1U);
    EXPECT_FALSE(program.chunks[0].hasLocalDeclaration);
}

TEST_F(BytecodeCompiler, NamesLinesByTheirPlaceInTheTable) {
    const BytecodeProgram program = compile("\nprint(1)\n\nx = 1; y = 2\nreturn x\nbreak");
    EXPECT_EQ(program.lines.size(), 7U);
    EXPECT_EQ(
        codeOf(program, 0),
        (Code{{kStatement, 1}, {kFastAssign, 3}, {kFastAssign, 4}, {kReturn, 5}, {kBreak, 6}}));
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, EmitsFastAssignForOneNameAndOneCompiledValue) {
    for (const std::string source : {"x = 1", "x = a + 1", "x += 2", "local y = f(3)", "x = f(1,)",
                                     "native x = 1", "x ^= 2", "x = f()(1)", "x = 1,"}) {
        EXPECT_EQ(topLevel(source), (Code{{kFastAssign, 0}})) << source;
    }
}

TEST_F(BytecodeCompiler, EmitsStatementForEverythingElse) {
    for (const std::string source :
         {"a[1] = 2", "p, q = 1, 2", "x = 1, 2", "x = [1]", "local x", "local a, b", "f(x)", "x",
          "x =", "a b", "x = f([1])", "decay x", "local", ")", "x == 1"}) {
        EXPECT_EQ(topLevel(source), (Code{{kStatement, 0}})) << source;
    }
}

TEST_F(BytecodeCompiler, EmitsNothingForStrayClosingLines) {
    EXPECT_TRUE(topLevel("end\nelse\nelseif x\nuntil y\nend = 5").empty());
    EXPECT_EQ(topLevel("a = 1\nend\nb = 2"), (Code{{kFastAssign, 0}, {kFastAssign, 2}}));
    EXPECT_EQ(codeOf(compile("while x\nelse\nuntil y\na = 1\nend"), 1), (Code{{kFastAssign, 3}}));
}

TEST_F(BytecodeCompiler, LetsTheKindWinOverAnAssignment) {
    EXPECT_EQ(topLevel("return = 5"), (Code{{kReturn, 0}}));
    EXPECT_EQ(topLevel("break = 5"), (Code{{kBreak, 0}}));
    EXPECT_EQ(topLevel("while = 5\nend"), (Code{{kWhileLoop, 0}}));
}

// ------------------------------------------------------------------------- blocks

TEST_F(BytecodeCompiler, CompilesAnIf) {
    const BytecodeProgram program = compile("if a\nx = 1\nend\ny = 2");
    ASSERT_EQ(program.ifGroups.size(), 1U);
    const auto& branches = program.ifGroups[0].branches;
    ASSERT_EQ(branches.size(), 1U);
    EXPECT_EQ(branches[0].conditionLine, 0U);
    EXPECT_EQ(branches[0].bodyChunk, 1U);
    EXPECT_FALSE(branches[0].isElse);
    EXPECT_EQ(codeOf(program, 0), (Code{{kIfGroup, 0}, {kFastAssign, 3}}));
    EXPECT_EQ(codeOf(program, 1), (Code{{kFastAssign, 1}}));
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, CompilesAnIfChain) {
    const BytecodeProgram program =
        compile("if a\nx = 1\nelseif b\nelseif c\nx = 2\nx = 3\nelse\nx = 4\nend\ny = 5");
    ASSERT_EQ(program.ifGroups.size(), 1U);
    const auto& branches = program.ifGroups[0].branches;
    ASSERT_EQ(branches.size(), 4U);
    const Indices lines = {0, 2, 3, 6};
    for (std::uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(branches[i].conditionLine, lines[i]);
        EXPECT_EQ(branches[i].bodyChunk, i + 1);
        EXPECT_EQ(branches[i].isElse, i == 3);
    }
    EXPECT_EQ(codeOf(program, 0), (Code{{kIfGroup, 0}, {kFastAssign, 9}}));
    EXPECT_EQ(codeOf(program, 2), Code{});
    EXPECT_EQ(codeOf(program, 3), (Code{{kFastAssign, 4}, {kFastAssign, 5}}));
    EXPECT_EQ(codeOf(program, 4), (Code{{kFastAssign, 7}}));
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, KeepsBranchesBehindAnElse) {
    const BytecodeProgram program = compile("if a\nelse\nelseif b\nelse\nend");
    ASSERT_EQ(program.ifGroups.size(), 1U);
    const auto& branches = program.ifGroups[0].branches;
    ASSERT_EQ(branches.size(), 4U);
    EXPECT_TRUE(branches[1].isElse);
    EXPECT_FALSE(branches[2].isElse);
    EXPECT_TRUE(branches[3].isElse);
}

TEST_F(BytecodeCompiler, CompilesLoops) {
    const BytecodeProgram program = compile(
        "while a\nx = 1\nend\nrepeat\nx = 2\nuntil b\nfor i = 1, 3\nx = 3\nend\nfor k in "
        "pairs(t)\nx = 4\nend");
    ASSERT_EQ(program.whileLoops.size(), 1U);
    EXPECT_EQ(program.whileLoops[0].conditionLine, 0U);
    EXPECT_EQ(program.whileLoops[0].bodyChunk, 1U);
    ASSERT_EQ(program.repeatLoops.size(), 1U);
    EXPECT_EQ(program.repeatLoops[0].untilLine, 5U);
    EXPECT_EQ(program.repeatLoops[0].bodyChunk, 2U);
    ASSERT_EQ(program.numericFors.size(), 1U);
    EXPECT_EQ(program.numericFors[0].headerLine, 6U);
    EXPECT_EQ(program.numericFors[0].bodyChunk, 3U);
    ASSERT_EQ(program.genericFors.size(), 1U);
    EXPECT_EQ(program.genericFors[0].headerLine, 9U);
    EXPECT_EQ(program.genericFors[0].bodyChunk, 4U);
    EXPECT_EQ(codeOf(program, 0),
              (Code{{kWhileLoop, 0}, {kRepeatLoop, 0}, {kNumericFor, 0}, {kGenericFor, 0}}));
    EXPECT_EQ(codeOf(program, 1), (Code{{kFastAssign, 1}}));
    EXPECT_EQ(codeOf(program, 2), (Code{{kFastAssign, 4}}));
    EXPECT_EQ(codeOf(program, 3), (Code{{kFastAssign, 7}}));
    EXPECT_EQ(codeOf(program, 4), (Code{{kFastAssign, 10}}));
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, TakesEveryOtherForForAGenericOne) {
    for (const std::string header : {"for i = 1, 3", "for i = 1", "for i = ,", "for end = x"}) {
        EXPECT_EQ(topLevel(header + "\nend"), (Code{{kNumericFor, 0}})) << header;
    }
    for (const std::string header :
         {"for k in pairs(t)", "for 1 = 2, 3", "for", "for i", "for i =", "for i of t",
          "for i == 1", "for a, b = 1, 2", "for a.b = 1, 2"}) {
        EXPECT_EQ(topLevel(header + "\nend"), (Code{{kGenericFor, 0}})) << header;
    }
}

TEST_F(BytecodeCompiler, CompilesAllFormsOfFunctions) {
    const BytecodeProgram program = compile(
        "function a()\nreturn 1\nend\ndecay function b()\nend\nnative function c()\nx = 1\nx = 2\n"
        "end\nlocal function d()\nend");
    ASSERT_EQ(program.functionDecls.size(), 4U);
    const std::vector<Indices> expected = {
        {0, 1, 1, 2}, {3, 2, 4, 4}, {5, 3, 6, 8}, {9, 4, 10, 10}};
    for (std::size_t i = 0; i < 4; ++i) {
        const BytecodeFunctionDecl& declaration = program.functionDecls[i];
        EXPECT_EQ(declaration.declarationLine, expected[i][0]);
        EXPECT_EQ(declaration.bodyChunk, expected[i][1]);
        EXPECT_EQ(declaration.bodyFirstLine, expected[i][2]);
        EXPECT_EQ(declaration.bodyEndLine, expected[i][3]);
        EXPECT_EQ(declaration.baseDirectory, "");
        EXPECT_EQ(declaration.scriptName, "");
    }
    EXPECT_EQ(
        codeOf(program, 0),
        (Code{{kFunctionDecl, 0}, {kFunctionDecl, 1}, {kFunctionDecl, 2}, {kFunctionDecl, 3}}));
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, CompilesMalformedHeadersAllTheSame) {
    EXPECT_EQ(topLevel("function 5(\n)\nend"), (Code{{kFunctionDecl, 0}}));
    EXPECT_EQ(topLevel("if\nend"), (Code{{kIfGroup, 0}}));
    EXPECT_EQ(topLevel("while a b\nend"), (Code{{kWhileLoop, 0}}));
}

TEST_F(BytecodeCompiler, CompilesARepeatThatAnEndCloses) {
    const BytecodeProgram program = compile("repeat\nx = 1\nend\ny = 2");
    ASSERT_EQ(program.repeatLoops.size(), 1U);
    EXPECT_EQ(program.repeatLoops[0].untilLine, 2U);
    EXPECT_EQ(codeOf(program, 0), (Code{{kRepeatLoop, 0}, {kFastAssign, 3}}));
}

// ------------------------------------------------------------------------- order

TEST_F(BytecodeCompiler, OrdersNestedLoops) {
    const BytecodeProgram program = compile(
        "while a\n"  // 0: chunk 1
        "x = 1\n"    // 1
        "while b\n"  // 2: chunk 2
        "x = 2\n"    // 3
        "end\n"      // 4
        "x = 3\n"    // 5
        "while c\n"  // 6: chunk 3
        "while d\n"  // 7: chunk 4
        "x = 4\n"    // 8
        "end\n"      // 9
        "end\n"      // 10
        "end\n"      // 11
        "x = 5\n");  // 12
    ASSERT_EQ(program.whileLoops.size(), 4U);
    // Tables: inner loops first.
    EXPECT_EQ(program.whileLoops[0].conditionLine, 2U);
    EXPECT_EQ(program.whileLoops[1].conditionLine, 7U);
    EXPECT_EQ(program.whileLoops[2].conditionLine, 6U);
    EXPECT_EQ(program.whileLoops[3].conditionLine, 0U);
    // Chunks: outer blocks first.
    EXPECT_EQ(program.whileLoops[0].bodyChunk, 2U);
    EXPECT_EQ(program.whileLoops[1].bodyChunk, 4U);
    EXPECT_EQ(program.whileLoops[2].bodyChunk, 3U);
    EXPECT_EQ(program.whileLoops[3].bodyChunk, 1U);
    // Code: inner blocks first.
    ASSERT_EQ(program.chunks.size(), 5U);
    EXPECT_EQ(program.chunks[2].firstInstruction, 0U);
    EXPECT_EQ(program.chunks[4].firstInstruction, 1U);
    EXPECT_EQ(program.chunks[3].firstInstruction, 2U);
    EXPECT_EQ(program.chunks[1].firstInstruction, 3U);
    EXPECT_EQ(program.chunks[0].firstInstruction, 7U);
    EXPECT_EQ(codeOf(program, 1),
              (Code{{kFastAssign, 1}, {kWhileLoop, 0}, {kFastAssign, 5}, {kWhileLoop, 2}}));
    EXPECT_EQ(codeOf(program, 0), (Code{{kWhileLoop, 3}, {kFastAssign, 12}}));
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, OrdersBlocksOfEveryKind) {
    const BytecodeProgram program = compile(
        "function f(a)\n"  // 0: chunk 1
        "if a\n"           // 1: chunk 2
        "for i = 1, 2\n"   // 2: chunk 3
        "repeat\n"         // 3: chunk 4
        "break\n"          // 4
        "until a\n"        // 5
        "end\n"            // 6
        "elseif b\n"       // 7: chunk 5
        "for k in t\n"     // 8: chunk 6
        "function g()\n"   // 9: chunk 7
        "return 1\n"       // 10
        "end\n"            // 11
        "end\n"            // 12
        "else\n"           // 13: chunk 8
        "while a\n"        // 14: chunk 9
        "end\n"            // 15
        "end\n"            // 16
        "return 2\n"       // 17
        "end\n"            // 18
        "f(1)\n");         // 19
    ASSERT_EQ(program.chunks.size(), 10U);
    EXPECT_EQ(codeOf(program, 0), (Code{{kFunctionDecl, 1}, {kStatement, 19}}));
    EXPECT_EQ(codeOf(program, 1), (Code{{kIfGroup, 0}, {kReturn, 17}}));
    EXPECT_EQ(codeOf(program, 2), (Code{{kNumericFor, 0}}));
    EXPECT_EQ(codeOf(program, 3), (Code{{kRepeatLoop, 0}}));
    EXPECT_EQ(codeOf(program, 4), (Code{{kBreak, 4}}));
    EXPECT_EQ(codeOf(program, 5), (Code{{kGenericFor, 0}}));
    EXPECT_EQ(codeOf(program, 6), (Code{{kFunctionDecl, 0}}));
    EXPECT_EQ(codeOf(program, 7), (Code{{kReturn, 10}}));
    EXPECT_EQ(codeOf(program, 8), (Code{{kWhileLoop, 0}}));
    EXPECT_EQ(codeOf(program, 9), Code{});
    ASSERT_EQ(program.functionDecls.size(), 2U);
    EXPECT_EQ(program.functionDecls[0].declarationLine, 9U);
    EXPECT_EQ(program.functionDecls[0].bodyFirstLine, 10U);
    EXPECT_EQ(program.functionDecls[0].bodyEndLine, 11U);
    EXPECT_EQ(program.functionDecls[1].declarationLine, 0U);
    EXPECT_EQ(program.functionDecls[1].bodyFirstLine, 1U);
    EXPECT_EQ(program.functionDecls[1].bodyEndLine, 18U);
    ASSERT_EQ(program.ifGroups.size(), 1U);
    ASSERT_EQ(program.ifGroups[0].branches.size(), 3U);
    EXPECT_EQ(program.ifGroups[0].branches[0].bodyChunk, 2U);
    EXPECT_EQ(program.ifGroups[0].branches[1].bodyChunk, 5U);
    EXPECT_EQ(program.ifGroups[0].branches[2].bodyChunk, 8U);
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, OrdersNestedIfChains) {
    const BytecodeProgram program =
        compile("if a\nif b\nelse\nif c\nend\nend\nelse\nif d\nend\nend\nif e\nend");
    ASSERT_EQ(program.ifGroups.size(), 5U);
    const Indices lines = {3, 1, 7, 0, 10};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(program.ifGroups[i].branches.at(0).conditionLine, lines[i]) << i;
    }
    EXPECT_EQ(codeOf(program, 0), (Code{{kIfGroup, 3}, {kIfGroup, 4}}));
    expectInvariants(program);
}

TEST_F(BytecodeCompiler, HoldsItsInvariantsInADeepProgram) {
    std::string source;
    for (int i = 0; i < 200; ++i) {
        source += "while a\nx = 1\nif b\nx = 2\nelse\nfor i = 1, 2\nfunction f()\n";
    }
    for (int i = 0; i < 200; ++i) source += "end\nend\ny = 1\nend\nend\nz = 1\n";
    const BytecodeProgram program = compile(source);
    EXPECT_EQ(program.chunks.size(), 1U + 200U * 5U);
    expectInvariants(program);
}

// ------------------------------------------------------------------------- hasLocalDeclaration

TEST_F(BytecodeCompiler, SeesLocalsOfTheChunkItself) {
    EXPECT_TRUE(hasLocal("local x = 1"));
    EXPECT_TRUE(hasLocal("x = 1\nlocal y"));
    EXPECT_TRUE(hasLocal("local function f()\nend"));
    EXPECT_TRUE(hasLocal("local t[1] = 2"));
    EXPECT_TRUE(hasLocal("local"));
    EXPECT_TRUE(hasLocal("local a b"));
    EXPECT_TRUE(hasLocal("return 1\nlocal x"));
    EXPECT_FALSE(hasLocal("x = local"));
    EXPECT_FALSE(hasLocal("native x = 1"));
    EXPECT_FALSE(hasLocal("native function f()\nend"));
    EXPECT_FALSE(hasLocal("function f()\nend"));
    EXPECT_FALSE(hasLocal("locals = 1"));
}

TEST_F(BytecodeCompiler, SeesLocalsOfNoNestedChunk) {
    for (const std::string block :
         {"if a\nlocal x = 1\nend", "while a\nlocal x = 1\nend", "for i = 1, 2\nlocal x\nend",
          "repeat\nlocal x\nuntil a", "function f()\nlocal x\nend",
          "for k in t\nlocal function f()\nend\nend"}) {
        EXPECT_FALSE(hasLocal(block, 0)) << block;
        EXPECT_TRUE(hasLocal(block, 1)) << block;
    }
    const BytecodeProgram branches = compile("if a\nx = 1\nelseif b\nlocal y\nelse\nz = 1\nend");
    EXPECT_FALSE(branches.chunks.at(0).hasLocalDeclaration);
    EXPECT_FALSE(branches.chunks.at(1).hasLocalDeclaration);
    EXPECT_TRUE(branches.chunks.at(2).hasLocalDeclaration);
    EXPECT_FALSE(branches.chunks.at(3).hasLocalDeclaration);
}

TEST_F(BytecodeCompiler, LeavesTheLocalsOfALocalFunctionInside) {
    const BytecodeProgram program = compile("local function f()\nx = 1\nend");
    EXPECT_TRUE(program.chunks.at(0).hasLocalDeclaration);
    EXPECT_FALSE(program.chunks.at(1).hasLocalDeclaration);
}

// ------------------------------------------------------------------------- names and versions

TEST_F(BytecodeCompiler, StampsTheTopsOfTheNameStacks) {
    const std::string outer = "/outer";
    const std::string directory = "/scripts";
    const std::string name = "main.dv";
    interpreter.baseDirectoryStack = {&outer, &directory};
    interpreter.scriptNameStack = {&name};
    const BytecodeProgram program = compile("function f()\nfunction g()\nend\nend");
    interpreter.baseDirectoryStack.clear();
    interpreter.scriptNameStack.clear();
    EXPECT_EQ(program.baseDirectory, "/scripts");
    EXPECT_EQ(program.scriptName, "main.dv");
    ASSERT_EQ(program.functionDecls.size(), 2U);
    for (const BytecodeFunctionDecl& declaration : program.functionDecls) {
        EXPECT_EQ(declaration.baseDirectory, "/scripts");
        EXPECT_EQ(declaration.scriptName, "main.dv");
    }
    EXPECT_EQ(program.version, 6);
}

TEST_F(BytecodeCompiler, KeepsTheWholeLineTable) {
    const BytecodeProgram program = compile("\nx = 1; y = 2\n@@ note\nif a\n\nend");
    ASSERT_EQ(program.lines.size(), 7U);
    EXPECT_EQ(program.lines[2].source, "y = 2");
    EXPECT_EQ(program.lines[2].lineNumber, 1U);
    EXPECT_EQ(program.lines[4].source, "if a");
    EXPECT_EQ(program.lines[4].matchingEnd, 6U);
    EXPECT_EQ(program.lines[4].lineNumber, 3U);
}

// ------------------------------------------------------------------------- refusals

TEST_F(BytecodeCompiler, RefusesOpenBlocksWithABareMessage) {
    EXPECT_EQ(refusal("if a\nx = 1"), "Missing 'end' for if block");
    EXPECT_EQ(refusal("if a\nelseif b\nelse"), "Missing 'end' for if block");
    EXPECT_EQ(refusal("while a"), "Missing 'end' for while block");
    EXPECT_EQ(refusal("repeat\nx = 1"), "Missing 'until' for repeat block");
    EXPECT_EQ(refusal("for i = 1, 2"), "Missing 'end' for for block");
    EXPECT_EQ(refusal("for k in t"), "Missing 'end' for for block");
    for (const std::string word : {"", "decay ", "native ", "local "}) {
        EXPECT_EQ(refusal(word + "function f()"), "Missing 'end' for function block") << word;
    }
}

TEST_F(BytecodeCompiler, RefusesTheOuterOfTwoOpenBlocksFirst) {
    EXPECT_EQ(refusal("while a\nif b"), "Missing 'end' for while block");
    EXPECT_EQ(refusal("while a\nif b\nend"), "Missing 'end' for while block");
    EXPECT_EQ(refusal("function f()\nrepeat"), "Missing 'end' for function block");
    EXPECT_EQ(refusal("repeat\nwhile a\nuntil b\nend"), "Missing 'until' for repeat block");
}

TEST_F(BytecodeCompiler, RefusesAnOpenIfWithBranches) {
    EXPECT_EQ(refusal("if a\nx = 1\nelse\nwhile b"), "Missing 'end' for if block");
    EXPECT_EQ(refusal("if a\nwhile b\nelse\nend"), "Missing 'end' for if block");
}

TEST_F(BytecodeCompiler, AcceptsEverythingElse) {
    for (const std::string source : {"x =", "end\nend", "a b c", "for\nend", "return 1 2",
                                     "function (\n)\nend", "(", "if a b\nend"}) {
        EXPECT_EQ(refusal(source), "") << source;
    }
}

TEST_F(BytecodeCompiler, RefusesALinkThatLeavesTheTable) {
    // Only a damaged line table has such links.
    BytecodeProgram program;
    program.lines = interpreter.parseLines("if a\nelse\nend");
    program.lines[0].nextBranch = 9;
    try {
        interpreter.compileBytecodeChunk(program, 0, 3);
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Missing 'end' for if block");
    }
    program.chunks.clear();
    program.lines[0].nextBranch = 3;
    try {
        interpreter.compileBytecodeChunk(program, 0, 10);
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Invalid if-chain while compiling bytecode");
    }
}

TEST_F(BytecodeCompiler, CompilesALineRangeIntoOneNewChunk) {
    BytecodeProgram program;
    program.lines = interpreter.parseLines("a = 1\nb = 2\nwhile c\nd = 3\nend\ne = 4");
    EXPECT_EQ(interpreter.compileBytecodeChunk(program, 1, 5), 0U);
    EXPECT_EQ(codeOf(program, 0), (Code{{kFastAssign, 1}, {kWhileLoop, 0}}));
    EXPECT_EQ(interpreter.compileBytecodeChunk(program, 5, 100), 2U);
    EXPECT_EQ(codeOf(program, 2), (Code{{kFastAssign, 5}}));
    EXPECT_EQ(interpreter.compileBytecodeChunk(program, 3, 3), 3U);
    EXPECT_EQ(program.chunks[3].instructionCount, 0U);
    EXPECT_FALSE(program.chunks[3].hasLocalDeclaration);
}

}  // namespace
