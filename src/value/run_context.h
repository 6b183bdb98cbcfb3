// What the values of one interpreter share beyond the interpreter object itself, in builds that run
// inside of other programs (DOVREL_EMBEDDED): several interpreters may be at work there at the same
// time, each on a thread of its own, and the host must get back all that a script has taken.
//
// A thread works for one context at a time; whoever enters an interpreter makes its context the
// current one by a ContextScope. The executable has one interpreter, keeps these things in the
// process, and pays for none of it.
#pragma once

#include <cstddef>
#include <cstdint>

#ifndef DOVREL_EMBEDDED

inline void countWork(std::size_t) {}

#else

#include <array>
#include <atomic>
#include <memory>
#include <string_view>

#include "value/text_block.h"

/// The library is about to do, or has done, work that takes time of itself: `amount` bytes or steps
/// of a few instructions. It counts for the limits of the script, and may stop it.
void countWork(std::size_t amount);

/// Why a script was stopped from outside.
enum class StopReason : std::uint8_t {
    None,
    Interrupted,  // somebody has asked for it
    Statements,   // limits
    Memory,
    Time,
    Recursion,
    Stack,  // the host's stack or the registers are used up
};

/// Ends the running script from outside. No standard exception, so that it passes all handlers, and
/// no `pcall` catches it.
struct ScriptStopped {
    StopReason reason = StopReason::Interrupted;
};

/// The front of each array and each table: the context knows them all, since those that hold each
/// other are never let go of by counting.
struct ContainerLink {
    ContainerLink* previous = nullptr;
    ContainerLink* next = nullptr;
};

/// What has to be looked at while a script runs: how much it has done, and whether somebody wants
/// it to stop. It is asked in each statement, call and turn of a loop.
class ScriptWatch {
public:
    /// Counts `statements`. True if `reasonToStop` is to be asked.
    [[nodiscard]] bool isDue(std::uint64_t statements) noexcept {
        stepsToLook_ -= static_cast<std::int64_t>(statements);
        return stepsToLook_ < 0 || wanted_.load(std::memory_order_relaxed);
    }
    /// Counts, and leaves it to the next one to ask.
    void count(std::uint64_t statements) noexcept {
        stepsToLook_ -= static_cast<std::int64_t>(statements);
    }
    /// Why the script must stop now, if it must.
    [[nodiscard]] StopReason reasonToStop() noexcept;
    /// True if a call at `depth` is one too many.
    [[nodiscard]] bool isTooDeep(std::uint64_t depth) const noexcept { return depth > mostCalls_; }

    /// A run begins: its limits, 0 for none. The time is in nanoseconds.
    void begin(std::uint64_t statements, std::uint64_t nanoseconds, std::uint64_t calls) noexcept;
    /// It has ended: what comes to be run without `begin` has no limits.
    void end() noexcept;
    [[nodiscard]] std::uint64_t statementsRun() const noexcept;
    /// The run has a limit that anything which takes long of itself would break.
    [[nodiscard]] bool limitsWork() const noexcept { return statements_ != 0 || deadline_ != 0; }

    /// From any thread and from a signal handler: the script stops at its next step.
    void interrupt() noexcept {
        interrupted_.store(true, std::memory_order_relaxed);
        wanted_.store(true, std::memory_order_release);
    }
    /// Takes an interruption back that has met no script.
    void forgetInterruption() noexcept { interrupted_.store(false, std::memory_order_relaxed); }
    /// The memory is used up; from the thread of the script.
    void noteMemoryExceeded() noexcept {
        memoryExceeded_ = true;
        wanted_.store(true, std::memory_order_release);
    }
    [[nodiscard]] bool isMemoryExceeded() const noexcept { return memoryExceeded_; }

private:
    static constexpr std::int64_t kStepsBetweenLooks = 4096;

    void refill() noexcept;

    std::int64_t stepsToLook_ = kStepsBetweenLooks;
    std::int64_t given_ = kStepsBetweenLooks;  // at the last look
    std::uint64_t done_ = 0;                   // before the last look
    std::atomic<bool> wanted_ = false;
    std::atomic<bool> interrupted_ = false;
    bool memoryExceeded_ = false;
    std::uint64_t statements_ = 0;  // the limits; 0 for none
    std::uint64_t deadline_ = 0;    // in nanoseconds of the steady clock
    std::uint64_t mostCalls_ = UINT64_MAX;
};

class RunContext {
public:
    static constexpr std::size_t kReadyTexts = 1024;

    RunContext() = default;
    /// Lets go of every array and table that is still there.
    ~RunContext();
    RunContext(const RunContext&) = delete;
    RunContext& operator=(const RunContext&) = delete;

    /// That of the interpreter that this thread is in, else that of the process.
    [[nodiscard]] static RunContext& current() noexcept {
        return running_ != nullptr ? *running_ : ofProcess();
    }
    /// The same, or null outside of every interpreter.
    [[nodiscard]] static RunContext* running() noexcept { return running_; }

    /// The texts of small numbers, made when they are first asked for.
    std::array<Text, kReadyTexts> readyTexts;
    std::uint64_t tableGenerations = 0;
    ScriptWatch watch;

    /// What a part of the library keeps for all scripts of one interpreter.
    struct Part {
        Part() = default;
        virtual ~Part() = default;
        Part(const Part&) = delete;
        Part& operator=(const Part&) = delete;
    };
    std::unique_ptr<Part> patterns;

    // Containers.
    void add(ContainerLink& link, bool isTable) noexcept;
    static void remove(ContainerLink& link) noexcept;
    /// Breaks up all containers that are left, as those that hold each other.
    void releaseContainers() noexcept;
    /// How many containers are being destroyed inside of each other right now, and those that wait
    /// for that to be over: a chain of them must not take a level of the host's stack for each.
    std::size_t destroying = 0;
    ContainerLink* dying = nullptr;

    // Memory, in bytes. Only the allocator of the library counts (embedding/allocation.cpp).
    std::size_t memoryUsed = 0;
    std::size_t memoryLimit = 0;  // 0 for none

    // The host's stack, as addresses; 0 for none.
    std::uintptr_t stackFloor = 0;    // calls and texts of containers may come down to here
    std::uintptr_t parsingStart = 0;  // where the front end was entered

private:
    friend class ContextScope;

    static RunContext& ofProcess() noexcept;

    // A fixed model: the current context is asked for in the library's inner loops.
    [[gnu::tls_model("initial-exec")]] static thread_local constinit RunContext* running_;

    ContainerLink arrays_{&arrays_, &arrays_};
    ContainerLink tables_{&tables_, &tables_};
};

/// While it lives, this thread works for `context`, or for none if that is null.
class ContextScope {
public:
    explicit ContextScope(RunContext* context) noexcept : before_(RunContext::running_) {
        RunContext::running_ = context;
    }
    ~ContextScope() { RunContext::running_ = before_; }
    ContextScope(const ContextScope&) = delete;
    ContextScope& operator=(const ContextScope&) = delete;

private:
    RunContext* before_;
};

#endif
