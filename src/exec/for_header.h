// What the executors share of `for` headers.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"

/// The parsed header of a `for` line; an empty one for a line that is none.
[[nodiscard]] const ParsedForHeader& forHeaderOf(const ParsedScriptLine& line);

/// The name at a token of a `for` line. Raises "Compiled generic-for variable index out of range"
/// for a token that is no name.
[[nodiscard]] Name loopVariableName(const ParsedScriptLine& line, std::size_t token);

struct NumericForRange {
    int start = 0;
    int limit = 0;
    int step = 1;  // never 0
};

/// Evaluates the clause of a numeric `for`: by the int tier, the general tier or by tokens. Raises
/// for a malformed clause, values that are no numbers, and a step of 0. False if a soft error is
/// unwinding.
[[nodiscard]] bool evaluateNumericForRange(DovrelScript& interpreter, const ParsedScriptLine& line,
                                           NumericForRange& range);

/// The same by tokens alone, as the parsed-block executor does it.
[[nodiscard]] bool evaluateNumericForRangeByTokens(DovrelScript& interpreter,
                                                   const ParsedScriptLine& line,
                                                   NumericForRange& range);

/// The frame scope of a loop, popped on every way out.
class LoopScopeGuard {
public:
    LoopScopeGuard(DovrelScript& interpreter, std::size_t entries) : interpreter_(interpreter) {
        interpreter.frameScopes.push(entries);
    }
    ~LoopScopeGuard() { interpreter_.frameScopes.pop(); }
    LoopScopeGuard(const LoopScopeGuard&) = delete;
    LoopScopeGuard& operator=(const LoopScopeGuard&) = delete;

private:
    DovrelScript& interpreter_;
};

/// The variables of a generic `for` and where its iterator begins.
struct GenericForNames {
    std::vector<Name> names;
    std::size_t iterator = 0;  // token index
};

/// Reads the variables of a generic `for`, from the prepared header or from its tokens. Raises the
/// messages of a malformed header.
[[nodiscard]] GenericForNames readGenericForNames(DovrelScript& interpreter,
                                                  const ParsedScriptLine& line);

/// The same from the tokens alone.
[[nodiscard]] GenericForNames readGenericForNamesByTokens(DovrelScript& interpreter,
                                                          const ParsedScriptLine& line);

/// Writes one iteration's key and value into the first `names` entries of the top frame scope: with
/// one name an array of the two.
void assignIterationPair(Scope& scope, std::size_t names, const Variable& key,
                         const Variable& element);

/// Writes one element of an iterated array: with several names an array is spread over them.
void assignIterationElement(Scope& scope, std::size_t names, const Variable& element);

/// The value behind "in", which must be an array. Raises "Unexpected token after for iterator" and
/// "generic for loops expect an array iterator". Null if a soft error is unwinding.
[[nodiscard]] Shared<ArrayStorage> evaluateGenericIterator(DovrelScript& interpreter,
                                                           const ParsedScriptLine& line,
                                                           std::size_t iterator);

/// The entry of a live table under `key`; raises the system's text for a key that is gone.
[[nodiscard]] const Variable& liveTableEntry(const TableStorage& table, const Text& key);
