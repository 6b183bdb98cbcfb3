#include "dovrel/structure_check.h"

#include <algorithm>
#include <optional>
#include <string>

#include "frontend/character_class.h"

namespace {

/// A block that is open, while the lines are walked through.
struct OpenBlock {
    std::size_t line = 0;
    std::size_t indent = 0;
    bool startsLine = false;  // its word is the first of its physical line
};

class BlockChecks {
public:
    BlockChecks(const ParsedSource& source, std::vector<Finding>& findings)
        : source_(source), findings_(findings) {}

    void run() {
        std::size_t missing = 0;
        for (const ParsedScriptLine& line : source_.lines()) {
            if (opens(line) && line.matchingEnd == kNoLine) ++missing;
            checkRepeat(line);
        }
        // With nothing missing, the indentation is a matter of taste.
        if (missing == 0) return;
        std::vector<std::size_t> lacking = findByIndentation();
        if (lacking.empty() || lacking.size() > missing) {
            lacking.clear();
            for (std::size_t i = 0; i < source_.lines().size(); ++i) {
                const ParsedScriptLine& line = source_.lines()[i];
                if (opens(line) && line.matchingEnd == kNoLine) lacking.push_back(i);
            }
        }
        for (const std::size_t line : lacking) report(line);
    }

private:
    [[nodiscard]] static bool opens(const ParsedScriptLine& line) {
        switch (line.kind) {
            case LineKind::If:
            case LineKind::While:
            case LineKind::For:
            case LineKind::Repeat:
            case LineKind::Function:
            case LineKind::DecayFunction:
            case LineKind::NativeFunction:
            case LineKind::LocalFunction: return true;
            default: return false;
        }
    }

    /// A `repeat` that an `end` closes has no condition, and fails when it comes to its end.
    void checkRepeat(const ParsedScriptLine& line) {
        if (line.kind != LineKind::Repeat || line.matchingEnd == kNoLine) return;
        const ParsedScriptLine& end = source_.lines()[line.matchingEnd];
        if (end.kind == LineKind::Until) return;
        findings_.push_back({findCheckCode("E102"), source_.tokenRange(line.matchingEnd, 0),
                             "Missing until condition: the `repeat` of line " +
                                 std::to_string(line.lineNumber + 1) + " is closed by `end`"});
    }

    [[nodiscard]] OpenBlock blockAt(std::size_t line) const {
        const SourceRange word = source_.tokenRange(line, 0);
        const SourcePosition place = source_.source().positionOf(word.first);
        const std::string_view before =
            source_.source().slice({word.first - place.column, word.first});
        const bool startsLine = before.find_first_not_of(" \t") == std::string_view::npos;
        return {line, place.column, startsLine};
    }

    /// An `end` that stands further out than the innermost open block closes one further out: the
    /// blocks between have lost theirs.
    [[nodiscard]] std::vector<std::size_t> findByIndentation() const {
        std::vector<std::size_t> lacking;
        std::vector<OpenBlock> open;
        for (std::size_t i = 0; i < source_.lines().size(); ++i) {
            const ParsedScriptLine& line = source_.lines()[i];
            if (line.tokens.empty()) continue;
            const OpenBlock here = blockAt(i);
            const bool closes = line.kind == LineKind::End || line.kind == LineKind::Until;
            // A block that begins further out than the open one, or beside it, shows it as well.
            const bool isFunction =
                line.kind >= LineKind::Function && line.kind <= LineKind::LocalFunction;
            if (here.startsLine && (closes || isFunction)) {
                while (!open.empty() && open.back().startsLine &&
                       (closes ? open.back().indent > here.indent
                               : open.back().indent >= here.indent) &&
                       (!closes || hasOpenAt(open, here.indent))) {
                    lacking.push_back(open.back().line);
                    open.pop_back();
                }
            }
            if (closes && !open.empty()) open.pop_back();
            if (opens(line)) open.push_back(here);
        }
        for (const OpenBlock& block : open) lacking.push_back(block.line);
        std::sort(lacking.begin(), lacking.end());
        return lacking;
    }
    [[nodiscard]] static bool hasOpenAt(const std::vector<OpenBlock>& open, std::size_t indent) {
        return std::any_of(open.begin(), open.end(), [&](const OpenBlock& block) {
            return block.startsLine && block.indent == indent;
        });
    }

    void report(std::size_t index) {
        const ParsedScriptLine& line = source_.lines()[index];
        const bool isRepeat = line.kind == LineKind::Repeat;
        const char* block = "function";
        if (line.kind == LineKind::If) block = "if";
        if (line.kind == LineKind::While) block = "while";
        if (line.kind == LineKind::For) block = "for";
        std::string message = isRepeat ? "Missing 'until' for repeat block"
                                       : "Missing 'end' for " + std::string(block) + " block";
        if (line.tokens.size() > 1 && line.tokens.back() == "end") {
            message +=
                ": a statement ends with its line or at a `;`, so the `end` in this line is "
                "a part of it";
        } else {
            message += ", which begins here";
        }
        findings_.push_back({findCheckCode("E102"), source_.tokenRange(index, 0), message});
    }

    const ParsedSource& source_;
    std::vector<Finding>& findings_;
};

}  // namespace

void checkOpenString(const SourceText& source, std::vector<Finding>& findings) {
    if (!source.openString()) return;
    // Behind a missing quote all strings are turned inside out: the quote that should open the next
    // one closes this one, and a word touches it. A string that is meant to go over a line end has
    // an operator, a bracket or nothing there.
    std::size_t opener = *source.openString();
    const std::string& text = source.text();
    for (const SourceRange& range : source.longStrings()) {
        const bool isTouched = range.last < text.size() &&
                               hasClass(text[range.last], kIdentifierStart | kDigitCharacter);
        if (!isTouched) continue;
        opener = range.first;
        break;
    }
    const SourceRange line = source.physicalLine(source.positionOf(opener).line);
    findings.push_back({findCheckCode("E101"),
                        {opener, std::max(line.last, opener + 1)},
                        "Unterminated string literal, which begins here"});
}

void checkStructure(const ParsedSource& source, std::vector<Finding>& findings) {
    if (const auto bracket = source.source().openBracket()) {
        findings.push_back({findCheckCode("E105"),
                            {*bracket, *bracket + 1},
                            "this bracket is never closed, and takes in the rest of the script"});
        // Whatever ends the blocks stands in it.
        return;
    }
    BlockChecks(source, findings).run();
}
