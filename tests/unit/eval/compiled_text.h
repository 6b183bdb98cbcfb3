// A piece of script text as the evaluators take it, and small helpers that the tests of this
// directory share.
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "frontend/fast_expression.h"
#include "frontend/token_analysis.h"
#include "interpreter/dovrel_script.h"

/// The tokens of an expression with its compiled form, which is invalid where it does not compile.
struct CompiledText {
    CompiledText(DovrelScript& interpreter, const std::string& text)
        : tokens(interpreter.tokenise(text)) {
        for (const std::string& token : tokens) {
            analysis.push_back(interpreter.analyseToken(token));
        }
        expression = compileFastExpressionRange(tokens, analysis, 0, tokens.size());
    }

    std::vector<std::string> tokens;
    std::vector<TokenAnalysis> analysis;
    FastExpression expression;
};

/// What `action` raises; empty if it raises nothing.
template <typename Action>
std::string messageOf(Action&& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

/// Kind and text of a value in one string, as "int 5".
inline std::string shown(const Variable& value) {
    return typeName(value.type) + " " + value.toString();
}

/// The same for a scalar; "unset" for one that a tier has declined to set.
inline std::string shown(const FastScalarValue& value) {
    return value.isSet() ? shown(variableFromFastScalar(value)) : "unset";
}
