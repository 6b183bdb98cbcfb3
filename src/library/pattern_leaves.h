// What can follow a place in an expression before the next byte is taken.
//
// The graph is walked in the order in which the standard library's matcher walks it, with that
// library's bound on how often a repetition is entered at one position. Both decide what groups
// hold. pattern_program.cpp makes its tables from what is found.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "library/pattern_graph.h"

/// What holds at a position, as far as assertions ask.
struct Surroundings {
    bool atLineBegin = false;
    bool atEnd = false;
    bool atWordBoundary = false;
    bool refusesEmpty = false;
};

/// A byte that may be taken next, or the end of the expression, with the slots that are set before.
struct Leaf {
    std::uint32_t node = 0;
    std::vector<std::uint16_t> slots;  // ascending
};

/// Finds what can follow a node without a byte between, in the order in which it is to be tried.
class LeafFinder {
public:
    explicit LeafFinder(const PatternGraph& graph)
        : graph_(graph), visits_(graph.nodes.size()), found_(graph.nodes.size()) {}

    /// False if there are too many ways to look at.
    [[nodiscard]] bool find(std::uint32_t start, const Surroundings& here,
                            std::vector<Leaf>& leaves) {
        // Walking costs less than knowing what is worth a walk, except where repetitions nest.
        return walk(start, here, leaves, false) ||
               (findReach(here) && walk(start, here, leaves, true));
    }

private:
    struct Task {
        enum class Kind : std::uint8_t {
            Visit,        // go on at `node`
            EnterRepeat,  // once more around the repetition `node`
            LeaveRepeat,  // `node` has one visit less again
            ForgetSlots,  // only the first `node` slots are set again
        };
        Kind kind;
        std::uint32_t node;
    };
    using LeafBits = std::vector<std::uint64_t>;

    [[nodiscard]] bool passes(const PatternNode& node, const Surroundings& here) const {
        switch (node.kind) {
            case PatternNodeKind::LineBegin: return here.atLineBegin;
            case PatternNodeKind::LineEnd: return here.atEnd;
            case PatternNodeKind::WordBoundary: return here.atWordBoundary != node.inverse;
            case PatternNodeKind::Bytes: return !here.atEnd;
            case PatternNodeKind::Accept: return !here.refusesEmpty;
            default: return true;
        }
    }

    [[nodiscard]] bool walk(std::uint32_t start, const Surroundings& here,
                            std::vector<Leaf>& leaves, bool knowsReach);
    void visit(std::uint32_t id, const Surroundings& here, std::vector<Leaf>& leaves,
               bool knowsReach);
    void addLeaf(std::uint32_t node, std::vector<Leaf>& leaves);
    [[nodiscard]] bool findReach(const Surroundings& here);
    [[nodiscard]] bool reachesNothingNew(std::uint32_t node) const;

    const PatternGraph& graph_;
    std::vector<Task> tasks_;
    std::vector<std::uint8_t> visits_;  // of each repetition, on the way to the present node
    std::vector<std::uint8_t> found_;   // the leaf nodes of this walk
    std::vector<std::uint16_t> slots_;  // set on the way to the present node
    bool accepted_ = false;

    std::vector<LeafBits> reach_;         // for each node, the leaves that it may lead to
    std::vector<std::uint32_t> leafBit_;  // for each leaf node, its place in the bits
    LeafBits foundBits_;
};
