// Cures of what the checks have found, where there is one that means what was meant.
#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrel/findings.h"
#include "dovrel/lsp/cursor_context.h"
#include "dovrel/lsp/features.h"
#include "frontend/token_analysis.h"

namespace {

struct Edit {
    SourceRange range;
    std::string text;
};

struct Cure {
    std::string title;
    std::vector<Edit> edits;
};

/// One finding, as the editor has got it, and the line that it is in.
class FoundPlace {
public:
    FoundPlace(const Workspace& workspace, const ScriptDocument& document, SourceRange range,
               std::string code, std::string message)
        : text(document.text()),
          place(range),
          workspace_(workspace),
          document_(document),
          code_(std::move(code)),
          message_(std::move(message)) {
        const Outline& outline = document.outline();
        const std::uint32_t index = outline.lineAt(range.first);
        line = index == kNoIndex ? SourceRange{range.first, range.first}
                                 : outline.lines()[index].range();
        tokens = scanTokens(text, line);
    }

    [[nodiscard]] const std::string& code() const { return code_; }
    [[nodiscard]] const std::string& message() const { return message_; }
    [[nodiscard]] std::string written() const { return slice(place); }
    [[nodiscard]] std::string slice(SourceRange range) const {
        return std::string(text.substr(range.first, range.last - range.first));
    }
    [[nodiscard]] std::string token(std::size_t index) const {
        return index < tokens.size() ? slice(tokens[index].range) : std::string();
    }
    /// The text in the last pair of backquotes of a message.
    [[nodiscard]] std::string lastQuoted() const {
        const std::size_t end = message_.rfind('`');
        const std::size_t begin =
            end == std::string::npos || end == 0 ? std::string::npos : message_.rfind('`', end - 1);
        return begin == std::string::npos ? std::string()
                                          : message_.substr(begin + 1, end - begin - 1);
    }

    /// All places of the variable that is found fault with.
    [[nodiscard]] std::vector<SymbolUse> uses() const {
        const Symbols symbols(workspace_);
        const auto symbol = symbols.at(document_, place.first);
        if (!symbol || symbol->kind != SymbolKind::Own) return {};
        return symbols.usesOf(*symbol);
    }

    std::string_view text;
    SourceRange place;
    SourceRange line;
    std::vector<ScanToken> tokens;

private:
    const Workspace& workspace_;
    const ScriptDocument& document_;
    std::string code_;
    std::string message_;
};

using Cures = std::vector<Cure>;

void replacePlace(const FoundPlace& finding, const std::string& text, Cures& cures) {
    cures.push_back({"Write `" + text + "`", {{finding.place, text}}});
}

/// E101: close the string where its line ends.
void closeString(const FoundPlace& finding, Cures& cures) {
    const char quote = finding.text[finding.place.first];
    std::size_t end = std::min(finding.text.find('\n', finding.place.first), finding.text.size());
    while (end > finding.place.first && (finding.text[end - 1] == '\r')) --end;
    cures.push_back({"Close the string at the end of the line", {{{end, end}, {quote}}}});
}

/// E103: words and operators of other languages.
void mendLine(const FoundPlace& finding, Cures& cures) {
    const std::string word = finding.written();
    const auto& tokens = finding.tokens;
    if (word == "then" || word == "do") {
        std::size_t first = finding.place.first;
        while (first > finding.line.first && finding.text[first - 1] == ' ') --first;
        cures.push_back({"Remove `" + word + "`", {{{first, finding.place.last}, ""}}});
        return;
    }
    const std::string first = finding.token(0);
    if (first == "elif" || first == "elsif" || first == "elseIf") {
        cures.push_back({"Write `elseif`", {{tokens[0].range, "elseif"}}});
    } else if (first == "def" || first == "func" || first == "fn") {
        cures.push_back({"Write `function`", {{tokens[0].range, "function"}}});
    } else if ((first == "var" || first == "let" || first == "const") && tokens.size() > 1) {
        cures.push_back(
            {"Remove `" + first + "`", {{{tokens[0].range.first, tokens[1].range.first}, ""}}});
        cures.push_back({"Write `native`", {{tokens[0].range, "native"}}});
    } else if (tokens.size() == 3 && finding.token(1) == finding.token(2) &&
               (finding.token(1) == "+" || finding.token(1) == "-")) {
        cures.push_back(
            {"Write `" + finding.token(1) + "= 1`",
             {{{tokens[0].range.last, tokens[2].range.last}, " " + finding.token(1) + "= 1"}}});
    } else if (const std::size_t dot = word.find('.'); dot != std::string::npos &&
                                                       isIdentifier(word.substr(0, dot)) &&
                                                       isIdentifier(word.substr(dot + 1))) {
        replacePlace(finding, word.substr(0, dot) + "[\"" + word.substr(dot + 1) + "\"]", cures);
    } else if (word == "/" && finding.place.first > 0 &&
               finding.text[finding.place.first - 1] == '/') {
        cures.push_back({"Begin the comment with `@@`",
                         {{{finding.place.first - 1, finding.place.last}, "@@"}}});
    } else if (word == "*" && finding.place.first > 0 &&
               finding.text[finding.place.first - 1] == '*') {
        cures.push_back({"Write `^`", {{{finding.place.first - 1, finding.place.last}, "^"}}});
    } else if (finding.message().ends_with("a comparison is `==`") && word == "=") {
        replacePlace(finding, "==", cures);
    } else if (finding.message().ends_with("a call needs `()`")) {
        std::string call = finding.token(0) + '(';
        call += finding.slice({finding.place.first, finding.line.last}) + ')';
        cures.push_back({"Put the arguments into parentheses", {{finding.line, call}}});
    }
}

/// A misspelt name, if the message knows what was meant.
void takeSuggestion(const FoundPlace& finding, Cures& cures) {
    if (finding.message().find("did you mean") == std::string::npos) return;
    const std::string meant = finding.lastQuoted();
    if (meant.empty()) return;
    if (finding.code() == "W205") {
        const std::string member = splitLibraryName(meant).member;
        replacePlace(finding, '"' + member + '"', cures);
    } else {
        replacePlace(finding, meant, cures);
    }
}

/// The declaring word in front of an assignment.
void declareNative(const FoundPlace& finding, Cures& cures) {
    if (finding.tokens.empty() || finding.tokens[0].range.first != finding.place.first) return;
    cures.push_back(
        {"Declare it `native`", {{{finding.place.first, finding.place.first}, "native "}}});
}

/// The whole physical lines of the finding's line, if nothing else stands there.
std::optional<SourceRange> wholeLines(const FoundPlace& finding) {
    std::size_t first = finding.line.first;
    while (first > 0 && (finding.text[first - 1] == ' ' || finding.text[first - 1] == '\t')) {
        --first;
    }
    if (first > 0 && finding.text[first - 1] != '\n') return std::nullopt;
    std::size_t last = finding.line.last;
    while (last < finding.text.size() &&
           (finding.text[last] == ' ' || finding.text[last] == '\r')) {
        ++last;
    }
    if (last < finding.text.size() && finding.text[last] != '\n') return std::nullopt;
    return SourceRange{first, std::min(last + 1, finding.text.size())};
}

void foreignWord(const FoundPlace& finding, Cures& cures) {
    const std::string word = finding.written();
    if (finding.token(0) == "else" && word == "if") {
        cures.push_back(
            {"Write `elseif`", {{{finding.tokens[0].range.first, finding.place.last}, "elseif"}}});
    } else if (finding.message().ends_with("`not` is the absent value")) {
        replacePlace(finding, "not", cures);
    } else if (finding.message().ends_with("write `true`")) {
        replacePlace(finding, "true", cures);
    } else if (finding.message().ends_with("write `false`")) {
        replacePlace(finding, "false", cures);
    }
}

/// `t[k] = not` becomes `erase(t, k)`, if there is one key and nothing else.
void eraseKey(const FoundPlace& finding, Cures& cures) {
    const auto& tokens = finding.tokens;
    const std::size_t count = tokens.size();
    if (count < 6 || finding.token(1) != "[" || finding.token(count - 1) != "not" ||
        finding.token(count - 2) != "=" || finding.token(count - 3) != "]") {
        return;
    }
    std::size_t depth = 0;
    for (std::size_t i = 1; i + 3 < count; ++i) {
        if (finding.token(i) == "[") ++depth;
        if (finding.token(i) == "]" && --depth == 0) return;  // several keys
    }
    const std::string key = finding.slice({tokens[2].range.first, tokens[count - 4].range.last});
    cures.push_back({"Remove the key by `erase`",
                     {{finding.line, "erase(" + finding.token(0) + ", " + key + ")"}}});
}

/// `not -1` becomes `not (-1)`: the rest of the operand goes into parentheses.
void parenthesiseOperand(const FoundPlace& finding, Cures& cures) {
    const auto& tokens = finding.tokens;
    for (std::size_t i = 0; i + 2 < tokens.size(); ++i) {
        if (tokens[i].range.first != finding.place.first || finding.token(i) != "not") continue;
        const std::string sign = finding.token(i + 1);
        if ((sign != "-" && sign != "+") || tokens[i + 2].kind != ScanToken::Kind::Word) return;
        cures.push_back({"Put what it negates into parentheses",
                         {{{tokens[i + 1].range.first, tokens[i + 1].range.first}, "("},
                          {{tokens[i + 2].range.last, tokens[i + 2].range.last}, ")"}}});
        return;
    }
}

Cures curesOf(const FoundPlace& finding) {
    using Handler = std::function<void(const FoundPlace&, Cures&)>;
    const auto wrap = [](const char* title, const char* before, const char* behind) -> Handler {
        return [=](const FoundPlace& one, Cures& cures) {
            cures.push_back({title,
                             {{{one.place.first, one.place.first}, before},
                              {{one.place.last, one.place.last}, behind}}});
        };
    };
    static const std::map<std::string, Handler> handlers = {
        {"E101", closeString},
        {"E103", mendLine},
        {"W203", declareNative},
        {"W204", takeSuggestion},
        {"W205", takeSuggestion},
        {"W206",
         [](const FoundPlace& one, Cures& cures) {
             Cure cure{"Begin its name with `_`", {}};
             for (const SymbolUse& use : one.uses()) {
                 cure.edits.push_back({{use.range.first, use.range.first}, "_"});
             }
             if (!cure.edits.empty()) cures.push_back(std::move(cure));
         }},
        {"W207", declareNative},
        {"W305", foreignWord},
        {"W306",
         [](const FoundPlace& one, Cures& cures) {
             cures.push_back({"Make a comment of what is not read",
                              {{{one.place.first, one.place.first}, "@@ "}}});
         }},
        {"W307",
         [](const FoundPlace& one, Cures& cures) {
             if (const auto lines = wholeLines(one)) {
                 cures.push_back({"Remove the line", {{*lines, ""}}});
             }
         }},
        {"W405", wrap("Compare it with 0", "", " != 0")},
        {"W409", eraseKey},
        {"W412", parenthesiseOperand},
        {"W414", wrap("Walk it by `ipairs`", "ipairs(", ")")},
        {"W416",
         [](const FoundPlace& one, Cures& cures) {
             cures.push_back({"Remove the comma", {{one.place, ""}}});
         }},
    };
    Cures cures;
    const auto handler = handlers.find(finding.code());
    if (handler != handlers.end()) handler->second(finding, cures);
    return cures;
}

/// The comment that silences a warning, in a line of its own in front.
Cure silence(const FoundPlace& finding) {
    std::size_t start = finding.place.first;
    while (start > 0 && finding.text[start - 1] != '\n') --start;
    std::size_t code = start;
    while (code < finding.text.size() &&
           (finding.text[code] == ' ' || finding.text[code] == '\t')) {
        ++code;
    }
    const std::size_t end = std::min(finding.text.find('\n', start), finding.text.size());
    const bool hasReturn = end > start && finding.text[end - 1] == '\r';
    return {"Allow " + finding.code() + " here",
            {{{start, start},
              finding.slice({start, code}) + "@@ dovrel: allow " + finding.code() +
                  (hasReturn ? "\r\n" : "\n")}}};
}

}  // namespace

Json codeActions(const Workspace& workspace, const ScriptDocument& document,
                 const Json& diagnostics, const EditorView& view) {
    Json actions = Json::array();
    const auto add = [&](const Cure& cure, const Json& diagnostic, bool isPreferred) {
        Json edits = Json::array();
        for (const Edit& edit : cure.edits) {
            edits.push_back({{"range", view.range(document, edit.range)}, {"newText", edit.text}});
        }
        Json action = {{"title", cure.title},
                       {"kind", "quickfix"},
                       {"diagnostics", Json::array({diagnostic})},
                       {"edit", {{"changes", {{document.uri(), edits}}}}}};
        if (isPreferred) action["isPreferred"] = true;
        actions.push_back(std::move(action));
    };
    for (const Json& diagnostic : diagnostics) {
        const auto code = diagnostic.find("code");
        if (code == diagnostic.end() || !code->is_string()) continue;
        const SourceRange range = view.rangeOf(document, diagnostic.at("range"));
        if (range.first >= document.text().size()) continue;
        const FoundPlace finding(workspace, document, range, code->get<std::string>(),
                                 diagnostic.value("message", ""));
        const Cures cures = curesOf(finding);
        for (const Cure& cure : cures) add(cure, diagnostic, cures.size() == 1);
        const CheckCode* known = findCheckCode(finding.code());
        if (known != nullptr && known->severity == Severity::Warning) {
            add(silence(finding), diagnostic, false);
        }
    }
    return actions;
}
