// Function declarations at run time: the header's tokens are parsed each time the line runs.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "exec/bytecode_program.h"
#include "interpreter/dovrel_script.h"

/// What `function t[k](...)` makes of an unknown `t`.
enum class NewBase : std::uint8_t {
    Table,  // always a table: the bytecode executor and coroutine turns
    ByKey,  // an array or a table, as the first key prefers: the parsed-block executor
};

/// Runs a declaration line: parses the header, makes the callable, lets `attachBody` add what the
/// executor knows of the body, classifies it, and stores it under its name or keys. Raises the
/// messages of malformed headers. A soft error in a key stops it with nothing stored.
void declareFunction(DovrelScript& interpreter, const ParsedScriptLine& line, NewBase newBase,
                     const std::function<void(ScriptCallable&)>& attachBody);

/// Gives a callable copies of the body's lines as the program holds them, if it has use for them.
/// Their block links still count from the start of the program: kept, coroutines show it.
void attachCompiledBody(ScriptCallable& callable, const BytecodeProgram& program,
                        const BytecodeFunctionDecl& declaration);

/// Gives a callable that has no program the body at [first, last) of `lines`, prepared anew so that
/// block links count from the body's start, and the names of the running script.
void attachParsedBody(DovrelScript& interpreter, ScriptCallable& callable,
                      const std::vector<ParsedScriptLine>& lines, std::size_t first,
                      std::size_t last);
