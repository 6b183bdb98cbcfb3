#include "frontend/operator_table.h"

#include <algorithm>

namespace {

int classifySingle(char c) {
    switch (c) {
        case '<': return kLess;
        case '>': return kGreater;
        case '+': return kAdd;
        case '-': return kSubtract;
        case '*': return kMultiply;
        case '/': return kDivide;
        case '\\': return kIntDivide;
        case '%': return kModulo;
        case '^': return kPower;
        default: return kNoOperator;
    }
}

int classifyDouble(char first, char second) {
    if (second == '=') {
        switch (first) {
            case '=': return kEqual;
            case '!':
            case '~': return kNotEqual;
            case '<': return kLessEqual;
            case '>': return kGreaterEqual;
            default: return kNoOperator;  // a compound assignment
        }
    }
    if (first == '|' && second == '|') return kOr;
    if (first == '&' && second == '&') return kAnd;
    return first == 'o' && second == 'r' ? kOr : kNoOperator;
}

constexpr std::array<std::string_view, 27> kNotBoundaries = {
    "",   ")",  "]",  "}",  ",",  "%",  "*",  "+",   "-",  "/",    "\\",     "^",   "<",    ">",
    "<=", ">=", "==", "!=", "~=", "&&", "||", "and", "or", "else", "elseif", "end", "until"};

}  // namespace

int classifyBinaryOperator(std::string_view token) {
    switch (token.size()) {
        case 1: return classifySingle(token[0]);
        case 2: return classifyDouble(token[0], token[1]);
        case 3: return token == "and" ? kAnd : kNoOperator;
        default: return kNoOperator;
    }
}

bool isStandaloneNotBoundary(std::string_view token) {
    return std::find(kNotBoundaries.begin(), kNotBoundaries.end(), token) != kNotBoundaries.end();
}
