// Variables through their tokens: places and globals that these meet, stores, and updates in place.
#include <span>
#include <utility>

#include "eval/errors.h"
#include "eval/indexed_store.h"
#include "eval/variable_access.h"
#include "exec/machine.h"
#include "exec/machine_leaf_guard.h"
#include "exec/machine_values.h"
#include "value/operators.h"

const Variable* Machine::read(VariableRecord& record) {
    if (const Variable* value = globalOf(record)) return value;
    const LeafGuard leaf(*this, record.isInLeaf);
    const Variable* value = interpreter_.readVariable(*record.token);
    if (record.global == nullptr && value != nullptr && !record.hasPlace &&
        record.token->globalSlotFound && record.token->globalSlot == record.name()->globalSlot &&
        value == record.token->globalValue && interpreter_.isInNoScope(record.name())) {
        record.setGlobal(record.token->globalValue);
    }
    return value;
}

void Machine::meetGlobal(const MachineCode& code, MachineInstruction& instruction,
                         VariableRecord& record, Op op) {
    if (record.global != nullptr || !interpreter_.isInNoScope(record.name())) return;
    const TokenAnalysis& token = *record.token;
    if (!token.globalSlotFound || token.globalSlot != record.name()->globalSlot) return;
    if (token.globalValue == nullptr) return;
    record.setGlobal(token.globalValue);
    instruction.op = op;
    makeStale(code);
}

/// The code is to be made anew if the token leads to the record's place, or to a global, by now.
void Machine::meetPlace(const MachineCode& code, const VariableRecord& record) {
    const TokenAnalysis& token = *record.token;
    const bool isMet =
        record.hasPlace
            ? token.slotKind == SlotKind::Frame && token.slotDepth == record.frameDepth &&
                  token.slotIndex == record.entry
            : token.globalSlotFound && token.globalSlot == record.name()->globalSlot &&
                  token.globalValue != nullptr && interpreter_.isInNoScope(record.name());
    if (isMet) makeStale(code);
}

void Machine::getVariable(const MachineCode& code, const MachineInstruction& at, Variable& target) {
    auto& record = const_cast<VariableRecord&>(code.variables[static_cast<std::size_t>(at.d())]);
    const LeafGuard leaf(*this, record.isInLeaf);
    const Variable* value = interpreter_.readVariable(*record.token);
    if (value != nullptr) {
        if (at.m != 0 && isSpoiled(*value)) throwBadVariantAccess();
        target = *value;
    } else {
        target.setNil();
    }
    if (record.isInLeaf && record.token->slotKind == SlotKind::Parameter) {
        makeStale(code);
        return;
    }
    meetGlobal(code, const_cast<MachineInstruction&>(at), record, Op::GetGlobal);
}

void Machine::getPlace(const MachineCode& code, const MachineInstruction& at, Variable& target) {
    const VariableRecord& record = code.variables[static_cast<std::size_t>(at.d())];
    const Variable* value = interpreter_.readVariable(*record.token);
    if (value != nullptr) {
        if (at.m != 0 && isSpoiled(*value)) throwBadVariantAccess();
        target = *value;
    } else {
        target.setNil();
    }
    const TokenAnalysis& token = *record.token;
    if (token.slotKind != SlotKind::Frame || token.slotDepth != record.frameDepth ||
        token.slotIndex != record.entry) {
        return;
    }
    // From now on the token always leads there.
    auto& instruction = const_cast<MachineInstruction&>(at);
    instruction.op = Op::Move;
    instruction.b = record.place;
    instruction.c = 0;
    makeStale(code);
}

void Machine::setVariable(const MachineCode& code, const MachineInstruction& at, Variable& value) {
    auto& record = const_cast<VariableRecord&>(code.variables[static_cast<std::size_t>(at.d())]);
    const TokenAnalysis& token = *record.token;
    if (Variable* variable = interpreter_.variableForWriting(token)) {
        *variable = std::move(value);
    } else {
        interpreter_.createGlobal(token, std::move(value));
    }
    value.setNil();
    if (record.hasPlace) {
        meetPlace(code, record);
        return;
    }
    static_cast<void>(record.name()->globalSlot == kNoGlobalSlot
                          ? interpreter_.resolveVariablePtr(record.name())
                          : nullptr);
    meetGlobal(code, const_cast<MachineInstruction&>(at), record, Op::SetGlobal);
}

void Machine::declareByName(const VariableRecord& record, Variable& value, ScopeTarget target) {
    interpreter_.assignVariable(record.name(), value, target);
    value.setNil();
}

/// The variable whose elements a statement writes; null if there is none.
Variable* Machine::variableForStore(const MachineCode& code, std::uint16_t index) {
    auto& record = const_cast<VariableRecord&>(code.variables[index]);
    if (Variable* variable = globalOf(record)) return variable;
    const TokenAnalysis& token = *record.token;
    Variable* variable = interpreter_.variableForWriting(token);
    if (record.hasPlace) {
        meetPlace(code, record);
    } else if (record.global == nullptr && interpreter_.isInNoScope(record.name()) &&
               token.globalSlotFound && token.globalSlot == record.name()->globalSlot &&
               variable == token.globalValue) {
        record.setGlobal(variable);
    }
    return variable;
}

/// The store of an element at `keys` of a variable that there is not: a plain one makes it.
void Machine::storeIntoNew(const MachineCode& code, Pc pc, std::uint16_t index,
                           std::span<const Variable> keys, const Variable& value, bool isPlain) {
    const VariableRecord& record = code.variables[index];
    if (!isPlain) {
        showPosition(code, pc);
        interpreter_.throwError("Variable not found: " + record.name()->text, record.name()->text);
    }
    Variable base = makeContainerFor(keys[0]);
    // With several keys the variable is there before the walk, which may fail.
    if (keys.size() > 1) interpreter_.createGlobal(*record.token, base);
    Variable* last = walkToLastContainer(interpreter_, base, keys, true);
    interpreter_.setIndexedValue(*last, keys.back(), value, true);
    interpreter_.assignVariableFast(*record.token, base, ScopeTarget::Default);
}

void Machine::update(Variable* variable, const MachineCode& code, Pc pc, Variable& operand) {
    const char operation = static_cast<char>(pc->m);
    const FastScalarValue scalar = scalarFromVariable(operand);
    bool isScalar = scalar.isSet();
    switch (static_cast<OperandOrigin>(pc->c)) {
        case OperandOrigin::Call: isScalar = isScalar && lastCallWasScalar_; break;
        case OperandOrigin::General: isScalar = false; break;
        case OperandOrigin::Scalar: break;
        case OperandOrigin::Unknown: {
            const bool keepsKind =
                variable->type == VarType::Int ? operation != '/' : operation != '\\';
            const bool isSameNumber =
                variable->type == operand.type && variable->type != VarType::Bool && keepsKind;
            if (!isScalar || !variable->isNumeric() || isSameNumber) break;
            // The kinds mix: it is the scalar tier's word that counts, and it says it again.
            const MachineStatement& statement = statementAt(code, pc);
            const ParsedScriptLine& line = lineOf(statement.line);
            const FastExpression& value = line.assignment->values[0];
            FastScalarValue again{};
            isScalar = interpreter_.tryEvaluateFastExpressionScalarNode(value, value.root,
                                                                        line.tokenAnalysis, again);
            break;
        }
    }
    if (isScalar && tryApplyFastScalarOperationInPlace(*variable, operation, scalar)) {
        operand.setNil();
        return;
    }
    if (!tryApplyOperationInPlace(*variable, operation, operand)) {
        *variable = performOperation(*variable, operation, operand);
    }
    operand.setNil();
}
