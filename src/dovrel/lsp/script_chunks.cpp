#include "dovrel/lsp/script_chunks.h"

#include <algorithm>
#include <array>
#include <utility>

#include "frontend/character_class.h"

namespace {

/// How much of a line tells whether it begins a statement.
constexpr std::size_t kStatementStart = 80;

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool startsWord(char c) { return hasClass(c, kIdentifierStart | kDigitCharacter); }

/// A line in an open bracket that can only be a statement behind a forgotten closer.
bool beginsStatement(std::string_view line) {
    line = line.substr(0, kStatementStart);
    while (!line.empty() && isBlank(line.front())) line.remove_prefix(1);
    std::size_t length = 0;
    while (length < line.size() && startsWord(line[length])) ++length;
    const std::string_view word = line.substr(0, length);
    std::string_view rest = line.substr(length);
    const bool hasBlank = !rest.empty() && isBlank(rest.front());
    while (!rest.empty() && (isBlank(rest.front()) || rest.front() == '\r')) rest.remove_prefix(1);
    constexpr std::array<std::string_view, 10> kOpeners = {
        "function", "if", "elseif", "while", "for", "until", "return", "native", "local", "decay"};
    if (std::find(kOpeners.begin(), kOpeners.end(), word) != kOpeners.end()) {
        return hasBlank && !rest.empty() && startsWord(rest.front());
    }
    return (word == "end" || word == "else" || word == "repeat") && rest.empty();
}

class ChunkSplitter {
public:
    ChunkSplitter(std::string_view text, std::size_t start) : text_(text), start_(start) {}

    SplitChunk run() {
        std::size_t lineStart = start_;
        while (true) {
            const std::size_t lineEnd = std::min(text_.find('\n', lineStart), text_.size());
            const bool continues = lineStart != start_ && quote_ == 0;
            if (continues && beginsStatement(text_.substr(lineStart, lineEnd - lineStart))) {
                chunk_.isOpen = true;
                look(lineStart + kStatementStart);
                chunk_.end = lineStart;
                break;
            }
            takePhysicalLine(lineStart, lineEnd);
            lineStart = std::min(lineEnd + 1, text_.size());
            chunk_.end = lineStart;
            if (quote_ == 0 && bracketsClosed()) break;
            if (lineStart == text_.size()) {
                chunk_.isOpen = !bracketsClosed();
                look(lineStart + 1);
                break;
            }
        }
        flush();
        // A text that ends without a line feed goes on where something is appended.
        look(text_[chunk_.end - 1] == '\n' ? chunk_.end : chunk_.end + 1);
        return std::move(chunk_);
    }

private:
    void look(std::size_t reach) { chunk_.reach = std::max(chunk_.reach, reach); }

    [[nodiscard]] bool bracketsClosed() const {
        return parentheses_ == 0 && brackets_ == 0 && braces_ == 0;
    }

    void takePhysicalLine(std::size_t start, std::size_t end) {
        std::size_t segment = start;
        std::size_t at = start;
        for (; at < end; ++at) {
            const char c = text_[at];
            if (quote_ != 0) {
                takeInString(c);
            } else if (c == '@' && at + 1 < end && text_[at + 1] == '@') {
                chunk_.comments.push_back(rangeOf(at, end));
                break;
            } else if (c == ';' && bracketsClosed()) {
                append(segment, at);
                flush();
                segment = at + 1;
            } else if (c == '"' || c == '\'') {
                quote_ = c;
                if (!isClosed(at, end)) {
                    append(segment, end);
                    closer_ = c;
                    quote_ = 0;
                    parentheses_ = brackets_ = braces_ = 0;
                    return;
                }
            } else {
                takeBracket(c);
            }
        }
        append(segment, at);
        escaped_ = false;
        if (quote_ == 0 && bracketsClosed()) flush();
    }

    void takeInString(char c) {
        if (escaped_) {
            escaped_ = false;
        } else if (c == quote_) {
            quote_ = 0;
        } else {
            escaped_ = c == '\\';
        }
    }

    /// The string that begins at `opener`, in the line that ends at `lineEnd`, has its end: in this
    /// line, or in one behind it where nothing touches it that cannot stand there.
    bool isClosed(std::size_t opener, std::size_t lineEnd) {
        bool escaped = false;
        std::size_t lines = 0;
        const std::size_t last = std::min(text_.size(), lineEnd + kLongestStringBytes);
        for (std::size_t at = opener + 1; at < last; ++at) {
            const char c = text_[at];
            if (c == '\n') {
                escaped = false;
                if (++lines > kLongestStringLines) {
                    look(at + 1);
                    return false;
                }
            } else if (escaped) {
                escaped = false;
            } else if (c == text_[opener]) {
                if (lines == 0) return true;
                const char next = at + 1 < text_.size() ? text_[at + 1] : '\n';
                look(at + 2);
                return !startsWord(next) && next != '"' && next != '\'';
            } else {
                escaped = c == '\\';
            }
        }
        look(last + 1);
        return false;
    }

    void takeBracket(char c) {
        const auto lower = [](std::size_t& depth) {
            if (depth > 0) --depth;
        };
        switch (c) {
            case '(': ++parentheses_; break;
            case '[': ++brackets_; break;
            case '{': ++braces_; break;
            case ')': lower(parentheses_); break;
            case ']': lower(brackets_); break;
            case '}': lower(braces_); break;
            default: break;
        }
    }

    [[nodiscard]] ChunkRange rangeOf(std::size_t first, std::size_t last) const {
        return {static_cast<std::uint32_t>(first - start_),
                static_cast<std::uint32_t>(last - start_)};
    }

    void append(std::size_t first, std::size_t last) {
        while (first < last && isBlank(text_[first])) ++first;
        while (first < last && isBlank(text_[last - 1])) --last;
        if (first == last) return;
        if (!pending_.joined.empty()) pending_.joined += ' ';
        pending_.pieces.push_back({pending_.joined.size(), {first - start_, last - start_}});
        pending_.joined.append(text_.substr(first, last - first));
    }

    void flush() {
        if (!pending_.joined.empty()) chunk_.lines.push_back({std::move(pending_), closer_});
        pending_ = {};
        closer_ = 0;
    }

    std::string_view text_;
    std::size_t start_;
    SplitChunk chunk_;
    SplitLine pending_;
    std::size_t parentheses_ = 0;
    std::size_t brackets_ = 0;
    std::size_t braces_ = 0;
    char quote_ = 0;   // of the open string, 0 outside
    char closer_ = 0;  // of a string that ends with its line
    bool escaped_ = false;
};

}  // namespace

SplitChunk splitChunk(std::string_view text, std::size_t start) {
    return ChunkSplitter(text, start).run();
}
