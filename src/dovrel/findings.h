// What a check finds, and the codes of everything that it can find.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "dovrel/source_text.h"

enum class Severity { Error, Warning };

/// A thing to be found. Codes never change their meaning.
struct CheckCode {
    std::string_view code;  // such as "W204"
    Severity severity;
    std::string_view title;        // a few words
    std::string_view explanation;  // several lines: what happens, why, and what to write
};

/// All codes, in order.
[[nodiscard]] std::span<const CheckCode> allCheckCodes();
/// The code written `code`, whatever its capitals, or null.
[[nodiscard]] const CheckCode* findCheckCode(std::string_view code);

/// One place where something was found.
struct Finding {
    const CheckCode* code = nullptr;
    SourceRange range;
    std::string message;
};
