// The precompiled form of one expression: a flat array of nodes that refer to each other by index.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/shared_array.h"

struct TokenAnalysis;

/// What a node computes. The values are fixed.
enum class NodeKind : std::uint32_t {
    None = 0,
    IntLiteral = 1,
    FloatLiteral = 2,
    StringLiteral = 3,
    BoolLiteral = 4,
    NilLiteral = 5,
    Variable = 6,  // by `tokenIndex`
    Index = 7,     // `left` base, `right` index
    Call = 8,      // `left` callee, `intValue` arguments from `right` on in `callArguments`
    Negate = 9,
    Not = 10,
    Length = 11,
    Add = 12,
    Subtract = 13,
    Multiply = 14,
    Divide = 15,
    IntDivide = 16,
    Modulo = 17,
    Power = 18,
    Equal = 19,
    NotEqual = 20,
    Less = 21,
    Greater = 22,
    LessEqual = 23,
    GreaterEqual = 24,
    And = 25,
    Or = 26,
    // In the token form only.
    ArrayLiteral = 27,  // `intValue` elements from `right` on in `callArguments`
    TableLiteral = 28,  // the same with three indices for each entry: key node or -1, text of the
                        // key or -1, value node
    Varargs = 29,
};

[[nodiscard]] inline bool isComparison(NodeKind kind) {
    return kind >= NodeKind::Equal && kind <= NodeKind::GreaterEqual;
}
/// A literal or a variable.
[[nodiscard]] inline bool isLeaf(NodeKind kind) { return kind <= NodeKind::Variable; }

/// One node. Children stand before their parents in the array.
struct FastExprNode {
    NodeKind kind = NodeKind::None;
    std::int32_t left = -1;              // first child, or -1
    std::int32_t right = -1;             // second child, or -1; for a call see NodeKind::Call
    std::uint16_t tokenIndex = 0;        // the line's token of this node
    std::uint16_t stringIndex = 0;       // for a string: index in `strings`
    std::uint16_t endToken = 0;          // token form: the last token that belongs to the node
    std::int32_t intValue = 0;           // for an int: the value; for a call: the argument count
    float floatValue = 0.0F;             // for a float: the value
    bool boolValue : 1 = false;          // for a bool: the value
    bool floatResult : 1 = false;        // a float literal, "/" or "^" takes part in the arithmetic
    bool holdsCall : 1 = false;          // a call stands in this node or below it
    bool argumentsHoldCall : 1 = false;  // for a call: one stands in its arguments
    bool canConcat : 1 = false;  // the concat form can succeed here, or run a call in trying
};

/// A compiled expression. It refers to its line's tokens by index and is used together with them.
struct FastExpression {
    bool valid = false;
    std::int32_t root = -1;                    // index of the top node, -1 when invalid
    SharedArray<std::string> strings;          // decoded string constants
    SharedArray<std::uint32_t> callArguments;  // node indices; each call owns a contiguous run
    SharedArray<FastExprNode> nodes;

    [[nodiscard]] const FastExprNode& rootNode() const {
        return nodes[static_cast<std::size_t>(root)];
    }
    /// Compiled, with a call at the top.
    [[nodiscard]] bool isCall() const { return valid && rootNode().kind == NodeKind::Call; }
};

/// A direct call by name, with compiled arguments.
struct FastCallExpression {
    bool valid = false;
    std::uint16_t nameToken = 0;  // the token of the function's name
    SharedArray<FastExpression> arguments;
};

/// The token form of the tokens [first, last): the same nodes with the literals and "...", for code
/// that does what the token-stream evaluator does. Invalid where that would raise or stop early.
[[nodiscard]] FastExpression compileTokenForm(const std::vector<std::string>& tokens,
                                              const std::vector<TokenAnalysis>& analysis,
                                              std::size_t first, std::size_t last);

/// Compiles the tokens [first, last). Reports nothing: a range that it does not handle gives an
/// invalid result, and the token-stream evaluator then works or raises the right message.
[[nodiscard]] FastExpression compileFastExpressionRange(const std::vector<std::string>& tokens,
                                                        const std::vector<TokenAnalysis>& analysis,
                                                        std::size_t first, std::size_t last);
