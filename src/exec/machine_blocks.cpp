// Blocks of the compiled form: `if`, loops, and both kinds of `for`.
#include <algorithm>
#include <utility>

#include "exec/for_header.h"
#include "exec/inline_chunks.h"
#include "exec/machine_compiler.h"

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
    const std::size_t statements = out_.statements.size();
    Loop* const outer = std::exchange(loop_, &loop);
    ++loopNesting_;
    if (makesValue(chunk)) valueIsNil_ = false;
    emitNestedChunk(chunk);
    if (makesValue(chunk)) valueIsNil_ = false;
    --loopNesting_;
    loop_ = outer;
    statementsInLoop_ = out_.statements.size() - statements;
}

/// At the end of a loop's turn: tokens that have met their places meanwhile are worth code anew.
void MachineCompiler::emitJumpBack(std::size_t firstRecord) {
#if defined(DOVREL_FUZZ) || defined(DOVREL_EMBEDDED)
    bool anyCold = true;  // whoever may stop a script is asked in each turn of a loop
#else
    bool anyCold = false;
#endif
    for (std::size_t i = firstRecord; i < out_.variables.size(); ++i) {
        const VariableRecord& record = out_.variables[i];
        anyCold = anyCold || record.hasPlace || record.global == nullptr;
    }
    const auto statements =
        static_cast<std::uint16_t>(std::min<std::size_t>(statementsInLoop_, UINT16_MAX));
    out_.loopStates.push_back(blockState_);
    emitD(Op::JumpBack, statements, static_cast<std::int64_t>(loopCount_++), anyCold ? 0 : 1);
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
