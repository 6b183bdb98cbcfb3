// `dovrel trace`: what a script does, line by line.
#include <charconv>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dovrel/commands.h"
#include "dovrel/run_trace.h"
#include "dovrel/script_run.h"
#include "dovrel/text_file.h"

namespace {

bool readNumber(std::string_view text, std::size_t& number) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() && number > 0;
}

/// "12", "12-20", "12-" or one of these behind "total.dv:".
std::optional<TraceFilter::Lines> readLines(const std::string& text) {
    TraceFilter::Lines lines;
    std::string_view numbers = text;
    const std::size_t colon = numbers.rfind(':');
    if (colon != std::string_view::npos) {
        lines.file = text.substr(0, colon);
        numbers.remove_prefix(colon + 1);
    }
    const std::size_t dash = numbers.find('-');
    if (!readNumber(numbers.substr(0, dash), lines.first)) return std::nullopt;
    lines.last = lines.first;
    if (dash != std::string_view::npos) {
        const std::string_view last = numbers.substr(dash + 1);
        lines.last = std::numeric_limits<std::size_t>::max();
        if (!last.empty() && !readNumber(last, lines.last)) return std::nullopt;
    }
    return lines;
}

}  // namespace

int runTraceCommand(const TraceOptions& options) {
    const std::optional<NamedScript> script = findNamedScript(options.script, "trace");
    if (!script) return kMisuse;
    TraceFilter filter;
    filter.functions = options.functions;
    filter.variables = options.variables;
    filter.takesNothing = options.showsErrorsOnly;
    for (const std::string& text : options.lines) {
        const std::optional<TraceFilter::Lines> lines = readLines(text);
        if (!lines) {
            std::cerr << "dovrel trace: no lines: " << text << '\n';
            return kMisuse;
        }
        filter.lines.push_back(*lines);
    }
    std::ofstream file;
    if (!options.outputPath.empty()) {
        file.open(options.outputPath, std::ios::binary | std::ios::trunc);
        if (!file) throw FileError("failed to write file: " + options.outputPath);
    }
    std::ostream& out = file.is_open() ? file : std::cerr;
    const Palette palette(file.is_open() ? -1 : 2);
    std::unique_ptr<RunTrace> trace;
    std::string error;
    const int status = runWatched(
        *script,
        [&](DovrelScript& interpreter) {
            trace = std::make_unique<RunTrace>(interpreter, script->name, filter, out, palette);
            interpreter.setObserver(*trace);
        },
        error);
    trace->flush();
    std::cout << std::flush;
    if (!error.empty()) {
        std::cerr << "dovrel: " << error << std::endl;
        if (!trace->errorChain().empty()) {
            out << "the calls at the error, the last one first:\n" << trace->errorChain();
        }
    }
    if (file.is_open()) {
        file.close();
        if (!file) throw FileError("failed to write file: " + options.outputPath);
    }
    return status;
}
