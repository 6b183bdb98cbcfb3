// One logical line of a script: the record that everything after the line parser reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "frontend/fast_expression.h"
#include "frontend/shared_array.h"
#include "frontend/token_analysis.h"

enum class BuiltinId : std::uint8_t;

/// "No line": all bits set.
inline constexpr std::size_t kNoLine = std::numeric_limits<std::size_t>::max();

/// Statement kinds, decided from a line's first token or first two tokens.
enum class LineKind : std::uint8_t {
    Empty = 0,
    Plain = 1,  // assignment, declaration or expression
    If = 2,
    ElseIf = 3,
    Else = 4,
    End = 5,
    While = 6,
    Repeat = 7,
    Until = 8,
    For = 9,
    Function = 10,
    DecayFunction = 11,
    NativeFunction = 12,
    LocalFunction = 13,
    Return = 14,
    Break = 15,
};

/// Where a declaring assignment writes.
enum class ScopeTarget : std::uint8_t {
    Default = 0,  // the variable that the name resolves to, or a new global
    Native = 1,   // the top frame scope
    Local = 2,    // the top block scope
};

/// A half-open range of token indices.
struct TokenRange {
    std::size_t first = 0;
    std::size_t last = 0;
};

/// One left side of an assignment.
struct ParsedAssignmentTarget {
    std::size_t nameToken = 0;                     // index of the variable's token
    SharedArray<TokenRange> indexRanges;           // the tokens inside each `[...]`, left to right
    SharedArray<FastExpression> indexExpressions;  // one per range; invalid ones keep their place
};

/// The parse of an assignment or a `local` declaration.
struct ParsedAssignment {
    std::size_t operatorIndex = 0;  // the operator's token; the token count for a declaration
    bool isPlain = true;            // the operator is exactly "=", or there is none
    char operation = 0;             // first character of a compound operator
    SharedArray<ParsedAssignmentTarget> targets;
    SharedArray<TokenRange> valueRanges;
    SharedArray<FastExpression> values;  // one per range; invalid ones keep their place
    FastCallExpression simpleCall;       // one plain target, one value: the value as a direct call

    /// One plain target and one value.
    [[nodiscard]] bool isSimple() const {
        return targets.size() == 1 && targets[0].indexRanges.empty() && valueRanges.size() == 1;
    }
    /// For a simple assignment: its value when that compiled, else null.
    [[nodiscard]] const FastExpression* simpleValue() const {
        return isSimple() && values[0].valid ? &values[0] : nullptr;
    }
    /// The value is a call and nothing else, so that a multi-value is cut to its first value.
    [[nodiscard]] bool simpleValueIsCall() const {
        if (simpleCall.valid) return true;
        const FastExpression* value = simpleValue();
        return value != nullptr && value->isCall();
    }
};

/// The parse of a `for` header.
struct ParsedForHeader {
    std::size_t numericVariable = 0;  // numeric form: index of the loop variable's token, else 0
    FastExpression numericStart;
    FastExpression numericLimit;
    FastExpression numericStep;
    bool hasNumericStep = false;
    std::vector<std::size_t> genericVariables;  // generic form: token indices of the variables
    /// The iterator expression, or the argument of `pairs`/`ipairs` when `genericBuiltin` is set.
    FastExpression genericIterator;
    BuiltinId genericBuiltin{};  // `pairs` or `ipairs` when the iterator is a direct call of one
};

/// One logical line. The line parser fills the first four fields, line preparation the others.
/// Copies share the parse, which never changes once made, and have token caches of their own.
struct ParsedScriptLine {
    std::string source;          // the logical line's text, for error reports
    std::size_t lineNumber = 0;  // 0-based index of the physical line on which it began
    std::vector<std::string> tokens;
    std::vector<TokenAnalysis> tokenAnalysis;  // one per token

    LineKind kind = LineKind::Empty;
    bool prepared = false;
    bool isFastAssignment = false;  // one plain target, one compiled value: what FastAssign runs
    ScopeTarget assignmentScope = ScopeTarget::Default;  // by the line's first word
    std::size_t matchingEnd = kNoLine;                   // the line that closes this block
    std::size_t nextBranch = kNoLine;           // for `if`, `elseif`: the next `elseif` or `else`
    SharedRecord<ParsedAssignment> assignment;  // null if the line is no assignment
    std::shared_ptr<const ParsedForHeader> forHeader;  // set for `for` lines
    FastExpression condition;                  // `if`, `elseif`, `while`, `until`: tokens from 1 on
    FastExpression expression;                 // an expression statement: all tokens
    SharedArray<FastExpression> returnValues;  // `return`: one per value

    /// All return values compiled, at least one.
    [[nodiscard]] bool hasCompiledReturnValues() const {
        if (returnValues.empty()) return false;
        for (const FastExpression& value : returnValues) {
            if (!value.valid) return false;
        }
        return true;
    }
};
