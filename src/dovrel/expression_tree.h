// Expressions as trees, for the checks. The interpreter has no tree: it evaluates tokens, or nodes
// for those expressions that have no literals of containers in them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/operator_table.h"
#include "frontend/parsed_script_line.h"

enum class ExpressionKind {
    Nil,
    Int,
    Float,
    TextLiteral,
    Truth,
    Variadic,  // "..."
    Variable,  // a name
    Index,     // children: base, key
    Call,      // children: callee, arguments
    Unary,     // children: operand
    Binary,    // children: left, right
    Array,     // children: elements
    Table,     // children: values, and keys in brackets; see `keys`
};

/// One expression. Tokens are indices into its line's.
struct Expression {
    ExpressionKind kind = ExpressionKind::Nil;
    std::size_t token = 0;  // the operator, the opening bracket, or the operand itself
    std::size_t first = 0;  // the tokens are [first, last)
    std::size_t last = 0;
    std::string text;  // of a name: itself; of a string: its value; of an operator: itself
    int operation = kNoOperator;  // of a binary operator: its number
    bool parenthesised = false;
    std::vector<Expression> children;
    /// Of a table: for each child the text of its key: a name, number or text as a literal, "" for
    /// a value without a key, "[" for a child that is itself a key in brackets.
    std::vector<std::string> keys;

    [[nodiscard]] bool is(ExpressionKind other) const { return kind == other; }
    [[nodiscard]] bool isName(std::string_view name) const {
        return kind == ExpressionKind::Variable && text == name;
    }
    [[nodiscard]] const Expression& callee() const { return children[0]; }
    [[nodiscard]] std::size_t argumentCount() const { return children.size() - 1; }
    [[nodiscard]] const Expression& argument(std::size_t index) const {
        return children[index + 1];
    }
    /// A call of the global `name`.
    [[nodiscard]] bool isCallOf(std::string_view name) const {
        return kind == ExpressionKind::Call && children[0].isName(name);
    }
    /// `table["member"]` with a literal key.
    [[nodiscard]] bool isMember(std::string_view table, std::string_view member) const {
        return kind == ExpressionKind::Index && children[0].isName(table) &&
               children[1].kind == ExpressionKind::TextLiteral && children[1].text == member;
    }
    /// A call of `table["member"]`.
    [[nodiscard]] bool isCallOfMember(std::string_view table, std::string_view member) const {
        return kind == ExpressionKind::Call && children[0].isMember(table, member);
    }
    [[nodiscard]] bool isLiteral() const { return kind <= ExpressionKind::Truth; }
};

/// Reads the expression that begins at token `position` and leaves `position` behind it. The tokens
/// must be one: whoever calls has skipped over it by the front end.
[[nodiscard]] Expression readExpression(const ParsedScriptLine& line, std::size_t& position);

/// Calls `visit` with `expression` and everything in it, each in front of its children.
template <typename Visitor>
void visitExpressions(const Expression& expression, const Visitor& visit) {
    visit(expression);
    for (const Expression& child : expression.children) visitExpressions(child, visit);
}
