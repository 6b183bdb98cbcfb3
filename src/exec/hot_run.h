// One run of hot code. The class is inside of ChunkRun, whose statements it runs.
//
//   hot_run.cpp     the loop over the instructions, what goes by the executor, turns
//   hot_stores.cpp  assignments
//   hot_calls.cpp   statements with calls
//   hot_bodies.cpp  one-line functions, assigned values of the scalar tier
//   hot_frames.h    functions that are called from hot code and run in the caller's loop
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "eval/scalar_step.h"
#include "exec/chunk_run.h"
#include "exec/for_header.h"

class ChunkRun::HotRun {
public:
    /// `caller` is the run of hot code that has called the function whose code this is; null if it
    /// was entered from elsewhere.
    HotRun(ChunkRun& run, const HotCode& code, BlockSignal& signal, HotRun* caller = nullptr)
        : run_(run),
          caller_(caller),
          interpreter_(run.interpreter_),
          code_(code),
          signal_(signal),
          boundBase_(interpreter_.boundVariables.size()) {
        if (code.goesBack) interpreter_.boundVariables.push((code.variables.size() + 3) / 4 * 4);
        bindAnew();
    }
    ~HotRun() {
        interpreter_.boundVariables.popTo(boundBase_);
        if (openFors_ + openBlocks_ + heldCount_ > 0) closeAll();
    }
    HotRun(const HotRun&) = delete;
    HotRun& operator=(const HotRun&) = delete;

    /// Runs the code from its start to its end, with the functions that it calls.
    static Flow run(HotRun& outermost);

    // What the instructions of expressions ask for.
    [[nodiscard, gnu::always_inline]] FastScalarValue scalar(std::uint16_t variable) {
        const Variable* value = place(variable);
        return value != nullptr ? soundScalar(*value) : FastScalarValue{};
    }
    [[nodiscard, gnu::always_inline]] const Variable* place(std::uint16_t variable) {
        const Variable* value = bound_[variable];
        return value != nullptr ? value : bindForReading(variable);
    }
    [[nodiscard]] const std::string& key(int index) const {
        return *code_.keys[static_cast<std::size_t>(index)];
    }

private:
    using Position = const ScalarInstruction*;

    /// A `for` that is open.
    struct OpenFor {
        int counter;
        int limit;
        int step;
    };

    // Statements.
    bool declare(const ScalarInstruction& instruction, FastScalarValue value);
    bool storeElement(const ScalarInstruction& instruction, FastScalarValue key,
                      FastScalarValue value);
    bool updateElement(const ScalarInstruction& instruction, FastScalarValue key,
                       FastScalarValue value);
    static bool updateInt(Variable& element, std::uint8_t operation, FastScalarValue value);
    bool storeEntry(const ScalarInstruction& instruction, FastScalarValue value);
    bool storeVariables(const ScalarInstruction& instruction, const FastScalarValue* values);
    bool storeElements(const ScalarInstruction& instruction, const FastScalarValue* keys,
                       const FastScalarValue* values);
    ArrayStorage* arrayFor(std::uint16_t token, FastScalarValue key);
    Position startFor(const HotStatement& header, const NumericForRange& range);
    bool nextTurn(OpenFor& loop);
    void closeFor() {
        interpreter_.frameScopes.pop();
        --openFors_;
    }
    void pushBlock() {
        if (openBlocks_ == 0) {
            blockFloor_ = interpreter_.blockScopeFloor;
            blocksAtStart_ = interpreter_.blockScopes.size();
        }
        interpreter_.pushBlockScope();
        ++openBlocks_;
        bindAnew();
    }
    void closeAll();
    /// Pops block scopes until `count` of this run are open.
    void closeBlocks(std::size_t count) {
        interpreter_.blockScopes.popTo(blocksAtStart_ + count);
        interpreter_.blockScopeFloor = blockFloor_;
        openBlocks_ = count;
    }

    // What goes by the executor. A null position leaves the code.
    Position runByExecutor(const HotStatement& statement);
    Position runWhole(const HotStatement& statement);
    Position afterCondition(const HotStatement& statement, const char* word);
    Position breakFrom(const HotStatement& statement);
    Position unwindFrom(const HotStatement& statement);
    void unwindFromCall(const HotStatement& statement);
    void beginReturn(const HotStatement& statement) {
        clearsValue_ = false;
        show();
        lastStatement_ = nullptr;  // the turns behind it see the line that is selected here
        selectLine(statement);
    }
    void returnFrom(const HotStatement& statement, FastScalarValue value);

    // Statements with calls.
    void beginCalls(const HotStatement& statement) {
        show();
        lastStatement_ = nullptr;
        inExecutor_ = true;
        answersInScalars_ = false;
        hasCalled_ = false;
        selectLine(statement);
    }
    bool runsInFrame(std::uint16_t token);
    bool isAssert(std::uint16_t token);
    bool stepOther(const ScalarInstruction& instruction, FastScalarValue*& top);
    void stepAny(const ScalarInstruction& instruction, FastScalarValue*& top);
    FastScalarValue anyOf(std::uint16_t token, std::uint8_t marks, const FastScalarValue* at);
    FastScalarValue hold(Variable&& value) {
        interpreter_.heldValues.push_back(std::move(value));
        ++heldCount_;
        const auto number = static_cast<int>(interpreter_.heldValues.size() - 1);
        FastScalarValue held = FastScalarValue::fromInt(number);
        held.kind = ScalarKind::Held;
        return held;
    }
    FastScalarValue anyFrom(Variable&& value) {
        const FastScalarValue scalar = soundScalar(value);
        return scalar.isSet() ? scalar : hold(std::move(value));
    }
    Variable taken(FastScalarValue value);
    FastScalarValue operateAny(NodeKind kind, FastScalarValue left, FastScalarValue right);
    /// Unset if the callee has been entered: it is the innermost frame of hot code and runs next.
    FastScalarValue call(const ScalarInstruction& instruction, const FastScalarValue* args);
    FastScalarValue callEntry(const ScalarInstruction& instruction, const FastScalarValue* args,
                              const Variable* base);
    FastScalarValue callValue(const Variable& callee, bool isMember, const FastScalarValue* args,
                              std::size_t count);
    bool tryEnter(const Variable& callee, const FastScalarValue* args, std::size_t count);
    void bindParameters(Scope& scope, const FastScalarValue* args, std::size_t count);
    FastScalarValue resultOfCall();
    /// A scalar result, a caller in hot code, and nothing that the end of the call has to look at.
    [[nodiscard]] bool returnsAtOnce(FastScalarValue value) const {
        return caller_ != nullptr && !expectsTurns_ && value.kind < ScalarKind::Held &&
               !interpreter_.softErrorPending;
    }
    void endCallAtOnce();
    void closeCalls();
    void fillArguments(ArgumentFrame& frame, const FastScalarValue* args);
    FastScalarValue callDirect(const ScalarInstruction& instruction, const FastScalarValue* args);

    // One-line functions, and assigned values of the scalar tier.
    struct BodyVariables;
    FastScalarValue resultOfBody(const ScriptCallable& callable, const FastScalarValue* args,
                                 std::size_t count);
    [[nodiscard]] const HotScalarNode& scalarNode(const ScalarInstruction& instruction) const {
        return code_.scalarNodes[static_cast<std::size_t>(instruction.intValue)];
    }
    bool findBody(const ScalarInstruction& call);
    FastScalarValue callScalar(const ScalarInstruction& call, const FastScalarValue* args);
    bool evaluateScalar(std::int32_t node, FastScalarValue*& top);
    bool assignScalar(const HotStatement& statement, FastScalarValue value);
    Position assignByGeneralTier(const HotStatement& statement);

    // Ends of statements with calls. False to leave.
    bool assignAny(const HotStatement& statement, FastScalarValue value);
    void returnAny(const HotStatement& statement, FastScalarValue value);
    bool discardAny(const HotStatement& statement, FastScalarValue value);
    bool endCalls(const HotStatement& statement);
    void releaseHeld() {
        interpreter_.heldValues.resize(interpreter_.heldValues.size() - heldCount_);
        heldCount_ = 0;
    }

    // Turns of a coroutine.
    void expectTurns() {
        expectsTurns_ = interpreter_.scheduledCoroutine != nullptr ||
                        interpreter_.pendingCoroutineException != nullptr;
    }
    /// The end of a statement. False to leave.
    bool giveTurn(const HotStatement& statement);
    /// The end of `count` statements of recursive runs.
    void giveTurns(std::size_t count);
    bool beginStatement();

    // Variables.
    [[nodiscard, gnu::always_inline]] Variable* target(std::uint16_t variable) {
        Variable* value = bound_[variable];
        return value != nullptr ? value : bindForWriting(variable);
    }
    /// Reading finds a variable as the executor's reading does, and leaves the token's cache so.
    const Variable* bindForReading(std::uint16_t variable) {
        const TokenAnalysis& token = *code_.variables[variable];
        Variable* value = interpreter_.cachedVariable(token);
        if (value == nullptr && token.slotKind == SlotKind::Global) {
            value = interpreter_.unhiddenGlobal(token);
        }
        if (value == nullptr) return bindOther(variable);
        bind(variable, value);
        return value;
    }
    [[gnu::noinline]] const Variable* bindOther(std::uint16_t variable);
    Variable* bindForWriting(std::uint16_t variable);
    [[nodiscard]] const Variable& lent(FastScalarValue value) {
        return *lent_[static_cast<std::size_t>(value.intValue)];
    }
    /// An operand that is no scalar.
    [[nodiscard]] const Variable& operand(FastScalarValue value) {
        return value.kind == ScalarKind::Held
                   ? interpreter_.heldValues[static_cast<std::size_t>(value.intValue)]
                   : lent(value);
    }
    /// Code that never goes back meets each variable once: nothing is kept for it.
    void bind(std::uint16_t variable, Variable* value) {
        if (code_.goesBack) interpreter_.boundVariables.from(boundBase_)[variable] = value;
    }
    void bindAnew() {
        expectTurns();
        if (!code_.goesBack) return;
        Variable** bound = interpreter_.boundVariables.from(boundBase_);
        const std::size_t count = code_.variables.size();
        // By fours, of which there are so few that a library call would take longer.
        for (std::size_t i = 0; i < count; i += 4) {
            bound[i] = bound[i + 1] = bound[i + 2] = bound[i + 3] = nullptr;
        }
        bound_ = bound;
        isStale_ = false;
    }
    /// The same behind a call, at little cost: code that runs on meets none of the variables again
    /// that are bound. Where it goes back, they are bound anew.
    void loseBindings() {
        expectTurns();
        if (!code_.goesBack) return;
        bound_ = interpreter_.boundVariables.from(boundBase_);
        isStale_ = true;
    }
    void goBack() {
        if (isStale_) bindAnew();
    }

    [[nodiscard]] Position positionOf(std::int64_t index) const {
        return code_.code.data() + index;
    }
    /// With no turn to be expected, nothing is to be done where the first statement begins.
    [[nodiscard]] Position firstPosition() const {
        const Position first = code_.code.data();
        return first->opcode == ScalarOpcode::BeginStatement && !expectsTurns_ ? first + 1 : first;
    }
    [[nodiscard]] const HotStatement& statementAt(Position at) const;
    [[nodiscard]] const HotStatement& statement(const ScalarInstruction& instruction) const {
        return code_.statements[static_cast<std::size_t>(instruction.intValue)];
    }
    /// Writes what the executor would have written by now, but for the current line.
    void show() {
        if (clearsValue_ || lastElement_ != nullptr) showPending();
    }
    void showPending();
    /// The same with the line of `at`, which stands in the statement that ran last; null if that
    /// was none of hot code.
    void showTo(Position at);
    /// Makes the line of a statement, which is one of the program's, the current one.
    void selectLine(const HotStatement& statement) {
        const ParsedScriptLine& line = run_.lines_[statement.line];
        interpreter_.selectLine(line);
        run_.statementTokens_ = &line.tokens;
    }

    /// The operands and places lie in their arrays.
    [[nodiscard]] bool holds(const FastScalarValue* top, const Variable* const* place) const {
        return top >= stack_.data() && top <= stack_.data() + stack_.size() &&
               place >= places_.data() && place <= places_.data() + places_.size();
    }
    /// What failed at `at` is reported with the statement that it belongs to.
    void showFailure(Position at);

    ChunkRun& run_;
    HotRun* const caller_;
    DovrelScript& interpreter_;
    const HotCode& code_;
    BlockSignal& signal_;
    Variable* const* bound_ = kNothingBound.data();  // null where nothing is bound
    std::size_t boundBase_;      // where they begin in the interpreter's stack of them
    std::size_t heldCount_ = 0;  // of the interpreter's held values, how many are held here
    std::size_t blockFloor_;     // around the first block that is open here
    std::size_t blocksAtStart_;  // the same
    std::array<OpenFor, kMostHotFors> fors_;  // the first `openFors_` are open
    std::size_t openFors_ = 0;
    std::size_t openBlocks_ = 0;
    Position lastStatement_ = nullptr;  // in the statement that ran last here, null for others
    Position lastElement_ = nullptr;    // in an element assignment whose last token nobody has seen
    bool clearsValue_ = false;          // the chunk's value is nil, and is not yet written
    bool expectsTurns_ = false;         // a coroutine may have a turn behind each statement
    bool answersInScalars_ = false;     // the call of `x = f(...)` has been made in the scalar tier
    bool inExecutor_ = false;           // the current line and the last token are as they should
    bool hasCalled_ = false;            // part of the statement has run and must not run again
    bool isStale_ = false;              // what is bound may stand elsewhere by now
    const ScriptCallable* body_ = nullptr;  // the one-line function of a call that has begun
    // Left uninitialised.
    std::array<FastScalarValue, kHotStackSize> stack_;
    std::array<const Variable*, kPlaceStackSize> places_;
    std::array<const Variable*, kHotStackSize> lent_;  // the variables that are lent, by operand
    // Where the code goes on after the call that it waits for.
    Position resumeAt_;
    FastScalarValue* resumeTop_;
};
