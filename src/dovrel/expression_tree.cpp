#include "dovrel/expression_tree.h"

#include <stdexcept>
#include <utility>

namespace {

/// The grammar of the evaluators. It takes what they take; anything else ends in an exception.
class ExpressionReader {
public:
    ExpressionReader(const ParsedScriptLine& line, std::size_t& position)
        : line_(line), at_(position) {}

    Expression read(int level) {
        const std::size_t first = at_;
        Expression left = readOperand();
        for (;;) {
            const int number =
                atEnd() ? static_cast<int>(kNoOperator) : classifyBinaryOperator(token());
            if (number == kNoOperator || kPrecedence[static_cast<std::size_t>(number)] < level) {
                return left;
            }
            Expression node = make(ExpressionKind::Binary, at_);
            node.operation = number;
            node.text = token();
            ++at_;
            Expression right = read(rightLevel(number));
            node.children.push_back(std::move(left));
            node.children.push_back(std::move(right));
            left = finish(std::move(node), first);
        }
    }

private:
    [[nodiscard]] bool atEnd() const { return at_ >= line_.tokens.size(); }
    [[nodiscard]] const std::string& token() const {
        if (atEnd()) throw std::logic_error("an expression ends early");
        return line_.tokens[at_];
    }
    [[nodiscard]] bool nextIs(std::string_view text) const { return !atEnd() && token() == text; }
    bool takeIf(std::string_view text) {
        if (!nextIs(text)) return false;
        ++at_;
        return true;
    }
    void take(std::string_view text) {
        if (!takeIf(text)) throw std::logic_error("an expression is malformed");
    }
    static Expression make(ExpressionKind kind, std::size_t token) {
        Expression node;
        node.kind = kind;
        node.token = token;
        return node;
    }
    Expression finish(Expression node, std::size_t first) const {
        node.first = first;
        node.last = at_;
        return node;
    }

    Expression readOperand() {
        const std::size_t first = at_;
        const std::string& text = token();
        const bool isSign =
            text.size() == 1 && std::string_view("#+-!").find(text[0]) != std::string_view::npos;
        if (!isSign && text != "not") return readPrimary();
        Expression node = make(ExpressionKind::Unary, at_);
        node.text = text;
        ++at_;
        if (!isSign && (atEnd() || isStandaloneNotBoundary(token()))) {
            node.kind = ExpressionKind::Nil;
            return finish(std::move(node), first);
        }
        node.children.push_back(read(kUnaryLevel));
        return finish(std::move(node), first);
    }

    Expression readPrimary() {
        const std::size_t first = at_;
        const std::string& text = token();
        Expression node = make(ExpressionKind::Variable, at_);
        if (text == "...") {
            ++at_;
            node.kind = ExpressionKind::Variadic;
            return finish(std::move(node), first);
        }
        if (text == "{") {
            node = readTable();
        } else if (text == "[") {
            node = readArray();
        } else if (text == "(") {
            ++at_;
            node = read(1);
            node.parenthesised = true;
            take(")");
        } else if (isQuotedToken(text)) {
            node.kind = ExpressionKind::TextLiteral;
            node.text = decodeStringToken(text);
            ++at_;
        } else {
            const TokenAnalysis& known = line_.tokenAnalysis[at_];
            ++at_;
            node.text = text;
            if (known.isTrue || known.isFalse) {
                node.kind = ExpressionKind::Truth;
                return finish(std::move(node), first);
            }
            if (!known.isIdentifier) {
                node.kind = known.hasIntValue ? ExpressionKind::Int : ExpressionKind::Float;
            }
        }
        return readPostfix(finish(std::move(node), first), first);
    }

    Expression readPostfix(Expression base, std::size_t first) {
        for (;;) {
            if (nextIs("[")) {
                Expression node = make(ExpressionKind::Index, at_++);
                node.children.push_back(std::move(base));
                node.children.push_back(read(1));
                take("]");
                base = finish(std::move(node), first);
            } else if (nextIs("(")) {
                Expression node = make(ExpressionKind::Call, at_++);
                node.children.push_back(std::move(base));
                if (!takeIf(")")) {
                    do {
                        node.children.push_back(read(1));
                    } while (takeIf(","));
                    take(")");
                }
                base = finish(std::move(node), first);
            } else {
                return base;
            }
        }
    }

    Expression readArray() {
        Expression node = make(ExpressionKind::Array, at_++);
        while (!takeIf("]")) {
            node.children.push_back(read(1));
            if (takeIf(",")) continue;
            take("]");
            break;
        }
        return node;
    }

    Expression readTable() {
        Expression node = make(ExpressionKind::Table, at_++);
        if (takeIf("}")) return node;
        bool hasKeys = false;
        do {
            if (nextIs("}")) break;
            std::string key;
            if (takeIf("[")) {
                node.children.push_back(read(1));
                node.keys.emplace_back("[");
                take("]");
                ++at_;  // ":" or "="
                hasKeys = true;
            } else if (at_ + 1 < line_.tokens.size() &&
                       (line_.tokens[at_ + 1] == ":" || line_.tokens[at_ + 1] == "=")) {
                key = decodeStringToken(token());
                at_ += 2;
                hasKeys = true;
            }
            node.children.push_back(read(1));
            node.keys.push_back(std::move(key));
        } while (takeIf(","));
        take("}");
        // Braces around values alone make an array.
        if (!hasKeys) {
            node.kind = ExpressionKind::Array;
            node.keys.clear();
        }
        return node;
    }

    const ParsedScriptLine& line_;
    std::size_t& at_;
};

}  // namespace

Expression readExpression(const ParsedScriptLine& line, std::size_t& position) {
    return ExpressionReader(line, position).read(1);
}
