// The lines of coroutines as compiled code: one statement each, which a turn runs on its own.
//
// A coroutine keeps its variables in scopes between two turns, so no variable is a register here:
// they are found through their tokens, and globals by their address as long as no scope has the
// name. Whose rules a line follows differs from code of functions in one point: a turn gives every
// assignment to `executeAssignment` and knows no FastAssign. So the value of `x = f(...)` is that
// of any call, and the operand of a compound assignment never counts as the scalar tier's.
#include <algorithm>
#include <memory>
#include <utility>

#include "exec/machine.h"
#include "exec/machine_compiler.h"
#include "exec/machine_finish.h"
#include "value/script_callable.h"

namespace {

/// A line that runs less often takes less time by the tiers than its compilation.
constexpr std::uint8_t kRunsBeforeCode = 8;
/// How often a line is compiled anew at most.
constexpr std::uint8_t kMostRenewals = 4;

}  // namespace

// ---------------------------------------------------------------- code

bool MachineCompiler::compileTurnLine(const ParsedScriptLine& line, MachineDraft& draft) {
    out_.isTurnLine = true;
    out_.blockStates.emplace_back();
    mode_.amongBlocks = true;  // the body's own block
    MachineStatement statement;
    statement.runsCode = true;  // the turn has made its line the current one
    out_.statements.push_back(statement);
    if (!emitTurnLine(line)) return false;
    emit(Op::EndTurnLine);
    return finish(draft);
}

bool MachineCompiler::emitTurnLine(const ParsedScriptLine& line) {
    if (line.kind != LineKind::Plain) return false;
    if (line.assignment == nullptr) return emitExpressionStatement(line);
    const ParsedAssignment& assignment = *line.assignment;
    if (assignment.targets.size() == 1 && assignment.valueRanges.size() <= 1) {
        return assignment.targets[0].indexRanges.empty() ? emitPlainOfTurn(line)
                                                         : emitElementAssignment(line);
    }
    return line.assignmentScope == ScopeTarget::Default && emitParallel(line);
}

bool MachineCompiler::emitPlainOfTurn(const ParsedScriptLine& line) {
    const ParsedAssignment& assignment = *line.assignment;
    const bool declares = line.assignmentScope != ScopeTarget::Default;
    if (assignment.valueRanges.empty() || (declares && !assignment.isPlain)) return false;
    const std::size_t token = assignment.targets[0].nameToken;
    const std::uint16_t value = allocate();
    if (assignment.simpleCall.valid) {
        emitDirectCall(line, assignment.simpleCall, value, 0);
    } else if (assignment.values[0].valid) {
        emitValue(line, assignment.values[0], value);
    } else if (!emitTokenValue(line, assignment.valueRanges[0], value)) {
        return false;
    }
    if (assignment.simpleValueIsCall()) emitABC(Op::CutMulti, value, 0, 0);
    if (!assignment.isPlain) {
        emitUpdate(line, value, OperandOrigin::General);
    } else if (declares) {
        emitDeclareByName(line, token, value);
    } else {
        emitStore(line, token, {value, true});
    }
    return true;
}

bool Machine::compileTurnLine(const ScriptCallable& callable, std::size_t index,
                              MachineFunction& function) {
    MachineCompiler::Unit unit;
    auto version = std::make_unique<MachineFunction::Version>();
    version->draft = std::make_unique<MachineDraft>();
    if (!MachineCompiler(interpreter_, *function.program, unit)
             .compileTurnLine((*callable.bodyLines)[index], *version->draft)) {
        return false;
    }
    version->draft->tables.function = &function;
    version->draft->tables.program = function.program;
    version->plain = std::make_unique<MachineCode>(finishMachineCode(*version->draft, false));
    if (!version->plain->isUsable()) return false;
    version->plain->version = version.get();
    function.forms[0].versions.push_back(std::move(version));
    return true;
}

/// The code of line `index` of the body; null if there is none, or not yet.
const MachineCode* Machine::turnLineCode(const ScriptCallable& callable, std::size_t index) {
    if (callable.turnLines == nullptr) {
        callable.turnLines = std::make_shared<TurnLines>();
        callable.turnLines->lines.resize(callable.bodyLines->size());
    }
    TurnLines::Line& line = callable.turnLines->lines[index];
    if (line.isRefused) return nullptr;
    if (line.function == nullptr) {
        if (++line.runs < kRunsBeforeCode) return nullptr;
        line.isRefused = true;  // unless it turns out well
        auto function = std::make_unique<MachineFunction>();
        function->program = callable.program.get();
        function->hasFrame = false;
        // What a call of a function with the same texts need not push.
        const auto shared = [](const std::string& text, const std::string& known,
                               std::string& own) {
            if (text == known) return &known;
            own = text;
            return static_cast<const std::string*>(&own);
        };
        function->baseDirectory = shared(callable.baseDirectory, function->program->baseDirectory,
                                         function->ownDirectory);
        function->scriptName =
            shared(callable.scriptName, function->program->scriptName, function->ownName);
        if (!compileTurnLine(callable, index, *function)) return nullptr;
        ++counts.compiled;
        line.function = std::move(function);
        line.isRefused = false;
    }
    MachineFunction::Form& form = line.function->forms[0];
    // What its tokens meet after some renewals is not worth another.
    if (form.versions.back()->plain->isStale && form.renewals < kMostRenewals) {
        ++form.renewals;
        if (compileTurnLine(callable, index, *line.function)) ++counts.recompiled;
    }
    return form.versions.back()->plain.get();
}

// ---------------------------------------------------------------- runs

bool Machine::runTurnLine(const ScriptCallable& callable, std::size_t index) {
    if (interpreter_.softErrorPending || callable.program == nullptr ||
        !interpreter_.runsCompiledForm) {
        return false;
    }
    const MachineCode* code = turnLineCode(callable, index);
    if (code == nullptr) return false;
    activations_.reserveOne();
    bool hasSegment = false;
    Variable* const base = roomFor(top(), 0, code->registerCount, hasSegment);
    Activation& entered = activations_.push();
    entered.code = code;
    entered.base = base;
    entered.lineAtEntry = interpreter_.currentLine;
    entered.frames = static_cast<std::uint32_t>(interpreter_.frameScopes.size());
    entered.blocks = static_cast<std::uint32_t>(interpreter_.blockScopes.open().size());
    entered.marks = Activation::kEntry | Activation::kProgram;
    entered.set(Activation::kSegment, hasSegment);
    ++counts.turnLines;
    // The code may go with the coroutine, and nothing is to lead into it then.
    try {
        static_cast<void>(run());
    } catch (...) {
        declined_ = diverged_ = nullptr;
        showToken();
        throw;
    }
    declined_ = diverged_ = nullptr;
    showToken();
    return true;
}
