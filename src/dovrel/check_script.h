// Everything that can be told of a script without running it.
#pragma once

#include <string>
#include <vector>

#include "dovrel/findings.h"

/// What was found in a text, in the order of the text, with what its comments silence left out.
struct CheckResult {
    SourceText source;
    std::vector<Finding> findings;
};

/// Checks `text`. `path` is that of its file, next to which the files that it runs are looked for;
/// "-" or empty for none.
[[nodiscard]] CheckResult checkScript(const std::string& text, const std::string& path);
