// The one dynamic value of the language, and the containers that it can hold.
//
// A Variable is a kind beside a closed variant. Numbers and booleans live in the record itself;
// texts, arrays, tables, callables and multi-values are shared by reference counting. Copies of a
// Variable see the same container. A text that is shared never changes: whoever writes to it gets a
// copy first. Nothing collects cycles.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "value/value_storage.h"

/// The dynamic value. `type` and the active alternative of `value` agree, except where a compound
/// assignment of mixed kinds has failed half-way; readers therefore test `type` first and take the
/// alternative through the checked accessors.
struct Variable : ValueStorage {
    // The tags of the kinds whose content agrees.
    static constexpr std::uint16_t kNilTag = tagOf(VarType::Nil, Alternative::Int);
    static constexpr std::uint16_t kIntTag = tagOf(VarType::Int, Alternative::Int);
    static constexpr std::uint16_t kFloatTag = tagOf(VarType::Float, Alternative::Float);
    static constexpr std::uint16_t kBoolTag = tagOf(VarType::Bool, Alternative::Bool);
    static constexpr std::uint16_t kStringTag = tagOf(VarType::String, Alternative::String);
    static constexpr std::uint16_t kArrayTag = tagOf(VarType::Array, Alternative::Array);
    static constexpr std::uint16_t kTableTag = tagOf(VarType::Table, Alternative::Table);
    static constexpr std::uint16_t kFunctionTag = tagOf(VarType::Function, Alternative::Callable);

    /// Nil.
    Variable() = default;
    /// A String holding a copy of `text`.
    explicit Variable(const std::string& text) : ValueStorage(makeText(text)) {}
    /// A String that takes over `text`.
    explicit Variable(std::string&& text) : ValueStorage(makeText(std::move(text))) {}
    explicit Variable(const char* text) : ValueStorage(makeText(text)) {}
    /// A String that shares `text`, which must not be null.
    explicit Variable(Text text) noexcept : ValueStorage(std::move(text)) {}
    /// A value of kind `kind`; `content` must be the alternative that belongs to it.
    Variable(VarType kind, ValueStorage content) noexcept : ValueStorage(std::move(content)) {
        type = kind;
    }

    static Variable makeInt(int number) noexcept { return Variable(ValueStorage(number)); }
    static Variable makeFloat(float number) noexcept { return Variable(ValueStorage(number)); }
    static Variable makeBool(bool truth) noexcept { return Variable(ValueStorage(truth)); }
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
    static Variable makeFunction(Shared<ScriptCallable> callable);

    /// The text form of the value, as `print` shows it. Recurses into containers without a limit.
    [[nodiscard]] std::string toString() const;

    // Checked access to one alternative; raises "bad_variant_access" if another one is active.
    [[nodiscard, gnu::always_inline]] int asInt() const {
        check(Alternative::Int);
        return intContent();
    }
    [[nodiscard, gnu::always_inline]] float asFloat() const {
        check(Alternative::Float);
        return floatContent();
    }
    [[nodiscard, gnu::always_inline]] bool asBool() const {
        check(Alternative::Bool);
        return boolContent();
    }
    [[nodiscard]] void* asPointer() const {
        check(Alternative::Pointer);
        return pointerContent();
    }
    [[nodiscard]] const Text& asText() const {
        check(Alternative::String);
        return textContent();
    }
    [[nodiscard]] const std::string& asString() const { return asText()->text; }
    /// The text for writing: copied first if other values share it. Valid until this value is
    /// copied, after which it must not be written through.
    [[nodiscard]] std::string& mutableString() {
        check(Alternative::String);
        return ownText();
    }
    [[nodiscard]] const Shared<ArrayStorage>& asArray() const {
        check(Alternative::Array);
        return arrayContent();
    }
    [[nodiscard]] const Shared<TableStorage>& asTable() const {
        check(Alternative::Table);
        return tableContent();
    }
    [[nodiscard]] const Shared<ScriptCallable>& asFunction() const {
        check(Alternative::Callable);
        return callableContent();
    }
    [[nodiscard]] const Shared<MultiResult>& asMulti() const {
        check(Alternative::Multi);
        return multiContent();
    }
    // Overwrite the number that is held, for operations in place: checked, and the kind stays.
    void replaceInt(int number) {
        check(Alternative::Int);
        writeContent(wordsOf(number));
    }
    void replaceFloat(float number) {
        check(Alternative::Float);
        writeContent(wordsOf(number));
    }

    // Unchecked access, for code that has compared the tag.
    [[nodiscard]] int rawInt() const noexcept { return intContent(); }
    [[nodiscard]] float rawFloat() const noexcept { return floatContent(); }
    [[nodiscard]] bool rawBool() const noexcept { return boolContent(); }
    [[nodiscard]] TextBlock& rawText() const noexcept { return *textContent(); }
    [[nodiscard]] ArrayStorage& rawArray() const noexcept;       // in value/array_storage.h
    [[nodiscard]] TableStorage& rawTable() const noexcept;       // in value/table.h
    [[nodiscard]] ScriptCallable* rawFunction() const noexcept;  // in value/script_callable.h

    // Overwrite kind and content; what was shared before is let go of.
    void setNil() noexcept { replace(nilWords()); }
    void setInt(int number) noexcept { replace(wordsOf(number)); }
    void setFloat(float number) noexcept { replace(wordsOf(number)); }
    void setBool(bool truth) noexcept { replace(wordsOf(truth)); }
    // The same without a call, for the innermost loop.
    [[gnu::always_inline]] void overwrite(const Variable& other) noexcept { copyFrom(other); }
    [[gnu::always_inline]] void overwriteByMove(Variable& other) noexcept { moveFrom(other); }
    /// The content, for the next `overwriteByWords`; this value is nil from now on.
    [[nodiscard, gnu::always_inline]] Words takeWords() noexcept { return take(); }
    [[gnu::always_inline]] void overwriteByWords(Words words) noexcept { give(words); }
    /// The same for a value that is no number, truth value or nil.
    [[gnu::always_inline]] void overwriteCountedByWords(Words words) noexcept {
        giveOverCounted(words);
    }
    [[gnu::always_inline]] void overwriteNil() noexcept { replace(nilWords()); }
    [[gnu::always_inline]] void overwriteInt(int number) noexcept { replace(wordsOf(number)); }
    [[gnu::always_inline]] void overwriteFloat(float number) noexcept { replaceByFloat(number); }
    [[gnu::always_inline]] void overwriteBool(bool truth) noexcept { replace(wordsOf(truth)); }

    /// Nil, Int, Float or Bool with a content that agrees.
    [[nodiscard]] bool isScalar() const noexcept {
        const std::uint16_t kind = tag();
        return kind == kIntTag || kind == kFloatTag || kind == kBoolTag || kind == kNilTag;
    }
    [[nodiscard]] bool isNil() const { return type == VarType::Nil; }
    /// Int, Float or Bool: the kinds that take part in arithmetic.
    [[nodiscard]] bool isNumeric() const {
        return type == VarType::Int || type == VarType::Float || type == VarType::Bool;
    }

private:
    explicit Variable(ValueStorage&& content) noexcept : ValueStorage(std::move(content)) {}

    [[gnu::always_inline]] void check(Alternative wanted) const {
        if (alternative() != wanted) throwBadVariantAccess();
    }
};

// Arrays are made of these.
static_assert(sizeof(Variable) == 16);

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
