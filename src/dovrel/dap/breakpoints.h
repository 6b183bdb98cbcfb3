// Where a run shall stop: the breakpoints of each file.
#pragma once

#include <cstddef>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

struct Breakpoint {
    int id = 0;
    std::size_t line = 0;  // counted from 1
    bool isVerified = false;
    std::string condition;     // an expression; empty for none
    std::string hitCondition;  // `5`, `>= 5`, `% 5`; empty for none
    std::string logMessage;    // with `{expression}`; empty for a stop
    std::size_t hits = 0;
};

class Breakpoints {
public:
    /// Replaces those of a file by those of a `setBreakpoints` request; gives what it answers. A
    /// breakpoint moves to the next line on which a statement begins.
    nlohmann::json set(const std::string& path, const nlohmann::json& wanted);
    /// Those of a file by line, or null. The pointer holds until `set` is called.
    [[nodiscard]] std::multimap<std::size_t, Breakpoint>* of(const std::string& path);

private:
    std::map<std::string, std::multimap<std::size_t, Breakpoint>> files_;
    int nextId_ = 1;
};

/// One path for each file, however it is written.
[[nodiscard]] std::string canonicalPath(const std::string& path);

/// Whether the `hits`-th hit counts; true for a condition that cannot be read.
[[nodiscard]] bool hitCounts(const std::string& condition, std::size_t hits);
