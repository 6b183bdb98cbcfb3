// The end of a script that recurses without end: memory is what bounds a recursion, and whoever
// keeps something for each level asks here from time to time whether there is more of it.
#pragma once

#include <cstddef>

class DovrelScript;

/// The machine, and the control group that the process is in, can give `bytes` more and something
/// beside them. Opens files of the system, so it is not for every level, but it may be called from
/// a signal handler. True where nothing is known.
[[nodiscard]] bool memoryIsLeft(std::size_t bytes) noexcept;

/// What the process holds in memory, in bytes; 0 where that is not known. The same holds for it.
[[nodiscard]] std::size_t residentMemory() noexcept;

/// Ends the process with status 1, after "dovrelscript: stack overflow" and the current line on
/// standard error. Nothing is released, and `pcall` does not come to know of it. May be called from
/// a signal handler.
[[noreturn]] void endByStackOverflow(const DovrelScript& interpreter) noexcept;
