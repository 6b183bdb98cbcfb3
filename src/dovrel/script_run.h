// The script that a command is to run, and its run.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "dovrel/commands.h"
#include "interpreter/dovrel_script.h"

/// What a command line has named.
struct NamedScript {
    std::string name;  // the path, or what stands for it in reports of ours
    std::string text;
    std::vector<std::string> arguments;
};

/// The script that the arguments of `command` name: the first one is its file, unless there is a
/// text. Complains on standard error if there is none. Raises FileError.
[[nodiscard]] std::optional<NamedScript> findNamedScript(const RunOptions& options,
                                                         const std::string& command);

/// Runs it as the interpreter does, with the global array `args`.
void runNamedScript(DovrelScript& interpreter, const NamedScript& script);

/// Runs it with somebody who watches, whom `watch` sets, and who must outlive the run: the
/// interpreter is gone when this returns, its files closed. Ctrl-C ends the run, and not the
/// program. `report` becomes the text of the error, empty if there was none. Gives the exit status.
int runWatched(const NamedScript& script, const std::function<void(DovrelScript&)>& watch,
               std::string& report);
