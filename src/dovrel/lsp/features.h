// What the language server answers, a function for each request. Each takes what it needs of the
// documents and gives the result as JSON; a group of features has a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "dovrel/lsp/editor_json.h"
#include "dovrel/lsp/script_document.h"
#include "dovrel/lsp/symbols.h"
#include "dovrel/lsp/workspace.h"

/// A request that is refused; the text tells the user why.
class RefusedRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the editor has told of itself, as far as answers depend on it.
struct EditorAbilities {
    bool takesSnippets = false;
    bool takesSymbolTrees = false;
};

// completion.cpp
[[nodiscard]] Json completionAt(const Workspace& workspace, const ScriptDocument& document,
                                std::size_t offset, const EditorAbilities& abilities);
/// Adds the documentation to an item of a completion.
[[nodiscard]] Json resolvedCompletion(const Workspace& workspace, Json item);

// hover.cpp
[[nodiscard]] Json hoverAt(const Workspace& workspace, const ScriptDocument& document,
                           std::size_t offset, const EditorView& view);
[[nodiscard]] Json signatureHelpAt(const Workspace& workspace, const ScriptDocument& document,
                                   std::size_t offset);

// navigation.cpp
[[nodiscard]] Json definitionAt(const Workspace& workspace, const ScriptDocument& document,
                                std::size_t offset, const EditorView& view);
[[nodiscard]] Json referencesAt(const Workspace& workspace, const ScriptDocument& document,
                                std::size_t offset, bool withDeclaration, const EditorView& view);
[[nodiscard]] Json highlightsAt(const Workspace& workspace, const ScriptDocument& document,
                                std::size_t offset, const EditorView& view);
[[nodiscard]] Json documentLinks(const Workspace& workspace, const ScriptDocument& document,
                                 const EditorView& view);

// rename.cpp; both raise RefusedRequest where a rename could change what the scripts do
[[nodiscard]] Json prepareRename(const Workspace& workspace, const ScriptDocument& document,
                                 std::size_t offset, const EditorView& view);
[[nodiscard]] Json renameAt(const Workspace& workspace, const ScriptDocument& document,
                            std::size_t offset, const std::string& newName, const EditorView& view);

// symbol_lists.cpp
/// The result as text.
[[nodiscard]] std::string documentSymbols(const Workspace& workspace,
                                          const ScriptDocument& document, const EditorView& view,
                                          const EditorAbilities& abilities);
[[nodiscard]] Json workspaceSymbols(const Workspace& workspace, const std::string& query,
                                    const EditorView& view);

// structure.cpp
/// The result as text.
[[nodiscard]] std::string foldingRanges(const ScriptDocument& document);
[[nodiscard]] Json selectionRangeAt(const ScriptDocument& document, std::size_t offset,
                                    const EditorView& view);

// semantic_tokens.cpp
/// The names of types and modifiers, in the order of their numbers.
[[nodiscard]] Json semanticTokensLegend();
/// Five numbers for each token of `range`, as the protocol packs them.
[[nodiscard]] std::vector<std::uint32_t> semanticTokens(const Workspace& workspace,
                                                        const ScriptDocument& document,
                                                        SourceRange range, const EditorView& view);

// layout_edits.cpp; both raise RefusedRequest for a text that cannot be laid out
[[nodiscard]] Json formattingEdits(const ScriptDocument& document, const EditorView& view);
/// Only what concerns lines of `range`.
[[nodiscard]] Json rangeFormattingEdits(const ScriptDocument& document, SourceRange range,
                                        const EditorView& view);

// code_actions.cpp
/// The cures of `diagnostics`, which are findings of the checks as the server has published them.
[[nodiscard]] Json codeActions(const Workspace& workspace, const ScriptDocument& document,
                               const Json& diagnostics, const EditorView& view);
