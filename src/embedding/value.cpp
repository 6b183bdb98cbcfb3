#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "embedding/state.h"
#include "eval/errors.h"
#include "value/array_storage.h"
#include "value/numbers.h"
#include "value/table.h"

namespace dovrel {

using detail::Reference;
using detail::State;
using detail::TextContent;

namespace {

Kind kindOf(const Variable& variable) {
    switch (variable.type) {
        case VarType::Nil: return Kind::Nil;
        case VarType::Int: return Kind::Int;
        case VarType::Float: return Kind::Float;
        case VarType::String: return Kind::String;
        case VarType::Bool: return Kind::Bool;
        case VarType::Array: return Kind::Array;
        case VarType::Table: return Kind::Table;
        case VarType::Function: return Kind::Function;
        case VarType::Multi: return Kind::Several;
        case VarType::Raw:
        case VarType::Pointer: break;
    }
    return Kind::Nil;
}

}  // namespace

// ---------------------------------------------------------------- both ways

Value State::valueOf(const Variable& variable) {
    const ContextScope outside(nullptr);
    Value value;
    value.kind_ = kindOf(variable);
    switch (value.kind_) {
        case Kind::Nil: break;
        case Kind::Bool: value.int_ = variable.asBool() ? 1 : 0; break;
        case Kind::Int: value.int_ = variable.asInt(); break;
        case Kind::Float: value.float_ = variable.asFloat(); break;
        case Kind::String:
            value.content_ = std::make_shared<TextContent>(variable.asString());
            break;
        case Kind::Array:
        case Kind::Table:
        case Kind::Function:
        case Kind::Several:
            value.content_ = std::make_shared<Reference>(shared_from_this(), variable);
            break;
    }
    return value;
}

const Reference* State::referenceOf(const Value& value) {
    return dynamic_cast<const Reference*>(value.content_.get());
}

State& State::stateOf(const Value& value) {
    const Reference* const reference = referenceOf(value);
    if (reference == nullptr) detail::throwKind(value, "an array or a table");
    reference->state->requireOpen();
    return *reference->state;
}

Variable State::variableOf(const Value& value) {
    switch (value.kind_) {
        case Kind::Nil: break;
        case Kind::Bool: return Variable::makeBool(value.int_ != 0);
        case Kind::Int: return Variable::makeInt(value.int_);
        case Kind::Float: return Variable::makeFloat(value.float_);
        case Kind::String: return Variable(std::string(value.text()));
        case Kind::Array:
        case Kind::Table:
        case Kind::Function:
        case Kind::Several: {
            if (const auto* held =
                    dynamic_cast<const detail::SeveralContent*>(value.content_.get())) {
                std::vector<Variable> values;
                values.reserve(held->values.size());
                for (const Value& one : held->values) values.push_back(variableOf(one));
                return Variable::makeMulti(std::move(values));
            }
            const Reference* const reference = referenceOf(value);
            if (reference->state.get() != this) {
                throw Error("the value is of another interpreter", Reason::Usage);
            }
            return reference->variable;
        }
    }
    return {};
}

Value State::severalOf(const Value* values, std::size_t count) {
    if (count == 0) return {};
    if (count == 1) return values[0];
    Value value;
    value.kind_ = Kind::Several;
    auto content = std::make_shared<detail::SeveralContent>();
    content->values.assign(values, values + count);
    value.content_ = std::move(content);
    return value;
}

Value detail::several(const Value* values, std::size_t count) {
    return State::severalOf(values, count);
}

// ---------------------------------------------------------------- values

Value::Value(std::string_view text) : kind_(Kind::String) {
    const ContextScope outside(nullptr);
    content_ = std::make_shared<TextContent>(text);
}

std::string_view Value::text() const {
    if (kind_ != Kind::String) detail::throwKind(*this, "a string");
    return static_cast<const TextContent&>(*content_).text;
}

Value Value::shown() const {
    switch (kind_) {
        case Kind::Nil: return Value(Variable().toString());
        case Kind::Bool: return Value(Variable::makeBool(int_ != 0).toString());
        case Kind::Int: return Value(Variable::makeInt(int_).toString());
        case Kind::Float: return Value(Variable::makeFloat(float_).toString());
        case Kind::String: return *this;
        default: break;
    }
    State& state = State::stateOf(*this);
    Value result;
    // Containers may be deep.
    state.enter([&] {
        const Variable text(State::referenceOf(*this)->variable.toString());
        result = state.valueOf(text);
    });
    return result;
}

std::size_t Value::size() const {
    if (kind_ == Kind::String) return text().size();
    if (const auto* held = dynamic_cast<const detail::SeveralContent*>(content_.get())) {
        return held->values.size();
    }
    const bool isSized = kind_ == Kind::Array || kind_ == Kind::Table || kind_ == Kind::Several;
    if (!isSized) detail::throwKind(*this, "an array, a table or a string");
    static_cast<void>(State::stateOf(*this));
    const Variable& variable = State::referenceOf(*this)->variable;
    if (kind_ == Kind::Array) return variable.asArray()->size();
    return kind_ == Kind::Table ? variable.asTable()->size() : variable.asMulti()->values.size();
}

Value Value::operator[](const Value& key) const {
    if (const auto* held = dynamic_cast<const detail::SeveralContent*>(content_.get())) {
        const auto index = key.as<std::size_t>();
        return index >= 1 && index <= held->values.size() ? held->values[index - 1] : Value();
    }
    State& state = State::stateOf(*this);
    return state.visit([&] {
        const Variable& variable = State::referenceOf(*this)->variable;
        if (kind_ == Kind::Several) {
            const std::vector<Variable>& values = variable.asMulti()->values;
            const auto index = key.as<std::size_t>();
            return index >= 1 && index <= values.size() ? state.valueOf(values[index - 1])
                                                        : Value();
        }
        return state.valueOf(state.script->getIndexedValue(variable, state.variableOf(key)));
    });
}

void Value::set(const Value& key, const Value& value) const {
    if (kind_ != Kind::Array && kind_ != Kind::Table) {
        detail::throwKind(*this, "an array or a table");
    }
    State& state = State::stateOf(*this);
    state.visit([&] {
        const Variable& variable = State::referenceOf(*this)->variable;
        const Variable content = state.variableOf(value);
        if (kind_ == Kind::Table) {
            const Text text = keyText(state.variableOf(key));
            (*variable.asTable())[text] = content;
            return;
        }
        if (key.kind_ != Kind::Int || key.int_ < 1) {
            throw Error("a position of an array is an int from 1 on", Reason::Usage);
        }
        ArrayStorage& elements = *variable.asArray();
        const auto place = static_cast<std::size_t>(key.int_) - 1;
        if (place >= elements.size()) elements.resize(place + 1);
        elements[place] = content;
    });
}

void Value::push(const Value& value) const {
    if (kind_ != Kind::Array) detail::throwKind(*this, "an array");
    State& state = State::stateOf(*this);
    state.visit(
        [&] { State::referenceOf(*this)->variable.asArray()->push_back(state.variableOf(value)); });
}

bool Value::erase(const Value& key) const {
    if (kind_ != Kind::Table) detail::throwKind(*this, "a table");
    State& state = State::stateOf(*this);
    return state.visit([&] {
        const Text text = keyText(state.variableOf(key));
        return State::referenceOf(*this)->variable.asTable()->erase(text->text);
    });
}

Value Value::allKeys() const {
    if (kind_ != Kind::Array && kind_ != Kind::Table) {
        detail::throwKind(*this, "an array or a table");
    }
    State& state = State::stateOf(*this);
    return state.visit([&] {
        const Variable& variable = State::referenceOf(*this)->variable;
        ArrayStorage keys;
        if (kind_ == Kind::Table) {
            const std::shared_ptr<const TableSnapshot> snapshot = variable.asTable()->snapshot();
            keys = ArrayStorage(snapshot->keyValues);
        } else {
            const std::size_t count = variable.asArray()->size();
            keys.reserve(count);
            for (std::size_t i = 1; i <= count; ++i) {
                keys.push_back(Variable::makeInt(static_cast<int>(i)));
            }
        }
        return state.valueOf(Variable::makeArray(std::move(keys)));
    });
}

Value Value::first() const {
    if (kind_ != Kind::Several) return *this;
    return (*this)[Value(1)];
}

Value Value::callWith(const Value* arguments, std::size_t count) const {
    if (kind_ != Kind::Function) detail::throwKind(*this, "a function");
    State& state = State::stateOf(*this);
    // A copy inside: the call may end with the last reference to the function.
    return state.call(State::referenceOf(*this)->variable, arguments, count);
}

bool Value::operator==(const Value& other) const noexcept {
    if (kind_ != other.kind_) return false;
    switch (kind_) {
        case Kind::Nil: return true;
        case Kind::Bool:
        case Kind::Int: return int_ == other.int_;
        case Kind::Float: return float_ == other.float_;
        case Kind::String:
            return static_cast<const TextContent&>(*content_).text ==
                   static_cast<const TextContent&>(*other.content_).text;
        default: break;
    }
    if (content_ == other.content_) return true;
    const Reference* const one = State::referenceOf(*this);
    const Reference* const two = State::referenceOf(other);
    return one != nullptr && two != nullptr && one->variable.sameContent(two->variable);
}

}  // namespace dovrel
