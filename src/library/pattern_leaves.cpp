#include "library/pattern_leaves.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t kMostReachWords = std::size_t{1} << 20;
constexpr std::size_t kMostWalkSteps = std::size_t{1} << 20;  // for one state
constexpr int kMostVisits = 2;  // of a repetition at one position, before it is refused

}  // namespace

bool LeafFinder::walk(std::uint32_t start, const Surroundings& here, std::vector<Leaf>& leaves,
                      bool knowsReach) {
    leaves.clear();
    slots_.clear();
    accepted_ = false;
    foundBits_.assign(foundBits_.size(), 0);
    tasks_.assign(1, {Task::Kind::Visit, start});
    std::size_t steps = 0;
    const std::size_t mostSteps = knowsReach ? kMostWalkSteps : 100 + 2 * graph_.nodes.size();
    while (!tasks_.empty()) {
        const Task task = tasks_.back();
        tasks_.pop_back();
        switch (task.kind) {
            case Task::Kind::LeaveRepeat: --visits_[task.node]; continue;
            case Task::Kind::ForgetSlots: slots_.resize(task.node); continue;
            default: break;
        }
        // What comes behind an accepted end is never tried; only the counts are put back.
        if (accepted_ || steps > mostSteps) continue;
        ++steps;
        if (task.kind == Task::Kind::Visit) {
            visit(task.node, here, leaves, knowsReach);
        } else if (visits_[task.node] < kMostVisits) {
            ++visits_[task.node];
            tasks_.push_back({Task::Kind::LeaveRepeat, task.node});
            tasks_.push_back({Task::Kind::Visit, graph_.nodes[task.node].other});
        }
    }
    for (const Leaf& leaf : leaves) found_[leaf.node] = 0;
    return steps <= mostSteps;
}

void LeafFinder::visit(std::uint32_t id, const Surroundings& here, std::vector<Leaf>& leaves,
                       bool knowsReach) {
    const PatternNode& node = graph_.nodes[id];
    if (!passes(node, here) || (knowsReach && reachesNothingNew(id))) return;
    switch (node.kind) {
        case PatternNodeKind::Bytes: addLeaf(id, leaves); return;
        case PatternNodeKind::Accept:
            addLeaf(id, leaves);
            accepted_ = true;
            return;
        case PatternNodeKind::Repeat:
            if (node.inverse) {
                tasks_.push_back({Task::Kind::EnterRepeat, id});
                tasks_.push_back({Task::Kind::Visit, node.next});
            } else {
                tasks_.push_back({Task::Kind::Visit, node.next});
                tasks_.push_back({Task::Kind::EnterRepeat, id});
            }
            return;
        case PatternNodeKind::Alternative:
            tasks_.push_back({Task::Kind::Visit, node.next});
            tasks_.push_back({Task::Kind::Visit, node.other});
            return;
        case PatternNodeKind::GroupBegin:
        case PatternNodeKind::GroupEnd:
            tasks_.push_back({Task::Kind::ForgetSlots, static_cast<std::uint32_t>(slots_.size())});
            slots_.push_back(static_cast<std::uint16_t>(
                2 * node.index + (node.kind == PatternNodeKind::GroupEnd ? 1 : 0)));
            break;
        default: break;
    }
    tasks_.push_back({Task::Kind::Visit, node.next});
}

void LeafFinder::addLeaf(std::uint32_t node, std::vector<Leaf>& leaves) {
    // A byte that is reached a second time leads to where it has led before: nowhere.
    if (found_[node] != 0) return;
    found_[node] = 1;
    if (!foundBits_.empty()) {
        foundBits_[leafBit_[node] / 64] |= std::uint64_t{1} << (leafBit_[node] % 64);
    }
    Leaf leaf{node, slots_};
    std::sort(leaf.slots.begin(), leaf.slots.end());
    leaf.slots.erase(std::unique(leaf.slots.begin(), leaf.slots.end()), leaf.slots.end());
    leaves.push_back(std::move(leaf));
}

bool LeafFinder::reachesNothingNew(std::uint32_t node) const {
    const LeafBits& reach = reach_[node];
    for (std::size_t i = 0; i < reach.size(); ++i) {
        if ((reach[i] & ~foundBits_[i]) != 0) return false;
    }
    return true;
}

bool LeafFinder::findReach(const Surroundings& here) {
    const std::size_t count = graph_.nodes.size();
    const auto isLeaf = [this](std::size_t id) {
        const PatternNodeKind kind = graph_.nodes[id].kind;
        return kind == PatternNodeKind::Bytes || kind == PatternNodeKind::Accept;
    };
    std::uint32_t leafCount = 0;
    leafBit_.assign(count, 0);
    for (std::size_t id = 0; id < count; ++id) {
        if (isLeaf(id)) leafBit_[id] = leafCount++;
    }
    const std::size_t words = leafCount / 64 + 1;
    if (words * count > kMostReachWords) return false;
    foundBits_.assign(words, 0);
    reach_.assign(count, LeafBits(words, 0));
    for (std::size_t id = 0; id < count; ++id) {
        if (!isLeaf(id) || !passes(graph_.nodes[id], here)) continue;
        reach_[id][leafBit_[id] / 64] |= std::uint64_t{1} << (leafBit_[id] % 64);
    }
    const auto include = [&](LeafBits& into, std::uint32_t from) {
        bool grew = false;
        if (from == kNoNode) return grew;
        for (std::size_t i = 0; i < words; ++i) {
            grew = grew || (reach_[from][i] & ~into[i]) != 0;
            into[i] |= reach_[from][i];
        }
        return grew;
    };
    for (bool grew = true; grew;) {
        grew = false;
        for (std::size_t id = count; id-- > 0;) {
            const PatternNode& node = graph_.nodes[id];
            if (isLeaf(id) || !passes(node, here)) continue;
            grew = include(reach_[id], node.next) || grew;
            grew = include(reach_[id], node.other) || grew;
        }
    }
    return true;
}
