// One instruction of the straight-line form of an expression, inline for the two loops that run
// such code: that of a single expression and that of hot code.
#pragma once

#include "eval/scalar_arithmetic.h"
#include "eval/variable_access.h"
#include "frontend/scalar_code.h"

/// The element that a place leads to; null if the scalar tier has to look itself.
inline const Variable* elementOf(const Variable& place, const FastScalarValue& key) {
    if (place.type != VarType::Array || key.kind != ScalarKind::Int) return nullptr;
    return &elementOrNil(*place.asArray(), key.intValue);
}

/// The entry that a place leads to; null if it is no table.
inline const Variable* entryOf(const Variable& place, const std::string& key) {
    if (place.type != VarType::Table) return nullptr;
    const TableStorage& table = *place.asTable();
    const auto* found = table.find(key);
    return found != nullptr ? found : &nilValue();
}

inline FastScalarValue negatedScalar(const FastScalarValue& operand) {
    if (!operand.isNumeric()) return {};
    if (operand.kind == ScalarKind::Float) return FastScalarValue::fromFloat(-operand.floatValue);
    return FastScalarValue::fromInt(wrapNegate(fastScalarToInt(operand)));
}

inline bool isExactOperator(const ScalarInstruction& instruction) {
    return (instruction.kind & kExactOperator) != 0;
}

/// Replaces the two topmost values by the result of `kind`; false declines, and leaves them.
template <NodeKind kind>
[[gnu::always_inline]] inline bool stepOperator(const ScalarInstruction& instruction,
                                                FastScalarValue*& top) {
    const FastScalarValue result =
        scalarOperationOn(kind, top[-2], top[-1], isExactOperator(instruction));
    if (!result.isSet()) return false;
    --top;
    top[-1] = result;
    return true;
}

/// Pushes the result of `kind` on the variable of an instruction and its int.
template <NodeKind kind, typename Variables>
[[gnu::always_inline]] inline bool stepOperatorInt(const ScalarInstruction& instruction,
                                                   FastScalarValue*& top, Variables& variables) {
    const FastScalarValue left = variables.scalar(instruction.token);
    if (!left.isSet()) return false;
    const FastScalarValue result = scalarOperationOn(
        kind, left, FastScalarValue::fromInt(instruction.intValue), isExactOperator(instruction));
    if (!result.isSet()) return false;
    *top++ = result;
    return true;
}

/// The same on its two variables.
template <NodeKind kind, typename Variables>
[[gnu::always_inline]] inline bool stepOperatorVariable(const ScalarInstruction& instruction,
                                                        FastScalarValue*& top,
                                                        Variables& variables) {
    const FastScalarValue left = variables.scalar(instruction.token);
    if (!left.isSet()) return false;
    const FastScalarValue right =
        variables.scalar(static_cast<std::uint16_t>(instruction.intValue));
    if (!right.isSet()) return false;
    const FastScalarValue result =
        scalarOperationOn(kind, left, right, isExactOperator(instruction));
    if (!result.isSet()) return false;
    *top++ = result;
    return true;
}

/// Runs the instruction at `at`, which is none of hot code, and leaves `at` on the last instruction
/// that is done with. False declines; operators and PushVariable then leave all values as they are.
/// `top` points behind the topmost value and `place` behind the
/// last place. `variables` answers `scalar(token)`, unset to decline, `place(token)`, null to
/// decline, and `key(index)`, the text of a literal key.
template <typename Variables>
[[nodiscard, gnu::always_inline]] inline bool stepScalarCode(const ScalarInstruction*& at,
                                                             FastScalarValue*& top,
                                                             const Variable**& place,
                                                             Variables& variables) {
    const ScalarInstruction& instruction = *at;
    switch (instruction.opcode) {
        case ScalarOpcode::PushInt:
            *top++ = FastScalarValue::fromInt(instruction.intValue);
            return true;
        case ScalarOpcode::PushFloat:
            *top++ = FastScalarValue::fromFloat(instruction.floatValue);
            return true;
        case ScalarOpcode::PushBool:
            *top++ = FastScalarValue::fromBool(instruction.intValue != 0);
            return true;
        case ScalarOpcode::PushNil: *top++ = FastScalarValue::nil(); return true;
        case ScalarOpcode::PushVariable: {
            const FastScalarValue value = variables.scalar(instruction.token);
            if (!value.isSet()) return false;
            *top++ = value;
            return true;
        }
        case ScalarOpcode::PushPlace: {
            const FastScalarValue value = soundScalar(**--place);
            *top++ = value;
            return value.isSet();
        }
        case ScalarOpcode::PlaceVariable: {
            const Variable* variable = variables.place(instruction.token);
            *place++ = variable;
            return variable != nullptr;
        }
        case ScalarOpcode::PlaceElement: {
            const Variable* element = elementOf(*place[-1], *--top);
            place[-1] = element;
            return element != nullptr;
        }
        case ScalarOpcode::PlaceElementAt: {
            const FastScalarValue key = variables.scalar(instruction.token);
            const Variable* element = elementOf(*place[-1], key);
            place[-1] = element;
            return element != nullptr;
        }
        case ScalarOpcode::PushElementAt: {
            const FastScalarValue key = variables.scalar(instruction.token);
            const Variable* element = elementOf(**--place, key);
            if (element == nullptr) return false;
            const FastScalarValue value = soundScalar(*element);
            *top++ = value;
            return value.isSet();
        }
        case ScalarOpcode::PlaceEntry: {
            const Variable* entry = entryOf(*place[-1], variables.key(instruction.intValue));
            place[-1] = entry;
            return entry != nullptr;
        }
        case ScalarOpcode::Negate: {
            const FastScalarValue result = negatedScalar(top[-1]);
            top[-1] = result;
            return result.isSet();
        }
        case ScalarOpcode::Not:
            top[-1] = FastScalarValue::fromBool(!isScalarTruthy(top[-1]));
            return true;
        case ScalarOpcode::SkipIfFalse:
        case ScalarOpcode::SkipIfTrue:
            if (isScalarTruthy(top[-1]) == (instruction.opcode == ScalarOpcode::SkipIfTrue)) {
                at += instruction.intValue;
            } else {
                --top;
            }
            return true;
        case ScalarOpcode::Add: return stepOperator<NodeKind::Add>(instruction, top);
        case ScalarOpcode::Subtract: return stepOperator<NodeKind::Subtract>(instruction, top);
        case ScalarOpcode::Multiply: return stepOperator<NodeKind::Multiply>(instruction, top);
        case ScalarOpcode::Divide: return stepOperator<NodeKind::Divide>(instruction, top);
        case ScalarOpcode::IntDivide: return stepOperator<NodeKind::IntDivide>(instruction, top);
        case ScalarOpcode::Modulo: return stepOperator<NodeKind::Modulo>(instruction, top);
        case ScalarOpcode::Power: return stepOperator<NodeKind::Power>(instruction, top);
        case ScalarOpcode::Equal: return stepOperator<NodeKind::Equal>(instruction, top);
        case ScalarOpcode::NotEqual: return stepOperator<NodeKind::NotEqual>(instruction, top);
        case ScalarOpcode::Less: return stepOperator<NodeKind::Less>(instruction, top);
        case ScalarOpcode::Greater: return stepOperator<NodeKind::Greater>(instruction, top);
        case ScalarOpcode::LessEqual: return stepOperator<NodeKind::LessEqual>(instruction, top);
        case ScalarOpcode::GreaterEqual:
            return stepOperator<NodeKind::GreaterEqual>(instruction, top);
        case ScalarOpcode::AddInt:
            return stepOperatorInt<NodeKind::Add>(instruction, top, variables);
        case ScalarOpcode::SubtractInt:
            return stepOperatorInt<NodeKind::Subtract>(instruction, top, variables);
        case ScalarOpcode::MultiplyInt:
            return stepOperatorInt<NodeKind::Multiply>(instruction, top, variables);
        case ScalarOpcode::DivideInt:
            return stepOperatorInt<NodeKind::Divide>(instruction, top, variables);
        case ScalarOpcode::IntDivideInt:
            return stepOperatorInt<NodeKind::IntDivide>(instruction, top, variables);
        case ScalarOpcode::ModuloInt:
            return stepOperatorInt<NodeKind::Modulo>(instruction, top, variables);
        case ScalarOpcode::PowerInt:
            return stepOperatorInt<NodeKind::Power>(instruction, top, variables);
        case ScalarOpcode::EqualInt:
            return stepOperatorInt<NodeKind::Equal>(instruction, top, variables);
        case ScalarOpcode::NotEqualInt:
            return stepOperatorInt<NodeKind::NotEqual>(instruction, top, variables);
        case ScalarOpcode::LessInt:
            return stepOperatorInt<NodeKind::Less>(instruction, top, variables);
        case ScalarOpcode::GreaterInt:
            return stepOperatorInt<NodeKind::Greater>(instruction, top, variables);
        case ScalarOpcode::LessEqualInt:
            return stepOperatorInt<NodeKind::LessEqual>(instruction, top, variables);
        case ScalarOpcode::GreaterEqualInt:
            return stepOperatorInt<NodeKind::GreaterEqual>(instruction, top, variables);
        case ScalarOpcode::AddVariable:
            return stepOperatorVariable<NodeKind::Add>(instruction, top, variables);
        case ScalarOpcode::SubtractVariable:
            return stepOperatorVariable<NodeKind::Subtract>(instruction, top, variables);
        case ScalarOpcode::MultiplyVariable:
            return stepOperatorVariable<NodeKind::Multiply>(instruction, top, variables);
        case ScalarOpcode::DivideVariable:
            return stepOperatorVariable<NodeKind::Divide>(instruction, top, variables);
        case ScalarOpcode::IntDivideVariable:
            return stepOperatorVariable<NodeKind::IntDivide>(instruction, top, variables);
        case ScalarOpcode::ModuloVariable:
            return stepOperatorVariable<NodeKind::Modulo>(instruction, top, variables);
        case ScalarOpcode::PowerVariable:
            return stepOperatorVariable<NodeKind::Power>(instruction, top, variables);
        case ScalarOpcode::EqualVariable:
            return stepOperatorVariable<NodeKind::Equal>(instruction, top, variables);
        case ScalarOpcode::NotEqualVariable:
            return stepOperatorVariable<NodeKind::NotEqual>(instruction, top, variables);
        case ScalarOpcode::LessVariable:
            return stepOperatorVariable<NodeKind::Less>(instruction, top, variables);
        case ScalarOpcode::GreaterVariable:
            return stepOperatorVariable<NodeKind::Greater>(instruction, top, variables);
        case ScalarOpcode::LessEqualVariable:
            return stepOperatorVariable<NodeKind::LessEqual>(instruction, top, variables);
        case ScalarOpcode::GreaterEqualVariable:
            return stepOperatorVariable<NodeKind::GreaterEqual>(instruction, top, variables);
        default: __builtin_unreachable();
    }
}
