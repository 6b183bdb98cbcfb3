#include "dovrel/check_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include "dovrel/source_text.h"

namespace {

using Json = nlohmann::ordered_json;

/// A place as people count: from 1, columns in characters.
struct ShownPlace {
    std::size_t line = 0;
    std::size_t column = 0;
};

ShownPlace placeOf(const SourceText& source, std::size_t offset) {
    const SourcePosition place = source.positionOf(offset);
    const std::size_t start = offset - place.column;
    return {place.line + 1, columnsOf(source.slice({start, offset})) + 1};
}

std::string_view severityName(const Finding& finding) {
    return finding.code->severity == Severity::Error ? "error" : "warning";
}

std::string dump(const Json& json) {
    // A script may hold bytes that are no text in any encoding.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

std::string plural(std::size_t count, const char* word) {
    return std::to_string(count) + ' ' + word + (count == 1 ? "" : "s");
}

void writeFinding(std::ostream& out, const std::string& path, const SourceText& source,
                  const Finding& finding, const Palette& palette) {
    const ShownPlace place = placeOf(source, finding.range.first);
    const bool isError = finding.code->severity == Severity::Error;
    std::string label(severityName(finding));
    label += ' ';
    label += finding.code->code;
    out << palette.paint(Colour::Bold, path + ':' + std::to_string(place.line) + ':' +
                                           std::to_string(place.column) + ':')
        << ' ' << palette.paint(isError ? Colour::Red : Colour::Yellow, label) << ": "
        << finding.message << '\n';

    const SourcePosition start = source.positionOf(finding.range.first);
    const SourceRange line = source.physicalLine(start.line);
    std::string_view text = source.slice(line);
    while (!text.empty() && (text.back() == '\r' || text.back() == ' ')) text.remove_suffix(1);
    const std::size_t skipped = std::min(text.find_first_not_of(" \t"), text.size());
    const std::string_view before = source.slice({line.first, finding.range.first});
    const std::size_t last = std::min(finding.range.last, line.first + text.size());
    const std::size_t width =
        last > finding.range.first ? columnsOf(source.slice({finding.range.first, last})) : 1;
    std::string mark;
    // A tab in front stays one, so that the mark stands below its place.
    for (const char c : before.substr(std::min(skipped, before.size()))) {
        if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) mark += c == '\t' ? '\t' : ' ';
    }
    mark += '^';
    mark.append(width - 1, '~');
    out << "    " << text.substr(skipped) << "\n    " << palette.paint(Colour::Green, mark) << '\n';
}

Json regionOf(const SourceText& source, const Finding& finding, bool isSarif) {
    const ShownPlace first = placeOf(source, finding.range.first);
    const ShownPlace last = placeOf(source, finding.range.last);
    return {{isSarif ? "startLine" : "line", first.line},
            {isSarif ? "startColumn" : "column", first.column},
            {"endLine", last.line},
            {"endColumn", last.column}};
}

/// A path as the reference of a resource.
std::string uriOf(const std::string& path) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/";
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string uri;
    for (const char c : path) {
        if (kPlain.find(c) != std::string_view::npos) {
            uri += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            uri += '%';
            uri += kDigits[byte >> 4U];
            uri += kDigits[byte & 15U];
        }
    }
    return uri;
}

}  // namespace

void CheckReport::add(std::string path, CheckResult result) {
    for (const Finding& finding : result.findings) {
        ++(finding.code->severity == Severity::Error ? errors_ : warnings_);
    }
    files_.emplace_back(std::move(path), std::move(result));
}

void CheckReport::writeText(std::ostream& out, const Palette& palette) const {
    for (const auto& [path, result] : files_) {
        for (const Finding& finding : result.findings) {
            writeFinding(out, path, result.source, finding, palette);
        }
    }
    if (errors_ + warnings_ == 0) return;
    out << plural(errors_, "error") << ", " << plural(warnings_, "warning")
        << "; 'dovrel check --explain CODE' tells more\n";
}

void CheckReport::writeJson(std::ostream& out) const {
    Json findings = Json::array();
    for (const auto& [path, result] : files_) {
        for (const Finding& finding : result.findings) {
            Json one = {{"file", path}};
            one.update(regionOf(result.source, finding, false));
            one["severity"] = severityName(finding);
            one["code"] = finding.code->code;
            one["message"] = finding.message;
            findings.push_back(std::move(one));
        }
    }
    out << dump({{"findings", std::move(findings)}, {"errors", errors_}, {"warnings", warnings_}})
        << '\n';
}

void CheckReport::writeSarif(std::ostream& out) const {
    Json rules = Json::array();
    std::vector<std::string_view> order;
    for (const CheckCode& code : allCheckCodes()) {
        order.push_back(code.code);
        rules.push_back({{"id", code.code},
                         {"shortDescription", {{"text", code.title}}},
                         {"fullDescription", {{"text", code.explanation}}},
                         {"defaultConfiguration",
                          {{"level", code.severity == Severity::Error ? "error" : "warning"}}}});
    }
    Json results = Json::array();
    for (const auto& [path, result] : files_) {
        for (const Finding& finding : result.findings) {
            const auto rule = std::find(order.begin(), order.end(), finding.code->code);
            const Json location = {{"physicalLocation",
                                    {{"artifactLocation", {{"uri", uriOf(path)}}},
                                     {"region", regionOf(result.source, finding, true)}}}};
            results.push_back({{"ruleId", finding.code->code},
                               {"ruleIndex", rule - order.begin()},
                               {"level", severityName(finding)},
                               {"message", {{"text", finding.message}}},
                               {"locations", Json::array({location})}});
        }
    }
    const Json driver = {
        {"name", "dovrel"}, {"version", DOVREL_COMPANION_VERSION}, {"rules", std::move(rules)}};
    const Json run = {{"tool", {{"driver", driver}}},
                      {"columnKind", "unicodeCodePoints"},
                      {"results", std::move(results)}};
    out << dump({{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                 {"version", "2.1.0"},
                 {"runs", Json::array({run})}})
        << '\n';
}
