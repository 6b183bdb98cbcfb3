// The straight-line form of a compiled expression without calls: instructions for a small stack of
// scalars. It computes what the scalar tier computes over the nodes, without the recursion; where
// it cannot, it declines, and the nodes are evaluated instead.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frontend/shared_array.h"

struct FastExpression;

/// What an instruction does. `token` is the index of a variable's token.
enum class ScalarOpcode : std::uint8_t {
    PushInt,    // `intValue`
    PushFloat,  // `floatValue`
    PushBool,   // `intValue` != 0
    PushNil,
    PushVariable,    // `token`; declines for a value that is no scalar
    PushPlace,       // the value at the last place, which goes
    PlaceVariable,   // adds a place: the variable `token`
    PlaceElement,    // pops a key; the last place becomes the element of the array there
    PlaceElementAt,  // the same with the variable `token` as the key
    PushElementAt,   // PlaceElementAt and PushPlace
    PlaceEntry,      // the last place becomes the entry of the table there, under string `intValue`
    Negate,
    Not,
    // Three groups of operators, each in the order of their node kinds. These pop two operands.
    Add,
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
    // On the variable `token` and the int `intValue`.
    AddInt,
    SubtractInt,
    MultiplyInt,
    DivideInt,
    IntDivideInt,
    ModuloInt,
    PowerInt,
    EqualInt,
    NotEqualInt,
    LessInt,
    GreaterInt,
    LessEqualInt,
    GreaterEqualInt,
    // On the variables `token` and `intValue`.
    AddVariable,
    SubtractVariable,
    MultiplyVariable,
    DivideVariable,
    IntDivideVariable,
    ModuloVariable,
    PowerVariable,
    EqualVariable,
    NotEqualVariable,
    LessVariable,
    GreaterVariable,
    LessEqualVariable,
    GreaterEqualVariable,
    SkipIfFalse,  // "and": a false top stays and `intValue` instructions are skipped, else it goes
    SkipIfTrue,   // "or": the same with a true top

    // What follows stands in hot code only, where a `token` is the number of a bound variable.
    BeginStatement,  // of a recursive run
    EndBlock,        // the end of a block statement of a recursive run
    ClearValue,      // the value of a nested chunk begins as nil
    PushBlock,       // a block scope
    PopBlock,
    StoreVariable,   // pops a value into the variable `token`
    UpdateVariable,  // the same by the compound operator `kind`, a character
    Declare,         // pops a value into the variable `token` of the scope `kind`, a ScopeTarget
    StoreElement,    // pops a value and a key: the element of the array in the variable `token`
    UpdateElement,   // the same by the compound operator `kind`
    StoreEntry,      // pops a value: entry `intValue` of the table in the variable `token`
    UpdateEntry,     // the same by the compound operator `kind`
    StoreVariables,  // pops `kind` values into as many variables from `token` on
    StoreElements,   // pops `kind` values and as many keys: elements of those variables
    JumpIfFalse,     // pops a condition; to `intValue`
    RepeatIfTrue,    // the same, back to the body of a loop
    RepeatIfFalse,   // the same
    Jump,            // to `intValue`
    Break,           // leaves the loop of statement `intValue`
    ForStart,        // pops step, limit and start; opens a `for`, statement `intValue`
    ForNext,         // counts in `for` number `token`; to `intValue` for another turn
    ForLeave,        // closes the innermost `for`
    SelectLine,      // makes the line of statement `intValue` the current one
    ReturnValue,     // pops a value and ends the run with it, in statement `intValue`
    RunStatement,    // statement `intValue` by the executor
    // A statement with calls, by the rules of the general tier: values of any kind.
    BeginCalls,        // of statement `intValue`
    RequireFrameCall,  // statement `intValue` goes by the executor unless the variable `token` is a
                       // script function that runs in a frame
    RequireNoAssert,   // the same unless it is anything but the native `assert`
    PushAny,           // the variable `token`
    PushLent,          // the same as an argument, which needs no copy
    PushText,          // literal text `intValue`
    OperateAny,        // pops two operands of the node kind `kind`
    CallVariable,      // calls the variable `token` with the topmost `kind` values
    CallEntry,         // calls entry `intValue` of the table in the variable `token`
    CallDirect,        // CallVariable for the statement `x = f(...)`
    AssignAny,         // pops the value of the statement that assigns it
    ReturnAny,         // pops a value and ends the run with it
    DiscardAny,        // pops the value of an expression statement
    Finish,            // the end of the code
};

/// As the `kind` of an operator: it declines wherever the token-stream evaluator could see the
/// operands differently.
inline constexpr std::uint8_t kExactOperator = 1;

/// As the `kind` of PushAny and PushLent: a variable whose kind and content disagree raises, as it
/// does in the scalar tier.
inline constexpr std::uint8_t kCheckedVariable = 1;

struct ScalarInstruction {
    ScalarOpcode opcode;
    std::uint8_t kind = 0;  // a compound operator's character, or one of the above
    std::uint16_t token = 0;
    union {
        std::int32_t intValue = 0;
        float floatValue;
    };
};

/// The first opcode that stands in hot code only.
inline constexpr ScalarOpcode kFirstHotOpcode = ScalarOpcode::BeginStatement;

/// How many scalars and how many places the code of an expression may hold at a time.
inline constexpr std::size_t kScalarStackSize = 16;
inline constexpr std::size_t kPlaceStackSize = 8;

/// The code for a valid expression; empty if it holds a call, needs a deeper stack, or has a node
/// that scalars do not cover.
[[nodiscard]] SharedArray<ScalarInstruction> compileScalarCode(const FastExpression& expression);
