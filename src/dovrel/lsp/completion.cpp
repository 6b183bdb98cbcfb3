// What can be written where the cursor stands.
#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "dovrel/findings.h"
#include "dovrel/lsp/cursor_context.h"
#include "dovrel/lsp/features.h"
#include "frontend/token_analysis.h"

namespace {

/// Longer lists are cut, and asked for again with the next letter.
constexpr std::size_t kMostItems = 400;

enum ItemKind : int {
    kMethodItem = 2,
    kFunctionItem = 3,
    kVariableItem = 6,
    kModuleItem = 9,
    kKeywordItem = 14,
    kSnippetItem = 15,
    kFileItem = 17,
    kFolderItem = 19,
    kPropertyItem = 10,
    kConstantItem = 21,
};

struct KeywordBlock {
    const char* word;
    const char* detail;
    const char* snippet;  // null for a word alone
};

/// What begins a statement, with the block that it opens.
constexpr std::array kStatements = {
    KeywordBlock{"if", "if ... end", "if ${1:condition}\n\t$0\nend"},
    KeywordBlock{"elseif", "a further condition", "elseif ${1:condition}\n\t$0"},
    KeywordBlock{"else", "the other case", nullptr},
    KeywordBlock{"end", "closes a block", nullptr},
    KeywordBlock{"while", "while ... end", "while ${1:condition}\n\t$0\nend"},
    KeywordBlock{"repeat", "repeat ... until", "repeat\n\t$0\nuntil ${1:condition}"},
    KeywordBlock{"until", "closes a repeat", nullptr},
    KeywordBlock{"for", "counting loop", "for ${1:i} = ${2:1}, ${3:limit}\n\t$0\nend"},
    KeywordBlock{"for in", "walking loop",
                 "for ${1:key}, ${2:value} in ${3:pairs}(${4:table})\n\t$0\nend"},
    KeywordBlock{"function", "function ... end", "function ${1:name}($2)\n\t$0\nend"},
    KeywordBlock{"decay function", "a call starts a coroutine",
                 "decay function ${1:name}($2)\n\t$0\nend"},
    KeywordBlock{"return", "gives the result", nullptr},
    KeywordBlock{"break", "leaves the loop", nullptr},
    KeywordBlock{"native", "a variable of the running call", nullptr},
    KeywordBlock{"local", "a variable of the block", nullptr},
};
constexpr std::array<const char*, 5> kValueWords = {"not", "and", "or", "true", "false"};

bool startsWith(std::string_view name, std::string_view prefix) {
    if (name.size() < prefix.size()) return false;
    return std::equal(prefix.begin(), prefix.end(), name.begin(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    });
}

class Completer {
public:
    Completer(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
              const EditorAbilities& abilities)
        : workspace_(workspace),
          names_(workspace.names()),
          document_(document),
          offset_(offset),
          abilities_(abilities),
          context_(contextAt(document, offset)) {}

    Json run() {
        switch (context_.place) {
            case CursorContext::Place::Comment: completeCodes(); break;
            case CursorContext::Place::Literal: completeText(); break;
            case CursorContext::Place::Code: completeCode(); break;
        }
        return {{"isIncomplete", isCut_}, {"items", std::move(items_)}};
    }

private:
    [[nodiscard]] std::string_view slice(SourceRange range) const {
        return std::string_view(document_.text()).substr(range.first, range.last - range.first);
    }
    [[nodiscard]] bool lastIs(std::string_view token) const {
        return !context_.before.empty() && slice(context_.before.back().range) == token;
    }

    /// False once the list is long enough.
    bool add(const std::string& label, int kind, char group, Json more = Json::object()) {
        if (items_.size() >= kMostItems) {
            isCut_ = true;
            return false;
        }
        more["label"] = label;
        more["kind"] = kind;
        more["sortText"] = group + label;
        items_.push_back(std::move(more));
        return true;
    }

    /// The codes of a comment that silences a check.
    void completeCodes() {
        const std::string_view comment = slice(context_.text);
        const std::size_t mark = comment.find("dovrel: allow");
        if (mark == std::string_view::npos) return;
        for (const CheckCode& code : allCheckCodes()) {
            if (code.severity != Severity::Warning) continue;
            add(std::string(code.code), kConstantItem, '1', {{"detail", code.title}});
        }
    }

    void completeText() {
        const auto& before = context_.before;
        const std::size_t count = before.size();
        if (lastIs("[") && count > 1) {
            const bool isName = before[count - 2].kind == ScanToken::Kind::Word;
            completeKeys(isName ? std::string(slice(before[count - 2].range)) : std::string());
        } else if (lastIs("(") && count > 1) {
            const std::string_view callee = slice(before[count - 2].range);
            if (callee == "runFile" || callee == "dofile" || callee == "loadFile" ||
                callee == "loadfile") {
                completePaths();
            }
        }
    }

    void completeKeys(const std::string& base) {
        const std::string prefix(slice(context_.text));
        if (isLibraryTable(base)) {
            completeMembers(base, prefix, '1');
            return;
        }
        const NameId name = base.empty() ? kNoName : names_.find(base);
        std::set<NameId> seen;
        // Those of the same name first, then all others of the file.
        for (const bool sameBase : {true, false}) {
            for (const OutlineLine& line : document_.outline().lines()) {
                for (const KeyFact& key : line.facts->keys) {
                    const bool isSame = key.base == name && name != kNoName;
                    if (isSame != sameBase ||
                        line.rangeOf(key.range).first + 1 == context_.text.first) {
                        continue;
                    }
                    const bool isLibrary =
                        key.base != kNoName && isLibraryTable(names_.textOf(key.base));
                    if (isLibrary || !startsWith(names_.textOf(key.key), prefix)) continue;
                    if (!seen.insert(key.key).second) continue;
                    if (!add(names_.textOf(key.key), kPropertyItem, sameBase ? '1' : '2')) return;
                }
            }
        }
        completeMembers("string", prefix, '3');
    }

    void completeMembers(const std::string& table, const std::string& prefix, char group) {
        for (const LibraryEntry& entry : LibraryReference::ofLibrary().entries()) {
            for (const std::string& written : entry.names) {
                const LibraryName split = splitLibraryName(written);
                if (split.table != table || !startsWith(split.member, prefix)) continue;
                const auto forms = callForms(entry, written);
                Json more = {{"data", {{"entry", written}}}};
                if (!forms.empty()) more["detail"] = forms.back();
                add(split.member, forms.empty() ? kConstantItem : kMethodItem, group,
                    std::move(more));
            }
        }
    }

    /// Scripts beside this one, and folders.
    void completePaths() {
        namespace fs = std::filesystem;
        if (document_.path().empty()) return;
        const std::string written(slice(context_.text));
        const std::size_t slash = written.rfind('/');
        const std::string folder = slash == std::string::npos ? "" : written.substr(0, slash + 1);
        std::error_code error;
        const fs::path start = fs::path(document_.path()).parent_path() / folder;
        for (auto at = fs::directory_iterator(start, error); !error && at != fs::end(at);
             at.increment(error)) {
            const std::string name = at->path().filename().string();
            if (name.starts_with('.')) continue;
            if (at->is_directory(error)) {
                add(name, kFolderItem, '2');
            } else if (name.ends_with(".dv")) {
                add(name, kFileItem, '1');
            }
        }
    }

    void completeCode() {
        prefix_ = slice(context_.word);
        // A number is being written, or the name of a new function or loop variable.
        if (!prefix_.empty() && !isIdentifier(prefix_)) return;
        if (lastIs("function") || (context_.before.size() == 1 && lastIs("for"))) return;
        if (context_.startsStatement()) completeStatements();
        if (context_.before.size() == 1 &&
            (lastIs("native") || lastIs("decay") || lastIs("local"))) {
            add("function", kKeywordItem, '0');
            return;
        }
        completeWalk();
        completeNames();
        completeLibrary();
        for (const char* word : kValueWords) {
            if (startsWith(word, prefix_) && !context_.startsStatement()) {
                add(word, kKeywordItem, '5');
            }
        }
    }

    void completeStatements() {
        for (const KeywordBlock& block : kStatements) {
            if (!startsWith(block.word, prefix_)) continue;
            const bool isSnippet = block.snippet != nullptr && abilities_.takesSnippets;
            const std::string word = block.word;
            // Two words are a block and nothing else.
            if (!isSnippet && word.find(' ') != std::string::npos) continue;
            Json more = {{"detail", block.detail}};
            if (isSnippet) {
                more["insertText"] = block.snippet;
                more["insertTextFormat"] = 2;
            }
            add(word, isSnippet ? kSnippetItem : kKeywordItem, '4', std::move(more));
        }
    }

    /// `in` behind the names of a loop.
    void completeWalk() {
        if (context_.before.size() < 2 || slice(context_.before.front().range) != "for") return;
        const bool isNames = std::all_of(context_.before.begin() + 1, context_.before.end(),
                                         [&](const ScanToken& token) {
                                             const std::string_view text = slice(token.range);
                                             return text != "=" && text != "in";
                                         });
        if (isNames && !lastIs(",")) add("in", kKeywordItem, '0');
    }

    /// Variables of the function, then functions and globals of the scripts.
    void completeNames() {
        const Outline& outline = document_.outline();
        const std::uint32_t line = outline.lineAt(offset_);
        std::uint32_t function = 0;
        if (line != kNoIndex) {
            const OutlineLine& here = outline.lines()[line];
            // Behind a header its body begins, if it is not being written.
            const bool isBehind = here.declared != 0 && offset_ > here.range().last;
            function = isBehind ? here.declared : here.function;
        }
        addOwn(outline, function);
        addFunctions();
        addGlobals(outline);
    }

    void addOwn(const Outline& outline, std::uint32_t function) {
        const auto& lines = outline.lines();
        const OutlineFunction& body = outline.functions()[function];
        const std::uint32_t first = body.header == kNoIndex ? 0 : body.header;
        for (std::uint32_t i = first; i < std::min<std::size_t>(body.last, lines.size()); ++i) {
            for (const NameFact& fact : lines[i].facts->names) {
                if (!isOwnKind(fact.kind) || Outline::functionOf(lines[i], fact) != function) {
                    continue;
                }
                if (isBeingWritten(lines[i], fact) || !takes(fact.name)) continue;
                if (!add(names_.textOf(fact.name), kVariableItem, '1')) return;
            }
        }
    }

    void addFunctions() {
        for (const ScriptDocument* document : workspace_.documents()) {
            for (const OutlineFunction& function : document->outline().functions()) {
                if (function.fact == nullptr || function.fact->isElement ||
                    function.fact->name == kNoName || !takes(function.fact->name)) {
                    continue;
                }
                if (!addCall(
                        names_.textOf(function.fact->name),
                        signatureOf(names_, *function.fact, false), '2',
                        {{"uri", document->uri()}, {"name", names_.textOf(function.fact->name)}})) {
                    return;
                }
            }
        }
    }

    void addGlobals(const Outline& outline) {
        for (const OutlineLine& line : outline.lines()) {
            for (const NameFact& fact : line.facts->names) {
                if (fact.kind != NameUseKind::Write && fact.kind != NameUseKind::ElementWrite) {
                    continue;
                }
                if (isBeingWritten(line, fact) || outline.owns(line.function, fact.name) ||
                    !takes(fact.name)) {
                    continue;
                }
                if (!add(names_.textOf(fact.name), kVariableItem, '2')) return;
            }
        }
    }

    /// The word in front of the cursor is no name that is known by it.
    [[nodiscard]] bool isBeingWritten(const OutlineLine& line, const NameFact& fact) const {
        const SourceRange range = line.rangeOf(fact.range);
        return range.first <= offset_ && offset_ <= range.last;
    }

    /// It fits what is written, and is not in the list yet.
    bool takes(NameId name) {
        return startsWith(names_.textOf(name), prefix_) && seen_.insert(name).second;
    }

    /// A function: its parentheses come with it.
    bool addCall(const std::string& name, const std::string& signature, char group, Json data) {
        Json more = {{"detail", signature}, {"data", std::move(data)}};
        const std::string& text = document_.text();
        const bool hasParentheses = offset_ < text.size() && text[offset_] == '(';
        if (abilities_.takesSnippets && !hasParentheses) {
            std::string escaped;
            for (const char c : name) escaped += c == '$' ? std::string("\\$") : std::string(1, c);
            more["insertText"] = escaped + (signature.ends_with("()") ? "()" : "($0)");
            more["insertTextFormat"] = 2;
            more["command"] = {{"title", "parameters"},
                               {"command", "editor.action.triggerParameterHints"}};
        }
        return add(name, kFunctionItem, group, std::move(more));
    }

    void completeLibrary() {
        std::set<std::string> tables;
        for (const LibraryEntry& entry : LibraryReference::ofLibrary().entries()) {
            for (const std::string& written : entry.names) {
                const LibraryName split = splitLibraryName(written);
                if (split.table == "file") continue;
                if (!split.table.empty()) {
                    if (startsWith(split.table, prefix_)) tables.insert(split.table);
                    continue;
                }
                if (!startsWith(written, prefix_)) continue;
                const NameId known = names_.find(written);
                if (known != kNoName && seen_.contains(known)) continue;
                const auto forms = callForms(entry, written);
                if (forms.empty()) {
                    add(written, kConstantItem, '3', {{"data", {{"entry", written}}}});
                } else {
                    addCall(written, forms.back(), '3', {{"entry", written}});
                }
            }
        }
        for (const std::string& table : tables) add(table, kModuleItem, '3');
    }

    const Workspace& workspace_;
    const NameTable& names_;
    const ScriptDocument& document_;
    std::size_t offset_;
    const EditorAbilities& abilities_;
    CursorContext context_;
    std::string_view prefix_;
    Json items_ = Json::array();
    std::unordered_set<NameId> seen_;
    bool isCut_ = false;
};

}  // namespace

Json completionAt(const Workspace& workspace, const ScriptDocument& document, std::size_t offset,
                  const EditorAbilities& abilities) {
    return Completer(workspace, document, offset, abilities).run();
}

Json resolvedCompletion(const Workspace& workspace, Json item) {
    const auto data = item.find("data");
    if (data == item.end() || !data->is_object()) return item;
    std::string text;
    if (data->contains("entry")) {
        const LibraryEntry* entry = LibraryReference::ofLibrary().find(data->value("entry", ""));
        if (entry != nullptr) text = entryMarkdown(*entry);
    } else if (data->contains("name")) {
        const Symbols symbols(workspace);
        const NameId name = workspace.names().find(data->value("name", ""));
        for (const FunctionPlace& place : symbols.functionsCalled(name)) {
            if (place.document->uri() != data->value("uri", "")) continue;
            text = commentAbove(*place.document, place.function);
            break;
        }
    }
    if (!text.empty()) item["documentation"] = {{"kind", "markdown"}, {"value", text}};
    return item;
}
