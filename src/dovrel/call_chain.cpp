#include "dovrel/call_chain.h"

#include <algorithm>
#include <exception>

#include "coroutine/coroutine_state.h"
#include "dovrel/text_file.h"
#include "exec/bytecode_program.h"

namespace {

bool canRun(const ParsedScriptLine& line) {
    switch (line.kind) {
        case LineKind::Empty:
        case LineKind::Else:
        case LineKind::End:
        case LineKind::Repeat: return false;
        default: return !line.tokens.empty();
    }
}

/// What stands between the words of a declaration and its parameters.
std::string declaredName(const ParsedScriptLine& line) {
    std::string name;
    for (std::size_t i = line.kind == LineKind::Function ? 1 : 2; i < line.tokens.size(); ++i) {
        if (line.tokens[i] == "(") break;
        name += line.tokens[i];
    }
    return name;
}

bool holds(const std::string& path, const std::string& source) {
    if (path.empty() || path == "-") return false;
    try {
        return readTextFile(path) == source;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

CallChain::CallChain(DovrelScript& interpreter, std::string mainName)
    : interpreter_(interpreter), mainName_(std::move(mainName)) {}

std::string CallChain::placeOf(const ObservedScript& script, std::size_t line) {
    const std::string number = std::to_string(line);
    return script.name.empty() ? "line " + number : script.name + ':' + number;
}

ObservedScript& CallChain::scriptCalled(const std::string& name, const std::string& source) {
    for (ObservedScript& script : scripts_) {
        if (script.givenName == name && script.source == source) return script;
    }
    ObservedScript& script = scripts_.emplace_back();
    script.index = scripts_.size() - 1;
    script.name = name;
    script.givenName = name;
    script.source = source;
    // A text that `load` was given goes by the name of the script that has called it.
    script.isFile = script.index == 0 || holds(name, source);
    if (!script.isFile) script.name = "(text in " + (name.empty() ? "a script" : name) + ")";
    script.outside = &functionAt(script, "(script)", 0);
    return script;
}

ObservedFunction& CallChain::functionAt(ObservedScript& script, const std::string& name,
                                        std::size_t line) {
    ObservedFunction*& known = known_[{script.index, {line, name}}];
    if (known != nullptr) return *known;
    known = &functions_.emplace_back();
    known->name = name;
    known->script = &script;
    known->line = line;
    known->index = functions_.size() - 1;
    if (line != 0) script.declared.push_back(known);
    return *known;
}

void CallChain::programMade(const BytecodeProgram& program, const std::string& source) {
    const std::string& name = program.scriptName.empty() ? mainName_ : program.scriptName;
    ObservedScript& script = scriptCalled(name, source);
    Program made;
    made.script = &script;
    if (script.statementLines.empty()) {
        for (const ParsedScriptLine& line : program.lines.records()) {
            if (canRun(line)) script.statementLines.push_back(line.lineNumber + 1);
        }
        std::vector<std::size_t>& lines = script.statementLines;
        std::sort(lines.begin(), lines.end());
        lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    }
    for (const BytecodeFunctionDecl& declaration : program.functionDecls) {
        const ParsedScriptLine& line = program.lines[declaration.declarationLine];
        ObservedFunction& function = functionAt(script, declaredName(line), line.lineNumber + 1);
        function.isDecay = line.kind == LineKind::DecayFunction;
        made.byChunk[declaration.bodyChunk] = &function;
    }
    // Where a program has gone, another may stand.
    programs_[program.lines.records().data()] = std::move(made);
}

ObservedFunction& CallChain::functionOf(const ScriptCallable& callable) {
    if (callable.program != nullptr) {
        const auto found = programs_.find(callable.program->lines.records().data());
        if (found != programs_.end()) {
            if (callable.isLoadedChunk) return *found->second.script->outside;
            const auto function = found->second.byChunk.find(callable.chunkIndex);
            if (function != found->second.byChunk.end()) return *function->second;
        }
    }
    // Declared while a coroutine ran: it knows the name of its script, and its lines.
    const std::string& name = callable.scriptName.empty() ? mainName_ : callable.scriptName;
    ObservedScript* script = &scripts_.front();
    for (ObservedScript& other : scripts_) {
        if (other.givenName == name && other.isFile) script = &other;
    }
    const auto& lines = callable.bodyLines;
    const std::size_t first = lines != nullptr && !lines->empty() ? lines->front().lineNumber : 0;
    return functionAt(*script, callable.name, first);
}

void CallChain::push(ObservedFunction& function, const ScriptCallable* callable) {
    Frame frame;
    frame.function = &function;
    frame.callable = callable;
    frame.firstFrameScope = interpreter_.frameScopes.size();
    frame.firstBlockScope = interpreter_.blockScopes.size();
    frames_.push_back(frame);
}

void CallChain::programBegins(const BytecodeProgram& program) {
    const auto found = programs_.find(program.lines.records().data());
    push(*(found != programs_.end() ? found->second.script : &scripts_.front())->outside, nullptr);
}

void CallChain::programEnds() noexcept { frames_.pop_back(); }

void CallChain::statementBegins(const ParsedScriptLine& line) {
    if (frames_.empty()) return;
    top().statement = &line;
    top().line = line.lineNumber + 1;
}

void CallChain::callBegins(const ScriptCallable& callable, Arguments args) {
    push(functionOf(callable), &callable);
    Frame& frame = top();
    frame.isShort = callable.fastBodyKind != FastBodyKind::None;
    if (frame.isShort) {
        frame.arguments = args;
    } else {
        --frame.firstFrameScope;  // the scope of its parameters is there already
    }
}

void CallChain::callEnds(CallEnd /*end*/) noexcept { frames_.pop_back(); }

void CallChain::turnBegins(const CoroutineState& coroutine) {
    turn_ = &coroutine;
    ObservedFunction& function = functionOf(*coroutine.callable);
    function.isDecay = true;
    push(function, coroutine.callable.get());
    top().firstFrameScope = 0;
    top().firstBlockScope = 0;
    top().isTurn = true;
}

void CallChain::turnEnds() noexcept {
    frames_.pop_back();
    turn_ = nullptr;
}

std::vector<ScopeEntry> CallChain::variablesOf(std::size_t index) const {
    const Frame& frame = frames_[index];
    std::vector<ScopeEntry> variables;
    if (frame.isShort) {
        const std::vector<Name>& names = frame.callable->parameters;
        for (std::size_t i = 0; i < names.size() && i < frame.arguments.size(); ++i) {
            variables.push_back({names[i], const_cast<Variable&>(frame.arguments[i])});
        }
        return variables;
    }
    std::size_t turn = frames_.size();
    while (turn > 0 && !frames_[turn - 1].isTurn) --turn;
    // What stands below a turn is the main flow, whose scopes the coroutine holds meanwhile.
    const bool isBelowTurn = turn > 0 && index + 1 < turn;
    const ScopeStack& calls = isBelowTurn ? turn_->flow.frameScopes : interpreter_.frameScopes;
    const ScopeStack& blocks =
        isBelowTurn ? turn_->flow.blockScopes : interpreter_.blockScopes.all();
    const Frame* next = index + 1 < frames_.size() ? &frames_[index + 1] : nullptr;
    if (next != nullptr && next->isTurn) next = nullptr;
    const auto add = [&](const ScopeStack& scopes, std::size_t first, std::size_t end) {
        for (std::size_t i = first; i < std::min(end, scopes.size()); ++i) {
            for (std::size_t j = 0; j < scopes[i].size(); ++j) variables.push_back(scopes[i][j]);
        }
    };
    add(calls, frame.firstFrameScope, next != nullptr ? next->firstFrameScope : calls.size());
    add(blocks, frame.firstBlockScope, next != nullptr ? next->firstBlockScope : blocks.size());
    return variables;
}
