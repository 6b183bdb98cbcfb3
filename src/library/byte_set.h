// Sets of bytes, and those that the notation of regular expressions has names for. Only ASCII is
// classified, whatever the locale.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

/// A set of byte values.
class ByteSet {
public:
    [[nodiscard]] bool contains(unsigned char byte) const {
        return ((words_[byte >> 6U] >> (byte & 63U)) & 1U) != 0;
    }
    void add(unsigned char byte) { words_[byte >> 6U] |= std::uint64_t{1} << (byte & 63U); }
    void addAll(const ByteSet& other);
    void invert();
    /// How many bytes are in the set.
    [[nodiscard]] int size() const;
    /// Calls `act` with each byte of the set, the least first.
    template <typename Act>
    void forEach(Act act) const {
        for (std::size_t i = 0; i < words_.size(); ++i) {
            for (std::uint64_t rest = words_[i]; rest != 0; rest &= rest - 1) {
                act(static_cast<unsigned char>(i * 64 +
                                               static_cast<unsigned>(std::countr_zero(rest))));
            }
        }
    }
    [[nodiscard]] bool operator==(const ByteSet& other) const = default;

private:
    std::array<std::uint64_t, 4> words_{};
};

/// Whether `byte` is a letter, a digit or "_": what "\w" and "\b" go by.
[[nodiscard]] bool isWordByte(unsigned char byte);

/// The bytes of "\d", "\s" or "\w", by the `letter`, or of the complement for the capital letter.
[[nodiscard]] ByteSet classSet(char letter);

/// The bytes of the class that a set names by `name`, as in "[:alpha:]"; nothing if there is no
/// such class. The case of the name does not matter.
[[nodiscard]] std::optional<ByteSet> namedSet(std::string_view name, bool ignoresCase);

/// The byte `c`, and the other case of a letter if case is ignored.
[[nodiscard]] ByteSet byteSetOf(char c, bool ignoresCase);

/// The bytes from `first` to `last`, or those whose small or capital letter is one of them if case
/// is ignored. They are compared as `char`, whose sign is the platform's: the standard library does
/// it so. `first` must not be above `last`.
[[nodiscard]] ByteSet rangeSet(char first, char last, bool ignoresCase);

/// The value of a hexadecimal digit; -1 for another byte.
[[nodiscard]] int hexDigitValue(char c);
