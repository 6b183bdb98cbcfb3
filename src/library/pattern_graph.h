// The graph of a regular expression, as the matcher of this library reads it.
//
// The expressions are the ECMAScript ones that patterns are translated to. The graph has the very
// nodes and links that the standard library gives an expression, dummies included, since what a
// group has matched when it is repeated, and when a repetition of nothing stops, follow from the
// order in which that library's matcher walks them.
//
// pattern_program.cpp makes the tables of the matcher from a graph; nobody else needs one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "library/byte_set.h"

enum class PatternNodeKind : std::uint8_t {
    Dummy,         // leads to `next`
    Bytes,         // takes a byte of the set `index`
    Repeat,        // once more is `other`, out of the repetition is `next`; lazy if `inverse`
    Alternative,   // `other` is tried before `next`
    GroupBegin,    // group `index` begins
    GroupEnd,      // group `index` has matched
    LineBegin,     // "^"
    LineEnd,       // "$"
    WordBoundary,  // "\b", or "\B" if `inverse`
    Accept,        // the end of the expression
};

/// No node.
inline constexpr std::uint32_t kNoNode = 0xFFFFFFFF;

struct PatternNode {
    PatternNodeKind kind = PatternNodeKind::Dummy;
    bool inverse = false;
    std::uint32_t index = 0;
    std::uint32_t next = kNoNode;
    std::uint32_t other = kNoNode;
};

struct PatternGraph {
    std::vector<PatternNode> nodes;
    std::vector<ByteSet> sets;  // no two are equal
    std::uint32_t start = 0;
    std::uint32_t groups = 0;  // without the whole match; they count from 1 in `nodes`
};

/// Reads the expression `source`. Nothing if it holds anything that is not read here with
/// certainty: what the standard library refuses, back-references, look-ahead, collating names in
/// sets, and expressions beyond some thousand nodes. An expression that is read is valid.
[[nodiscard]] std::optional<PatternGraph> readPatternGraph(std::string_view source,
                                                           bool ignoresCase);
