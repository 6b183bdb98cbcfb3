// From a text to logical lines. A logical line goes on in the next physical line while a bracket or
// a string is open, and only then; ";" ends one early.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What becomes of logical lines.
class LineSink {
public:
    /// A logical line, and the 0-based index of the physical line on which it began. `text` stands
    /// in the script's text, or if `isJoined`, of several pieces, lasts no longer than the call.
    /// `isOpen`: the script ends inside of a string.
    virtual void takeLine(std::string_view text, std::size_t lineNumber, bool isJoined,
                          bool isOpen) = 0;
    /// A physical line that leaves a record without a text.
    virtual void takeEmptyLine(std::size_t lineNumber) = 0;

protected:
    ~LineSink() = default;
};

/// Cuts `source` into logical lines. This and the tokeniser each know strings and comments, and
/// must agree: a line whose strings the splitter has seen closed is one that can be tokenised.
void splitLines(std::string_view source, LineSink& sink);

/// The number of line feeds; many times as fast as to look at each character.
[[nodiscard]] std::size_t countLineFeeds(std::string_view text);
