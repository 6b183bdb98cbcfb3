// What the machine's loop does not do at once: variables through their tokens, operators on other
// values than two numbers of a kind, elements.
#include "exec/machine_values.h"

#include <array>
#include <charconv>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "eval/binary_operation.h"
#include "eval/errors.h"
#include "eval/indexed_store.h"
#include "eval/scalar_arithmetic.h"
#include "eval/variable_access.h"
#include "exec/machine.h"
#include "frontend/operator_table.h"
#include "value/operators.h"
#include "value/table.h"
#include "value/text.h"

namespace {

int operatorNumber(NodeKind kind) {
    switch (kind) {
        case NodeKind::Equal: return kEqual;
        case NodeKind::NotEqual: return kNotEqual;
        case NodeKind::Less: return kLess;
        case NodeKind::Greater: return kGreater;
        case NodeKind::LessEqual: return kLessEqual;
        case NodeKind::GreaterEqual: return kGreaterEqual;
        case NodeKind::Add: return kAdd;
        case NodeKind::Subtract: return kSubtract;
        case NodeKind::Multiply: return kMultiply;
        case NodeKind::Divide: return kDivide;
        case NodeKind::IntDivide: return kIntDivide;
        case NodeKind::Modulo: return kModulo;
        default: return kPower;
    }
}

/// The texts of the values one behind the other.
std::string joinedTexts(const Variable* values, std::size_t count) {
    constexpr std::size_t kMost = 8;
    constexpr std::size_t kDigits = 11;  // a sign and the ten digits of the longest int
    std::array<std::string_view, kMost> pieces;
    std::array<std::array<char, kDigits>, kMost> digits;
    std::string text;
    std::size_t size = 0;
    std::size_t known = 0;
    for (; known < count && known < kMost; ++known) {
        const Variable& value = values[known];
        if (isTextValue(value)) {
            pieces[known] = value.asString();
        } else if (isIntValue(value)) {
            auto& room = digits[known];
            const auto end = std::to_chars(room.begin(), room.end(), value.rawInt());
            pieces[known] = {room.data(), static_cast<std::size_t>(end.ptr - room.data())};
        } else {
            break;
        }
        size += pieces[known].size();
    }
    text.reserve(size);
    for (std::size_t i = 0; i < known; ++i) text += pieces[i];
    for (std::size_t i = known; i < count; ++i) appendVariableStringFast(text, values[i]);
    return text;
}

/// Both tiers come to the same on two scalars.
bool tiersAgree(NodeKind kind, const FastScalarValue& left, const FastScalarValue& right) {
    if (kind >= NodeKind::Equal || kind == NodeKind::Divide) return true;
    if (kind == NodeKind::Power) return false;
    if (left.kind == ScalarKind::Int && right.kind == ScalarKind::Int) return true;
    return left.kind == ScalarKind::Float && right.kind == ScalarKind::Float &&
           kind <= NodeKind::Multiply;
}

}  // namespace

/// The innermost activation as a fast body, for whoever looks its parameters up by name.
class Machine::LeafGuard {
public:
    LeafGuard(Machine& machine, bool isLeaf)
        : interpreter_(machine.interpreter_),
          isLeaf_(isLeaf),
          callable_(interpreter_.fastCallable),
          args_(interpreter_.fastArgs),
          frameBase_(interpreter_.fastFrameBase) {
        if (!isLeaf) return;
        const Activation& running = machine.activations_.back();
        interpreter_.fastCallable = running.slot->asFunction().get();
        interpreter_.fastArgs = Arguments(running.base, running.code->parameterCount);
        interpreter_.fastFrameBase = interpreter_.frameScopes.size();
    }
    ~LeafGuard() {
        if (!isLeaf_) return;
        interpreter_.fastCallable = callable_;
        interpreter_.fastArgs = args_;
        interpreter_.fastFrameBase = frameBase_;
    }
    LeafGuard(const LeafGuard&) = delete;
    LeafGuard& operator=(const LeafGuard&) = delete;

private:
    DovrelScript& interpreter_;
    bool isLeaf_;
    const ScriptCallable* callable_;
    Arguments args_;
    std::size_t frameBase_;
};

// ---------------------------------------------------------------- variables

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

// ---------------------------------------------------------------- sites

const ExpressionSite* Machine::siteAt(const MachineCode& code, Pc pc, bool scalarForm) const {
    const auto at = static_cast<std::uint32_t>(pc - code.code.data());
    for (auto site = code.expressions.rbegin(); site != code.expressions.rend(); ++site) {
        if (site->first <= at && at < site->last && site->isScalarForm == scalarForm) {
            return &*site;
        }
    }
    return nullptr;
}

bool Machine::isWithinSite(const MachineCode& code, Pc pc, Pc mark) const {
    const ExpressionSite* site = siteAt(code, pc, false);
    if (site == nullptr) return false;
    const auto at = mark - code.code.data();
    return at >= static_cast<std::ptrdiff_t>(site->first) && mark <= pc;
}

/// Where the code goes on when an expression cannot: its general form, or behind it with what the
/// tiers themselves give. What waits in registers goes.
void Machine::decline(const MachineCode& code, Pc& pc, Variable* registers) {
    const auto at = static_cast<std::uint32_t>(pc - code.code.data());
    const ExpressionSite* site = nullptr;
    for (auto known = code.expressions.rbegin(); known != code.expressions.rend(); ++known) {
        if (known->first <= at && at < known->last) {
            site = &*known;
            break;
        }
    }
    for (std::size_t i = site->firstTemporary; i < site->endTemporary; ++i) {
        // Only what is no variable of a scope within: expressions open none.
        registers[i].setNil();
    }
    if (site->isScalarForm) {
        pc = code.code.data() + site->behind;
        return;
    }
    static_cast<void>(evaluateSite(code, pc, *site));
    switchToTurns(code, pc);
}

/// What has run may have scheduled a coroutine: the code goes on in the other form.
void Machine::switchToTurns(const MachineCode& code, Pc& pc) {
    if (code.forTurns || code.isLeaf || !givesTurns()) return;
    const MachineCode& turns = *turnsOf(code);
    const auto at = static_cast<std::size_t>(pc - code.code.data());
    // Behind what stands in front of it, so that nothing that only turns need is left out.
    pc = turns.code.data() + (at == 0 ? 0 : code.toOther[at - 1] + 1);
    activations_.back().code = &turns;
}

/// Evaluates an expression by the tiers. For a condition, `pc` is where it leads.
bool Machine::evaluateSite(const MachineCode& code, Pc& pc, const ExpressionSite& site) {
    showToken();
    const LeafGuard leaf(*this, code.isLeaf);
    const ParsedScriptLine& line = *site.line;
    if (site.isCondition) {
        const bool holds =
            interpreter_.evaluateCondition(line, "if", DovrelScript::ConditionTiers::BoolFirst);
        if (interpreter_.softErrorUnwinding()) return false;
        pc = code.code.data() + (holds ? site.behind : site.otherwise);
        return holds;
    }
    Variable value;
    if (site.node < 0) {
        value = interpreter_.evaluateFastExpression(*site.expression, line.tokenAnalysis);
    } else {
        FastScalarValue scalar{};
        if (!site.isGeneral && interpreter_.tryEvaluateFastExpressionScalarNode(
                                   *site.expression, site.node, line.tokenAnalysis, scalar)) {
            value = variableFromFastScalar(scalar);
        } else if (!interpreter_.softErrorUnwinding()) {
            value = interpreter_.evaluateFastExpressionNode(*site.expression, site.node,
                                                            line.tokenAnalysis);
        }
    }
    activations_.back().base[site.result] = std::move(value);
    if (interpreter_.softErrorUnwinding()) return true;
    if (site.last > site.first && !site.isScalarForm) pc = code.code.data() + site.behind;
    return true;
}

// ---------------------------------------------------------------- operators

/// `left op right` for an int and a float, where all tiers come to the same: an int that has a
/// float of its own, and an operator that rounds once. False, with nothing done, for everything
/// else.
static bool tryMixedNumbers(NodeKind kind, Variable& target, const Variable& left,
                            const Variable& right) {
    constexpr int kMostExact = 1 << 24;
    const auto narrowed = [](const Variable& value, float& number) {
        if (isFloatValue(value)) {
            number = value.rawFloat();
            return true;
        }
        if (!isIntValue(value)) return false;
        const int exact = value.rawInt();
        number = static_cast<float>(exact);
        return exact >= -kMostExact && exact <= kMostExact;
    };
    float a = 0.0F;
    float b = 0.0F;
    if (!isFloatValue(left) && !isFloatValue(right)) return false;
    if (!narrowed(left, a) || !narrowed(right, b)) return false;
    switch (kind) {
        case NodeKind::Add: target.setFloat(a + b); return true;
        case NodeKind::Subtract: target.setFloat(a - b); return true;
        case NodeKind::Multiply: target.setFloat(a * b); return true;
        case NodeKind::Divide:
            if (b == 0.0F) return false;
            target.setFloat(a / b);
            return true;
        default: return false;
    }
}

bool Machine::binary(const MachineCode& code, Pc& pc, NodeKind kind, Variable& target,
                     const Variable& left, const Variable& right) {
    if (tryMixedNumbers(kind, target, left, right)) return true;
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (tier == Tier::Either || tier == Tier::Scalar) {
        const FastScalarValue a = soundScalar(left);
        const FastScalarValue b = soundScalar(right);
        if (a.isSet() && b.isSet()) {
            const FastScalarValue result = scalarOperationOn(kind, a, b);
            if (result.isSet()) {
                if (tier == Tier::Either && !tiersAgree(kind, a, b)) {
                    if (declined_ != nullptr) {
                        if (isWithinSite(code, pc, declined_)) {
                            decline(code, pc, activations_.back().base);
                            return false;
                        }
                        declined_ = nullptr;
                    }
                    diverged_ = pc;
                }
                assignFastScalarToVariable(target, result);
                return true;
            }
        }
        if (tier == Tier::Scalar) {
            decline(code, pc, activations_.back().base);
            return false;
        }
        if (diverged_ != nullptr) {
            if (isWithinSite(code, pc, diverged_)) {
                decline(code, pc, activations_.back().base);
                return false;
            }
            diverged_ = nullptr;
        }
        declined_ = pc;
    }
    if (tier == Tier::Tokens) {
        target = applyBinaryOperator(operatorNumber(kind), left, right);
        return true;
    }
    Variable first = left;
    target = generalOperation(kind, first, right);
    return true;
}

/// A comparison of two texts, by their bytes.
static bool compareTexts(NodeKind kind, const Text& left, const Text& right) {
    if (kind == NodeKind::Equal) return isSameText(left, right);
    if (kind == NodeKind::NotEqual) return !isSameText(left, right);
    const int order = left->text.compare(right->text);
    switch (kind) {
        case NodeKind::Less: return order < 0;
        case NodeKind::LessEqual: return order <= 0;
        case NodeKind::Greater: return order > 0;
        default: return order >= 0;
    }
}

bool Machine::compare(const MachineCode& code, Pc& pc, NodeKind kind, const Variable& left,
                      const Variable& right, bool& truth) {
    if (areFloats(left, right)) {
        truth = compareNumbers(kind, left.asFloat(), right.asFloat());
        return true;
    }
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (isTextValue(left) && isTextValue(right) && tier != Tier::Scalar &&
        (tier != Tier::Either || diverged_ == nullptr)) {
        // The scalar tier has nothing to say, and nothing has to be evaluated anew.
        if (tier == Tier::Either) declined_ = pc;
        truth = compareTexts(kind, left.asText(), right.asText());
        return true;
    }
    if (tier == Tier::Either || tier == Tier::Scalar) {
        // Both tiers come to the same on two scalars.
        const FastScalarValue a = soundScalar(left);
        const FastScalarValue b = soundScalar(right);
        if (a.isSet() && b.isSet()) {
            const FastScalarValue result = scalarComparisonOn(kind, a, b);
            if (result.isSet()) {
                truth = result.truth();
                return true;
            }
        }
    }
    Variable result;
    if (!binary(code, pc, kind, result, left, right)) return false;
    truth = result.asBool();
    return true;
}

/// An operator on other values than two numbers of a kind, with the operands that go with it.
bool Machine::slowBinary(const MachineCode& code, Pc& pc, Variable* registers, NodeKind kind,
                         const Variable& left, const Variable& right) {
    const MachineInstruction at = *pc;
    if (!binary(code, pc, kind, registers[at.a], left, right)) return false;
    if ((at.m & kFirstGoes) != 0) registers[at.b].setNil();
    if ((at.m & kSecondGoes) != 0) registers[at.c].setNil();
    return true;
}

/// The same for the comparisons that jump.
bool Machine::slowCompare(const MachineCode& code, Pc& pc, Variable* registers, NodeKind kind,
                          const Variable& left, const Variable& right, bool& truth,
                          bool hasSecond) {
    const MachineInstruction at = *pc;
    if (!compare(code, pc, kind, left, right, truth)) return false;
    if ((at.m & kFirstGoes) != 0) registers[at.a].setNil();
    if (hasSecond && (at.m & kSecondGoes) != 0) registers[at.b].setNil();
    return true;
}

bool Machine::unary(const MachineCode& code, Pc& pc, Variable& target, const Variable& operand) {
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (pc->op == Op::Length) {
        const int length = interpreter_.arrayLength(operand);
        target.setInt(length);
        return true;
    }
    const bool isScalar = operand.type == VarType::Int || operand.type == VarType::Float ||
                          operand.type == VarType::Bool || operand.type == VarType::Nil;
    if (pc->op == Op::Not) {
        if (isScalar && (tier == Tier::Either || tier == Tier::Scalar)) {
            const FastScalarValue scalar = scalarFromVariable(operand);
            const bool isZero = scalar.kind != ScalarKind::Bool && scalar.kind != ScalarKind::Nil &&
                                !isScalarTruthy(scalar);
            // A zero is where the tiers differ.
            if (isZero && tier == Tier::Either) {
                decline(code, pc, activations_.back().base);
                return false;
            }
            target.setBool(!isScalarTruthy(scalar));
            return true;
        }
        if (tier == Tier::Scalar) {
            decline(code, pc, activations_.back().base);
            return false;
        }
        const bool holds = isTruthy(operand);
        if (tier == Tier::Either) declined_ = pc;
        target.setBool(!holds);
        return true;
    }
    if (operand.type == VarType::Float) {
        target.setFloat(-operand.asFloat());
        return true;
    }
    if (operand.type == VarType::Int || operand.type == VarType::Bool) {
        target.setInt(wrapNegate(toInt(operand)));
        return true;
    }
    if (tier == Tier::Scalar) {
        decline(code, pc, activations_.back().base);
        return false;
    }
    if (tier == Tier::Tokens) {
        // Near the operator.
        showPosition(code, pc);
        interpreter_.throwError("Unary '-' requires a numeric value", "-");
    }
    throwPlainError("Unary '-' requires a numeric value");
}

/// The truth of a value by the rule of the tier that has given it.
bool Machine::truth(const MachineCode& code, Pc& pc, const Variable& value, bool& holds) {
    const auto tier = static_cast<Tier>(pc->m & kTierMask);
    if (tier == Tier::General || tier == Tier::Tokens) {
        holds = isTruthy(value);
        return true;
    }
    const FastScalarValue scalar = scalarFromVariable(value);
    if (!scalar.isSet()) {
        if (tier == Tier::Scalar) {
            decline(code, pc, activations_.back().base);
            return false;
        }
        if (diverged_ != nullptr) {
            if (isWithinSite(code, pc, diverged_)) {
                decline(code, pc, activations_.back().base);
                return false;
            }
            diverged_ = nullptr;
        }
        declined_ = pc;
        holds = isTruthy(value);
        return true;
    }
    holds = isScalarTruthy(scalar);
    const bool isZero =
        !holds && (scalar.kind == ScalarKind::Int || scalar.kind == ScalarKind::Float);
    if (isZero && tier == Tier::Either && (pc->m & kAloneTest) == 0) {
        decline(code, pc, activations_.back().base);
        return false;
    }
    return true;
}

bool Machine::join(const MachineCode& code, Pc& pc, Variable& target, Variable* operands,
                   std::size_t count) {
    const auto clear = [&] {
        for (std::size_t i = 0; i < count; ++i) operands[i].setNil();
    };
    if (count >= 2 &&
        (operands[0].type == VarType::String || operands[1].type == VarType::String)) {
        const auto tier = static_cast<Tier>(pc->m & kTierMask);
        if (tier == Tier::Either) {
            if (diverged_ != nullptr) {
                if (isWithinSite(code, pc, diverged_)) {
                    decline(code, pc, activations_.back().base);
                    return false;
                }
                diverged_ = nullptr;
            }
            declined_ = pc;
        }
        std::string text = joinedTexts(operands, count);
        clear();
        target = Variable(std::move(text));
        return true;
    }
    Variable sum = std::move(operands[0]);
    operands[0].setNil();
    for (std::size_t i = 1; i < count; ++i) {
        Variable next;
        if (!binary(code, pc, NodeKind::Add, next, sum, operands[i])) return false;
        sum = std::move(next);
    }
    clear();
    target = std::move(sum);
    return true;
}

/// `variable + operand + ...` in `result`.
bool Machine::addToCopy(const MachineCode& code, Pc& pc, const Variable& variable,
                        Variable* operands, std::size_t count, Variable& result) {
    if (count == 1 && !isTextValue(operands[0])) {
        return binary(code, pc, NodeKind::Add, result, variable, operands[0]);
    }
    std::vector<Variable> all;
    all.reserve(count + 1);
    all.push_back(variable);
    all.insert(all.end(), operands, operands + count);
    return join(code, pc, result, all.data(), all.size());
}

/// The text of `variable` grows by the operands.
void Machine::growText(Variable& variable, Variable* operands, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        static_cast<void>(tryApplyOperationInPlace(variable, '+', operands[i]));
    }
    declined_ = nullptr;
}

bool Machine::append(const MachineCode& code, Pc& pc, Variable* registers) {
    const MachineInstruction at = *pc;
    Variable& variable = registers[at.a];
    Variable* const operands = registers + at.b;
    if (isTextValue(variable)) {
        growText(variable, operands, at.c);
    } else {
        Variable result;
        if (!addToCopy(code, pc, variable, operands, at.c, result)) return false;
        variable = std::move(result);
    }
    clearOperands(at, operands);
    return true;
}

bool Machine::appendGlobal(const MachineCode& code, Pc& pc, Variable* registers) {
    const Pc before = pc;
    const MachineInstruction at = *pc;
    Variable* const operands = registers + at.b;
    Variable& variable = *variableForStore(code, at.a);  // known, and globals stay
    if (isTextValue(variable)) {
        growText(variable, operands, at.c);
        clearOperands(at, operands);
        return true;
    }
    Variable result;
    const bool isJoined = addToCopy(code, pc, variable, operands, at.c, result);
    if (isJoined) {
        clearOperands(at, operands);
    } else {
        // The tiers have put it into the register of the site.
        const ExpressionSite* site = siteAt(code, before, false);
        result = std::move(registers[site->result]);
        registers[site->result].setNil();
    }
    *variableForStore(code, at.a) = std::move(result);
    return isJoined;
}

/// Several operands stand in registers of their own; a single one may be a variable.
void Machine::clearOperands(const MachineInstruction& at, Variable* operands) {
    if (at.c == 1 && (at.m & kSecondGoes) == 0) return;
    for (std::size_t i = 0; i < at.c; ++i) operands[i].setNil();
}

// ---------------------------------------------------------------- elements

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
