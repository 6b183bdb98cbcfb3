// Statements of the compiled form, and the code of a whole function or program.
#include "exec/machine_compiler.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "exec/for_header.h"
#include "exec/inline_chunks.h"
#include "exec/machine.h"
#include "exec/machine_finish.h"

namespace {

constexpr std::size_t kMostRegisters = 60000;

}  // namespace

void MachineCompiler::emitD(Op op, std::size_t a, std::int64_t d, std::uint8_t m) {
    MachineInstruction& added = emit(op, number(a));
    added.m = m;
    added.setD(static_cast<std::int32_t>(d));
}

void MachineCompiler::emitABC(Op op, std::size_t a, std::size_t b, std::size_t c, std::uint8_t m) {
    MachineInstruction& added = emit(op, number(a));
    added.m = m;
    added.b = number(b);
    added.c = number(c);
}

void MachineCompiler::emitJump(Op op, std::size_t a, Label to, std::uint8_t m) {
    emitD(op, a, 0, m);
    jumps_.emplace_back(here() - 1, to);
}

std::uint16_t MachineCompiler::number(std::size_t value) {
    if (value > std::numeric_limits<std::uint16_t>::max()) ok_ = false;
    return static_cast<std::uint16_t>(value);
}

std::uint32_t MachineCompiler::constant(Variable value) {
    out_.constants.push_back(std::move(value));
    return static_cast<std::uint32_t>(out_.constants.size() - 1);
}

std::uint32_t MachineCompiler::textConstant(const std::string& text) {
    const auto [found, isNew] =
        textConstants_.try_emplace(text, static_cast<std::uint32_t>(out_.constants.size()));
    if (isNew) out_.constants.emplace_back(interpreter_.machine->constantText(text));
    return found->second;
}

std::uint16_t MachineCompiler::allocate(std::size_t count) {
    const std::uint16_t first = top_;
    if (top_ + count > kMostRegisters) {
        ok_ = false;
        return first;
    }
    top_ = static_cast<std::uint16_t>(top_ + count);
    use(top_);
    return first;
}

// ---------------------------------------------------------------- statements

const ParsedScriptLine* MachineCompiler::lineAt(std::uint32_t index) {
    if (index >= program_.lines.size()) ok_ = false;
    return ok_ ? &program_.lines[index] : nullptr;
}

std::uint32_t MachineCompiler::beginStatement(std::uint32_t line, bool runsCode) {
    if (line >= program_.lines.size()) ok_ = false;  // a damaged file, for the executor to refuse
    MachineStatement statement;
    statement.first = here();
    statement.line = line;
    statement.runsCode = runsCode;
    statement.isRecursive = mode_.isRecursive;
    statement.depth = mode_.depth;
    out_.statements.push_back(statement);
    const auto number32 = static_cast<std::uint32_t>(out_.statements.size() - 1);
    // The executor shows a line that nobody else wants to know.
    if (ok_ && program_.lines.isPassing(line)) return number32;
    // Elsewhere the line is needed only while turns are given.
    emitD(Op::Line, 0, number32, runsCode || isTail_ || keepsLines_ ? 0 : 1);
    return number32;
}

void MachineCompiler::endStatement() {
    emitD(mode_.isRecursive ? Op::EndStatement : Op::EndInline, 0,
          static_cast<std::int64_t>(out_.statements.size() - 1));
}

void MachineCompiler::beginBlockStatement() {
    if (mode_.isRecursive) {
        emitD(Op::BeginStatement, 0, static_cast<std::int64_t>(out_.statements.size()));
    }
}

void MachineCompiler::endBlockStatement() {
    if (mode_.isRecursive) {
        emitD(Op::EndStatement, 0, static_cast<std::int64_t>(out_.statements.size() - 1));
    }
}

void MachineCompiler::clearValue() {
    if (!tracksValue_ || valueIsNil_) return;
    emit(Op::ClearChunkValue);
    valueIsNil_ = true;
}

/// A statement of the chunk, or of a block in it, leaves a value.
bool MachineCompiler::makesValue(std::uint32_t chunk, int depth) const {
    if (!mayVisit(chunk, depth)) return true;
    const BytecodeChunkRange& range = program_.chunks[chunk];
    // From the end, since a program's last statement often does.
    for (std::uint32_t i = range.instructionCount; i-- > 0;) {
        const BytecodeInstruction& instruction = program_.code[range.firstInstruction + i];
        const std::uint32_t operand = instruction.operand;
        switch (static_cast<BytecodeOp>(instruction.opcode)) {
            case BytecodeOp::Statement:
            case BytecodeOp::Unread: {
                if (operand >= program_.lines.size()) return true;
                if (program_.lines.isPlainStore(operand)) break;
                ParsedScriptLine own;
                const ParsedScriptLine& line = program_.lines.lookAt(operand, own);
                if (line.assignment == nullptr || line.assignment->targets.size() > 1 ||
                    line.assignment->valueRanges.size() > 1) {
                    return true;
                }
                break;
            }
            case BytecodeOp::IfGroup:
                if (operand >= program_.ifGroups.size()) return true;
                for (const auto& branch : program_.ifGroups[operand].branches) {
                    if (makesValue(branch.bodyChunk, depth + 1)) return true;
                }
                break;
            case BytecodeOp::WhileLoop:
                if (operand >= program_.whileLoops.size() ||
                    makesValue(program_.whileLoops[operand].bodyChunk, depth + 1)) {
                    return true;
                }
                break;
            case BytecodeOp::RepeatLoop:
                if (operand >= program_.repeatLoops.size() ||
                    makesValue(program_.repeatLoops[operand].bodyChunk, depth + 1)) {
                    return true;
                }
                break;
            case BytecodeOp::NumericFor:
                if (operand >= program_.numericFors.size() ||
                    makesValue(program_.numericFors[operand].bodyChunk, depth + 1)) {
                    return true;
                }
                break;
            case BytecodeOp::GenericFor:
                if (operand >= program_.genericFors.size() ||
                    makesValue(program_.genericFors[operand].bodyChunk, depth + 1)) {
                    return true;
                }
                break;
            default: break;
        }
    }
    return false;
}

bool MachineCompiler::instructionHoldsLoop(const BytecodeInstruction& instruction,
                                           int depth) const {
    switch (static_cast<BytecodeOp>(instruction.opcode)) {
        case BytecodeOp::WhileLoop:
        case BytecodeOp::RepeatLoop:
        case BytecodeOp::NumericFor:
        case BytecodeOp::GenericFor: return true;
        case BytecodeOp::IfGroup:
            if (instruction.operand >= program_.ifGroups.size()) return false;
            for (const auto& branch : program_.ifGroups[instruction.operand].branches) {
                if (holdsLoop(branch.bodyChunk, depth + 1)) return true;
            }
            return false;
        default: return false;
    }
}

bool MachineCompiler::holdsLoop(std::uint32_t chunk, int depth) const {
    if (!mayVisit(chunk, depth)) return false;
    const BytecodeChunkRange& range = program_.chunks[chunk];
    for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
        if (instructionHoldsLoop(program_.code[range.firstInstruction + i], depth)) return true;
    }
    return false;
}

/// What runs once is not worth compiling.
bool MachineCompiler::runsOnce() const { return unit_.runsOnce && loopNesting_ == 0; }

void MachineCompiler::runByExecutor(std::uint32_t line, std::uint32_t position) {
    const std::uint32_t statement = beginStatement(line, true);
    out_.statements[statement].instruction = position;
    emitD(Op::RunStatement, 0, statement);
    valueIsNil_ = false;
}

void MachineCompiler::emitChunk(std::uint32_t chunk, bool isUnit) {
    if (chunk >= program_.chunks.size() || nesting_ >= kMostNestedBlocks) ok_ = false;
    if (!ok_) return;
    const BytecodeChunkRange range = program_.chunks[chunk];
    ok_ = mayVisit(chunk, 0);
    if (!ok_) return;
    Chunk entered;
    entered.id = chunk;
    entered.ownsBlock = mode_.isRecursive && (mode_.amongBlocks || range.hasLocalDeclaration);
    const bool outerAmongBlocks =
        std::exchange(mode_.amongBlocks, mode_.amongBlocks || entered.ownsBlock);
    const std::uint16_t mark = top_;
    if (entered.ownsBlock) pushBlock(entered, chunk);
    chunks_.push_back(entered);
    if (isUnit && !regions_.empty()) regions_.back().chunkLevel = chunks_.size();
    ++nesting_;
    const bool isTail = isTail_;
    for (std::uint32_t i = 0; ok_ && i < range.instructionCount; ++i) {
        const std::uint32_t position = range.firstInstruction + i;
        isTail_ = isTail && i + 1 == range.instructionCount;
        emitInstruction(program_.code[position], position);
    }
    isTail_ = isTail;
    --nesting_;
    if (entered.ownsBlock) {
        popBlock(chunks_.back());
        blockState_ = entered.stateAround;
        --openBlocks_;
    }
    if (!regions_.empty() && regions_.back().block == chunk &&
        regions_.back().chunkLevel + 1 == chunks_.size()) {
        leaveBlockOfNatives(regions_.back());
    }
    chunks_.pop_back();
    mode_.amongBlocks = outerAmongBlocks;
    top_ = mark;
}

/// The body of a block statement: inline if it can, else as a recursive run of its own.
void MachineCompiler::emitNestedChunk(std::uint32_t chunk) {
    const Mode outer = mode_;
    const bool isInlinable = chunkIsInlinable(program_, chunk);
    if (!mode_.isRecursive || (!mode_.amongBlocks && isInlinable)) {
        mode_.isRecursive = false;
    } else {
        ++mode_.depth;
        clearValue();
    }
    emitChunk(chunk, false);
    mode_ = outer;
}

void MachineCompiler::emitInstruction(const BytecodeInstruction& instruction,
                                      std::uint32_t position) {
    const std::uint32_t operand = instruction.operand;
    const auto recordAt = [&](const auto& table) {
        if (operand >= table.size()) ok_ = false;
        return ok_ ? &table[operand] : nullptr;
    };
    switch (static_cast<BytecodeOp>(instruction.opcode)) {
        case BytecodeOp::Return:
        case BytecodeOp::GenericFor:
        case BytecodeOp::FunctionDecl:
            // Only a damaged file has one in an inline run, which refuses it.
            if (!mode_.isRecursive) ok_ = false;
            break;
        default: break;
    }
    if (!ok_) return;
    switch (static_cast<BytecodeOp>(instruction.opcode)) {
        case BytecodeOp::Statement:
        case BytecodeOp::FastAssign:
        case BytecodeOp::Return:
            emitPlain(static_cast<BytecodeOp>(instruction.opcode), operand, position);
            return;
        case BytecodeOp::Unread:
            if (runsOnce() && program_.lines.isPassing(operand)) {
                emitPassing(operand, position);
            } else {
                emitPlain(program_.opOf(instruction), operand, position);
            }
            return;
        case BytecodeOp::IfGroup:
            if (const auto* group = recordAt(program_.ifGroups)) {
                if (group->branches.empty()) {
                    ok_ = false;
                } else if (runsOnce() && !instructionHoldsLoop(instruction, 0)) {
                    beginBlockStatement();
                    runByExecutor(group->branches[0].conditionLine, position);
                    endBlockStatement();
                } else {
                    emitIfGroup(*group);
                }
            }
            return;
        case BytecodeOp::WhileLoop:
            if (const auto* loop = recordAt(program_.whileLoops)) emitWhile(*loop);
            return;
        case BytecodeOp::RepeatLoop:
            if (const auto* loop = recordAt(program_.repeatLoops)) emitRepeat(*loop);
            return;
        case BytecodeOp::NumericFor:
            if (const auto* loop = recordAt(program_.numericFors)) emitNumericFor(*loop);
            return;
        case BytecodeOp::GenericFor:
            if (const auto* loop = recordAt(program_.genericFors)) emitGenericFor(*loop, position);
            return;
        case BytecodeOp::FunctionDecl:
            if (const auto* function = recordAt(program_.functionDecls)) {
                const ParsedScriptLine* line = lineAt(function->declarationLine);
                if (line == nullptr) return;
                beginBlockStatement();
                const bool wasNil = valueIsNil_;
                runByExecutor(function->declarationLine, position);
                valueIsNil_ = wasNil;
                noteExecutorDeclarations(*line);
                endBlockStatement();
            }
            return;
        case BytecodeOp::Break: emitBreak(operand); return;
        default: ok_ = false; return;
    }
}

/// The line may run script code, or has to be shown as the current one for another reason.
bool MachineCompiler::lineRunsCode(BytecodeOp opcode, const ParsedScriptLine& line) const {
    if (opcode == BytecodeOp::Return) return true;  // the last line of the function
    if (line.assignment == nullptr) return true;
    const auto holdsCall = [](const FastExpression& expression) {
        return !expression.valid || expression.rootNode().holdsCall;
    };
    for (const FastExpression& value : line.assignment->values) {
        if (holdsCall(value)) return true;
    }
    for (const ParsedAssignmentTarget& target : line.assignment->targets) {
        for (const FastExpression& key : target.indexExpressions) {
            if (holdsCall(key)) return true;
        }
    }
    return false;
}

void MachineCompiler::emitPlain(BytecodeOp opcode, std::uint32_t index, std::uint32_t position) {
    const ParsedScriptLine* line = lineAt(index);
    if (line == nullptr) return;
    const bool isOutOfPlace =
        line->assignmentScope == ScopeTarget::Local && !chunks_.back().ownsBlock;
    if (line->tokens.empty() || isOutOfPlace) {
        ok_ = false;  // only a damaged file has such a statement
        return;
    }
    if (mode_.isRecursive) {
        emitD(Op::BeginStatement, 0, static_cast<std::int64_t>(out_.statements.size()));
    }
    const std::uint16_t mark = top_;
    const bool wasNil = valueIsNil_;
    if (!runsOnce() || opcode == BytecodeOp::Return) {
        // Taken back where it turns out that the executor has to run the line.
        const std::size_t codeSize = code_.size();
        const std::size_t statements = out_.statements.size();
        const std::size_t sites = out_.expressions.size();
        const std::size_t jumps = jumps_.size();
        const std::size_t tokens = out_.tokens.size();
        const std::size_t scalarCalls = out_.scalarCalls.size();
        const std::size_t blockStates = out_.blockStates.size();
        const std::uint16_t blockState = blockState_;
        const std::uint32_t statement = beginStatement(index, lineRunsCode(opcode, *line));
        out_.statements[statement].instruction = position;
        awaited_ = -1;
        const bool isCompiled = emitPlainLine(opcode, *line);
        top_ = mark;
        if (isCompiled) {
            if (opcode != BytecodeOp::Return) endStatement();
            return;
        }
        code_.resize(codeSize);
        out_.statements.resize(statements);
        out_.expressions.resize(sites);
        jumps_.resize(jumps);
        out_.tokens.resize(tokens);
        out_.scalarCalls.resize(scalarCalls);
        out_.blockStates.resize(blockStates);
        blockState_ = blockState;
        valueIsNil_ = wasNil;
    }
    runByExecutor(index, position);
    out_.statements.back().awaited = std::exchange(awaited_, -1);
    noteExecutorDeclarations(*line);
    if (opcode == BytecodeOp::FastAssign) valueIsNil_ = true;
    endStatement();
}

/// A line that runs once, and of which no record is to stay.
void MachineCompiler::emitPassing(std::uint32_t index, std::uint32_t position) {
    beginBlockStatement();
    runByExecutor(index, position);
    if (program_.lines.scopeOf(index) != ScopeTarget::Default) {
        ParsedScriptLine own;
        noteExecutorDeclarations(program_.lines.lookAt(index, own));
    }
    endStatement();
}

bool MachineCompiler::emitPlainLine(BytecodeOp opcode, const ParsedScriptLine& line) {
    if (opcode == BytecodeOp::Return) return emitReturn(line);
    if (line.assignment == nullptr) {
        return opcode == BytecodeOp::Statement && emitExpressionStatement(line);
    }
    if (line.kind != LineKind::Plain) return false;
    const ParsedAssignment& assignment = *line.assignment;
    bool isCompiled = false;
    if (assignment.targets.size() == 1 && assignment.valueRanges.size() <= 1) {
        if (!assignment.targets[0].indexRanges.empty()) {
            isCompiled = emitElementAssignment(line);
        } else if (assignment.valueRanges.empty()) {
            isCompiled = emitBareDeclaration(line);
        } else {
            isCompiled = assignment.isPlain ? emitSimpleAssignment(line) : emitCompound(line);
        }
    } else {
        return emitParallel(line);
    }
    if (isCompiled) clearValue();
    return isCompiled;
}

bool MachineCompiler::emitExpressionStatement(const ParsedScriptLine& line) {
    const std::uint16_t value = allocate();
    if (line.expression.valid) {
        if (!line.expression.isCall()) return false;
        const Source outer = source_;
        source_ = Source{&line, &line.expression, Tier::General, kNoSite, false};
        emitCall(line.expression.root, value, kDiscards);
        source_ = outer;
    } else if (!emitTokenValue(line, {0, line.tokens.size()}, value)) {
        return false;
    }
    if (tracksValue_) {
        emitD(Op::ChunkValue, value, 0);
        valueIsNil_ = false;
    } else {
        emitD(Op::Clear, value, 0);
    }
    return true;
}

bool MachineCompiler::emitReturn(const ParsedScriptLine& line) {
    const auto leave = [&](Op op, std::size_t a, std::size_t b, std::uint8_t m) {
        MachineInstruction& added = emit(op, number(a));
        added.m = m;
        added.b = number(b);
        added.c = static_cast<std::uint16_t>(mode_.depth + 1);  // statements that end with it
    };
    if (line.tokens.size() < 2) {
        leave(Op::ReturnNil, 0, 0, 0);
        return true;
    }
    const bool isCompiled = line.hasCompiledReturnValues();
    if (isCompiled && line.returnValues.size() == 1) {
        const FastExpression& value = line.returnValues[0];
        if (value.rootNode().kind == NodeKind::Variable) {
            const Resolution found = resolve(line, value.rootNode().tokenIndex);
            if (found.isRegister) {
                leave(Op::Return, found.reg, 0, 0);
                return true;
            }
        }
        const std::uint16_t reg = allocate();
        emitValue(line, value, reg);
        leave(Op::Return, reg, 0, 1);
        return true;
    }
    std::vector<TokenRange> ranges;
    std::size_t count = line.returnValues.size();
    if (!isCompiled) {
        // By tokens: values between the commas of the line.
        std::size_t begin = 1;
        int depth = 0;
        for (std::size_t i = 1; i <= line.tokens.size(); ++i) {
            const bool atEnd = i == line.tokens.size();
            const std::string& token = atEnd ? line.tokens.back() : line.tokens[i];
            if (!atEnd) {
                if (token == "(" || token == "[" || token == "{") ++depth;
                if (token == ")" || token == "]" || token == "}") --depth;
                if (depth != 0 || token != ",") continue;
            }
            if (i == begin) return false;
            ranges.push_back({begin, i});
            begin = i + 1;
        }
        count = ranges.size();
    }
    if (count == 0 || count > 200) return false;
    const std::uint16_t first = allocate(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto reg = static_cast<std::uint16_t>(first + i);
        if (isCompiled) {
            emitValue(line, line.returnValues[i], reg);
        } else if (!emitTokenValue(line, ranges[i], reg)) {
            return false;
        }
    }
    if (count == 1) {
        leave(Op::Return, first, 0, 1);
    } else {
        leave(Op::ReturnMulti, first, count, 1);
    }
    return true;
}

void MachineCompiler::emitBreak(std::uint32_t index) {
    ok_ = ok_ && loop_ != nullptr && lineAt(index) != nullptr;
    if (!ok_) return;
    if (mode_.isRecursive) {
        emitD(Op::BeginStatement, 0, static_cast<std::int64_t>(out_.statements.size()));
    }
    beginStatement(index, true);
    if (mode_.depth > loop_->depth) {
        emitD(Op::GiveTurns, 0, std::int64_t{mode_.depth} - loop_->depth);
    }
    std::size_t toLeave = openBlocks_ - loop_->blocks;
    for (auto chunk = chunks_.rbegin(); toLeave > 0; ++chunk) {
        if (!chunk->ownsBlock) continue;
        popBlock(*chunk);
        --toLeave;
    }
    emitJump(Op::Jump, 0, loop_->end);
}

// ---------------------------------------------------------------- units

bool MachineCompiler::compileLeaf(const ParsedScriptLine& line, MachineDraft& draft) {
    isLeaf_ = true;
    out_.blockStates.emplace_back();
    allocate(unit_.parameters.size());
    const std::size_t count = line.hasCompiledReturnValues() ? line.returnValues.size() : 1;
    const std::uint16_t result = allocate(count);
    if (line.hasCompiledReturnValues()) {
        for (std::size_t i = 0; i < count; ++i) {
            emitValue(line, line.returnValues[i], static_cast<std::uint16_t>(result + i));
        }
    } else {
        const TokenRange range{1, line.tokens.size()};
        const FastExpression form =
            compileTokenForm(line.tokens, line.tokenAnalysis, range.first, range.last);
        const auto isCall = [](const FastExprNode& node) { return node.kind == NodeKind::Call; };
        if (!form.valid || std::any_of(form.nodes.begin(), form.nodes.end(), isCall)) return false;
        if (!emitTokenValue(line, range, result)) return false;
        out_.isTokenLeaf = true;
    }
    if (count == 1) {
        emit(Op::ReturnLeaf, result);
    } else {
        emitABC(Op::ReturnLeafMulti, result, count, 0);
    }
    out_.isLeaf = true;
    out_.givesSeveral = count > 1;
    return finish(draft);
}

bool MachineCompiler::finish(MachineDraft& draft) {
    if (!ok_) return false;
    out_.registerCount = registerCount_ + 1;
    draft.tables = std::move(out_);
    draft.code = std::move(code_);
    draft.labels = std::move(labels_);
    draft.jumps = std::move(jumps_);
    return true;
}

bool MachineCompiler::compile(MachineDraft& draft) {
    const BytecodeChunkRange& range = program_.chunks[unit_.chunk];
    if (!rangeIsInside(range, program_)) return false;
    if (unit_.runsOnce && !holdsLoop(unit_.chunk)) return false;
    mode_.amongBlocks = unit_.amongBlocks;
    out_.blockStates.emplace_back();
    const bool endsWithReturn =
        range.instructionCount > 0 &&
        program_.code[range.firstInstruction + range.instructionCount - 1].opcode ==
            static_cast<std::uint16_t>(BytecodeOp::Return);
    tracksValue_ = !endsWithReturn && makesValue(unit_.chunk);
    isTail_ = true;
    if (unit_.hasFrame) {
        regions_.push_back(makeRegion(unit_.chunk, unit_.parameters, 0, false));
        out_.frameWindow = regions_.back().window;
        allocate(out_.windows[regions_.back().window].names.size());
    }
    out_.chunkValue = allocate();
    if (tracksValue_) emit(Op::ClearChunkValue);
    emitChunk(unit_.chunk, true);
    emitD(Op::ReturnNil, 0, 0, tracksValue_ ? kReturnsChunkValue : kReturnsNothing);
    return finish(draft);
}
