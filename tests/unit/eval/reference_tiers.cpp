#include "reference_tiers.h"

#include <cmath>
#include <cstdint>
#include <stdexcept>

#include "library/natives.h"
#include "value/operators.h"

namespace {

using Scalar = FastScalarValue;

[[noreturn]] void refuse(const char* message) { throw std::runtime_error(message); }

std::uint32_t bits(int number) { return static_cast<std::uint32_t>(number); }

/// Int arithmetic in 32 bits, from wider arithmetic cut down.
int intOperation(NodeKind kind, int a, int b) {
    switch (kind) {
        case NodeKind::Add: return static_cast<int>(bits(a) + bits(b));
        case NodeKind::Subtract: return static_cast<int>(bits(a) - bits(b));
        case NodeKind::Multiply: return static_cast<int>(bits(a) * bits(b));
        default: break;
    }
    if (b == 0) refuse("Division by zero");
    const std::int64_t quotient = static_cast<std::int64_t>(a) / b;
    if (kind == NodeKind::IntDivide) {
        return static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(quotient)));
    }
    return static_cast<int>(a - quotient * b);
}

double toReal(const Scalar& value) {
    switch (value.kind) {
        case ScalarKind::Int: return value.intValue;
        case ScalarKind::Float: return static_cast<double>(value.floatValue);
        default: return value.truth() ? 1.0 : 0.0;
    }
}

int toWhole(const Scalar& value) {
    if (value.kind == ScalarKind::Int) return value.intValue;
    if (value.kind == ScalarKind::Bool) return value.truth() ? 1 : 0;
    const double number = std::trunc(static_cast<double>(value.floatValue));
    if (std::isnan(number)) return 0;
    if (number >= 9223372036854775808.0) return -1;
    if (number <= -9223372036854775808.0) return 0;
    const auto wide = static_cast<std::uint64_t>(static_cast<std::int64_t>(number));
    return static_cast<int>(static_cast<std::uint32_t>(wide));
}

bool isTrue(const Scalar& value) {
    switch (value.kind) {
        case ScalarKind::Int: return value.intValue != 0;
        case ScalarKind::Float: return value.floatValue != 0.0F;
        case ScalarKind::Bool: return value.truth();
        default: return false;
    }
}

bool toScalar(const Variable& value, Scalar& out) {
    switch (value.type) {
        case VarType::Nil: out = Scalar::nil(); return true;
        case VarType::Int: out = Scalar::fromInt(value.asInt()); return true;
        case VarType::Float: out = Scalar::fromFloat(value.asFloat()); return true;
        case VarType::Bool: out = Scalar::fromBool(value.asBool()); return true;
        default: return false;
    }
}

Variable toVariable(const Scalar& value) {
    switch (value.kind) {
        case ScalarKind::Int: return Variable::makeInt(value.intValue);
        case ScalarKind::Float: return Variable::makeFloat(value.floatValue);
        case ScalarKind::Bool: return Variable::makeBool(value.truth());
        default: return {};
    }
}

Scalar narrowed(double number) { return Scalar::fromFloat(static_cast<float>(number)); }

bool isNumberKind(VarType type) {
    return type == VarType::Int || type == VarType::Float || type == VarType::Bool;
}

bool isIntBinary(NodeKind kind) {
    return kind == NodeKind::Add || kind == NodeKind::Subtract || kind == NodeKind::Multiply ||
           kind == NodeKind::IntDivide || kind == NodeKind::Modulo;
}

char operatorOf(NodeKind kind) { return "+-*/\\%^"[static_cast<int>(kind) - 12]; }

/// -1, 0 or 1 by which an order operator decides.
bool holds(NodeKind kind, int sign) {
    switch (kind) {
        case NodeKind::Less: return sign < 0;
        case NodeKind::Greater: return sign > 0;
        case NodeKind::LessEqual: return sign <= 0;
        default: return sign >= 0;
    }
}

}  // namespace

// ------------------------------------------------------------------------------ the ways in

Variable ReferenceTiers::whole() {
    if (expression_.valid && at(expression_.root).kind == NodeKind::Call) return general();
    if (expression_.valid && at(expression_.root).kind == NodeKind::Add) {
        std::string text;
        if (concat(expression_.root, text)) return Variable(text);
        if (unwinding()) return {};
    }
    return assigned();
}

Variable ReferenceTiers::assigned() {
    Scalar value{};
    if (scalar(expression_.root, value)) return toVariable(value);
    if (unwinding()) return {};
    return general();
}

bool ReferenceTiers::condition(DovrelScript::ConditionTiers tiers) {
    bool truth = false;
    if (tiers == DovrelScript::ConditionTiers::BoolFirst) {
        if (boolean(expression_.root, truth)) return truth;
        if (unwinding()) return false;
    }
    Scalar value{};
    if (scalar(expression_.root, value)) return isTrue(value);
    if (unwinding()) return false;
    const Variable result = whole();
    return !unwinding() && isTruthy(result);
}

// ------------------------------------------------------------------------------- shared steps

const Variable* ReferenceTiers::named(int index) {
    if (at(index).kind != NodeKind::Variable) return nullptr;
    return interpreter_.resolveVariableFastPtr(analysis_[at(index).tokenIndex]);
}

/// The base of an index, or what has a length.
bool ReferenceTiers::operand(int index, Variable& out) {
    if (const Variable* variable = named(index)) {
        out = *variable;
        return true;
    }
    out = general(index);
    return !unwinding();
}

bool ReferenceTiers::arguments(const FastExprNode& call, std::vector<Variable>& values) {
    for (int i = 0; i < call.intValue; ++i) {
        const auto argument = expression_.callArguments[static_cast<std::size_t>(call.right + i)];
        values.push_back(general(static_cast<int>(argument)));
        if (unwinding()) return false;
    }
    return true;
}

const ScriptCallable* ReferenceTiers::native(int callee, bool libraryOnly) {
    const FastExprNode& node = at(callee);
    Variable value;
    if (node.kind == NodeKind::Variable && !libraryOnly) {
        if (const Variable* variable = named(callee)) value = *variable;
    } else if (node.kind == NodeKind::Index && at(node.right).kind == NodeKind::StringLiteral) {
        const Variable* base = named(node.left);
        if (base == nullptr || base->type != VarType::Table) return nullptr;
        const auto* found = base->asTable()->find(expression_.strings[at(node.right).stringIndex]);
        if (found != nullptr) value = *found;
    }
    if (value.type != VarType::Function || !value.asFunction()->isNative) return nullptr;
    return value.asFunction().get();  // the variable that holds it goes on doing so
}

bool ReferenceTiers::length(const FastExprNode& node, int& out) {
    Variable value;
    if (!operand(node.left, value)) return false;
    out = interpreter_.arrayLength(value);
    return true;
}

// ------------------------------------------------------------------------------- general tier

Variable ReferenceTiers::general(int index) {
    const FastExprNode& node = at(index);
    switch (node.kind) {
        case NodeKind::IntLiteral: return Variable::makeInt(node.intValue);
        case NodeKind::FloatLiteral: return Variable::makeFloat(node.floatValue);
        case NodeKind::StringLiteral: return Variable(expression_.strings[node.stringIndex]);
        case NodeKind::BoolLiteral: return Variable::makeBool(node.boolValue);
        case NodeKind::NilLiteral: return {};
        case NodeKind::Variable: {
            const Variable* variable = named(index);
            return variable != nullptr ? *variable : Variable();
        }
        case NodeKind::Index: return generalIndex(node);
        case NodeKind::Call: return generalCall(node);
        case NodeKind::Negate: {
            const Variable value = general(node.left);
            if (unwinding()) return {};
            if (value.type == VarType::Float) return Variable::makeFloat(-value.asFloat());
            if (!isNumberKind(value.type)) refuse("Unary '-' requires a numeric value");
            const int number = value.type == VarType::Int ? value.asInt() : value.asBool();
            return Variable::makeInt(static_cast<int>(0U - bits(number)));
        }
        case NodeKind::Not: {
            const Variable value = general(node.left);
            return unwinding() ? Variable() : Variable::makeBool(!isTruthy(value));
        }
        case NodeKind::Length: {
            const Variable value = general(node.left);
            return unwinding() ? Variable() : Variable::makeInt(interpreter_.arrayLength(value));
        }
        case NodeKind::And:
        case NodeKind::Or: {
            const Variable left = general(node.left);
            if (unwinding()) return {};
            return isTruthy(left) == (node.kind == NodeKind::And) ? general(node.right) : left;
        }
        default: return generalBinary(node, index);
    }
}

Variable ReferenceTiers::generalBinary(const FastExprNode& node, int index) {
    if (node.kind == NodeKind::Add) {
        std::string text;
        if (concat(index, text)) return Variable(text);
        if (unwinding()) return {};
    }
    const Variable left = general(node.left);
    if (unwinding()) return {};
    const Variable right = general(node.right);
    if (unwinding()) return {};
    if (node.kind == NodeKind::Equal || node.kind == NodeKind::NotEqual) {
        return Variable::makeBool(variablesEqual(left, right) == (node.kind == NodeKind::Equal));
    }
    if (isComparison(node.kind)) {
        return Variable::makeBool(holds(node.kind, compareVariables(left, right)));
    }
    const bool areInts = left.type == VarType::Int && right.type == VarType::Int;
    if (node.kind == NodeKind::Modulo && !areInts && isNumberKind(left.type) &&
        isNumberKind(right.type)) {
        Scalar a{};
        Scalar b{};
        static_cast<void>(toScalar(left, a));
        static_cast<void>(toScalar(right, b));
        if (toReal(b) == 0.0) refuse("Division by zero");
        return Variable::makeFloat(
            std::fmod(static_cast<float>(toReal(a)), static_cast<float>(toReal(b))));
    }
    return performOperation(left, operatorOf(node.kind), right);
}

Variable ReferenceTiers::generalIndex(const FastExprNode& node) {
    Variable base;
    if (!operand(node.left, base)) return {};
    const FastExprNode& key = at(node.right);
    if (key.kind == NodeKind::StringLiteral) {
        return interpreter_.getIndexedValue(base, Variable(expression_.strings[key.stringIndex]));
    }
    Variable position;
    int number = 0;
    if (base.type == VarType::Array && integer(node.right, number)) {
        position = Variable::makeInt(number);
    } else {
        if (unwinding()) return {};
        position = general(node.right);
    }
    if (unwinding()) return {};
    // The key may have replaced the variable that holds the base.
    if (named(node.left) != nullptr) base = *named(node.left);
    return interpreter_.getIndexedValue(base, position);
}

Variable ReferenceTiers::generalCall(const FastExprNode& node) {
    std::vector<Variable> values;
    if (!arguments(node, values)) return {};
    const Arguments list(values);
    const ScriptCallable* member = native(node.left, true);
    if (member != nullptr && member->builtinId != BuiltinId::None) {
        Variable result = interpreter_.dispatchBuiltinFast(member->builtinId, list);
        return unwinding() ? Variable() : result;
    }
    const Variable callee = general(node.left);
    if (unwinding()) return {};
    return interpreter_.invokeCallableFast(callee, list);
}

bool ReferenceTiers::concat(int index, std::string& out) {
    const FastExprNode& node = at(index);
    switch (node.kind) {
        case NodeKind::Add: return concat(node.left, out) && concat(node.right, out);
        case NodeKind::StringLiteral: out += expression_.strings[node.stringIndex]; return true;
        case NodeKind::Call: break;
        default: return false;
    }
    if (at(node.left).kind != NodeKind::Variable || node.intValue != 1) return false;
    const ScriptCallable* callee = native(node.left, false);
    if (callee == nullptr || callee->builtinId != BuiltinId::ToString) return false;
    std::vector<Variable> values;
    if (!arguments(node, values)) return false;
    out += values[0].toString();
    return true;
}

// -------------------------------------------------------------------------------- scalar tier

bool ReferenceTiers::scalar(int index, Scalar& out) {
    const FastExprNode& node = at(index);
    switch (node.kind) {
        case NodeKind::IntLiteral: out = Scalar::fromInt(node.intValue); return true;
        case NodeKind::FloatLiteral: out = Scalar::fromFloat(node.floatValue); return true;
        case NodeKind::BoolLiteral: out = Scalar::fromBool(node.boolValue); return true;
        case NodeKind::NilLiteral: out = Scalar::nil(); return true;
        case NodeKind::Variable: {
            const Variable* variable = named(index);
            return toScalar(variable != nullptr ? *variable : Variable(), out);
        }
        case NodeKind::Index: return scalarIndex(node, out);
        case NodeKind::Call: return scalarCall(node, out);
        case NodeKind::Negate:
            if (!scalar(node.left, out) || !out.isNumeric()) return false;
            out = out.kind == ScalarKind::Float
                      ? Scalar::fromFloat(-out.floatValue)
                      : Scalar::fromInt(static_cast<int>(0U - bits(toWhole(out))));
            return true;
        case NodeKind::Not:
            if (!scalar(node.left, out)) return false;
            out = Scalar::fromBool(!isTrue(out));
            return true;
        case NodeKind::Length: {
            int number = 0;
            if (!length(node, number)) return false;
            out = Scalar::fromInt(number);
            return true;
        }
        case NodeKind::And:
        case NodeKind::Or:
            if (!scalar(node.left, out)) return false;
            return isTrue(out) != (node.kind == NodeKind::And) || scalar(node.right, out);
        case NodeKind::StringLiteral:
        case NodeKind::None: return false;
        default: break;
    }
    if (!isComparison(node.kind)) return arithmetic(node, out);
    bool truth = false;
    if (!comparison(node, truth)) return false;
    out = Scalar::fromBool(truth);
    return true;
}

bool ReferenceTiers::arithmetic(const FastExprNode& node, Scalar& out) {
    if (isIntBinary(node.kind) && !node.floatResult) {
        int a = 0;
        int b = 0;
        if (integer(node.left, a) && integer(node.right, b)) {
            out = Scalar::fromInt(intOperation(node.kind, a, b));
            return true;
        }
        if (unwinding()) return false;
    }
    Scalar a{};
    Scalar b{};
    if (!scalar(node.left, a) || !a.isNumeric() || !scalar(node.right, b) || !b.isNumeric()) {
        return false;
    }
    const bool intLike = a.kind != ScalarKind::Float && b.kind != ScalarKind::Float;
    if (node.kind == NodeKind::IntDivide || (intLike && isIntBinary(node.kind))) {
        out = Scalar::fromInt(intOperation(node.kind, toWhole(a), toWhole(b)));
        return true;
    }
    const double x = toReal(a);
    const double y = toReal(b);
    switch (node.kind) {
        case NodeKind::Add: out = narrowed(x + y); break;
        case NodeKind::Subtract: out = narrowed(x - y); break;
        case NodeKind::Multiply: out = narrowed(x * y); break;
        case NodeKind::Power: out = narrowed(std::pow(x, y)); break;
        default:
            if (y == 0.0) refuse("Division by zero");
            out = narrowed(node.kind == NodeKind::Divide ? x / y : std::fmod(x, y));
            break;
    }
    return true;
}

bool ReferenceTiers::comparison(const FastExprNode& node, bool& out) {
    const bool isEquality = node.kind == NodeKind::Equal || node.kind == NodeKind::NotEqual;
    if (!node.floatResult) {
        int a = 0;
        int b = 0;
        if (integer(node.left, a) && integer(node.right, b)) {
            const int sign = a > b ? 1 : a < b ? -1 : 0;
            out =
                isEquality ? (sign == 0) == (node.kind == NodeKind::Equal) : holds(node.kind, sign);
            return true;
        }
        if (unwinding()) return false;
    }
    Scalar a{};
    Scalar b{};
    if (!scalar(node.left, a) || !scalar(node.right, b)) return false;
    if (isEquality) {
        const bool equal =
            a.isNumeric() && b.isNumeric() ? toReal(a) == toReal(b) : a.kind == b.kind;
        out = equal == (node.kind == NodeKind::Equal);
        return true;
    }
    if (!a.isNumeric() || !b.isNumeric()) return false;
    out = holds(node.kind, toReal(a) > toReal(b) ? 1 : toReal(a) == toReal(b) ? 0 : -1);
    return true;
}

bool ReferenceTiers::scalarIndex(const FastExprNode& node, Scalar& out) {
    Variable base;
    if (!operand(node.left, base)) return false;
    const FastExprNode& keyNode = at(node.right);
    Variable key;
    Scalar keyScalar{};
    if (keyNode.kind == NodeKind::StringLiteral) {
        key = Variable(expression_.strings[keyNode.stringIndex]);
    } else if (scalar(node.right, keyScalar)) {
        key = toVariable(keyScalar);
    } else {
        if (unwinding()) return false;
        key = general(node.right);
        if (unwinding()) return false;
    }
    if (named(node.left) != nullptr) base = *named(node.left);

    if (base.type == VarType::Array) {
        if (key.type == VarType::Float) {
            const float number = key.asFloat();
            if (!(number == std::trunc(number)) || std::fabs(number) > 2147483648.0F) return false;
            key = Variable::makeInt(toWhole(Scalar::fromFloat(number)));
        }
        if (key.type != VarType::Int) return false;
        return toScalar(interpreter_.getIndexedValue(base, key), out);
    }
    if (base.type != VarType::Table) return false;
    if (!isNumberKind(key.type) && key.type != VarType::String) return false;
    return toScalar(interpreter_.getIndexedValue(base, key), out);
}

bool ReferenceTiers::scalarCall(const FastExprNode& node, Scalar& out) {
    const ScriptCallable* callable = native(node.left, false);
    const BuiltinId id = callable != nullptr ? callable->builtinId : BuiltinId::None;
    switch (id) {
        case BuiltinId::None: break;
        case BuiltinId::ToNumber:
        case BuiltinId::Len:
        case BuiltinId::StringLen:
        case BuiltinId::StringByte:
        case BuiltinId::Utf8Len: {
            std::vector<Variable> values;
            if (!arguments(node, values)) return false;
            const Arguments list(values);
            if (id == BuiltinId::StringByte && !stringByteRangeReturnsScalar(list)) {
                return false;
            }
            if (id == BuiltinId::ToNumber && (values.empty() || values.size() > 2)) return false;
            return toScalar(interpreter_.dispatchBuiltinFast(id, list), out);
        }
        default: return scalarMath(id, node, out);
    }
    std::vector<Variable> values;
    if (!arguments(node, values)) return false;
    const Variable callee = general(node.left);
    if (unwinding() || callee.type != VarType::Function) return false;
    const Arguments list(values);
    return interpreter_.tryEvaluateFastCallableScalar(callee.asFunction(), list, out) &&
           !unwinding();
}

bool ReferenceTiers::scalarMath(BuiltinId id, const FastExprNode& node, Scalar& out) {
    if (id != BuiltinId::GetTimeMs && (id < BuiltinId::MathFloor || id > BuiltinId::MathSqrt)) {
        return false;
    }
    std::vector<Scalar> values(static_cast<std::size_t>(node.intValue));
    std::vector<Variable> variables;
    for (int i = 0; i < node.intValue; ++i) {
        const auto argument = expression_.callArguments[static_cast<std::size_t>(node.right + i)];
        Scalar& value = values[static_cast<std::size_t>(i)];
        if (!scalar(static_cast<int>(argument), value)) return false;
        variables.push_back(toVariable(value));
    }
    const bool mayBeEmpty =
        id == BuiltinId::GetTimeMs || id == BuiltinId::MathMin || id == BuiltinId::MathMax;
    const bool mayBeSeveral = id == BuiltinId::MathMin || id == BuiltinId::MathMax;
    const std::size_t most = id == BuiltinId::MathLog ? 2 : 1;
    if ((values.empty() && !mayBeEmpty) || (values.size() > most && !mayBeSeveral)) {
        if (id != BuiltinId::GetTimeMs) return false;
    }
    for (const Scalar& value : values) {
        if (!value.isNumeric() && id != BuiltinId::GetTimeMs) return false;
    }
    // From here on as the native, which takes numbers of any kind.
    return toScalar(interpreter_.dispatchBuiltinFast(id, Arguments(variables)), out);
}

// -------------------------------------------------------------------------- int and bool tiers

bool ReferenceTiers::integer(int index, int& out) {
    const FastExprNode& node = at(index);
    switch (node.kind) {
        case NodeKind::IntLiteral: out = node.intValue; return true;
        case NodeKind::BoolLiteral: out = node.boolValue ? 1 : 0; return true;
        case NodeKind::Variable:
        case NodeKind::Index: {
            if (node.kind == NodeKind::Variable && named(index) == nullptr) return false;
            Scalar value{};
            if (!scalar(index, value)) return false;
            if (value.kind != ScalarKind::Int && value.kind != ScalarKind::Bool) return false;
            out = toWhole(value);
            return true;
        }
        case NodeKind::Negate:
            if (!integer(node.left, out)) return false;
            out = static_cast<int>(0U - bits(out));
            return true;
        case NodeKind::Length: return length(node, out);
        default: break;
    }
    if (!isIntBinary(node.kind)) return false;
    int a = 0;
    int b = 0;
    if (!integer(node.left, a) || !integer(node.right, b)) return false;
    out = intOperation(node.kind, a, b);
    return true;
}

bool ReferenceTiers::boolean(int index, bool& out) {
    const FastExprNode& node = at(index);
    const auto byScalar = [&](int child) {
        Scalar value{};
        if (unwinding() || !scalar(child, value)) return false;
        out = isTrue(value);
        return true;
    };
    switch (node.kind) {
        case NodeKind::IntLiteral:
        case NodeKind::BoolLiteral:
        case NodeKind::Variable: return byScalar(index);
        case NodeKind::Not:
            if (!boolean(node.left, out) && !byScalar(node.left)) return false;
            out = !out;
            return true;
        case NodeKind::And:
        case NodeKind::Or: {
            const bool byBool = boolean(node.left, out);
            if (!byBool && !byScalar(node.left)) return false;
            if (out != (node.kind == NodeKind::And)) return true;
            return boolean(node.right, out) || (!byBool && byScalar(node.right));
        }
        default: return isComparison(node.kind) && comparison(node, out);
    }
}
