// Registers, calls and returns of the compiled form within its loop.
#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "eval/exhaustion.h"
#include "eval/variable_access.h"
#include "exec/machine.h"
#include "exec/machine_walk.h"
#include "library/natives.h"
#include "value/stack_end.h"

namespace {

// Segments grow from the first size to the last.
constexpr std::size_t kFirstSegmentSize = std::size_t{1} << 10;
constexpr std::size_t kLastSegmentSize = std::size_t{1} << 16;
constexpr std::size_t kMostSegments = 256;

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
