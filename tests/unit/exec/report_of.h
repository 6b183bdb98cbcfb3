// What a script that fails says, for tests that compare two ways of running it.
#pragma once

#include <exception>
#include <string>

#include "interpreter/dovrel_script.h"

/// The report of `source`, or an empty text.
inline std::string reportOf(DovrelScript& interpreter, const std::string& source) {
    try {
        interpreter.runScript(source);
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}
