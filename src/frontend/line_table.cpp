#include "frontend/line_table.h"

#include "frontend/character_class.h"
#include "frontend/line_preparation.h"
#include "frontend/line_splitter.h"
#include "frontend/tokeniser.h"
#include "interpreter/dovrel_script.h"
#include "value/stack_end.h"

namespace {

/// A line that may need much of the host's stack is read with the text, so that it fails there.
constexpr std::size_t kLongLine = 4096;

/// Works out what the blocks depend on, from the first tokens.
void classify(UnreadLine& row) {
    std::size_t at = 0;
    std::string_view first;
    if (!nextToken(row.text, at, first)) return;
    row.kind = LineKind::Plain;
    if (first == "local") row.scope = ScopeTarget::Local;
    if (first == "native") row.scope = ScopeTarget::Native;
    if (!mayBeKeyword(first)) return;
    std::string_view second;
    const bool hasSecond = nextToken(row.text, at, second);
    row.kind = lineKindOf(first, second);
    if (row.kind != LineKind::For || !hasSecond) return;
    std::string_view third;
    std::string_view fourth;
    row.isNumericFor = isIdentifier(second) && nextToken(row.text, at, third) && third == "=" &&
                       nextToken(row.text, at, fourth);
}

std::size_t linkOf(std::uint32_t link) { return link == UnreadLine::kNone ? kNoLine : link; }

}  // namespace

/// Notes the lines of a text.
class UnreadLines::Sink : public LineSink {
public:
    explicit Sink(UnreadLines& lines) : lines_(lines) {}

    void takeLine(std::string_view text, std::size_t lineNumber, bool isJoined,
                  bool isOpen) override {
        UnreadLine& row = lines_.rows_.emplace_back();
        row.text = isJoined ? lines_.joinedTexts_.emplace_front(text) : text;
        row.lineNumber = static_cast<std::uint32_t>(lineNumber);
        last_ = row.text;
        if (isOpen) {
            // The one thing that can be wrong with a line by itself.
            show();
            std::vector<TokenAnalysis> analysis;
            lines_.interpreter_.readTokens(row.text, analysis);
        }
        classify(row);
        if (text.size() > kLongLine) static_cast<void>(lines_.makeRecord(row));
    }
    void takeEmptyLine(std::size_t lineNumber) override {
        lines_.rows_.emplace_back().lineNumber = static_cast<std::uint32_t>(lineNumber);
    }
    /// Reports show the last line until the first statement runs.
    void show() {
        if (!last_.empty()) lines_.interpreter_.showLineText(last_);
    }

private:
    UnreadLines& lines_;
    std::string_view last_;
};

UnreadLines::UnreadLines(DovrelScript& interpreter, std::string text)
    : interpreter_(interpreter),
      compileExpressions_(interpreter.compileExpressions),
      text_(std::move(text)) {
    if (text_.empty()) return;
    rows_.reserve(countLineFeeds(text_) + 1);
    Sink sink(*this);
    splitLines(text_, sink);
    sink.show();
    matchBlocks(rows_);
}

void UnreadLines::readRow(const UnreadLine& row, ParsedScriptLine& line) const {
    const ParsingStack stack;
    line.lineNumber = row.lineNumber;
    interpreter_.readLine(row.text, line, compileExpressions_);
    line.matchingEnd = linkOf(row.matchingEnd);
    line.nextBranch = linkOf(row.nextBranch);
}

ParsedScriptLine& UnreadLines::makeRecord(UnreadLine& row) {
    auto record = std::make_unique<ParsedScriptLine>();
    readRow(row, *record);
    record->tokenAnalysis.shrink_to_fit();
    row.record = std::move(record);
    return *row.record;
}

const ParsedScriptLine& UnreadLines::makePassing(std::size_t index) {
    if (passing_ == nullptr) passing_ = std::make_unique<Passing>();
    passingIndex_ = rows_.size();
    forgetParse(passing_->line);
    passing_->memory.reset();
    const PassingMemory::Use use(passing_->memory);
    readRow(rows_[index], passing_->line);
    passingIndex_ = index;
    return passing_->line;
}

LineFacts LineTable::factsOf(std::size_t index) const {
    LineFacts facts;
    if (unread_ == nullptr) {
        const ParsedScriptLine& line = records_[index];
        facts.kind = line.kind;
        facts.isEmpty = line.tokens.empty();
        facts.isLocal = line.assignmentScope == ScopeTarget::Local;
        facts.isNumericFor = line.kind == LineKind::For && isNumericForLine(line);
        facts.isRead = true;
        facts.isFastAssignment = line.isFastAssignment;
        facts.matchingEnd = line.matchingEnd;
        facts.nextBranch = line.nextBranch;
        return facts;
    }
    const UnreadLine& row = unread_->row(index);
    facts.kind = row.kind;
    facts.isEmpty = row.kind == LineKind::Empty;
    facts.isLocal = row.scope == ScopeTarget::Local;
    facts.isNumericFor = row.isNumericFor;
    facts.matchingEnd = linkOf(row.matchingEnd);
    facts.nextBranch = linkOf(row.nextBranch);
    return facts;
}

void LineTable::copyLine(std::size_t index, ParsedScriptLine& line) const {
    if (unread_ != nullptr && unread_->row(index).record == nullptr) {
        unread_->read(index, line);
    } else {
        line = (*this)[index];
    }
}

std::string_view LineTable::firstTokenOf(std::size_t index) const {
    std::string_view token;
    if (unread_ != nullptr) {
        std::size_t at = 0;
        static_cast<void>(nextToken(unread_->row(index).text, at, token));
    } else if (!records_[index].tokens.empty()) {
        token = records_[index].tokens[0];
    }
    return token;
}

bool LineTable::isPlainStore(std::size_t index) const {
    if (unread_ == nullptr || scopeOf(index) != ScopeTarget::Default) return false;
    const std::string_view text = unread_->row(index).text;
    std::size_t at = 0;
    std::string_view token;
    return text.find(',') == std::string_view::npos && nextToken(text, at, token) &&
           isIdentifier(token) && nextToken(text, at, token) && isAssignmentOperator(token) &&
           nextToken(text, at, token);
}

std::vector<ParsedScriptLine> LineTable::copiedRecords() const {
    if (unread_ == nullptr) return records_;
    std::vector<ParsedScriptLine> copies(unread_->size());
    for (std::size_t i = 0; i < copies.size(); ++i) copyLine(i, copies[i]);
    return copies;
}
