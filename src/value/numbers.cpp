#include "value/numbers.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>

int saturateToInt(double number) {
    if (std::isnan(number)) return 0;
    if (number >= 2147483647.0) return std::numeric_limits<int>::max();
    if (number <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(number);
}

int toInt(const Variable& value) {
    switch (value.type) {
        case VarType::Int: return value.asInt();
        case VarType::Float: return saturateToInt(static_cast<double>(value.asFloat()));
        case VarType::Bool: return value.asBool() ? 1 : 0;
        default: throw std::runtime_error("Expected a numeric value");
    }
}

double toDouble(const Variable& value) {
    switch (value.type) {
        case VarType::Int: return static_cast<double>(value.asInt());
        case VarType::Float: return static_cast<double>(value.asFloat());
        case VarType::Bool: return value.asBool() ? 1.0 : 0.0;
        default: throw std::runtime_error("Expected a numeric value");
    }
}

bool parseIntStrict(std::string_view text, int& out) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, out, 10);
    return !text.empty() && error == std::errc() && stop == end;
}

bool parseFloatStrict(const std::string& text, float& out) {
    if (text.empty()) return false;
    errno = 0;
    char* stop = nullptr;
    const float number = std::strtof(text.c_str(), &stop);
    if (errno == ERANGE || stop == text.c_str() || stop != text.c_str() + text.size()) return false;
    out = number;
    return true;
}

bool wholeFloatToInt(float number, int& out) {
    if (!(number >= -2147483648.0F && number <= 2147483648.0F)) return false;
    if (std::trunc(number) != number) return false;
    out = saturateToInt(static_cast<double>(number));
    return true;
}
