// Reading a bytecode file. Only the bounds of the reader's own reads are checked: every index is
// taken as it stands, and the executor finds a wrong one when it uses it.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "eval/errors.h"
#include "exec/bytecode_program.h"
#include "exec/inline_chunks.h"
#include "interpreter/dovrel_script.h"

namespace {

constexpr std::uint16_t kOldestVersion = 4;
constexpr std::uint16_t kFirstVersionWithNames = 5;
constexpr std::uint16_t kFirstVersionWithLineNumbers = 6;
constexpr std::size_t kLargestTable = std::size_t{1} << 30;

// The least that a record takes in the file, with all of its texts and tables empty.
constexpr std::size_t kStringSize = 4;
constexpr std::size_t kLineSize = 8;  // a line number has come later
constexpr std::size_t kInstructionSize = 9;
constexpr std::size_t kChunkSize = 9;
constexpr std::size_t kIfGroupSize = 4;
constexpr std::size_t kBranchSize = 9;
constexpr std::size_t kLoopSize = 8;
constexpr std::size_t kFunctionSize = 20;  // the script's name has come later

class ByteReader {
public:
    ByteReader(const std::vector<unsigned char>& bytes, const std::string& path)
        : bytes_(bytes), path_(path) {}

    std::uint8_t u8() { return take(1)[0]; }
    std::uint16_t u16() {
        const unsigned char* at = take(2);
        return static_cast<std::uint16_t>(at[0] | (at[1] << 8));
    }
    std::uint32_t u32() {
        const unsigned char* at = take(4);
        std::uint32_t value = 0;
        for (int i = 3; i >= 0; --i) value = (value << 8) | at[i];
        return value;
    }
    bool bool8() { return u8() != 0; }
    std::string str() {
        const std::size_t size = u32();
        const unsigned char* at = take(size);
        return std::string(reinterpret_cast<const char*>(at), size);
    }
    void magic() {
        if (std::memcmp(take(4), "DVBC", 4) != 0) {
            throwPlainError("Invalid bytecode file (bad magic): " + path_);
        }
    }
    /// Reads a count and makes `table` that long. A damaged count runs into the truncated error,
    /// for which one record more than the rest of the file can hold is enough: `smallest` bytes are
    /// the least that a record takes there. Kept: a count of more records than bytes, for a table
    /// that would take the machine's memory, fails as an allocation that failed.
    template <typename Record>
    void resize(std::vector<Record>& table, std::size_t smallest) {
        const std::size_t count = u32();
        const std::size_t rest = bytes_.size() - position_;
        if (count > rest && count * sizeof(Record) > kLargestTable) throw std::bad_alloc();
        table.resize(std::min(count, rest / smallest + 1));
    }

private:
    const unsigned char* take(std::size_t count) {
        if (count > bytes_.size() - position_) {
            throwPlainError("Invalid bytecode file (truncated): " + path_);
        }
        const unsigned char* at = bytes_.data() + position_;
        position_ += count;
        return at;
    }

    const std::vector<unsigned char>& bytes_;
    const std::string& path_;
    std::size_t position_ = 0;
};

void readLines(ByteReader& in, BytecodeProgram& program, DovrelScript& interpreter) {
    std::vector<ParsedScriptLine>& lines = program.lines.records();
    in.resize(lines, kLineSize);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ParsedScriptLine& line = lines[i];
        line.source = in.str();
        line.lineNumber = program.version >= kFirstVersionWithLineNumbers ? in.u32() : i;
        in.resize(line.tokens, kStringSize);
        line.tokenAnalysis.reserve(line.tokens.size());
        for (std::string& token : line.tokens) {
            token = in.str();
            line.tokenAnalysis.push_back(interpreter.analyseToken(token));
        }
    }
    interpreter.prepareParsedLines(lines);
}

void readCode(ByteReader& in, BytecodeProgram& program) {
    in.resize(program.code, kInstructionSize);
    for (BytecodeInstruction& instruction : program.code) {
        instruction.opcode = in.u8();
        instruction.operand = in.u32();
        instruction.reserved = in.u32();
    }
    in.resize(program.chunks, kChunkSize);
    for (BytecodeChunkRange& chunk : program.chunks) {
        chunk.firstInstruction = in.u32();
        chunk.instructionCount = in.u32();
        chunk.hasLocalDeclaration = in.bool8();
    }
}

void readIfGroups(ByteReader& in, std::vector<BytecodeIfGroup>& groups) {
    in.resize(groups, kIfGroupSize);
    for (BytecodeIfGroup& group : groups) {
        in.resize(group.branches, kBranchSize);
        for (BytecodeIfBranch& branch : group.branches) {
            branch.conditionLine = in.u32();
            branch.bodyChunk = in.u32();
            branch.isElse = in.bool8();
        }
    }
}

void readForLoops(ByteReader& in, std::vector<BytecodeForLoop>& loops) {
    in.resize(loops, kLoopSize);
    for (BytecodeForLoop& loop : loops) {
        loop.headerLine = in.u32();
        loop.bodyChunk = in.u32();
    }
}

void readLoops(ByteReader& in, BytecodeProgram& program) {
    in.resize(program.whileLoops, kLoopSize);
    for (BytecodeWhileLoop& loop : program.whileLoops) {
        loop.conditionLine = in.u32();
        loop.bodyChunk = in.u32();
    }
    in.resize(program.repeatLoops, kLoopSize);
    for (BytecodeRepeatLoop& loop : program.repeatLoops) {
        loop.untilLine = in.u32();
        loop.bodyChunk = in.u32();
    }
    readForLoops(in, program.numericFors);
    readForLoops(in, program.genericFors);
}

void readFunctions(ByteReader& in, BytecodeProgram& program) {
    in.resize(program.functionDecls, kFunctionSize);
    for (BytecodeFunctionDecl& function : program.functionDecls) {
        function.declarationLine = in.u32();
        function.bodyChunk = in.u32();
        function.bodyFirstLine = in.u32();
        function.bodyEndLine = in.u32();
        function.baseDirectory = in.str();
        if (program.version >= kFirstVersionWithNames) function.scriptName = in.str();
    }
}

/// A line of the chunk itself declares a local, whatever its record says.
bool declaresLocal(const BytecodeProgram& program, const BytecodeChunkRange& range) {
    for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
        const BytecodeInstruction& instruction = program.code[range.firstInstruction + i];
        const std::uint32_t line = instruction.operand;
        switch (static_cast<BytecodeOp>(instruction.opcode)) {
            case BytecodeOp::Statement:
            case BytecodeOp::FastAssign:
                if (line < program.lines.size() &&
                    program.lines[line].assignmentScope == ScopeTarget::Local) {
                    return true;
                }
                break;
            case BytecodeOp::FunctionDecl:
                if (line < program.functionDecls.size() &&
                    program.functionDecls[line].declarationLine < program.lines.size() &&
                    program.lines[program.functionDecls[line].declarationLine].kind ==
                        LineKind::LocalFunction) {
                    return true;
                }
                break;
            default: break;
        }
    }
    return false;
}

/// A chunk says that it declares no local, and does. No compiler writes that.
bool hasFalseRecord(const BytecodeProgram& program) {
    return std::any_of(program.chunks.begin(), program.chunks.end(), [&](const auto& range) {
        return !range.hasLocalDeclaration && rangeIsInside(range, program) &&
               declaresLocal(program, range);
    });
}

}  // namespace

BytecodeProgram DovrelScript::deserializeBytecode(const std::vector<unsigned char>& bytes,
                                                  const std::string& path) {
    ByteReader in(bytes, path);
    in.magic();
    BytecodeProgram program;
    program.version = in.u16();
    if (program.version < kOldestVersion || program.version > kBytecodeVersion) {
        throwPlainError("Unsupported bytecode version: " + std::to_string(program.version));
    }
    program.baseDirectory = in.str();
    if (program.version >= kFirstVersionWithNames) program.scriptName = in.str();
    readLines(in, program, *this);
    readCode(in, program);
    readIfGroups(in, program.ifGroups);
    readLoops(in, program);
    readFunctions(in, program);
    if (hasFalseRecord(program)) runsCompiledForm = false;
    return program;
}
