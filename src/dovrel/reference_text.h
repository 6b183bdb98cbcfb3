// Entries of the reference as text for a terminal: headings, examples and what they print.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "dovrel/library_reference.h"
#include "dovrel/terminal.h"

/// What the reference tells of `name`: an entry, all members of that name, or a chapter with a list
/// of its entries. Empty if there is nothing.
[[nodiscard]] std::string referenceText(const LibraryReference& reference, const std::string& name,
                                        const Palette& palette);

/// The names of a chapter's entries, indented and broken into lines of at most `width` columns.
[[nodiscard]] std::string entryList(const LibraryChapter& chapter, std::size_t width);

/// A part of the document as plain text: links become their words, marks go, code is indented.
[[nodiscard]] std::string plainText(std::string_view markdown, const Palette& palette);
