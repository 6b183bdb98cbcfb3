// Every index, opcode and token list of a program set to wrong values, one at a time: each ends in
// its message, or at least ends.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "exec/bytecode_program.h"
#include "hostile_program.h"

namespace {

using namespace hostile;

// Everything runs, every chunk ticks, and every condition does: whatever is damaged, it ends.
constexpr const char* kTickingScript = R"(tick()
tick()
list = [1, 2]
function short(x)
  return x + 1
end
function long(x, ...)
  tick()
  tick()
  y = short(tick(x))
  return y, x
end
decay function later(a)
  tick()
  tick()
end
later(tick(1))
for i = 1, 3
  tick()
  tick()
  if tick(i) == 1
    tick()
    tick()
  elseif tick(i) == 2
    tick()
    tick()
  else
    tick()
    tick()
  end
end
n = 0
while tick(n) < 2
  tick()
  tick()
  n += 1
end
while tick(true)
  local z = n
  tick()
  tick()
  break
end
repeat
  tick()
  tick()
  n -= 1
until tick(n) <= 0
for k, v in pairs(list)
  tick()
  tick()
end
for v in list
  tick()
  tick()
end
a, b = long(tick(5))
return a
)";

/// One index of a program: where it is and what a wrong one ends in.
struct IndexField {
    std::string name;
    std::function<std::uint32_t&(BytecodeProgram&)> at;
    std::string message;
};

std::string operandMessage(std::uint16_t opcode) {
    switch (static_cast<BytecodeOp>(opcode)) {
        case BytecodeOp::IfGroup: return "Bytecode if-group index out of range";
        case BytecodeOp::WhileLoop: return "Bytecode while-loop index out of range";
        case BytecodeOp::RepeatLoop: return "Bytecode repeat-loop index out of range";
        case BytecodeOp::NumericFor: return "Bytecode numeric-for index out of range";
        case BytecodeOp::GenericFor: return "Bytecode generic-for index out of range";
        case BytecodeOp::FunctionDecl: return "Bytecode function-declaration index out of range";
        default: return "Bytecode line index out of range";
    }
}

/// Chunks that only a fast body or a coroutine stands for: they are never run.
bool isNeverRun(const BytecodeProgram& program, std::size_t chunk) {
    return chunk == program.functionDecls.at(0).bodyChunk ||
           chunk == program.functionDecls.at(2).bodyChunk;
}

/// The fields of the tables that hold blocks; `loops` names a table and `line` its first field.
template <typename Loop>
void addLoopFields(std::vector<IndexField>& fields, const BytecodeProgram& program,
                   const std::string& name, std::vector<Loop> BytecodeProgram::*loops,
                   std::uint32_t Loop::*line) {
    for (std::size_t i = 0; i < (program.*loops).size(); ++i) {
        const std::string which = name + " " + std::to_string(i);
        fields.push_back({which + " line",
                          [=](BytecodeProgram& p) -> std::uint32_t& { return (p.*loops)[i].*line; },
                          "Bytecode line index out of range"});
        fields.push_back(
            {which + " body",
             [=](BytecodeProgram& p) -> std::uint32_t& { return (p.*loops)[i].bodyChunk; },
             "Invalid bytecode chunk index"});
    }
}

void addCodeFields(std::vector<IndexField>& fields, const BytecodeProgram& program) {
    for (std::size_t chunk = 0; chunk < program.chunks.size(); ++chunk) {
        const std::string which = "chunk " + std::to_string(chunk);
        const std::string message =
            isNeverRun(program, chunk) ? "" : "Bytecode chunk range is out of bounds";
        fields.push_back(
            {which + " first",
             [=](BytecodeProgram& p) -> std::uint32_t& { return p.chunks[chunk].firstInstruction; },
             message});
        fields.push_back(
            {which + " count",
             [=](BytecodeProgram& p) -> std::uint32_t& { return p.chunks[chunk].instructionCount; },
             message});
        const BytecodeChunkRange& range = program.chunks[chunk];
        for (std::size_t i = range.firstInstruction;
             i < range.firstInstruction + range.instructionCount; ++i) {
            fields.push_back(
                {"operand " + std::to_string(i),
                 [=](BytecodeProgram& p) -> std::uint32_t& { return p.code[i].operand; },
                 isNeverRun(program, chunk) ? "" : operandMessage(program.code[i].opcode)});
        }
    }
}

std::vector<IndexField> indexFields(const BytecodeProgram& program) {
    std::vector<IndexField> fields;
    addCodeFields(fields, program);
    for (std::size_t i = 0; i < program.ifGroups.at(0).branches.size(); ++i) {
        const std::string which = "branch " + std::to_string(i);
        fields.push_back({which + " line",
                          [=](BytecodeProgram& p) -> std::uint32_t& {
                              return p.ifGroups[0].branches[i].conditionLine;
                          },
                          "Bytecode line index out of range"});
        fields.push_back({which + " body",
                          [=](BytecodeProgram& p) -> std::uint32_t& {
                              return p.ifGroups[0].branches[i].bodyChunk;
                          },
                          "Invalid bytecode chunk index"});
    }
    addLoopFields(fields, program, "while", &BytecodeProgram::whileLoops,
                  &BytecodeWhileLoop::conditionLine);
    addLoopFields(fields, program, "repeat", &BytecodeProgram::repeatLoops,
                  &BytecodeRepeatLoop::untilLine);
    addLoopFields(fields, program, "numeric for", &BytecodeProgram::numericFors,
                  &BytecodeForLoop::headerLine);
    addLoopFields(fields, program, "generic for", &BytecodeProgram::genericFors,
                  &BytecodeForLoop::headerLine);
    for (std::size_t i = 0; i < program.functionDecls.size(); ++i) {
        const std::string which = "function " + std::to_string(i);
        const auto add = [&](const std::string& name, std::uint32_t BytecodeFunctionDecl::*field,
                             const std::string& message) {
            fields.push_back(
                {which + name,
                 [=](BytecodeProgram& p) -> std::uint32_t& { return p.functionDecls[i].*field; },
                 message});
        };
        add(" line", &BytecodeFunctionDecl::declarationLine, "Bytecode line index out of range");
        // Only the second function runs its chunk.
        add(" body", &BytecodeFunctionDecl::bodyChunk,
            i == 1 ? "Invalid bytecode chunk index" : "");
        add(" first line", &BytecodeFunctionDecl::bodyFirstLine, "");
        add(" end line", &BytecodeFunctionDecl::bodyEndLine, "");
    }
    return fields;
}

TEST(DamagedBytecode, RunsWellWhileNothingIsDamaged) {
    std::string result;
    EXPECT_EQ(runAsFile(compile(kTickingScript), &result), "");
    EXPECT_EQ(result, "6");
}

TEST(DamagedBytecode, WithAnyIndexOutOfRangeEndsInItsMessage) {
    const BytecodeProgram program = compile(kTickingScript);
    for (const IndexField& field : indexFields(program)) {
        for (const std::uint32_t wrong : {1000U, 0x7FFFFFFFU, 0x80000000U, kFarAway}) {
            BytecodeProgram bad = program;
            field.at(bad) = wrong;
            EXPECT_EQ(messageOf(runAsFile(bad)), field.message) << field.name << " = " << wrong;
        }
    }
}

TEST(DamagedBytecode, WithAnyIndexWrongButInRangeComesToAnEnd) {
    const BytecodeProgram program = compile(kTickingScript);
    const auto most = static_cast<std::uint32_t>(program.lines.size());
    int runs = 0;
    for (const IndexField& field : indexFields(program)) {
        for (std::uint32_t wrong = 0; wrong <= most; ++wrong) {
            BytecodeProgram bad = program;
            field.at(bad) = wrong;
            static_cast<void>(runAsFile(bad));
            ++runs;
        }
    }
    EXPECT_GT(runs, 3000);
}

TEST(DamagedBytecode, WithAnyOpcodeWrongComesToAnEnd) {
    const BytecodeProgram program = compile(kTickingScript);
    for (std::size_t i = 0; i < program.code.size(); ++i) {
        for (unsigned int opcode = 0; opcode <= 11; ++opcode) {
            for (std::uint32_t operand = 0; operand <= 3; ++operand) {
                BytecodeProgram bad = program;
                bad.code[i] = {static_cast<std::uint8_t>(opcode), operand, 0};
                static_cast<void>(runAsFile(bad));
            }
        }
    }
}

TEST(DamagedBytecode, WithTheTokensOfAnyLineWrongComesToAnEnd) {
    const BytecodeProgram program = compile(kTickingScript);
    for (std::size_t i = 0; i < program.lines.size(); ++i) {
        for (std::size_t other = 0; other < program.lines.size(); ++other) {
            // As a return line, a header calls its own function.
            if (program.lines[other].kind == LineKind::Function) continue;
            BytecodeProgram bad = program;
            bad.lines[i].tokens = program.lines[other].tokens;
            static_cast<void>(runAsFile(bad));
        }
        // And cut short behind each token.
        for (std::size_t size = 0; size < program.lines[i].tokens.size(); ++size) {
            BytecodeProgram bad = program;
            bad.lines[i].tokens.resize(size);
            static_cast<void>(runAsFile(bad));
        }
    }
}

}  // namespace
