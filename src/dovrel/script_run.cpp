#include "dovrel/script_run.h"

#include <exception>
#include <iostream>
#include <utility>

#include "dovrel/interrupt.h"
#include "dovrel/text_file.h"

namespace {

/// What a shell gives for a program that Ctrl-C has ended.
constexpr int kInterrupted = 130;

Variable arrayOfTexts(const std::vector<std::string>& texts) {
    ArrayStorage elements;
    for (const std::string& text : texts) elements.push_back(Variable(text));
    return Variable::makeArray(std::move(elements));
}

}  // namespace

std::optional<NamedScript> findNamedScript(const RunOptions& options, const std::string& command) {
    NamedScript script;
    script.arguments = options.arguments;
    if (options.hasText) {
        script.name = "(text)";
        script.text = options.text;
        return script;
    }
    if (script.arguments.empty()) {
        std::cerr << "dovrel " << command << ": no script: give a file, \"-\" or -e TEXT\n";
        return std::nullopt;
    }
    const std::string path = script.arguments.front();
    script.arguments.erase(script.arguments.begin());
    script.name = path == "-" ? "(standard input)" : path;
    script.text = readTextFile(path);
    return script;
}

void runNamedScript(DovrelScript& interpreter, const NamedScript& script) {
    interpreter.leavesProgramsToSystem = true;
    interpreter.pushVariable("args", arrayOfTexts(script.arguments));
    interpreter.runScript(script.text);
}

int runWatched(const NamedScript& script, const std::function<void(DovrelScript&)>& watch,
               std::string& report) {
    const InterruptGuard guard;
    try {
        DovrelScript interpreter;
        watch(interpreter);
        runNamedScript(interpreter, script);
    } catch (const std::exception& error) {
        report = error.what();
        return kFailure;
    } catch (const ScriptStopped&) {
        return kInterrupted;
    }
    return kSuccess;
}
