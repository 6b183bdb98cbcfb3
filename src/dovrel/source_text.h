// A script's text with the place of everything in it. The front end joins physical lines to logical
// ones and forgets columns and comments; whoever lays a script out anew, or points into it, needs
// them. The splitting here follows the front end's rules, and the two are compared for each file.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "interpreter/dovrel_script.h"

/// A place in a text, 0-based. Columns count bytes.
struct SourcePosition {
    std::size_t line = 0;
    std::size_t column = 0;
};

/// A stretch of a text: offsets of its first byte and of the one behind its last.
struct SourceRange {
    std::size_t first = 0;
    std::size_t last = 0;
};

/// A logical line: the pieces of the text that it is joined of.
struct SplitLine {
    struct Piece {
        std::size_t joined = 0;  // where it begins in `joined`
        SourceRange range;       // where it stands in the text
    };
    std::string joined;
    std::vector<Piece> pieces;
};

/// A text cut into logical lines, comments and semicolons.
class SourceText {
public:
    explicit SourceText(std::string text);

    [[nodiscard]] const std::string& text() const { return text_; }
    [[nodiscard]] const std::vector<SplitLine>& lines() const { return lines_; }
    /// From "@@" to the end of the physical line.
    [[nodiscard]] const std::vector<SourceRange>& comments() const { return comments_; }
    /// The semicolons that end a statement.
    [[nodiscard]] const std::vector<std::size_t>& semicolons() const { return semicolons_; }
    /// Strings that go over a line end, from quote to quote.
    [[nodiscard]] const std::vector<SourceRange>& longStrings() const { return longStrings_; }
    /// The opening quote of a string that is still open at the end of the text.
    [[nodiscard]] std::optional<std::size_t> openString() const { return openString_; }
    /// The first of the brackets that are still open at the end of the text.
    [[nodiscard]] std::optional<std::size_t> openBracket() const { return openBracket_; }

    [[nodiscard]] std::size_t physicalLineCount() const { return lineStarts_.size(); }
    /// A physical line without its line feed; `line` is 0-based.
    [[nodiscard]] SourceRange physicalLine(std::size_t line) const;
    [[nodiscard]] std::string_view slice(SourceRange range) const {
        return std::string_view(text_).substr(range.first, range.last - range.first);
    }
    [[nodiscard]] SourcePosition positionOf(std::size_t offset) const;
    /// Where byte `index` of a joined line stands in the text.
    [[nodiscard]] static std::size_t offsetOf(const SplitLine& line, std::size_t index);

private:
    friend class TextSplitter;

    std::string text_;
    std::vector<std::size_t> lineStarts_;
    std::vector<SplitLine> lines_;
    std::vector<SourceRange> comments_;
    std::vector<std::size_t> semicolons_;
    std::vector<SourceRange> longStrings_;
    std::optional<std::size_t> openString_;
    std::optional<std::size_t> openBracket_;
};

/// A text together with what the front end makes of it. Owns an interpreter, which runs nothing.
class ParsedSource {
public:
    /// Raises what the front end raises: a string must not be open at the end.
    explicit ParsedSource(std::string text);

    [[nodiscard]] const SourceText& source() const { return source_; }
    /// The records of the logical lines that hold something, empty records left out.
    [[nodiscard]] const std::vector<ParsedScriptLine>& lines() const { return lines_; }
    /// Where a token stands in the text.
    [[nodiscard]] SourceRange tokenRange(std::size_t line, std::size_t token) const {
        return tokens_[line][token];
    }
    [[nodiscard]] DovrelScript& interpreter() const { return *interpreter_; }

private:
    SourceText source_;
    std::unique_ptr<DovrelScript> interpreter_;
    std::vector<ParsedScriptLine> lines_;
    std::vector<std::vector<SourceRange>> tokens_;
};

/// Where the tokens of `line`, which is the record of `split`, stand in the text.
[[nodiscard]] std::vector<SourceRange> locateTokens(const SplitLine& split,
                                                    const ParsedScriptLine& line);

/// The number of columns that a text takes on paper: bytes that go on with a character count none.
[[nodiscard]] std::size_t columnsOf(std::string_view text);
