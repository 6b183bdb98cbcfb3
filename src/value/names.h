// Interned identifiers: each name stands once, so that two names are equal exactly when their
// addresses are.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

/// What the interpreter keeps of one identifier.
struct NameRecord {
    std::string text;
    /// How many entries of living scopes have this name, those of a waiting coroutine included.
    /// With none, the name can only be a global, and no scope has to be searched: without this
    /// count a deep recursion would search all its frames for each global.
    std::size_t scopeEntries = 0;
};

/// An interned identifier. It lives as long as its NamePool.
using Name = NameRecord*;

/// The interpreter's set of names.
class NamePool {
public:
    /// The one record for `text`.
    [[nodiscard]] Name intern(const std::string& text) {
        const auto [found, isNew] = names_.try_emplace(text);
        if (isNew) found->second.text = text;
        return &found->second;
    }

private:
    std::unordered_map<std::string, NameRecord> names_;
};
