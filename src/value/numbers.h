// Conversions between the language's 32-bit numbers, the host's numbers and text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "value/variable.h"

/// A double cut toward zero into the range of int; beyond it the nearest limit, and 0 for a NaN.
[[nodiscard]] int saturateToInt(double number);

/// Int as is, Float cut toward zero (saturating, NaN gives 0), Bool as 0 or 1. Everything else
/// raises "Expected a numeric value"; no text is parsed.
[[nodiscard]] int toInt(const Variable& value);

/// Int and Float widened exactly, Bool as 0.0 or 1.0. Everything else raises "Expected a numeric
/// value".
[[nodiscard]] double toDouble(const Variable& value);

/// Reads the whole of `text` as a decimal int: one leading "-" allowed, no "+", no blanks.
[[nodiscard]] bool parseIntStrict(std::string_view text, int& out);

/// Reads the whole of `text` as a float with all that `strtof` takes; overflow and underflow fail.
[[nodiscard]] bool parseFloatStrict(const std::string& text, float& out);

/// True for a float that is whole and lies within -2147483648 and 2147483648, both included; `out`
/// is then its int, saturating at the upper end.
[[nodiscard]] bool wholeFloatToInt(float number, int& out);

// 32-bit arithmetic that wraps around, made in unsigned so that it is defined.
[[nodiscard]] constexpr int wrapAdd(int a, int b) {
    return static_cast<int>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
[[nodiscard]] constexpr int wrapSubtract(int a, int b) {
    return static_cast<int>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}
[[nodiscard]] constexpr int wrapMultiply(int a, int b) {
    return static_cast<int>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}
[[nodiscard]] constexpr int wrapNegate(int a) { return wrapSubtract(0, a); }
/// Truncating division by a non-zero divisor; -1 negates, wrapping, so that nothing can trap.
[[nodiscard]] constexpr int wrapDivide(int a, int b) { return b == -1 ? wrapNegate(a) : a / b; }
/// The remainder of `wrapDivide`; 0 for a divisor of -1.
[[nodiscard]] constexpr int wrapRemainder(int a, int b) { return b == -1 ? 0 : a % b; }
