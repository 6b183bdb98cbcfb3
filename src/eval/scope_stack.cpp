// What a stack of scopes does seldom: searches that go far, and giving memory back.
#include <algorithm>

#include "eval/scope.h"
#include "value/page_release.h"

namespace {

/// So many spare scopes are never far more than needed.
constexpr std::size_t kMostSpare = 16384;

}  // namespace

/// As `find`; `ceiling` is no scope's above the innermost one.
EntryPlace ScopeStack::findFar(Name name, std::size_t floor, std::size_t ceiling) const {
    if (far_ == nullptr) far_ = std::make_unique<FarSearches>();
    FarSearches& far = *far_;
    std::vector<FarSearches::Answer>& answers = far.answers[name];
    const auto isGone = [&](const FarSearches::Answer& answer) {
        return answer.below >= count_ || !scopes_[answer.below].isMarked() ||
               far.marks[answer.below / FarSearches::kStride] != answer.mark;
    };
    // Those of scopes above one that is gone are gone as well.
    while (!answers.empty() && isGone(answers.back())) answers.pop_back();

    // All scopes between `ceiling` and the nearest place with an answer, be it below `floor`: the
    // answers are about all scopes below a place.
    auto above = answers.end();
    if (!answers.empty() && answers.back().below > ceiling) {
        above = std::upper_bound(
            answers.begin(), answers.end(), ceiling,
            [](std::size_t at, const FarSearches::Answer& answer) { return at < answer.below; });
    }
    const std::size_t known = above == answers.begin() ? 0 : std::prev(above)->below;
    EntryPlace place = above == answers.begin() ? EntryPlace{} : std::prev(above)->place;
    std::size_t nothingFrom = known;  // from there on up to `ceiling`
    for (std::size_t i = ceiling; i-- > known;) {
        ++far.scopesSearched;
        const std::size_t entry = scopes_[i].find(name);
        if (entry == scopes_[i].size()) continue;
        place = {i, entry};
        nothingFrom = i + 1;
        break;
    }

    // The same answer for all places on the way.
    constexpr std::size_t kStride = FarSearches::kStride;
    const std::size_t lowest = std::max(nothingFrom, known + 1);
    const std::size_t first = (lowest + kStride - 1) / kStride;
    const std::size_t end = ceiling / kStride + 1;
    if (first < end) {
        if (far.marks.size() < end) far.marks.resize(end);
        auto added = answers.insert(above, end - first, FarSearches::Answer{});
        for (std::size_t slot = first; slot < end; ++slot, ++added) {
            const Scope& scope = scopes_[slot * kStride];
            if (!scope.isMarked()) {
                far.marks[slot] = ++far.lastMark;
                scope.mark();
            }
            *added = {slot * kStride, far.marks[slot], place};
        }
    }
    return place.isFound() && place.scope >= floor ? place : EntryPlace{};
}

bool ScopeStack::giveBack(std::size_t expected) noexcept {
    const std::size_t needed = count_ + expected;
    if (made_ <= 2 * needed + kMostSpare) return false;
    made_ = needed + kMostSpare / 2;
    scopes_.resize(made_);
    // The vector keeps its room, since where it stands can be told by the slot caches.
    releasePages(scopes_.data() + made_, scopes_.data() + scopes_.capacity());
    if (far_ != nullptr) {
        // Numbers of marks go on, so that what is forgotten is not taken for something new.
        far_->answers.clear();
        far_->marks = {};
    }
    return true;
}
