// Conditions of the compiled form: code that jumps.

#include "exec/machine_compiler.h"

/// A condition line: jumps to `whenFalse` if it does not hold, or, with `jumpsWhenTrue`, to
/// `whenTrue` if it does; otherwise the code goes on. False if it has to go by the executor.
bool MachineCompiler::emitCondition(const ParsedScriptLine& line, Label whenFalse,
                                    bool jumpsWhenTrue, Label whenTrue) {
    const FastExpression& condition = line.condition;
    const Label end = newLabel();
    const bool sense = jumpsWhenTrue;
    const Label target = jumpsWhenTrue ? whenTrue : whenFalse;
    const auto setTargets = [&](std::uint32_t site) {
        out_.expressions[site].behind = jumpsWhenTrue ? target : end;
        out_.expressions[site].otherwise = jumpsWhenTrue ? end : target;
    };
    const Source outer = source_;
    if (!condition.valid) {
        const FastExpression form =
            compileTokenForm(line.tokens, line.tokenAnalysis, 1, line.tokens.size());
        if (form.valid) {
            source_ = Source{&line, &form, Tier::Tokens, kNoSite, false};
            const std::uint16_t mark = top_;
            const std::uint16_t value = allocate();
            emitTo(form.root, value);
            if (!endsWithCall(form, form.root, line.tokens.size() - 1))
                markToken(line, line.tokens.size() - 1);
            emitJump(sense ? Op::JumpIfTrue : Op::JumpIfFalse, value, target,
                     static_cast<std::uint8_t>(kFirstGoes | tierBits()));
            top_ = mark;
            source_ = outer;
            bind(end);
            return true;
        }
    }
    if (!condition.valid || repeatsVisibly(condition, condition.root)) {
        ExpressionSite site;
        site.first = site.last = here();
        site.line = &line;
        site.isCondition = true;
        out_.expressions.push_back(site);
        const auto index = static_cast<std::uint32_t>(out_.expressions.size() - 1);
        setTargets(index);
        emitD(Op::TreeCondition, 0, index);
        bind(end);
        return true;
    }
    source_ = Source{&line, &condition, Tier::Either, kNoSite, false};
    if (!condition.rootNode().holdsCall) {
        const std::uint32_t site = beginSite(0, true);
        emitTest(condition.root, sense, target, true);
        endSite(site, 0);
        setTargets(site);
    } else if (declinesAtOnce(condition, line)) {
        const std::uint32_t site = beginSite(0, true);
        source_.tier = Tier::General;
        source_.expectsDecline = true;
        emitTest(condition.root, sense, target, false);
        endSite(site, 0);
        setTargets(site);
    } else {
        const Label general = newLabel();
        const std::uint32_t site = beginSite(0, true);
        out_.expressions[site].isScalarForm = true;
        source_.tier = Tier::Scalar;
        source_.scalarSite = site;
        emitTest(condition.root, sense, target, true);
        emitJump(Op::Jump, 0, end);
        endSite(site, general);
        out_.expressions[site].otherwise = general;
        out_.expressions[site].doneTrue = jumpsWhenTrue ? target : end;
        out_.expressions[site].doneFalse = jumpsWhenTrue ? end : target;
        bind(general);
        source_.tier = Tier::General;
        source_.scalarSite = kNoSite;
        emitTest(condition.root, sense, target, false);
    }
    bind(end);
    source_ = outer;
    return true;
}

/// Jumps to `target` if the node's truth is `sense`.
void MachineCompiler::emitTest(int index, bool sense, Label target, bool isAlone) {
    const FastExprNode& at = node(index);
    const std::uint16_t mark = top_;
    switch (at.kind) {
        case NodeKind::Not: emitTest(at.left, !sense, target, isAlone); break;
        case NodeKind::And:
        case NodeKind::Or: {
            const bool stops = at.kind == NodeKind::Or;  // the truth that ends it
            if (sense == stops) {
                emitTest(at.left, sense, target, false);
                emitTest(at.right, sense, target, false);
            } else {
                const Label skip = newLabel();
                emitTest(at.left, stops, skip, false);
                emitTest(at.right, sense, target, false);
                bind(skip);
            }
            break;
        }
        default: {
            if (isComparison(at.kind) && tryFusedComparison(index, sense, target)) break;
            const bool decidesAlone = isAlone && (isLeaf(at.kind) || at.kind == NodeKind::Index ||
                                                  source_.tier == Tier::Scalar);
            const Place value = emitAny(index);
            emitJump(sense ? Op::JumpIfTrue : Op::JumpIfFalse, value.reg, target,
                     static_cast<std::uint8_t>(tierBits() | goes(value, kFirstGoes) |
                                               (decidesAlone ? kAloneTest : 0)));
            break;
        }
    }
    top_ = mark;
}

bool MachineCompiler::tryFusedComparison(int index, bool sense, Label target) {
    const FastExprNode& at = node(index);
    const auto offset = static_cast<int>(at.kind) - static_cast<int>(NodeKind::Equal);
    const auto opOf = [&](Op ifFirst, Op unlessFirst) {
        return static_cast<Op>(static_cast<int>(sense ? ifFirst : unlessFirst) + offset);
    };
    const FastExprNode& right = node(at.right);
    const Place first = emitOperand(at.left, right.holdsCall);
    const auto firstMarks = static_cast<std::uint8_t>(tierBits() | goes(first, kFirstGoes));
    const auto add = [&](Op op, std::uint16_t second, std::uint8_t marks) {
        emitABC(op, first.reg, second, 0, marks);
        jumps_.emplace_back(here() - 1, target);
    };
    if (right.kind == NodeKind::IntLiteral && right.intValue >= -kLargestShort &&
        right.intValue <= kLargestShort) {
        add(opOf(Op::IfEqualInt, Op::UnlessEqualInt),
            static_cast<std::uint16_t>(static_cast<std::int16_t>(right.intValue)), firstMarks);
        return true;
    }
    const bool isEquality = at.kind == NodeKind::Equal || at.kind == NodeKind::NotEqual;
    if (isEquality && source_.tier != Tier::Scalar &&
        (right.kind == NodeKind::StringLiteral || right.kind == NodeKind::NilLiteral)) {
        const std::uint32_t value =
            right.kind == NodeKind::NilLiteral
                ? constant(Variable())
                : textConstant(source_.expression->strings[right.stringIndex]);
        const bool jumpsIfEqual = sense == (at.kind == NodeKind::Equal);
        add(jumpsIfEqual ? Op::IfEqualConst : Op::UnlessEqualConst, number(value), firstMarks);
        return true;
    }
    const Place second = emitAny(at.right);
    add(opOf(Op::IfEqual, Op::UnlessEqual), second.reg,
        static_cast<std::uint8_t>(firstMarks | goes(second, kSecondGoes)));
    return true;
}
