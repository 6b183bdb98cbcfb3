#include "value/variable.h"

#include <stdexcept>

#include "value/table.h"
#include "value/text.h"

namespace {

/// Appends the text form of `value`; one buffer serves a whole nested container.
void appendText(std::string& out, const Variable& value) {
    switch (value.type) {
        case VarType::Nil: out += "not"; return;
        case VarType::Float: out += floatText(value.asFloat()); return;
        case VarType::Int:
        case VarType::Bool:
        case VarType::String: appendVariableStringFast(out, value); return;
        case VarType::Array: {
            out += '[';
            bool first = true;
            for (const Variable& element : *value.asArray()) {
                if (!first) out += ", ";
                first = false;
                appendText(out, element);
            }
            out += ']';
            return;
        }
        case VarType::Table: {
            // The map's own walking order, unsorted: kept, it costs nothing.
            out += '{';
            bool first = true;
            for (const auto& [key, entry] : *value.asTable()) {
                if (!first) out += ", ";
                first = false;
                out += key->text;
                out += ": ";
                appendText(out, entry);
            }
            out += '}';
            return;
        }
        case VarType::Multi: out += "[multivalue]"; return;
        case VarType::Function: out += "[function]"; return;
        case VarType::Raw:
        case VarType::Pointer: break;
    }
    out += "[unconvertible type]";
}

}  // namespace

Variable Variable::makeArray() { return makeArray(ArrayStorage()); }

Variable Variable::makeArray(ArrayStorage&& elements) {
    return Variable(ValueStorage(Shared<ArrayStorage>::make(std::move(elements))));
}

Variable Variable::makeTable() { return makeTable(TableStorage()); }

Variable Variable::makeTable(TableStorage&& entries) {
    return Variable(ValueStorage(Shared<TableStorage>::make(std::move(entries))));
}

Variable Variable::makeMulti(std::vector<Variable>&& values) {
    return Variable(ValueStorage(Shared<MultiResult>::make(MultiResult{std::move(values)})));
}

Variable Variable::makeFunction(Shared<ScriptCallable> callable) {
    return Variable(ValueStorage(std::move(callable)));
}

std::string Variable::toString() const {
    std::string text;
    appendText(text, *this);
    return text;
}

std::string typeName(VarType type) {
    switch (type) {
        case VarType::Nil: return "not";
        case VarType::Int: return "int";
        case VarType::Float: return "float";
        case VarType::String: return "string";
        case VarType::Raw: return "raw";
        case VarType::Bool: return "bool";
        case VarType::Pointer: return "pointer";
        case VarType::Array: return "array";
        case VarType::Multi: return "multivalue";
        case VarType::Table: return "table";
        case VarType::Function: return "function";
    }
    return "unknown";
}

std::string keyToString(const Variable& key) {
    switch (key.type) {
        case VarType::Int: {
            std::string text;
            appendIntFast(text, key.asInt());
            return text;
        }
        case VarType::Float: return floatText(key.asFloat());
        case VarType::String: return key.asString();
        case VarType::Bool: return key.asBool() ? "true" : "false";
        default: throw std::runtime_error("Table key must be string, number, or bool");
    }
}
