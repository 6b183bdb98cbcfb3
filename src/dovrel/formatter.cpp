#include "dovrel/formatter.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "dovrel/source_text.h"
#include "dovrel/token_spacing.h"

namespace {

constexpr std::size_t kIndent = 4;

/// What stands in a text, in the order of the text.
struct Item {
    enum class Kind { Token, Semicolon, Comment } kind = Kind::Token;
    SourceRange range;
    std::size_t line = 0;   // of a token: its logical line
    std::size_t token = 0;  // of a token: its index there
};

std::vector<Item> itemsOf(const ParsedSource& script) {
    std::vector<Item> items;
    for (std::size_t line = 0; line < script.lines().size(); ++line) {
        for (std::size_t token = 0; token < script.lines()[line].tokens.size(); ++token) {
            items.push_back({Item::Kind::Token, script.tokenRange(line, token), line, token});
        }
    }
    for (const SourceRange& range : script.source().comments()) {
        items.push_back({Item::Kind::Comment, range});
    }
    for (const std::size_t at : script.source().semicolons()) {
        items.push_back({Item::Kind::Semicolon, {at, at + 1}});
    }
    std::sort(items.begin(), items.end(),
              [](const Item& a, const Item& b) { return a.range.first < b.range.first; });
    return items;
}

std::string_view withoutBlanksBehind(std::string_view text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

/// How deep the blocks are nested, by the rules by which the front end links them.
class BlockDepth {
public:
    /// How deep `line` itself stands: what closes a block or begins a branch stands further out.
    [[nodiscard]] std::size_t depthOf(const ParsedScriptLine& line) const {
        return open_.size() - (stepsOut(line) ? 1 : 0);
    }
    [[nodiscard]] std::size_t depth() const { return open_.size(); }
    [[nodiscard]] bool stepsOut(const ParsedScriptLine& line) const {
        if (open_.empty()) return false;
        switch (line.kind) {
            case LineKind::End: return true;
            case LineKind::Until: return open_.back() == LineKind::Repeat;
            case LineKind::ElseIf:
            case LineKind::Else: return open_.back() == LineKind::If;
            default: return false;
        }
    }
    void take(const ParsedScriptLine& line) {
        switch (line.kind) {
            case LineKind::If:
            case LineKind::While:
            case LineKind::For:
            case LineKind::Repeat:
            case LineKind::Function:
            case LineKind::DecayFunction:
            case LineKind::NativeFunction:
            case LineKind::LocalFunction: open_.push_back(line.kind); break;
            case LineKind::End:
            case LineKind::Until:
                if (stepsOut(line)) open_.pop_back();
                break;
            default: break;
        }
    }

private:
    std::vector<LineKind> open_;
};

/// A physical line of the result.
struct LaidOutLine {
    std::string code;               // with its indentation
    std::string comment;            // empty for none
    std::size_t commentColumn = 0;  // of a comment behind code, as it stood
    bool continuesString = false;   // begins inside of a string
    bool endsInString = false;      // its end belongs to a string
};

bool isBlankLine(const LaidOutLine& line) {
    return line.code.find_first_not_of(' ') == std::string::npos && line.comment.empty() &&
           !line.continuesString;
}

class Formatter {
public:
    explicit Formatter(const ParsedSource& script)
        : script_(script), source_(script.source()), items_(itemsOf(script)) {}

    std::string run();

private:
    LaidOutLine layOut(std::size_t physical);
    void appendToken(LaidOutLine& out, const Item& item, SourceRange line);
    /// Where a physical line begins that goes on with an open bracket.
    [[nodiscard]] std::size_t continuationColumn(const Item& first) const;
    [[nodiscard]] std::size_t commentIndent(const Item& comment) const;
    void trackBracket(const std::string& token, const LaidOutLine& out, bool endsLine);
    [[nodiscard]] bool isLastOnLine(std::size_t item, SourceRange line) const;
    void alignComments(std::vector<LaidOutLine>& lines) const;

    /// An open bracket: what stands in it begins at `content`, its closer at `closer`.
    struct OpenBracket {
        std::size_t content = 0;
        std::size_t closer = 0;
    };

    const ParsedSource& script_;
    const SourceText& source_;
    std::vector<Item> items_;
    std::size_t next_ = 0;  // the item that comes next
    BlockDepth blocks_;
    std::vector<OpenBracket> brackets_;
    std::size_t lineIndent_ = 0;  // of the physical line that is laid out
    const Item* open_ = nullptr;  // a string that goes on in the next physical line
};

bool Formatter::isLastOnLine(std::size_t item, SourceRange line) const {
    return item + 1 >= items_.size() || items_[item + 1].range.first >= line.last ||
           items_[item + 1].kind == Item::Kind::Comment;
}

std::size_t Formatter::continuationColumn(const Item& first) const {
    if (brackets_.empty()) return lineIndent_;
    const std::string_view text = source_.slice(first.range);
    const bool closes = text == ")" || text == "]" || text == "}";
    return closes ? brackets_.back().closer : brackets_.back().content;
}

/// A comment of its own stands with the code behind it. In front of what closes a block it may
/// belong to either side; where it stood tells.
std::size_t Formatter::commentIndent(const Item& comment) const {
    if (!brackets_.empty()) return brackets_.back().content;
    const std::size_t inside = blocks_.depth() * kIndent;
    const auto code =
        std::find_if(items_.begin() + static_cast<std::ptrdiff_t>(next_), items_.end(),
                     [](const Item& item) { return item.kind == Item::Kind::Token; });
    if (code == items_.end()) return inside;
    const ParsedScriptLine& line = script_.lines()[code->line];
    if (!blocks_.stepsOut(line)) return inside;
    const std::size_t column = source_.positionOf(comment.range.first).column;
    const std::size_t codeColumn = source_.positionOf(code->range.first).column;
    return column <= codeColumn ? blocks_.depthOf(line) * kIndent : inside;
}

void Formatter::trackBracket(const std::string& token, const LaidOutLine& out, bool endsLine) {
    if (token.size() != 1) return;
    switch (token[0]) {
        case '(':
        case '[':
        case '{': {
            const std::size_t column = columnsOf(out.code);
            if (endsLine) {
                brackets_.push_back({lineIndent_ + kIndent, lineIndent_});
            } else {
                brackets_.push_back({column, column - 1});
            }
            break;
        }
        case ')':
        case ']':
        case '}':
            if (!brackets_.empty()) brackets_.pop_back();
            break;
        default: break;
    }
}

void Formatter::appendToken(LaidOutLine& out, const Item& item, SourceRange line) {
    const ParsedScriptLine& statement = script_.lines()[item.line];
    if (item.token == 0) {
        brackets_.clear();
        blocks_.take(statement);
    }
    const SourceRange shown = {item.range.first, std::min(item.range.last, line.last)};
    out.code += source_.slice(shown);
    if (item.range.last > line.last) {
        open_ = &item;
        out.endsInString = true;
    }
    trackBracket(statement.tokens[item.token], out, isLastOnLine(next_, line));
}

LaidOutLine Formatter::layOut(std::size_t physical) {
    const SourceRange line = source_.physicalLine(physical);
    LaidOutLine out;
    bool isFirst = true;
    if (open_ != nullptr) {
        // The blanks in front belong to the string, or are dropped with the line break in it.
        out.continuesString = true;
        out.code = source_.slice({line.first, std::min(open_->range.last, line.last)});
        out.endsInString = open_->range.last > line.last;
        if (!out.endsInString) open_ = nullptr;
        isFirst = false;
    }
    bool afterSemicolon = false;
    for (; next_ < items_.size() && items_[next_].range.first < line.last; ++next_) {
        const Item& item = items_[next_];
        if (item.kind == Item::Kind::Semicolon) {
            afterSemicolon = true;
            continue;
        }
        if (item.kind == Item::Kind::Comment) {
            out.comment = withoutBlanksBehind(source_.slice({item.range.first, line.last}));
            out.commentColumn = columnsOf(source_.slice({line.first, item.range.first}));
            if (isFirst) out.code.assign(commentIndent(item), ' ');
            continue;
        }
        const ParsedScriptLine& statement = script_.lines()[item.line];
        if (isFirst) {
            lineIndent_ =
                item.token == 0 ? blocks_.depthOf(statement) * kIndent : continuationColumn(item);
            out.code.assign(lineIndent_, ' ');
        } else if (item.token == 0) {
            if (afterSemicolon) out.code += "; ";
        } else if (wantsBlankBefore(statement, item.token)) {
            out.code += ' ';
        }
        isFirst = false;
        appendToken(out, item, line);
    }
    return out;
}

/// Comments behind the code of lines that follow each other stay below each other where they were;
/// any other stands two blanks behind its code.
void Formatter::alignComments(std::vector<LaidOutLine>& lines) const {
    const auto isBehindCode = [](const LaidOutLine& line) {
        return !line.comment.empty() && line.code.find_first_not_of(' ') != std::string::npos;
    };
    for (std::size_t first = 0; first < lines.size();) {
        if (!isBehindCode(lines[first])) {
            lines[first].code += lines[first].comment;
            ++first;
            continue;
        }
        std::size_t last = first;
        std::size_t width = 0;
        while (last < lines.size() && isBehindCode(lines[last]) &&
               lines[last].commentColumn == lines[first].commentColumn) {
            width = std::max(width, columnsOf(lines[last].code));
            ++last;
        }
        for (; first < last; ++first) {
            std::string& code = lines[first].code;
            code.append(width + 2 - columnsOf(code), ' ');
            code += lines[first].comment;
        }
    }
}

std::string Formatter::run() {
    std::vector<LaidOutLine> lines;
    std::vector<std::string_view> endings;  // a carriage return stays where it was
    for (std::size_t i = 0; i < source_.physicalLineCount(); ++i) {
        LaidOutLine line = layOut(i);
        // One blank line between, none at the start.
        if (isBlankLine(line)) {
            if (lines.empty() || isBlankLine(lines.back())) continue;
            line.code.clear();
        }
        const std::string_view text = source_.slice(source_.physicalLine(i));
        const bool hasReturn = !line.endsInString && !text.empty() && text.back() == '\r';
        endings.emplace_back(hasReturn ? "\r\n" : "\n");
        lines.push_back(std::move(line));
    }
    while (!lines.empty() && isBlankLine(lines.back())) lines.pop_back();
    alignComments(lines);
    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        text += lines[i].code;
        text += endings[i];
    }
    return text;
}

std::vector<std::string> commentsOf(const SourceText& source) {
    std::vector<std::string> comments;
    for (const SourceRange& range : source.comments()) {
        comments.emplace_back(withoutBlanksBehind(source.slice(range)));
    }
    return comments;
}

/// The two are read alike: line by line the same tokens, and the same comments.
bool meansTheSame(const ParsedSource& a, const ParsedSource& b) {
    const auto filled = [](const ParsedSource& script) {
        std::vector<const ParsedScriptLine*> lines;
        for (const ParsedScriptLine& line : script.lines()) {
            if (!line.tokens.empty()) lines.push_back(&line);
        }
        return lines;
    };
    const auto first = filled(a);
    const auto second = filled(b);
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [](const ParsedScriptLine* x, const ParsedScriptLine* y) {
                          return x->tokens == y->tokens;
                      }) &&
           commentsOf(a.source()) == commentsOf(b.source());
}

}  // namespace

std::string formatScript(const std::string& text) {
    const SourceText source(text);
    if (const auto open = source.openString()) {
        throw FormatError("the string that begins in line " +
                          std::to_string(source.positionOf(*open).line + 1) + " is not closed");
    }
    const ParsedSource before(text);
    std::string formatted = Formatter(before).run();
    const ParsedSource after(formatted);
    if (!meansTheSame(before, after)) throw FormatError("the layout would change its meaning");
    if (Formatter(after).run() != formatted) throw FormatError("the layout does not settle");
    return formatted;
}
