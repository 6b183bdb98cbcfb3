#include "value/containers.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "eval/indexed_store.h"
#include "interpreter/dovrel_script.h"

namespace {

class Containers : public testing::Test {
protected:
    template <typename Action>
    static std::string messageOf(Action action) {
        try {
            action();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing was raised";
    }
    std::string setFailure(Variable& container, const Variable& key, const Variable& value,
                           bool create) {
        return messageOf([&] { interpreter_.setIndexedValue(container, key, value, create); });
    }
    std::string mutableFailure(Variable& container, const Variable& key, bool create) {
        return messageOf([&] {
            static_cast<void>(interpreter_.getIndexedValueMutable(container, key, create));
        });
    }

    DovrelScript interpreter_;
    const Variable one_ = Variable::makeInt(1);
    const Variable two_ = Variable::makeInt(2);
    const Variable name_ = Variable("k");
};

Variable arrayOf(ArrayStorage elements) { return Variable::makeArray(std::move(elements)); }

TEST_F(Containers, PromotionTurnsPositionsIntoKeys) {
    Variable value = arrayOf({Variable("a"), Variable(), Variable("c")});
    const Variable other = value;
    promoteArrayVariableToTable(value);
    ASSERT_EQ(value.type, VarType::Table);
    const TableStorage& table = *value.asTable();
    ASSERT_EQ(table.size(), 3U);
    EXPECT_EQ(table.at("1").asString(), "a");
    EXPECT_TRUE(table.at("2").isNil());
    EXPECT_EQ(table.at("3").asString(), "c");
    ASSERT_EQ(other.type, VarType::Array);
    EXPECT_EQ(other.asArray()->size(), 3U);
}

TEST_F(Containers, PromotionLeavesOtherKindsAlone) {
    Variable text("abc");
    promoteArrayVariableToTable(text);
    EXPECT_EQ(text.asString(), "abc");
    Variable table = Variable::makeTable();
    const auto storage = table.asTable();
    promoteArrayVariableToTable(table);
    EXPECT_EQ(table.asTable(), storage);
    Variable nil;
    promoteArrayVariableToTable(nil);
    EXPECT_TRUE(nil.isNil());
}

TEST_F(Containers, ReadingMakesNothing) {
    const Variable table = Variable::makeTable();
    EXPECT_TRUE(interpreter_.getIndexedValue(table, name_).isNil());
    EXPECT_TRUE(table.asTable()->empty());
    const Variable array = Variable::makeArray();
    EXPECT_TRUE(interpreter_.getIndexedValue(array, one_).isNil());
    EXPECT_TRUE(array.asArray()->empty());
    EXPECT_EQ(array.type, VarType::Array);
}

TEST_F(Containers, AMutableElementIsTheElement) {
    Variable table = Variable::makeTable(TableStorage{{"k", Variable::makeInt(5)}});
    Variable* element = interpreter_.getIndexedValueMutable(table, name_, false);
    ASSERT_NE(element, nullptr);
    element->setInt(6);
    EXPECT_EQ(table.asTable()->at("k").asInt(), 6);

    Variable array = arrayOf({Variable::makeInt(5)});
    interpreter_.getIndexedValueMutable(array, Variable::makeFloat(1.0F), false)->setInt(7);
    EXPECT_EQ((*array.asArray())[0].asInt(), 7);
}

TEST_F(Containers, AMissingElementIsMadeWithCreate) {
    Variable table = Variable::makeTable();
    EXPECT_TRUE(interpreter_.getIndexedValueMutable(table, name_, true)->isNil());
    EXPECT_TRUE(table.asTable()->contains("k"));

    Variable array = Variable::makeArray();
    interpreter_.getIndexedValueMutable(array, Variable::makeInt(3), true)->setInt(1);
    EXPECT_EQ(array.toString(), "[not, not, 1]");

    Variable turning = arrayOf({Variable::makeInt(1)});
    interpreter_.getIndexedValueMutable(turning, Variable::makeInt(0), true)->setInt(0);
    ASSERT_EQ(turning.type, VarType::Table);
    EXPECT_EQ(turning.asTable()->at("0").asInt(), 0);
    EXPECT_EQ(turning.asTable()->at("1").asInt(), 1);
}

TEST_F(Containers, AMissingElementIsRefusedWithoutCreate) {
    Variable table = Variable::makeTable();
    EXPECT_EQ(mutableFailure(table, name_, false), "Table key not found: k");
    EXPECT_EQ(mutableFailure(table, Variable::makeFloat(1.5F), false),
              "Table key not found: 1.500000");
    EXPECT_EQ(setFailure(table, two_, one_, false), "Table key not found: 2");
    EXPECT_TRUE(table.asTable()->empty());

    Variable array = arrayOf({Variable("a")});
    for (const bool mutableAccess : {true, false}) {
        const auto failure = [&](const Variable& key) {
            return mutableAccess ? mutableFailure(array, key, false)
                                 : setFailure(array, key, one_, false);
        };
        EXPECT_EQ(failure(two_), "Array index out of range");
        EXPECT_EQ(failure(Variable::makeInt(0)), "Array index must be >= 1");
        EXPECT_EQ(failure(Variable::makeFloat(-1.0F)), "Array index must be >= 1");
        EXPECT_EQ(failure(name_), "Array index must be an int");
        EXPECT_EQ(failure(Variable::makeFloat(1.5F)), "Array index must be an int");
        EXPECT_EQ(failure(Variable::makeBool(true)), "Array index must be an int");
        EXPECT_EQ(failure(Variable()), "Array index must be an int");
    }
    EXPECT_EQ(array.toString(), "[a]");
}

TEST_F(Containers, KindsWithoutElements) {
    std::vector<Variable> others = {
        Variable(),
        Variable::makeInt(1),
        Variable::makeFloat(1.0F),
        Variable::makeBool(true),
        Variable(VarType::Raw, ValueStorage(std::vector<char>{'a'})),
        Variable(VarType::Pointer, ValueStorage(static_cast<void*>(nullptr))),
        Variable::makeMulti({one_}),
        Variable::makeFunction(Shared<ScriptCallable>::make())};
    for (Variable& container : others) {
        EXPECT_EQ(
            messageOf([&] { static_cast<void>(interpreter_.getIndexedValue(container, one_)); }),
            "Indexing requires an array, table, or string");
        EXPECT_EQ(setFailure(container, one_, one_, true),
                  "Indexing requires an array, table, or string");
        EXPECT_EQ(mutableFailure(container, one_, true), "Indexing requires an array or table");
        EXPECT_EQ(messageOf([&] { static_cast<void>(interpreter_.arrayLength(container)); }),
                  "len(x) expects an array, table, or string");
    }
}

TEST_F(Containers, AStringHasNoMutableElement) {
    Variable text("abc");
    EXPECT_EQ(mutableFailure(text, one_, true), "Indexing requires an array or table");
    interpreter_.setIndexedValue(text, two_, Variable("X"), false);
    EXPECT_EQ(text.asString(), "aXc");
}

TEST_F(Containers, LengthsOfEachKind) {
    EXPECT_EQ(interpreter_.arrayLength(Variable(std::string("a\0b", 3))), 3);
    EXPECT_EQ(interpreter_.arrayLength(arrayOf({Variable(), Variable()})), 2);
    Variable table = Variable::makeTable();
    EXPECT_EQ(interpreter_.arrayLength(table), 0);
    interpreter_.setIndexedValue(table, one_, Variable(), true);
    EXPECT_EQ(interpreter_.arrayLength(table), 1);
    EXPECT_EQ(interpreter_.numericTableLength(nullptr), 0);
}

// Every way to make a key must move the generation, or the snapshot goes stale.
TEST_F(Containers, NewKeysReachTheSnapshot) {
    Variable table = Variable::makeTable();
    const auto keys = [&] {
        std::vector<std::string> texts;
        for (const Text& key : table.asTable()->snapshot()->keys) texts.push_back(key->text);
        return texts;
    };
    EXPECT_TRUE(keys().empty());
    interpreter_.setIndexedValue(table, name_, one_, true);
    EXPECT_EQ(keys(), std::vector<std::string>{"k"});
    static_cast<void>(interpreter_.getIndexedValueMutable(table, one_, true));
    EXPECT_EQ(keys(), (std::vector<std::string>{"1", "k"}));

    const auto before = table.asTable()->snapshot();
    interpreter_.setIndexedValue(table, name_, two_, true);
    interpreter_.setIndexedValue(table, name_, Variable(), false);
    EXPECT_EQ(table.asTable()->snapshot(), before);
}

TEST_F(Containers, ABoundMethodIsANamelessNative) {
    const Variable method = interpreter_.getIndexedValue(Variable("abc"), Variable("upper"));
    ASSERT_EQ(method.type, VarType::Function);
    const ScriptCallable& callable = *method.asFunction();
    EXPECT_TRUE(callable.isNative);
    EXPECT_EQ(callable.name, "");
    EXPECT_EQ(static_cast<int>(callable.builtinId), 0);
    EXPECT_EQ(interpreter_.invokeCallableFast(method, Arguments()).asString(), "ABC");
}

TEST_F(Containers, WhatANewContainerIs) {
    EXPECT_TRUE(prefersArrayStorage(one_));
    EXPECT_TRUE(prefersArrayStorage(Variable::makeFloat(1.0F)));
    EXPECT_FALSE(prefersArrayStorage(Variable::makeInt(0)));
    EXPECT_FALSE(prefersArrayStorage(Variable::makeInt(-1)));
    EXPECT_FALSE(prefersArrayStorage(Variable::makeFloat(1.5F)));
    EXPECT_FALSE(prefersArrayStorage(Variable::makeFloat(0.0F)));
    EXPECT_FALSE(prefersArrayStorage(Variable::makeFloat(4294967296.0F)));
    EXPECT_FALSE(prefersArrayStorage(Variable::makeBool(true)));
    EXPECT_FALSE(prefersArrayStorage(name_));
    EXPECT_FALSE(prefersArrayStorage(Variable()));
}

}  // namespace
