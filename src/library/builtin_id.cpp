#include "library/builtin_id.h"

#include <array>

namespace {

// By id; the entry at 0 matches no name.
constexpr std::array<std::string_view, kBuiltinIdCount> kNames = {"",
                                                                  "assert",
                                                                  "getTimeMs",
                                                                  "toString",
                                                                  "toNumber",
                                                                  "error",
                                                                  "pcall",
                                                                  "load",
                                                                  "pairs",
                                                                  "ipairs",
                                                                  "next",
                                                                  "select",
                                                                  "collectGarbage",
                                                                  "len",
                                                                  "string.len",
                                                                  "string.upper",
                                                                  "string.sub",
                                                                  "string.find",
                                                                  "string.match",
                                                                  "string.gmatch",
                                                                  "string.byte",
                                                                  "string.format",
                                                                  "string.gsub",
                                                                  "table.insert",
                                                                  "table.remove",
                                                                  "table.concat",
                                                                  "table.sort",
                                                                  "math.floor",
                                                                  "math.ceil",
                                                                  "math.abs",
                                                                  "math.min",
                                                                  "math.max",
                                                                  "math.sin",
                                                                  "math.cos",
                                                                  "math.rad",
                                                                  "math.log",
                                                                  "math.sqrt",
                                                                  "utf8.len"};

}  // namespace

BuiltinId builtinIdFromName(std::string_view name) {
    for (std::size_t id = 1; id < kNames.size(); ++id) {
        if (kNames[id] == name) return static_cast<BuiltinId>(id);
    }
    return BuiltinId::None;
}

bool runsNoScriptCode(BuiltinId id) {
    switch (id) {
        case BuiltinId::None:
        case BuiltinId::Assert:
        case BuiltinId::Error:
        case BuiltinId::Pcall:
        case BuiltinId::Load:
        case BuiltinId::TableSort: return false;
        default: return true;
    }
}
