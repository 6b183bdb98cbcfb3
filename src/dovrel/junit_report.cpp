#include "dovrel/junit_report.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "dovrel/text_file.h"

namespace {

std::string seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6f", value);
    return text;
}

struct Counts {
    std::size_t tests = 0;
    std::size_t failures = 0;
    std::size_t skipped = 0;
    double seconds = 0;

    void add(const TestResult& result) {
        ++tests;
        failures += result.outcome == TestOutcome::Failed ? 1 : 0;
        skipped += result.outcome == TestOutcome::Skipped ? 1 : 0;
        seconds += result.seconds;
    }
    void add(const Counts& other) {
        tests += other.tests;
        failures += other.failures;
        skipped += other.skipped;
        seconds += other.seconds;
    }
    [[nodiscard]] std::string attributes() const {
        return " tests=\"" + std::to_string(tests) + "\" failures=\"" + std::to_string(failures) +
               "\" errors=\"0\" skipped=\"" + std::to_string(skipped) + "\" time=\"" +
               ::seconds(seconds) + '"';
    }
};

/// The length of the character that begins at `at`, or 0 if the bytes there are no proper UTF-8.
std::size_t characterLength(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(at);
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || at + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0U) != 0x80U) return 0;
    }
    return length;
}

}  // namespace

std::string escapeXml(const std::string& text) {
    std::string escaped;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = characterLength(text, at);
        const auto byte = static_cast<unsigned char>(text[at]);
        if (length > 1) {
            escaped.append(text, at, length);
        } else if (length == 0 || (byte < 0x20 && byte != '\n' && byte != '\t')) {
            escaped += '?';
        } else if (byte == '&') {
            escaped += "&amp;";
        } else if (byte == '<') {
            escaped += "&lt;";
        } else if (byte == '>') {
            escaped += "&gt;";
        } else if (byte == '"') {
            escaped += "&quot;";
        } else {
            escaped += text[at];
        }
        at += std::max<std::size_t>(1, length);
    }
    return escaped;
}

void JunitReport::beginFile(const std::string& path) { files_.push_back({path, {}}); }

void JunitReport::addTest(const std::string& test, const TestResult& result) {
    files_.back().tests.emplace_back(test, result);
}

std::string JunitReport::text() const {
    Counts all;
    std::string suites;
    for (const File& file : files_) {
        Counts counts;
        std::string cases;
        for (const auto& [test, result] : file.tests) {
            counts.add(result);
            cases += "    <testcase classname=\"" + escapeXml(file.path) + "\" name=\"" +
                     escapeXml(test) + "\" time=\"" + seconds(result.seconds) + "\">\n";
            const std::string firstLine = result.message.substr(0, result.message.find('\n'));
            if (result.outcome == TestOutcome::Failed) {
                std::string body = result.message;
                if (!result.place.empty()) body = result.place + ": " + result.source + '\n' + body;
                cases += "      <failure message=\"" + escapeXml(firstLine) + "\">" +
                         escapeXml(body) + "</failure>\n";
            }
            if (result.outcome == TestOutcome::Skipped) {
                cases += "      <skipped message=\"" + escapeXml(firstLine) + "\"/>\n";
            }
            if (!result.output.empty()) {
                cases += "      <system-out>" + escapeXml(result.output) + "</system-out>\n";
            }
            cases += "    </testcase>\n";
        }
        suites += "  <testsuite name=\"" + escapeXml(file.path) + '"' + counts.attributes() +
                  ">\n" + cases + "  </testsuite>\n";
        all.add(counts);
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + all.attributes() + ">\n" +
           suites + "</testsuites>\n";
}

void JunitReport::write(const std::string& path) const { writeTextFile(path, text()); }
