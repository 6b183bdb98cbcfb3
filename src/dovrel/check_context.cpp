#include "dovrel/check_context.h"

#include <algorithm>
#include <array>

bool CheckContext::isAssigned(const std::string& name) const {
    if (assignedElsewhere.contains(name)) return true;
    return !model.writesOf(name).empty();
}

bool CheckContext::isLibraryGlobal(const std::string& name) {
    static const std::set<std::string> globals = [] {
        std::set<std::string> names;
        for (const std::string& written : LibraryReference::ofLibrary().names()) {
            const LibraryName split = splitLibraryName(written);
            names.insert(split.table.empty() ? split.member : split.table);
        }
        // The members of files are described like those of a table that does not exist.
        names.erase("file");
        return names;
    }();
    return globals.contains(name);
}

std::string CheckContext::libraryCallee(const Expression& call, std::size_t function,
                                        bool& isMethod) const {
    isMethod = false;
    const Expression& callee = call.callee();
    if (callee.is(ExpressionKind::Variable)) {
        return isUntouchedLibrary(callee.text) && !model.ownNames(function).contains(callee.text)
                   ? callee.text
                   : std::string();
    }
    if (!callee.is(ExpressionKind::Index) || !callee.children[1].is(ExpressionKind::TextLiteral)) {
        return {};
    }
    const Expression& base = callee.children[0];
    if (base.is(ExpressionKind::Variable) && isLibraryGlobal(base.text)) {
        return isUntouchedLibrary(base.text) ? base.text + '.' + callee.children[1].text
                                             : std::string();
    }
    if (!kinds.of(base, function).isOnlyText()) return {};
    isMethod = true;
    return "string." + callee.children[1].text;
}

std::vector<std::size_t> CheckContext::scriptCallees(const Expression& call) const {
    const Expression& callee = call.callee();
    if (callee.is(ExpressionKind::Variable)) return model.functionsCalled(callee.text);
    if (callee.is(ExpressionKind::Index) && callee.children[0].is(ExpressionKind::Variable) &&
        callee.children[1].is(ExpressionKind::TextLiteral)) {
        return model.functionsCalled(callee.children[0].text + "[\"" + callee.children[1].text +
                                     "\"]");
    }
    return {};
}

void CheckContext::report(std::string_view code, std::size_t statement, std::size_t token,
                          const std::string& message) {
    const ParsedSource& source = model.source();
    const std::size_t count = source.lines()[statement].tokens.size();
    SourceRange range = source.tokenRange(statement, std::min(token, count - 1));
    if (token >= count) range.first = range.last;
    findings_.push_back({findCheckCode(code), range, message});
}

void CheckContext::report(std::string_view code, std::size_t statement,
                          const Expression& expression, const std::string& message) {
    const ParsedSource& source = model.source();
    findings_.push_back({findCheckCode(code),
                         {source.tokenRange(statement, expression.first).first,
                          source.tokenRange(statement, expression.last - 1).last},
                         message});
}

std::string quoted(std::string_view name) { return '`' + std::string(name) + '`'; }

bool isForeignValue(std::string_view name) {
    constexpr std::array<std::string_view, 13> kWords = {
        "nil",  "None",  "null", "undefined", "NULL", "True",    "False",
        "TRUE", "FALSE", "self", "this",      "NaN",  "Infinity"};
    return std::find(kWords.begin(), kWords.end(), name) != kWords.end();
}

bool isForeignStatement(std::string_view name) {
    constexpr std::array<std::string_view, 8> kWords = {"continue", "exit", "quit", "pass",
                                                        "next",     "then", "do",   "begin"};
    return std::find(kWords.begin(), kWords.end(), name) != kWords.end();
}
