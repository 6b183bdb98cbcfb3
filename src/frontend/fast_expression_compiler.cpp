// The expression compiler: the grammar of the token-stream evaluator, with no evaluation and no
// messages. It refuses whatever it does not handle, and the line then goes by tokens.
#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "frontend/character_class.h"
#include "frontend/fast_expression.h"
#include "frontend/operator_table.h"
#include "frontend/scratch_list.h"
#include "frontend/token_analysis.h"
#include "value/numbers.h"
#include "value/stack_end.h"

namespace {

constexpr int kFailed = -1;

/// Of nodes.
using Indices = ScratchList<std::uint32_t, 8>;

NodeKind nodeKindOf(int operatorNumber) {
    switch (operatorNumber) {
        case kOr: return NodeKind::Or;
        case kAnd: return NodeKind::And;
        case kEqual: return NodeKind::Equal;
        case kNotEqual: return NodeKind::NotEqual;
        case kLess: return NodeKind::Less;
        case kGreater: return NodeKind::Greater;
        case kLessEqual: return NodeKind::LessEqual;
        case kGreaterEqual: return NodeKind::GreaterEqual;
        case kAdd: return NodeKind::Add;
        case kSubtract: return NodeKind::Subtract;
        case kMultiply: return NodeKind::Multiply;
        case kDivide: return NodeKind::Divide;
        case kIntDivide: return NodeKind::IntDivide;
        case kModulo: return NodeKind::Modulo;
        case kPower: return NodeKind::Power;
        default: return NodeKind::None;
    }
}

/// Precedence climbing over a token range. Node indices travel as results, kFailed after a refusal.
class Parser {
public:
    Parser(const std::vector<std::string>& tokens, const std::vector<TokenAnalysis>& analysis,
           std::size_t first, std::size_t last, bool isTokenForm = false)
        : tokens_(tokens),
          analysis_(analysis),
          position_(first),
          last_(last),
          isTokenForm_(isTokenForm) {}

    FastExpression parse() {
        FastExpression expression;
        const int root = parseExpression(1);
        if (!ok_ || position_ != last_ || root < 0) return expression;
        expression.valid = true;
        expression.root = root;
        expression.strings = SharedArray<std::string>::movedFrom(strings_);
        expression.callArguments = SharedArray<std::uint32_t>::copyOf(callArguments_);
        expression.nodes = SharedArray<FastExprNode>::copyOf(nodes_);
        return expression;
    }

private:
    int parseExpression(int level);
    int parseOperand();
    int parseUnary(NodeKind kind, std::size_t token);
    int parseWord(std::size_t token);
    int parseNot(std::size_t token);
    int parseNumber(std::size_t token);
    int parsePostfix(int node);
    int parseIndex(int base, std::size_t bracket);
    int parseCall(int callee, std::size_t parenthesis);
    int parseArrayLiteral(std::size_t bracket);
    int parseTableLiteral(std::size_t brace);
    bool parseTableEntry(Indices& entries);
    int addLiteral(NodeKind kind, const Indices& parts, std::size_t count, std::size_t token);
    int addBinary(int operatorNumber, int left, int right, std::size_t token);
    int addString(std::string&& text, std::size_t token);
    int addNode(FastExprNode node, std::size_t token);

    int fail() {
        ok_ = false;
        return kFailed;
    }
    [[nodiscard]] bool atEnd() const { return position_ >= last_; }
    [[nodiscard]] bool nextIs(char symbol) const {
        return !atEnd() && isSymbol(tokens_[position_], symbol);
    }
    [[nodiscard]] const FastExprNode& node(int index) const {
        return nodes_[static_cast<std::size_t>(index)];
    }

    const std::vector<std::string>& tokens_;
    const std::vector<TokenAnalysis>& analysis_;
    std::size_t position_;
    std::size_t last_;
    bool isTokenForm_;
    bool ok_ = true;
    // The expression so far.
    ScratchList<std::string, 2> strings_;
    ScratchList<std::uint32_t, 16> callArguments_;
    ScratchList<FastExprNode, 32> nodes_;
};

int Parser::parseExpression(int level) {
    requireParsingStack();
    int left = parseOperand();
    for (;;) {
        if (!ok_) return kFailed;
        if (atEnd()) return left;
        const int number = classifyBinaryOperator(tokens_[position_]);
        if (number == kNoOperator || kPrecedence[static_cast<std::size_t>(number)] < level) {
            return left;
        }
        const std::size_t token = position_++;
        const int right = parseExpression(rightLevel(number));
        if (!ok_) return kFailed;
        left = addBinary(number, left, right, token);
    }
}

int Parser::parseOperand() {
    if (atEnd()) return fail();
    const std::size_t token = position_++;
    const std::string& text = tokens_[token];
    const TokenAnalysis& known = analysis_[token];
    if (known.isIdentifier) return parseWord(token);
    if (known.isNumeric) return parseNumber(token);
    if (isQuotedToken(text)) return parsePostfix(addString(decodeStringToken(text), token));
    if (isTokenForm_ && text == "...") {
        FastExprNode varargs;
        varargs.kind = NodeKind::Varargs;
        return addNode(varargs, token);
    }
    if (text.size() != 1) return fail();  // every other word
    switch (text[0]) {
        case '(': {
            const int inner = parseExpression(1);
            if (!ok_ || !nextIs(')')) return fail();
            ++position_;
            return parsePostfix(inner);
        }
        case '[': return isTokenForm_ ? parsePostfix(parseArrayLiteral(token)) : fail();
        case '{': return isTokenForm_ ? parsePostfix(parseTableLiteral(token)) : fail();
        case '+': return parseExpression(kUnaryLevel);  // unary plus leaves no trace
        case '-': return parseUnary(NodeKind::Negate, token);
        case '!': return parseUnary(NodeKind::Not, token);
        case '#': return parseUnary(NodeKind::Length, token);
        default: return fail();
    }
}

int Parser::parseWord(std::size_t token) {
    const TokenAnalysis& known = analysis_[token];
    if (tokens_[token] == std::string_view("not")) return parseNot(token);
    FastExprNode word;
    word.kind = NodeKind::Variable;
    if (known.isTrue || known.isFalse) {
        word.kind = NodeKind::BoolLiteral;
        word.boolValue = known.isTrue;
    }
    return parsePostfix(addNode(word, token));
}

int Parser::parseUnary(NodeKind kind, std::size_t token) {
    const int operand = parseExpression(kUnaryLevel);
    if (!ok_) return kFailed;
    FastExprNode unary;
    unary.kind = kind;
    unary.left = operand;
    unary.floatResult = kind == NodeKind::Negate && node(operand).floatResult;
    unary.holdsCall = node(operand).holdsCall;
    return addNode(unary, token);
}

int Parser::parseNot(std::size_t token) {
    if (!atEnd() && !isStandaloneNotBoundary(tokens_[position_])) {
        return parseUnary(NodeKind::Not, token);
    }
    FastExprNode literal;
    literal.kind = NodeKind::NilLiteral;
    return parsePostfix(addNode(literal, token));
}

int Parser::parseNumber(std::size_t token) {
    FastExprNode number;
    if (analysis_[token].hasIntValue) {
        number.kind = NodeKind::IntLiteral;
        number.intValue = analysis_[token].intValue;
    } else {
        number.kind = NodeKind::FloatLiteral;
        number.floatResult = true;
        if (!parseFloatStrict(tokens_[token], number.floatValue)) return fail();
    }
    return parsePostfix(addNode(number, token));
}

int Parser::parsePostfix(int result) {
    // The token-stream evaluator stops behind such literals.
    if (isTokenForm_ && ok_ && node(result).kind != NodeKind::StringLiteral &&
        node(result).kind <= NodeKind::NilLiteral && (nextIs('[') || nextIs('('))) {
        return fail();
    }
    while (ok_) {
        if (nextIs('[')) {
            result = parseIndex(result, position_++);
        } else if (nextIs('(')) {
            result = parseCall(result, position_++);
        } else {
            return result;
        }
    }
    return kFailed;
}

int Parser::parseIndex(int base, std::size_t bracket) {
    const int key = parseExpression(1);
    if (!ok_ || !nextIs(']')) return fail();
    ++position_;
    FastExprNode index;
    index.kind = NodeKind::Index;
    index.left = base;
    index.right = key;
    index.holdsCall = node(base).holdsCall || node(key).holdsCall;
    return addNode(index, bracket);
}

int Parser::addLiteral(NodeKind kind, const Indices& parts, std::size_t count, std::size_t token) {
    FastExprNode literal;
    literal.kind = kind;
    literal.right = static_cast<std::int32_t>(callArguments_.size());
    literal.intValue = static_cast<std::int32_t>(count);
    for (const FastExprNode& part : nodes_) literal.holdsCall = literal.holdsCall || part.holdsCall;
    for (const std::uint32_t part : parts) callArguments_.push_back(part);
    return addNode(literal, token);
}

int Parser::parseArrayLiteral(std::size_t bracket) {
    Indices elements;
    while (!nextIs(']')) {
        const int element = parseExpression(1);
        if (!ok_ || atEnd()) return fail();
        elements.push_back(static_cast<std::uint32_t>(element));
        if (nextIs(']')) break;
        if (!nextIs(',')) return fail();
        ++position_;
        if (atEnd()) return fail();
    }
    ++position_;
    return addLiteral(NodeKind::ArrayLiteral, elements, elements.size(), bracket);
}

bool Parser::parseTableEntry(Indices& entries) {
    constexpr auto kNone = static_cast<std::uint32_t>(-1);
    std::uint32_t key = kNone;
    std::uint32_t text = kNone;
    const auto separates = [this](std::size_t at) {
        return at < last_ && (isSymbol(tokens_[at], ':') || isSymbol(tokens_[at], '='));
    };
    if (nextIs('[')) {
        ++position_;
        key = static_cast<std::uint32_t>(parseExpression(1));
        if (!ok_ || !nextIs(']') || !separates(position_ + 1)) return false;
        position_ += 2;
    } else if (separates(position_ + 1)) {
        const std::string& name = tokens_[position_];
        const TokenAnalysis& known = analysis_[position_];
        if (!isQuotedToken(name) && !known.isIdentifier && !known.isNumeric) return false;
        text = static_cast<std::uint32_t>(strings_.size());
        strings_.push_back(isQuotedToken(name) ? decodeStringToken(name) : name);
        position_ += 2;
    }
    const int value = parseExpression(1);
    if (!ok_) return false;
    for (const std::uint32_t part : {key, text, static_cast<std::uint32_t>(value)}) {
        entries.push_back(part);
    }
    return true;
}

int Parser::parseTableLiteral(std::size_t brace) {
    Indices entries;
    while (!nextIs('}')) {
        if (atEnd() || !parseTableEntry(entries) || atEnd()) return fail();
        if (nextIs('}')) break;
        if (!nextIs(',')) return fail();
        ++position_;
    }
    ++position_;
    return addLiteral(NodeKind::TableLiteral, entries, entries.size() / 3, brace);
}

int Parser::parseCall(int callee, std::size_t parenthesis) {
    // Gathered apart, so that the run of this call stays contiguous although calls among its
    // arguments append theirs in between.
    Indices arguments;
    if (nextIs(')')) {
        ++position_;
    } else {
        for (;;) {
            const int argument = parseExpression(1);
            if (!ok_ || atEnd()) return fail();
            arguments.push_back(static_cast<std::uint32_t>(argument));
            const std::string& separator = tokens_[position_++];
            if (isSymbol(separator, ')')) break;
            if (!isSymbol(separator, ',')) return fail();
        }
    }
    FastExprNode call;
    call.kind = NodeKind::Call;
    call.left = callee;
    call.right = static_cast<std::int32_t>(callArguments_.size());
    call.intValue = static_cast<std::int32_t>(arguments.size());
    call.holdsCall = true;
    for (const std::uint32_t argument : arguments) {
        call.argumentsHoldCall = call.argumentsHoldCall || nodes_[argument].holdsCall;
    }
    call.canConcat = arguments.size() == 1 && node(callee).kind == NodeKind::Variable;
    for (const std::uint32_t argument : arguments) callArguments_.push_back(argument);
    return addNode(call, parenthesis);
}

int Parser::addBinary(int operatorNumber, int left, int right, std::size_t token) {
    FastExprNode binary;
    binary.kind = nodeKindOf(operatorNumber);
    binary.left = left;
    binary.right = right;
    switch (binary.kind) {
        case NodeKind::Divide:
        case NodeKind::Power: binary.floatResult = true; break;
        case NodeKind::IntDivide: break;
        default: binary.floatResult = node(left).floatResult || node(right).floatResult; break;
    }
    binary.holdsCall = node(left).holdsCall || node(right).holdsCall;
    // A chain that fails behind a call has run that call, so it must be tried all the same.
    binary.canConcat = binary.kind == NodeKind::Add && node(left).canConcat &&
                       (node(right).canConcat || node(left).holdsCall);
    return addNode(binary, token);
}

int Parser::addString(std::string&& text, std::size_t token) {
    if (strings_.size() > std::numeric_limits<std::uint16_t>::max()) return fail();
    FastExprNode literal;
    literal.kind = NodeKind::StringLiteral;
    literal.stringIndex = static_cast<std::uint16_t>(strings_.size());
    literal.canConcat = true;
    strings_.push_back(std::move(text));
    return addNode(literal, token);
}

int Parser::addNode(FastExprNode added, std::size_t token) {
    // A token beyond 16 bits has no place in a node; the line then goes by tokens.
    if (token > std::numeric_limits<std::uint16_t>::max()) return fail();
    added.tokenIndex = static_cast<std::uint16_t>(token);
    added.endToken = static_cast<std::uint16_t>(position_ - 1);
    nodes_.push_back(added);
    return static_cast<int>(nodes_.size()) - 1;
}

}  // namespace

FastExpression compileFastExpressionRange(const std::vector<std::string>& tokens,
                                          const std::vector<TokenAnalysis>& analysis,
                                          std::size_t first, std::size_t last) {
    if (last <= first || last > tokens.size() || analysis.size() != tokens.size()) return {};
    return Parser(tokens, analysis, first, last).parse();
}

FastExpression compileTokenForm(const std::vector<std::string>& tokens,
                                const std::vector<TokenAnalysis>& analysis, std::size_t first,
                                std::size_t last) {
    if (last <= first || last > tokens.size() || analysis.size() != tokens.size()) return {};
    return Parser(tokens, analysis, first, last, true).parse();
}
