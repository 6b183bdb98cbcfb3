#include "eval/indexed_store.h"

#include "interpreter/dovrel_script.h"
#include "value/numbers.h"

bool prefersArrayStorage(const Variable& key) {
    if (key.type == VarType::Int) return key.asInt() >= 1;
    int position = 0;
    return key.type == VarType::Float && wholeFloatToInt(key.asFloat(), position) && position >= 1;
}

Variable makeContainerFor(const Variable& key) {
    return prefersArrayStorage(key) ? Variable::makeArray() : Variable::makeTable();
}

Variable* walkToLastContainer(DovrelScript& interpreter, Variable& base,
                              std::span<const Variable> keys, bool create) {
    Variable* current = &base;
    for (std::size_t i = 0; i + 1 < keys.size(); ++i) {
        // Read first in any case: a base that cannot be indexed fails as a read does.
        const bool missing = interpreter.getIndexedValue(*current, keys[i]).isNil();
        if (create && missing) {
            interpreter.setIndexedValue(*current, keys[i], makeContainerFor(keys[i]), true);
        }
        current = interpreter.getIndexedValueMutable(*current, keys[i], create);
    }
    return current;
}
