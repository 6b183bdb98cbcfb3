// The interpreter's exception classes and the fixed texts of error reports.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

/// Raised by `error`, a failing `assert` and a fired guard when no protected call is active.
class RaisedScriptError : public std::exception {
public:
    explicit RaisedScriptError(std::string message) : message_(std::move(message)) {}
    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

/// Ends a coroutine's turn. It has no base class on purpose: every handler of the executors catches
/// the standard exceptions only, so that this signal reaches nobody but the scheduler.
class CoroutineTerminated {};

/// The first words of a report. A message that begins with them has its location already and is
/// never wrapped again.
inline constexpr std::string_view kReportMarker = "DovrelScript error:";

[[nodiscard]] inline bool isLocatedReport(std::string_view message) {
    return message.starts_with(kReportMarker);
}

/// A runtime error that makes its text itself. A text that the raising function makes would have to
/// be released on the way out, and each frame with something to release costs as much time as three
/// without.
class RuntimeError : public std::runtime_error {
public:
    explicit RuntimeError(std::string_view message) : std::runtime_error(std::string(message)) {}
};

/// Raises a plain runtime error: a message with no location yet.
[[noreturn]] inline void throwPlainError(std::string_view message) { throw RuntimeError(message); }
