// What belongs together in a script: ranges that fold, and ranges that a selection grows to.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/lsp/cursor_context.h"
#include "dovrel/lsp/features.h"

namespace {

class Folds {
public:
    explicit Folds(const ScriptDocument& document)
        : document_(document), lines_(document.outline().lines()) {}

    std::string run() {
        for (std::uint32_t i = 0; i < lines_.size(); ++i) {
            const SourceRange range = lines_[i].range();
            // The last line of a bracket stays, so that the fold shows how it ends.
            add(lineOf(range.first), lineOf(range.last), nullptr);
            if (lines_[i].partner != kNoIndex) addBlock(i);
        }
        addComments();
        return '[' + folds_ + ']';
    }

private:
    [[nodiscard]] std::size_t lineOf(std::size_t offset) const {
        return document_.lineStarts().lineOf(offset);
    }

    /// From the first line to the one in front of the last. As text: there are thousands.
    void add(std::size_t first, std::size_t last, const char* kind) {
        if (last < first + 2) return;
        if (!folds_.empty()) folds_ += ',';
        folds_ +=
            "{\"startLine\":" + std::to_string(first) + ",\"endLine\":" + std::to_string(last - 1);
        if (kind != nullptr) folds_ += std::string(",\"kind\":\"") + kind + '"';
        folds_ += '}';
    }

    /// Each branch of an `if` folds for itself.
    void addBlock(std::uint32_t opener) {
        std::size_t first = lineOf(lines_[opener].range().last);
        const std::uint32_t closer = lines_[opener].partner;
        if (lines_[opener].facts->kind == LineKind::If) {
            for (const std::uint32_t branch : branchesOf(opener, closer)) {
                add(first, lineOf(lines_[branch].range().first), nullptr);
                first = lineOf(lines_[branch].range().last);
            }
        }
        add(first, lineOf(lines_[closer].range().first), nullptr);
    }

    [[nodiscard]] std::vector<std::uint32_t> branchesOf(std::uint32_t opener,
                                                        std::uint32_t closer) const {
        std::vector<std::uint32_t> branches;
        for (std::uint32_t i = opener + 1; i < closer; ++i) {
            const LineKind kind = lines_[i].facts->kind;
            if (lines_[i].around == lines_[opener].around &&
                (kind == LineKind::ElseIf || kind == LineKind::Else)) {
                branches.push_back(i);
            } else if (lines_[i].partner != kNoIndex) {
                i = lines_[i].partner;  // nothing in a block of its own belongs to this one
            }
        }
        return branches;
    }

    /// Comments alone in their lines, one below the other.
    void addComments() {
        std::size_t first = 0;
        std::size_t next = 0;  // behind the last comment line; 0 for none
        for (const SourceRange& comment : document_.comments()) {
            const std::size_t line = lineOf(comment.first);
            const std::size_t start = document_.lineStarts().startOf(line);
            const std::string_view before =
                std::string_view(document_.text()).substr(start, comment.first - start);
            if (before.find_first_not_of(" \t") != std::string_view::npos) continue;
            if (next == 0 || line != next) {
                if (next > first + 1) add(first, next, "comment");
                first = line;
            }
            next = line + 1;
        }
        if (next > first + 1) add(first, next, "comment");
    }

    const ScriptDocument& document_;
    const std::vector<OutlineLine>& lines_;
    std::string folds_;
};

/// The ranges around an offset in its logical line: the word, then the brackets from the inside.
void addRangesInLine(const ScriptDocument& document, SourceRange line, std::size_t offset,
                     std::vector<SourceRange>& ranges) {
    const std::string_view text = document.text();
    std::vector<SourceRange> open;
    std::vector<SourceRange> brackets;
    for (const ScanToken& token : scanTokens(text, line)) {
        const bool holds = token.range.first <= offset && offset <= token.range.last;
        if (token.kind != ScanToken::Kind::Symbol) {
            if (holds && ranges.empty()) ranges.push_back(token.range);
            if (holds && token.kind == ScanToken::Kind::Literal && token.range.first < offset &&
                offset < token.range.last && ranges.back().last - ranges.back().first > 2) {
                // What stands between the quotes, first.
                ranges.insert(ranges.begin(), {token.range.first + 1, token.range.last - 1});
            }
            continue;
        }
        const char c = text[token.range.first];
        if (c == '(' || c == '[' || c == '{') open.push_back(token.range);
        if ((c == ')' || c == ']' || c == '}') && !open.empty()) {
            if (open.back().first <= offset && offset <= token.range.last) {
                brackets.push_back({open.back().first, token.range.last});
            }
            open.pop_back();
        }
    }
    // The inner ones close first.
    for (const SourceRange& bracket : brackets) {
        if (bracket.first < offset && offset < bracket.last) {
            ranges.push_back({bracket.first + 1, bracket.last - 1});
        }
        ranges.push_back(bracket);
    }
}

}  // namespace

std::string foldingRanges(const ScriptDocument& document) { return Folds(document).run(); }

Json selectionRangeAt(const ScriptDocument& document, std::size_t offset, const EditorView& view) {
    const Outline& outline = document.outline();
    const auto& lines = outline.lines();
    std::vector<SourceRange> ranges;
    const std::uint32_t index = outline.lineAt(offset);
    if (index != kNoIndex) {
        const SourceRange line = lines[index].range();
        std::uint32_t block = lines[index].around;
        if (offset <= line.last) {
            addRangesInLine(document, line, offset, ranges);
            ranges.push_back(line);
            if (lines[index].partner != kNoIndex) block = index;
        } else if (lines[index].partner != kNoIndex) {
            block = index;
        }
        for (; block != kNoIndex; block = lines[block].around) {
            const std::uint32_t closer = lines[block].partner;
            if (closer == kNoIndex) continue;
            if (closer > block + 1) {
                ranges.push_back({lines[block + 1].range().first, lines[closer - 1].range().last});
            }
            ranges.push_back({lines[block].range().first, lines[closer].range().last});
        }
    }
    ranges.push_back({0, document.text().size()});
    // From the outside to the inside, each within the one before.
    Json selection;
    SourceRange outer = ranges.back();
    for (auto range = ranges.rbegin(); range != ranges.rend(); ++range) {
        const bool isWithin = outer.first <= range->first && range->last <= outer.last &&
                              range->first <= offset && offset <= range->last;
        if (!isWithin && range != ranges.rbegin()) continue;
        outer = *range;
        Json node = {{"range", view.range(document, *range)}};
        if (!selection.is_null()) node["parent"] = std::move(selection);
        selection = std::move(node);
    }
    return selection;
}
