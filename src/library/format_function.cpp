// string.format. Each conversion goes to the platform's snprintf on its own, with one argument, so
// that flags, width and precision mean what they mean there; a format of plain int conversions
// never gets that far.
#include <algorithm>
#include <cstdio>
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
    const int measured = std::snprintf(nullptr, 0, specifier.c_str(), value);
    if (measured < 0) throwPlainError(failure);
    const auto length = static_cast<std::size_t>(measured);
    const std::size_t start = out.size();
    out.resize(start + length + 1);  // snprintf ends what it writes with a zero byte
    if (std::snprintf(out.data() + start, length + 1, specifier.c_str(), value) < 0) {
        throwPlainError(failure);
    }
    out.resize(start + length);
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
