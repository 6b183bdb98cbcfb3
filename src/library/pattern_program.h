// A pattern as the tables that the matcher runs: which bytes lead from where to where.
//
// A state of the program is "behind a byte that the expression has taken", or the start. All that
// happens between two bytes (groups that begin and end, repetitions, alternatives, anchors) is done
// when the program is made: each state has, for each class of bytes that the expression tells
// apart, the edges that may be taken, the preferred one first. So a run of the matcher depends on
// nothing but the state and the position. The standard library's matcher counts how often a
// repetition was entered at a position, but a byte that is taken starts those counts anew; this is
// why the two agree, and why a state and position that have failed once need no second look.
//
// patterns.cpp makes programs and keeps them; pattern_matcher.cpp runs them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "library/pattern_graph.h"

/// One way on from a state at a position.
struct PatternEdge {
    std::uint32_t lesser = 0;  // the edge to try if this one fails; 0 if there is none
    std::uint16_t target = 0;  // the state behind the byte; kAcceptState takes none
    std::uint16_t action = 0;  // which slots are set to the position, before the byte; 0: none
};

inline constexpr std::uint16_t kAcceptState = 0xFFFF;

/// Where the edges of a state are found. Entry [1] of a pair is for positions at a word boundary;
/// both are alike in a program without "\b" and "\B".
struct PatternState {
    // The first edge, by the class of the byte, and where the text ends; 0 if there is none.
    std::array<const std::uint32_t*, 2> rows{};
    std::array<std::uint32_t, 2> atEnd{};
    // Whether a byte leads back to this state, with nothing else to try there; null if none does.
    const bool* run = nullptr;
};

class PatternProgram {
public:
    /// Null if the tables would be too large.
    [[nodiscard]] static std::unique_ptr<const PatternProgram> make(const PatternGraph& graph);

    PatternProgram(const PatternProgram&) = delete;
    PatternProgram& operator=(const PatternProgram&) = delete;

    /// How many groups there are, without the whole match. Group `g`, from 1, begins at slot 2g and
    /// ends at slot 2g + 1; slots 0 and 1 are the whole match.
    [[nodiscard]] std::size_t groupCount() const { return groups_; }

    /// The state to start from: at a place where "^" matches or not, and with an empty match
    /// refused or not.
    [[nodiscard]] std::uint16_t startState(bool atLineBegin, bool refusesEmpty) const {
        return static_cast<std::uint16_t>((atLineBegin ? 1U : 0U) | (refusesEmpty ? 2U : 0U));
    }
    [[nodiscard]] const PatternState& state(std::uint16_t id) const { return states_[id]; }
    [[nodiscard]] std::size_t stateCount() const { return states_.size(); }
    [[nodiscard]] const PatternEdge* edges() const { return edges_.data(); }
    [[nodiscard]] const std::uint8_t* byteClasses() const { return byteClasses_.data(); }
    [[nodiscard]] std::span<const std::uint16_t> slotsOf(std::uint16_t action) const {
        return actions_[action];
    }
    [[nodiscard]] bool looksAtWords() const { return looksAtWords_; }
    [[nodiscard]] bool looksAtLineBegin() const { return looksAtLineBegin_; }

    // What shortens a search. All of it is about starts where "^" does not match.

    /// The bytes that a match may begin with; all of them if a match may be empty.
    [[nodiscard]] const ByteSet& firstBytes() const { return firstBytes_; }
    /// Whether a match may begin at the end of the text.
    [[nodiscard]] bool mayStartAtEnd() const { return mayStartAtEnd_; }
    /// The text that every match begins with, and the state behind it; empty if there is none or if
    /// slots are set in it.
    [[nodiscard]] const std::string& prefix() const { return prefix_; }
    [[nodiscard]] std::uint16_t stateBehindPrefix() const { return stateBehindPrefix_; }
    /// The pattern is its prefix and nothing else; it has no states then.
    [[nodiscard]] bool isPrefixOnly() const { return isPrefixOnly_; }
    /// The pattern is one byte of a set and a run of bytes of a set behind it, without a group, and
    /// without anything that could make the run shorter.
    [[nodiscard]] bool isOneRun() const { return isOneRun_; }
    /// Of such a pattern: whether `byte` may begin a match, may be in the run.
    [[nodiscard]] bool mayBegin(unsigned char byte) const {
        return (runRoles_[byte] & kBegins) != 0;
    }
    [[nodiscard]] bool mayFollow(unsigned char byte) const {
        return (runRoles_[byte] & kFollows) != 0;
    }
    /// If a search has failed at one of these bytes, it fails at each of those that follow it.
    [[nodiscard]] const ByteSet& leadingRun() const { return leadingRun_; }

private:
    friend class ProgramMaker;
    PatternProgram() = default;

    static constexpr std::uint8_t kBegins = 1;
    static constexpr std::uint8_t kFollows = 2;

    std::size_t groups_ = 0;
    std::vector<PatternState> states_;
    std::vector<std::uint32_t> rows_;  // those of all states; they point into it
    std::vector<std::unique_ptr<const std::array<bool, 256>>> runs_;  // the states point to them
    std::vector<PatternEdge> edges_;
    std::vector<std::vector<std::uint16_t>> actions_;
    std::array<std::uint8_t, 256> byteClasses_{};
    bool looksAtWords_ = false;
    bool looksAtLineBegin_ = false;
    ByteSet firstBytes_;
    bool mayStartAtEnd_ = false;
    std::string prefix_;
    std::uint16_t stateBehindPrefix_ = 0;
    bool isPrefixOnly_ = false;
    bool isOneRun_ = false;
    std::array<std::uint8_t, 256> runRoles_{};
    ByteSet leadingRun_;
};
