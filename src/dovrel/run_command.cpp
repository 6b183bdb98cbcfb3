// `dovrel run`: a script as the interpreter runs it, with arguments.
#include <exception>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "dovrel/commands.h"
#include "dovrel/text_file.h"
#include "interpreter/dovrel_script.h"

namespace {

Variable arrayOfTexts(const std::vector<std::string>& texts) {
    ArrayStorage elements;
    for (const std::string& text : texts) elements.push_back(Variable(text));
    return Variable::makeArray(std::move(elements));
}

void runText(const std::string& text, const std::vector<std::string>& arguments) {
    DovrelScript interpreter;
    interpreter.leavesProgramsToSystem = true;
    interpreter.pushVariable("args", arrayOfTexts(arguments));
    interpreter.runScript(text);
}

}  // namespace

int runRunCommand(const RunOptions& options) {
    std::vector<std::string> arguments = options.arguments;
    std::string path;
    if (!options.hasText) {
        if (arguments.empty()) {
            std::cerr << "dovrel run: no script: give a file, \"-\" or -e TEXT\n";
            return kMisuse;
        }
        path = arguments.front();
        arguments.erase(arguments.begin());
    }
    try {
        // The interpreter is gone before the error is written: its files are closed and flushed.
        runText(options.hasText ? options.text : readTextFile(path), arguments);
    } catch (const std::exception& error) {
        std::cerr << "dovrel: " << error.what() << std::endl;
        return kFailure;
    }
    return kSuccess;
}
