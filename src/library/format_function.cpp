// string.format. Each conversion goes to the platform's snprintf on its own, with one argument, so
// that flags, width and precision mean what they mean there. Ints and texts with nothing but a
// width are laid out here, and a format of plain int conversions never gets that far.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "eval/errors.h"
#include "library/natives.h"
#include "value/numbers.h"
#include "value/text.h"

namespace {

constexpr std::size_t kLongestInt = 11;  // a sign and ten digits

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

/// The width of a specifier and where it fills up.
struct Field {
    std::size_t width = 0;
    bool isLeft = false;    // the filling stands behind the value
    bool hasZeros = false;  // zeros between the sign and the digits
};

/// The field of `specifier`, a normalised one, if it has no precision and no flags but "-" and "0",
/// and if its width is a usual one.
[[nodiscard]] std::optional<Field> plainField(std::string_view specifier) {
    constexpr std::size_t kMostDigits = 3;
    Field field;
    std::size_t index = 1;
    for (; specifier[index] == '-' || specifier[index] == '0'; ++index) {
        (specifier[index] == '-' ? field.isLeft : field.hasZeros) = true;
    }
    const std::size_t last = specifier.size() - 1;
    if (last - index > kMostDigits) return std::nullopt;
    for (; index < last; ++index) {
        if (specifier[index] < '0' || specifier[index] > '9') return std::nullopt;
        field.width = 10 * field.width + static_cast<std::size_t>(specifier[index] - '0');
    }
    field.hasZeros = field.hasZeros && !field.isLeft;
    return field;
}

void appendInField(std::string& out, std::string_view text, const Field& field) {
    const std::size_t fill = field.width > text.size() ? field.width - text.size() : 0;
    if (!field.isLeft) out.append(fill, ' ');
    out += text;
    if (field.isLeft) out.append(fill, ' ');
}

/// The same for digits, which may have a sign.
void appendDigitsInField(std::string& out, std::string_view digits, const Field& field) {
    if (field.hasZeros && field.width > digits.size()) {
        const std::size_t sign = digits.starts_with('-') ? 1 : 0;
        out += digits.substr(0, sign);
        out.append(field.width - digits.size(), '0');
        out += digits.substr(sign);
    } else {
        appendInField(out, digits, field);
    }
}

template <typename Number>
void appendNumberInField(std::string& out, Number number, int base, const Field& field) {
    std::array<char, kLongestInt> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
    appendDigitsInField(out, std::string_view(digits.data(), end), field);
}

/// Appends `value` if `specifier`, a normalised one, is that of an int or a text and has a plain
/// field. False, with nothing done, for every other one.
[[nodiscard]] bool tryAppendPlainly(std::string& out, std::string_view specifier,
                                    const Variable& value) {
    constexpr std::string_view kServed = "diuoxs";
    const char letter = specifier.back();
    if (kServed.find(letter) == std::string_view::npos) return false;
    const std::optional<Field> field = plainField(specifier);
    if (!field) return false;
    switch (letter) {
        case 'd':
        case 'i': appendNumberInField(out, toInt(value), 10, *field); return true;
        case 'u':
            appendNumberInField(out, static_cast<unsigned>(toInt(value)), 10, *field);
            return true;
        case 'o':
            appendNumberInField(out, static_cast<unsigned>(toInt(value)), 8, *field);
            return true;
        case 'x':
            appendNumberInField(out, static_cast<unsigned>(toInt(value)), 16, *field);
            return true;
        default: break;
    }
    // What zeros before a text do is the platform's business.
    if (field->hasZeros) return false;
    // kept: the text ends at its first zero byte, as snprintf sees it.
    if (value.type == VarType::String) {
        appendInField(out, value.asString().c_str(), *field);
    } else {
        appendInField(out, value.toString().c_str(), *field);
    }
    return true;
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
    const std::string normalised = normaliseIntegerFormatSpecifier(specifier);
    if (tryAppendPlainly(out, normalised, value)) return;
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

/// Formats into `out` if the format has nothing but "%d", "%i" and "%%" and the arguments suffice,
/// with one allocation. False, with `out` unspecified, for every other format, the faulty ones
/// included: the general path has the messages.
[[nodiscard]] bool tryFormatPlainInts(std::string_view format, Arguments values, std::string& out) {
    out.reserve(format.size() + values.size() * kLongestInt);
    std::size_t nextValue = 0;
    for (std::size_t index = 0; index < format.size(); ++index) {
        if (format[index] != '%') {
            out += format[index];
            continue;
        }
        ++index;
        if (index == format.size()) return false;
        if (format[index] == '%') {
            out += '%';
        } else if ((format[index] == 'd' || format[index] == 'i') && nextValue < values.size()) {
            appendIntFast(out, toInt(values[nextValue]));
            ++nextValue;
        } else {
            return false;
        }
    }
    return true;
}

[[nodiscard]] std::string formatValues(std::string_view format, Arguments values) {
    std::string out;
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
    const Arguments values = args.from(1);
    std::string out;
    if (tryFormatPlainInts(format, values, out)) return Variable(std::move(out));
    return Variable(formatValues(format, values));
}
