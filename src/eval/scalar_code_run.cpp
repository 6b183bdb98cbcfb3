// Runs the straight-line form of an expression. Nothing in here runs script code, so places stay
// good from one instruction to the next.
#include <array>

#include "eval/scalar_arithmetic.h"
#include "eval/scalar_operand.h"
#include "frontend/scalar_code.h"

namespace {

/// The two topmost values by an arithmetic operator; false declines. Inlined with a constant kind.
[[gnu::always_inline]] inline bool applyArithmetic(NodeKind kind, FastScalarValue*& top) {
    const FastScalarValue right = *--top;
    const FastScalarValue result = scalarArithmeticOn(kind, top[-1], right);
    top[-1] = result;
    return result.isSet();
}

/// The same by a comparison.
[[gnu::always_inline]] inline bool applyComparison(NodeKind kind, FastScalarValue*& top) {
    const FastScalarValue right = *--top;
    bool truth = false;
    if (!scalarComparisonOn(kind, top[-1], right, truth)) return false;
    top[-1] = FastScalarValue::fromBool(truth);
    return true;
}

/// Any binary operator on two scalars; unset if it declines.
FastScalarValue binaryScalar(NodeKind kind, FastScalarValue left, FastScalarValue right) {
    if (kind < NodeKind::Equal) return scalarArithmeticOn(kind, left, right);
    bool truth = false;
    return scalarComparisonOn(kind, left, right, truth) ? FastScalarValue::fromBool(truth)
                                                        : FastScalarValue{};
}

/// The element or entry that a place leads to; null if the scalar tier has to look itself.
const Variable* elementOf(const Variable& place, const FastScalarValue& key) {
    if (place.type != VarType::Array || key.kind != ScalarKind::Int) return nullptr;
    return &elementOrNil(*place.asArray(), key.intValue);
}

const Variable* entryOf(const Variable& place, const std::string& key) {
    if (place.type != VarType::Table) return nullptr;
    const TableStorage& table = *place.asTable();
    const auto found = table.find(key);
    return found != table.end() ? &found->second : &nilValue();
}

FastScalarValue negated(const FastScalarValue& operand) {
    if (!operand.isNumeric()) return {};
    if (operand.kind == ScalarKind::Float) return FastScalarValue::fromFloat(-operand.floatValue);
    return FastScalarValue::fromInt(wrapNegate(fastScalarToInt(operand)));
}

}  // namespace

FastScalarValue DovrelScript::runScalarCode(const FastExpression& expression,
                                            const std::vector<TokenAnalysis>& analysis) {
    // Half of all expressions are one instruction, and need none of the stacks.
    if (expression.scalarCode.size() != 1) return runWholeScalarCode(expression, analysis);
    const ScalarInstruction& only = expression.scalarCode[0];
    switch (only.opcode) {
        case ScalarOpcode::PushInt: return FastScalarValue::fromInt(only.intValue);
        case ScalarOpcode::PushFloat: return FastScalarValue::fromFloat(only.floatValue);
        case ScalarOpcode::PushVariable: return scalarVariable(analysis[only.token]);
        case ScalarOpcode::VariableWithInt: {
            const FastScalarValue left = scalarVariable(analysis[only.token]);
            return left.isSet() ? binaryScalar(static_cast<NodeKind>(only.kind), left,
                                               FastScalarValue::fromInt(only.intValue))
                                : left;
        }
        case ScalarOpcode::VariableWithVariable: {
            const FastScalarValue left = scalarVariable(analysis[only.token]);
            if (!left.isSet()) return left;
            const FastScalarValue right =
                scalarVariable(analysis[static_cast<std::size_t>(only.intValue)]);
            return right.isSet() ? binaryScalar(static_cast<NodeKind>(only.kind), left, right)
                                 : right;
        }
        default: return runWholeScalarCode(expression, analysis);
    }
}

FastScalarValue DovrelScript::runWholeScalarCode(const FastExpression& expression,
                                                 const std::vector<TokenAnalysis>& analysis) {
    std::array<FastScalarValue, kScalarStackSize> stack;  // left uninitialised
    FastScalarValue* top = stack.data();                  // behind the topmost value
    std::array<const Variable*, kPlaceStackSize> places;  // left uninitialised
    const Variable** place = places.data();               // behind the last place
    const ScalarInstruction* instruction = expression.scalarCode.data();
    const ScalarInstruction* const end = instruction + expression.scalarCode.size();
    for (; instruction != end; ++instruction) {
        switch (instruction->opcode) {
            case ScalarOpcode::PushInt:
                *top++ = FastScalarValue::fromInt(instruction->intValue);
                break;
            case ScalarOpcode::PushFloat:
                *top++ = FastScalarValue::fromFloat(instruction->floatValue);
                break;
            case ScalarOpcode::PushBool:
                *top++ = FastScalarValue::fromBool(instruction->intValue != 0);
                break;
            case ScalarOpcode::PushNil: *top++ = FastScalarValue::nil(); break;
            case ScalarOpcode::PushVariable: {
                *top++ = scalarVariable(analysis[instruction->token]);
                if (!top[-1].isSet()) return {};
                break;
            }
            case ScalarOpcode::PushPlace:
                *top++ = scalarFromVariable(**--place);
                if (!top[-1].isSet()) return {};
                break;
            case ScalarOpcode::PlaceVariable:
                *place++ = readVariable(analysis[instruction->token]);
                if (place[-1] == nullptr) return {};
                break;
            case ScalarOpcode::PlaceElement:
                place[-1] = elementOf(*place[-1], *--top);
                if (place[-1] == nullptr) return {};
                break;
            case ScalarOpcode::PlaceEntry:
                place[-1] =
                    entryOf(*place[-1],
                            expression.strings[static_cast<std::size_t>(instruction->intValue)]);
                if (place[-1] == nullptr) return {};
                break;
            case ScalarOpcode::VariableWithInt: {
                const FastScalarValue left = scalarVariable(analysis[instruction->token]);
                if (!left.isSet()) return {};
                *top++ = binaryScalar(static_cast<NodeKind>(instruction->kind), left,
                                      FastScalarValue::fromInt(instruction->intValue));
                if (!top[-1].isSet()) return {};
                break;
            }
            case ScalarOpcode::VariableWithVariable: {
                const FastScalarValue left = scalarVariable(analysis[instruction->token]);
                if (!left.isSet()) return {};
                const FastScalarValue right =
                    scalarVariable(analysis[static_cast<std::size_t>(instruction->intValue)]);
                if (!right.isSet()) return {};
                *top++ = binaryScalar(static_cast<NodeKind>(instruction->kind), left, right);
                if (!top[-1].isSet()) return {};
                break;
            }
            case ScalarOpcode::Negate:
                top[-1] = negated(top[-1]);
                if (!top[-1].isSet()) return {};
                break;
            case ScalarOpcode::Not:
                top[-1] = FastScalarValue::fromBool(!isScalarTruthy(top[-1]));
                break;
            case ScalarOpcode::SkipIfFalse:
            case ScalarOpcode::SkipIfTrue:
                if (isScalarTruthy(top[-1]) == (instruction->opcode == ScalarOpcode::SkipIfTrue)) {
                    instruction += instruction->intValue;
                } else {
                    --top;
                }
                break;
            case ScalarOpcode::Add:
                if (!applyArithmetic(NodeKind::Add, top)) return {};
                break;
            case ScalarOpcode::Subtract:
                if (!applyArithmetic(NodeKind::Subtract, top)) return {};
                break;
            case ScalarOpcode::Multiply:
                if (!applyArithmetic(NodeKind::Multiply, top)) return {};
                break;
            case ScalarOpcode::Divide:
                if (!applyArithmetic(NodeKind::Divide, top)) return {};
                break;
            case ScalarOpcode::IntDivide:
                if (!applyArithmetic(NodeKind::IntDivide, top)) return {};
                break;
            case ScalarOpcode::Modulo:
                if (!applyArithmetic(NodeKind::Modulo, top)) return {};
                break;
            case ScalarOpcode::Power:
                if (!applyArithmetic(NodeKind::Power, top)) return {};
                break;
            case ScalarOpcode::Equal:
                if (!applyComparison(NodeKind::Equal, top)) return {};
                break;
            case ScalarOpcode::NotEqual:
                if (!applyComparison(NodeKind::NotEqual, top)) return {};
                break;
            case ScalarOpcode::Less:
                if (!applyComparison(NodeKind::Less, top)) return {};
                break;
            case ScalarOpcode::Greater:
                if (!applyComparison(NodeKind::Greater, top)) return {};
                break;
            case ScalarOpcode::LessEqual:
                if (!applyComparison(NodeKind::LessEqual, top)) return {};
                break;
            case ScalarOpcode::GreaterEqual:
                if (!applyComparison(NodeKind::GreaterEqual, top)) return {};
                break;
        }
    }
    return top[-1];
}
