// The generic `for`. `pairs` and `ipairs` are walked without the array that the natives make, and
// `ipairs` over a call of string.gmatch or string.byte without the array that those make. Arrays
// are walked by index against their live size; of a table the key order is taken once.
#include <algorithm>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "exec/chunk_run.h"
#include "exec/for_header.h"
#include "library/natives.h"
#include "library/patterns.h"
#include "value/numbers.h"

GenericForNames readGenericForNames(DovrelScript& interpreter, const ParsedScriptLine& line) {
    GenericForNames result;
    const ParsedForHeader& header = forHeaderOf(line);
    if (!header.genericVariables.empty()) {
        for (const std::size_t token : header.genericVariables) {
            result.names.push_back(loopVariableName(line, token));
        }
        result.iterator = header.genericVariables.back() + 2;
        return result;
    }
    return readGenericForNamesByTokens(interpreter, line);
}

GenericForNames readGenericForNamesByTokens(DovrelScript& interpreter,
                                            const ParsedScriptLine& line) {
    GenericForNames result;
    std::size_t position = 1;
    const auto near = [&](const char* fallback) {
        return position < line.tokens.size() ? line.tokens[position] : std::string(fallback);
    };
    for (;;) {
        if (position >= line.tokens.size() || !line.tokenAnalysis[position].isIdentifier) {
            interpreter.throwError("Expected loop variable name", near("for"));
        }
        result.names.push_back(line.tokenAnalysis[position++].name);
        if (position >= line.tokens.size() || line.tokens[position] != ",") break;
        ++position;
    }
    if (position >= line.tokens.size() || line.tokens[position] != "in") {
        interpreter.throwError("Expected 'in' in generic for loop", near("in"));
    }
    result.iterator = position + 1;
    return result;
}

void assignIterationPair(Scope& scope, std::size_t names, const Variable& key,
                         const Variable& element) {
    if (names == 1) {
        scope[0].value = Variable::makeArray({key, element});
        return;
    }
    scope[0].value = key;
    scope[1].value = element;
    for (std::size_t i = 2; i < names; ++i) scope[i].value.setNil();
}

void assignIterationElement(Scope& scope, std::size_t names, const Variable& element) {
    if (names > 1 && element.type == VarType::Array) {
        const ArrayStorage& parts = *element.asArray();
        for (std::size_t i = 0; i < names; ++i) {
            scope[i].value = i < parts.size() ? parts[i] : Variable();
        }
        return;
    }
    scope[0].value = element;
    for (std::size_t i = 1; i < names; ++i) scope[i].value.setNil();
}

Shared<ArrayStorage> evaluateGenericIterator(DovrelScript& interpreter,
                                             const ParsedScriptLine& line, std::size_t iterator) {
    const FastExpression& compiled = forHeaderOf(line).genericIterator;
    Variable value;
    if (compiled.valid) {
        value = interpreter.evaluateFastExpression(compiled, line.tokenAnalysis);
    } else {
        std::size_t position = iterator;
        value = interpreter.evaluateExpression(line.tokens, position, &line.tokenAnalysis);
        if (!interpreter.softErrorUnwinding() && position < line.tokens.size()) {
            interpreter.throwError("Unexpected token after for iterator", line.tokens[position]);
        }
    }
    if (interpreter.softErrorUnwinding()) return nullptr;
    if (value.type != VarType::Array) {
        throwPlainError("generic for loops expect an array iterator");
    }
    return value.asArray();
}

const Variable& liveTableEntry(const TableStorage& table, const Text& key) {
    const Variable* found = table.find(key);
    if (found == nullptr) throwPlainError("unordered_map::at: key not found");
    return *found;
}

/// A generic loop under way.
struct ChunkRun::GenericLoop {
    const ParsedScriptLine& line;
    std::uint32_t bodyChunk;
    BlockSignal& signal;
    std::size_t names = 0;   // how many variables the loop has
    Flow flow = Flow::Next;  // what follows the loop once its body has stopped it
};

ChunkRun::Flow ChunkRun::runGenericFor(std::uint32_t index, BlockSignal& signal) {
    if (index >= program_->genericFors.size()) {
        throwPlainError("Bytecode generic-for index out of range");
    }
    const BytecodeForLoop record = program_->genericFors[index];
    const ParsedScriptLine& line = beginStatement(record.headerLine);
    const GenericForNames variables = readGenericForNames(interpreter_, line);
    GenericLoop loop{line, record.bodyChunk, signal, variables.names.size()};

    const BuiltinId builtin = loopBuiltin(line, variables.iterator);
    Shared<ArrayStorage> elements;
    if (builtin == BuiltinId::None) {
        elements = evaluateGenericIterator(interpreter_, line, variables.iterator);
        if (elements == nullptr) return leaveWithNil();
    }
    const LoopScopeGuard scope(interpreter_, variables.names.size());
    for (const Name name : variables.names) {
        interpreter_.frameScopes.back().append(name);
    }
    return builtin == BuiltinId::None ? walkElements(loop, elements) : walkBuiltin(loop, builtin);
}

/// `pairs` or `ipairs` if the loop may be walked directly: by what the name means now, so a script
/// that redefines it loses the direct walk.
BuiltinId ChunkRun::loopBuiltin(const ParsedScriptLine& line, std::size_t iterator) {
    const ParsedForHeader& header = forHeaderOf(line);
    if (header.genericBuiltin == BuiltinId::None || !header.genericIterator.valid) {
        return BuiltinId::None;
    }
    const Variable* value = interpreter_.resolveVariableFastPtr(line.tokenAnalysis[iterator]);
    if (value == nullptr || value->type != VarType::Function) return BuiltinId::None;
    const Shared<ScriptCallable>& callable = value->asFunction();
    if (callable == nullptr || !callable->isNative) return BuiltinId::None;
    const BuiltinId id = callable->builtinId;
    return id == BuiltinId::Pairs || id == BuiltinId::Ipairs ? id : BuiltinId::None;
}

ChunkRun::Flow ChunkRun::walkBuiltin(GenericLoop& loop, BuiltinId builtin) {
    Flow flow = Flow::Next;
    if (builtin == BuiltinId::Ipairs && tryWalkCall(loop, flow)) return flow;
    if (unwinding()) return leaveWithNil();
    const Variable container = interpreter_.evaluateFastExpression(
        forHeaderOf(loop.line).genericIterator, loop.line.tokenAnalysis);
    if (unwinding()) return leaveWithNil();
    if (container.type == VarType::Array) return walkArrayPairs(loop, container.asArray());
    if (container.type == VarType::Table) {
        return builtin == BuiltinId::Ipairs ? walkTableSequence(loop, container.asTable())
                                            : walkTableKeys(loop, container.asTable());
    }
    throwPlainError(builtin == BuiltinId::Ipairs ? "ipairs(container) expects an array or table"
                                                 : "pairs(container) expects an array or table");
}

/// The direct walk of string.gmatch and string.byte. False if the iterator is no call of them; its
/// arguments have been evaluated by then and are evaluated again with the whole expression. Kept:
/// no check comes first.
bool ChunkRun::tryWalkCall(GenericLoop& loop, Flow& flow) {
    const FastExpression& iterator = forHeaderOf(loop.line).genericIterator;
    if (!iterator.isCall()) return false;
    const FastExprNode& call = iterator.rootNode();
    const ScriptCallable* native =
        interpreter_.findNativeCallee(iterator, call.left, loop.line.tokenAnalysis);
    const BuiltinId id = native != nullptr ? native->builtinId : BuiltinId::None;
    ArgumentFrame arguments(interpreter_.argumentStack, static_cast<std::size_t>(call.intValue));
    if (!interpreter_.evaluateCallArguments(iterator, call, loop.line.tokenAnalysis, arguments)) {
        flow = leaveWithNil();
        return true;
    }
    if (id == BuiltinId::StringGmatch) {
        flow = walkGmatch(loop, arguments.view());
    } else if (id == BuiltinId::StringByte) {
        flow = walkBytes(loop, arguments.view());
    } else {
        return false;
    }
    return true;
}

ChunkRun::Flow ChunkRun::walkGmatch(GenericLoop& loop, Arguments args) {
    if (args.size() != 2 || args[0].type != VarType::String || args[1].type != VarType::String) {
        throwPlainError("string['gmatch'](s, pattern) requires a string and a pattern");
    }
    GmatchWalk walk(args[0].asString(), args[1].asString());
    Variable element;
    for (int n = 1; walk.next(element); n = wrapAdd(n, 1)) {
        if (!runPair(loop, Variable::makeInt(n), element)) return loop.flow;
    }
    return Flow::Next;
}

ChunkRun::Flow ChunkRun::walkBytes(GenericLoop& loop, Arguments args) {
    if (args.empty() || args[0].type != VarType::String) {
        throwPlainError("string['byte'](s[, i[, j]]) requires a string");
    }
    const std::string& text = args[0].asString();
    if (text.empty()) return Flow::Next;
    const ByteRange range = stringByteRange(text.size(), args);
    int n = 1;
    for (long long i = range.first; i <= range.last; ++i, n = wrapAdd(n, 1)) {
        const int byte = static_cast<unsigned char>(text[static_cast<std::size_t>(i - 1)]);
        if (!runPair(loop, Variable::makeInt(n), Variable::makeInt(byte))) return loop.flow;
    }
    return Flow::Next;
}

ChunkRun::Flow ChunkRun::walkArrayPairs(GenericLoop& loop, const Shared<ArrayStorage>& array) {
    // The live size: elements that the body appends are seen.
    for (std::size_t i = 0; i < array->size(); ++i) {
        const Variable element = (*array)[i];
        if (!runPair(loop, Variable::makeInt(static_cast<int>(i + 1)), element)) return loop.flow;
    }
    return Flow::Next;
}

ChunkRun::Flow ChunkRun::walkTableSequence(GenericLoop& loop, const Shared<TableStorage>& table) {
    const int length = interpreter_.numericTableLength(table);
    for (int i = 1; i <= length; ++i) {
        const Variable element = liveTableEntry(*table, intKeyText(i));
        if (!runPair(loop, Variable::makeInt(i), element)) return loop.flow;
    }
    return Flow::Next;
}

ChunkRun::Flow ChunkRun::walkTableKeys(GenericLoop& loop, const Shared<TableStorage>& table) {
    const auto snapshot = table->snapshot();
    for (std::size_t i = 0; i < snapshot->keys.size(); ++i) {
        const Variable element = liveTableEntry(*table, snapshot->keys[i]);
        if (!runPair(loop, snapshot->keyValues[i], element)) return loop.flow;
    }
    return Flow::Next;
}

ChunkRun::Flow ChunkRun::walkElements(GenericLoop& loop, const Shared<ArrayStorage>& elements) {
    const std::size_t count = elements->size();
    for (std::size_t i = 0; i < std::min(count, elements->size()); ++i) {
        const Variable element = (*elements)[i];
        assignIterationElement(interpreter_.frameScopes.back(), loop.names, element);
        if (!runLoopBody(loop)) return loop.flow;
    }
    return Flow::Next;
}

bool ChunkRun::runPair(GenericLoop& loop, const Variable& key, const Variable& element) {
    assignIterationPair(interpreter_.frameScopes.back(), loop.names, key, element);
    return runLoopBody(loop);
}

bool ChunkRun::runLoopBody(GenericLoop& loop) {
    interpreter_.observeIteration(loop.line);
    BlockSignal nested = BlockSignal::None;
    runBody(loop.bodyChunk, canRunInline(loop.bodyChunk), nested);
    return continuesAfterBody(nested, loop.signal, loop.flow);
}
