// From a name to where it is made, and to all its places; from the path of a file to the file.
#include <filesystem>
#include <string>
#include <system_error>

#include "dovrel/lsp/features.h"

Json definitionAt(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
                  const EditorView& view) {
    const Symbols symbols(workspace);
    const auto symbol = symbols.at(document, offset);
    if (!symbol) return nullptr;
    Json places = Json::array();
    for (const SymbolUse& use : symbols.definitionsOf(*symbol)) {
        places.push_back(view.location(*use.document, use.range));
    }
    return places;
}

Json referencesAt(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
                  bool withDeclaration, const EditorView& view) {
    const Symbols symbols(workspace);
    const auto symbol = symbols.at(document, offset);
    if (!symbol) return nullptr;
    Json places = Json::array();
    for (const SymbolUse& use : symbols.usesOf(*symbol)) {
        const bool isDeclaration = isOwnKind(use.kind) || use.kind == NameUseKind::Declaration;
        if (isDeclaration && !withDeclaration) continue;
        places.push_back(view.location(*use.document, use.range));
    }
    return places;
}

Json highlightsAt(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
                  const EditorView& view) {
    constexpr int kReadHighlight = 2;
    constexpr int kWriteHighlight = 3;
    const Symbols symbols(workspace);
    const auto symbol = symbols.at(document, offset);
    if (!symbol) return nullptr;
    Json places = Json::array();
    for (const SymbolUse& use : symbols.usesOf(*symbol)) {
        if (use.document != &document) continue;
        places.push_back({{"range", view.range(document, use.range)},
                          {"kind", use.isWrite() ? kWriteHighlight : kReadHighlight}});
    }
    return places;
}

Json documentLinks(const Workspace& workspace, const ScriptDocument& document,
                   const EditorView& view) {
    namespace fs = std::filesystem;
    std::vector<fs::path> roots;
    if (!document.path().empty()) roots.push_back(fs::path(document.path()).parent_path());
    for (const std::string& folder : workspace.folders()) roots.emplace_back(folder);
    Json links = Json::array();
    for (const OutlineLine& line : document.outline().lines()) {
        for (const LinkFact& link : line.facts->links) {
            for (const fs::path& root : roots) {
                std::error_code error;
                const fs::path target = (root / link.path).lexically_normal();
                if (!fs::is_regular_file(target, error)) continue;
                // Without the quotes.
                SourceRange place = line.rangeOf(link.range);
                ++place.first;
                --place.last;
                links.push_back({{"range", view.range(document, place)},
                                 {"target", uriOfPath(target)},
                                 {"tooltip", target.string()}});
                break;
            }
        }
    }
    return links;
}
