// Calls and returns of the compiled form, what it leaves to the executor, and the positions that
// errors show.
#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "eval/exhaustion.h"
#include "eval/frame_call.h"
#include "eval/variable_access.h"
#include "exec/bytecode_program.h"
#include "exec/chunk_run.h"
#include "exec/machine.h"
#include "exec/machine_walk.h"
#include "library/natives.h"
#include "value/stack_end.h"
#include "value/string_methods.h"
#include "value/table.h"

namespace {

// Segments grow from the first size to the last.
constexpr std::size_t kFirstSegmentSize = std::size_t{1} << 10;
constexpr std::size_t kLastSegmentSize = std::size_t{1} << 16;
constexpr std::size_t kMostSegments = 256;

bool isMathId(BuiltinId id) {
    return id == BuiltinId::GetTimeMs || (id >= BuiltinId::MathFloor && id <= BuiltinId::MathSqrt);
}

bool isScalarId(BuiltinId id) {
    return isMathId(id) || id == BuiltinId::ToNumber || id == BuiltinId::Len ||
           id == BuiltinId::StringLen || id == BuiltinId::StringByte || id == BuiltinId::Utf8Len;
}

}  // namespace

Machine::Machine(DovrelScript& interpreter) : interpreter_(interpreter) {
    interpreter.blockScopes.setSource(*this);
}

Machine::~Machine() = default;

// ---------------------------------------------------------------- registers

/// Room for `count` registers from `base` on, or in a segment of their own, where what stands in
/// front of `base` and the `arguments` from there on go too.
Variable* Machine::roomFor(Variable* base, std::size_t arguments, std::size_t count,
                           bool& newSegment) {
    newSegment = false;
    if (base != nullptr && base + count <= segmentEnd_) return base;
    const std::size_t needed = count + arguments + 1;
    const std::size_t next = base == nullptr ? 0 : segment_ + 1;
    if (next < segments_.size() && segments_[next].size < needed) segments_.resize(next);
    if (next == segments_.size()) {
        const std::size_t usual = next < 3 ? kFirstSegmentSize << (2 * next) : kLastSegmentSize;
        const std::size_t size = std::max(usual, 2 * needed);
        // Scopes and activations take about as much again, and more while their arrays grow.
#ifdef DOVREL_EMBEDDED
        // How much of the machine's memory a script may take is the host's to say.
        if (next >= kMostSegments) endOfStack();
#else
        if (next >= kMostSegments || !memoryIsLeft(8 * size * sizeof(Variable))) endOfStack();
#endif
        segments_.push_back({std::make_unique<Variable[]>(size), size});
    }
    Variable* moved = segments_[next].registers.get() + 1;
    for (std::size_t i = 0; i < arguments; ++i) {
        moved[i] = std::move(base[i]);
        base[i].setNil();
    }
    segment_ = next;
    deepestSegment_ = std::max(deepestSegment_, next);
    segmentEnd_ = segments_[next].end();
    newSegment = true;
    return moved;
}

void Machine::dropSegment() {
    // One spare segment stays.
    if (segments_.size() > segment_ + 1) segments_.resize(segment_ + 1);
    if (segment_ == 0) {
        segmentEnd_ = nullptr;
        return;
    }
    --segment_;
    segmentEnd_ = segments_[segment_].end();
    // A recursion comes back: seldom enough that it does not matter what this takes.
    if (deepestSegment_ > 2 * (segment_ + 1)) {
        deepestSegment_ = segment_;
        interpreter_.giveMemoryBack();
    }
}

void Machine::giveMemoryBack() noexcept {
    activations_.releaseSpare();
    constexpr std::size_t kMostSpareWalks = 256;
    if (spareWalks_.size() > kMostSpareWalks) {
        spareWalks_.resize(kMostSpareWalks);
        spareWalks_.shrink_to_fit();
    }
}

// ---------------------------------------------------------------- calls

#ifdef DOVREL_EMBEDDED
void Machine::stopIfWanted(const MachineCode& code, Pc pc) {
    const StopReason reason = interpreter_.watch.reasonToStop();
    if (reason != StopReason::None) stopAt(code, pc, reason);
}

void Machine::stopAt(const MachineCode& code, Pc pc, StopReason reason) {
    showPosition(code, pc);
    interpreter_.stop(reason);
}
#endif

bool Machine::tryEnter(Variable* slot, std::size_t count, std::uint8_t marks) {
    // While a soft error waits for its protected call, the executor says what runs.
    if (interpreter_.softErrorPending) return false;
    const ScriptCallable* callable = slot->asFunction().get();
    if (callable == nullptr || callable->isNative || callable->isDecay ||
        callable->fastBodyKind != FastBodyKind::None || (callable->isLoadedChunk && count > 0)) {
        return false;
    }
    MachineFunction* function = functionOf(*callable);
    if (function == nullptr) return false;
    const MachineCode* code = codeOf(*function, (marks & kAmongBlocks) != 0);
    if (code == nullptr) return false;
#ifdef DOVREL_EMBEDDED
    watchCall(*activations_.back().code, activations_.back().pc, *code);
#endif
    enter(*function, *code, slot, count, false);
    return true;
}

/// Nothing has changed if it raises before the activation stands; behind that, abandoning the
/// activation undoes all.
void Machine::enter(MachineFunction& function, const MachineCode& code, Variable* slot,
                    std::size_t count, bool isEntry) {
    const ScriptCallable& callable = *slot->asFunction();
    const std::size_t given = function.parameters.size();
    activations_.reserveOne();
    bool hasSegment = false;
    Variable* const base =
        roomFor(slot + 1, std::min(count, given), code.registerCount, hasSegment);
    Activation& entered = activations_.push();
    entered.code = &code;
    entered.base = base;
    entered.slot = slot;
    entered.lineAtEntry = interpreter_.currentLine;
    entered.frames = static_cast<std::uint32_t>(interpreter_.frameScopes.size());
    entered.blocks = static_cast<std::uint32_t>(interpreter_.blockScopes.open().size());
    entered.set(Activation::kEntry, isEntry);
    entered.set(Activation::kSegment, hasSegment);
    // The caller of an entry has counted the call, and has pushed the extra arguments.
    if (!isEntry) {
        ++interpreter_.callDepth;
        if (callable.isVariadic) pushVarargs(slot + 1 + given, count > given ? count - given : 0);
    }
    for (std::size_t i = given; i < count; ++i) slot[1 + i].setNil();
    for (std::size_t i = count; i < given; ++i) base[i].setNil();
    openFrame(code, base);
    const auto push = [](std::vector<const std::string*>& stack, const std::string* text) {
        if (text->empty() || (!stack.empty() && stack.back() == text)) return false;
        stack.push_back(text);
        return true;
    };
    entered.set(Activation::kDirectory,
                push(interpreter_.baseDirectoryStack, function.baseDirectory));
    entered.set(Activation::kName, push(interpreter_.scriptNameStack, function.scriptName));
    lastCallWasScalar_ = false;
    ++counts.calls;
}

// ---------------------------------------------------------------- protected calls

/// `ok, result = pcall(f, ...)` of a function that runs in this loop; `slot` holds the native. It
/// is refused, with nothing done, for every other callee.
Machine::ProtectedEntry Machine::enterProtected(Variable* slot, std::size_t count,
                                                std::uint8_t marks) {
    if (count == 0 || slot[1].type != VarType::Function) return ProtectedEntry::Refused;
    if (activations_.back().pc[1].op != MachineOp::Spread) return ProtectedEntry::Refused;
    showToken();
    interpreter_.settleMemoryIfDue();
    const std::size_t outer = activations_.size();
    beginProtection();
    const auto undo = [&] {
        while (activations_.size() > outer) abandonActivation();
        endProtection();
    };
    try {
        if (!tryEnter(slot + 1, count - 1, marks)) {
            endProtection();
            return ProtectedEntry::Refused;
        }
    } catch (const std::exception& error) {
        // There is no room for the call. Its arguments may be gone, so it is not made again.
        undo();
        interpreter_.noteError(error.what());
        Variable message{std::string(error.what())};
        clearArguments(slot, count);
        answerProtectedCall(slot, false, message);
        return ProtectedEntry::Answered;
    } catch (...) {
        undo();
        throw;
    }
    activations_.back().set(Activation::kProtected);
    interpreter_.protectedFrameDepth = interpreter_.callDepth;
    ++counts.protectedCalls;
    return ProtectedEntry::Entered;
}

void Machine::beginProtection() {
    outerProtectedFrames_.push_back(interpreter_.protectedFrameDepth);
    try {
        interpreter_.protectedCallDepths.push_back(interpreter_.callDepth);
    } catch (...) {
        outerProtectedFrames_.pop_back();
        throw;
    }
}

void Machine::endProtection() {
    interpreter_.protectedCallDepths.pop_back();
    interpreter_.protectedFrameDepth = outerProtectedFrames_.back();
    outerProtectedFrames_.pop_back();
}

/// Behind the end of a protected activation, whose callee stood in `callee`: its result, or the
/// soft error that it has collected, goes into the targets of the statement. `pc` of the caller
/// goes on to the instruction that would have spread them.
void Machine::finishProtectedCall(Variable* callee, Variable& result) {
    if (interpreter_.softErrorPending && interpreter_.softErrorDepth == interpreter_.callDepth) {
        interpreter_.softErrorPending = false;
        interpreter_.noteAttention();
        interpreter_.softErrorDepth = 0;
        result = Variable(std::exchange(interpreter_.softErrorMessage, std::string()));
        answerProtectedCall(callee - 1, false, result);
    } else {
        answerProtectedCall(callee - 1, true, result);
    }
}

void Machine::answerProtectedCall(Variable* pcall, bool ok, Variable& result) {
    pcall[1].setNil();
    pcall[0].setNil();
    if (!ok) interpreter_.settleMemoryIfDue();
    Activation& caller = activations_.back();
    const MachineInstruction& spread = *++caller.pc;
    if (interpreter_.softErrorUnwinding()) return;
    Variable* const targets = caller.base + spread.b;
    targets[0] = Variable::makeBool(ok);
    std::size_t next = 1;
    if (result.type == VarType::Multi) {
        for (const Variable& value : result.asMulti()->values) {
            if (next >= spread.c) break;
            targets[next++] = value;
        }
    } else if (spread.c > 1) {
        targets[next++] = std::move(result);
    }
    for (; next < spread.c; ++next) targets[next].setNil();
    result.setNil();
}

/// An exception has come as far as the innermost protected call behind activation `entry`: it is
/// the answer to that call. False if there is none.
bool Machine::failProtectedCall(std::size_t entry, const char* message) {
    std::size_t distance = 0;
    const std::size_t most = activations_.size() - 1 - entry;
    while (distance < most && !activations_.around(distance).is(Activation::kProtected)) ++distance;
    if (distance == most) return false;
    Variable result{std::string(message)};
    Variable* const callee = activations_.around(distance).slot;
    for (std::size_t i = 0; i <= distance; ++i) abandonActivation();
    answerProtectedCall(callee - 1, false, result);
    return true;
}

// ---------------------------------------------------------------- the ends of calls

/// Makes the `count` arguments from `extra` on the values of `...` for the innermost activation.
void Machine::pushVarargs(Variable* extra, std::size_t count) {
    std::vector<Variable> values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i) values.push_back(std::move(extra[i]));
    interpreter_.varargStack.push_back(std::move(values));
    activations_.back().set(Activation::kVarargs);
}

/// A frame that a program has made on demand, for a `native` outside of every call, stays.
void Machine::popFrames(const Activation& running) {
    std::size_t count = running.frames;
    if (interpreter_.frameScopes.size() <= count) return;
    if (running.is(Activation::kProgram) && count == 0 && !interpreter_.frameScopes[0].isWindow())
        count = 1;
    interpreter_.frameScopes.popTo(count);
}

/// The end of the innermost activation: its scopes go, and all else that it has pushed.
void Machine::popActivation() {
    const Activation running = activations_.back();
    if (running.code->isLeaf) {
        activations_.pop_back();
        return;
    }
    leaveBlocks(running);
    if (running.is(Activation::kWalks)) {
        while (walks_.size() > running.walks) popWalk();
    }
    if (running.is(Activation::kName)) interpreter_.scriptNameStack.pop_back();
    if (running.is(Activation::kDirectory)) interpreter_.baseDirectoryStack.pop_back();
    if (running.is(Activation::kVarargs)) interpreter_.varargStack.pop_back();
    popFrames(running);
    activations_.pop_back();
    if (running.is(Activation::kSegment)) dropSegment();
    if (running.is(Activation::kProtected)) endProtection();
    if (running.is(Activation::kProgram)) return;
    if (!running.is(Activation::kEntry))
        --interpreter_.callDepth;  // else the caller has counted the call
    if (interpreter_.currentLine != running.lineAtEntry &&
        interpreter_.currentLine != interpreter_.retiredLine) {
        // The record of the current line outlives the call.
        const Shared<ScriptCallable>& callable = running.slot->asFunction();
        if (interpreter_.retiredCallable != callable) interpreter_.retiredCallable = callable;
        interpreter_.retiredLine = interpreter_.currentLine;
    }
}

/// The end of a call whose `count` results go straight into the targets of the statement.
void Machine::leaveWithSeveral(Variable* returned, std::size_t count) {
    std::array<Variable::Words, kMostSpread> values;
    for (std::size_t i = 0; i < count; ++i) values[i] = returned[i].takeWords();
    Variable* const slot = activations_.back().slot;
    lastCallWasScalar_ = false;
    if (activations_.back().code->isLeaf) {
        popLeaf();
    } else {
        popPlain();
    }
    slot->overwriteNil();
    const MachineInstruction& spread = activations_.back().pc[1];
    Variable* const targets = activations_.back().base + spread.b;
    for (std::size_t i = 0; i < spread.c; ++i) {
        if (i < count) {
            targets[i].overwriteByWords(values[i]);
        } else {
            targets[i].overwriteNil();
        }
    }
    for (std::size_t i = spread.c; i < count; ++i) Variable().overwriteByWords(values[i]);
}

/// The same where it has been left in the middle: operands may wait in its registers.
void Machine::abandonActivation() {
    const Activation running = activations_.back();
    if (!running.code->isLeaf) {
        interpreter_.blockScopes.open().popTo(running.blocks);
        popFrames(running);
    }
    for (std::size_t i = 0; i < running.code->registerCount; ++i) running.base[i].setNil();
    popActivation();
}

// ---------------------------------------------------------------- block scopes

/// Opens the blocks of all activations, from the outermost on that may have any to open.
void Machine::openBlocks() {
    if (activations_.empty()) return;
    ScopeStack& scopes = interpreter_.blockScopes.open();
    std::size_t outermost = 0;
    while (outermost + 1 < activations_.size() && !activations_.around(outermost).isAmongOpen) {
        ++outermost;
    }
    std::uint32_t opened = 0;
    for (std::size_t distance = outermost + 1; distance-- > 0;) {
        Activation& running = activations_.around(distance);
        // What has been put off around it was not counted at its entry.
        running.blocks += opened;
        running.isAmongOpen = true;
        opened += openBlocksOf(running, scopes);
    }
    interpreter_.blockScopes.forget(opened);
    counts.blocksOpened += opened;
}

/// How many it has opened.
std::uint32_t Machine::openBlocksOf(Activation& running, ScopeStack& scopes) {
    const std::vector<BlockState>& known = running.code->blockStates;
    const std::size_t levels = known[running.blockState].level;
    // A turn of a coroutine has scopes of its own, and nothing has changed around it.
    if (running.blockState == running.openState && running.openBlocks == levels) return 0;
    std::array<const BlockState*, kMostNestedBlocks + 1> states{};
    std::size_t level = levels;
    for (std::uint16_t state = running.blockState; level > 0; state = known[state].outer) {
        states[--level] = &known[state];
    }
    std::uint32_t opened = 0;
    for (; level < levels; ++level) {
        const BlockState& state = *states[level];
        const ScopeWindow& window = running.code->windows[state.window];
        if (level >= running.openBlocks) {
            scopes.pushWindow().openWindow(window.names.data(), running.base + window.first, 0,
                                           static_cast<std::uint32_t>(window.names.size()));
            ++running.openBlocks;
            ++opened;
        }
        Scope& scope = scopes[running.blocks + level];
        while (scope.size() < state.declared) scope.declareNext();
    }
    running.openState = running.blockState;
    return opened;
}

void Machine::closeBlock(Activation& running, std::uint16_t state) {
    if (running.openBlocks <= running.code->blockStates[state].level) {
        interpreter_.blockScopes.forget(1);
        return;
    }
    interpreter_.blockScopes.open().pop();
    --running.openBlocks;
    // Those around it are as they were when it was opened.
    running.openState = state;
}

/// A name that scopes have, or blocks that have been put off may have.
bool Machine::isHidden(Name name) {
    if (name->isCounted() || interpreter_.isInUncountedFrame(name)) return true;
    if (!interpreter_.blockScopes.isPutOff()) return false;
    constexpr std::size_t kMostLookedAt = 8;
    for (std::size_t distance = 0; distance < activations_.size(); ++distance) {
        if (distance >= kMostLookedAt) return !interpreter_.isInNoScope(name);
        const Activation& running = activations_.around(distance);
        const std::vector<BlockState>& known = running.code->blockStates;
        for (std::uint16_t at = running.blockState; at != 0; at = known[at].outer) {
            const BlockState& state = known[at];
            const Name* const names = running.code->windows[state.window].names.data();
            if (std::find(names, names + state.declared, name) != names + state.declared) {
                return true;
            }
        }
        if (running.isAmongOpen) return false;
    }
    return false;
}

// ---------------------------------------------------------------- other calls

void Machine::clearArguments(Variable* slot, std::size_t count) {
    for (std::size_t i = 0; i <= count; ++i) slot[i].setNil();
}

/// Activation `entry` is the statement of a coroutine's turn, or the only call in it: nothing is
/// left to be done behind it, whatever has been called from there.
bool Machine::isStatementOfTurn(std::size_t entry) {
    const std::size_t inner = activations_.size() - 1 - entry;
    const Activation& outermost = activations_.around(inner);
    if (outermost.code->isTurnLine) return true;
    return interpreter_.inCoroutineTurn && interpreter_.lastCallDepth != 0 &&
           interpreter_.callDepth - inner == interpreter_.lastCallDepth &&
           !outermost.is(Activation::kProgram);
}

/// A call that may end the running turn as the last thing that happens in it, so that the end is
/// passed on by returning: an exception takes a hundred times as long.
class Machine::LastCall {
public:
    LastCall(DovrelScript& interpreter, bool isLast)
        : interpreter_(interpreter), outer_(interpreter.lastCallDepth), isLast_(isLast) {
        if (isLast) interpreter.lastCallDepth = interpreter.callDepth + 1;
    }
    ~LastCall() {
        if (isLast_) interpreter_.lastCallDepth = outer_;
    }
    LastCall(const LastCall&) = delete;
    LastCall& operator=(const LastCall&) = delete;

    [[nodiscard]] bool hasEndedTurn() const { return isLast_ && interpreter_.coroutineTurnEnded; }

private:
    DovrelScript& interpreter_;
    std::uint64_t outer_;
    bool isLast_;
};

/// A callee that does not run in this loop.
bool Machine::callOther(Variable* slot, std::size_t count, std::uint8_t marks, std::size_t entry) {
    showToken();
    const Arguments args(slot + 1, count);
    Variable result;
    const ScriptCallable* callable =
        slot->type == VarType::Function ? slot->asFunction().get() : nullptr;
    bool wasScalar = false;
    // What starts a coroutine, and the native `kill`, which has no id.
    const LastCall lastCall(
        interpreter_,
        interpreter_.inCoroutineTurn && callable != nullptr &&
            (callable->isDecay || (callable->isNative && callable->builtinId == BuiltinId::None)) &&
            isStatementOfTurn(entry));
    if (callable != nullptr && callable->isNative && !callable->isDecay) {
        if ((marks & kDiscards) != 0 && callable->builtinId == BuiltinId::Assert) {
            // A statement of its own: it is no call.
            if (count == 0) throwPlainError("assert requires at least 1 argument");
            if (!isTruthy(slot[1])) {
                interpreter_.raiseScriptErrorSoft(count > 1 ? slot[2].toString()
                                                            : "assertion failed!");
            }
            clearArguments(slot, count);
            lastCallWasScalar_ = false;
            return false;
        }
        FastScalarValue scalar{};
        if ((marks & kDirectCall) != 0 && callable->builtinId != BuiltinId::None &&
            interpreter_.tryEvaluateNativeBuiltinScalar(callable->builtinId, args, scalar)) {
            wasScalar = true;
            result = variableFromFastScalar(scalar);
        } else {
            result = interpreter_.invokeCallableFast(*slot, args);
        }
    } else if (callable != nullptr && (marks & kDirectCall) != 0) {
        FastScalarValue scalar{};
        if (interpreter_.tryEvaluateFastCallableScalar(slot->asFunction(), args, scalar)) {
            wasScalar = true;
            result = variableFromFastScalar(scalar);
        } else if (!interpreter_.softErrorUnwinding()) {
            result = interpreter_.invokeCallableFast(*slot, args);
        }
        interpreter_.settleMemoryIfDue();
    } else {
        result = interpreter_.invokeCallableFast(*slot, args);
    }
    if (lastCall.hasEndedTurn()) {
        ++counts.quietEnds;
        return true;
    }
    clearArguments(slot, count);
    *slot = std::move(result);
    lastCallWasScalar_ = wasScalar;  // whatever else has been called meanwhile
    return false;
}

/// A native in `slot`, which holds it while it runs.
void Machine::callPlainNative(Variable* slot, std::size_t count, const ScriptCallable& native,
                              std::uint8_t marks) {
    showToken();
    const Arguments args(slot + 1, count);
    const bool hasBody = native.builtinId != BuiltinId::None;
    Variable result;
    FastScalarValue scalar{};
    const bool wasScalar =
        (marks & kDirectCall) != 0 && hasBody &&
        interpreter_.tryEvaluateNativeBuiltinScalar(native.builtinId, args, scalar);
    if (wasScalar) {
        result = variableFromFastScalar(scalar);
    } else {
        const CallDepthGuard depth(interpreter_);
        result = hasBody ? interpreter_.dispatchBuiltinFast(native.builtinId, args)
                         : native.nativeFunction(args);
        if (interpreter_.softErrorUnwinding()) result.setNil();
    }
    clearArguments(slot, count);
    *slot = std::move(result);
    lastCallWasScalar_ = wasScalar;  // whatever else has been called meanwhile
}

/// A member of a library table goes straight to its fast body, outside the count of calls.
void Machine::callMemberNative(Variable* slot, std::size_t count, BuiltinId id) {
    showToken();
    const Arguments args(slot + 1, count);
    Variable result = interpreter_.dispatchBuiltinFast(id, args);
    if (interpreter_.softErrorUnwinding()) result.setNil();
    clearArguments(slot, count);
    *slot = std::move(result);
}

/// `s["method"](x)`: what the function that `s["method"]` is bound to gives, which nobody sees.
/// False, with nothing done, if there is none.
bool Machine::callOfText(Variable* slot, std::size_t count, const Variable& text,
                         const Text& method) {
    const Variable* found = findStringMethod(interpreter_, method->text);
    if (found == nullptr) return false;
    showToken();
    // Copies: what is called may change both.
    const Variable callee = *found;
    const Variable receiver = text;
    Variable result = callStringMethod(interpreter_, callee, receiver, Arguments(slot + 1, count));
    clearArguments(slot, count);
    *slot = std::move(result);
    lastCallWasScalar_ = false;
    return true;
}

/// `a, b = f(x)`: what the call gives, a multi-value or its only value.
Variable Machine::spreadCall(Variable* slot, std::size_t count) {
    showToken();
    const Arguments args(slot + 1, count);
    const Variable callee = *slot;
    const ScriptCallable* callable =
        callee.type == VarType::Function ? callee.asFunction().get() : nullptr;
    Variable result;
    if (callable != nullptr && callable->isNative && !callable->isDecay &&
        callable->builtinId == BuiltinId::Pcall) {
        result = interpreter_.spreadProtectedCall(args);
    } else {
        FastScalarValue scalar{};
        if (callable != nullptr && !callable->isNative &&
            interpreter_.tryEvaluateFastCallableScalar(callee.asFunction(), args, scalar)) {
            result = variableFromFastScalar(scalar);
        } else if (!interpreter_.softErrorUnwinding()) {
            result = interpreter_.invokeCallableFast(callee, args);
        }
    }
    interpreter_.settleMemoryIfDue();
    clearArguments(slot, count);
    return result;
}

bool Machine::isScalarCallee(const Variable* callee) const {
    if (callee == nullptr || callee->type != VarType::Function) return false;
    const ScriptCallable* callable = callee->asFunction().get();
    if (callable == nullptr) return false;
    if (callable->isNative) return isScalarId(callable->builtinId);
    return !callable->isDecay && callable->fastBodyKind != FastBodyKind::None;
}

/// The callee of a call of the scalar tier, found without running anything; null for none.
const Variable* Machine::calleeOf(const MachineCode& code, const Variable* registers,
                                  const ScalarCallSite& site) {
    if (site.isMember) {
        const MemberSite& member = code.members[site.callee];
        const Variable* base = member.baseIsRegister
                                   ? &registers[member.base]
                                   : read(const_cast<VariableRecord&>(code.variables[member.base]));
        if (base == nullptr || base->type != VarType::Table) return nullptr;
        return base->rawTable().find(code.constants[member.key].asText());
    }
    if (site.isRegister) return &registers[site.callee];
    return read(const_cast<VariableRecord&>(code.variables[site.callee]));
}

/// The body of a one-line function, or its guard, makes calls.
bool Machine::runsCalls(const ScriptCallable& callable) {
    if (callable.fastBodyKind != FastBodyKind::SingleReturn || callable.bodyLines == nullptr ||
        callable.fastReturnLine >= callable.bodyLines->size()) {
        return true;
    }
    for (const FastExpression& value :
         (*callable.bodyLines)[callable.fastReturnLine].returnValues) {
        if (!value.valid || value.rootNode().holdsCall) return true;
    }
    return false;
}

/// Does what the scalar form around `pc` is about, and its general form, by the executor.
void Machine::evaluateWhole(const MachineCode& code, Pc& pc) {
    showToken();
    const ExpressionSite* site = siteAt(code, pc, true);
    ++counts.byTiers;
    if (site->isStatement) {
        const MachineStatement& statement = statementAt(code, pc);
        static_cast<void>(runStatement(code, statement));
        if (!interpreter_.softErrorUnwinding()) pc = code.code.data() + site->doneTrue;
    } else {
        bool holds = true;
        if (site->isCondition) {
            holds = interpreter_.evaluateCondition(*site->line, "if",
                                                   DovrelScript::ConditionTiers::BoolFirst);
        } else {
            static_cast<void>(evaluateSite(code, pc, *site));
        }
        // What unwinds leaves the statement from here.
        if (!interpreter_.softErrorUnwinding()) {
            pc = code.code.data() + (holds ? site->doneTrue : site->doneFalse);
        }
    }
    interpreter_.settleMemoryIfDue();
    switchToTurns(code, pc);
}

bool Machine::mayCallScalar(const MachineCode& code, Variable* registers,
                            const ScalarCallSite& site, Pc& pc) {
    const Variable* callee = calleeOf(code, registers, site);
    if (!isScalarCallee(callee)) {
        decline(code, pc, registers);
        return false;
    }
    const ScriptCallable& callable = *callee->asFunction();
    if (!callable.isNative && runsCalls(callable)) {
        // What its body calls runs as often as the tiers attempt the expression.
        evaluateWhole(code, pc);
        return false;
    }
    if ((callable.isNative && isMathId(callable.builtinId)) == site.takesScalars) return true;
    // The arguments are code of the other kind.
    showToken();
    FastScalarValue scalar{};
    if (!interpreter_.tryEvaluateFastExpressionScalarNode(*site.expression, site.node,
                                                          site.line->tokenAnalysis, scalar)) {
        decline(code, pc, registers);
        return false;
    }
    assignFastScalarToVariable(registers[site.result], scalar);
    pc = code.code.data() + site.behind;
    return false;
}

bool Machine::callScalar(const MachineCode& code, Variable* registers, const ScalarCallSite& site,
                         Variable* slot, std::size_t count) {
    showToken();
    const Variable* found = calleeOf(code, registers, site);
    const Variable callee = found != nullptr ? *found : Variable();
    bool isDone = false;
    FastScalarValue scalar{};
    if (isScalarCallee(&callee)) {
        const ScriptCallable& callable = *callee.asFunction();
        if (callable.isNative && isMathId(callable.builtinId)) {
            std::array<FastScalarValue, 8> few;
            std::vector<FastScalarValue> many;
            if (count > few.size()) many.resize(count);
            FastScalarValue* values = count > few.size() ? many.data() : few.data();
            for (std::size_t i = 0; i < count; ++i) values[i] = scalarFromVariable(slot[1 + i]);
            isDone = interpreter_.tryScalarBuiltin(callable.builtinId, values, count, scalar);
        } else {
            const Arguments args(slot + 1, count);
            if (callable.isNative) {
                isDone = interpreter_.tryScalarBuiltin(callable.builtinId, args, scalar);
            } else {
                isDone =
                    interpreter_.tryEvaluateFastCallableScalar(callee.asFunction(), args, scalar) &&
                    !interpreter_.softErrorUnwinding();
            }
        }
    }
    clearArguments(slot, count);
    if (!isDone) return false;
    assignFastScalarToVariable(*slot, scalar);
    return true;
}

bool Machine::tryCall(const Shared<ScriptCallable>& callable, Arguments args, Variable& result) {
    if (interpreter_.softErrorPending) return false;
    MachineFunction* function = functionOf(*callable);
    if (function == nullptr) return false;
    const MachineCode* code = codeOf(*function, interpreter_.blockScopeVisible());
    if (code == nullptr) return false;
    bool newSegment = false;
    Variable* const slot = roomFor(top(), 0, args.size() + 2, newSegment);
    *slot = Variable::makeFunction(callable);
    for (std::size_t i = 0; i < args.size(); ++i) slot[1 + i] = args[i];
#ifdef DOVREL_EMBEDDED
    interpreter_.watch.count(code->statements.size());
#endif
    const std::size_t outer = activations_.size();
    const auto restore = [&] {
        clearArguments(slot, args.size());
        if (newSegment) dropSegment();
    };
    try {
        enter(*function, *code, slot, args.size(), true);
        result = run();
        restore();
    } catch (...) {
        if (activations_.size() > outer) abandonActivation();
        restore();
        throw;
    }
    return true;
}

bool Machine::tryCallLeaf(const Shared<ScriptCallable>& callable, Arguments args,
                          Variable& result) {
    if (interpreter_.softErrorPending) return false;
    const MachineCode* code = leafCode(*callable);
    if (code == nullptr) return false;
    activations_.reserveOne();
    bool newSegment = false;
    Variable* const slot = roomFor(top(), 0, std::size_t{1} + code->registerCount, newSegment);
    *slot = Variable::makeFunction(callable);
    for (std::size_t i = 0; i < code->parameterCount; ++i) {
        slot[1 + i] = i < args.size() ? args[i] : Variable();
    }
#ifdef DOVREL_EMBEDDED
    interpreter_.watch.count(1);
#endif
    const bool amongBlocks = interpreter_.blockScopeVisible();
    Activation& entered = activations_.push();
    entered.code = code;
    entered.base = slot + 1;
    entered.slot = slot;
    entered.amongBlocks = amongBlocks;
    entered.set(Activation::kEntry);
    ++counts.calls;
    declined_ = diverged_ = nullptr;
    const auto restore = [&] {
        clearArguments(slot, code->parameterCount);
        declined_ = diverged_ = nullptr;
        if (newSegment) dropSegment();
    };
    try {
        result = run();
    } catch (...) {
        restore();
        throw;
    }
    restore();
    return true;
}

bool Machine::tryRun(const std::shared_ptr<BytecodeProgram>& program, Variable& result,
                     BlockSignal& signal) {
    if (!interpreter_.runsCompiledForm) return false;
    if (program->chunks.empty()) return false;
    if (interpreter_.softErrorPending) return false;
    auto& functions = program->machineFunctions.byChunk;
    if (functions.size() < program->chunks.size()) functions.resize(program->chunks.size());
    std::unique_ptr<MachineFunction>& function = functions[0];
    if (function == nullptr) {
        function = std::make_unique<MachineFunction>();
        function->program = program.get();
        function->hasFrame = false;
        function->runsOnce = true;
    }
    if (function->hasFrame) return false;
    const MachineCode* code = codeOf(*function, interpreter_.blockScopeVisible());
    if (code == nullptr) return false;
#ifdef DOVREL_EMBEDDED
    interpreter_.watch.count(code->statements.size());
#endif
    activations_.reserveOne();
    Activation entered;
    entered.code = code;
    entered.owner = &program;
    entered.lineAtEntry = interpreter_.currentLine;
    entered.frames = static_cast<std::uint32_t>(interpreter_.frameScopes.size());
    entered.blocks = static_cast<std::uint32_t>(interpreter_.blockScopes.open().size());
    entered.set(Activation::kEntry);
    entered.set(Activation::kProgram);
    bool hasSegment = false;
    entered.base = roomFor(top(), 0, code->registerCount, hasSegment);
    entered.set(Activation::kSegment, hasSegment);
    activations_.push() = entered;
    leaveSignal_ = BlockSignal::None;
    result = run();
    signal = leaveSignal_;
    return true;
}

// ---------------------------------------------------------------- by the executor

/// Runs a statement by the executor. What follows it: the next one, or the end of the function.
Machine::StatementEnd Machine::runStatement(const MachineCode& code,
                                            const MachineStatement& statement) {
    showToken();
    const Activation running = activations_.back();
    const std::shared_ptr<BytecodeProgram>& program =
        running.owner != nullptr ? *running.owner : running.slot->asFunction()->program;
    // The function may be overwritten by what it calls, but its slot holds it.
    const std::shared_ptr<BytecodeProgram> held = program;
    const BytecodeInstruction& instruction = held->code[statement.instruction];
    ChunkRun run(interpreter_, held, 0);
    BlockSignal signal = BlockSignal::None;
    run.value() = std::move(running.base[code.chunkValue]);
    running.base[code.chunkValue].setNil();
    const bool goesOn = run.runOne(instruction, signal);
    activations_.back().base[code.chunkValue] = std::move(run.value());
    if (goesOn) return StatementEnd::GoesOn;
    if (signal == BlockSignal::None) return StatementEnd::Unwinds;
    leaveSignal_ = signal;
    return StatementEnd::Leaves;
}

// ---------------------------------------------------------------- positions

const MachineStatement& Machine::statementAt(const MachineCode& code, Pc pc) const {
    const auto index = static_cast<std::uint32_t>(pc - code.code.data());
    const auto behind = std::upper_bound(
        code.statements.begin(), code.statements.end(), index,
        [](std::uint32_t i, const MachineStatement& statement) { return i < statement.first; });
    return behind == code.statements.begin() ? *behind : *std::prev(behind);
}

void Machine::showLine(const MachineCode& code, const MachineStatement& statement) {
    static_cast<void>(code);
    interpreter_.selectLine(lineOf(statement.line));
}

void Machine::showLastToken() {
    const MachineCode& code = *lastTokenCode_;
    const Pc at = std::exchange(lastToken_, nullptr);
    const TokenSite& site = code.tokenMarks[static_cast<std::size_t>(at->d())];
    interpreter_.lastToken = site.line->tokens[site.token];
    interpreter_.lastTokenIndex = site.token;
}

/// Makes the position what it is at `pc`: the line, and the last token if the tokens' rules are
/// followed.
void Machine::showPosition(const MachineCode& code, Pc pc) {
    showToken();
    if (!code.statements.empty()) {
        const MachineStatement& statement = statementAt(code, pc);
        const bool isKept = pc->op == Op::ForNext && (pc->m & kLinesAreKept) != 0;
        if (!statement.runsCode && !code.forTurns && !isKept) showLine(code, statement);
    }
    const auto index = static_cast<std::uint32_t>(pc - code.code.data());
    const auto site =
        std::lower_bound(code.tokens.begin(), code.tokens.end(), index,
                         [](const TokenSite& known, std::uint32_t i) { return known.at < i; });
    if (site != code.tokens.end() && site->at == index) {
        interpreter_.lastToken = site->line->tokens[site->token];
        interpreter_.lastTokenIndex = site->token;
    }
}

/// The same for an instruction that has failed; `token` is the first of its statement.
void Machine::showFailure(const Activation& at, Pc pc, std::string& token) {
    const MachineCode& code = *at.code;
    token = "script";
    showPosition(code, pc);
    if (code.statements.empty() || code.isTurnLine) return;
    if (pc->op == Op::ForNext && (pc->m & kCountsOutside) != 0) {
        token = "for";
        return;
    }
    const ParsedScriptLine& line = code.program->lines[statementAt(code, pc).line];
    if (!line.tokens.empty()) token = line.tokens[0];
}
