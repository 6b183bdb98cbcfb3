// What can be looked at while a run stands: scopes and the values in them, under the numbers by
// which the editor asks for them. Numbers hold until the run goes on.
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "eval/scope.h"
#include "interpreter/dovrel_script.h"

/// A scope under the name that the editor shows, in the order in which names are searched.
struct DebugScope {
    enum class Kind { Entries, ShortCall, Globals, Library } kind = Kind::Entries;
    std::string name;
    Scope* entries = nullptr;                  // of Entries
    const ScriptCallable* callable = nullptr;  // of ShortCall
    Arguments args;                            // of ShortCall
};

class DebugValues {
public:
    using Json = nlohmann::json;

    /// `libraryGlobals` is how many globals the interpreter has before a script runs.
    DebugValues(DovrelScript& interpreter, std::size_t libraryGlobals)
        : interpreter_(interpreter), libraryGlobals_(libraryGlobals) {}

    /// The run goes on: all numbers are forgotten.
    void clear() { targets_.clear(); }

    /// The number for a scope.
    [[nodiscard]] int numberOf(DebugScope scope);
    /// The `value`, `type` and `variablesReference` of a value.
    [[nodiscard]] Json describe(const Variable& value);
    /// What is in a scope or container, from the `start`-th on, at most `count` of them.
    [[nodiscard]] Json variables(int number, std::size_t start, std::size_t count);
    /// Stores into a scope or container; false if there is no such name or element.
    bool store(int number, const std::string& name, const Variable& value);
    /// The value of a name in one scope, or null.
    [[nodiscard]] const Variable* find(const DebugScope& scope, const std::string& name) const;

private:
    struct Target {
        std::optional<DebugScope> scope;
        Variable container;  // of a value; shared with the script
    };

    /// The place of a name in a scope, or null where there is none that can be written.
    [[nodiscard]] Variable* placeIn(const DebugScope& scope, const std::string& name) const;
    void listScope(const DebugScope& scope,
                   const std::function<void(std::string, const Variable&)>& add);

    DovrelScript& interpreter_;
    std::size_t libraryGlobals_;
    std::vector<Target> targets_;
};
