// Runs the compiled form (exec/machine_code.h): one loop for all functions that are called from it.
//
//   machine.cpp           the loop
//   machine_calls.cpp     registers, calls and returns within it
//   machine_callees.cpp   callees outside of it, the executor, and calls into it
//   machine_scopes.cpp    block scopes that were put off
//   machine_variables.cpp variables through their tokens
//   machine_values.cpp    operators, where the loop does not do them at once
//   machine_elements.cpp  elements, and literals of containers
//   machine_tiers.cpp     expressions that the tiers evaluate
//   machine_walks.cpp     generic `for`
//   machine_positions.cpp the positions that errors show
//   machine_functions.cpp code for functions and programs, made when it is needed
//   machine_turns.cpp     the lines of a coroutine's turns
#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "exec/bytecode_program.h"
#include "exec/machine_code.h"
#include "exec/machine_function.h"
#include "interpreter/dovrel_script.h"
#include "value/page_release.h"
#include "value/script_callable.h"
#include "value/table.h"

class Machine final : public BlockScopeSource {
public:
    explicit Machine(DovrelScript& interpreter);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    /// Calls a script function that runs in a frame and has a program. False, with nothing done, if
    /// there is no compiled form of it.
    [[nodiscard]] bool tryCall(const Shared<ScriptCallable>& callable, Arguments args,
                               Variable& result);
    /// The same for a function of one line, without the count of calls.
    [[nodiscard]] bool tryCallLeaf(const Shared<ScriptCallable>& callable, Arguments args,
                                   Variable& result);
    /// Runs chunk 0 of a program. False, with nothing done, if there is no compiled form of it.
    [[nodiscard]] bool tryRun(const std::shared_ptr<BytecodeProgram>& program, Variable& result,
                              BlockSignal& signal);

    /// Runs a line of the body of a coroutine, which is neither a block nor a `return`, as the
    /// statement of the running turn. False, with nothing done, if there is no compiled form of it.
    [[nodiscard]] bool runTurnLine(const ScriptCallable& callable, std::size_t index);

    /// The text of a constant of compiled code: the same for equal constants, as far as they are
    /// short.
    [[nodiscard]] Text constantText(const std::string& text);

    /// The text of what typeOf calls a kind, which is the same each time; `word` names the kind.
    [[nodiscard]] const Text& typeText(VarType type, const char* word);

    /// Opens the block scopes of all running functions that have been put off.
    void openBlocks() override;

    /// Gives back what a recursion that is over has left; see DovrelScript::giveMemoryBack.
    void giveMemoryBack() noexcept;

    /// What has been compiled and run, for tests that demand it.
    struct Counts {
        std::uint64_t compiled = 0;  // functions and programs
        std::uint64_t recompiled = 0;
        std::uint64_t refused = 0;
        std::uint64_t calls = 0;           // of compiled functions
        std::uint64_t turnLines = 0;       // lines of coroutines that have run
        std::uint64_t quietEnds = 0;       // of turns, which took no exception
        std::uint64_t byExecutor = 0;      // statements that went by the executor
        std::uint64_t byTiers = 0;         // expressions that went by the tiers
        std::uint64_t blocksOpened = 0;    // block scopes that somebody has looked at
        std::uint64_t protectedCalls = 0;  // that have been made within a loop
    };
    Counts counts;

#ifdef DOVREL_EMBEDDED
    /// To be called behind a stop, which leaves the loop without a look at where it was: the code
    /// may go now.
    void forgetLastToken() noexcept { lastToken_ = nullptr; }
#endif

private:
    using Op = MachineOp;
    using Tier = MachineTier;
    using Pc = const MachineInstruction*;

    /// One running function or program.
    struct Activation {
        const MachineCode* code = nullptr;
        Pc pc = nullptr;  // while something that it has called runs
        Variable* base = nullptr;
        Variable* slot = nullptr;  // the callee; the result goes there
        const std::string* lineAtEntry = nullptr;
        std::uint32_t frames = 0;  // scopes at its entry
        std::uint32_t blocks = 0;
        std::uint32_t walks = 0;
        std::uint16_t blockState = 0;  // which block scopes it has
        std::uint16_t openBlocks = 0;  // so many of them, from the outermost on, are open
        std::uint16_t openState = 0;   // the state when they were opened last
        bool isAmongOpen = false;      // all block scopes of those around it are open
        bool amongBlocks = false;      // of a leaf: a block scope is visible
        std::uint8_t marks = 0;        // what its end has to see to, see below
        std::shared_ptr<BytecodeProgram> const* owner = nullptr;  // of a program

        static constexpr std::uint8_t kEntry = 1;      // the loop ends with it
        static constexpr std::uint8_t kProgram = 2;    // no function: no frame, no callee
        static constexpr std::uint8_t kDirectory = 4;  // a directory has been pushed
        static constexpr std::uint8_t kName = 8;
        static constexpr std::uint8_t kVarargs = 16;
        static constexpr std::uint8_t kSegment = 32;    // its registers begin a segment
        static constexpr std::uint8_t kProtected = 64;  // it returns to a protected call
        static constexpr std::uint8_t kWalks = 128;     // it has walks, those from `walks` on

        [[nodiscard]] bool is(std::uint8_t mark) const { return (marks & mark) != 0; }
        void set(std::uint8_t mark, bool holds = true) {
            if (holds) marks = static_cast<std::uint8_t>(marks | mark);
        }
        void clear(std::uint8_t mark) { marks = static_cast<std::uint8_t>(marks & ~mark); }
        /// Nothing but a scope has been pushed, and the loop goes on behind it.
        [[nodiscard]] bool isPlain() const { return marks == 0; }
    };
    /// The running functions and programs, the innermost last. They move when it grows.
    class ActivationStack {
    public:
        [[nodiscard]] bool empty() const { return count_ == 0; }
        [[nodiscard]] std::size_t size() const { return count_; }
        [[nodiscard]] Activation& back() { return *innermost_; }
        [[nodiscard]] const Activation& back() const { return *innermost_; }
        /// Makes sure that `push` has room, which then cannot fail.
        void reserveOne() {
            if (count_ == capacity_) [[unlikely]]
                grow();
        }
        [[gnu::always_inline]] Activation& push() { return push({}); }
        [[gnu::always_inline]] Activation& push(const Activation& entered) {
            innermost_ = &activations_[++count_];
            *innermost_ = entered;
            return *innermost_;
        }
        /// Where the innermost one has been called; there must be one around it.
        [[nodiscard]] Pc callSite() const { return innermost_[-1].pc; }
        /// The activation `distance` around the innermost one.
        [[nodiscard]] Activation& around(std::size_t distance) { return *(innermost_ - distance); }
        void pop_back() {
            --count_;
            --innermost_;
        }
        /// The memory of what is not in use goes back to the system.
        void releaseSpare() noexcept {
            if (innermost_ == nullptr) return;
            releasePages(innermost_ + 1, activations_.get() + capacity_ + 1);
        }

    private:
        [[gnu::noinline]] void grow() {
            const std::size_t capacity = 2 * capacity_ + 8;
            auto grown = std::make_unique<Activation[]>(capacity + 1);
            if (count_ != 0) std::copy_n(activations_.get(), count_ + 1, grown.get());
            activations_ = std::move(grown);
            capacity_ = capacity;
            innermost_ = activations_.get() + count_;
        }

        std::unique_ptr<Activation[]> activations_;  // the first is none
        Activation* innermost_ = nullptr;
        std::size_t count_ = 0;
        std::size_t capacity_ = 0;
    };
    struct Walk;
    class Abandoning;
    /// Registers side by side.
    struct Segment {
        std::unique_ptr<Variable[]> registers;
        std::size_t size = 0;

        [[nodiscard]] Variable* end() const { return registers.get() + size; }
    };

    // The loop.
    Variable run();
    [[gnu::noinline]] Variable runLoop(std::size_t entry, bool& isBehindCall);

    // Registers.
    /// Behind the registers of the innermost activation; null if there is none.
    [[nodiscard]] Variable* top() const {
        if (activations_.empty()) return nullptr;
        return activations_.back().base + activations_.back().code->registerCount;
    }
    Variable* roomFor(Variable* base, std::size_t arguments, std::size_t count, bool& newSegment);
    void dropSegment();

    // Functions.
    const MachineCode* codeOf(MachineFunction& function, bool amongBlocks);
    const MachineCode* turnsOf(const MachineCode& plain);
    [[nodiscard]] static bool isRenewalDue(MachineFunction::Form& form);
    const MachineCode* renewed(MachineFunction& function, const MachineCode& code);
    static void makeStale(const MachineCode& code);
    void settleFrame(const MachineCode& code);
    /// Pushes the scope of the function's own names, whose values stand in `registers`.
    [[gnu::always_inline]] void openFrame(const MachineCode& code, Variable* registers) {
        const MachineCode::Frame& frame = code.frame;
        if (frame.version != interpreter_.frameNamesVersion) [[unlikely]]
            settleFrame(code);
        Scope& scope = interpreter_.frameScopes.pushWindow();
        if (frame.hasOwnNames) [[unlikely]] {
            scope.openWindowWithOwnNames(frame.names, registers, frame.given, frame.capacity);
        } else {
            scope.openWindow(frame.names, registers, frame.given, frame.capacity);
        }
    }
    MachineFunction* functionOf(const ScriptCallable& callable);
    bool isFirstCall(const ScriptCallable& callable);
    bool compile(MachineFunction& function, bool amongBlocks);
    const MachineCode* turnLineCode(const ScriptCallable& callable, std::size_t index);
    bool compileTurnLine(const ScriptCallable& callable, std::size_t index,
                         MachineFunction& function);
    [[nodiscard]] bool givesTurns() const {
        return !interpreter_.inCoroutineTurn && (interpreter_.scheduledCoroutine != nullptr ||
                                                 interpreter_.pendingCoroutineException != nullptr);
    }
    [[nodiscard, gnu::always_inline]] bool needsAttention() const {
        assert(interpreter_.needsAttention == interpreter_.mustBeAttended());
        return interpreter_.needsAttention;
    }

    // Calls. The callee stands in `slot`, its arguments behind it.
    /// The code of a callee, with its arguments behind it, that can be entered without a look at
    /// anything else; null if there is none.
    [[nodiscard, gnu::always_inline]] const MachineCode* directCode(
        const Variable& callee, std::size_t count, std::uint8_t marks,
        const MachineCode& caller) const {
        if (callee.tag() != Variable::kFunctionTag || needsAttention()) return nullptr;
        const ScriptCallable* callable = callee.rawFunction();
        if (callable == nullptr || callable->directFunction == nullptr) return nullptr;
        const MachineCode* code =
            callable->directFunction->ready[(marks & kAmongBlocks) != 0 ? 1 : 0];
        if (code == nullptr || code->parameterCount != count) return nullptr;
        if (&callee + 1 + code->registerCount > segmentEnd_) return nullptr;
        const MachineFunction& function = *code->function;
        return function.names == caller.function->names || isInNames(function) ? code : nullptr;
    }
    /// A function whose directory and name are those of what runs.
    [[nodiscard]] bool isInNames(const MachineFunction& function) const {
        const auto& directories = interpreter_.baseDirectoryStack;
        const auto& names = interpreter_.scriptNameStack;
        return (function.baseDirectory->empty() ||
                (!directories.empty() && directories.back() == function.baseDirectory)) &&
               (function.scriptName->empty() ||
                (!names.empty() && names.back() == function.scriptName));
    }
#ifdef DOVREL_EMBEDDED
    /// Counts statements that run now, and stops the script at `pc` if it must.
    void watchSteps(const MachineCode& code, Pc pc, std::size_t statements) {
        if (interpreter_.watch.isDue(statements + 1)) [[unlikely]]
            stopIfWanted(code, pc);
    }
    /// The same for a call that is about to be made from there.
    void watchCall(const MachineCode& code, Pc pc, const MachineCode& callee) {
        watchSteps(code, pc, callee.statements.size());
        if (interpreter_.watch.isTooDeep(interpreter_.callDepth + 1)) [[unlikely]]
            stopAt(code, pc, StopReason::Recursion);
    }
    void stopIfWanted(const MachineCode& code, Pc pc);
    [[noreturn]] void stopAt(const MachineCode& code, Pc pc, StopReason reason);
#endif
    bool tryEnter(Variable* slot, std::size_t count, std::uint8_t marks);
    void enter(MachineFunction& function, const MachineCode& code, Variable* slot,
               std::size_t count, bool isEntry);
    enum class ProtectedEntry : std::uint8_t { Refused, Entered, Answered };
    ProtectedEntry enterProtected(Variable* slot, std::size_t count, std::uint8_t marks);
    void beginProtection();
    void endProtection();
    void finishProtectedCall(Variable* callee, Variable& result);
    void answerProtectedCall(Variable* pcall, bool ok, Variable& result);
    bool failProtectedCall(std::size_t entry, const char* message);
    void pushVarargs(Variable* extra, std::size_t count);
    /// True if the call has ended the turn of a coroutine: the loop is left then, with activation
    /// `entry` and all behind it.
    bool callOther(Variable* slot, std::size_t count, std::uint8_t marks, std::size_t entry);
    [[nodiscard]] bool isStatementOfTurn(std::size_t entry);
    class LastCall;
    void callPlainNative(Variable* slot, std::size_t count, const ScriptCallable& native,
                         std::uint8_t marks);
    void callMemberNative(Variable* slot, std::size_t count, BuiltinId id);
    bool callOfText(Variable* slot, std::size_t count, const Variable& text, const Text& method);
    void clearArguments(Variable* slot, std::size_t count);
    void popActivation();
    /// The end of a line of a turn, which has pushed nothing.
    void popTurnLine() {
        const bool hasSegment = activations_.back().is(Activation::kSegment);
        activations_.pop_back();
        if (hasSegment) dropSegment();
    }
    /// The end of the innermost activation, which `isPlain`.
    [[gnu::always_inline]] void popPlain() {
        const Activation& running = activations_.back();
        if (interpreter_.currentLine != running.lineAtEntry &&
            interpreter_.currentLine != interpreter_.retiredLine) {
            interpreter_.retiredLine = interpreter_.currentLine;
            const Shared<ScriptCallable>& callable = running.slot->asFunction();
            if (interpreter_.retiredCallable != callable) {
                // It holds the code that the last token has been read in.
                showToken();
                interpreter_.retiredCallable = callable;
            }
        } else {
            showToken();
        }
        leaveBlocks(running);
        while (interpreter_.frameScopes.size() > running.frames) interpreter_.frameScopes.pop();
        activations_.pop_back();
        --interpreter_.callDepth;
    }
    /// The ends of activations with a value in a register. It may be that of a variable, which goes
    /// with the scope, and the names of the scope may go with the callee.
    [[gnu::always_inline]] void leavePlain(Variable& returned) {
        Variable* const slot = activations_.back().slot;
        const Variable::Words value = returned.takeWords();
        popPlain();
        slot->overwriteCountedByWords(value);  // the callee goes
    }
    [[gnu::always_inline]] void popLeaf() {
        const Activation& running = activations_.back();
        Variable* const end = running.base + running.code->parameterCount;
        for (Variable* value = running.base; value != end; ++value) value->overwriteNil();
        activations_.pop_back();
    }
    [[gnu::always_inline]] void leaveLeaf(Variable& returned) {
        const Activation& running = activations_.back();
        Variable* const slot = running.slot;
        const Variable::Words value = returned.takeWords();
        popLeaf();
        slot->overwriteCountedByWords(value);  // the callee goes
    }
    /// The variables of its blocks go.
    [[gnu::always_inline]] void leaveBlocks(const Activation& running) {
        if (running.blockState == 0) return;
        const BlockState& state = running.code->blockStates[running.blockState];
        interpreter_.blockScopes.forget(std::size_t{state.level} - running.openBlocks);
        if (running.openBlocks != 0) [[unlikely]]
            interpreter_.blockScopes.open().popTo(running.blocks);
        Variable* const end = running.base + state.end;
        for (Variable* value = running.base + state.first; value != end; ++value) {
            value->overwriteNil();
        }
    }
    static std::uint32_t openBlocksOf(Activation& running, ScopeStack& scopes);
    /// Its innermost block is over, open or not; `state` is the one around it.
    void closeBlock(Activation& running, std::uint16_t state);
    [[nodiscard]] bool isHidden(Name name);
    void leaveWithSeveral(Variable* returned, std::size_t count);
    /// The innermost activation was called for several targets, in code that goes on at once.
    [[nodiscard, gnu::always_inline]] bool mayLeaveWithSeveral(std::size_t count) const {
        return count <= kMostSpread && activations_.back().isPlain() && !needsAttention() &&
               activations_.callSite()->op == Op::SpreadCall &&
               activations_.callSite()[1].op == Op::Spread;
    }
    void popFrames(const Activation& running);
    void abandonActivation();
    const Variable* calleeOf(const MachineCode& code, const Variable* registers,
                             const ScalarCallSite& site);
    bool mayCallScalar(const MachineCode& code, Variable* registers, const ScalarCallSite& site,
                       Pc& pc);
    static bool tryMathAtOnce(BuiltinId id, Variable* slot, std::size_t count);
    bool callScalar(const MachineCode& code, Variable* registers, const ScalarCallSite& site,
                    Variable* slot, std::size_t count);
    const MachineCode* leafCode(const Variable& callee);
    const MachineCode* leafCode(const ScriptCallable& callable);
    /// The code of a function of one line, if it has been made and stands; else null.
    [[nodiscard, gnu::always_inline]] const MachineCode* readyLeaf(const Variable& callee) const {
        if (callee.tag() != Variable::kFunctionTag || interpreter_.softErrorPending) return nullptr;
        const ScriptCallable* callable = callee.rawFunction();
        if (callable == nullptr || callable->leaf == nullptr || callable->isLeafRefused ||
            callable->fastBodyKind != FastBodyKind::SingleReturn) {
            return nullptr;
        }
        return callable->leaf->ready[0];
    }
    /// The callee of a call of the scalar tier, if its name, or that of its table, stands for a
    /// global or a register at once; else null.
    [[nodiscard, gnu::always_inline]] const Variable* calleeAtOnce(const MachineCode& code,
                                                                   const Variable* registers,
                                                                   const ScalarCallSite& site) {
        if (site.isRegister) return &registers[site.callee];
        if (!site.isMember) return globalOf(code.variables[site.callee]);
        const MemberSite& member = code.members[site.callee];
        const Variable* base =
            member.baseIsRegister ? &registers[member.base] : globalOf(code.variables[member.base]);
        if (base == nullptr || base->tag() != Variable::kTableTag) return nullptr;
        return base->rawTable().find(code.constants[member.key].asText());
    }
    const MachineCode* renewLeaf(const ScriptCallable& callable);
    class LeafGuard;
    static bool runsCalls(const ScriptCallable& callable);
    void evaluateWhole(const MachineCode& code, Pc& pc);
    void switchToTurns(const MachineCode& code, Pc& pc);
    bool isScalarCallee(const Variable* callee) const;
    Variable spreadCall(Variable* slot, std::size_t count);

    // Variables.
    const Variable* read(VariableRecord& record);
    void meetGlobal(const MachineCode& code, MachineInstruction& instruction,
                    VariableRecord& record, Op op);
    /// Leaves the cache of a token that has met its global without a search as the search would.
    [[gnu::always_inline]] void touchGlobal(const VariableRecord& record) {
        const TokenAnalysis& token = *record.token;
        if (leadsToGlobal(record)) return;
        if (record.isInLeaf ? activations_.back().amongBlocks : record.amongBlocks) {
            token.slotKind = SlotKind::None;
        } else if (!interpreter_.frameScopes.empty() || interpreter_.fastCallable != nullptr ||
                   record.isInLeaf) {
            token.slotKind = SlotKind::Global;
            token.slotDepth = static_cast<std::uint16_t>(interpreter_.frameScopes.size());
        } else if (token.slotKind == SlotKind::None) {
            token.slotKind = SlotKind::Global;
            token.slotDepth = 0;
        }
    }
    void meetPlace(const MachineCode& code, const VariableRecord& record);
    void getVariable(const MachineCode& code, const MachineInstruction& at, Variable& target);
    void getPlace(const MachineCode& code, const MachineInstruction& at, Variable& target);
    void setVariable(const MachineCode& code, const MachineInstruction& at, Variable& value);
    /// The token's cache leads to its global at once, whatever the scopes hold.
    [[nodiscard, gnu::always_inline]] bool leadsToGlobal(const VariableRecord& record) const {
        const TokenAnalysis& token = *record.token;
        return record.isPlain && token.slotKind == SlotKind::Global &&
               token.slotDepth == interpreter_.frameScopes.size();
    }
    /// The global of the record, or null if something hides it, or there is none yet.
    [[gnu::always_inline]] Variable* globalOf(const VariableRecord& record) {
        const TokenAnalysis& token = *record.token;
        if (token.slotKind == record.globalKind) [[likely]] {
            Variable* const global = record.global;
            if (global == nullptr) __builtin_unreachable();
            const std::size_t depth = interpreter_.frameScopes.size();
            if (token.slotDepth == depth) [[likely]]
                return global;
            // In another depth of a recursion.
            if (record.name()->scopeEntries == 0 && depth != 0) {
                token.slotDepth = static_cast<std::uint16_t>(depth);
                return global;
            }
        } else if (token.slotKind == SlotKind::None && record.amongBlocks &&
                   record.name()->scopeEntries == 0) {
            return record.global;
        }
        return searchGlobal(record);
    }
    /// The same where a scope may hide the global.
    [[gnu::noinline]] Variable* searchGlobal(const VariableRecord& record) {
        if (record.global == nullptr) return nullptr;
        if (record.name()->scopeEntries != 0 && isHidden(record.name())) return nullptr;
        // A cache that leads into a scope is asked first: it may hit by an address.
        const SlotKind kind = record.token->slotKind;
        if (kind != SlotKind::Global && kind != SlotKind::None) return nullptr;
        touchGlobal(record);
        return record.global;
    }
    /// The entry of a scope of calls that the token's cache leads to at once, or null.
    [[gnu::always_inline]] Variable* entryOf(const VariableRecord& record) {
        const TokenAnalysis& token = *record.token;
        if (token.slotKind != SlotKind::Frame || record.isInLeaf) return nullptr;
        return interpreter_.cachedVariable(token);
    }
    /// The token has found out that there is no such global, and no scope has the name.
    [[gnu::always_inline]] bool isNowhere(const VariableRecord& record) const {
        const TokenAnalysis& token = *record.token;
        return token.slotKind == SlotKind::None && token.globalSlotChecked &&
               !token.globalSlotFound && record.name()->scopeEntries == 0 && !record.isInLeaf &&
               interpreter_.fastCallable == nullptr;
    }
    void declareByName(const VariableRecord& record, Variable& value, ScopeTarget target);
    Variable* variableForStore(const MachineCode& code, std::uint16_t index);
    void storeIntoNew(const MachineCode& code, Pc pc, std::uint16_t index,
                      std::span<const Variable> keys, const Variable& value, bool isPlain);
    void update(Variable* variable, const MachineCode& code, Pc pc, Variable& operand);

    // Operators: false declines, and the code goes on where `pc` says.
    bool binary(const MachineCode& code, Pc& pc, NodeKind kind, Variable& target,
                const Variable& left, const Variable& right);
    bool slowBinary(const MachineCode& code, Pc& pc, Variable* registers, NodeKind kind,
                    const Variable& left, const Variable& right);
    bool slowCompare(const MachineCode& code, Pc& pc, Variable* registers, NodeKind kind,
                     const Variable& left, const Variable& right, bool& truth, bool hasSecond);
    bool compare(const MachineCode& code, Pc& pc, NodeKind kind, const Variable& left,
                 const Variable& right, bool& truth);
    bool unary(const MachineCode& code, Pc& pc, Variable& target, const Variable& operand);
    bool truth(const MachineCode& code, Pc& pc, const Variable& value, bool& holds);
    bool join(const MachineCode& code, Pc& pc, Variable& target, Variable* operands,
              std::size_t count);
    bool addToCopy(const MachineCode& code, Pc& pc, const Variable& variable, Variable* operands,
                   std::size_t count, Variable& result);
    void growText(Variable& variable, Variable* operands, std::size_t count);
    static void clearOperands(const MachineInstruction& at, Variable* operands);
    bool append(const MachineCode& code, Pc& pc, Variable* registers);
    bool appendGlobal(const MachineCode& code, Pc& pc, Variable* registers);
    bool index(const MachineCode& code, Pc& pc, Variable* registers, const Variable& base,
               const Variable& key);
    static void spread(Variable& result, Variable* targets, std::size_t count);
    static Variable multiOf(Variable* values, std::size_t count);
    static void newArray(Variable* elements, std::size_t count, Variable& target);
    void setIndex(Variable& base, const Variable& key, const Variable& value);
    void updateIndex(Variable& base, const Variable& key, const Variable& value, char operation);
    void setPath(const MachineCode& code, Pc pc, Variable* registers);
    void newTable(const TableSite& site, const MachineCode& code, Variable* registers,
                  Variable& target);
    void decline(const MachineCode& code, Pc& pc, Variable* registers);
    bool evaluateSite(const MachineCode& code, Pc& pc, const ExpressionSite& site);
    const ExpressionSite* siteAt(const MachineCode& code, Pc pc, bool scalarForm) const;
    bool isWithinSite(const MachineCode& code, Pc pc, Pc mark) const;

    // Walks.
    bool checkWalk(const MachineCode& code, const LoopSite& site);
    bool beginWalkOfCall(Variable* slot, std::size_t count);
    void beginWalk(const LoopSite& site, Variable& value, bool isBuiltin);
    bool nextOfWalk(Variable* names, std::size_t count);
    Walk& pushWalk();
    void popWalk();
    void evaluateRange(const MachineCode& code, const LoopSite& site, Variable* first);
    bool startFor(Variable* first);

    // Positions.
    [[nodiscard]] const MachineStatement& statementAt(const MachineCode& code, Pc pc) const;
    void showLine(const MachineCode& code, const MachineStatement& statement);
    void showToken() {
        if (lastToken_ != nullptr) showLastToken();
    }
    void showLastToken();
    void showFailure(const Activation& at, Pc pc, std::string& token);
    void showPosition(const MachineCode& code, Pc pc);
    enum class StatementEnd : std::uint8_t { GoesOn, Unwinds, Leaves };
    StatementEnd runStatement(const MachineCode& code, const MachineStatement& statement);
    [[nodiscard]] const ParsedScriptLine& lineOf(std::uint32_t index) const {
        return activations_.back().code->program->lines[index];
    }
    void giveTurns(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) interpreter_.runTurnHook();
    }

    /// So many results go straight into the targets of the call.
    static constexpr std::size_t kMostSpread = 8;

    DovrelScript& interpreter_;
    ActivationStack activations_;
    std::unordered_map<std::string, Text> constantTexts_;
    std::array<Text, 16> typeTexts_;  // by kind, made when they are first asked for
    std::vector<Segment> segments_;
    std::size_t segment_ = 0;
    std::size_t deepestSegment_ = 0;  // since memory has been given back
    Variable* segmentEnd_ = nullptr;
    std::vector<std::unique_ptr<Walk>> walks_;
    std::vector<std::unique_ptr<Walk>> spareWalks_;
    // What `protectedFrameDepth` was outside of each protected activation.
    std::vector<std::uint64_t> outerProtectedFrames_;
    // Where a last token has been read that nobody has seen yet.
    Pc lastToken_ = nullptr;
    const MachineCode* lastTokenCode_ = nullptr;
    // Where an instruction for either tier has last done what the general tier does differently,
    // and where one has last declined.
    Pc diverged_ = nullptr;
    Pc declined_ = nullptr;
    bool lastCallWasScalar_ = false;
    BlockSignal leaveSignal_ = BlockSignal::None;  // of a program
};
