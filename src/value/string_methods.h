// What `text["method"]` stands for, and what calling it does. The value itself is a native
// callable, `DovrelScript::bindStringMethod`; a call can do without it.
#pragma once

#include "value/variable.h"

class DovrelScript;

/// The function under `method` in the table that the name `string` leads to now; null if there is
/// none. Whatever runs may move it.
[[nodiscard]] const Variable* findStringMethod(DovrelScript& interpreter, const Text& method);
