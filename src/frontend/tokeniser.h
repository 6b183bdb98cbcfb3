// Cutting one token at a time, for those who need no more than the first few of a line.
#pragma once

#include <cstddef>
#include <string_view>

/// Cuts the token at or behind `at`, which moves to its end. False where none is left: at the end,
/// at a comment, and at a string that is not closed, where `at` stays on the quote.
[[nodiscard]] bool nextToken(std::string_view text, std::size_t& at, std::string_view& token);
