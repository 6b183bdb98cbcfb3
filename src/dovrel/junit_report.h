// The results of tests as the XML that build servers read.
#pragma once

#include <string>
#include <vector>

#include "dovrel/test_process.h"

class JunitReport {
public:
    /// What is added from here on belongs to the file `path`.
    void beginFile(const std::string& path);
    void addTest(const std::string& test, const TestResult& result);

    [[nodiscard]] std::string text() const;
    /// Raises FileError.
    void write(const std::string& path) const;

private:
    struct File {
        std::string path;
        std::vector<std::pair<std::string, TestResult>> tests;
    };
    std::vector<File> files_;
};

/// `text` as the content of an element or an attribute. What XML cannot hold becomes a "?".
[[nodiscard]] std::string escapeXml(const std::string& text);
