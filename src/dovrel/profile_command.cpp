// `dovrel profile`: where the time of a script goes.
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "dovrel/commands.h"
#include "dovrel/profile_report.h"
#include "dovrel/run_profile.h"
#include "dovrel/script_run.h"
#include "dovrel/text_file.h"

int runProfileCommand(const ProfileOptions& options) {
    const std::optional<NamedScript> script = findNamedScript(options.script, "profile");
    if (!script) return kMisuse;
    std::unique_ptr<RunProfile> profile;
    std::string error;
    const int status = runWatched(
        *script,
        [&](DovrelScript& interpreter) {
            profile = std::make_unique<RunProfile>(interpreter, script->name);
            interpreter.setObserver(*profile);
        },
        error);
    std::cout << std::flush;
    if (!error.empty()) std::cerr << "dovrel: " << error << std::endl;
    if (profile->scripts().empty()) return status;  // it could not be compiled
    std::string report = profileTables(*profile, options.lines);
    if (options.annotates) report += '\n' + annotatedSources(*profile);
    if (options.outputPath.empty()) {
        std::cerr << report << std::flush;
    } else {
        writeTextFile(options.outputPath, report);
    }
    if (!options.svgPath.empty()) {
        writeTextFile(options.svgPath, flameGraph(*profile, script->name));
    }
    return status;
}
