#include "library/host_stack.h"

#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kAlwaysThere = std::size_t{256} << 10;
// What is kept for others: for what is called at the deepest place, and for reporting an error.
constexpr std::size_t kReserve = std::size_t{1} << 20;

/// The addresses of a stack.
struct StackRange {
    std::uintptr_t low = 0;
    std::uintptr_t high = 0;

    [[nodiscard]] bool contains(std::uintptr_t address) const {
        return low <= address && address < high;
    }
};

/// The range of the mapping that holds `address`; empty if the host has no such list.
[[nodiscard]] StackRange findMapping(std::uintptr_t address) {
    StackRange range;
    std::FILE* const maps = std::fopen("/proc/self/maps", "r");
    if (maps == nullptr) return range;
    char line[512];
    while (std::fgets(line, sizeof line, maps) != nullptr) {
        unsigned long low = 0;
        unsigned long high = 0;
        if (std::sscanf(line, "%lx-%lx", &low, &high) != 2) continue;
        if (address < low || address >= high) continue;
        range = {low, high};
        // The first thread's own stack is mapped as it grows.
        rlimit limit{};
        if (std::strstr(line, "[stack]") != nullptr && getrlimit(RLIMIT_STACK, &limit) == 0) {
            if (limit.rlim_cur == RLIM_INFINITY) {
                range.low = 0;
            } else if (limit.rlim_cur < high) {
                range.low = high - limit.rlim_cur;
            }
        }
        break;
    }
    std::fclose(maps);
    return range;
}

}  // namespace

bool hasHostStackFor(std::size_t count, std::size_t each) {
    if (each == 0 || count < kAlwaysThere / each) return true;
    static thread_local constinit StackRange stack;
    const char here = 0;
    const auto address = reinterpret_cast<std::uintptr_t>(&here);
    if (!stack.contains(address)) stack = findMapping(address);
    if (!stack.contains(address)) return true;
    const std::size_t left = address - stack.low;
    return left > kReserve && count <= (left - kReserve) / each;
}
