// Calls of the compiled form: their arguments, callees and places.
#include <utility>

#include "exec/machine_compiler.h"
#include "library/builtin_id.h"

void MachineCompiler::emitArguments(const FastExprNode& call, std::uint16_t first) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(call.intValue); ++i) {
        emitTo(argument(call, i), static_cast<std::uint16_t>(first + i));
    }
}

void MachineCompiler::emitMember(const FastExprNode& callee, std::uint16_t& site) {
    MemberSite member;
    const Resolution base = resolve(*source_.line, node(callee.left).tokenIndex);
    member.baseIsRegister = base.isRegister;
    member.base = base.isRegister ? base.reg : base.record;
    member.key = textConstant(source_.expression->strings[node(callee.right).stringIndex]);
    out_.members.push_back(member);
    site = number(out_.members.size() - 1);
}

/// The register of a callee, with room for its arguments behind it: that of the result, where it is
/// the last one in use. It holds no variable then, which the arguments might read.
std::uint16_t MachineCompiler::placeOfCall(std::size_t count, std::uint16_t target) {
    if (target + 1 != top_) return allocate(count + 1);
    allocate(count);
    return target;
}

void MachineCompiler::emitCall(int index, std::uint16_t target, std::uint8_t marks) {
    if (source_.tier == Tier::Scalar) {
        emitScalarCall(index, target);
        return;
    }
    const FastExprNode& at = node(index);
    const auto count = static_cast<std::size_t>(at.intValue);
    const FastExprNode& callee = node(at.left);
    const std::uint16_t base = placeOfCall(count, target);
    if (source_.tier == Tier::Either) {  // a call is never part of a form without calls
        ok_ = false;
        return;
    }
    if (std::exchange(source_.expectsDecline, false)) marks |= kExpectsDecline;
    marks |= tierBits();
    marks |= blockMark();
    if (source_.tier == Tier::Tokens) {
        emitTo(at.left, base);
        emitArguments(at, static_cast<std::uint16_t>(base + 1));
        markToken(*source_.line, at.endToken);
        emitABC(Op::Call, base, count, 0, marks);
    } else {
        emitArguments(at, static_cast<std::uint16_t>(base + 1));
        if (callee.kind == NodeKind::Variable) {
            const Resolution found = resolve(*source_.line, callee.tokenIndex);
            if (!found.isRegister && !out_.variables[found.record].hasPlace) {
                emitABC(Op::CallGlobal, base, count, found.record, marks);
            } else {
                emitVariable(at.left, base);
                emitABC(Op::Call, base, count, 0, marks);
            }
        } else if (isMemberCallee(at.left)) {
            std::uint16_t site = 0;
            emitMember(callee, site);
            const MemberSite& member = out_.members[site];
            if (!member.baseIsRegister && out_.variables[member.base].hasPlace) {
                // Rare, and the table must be looked up in its place: by the element.
                emitTo(at.left, base);
                emitABC(Op::Call, base, count, 1, marks);
            } else {
                emitABC(Op::CallMember, base, count, site, marks);
            }
        } else {
            emitTo(at.left, base);
            emitABC(Op::Call, base, count, 0, marks);
        }
    }
    if (base != target) emitABC(Op::Take, target, base, 0);
}

/// A call of the scalar tier: natives with a scalar result and functions of one line. For all
/// others the tier declines.
void MachineCompiler::emitScalarCall(int index, std::uint16_t target) {
    const FastExprNode& at = node(index);
    const auto count = static_cast<std::size_t>(at.intValue);
    const FastExprNode& callee = node(at.left);
    ScalarCallSite site;
    if (callee.kind == NodeKind::Variable) {
        const Resolution found = resolve(*source_.line, callee.tokenIndex);
        site.isRegister = found.isRegister;
        site.callee = found.isRegister ? found.reg : found.record;
    } else if (isMemberCallee(at.left)) {
        site.isMember = true;
        emitMember(callee, site.callee);
    } else {
        ok_ = false;
        return;
    }
    const ScriptCallable* expected = expectedCallee(*source_.line, *source_.expression, at.left);
    site.takesScalars =
        expected != nullptr && expected->isNative && takesScalars(expected->builtinId);
    site.result = target;
    site.node = index;
    site.expression = source_.expression;
    site.line = source_.line;
    const Label behind = newLabel();
    site.behind = behind;
    const std::uint16_t number16 = number(out_.scalarCalls.size());
    out_.scalarCalls.push_back(site);
    const std::uint16_t base = placeOfCall(count, target);
    emitD(Op::RequireScalarCall, number16, 0);
    const std::uint32_t outer = source_.scalarSite;
    if (!site.takesScalars) {
        source_.tier = Tier::General;
        source_.scalarSite = kNoSite;
    }
    emitArguments(at, static_cast<std::uint16_t>(base + 1));
    source_.tier = Tier::Scalar;
    source_.scalarSite = outer;
    emitABC(Op::CallScalar, base, count, number16, blockMark());
    if (base != target) emitABC(Op::Take, target, base, 0);
    bind(behind);
}

/// `x = f(a, b)`.
void MachineCompiler::emitDirectCall(const ParsedScriptLine& line, const FastCallExpression& call,
                                     std::uint16_t target, std::uint8_t mark) {
    const std::uint16_t top = top_;
    const std::size_t count = call.arguments.size();
    const std::uint16_t base = placeOfCall(count, target);
    for (std::size_t i = 0; i < count; ++i) {
        emitValue(line, call.arguments[i], static_cast<std::uint16_t>(base + 1 + i));
    }
    const auto marks =
        static_cast<std::uint8_t>(mark | static_cast<std::uint8_t>(Tier::General) | blockMark());
    const Resolution found = resolve(line, call.nameToken);
    if (found.isRegister) {
        emitABC(Op::Move, base, found.reg, 0);
        emitABC(Op::Call, base, count, 0, marks);
    } else if (out_.variables[found.record].hasPlace) {
        emitD(Op::GetPlace, base, found.record);
        emitABC(Op::Call, base, count, 0, marks);
    } else {
        emitABC(Op::CallGlobal, base, count, found.record, marks);
    }
    if (base != target) emitABC(Op::Take, target, base, 0);
    top_ = top;
}
