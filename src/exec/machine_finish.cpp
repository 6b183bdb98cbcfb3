#include "exec/machine_finish.h"

#include <limits>

#include "exec/bytecode_program.h"

namespace {

using Op = MachineOp;

/// Instructions that the form without turns leaves out.
bool isForTurns(const MachineInstruction& instruction) {
    switch (instruction.op) {
        case Op::BeginStatement:
        case Op::EndStatement:
        case Op::EndInline:
        case Op::GiveTurns: return true;
        case Op::Line:
        case Op::JumpBack: return instruction.m == 1;
        default: return false;
    }
}

bool hasShortTarget(Op op) { return op >= Op::IfEqual && op <= Op::UnlessEqualConst; }

/// Where each instruction of a draft comes to stand.
std::vector<std::uint32_t> placesOf(const MachineDraft& draft, bool forTurns) {
    std::vector<std::uint32_t> places(draft.code.size() + 1);
    std::uint32_t next = 0;
    for (std::size_t i = 0; i < draft.code.size(); ++i) {
        places[i] = next;
        if (forTurns || !isForTurns(draft.code[i])) ++next;
    }
    places[draft.code.size()] = next;
    return places;
}

/// The form of an instruction that takes an element for the next one to go on with.
Op throughForm(Op op) {
    switch (op) {
        case Op::Index: return Op::IndexThrough;
        case Op::IndexInt: return Op::IndexIntThrough;
        case Op::IndexConst: return Op::IndexConstThrough;
        case Op::IndexGlobal: return Op::IndexGlobalThrough;
        case Op::IndexGlobalConst: return Op::IndexGlobalConstThrough;
        default: return op;
    }
}

/// Pairs of instructions that take an element of an element, or a call's value to a variable. The
/// second stays as it is, for who jumps there and for values that the pair does not serve.
void joinPairs(std::vector<MachineInstruction>& code) {
    for (std::size_t i = 0; i + 1 < code.size(); ++i) {
        const MachineInstruction& next = code[i + 1];
        if (code[i].op == Op::CutMulti && next.op == Op::Take && next.b == code[i].a) {
            code[i].op = Op::CutMultiAndTake;
        }
        const bool takesElement =
            next.op == Op::Index || next.op == Op::IndexInt || next.op == Op::IndexConst;
        // The element between the two is in no register afterwards, and nothing else goes with
        // them.
        const bool isOverwritten = next.a == next.b;
        const bool goesWithNext = (next.m & kFirstGoes) != 0 && code[i].a != code[i].b;
        if (!takesElement || next.b != code[i].a || (!isOverwritten && !goesWithNext)) continue;
        const bool isOfGlobal = code[i].op == Op::IndexGlobal || code[i].op == Op::IndexGlobalConst;
        if (!isOfGlobal && (code[i].m & kFirstGoes) != 0) continue;
        const Op joined = throughForm(code[i].op);
        if (joined == code[i].op) continue;
        code[i].op = joined;
        ++i;
    }
}

}  // namespace

MachineCode finishMachineCode(const MachineDraft& draft, bool forTurns) {
    MachineCode result = draft.tables;
    const std::vector<std::uint32_t> places = placesOf(draft, forTurns);
    for (const MachineInstruction& instruction : draft.code) {
        if (instruction.op == Op::JumpBack) {
            // Where it is left out, what follows it.
            const auto loop = static_cast<std::size_t>(instruction.d());
            if (result.loopEnds.size() <= loop) result.loopEnds.resize(loop + 1, kNoLoopEnd);
            result.loopEnds[loop] = static_cast<std::uint32_t>(result.code.size());
        }
        if (!forTurns && isForTurns(instruction)) continue;
        result.code.push_back(instruction);
    }
    const auto target = [&](std::uint32_t label) { return places[draft.labels[label]]; };
    for (const auto& [at, label] : draft.jumps) {
        MachineInstruction& instruction = result.code[places[at]];
        if (hasShortTarget(instruction.op)) {
            const std::int64_t distance =
                std::int64_t{target(label)} - static_cast<std::int64_t>(places[at]);
            if (distance < std::numeric_limits<std::int16_t>::min() ||
                distance > std::numeric_limits<std::int16_t>::max()) {
                return {};
            }
            instruction.c = static_cast<std::uint16_t>(static_cast<std::int16_t>(distance));
        } else {
            instruction.setD(static_cast<std::int32_t>(target(label)));
        }
    }
    for (MachineStatement& statement : result.statements) {
        statement.first = places[statement.first];
        const LineTable& lines = result.program->lines;
        statement.lineNumber = lines.lineNumberOf(statement.line);
        statement.source =
            lines.isPassing(statement.line) ? nullptr : &lines[statement.line].source;
    }
    constexpr auto kUnbound = static_cast<std::uint32_t>(-1);
    for (ExpressionSite& site : result.expressions) {
        site.first = places[site.first];
        site.last = places[site.last];
        if (site.behind != kUnbound) site.behind = target(site.behind);
        if (site.isScalarForm) {
            site.doneTrue = target(site.doneTrue);
            site.doneFalse = target(site.doneFalse);
        }
        if (site.isCondition && site.otherwise != kUnbound) site.otherwise = target(site.otherwise);
    }
    for (ScalarCallSite& site : result.scalarCalls) site.behind = target(site.behind);
    for (LoopSite& site : result.loops) site.otherwise = target(site.otherwise);
    for (TokenSite& site : result.tokens) site.at = places[site.at];
    if (!result.windows.empty()) {
        const ScopeWindow& window = result.windows[result.frameWindow];
        result.frame.names = window.names.data();
        result.frame.given = window.given;
        result.frame.capacity = static_cast<std::uint32_t>(window.names.size());
        result.frame.hasOwnNames = window.hasOwnNames;
    }
    joinPairs(result.code);
    result.forTurns = forTurns;
    return result;
}

void linkMachineCode(const MachineDraft& draft, MachineCode& plain, MachineCode& turns) {
    plain.other = &turns;
    turns.other = &plain;
    plain.toOther.resize(plain.code.size());
    turns.toOther = placesOf(draft, false);
    for (std::uint32_t i = 0; i < draft.code.size(); ++i) {
        if (!isForTurns(draft.code[i])) plain.toOther[turns.toOther[i]] = i;
    }
}
