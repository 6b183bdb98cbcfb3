#include "value/run_context.h"

#ifdef DOVREL_EMBEDDED

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

#include "value/array_storage.h"
#include "value/table.h"
#include "value/variable.h"

namespace {

// What takes a few nanoseconds for each piece counts for less than a statement.
constexpr std::size_t kWorkForEachStatement = 64;

std::uint64_t now() noexcept {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

}  // namespace

void countWork(std::size_t amount) {
    RunContext* const context = RunContext::running();
    if (context == nullptr || !context->watch.isDue(amount / kWorkForEachStatement)) return;
    const StopReason reason = context->watch.reasonToStop();
    if (reason != StopReason::None) throw ScriptStopped{reason};
}

// ---------------------------------------------------------------- the watch

void ScriptWatch::begin(std::uint64_t statements, std::uint64_t nanoseconds,
                        std::uint64_t calls) noexcept {
    statements_ = statements;
    deadline_ = nanoseconds == 0 ? 0 : now() + nanoseconds;
    mostCalls_ = calls == 0 ? std::numeric_limits<std::uint64_t>::max() : calls;
    done_ = 0;
    memoryExceeded_ = false;
    // One that has met no script is over.
    wanted_.store(false, std::memory_order_relaxed);
    interrupted_.store(false, std::memory_order_relaxed);
    refill();
}

void ScriptWatch::end() noexcept {
    done_ = statementsRun();
    stepsToLook_ = given_ = kStepsBetweenLooks;
    statements_ = deadline_ = 0;
    memoryExceeded_ = false;
    mostCalls_ = std::numeric_limits<std::uint64_t>::max();
}

std::uint64_t ScriptWatch::statementsRun() const noexcept {
    return done_ + static_cast<std::uint64_t>(given_ - stepsToLook_);
}

void ScriptWatch::refill() noexcept {
    given_ = kStepsBetweenLooks;
    if (statements_ != 0) {
        const std::uint64_t left = statements_ > done_ ? statements_ - done_ : 0;
        given_ = static_cast<std::int64_t>(std::min<std::uint64_t>(left, kStepsBetweenLooks));
    }
    stepsToLook_ = given_;
}

StopReason ScriptWatch::reasonToStop() noexcept {
    done_ = statementsRun();
    refill();
    // Whoever asks for an interruption writes the one before the other.
    wanted_.store(false, std::memory_order_relaxed);
    if (interrupted_.exchange(false, std::memory_order_acquire)) return StopReason::Interrupted;
    // Asked again and again until the script has ended, whoever swallows the end meanwhile.
    if (memoryExceeded_) {
        wanted_.store(true, std::memory_order_relaxed);
        return StopReason::Memory;
    }
    if (statements_ != 0 && done_ > statements_) return StopReason::Statements;
    if (deadline_ != 0 && now() > deadline_) return StopReason::Time;
    return StopReason::None;
}

// ---------------------------------------------------------------- the context

thread_local constinit RunContext* RunContext::running_ = nullptr;

RunContext& RunContext::ofProcess() noexcept {
    // Never destroyed, since values may outlive the statics of this file.
    static auto& context = *new RunContext;
    return context;
}

RunContext::~RunContext() { releaseContainers(); }

void RunContext::add(ContainerLink& link, bool isTable) noexcept {
    ContainerLink& list = isTable ? tables_ : arrays_;
    link.previous = &list;
    link.next = list.next;
    list.next->previous = &link;
    list.next = &link;
}

void RunContext::remove(ContainerLink& link) noexcept {
    if (link.next == nullptr) return;
    link.previous->next = link.next;
    link.next->previous = link.previous;
    link.previous = link.next = nullptr;
}

void RunContext::releaseContainers() noexcept {
    // What is taken out of a container may hold the last reference to that container itself, so
    // nothing is touched behind it. Each is looked at once: it has left the list by then.
    while (arrays_.next != &arrays_) {
        ContainerLink& link = *arrays_.next;
        remove(link);
        auto& front = static_cast<BlockFront<ArrayStorage>&>(link);
        const ArrayStorage content = std::move(Shared<ArrayStorage>::contentOf(front));
    }
    while (tables_.next != &tables_) {
        ContainerLink& link = *tables_.next;
        remove(link);
        auto& front = static_cast<BlockFront<TableStorage>&>(link);
        const TableStorage content(std::move(Shared<TableStorage>::contentOf(front)));
    }
}

#endif
