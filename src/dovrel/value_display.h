// Values as the prompt and the reports of tests show them: so that their kinds can be told apart.
#pragma once

#include <string>

#include "value/variable.h"

/// `value` as a script would write it: texts in quotes, the keys of tables in order. A container
/// inside of itself is "[...]", and what is very long is cut. A function shows its parameters.
[[nodiscard]] std::string showValue(const Variable& value);

/// The kind of `value` in words: "an int", "an array of 3 elements".
[[nodiscard]] std::string describeKind(const Variable& value);
