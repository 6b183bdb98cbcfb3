// Statements and blocks of the compiled form.
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
constexpr std::size_t kMostNestedBlocks = 100;

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

// ---------------------------------------------------------------- names

bool MachineCompiler::contains(const std::vector<Name>& names, Name name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::uint16_t MachineCompiler::recordFor(const ParsedScriptLine& line, std::size_t token) {
    VariableRecord record;
    record.token = &line.tokenAnalysis[token];
    record.name = record.token->name;
    if (record.name == nullptr) ok_ = false;
    // A token that leads to another global than its name's stays with its cache.
    if (record.token->globalSlotFound && record.name != nullptr &&
        record.token->globalSlot == record.name->globalSlot) {
        record.global = record.token->globalValue;
    }
    out_.variables.push_back(record);
    return number(out_.variables.size() - 1);
}

MachineCompiler::Resolution MachineCompiler::resolve(const ParsedScriptLine& line,
                                                     std::size_t token) {
    const TokenAnalysis& analysis = line.tokenAnalysis[token];
    const Name name = analysis.name;
    if (isLeaf_) {
        const bool isParameter = analysis.slotKind == SlotKind::Parameter &&
                                 analysis.slotIndex < unit_.parameters.size();
        if (isParameter) return {true, static_cast<std::uint16_t>(analysis.slotIndex), 0};
        const std::uint16_t record = recordFor(line, token);
        out_.variables[record].isInLeaf = true;
        return {false, 0, record};
    }
    for (auto chunk = chunks_.rbegin(); chunk != chunks_.rend(); ++chunk) {
        if (!chunk->ownsBlock || !contains(chunk->declared, name)) continue;
        const ScopeWindow& window = out_.windows[chunk->window];
        const auto at = std::find(window.names.begin(), window.names.end(), name);
        return {true, static_cast<std::uint16_t>(window.first + (at - window.names.begin())), 0};
    }
    std::uint16_t depth = 0;
    for (auto region = regions_.rbegin(); region != regions_.rend(); ++region, ++depth) {
        if (contains(region->uncertain, name)) break;
        const auto at = std::find(region->declared.begin(), region->declared.end(), name);
        if (at != region->declared.end()) {
            const auto entry = static_cast<std::uint16_t>(at - region->declared.begin());
            const auto reg = static_cast<std::uint16_t>(out_.windows[region->window].first + entry);
            const bool isMet = analysis.slotKind == SlotKind::Frame &&
                               analysis.slotDepth == depth && analysis.slotIndex == entry;
            if (isMet) return {true, reg, 0};
            const std::uint16_t record = recordFor(line, token);
            out_.variables[record].hasPlace = true;
            out_.variables[record].place = reg;
            out_.variables[record].frameDepth = depth;
            out_.variables[record].entry = entry;
            return {false, 0, record};
        }
        // In a loop, the turn before may have made it.
        if (region->isLoop && contains(region->later, name)) break;
    }
    return {false, 0, recordFor(line, token)};
}

/// In a damaged file, chunks may lie outside of the code, and hold each other or themselves.
bool MachineCompiler::mayVisit(std::uint32_t chunk, int depth) const {
    const std::size_t most = 1000 + 200 * program_.chunks.size();
    return chunk < program_.chunks.size() && depth <= 200 && ++visits_ <= most &&
           rangeIsInside(program_.chunks[chunk], program_);
}

std::vector<Name> MachineCompiler::localsOf(std::uint32_t chunk) const {
    std::vector<Name> names;
    const BytecodeChunkRange& range = program_.chunks[chunk];
    const auto add = [&names](const ParsedScriptLine& line, std::size_t token) {
        if (token >= line.tokenAnalysis.size()) return;
        const Name name = line.tokenAnalysis[token].name;
        if (name != nullptr && !contains(names, name)) names.push_back(name);
    };
    for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
        const BytecodeInstruction& instruction = program_.code[range.firstInstruction + i];
        const auto op = static_cast<BytecodeOp>(instruction.opcode);
        if (op == BytecodeOp::FunctionDecl) {
            if (instruction.operand >= program_.functionDecls.size()) continue;
            const std::uint32_t at = program_.functionDecls[instruction.operand].declarationLine;
            if (at >= program_.lines.size()) continue;
            const ParsedScriptLine& line = program_.lines[at];
            if (line.kind == LineKind::LocalFunction) add(line, 2);
        } else if (op == BytecodeOp::Statement || op == BytecodeOp::FastAssign) {
            if (instruction.operand >= program_.lines.size()) continue;
            const ParsedScriptLine& line = program_.lines[instruction.operand];
            if (line.assignmentScope != ScopeTarget::Local || line.assignment == nullptr) continue;
            for (const ParsedAssignmentTarget& target : line.assignment->targets) {
                add(line, target.nameToken);
            }
        }
    }
    return names;
}

/// The natives that go to the frame scope of a region. Those of its own chunk that come before any
/// in a nested block have a certain place.
void MachineCompiler::collectNatives(std::uint32_t chunk, Region& region, ScopeWindow& window,
                                     bool isTop, bool& anyNested, int depth) {
    if (!mayVisit(chunk, depth)) return;
    const auto add = [&](const ParsedScriptLine& line, std::size_t token) {
        if (token >= line.tokenAnalysis.size()) return;
        const Name name = line.tokenAnalysis[token].name;
        if (name == nullptr || contains(region.declared, name)) return;
        if (!isTop) anyNested = true;
        if (contains(region.uncertain, name)) return;
        if (!isTop && contains(region.later, name)) return;
        if (contains(region.later, name)) return;
        window.names.push_back(name);
        (isTop && !anyNested ? region.later : region.uncertain).push_back(name);
    };
    const auto nested = [&](std::uint32_t body) {
        collectNatives(body, region, window, false, anyNested, depth + 1);
    };
    const BytecodeChunkRange& range = program_.chunks[chunk];
    for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
        const BytecodeInstruction& instruction = program_.code[range.firstInstruction + i];
        const std::uint32_t operand = instruction.operand;
        switch (static_cast<BytecodeOp>(instruction.opcode)) {
            case BytecodeOp::Statement:
            case BytecodeOp::FastAssign: {
                if (operand >= program_.lines.size()) break;
                const ParsedScriptLine& line = program_.lines[operand];
                if (line.assignmentScope != ScopeTarget::Native || line.assignment == nullptr) {
                    break;
                }
                for (const ParsedAssignmentTarget& target : line.assignment->targets) {
                    add(line, target.nameToken);
                }
                break;
            }
            case BytecodeOp::FunctionDecl: {
                if (operand >= program_.functionDecls.size()) break;
                const std::uint32_t at = program_.functionDecls[operand].declarationLine;
                if (at < program_.lines.size() &&
                    program_.lines[at].kind == LineKind::NativeFunction) {
                    add(program_.lines[at], 2);
                }
                break;
            }
            case BytecodeOp::IfGroup:
                if (operand >= program_.ifGroups.size()) break;
                for (const auto& branch : program_.ifGroups[operand].branches) {
                    nested(branch.bodyChunk);
                }
                break;
            case BytecodeOp::WhileLoop:
                if (operand < program_.whileLoops.size()) {
                    nested(program_.whileLoops[operand].bodyChunk);
                }
                break;
            case BytecodeOp::RepeatLoop:
                if (operand < program_.repeatLoops.size()) {
                    nested(program_.repeatLoops[operand].bodyChunk);
                }
                break;
            default: break;  // the bodies of `for`s have frame scopes of their own
        }
    }
}

MachineCompiler::Region MachineCompiler::makeRegion(std::uint32_t chunk,
                                                    const std::vector<Name>& given,
                                                    std::uint16_t first, bool isLoop) {
    Region region;
    ScopeWindow window;
    window.names = given;
    window.first = first;
    window.given = static_cast<std::uint16_t>(given.size());
    region.declared = given;
    region.isLoop = isLoop;
    bool anyNested = false;
    collectNatives(chunk, region, window, true, anyNested);
    window.hasOwnNames = !region.uncertain.empty();
    region.window = number(out_.windows.size());
    out_.windows.push_back(std::move(window));
    return region;
}

std::optional<std::uint16_t> MachineCompiler::freshPlace(const ParsedScriptLine& line,
                                                         std::size_t token) const {
    const Name name = line.tokenAnalysis[token].name;
    if (line.assignmentScope == ScopeTarget::Local) {
        const Chunk& chunk = chunks_.back();
        if (!chunk.ownsBlock || contains(chunk.declared, name)) return std::nullopt;
        const ScopeWindow& window = out_.windows[chunk.window];
        const std::size_t next = chunk.declared.size();
        if (next >= window.names.size() || window.names[next] != name) return std::nullopt;
        return static_cast<std::uint16_t>(window.first + next);
    }
    if (line.assignmentScope == ScopeTarget::Native) {
        if (regions_.empty()) return std::nullopt;
        const Region& region = regions_.back();
        if (region.chunkLevel != chunks_.size() || !contains(region.later, name)) {
            return std::nullopt;
        }
        const ScopeWindow& window = out_.windows[region.window];
        const std::size_t next = region.declared.size();
        if (region.isLoop || window.names[next] != name) return std::nullopt;
        return static_cast<std::uint16_t>(window.first + next);
    }
    return std::nullopt;
}

std::optional<std::uint16_t> MachineCompiler::declaredPlace(const ParsedScriptLine& line,
                                                            std::size_t token) const {
    const Name name = line.tokenAnalysis[token].name;
    const std::vector<Name>* declared = nullptr;
    std::uint16_t window = 0;
    if (line.assignmentScope == ScopeTarget::Local && chunks_.back().ownsBlock) {
        declared = &chunks_.back().declared;
        window = chunks_.back().window;
    } else if (line.assignmentScope == ScopeTarget::Native && !regions_.empty()) {
        declared = &regions_.back().declared;
        window = regions_.back().window;
    }
    if (declared == nullptr) return std::nullopt;
    const auto at = std::find(declared->begin(), declared->end(), name);
    if (at == declared->end()) return std::nullopt;
    return static_cast<std::uint16_t>(out_.windows[window].first + (at - declared->begin()));
}

bool MachineCompiler::canDeclare(const ParsedScriptLine& line, std::size_t token) const {
    return freshPlace(line, token).has_value() || declaredPlace(line, token).has_value();
}

void MachineCompiler::emitDeclared(const ParsedScriptLine& line, std::size_t token) {
    const Name name = line.tokenAnalysis[token].name;
    if (line.assignmentScope == ScopeTarget::Local) {
        emit(Op::DeclareBlock);
        chunks_.back().declared.push_back(name);
    } else {
        emit(Op::DeclareFrame);
        Region& region = regions_.back();
        region.declared.push_back(name);
        region.later.erase(std::find(region.later.begin(), region.later.end(), name));
    }
}

/// What the executor has declared by now, if it has run the line.
void MachineCompiler::noteExecutorDeclarations(const ParsedScriptLine& line) {
    const auto note = [&](ScopeTarget scope, std::size_t token) {
        const Name name = line.tokenAnalysis[token].name;
        if (scope == ScopeTarget::Local && chunks_.back().ownsBlock &&
            !contains(chunks_.back().declared, name)) {
            chunks_.back().declared.push_back(name);
        } else if (scope == ScopeTarget::Native && !regions_.empty()) {
            Region& region = regions_.back();
            if (region.chunkLevel == chunks_.size() && contains(region.later, name) &&
                !region.isLoop) {
                region.declared.push_back(name);
                region.later.erase(std::find(region.later.begin(), region.later.end(), name));
            }
        }
    };
    if (line.kind == LineKind::LocalFunction || line.kind == LineKind::NativeFunction) {
        if (line.tokenAnalysis.size() > 2) {
            note(line.kind == LineKind::LocalFunction ? ScopeTarget::Local : ScopeTarget::Native,
                 2);
        }
    } else if (line.assignment != nullptr && line.assignmentScope != ScopeTarget::Default) {
        if (!line.assignment->isPlain) return;
        for (const ParsedAssignmentTarget& target : line.assignment->targets) {
            note(line.assignmentScope, target.nameToken);
        }
    }
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
    for (std::uint32_t i = 0; i < range.instructionCount; ++i) {
        const BytecodeInstruction& instruction = program_.code[range.firstInstruction + i];
        const std::uint32_t operand = instruction.operand;
        switch (static_cast<BytecodeOp>(instruction.opcode)) {
            case BytecodeOp::Statement:
                if (operand >= program_.lines.size()) return true;
                if (program_.lines[operand].assignment == nullptr) return true;
                if (program_.lines[operand].assignment->targets.size() > 1 ||
                    program_.lines[operand].assignment->valueRanges.size() > 1) {
                    return true;
                }
                break;
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
    entered.ownsBlock = mode_.isRecursive && (mode_.amongBlocks || range.hasLocalDeclaration);
    const bool outerAmongBlocks =
        std::exchange(mode_.amongBlocks, mode_.amongBlocks || entered.ownsBlock);
    const std::uint16_t mark = top_;
    if (entered.ownsBlock) {
        ScopeWindow window;
        window.names = localsOf(chunk);
        window.first = top_;
        allocate(window.names.size());
        entered.window = number(out_.windows.size());
        emitD(Op::PushBlock, 0, entered.window);
        out_.windows.push_back(std::move(window));
        ++openBlocks_;
    }
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
    chunks_.pop_back();
    if (entered.ownsBlock) {
        emit(Op::PopBlock);
        --openBlocks_;
    }
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
    if (line->tokens.empty()) {
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
        const std::uint32_t statement = beginStatement(index, lineRunsCode(opcode, *line));
        out_.statements[statement].instruction = position;
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
        valueIsNil_ = wasNil;
    }
    runByExecutor(index, position);
    noteExecutorDeclarations(*line);
    if (opcode == BytecodeOp::FastAssign) valueIsNil_ = true;
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
        isCompiled = emitParallel(line);
    }
    if (isCompiled) clearValue();
    return isCompiled;
}

/// A value to a variable that exists, or a declaration that is not the first of its name.
void MachineCompiler::emitStore(const ParsedScriptLine& line, std::size_t token, Place value) {
    const Resolution found = resolve(line, token);
    if (found.isRegister) {
        emitABC(value.isTemporary ? Op::Take : Op::Move, found.reg, value.reg, 0,
                value.isTemporary ? std::uint8_t{0} : kCheckedVariable);
        return;
    }
    if (!value.isTemporary) {
        const std::uint16_t copy = allocate();
        emitABC(Op::Move, copy, value.reg, 0, kCheckedVariable);
        value = {copy, true};
    }
    const VariableRecord& record = out_.variables[found.record];
    emitD(record.global != nullptr && !record.hasPlace ? Op::SetGlobal : Op::SetVariable, value.reg,
          found.record);
}

void MachineCompiler::storeDeclared(const ParsedScriptLine& line, std::size_t token, Place value) {
    const auto fresh = freshPlace(line, token);
    const std::uint16_t reg = fresh ? *fresh : *declaredPlace(line, token);
    emitABC(value.isTemporary ? Op::Take : Op::Move, reg, value.reg, 0,
            value.isTemporary ? std::uint8_t{0} : kCheckedVariable);
    if (fresh) emitDeclared(line, token);
}

bool MachineCompiler::emitBareDeclaration(const ParsedScriptLine& line) {
    const std::size_t token = line.assignment->targets[0].nameToken;
    if (line.assignmentScope != ScopeTarget::Local || !canDeclare(line, token)) return false;
    if (const auto fresh = freshPlace(line, token)) {
        emitDeclared(line,
                     token);  // its register holds nil, but whatever stood there may be a number
        emitD(Op::LoadNil, *fresh, 0);
    } else {
        emitD(Op::LoadNil, *declaredPlace(line, token), 0);
    }
    return true;
}

bool MachineCompiler::emitSimpleAssignment(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const std::size_t token = assignment.targets[0].nameToken;
    const bool declares = line.assignmentScope != ScopeTarget::Default;
    if (declares && !canDeclare(line, token)) return false;
    const FastExpression& value = assignment.values[0];

    // Where the result may be written at once: one instruction does it, when all operands are read.
    std::optional<std::uint16_t> direct;
    if (declares) {
        direct = freshPlace(line, token);
    } else {
        const Resolution found = resolve(line, token);
        if (found.isRegister) direct = found.reg;
        // `s = s + ...`: the text of the variable grows in its place.
        if (value.valid && !value.rootNode().holdsCall && value.rootNode().kind == NodeKind::Add) {
            int first = value.root;
            while (value.nodes[static_cast<std::size_t>(first)].kind == NodeKind::Add) {
                first = value.nodes[static_cast<std::size_t>(first)].left;
            }
            const FastExprNode& leaf = value.nodes[static_cast<std::size_t>(first)];
            if (leaf.kind == NodeKind::Variable &&
                line.tokenAnalysis[leaf.tokenIndex].name == line.tokenAnalysis[token].name) {
                const Resolution read = resolve(line, leaf.tokenIndex);
                const bool isNumeric = [&] {
                    const FastExprNode& right =
                        value.nodes[static_cast<std::size_t>(value.rootNode().right)];
                    return right.kind == NodeKind::IntLiteral ||
                           right.kind == NodeKind::FloatLiteral;
                }();
                const bool sameRegister =
                    found.isRegister && read.isRegister && found.reg == read.reg;
                const bool sameGlobal =
                    !found.isRegister && !read.isRegister &&
                    out_.variables[found.record].global != nullptr &&
                    !out_.variables[found.record].hasPlace &&
                    out_.variables[found.record].global == out_.variables[read.record].global;
                if (!isNumeric && (sameRegister || sameGlobal)) {
                    const Source outer = source_;
                    source_ = Source{&line, &value, Tier::Either, kNoSite, false};
                    const std::uint16_t spare = allocate();
                    const std::uint32_t site = beginSite(sameRegister ? found.reg : spare, false);
                    const bool appended = emitJoin(
                        value.root, 0,
                        sameRegister ? std::optional<std::uint16_t>(found.reg) : std::nullopt,
                        sameRegister ? std::nullopt : std::optional<std::uint16_t>(found.record));
                    if (appended) {
                        const Label behind = newLabel();
                        bind(behind);
                        endSite(site, behind);
                        if (sameGlobal) {
                            // Both tokens have met the variable.
                            emitD(Op::AppendGlobal, 0, read.record, 1);
                        }
                        source_ = outer;
                        return true;
                    }
                    out_.expressions.resize(site);
                    source_ = outer;
                }
            }
        }
    }
    const std::uint16_t temporary = allocate();
    const auto isSafe = [&](const FastExpression& expression) {
        const NodeKind root = expression.rootNode().kind;
        return !expression.rootNode().holdsCall && root != NodeKind::And && root != NodeKind::Or;
    };
    std::uint16_t target = temporary;
    if (assignment.simpleCall.valid) {
        emitDirectCall(line, assignment.simpleCall, target);
        emitABC(Op::CutMulti, target, 0, 0);
    } else if (value.valid) {
        if (direct && (declares || isSafe(value))) target = *direct;
        emitValue(line, value, target, true);
        if (value.isCall()) emitABC(Op::CutMulti, target, 0, 0);
    } else if (!emitTokenValue(line, assignment.valueRanges[0], target)) {
        return false;
    }
    if (!ok_) return true;
    if (declares) {
        const auto fresh = freshPlace(line, token);
        if (fresh && target == *fresh) {
            emitDeclared(line, token);
        } else {
            storeDeclared(line, token, {target, true});
        }
    } else if (!direct || target != *direct) {
        emitStore(line, token, {target, true});
    }
    return true;
}

void MachineCompiler::emitUpdate(const ParsedScriptLine& line, std::uint16_t operand,
                                 OperandOrigin origin) {
    const ParsedAssignment& assignment = *line.assignment;
    const Resolution found = resolve(line, assignment.targets[0].nameToken);
    emitABC(found.isRegister ? Op::UpdateRegister : Op::UpdateVariable,
            found.isRegister ? found.reg : found.record, operand, static_cast<std::size_t>(origin),
            static_cast<std::uint8_t>(assignment.operation));
}

bool MachineCompiler::emitCompound(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const FastExpression& value = assignment.values[0];
    const std::uint16_t operand = allocate();
    if (assignment.simpleCall.valid) {
        emitDirectCall(line, assignment.simpleCall, operand);
        emitUpdate(line, operand, OperandOrigin::Call);
        return true;
    }
    if (!value.valid) return false;
    if (value.isCall()) {
        emitValue(line, value, operand, true);
        emitUpdate(line, operand, OperandOrigin::General);
    } else if (!value.rootNode().holdsCall) {
        emitValue(line, value, operand, true);
        // Which tier gave it shows only where the kinds mix, and is found out then.
        emitUpdate(line, operand, OperandOrigin::Unknown);
    } else if (repeatsVisibly(value, value.root)) {
        return false;
    } else if (declinesAtOnce(value, line)) {
        emitValue(line, value, operand, true);
        emitUpdate(line, operand, OperandOrigin::General);
    } else {
        const Source outer = source_;
        source_ = Source{&line, &value, Tier::Scalar, kNoSite, false};
        const Label general = newLabel();
        const Label behind = newLabel();
        const std::uint32_t site = beginSite(operand, false);
        out_.expressions[site].isScalarForm = true;
        out_.expressions[site].isStatement = true;
        out_.expressions[site].doneTrue = out_.expressions[site].doneFalse = behind;
        source_.scalarSite = site;
        emitTo(value.root, operand);
        endSite(site, general);
        emitUpdate(line, operand, OperandOrigin::Scalar);
        emitJump(Op::Jump, 0, behind);
        bind(general);
        source_.tier = Tier::General;
        source_.scalarSite = kNoSite;
        emitTo(value.root, operand);
        emitUpdate(line, operand, OperandOrigin::General);
        bind(behind);
        source_ = outer;
    }
    return true;
}

bool MachineCompiler::emitElementAssignment(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const ParsedAssignmentTarget& target = assignment.targets[0];
    const std::size_t keys = target.indexRanges.size();
    if (line.assignmentScope != ScopeTarget::Default || assignment.values.empty()) return false;
    const std::uint16_t first = allocate(keys);
    for (std::size_t i = 0; i < keys; ++i) {
        const auto reg = static_cast<std::uint16_t>(first + i);
        const FastExpression& key = target.indexExpressions[i];
        if (key.valid) {
            emitValue(line, key, reg);
        } else if (!emitTokenValue(line, target.indexRanges[i], reg)) {
            return false;
        }
    }
    const std::uint16_t value = allocate();
    if (!emitTokenValue(line, assignment.valueRanges[0], value, false)) return false;
    const bool readsNothingLast = endsWithCall_;
    const Resolution base = resolve(line, target.nameToken);
    if (!readsNothingLast) markToken(line, assignment.valueRanges[0].last - 1);
    const std::size_t baseNumber = base.isRegister ? base.reg : base.record;
    constexpr auto kBothGo = static_cast<std::uint8_t>(kFirstGoes | kSecondGoes);
    if (keys == 1 && assignment.isPlain) {
        emitABC(base.isRegister ? Op::SetIndex : Op::SetIndexGlobal, baseNumber, first, value,
                kBothGo);
    } else if (keys == 1) {
        emitABC(base.isRegister ? Op::UpdateIndex : Op::UpdateIndexGlobal, baseNumber, first, value,
                static_cast<std::uint8_t>(assignment.operation));
    } else {
        StoreSite site;
        site.base = static_cast<std::uint16_t>(baseNumber);
        site.isGlobal = !base.isRegister;
        site.firstKey = first;
        site.keyCount = static_cast<std::uint16_t>(keys);
        site.value = value;
        site.operation = assignment.isPlain ? '\0' : assignment.operation;
        emitD(Op::SetPath, 0, static_cast<std::int64_t>(out_.stores.size()));
        out_.stores.push_back(site);
    }
    return true;
}

/// `a, b = x, y`, `a, b = f()` and the forms with one key each: all keys, then all values, then the
/// stores.
bool MachineCompiler::emitParallel(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const std::size_t count = assignment.targets.size();
    if (!assignment.isPlain || count < 2 || count > 100) return false;
    bool anyIndexed = false;
    for (const ParsedAssignmentTarget& target : assignment.targets) {
        if (target.indexRanges.size() > 1) return false;
        anyIndexed = anyIndexed || !target.indexRanges.empty();
        if (line.assignmentScope != ScopeTarget::Default) {
            if (!target.indexRanges.empty()) return false;
        }
        if (!target.indexRanges.empty()) {
            const Resolution base = resolve(line, target.nameToken);
            if (!base.isRegister && (out_.variables[base.record].global == nullptr ||
                                     out_.variables[base.record].hasPlace)) {
                return false;
            }
        }
    }
    if (anyIndexed && tracksValue_) return false;
    const std::size_t values = assignment.valueRanges.size();
    if (line.assignmentScope != ScopeTarget::Default) {
        // The names must come in the order of their places.
        const Chunk& chunk = chunks_.back();
        const Region* region = regions_.empty() ? nullptr : &regions_.back();
        std::size_t next = line.assignmentScope == ScopeTarget::Local
                               ? chunk.declared.size()
                               : (region != nullptr ? region->declared.size() : 0);
        for (const ParsedAssignmentTarget& target : assignment.targets) {
            if (declaredPlace(line, target.nameToken)) continue;
            const Name name = line.tokenAnalysis[target.nameToken].name;
            if (line.assignmentScope == ScopeTarget::Local) {
                if (!chunk.ownsBlock) return false;
                const auto& names = out_.windows[chunk.window].names;
                if (next >= names.size() || names[next] != name) return false;
            } else {
                if (region == nullptr || region->isLoop || region->chunkLevel != chunks_.size() ||
                    !contains(region->later, name)) {
                    return false;
                }
                const auto& names = out_.windows[region->window].names;
                if (next >= names.size() || names[next] != name) return false;
            }
            ++next;
        }
    }
    std::vector<std::uint16_t> keys(count, 0);
    for (std::size_t i = 0; i < count; ++i) {
        const ParsedAssignmentTarget& target = assignment.targets[i];
        if (target.indexRanges.empty()) continue;
        if (!target.indexExpressions[0].valid) return false;
        keys[i] = allocate();
        emitValue(line, target.indexExpressions[0], keys[i]);
    }
    const std::uint16_t first = allocate(std::max(values, count));
    if (values == 1) {
        if (anyIndexed || !assignment.values[0].isCall()) return false;
        // The results of the call are spread over the targets.
        const FastExpression& expression = assignment.values[0];
        const Source outer = source_;
        source_ = Source{&line, &expression, Tier::General, kNoSite, false};
        const FastExprNode& call = expression.rootNode();
        const auto arguments = static_cast<std::size_t>(call.intValue);
        const std::uint16_t base = allocate(arguments + 1);
        emitArguments(call, static_cast<std::uint16_t>(base + 1));
        emitTo(call.left, base);
        emitABC(Op::SpreadCall, base, arguments, 0, static_cast<std::uint8_t>(Tier::General));
        emitABC(Op::Spread, base, first, count);
        source_ = outer;
    } else {
        for (std::size_t i = 0; i < values; ++i) {
            const auto reg = static_cast<std::uint16_t>(first + i);
            if (assignment.values[i].valid) {
                emitValue(line, assignment.values[i], reg);
            } else if (!emitTokenValue(line, assignment.valueRanges[i], reg)) {
                return false;
            }
        }
        for (std::size_t i = values; i < count; ++i) {
            emitD(Op::LoadNil, static_cast<std::size_t>(first + i), 0);
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        const ParsedAssignmentTarget& target = assignment.targets[i];
        const Place value{static_cast<std::uint16_t>(first + i), true};
        if (!target.indexRanges.empty()) {
            const Resolution base = resolve(line, target.nameToken);
            emitABC(base.isRegister ? Op::SetIndex : Op::SetIndexGlobal,
                    base.isRegister ? base.reg : base.record, keys[i], value.reg,
                    static_cast<std::uint8_t>(kFirstGoes | kSecondGoes));
        } else if (line.assignmentScope != ScopeTarget::Default) {
            storeDeclared(line, target.nameToken, value);
        } else {
            emitStore(line, target.nameToken, value);
        }
    }
    for (std::size_t i = count; i < values; ++i) {
        emitD(Op::Clear, static_cast<std::size_t>(first + i), 0);
    }
    return true;
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
    for (std::size_t i = loop_->blocks; i < openBlocks_; ++i) emit(Op::PopBlock);
    emitJump(Op::Jump, 0, loop_->end);
}

// ---------------------------------------------------------------- blocks

namespace {

bool conditionRunsCode(const ParsedScriptLine& line) {
    return !line.condition.valid || line.condition.rootNode().holdsCall;
}

}  // namespace

void MachineCompiler::emitIfGroup(const BytecodeIfGroup& group) {
    beginBlockStatement();
    const Label end = newLabel();
    const bool wasNil = valueIsNil_;
    bool isNil = true;
    bool hasElse = false;
    for (std::size_t i = 0; ok_ && i < group.branches.size(); ++i) {
        const BytecodeIfBranch& branch = group.branches[i];
        const ParsedScriptLine* line = lineAt(branch.conditionLine);
        if (line == nullptr) return;
        const Label next = newLabel();
        valueIsNil_ = wasNil;
        if (branch.isElse) {
            beginStatement(branch.conditionLine, false);
            hasElse = true;
        } else {
            beginStatement(branch.conditionLine, conditionRunsCode(*line));
            if (!emitCondition(*line, next)) ok_ = false;
        }
        emitNestedChunk(branch.bodyChunk);
        isNil = isNil && valueIsNil_;
        if (branch.isElse) break;
        if (i + 1 < group.branches.size()) emitJump(Op::Jump, 0, end);
        bind(next);
    }
    valueIsNil_ = isNil && (hasElse || wasNil);
    bind(end);
    endBlockStatement();
}

void MachineCompiler::emitLoopBody(std::uint32_t chunk, Loop& loop) {
    loop.depth = mode_.depth;
    loop.blocks = openBlocks_;
    Loop* const outer = std::exchange(loop_, &loop);
    ++loopNesting_;
    if (makesValue(chunk)) valueIsNil_ = false;
    emitNestedChunk(chunk);
    if (makesValue(chunk)) valueIsNil_ = false;
    --loopNesting_;
    loop_ = outer;
}

/// At the end of a loop's turn: tokens that have met their places meanwhile are worth code anew.
void MachineCompiler::emitJumpBack(std::size_t firstRecord) {
#if defined(DOVREL_FUZZ) || defined(DOVREL_INTERRUPTIBLE)
    bool anyCold = true;  // whoever may stop a script is asked in each turn of a loop
#else
    bool anyCold = false;
#endif
    for (std::size_t i = firstRecord; i < out_.variables.size(); ++i) {
        const VariableRecord& record = out_.variables[i];
        anyCold = anyCold || record.hasPlace || record.global == nullptr;
    }
    emitD(Op::JumpBack, 0, static_cast<std::int64_t>(loopCount_++), anyCold ? 0 : 1);
}

/// The condition stands behind the body, so that a turn takes one jump.
void MachineCompiler::emitWhile(const BytecodeWhileLoop& loop) {
    const ParsedScriptLine* line = lineAt(loop.conditionLine);
    if (line == nullptr) return;
    beginBlockStatement();
    Loop inner;
    inner.end = newLabel();
    const Label body = newLabel();
    const std::size_t firstRecord = out_.variables.size();
    // A condition that may run often is compiled twice: before the first turn and behind each.
    ++loopNesting_;
    beginStatement(loop.conditionLine, conditionRunsCode(*line));
    if (!emitCondition(*line, inner.end)) ok_ = false;
    --loopNesting_;
    bind(body);
    emitLoopBody(loop.bodyChunk, inner);
    emitJumpBack(firstRecord);
    ++loopNesting_;
    beginStatement(loop.conditionLine, conditionRunsCode(*line));
    if (!emitCondition(*line, inner.end, true, body)) ok_ = false;
    --loopNesting_;
    bind(inner.end);
    endBlockStatement();
}

void MachineCompiler::emitRepeat(const BytecodeRepeatLoop& loop) {
    const ParsedScriptLine* line = lineAt(loop.untilLine);
    ok_ = ok_ && line != nullptr && !line->tokens.empty() && line->tokens[0] == "until";
    if (!ok_) return;
    beginBlockStatement();
    Loop inner;
    inner.end = newLabel();
    const Label body = newLabel();
    const std::size_t firstRecord = out_.variables.size();
    bind(body);
    emitLoopBody(loop.bodyChunk, inner);
    emitJumpBack(firstRecord);
    ++loopNesting_;
    beginStatement(loop.untilLine, conditionRunsCode(*line));
    if (!emitCondition(*line, body)) ok_ = false;
    --loopNesting_;
    bind(inner.end);
    endBlockStatement();
}

/// The body may leave the loop variable so that the loop cannot count on, which is reported with
/// the statement that has run last.
/// The body of a loop may leave its variable with a value that is no int: by an assignment, or by a
/// call, since a callee may assign the variables of its callers. Then it is the next count that
/// fails, and shows the line that was the current one last.
bool MachineCompiler::mayChangeLoopVariable(const ParsedScriptLine& header,
                                            std::uint32_t index) const {
    const auto mayCall = [](const ParsedScriptLine& line) {
        for (std::size_t i = 1; i < line.tokens.size(); ++i) {
            if (line.tokens[i] != "(") continue;
            const std::string& before = line.tokens[i - 1];
            if (line.tokenAnalysis[i - 1].isIdentifier || before == "]" || before == ")") {
                return true;
            }
        }
        return false;
    };
    const Name name = header.tokenAnalysis[forHeaderOf(header).numericVariable].name;
    const std::size_t end = std::min(header.matchingEnd, program_.lines.size());
    for (std::size_t i = index + 1; i < end; ++i) {
        const ParsedScriptLine& line = program_.lines[i];
        if (mayCall(line)) return true;
        if (line.assignment == nullptr) continue;
        for (const ParsedAssignmentTarget& target : line.assignment->targets) {
            if (line.tokenAnalysis[target.nameToken].name == name) return true;
        }
    }
    return false;
}

void MachineCompiler::emitNumericFor(const BytecodeForLoop& loop) {
    const ParsedScriptLine* line = lineAt(loop.headerLine);
    if (line == nullptr) return;
    const ParsedForHeader& header = forHeaderOf(*line);
    ok_ = ok_ && header.numericVariable < line->tokenAnalysis.size() &&
          line->tokenAnalysis[header.numericVariable].name != nullptr &&
          line->kind == LineKind::For;
    if (!ok_) return;
    const auto isSimple = [&](const FastExpression& expression) {
        return expression.valid && !repeatsVisibly(expression, expression.root);
    };
    const bool isCompiled = isSimple(header.numericStart) && isSimple(header.numericLimit) &&
                            (!header.hasNumericStep || isSimple(header.numericStep));
    beginBlockStatement();
    const bool runsCode = !isCompiled || header.numericStart.rootNode().holdsCall ||
                          header.numericLimit.rootNode().holdsCall ||
                          (header.hasNumericStep && header.numericStep.rootNode().holdsCall);
    const std::uint32_t statement = beginStatement(loop.headerLine, runsCode);
    const std::uint16_t mark = top_;
    const std::uint16_t first = allocate(4);
    LoopSite site;
    site.statement = statement;
    site.first = first;
    site.nameCount = 1;
    const Label skip = newLabel();
    site.otherwise = skip;
    ++loopNesting_;
    if (isCompiled) {
        emitValue(*line, header.numericStart, first);
        emitValue(*line, header.numericLimit, static_cast<std::uint16_t>(first + 1));
        if (header.hasNumericStep) {
            emitValue(*line, header.numericStep, static_cast<std::uint16_t>(first + 2));
        } else {
            emitD(Op::LoadInt, static_cast<std::size_t>(first + 2), 1);
        }
    } else {
        emitD(Op::ForSlowly, first, static_cast<std::int64_t>(out_.loops.size()));
    }
    --loopNesting_;
    Region region = makeRegion(loop.bodyChunk, {line->tokenAnalysis[header.numericVariable].name},
                               static_cast<std::uint16_t>(first + 3), true);
    allocate(out_.windows[region.window].names.size() - 1);
    site.window = region.window;
    emitD(Op::ForStart, first, static_cast<std::int64_t>(out_.loops.size()));
    out_.loops.push_back(site);
    regions_.push_back(std::move(region));
    regions_.back().chunkLevel = chunks_.size() + 1;
    Loop inner;
    inner.end = newLabel();
    const Label body = newLabel();
    const std::size_t firstRecord = out_.variables.size();
    bind(body);
    const bool isInline =
        !mode_.isRecursive || (!mode_.amongBlocks && chunkIsInlinable(program_, loop.bodyChunk));
    const bool outerKeepsLines =
        std::exchange(keepsLines_, keepsLines_ || mayChangeLoopVariable(*line, loop.headerLine));
    emitLoopBody(loop.bodyChunk, inner);
    emitJumpBack(firstRecord);
    emitJump(Op::ForNext, first, body,
             static_cast<std::uint8_t>((isInline ? 0 : kCountsOutside) |
                                       (keepsLines_ ? kLinesAreKept : 0)));
    keepsLines_ = outerKeepsLines;
    bind(inner.end);
    bind(skip);
    emit(Op::CloseFrame);
    regions_.pop_back();
    top_ = mark;
    endBlockStatement();
}

void MachineCompiler::emitGenericFor(const BytecodeForLoop& loop, std::uint32_t position) {
    const ParsedScriptLine* line = lineAt(loop.headerLine);
    if (line == nullptr) return;
    const ParsedForHeader& header = forHeaderOf(*line);
    bool isPlain = line->kind == LineKind::For && !header.genericVariables.empty() &&
                   header.genericVariables.size() <= 100 && header.genericIterator.valid &&
                   !repeatsVisibly(header.genericIterator, header.genericIterator.root);
    std::vector<Name> names;
    for (const std::size_t token : header.genericVariables) {
        if (token >= line->tokenAnalysis.size() || line->tokenAnalysis[token].name == nullptr) {
            isPlain = false;
        } else {
            names.push_back(line->tokenAnalysis[token].name);
        }
    }
    if (!isPlain) {
        beginBlockStatement();
        runByExecutor(loop.headerLine, position);
        endBlockStatement();
        return;
    }
    const std::size_t iteratorToken = header.genericVariables.back() + 2;
    beginBlockStatement();
    const std::uint32_t statement = beginStatement(loop.headerLine, true);
    const std::uint16_t mark = top_;
    // Hidden: the walk, and what it walks.
    const std::uint16_t first = allocate(3);
    Region region = makeRegion(loop.bodyChunk, names, static_cast<std::uint16_t>(first + 3), true);
    allocate(out_.windows[region.window].names.size());
    LoopSite site;
    site.statement = statement;
    site.window = region.window;
    site.first = first;
    site.nameCount = static_cast<std::uint16_t>(names.size());
    site.isBuiltin = header.genericBuiltin != BuiltinId::None;
    ++loopNesting_;
    const auto index = static_cast<std::int64_t>(out_.loops.size());
    const Label general = newLabel();
    const Label turns = newLabel();
    const Label next = newLabel();
    const Label body = newLabel();
    site.otherwise = general;
    if (site.isBuiltin) {
        site.iterator = recordFor(*line, iteratorToken);
        out_.loops.push_back(site);
        emitD(Op::WalkCheck, first, index);
        emitD(Op::OpenLoopFrame, first, index);
        regions_.push_back(region);
        regions_.back().chunkLevel = chunks_.size() + 1;
        if (header.genericIterator.isCall() && header.genericBuiltin == BuiltinId::Ipairs) {
            const Source outer = source_;
            source_ = Source{line, &header.genericIterator, Tier::General, kNoSite, false};
            const FastExprNode& call = header.genericIterator.rootNode();
            const std::uint16_t innerMark = top_;
            const auto arguments = static_cast<std::size_t>(call.intValue);
            const std::uint16_t base = allocate(arguments + 1);
            emitArguments(call, static_cast<std::uint16_t>(base + 1));
            // The callee is found without running anything.
            const FastExprNode& callee = node(call.left);
            if (callee.kind == NodeKind::Variable || isMemberCallee(call.left)) {
                emitTo(call.left, base);
            } else {
                emitD(Op::LoadNil, base, 0);
            }
            emitABC(Op::WalkCall, first, base, arguments);
            emitJump(Op::Jump, 0, turns);  // skipped unless the walk begins
            top_ = innerMark;
            source_ = outer;
        }
        emitValue(*line, header.genericIterator, static_cast<std::uint16_t>(first + 1));
        emitD(Op::WalkStart, first, index, 1);
        emitJump(Op::Jump, 0, turns);
        regions_.pop_back();
        bind(general);
        emitValue(*line, header.genericIterator, static_cast<std::uint16_t>(first + 1));
        emitD(Op::WalkStart, first, index, 0);
        emitD(Op::OpenLoopFrame, first, index);
    } else {
        out_.loops.push_back(site);
        bind(general);
        emitValue(*line, header.genericIterator, static_cast<std::uint16_t>(first + 1));
        emitD(Op::WalkStart, first, index, 0);
        emitD(Op::OpenLoopFrame, first, index);
    }
    --loopNesting_;
    regions_.push_back(std::move(region));
    regions_.back().chunkLevel = chunks_.size() + 1;
    bind(turns);
    emitJump(Op::Jump, 0, next);
    Loop inner;
    inner.end = newLabel();
    const std::size_t firstRecord = out_.variables.size();
    bind(body);
    emitLoopBody(loop.bodyChunk, inner);
    emitJumpBack(firstRecord);
    bind(next);
    emitJump(Op::WalkNext, first, body);
    bind(inner.end);
    emitD(Op::WalkEnd, first, 0);
    emit(Op::CloseFrame);
    regions_.pop_back();
    top_ = mark;
    endBlockStatement();
}

// ---------------------------------------------------------------- units

bool MachineCompiler::compileLeaf(const ParsedScriptLine& line, MachineDraft& draft) {
    isLeaf_ = true;
    allocate(unit_.parameters.size());
    const std::uint16_t result = allocate();
    if (line.hasCompiledReturnValues()) {
        emitValue(line, line.returnValues[0], result);
    } else {
        const TokenRange range{1, line.tokens.size()};
        const FastExpression form =
            compileTokenForm(line.tokens, line.tokenAnalysis, range.first, range.last);
        const auto isCall = [](const FastExprNode& node) { return node.kind == NodeKind::Call; };
        if (!form.valid || std::any_of(form.nodes.begin(), form.nodes.end(), isCall)) return false;
        if (!emitTokenValue(line, range, result)) return false;
        out_.isTokenLeaf = true;
    }
    emit(Op::ReturnLeaf, result);
    out_.isLeaf = true;
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
    const bool endsWithReturn =
        range.instructionCount > 0 &&
        program_.code[range.firstInstruction + range.instructionCount - 1].opcode ==
            static_cast<std::uint8_t>(BytecodeOp::Return);
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
