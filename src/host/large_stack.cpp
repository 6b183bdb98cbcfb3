// The stack is a mapping of address space that grows in steps: what lies below the steps that are
// open cannot be accessed, and the fault of the first access opens the next one, if memory is left
// for it. So nothing has to be asked while a script calls its functions, and a recursion without
// end is noticed before the system runs out of memory and picks a process to kill.
#include "host/large_stack.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <utility>

#include "eval/exhaustion.h"
#include "value/stack_end.h"

#if defined(__SANITIZE_ADDRESS__)
#define DOVREL_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DOVREL_ADDRESS_SANITIZER 1
#endif
#endif

namespace {

// Frames are several times larger under the sanitizers.
#ifdef DOVREL_ADDRESS_SANITIZER
constexpr std::size_t kScale = 4;
#else
constexpr std::size_t kScale = 1;
#endif
constexpr std::size_t kMebibyte = std::size_t{1} << 20;

constexpr std::size_t kLargestStack = kScale * 4096 * kMebibyte;
constexpr std::size_t kSmallestStack = 16 * kMebibyte;
constexpr std::size_t kStep = 16 * kMebibyte;
constexpr std::size_t kPage = 4096;  // or more
/// No frame is as large, so that none reaches past the guard to what lies below.
constexpr std::size_t kGuard = kMebibyte;

/// Up to here a script may do what it likes beside its recursion.
constexpr std::size_t kSmallStack = 64 * kMebibyte;
/// What the levels of a deeper recursion may keep on the heap.
constexpr std::size_t kMostHeap = kScale * 768 * kMebibyte;
/// What a recursion gets however long the system works to give it. A system that has to find memory
/// first, as a virtual one does, takes ten times as long for it as another: beyond this, the stack
/// ends where that has taken too long.
constexpr std::size_t kSureStack = kScale * 512 * kMebibyte;
constexpr double kMostSeconds = 0.75;

/// What is given back of a deep stack that is no longer in use: all but what lies next to what is
/// in use, and nothing less than this, since a recursion that goes up and down would pay for it.
constexpr std::size_t kSpareStack = kScale * 32 * kMebibyte;
constexpr std::size_t kLeastGivenBack = kScale * 64 * kMebibyte;

/// What the process has worked, and the system for it, so that other processes do not matter.
double seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// A host with little address space to give gets the largest stack that leaves as much for the
/// values of the script.
std::size_t largestStack(std::size_t most) {
    std::size_t size = most;
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return size;
    while (size / 2 >= kSmallestStack && size > limit.rlim_cur / 2) size /= 2;
    return size;
}

/// The mapping, with a guard at its lower end. Pages cost memory only once they are touched.
class StackMapping {
public:
    explicit StackMapping(std::size_t most = kLargestStack) {
        for (size_ = largestStack(most); size_ >= kSmallestStack; size_ /= 2) {
            base_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
            if (base_ != MAP_FAILED) break;
        }
        if (!isMapped()) return;
        open_ = begin() + kGuard;
        mprotect(base_, kGuard, PROT_NONE);
    }
    ~StackMapping() {
        if (isMapped()) munmap(base_, size_);
    }
    StackMapping(const StackMapping&) = delete;
    StackMapping& operator=(const StackMapping&) = delete;

    [[nodiscard]] bool isMapped() const { return base_ != MAP_FAILED; }
    [[nodiscard]] void* base() const { return base_; }
    [[nodiscard]] std::size_t size() const { return size_; }

    /// Leaves only the uppermost step open.
    void closeSteps() {
        if (size_ <= kStep) return;
        const std::uintptr_t lowest = begin() + size_ - kStep;
        if (mprotect(base_, size_ - kStep, PROT_NONE) != 0) return;
        open_ = lowest;
        // A recursion that gets there goes on, and large pages are faster to come by.
        madvise(base_, size_ - kStep, MADV_HUGEPAGE);
    }
    /// `address` lies in what is not open.
    [[nodiscard]] bool isClosed(std::uintptr_t address) const {
        return address >= begin() && address < open_;
    }
    /// Opens what lies above `address`, a step at least. False at the end of the stack or of the
    /// memory.
    bool openDownTo(std::uintptr_t address) {
        const std::uintptr_t end = begin() + kGuard;
        if (address < end) return false;
        const std::uintptr_t wanted = open_ - std::max(kStep, open_ - address);
        const std::uintptr_t lowest = std::max(end, wanted / kStep * kStep);
        if (!mayGrow(open_ - lowest) || mprotect(reinterpret_cast<void*>(lowest), open_ - lowest,
                                                 PROT_READ | PROT_WRITE) != 0) {
            return false;
        }
        take(lowest);
        open_ = lowest;
        noteDepth();
        return true;
    }
    [[nodiscard]] bool contains(std::uintptr_t address) const {
        return address >= begin() && address < begin() + size_;
    }
    /// Closes what lies far below `address`, which is in use. True if that was something.
    bool closeFarBelow(std::uintptr_t address) {
        const std::uintptr_t lowest = (address - kSpareStack) / kStep * kStep;
        const bool isFar = lowest > open_ && lowest - open_ >= kLeastGivenBack &&
                           mprotect(reinterpret_cast<void*>(open_), lowest - open_, PROT_NONE) == 0;
        if (isFar) {
            madvise(reinterpret_cast<void*>(open_), lowest - open_, MADV_DONTNEED);
            open_ = lowest;
            secondsTaken_ = 0;  // the next recursion has its own
        }
        noteDepth();
        return isFar;
    }

private:
    [[nodiscard]] std::uintptr_t begin() const { return reinterpret_cast<std::uintptr_t>(base_); }
    [[nodiscard]] std::size_t opened() const { return begin() + size_ - open_; }

    void noteDepth() const {
#ifndef DOVREL_EMBEDDED
        constexpr std::size_t kDeepStack = kScale * 128 * kMebibyte;
        if (opened() > kDeepStack) unsettledMemory = 1;
#endif
    }
    bool mayGrow(std::size_t bytes) {
        if (opened() > kSureStack && secondsTaken_ > kMostSeconds) return false;
        // What has come to the heap since the stack was small is what the levels keep there.
        const std::size_t resident = residentMemory();
        const std::size_t heap = resident > opened() ? resident - opened() : 0;
        if (opened() <= kSmallStack) heapBefore_ = heap;
        return heap <= heapBefore_ + kMostHeap && memoryIsLeft(bytes);
    }
    /// Has the pages of a step of a deep recursion, which it is going to need, given now.
    void take(std::uintptr_t lowest) {
        if (opened() <= kSmallStack) return;
        const double start = seconds();
        for (std::uintptr_t at = open_; at > lowest; at -= kPage) {
            *reinterpret_cast<volatile char*>(at - 1) = 0;
        }
        secondsTaken_ += seconds() - start;
    }

    void* base_ = MAP_FAILED;
    std::size_t size_ = 0;
    std::uintptr_t open_ = 0;  // the lowest address that can be accessed
    std::size_t heapBefore_ = 0;
    double secondsTaken_ = 0;
};

/// Handles the faults of one stack while it lives. To be made on the thread that runs there.
class StackFaults {
public:
    explicit StackFaults(StackMapping& stack)
        : stack_(stack), outer_(std::exchange(innermost_, this)) {
        stack_t own{};
        own.ss_sp = handlerStack_.data();
        own.ss_size = handlerStack_.size();
        sigaltstack(&own, &outerStack_);
        struct sigaction action {};
        action.sa_sigaction = handle;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        sigaction(SIGSEGV, &action, &outerAction_);
        setGiveStackBack(giveBack);
    }
    ~StackFaults() {
        sigaction(SIGSEGV, &outerAction_, nullptr);
        sigaltstack(&outerStack_, nullptr);
        innermost_ = outer_;
    }
    StackFaults(const StackFaults&) = delete;
    StackFaults& operator=(const StackFaults&) = delete;

private:
    static void handle(int, siginfo_t* info, void*) {
        const int error = errno;
        const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
        for (StackFaults* faults = innermost_; faults != nullptr; faults = faults->outer_) {
            if (!faults->stack_.isClosed(address)) continue;
            if (faults->stack_.openDownTo(address)) {
                errno = error;
                return;
            }
            endOfStack();
        }
        // Any other fault is a defect: it comes again where we return to, and then it counts.
        StackFaults* outermost = innermost_;
        while (outermost->outer_ != nullptr) outermost = outermost->outer_;
        sigaction(SIGSEGV, &outermost->outerAction_, nullptr);
    }

    static bool giveBack() noexcept {
        const char here = 0;
        const auto address = reinterpret_cast<std::uintptr_t>(&here);
        return innermost_ != nullptr && innermost_->stack_.contains(address) &&
               innermost_->stack_.closeFarBelow(address);
    }

    static inline StackFaults* innermost_ = nullptr;

    StackMapping& stack_;
    StackFaults* outer_;
    stack_t outerStack_{};
    struct sigaction outerAction_ {};
    std::array<char, 64 << 10> handlerStack_;  // left uninitialised
};

/// What runs on the stack.
struct Work {
    StackMapping& stack;
    const std::function<void()>& run;
    bool growsByFaults;

    void operator()() const {
        if (!growsByFaults) {
            run();
            return;
        }
        const StackFaults faults(stack);
        stack.closeSteps();
        run();
    }
};

#ifdef DOVREL_ADDRESS_SANITIZER

// The sanitizer does not follow a switch of contexts and says so in every run; a thread it knows.
void* enter(void* work) {
    (*static_cast<const Work*>(work))();
    return nullptr;
}

bool runOn(const Work& work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, work.stack.base(), work.stack.size());
    pthread_t thread{};
    void* argument = const_cast<Work*>(&work);
    const bool started = pthread_create(&thread, &attributes, enter, argument) == 0;
    pthread_attr_destroy(&attributes);
    return started && pthread_join(thread, nullptr) == 0;
}

#else

/// The entry function of the context. makecontext passes ints only, so the address of the work
/// travels in two halves.
void enter(unsigned int high, unsigned int low) {
    const auto address = (static_cast<std::uintptr_t>(high) << 32) | low;
    (*reinterpret_cast<const Work*>(address))();
}

// Contexts, not threads: the program stays a process of one thread, which also keeps the standard
// library from counting references with atomic operations.
bool runOn(const Work& work) {
    ucontext_t caller;
    ucontext_t callee;
    if (getcontext(&callee) != 0) return false;
    callee.uc_stack.ss_sp = work.stack.base();
    callee.uc_stack.ss_size = work.stack.size();
    callee.uc_link = &caller;
    const auto address = reinterpret_cast<std::uintptr_t>(&work);
    makecontext(&callee, reinterpret_cast<void (*)()>(enter), 2,
                static_cast<unsigned int>(address >> 32), static_cast<unsigned int>(address));
    return swapcontext(&caller, &callee) == 0;
}

#endif

}  // namespace

void runOnLargeStack(const std::function<void()>& work) {
    StackMapping stack;
    if (!stack.isMapped() || !runOn({stack, work, hasAtStackEnd()})) work();
}

class LargeStack::Mapping : public StackMapping {
public:
    using StackMapping::StackMapping;
};

#ifdef DOVREL_ADDRESS_SANITIZER
// An exception on a larger stack leaves the sanitizer with marks of frames that are gone.
constexpr std::size_t kMostKept = 56 * kMebibyte;
#else
constexpr std::size_t kMostKept = kLargestStack;
#endif

LargeStack::LargeStack(std::size_t most)
    : mapping_(std::make_unique<Mapping>(std::min(most, kMostKept))) {}

LargeStack::~LargeStack() = default;

void LargeStack::run(const std::function<void()>& work) {
    if (!mapping_->isMapped() || !runOn({*mapping_, work, false})) work();
}

std::uintptr_t LargeStack::lowest() const {
    return mapping_->isMapped() ? reinterpret_cast<std::uintptr_t>(mapping_->base()) : 0;
}

std::size_t LargeStack::size() const { return mapping_->isMapped() ? mapping_->size() : 0; }
