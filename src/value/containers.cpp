// Reading and writing elements of arrays, tables and strings.
#include "value/containers.h"

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "value/array_storage.h"
#include "value/numbers.h"
#include "value/operators.h"
#include "value/string_methods.h"
#include "value/text.h"

namespace {

/// The 1-based index that a key stands for: an int, or a whole float within the range of int.
bool indexFromKey(const Variable& key, int& index) {
    if (key.type == VarType::Int) {
        index = key.asInt();
        return true;
    }
    return key.type == VarType::Float && wholeFloatToInt(key.asFloat(), index);
}

bool isWithin(int index, std::size_t size) {
    return index >= 1 && static_cast<std::size_t>(index) <= size;
}

Variable byteAt(const std::string& text, int index) {
    if (!isWithin(index, text.size())) return {};
    return byteText(text[static_cast<std::size_t>(index) - 1]);
}

void setByte(Variable& container, const Variable& key, const Variable& value) {
    if (key.type != VarType::Int) throwPlainError("String index must be an int");
    if (value.type != VarType::String) {
        throwPlainError("String element assignment requires a string value");
    }
    if (value.asString().size() != 1) {
        throwPlainError("String element assignment requires a single-character string");
    }
    if (!isWithin(key.asInt(), container.asString().size())) {
        throwPlainError("String index out of range");
    }
    const char byte = value.asString()[0];
    container.mutableString()[static_cast<std::size_t>(key.asInt()) - 1] = byte;
}

/// The element of an array for writing, or null if the array must turn into a table first.
Variable* arrayElementForWriting(Variable& container, const Variable& key, bool create) {
    int index = 0;
    if (!indexFromKey(key, index)) {
        if (create) return nullptr;
        throwPlainError("Array index must be an int");
    }
    if (index < 1) {
        if (create) return nullptr;
        throwPlainError("Array index must be >= 1");
    }
    ArrayStorage& array = *container.asArray();
    if (static_cast<std::size_t>(index) > array.size()) {
        if (!create) throwPlainError("Array index out of range");
        const auto wanted = static_cast<std::size_t>(index);
        // Where addresses are short: like any other memory that is not there.
        if (wanted > array.max_size()) throw std::bad_alloc();
        array.resize(wanted);
    }
    return &array[static_cast<std::size_t>(index) - 1];
}

}  // namespace

void promoteArrayVariableToTable(Variable& value) {
    if (value.type != VarType::Array) return;
    // Only this one variable turns: others that share the array keep it.
    const Shared<ArrayStorage> array = value.asArray();
    TableStorage table;
    for (std::size_t i = 0; i < array->size(); ++i) {
        table[intKeyText(static_cast<int>(i + 1))] = (*array)[i];
    }
    value = Variable::makeTable(std::move(table));
}

Variable DovrelScript::getIndexedValue(const Variable& container, const Variable& key) {
    switch (container.type) {
        case VarType::Table: {
            const TableStorage& table = *container.asTable();
            const Variable* found = table.findValue(key);
            return found != nullptr ? *found : Variable();
        }
        case VarType::Array: {
            const ArrayStorage& array = *container.asArray();
            int index = 0;
            if (!indexFromKey(key, index) || !isWithin(index, array.size())) return {};
            return array[static_cast<std::size_t>(index) - 1];
        }
        case VarType::String:
            if (key.type == VarType::Int) return byteAt(container.asString(), key.asInt());
            if (key.type == VarType::String) {
                return bindStringMethod(container.asString(), key.asText());
            }
            throwPlainError("String index must be an int or string method name");
        default: throwPlainError("Indexing requires an array, table, or string");
    }
}

const Variable* findStringMethod(DovrelScript& interpreter, const Text& method) {
    // By the ordinary look-up, so a script that replaces `string` changes what methods exist.
    const Variable* library = interpreter.resolveVariablePtr(interpreter.stringLibraryName);
    if (library == nullptr || library->type != VarType::Table) return nullptr;
    const Variable* found = std::as_const(*library->asTable()).find(method);
    return found != nullptr && found->type == VarType::Function ? found : nullptr;
}

/// Calls `function` with `receiver` in front of `args`. The function is the caller's copy.
static Variable callStringMethod(DovrelScript& interpreter, const Variable& function,
                                 const Variable& receiver, Arguments args) {
    // A first argument that equals the receiver is the receiver, passed again by a caller that does
    // not rely on the binding.
    const bool repeatsReceiver = !args.empty() && variablesEqual(args[0], receiver);
    const Arguments rest = repeatsReceiver ? args.from(1) : args;
    ArgumentFrame all(interpreter.argumentStack, rest.size() + 1);
    all[0] = receiver;
    for (std::size_t i = 0; i < rest.size(); ++i) all[i + 1] = rest[i];
    return interpreter.invokeCallableFast(function, all.view());
}

Variable DovrelScript::bindStringMethod(const std::string& text, const Text& method) {
    const Variable* found = findStringMethod(*this, method);
    if (found == nullptr) return {};
    return makeNativeCallable(
        [this, receiver = Variable(text), function = *found](Arguments args) {
            // Copies: the closure may be destroyed by its own call.
            const Variable callee = function;
            const Variable own = receiver;
            return callStringMethod(*this, callee, own, args);
        },
        "");
}

Variable* DovrelScript::getIndexedValueMutable(Variable& container, const Variable& key,
                                               bool create) {
    if (container.type == VarType::Array) {
        if (Variable* element = arrayElementForWriting(container, key, create)) return element;
        promoteArrayVariableToTable(container);
    }
    if (container.type != VarType::Table) throwPlainError("Indexing requires an array or table");
    const Shared<TableStorage>& table = container.asTable();
    if (Variable* found = table->findValue(key)) return found;
    if (!create) throwPlainError("Table key not found: " + keyToString(key));
    return &(*table)[keyText(key)];
}

void DovrelScript::setIndexedValue(Variable& container, const Variable& key, const Variable& value,
                                   bool create) {
    switch (container.type) {
        case VarType::String: setByte(container, key, value); return;
        case VarType::Array:
        case VarType::Table: break;
        default: throwPlainError("Indexing requires an array, table, or string");
    }
    Variable* element = getIndexedValueMutable(container, key, create);
    *element = value;
}

int DovrelScript::arrayLength(const Variable& value) {
    switch (value.type) {
        case VarType::String: return static_cast<int>(value.asString().size());
        case VarType::Array: return static_cast<int>(value.asArray()->size());
        case VarType::Table: return numericTableLength(value.asTable());
        default: throwPlainError("len(x) expects an array, table, or string");
    }
}
