// Writing and reading bytecode files.
#include "exec/bytecode_file.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "bytecode_bytes.h"
#include "exec/bytecode_program.h"
#include "interpreter/dovrel_script.h"

namespace {

constexpr std::uint32_t kAbsurdCount = 0xFFFFFFFF;

// Every statement, every table, strings of several sorts, and some results to compare.
constexpr const char* kRichScript = R"(@@ everything in one script
log = array()
function twice(x)
  return x * 2
end
local function long_one(a, ...)
  local b = a
  return b, 'single "quotes"'
end
for i = 1, 3
  if i == 1
    push(log, "one")
  elseif i == 2; push(log, twice(i))
  else
    push(log, [i, {k: i}["k"]])
  end
end
n = 0
while true
  n += 1
  if n > 3
    break
  end
end
repeat
  n -= 1
until n == 0
for k, v in pairs(log)
  push(log, k) ; pop(log)
end
a, b = long_one(5)
push(log, toString(a) + b + "\ttab
  and a second line")
push(log, n)
)";

ParsedScriptLine makeLine(const std::string& source, std::size_t number,
                          std::vector<std::string> tokens) {
    ParsedScriptLine line;
    line.source = source;
    line.lineNumber = number;
    line.tokens = std::move(tokens);
    return line;
}

/// Something different in every field. Not a program that could run.
BytecodeProgram programOfAllFields() {
    BytecodeProgram program;
    program.baseDirectory = "dir";
    program.scriptName = "name.dv";
    program.lines = {makeLine("a = 1", 3, {"a", "=", "1"}), makeLine("", 0x12345678, {})};
    program.code = {{1, 0x04030201, 0x08070605}, {9, 2, 0}};
    program.chunks = {{1, 2, true}, {3, 4, false}};
    program.ifGroups = {{}, {{{5, 6, false}, {7, 8, true}}}};
    program.whileLoops = {{9, 10}};
    program.repeatLoops = {{11, 12}};
    program.numericFors = {{13, 14}};
    program.genericFors = {{15, 16}, {17, 18}};
    program.functionDecls = {{19, 20, 21, 22, "fdir", "fname"}};
    return program;
}

/// The message that reading `bytes` ends in; empty if it ends well.
std::string readingError(const FileBytes& bytes, const std::string& path = "some/file.dvbc") {
    DovrelScript interpreter;
    try {
        static_cast<void>(interpreter.deserializeBytecode(bytes, path));
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

std::shared_ptr<BytecodeProgram> read(DovrelScript& interpreter, const FileBytes& bytes) {
    return std::make_shared<BytecodeProgram>(interpreter.deserializeBytecode(bytes, "file.dvbc"));
}

/// The message that running `program` ends in; empty if it ends well.
std::string runningError(DovrelScript& interpreter,
                         const std::shared_ptr<BytecodeProgram>& program) {
    try {
        interpreter.runBytecodeProgram(program);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

std::string globalText(DovrelScript& interpreter, const std::string& name) {
    const auto slot = interpreter.globalSlots.find(name);
    if (slot == interpreter.globalSlots.end()) return "(none)";
    return interpreter.globalValues[slot->second].toString();
}

std::string report(const std::string& message, const std::string& place, const std::string& token,
                   const std::string& text, const std::string& marks) {
    return "DovrelScript error: " + message + "\n  at " + place + ", near token '" + token +
           "'\n  " + text + "\n  " + marks +
           "\n  hint: check spelling, operators, parentheses, and quote matching\n";
}

// ------------------------------------------------------------------ writing

TEST(BytecodeFile, LaysOutEveryFieldInOrder) {
    ByteBuilder wanted;
    wanted.raw("DVBC").u16(6).str("dir").str("name.dv");
    wanted.u32(2);
    wanted.str("a = 1").u32(3).u32(3).str("a").str("=").str("1");
    wanted.str("").u32(0x12345678).u32(0);
    wanted.u32(2).u8(1).u32(0x04030201).u32(0x08070605).u8(9).u32(2).u32(0);
    wanted.u32(2).u32(1).u32(2).u8(1).u32(3).u32(4).u8(0);
    wanted.u32(2).u32(0).u32(2).u32(5).u32(6).u8(0).u32(7).u32(8).u8(1);
    wanted.u32(1).u32(9).u32(10);
    wanted.u32(1).u32(11).u32(12);
    wanted.u32(1).u32(13).u32(14);
    wanted.u32(2).u32(15).u32(16).u32(17).u32(18);
    wanted.u32(1).u32(19).u32(20).u32(21).u32(22).str("fdir").str("fname");
    EXPECT_EQ(serializeBytecode(programOfAllFields()), wanted.bytes());
}

TEST(BytecodeFile, IsLittleEndianWithoutPadding) {
    BytecodeProgram program;
    program.lines = {makeLine("x", 0x01020304, {"x"})};
    const FileBytes wanted = {
        'D', 'V', 'B', 'C', 6,   0,             // magic, version
        0,   0,   0,   0,   0,   0, 0, 0,       // base directory, script name
        1,   0,   0,   0,                       // line count
        1,   0,   0,   0,   'x', 4, 3, 2, 1,    // source, line number
        1,   0,   0,   0,   1,   0, 0, 0, 'x',  // token count, token
        0,   0,   0,   0,   0,   0, 0, 0,       // instructions, chunks
        0,   0,   0,   0,   0,   0, 0, 0,       // if groups, while loops
        0,   0,   0,   0,   0,   0, 0, 0,       // repeat loops, numeric fors
        0,   0,   0,   0,   0,   0, 0, 0,       // generic fors, functions
    };
    EXPECT_EQ(serializeBytecode(program), wanted);
}

// The file that the format's document takes apart.
TEST(BytecodeFile, OfASmallLoopIsTheDocumentedOne) {
    ByteBuilder wanted;
    wanted.header(6).u32(4);
    wanted.str("n = 2").u32(0).u32(3).str("n").str("=").str("2");
    wanted.str("while n > 0").u32(1).u32(4).str("while").str("n").str(">").str("0");
    wanted.str("n -= 1").u32(2).u32(3).str("n").str("-=").str("1");
    wanted.str("end").u32(3).u32(1).str("end");
    wanted.u32(3).u8(1).u32(2).u32(0).u8(1).u32(0).u32(0).u8(3).u32(0).u32(0);
    wanted.u32(2).u32(1).u32(2).u8(0).u32(0).u32(1).u8(0);
    wanted.u32(0).u32(1).u32(1).u32(1).emptyTables(4);
    DovrelScript interpreter;
    const FileBytes bytes = serializeBytecode(
        interpreter.compileToBytecodeInternal("n = 2\nwhile n > 0\n  n -= 1\nend\n"));
    EXPECT_EQ(bytes, wanted.bytes());
    EXPECT_EQ(bytes.size(), 238U);
}

TEST(BytecodeFile, OfACompiledScriptHoldsItsTablesAndNothingElse) {
    DovrelScript interpreter;
    const BytecodeProgram program = interpreter.compileToBytecodeInternal(kRichScript);
    EXPECT_EQ(program.version, 6);
    EXPECT_EQ(serializeBytecode(program), fileOf(program, 6));
}

TEST(BytecodeFile, KeepsTheLowHalfOfALargeLineNumber) {
    BytecodeProgram program;
    program.lines = {makeLine("x", (std::size_t{1} << 32) + 5, {"x"})};
    DovrelScript interpreter;
    EXPECT_EQ(read(interpreter, serializeBytecode(program))->lines[0].lineNumber, 5U);
}

// ------------------------------------------------------------------ reading what was written

TEST(BytecodeFile, GivesBackEveryFieldOfTheTables) {
    const BytecodeProgram wanted = programOfAllFields();
    DovrelScript interpreter;
    const auto program = read(interpreter, serializeBytecode(wanted));
    EXPECT_EQ(program->version, 6);
    EXPECT_EQ(program->baseDirectory, "dir");
    EXPECT_EQ(program->scriptName, "name.dv");
    ASSERT_EQ(program->lines.size(), 2U);
    EXPECT_EQ(program->lines[0].source, "a = 1");
    EXPECT_EQ(program->lines[0].lineNumber, 3U);
    EXPECT_EQ(program->lines[0].tokens, (std::vector<std::string>{"a", "=", "1"}));
    EXPECT_EQ(program->lines[1].lineNumber, 0x12345678U);
    EXPECT_TRUE(program->lines[1].tokens.empty());
    EXPECT_TRUE(program->chunkInlineStates.empty());
    // Of all that was read, the writer makes the same file again.
    EXPECT_EQ(serializeBytecode(*program), fileOf(wanted, 6));
}

TEST(BytecodeFile, GivesBackLinesThatArePreparedLikeCompiledOnes) {
    DovrelScript interpreter;
    const BytecodeProgram compiled = interpreter.compileToBytecodeInternal(kRichScript);
    const auto loaded = read(interpreter, serializeBytecode(compiled));
    ASSERT_EQ(loaded->lines.size(), compiled.lines.size());
    for (std::size_t i = 0; i < compiled.lines.size(); ++i) {
        const ParsedScriptLine& wanted = compiled.lines[i];
        const ParsedScriptLine& line = loaded->lines[i];
        SCOPED_TRACE(wanted.source);
        EXPECT_EQ(line.source, wanted.source);
        EXPECT_EQ(line.lineNumber, wanted.lineNumber);
        EXPECT_EQ(line.tokens, wanted.tokens);
        EXPECT_EQ(line.tokenAnalysis.size(), wanted.tokens.size());
        EXPECT_TRUE(line.prepared);
        EXPECT_EQ(line.kind, wanted.kind);
        EXPECT_EQ(line.matchingEnd, wanted.matchingEnd);
        EXPECT_EQ(line.nextBranch, wanted.nextBranch);
        EXPECT_EQ(line.assignment != nullptr, wanted.assignment != nullptr);
        EXPECT_EQ(line.condition.valid, wanted.condition.valid);
        EXPECT_EQ(line.expression.valid, wanted.expression.valid);
        EXPECT_EQ(line.returnValues.size(), wanted.returnValues.size());
    }
    EXPECT_EQ(serializeBytecode(*loaded), serializeBytecode(compiled));
}

TEST(BytecodeFile, RunsLikeTheCompiledScript) {
    DovrelScript fromSource;
    fromSource.runScript(kRichScript);
    DovrelScript compiler;
    DovrelScript fromFile;
    const auto program =
        read(fromFile, serializeBytecode(compiler.compileToBytecodeInternal(kRichScript)));
    EXPECT_EQ(runningError(fromFile, program), "");
    EXPECT_EQ(globalText(fromFile, "log"),
              "[one, 4, [3, 3], 5single \"quotes\"\ttab and a second line, 0]");
    EXPECT_EQ(globalText(fromFile, "log"), globalText(fromSource, "log"));
}

TEST(BytecodeFile, ReportsErrorsLikeTheCompiledScript) {
    const std::string script = "x = 1\n\n  y = (x +\n  nosuch())\n";
    const std::string wanted = report("Attempted to call a non-function value of type not",
                                      "line 3", "y", "y = (x + nosuch())", "^");
    DovrelScript interpreter;
    const BytecodeProgram compiled = interpreter.compileToBytecodeInternal(script);
    EXPECT_EQ(runningError(interpreter, read(interpreter, serializeBytecode(compiled))), wanted);
}

TEST(BytecodeFile, OfAnEmptyScriptRunsAndDoesNothing) {
    DovrelScript interpreter;
    for (const char* script : {"", "\n", "@@ nothing\n\n"}) {
        const auto program =
            read(interpreter, serializeBytecode(interpreter.compileToBytecodeInternal(script)));
        EXPECT_EQ(program->chunks.size(), 1U);
        EXPECT_EQ(runningError(interpreter, program), "");
    }
}

TEST(BytecodeFile, KeepsStringsOfAnyBytes) {
    const std::string bytes("\0\xFF\n\"\x80", 5);
    BytecodeProgram program;
    program.baseDirectory = bytes;
    program.scriptName = bytes + bytes;
    program.lines = {makeLine(bytes, 0, {bytes, ""})};
    program.functionDecls = {{0, 0, 0, 0, bytes, ""}};
    DovrelScript interpreter;
    const auto loaded = read(interpreter, serializeBytecode(program));
    EXPECT_EQ(loaded->baseDirectory, bytes);
    EXPECT_EQ(loaded->scriptName, bytes + bytes);
    EXPECT_EQ(loaded->lines[0].source, bytes);
    EXPECT_EQ(loaded->lines[0].tokens, (std::vector<std::string>{bytes, ""}));
    EXPECT_EQ(loaded->functionDecls[0].baseDirectory, bytes);
}

TEST(BytecodeFile, IgnoresBytesBehindTheLastRecord) {
    DovrelScript interpreter;
    FileBytes bytes = serializeBytecode(interpreter.compileToBytecodeInternal("x = 5\n"));
    bytes.insert(bytes.end(), {0, 255, 1, 2, 3});
    EXPECT_EQ(runningError(interpreter, read(interpreter, bytes)), "");
    EXPECT_EQ(globalText(interpreter, "x"), "5");
}

TEST(BytecodeFile, TakesAnyNonZeroByteAsTrue) {
    ByteBuilder out;
    out.header(6).u32(0).u32(0);                                               // lines, code
    out.u32(3).u32(0).u32(0).u8(0).u32(0).u32(0).u8(2).u32(0).u32(0).u8(255);  // chunks
    out.u32(1).u32(2).u32(0).u32(0).u8(128).u32(0).u32(0).u8(0);               // an if group
    out.emptyTables(5);
    DovrelScript interpreter;
    const auto program = read(interpreter, out.bytes());
    EXPECT_FALSE(program->chunks[0].hasLocalDeclaration);
    EXPECT_TRUE(program->chunks[1].hasLocalDeclaration);
    EXPECT_TRUE(program->chunks[2].hasLocalDeclaration);
    EXPECT_TRUE(program->ifGroups[0].branches[0].isElse);
    EXPECT_FALSE(program->ifGroups[0].branches[1].isElse);
}

TEST(BytecodeFile, TakesEveryIndexAndOpcodeAsItStands) {
    ByteBuilder out;
    out.header(6).u32(0);
    out.u32(1).u8(200).u32(0xFFFFFFFE).u32(0xFFFFFFFD);
    out.u32(1).u32(0xFFFFFFFC).u32(0xFFFFFFFB).u8(1);
    out.emptyTables(6);
    DovrelScript interpreter;
    const auto program = read(interpreter, out.bytes());
    EXPECT_EQ(program->code[0].opcode, 200);
    EXPECT_EQ(program->code[0].operand, 0xFFFFFFFE);
    EXPECT_EQ(program->code[0].reserved, 0xFFFFFFFD);
    EXPECT_EQ(program->chunks[0].firstInstruction, 0xFFFFFFFC);
    EXPECT_EQ(program->chunks[0].instructionCount, 0xFFFFFFFB);
}

TEST(BytecodeFile, HasNoUseForTheReservedWord) {
    DovrelScript interpreter;
    BytecodeProgram program = interpreter.compileToBytecodeInternal("x = 5\ny = x + 1\n");
    for (BytecodeInstruction& instruction : program.code) instruction.reserved = 0xABCDEF01;
    const auto loaded = read(interpreter, serializeBytecode(program));
    EXPECT_EQ(loaded->code[0].reserved, 0xABCDEF01);
    EXPECT_EQ(runningError(interpreter, loaded), "");
    EXPECT_EQ(globalText(interpreter, "y"), "6");
}

// ------------------------------------------------------------------ versions

// A function that fails in the line with the index 5, which stands on physical line 7.
constexpr const char* kFailingScript =
    "\n\nfunction f(x)\n\n  y = [x,\n  1]\n  z = y + x\nend\nf(1)\n";

std::string failingReport(const std::string& place) {
    return report("Unsupported operation '+' between types", place, "]", "z = y + x", "         ^");
}

BytecodeProgram failingProgram(DovrelScript& interpreter) {
    BytecodeProgram program = interpreter.compileToBytecodeInternal(kFailingScript);
    program.baseDirectory = "header/dir";
    program.scriptName = "header.dv";
    program.functionDecls.at(0).baseDirectory = "function/dir";
    program.functionDecls.at(0).scriptName = "function.dv";
    return program;
}

TEST(BytecodeFile, OfVersionSixHasNamesAndLineNumbers) {
    DovrelScript interpreter;
    const auto program = read(interpreter, fileOf(failingProgram(interpreter), 6));
    EXPECT_EQ(program->version, 6);
    EXPECT_EQ(program->scriptName, "header.dv");
    EXPECT_EQ(program->functionDecls[0].scriptName, "function.dv");
    EXPECT_EQ(program->lines[5].lineNumber, 6U);
    EXPECT_EQ(program->lines[7].lineNumber, 8U);
    EXPECT_EQ(runningError(interpreter, program), failingReport("function.dv:7"));
}

TEST(BytecodeFile, OfVersionFiveHasNamesButCountsItsLines) {
    DovrelScript interpreter;
    const auto program = read(interpreter, fileOf(failingProgram(interpreter), 5));
    EXPECT_EQ(program->version, 5);
    EXPECT_EQ(program->baseDirectory, "header/dir");
    EXPECT_EQ(program->scriptName, "header.dv");
    EXPECT_EQ(program->functionDecls[0].baseDirectory, "function/dir");
    EXPECT_EQ(program->functionDecls[0].scriptName, "function.dv");
    for (std::size_t i = 0; i < program->lines.size(); ++i) {
        EXPECT_EQ(program->lines[i].lineNumber, i);
    }
    EXPECT_EQ(runningError(interpreter, program), failingReport("function.dv:6"));
}

TEST(BytecodeFile, OfVersionFourHasNeither) {
    DovrelScript interpreter;
    const auto program = read(interpreter, fileOf(failingProgram(interpreter), 4));
    EXPECT_EQ(program->version, 4);
    EXPECT_EQ(program->baseDirectory, "header/dir");
    EXPECT_EQ(program->scriptName, "");
    EXPECT_EQ(program->functionDecls[0].baseDirectory, "function/dir");
    EXPECT_EQ(program->functionDecls[0].scriptName, "");
    EXPECT_EQ(program->lines[7].lineNumber, 7U);
    EXPECT_EQ(runningError(interpreter, program), failingReport("line 6"));
}

TEST(BytecodeFile, OfAnyVersionRunsTheSame) {
    DovrelScript compiler;
    const BytecodeProgram program = compiler.compileToBytecodeInternal(kRichScript);
    for (const unsigned int version : {4U, 5U, 6U}) {
        DovrelScript interpreter;
        EXPECT_EQ(runningError(interpreter, read(interpreter, fileOf(program, version))), "");
        EXPECT_EQ(globalText(interpreter, "log"),
                  "[one, 4, [3, 3], 5single \"quotes\"\ttab and a second line, 0]");
    }
}

TEST(BytecodeFile, OfAnotherVersionIsRefused) {
    for (const unsigned int version : {0U, 1U, 3U, 7U, 256U, 1030U, 65535U}) {
        EXPECT_EQ(readingError(ByteBuilder().header(version).emptyTables(10).bytes()),
                  "Unsupported bytecode version: " + std::to_string(version));
    }
}

TEST(BytecodeFile, PushesTheNamesThatWereCurrentWhenItWasCompiled) {
    DovrelScript interpreter;
    BytecodeProgram program = interpreter.compileToBytecodeInternal("x = nosuch()\n");
    program.baseDirectory = "somewhere";
    program.scriptName = "compiled/here.dv";
    const auto loaded = read(interpreter, serializeBytecode(program));
    EXPECT_EQ(runningError(interpreter, loaded),
              report("Attempted to call a non-function value of type not", "compiled/here.dv:1",
                     "x", "x = nosuch()", "^"));
    EXPECT_TRUE(interpreter.baseDirectoryStack.empty());
    EXPECT_TRUE(interpreter.scriptNameStack.empty());
}

// ------------------------------------------------------------------ damaged files

std::string truncatedError(const std::string& path) {
    return "Invalid bytecode file (truncated): " + path;
}

TEST(BytecodeFile, OfTooFewBytesIsTruncatedWhateverTheyAre) {
    EXPECT_EQ(readingError({}, "a.dvbc"), truncatedError("a.dvbc"));
    EXPECT_EQ(readingError({'D'}, "b"), truncatedError("b"));
    EXPECT_EQ(readingError({'x', 'y', 'z'}, ""), truncatedError(""));
    EXPECT_EQ(readingError({'D', 'V', 'B', 'C'}, "c d.dvbc"), truncatedError("c d.dvbc"));
    EXPECT_EQ(readingError({'D', 'V', 'B', 'C', 6}, "e"), truncatedError("e"));
}

TEST(BytecodeFile, WithoutItsMagicIsRefused) {
    DovrelScript interpreter;
    const FileBytes good = serializeBytecode(interpreter.compileToBytecodeInternal("x = 1\n"));
    EXPECT_EQ(readingError(good), "");
    for (std::size_t i = 0; i < 4; ++i) {
        FileBytes bad = good;
        bad[i] ^= 0x20;
        EXPECT_EQ(readingError(bad, "p.dvbc"), "Invalid bytecode file (bad magic): p.dvbc");
    }
    EXPECT_EQ(readingError({'t', 'e', 'x', 't'}, "q"), "Invalid bytecode file (bad magic): q");
}

TEST(BytecodeFile, CutAtAnyByteIsTruncated) {
    DovrelScript interpreter;
    BytecodeProgram program = interpreter.compileToBytecodeInternal(kRichScript);
    program.baseDirectory = "dir";
    program.scriptName = "name";
    for (BytecodeFunctionDecl& function : program.functionDecls) {
        function.baseDirectory = "d";
        function.scriptName = "n";
    }
    for (const unsigned int version : {4U, 5U, 6U}) {
        const FileBytes whole = fileOf(program, version);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            std::string message;
            try {
                static_cast<void>(interpreter.deserializeBytecode(
                    FileBytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)),
                    "cut"));
            } catch (const std::exception& error) {
                message = error.what();
            }
            ASSERT_EQ(message, truncatedError("cut")) << "version " << version << " at " << size;
        }
    }
}

TEST(BytecodeFile, WithAStringThatRunsPastItsEndIsTruncated) {
    const auto headerWith = [](std::uint32_t count) {
        return ByteBuilder().raw("DVBC").u16(6).u32(count).raw("four").bytes();
    };
    EXPECT_EQ(readingError(headerWith(5), "p"), truncatedError("p"));
    EXPECT_EQ(readingError(headerWith(kAbsurdCount), "p"), truncatedError("p"));
    EXPECT_EQ(readingError(headerWith(0x80000000), "p"), truncatedError("p"));
    // A token of a line, as the last thing in the file.
    EXPECT_EQ(
        readingError(ByteBuilder().header(6).u32(1).str("x").u32(0).u32(1).u32(2).u8('x').bytes(),
                     "p"),
        truncatedError("p"));
}

/// A file that is well up to the count of one table, which is `count`.
FileBytes fileWithCount(int table, std::uint32_t count) {
    ByteBuilder out;
    out.header(6);
    // 0 the lines, 1 the tokens of a line, 2 the code, 3 the chunks, 4 the if groups, 5 the
    // branches of one, 6 to 9 the loops, 10 the functions.
    if (table == 0) return out.u32(count).bytes();
    if (table == 1) return out.u32(1).str("x").u32(0).u32(count).bytes();
    if (table <= 4) return out.emptyTables(table - 1).u32(count).bytes();
    if (table == 5) return out.emptyTables(3).u32(1).u32(count).bytes();
    return out.emptyTables(table - 2).u32(count).bytes();
}

TEST(BytecodeFile, WithAnAbsurdCountFailsLikeAnAllocation) {
    for (int table = 0; table <= 10; ++table) {
        DovrelScript interpreter;
        EXPECT_THROW(static_cast<void>(
                         interpreter.deserializeBytecode(fileWithCount(table, kAbsurdCount), "p")),
                     std::bad_alloc)
            << table;
    }
}

TEST(BytecodeFile, WithACountThatIsOnlyWrongIsTruncated) {
    for (int table = 0; table <= 10; ++table) {
        EXPECT_EQ(readingError(fileWithCount(table, 1), "p"), truncatedError("p")) << table;
        EXPECT_EQ(readingError(fileWithCount(table, 1000), "p"), truncatedError("p")) << table;
    }
}

}  // namespace
