#include "dovrel/prompt_session.h"

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <set>
#include <utility>

#include "dovrel/interrupt.h"
#include "dovrel/library_reference.h"
#include "dovrel/source_text.h"
#include "dovrel/text_file.h"
#include "eval/errors.h"
#include "eval/name_stack_guard.h"
#include "exec/bytecode_program.h"
#include "exec/machine.h"
#include "value/table.h"

namespace {

/// Back at the top, whatever has been left in the middle.
void leaveEverything(DovrelScript& interpreter) {
    interpreter.callDepth = 0;
    interpreter.protectedCallDepths.clear();
    interpreter.softErrorPending = false;
    interpreter.softErrorDepth = 0;
    interpreter.softErrorMessage.clear();
    interpreter.pendingCoroutineException = nullptr;
    interpreter.noteAttention();
    interpreter.baseDirectoryStack.clear();
    interpreter.scriptNameStack.clear();
    interpreter.varargStack.clear();
    interpreter.fastCallable = nullptr;
}

/// The last statement at the top is an expression; `isCall` becomes true if that is a call.
bool endsWithExpression(const BytecodeProgram& program, bool& isCall) {
    const std::vector<ParsedScriptLine>& lines = program.lines.records();
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (line->tokens.empty()) continue;
        isCall = line->expression.isCall() || line->tokens.back() == ")";
        return line->kind == LineKind::Plain && line->assignment == nullptr;
    }
    return false;
}

bool opensBlock(const ParsedScriptLine& line) {
    return line.kind == LineKind::If || line.kind == LineKind::While ||
           line.kind == LineKind::For || line.kind == LineKind::Repeat ||
           (line.kind >= LineKind::Function && line.kind <= LineKind::LocalFunction);
}

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '$';
}

const std::array<std::string_view, 20>& words() {
    static constexpr std::array<std::string_view, 20> kWords = {
        "and", "break", "decay", "else",   "elseif", "end", "exit", "false",  "for",    "function",
        "if",  "in",    "local", "native", "not",    "or",  "quit", "repeat", "return", "true"};
    return kWords;
}

}  // namespace

const std::vector<std::string>& promptCommands() {
    static const std::vector<std::string> commands = {":help",  ":load", ":names", ":quit",
                                                      ":reset", ":time", ":type"};
    return commands;
}

bool isUnfinished(const std::string& text) {
    const SourceText source(text);
    if (source.openString() || source.openBracket()) return true;
    const ParsedSource script(text);
    return std::any_of(script.lines().begin(), script.lines().end(),
                       [](const ParsedScriptLine& line) {
                           return opensBlock(line) && line.matchingEnd == kNoLine;
                       });
}

std::string inOneLine(const std::string& text) {
    std::string line;
    const SourceText source(text);
    for (const SplitLine& one : source.lines()) {
        if (!line.empty()) line += "; ";
        line += one.joined;
    }
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

PromptSession::PromptSession() { reset(); }

void PromptSession::reset() {
    interpreter_ = std::make_unique<DovrelScript>();
    libraryGlobals_ = interpreter_->globalValues.size();
}

PromptResult PromptSession::runNamed(const std::string& text, const std::string& directory,
                                     const std::string& name) {
    PromptResult result;
    DovrelScript& interpreter = *interpreter_;
    const InterruptGuard interruptible;
    // Outside the handler, so that the lines are alive while a report is built.
    std::shared_ptr<BytecodeProgram> program;
    try {
        try {
            const NameStackGuard names(interpreter, directory, name);
            // A report of an open block shows a line number: that of this input.
            interpreter.currentLineNumber = 0;
            interpreter.lastToken.clear();
            program =
                std::make_shared<BytecodeProgram>(interpreter.compileToBytecodeInternal(text));
            Variable value = interpreter.runBytecodeProgram(program);
            interpreter.rethrowPendingCoroutineException();
            bool isCall = false;
            if (endsWithExpression(*program, isCall) && !(isCall && value.isNil())) {
                result.value = std::move(value);
            }
        } catch (const std::exception& error) {
            interpreter.rethrowLocated(error, "script");
        }
    } catch (const ScriptStopped&) {
        result.isInterrupted = true;
        interpreter.machine->forgetLastToken();
        interpreter.keepCurrentLineText();
    } catch (const std::exception& error) {
        result.report = error.what();
    }
    if (result.isInterrupted || !result.report.empty()) leaveEverything(interpreter);
    return result;
}

PromptResult PromptSession::run(const std::string& text) { return runNamed(text, {}, {}); }

PromptResult PromptSession::evaluate(const std::string& expression) {
    // In a line of its own, so that whatever stands behind the expression is an error.
    return runNamed("(" + expression + "\n)", {}, {});
}

PromptResult PromptSession::runFile(const std::string& path) {
    std::string text;
    try {
        text = readTextFile(path);
    } catch (const FileError& error) {
        PromptResult result;
        result.report = error.what();
        return result;
    }
    PromptResult result = runNamed(text, std::filesystem::path(path).parent_path().string(), path);
    result.value.reset();
    return result;
}

std::vector<std::string> PromptSession::ownGlobals() const {
    std::vector<std::string> names(interpreter_->globalValues.size());
    for (const auto& [name, slot] : interpreter_->globalSlots) names[slot] = name;
    names.erase(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(libraryGlobals_));
    return names;
}

const Variable* PromptSession::global(const std::string& name) const {
    const auto found = interpreter_->globalSlots.find(name);
    return found == interpreter_->globalSlots.end() ? nullptr
                                                    : &interpreter_->globalValues[found->second];
}

Completion PromptSession::complete(std::string_view line) const {
    Completion completion;
    std::set<std::string> candidates;
    const auto offer = [&](const std::string& candidate, std::string_view beginning) {
        if (candidate.starts_with(beginning)) candidates.insert(candidate);
    };
    const auto finish = [&](std::size_t length) {
        completion.length = length;
        completion.candidates.assign(candidates.begin(), candidates.end());
        return completion;
    };
    if (line.starts_with(':')) {
        const std::size_t space = line.find(' ');
        if (space == std::string_view::npos) {
            for (const std::string& command : promptCommands()) offer(command, line);
            return finish(line.size());
        }
        if (line.starts_with(":help ")) {
            const std::string_view beginning = line.substr(space + 1);
            for (const std::string& name : LibraryReference::ofLibrary().names()) {
                offer(name, beginning);
            }
            return finish(beginning.size());
        }
    }
    std::size_t start = line.size();
    while (start > 0 && isWordCharacter(line[start - 1])) --start;
    const std::string_view word = line.substr(start);
    // In `name["wo` the keys of what the name holds are what is wanted.
    if (start >= 2 && (line[start - 1] == '"' || line[start - 1] == '\'') &&
        line[start - 2] == '[') {
        std::size_t base = start - 2;
        while (base > 0 && isWordCharacter(line[base - 1])) --base;
        const Variable* holder = global(std::string(line.substr(base, start - 2 - base)));
        const std::string close = std::string(1, line[start - 1]) + ']';
        const bool isText = holder != nullptr && holder->type == VarType::String;
        if (isText) holder = global("string");
        if (holder == nullptr || holder->type != VarType::Table) return completion;
        for (const auto& [key, element] : *holder->asTable()) {
            offer(key->text + close, word);
        }
        return finish(word.size());
    }
    if (word.empty()) return completion;
    for (const auto& [name, slot] : interpreter_->globalSlots) offer(std::string(name), word);
    for (const std::string_view known : words()) offer(std::string(known), word);
    for (const std::string_view known : {"until", "while"}) offer(std::string(known), word);
    return finish(word.size());
}
