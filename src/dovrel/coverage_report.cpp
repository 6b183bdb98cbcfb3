#include "dovrel/coverage_report.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "dovrel/junit_report.h"
#include "dovrel/source_lines.h"
#include "dovrel/text_file.h"

namespace {

using Json = nlohmann::json;

std::string oneDigit(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

/// "3-5, 9": the lines that have not run. Lines between two of them that cannot run are passed
/// over.
std::string linesNotRun(const FileCoverage& file) {
    std::string text;
    std::size_t first = 0;
    std::size_t last = 0;
    const auto finish = [&] {
        if (first == 0) return;
        if (!text.empty()) text += ", ";
        text += std::to_string(first);
        if (last != first) text += '-' + std::to_string(last);
        first = 0;
    };
    for (const auto& [line, count] : file.lines) {
        if (count != 0) {
            finish();
            continue;
        }
        if (first == 0) first = line;
        last = line;
    }
    finish();
    return text;
}

constexpr std::string_view kPageHead =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
    "<title>Coverage</title>\n<style>\n"
    "body { font-family: sans-serif; margin: 2em; }\n"
    "table { border-collapse: collapse; }\n"
    "table.files td, table.files th { padding: 0.2em 0.8em; text-align: right; }\n"
    "table.files td:first-child, table.files th:first-child { text-align: left; }\n"
    "table.source { font-family: monospace; width: 100%; }\n"
    "table.source td { padding: 0 0.6em; white-space: pre; text-align: right; color: #777; }\n"
    "table.source td:last-child { text-align: left; color: #000; width: 100%; }\n"
    "tr.run td:last-child { background: #e6f5e6; }\n"
    "tr.missed td:last-child { background: #fbe3e3; }\n"
    "</style>\n</head>\n<body>\n<h1>Coverage</h1>\n";

std::string htmlRow(const std::string& name, const std::string& link, std::size_t lines,
                    std::size_t run) {
    const std::string shown =
        link.empty() ? escapeXml(name) : "<a href=\"#" + link + "\">" + escapeXml(name) + "</a>";
    return "<tr><td>" + shown + "</td><td>" + std::to_string(lines) + "</td><td>" +
           std::to_string(run) + "</td><td>" + oneDigit(percentOf(run, lines)) + "</td></tr>\n";
}

std::string htmlSource(const std::string& path, const FileCoverage& file) {
    std::string text = "<table class=\"source\">\n";
    const std::string source = readTextFile(path);
    std::size_t number = 0;
    for (const std::string_view line : physicalLines(source)) {
        const auto found = file.lines.find(++number);
        const bool canRun = found != file.lines.end();
        text += !canRun              ? "<tr>"
                : found->second != 0 ? "<tr class=\"run\">"
                                     : "<tr class=\"missed\">";
        text += "<td>" + std::to_string(number) + "</td><td>" +
                (canRun ? std::to_string(found->second) : "") + "</td><td>" +
                escapeXml(std::string(line)) + "</td></tr>\n";
    }
    return text + "</table>\n";
}

}  // namespace

double percentOf(std::size_t part, std::size_t whole) {
    return whole == 0 ? 100 : 100 * static_cast<double>(part) / static_cast<double>(whole);
}

std::size_t FileCoverage::linesRun() const {
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line.second; }));
}

void CoverageReport::add(const RunCounts& counts) {
    for (const ObservedScript& script : counts.scripts()) {
        if (script.index == 0 || !script.isFile) continue;
        FileCoverage& file = files_[std::filesystem::path(script.name).lexically_normal().string()];
        for (const std::size_t line : script.statementLines) {
            file.lines[line] += counts.countOf(script, line);
        }
        for (const ObservedFunction* function : script.declared) {
            file.functions[{function->line, function->name}] += counts.callsOf(*function);
        }
    }
}

std::string CoverageReport::packed() const {
    Json all = Json::object();
    for (const auto& [path, file] : files_) {
        Json lines = Json::array();
        for (const auto& [line, count] : file.lines) lines.push_back({line, count});
        Json functions = Json::array();
        for (const auto& [place, count] : file.functions) {
            functions.push_back({place.first, place.second, count});
        }
        all[path] = {{"lines", lines}, {"functions", functions}};
    }
    return all.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void CoverageReport::add(const std::string& packed) {
    const Json all = Json::parse(packed);
    for (const auto& [path, counts] : all.items()) {
        FileCoverage& file = files_[path];
        for (const Json& line : counts.at("lines")) {
            file.lines[line.at(0).get<std::size_t>()] += line.at(1).get<std::uint64_t>();
        }
        for (const Json& function : counts.at("functions")) {
            file.functions[{function.at(0).get<std::size_t>(),
                            function.at(1).get<std::string>()}] +=
                function.at(2).get<std::uint64_t>();
        }
    }
}

double CoverageReport::percent() const {
    std::size_t lines = 0;
    std::size_t run = 0;
    for (const auto& [path, file] : files_) {
        lines += file.lines.size();
        run += file.linesRun();
    }
    return percentOf(run, lines);
}

std::string CoverageReport::table() const {
    std::size_t width = 8;
    for (const auto& [path, file] : files_) width = std::max(width, path.size());
    std::string text = padRight("coverage", width) + "  lines    run      %\n";
    std::size_t lines = 0;
    std::size_t run = 0;
    const auto row = [&](const std::string& name, std::size_t all, std::size_t part) {
        return padRight(name, width) + "  " + padLeft(std::to_string(all), 5) + "  " +
               padLeft(std::to_string(part), 5) + "  " + padLeft(oneDigit(percentOf(part, all)), 5);
    };
    for (const auto& [path, file] : files_) {
        text += row(path, file.lines.size(), file.linesRun());
        const std::string missing = linesNotRun(file);
        if (!missing.empty()) text += "  not run: " + missing;
        text += '\n';
        lines += file.lines.size();
        run += file.linesRun();
    }
    return text + row("total", lines, run) + '\n';
}

std::string CoverageReport::lcov() const {
    std::string text;
    for (const auto& [path, file] : files_) {
        text += "TN:\nSF:" + path + '\n';
        std::size_t called = 0;
        for (const auto& [place, count] : file.functions) {
            text += "FN:" + std::to_string(place.first) + ',' + place.second + '\n';
            called += count != 0 ? 1 : 0;
        }
        for (const auto& [place, count] : file.functions) {
            text += "FNDA:" + std::to_string(count) + ',' + place.second + '\n';
        }
        text += "FNF:" + std::to_string(file.functions.size()) + '\n';
        text += "FNH:" + std::to_string(called) + '\n';
        for (const auto& [line, count] : file.lines) {
            text += "DA:" + std::to_string(line) + ',' + std::to_string(count) + '\n';
        }
        text += "LF:" + std::to_string(file.lines.size()) + '\n';
        text += "LH:" + std::to_string(file.linesRun()) + "\nend_of_record\n";
    }
    return text;
}

std::string CoverageReport::html() const {
    std::string text(kPageHead);
    text += "<table class=\"files\">\n<tr><th>file</th><th>lines</th><th>run</th><th>%</th></tr>\n";
    std::size_t lines = 0;
    std::size_t run = 0;
    std::size_t number = 0;
    for (const auto& [path, file] : files_) {
        text +=
            htmlRow(path, "file" + std::to_string(++number), file.lines.size(), file.linesRun());
        lines += file.lines.size();
        run += file.linesRun();
    }
    text += htmlRow("total", "", lines, run) + "</table>\n";
    number = 0;
    for (const auto& [path, file] : files_) {
        text += "<h2 id=\"file" + std::to_string(++number) + "\">" + escapeXml(path) + "</h2>\n";
        text += htmlSource(path, file);
    }
    return text + "</body>\n</html>\n";
}
