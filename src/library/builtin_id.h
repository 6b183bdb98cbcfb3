// The small integers of the natives that the evaluators call without a function object.
#pragma once

#include <cstdint>
#include <string_view>

/// One per native with a fast body; 0 means that there is none. The values are fixed.
enum class BuiltinId : std::uint8_t {
    None = 0,
    Assert = 1,
    GetTimeMs = 2,
    ToString = 3,
    ToNumber = 4,
    Error = 5,
    Pcall = 6,
    Load = 7,
    Pairs = 8,
    Ipairs = 9,
    Next = 10,
    Select = 11,
    CollectGarbage = 12,
    Len = 13,
    StringLen = 14,
    StringUpper = 15,
    StringSub = 16,
    StringFind = 17,
    StringMatch = 18,
    StringGmatch = 19,
    StringByte = 20,
    StringFormat = 21,
    StringGsub = 22,
    TableInsert = 23,
    TableRemove = 24,
    TableConcat = 25,
    TableSort = 26,
    MathFloor = 27,
    MathCeil = 28,
    MathAbs = 29,
    MathMin = 30,
    MathMax = 31,
    MathSin = 32,
    MathCos = 33,
    MathRad = 34,
    MathLog = 35,
    MathSqrt = 36,
    Utf8Len = 37,
};

inline constexpr std::size_t kBuiltinIdCount = 38;

/// The id that a callable name yields: exact and case-sensitive, `None` for every other name. The
/// second spellings (`tostring`, `loadstring`, ...) have none on purpose.
[[nodiscard]] BuiltinId builtinIdFromName(std::string_view name);

/// The natives whose scalar form takes scalars and not values: those of `math`, and the clock.
[[nodiscard]] inline bool takesScalars(BuiltinId id) {
    return id == BuiltinId::GetTimeMs || (id >= BuiltinId::MathFloor && id <= BuiltinId::MathSqrt);
}

/// The natives that may have a scalar result in a scalar expression; `string["byte"]` has several
/// unless its range is one byte.
[[nodiscard]] inline bool mayGiveScalar(BuiltinId id) {
    return takesScalars(id) || id == BuiltinId::ToNumber || id == BuiltinId::Len ||
           id == BuiltinId::StringLen || id == BuiltinId::StringByte || id == BuiltinId::Utf8Len;
}

/// The natives with an id that can neither call back into a script nor raise a soft error.
[[nodiscard]] bool runsNoScriptCode(BuiltinId id);
