// The bodies of all natives. Each takes the call's arguments, checks their count first and their
// kinds next, and raises the exact text of its entry. The registry gives them their names; a body
// with a BuiltinId serves the fast dispatch and the function object alike.
#pragma once

#include <cstddef>
#include <string>

#include "value/arguments.h"
#include "value/variable.h"

class DovrelScript;

// base_functions.cpp
Variable printFunction(DovrelScript& interpreter, Arguments args);
Variable getTimeMsFunction(DovrelScript& interpreter, Arguments args);
Variable toStringFunction(DovrelScript& interpreter, Arguments args);
Variable toNumberFunction(DovrelScript& interpreter, Arguments args);
Variable typeOfFunction(DovrelScript& interpreter, Arguments args);
Variable assertFunction(DovrelScript& interpreter, Arguments args);
Variable errorFunction(DovrelScript& interpreter, Arguments args);
Variable pcallFunction(DovrelScript& interpreter, Arguments args);
Variable selectFunction(DovrelScript& interpreter, Arguments args);
Variable collectGarbageFunction(DovrelScript& interpreter, Arguments args);
Variable killFunction(DovrelScript& interpreter, Arguments args);

// walk_functions.cpp
Variable nextFunction(DovrelScript& interpreter, Arguments args);
Variable pairsFunction(DovrelScript& interpreter, Arguments args);
Variable ipairsFunction(DovrelScript& interpreter, Arguments args);

// container_functions.cpp
Variable arrayFunction(DovrelScript& interpreter, Arguments args);
Variable lenFunction(DovrelScript& interpreter, Arguments args);
Variable pushFunctionBody(DovrelScript& interpreter, Arguments args);
Variable popFunction(DovrelScript& interpreter, Arguments args);
Variable reserveFunction(DovrelScript& interpreter, Arguments args);
Variable getFunction(DovrelScript& interpreter, Arguments args);
Variable setFunction(DovrelScript& interpreter, Arguments args);
Variable clearFunction(DovrelScript& interpreter, Arguments args);
Variable eraseFunction(DovrelScript& interpreter, Arguments args);
Variable containsFunction(DovrelScript& interpreter, Arguments args);
Variable keysFunction(DovrelScript& interpreter, Arguments args);
Variable valuesFunction(DovrelScript& interpreter, Arguments args);

// string_library.cpp
/// string.len as the fast dispatch runs it: one message for a wrong count and a wrong kind.
Variable stringLenFast(DovrelScript& interpreter, Arguments args);
/// string.len as a function object: two messages; kept.
Variable stringLenFunction(DovrelScript& interpreter, Arguments args);
Variable stringUpperFunction(DovrelScript& interpreter, Arguments args);
Variable stringLowerFunction(DovrelScript& interpreter, Arguments args);
Variable stringSubFunction(DovrelScript& interpreter, Arguments args);
Variable stringRepFunction(DovrelScript& interpreter, Arguments args);
Variable stringByteFunction(DovrelScript& interpreter, Arguments args);
Variable stringCharFunction(DovrelScript& interpreter, Arguments args);
/// The 1-based range of bytes that string.byte covers; empty when `last < first`.
struct ByteRange {
    long long first = 1;
    long long last = 0;
};
/// The range for a string of `length` bytes, from the optional second and third arguments.
[[nodiscard]] ByteRange stringByteRange(std::size_t length, Arguments args);
/// False exactly if string.byte would give a multi-value for these arguments.
[[nodiscard]] bool stringByteRangeReturnsScalar(Arguments args);

// pattern_functions.cpp
Variable gsubFunction(DovrelScript& interpreter, Arguments args);
Variable stringFindFunction(DovrelScript& interpreter, Arguments args);
Variable stringMatchFunction(DovrelScript& interpreter, Arguments args);
Variable stringGmatchFunction(DovrelScript& interpreter, Arguments args);

// format_function.cpp
Variable stringFormatFunction(DovrelScript& interpreter, Arguments args);

// table_library.cpp
Variable tableInsertFunction(DovrelScript& interpreter, Arguments args);
Variable tableRemoveFunction(DovrelScript& interpreter, Arguments args);
Variable tableConcatFunction(DovrelScript& interpreter, Arguments args);
Variable tableSortFunction(DovrelScript& interpreter, Arguments args);

// math_library.cpp
Variable mathFloorFunction(DovrelScript& interpreter, Arguments args);
Variable mathCeilFunction(DovrelScript& interpreter, Arguments args);
Variable mathAbsFunction(DovrelScript& interpreter, Arguments args);
Variable mathMinFunction(DovrelScript& interpreter, Arguments args);
Variable mathMaxFunction(DovrelScript& interpreter, Arguments args);
Variable mathSinFunction(DovrelScript& interpreter, Arguments args);
Variable mathCosFunction(DovrelScript& interpreter, Arguments args);
Variable mathRadFunction(DovrelScript& interpreter, Arguments args);
Variable mathLogFunction(DovrelScript& interpreter, Arguments args);
Variable mathSqrtFunction(DovrelScript& interpreter, Arguments args);
Variable randomFunction(DovrelScript& interpreter, Arguments args);
Variable randomSeedFunction(DovrelScript& interpreter, Arguments args);
/// The computing halves of the natives above, shared with the scalar tier. They raise the natives'
/// messages for arguments outside their domain.
[[nodiscard]] double radiansFromDegrees(double degrees);
[[nodiscard]] double checkedLogarithm(double x);
[[nodiscard]] double checkedLogarithm(double x, double base);
[[nodiscard]] double checkedSquareRoot(double x);

// utf8_library.cpp
Variable utf8LenFunction(DovrelScript& interpreter, Arguments args);
Variable utf8OffsetFunction(DovrelScript& interpreter, Arguments args);

// io_library.cpp
Variable ioOpenFunction(DovrelScript& interpreter, Arguments args);
Variable ioPopenFunction(DovrelScript& interpreter, Arguments args);

// os_library.cpp
Variable osClockFunction(DovrelScript& interpreter, Arguments args);
Variable osTimeFunction(DovrelScript& interpreter, Arguments args);

// script_loading.cpp
Variable loadFunction(DovrelScript& interpreter, Arguments args);
Variable loadFileFunction(DovrelScript& interpreter, Arguments args);
Variable runFileFunction(DovrelScript& interpreter, Arguments args);
