#include "dovrel/checked_run.h"

#include <algorithm>
#include <utility>

#include "eval/errors.h"
#include "value/operators.h"

namespace {

std::string quoted(const std::string& name) { return '`' + name + '`'; }

/// A call of it a second time can be seen.
bool mayHaveEffect(const ScriptCallable& callable) {
    if (callable.isDecay) return true;
    if (callable.isNative) {
        static const std::set<std::string> kEffects = {
            "print",    "random",   "push",    "pop",    "reserve", "set",  "clear",
            "erase",    "insert",   "remove",  "sort",   "kill",    "load", "loadstring",
            "loadFile", "loadfile", "runFile", "dofile", "pcall",   "read", "write",
            "close",    "open",     "popen",   "execute"};
        return kEffects.contains(callable.name) || callable.builtinId == BuiltinId::TableInsert ||
               callable.builtinId == BuiltinId::TableRemove ||
               callable.builtinId == BuiltinId::TableSort ||
               (callable.builtinId == BuiltinId::None && callable.name.empty());
    }
    if (callable.fastBodyKind == FastBodyKind::None || callable.bodyLines == nullptr) return true;
    const auto& line = (*callable.bodyLines)[callable.fastReturnLine];
    return std::any_of(
        line.returnValues.begin(), line.returnValues.end(),
        [](const FastExpression& value) { return !value.valid || value.rootNode().holdsCall; });
}

}  // namespace

CheckedMode checkedModeFrom(const std::string& word) {
    if (word == "off") return CheckedMode::Off;
    return word == "error" ? CheckedMode::Error : CheckedMode::Tell;
}

CheckedRun::CheckedRun(DovrelScript& interpreter, std::string mainName, CheckedMode mode, Tell tell)
    : RunCounts(interpreter, std::move(mainName)), mode_(mode), tell_(std::move(tell)) {
    watchesValues = true;
}

/// `what` tells apart what is found in one line.
void CheckedRun::tell(const std::string& what, const std::string& message) {
    if (frames().empty()) return;
    const Frame& frame = top();
    const ObservedScript& script = *frame.function->script;
    if (mode_ == CheckedMode::Error) throwPlainError("checked: " + message);
    if (!told_.insert({script.index, frame.line, what}).second) return;
    tell_(placeOf(script, frame.line), message,
          frame.statement != nullptr ? frame.statement->source : std::string());
}

// ------------------------------------------------------------------------- calls made again

void CheckedRun::statementBegins(const ParsedScriptLine& line) {
    RunCounts::statementBegins(line);
    if (!statements_.empty()) statements_.back().calls.clear();
}

void CheckedRun::programBegins(const BytecodeProgram& program) {
    RunCounts::programBegins(program);
    statements_.emplace_back();
}

void CheckedRun::programEnds() noexcept {
    statements_.pop_back();
    RunCounts::programEnds();
}

void CheckedRun::callBegins(const ScriptCallable& callable, Arguments args) {
    RunCounts::callBegins(callable, args);
    statements_.emplace_back();
}

void CheckedRun::callEnds(CallEnd end) noexcept {
    statements_.pop_back();
    RunCounts::callEnds(end);
}

void CheckedRun::turnBegins(const CoroutineState& coroutine) {
    RunCounts::turnBegins(coroutine);
    statements_.emplace_back();
}

void CheckedRun::turnEnds() noexcept {
    statements_.pop_back();
    RunCounts::turnEnds();
}

void CheckedRun::callEvaluated(const TokenAnalysis& place, const Variable& callee) {
    if (statements_.empty() || callee.type != VarType::Function) return;
    const Shared<ScriptCallable>& callable = callee.asFunction();
    if (callable == nullptr || !mayHaveEffect(*callable)) return;
    std::vector<const TokenAnalysis*>& calls = statements_.back().calls;
    if (std::find(calls.begin(), calls.end(), &place) == calls.end()) {
        calls.push_back(&place);
        return;
    }
    const std::string& name = callable->name;
    tell("again " + name, "the call of " + (name.empty() ? "a function" : quoted(name)) +
                              " is evaluated again in the same statement");
}

// ------------------------------------------------------------------------- variables

CheckedRun::Found CheckedRun::search(Name name, bool isWritten) const {
    const DovrelScript& script = interpreter();
    const auto global = [&]() -> Found {
        const auto slot = script.globalSlots.find(name->text);
        if (slot == script.globalSlots.end()) return {};
        return {&script.globalValues[slot->second], false, 0};
    };
    // Deep recursions would be searched from top to bottom for each global.
    if (name->scopeEntries == 0) return global();
    const ScopeStack& blocks = script.blockScopes.all();
    const EntryPlace inBlocks = blocks.find(name, script.blockScopeFloor, blocks.size());
    if (inBlocks.isFound()) {
        return {&blocks[inBlocks.scope][inBlocks.entry].value, true, inBlocks.scope};
    }
    const bool isShort = script.fastCallable != nullptr && !isWritten;
    const std::size_t base = isShort ? script.fastFrameBase : 0;
    const auto inFrames = [&](std::size_t first, std::size_t end) -> const Variable* {
        const EntryPlace place = script.frameScopes.find(name, first, end);
        return place.isFound() ? &script.frameScopes[place.scope][place.entry].value : nullptr;
    };
    if (const Variable* value = inFrames(base, script.frameScopes.size())) return {value, false, 0};
    if (isShort) {
        const std::vector<Name>& parameters = script.fastCallable->parameters;
        for (std::size_t i = 0; i < parameters.size(); ++i) {
            if (parameters[i] != name) continue;
            static const Variable kAbsent;
            return {i < script.fastArgs.size() ? &script.fastArgs[i] : &kAbsent, false, 0};
        }
        if (const Variable* value = inFrames(0, base)) return {value, false, 0};
    }
    return global();
}

/// The name of the variable that stands at `value`, or "" for none.
std::string CheckedRun::nameOf(const Variable* value) const {
    const DovrelScript& script = interpreter();
    for (const ScopeStack* stack : {&script.blockScopes.all(), &script.frameScopes}) {
        for (std::size_t i = 0; i < stack->size(); ++i) {
            const Scope& scope = (*stack)[i];
            for (std::size_t j = 0; j < scope.size(); ++j) {
                if (&scope[j].value == value) return scope[j].name->text;
            }
        }
    }
    for (std::size_t i = 0; i < script.fastArgs.size(); ++i) {
        const bool isParameter =
            script.fastCallable != nullptr && i < script.fastCallable->parameters.size();
        if (isParameter && &script.fastArgs[i] == value) {
            return script.fastCallable->parameters[i]->text;
        }
    }
    for (const auto& [name, slot] : script.globalSlots) {
        if (&script.globalValues[slot] == value) return name;
    }
    return {};
}

void CheckedRun::variableFound(const TokenAnalysis& token, const Variable* found, bool isWritten) {
    if (token.name == nullptr || frames().empty()) return;
    const Found expected = search(token.name, isWritten);
    const std::string& name = token.name->text;
    const bool isSame = found == expected.value || (found != nullptr && expected.value != nullptr &&
                                                    found->isNil() && expected.value->isNil());
    if (isSame) {
        if (expected.isBlock) checkHidden(token.name, expected);
        return;
    }
    if (found == nullptr) {
        tell("miss " + name, quoted(name) +
                                 " is absent here although it exists by now: this place has looked "
                                 "for it before it did");
        return;
    }
    const std::string other = nameOf(found);
    if (other == name) {
        tell("place " + name, quoted(name) +
                                  " leads to another variable of that name here than a "
                                  "search would find: this place remembers an older one");
    } else if (!other.empty()) {
        tell("name " + name, quoted(name) + " leads to the variable " + quoted(other) +
                                 " here: this place remembers where it found " + quoted(name) +
                                 " before");
    }
}

/// A block scope of a caller comes before everything in a frame.
void CheckedRun::checkHidden(Name name, const Found& found) {
    const Frame& frame = top();
    if (found.scope >= frame.firstBlockScope || frame.callable == nullptr) return;
    // What is above the frame's first scope is its own and that of its loops.
    const DovrelScript& script = interpreter();
    bool isOwn = false;
    for (std::size_t i = frame.firstFrameScope; i < script.frameScopes.size(); ++i) {
        isOwn = isOwn || script.frameScopes[i].find(name) < script.frameScopes[i].size();
    }
    if (frame.isShort) {
        const std::vector<Name>& parameters = frame.callable->parameters;
        isOwn = isOwn || std::find(parameters.begin(), parameters.end(), name) != parameters.end();
    }
    if (!isOwn) return;
    tell("hidden " + name->text, "the `local` " + quoted(name->text) +
                                     " of a caller hides that of " + quoted(frame.function->name));
}

// ------------------------------------------------------------------------- values

void CheckedRun::elementMissing(std::int64_t position, std::size_t count) {
    tell("element", "there is no element " + std::to_string(position) + " in an array of " +
                        std::to_string(count) + ": this is the absent value");
}

void CheckedRun::compoundChangedKind(const ParsedScriptLine& line, const std::string& name,
                                     VarType before, const Variable& after) {
    const std::string sign(1, line.assignment->operation);
    const std::string operation = quoted(sign + '=');
    if (after.type == VarType::String) {
        tell("kind " + name,
             operation + " makes a text of the " + typeName(before) + ' ' + quoted(name));
    } else {
        tell("kind " + name, operation + " makes the kind " + typeName(after.type) + " of the " +
                                 typeName(before) + ' ' + quoted(name));
    }
}

void CheckedRun::numberAttemptBegins() { attempts_.push_back(droppedZeros_); }

void CheckedRun::numberAttemptEnds(bool isAnswered) {
    const bool isAny = droppedZeros_ > attempts_.back();
    droppedZeros_ = attempts_.back();
    attempts_.pop_back();
    if (isAnswered && isAny) tell("zero", "`or` drops the number 0 on its left");
}

void CheckedRun::zeroDropped(const TokenAnalysis& /*place*/) { ++droppedZeros_; }
