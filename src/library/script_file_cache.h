// What is remembered of a script file that has been loaded.
#pragma once

#include <cstdint>
#include <memory>

struct BytecodeProgram;
struct ScriptCallable;

/// A compiled file, valid as long as the file's size and modification time stay as they were.
struct ScriptFileCacheEntry {
    std::shared_ptr<BytecodeProgram> program;
    Shared<ScriptCallable> callable;  // handed out again on a hit
    std::int64_t size = 0;
    std::int64_t mtimeSeconds = 0;
    std::int64_t mtimeNanoseconds = 0;
};
