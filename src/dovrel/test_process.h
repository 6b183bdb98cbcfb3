// One test, or the loading of a file of tests, in a process of its own: whatever it does to the
// interpreter, the working directory or itself, it does to nobody else.
#pragma once

#include <string>
#include <vector>

#include "dovrel/checked_run.h"

enum class TestOutcome { Passed, Failed, Skipped };

struct TestResult {
    TestOutcome outcome = TestOutcome::Failed;
    std::string message;              // why it failed or was skipped
    std::string place;                // "file:line" of a failure, if it is known
    std::string source;               // the line there
    std::string output;               // what it has written
    double seconds = 0;               // the call alone, without the loading
    std::vector<std::string> silent;  // what a checked run has told, each with its place and line
    std::string coverage;  // the counts of a CoverageReport, packed, if they were asked for
};

struct TestFile {
    std::vector<std::string> tests;  // in the order in which they were declared
    TestResult loading;              // Passed, or what went wrong
};

/// Loads a file and lists its tests: the global functions whose names begin with "test_".
[[nodiscard]] TestFile listTests(const std::string& path, double timeLimit);

/// How tests are run.
struct TestConditions {
    double timeLimit = 60;     // seconds; 0 is none
    bool showsOutput = false;  // output goes where that of this process goes, and is not gathered
    bool countsLines = false;  // count what runs in the files that the test loads
    CheckedMode checked = CheckedMode::Off;
};

/// Loads a file and calls one of its tests.
[[nodiscard]] TestResult runTest(const std::string& path, const std::string& test,
                                 const TestConditions& conditions);
