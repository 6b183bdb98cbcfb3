#include "value/variable.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "value/array_storage.h"
#include "value/script_callable.h"
#include "value/table.h"

namespace {

Variable rawOf(const std::string& bytes) {
    return Variable(VarType::Raw, ValueStorage(std::vector<char>(bytes.begin(), bytes.end())));
}

Variable pointerTo(void* address) { return Variable(VarType::Pointer, ValueStorage(address)); }

Variable functionValue() { return Variable::makeFunction(Shared<ScriptCallable>::make()); }

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing was raised";
}

TEST(VarType, HasItsFixedOrder) {
    EXPECT_EQ(static_cast<int>(VarType::Nil), 0);
    EXPECT_EQ(static_cast<int>(VarType::Int), 1);
    EXPECT_EQ(static_cast<int>(VarType::Float), 2);
    EXPECT_EQ(static_cast<int>(VarType::String), 3);
    EXPECT_EQ(static_cast<int>(VarType::Raw), 4);
    EXPECT_EQ(static_cast<int>(VarType::Bool), 5);
    EXPECT_EQ(static_cast<int>(VarType::Pointer), 6);
    EXPECT_EQ(static_cast<int>(VarType::Array), 7);
    EXPECT_EQ(static_cast<int>(VarType::Multi), 8);
    EXPECT_EQ(static_cast<int>(VarType::Table), 9);
    EXPECT_EQ(static_cast<int>(VarType::Function), 10);
    EXPECT_EQ(sizeof(VarType), 1U);
}

TEST(VarType, NamesOfTheKinds) {
    EXPECT_EQ(typeName(VarType::Nil), "not");
    EXPECT_EQ(typeName(VarType::Int), "int");
    EXPECT_EQ(typeName(VarType::Float), "float");
    EXPECT_EQ(typeName(VarType::String), "string");
    EXPECT_EQ(typeName(VarType::Raw), "raw");
    EXPECT_EQ(typeName(VarType::Bool), "bool");
    EXPECT_EQ(typeName(VarType::Pointer), "pointer");
    EXPECT_EQ(typeName(VarType::Array), "array");
    EXPECT_EQ(typeName(VarType::Multi), "multivalue");
    EXPECT_EQ(typeName(VarType::Table), "table");
    EXPECT_EQ(typeName(VarType::Function), "function");
    EXPECT_EQ(typeName(static_cast<VarType>(11)), "unknown");
    EXPECT_EQ(typeName(static_cast<VarType>(255)), "unknown");
}

TEST(Variable, StartsAsNilOverTheIntZero) {
    const Variable value;
    EXPECT_EQ(value.type, VarType::Nil);
    EXPECT_TRUE(value.isNil());
    EXPECT_EQ(value.asInt(), 0);
}

TEST(Variable, HoldsTheAlternativeOfItsKind) {
    int target = 0;
    EXPECT_EQ(Variable::makeInt(1).asInt(), 1);
    EXPECT_EQ(Variable::makeFloat(1.5F).asFloat(), 1.5F);
    EXPECT_EQ(Variable("text").asString(), "text");
    EXPECT_TRUE(Variable::makeBool(true).asBool());
    EXPECT_EQ(pointerTo(&target).asPointer(), &target);
    EXPECT_NE(Variable::makeArray().asArray(), nullptr);
    EXPECT_NE(Variable::makeTable().asTable(), nullptr);
    EXPECT_NE(functionValue().asFunction(), nullptr);
    EXPECT_NE(Variable::makeMulti({}).asMulti(), nullptr);

    EXPECT_EQ(Variable::makeInt(1).type, VarType::Int);
    EXPECT_EQ(Variable::makeFloat(1.5F).type, VarType::Float);
    EXPECT_EQ(Variable("text").type, VarType::String);
    EXPECT_EQ(Variable::makeBool(true).type, VarType::Bool);
    EXPECT_EQ(Variable::makeArray().type, VarType::Array);
    EXPECT_EQ(Variable::makeTable().type, VarType::Table);
    EXPECT_EQ(Variable::makeMulti({}).type, VarType::Multi);
    EXPECT_EQ(functionValue().type, VarType::Function);
}

TEST(Variable, NewContainersAreEmptyAndTheirOwn) {
    const Variable first = Variable::makeArray();
    const Variable second = Variable::makeArray();
    EXPECT_TRUE(first.asArray()->empty());
    EXPECT_NE(first.asArray(), second.asArray());
    const Variable table = Variable::makeTable();
    EXPECT_TRUE(table.asTable()->empty());
    EXPECT_EQ(table.asTable()->max_load_factor(), 1.0F);
    EXPECT_NE(table.asTable(), Variable::makeTable().asTable());
}

TEST(Variable, MultiTakesItsValuesOverWithoutCopying) {
    std::vector<Variable> values;
    values.push_back(Variable::makeInt(1));
    values.push_back(Variable("two"));
    const Variable* const place = values.data();
    const Variable multi = Variable::makeMulti(std::move(values));
    ASSERT_EQ(multi.asMulti()->values.size(), 2U);
    EXPECT_EQ(multi.asMulti()->values.data(), place);
    EXPECT_EQ(multi.asMulti()->values[1].asString(), "two");
}

TEST(Variable, CopiesShareContainersOnly) {
    const Variable array = Variable::makeArray();
    const Variable sameArray = array;
    sameArray.asArray()->push_back(Variable::makeInt(1));
    EXPECT_EQ(array.asArray()->size(), 1U);

    const Variable table = Variable::makeTable();
    const Variable sameTable = table;
    EXPECT_EQ(table.asTable(), sameTable.asTable());

    const Variable multi = Variable::makeMulti({});
    const Variable sameMulti = multi;
    EXPECT_EQ(multi.asMulti(), sameMulti.asMulti());

    Variable text("abc");
    const Variable copy = text;
    text.mutableString()[0] = 'X';
    EXPECT_EQ(text.asString(), "Xbc");
    EXPECT_EQ(copy.asString(), "abc");
}

TEST(Variable, TextOfEachKind) {
    EXPECT_EQ(Variable().toString(), "not");
    EXPECT_EQ(Variable::makeInt(-7).toString(), "-7");
    EXPECT_EQ(Variable::makeInt(std::numeric_limits<int>::min()).toString(), "-2147483648");
    EXPECT_EQ(Variable::makeFloat(0.1F).toString(), "0.100000");
    EXPECT_EQ(Variable::makeFloat(3.0F).toString(), "3.000000");
    EXPECT_EQ(Variable::makeFloat(1e10F).toString(), "10000000000.000000");
    EXPECT_EQ(Variable("it's").toString(), "it's");
    EXPECT_EQ(Variable(std::string("a\0b", 3)).toString(), std::string("a\0b", 3));
    EXPECT_EQ(Variable::makeBool(true).toString(), "true");
    EXPECT_EQ(Variable::makeBool(false).toString(), "false");
    EXPECT_EQ(Variable::makeMulti({}).toString(), "[multivalue]");
    EXPECT_EQ(functionValue().toString(), "[function]");
    int target = 0;
    EXPECT_EQ(pointerTo(&target).toString(), "[unconvertible type]");
    EXPECT_EQ(rawOf("bytes").toString(), "[unconvertible type]");
    EXPECT_EQ(Variable::makeArray(ArrayStorage{Variable::makeInt(1), rawOf("b")}).toString(),
              "[1, [unconvertible type]]");
}

TEST(Variable, TextOfContainers) {
    EXPECT_EQ(Variable::makeArray().toString(), "[]");
    EXPECT_EQ(Variable::makeTable().toString(), "{}");
    const Variable nested = Variable::makeArray(
        ArrayStorage{Variable::makeInt(1), Variable("a"), Variable::makeArray(), Variable(),
                     Variable::makeTable(TableStorage{{"key", Variable::makeFloat(1.5F)}})});
    EXPECT_EQ(nested.toString(), "[1, a, [], not, {key: 1.500000}]");
}

TEST(Variable, ATableIsWrittenInTheOrderOfItsMap) {
    TableStorage entries;
    std::unordered_map<std::string, Variable> map;
    for (int i = 0; i < 20; ++i) {
        entries.emplace(std::to_string(i), Variable::makeInt(i));
        map.emplace(std::to_string(i), Variable::makeInt(i));
    }
    std::string expected;
    for (const auto& [key, value] : map) {
        expected += (expected.empty() ? "{" : ", ") + key + ": " + value.toString();
    }
    EXPECT_EQ(Variable::makeTable(std::move(entries)).toString(), expected + "}");
}

TEST(Variable, KeysOfEachKind) {
    EXPECT_EQ(keyToString(Variable::makeInt(1)), "1");
    EXPECT_EQ(keyToString(Variable::makeInt(-30)), "-30");
    EXPECT_EQ(keyToString(Variable::makeFloat(1.5F)), "1.500000");
    EXPECT_EQ(keyToString(Variable::makeFloat(2.0F)), "2.000000");
    EXPECT_EQ(keyToString(Variable("")), "");
    EXPECT_EQ(keyToString(Variable("a b")), "a b");
    EXPECT_EQ(keyToString(Variable::makeBool(true)), "true");
    EXPECT_EQ(keyToString(Variable::makeBool(false)), "false");
}

TEST(Variable, OtherKindsAreNoKeys) {
    const std::string expected = "Table key must be string, number, or bool";
    for (const Variable& value :
         {Variable(), rawOf("a"), pointerTo(nullptr), Variable::makeArray(), Variable::makeTable(),
          Variable::makeMulti({}), functionValue()}) {
        EXPECT_EQ(messageOf([&] { static_cast<void>(keyToString(value)); }), expected)
            << typeName(value.type);
    }
}

TEST(Variable, OnlyNilAndFalseAreFalse) {
    EXPECT_FALSE(isTruthy(Variable()));
    EXPECT_FALSE(isTruthy(Variable::makeBool(false)));
    EXPECT_TRUE(isTruthy(Variable::makeBool(true)));
    EXPECT_TRUE(isTruthy(Variable::makeInt(0)));
    EXPECT_TRUE(isTruthy(Variable::makeFloat(0.0F)));
    EXPECT_TRUE(isTruthy(Variable("")));
    EXPECT_TRUE(isTruthy(rawOf("")));
    EXPECT_TRUE(isTruthy(pointerTo(nullptr)));
    EXPECT_TRUE(isTruthy(Variable::makeArray()));
    EXPECT_TRUE(isTruthy(Variable::makeMulti({})));
    EXPECT_TRUE(isTruthy(Variable::makeTable()));
    EXPECT_TRUE(isTruthy(functionValue()));
}

TEST(Variable, ADisagreementOfKindAndContentSurfaces) {
    Variable damaged = Variable::makeInt(1);
    damaged.type = VarType::Float;
    EXPECT_EQ(messageOf([&] { static_cast<void>(damaged.asFloat()); }), "bad_variant_access");
    EXPECT_EQ(messageOf([&] { static_cast<void>(damaged.toString()); }), "bad_variant_access");
    EXPECT_EQ(messageOf([&] { static_cast<void>(keyToString(damaged)); }), "bad_variant_access");
    damaged.type = VarType::Table;
    EXPECT_EQ(messageOf([&] { static_cast<void>(damaged.toString()); }), "bad_variant_access");
    damaged.type = VarType::Bool;
    EXPECT_EQ(messageOf([&] { static_cast<void>(isTruthy(damaged)); }), "bad_variant_access");
}

TEST(Variable, AnOverwrittenScalarIsWhole) {
    Variable value("text");
    value.setInt(5);
    EXPECT_EQ(value.type, VarType::Int);
    EXPECT_EQ(value.asInt(), 5);
    value.setFloat(0.5F);
    EXPECT_EQ(value.type, VarType::Float);
    EXPECT_EQ(value.asFloat(), 0.5F);
    value.setBool(true);
    EXPECT_EQ(value.type, VarType::Bool);
    EXPECT_TRUE(value.asBool());
    value.setNil();
    EXPECT_TRUE(value.isNil());
    EXPECT_EQ(value.asInt(), 0);
}

TEST(Variable, AnOverwrittenContainerIsReleased) {
    Variable value = Variable::makeArray();
    const Shared<ArrayStorage> array = value.asArray();
    EXPECT_EQ(array.useCount(), 2U);
    value.setNil();
    EXPECT_EQ(array.useCount(), 1U);
}

}  // namespace
