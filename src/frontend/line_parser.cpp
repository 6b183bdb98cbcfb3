// Reading all lines of a text, and reading one.
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/line_preparation.h"
#include "frontend/line_splitter.h"
#include "interpreter/dovrel_script.h"

namespace {

/// Reads each line as it comes.
class LineCollector : public LineSink {
public:
    LineCollector(DovrelScript& interpreter, std::vector<ParsedScriptLine>& lines)
        : interpreter_(interpreter), lines_(lines) {}

    void takeLine(std::string_view text, std::size_t lineNumber, bool /*isJoined*/,
                  bool /*isOpen*/) override {
        ParsedScriptLine& line = lines_.emplace_back();
        line.lineNumber = lineNumber;
        interpreter_.showLineText(text);
        interpreter_.readLine(text, line, interpreter_.compileExpressions);
        line.tokenAnalysis.shrink_to_fit();
    }
    void takeEmptyLine(std::size_t lineNumber) override {
        ParsedScriptLine& line = lines_.emplace_back();
        line.lineNumber = lineNumber;
        line.prepared = true;
    }

private:
    DovrelScript& interpreter_;
    std::vector<ParsedScriptLine>& lines_;
};

}  // namespace

std::vector<ParsedScriptLine> DovrelScript::parseLines(const std::string& source) {
    std::vector<ParsedScriptLine> lines;
    if (source.empty()) return lines;
    lines.reserve(countLineFeeds(source) + 1);
    LineCollector collector(*this, lines);
    splitLines(source, collector);
    matchBlocks(lines);
    return lines;
}

void DovrelScript::readLine(std::string_view text, ParsedScriptLine& line, bool withExpressions) {
    line.source = text;
    // Most lines have fewer tokens. A record that is used again has its room already.
    if (line.tokenAnalysis.capacity() == 0) line.tokenAnalysis.reserve(text.size() / 3 + 4);
    readTokens(line.source, line.tokenAnalysis);
    line.tokens.resize(tokenTexts.size());
    for (std::size_t i = 0; i < tokenTexts.size(); ++i) line.tokens[i] = tokenTexts[i];
    // Now, and not for all lines at the end, because what it reads is still at hand.
    prepareLine(line, withExpressions);
}

void DovrelScript::showLineText(std::string_view text) {
    currentLineTextOverride = text;
    currentLine = &currentLineTextOverride;
}
