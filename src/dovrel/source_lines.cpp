#include "dovrel/source_lines.h"

#include <algorithm>

std::vector<std::string_view> physicalLines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::string shortened(std::string_view text, std::size_t width) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    text = text.substr(first, text.find_last_not_of(" \t\r\n") + 1 - first);
    std::string result(text);
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; },
        ' ');
    if (result.size() <= width) return result;
    std::size_t end = width - 2;
    // No character is cut in two.
    while (end > 0 && (static_cast<unsigned char>(result[end]) & 0xC0U) == 0x80U) --end;
    return result.substr(0, end) + "..";
}

std::string padLeft(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

std::string padRight(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}
