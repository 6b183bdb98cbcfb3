#include "library/pattern_program.h"

#include <algorithm>
#include <utility>

#include "library/pattern_leaves.h"

namespace {

constexpr std::uint32_t kStartStates = 4;
constexpr std::size_t kMostStates = 0xFFFE;
constexpr std::size_t kMostEdges = std::size_t{2} << 20;
constexpr std::size_t kMostRowEntries = std::size_t{8} << 20;
constexpr std::size_t kMostActions = 0xFFFF;
constexpr std::size_t kActionsLookedAt = 16;  // for one that is the same
constexpr std::size_t kLongestPrefix = 255;

}  // namespace

/// Makes the tables of one program.
class ProgramMaker {
public:
    ProgramMaker(const PatternGraph& graph, PatternProgram& program)
        : graph_(graph), program_(program), finder_(graph) {}

    [[nodiscard]] bool make() {
        program_.groups_ = graph_.groups;
        if (takeLiteral()) return true;
        if (graph_.groups * 2 + 1 >= 0xFFFF || !numberStates()) return false;
        divideBytes();
        program_.edges_.emplace_back();
        program_.actions_.emplace_back();
        for (std::uint32_t id = 0; id < program_.states_.size(); ++id) {
            if (!fillState(id) || tooLarge_) return false;
        }
        for (std::size_t id = 0; id < program_.states_.size(); ++id) {
            PatternState& state = program_.states_[id];
            for (std::size_t i = 0; i < 2; ++i) {
                state.rows[i] = program_.rows_.data() + rowOffsets_[id][i];
            }
        }
        for (std::size_t id = kStartStates; id < program_.states_.size(); ++id) findRun(id);
        findFirstBytes();
        findLeadingRun();
        findPrefix();
        findOneRun();
        return true;
    }

private:
    [[nodiscard]] bool takeLiteral();
    [[nodiscard]] bool numberStates();
    void divideBytes();
    [[nodiscard]] bool fillState(std::uint32_t id);
    [[nodiscard]] bool fillRow(std::uint32_t id, bool atWordBoundary);
    [[nodiscard]] std::uint32_t addEdges(std::uint64_t members);
    std::uint32_t addEdge(const Leaf& leaf, std::uint32_t lesser);
    [[nodiscard]] std::uint16_t actionFor(const std::vector<std::uint16_t>& slots);
    [[nodiscard]] Surroundings surroundingsOf(std::uint32_t id) const;
    void findRun(std::size_t id);
    void findFirstBytes();
    void findLeadingRun();
    void findPrefix();
    void findOneRun();

    [[nodiscard]] const PatternEdge& edge(std::uint32_t id) const { return program_.edges_[id]; }
    /// A mark for each class of bytes.
    using ClassSet = std::vector<std::uint8_t>;
    [[nodiscard]] ClassSet noClass() const { return ClassSet(classMembers_.size()); }
    [[nodiscard]] ByteSet bytesOf(const ClassSet& classes) const;

    const PatternGraph& graph_;
    PatternProgram& program_;
    LeafFinder finder_;
    std::vector<std::uint32_t> entryNodes_;    // for each state, the node to go on from
    std::vector<std::uint16_t> stateOfNode_;   // for each Bytes node
    std::vector<unsigned char> classMembers_;  // one byte of each class
    std::vector<int> classSizes_;
    std::vector<std::array<std::size_t, 2>> rowOffsets_;
    std::vector<Leaf> leaves_;
    bool tooLarge_ = false;
};

/// A text without anything special in it needs no tables.
bool ProgramMaker::takeLiteral() {
    if (graph_.groups != 0) return false;
    std::string text;
    for (std::uint32_t id = graph_.start;; id = graph_.nodes[id].next) {
        const PatternNode& node = graph_.nodes[id];
        if (node.kind == PatternNodeKind::Accept) break;
        if (node.kind == PatternNodeKind::Dummy) continue;
        if (node.kind != PatternNodeKind::Bytes || graph_.sets[node.index].size() != 1) {
            return false;
        }
        graph_.sets[node.index].forEach(
            [&](unsigned char byte) { text += static_cast<char>(byte); });
    }
    if (text.empty()) return false;
    program_.prefix_ = std::move(text);
    program_.isPrefixOnly_ = true;
    return true;
}

bool ProgramMaker::numberStates() {
    entryNodes_.assign(kStartStates, graph_.start);
    stateOfNode_.assign(graph_.nodes.size(), 0);
    // From the start on, since a part that was copied for a count in braces is no part itself.
    std::vector<bool> met(graph_.nodes.size());
    std::vector<std::uint32_t> open{graph_.start};
    while (!open.empty()) {
        const std::uint32_t id = open.back();
        open.pop_back();
        if (id == kNoNode || met[id]) continue;
        met[id] = true;
        const PatternNode& node = graph_.nodes[id];
        open.push_back(node.next);
        open.push_back(node.other);
        if (node.kind == PatternNodeKind::WordBoundary) program_.looksAtWords_ = true;
        if (node.kind == PatternNodeKind::LineBegin) program_.looksAtLineBegin_ = true;
        if (node.kind != PatternNodeKind::Bytes) continue;
        if (entryNodes_.size() == kMostStates) return false;
        stateOfNode_[id] = static_cast<std::uint16_t>(entryNodes_.size());
        entryNodes_.push_back(node.next);
    }
    program_.states_.resize(entryNodes_.size());
    rowOffsets_.resize(entryNodes_.size());
    return true;
}

/// Bytes that are in the same sets are of one class.
void ProgramMaker::divideBytes() {
    std::array<std::uint8_t, 256>& classes = program_.byteClasses_;
    std::array<int, 256> sizes{};           // of the classes
    std::array<int, 256> inside{};          // how many of a class are in the set
    std::array<std::uint8_t, 256> parts{};  // the class that these are moved to; 0 if they stay
    std::vector<std::uint8_t> touched;
    sizes[0] = 256;
    std::size_t count = 1;
    for (ByteSet set : graph_.sets) {
        // A set and its complement tell the same bytes apart.
        if (set.size() > 128) set.invert();
        touched.clear();
        set.forEach([&](unsigned char byte) {
            if (inside[classes[byte]]++ == 0) touched.push_back(classes[byte]);
        });
        for (const std::uint8_t id : touched) {
            const bool isWhole = inside[id] == sizes[id];
            parts[id] = isWhole ? std::uint8_t{0} : static_cast<std::uint8_t>(count);
            if (!isWhole) {
                sizes[id] -= inside[id];
                sizes[count++] = inside[id];
            }
            inside[id] = 0;
        }
        set.forEach([&](unsigned char byte) {
            if (parts[classes[byte]] != 0) classes[byte] = parts[classes[byte]];
        });
        for (const std::uint8_t id : touched) parts[id] = 0;
    }
    classMembers_.resize(count);
    classSizes_.assign(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(count));
    for (std::size_t byte = 0; byte < classes.size(); ++byte) {
        classMembers_[classes[byte]] = static_cast<unsigned char>(byte);
    }
}

Surroundings ProgramMaker::surroundingsOf(std::uint32_t id) const {
    Surroundings here;
    if (id < kStartStates) {
        here.atLineBegin = (id & 1U) != 0;
        here.refusesEmpty = (id & 2U) != 0;
    }
    return here;
}

bool ProgramMaker::fillState(std::uint32_t id) {
    PatternState& state = program_.states_[id];
    if (id < kStartStates && (id & 1U) != 0 && !program_.looksAtLineBegin_) {
        state.atEnd = program_.states_[id - 1].atEnd;
        rowOffsets_[id] = rowOffsets_[id - 1];
        return true;
    }
    for (const bool atWordBoundary : {false, true}) {
        const std::size_t variant = atWordBoundary ? 1 : 0;
        if (atWordBoundary && !program_.looksAtWords_) {
            state.atEnd[1] = state.atEnd[0];
            rowOffsets_[id][1] = rowOffsets_[id][0];
            break;
        }
        rowOffsets_[id][variant] = program_.rows_.size();
        if (!fillRow(id, atWordBoundary)) return false;
        Surroundings here = surroundingsOf(id);
        here.atEnd = true;
        here.atWordBoundary = atWordBoundary;
        if (!finder_.find(entryNodes_[id], here, leaves_)) return false;
        if (!leaves_.empty()) state.atEnd[variant] = addEdge(leaves_.back(), 0);
    }
    return true;
}

bool ProgramMaker::fillRow(std::uint32_t id, bool atWordBoundary) {
    Surroundings here = surroundingsOf(id);
    here.atWordBoundary = atWordBoundary;
    if (!finder_.find(entryNodes_[id], here, leaves_)) return false;
    if (program_.rows_.size() + classMembers_.size() > kMostRowEntries) return false;
    // Classes from which the same leaves can be reached share their edges.
    std::vector<std::pair<std::uint64_t, std::uint32_t>> shared;
    const bool mayShare = leaves_.size() <= 64;
    for (const unsigned char member : classMembers_) {
        if (program_.edges_.size() + leaves_.size() > kMostEdges) return false;
        std::uint64_t members = 0;
        std::uint32_t first = 0;
        for (std::size_t i = leaves_.size(); i-- > 0;) {
            const PatternNode& node = graph_.nodes[leaves_[i].node];
            const bool leads =
                node.kind == PatternNodeKind::Accept || graph_.sets[node.index].contains(member);
            if (!leads) continue;
            if (mayShare) {
                members |= std::uint64_t{1} << i;
            } else {
                first = addEdge(leaves_[i], first);
            }
        }
        if (members != 0) {
            const auto known = std::find_if(shared.begin(), shared.end(), [&](const auto& entry) {
                return entry.first == members;
            });
            if (known != shared.end()) {
                first = known->second;
            } else {
                first = addEdges(members);
                shared.emplace_back(members, first);
            }
        }
        program_.rows_.push_back(first);
    }
    return true;
}

std::uint32_t ProgramMaker::addEdges(std::uint64_t members) {
    std::uint32_t first = 0;
    for (std::size_t i = leaves_.size(); i-- > 0;) {
        if (((members >> i) & 1U) != 0) first = addEdge(leaves_[i], first);
    }
    return first;
}

std::uint32_t ProgramMaker::addEdge(const Leaf& leaf, std::uint32_t lesser) {
    PatternEdge edge;
    edge.lesser = lesser;
    edge.target = graph_.nodes[leaf.node].kind == PatternNodeKind::Accept ? kAcceptState
                                                                          : stateOfNode_[leaf.node];
    edge.action = leaf.slots.empty() ? std::uint16_t{0} : actionFor(leaf.slots);
    program_.edges_.push_back(edge);
    return static_cast<std::uint32_t>(program_.edges_.size() - 1);
}

/// Equal actions stand close together as a rule, and two of the same do no harm.
std::uint16_t ProgramMaker::actionFor(const std::vector<std::uint16_t>& slots) {
    auto& actions = program_.actions_;
    const std::size_t last = actions.size() - 1;
    for (std::size_t i = last; i > 0 && last - i < kActionsLookedAt; --i) {
        if (actions[i] == slots) return static_cast<std::uint16_t>(i);
    }
    if (actions.size() == kMostActions) {
        tooLarge_ = true;
        return 0;
    }
    actions.push_back(slots);
    return static_cast<std::uint16_t>(actions.size() - 1);
}

/// A state that may accept does so behind the run as well, so the chance to stop before is no use.
void ProgramMaker::findRun(std::size_t id) {
    PatternState& state = program_.states_[id];
    if (program_.looksAtWords_) return;
    ClassSet run = noClass();
    bool isEmpty = true;
    for (std::size_t c = 0; c < run.size(); ++c) {
        const PatternEdge& way = edge(state.rows[0][c]);
        if (way.target != id || way.action != 0) continue;
        if (way.lesser != 0 && edge(way.lesser).target != kAcceptState) continue;
        run[c] = 1;
        isEmpty = false;
    }
    if (isEmpty) return;
    auto bytes = std::make_unique<std::array<bool, 256>>();
    for (std::size_t byte = 0; byte < bytes->size(); ++byte) {
        (*bytes)[byte] = run[program_.byteClasses_[byte]] != 0;
    }
    state.run = bytes->data();
    program_.runs_.push_back(std::move(bytes));
}

/// The bytes of the classes in `classes`.
ByteSet ProgramMaker::bytesOf(const ClassSet& classes) const {
    ByteSet bytes;
    for (int byte = 0; byte < 256; ++byte) {
        if (classes[program_.byteClasses_[static_cast<std::size_t>(byte)]] != 0) {
            bytes.add(static_cast<unsigned char>(byte));
        }
    }
    return bytes;
}

void ProgramMaker::findFirstBytes() {
    const PatternState& start = program_.states_[0];
    ClassSet first = noClass();
    for (std::size_t c = 0; c < first.size(); ++c) {
        first[c] = start.rows[0][c] != 0 || start.rows[1][c] != 0 ? 1 : 0;
    }
    program_.firstBytes_ = bytesOf(first);
    program_.mayStartAtEnd_ = start.atEnd[0] != 0 || start.atEnd[1] != 0;
}

/// Where a start has one way on, and that state runs over the same bytes, a start further on in the
/// run comes to states and positions that have failed already.
void ProgramMaker::findLeadingRun() {
    const PatternState& start = program_.states_[0];
    std::uint16_t runner = 0;
    ClassSet leading = noClass();
    for (std::size_t c = 0; c < leading.size(); ++c) {
        const PatternEdge& way = edge(start.rows[0][c]);
        if (way.target == 0 || way.target == kAcceptState || way.lesser != 0) continue;
        if (runner == 0 && program_.states_[way.target].run != nullptr) runner = way.target;
        if (way.target == runner && program_.states_[runner].run[classMembers_[c]]) leading[c] = 1;
    }
    if (runner != 0) program_.leadingRun_ = bytesOf(leading);
}

void ProgramMaker::findPrefix() {
    if (program_.looksAtWords_) return;
    std::uint16_t id = 0;
    while (program_.prefix_.size() < kLongestPrefix) {
        const PatternState& state = program_.states_[id];
        if (state.atEnd[0] != 0) return;
        std::size_t only = classMembers_.size();
        for (std::size_t c = 0; c < classMembers_.size(); ++c) {
            if (state.rows[0][c] == 0) continue;
            if (only != classMembers_.size() || classSizes_[c] != 1) return;
            only = c;
        }
        if (only == classMembers_.size()) return;
        const PatternEdge& way = edge(state.rows[0][only]);
        if (way.lesser != 0 || way.action != 0 || way.target == kAcceptState) return;
        program_.prefix_ += static_cast<char>(classMembers_[only]);
        program_.stateBehindPrefix_ = way.target;
        id = way.target;
    }
}

void ProgramMaker::findOneRun() {
    if (program_.looksAtWords_ || program_.looksAtLineBegin_ || graph_.groups != 0) return;
    const PatternState& start = program_.states_[0];
    if (start.atEnd[0] != 0) return;
    std::uint16_t behind = 0;
    ClassSet roles = noClass();
    for (std::size_t c = 0; c < roles.size(); ++c) {
        const PatternEdge& way = edge(start.rows[0][c]);
        if (way.target == 0) continue;
        if (way.target == kAcceptState || way.lesser != 0) return;
        if (behind != 0 && way.target != behind) return;
        behind = way.target;
        roles[c] = PatternProgram::kBegins;
    }
    if (behind == 0) return;
    const PatternState& state = program_.states_[behind];
    if (edge(state.atEnd[0]).target != kAcceptState) return;
    for (std::size_t c = 0; c < roles.size(); ++c) {
        if (state.run != nullptr && state.run[classMembers_[c]]) {
            roles[c] |= PatternProgram::kFollows;
        } else if (edge(state.rows[0][c]).target != kAcceptState) {
            return;
        }
    }
    for (std::size_t byte = 0; byte < program_.runRoles_.size(); ++byte) {
        program_.runRoles_[byte] = roles[program_.byteClasses_[byte]];
    }
    program_.isOneRun_ = true;
}

std::unique_ptr<const PatternProgram> PatternProgram::make(const PatternGraph& graph) {
    std::unique_ptr<PatternProgram> program(new PatternProgram());
    if (!ProgramMaker(graph, *program).make()) return nullptr;
    return program;
}
