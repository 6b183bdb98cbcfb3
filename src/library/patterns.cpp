#include "library/patterns.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <unordered_map>
#include <utility>

#include "eval/errors.h"
#include "library/host_stack.h"
#include "library/pattern_graph.h"
#include "value/array_storage.h"
#include "value/run_context.h"

namespace {

/// The offset behind the number at `position`, or 0 for one with more digits than the standard
/// library can count in: it reads on without looking, and an overflow there is undefined.
[[nodiscard]] std::size_t endOfNumber(std::string_view expression, std::size_t position) {
    const std::size_t size = expression.size();
    const std::size_t first = std::min(expression.find_first_not_of('0', position), size);
    const std::size_t end = std::min(expression.find_first_not_of("0123456789", first), size);
    return end - first > std::numeric_limits<std::int64_t>::digits10 ? 0 : end;
}

/// Whether the standard library can read every number of `expression`: those behind a backslash,
/// and one or two in braces.
[[nodiscard]] bool hasReadableNumbers(std::string_view expression) {
    std::size_t position = 0;
    while ((position = expression.find_first_of("\\{", position)) != std::string_view::npos) {
        const bool isEscape = expression[position] == '\\';
        const std::size_t begin = position + 1;
        position = endOfNumber(expression, begin);
        if (position == 0) return false;
        const char behind = position < expression.size() ? expression[position] : '}';
        if (isEscape && position == begin) {
            ++position;  // what is escaped begins nothing
        } else if (!isEscape && behind == ',') {
            position = endOfNumber(expression, position + 1);
            if (position == 0) return false;
        }
    }
    return true;
}

[[nodiscard]] std::unique_ptr<const std::regex> compileStandard(const PatternSource& source) {
    try {
        return std::make_unique<const std::regex>(standardExpression(source));
    } catch (const std::regex_error& error) {
        // The expression is shown, not the script's pattern: the library's words are about it.
        throwPlainError("gsub: invalid regex pattern '" + source.expression + "': " + error.what());
    }
}

// What one step of the standard matcher takes of the host's stack, a third more than was seen. Its
// frames are larger under the sanitizers.
#if defined(__SANITIZE_ADDRESS__)
#define DOVREL_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DOVREL_ADDRESS_SANITIZER 1
#endif
#endif
#ifdef DOVREL_ADDRESS_SANITIZER
constexpr std::size_t kStackForEachStep = 1500;
#else
constexpr std::size_t kStackForEachStep = 400;
#endif

/// How much of the host's stack the standard matcher may take for each byte of a text. It calls
/// itself for each byte, and for each node of the expression that it passes in between. Without a
/// repetition the length of the text does not matter.
[[nodiscard]] std::size_t standardStackForEachByte(std::string_view expression) {
    constexpr std::string_view kMayRepeat = "*+{";
    constexpr std::string_view kMayMakeNodes = "*+?{}()|^$\\";
    if (expression.find_first_of(kMayRepeat) == std::string_view::npos) return 0;
    const auto nodes = static_cast<std::size_t>(std::count_if(
        expression.begin(), expression.end(),
        [kMayMakeNodes](char c) { return kMayMakeNodes.find(c) != std::string_view::npos; }));
    return (nodes + 1) * kStackForEachStep;
}

using Cache = std::unordered_map<std::string, std::unique_ptr<const CompiledPattern>>;

/// Where a pattern is looked for before the cache: most scripts use few at a time.
struct RecentPattern {
    const std::string* text = nullptr;
    const CompiledPattern* compiled = nullptr;
};
constexpr std::size_t kRecentPatterns = 64;

// One matcher: it only keeps storage between searches, and no search runs inside of another. The
// cache is without a limit: compiling costs far more than a match, and scripts have few patterns.
#ifdef DOVREL_EMBEDDED
struct PatternStore : RunContext::Part {
    PatternMatcher matcher;
    std::array<RecentPattern, kRecentPatterns> recentPatterns;
    Cache cache;
};

[[nodiscard]] PatternStore& store() {
    std::unique_ptr<RunContext::Part>& part = RunContext::current().patterns;
    if (part == nullptr) part = std::make_unique<PatternStore>();
    return static_cast<PatternStore&>(*part);
}

[[nodiscard]] PatternMatcher& theMatcher() { return store().matcher; }
[[nodiscard]] RecentPattern& recentPattern(std::size_t index) {
    return store().recentPatterns[index];
}
[[nodiscard]] Cache& theCache() { return store().cache; }
#else
constinit PatternMatcher matcher;
constinit std::array<RecentPattern, kRecentPatterns> recentPatterns;

[[nodiscard]] PatternMatcher& theMatcher() { return matcher; }
[[nodiscard]] RecentPattern& recentPattern(std::size_t index) { return recentPatterns[index]; }
[[nodiscard]] Cache& theCache() {
    static Cache cache;
    return cache;
}
#endif

/// The standard library's matcher may take a time that doubles with each byte, and nobody can stop
/// it: a script with limits must do without.
void requireTimeWithoutLimit([[maybe_unused]] const PatternSource& source) {
#ifdef DOVREL_EMBEDDED
    const RunContext* const context = RunContext::running();
    if (context == nullptr || !context->watch.limitsWork()) return;
    throwPlainError("gsub: pattern '" + source.expression + "' takes a matcher that has no limits");
#endif
}

[[nodiscard]] std::size_t recentIndex(std::string_view pattern) {
    if (pattern.empty()) return 0;
    const auto byteAt = [pattern](std::size_t index) {
        return static_cast<std::size_t>(static_cast<unsigned char>(pattern[index]));
    };
    const std::size_t size = pattern.size();
    return (size * 7 + byteAt(size / 2) * 5 + byteAt(size - 1) * 3 + byteAt(size / 3)) %
           kRecentPatterns;
}

}  // namespace

std::regex standardExpression(const PatternSource& source) {
    if (!hasReadableNumbers(source.expression)) {
        throw std::regex_error(std::regex_constants::error_backref);
    }
    return std::regex(source.expression, source.ignoresCase
                                             ? std::regex::ECMAScript | std::regex::icase
                                             : std::regex::ECMAScript);
}

CompiledPattern::CompiledPattern(std::string_view pattern, MatchedBy by) {
    const PatternSource source = readPatternSource(pattern);
    if (by == MatchedBy::Whoever) {
        if (const auto graph = readPatternGraph(source.expression, source.ignoresCase)) {
            program_ = PatternProgram::make(*graph);
        }
    }
    if (program_ != nullptr) return;
    requireTimeWithoutLimit(source);
    standard_ = compileStandard(source);
    stackForEachByte_ = standardStackForEachByte(source.expression);
}

bool CompiledPattern::search(std::string_view text, std::size_t from, SearchMode mode,
                             PatternMatch& match, WalkMemory* memory) const {
    if (program_ != nullptr) return theMatcher().search(*program_, text, from, mode, match, memory);
    return searchStandard(text, from, mode, match);
}

bool CompiledPattern::searchStandard(std::string_view text, std::size_t from, SearchMode mode,
                                     PatternMatch& match) const {
    if (!hasHostStackFor(text.size() - from, stackForEachByte_)) {
        throwPlainError(std::regex_error(std::regex_constants::error_stack).what());
    }
    auto flags = std::regex_constants::match_default;
    if (!mode.atLineBegin) flags |= std::regex_constants::match_prev_avail;
    if (mode.onlyHere) flags |= std::regex_constants::match_continuous;
    if (mode.refusesEmpty) flags |= std::regex_constants::match_not_null;
    std::cmatch found;
    if (!std::regex_search(text.data() + from, text.data() + text.size(), found, *standard_,
                           flags)) {
        return false;
    }
    match.reset(found.size());
    for (std::size_t group = 0; group < found.size(); ++group) {
        if (!found[group].matched) continue;
        match.set(group, {static_cast<std::size_t>(found[group].first - text.data()),
                          static_cast<std::size_t>(found[group].second - text.data())});
    }
    return true;
}

const CompiledPattern& compiledPattern(const std::string& pattern) {
    RecentPattern& recent = recentPattern(recentIndex(pattern));
    if (recent.text != nullptr && *recent.text == pattern) return *recent.compiled;
    Cache& cache = theCache();
    auto found = cache.find(pattern);
    if (found == cache.end()) {
        // Compiled first, so that a failure leaves no entry behind.
        auto compiled = std::make_unique<const CompiledPattern>(pattern);
        found = cache.emplace(pattern, std::move(compiled)).first;
    }
    recent = {&found->first, found->second.get()};
    return *found->second;
}

bool PatternWalk::next() {
    if (ended_) return false;
    std::size_t start = 0;
    if (!started_) {
        started_ = true;
    } else {
        const TextRange last = match_.whole();
        start = last.end;
        if (last.first == last.end) {
            if (start == text_.size()) {
                ended_ = true;
                return false;
            }
            if (pattern_.search(text_, start, {atLineBegin_, true, true}, match_, &memory_)) {
                return true;
            }
            ++start;
        }
        atLineBegin_ = false;
    }
    ended_ = !pattern_.search(text_, start, {atLineBegin_, false, false}, match_, &memory_);
    return !ended_;
}

template <class Values>
Variable matchValue(std::string_view text, const PatternMatch& match,
                    Variable (*makeSeveral)(Values&&)) {
    if (match.size() <= 2) return Variable(std::string(match.text(text, match.size() - 1)));
    Values groups;
    groups.reserve(match.size() - 1);
    for (std::size_t group = 1; group < match.size(); ++group) {
        if (match.has(group)) {
            groups.push_back(Variable(std::string(match.text(text, group))));
        } else {
            groups.push_back(Variable());
        }
    }
    return makeSeveral(std::move(groups));
}
template Variable matchValue(std::string_view, const PatternMatch&,
                             Variable (*)(std::vector<Variable>&&));

bool GmatchWalk::next(Variable& element) {
    // A step is made only when it is asked for: a search that fails must not cost the element
    // before it.
    if (!walk_.next()) return false;
    const PatternMatch& match = walk_.match();
    if (match.size() <= 2 && element.type == VarType::String) {
        element.mutableString().assign(match.text(text_, match.size() - 1));
    } else {
        element = matchValue(text_, match, Variable::makeArray);
    }
    return true;
}
