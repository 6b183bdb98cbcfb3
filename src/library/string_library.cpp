// The members of `string` that deal with neither patterns nor formats. Strings are bytes, and
// positions count from 1; they are computed in 64 bits, where nothing can overflow.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "library/natives.h"
#include "value/numbers.h"
#include "value/text.h"

namespace {

// A longer text fails like any allocation that cannot be met, without asking the system for it:
// where memory is overcommitted, the answer would be the end of the process.
constexpr auto kLongestText = static_cast<std::size_t>(
    std::min<std::uint64_t>(std::uint64_t{1} << 40, std::numeric_limits<std::size_t>::max() / 2));

[[nodiscard]] bool isString(Arguments args, std::size_t index) {
    return index < args.size() && args[index].type == VarType::String;
}

/// The text of the only argument; `message` is raised for anything else.
[[nodiscard]] const std::string& onlyString(Arguments args, const char* message) {
    if (args.size() != 1 || !isString(args, 0)) throwPlainError(message);
    return args[0].asString();
}

[[nodiscard]] Variable lengthValue(const std::string& text) {
    return Variable::makeInt(static_cast<int>(text.size()));
}

/// A copy of `text` with each byte put through `convert`, one of the platform's case functions.
[[nodiscard]] Variable convertBytes(const std::string& text, int (*convert)(int)) {
    std::string converted = text;
    for (char& byte : converted) {
        byte = static_cast<char>(convert(static_cast<unsigned char>(byte)));
    }
    return Variable(std::move(converted));
}

[[nodiscard]] Variable byteValue(char byte) {
    return Variable::makeInt(static_cast<unsigned char>(byte));
}

}  // namespace

Variable stringLenFast(DovrelScript&, Arguments args) {
    return lengthValue(onlyString(args, "string['len'](s) requires exactly 1 string argument"));
}

Variable stringLenFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1) throwPlainError("string['len'](s) requires exactly 1 argument");
    return lengthValue(onlyString(args, "string['len'](s) expects a string"));
}

Variable stringUpperFunction(DovrelScript&, Arguments args) {
    return convertBytes(onlyString(args, "string['upper'](s) requires exactly 1 string argument"),
                        std::toupper);
}

Variable stringLowerFunction(DovrelScript&, Arguments args) {
    return convertBytes(onlyString(args, "string['lower'](s) requires exactly 1 string argument"),
                        std::tolower);
}

Variable stringSubFunction(DovrelScript&, Arguments args) {
    if (args.size() < 2 || args.size() > 3 || !isString(args, 0)) {
        throwPlainError("string['sub'](s, i[, j]) requires a string and 1-2 numeric indices");
    }
    const std::string& text = args[0].asString();
    const auto length = static_cast<long long>(text.size());
    long long first = toInt(args[1]);
    long long last = args.size() == 3 ? toInt(args[2]) : length;
    if (first < 0) first += length + 1;
    if (last < 0) {
        last += length + 1;
    } else if (last == 0) {
        last = length;  // kept: scripts pass 0 for "to the end"; as a start it means the first byte
    }
    first = std::max(first, 1LL);
    last = std::min(last, length);
    if (last < first) return Variable(std::string());
    if (last == first) return byteText(text[static_cast<std::size_t>(first - 1)]);
    return Variable(text.substr(static_cast<std::size_t>(first - 1),
                                static_cast<std::size_t>(last - first + 1)));
}

Variable stringRepFunction(DovrelScript&, Arguments args) {
    if (args.size() < 2 || args.size() > 3 || !isString(args, 0)) {
        throwPlainError(
            "string['rep'](s, n[, sep]) requires a string, count, and optional separator");
    }
    const std::string& text = args[0].asString();
    const int count = toInt(args[1]);
    const std::string separator = args.size() == 3 ? args[2].toString() : std::string();
    const std::size_t pieceSize = text.size() + separator.size();
    if (count < 1 || pieceSize == 0) return Variable(std::string());

    const auto copies = static_cast<std::size_t>(count);
    if (pieceSize > kLongestText / copies) throw std::bad_alloc();
    std::string repeated;
    repeated.reserve(pieceSize * copies - separator.size());
    repeated += text;
    for (std::size_t copy = 1; copy < copies; ++copy) {
        repeated += separator;
        repeated += text;
    }
    return Variable(std::move(repeated));
}

ByteRange stringByteRange(std::size_t length, Arguments args) {
    const auto size = static_cast<long long>(length);
    const auto position = [size, args](std::size_t index) {
        const long long given = toInt(args[index]);
        return given < 0 ? given + size + 1 : given;
    };
    const long long first = args.size() > 1 ? position(1) : 1;
    const long long last = args.size() > 2 ? position(2) : first;
    return {std::max(first, 1LL), std::min(last, size)};
}

bool stringByteRangeReturnsScalar(Arguments args) {
    if (args.size() < 3 || !isString(args, 0)) return true;
    // kept: the range is not looked at when there are surplus arguments.
    if (args.size() > 3) return false;
    const std::string& text = args[0].asString();
    if (text.empty()) return true;
    const ByteRange range = stringByteRange(text.size(), args);
    return range.first >= range.last;
}

Variable stringByteFunction(DovrelScript&, Arguments args) {
    if (!isString(args, 0)) throwPlainError("string['byte'](s[, i[, j]]) requires a string");
    const std::string& text = args[0].asString();
    // kept: an empty string is answered before its positions are even looked at.
    if (text.empty()) return Variable();

    const ByteRange range = stringByteRange(text.size(), args);
    if (range.last < range.first) return Variable();
    const auto first = static_cast<std::size_t>(range.first - 1);
    const auto end = static_cast<std::size_t>(range.last);
    if (end - first == 1) return byteValue(text[first]);
    std::vector<Variable> bytes;
    bytes.reserve(end - first);
    for (std::size_t index = first; index < end; ++index) bytes.push_back(byteValue(text[index]));
    return Variable::makeMulti(std::move(bytes));
}

Variable stringCharFunction(DovrelScript&, Arguments args) {
    std::string text;
    text.reserve(args.size());
    for (std::size_t index = 0; index < args.size(); ++index) {
        // kept: only the low byte counts, so that no number is out of range.
        text += static_cast<char>(static_cast<unsigned char>(toInt(args[index]) & 0xFF));
    }
    return Variable(std::move(text));
}
