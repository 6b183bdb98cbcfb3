// `dovrel check`: what can be told of scripts without running them.
#include <algorithm>
#include <iostream>
#include <string>

#include "dovrel/check_report.h"
#include "dovrel/check_script.h"
#include "dovrel/commands.h"
#include "dovrel/script_files.h"
#include "dovrel/terminal.h"
#include "dovrel/text_file.h"

namespace {

int explain(const std::string& code) {
    const CheckCode* found = findCheckCode(code);
    if (found == nullptr) {
        std::cerr << "dovrel check: there is no code " << code << '\n';
        return kMisuse;
    }
    const Palette palette(1);
    std::cout << palette.paint(Colour::Bold, found->code) << ": " << found->title << "\n\n"
              << found->explanation << '\n';
    return kSuccess;
}

int listCodes() {
    for (const CheckCode& code : allCheckCodes()) {
        std::cout << code.code << "  " << code.title << '\n';
    }
    return kSuccess;
}

}  // namespace

int runCheckCommand(const CheckOptions& options) {
    if (!options.explained.empty()) return explain(options.explained);
    if (options.listsCodes) return listCodes();
    if (options.paths.empty()) {
        std::cerr << "dovrel check: no file is given\nTry 'dovrel check --help'.\n";
        return kMisuse;
    }
    CheckReport report;
    for (const std::string& path : findScripts(options.paths)) {
        report.add(path, checkScript(readTextFile(path), path));
    }
    if (options.format == "json") {
        report.writeJson(std::cout);
    } else if (options.format == "sarif") {
        report.writeSarif(std::cout);
    } else {
        report.writeText(std::cout, Palette(1));
    }
    const bool fails = report.errors() != 0 || (options.isStrict && report.warnings() != 0);
    return fails ? kFailure : kSuccess;
}
