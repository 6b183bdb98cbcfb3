// Writing through a path of keys, shared by assignments and function declarations.
#pragma once

#include <span>

#include "value/variable.h"

class DovrelScript;

/// True for a key that a new container stores as an array: a whole number of at least 1.
[[nodiscard]] bool prefersArrayStorage(const Variable& key);

/// An empty array or table, as `key` prefers.
[[nodiscard]] Variable makeContainerFor(const Variable& key);

/// Walks from `base` along all of `keys` but the last and returns the container that the last key
/// belongs to, valid until something changes. With `create` missing levels are made on the way;
/// without it they fail as an index does.
[[nodiscard]] Variable* walkToLastContainer(DovrelScript& interpreter, Variable& base,
                                            std::span<const Variable> keys, bool create);
