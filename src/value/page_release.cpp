#include "value/page_release.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

void releasePages(void* first, void* end) noexcept {
#ifdef __linux__
    constexpr std::uintptr_t kLeast = std::uintptr_t{1} << 20;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto from = (reinterpret_cast<std::uintptr_t>(first) + page - 1) / page * page;
    const auto to = reinterpret_cast<std::uintptr_t>(end) / page * page;
    if (to < from + kLeast) return;
    madvise(reinterpret_cast<void*>(from), to - from, MADV_DONTNEED);
#else
    static_cast<void>(first);
    static_cast<void>(end);
#endif
}
