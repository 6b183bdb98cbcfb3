// The binary operators as the expression parsers see them.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

/// Operator numbers; the order is that of the precedence table.
enum BinaryOperator : int {
    kNoOperator = 0,
    kOr = 1,
    kAnd = 2,
    kEqual = 3,
    kNotEqual = 4,
    kLess = 5,
    kGreater = 6,
    kLessEqual = 7,
    kGreaterEqual = 8,
    kAdd = 9,
    kSubtract = 10,
    kMultiply = 11,
    kDivide = 12,
    kIntDivide = 13,
    kModulo = 14,
    kPower = 15,
};

/// The level at which a unary operator takes its operand: only "^" binds tighter.
inline constexpr int kUnaryLevel = 7;

/// Precedence by operator number, 0 for no operator.
inline constexpr std::array<int, 16> kPrecedence = {0, 1, 2, 3, 3, 4, 4, 4, 4, 5, 5, 6, 6, 6, 6, 7};

/// The number of the operator that `token` spells, or kNoOperator. Only the text counts; "=" and
/// the compound assignment tokens are no operators.
[[nodiscard]] int classifyBinaryOperator(std::string_view token);

/// The lowest precedence that the right side of operator `number` may hold: "^" alone is
/// right-associative.
[[nodiscard]] constexpr int rightLevel(int number) {
    const int precedence = kPrecedence[static_cast<std::size_t>(number)];
    return number == kPower ? precedence : precedence + 1;
}

/// True if a "not" in front of `token` stands alone and means the absent value. "+" and "-" are
/// boundaries, so `not -1` subtracts; kept, scripts rely on it.
[[nodiscard]] bool isStandaloneNotBoundary(std::string_view token);
