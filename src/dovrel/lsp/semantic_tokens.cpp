// What names mean, for colours: variables of their functions, globals, functions, the library.
#include <algorithm>
#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "dovrel/lsp/features.h"

namespace {

constexpr std::array<const char*, 5> kTypes = {"variable", "parameter", "function", "method",
                                               "namespace"};
enum TokenType : std::uint32_t { kVariable, kParameter, kFunction, kMethod, kNamespace };

constexpr std::array<const char*, 5> kModifiers = {"declaration", "defaultLibrary", "local",
                                                   "global", "decay"};
enum TokenModifier : std::uint32_t {
    kDeclaration = 1,
    kDefaultLibrary = 2,
    kLocal = 4,
    kGlobal = 8,
    kDecay = 16,
};

struct Meaning {
    std::uint32_t type = kVariable;
    std::uint32_t modifiers = 0;
    bool isKnown = false;
};

class TokenPacker {
public:
    TokenPacker(const Workspace& workspace, const ScriptDocument& document, const EditorView& view)
        : names_(workspace.names()), document_(document), view_(view) {
        collectGlobals(workspace);
    }

    std::vector<std::uint32_t> run(SourceRange range) {
        const Outline& outline = document_.outline();
        std::uint32_t first = outline.lineAt(range.first);
        if (first == kNoIndex) first = 0;
        for (std::uint32_t i = first; i < outline.lines().size(); ++i) {
            const OutlineLine& line = outline.lines()[i];
            if (line.range().first >= range.last) break;
            takeLine(outline, line, range);
        }
        return std::move(packed_);
    }

private:
    void collectGlobals(const Workspace& workspace) {
        std::vector<bool> isAssigned;
        const auto at = [](auto& list, NameId name) -> decltype(list[name]) {
            if (list.size() <= name) list.resize(name + 1);
            return list[name];
        };
        for (const ScriptDocument* document : workspace.documents()) {
            const Outline& outline = document->outline();
            for (const OutlineFunction& function : outline.functions()) {
                if (function.fact == nullptr || function.fact->isElement ||
                    function.fact->variable == kNoName ||
                    function.fact->scope != ScopeTarget::Default) {
                    continue;
                }
                Meaning& meaning = at(globals_, function.fact->variable);
                meaning = {kFunction, meaning.modifiers, true};
                if (function.fact->isDecay) meaning.modifiers |= kDecay;
            }
            for (const OutlineLine& line : outline.lines()) {
                for (const NameFact& fact : line.facts->names) {
                    if (fact.kind == NameUseKind::Write) at(isAssigned, fact.name) = true;
                }
            }
        }
        isAssigned_ = std::move(isAssigned);
    }

    Meaning meaningOfGlobal(NameId name) {
        if (globals_.size() <= name) globals_.resize(name + 1);
        Meaning& meaning = globals_[name];
        if (meaning.isKnown) return meaning;
        meaning.isKnown = true;
        const bool isAssigned = name < isAssigned_.size() && isAssigned_[name];
        const std::string& text = names_.textOf(name);
        if (isAssigned || !isLibraryGlobal(text)) {
            meaning.modifiers = kGlobal;
        } else if (isLibraryTable(text)) {
            meaning = {kNamespace, kDefaultLibrary, true};
        } else {
            const LibraryEntry* entry = LibraryReference::ofLibrary().find(text);
            const bool isCalled = entry != nullptr && !callForms(*entry, text).empty();
            meaning = {isCalled ? kFunction : kVariable, kDefaultLibrary, true};
        }
        return meaning;
    }

    void takeLine(const Outline& outline, const OutlineLine& line, SourceRange range) {
        const auto& names = line.facts->names;
        const auto& keys = line.facts->keys;
        struct Token {
            SourceRange range;
            Meaning meaning;
        };
        std::vector<Token> tokens;
        for (const NameFact& fact : names) {
            const std::uint32_t function = Outline::functionOf(line, fact);
            Meaning meaning;
            if (outline.owns(function, fact.name)) {
                meaning = {isParameter(outline, function, fact.name) ? kParameter : kVariable,
                           kLocal, true};
                if (isOwnKind(fact.kind)) meaning.modifiers |= kDeclaration;
                // A parameter is local anyway.
                if (meaning.type == kParameter) meaning.modifiers &= ~std::uint32_t{kLocal};
            } else {
                meaning = meaningOfGlobal(fact.name);
                if (fact.kind == NameUseKind::Declaration) meaning.modifiers |= kDeclaration;
            }
            tokens.push_back({line.rangeOf(fact.range), meaning});
        }
        for (const KeyFact& key : keys) {
            if (!key.isIndex || key.isWritten || key.base == kNoName) continue;
            const bool isLibrary = isLibraryTable(names_.textOf(key.base)) &&
                                   meaningOfGlobal(key.base).type == kNamespace;
            if (!isLibrary) continue;
            tokens.push_back({line.rangeOf(key.range), {kMethod, kDefaultLibrary, true}});
        }
        std::sort(tokens.begin(), tokens.end(),
                  [](const Token& a, const Token& b) { return a.range.first < b.range.first; });
        for (const Token& token : tokens) {
            if (token.range.first >= range.first && token.range.last <= range.last) {
                pack(token.range, token.meaning);
            }
        }
    }

    static bool isParameter(const Outline& outline, std::uint32_t function, NameId name) {
        const FunctionFact* fact = outline.functions()[function].fact;
        return fact != nullptr && std::find(fact->parameters.begin(), fact->parameters.end(),
                                            name) != fact->parameters.end();
    }

    void pack(SourceRange range, const Meaning& meaning) {
        const LineStarts& starts = document_.lineStarts();
        const std::string_view text = document_.text();
        while (line_ + 1 < starts.count() && starts.startOf(line_ + 1) <= range.first) ++line_;
        const std::size_t from = line_ == lastLine_ ? lastOffset_ : starts.startOf(line_);
        // A key in quotes may go over a line end, which no token may.
        if (line_ + 1 < starts.count() && starts.startOf(line_ + 1) < range.last) return;
        const auto units = [&](std::size_t first, std::size_t last) {
            return static_cast<std::uint32_t>(
                unitsOf(text.substr(first, last - first), view_.encoding));
        };
        if (range.first < from) return;
        const std::uint32_t deltaStart = units(from, range.first);
        packed_.push_back(static_cast<std::uint32_t>(line_ - lastLine_));
        packed_.push_back(deltaStart);
        packed_.push_back(units(range.first, range.last));
        packed_.push_back(meaning.type);
        packed_.push_back(meaning.modifiers);
        lastLine_ = line_;
        lastOffset_ = range.first;
    }

    const NameTable& names_;
    const ScriptDocument& document_;
    const EditorView& view_;
    std::vector<Meaning> globals_;
    std::vector<bool> isAssigned_;
    std::vector<std::uint32_t> packed_;
    std::size_t line_ = 0;
    std::size_t lastLine_ = 0;
    std::size_t lastOffset_ = 0;
};

}  // namespace

Json semanticTokensLegend() { return {{"tokenTypes", kTypes}, {"tokenModifiers", kModifiers}}; }

std::vector<std::uint32_t> semanticTokens(const Workspace& workspace,
                                          const ScriptDocument& document, SourceRange range,
                                          const EditorView& view) {
    return TokenPacker(workspace, document, view).run(range);
}
