#include "dovrel/dap/breakpoints.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>

#include "dovrel/source_text.h"
#include "dovrel/text_file.h"

namespace {

/// The lines, counted from 1, that a run can stop at. Empty for a file that cannot be read.
std::set<std::size_t> linesToStopAt(const std::string& path) {
    std::set<std::size_t> lines;
    try {
        const std::string text = readTextFile(path);
        if (SourceText(text).openString()) return lines;
        const ParsedSource source(text);
        for (const ParsedScriptLine& line : source.lines()) {
            const bool runs = line.kind != LineKind::Empty && line.kind != LineKind::End &&
                              line.kind != LineKind::Else && line.kind != LineKind::Repeat;
            if (runs) lines.insert(line.lineNumber + 1);
        }
    } catch (const std::exception&) {
        lines.clear();
    }
    return lines;
}

}  // namespace

std::string canonicalPath(const std::string& path) {
    std::error_code error;
    const std::filesystem::path canonical = std::filesystem::weakly_canonical(path, error);
    return error ? path : canonical.string();
}

nlohmann::json Breakpoints::set(const std::string& path, const nlohmann::json& wanted) {
    auto& breakpoints = files_[canonicalPath(path)];
    breakpoints.clear();
    const std::set<std::size_t> lines = linesToStopAt(path);
    nlohmann::json answer = nlohmann::json::array();
    for (const nlohmann::json& one : wanted) {
        Breakpoint breakpoint;
        breakpoint.id = nextId_++;
        breakpoint.line = one.value("line", std::size_t{0});
        breakpoint.condition = one.value("condition", "");
        breakpoint.hitCondition = one.value("hitCondition", "");
        breakpoint.logMessage = one.value("logMessage", "");
        const auto next = lines.lower_bound(breakpoint.line);
        nlohmann::json told = {{"id", breakpoint.id}};
        if (next != lines.end()) {
            breakpoint.line = *next;
            breakpoint.isVerified = true;
        } else {
            told["message"] = "no statement begins here or behind";
        }
        told["verified"] = breakpoint.isVerified;
        told["line"] = breakpoint.line;
        answer.push_back(std::move(told));
        breakpoints.emplace(breakpoint.line, std::move(breakpoint));
    }
    return answer;
}

std::multimap<std::size_t, Breakpoint>* Breakpoints::of(const std::string& path) {
    const auto found = files_.find(path);
    return found == files_.end() || found->second.empty() ? nullptr : &found->second;
}

bool hitCounts(const std::string& condition, std::size_t hits) {
    std::string_view text = condition;
    const auto skipBlanks = [&] {
        while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    };
    skipBlanks();
    std::string sign;
    while (!text.empty() && std::string_view("<>=%").find(text.front()) != std::string_view::npos) {
        sign += text.front();
        text.remove_prefix(1);
    }
    skipBlanks();
    std::size_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end == text.data()) return true;
    if (sign == ">") return hits > count;
    if (sign == ">=") return hits >= count;
    if (sign == "<") return hits < count;
    if (sign == "<=") return hits <= count;
    if (sign == "%") return count != 0 && hits % count == 0;
    return hits == count;
}
