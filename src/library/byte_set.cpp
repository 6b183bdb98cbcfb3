#include "library/byte_set.h"

#include <string>

namespace {

[[nodiscard]] constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
[[nodiscard]] constexpr bool isCapital(char c) { return c >= 'A' && c <= 'Z'; }
[[nodiscard]] constexpr bool isSmall(char c) { return c >= 'a' && c <= 'z'; }
[[nodiscard]] constexpr char toSmall(char c) {
    return isCapital(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
[[nodiscard]] constexpr char toCapital(char c) {
    return isSmall(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

/// The ASCII bytes that `belongs` takes.
template <typename Belongs>
[[nodiscard]] ByteSet asciiSet(Belongs belongs) {
    ByteSet set;
    for (int value = 0; value < 128; ++value) {
        if (belongs(static_cast<char>(value))) set.add(static_cast<unsigned char>(value));
    }
    return set;
}

}  // namespace

void ByteSet::addAll(const ByteSet& other) {
    for (std::size_t i = 0; i < words_.size(); ++i) words_[i] |= other.words_[i];
}

void ByteSet::invert() {
    for (std::uint64_t& word : words_) word = ~word;
}

int ByteSet::size() const {
    int count = 0;
    for (const std::uint64_t word : words_) count += std::popcount(word);
    return count;
}

bool isWordByte(unsigned char byte) {
    const char c = static_cast<char>(byte);
    return isDigit(c) || isCapital(c) || isSmall(c) || c == '_';
}

int hexDigitValue(char c) {
    if (isDigit(c)) return c - '0';
    const char small = toSmall(c);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

ByteSet classSet(char letter) {
    ByteSet set;
    for (int value = 0; value < 256; ++value) {
        const auto byte = static_cast<unsigned char>(value);
        const char c = static_cast<char>(byte);
        bool belongs = false;
        switch (toSmall(letter)) {
            case 'd': belongs = isDigit(c); break;
            case 's': belongs = c == ' ' || (c >= '\t' && c <= '\r'); break;
            default: belongs = isWordByte(byte); break;
        }
        if (belongs != isCapital(letter)) set.add(byte);
    }
    return set;
}

std::optional<ByteSet> namedSet(std::string_view name, bool ignoresCase) {
    std::string small(name);
    for (char& c : small) c = toSmall(c);
    const auto isLetter = [](char c) { return isSmall(toSmall(c)); };
    const auto isGraph = [](char c) { return c > ' ' && c <= '~'; };
    if (small == "d" || small == "digit") return classSet('d');
    if (small == "s" || small == "space") return classSet('s');
    if (small == "w") return classSet('w');
    if (ignoresCase && (small == "lower" || small == "upper")) small = "alpha";
    if (small == "lower") return asciiSet(isSmall);
    if (small == "upper") return asciiSet(isCapital);
    if (small == "alpha") return asciiSet(isLetter);
    if (small == "alnum") return asciiSet([&](char c) { return isLetter(c) || isDigit(c); });
    if (small == "punct") {
        return asciiSet([&](char c) { return isGraph(c) && !isLetter(c) && !isDigit(c); });
    }
    if (small == "graph") return asciiSet(isGraph);
    if (small == "print") return asciiSet([&](char c) { return isGraph(c) || c == ' '; });
    if (small == "blank") return asciiSet([](char c) { return c == ' ' || c == '\t'; });
    if (small == "cntrl") return asciiSet([](char c) { return c < ' ' || c == '\x7f'; });
    if (small == "xdigit") return asciiSet([](char c) { return hexDigitValue(c) >= 0; });
    return std::nullopt;
}

ByteSet byteSetOf(char c, bool ignoresCase) {
    ByteSet set;
    set.add(static_cast<unsigned char>(c));
    if (ignoresCase) {
        set.add(static_cast<unsigned char>(toSmall(c)));
        set.add(static_cast<unsigned char>(toCapital(c)));
    }
    return set;
}

ByteSet rangeSet(char first, char last, bool ignoresCase) {
    ByteSet set;
    const auto isInside = [first, last](char c) { return first <= c && c <= last; };
    for (int value = 0; value < 256; ++value) {
        const auto byte = static_cast<unsigned char>(value);
        const char c = static_cast<char>(byte);
        if (ignoresCase ? isInside(toSmall(c)) || isInside(toCapital(c)) : isInside(c)) {
            set.add(byte);
        }
    }
    return set;
}
