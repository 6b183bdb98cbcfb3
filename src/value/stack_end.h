// The end of a recursion that has none: a process that has no room for another level, and what it
// does then. The host decides what that is, since it ends the process.
#pragma once

/// Is called when a recursion is at its end: possibly in a signal handler, on a stack of its own,
/// so that it may do only what is safe there. Must not return.
using AtStackEnd = void (*)();

/// Sets what `endOfStack` calls; null for nothing. Counts for the whole process.
void setAtStackEnd(AtStackEnd handler) noexcept;

/// There is something to call.
[[nodiscard]] bool hasAtStackEnd() noexcept;

/// Called by whoever finds that a recursion cannot go on. Returns if the host has set nothing; the
/// caller goes on then, until the system stops it.
void endOfStack() noexcept;
