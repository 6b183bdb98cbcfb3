// From token lines to lines that run without scanning: statement kinds, assignments, compiled
// expressions, block links.
#include "frontend/line_preparation.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"

namespace {

using Tokens = std::vector<std::string>;

/// A 16-bit token index would not reach it.
constexpr std::size_t kMaxTokenIndex = 0xFFFF;

struct KeywordRow {
    std::string_view word;
    LineKind kind;
};

constexpr std::array<KeywordRow, 12> kKeywords = {{
    {"if", LineKind::If},
    {"elseif", LineKind::ElseIf},
    {"else", LineKind::Else},
    {"end", LineKind::End},
    {"while", LineKind::While},
    {"repeat", LineKind::Repeat},
    {"until", LineKind::Until},
    {"for", LineKind::For},
    {"function", LineKind::Function},
    {"return", LineKind::Return},
    {"break", LineKind::Break},
    {"", LineKind::Plain},
}};

LineKind kindOf(const Tokens& tokens) {
    if (tokens.empty()) return LineKind::Empty;
    if (tokens.size() > 1 && tokens[1] == "function") {
        if (tokens[0] == "decay") return LineKind::DecayFunction;
        if (tokens[0] == "native") return LineKind::NativeFunction;
        if (tokens[0] == "local") return LineKind::LocalFunction;
    }
    const auto found = std::find_if(kKeywords.begin(), kKeywords.end(),
                                    [&](const KeywordRow& row) { return row.word == tokens[0]; });
    return found == kKeywords.end() ? LineKind::Plain : found->kind;
}

bool isAssignmentOperator(std::string_view token) {
    constexpr std::array<std::string_view, 8> kOperators = {
        "=", "+=", "-=", "*=", "/=", "\\=", "%=", "^="};
    return std::find(kOperators.begin(), kOperators.end(), token) != kOperators.end();
}

/// Prepares one line at a time.
class LinePreparer {
public:
    explicit LinePreparer(bool compileExpressions) : compileExpressions_(compileExpressions) {}

    void prepare(ParsedScriptLine& line) const;

private:
    [[nodiscard]] FastExpression compile(const ParsedScriptLine& line, TokenRange range) const {
        if (!compileExpressions_) return {};
        return compileFastExpressionRange(line.tokens, line.tokenAnalysis, range.first, range.last);
    }
    void parseAssignment(ParsedScriptLine& line, std::size_t start) const;
    [[nodiscard]] static bool parseTargets(const ParsedScriptLine& line, std::size_t& position,
                                           std::vector<ParsedAssignmentTarget>& targets);
    [[nodiscard]] static bool parseValueRanges(const ParsedScriptLine& line, std::size_t first,
                                               std::vector<TokenRange>& ranges);
    [[nodiscard]] FastCallExpression compileDirectCall(const ParsedScriptLine& line,
                                                       TokenRange range) const;
    void prepareReturn(ParsedScriptLine& line) const;
    [[nodiscard]] ParsedForHeader parseForHeader(const ParsedScriptLine& line) const;
    void parseNumericFor(const ParsedScriptLine& line, ParsedForHeader& header) const;
    void parseGenericFor(const ParsedScriptLine& line, ParsedForHeader& header) const;

    bool compileExpressions_;
};

void LinePreparer::prepare(ParsedScriptLine& line) const {
    line.kind = kindOf(line.tokens);
    line.prepared = true;
    line.assignmentScope = ScopeTarget::Default;
    line.matchingEnd = kNoLine;
    line.nextBranch = kNoLine;
    line.assignment.reset();
    line.forHeader.reset();
    line.condition = {};
    line.expression = {};
    line.returnValues.clear();
    if (line.tokens.empty()) return;

    if (line.tokens[0] == "local") line.assignmentScope = ScopeTarget::Local;
    if (line.tokens[0] == "native") line.assignmentScope = ScopeTarget::Native;
    // Every line is tried as an assignment, whatever its first word is; the kind wins at run time.
    parseAssignment(line, line.assignmentScope == ScopeTarget::Default ? 0 : 1);

    switch (line.kind) {
        case LineKind::If:
        case LineKind::ElseIf:
        case LineKind::While:
        case LineKind::Until: line.condition = compile(line, {1, line.tokens.size()}); break;
        case LineKind::For:
            line.forHeader = std::make_shared<const ParsedForHeader>(parseForHeader(line));
            break;
        case LineKind::Return: prepareReturn(line); break;
        case LineKind::Plain:
            if (line.assignment == nullptr) {
                line.expression = compile(line, {0, line.tokens.size()});
            }
            break;
        default: break;
    }
}

bool LinePreparer::parseTargets(const ParsedScriptLine& line, std::size_t& position,
                                std::vector<ParsedAssignmentTarget>& targets) {
    const Tokens& tokens = line.tokens;
    while (position < tokens.size()) {
        if (!line.tokenAnalysis[position].isIdentifier) return false;
        ParsedAssignmentTarget target;
        target.nameToken = position++;
        while (position < tokens.size() && tokens[position] == "[") {
            const std::size_t first = position + 1;
            const std::size_t close = findTopLevelToken(tokens, first, "]");
            if (close >= tokens.size() || close == first) return false;
            target.indexRanges.push_back({first, close});
            position = close + 1;
        }
        targets.push_back(std::move(target));
        if (position >= tokens.size() || tokens[position] != ",") break;
        ++position;
    }
    return !targets.empty();
}

/// A comma at the very end is tolerated, an empty range is not.
bool LinePreparer::parseValueRanges(const ParsedScriptLine& line, std::size_t first,
                                    std::vector<TokenRange>& ranges) {
    while (first < line.tokens.size()) {
        const std::size_t last = findTopLevelToken(line.tokens, first, "");
        if (last == first) return false;
        ranges.push_back({first, last});
        first = last + 1;
    }
    return !ranges.empty();
}

void LinePreparer::parseAssignment(ParsedScriptLine& line, std::size_t start) const {
    ParsedAssignment assignment;
    std::size_t position = start;
    if (!parseTargets(line, position, assignment.targets)) return;
    assignment.operatorIndex = position;
    if (position < line.tokens.size()) {
        const std::string& token = line.tokens[position];
        if (!isAssignmentOperator(token)) return;
        if (!parseValueRanges(line, position + 1, assignment.valueRanges)) return;
        assignment.isPlain = token == "=";
        assignment.operation = token[0];
    } else if (line.assignmentScope != ScopeTarget::Local) {
        return;  // only `local` declares without a value
    }

    for (ParsedAssignmentTarget& target : assignment.targets) {
        for (const TokenRange& range : target.indexRanges) {
            target.indexExpressions.push_back(compile(line, range));
        }
    }
    for (const TokenRange& range : assignment.valueRanges) {
        assignment.values.push_back(compile(line, range));
    }
    if (assignment.isSimple()) {
        assignment.simpleCall = compileDirectCall(line, assignment.valueRanges[0]);
        assignment.isScalarCandidate = line.assignmentScope == ScopeTarget::Default &&
                                       !assignment.values[0].scalarCode.empty();
    }
    line.assignment = std::make_shared<const ParsedAssignment>(std::move(assignment));
}

FastCallExpression LinePreparer::compileDirectCall(const ParsedScriptLine& line,
                                                   TokenRange range) const {
    const auto [first, last] = range;
    if (first + 2 >= last || first > kMaxTokenIndex) return {};
    const TokenAnalysis& name = line.tokenAnalysis[first];
    // "not" and the boolean literals have the form of an identifier but name no function.
    if (!name.isIdentifier || name.isTrue || name.isFalse || line.tokens[first] == "not") return {};
    if (line.tokens[first + 1] != "(" || line.tokens[last - 1] != ")") return {};

    FastCallExpression call;
    call.nameToken = static_cast<std::uint16_t>(first);
    const std::size_t close = last - 1;
    for (std::size_t piece = first + 2; piece < close;) {
        const std::size_t end = std::min(findTopLevelToken(line.tokens, piece, ""), close);
        FastExpression argument = compile(line, {piece, end});
        if (!argument.valid) return {};
        call.arguments.push_back(std::move(argument));
        piece = end + 1;  // a comma directly before ")" is tolerated here
    }
    call.valid = compileExpressions_;
    return call;
}

void LinePreparer::prepareReturn(ParsedScriptLine& line) const {
    for (std::size_t first = 1; first < line.tokens.size();) {
        const std::size_t last = findTopLevelToken(line.tokens, first, "");
        if (last == first) return;
        line.returnValues.push_back(compile(line, {first, last}));
        first = last + 1;
    }
}

ParsedForHeader LinePreparer::parseForHeader(const ParsedScriptLine& line) const {
    ParsedForHeader header;
    if (line.tokens.size() < 4) return header;
    if (isNumericForLine(line)) {
        header.numericVariable = 1;
        parseNumericFor(line, header);
    } else {
        parseGenericFor(line, header);
    }
    return header;
}

/// Stores the three expressions only if the whole header is well formed; a malformed one goes by
/// tokens and is reported there.
void LinePreparer::parseNumericFor(const ParsedScriptLine& line, ParsedForHeader& header) const {
    const std::size_t count = line.tokens.size();
    const std::size_t startEnd = findTopLevelToken(line.tokens, 3, "");
    if (startEnd < 4 || startEnd >= count) return;
    const std::size_t limitEnd = findTopLevelToken(line.tokens, startEnd + 1, "");
    if (limitEnd <= startEnd + 1) return;
    if (limitEnd < count) {
        const std::size_t stepEnd = findTopLevelToken(line.tokens, limitEnd + 1, "");
        if (stepEnd <= limitEnd + 1 || stepEnd != count) return;
        header.numericStep = compile(line, {limitEnd + 1, stepEnd});
        header.hasNumericStep = true;
    }
    header.numericStart = compile(line, {3, startEnd});
    header.numericLimit = compile(line, {startEnd + 1, limitEnd});
}

void LinePreparer::parseGenericFor(const ParsedScriptLine& line, ParsedForHeader& header) const {
    const Tokens& tokens = line.tokens;
    std::vector<std::size_t> variables;
    std::size_t position = 1;
    for (;;) {
        if (position >= tokens.size() || !line.tokenAnalysis[position].isIdentifier) return;
        variables.push_back(position++);
        if (position >= tokens.size() || tokens[position] != ",") break;
        ++position;
    }
    if (position + 1 >= tokens.size() || tokens[position] != "in") return;
    header.genericVariables = std::move(variables);

    // A direct call of `pairs` or `ipairs` is walked without the call: only its argument compiles.
    const std::size_t iterator = position + 1;
    const std::size_t argument = iterator + 2;
    if (argument < tokens.size() && line.tokenAnalysis[iterator].isIdentifier &&
        tokens[iterator + 1] == "(") {
        const std::size_t close = findTopLevelToken(tokens, argument, ")");
        const BuiltinId id = builtinIdFromName(tokens[iterator]);
        if (close > argument && close + 1 == tokens.size() &&
            (id == BuiltinId::Pairs || id == BuiltinId::Ipairs)) {
            header.genericBuiltin = id;
            header.genericIterator = compile(line, {argument, close});
            return;
        }
    }
    header.genericIterator = compile(line, {iterator, tokens.size()});
}

enum class BlockKind : std::uint8_t { If, While, For, Function, Repeat };

/// An open block during block matching.
struct BlockEntry {
    BlockKind kind;
    std::size_t startLine;
    std::vector<std::size_t> branchLines;  // of an `if`: it and its branches so far
};

/// Links each block header with its closing line. Reports nothing: what stays open keeps kNoLine.
void matchBlocks(std::vector<ParsedScriptLine>& lines) {
    std::vector<BlockEntry> open;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        switch (lines[i].kind) {
            case LineKind::If: open.push_back({BlockKind::If, i, {i}}); break;
            case LineKind::While: open.push_back({BlockKind::While, i, {}}); break;
            case LineKind::For: open.push_back({BlockKind::For, i, {}}); break;
            case LineKind::Repeat: open.push_back({BlockKind::Repeat, i, {}}); break;
            case LineKind::Function:
            case LineKind::DecayFunction:
            case LineKind::NativeFunction:
            case LineKind::LocalFunction: open.push_back({BlockKind::Function, i, {}}); break;
            case LineKind::ElseIf:
            case LineKind::Else:
                if (!open.empty() && open.back().kind == BlockKind::If) {
                    lines[open.back().branchLines.back()].nextBranch = i;
                    open.back().branchLines.push_back(i);
                }
                break;
            case LineKind::Until:
                if (!open.empty() && open.back().kind == BlockKind::Repeat) {
                    lines[open.back().startLine].matchingEnd = i;
                    open.pop_back();
                }
                break;
            case LineKind::End:
                if (open.empty()) break;
                lines[open.back().startLine].matchingEnd = i;
                for (const std::size_t branch : open.back().branchLines) {
                    lines[branch].matchingEnd = i;
                }
                open.pop_back();
                break;
            default: break;
        }
    }
}

}  // namespace

std::size_t findTopLevelToken(const std::vector<std::string>& tokens, std::size_t start,
                              std::string_view terminator) {
    if (terminator.empty()) terminator = ",";
    std::size_t parentheses = 0;
    std::size_t brackets = 0;
    std::size_t braces = 0;
    // A closer that lowers a depth belongs to its opener and is not tested itself.
    const auto lowers = [](std::size_t& depth) { return depth > 0 && depth-- > 0; };
    std::size_t i = start;
    for (; i < tokens.size(); ++i) {
        const std::string& token = tokens[i];
        if (token.size() == 1) {
            switch (token[0]) {
                case '(': ++parentheses; continue;
                case '[': ++brackets; continue;
                case '{': ++braces; continue;
                case ')':
                    if (lowers(parentheses)) continue;
                    break;
                case ']':
                    if (lowers(brackets)) continue;
                    break;
                case '}':
                    if (lowers(braces)) continue;
                    break;
                default: break;
            }
        }
        if (parentheses == 0 && brackets == 0 && braces == 0 && token == terminator) return i;
    }
    return i;
}

bool isNumericForLine(const ParsedScriptLine& line) {
    return line.tokens.size() >= 4 && line.tokenAnalysis[1].isIdentifier && line.tokens[2] == "=";
}

std::size_t findMatchingEnd(const std::vector<ParsedScriptLine>& lines, std::size_t index) {
    if (index == 0 || index > lines.size() || lines[index - 1].matchingEnd == kNoLine) {
        throwPlainError("Missing 'end' for block");
    }
    return lines[index - 1].matchingEnd;
}

void DovrelScript::prepareParsedLines(std::vector<ParsedScriptLine>& lines) const {
    const LinePreparer preparer(compileExpressions);
    for (ParsedScriptLine& line : lines) preparer.prepare(line);
    matchBlocks(lines);
}
