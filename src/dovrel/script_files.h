// The scripts that a command is to work on.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The files that `paths` name: a file is itself, "-" standard input, and a directory stands for
/// all files below it whose names end in `suffix`, by name. Hidden directories are passed over.
/// Raises FileError for a path that is not there.
[[nodiscard]] std::vector<std::string> findScripts(const std::vector<std::string>& paths,
                                                   std::string_view suffix = ".dv");
