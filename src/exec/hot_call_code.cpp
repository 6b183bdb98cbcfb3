// The translation of statements with calls. Two of the executor's ways of evaluation are
// translated: the general tier, where values of any kind travel, and the scalar tier for assigned
// values, where one-line functions are called on scalars. Which of them a value goes is the
// executor's rule: an arithmetic chain that begins with the call of a function that runs in a frame
// goes by the general tier, since the tiers before it decline with nothing done.
#include <algorithm>

#include "exec/hot_compiler.h"

namespace {

/// How many operands may wait in an expression with calls.
constexpr std::size_t kMostOperands = kHotStackSize - 2;

const FastExprNode& nodeAt(const FastExpression& expression, std::int64_t index) {
    return expression.nodes[static_cast<std::size_t>(index)];
}

bool isOperator(const FastExprNode& node) {
    return node.kind >= NodeKind::Add && node.kind <= NodeKind::GreaterEqual;
}

/// `f` or `t["f"]`.
bool isTranslatableCallee(const FastExpression& expression, const FastExprNode& callee) {
    return callee.kind == NodeKind::Variable ||
           (callee.kind == NodeKind::Index &&
            nodeAt(expression, callee.left).kind == NodeKind::Variable &&
            nodeAt(expression, callee.right).kind == NodeKind::StringLiteral);
}

}  // namespace

/// A statement that makes calls, if all of it can be translated. What has been emitted of another
/// is taken back.
bool HotCompiler::emitCalls(const ParsedScriptLine& line, BytecodeOp opcode,
                            std::size_t statement) {
    const Mark start = mark();
    emit(ScalarOpcode::BeginCalls, static_cast<std::int32_t>(statement));
    bool isTranslated = false;
    if (opcode == BytecodeOp::Return) {
        isTranslated = emitReturnedCalls(line, statement);
    } else if (opcode == BytecodeOp::Statement) {
        isTranslated = emitStatementCall(line, statement);
    } else if (line.assignment != nullptr && line.assignment->isSimple()) {
        // A damaged file may name a line of any shape.
        isTranslated = line.assignment->simpleCall.valid ? emitDirectCall(line, statement)
                                                         : emitAssignedCalls(line, statement);
    }
    if (!isTranslated) takeBack(start);
    return isTranslated;
}

bool HotCompiler::emitStatementCall(const ParsedScriptLine& line, std::size_t statement) {
    if (line.kind != LineKind::Plain || line.assignment != nullptr || !line.expression.isCall()) {
        return false;
    }
    const FastExpression& value = line.expression;
    const FastExprNode& callee = nodeAt(value, value.rootNode().left);
    const auto number = static_cast<std::int32_t>(statement);
    if (callee.kind == NodeKind::Variable) {
        emit(ScalarOpcode::RequireNoAssert, number).token = variableAt(line, callee.tokenIndex);
    }
    if (!emitAny(line, value, value.root, 0)) return false;
    emit(ScalarOpcode::DiscardAny, number);
    return true;
}

bool HotCompiler::emitReturnedCalls(const ParsedScriptLine& line, std::size_t statement) {
    if (line.returnValues.size() != 1) return false;
    const FastExpression& value = line.returnValues[0];
    if (!value.valid || !value.rootNode().holdsCall) return false;
    const std::uint32_t test = here();
    const bool isCall = value.isCall();
    if (!(isCall ? emitAny(line, value, value.root, 0) : emitFrameCallChain(line, value))) {
        return false;
    }
    emit(ScalarOpcode::ReturnAny, static_cast<std::int32_t>(statement));
    if (!isCall) {
        jumpTo(test, here());
        runByExecutor(statement);
    }
    return true;
}

/// `x = t["f"](1)`, or `x = f(1) + g(2)` in both ways, of which the first call's callee decides.
bool HotCompiler::emitAssignedCalls(const ParsedScriptLine& line, std::size_t statement) {
    const FastExpression& value = line.assignment->values[0];
    if (!value.valid || !value.rootNode().holdsCall) return false;
    const auto number = static_cast<std::int32_t>(statement);
    if (value.isCall()) {
        if (!emitAny(line, value, value.root, 0)) return false;
        emit(ScalarOpcode::AssignAny, number);
        return true;
    }
    const Mark start = mark();
    const std::uint32_t test = here();
    std::uint32_t skip = 0;
    const bool hasChain = emitFrameCallChain(line, value);
    if (hasChain) {
        emit(ScalarOpcode::AssignAny, number);
        skip = here();
        emit(ScalarOpcode::Jump);
        jumpTo(test, here());
    } else {
        takeBack(start);
    }
    const Mark behindChain = mark();
    if (emitScalars(line, value, value.root, 0)) {
        emit(ScalarOpcode::AssignScalar, number);
    } else {
        takeBack(behindChain);
        if (!hasChain) return false;
        runByExecutor(statement);
    }
    if (hasChain) jumpTo(skip, here());
    return true;
}

/// `x = f(a, b)`: each argument is an expression of its own, which may go through the scalar tier.
bool HotCompiler::emitDirectCall(const ParsedScriptLine& line, std::size_t statement) {
    const FastCallExpression& call = line.assignment->simpleCall;
    if (call.arguments.size() > kMostOperands / 2) return false;
    const bool anyCall =
        std::any_of(call.arguments.begin(), call.arguments.end(),
                    [](const FastExpression& value) { return value.rootNode().holdsCall; });
    bool hasCalled = false;
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        const FastExpression& argument = call.arguments[i];
        const FastExprNode& root = argument.rootNode();
        if (root.kind == NodeKind::Variable) {
            emitAnyVariable(line, root, kCheckedVariable | (anyCall ? 0 : kLentVariable));
        } else if (root.kind < NodeKind::Variable || root.kind == NodeKind::Call) {
            if (!emitAny(line, argument, argument.root, i)) return false;
        } else if (!argument.scalarCode.empty() && !hasCalled &&
                   i + kScalarStackSize <= kHotStackSize) {
            emitExpression(line, argument, false);  // may decline: nothing has been done yet
        } else {
            return false;
        }
        hasCalled = hasCalled || root.holdsCall;
    }
    ScalarInstruction& made = emit(ScalarOpcode::CallDirect);
    made.kind = static_cast<std::uint8_t>(call.arguments.size());
    made.token = variableAt(line, call.nameToken);
    emit(ScalarOpcode::AssignAny, static_cast<std::int32_t>(statement));
    return true;
}

/// An arithmetic chain whose first operand is a call. It begins with a test of the callee, whose
/// target the caller fills in.
bool HotCompiler::emitFrameCallChain(const ParsedScriptLine& line, const FastExpression& value) {
    const FastExprNode* first = &value.rootNode();
    while (isOperator(*first)) first = &nodeAt(value, first->left);
    if (first->kind != NodeKind::Call || first->argumentsHoldCall) return false;
    const FastExprNode& callee = nodeAt(value, first->left);
    if (callee.kind != NodeKind::Variable) return false;
    emit(ScalarOpcode::JumpUnlessFrameCall).token = variableAt(line, callee.tokenIndex);
    return emitAny(line, value, value.root, 0, true);
}

/// A node by the general tier, with `operands` values waiting below its own. A chain of "+" that
/// may be a text is left to the executor, unless it is certain to begin with the call of a script
/// function.
bool HotCompiler::emitAny(const ParsedScriptLine& line, const FastExpression& expression, int index,
                          std::size_t operands, bool beginsWithFrameCall) {
    if (operands >= kMostOperands) return false;
    const FastExprNode& node = nodeAt(expression, index);
    switch (node.kind) {
        case NodeKind::StringLiteral:
            emit(ScalarOpcode::PushText, keyAt(expression, node));
            return true;
        case NodeKind::Variable: emitAnyVariable(line, node); return true;
        case NodeKind::Call: return emitCall(line, expression, node, operands);
        default:
            if (emitLiteral(node)) return true;
            break;
    }
    if (!isOperator(node) || (node.canConcat && !beginsWithFrameCall)) return false;
    const FastExprNode& left = nodeAt(expression, node.left);
    const FastExprNode& right = nodeAt(expression, node.right);
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

/// A number, a truth value or nil.
bool HotCompiler::emitLiteral(const FastExprNode& node) {
    switch (node.kind) {
        case NodeKind::IntLiteral: emit(ScalarOpcode::PushInt, node.intValue); return true;
        case NodeKind::FloatLiteral:
            emit(ScalarOpcode::PushFloat).floatValue = node.floatValue;
            return true;
        case NodeKind::BoolLiteral:
            emit(ScalarOpcode::PushBool, node.boolValue ? 1 : 0);
            return true;
        case NodeKind::NilLiteral: emit(ScalarOpcode::PushNil); return true;
        default: return false;
    }
}

void HotCompiler::emitAnyVariable(const ParsedScriptLine& line, const FastExprNode& node,
                                  std::uint8_t marks) {
    ScalarInstruction& push = emit(ScalarOpcode::PushVariable);
    push.kind = kAnyOperands | marks;
    push.token = variableAt(line, node.tokenIndex);
}

bool HotCompiler::emitCall(const ParsedScriptLine& line, const FastExpression& expression,
                           const FastExprNode& call, std::size_t operands) {
    const FastExprNode& callee = nodeAt(expression, call.left);
    if (!isTranslatableCallee(expression, callee) ||
        !emitArguments(line, expression, call, operands)) {
        return false;
    }
    const bool isEntry = callee.kind == NodeKind::Index;
    ScalarInstruction& made = emit(isEntry ? ScalarOpcode::CallEntry : ScalarOpcode::CallVariable);
    made.kind = static_cast<std::uint8_t>(call.intValue);
    if (isEntry) {
        made.token = variableAt(line, nodeAt(expression, callee.left).tokenIndex);
        made.intValue = keyAt(expression, nodeAt(expression, callee.right));
    } else {
        made.token = calleeAt(line, callee.tokenIndex);
    }
    return true;
}

bool HotCompiler::emitArguments(const ParsedScriptLine& line, const FastExpression& expression,
                                const FastExprNode& call, std::size_t operands) {
    const auto count = static_cast<std::size_t>(call.intValue);
    if (count > kMostOperands / 2) return false;
    for (std::size_t i = 0; i < count; ++i) {
        const auto argument =
            static_cast<int>(expression.callArguments[static_cast<std::size_t>(call.right) + i]);
        const FastExprNode& node = nodeAt(expression, argument);
        if (node.kind == NodeKind::Variable && !call.argumentsHoldCall &&
            operands + i < kMostOperands) {
            emitAnyVariable(line, node, kLentVariable);
        } else if (!emitAny(line, expression, argument, operands + i)) {
            return false;
        }
    }
    return true;
}

/// A node by the scalar tier. Once a call has been made, a part that declines must be what the tier
/// itself declines: nothing may be evaluated twice.
bool HotCompiler::emitScalars(const ParsedScriptLine& line, const FastExpression& expression,
                              int index, std::size_t operands) {
    if (operands >= kMostOperands) return false;
    const FastExprNode& node = nodeAt(expression, index);
    if (node.kind == NodeKind::Call) return emitScalarCall(line, expression, index, operands);
    if (!node.holdsCall) return emitWithoutCall(line, expression, index, operands);
    if (!isOperator(node) || !emitScalars(line, expression, node.left, operands)) return false;
    // What is no number declines before the right side runs.
    if (node.kind < NodeKind::Equal && nodeAt(expression, node.right).holdsCall) {
        emit(ScalarOpcode::RequireNumber);
    }
    if (!emitScalars(line, expression, node.right, operands + 1)) return false;
    emit(operatorOpcode(ScalarOpcode::Add, node.kind));
    return true;
}

bool HotCompiler::emitWithoutCall(const ParsedScriptLine& line, const FastExpression& expression,
                                  int index, std::size_t operands) {
    const FastExprNode& node = nodeAt(expression, index);
    if (emitLiteral(node)) return true;
    const bool isFirst =
        code_.scalarNodes.empty() || code_.scalarNodes.back().expression != &expression;
    if (isFirst) {
        const SharedArray<ScalarInstruction> code = compileScalarCode(expression, index);
        if (code.empty() || operands + kScalarStackSize > kHotStackSize) return false;
        emitCode(line, expression, code, false);
        return true;
    }
    const auto evaluated = static_cast<std::int32_t>(code_.scalarNodes.size());
    if (node.kind == NodeKind::Variable) {
        ScalarInstruction& push = emit(ScalarOpcode::PushVariable, evaluated);
        push.kind = kScalarNode;
        push.token = variableAt(line, node.tokenIndex);
    } else {
        emit(ScalarOpcode::EvaluateScalar, evaluated);
    }
    code_.scalarNodes.push_back({&expression, &line.tokenAnalysis, index});
    return true;
}

bool HotCompiler::emitScalarCall(const ParsedScriptLine& line, const FastExpression& expression,
                                 int index, std::size_t operands) {
    const FastExprNode& call = nodeAt(expression, index);
    const FastExprNode& callee = nodeAt(expression, call.left);
    if (!isTranslatableCallee(expression, callee)) return false;
    const bool isEntry = callee.kind == NodeKind::Index;
    const auto number = code_.scalarNodes.size();
    HotScalarNode made{&expression, &line.tokenAnalysis, index};
    if (isEntry) made.key = &expression.strings[nodeAt(expression, callee.right).stringIndex];
    made.argumentsHoldCall = call.argumentsHoldCall;
    const std::uint16_t token =
        variableAt(line, isEntry ? nodeAt(expression, callee.left).tokenIndex : callee.tokenIndex);
    code_.scalarNodes.push_back(made);
    emit(ScalarOpcode::BeginScalarCall, static_cast<std::int32_t>(number)).token = token;
    if (!emitArguments(line, expression, call, operands)) return false;
    ScalarInstruction& last = emit(ScalarOpcode::CallScalar, static_cast<std::int32_t>(number));
    last.kind = static_cast<std::uint8_t>(call.intValue);
    last.token = token;
    code_.scalarNodes[number].behind = here();
    return true;
}

/// The same as `variableAt`, for the callee of a call whose kind has been tested before.
std::uint16_t HotCompiler::calleeAt(const ParsedScriptLine& line, std::size_t token) {
    const auto& variables = code_.variables;
    const auto known = std::find(variables.rbegin(), variables.rend(), &line.tokenAnalysis[token]);
    return known != variables.rend() ? static_cast<std::uint16_t>(variables.rend() - known - 1)
                                     : variableAt(line, token);
}

std::int32_t HotCompiler::keyAt(const FastExpression& expression, const FastExprNode& text) {
    code_.keys.push_back(&expression.strings[text.stringIndex]);
    return static_cast<std::int32_t>(code_.keys.size() - 1);
}
