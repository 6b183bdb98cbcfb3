// Renaming, where the text tells all that a name can mean: variables that a function makes for
// itself, and functions of the scripts. Everything else is refused with the reason, for scoping is
// dynamic and a rename that misses a place changes what a script does.
#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrel/lsp/features.h"
#include "frontend/token_analysis.h"

namespace {

std::string quoted(const std::string& name) { return '`' + name + '`'; }

bool isWordOfStatements(std::string_view name) {
    constexpr std::array<std::string_view, 18> kWords = {
        "if",     "elseif", "else",   "end",   "while", "for", "repeat", "until", "function",
        "return", "break",  "native", "local", "decay", "in",  "not",    "and",   "or"};
    return std::find(kWords.begin(), kWords.end(), name) != kWords.end() || isTrueToken(name) ||
           isFalseToken(name);
}

void requireUsableName(const std::string& name) {
    if (!isIdentifier(name)) {
        throw RefusedRequest(quoted(name) +
                             " is no name: those are of letters from A to Z, digits, `_` and `$`");
    }
    if (isWordOfStatements(name)) {
        throw RefusedRequest(quoted(name) + " is a word of the language");
    }
    if (isLibraryGlobal(name)) {
        throw RefusedRequest(quoted(name) + " is a name of the library, which this would hide");
    }
}

/// The functions that run while another one does, as far as names tell.
class Reach {
public:
    Reach(const Symbols& symbols, const ScriptDocument& document, std::uint32_t function)
        : symbols_(symbols) {
        add({&document, function});
        for (std::size_t i = 0; i < places_.size(); ++i) follow(places_[i]);
    }

    /// The function asked for, and those that it can reach.
    [[nodiscard]] const std::vector<FunctionPlace>& places() const { return places_; }
    /// One of them runs code that cannot be looked at.
    [[nodiscard]] bool runsUnknownCode() const { return runsUnknownCode_; }

private:
    void add(FunctionPlace place) {
        if (seen_.insert({place.document, place.function}).second) places_.push_back(place);
    }

    void addEveryFunction() {
        if (std::exchange(hasEveryFunction_, true)) return;
        for (const ScriptDocument* document : symbols_.documents()) {
            const auto count = document->outline().functions().size();
            for (std::uint32_t i = 1; i < count; ++i) add({document, i});
        }
    }

    void addMembers(NameId key) {
        if (!seenKeys_.insert(key).second) return;
        for (const ScriptDocument* document : symbols_.documents()) {
            const auto& functions = document->outline().functions();
            for (std::uint32_t i = 1; i < functions.size(); ++i) {
                const bool isElement = functions[i].fact->isElement;
                const NameId own = functions[i].fact->key;
                if (isElement && (own == key || own == kNoName)) add({document, i});
            }
        }
    }

    void follow(FunctionPlace place) {
        const Outline& outline = place.document->outline();
        const OutlineFunction& function = outline.functions()[place.function];
        for (std::uint32_t i = function.first; i < function.last; ++i) {
            const OutlineLine& line = outline.lines()[i];
            if (line.function != place.function) continue;
            runsUnknownCode_ = runsUnknownCode_ || line.facts->runsUnknownCode;
            if (line.facts->callsUnknown) addEveryFunction();
            for (const KeyFact& key : line.facts->keys) {
                if (key.isIndex) addMembers(key.key);
            }
            for (const NameFact& name : line.facts->names) {
                const auto& called = symbols_.functionsCalled(name.name);
                for (const FunctionPlace& other : called) add(other);
                // A parameter that is called may hold any function.
                if (name.kind == NameUseKind::Call && called.empty() &&
                    !isLibraryGlobal(symbols_.names().textOf(name.name))) {
                    addEveryFunction();
                }
            }
        }
        for (std::uint32_t i = 1; i < outline.functions().size(); ++i) {
            if (outline.functions()[i].parent == place.function) add({place.document, i});
        }
    }

    const Symbols& symbols_;
    std::vector<FunctionPlace> places_;
    std::set<std::pair<const ScriptDocument*, std::uint32_t>> seen_;
    std::set<NameId> seenKeys_;
    bool hasEveryFunction_ = false;
    bool runsUnknownCode_ = false;
};

/// The functions of a script use `name` without making it for themselves.
bool usesForeign(FunctionPlace place, NameId name) {
    const Outline& outline = place.document->outline();
    if (name == kNoName || outline.owns(place.function, name)) return false;
    const OutlineFunction& function = place.get();
    for (std::uint32_t i = function.first; i < function.last; ++i) {
        const OutlineLine& line = outline.lines()[i];
        if (line.function != place.function) continue;
        for (const NameFact& fact : line.facts->names) {
            if (fact.name == name && Outline::functionOf(line, fact) == place.function) return true;
        }
    }
    return false;
}

std::string functionName(const Symbols& symbols, FunctionPlace place) {
    const FunctionFact* fact = place.get().fact;
    if (fact == nullptr || fact->name == kNoName) return "the top of the script";
    return quoted(symbols.names().textOf(fact->name));
}

/// A variable of a function: nothing that the function calls may get at it, under either name.
void requireOwnIsKnown(const Symbols& symbols, const Symbol& symbol, const std::string& newName) {
    const std::string& oldName = symbols.names().textOf(symbol.name);
    const NameId fresh = newName.empty() ? kNoName : symbols.names().find(newName);
    const Reach reach(symbols, *symbol.document, symbol.function);
    if (reach.runsUnknownCode()) {
        throw RefusedRequest("what calls of `load` and of files run from here may use " +
                             quoted(oldName) + " too, and that cannot be looked at");
    }
    for (const FunctionPlace& place : reach.places()) {
        if (usesForeign(place, symbol.name)) {
            throw RefusedRequest(functionName(symbols, place) + ", which may run from here, uses " +
                                 quoted(oldName) +
                                 " without making it for itself, and gets this one: scoping is "
                                 "dynamic");
        }
        if (usesForeign(place, fresh)) {
            throw RefusedRequest(functionName(symbols, place) + " uses another " + quoted(newName) +
                                 ", which this one would hide");
        }
    }
    if (fresh != kNoName && symbol.document->outline().owns(symbol.function, fresh)) {
        throw RefusedRequest("there is a variable " + quoted(newName) + " already");
    }
}

/// A function of the scripts: its name must mean nothing else anywhere.
void requireFunctionIsKnown(const Symbols& symbols, const Symbol& symbol,
                            const std::string& newName) {
    const std::string& oldName = symbols.names().textOf(symbol.name);
    const NameId fresh = newName.empty() ? kNoName : symbols.names().find(newName);
    if (isLibraryGlobal(oldName)) {
        throw RefusedRequest(quoted(oldName) + " is a name of the library");
    }
    for (const ScriptDocument* document : symbols.documents()) {
        bool usesName = false;
        bool runsUnknownCode = false;
        for (const OutlineLine& line : document->outline().lines()) {
            runsUnknownCode = runsUnknownCode || line.facts->runsUnknownCode;
            for (const NameFact& fact : line.facts->names) {
                if (fact.name == fresh && fresh != kNoName) {
                    throw RefusedRequest("the name " + quoted(newName) + " is used already");
                }
                if (fact.name != symbol.name) continue;
                usesName = true;
                if (isOwnKind(fact.kind)) {
                    throw RefusedRequest(quoted(oldName) +
                                         " is also a variable of a function, which hides the "
                                         "function from all that is called there");
                }
                if (fact.kind == NameUseKind::Write || fact.kind == NameUseKind::Compound) {
                    throw RefusedRequest("a value is assigned to " + quoted(oldName) +
                                         " as well, so that not every use is one of the function");
                }
            }
        }
        if (usesName && runsUnknownCode) {
            throw RefusedRequest("a script that uses " + quoted(oldName) +
                                 " runs code that cannot be looked at");
        }
    }
}

Symbol renamableAt(const Symbols& symbols, const ScriptDocument& document, std::size_t offset,
                   const std::string& newName) {
    const auto symbol = symbols.at(document, offset);
    if (!symbol) throw RefusedRequest("there is no name here");
    const std::string& name = symbols.names().textOf(symbol->name);
    switch (symbol->kind) {
        case SymbolKind::Own: requireOwnIsKnown(symbols, *symbol, newName); break;
        case SymbolKind::Function: requireFunctionIsKnown(symbols, *symbol, newName); break;
        case SymbolKind::Library: throw RefusedRequest(quoted(name) + " is a name of the library");
        case SymbolKind::Member:
            throw RefusedRequest("keys are texts, and which tables hold this one cannot be known");
        case SymbolKind::Global:
            throw RefusedRequest(quoted(name) +
                                 " is a global variable: functions read and write those by the "
                                 "names that their callers have, so not every use can be known");
    }
    return *symbol;
}

}  // namespace

Json prepareRename(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
                   const EditorView& view) {
    const Symbols symbols(workspace);
    const Symbol symbol = renamableAt(symbols, document, offset, "");
    return {{"range", view.range(document, symbol.range)},
            {"placeholder", symbols.names().textOf(symbol.name)}};
}

Json renameAt(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
              const std::string& newName, const EditorView& view) {
    const Symbols symbols(workspace);
    const auto here = symbols.at(document, offset);
    if (here && symbols.names().textOf(here->name) == newName) return {{"changes", Json::object()}};
    requireUsableName(newName);
    const Symbol symbol = renamableAt(symbols, document, offset, newName);
    Json changes = Json::object();
    for (const SymbolUse& use : symbols.usesOf(symbol)) {
        changes[use.document->uri()].push_back(
            {{"range", view.range(*use.document, use.range)}, {"newText", newName}});
    }
    return {{"changes", changes}};
}
