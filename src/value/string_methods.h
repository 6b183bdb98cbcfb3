// What `text["method"]` stands for, and what calling it does. The value itself is a native
// callable, `DovrelScript::bindStringMethod`; a call can do without it.
#pragma once

#include <string_view>

#include "value/arguments.h"
#include "value/variable.h"

class DovrelScript;

/// The function under `method` in the table that the name `string` leads to now; null if there is
/// none. Whatever runs may move it.
[[nodiscard]] const Variable* findStringMethod(DovrelScript& interpreter, std::string_view method);

/// Calls `function` with `receiver` in front of `args`, unless the first of these equals it. The
/// function is the caller's copy.
[[nodiscard]] Variable callStringMethod(DovrelScript& interpreter, const Variable& function,
                                        const Variable& receiver, Arguments args);
