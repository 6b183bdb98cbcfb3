// The assignments of hot code. Each declines before it has changed anything.
#include <algorithm>

#include "exec/hot_run.h"

/// `local x = ...` and `native x = ...`. A scope is made on demand by the executor only.
bool ChunkRun::HotRun::declare(const ScalarInstruction& instruction, FastScalarValue value) {
    const auto target = static_cast<ScopeTarget>(instruction.kind);
    ScopeStack& scopes =
        target == ScopeTarget::Local ? interpreter_.blockScopes : interpreter_.frameScopes;
    if (target == ScopeTarget::Local ? !interpreter_.blockScopeVisible() : scopes.empty()) {
        return false;
    }
    Scope& scope = scopes.back();
    const Name name = code_.variables[instruction.token]->name;
    const std::size_t index = scope.find(name);
    if (index < scope.size()) {
        assignFastScalarToVariable(scope[index].value, value);
    } else {
        scope.append(name, variableFromFastScalar(value));
        bindAnew();  // the scope may have moved its variables, and has one more
    }
    return true;
}

/// The array in a variable; null if the variable, its value or the key is something else.
ArrayStorage* ChunkRun::HotRun::arrayFor(std::uint16_t token, FastScalarValue key) {
    if (key.kind != ScalarKind::Int || key.intValue < 1) return nullptr;
    Variable* variable = target(token);
    if (variable == nullptr || variable->type != VarType::Array) return nullptr;
    return variable->asArray().get();
}

bool ChunkRun::HotRun::storeElement(const ScalarInstruction& instruction, FastScalarValue key,
                                    FastScalarValue value) {
    ArrayStorage* array = arrayFor(instruction.token, key);
    if (array == nullptr) return false;
    const auto index = static_cast<std::size_t>(key.intValue) - 1;
    if (index > array->size()) return false;
    if (index == array->size()) array->emplace_back();
    assignFastScalarToVariable((*array)[index], value);
    return true;
}

/// Ints only: mixed kinds have rules of their own, and so have a divisor of 0 and "/", which makes
/// a float of an element and fails on a variable.
bool ChunkRun::HotRun::updateInt(Variable& element, std::uint8_t operation, FastScalarValue value) {
    if (operation == '/' || element.type != VarType::Int || value.kind != ScalarKind::Int ||
        value.intValue == 0) {
        return false;
    }
    return tryApplyFastScalarOperationInPlace(element, static_cast<char>(operation), value);
}

bool ChunkRun::HotRun::updateElement(const ScalarInstruction& instruction, FastScalarValue key,
                                     FastScalarValue value) {
    ArrayStorage* array = arrayFor(instruction.token, key);
    if (array == nullptr) return false;
    const auto index = static_cast<std::size_t>(key.intValue) - 1;
    return index < array->size() && updateInt((*array)[index], instruction.kind, value);
}

/// An entry that is there, so that the table's set of keys stays as it is.
bool ChunkRun::HotRun::storeEntry(const ScalarInstruction& instruction, FastScalarValue value) {
    Variable* variable = target(instruction.token);
    if (variable == nullptr || variable->type != VarType::Table) return false;
    TableStorage& table = *variable->asTable();
    Variable* const found = table.find(key(instruction.intValue));
    if (found == nullptr) return false;
    if (instruction.opcode == ScalarOpcode::UpdateEntry) {
        return updateInt(*found, instruction.kind, value);
    }
    assignFastScalarToVariable(*found, value);
    return true;
}

/// All or none: a store that has been made could not be repeated.
bool ChunkRun::HotRun::storeVariables(const ScalarInstruction& instruction,
                                      const FastScalarValue* values) {
    std::array<Variable*, kMostParallelTargets> targets;  // left uninitialised
    for (std::uint16_t i = 0; i < instruction.kind; ++i) {
        targets[i] = target(static_cast<std::uint16_t>(instruction.token + i));
        if (targets[i] == nullptr) return false;
    }
    for (std::size_t i = 0; i < instruction.kind; ++i) {
        assignFastScalarToVariable(*targets[i], values[i]);
    }
    return true;
}

bool ChunkRun::HotRun::storeElements(const ScalarInstruction& instruction,
                                     const FastScalarValue* keys, const FastScalarValue* values) {
    std::array<Variable*, kMostParallelTargets> targets;  // left uninitialised
    for (std::uint16_t i = 0; i < instruction.kind; ++i) {
        ArrayStorage* array = arrayFor(static_cast<std::uint16_t>(instruction.token + i), keys[i]);
        if (array == nullptr) return false;
        const auto index = static_cast<std::size_t>(keys[i].intValue) - 1;
        if (index >= array->size()) return false;
        targets[i] = &(*array)[index];
    }
    // The elements that go may hold the arrays of the others: they go together, at the end.
    std::array<Variable, kMostParallelTargets> old;
    for (std::size_t i = 0; i < instruction.kind; ++i) {
        if (!targets[i]->isNumeric()) std::swap(old[i], *targets[i]);
        assignFastScalarToVariable(*targets[i], values[i]);
    }
    return true;
}
