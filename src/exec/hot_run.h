// One run of hot code. The class is inside of ChunkRun, whose statements it runs.
//
//   hot_run.cpp     the loop over the instructions, what goes by the executor, turns
//   hot_stores.cpp  assignments
//   hot_calls.cpp   statements with calls
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
    HotRun(ChunkRun& run, const HotCode& code, BlockSignal& signal)
        : run_(run),
          interpreter_(run.interpreter_),
          code_(code),
          signal_(signal),
          boundBase_(interpreter_.boundVariables.size()),
          heldBase_(interpreter_.heldValues.size()),
          blockFloor_(interpreter_.blockScopeFloor),
          blocksAtStart_(interpreter_.blockScopes.size()) {
        interpreter_.boundVariables.push(code.variables.size());
        bindAnew();
    }
    ~HotRun() {
        while (openFors_ > 0) closeFor();
        if (openBlocks_ > 0) closeBlocks(0);
        interpreter_.boundVariables.popTo(boundBase_);
        releaseHeld();
    }
    HotRun(const HotRun&) = delete;
    HotRun& operator=(const HotRun&) = delete;

    Flow run();

    // What the instructions of expressions ask for.
    [[nodiscard, gnu::always_inline]] FastScalarValue scalar(std::uint16_t variable) {
        const Variable* value = place(variable);
        return value != nullptr ? soundScalar(*value) : FastScalarValue{};
    }
    [[nodiscard, gnu::always_inline]] Variable* place(std::uint16_t variable) {
        Variable* value = bound_[variable];
        return value != nullptr ? value : bind(variable);
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
        interpreter_.pushBlockScope();
        ++openBlocks_;
        bindAnew();
    }
    /// Pops block scopes until `count` of this run are open.
    void closeBlocks(std::size_t count) {
        interpreter_.blockScopes.popTo(blocksAtStart_ + count);
        interpreter_.blockScopeFloor = blockFloor_;
        openBlocks_ = count;
    }

    // What goes by the executor. A null position leaves the code, `leaves_` being set before.
    Position runByExecutor(const HotStatement& statement);
    Position runWhole(const HotStatement& statement);
    Position afterCondition(const HotStatement& statement, const char* word);
    Position breakFrom(const HotStatement& statement);
    Position unwindFrom(const HotStatement& statement);
    Flow returnFrom(const HotStatement& statement, FastScalarValue value);

    // Statements with calls.
    void beginCalls(const HotStatement& statement);
    bool runsInFrame(std::uint16_t token);
    bool isAssert(std::uint16_t token);
    FastScalarValue anyOf(const ScalarInstruction& push);
    FastScalarValue lentArgument(const ScalarInstruction& push);
    FastScalarValue hold(Variable&& value) {
        interpreter_.heldValues.push_back(std::move(value));
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
    [[gnu::always_inline]] FastScalarValue operateAny(NodeKind kind, FastScalarValue left,
                                                      FastScalarValue right) {
        const FastScalarValue exact = scalarOperationOn(kind, left, right, true);
        return exact.isSet() ? exact : operateOnOthers(kind, left, right);
    }
    FastScalarValue operateOnOthers(NodeKind kind, FastScalarValue left, FastScalarValue right);
    const Variable* anyVariable(std::uint16_t token) {
        const Variable* variable = place(token);
        return variable != nullptr ? variable : interpreter_.readVariable(*code_.variables[token]);
    }
    FastScalarValue call(const ScalarInstruction& instruction, const FastScalarValue* args);
    void fillArguments(ArgumentFrame& frame, const FastScalarValue* args, bool lends);
    FastScalarValue callDirect(const ScalarInstruction& instruction, const FastScalarValue* args);
    bool assignAny(const HotStatement& statement, FastScalarValue value);
    Flow returnAny(const HotStatement& statement, FastScalarValue value);
    bool discardAny(const HotStatement& statement, FastScalarValue value);
    bool endCalls(const HotStatement& statement);
    void releaseHeld() {
        if (interpreter_.heldValues.size() > heldBase_) interpreter_.heldValues.resize(heldBase_);
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
    [[nodiscard, gnu::noinline]] Variable* bind(std::uint16_t variable) {
        const TokenAnalysis& token = *code_.variables[variable];
        Variable* value = interpreter_.cachedVariable(token);
        if (value == nullptr) value = interpreter_.bindableVariable(token);
        bound_[variable] = value;
        return value;
    }
    void bindAnew() {
        bound_ = interpreter_.boundVariables.from(boundBase_);
        const std::size_t count = code_.variables.size();
        for (std::size_t i = 0; i < count; ++i) bound_[i] = nullptr;
        expectTurns();
    }

    [[nodiscard]] Position positionOf(std::int64_t index) const {
        return code_.code.data() + index;
    }
    [[nodiscard]] const HotStatement& statementAt(Position at) const;
    [[nodiscard]] const HotStatement& statement(const ScalarInstruction& instruction) const {
        return code_.statements[static_cast<std::size_t>(instruction.intValue)];
    }
    void showTo(Position at);

    ChunkRun& run_;
    DovrelScript& interpreter_;
    const HotCode& code_;
    BlockSignal& signal_;
    Variable** bound_ = nullptr;  // null where nothing is bound
    std::size_t boundBase_;       // where they begin in the interpreter's stack of them
    std::size_t heldBase_;        // where the values begin that are held here
    std::size_t blockFloor_;
    std::size_t blocksAtStart_;
    std::array<OpenFor, kMostHotFors> fors_;  // the first `openFors_` are open
    std::size_t openFors_ = 0;
    std::size_t openBlocks_ = 0;
    Position lastStatement_ = nullptr;  // in the statement that ran last here, null for others
    Position lastElement_ = nullptr;    // in an element assignment whose last token nobody has seen
    bool clearsValue_ = false;          // the chunk's value is nil, and is not yet written
    bool expectsTurns_ = false;         // a coroutine may have a turn behind each statement
    bool answersInScalars_ = false;     // the call of `x = f(...)` has been made in the scalar tier
    bool inExecutor_ = false;           // the current line and the last token are as they should
};
