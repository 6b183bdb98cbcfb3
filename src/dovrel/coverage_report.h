// Which lines of the scripts under test have run, over all tests, and how often.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "dovrel/run_counts.h"

/// The counts of one file.
struct FileCoverage {
    std::map<std::size_t, std::uint64_t> lines;  // 1-based: all that can run
    std::map<std::pair<std::size_t, std::string>, std::uint64_t> functions;  // by line and name

    /// How many lines have run.
    [[nodiscard]] std::size_t linesRun() const;
};

/// The part of the whole in percent; nothing at all is whole.
[[nodiscard]] double percentOf(std::size_t part, std::size_t whole);

class CoverageReport {
public:
    /// Adds what a run has counted, for the files that it has loaded: neither its own file, which
    /// is one of tests, nor texts that are in no file.
    void add(const RunCounts& counts);
    /// Adds what another process has gathered, as `packed` has given it.
    void add(const std::string& packed);
    /// All counts as one text without line feeds.
    [[nodiscard]] std::string packed() const;

    /// By path.
    [[nodiscard]] const std::map<std::string, FileCoverage>& files() const { return files_; }
    /// Of all lines that can run.
    [[nodiscard]] double percent() const;

    /// A table: of each file how many lines can run, how many have, and which have not.
    [[nodiscard]] std::string table() const;
    /// The tracefile that coverage servers and viewers read.
    [[nodiscard]] std::string lcov() const;
    /// A page with the table and all sources, for a browser. Reads the sources.
    [[nodiscard]] std::string html() const;

private:
    std::map<std::string, FileCoverage> files_;
};
