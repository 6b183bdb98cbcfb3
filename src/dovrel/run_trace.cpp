#include "dovrel/run_trace.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "dovrel/source_lines.h"
#include "dovrel/value_display.h"

namespace {

constexpr std::size_t kPlaceWidth = 16;
constexpr std::size_t kSourceWidth = 100;
constexpr std::size_t kValueWidth = 72;
constexpr std::size_t kMostVariables = 20;
constexpr std::size_t kMostFrames = 50;

std::string shown(const Variable& value) {
    try {
        return shortened(showValue(value), kValueWidth);
    } catch (const std::exception&) {
        return "(broken)";  // a compound assignment that failed has left it of two kinds at once
    }
}

std::string shown(const std::string& name, const Variable& value) {
    return name + " = " + shown(value);
}

bool isAmong(const std::vector<std::string>& wanted, const std::string& name) {
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end();
}

/// Nothing is written or run between the statement's beginning and its assignments.
bool isQuiet(const ParsedScriptLine& line) {
    return line.assignment != nullptr &&
           std::find(line.tokens.begin(), line.tokens.end(), "(") == line.tokens.end();
}

}  // namespace

RunTrace::RunTrace(DovrelScript& interpreter, std::string mainName, const TraceFilter& filter,
                   std::ostream& out, const Palette& palette)
    : CallChain(interpreter, std::move(mainName)), filter_(filter), out_(out), palette_(palette) {}

bool RunTrace::wantsFunction(const ObservedFunction& function) const {
    return !filter_.takesNothing && isAmong(filter_.functions, function.name);
}

bool RunTrace::wantsPlace() const {
    if (frames().empty() || !wantsFunction(*frames().back().function)) return false;
    if (filter_.lines.empty()) return true;
    const Frame& frame = frames().back();
    return std::any_of(filter_.lines.begin(), filter_.lines.end(), [&](const auto& lines) {
        return frame.line >= lines.first && frame.line <= lines.last &&
               frame.function->script->name.ends_with(lines.file);
    });
}

bool RunTrace::wantsVariable(const std::string& name) const {
    return isAmong(filter_.variables, name);
}

std::string RunTrace::place() const {
    const Frame& frame = frames().back();
    std::string text = padRight(placeOf(*frame.function->script, frame.line), kPlaceWidth) + "  ";
    text = palette_.paint(Colour::Dim, text);
    text.append(2 * (frames().size() - 1), ' ');
    if (frame.isTurn) text += '(' + frame.function->name + ") ";
    return text;
}

void RunTrace::write(const std::string& text) { out_ << text << '\n' << std::flush; }

void RunTrace::flush() {
    if (!isHeld_) return;
    isHeld_ = false;
    write(noted_.empty() ? held_ : held_ + palette_.paint(Colour::Cyan, "  @@ " + noted_));
    noted_.clear();
}

void RunTrace::programBegins(const BytecodeProgram& program) {
    if (libraryGlobals_ == 0) libraryGlobals_ = interpreter().globalValues.size();
    CallChain::programBegins(program);
}

void RunTrace::statementBegins(const ParsedScriptLine& line) {
    flush();
    errorChain_.clear();  // what goes on has been caught
    CallChain::statementBegins(line);
    if (!wantsPlace()) return;
    if (!filter_.variables.empty()) return;  // until it is known what it assigns
    held_ = place() + shortened(line.source, kSourceWidth);
    isHeld_ = true;
    if (!isQuiet(line)) flush();
}

void RunTrace::iterationBegins(const ParsedScriptLine& header, const Scope& variables) {
    flush();
    if (frames().empty()) return;
    top().line = header.lineNumber + 1;
    if (!wantsPlace()) return;
    std::string note;
    for (std::size_t i = 0; i < variables.size(); ++i) {
        const ScopeEntry variable = variables[i];
        if (!wantsVariable(variable.name->text)) continue;
        note += (note.empty() ? "" : ", ") + shown(variable.name->text, variable.value);
    }
    if (!note.empty()) writeNote(note);
}

void RunTrace::writeNote(const std::string& note) {
    write(place() + palette_.paint(Colour::Cyan, "@@ " + note));
}

void RunTrace::assigned(const ParsedScriptLine& line, const std::string& name,
                        std::span<const Variable> keys, const Variable& value) {
    if (!wantsPlace() || !wantsVariable(name)) return;
    std::string target = name;
    for (const Variable& key : keys) target += '[' + shown(key) + ']';
    if (!isHeld_ && !filter_.variables.empty()) {
        held_ = place() + shortened(line.source, kSourceWidth);
        isHeld_ = true;
    }
    if (isHeld_) {
        noted_ += (noted_.empty() ? "" : ", ") + shown(target, value);
    } else {
        writeNote(shown(target, value));
    }
}

void RunTrace::callBegins(const ScriptCallable& callable, Arguments args) {
    flush();
    CallChain::callBegins(callable, args);
    if (!wantsFunction(*top().function) || !filter_.lines.empty() || !filter_.variables.empty()) {
        return;
    }
    std::string text(kPlaceWidth + 2 * frames().size(), ' ');
    text += "-> " + top().function->name;
    if (callable.isLoadedChunk) {
        text += ' ' + top().function->script->name;
    } else {
        text += '(';
        for (std::size_t i = 0; i < args.size(); ++i) {
            if (i != 0) text += ", ";
            text += i < callable.parameters.size() ? shown(callable.parameters[i]->text, args[i])
                                                   : shown(args[i]);
        }
        text += ')';
    }
    write(palette_.paint(Colour::Green, text));
}

void RunTrace::callEnds(CallEnd end) noexcept {
    try {
        flush();
        const bool isWanted =
            wantsFunction(*top().function) && filter_.lines.empty() && filter_.variables.empty();
        if (isWanted) {
            std::string text(kPlaceWidth + 2 * frames().size(), ' ');
            text += "<- " + top().function->name;
            if (end == CallEnd::Raised) text += ", by an error";
            if (end == CallEnd::WillRepeat) text += ", which is called again";
            write(palette_.paint(Colour::Green, text));
        }
    } catch (const std::exception&) {
        // A trace with a hole is better than a script that ends for it.
    }
    CallChain::callEnds(end);
}

void RunTrace::errorRaised(std::string_view message) noexcept {
    try {
        flush();
        if (wantsPlace()) {
            write(place() + palette_.paint(Colour::Red, "!! " + shortened(message, kSourceWidth)));
        }
        // What a `pcall` catches is no end of the script; a turn's error may still be one.
        const bool isInTurn = interpreter().inCoroutineTurn;
        if (interpreter().protectedCallDepths.empty() || isInTurn) errorChain_ = describeChain();
    } catch (const std::exception&) {
        // As above.
    }
}

std::string RunTrace::describeChain() const {
    std::string text;
    const std::size_t count = frames().size();
    for (std::size_t i = count; i-- > 0;) {
        if (count > kMostFrames && i == count - kMostFrames / 2) {
            const std::size_t skipped = count - kMostFrames;
            text += "  .. " + std::to_string(skipped) + " more calls ..\n";
            i -= skipped;
        }
        describeFrame(i, text);
    }
    return text;
}

void RunTrace::describeFrame(std::size_t index, std::string& text) const {
    const Frame& frame = frames()[index];
    const std::string source =
        frame.statement != nullptr ? shortened(frame.statement->source, kSourceWidth) : "";
    text += "  " + frame.function->name + (frame.isTurn ? " (turn)" : "") + " at " +
            placeOf(*frame.function->script, frame.line) + ": " + source + '\n';
    std::size_t count = 0;
    const std::vector<ScopeEntry> variables = variablesOf(index);
    for (const ScopeEntry& variable : variables) {
        if (++count > kMostVariables) {
            text += "      .. " + std::to_string(variables.size() - kMostVariables) + " more ..\n";
            break;
        }
        text += "      " + shown(variable.name->text, variable.value) + '\n';
    }
    if (index == 0) describeGlobals(text);
}

/// Those that the script has made and that are no functions, the newest ones.
void RunTrace::describeGlobals(std::string& text) const {
    const DovrelScript& script = interpreter();
    std::vector<std::pair<std::size_t, std::string>> found;
    for (const auto& [name, slot] : script.globalSlots) {
        if (slot < libraryGlobals_ || script.globalValues[slot].type == VarType::Function) continue;
        found.emplace_back(slot, name);
    }
    std::sort(found.begin(), found.end());
    if (found.size() > kMostVariables) {
        text += "      .. " + std::to_string(found.size() - kMostVariables) + " more ..\n";
        found.erase(found.begin(), found.end() - kMostVariables);
    }
    for (const auto& [slot, name] : found) {
        text += "      " + shown(name, script.globalValues[slot]) + '\n';
    }
}
