// The mathematical natives on scalars, for whoever calls them without a Variable.
#pragma once

#include <cstddef>

#include "eval/fast_scalar_value.h"
#include "library/builtin_id.h"

/// The native `id` on `count` numbers, one or more. False for a wrong count and for an id that is
/// none of `math`. Raises what logarithms and roots raise.
[[nodiscard]] bool tryScalarMath(BuiltinId id, const FastScalarValue* values, std::size_t count,
                                 FastScalarValue& out);
