// The general tier: any value of a compiled expression. It is the tier of last resort and raises
// what is wrong. When a soft error is unwinding after an operand or a call, it returns nil at once.
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "eval/binary_operation.h"
#include "eval/errors.h"
#include "eval/variable_access.h"
#include "frontend/operator_table.h"
#include "interpreter/observed_run.h"
#include "value/arithmetic.h"
#include "value/operators.h"
#include "value/text.h"

using TokenAnalyses = std::vector<TokenAnalysis>;

namespace {

const FastExprNode& nodeAt(const FastExpression& expression, int index) {
    return expression.nodes[static_cast<std::size_t>(index)];
}

Variable negated(const Variable& operand) {
    switch (operand.type) {
        case VarType::Int:
        case VarType::Bool: return Variable::makeInt(wrapNegate(toInt(operand)));
        case VarType::Float: return Variable::makeFloat(-operand.asFloat());
        default: throwPlainError("Unary '-' requires a numeric value");
    }
}

/// "%" of this tier: an int only for two ints, so a bool with an int gives a float; kept.
Variable remainderOf(const Variable& left, const Variable& right) {
    if (left.type == VarType::Int && right.type == VarType::Int) {
        return Variable::makeInt(checkedRemainder(left.asInt(), right.asInt()));
    }
    if (!left.isNumeric() || !right.isNumeric()) return performOperation(left, '%', right);
    const double divisor = toDouble(right);
    if (divisor == 0.0) throwDivisionByZero();
    return Variable::makeFloat(
        std::fmod(static_cast<float>(toDouble(left)), static_cast<float>(divisor)));
}

int operatorNumberOf(NodeKind kind) {
    switch (kind) {
        case NodeKind::Equal: return kEqual;
        case NodeKind::NotEqual: return kNotEqual;
        case NodeKind::Less: return kLess;
        case NodeKind::Greater: return kGreater;
        case NodeKind::LessEqual: return kLessEqual;
        case NodeKind::GreaterEqual: return kGreaterEqual;
        case NodeKind::Add: return kAdd;
        case NodeKind::Subtract: return kSubtract;
        case NodeKind::Multiply: return kMultiply;
        case NodeKind::Divide: return kDivide;
        case NodeKind::IntDivide: return kIntDivide;
        default: return kPower;
    }
}

}  // namespace

Variable generalOperation(NodeKind kind, Variable& left, const Variable& right) {
    if (kind == NodeKind::Modulo) return remainderOf(left, right);
    if (left.type == VarType::Int && right.type == VarType::Int) {
        switch (kind) {
            case NodeKind::Add: return Variable::makeInt(wrapAdd(left.asInt(), right.asInt()));
            case NodeKind::Subtract:
                return Variable::makeInt(wrapSubtract(left.asInt(), right.asInt()));
            case NodeKind::Multiply:
                return Variable::makeInt(wrapMultiply(left.asInt(), right.asInt()));
            default: break;
        }
    }
    if (kind == NodeKind::Add && left.type == VarType::String) {
        // The left text is the caller's to give: the right one goes behind it.
        appendToString(left, right);
        return std::move(left);
    }
    return applyBinaryOperator(operatorNumberOf(kind), left, right);
}

Variable DovrelScript::evaluateFastExpression(const FastExpression& expression,
                                              const TokenAnalyses& analysis) {
    if (expression.valid) {
        const FastExprNode& root = expression.rootNode();
        // A call at the root runs its arguments once: the scalar tier is not tried on it.
        if (root.kind == NodeKind::Call) return evaluateCallNode(expression, root, analysis);
        if (root.holdsCall && startsWithFrameCall(expression, analysis)) {
            return evaluateFastExpressionNode(expression, expression.root, analysis);
        }
        if (root.kind == NodeKind::Add && concatMayStart(expression, expression.root, analysis)) {
            std::string text;
            if (appendFastStringConcatNode(expression, expression.root, analysis, text)) {
                return Variable(std::move(text));
            }
            if (softErrorUnwinding()) return {};
        }
    }
    FastScalarValue scalar{};
    ObservedAttempt attempt(*this);
    if (attempt.answered(
            tryEvaluateFastExpressionScalarNode(expression, expression.root, analysis, scalar))) {
        return variableFromFastScalar(scalar);
    }
    if (softErrorUnwinding()) return {};
    return evaluateFastExpressionNode(expression, expression.root, analysis);
}

/// The first operand of an arithmetic chain is a call that the concat form and the scalar tier are
/// bound to decline, before either has done anything that can be seen.
bool DovrelScript::startsWithFrameCall(const FastExpression& expression,
                                       const TokenAnalyses& analysis) {
    const FastExprNode* node = &expression.rootNode();
    while (node->kind >= NodeKind::Add && node->kind <= NodeKind::GreaterEqual) {
        node = &nodeAt(expression, node->left);
    }
    if (node->kind != NodeKind::Call || node->argumentsHoldCall) return false;
    const Variable* callee = variableInPlace(expression, node->left, analysis);
    if (callee == nullptr || callee->type != VarType::Function) return false;
    const Shared<ScriptCallable>& callable = callee->asFunction();
    return callable != nullptr && !callable->isNative &&
           callable->fastBodyKind == FastBodyKind::None;
}

Variable DovrelScript::evaluateFastExpressionNode(const FastExpression& expression, int index,
                                                  const TokenAnalyses& analysis) {
    if (static_cast<std::size_t>(index) >= expression.nodes.size()) return {};
    const FastExprNode& node = nodeAt(expression, index);
    switch (node.kind) {
        case NodeKind::IntLiteral: return Variable::makeInt(node.intValue);
        case NodeKind::FloatLiteral: return Variable::makeFloat(node.floatValue);
        case NodeKind::StringLiteral: return Variable(expression.strings[node.stringIndex]);
        case NodeKind::BoolLiteral: return Variable::makeBool(node.boolValue);
        case NodeKind::NilLiteral: return {};
        case NodeKind::Variable: {
            const Variable* value = readVariable(analysis[node.tokenIndex]);
            return value != nullptr ? *value : Variable();
        }
        case NodeKind::Index: {
            const Variable* element = elementInPlace(expression, node, analysis);
            return element != nullptr ? *element : evaluateIndexNode(expression, node, analysis);
        }
        case NodeKind::Call: return evaluateCallNode(expression, node, analysis);
        case NodeKind::Negate:
        case NodeKind::Not:
        case NodeKind::Length: {
            const Variable operand = evaluateFastExpressionNode(expression, node.left, analysis);
            if (softErrorUnwinding()) return {};
            if (node.kind == NodeKind::Negate) return negated(operand);
            if (node.kind == NodeKind::Not) return Variable::makeBool(!isTruthy(operand));
            return Variable::makeInt(arrayLength(operand));
        }
        case NodeKind::And:
        case NodeKind::Or: {
            Variable left = evaluateFastExpressionNode(expression, node.left, analysis);
            if (softErrorUnwinding()) return {};
            if (isTruthy(left) != (node.kind == NodeKind::And)) return left;
            return evaluateFastExpressionNode(expression, node.right, analysis);
        }
        case NodeKind::Add: {
            Variable result;
            if (!node.holdsCall && tryLeafInts(expression, node, analysis, result)) return result;
            return evaluateAddNode(expression, index, analysis);
        }
        case NodeKind::Subtract:
        case NodeKind::Multiply:
        case NodeKind::Divide:
        case NodeKind::IntDivide:
        case NodeKind::Modulo:
        case NodeKind::Power:
        case NodeKind::Equal:
        case NodeKind::NotEqual:
        case NodeKind::Less:
        case NodeKind::Greater:
        case NodeKind::LessEqual:
        case NodeKind::GreaterEqual: {
            Variable result;
            if (!node.holdsCall && tryLeafInts(expression, node, analysis, result)) return result;
            return evaluateBinaryNode(expression, node, analysis);
        }
        case NodeKind::ArrayLiteral:
        case NodeKind::TableLiteral:
        case NodeKind::Varargs:
        case NodeKind::None: break;
    }
    throwPlainError("Invalid fast expression node");
}

Variable DovrelScript::evaluateBinaryNode(const FastExpression& expression,
                                          const FastExprNode& node, const TokenAnalyses& analysis) {
    if (node.kind >= NodeKind::Equal && !node.holdsCall) {
        // Texts are compared where they stand.
        const Variable* first = valueInPlace(expression, node.left, analysis);
        const Variable* second =
            first != nullptr ? valueInPlace(expression, node.right, analysis) : nullptr;
        if (second != nullptr) {
            return applyBinaryOperator(operatorNumberOf(node.kind), *first, *second);
        }
    }
    Variable left = evaluateFastExpressionNode(expression, node.left, analysis);
    if (softErrorUnwinding()) return {};
    const Variable right = evaluateFastExpressionNode(expression, node.right, analysis);
    if (softErrorUnwinding()) return {};
    return generalOperation(node.kind, left, right);
}

Variable DovrelScript::evaluateAddNode(const FastExpression& expression, int index,
                                       const TokenAnalyses& analysis) {
    const FastExprNode& node = nodeAt(expression, index);
    if (concatMayStart(expression, index, analysis)) {
        std::string text;
        if (appendFastStringConcatNode(expression, index, analysis, text)) {
            return Variable(std::move(text));
        }
        if (softErrorUnwinding()) return {};
    }
    Variable left = evaluateFastExpressionNode(expression, node.left, analysis);
    if (softErrorUnwinding()) return {};
    const Variable right = evaluateFastExpressionNode(expression, node.right, analysis);
    if (softErrorUnwinding()) return {};
    return generalOperation(NodeKind::Add, left, right);
}

Variable DovrelScript::evaluateIndexNode(const FastExpression& expression, const FastExprNode& node,
                                         const TokenAnalyses& analysis) {
    Variable temporary;
    const Variable* base = variableInPlace(expression, node.left, analysis);
    if (base == nullptr) {
        temporary = evaluateFastExpressionNode(expression, node.left, analysis);
        if (softErrorUnwinding()) return {};
        base = &temporary;
    }
    const FastExprNode& keyNode = nodeAt(expression, node.right);
    if (keyNode.kind == NodeKind::StringLiteral) {
        const std::string& key = expression.strings[keyNode.stringIndex];
        if (base->type != VarType::Table) return getIndexedValue(*base, Variable(key));
        const TableStorage& table = *base->asTable();
        const auto* found = table.find(key);
        return found != nullptr ? *found : Variable();
    }
    // A key that runs code may move or overwrite the base, which is then looked up again.
    const auto baseAfterKey = [&]() -> const Variable& {
        if (keyNode.holdsCall && base != &temporary) {
            base = variableInPlace(expression, node.left, analysis);
        }
        return base != nullptr ? *base : nilValue();
    };
    if (base->type == VarType::Array) {
        int position = 0;
        if (tryEvaluateFastExpressionIntNode(expression, node.right, analysis, position)) {
            const Variable& container = baseAfterKey();
            if (container.type != VarType::Array) {
                return getIndexedValue(container, Variable::makeInt(position));
            }
            const ArrayStorage& array = *container.asArray();
            observeElement(array, position);
            if (position < 1 || static_cast<std::size_t>(position) > array.size()) return {};
            return array[static_cast<std::size_t>(position) - 1];
        }
        if (softErrorUnwinding()) return {};
    }
    const Variable key = evaluateFastExpressionNode(expression, node.right, analysis);
    if (softErrorUnwinding()) return {};
    const Variable& container = baseAfterKey();
    observeElement(container, key);
    return getIndexedValue(container, key);
}

bool DovrelScript::evaluateCallArguments(const FastExpression& expression, const FastExprNode& call,
                                         const TokenAnalyses& analysis, ArgumentFrame& frame) {
    for (std::size_t i = 0; i < frame.size(); ++i) {
        const auto argument =
            static_cast<int>(expression.callArguments[static_cast<std::size_t>(call.right) + i]);
        const FastExprNode& node = nodeAt(expression, argument);
        if (node.kind == NodeKind::Variable) {
            if (const Variable* value = readVariable(analysis[node.tokenIndex])) frame[i] = *value;
        } else if (node.holdsCall || node.kind < NodeKind::Add ||
                   node.kind > NodeKind::GreaterEqual ||
                   !tryLeafInts(expression, node, analysis, frame[i])) {
            frame[i] = evaluateFastExpressionNode(expression, argument, analysis);
            if (softErrorUnwinding()) return false;
        }
    }
    return true;
}

bool DovrelScript::evaluateLentArguments(const FastExpression& expression, const FastExprNode& call,
                                         const TokenAnalyses& analysis, ArgumentFrame& frame) {
    if (call.argumentsHoldCall) return evaluateCallArguments(expression, call, analysis, frame);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        const auto argument =
            static_cast<int>(expression.callArguments[static_cast<std::size_t>(call.right) + i]);
        if (const Variable* value = variableInPlace(expression, argument, analysis)) {
            frame[i] = *value;
        } else {
            frame[i] = evaluateFastExpressionNode(expression, argument, analysis);
        }
    }
    return true;
}

Variable DovrelScript::evaluateCallNode(const FastExpression& expression, const FastExprNode& node,
                                        const TokenAnalyses& analysis) {
    ArgumentFrame arguments(argumentStack, static_cast<std::size_t>(node.intValue));
    if (node.argumentsHoldCall) {
        if (!evaluateCallArguments(expression, node, analysis, arguments)) return {};
        const Variable* callee = calleeInPlace(expression, node.left, analysis);
        return callNode(expression, node, analysis, callee, arguments.view());
    }
    // Nobody can see in which order callee and arguments are found, and nothing moves meanwhile.
    const Variable* callee = calleeInPlace(expression, node.left, analysis);
    const ScriptCallable* native = nativeOf(callee);
    const bool isMember = nodeAt(expression, node.left).kind == NodeKind::Index;
    if (native != nullptr && mayCallDirectly(native->builtinId, isMember)) {
        const BuiltinId id = native->builtinId;
        observeCall(analysis[node.tokenIndex], *callee);
        evaluateLentArguments(expression, node, analysis, arguments);
        return dispatchBuiltinFast(id, arguments.view());
    }
    evaluateCallArguments(expression, node, analysis, arguments);
    return callNode(expression, node, analysis, callee, arguments.view());
}

/// Calls the callee of a call node whose arguments have been evaluated; `callee` is null if it does
/// not stand in a place.
Variable DovrelScript::callNode(const FastExpression& expression, const FastExprNode& node,
                                const TokenAnalyses& analysis, const Variable* callee,
                                Arguments args) {
    if (callee != nullptr) {
        observeCall(analysis[node.tokenIndex], *callee);
        return callFound(*callee, nodeAt(expression, node.left).kind == NodeKind::Index, args);
    }
    const Variable evaluated = evaluateFastExpressionNode(expression, node.left, analysis);
    if (softErrorUnwinding()) return {};
    observeCall(analysis[node.tokenIndex], evaluated);
    return invokeCallableFast(evaluated, args);
}

Variable DovrelScript::callFound(const Variable& callee, bool isMember, Arguments args) {
    if (isMember) {
        // A member of a library table goes straight to its fast body, outside the count of calls.
        const ScriptCallable* native = nativeOf(&callee);
        if (native != nullptr && native->builtinId != BuiltinId::None) {
            Variable result = dispatchBuiltinFast(native->builtinId, args);
            return softErrorUnwinding() ? Variable() : result;
        }
    }
    return invokeCallableFast(callee, args);
}

/// Both operands are int literals or variables that hold ints, as in nearly all arithmetic that
/// ends in this tier: no Variable is made of them.
bool DovrelScript::tryLeafInts(const FastExpression& expression, const FastExprNode& node,
                               const TokenAnalyses& analysis, Variable& out) {
    const auto leafInt = [&](int index, int& number) {
        const FastExprNode& leaf = nodeAt(expression, index);
        if (leaf.kind == NodeKind::IntLiteral) {
            number = leaf.intValue;
            return true;
        }
        if (leaf.kind != NodeKind::Variable) return false;
        const Variable* value = readVariable(analysis[leaf.tokenIndex]);
        if (value == nullptr || value->type != VarType::Int) return false;
        number = value->asInt();
        return true;
    };
    int a = 0;
    int b = 0;
    if (!leafInt(node.left, a) || !leafInt(node.right, b)) return false;
    switch (node.kind) {
        case NodeKind::Add: out.setInt(wrapAdd(a, b)); return true;
        case NodeKind::Subtract: out.setInt(wrapSubtract(a, b)); return true;
        case NodeKind::Multiply: out.setInt(wrapMultiply(a, b)); return true;
        case NodeKind::IntDivide: out.setInt(checkedDivide(a, b)); return true;
        case NodeKind::Modulo: out.setInt(checkedRemainder(a, b)); return true;
        case NodeKind::Equal: out.setBool(a == b); return true;
        case NodeKind::NotEqual: out.setBool(a != b); return true;
        case NodeKind::Less: out.setBool(a < b); return true;
        case NodeKind::Greater: out.setBool(a > b); return true;
        case NodeKind::LessEqual: out.setBool(a <= b); return true;
        case NodeKind::GreaterEqual: out.setBool(a >= b); return true;
        default: return false;
    }
}

/// The concat form has something to do: the first leaf of the chain is one that it takes.
bool DovrelScript::concatMayStart(const FastExpression& expression, int index,
                                  const TokenAnalyses& analysis) {
    const FastExprNode* node = &nodeAt(expression, index);
    if (!node->canConcat) return false;
    while (node->kind == NodeKind::Add) node = &nodeAt(expression, node->left);
    if (node->kind != NodeKind::Call) return true;
    const ScriptCallable* native = findNativeCallee(expression, node->left, analysis);
    return native != nullptr && native->builtinId == BuiltinId::ToString;
}

bool DovrelScript::appendFastStringConcatNode(const FastExpression& expression, int index,
                                              const TokenAnalyses& analysis, std::string& out) {
    for (;;) {
        const FastExprNode& node = nodeAt(expression, index);
        if (node.kind == NodeKind::Add) {
            if (!appendFastStringConcatNode(expression, node.left, analysis, out)) return false;
            index = node.right;
            continue;
        }
        if (node.kind == NodeKind::StringLiteral) {
            out += expression.strings[node.stringIndex];
            return true;
        }
        if (node.kind != NodeKind::Call || node.intValue != 1) return false;
        if (nodeAt(expression, node.left).kind != NodeKind::Variable) return false;
        const ScriptCallable* native = findNativeCallee(expression, node.left, analysis);
        if (native == nullptr || native->builtinId != BuiltinId::ToString) return false;
        const auto argument = static_cast<std::size_t>(node.right);
        if (argument >= expression.callArguments.size()) return false;
        const Variable value = evaluateFastExpressionNode(
            expression, static_cast<int>(expression.callArguments[argument]), analysis);
        if (softErrorUnwinding()) return false;
        appendVariableStringFast(out, value);
        return true;
    }
}
