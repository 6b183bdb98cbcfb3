// How much of the host's stack is left, for what recurses in code that is not this program's own.
#pragma once

#include <cstddef>

/// Whether `count` times `each` bytes are left on the stack that runs now. True where the host does
/// not tell; always true, and fast, for needs that any stack has room for.
[[nodiscard]] bool hasHostStackFor(std::size_t count, std::size_t each);
