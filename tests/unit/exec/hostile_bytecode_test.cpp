// Programs that no compiler writes: what is out of range ends in its message, and what is in range
// but in the wrong place is run as it stands.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "exec/bytecode_program.h"
#include "hostile_program.h"
#include "interpreter/dovrel_script.h"

namespace {

using namespace hostile;

/// What `script` ends in after `damage`.
std::string damaged(const std::string& script,
                    const std::function<void(BytecodeProgram&)>& damage) {
    BytecodeProgram program = compile(script);
    damage(program);
    return messageOf(runAsFile(program));
}

/// What a script with one `statement` ends in when its only instruction is `opcode` on its line.
std::string resultOf(const std::string& before, const std::string& statement, BytecodeOp opcode,
                     const std::string& after) {
    BytecodeProgram program = compile(before + "\n" + statement + "\n" + after + "\n");
    program.code.at(1).opcode = static_cast<std::uint8_t>(opcode);
    std::string result;
    const std::string error = runAsFile(program, &result);
    return error.empty() ? result : messageOf(error);
}

BytecodeInstruction instruction(BytecodeOp opcode, std::uint32_t operand) {
    return {static_cast<std::uint8_t>(opcode), operand, 0};
}

/// One line with the tokens of `text`.
ParsedScriptLine lineOf(const std::string& text) {
    DovrelScript interpreter;
    std::vector<ParsedScriptLine> lines = interpreter.parseLines(text);
    return lines.empty() ? ParsedScriptLine() : std::move(lines[0]);
}

// ------------------------------------------------------------------ chunks

TEST(HostileBytecode, WithoutChunksHasNoTopLevel) {
    EXPECT_EQ(runAsFile(BytecodeProgram()), "Invalid bytecode chunk index");
}

TEST(HostileBytecode, WithABodyThatIsNoChunkFails) {
    const std::string wanted = "Invalid bytecode chunk index";
    for (const std::uint32_t chunk : {2U, 3U, kFarAway}) {
        EXPECT_EQ(damaged("if true\n x = 1\nend",
                          [&](auto& p) { p.ifGroups.at(0).branches.at(0).bodyChunk = chunk; }),
                  wanted);
        EXPECT_EQ(damaged("while true\n x = 1\nend",
                          [&](auto& p) { p.whileLoops.at(0).bodyChunk = chunk; }),
                  wanted);
        EXPECT_EQ(damaged("repeat\n x = 1\nuntil true",
                          [&](auto& p) { p.repeatLoops.at(0).bodyChunk = chunk; }),
                  wanted);
        EXPECT_EQ(damaged("for i = 1, 2\n x = 1\nend",
                          [&](auto& p) { p.numericFors.at(0).bodyChunk = chunk; }),
                  wanted);
        EXPECT_EQ(damaged("for i in [1]\n x = 1\nend",
                          [&](auto& p) { p.genericFors.at(0).bodyChunk = chunk; }),
                  wanted);
        EXPECT_EQ(damaged("function f()\n x = 1\n y = 2\nend\nf()",
                          [&](auto& p) { p.functionDecls.at(0).bodyChunk = chunk; }),
                  wanted);
    }
}

TEST(HostileBytecode, WithABadBodyIsReportedAtItsBlock) {
    BytecodeProgram program = compile("x = 1\nwhile true\n x = 1\nend");
    program.whileLoops.at(0).bodyChunk = 5;
    EXPECT_EQ(runAsFile(program),
              "DovrelScript error: Invalid bytecode chunk index\n  at line 2, near token 'while'\n"
              "  while true\n  ^~~~~\n"
              "  hint: check spelling, operators, parentheses, and quote matching\n");
}

TEST(HostileBytecode, WithAChunkOutsideTheCodeFails) {
    const std::string wanted = "Bytecode chunk range is out of bounds";
    const auto topLevel = [&](std::uint32_t first, std::uint32_t count) {
        BytecodeProgram program = compile("x = 1\ny = 2\n");
        program.chunks.at(0) = {first, count, false};
        return runAsFile(program);
    };
    // Outside of every statement, so the message is bare.
    EXPECT_EQ(topLevel(0, 3), wanted);
    EXPECT_EQ(topLevel(2, 1), wanted);
    EXPECT_EQ(topLevel(3, 0), wanted);
    EXPECT_EQ(topLevel(0, kFarAway), wanted);
    EXPECT_EQ(topLevel(kFarAway, 1), wanted);
    // Sums that wrap around in 32 bits.
    EXPECT_EQ(topLevel(kFarAway, 2), wanted);
    EXPECT_EQ(topLevel(0x80000000, 0x80000000), wanted);
    EXPECT_EQ(topLevel(2, kFarAway), wanted);
    EXPECT_EQ(topLevel(2, 0), "");

    for (const bool hasLocal : {false, true}) {
        EXPECT_EQ(damaged("while true\n x = 1\nend",
                          [&](auto& p) {
                              p.chunks.at(1) = {kFarAway, 2, hasLocal};
                          }),
                  wanted);
    }
}

TEST(HostileBytecode, LeavesNoScopeBehindAChunkOutsideTheCode) {
    BytecodeProgram program = compile("x = 1\n");
    program.chunks.at(0) = {0, 9, true};
    const auto shared = std::make_shared<BytecodeProgram>(std::move(program));
    inInterpreter([&](DovrelScript& interpreter) {
        EXPECT_ANY_THROW(interpreter.runBytecodeProgram(shared));
        EXPECT_FALSE(interpreter.blockScopeVisible());
    });
}

// ------------------------------------------------------------------ operands

TEST(HostileBytecode, WithALineThatIsNoneFails) {
    const std::string wanted = "Bytecode line index out of range";
    for (const std::uint32_t line : {9U, 100U, kFarAway}) {
        const auto operandOf = [&](std::size_t instruction) {
            return [=](BytecodeProgram& p) { p.code.at(instruction).operand = line; };
        };
        EXPECT_EQ(damaged("print", operandOf(0)), wanted);
        EXPECT_EQ(damaged("x = 1", operandOf(0)), wanted);
        EXPECT_EQ(damaged("return 1", operandOf(0)), wanted);
        EXPECT_EQ(damaged("break", operandOf(0)), wanted);
        EXPECT_EQ(damaged("if true\n x = 1\nend",
                          [&](auto& p) { p.ifGroups.at(0).branches.at(0).conditionLine = line; }),
                  wanted);
        EXPECT_EQ(damaged("if false\nelse\n x = 1\nend",
                          [&](auto& p) { p.ifGroups.at(0).branches.at(1).conditionLine = line; }),
                  wanted);
        EXPECT_EQ(damaged("while false\n x = 1\nend",
                          [&](auto& p) { p.whileLoops.at(0).conditionLine = line; }),
                  wanted);
        EXPECT_EQ(damaged("repeat\n x = 1\nuntil true",
                          [&](auto& p) { p.repeatLoops.at(0).untilLine = line; }),
                  wanted);
        EXPECT_EQ(
            damaged("for i = 1, 2\nend", [&](auto& p) { p.numericFors.at(0).headerLine = line; }),
            wanted);
        EXPECT_EQ(
            damaged("for i in [1]\nend", [&](auto& p) { p.genericFors.at(0).headerLine = line; }),
            wanted);
        EXPECT_EQ(damaged("function f()\nend",
                          [&](auto& p) { p.functionDecls.at(0).declarationLine = line; }),
                  wanted);
        // In bodies that run inline.
        EXPECT_EQ(damaged("while true\n print\nend", operandOf(0)), wanted);
        EXPECT_EQ(damaged("while true\n x = 1\nend", operandOf(0)), wanted);
        EXPECT_EQ(damaged("while true\n break\nend", operandOf(0)), wanted);
        EXPECT_EQ(damaged("while true\n if true\n  x = 1\n end\nend",
                          [&](auto& p) { p.ifGroups.at(0).branches.at(0).conditionLine = line; }),
                  wanted);
    }
}

TEST(HostileBytecode, WithARecordThatIsNoneFails) {
    const auto operand = [](std::uint32_t value) {
        return [=](BytecodeProgram& p) { p.code.back().operand = value; };
    };
    for (const std::uint32_t value : {1U, 2U, kFarAway}) {
        EXPECT_EQ(damaged("if true\nend", operand(value)), "Bytecode if-group index out of range");
        EXPECT_EQ(damaged("while true\nend", operand(value)),
                  "Bytecode while-loop index out of range");
        EXPECT_EQ(damaged("repeat\nuntil true", operand(value)),
                  "Bytecode repeat-loop index out of range");
        EXPECT_EQ(damaged("for i = 1, 2\nend", operand(value)),
                  "Bytecode numeric-for index out of range");
        EXPECT_EQ(damaged("for i in [1]\nend", operand(value)),
                  "Bytecode generic-for index out of range");
        EXPECT_EQ(damaged("function f()\nend", operand(value)),
                  "Bytecode function-declaration index out of range");
    }
}

TEST(HostileBytecode, WithoutALineYetIsReportedNearTheWordScript) {
    BytecodeProgram program = compile("while true\nend\n");
    program.code.at(0).operand = 9;
    EXPECT_EQ(runAsFile(program),
              "DovrelScript error: Bytecode while-loop index out of range\n"
              "  at line 1, near token 'script'\n  \n  ^\n"
              "  hint: check spelling, operators, parentheses, and quote matching\n");
}

TEST(HostileBytecode, WithABadRecordInABodyIsNeverRunInline) {
    // The enclosing body is not inlinable, so the message is that of the recursive run.
    const auto firstOperand = [](BytecodeProgram& p) { p.code.at(0).operand = 7; };
    EXPECT_EQ(damaged("while true\n if true\n end\nend", firstOperand),
              "Bytecode if-group index out of range");
    EXPECT_EQ(damaged("repeat\n while true\n end\nuntil true", firstOperand),
              "Bytecode while-loop index out of range");
    EXPECT_EQ(damaged("for i = 1, 2\n repeat\n until true\nend", firstOperand),
              "Bytecode repeat-loop index out of range");
    EXPECT_EQ(damaged("if true\n for i = 1, 2\n end\nend", firstOperand),
              "Bytecode numeric-for index out of range");
}

/// What a body with the single instruction `bad` ends in when it is taken for inlinable.
std::string damagedInline(BytecodeInstruction bad) {
    auto program = std::make_shared<BytecodeProgram>(compile("while true\n x = 1\nend\n"));
    program->code.at(0) = bad;
    program->chunkInlineStates = {ChunkInlineState::Unknown, ChunkInlineState::Yes};
    return messageOf(runAsItStands(program));
}

TEST(HostileBytecode, WithALoopMayNameLinesOutsideToo) {
    // A program with a loop is compiled before it runs.
    for (const std::uint32_t line : {7U, 100U, kFarAway}) {
        auto program = std::make_shared<BytecodeProgram>(
            compile("if true\n x = 1\nend\nwhile false\n x = 1\nend\n"));
        program->ifGroups.at(0).branches.at(0).conditionLine = line;
        EXPECT_EQ(messageOf(runAsItStands(program)), "Bytecode line index out of range") << line;
    }
}

TEST(HostileBytecode, RunInlineHasMessagesOfItsOwn) {
    EXPECT_EQ(damagedInline(instruction(BytecodeOp::IfGroup, 0)),
              "Inline bytecode if-group index out of range");
    EXPECT_EQ(damagedInline(instruction(BytecodeOp::WhileLoop, 1)),
              "Inline bytecode while-loop index out of range");
    EXPECT_EQ(damagedInline(instruction(BytecodeOp::RepeatLoop, 0)),
              "Inline bytecode repeat-loop index out of range");
    EXPECT_EQ(damagedInline(instruction(BytecodeOp::NumericFor, 0)),
              "Inline bytecode numeric-for index out of range");
    EXPECT_EQ(damagedInline(instruction(BytecodeOp::Statement, 99)),
              "Bytecode line index out of range");
    EXPECT_EQ(damagedInline(instruction(BytecodeOp::Break, 99)),
              "Bytecode line index out of range");
}

TEST(HostileBytecode, RunInlineKnowsNoOtherOpcodes) {
    for (const unsigned int opcode : {6U, 7U, 8U, 10U, 255U}) {
        EXPECT_EQ(damagedInline({static_cast<std::uint8_t>(opcode), 0, 0}),
                  "Unexpected non-inline opcode")
            << opcode;
    }
}

TEST(HostileBytecode, WithALoopVariableThatIsNoTokenFails) {
    auto program = std::make_shared<BytecodeProgram>(compile("for k, v in [1]\nend\n"));
    auto header = std::make_shared<ParsedForHeader>(*program->lines.records().at(0).forHeader);
    header->genericVariables.at(1) = 50;
    program->lines.records().at(0).forHeader = header;
    EXPECT_EQ(messageOf(runAsItStands(program)),
              "Compiled generic-for variable index out of range");
}

// ------------------------------------------------------------------ opcodes

TEST(HostileBytecode, OpcodesOutsideTheTableDoNothing) {
    for (unsigned int opcode = 10; opcode <= 255; opcode += 35) {
        BytecodeProgram program = compile("x = 1\nx = 2\nreturn x\n");
        program.code.at(1).opcode = static_cast<std::uint8_t>(opcode);
        program.code.at(1).operand = kFarAway;
        std::string result;
        EXPECT_EQ(runAsFile(program, &result), "");
        EXPECT_EQ(result, "1") << opcode;

        // In a body, which therefore does not run inline.
        program = compile("for i = 1, 3\n x = i\n y = i\nend\nreturn x\n");
        program.code.at(1).opcode = static_cast<std::uint8_t>(opcode);
        EXPECT_EQ(runAsFile(program, &result), "");
        EXPECT_EQ(result, "3") << opcode;
    }
}

TEST(HostileBytecode, AnyLineMayBeAStatement) {
    const auto statement = [](const std::string& line, const std::string& after) {
        return resultOf("x = 1", line, BytecodeOp::Statement, after);
    };
    EXPECT_EQ(statement("return 5", "return x"), "Unexpected trailing token");
    EXPECT_EQ(statement("break", "return x"), "1");
    EXPECT_EQ(statement("break 5", "return x"), "Unexpected trailing token");
}

TEST(HostileBytecode, AnyLineMayBeAFastAssignment) {
    const auto assign = [](const std::string& line, const std::string& after) {
        return resultOf("x = 1", line, BytecodeOp::FastAssign, after);
    };
    // Lines without targets are passed over.
    EXPECT_EQ(assign("print(5)", "return x"), "1");
    EXPECT_EQ(assign("return 5", "return x"), "1");
    // The line has no compiled single value, so nil is stored; its text is not evaluated.
    EXPECT_EQ(assign("x = [1]", "return x"), "not");
    EXPECT_EQ(assign("local x", "return x"), "not");
    EXPECT_EQ(assign("x, y = 5, 6", "return [x, y]"), "[not, not]");
    EXPECT_EQ(assign("x[1] = 5", "return x"), "not");
    EXPECT_EQ(assign("x += [1]", "return x"), "Unsupported operation '+' between types");
    // An assignment behind a keyword is one here.
    EXPECT_EQ(assign("break = 5", "return break"), "5");
}

TEST(HostileBytecode, AnyLineMayBeAReturn) {
    const auto returns = [](const std::string& line) {
        return resultOf("x = 1", line, BytecodeOp::Return, "x = 2");
    };
    EXPECT_EQ(returns("break"), "not");
    EXPECT_EQ(returns("- 5"), "5");
    EXPECT_EQ(returns("print(5)"), "5");
    EXPECT_EQ(returns("x = 5"), "Unknown token: =");
    EXPECT_EQ(returns("x y"), "not");
    EXPECT_EQ(returns("x 1 2"), "Unexpected token after return value");
}

TEST(HostileBytecode, AnyLineMayBeABreak) {
    BytecodeProgram program = compile("while true\n x = 5\nend\nreturn 7\n");
    program.code.at(0).opcode = static_cast<std::uint8_t>(BytecodeOp::Break);
    std::string result;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "7");
}

// ------------------------------------------------------------------ lines in the wrong place

TEST(HostileBytecode, ConditionsOfOtherLinesAreReadFromTheirSecondToken) {
    const auto condition = [](const std::string& line) {
        BytecodeProgram program = compile("if true\n x = 1\nend\n");
        program.lines.records().push_back(lineOf(line));
        program.ifGroups.at(0).branches.at(0).conditionLine = 3;
        return messageOf(runAsFile(program));
    };
    EXPECT_EQ(condition("x == 1"), "Unknown token: ==");
    EXPECT_EQ(condition("x y z"), "Unexpected token after if condition");
    EXPECT_EQ(condition("x"), "Unexpected end of expression");
    EXPECT_EQ(condition("while 1 2"), "Unexpected token after while condition");
    EXPECT_EQ(condition("else"), "Unexpected end of expression");
}

TEST(HostileBytecode, WithAnUntilLineThatIsNoneFails) {
    for (const std::uint32_t line : {0U, 1U, 3U, 4U}) {
        EXPECT_EQ(damaged("repeat\n x = 1\nuntil true\ny = 2\n\n",
                          [&](auto& p) { p.repeatLoops.at(0).untilLine = line; }),
                  "Missing until condition")
            << line;
    }
}

TEST(HostileBytecode, ForHeadersMayBeAnyLine) {
    const auto numeric = [](const std::string& line) {
        BytecodeProgram program = compile("for i = 1, 3\n n = 1\nend\n");
        program.lines.records().push_back(lineOf(line));
        program.numericFors.at(0).headerLine = 3;
        return messageOf(runAsFile(program));
    };
    EXPECT_EQ(numeric("x"), "Unexpected end of expression");
    EXPECT_EQ(numeric(""), "Unexpected end of expression");
    EXPECT_EQ(numeric("for i in t"), "Expected ',' after for start value");
    EXPECT_EQ(numeric("f() 1, 2 3"), "Unexpected token after for clause");
    EXPECT_EQ(numeric("a b c 1, 2"), "");

    const auto generic = [](const std::string& line) {
        BytecodeProgram program = compile("for i in [1]\n n = 1\nend\n");
        program.lines.records().push_back(lineOf(line));
        program.genericFors.at(0).headerLine = 3;
        return messageOf(runAsFile(program));
    };
    EXPECT_EQ(generic(""), "Expected loop variable name");
    EXPECT_EQ(generic("x"), "Expected loop variable name");
    EXPECT_EQ(generic("for i = 1, 2"), "Expected 'in' in generic for loop");
    EXPECT_EQ(generic("x k, v in [1] 2"), "Unexpected token after for iterator");
    EXPECT_EQ(generic("x k, v in [[1]]"), "");
}

// ------------------------------------------------------------------ function declarations

/// What a declaration with these tokens ends in. The tokens end where no line of a script can:
/// inside a bracket.
std::string declared(const std::vector<std::string>& tokens) {
    BytecodeProgram program = compile("function f()\n x = 1\nend\n");
    program.lines.records().at(0).tokens = tokens;
    return runAsFile(program);
}

std::string near(const std::string& message, const std::string& token) {
    return "DovrelScript error: " + message + "\n  at line 1, near token '" + token +
           "'\n  function f()\n";
}

TEST(HostileBytecode, HeadersThatEndEarlyAreReportedNearWhatIsMissing) {
    const auto startsWith = [](const std::string& text, const std::string& start) {
        EXPECT_EQ(text.substr(0, start.size()), start);
    };
    startsWith(declared({}), near("Expected function target", "function"));
    startsWith(declared({"function"}), near("Expected function target", "function"));
    startsWith(declared({"function", "t", "["}), near("Unexpected end of expression", "EOF"));
    startsWith(declared({"function", "t", "[", "1"}),
               near("Expected closing bracket in function target", "]"));
    startsWith(declared({"function", "t", "[", "1", "]"}),
               near("Expected '(' after function target", "("));
    startsWith(declared({"function", "f"}), near("Expected '(' after function target", "("));
    startsWith(declared({"function", "f", "("}), near("Expected function parameter name", ")"));
    startsWith(declared({"function", "f", "(", "a"}),
               near("Expected ',' or ')' after function parameter", ")"));
    startsWith(declared({"function", "f", "(", "a", ","}),
               near("Expected function parameter name", ")"));
    startsWith(declared({"function", "f", "(", "..."}),
               near("Expected ')' after function parameters", ")"));
    startsWith(declared({"function", "f", "(", "a", ",", "..."}),
               near("Expected ')' after function parameters", ")"));
    EXPECT_EQ(declared({"function", "f", "(", ")"}), "");
}

TEST(HostileBytecode, HeadersOfOtherLinesAreReadFromTheirThirdToken) {
    BytecodeProgram program = compile("function f()\n return 5\nend\nx y g(a)\nreturn g(1)\n");
    program.functionDecls.at(0).declarationLine = 3;
    program.code.at(2).opcode = 99;
    std::string result;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "5");
}

TEST(HostileBytecode, FunctionsWithBodyLinesOutOfRangeRunTheirChunk) {
    for (const auto& [first, end] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {2, 1}, {1, 9}, {kFarAway, kFarAway}, {0, kFarAway}, {9, 9}, {4, 4}, {3, 3}}) {
        BytecodeProgram program = compile("function f(x)\n return x + 1\nend\nreturn f(4)\n");
        program.functionDecls.at(0).bodyFirstLine = first;
        program.functionDecls.at(0).bodyEndLine = end;
        std::string result;
        EXPECT_EQ(runAsFile(program, &result), "");
        EXPECT_EQ(result, "5") << first << ", " << end;
    }
}

TEST(HostileBytecode, CoroutinesWithBodyLinesOutOfRangeHaveNoBody) {
    BytecodeProgram program = compile("decay function f()\n n = 5\nend\nf()\nx = 1\nreturn n\n");
    std::string result;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "5");
    program.functionDecls.at(0).bodyEndLine = kFarAway;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "not");
}

// ------------------------------------------------------------------ how chunks nest

TEST(HostileBytecode, ChunksMayStandInAnyOrder) {
    BytecodeProgram program = compile(
        "x = 0\nfor i = 1, 3\n if i > 1\n  while true\n   x += i\n   local y = x\n   break\n"
        "  end\n end\nend\nreturn x\n");
    std::string result;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "5");
    // The innermost body, 3, and the outermost, 1, change places.
    std::swap(program.chunks.at(1), program.chunks.at(3));
    program.numericFors.at(0).bodyChunk = 3;
    program.whileLoops.at(0).bodyChunk = 1;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "5");
}

TEST(HostileBytecode, SeveralBlocksMayShareAChunk) {
    BytecodeProgram program =
        compile("n = 0\nif true\n n += 1\nend\nwhile n < 5\n n += 100\nend\nreturn n\n");
    program.whileLoops.at(0).bodyChunk = program.ifGroups.at(0).branches.at(0).bodyChunk;
    std::string result;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "5");
}

TEST(HostileBytecode, AChunkMayHoldItselfWhereItIsNeverEntered) {
    const auto result = [](const std::string& script, auto damage) {
        BytecodeProgram program = compile(script);
        damage(program);
        std::string value;
        const std::string error = runAsFile(program, &value);
        return error.empty() ? value : messageOf(error);
    };
    EXPECT_EQ(result("if false\n x = 1\nend\nreturn 1\n",
                     [](auto& p) { p.ifGroups.at(0).branches.at(0).bodyChunk = 0; }),
              "1");
    EXPECT_EQ(result("while false\n x = 1\nend\nreturn 2\n",
                     [](auto& p) { p.whileLoops.at(0).bodyChunk = 0; }),
              "2");
    EXPECT_EQ(result("for i = 1, 0\n x = 1\nend\nreturn 3\n",
                     [](auto& p) { p.numericFors.at(0).bodyChunk = 0; }),
              "3");
    EXPECT_EQ(result("for i in []\n x = 1\nend\nreturn 4\n",
                     [](auto& p) { p.genericFors.at(0).bodyChunk = 0; }),
              "4");
    // Looked at for running inline, but not entered.
    EXPECT_EQ(result("while true\n if false\n  while false\n   x = 1\n  end\n end\n break\nend\n"
                     "return 5\n",
                     [](auto& p) {
                         p.whileLoops.at(0).bodyChunk = p.ifGroups.at(0).branches.at(0).bodyChunk;
                     }),
              "5");
}

TEST(HostileBytecode, AChunkThatHoldsItselfEndsInAnError) {
    const std::string wanted = "Invalid bytecode chunk index";
    const std::string blocks[] = {"", "local z = 1\n"};
    for (const std::string& first : blocks) {
        EXPECT_EQ(damaged(first + "if true\n x = 1\nend",
                          [](auto& p) { p.ifGroups.at(0).branches.at(0).bodyChunk = 0; }),
                  wanted);
        EXPECT_EQ(damaged(first + "while true\n x = 1\nend",
                          [](auto& p) { p.whileLoops.at(0).bodyChunk = 0; }),
                  wanted);
        EXPECT_EQ(damaged(first + "repeat\n x = 1\nuntil true",
                          [](auto& p) { p.repeatLoops.at(0).bodyChunk = 0; }),
                  wanted);
        EXPECT_EQ(damaged(first + "for i = 1, 2\n x = 1\nend",
                          [](auto& p) { p.numericFors.at(0).bodyChunk = 0; }),
                  wanted);
        EXPECT_EQ(damaged(first + "for i in [1]\n x = 1\nend",
                          [](auto& p) { p.genericFors.at(0).bodyChunk = 0; }),
                  wanted);
        // Two bodies that hold each other.
        EXPECT_EQ(damaged(first + "if true\n while true\n  x = 1\n end\nend",
                          [](auto& p) {
                              p.whileLoops.at(0).bodyChunk =
                                  p.ifGroups.at(0).branches.at(0).bodyChunk;
                          }),
                  wanted);
    }
}

TEST(HostileBytecode, AFunctionMayHaveAnyChunkAsItsBody) {
    BytecodeProgram program = compile(
        "function f(n)\n x = 1\n y = 2\nend\nif (n or 0) == 5\n return [n]\nend\n"
        "return f((n or 0) + 1)\n");
    program.functionDecls.at(0).bodyChunk = 0;
    std::string result;
    EXPECT_EQ(runAsFile(program, &result), "");
    EXPECT_EQ(result, "[5]");
}

}  // namespace
