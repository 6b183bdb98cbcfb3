// `dovrel test`: finds the tests of scripts, runs them and tells how they came out.
#include <fnmatch.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrel/commands.h"
#include "dovrel/coverage_report.h"
#include "dovrel/junit_report.h"
#include "dovrel/script_files.h"
#include "dovrel/terminal.h"
#include "dovrel/test_process.h"
#include "dovrel/text_file.h"

namespace {

constexpr std::string_view kSuffix = "_test.dv";

/// `name` holds `pattern`, or is like it if that has wildcards.
bool isWanted(const std::string& pattern, const std::string& name) {
    if (pattern.empty()) return true;
    if (pattern.find_first_of("*?[") == std::string::npos) {
        return name.find(pattern) != std::string::npos;
    }
    return fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

std::string milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", seconds * 1000);
    return text;
}

void writeIndented(std::string_view text, const std::string& indent) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::cout << indent << text.substr(0, end) << '\n';
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

class TestRun {
public:
    explicit TestRun(const TestOptions& options) : options_(options), palette_(1) {
        conditions_.timeLimit = options.timeLimit;
        conditions_.showsOutput = options.showsOutput;
        conditions_.checked = checkedModeFrom(options.checked);
        conditions_.countsLines = options.countsLines || !options.coverageHtmlPath.empty() ||
                                  !options.coverageLcovPath.empty() || options.leastCoverage > 0;
    }

    int run() {
        for (const std::string& path : findScripts(options_.paths, kSuffix)) runFile(path);
        if (options_.listsTests) return kSuccess;
        if (!options_.junitPath.empty()) report_.write(options_.junitPath);
        if (passed_ + failed_ + skipped_ == 0) {
            std::cerr << "dovrel test: no tests were found\n";
            return kFailure;
        }
        std::string summary =
            std::to_string(passed_) + " passed, " + std::to_string(failed_) + " failed";
        if (skipped_ != 0) summary += ", " + std::to_string(skipped_) + " skipped";
        std::cout << palette_.paint(failed_ == 0 ? Colour::Green : Colour::Red, summary) << '\n';
        const bool isCovered = !conditions_.countsLines || tellCoverage();
        return failed_ == 0 && isCovered ? kSuccess : kFailure;
    }

private:
    /// False if too little has run.
    bool tellCoverage() {
        std::cout << '\n' << coverage_.table();
        if (!options_.coverageHtmlPath.empty()) {
            writeTextFile(options_.coverageHtmlPath, coverage_.html());
        }
        if (!options_.coverageLcovPath.empty()) {
            writeTextFile(options_.coverageLcovPath, coverage_.lcov());
        }
        if (coverage_.percent() >= options_.leastCoverage) return true;
        char text[80];
        std::snprintf(text, sizeof text, "%.1f %% of the lines have run, less than %g %%",
                      coverage_.percent(), options_.leastCoverage);
        std::cout << palette_.paint(Colour::Red, text) << '\n';
        return false;
    }

    void runFile(const std::string& path) {
        const TestFile file = listTests(path, options_.timeLimit);
        std::vector<std::string> wanted;
        for (const std::string& test : file.tests) {
            if (isWanted(options_.filter, path + ':' + test)) wanted.push_back(test);
        }
        const bool isLoaded = file.loading.outcome == TestOutcome::Passed;
        if (options_.listsTests) {
            for (const std::string& test : wanted) std::cout << path << ':' << test << '\n';
            if (!isLoaded) std::cerr << path << ": " << file.loading.message << '\n';
            return;
        }
        if (wanted.empty() && isLoaded) return;
        std::cout << palette_.paint(Colour::Bold, path) << '\n';
        report_.beginFile(path);
        if (!isLoaded) tell("(loading)", file.loading);
        std::size_t width = 0;
        for (const std::string& test : wanted) width = std::max(width, test.size());
        for (const std::string& test : wanted) {
            const TestResult result = runTest(path, test, conditions_);
            if (!result.coverage.empty()) coverage_.add(result.coverage);
            tell(test + std::string(width - test.size(), ' '), result);
            tellSilent(result);
            report_.addTest(test, result);
        }
        if (!isLoaded) report_.addTest("(loading)", file.loading);
    }

    /// Each place once, with the first test that has come there.
    void tellSilent(const TestResult& result) {
        for (const std::string& text : result.silent) {
            if (!silent_.insert(text).second) continue;
            const std::size_t end = text.find('\n');
            std::cout << "      " << palette_.paint(Colour::Yellow, "checked:") << ' '
                      << text.substr(0, end) << '\n';
            writeIndented(text.substr(end + 1), std::string(6, ' '));
        }
    }

    void tell(const std::string& test, const TestResult& result) {
        switch (result.outcome) {
            case TestOutcome::Passed:
                ++passed_;
                std::cout << "  " << palette_.paint(Colour::Green, "ok     ") << ' ' << test << "  "
                          << palette_.paint(Colour::Dim, milliseconds(result.seconds)) << '\n';
                return;
            case TestOutcome::Skipped:
                ++skipped_;
                std::cout << "  " << palette_.paint(Colour::Yellow, "skipped") << ' ' << test;
                if (!result.message.empty()) std::cout << "  " << result.message;
                std::cout << '\n';
                return;
            case TestOutcome::Failed: break;
        }
        ++failed_;
        std::cout << "  " << palette_.paint(Colour::Red, "FAILED ") << ' ' << test << "  "
                  << palette_.paint(Colour::Dim, milliseconds(result.seconds)) << '\n';
        const std::string indent(6, ' ');
        if (!result.place.empty()) {
            std::cout << indent << palette_.paint(Colour::Bold, result.place + ":") << ' '
                      << result.source << '\n';
        }
        writeIndented(result.message, indent + "  ");
        if (!result.output.empty()) {
            std::cout << indent << "output:\n";
            writeIndented(result.output, indent + "  ");
        }
    }

    const TestOptions& options_;
    Palette palette_;
    TestConditions conditions_;
    CoverageReport coverage_;
    std::set<std::string> silent_;
    JunitReport report_;
    std::size_t passed_ = 0;
    std::size_t failed_ = 0;
    std::size_t skipped_ = 0;
};

}  // namespace

int runTestCommand(const TestOptions& options) { return TestRun(options).run(); }
