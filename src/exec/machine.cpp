// The loop over the instructions of the compiled form.
//
// What may move under one's feet here:
//   1. `at` is the current instruction, `R` the registers of the innermost activation, `code` its
//   code. All
//      three change with each call and return, and when other code goes on for the same activation.
//   2. `activations_` moves its elements when it grows. Registers never move while their activation
//   lives.
//   3. An instruction that runs script code may change every variable, global and element. No
//   reference into
//      an array or a table is kept across one.
//   4. Rare cases are functions beside the loop. One that declines says where the code goes on by
//   `at`.
#include "exec/machine.h"

#include <cmath>
#include <utility>

#include "eval/assignment.h"
#include "eval/errors.h"
#include "eval/scalar_arithmetic.h"
#include "eval/variable_access.h"
#include "exec/machine_values.h"
#include "exec/machine_walk.h"
#include "library/natives.h"
#include "value/operators.h"
#include "value/table.h"

// Labels as values: both compilers have them, and each instruction gets a jump of its own to
// predict.
#pragma GCC diagnostic ignored "-Wpedantic"

#define DISPATCH() goto* kLabels[static_cast<std::uint8_t>(at->op)]
#define NEXT()      \
    do {            \
        ++at;       \
        DISPATCH(); \
    } while (false)

namespace {

/// An element into a register, which may be that of the container; the container may go.
[[gnu::always_inline]] inline void takeElement(Variable& target, const Variable& element,
                                               Variable& container, std::uint8_t marks) {
    target.overwrite(element);
    if ((marks & kFirstGoes) != 0) container.overwriteNil();
}

/// `callee` if it is a native of which nothing but its result matters: not `assert`, which is no
/// call as a statement, nor what may end a coroutine's turn. Else null.
[[gnu::always_inline]] inline const ScriptCallable* plainNative(const Variable& callee,
                                                                const DovrelScript& interpreter) {
    if (callee.tag() != Variable::kFunctionTag) return nullptr;
    const ScriptCallable* callable = callee.rawFunction();
    if (callable == nullptr || !callable->isNative || callable->isDecay) return nullptr;
    if (callable->builtinId == BuiltinId::Assert) return nullptr;
    if (callable->builtinId == BuiltinId::None && interpreter.inCoroutineTurn) return nullptr;
    return callable;
}

[[gnu::always_inline]] inline bool isNative(const Variable& callee, BuiltinId id) {
    if (callee.tag() != Variable::kFunctionTag) return false;
    const ScriptCallable* callable = callee.rawFunction();
    return callable != nullptr && callable->builtinId == id && callable->isNative &&
           !callable->isDecay;
}

}  // namespace

/// Leaves all functions of one loop where it is left by an exception.
class Machine::Abandoning {
public:
    Abandoning(Machine& machine, std::size_t entry) : machine_(machine), entry_(entry) {}
    ~Abandoning() {
        while (machine_.activations_.size() > entry_) machine_.abandonActivation();
    }
    Abandoning(const Abandoning&) = delete;
    Abandoning& operator=(const Abandoning&) = delete;

private:
    Machine& machine_;
    std::size_t entry_;
};

#define SLOW_BINARY(kind, left, right)                                      \
    do {                                                                    \
        moved = at;                                                         \
        if (!slowBinary(*code, moved, R, kind, left, right)) goto declined; \
        NEXT();                                                             \
    } while (false);

Variable Machine::run() {
    const std::size_t entry = activations_.size() - 1;
    const Abandoning abandoning(*this, entry);
    activations_.back().pc = activations_.back().code->code.data();
    bool isBehindCall = false;
    for (;;) {
        Variable result = runLoop(entry, isBehindCall);
        if (!isBehindCall) return result;
    }
}

/// Runs the innermost activation and what it calls until activation `entry` has ended. It begins
/// where `pc` of the activation is, or behind that if `isBehindCall`, which is set where a
/// protected call has caught an exception: the loop must be entered anew then.
Variable Machine::runLoop(const std::size_t entry, bool& isBehindCall) {
    static const void* const kLabels[] = {
        &&LoadNil,
        &&LoadInt,
        &&LoadConst,
        &&Move,
        &&Take,
        &&Clear,
        &&GetVariable,
        &&GetGlobal,
        &&GetPlace,
        &&SetVariable,
        &&SetGlobal,
        &&UpdateVariable,
        &&UpdateRegister,
        &&PushBlock,
        &&PopBlock,
        &&DeclareBlock,
        &&DeclareFrame,
        &&DeclareFrameOnce,
        &&DeclareByName,
        &&Add,
        &&Subtract,
        &&Multiply,
        &&Divide,
        &&IntDivide,
        &&Modulo,
        &&Power,
        &&Equal,
        &&NotEqual,
        &&Less,
        &&Greater,
        &&LessEqual,
        &&GreaterEqual,
        &&AddInt,
        &&SubtractInt,
        &&MultiplyInt,
        &&DivideInt,
        &&IntDivideInt,
        &&ModuloInt,
        &&AddConst,
        &&SubtractConst,
        &&MultiplyConst,
        &&DivideConst,
        &&Negate,
        &&Not,
        &&Length,
        &&Join,
        &&Append,
        &&AppendGlobal,
        &&TouchGlobal,
        &&Jump,
        &&JumpBack,
        &&JumpIfFalse,
        &&JumpIfTrue,
        &&SkipUnlessTrue,
        &&SkipIfTrue,
        &&IfEqual,
        &&IfNotEqual,
        &&IfLess,
        &&IfGreater,
        &&IfLessEqual,
        &&IfGreaterEqual,
        &&UnlessEqual,
        &&UnlessNotEqual,
        &&UnlessLess,
        &&UnlessGreater,
        &&UnlessLessEqual,
        &&UnlessGreaterEqual,
        &&IfEqualInt,
        &&IfNotEqualInt,
        &&IfLessInt,
        &&IfGreaterInt,
        &&IfLessEqualInt,
        &&IfGreaterEqualInt,
        &&UnlessEqualInt,
        &&UnlessNotEqualInt,
        &&UnlessLessInt,
        &&UnlessGreaterInt,
        &&UnlessLessEqualInt,
        &&UnlessGreaterEqualInt,
        &&IfEqualConst,
        &&UnlessEqualConst,
        &&Index,
        &&IndexInt,
        &&IndexConst,
        &&IndexGlobal,
        &&IndexGlobalConst,
        &&IndexThrough,
        &&IndexIntThrough,
        &&IndexConstThrough,
        &&IndexGlobalThrough,
        &&IndexGlobalConstThrough,
        &&SetIndex,
        &&SetIndexGlobal,
        &&UpdateIndex,
        &&UpdateIndexGlobal,
        &&SetPath,
        &&Call,
        &&CallGlobal,
        &&CallMember,
        &&RequireScalarCall,
        &&CallScalar,
        &&RequireScalar,
        &&Return,
        &&ReturnLeaf,
        &&ReturnLeafMulti,
        &&ReturnNil,
        &&EndTurnLine,
        &&ReturnMulti,
        &&NewArray,
        &&NewTable,
        &&RequireKey,
        &&Varargs,
        &&SpreadCall,
        &&Spread,
        &&CutMulti,
        &&CutMultiAndTake,
        &&ForStart,
        &&ForNext,
        &&ForSlowly,
        &&CloseFrame,
        &&OpenLoopFrame,
        &&WalkCheck,
        &&WalkCall,
        &&WalkStart,
        &&WalkNext,
        &&WalkEnd,
        &&RunStatement,
        &&TreeValue,
        &&TreeCondition,
        &&Line,
        &&LastToken,
        &&ChunkValue,
        &&ClearChunkValue,
        &&BeginStatement,
        &&EndStatement,
        &&EndInline,
        &&GiveTurns,
    };
    static_assert(std::size(kLabels) == static_cast<std::size_t>(Op::Count_));

    const MachineCode* code = activations_.back().code;
    Variable* R = activations_.back().base;
    Pc at = activations_.back().pc;
    Variable* slot = nullptr;  // of a call under way
    std::size_t argumentCount = 0;
    const MachineCode* callee = nullptr;
    Variable* returned = nullptr;
    Variable result;
    bool holds = false;  // a condition that was decided beside the loop
    // Where the code goes on if an instruction cannot. `at` itself must stay in a register of the
    // host, so nobody gets its address.
    Pc moved = nullptr;

    try {
        if (std::exchange(isBehindCall, false)) {
            if (needsAttention()) goto attend;
            ++at;
        }
        DISPATCH();

    LoadNil:
        R[at->a].overwriteNil();
        NEXT();
    LoadInt:
        R[at->a].overwriteInt(at->d());
        NEXT();
    LoadConst:
        R[at->a].overwrite(code->constants[static_cast<std::size_t>(at->d())]);
        NEXT();
    Move : {
        const Variable& value = R[at->b];
        if (at->m != 0 && isSpoiled(value)) throwBadVariantAccess();
        R[at->a].overwrite(value);
        NEXT();
    }
    Take:
        R[at->a].overwriteByMove(R[at->b]);
        NEXT();
    Clear:
        R[at->a].overwriteNil();
        NEXT();

    GetVariable : {
        const VariableRecord& record = code->variables[static_cast<std::size_t>(at->d())];
        if (const Variable* value = entryOf(record)) {
            if (at->m != 0 && isSpoiled(*value)) throwBadVariantAccess();
            R[at->a].overwrite(*value);
        } else if (isNowhere(record)) {
            R[at->a].overwriteNil();
        } else {
            getVariable(*code, *at, R[at->a]);
        }
        NEXT();
    }
    GetGlobal : {
        const VariableRecord& record = code->variables[static_cast<std::size_t>(at->d())];
        if (const Variable* value = globalOf(record)) {
            if (at->m != 0 && isSpoiled(*value)) throwBadVariantAccess();
            R[at->a].overwrite(*value);
        } else {
            getVariable(*code, *at, R[at->a]);
        }
        NEXT();
    }
    GetPlace:
        getPlace(*code, *at, R[at->a]);
        NEXT();
    SetVariable : {
        const VariableRecord& record = code->variables[static_cast<std::size_t>(at->d())];
        if (Variable* variable = record.hasPlace ? nullptr : entryOf(record)) {
            variable->overwriteByMove(R[at->a]);
        } else {
            setVariable(*code, *at, R[at->a]);
        }
        NEXT();
    }
    SetGlobal : {
        const VariableRecord& record = code->variables[static_cast<std::size_t>(at->d())];
        if (Variable* value = globalOf(record)) {
            value->overwriteByMove(R[at->a]);
        } else {
            setVariable(*code, *at, R[at->a]);
        }
        NEXT();
    }
    UpdateVariable : {
        const VariableRecord& record = code->variables[at->a];
        Variable* variable = globalOf(record);
        if (variable == nullptr) {
            variable = variableForStore(*code, at->a);
            if (variable == nullptr) {
                showPosition(*code, at);
                interpreter_.throwError("Variable not found: " + record.name()->text,
                                        record.name()->text);
            }
        }
        if (!updateNumber(*variable, at->m, R[at->b])) update(variable, *code, at, R[at->b]);
        NEXT();
    }
    UpdateRegister : {
        Variable& variable = R[at->a];
        if (!updateNumber(variable, at->m, R[at->b])) update(&variable, *code, at, R[at->b]);
        NEXT();
    }

    PushBlock:
        interpreter_.blockScopes.putOff();
        activations_.back().blockState = at->b;
        NEXT();
    DeclareBlock:
        interpreter_.blockScopes.putOffEntry();
        activations_.back().blockState = at->b;
        NEXT();
    PopBlock : {
        Activation& running = activations_.back();
        if (running.openBlocks != 0) [[unlikely]] {
            closeBlock(running, at->c);
        } else {
            interpreter_.blockScopes.forget(1);
        }
        running.blockState = at->c;
        slot = &R[at->a];
        for (Variable* const end = slot + at->b; slot != end; ++slot) slot->overwriteNil();
        NEXT();
    }
    DeclareFrame:
        interpreter_.frameScopes.back().declareNext();
        NEXT();
    DeclareFrameOnce : {
        Scope& scope = interpreter_.frameScopes.back();
        if (scope.size() == static_cast<std::size_t>(at->d())) scope.declareNext();
        NEXT();
    }
    DeclareByName:
        declareByName(code->variables[static_cast<std::size_t>(at->d())], R[at->a],
                      static_cast<ScopeTarget>(at->m));
        NEXT();

    Add : {
        const Variable& left = R[at->b];
        const Variable& right = R[at->c];
        if (areInts(left, right)) {
            R[at->a].overwriteInt(wrapAdd(left.rawInt(), right.rawInt()));
            NEXT();
        }
        if (areFloats(left, right)) {
            R[at->a].overwriteFloat(left.rawFloat() + right.rawFloat());
            NEXT();
        }
        SLOW_BINARY(NodeKind::Add, left, right)
    }
    Subtract : {
        const Variable& left = R[at->b];
        const Variable& right = R[at->c];
        if (areInts(left, right)) {
            R[at->a].overwriteInt(wrapSubtract(left.rawInt(), right.rawInt()));
            NEXT();
        }
        if (areFloats(left, right)) {
            R[at->a].overwriteFloat(left.rawFloat() - right.rawFloat());
            NEXT();
        }
        SLOW_BINARY(NodeKind::Subtract, left, right)
    }
    Multiply : {
        const Variable& left = R[at->b];
        const Variable& right = R[at->c];
        if (areInts(left, right)) {
            R[at->a].overwriteInt(wrapMultiply(left.rawInt(), right.rawInt()));
            NEXT();
        }
        if (areFloats(left, right)) {
            R[at->a].overwriteFloat(left.rawFloat() * right.rawFloat());
            NEXT();
        }
        SLOW_BINARY(NodeKind::Multiply, left, right)
    }
    Divide : {
        const Variable& left = R[at->b];
        const Variable& right = R[at->c];
        if (areFloats(left, right) && right.rawFloat() != 0.0F) {
            R[at->a].overwriteFloat(static_cast<float>(static_cast<double>(left.rawFloat()) /
                                                       static_cast<double>(right.rawFloat())));
            NEXT();
        }
        if (areInts(left, right) && right.rawInt() != 0) {
            R[at->a].overwriteFloat(static_cast<float>(static_cast<double>(left.rawInt()) /
                                                       static_cast<double>(right.rawInt())));
            NEXT();
        }
        SLOW_BINARY(NodeKind::Divide, left, right)
    }
    IntDivide : {
        const Variable& left = R[at->b];
        const Variable& right = R[at->c];
        if (areInts(left, right)) {
            R[at->a].overwriteInt(checkedDivide(left.rawInt(), right.rawInt()));
            NEXT();
        }
        SLOW_BINARY(NodeKind::IntDivide, left, right)
    }
    Modulo : {
        const Variable& left = R[at->b];
        const Variable& right = R[at->c];
        if (areInts(left, right)) {
            R[at->a].overwriteInt(checkedRemainder(left.rawInt(), right.rawInt()));
            NEXT();
        }
        SLOW_BINARY(NodeKind::Modulo, left, right)
    }
    Power:
        SLOW_BINARY(NodeKind::Power, R[at->b], R[at->c])

#define COMPARISON(Kind, op)                                                        \
    Kind : {                                                                        \
        const Variable& left = R[at->b];                                            \
        const Variable& right = R[at->c];                                           \
        if (areInts(left, right)) {                                                 \
            R[at->a].overwriteBool(left.rawInt() op right.rawInt());                \
            NEXT();                                                                 \
        }                                                                           \
        if (areFloats(left, right)) {                                               \
            R[at->a].overwriteBool(                                                 \
                compareNumbers(NodeKind::Kind, left.rawFloat(), right.rawFloat())); \
            NEXT();                                                                 \
        }                                                                           \
        SLOW_BINARY(NodeKind::Kind, left, right)                                    \
    }
        COMPARISON(Equal, ==)
        COMPARISON(NotEqual, !=)
        COMPARISON(Less, <)
        COMPARISON(Greater, >)
        COMPARISON(LessEqual, <=)
        COMPARISON(GreaterEqual, >=)

    AddInt : {
        const Variable& left = R[at->b];
        if (isIntValue(left)) {
            R[at->a].overwriteInt(wrapAdd(left.rawInt(), at->distance()));
            NEXT();
        }
        SLOW_BINARY(NodeKind::Add, left, Variable::makeInt(at->distance()))
    }
    SubtractInt : {
        const Variable& left = R[at->b];
        if (isIntValue(left)) {
            R[at->a].overwriteInt(wrapSubtract(left.rawInt(), at->distance()));
            NEXT();
        }
        SLOW_BINARY(NodeKind::Subtract, left, Variable::makeInt(at->distance()))
    }
    MultiplyInt : {
        const Variable& left = R[at->b];
        if (isIntValue(left)) {
            R[at->a].overwriteInt(wrapMultiply(left.rawInt(), at->distance()));
            NEXT();
        }
        SLOW_BINARY(NodeKind::Multiply, left, Variable::makeInt(at->distance()))
    }
    DivideInt : {
        const Variable& left = R[at->b];
        if (isIntValue(left) && at->distance() != 0) {
            R[at->a].overwriteFloat(static_cast<float>(static_cast<double>(left.rawInt()) /
                                                       static_cast<double>(at->distance())));
            NEXT();
        }
        SLOW_BINARY(NodeKind::Divide, left, Variable::makeInt(at->distance()))
    }
    IntDivideInt : {
        const Variable& left = R[at->b];
        if (isIntValue(left)) {
            R[at->a].overwriteInt(checkedDivide(left.rawInt(), at->distance()));
            NEXT();
        }
        SLOW_BINARY(NodeKind::IntDivide, left, Variable::makeInt(at->distance()))
    }
    ModuloInt : {
        const Variable& left = R[at->b];
        if (isIntValue(left)) {
            R[at->a].overwriteInt(checkedRemainder(left.rawInt(), at->distance()));
            NEXT();
        }
        SLOW_BINARY(NodeKind::Modulo, left, Variable::makeInt(at->distance()))
    }

#define WITH_CONSTANT(Name, Kind, op)                                                    \
    Name : {                                                                             \
        const Variable& left = R[at->b];                                                 \
        const Variable& right = code->constants[at->c];                                  \
        if (isFloatValue(left)) {                                                        \
            R[at->a].overwriteFloat(left.rawFloat() op right.rawFloat());                \
            NEXT();                                                                      \
        }                                                                                \
        moved = at;                                                                      \
        if (!binary(*code, moved, NodeKind::Kind, R[at->a], left, right)) goto declined; \
        if ((at->m & kFirstGoes) != 0) R[at->b].overwriteNil();                          \
        NEXT();                                                                          \
    }
        WITH_CONSTANT(AddConst, Add, +)
        WITH_CONSTANT(SubtractConst, Subtract, -)
        WITH_CONSTANT(MultiplyConst, Multiply, *)
    DivideConst : {
        const Variable& left = R[at->b];
        const Variable& right = code->constants[at->c];
        if (isFloatValue(left) && right.rawFloat() != 0.0F) {
            R[at->a].overwriteFloat(static_cast<float>(static_cast<double>(left.rawFloat()) /
                                                       static_cast<double>(right.rawFloat())));
            NEXT();
        }
        moved = at;
        if (!binary(*code, moved, NodeKind::Divide, R[at->a], left, right)) goto declined;
        if ((at->m & kFirstGoes) != 0) R[at->b].overwriteNil();
        NEXT();
    }

    Negate:
    Not:
    Length : {
        moved = at;
        if (!unary(*code, moved, R[at->a], R[at->b])) goto declined;
        if ((at->m & kFirstGoes) != 0) R[at->b].overwriteNil();
        NEXT();
    }
    Join:
        moved = at;
        if (!join(*code, moved, R[at->a], &R[at->b], at->c)) goto declined;
        NEXT();
    Append : {
        if (at->c == 1 && updateNumber(R[at->a], '+', R[at->b])) NEXT();
        moved = at;
        if (!append(*code, moved, R)) goto declined;
        NEXT();
    }
    AppendGlobal : {
        Variable* const variable = globalOf(code->variables[at->a]);
        if (variable != nullptr && at->c == 1 && updateNumber(*variable, '+', R[at->b])) NEXT();
        moved = at;
        if (!appendGlobal(*code, moved, R)) goto declined;
        NEXT();
    }
    TouchGlobal:
        touchGlobal(code->variables[static_cast<std::size_t>(at->d())]);
        NEXT();

    Jump:
        at = code->code.data() + at->d();
        DISPATCH();
    JumpBack : {
#ifdef DOVREL_FUZZ
        static_cast<void>(interpreter_.softErrorUnwinding());
#endif
#ifdef DOVREL_EMBEDDED
        watchSteps(*code, at, at->a);
#endif
        Activation& running = activations_.back();
        if (code->isStale || (code->forTurns && !givesTurns())) {
            const auto loop = static_cast<std::size_t>(at->d());
            const MachineCode* next = renewed(*code->function, *code);
            if (next->version == code->version) {
                if (next != code && code->forTurns) {
                    const auto index = static_cast<std::size_t>(at - code->code.data());
                    at = next->code.data() + code->toOther[index];
                    code = next;
                    running.code = next;
                    // The instruction is there too, or else what follows it.
                    if (at->op == Op::JumpBack) NEXT();
                    DISPATCH();
                }
            } else if (R + next->registerCount <= segmentEnd_ && loop < next->loopEnds.size() &&
                       next->loopEnds[loop] != kNoLoopEnd) {
                code = next;
                running.code = next;
                running.blockState = next->loopStates[loop];
                // With nothing put off, the same blocks are open in the new code.
                if (!interpreter_.blockScopes.isPutOff()) running.openState = running.blockState;
                at = code->code.data() + code->loopEnds[loop];
                if (at->op != Op::JumpBack) DISPATCH();
            }
        }
        NEXT();
    }
    JumpIfFalse : {
        const Variable& value = R[at->a];
        if (isBoolValue(value)) {
            if (value.rawBool()) NEXT();
        } else {
            moved = at;
            if (!truth(*code, moved, value, holds)) goto declined;
            if ((at->m & kFirstGoes) != 0) R[at->a].overwriteNil();
            if (holds) NEXT();
        }
        at = code->code.data() + at->d();
        DISPATCH();
    }
    JumpIfTrue : {
        const Variable& value = R[at->a];
        if (isBoolValue(value)) {
            if (!value.rawBool()) NEXT();
        } else {
            moved = at;
            if (!truth(*code, moved, value, holds)) goto declined;
            if ((at->m & kFirstGoes) != 0) R[at->a].overwriteNil();
            if (!holds) NEXT();
        }
        at = code->code.data() + at->d();
        DISPATCH();
    }
    SkipUnlessTrue:
    SkipIfTrue : {
        const bool skips = at->op == Op::SkipIfTrue;
        const Variable& value = R[at->a];
        if (isBoolValue(value)) {
            holds = value.rawBool();
        } else {
            moved = at;
            if (!truth(*code, moved, value, holds)) goto declined;
        }
        if (holds == skips) {
            at = code->code.data() + at->d();
            DISPATCH();
        }
        R[at->a].overwriteNil();
        NEXT();
    }

// The truth of a test is not kept where it decides at once: the host would write it down first.
#define JUMP_IF(truth)        \
    do {                      \
        if (!(truth)) NEXT(); \
        at += at->distance(); \
        DISPATCH();           \
    } while (false)
#define JUMP_SLOWLY(sense, distance)  \
    do {                              \
        if (holds != (sense)) NEXT(); \
        at += distance;               \
        DISPATCH();                   \
    } while (false)
#define BRANCH(Kind, op, sense, Prefix)                                                          \
    Prefix##Kind : {                                                                             \
        const Variable& left = R[at->a];                                                         \
        const Variable& right = R[at->b];                                                        \
        if (areInts(left, right)) JUMP_IF((left.rawInt() op right.rawInt()) == sense);           \
        if (areFloats(left, right)) {                                                            \
            JUMP_IF(compareNumbers(NodeKind::Kind, left.rawFloat(), right.rawFloat()) == sense); \
        }                                                                                        \
        const int distance = at->distance();                                                     \
        moved = at;                                                                              \
        if (!slowCompare(*code, moved, R, NodeKind::Kind, left, right, holds, true)) {           \
            goto declined;                                                                       \
        }                                                                                        \
        JUMP_SLOWLY(sense, distance);                                                            \
    }
#define BRANCH_INT(Kind, op, sense, Prefix)                                                      \
    Prefix##Kind##Int : {                                                                        \
        const Variable& left = R[at->a];                                                         \
        const int right = static_cast<std::int16_t>(at->b);                                      \
        if (isIntValue(left)) JUMP_IF((left.rawInt() op right) == sense);                        \
        if (isFloatValue(left)) {                                                                \
            JUMP_IF(compareNumbers(NodeKind::Kind, static_cast<double>(left.rawFloat()),         \
                                   static_cast<double>(right)) == sense);                        \
        }                                                                                        \
        const int distance = at->distance();                                                     \
        moved = at;                                                                              \
        if (!slowCompare(*code, moved, R, NodeKind::Kind, left, Variable::makeInt(right), holds, \
                         false)) {                                                               \
            goto declined;                                                                       \
        }                                                                                        \
        JUMP_SLOWLY(sense, distance);                                                            \
    }
#define BRANCHES(Kind, op)          \
    BRANCH(Kind, op, true, If)      \
    BRANCH(Kind, op, false, Unless) \
    BRANCH_INT(Kind, op, true, If)  \
    BRANCH_INT(Kind, op, false, Unless)
        BRANCHES(Equal, ==)
        BRANCHES(NotEqual, !=)
        BRANCHES(Less, <)
        BRANCHES(Greater, >)
        BRANCHES(LessEqual, <=)
        BRANCHES(GreaterEqual, >=)
    IfEqualConst:
    UnlessEqualConst : {
        const Variable& left = R[at->a];
        const Variable& right = code->constants[at->b];
        const int distance = at->distance();
        const bool sense = at->op == Op::IfEqualConst;
        bool isEqual = false;
        if (isTextValue(left) && isTextValue(right)) {
            isEqual = isSameText(left.asText(), right.asText());
            if ((at->m & kTierMask) == 0) declined_ = at;
            if ((at->m & kFirstGoes) != 0) R[at->a].overwriteNil();
        } else if (isNilValue(left) && isNilValue(right)) {
            isEqual = true;
        } else if (isNilValue(right) && isReferenceValue(left) && diverged_ == nullptr) {
            if ((at->m & kTierMask) == 0) declined_ = at;
            if ((at->m & kFirstGoes) != 0) R[at->a].overwriteNil();
        } else if (!(moved = at,
                     slowCompare(*code, moved, R, NodeKind::Equal, left, right, isEqual, false))) {
            goto declined;
        }
        if (isEqual != sense) NEXT();
        at += distance;
        DISPATCH();
    }

    Index : {
        const Variable& base = R[at->b];
        const Variable& key = R[at->c];
        if (isArrayValue(base) && isIntValue(key)) {
            takeElement(R[at->a], elementOrNil(base.rawArray(), key.rawInt()), R[at->b], at->m);
            NEXT();
        }
        if (isTableValue(base) && isTextValue(key) && (at->m & kSecondGoes) == 0) {
            const Variable* found = base.rawTable().find(key.asText());
            takeElement(R[at->a], found != nullptr ? *found : nilValue(), R[at->b], at->m);
            NEXT();
        }
        moved = at;
        if (!index(*code, moved, R, base, key)) goto declined;
        NEXT();
    }
    IndexInt : {
        const Variable& base = R[at->b];
        if (isArrayValue(base)) {
            takeElement(R[at->a], elementOrNil(base.rawArray(), at->c), R[at->b], at->m);
            NEXT();
        }
        moved = at;
        if (!index(*code, moved, R, base, Variable::makeInt(at->c))) goto declined;
        NEXT();
    }
    IndexConst : {
        const Variable& base = R[at->b];
        const Variable& key = code->constants[at->c];
        if (isTableValue(base)) {
            const Variable* found = base.rawTable().find(key.asText());
            takeElement(R[at->a], found != nullptr ? *found : nilValue(), R[at->b], at->m);
            NEXT();
        }
        moved = at;
        if (!index(*code, moved, R, base, key)) goto declined;
        NEXT();
    }
    IndexGlobal : {
        VariableRecord& record = const_cast<VariableRecord&>(code->variables[at->b]);
        const Variable* base = globalOf(record);
        if (base == nullptr) base = read(record);
        if (base == nullptr) base = &nilValue();
        const Variable& key = R[at->c];
        if (isArrayValue(*base) && isIntValue(key)) {
            R[at->a].overwrite(elementOrNil(base->rawArray(), key.rawInt()));
            NEXT();
        }
        if (isTableValue(*base) && isTextValue(key) && (at->m & kSecondGoes) == 0) {
            const Variable* found = base->rawTable().find(key.asText());
            R[at->a].overwrite(found != nullptr ? *found : nilValue());
            NEXT();
        }
        moved = at;
        if (!index(*code, moved, R, *base, key)) goto declined;
        NEXT();
    }
    IndexGlobalConst : {
        VariableRecord& record = const_cast<VariableRecord&>(code->variables[at->b]);
        const Variable* base = globalOf(record);
        if (base == nullptr) base = read(record);
        if (base == nullptr) base = &nilValue();
        const Variable& key = code->constants[at->c];
        if (isTableValue(*base)) {
            const Variable* found = base->rawTable().find(key.asText());
            R[at->a].overwrite(found != nullptr ? *found : nilValue());
            NEXT();
        }
        moved = at;
        if (!index(*code, moved, R, *base, key)) goto declined;
        NEXT();
    }

// Both elements at once, or else the first instruction as it is.
#define THROUGH(Plain, container, key)                                                         \
    do {                                                                                       \
        const Variable* const element = elementThere(container, key);                          \
        if (element == nullptr) goto Plain;                                                    \
        const MachineInstruction& next = at[1];                                                \
        const Variable* const inner = next.op == Op::Index ? elementThere(*element, R[next.c]) \
                                      : next.op == Op::IndexInt                                \
                                          ? elementThere(*element, next.c)                     \
                                          : elementThere(*element, code->constants[next.c]);   \
        if (inner == nullptr) goto Plain;                                                      \
        if ((at->m & kSecondGoes) != 0) R[at->c].overwriteNil();                               \
        if ((next.m & kSecondGoes) != 0) R[next.c].overwriteNil();                             \
        R[next.a].overwrite(*inner);                                                           \
        at += 2;                                                                               \
        DISPATCH();                                                                            \
    } while (false)
    IndexThrough:
        THROUGH(Index, R[at->b], R[at->c]);
    IndexIntThrough:
        THROUGH(IndexInt, R[at->b], static_cast<int>(at->c));
    IndexConstThrough:
        THROUGH(IndexConst, R[at->b], code->constants[at->c]);
    IndexGlobalThrough : {
        const Variable* const base = globalOf(code->variables[at->b]);
        if (base == nullptr) goto IndexGlobal;
        THROUGH(IndexGlobal, *base, R[at->c]);
    }
    IndexGlobalConstThrough : {
        const Variable* const base = globalOf(code->variables[at->b]);
        if (base == nullptr) goto IndexGlobalConst;
        THROUGH(IndexGlobalConst, *base, code->constants[at->c]);
    }
    SetIndex : {
        Variable& base = R[at->a];
        const Variable& key = R[at->b];
        if (Variable* element = elementAt(base, key)) {
            element->overwriteByMove(R[at->c]);
        } else {
            setIndex(base, key, R[at->c]);
            R[at->c].overwriteNil();
        }
        R[at->b].overwriteNil();
        NEXT();
    }
    SetIndexGlobal : {
        Variable* base = globalOf(code->variables[at->a]);
        if (base == nullptr) base = variableForStore(*code, at->a);
        const Variable& key = R[at->b];
        Variable* element = base != nullptr ? elementAt(*base, key) : nullptr;
        if (element != nullptr) {
            element->overwriteByMove(R[at->c]);
        } else {
            if (base == nullptr) {
                storeIntoNew(*code, at, at->a, {&key, 1}, R[at->c], true);
            } else {
                setIndex(*base, key, R[at->c]);
            }
            R[at->c].overwriteNil();
        }
        R[at->b].overwriteNil();
        NEXT();
    }
    UpdateIndex : {
        Variable* const element = elementAt(R[at->a], R[at->b]);
        if (element == nullptr || !updateNumber(*element, at->m, R[at->c])) {
            updateIndex(R[at->a], R[at->b], R[at->c], static_cast<char>(at->m));
            R[at->c].overwriteNil();
        }
        R[at->b].overwriteNil();
        NEXT();
    }
    UpdateIndexGlobal : {
        Variable* base = globalOf(code->variables[at->a]);
        if (base == nullptr) base = variableForStore(*code, at->a);
        if (base == nullptr) storeIntoNew(*code, at, at->a, {&R[at->b], 1}, R[at->c], false);
        Variable* const element = elementAt(*base, R[at->b]);
        if (element == nullptr || !updateNumber(*element, at->m, R[at->c])) {
            updateIndex(*base, R[at->b], R[at->c], static_cast<char>(at->m));
            R[at->c].overwriteNil();
        }
        R[at->b].overwriteNil();
        NEXT();
    }
    SetPath:
        setPath(*code, at, R);
        NEXT();

    CallGlobal : {
        slot = &R[at->a];
        argumentCount = at->b;
        VariableRecord& record = const_cast<VariableRecord&>(code->variables[at->c]);
        const Variable* found = globalOf(record);
        if (found == nullptr) found = read(record);
        if (found != nullptr) {
            slot->overwrite(*found);
        } else {
            slot->setNil();
        }
        goto callSlot;
    }
    CallMember : {
        slot = &R[at->a];
        argumentCount = at->b;
        const MemberSite& site = code->members[at->c];
        const Variable* base = nullptr;
        if (site.baseIsRegister) {
            base = &R[site.base];
        } else {
            VariableRecord& record = const_cast<VariableRecord&>(code->variables[site.base]);
            base = globalOf(record);
            if (base == nullptr) base = read(record);
        }
        if (base != nullptr && isTableValue(*base)) {
            const Variable* found = base->rawTable().find(code->constants[site.key].asText());
            if (found != nullptr) {
                slot->overwrite(*found);
                if (const ScriptCallable* native = nativeOf(slot);
                    native != nullptr && native->builtinId != BuiltinId::None) {
                    if ((at->m & kExpectsDecline) != 0 && isScalarCallee(slot)) {
                        moved = at;
                        decline(*code, moved, R);
                        goto declined;
                    }
                    activations_.back().pc = at;
                    callMemberNative(slot, argumentCount, native->builtinId);
                    goto called;
                }
            } else {
                slot->setNil();
            }
        } else if (base != nullptr) {
            activations_.back().pc = at;
            const Variable& key = code->constants[site.key];
            if (isTextValue(*base) && callOfText(slot, argumentCount, *base, key.asText())) {
                goto called;
            }
            *slot = interpreter_.getIndexedValue(*base, key);
        } else {
            *slot = interpreter_.getIndexedValue(Variable(), code->constants[site.key]);
        }
        goto callSlot;
    }
    Call:
        slot = &R[at->a];
        argumentCount = at->b;
    callSlot:
        callee = directCode(*slot, argumentCount, at->m, *code);
        if (callee != nullptr) goto enterDirectly;
        if ((at->m & kExpectsDecline) != 0 && isScalarCallee(slot)) {
            slot->setNil();
            moved = at;
            decline(*code, moved, R);
            goto declined;
        }
        if (const ScriptCallable* native = plainNative(*slot, interpreter_)) {
            if ((at->m & kAsText) != 0 && native->builtinId == BuiltinId::ToString &&
                !needsAttention()) {
                lastCallWasScalar_ = false;
                slot->overwriteByMove(slot[1]);
                NEXT();
            }
            activations_.back().pc = at;
            callPlainNative(slot, argumentCount, *native, at->m);
            goto called;
        }
        callee = readyLeaf(*slot);
        if (callee == nullptr) callee = leafCode(*slot);
        if (callee != nullptr && slot + 1 + callee->registerCount <= segmentEnd_) goto enterLeaf;
        activations_.back().pc = at;
        if (slot->type == VarType::Function) {
            if (tryEnter(slot, argumentCount, at->m)) {
                code = activations_.back().code;
                R = activations_.back().base;
                at = code->code.data();
                DISPATCH();
            }
        }
        if (callOther(slot, argumentCount, at->m, entry)) return {};
    called:
        if (needsAttention()) goto attend;
        NEXT();

    // A callee with its arguments in place and nothing to push but its scope.
    enterDirectly : {
        activations_.back().pc = at;
#ifdef DOVREL_EMBEDDED
        watchCall(*code, at, *callee);
#endif
        activations_.reserveOne();
        R = slot + 1;
        activations_.push(
            {.code = callee,
             .base = R,
             .slot = slot,
             .lineAtEntry = interpreter_.currentLine,
             .frames = static_cast<std::uint32_t>(interpreter_.frameScopes.size()),
             .blocks = static_cast<std::uint32_t>(interpreter_.blockScopes.open().size())});
        ++interpreter_.callDepth;
        ++counts.calls;
        openFrame(*callee, R);
        code = callee;
        at = code->code.data();
        DISPATCH();
    }
    enterLeaf : {
        activations_.back().pc = at;
#ifdef DOVREL_EMBEDDED
        watchSteps(*code, at, 1);
#endif
        activations_.reserveOne();
        Activation& entered = activations_.push();
        R = slot + 1;
        entered.code = callee;
        entered.base = R;
        entered.slot = slot;
        entered.amongBlocks = (at->m & kAmongBlocks) != 0;
        for (std::size_t i = argumentCount; i < callee->parameterCount; ++i) R[i].overwriteNil();
        for (std::size_t i = callee->parameterCount; i < argumentCount; ++i) R[i].overwriteNil();
        ++counts.calls;
        declined_ = diverged_ = nullptr;
        code = callee;
        at = code->code.data();
        DISPATCH();
    }
    ReturnLeaf : {
        if (activations_.back().is(Activation::kEntry)) [[unlikely]] {
            showToken();
            result = std::move(R[at->a]);
            activations_.pop_back();
            return result;
        }
        slot = R - 1;
        const bool byTokens = code->isTokenLeaf;
        if (byTokens) showToken();  // the callee may go with its slot
        leaveLeaf(R[at->a]);
        code = activations_.back().code;
        R = activations_.back().base;
        at = activations_.back().pc;
        lastCallWasScalar_ = !byTokens && declined_ == nullptr && slot->isScalar();
        declined_ = diverged_ = nullptr;
        if (at->op == Op::CallScalar && !lastCallWasScalar_) {
            slot->overwriteNil();
            moved = at;
            decline(*code, moved, R);
            goto declined;
        }
        goto called;
    }

    ReturnLeafMulti : {
        const std::size_t count = at->b;
        declined_ = diverged_ = nullptr;
        if (mayLeaveWithSeveral(count)) {
            leaveWithSeveral(&R[at->a], count);
            code = activations_.back().code;
            R = activations_.back().base;
            at = activations_.back().pc + 1;
            NEXT();
        }
        R[at->a] = multiOf(&R[at->a], count);
        if (activations_.back().is(Activation::kEntry)) {
            result = std::move(R[at->a]);
            activations_.pop_back();
            return result;
        }
        lastCallWasScalar_ = false;
        leaveLeaf(R[at->a]);
        code = activations_.back().code;
        R = activations_.back().base;
        at = activations_.back().pc;
        goto called;
    }

    SpreadCall:
        slot = &R[at->a];
        argumentCount = at->b;
        callee = directCode(*slot, argumentCount, at->m, *code);
        if (callee != nullptr) goto enterDirectly;
        callee = readyLeaf(*slot);
        if (callee == nullptr) callee = leafCode(*slot);
        if (callee != nullptr && slot + 1 + callee->registerCount <= segmentEnd_) goto enterLeaf;
        activations_.back().pc = at;
        if (isNative(*slot, BuiltinId::Pcall)) {
            const ProtectedEntry entered = enterProtected(slot, at->b, at->m);
            if (entered == ProtectedEntry::Answered) {
                at = activations_.back().pc;
                if (needsAttention()) goto attend;
                NEXT();
            }
            holds = entered == ProtectedEntry::Entered;
        } else {
            holds = slot->type == VarType::Function && tryEnter(slot, at->b, at->m);
        }
        if (holds) {
            code = activations_.back().code;
            R = activations_.back().base;
            at = code->code.data();
            DISPATCH();
        }
        *slot = spreadCall(slot, at->b);
        if (needsAttention()) goto attend;
        NEXT();
    Spread:
        spread(R[at->a], &R[at->b], at->c);
        NEXT();
    CutMulti:
        if (R[at->a].type == VarType::Multi) {
            R[at->a] = AssignmentRun::firstValue(Variable(R[at->a]));
        }
        NEXT();
    CutMultiAndTake:
        if (R[at->a].type == VarType::Multi) [[unlikely]]
            goto CutMulti;
        R[at[1].a].overwriteByMove(R[at->a]);
        at += 2;
        DISPATCH();

    RequireScalarCall : {
        const ScalarCallSite& site = code->scalarCalls[at->a];
        if (const Variable* found = calleeAtOnce(*code, R, site)) {
            if (const ScriptCallable* native = nativeOf(found)) {
                if (mayGiveScalar(native->builtinId) &&
                    takesScalars(native->builtinId) == site.takesScalars) {
                    NEXT();
                }
            } else if (!site.takesScalars) {
                // A line that makes no calls itself.
                const MachineCode* const leaf = readyLeaf(*found);
                if (leaf != nullptr && !leaf->isTokenLeaf && !leaf->givesSeveral) NEXT();
            }
        }
        activations_.back().pc = at;
        moved = at;
        if (!mayCallScalar(*code, R, site, moved)) goto declined;
        NEXT();
    }
    CallScalar : {
        activations_.back().pc = at;
        const ScalarCallSite& site = code->scalarCalls[at->c];
        slot = &R[at->a];
        const Variable* found = calleeAtOnce(*code, R, site);
        if (site.takesScalars) {
            const ScriptCallable* native = nativeOf(found);
            if (native != nullptr && tryMathAtOnce(native->builtinId, slot, at->b)) NEXT();
        } else {
            if (found == nullptr) found = calleeOf(*code, R, site);
            if (found != nullptr) {
                callee = readyLeaf(*found);
                if (callee == nullptr) callee = leafCode(*found);
                if (callee != nullptr && !callee->givesSeveral &&
                    slot + 1 + callee->registerCount <= segmentEnd_) {
                    slot->overwrite(*found);
                    argumentCount = at->b;
                    goto enterLeaf;
                }
            }
        }
        if (!callScalar(*code, R, site, slot, at->b)) {
            if (interpreter_.softErrorUnwinding()) goto attend;
            moved = at;
            decline(*code, moved, R);
            goto declined;
        }
        if (needsAttention()) goto attend;
        NEXT();
    }
    RequireScalar : {
        const VarType type = R[at->a].type;
        if (type == VarType::Int || type == VarType::Float || type == VarType::Bool ||
            type == VarType::Nil) {
            NEXT();
        }
        moved = at;
        decline(*code, moved, R);
        goto declined;
    }

    ReturnMulti:
        if (!code->forTurns && mayLeaveWithSeveral(at->b)) {
            leaveWithSeveral(&R[at->a], at->b);
            code = activations_.back().code;
            R = activations_.back().base;
            at = activations_.back().pc + 1;
            NEXT();
        }
        R[at->a] = multiOf(&R[at->a], at->b);
    Return:
        if (code->forTurns) giveTurns(at->c);
        returned = &R[at->a];
        goto leave;
    ReturnNil:
        if (code->forTurns && at->m == 0) giveTurns(at->c);
        returned = &R[code->chunkValue];
        if (at->m != kReturnsChunkValue) returned->overwriteNil();
    leave : {
        const Activation& running = activations_.back();
        if (running.is(Activation::kEntry) || needsAttention()) goto leaveSlowly;
        lastCallWasScalar_ = false;
        if (running.isPlain()) {
            leavePlain(*returned);
        } else {
            showToken();
            result = std::move(*returned);
            returned->setNil();
            slot = activations_.back().slot;
            const bool isProtected = running.is(Activation::kProtected);
            popActivation();
            if (isProtected) {
                // The answer may find no memory, which is an error of the caller.
                code = activations_.back().code;
                R = activations_.back().base;
                at = activations_.back().pc;
                finishProtectedCall(slot, result);
            } else {
                *slot = std::move(result);
            }
        }
        code = activations_.back().code;
        R = activations_.back().base;
        at = activations_.back().pc;
        NEXT();
    }
    EndTurnLine:
        showToken();
        popTurnLine();
        return result;
    leaveSlowly:
        showToken();
        slot = returned;
    leaveWithSlot : {
        if (interpreter_.pendingCoroutineException &&
            !activations_.back().is(Activation::kProgram)) {
            interpreter_.rethrowPendingCoroutineException();
        }
        if (activations_.size() - 1 == entry) {
            result = std::move(*slot);
            slot->setNil();
            popActivation();
            return result;
        }
        Variable* const target = activations_.back().slot;
        result = std::move(*slot);
        slot->setNil();
        lastCallWasScalar_ = false;
        const bool isProtected = activations_.back().is(Activation::kProtected);
        popActivation();
        if (isProtected) {
            code = activations_.back().code;
            R = activations_.back().base;
            at = activations_.back().pc;
            finishProtectedCall(target, result);
        } else {
            *target = std::move(result);
            if (interpreter_.softErrorUnwinding()) target->setNil();
        }
        code = activations_.back().code;
        R = activations_.back().base;
        at = activations_.back().pc;
        if (needsAttention()) goto attend;
        NEXT();
    }

    // An expression goes on elsewhere, or has been evaluated by the tiers.
    declined:
        at = moved;
        code = activations_.back().code;
        if (interpreter_.softErrorPending && interpreter_.softErrorUnwinding()) goto unwind;
        DISPATCH();

    // Behind a call: a soft error may be on its way, or a coroutine be scheduled.
    attend : {
        if (!code->forTurns && givesTurns()) {
            const MachineCode* turns = turnsOf(*code);
            at = turns->code.data() +
                 code->toOther[static_cast<std::size_t>(at - code->code.data())];
            code = turns;
            activations_.back().code = turns;
            activations_.back().pc = at;
        }
        if (!interpreter_.softErrorUnwinding()) NEXT();
    }
    unwind : {
        const MachineStatement& statement = statementAt(*code, at);
        if (code->forTurns) {
            // A block whose own line unwinds is left at once, without the turn behind a
            // statement.
            const bool isBlock = lineOf(statement.line).kind != LineKind::Plain;
            if (!statement.isRecursive && !isBlock) {
                if (interpreter_.scheduledCoroutine != nullptr && !interpreter_.inCoroutineTurn &&
                    !interpreter_.pendingCoroutineException) {
                    interpreter_.serviceScheduledCoroutineTurn();
                }
                interpreter_.rethrowPendingCoroutineException();
            }
            giveTurns(statement.depth + std::size_t{1});
        }
        showToken();
        if (interpreter_.pendingCoroutineException &&
            !activations_.back().is(Activation::kProgram)) {
            interpreter_.rethrowPendingCoroutineException();
        }
        Variable* const target = activations_.back().slot;
        const bool isProtected = activations_.back().is(Activation::kProtected);
        abandonActivation();
        if (activations_.size() == entry) return result;
        if (isProtected) {
            code = activations_.back().code;
            R = activations_.back().base;
            at = activations_.back().pc;
            finishProtectedCall(target, result);
        } else {
            target->setNil();
        }
        code = activations_.back().code;
        R = activations_.back().base;
        at = activations_.back().pc;
        goto attend;
    }

    NewArray:
        newArray(&R[at->b], at->c, R[at->a]);
        NEXT();
    NewTable:
        newTable(code->tables[static_cast<std::size_t>(at->d())], *code, R, R[at->a]);
        NEXT();
    RequireKey:
        static_cast<void>(keyToString(R[at->a]));
        NEXT();
    Varargs:
        if (interpreter_.varargStack.empty()) {
            R[at->a].overwriteNil();
        } else {
            R[at->a] = Variable::makeMulti(std::vector<Variable>(interpreter_.varargStack.back()));
        }
        NEXT();

    ForStart : {
        const LoopSite& site = code->loops[static_cast<std::size_t>(at->d())];
        Variable* first = &R[at->a];
        const bool hasTurn = startFor(first);
        const ScopeWindow& window = code->windows[site.window];
        Scope& scope = interpreter_.frameScopes.pushWindow();
        const auto capacity = static_cast<std::uint32_t>(window.names.size());
        first[3].overwriteInt(first[0].rawInt());
        if (window.hasOwnNames) {
            scope.openWindowWithOwnNames(window.names.data(), R + window.first, 1, capacity);
        } else {
            scope.openWindow(window.names.data(), R + window.first, 1, capacity);
        }
        if (!hasTurn) {
            at = code->code.data() + site.otherwise;
            DISPATCH();
        }
        NEXT();
    }
    ForNext : {
        Variable* first = &R[at->a];
        const int step = first[2].rawInt();
        const int counter = wrapAdd(first[0].rawInt(), step);
        first[0].overwriteInt(counter);
        if (step >= 1 ? counter > first[1].rawInt() : counter < first[1].rawInt()) NEXT();
        // Only the int alternative is written, never the kind: a body that has put another one
        // there fails here.
        first[3].replaceInt(counter);
        at = code->code.data() + at->d();
        DISPATCH();
    }
    ForSlowly:
        activations_.back().pc = at;
        evaluateRange(*code, code->loops[static_cast<std::size_t>(at->d())], &R[at->a]);
        if (needsAttention()) goto attend;
        NEXT();
    CloseFrame:
        interpreter_.frameScopes.pop();
        NEXT();
    OpenLoopFrame : {
        const LoopSite& site = code->loops[static_cast<std::size_t>(at->d())];
        const ScopeWindow& window = code->windows[site.window];
        Scope& scope = interpreter_.frameScopes.pushWindow();
        const auto capacity = static_cast<std::uint32_t>(window.names.size());
        for (std::size_t i = 0; i < site.nameCount; ++i) R[window.first + i].overwriteNil();
        if (window.hasOwnNames) {
            scope.openWindowWithOwnNames(window.names.data(), R + window.first, window.given,
                                         capacity);
        } else {
            scope.openWindow(window.names.data(), R + window.first, window.given, capacity);
        }
        NEXT();
    }
    WalkCheck : {
        const LoopSite& site = code->loops[static_cast<std::size_t>(at->d())];
        if (checkWalk(*code, site)) NEXT();
        at = code->code.data() + site.otherwise;
        DISPATCH();
    }
    WalkCall : {
        const bool begins = beginWalkOfCall(&R[at->b], at->c);
        clearArguments(&R[at->b], at->c);
        if (begins) NEXT();
        at += 2;
        DISPATCH();
    }
    WalkStart : {
        const LoopSite& site = code->loops[static_cast<std::size_t>(at->d())];
        beginWalk(site, R[at->a + 1], at->m == 1);
        NEXT();
    }
    WalkNext : {
        const Walk& walk = *walks_.back();
        if (!nextOfWalk(R + at->a + 3, walk.nameCount)) NEXT();
        at = code->code.data() + at->d();
        DISPATCH();
    }
    WalkEnd:
        popWalk();
        NEXT();

    RunStatement : {
        const MachineStatement& statement = code->statements[static_cast<std::size_t>(at->d())];
        activations_.back().pc = at;
        ++counts.byExecutor;
        const StatementEnd end = runStatement(*code, statement);
        if (end == StatementEnd::Unwinds) goto unwind;
        if (statement.awaited >= 0) {
            meetPlace(*code, code->variables[static_cast<std::size_t>(statement.awaited)]);
        }
        if (end == StatementEnd::Leaves) {
            if (code->forTurns) giveTurns(statement.depth + std::size_t{1});
            slot = &R[code->chunkValue];
            goto leaveWithSlot;
        }
        if (needsAttention()) goto attend;
        NEXT();
    }
    TreeValue : {
        activations_.back().pc = at;
        ++counts.byTiers;
        const ExpressionSite& site = code->expressions[static_cast<std::size_t>(at->d())];
        moved = at;
        static_cast<void>(evaluateSite(*code, moved, site));
        if (needsAttention()) goto attend;
        NEXT();
    }
    TreeCondition : {
        activations_.back().pc = at;
        ++counts.byTiers;
        const ExpressionSite& site = code->expressions[static_cast<std::size_t>(at->d())];
        const ParsedScriptLine& line = *site.line;
        showToken();
        holds = interpreter_.evaluateCondition(line,
                                               line.kind == LineKind::While   ? "while"
                                               : line.kind == LineKind::Until ? "until"
                                                                              : "if",
                                               DovrelScript::ConditionTiers::BoolFirst);
        if (interpreter_.softErrorUnwinding()) goto attend;
        if (!code->forTurns && givesTurns()) {
            // The statement goes on in the other form.
            code = turnsOf(*code);
            activations_.back().code = code;
        }
        const ExpressionSite& same = code->expressions[static_cast<std::size_t>(at->d())];
        at = code->code.data() + (holds ? same.behind : same.otherwise);
        DISPATCH();
    }

    Line : {
        const MachineStatement& statement = code->statements[static_cast<std::size_t>(at->d())];
        interpreter_.currentLineNumber = statement.lineNumber;
        interpreter_.currentLine = statement.source;
        NEXT();
    }
    LastToken:
        lastToken_ = at;
        lastTokenCode_ = code;
        NEXT();
    ChunkValue:
        R[code->chunkValue] = std::move(R[at->a]);
        R[at->a].overwriteNil();
        NEXT();
    ClearChunkValue:
        R[code->chunkValue].overwriteNil();
        NEXT();

    BeginStatement:
        showToken();
        interpreter_.rethrowPendingCoroutineException();
        if (interpreter_.softErrorUnwinding()) goto unwind;
        NEXT();
    EndStatement:
        showToken();
        interpreter_.runTurnHook();
        NEXT();
    EndInline:
        showToken();
        if (interpreter_.scheduledCoroutine != nullptr && !interpreter_.inCoroutineTurn &&
            !interpreter_.pendingCoroutineException) {
            interpreter_.serviceScheduledCoroutineTurn();
        }
        interpreter_.rethrowPendingCoroutineException();
        NEXT();
    GiveTurns:
        showToken();
        giveTurns(static_cast<std::size_t>(at->d()));
        NEXT();
    } catch (const std::exception& error) {
        // A callee that could not be entered is no place.
        while (activations_.back().base != R) abandonActivation();
        if (code->isLeaf) {
            // It has no position of its own but the last token.
            showPosition(*code, at);
            const bool isEntry = activations_.back().is(Activation::kEntry);
            abandonActivation();
            if (isEntry) throw;
            code = activations_.back().code;
            R = activations_.back().base;
            at = activations_.back().pc;
        }
        // Located by the statement that failed, once; then out of all functions of this loop.
        std::string token;
        std::string report;
        const bool isLocated = isLocatedReport(error.what());
        if (!isLocated) {
            showFailure(activations_.back(), at, token);
            if (!interpreter_.lastToken.empty()) token = interpreter_.lastToken;
        }
        const bool isEntry = activations_.size() - 1 == entry;
        if ((isEntry || activations_.back().is(Activation::kProtected)) &&
            interpreter_.tryRecordFault(error, token)) {
            showToken();
            if (isEntry) return {};
            slot = activations_.back().slot;
            abandonActivation();
            finishProtectedCall(slot, result);
        } else {
            if (!isLocated) report = interpreter_.locatedReport(error.what(), token);
            showToken();
            if (!failProtectedCall(entry, isLocated ? error.what() : report.c_str())) {
                if (isLocated) throw;
                throw std::runtime_error(report);
            }
        }
        isBehindCall = true;
        return {};
    }
}
