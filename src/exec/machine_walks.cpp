// Generic `for` of the compiled form. It gives the iterations of exec/generic_for.cpp, which says
// what is kept and why.
#include <algorithm>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "eval/variable_access.h"
#include "exec/for_header.h"
#include "exec/machine.h"
#include "exec/machine_walk.h"
#include "value/numbers.h"

/// Begins a walk of the innermost activation, which ends with that at the latest.
Machine::Walk& Machine::pushWalk() {
    if (spareWalks_.empty()) spareWalks_.push_back(std::make_unique<Walk>());
    const auto outer = static_cast<std::uint32_t>(walks_.size());
    walks_.push_back(std::move(spareWalks_.back()));
    spareWalks_.pop_back();
    Activation& running = activations_.back();
    if (!running.is(Activation::kWalks)) {
        running.walks = outer;
        running.set(Activation::kWalks);
    }
    return *walks_.back();
}

void Machine::popWalk() {
    spareWalks_.push_back(std::move(walks_.back()));
    walks_.pop_back();
    spareWalks_.back()->clear();
    Activation& running = activations_.back();
    if (walks_.size() == running.walks) running.clear(Activation::kWalks);
}

/// The loop may be walked directly: by what the name means now.
bool Machine::checkWalk(const MachineCode& code, const LoopSite& site) {
    const VariableRecord& record = code.variables[site.iterator];
    const ScriptCallable* native = nativeOf(interpreter_.resolveVariableFastPtr(*record.token));
    const BuiltinId id = native != nullptr ? native->builtinId : BuiltinId::None;
    if (id != BuiltinId::Pairs && id != BuiltinId::Ipairs) return false;
    Walk& walk = pushWalk();
    walk.kind = id == BuiltinId::Ipairs ? Walk::Kind::Sequence : Walk::Kind::Keys;
    walk.nameCount = site.nameCount;
    walk.index = 0;
    return true;
}

/// Begins the walk of what `string["gmatch"]` and `string["byte"]` would give; the arguments stand
/// behind the callee.
bool Machine::beginWalkOfCall(Variable* slot, std::size_t count) {
    Walk& walk = *walks_.back();
    if (walk.kind != Walk::Kind::Sequence) return false;
    const ScriptCallable* native = nativeOf(slot);
    const BuiltinId id = native != nullptr ? native->builtinId : BuiltinId::None;
    Variable* args = slot + 1;
    if (id == BuiltinId::StringGmatch) {
        if (count != 2 || args[0].type != VarType::String || args[1].type != VarType::String) {
            throwPlainError("string['gmatch'](s, pattern) requires a string and a pattern");
        }
        walk.container = args[0];
        walk.matches = std::make_unique<GmatchWalk>(walk.container.asString(), args[1].asString());
        walk.kind = Walk::Kind::Matches;
        return true;
    }
    if (id == BuiltinId::StringByte) {
        if (count == 0 || args[0].type != VarType::String) {
            throwPlainError("string['byte'](s[, i[, j]]) requires a string");
        }
        walk.container = args[0];
        const std::size_t length = walk.container.asString().size();
        walk.bytes =
            length == 0 ? ByteRange{1, 0} : stringByteRange(length, Arguments(args, count));
        walk.kind = Walk::Kind::Bytes;
        return true;
    }
    return false;
}

void Machine::beginWalk(const LoopSite& site, Variable& value, bool isBuiltin) {
    if (!isBuiltin) {
        if (value.type != VarType::Array) {
            throwPlainError("generic for loops expect an array iterator");
        }
        Walk& walk = pushWalk();
        walk.kind = Walk::Kind::Elements;
        walk.nameCount = site.nameCount;
        walk.index = 0;
        walk.count = value.asArray()->size();
        walk.container = std::move(value);
        value.setNil();
        return;
    }
    Walk& walk = *walks_.back();
    const bool isIpairs = walk.kind == Walk::Kind::Sequence;
    if (value.type == VarType::Array) {
        walk.kind = Walk::Kind::Pairs;
    } else if (value.type == VarType::Table) {
        if (isIpairs) {
            walk.count = static_cast<std::size_t>(value.asTable()->border());
        } else {
            walk.snapshot = value.asTable()->snapshot();
            walk.count = walk.snapshot->keys.size();
        }
    } else {
        throwPlainError(isIpairs ? "ipairs(container) expects an array or table"
                                 : "pairs(container) expects an array or table");
    }
    walk.container = std::move(value);
    value.setNil();
}

namespace {

void assignPair(Variable* names, std::size_t count, const Variable& key, const Variable& element) {
    if (count == 1) {
        names[0] = Variable::makeArray({key, element});
        return;
    }
    names[0] = key;
    names[1] = element;
    for (std::size_t i = 2; i < count; ++i) names[i].setNil();
}

}  // namespace

bool Machine::nextOfWalk(Variable* names, std::size_t count) {
    Walk& walk = *walks_.back();
    switch (walk.kind) {
        case Walk::Kind::Pairs: {
            const ArrayStorage& array = *walk.container.asArray();
            if (walk.index >= array.size()) return false;
            const std::size_t at = walk.index++;
            if (count == 2) {
                // What goes may own the array's elements, but the walk holds the array.
                names[0].setInt(static_cast<int>(at + 1));
                names[1] = Variable(array[at]);
            } else {
                assignPair(names, count, Variable::makeInt(static_cast<int>(at + 1)),
                           Variable(array[at]));
            }
            return true;
        }
        case Walk::Kind::Elements: {
            const ArrayStorage& array = *walk.container.asArray();
            if (walk.index >= std::min(walk.count, array.size())) return false;
            const Variable element = array[walk.index++];
            if (count > 1 && element.type == VarType::Array) {
                const ArrayStorage& parts = *element.asArray();
                for (std::size_t i = 0; i < count; ++i) {
                    names[i] = i < parts.size() ? Variable(parts[i]) : Variable();
                }
            } else {
                names[0] = element;
                for (std::size_t i = 1; i < count; ++i) names[i].setNil();
            }
            return true;
        }
        case Walk::Kind::Sequence: {
            if (walk.index >= walk.count) return false;
            const auto position = static_cast<int>(++walk.index);
            const Variable element =
                liveTableEntry(*walk.container.asTable(), intKeyText(position));
            assignPair(names, count, Variable::makeInt(position), element);
            return true;
        }
        case Walk::Kind::Keys: {
            if (walk.index >= walk.count) return false;
            const std::size_t at = walk.index++;
            const Variable element =
                liveTableEntry(*walk.container.asTable(), walk.snapshot->keys[at]);
            assignPair(names, count, walk.snapshot->keyValues[at], element);
            return true;
        }
        case Walk::Kind::Matches: {
            Variable element;
            if (!walk.matches->next(element)) return false;
            ++walk.index;
            assignPair(names, count, Variable::makeInt(static_cast<int>(walk.index)), element);
            return true;
        }
        case Walk::Kind::Bytes: {
            const long long at = walk.bytes.first + static_cast<long long>(walk.index);
            if (at > walk.bytes.last) return false;
            ++walk.index;
            const int byte = static_cast<unsigned char>(
                walk.container.asString()[static_cast<std::size_t>(at - 1)]);
            assignPair(names, count, Variable::makeInt(static_cast<int>(walk.index)),
                       Variable::makeInt(byte));
            return true;
        }
    }
    return false;
}

/// The clause of a numeric `for` by the executor's rules.
void Machine::evaluateRange(const MachineCode& code, const LoopSite& site, Variable* first) {
    const ParsedScriptLine& line = lineOf(code.statements[site.statement].line);
    NumericForRange range;
    if (!evaluateNumericForRange(interpreter_, line, range)) return;
    first[0].setInt(range.start);
    first[1].setInt(range.limit);
    first[2].setInt(range.step);
}

/// Turns the values of a clause into ints; true if the loop has a turn.
bool Machine::startFor(Variable* first) {
    for (std::size_t i = 0; i < 3; ++i) {
        if (first[i].type != VarType::Int) first[i] = Variable::makeInt(toInt(first[i]));
    }
    const int step = first[2].asInt();
    if (step == 0) throwPlainError("for loop step must not be 0");
    return step >= 1 ? first[0].asInt() <= first[1].asInt() : first[0].asInt() >= first[1].asInt();
}
