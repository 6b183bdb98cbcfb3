// Assignment lines, in all their forms. Keys are evaluated before values, and in the forms with
// several targets everything is evaluated before anything is stored.
#include "eval/assignment.h"

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "eval/indexed_store.h"
#include "eval/variable_access.h"
#include "value/operators.h"

AssignmentRun::AssignmentRun(DovrelScript& interpreter, const ParsedScriptLine& line)
    : interpreter_(interpreter), line_(line), assignment_(*line.assignment) {}

Variable AssignmentRun::run() {
    const std::size_t targets = assignment_.targets.size();
    if (targets == 1 && assignment_.valueRanges.size() <= 1) {
        const ParsedAssignmentTarget& target = assignment_.targets[0];
        switch (target.indexRanges.size()) {
            case 0: runPlain(target); break;
            case 1: runIndexed(target); break;
            default: runPath(target); break;
        }
        return {};
    }
    bool anyIndexed = false;
    for (const ParsedAssignmentTarget& target : assignment_.targets) {
        anyIndexed = anyIndexed || !target.indexRanges.empty();
    }
    if (targets >= 2 && assignment_.isPlain && !anyIndexed) {
        runParallel();
        return {};
    }
    return runGeneral();
}

Variable AssignmentRun::evaluateRange(TokenRange range) {
    std::size_t position = range.first;
    Variable value = interpreter_.evaluateExpression(line_.tokens, position, &line_.tokenAnalysis);
    if (!unwinding() && position < range.last) {
        interpreter_.throwError("Unexpected token in assignment expression",
                                line_.tokens[position]);
    }
    return value;
}

Variable AssignmentRun::evaluate(const FastExpression& expression, TokenRange range) {
    return expression.valid ? interpreter_.evaluateFastExpression(expression, line_.tokenAnalysis)
                            : evaluateRange(range);
}

Variable AssignmentRun::evaluateKey(const ParsedAssignmentTarget& target, std::size_t index) {
    return evaluate(target.indexExpressions[index], target.indexRanges[index]);
}

/// The keys of a target, into `keys` from `first` on. False if a soft error is unwinding.
bool AssignmentRun::evaluateKeys(const ParsedAssignmentTarget& target, ArgumentFrame& keys,
                                 std::size_t first) {
    for (std::size_t i = 0; i < target.indexRanges.size(); ++i) {
        keys[first + i] = evaluateKey(target, i);
        if (unwinding()) return false;
    }
    return true;
}

Variable AssignmentRun::evaluateFirstValue() {
    if (assignment_.valueRanges.empty()) return {};
    if (assignment_.simpleCall.valid) return evaluateDirectCall();
    if (assignment_.isSimple()) return evaluate(assignment_.values[0], assignment_.valueRanges[0]);
    return evaluateByTokens();
}

/// The value of an element goes by tokens, so it differs from the scalar tier where that does:
/// kept.
Variable AssignmentRun::evaluateByTokens() { return evaluateRange(assignment_.valueRanges[0]); }

/// `x = f(a, b)`: never in the scalar tier, so that the arguments run once.
Variable AssignmentRun::evaluateDirectCall() {
    const FastCallExpression& call = assignment_.simpleCall;
    ArgumentFrame arguments(interpreter_.argumentStack, call.arguments.size());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        arguments[i] = interpreter_.evaluateFastExpression(call.arguments[i], line_.tokenAnalysis);
        if (unwinding()) return {};
    }
    const Variable* callee = interpreter_.lookUpVariable(line_.tokenAnalysis[call.nameToken]);
    return interpreter_.invokeCallableFast(callee != nullptr ? *callee : Variable(),
                                           arguments.view());
}

void AssignmentRun::cutMulti(Variable& value) const {
    if (value.type == VarType::Multi && assignment_.targets.size() == 1 &&
        assignment_.simpleValueIsCall()) {
        value = firstValue(value);
    }
}

Variable AssignmentRun::firstValue(const Variable& multi) {
    const Shared<MultiResult>& result = multi.asMulti();
    return result == nullptr || result->values.empty() ? Variable() : result->values[0];
}

void AssignmentRun::storeBase(const ParsedAssignmentTarget& target, const Variable& value) {
    interpreter_.assignVariableFast(token(target), value, line_.assignmentScope);
}

void AssignmentRun::store(const ParsedAssignmentTarget& target, const Variable& value) {
    storeBase(target, value);
    interpreter_.observeAssigned(line_, target.nameToken, {}, value);
}

void AssignmentRun::throwVariableNotFound(const ParsedAssignmentTarget& target) {
    const std::string& name = line_.tokens[target.nameToken];
    interpreter_.throwError("Variable not found: " + name, name);
}

/// `variable op value` for a compound operator.
void AssignmentRun::applyCompound(Variable& variable, const Variable& value) const {
    const VarType before = variable.type;
    if (!tryApplyOperationInPlace(variable, assignment_.operation, value)) {
        variable = performOperation(variable, assignment_.operation, value);
    }
    interpreter_.observeCompound(line_, assignment_.targets[0].nameToken, before, variable);
}

void AssignmentRun::storePlain(const ParsedAssignmentTarget& target, const Variable& value) {
    if (assignment_.isPlain) {
        store(target, value);
        return;
    }
    Variable* variable = interpreter_.variableForWriting(token(target));
    if (variable == nullptr) throwVariableNotFound(target);
    applyCompound(*variable, value);
    interpreter_.observeAssigned(line_, target.nameToken, {}, *variable);
}

void AssignmentRun::runPlain(const ParsedAssignmentTarget& target) {
    Variable value = evaluateFirstValue();
    cutMulti(value);
    if (unwinding()) return;
    storePlain(target, value);
}

void AssignmentRun::runIndexed(const ParsedAssignmentTarget& target) {
    const Variable key = evaluateKey(target, 0);
    if (unwinding()) return;
    Variable value = evaluateFirstValue();
    cutMulti(value);
    if (unwinding()) return;
    Variable* variable = interpreter_.variableForWriting(token(target));
    if (variable != nullptr) {
        storeElement(target, *variable, {&key, 1}, value);
        return;
    }
    if (!assignment_.isPlain) throwVariableNotFound(target);
    Variable container = makeContainerFor(key);
    interpreter_.setIndexedValue(container, key, value, true);
    storeBase(target, container);
    interpreter_.observeAssigned(line_, target.nameToken, {&key, 1}, value);
}

/// Stores under the last of `keys`, which lead to an element of the target's variable.
void AssignmentRun::storeElement(const ParsedAssignmentTarget& target, Variable& container,
                                 std::span<const Variable> keys, const Variable& value) {
    const Variable& key = keys.back();
    if (assignment_.isPlain) {
        interpreter_.setIndexedValue(container, key, value, true);
        interpreter_.observeAssigned(line_, target.nameToken, keys, value);
        return;
    }
    Variable element = interpreter_.getIndexedValue(container, key);
    applyCompound(element, value);
    interpreter_.setIndexedValue(container, key, element, false);
    interpreter_.observeAssigned(line_, target.nameToken, keys, element);
}

/// `t[a][b] = v`. Ends by storing the base back under its name, which makes a promotion of the
/// outermost array visible to the variable.
void AssignmentRun::runPath(const ParsedAssignmentTarget& target) {
    ArgumentFrame keys(interpreter_.argumentStack, target.indexRanges.size());
    if (!evaluateKeys(target, keys, 0)) return;
    Variable value = evaluateFirstValue();
    cutMulti(value);
    if (unwinding()) return;
    storeThroughKeys(target, keys.values(), value);
}

void AssignmentRun::storeThroughKeys(const ParsedAssignmentTarget& target,
                                     std::span<const Variable> keys, const Variable& value) {
    if (tryStoreArrayElement(target, keys, value)) return;
    Variable base;
    if (const Variable* found = interpreter_.lookUpVariable(token(target))) {
        base = *found;
    } else {
        if (!assignment_.isPlain) throwVariableNotFound(target);
        base = makeContainerFor(keys[0]);
        storeBase(target, base);
    }
    Variable* last = walkToLastContainer(interpreter_, base, keys, assignment_.isPlain);
    storeElement(target, *last, keys, value);
    storeBase(target, base);
}

/// The common end of the walk: an element that is there, in an array that the name leads to for
/// reading and for writing alike, so that nothing has to be stored back under the name.
bool AssignmentRun::tryStoreArrayElement(const ParsedAssignmentTarget& target,
                                         std::span<const Variable> keys, const Variable& value) {
    if (keys.size() != 1 || keys[0].type != VarType::Int || !assignment_.isPlain ||
        line_.assignmentScope != ScopeTarget::Default) {
        return false;
    }
    const Variable* found = interpreter_.readVariable(token(target));
    if (found == nullptr || found->type != VarType::Array ||
        found != interpreter_.variableForWriting(token(target))) {
        return false;
    }
    ArrayStorage& array = *found->asArray();
    const auto index = static_cast<std::size_t>(static_cast<std::int64_t>(keys[0].asInt()) - 1);
    if (index >= array.size()) return false;
    array[index] = value;
    interpreter_.observeAssigned(line_, target.nameToken, keys, value);
    return true;
}

/// `a, b = ...` with plain names only.
void AssignmentRun::runParallel() {
    if (assignment_.valueRanges.size() == 1 && assignment_.values[0].isCall()) {
        runSpreadCall(assignment_.values[0]);
        return;
    }
    ArgumentFrame values(interpreter_.argumentStack, assignment_.valueRanges.size());
    if (!evaluateValues(values)) return;
    if (values.size() == 1 && values[0].type == VarType::Multi) {
        const Shared<MultiResult> spread = values[0].asMulti();
        storeAll(spread->values);
    } else {
        storeAll(values.values());
    }
}

bool AssignmentRun::evaluateValues(ArgumentFrame& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = evaluate(assignment_.values[i], assignment_.valueRanges[i]);
        if (unwinding()) return false;
    }
    return true;
}

void AssignmentRun::storeAll(std::span<const Variable> values) {
    for (std::size_t i = 0; i < assignment_.targets.size(); ++i) {
        store(assignment_.targets[i], i < values.size() ? values[i] : nilValue());
    }
}

void AssignmentRun::storeFirst(const Variable& value) {
    store(assignment_.targets[0], value);
    for (std::size_t i = 1; i < assignment_.targets.size(); ++i) {
        store(assignment_.targets[i], Variable());
    }
}

/// `a, b = f(x)`: the results go to the targets.
void AssignmentRun::runSpreadCall(const FastExpression& expression) {
    const FastExprNode& call = expression.rootNode();
    ArgumentFrame arguments(interpreter_.argumentStack, static_cast<std::size_t>(call.intValue));
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const auto node = expression.callArguments[static_cast<std::size_t>(call.right) + i];
        arguments[i] = interpreter_.evaluateFastExpressionNode(expression, static_cast<int>(node),
                                                               line_.tokenAnalysis);
        if (unwinding()) return;
    }
    const Variable callee =
        interpreter_.evaluateFastExpressionNode(expression, call.left, line_.tokenAnalysis);
    if (unwinding()) return;

    const ScriptCallable* callable =
        callee.type == VarType::Function ? callee.asFunction().get() : nullptr;
    if (callable != nullptr && callable->isNative && !callable->isDecay &&
        callable->builtinId == BuiltinId::Pcall) {
        runProtectedCall(arguments.view());
        return;
    }
    if (callable != nullptr && !callable->isNative) {
        FastScalarValue scalar{};
        if (interpreter_.tryEvaluateFastCallableScalar(callee.asFunction(), arguments.view(),
                                                       scalar)) {
            if (!unwinding()) storeFirst(variableFromFastScalar(scalar));
            return;
        }
        if (unwinding()) return;
    }
    const Variable result = interpreter_.invokeCallableFast(callee, arguments.view());
    if (unwinding()) return;
    if (result.type == VarType::Multi) {
        storeAll(result.asMulti()->values);
    } else {
        storeFirst(result);
    }
}

/// `ok, result = pcall(f, ...)`.
void AssignmentRun::runProtectedCall(Arguments args) {
    const Variable outcome = interpreter_.spreadProtectedCall(args);
    if (!unwinding()) storeAll(outcome.asMulti()->values);
}

/// Several targets with indices or a compound operator, or values that do not match one target.
Variable AssignmentRun::runGeneral() {
    std::size_t keyCount = 0;
    for (const ParsedAssignmentTarget& target : assignment_.targets) {
        keyCount += target.indexRanges.size();
    }
    ArgumentFrame keys(interpreter_.argumentStack, keyCount);
    std::size_t first = 0;
    for (const ParsedAssignmentTarget& target : assignment_.targets) {
        if (!evaluateKeys(target, keys, first)) return {};
        first += target.indexRanges.size();
    }
    ArgumentFrame evaluated(interpreter_.argumentStack, assignment_.valueRanges.size());
    if (!evaluateValues(evaluated)) return {};
    std::span<const Variable> values = evaluated.values();
    Shared<MultiResult> spread;
    if (values.size() == 1 && values[0].type == VarType::Multi && assignment_.targets.size() >= 2) {
        spread = values[0].asMulti();
        values = spread->values;
    }

    Variable result;
    first = 0;
    for (std::size_t i = 0; i < assignment_.targets.size(); ++i) {
        const ParsedAssignmentTarget& target = assignment_.targets[i];
        const Variable& value = i < values.size() ? values[i] : nilValue();
        const std::size_t count = target.indexRanges.size();
        if (count == 0) {
            storePlain(target, value);
            if (assignment_.isPlain) result = value;
        } else {
            storeThroughKeys(target, {&keys[first], count}, value);
        }
        first += count;
    }
    return result;
}

Variable DovrelScript::spreadProtectedCall(Arguments args) {
    if (args.empty()) throwPlainError("pcall requires a callable value");
    if (args[0].type == VarType::Function) {
        bool ok = false;
        FastScalarValue scalar{};
        std::string message;
        bool answered = true;
        try {
            answered = tryEvaluateProtectedFastCallableScalar(args[0].asFunction(), args.from(1),
                                                              ok, scalar, message);
        } catch (const std::exception& error) {
            observeError(error);
            noteError(error.what());
            ok = false;
            message = error.what();
        }
        if (softErrorUnwinding()) return {};
        if (answered) {
            return Variable::makeMulti(
                {Variable::makeBool(ok), ok ? variableFromFastScalar(scalar) : Variable(message)});
        }
    }
    return protectedCall(args);
}

bool DovrelScript::executeAssignment(const ParsedScriptLine& line, Variable& result) {
    if (!line.prepared || line.assignment == nullptr) return false;
    result = AssignmentRun(*this, line).run();
    return true;
}

bool DovrelScript::tryExecuteDiscardedFastCall(const FastExpression& expression,
                                               const std::vector<TokenAnalysis>& analysis) {
    if (!expression.isCall()) return false;
    const FastExprNode& call = expression.rootNode();
    if (expression.nodes[static_cast<std::size_t>(call.left)].kind != NodeKind::Variable) {
        return false;
    }
    const ScriptCallable* native = findNativeCallee(expression, call.left, analysis);
    if (native == nullptr || native->builtinId != BuiltinId::Assert) return false;

    const auto count = static_cast<std::size_t>(call.intValue);
    if (static_cast<std::size_t>(call.right) + count > expression.callArguments.size()) {
        throwPlainError("Invalid fast call argument range");
    }
    if (count == 0) throwPlainError("assert requires at least 1 argument");
    ArgumentFrame arguments(argumentStack, count);
    if (!evaluateCallArguments(expression, call, analysis, arguments)) return true;
    if (isTruthy(arguments[0])) return true;
    raiseScriptErrorSoft(count > 1 ? arguments[1].toString() : "assertion failed!");
    return true;
}

void DovrelScript::executePlainLine(const ParsedScriptLine& line, Variable& value,
                                    DiscardedCall discardedCallValue) {
    if (executeAssignment(line, value)) return;
    if (line.expression.valid) {
        if (tryExecuteDiscardedFastCall(line.expression, line.tokenAnalysis)) {
            if (discardedCallValue == DiscardedCall::ClearsValue) value = Variable();
        } else {
            value = evaluateFastExpression(line.expression, line.tokenAnalysis);
        }
        return;
    }
    std::size_t position = 0;
    value = evaluateExpression(line.tokens, position, &line.tokenAnalysis);
    if (!softErrorUnwinding() && position < line.tokens.size()) {
        throwError("Unexpected trailing token", line.tokens[position]);
    }
}
