// Runs the straight-line form of an expression. Nothing in here runs script code, so places stay
// good from one instruction to the next.
#include <array>

#include "eval/scalar_operand.h"
#include "eval/scalar_step.h"

namespace {

/// The variables of an expression that runs by itself: found through the caches of its tokens.
struct TokenVariables {
    DovrelScript& interpreter;
    const FastExpression& expression;
    const std::vector<TokenAnalysis>& analysis;

    [[nodiscard]] FastScalarValue scalar(std::uint16_t token) const {
        const Variable* value = place(token);
        return value != nullptr ? soundScalar(*value) : FastScalarValue::nil();
    }
    [[nodiscard]] const Variable* place(std::uint16_t token) const {
        return interpreter.readVariable(analysis[token]);
    }
    [[nodiscard]] const std::string& key(int index) const {
        return expression.strings[static_cast<std::size_t>(index)];
    }
};

}  // namespace

FastScalarValue DovrelScript::runScalarCode(const FastExpression& expression,
                                            const std::vector<TokenAnalysis>& analysis) {
    // Half of all expressions are one instruction, and most of those need none of the stacks.
    if (expression.scalarCode.size() != 1) return runWholeScalarCode(expression, analysis);
    const ScalarInstruction& only = expression.scalarCode[0];
    switch (only.opcode) {
        case ScalarOpcode::PushInt: return FastScalarValue::fromInt(only.intValue);
        case ScalarOpcode::PushFloat: return FastScalarValue::fromFloat(only.floatValue);
        case ScalarOpcode::PushVariable: return scalarVariable(analysis[only.token]);
        default: return runWholeScalarCode(expression, analysis);
    }
}

FastScalarValue DovrelScript::runWholeScalarCode(const FastExpression& expression,
                                                 const std::vector<TokenAnalysis>& analysis) {
    std::array<FastScalarValue, kScalarStackSize> stack;  // left uninitialised
    std::array<const Variable*, kPlaceStackSize> places;  // left uninitialised
    FastScalarValue* top = stack.data();
    const Variable** place = places.data();
    const TokenVariables variables{*this, expression, analysis};
    const ScalarInstruction* at = expression.scalarCode.data();
    const ScalarInstruction* const end = at + expression.scalarCode.size();
    for (; at != end; ++at) {
        if (!stepScalarCode(at, top, place, variables)) return {};
    }
    return top[-1];
}
