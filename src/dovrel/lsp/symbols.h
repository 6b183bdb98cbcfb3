// What a name in a script stands for, as far as the text tells: a variable of its function, a
// function or global of the scripts, or an entry of the library. Scoping is dynamic, so a name that
// the function does not make for itself is taken for a global.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "dovrel/library_reference.h"
#include "dovrel/lsp/script_document.h"
#include "dovrel/lsp/workspace.h"

enum class SymbolKind : std::uint8_t {
    Own,       // a parameter, loop variable, `native` or `local` of a function
    Function,  // declared by `function` in one of the scripts
    Global,    // any other name
    Library,   // a global of the library that nothing is assigned to
    Member,    // a literal key
};

struct Symbol {
    SymbolKind kind = SymbolKind::Global;
    NameId name = kNoName;  // of a member: its key
    NameId base = kNoName;  // of a member: the name that is indexed
    const ScriptDocument* document = nullptr;
    std::uint32_t function = 0;  // of an own variable: the function that has it
    SourceRange range;           // where it was asked for
};

/// One place of a symbol.
struct SymbolUse {
    const ScriptDocument* document = nullptr;
    SourceRange range;
    NameUseKind kind = NameUseKind::Read;
    std::uint32_t line = 0;

    [[nodiscard]] bool isWrite() const {
        return kind != NameUseKind::Read && kind != NameUseKind::Call;
    }
};

/// A function of a script, wherever it is.
struct FunctionPlace {
    const ScriptDocument* document = nullptr;
    std::uint32_t function = 0;

    [[nodiscard]] const OutlineFunction& get() const {
        return document->outline().functions()[function];
    }
};

/// Answers questions about names. Made for one request: it refers to the documents as they are.
class Symbols {
public:
    explicit Symbols(const Workspace& workspace);

    [[nodiscard]] const std::vector<const ScriptDocument*>& documents() const { return documents_; }
    [[nodiscard]] const NameTable& names() const { return workspace_.names(); }
    [[nodiscard]] std::optional<Symbol> at(const ScriptDocument& document,
                                           std::size_t offset) const;
    [[nodiscard]] Symbol symbolOf(const ScriptDocument& document, const OutlineLine& line,
                                  const NameFact& fact) const;
    /// All its places, file by file. A member is one of the same key under the same name.
    [[nodiscard]] std::vector<SymbolUse> usesOf(const Symbol& symbol) const;
    /// Where it is made: declarations, or else the first assignment of each function.
    [[nodiscard]] std::vector<SymbolUse> definitionsOf(const Symbol& symbol) const;
    /// The functions that are declared under a name: `f`, or `box["f"]`.
    [[nodiscard]] const std::vector<FunctionPlace>& functionsCalled(NameId name) const;
    /// Those of a symbol that can be called.
    [[nodiscard]] std::vector<FunctionPlace> functionsOf(const Symbol& symbol) const;
    /// The library's entry that a symbol stands for, or null.
    [[nodiscard]] const LibraryEntry* entryOf(const Symbol& symbol) const;
    /// A script assigns to the name or declares it, outside of the functions that own it.
    [[nodiscard]] bool isAssigned(NameId name) const;

private:
    void collectUses(const ScriptDocument& document, const Symbol& symbol,
                     std::vector<SymbolUse>& uses) const;

    const Workspace& workspace_;
    std::vector<const ScriptDocument*> documents_;
    std::unordered_map<NameId, std::vector<FunctionPlace>> functions_;
};

/// A global of the library: a function, a constant or a table of functions.
[[nodiscard]] bool isLibraryGlobal(const std::string& name);
/// A table of functions, such as `string`.
[[nodiscard]] bool isLibraryTable(const std::string& name);

/// `total(list, factor)`, with the words that declare it in front if `withWords`.
[[nodiscard]] std::string signatureOf(const NameTable& names, const FunctionFact& function,
                                      bool withWords);
/// The comment lines right in front of a function, without their marks.
[[nodiscard]] std::string commentAbove(const ScriptDocument& document, std::uint32_t function);
/// The forms in which an entry's text calls `name`: `string["sub"](s, i)` and so on.
[[nodiscard]] std::vector<std::string> callForms(const LibraryEntry& entry,
                                                 const std::string& name);
/// An entry as an editor shows it: Markdown whose links, which lead nowhere there, are words.
[[nodiscard]] std::string entryMarkdown(const LibraryEntry& entry);
