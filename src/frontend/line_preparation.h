// Helpers over a line's tokens that line preparation shares with its readers.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/parsed_script_line.h"

/// Works out everything about one line but its block links; `compileExpressions` is the
/// interpreter's.
void prepareLine(ParsedScriptLine& line, bool compileExpressions);

/// The kind of a line by its first two tokens, of which the second may be missing.
[[nodiscard]] LineKind lineKindOf(std::string_view first, std::string_view second);

/// "=", or another operator in front of it.
[[nodiscard]] bool isAssignmentOperator(std::string_view token);

/// False only for a first token that makes a line neither a statement of a keyword nor a function.
[[nodiscard]] bool mayBeKeyword(std::string_view first);

struct UnreadLine;

/// Takes back what line preparation has stored.
void forgetParse(ParsedScriptLine& line);

/// Links each block header with its closing line. Reports nothing: what stays open keeps kNoLine.
void matchBlocks(std::vector<ParsedScriptLine>& lines);
void matchBlocks(std::vector<UnreadLine>& lines);

/// The index of the first token from `start` on that equals `terminator` outside all brackets; an
/// empty terminator means ",". The token count if there is none, and `start` if it lies behind the
/// end.
[[nodiscard]] std::size_t findTopLevelToken(const std::vector<std::string>& tokens,
                                            std::size_t start, std::string_view terminator);

/// A `for` line of the numeric form: at least four tokens, an identifier, "=".
[[nodiscard]] bool isNumericForLine(const ParsedScriptLine& line);

/// The `matchingEnd` of the block whose header stands before `index`. Raises "Missing 'end' for
/// block" if there is none.
[[nodiscard]] std::size_t findMatchingEnd(const std::vector<ParsedScriptLine>& lines,
                                          std::size_t index);
