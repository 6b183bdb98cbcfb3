#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "eval/fast_scalar_value.h"
#include "interpreter/dovrel_script.h"
#include "library/builtin_id.h"

namespace {

/// The names that yield an id, by their ids. Files and caches know the numbers.
constexpr std::array<std::string_view, 38> kNames = {
    "",
    "assert",
    "getTimeMs",
    "toString",
    "toNumber",
    "error",
    "pcall",
    "load",
    "pairs",
    "ipairs",
    "next",
    "select",
    "collectGarbage",
    "len",
    "string.len",
    "string.upper",
    "string.sub",
    "string.find",
    "string.match",
    "string.gmatch",
    "string.byte",
    "string.format",
    "string.gsub",
    "table.insert",
    "table.remove",
    "table.concat",
    "table.sort",
    "math.floor",
    "math.ceil",
    "math.abs",
    "math.min",
    "math.max",
    "math.sin",
    "math.cos",
    "math.rad",
    "math.log",
    "math.sqrt",
    "utf8.len",
};

constexpr std::array<const char*, 49> kGlobals = {
    "print",
    "getTimeMs",
    "random",
    "toString",
    "tostring",
    "toNumber",
    "tonumber",
    "gsub",
    "typeOf",
    "type",
    "pop",
    "clear",
    "erase",
    "contains",
    "keys",
    "values",
    "assert",
    "error",
    "pcall",
    "load",
    "loadstring",
    "loadFile",
    "loadfile",
    "runFile",
    "dofile",
    "pairs",
    "ipairs",
    "next",
    "select",
    "collectGarbage",
    "collectgarbage",
    "kill",
    "array",
    "len",
    "push",
    "reserve",
    "get",
    "set",
    "DOVREL_VERSION",
    "DOVREL_RELEASE",
    "DOVREL_NAME",
    "DOVREL_AUTHOR",
    "string",
    "table",
    "math",
    "utf8",
    "io",
    "os",
    "package",
};

BuiltinId idOf(int number) { return static_cast<BuiltinId>(number); }

int numberOf(BuiltinId id) { return static_cast<int>(id); }

/// Lends `values` to a call.
class Lent {
public:
    explicit Lent(const std::vector<Variable>& values) : values_(values) {}
    [[nodiscard]] Arguments view() const { return Arguments(values_); }

private:
    const std::vector<Variable>& values_;
};

Variable text(const char* bytes) { return Variable(std::string(bytes)); }
Variable number(int value) { return Variable::makeInt(value); }

class Registry : public testing::Test {
protected:
    const Variable& global(const std::string& name) {
        return interpreter.globalValues.at(interpreter.globalSlots.at(name));
    }
    const ScriptCallable& native(const std::string& name) { return *global(name).asFunction(); }
    const ScriptCallable& member(const std::string& library, const std::string& name) {
        return *global(library).asTable()->at(name).asFunction();
    }
    /// The native whose callable name is `name`.
    const ScriptCallable& nativeOf(std::string_view name) {
        const std::size_t dot = name.find('.');
        if (dot == std::string_view::npos) return native(std::string(name));
        return member(std::string(name.substr(0, dot)), std::string(name.substr(dot + 1)));
    }
    /// Kind and text of the result, with the elements of a multi-value, or the message.
    template <typename Call>
    std::string answerOf(Call call) {
        try {
            const Variable result = call();
            std::string answer = typeName(result.type) + " " + result.toString();
            if (result.type == VarType::Multi) {
                for (const Variable& value : result.asMulti()->values) {
                    answer += ", " + typeName(value.type) + " " + value.toString();
                }
            }
            return answer;
        } catch (const std::exception& error) {
            return std::string("raised ") + error.what();
        }
    }
    std::string byNumber(BuiltinId id, const std::vector<Variable>& values) {
        return answerOf([&] { return interpreter.dispatchBuiltinFast(id, Lent(values).view()); });
    }
    std::string asFunctionObject(const ScriptCallable& callable,
                                 const std::vector<Variable>& values) {
        return answerOf([&] { return callable.nativeFunction(Lent(values).view()); });
    }
    /// What the scalar route gives; "declined" if it has no scalar.
    std::string scalar(BuiltinId id, const std::vector<Variable>& values) {
        return answerOf([&] {
            FastScalarValue out{};
            if (!interpreter.tryEvaluateNativeBuiltinScalar(id, Lent(values).view(), out)) {
                return text("declined");
            }
            switch (out.kind) {
                case ScalarKind::Int: return number(out.intValue);
                case ScalarKind::Float: return Variable::makeFloat(out.floatValue);
                case ScalarKind::Bool: return Variable::makeBool(out.truth());
                default: return Variable();
            }
        });
    }

    DovrelScript interpreter;
};

TEST(BuiltinIds, EachNameYieldsItsNumber) {
    for (std::size_t id = 1; id < kNames.size(); ++id) {
        EXPECT_EQ(numberOf(builtinIdFromName(kNames[id])), static_cast<int>(id)) << kNames[id];
    }
}

TEST(BuiltinIds, EveryOtherNameYieldsNone) {
    for (const std::string_view name : {"",
                                        "tostring",
                                        "tonumber",
                                        "loadstring",
                                        "collectgarbage",
                                        "type",
                                        "typeOf",
                                        "print",
                                        "gsub",
                                        "random",
                                        "push",
                                        "Assert",
                                        "LEN",
                                        "assert ",
                                        " assert",
                                        "asser",
                                        "asserts",
                                        "string",
                                        "string.",
                                        ".len",
                                        "len.string",
                                        "string.lower",
                                        "string.char",
                                        "string.rep",
                                        "math.random",
                                        "math.randomSeed",
                                        "math.pi",
                                        "utf8.offset",
                                        "io.open",
                                        "io.popen",
                                        "os.clock",
                                        "os.time",
                                        "table.len",
                                        "Math.floor",
                                        "math_floor"}) {
        EXPECT_EQ(builtinIdFromName(name), BuiltinId::None) << name;
    }
}

TEST(BuiltinIds, ANameEndsWhereItsLengthSays) {
    EXPECT_EQ(builtinIdFromName(std::string_view("lenient", 3)), BuiltinId::Len);
    EXPECT_EQ(builtinIdFromName(std::string_view("len\0", 4)), BuiltinId::None);
    EXPECT_EQ(builtinIdFromName(std::string_view("len", 2)), BuiltinId::None);
}

TEST_F(Registry, GlobalsStandInTheirOrder) {
    for (std::size_t slot = 0; slot < kGlobals.size(); ++slot) {
        EXPECT_EQ(interpreter.globalSlots.at(kGlobals[slot]), slot) << kGlobals[slot];
    }
    EXPECT_EQ(interpreter.globalSlots.size(), kGlobals.size());
    EXPECT_EQ(interpreter.globalValues.size(), kGlobals.size());
}

TEST_F(Registry, AGlobalNativeHasItsNameAndTheNumberOfIt) {
    for (std::size_t slot = 0; slot < 38; ++slot) {
        const ScriptCallable& callable = native(kGlobals[slot]);
        EXPECT_TRUE(callable.isNative);
        EXPECT_EQ(callable.name, kGlobals[slot]);
        EXPECT_EQ(callable.builtinId, builtinIdFromName(kGlobals[slot])) << kGlobals[slot];
    }
}

TEST_F(Registry, AMemberOfALibraryHasANumberOnlyWithACallableName) {
    std::size_t named = 0;
    for (const char* library : {"string", "table", "math", "utf8", "io", "os"}) {
        for (const auto& [name, value] : *global(library).asTable()) {
            if (value.type != VarType::Function) continue;
            const ScriptCallable& callable = *value.asFunction();
            const std::string full = std::string(library) + "." + name->text;
            const BuiltinId id = builtinIdFromName(full);
            EXPECT_TRUE(callable.isNative);
            EXPECT_EQ(callable.builtinId, id) << full;
            EXPECT_EQ(callable.name, id == BuiltinId::None ? "" : full);
            named += id == BuiltinId::None ? 0U : 1U;
        }
    }
    EXPECT_EQ(named, 24U);
    EXPECT_EQ(global("math").asTable()->at("randomSeed").asFunction(),
              global("math").asTable()->at("randomseed").asFunction());
}

TEST_F(Registry, ANumberWithoutABodyGivesNil) {
    for (const int id : {0, 12, 38, 100, 255}) {
        EXPECT_EQ(byNumber(idOf(id), {number(1)}), "not not") << id;
        EXPECT_EQ(byNumber(idOf(id), {}), "not not") << id;
    }
}

/// Values go with their last reference, so there is never anything to collect.
TEST_F(Registry, CollectGarbageGivesNilAndDropsNothing) {
    const Shared<TableStorage> table = Shared<TableStorage>::make();
    (*table)["k"] = number(1);
    interpreter.pushVariable("t", Variable(VarType::Table, ValueStorage(table)));
    const auto snapshot = table->snapshot();
    interpreter.runScript("x = collectGarbage()\ncollectGarbage(1, 2)\ny = 1 == collectGarbage()");
    interpreter.runScript("z = collectgarbage()");
    EXPECT_EQ(asFunctionObject(native("collectGarbage"), {number(1)}), "not not");
    EXPECT_TRUE(global("x").isNil());
    EXPECT_TRUE(global("z").isNil());
    EXPECT_EQ(global("y").toString(), "false");
    EXPECT_EQ(table->snapshot(), snapshot);
    EXPECT_EQ(table.useCount(), 2U);
}

TEST_F(Registry, ASoftErrorIsNotedAndTheNativeGivesNil) {
    interpreter.protectedCallDepths.push_back(7);
    EXPECT_EQ(byNumber(BuiltinId::Error, {text("first")}), "not not");
    EXPECT_TRUE(interpreter.softErrorPending);
    EXPECT_EQ(interpreter.softErrorDepth, 7U);
    EXPECT_EQ(interpreter.softErrorMessage, "first");
    // The first error stands.
    EXPECT_EQ(byNumber(BuiltinId::Assert, {Variable(), text("second")}), "not not");
    EXPECT_EQ(interpreter.softErrorMessage, "first");
    interpreter.protectedCallDepths.clear();
    interpreter.softErrorPending = false;
    interpreter.noteAttention();
    EXPECT_EQ(byNumber(BuiltinId::Error, {text("third")}), "raised third");
    EXPECT_EQ(byNumber(BuiltinId::Assert, {Variable()}), "raised assertion failed!");
    EXPECT_FALSE(interpreter.softErrorPending);
}

TEST_F(Registry, BothFormsOfANativeGiveTheSame) {
    const auto makeArguments = [] {
        const auto list = [] { return Variable::makeArray({number(2), number(1), text("x")}); };
        const auto pair = [] { return Variable::makeArray({number(2), number(1)}); };
        const auto table = [] { return Variable::makeTable({{"1", number(5)}, {"k", text("v")}}); };
        return std::vector<std::vector<Variable>>{
            {},
            {Variable()},
            {number(-3)},
            {Variable::makeFloat(2.5F)},
            {Variable::makeBool(true)},
            {text("abc")},
            {text("12")},
            {list()},
            {pair()},
            {table()},
            {number(1), number(2)},
            {text("abc"), number(2)},
            {text("ff"), number(16)},
            {text("abc"), text("b")},
            {text("%d"), number(7)},
            {text("%d"), text("x")},
            {list(), number(1)},
            {pair(), Variable()},
            {table(), text("1")},
            {Variable(), text("message")},
            {text("abc"), text("b"), text("x")},
            {text("abc"), number(1), number(3)},
            {list(), number(1), text("y")},
            {table(), number(1), text("y")},
            {list(), text("-"), number(2), number(3)},
            {text("a"), text("b"), text("c"), text("d"), text("e")},
        };
    };
    for (std::size_t id = 1; id < kNames.size(); ++id) {
        const ScriptCallable& callable = nativeOf(kNames[id]);
        if (kNames[id] == "collectGarbage" || kNames[id] == "string.len") continue;
        // Made twice, since some natives change what they are given.
        const auto once = makeArguments();
        const auto again = makeArguments();
        for (std::size_t i = 0; i < once.size(); ++i) {
            if (kNames[id] == "getTimeMs" && once[i].empty()) continue;
            EXPECT_EQ(byNumber(callable.builtinId, once[i]), asFunctionObject(callable, again[i]))
                << kNames[id] << " with argument list " << i;
        }
    }
}

TEST_F(Registry, TheScalarRouteGivesScalars) {
    EXPECT_EQ(scalar(BuiltinId::ToNumber, {text("7")}), "int 7");
    EXPECT_EQ(scalar(BuiltinId::ToNumber, {text("1.5")}), "float 1.500000");
    EXPECT_EQ(scalar(BuiltinId::ToNumber, {text("x")}), "not not");
    EXPECT_EQ(scalar(BuiltinId::ToNumber, {}),
              "raised toNumber(x[, base]) requires 1 or 2 arguments");
    EXPECT_EQ(scalar(BuiltinId::Len, {text("abc")}), "int 3");
    EXPECT_EQ(scalar(BuiltinId::StringLen, {text("abc")}), "int 3");
    EXPECT_EQ(scalar(BuiltinId::StringLen, {number(3)}),
              "raised string['len'](s) requires exactly 1 string argument");
    EXPECT_EQ(scalar(BuiltinId::Utf8Len, {text("a\xc3\xa9")}), "int 2");
    EXPECT_EQ(scalar(BuiltinId::MathFloor, {Variable::makeFloat(-1.5F)}), "int -2");
    EXPECT_EQ(scalar(BuiltinId::MathAbs, {Variable::makeFloat(-1.5F)}), "float 1.500000");
    EXPECT_EQ(scalar(BuiltinId::MathSqrt, {number(9)}), "float 3.000000");
    EXPECT_EQ(scalar(BuiltinId::MathMin, {Variable::makeBool(true), number(2)}), "bool true");
    EXPECT_EQ(scalar(BuiltinId::MathMax, {Variable()}), "not not");
    EXPECT_EQ(scalar(BuiltinId::MathMax, {text("a"), text("b")}), "string declined");
    EXPECT_EQ(scalar(BuiltinId::MathMin, {Variable::makeArray()}), "string declined");
    EXPECT_EQ(scalar(BuiltinId::GetTimeMs, {number(1)}),
              "raised getTimeMs function takes no arguments");
    EXPECT_EQ(scalar(BuiltinId::GetTimeMs, {}).substr(0, 4), "int ");
}

TEST_F(Registry, TheScalarRouteRunsNoOtherNative) {
    const Variable list = Variable::makeArray({number(1)});
    for (int id = 0; id < 256; ++id) {
        const bool scalarNative =
            id == 2 || id == 4 || id == 13 || id == 14 || id == 20 || (id >= 27 && id <= 37);
        if (scalarNative) continue;
        // Most would raise something without arguments, and some would change the list.
        EXPECT_EQ(scalar(idOf(id), {}), "string declined") << id;
        EXPECT_EQ(scalar(idOf(id), {list, number(1)}), "string declined") << id;
    }
    EXPECT_EQ(list.toString(), "[1]");
}

TEST_F(Registry, TheScalarRouteLooksAtARangeOfBytesFirst) {
    const auto bytes = [this](const std::vector<Variable>& values) {
        return scalar(BuiltinId::StringByte, values);
    };
    EXPECT_EQ(bytes({text("abc")}), "int 97");
    EXPECT_EQ(bytes({text("abc"), number(-1)}), "int 99");
    EXPECT_EQ(bytes({text("abc"), number(9)}), "not not");
    EXPECT_EQ(bytes({text("abc"), number(2), number(2)}), "int 98");
    EXPECT_EQ(bytes({text("abc"), number(0), number(1)}), "int 97");
    EXPECT_EQ(bytes({text("abc"), number(3), number(9)}), "int 99");
    EXPECT_EQ(bytes({text("abc"), number(3), number(1)}), "not not");
    EXPECT_EQ(bytes({text("abc"), number(9), number(9)}), "not not");
    EXPECT_EQ(bytes({text(""), number(1), number(2)}), "not not");
    EXPECT_EQ(bytes({text("abc"), number(1), number(2)}), "string declined");
    EXPECT_EQ(bytes({text("abc"), number(-2), number(-1)}), "string declined");
    // Surplus arguments are enough for a refusal, whatever they are.
    EXPECT_EQ(bytes({text("abc"), number(2), number(2), number(0)}), "string declined");
    EXPECT_EQ(bytes({text("abc"), text("x"), Variable(), Variable()}), "string declined");
    // What is no string is left to the native.
    EXPECT_EQ(bytes({number(65), number(1), number(2)}),
              "raised string['byte'](s[, i[, j]]) requires a string");
    EXPECT_EQ(bytes({}), "raised string['byte'](s[, i[, j]]) requires a string");
    EXPECT_EQ(bytes({text("abc"), text("x"), number(2)}), "raised Expected a numeric value");
}

/// The walking order of a table is that of the standard map that was filled in the same way.
TEST_F(Registry, ValuesComeInTheOrderOfTheMap) {
    std::unordered_map<std::string, Variable> same;
    std::string source = "t = {}\n";
    for (int i = 1; i <= 40; ++i) {
        const std::string key = "key" + std::to_string(i * i);
        same[key] = number(i);
        source += "t[\"" + key + "\"] = " + std::to_string(i) + "\n";
    }
    same.erase("key4");
    same.erase("key900");
    source += "erase(t, \"key4\")\nerase(t, \"key900\")\nlist = values(t)\ntext = toString(t)\n";
    interpreter.runScript(source);
    std::string values;
    std::string entries;
    for (const auto& [key, value] : same) {
        values += (values.empty() ? "" : ", ") + value.toString();
        entries += (entries.empty() ? "" : ", ") + key + ": " + value.toString();
    }
    EXPECT_EQ(global("list").toString(), "[" + values + "]");
    EXPECT_EQ(global("text").toString(), "{" + entries + "}");
}

}  // namespace
