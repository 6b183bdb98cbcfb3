// What the language server keeps of each logical line, so that a key changes a line or two and not
// the whole file. Offsets count from the start of the chunk that the line is in.
#pragma once

#include <cstdint>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dovrel/script_model.h"
#include "dovrel/source_text.h"

/// A name of any of the documents; equal names have equal numbers.
using NameId = std::uint32_t;
inline constexpr NameId kNoName = std::numeric_limits<NameId>::max();

/// The names of all documents. They are never dropped.
class NameTable {
public:
    [[nodiscard]] NameId idOf(std::string_view text);
    /// The number of a name that has been seen, else kNoName.
    [[nodiscard]] NameId find(std::string_view text) const;
    [[nodiscard]] const std::string& textOf(NameId name) const { return texts_[name]; }

private:
    std::deque<std::string> texts_;
    std::unordered_map<std::string_view, NameId> ids_;
};

/// A stretch of a chunk.
struct ChunkRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
};

/// One use of a name.
struct NameFact {
    NameId name = kNoName;
    ChunkRange range;
    NameUseKind kind = NameUseKind::Read;
};

/// A literal text that is a key: `t["key"]`, or `key` in a literal.
struct KeyFact {
    NameId base = kNoName;  // the name that is indexed, if it is one
    NameId key = kNoName;
    ChunkRange range;  // with its quotes
    bool isIndex = false;
    bool isWritten = false;
};

/// A call that runs another file, whose path is a literal.
struct LinkFact {
    std::string path;
    ChunkRange range;  // of the literal, with its quotes
};

/// The header of a function.
struct FunctionFact {
    NameId name =
        kNoName;  // as it is called: `f`, or `box["f"]` for one stored under a literal key
    NameId variable = kNoName;  // the name that the declaration writes
    NameId key = kNoName;       // of one stored under a literal key, that key
    ChunkRange range;           // of that name
    std::vector<NameId> parameters;
    bool isDecay = false;
    bool isVariadic = false;
    bool isElement = false;
    ScopeTarget scope = ScopeTarget::Default;
};

/// One logical line.
struct LineFacts {
    LineKind kind = LineKind::Plain;
    bool isReadable = true;
    bool runsUnknownCode = false;  // calls something that may run code that is not here
    bool callsUnknown = false;     // calls something that neither a name nor a literal key leads to
    ChunkRange range;
    std::vector<NameFact> names;  // in the order of the text
    std::vector<KeyFact> keys;
    std::vector<LinkFact> links;
    std::unique_ptr<FunctionFact> function;
};

/// Makes the facts of lines. Owns an interpreter, which runs nothing.
class LineReader {
public:
    explicit LineReader(NameTable& names) : names_(names) {}

    /// The facts of `line`, whose pieces count from the start of the chunk. `closer` is a quote if
    /// the line lacks it at its end, else 0.
    [[nodiscard]] LineFacts read(const SplitLine& line, char closer);

private:
    void readNames(Statement& statement, const std::vector<SourceRange>& tokens, LineFacts& facts);
    void readHeader(Statement& statement, const std::vector<SourceRange>& tokens, LineFacts& facts);
    void readBrokenLine(const ParsedScriptLine& line, const std::vector<SourceRange>& tokens,
                        LineFacts& facts);
    void readExpressions(const Statement& statement, const std::vector<SourceRange>& tokens,
                         LineFacts& facts);
    void readKeys(const Expression& expression, const std::vector<SourceRange>& tokens,
                  LineFacts& facts);
    void readCall(const Expression& call, const std::vector<SourceRange>& tokens, LineFacts& facts);

    NameTable& names_;
    DovrelScript interpreter_;
};
