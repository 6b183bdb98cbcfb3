#include "dovrel/source_text.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "frontend/character_class.h"
#include "frontend/line_preparation.h"

/// Splits as the front end's line splitter does, and notes where everything stands.
class TextSplitter {
public:
    explicit TextSplitter(SourceText& out) : out_(out), text_(out.text_) {}

    void run() {
        for (std::size_t start = 0; start < text_.size();) {
            const std::size_t end = std::min(text_.find('\n', start), text_.size());
            out_.lineStarts_.push_back(start);
            if (end > start) takePhysicalLine(start, end);
            start = end + 1;
        }
        flush();
        if (quote_ != 0) out_.openString_ = quoteAt_;
        if (!brackets_.empty()) out_.openBracket_ = brackets_.front();
    }

private:
    void takePhysicalLine(std::size_t start, std::size_t end) {
        std::size_t segment = start;
        std::size_t at = start;
        for (; at < end; ++at) {
            const char c = text_[at];
            if (quote_ != 0) {
                takeInString(at, start);
            } else if (c == '@' && at + 1 < end && text_[at + 1] == '@') {
                out_.comments_.push_back({at, end});
                break;
            } else if (c == ';' && brackets_.empty()) {
                append(segment, at);
                flush();
                out_.semicolons_.push_back(at);
                segment = at + 1;
            } else {
                takeOutsideString(c, at);
            }
        }
        append(segment, at);
        // The blank that will join the next piece is what a backslash at the line's end escapes.
        escaped_ = false;
        if (quote_ == 0 && brackets_.empty()) flush();
    }

    void takeInString(std::size_t at, std::size_t lineStart) {
        if (escaped_) {
            escaped_ = false;
        } else if (text_[at] == quote_) {
            quote_ = 0;
            if (quoteAt_ < lineStart) out_.longStrings_.push_back({quoteAt_, at + 1});
        } else {
            escaped_ = text_[at] == '\\';
        }
    }

    void takeOutsideString(char c, std::size_t at) {
        switch (c) {
            case '"':
            case '\'':
                quote_ = c;
                quoteAt_ = at;
                break;
            case '(':
            case '[':
            case '{': brackets_.push_back(at); break;
            case ')': close('('); break;
            case ']': close('['); break;
            case '}': close('{'); break;
            default: break;
        }
    }

    /// Kinds of brackets are counted one by one: a closer ends the last opener of its kind.
    void close(char opener) {
        const auto found = std::find_if(brackets_.rbegin(), brackets_.rend(),
                                        [&](std::size_t at) { return text_[at] == opener; });
        if (found != brackets_.rend()) brackets_.erase(std::next(found).base());
    }

    void append(std::size_t first, std::size_t last) {
        const auto isBlank = [this](std::size_t at) {
            return text_[at] == ' ' || text_[at] == '\t';
        };
        while (first < last && isBlank(first)) ++first;
        while (first < last && isBlank(last - 1)) --last;
        if (first == last) return;
        if (!pending_.joined.empty()) pending_.joined += ' ';
        pending_.pieces.push_back({pending_.joined.size(), {first, last}});
        pending_.joined.append(text_, first, last - first);
    }

    void flush() {
        if (!pending_.joined.empty()) out_.lines_.push_back(std::move(pending_));
        pending_ = {};
    }

    SourceText& out_;
    const std::string& text_;
    SplitLine pending_;
    std::vector<std::size_t> brackets_;  // those that are open
    std::size_t quoteAt_ = 0;
    char quote_ = 0;  // of the open string, 0 outside
    bool escaped_ = false;
};

SourceText::SourceText(std::string text) : text_(std::move(text)) { TextSplitter(*this).run(); }

SourceRange SourceText::physicalLine(std::size_t line) const {
    const std::size_t first = lineStarts_[line];
    return {first, std::min(text_.find('\n', first), text_.size())};
}

SourcePosition SourceText::positionOf(std::size_t offset) const {
    const auto next = std::upper_bound(lineStarts_.begin(), lineStarts_.end(), offset);
    if (next == lineStarts_.begin()) return {};
    const auto line = static_cast<std::size_t>(next - lineStarts_.begin()) - 1;
    return {line, offset - lineStarts_[line]};
}

std::size_t SourceText::offsetOf(const SplitLine& line, std::size_t index) {
    const auto next = std::upper_bound(
        line.pieces.begin(), line.pieces.end(), index,
        [](std::size_t at, const SplitLine::Piece& piece) { return at < piece.joined; });
    if (next == line.pieces.begin()) return 0;
    const SplitLine::Piece& piece = *std::prev(next);
    return piece.range.first + (index - piece.joined);
}

// They follow each other in the text, with white space at most between them.
std::vector<SourceRange> locateTokens(const SplitLine& split, const ParsedScriptLine& line) {
    std::vector<SourceRange> ranges;
    ranges.reserve(line.tokens.size());
    std::size_t at = 0;
    for (const std::string& token : line.tokens) {
        at = split.joined.find(token, at);
        if (at == std::string::npos) throw std::logic_error("a token is not in its line: " + token);
        ranges.push_back({SourceText::offsetOf(split, at),
                          SourceText::offsetOf(split, at + token.size() - 1) + 1});
        at += token.size();
    }
    return ranges;
}

ParsedSource::ParsedSource(std::string text)
    : source_(std::move(text)), interpreter_(std::make_unique<DovrelScript>()) {
    lines_ = interpreter_->parseLines(source_.text());
    std::erase_if(lines_, [](const ParsedScriptLine& line) { return line.source.empty(); });
    // The links count the records that are gone now.
    for (ParsedScriptLine& line : lines_) {
        line.matchingEnd = kNoLine;
        line.nextBranch = kNoLine;
    }
    matchBlocks(lines_);
    const std::vector<SplitLine>& split = source_.lines();
    if (split.size() != lines_.size()) throw std::logic_error("the front end splits differently");
    tokens_.reserve(lines_.size());
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        if (split[i].joined != lines_[i].source) {
            throw std::logic_error("the front end joins differently: " + lines_[i].source);
        }
        tokens_.push_back(locateTokens(split[i], lines_[i]));
    }
}

std::size_t columnsOf(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    }));
}
