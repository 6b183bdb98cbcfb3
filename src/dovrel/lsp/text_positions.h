// The places of a text as editors count them: lines that end in a line feed, a carriage return or
// both, and characters in units of an encoding. The language itself ends lines by line feeds alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// What one character of a position counts.
enum class PositionEncoding : std::uint8_t {
    Utf8,   // bytes
    Utf16,  // units of 16 bits: two for what lies beyond the first plane
};

/// A place as an editor names it, 0-based.
struct EditorPosition {
    std::size_t line = 0;
    std::size_t character = 0;
};

/// Where the lines of a text begin. Kept up to date while the text changes.
class LineStarts {
public:
    LineStarts() : starts_{0} {}
    explicit LineStarts(std::string_view text);

    /// `text` is the new text, in which [first, first + inserted) stands for the `removed` bytes
    /// that were there before.
    void replace(std::string_view text, std::size_t first, std::size_t removed,
                 std::size_t inserted);

    [[nodiscard]] std::size_t count() const { return starts_.size(); }
    /// The offset of the first byte of a line; `line` must be less than count().
    [[nodiscard]] std::size_t startOf(std::size_t line) const { return starts_[line]; }
    /// The line that the byte at `offset` belongs to.
    [[nodiscard]] std::size_t lineOf(std::size_t offset) const;

    /// A position behind the end of a line is its end, and one behind the last line the end of the
    /// text; one within a character is its beginning.
    [[nodiscard]] std::size_t offsetOf(std::string_view text, EditorPosition position,
                                       PositionEncoding encoding) const;
    [[nodiscard]] EditorPosition positionOf(std::string_view text, std::size_t offset,
                                            PositionEncoding encoding) const;

private:
    std::vector<std::size_t> starts_;
};

/// How many units `text` takes. Bytes that are no UTF-8 count one each.
[[nodiscard]] std::size_t unitsOf(std::string_view text, PositionEncoding encoding);
