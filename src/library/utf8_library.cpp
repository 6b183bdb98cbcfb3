// Counting characters in byte strings. Nothing is validated: whatever is no continuation byte
// begins a character.
#include <algorithm>
#include <cstddef>
#include <string>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"
#include "value/numbers.h"

namespace {

bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }

}  // namespace

Variable utf8LenFunction(DovrelScript&, Arguments args) {
    if (args.size() != 1 || args[0].type != VarType::String) {
        throwPlainError("utf8['len'](s) requires exactly 1 string argument");
    }
    const std::string& text = args[0].asString();
    return Variable::makeInt(
        static_cast<int>(std::count_if(text.begin(), text.end(), beginsCharacter)));
}

Variable utf8OffsetFunction(DovrelScript&, Arguments args) {
    if (args.size() < 2 || args.size() > 3 || args[0].type != VarType::String) {
        throwPlainError("utf8['offset'](s, n[, i]) requires a string and a codepoint index");
    }
    const std::string& text = args[0].asString();
    int remaining = toInt(args[1]);
    const int start = args.size() == 3 ? toInt(args[2]) : 1;
    // There is no counting backwards from the end.
    if (remaining <= 0) return Variable();
    for (auto i = static_cast<std::size_t>(std::max(start, 1)); i <= text.size(); ++i) {
        if (beginsCharacter(text[i - 1]) && --remaining == 0) {
            return Variable::makeInt(static_cast<int>(i));
        }
    }
    return Variable();
}
