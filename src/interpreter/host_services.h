// What scripts may reach outside of the interpreter, and through whom. The executable leaves it as
// it is; a program that the interpreter is built into decides.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

struct HostServices {
    /// Takes what `print` writes, line feed included; empty for standard output.
    std::function<void(std::string_view)> output;
    /// Gives the next line of input without its line feed, or nothing at the end; empty for
    /// standard input. Scripts read it as the file "/dev/stdin".
    std::function<std::optional<std::string>()> input;
    bool mayUseFiles = true;     // `io["open"]`, `loadFile`, `runFile`
    bool mayRunCommands = true;  // `io["popen"]`
};
