#include "dovrel/text_difference.h"

#include <algorithm>
#include <cstddef>

namespace {

using Lines = std::vector<std::string_view>;

Lines linesOf(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

/// The greedy algorithm for a shortest edit script: after `edits` changes, `furthest` holds for
/// each diagonal how many lines of the first text have been passed.
std::vector<DifferenceLine> shortestEdit(const Lines& a, const Lines& b) {
    const auto n = static_cast<std::ptrdiff_t>(a.size());
    const auto m = static_cast<std::ptrdiff_t>(b.size());
    const auto offset = static_cast<std::size_t>(n + m + 1);
    const auto at = [offset](std::ptrdiff_t diagonal) {
        return static_cast<std::size_t>(static_cast<std::ptrdiff_t>(offset) + diagonal);
    };
    std::vector<std::ptrdiff_t> furthest(2 * offset + 1, 0);
    std::vector<std::vector<std::ptrdiff_t>> history;
    const auto goesDown = [&](const std::vector<std::ptrdiff_t>& reached, std::ptrdiff_t d,
                              std::ptrdiff_t k) {
        return k == -d || (k != d && reached[at(k - 1)] < reached[at(k + 1)]);
    };
    for (std::ptrdiff_t d = 0; d <= n + m; ++d) {
        history.push_back(furthest);
        for (std::ptrdiff_t k = -d; k <= d; k += 2) {
            std::ptrdiff_t x =
                goesDown(furthest, d, k) ? furthest[at(k + 1)] : furthest[at(k - 1)] + 1;
            while (x < n && x - k < m &&
                   a[static_cast<std::size_t>(x)] == b[static_cast<std::size_t>(x - k)]) {
                ++x;
            }
            furthest[at(k)] = x;
            if (x < n || x - k < m) continue;
            // Back along the way that led here.
            std::vector<DifferenceLine> edit;
            std::ptrdiff_t y = m;
            x = n;
            for (std::ptrdiff_t e = d; e >= 0; --e) {
                const auto& reached = history[static_cast<std::size_t>(e)];
                const std::ptrdiff_t diagonal = x - y;
                const bool down = goesDown(reached, e, diagonal);
                const std::ptrdiff_t before = down ? diagonal + 1 : diagonal - 1;
                const std::ptrdiff_t startX = e == 0 ? 0 : reached[at(before)];
                const std::ptrdiff_t startY = e == 0 ? 0 : startX - before;
                const std::ptrdiff_t keptFrom = e == 0 ? 0 : (down ? startX : startX + 1);
                while (x > keptFrom) {
                    --x;
                    edit.push_back({' ', a[static_cast<std::size_t>(x)]});
                }
                if (e > 0 && down) edit.push_back({'+', b[static_cast<std::size_t>(startY)]});
                if (e > 0 && !down) edit.push_back({'-', a[static_cast<std::size_t>(startX)]});
                x = startX;
                y = startY;
            }
            std::reverse(edit.begin(), edit.end());
            return edit;
        }
    }
    return {};
}

std::string rangeText(std::size_t start, std::size_t count) {
    // A range of no lines stands behind the line that it names.
    if (count == 0) return std::to_string(start) + ",0";
    const std::string first = std::to_string(start + 1);
    return count == 1 ? first : first + ',' + std::to_string(count);
}

}  // namespace

std::vector<DifferenceLine> compareLines(std::string_view first, std::string_view second) {
    Lines a = linesOf(first);
    Lines b = linesOf(second);
    std::vector<DifferenceLine> head;
    std::size_t same = 0;
    while (same < a.size() && same < b.size() && a[same] == b[same]) {
        head.push_back({' ', a[same]});
        ++same;
    }
    a.erase(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(same));
    b.erase(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(same));
    Lines tail;
    while (!a.empty() && !b.empty() && a.back() == b.back()) {
        tail.push_back(a.back());
        a.pop_back();
        b.pop_back();
    }
    const std::vector<DifferenceLine> middle = shortestEdit(a, b);
    head.insert(head.end(), middle.begin(), middle.end());
    for (auto line = tail.rbegin(); line != tail.rend(); ++line) head.push_back({' ', *line});
    return head;
}

std::string unifiedDifference(std::string_view first, std::string_view second,
                              const std::string& firstName, const std::string& secondName) {
    constexpr std::size_t kAround = 3;
    const std::vector<DifferenceLine> lines = compareLines(first, second);
    std::string text;
    std::size_t a = 0;  // lines of each text in front of `at`
    std::size_t b = 0;
    std::size_t at = 0;
    const auto isKept = [&](std::size_t i) { return lines[i].mark == ' '; };
    while (at < lines.size()) {
        if (isKept(at)) {
            ++at, ++a, ++b;
            continue;
        }
        if (text.empty()) text = "--- " + firstName + "\n+++ " + secondName + '\n';
        const std::size_t before = std::min(at, kAround);
        const std::size_t start = at - before;
        // To the end of the last change that has no more than twice the surroundings in front.
        std::size_t end = at;
        std::size_t kept = 0;
        for (std::size_t i = at; i < lines.size() && kept <= 2 * kAround; ++i) {
            kept = isKept(i) ? kept + 1 : 0;
            if (!isKept(i)) end = i + 1;
        }
        const std::size_t stop = std::min(end + kAround, lines.size());
        std::size_t countA = 0;
        std::size_t countB = 0;
        std::string body;
        for (std::size_t i = start; i < stop; ++i) {
            countA += lines[i].mark != '+' ? 1 : 0;
            countB += lines[i].mark != '-' ? 1 : 0;
            body += lines[i].mark;
            body.append(lines[i].text) += '\n';
        }
        text += "@@ -" + rangeText(a - before, countA) + " +" + rangeText(b - before, countB) +
                " @@\n" + body;
        a += countA - before;
        b += countB - before;
        at = stop;
    }
    return text;
}
