// Any bytes as the arguments of a native that reads patterns, formats or texts. The first byte
// selects the native; the rest is cut at zero bytes into the arguments, each a number if it can be
// read as one.
//
// What the library's own matcher does not know is matched by the standard library, which tries one
// way after the other: for a quantifier inside a quantifier, such as "(a+)+\1", their number is
// exponential in the length of the text. That limit is known and is that matcher's, and a time-out
// because of it would only hide the next finding. So the texts are short, the patterns have few
// quantifiers, and a pattern with nested ones is passed over if it goes there.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "harness.h"
#include "library/pattern_graph.h"
#include "library/pattern_source.h"
#include "value/array_storage.h"
#include "value/numbers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t kMostArguments = 6;
constexpr std::size_t kLongestSubject = 10;
constexpr std::size_t kLongestPattern = 24;
constexpr int kMostQuantifiers = 3;

struct Target {
    const char* library;  // a global table, or null for a global native
    const char* member;
    bool usesPattern;
};

constexpr std::array<Target, 28> kTargets{{
    {"string", "find", true},     {"string", "match", true},    {"string", "gmatch", true},
    {"string", "gsub", true},     {nullptr, "gsub", true},      {"string", "format", false},
    {"string", "sub", false},     {"string", "byte", false},    {"string", "char", false},
    {"string", "rep", false},     {"string", "upper", false},   {"string", "len", false},
    {"table", "concat", false},   {"table", "insert", false},   {"table", "remove", false},
    {"table", "sort", false},     {"utf8", "len", false},       {"utf8", "offset", false},
    {nullptr, "toNumber", false}, {nullptr, "toString", false}, {nullptr, "select", false},
    {nullptr, "random", false},   {"math", "floor", false},     {"math", "log", false},
    {"math", "max", false},       {nullptr, "load", false},     {nullptr, "erase", false},
    {nullptr, "set", false},
}};

bool isOneOf(std::string_view set, char c) { return set.find(c) != std::string_view::npos; }

/// The pattern up to the first quantifier that is too many.
std::string_view boundedPattern(std::string_view text) {
    int quantifiers = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isOneOf("*+-?{", text[i]) && ++quantifiers > kMostQuantifiers) return text.substr(0, i);
    }
    return text;
}

/// Whether a repetition follows a quantifier or a group; a "?" there repeats nothing. Escapes and
/// sets are not looked at: the forms of patterns differ in them, and too many is better here than
/// too few.
bool nestsQuantifiers(std::string_view pattern) {
    for (std::size_t i = 1; i < pattern.size(); ++i) {
        if (isOneOf("*+-{", pattern[i]) && isOneOf("*+-?})", pattern[i - 1])) return true;
    }
    return false;
}

/// Whether the standard library would match `pattern` and might not come to an end.
bool mayTakeForever(const std::string& pattern) {
    if (!nestsQuantifiers(pattern)) return false;
    try {
        const PatternSource source = readPatternSource(pattern);
        return !readPatternGraph(source.expression, source.ignoresCase).has_value();
    } catch (const std::exception&) {
        return false;  // it is no pattern
    }
}

/// Whether a width or a precision may ask for a text that takes the sanitizers seconds to write.
bool mayAskForALongField(std::string_view format) {
    int digits = 0;
    for (const char c : format) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (digits > 7) return true;
    }
    return false;
}

Variable argumentOf(std::string_view text, std::size_t index, const Target& target) {
    if (target.usesPattern && index < 2) {
        return Variable(std::string(index == 0 ? text.substr(0, kLongestSubject)
                                               : boundedPattern(text.substr(0, kLongestPattern))));
    }
    int number = 0;
    if (parseIntStrict(std::string(text), number)) return Variable::makeInt(number);
    float fraction = 0;
    if (parseFloatStrict(std::string(text), fraction)) return Variable::makeFloat(fraction);
    return Variable(std::string(text));
}

std::vector<Variable> argumentsOf(std::string_view text, const Target& target) {
    std::vector<Variable> values;
    while (values.size() < kMostArguments) {
        const std::size_t end = std::min(text.find('\0'), text.size());
        values.push_back(argumentOf(text.substr(0, end), values.size(), target));
        if (end == text.size()) break;
        text.remove_prefix(end + 1);
    }
    // Where the native wants a container, all but the first go into one.
    const std::string_view library = target.library != nullptr ? target.library : "";
    if (library == "table" || std::string_view(target.member) == "set" ||
        std::string_view(target.member) == "erase") {
        const std::span<const Variable> all(values);
        ArrayStorage elements(all.subspan(values.empty() ? 0 : 1));
        values.insert(values.begin(), Variable::makeArray(std::move(elements)));
    }
    return values;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const Target& target = kTargets[data[0] % kTargets.size()];
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    runInFreshInterpreter([&](DovrelScript& interpreter) {
        const std::vector<Variable> values = argumentsOf(text, target);
        if (target.usesPattern && values.size() > 1 && mayTakeForever(values[1].asString())) {
            return;
        }
        if (target.member == std::string_view("format") && mayAskForALongField(text)) return;
        const char* const global = target.library != nullptr ? target.library : target.member;
        Variable native = *interpreter.resolveVariablePtr(interpreter.names.intern(global));
        if (target.library != nullptr) {
            native = interpreter.getIndexedValue(native, Variable(std::string(target.member)));
        }
        static_cast<void>(interpreter.invokeCallableFast(native, Arguments(values)).toString());
    });
    return 0;
}
