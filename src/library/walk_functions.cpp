// The natives that walk containers. The `for` statements walk by themselves; these serve scripts
// that hold the result as a value.
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"

namespace {

Variable pairOf(Variable key, Variable value) {
    return Variable::makeMulti({std::move(key), std::move(value)});
}

Variable nextInTable(const TableStorage& table, const Variable* key) {
    if (table.empty()) return {};
    const auto snapshot = table.snapshot();
    std::size_t position = 0;
    if (key != nullptr) {
        position = snapshot->positionOf(keyToString(*key)) + 1;
    }
    if (position >= snapshot->keys.size()) return {};
    const Variable* entry = table.find(snapshot->keys[position]);
    return pairOf(snapshot->keyValues[position], entry != nullptr ? *entry : Variable());
}

Variable nextInArray(const ArrayStorage& array, const Variable* key) {
    std::size_t position = 0;  // 0-based
    if (key != nullptr) {
        if (key->type != VarType::Int || key->asInt() < 0) return {};
        position = static_cast<std::size_t>(key->asInt());
    }
    if (position >= array.size()) return {};
    return pairOf(Variable::makeInt(static_cast<int>(position + 1)), array[position]);
}

void appendEntry(ArrayStorage& entries, const Variable& key, const Variable& value) {
    entries.push_back(Variable::makeArray({key, value}));
}

Variable arrayEntries(const ArrayStorage& array) {
    ArrayStorage entries;
    entries.reserve(array.size());
    for (std::size_t i = 0; i < array.size(); ++i) {
        appendEntry(entries, Variable::makeInt(static_cast<int>(i + 1)), array[i]);
    }
    return Variable::makeArray(std::move(entries));
}

}  // namespace

Variable nextFunction(DovrelScript&, Arguments args) {
    if (args.empty() || args.size() > 2) {
        throwPlainError("next(container[, key]) requires 1 or 2 arguments");
    }
    const Variable* key = args.size() == 2 && !args[1].isNil() ? &args[1] : nullptr;
    switch (args[0].type) {
        case VarType::Table: return nextInTable(*args[0].asTable(), key);
        case VarType::Array: return nextInArray(*args[0].asArray(), key);
        default: throwPlainError("next(container[, key]) expects an array or table");
    }
}

Variable pairsFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1) throwPlainError("pairs(container) requires exactly 1 argument");
    if (args[0].type == VarType::Array) return arrayEntries(*args[0].asArray());
    if (args[0].type != VarType::Table) {
        throwPlainError("pairs(container) expects an array or table");
    }
    const TableStorage& table = *args[0].asTable();
    const auto snapshot = table.snapshot();
    ArrayStorage entries;
    entries.reserve(snapshot->keys.size());
    for (std::size_t i = 0; i < snapshot->keys.size(); ++i) {
        appendEntry(entries, snapshot->keyValues[i], table.at(snapshot->keys[i]));
    }
    return Variable::makeArray(std::move(entries));
}

Variable ipairsFunction(DovrelScript& interpreter, Arguments args) {
    if (args.size() != 1) throwPlainError("ipairs(container) requires exactly 1 argument");
    if (args[0].type == VarType::Array) return arrayEntries(*args[0].asArray());
    if (args[0].type != VarType::Table) {
        throwPlainError("ipairs(container) expects an array or table");
    }
    const TableStorage& table = *args[0].asTable();
    const int length = interpreter.numericTableLength(args[0].asTable());
    ArrayStorage entries;
    for (int i = 1; i <= length; ++i) {
        appendEntry(entries, Variable::makeInt(i), table.at(intKeyText(i)));
    }
    return Variable::makeArray(std::move(entries));
}
