// Code for functions and programs: made at the second call, or at the first of what holds a loop,
// and anew when tokens have met their places.
#include <algorithm>
#include <utility>

#include "exec/machine.h"
#include "exec/machine_compiler.h"
#include "exec/machine_finish.h"
#include "value/script_callable.h"

namespace {

/// How often a function is compiled anew at most, and how often as soon as a token has met its
/// place. A long function has met all of its places late: each further renewal waits until tokens
/// have asked for it twice as often as for the one before, so that a place in use gets its code.
constexpr std::uint8_t kMostRenewals = 16;
constexpr std::uint8_t kRenewalsAtOnce = 6;
/// Programs may load texts without end: what is kept for good is bounded.
constexpr std::size_t kMostConstantTexts = 8192;
constexpr std::size_t kLongestConstantText = 64;

}  // namespace

MachineFunction::MachineFunction() = default;
MachineFunction::~MachineFunction() = default;
MachineFunctions::MachineFunctions() = default;
MachineFunctions::MachineFunctions(const MachineFunctions&) {}
MachineFunctions::MachineFunctions(MachineFunctions&&) noexcept = default;
MachineFunctions& MachineFunctions::operator=(const MachineFunctions&) {
    byChunk.clear();
    haveBeenCalled.clear();
    return *this;
}
MachineFunctions& MachineFunctions::operator=(MachineFunctions&&) noexcept = default;
MachineFunctions::~MachineFunctions() = default;

Text Machine::constantText(const std::string& text) {
    const auto known = constantTexts_.find(text);
    if (known != constantTexts_.end()) return known->second;
    Text made = makeText(text);
    if (text.size() <= kLongestConstantText && constantTexts_.size() < kMostConstantTexts) {
        constantTexts_.emplace(text, made);
        made->isConstant = true;
    }
    return made;
}

const Text& Machine::typeText(VarType type, const char* word) {
    Text& text = typeTexts_[static_cast<std::size_t>(type)];
    if (text == nullptr) text = constantText(word);
    return text;
}

/// Most functions of a long script are called once, if at all. Their code would take more memory
/// than their text and their lines, and longer to make than the executor takes for them, unless it
/// is in a loop that they spend their time.
bool Machine::isFirstCall(const ScriptCallable& callable) {
    BytecodeProgram& program = *callable.program;
    std::vector<bool>& known = program.machineFunctions.haveBeenCalled;
    if (known.size() < program.chunks.size()) known.resize(program.chunks.size());
    if (known[callable.chunkIndex]) return false;
    known[callable.chunkIndex] = true;
    MachineCompiler::Unit unit;
    unit.chunk = callable.chunkIndex;
    return !MachineCompiler(interpreter_, program, unit).holdsLoop();
}

MachineFunction* Machine::functionOf(const ScriptCallable& callable) {
    if (callable.machineFunction != nullptr) return callable.machineFunction;
    if (callable.isMachineRefused || callable.program == nullptr ||
        !interpreter_.runsCompiledForm) {
        return nullptr;
    }
    BytecodeProgram& program = *callable.program;
    auto& functions = program.machineFunctions.byChunk;
    if (callable.chunkIndex >= program.chunks.size()) {
        callable.isMachineRefused = true;
        return nullptr;
    }
    if (functions.size() < program.chunks.size()) functions.resize(program.chunks.size());
    std::unique_ptr<MachineFunction>& function = functions[callable.chunkIndex];
    if (function == nullptr && isFirstCall(callable)) return nullptr;
    callable.isMachineRefused = true;
    if (function == nullptr) {
        function = std::make_unique<MachineFunction>();
        function->program = &program;
        function->chunk = callable.chunkIndex;
        function->parameters = callable.parameters;
        function->runsOnce = callable.isLoadedChunk;
        const auto shared = [](const std::string& text, const std::string& known,
                               std::string& own) {
            if (text == known) return &known;
            own = text;
            return static_cast<const std::string*>(&own);
        };
        function->baseDirectory =
            shared(callable.baseDirectory, program.baseDirectory, function->ownDirectory);
        function->scriptName = shared(callable.scriptName, program.scriptName, function->ownName);
        const bool isOfProgram = function->baseDirectory == &program.baseDirectory &&
                                 function->scriptName == &program.scriptName;
        function->names = isOfProgram ? static_cast<const void*>(&program) : function.get();
    }
    // In a damaged file two declarations may share a body.
    if (!function->hasFrame || function->parameters != callable.parameters ||
        *function->baseDirectory != callable.baseDirectory ||
        *function->scriptName != callable.scriptName) {
        return nullptr;
    }
    callable.isMachineRefused = false;
    callable.machineFunction = function.get();
    if (callable.runsInFrame()) callable.directFunction = function.get();
    return function.get();
}

bool Machine::compile(MachineFunction& function, bool amongBlocks) {
    MachineFunction::Form& form = function.forms[amongBlocks ? 1 : 0];
    MachineCompiler::Unit unit;
    unit.chunk = function.chunk;
    unit.parameters = function.parameters;
    unit.hasFrame = function.hasFrame;
    unit.amongBlocks = amongBlocks;
    unit.runsOnce = function.runsOnce;
    auto version = std::make_unique<MachineFunction::Version>();
    version->draft = std::make_unique<MachineDraft>();
    if (!MachineCompiler(interpreter_, *function.program, unit).compile(*version->draft)) {
        return false;
    }
    MachineCode& tables = version->draft->tables;
    tables.function = &function;
    tables.program = function.program;
    tables.parameterCount = static_cast<std::uint16_t>(function.parameters.size());
    version->plain = std::make_unique<MachineCode>(finishMachineCode(*version->draft, false));
    if (!version->plain->isUsable()) return false;
    version->plain->version = version.get();
    form.versions.push_back(std::move(version));
    return true;
}

/// The code of a function of one line without calls; null if the callee is none.
const MachineCode* Machine::leafCode(const Variable& callee) {
    if (callee.tag() != Variable::kFunctionTag || interpreter_.softErrorPending) return nullptr;
    const ScriptCallable* callable = callee.rawFunction();
    return callable != nullptr ? leafCode(*callable) : nullptr;
}

const MachineCode* Machine::leafCode(const ScriptCallable& callable) {
    if (callable.isLeafRefused || callable.fastBodyKind != FastBodyKind::SingleReturn) {
        return nullptr;
    }
    const MachineCode* code = callable.leaf != nullptr ? callable.leaf->ready[0] : nullptr;
    return code != nullptr ? code : renewLeaf(callable);
}

const MachineCode* Machine::renewLeaf(const ScriptCallable& callable) {
    callable.isLeafRefused = true;
    if (callable.isNative || callable.isDecay || callable.isVariadic ||
        callable.program == nullptr || callable.bodyLines == nullptr ||
        callable.fastReturnLine >= callable.bodyLines->size() || !interpreter_.runsCompiledForm) {
        return nullptr;
    }
    const ParsedScriptLine& line = (*callable.bodyLines)[callable.fastReturnLine];
    if (line.tokens.size() < 2) return nullptr;
    if (line.hasCompiledReturnValues()) {
        const auto holdsCall = [](const FastExpression& value) {
            return value.rootNode().holdsCall;
        };
        const auto& values = line.returnValues;
        if (values.size() > kMostSpread || std::any_of(values.begin(), values.end(), holdsCall)) {
            return nullptr;
        }
    }
    // As of any other function, there is no code for the first call.
    if (!callable.hasBeenCalled) {
        callable.hasBeenCalled = true;
        callable.isLeafRefused = false;
        return nullptr;
    }
    if (callable.leaf == nullptr) {
        callable.leaf = std::make_shared<MachineFunction>();
        callable.leaf->program = callable.program.get();
        callable.leaf->parameters = callable.parameters;
    }
    MachineFunction& function = *callable.leaf;
    MachineFunction::Form& form = function.forms[0];
    if (form.renewals++ < kRenewalsAtOnce) {
        MachineCompiler::Unit unit;
        unit.parameters = function.parameters;
        auto version = std::make_unique<MachineFunction::Version>();
        version->draft = std::make_unique<MachineDraft>();
        if (!MachineCompiler(interpreter_, *function.program, unit)
                 .compileLeaf(line, *version->draft)) {
            return nullptr;
        }
        MachineCode& tables = version->draft->tables;
        tables.function = &function;
        tables.program = function.program;
        tables.parameterCount = static_cast<std::uint16_t>(function.parameters.size());
        version->plain = std::make_unique<MachineCode>(finishMachineCode(*version->draft, false));
        if (!version->plain->isUsable()) return nullptr;
        version->plain->version = version.get();
        form.versions.push_back(std::move(version));
        ++(form.versions.size() == 1 ? counts.compiled : counts.recompiled);
    }
    form.versions.back()->plain->isStale = false;
    function.ready[0] = form.versions.back()->plain.get();
    callable.isLeafRefused = false;
    return function.ready[0];
}

/// The same code with turns of a coroutine.
const MachineCode* Machine::turnsOf(const MachineCode& plain) {
    auto& version = *static_cast<MachineFunction::Version*>(plain.version);
    if (version.turns == nullptr) {
        version.turns = std::make_unique<MachineCode>(finishMachineCode(*version.draft, true));
        version.turns->version = &version;
        linkMachineCode(*version.draft, *version.plain, *version.turns);
    }
    return version.turns.get();
}

/// Tokens of the code have met their places: it is to be made anew, with its form for turns.
void Machine::makeStale(const MachineCode& code) {
    const MachineCode& plain = code.forTurns ? *code.other : code;
    code.isStale = plain.isStale = true;
    for (const MachineCode*& ready : code.function->ready) {
        if (ready == &plain) ready = nullptr;
    }
}

/// Finds out whether the names of the function's own scope need to be counted.
void Machine::settleFrame(const MachineCode& code) {
    MachineCode::Frame& frame = code.frame;
    const std::vector<Name>& names = code.windows[code.frameWindow].names;
    const bool isCounted =
        frame.hasOwnNames || std::any_of(names.begin(), names.end(), [this](Name name) {
            return interpreter_.findGlobalSlot(name) != kNoGlobalSlot;
        });
    frame.capacity = static_cast<std::uint32_t>(names.size());
    if (!isCounted) {
        frame.capacity |= Scope::kUncounted;
        for (const Name name : names) name->markForFrames();
    }
    frame.version = interpreter_.frameNamesVersion;
}

bool Machine::isRenewalDue(MachineFunction::Form& form) {
    if (form.renewals < kRenewalsAtOnce) return true;
    return form.renewals < kMostRenewals && ++form.requests >= 1U << form.renewals;
}

/// The code for a call now; null if there is none.
const MachineCode* Machine::codeOf(MachineFunction& function, bool amongBlocks) {
    MachineFunction::Form& form = function.forms[amongBlocks ? 1 : 0];
    if (form.versions.empty()) {
        if (form.isRefused) return nullptr;
        if (!compile(function, amongBlocks)) {
            form.isRefused = true;
            if (!function.runsOnce) ++counts.refused;  // else it has no loop
            return nullptr;
        }
        ++counts.compiled;
    } else if (form.versions.back()->plain->isStale) {
        // What its tokens have met may not be worth another, or not yet.
        const MachineCode& known = *form.versions.back()->plain;
        known.isStale = false;
        if (known.other != nullptr) known.other->isStale = false;
        if (isRenewalDue(form)) {
            ++form.renewals;
            form.requests = 0;
            if (compile(function, amongBlocks)) ++counts.recompiled;
        }
    }
    const MachineCode& plain = *form.versions.back()->plain;
    function.ready[amongBlocks ? 1 : 0] = &plain;
    return givesTurns() ? turnsOf(plain) : &plain;
}

/// The code that goes on for `code` at the end of a loop's turn.
const MachineCode* Machine::renewed(MachineFunction& function, const MachineCode& code) {
    for (std::size_t i = 0; i < function.forms.size(); ++i) {
        for (const auto& version : function.forms[i].versions) {
            if (version.get() == code.version) return codeOf(function, i == 1);
        }
    }
    return &code;
}
