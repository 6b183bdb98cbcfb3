#include "dovrel/check_script.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "dovrel/check_context.h"
#include "dovrel/structure_check.h"
#include "dovrel/syntax_check.h"
#include "dovrel/text_file.h"

namespace {

std::vector<bool> readableLines(const ParsedSource& source) {
    std::vector<bool> readable;
    for (const ParsedScriptLine& line : source.lines()) {
        readable.push_back(!findSyntaxError(source.interpreter(), line));
    }
    return readable;
}

/// Gathers what the texts and files that a script runs assign to.
class OtherCode {
public:
    explicit OtherCode(CheckContext& context) : context_(context) {}

    void gather(const ScriptModel& model, const std::filesystem::path& folder) {
        for (const NameUse& use : model.uses()) {
            const bool runsCode = use.name == "load" || use.name == "loadstring" ||
                                  use.name == "loadFile" || use.name == "loadfile" ||
                                  use.name == "runFile" || use.name == "dofile";
            if (!use.isRead() || !runsCode) continue;
            const Expression* call = callAt(model, use);
            const bool isFile = use.name != "load" && use.name != "loadstring";
            if (call == nullptr || call->argumentCount() == 0 ||
                !call->argument(0).is(ExpressionKind::TextLiteral)) {
                context_.runsUnknownCode = true;
            } else if (isFile) {
                takeFile(call->argument(0).text, folder);
            } else {
                takeText(call->argument(0).text, folder);
            }
        }
    }

private:
    static const Expression* callAt(const ScriptModel& model, const NameUse& use) {
        const Expression* found = nullptr;
        for (const Expression& value : model.statements()[use.statement].values) {
            visitExpressions(value, [&](const Expression& part) {
                if (part.is(ExpressionKind::Call) && part.callee().token == use.token) {
                    found = &part;
                }
            });
        }
        return found;
    }

    void takeFile(const std::string& path, const std::filesystem::path& folder) {
        for (const std::filesystem::path& candidate :
             {std::filesystem::path(path), folder / path}) {
            std::error_code ignored;
            if (!std::filesystem::is_regular_file(candidate, ignored)) continue;
            if (!seen_.insert(std::filesystem::weakly_canonical(candidate, ignored)).second) return;
            takeText(readTextFile(candidate.string()), candidate.parent_path());
            return;
        }
        context_.runsUnknownCode = true;
    }

    void takeText(const std::string& text, const std::filesystem::path& folder) {
        if (SourceText(text).openString()) return;
        const ParsedSource source(text);
        const ScriptModel model(source, readableLines(source));
        for (const NameUse& use : model.uses()) {
            if (!use.isRead()) context_.assignedElsewhere.insert(use.name);
        }
        gather(model, folder);
    }

    CheckContext& context_;
    std::set<std::filesystem::path> seen_;
};

/// What to write in place of something that other languages have.
std::string hintFor(const ParsedScriptLine& line, const SyntaxError& error) {
    const auto tokenAt = [&](std::size_t index) {
        return index < line.tokens.size() ? std::string_view(line.tokens[index])
                                          : std::string_view();
    };
    const std::string_view token = tokenAt(error.token);
    const std::string_view before = error.token > 0 ? tokenAt(error.token - 1) : "";
    if (token == "then" || token == "do") return "a condition ends with its line";
    if (!line.tokens.empty() &&
        (line.tokens[0] == "elif" || line.tokens[0] == "elsif" || line.tokens[0] == "elseIf")) {
        return "write `elseif`";
    }
    if (!line.tokens.empty() &&
        (line.tokens[0] == "var" || line.tokens[0] == "let" || line.tokens[0] == "const")) {
        return "an assignment makes its variable: leave the first word out, or write `native`";
    }
    if (tokenAt(0) == "def" || tokenAt(0) == "func" || tokenAt(0) == "fn") {
        return "write `function`";
    }
    if (line.tokens.size() == 3 && tokenAt(1) == tokenAt(2) &&
        (tokenAt(1) == "+" || tokenAt(1) == "-")) {
        return "write `" + line.tokens[1] + "= 1`";
    }
    if (token == "/" && before == "/") return "a comment begins with `@@`";
    if (token == "*" && before == "*") return "the power is `^`";
    if (token == "=" && (before == "==" || before == "!="))
        return "write `" + std::string(before) + '`';
    if (token == "..") return "join texts by `+`";
    if (token == "=" && line.kind != LineKind::Plain) return "a comparison is `==`";
    if (token == "{" || token == "}") return "blocks have no braces: they end with `end`";
    if (token == "?") return "there is no such operator; write an `if`";
    const std::size_t dot = token.find('.');
    if (dot != std::string_view::npos && dot != 0 && dot + 1 < token.size()) {
        const std::string head(token.substr(0, dot));
        if (isIdentifier(head)) {
            return "write `" + head + "[\"" + std::string(token.substr(dot + 1)) + "\"]`";
        }
    }
    if (token == ":") return "there is no method call; write `a[\"b\"](...)`";
    if (!token.empty() && token.find_first_of("eE") != std::string_view::npos &&
        token.find_first_not_of("0123456789.eE") == std::string_view::npos) {
        return "there are no exponents: write the number out";
    }
    if (line.kind == LineKind::Plain && error.message == "Unexpected trailing token" &&
        error.token == 1 && line.tokenAnalysis[0].isIdentifier) {
        return "a call needs `()`";
    }
    return {};
}

void checkLines(const ParsedSource& source, std::vector<bool>& readable,
                std::vector<Finding>& findings) {
    for (std::size_t i = 0; i < source.lines().size(); ++i) {
        const ParsedScriptLine& line = source.lines()[i];
        const auto error = findSyntaxError(source.interpreter(), line);
        readable.push_back(!error);
        if (!error) continue;
        const std::size_t count = line.tokens.size();
        SourceRange range = source.tokenRange(i, std::min(error->token, count - 1));
        if (error->token >= count) range.first = range.last;
        std::string message = error->message;
        const std::string hint = hintFor(line, *error);
        // An open bracket, which is told of at its place, is all that is wrong with the last line.
        const bool isOpen = source.source().openBracket() && i + 1 == source.lines().size();
        if (isOpen && hint.empty()) continue;
        if (!hint.empty()) message += "; " + hint;
        findings.push_back({findCheckCode("E103"), range, message});
    }
}

/// The comments that silence findings: `@@ dovrel: allow W204, W206` behind the code that they are
/// for or in a line in front of it, and `allow-file` anywhere for the whole text.
class Silence {
public:
    explicit Silence(const SourceText& source) : source_(source) {
        for (const SourceRange& comment : source.comments()) take(comment);
    }
    [[nodiscard]] bool covers(const Finding& finding) const {
        const std::string code(finding.code->code);
        if (everywhere_.contains(code)) return true;
        const std::size_t first = source_.positionOf(finding.range.first).line;
        const std::size_t last =
            source_.positionOf(std::max(finding.range.last, finding.range.first + 1) - 1).line;
        for (std::size_t line = first; line <= last; ++line) {
            const auto found = lines_.find(line);
            if (found != lines_.end() && found->second.contains(code)) return true;
        }
        return false;
    }

private:
    static std::set<std::string> codesIn(std::string_view text) {
        std::set<std::string> codes;
        std::string word;
        for (const char c : std::string(text) + ' ') {
            if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
                word += c;
            } else if (!word.empty()) {
                codes.insert(std::exchange(word, {}));
            }
        }
        return codes;
    }
    void take(SourceRange comment) {
        std::string_view text = source_.slice(comment).substr(2);
        const auto skip = [&](std::string_view word) {
            while (text.starts_with(' ')) text.remove_prefix(1);
            if (!text.starts_with(word)) return false;
            text.remove_prefix(word.size());
            return true;
        };
        if (!skip("dovrel:")) return;
        if (skip("allow-file ")) {
            everywhere_.merge(codesIn(text));
            return;
        }
        if (!skip("allow ")) return;
        std::size_t line = source_.positionOf(comment.first).line;
        const auto isBlankOrComment = [&](std::size_t at) {
            const std::string_view content = source_.slice(source_.physicalLine(at));
            const std::size_t start = content.find_first_not_of(" \t\r");
            return start == std::string_view::npos || content.substr(start).starts_with("@@");
        };
        if (isBlankOrComment(line)) {
            while (line < source_.physicalLineCount() && isBlankOrComment(line)) ++line;
        }
        lines_[line].merge(codesIn(text));
    }

    const SourceText& source_;
    std::set<std::string> everywhere_;
    std::map<std::size_t, std::set<std::string>> lines_;
};

void checkModel(const ScriptModel& model, const std::string& path, std::vector<Finding>& findings) {
    CheckContext context(model, findings);
    OtherCode(context).gather(model, std::filesystem::path(path).parent_path());
    checkVariables(context);
    checkScopes(context);
    checkFlow(context);
    checkWords(context);
    checkRepeatedCalls(context);
    checkNumbers(context);
    checkContainers(context);
    checkFiles(context);
}

}  // namespace

CheckResult checkScript(const std::string& text, const std::string& path) {
    CheckResult result{SourceText(text), {}};
    if (result.source.openString()) {
        checkOpenString(result.source, result.findings);
    } else {
        const ParsedSource source(text);
        std::vector<bool> readable;
        checkStructure(source, result.findings);
        const bool isWhole = result.findings.empty();
        checkLines(source, readable, result.findings);
        // Blocks that are not closed put everything behind them into the wrong function.
        if (isWhole) checkModel(ScriptModel(source, readable), path, result.findings);
    }
    const Silence silence(result.source);
    std::erase_if(result.findings, [&](const Finding& finding) { return silence.covers(finding); });
    std::stable_sort(result.findings.begin(), result.findings.end(),
                     [](const Finding& a, const Finding& b) {
                         if (a.range.first != b.range.first) return a.range.first < b.range.first;
                         return a.code->code < b.code->code;
                     });
    return result;
}
