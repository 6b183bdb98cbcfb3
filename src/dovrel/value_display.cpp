#include "dovrel/value_display.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "frontend/token_analysis.h"
#include "value/array_storage.h"
#include "value/script_callable.h"
#include "value/table.h"

namespace {

constexpr std::size_t kMostElements = 100;
constexpr std::size_t kMostBytes = 2000;
constexpr std::size_t kDeepest = 20;

std::string quoteText(std::string_view text) {
    std::string shown = "\"";
    for (const char c : text.substr(0, kMostBytes)) {
        switch (c) {
            case '\n': shown += "\\n"; break;
            case '\r': shown += "\\r"; break;
            case '\t': shown += "\\t"; break;
            case '"': shown += "\\\""; break;
            case '\\': shown += "\\\\"; break;
            default: {
                // What would change the terminal is shown as the code of the byte.
                const auto byte = static_cast<unsigned char>(c);
                constexpr std::string_view kDigits = "0123456789abcdef";
                if (byte < 0x20 || byte == 0x7F) {
                    shown += "<";
                    shown += kDigits[byte >> 4U];
                    shown += kDigits[byte & 15U];
                    shown += ">";
                } else {
                    shown += c;
                }
            }
        }
    }
    shown += '"';
    if (text.size() > kMostBytes) shown += "... (" + std::to_string(text.size()) + " bytes)";
    return shown;
}

std::string showFunction(const ScriptCallable* callable) {
    if (callable == nullptr) return "function";
    if (callable->isNative) {
        return callable->name.empty() ? "function of the library"
                                      : "function " + callable->name + " of the library";
    }
    std::string shown = callable->isDecay ? "decay function " : "function ";
    shown += callable->name + '(';
    for (std::size_t i = 0; i < callable->parameters.size(); ++i) {
        if (i != 0) shown += ", ";
        shown += callable->parameters[i]->text;
    }
    if (callable->isVariadic) shown += callable->parameters.empty() ? "..." : ", ...";
    return shown + ')';
}

/// A key as a literal would have it.
std::string showKey(const std::string& key) {
    const bool isNumber = !key.empty() && key.find_first_not_of("0123456789") == std::string::npos;
    return isNumber || isIdentifier(key) ? key : quoteText(key);
}

class ValueWriter {
public:
    std::string show(const Variable& value) {
        switch (value.type) {
            case VarType::String: return quoteText(value.asString());
            case VarType::Array: return showArray(value);
            case VarType::Table: return showTable(value);
            case VarType::Function: return showFunction(value.asFunction().get());
            case VarType::Multi: return showMulti(value);
            default: return value.toString();
        }
    }

private:
    [[nodiscard]] bool enter(const void* container) {
        const bool isInside = std::find(open_.begin(), open_.end(), container) != open_.end();
        if (isInside || open_.size() >= kDeepest) return false;
        open_.push_back(container);
        return true;
    }

    std::string showArray(const Variable& value) {
        const ArrayStorage& elements = *value.asArray();
        if (!enter(&elements)) return "[...]";
        std::string shown = "[";
        for (std::size_t i = 0; i < elements.size(); ++i) {
            if (i != 0) shown += ", ";
            if (i == kMostElements) {
                shown += "... (" + std::to_string(elements.size()) + " elements)";
                break;
            }
            shown += show(elements[i]);
        }
        open_.pop_back();
        return shown + ']';
    }

    std::string showTable(const Variable& value) {
        const TableStorage& table = *value.asTable();
        if (!enter(&table)) return "{...}";
        std::vector<std::string> keys;
        for (const auto& [key, element] : table) keys.emplace_back(key->text);
        std::sort(keys.begin(), keys.end());
        std::string shown = "{";
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (i != 0) shown += ", ";
            if (i == kMostElements) {
                shown += "... (" + std::to_string(keys.size()) + " keys)";
                break;
            }
            shown += showKey(keys[i]) + ": " + show(table.at(keys[i]));
        }
        open_.pop_back();
        return shown + '}';
    }

    std::string showMulti(const Variable& value) {
        std::string shown;
        for (const Variable& one : value.asMulti()->values) {
            if (!shown.empty()) shown += ", ";
            shown += show(one);
        }
        return shown;
    }

    std::vector<const void*> open_;
};

std::string counted(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

}  // namespace

std::string showValue(const Variable& value) { return ValueWriter().show(value); }

std::string describeKind(const Variable& value) {
    switch (value.type) {
        case VarType::Nil: return "the absent value";
        case VarType::Int: return "an int";
        case VarType::Float: return "a float";
        case VarType::Bool: return "a boolean";
        case VarType::String:
            return "a string of " + counted(value.asString().size(), "byte", "bytes");
        case VarType::Array:
            return "an array of " + counted(value.asArray()->size(), "element", "elements");
        case VarType::Table: return "a table of " + counted(value.asTable()->size(), "key", "keys");
        case VarType::Multi:
            return counted(value.asMulti()->values.size(), "result", "results") + " in one value";
        case VarType::Function: {
            const ScriptCallable* callable = value.asFunction().get();
            return callable != nullptr && callable->isNative ? "a function of the library"
                                                             : "a function";
        }
        default: return "a value of the kind " + typeName(value.type);
    }
}
