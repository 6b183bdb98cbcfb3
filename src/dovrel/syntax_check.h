// What the interpreter would say of a line that cannot be read, found before it runs.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "dovrel/source_text.h"

/// A line that cannot be read.
struct SyntaxError {
    std::string message;    // the interpreter's own
    std::size_t token = 0;  // where; the count of tokens for the end of the line
};

/// Reads `line` as the evaluators would when it runs. Nothing is run.
[[nodiscard]] std::optional<SyntaxError> findSyntaxError(DovrelScript& interpreter,
                                                         const ParsedScriptLine& line);
