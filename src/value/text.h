// Building text from values without temporaries.
#pragma once

#include <cstddef>
#include <string>

#include "value/variable.h"

/// Appends the decimal digits of `value`, with a minus sign when negative.
void appendIntFast(std::string& out, int value);

/// Appends exactly what `value.toString()` would give.
void appendVariableStringFast(std::string& out, const Variable& value);

/// The text of one byte. Scripts take texts apart byte by byte, so these are made once.
[[nodiscard]] Variable byteText(char byte);

/// The text of `lhs` with that of `rhs` behind it.
[[nodiscard]] std::string joinedText(const Variable& lhs, const Variable& rhs);

/// Puts the text of `addition`, which may be the target itself, behind the text of `target`, which
/// must be a String. A text that nobody shares grows in place, so that a text which is put together
/// from pieces costs no more than its length. Nothing changes if the addition has no text.
void appendToString(Variable& target, const Variable& addition);

/// The length of what `appendVariableStringFast` appends.
[[nodiscard]] std::size_t estimateVariableStringSize(const Variable& value);

/// The six-decimal text of a float, as `toString` and table keys use it.
[[nodiscard]] std::string floatText(float number);
