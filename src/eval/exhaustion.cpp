// All that is done here is safe in a signal handler: no allocation, no stream, no lock.
#include "eval/exhaustion.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "interpreter/dovrel_script.h"

namespace {

constexpr std::uint64_t kUnknown = UINT64_MAX;

/// The beginning of a small file of the system.
class SystemFile {
public:
    explicit SystemFile(const char* path) noexcept {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        if (file < 0) return;
        while (size_ < bytes_.size()) {
            const ssize_t count = read(file, bytes_.data() + size_, bytes_.size() - size_);
            if (count <= 0) break;
            size_ += static_cast<std::size_t>(count);
        }
        close(file);
    }

    [[nodiscard]] std::string_view text() const { return {bytes_.data(), size_}; }
    /// The number behind `label`, or at the start for an empty one; kUnknown if there is none, as
    /// where the file says "max".
    [[nodiscard]] std::uint64_t number(std::string_view label) const {
        const std::size_t found = text().find(label);
        if (found == std::string_view::npos) return kUnknown;
        std::string_view rest = text().substr(found + label.size());
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
        std::uint64_t value = kUnknown;
        std::from_chars(rest.data(), rest.data() + rest.size(), value);
        return value;
    }

private:
    std::array<char, 2048> bytes_;  // left uninitialised
    std::size_t size_ = 0;
};

/// The bytes of the pages that the system counts behind `label`: all of the process's addresses
/// stand in front, what is in memory behind the first blank.
std::uint64_t pagesOfProcess(std::string_view label) {
    const std::uint64_t pages = SystemFile("/proc/self/statm").number(label);
    return pages == kUnknown ? 0 : pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

/// What is left below a bound, if an eighth of it stays for others.
std::uint64_t leftOf(std::uint64_t bound, std::uint64_t free) {
    const std::uint64_t kept = bound / 8;
    return free > kept ? free - kept : 0;
}

std::uint64_t leftOfMachine() {
    const SystemFile memory("/proc/meminfo");
    const std::uint64_t total = memory.number("MemTotal:");
    const std::uint64_t available = memory.number("MemAvailable:");
    if (total == kUnknown || available == kUnknown) return kUnknown;
    return leftOf(total * 1024, available * 1024);
}

/// Of the address space, where the process is given a share of it.
std::uint64_t leftOfAddresses() {
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kUnknown;
    const std::uint64_t held = pagesOfProcess("");
    return leftOf(limit.rlim_cur, limit.rlim_cur > held ? limit.rlim_cur - held : 0);
}

/// Of the control group that the process sees as the root, such as that of a container. This
/// process is taken to be the only large one in it.
std::uint64_t leftOfGroup(const char* limitPath) {
    const std::uint64_t limit = SystemFile(limitPath).number("");
    if (limit == kUnknown) return kUnknown;
    const std::uint64_t held = residentMemory();
    return leftOf(limit, limit > held ? limit - held : 0);
}

void write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(STDERR_FILENO, text.data(), text.size());
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void write(std::uint64_t number) {
    std::array<char, 20> digits;  // left uninitialised
    const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    write({digits.data(), static_cast<std::size_t>(end - digits.data())});
}

}  // namespace

std::size_t residentMemory() noexcept { return pagesOfProcess(" "); }

bool memoryIsLeft(std::size_t bytes) noexcept {
    return bytes <= leftOfMachine() && bytes <= leftOfAddresses() &&
           bytes <= leftOfGroup("/sys/fs/cgroup/memory.max") &&
           bytes <= leftOfGroup("/sys/fs/cgroup/memory/memory.limit_in_bytes");
}

void endByStackOverflow(const DovrelScript& interpreter) noexcept {
    // First, in case that something of the rest cannot be read.
    write("dovrelscript: stack overflow\n");
    const auto& names = interpreter.scriptNameStack;
    write("  at ");
    if (!names.empty() && !names.back()->empty()) {
        write(*names.back());
        write(":");
    } else {
        write("line ");
    }
    write(interpreter.currentLineNumber + 1);
    write("\n  ");
    if (interpreter.currentLine != nullptr) write(*interpreter.currentLine);
    write("\n");
    _exit(1);
}
