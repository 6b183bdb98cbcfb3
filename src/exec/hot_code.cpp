// The translation of loops and chunks into hot code.
#include "exec/hot_code.h"

#include <algorithm>
#include <utility>

#include "exec/bytecode_program.h"
#include "exec/for_header.h"
#include "exec/inline_chunks.h"

namespace {

/// More than in any code that a person writes, but a damaged file may unfold into much more.
constexpr std::size_t kMostInstructions = 1 << 14;
constexpr std::size_t kMostNestedBlocks = 32;

/// How many operands may wait in an expression with calls.
constexpr std::size_t kMostOperands = kHotStackSize - 2;

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

class HotCompiler {
public:
    explicit HotCompiler(BytecodeProgram& program) : program_(program) {}

    HotCode compileLoop(BytecodeOp opcode, std::uint32_t operand) {
        mode_ = {false, false, 0};
        emitInstruction(opcode, operand, 0);
        return finish();
    }
    HotCode compileChunk(std::uint32_t chunk, bool amongBlocks) {
        mode_ = {true, amongBlocks, 1};
        const BytecodeChunkRange& range = program_.chunks[chunk];
        if (!rangeIsInside(range, program_)) return {};
        // Behind a `return` nobody sees the value of what ran before.
        valueCounts_ =
            range.instructionCount == 0 ||
            opcodeAt(range.firstInstruction + range.instructionCount - 1) != BytecodeOp::Return;
        emitChunk(chunk);
        return finish();
    }

private:
    using Jumps = std::vector<std::uint32_t>;

    /// How the chunk being translated runs.
    struct Mode {
        bool isRecursive = false;
        bool amongBlocks = false;  // a block scope is visible
        std::uint16_t depth = 0;   // see HotStatement
    };
    /// The innermost loop.
    struct Loop {
        std::vector<std::size_t> inside;  // the statements of its body that are in no other loop
        std::uint16_t depth = 0;          // of its own statement
        std::uint16_t openBlocks = 0;     // around it
    };

    HotCode finish();
    void emitChunk(std::uint32_t chunk);
    void emitNestedChunk(std::uint32_t chunk);
    void emitInstruction(BytecodeOp opcode, std::uint32_t operand, std::uint32_t position);
    void emitWhole(std::uint32_t line, std::uint32_t position);
    void emitPlain(BytecodeOp opcode, std::uint32_t line, std::uint32_t position);
    bool emitAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    bool emitElementAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    bool emitParallelAssignment(const ParsedScriptLine& line, const ParsedAssignment& assignment);
    bool emitReturn(const ParsedScriptLine& line, std::size_t statement);
    bool emitCalls(const ParsedScriptLine& line, BytecodeOp opcode, std::size_t statement);
    bool emitCallsOf(const ParsedScriptLine& line, const FastExpression& value,
                     std::size_t statement);
    bool emitDirectCall(const ParsedScriptLine& line, std::size_t statement);
    bool emitAny(const ParsedScriptLine& line, const FastExpression& expression, int index,
                 std::size_t operands, bool beginsWithFrameCall = false);
    bool emitCall(const ParsedScriptLine& line, const FastExpression& expression,
                  const FastExprNode& call, std::size_t operands);
    void emitAnyVariable(const ParsedScriptLine& line, const FastExprNode& node,
                         std::uint8_t marks = 0);
    void emitText(const FastExpression& expression, const FastExprNode& text);
    void emitBreak(std::uint32_t line);
    void emitIfGroup(const BytecodeIfGroup& group);
    void emitWhileLoop(const BytecodeWhileLoop& loop);
    void emitRepeatLoop(const BytecodeRepeatLoop& loop);
    void emitNumericFor(const BytecodeForLoop& loop);
    void emitLoopBody(std::uint32_t chunk, Loop& loop);
    void endLoop(const Loop& loop);
    bool emitForClause(const ParsedScriptLine& line);
    void emitCondition(HotStatementKind kind, std::uint32_t line, ScalarOpcode jump);
    void emitExpression(const ParsedScriptLine& line, const FastExpression& expression,
                        bool isExact);
    std::uint16_t variableAt(const ParsedScriptLine& line, std::size_t token);
    std::uint16_t calleeAt(const ParsedScriptLine& line, std::size_t token);

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
    [[nodiscard]] BytecodeOp opcodeAt(std::uint32_t position) const {
        return static_cast<BytecodeOp>(program_.code[position].opcode);
    }
    std::size_t beginStatement(HotStatementKind kind, std::uint32_t line);
    /// In a recursive run there is something to do where a statement begins, and where a block
    /// statement ends.
    void beginRecursiveStatement() {
        if (mode_.isRecursive) emit(ScalarOpcode::BeginStatement);
    }
    void endBlockStatement() {
        if (mode_.isRecursive) emit(ScalarOpcode::EndBlock);
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
    /// The record at `index`, or null, with the translation given up.
    template <typename Record>
    const Record* recordAt(const std::vector<Record>& table, std::uint32_t index) {
        if (index < table.size()) return &table[index];
        ok_ = false;
        return nullptr;
    }
    [[nodiscard]] bool isInlinable(std::uint32_t chunk) {
        return !mode_.amongBlocks && chunkIsInlinable(program_, chunk);
    }

    BytecodeProgram& program_;
    HotCode code_;
    Mode mode_;
    Loop* loop_ = nullptr;
    std::uint16_t openFors_ = 0;
    std::uint16_t openBlocks_ = 0;
    std::size_t nestedBlocks_ = 0;
    bool valueCounts_ = false;
    bool ok_ = true;
};

HotCode HotCompiler::finish() {
    emit(ScalarOpcode::Finish);
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

/// A statement that makes calls, if all of it can be translated. What has been emitted of another
/// is taken back.
bool HotCompiler::emitCalls(const ParsedScriptLine& line, BytecodeOp opcode,
                            std::size_t statement) {
    const std::size_t size = code_.code.size();
    const std::size_t variables = code_.variables.size();
    const std::size_t keys = code_.keys.size();
    bool isTranslated = false;
    ScalarOpcode end = ScalarOpcode::DiscardAny;
    if (opcode == BytecodeOp::Return) {
        isTranslated =
            line.returnValues.size() == 1 && emitCallsOf(line, line.returnValues[0], statement);
        end = ScalarOpcode::ReturnAny;
    } else if (opcode == BytecodeOp::FastAssign) {
        // A damaged file may name a line of any shape.
        if (line.assignment == nullptr) return false;
        const ParsedAssignment& assignment = *line.assignment;
        isTranslated =
            assignment.isSimple() &&
            (assignment.simpleCall.valid ? emitDirectCall(line, statement)
                                         : emitCallsOf(line, assignment.values[0], statement));
        end = ScalarOpcode::AssignAny;
    } else if (line.kind == LineKind::Plain && line.assignment == nullptr) {
        isTranslated = line.expression.isCall() && emitCallsOf(line, line.expression, statement);
    }
    if (isTranslated) {
        emit(end, static_cast<std::int32_t>(statement));
        return true;
    }
    code_.code.resize(size);
    code_.variables.resize(variables);
    code_.keys.resize(keys);
    return false;
}

/// A value that is a call, or an arithmetic chain whose first operand is a call that the tiers
/// before the general one are bound to decline, with nothing done.
bool HotCompiler::emitCallsOf(const ParsedScriptLine& line, const FastExpression& value,
                              std::size_t statement) {
    if (!value.valid || !value.rootNode().holdsCall) return false;
    const auto number = static_cast<std::int32_t>(statement);
    const auto nodeAt = [&value](int index) -> const FastExprNode& {
        return value.nodes[static_cast<std::size_t>(index)];
    };
    const FastExprNode* first = &value.rootNode();
    emit(ScalarOpcode::BeginCalls, number);
    if (first->kind == NodeKind::Call) {
        const FastExprNode& callee = nodeAt(first->left);
        if (&value == &line.expression && callee.kind == NodeKind::Variable) {
            emit(ScalarOpcode::RequireNoAssert, number).token = variableAt(line, callee.tokenIndex);
        }
    } else {
        while (first->kind >= NodeKind::Add && first->kind <= NodeKind::GreaterEqual) {
            first = &nodeAt(first->left);
        }
        if (first->kind != NodeKind::Call || first->argumentsHoldCall) return false;
        const FastExprNode& callee = nodeAt(first->left);
        if (callee.kind != NodeKind::Variable) return false;
        emit(ScalarOpcode::RequireFrameCall, number).token = variableAt(line, callee.tokenIndex);
    }
    return emitAny(line, value, value.root, 0, true);
}

/// `x = f(a, b)`: each argument is an expression of its own, which may go through the scalar tier.
bool HotCompiler::emitDirectCall(const ParsedScriptLine& line, std::size_t statement) {
    const FastCallExpression& call = line.assignment->simpleCall;
    if (call.arguments.size() > kMostOperands / 2) return false;
    const bool anyCall =
        std::any_of(call.arguments.begin(), call.arguments.end(),
                    [](const FastExpression& value) { return value.rootNode().holdsCall; });
    emit(ScalarOpcode::BeginCalls, static_cast<std::int32_t>(statement));
    bool hasCalled = false;
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        const FastExpression& argument = call.arguments[i];
        const FastExprNode& root = argument.rootNode();
        if (root.kind == NodeKind::Variable) {
            emitAnyVariable(line, root, kCheckedVariable | (anyCall ? 0 : kLentVariable));
        } else if (root.kind < NodeKind::Variable || root.kind == NodeKind::Call) {
            if (!emitAny(line, argument, argument.root, i)) return false;
        } else if (!argument.scalarCode.empty() && !hasCalled) {
            emitExpression(line, argument, false);  // may decline: nothing has been done yet
        } else {
            return false;
        }
        hasCalled = hasCalled || root.holdsCall;
    }
    ScalarInstruction& made = emit(ScalarOpcode::CallDirect);
    made.kind = static_cast<std::uint8_t>(call.arguments.size());
    made.token = variableAt(line, call.nameToken);
    return true;
}

/// A node by the general tier, with `operands` values waiting below its own. A chain of "+" that
/// may be a text is left to the executor, unless it is certain to begin with the call of a script
/// function.
bool HotCompiler::emitAny(const ParsedScriptLine& line, const FastExpression& expression, int index,
                          std::size_t operands, bool beginsWithFrameCall) {
    if (operands >= kMostOperands) return false;
    const FastExprNode& node = expression.nodes[static_cast<std::size_t>(index)];
    switch (node.kind) {
        case NodeKind::IntLiteral: emit(ScalarOpcode::PushInt, node.intValue); return true;
        case NodeKind::FloatLiteral:
            emit(ScalarOpcode::PushFloat).floatValue = node.floatValue;
            return true;
        case NodeKind::BoolLiteral:
            emit(ScalarOpcode::PushBool, node.boolValue ? 1 : 0);
            return true;
        case NodeKind::NilLiteral: emit(ScalarOpcode::PushNil); return true;
        case NodeKind::StringLiteral: emitText(expression, node); return true;
        case NodeKind::Variable: emitAnyVariable(line, node); return true;
        case NodeKind::Call: return emitCall(line, expression, node, operands);
        default: break;
    }
    if (node.kind < NodeKind::Add || node.kind > NodeKind::GreaterEqual ||
        (node.canConcat && !beginsWithFrameCall)) {
        return false;
    }
    const FastExprNode& left = expression.nodes[static_cast<std::size_t>(node.left)];
    const FastExprNode& right = expression.nodes[static_cast<std::size_t>(node.right)];
    const bool isOnVariable = left.kind == NodeKind::Variable;
    ScalarInstruction operation{ScalarOpcode::Add, kExactOperator | kAnyOperands, 0, {0}};
    if (isOnVariable && right.kind == NodeKind::IntLiteral) {
        operation.opcode = ScalarOpcode::AddInt;
        operation.token = variableAt(line, left.tokenIndex);
        operation.intValue = right.intValue;
    } else if (isOnVariable && right.kind == NodeKind::Variable) {
        operation.opcode = ScalarOpcode::AddVariable;
        operation.token = variableAt(line, left.tokenIndex);
        operation.intValue = variableAt(line, right.tokenIndex);
    } else if (!emitAny(line, expression, node.left, operands, beginsWithFrameCall) ||
               !emitAny(line, expression, node.right, operands + 1)) {
        return false;
    }
    operation.opcode = operatorOpcode(operation.opcode, node.kind);
    code_.code.push_back(operation);
    return true;
}

void HotCompiler::emitAnyVariable(const ParsedScriptLine& line, const FastExprNode& node,
                                  std::uint8_t marks) {
    ScalarInstruction& push = emit(ScalarOpcode::PushVariable);
    push.kind = kAnyOperands | marks;
    push.token = variableAt(line, node.tokenIndex);
}

bool HotCompiler::emitCall(const ParsedScriptLine& line, const FastExpression& expression,
                           const FastExprNode& call, std::size_t operands) {
    const auto nodeAt = [&expression](std::int64_t index) -> const FastExprNode& {
        return expression.nodes[static_cast<std::size_t>(index)];
    };
    const FastExprNode& callee = nodeAt(call.left);
    const bool isEntry = callee.kind == NodeKind::Index &&
                         nodeAt(callee.left).kind == NodeKind::Variable &&
                         nodeAt(callee.right).kind == NodeKind::StringLiteral;
    const auto count = static_cast<std::size_t>(call.intValue);
    if ((!isEntry && callee.kind != NodeKind::Variable) || count > kMostOperands / 2) return false;
    for (std::size_t i = 0; i < count; ++i) {
        const auto argument =
            static_cast<int>(expression.callArguments[static_cast<std::size_t>(call.right) + i]);
        const FastExprNode& node = nodeAt(argument);
        if (node.kind == NodeKind::Variable && !call.argumentsHoldCall &&
            operands + i < kMostOperands) {
            emitAnyVariable(line, node, kLentVariable);
        } else if (!emitAny(line, expression, argument, operands + i)) {
            return false;
        }
    }
    ScalarInstruction& made = emit(isEntry ? ScalarOpcode::CallEntry : ScalarOpcode::CallVariable);
    made.kind = static_cast<std::uint8_t>(count);
    made.token = isEntry ? variableAt(line, nodeAt(callee.left).tokenIndex)
                         : calleeAt(line, callee.tokenIndex);
    if (isEntry) {
        made.intValue = static_cast<std::int32_t>(code_.keys.size());
        code_.keys.push_back(&expression.strings[nodeAt(callee.right).stringIndex]);
    }
    return true;
}

/// The same as `variableAt`, for the callee of a call whose kind has been tested before.
std::uint16_t HotCompiler::calleeAt(const ParsedScriptLine& line, std::size_t token) {
    const auto& variables = code_.variables;
    const auto known = std::find(variables.rbegin(), variables.rend(), &line.tokenAnalysis[token]);
    return known != variables.rend() ? static_cast<std::uint16_t>(variables.rend() - known - 1)
                                     : variableAt(line, token);
}

void HotCompiler::emitText(const FastExpression& expression, const FastExprNode& text) {
    emit(ScalarOpcode::PushText, static_cast<std::int32_t>(code_.keys.size()));
    code_.keys.push_back(&expression.strings[text.stringIndex]);
}

void HotCompiler::emitBreak(std::uint32_t line) {
    ok_ = ok_ && loop_ != nullptr && lineAt(line) != nullptr;
    if (!ok_) return;
    beginRecursiveStatement();
    const std::size_t statement = beginStatement(HotStatementKind::Marker, line);
    emit(ScalarOpcode::Break, static_cast<std::int32_t>(statement));
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
    for (std::size_t i = 0; ok_ && i < group.branches.size(); ++i) {
        const BytecodeIfBranch& branch = group.branches[i];
        if (branch.isElse) {
            if (lineAt(branch.conditionLine) == nullptr) return;
            const std::size_t marker =
                beginStatement(HotStatementKind::Marker, branch.conditionLine);
            emit(ScalarOpcode::SelectLine, static_cast<std::int32_t>(marker));
            emitNestedChunk(branch.bodyChunk);
            break;  // what follows an `else` is never reached
        }
        const std::size_t condition = code_.statements.size();
        emitCondition(HotStatementKind::IfCondition, branch.conditionLine,
                      ScalarOpcode::JumpIfFalse);
        if (!ok_) return;
        const std::uint32_t skip = here() - 1;
        code_.statements[condition].next = here();
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
    ++openFors_;
    Loop inner;
    emitLoopBody(loop.bodyChunk, inner);
    --openFors_;
    emit(ScalarOpcode::ForNext, static_cast<std::int32_t>(body)).token = openFors_;
    endLoop(inner);
    code_.statements[header].next = body;
    code_.statements[header].otherwise = here();
    emit(ScalarOpcode::ForLeave);
    endBlockStatement();
}

}  // namespace

HotCode compileHotLoop(BytecodeProgram& program, std::uint8_t opcode, std::uint32_t operand) {
    return HotCompiler(program).compileLoop(static_cast<BytecodeOp>(opcode), operand);
}

HotCode compileHotChunk(BytecodeProgram& program, std::uint32_t chunk, bool amongBlocks) {
    return HotCompiler(program).compileChunk(chunk, amongBlocks);
}
