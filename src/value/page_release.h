// Giving memory back to the system that stays allocated.
#pragma once

/// The whole pages between `first` and `end`, in which nothing lives, take no memory until they are
/// written again. For storage that is kept for its address. Does nothing for less than a mebibyte,
/// and where the system cannot do it.
void releasePages(void* first, void* end) noexcept;
