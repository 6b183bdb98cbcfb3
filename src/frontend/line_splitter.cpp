#include "frontend/line_splitter.h"

#include <algorithm>

#include "frontend/character_class.h"

namespace {

/// Blanks and tabs only: a carriage return stays in the text, the tokeniser takes it as a blank.
std::string_view trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

/// What has been read of the current logical line.
class LineSplitter {
public:
    explicit LineSplitter(LineSink& sink) : sink_(sink) {}

    /// Takes the next physical line, without its line feed.
    void take(std::string_view line, std::size_t lineNumber);
    /// Flushes what is left, with brackets and strings open or not.
    void finish() {
        if (!pending_.empty()) flushLogicalLine();
    }

private:
    void append(std::string_view piece, std::size_t lineNumber);
    void flushLogicalLine();
    /// Scans `line` up to its end or a comment; closes segments at ";". Returns where it stopped.
    std::size_t scan(std::string_view line, std::size_t lineNumber, std::size_t& segmentStart);
    void scanInsideString(char c);
    void scanOutsideString(char c);

    [[nodiscard]] bool bracketsClosed() const {
        return parentheses_ == 0 && brackets_ == 0 && braces_ == 0;
    }
    void closeBrackets() { parentheses_ = brackets_ = braces_ = 0; }
    static void lower(std::size_t& depth) {
        if (depth > 0) --depth;
    }

    LineSink& sink_;
    std::string_view pending_;  // the text of the line so far
    std::string joined_;        // holds it, if it has come in several pieces
    bool isJoined_ = false;
    std::size_t pendingLine_ = 0;
    char quote_ = 0;  // of the open string, 0 outside
    bool escaped_ = false;
    std::size_t parentheses_ = 0;
    std::size_t brackets_ = 0;
    std::size_t braces_ = 0;
};

void LineSplitter::take(std::string_view line, std::size_t lineNumber) {
    if (line.empty()) {
        if (pending_.empty()) sink_.takeEmptyLine(lineNumber);
        return;
    }
    std::size_t segmentStart = 0;
    const std::size_t stop = scan(line, lineNumber, segmentStart);
    // A comment at the very start of a line leaves a record, a blank line or an indented comment
    // none: kept, line tables count on it.
    if (pending_.empty() && stop == 0) sink_.takeEmptyLine(lineNumber);
    append(trimmed(line.substr(segmentStart, stop - segmentStart)), lineNumber);
    // The blank that will join the next piece is what a backslash at the line's end escapes.
    escaped_ = false;
    if (!pending_.empty() && quote_ == 0 && bracketsClosed()) flushLogicalLine();
}

std::size_t LineSplitter::scan(std::string_view line, std::size_t lineNumber,
                               std::size_t& segmentStart) {
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote_ != 0) {
            scanInsideString(c);
            continue;
        }
        if (!hasClass(c, kSplitterCharacter)) continue;
        if (c == '@' && i + 1 < line.size() && line[i + 1] == '@') {
            return i;
        } else if (c == ';' && bracketsClosed()) {
            append(trimmed(line.substr(segmentStart, i - segmentStart)), lineNumber);
            if (!pending_.empty()) flushLogicalLine();
            segmentStart = i + 1;
        } else {
            scanOutsideString(c);
        }
    }
    return line.size();
}

void LineSplitter::scanInsideString(char c) {
    if (escaped_) {
        escaped_ = false;
    } else if (c == quote_) {
        quote_ = 0;
    } else {
        escaped_ = c == '\\';
    }
}

void LineSplitter::scanOutsideString(char c) {
    switch (c) {
        case '"':
        case '\'': quote_ = c; break;
        case '(': ++parentheses_; break;
        case '[': ++brackets_; break;
        case '{': ++braces_; break;
        case ')': lower(parentheses_); break;
        case ']': lower(brackets_); break;
        case '}': lower(braces_); break;
        default: break;
    }
}

void LineSplitter::append(std::string_view piece, std::size_t lineNumber) {
    if (piece.empty()) return;
    if (pending_.empty()) {
        pendingLine_ = lineNumber;
        pending_ = piece;
        return;
    }
    if (!isJoined_) joined_ = pending_;
    isJoined_ = true;
    joined_ += ' ';
    joined_ += piece;
    pending_ = joined_;
}

void LineSplitter::flushLogicalLine() {
    sink_.takeLine(pending_, pendingLine_, isJoined_, quote_ != 0);
    pending_ = {};
    isJoined_ = false;
    closeBrackets();
}

}  // namespace

std::size_t countLineFeeds(std::string_view text) {
    std::size_t count = 0;
    for (std::size_t at = text.find('\n'); at != std::string_view::npos; ++count) {
        at = text.find('\n', at + 1);
    }
    return count;
}

void splitLines(std::string_view source, LineSink& sink) {
    LineSplitter splitter(sink);
    std::size_t lineNumber = 0;
    for (std::size_t start = 0; start < source.size(); ++lineNumber) {
        const std::size_t end = std::min(source.find('\n', start), source.size());
        splitter.take(source.substr(start, end - start), lineNumber);
        start = end + 1;
    }
    splitter.finish();
}
