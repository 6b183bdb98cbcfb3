// The library's reference as data: what docs/library.md tells, taken apart. The document is the one
// source; its text stands in the executable. See `dovrel doc`, the prompt's help and completion,
// and the checks of names.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One entry: a heading of the third level and what stands below it.
struct LibraryEntry {
    /// As a script writes them: `len`, `string["sub"]`. Several names of one thing share an entry.
    std::vector<std::string> names;
    std::string chapter;
    std::string text;  // Markdown, without the heading
};

/// A part of the library: a heading of the second level.
struct LibraryChapter {
    std::string title;
    std::string text;  // Markdown up to its first entry
    std::vector<const LibraryEntry*> entries;
};

/// A name of the library taken apart.
struct LibraryName {
    std::string table;   // `string` for `string["sub"]`; empty for a global
    std::string member;  // `sub`; for a global its name
};

class LibraryReference {
public:
    /// Takes a document apart. It must keep the form of docs/library.md.
    explicit LibraryReference(std::string_view document);

    /// The reference of this library.
    static const LibraryReference& ofLibrary();

    [[nodiscard]] const std::vector<LibraryEntry>& entries() const { return entries_; }
    [[nodiscard]] const std::vector<LibraryChapter>& chapters() const { return chapters_; }
    /// All names, in the order of the document.
    [[nodiscard]] std::vector<std::string> names() const;
    /// The entry called `name`, or null. The name may also be written `string.sub` or
    /// `string['sub']`.
    [[nodiscard]] const LibraryEntry* find(std::string_view name) const;
    /// Entries of tables whose member is called `member`: `string["sub"]` for `sub`.
    [[nodiscard]] std::vector<const LibraryEntry*> findMembers(std::string_view member) const;
    /// The chapter called `title`, whatever its capitals, or null.
    [[nodiscard]] const LibraryChapter* findChapter(std::string_view title) const;
    /// The name that is written most like `name`, if one comes near.
    [[nodiscard]] std::optional<std::string> nearest(std::string_view name) const;

private:
    std::vector<LibraryEntry> entries_;
    std::vector<LibraryChapter> chapters_;
};

[[nodiscard]] LibraryName splitLibraryName(std::string_view name);

/// How many letters must be changed, put in, left out or swapped with a neighbour to make `b` of
/// `a`.
[[nodiscard]] std::size_t spellingDistance(std::string_view a, std::string_view b);

/// The one of `names` that is written most like `name`: at most a third of its letters, and at most
/// three, may differ. Of equals the first. `name` itself does not count.
[[nodiscard]] std::optional<std::string> nearestName(std::string_view name,
                                                     const std::vector<std::string>& names);
