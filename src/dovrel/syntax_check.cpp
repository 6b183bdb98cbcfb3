#include "dovrel/syntax_check.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "frontend/line_preparation.h"

namespace {

class Failure : public std::exception {
public:
    Failure(std::string message, std::size_t token) : error{std::move(message), token} {}
    SyntaxError error;
};

/// The message of a report, without its place.
std::string messageOf(std::string_view report) {
    if (!isLocatedReport(report)) return std::string(report);
    report.remove_prefix(kReportMarker.size() + 1);
    return std::string(report.substr(0, report.find("\n  at ")));
}

/// Walks over one line, each kind by the steps in which it would run.
class LineReader {
public:
    LineReader(DovrelScript& interpreter, const ParsedScriptLine& line)
        : interpreter_(interpreter), line_(line) {}

    void read() {
        switch (line_.kind) {
            case LineKind::Plain: readPlain(); break;
            case LineKind::If: readCondition("if"); break;
            case LineKind::ElseIf: readCondition("elseif"); break;
            case LineKind::While: readCondition("while"); break;
            case LineKind::Until: readCondition("until"); break;
            case LineKind::For: readFor(); break;
            case LineKind::Return: readReturn(); break;
            case LineKind::Function: readFunction(1); break;
            case LineKind::DecayFunction:
            case LineKind::NativeFunction:
            case LineKind::LocalFunction: readFunction(2); break;
            default: break;
        }
    }

private:
    [[nodiscard]] bool atEnd() const { return at_ >= line_.tokens.size(); }
    [[nodiscard]] bool nextIs(std::string_view text) const {
        return !atEnd() && line_.tokens[at_] == text;
    }
    void expect(std::string_view text, const char* message) {
        if (!nextIs(text)) throw Failure(message, at_);
        ++at_;
    }
    void expectName(const char* message) {
        if (atEnd() || !line_.tokenAnalysis[at_].isIdentifier) throw Failure(message, at_);
        ++at_;
    }
    void expectEnd(const char* message) {
        if (!atEnd()) throw Failure(message, at_);
    }

    void readExpression() {
        try {
            interpreter_.skipExpression(line_.tokens, at_, 1, &line_.tokenAnalysis);
        } catch (const std::exception& error) {
            std::string message = messageOf(error.what());
            // An unknown token has been passed already.
            const bool isPassed = message.starts_with("Unknown token: ");
            throw Failure(std::move(message), isPassed ? interpreter_.lastTokenIndex : at_);
        }
    }

    void readPlain() {
        if (line_.assignment == nullptr) {
            readExpression();
            expectEnd("Unexpected trailing token");
            return;
        }
        for (const ParsedAssignmentTarget& target : line_.assignment->targets) {
            for (const TokenRange& range : target.indexRanges) readRange(range);
        }
        for (const TokenRange& range : line_.assignment->valueRanges) readRange(range);
    }
    void readRange(TokenRange range) {
        at_ = range.first;
        readExpression();
        if (at_ < range.last) throw Failure("Unexpected token in assignment expression", at_);
    }
    void readCondition(const std::string& word) {
        at_ = 1;
        if (atEnd() && word == "until") throw Failure("Missing until condition", at_);
        readExpression();
        expectEnd(("Unexpected token after " + word + " condition").c_str());
    }
    void readFor() {
        if (isNumericForLine(line_)) {
            at_ = 3;
            readExpression();
            expect(",", "Expected ',' after for start value");
            readExpression();
            if (nextIs(",")) {
                ++at_;
                readExpression();
            }
            expectEnd("Unexpected token after for clause");
            return;
        }
        at_ = 1;
        expectName("Expected loop variable name");
        while (nextIs(",")) {
            ++at_;
            expectName("Expected loop variable name");
        }
        expect("in", "Expected 'in' in generic for loop");
        readExpression();
        expectEnd("Unexpected token after for iterator");
    }
    void readReturn() {
        at_ = 1;
        while (!atEnd()) {
            readExpression();
            if (!atEnd()) expect(",", "Unexpected token after return value");
        }
    }
    void readFunction(std::size_t name) {
        at_ = name;
        expectName("Expected function target");
        while (nextIs("[")) {
            ++at_;
            readExpression();
            expect("]", "Expected closing bracket in function target");
        }
        expect("(", "Expected '(' after function target");
        if (!nextIs(")")) readParameters();
        expect(")", "Expected ')' after function parameters");
        expectEnd("Unexpected token after function declaration");
    }
    void readParameters() {
        for (;;) {
            if (nextIs("...")) {
                ++at_;
                return;
            }
            expectName("Expected function parameter name");
            if (nextIs(")")) return;
            expect(",", "Expected ',' or ')' after function parameter");
        }
    }

    DovrelScript& interpreter_;
    const ParsedScriptLine& line_;
    std::size_t at_ = 0;
};

}  // namespace

std::optional<SyntaxError> findSyntaxError(DovrelScript& interpreter,
                                           const ParsedScriptLine& line) {
    try {
        LineReader(interpreter, line).read();
    } catch (const Failure& failure) {
        SyntaxError error = failure.error;
        error.token = std::min(error.token, line.tokens.size());
        return error;
    }
    return std::nullopt;
}
