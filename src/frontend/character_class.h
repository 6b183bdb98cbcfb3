// What single characters are to the line splitter and the tokeniser, as one table.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Properties of a character; the bits of a table entry.
enum CharacterClass : std::uint8_t {
    kSpaceCharacter = 1,
    kOperatorCharacter = 2,     // forms a token alone or together with a following "="
    kPunctuationCharacter = 4,  // always forms a token alone
    kPairCharacter = 8,         // part of a word, unless the next character makes it more
    kQuoteCharacter = 16,
    kIdentifierStart = 32,
    kDigitCharacter = 64,
    kSplitterCharacter = 128,  // means something to the line splitter
};

inline constexpr std::array<std::uint8_t, 256> kCharacterClasses = [] {
    std::array<std::uint8_t, 256> classes{};
    const auto add = [&](std::string_view characters, CharacterClass property) {
        for (const char c : characters) {
            std::uint8_t& entry = classes[static_cast<unsigned char>(c)];
            entry = static_cast<std::uint8_t>(entry | property);
        }
    };
    add(" \t\n\v\f\r", kSpaceCharacter);
    add("!%*+-/<=>\\^", kOperatorCharacter);
    add("#(),:;[]{}", kPunctuationCharacter);
    add("&|~@", kPairCharacter);
    add("\"'", kQuoteCharacter);
    add("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_$", kIdentifierStart);
    add("0123456789", kDigitCharacter);
    add("\"'()[]{};@", kSplitterCharacter);
    return classes;
}();

/// True if `c` has one of `properties`.
[[nodiscard]] inline bool hasClass(char c, unsigned properties) {
    return (kCharacterClasses[static_cast<unsigned char>(c)] & properties) != 0;
}

/// True if `token` is the one character `c`.
[[nodiscard]] inline bool isSymbol(std::string_view token, char c) {
    return token.size() == 1 && token[0] == c;
}
