#include "dovrel/test_process.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "dovrel/coverage_report.h"
#include "dovrel/run_counts.h"
#include "dovrel/test_library.h"
#include "dovrel/text_file.h"
#include "eval/errors.h"
#include "eval/name_stack_guard.h"
#include "exec/bytecode_program.h"

namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

/// A file without a name, for what a test writes.
class OutputFile {
public:
    OutputFile() : file_(std::tmpfile()) {
        if (file_ == nullptr) throw FileError("failed to open a file for the output of a test");
    }
    ~OutputFile() { std::fclose(file_); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] int descriptor() const { return fileno(file_); }
    [[nodiscard]] std::string read() const {
        std::string text;
        std::rewind(file_);
        char buffer[4096];
        while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, file_)) {
            text.append(buffer, count);
        }
        return text;
    }

private:
    std::FILE* file_;
};

/// What a process has left: what it sent, how it ended, what it wrote.
struct ProcessResult {
    std::string sent;
    std::string ending;  // empty for a proper one
    std::string output;
    double seconds = 0;
};

std::string describeEnding(int status) {
    if (WIFSIGNALED(status)) {
        return "the process was ended by the signal " + std::string(strsignal(WTERMSIG(status)));
    }
    return "the process ended with the status " + std::to_string(WEXITSTATUS(status));
}

/// Reads until the other side closes. False if the time is up.
bool readAll(int descriptor, double timeLimit, std::string& text) {
    const Clock::time_point start = Clock::now();
    for (;;) {
        int wait = -1;
        if (timeLimit > 0) {
            const std::chrono::duration<double> passed = Clock::now() - start;
            wait = std::max(0, static_cast<int>((timeLimit - passed.count()) * 1000) + 1);
            if (passed.count() >= timeLimit) return false;
        }
        pollfd source{descriptor, POLLIN, 0};
        const int ready = poll(&source, 1, wait);
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) continue;
        char buffer[4096];
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return true;
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

/// Runs `work` in a child and gives what it returns.
ProcessResult runInProcess(double timeLimit, bool showsOutput,
                           const std::function<std::string()>& work) {
    // What is in the buffers would be written by both.
    std::cout << std::flush;
    std::cerr << std::flush;
    std::fflush(nullptr);
    const OutputFile output;
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("failed to make a pipe");
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("failed to start a process");
    if (child == 0) {
        close(ends[0]);
        if (!showsOutput) {
            dup2(output.descriptor(), STDOUT_FILENO);
            dup2(output.descriptor(), STDERR_FILENO);
        }
        std::string result = work();
        std::fflush(nullptr);
        std::cout << std::flush;
        for (std::string_view rest = result; !rest.empty();) {
            const ssize_t count = write(ends[1], rest.data(), rest.size());
            if (count <= 0) break;
            rest.remove_prefix(static_cast<std::size_t>(count));
        }
        _exit(0);
    }
    close(ends[1]);
    ProcessResult result;
    const Clock::time_point start = Clock::now();
    const bool isInTime = readAll(ends[0], timeLimit, result.sent);
    if (!isInTime) kill(child, SIGKILL);
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!isInTime) {
        char limit[32];
        std::snprintf(limit, sizeof limit, "%g", timeLimit);
        result.ending = "still running after " + std::string(limit) + " s";
    } else if (result.sent.empty() || status != 0) {
        result.ending = describeEnding(status);
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    result.output = output.read();
    return result;
}

/// Takes a report apart: its message, its place, its line.
void takeReport(const std::string& report, Json& result) {
    std::string message = report;
    const std::size_t place = report.rfind("\n  at ");
    if (isLocatedReport(report) && place != std::string::npos) {
        message = report.substr(kReportMarker.size() + 1, place - kReportMarker.size() - 1);
        const std::size_t start = place + 6;
        const std::size_t end = std::min(report.find('\n', start), report.size());
        const std::string where = report.substr(start, end - start);
        result["place"] = where.substr(0, where.find(", near token"));
        if (end < report.size()) {
            const std::size_t line = end + 3;
            result["source"] = report.substr(line, report.find('\n', line) - line);
        }
    }
    result["message"] = message;
}

/// A file of tests under way: an interpreter that has run it.
class LoadedFile {
public:
    LoadedFile(const std::string& path, const TestConditions& conditions,
               std::vector<std::string>& silent)
        : path_(path), directory_(std::filesystem::path(path).parent_path().string()) {
        addTestLibrary(interpreter_);
        if (conditions.checked != CheckedMode::Off) {
            counts_ = std::make_unique<CheckedRun>(
                interpreter_, path, conditions.checked,
                [&silent](const std::string& place, const std::string& message,
                          const std::string& source) {
                    silent.push_back(place + ": " + message + "\n    " + source);
                });
        } else if (conditions.countsLines) {
            counts_ = std::make_unique<RunCounts>(interpreter_, path);
        }
        if (counts_ != nullptr) interpreter_.setObserver(*counts_);
        const std::string text = readTextFile(path);
        protect([&] {
            program_ =
                std::make_shared<BytecodeProgram>(interpreter_.compileToBytecodeInternal(text));
            interpreter_.runBytecodeProgram(program_);
            interpreter_.rethrowPendingCoroutineException();
        });
    }

    /// What has run so far, packed; empty if nobody counts.
    [[nodiscard]] std::string coverage() const {
        if (counts_ == nullptr) return {};
        CoverageReport report;
        report.add(*counts_);
        return report.packed();
    }

    [[nodiscard]] std::vector<std::string> tests() const {
        std::vector<std::pair<std::size_t, std::string>> found;
        for (const auto& [name, slot] : interpreter_.globalSlots) {
            const Variable& value = interpreter_.globalValues[slot];
            const bool isTest = name.starts_with("test_") && value.type == VarType::Function &&
                                nativeOf(&value) == nullptr;
            if (isTest) found.emplace_back(slot, name);
        }
        std::sort(found.begin(), found.end());
        std::vector<std::string> names;
        for (auto& [slot, name] : found) names.push_back(std::move(name));
        return names;
    }

    void call(const std::string& test) {
        // A copy: the test may assign to its own name.
        const Variable function = interpreter_.globalValues[interpreter_.globalSlots.at(test)];
        // A test of one line has no statement of its own to report.
        if (const BytecodeFunctionDecl* declaration = declarationOf(test)) {
            interpreter_.selectLine(program_->lines[declaration->declarationLine]);
        }
        protect([&] {
            interpreter_.invokeCallableFast(function, {});
            interpreter_.rethrowPendingCoroutineException();
        });
    }

    /// A report shows the line where the statement's last call stood. For what an expectation has
    /// found, the expectation is wanted: the line of the only one in the test, else its header.
    void placeExpectation(const std::string& test, Json& answer) const {
        const BytecodeFunctionDecl* declaration = declarationOf(test);
        if (declaration == nullptr || !isExpectation(answer["message"])) return;
        const ParsedScriptLine* place = nullptr;
        std::size_t found = 0;
        for (std::uint32_t i = declaration->bodyFirstLine; i < declaration->bodyEndLine; ++i) {
            const ParsedScriptLine& line = program_->lines[i];
            if (line.source.find("expect_") == std::string::npos) continue;
            if (line.source == answer.value("source", "")) return;
            place = &line;
            ++found;
        }
        if (found != 1) place = &program_->lines[declaration->declarationLine];
        answer["place"] = path_ + ':' + std::to_string(place->lineNumber + 1);
        answer["source"] = place->source;
    }

private:
    /// Where a test is declared, if that is in this file.
    [[nodiscard]] const BytecodeFunctionDecl* declarationOf(const std::string& test) const {
        const BytecodeFunctionDecl* found = nullptr;
        for (const BytecodeFunctionDecl& declaration : program_->functionDecls) {
            const auto& tokens = program_->lines[declaration.declarationLine].tokens;
            if (tokens.size() > 1 && (tokens[1] == test)) found = &declaration;
        }
        return found;
    }

    /// Whatever leaves has the form of a report, which names the file.
    template <typename Work>
    void protect(const Work& work) {
        const NameStackGuard names(interpreter_, directory_, path_);
        try {
            work();
        } catch (const std::exception& error) {
            interpreter_.rethrowLocated(error, "script");
        }
    }

    std::unique_ptr<RunCounts> counts_;  // outlives the runs
    DovrelScript interpreter_;
    std::shared_ptr<BytecodeProgram> program_;
    std::string path_;
    std::string directory_;
};

std::string dump(const Json& answer) {
    // A script may write bytes that are no text in any encoding.
    return answer.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// Runs `work` and puts into the answer how it came out.
Json answerOf(const std::function<void(Json&)>& work) {
    Json answer;
    try {
        work(answer);
        answer["outcome"] = "passed";
    } catch (const TestSkipped& skipped) {
        answer["outcome"] = "skipped";
        answer["message"] = skipped.reason;
    } catch (const std::exception& error) {
        answer["outcome"] = "failed";
        takeReport(error.what(), answer);
    }
    return answer;
}

TestResult resultOf(const ProcessResult& process) {
    TestResult result;
    result.output = process.output;
    if (!process.ending.empty()) {
        result.message = process.ending;
        result.seconds = process.seconds;
        return result;
    }
    const Json answer = Json::parse(process.sent);
    const std::string outcome = answer.at("outcome");
    if (outcome == "passed") result.outcome = TestOutcome::Passed;
    if (outcome == "skipped") result.outcome = TestOutcome::Skipped;
    result.message = answer.value("message", "");
    result.place = answer.value("place", "");
    result.source = answer.value("source", "");
    result.seconds = answer.value("seconds", 0.0);
    result.coverage = answer.value("coverage", "");
    result.silent = answer.value("silent", std::vector<std::string>());
    return result;
}

}  // namespace

TestFile listTests(const std::string& path, double timeLimit) {
    const ProcessResult process = runInProcess(timeLimit, false, [&] {
        return dump(answerOf([&](Json& answer) {
            std::vector<std::string> silent;
            answer["tests"] = LoadedFile(path, TestConditions(), silent).tests();
        }));
    });
    TestFile file;
    file.loading = resultOf(process);
    if (file.loading.outcome == TestOutcome::Passed) {
        file.tests = Json::parse(process.sent).at("tests").get<std::vector<std::string>>();
    }
    return file;
}

TestResult runTest(const std::string& path, const std::string& test,
                   const TestConditions& conditions) {
    return resultOf(runInProcess(conditions.timeLimit, conditions.showsOutput, [&] {
        std::vector<std::string> silent;
        std::optional<LoadedFile> file;
        Json answer = answerOf([&](Json& result) {
            file.emplace(path, conditions, silent);
            const Clock::time_point start = Clock::now();
            const auto note = [&] {
                result["seconds"] = std::chrono::duration<double>(Clock::now() - start).count();
            };
            try {
                file->call(test);
            } catch (...) {
                note();
                throw;
            }
            note();
        });
        if (answer["outcome"] == "failed" && file) file->placeExpectation(test, answer);
        answer["silent"] = silent;
        if (conditions.countsLines && file) answer["coverage"] = file->coverage();
        return dump(answer);
    }));
}
