// The compiler: block structure only. Statements stay in their lines; an instruction says which
// line to run and how the blocks nest, so that the executor never scans for an `end`.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "exec/bytecode_program.h"
#include "frontend/line_preparation.h"
#include "interpreter/dovrel_script.h"
#include "value/stack_end.h"

namespace {

std::uint32_t indexOf(std::size_t index) { return static_cast<std::uint32_t>(index); }

/// In bytes.
constexpr std::size_t kShortText = 64;

bool isLoop(LineKind kind) {
    return kind == LineKind::While || kind == LineKind::Repeat || kind == LineKind::For;
}

/// Compiles a block and those nested in it. A chunk's index is taken first and its instructions are
/// appended last, which gives chunks in pre-order and code in post-order.
class ChunkCompiler {
public:
    explicit ChunkCompiler(BytecodeProgram& program, bool runsOnce = false)
        : program_(program), lines_(program.lines), runsOnce_(runsOnce) {}

    std::uint32_t compile(std::size_t firstLine, std::size_t endLine);

private:
    /// Compiles the statement at `line`, which is not empty; returns the line behind it.
    std::size_t compileStatement(std::size_t line, const LineFacts& facts, std::size_t endLine);
    /// The body of a block that runs any number of times.
    std::uint32_t compileRepeated(std::size_t firstLine, std::size_t endLine) {
        const bool runsOnce = std::exchange(runsOnce_, false);
        const std::uint32_t chunk = compile(firstLine, endLine);
        runsOnce_ = runsOnce;
        return chunk;
    }
    std::size_t compileIfChain(std::size_t line, std::size_t endLine);
    std::size_t compileFor(std::size_t line);
    std::size_t compileFunction(std::size_t line);

    std::size_t requireEnd(std::size_t line, const char* message) const {
        const std::size_t end = lines_.factsOf(line).matchingEnd;
        if (end == kNoLine) throwPlainError(message);
        return end;
    }
    void emit(BytecodeOp opcode, std::size_t operand) {
        open_.push_back({static_cast<std::uint16_t>(opcode), indexOf(operand), 0});
    }

    BytecodeProgram& program_;
    LineTable& lines_;
    bool runsOnce_;                          // what is compiled now
    std::vector<BytecodeInstruction> open_;  // of the chunks that are not finished, innermost last
};

std::uint32_t ChunkCompiler::compile(std::size_t firstLine, std::size_t endLine) {
    requireParsingStack();
    const std::size_t chunk = program_.chunks.size();
    program_.chunks.emplace_back();
    const std::size_t ownInstructions = open_.size();
    bool hasLocal = false;
    const std::size_t end = std::min(endLine, lines_.size());
    for (std::size_t i = firstLine; i < end;) {
        const LineFacts line = lines_.factsOf(i);
        if (line.isEmpty) {
            ++i;
            continue;
        }
        hasLocal = hasLocal || line.isLocal || line.kind == LineKind::LocalFunction;
        if (runsOnce_ && !isLoop(line.kind)) lines_.setRunsOnce(i);
        i = compileStatement(i, line, endLine);
    }
    BytecodeChunkRange& range = program_.chunks[chunk];
    range.firstInstruction = indexOf(program_.code.size());
    range.instructionCount = indexOf(open_.size() - ownInstructions);
    range.hasLocalDeclaration = hasLocal;
    const auto first = open_.begin() + static_cast<std::ptrdiff_t>(ownInstructions);
    program_.code.insert(program_.code.end(), first, open_.end());
    open_.erase(first, open_.end());
    return indexOf(chunk);
}

std::size_t ChunkCompiler::compileStatement(std::size_t line, const LineFacts& facts,
                                            std::size_t endLine) {
    switch (facts.kind) {
        case LineKind::Return: emit(BytecodeOp::Return, line); return line + 1;
        case LineKind::Break: emit(BytecodeOp::Break, line); return line + 1;
        case LineKind::ElseIf:
        case LineKind::Else:
        case LineKind::End:
        case LineKind::Until:
            // No block header has jumped over it, so it means nothing here.
            return line + 1;
        case LineKind::If: return compileIfChain(line, endLine);
        case LineKind::While: {
            const std::size_t end = requireEnd(line, "Missing 'end' for while block");
            const std::uint32_t body = compileRepeated(line + 1, end);
            program_.whileLoops.push_back({indexOf(line), body});
            emit(BytecodeOp::WhileLoop, program_.whileLoops.size() - 1);
            return end + 1;
        }
        case LineKind::Repeat: {
            const std::size_t until = requireEnd(line, "Missing 'until' for repeat block");
            const std::uint32_t body = compileRepeated(line + 1, until);
            program_.repeatLoops.push_back({indexOf(until), body});
            emit(BytecodeOp::RepeatLoop, program_.repeatLoops.size() - 1);
            return until + 1;
        }
        case LineKind::For: return compileFor(line);
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: return compileFunction(line);
        case LineKind::Empty:
        case LineKind::Plain: break;
    }
    if (facts.isRead) {
        emit(facts.isFastAssignment ? BytecodeOp::FastAssign : BytecodeOp::Statement, line);
    } else {
        emit(BytecodeOp::Unread, line);
    }
    return line + 1;
}

std::size_t ChunkCompiler::compileIfChain(std::size_t line, std::size_t endLine) {
    BytecodeIfGroup group;
    group.branches.reserve(2);  // most have no more
    std::size_t next = line + 1;
    for (std::size_t branch = line; branch < endLine;) {
        if (branch >= lines_.size()) throwPlainError("Invalid if-chain while compiling bytecode");
        const LineFacts header = lines_.factsOf(branch);
        if (runsOnce_) lines_.setRunsOnce(branch);
        const bool isLast = header.nextBranch == kNoLine;
        const std::size_t bodyEnd = isLast ? header.matchingEnd : header.nextBranch;
        if (bodyEnd == kNoLine || bodyEnd > lines_.size()) {
            throwPlainError("Missing 'end' for if block");
        }
        const std::uint32_t body = compile(branch + 1, bodyEnd);
        group.branches.push_back({indexOf(branch), body, header.kind == LineKind::Else});
        if (isLast) {
            next = bodyEnd + 1;
            break;
        }
        branch = header.nextBranch;
    }
    program_.ifGroups.push_back(std::move(group));
    emit(BytecodeOp::IfGroup, program_.ifGroups.size() - 1);
    return next;
}

/// Whatever is not of the numeric form is generic, however malformed; it fails when it runs.
std::size_t ChunkCompiler::compileFor(std::size_t line) {
    const std::size_t end = requireEnd(line, "Missing 'end' for for block");
    const std::uint32_t body = compileRepeated(line + 1, end);
    const bool isNumeric = lines_.factsOf(line).isNumericFor;
    auto& table = isNumeric ? program_.numericFors : program_.genericFors;
    table.push_back({indexOf(line), body});
    emit(isNumeric ? BytecodeOp::NumericFor : BytecodeOp::GenericFor, table.size() - 1);
    return end + 1;
}

std::size_t ChunkCompiler::compileFunction(std::size_t line) {
    const std::size_t end = requireEnd(line, "Missing 'end' for function block");
    const std::uint32_t body = compileRepeated(line + 1, end);
    program_.functionDecls.push_back({indexOf(line), body, indexOf(line + 1), indexOf(end),
                                      program_.baseDirectory, program_.scriptName});
    emit(BytecodeOp::FunctionDecl, program_.functionDecls.size() - 1);
    return end + 1;
}

}  // namespace

BytecodeProgram DovrelScript::compileToBytecodeInternal(const std::string& source) {
    const ParsingStack stack;
    BytecodeProgram program;
    if (!baseDirectoryStack.empty()) program.baseDirectory = *baseDirectoryStack.back();
    if (!scriptNameStack.empty()) program.scriptName = *scriptNameStack.back();
    program.lines = parseLines(source);
    program.code.reserve(program.lines.size());
    compileBytecodeChunk(program, 0, program.lines.size());
    if (observer != nullptr) tellProgram(program, source);
    return program;
}

std::shared_ptr<BytecodeProgram> DovrelScript::readProgram(std::string source, bool runsOnce) {
    // A text of a line or two that may run again gains nothing, and an observer finds
    // the places of lines by their records.
    if ((!runsOnce && source.size() < kShortText) || observer != nullptr) {
        return std::make_shared<BytecodeProgram>(compileToBytecodeInternal(source));
    }
    const ParsingStack stack;
    auto program = std::make_shared<BytecodeProgram>();
    if (!baseDirectoryStack.empty()) program->baseDirectory = *baseDirectoryStack.back();
    if (!scriptNameStack.empty()) program->scriptName = *scriptNameStack.back();
    program->lines = LineTable(std::make_unique<UnreadLines>(*this, std::move(source)));
    program->code.reserve(program->lines.size());
    ChunkCompiler(*program, runsOnce).compile(0, program->lines.size());
    return program;
}

std::uint32_t DovrelScript::compileBytecodeChunk(BytecodeProgram& program, std::size_t firstLine,
                                                 std::size_t endLine) {
    return ChunkCompiler(program).compile(firstLine, endLine);
}
