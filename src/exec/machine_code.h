// The compiled form: register code for a whole function, or a whole program, with all its nested
// blocks.
//
// What makes it right:
//   1. Named variables are registers. The scopes that compiled code opens are windows into the
//      registers of the same activation (eval/scope.h), so whoever searches by name finds them.
//   2. A token's variable has a register of its own where its place is certain: a `local` that the
//      same activation has declared before, and a parameter, loop variable or `native` whose token
//      has met it in its place once. Globals are reached by address as long as no scope has an
//      entry of their name. Every other token looks its variable up through its cache.
//   3. The tiers of the expression evaluators are kinds of code. An expression without calls has
//   one
//      form, whose instructions follow the scalar tier as long as that does not decline and the
//      general tier from there on; where the two could differ in between, the expression is
//      evaluated anew by the tiers themselves. An expression with calls has two forms, one behind
//      the other.
//   4. Positions cost nothing until somebody asks: the statement of an instruction is found by its
//      address. A statement that runs script code makes its line the current one first.
//   5. A register that holds no variable and no waiting operand holds no counted value.
//   6. A function of one line without calls runs without a scope: its parameters are registers, and
//   what
//      its tokens have not met yet is looked up as in a fast body.
//   7. Whatever is not compiled is one instruction that the executor runs, a whole statement or a
//   whole
//      expression at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frontend/token_analysis.h"
#include "value/names.h"
#include "value/table.h"
#include "value/variable.h"

struct BytecodeProgram;
struct MachineFunction;
struct FastExpression;
struct ParsedScriptLine;
struct ScriptCallable;

/// The instructions. `a`, `b`, `c` are registers unless it is said otherwise; `d` is the 32-bit
/// operand in the place of `b` and `c`; "to" is the target of a jump, as a distance in `c` where
/// the instruction has three operands, else in `d`.
enum class MachineOp : std::uint8_t {
    // Values.
    LoadNil,    // a
    LoadInt,    // a = d
    LoadConst,  // a = constant d
    Move,       // a = b
    Take,       // a = b, which goes
    Clear,      // a goes
    // Variables through the caches of their tokens; d is the number of a variable record.
    GetVariable,     // a = the variable
    GetGlobal,       // the same while no scope has the name
    GetPlace,        // a = the variable, whose certain place the token has not met yet
    SetVariable,     // the variable = a, which goes
    SetGlobal,       // the same while no scope has the name
    UpdateVariable,  // the variable op= b: a is the record, m the operator, c an OperandOrigin
    UpdateRegister,  // a op= b, the same
    // Scopes.
    // Block scopes are opened when somebody looks at them; until then, a number tells which there
    // are.
    PushBlock,         // goes to block state d, which has another block
    PopBlock,          // goes to block state c: the b variables from a on go
    DeclareBlock,      // goes to block state d: the top block's next entry is in its register
    DeclareFrame,      // the same of the top frame scope
    DeclareFrameOnce,  // the same, if it has d entries: an earlier turn may have done it
    DeclareByName,     // the variable of record d = a, which goes; m: ScopeTarget, no default
    // Arithmetic: a = b op c, in the order of the node kinds. `m` holds a MachineTier and marks.
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
    // a = b op the int c.
    AddInt,
    SubtractInt,
    MultiplyInt,
    DivideInt,
    IntDivideInt,
    ModuloInt,
    // a = b op constant c.
    AddConst,
    SubtractConst,
    MultiplyConst,
    DivideConst,
    Negate,        // a = - b
    Not,           // a = not b
    Length,        // a = # b
    Join,          // a = b + (b + 1) + ... of c operands, which go
    Append,        // a = a + b + (b + 1) + ... of c operands; they go if there are several
    AppendGlobal,  // the same with the global of record a
    TouchGlobal,   // the global of record d has been read
    // Jumps.
    Jump,
    JumpBack,     // the end of a turn of loop d, of a statements: other code may go on
    JumpIfFalse,  // unless a holds, as a condition
    JumpIfTrue,
    SkipUnlessTrue,  // "and": a stays and skips if it does not hold, else it goes
    SkipIfTrue,      // "or"
    // To c if a op b has the truth of the name.
    IfEqual,
    IfNotEqual,
    IfLess,
    IfGreater,
    IfLessEqual,
    IfGreaterEqual,
    UnlessEqual,
    UnlessNotEqual,
    UnlessLess,
    UnlessGreater,
    UnlessLessEqual,
    UnlessGreaterEqual,
    // The same with the int b.
    IfEqualInt,
    IfNotEqualInt,
    IfLessInt,
    IfGreaterInt,
    IfLessEqualInt,
    IfGreaterEqualInt,
    UnlessEqualInt,
    UnlessNotEqualInt,
    UnlessLessInt,
    UnlessGreaterInt,
    UnlessLessEqualInt,
    UnlessGreaterEqualInt,
    // The same with constant b, a text or nil.
    IfEqualConst,
    UnlessEqualConst,
    // Elements.
    Index,             // a = b[c]
    IndexInt,          // a = b[the int c]
    IndexConst,        // a = b[constant c, a text]
    IndexGlobal,       // a = the global of record b[c]
    IndexGlobalConst,  // a = the global of record b[constant c, a text]
    // The same where the next instruction takes an element of this element, by a key that is
    // ready, and nothing else needs it: both are done at once if both are there.
    IndexThrough,
    IndexIntThrough,
    IndexConstThrough,
    IndexGlobalThrough,
    IndexGlobalConstThrough,
    SetIndex,           // a[b] = c
    SetIndexGlobal,     // the same with the global of record a
    UpdateIndex,        // a[b] op= c, m the operator's character
    UpdateIndexGlobal,  // the same with the global of record a
    SetPath,            // store site d
    // Calls. The callee is in a, the arguments behind it; the result goes to a.
    Call,               // of b arguments
    CallGlobal,         // the callee is the global of record c
    CallMember,         // the callee is found by member site c
    RequireScalarCall,  // scalar call site a: goes on elsewhere if the scalar tier declines the
                        // callee
    CallScalar,         // the same call in a, with b arguments, of site c
    RequireScalar,      // to, unless a is a scalar
    Return,             // a; m: it is no variable
    ReturnLeaf,         // a, from a function of one line
    ReturnLeafMulti,    // a and the b - 1 values behind it, from there
    ReturnNil,
    EndTurnLine,      // the end of a line of a coroutine
    ReturnMulti,      // a and the b - 1 values behind it
    NewArray,         // a = the c values from b on
    NewTable,         // a = table site d, from its registers
    RequireKey,       // a can be a table's key
    Varargs,          // a = "..."
    SpreadCall,       // call site d for several targets
    Spread,           // the multi-value or value in a over the c registers from b on
    CutMulti,         // the first value of a, if it is a multi-value
    CutMultiAndTake,  // the same, and the Take behind it
    // Loops. The hidden registers of a numeric loop are a (counter), a + 1 (limit), a + 2 (step);
    // its
    // variable is a + 3.
    ForStart,       // opens the scope of loop site d; jumps behind the loop if there is no turn
    ForNext,        // to, for another turn
    ForSlowly,      // a: evaluates the clause of loop site d by the executor
    CloseFrame,     // closes the scope of the loop
    OpenLoopFrame,  // opens the frame scope of loop site d with its names
    WalkCheck,      // jumps to the general form of loop site d unless its native stands
    WalkCall,       // begins the walk of a call's matches or bytes; jumps to its turns if it is one
    WalkStart,      // begins the walk of the value in a, loop site d
    WalkNext,       // to, for another turn of the walk in a
    WalkEnd,        // ends the walk in a
    // What is not compiled.
    RunStatement,   // statement d by the executor
    TreeValue,      // a = expression site d by the tiers
    TreeCondition,  // jumps to the other target of expression site d if it does not hold
    Line,           // statement d begins
    LastToken,      // the last token of token site d has been read
    ChunkValue,     // the chunk's value is a, which goes
    ClearChunkValue,
    // Only in the form for turns of a coroutine.
    BeginStatement,  // d of a recursive run
    EndStatement,    // d of a recursive run
    EndInline,       // d of an inline run
    GiveTurns,       // d times
    Count_,
};

/// Whose rules an instruction follows.
enum class MachineTier : std::uint8_t {
    Either = 0,   // the scalar tier's, then the general tier's
    Scalar = 1,   // the scalar tier's; where that declines, the code goes on elsewhere
    General = 2,  // the general tier's
    Tokens = 3,   // the token-stream evaluator's
};
inline constexpr std::uint8_t kTierMask = 3;
/// Marks: an operand goes with the instruction.
inline constexpr std::uint8_t kFirstGoes = 4;
inline constexpr std::uint8_t kSecondGoes = 8;
/// Mark: the key is one that the int tier takes, so that a bool stands for 0 or 1.
inline constexpr std::uint8_t kIntTierKey = 16;
/// Mark of a test: a number alone decides, so that 0 is false.
inline constexpr std::uint8_t kAloneTest = 16;
/// Mark of a call: it is the first of an expression whose scalar form has been left out, since the
/// callee is one that the scalar tier declines.
inline constexpr std::uint8_t kExpectsDecline = 16;
/// Mark of a call: its value becomes part of a text, so `toString(x)` may give `x` itself.
inline constexpr std::uint8_t kAsText = 8;
/// Mark of a call: its value is dropped.
inline constexpr std::uint8_t kDiscards = 32;
/// Mark of a call: the value of `x = f(...)`.
inline constexpr std::uint8_t kDirectCall = 64;
/// Mark of a call: a block scope is visible at it.
inline constexpr std::uint8_t kAmongBlocks = 128;

/// Mark of a move: the variable is read by the rules of the scalar tier, which raises for one that
/// a compound assignment has spoiled.
inline constexpr std::uint8_t kCheckedVariable = 32;

/// Mark of ForNext: the body is a recursive run, so that what fails in counting is of the `for`.
inline constexpr std::uint8_t kCountsOutside = 1;
/// Mark of ForNext: every statement of the body has made its line the current one.
inline constexpr std::uint8_t kLinesAreKept = 2;

/// The end of the code, which is no statement.
inline constexpr std::uint8_t kReturnsChunkValue = 1;
inline constexpr std::uint8_t kReturnsNothing = 2;

struct MachineInstruction {
    MachineOp op{};
    std::uint8_t m = 0;
    std::uint16_t a = 0;
    std::uint16_t b = 0;
    std::uint16_t c = 0;

    /// The operand that takes the places of `b` and `c`.
    [[nodiscard]] std::int32_t d() const {
        return static_cast<std::int32_t>(b | static_cast<std::uint32_t>(c) << 16U);
    }
    void setD(std::int32_t value) {
        b = static_cast<std::uint16_t>(static_cast<std::uint32_t>(value));
        c = static_cast<std::uint16_t>(static_cast<std::uint32_t>(value) >> 16U);
    }
    /// `c` as a signed number.
    [[nodiscard]] int distance() const { return static_cast<std::int16_t>(c); }
};
static_assert(sizeof(MachineInstruction) == 8);
/// The largest int that an instruction has in `c`.
inline constexpr int kLargestShort = 32767;

/// A token that names a variable.
struct VariableRecord {
    /// No kind of slot.
    static constexpr auto kNoKind = static_cast<SlotKind>(255);

    const TokenAnalysis* token = nullptr;
    Variable* global = nullptr;  // once the token has met it
    // What the token's cache says while it leads to `global` in its depth; `kNoKind` if that does
    // not tell enough.
    SlotKind globalKind = kNoKind;
    // Its certain place, if it has one that the token has not met yet.
    bool hasPlace = false;
    bool isPlain = false;          // neither of the next two
    bool isInLeaf = false;         // of the body of a function of one line
    bool amongBlocks = false;      // a block scope is visible there
    std::uint16_t place = 0;       // register
    std::uint16_t frameDepth = 0;  // frame scopes between it and the top
    std::uint16_t entry = 0;       // in its scope

    [[nodiscard]] Name name() const { return token->name; }
    void setGlobal(Variable* value) {
        global = value;
        if (isPlain && value != nullptr) globalKind = SlotKind::Global;
    }
};

/// The names of a scope that code opens.
struct ScopeWindow {
    std::vector<Name> names;
    std::uint16_t first = 0;   // register of its first entry
    std::uint16_t given = 0;   // entries that it opens with
    bool hasOwnNames = false;  // the order of the names is not known before
};

/// Blocks nested deeper go by the executor.
inline constexpr std::size_t kMostNestedBlocks = 100;

/// Which block scopes of its own an activation has at a place in the code.
struct BlockState {
    std::uint16_t outer = 0;     // the state around the innermost of them
    std::uint16_t level = 0;     // how many there are
    std::uint16_t window = 0;    // of the innermost
    std::uint16_t declared = 0;  // entries of the innermost
    std::uint16_t first = 0;     // the registers of all of them, with what lies in between
    std::uint16_t end = 0;
};

/// What one statement, or one condition, of the code is.
struct MachineStatement {
    std::uint32_t first = 0;     // where its code begins
    std::uint32_t line = 0;      // index of its line
    std::size_t lineNumber = 0;  // of that line
    const std::string* source = nullptr;
    std::uint32_t instruction = 0;  // of the program, for RunStatement
    std::int32_t awaited = -1;  // the record whose token must meet its place for code of its own
    bool runsCode = false;      // it may run script code, so it begins with Line
    bool isRecursive = false;   // in a recursive run, not in an inline one
    std::uint16_t depth = 0;    // statements of recursive runs that end with it, if it leaves
};

/// The code of an expression without calls, or the scalar form of one with calls: where it goes on
/// when that declines.
struct ExpressionSite {
    std::uint32_t first = 0;
    std::uint32_t last = 0;    // one past its code
    std::uint32_t behind = 0;  // where the code goes on with the value, or if the condition holds
    std::uint32_t otherwise = 0;  // if the condition does not hold
    // Of a scalar form: where the code goes on behind the general form, too.
    std::uint32_t doneTrue = 0;
    std::uint32_t doneFalse = 0;
    const FastExpression* expression = nullptr;
    const ParsedScriptLine* line = nullptr;
    std::int32_t node = -1;  // of the expression; -1 for the whole of it
    std::uint16_t result = 0;
    std::uint16_t firstTemporary = 0;  // registers that are free behind it
    std::uint16_t endTemporary = 0;
    bool isCondition = false;
    bool isScalarForm = false;  // `behind` is where the general form begins
    bool isGeneral = false;     // by the general tier alone
    bool isStatement = false;   // of a scalar form: all of a compound assignment
};

struct MemberSite {
    std::uint16_t base = 0;  // variable record, or register
    bool baseIsRegister = false;
    std::uint32_t key = 0;  // constant
};

/// A call of the scalar tier.
struct ScalarCallSite {
    std::uint16_t callee = 0;  // variable record, member site or register
    bool isMember = false;
    bool isRegister = false;
    bool takesScalars =
        false;  // the arguments follow the scalar tier, as those of the mathematical natives
    std::uint16_t result = 0;
    std::uint32_t behind = 0;     // the call
    std::uint32_t otherwise = 0;  // where the code goes on if the call declines
    std::int32_t node = 0;
    const FastExpression* expression = nullptr;
    const ParsedScriptLine* line = nullptr;
};

/// `t[a][b] = v`, and the compound form.
struct StoreSite {
    std::uint16_t base = 0;  // register, or record of a global
    bool isGlobal = false;
    std::uint16_t firstKey = 0;
    std::uint16_t keyCount = 0;
    std::uint16_t value = 0;
    char operation = 0;  // of a compound operator, else 0
};

struct TableSite {
    struct Entry {
        std::int32_t key = -1;  // constant
        std::int32_t keyRegister = -1;
        std::uint16_t value = 0;
    };
    std::vector<Entry> entries;                  // without a key: positional
    std::optional<TableStorage::Layout> record;  // of constant keys, each of which is there once
};

struct LoopSite {
    std::uint32_t statement = 0;
    std::uint16_t window = 0;
    std::uint16_t first = 0;  // hidden registers of a walk or a numeric loop
    std::uint16_t nameCount = 0;
    std::uint32_t iterator = 0;   // variable record of the token `pairs` or `ipairs`
    std::uint32_t otherwise = 0;  // see the instructions
    bool isBuiltin = false;
    std::uint16_t callArguments = 0;
};

/// Where a token is the last one read when an instruction of the code raises.
struct TokenSite {
    std::uint32_t at = 0;
    std::uint32_t token = 0;
    const ParsedScriptLine* line = nullptr;
};

/// Where the operand of a compound assignment comes from: a scalar is applied by rules of its own.
enum class OperandOrigin : std::uint16_t {
    Unknown = 0,  // an expression without calls: whatever its tiers say
    Call = 1,     // the direct call before
    Scalar = 2,   // the scalar tier
    General = 3,  // the general tier
};

inline constexpr std::uint32_t kNoLoopEnd = static_cast<std::uint32_t>(-1);

/// The pointers lead into the program, which owns the code.
struct MachineCode {
    std::vector<MachineInstruction> code;
    // What calls look at.
    MachineFunction* function = nullptr;
    std::uint32_t registerCount = 0;
    std::uint16_t parameterCount = 0;
    std::uint16_t chunkValue = 0;  // register of the chunk's value
    /// The window of the function's own scope at hand.
    struct Frame {
        const Name* names = nullptr;
        std::uint32_t given = 0;
        std::uint32_t capacity = 0;  // with Scope::kUncounted if its names need not be counted
        std::uint32_t version = kNoVersion;  // DovrelScript::frameNamesVersion when that was found
        bool hasOwnNames = false;
    };
    static constexpr std::uint32_t kNoVersion = static_cast<std::uint32_t>(-1);
    mutable Frame frame;
    bool forTurns = false;
    bool isLeaf = false;        // the body of a function of one line
    bool givesSeveral = false;  // a leaf of several results
    // The tables of the instructions.
    std::vector<Variable> constants;
    std::vector<VariableRecord> variables;
    std::vector<ScopeWindow> windows;
    std::vector<BlockState> blockStates;       // the first is that without blocks
    std::vector<MachineStatement> statements;  // by ascending `first`
    std::vector<ExpressionSite> expressions;
    std::vector<MemberSite> members;
    std::vector<ScalarCallSite> scalarCalls;
    std::vector<StoreSite> stores;
    std::vector<TableSite> tables;
    std::vector<LoopSite> loops;
    std::vector<TokenSite> tokens;      // by ascending `at`
    std::vector<TokenSite> tokenMarks;  // of LastToken
    std::uint16_t frameWindow = 0;      // of the function's own scope
    bool hasBlock = false;              // the code opens a block scope of its own at its start
    mutable bool isStale = false;       // tokens have met their places since
    bool isTokenLeaf = false;           // a leaf by the rules of the token-stream evaluator
    bool isTurnLine = false;  // a line of a coroutine; it has one statement, without a place
    const BytecodeProgram* program = nullptr;
    void* version = nullptr;                // the MachineFunction::Version that it belongs to
    const MachineCode* other = nullptr;     // the form for turns, and back
    std::vector<std::uint32_t> toOther;     // index of the same instruction there
    std::vector<std::uint32_t> loopEnds;    // the JumpBack of each loop; kNoLoopEnd if it has none
    std::vector<std::uint16_t> loopStates;  // the block state there

    [[nodiscard]] bool isUsable() const { return !code.empty(); }
};
