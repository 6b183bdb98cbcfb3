// Located reports, soft errors, and the position that reports show.
#include "eval/errors.h"

#include <string>
#include <string_view>
#include <utility>

#include "interpreter/dovrel_script.h"

namespace {

/// Where the caret stands: under the first occurrence of the token, or behind the text.
std::size_t caretColumn(std::string_view source, std::string_view token) {
    if (token.empty() || token == "EOF") return source.size();
    const std::size_t found = source.find(token);
    return found == std::string_view::npos ? source.size() : found;
}

}  // namespace

void DovrelScript::throwError(const std::string& message, std::string_view token) {
    throw std::runtime_error(locatedReport(message, token));
}

std::string DovrelScript::locatedReport(const std::string& message, std::string_view token) {
    const std::string_view source = currentLine != nullptr ? std::string_view(*currentLine) : "";
    const bool named = !scriptNameStack.empty() && !scriptNameStack.back()->empty();

    std::string report(kReportMarker);
    report += ' ';
    report += message;
    report += "\n  at ";
    report += named ? *scriptNameStack.back() + ":" : "line ";
    report += std::to_string(currentLineNumber + 1);
    if (!token.empty()) {
        report += ", near token '";
        report += token;
        report += '\'';
    }
    report += "\n  ";
    report += source;
    report += "\n  ";
    const std::size_t column = caretColumn(source, token);
    report.append(column, ' ');
    report += '^';
    if (token.size() >= 2 && column + token.size() <= source.size()) {
        report.append(token.size() - 1, '~');
    }
    report += "\n  hint: check spelling, operators, parentheses, and quote matching\n";
    return report;
}

void DovrelScript::rethrowLocated(const std::exception& error, std::string_view fallbackToken) {
    const std::string message = error.what();
    if (isLocatedReport(message)) throw;
    // Copies: the report is built while the fields may still be read.
    const std::string token(lastToken.empty() ? fallbackToken : std::string_view(lastToken));
    throwError(message, token);
}

void DovrelScript::raiseScriptErrorSoft(std::string message) {
    if (protectedCallDepths.empty()) throw RaisedScriptError(std::move(message));
    // The first soft error of an unwinding stands.
    if (softErrorPending) return;
    softErrorPending = true;
    softErrorDepth = protectedCallDepths.back();
    softErrorMessage = std::move(message);
}

void DovrelScript::keepCurrentLineText() noexcept {
    if (currentLine == nullptr || currentLine == &currentLineTextOverride) return;
    try {
        currentLineTextOverride = *currentLine;
        currentLine = &currentLineTextOverride;
    } catch (const std::bad_alloc&) {
        currentLine = nullptr;  // a report without the text is better than none
    }
}

void DovrelScript::retireCallable(Shared<ScriptCallable>&& callable,
                                  const std::string* lineAtEntry) {
    // A call that selected no line has nothing to keep. If the current line is the one that an
    // inner call left, it belongs to the inner callable, and that one must stay.
    if (currentLine == lineAtEntry || currentLine == retiredLine) return;
    retiredCallable = std::move(callable);
    retiredLine = currentLine;
}
