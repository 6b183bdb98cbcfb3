// The lines of a program. Most of a long script's lines run once or never, so a line is kept as the
// place of its text and what its block structure needs; its record is made when it is asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frontend/parsed_script_line.h"

class DovrelScript;

/// What the compiler of blocks wants to know of a line.
struct LineFacts {
    LineKind kind = LineKind::Empty;
    bool isEmpty = true;   // there is no token in it
    bool isLocal = false;  // a declaration whose first word is `local`
    bool isNumericFor = false;
    bool isRead = false;  // there is a record, so `isFastAssignment` is known
    bool isFastAssignment = false;
    std::size_t matchingEnd = kNoLine;
    std::size_t nextBranch = kNoLine;
};

/// A line of a text that nobody has asked for yet.
struct UnreadLine {
    static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

    std::string_view text;
    std::unique_ptr<ParsedScriptLine> record;  // once it has been asked for
    std::uint32_t lineNumber = 0;
    std::uint32_t matchingEnd = kNone;
    std::uint32_t nextBranch = kNone;
    LineKind kind = LineKind::Empty;
    ScopeTarget scope = ScopeTarget::Default;
    bool isNumericFor = false;
    bool runsOnce = false;  // in a program that runs once: no loop and no function is around it
};

/// The text of a script and its lines. Records never move and stay for as long as the table, but
/// for the one of `forRunning`.
class UnreadLines {
public:
    /// Cuts `text` into lines. Raises "Unterminated string literal".
    UnreadLines(DovrelScript& interpreter, std::string text);
    UnreadLines(const UnreadLines&) = delete;
    UnreadLines& operator=(const UnreadLines&) = delete;

    [[nodiscard]] std::size_t size() const { return rows_.size(); }
    [[nodiscard]] const UnreadLine& row(std::size_t index) const { return rows_[index]; }
    void setRunsOnce(std::size_t index) { rows_[index].runsOnce = true; }
    [[nodiscard]] ParsedScriptLine& record(std::size_t index) {
        UnreadLine& row = rows_[index];
        return row.record != nullptr ? *row.record : makeRecord(row);
    }
    [[nodiscard]] const ParsedScriptLine& forRunning(std::size_t index) {
        const UnreadLine& row = rows_[index];
        if (!row.runsOnce || row.record != nullptr) return record(index);
        if (passing_ != nullptr && passingIndex_ == index) {
            return passing_->line;
        }
        return makePassing(index);
    }
    /// Makes a record of the line that is the caller's alone.
    void read(std::size_t index, ParsedScriptLine& line) const { readRow(rows_[index], line); }

private:
    class Sink;

    ParsedScriptLine& makeRecord(UnreadLine& row);
    const ParsedScriptLine& makePassing(std::size_t index);
    void readRow(const UnreadLine& row, ParsedScriptLine& line) const;

    DovrelScript& interpreter_;
    bool compileExpressions_;  // as it was when the text came
    std::string text_;
    std::forward_list<std::string> joinedTexts_;  // of lines that stand in several pieces
    std::vector<UnreadLine> rows_;
    /// Of the line that runs and will not run again.
    struct Passing {
        PassingMemory memory;
        ParsedScriptLine line;
    };
    std::unique_ptr<Passing> passing_;
    std::size_t passingIndex_ = 0;
};

/// Either all records, or a text from which they are made as they are needed.
class LineTable {
public:
    LineTable() = default;
    LineTable(std::vector<ParsedScriptLine> lines) : records_(std::move(lines)) {}
    LineTable(std::initializer_list<ParsedScriptLine> lines) : records_(lines) {}
    explicit LineTable(std::unique_ptr<UnreadLines> lines) : unread_(std::move(lines)) {}
    LineTable(const LineTable& other) : records_(other.copiedRecords()) {}
    LineTable(LineTable&&) noexcept = default;
    LineTable& operator=(const LineTable& other) { return *this = LineTable(other); }
    LineTable& operator=(LineTable&&) noexcept = default;
    ~LineTable() = default;

    [[nodiscard]] std::size_t size() const {
        return unread_ != nullptr ? unread_->size() : records_.size();
    }
    [[nodiscard]] bool empty() const { return size() == 0; }
    /// The record of a line, which never moves and stays.
    [[nodiscard]] const ParsedScriptLine& operator[](std::size_t index) const {
        return unread_ != nullptr ? unread_->record(index) : records_[index];
    }
    [[nodiscard]] ParsedScriptLine& operator[](std::size_t index) {
        return unread_ != nullptr ? unread_->record(index) : records_[index];
    }
    /// The record of a line that is about to run. It stays until another line is asked for here,
    /// if the line runs once.
    [[nodiscard]] const ParsedScriptLine& forRunning(std::size_t index) const {
        return unread_ != nullptr ? unread_->forRunning(index) : records_[index];
    }
    /// There is no record of the line, and one would be used once.
    [[nodiscard]] bool isPassing(std::size_t index) const {
        return unread_ != nullptr && unread_->row(index).runsOnce &&
               unread_->row(index).record == nullptr;
    }
    void setRunsOnce(std::size_t index) {
        if (unread_ != nullptr) unread_->setRunsOnce(index);
    }
    [[nodiscard]] LineFacts factsOf(std::size_t index) const;
    [[nodiscard]] std::size_t lineNumberOf(std::size_t index) const {
        return unread_ != nullptr ? unread_->row(index).lineNumber : records_[index].lineNumber;
    }
    [[nodiscard]] LineKind kindOf(std::size_t index) const {
        return unread_ != nullptr ? unread_->row(index).kind : records_[index].kind;
    }
    /// The first token, as long as the table stands; null if there is none. Allocates nothing.
    [[nodiscard]] std::string_view firstTokenOf(std::size_t index) const;
    /// Where the first word of a line makes it declare.
    [[nodiscard]] ScopeTarget scopeOf(std::size_t index) const {
        return unread_ != nullptr ? unread_->row(index).scope : records_[index].assignmentScope;
    }
    /// A copy of the line that is the caller's, for one that wants no record to stay.
    void copyLine(std::size_t index, ParsedScriptLine& line) const;

    /// The record of a line, for a look at it: `own` if none should stay.
    [[nodiscard]] const ParsedScriptLine& lookAt(std::size_t index, ParsedScriptLine& own) const {
        if (!isPassing(index)) return (*this)[index];
        unread_->read(index, own);
        return own;
    }
    /// True only for a line that is known, without its record, to assign one value to one variable.
    [[nodiscard]] bool isPlainStore(std::size_t index) const;

    /// All records, of a table that has been made of them.
    [[nodiscard]] const std::vector<ParsedScriptLine>& records() const { return records_; }
    [[nodiscard]] std::vector<ParsedScriptLine>& records() { return records_; }

private:
    [[nodiscard]] std::vector<ParsedScriptLine> copiedRecords() const;

    std::vector<ParsedScriptLine> records_;
    std::unique_ptr<UnreadLines> unread_;
};
