// What stands around the cursor: whether it is in code, in a text or in a comment, the word in
// front of it, and the calls that are open there. The line is being written, so this looks at
// tokens alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/lsp/script_document.h"
#include "dovrel/source_text.h"

/// A token of a line that may be broken.
struct ScanToken {
    enum class Kind : std::uint8_t { Word, Literal, Symbol } kind = Kind::Symbol;
    SourceRange range;
};

/// The tokens of [first, last) of a text: comments are left out, a text that is not closed ends at
/// `last`. Operators of two characters are two symbols.
[[nodiscard]] std::vector<ScanToken> scanTokens(std::string_view text, SourceRange range);

/// A call that is open at the cursor.
struct OpenCall {
    std::string callee;        // `f`, or `box["f"]`
    std::size_t argument = 0;  // counted from 0
};

struct CursorContext {
    enum class Place : std::uint8_t { Code, Literal, Comment } place = Place::Code;
    SourceRange word;               // in code: the part of a word in front of the cursor
    SourceRange text;               // in a text: what of it stands in front, without the quote
    std::vector<ScanToken> before;  // the tokens of the statement in front of the word or text
    std::optional<OpenCall> call;   // the innermost one

    [[nodiscard]] bool startsStatement() const { return before.empty(); }
};

[[nodiscard]] CursorContext contextAt(const ScriptDocument& document, std::size_t offset);

/// The name that ends behind the last of `tokens`: `f`, or `box["f"]`; empty if none does.
[[nodiscard]] std::string nameInFront(std::string_view text, const std::vector<ScanToken>& tokens,
                                      std::size_t count);
