// What a profile shows: tables, the source with its times, a flame graph.
#pragma once

#include <cstddef>
#include <string>

#include "dovrel/run_profile.h"

/// Functions by their own time, then the lines that took most of it, `lineCount` of them at most.
[[nodiscard]] std::string profileTables(const RunProfile& profile, std::size_t lineCount);

/// Each line of each file that has run, with its count, its time and its part of the whole.
[[nodiscard]] std::string annotatedSources(const RunProfile& profile);

/// The chains of calls as an SVG image: who has called whom upwards, widths by time.
[[nodiscard]] std::string flameGraph(const RunProfile& profile, const std::string& title);
