// The three forms of a pattern, and the expression that each stands for.
//
// A pattern is in the dialect of the language, which is translated to an ECMAScript expression byte
// by byte; or begins with "re:" and is such an expression as it stands; or is one between slashes,
// as in "/source/flags" with the flags i (ignore case) and m (a dot matches every byte).
// Everything works on bytes, and knows ASCII only, whatever the locale.
#pragma once

#include <string>
#include <string_view>

/// An ECMAScript expression, not yet looked at.
struct PatternSource {
    std::string expression;
    bool ignoresCase = false;
};

/// The expression that `pattern` stands for. Raises "gsub: unsupported regex flag ...".
[[nodiscard]] PatternSource readPatternSource(std::string_view pattern);
