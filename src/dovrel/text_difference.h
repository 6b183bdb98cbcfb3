// What differs between two texts, line by line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A line of a comparison: kept, only in the first text, or only in the second.
struct DifferenceLine {
    char mark = ' ';  // ' ', '-' or '+'
    std::string_view text;
};

/// The shortest way from the first text to the second. The views are into the texts.
[[nodiscard]] std::vector<DifferenceLine> compareLines(std::string_view first,
                                                       std::string_view second);

/// The same as a unified difference with three lines around each change; empty for equal texts.
[[nodiscard]] std::string unifiedDifference(std::string_view first, std::string_view second,
                                            const std::string& firstName,
                                            const std::string& secondName);
