// DovrelScript in other programs: the public header of libdovrelscript.
//
//   dovrel::Interpreter interpreter;
//   interpreter.define("shout", [](std::string_view text) { return std::string(text) + "!"; });
//   interpreter.run("greeting = shout('hello')");
//   std::string greeting = interpreter.global("greeting").as<std::string>();
//
// Any number of interpreters may exist in a process. Each, with its values, is used by one thread at
// a time; different ones may run on different threads at the same time. Only `interrupt` may be
// called from anywhere at any time. docs/embedding.md tells the rest.
#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#if defined(__GNUC__)
#define DOVREL_API __attribute__((visibility("default")))
#else
#define DOVREL_API
#endif

namespace dovrel {

class Interpreter;
class Value;

namespace detail {
struct Content;
struct State;
class ErrorFields;
}  // namespace detail

/// What sort of value a Value is.
enum class Kind : std::uint8_t {
    Nil,
    Bool,
    Int,       // 32 bits
    Float,     // 32 bits
    String,    // bytes, of any length
    Array,     // by reference
    Table,     // by reference
    Function,  // a script's or a native, by reference
    Several,   // the results of a call that gave other than one
};

/// Why something has ended in an Error.
enum class Reason : std::uint8_t {
    Script,       // the script, or a native that it has called, has failed
    Usage,        // the host has asked for something that cannot be: a wrong kind, a missing function
    Interrupted,  // `interrupt` has been called
    Statements,   // a limit has been reached: see Limits
    Memory,
    Time,
    Recursion,  // that limit, or the stack is at its end
};

/// The exception of this library.
class DOVREL_API Error : public std::exception {
public:
    /// An error with a message and nothing else. A native may raise it, as any other exception.
    explicit Error(std::string_view message, Reason reason = Reason::Script);
    Error(const Error&) noexcept;
    Error& operator=(const Error&) noexcept;
    ~Error() override;

    /// The whole report, of several lines if it has a place.
    [[nodiscard]] const char* what() const noexcept override;
    [[nodiscard]] Reason reason() const noexcept;
    /// A limit or an interruption has ended the script.
    [[nodiscard]] bool isStop() const noexcept {
        return reason() != Reason::Script && reason() != Reason::Usage;
    }
    // The parts of the report; empty, or 0, where it has none. The views hold as long as the error
    // or a copy of it.
    [[nodiscard]] std::string_view message() const noexcept;
    /// The name that was given to the script; empty for a text without a name.
    [[nodiscard]] std::string_view script() const noexcept;
    /// 1-based.
    [[nodiscard]] int line() const noexcept;
    [[nodiscard]] std::string_view nearToken() const noexcept;
    [[nodiscard]] std::string_view sourceLine() const noexcept;
    [[nodiscard]] std::string_view hint() const noexcept;

private:
    friend struct detail::State;
    explicit Error(std::shared_ptr<const detail::ErrorFields> fields) noexcept;

    std::shared_ptr<const detail::ErrorFields> fields_;
};

namespace detail {
template <class T>
struct Conversion;
/// Raises the Error for a value of another kind: "expected `wanted`, and got ...".
[[noreturn]] DOVREL_API void throwKind(const Value& value, const char* wanted);
[[noreturn]] DOVREL_API void throwTooLarge();
}  // namespace detail

/// A value of a script. Numbers, truth values and texts are copies; arrays, tables and functions are
/// references: what the host changes in them the script sees, and the other way round. Those are of
/// one interpreter, and come to nothing when it ends: whatever is asked of them then raises an Error.
class DOVREL_API Value {
public:
    /// Nil.
    Value() noexcept = default;
    Value(std::nullptr_t) noexcept {}
    template <std::same_as<bool> Bool>
    Value(Bool truth) noexcept : kind_(Kind::Bool), int_(truth ? 1 : 0) {}
    /// Raises Error for a number that does not fit into 32 bits.
    template <std::integral Integer>
        requires(!std::same_as<Integer, bool> && !std::same_as<Integer, char>)
    Value(Integer number) : kind_(Kind::Int) {
        if (!std::in_range<int>(number)) detail::throwTooLarge();
        int_ = static_cast<int>(number);
    }
    /// Rounded to 32 bits.
    template <std::floating_point Real>
    Value(Real number) noexcept : kind_(Kind::Float), float_(static_cast<float>(number)) {}
    Value(std::string_view text);
    Value(const std::string& text) : Value(std::string_view(text)) {}
    Value(const char* text) : Value(std::string_view(text)) {}

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    [[nodiscard]] bool isNil() const noexcept { return kind_ == Kind::Nil; }
    /// The language's truth: nil and false do not hold, everything else does.
    [[nodiscard]] bool isTrue() const noexcept {
        return kind_ != Kind::Nil && (kind_ != Kind::Bool || int_ != 0);
    }

    /// The value as a C++ one; raises Error for another kind. `T` may be bool, an integer type, a
    /// floating type (ints are taken too), std::string, std::string_view (which holds as long as
    /// this value), Value, std::vector<T> of an array, std::map<std::string, T> of a table, and
    /// std::optional<T>, which is empty for nil.
    template <class T>
    [[nodiscard]] T as() const {
        return detail::Conversion<T>::from(*this);
    }
    /// The same, or `otherwise` for a nil.
    template <class T>
    [[nodiscard]] T valueOr(T otherwise) const {
        return isNil() ? otherwise : as<T>();
    }
    /// As `print` shows it.
    [[nodiscard]] std::string toString() const { return std::string(shown().text()); }

    // Strings.
    /// The bytes, with a zero byte behind them; raises Error for another kind.
    [[nodiscard]] std::string_view text() const;

    // Arrays and tables. Keys are those of the language: positions of an array count from 1.
    /// How many elements an array has, how many entries a table, how many bytes a string, how many
    /// values "several"; raises Error for other kinds.
    [[nodiscard]] std::size_t size() const;
    /// The element under a key; nil where there is none.
    [[nodiscard]] Value operator[](const Value& key) const;
    /// Writes an element. A position behind the end of an array makes it longer; a key that is no
    /// position raises Error there. A key of a table is a string, a number or a truth value.
    void set(const Value& key, const Value& value) const;
    /// Puts a value behind the last one of an array.
    void push(const Value& value) const;
    /// Removes an entry of a table. False if there is none.
    bool erase(const Value& key) const;
    /// The keys of a table in the order in which `pairs` walks; the positions of an array.
    [[nodiscard]] std::vector<Value> keys() const {
        const Value all = allKeys();
        std::vector<Value> keys;
        const std::size_t count = all.size();
        keys.reserve(count);
        for (std::size_t i = 1; i <= count; ++i) keys.push_back(all[Value(i)]);
        return keys;
    }
    /// Several values one by one; a single value alone, and nothing for nil.
    [[nodiscard]] std::vector<Value> spread() const {
        if (kind_ == Kind::Nil) return {};
        if (kind_ != Kind::Several) return {*this};
        std::vector<Value> values;
        const std::size_t count = size();
        values.reserve(count);
        for (std::size_t i = 1; i <= count; ++i) values.push_back((*this)[Value(i)]);
        return values;
    }
    /// The first of several values; this value itself otherwise.
    [[nodiscard]] Value first() const;

    /// Calls a function. What it gives: nil, a value, or several.
    template <class... Arguments>
    Value operator()(const Arguments&... arguments) const {
        const Value values[] = {Value(), Value(arguments)...};
        return callWith(values + 1, sizeof...(arguments));
    }
    /// The same with the arguments in a row.
    Value callWith(const Value* arguments, std::size_t count) const;

    /// The same number, truth value or text; the same array, table or function, not an equal one.
    [[nodiscard]] bool operator==(const Value& other) const noexcept;

private:
    friend struct detail::State;
    template <class T>
    friend struct detail::Conversion;

    [[nodiscard]] Value shown() const;
    [[nodiscard]] Value allKeys() const;

    Kind kind_ = Kind::Nil;
    union {
        int int_ = 0;
        float float_;
    };
    std::shared_ptr<detail::Content> content_;
};

/// What a script may take; 0 stands for no limit. A script that reaches one ends in an Error that
/// tells which; no `pcall` of the script holds it up.
struct Limits {
    /// How many statements one `run` or call may run. Each statement, call and turn of a loop counts
    /// at least once, a turn of a loop and a call for all the statements in them; work of the
    /// library counts by its amount.
    std::uint64_t statements = 0;
    /// How many bytes the interpreter may hold, all of its values and programs included.
    std::size_t memory = 0;
    /// How many calls may be inside of each other.
    std::uint64_t recursion = 0;
    /// How long one `run` or call may take.
    std::chrono::nanoseconds time{0};
};

/// How an interpreter is made.
struct Options {
    bool files = true;      // scripts may open, load and run files
    bool processes = true;  // scripts may start commands
    Limits limits;

    /// For scripts that nobody has read: no files, no commands, a second, 64 MiB, ten million
    /// statements, and ten thousand calls inside of each other.
    [[nodiscard]] static Options sandbox() {
        using namespace std::chrono_literals;
        Options options;
        options.files = options.processes = false;
        options.limits = {10'000'000, std::size_t{64} << 20, 10'000, 1s};
        return options;
    }
};

/// The arguments of a native that takes any.
class Arguments {
public:
    Arguments(const Value* values, std::size_t count) : values_(values), count_(count) {}
    [[nodiscard]] std::size_t size() const noexcept { return count_; }
    /// The argument at the 0-based `index`; nil behind the last.
    [[nodiscard]] const Value& operator[](std::size_t index) const noexcept {
        static const Value nil{};
        return index < count_ ? values_[index] : nil;
    }
    [[nodiscard]] const Value* begin() const noexcept { return values_; }
    [[nodiscard]] const Value* end() const noexcept { return values_ + count_; }

private:
    const Value* values_;
    std::size_t count_;
};

namespace detail {

/// A native, as the interpreter calls it.
class NativeBase {
public:
    NativeBase() = default;
    virtual ~NativeBase() = default;
    NativeBase(const NativeBase&) = delete;
    NativeBase& operator=(const NativeBase&) = delete;
    virtual Value call(Interpreter& interpreter, const Value* arguments, std::size_t count) = 0;
};

template <class Callable>
[[nodiscard]] std::shared_ptr<NativeBase> makeNative(std::string name, Callable&& callable);

/// Several values as one, for a native that gives more than one.
[[nodiscard]] DOVREL_API Value several(const Value* values, std::size_t count);

}  // namespace detail

/// An interpreter with its globals. Not to be ended by a native that it has called.
class DOVREL_API Interpreter {
public:
    explicit Interpreter(const Options& options = {});
    ~Interpreter();
    Interpreter(const Interpreter&) = delete;
    Interpreter& operator=(const Interpreter&) = delete;

    /// Runs a script and gives the value of its `return`, or else of its last expression. `name`
    /// stands in reports. Raises Error; the interpreter can be used on in any case.
    Value run(std::string_view text, std::string_view name = {});
    /// The same with the script in a file, which the host may read whatever the scripts may.
    Value runFile(std::string_view path);

    /// Calls the function that a global holds; raises Error if it holds none.
    template <class... Args>
    Value call(std::string_view function, const Args&... arguments) {
        const Value values[] = {Value(), Value(arguments)...};
        return callGlobal(function, values + 1, sizeof...(arguments));
    }

    /// The value of a global; nil if there is none.
    [[nodiscard]] Value global(std::string_view name) const;
    void setGlobal(std::string_view name, const Value& value);
    /// New containers.
    [[nodiscard]] Value makeArray();
    [[nodiscard]] Value makeTable();
    /// A new array with the elements of a range, such as a std::vector<int>.
    template <class Range>
    [[nodiscard]] Value arrayOf(const Range& elements) {
        Value array = makeArray();
        for (const auto& element : elements) array.push(Value(element));
        return array;
    }
    /// A new table with these entries.
    [[nodiscard]] Value tableOf(
        std::initializer_list<std::pair<std::string_view, Value>> entries) {
        Value table = makeTable();
        for (const auto& [key, value] : entries) table.set(key, value);
        return table;
    }

    /// Makes a C++ callable a global function of scripts: a function, a lambda with or without a
    /// state, any object with one `operator()`. Its parameters are those of Value::as; in front of
    /// them it may take an `Interpreter&`, and alone, or last, `Arguments` for all that are left.
    /// Parameters of the type std::optional may be left out. Too few or too many arguments and those
    /// of a wrong kind are an error of the script that names the function. It may give nothing, or
    /// whatever a Value can be made of, or a std::vector<Value> for several results. An exception
    /// that it raises is an error of the script with the same message, which `pcall` catches.
    template <class Callable>
    void define(std::string_view name, Callable&& callable) {
        setGlobal(name, makeFunction(name, std::forward<Callable>(callable)));
    }
    /// The same as a value, for tables of functions. `name` stands in messages.
    template <class Callable>
    [[nodiscard]] Value makeFunction(std::string_view name, Callable&& callable) {
        return wrapNative(
            detail::makeNative(std::string(name), std::forward<Callable>(callable)));
    }

    /// Where `print` goes, line feed included; standard output if it is empty.
    void setOutput(std::function<void(std::string_view)> output);
    /// Where the lines of "/dev/stdin" come from; nothing at the end. Standard input if it is empty.
    /// With it, scripts that may not use files may still open "/dev/stdin".
    void setInput(std::function<std::optional<std::string>()> input);

    /// For the runs and calls that come.
    void setLimits(const Limits& limits);
    [[nodiscard]] const Limits& limits() const noexcept;
    /// How many statements the present run, or else the last one, has run, as Limits counts them.
    [[nodiscard]] std::uint64_t statementsRun() const noexcept;
    /// How many bytes the interpreter holds now.
    [[nodiscard]] std::size_t memoryUsed() const noexcept;

    /// Stops the script that runs, at its next statement, call or turn of a loop; it ends in an
    /// Error. Does nothing if none runs. From any thread, and from a signal handler.
    void interrupt() noexcept;

private:
    friend struct detail::State;

    Value callGlobal(std::string_view function, const Value* arguments, std::size_t count);
    Value wrapNative(std::shared_ptr<detail::NativeBase> native);

    std::shared_ptr<detail::State> state_;
};

// ------------------------------------------------------------------ conversions

namespace detail {

template <>
struct Conversion<Value> {
    static Value from(const Value& value) { return value; }
    static constexpr bool mayBeMissing = false;
};
template <>
struct Conversion<bool> {
    static bool from(const Value& value) {
        if (value.kind() != Kind::Bool) throwKind(value, "a boolean");
        return value.int_ != 0;
    }
};
template <std::integral Integer>
struct Conversion<Integer> {
    static Integer from(const Value& value) {
        if (value.kind() != Kind::Int) throwKind(value, "an int");
        if (!std::in_range<Integer>(value.int_)) throwTooLarge();
        return static_cast<Integer>(value.int_);
    }
};
template <std::floating_point Real>
struct Conversion<Real> {
    static Real from(const Value& value) {
        if (value.kind() == Kind::Int) return static_cast<Real>(value.int_);
        if (value.kind() != Kind::Float) throwKind(value, "a number");
        return static_cast<Real>(value.float_);
    }
};
template <>
struct Conversion<std::string_view> {
    static std::string_view from(const Value& value) {
        if (value.kind() != Kind::String) throwKind(value, "a string");
        return value.text();
    }
};
template <>
struct Conversion<std::string> {
    static std::string from(const Value& value) {
        return std::string(Conversion<std::string_view>::from(value));
    }
};
template <class T>
struct Conversion<std::optional<T>> {
    static std::optional<T> from(const Value& value) {
        if (value.isNil()) return std::nullopt;
        return Conversion<T>::from(value);
    }
};
template <class T>
struct Conversion<std::vector<T>> {
    static std::vector<T> from(const Value& value) {
        if (value.kind() != Kind::Array) throwKind(value, "an array");
        std::vector<T> elements;
        const std::size_t count = value.size();
        elements.reserve(count);
        for (std::size_t i = 1; i <= count; ++i) {
            elements.push_back(Conversion<T>::from(value[Value(i)]));
        }
        return elements;
    }
};
template <class T>
struct Conversion<std::map<std::string, T>> {
    static std::map<std::string, T> from(const Value& value) {
        if (value.kind() != Kind::Table) throwKind(value, "a table");
        std::map<std::string, T> entries;
        for (const Value& key : value.keys()) {
            entries.emplace(key.toString(), Conversion<T>::from(value[key]));
        }
        return entries;
    }
};

// ------------------------------------------------------------------ natives

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

/// The result and the parameters of a callable.
template <class Callable>
struct Signature : Signature<decltype(&Callable::operator())> {};
template <class R, class... Parameters>
struct Signature<R (*)(Parameters...)> {
    using Result = R;
    using Types = std::tuple<std::remove_cvref_t<Parameters>...>;
};
template <class R, class... Parameters>
struct Signature<R (*)(Parameters...) noexcept> : Signature<R (*)(Parameters...)> {};
template <class R, class Owner, class... Parameters>
struct Signature<R (Owner::*)(Parameters...)> : Signature<R (*)(Parameters...)> {};
template <class R, class Owner, class... Parameters>
struct Signature<R (Owner::*)(Parameters...) const> : Signature<R (*)(Parameters...)> {};
template <class R, class Owner, class... Parameters>
struct Signature<R (Owner::*)(Parameters...) noexcept> : Signature<R (*)(Parameters...)> {};
template <class R, class Owner, class... Parameters>
struct Signature<R (Owner::*)(Parameters...) const noexcept> : Signature<R (*)(Parameters...)> {};

/// Raises the Error for a wrong number of arguments.
[[noreturn]] DOVREL_API void throwCount(std::string_view name, std::size_t least, std::size_t most,
                                        std::size_t count);
/// Raises the Error for an argument of a wrong kind; `error` tells what was expected.
[[noreturn]] DOVREL_API void throwArgument(std::string_view name, std::size_t number,
                                           const Error& error);

template <class Callable>
class Native final : public NativeBase {
    using Types = typename Signature<Callable>::Types;
    using Result = typename Signature<Callable>::Result;
    static constexpr std::size_t kCount = std::tuple_size_v<Types>;

    template <std::size_t I>
    using Type = std::tuple_element_t<I, Types>;

    static constexpr std::size_t first() {
        if constexpr (kCount > 0) return std::is_same_v<Type<0>, Interpreter> ? 1 : 0;
        return 0;
    }
    static constexpr bool takesRest() {
        if constexpr (kCount > 0) return std::is_same_v<Type<kCount - 1>, Arguments>;
        return false;
    }
    static constexpr std::size_t kFirst = first();
    static constexpr std::size_t kMost = kCount - kFirst - (takesRest() ? 1 : 0);

    /// The arguments that must be there: those up to the last that is not optional.
    template <std::size_t... I>
    static constexpr std::size_t leastOf(std::index_sequence<I...>) {
        std::size_t least = 0;
        ((least = isOptional<Type<kFirst + I>> ? least : I + 1), ...);
        return least;
    }
    static constexpr std::size_t kLeast = leastOf(std::make_index_sequence<kMost>());

public:
    template <class Given>
    Native(std::string name, Given&& callable)
        : name_(std::move(name)), callable_(std::forward<Given>(callable)) {}

    Value call(Interpreter& interpreter, const Value* arguments, std::size_t count) override {
        if (count < kLeast || (!takesRest() && count > kMost)) {
            throwCount(name_, kLeast, takesRest() ? std::numeric_limits<std::size_t>::max() : kMost,
                       count);
        }
        return callWith(interpreter, arguments, count, std::make_index_sequence<kCount>());
    }

private:
    template <std::size_t I>
    decltype(auto) argument(Interpreter& interpreter, const Value* arguments, std::size_t count) {
        if constexpr (I < kFirst) {
            return static_cast<Interpreter&>(interpreter);
        } else if constexpr (takesRest() && I + 1 == kCount) {
            return count > kMost ? Arguments(arguments + kMost, count - kMost)
                                 : Arguments(arguments, 0);
        } else {
            static const Value nil{};
            constexpr std::size_t index = I - kFirst;
            try {
                return Conversion<Type<I>>::from(index < count ? arguments[index] : nil);
            } catch (const Error& error) {
                throwArgument(name_, index + 1, error);
            }
        }
    }
    template <std::size_t... I>
    Value callWith([[maybe_unused]] Interpreter& interpreter,
                   [[maybe_unused]] const Value* arguments, [[maybe_unused]] std::size_t count,
                   std::index_sequence<I...>) {
        if constexpr (std::is_void_v<Result>) {
            callable_(argument<I>(interpreter, arguments, count)...);
            return {};
        } else if constexpr (std::is_same_v<Result, std::vector<Value>>) {
            const std::vector<Value> results =
                callable_(argument<I>(interpreter, arguments, count)...);
            return several(results.data(), results.size());
        } else {
            return Value(callable_(argument<I>(interpreter, arguments, count)...));
        }
    }

    std::string name_;
    Callable callable_;
};

template <class Callable>
std::shared_ptr<NativeBase> makeNative(std::string name, Callable&& callable) {
    return std::make_shared<Native<std::decay_t<Callable>>>(std::move(name),
                                                            std::forward<Callable>(callable));
}

}  // namespace detail

}  // namespace dovrel
