// Operators on other values than two numbers of a kind, and texts that are put together.
#include "exec/machine_values.h"

#include <array>
#include <charconv>
#include <string>
#include <string_view>
#include <utility>

#include "eval/binary_operation.h"
#include "eval/errors.h"
#include "eval/scalar_arithmetic.h"
#include "exec/machine.h"
#include "frontend/operator_table.h"
#include "value/operators.h"
#include "value/text.h"

namespace {

int operatorNumber(NodeKind kind) {
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
        case NodeKind::Modulo: return kModulo;
        default: return kPower;
    }
}

/// The texts of the values one behind the other.
std::string joinedTexts(const Variable* values, std::size_t count) {
    constexpr std::size_t kMost = 8;
    constexpr std::size_t kDigits = 11;  // a sign and the ten digits of the longest int
    std::array<std::string_view, kMost> pieces;
    std::array<std::array<char, kDigits>, kMost> digits;
    std::string text;
    std::size_t size = 0;
    std::size_t known = 0;
    for (; known < count && known < kMost; ++known) {
        const Variable& value = values[known];
        if (isTextValue(value)) {
            pieces[known] = value.asString();
        } else if (isIntValue(value)) {
            auto& room = digits[known];
            const auto end = std::to_chars(room.begin(), room.end(), value.rawInt());
            pieces[known] = {room.data(), static_cast<std::size_t>(end.ptr - room.data())};
        } else {
            break;
        }
        size += pieces[known].size();
    }
    text.reserve(size);
    for (std::size_t i = 0; i < known; ++i) text += pieces[i];
    for (std::size_t i = known; i < count; ++i) appendVariableStringFast(text, values[i]);
    return text;
}

/// Both tiers come to the same on two scalars.
bool tiersAgree(NodeKind kind, const FastScalarValue& left, const FastScalarValue& right) {
    if (kind >= NodeKind::Equal || kind == NodeKind::Divide) return true;
    if (kind == NodeKind::Power) return false;
    if (left.kind == ScalarKind::Int && right.kind == ScalarKind::Int) return true;
    return left.kind == ScalarKind::Float && right.kind == ScalarKind::Float &&
           kind <= NodeKind::Multiply;
}

}  // namespace

/// `left op right` for an int and a float, where all tiers come to the same: an int that has a
/// float of its own, and an operator that rounds once. False, with nothing done, for everything
/// else.
static bool tryMixedNumbers(NodeKind kind, Variable& target, const Variable& left,
                            const Variable& right) {
    constexpr int kMostExact = 1 << 24;
    const auto narrowed = [](const Variable& value, float& number) {
        if (isFloatValue(value)) {
            number = value.rawFloat();
            return true;
        }
        if (!isIntValue(value)) return false;
        const int exact = value.rawInt();
        number = static_cast<float>(exact);
        return exact >= -kMostExact && exact <= kMostExact;
    };
    float a = 0.0F;
    float b = 0.0F;
    if (!isFloatValue(left) && !isFloatValue(right)) return false;
    if (!narrowed(left, a) || !narrowed(right, b)) return false;
    switch (kind) {
        case NodeKind::Add: target.setFloat(a + b); return true;
        case NodeKind::Subtract: target.setFloat(a - b); return true;
        case NodeKind::Multiply: target.setFloat(a * b); return true;
        case NodeKind::Divide:
            if (b == 0.0F) return false;
            target.setFloat(a / b);
            return true;
        default: return false;
    }
}

bool Machine::binary(const MachineCode& code, Pc& pc, NodeKind kind, Variable& target,
                     const Variable& left, const Variable& right) {
    if (tryMixedNumbers(kind, target, left, right)) return true;
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (tier == Tier::Either || tier == Tier::Scalar) {
        const FastScalarValue a = soundScalar(left);
        const FastScalarValue b = soundScalar(right);
        if (a.isSet() && b.isSet()) {
            const FastScalarValue result = scalarOperationOn(kind, a, b);
            if (result.isSet()) {
                if (tier == Tier::Either && !tiersAgree(kind, a, b)) {
                    if (declined_ != nullptr) {
                        if (isWithinSite(code, pc, declined_)) {
                            decline(code, pc, activations_.back().base);
                            return false;
                        }
                        declined_ = nullptr;
                    }
                    diverged_ = pc;
                }
                assignFastScalarToVariable(target, result);
                return true;
            }
        }
        if (tier == Tier::Scalar) {
            decline(code, pc, activations_.back().base);
            return false;
        }
        if (diverged_ != nullptr) {
            if (isWithinSite(code, pc, diverged_)) {
                decline(code, pc, activations_.back().base);
                return false;
            }
            diverged_ = nullptr;
        }
        declined_ = pc;
    }
    if (tier == Tier::Tokens) {
        target = applyBinaryOperator(operatorNumber(kind), left, right);
        return true;
    }
    Variable first = left;
    target = generalOperation(kind, first, right);
    return true;
}

/// A comparison of two texts, by their bytes.
static bool compareTexts(NodeKind kind, const Text& left, const Text& right) {
    if (kind == NodeKind::Equal) return isSameText(left, right);
    if (kind == NodeKind::NotEqual) return !isSameText(left, right);
    const int order = left->text.compare(right->text);
    switch (kind) {
        case NodeKind::Less: return order < 0;
        case NodeKind::LessEqual: return order <= 0;
        case NodeKind::Greater: return order > 0;
        default: return order >= 0;
    }
}

bool Machine::compare(const MachineCode& code, Pc& pc, NodeKind kind, const Variable& left,
                      const Variable& right, bool& truth) {
    if (areFloats(left, right)) {
        truth = compareNumbers(kind, left.asFloat(), right.asFloat());
        return true;
    }
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (isTextValue(left) && isTextValue(right) && tier != Tier::Scalar &&
        (tier != Tier::Either || diverged_ == nullptr)) {
        // The scalar tier has nothing to say, and nothing has to be evaluated anew.
        if (tier == Tier::Either) declined_ = pc;
        truth = compareTexts(kind, left.asText(), right.asText());
        return true;
    }
    if (tier == Tier::Either || tier == Tier::Scalar) {
        // Both tiers come to the same on two scalars.
        const FastScalarValue a = soundScalar(left);
        const FastScalarValue b = soundScalar(right);
        if (a.isSet() && b.isSet()) {
            const FastScalarValue result = scalarComparisonOn(kind, a, b);
            if (result.isSet()) {
                truth = result.truth();
                return true;
            }
        }
    }
    Variable result;
    if (!binary(code, pc, kind, result, left, right)) return false;
    truth = result.asBool();
    return true;
}

/// An operator on other values than two numbers of a kind, with the operands that go with it.
bool Machine::slowBinary(const MachineCode& code, Pc& pc, Variable* registers, NodeKind kind,
                         const Variable& left, const Variable& right) {
    const MachineInstruction at = *pc;
    const auto tier = static_cast<Tier>(at.m & kTierMask);
    if (kind == NodeKind::Add && isTextValue(left) && isTextValue(right) &&
        (tier == Tier::General || (tier == Tier::Either && diverged_ == nullptr))) {
        // The scalar tier has nothing to say, and nothing has to be evaluated anew.
        if (tier == Tier::Either) declined_ = pc;
        if ((at.m & kFirstGoes) != 0 && left.asText().useCount() == 1) {
            Variable sum = std::move(registers[at.b]);
            appendToString(sum, right);
            registers[at.a] = std::move(sum);
        } else {
            std::string text;
            text.reserve(left.asString().size() + right.asString().size());
            text += left.asString();
            text += right.asString();
            registers[at.a] = Variable(std::move(text));
        }
    } else if (!binary(code, pc, kind, registers[at.a], left, right)) {
        return false;
    }
    if ((at.m & kFirstGoes) != 0) registers[at.b].setNil();
    if ((at.m & kSecondGoes) != 0) registers[at.c].setNil();
    return true;
}

/// The same for the comparisons that jump.
bool Machine::slowCompare(const MachineCode& code, Pc& pc, Variable* registers, NodeKind kind,
                          const Variable& left, const Variable& right, bool& truth,
                          bool hasSecond) {
    const MachineInstruction at = *pc;
    if (!compare(code, pc, kind, left, right, truth)) return false;
    if ((at.m & kFirstGoes) != 0) registers[at.a].setNil();
    if (hasSecond && (at.m & kSecondGoes) != 0) registers[at.b].setNil();
    return true;
}

bool Machine::unary(const MachineCode& code, Pc& pc, Variable& target, const Variable& operand) {
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (pc->op == Op::Length) {
        const int length = interpreter_.arrayLength(operand);
        target.setInt(length);
        return true;
    }
    const bool isScalar = operand.type == VarType::Int || operand.type == VarType::Float ||
                          operand.type == VarType::Bool || operand.type == VarType::Nil;
    if (pc->op == Op::Not) {
        if (isScalar && (tier == Tier::Either || tier == Tier::Scalar)) {
            const FastScalarValue scalar = scalarFromVariable(operand);
            const bool isZero = scalar.kind != ScalarKind::Bool && scalar.kind != ScalarKind::Nil &&
                                !isScalarTruthy(scalar);
            // A zero is where the tiers differ.
            if (isZero && tier == Tier::Either) {
                decline(code, pc, activations_.back().base);
                return false;
            }
            target.setBool(!isScalarTruthy(scalar));
            return true;
        }
        if (tier == Tier::Scalar) {
            decline(code, pc, activations_.back().base);
            return false;
        }
        const bool holds = isTruthy(operand);
        if (tier == Tier::Either) declined_ = pc;
        target.setBool(!holds);
        return true;
    }
    if (operand.type == VarType::Float) {
        target.setFloat(-operand.asFloat());
        return true;
    }
    if (operand.type == VarType::Int || operand.type == VarType::Bool) {
        target.setInt(wrapNegate(toInt(operand)));
        return true;
    }
    if (tier == Tier::Scalar) {
        decline(code, pc, activations_.back().base);
        return false;
    }
    if (tier == Tier::Tokens) {
        // Near the operator.
        showPosition(code, pc);
        interpreter_.throwError("Unary '-' requires a numeric value", "-");
    }
    throwPlainError("Unary '-' requires a numeric value");
}

/// The truth of a value by the rule of the tier that has given it.
bool Machine::truth(const MachineCode& code, Pc& pc, const Variable& value, bool& holds) {
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (tier == Tier::General || tier == Tier::Tokens) {
        holds = isTruthy(value);
        return true;
    }
    const FastScalarValue scalar = scalarFromVariable(value);
    if (!scalar.isSet()) {
        if (tier == Tier::Scalar) {
            decline(code, pc, activations_.back().base);
            return false;
        }
        if (diverged_ != nullptr) {
            if (isWithinSite(code, pc, diverged_)) {
                decline(code, pc, activations_.back().base);
                return false;
            }
            diverged_ = nullptr;
        }
        declined_ = pc;
        holds = isTruthy(value);
        return true;
    }
    holds = isScalarTruthy(scalar);
    const bool isZero =
        !holds && (scalar.kind == ScalarKind::Int || scalar.kind == ScalarKind::Float);
    if (isZero && tier == Tier::Either && (pc->m & kAloneTest) == 0) {
        decline(code, pc, activations_.back().base);
        return false;
    }
    return true;
}

bool Machine::join(const MachineCode& code, Pc& pc, Variable& target, Variable* operands,
                   std::size_t count) {
    const auto clear = [&] {
        for (std::size_t i = 0; i < count; ++i) operands[i].setNil();
    };
    if (count >= 2 &&
        (operands[0].type == VarType::String || operands[1].type == VarType::String)) {
        const auto tier = static_cast<Tier>(pc->m & kTierMask);
        if (tier == Tier::Either) {
            if (diverged_ != nullptr) {
                if (isWithinSite(code, pc, diverged_)) {
                    decline(code, pc, activations_.back().base);
                    return false;
                }
                diverged_ = nullptr;
            }
            declined_ = pc;
        }
        std::string text = joinedTexts(operands, count);
        clear();
        target = Variable(std::move(text));
        return true;
    }
    Variable sum = std::move(operands[0]);
    operands[0].setNil();
    for (std::size_t i = 1; i < count; ++i) {
        Variable next;
        if (!binary(code, pc, NodeKind::Add, next, sum, operands[i])) return false;
        sum = std::move(next);
    }
    clear();
    target = std::move(sum);
    return true;
}

/// `variable + operand + ...` in `result`.
bool Machine::addToCopy(const MachineCode& code, Pc& pc, const Variable& variable,
                        Variable* operands, std::size_t count, Variable& result) {
    if (count == 1 && !isTextValue(operands[0])) {
        return binary(code, pc, NodeKind::Add, result, variable, operands[0]);
    }
    std::vector<Variable> all;
    all.reserve(count + 1);
    all.push_back(variable);
    all.insert(all.end(), operands, operands + count);
    return join(code, pc, result, all.data(), all.size());
}

/// The text of `variable` grows by the operands.
void Machine::growText(Variable& variable, Variable* operands, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        static_cast<void>(tryApplyOperationInPlace(variable, '+', operands[i]));
    }
    declined_ = nullptr;
}

bool Machine::append(const MachineCode& code, Pc& pc, Variable* registers) {
    const MachineInstruction at = *pc;
    Variable& variable = registers[at.a];
    Variable* const operands = registers + at.b;
    if (isTextValue(variable)) {
        growText(variable, operands, at.c);
    } else {
        Variable result;
        if (!addToCopy(code, pc, variable, operands, at.c, result)) return false;
        variable = std::move(result);
    }
    clearOperands(at, operands);
    return true;
}

bool Machine::appendGlobal(const MachineCode& code, Pc& pc, Variable* registers) {
    const Pc before = pc;
    const MachineInstruction at = *pc;
    Variable* const operands = registers + at.b;
    Variable& variable = *variableForStore(code, at.a);  // known, and globals stay
    if (isTextValue(variable)) {
        growText(variable, operands, at.c);
        clearOperands(at, operands);
        return true;
    }
    Variable result;
    const bool isJoined = addToCopy(code, pc, variable, operands, at.c, result);
    if (isJoined) {
        clearOperands(at, operands);
    } else {
        // The tiers have put it into the register of the site.
        const ExpressionSite* site = siteAt(code, before, false);
        result = std::move(registers[site->result]);
        registers[site->result].setNil();
    }
    *variableForStore(code, at.a) = std::move(result);
    return isJoined;
}

/// Several operands stand in registers of their own; a single one may be a variable.
void Machine::clearOperands(const MachineInstruction& at, Variable* operands) {
    if (at.c == 1 && (at.m & kSecondGoes) == 0) return;
    for (std::size_t i = 0; i < at.c; ++i) operands[i].setNil();
}
