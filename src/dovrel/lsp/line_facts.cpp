#include "dovrel/lsp/line_facts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <utility>

#include "dovrel/syntax_check.h"
#include "frontend/token_analysis.h"

namespace {

ChunkRange narrowed(SourceRange range) {
    return {static_cast<std::uint32_t>(range.first), static_cast<std::uint32_t>(range.last)};
}

/// Words that are no names although they have the form of one.
bool isValueWord(const ParsedScriptLine& line, std::size_t token) {
    const std::string& text = line.tokens[token];
    return line.tokenAnalysis[token].isTrue || line.tokenAnalysis[token].isFalse || text == "not" ||
           text == "and" || text == "or";
}

/// How many tokens at the beginning of a line are words of its statement.
std::size_t leadingWords(const ParsedScriptLine& line) {
    switch (line.kind) {
        case LineKind::Empty: return 0;
        case LineKind::Plain: return line.assignmentScope == ScopeTarget::Default ? 0 : 1;
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: return 2;
        default: return 1;
    }
}

bool runsText(std::string_view name) { return name == "load" || name == "loadstring"; }

bool runsFile(std::string_view name) {
    constexpr std::array<std::string_view, 4> kNames = {"loadFile", "loadfile", "runFile",
                                                        "dofile"};
    return std::find(kNames.begin(), kNames.end(), name) != kNames.end();
}

}  // namespace

NameId NameTable::idOf(std::string_view text) {
    const auto known = ids_.find(text);
    if (known != ids_.end()) return known->second;
    const auto id = static_cast<NameId>(texts_.size());
    ids_.emplace(texts_.emplace_back(text), id);
    return id;
}

NameId NameTable::find(std::string_view text) const {
    const auto known = ids_.find(text);
    return known == ids_.end() ? kNoName : known->second;
}

LineFacts LineReader::read(const SplitLine& line, char closer) {
    LineFacts facts;
    facts.range = narrowed({line.pieces.front().range.first, line.pieces.back().range.last});
    std::vector<ParsedScriptLine> records;
    try {
        records = interpreter_.parseLines(closer == 0 ? line.joined : line.joined + closer);
    } catch (const std::exception&) {
        // A text that the front end refuses has nothing to tell of.
        facts.isReadable = false;
        return facts;
    }
    if (records.size() != 1) {
        facts.isReadable = false;
        return facts;
    }
    const ParsedScriptLine& record = records.front();
    facts.kind = record.kind;
    SplitLine located = line;
    if (closer != 0) located.joined += closer;
    const std::vector<SourceRange> tokens = locateTokens(located, record);
    facts.isReadable = closer == 0 && !findSyntaxError(interpreter_, record);
    if (!facts.isReadable) {
        readBrokenLine(record, tokens, facts);
        return facts;
    }
    Statement statement;
    statement.line = &record;
    readStatement(statement);
    if (statement.declaresFunction()) {
        readHeader(statement, tokens, facts);
    } else {
        readNames(statement, tokens, facts);
    }
    readExpressions(statement, tokens, facts);
    std::sort(facts.names.begin(), facts.names.end(),
              [](const NameFact& a, const NameFact& b) { return a.range.first < b.range.first; });
    return facts;
}

void LineReader::readNames(Statement& statement, const std::vector<SourceRange>& tokens,
                           LineFacts& facts) {
    std::vector<NameUse> uses;
    collectUses(statement, uses);
    for (const NameUse& use : uses) {
        facts.names.push_back({names_.idOf(use.name), narrowed(tokens[use.token]), use.kind});
    }
}

void LineReader::readHeader(Statement& statement, const std::vector<SourceRange>& tokens,
                            LineFacts& facts) {
    FunctionModel function;
    readFunctionHeader(statement, function);
    readNames(statement, tokens, facts);
    auto header = std::make_unique<FunctionFact>();
    header->name = names_.idOf(function.name);
    header->variable = names_.idOf(statement.line->tokens[function.nameToken]);
    header->range = narrowed(tokens[function.nameToken]);
    const std::vector<Expression>& keys = statement.targets.front().keys;
    if (!keys.empty() && keys.back().is(ExpressionKind::TextLiteral)) {
        header->key = names_.idOf(keys.back().text);
    }
    header->isDecay = function.isDecay;
    header->isVariadic = function.isVariadic;
    header->isElement = function.isElement;
    header->scope = statement.line->assignmentScope;
    for (std::size_t i = 0; i < function.parameters.size(); ++i) {
        const NameId name = names_.idOf(function.parameters[i]);
        header->parameters.push_back(name);
        facts.names.push_back(
            {name, narrowed(tokens[function.parameterTokens[i]]), NameUseKind::Parameter});
    }
    facts.function = std::move(header);
}

void LineReader::readBrokenLine(const ParsedScriptLine& line,
                                const std::vector<SourceRange>& tokens, LineFacts& facts) {
    const std::size_t words = leadingWords(line);
    const bool isHeader = line.kind >= LineKind::Function && line.kind <= LineKind::LocalFunction;
    for (std::size_t i = words; i < line.tokens.size(); ++i) {
        if (!line.tokenAnalysis[i].isIdentifier || isValueWord(line, i)) continue;
        if (line.kind == LineKind::For && line.tokens[i] == "in") continue;
        const bool isCall = i + 1 < line.tokens.size() && line.tokens[i + 1] == "(";
        NameUseKind kind = isCall ? NameUseKind::Call : NameUseKind::Read;
        if (isHeader) {
            kind = i == words ? NameUseKind::Declaration : NameUseKind::Parameter;
        } else if (i == words && line.kind == LineKind::For) {
            kind = NameUseKind::LoopVariable;
        } else if (i == words && line.kind == LineKind::Plain) {
            const bool isWrite = i + 1 < line.tokens.size() && line.tokens[i + 1] == "=";
            if (isWrite) kind = NameUseKind::Write;
            if (line.assignmentScope == ScopeTarget::Native) kind = NameUseKind::Native;
            if (line.assignmentScope == ScopeTarget::Local) kind = NameUseKind::Local;
        }
        facts.names.push_back({names_.idOf(line.tokens[i]), narrowed(tokens[i]), kind});
    }
    if (!isHeader) return;
    auto header = std::make_unique<FunctionFact>();
    header->isDecay = line.kind == LineKind::DecayFunction;
    header->scope = line.assignmentScope;
    for (const NameFact& name : facts.names) {
        if (name.kind == NameUseKind::Parameter) {
            header->parameters.push_back(name.name);
        } else {
            header->name = header->variable = name.name;
            header->range = name.range;
        }
    }
    facts.function = std::move(header);
}

void LineReader::readExpressions(const Statement& statement, const std::vector<SourceRange>& tokens,
                                 LineFacts& facts) {
    const auto visit = [&](const Expression& expression) { readKeys(expression, tokens, facts); };
    for (const AssignmentTarget& target : statement.targets) {
        for (const Expression& key : target.keys) {
            if (key.is(ExpressionKind::TextLiteral)) {
                const bool isFirst = &key == &target.keys.front();
                facts.keys.push_back({isFirst ? names_.idOf(target.name) : kNoName,
                                      names_.idOf(key.text), narrowed(tokens[key.token]), true,
                                      true});
            }
            visitExpressions(key, visit);
        }
    }
    for (const Expression& value : statement.values) visitExpressions(value, visit);
    // The keys of `t = {a: 1}` are keys of `t`.
    const bool isOne = statement.isPlainAssignment() && statement.targets.size() == 1 &&
                       statement.values.size() == 1 && statement.targets[0].keys.empty();
    if (!isOne || !statement.values[0].is(ExpressionKind::Table)) return;
    const Expression& table = statement.values[0];
    for (KeyFact& key : facts.keys) {
        if (key.isIndex || key.base != kNoName) continue;
        const std::string& text = names_.textOf(key.key);
        if (std::find(table.keys.begin(), table.keys.end(), text) != table.keys.end()) {
            key.base = names_.idOf(statement.targets[0].name);
        }
    }
}

void LineReader::readKeys(const Expression& expression, const std::vector<SourceRange>& tokens,
                          LineFacts& facts) {
    if (expression.is(ExpressionKind::Call)) readCall(expression, tokens, facts);
    if (expression.is(ExpressionKind::Index) &&
        expression.children[1].is(ExpressionKind::TextLiteral)) {
        const Expression& base = expression.children[0];
        const Expression& key = expression.children[1];
        facts.keys.push_back({base.is(ExpressionKind::Variable) ? names_.idOf(base.text) : kNoName,
                              names_.idOf(key.text), narrowed(tokens[key.token]), true, false});
    }
    if (!expression.is(ExpressionKind::Table)) return;
    for (const std::string& key : expression.keys) {
        if (key.empty() || key == "[") continue;
        // The tree knows the text and not the place, which nobody asks for.
        facts.keys.push_back(
            {kNoName, names_.idOf(key), narrowed(tokens[expression.token]), false, true});
    }
}

void LineReader::readCall(const Expression& call, const std::vector<SourceRange>& tokens,
                          LineFacts& facts) {
    const Expression& callee = call.callee();
    if (!callee.is(ExpressionKind::Variable)) {
        const bool isMember =
            callee.is(ExpressionKind::Index) && callee.children[1].is(ExpressionKind::TextLiteral);
        if (!isMember) facts.callsUnknown = true;
        return;
    }
    if (runsText(callee.text)) facts.runsUnknownCode = true;
    if (!runsFile(callee.text)) return;
    if (call.argumentCount() == 0 || !call.argument(0).is(ExpressionKind::TextLiteral)) {
        facts.runsUnknownCode = true;
        return;
    }
    facts.links.push_back({call.argument(0).text, narrowed(tokens[call.argument(0).token])});
}
