// The straight-line form of a compiled expression without calls: instructions for a small stack of
// scalars. It computes what the scalar tier computes over the nodes, without the recursion; where
// it cannot, it declines, and the nodes are evaluated instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct FastExpression;

/// What an instruction does. `token` is the index of a variable's token.
enum class ScalarOpcode : std::uint8_t {
    PushInt,    // `intValue`
    PushFloat,  // `floatValue`
    PushBool,   // `intValue` != 0
    PushNil,
    PushVariable,   // `token`; declines for a value that is no scalar
    PushPlace,      // the value at the last place, which goes
    PlaceVariable,  // adds a place: the variable `token`
    PlaceElement,   // pops a key; the last place becomes the element of the array there
    PlaceEntry,     // the last place becomes the entry of the table there, under string `intValue`
    VariableWithInt,       // operator `kind` on the variable `token` and the int `intValue`
    VariableWithVariable,  // operator `kind` on the variables `token` and `intValue`
    Negate,
    Not,
    Add,  // this and the following pop two operands
    Subtract,
    Multiply,
    Divide,
    IntDivide,
    Modulo,
    Power,
    Equal,
    NotEqual,
    Less,
    Greater,
    LessEqual,
    GreaterEqual,
    SkipIfFalse,  // "and": a false top stays and `intValue` instructions are skipped, else it goes
    SkipIfTrue,   // "or": the same with a true top
};

struct ScalarInstruction {
    ScalarOpcode opcode;
    std::uint8_t kind = 0;  // a NodeKind, for the operators that name their operands
    std::uint16_t token = 0;
    union {
        std::int32_t intValue = 0;
        float floatValue;
    };
};

/// How many scalars and how many places the code of an expression may hold at a time.
inline constexpr std::size_t kScalarStackSize = 16;
inline constexpr std::size_t kPlaceStackSize = 8;

/// The code for a valid expression; empty if it holds a call, needs a deeper stack, or has a node
/// that scalars do not cover.
[[nodiscard]] std::vector<ScalarInstruction> compileScalarCode(const FastExpression& expression);
