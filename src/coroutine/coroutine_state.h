// A coroutine between two turns: its private copy of the interpreter's per-flow state, and its
// position as an explicit stack of frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "eval/scope.h"
#include "value/variable.h"

enum class CoroutineFrameKind : std::uint8_t {
    Block = 0,
    While = 1,
    Repeat = 2,
    NumericFor = 3,
    GenericFor = 4,
};

/// One level of the coroutine's block structure. Line indices count within the callable's
/// `bodyLines`, from 0.
struct CoroutineFrame {
    CoroutineFrameKind kind = CoroutineFrameKind::Block;
    std::size_t nextLine = 0;              // block: the next line to run
    std::size_t endLine = 0;               // block: one past the last line
    std::size_t headerLine = 0;            // loop: the line of its condition
    std::size_t bodyFirstLine = 0;         // loop: first line of the body
    std::size_t bodyEndLine = 0;           // loop: one past its last line
    std::size_t savedBlockScopeCount = 0;  // block: scopes before its own was pushed
    std::size_t savedBlockScopeFloor = 0;  // block: the floor at that moment
    bool ownsBlockScope = false;           // block: pushed a scope
    bool started = false;                  // loop: its set-up has run
    bool bodyIssued = false;               // for: this iteration's body frame has been pushed
    bool repeatBodyDone = false;           // repeat: the body has run, the condition is due
    std::int32_t forCurrent = 0;           // numeric for: the counter
    std::int32_t forLimit = 0;             // numeric for
    std::int32_t forStep = 1;              // numeric for
    std::vector<Name> loopVariables;       // generic for: names
    std::vector<std::vector<Variable>> iterationRows;  // generic for: values of all iterations
    std::size_t rowIndex = 0;                          // generic for: next row
};

/// The state that each flow of execution has for itself. A turn swaps it whole with the
/// interpreter's.
struct FlowState {
    ScopeStack frameScopes;
    ScopeStack blockScopes;
    std::size_t blockScopeFloor = 0;
    std::vector<const std::string*> baseDirectoryStack;
    std::vector<const std::string*> scriptNameStack;
    std::vector<std::vector<Variable>> varargStack;
    std::uint64_t callDepth = 0;
    std::vector<std::uint64_t> protectedCallDepths;
    bool softErrorPending = false;
    std::uint64_t softErrorDepth = 0;
    std::string softErrorMessage;
};

/// A scheduled coroutine.
struct CoroutineState {
    Shared<ScriptCallable> callable;  // its `bodyLines` are the coroutine's code
    FlowState flow;
    std::vector<CoroutineFrame> frames;  // empty when the coroutine has finished
};
