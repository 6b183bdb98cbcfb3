#include "dovrel/reference_text.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace {

/// Takes the marks off that only serve the printed page. Links become their words; code takes a
/// colour, or keeps its quotes where there are none.
class MarkRemover {
public:
    MarkRemover(std::string_view text, const Palette& palette) : text_(text), palette_(palette) {}

    std::string run() {
        while (at_ < text_.size()) {
            if (text_[at_] == '`') {
                takeCode();
            } else if (text_[at_] == '[' && takeLink()) {
                continue;
            } else if (text_.substr(at_).starts_with("**")) {
                at_ += 2;
            } else {
                plain_ += text_[at_++];
            }
        }
        return std::move(plain_);
    }

private:
    /// The position behind the code that begins at `at`; `content` becomes what it quotes.
    std::size_t endOfCode(std::size_t at, std::string_view& content) const {
        const std::size_t ticks = std::min(text_.find_first_not_of('`', at), text_.size()) - at;
        const std::size_t close = text_.find(text_.substr(at, ticks), at + ticks);
        if (close == std::string_view::npos) return at + ticks;
        content = text_.substr(at + ticks, close - at - ticks);
        if (ticks > 1 && content.size() > 2) content = content.substr(1, content.size() - 2);
        return close + ticks;
    }
    void takeCode() {
        std::string_view content;
        at_ = endOfCode(at_, content);
        const std::string code(content);
        plain_ += palette_.isOn() ? palette_.paint(Colour::Cyan, code) : '`' + code + '`';
    }
    bool takeLink() {
        std::size_t end = at_ + 1;
        std::string_view ignored;
        while (end < text_.size() && text_[end] != ']') {
            end = text_[end] == '`' ? endOfCode(end, ignored) : end + 1;
        }
        if (!text_.substr(std::min(end, text_.size())).starts_with("](")) return false;
        const std::size_t close = text_.find(')', end);
        if (close == std::string_view::npos) return false;
        plain_ += MarkRemover(text_.substr(at_ + 1, end - at_ - 1), palette_).run();
        at_ = close + 1;
        return true;
    }

    std::string_view text_;
    const Palette& palette_;
    std::string plain_;
    std::size_t at_ = 0;
};

std::string withoutMarks(std::string_view text, const Palette& palette) {
    return MarkRemover(text, palette).run();
}

/// The columns that a text takes: neither its colours nor the further bytes of a character count.
std::size_t shownWidth(std::string_view text) {
    std::size_t width = 0;
    bool inColour = false;
    for (const char c : text) {
        if (c == '\x1b') inColour = true;
        if (!inColour && (static_cast<unsigned char>(c) & 0xC0U) != 0x80U) ++width;
        if (c == 'm') inColour = false;
    }
    return width;
}

/// Appends `text`, broken at blanks into lines of at most `width` columns; all but the first are
/// indented.
void appendWrapped(std::string& out, std::string_view text, std::size_t width, std::size_t indent) {
    std::size_t column = indent;
    bool isFirst = true;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        const std::string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t shown = shownWidth(word);
        if (!isFirst && column + 1 + shown > width) {
            out += '\n';
            out.append(indent, ' ');
            column = indent;
        } else if (!isFirst) {
            out += ' ';
            ++column;
        }
        isFirst = false;
        out += word;
        column += shown;
    }
    out += '\n';
}

/// From the document's lines to those of a terminal.
class PlainTextWriter {
public:
    explicit PlainTextWriter(const Palette& palette)
        : palette_(palette), width_(std::min<std::size_t>(terminalWidth(), 80)) {}

    void take(std::string_view line) {
        if (line.starts_with("```")) {
            flush();
            if (!inBlock_ && line != "```dovrelscript") {
                out_ += palette_.paint(Colour::Dim, "prints:") + "\n\n";
            }
            inBlock_ = !inBlock_;
        } else if (inBlock_) {
            if (!line.empty()) out_.append("    ").append(line);
            out_ += '\n';
        } else if (line.starts_with("|")) {
            takeRow(line);
        } else if (line.empty()) {
            flush();
            out_ += '\n';
        } else {
            if (line.starts_with("- ")) flush();
            if (!paragraph_.empty()) paragraph_ += ' ';
            paragraph_ += line.substr(std::min(line.find_first_not_of(' '), line.size()));
        }
    }
    std::string finish() {
        flush();
        return std::move(out_);
    }

private:
    /// The document breaks links across its lines, so a paragraph is joined first.
    void flush() {
        if (!paragraph_.empty()) {
            const std::size_t indent = paragraph_.starts_with("- ") ? 2 : 0;
            std::string text;
            appendWrapped(text, withoutMarks(paragraph_, palette_), width_ - indent, indent);
            out_ += text;
            paragraph_.clear();
        }
        if (!rows_.empty()) appendTable();
    }
    void takeRow(std::string_view line) {
        if (line.starts_with("| ---")) return;
        std::vector<std::string> cells;
        std::string cell;
        for (std::size_t i = 1; i < line.size(); ++i) {
            if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|') {
                cell += line[++i];
            } else if (line[i] == '|') {
                const std::size_t first = std::min(cell.find_first_not_of(' '), cell.size());
                const std::size_t last = cell.find_last_not_of(' ');
                cells.push_back(withoutMarks(
                    first == cell.size() ? "" : cell.substr(first, last - first + 1), palette_));
                cell.clear();
            } else {
                cell += line[i];
            }
        }
        rows_.push_back(std::move(cells));
    }
    void appendTable() {
        std::vector<std::size_t> widths;
        for (const auto& row : rows_) {
            widths.resize(std::max(widths.size(), row.size()));
            for (std::size_t i = 0; i < row.size(); ++i) {
                widths[i] = std::max(widths[i], shownWidth(row[i]));
            }
        }
        for (const auto& row : rows_) {
            std::size_t column = 2;
            out_.append(column, ' ');
            for (std::size_t i = 0; i + 1 < row.size(); ++i) {
                out_ += row[i];
                out_.append(widths[i] - shownWidth(row[i]) + 2, ' ');
                column += widths[i] + 2;
            }
            // Beside very wide columns it is better to be too wide than to break each word.
            appendWrapped(out_, row.back(), std::max(width_, column + 24), column);
        }
        rows_.clear();
    }

    const Palette& palette_;
    std::size_t width_;
    std::string out_;
    std::string paragraph_;
    std::vector<std::vector<std::string>> rows_;
    bool inBlock_ = false;
};

void appendHeading(std::string& out, const LibraryEntry& entry, const Palette& palette) {
    for (std::size_t i = 0; i < entry.names.size(); ++i) {
        if (i != 0) out += ", ";
        out += palette.paint(Colour::Bold, entry.names[i]);
    }
    out += "\n\n";
}

}  // namespace

std::string plainText(std::string_view markdown, const Palette& palette) {
    PlainTextWriter writer(palette);
    while (!markdown.empty()) {
        const std::size_t end = std::min(markdown.find('\n'), markdown.size());
        writer.take(markdown.substr(0, end));
        markdown.remove_prefix(std::min(end + 1, markdown.size()));
    }
    return writer.finish();
}

std::string entryList(const LibraryChapter& chapter, std::size_t width) {
    std::string text;
    std::size_t column = 0;
    for (const LibraryEntry* entry : chapter.entries) {
        for (const std::string& name : entry->names) {
            if (column != 0 && column + name.size() + 2 > width) {
                text += '\n';
                column = 0;
            }
            text += "  " + name;
            column += name.size() + 2;
        }
    }
    return text.empty() ? text : text + '\n';
}

std::string referenceText(const LibraryReference& reference, const std::string& name,
                          const Palette& palette) {
    std::string text;
    if (const LibraryEntry* entry = reference.find(name)) {
        appendHeading(text, *entry, palette);
        return text + plainText(entry->text, palette);
    }
    for (const LibraryEntry* entry : reference.findMembers(name)) {
        if (!text.empty()) text += '\n';
        appendHeading(text, *entry, palette);
        text += plainText(entry->text, palette);
    }
    if (!text.empty()) return text;
    // A table has no entry of its own: its members are what there is.
    LibraryChapter members;
    for (const LibraryEntry& entry : reference.entries()) {
        if (splitLibraryName(entry.names[0]).table == name) members.entries.push_back(&entry);
    }
    if (!members.entries.empty()) {
        return palette.paint(Colour::Bold, name) + "\n\n" + entryList(members, terminalWidth());
    }
    if (const LibraryChapter* chapter = reference.findChapter(name)) {
        text = palette.paint(Colour::Bold, chapter->title) + "\n\n";
        text += plainText(chapter->text, palette);
        if (!chapter->text.empty() && !chapter->entries.empty()) text += '\n';
        text += entryList(*chapter, terminalWidth());
    }
    return text;
}
