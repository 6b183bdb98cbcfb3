// Elements of arrays and tables, literals of these, and several values.
#include <span>
#include <utility>

#include "eval/indexed_store.h"
#include "eval/variable_access.h"
#include "exec/machine.h"
#include "exec/machine_values.h"
#include "value/operators.h"
#include "value/table.h"

bool Machine::index(const MachineCode& code, Pc& pc, Variable* registers, const Variable& base,
                    const Variable& key) {
    const MachineInstruction& at = *pc;
    const auto tier = static_cast<Tier>(at.m & kTierMask);
    Variable element;
    if (base.type == VarType::Array && key.type == VarType::Bool && (at.m & kIntTierKey) != 0) {
        // The int tier takes a bool for 0 or 1; the scalar tier declines it.
        element = elementOrNil(*base.asArray(), key.asBool() ? 1 : 0);
        if (tier == Tier::Either) declined_ = pc;
    } else {
        const bool isPlain = (base.type == VarType::Array && key.type == VarType::Int) ||
                             (base.type == VarType::Table && key.type != VarType::Nil);
        if (tier == Tier::Either && !isPlain) {
            if (diverged_ != nullptr) {
                if (isWithinSite(code, pc, diverged_)) {
                    decline(code, pc, registers);
                    return false;
                }
                diverged_ = nullptr;
            }
            declined_ = pc;
        }
        element = interpreter_.getIndexedValue(base, key);
    }
    if ((at.m & kFirstGoes) != 0) registers[at.b].setNil();
    const bool hasKeyRegister = at.op == Op::Index || at.op == Op::IndexGlobal ||
                                at.op == Op::IndexThrough || at.op == Op::IndexGlobalThrough;
    if (hasKeyRegister && (at.m & kSecondGoes) != 0) registers[at.c].setNil();
    registers[at.a] = std::move(element);
    return true;
}

void Machine::setIndex(Variable& base, const Variable& key, const Variable& value) {
    interpreter_.setIndexedValue(base, key, value, true);
}

void Machine::updateIndex(Variable& base, const Variable& key, const Variable& value,
                          char operation) {
    Variable element = interpreter_.getIndexedValue(base, key);
    if (!tryApplyOperationInPlace(element, operation, value)) {
        element = performOperation(element, operation, value);
    }
    interpreter_.setIndexedValue(base, key, element, false);
}

/// The element at the end of the keys, if all on the way to it is there; else null.
static Variable* elementAlong(Variable* base, std::span<const Variable> keys) {
    for (const Variable& key : keys) {
        if (base == nullptr) return nullptr;
        base = elementAt(*base, key);
    }
    return base;
}

void Machine::setPath(const MachineCode& code, Pc pc, Variable* registers) {
    const StoreSite& site = code.stores[static_cast<std::size_t>(pc->d())];
    // It reads its base like any other name, and writes it like any other name.
    const Variable* variable = &registers[site.base];
    if (site.isGlobal) variable = read(const_cast<VariableRecord&>(code.variables[site.base]));
    const std::span<const Variable> keys(registers + site.firstKey, site.keyCount);
    Variable& value = registers[site.value];
    const bool isPlain = site.operation == '\0';
    if (variable == nullptr) {
        storeIntoNew(code, pc, site.base, keys, value, isPlain);
    } else if (Variable* const element = elementAlong(
                   site.isGlobal ? globalOf(code.variables[site.base]) : &registers[site.base],
                   keys);
               element != nullptr &&
               (isPlain ||
                updateNumber(*element, static_cast<std::uint8_t>(site.operation), value))) {
        // Nothing has to be stored back under the name.
        if (isPlain) *element = std::move(value);
    } else {
        Variable base = *variable;
        Variable* last = walkToLastContainer(interpreter_, base, keys, isPlain);
        if (isPlain) {
            interpreter_.setIndexedValue(*last, keys.back(), value, true);
        } else {
            updateIndex(*last, keys.back(), value, site.operation);
        }
        if (site.isGlobal) {
            if (Variable* target = variableForStore(code, site.base)) *target = std::move(base);
        } else {
            registers[site.base] = std::move(base);
        }
    }
    for (std::size_t i = 0; i < site.keyCount; ++i) registers[site.firstKey + i].setNil();
    value.setNil();
}

void Machine::newArray(Variable* values, std::size_t count, Variable& target) {
    ArrayStorage elements;
    elements.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        elements.push_back(std::move(values[i]));
        values[i].setNil();
    }
    target = Variable::makeArray(std::move(elements));
}

void Machine::newTable(const TableSite& site, const MachineCode& code, Variable* registers,
                       Variable& target) {
    Variable made = Variable::makeTable();
    TableStorage& keyed = made.rawTable();
    if (site.record.has_value()) {
        keyed.fill(*site.record, [&](std::size_t i, Variable& value) {
            Variable& given = registers[site.entries[i].value];
            value = std::move(given);
            given.setNil();
        });
        target = std::move(made);
        return;
    }
    ArrayStorage positional;
    bool hasKeys = false;
    for (const TableSite::Entry& entry : site.entries) {
        Variable& value = registers[entry.value];
        if (entry.key < 0 && entry.keyRegister < 0) {
            if (hasKeys) keyed[intKeyText(static_cast<int>(positional.size() + 1))] = value;
            positional.push_back(std::move(value));
            value.setNil();
            continue;
        }
        if (!hasKeys) {
            hasKeys = true;
            for (std::size_t i = 0; i < positional.size(); ++i) {
                keyed[intKeyText(static_cast<int>(i + 1))] = positional[i];
            }
        }
        if (entry.key >= 0) {
            keyed[code.constants[static_cast<std::size_t>(entry.key)].asText()] = std::move(value);
        } else {
            Variable& key = registers[entry.keyRegister];
            keyed[keyText(key)] = std::move(value);
            key.setNil();
        }
        value.setNil();
    }
    target = hasKeys || site.entries.empty() ? std::move(made)
                                             : Variable::makeArray(std::move(positional));
}

void Machine::spread(Variable& result, Variable* targets, std::size_t count) {
    const Variable spread = std::move(result);
    result.setNil();
    if (spread.type == VarType::Multi) {
        const std::vector<Variable>& values = spread.asMulti()->values;
        for (std::size_t i = 0; i < count; ++i) {
            targets[i] = i < values.size() ? values[i] : Variable();
        }
        return;
    }
    targets[0] = spread;
    for (std::size_t i = 1; i < count; ++i) targets[i].setNil();
}

Variable Machine::multiOf(Variable* values, std::size_t count) {
    std::vector<Variable> all;
    all.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        all.push_back(std::move(values[i]));
        values[i].setNil();
    }
    return Variable::makeMulti(std::move(all));
}
