// What the loop leaves to the tiers: expressions whose scalar form declines, and calls in them.
#include <array>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "eval/scalar_math.h"
#include "exec/machine.h"
#include "exec/machine_leaf_guard.h"
#include "library/builtin_id.h"
#include "library/natives.h"
#include "value/table.h"

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

// ---------------------------------------------------------------- calls in scalar forms

bool Machine::isScalarCallee(const Variable* callee) const {
    if (callee == nullptr || callee->type != VarType::Function) return false;
    const ScriptCallable* callable = callee->asFunction().get();
    if (callable == nullptr) return false;
    if (callable->isNative) return mayGiveScalar(callable->builtinId);
    return !callable->isDecay && callable->fastBodyKind != FastBodyKind::None;
}

/// The callee of a call of the scalar tier, found without running anything; null for none.
const Variable* Machine::calleeOf(const MachineCode& code, const Variable* registers,
                                  const ScalarCallSite& site) {
    if (site.isMember) {
        const MemberSite& member = code.members[site.callee];
        const Variable* base = member.baseIsRegister
                                   ? &registers[member.base]
                                   : read(const_cast<VariableRecord&>(code.variables[member.base]));
        if (base == nullptr || base->type != VarType::Table) return nullptr;
        return base->rawTable().find(code.constants[member.key].asText());
    }
    if (site.isRegister) return &registers[site.callee];
    return read(const_cast<VariableRecord&>(code.variables[site.callee]));
}

/// The body of a one-line function, or its guard, makes calls.
bool Machine::runsCalls(const ScriptCallable& callable) {
    if (callable.fastBodyKind != FastBodyKind::SingleReturn || callable.bodyLines == nullptr ||
        callable.fastReturnLine >= callable.bodyLines->size()) {
        return true;
    }
    for (const FastExpression& value :
         (*callable.bodyLines)[callable.fastReturnLine].returnValues) {
        if (!value.valid || value.rootNode().holdsCall) return true;
    }
    return false;
}

/// Does what the scalar form around `pc` is about, and its general form, by the executor.
void Machine::evaluateWhole(const MachineCode& code, Pc& pc) {
    showToken();
    const ExpressionSite* site = siteAt(code, pc, true);
    ++counts.byTiers;
    if (site->isStatement) {
        const MachineStatement& statement = statementAt(code, pc);
        static_cast<void>(runStatement(code, statement));
        if (!interpreter_.softErrorUnwinding()) pc = code.code.data() + site->doneTrue;
    } else {
        bool holds = true;
        if (site->isCondition) {
            holds = interpreter_.evaluateCondition(*site->line, "if",
                                                   DovrelScript::ConditionTiers::BoolFirst);
        } else {
            static_cast<void>(evaluateSite(code, pc, *site));
        }
        // What unwinds leaves the statement from here.
        if (!interpreter_.softErrorUnwinding()) {
            pc = code.code.data() + (holds ? site->doneTrue : site->doneFalse);
        }
    }
    interpreter_.settleMemoryIfDue();
    switchToTurns(code, pc);
}

bool Machine::mayCallScalar(const MachineCode& code, Variable* registers,
                            const ScalarCallSite& site, Pc& pc) {
    const Variable* callee = calleeOf(code, registers, site);
    if (!isScalarCallee(callee)) {
        decline(code, pc, registers);
        return false;
    }
    const ScriptCallable& callable = *callee->asFunction();
    if (!callable.isNative && runsCalls(callable)) {
        // What its body calls runs as often as the tiers attempt the expression.
        evaluateWhole(code, pc);
        return false;
    }
    if ((callable.isNative && takesScalars(callable.builtinId)) == site.takesScalars) return true;
    // The arguments are code of the other kind.
    showToken();
    FastScalarValue scalar{};
    if (!interpreter_.tryEvaluateFastExpressionScalarNode(*site.expression, site.node,
                                                          site.line->tokenAnalysis, scalar)) {
        decline(code, pc, registers);
        return false;
    }
    assignFastScalarToVariable(registers[site.result], scalar);
    pc = code.code.data() + site.behind;
    return false;
}

/// A mathematical native on the numbers behind `slot`, if nobody can tell that it has been called:
/// it raises nothing. False, with nothing done, in every other case.
bool Machine::tryMathAtOnce(BuiltinId id, Variable* slot, std::size_t count) {
    std::array<FastScalarValue, 2> values;
    if (!takesScalars(id) || id == BuiltinId::GetTimeMs || id == BuiltinId::MathLog || count == 0 ||
        count > values.size()) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = scalarFromVariable(slot[1 + i]);
        if (!values[i].isNumeric()) return false;
    }
    if (id == BuiltinId::MathSqrt && !(fastScalarToDouble(values[0]) >= 0)) return false;
    FastScalarValue result{};
    if (!tryScalarMath(id, values.data(), count, result)) return false;
    for (std::size_t i = 0; i < count; ++i) slot[1 + i].overwriteNil();
    assignFastScalarToVariable(*slot, result);
    return true;
}

bool Machine::callScalar(const MachineCode& code, Variable* registers, const ScalarCallSite& site,
                         Variable* slot, std::size_t count) {
    showToken();
    const Variable* found = calleeOf(code, registers, site);
    bool isDone = false;
    FastScalarValue scalar{};
    if (isScalarCallee(found)) {
        const Shared<ScriptCallable> callable = found->asFunction();
        const Arguments args(slot + 1, count);
        if (!callable->isNative) {
            isDone = interpreter_.tryEvaluateFastCallableScalar(callable, args, scalar) &&
                     !interpreter_.softErrorUnwinding();
        } else if (takesScalars(callable->builtinId)) {
            std::array<FastScalarValue, 8> few;
            std::vector<FastScalarValue> many;
            if (count > few.size()) many.resize(count);
            FastScalarValue* values = count > few.size() ? many.data() : few.data();
            for (std::size_t i = 0; i < count; ++i) values[i] = scalarFromVariable(args[i]);
            isDone = interpreter_.tryScalarBuiltin(callable->builtinId, values, count, scalar);
        } else {
            isDone = interpreter_.tryScalarBuiltin(callable->builtinId, args, scalar);
        }
    }
    clearArguments(slot, count);
    if (!isDone) return false;
    assignFastScalarToVariable(*slot, scalar);
    return true;
}
