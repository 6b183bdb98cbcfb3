// `dovrel format`: the one layout, written, shown or asked for.
#include <algorithm>
#include <cstddef>
#include <iostream>
#include <string>
#include <string_view>

#include "dovrel/commands.h"
#include "dovrel/formatter.h"
#include "dovrel/script_files.h"
#include "dovrel/terminal.h"
#include "dovrel/text_difference.h"
#include "dovrel/text_file.h"

namespace {

void showDifference(const std::string& before, const std::string& after, const std::string& path,
                    const Palette& palette) {
    const std::string difference = unifiedDifference(before, after, path, path + " (formatted)");
    std::string_view rest = difference;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (line.starts_with("---") || line.starts_with("+++")) {
            std::cout << palette.paint(Colour::Bold, line);
        } else if (line.starts_with('-')) {
            std::cout << palette.paint(Colour::Red, line);
        } else if (line.starts_with('+')) {
            std::cout << palette.paint(Colour::Green, line);
        } else if (line.starts_with("@@")) {
            std::cout << palette.paint(Colour::Cyan, line);
        } else {
            std::cout << line;
        }
        std::cout << '\n';
    }
}

/// What has become of one file.
enum class Outcome { WasRight, Differs, Failed };

Outcome formatFile(const std::string& path, const FormatOptions& options, const Palette& palette) {
    const std::string before = readTextFile(path);
    std::string after;
    try {
        after = formatScript(before);
    } catch (const FormatError& error) {
        std::cerr << "dovrel format: " << path << ": " << error.what() << '\n';
        return Outcome::Failed;
    }
    const bool onlyLooks = options.checks || options.showsDifference;
    if (path == "-" && !onlyLooks) {
        std::cout << after;
        return Outcome::WasRight;
    }
    if (before == after) return Outcome::WasRight;
    if (options.showsDifference) {
        showDifference(before, after, path, palette);
    } else if (options.checks) {
        std::cout << path << " is laid out differently\n";
    } else {
        replaceTextFile(path, after);
    }
    return Outcome::Differs;
}

}  // namespace

int runFormatCommand(const FormatOptions& options) {
    const Palette palette(1);
    int status = kSuccess;
    for (const std::string& path : findScripts(options.paths)) {
        switch (formatFile(path, options, palette)) {
            case Outcome::WasRight: break;
            case Outcome::Differs:
                if (options.checks && status == kSuccess) status = kFailure;
                break;
            case Outcome::Failed: status = kMisuse; break;
        }
    }
    return status;
}
