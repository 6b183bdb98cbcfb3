// What scripts find beyond the library while they are tested.
#pragma once

#include <string>

#include "interpreter/dovrel_script.h"

/// Raised by `skip`: the running test is left and counts as neither passed nor failed. No standard
/// exception, so that it passes all handlers.
struct TestSkipped {
    std::string reason;
};

/// Puts `expect_equal`, `expect_near`, `expect_error` and `skip` among the globals. The interpreter
/// must outlive them.
void addTestLibrary(DovrelScript& interpreter);

/// What `expect_equal` says of two values; empty if they are equal: arrays and tables by what they
/// hold, everything else by `==`.
[[nodiscard]] std::string describeDifference(const Variable& actual, const Variable& expected);

/// `message` is what one of the functions above has raised last, and not the script.
[[nodiscard]] bool isExpectation(const std::string& message);
