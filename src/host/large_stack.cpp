#include "host/large_stack.h"

#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

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
constexpr std::size_t kLargestStack = std::size_t{16} << 30;
#else
constexpr std::size_t kLargestStack = std::size_t{4} << 30;
#endif
constexpr std::size_t kSmallestStack = std::size_t{16} << 20;

/// A mapping of address space with a guard page at its lower end. Pages cost memory only once they
/// are touched.
class StackMapping {
public:
    StackMapping() {
        // A host with little address space to give gets the largest stack that it allows.
        for (size_ = kLargestStack; size_ >= kSmallestStack; size_ /= 2) {
            base_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
            if (base_ != MAP_FAILED) break;
        }
        if (isMapped()) mprotect(base_, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), PROT_NONE);
    }
    ~StackMapping() {
        if (isMapped()) munmap(base_, size_);
    }
    StackMapping(const StackMapping&) = delete;
    StackMapping& operator=(const StackMapping&) = delete;

    [[nodiscard]] bool isMapped() const { return base_ != MAP_FAILED; }
    [[nodiscard]] void* base() const { return base_; }
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    void* base_ = MAP_FAILED;
    std::size_t size_ = 0;
};

#ifdef DOVREL_ADDRESS_SANITIZER

// The sanitizer does not follow a switch of contexts and says so in every run; a thread it knows.
void* enter(void* work) {
    (*static_cast<const std::function<void()>*>(work))();
    return nullptr;
}

bool runOn(const StackMapping& stack, const std::function<void()>& work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack.base(), stack.size());
    pthread_t thread{};
    void* argument = const_cast<std::function<void()>*>(&work);
    const bool started = pthread_create(&thread, &attributes, enter, argument) == 0;
    pthread_attr_destroy(&attributes);
    return started && pthread_join(thread, nullptr) == 0;
}

#else

/// The entry function of the context. makecontext passes ints only, so the address of the work
/// travels in two halves.
void enter(unsigned int high, unsigned int low) {
    const auto address = (static_cast<std::uintptr_t>(high) << 32) | low;
    (*reinterpret_cast<const std::function<void()>*>(address))();
}

// Contexts, not threads: the program stays a process of one thread, which also keeps the standard
// library from counting references with atomic operations.
bool runOn(const StackMapping& stack, const std::function<void()>& work) {
    ucontext_t caller;
    ucontext_t callee;
    if (getcontext(&callee) != 0) return false;
    callee.uc_stack.ss_sp = stack.base();
    callee.uc_stack.ss_size = stack.size();
    callee.uc_link = &caller;
    const auto address = reinterpret_cast<std::uintptr_t>(&work);
    makecontext(&callee, reinterpret_cast<void (*)()>(enter), 2,
                static_cast<unsigned int>(address >> 32), static_cast<unsigned int>(address));
    return swapcontext(&caller, &callee) == 0;
}

#endif

}  // namespace

void runOnLargeStack(const std::function<void()>& work) {
    const StackMapping stack;
    if (!stack.isMapped() || !runOn(stack, work)) work();
}
