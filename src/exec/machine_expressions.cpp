// Expressions of the compiled form.
#include <algorithm>
#include <utility>

#include "exec/machine_compiler.h"
#include "value/table.h"

namespace {

constexpr std::size_t kLongestJoin = 100;

MachineOp arithmeticOp(NodeKind kind) {
    return static_cast<MachineOp>(static_cast<int>(MachineOp::Add) + static_cast<int>(kind) -
                                  static_cast<int>(NodeKind::Add));
}

}  // namespace

/// The scalar attempts at an expression run calls whose repetition can be seen: one that stands
/// in an argument, in a callee that is none in place, in what is indexed, in a key or under "#".
bool MachineCompiler::repeatsVisibly(const FastExpression& expression, int index) const {
    const FastExprNode& at = expression.nodes[static_cast<std::size_t>(index)];
    if (!at.holdsCall) return false;
    switch (at.kind) {
        case NodeKind::Call: {
            if (at.argumentsHoldCall) return true;
            const FastExprNode& callee = expression.nodes[static_cast<std::size_t>(at.left)];
            return callee.holdsCall;
        }
        case NodeKind::Index:
        case NodeKind::Length: return true;
        default: break;
    }
    return (at.left >= 0 && repeatsVisibly(expression, at.left)) ||
           (at.right >= 0 && repeatsVisibly(expression, at.right));
}

/// In the general tier: a chain of "+" that the concat form tries, with calls among its arguments.
bool MachineCompiler::isConcatOfRepeats(int index) const {
    const FastExprNode& at = node(index);
    return at.kind == NodeKind::Add && at.canConcat && at.holdsCall &&
           source_.tier == Tier::General && repeatsVisibly(*source_.expression, index);
}

bool MachineCompiler::isMemberCallee(int callee) const {
    const FastExprNode& at = node(callee);
    return at.kind == NodeKind::Index && node(at.left).kind == NodeKind::Variable &&
           node(at.right).kind == NodeKind::StringLiteral;
}

/// What a callee is at the moment, as far as it is a global or a member of a library table.
const ScriptCallable* MachineCompiler::expectedCallee(const ParsedScriptLine& line,
                                                      const FastExpression& expression,
                                                      int callee) const {
    const auto nodeOf = [&](int index) -> const FastExprNode& {
        return expression.nodes[static_cast<std::size_t>(index)];
    };
    const auto globalOf = [&](const FastExprNode& variable) -> const Variable* {
        const Name name = line.tokenAnalysis[variable.tokenIndex].name;
        if (name == nullptr || name->globalSlot == kNoGlobalSlot) {
            if (name == nullptr) return nullptr;
            const auto found = interpreter_.globalSlots.find(name->text);
            return found == interpreter_.globalSlots.end()
                       ? nullptr
                       : &interpreter_.globalValues[found->second];
        }
        return &interpreter_.globalValues[name->globalSlot];
    };
    const Variable* value = nullptr;
    const FastExprNode& at = nodeOf(callee);
    if (at.kind == NodeKind::Variable) {
        value = globalOf(at);
    } else if (at.kind == NodeKind::Index && nodeOf(at.left).kind == NodeKind::Variable &&
               nodeOf(at.right).kind == NodeKind::StringLiteral) {
        const Variable* base = globalOf(nodeOf(at.left));
        if (base == nullptr || base->type != VarType::Table) return nullptr;
        value = base->asTable()->find(expression.strings[nodeOf(at.right).stringIndex]);
    }
    if (value == nullptr || value->type != VarType::Function) return nullptr;
    return value->asFunction().get();
}

/// The scalar tier is bound to decline before it has done anything that can be seen: the first
/// call that it meets is one that it declines.
bool MachineCompiler::declinesAtOnce(const FastExpression& expression,
                                     const ParsedScriptLine& line) const {
    const FastExprNode* at = &expression.rootNode();
    int index = expression.root;
    const auto nodeOf = [&](int i) -> const FastExprNode& {
        return expression.nodes[static_cast<std::size_t>(i)];
    };
    while (at->kind != NodeKind::Call) {
        if (at->left < 0) return false;
        // The left side comes first; it holds no call, or that is where the first one is.
        index = nodeOf(at->left).holdsCall ? at->left : at->right;
        if (index < 0) return false;
        if (!nodeOf(at->left).holdsCall && nodeOf(at->left).kind == NodeKind::StringLiteral) {
            return false;  // said by the code itself
        }
        if ((at->kind == NodeKind::And || at->kind == NodeKind::Or) && index == at->right) {
            return false;  // it may not come to that call
        }
        at = &nodeOf(index);
    }
    const ScriptCallable* callee = expectedCallee(line, expression, at->left);
    if (callee == nullptr) return nodeOf(at->left).kind == NodeKind::Variable;
    if (callee->isNative) return !mayGiveScalar(callee->builtinId);
    return callee->fastBodyKind == FastBodyKind::None;
}

/// The first that the scalar tier meets is a text, which it declines.
bool MachineCompiler::startsWithText(const FastExpression& expression) {
    const FastExprNode* at = &expression.rootNode();
    while (at->kind >= NodeKind::Add && at->kind <= NodeKind::Or) {
        at = &expression.nodes[static_cast<std::size_t>(at->left)];
    }
    return at->kind == NodeKind::StringLiteral;
}

/// The node is a call of what is named as the native.
bool MachineCompiler::isToString(int index) const {
    const FastExprNode& at = node(index);
    if (at.kind != NodeKind::Call || at.intValue != 1) return false;
    const FastExprNode& callee = node(at.left);
    if (callee.kind != NodeKind::Variable) return false;
    const Name name = source_.line->tokenAnalysis[callee.tokenIndex].name;
    return name != nullptr && name->text == "toString";
}

/// Evaluating the node may raise.
bool MachineCompiler::canRaise(int index) const {
    const NodeKind kind = node(index).kind;
    return !isLeaf(kind);
}

/// The last token read when the next instruction raises is that of the node at `index`. Behind a
/// call at its very end none is read: what it runs may have read others since.
void MachineCompiler::noteEnd(int index) {
    const std::uint16_t last = node(index).endToken;
    if (!endsWithCall(*source_.expression, index, last)) noteToken(last);
}

void MachineCompiler::noteToken(std::size_t token) {
    if (source_.tier != Tier::Tokens) return;
    out_.tokens.push_back({here(), static_cast<std::uint32_t>(token), source_.line});
}

std::uint32_t MachineCompiler::beginSite(std::uint16_t target, bool isCondition) {
    ExpressionSite site;
    site.first = here();
    site.expression = source_.expression;
    site.line = source_.line;
    site.result = target;
    site.isCondition = isCondition;
    site.firstTemporary = top_;
    out_.expressions.push_back(site);
    return static_cast<std::uint32_t>(out_.expressions.size() - 1);
}

void MachineCompiler::endSite(std::uint32_t site, Label behind) {
    out_.expressions[site].last = here();
    out_.expressions[site].behind = behind;  // labels, until the code is finished
    out_.expressions[site].endTemporary = number(registerCount_);
}

void MachineCompiler::emitTreeValue(const ParsedScriptLine& line, const FastExpression& expression,
                                    int index, bool isGeneral, std::uint16_t target) {
    ExpressionSite site;
    site.first = site.last = here();
    site.expression = &expression;
    site.line = &line;
    site.node = index;
    site.result = target;
    site.isGeneral = isGeneral;
    site.behind = site.otherwise = kUnbound;
    out_.expressions.push_back(site);
    emitD(Op::TreeValue, target, static_cast<std::int64_t>(out_.expressions.size() - 1));
}

void MachineCompiler::emitValue(const ParsedScriptLine& line, const FastExpression& expression,
                                std::uint16_t target, bool isAssigned) {
    const Source outer = source_;
    source_ = Source{&line, &expression, Tier::Either, kNoSite, false};
    const FastExprNode& root = expression.rootNode();
    if (root.kind == NodeKind::Call) {
        source_.tier = Tier::General;
        emitTo(expression.root, target);
    } else if (!root.holdsCall) {
        const std::uint32_t site = beginSite(target, false);
        emitTo(expression.root, target);
        const Label behind = newLabel();
        bind(behind);
        endSite(site, behind);
    } else if (repeatsVisibly(expression, expression.root)) {
        // An assigned value skips the concat form that comes first elsewhere.
        emitTreeValue(line, expression, isAssigned ? expression.root : -1, false, target);
    } else if (startsWithText(expression)) {
        // Nothing has been done when the scalar tier declines.
        source_.tier = Tier::General;
        emitTo(expression.root, target);
    } else if (declinesAtOnce(expression, line)) {
        const std::uint32_t site = beginSite(target, false);
        if (isAssigned) out_.expressions[site].node = expression.root;
        source_.tier = Tier::General;
        source_.expectsDecline = true;
        emitTo(expression.root, target);
        const Label behind = newLabel();
        bind(behind);
        endSite(site, behind);
    } else {
        const Label general = newLabel();
        const Label behind = newLabel();
        const std::uint32_t site = beginSite(target, false);
        if (isAssigned) out_.expressions[site].node = expression.root;
        out_.expressions[site].isScalarForm = true;
        out_.expressions[site].doneTrue = out_.expressions[site].doneFalse = behind;
        source_.tier = Tier::Scalar;
        source_.scalarSite = site;
        emitTo(expression.root, target);
        emitJump(Op::Jump, 0, behind);
        endSite(site, general);
        bind(general);
        source_.tier = Tier::General;
        source_.scalarSite = kNoSite;
        emitTo(expression.root, target);
        bind(behind);
    }
    source_ = outer;
}

bool MachineCompiler::emitTokenValue(const ParsedScriptLine& line, TokenRange range,
                                     std::uint16_t target, bool marksLast) {
    const FastExpression expression =
        compileTokenForm(line.tokens, line.tokenAnalysis, range.first, range.last);
    if (!expression.valid) return false;
    const Source outer = source_;
    source_ = Source{&line, &expression, Tier::Tokens, kNoSite, false};
    emitTo(expression.root, target);
    endsWithCall_ = endsWithCall(expression, expression.root, range.last - 1);
    source_ = outer;
    if (marksLast && !endsWithCall_) markToken(line, range.last - 1);
    return true;
}

/// The last token of the expression is the end of a call, so that nothing is read behind that call:
/// what it runs may have read other tokens last.
bool MachineCompiler::endsWithCall(const FastExpression& expression, int index,
                                   std::size_t lastToken) const {
    const auto nodeOf = [&expression](int at) -> const FastExprNode& {
        return expression.nodes[static_cast<std::size_t>(at)];
    };
    const FastExprNode* at = &nodeOf(index);
    for (;;) {
        const bool isUnary = at->kind >= NodeKind::Negate && at->kind <= NodeKind::Length;
        const bool isBinary = at->kind >= NodeKind::Add && at->kind <= NodeKind::Or;
        if (!isUnary && !isBinary) break;
        at = &nodeOf(isUnary ? at->left : at->right);
    }
    return at->kind == NodeKind::Call && at->endToken == lastToken;
}

void MachineCompiler::markToken(const ParsedScriptLine& line, std::size_t token) {
    out_.tokenMarks.push_back({here(), static_cast<std::uint32_t>(token), &line});
    emitD(Op::LastToken, 0, static_cast<std::int64_t>(out_.tokenMarks.size() - 1));
}

/// In the scalar form: declines unless `reg` holds a scalar.
void MachineCompiler::requireScalar(std::uint16_t reg) {
    if (source_.tier != Tier::Scalar || source_.scalarSite == kNoSite) return;
    emitD(Op::RequireScalar, reg, 0);
}

void MachineCompiler::emitVariable(int index, std::uint16_t target) {
    const Resolution found = resolve(*source_.line, node(index).tokenIndex);
    const std::uint8_t marks = source_.tier == Tier::Either ? kCheckedVariable : std::uint8_t{0};
    if (found.isRegister) {
        if (found.reg != target) emitABC(Op::Move, target, found.reg, 0, marks);
    } else {
        const VariableRecord& record = out_.variables[found.record];
        emitD(record.hasPlace            ? Op::GetPlace
              : record.global != nullptr ? Op::GetGlobal
                                         : Op::GetVariable,
              target, found.record, marks);
    }
    requireScalar(target);
}

void MachineCompiler::emitTo(int index, std::uint16_t target) {
    if (!ok_) return;
    const FastExprNode& at = node(index);
    const std::uint16_t mark = top_;
    switch (at.kind) {
        case NodeKind::IntLiteral: emitD(Op::LoadInt, target, at.intValue); break;
        case NodeKind::FloatLiteral:
            emitD(Op::LoadConst, target, constant(Variable::makeFloat(at.floatValue)));
            break;
        case NodeKind::StringLiteral:
            emitD(Op::LoadConst, target, textConstant(source_.expression->strings[at.stringIndex]));
            requireScalar(target);
            break;
        case NodeKind::BoolLiteral:
            emitD(Op::LoadConst, target, constant(Variable::makeBool(at.boolValue)));
            break;
        case NodeKind::NilLiteral: emitD(Op::LoadNil, target, 0); break;
        case NodeKind::Variable: emitVariable(index, target); break;
        case NodeKind::Index: emitIndex(index, target); break;
        case NodeKind::Call: emitCall(index, target, 0); break;
        case NodeKind::Negate:
        case NodeKind::Not:
        case NodeKind::Length: {
            const Tier tier = source_.tier;
            const std::uint32_t site = source_.scalarSite;
            if (at.kind == NodeKind::Length && tier == Tier::Scalar) {
                source_.tier = Tier::General;
                source_.scalarSite = kNoSite;
            }
            const Place operand = emitAny(at.left);
            source_.tier = tier;
            source_.scalarSite = site;
            noteEnd(index);
            const Op op = at.kind == NodeKind::Negate ? Op::Negate
                          : at.kind == NodeKind::Not  ? Op::Not
                                                      : Op::Length;
            const bool reuses = operand.reg == target;
            emitABC(
                op, target, operand.reg, 0,
                static_cast<std::uint8_t>(tierBits() | (reuses ? 0 : goes(operand, kFirstGoes))));
            break;
        }
        case NodeKind::And:
        case NodeKind::Or: {
            const std::uint16_t temporary = allocate();
            const Label end = newLabel();
            emitTo(at.left, temporary);
            // As if the right side had been skipped; else it marks its own.
            if (source_.tier == Tier::Tokens) markToken(*source_.line, at.endToken);
            emitJump(at.kind == NodeKind::And ? Op::SkipUnlessTrue : Op::SkipIfTrue, temporary, end,
                     tierBits());
            emitTo(at.right, temporary);
            bind(end);
            emitABC(Op::Take, target, temporary, 0);
            break;
        }
        case NodeKind::ArrayLiteral:
        case NodeKind::TableLiteral: emitLiteral(index, target); break;
        case NodeKind::Varargs: emitD(Op::Varargs, target, 0); break;
        case NodeKind::None: ok_ = false; break;
        default: emitBinary(index, target); break;
    }
    top_ = mark;
}

/// A value wherever it is: a variable's own register, or a new temporary one.
MachineCompiler::Place MachineCompiler::emitAny(int index) {
    const FastExprNode& at = node(index);
    if (at.kind == NodeKind::Variable) {
        const Resolution found = resolve(*source_.line, at.tokenIndex);
        if (found.isRegister) {
            requireScalar(found.reg);
            return {found.reg, false};
        }
    }
    const std::uint16_t temporary = allocate();
    emitTo(index, temporary);
    return {temporary, true};
}

/// The same; if the value has to stay while script code runs, it is a copy.
MachineCompiler::Place MachineCompiler::emitOperand(int index, bool staysUntilCode) {
    if (!staysUntilCode) return emitAny(index);
    const std::uint16_t temporary = allocate();
    emitTo(index, temporary);
    return {temporary, true};
}

void MachineCompiler::emitIndex(int index, std::uint16_t target) {
    const FastExprNode& at = node(index);
    const Source outer = source_;
    const FastExprNode& keyNode = node(at.right);
    const bool isInPlace = node(at.left).kind == NodeKind::Variable;
    if (outer.tier == Tier::General && keyNode.holdsCall &&
        repeatsVisibly(*source_.expression, at.right)) {
        emitTreeValue(*source_.line, *source_.expression, index, true, target);
        return;
    }
    if (outer.tier == Tier::Scalar) {
        // What is indexed is of the general tier, and so is a key that the scalar tier declines.
        source_.tier = Tier::General;
        source_.scalarSite = kNoSite;
    }
    if (outer.tier == Tier::General && keyNode.holdsCall && isInPlace) {
        // A key that runs code may change the variable that is indexed: it is looked up behind it.
        const std::uint16_t key = allocate();
        emitTo(at.right, key);
        const Place base = emitAny(at.left);
        emitABC(Op::Index, target, base.reg, key,
                static_cast<std::uint8_t>(
                    tierBits() | kSecondGoes |
                    (base.reg != target ? goes(base, kFirstGoes) : std::uint8_t{0})));
    } else if (const auto record = globalInPlace(at, outer.tier)) {
        emitGlobalKey(index, *record, target);
    } else {
        const Place base = emitOperand(at.left, keyNode.holdsCall);
        const bool hasOwnSite = outer.tier == Tier::Scalar && !isLeaf(keyNode.kind);
        std::uint32_t site = kNoSite;
        if (hasOwnSite) {
            const std::uint16_t key = allocate();
            source_.tier = Tier::Either;
            site = beginSite(key, false);
            out_.expressions[site].node = at.right;
            emitTo(at.right, key);
            const Label behind = newLabel();
            bind(behind);
            endSite(site, behind);
            source_.tier = Tier::General;
            emitABC(
                Op::Index, target, base.reg, key,
                static_cast<std::uint8_t>(
                    tierBits() | kSecondGoes | (keyNode.kind == NodeKind::Index ? kIntTierKey : 0) |
                    (base.reg != target ? goes(base, kFirstGoes) : std::uint8_t{0})));
        } else {
            emitKey(index, base.reg, base.isTemporary, target);
        }
    }
    source_.tier = outer.tier;
    source_.scalarSite = outer.scalarSite;
    requireScalar(target);
}

/// The record of the global that `at` indexes, if it is known and the key is a leaf.
std::optional<std::uint16_t> MachineCompiler::globalInPlace(const FastExprNode& at, Tier outer) {
    const FastExprNode& key = node(at.right);
    const bool isPlainKey = key.kind == NodeKind::Variable || key.kind == NodeKind::StringLiteral;
    const bool isKeyOfIts = !key.holdsCall && outer != Tier::Scalar;
    if (node(at.left).kind != NodeKind::Variable || (!isPlainKey && !isKeyOfIts)) {
        return std::nullopt;
    }
    const ParsedScriptLine& line = *source_.line;
    const TokenAnalysis& token = line.tokenAnalysis[node(at.left).tokenIndex];
    if (token.name == nullptr) return std::nullopt;
    const std::size_t records = out_.variables.size();
    const Resolution found = resolve(line, node(at.left).tokenIndex);
    if (!found.isRegister && out_.variables[found.record].global != nullptr &&
        !out_.variables[found.record].hasPlace) {
        return found.record;
    }
    out_.variables.resize(records);
    return std::nullopt;
}

/// The element at the key of the node at `index` of a global.
void MachineCompiler::emitGlobalKey(int index, std::uint16_t record, std::uint16_t target) {
    const FastExprNode& at = node(index);
    const FastExprNode& keyNode = node(at.right);
    if (keyNode.kind == NodeKind::StringLiteral) {
        noteEnd(index);
        emitABC(Op::IndexGlobalConst, target, record,
                textConstant(source_.expression->strings[keyNode.stringIndex]), tierBits());
        return;
    }
    const Place key = emitAny(at.right);
    std::uint8_t marks = tierBits();
    if (key.isTemporary) marks |= kSecondGoes;
    if (source_.tier != Tier::Tokens &&
        (keyNode.kind == NodeKind::Variable || keyNode.kind == NodeKind::Index ||
         keyNode.kind == NodeKind::BoolLiteral)) {
        marks |= kIntTierKey;
    }
    noteEnd(index);
    emitABC(Op::IndexGlobal, target, record, key.reg, marks);
}

void MachineCompiler::emitKey(int index, std::uint16_t base, bool baseGoes, std::uint16_t target) {
    const FastExprNode& at = node(index);
    const FastExprNode& keyNode = node(at.right);
    std::uint8_t marks = tierBits();
    if (baseGoes && base != target) marks |= kFirstGoes;
    if (keyNode.kind == NodeKind::StringLiteral) {
        noteToken(at.endToken);
        emitABC(Op::IndexConst, target, base,
                textConstant(source_.expression->strings[keyNode.stringIndex]), marks);
        return;
    }
    if (keyNode.kind == NodeKind::IntLiteral && keyNode.intValue >= 0 &&
        keyNode.intValue <= kLargestShort) {
        noteToken(at.endToken);
        emitABC(Op::IndexInt, target, base, static_cast<std::size_t>(keyNode.intValue), marks);
        return;
    }
    const Place key = emitAny(at.right);
    if (key.isTemporary) marks |= kSecondGoes;
    if (source_.tier != Tier::Tokens &&
        (keyNode.kind == NodeKind::Variable || keyNode.kind == NodeKind::Index ||
         keyNode.kind == NodeKind::BoolLiteral)) {
        marks |= kIntTierKey;
    }
    noteToken(at.endToken);
    emitABC(Op::Index, target, base, key.reg, marks);
}

void MachineCompiler::emitBinary(int index, std::uint16_t target) {
    const FastExprNode& at = node(index);
    if (isConcatOfRepeats(index)) {
        emitTreeValue(*source_.line, *source_.expression, index, true, target);
        return;
    }
    if (at.kind == NodeKind::Add && emitJoin(index, target, std::nullopt, std::nullopt)) return;
    const FastExprNode& right = node(at.right);
    const Place first = emitOperand(at.left, right.holdsCall);
    std::uint8_t marks = tierBits();
    if (first.isTemporary && first.reg != target) marks |= kFirstGoes;
    if (right.kind == NodeKind::IntLiteral && right.intValue >= -kLargestShort &&
        right.intValue <= kLargestShort && at.kind >= NodeKind::Add && at.kind < NodeKind::Power) {
        noteEnd(index);
        emitABC(static_cast<Op>(static_cast<int>(Op::AddInt) + static_cast<int>(at.kind) -
                                static_cast<int>(NodeKind::Add)),
                target, first.reg,
                static_cast<std::uint16_t>(static_cast<std::int16_t>(right.intValue)), marks);
        return;
    }
    if (right.kind == NodeKind::FloatLiteral && at.kind >= NodeKind::Add &&
        at.kind <= NodeKind::Divide) {
        noteEnd(index);
        emitABC(static_cast<Op>(static_cast<int>(Op::AddConst) + static_cast<int>(at.kind) -
                                static_cast<int>(NodeKind::Add)),
                target, first.reg, constant(Variable::makeFloat(right.floatValue)), marks);
        return;
    }
    const Place second = emitAny(at.right);
    if (second.isTemporary && second.reg != target) marks |= kSecondGoes;
    noteEnd(index);
    emitABC(arithmeticOp(at.kind), target, first.reg, second.reg, marks);
}

/// A chain of "+" with texts at its start, or of leaves only, in one instruction: nothing in it can
/// raise between its operands.
bool MachineCompiler::emitJoin(int index, std::uint16_t target,
                               std::optional<std::uint16_t> appendRegister,
                               std::optional<std::uint16_t> appendRecord) {
    if (source_.tier == Tier::Scalar) return false;
    std::vector<int> operands;
    int at = index;
    while (node(at).kind == NodeKind::Add) {
        // Longer ones are not worth looking at, again and again at each of their operators.
        if (operands.size() > kLongestJoin) return false;
        operands.push_back(node(at).right);
        at = node(at).left;
    }
    operands.push_back(at);
    std::reverse(operands.begin(), operands.end());
    const bool appends = appendRegister.has_value() || appendRecord.has_value();
    const bool startsWithText = node(operands[0]).kind == NodeKind::StringLiteral ||
                                node(operands[1]).kind == NodeKind::StringLiteral;
    if (operands.size() < 3 && !appends && !startsWithText) return false;
    if (appends) {
        for (std::size_t i = 1; i < operands.size(); ++i) {
            if (canRaise(operands[i])) return false;
        }
        if (operands.size() == 2) {
            const Place operand = emitAny(operands[1]);
            noteEnd(index);
            emitABC(appendRegister ? Op::Append : Op::AppendGlobal,
                    appendRegister ? *appendRegister : *appendRecord, operand.reg, 1,
                    static_cast<std::uint8_t>(tierBits() | goes(operand, kSecondGoes)));
            return true;
        }
    } else {
        bool isPlain = true;
        bool anyText = startsWithText;
        for (std::size_t i = 1; i < operands.size(); ++i) {
            isPlain = isPlain && !canRaise(operands[i]);
            anyText = anyText || node(operands[i]).kind == NodeKind::StringLiteral;
        }
        // Chains of numbers are better off one by one.
        if (!startsWithText && !(isPlain && anyText)) return false;
        // The tokens of what raises are those of the single steps.
        if (source_.tier == Tier::Tokens && !startsWithText) return false;
    }
    const std::size_t skipped = appends ? 1 : 0;
    const std::size_t count = operands.size() - skipped;
    const std::uint16_t first = allocate(count);
    for (std::size_t i = 0; i < count; ++i) {
        const int operand = operands[i + skipped];
        const auto reg = static_cast<std::uint16_t>(first + i);
        if (startsWithText && isToString(operand)) {
            emitCall(operand, reg, kAsText);
        } else {
            emitTo(operand, reg);
        }
    }
    noteEnd(index);
    if (appendRegister) {
        emitABC(Op::Append, *appendRegister, first, count, tierBits());
    } else if (appendRecord) {
        emitABC(Op::AppendGlobal, *appendRecord, first, count, tierBits());
    } else {
        emitABC(Op::Join, target, first, count, tierBits());
    }
    return true;
}

/// How the tables of a literal look, if that is known before there is one.
std::optional<TableStorage::Layout> MachineCompiler::recordOf(
    const std::vector<TableSite::Entry>& entries) const {
    if (entries.empty() || entries.size() > TableStorage::Layout::kMostKeys) return std::nullopt;
    std::vector<Text> keys;
    for (const TableSite::Entry& entry : entries) {
        if (entry.key < 0) return std::nullopt;
        const Text& key = out_.constants[static_cast<std::size_t>(entry.key)].asText();
        const auto isSame = [&](const Text& other) { return TextEqual()(key, other); };
        if (std::any_of(keys.begin(), keys.end(), isSame)) return std::nullopt;
        keys.push_back(key);
    }
    return TableStorage::Layout(keys);
}

void MachineCompiler::emitLiteral(int index, std::uint16_t target) {
    const FastExprNode& at = node(index);
    const auto count = static_cast<std::size_t>(at.intValue);
    if (count > 10000) {
        ok_ = false;
        return;
    }
    if (at.kind == NodeKind::ArrayLiteral) {
        const std::uint16_t first = allocate(count == 0 ? 1 : count);
        emitArguments(at, first);
        noteToken(at.endToken);
        emitABC(Op::NewArray, target, first, count);
        return;
    }
    TableSite site;
    for (std::size_t i = 0; i < count; ++i) {
        TableSite::Entry entry;
        const int key = argument(at, 3 * i);
        const int text = argument(at, 3 * i + 1);
        const int value = argument(at, 3 * i + 2);
        if (key >= 0) {
            entry.keyRegister = allocate();
            emitTo(key, static_cast<std::uint16_t>(entry.keyRegister));
        } else if (text >= 0) {
            entry.key = static_cast<std::int32_t>(
                textConstant(source_.expression->strings[static_cast<std::size_t>(text)]));
        }
        entry.value = allocate();
        emitTo(value, entry.value);
        if (key >= 0) {
            noteEnd(value);
            emitD(Op::RequireKey, static_cast<std::size_t>(entry.keyRegister), 0);
        }
        site.entries.push_back(entry);
    }
    site.record = recordOf(site.entries);
    noteToken(at.endToken);
    emitD(Op::NewTable, target, static_cast<std::int64_t>(out_.tables.size()));
    out_.tables.push_back(std::move(site));
}
