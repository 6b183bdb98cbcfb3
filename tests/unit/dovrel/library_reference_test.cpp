// The reference in the executable, against the library that scripts find.
#include "dovrel/library_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/reference_text.h"
#include "interpreter/dovrel_script.h"
#include "value/table.h"

namespace {

/// All globals and members of tables that a fresh interpreter has, in the reference's notation.
std::set<std::string> libraryNames() {
    DovrelScript interpreter;
    std::set<std::string> names;
    for (const auto& [name, slot] : interpreter.globalSlots) {
        const Variable& value = interpreter.globalValues[slot];
        if (value.type != VarType::Table) {
            names.insert(name);
            continue;
        }
        for (const auto& [key, member] : *value.asTable()) {
            std::string full(name);
            full += "[\"";
            full += key->text;
            full += "\"]";
            names.insert(full);
        }
    }
    return names;
}

TEST(LibraryReference, HasEveryNameOfTheLibraryAndNoOther) {
    std::set<std::string> documented;
    for (const std::string& name : LibraryReference::ofLibrary().names()) {
        // The members of files are the document's, and no variables.
        if (!name.starts_with("file[")) documented.insert(name);
    }
    EXPECT_EQ(documented, libraryNames());
}

TEST(LibraryReference, FindsANameInEachNotation) {
    const LibraryReference& reference = LibraryReference::ofLibrary();
    const LibraryEntry* entry = reference.find("string[\"sub\"]");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry, reference.find("string['sub']"));
    EXPECT_EQ(entry, reference.find("string.sub"));
    EXPECT_EQ(entry->chapter, "Strings");
    EXPECT_EQ(reference.find("tostring"), reference.find("toString"));
    EXPECT_EQ(reference.find("sub"), nullptr);
    EXPECT_EQ(reference.find("string[sub]"), nullptr);
    EXPECT_EQ(reference.find(""), nullptr);
}

TEST(LibraryReference, TakesADocumentApart) {
    const LibraryReference reference(
        "# Title\n\nintroduction\n\n## First\n\nof all\n\n### one, two\n\ntext\n\n```\n## no "
        "heading\n```\n\n## Second\n\n### three\n\nlast\n");
    ASSERT_EQ(reference.chapters().size(), 2U);
    EXPECT_EQ(reference.chapters()[0].title, "First");
    EXPECT_EQ(reference.chapters()[0].text, "of all\n");
    EXPECT_EQ(reference.names(), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(reference.find("two")->text, "text\n\n```\n## no heading\n```\n");
    EXPECT_EQ(reference.chapters()[1].entries[0]->text, "last\n");
}

TEST(LibraryReference, NamesTheNearest) {
    const LibraryReference& reference = LibraryReference::ofLibrary();
    EXPECT_EQ(reference.nearest("strig.sub"), "string[\"sub\"]");
    EXPECT_EQ(reference.nearest("string[\"uper\"]"), "string[\"upper\"]");
    EXPECT_EQ(reference.nearest("lne"), "len");
    EXPECT_EQ(reference.nearest("TOSTRING"), "toString");
    EXPECT_EQ(reference.nearest("elephant"), std::nullopt);
}

TEST(SpellingDistance, CountsLettersAndSwaps) {
    EXPECT_EQ(spellingDistance("", "abc"), 3U);
    EXPECT_EQ(spellingDistance("abc", "abc"), 0U);
    EXPECT_EQ(spellingDistance("lenght", "length"), 1U);
    EXPECT_EQ(spellingDistance("kitten", "sitting"), 3U);
}

TEST(ReferenceText, TakesTheMarksOff) {
    const Palette none(-1);
    EXPECT_EQ(plainText("see [the `x`](y.md#z), **not** `a[\"b\"](c)`\n", none),
              "see the `x`, not `a[\"b\"](c)`\n");
    EXPECT_EQ(plainText("| A | Bb |\n| --- | --- |\n| `a\\|b` | c |\n", none),
              "  A      Bb\n  `a|b`  c\n");
    EXPECT_EQ(plainText("```dovrelscript\nx\n```\n\n```text\ny\n```\n", none),
              "    x\n\nprints:\n\n    y\n");
}

}  // namespace
