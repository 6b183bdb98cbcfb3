#include "dovrel/lsp/symbols.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "dovrel/check_context.h"

namespace {

/// Of two ranges that touch the cursor the one that begins there counts, so both ends do.
bool touches(SourceRange range, std::size_t offset) {
    return range.first <= offset && offset <= range.last;
}

}  // namespace

bool isLibraryGlobal(const std::string& name) { return CheckContext::isLibraryGlobal(name); }

bool isLibraryTable(const std::string& name) {
    static const std::set<std::string> tables = [] {
        std::set<std::string> found;
        for (const std::string& written : LibraryReference::ofLibrary().names()) {
            found.insert(splitLibraryName(written).table);
        }
        found.erase("");
        found.erase("file");
        return found;
    }();
    return tables.contains(name);
}

Symbols::Symbols(const Workspace& workspace)
    : workspace_(workspace), documents_(workspace.documents()) {
    for (const ScriptDocument* document : documents_) {
        const auto& functions = document->outline().functions();
        for (std::uint32_t i = 1; i < functions.size(); ++i) {
            const FunctionFact& fact = *functions[i].fact;
            if (fact.scope == ScopeTarget::Default) functions_[fact.name].push_back({document, i});
        }
    }
}

bool Symbols::isAssigned(NameId name) const {
    for (const ScriptDocument* document : documents_) {
        const Outline& outline = document->outline();
        for (const OutlineLine& line : outline.lines()) {
            for (const NameFact& fact : line.facts->names) {
                if (fact.name != name || isOwnKind(fact.kind)) continue;
                const bool isWrite = fact.kind != NameUseKind::Read &&
                                     fact.kind != NameUseKind::Call &&
                                     fact.kind != NameUseKind::ElementWrite;
                if (isWrite && !outline.owns(line.function, name)) return true;
            }
        }
    }
    return false;
}

Symbol Symbols::symbolOf(const ScriptDocument& document, const OutlineLine& line,
                         const NameFact& fact) const {
    Symbol symbol;
    symbol.name = fact.name;
    symbol.document = &document;
    symbol.range = line.rangeOf(fact.range);
    symbol.function = Outline::functionOf(line, fact);
    if (document.outline().owns(symbol.function, fact.name)) {
        symbol.kind = SymbolKind::Own;
    } else if (!functionsCalled(fact.name).empty()) {
        symbol.kind = SymbolKind::Function;
    } else if (isLibraryGlobal(names().textOf(fact.name)) && !isAssigned(fact.name)) {
        symbol.kind = SymbolKind::Library;
    }
    return symbol;
}

std::optional<Symbol> Symbols::at(const ScriptDocument& document, std::size_t offset) const {
    const Outline& outline = document.outline();
    const std::uint32_t index = outline.lineAt(offset);
    if (index == kNoIndex) return std::nullopt;
    const OutlineLine& line = outline.lines()[index];
    for (const NameFact& fact : line.facts->names) {
        if (touches(line.rangeOf(fact.range), offset)) return symbolOf(document, line, fact);
    }
    for (const KeyFact& key : line.facts->keys) {
        if (!key.isIndex || !touches(line.rangeOf(key.range), offset)) continue;
        Symbol symbol;
        symbol.kind = SymbolKind::Member;
        symbol.name = key.key;
        symbol.base = key.base;
        symbol.document = &document;
        symbol.range = line.rangeOf(key.range);
        return symbol;
    }
    return std::nullopt;
}

void Symbols::collectUses(const ScriptDocument& document, const Symbol& symbol,
                          std::vector<SymbolUse>& uses) const {
    const Outline& outline = document.outline();
    for (std::uint32_t i = 0; i < outline.lines().size(); ++i) {
        const OutlineLine& line = outline.lines()[i];
        if (symbol.kind == SymbolKind::Member) {
            for (const KeyFact& key : line.facts->keys) {
                if (!key.isIndex || key.key != symbol.name || key.base != symbol.base) continue;
                uses.push_back({&document, line.rangeOf(key.range),
                                key.isWritten ? NameUseKind::ElementWrite : NameUseKind::Read, i});
            }
            continue;
        }
        for (const NameFact& fact : line.facts->names) {
            if (fact.name != symbol.name) continue;
            const std::uint32_t function = Outline::functionOf(line, fact);
            const bool isMeant = symbol.kind == SymbolKind::Own
                                     ? function == symbol.function
                                     : !outline.owns(function, fact.name);
            if (isMeant) uses.push_back({&document, line.rangeOf(fact.range), fact.kind, i});
        }
    }
}

std::vector<SymbolUse> Symbols::usesOf(const Symbol& symbol) const {
    std::vector<SymbolUse> uses;
    if (symbol.kind == SymbolKind::Own) {
        collectUses(*symbol.document, symbol, uses);
    } else {
        for (const ScriptDocument* document : documents_) collectUses(*document, symbol, uses);
    }
    return uses;
}

std::vector<SymbolUse> Symbols::definitionsOf(const Symbol& symbol) const {
    std::vector<SymbolUse> found;
    for (const FunctionPlace& place : functionsOf(symbol)) {
        const OutlineLine& header = place.document->outline().lines()[place.get().header];
        found.push_back({place.document, header.rangeOf(place.get().fact->range),
                         NameUseKind::Declaration, place.get().header});
    }
    if (!found.empty()) return found;
    const std::vector<SymbolUse> uses = usesOf(symbol);
    for (const SymbolUse& use : uses) {
        if (symbol.kind == SymbolKind::Own ? isOwnKind(use.kind) : use.isWrite()) {
            const bool isNew = std::none_of(found.begin(), found.end(), [&](const SymbolUse& old) {
                return old.document == use.document &&
                       old.document->outline().lines()[old.line].function ==
                           use.document->outline().lines()[use.line].function;
            });
            if (isNew) found.push_back(use);
        }
    }
    return found;
}

const std::vector<FunctionPlace>& Symbols::functionsCalled(NameId name) const {
    static const std::vector<FunctionPlace> none;
    const auto found = functions_.find(name);
    return found == functions_.end() ? none : found->second;
}

std::vector<FunctionPlace> Symbols::functionsOf(const Symbol& symbol) const {
    switch (symbol.kind) {
        case SymbolKind::Function: return functionsCalled(symbol.name);
        case SymbolKind::Member: {
            if (symbol.base == kNoName) return {};
            const NameId name = names().find(names().textOf(symbol.base) + "[\"" +
                                             names().textOf(symbol.name) + "\"]");
            return name == kNoName ? std::vector<FunctionPlace>() : functionsCalled(name);
        }
        case SymbolKind::Own: {
            // A `native function` is declared in the function that has it.
            std::vector<FunctionPlace> found;
            const auto& functions = symbol.document->outline().functions();
            for (std::uint32_t i = 1; i < functions.size(); ++i) {
                if (functions[i].fact->name == symbol.name &&
                    functions[i].fact->scope != ScopeTarget::Default &&
                    functions[i].parent == symbol.function) {
                    found.push_back({symbol.document, i});
                }
            }
            return found;
        }
        default: return {};
    }
}

const LibraryEntry* Symbols::entryOf(const Symbol& symbol) const {
    const LibraryReference& library = LibraryReference::ofLibrary();
    const std::string& name = names().textOf(symbol.name);
    if (symbol.kind == SymbolKind::Library) return library.find(name);
    if (symbol.kind != SymbolKind::Member) return nullptr;
    const std::string base = symbol.base == kNoName ? "" : names().textOf(symbol.base);
    // A text has the functions of `string` for methods.
    const std::string table = isLibraryTable(base) ? base : "string";
    return library.find(table + "[\"" + name + "\"]");
}

std::string signatureOf(const NameTable& names, const FunctionFact& function, bool withWords) {
    std::string text;
    if (withWords) {
        if (function.isDecay) text += "decay ";
        if (function.scope == ScopeTarget::Native) text += "native ";
        if (function.scope == ScopeTarget::Local) text += "local ";
        text += "function ";
    }
    if (function.name != kNoName) text += names.textOf(function.name);
    text += '(';
    for (std::size_t i = 0; i < function.parameters.size(); ++i) {
        if (i > 0) text += ", ";
        text += names.textOf(function.parameters[i]);
    }
    if (function.isVariadic) text += function.parameters.empty() ? "..." : ", ...";
    return text + ')';
}

std::string commentAbove(const ScriptDocument& document, std::uint32_t function) {
    const OutlineFunction& place = document.outline().functions()[function];
    if (place.header == kNoIndex) return {};
    const std::size_t start = document.outline().lines()[place.header].range().first;
    const std::string_view text = document.text();
    std::vector<std::string_view> lines;
    for (std::size_t line = document.lineStarts().lineOf(start); line-- > 0;) {
        const std::size_t first = document.lineStarts().startOf(line);
        std::string_view content =
            text.substr(first, document.lineStarts().startOf(line + 1) - first);
        while (!content.empty() && (content.front() == ' ' || content.front() == '\t')) {
            content.remove_prefix(1);
        }
        if (!content.starts_with("@@")) break;
        content.remove_prefix(2);
        if (content.starts_with(' ')) content.remove_prefix(1);
        while (!content.empty() && (content.back() == '\n' || content.back() == '\r')) {
            content.remove_suffix(1);
        }
        lines.push_back(content);
    }
    std::string comment;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        comment.append(*line) += '\n';
    }
    return comment;
}

std::vector<std::string> callForms(const LibraryEntry& entry, const std::string& name) {
    std::vector<std::string> forms;
    const std::string_view text = entry.text;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t open = text.find('`', at);
        if (open == std::string_view::npos || text.substr(open, 3) == "```") break;
        const std::size_t close = text.find('`', open + 1);
        if (close == std::string_view::npos) break;
        std::string form(text.substr(open + 1, close - open - 1));
        std::replace(form.begin(), form.end(), '\n', ' ');
        const bool isCall = form.starts_with(name + '(') && form.ends_with(')');
        if (isCall && std::find(forms.begin(), forms.end(), form) == forms.end()) {
            forms.push_back(std::move(form));
        }
        at = close + 1;
    }
    // The text uses one of the names that an entry has.
    for (const std::string& other : entry.names) {
        if (!forms.empty() || other == name) continue;
        for (const std::string& form : callForms({{other}, {}, entry.text}, other)) {
            forms.push_back(name + form.substr(other.size()));
        }
    }
    return forms;
}

std::string entryMarkdown(const LibraryEntry& entry) {
    std::string text;
    bool inBlock = false;
    for (std::size_t at = 0; at < entry.text.size(); ++at) {
        const char c = entry.text[at];
        const bool startsLine = at == 0 || entry.text[at - 1] == '\n';
        if (startsLine && entry.text.compare(at, 3, "```") == 0) inBlock = !inBlock;
        if (c == '[' && !inBlock) {
            const std::size_t middle = entry.text.find("](", at);
            const std::size_t end =
                middle == std::string::npos ? middle : entry.text.find(')', middle);
            const std::string_view words =
                end == std::string::npos
                    ? std::string_view()
                    : std::string_view(entry.text).substr(at + 1, middle - at - 1);
            if (!words.empty() && words.find_first_of("[`\"") == std::string_view::npos) {
                text += words;
                at = end;
                continue;
            }
        }
        text += c;
    }
    return text;
}
