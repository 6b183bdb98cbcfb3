// string.format. Each conversion goes to the platform's snprintf on its own, with one argument, so
// that flags, width and precision mean what they mean there. The usual ones are laid out here: ints
// and texts with nothing but a width, and floats with a width and a precision.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <version>

#include "eval/errors.h"
#include "library/natives.h"
#include "value/numbers.h"
#include "value/text.h"

namespace {

constexpr std::size_t kLongestInt = 11;  // a sign and ten digits
// A sign, the digits of the largest float, a point, and the largest usual precision.
constexpr std::size_t kLongestNumber = 1 + std::numeric_limits<double>::max_exponent10 + 2 + 99;

/// The first offset from `start` on whose byte is not one of `set`.
[[nodiscard]] std::size_t skipBytes(std::string_view text, std::size_t start,
                                    std::string_view set) {
    const std::size_t end = text.find_first_not_of(set, start);
    return end == std::string_view::npos ? text.size() : end;
}

/// The offset behind the flags, width and precision that begin at `start`. A "*" is none of these.
[[nodiscard]] std::size_t skipFlagsWidthPrecision(std::string_view text, std::size_t start) {
    constexpr std::string_view kDigits = "0123456789";
    std::size_t index = skipBytes(text, start, " #+-0");
    index = skipBytes(text, index, kDigits);
    if (index < text.size() && text[index] == '.') index = skipBytes(text, index + 1, kDigits);
    return index;
}

[[nodiscard]] std::size_t skipLengthModifiers(std::string_view text, std::size_t start) {
    return skipBytes(text, start, "hlLzjt");
}

/// `specifier`, such as "%-5ld", without its length modifiers. The values passed to snprintf have
/// the same width whatever the script wrote, so a modifier that got through would misread them;
/// this holds for the float and text conversions as well.
[[nodiscard]] std::string normaliseIntegerFormatSpecifier(std::string_view specifier) {
    if (specifier.size() < 2 || specifier[0] != '%') return std::string(specifier);
    const std::size_t modifiers = skipFlagsWidthPrecision(specifier, 1);
    if (skipLengthModifiers(specifier, modifiers) == modifiers) return std::string(specifier);
    std::string normalised(specifier.substr(0, modifiers));
    normalised += specifier.back();
    return normalised;
}

/// The specifier at the "%" at `start`, up to and including its conversion letter.
[[nodiscard]] std::string_view readSpecifier(std::string_view format, std::size_t start) {
    const std::size_t letter =
        skipLengthModifiers(format, skipFlagsWidthPrecision(format, start + 1));
    if (letter >= format.size()) throwPlainError("string['format']: incomplete format specifier");
    return format.substr(start, letter + 1 - start);
}

/// Appends what snprintf makes of `value`. `specifier` must have one conversion, for just that
/// type. Raises `failure` for a width or precision that the platform refuses.
template <typename Value>
void appendFormatted(std::string& out, const std::string& specifier, Value value,
                     const char* failure) {
    std::array<char, 128> room{};
    const int measured = std::snprintf(room.data(), room.size(), specifier.c_str(), value);
    if (measured < 0) throwPlainError(failure);
    const auto length = static_cast<std::size_t>(measured);
    if (length < room.size()) {
        out.append(room.data(), length);
        return;
    }
    const std::size_t start = out.size();
    out.resize(start + length + 1);  // snprintf ends what it writes with a zero byte
    if (std::snprintf(out.data() + start, length + 1, specifier.c_str(), value) < 0) {
        throwPlainError(failure);
    }
    out.resize(start + length);
}

/// The width of a specifier and where it fills up, and its precision.
struct Field {
    int width = 0;
    bool isLeft = false;    // the filling stands behind the value
    bool hasZeros = false;  // zeros between the sign and the digits
    std::optional<int> precision;
};

/// The field of `specifier`, as the script wrote it, if it has no flags but "-" and "0" and no
/// length modifiers, and if its numbers are usual ones.
[[nodiscard]] std::optional<Field> plainField(std::string_view specifier) {
    constexpr std::ptrdiff_t kMostDigits = 2;
    const char* const end = specifier.data() + specifier.size() - 1;
    const auto readNumber = [&](const char*& at, int& number) {
        const auto [behind, fault] = std::from_chars(at, end, number);
        const bool isUsual = fault == std::errc() && behind - at <= kMostDigits;
        at = behind;
        return isUsual;
    };
    Field field;
    const char* at = specifier.data() + 1;
    for (; *at == '-' || *at == '0'; ++at) (*at == '-' ? field.isLeft : field.hasZeros) = true;
    field.hasZeros = field.hasZeros && !field.isLeft;
    if (at != end && *at != '.' && !readNumber(at, field.width)) return std::nullopt;
    if (at != end && *at == '.' && !readNumber(++at, field.precision.emplace())) {
        return std::nullopt;
    }
    return at == end ? std::optional(field) : std::nullopt;
}

void appendInField(std::string& out, std::string_view text, const Field& field) {
    const auto width = static_cast<std::size_t>(field.width);
    const std::size_t fill = width > text.size() ? width - text.size() : 0;
    if (!field.isLeft) out.append(fill, ' ');
    out += text;
    if (field.isLeft) out.append(fill, ' ');
}

/// The same for digits, which may have a sign.
void appendDigitsInField(std::string& out, std::string_view digits, const Field& field) {
    const auto width = static_cast<std::size_t>(field.width);
    if (field.hasZeros && width > digits.size()) {
        const std::size_t sign = digits.starts_with('-') ? 1 : 0;
        out += digits.substr(0, sign);
        out.append(width - digits.size(), '0');
        out += digits.substr(sign);
    } else {
        appendInField(out, digits, field);
    }
}

/// `form` is what std::to_chars takes behind the number: a base, or a format and a precision.
template <typename Number, typename... Form>
void appendNumberInField(std::string& out, const Field& field, Number number, Form... form) {
    std::array<char, kLongestNumber> digits{};
    const char* const end =
        std::to_chars(digits.data(), digits.data() + digits.size(), number, form...).ptr;
    appendDigitsInField(
        out, std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())), field);
}

/// Appends `value` if `specifier` is a usual one. False, with nothing done, for every other one.
[[nodiscard]] bool tryAppendPlainly(std::string& out, std::string_view specifier,
                                    const Variable& value) {
    const std::optional<Field> field = plainField(specifier);
    if (!field) return false;
    const char letter = specifier.back();
#ifdef __cpp_lib_to_chars  // else it lays out no floats
    if (letter == 'f') {
        const double number = toDouble(value);
        // Others are words, and the precision that is not written is 6.
        if (!std::isfinite(number)) return false;
        appendNumberInField(out, *field, number, std::chars_format::fixed,
                            field->precision.value_or(6));
        return true;
    }
#endif
    if (field->precision) return false;
    const auto appendUnsigned = [&](int base) {
        appendNumberInField(out, *field, static_cast<unsigned>(toInt(value)), base);
        return true;
    };
    switch (letter) {
        case 'd':
        case 'i': appendNumberInField(out, *field, toInt(value), 10); return true;
        case 'u': return appendUnsigned(10);
        case 'o': return appendUnsigned(8);
        case 'x': return appendUnsigned(16);
        case 's':
            // What zeros before a text do is the platform's business.
            if (field->hasZeros) return false;
            // kept: the text ends at its first zero byte, as snprintf sees it.
            if (value.type == VarType::String) {
                appendInField(out, value.asString().c_str(), *field);
            } else {
                appendInField(out, value.toString().c_str(), *field);
            }
            return true;
        default: return false;
    }
}

void appendQuoted(std::string& out, const std::string& text) {
    out += '"';
    for (const char byte : text) {
        switch (byte) {
            case '\\': out += "\\\\"; break;
            case '"': out += "\\\""; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default: out += byte; break;
        }
    }
    out += '"';
}

/// Appends `value` as `specifier`, as the script wrote it, asks for.
void appendConversion(std::string& out, std::string_view specifier, const Variable& value) {
    constexpr const char* kValueFailure = "string['format']: failed to format value";
    if (tryAppendPlainly(out, specifier, value)) return;
    const std::string normalised = normaliseIntegerFormatSpecifier(specifier);
    const char letter = normalised.back();
    switch (letter) {
        case 'd':
        case 'i':
        case 'c': appendFormatted(out, normalised, toInt(value), kValueFailure); break;
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            appendFormatted(out, normalised, static_cast<unsigned>(toInt(value)), kValueFailure);
            break;
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G': appendFormatted(out, normalised, toDouble(value), kValueFailure); break;
        case 's':
            // kept: the text ends at its first zero byte, as snprintf sees it.
            appendFormatted(out, normalised, value.toString().c_str(),
                            "string['format']: failed to format string");
            break;
        case 'q': appendQuoted(out, value.toString()); break;
        default: throwPlainError(std::string("string['format']: unsupported specifier %") + letter);
    }
}

/// The same for a conversion of nothing but "%" and `letter`, if that is a quick one.
[[nodiscard]] bool tryAppendBare(std::string& out, char letter, const Variable& value) {
    if (letter == 'd' || letter == 'i') {
        appendIntFast(out, toInt(value));
        return true;
    }
    if (letter != 's' || value.type != VarType::String) return false;
    out += value.asString().c_str();
    return true;
}

[[nodiscard]] std::string formatValues(std::string_view format, Arguments values) {
    std::string out;
    out.reserve(format.size() + values.size() * kLongestInt);
    std::size_t nextValue = 0;
    std::size_t index = 0;
    while (index < format.size()) {
        const std::size_t percent = std::min(format.find('%', index), format.size());
        out += format.substr(index, percent - index);
        if (percent == format.size()) break;
        if (format.substr(percent + 1).starts_with('%')) {
            out += '%';
            index = percent + 2;
            continue;
        }
        if (percent + 1 < format.size() && nextValue < values.size() &&
            tryAppendBare(out, format[percent + 1], values[nextValue])) {
            ++nextValue;
            index = percent + 2;
            continue;
        }
        const std::string_view specifier = readSpecifier(format, percent);
        if (nextValue == values.size()) {
            throwPlainError("string['format']: missing argument for format specifier " +
                            std::string(specifier));
        }
        appendConversion(out, specifier, values[nextValue]);
        ++nextValue;
        index = percent + specifier.size();
    }
    return out;
}

}  // namespace

Variable stringFormatFunction(DovrelScript&, Arguments args) {
    if (args.empty() || args[0].type != VarType::String) {
        throwPlainError("string['format'](format, ...) requires a format string");
    }
    const std::string& format = args[0].asString();
    return Variable(formatValues(format, args.from(1)));
}
