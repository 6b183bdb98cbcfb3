#include "frontend/operator_table.h"

#include <algorithm>

namespace {

struct OperatorRow {
    std::string_view token;
    int number;
};

constexpr std::array<OperatorRow, 19> kOperators = {{
    {"or", kOr},      {"||", kOr},        {"and", kAnd},         {"&&", kAnd},
    {"==", kEqual},   {"!=", kNotEqual},  {"~=", kNotEqual},     {"<", kLess},
    {">", kGreater},  {"<=", kLessEqual}, {">=", kGreaterEqual}, {"+", kAdd},
    {"-", kSubtract}, {"*", kMultiply},   {"/", kDivide},        {"\\", kIntDivide},
    {"%", kModulo},   {"^", kPower},      {"", kNoOperator},
}};

constexpr std::array<std::string_view, 27> kNotBoundaries = {
    "",   ")",  "]",  "}",  ",",  "%",  "*",  "+",   "-",  "/",    "\\",     "^",   "<",    ">",
    "<=", ">=", "==", "!=", "~=", "&&", "||", "and", "or", "else", "elseif", "end", "until"};

}  // namespace

int classifyBinaryOperator(std::string_view token) {
    // Nearly every token asked about is a word, a bracket or a comma.
    if (token.size() > 3) return kNoOperator;
    const auto found = std::find_if(kOperators.begin(), kOperators.end(),
                                    [&](const OperatorRow& row) { return row.token == token; });
    return found == kOperators.end() ? kNoOperator : found->number;
}

bool isStandaloneNotBoundary(std::string_view token) {
    return std::find(kNotBoundaries.begin(), kNotBoundaries.end(), token) != kNotBoundaries.end();
}
