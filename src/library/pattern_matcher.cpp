#include "library/pattern_matcher.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "library/text_search.h"
#include "value/run_context.h"

namespace {

constexpr std::size_t kUnset = PatternMatch::kUnset;

// What the first way may cost before the second takes over.
constexpr std::ptrdiff_t kStepsForEachByte = 8;
constexpr std::ptrdiff_t kStepsForEachSearch = 2000;
constexpr std::size_t kMostRetreats = std::size_t{1} << 18;
// What the memory of a walk may take.
constexpr std::size_t kMostRememberedBits = std::size_t{1} << 30;

/// Whether a word begins or ends at `position` of a search from `from` on. What stands before the
/// place where the search begins counts only if the search knows of it.
[[nodiscard]] bool isWordBoundary(std::string_view text, std::size_t position, std::size_t from,
                                  const SearchMode& mode) {
    const bool seesBefore = position > from || !mode.atLineBegin;
    const bool before =
        seesBefore && position > 0 && isWordByte(static_cast<unsigned char>(text[position - 1]));
    const bool behind =
        position < text.size() && isWordByte(static_cast<unsigned char>(text[position]));
    return before != behind;
}

/// The first offset from `position` on whose byte is in `bytes`; the text's size if there is none.
[[nodiscard]] std::size_t findOneOf(std::string_view text, std::size_t position,
                                    const ByteSet& bytes) {
    while (position < text.size() && !bytes.contains(static_cast<unsigned char>(text[position]))) {
        ++position;
    }
    return position;
}

}  // namespace

/// Rules of the loop:
/// 1. A way that accepts is the last of its chain. It is not kept open but noted as the fallback,
///    and all that was open before is given up: the fallback is preferred to it.
/// 2. Slots are noted before they are set only while something is open, since otherwise nothing
///    reads them again: a failure then ends in the fallback or in no match.
template <bool kLooksAtWords>
PatternMatcher::Verdict PatternMatcher::runFrom(Run& run, std::uint16_t stateId, std::size_t start,
                                                std::size_t position) {
    const PatternProgram& program = run.program;
    const PatternEdge* const edges = program.edges();
    const std::uint8_t* const classes = program.byteClasses();
    const char* const text = run.text.data();
    const std::size_t end = run.text.size();
    std::size_t* const slots = run.slots;
    bool hasFallback = false;
    std::size_t fallbackEnd = 0;
    std::ptrdiff_t steps = run.steps;
    retreats_.clear();

    for (;;) {
        const PatternState& state = program.state(stateId);
        if (!kLooksAtWords && state.run != nullptr) {
            const bool* const inRun = state.run;
            const std::size_t runStart = position;
            while (position < end && inRun[static_cast<unsigned char>(text[position])]) ++position;
            steps -= static_cast<std::ptrdiff_t>(position - runStart);
        }
        const std::size_t variant =
            kLooksAtWords && isWordBoundary(run.text, position, run.from, run.mode) ? 1 : 0;
        std::uint32_t edgeId =
            position < end
                ? state.rows[variant][classes[static_cast<unsigned char>(text[position])]]
                : state.atEnd[variant];
        if (--steps < 0) {
            run.steps = 0;
            return Verdict::TooCostly;
        }
        while (edgeId == 0) {
            if (retreats_.empty()) {
                run.steps = steps;
                if (!hasFallback) return Verdict::Failed;
                std::copy(fallback_.begin(), fallback_.end(), slots);
                slots[0] = start;
                slots[1] = fallbackEnd;
                return Verdict::Matched;
            }
            const Retreat retreat = retreats_.back();
            retreats_.pop_back();
            if (retreat.edge == 0) {
                slots[retreat.slot] = retreat.position;
            } else {
                edgeId = retreat.edge;
                position = retreat.position;
            }
        }
        const PatternEdge& edge = edges[edgeId];
        if (edge.lesser != 0) {
            const PatternEdge& lesser = edges[edge.lesser];
            if (lesser.target == kAcceptState) {
                hasFallback = true;
                fallbackEnd = position;
                fallback_.assign(slots, slots + run.slotCount);
                for (const std::uint16_t slot : program.slotsOf(lesser.action)) {
                    fallback_[slot] = position;
                }
                retreats_.clear();
            } else {
                if (retreats_.size() >= kMostRetreats) {
                    run.steps = 0;
                    return Verdict::TooCostly;
                }
                retreats_.push_back({position, edge.lesser, 0});
            }
        }
        if (edge.action != 0) {
            for (const std::uint16_t slot : program.slotsOf(edge.action)) {
                if (!retreats_.empty()) retreats_.push_back({slots[slot], 0, slot});
                slots[slot] = position;
            }
        }
        if (edge.target == kAcceptState) {
            run.steps = steps;
            slots[0] = start;
            slots[1] = position;
            return Verdict::Matched;
        }
        stateId = edge.target;
        ++position;
    }
}

PatternMatcher::Verdict PatternMatcher::tryAt(Run& run, std::uint16_t state, std::size_t start,
                                              std::size_t position) {
    return run.program.looksAtWords() ? runFrom<true>(run, state, start, position)
                                      : runFrom<false>(run, state, start, position);
}

bool PatternMatcher::search(const PatternProgram& program, std::string_view text, std::size_t from,
                            SearchMode mode, PatternMatch& match, WalkMemory* memory) {
    match.reset(program.groupCount() + 1);
    if (program.isOneRun()) return searchOneRun(program, text, from, mode, match);
    const std::string& prefix = program.prefix();
    if (program.isPrefixOnly()) {
        const std::size_t found = mode.onlyHere
                                      ? (text.substr(from).starts_with(prefix) ? from : kUnset)
                                      : findText(text, prefix, from);
        if (found == std::string_view::npos) return false;
        match.set(0, {found, found + prefix.size()});
        return true;
    }
    const std::ptrdiff_t steps =
        kStepsForEachSearch + kStepsForEachByte * static_cast<std::ptrdiff_t>(text.size() - from);
    Run run{program, text, from, mode, match.slots(), 2 * match.size(), steps, nullptr};
    if (memory == nullptr) {
        const bool found = searchWays(run);
        countWork(static_cast<std::size_t>(steps - run.steps));
        return found;
    }

    if (!memory->failed_.empty()) {
        run.failed = memory->failed_.data();
        return runAllWays(run, from);
    }
    const bool found = searchWays(run);
    const std::size_t gone = found ? run.slots[1] - from : text.size() - from;
    const auto used = static_cast<std::size_t>(steps - run.steps);
    countWork(used);
    memory->spent_ += used > gone ? used - gone : 0;
    if (memory->spent_ > memory->patience_ * text.size()) rememberFrom(*memory, run);
    return found;
}

/// Begins to remember, unless that would take too much.
void PatternMatcher::rememberFrom(WalkMemory& memory, const Run& run) {
    const std::size_t places = run.text.size() + 1;
    if (run.program.stateCount() > kMostRememberedBits / places) return;
    memory.failed_.assign(run.program.stateCount() * places / 64 + 1, 0);
}

bool PatternMatcher::searchWays(Run& run) {
    const PatternProgram& program = run.program;
    const std::string_view text = run.text;
    const SearchMode mode = run.mode;
    const std::string& prefix = program.prefix();
    std::size_t start = run.from;
    if (mode.onlyHere || (mode.atLineBegin && program.looksAtLineBegin())) {
        const std::uint16_t state = program.startState(mode.atLineBegin, mode.refusesEmpty);
        const Verdict verdict = tryAt(run, state, start, start);
        if (verdict != Verdict::Failed) {
            return verdict == Verdict::Matched || runAllWays(run, start);
        }
        if (mode.onlyHere) return false;
        ++start;
    }
    const ByteSet& firstBytes = program.firstBytes();
    const ByteSet& leadingRun = program.leadingRun();
    for (; start <= text.size(); ++start) {
        std::uint16_t state = program.startState(false, false);
        std::size_t position = start;
        if (!prefix.empty()) {
            start = findText(text, prefix, start);
            if (start == std::string_view::npos) return false;
            state = program.stateBehindPrefix();
            position = start + prefix.size();
        } else {
            start = findOneOf(text, start, firstBytes);
            if (start == text.size() && !program.mayStartAtEnd()) return false;
            position = start;
        }
        // What an attempt that failed has left.
        std::fill(run.slots + 2, run.slots + run.slotCount, kUnset);
        const Verdict verdict = tryAt(run, state, start, position);
        if (verdict != Verdict::Failed) {
            return verdict == Verdict::Matched || runAllWays(run, start);
        }
        while (start + 1 < text.size() &&
               leadingRun.contains(static_cast<unsigned char>(text[start])) &&
               leadingRun.contains(static_cast<unsigned char>(text[start + 1]))) {
            ++start;
        }
    }
    return false;
}

bool PatternMatcher::searchOneRun(const PatternProgram& program, std::string_view text,
                                  std::size_t from, SearchMode mode, PatternMatch& match) {
    const auto byteAt = [text](std::size_t index) {
        return static_cast<unsigned char>(text[index]);
    };
    const std::size_t lastStart = mode.onlyHere ? std::min(from + 1, text.size()) : text.size();
    std::size_t start = from;
    while (start < lastStart && !program.mayBegin(byteAt(start))) ++start;
    if (start >= lastStart) return false;
    std::size_t end = start + 1;
    while (end < text.size() && program.mayFollow(byteAt(end))) ++end;
    match.set(0, {start, end});
    return true;
}

bool PatternMatcher::searchAllWays(const PatternProgram& program, std::string_view text,
                                   std::size_t from, SearchMode mode, PatternMatch& match) {
    if (program.isPrefixOnly()) return search(program, text, from, mode, match);
    match.reset(program.groupCount() + 1);
    Run run{program, text, from, mode, match.slots(), 2 * match.size(), 0, nullptr};
    return runAllWays(run, from);
}

/// Lets the threads at `position` and, while there is no match, a new one from the start take the
/// byte there. A thread that accepts ends the ones behind it; those before it may still give a
/// match that is preferred. So what is come to behind the end of the match that stands at last has
/// failed, and the next search of a walk begins at that end.
bool PatternMatcher::runAllWays(Run& run, std::size_t start) {
    const PatternProgram& program = run.program;
    const std::size_t slotCount = run.slotCount;
    const std::size_t end = run.text.size();
    bool matched = false;
    fallback_.assign(slotCount, kUnset);
    alive_.states.clear();
    reachedAt_.assign(program.stateCount(), 0);
    std::vector<std::size_t> fresh(slotCount, kUnset);

    for (std::size_t position = start;; ++position) {
        countWork(8 * (alive_.states.size() + 1));
        if (alive_.states.empty() && !matched && !run.mode.onlyHere && position != run.from) {
            position = findOneOf(run.text, position, program.firstBytes());
        }
        next_.states.clear();
        bool cut = false;
        for (std::size_t i = 0; i < alive_.states.size() && !cut; ++i) {
            cut = followThread(run, alive_.states[i], &alive_.slots[i * slotCount], position);
        }
        matched = matched || cut;
        if (!matched && (!run.mode.onlyHere || position == run.from)) {
            const bool isFirst = position == run.from;
            fresh[0] = position;
            matched = followThread(run,
                                   program.startState(isFirst && run.mode.atLineBegin,
                                                      isFirst && run.mode.refusesEmpty),
                                   fresh.data(), position);
        }
        std::swap(alive_, next_);
        if (position == end) break;
        if (alive_.states.empty() && (matched || run.mode.onlyHere)) break;
    }
    if (matched) std::copy(fallback_.begin(), fallback_.end(), run.slots);
    return matched;
}

/// Follows one thread over the byte at `position`, or over the end of the text. True if it accepts
/// there; its slots are in `fallback_` then.
bool PatternMatcher::followThread(Run& run, std::uint16_t stateId, const std::size_t* slots,
                                  std::size_t position) {
    const PatternProgram& program = run.program;
    const PatternEdge* const edges = program.edges();
    const PatternState& state = program.state(stateId);
    const std::size_t variant =
        program.looksAtWords() && isWordBoundary(run.text, position, run.from, run.mode) ? 1 : 0;
    std::uint32_t edgeId =
        position < run.text.size()
            ? state.rows[variant]
                        [program.byteClasses()[static_cast<unsigned char>(run.text[position])]]
            : state.atEnd[variant];
    for (; edgeId != 0; edgeId = edges[edgeId].lesser) {
        const PatternEdge& edge = edges[edgeId];
        if (edge.target == kAcceptState) {
            fallback_.assign(slots, slots + run.slotCount);
            for (const std::uint16_t slot : program.slotsOf(edge.action)) {
                fallback_[slot] = position;
            }
            fallback_[1] = position;
            return true;
        }
        // A way of higher preference has come there already.
        if (reachedAt_[edge.target] == position + 1) continue;
        reachedAt_[edge.target] = position + 1;
        if (run.failed != nullptr) {
            const std::size_t place = edge.target * (run.text.size() + 1) + position + 1;
            const std::uint64_t bit = std::uint64_t{1} << (place % 64);
            if ((run.failed[place / 64] & bit) != 0) continue;
            run.failed[place / 64] |= bit;
        }
        const std::size_t first = next_.states.size() * run.slotCount;
        next_.states.push_back(edge.target);
        if (next_.slots.size() < first + run.slotCount) {
            next_.slots.resize(2 * (first + run.slotCount));
        }
        std::size_t* const copied = next_.slots.data() + first;
        for (std::size_t i = 0; i < run.slotCount; ++i) copied[i] = slots[i];
        if (edge.action == 0) continue;
        for (const std::uint16_t slot : program.slotsOf(edge.action)) copied[slot] = position;
    }
    return false;
}
