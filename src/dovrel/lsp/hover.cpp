// What a name is, where the cursor stands; and the parameters of the call that is being written.
#include <algorithm>
#include <string>

#include "dovrel/lsp/cursor_context.h"
#include "dovrel/lsp/features.h"

namespace {

/// More places than these are counted and not listed.
constexpr std::size_t kMostPlaces = 5;

std::string codeBlock(const std::string& code) { return "```dovrelscript\n" + code + "\n```\n"; }

std::string lineNumber(const SymbolUse& use) {
    return std::to_string(use.document->lineStarts().lineOf(use.range.first) + 1);
}

/// `Assigned in lines 3, 7 and 2 more.`
std::string assignedPlaces(const Symbols& symbols, const Symbol& symbol,
                           const ScriptDocument& document) {
    std::vector<std::string> places;
    std::size_t count = 0;
    for (const SymbolUse& use : symbols.usesOf(symbol)) {
        const bool isStored = use.isWrite() && use.kind != NameUseKind::Parameter &&
                              use.kind != NameUseKind::ElementWrite;
        if (!isStored) continue;
        ++count;
        if (places.size() == kMostPlaces) continue;
        std::string place = "line " + lineNumber(use);
        if (use.document != &document) {
            const std::string& uri = use.document->uri();
            place += " of " + uri.substr(uri.rfind('/') + 1);
        }
        if (places.empty() || places.back() != place) places.push_back(place);
    }
    if (places.empty()) return {};
    std::string text = "Assigned in ";
    for (std::size_t i = 0; i < places.size(); ++i) text += (i == 0 ? "" : ", ") + places[i];
    if (count > kMostPlaces) text += " and " + std::to_string(count - kMostPlaces) + " more places";
    return text + ".\n";
}

std::string ownVariable(const Symbols& symbols, const Symbol& symbol) {
    const Outline& outline = symbol.document->outline();
    const OutlineFunction& function = outline.functions()[symbol.function];
    const char* what = "variable";
    const SymbolUse first = symbols.definitionsOf(symbol).front();
    switch (first.kind) {
        case NameUseKind::Parameter: what = "parameter"; break;
        case NameUseKind::LoopVariable: what = "loop variable"; break;
        case NameUseKind::Native: what = "native variable"; break;
        case NameUseKind::Local: what = "variable of a block"; break;
        default: break;
    }
    const std::string where = function.fact == nullptr || function.fact->name == kNoName
                                  ? std::string("the top of the script")
                                  : '`' + symbols.names().textOf(function.fact->name) + '`';
    return "`" + symbols.names().textOf(symbol.name) + "`: " + what + " of " + where + ".\n";
}

std::string describe(const Symbols& symbols, const Symbol& symbol, const ScriptDocument& document) {
    std::string text;
    for (const FunctionPlace& place : symbols.functionsOf(symbol)) {
        text += codeBlock(signatureOf(symbols.names(), *place.get().fact, true));
        const std::string comment = commentAbove(*place.document, place.function);
        if (!comment.empty()) text += '\n' + comment + '\n';
    }
    if (text.empty()) {
        if (const LibraryEntry* entry = symbols.entryOf(symbol)) {
            std::string names;
            for (const std::string& name : entry->names) {
                names += (names.empty() ? "" : ", ") + name;
            }
            return codeBlock(names) + '\n' + entryMarkdown(*entry);
        }
    }
    switch (symbol.kind) {
        case SymbolKind::Own: text += ownVariable(symbols, symbol); break;
        case SymbolKind::Library: {
            // A table of the library has a chapter and no entry.
            text += "`" + symbols.names().textOf(symbol.name) + "`: a table of the library.\n";
            break;
        }
        case SymbolKind::Global:
            text += "`" + symbols.names().textOf(symbol.name) + "`: global variable.\n";
            break;
        default: break;
    }
    if (symbol.kind == SymbolKind::Member && text.empty()) return {};
    if (symbol.kind == SymbolKind::Library || symbol.kind == SymbolKind::Member) return text;
    const std::string places = assignedPlaces(symbols, symbol, document);
    if (!places.empty()) return text + '\n' + places;
    if (symbol.kind == SymbolKind::Global) text += "\nNothing in the scripts is assigned to it.\n";
    return text;
}

}  // namespace

Json hoverAt(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
             const EditorView& view) {
    const Symbols symbols(workspace);
    const auto symbol = symbols.at(document, offset);
    if (!symbol) return nullptr;
    const std::string text = describe(symbols, *symbol, document);
    if (text.empty()) return nullptr;
    return {{"contents", {{"kind", "markdown"}, {"value", text}}},
            {"range", view.range(document, symbol->range)}};
}

namespace {

/// A form such as `f(a, b[, c])` with the places of its parameters.
Json signatureJson(const std::string& form, const std::string& documentation) {
    Json parameters = Json::array();
    const std::size_t open = form.rfind('(', form.size() - 1);
    std::size_t first = open + 1;
    for (std::size_t at = first; at < form.size(); ++at) {
        if (form[at] != ',' && form[at] != ')') continue;
        std::size_t last = at;
        while (first < last && (form[first] == ' ' || form[first] == '[')) ++first;
        while (last > first && (form[last - 1] == ' ' || form[last - 1] == '[')) --last;
        if (last > first) parameters.push_back({{"label", form.substr(first, last - first)}});
        first = at + 1;
    }
    Json signature = {{"label", form}, {"parameters", parameters}};
    if (!documentation.empty()) {
        signature["documentation"] = {{"kind", "markdown"}, {"value", documentation}};
    }
    return signature;
}

/// The text of an entry up to its first blank line.
std::string firstParagraph(const LibraryEntry& entry) {
    const std::string text = entryMarkdown(entry);
    return text.substr(0, text.find("\n\n"));
}

}  // namespace

Json signatureHelpAt(const Workspace& workspace, const ScriptDocument& document,
                     std::size_t offset) {
    const CursorContext context = contextAt(document, offset);
    if (!context.call || context.place == CursorContext::Place::Comment) return nullptr;
    const Symbols symbols(workspace);
    Json signatures = Json::array();
    const NameId name = workspace.names().find(context.call->callee);
    if (name != kNoName) {
        for (const FunctionPlace& place : symbols.functionsCalled(name)) {
            signatures.push_back(
                signatureJson(signatureOf(symbols.names(), *place.get().fact, false),
                              commentAbove(*place.document, place.function)));
        }
    }
    if (signatures.empty()) {
        const LibraryReference& library = LibraryReference::ofLibrary();
        const LibraryName split = splitLibraryName(context.call->callee);
        const LibraryEntry* entry = library.find(context.call->callee);
        std::string written = context.call->callee;
        if (entry == nullptr && !split.table.empty() && !isLibraryTable(split.table)) {
            // A method of a text.
            written = "string[\"" + split.member + "\"]";
            entry = library.find(written);
        }
        if (entry != nullptr) {
            for (const std::string& form : callForms(*entry, written)) {
                signatures.push_back(signatureJson(form, firstParagraph(*entry)));
            }
        }
    }
    if (signatures.empty()) return nullptr;
    // The first form that has the argument.
    std::size_t active = 0;
    while (active + 1 < signatures.size() &&
           signatures[active]["parameters"].size() <= context.call->argument) {
        ++active;
    }
    const std::size_t count = signatures[active]["parameters"].size();
    const bool isVariadic = count > 0 && signatures[active]["parameters"].back()["label"] == "...";
    std::size_t argument = context.call->argument;
    if (isVariadic) argument = std::min(argument, count - 1);
    return {{"signatures", signatures}, {"activeSignature", active}, {"activeParameter", argument}};
}
