#include "dovrel/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace {

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string_view codeOf(Colour colour) {
    switch (colour) {
        case Colour::Bold: return "1";
        case Colour::Dim: return "2";
        case Colour::Red: return "31";
        case Colour::Green: return "32";
        case Colour::Yellow: return "33";
        case Colour::Blue: return "34";
        case Colour::Cyan: return "36";
    }
    return "0";
}

}  // namespace

Palette::Palette(int descriptor)
    : isOn_(isatty(descriptor) != 0 && environment("NO_COLOR").empty() &&
            environment("TERM") != "dumb") {}

std::string Palette::paint(Colour colour, std::string_view text) const {
    if (!isOn_ || text.empty()) return std::string(text);
    std::string painted = "\x1b[";
    painted += codeOf(colour);
    painted += 'm';
    painted += text;
    painted += "\x1b[0m";
    return painted;
}

std::size_t terminalWidth() {
    constexpr std::size_t kUsual = 80;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
    return size.ws_col;
}
