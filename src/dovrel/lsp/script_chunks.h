// A text cut into chunks: runs of physical lines at whose ends no bracket and no string is open. A
// change of the text changes the chunks that it touches, and no others.
//
// The cutting follows the front end, but for two things that a text has while somebody writes it. A
// string that the next lines do not close sensibly ends with its line, and an open bracket ends in
// front of a line that begins a statement. Otherwise a missing quote would turn all behind it
// inside out with each key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "dovrel/lsp/line_facts.h"
#include "dovrel/source_text.h"

/// How far behind the end of its line the end of a string is looked for, in lines and in bytes.
inline constexpr std::size_t kLongestStringLines = 200;
inline constexpr std::size_t kLongestStringBytes = std::size_t{16} << 10;

/// A chunk as it is cut, before its lines are read. Offsets in it count from its start.
struct SplitChunk {
    struct Line {
        SplitLine split;
        char closer = 0;  // the quote that the line lacks, or 0
    };
    std::size_t end = 0;    // in the text
    std::size_t reach = 0;  // in the text: a change at or behind this offset does not concern it
    std::vector<Line> lines;
    std::vector<ChunkRange> comments;
    bool isOpen = false;  // it ends with an open bracket
};

/// Cuts the chunk that begins at `start`, which must be less than the size of `text`.
[[nodiscard]] SplitChunk splitChunk(std::string_view text, std::size_t start);

/// A chunk with the facts of its lines.
struct Chunk {
    std::uint32_t size = 0;
    std::uint32_t reach = 0;  // from its start
    std::vector<LineFacts> lines;
    std::vector<ChunkRange> comments;
    bool isOpen = false;
};
