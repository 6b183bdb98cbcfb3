// The translation of a loop into hot code.
#include "exec/hot_code.h"

#include <utility>

#include "exec/bytecode_program.h"
#include "exec/for_header.h"

namespace {

/// More than in any loop that a person writes, but blocks may be nested by a program.
constexpr std::size_t kMostInstructions = 1 << 14;
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
    return opcode == ScalarOpcode::PushVariable || opcode == ScalarOpcode::PlaceVariable ||
           (opcode >= ScalarOpcode::AddInt && opcode <= ScalarOpcode::GreaterEqualInt) ||
           namesTwoVariables(opcode);
}

class HotCompiler {
public:
    explicit HotCompiler(const BytecodeProgram& program) : program_(program) {}

    HotCode compile(std::uint8_t opcode, std::uint32_t operand) {
        emitInstruction(opcode, operand, 0);
        emit(ScalarOpcode::Finish);
        if (!ok_ || code_.variables.size() > kMostHotVariables) code_ = HotCode();
        code_.opcode = opcode;
        code_.operand = operand;
        return std::move(code_);
    }

private:
    using Jumps = std::vector<std::uint32_t>;

    void emitChunk(std::uint32_t chunk);
    void emitInstruction(std::uint8_t opcode, std::uint32_t operand, std::uint32_t position);
    void emitPlain(std::uint32_t line, std::uint32_t position, bool isFastAssign);
    bool emitAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    bool emitElementAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    void emitIfGroup(const BytecodeIfGroup& group);
    void emitWhileLoop(const BytecodeWhileLoop& loop);
    void emitRepeatLoop(const BytecodeRepeatLoop& loop);
    void emitNumericFor(const BytecodeForLoop& loop);
    void emitBody(std::uint32_t chunk, Jumps& breaks);
    bool emitForClause(const ParsedScriptLine& line);
    void emitCondition(HotStatementKind kind, std::uint32_t line, ScalarOpcode jump);
    void emitExpression(const ParsedScriptLine& line, const FastExpression& expression,
                        bool isExact);
    std::uint16_t variableAt(const ParsedScriptLine& line, std::size_t token);

    ScalarInstruction& emit(ScalarOpcode opcode, std::int32_t value = 0) {
        ok_ = ok_ && code_.code.size() < kMostInstructions;
        code_.code.push_back({opcode, 0, 0, {value}});
        return code_.code.back();
    }
    [[nodiscard]] std::uint32_t here() const {
        return static_cast<std::uint32_t>(code_.code.size());
    }
    void jumpTo(std::uint32_t position, std::uint32_t target) {
        code_.code[position].intValue = static_cast<std::int32_t>(target);
    }
    void allJumpTo(const Jumps& jumps, std::uint32_t target) {
        for (const std::uint32_t jump : jumps) jumpTo(jump, target);
    }
    /// Opens a statement here; returns its number.
    std::size_t beginStatement(HotStatementKind kind, std::uint32_t line) {
        code_.statements.push_back({kind, line, 0, here(), 0, 0, 0});
        return code_.statements.size() - 1;
    }
    void runByExecutor(std::size_t statement) {
        emit(ScalarOpcode::RunStatement, static_cast<std::int32_t>(statement));
    }
    /// The line, or null, with the translation given up.
    const ParsedScriptLine* lineAt(std::uint32_t index) {
        if (index < program_.lines.size()) return &program_.lines[index];
        ok_ = false;
        return nullptr;
    }

    const BytecodeProgram& program_;
    HotCode code_;
    Jumps* breaks_ = nullptr;  // of the innermost loop
    std::uint16_t openFors_ = 0;
    std::size_t nestedBlocks_ = 0;
    bool ok_ = true;
};

void HotCompiler::emitChunk(std::uint32_t chunk) {
    const BytecodeChunkRange& range = program_.chunks[chunk];
    ok_ = ok_ && ++nestedBlocks_ <= kMostNestedBlocks;
    for (std::uint32_t i = 0; ok_ && i < range.instructionCount; ++i) {
        const std::uint32_t position = range.firstInstruction + i;
        const BytecodeInstruction& instruction = program_.code[position];
        emitInstruction(instruction.opcode, instruction.operand, position);
    }
    --nestedBlocks_;
}

void HotCompiler::emitInstruction(std::uint8_t opcode, std::uint32_t operand,
                                  std::uint32_t position) {
    switch (static_cast<BytecodeOp>(opcode)) {
        case BytecodeOp::Statement: emitPlain(operand, position, false); return;
        case BytecodeOp::FastAssign: emitPlain(operand, position, true); return;
        case BytecodeOp::IfGroup: emitIfGroup(program_.ifGroups[operand]); return;
        case BytecodeOp::WhileLoop: emitWhileLoop(program_.whileLoops[operand]); return;
        case BytecodeOp::RepeatLoop: emitRepeatLoop(program_.repeatLoops[operand]); return;
        case BytecodeOp::NumericFor: emitNumericFor(program_.numericFors[operand]); return;
        case BytecodeOp::Break:
            if (lineAt(operand) == nullptr) return;
            beginStatement(HotStatementKind::Marker, operand);
            breaks_->push_back(here());
            emit(ScalarOpcode::Break);
            return;
        default: ok_ = false; return;
    }
}

void HotCompiler::emitPlain(std::uint32_t index, std::uint32_t position, bool isFastAssign) {
    const ParsedScriptLine* line = lineAt(index);
    if (line == nullptr) return;
    const std::size_t statement = beginStatement(HotStatementKind::Plain, index);
    const ParsedAssignment* assignment = line->assignment.get();
    const bool isTranslated =
        assignment != nullptr && (isFastAssign ? emitAssignment(*line, *assignment)
                                               : emitElementAssignment(*line, *assignment));
    if (!isTranslated) runByExecutor(statement);
    code_.statements[statement].instruction = position;
    code_.statements[statement].next = here();
}

bool HotCompiler::emitAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment) {
    if (!assignment.isScalarCandidate) return false;
    emitExpression(line, assignment.values[0], false);
    ScalarInstruction& store = emit(assignment.isPlain ? ScalarOpcode::StoreVariable
                                                       : ScalarOpcode::UpdateVariable);
    store.kind = static_cast<std::uint8_t>(assignment.operation);
    store.token = variableAt(line, assignment.targets[0].nameToken);
    return true;
}

/// `a[i] = x` and `a[i] += x`.
bool HotCompiler::emitElementAssignment(const ParsedScriptLine& line,
                                        const ParsedAssignment& assignment) {
    if (line.kind != LineKind::Plain || assignment.targets.size() != 1 ||
        assignment.values.size() != 1 || assignment.operation == '^') {
        return false;
    }
    const ParsedAssignmentTarget& target = assignment.targets[0];
    if (target.indexExpressions.size() != 1) return false;
    const FastExpression& key = target.indexExpressions[0];
    const FastExpression& value = assignment.values[0];
    if (key.scalarCode.empty() || value.scalarCode.empty() || !hasExactForm(value, value.root)) {
        return false;
    }
    emitExpression(line, key, false);
    emitExpression(line, value, true);
    ScalarInstruction& store = emit(assignment.isPlain ? ScalarOpcode::StoreElement
                                                       : ScalarOpcode::UpdateElement);
    store.kind = static_cast<std::uint8_t>(assignment.operation);
    store.token = variableAt(line, target.nameToken);
    return true;
}

/// The code of an expression, with its variables and keys numbered anew.
void HotCompiler::emitExpression(const ParsedScriptLine& line, const FastExpression& expression,
                                 bool isExact) {
    for (ScalarInstruction instruction : expression.scalarCode) {
        if (instruction.opcode == ScalarOpcode::PlaceEntry) {
            const auto index = static_cast<std::size_t>(instruction.intValue);
            instruction.intValue = static_cast<std::int32_t>(code_.keys.size());
            code_.keys.push_back(&expression.strings[index]);
        }
        if (namesVariable(instruction.opcode)) {
            instruction.token = variableAt(line, instruction.token);
        }
        if (namesTwoVariables(instruction.opcode)) {
            instruction.intValue =
                variableAt(line, static_cast<std::size_t>(instruction.intValue));
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
    Jumps toEnd;
    for (std::size_t i = 0; ok_ && i < group.branches.size(); ++i) {
        const BytecodeIfBranch& branch = group.branches[i];
        if (branch.isElse) {
            if (lineAt(branch.conditionLine) == nullptr) return;
            const std::size_t marker =
                beginStatement(HotStatementKind::Marker, branch.conditionLine);
            emit(ScalarOpcode::SelectLine, static_cast<std::int32_t>(marker));
            emitChunk(branch.bodyChunk);
            break;  // what follows an `else` is never reached
        }
        emitCondition(HotStatementKind::IfCondition, branch.conditionLine,
                      ScalarOpcode::JumpIfFalse);
        const std::size_t condition = code_.statements.size() - 1;
        const std::uint32_t skip = here() - 1;
        if (!ok_) return;
        code_.statements[condition].next = here();
        emitChunk(branch.bodyChunk);
        if (i + 1 < group.branches.size()) {
            toEnd.push_back(here());
            emit(ScalarOpcode::Jump);
        }
        jumpTo(skip, here());
        code_.statements[condition].otherwise = here();
    }
    allJumpTo(toEnd, here());
}

/// The body of a loop, which collects its breaks.
void HotCompiler::emitBody(std::uint32_t chunk, Jumps& breaks) {
    Jumps* const outer = std::exchange(breaks_, &breaks);
    emitChunk(chunk);
    breaks_ = outer;
}

/// The condition stands behind the body, so that a turn takes one jump.
void HotCompiler::emitWhileLoop(const BytecodeWhileLoop& loop) {
    const std::uint32_t entry = here();
    emit(ScalarOpcode::Jump);
    const std::uint32_t body = here();
    Jumps breaks;
    emitBody(loop.bodyChunk, breaks);
    jumpTo(entry, here());
    emitCondition(HotStatementKind::LoopCondition, loop.conditionLine, ScalarOpcode::RepeatIfTrue);
    if (!ok_) return;
    jumpTo(here() - 1, body);
    code_.statements.back().next = body;
    code_.statements.back().otherwise = here();
    allJumpTo(breaks, here());
}

void HotCompiler::emitRepeatLoop(const BytecodeRepeatLoop& loop) {
    const ParsedScriptLine* until = lineAt(loop.untilLine);
    if (until == nullptr) return;
    // A damaged file may name another line: the executor reports it.
    ok_ = ok_ && !until->tokens.empty() && until->tokens[0] == "until";
    const std::uint32_t body = here();
    Jumps breaks;
    emitBody(loop.bodyChunk, breaks);
    emitCondition(HotStatementKind::UntilCondition, loop.untilLine, ScalarOpcode::RepeatIfFalse);
    if (!ok_) return;
    jumpTo(here() - 1, body);
    code_.statements.back().next = here();
    code_.statements.back().otherwise = body;
    allJumpTo(breaks, here());
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

    const std::size_t header = beginStatement(HotStatementKind::ForHeader, loop.headerLine);
    code_.statements[header].loop = openFors_;
    if (!emitForClause(*line)) runByExecutor(header);
    const std::uint32_t start = here();
    emit(ScalarOpcode::ForStart, static_cast<std::int32_t>(header)).token = openFors_;
    const std::uint32_t body = here();
    ++openFors_;
    Jumps breaks;
    emitBody(loop.bodyChunk, breaks);
    --openFors_;
    emit(ScalarOpcode::ForNext, static_cast<std::int32_t>(body)).token = openFors_;
    allJumpTo(breaks, here());
    code_.statements[header].next = start + 1;
    code_.statements[header].otherwise = here();
    emit(ScalarOpcode::ForLeave);
}

}  // namespace

HotCode compileHotLoop(const BytecodeProgram& program, std::uint8_t opcode, std::uint32_t operand) {
    return HotCompiler(program).compile(opcode, operand);
}
