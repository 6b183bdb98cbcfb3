// What the single checks are given, and the list of them. Each group of codes has a file.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/findings.h"
#include "dovrel/library_reference.h"
#include "dovrel/script_model.h"

/// A script under examination. The checks read the model and add findings.
class CheckContext {
public:
    CheckContext(const ScriptModel& script, std::vector<Finding>& findings)
        : model(script), kinds(script), findings_(findings) {}

    const ScriptModel& model;
    KindEstimate kinds;
    /// Names that other files or texts, which this script runs, assign to.
    std::set<std::string> assignedElsewhere;
    /// It runs code that cannot be looked at, which may use and assign any name.
    bool runsUnknownCode = false;

    [[nodiscard]] const std::vector<Statement>& statements() const { return model.statements(); }
    [[nodiscard]] const std::vector<FunctionModel>& functions() const { return model.functions(); }

    /// Something is assigned to `name` somewhere, or it is declared.
    [[nodiscard]] bool isAssigned(const std::string& name) const;
    /// A global of the library.
    [[nodiscard]] static bool isLibraryGlobal(const std::string& name);
    /// A global of the library that the script leaves alone.
    [[nodiscard]] bool isUntouchedLibrary(const std::string& name) const {
        return isLibraryGlobal(name) && !isAssigned(name);
    }
    /// The function of the library that a call calls, as `len` or `string.sub`; empty for any other
    /// call. Methods of texts count: `s["sub"](1)` is `string.sub`, with `isMethod` set.
    [[nodiscard]] std::string libraryCallee(const Expression& call, std::size_t function,
                                            bool& isMethod) const;
    /// The functions of the script that a call may call.
    [[nodiscard]] std::vector<std::size_t> scriptCallees(const Expression& call) const;

    void report(std::string_view code, std::size_t statement, std::size_t token,
                const std::string& message);
    /// Marks the whole of an expression.
    void report(std::string_view code, std::size_t statement, const Expression& expression,
                const std::string& message);

    /// Calls `visit(expression, statement)` for all expressions, each in front of its children.
    template <typename Visitor>
    void forEachExpression(const Visitor& visit) const {
        for (const Statement& statement : statements()) {
            const auto one = [&](const Expression& expression) { visit(expression, statement); };
            for (const AssignmentTarget& target : statement.targets) {
                for (const Expression& key : target.keys) visitExpressions(key, one);
            }
            for (const Expression& value : statement.values) visitExpressions(value, one);
        }
    }

private:
    std::vector<Finding>& findings_;
};

/// `name` in quotes, as messages show it.
[[nodiscard]] std::string quoted(std::string_view name);

/// Words of other languages that are names of no variable here.
[[nodiscard]] bool isForeignValue(std::string_view name);      // `nil`, `None`, `True`
[[nodiscard]] bool isForeignStatement(std::string_view name);  // `continue`, `exit`

void checkVariables(CheckContext& context);
void checkScopes(CheckContext& context);
void checkFlow(CheckContext& context);
void checkWords(CheckContext& context);
void checkRepeatedCalls(CheckContext& context);
void checkNumbers(CheckContext& context);
void checkContainers(CheckContext& context);
void checkFiles(CheckContext& context);
