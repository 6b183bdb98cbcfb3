// A reference evaluator of compiled expressions: the scalar, int, bool and general tiers, each step
// computed plainly, and repeated evaluations repeated. Slow on purpose: the evaluators of src/eval
// are compared with it. Natives, operators on whole values and the bodies of called functions are
// the interpreter's own.
#pragma once

#include <string>
#include <vector>

#include "compiled_text.h"
#include "interpreter/dovrel_script.h"

class ReferenceTiers {
public:
    ReferenceTiers(DovrelScript& interpreter, const FastExpression& expression,
                   const std::vector<TokenAnalysis>& analysis)
        : interpreter_(interpreter), expression_(expression), analysis_(analysis) {}

    Variable whole();
    Variable general() { return general(expression_.root); }
    /// What the bytecode executor stores for `x = expression`, where that is no call.
    Variable assigned();
    bool condition(DovrelScript::ConditionTiers tiers);

private:
    using Scalar = FastScalarValue;

    Variable general(int index);
    Variable generalIndex(const FastExprNode& node);
    Variable generalCall(const FastExprNode& node);
    Variable generalBinary(const FastExprNode& node, int index);
    bool scalar(int index, Scalar& out);
    bool scalarIndex(const FastExprNode& node, Scalar& out);
    bool scalarCall(const FastExprNode& node, Scalar& out);
    bool scalarMath(BuiltinId id, const FastExprNode& node, Scalar& out);
    bool arithmetic(const FastExprNode& node, Scalar& out);
    bool comparison(const FastExprNode& node, bool& out);
    bool integer(int index, int& out);
    bool boolean(int index, bool& out);
    bool concat(int index, std::string& out);
    bool length(const FastExprNode& node, int& out);

    bool operand(int index, Variable& out);
    bool arguments(const FastExprNode& call, std::vector<Variable>& values);
    const Variable* named(int index);
    const ScriptCallable* native(int callee, bool libraryOnly);

    [[nodiscard]] const FastExprNode& at(int index) const {
        return expression_.nodes[static_cast<std::size_t>(index)];
    }
    [[nodiscard]] bool unwinding() const { return interpreter_.softErrorUnwinding(); }

    DovrelScript& interpreter_;
    const FastExpression& expression_;
    const std::vector<TokenAnalysis>& analysis_;
};
