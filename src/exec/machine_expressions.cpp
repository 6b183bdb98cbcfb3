// Expressions of the compiled form.
#include <algorithm>
#include <utility>

#include "exec/machine_compiler.h"
#include "value/table.h"

namespace {

constexpr int kLargestShort = 32767;
constexpr std::size_t kLongestJoin = 100;

MachineOp arithmeticOp(NodeKind kind) {
    return static_cast<MachineOp>(static_cast<int>(MachineOp::Add) + static_cast<int>(kind) -
                                  static_cast<int>(NodeKind::Add));
}

bool isComparison(NodeKind kind) {
    return kind >= NodeKind::Equal && kind <= NodeKind::GreaterEqual;
}
bool isLeaf(NodeKind kind) { return kind <= NodeKind::Variable; }

bool isMathId(BuiltinId id) {
    return id == BuiltinId::GetTimeMs || (id >= BuiltinId::MathFloor && id <= BuiltinId::MathSqrt);
}

bool isScalarId(BuiltinId id) {
    return isMathId(id) || id == BuiltinId::ToNumber || id == BuiltinId::Len ||
           id == BuiltinId::StringLen || id == BuiltinId::StringByte || id == BuiltinId::Utf8Len;
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
    if (callee->isNative) return !isScalarId(callee->builtinId);
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
    site.takesScalars = expected != nullptr && expected->isNative && isMathId(expected->builtinId);
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
    noteToken(at.endToken);
    emitD(Op::NewTable, target, static_cast<std::int64_t>(out_.tables.size()));
    out_.tables.push_back(std::move(site));
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
