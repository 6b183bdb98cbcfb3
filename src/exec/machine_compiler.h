// Makes the compiled form of a function or a program: machine_compiler.cpp does statements and
// whole units, machine_assignments.cpp, machine_blocks.cpp, machine_conditions.cpp,
// machine_expressions.cpp and machine_call_sites.cpp their parts. Used by machine_functions.cpp and
// machine_turns.cpp only.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "exec/bytecode_program.h"
#include "exec/machine_code.h"
#include "exec/machine_finish.h"
#include "frontend/parsed_script_line.h"
#include "interpreter/dovrel_script.h"

class MachineCompiler {
public:
    struct Unit {
        std::uint32_t chunk = 0;
        std::vector<Name> parameters;
        bool hasFrame = true;      // a frame scope of its own, which calls push
        bool runsOnce = false;     // only loops are worth compiling
        bool amongBlocks = false;  // a block scope is visible at its start
    };
    MachineCompiler(DovrelScript& interpreter, BytecodeProgram& program, const Unit& unit)
        : interpreter_(interpreter), program_(program), unit_(unit) {}

    /// False if the chunk cannot be compiled.
    [[nodiscard]] bool compile(MachineDraft& draft);
    /// The same for the value of `line`, the body of a function of one line, without calls.
    [[nodiscard]] bool compileLeaf(const ParsedScriptLine& line, MachineDraft& draft);
    /// The same for a plain line of a coroutine's body.
    [[nodiscard]] bool compileTurnLine(const ParsedScriptLine& line, MachineDraft& draft);
    /// Whether there is a loop in the chunk itself, functions that it declares apart.
    [[nodiscard]] bool holdsLoop() const { return holdsLoop(unit_.chunk); }

private:
    using Op = MachineOp;
    using Tier = MachineTier;
    /// A place in the code that is not known yet.
    using Label = std::uint32_t;
    static constexpr std::uint32_t kNoSite = static_cast<std::uint32_t>(-1);

    /// A value in a register; a temporary one is used up by whoever takes it.
    struct Place {
        std::uint16_t reg = 0;
        bool isTemporary = false;
    };
    /// Where a name leads from a token.
    struct Resolution {
        bool isRegister = false;
        std::uint16_t reg = 0;     // if it is a register
        std::uint16_t record = 0;  // else
    };
    /// A chunk with its block scope.
    static constexpr std::uint32_t kNoChunk = static_cast<std::uint32_t>(-1);
    struct Chunk {
        std::uint32_t id = kNoChunk;
        bool ownsBlock = false;
        std::uint16_t window = 0;
        std::uint16_t stateAround = 0;  // the block state outside of it
        std::vector<Name> declared;     // so far
    };
    /// A frame scope: the function's, or that of a `for`.
    struct Region {
        std::uint16_t window = 0;
        std::size_t chunkLevel = 0;  // of the chunk whose natives are certain
        bool isLoop = false;
        std::vector<Name> declared;   // so far, with a certain place
        std::vector<Name> uncertain;  // natives that may be there
        std::vector<Name> later;      // natives with a certain place that the code has not met yet
        // The first block of a function that has natives runs once, so they follow one another in
        // the scope. Their place is certain for code of that block behind their declaration.
        std::uint32_t block = kNoChunk;
        std::vector<Name> laterInBlock;
        std::vector<Name> declaredInBlock;
        bool isBlockClosed = false;    // something else may have been declared in between
        bool isDeclaredAgain = false;  // one of its natives outside of it
    };
    struct Mode {
        bool isRecursive = true;
        bool amongBlocks = false;
        std::uint16_t depth = 0;
    };
    struct Loop {
        Label end = 0;
        std::uint16_t depth = 0;
        std::size_t blocks = 0;  // open block scopes of the code around its body
    };
    /// The expression whose code is being made.
    struct Source {
        const ParsedScriptLine* line = nullptr;
        const FastExpression* expression = nullptr;
        Tier tier = Tier::Either;
        std::uint32_t scalarSite = kNoSite;  // of the scalar form that it is in
        bool expectsDecline = false;         // see kExpectsDecline
    };

    // Code.
    std::uint32_t here() const { return static_cast<std::uint32_t>(code_.size()); }
    MachineInstruction& emit(Op op, std::uint16_t a = 0) {
        MachineInstruction& added = code_.emplace_back();
        added.op = op;
        added.a = a;
        return added;
    }
    void emitD(Op op, std::size_t a, std::int64_t d, std::uint8_t m = 0);
    void emitABC(Op op, std::size_t a, std::size_t b, std::size_t c, std::uint8_t m = 0);
    void emitJump(Op op, std::size_t a, Label to, std::uint8_t m = 0);
    Label newLabel() {
        labels_.push_back(kUnbound);
        return static_cast<Label>(labels_.size() - 1);
    }
    void bind(Label label) { labels_[label] = here(); }
    std::uint16_t number(std::size_t value);
    std::uint32_t constant(Variable value);
    std::uint32_t textConstant(const std::string& text);

    // Registers.
    std::uint16_t allocate(std::size_t count = 1);
    void use(std::size_t end) {
        if (end > registerCount_) registerCount_ = static_cast<std::uint32_t>(end);
    }

    // Names.
    Resolution resolve(const ParsedScriptLine& line, std::size_t token);
    std::uint16_t recordFor(const ParsedScriptLine& line, std::size_t token);
    static bool contains(const std::vector<Name>& names, Name name);
    const Region* regionOf(Name name, std::size_t& depth, std::size_t& entry) const;
    void collectNatives(std::uint32_t chunk, Region& region, ScopeWindow& window, bool isTop,
                        bool& anyNested, int depth = 0);
    bool mayVisit(std::uint32_t chunk, int depth) const;
    std::vector<Name> localsOf(std::uint32_t chunk) const;
    void pushBlock(Chunk& entered, std::uint32_t chunk);
    void declareInBlock(Name name);
    void popBlock(const Chunk& chunk);

    // Statements.
    void emitChunk(std::uint32_t chunk, bool isUnit);
    void emitNestedChunk(std::uint32_t chunk);
    void emitInstruction(const BytecodeInstruction& instruction, std::uint32_t position);
    const ParsedScriptLine* lineAt(std::uint32_t index);
    std::uint32_t beginStatement(std::uint32_t line, bool runsCode);
    void endStatement();
    void runByExecutor(std::uint32_t line, std::uint32_t position);
    void emitPlain(BytecodeOp opcode, std::uint32_t line, std::uint32_t position);
    void emitPassing(std::uint32_t line, std::uint32_t position);
    bool emitPlainLine(BytecodeOp opcode, const ParsedScriptLine& line);
    void emitSpread(const ParsedScriptLine& line, const ParsedAssignment& assignment,
                    std::uint16_t value);
    void clearValue();
    bool makesValue(std::uint32_t chunk, int depth = 0) const;
    bool lineRunsCode(BytecodeOp opcode, const ParsedScriptLine& line) const;
    bool emitSimpleAssignment(const ParsedScriptLine& line);
    bool emitCompound(const ParsedScriptLine& line);
    void emitUpdate(const ParsedScriptLine& line, std::uint16_t operand, OperandOrigin origin);
    bool emitElementAssignment(const ParsedScriptLine& line);
    void emitElementStore(const ParsedAssignment& assignment, const Resolution& base,
                          std::uint16_t firstKey, std::size_t keys, std::uint16_t value);
    bool emitParallel(const ParsedScriptLine& line);
    void emitValueOfParallel(const ParsedAssignment& assignment, std::uint16_t firstValue,
                             bool anyIndexed);
    void emitDeclareByName(const ParsedScriptLine& line, std::size_t token, std::uint16_t value);
    bool emitTurnLine(const ParsedScriptLine& line);
    bool emitPlainOfTurn(const ParsedScriptLine& line);
    bool emitBareDeclaration(const ParsedScriptLine& line);
    bool emitExpressionStatement(const ParsedScriptLine& line);
    bool emitReturn(const ParsedScriptLine& line);
    void emitBreak(std::uint32_t line);
    void emitIfGroup(const BytecodeIfGroup& group);
    void emitWhile(const BytecodeWhileLoop& loop);
    void emitRepeat(const BytecodeRepeatLoop& loop);
    bool mayChangeLoopVariable(const ParsedScriptLine& header, std::uint32_t index) const;
    void emitNumericFor(const BytecodeForLoop& loop);
    void emitGenericFor(const BytecodeForLoop& loop, std::uint32_t position);
    void emitLoopBody(std::uint32_t chunk, Loop& loop);
    void emitJumpBack(std::size_t firstRecord);
    void beginBlockStatement();
    void endBlockStatement();
    Region makeRegion(std::uint32_t chunk, const std::vector<Name>& given, std::uint16_t first,
                      bool isLoop);
    bool holdsLoop(std::uint32_t chunk, int depth = 0) const;
    bool instructionHoldsLoop(const BytecodeInstruction& instruction, int depth) const;
    bool runsOnce() const;
    void noteExecutorDeclarations(const ParsedScriptLine& line);

    // Stores.
    void emitStore(const ParsedScriptLine& line, std::size_t token, Place value);
    /// The register of a variable that the line declares anew.
    std::optional<std::uint16_t> freshPlace(const ParsedScriptLine& line, std::size_t token) const;
    /// The register of one that it overwrites.
    std::optional<std::uint16_t> declaredPlace(const ParsedScriptLine& line,
                                               std::size_t token) const;
    void emitDeclared(const ParsedScriptLine& line, std::size_t token);
    std::vector<Name>* laterOf(Region& region);
    const std::vector<Name>* laterOf(const Region& region) const;
    void leaveBlockOfNatives(Region& region);
    bool isDeclaredByName(const ParsedScriptLine& line, std::size_t token) const;
    bool canDeclare(const ParsedScriptLine& line, std::size_t token) const;
    void storeDeclared(const ParsedScriptLine& line, std::size_t token, Place value);

    // Expressions.
    /// The value of a whole compiled expression as `evaluateFastExpression` gives it, or a
    /// FastAssign if it is no call.
    void emitValue(const ParsedScriptLine& line, const FastExpression& expression,
                   std::uint16_t target, bool isAssigned = false);
    /// The value of a token range as the token-stream evaluator gives it; false if it has none.
    bool emitTokenValue(const ParsedScriptLine& line, TokenRange range, std::uint16_t target,
                        bool marksLast = true);
    void emitTreeValue(const ParsedScriptLine& line, const FastExpression& expression, int node,
                       bool isGeneral, std::uint16_t target);
    void emitDirectCall(const ParsedScriptLine& line, const FastCallExpression& call,
                        std::uint16_t target, std::uint8_t mark = kDirectCall);
    bool emitCondition(const ParsedScriptLine& line, Label whenFalse, bool jumpsWhenTrue = false,
                       Label whenTrue = 0);
    void emitTest(int node, bool sense, Label target, bool isAlone);
    bool tryFusedComparison(int node, bool sense, Label target);
    void emitTo(int node, std::uint16_t target);
    Place emitAny(int node);
    Place emitOperand(int node, bool staysUntilCode);
    void emitVariable(int node, std::uint16_t target);
    void emitIndex(int node, std::uint16_t target);
    void emitKey(int node, std::uint16_t base, bool baseGoes, std::uint16_t target);
    void emitBinary(int node, std::uint16_t target);
    bool emitJoin(int node, std::uint16_t target, std::optional<std::uint16_t> appendRegister,
                  std::optional<std::uint16_t> appendRecord);
    void emitCall(int node, std::uint16_t target, std::uint8_t marks);
    void emitScalarCall(int node, std::uint16_t target);
    std::uint16_t placeOfCall(std::size_t count, std::uint16_t target);
    void emitArguments(const FastExprNode& call, std::uint16_t first);
    void emitLiteral(int node, std::uint16_t target);
    [[nodiscard]] std::optional<TableStorage::Layout> recordOf(
        const std::vector<TableSite::Entry>& entries) const;
    void emitMember(const FastExprNode& callee, std::uint16_t& site);
    bool finish(MachineDraft& draft);
    void noteEnd(int index);
    std::optional<std::uint16_t> globalInPlace(const FastExprNode& at, Tier outer);
    void emitGlobalKey(int index, std::uint16_t record, std::uint16_t target);
    void noteToken(std::size_t token);
    bool endsWithCall(const FastExpression& expression, int index, std::size_t lastToken) const;
    void markToken(const ParsedScriptLine& line, std::size_t token);
    std::uint32_t beginSite(std::uint16_t target, bool isCondition);
    void endSite(std::uint32_t site, Label behind);
    void requireScalar(std::uint16_t reg);
    const FastExprNode& node(int index) const {
        return source_.expression->nodes[static_cast<std::size_t>(index)];
    }
    int argument(const FastExprNode& call, std::size_t index) const {
        return static_cast<int>(
            source_.expression->callArguments[static_cast<std::size_t>(call.right) + index]);
    }
    bool repeatsVisibly(const FastExpression& expression, int index) const;
    bool isConcatOfRepeats(int index) const;
    bool declinesAtOnce(const FastExpression& expression, const ParsedScriptLine& line) const;
    static bool startsWithText(const FastExpression& expression);
    bool isToString(int index) const;
    bool canRaise(int index) const;
    const ScriptCallable* expectedCallee(const ParsedScriptLine& line,
                                         const FastExpression& expression, int callee) const;
    bool isMemberCallee(int callee) const;
    std::uint8_t blockMark() const { return mode_.amongBlocks ? kAmongBlocks : std::uint8_t{0}; }
    std::uint8_t tierBits() const { return static_cast<std::uint8_t>(source_.tier); }
    static std::uint8_t goes(Place place, std::uint8_t mark) {
        return place.isTemporary ? mark : std::uint8_t{0};
    }

    static constexpr std::uint32_t kUnbound = static_cast<std::uint32_t>(-1);

    DovrelScript& interpreter_;
    BytecodeProgram& program_;
    const Unit& unit_;
    bool ok_ = true;
    std::vector<MachineInstruction> code_;
    std::vector<std::uint32_t> labels_;
    std::vector<std::pair<std::uint32_t, Label>> jumps_;
    MachineCode out_;
    std::unordered_map<std::string, std::uint32_t> textConstants_;
    std::uint32_t registerCount_ = 0;
    std::uint16_t top_ = 0;  // the first free register
    std::vector<Chunk> chunks_;
    std::vector<Region> regions_;
    Mode mode_;
    Loop* loop_ = nullptr;
    std::size_t openBlocks_ = 0;
    std::uint16_t blockState_ = 0;
    std::size_t nesting_ = 0;
    std::size_t loopNesting_ = 0;
    mutable std::size_t visits_ = 0;    // of chunks
    std::size_t loopCount_ = 0;         // in the order of their ends
    std::size_t statementsInLoop_ = 0;  // of the one whose body has been emitted last
    Source source_;
    bool endsWithCall_ = false;  // the last value that went by tokens
    // The record whose token an assignment waits for that the executor runs meanwhile.
    std::int32_t awaited_ = -1;
    bool valueIsNil_ = true;    // the chunk's value is certainly nil
    bool tracksValue_ = false;  // somebody may see the chunk's value
    bool keepsLines_ = false;   // every statement makes its line the current one
    bool isLeaf_ = false;       // a function of one line
    bool isTail_ = false;       // the statement may be the last one that runs
};
