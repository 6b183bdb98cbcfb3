// The global natives that work on arrays and tables.
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"
#include "value/operators.h"

namespace {

bool isContainer(const Variable& value) {
    return value.type == VarType::Array || value.type == VarType::Table;
}

}  // namespace

Variable arrayFunction(DovrelScript&, Arguments args) {
    if (!args.empty()) throwPlainError("array() takes no arguments");
    return Variable::makeArray();
}

Variable lenFunction(DovrelScript& interpreter, Arguments args) {
    if (args.size() != 1) throwPlainError("len(x) requires exactly 1 argument");
    return Variable::makeInt(interpreter.arrayLength(args[0]));
}

Variable pushFunctionBody(DovrelScript&, Arguments args) {
    if (args.size() != 2) throwPlainError("push(array, value) requires exactly 2 arguments");
    if (args[0].type != VarType::Array) {
        throwPlainError("push(array, value): first argument must be an array");
    }
    ArrayStorage& elements = *args[0].asArray();
    elements.push_back(args[1]);
    return Variable::makeInt(static_cast<int>(elements.size()));
}

Variable popFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1) throwPlainError("pop(array) requires exactly 1 argument");
    if (args[0].type != VarType::Array) throwPlainError("pop(array): argument must be an array");
    ArrayStorage& elements = *args[0].asArray();
    if (elements.empty()) throwPlainError("pop(array): array is empty");
    Variable last = std::move(elements.back());
    elements.pop_back();
    return last;
}

Variable reserveFunction(DovrelScript&, Arguments args) {
    if (args.size() != 2) throwPlainError("reserve(array, capacity) requires exactly 2 arguments");
    if (args[0].type != VarType::Array || args[1].type != VarType::Int) {
        throwPlainError("reserve(array, capacity) expects (array, int)");
    }
    const int capacity = args[1].asInt();
    if (capacity < 0) throwPlainError("reserve(array, capacity): capacity must be >= 0");
    ArrayStorage& elements = *args[0].asArray();
    const auto wanted = static_cast<std::size_t>(capacity);
    // Where addresses are short: like any other memory that is not there.
    if (wanted > elements.max_size()) throw std::bad_alloc();
    elements.reserve(wanted);
    return Variable::makeInt(static_cast<int>(elements.capacity()));
}

Variable getFunction(DovrelScript& interpreter, Arguments args) {
    if (args.size() != 2 && args.size() != 3) {
        throwPlainError("get(container, keyOrIndex[, defaultValue]) requires 2 or 3 arguments");
    }
    Variable element = interpreter.getIndexedValue(args[0], args[1]);
    if (element.isNil() && args.size() == 3) return args[2];
    return element;
}

Variable setFunction(DovrelScript& interpreter, Arguments args) {
    if (args.size() != 3) {
        throwPlainError("set(container, keyOrIndex, value) requires exactly 3 arguments");
    }
    if (args[0].type != VarType::String && !isContainer(args[0])) {
        throwPlainError(
            "set(container, keyOrIndex, value): container must be an array, table, or string");
    }
    // The write goes to a copy. Arrays and tables share their contents with it, but an array that
    // turns into a table does so in the copy only, and the value is lost: kept, scripts rely on it.
    Variable container = args[0];
    interpreter.setIndexedValue(container, args[1], args[2], true);
    if (container.type == VarType::String) return container;
    return args[2];
}

Variable clearFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1) throwPlainError("clear(container) requires exactly 1 argument");
    if (!isContainer(args[0])) {
        throwPlainError("clear(container): container must be an array or table");
    }
    // A copy, since the container may hold the last reference to itself.
    const Variable container = args[0];
    if (container.type == VarType::Array) {
        container.asArray()->clear();
    } else {
        container.asTable()->clear();
    }
    return Variable::makeInt(0);
}

Variable eraseFunction(DovrelScript&, Arguments args) {
    if (args.size() != 2) {
        throwPlainError("erase(container, keyOrIndex) requires exactly 2 arguments");
    }
    const Variable container = args[0];  // see clear
    if (container.type == VarType::Table) {
        return Variable::makeBool(container.asTable()->erase(keyToString(args[1])));
    }
    if (container.type != VarType::Array) {
        throwPlainError("erase(container, keyOrIndex): container must be an array or table");
    }
    // Stricter than the index syntax, which takes a whole float: kept.
    if (args[1].type != VarType::Int) throwPlainError("erase(array, index): index must be an int");
    ArrayStorage& elements = *container.asArray();
    const int index = args[1].asInt();
    if (index < 1 || static_cast<std::size_t>(index) > elements.size()) {
        return Variable::makeBool(false);
    }
    elements.erase(elements.begin() + (index - 1));
    return Variable::makeBool(true);
}

Variable containsFunction(DovrelScript&, Arguments args) {
    if (args.size() != 2) {
        throwPlainError("contains(container, valueOrKey) requires exactly 2 arguments");
    }
    if (args[0].type == VarType::Table) {
        return Variable::makeBool(args[0].asTable()->findValue(args[1]) != nullptr);
    }
    if (args[0].type != VarType::Array) {
        throwPlainError("contains(container, valueOrKey): container must be an array or table");
    }
    for (const Variable& element : *args[0].asArray()) {
        if (variablesEqual(element, args[1])) return Variable::makeBool(true);
    }
    return Variable::makeBool(false);
}

Variable keysFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1 || args[0].type != VarType::Table) {
        throwPlainError("keys(table) requires exactly 1 table argument");
    }
    const auto snapshot = args[0].asTable()->snapshot();
    return Variable::makeArray(ArrayStorage(snapshot->keyValues));
}

Variable valuesFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1) throwPlainError("values(container) requires exactly 1 argument");
    if (!isContainer(args[0])) {
        throwPlainError("values(container): container must be an array or table");
    }
    // An array is its own list of values, shared and not copied: kept, scripts rely on it.
    if (args[0].type == VarType::Array) return args[0];
    const TableStorage& entries = *args[0].asTable();
    ArrayStorage list;
    list.reserve(entries.size());
    for (const auto& entry : entries) list.push_back(entry.second);
    return Variable::makeArray(std::move(list));
}
