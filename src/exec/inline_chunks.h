// Which chunks may run inline: without a scope, a recursion and a handler of their own.
#pragma once

#include <cstdint>

#include "exec/bytecode_program.h"

/// The instructions of `range` lie inside the program's code.
[[nodiscard]] bool rangeIsInside(const BytecodeChunkRange& range, const BytecodeProgram& program);

/// The chunk, and every chunk below it, holds plain statements, blocks and breaks only and declares
/// no local. A property of the program, worked out once; false for an index outside. Whether a
/// block scope is visible is another question.
[[nodiscard]] bool chunkIsInlinable(BytecodeProgram& program, std::uint32_t chunk);
