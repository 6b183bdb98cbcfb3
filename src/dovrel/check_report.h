// The findings of all files in the forms that people and other programs read.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "dovrel/check_script.h"
#include "dovrel/terminal.h"

class CheckReport {
public:
    void add(std::string path, CheckResult result);

    [[nodiscard]] std::size_t errors() const { return errors_; }
    [[nodiscard]] std::size_t warnings() const { return warnings_; }

    /// Each finding with its line and a mark below it, and a count at the end; nothing if there is
    /// none.
    void writeText(std::ostream& out, const Palette& palette) const;
    /// One object with an array of findings. Lines and columns count from 1, columns in characters.
    void writeJson(std::ostream& out) const;
    /// SARIF 2.1.0, as the viewers of results of static analysis read it.
    void writeSarif(std::ostream& out) const;

private:
    std::vector<std::pair<std::string, CheckResult>> files_;
    std::size_t errors_ = 0;
    std::size_t warnings_ = 0;
};
