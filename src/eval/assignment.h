// One run of an assignment line.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "interpreter/dovrel_script.h"

/// Carries out an assignment line once. It refers to the line and lives no longer than the run.
class AssignmentRun {
public:
    /// `line` must be an assignment.
    AssignmentRun(DovrelScript& interpreter, const ParsedScriptLine& line);

    /// The value of the statement: the last one stored by a general multiple assignment under a
    /// plain name, nil for every other form.
    Variable run();

    /// The first value of a multi-value, nil if it has none.
    [[nodiscard]] static Variable firstValue(const Variable& multi);

private:
    [[nodiscard]] bool unwinding() const { return interpreter_.softErrorUnwinding(); }
    [[nodiscard]] const TokenAnalysis& token(const ParsedAssignmentTarget& target) const {
        return line_.tokenAnalysis[target.nameToken];
    }

    // Evaluation.
    Variable evaluateRange(TokenRange range);
    Variable evaluate(const FastExpression& expression, TokenRange range);
    Variable evaluateKey(const ParsedAssignmentTarget& target, std::size_t index);
    bool evaluateKeys(const ParsedAssignmentTarget& target, ArgumentFrame& keys, std::size_t first);
    bool evaluateValues(ArgumentFrame& values);
    Variable evaluateFirstValue();
    Variable evaluateDirectCall();
    Variable evaluateByTokens();
    /// Reduces the multi-value of a bare call to its first value.
    void cutMulti(Variable& value) const;

    // Storing.
    /// Writes the variable; of an element, what the variable holds is written back.
    void storeBase(const ParsedAssignmentTarget& target, const Variable& value);
    void store(const ParsedAssignmentTarget& target, const Variable& value);
    void storePlain(const ParsedAssignmentTarget& target, const Variable& value);
    void storeElement(const ParsedAssignmentTarget& target, Variable& container,
                      std::span<const Variable> keys, const Variable& value);
    void storeThroughKeys(const ParsedAssignmentTarget& target, std::span<const Variable> keys,
                          const Variable& value);
    bool tryStoreArrayElement(const ParsedAssignmentTarget& target, std::span<const Variable> keys,
                              const Variable& value);
    void storeAll(std::span<const Variable> values);
    void storeFirst(const Variable& value);
    void applyCompound(Variable& variable, const Variable& value) const;
    [[noreturn]] void throwVariableNotFound(const ParsedAssignmentTarget& target);

    // The forms.
    void runPlain(const ParsedAssignmentTarget& target);
    void runIndexed(const ParsedAssignmentTarget& target);
    void runPath(const ParsedAssignmentTarget& target);
    void runParallel();
    void runSpreadCall(const FastExpression& expression);
    void runProtectedCall(Arguments args);
    Variable runGeneral();

    DovrelScript& interpreter_;
    const ParsedScriptLine& line_;
    const ParsedAssignment& assignment_;
};
