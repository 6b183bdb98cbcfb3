#include "library/pattern_graph.h"

#include <string>
#include <unordered_map>
#include <utility>

namespace {

// Far below the standard library's own bound, so that an expression that is read is valid there.
constexpr std::size_t kMostNodes = 20000;
constexpr int kDeepestGroup = 200;    // the reader recurses for each
constexpr int kHighestCount = 10000;  // in braces
constexpr int kUnreadable = -1;

[[nodiscard]] constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// What an escape or a plain byte stands for.
struct Atom {
    enum class Kind : std::uint8_t {
        Byte,            // `c`
        Class,           // the class of the letter `c`
        WordBoundary,    // "\b"
        NoWordBoundary,  // "\B"
        Unreadable,
    };
    Kind kind = Kind::Unreadable;
    char c = '\0';
};

/// A part of the graph under construction: its first node, and the one whose `next` is open.
struct Sequence {
    std::uint32_t start = kNoNode;
    std::uint32_t end = kNoNode;
};

class GraphReader {
public:
    GraphReader(std::string_view source, bool ignoresCase)
        : source_(source), ignoresCase_(ignoresCase) {}

    [[nodiscard]] std::optional<PatternGraph> read() {
        Sequence whole = readDisjunction();
        if (failed_ || position_ != source_.size()) return std::nullopt;
        append(whole, insert({PatternNodeKind::Accept}));
        if (failed_) return std::nullopt;
        graph_.start = whole.start;
        return std::move(graph_);
    }

private:
    [[nodiscard]] bool atEnd() const { return position_ >= source_.size(); }
    [[nodiscard]] bool nextIs(char c) const { return !atEnd() && source_[position_] == c; }
    [[nodiscard]] bool take(char c) {
        if (!nextIs(c)) return false;
        ++position_;
        return true;
    }
    [[nodiscard]] bool take(std::string_view text) {
        if (!source_.substr(position_).starts_with(text)) return false;
        position_ += text.size();
        return true;
    }

    std::uint32_t insert(const PatternNode& node) {
        if (graph_.nodes.size() >= kMostNodes) {
            failed_ = true;
            return 0;
        }
        graph_.nodes.push_back(node);
        return static_cast<std::uint32_t>(graph_.nodes.size() - 1);
    }
    [[nodiscard]] Sequence single(const PatternNode& node) {
        const std::uint32_t id = insert(node);
        return {id, id};
    }
    void append(Sequence& front, std::uint32_t node) { append(front, Sequence{node, node}); }
    void append(Sequence& front, Sequence back) {
        if (failed_) return;
        graph_.nodes[front.end].next = back.start;
        front.end = back.end;
    }

    [[nodiscard]] Sequence bytes(const ByteSet& set) {
        std::uint32_t index = 0;
        while (index < graph_.sets.size() && !(graph_.sets[index] == set)) ++index;
        if (index == graph_.sets.size()) graph_.sets.push_back(set);
        return single({PatternNodeKind::Bytes, false, index});
    }

    [[nodiscard]] Sequence readDisjunction();
    [[nodiscard]] Sequence readAlternative();
    [[nodiscard]] bool readTerm(Sequence& term);
    [[nodiscard]] bool readAssertion(Sequence& term);
    [[nodiscard]] bool readAtom(Sequence& term);
    void readGroup(Sequence& term);
    [[nodiscard]] bool readQuantifier(Sequence& term);
    void readBraces(Sequence& term);
    [[nodiscard]] int readCount();
    [[nodiscard]] Sequence repeatTimes(Sequence part, int least, int more, bool unbounded,
                                       bool lazy);
    [[nodiscard]] Sequence clone(Sequence part);
    [[nodiscard]] Atom readEscape(bool insideSet);
    [[nodiscard]] bool readHex(int digits, char& c);
    [[nodiscard]] ByteSet readSet();
    [[nodiscard]] bool readName(ByteSet& named);

    std::string_view source_;
    bool ignoresCase_;
    std::size_t position_ = 0;
    int depth_ = 0;
    bool failed_ = false;
    PatternGraph graph_;
};

Sequence GraphReader::readDisjunction() {
    Sequence left = readAlternative();
    while (!failed_ && take('|')) {
        Sequence right = readAlternative();
        const std::uint32_t end = insert({});
        append(left, end);
        append(right, end);
        left = {insert({PatternNodeKind::Alternative, false, 0, right.start, left.start}), end};
    }
    return left;
}

Sequence GraphReader::readAlternative() {
    Sequence whole;
    Sequence term;
    while (!failed_ && readTerm(term)) {
        if (whole.start == kNoNode) {
            whole = term;
        } else {
            append(whole, term);
        }
    }
    if (whole.start == kNoNode) return single({});
    append(whole, insert({}));
    return whole;
}

bool GraphReader::readTerm(Sequence& term) {
    // An assertion takes no quantifier: one behind it is an error that shows at the next term.
    if (readAssertion(term)) return true;
    if (!readAtom(term)) return false;
    while (!failed_ && readQuantifier(term)) {
    }
    return true;
}

bool GraphReader::readAssertion(Sequence& term) {
    if (take('^')) {
        term = single({PatternNodeKind::LineBegin});
    } else if (take('$')) {
        term = single({PatternNodeKind::LineEnd});
    } else if (take("\\b")) {
        term = single({PatternNodeKind::WordBoundary, false});
    } else if (take("\\B")) {
        term = single({PatternNodeKind::WordBoundary, true});
    } else {
        return false;
    }
    return true;
}

bool GraphReader::readAtom(Sequence& term) {
    if (atEnd()) return false;
    const char c = source_[position_];
    switch (c) {
        // A "{" is no atom, and so not a byte that stands for itself; "]" and "}" are.
        case '*':
        case '+':
        case '?':
        case ')':
        case '|':
        case '{': return false;
        case '(': readGroup(term); return true;
        case '[': {
            ++position_;
            const ByteSet set = readSet();
            term = bytes(set);
            return true;
        }
        case '.': {
            ++position_;
            ByteSet lineEnds;
            lineEnds.add('\n');
            lineEnds.add('\r');
            lineEnds.invert();
            term = bytes(lineEnds);
            return true;
        }
        case '\\': {
            ++position_;
            const Atom atom = readEscape(false);
            if (atom.kind == Atom::Kind::Byte) {
                term = bytes(byteSetOf(atom.c, ignoresCase_));
            } else if (atom.kind == Atom::Kind::Class) {
                term = bytes(classSet(atom.c));
            } else {
                failed_ = true;
            }
            return true;
        }
        default: {
            ++position_;
            term = bytes(byteSetOf(c, ignoresCase_));
            return true;
        }
    }
}

void GraphReader::readGroup(Sequence& term) {
    ++position_;
    if (depth_ == kDeepestGroup) {
        failed_ = true;
        return;
    }
    ++depth_;
    if (take('?')) {
        // Anything but "(?:" is look-ahead or an error.
        if (!take(':')) failed_ = true;
        term = single({});
        if (!failed_) append(term, readDisjunction());
    } else {
        const std::uint32_t group = ++graph_.groups;
        term = single({PatternNodeKind::GroupBegin, false, group});
        append(term, readDisjunction());
        append(term, insert({PatternNodeKind::GroupEnd, false, group}));
    }
    --depth_;
    if (!take(')')) failed_ = true;
}

bool GraphReader::readQuantifier(Sequence& term) {
    if (atEnd()) return false;
    const char quantifier = source_[position_];
    if (quantifier == '{') {
        readBraces(term);
        return true;
    }
    if (quantifier != '*' && quantifier != '+' && quantifier != '?') return false;
    ++position_;
    const bool lazy = take('?');
    const std::uint32_t repeat = insert({PatternNodeKind::Repeat, lazy, 0, kNoNode, term.start});
    if (quantifier == '*') {
        append(term, repeat);
        term = {repeat, repeat};
    } else if (quantifier == '+') {
        append(term, repeat);
    } else {
        const std::uint32_t end = insert({});
        append(term, end);
        Sequence choice{repeat, repeat};
        append(choice, end);
        term = choice;
    }
    return true;
}

int GraphReader::readCount() {
    if (atEnd() || !isDigit(source_[position_])) return kUnreadable;
    int count = 0;
    while (!atEnd() && isDigit(source_[position_])) {
        count = count * 10 + (source_[position_] - '0');
        if (count > kHighestCount) return kUnreadable;
        ++position_;
    }
    return count;
}

void GraphReader::readBraces(Sequence& term) {
    ++position_;
    const int least = readCount();
    int most = least;
    bool unbounded = false;
    if (take(',')) {
        unbounded = nextIs('}');
        if (!unbounded) most = readCount();
    }
    if (least == kUnreadable || most < least || !take('}')) {
        failed_ = true;
        return;
    }
    const bool lazy = take('?');
    term = repeatTimes(term, least, most - least, unbounded, lazy);
}

/// `part` copied `least` times, and behind that once more any number of times or up to `more`
/// times, each of these a choice of its own.
Sequence GraphReader::repeatTimes(Sequence part, int least, int more, bool unbounded, bool lazy) {
    Sequence whole = single({});
    for (int i = 0; i < least && !failed_; ++i) append(whole, clone(part));
    if (unbounded) {
        Sequence again = clone(part);
        const std::uint32_t repeat =
            insert({PatternNodeKind::Repeat, lazy, 0, kNoNode, again.start});
        append(again, repeat);
        append(whole, repeat);
        return whole;
    }
    const std::uint32_t end = insert({});
    for (int i = 0; i < more && !failed_; ++i) {
        const Sequence again = clone(part);
        const std::uint32_t repeat = insert({PatternNodeKind::Repeat, lazy, 0, end, again.start});
        append(whole, {repeat, again.end});
    }
    append(whole, end);
    return whole;
}

Sequence GraphReader::clone(Sequence part) {
    std::unordered_map<std::uint32_t, std::uint32_t> copies;
    std::vector<std::uint32_t> open{part.start};
    while (!open.empty() && !failed_) {
        const std::uint32_t id = open.back();
        open.pop_back();
        if (copies.contains(id)) continue;
        const PatternNode node = graph_.nodes[id];
        copies[id] = insert(node);
        if (node.other != kNoNode) open.push_back(node.other);
        if (id != part.end && node.next != kNoNode) open.push_back(node.next);
    }
    if (failed_) return {};
    for (const auto& [original, copy] : copies) {
        PatternNode& node = graph_.nodes[copy];
        node.next = original == part.end || node.next == kNoNode ? kNoNode : copies.at(node.next);
        if (node.other != kNoNode) node.other = copies.at(node.other);
    }
    return {copies.at(part.start), copies.at(part.end)};
}

bool GraphReader::readHex(int digits, char& c) {
    unsigned int value = 0;
    for (int i = 0; i < digits; ++i) {
        const int digit = atEnd() ? kUnreadable : hexDigitValue(source_[position_]);
        if (digit == kUnreadable) return false;
        value = value * 16 + static_cast<unsigned int>(digit);
        ++position_;
    }
    c = static_cast<char>(static_cast<unsigned char>(value & 0xFFU));
    return true;
}

/// Reads what follows a backslash.
Atom GraphReader::readEscape(bool insideSet) {
    if (atEnd()) return {};
    const char c = source_[position_++];
    switch (c) {
        case '0': return {Atom::Kind::Byte, '\0'};
        case 'f': return {Atom::Kind::Byte, '\f'};
        case 'n': return {Atom::Kind::Byte, '\n'};
        case 'r': return {Atom::Kind::Byte, '\r'};
        case 't': return {Atom::Kind::Byte, '\t'};
        case 'v': return {Atom::Kind::Byte, '\v'};
        case 'b': return {insideSet ? Atom::Kind::Byte : Atom::Kind::WordBoundary, '\b'};
        case 'B': return {Atom::Kind::NoWordBoundary};
        case 'd':
        case 'D':
        case 's':
        case 'S':
        case 'w':
        case 'W': return {Atom::Kind::Class, c};
        case 'c':
            // The byte behind it stands for itself, whatever the notation means elsewhere.
            if (atEnd()) return {};
            return {Atom::Kind::Byte, source_[position_++]};
        case 'x':
        case 'u': {
            Atom atom{Atom::Kind::Byte};
            return readHex(c == 'x' ? 2 : 4, atom.c) ? atom : Atom{};
        }
        default: return isDigit(c) ? Atom{} : Atom{Atom::Kind::Byte, c};
    }
}

/// Reads the name of a class inside of a set, such as "[:alpha:]". False if none begins here.
bool GraphReader::readName(ByteSet& named) {
    constexpr std::string_view kBeginsName = ".:=";
    if (!nextIs('[')) return false;
    const std::string_view rest = source_.substr(position_ + 1);
    if (!rest.empty() && kBeginsName.find(rest[0]) == std::string_view::npos) return false;
    const std::size_t end = rest.find(':', 1);
    if (rest.empty() || rest[0] != ':' || end == std::string_view::npos ||
        !rest.substr(end + 1).starts_with(']')) {
        failed_ = true;
        return true;
    }
    const auto set = namedSet(rest.substr(1, end - 1), ignoresCase_);
    if (set.has_value()) named = *set;
    failed_ = !set.has_value();
    position_ += end + 3;
    return true;
}

/// Reads a set behind its "[" up to and with the "]". A byte waits in `last` until what follows has
/// shown that it does not begin a range.
ByteSet GraphReader::readSet() {
    enum class Last : std::uint8_t { None, Byte, Class };
    ByteSet set;
    const bool inverse = take('^');
    Last last = Last::None;
    char lastByte = '\0';
    bool isFirst = true;
    const auto addLast = [&](Last next) {
        if (last == Last::Byte) set.addAll(byteSetOf(lastByte, ignoresCase_));
        last = next;
    };
    const auto keep = [&](char c) {
        addLast(Last::Byte);
        lastByte = c;
    };
    /// Reads a byte or a class by letter.
    const auto readMember = [&]() -> Atom {
        const char c = source_[position_++];
        return c == '\\' ? readEscape(true) : Atom{Atom::Kind::Byte, c};
    };
    ByteSet named;

    for (; !failed_ && !take(']'); isFirst = false) {
        if (atEnd()) {
            failed_ = true;
        } else if (readName(named)) {
            addLast(Last::Class);
            set.addAll(named);
        } else if (!take('-')) {
            const Atom member = readMember();
            if (member.kind == Atom::Kind::Byte) {
                keep(member.c);
            } else if (member.kind == Atom::Kind::Class) {
                addLast(Last::Class);
                set.addAll(classSet(member.c));
            } else {
                failed_ = true;
            }
        } else if (isFirst || nextIs(']') || last == Last::None) {
            // It stands for itself at both ends, and behind a range, where it may begin another.
            keep('-');
        } else if (last == Last::Class || atEnd() || readName(named)) {
            failed_ = true;
        } else {
            const Atom member = take('-') ? Atom{Atom::Kind::Byte, '-'} : readMember();
            failed_ = member.kind != Atom::Kind::Byte || lastByte > member.c;
            if (!failed_) set.addAll(rangeSet(lastByte, member.c, ignoresCase_));
            last = Last::None;
        }
    }
    addLast(Last::None);
    if (inverse) set.invert();
    return set;
}

}  // namespace

std::optional<PatternGraph> readPatternGraph(std::string_view source, bool ignoresCase) {
    return GraphReader(source, ignoresCase).read();
}
