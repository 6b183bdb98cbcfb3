// FastAssign: one plain target, one compiled value. It does what executeAssignment does for such a
// line, but keeps scalars out of Variables.
#include <string>
#include <utility>

#include "eval/assignment.h"
#include "eval/scalar_operand.h"
#include "exec/chunk_run.h"
#include "value/operators.h"

void ChunkRun::runFastAssign(std::uint32_t index) {
    const ParsedScriptLine& line = beginStatement(index);
    // A loaded file may name a line of any shape.
    if (line.assignment == nullptr) return;
    FastScalarValue scalar{};
    Variable value;
    const bool isScalar = line.assignment->simpleCall.valid
                              ? evaluateDirectCall(line, scalar, value)
                              : evaluateAssignedValue(line, scalar, value);
    if (unwinding()) return;
    assignValue(line, scalar, isScalar, value);
    value_.setNil();
}

void ChunkRun::assignValue(const ParsedScriptLine& line, const FastScalarValue& scalar,
                           bool isScalar, Variable& value) {
    if (line.assignment->isPlain) {
        storeAssigned(line, scalar, isScalar, value);
    } else {
        applyCompound(line, scalar, isScalar, value);
    }
}

bool ChunkRun::evaluateAssignedValue(const ParsedScriptLine& line, FastScalarValue& scalar,
                                     Variable& value) {
    // A loaded file may name a line whose value has no compiled form of its own.
    const FastExpression* simple = line.assignment->simpleValue();
    if (simple == nullptr) {
        scalar = FastScalarValue::nil();
        return true;
    }
    const FastExpression& expression = *simple;
    // A call at the root goes straight to the general tier, which runs its arguments once.
    if (!expression.isCall()) {
        if (interpreter_.tryEvaluateFastExpressionScalarNode(expression, expression.root,
                                                             line.tokenAnalysis, scalar)) {
            return true;
        }
        if (unwinding()) return false;
    }
    value =
        interpreter_.evaluateFastExpressionNode(expression, expression.root, line.tokenAnalysis);
    return false;
}

bool ChunkRun::evaluateDirectCall(const ParsedScriptLine& line, FastScalarValue& scalar,
                                  Variable& value) {
    const FastCallExpression& call = line.assignment->simpleCall;
    ArgumentFrame arguments(interpreter_.argumentStack, call.arguments.size());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        arguments[i] = interpreter_.evaluateFastExpression(call.arguments[i], line.tokenAnalysis);
        if (unwinding()) return false;
    }
    return callDirectly(line.tokenAnalysis[call.nameToken], arguments.view(), scalar, value);
}

bool ChunkRun::callDirectly(const TokenAnalysis& name, Arguments args, FastScalarValue& scalar,
                            Variable& value) {
    const Variable* found = interpreter_.readVariable(name);
    const Variable callee = found != nullptr ? *found : Variable();
    if (callee.type == VarType::Function && callee.asFunction() != nullptr) {
        const Shared<ScriptCallable>& callable = callee.asFunction();
        const bool isScalar =
            callable->isNative
                ? interpreter_.tryEvaluateNativeBuiltinScalar(callable->builtinId, args, scalar)
                : interpreter_.tryEvaluateFastCallableScalar(callable, args, scalar);
        if (isScalar) return true;
        if (unwinding()) return false;
    }
    value = interpreter_.invokeCallableFast(callee, args);
    return false;
}

void ChunkRun::storeAssigned(const ParsedScriptLine& line, const FastScalarValue& scalar,
                             bool isScalar, Variable& value) {
    const TokenAnalysis& token = line.tokenAnalysis[line.assignment->targets[0].nameToken];
    if (!isScalar && value.type == VarType::Multi && line.assignment->simpleValueIsCall()) {
        value = AssignmentRun::firstValue(value);
    }
    if (interpreter_.observer != nullptr) {
        // A soft error has left by now, and nothing below can fail but for the lack of memory.
        interpreter_.observeAssigned(line, line.assignment->targets[0].nameToken, {},
                                     isScalar ? variableFromFastScalar(scalar) : value);
    }
    if (line.assignmentScope != ScopeTarget::Default) {
        interpreter_.assignVariableFast(token, isScalar ? variableFromFastScalar(scalar) : value,
                                        line.assignmentScope);
        return;
    }
    Variable* variable = interpreter_.variableForWriting(token);
    if (variable == nullptr) {
        interpreter_.createGlobal(token,
                                  isScalar ? variableFromFastScalar(scalar) : std::move(value));
    } else if (isScalar) {
        assignFastScalarToVariable(*variable, scalar);
    } else {
        *variable = std::move(value);
    }
}

void ChunkRun::applyCompound(const ParsedScriptLine& line, const FastScalarValue& scalar,
                             bool isScalar, const Variable& value) {
    const ParsedAssignment& assignment = *line.assignment;
    const std::size_t nameToken = assignment.targets[0].nameToken;
    Variable* variable = interpreter_.variableForWriting(line.tokenAnalysis[nameToken]);
    if (variable == nullptr) {
        interpreter_.throwError("Variable not found: " + line.tokens[nameToken],
                                line.tokens[nameToken]);
    }
    if (!isScalar || !tryApplyFastScalarOperationInPlace(*variable, assignment.operation, scalar)) {
        const Variable operand = isScalar ? variableFromFastScalar(scalar) : value;
        if (!tryApplyOperationInPlace(*variable, assignment.operation, operand)) {
            *variable = performOperation(*variable, assignment.operation, operand);
        }
    }
    interpreter_.observeAssigned(line, nameToken, {}, *variable);
}
