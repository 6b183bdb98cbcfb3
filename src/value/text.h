// Building text from values without temporaries.
#pragma once

#include <cstddef>
#include <string>

#include "value/variable.h"

/// Appends the decimal digits of `value`, with a minus sign when negative.
void appendIntFast(std::string& out, int value);

/// Appends exactly what `value.toString()` would give.
void appendVariableStringFast(std::string& out, const Variable& value);

/// The length of what `appendVariableStringFast` appends.
[[nodiscard]] std::size_t estimateVariableStringSize(const Variable& value);

/// The six-decimal text of a float, as `toString` and table keys use it.
[[nodiscard]] std::string floatText(float number);
