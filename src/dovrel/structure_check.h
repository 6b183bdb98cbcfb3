// Strings, brackets and blocks that are not closed, told at their openers.
#pragma once

#include <vector>

#include "dovrel/findings.h"
#include "dovrel/source_text.h"

/// E101 for a text whose last string is never closed, which cannot be parsed further.
void checkOpenString(const SourceText& source, std::vector<Finding>& findings);

/// E102 and E105: blocks and brackets without their ends. The openers that lack them are found by
/// the indentation of what was written.
void checkStructure(const ParsedSource& source, std::vector<Finding>& findings);
