// Assignments and declarations of the compiled form.
#include <algorithm>
#include <vector>

#include "exec/machine.h"
#include "exec/machine_compiler.h"

/// A value to a variable that exists, or a declaration that is not the first of its name.
void MachineCompiler::emitStore(const ParsedScriptLine& line, std::size_t token, Place value) {
    const Resolution found = resolve(line, token);
    if (found.isRegister) {
        emitABC(value.isTemporary ? Op::Take : Op::Move, found.reg, value.reg, 0,
                value.isTemporary ? std::uint8_t{0} : kCheckedVariable);
        return;
    }
    if (!value.isTemporary) {
        const std::uint16_t copy = allocate();
        emitABC(Op::Move, copy, value.reg, 0, kCheckedVariable);
        value = {copy, true};
    }
    const VariableRecord& record = out_.variables[found.record];
    emitD(record.global != nullptr && !record.hasPlace ? Op::SetGlobal : Op::SetVariable, value.reg,
          found.record);
}

void MachineCompiler::storeDeclared(const ParsedScriptLine& line, std::size_t token, Place value) {
    const auto fresh = freshPlace(line, token);
    const std::uint16_t reg = fresh ? *fresh : *declaredPlace(line, token);
    emitABC(value.isTemporary ? Op::Take : Op::Move, reg, value.reg, 0,
            value.isTemporary ? std::uint8_t{0} : kCheckedVariable);
    if (fresh) emitDeclared(line, token);
}

/// A declaration whose place in the scope shows when it runs.
void MachineCompiler::emitDeclareByName(const ParsedScriptLine& line, std::size_t token,
                                        std::uint16_t value) {
    VariableRecord record;
    record.token = &line.tokenAnalysis[token];
    if (record.name() == nullptr) ok_ = false;
    out_.variables.push_back(record);
    emitD(Op::DeclareByName, value, number(out_.variables.size() - 1),
          static_cast<std::uint8_t>(line.assignmentScope));
}

bool MachineCompiler::emitBareDeclaration(const ParsedScriptLine& line) {
    const std::size_t token = line.assignment->targets[0].nameToken;
    if (line.assignmentScope != ScopeTarget::Local || !canDeclare(line, token)) return false;
    if (const auto fresh = freshPlace(line, token)) {
        emitDeclared(line,
                     token);  // its register holds nil, but whatever stood there may be a number
        emitD(Op::LoadNil, *fresh, 0);
    } else {
        emitD(Op::LoadNil, *declaredPlace(line, token), 0);
    }
    return true;
}

bool MachineCompiler::emitSimpleAssignment(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const std::size_t token = assignment.targets[0].nameToken;
    const bool declares = line.assignmentScope != ScopeTarget::Default;
    const bool hasPlace = declares && canDeclare(line, token);
    if (declares && !hasPlace &&
        (line.assignmentScope == ScopeTarget::Local || !isDeclaredByName(line, token))) {
        return false;
    }
    // In a loop, the value may read what the turn before has left in that place.
    const bool isNew =
        hasPlace && (line.assignmentScope == ScopeTarget::Local ||
                     (!regions_.back().isLoop && regions_.back().chunkLevel == chunks_.size()));
    const FastExpression& value = assignment.values[0];

    // Where the result may be written at once: one instruction does it, when all operands are read.
    std::optional<std::uint16_t> direct;
    if (declares) {
        direct = freshPlace(line, token);
    } else {
        const Resolution found = resolve(line, token);
        if (found.isRegister) direct = found.reg;
        // `s = s + ...`: the text of the variable grows in its place.
        if (value.valid && !value.rootNode().holdsCall && value.rootNode().kind == NodeKind::Add) {
            int first = value.root;
            while (value.nodes[static_cast<std::size_t>(first)].kind == NodeKind::Add) {
                first = value.nodes[static_cast<std::size_t>(first)].left;
            }
            const FastExprNode& leaf = value.nodes[static_cast<std::size_t>(first)];
            if (leaf.kind == NodeKind::Variable &&
                line.tokenAnalysis[leaf.tokenIndex].name == line.tokenAnalysis[token].name) {
                const Resolution read = resolve(line, leaf.tokenIndex);
                const bool isNumeric = [&] {
                    const FastExprNode& right =
                        value.nodes[static_cast<std::size_t>(value.rootNode().right)];
                    return right.kind == NodeKind::IntLiteral ||
                           right.kind == NodeKind::FloatLiteral;
                }();
                const bool sameRegister =
                    found.isRegister && read.isRegister && found.reg == read.reg;
                const bool sameGlobal =
                    !found.isRegister && !read.isRegister &&
                    out_.variables[found.record].global != nullptr &&
                    !out_.variables[found.record].hasPlace &&
                    out_.variables[found.record].global == out_.variables[read.record].global;
                if (!isNumeric && (sameRegister || sameGlobal)) {
                    const Source outer = source_;
                    source_ = Source{&line, &value, Tier::Either, kNoSite, false};
                    const std::uint16_t spare = allocate();
                    const std::uint32_t site = beginSite(sameRegister ? found.reg : spare, false);
                    const bool appended = emitJoin(
                        value.root, 0,
                        sameRegister ? std::optional<std::uint16_t>(found.reg) : std::nullopt,
                        sameRegister ? std::nullopt : std::optional<std::uint16_t>(found.record));
                    if (appended) {
                        const Label behind = newLabel();
                        bind(behind);
                        endSite(site, behind);
                        if (sameGlobal) {
                            // Both tokens have met the variable.
                            emitD(Op::TouchGlobal, 0, read.record);
                        }
                        source_ = outer;
                        return true;
                    }
                    out_.expressions.resize(site);
                    source_ = outer;
                }
            }
        }
    }
    const std::uint16_t temporary = allocate();
    const auto isSafe = [&](const FastExpression& expression) {
        const NodeKind root = expression.rootNode().kind;
        return !expression.rootNode().holdsCall && root != NodeKind::And && root != NodeKind::Or;
    };
    std::uint16_t target = temporary;
    if (assignment.simpleCall.valid) {
        emitDirectCall(line, assignment.simpleCall, target);
        emitABC(Op::CutMulti, target, 0, 0);
    } else if (value.valid) {
        if (direct && (isNew || isSafe(value))) target = *direct;
        emitValue(line, value, target, true);
        if (value.isCall()) emitABC(Op::CutMulti, target, 0, 0);
    } else if (!emitTokenValue(line, assignment.valueRanges[0], target)) {
        return false;
    }
    if (!ok_) return true;
    if (declares && !hasPlace) {
        emitDeclareByName(line, token, target);
    } else if (declares) {
        const auto fresh = freshPlace(line, token);
        if (fresh && target == *fresh) {
            emitDeclared(line, token);
        } else {
            storeDeclared(line, token, {target, true});
        }
    } else if (!direct || target != *direct) {
        emitStore(line, token, {target, true});
    }
    return true;
}

void MachineCompiler::emitUpdate(const ParsedScriptLine& line, std::uint16_t operand,
                                 OperandOrigin origin) {
    const ParsedAssignment& assignment = *line.assignment;
    const Resolution found = resolve(line, assignment.targets[0].nameToken);
    emitABC(found.isRegister ? Op::UpdateRegister : Op::UpdateVariable,
            found.isRegister ? found.reg : found.record, operand, static_cast<std::size_t>(origin),
            static_cast<std::uint8_t>(assignment.operation));
}

bool MachineCompiler::emitCompound(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const FastExpression& value = assignment.values[0];
    const std::uint16_t operand = allocate();
    if (assignment.simpleCall.valid) {
        emitDirectCall(line, assignment.simpleCall, operand);
        emitUpdate(line, operand, OperandOrigin::Call);
        return true;
    }
    if (!value.valid) return false;
    if (value.isCall()) {
        emitValue(line, value, operand, true);
        emitUpdate(line, operand, OperandOrigin::General);
    } else if (!value.rootNode().holdsCall) {
        emitValue(line, value, operand, true);
        // Which tier gave it shows only where the kinds mix, and is found out then.
        emitUpdate(line, operand, OperandOrigin::Unknown);
    } else if (repeatsVisibly(value, value.root)) {
        return false;
    } else if (startsWithText(value) || declinesAtOnce(value, line)) {
        emitValue(line, value, operand, true);
        emitUpdate(line, operand, OperandOrigin::General);
    } else {
        const Source outer = source_;
        source_ = Source{&line, &value, Tier::Scalar, kNoSite, false};
        const Label general = newLabel();
        const Label behind = newLabel();
        const std::uint32_t site = beginSite(operand, false);
        out_.expressions[site].isScalarForm = true;
        out_.expressions[site].isStatement = true;
        out_.expressions[site].doneTrue = out_.expressions[site].doneFalse = behind;
        source_.scalarSite = site;
        emitTo(value.root, operand);
        endSite(site, general);
        emitUpdate(line, operand, OperandOrigin::Scalar);
        emitJump(Op::Jump, 0, behind);
        bind(general);
        source_.tier = Tier::General;
        source_.scalarSite = kNoSite;
        emitTo(value.root, operand);
        emitUpdate(line, operand, OperandOrigin::General);
        bind(behind);
        source_ = outer;
    }
    return true;
}

bool MachineCompiler::emitElementAssignment(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const ParsedAssignmentTarget& target = assignment.targets[0];
    const std::size_t keys = target.indexRanges.size();
    if (line.assignmentScope != ScopeTarget::Default || assignment.values.empty()) return false;
    const std::uint16_t first = allocate(keys);
    for (std::size_t i = 0; i < keys; ++i) {
        const auto reg = static_cast<std::uint16_t>(first + i);
        const FastExpression& key = target.indexExpressions[i];
        if (key.valid) {
            emitValue(line, key, reg);
        } else if (!emitTokenValue(line, target.indexRanges[i], reg)) {
            return false;
        }
    }
    const std::uint16_t value = allocate();
    if (!emitTokenValue(line, assignment.valueRanges[0], value, false)) return false;
    const bool readsNothingLast = endsWithCall_;
    const Resolution base = resolve(line, target.nameToken);
    if (!readsNothingLast) markToken(line, assignment.valueRanges[0].last - 1);
    emitElementStore(assignment, base, first, keys, value);
    return true;
}

/// The store of a value under keys, which stand side by side; all of them go.
void MachineCompiler::emitElementStore(const ParsedAssignment& assignment, const Resolution& base,
                                       std::uint16_t firstKey, std::size_t keys,
                                       std::uint16_t value) {
    const std::size_t baseNumber = base.isRegister ? base.reg : base.record;
    constexpr auto kBothGo = static_cast<std::uint8_t>(kFirstGoes | kSecondGoes);
    if (keys == 1 && assignment.isPlain) {
        emitABC(base.isRegister ? Op::SetIndex : Op::SetIndexGlobal, baseNumber, firstKey, value,
                kBothGo);
    } else if (keys == 1) {
        emitABC(base.isRegister ? Op::UpdateIndex : Op::UpdateIndexGlobal, baseNumber, firstKey,
                value, static_cast<std::uint8_t>(assignment.operation));
    } else {
        StoreSite site;
        site.base = static_cast<std::uint16_t>(baseNumber);
        site.isGlobal = !base.isRegister;
        site.firstKey = firstKey;
        site.keyCount = static_cast<std::uint16_t>(keys);
        site.value = value;
        site.operation = assignment.isPlain ? '\0' : assignment.operation;
        emitD(Op::SetPath, 0, static_cast<std::int64_t>(out_.stores.size()));
        out_.stores.push_back(site);
    }
}

/// The value of the chunk behind an assignment to several targets: nil, but if some of them have
/// keys it is what the last plain name among them gets.
void MachineCompiler::emitValueOfParallel(const ParsedAssignment& assignment,
                                          std::uint16_t firstValue, bool anyIndexed) {
    if (!tracksValue_) return;
    std::size_t last = assignment.targets.size();
    while (anyIndexed && last > 0 && !assignment.targets[last - 1].indexRanges.empty()) --last;
    if (!anyIndexed || last == 0) {
        clearValue();
        return;
    }
    const std::uint16_t copy = allocate();
    emitABC(Op::Move, copy, static_cast<std::size_t>(firstValue + last - 1), 0, 0);
    emitD(Op::ChunkValue, copy, 0);
    valueIsNil_ = false;
}

/// `a, b = x, y`, `a, b = f()` and the forms with keys: all keys, then all values, then the stores.
/// Leaves the value of the chunk as it is then: where a target has keys, the last plain name's.
bool MachineCompiler::emitParallel(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const std::size_t count = assignment.targets.size();
    if (!assignment.isPlain || count < 2 || count > 100) return false;
    bool anyIndexed = false;
    for (const ParsedAssignmentTarget& target : assignment.targets) {
        anyIndexed = anyIndexed || !target.indexRanges.empty();
        if (line.assignmentScope != ScopeTarget::Default) {
            if (!target.indexRanges.empty()) return false;
        }
        if (!target.indexRanges.empty()) {
            const Resolution base = resolve(line, target.nameToken);
            if (!base.isRegister && (out_.variables[base.record].global == nullptr ||
                                     out_.variables[base.record].hasPlace)) {
                awaited_ = base.record;
                return false;
            }
        }
    }
    const std::size_t values = assignment.valueRanges.size();
    bool byName = false;
    if (line.assignmentScope != ScopeTarget::Default) {
        // The names must come in the order of their places.
        const Chunk& chunk = chunks_.back();
        const Region* region = regions_.empty() ? nullptr : &regions_.back();
        std::size_t next = line.assignmentScope == ScopeTarget::Local
                               ? chunk.declared.size()
                               : (region != nullptr ? region->declared.size() : 0);
        for (const ParsedAssignmentTarget& target : assignment.targets) {
            if (declaredPlace(line, target.nameToken)) continue;
            const Name name = line.tokenAnalysis[target.nameToken].name;
            if (line.assignmentScope == ScopeTarget::Local) {
                if (!chunk.ownsBlock) return false;
                const auto& names = out_.windows[chunk.window].names;
                if (next >= names.size() || names[next] != name) return false;
            } else {
                if (isDeclaredByName(line, target.nameToken)) {
                    byName = true;
                    continue;
                }
                const auto& names = out_.windows[region->window].names;
                if (byName || next >= names.size() || names[next] != name) return false;
            }
            ++next;
        }
    }
    std::vector<std::uint16_t> keys(count, 0);
    for (std::size_t i = 0; i < count; ++i) {
        const ParsedAssignmentTarget& target = assignment.targets[i];
        if (target.indexRanges.empty()) continue;
        for (const FastExpression& key : target.indexExpressions) {
            if (!key.valid) return false;
        }
        keys[i] = allocate(target.indexExpressions.size());
        for (std::size_t k = 0; k < target.indexExpressions.size(); ++k) {
            emitValue(line, target.indexExpressions[k], static_cast<std::uint16_t>(keys[i] + k));
        }
    }
    const std::uint16_t first = allocate(std::max(values, count));
    if (values == 1) {
        if (anyIndexed || !assignment.values[0].isCall()) return false;
        // The results of the call are spread over the targets.
        const FastExpression& expression = assignment.values[0];
        const Source outer = source_;
        source_ = Source{&line, &expression, Tier::General, kNoSite, false};
        const FastExprNode& call = expression.rootNode();
        const auto arguments = static_cast<std::size_t>(call.intValue);
        const std::uint16_t base = allocate(arguments + 1);
        emitArguments(call, static_cast<std::uint16_t>(base + 1));
        emitTo(call.left, base);
        emitABC(Op::SpreadCall, base, arguments, 0,
                static_cast<std::uint8_t>(static_cast<std::uint8_t>(Tier::General) | blockMark()));
        emitABC(Op::Spread, base, first, count);
        source_ = outer;
    } else {
        for (std::size_t i = 0; i < values; ++i) {
            const auto reg = static_cast<std::uint16_t>(first + i);
            if (assignment.values[i].valid) {
                emitValue(line, assignment.values[i], reg);
            } else if (!emitTokenValue(line, assignment.valueRanges[i], reg)) {
                return false;
            }
        }
        for (std::size_t i = values; i < count; ++i) {
            emitD(Op::LoadNil, static_cast<std::size_t>(first + i), 0);
        }
    }
    emitValueOfParallel(assignment, first, anyIndexed);
    for (std::size_t i = 0; i < count; ++i) {
        const ParsedAssignmentTarget& target = assignment.targets[i];
        const Place value{static_cast<std::uint16_t>(first + i), true};
        if (!target.indexRanges.empty()) {
            const Resolution base = resolve(line, target.nameToken);
            emitElementStore(assignment, base, keys[i], target.indexRanges.size(), value.reg);
        } else if (byName && !declaredPlace(line, target.nameToken)) {
            emitDeclareByName(line, target.nameToken, value.reg);
        } else if (line.assignmentScope != ScopeTarget::Default) {
            storeDeclared(line, target.nameToken, value);
        } else {
            emitStore(line, target.nameToken, value);
        }
    }
    for (std::size_t i = count; i < values; ++i) {
        emitD(Op::Clear, static_cast<std::size_t>(first + i), 0);
    }
    return true;
}
