// A script that is open in an editor, or stands beside those that are: its text, and the facts of
// its lines, both kept up to date change by change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrel/lsp/line_facts.h"
#include "dovrel/lsp/script_chunks.h"
#include "dovrel/lsp/text_positions.h"

inline constexpr std::uint32_t kNoIndex = std::numeric_limits<std::uint32_t>::max();

/// A logical line in its script. Indices are those of the outline.
struct OutlineLine {
    const LineFacts* facts = nullptr;
    std::size_t base = 0;              // where its chunk begins
    std::uint32_t function = 0;        // that it runs in; 0 for the top
    std::uint32_t declared = 0;        // the function that it is the header of, or 0
    std::uint32_t around = kNoIndex;   // the line that opens the innermost block around it
    std::uint32_t partner = kNoIndex;  // of a line that opens a block: the one that closes it

    [[nodiscard]] SourceRange range() const { return rangeOf(facts->range); }
    [[nodiscard]] SourceRange rangeOf(ChunkRange part) const {
        return {base + part.first, base + part.last};
    }
};

/// A function of a script; that of index 0 is the top and has no header.
struct OutlineFunction {
    const FunctionFact* fact = nullptr;
    std::uint32_t header = kNoIndex;
    std::uint32_t first = 0;  // its body: the lines [first, last)
    std::uint32_t last = 0;
    std::uint32_t parent = 0;
};

/// How the lines of a script belong together. Made anew after each change, in one walk; refers to
/// the document that it was made from.
class Outline {
public:
    explicit Outline(const std::vector<std::shared_ptr<const Chunk>>& chunks);

    [[nodiscard]] const std::vector<OutlineLine>& lines() const { return lines_; }
    [[nodiscard]] const std::vector<OutlineFunction>& functions() const { return functions_; }
    /// The last line that begins at or in front of `offset`, or kNoIndex.
    [[nodiscard]] std::uint32_t lineAt(std::size_t offset) const;
    /// The function makes a variable of that name for itself.
    [[nodiscard]] bool owns(std::uint32_t function, NameId name) const;
    /// The function whose variable a name of a line could be: of a parameter the one declared.
    [[nodiscard]] static std::uint32_t functionOf(const OutlineLine& line, const NameFact& name) {
        return name.kind == NameUseKind::Parameter ? line.declared : line.function;
    }

private:
    void nest();

    std::vector<OutlineLine> lines_;
    std::vector<OutlineFunction> functions_;
    mutable std::vector<std::pair<std::uint32_t, NameId>> owned_;  // sorted once it is asked for
    mutable bool isSorted_ = false;
};

/// It makes a variable of the function or block that it stands in.
[[nodiscard]] bool isOwnKind(NameUseKind kind);

class ScriptDocument {
public:
    /// `uri` names it to the editor; `path` is its file, empty for none.
    ScriptDocument(LineReader& reader, std::string uri, std::string path, std::string text);

    [[nodiscard]] const std::string& uri() const { return uri_; }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const std::string& text() const { return text_; }
    [[nodiscard]] const LineStarts& lineStarts() const { return lineStarts_; }
    [[nodiscard]] const std::vector<std::shared_ptr<const Chunk>>& chunks() const {
        return chunks_;
    }
    /// Where a chunk begins in the text.
    [[nodiscard]] std::size_t chunkStart(std::size_t chunk) const { return chunkStarts_[chunk]; }
    /// The chunk that the byte at `offset` belongs to; the last one for the end of the text. There
    /// must be one.
    [[nodiscard]] std::size_t chunkAt(std::size_t offset) const;
    /// Counts the changes.
    [[nodiscard]] std::uint64_t revision() const { return revision_; }

    void replaceText(std::string text);
    /// Puts `text` in the place of `range`, which must lie within the text.
    void replace(SourceRange range, std::string_view text);

    [[nodiscard]] const Outline& outline() const;
    /// Comments in the order of the text.
    [[nodiscard]] std::vector<SourceRange> comments() const;

    // What the editor has told of it.
    bool isOpen = false;
    std::int64_t version = 0;

private:
    [[nodiscard]] std::shared_ptr<const Chunk> readChunk(std::size_t start, std::size_t& end) const;
    void countStarts(std::size_t from);

    LineReader& reader_;
    std::string uri_;
    std::string path_;
    std::string text_;
    LineStarts lineStarts_;
    std::vector<std::shared_ptr<const Chunk>> chunks_;
    std::vector<std::size_t> chunkStarts_;  // and the size of the text
    std::uint64_t revision_ = 0;
    mutable std::optional<Outline> outline_;
};
