// Why a block stopped.
#pragma once

#include <cstdint>

/// Written by a block when it stops. The value that a `return` carries is the block's result.
enum class BlockSignal : std::uint8_t {
    None = 0,    // the block ran to its end
    Return = 1,  // a `return` ran
    Break = 2,   // a `break` ran; the nearest loop consumes it
};
