// The lines of a script's text, and the texts of reports that show them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The physical lines of `text` without their line ends.
[[nodiscard]] std::vector<std::string_view> physicalLines(std::string_view text);

/// `text` without the blanks around it, with tabs as blanks, cut to `width` bytes at most.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t width);

/// `text` with blanks in front, or behind it, until it has `width` columns.
[[nodiscard]] std::string padLeft(const std::string& text, std::size_t width);
[[nodiscard]] std::string padRight(const std::string& text, std::size_t width);
