// `dovrel doc`: the library's reference at the terminal.
#include <iostream>
#include <string>
#include <string_view>

#include "dovrel/commands.h"
#include "dovrel/library_reference.h"
#include "dovrel/reference_text.h"
#include "dovrel/terminal.h"

namespace {

void listChapters(const LibraryReference& reference, const Palette& palette) {
    for (const LibraryChapter& chapter : reference.chapters()) {
        std::cout << palette.paint(Colour::Bold, chapter.title) << '\n';
        std::cout << entryList(chapter, terminalWidth());
    }
    std::cout << "\n'dovrel doc NAME' shows one of them.\n";
}

bool show(const LibraryReference& reference, const std::string& name, const Palette& palette,
          bool& isFirst) {
    const std::string text = referenceText(reference, name, palette);
    if (!text.empty()) {
        std::cout << (isFirst ? "" : "\n") << text;
        isFirst = false;
        return true;
    }
    std::cerr << "dovrel doc: nothing is called " << name;
    if (const auto nearest = reference.nearest(name)) {
        std::cerr << "; did you mean " << *nearest << "?";
    }
    std::cerr << '\n';
    return false;
}

}  // namespace

int runDocCommand(const DocOptions& options) {
    const LibraryReference& reference = LibraryReference::ofLibrary();
    const Palette palette(1);
    if (options.listsNames) {
        for (const std::string& name : reference.names()) std::cout << name << '\n';
        return kSuccess;
    }
    if (options.names.empty()) listChapters(reference, palette);
    bool allFound = true;
    bool isFirst = true;
    for (const std::string& name : options.names) {
        allFound = show(reference, name, palette, isFirst) && allFound;
    }
    return allFound ? kSuccess : kFailure;
}
