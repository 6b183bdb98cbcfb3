#include "exec/hot_code.h"

#include <algorithm>

#include "exec/for_header.h"
#include "exec/hot_compiler.h"

namespace {

constexpr std::size_t kMostNestedBlocks = 32;

/// The value of an element assignment goes by tokens. A node of these forms comes to the same in
/// scalars, as long as its operators are exact ones.
bool hasExactForm(const FastExpression& expression, int index) {
    const FastExprNode& node = expression.nodes[static_cast<std::size_t>(index)];
    switch (node.kind) {
        case NodeKind::IntLiteral:
        case NodeKind::FloatLiteral:
        case NodeKind::BoolLiteral:
        case NodeKind::Variable: return true;
        case NodeKind::Index:
            return hasExactForm(expression, node.left) &&
                   (expression.nodes[static_cast<std::size_t>(node.right)].kind ==
                        NodeKind::StringLiteral ||
                    hasExactForm(expression, node.right));
        default:
            return node.kind >= NodeKind::Add && node.kind <= NodeKind::GreaterEqual &&
                   node.kind != NodeKind::Power && hasExactForm(expression, node.left) &&
                   hasExactForm(expression, node.right);
    }
}

bool namesTwoVariables(ScalarOpcode opcode) {
    return opcode >= ScalarOpcode::AddVariable && opcode <= ScalarOpcode::GreaterEqualVariable;
}

bool namesVariable(ScalarOpcode opcode) {
    switch (opcode) {
        case ScalarOpcode::PushVariable:
        case ScalarOpcode::PlaceVariable:
        case ScalarOpcode::PlaceElementAt:
        case ScalarOpcode::PushElementAt: return true;
        default:
            return opcode >= ScalarOpcode::AddInt && opcode <= ScalarOpcode::GreaterEqualVariable;
    }
}

}  // namespace

void HotCompiler::takeBack(const Mark& to) {
    code_.code.resize(to.code);
    code_.variables.resize(to.variables);
    code_.keys.resize(to.keys);
    code_.scalarNodes.resize(to.scalarNodes);
}

HotCode HotCompiler::finish() {
    emit(ScalarOpcode::Finish);
    code_.goesBack =
        std::any_of(code_.code.begin(), code_.code.end(), [](const ScalarInstruction& instruction) {
            return instruction.opcode == ScalarOpcode::RepeatIfTrue ||
                   instruction.opcode == ScalarOpcode::RepeatIfFalse ||
                   instruction.opcode == ScalarOpcode::ForNext;
        });
    if (!ok_ || code_.variables.size() > kMostHotVariables) return {};
    return std::move(code_);
}

std::size_t HotCompiler::beginStatement(HotStatementKind kind, std::uint32_t line) {
    HotStatement statement;
    statement.kind = kind;
    statement.isRecursive = mode_.isRecursive;
    statement.depth = mode_.depth;
    statement.loopDepth = loop_ != nullptr ? loop_->depth : 0;
    statement.loopBlocks = loop_ != nullptr ? loop_->openBlocks : 0;
    statement.line = line;
    statement.first = here();
    code_.statements.push_back(statement);
    const std::size_t number = code_.statements.size() - 1;
    if (loop_ != nullptr) loop_->inside.push_back(number);
    return number;
}

void HotCompiler::emitChunk(std::uint32_t chunk) {
    if (chunk >= program_.chunks.size() || nestedBlocks_ >= kMostNestedBlocks) ok_ = false;
    if (!ok_) return;
    const BytecodeChunkRange& range = program_.chunks[chunk];
    ok_ = rangeIsInside(range, program_);
    const bool ownsBlock = mode_.isRecursive && (mode_.amongBlocks || range.hasLocalDeclaration);
    const bool outerAmongBlocks = std::exchange(mode_.amongBlocks, mode_.amongBlocks || ownsBlock);
    if (ownsBlock) {
        emit(ScalarOpcode::PushBlock);
        ++openBlocks_;
    }
    ++nestedBlocks_;
    for (std::uint32_t i = 0; ok_ && i < range.instructionCount; ++i) {
        const std::uint32_t position = range.firstInstruction + i;
        emitInstruction(opcodeAt(position), program_.code[position].operand, position);
    }
    --nestedBlocks_;
    if (ownsBlock) {
        emit(ScalarOpcode::PopBlock);
        --openBlocks_;
    }
    mode_.amongBlocks = outerAmongBlocks;
}

/// The body of a block statement: inline if it can, else as a recursive run of its own.
void HotCompiler::emitNestedChunk(std::uint32_t chunk) {
    const Mode outer = mode_;
    if (!mode_.isRecursive || isInlinable(chunk)) {
        mode_.isRecursive = false;
    } else {
        ++mode_.depth;
        if (valueCounts_) emit(ScalarOpcode::ClearValue);
    }
    emitChunk(chunk);
    hasBegun_ = false;
    mode_ = outer;
}

void HotCompiler::emitInstruction(BytecodeOp opcode, std::uint32_t operand,
                                  std::uint32_t position) {
    switch (opcode) {
        case BytecodeOp::Statement:
        case BytecodeOp::FastAssign:
        case BytecodeOp::Return: emitPlain(opcode, operand, position); return;
        case BytecodeOp::IfGroup:
            if (const auto* group = recordAt(program_.ifGroups, operand)) emitIfGroup(*group);
            return;
        case BytecodeOp::WhileLoop:
            if (const auto* loop = recordAt(program_.whileLoops, operand)) emitWhileLoop(*loop);
            return;
        case BytecodeOp::RepeatLoop:
            if (const auto* loop = recordAt(program_.repeatLoops, operand)) emitRepeatLoop(*loop);
            return;
        case BytecodeOp::NumericFor:
            if (const auto* loop = recordAt(program_.numericFors, operand)) emitNumericFor(*loop);
            return;
        case BytecodeOp::GenericFor:
            if (const auto* loop = recordAt(program_.genericFors, operand)) {
                emitWhole(loop->headerLine, position);
            }
            return;
        case BytecodeOp::FunctionDecl:
            if (const auto* function = recordAt(program_.functionDecls, operand)) {
                emitWhole(function->declarationLine, position);
            }
            return;
        case BytecodeOp::Break: emitBreak(operand); return;
        default: ok_ = false; return;
    }
}

/// An instruction that the executor runs in any case.
void HotCompiler::emitWhole(std::uint32_t line, std::uint32_t position) {
    if (lineAt(line) == nullptr) return;
    beginRecursiveStatement();
    const std::size_t statement = beginStatement(HotStatementKind::Whole, line);
    runByExecutor(statement);
    code_.statements[statement].instruction = position;
    code_.statements[statement].next = here();
}

void HotCompiler::emitPlain(BytecodeOp opcode, std::uint32_t index, std::uint32_t position) {
    const ParsedScriptLine* line = lineAt(index);
    if (line == nullptr) return;
    beginRecursiveStatement();
    const std::size_t statement = beginStatement(HotStatementKind::Whole, index);
    const ParsedAssignment* assignment = line->assignment.get();
    bool isTranslated = false;
    if (opcode == BytecodeOp::Return) {
        isTranslated = emitReturn(*line, statement);
    } else if (assignment != nullptr) {
        isTranslated = opcode == BytecodeOp::FastAssign ? emitAssignment(*line, *assignment)
                                                        : emitElementAssignment(*line, *assignment);
    }
    if (!isTranslated && !emitCalls(*line, opcode, statement)) runByExecutor(statement);
    code_.statements[statement].instruction = position;
    code_.statements[statement].next = here();
}

bool HotCompiler::emitAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment) {
    if (!assignment.isSimple() || assignment.values[0].scalarCode.empty()) return false;
    emitExpression(line, assignment.values[0], false);
    const bool declares = assignment.isPlain && line.assignmentScope != ScopeTarget::Default;
    ScalarInstruction& store = emit(declares             ? ScalarOpcode::Declare
                                    : assignment.isPlain ? ScalarOpcode::StoreVariable
                                                         : ScalarOpcode::UpdateVariable);
    store.kind = declares ? static_cast<std::uint8_t>(line.assignmentScope)
                          : static_cast<std::uint8_t>(assignment.operation);
    store.token = variableAt(line, assignment.targets[0].nameToken);
    return true;
}

/// `a[i] = x` and `a[i] += x`, with an int or a literal text as the key.
bool HotCompiler::emitElementAssignment(const ParsedScriptLine& line,
                                        const ParsedAssignment& assignment) {
    if (line.kind != LineKind::Plain || assignment.operation == '^') return false;
    if (assignment.targets.size() != 1 || assignment.values.size() != 1) {
        return emitParallelAssignment(line, assignment);
    }
    const ParsedAssignmentTarget& target = assignment.targets[0];
    if (target.indexExpressions.size() != 1) return false;
    const FastExpression& key = target.indexExpressions[0];
    const FastExpression& value = assignment.values[0];
    if (value.scalarCode.empty() || !hasExactForm(value, value.root)) return false;
    const bool isEntry = key.valid && key.rootNode().kind == NodeKind::StringLiteral;
    if (!isEntry) {
        if (key.scalarCode.empty()) return false;
        emitExpression(line, key, false);
    }
    emitExpression(line, value, true);
    ScalarInstruction& store = emit(
        isEntry ? (assignment.isPlain ? ScalarOpcode::StoreEntry : ScalarOpcode::UpdateEntry)
                : (assignment.isPlain ? ScalarOpcode::StoreElement : ScalarOpcode::UpdateElement));
    store.kind = static_cast<std::uint8_t>(assignment.operation);
    store.token = variableAt(line, target.nameToken);
    if (isEntry) {
        store.intValue = static_cast<std::int32_t>(code_.keys.size());
        code_.keys.push_back(&key.strings[key.rootNode().stringIndex]);
    }
    return true;
}

/// `a, b = x, y` and `a[i], b[j] = x, y`: all keys, then all values, then the stores.
bool HotCompiler::emitParallelAssignment(const ParsedScriptLine& line,
                                         const ParsedAssignment& assignment) {
    const std::size_t count = assignment.targets.size();
    if (!assignment.isPlain || line.assignmentScope != ScopeTarget::Default || count < 2 ||
        count > kMostParallelTargets || assignment.values.size() != count) {
        return false;
    }
    const std::size_t keys = assignment.targets[0].indexExpressions.size();
    if (keys > 1) return false;
    for (const ParsedAssignmentTarget& target : assignment.targets) {
        if (target.indexExpressions.size() != keys) return false;
        if (keys == 1 && target.indexExpressions[0].scalarCode.empty()) return false;
    }
    for (const FastExpression& value : assignment.values) {
        if (value.scalarCode.empty()) return false;
    }
    for (const ParsedAssignmentTarget& target : assignment.targets) {
        if (keys == 1) emitExpression(line, target.indexExpressions[0], false);
    }
    for (const FastExpression& value : assignment.values) emitExpression(line, value, false);
    const auto first = static_cast<std::uint16_t>(code_.variables.size());
    for (const ParsedAssignmentTarget& target : assignment.targets) {
        variableAt(line, target.nameToken);
    }
    ScalarInstruction& store =
        emit(keys == 1 ? ScalarOpcode::StoreElements : ScalarOpcode::StoreVariables);
    store.kind = static_cast<std::uint8_t>(count);
    store.token = first;
    return true;
}

/// A `return` of one value.
bool HotCompiler::emitReturn(const ParsedScriptLine& line, std::size_t statement) {
    if (line.tokens.size() < 2 || line.returnValues.size() != 1 ||
        line.returnValues[0].scalarCode.empty()) {
        return false;
    }
    emitExpression(line, line.returnValues[0], false);
    emit(ScalarOpcode::ReturnValue, static_cast<std::int32_t>(statement));
    return true;
}

void HotCompiler::emitBreak(std::uint32_t line) {
    ok_ = ok_ && loop_ != nullptr && lineAt(line) != nullptr;
    if (!ok_) return;
    beginRecursiveStatement();
    const std::size_t statement = beginStatement(HotStatementKind::Marker, line);
    emit(ScalarOpcode::Break, static_cast<std::int32_t>(statement));
}

/// The code of an expression, with its variables and keys numbered anew.
void HotCompiler::emitCode(const ParsedScriptLine& line, const FastExpression& expression,
                           const SharedArray<ScalarInstruction>& code, bool isExact) {
    for (ScalarInstruction instruction : code) {
        if (instruction.opcode == ScalarOpcode::PlaceEntry) {
            const auto index = static_cast<std::size_t>(instruction.intValue);
            instruction.intValue = static_cast<std::int32_t>(code_.keys.size());
            code_.keys.push_back(&expression.strings[index]);
        }
        if (namesVariable(instruction.opcode)) {
            instruction.token = variableAt(line, instruction.token);
        }
        if (namesTwoVariables(instruction.opcode)) {
            instruction.intValue = variableAt(line, static_cast<std::size_t>(instruction.intValue));
        }
        if (isExact) instruction.kind = kExactOperator;
        code_.code.push_back(instruction);
    }
}

std::uint16_t HotCompiler::variableAt(const ParsedScriptLine& line, std::size_t token) {
    code_.variables.push_back(&line.tokenAnalysis[token]);
    ok_ = ok_ && line.tokenAnalysis[token].name != nullptr;
    return static_cast<std::uint16_t>(code_.variables.size() - 1);
}

/// A condition, and a jump whose target the caller fills in.
void HotCompiler::emitCondition(HotStatementKind kind, std::uint32_t index, ScalarOpcode jump) {
    const ParsedScriptLine* line = lineAt(index);
    if (line == nullptr) return;
    const std::size_t statement = beginStatement(kind, index);
    if (line->condition.scalarCode.empty()) {
        runByExecutor(statement);
    } else {
        emitExpression(*line, line->condition, false);
    }
    emit(jump);
}

void HotCompiler::emitIfGroup(const BytecodeIfGroup& group) {
    beginRecursiveStatement();
    Jumps toEnd;
    bool givesNoTurn = true;  // no condition so far makes calls
    for (std::size_t i = 0; ok_ && i < group.branches.size(); ++i) {
        const BytecodeIfBranch& branch = group.branches[i];
        if (branch.isElse) {
            if (lineAt(branch.conditionLine) == nullptr) return;
            const std::size_t marker =
                beginStatement(HotStatementKind::Marker, branch.conditionLine);
            emit(ScalarOpcode::SelectLine, static_cast<std::int32_t>(marker));
            hasBegun_ = givesNoTurn;
            emitNestedChunk(branch.bodyChunk);
            break;  // what follows an `else` is never reached
        }
        const std::size_t condition = code_.statements.size();
        emitCondition(HotStatementKind::IfCondition, branch.conditionLine,
                      ScalarOpcode::JumpIfFalse);
        if (!ok_) return;
        const std::uint32_t skip = here() - 1;
        code_.statements[condition].next = here();
        givesNoTurn =
            givesNoTurn && !program_.lines[branch.conditionLine].condition.scalarCode.empty();
        hasBegun_ = givesNoTurn;
        emitNestedChunk(branch.bodyChunk);
        if (i + 1 < group.branches.size()) {
            toEnd.push_back(here());
            emit(ScalarOpcode::Jump);
        }
        jumpTo(skip, here());
        code_.statements[condition].otherwise = here();
    }
    for (const std::uint32_t jump : toEnd) jumpTo(jump, here());
    endBlockStatement();
}

void HotCompiler::emitLoopBody(std::uint32_t chunk, Loop& loop) {
    loop.depth = mode_.depth;
    loop.openBlocks = openBlocks_;
    Loop* const outer = std::exchange(loop_, &loop);
    emitNestedChunk(chunk);
    loop_ = outer;
}

/// Breaks lead here.
void HotCompiler::endLoop(const Loop& loop) {
    for (const std::size_t statement : loop.inside) code_.statements[statement].loopEnd = here();
}

/// The condition stands behind the body, so that a turn takes one jump.
void HotCompiler::emitWhileLoop(const BytecodeWhileLoop& loop) {
    beginRecursiveStatement();
    const std::uint32_t entry = here();
    emit(ScalarOpcode::Jump);
    const std::uint32_t body = here();
    Loop inner;
    emitLoopBody(loop.bodyChunk, inner);
    jumpTo(entry, here());
    emitCondition(HotStatementKind::WhileCondition, loop.conditionLine, ScalarOpcode::RepeatIfTrue);
    if (!ok_) return;
    jumpTo(here() - 1, body);
    code_.statements.back().next = body;
    code_.statements.back().otherwise = here();
    endLoop(inner);
    endBlockStatement();
}

void HotCompiler::emitRepeatLoop(const BytecodeRepeatLoop& loop) {
    const ParsedScriptLine* until = lineAt(loop.untilLine);
    // A damaged file may name another line: the executor reports it.
    ok_ = ok_ && !until->tokens.empty() && until->tokens[0] == "until";
    if (!ok_) return;
    beginRecursiveStatement();
    const std::uint32_t body = here();
    Loop inner;
    emitLoopBody(loop.bodyChunk, inner);
    emitCondition(HotStatementKind::UntilCondition, loop.untilLine, ScalarOpcode::RepeatIfFalse);
    if (!ok_) return;
    jumpTo(here() - 1, body);
    code_.statements.back().next = here();
    code_.statements.back().otherwise = body;
    endLoop(inner);
    endBlockStatement();
}

/// Start, limit and step; false, with nothing emitted, if one of them is not for scalars.
bool HotCompiler::emitForClause(const ParsedScriptLine& line) {
    const ParsedForHeader& header = forHeaderOf(line);
    if (header.numericStart.scalarCode.empty() || header.numericLimit.scalarCode.empty() ||
        (header.hasNumericStep && header.numericStep.scalarCode.empty())) {
        return false;
    }
    emitExpression(line, header.numericStart, false);
    emitExpression(line, header.numericLimit, false);
    if (header.hasNumericStep) {
        emitExpression(line, header.numericStep, false);
    } else {
        emit(ScalarOpcode::PushInt, 1);
    }
    return true;
}

void HotCompiler::emitNumericFor(const BytecodeForLoop& loop) {
    const ParsedScriptLine* line = lineAt(loop.headerLine);
    if (line == nullptr) return;
    const std::size_t variable = forHeaderOf(*line).numericVariable;
    ok_ = ok_ && openFors_ < kMostHotFors && variable < line->tokenAnalysis.size() &&
          line->tokenAnalysis[variable].name != nullptr;
    if (!ok_) return;

    beginRecursiveStatement();
    const std::size_t header = beginStatement(HotStatementKind::ForHeader, loop.headerLine);
    if (!emitForClause(*line)) runByExecutor(header);
    emit(ScalarOpcode::ForStart, static_cast<std::int32_t>(header));
    const std::uint32_t body = here();
    const bool ownsBody = mode_.isRecursive && !isInlinable(loop.bodyChunk);
    ++openFors_;
    Loop inner;
    emitLoopBody(loop.bodyChunk, inner);
    --openFors_;
    ScalarInstruction& next = emit(ScalarOpcode::ForNext, static_cast<std::int32_t>(body));
    next.kind = ownsBody ? 1 : 0;
    next.token = openFors_;
    endLoop(inner);
    code_.statements[header].next = body;
    code_.statements[header].otherwise = here();
    emit(ScalarOpcode::ForLeave);
    endBlockStatement();
}

HotCode compileHotLoop(BytecodeProgram& program, std::uint8_t opcode, std::uint32_t operand) {
    return HotCompiler(program).compileLoop(static_cast<BytecodeOp>(opcode), operand);
}

HotCode compileHotChunk(BytecodeProgram& program, std::uint32_t chunk, bool amongBlocks) {
    return HotCompiler(program).compileChunk(chunk, amongBlocks);
}
