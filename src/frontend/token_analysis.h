// What is known of a token before it runs, and where its variable was found last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "value/names.h"

class Scope;
struct Variable;

/// Where a token's variable was found last.
enum class SlotKind : std::uint8_t {
    None = 0,       // nothing cached
    Block = 1,      // a block scope, `slotDepth` below the top
    Frame = 2,      // a frame scope, `slotDepth` below the top
    Parameter = 3,  // parameter `slotIndex` of the running fast callable
    Global = 4,     // `globalSlot`, while no block scope is visible and `slotDepth` frames exist
};

/// The classification of one token, with the cache of its variable. One record stands beside each
/// token of a line, never shared by name: the cache belongs to the position. The cache fields
/// change while a line runs and are no part of the token's meaning. The fields are packed: a
/// program has more of these records than of any other.
struct TokenAnalysis {
    Name name = nullptr;            // the interned text of an identifier, else null
    int intValue = 0;               // the value, when `hasIntValue`
    bool isIdentifier : 1 = false;  // the text has the form of an identifier
    bool isTrue : 1 = false;        // one of the spellings of true
    bool isFalse : 1 = false;       // one of the spellings of false
    bool isNumeric : 1 = false;     // the text has the form of a number
    bool isFloat : 1 = false;       // numeric, with a "."
    bool hasIntValue : 1 = false;   // numeric, not float, within 32 bits

    mutable bool globalSlotFound : 1 = false;    // the name has the global slot `globalSlot`
    mutable bool globalSlotChecked : 1 = false;  // the global map has been asked, once for all
    mutable SlotKind slotKind = SlotKind::None;
    mutable std::uint16_t slotDepth = 0;
    mutable std::uint16_t slotIndex = 0;
    mutable std::uint32_t globalSlot = 0;
    mutable Variable* globalValue = nullptr;   // the value of that slot; globals never move
    mutable const Scope* slotScope = nullptr;  // compared, never dereferenced
};

/// A non-empty text of ASCII letters, digits, "_" and "$" that does not begin with a digit.
/// Keywords count.
[[nodiscard]] bool isIdentifier(std::string_view token);

/// One of "true", "ture", "tre", "tue": the misspellings are part of the language.
[[nodiscard]] bool isTrueToken(std::string_view token);

/// One of "false", "flase", "fasle", "flse".
[[nodiscard]] bool isFalseToken(std::string_view token);

/// At least two bytes that begin and end with the same quote character.
[[nodiscard]] bool isQuotedToken(std::string_view token);

/// The value of a string token: quotes taken off, escapes resolved. Any other text is returned
/// unchanged.
[[nodiscard]] std::string decodeStringToken(const std::string& token);
