#include "dovrel/profile_report.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrel/junit_report.h"
#include "dovrel/source_lines.h"

namespace {

constexpr std::size_t kSourceWidth = 60;

std::string fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string milliseconds(std::int64_t time) { return fixed(static_cast<double>(time) / 1e6, 2); }

std::string percent(std::int64_t time, const RunProfile& profile) {
    const double whole = static_cast<double>(std::max<std::int64_t>(profile.totalTime(), 1));
    return fixed(100 * static_cast<double>(time) / whole, 1);
}

std::string nameOf(const ObservedFunction& function) {
    return function.isDecay ? function.name + " (turns)" : function.name;
}

std::string placeOf(const ObservedFunction& function) {
    if (function.line == 0) return function.script->name;
    return CallChain::placeOf(*function.script, function.line);
}

/// Rows of a table: all cells but the last one to the right, the last one to the left.
class Table {
public:
    explicit Table(std::vector<std::string> head) { add(std::move(head)); }
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    [[nodiscard]] std::string text() const {
        std::vector<std::size_t> widths(rows_.front().size());
        for (const auto& row : rows_) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                widths[i] = std::max(widths[i], row[i].size());
            }
        }
        std::string text;
        for (const auto& row : rows_) {
            for (std::size_t i = 0; i + 1 < row.size(); ++i) {
                text += padLeft(row[i], widths[i]) + "  ";
            }
            text += row.back() + '\n';
        }
        return text;
    }

private:
    std::vector<std::vector<std::string>> rows_;
};

std::string functionTable(const RunProfile& profile) {
    std::vector<const ObservedFunction*> functions;
    std::size_t width = 0;
    for (const ObservedFunction& function : profile.functions()) {
        const bool isOutside = function.line == 0;
        if (profile.callsOf(function) == 0 && (!isOutside || profile.ownTimeOf(function) == 0)) {
            continue;
        }
        functions.push_back(&function);
        width = std::max(width, nameOf(function).size());
    }
    std::stable_sort(functions.begin(), functions.end(), [&](const auto* a, const auto* b) {
        return profile.ownTimeOf(*a) > profile.ownTimeOf(*b);
    });
    Table table({"calls", "own ms", "%", "total ms", "function"});
    for (const ObservedFunction* function : functions) {
        const std::uint64_t calls = profile.callsOf(*function);
        const std::int64_t own = profile.ownTimeOf(*function);
        table.add({function->line == 0 && calls == 0 ? "" : std::to_string(calls),
                   milliseconds(own), percent(own, profile),
                   milliseconds(profile.totalTimeOf(*function)),
                   padRight(nameOf(*function), width) + "  " + placeOf(*function)});
    }
    return table.text();
}

struct LineEntry {
    const ObservedScript* script;
    std::size_t line;
    std::string_view source;
    std::uint64_t count;
    std::int64_t time;
};

std::vector<LineEntry> linesOf(const RunProfile& profile) {
    std::vector<LineEntry> entries;
    for (const ObservedScript& script : profile.scripts()) {
        const std::vector<std::string_view> lines = physicalLines(script.source);
        for (const std::size_t line : script.statementLines) {
            const std::uint64_t count = profile.countOf(script, line);
            if (count == 0 || line > lines.size()) continue;
            entries.push_back(
                {&script, line, lines[line - 1], count, profile.timeOf(script, line)});
        }
    }
    return entries;
}

std::string lineTable(const RunProfile& profile, std::size_t lineCount) {
    std::vector<LineEntry> entries = linesOf(profile);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const LineEntry& a, const LineEntry& b) { return a.time > b.time; });
    if (entries.size() > lineCount) entries.resize(lineCount);
    std::size_t width = 0;
    for (const LineEntry& entry : entries) {
        width = std::max(width, CallChain::placeOf(*entry.script, entry.line).size());
    }
    Table table({"count", "own ms", "%", "line"});
    for (const LineEntry& entry : entries) {
        table.add({std::to_string(entry.count), milliseconds(entry.time),
                   percent(entry.time, profile),
                   padRight(CallChain::placeOf(*entry.script, entry.line), width) + "  " +
                       shortened(entry.source, kSourceWidth)});
    }
    return table.text();
}

// ---------------------------------------------------------------------------------- flame graph

constexpr double kImageWidth = 1200;
constexpr double kRowHeight = 17;
constexpr double kMargin = 10;
constexpr double kCharacterWidth = 6.6;
constexpr double kSmallest = 0.3;  // narrower ones cannot be seen
constexpr std::size_t kMostRows = 200;

/// The time of each node with what it has called, without a recursion: chains may be deep.
class WholeTimes {
public:
    explicit WholeTimes(const ProfileNode& root) {
        std::vector<const ProfileNode*> order{&root};
        for (std::size_t i = 0; i < order.size(); ++i) {
            times_[order[i]] = order[i]->ownTime;
            for (const auto& [function, callee] : order[i]->callees) order.push_back(callee);
        }
        for (std::size_t i = order.size(); i-- > 1;) {
            times_[order[i]->caller] += times_[order[i]];
        }
    }
    [[nodiscard]] std::int64_t of(const ProfileNode& node) const { return times_.at(&node); }

private:
    std::unordered_map<const ProfileNode*, std::int64_t> times_;
};

struct Box {
    const ProfileNode* node;
    double left;
    std::size_t row;
};

/// Warm colours that stay the same for a name.
std::string colourOf(const std::string& name) {
    std::uint32_t hash = 2166136261U;
    for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    return "rgb(" + std::to_string(205 + hash % 50) + ',' + std::to_string(90 + hash / 50 % 130) +
           ',' + std::to_string(30 + hash / 6500 % 40) + ')';
}

/// All boxes that can be seen, callers before what they call, callees by name.
std::vector<Box> boxesOf(const RunProfile& profile, const WholeTimes& times, double scale) {
    std::vector<Box> boxes;
    const auto addCallees = [&](const ProfileNode& node, double left, std::size_t row) {
        if (row >= kMostRows) return;
        std::vector<const ProfileNode*> callees;
        for (const auto& [function, callee] : node.callees) callees.push_back(callee);
        std::sort(callees.begin(), callees.end(), [](const auto* a, const auto* b) {
            return a->function->index < b->function->index;
        });
        for (const ProfileNode* callee : callees) {
            const double width = scale * static_cast<double>(times.of(*callee));
            if (width >= kSmallest) boxes.push_back({callee, left, row});
            left += width;
        }
    };
    addCallees(profile.root(), kMargin, 0);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const Box box = boxes[i];
        addCallees(*box.node, box.left, box.row + 1);
    }
    return boxes;
}

std::string drawn(const Box& box, double width, double top, const RunProfile& profile,
                  std::int64_t time) {
    const ObservedFunction& function = *box.node->function;
    const std::string name = nameOf(function);
    std::string tip = name + ", " + placeOf(function) + ": " + milliseconds(time) + " ms (" +
                      percent(time, profile) + " %), own " + milliseconds(box.node->ownTime) +
                      " ms";
    if (function.line != 0) {
        tip += ", " + std::to_string(box.node->calls) + (function.isDecay ? " turns" : " calls");
    }
    std::string text = "<g><title>" + escapeXml(tip) + "</title><rect x=\"" + fixed(box.left, 1) +
                       "\" y=\"" + fixed(top, 1) + "\" width=\"" + fixed(width, 1) +
                       "\" height=\"" + fixed(kRowHeight - 1, 1) + "\" fill=\"" + colourOf(name) +
                       "\" rx=\"2\"/>";
    const auto room = static_cast<std::size_t>(width / kCharacterWidth);
    if (room >= 3) {
        text += "<text x=\"" + fixed(box.left + 3, 1) + "\" y=\"" + fixed(top + kRowHeight - 5, 1) +
                "\">" + escapeXml(shortened(name, room)) + "</text>";
    }
    return text + "</g>\n";
}

}  // namespace

std::string profileTables(const RunProfile& profile, std::size_t lineCount) {
    std::string text = functionTable(profile);
    if (lineCount != 0) text += '\n' + lineTable(profile, lineCount);
    return text;
}

std::string annotatedSources(const RunProfile& profile) {
    std::string text;
    for (const ObservedScript& script : profile.scripts()) {
        const std::vector<std::string_view> lines = physicalLines(script.source);
        Table table({"count", "own ms", "%", script.name});
        for (std::size_t line = 1; line <= lines.size(); ++line) {
            const std::uint64_t count = profile.countOf(script, line);
            const std::int64_t time = profile.timeOf(script, line);
            const std::string source =
                padLeft(std::to_string(line), 5) + "  " + std::string(lines[line - 1]);
            if (count == 0) {
                const bool canRun = std::binary_search(script.statementLines.begin(),
                                                       script.statementLines.end(), line);
                table.add({canRun ? "-" : "", "", "", source});
            } else {
                table.add(
                    {std::to_string(count), milliseconds(time), percent(time, profile), source});
            }
        }
        text += (text.empty() ? "" : "\n") + table.text();
    }
    return text;
}

std::string flameGraph(const RunProfile& profile, const std::string& title) {
    const WholeTimes times(profile.root());
    const std::int64_t whole = std::max<std::int64_t>(times.of(profile.root()), 1);
    const double scale = (kImageWidth - 2 * kMargin) / static_cast<double>(whole);
    const std::vector<Box> boxes = boxesOf(profile, times, scale);
    std::size_t rows = 1;
    for (const Box& box : boxes) rows = std::max(rows, box.row + 1);
    const double height = static_cast<double>(rows) * kRowHeight + 50;
    std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
        fixed(kImageWidth, 0) + "\" height=\"" + fixed(height, 0) + "\" viewBox=\"0 0 " +
        fixed(kImageWidth, 0) + ' ' + fixed(height, 0) +
        "\" font-family=\"monospace\" font-size=\"11\">\n"
        "<rect width=\"100%\" height=\"100%\" fill=\"#fffaf0\"/>\n"
        "<text x=\"10\" y=\"22\" font-size=\"14\">" +
        escapeXml(title) + ", " + milliseconds(whole) + " ms</text>\n";
    for (const Box& box : boxes) {
        const std::int64_t time = times.of(*box.node);
        const double top = height - 10 - static_cast<double>(box.row + 1) * kRowHeight;
        text += drawn(box, scale * static_cast<double>(time), top, profile, time);
    }
    return text + "</svg>\n";
}
