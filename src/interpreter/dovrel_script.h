// The interpreter as one object, and the map of the system.
//
// A script travels through the directories in this order; each adds member functions to this class
// and owns the fields that are grouped under its name below:
//
//   host         the command line; owns a DovrelScript and calls runScript
//   interpreter  this class, its life, and the run pipeline
//   value        values, operators, containers and the table cache
//   frontend     text -> logical lines -> tokens -> prepared lines with compiled expressions
//   eval         scopes, the expression tiers, assignment, calls, errors
//   exec         the compiled program, its compiler, its file, the two executors
//   coroutine    the one scheduled coroutine and its turns
//   library      the natives that scripts find at start
//
// One object runs any number of scripts in turn and keeps its globals between them. One thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <span>
#ifdef DOVREL_FUZZ
#include <stdexcept>
#endif
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "coroutine/coroutine_state.h"
#include "eval/fast_scalar_value.h"
#include "eval/memory_reserve.h"
#include "eval/scope.h"
#include "exec/block_signal.h"
#include "frontend/parsed_script_line.h"
#include "interpreter/host_services.h"
#include "library/builtin_id.h"
#include "library/random_engine.h"
#include "library/script_file_cache.h"
#include "value/arguments.h"
#include "value/array_storage.h"
#include "value/names.h"
#include "value/run_context.h"
#include "value/script_callable.h"
#include "value/stack_end.h"
#include "value/table.h"
#include "value/variable.h"

class Machine;
class RunObserver;
struct BytecodeProgram;

class DovrelScript;

/// A native's body. Natives check their argument count and kinds first and raise the exact text of
/// their entry.
using NativeBody = Variable (*)(DovrelScript& interpreter, Arguments args);

class DovrelScript {
public:
    // ---------------------------------------------------------------- interpreter: life and runs
    /// Seeds the generator from "/dev/urandom", notes the start time, registers the library.
    DovrelScript();
    ~DovrelScript();
    DovrelScript(const DovrelScript&) = delete;
    DovrelScript& operator=(const DovrelScript&) = delete;

    /// Compiles and runs `source`. Every standard exception that leaves has the form of a located
    /// report.
    void runScript(std::string source);
    /// Runs chunk 0 of `program` and returns its value. Errors inside statements are located;
    /// others leave bare.
    Variable runBytecodeProgram(const std::shared_ptr<BytecodeProgram>& program);
    /// Raises the error that a coroutine turn has left, if there is one.
    void rethrowPendingCoroutineException();

    /// Sets who is told of what runs. For an interpreter that has run nothing yet: code that has
    /// been compiled tells nobody. The observer must outlive the runs.
#ifdef DOVREL_OBSERVABLE
    void setObserver(RunObserver& watcher);
    RunObserver* observer = nullptr;
    bool valuesAreWatched = false;  // the observer `watchesValues`
#else
    static constexpr RunObserver* observer = nullptr;  // what would tell it costs nothing
    static constexpr bool valuesAreWatched = false;
#endif
    /// An exception is on its way, with the scopes of its statement still there. It is told once,
    /// however many handlers it passes.
    void observeError(const std::exception& error) {
        if (observer != nullptr) tellError(error.what());
    }
    /// A soft error, or a report with its location, is raised here.
    void observeRaised(std::string_view message) {
        if (observer != nullptr) tellRaised(message);
    }
    /// A statement has stored a value; see RunObserver.
    void observeAssigned(const ParsedScriptLine& line, std::size_t nameToken,
                         std::span<const Variable> keys, const Variable& value) {
        if (observer != nullptr) tellAssigned(line, nameToken, keys, value);
    }
    /// For an observer that watches values; see RunObserver.
    void observeFound(const TokenAnalysis& token, const Variable* found, bool isWritten) {
        if (valuesAreWatched) tellFound(token, found, isWritten);
    }
    void observeCall(const TokenAnalysis& place, const Variable& callee) {
        if (valuesAreWatched) tellCall(place, callee);
    }
    void observeElement(const ArrayStorage& array, std::int64_t position) {
        if (!valuesAreWatched) return;
        if (position < 1 || static_cast<std::size_t>(position) > array.size()) {
            tellMissingElement(position, array.size());
        }
    }
    void observeElement(const Variable& container, const Variable& key) {
        if (!valuesAreWatched || container.type != VarType::Array) return;
        if (key.type == VarType::Int) observeElement(*container.asArray(), key.asInt());
    }
    void observeCompound(const ParsedScriptLine& line, std::size_t nameToken, VarType before,
                         const Variable& after) {
        if (valuesAreWatched && before != after.type) tellCompound(line, nameToken, before, after);
    }
    /// A line of a short function runs, which does not become the current one.
    void observeShortStatement(const ParsedScriptLine& line) {
        if (observer != nullptr) tellStatement(line);
    }
    /// A turn of a loop begins, with its variables in the top frame scope.
    void observeIteration(const ParsedScriptLine& header) {
        if (observer != nullptr) tellIteration(header);
    }

    /// For a process that ends with the one program it runs: to take a large program apart again
    /// takes as long as to compile it, and the system takes its memory back in any case.
    bool leavesProgramsToSystem = false;
    RandomEngine randomEngine;
    std::chrono::steady_clock::time_point startTime;

    /// What a host has set for its scripts; as it stands, they run on their own.
    HostServices host;

    // ------------------------------------------------------------------ value: containers
    /// `container[key]`: a copy of the element, or nil where there is none. Never changes anything.
    [[nodiscard]] Variable getIndexedValue(const Variable& container, const Variable& key);
    /// The element of a table or an array, for changing; valid until the container changes. With
    /// `create` a missing element is made.
    [[nodiscard]] Variable* getIndexedValueMutable(Variable& container, const Variable& key,
                                                   bool create);
    /// `container[key] = value`. With `create` a missing element is made, and an array with a key
    /// that is no position turns into a table.
    void setIndexedValue(Variable& container, const Variable& key, const Variable& value,
                         bool create);
    /// A String's bytes, an Array's elements, a Table's border; else raises "len(x) expects an
    /// array, table, or string".
    [[nodiscard]] int arrayLength(const Variable& value);
    [[nodiscard]] int numericTableLength(const Shared<TableStorage>& table) {
        return table != nullptr ? table->border() : 0;
    }
    /// The native callable that `text[method]` gives: `method` with `text` in front of its
    /// arguments.
    [[nodiscard]] Variable bindStringMethod(const std::string& text, const Text& method);

    // ------------------------------------------------------------------ frontend
    /// Cuts one logical line into token texts. Raises "Unterminated string literal".
    [[nodiscard]] std::vector<std::string> tokenise(const std::string& source);
    /// The same with the classification of each token. The texts are left in `tokenTexts`, as long
    /// as `text` stands.
    void readTokens(std::string_view text, std::vector<TokenAnalysis>& analysis);
    /// Classifies a token that has the form of an identifier.
    void analyseIdentifier(std::string_view token, TokenAnalysis& analysis);
    /// Classifies one token and interns its name; the cache fields are empty.
    [[nodiscard]] TokenAnalysis analyseToken(std::string_view token);
    /// Cuts a text into logical lines, tokenises and prepares them.
    [[nodiscard]] std::vector<ParsedScriptLine> parseLines(const std::string& source);
    /// Makes the record of one logical line but for its number and block links. `line` may hold
    /// another.
    void readLine(std::string_view text, ParsedScriptLine& line, bool withExpressions);
    /// Makes a copy of `text` the current line, for reports.
    void showLineText(std::string_view text);
    /// Works out statement kinds, assignments, block links and compiled expressions. Raises
    /// nothing: what it cannot make sense of fails when it runs. May run over a line twice.
    void prepareParsedLines(std::vector<ParsedScriptLine>& lines) const;

    NamePool names;
    /// The methods of texts are those of what this name leads to.
    const Name stringLibraryName = names.intern("string");
    std::vector<std::string_view> tokenTexts;  // of `readTokens`; kept for its storage
    /// False keeps prepareParsedLines from compiling expressions, so that everything runs by
    /// tokens. For tests that compare the tiers.
    bool compileExpressions = true;

    // ------------------------------------------------------------------ eval: scopes
    /// Creates or overwrites a global.
    void pushVariable(const std::string& name, Variable value);
    /// The variable called `name`, or null. Uncached; skips the running fast callable.
    [[nodiscard]] Variable* resolveVariablePtr(Name name);
    /// The variable at a token, for reading, or null; through the token's cache.
    [[nodiscard]] const Variable* resolveVariableFastPtr(const TokenAnalysis& token);
    /// The same for an evaluator, which tells an observer.
    [[nodiscard]] const Variable* lookUpVariable(const TokenAnalysis& token) {
        const Variable* found = resolveVariableFastPtr(token);
        observeFound(token, found, false);
        return found;
    }
    /// The same, with the likely answers tried inline.
    [[nodiscard]] const Variable* readVariable(const TokenAnalysis& token);
    /// The variable at a token, for writing, or null if the name exists nowhere.
    [[nodiscard]] Variable* resolveExistingVariableFastMutable(const TokenAnalysis& token);
    /// The same, with the likely answers tried inline.
    [[nodiscard]] Variable* variableForWriting(const TokenAnalysis& token);
    /// The same without a cache.
    [[nodiscard]] Variable* resolveExistingVariable(Name name);
    /// The variable at a token if its cache leads to a global or to an entry of a frame, which are
    /// good for reading and writing alike; else null. Changes nothing that matters.
    [[nodiscard]] Variable* cachedVariable(const TokenAnalysis& token);
    /// With no scope that has the name, a search could only find the global that the token knows.
    /// It is cached as the search would cache it. Null if there is no such global, or no scope.
    [[nodiscard]] Variable* unhiddenGlobal(const TokenAnalysis& token);
    /// Writes a variable by name.
    void assignVariable(Name name, const Variable& value, ScopeTarget target);
    /// Writes the variable at a token, through the token's cache.
    void assignVariableFast(const TokenAnalysis& token, const Variable& value, ScopeTarget target);
    /// Creates the global that a token names and leaves the token's cache on the newest global.
    void createGlobal(const TokenAnalysis& token, Variable value);
    /// No entry of a scope has the name, so that it can only be a global.
    [[nodiscard]] bool isInNoScope(Name name) const {
        if (name->scopeEntries == 0) return true;
        // Those that have been put off count from now on.
        static_cast<void>(blockScopes.size());
        return !name->isCounted() && !isInUncountedFrame(name);
    }
    /// A frame scope that does not count its names has this one.
    [[nodiscard]] bool isInUncountedFrame(Name name) const {
        return name->mayBeInFrames() && frameScopes.find(name, 0, frameScopes.size()).isFound();
    }
    /// The slot of the global called `name`, or kNoGlobalSlot.
    [[nodiscard]] std::size_t findGlobalSlot(Name name) const;
    /// A global of this name is there now: frame scopes with the name count it from now on.
    void countInFrames(const std::string& name);
    /// A block scope is visible.
    [[nodiscard]] bool blockScopeVisible() const { return blockScopes.size() > blockScopeFloor; }
    /// Pushes a block scope with room for a handful of names.
    void pushBlockScope() { blockScopes.push(4); }

    std::unordered_map<std::string, std::size_t> globalSlots;  // name to index in globalValues
    std::deque<Variable> globalValues;  // only ever grows, and never moves a value
    std::vector<bool> globalAssigned;   // set for each slot that holds a value
    ScopeStack frameScopes;             // one per running call or loop, top innermost
    // How often a name of uncounted frame scopes has become that of a global.
    std::uint32_t frameNamesVersion = 0;
    BlockScopeStack blockScopes;      // one per running block with locals, top innermost
    std::size_t blockScopeFloor = 0;  // block scopes below this count are not visible
    const ScriptCallable* fastCallable = nullptr;  // whose fast body is running
    Arguments fastArgs;                            // its arguments, owned by the caller
    std::size_t fastFrameBase = 0;  // frame scopes at its entry; newer ones suspend it

    // ------------------------------------------------------------------ eval: expressions
    /// Evaluates the expression at `pos` from its tokens and leaves `pos` behind it. The caller
    /// checks what follows, unless a soft error is unwinding.
    [[nodiscard]] Variable evaluateExpression(const std::vector<std::string>& tokens,
                                              std::size_t& pos,
                                              const std::vector<TokenAnalysis>* analysis);
    /// Moves `pos` behind an expression of at least precedence `level`, evaluating nothing.
    void skipExpression(const std::vector<std::string>& tokens, std::size_t& pos, int level,
                        const std::vector<TokenAnalysis>* analysis);
    /// Evaluates a whole compiled expression: concat form, scalar tier, general tier.
    [[nodiscard]] Variable evaluateFastExpression(const FastExpression& expression,
                                                  const std::vector<TokenAnalysis>& analysis);
    /// The general tier: any value; raises what is wrong.
    [[nodiscard]] Variable evaluateFastExpressionNode(const FastExpression& expression, int index,
                                                      const std::vector<TokenAnalysis>& analysis);
    /// The scalar tier: false declines, and the caller evaluates again by the general tier.
    [[nodiscard]] bool tryEvaluateFastExpressionScalarNode(
        const FastExpression& expression, int index, const std::vector<TokenAnalysis>& analysis,
        FastScalarValue& out);
    /// The same by value, inline for operands that are variables or int literals; an unset value
    /// declines. `index` must be that of a node.
    [[nodiscard]] FastScalarValue scalarOperand(const FastExpression& expression, int index,
                                                const std::vector<TokenAnalysis>& analysis);
    /// The int tier.
    [[nodiscard]] bool tryEvaluateFastExpressionIntNode(const FastExpression& expression, int index,
                                                        const std::vector<TokenAnalysis>& analysis,
                                                        int& out);
    /// The bool tier: conditions only.
    [[nodiscard]] bool tryEvaluateFastExpressionBoolNode(const FastExpression& expression,
                                                         int index,
                                                         const std::vector<TokenAnalysis>& analysis,
                                                         bool& out);
    /// Appends a chain of "+" over string literals and `toString` calls; false if it is none.
    [[nodiscard]] bool appendFastStringConcatNode(const FastExpression& expression, int index,
                                                  const std::vector<TokenAnalysis>& analysis,
                                                  std::string& out);
    /// Which tiers a condition may go through.
    enum class ConditionTiers : std::uint8_t {
        BoolFirst,   // the bytecode executor and coroutine turns
        ScalarOnly,  // the parsed-block executor and the guards of fast bodies
    };
    /// The truth of a condition line. `word` names the statement in "Unexpected token after `word`
    /// condition".
    [[nodiscard]] bool evaluateCondition(const ParsedScriptLine& line, std::string_view word,
                                         ConditionTiers tiers);
    /// Evaluates the values of a `return` line into one value: nil, the value, or a Multi. Nil when
    /// a soft error is unwinding.
    [[nodiscard]] Variable evaluateReturnValues(const ParsedScriptLine& line);

    /// Evaluates a call's arguments by the general tier into `frame`, left to right. False if a
    /// soft error is unwinding.
    bool evaluateCallArguments(const FastExpression& expression, const FastExprNode& call,
                               const std::vector<TokenAnalysis>& analysis, ArgumentFrame& frame);
    /// The native that a callee node leads to, without running anything; null if it leads to none.
    const ScriptCallable* findNativeCallee(const FastExpression& expression, int callee,
                                           const std::vector<TokenAnalysis>& analysis);

    ArgumentStack argumentStack;
    std::unique_ptr<Machine> machine;  // runs compiled functions

    // ------------------------------------------------------------------ eval: statements
    /// Runs an assignment line. False, with nothing done, if the line is none. `result` becomes the
    /// last value of a general multiple assignment and nil otherwise.
    [[nodiscard]] bool executeAssignment(const ParsedScriptLine& line, Variable& result);
    /// Runs an expression statement that is a call of `assert`. False, with nothing done, for every
    /// other expression.
    [[nodiscard]] bool tryExecuteDiscardedFastCall(const FastExpression& expression,
                                                   const std::vector<TokenAnalysis>& analysis);
    /// Runs a line that is an assignment or an expression; the value of an expression goes to
    /// `value`. Shared by all executors. `discardedCallValue` says what a discarded call leaves.
    enum class DiscardedCall : std::uint8_t { ClearsValue, KeepsValue };
    void executePlainLine(const ParsedScriptLine& line, Variable& value,
                          DiscardedCall discardedCallValue);

    // ------------------------------------------------------------------ eval: calls
    /// Calls `callee`, whatever it is. Raises for anything that cannot be called.
    Variable invokeCallableFast(const Variable& callee, Arguments args);
    /// The same for the callee of a call node; `isMember` if it was found in a table.
    Variable callFound(const Variable& callee, bool isMember, Arguments args);
    /// A native may be called by its id with nothing around it: it runs no script code, and the
    /// count of calls that a soft error is compared with is not missed. Members of tables are
    /// outside that count in any case.
    [[nodiscard]] bool mayCallDirectly(BuiltinId id, bool isMember) const {
        return runsNoScriptCode(id) && (isMember || !softErrorPending);
    }
    /// `pcall`: calls the first argument with the others; a Multi of true and the results, or of
    /// false and the message. Nil when an outer soft error is unwinding.
    Variable protectedCall(Arguments args);
    /// `ok, result = pcall(f, ...)`: the same as a Multi, one-line functions in the scalar tier
    /// first. Nil when an outer soft error is unwinding.
    Variable spreadProtectedCall(Arguments args);
    /// Recognises the short body shapes; called once by whoever declares a function.
    static void prepareFastCallableBody(ScriptCallable& callable);
    /// Runs a fast body in the scalar tier; false if it declines.
    [[nodiscard]] bool tryEvaluateFastCallableScalar(const Shared<ScriptCallable>& callable,
                                                     Arguments args, FastScalarValue& out);
    /// The same as the inlined form of `pcall`: a fired guard gives `ok` false and its message.
    [[nodiscard]] bool tryEvaluateProtectedFastCallableScalar(
        const Shared<ScriptCallable>& callable, Arguments args, bool& ok, FastScalarValue& out,
        std::string& message);

    std::vector<std::vector<Variable>> varargStack;      // extra arguments of each variadic call
    std::vector<const std::string*> baseDirectoryStack;  // strings of programs and callables
    std::vector<const std::string*> scriptNameStack;     // the same, for error reports

    // ------------------------------------------------------------------ eval: errors
    /// The located report of `message` near `token`.
    [[nodiscard]] std::string locatedReport(std::string_view message, std::string_view token) const;
    /// Raises it.
    [[noreturn]] void throwError(std::string_view message, std::string_view token);
    /// Raises the report of `error`, unless it is a report already and is raised again as it is.
    /// Must be called from a handler. Near `lastToken`, else near `fallbackToken`.
    [[noreturn]] void rethrowLocated(const std::exception& error, std::string_view fallbackToken);
    /// The same for a statement of the function that a protected call has called: if nobody can
    /// tell the difference, the report is recorded as a soft error instead, which takes a fraction
    /// of the time. True if it is; the caller leaves its chunk with nil then.
    [[nodiscard]] bool tryRecordFault(const std::exception& error, std::string_view fallbackToken);
    /// Records a soft error for the active protected call and returns, or raises RaisedScriptError
    /// if there is none.
    void raiseScriptErrorSoft(std::string message);
    /// A soft error is on its way to its protected call: stop and return nil.
    [[nodiscard]] bool softErrorUnwinding() const {
#ifdef DOVREL_EMBEDDED
        // Asked in every statement, call and turn of a loop, so nothing runs for ever past it.
        if (watch.isDue(1)) [[unlikely]]
            stopIfWanted();
#endif
#ifdef DOVREL_FUZZ
        // Asked in every statement, call and turn of a loop, so nothing runs for ever past it.
        if (statementBudget == 0) throw std::runtime_error("statement budget exhausted");
        --statementBudget;
#endif
        return softErrorPending && callDepth > softErrorDepth;
    }
#ifdef DOVREL_EMBEDDED
    /// Raises ScriptStopped if the running script must stop.
    void stopIfWanted() const;
    /// Raises ScriptStopped, and keeps the name of the running script for the report.
    [[noreturn]] void stop(StopReason reason) const;
    mutable std::string stoppedIn;
    /// Of the context that the interpreter was made in.
    ScriptWatch& watch = RunContext::current().watch;
#endif
#ifdef DOVREL_FUZZ
    mutable std::uint64_t statementBudget = std::uint64_t{1} << 16;
#endif
    /// Makes `line` the current one for error reports.
    void selectLine(const ParsedScriptLine& line) {
        currentLineNumber = line.lineNumber;
        currentLine = &line.source;
    }
    /// The same for a statement that is about to run, or a condition to be tested.
    void beginStatement(const ParsedScriptLine& line) {
        selectLine(line);
        if (observer != nullptr) tellStatement(line);
    }
    /// Keeps the text of the current line, whose record is about to go.
    void keepCurrentLineText() noexcept;
    /// Ends the hold on a callable whose call is over, but keeps it if `currentLine` may point into
    /// its lines. `lineAtEntry` is what `currentLine` was before the call.
    void retireCallable(Shared<ScriptCallable>&& callable, const std::string* lineAtEntry);

    std::uint64_t callDepth = 0;                     // active calls
    std::vector<std::uint64_t> protectedCallDepths;  // call depth at each active `pcall`
    std::uint64_t protectedFrameDepth = 0;           // call depth of the innermost function in a
                                                     // frame that a `pcall` has called itself
    bool softErrorPending = false;                   // recorded and not yet collected
    std::uint64_t softErrorDepth = 0;                // depth of the `pcall` that will collect it
    std::string softErrorMessage;
    std::size_t currentLineNumber = 0;         // one less than the number shown
    const std::string* currentLine = nullptr;  // text of the line that runs or is parsed
    std::string currentLineTextOverride;       // that text, once the record it stood in is gone
    std::string lastToken;  // what the token-stream evaluator consumed last; never cleared by
                            // statements, so it may be of an earlier one
    std::size_t lastTokenIndex = 0;
    Shared<ScriptCallable> retiredCallable;    // keeps `currentLine` alive after a call
    const std::string* retiredLine = nullptr;  // `currentLine` when it was retired

    // ------------------------------------------------------------------ eval: memory
    /// Gives back to the system what a recursion that is over has left, if that is far beyond what
    /// is in use. No scope changes its address.
    void giveMemoryBack() noexcept;
    /// The same, and takes the reserve again if it is gone and memory is there for it. To be called
    /// where `memoryIsUnsettled`.
    void settleMemory() noexcept;
    void settleMemoryIfDue() noexcept {
        if (memoryIsUnsettled()) [[unlikely]]
            settleMemory();
    }
    /// An error with this text is about to be reported or has been caught: if it tells that memory
    /// has run out, the reserve is for whoever deals with it.
    void noteError(std::string_view message) const noexcept;
    mutable MemoryReserve memoryReserve;

    // ------------------------------------------------------------------ exec
    /// The whole front end and the compiler, with the record of each line.
    [[nodiscard]] BytecodeProgram compileToBytecodeInternal(const std::string& source);
    /// The same for a program that is going to run: what its blocks do not need of a line is worked
    /// out when the line runs. `runsOnce`: the program will run once at most.
    [[nodiscard]] std::shared_ptr<BytecodeProgram> readProgram(std::string source, bool runsOnce);
    /// Compiles the lines [firstLine, endLine) of `program` into a new chunk; returns its index.
    std::uint32_t compileBytecodeChunk(BytecodeProgram& program, std::size_t firstLine,
                                       std::size_t endLine);
    /// Reads a bytecode file's bytes; `path` serves error messages only.
    [[nodiscard]] BytecodeProgram deserializeBytecode(const std::vector<unsigned char>& bytes,
                                                      const std::string& path);
    /// Runs one chunk; `signal` tells why it stopped. `nesting` counts the chunks around it.
    Variable executeBytecodeChunkInternal(const std::shared_ptr<BytecodeProgram>& program,
                                          std::uint32_t chunk, BlockSignal& signal,
                                          std::uint32_t nesting = 0);
    /// Runs lines from `index` on with no program; leaves `index` where it stopped.
    Variable executeParsedBlock(const std::vector<ParsedScriptLine>& lines, std::size_t& index,
                                BlockSignal& signal);
    /// False keeps all programs from running in the compiled form (exec/machine_code.h): set when a
    /// bytecode file is read whose chunks leave scopes behind that they do not declare. Tests
    /// compare the two ways.
    bool runsCompiledForm = true;

    // ------------------------------------------------------------------ coroutine
    /// Makes a coroutine of a decay callable and schedules it; inside a turn, ends that turn.
    void startCoroutine(const Shared<ScriptCallable>& callable, Arguments args);
    /// Runs one turn of the scheduled coroutine, if any. A failure of the turn is raised.
    void serviceScheduledCoroutineTurn();
    /// Runs the coroutine, already swapped in, to the end of one statement; true when it has
    /// finished.
    [[nodiscard]] bool executeCoroutineTurn(CoroutineState& state);
    /// The end of a main-flow statement: gives the coroutine one turn. A failure waits in
    /// `pendingCoroutineException`.
    void runTurnHook() {
        if (scheduledCoroutine != nullptr) giveCoroutineTurn();
    }
    void giveCoroutineTurn();
    /// What the native `kill` does.
    void killCoroutine();

    // The one that gets turns; null while its turn runs.
    std::shared_ptr<CoroutineState> scheduledCoroutine;
    std::shared_ptr<CoroutineState> replacementCoroutine;  // started inside the running turn
    std::exception_ptr pendingCoroutineException;          // a turn's failure, not yet raised
    /// A soft error is pending, a coroutine is scheduled or one has failed: code that has looked at
    /// this once need not ask for each. To be noted anew by whoever changes one of these.
    bool needsAttention = false;
    void noteAttention() { needsAttention = mustBeAttended(); }
    [[nodiscard]] bool mustBeAttended() const {
        return softErrorPending || scheduledCoroutine != nullptr ||
               pendingCoroutineException != nullptr;
    }
    bool inCoroutineTurn = false;
    bool coroutineTurnEnded = false;  // the running coroutine has been told to end
    /// The depth of a call that is the whole statement of the running turn, if there is one:
    /// nothing is left to be done behind it, so it may end the turn by returning. Else 0.
    std::uint64_t lastCallDepth = 0;

    // ------------------------------------------------------------------ library
    /// Puts all globals in place, in their fixed order.
    void registerLibrary();
    /// Makes `name` a global native.
    void pushFunction(const std::string& name, NativeBody body);
    /// Calls the native of `id`; nil for an id without a fast body.
    Variable dispatchBuiltinFast(BuiltinId id, Arguments args);
    /// The natives of the scalar tier on values, and the mathematical ones on scalars; false
    /// declines.
    [[nodiscard]] bool tryScalarBuiltin(BuiltinId id, Arguments args, FastScalarValue& out);
    [[nodiscard]] bool tryScalarBuiltin(BuiltinId id, const FastScalarValue* values,
                                        std::size_t count, FastScalarValue& out);
    /// Calls a native whose result is likely to be a scalar; false if the id or the result is
    /// another.
    [[nodiscard]] bool tryEvaluateNativeBuiltinScalar(BuiltinId id, Arguments args,
                                                      FastScalarValue& out);
    /// Milliseconds since the constructor ran.
    [[nodiscard]] int elapsedMilliseconds() const;
    /// Where a script's file name leads; never fails.
    [[nodiscard]] std::string resolvePath(const std::string& path) const;

    std::unordered_map<std::string, ScriptFileCacheEntry> scriptFileCache;

private:
    void tellStatement(const ParsedScriptLine& line);
    void tellFound(const TokenAnalysis& token, const Variable* found, bool isWritten);
    void tellCall(const TokenAnalysis& place, const Variable& callee);
    void tellMissingElement(std::int64_t position, std::size_t count);
    void tellCompound(const ParsedScriptLine& line, std::size_t nameToken, VarType before,
                      const Variable& after);
    void tellDroppedZero(const TokenAnalysis& place);
    void tellIteration(const ParsedScriptLine& header);
    void tellAssigned(const ParsedScriptLine& line, std::size_t nameToken,
                      std::span<const Variable> keys, const Variable& value);
    void tellProgram(const BytecodeProgram& program, const std::string& source);
    void tellError(std::string_view message);
    void tellCaught();
    void tellRaised(std::string_view message);
    /// The scalar that a variable holds: nil for an unknown one, unset for another kind of value.
    FastScalarValue scalarVariable(const TokenAnalysis& token);
    // The scalar tier, by form of node; an unset value declines.
    FastScalarValue scalarNode(const FastExpression& expression, const FastExprNode& node,
                               const std::vector<TokenAnalysis>& analysis);
    FastScalarValue scalarArithmetic(const FastExpression& expression, const FastExprNode& node,
                                     const std::vector<TokenAnalysis>& analysis);
    const Variable* valueInPlace(const FastExpression& expression, int index,
                                 const std::vector<TokenAnalysis>& analysis);
    const Variable* elementInPlace(const FastExpression& expression, const FastExprNode& node,
                                   const std::vector<TokenAnalysis>& analysis);
    FastScalarValue scalarIndex(const FastExpression& expression, const FastExprNode& node,
                                const std::vector<TokenAnalysis>& analysis);
    FastScalarValue scalarIndexSlowly(const FastExpression& expression, const FastExprNode& node,
                                      const std::vector<TokenAnalysis>& analysis);
    bool tryIntOperandsFirst(const FastExpression& expression, const FastExprNode& node,
                             const std::vector<TokenAnalysis>& analysis, int& a, int& b);
    bool tryScalarComparison(const FastExpression& expression, const FastExprNode& node,
                             const std::vector<TokenAnalysis>& analysis, bool& out);
    bool tryScalarLength(const FastExpression& expression, const FastExprNode& node,
                         const std::vector<TokenAnalysis>& analysis, int& out);
    bool tryScalarCall(const FastExpression& expression, const FastExprNode& node,
                       const std::vector<TokenAnalysis>& analysis, FastScalarValue& out);
    bool tryScalarBuiltinOnValues(const FastExpression& expression, const FastExprNode& node,
                                  const std::vector<TokenAnalysis>& analysis, BuiltinId id,
                                  FastScalarValue& out);
    bool tryScalarBuiltinOnScalars(const FastExpression& expression, const FastExprNode& node,
                                   const std::vector<TokenAnalysis>& analysis, BuiltinId id,
                                   FastScalarValue& out);
    bool tryScalarScriptCall(const FastExpression& expression, const FastExprNode& node,
                             const std::vector<TokenAnalysis>& analysis, FastScalarValue& out);
    /// The scalar tier on a node, by the scalar rule of truth.
    bool tryScalarTruth(const FastExpression& expression, int index,
                        const std::vector<TokenAnalysis>& analysis, bool& out);
    bool tryBoolLogic(const FastExpression& expression, const FastExprNode& node,
                      const std::vector<TokenAnalysis>& analysis, bool& out);
    // The general tier, by form of node.
    Variable callNode(const FastExpression& expression, const FastExprNode& node,
                      const std::vector<TokenAnalysis>& analysis, const Variable* callee,
                      Arguments args);
    /// The callee of a call where it stands, if it is a variable or a table's entry under a literal
    /// key; null for every other callee.
    const Variable* calleeInPlace(const FastExpression& expression, int index,
                                  const std::vector<TokenAnalysis>& analysis);
    bool startsWithFrameCall(const FastExpression& expression,
                             const std::vector<TokenAnalysis>& analysis);
    /// The same for a native that runs no script code: where no argument holds a call, variables
    /// are lent in place instead of copied.
    bool evaluateLentArguments(const FastExpression& expression, const FastExprNode& call,
                               const std::vector<TokenAnalysis>& analysis, ArgumentFrame& frame);
    bool tryLeafInts(const FastExpression& expression, const FastExprNode& node,
                     const std::vector<TokenAnalysis>& analysis, Variable& out);
    bool concatMayStart(const FastExpression& expression, int index,
                        const std::vector<TokenAnalysis>& analysis);
    Variable evaluateIndexNode(const FastExpression& expression, const FastExprNode& node,
                               const std::vector<TokenAnalysis>& analysis);
    Variable evaluateCallNode(const FastExpression& expression, const FastExprNode& node,
                              const std::vector<TokenAnalysis>& analysis);
    Variable evaluateAddNode(const FastExpression& expression, int index,
                             const std::vector<TokenAnalysis>& analysis);
    Variable evaluateBinaryNode(const FastExpression& expression, const FastExprNode& node,
                                const std::vector<TokenAnalysis>& analysis);
    /// The variable that a node names, in place, or null if it is no variable node or unknown.
    const Variable* variableInPlace(const FastExpression& expression, int index,
                                    const std::vector<TokenAnalysis>& analysis);

    void consultGlobalCache(const TokenAnalysis& token);
    [[nodiscard]] Variable* findInScopes(Name name);
    [[nodiscard]] Variable* globalAt(std::size_t slot);
    [[nodiscard]] Variable* assignableGlobal(std::size_t slot, const std::string& name);
    [[nodiscard]] const Variable* searchVariable(const TokenAnalysis& token);
    [[nodiscard]] const Variable* fastParameter(const TokenAnalysis& token) const;
    [[nodiscard]] const Variable* readVariableSlowly(const TokenAnalysis& token);
    void cacheGlobal(const TokenAnalysis& token, std::size_t slot);
    Variable runInFrame(Shared<ScriptCallable> callable, Arguments args);
    Variable runFastBody(const ScriptCallable& callable, Arguments args);
};

/// A new native function value. `name` decides its id; an empty name gives none.
[[nodiscard]] Variable makeNativeCallable(NativeFunction function, const std::string& name);
