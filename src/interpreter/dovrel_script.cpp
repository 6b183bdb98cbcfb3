// The interpreter's life and the run pipeline.
#include "interpreter/dovrel_script.h"

#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "eval/name_stack_guard.h"
#include "exec/bytecode_program.h"
#include "exec/machine.h"
#include "interpreter/observed_run.h"

DovrelScript::DovrelScript() : machine(std::make_unique<Machine>(*this)) {
    randomEngine.seed(std::random_device("/dev/urandom")());
    startTime = std::chrono::steady_clock::now();
    registerLibrary();
}

DovrelScript::~DovrelScript() {
    if (!leavesProgramsToSystem) return;
    // Script functions hold nothing but lines. All other values go: they may hold open files.
    static auto& kept = *new std::vector<Variable>;
    try {
        for (Variable& value : globalValues) {
            if (value.type == VarType::Function && nativeOf(&value) == nullptr) {
                kept.push_back(std::move(value));
            }
        }
    } catch (const std::bad_alloc&) {
        return;  // what could not be kept goes as well
    }
}

#ifdef DOVREL_EMBEDDED
void DovrelScript::stopIfWanted() const {
    const StopReason reason = watch.reasonToStop();
    if (reason != StopReason::None) stop(reason);
}

void DovrelScript::stop(StopReason reason) const {
    stoppedIn = scriptNameStack.empty() ? std::string() : *scriptNameStack.back();
    throw ScriptStopped{reason};
}
#endif

void DovrelScript::runScript(std::string source) {
    // Outside the handler, so that the lines are alive while a report is built.
    std::shared_ptr<BytecodeProgram> program;
    try {
        program = readProgram(std::move(source), true);
        runBytecodeProgram(program);
        rethrowPendingCoroutineException();
    } catch (const std::exception& error) {
        rethrowLocated(error, "script");
    }
}

Variable DovrelScript::runBytecodeProgram(const std::shared_ptr<BytecodeProgram>& program) {
    if (leavesProgramsToSystem) {
        static auto& kept = *new std::vector<std::shared_ptr<BytecodeProgram>>;
        kept.push_back(program);
    }
    // The program may be gone before the next line is selected.
    struct LineTextGuard {
        DovrelScript& interpreter;
        ~LineTextGuard() { interpreter.keepCurrentLineText(); }
    } const lineText{*this};
    BlockSignal signal = BlockSignal::None;
    Variable result;
    {
        const NameStackGuard programNames(*this, program->baseDirectory, program->scriptName);
        const ObservedProgram observed(*this, *program);
        if (!machine->tryRun(program, result, signal)) {
            result = executeBytecodeChunkInternal(program, 0, signal);
        }
        rethrowPendingCoroutineException();
    }
    // Found only when it runs, and only here: a `break` travels up like any other signal.
    if (signal == BlockSignal::Break) throwPlainError("break used outside a loop");
    return result;
}
