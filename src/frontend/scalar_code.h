// The straight-line form of a compiled expression without calls: instructions for a small stack of
// scalars. It computes what the scalar tier computes over the nodes, without the recursion; where
// it cannot, it declines, and the nodes are evaluated instead.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frontend/shared_array.h"

enum class NodeKind : std::uint32_t;
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
    ForNext,         // counts in `for` number `token`; to `intValue` for another turn; `kind` is 1
                     // if the body is a recursive run of its own
    ForLeave,        // closes the innermost `for`
    SelectLine,      // makes the line of statement `intValue` the current one
    ReturnValue,     // pops a value and ends the run with it, in statement `intValue`
    RunStatement,    // statement `intValue` by the executor
    // A statement with calls, by the rules of the general tier: values of any kind. Its operands
    // and operators are those above, marked as such.
    BeginCalls,           // of statement `intValue`
    JumpUnlessFrameCall,  // to `intValue`, unless the variable `token` is a script function that
                          // runs in a frame
    RequireNoAssert,  // statement `intValue` goes by the executor if the variable `token` is the
                      // native `assert`
    PushText,         // literal text `intValue`
    CallVariable,     // calls the variable `token` with the topmost `kind` values
    CallEntry,        // calls entry `intValue` of the table in the variable `token`
    CallDirect,       // CallVariable for the statement `x = f(...)`
    AssignAny,        // pops the value of the statement that assigns it
    ReturnAny,        // pops a value and ends the run with it
    DiscardAny,       // pops the value of an expression statement
    // An assigned value with calls, by the rules of the scalar tier.
    BeginScalarCall,  // of node `intValue`, by the callee in the variable `token`
    CallScalar,       // makes that call with the topmost `kind` values
    EvaluateScalar,   // pushes the value of node `intValue`
    RequireNumber,    // of the topmost value
    AssignScalar,     // pops the value of the statement that assigns it
    Finish,           // the end of the code
};

// Marks in the `kind` of an operator and of PushVariable.

/// The operator declines wherever the token-stream evaluator could see the operands differently.
inline constexpr std::uint8_t kExactOperator = 1;

/// Where it would decline, it goes by the general tier instead: values of any kind.
inline constexpr std::uint8_t kAnyOperands = 2;

/// With kAnyOperands: the variable is an argument of a call and is not changed before that, so that
/// it needs no copy.
inline constexpr std::uint8_t kLentVariable = 4;

/// With kAnyOperands: a variable whose kind and content disagree raises, as it does in the scalar
/// tier.
inline constexpr std::uint8_t kCheckedVariable = 8;

/// The variable is node `intValue` of hot code that goes by the scalar tier.
inline constexpr std::uint8_t kScalarNode = 16;

struct ScalarInstruction {
    ScalarOpcode opcode;
    std::uint8_t kind = 0;  // a compound operator's character, or marks of the above
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

/// The opcode of a binary node kind in the group of operators that begins with `first`, and back.
[[nodiscard]] ScalarOpcode operatorOpcode(ScalarOpcode first, NodeKind kind);
[[nodiscard]] NodeKind operatorKind(ScalarOpcode first, ScalarOpcode opcode);

/// The code for a valid expression; empty if it holds a call, needs a deeper stack, or has a node
/// that scalars do not cover.
[[nodiscard]] SharedArray<ScalarInstruction> compileScalarCode(const FastExpression& expression);
/// The same for the node at `index` of it.
[[nodiscard]] SharedArray<ScalarInstruction> compileScalarCode(const FastExpression& expression,
                                                               int index);
