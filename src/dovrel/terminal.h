// What the commands know of the terminal: colours and its width.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

enum class Colour { Bold, Dim, Red, Green, Yellow, Blue, Cyan };

/// Colours for one of the standard files: only where that is a terminal, `NO_COLOR` is unset or
/// empty, and `TERM` is not "dumb".
class Palette {
public:
    /// `descriptor` is 1 for standard output, 2 for standard error.
    explicit Palette(int descriptor);

    /// `text` in a colour, or `text` as it is.
    [[nodiscard]] std::string paint(Colour colour, std::string_view text) const;
    [[nodiscard]] bool isOn() const { return isOn_; }

private:
    bool isOn_;
};

/// The number of columns of the terminal at standard output; 80 where it is none.
[[nodiscard]] std::size_t terminalWidth();
