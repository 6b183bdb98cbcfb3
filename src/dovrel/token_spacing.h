// Blanks between the tokens of a line.
#pragma once

#include <cstddef>

#include "frontend/parsed_script_line.h"

/// A blank stands in front of the token at `index`, which is not the first of its line.
[[nodiscard]] bool wantsBlankBefore(const ParsedScriptLine& line, std::size_t index);

/// The token at `index` ends an operand, so that an operator or a postfix may follow.
[[nodiscard]] bool endsOperand(const ParsedScriptLine& line, std::size_t index);
