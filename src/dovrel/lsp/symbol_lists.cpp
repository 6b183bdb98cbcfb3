// The functions and globals of a script as a tree, and those of all scripts as a list.
#include <algorithm>
#include <cctype>
#include <set>
#include <string>
#include <vector>

#include "dovrel/lsp/features.h"

namespace {

constexpr int kFunctionSymbol = 12;
constexpr int kVariableSymbol = 13;
constexpr int kMethodSymbol = 6;
constexpr std::size_t kMostSymbols = 500;

/// One function, or the first assignment of a global at the top.
struct ListedSymbol {
    std::string name;
    std::string detail;
    int kind = kVariableSymbol;
    SourceRange range;           // the whole
    SourceRange selection;       // the name
    std::uint32_t function = 0;  // of a function itself
    std::uint32_t parent = 0;    // the function that it is in
};

std::vector<ListedSymbol> symbolsOf(const NameTable& names, const ScriptDocument& document) {
    std::vector<ListedSymbol> found;
    std::set<NameId> seen;
    const Outline& outline = document.outline();
    for (const OutlineLine& line : outline.lines()) {
        if (line.declared != 0) {
            const OutlineFunction& function = outline.functions()[line.declared];
            if (function.fact->name == kNoName) continue;
            SourceRange range = line.range();
            if (function.last < outline.lines().size()) {
                range.last = outline.lines()[function.last].range().last;
            } else if (function.last > 0) {
                range.last = std::max(range.last, outline.lines().back().range().last);
            }
            const std::string signature = signatureOf(names, *function.fact, false);
            const std::string& name = names.textOf(function.fact->name);
            found.push_back({name, signature.substr(name.size()),
                             function.fact->isElement ? kMethodSymbol : kFunctionSymbol, range,
                             line.rangeOf(function.fact->range), line.declared, line.function});
            continue;
        }
        if (line.function != 0) continue;
        for (const NameFact& fact : line.facts->names) {
            const bool isMade = fact.kind == NameUseKind::Write ||
                                fact.kind == NameUseKind::Native || fact.kind == NameUseKind::Local;
            if (!isMade || !seen.insert(fact.name).second) continue;
            found.push_back({names.textOf(fact.name), "", kVariableSymbol, line.range(),
                             line.rangeOf(fact.range), 0, 0});
        }
    }
    return found;
}

bool contains(const std::string& name, const std::string& lowered) {
    const auto same = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == static_cast<unsigned char>(b);
    };
    return std::search(name.begin(), name.end(), lowered.begin(), lowered.end(), same) !=
           name.end();
}

Json locationOf(const ListedSymbol& symbol, const ScriptDocument& document,
                const EditorView& view) {
    return {{"name", symbol.name},
            {"kind", symbol.kind},
            {"location", view.location(document, symbol.selection)}};
}

}  // namespace

std::string documentSymbols(const Workspace& workspace, const ScriptDocument& document,
                            const EditorView& view, const EditorAbilities& abilities) {
    const std::vector<ListedSymbol> symbols = symbolsOf(workspace.names(), document);
    if (!abilities.takesSymbolTrees) {
        Json list = Json::array();
        for (const ListedSymbol& symbol : symbols) {
            list.push_back(locationOf(symbol, document, view));
        }
        return dumpJson(list);
    }
    // Written as text: a large script has thousands of them, and the editor waits. A function
    // stands behind the one that it is in, so each closes those that it is not in.
    std::string text = "[";
    std::vector<std::uint32_t> open;
    for (const ListedSymbol& symbol : symbols) {
        while (!open.empty() && open.back() != symbol.parent) {
            text += "]}";
            open.pop_back();
        }
        if (text.back() != '[') text += ',';
        text += "{\"name\":" + dumpJson(symbol.name) + ",\"kind\":" + std::to_string(symbol.kind);
        if (!symbol.detail.empty()) text += ",\"detail\":" + dumpJson(symbol.detail);
        text += ",\"range\":";
        view.appendRange(text, document, symbol.range);
        text += ",\"selectionRange\":";
        view.appendRange(text, document, symbol.selection);
        if (symbol.function == 0) {
            text += '}';
        } else {
            text += ",\"children\":[";
            open.push_back(symbol.function);
        }
    }
    for (std::size_t i = 0; i < open.size(); ++i) text += "]}";
    return text + ']';
}

Json workspaceSymbols(const Workspace& workspace, const std::string& query,
                      const EditorView& view) {
    std::string lowered = query;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    Json list = Json::array();
    for (const ScriptDocument* document : workspace.documents()) {
        for (const ListedSymbol& symbol : symbolsOf(workspace.names(), *document)) {
            if (!contains(symbol.name, lowered)) continue;
            list.push_back(locationOf(symbol, *document, view));
            if (list.size() == kMostSymbols) return list;
        }
    }
    return list;
}
