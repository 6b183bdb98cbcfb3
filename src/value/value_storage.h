// The content of a Variable: a closed variant over the alternatives of the language. It is written
// out, and not the standard library's, because values are copied and destroyed all the time and
// nearly all of them are numbers: here a number costs one comparison, where a visitation would cost
// an indirect jump.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

struct Variable;
struct MultiResult;
struct ScriptCallable;

/// A dense sequence; the language counts its positions from 1.
using ArrayStorage = std::vector<Variable>;

/// A hash map from key text to value: every key is stored as text.
using TableStorage = std::unordered_map<std::string, Variable>;

/// The alternatives; those that need no destructor come first.
enum class Alternative : std::uint8_t {
    Int,
    Float,
    Bool,
    Pointer,
    String,
    Raw,
    Array,
    Table,
    Callable,
    Multi,
};

class ValueStorage {
public:
    using Raw = std::vector<char>;
    using ArrayPointer = std::shared_ptr<ArrayStorage>;
    using TablePointer = std::shared_ptr<TableStorage>;
    using CallablePointer = std::shared_ptr<ScriptCallable>;
    using MultiPointer = std::shared_ptr<MultiResult>;

    /// The int 0.
    ValueStorage() noexcept : int_(0), alternative_(Alternative::Int) {}
    explicit ValueStorage(int number) noexcept : int_(number), alternative_(Alternative::Int) {}
    explicit ValueStorage(float number) noexcept
        : float_(number), alternative_(Alternative::Float) {}
    explicit ValueStorage(bool truth) noexcept : bool_(truth), alternative_(Alternative::Bool) {}
    explicit ValueStorage(void* address) noexcept
        : pointer_(address), alternative_(Alternative::Pointer) {}
    explicit ValueStorage(std::string text) noexcept
        : string_(std::move(text)), alternative_(Alternative::String) {}
    explicit ValueStorage(Raw bytes) noexcept
        : raw_(std::move(bytes)), alternative_(Alternative::Raw) {}
    explicit ValueStorage(ArrayPointer array) noexcept
        : array_(std::move(array)), alternative_(Alternative::Array) {}
    explicit ValueStorage(TablePointer table) noexcept
        : table_(std::move(table)), alternative_(Alternative::Table) {}
    explicit ValueStorage(CallablePointer callable) noexcept
        : callable_(std::move(callable)), alternative_(Alternative::Callable) {}
    explicit ValueStorage(MultiPointer multi) noexcept
        : multi_(std::move(multi)), alternative_(Alternative::Multi) {}

    ValueStorage(const ValueStorage& other) : ValueStorage() {
        if (other.isTrivial()) {
            takeTrivial(other);
        } else {
            copyFrom(other);
        }
    }
    ValueStorage(ValueStorage&& other) noexcept : ValueStorage() {
        if (other.isTrivial()) {
            takeTrivial(other);
        } else {
            moveFrom(other);
        }
    }
    ValueStorage& operator=(const ValueStorage& other) {
        if (isTrivial() && other.isTrivial()) {
            takeTrivial(other);
        } else if (this != &other) {
            assignFrom(other);
        }
        return *this;
    }
    ValueStorage& operator=(ValueStorage&& other) noexcept {
        if (isTrivial() && other.isTrivial()) {
            takeTrivial(other);
        } else if (this != &other) {
            replaceBy(other);
        }
        return *this;
    }
    ~ValueStorage() {
        if (!isTrivial()) destroy();
    }

    [[nodiscard]] Alternative alternative() const noexcept { return alternative_; }

    /// The content if it is the alternative `T`, else null.
    template <typename T>
    [[nodiscard]] const T* get() const noexcept {
        return const_cast<ValueStorage*>(this)->get<T>();
    }
    template <typename T>
    [[nodiscard]] T* get() noexcept {
        if constexpr (std::is_same_v<T, int>) {
            return held(Alternative::Int, int_);
        } else if constexpr (std::is_same_v<T, float>) {
            return held(Alternative::Float, float_);
        } else if constexpr (std::is_same_v<T, bool>) {
            return held(Alternative::Bool, bool_);
        } else if constexpr (std::is_same_v<T, void*>) {
            return held(Alternative::Pointer, pointer_);
        } else if constexpr (std::is_same_v<T, std::string>) {
            return held(Alternative::String, string_);
        } else if constexpr (std::is_same_v<T, Raw>) {
            return held(Alternative::Raw, raw_);
        } else if constexpr (std::is_same_v<T, ArrayPointer>) {
            return held(Alternative::Array, array_);
        } else if constexpr (std::is_same_v<T, TablePointer>) {
            return held(Alternative::Table, table_);
        } else if constexpr (std::is_same_v<T, CallablePointer>) {
            return held(Alternative::Callable, callable_);
        } else {
            static_assert(std::is_same_v<T, MultiPointer>);
            return held(Alternative::Multi, multi_);
        }
    }

    // Overwrite the content with a number.
    void setInt(int number) noexcept {
        makeTrivial(Alternative::Int);
        int_ = number;
    }
    void setFloat(float number) noexcept {
        makeTrivial(Alternative::Float);
        float_ = number;
    }
    void setBool(bool truth) noexcept {
        makeTrivial(Alternative::Bool);
        bool_ = truth;
    }

    void swap(ValueStorage& other) noexcept;
    /// The same alternative with equal content; containers and callables by identity.
    [[nodiscard]] bool operator==(const ValueStorage& other) const noexcept;

private:
    [[nodiscard]] bool isTrivial() const noexcept { return alternative_ <= Alternative::Pointer; }
    /// Of a trivial `other` into a trivial content: all of them fit in the bytes of a pointer.
    void takeTrivial(const ValueStorage& other) noexcept {
        std::memcpy(static_cast<void*>(&pointer_), &other.pointer_, sizeof(pointer_));
        alternative_ = other.alternative_;
    }
    void makeTrivial(Alternative alternative) noexcept {
        if (!isTrivial()) destroy();
        alternative_ = alternative;
    }
    template <typename T>
    [[nodiscard]] T* held(Alternative alternative, T& content) noexcept {
        return alternative_ == alternative ? &content : nullptr;
    }
    void copyFrom(const ValueStorage& other);
    void moveFrom(ValueStorage& other) noexcept;
    void assignFrom(const ValueStorage& other);
    void replaceBy(ValueStorage& other) noexcept;
    void destroy() noexcept;

    union {
        int int_;
        float float_;
        bool bool_;
        void* pointer_;
        std::string string_;
        Raw raw_;
        ArrayPointer array_;
        TablePointer table_;
        CallablePointer callable_;
        MultiPointer multi_;
    };
    Alternative alternative_;
};
