// The one dynamic value of the language, and the containers that it can hold.
//
// A Variable is a kind tag beside a closed variant. Numbers, booleans and string bytes live in the
// record itself; arrays, tables, callables and multi-values are shared by reference counting, so
// that copies of a Variable see the same container. Nothing collects cycles.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "value/value_storage.h"

/// The value kinds. Their order is fixed.
enum class VarType : std::int32_t {
    Nil = 0,        // absence of a value; holds the int 0
    Int = 1,        // 32-bit signed integer
    Float = 2,      // 32-bit floating value
    String = 3,     // byte string
    Raw = 4,        // byte buffer; no operation makes one
    Bool = 5,       // truth value
    Pointer = 6,    // opaque host pointer
    Array = 7,      // shared dense sequence
    Multi = 8,      // several results of one call, in flight
    Table = 9,      // shared string-keyed map
    Function = 10,  // shared callable
};

/// Raises the error of a tag that disagrees with the alternative beside it. Every checked access
/// ends here, so that its text does not depend on the standard library.
[[noreturn]] void throwBadVariantAccess();

/// The dynamic value. `type` and the active alternative of `value` agree, except where a compound
/// assignment of mixed kinds has failed half-way; readers therefore test `type` first and take the
/// alternative through the checked accessors.
struct Variable {
    // The kind stands in the bytes that the content leaves free at its end.
    [[no_unique_address]] ValueStorage value;
    VarType type = VarType::Nil;

    /// Nil.
    Variable() = default;
    /// A String holding a copy of `text`.
    explicit Variable(const std::string& text) : value(text), type(VarType::String) {}
    /// A String that takes over `text`.
    explicit Variable(std::string&& text) : value(std::move(text)), type(VarType::String) {}
    /// A value of kind `kind`; `content` must be the alternative that belongs to it.
    Variable(VarType kind, ValueStorage content) : value(std::move(content)), type(kind) {}

    Variable(const Variable&) = default;
    Variable(Variable&&) noexcept = default;
    ~Variable() = default;
    // The kind is read first: the content that goes may own the variable that is assigned.
    Variable& operator=(const Variable& other) {
        const VarType kind = other.type;
        value = other.value;
        type = kind;
        return *this;
    }
    Variable& operator=(Variable&& other) noexcept {
        const VarType kind = other.type;
        value = std::move(other.value);
        type = kind;
        return *this;
    }

    static Variable makeInt(int number) { return Variable(VarType::Int, ValueStorage(number)); }
    static Variable makeFloat(float number) {
        return Variable(VarType::Float, ValueStorage(number));
    }
    static Variable makeBool(bool truth) { return Variable(VarType::Bool, ValueStorage(truth)); }
    /// A new Array holding a fresh empty vector.
    static Variable makeArray();
    /// A new Array that takes over `elements`.
    static Variable makeArray(ArrayStorage&& elements);
    /// A new Table holding a fresh empty map.
    static Variable makeTable();
    /// A new Table that takes over `entries`.
    static Variable makeTable(TableStorage&& entries);
    /// A new Multi that takes over `values` without copying them.
    static Variable makeMulti(std::vector<Variable>&& values);
    /// A Function sharing `callable`.
    static Variable makeFunction(std::shared_ptr<ScriptCallable> callable);

    /// The text form of the value, as `print` shows it. Recurses into containers without a limit.
    [[nodiscard]] std::string toString() const;

    // Checked access to one alternative; raises "bad_variant_access" if another one is active.
    [[nodiscard, gnu::always_inline]] int asInt() const { return checked<int>(); }
    [[nodiscard, gnu::always_inline]] float asFloat() const { return checked<float>(); }
    [[nodiscard, gnu::always_inline]] bool asBool() const { return checked<bool>(); }
    [[nodiscard]] void* asPointer() const { return checked<void*>(); }
    [[nodiscard]] const std::string& asString() const { return checked<std::string>(); }
    [[nodiscard]] std::string& asString() { return checkedMutable<std::string>(); }
    [[nodiscard]] const std::shared_ptr<ArrayStorage>& asArray() const {
        return checked<std::shared_ptr<ArrayStorage>>();
    }
    [[nodiscard]] const std::shared_ptr<TableStorage>& asTable() const {
        return checked<std::shared_ptr<TableStorage>>();
    }
    [[nodiscard]] const std::shared_ptr<ScriptCallable>& asFunction() const {
        return checked<std::shared_ptr<ScriptCallable>>();
    }
    [[nodiscard]] const std::shared_ptr<MultiResult>& asMulti() const {
        return checked<std::shared_ptr<MultiResult>>();
    }
    /// Writable access to the number alternatives, for operations in place.
    [[nodiscard]] int& intReference() { return checkedMutable<int>(); }
    [[nodiscard]] float& floatReference() { return checkedMutable<float>(); }

    // Overwrite kind and content; the alternative is reused when it already matches.
    void setNil() {
        type = VarType::Nil;
        value.setInt(0);
    }
    void setInt(int number) {
        type = VarType::Int;
        value.setInt(number);
    }
    void setFloat(float number) {
        type = VarType::Float;
        value.setFloat(number);
    }
    void setBool(bool truth) {
        type = VarType::Bool;
        value.setBool(truth);
    }

    [[nodiscard]] bool isNil() const { return type == VarType::Nil; }
    /// Int, Float or Bool: the kinds that take part in arithmetic.
    [[nodiscard]] bool isNumeric() const {
        return type == VarType::Int || type == VarType::Float || type == VarType::Bool;
    }

private:
    template <typename T>
    [[gnu::always_inline]] const T& checked() const {
        const T* held = value.get<T>();
        if (held == nullptr) throwBadVariantAccess();
        return *held;
    }
    template <typename T>
    T& checkedMutable() {
        T* held = value.get<T>();
        if (held == nullptr) throwBadVariantAccess();
        return *held;
    }
};

// Arrays are made of these.
static_assert(sizeof(Variable) == 40);

/// The several results of one call.
struct MultiResult {
    std::vector<Variable> values;
};

/// The name of a kind in messages: "not", "int", "float", ...; "unknown" for any other value.
[[nodiscard]] std::string typeName(VarType type);

/// The key text under which a table stores an entry for `key`. Raises "Table key must be string,
/// number, or bool" for every kind that cannot be a key, nil included.
[[nodiscard]] std::string keyToString(const Variable& key);

/// General truth: nil and false are false, every other value is true, 0 and "" included.
[[nodiscard]] inline bool isTruthy(const Variable& value) {
    if (value.type == VarType::Bool) return value.asBool();
    return value.type != VarType::Nil;
}
