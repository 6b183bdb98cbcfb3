#include "frontend/scalar_code.h"

#include <algorithm>
#include <memory_resource>
#include <vector>

#include "frontend/fast_expression.h"
#include "frontend/scratch_memory.h"

namespace {

/// Emits code in the order in which the nodes are evaluated: the errors come out in that order.
class ScalarCompiler {
public:
    explicit ScalarCompiler(const FastExpression& expression) : expression_(expression) {
        code_.reserve(expression.nodes.size());
    }

    SharedArray<ScalarInstruction> compile(int index) {
        emitValue(index);
        if (!ok_ || deepest_ > kScalarStackSize || mostPlaces_ > kPlaceStackSize) return {};
        return SharedArray<ScalarInstruction>::copyOf(code_);
    }

private:
    void emitValue(int index);
    void emitPlace(int index);
    void emitLogic(const FastExprNode& node);
    bool emitNamedOperands(const FastExprNode& binary);
    [[nodiscard]] bool isIntKey(int index) const;

    [[nodiscard]] const FastExprNode& node(int index) const {
        return expression_.nodes[static_cast<std::size_t>(index)];
    }
    ScalarInstruction& emit(ScalarOpcode opcode) {
        code_.push_back({opcode, 0, 0, {0}});
        return code_.back();
    }
    void push(ScalarOpcode opcode, std::int32_t value) {
        emit(opcode).intValue = value;
        deepest_ = std::max(deepest_, ++depth_);
    }
    void pop() { --depth_; }

    const FastExpression& expression_;
    ScratchMemory scratch_;
    std::pmr::vector<ScalarInstruction> code_{scratch_.resource()};
    std::size_t depth_ = 0;
    std::size_t deepest_ = 0;
    std::size_t places_ = 0;
    std::size_t mostPlaces_ = 0;
    bool ok_ = true;
};

void ScalarCompiler::emitValue(int index) {
    ok_ = ok_ && depth_ < kScalarStackSize;
    if (!ok_) return;
    const FastExprNode& at = node(index);
    switch (at.kind) {
        case NodeKind::IntLiteral: push(ScalarOpcode::PushInt, at.intValue); return;
        case NodeKind::FloatLiteral:
            push(ScalarOpcode::PushFloat, 0);
            code_.back().floatValue = at.floatValue;
            return;
        case NodeKind::BoolLiteral: push(ScalarOpcode::PushBool, at.boolValue ? 1 : 0); return;
        case NodeKind::NilLiteral: push(ScalarOpcode::PushNil, 0); return;
        case NodeKind::Variable:
            push(ScalarOpcode::PushVariable, 0);
            code_.back().token = at.tokenIndex;
            return;
        case NodeKind::Index:
            emitPlace(index);
            if (!ok_) return;
            if (code_.back().opcode == ScalarOpcode::PlaceElementAt) {
                const std::uint16_t key = code_.back().token;
                code_.pop_back();
                push(ScalarOpcode::PushElementAt, 0);
                code_.back().token = key;
            } else {
                push(ScalarOpcode::PushPlace, 0);
            }
            --places_;
            return;
        case NodeKind::Negate:
        case NodeKind::Not:
            emitValue(at.left);
            emit(at.kind == NodeKind::Not ? ScalarOpcode::Not : ScalarOpcode::Negate);
            return;
        case NodeKind::And:
        case NodeKind::Or: emitLogic(at); return;
        case NodeKind::StringLiteral:
        case NodeKind::Call:
        case NodeKind::Length:
        case NodeKind::None: ok_ = false; return;
        default: break;
    }
    if (emitNamedOperands(at)) return;
    emitValue(at.left);
    emitValue(at.right);
    emit(operatorOpcode(ScalarOpcode::Add, at.kind));
    pop();
}

/// An operator on a variable and an int literal or two variables, which is what most of them are,
/// is one instruction. False for every other.
bool ScalarCompiler::emitNamedOperands(const FastExprNode& binary) {
    const FastExprNode& left = node(binary.left);
    const FastExprNode& right = node(binary.right);
    if (left.kind != NodeKind::Variable) return false;
    if (right.kind == NodeKind::IntLiteral) {
        push(operatorOpcode(ScalarOpcode::AddInt, binary.kind), right.intValue);
    } else if (right.kind == NodeKind::Variable) {
        push(operatorOpcode(ScalarOpcode::AddVariable, binary.kind), right.tokenIndex);
    } else {
        return false;
    }
    code_.back().token = left.tokenIndex;
    return true;
}

void ScalarCompiler::emitLogic(const FastExprNode& logic) {
    emitValue(logic.left);
    const std::size_t skip = code_.size();
    emit(logic.kind == NodeKind::And ? ScalarOpcode::SkipIfFalse : ScalarOpcode::SkipIfTrue);
    pop();
    emitValue(logic.right);
    code_[skip].intValue = static_cast<std::int32_t>(code_.size() - skip - 1);
}

/// A key that is an int for scalars only if it is the same int in the general tier. "\\" is not
/// among them: it makes an int of a float by a rule of its own.
bool ScalarCompiler::isIntKey(int index) const {
    const FastExprNode& at = node(index);
    switch (at.kind) {
        case NodeKind::IntLiteral:
        case NodeKind::StringLiteral:
        case NodeKind::Variable:
        case NodeKind::Index: return true;
        case NodeKind::Negate: return isIntKey(at.left);
        case NodeKind::Add:
        case NodeKind::Subtract:
        case NodeKind::Multiply:
        case NodeKind::Modulo: return isIntKey(at.left) && isIntKey(at.right);
        default: return false;
    }
}

void ScalarCompiler::emitPlace(int index) {
    const FastExprNode& at = node(index);
    if (at.kind == NodeKind::Variable) {
        emit(ScalarOpcode::PlaceVariable).token = at.tokenIndex;
        mostPlaces_ = std::max(mostPlaces_, ++places_);
        return;
    }
    if (at.kind != NodeKind::Index) {
        ok_ = false;
        return;
    }
    // The base of an element is the general tier's: its keys must be what that tier makes of them.
    const FastExprNode& base = node(at.left);
    if (base.kind == NodeKind::Index && !isIntKey(base.right)) {
        ok_ = false;
        return;
    }
    emitPlace(at.left);
    const FastExprNode& key = node(at.right);
    if (key.kind == NodeKind::StringLiteral) {
        emit(ScalarOpcode::PlaceEntry).intValue = key.stringIndex;
        return;
    }
    if (key.kind == NodeKind::Variable) {
        emit(ScalarOpcode::PlaceElementAt).token = key.tokenIndex;
        return;
    }
    emitValue(at.right);
    emit(ScalarOpcode::PlaceElement);
    pop();
}

}  // namespace

ScalarOpcode operatorOpcode(ScalarOpcode first, NodeKind kind) {
    const auto offset = static_cast<int>(kind) - static_cast<int>(NodeKind::Add);
    return static_cast<ScalarOpcode>(static_cast<int>(first) + offset);
}

NodeKind operatorKind(ScalarOpcode first, ScalarOpcode opcode) {
    const auto offset = static_cast<int>(opcode) - static_cast<int>(first);
    return static_cast<NodeKind>(static_cast<int>(NodeKind::Add) + offset);
}

SharedArray<ScalarInstruction> compileScalarCode(const FastExpression& expression) {
    if (!expression.valid) return {};
    return compileScalarCode(expression, expression.root);
}

SharedArray<ScalarInstruction> compileScalarCode(const FastExpression& expression, int index) {
    if (expression.nodes[static_cast<std::size_t>(index)].holdsCall) return {};
    return ScalarCompiler(expression).compile(index);
}
