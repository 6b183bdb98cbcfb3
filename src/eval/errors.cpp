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

/// A located report, which is made as it is raised: see RuntimeError.
class LocatedError : public std::runtime_error {
public:
    LocatedError(const DovrelScript& interpreter, std::string_view message, std::string_view token)
        : std::runtime_error(interpreter.locatedReport(message, token)) {}
};

}  // namespace

std::string DovrelScript::locatedReport(std::string_view message, std::string_view token) const {
    noteError(message);
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

void DovrelScript::throwError(std::string_view message, std::string_view token) {
    observeRaised(message);
    throw LocatedError(*this, message, token);
}

void DovrelScript::rethrowLocated(const std::exception& error, std::string_view fallbackToken) {
    if (isLocatedReport(error.what())) throw;
    observeError(error);
    throw LocatedError(*this, error.what(), lastToken.empty() ? fallbackToken : lastToken);
}

bool DovrelScript::tryRecordFault(const std::exception& error, std::string_view fallbackToken) {
    // With no call between, nothing but blocks of the one function is left by the soft error, and
    // what they do then is what an exception does. A coroutine would have its turns on the way.
    const bool isAlone = !protectedCallDepths.empty() && callDepth == protectedFrameDepth &&
                         callDepth == protectedCallDepths.back() + 1 && !softErrorPending &&
                         scheduledCoroutine == nullptr && !inCoroutineTurn &&
                         !pendingCoroutineException;
    if (!isAlone) return false;
    const std::string_view message = error.what();
    observeError(error);
    softErrorMessage = isLocatedReport(message)
                           ? std::string(message)
                           : locatedReport(message, lastToken.empty() ? fallbackToken : lastToken);
    softErrorDepth = protectedCallDepths.back();
    softErrorPending = true;
    noteAttention();
    return true;
}

void DovrelScript::raiseScriptErrorSoft(std::string message) {
    if (protectedCallDepths.empty()) {
        observeRaised(message);
        throw RaisedScriptError(std::move(message));
    }
    // The first soft error of an unwinding stands.
    if (softErrorPending) return;
    observeRaised(message);
    softErrorPending = true;
    noteAttention();
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
