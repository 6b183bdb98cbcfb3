// From token lines to lines that run without scanning: statement kinds, assignments, compiled
// expressions, block links.
#include "frontend/line_preparation.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <utility>

#include "eval/errors.h"
#include "frontend/character_class.h"
#include "frontend/line_table.h"
#include "frontend/scratch_list.h"
#include "interpreter/dovrel_script.h"

namespace {

using Tokens = std::vector<std::string>;

/// A list that is taken over by a line once it is whole.
template <typename T>
using Scratch = ScratchList<T, 6>;

/// A 16-bit token index would not reach it.
constexpr std::size_t kMaxTokenIndex = 0xFFFF;

struct KeywordRow {
    std::string_view word;
    LineKind kind;
};

constexpr std::array<KeywordRow, 11> kKeywords = {{
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
}};

/// The tokens from `start` on may be an assignment, by its first two; most lines are none. A name
/// alone is one where nothing is assigned.
bool mayBeAssignment(const ParsedScriptLine& line, std::size_t start) {
    if (start >= line.tokens.size() || !line.tokenAnalysis[start].isIdentifier) return false;
    if (start + 1 == line.tokens.size()) return line.assignmentScope == ScopeTarget::Local;
    const std::string& next = line.tokens[start + 1];
    return isSymbol(next, '[') || isSymbol(next, ',') || isAssignmentOperator(next);
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
    /// The expressions of several ranges; invalid ones keep their place.
    [[nodiscard]] SharedArray<FastExpression> compileAll(
        const ParsedScriptLine& line, const SharedArray<TokenRange>& ranges) const;
    [[nodiscard]] static bool parseTargets(const ParsedScriptLine& line, std::size_t& position,
                                           Scratch<ParsedAssignmentTarget>& targets);
    [[nodiscard]] static bool parseValueRanges(const ParsedScriptLine& line, std::size_t first,
                                               Scratch<TokenRange>& ranges);
    [[nodiscard]] FastCallExpression compileDirectCall(const ParsedScriptLine& line,
                                                       TokenRange range) const;
    void prepareReturn(ParsedScriptLine& line) const;
    [[nodiscard]] ParsedForHeader parseForHeader(const ParsedScriptLine& line) const;
    void parseNumericFor(const ParsedScriptLine& line, ParsedForHeader& header) const;
    void parseGenericFor(const ParsedScriptLine& line, ParsedForHeader& header) const;

    bool compileExpressions_;
};

void LinePreparer::prepare(ParsedScriptLine& line) const {
    forgetParse(line);
    const std::string_view second = line.tokens.size() > 1 ? line.tokens[1] : std::string_view();
    line.kind = line.tokens.empty() ? LineKind::Empty : lineKindOf(line.tokens[0], second);
    line.prepared = true;
    if (line.tokens.empty()) return;

    const std::string_view first = line.tokens[0];
    if (first == "local") line.assignmentScope = ScopeTarget::Local;
    if (first == "native") line.assignmentScope = ScopeTarget::Native;
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
                                Scratch<ParsedAssignmentTarget>& targets) {
    const Tokens& tokens = line.tokens;
    while (position < tokens.size()) {
        if (!line.tokenAnalysis[position].isIdentifier) return false;
        ParsedAssignmentTarget target;
        target.nameToken = position++;
        Scratch<TokenRange> ranges;
        while (position < tokens.size() && isSymbol(tokens[position], '[')) {
            const std::size_t first = position + 1;
            const std::size_t close = findTopLevelToken(tokens, first, "]");
            if (close >= tokens.size() || close == first) return false;
            ranges.push_back({first, close});
            position = close + 1;
        }
        target.indexRanges = SharedArray<TokenRange>::copyOf(ranges);
        targets.push_back(std::move(target));
        if (position >= tokens.size() || !isSymbol(tokens[position], ',')) break;
        ++position;
    }
    return !targets.empty();
}

/// A comma at the very end is tolerated, an empty range is not.
bool LinePreparer::parseValueRanges(const ParsedScriptLine& line, std::size_t first,
                                    Scratch<TokenRange>& ranges) {
    while (first < line.tokens.size()) {
        const std::size_t last = findTopLevelToken(line.tokens, first, "");
        if (last == first) return false;
        ranges.push_back({first, last});
        first = last + 1;
    }
    return !ranges.empty();
}

SharedArray<FastExpression> LinePreparer::compileAll(const ParsedScriptLine& line,
                                                     const SharedArray<TokenRange>& ranges) const {
    Scratch<FastExpression> compiled;
    for (const TokenRange& range : ranges) compiled.push_back(compile(line, range));
    return SharedArray<FastExpression>::movedFrom(compiled);
}

void LinePreparer::parseAssignment(ParsedScriptLine& line, std::size_t start) const {
    if (!mayBeAssignment(line, start)) return;
    ParsedAssignment assignment;
    Scratch<ParsedAssignmentTarget> targets;
    std::size_t position = start;
    if (!parseTargets(line, position, targets)) return;
    assignment.operatorIndex = position;
    if (position < line.tokens.size()) {
        const std::string& token = line.tokens[position];
        if (!isAssignmentOperator(token)) return;
        Scratch<TokenRange> ranges;
        if (!parseValueRanges(line, position + 1, ranges)) return;
        assignment.valueRanges = SharedArray<TokenRange>::copyOf(ranges);
        assignment.isPlain = token.size() == 1;
        assignment.operation = token[0];
    } else if (line.assignmentScope != ScopeTarget::Local) {
        return;  // only `local` declares without a value
    }

    for (ParsedAssignmentTarget& target : targets) {
        target.indexExpressions = compileAll(line, target.indexRanges);
    }
    assignment.targets = SharedArray<ParsedAssignmentTarget>::movedFrom(targets);
    assignment.values = compileAll(line, assignment.valueRanges);
    if (assignment.isSimple()) {
        assignment.simpleCall = compileDirectCall(line, assignment.valueRanges[0]);
        line.isFastAssignment = assignment.values[0].valid || assignment.simpleCall.valid;
    }
    line.assignment = SharedRecord<ParsedAssignment>::of(std::move(assignment));
}

FastCallExpression LinePreparer::compileDirectCall(const ParsedScriptLine& line,
                                                   TokenRange range) const {
    const auto [first, last] = range;
    if (first + 2 >= last || first > kMaxTokenIndex) return {};
    const TokenAnalysis& name = line.tokenAnalysis[first];
    // "not" and the boolean literals have the form of an identifier but name no function.
    if (!name.isIdentifier || name.isTrue || name.isFalse) return {};
    if (!isSymbol(line.tokens[first + 1], '(') || !isSymbol(line.tokens[last - 1], ')')) return {};
    if (line.tokens[first] == "not") return {};

    Scratch<FastExpression> arguments;
    FastCallExpression call;
    call.nameToken = static_cast<std::uint16_t>(first);
    const std::size_t close = last - 1;
    for (std::size_t piece = first + 2; piece < close;) {
        const std::size_t end = std::min(findTopLevelToken(line.tokens, piece, ""), close);
        FastExpression argument = compile(line, {piece, end});
        if (!argument.valid) return {};
        arguments.push_back(std::move(argument));
        piece = end + 1;  // a comma directly before ")" is tolerated here
    }
    call.arguments = SharedArray<FastExpression>::movedFrom(arguments);
    call.valid = compileExpressions_;
    return call;
}

void LinePreparer::prepareReturn(ParsedScriptLine& line) const {
    Scratch<FastExpression> values;
    for (std::size_t first = 1; first < line.tokens.size();) {
        const std::size_t last = findTopLevelToken(line.tokens, first, "");
        if (last == first) break;
        values.push_back(compile(line, {first, last}));
        first = last + 1;
    }
    line.returnValues = SharedArray<FastExpression>::movedFrom(values);
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
    std::size_t lastBranch;  // of an `if`: its last branch so far, itself to begin with
};

/// Both kinds of lines have the fields of the links.
template <typename Line>
void linkBlocks(std::vector<Line>& lines) {
    using Link = decltype(Line::matchingEnd);
    constexpr auto kNone = std::numeric_limits<Link>::max();
    std::vector<BlockEntry> open;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        switch (lines[i].kind) {
            case LineKind::If: open.push_back({BlockKind::If, i, i}); break;
            case LineKind::While: open.push_back({BlockKind::While, i, i}); break;
            case LineKind::For: open.push_back({BlockKind::For, i, i}); break;
            case LineKind::Repeat: open.push_back({BlockKind::Repeat, i, i}); break;
            case LineKind::Function:
            case LineKind::DecayFunction:
            case LineKind::NativeFunction:
            case LineKind::LocalFunction: open.push_back({BlockKind::Function, i, i}); break;
            case LineKind::ElseIf:
            case LineKind::Else:
                if (!open.empty() && open.back().kind == BlockKind::If) {
                    lines[open.back().lastBranch].nextBranch = static_cast<Link>(i);
                    open.back().lastBranch = i;
                }
                break;
            case LineKind::Until:
                if (!open.empty() && open.back().kind == BlockKind::Repeat) {
                    lines[open.back().startLine].matchingEnd = static_cast<Link>(i);
                    open.pop_back();
                }
                break;
            case LineKind::End:
                if (open.empty()) break;
                for (auto branch = static_cast<Link>(open.back().startLine); branch != kNone;
                     branch = lines[branch].nextBranch) {
                    lines[branch].matchingEnd = static_cast<Link>(i);
                }
                open.pop_back();
                break;
            default: break;
        }
    }
}

}  // namespace

void prepareLine(ParsedScriptLine& line, bool compileExpressions) {
    LinePreparer(compileExpressions).prepare(line);
}

bool isAssignmentOperator(std::string_view token) {
    if (token.size() == 1) return token[0] == '=';
    return token.size() == 2 && token[1] == '=' &&
           std::string_view("+-*/\\%^").find(token[0]) != std::string_view::npos;
}

void forgetParse(ParsedScriptLine& line) {
    line.isFastAssignment = false;
    line.assignmentScope = ScopeTarget::Default;
    line.matchingEnd = kNoLine;
    line.nextBranch = kNoLine;
    line.assignment.reset();
    line.forHeader.reset();
    line.condition = {};
    line.expression = {};
    line.returnValues = {};
}

LineKind lineKindOf(std::string_view first, std::string_view second) {
    if (second == "function") {
        if (first == "decay") return LineKind::DecayFunction;
        if (first == "native") return LineKind::NativeFunction;
        if (first == "local") return LineKind::LocalFunction;
    }
    const auto found = std::find_if(kKeywords.begin(), kKeywords.end(),
                                    [&](const KeywordRow& row) { return row.word == first; });
    return found == kKeywords.end() ? LineKind::Plain : found->kind;
}

bool mayBeKeyword(std::string_view first) {
    constexpr std::size_t kLongestKeyword = 8;
    return first.size() <= kLongestKeyword &&
           std::string_view("bdefilnruw").find(first[0]) != std::string_view::npos;
}

void matchBlocks(std::vector<ParsedScriptLine>& lines) { linkBlocks(lines); }
void matchBlocks(std::vector<UnreadLine>& lines) { linkBlocks(lines); }

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
        if (parentheses == 0 && brackets == 0 && braces == 0 && terminator == token) return i;
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
    for (ParsedScriptLine& line : lines) prepareLine(line, compileExpressions);
    matchBlocks(lines);
}
