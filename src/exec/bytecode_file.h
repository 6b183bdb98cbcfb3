// Writing a program as the bytes of a bytecode file. The reader is
// DovrelScript::deserializeBytecode.
#pragma once

#include <vector>

struct BytecodeProgram;

/// The whole file as one byte vector: little-endian on every host, no alignment, no expression
/// data.
[[nodiscard]] std::vector<unsigned char> serializeBytecode(const BytecodeProgram& program);
