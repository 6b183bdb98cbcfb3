// The natives that take patterns: gsub, string.find, string.match and string.gmatch.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "library/natives.h"
#include "library/patterns.h"
#include "library/text_search.h"
#include "value/array_storage.h"
#include "value/numbers.h"
#include "value/table.h"
#include "value/text.h"

namespace {

[[nodiscard]] bool beginsWithTwoStrings(Arguments args) {
    return args.size() >= 2 && args[0].type == VarType::String && args[1].type == VarType::String;
}

/// The 0-based offset that the optional third argument asks for: a nil counts as absent, anything
/// below 1 as 1. False if it lies beyond the end of the text, where nothing can match.
[[nodiscard]] bool readStartOffset(Arguments args, std::size_t length, std::size_t& offset) {
    const int start = args.size() > 2 && !args[2].isNil() ? toInt(args[2]) : 1;
    offset = static_cast<std::size_t>(std::max(start, 1) - 1);
    return offset <= length;
}

/// The 1-based first and last position of `range`.
[[nodiscard]] Variable positionsOf(TextRange range) {
    std::vector<Variable> positions;
    positions.reserve(2);
    positions.push_back(Variable::makeInt(static_cast<int>(range.first + 1)));
    positions.push_back(Variable::makeInt(static_cast<int>(range.end)));
    return Variable::makeMulti(std::move(positions));
}

[[nodiscard]] const Variable& lookUpReplacement(const Variable& table, const std::string& key) {
    const auto& entries = table.asTable();
    if (entries == nullptr) throwPlainError("gsub internal error: replacement table missing");
    const Variable* found = entries->find(key);
    if (found == nullptr) {
        throwPlainError("gsub replacement table missing key: " + key);
    }
    return *found;
}

/// The result of gsub for the pattern "%d". A string replacement is taken as it is: kept, although
/// the general path would expand the escapes in it.
[[nodiscard]] std::string replaceDigits(const std::string& text, const Variable& replacement) {
    const auto digits =
        static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isAsciiDigit));
    if (digits == 0) return text;
    const bool isTable = replacement.type == VarType::Table;
    std::string result;
    if (!isTable) {
        result.reserve(text.size() - digits + digits * replacement.asString().size());
    }
    for (const char byte : text) {
        if (!isAsciiDigit(byte)) {
            result += byte;
        } else if (isTable) {
            appendVariableStringFast(result, lookUpReplacement(replacement, std::string(1, byte)));
        } else {
            result += replacement.asString();
        }
    }
    return result;
}

/// Appends the group whose number begins at `index` in `replacement` and moves `index` to the last
/// digit of that number. A digit is part of the number only while a group of that number exists:
/// with one group, "\12" is group 1 and the text "2".
void appendNumberedGroup(std::string& out, const std::string& replacement, std::size_t& index,
                         const PatternMatch& match, const std::string& text) {
    auto group = static_cast<std::size_t>(replacement[index] - '0');
    while (index + 1 < replacement.size() && isAsciiDigit(replacement[index + 1])) {
        const std::size_t longer =
            group * 10 + static_cast<std::size_t>(replacement[index + 1] - '0');
        if (longer >= match.size()) break;
        group = longer;
        ++index;
    }
    if (group < match.size()) out.append(match.text(text, group));
}

void appendLastGroupThatMatched(std::string& out, const PatternMatch& match,
                                const std::string& text) {
    for (std::size_t group = match.size() - 1; group > 0; --group) {
        if (!match.has(group)) continue;
        out.append(match.text(text, group));
        return;
    }
}

/// Appends `replacement` with its backslash escapes expanded for one match in `text`.
void appendExpanded(std::string& out, const std::string& replacement, const PatternMatch& match,
                    const std::string& text) {
    for (std::size_t index = 0; index < replacement.size(); ++index) {
        if (replacement[index] != '\\' || index + 1 == replacement.size()) {
            out += replacement[index];
            continue;
        }
        ++index;
        const char escape = replacement[index];
        switch (escape) {
            case '0':
            case '&': out.append(match.text(text, 0)); break;
            case '`': out.append(text, 0, match.whole().first); break;
            case '\'': out.append(text, match.whole().end); break;
            case '+': appendLastGroupThatMatched(out, match, text); break;
            default:
                if (isAsciiDigit(escape)) {
                    appendNumberedGroup(out, replacement, index, match, text);
                } else {
                    out += escape;
                }
                break;
        }
    }
}

[[nodiscard]] std::string replaceMatches(const std::string& text, const CompiledPattern& pattern,
                                         const Variable& replacement) {
    const bool isTable = replacement.type == VarType::Table;
    const bool expands = !isTable && replacement.asString().find('\\') != std::string::npos;
    std::string result;
    std::string key;
    std::size_t copied = 0;
    PatternWalk walk(text, pattern);
    if (!walk.next()) return text;
    result.reserve(text.size());
    do {
        const TextRange whole = walk.match().whole();
        result.append(text, copied, whole.first - copied);
        if (isTable) {
            key.assign(text, whole.first, whole.end - whole.first);
            appendVariableStringFast(result, lookUpReplacement(replacement, key));
        } else if (expands) {
            appendExpanded(result, replacement.asString(), walk.match(), text);
        } else {
            result += replacement.asString();
        }
        copied = whole.end;
    } while (walk.next());
    result.append(text, copied);
    return result;
}

[[nodiscard]] Variable gsubImpl(const Variable& text, const Variable& pattern,
                                const Variable& replacement) {
    if (text.type != VarType::String) {
        throwPlainError("gsub(string, pattern, replacement): first argument must be a string");
    }
    if (pattern.type != VarType::String) {
        throwPlainError(
            "gsub(string, pattern, replacement): second argument must be a string pattern");
    }
    if (replacement.type != VarType::String && replacement.type != VarType::Table) {
        throwPlainError(
            "gsub(string, pattern, replacement): replacement must be a string or table");
    }
    if (pattern.asString() == kDigitPattern) {
        return Variable(replaceDigits(text.asString(), replacement));
    }
    return Variable(
        replaceMatches(text.asString(), compiledPattern(pattern.asString()), replacement));
}

}  // namespace

Variable gsubFunction(DovrelScript&, Arguments args) {
    if (args.size() != 3) {
        throwPlainError("gsub(string, pattern, replacement) requires exactly 3 arguments");
    }
    return gsubImpl(args[0], args[1], args[2]);
}

Variable stringFindFunction(DovrelScript&, Arguments args) {
    if (args.size() > 4 || !beginsWithTwoStrings(args)) {
        throwPlainError(
            "string['find'](s, pattern[, init[, plain]]) requires a string and a pattern");
    }
    const std::string& text = args[0].asString();
    const std::string& pattern = args[1].asString();
    std::size_t offset = 0;
    if (!readStartOffset(args, text.size(), offset)) return Variable();

    if (args.size() > 3 && isTruthy(args[3])) {
        const std::size_t found = findText(text, pattern, offset);
        if (found == std::string::npos) return Variable();
        return positionsOf({found, found + pattern.size()});
    }
    // The search knows of nothing before the offset, so that a "^" anchors there.
    PatternMatch match;
    if (!compiledPattern(pattern).search(text, offset, {}, match)) return Variable();
    return positionsOf(match.whole());
}

Variable stringMatchFunction(DovrelScript&, Arguments args) {
    if (args.size() > 3 || !beginsWithTwoStrings(args)) {
        throwPlainError("string['match'](s, pattern[, init]) requires a string and a pattern");
    }
    const std::string& text = args[0].asString();
    const std::string& pattern = args[1].asString();
    std::size_t offset = 0;
    if (!readStartOffset(args, text.size(), offset)) return Variable();

    PatternMatch match;
    if (!compiledPattern(pattern).search(text, offset, {}, match)) return Variable();
    return matchValue(text, match, Variable::makeMulti);
}

Variable stringGmatchFunction(DovrelScript&, Arguments args) {
    if (args.size() != 2 || !beginsWithTwoStrings(args)) {
        throwPlainError("string['gmatch'](s, pattern) requires a string and a pattern");
    }
    ArrayStorage elements;
    GmatchWalk walk(args[0].asString(), args[1].asString());
    for (Variable element; walk.next(element);) elements.push_back(std::move(element));
    return Variable::makeArray(std::move(elements));
}
