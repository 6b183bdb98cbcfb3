// Names and scopes of the compiled form: which token is a register, and which variables a block or
// a function will declare.
#include <algorithm>
#include <utility>

#include "exec/inline_chunks.h"
#include "exec/machine_compiler.h"

bool MachineCompiler::contains(const std::vector<Name>& names, Name name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::uint16_t MachineCompiler::recordFor(const ParsedScriptLine& line, std::size_t token) {
    VariableRecord record;
    record.token = &line.tokenAnalysis[token];
    record.amongBlocks = mode_.amongBlocks;
    record.isPlain = !isLeaf_ && !mode_.amongBlocks;
    if (record.name() == nullptr) ok_ = false;
    // A token that leads to another global than its name's stays with its cache.
    if (record.token->globalSlotFound && record.name() != nullptr &&
        record.token->globalSlot == record.name()->globalSlot) {
        record.setGlobal(record.token->globalValue);
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
        if (contains(region->laterInBlock, name)) break;
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
        } else if (op == BytecodeOp::Statement || op == BytecodeOp::FastAssign ||
                   op == BytecodeOp::Unread) {
            if (instruction.operand >= program_.lines.size()) continue;
            if (program_.lines.scopeOf(instruction.operand) != ScopeTarget::Local) continue;
            ParsedScriptLine own;
            const ParsedScriptLine& line = program_.lines.lookAt(instruction.operand, own);
            if (line.assignment == nullptr) continue;
            for (const ParsedAssignmentTarget& target : line.assignment->targets) {
                add(line, target.nameToken);
            }
        }
    }
    return names;
}

/// The top frame scope may have the name already, or not, wherever the declaration of `token` runs;
/// no other declaration of its chunk counts on a certain place for it.
bool MachineCompiler::isDeclaredByName(const ParsedScriptLine& line, std::size_t token) const {
    const Name name = line.tokenAnalysis[token].name;
    const std::vector<Name>* const later = regions_.empty() ? nullptr : laterOf(regions_.back());
    return later == nullptr || !contains(*later, name);
}

/// The natives of the chunk at hand that have a certain place and are not declared yet; null if its
/// natives have none.
const std::vector<Name>* MachineCompiler::laterOf(const Region& region) const {
    if (region.chunkLevel == chunks_.size()) return &region.later;
    const bool isInBlock = region.chunkLevel + 1 == chunks_.size() && region.block != kNoChunk &&
                           chunks_.back().id == region.block;
    return isInBlock ? &region.laterInBlock : nullptr;
}

std::vector<Name>* MachineCompiler::laterOf(Region& region) {
    return const_cast<std::vector<Name>*>(std::as_const(*this).laterOf(std::as_const(region)));
}

/// Behind the block, which may not have run, or not as far.
void MachineCompiler::leaveBlockOfNatives(Region& region) {
    for (const Name name : region.declaredInBlock) {
        region.declared.erase(std::find(region.declared.begin(), region.declared.end(), name));
        region.uncertain.push_back(name);
    }
    region.declaredInBlock.clear();
    region.uncertain.insert(region.uncertain.end(), region.laterInBlock.begin(),
                            region.laterInBlock.end());
    region.laterInBlock.clear();
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
        // A compound assignment may fail before it declares.
        const bool isPlain = line.assignment == nullptr || line.assignment->isPlain;
        if (contains(region.later, name) || contains(region.uncertain, name)) return;
        if (contains(region.laterInBlock, name)) {
            if (chunk != region.block) region.isDeclaredAgain = region.isBlockClosed = true;
            return;
        }
        window.names.push_back(name);
        const bool opensBlock = region.block == kNoChunk && !anyNested && !region.isLoop;
        if (isTop && isPlain && !anyNested) {
            region.later.push_back(name);
        } else if (depth == 1 && isPlain && !region.isBlockClosed &&
                   (opensBlock || region.block == chunk)) {
            region.block = chunk;
            region.laterInBlock.push_back(name);
            anyNested = true;
        } else {
            region.uncertain.push_back(name);
            region.isBlockClosed = true;
            anyNested = true;
        }
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
            case BytecodeOp::FastAssign:
            case BytecodeOp::Unread: {
                if (operand >= program_.lines.size()) break;
                if (program_.lines.scopeOf(operand) != ScopeTarget::Native) break;
                ParsedScriptLine own;
                const ParsedScriptLine& line = program_.lines.lookAt(operand, own);
                if (line.assignment == nullptr) break;
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
    window.hasOwnNames = !region.uncertain.empty() || region.isDeclaredAgain;
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
        const std::vector<Name>* const later = laterOf(region);
        if (later == nullptr || !contains(*later, name)) return std::nullopt;
        const ScopeWindow& window = out_.windows[region.window];
        const std::size_t next = region.declared.size();
        if (window.names[next] != name) return std::nullopt;
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
        declareInBlock(name);
    } else {
        Region& region = regions_.back();
        std::vector<Name>& later = *laterOf(region);
        const bool isInBlock = &later == &region.laterInBlock;
        if (region.isLoop || isInBlock) {
            emitD(Op::DeclareFrameOnce, 0, static_cast<std::int64_t>(region.declared.size()));
        } else {
            emit(Op::DeclareFrame);
        }
        region.declared.push_back(name);
        if (isInBlock) region.declaredInBlock.push_back(name);
        later.erase(std::find(later.begin(), later.end(), name));
    }
}

// ---------------------------------------------------------------- block scopes

void MachineCompiler::pushBlock(Chunk& entered, std::uint32_t chunk) {
    ScopeWindow window;
    window.names = localsOf(chunk);
    window.first = top_;
    allocate(window.names.size());
    entered.window = number(out_.windows.size());
    entered.stateAround = blockState_;
    const BlockState& around = out_.blockStates[blockState_];
    BlockState state;
    state.outer = blockState_;
    state.level = static_cast<std::uint16_t>(around.level + 1);
    state.window = entered.window;
    state.first = around.level == 0 ? window.first : around.first;
    state.end = window.first;
    blockState_ = number(out_.blockStates.size());
    emitD(Op::PushBlock, 0, blockState_);
    out_.blockStates.push_back(state);
    out_.windows.push_back(std::move(window));
    ++openBlocks_;
}

void MachineCompiler::declareInBlock(Name name) {
    BlockState state = out_.blockStates[blockState_];
    ++state.declared;
    ++state.end;
    blockState_ = number(out_.blockStates.size());
    emitD(Op::DeclareBlock, 0, blockState_);
    out_.blockStates.push_back(state);
    chunks_.back().declared.push_back(name);
    name->markForBlocks();
}

void MachineCompiler::popBlock(const Chunk& chunk) {
    emitABC(Op::PopBlock, out_.windows[chunk.window].first, chunk.declared.size(),
            chunk.stateAround);
}

/// What the executor has declared by now, if it has run the line.
void MachineCompiler::noteExecutorDeclarations(const ParsedScriptLine& line) {
    const auto note = [&](ScopeTarget scope, std::size_t token) {
        const Name name = line.tokenAnalysis[token].name;
        if (name == nullptr) return;  // the executor has refused it
        if (scope == ScopeTarget::Local && chunks_.back().ownsBlock &&
            !contains(chunks_.back().declared, name)) {
            declareInBlock(name);
        } else if (scope == ScopeTarget::Native && !regions_.empty()) {
            Region& region = regions_.back();
            std::vector<Name>* const later = laterOf(region);
            if (later != nullptr && contains(*later, name)) {
                region.declared.push_back(name);
                if (later == &region.laterInBlock) region.declaredInBlock.push_back(name);
                later->erase(std::find(later->begin(), later->end(), name));
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
