#include "dovrel/dap/debug_values.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "dovrel/value_display.h"
#include "value/script_callable.h"
#include "value/table.h"
#include "value/variable.h"

namespace {

const char* typeName(const Variable& value) {
    switch (value.type) {
        case VarType::Nil: return "not";
        case VarType::Int: return "int";
        case VarType::Float: return "float";
        case VarType::String: return "string";
        case VarType::Bool: return "bool";
        case VarType::Array: return "array";
        case VarType::Table: return "table";
        case VarType::Function: return "function";
        case VarType::Multi: return "multivalue";
        default: return "value";
    }
}

/// `[12]` as 11; nothing for what is no position of an array.
std::optional<std::size_t> positionIn(const std::string& name, std::size_t size) {
    if (name.size() < 3 || name.front() != '[' || name.back() != ']') return std::nullopt;
    std::size_t position = 0;
    const char* end = name.data() + name.size() - 1;
    const auto [stop, error] = std::from_chars(name.data() + 1, end, position);
    if (error != std::errc() || stop != end || position < 1 || position > size) return std::nullopt;
    return position - 1;
}

}  // namespace

int DebugValues::numberOf(DebugScope scope) {
    targets_.push_back({std::move(scope), Variable()});
    return static_cast<int>(targets_.size());
}

DebugValues::Json DebugValues::describe(const Variable& value) {
    Json told = {{"value", showValue(value)}, {"type", typeName(value)}, {"variablesReference", 0}};
    if (value.type == VarType::Array && !value.asArray()->empty()) {
        told["indexedVariables"] = value.asArray()->size();
    } else if (value.type == VarType::Table && !value.asTable()->empty()) {
        told["namedVariables"] = value.asTable()->size();
    } else {
        return told;
    }
    targets_.push_back({std::nullopt, value});
    told["variablesReference"] = targets_.size();
    return told;
}

void DebugValues::listScope(const DebugScope& scope,
                            const std::function<void(std::string, const Variable&)>& add) {
    switch (scope.kind) {
        case DebugScope::Kind::Entries:
            for (std::size_t i = 0; i < scope.entries->size(); ++i) {
                const ScopeEntry entry = (*scope.entries)[i];
                add(entry.name->text, entry.value);
            }
            break;
        case DebugScope::Kind::ShortCall:
            for (std::size_t i = 0; i < scope.callable->parameters.size(); ++i) {
                static const Variable absent;
                add(scope.callable->parameters[i]->text,
                    i < scope.args.size() ? scope.args[i] : absent);
            }
            break;
        case DebugScope::Kind::Globals:
        case DebugScope::Kind::Library: {
            const bool isLibrary = scope.kind == DebugScope::Kind::Library;
            std::vector<std::pair<std::string, std::size_t>> names;
            for (const auto& [name, slot] : interpreter_.globalSlots) {
                if ((slot < libraryGlobals_) == isLibrary && interpreter_.globalAssigned[slot]) {
                    names.emplace_back(name, slot);
                }
            }
            std::sort(names.begin(), names.end());
            for (const auto& [name, slot] : names) add(name, interpreter_.globalValues[slot]);
            break;
        }
    }
}

DebugValues::Json DebugValues::variables(int number, std::size_t start, std::size_t count) {
    Json list = Json::array();
    if (number < 1 || static_cast<std::size_t>(number) > targets_.size()) return list;
    // Describing adds targets, which moves them.
    const Target target = targets_[static_cast<std::size_t>(number) - 1];
    const std::size_t last = count == 0 ? std::numeric_limits<std::size_t>::max() : start + count;
    std::size_t index = 0;
    const auto add = [&](std::string name, const Variable& value) {
        if (index >= start && index < last) {
            Json told = describe(value);
            told["name"] = std::move(name);
            list.push_back(std::move(told));
        }
        ++index;
    };
    if (target.scope) {
        listScope(*target.scope, add);
    } else if (target.container.type == VarType::Array) {
        const ArrayStorage& elements = *target.container.asArray();
        index = std::min(start, elements.size());
        for (std::size_t i = index; i < std::min(last, elements.size()); ++i) {
            add('[' + std::to_string(i + 1) + ']', elements[i]);
        }
    } else {
        const TableStorage& table = *target.container.asTable();
        for (const Text& key : table.snapshot()->keys) add(key->text, *table.find(key->text));
    }
    return list;
}

Variable* DebugValues::placeIn(const DebugScope& scope, const std::string& name) const {
    if (scope.kind == DebugScope::Kind::Entries) {
        for (std::size_t i = 0; i < scope.entries->size(); ++i) {
            const ScopeEntry entry = (*scope.entries)[i];
            if (entry.name->text == name) return &entry.value;
        }
        return nullptr;
    }
    if (scope.kind == DebugScope::Kind::ShortCall) return nullptr;
    const auto slot = interpreter_.globalSlots.find(name);
    if (slot == interpreter_.globalSlots.end()) return nullptr;
    const bool isLibrary = slot->second < libraryGlobals_;
    if (isLibrary != (scope.kind == DebugScope::Kind::Library)) return nullptr;
    return interpreter_.globalAssigned[slot->second] ? &interpreter_.globalValues[slot->second]
                                                     : nullptr;
}

const Variable* DebugValues::find(const DebugScope& scope, const std::string& name) const {
    if (scope.kind != DebugScope::Kind::ShortCall) return placeIn(scope, name);
    for (std::size_t i = 0; i < scope.callable->parameters.size(); ++i) {
        if (scope.callable->parameters[i]->text != name) continue;
        return i < scope.args.size() ? &scope.args[i] : nullptr;
    }
    return nullptr;
}

bool DebugValues::store(int number, const std::string& name, const Variable& value) {
    if (number < 1 || static_cast<std::size_t>(number) > targets_.size()) return false;
    Target& target = targets_[static_cast<std::size_t>(number) - 1];
    Variable* place = nullptr;
    if (target.scope) {
        place = placeIn(*target.scope, name);
    } else if (target.container.type == VarType::Array) {
        ArrayStorage& elements = *target.container.asArray();
        const auto position = positionIn(name, elements.size());
        if (position) place = &elements[*position];
    } else {
        place = target.container.asTable()->find(name);
    }
    if (place == nullptr) return false;
    *place = value;
    return true;
}
