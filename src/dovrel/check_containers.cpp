// Elements, keys, walks and several results: W407 to W411, W413 to W415.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "dovrel/check_context.h"
#include "frontend/line_preparation.h"

namespace {

class ContainerChecks {
public:
    explicit ContainerChecks(CheckContext& context) : context_(context) {}

    void run() {
        for (const Statement& statement : context_.statements()) {
            statement_ = &statement;
            checkStores();
            checkWalk();
            checkSeveralResults();
        }
        context_.forEachExpression(
            [this](const Expression& expression, const Statement& statement) {
                statement_ = &statement;
                checkKey(expression);
            });
    }

private:
    [[nodiscard]] ValueKinds kindsOf(const Expression& expression) const {
        return context_.kinds.of(expression, statement_->function);
    }

    void checkStores() {
        for (std::size_t i = 0; i < statement_->targets.size(); ++i) {
            const AssignmentTarget& target = statement_->targets[i];
            if (target.keys.empty() || !statement_->isPlainAssignment()) continue;
            const ValueKinds base = context_.kinds.ofName(target.name, statement_->function);
            const Expression& key = target.keys.back();
            const bool isNil =
                i < statement_->values.size() && statement_->values[i].is(ExpressionKind::Nil);
            if (isNil && !key.isLiteral() && !base.isOnlyArray()) {
                context_.report("W409", statement_->index, statement_->values[i],
                                "this stores the absent value and keeps the key; `erase` removes "
                                "it");
            }
            if (target.keys.size() != 1) continue;
            if (base.isOnlyArray() && key.is(ExpressionKind::TextLiteral)) {
                context_.report("W411", statement_->index, key,
                                quoted(target.name) +
                                    " is an array; this key makes a table of it, while other "
                                    "names of it keep the array");
            }
            if (key.is(ExpressionKind::Float) && !base.isOnlyArray()) reportFloatKey(key);
        }
    }
    void reportFloatKey(const Expression& key) {
        context_.report("W408", statement_->index, key,
                        "in a table this is the key with six decimals, and not the int");
    }

    void checkKey(const Expression& expression) {
        if (!expression.is(ExpressionKind::Index)) return;
        const ValueKinds base = kindsOf(expression.children[0]);
        const Expression& key = expression.children[1];
        if (key.is(ExpressionKind::Float) && !base.isOnlyArray() && !base.isOnlyText()) {
            reportFloatKey(key);
        }
        const bool isBelowOne = (key.is(ExpressionKind::Int) && key.text == "0") ||
                                (key.is(ExpressionKind::Unary) && key.text == "-" &&
                                 key.children[0].is(ExpressionKind::Int));
        if (isBelowOne && (base.isOnlyArray() || base.isOnlyText())) {
            context_.report("W413", statement_->index, key,
                            "positions count from 1, and none counts from the end: this is always "
                            "the absent value");
        }
    }

    void checkWalk() {
        if (statement_->kind() != LineKind::For || statement_->values.size() != 1) return;
        const BuiltinId walked = statement_->line->forHeader->genericBuiltin;
        const Expression& iterator = statement_->values[0];
        if (walked != BuiltinId{}) {
            const std::string& name = iterator.callee().text;
            if (context_.isAssigned(name)) {
                context_.report("W415", statement_->index, iterator.callee(),
                                "a `for` does not call a replaced " + quoted(name) +
                                    ": it walks the value as an array; put the call into "
                                    "parentheses");
            } else if (name == "pairs" && iterator.argumentCount() == 1) {
                checkOrder(iterator.argument(0));
            }
            return;
        }
        if (statement_->loopTokens.size() > 1) checkElements(iterator);
    }

    /// Keys that are numbers come in the order of their texts.
    void checkOrder(const Expression& walked) {
        bool isUnordered = false;
        if (walked.is(ExpressionKind::Table)) isUnordered = hasUnorderedKeys(walked);
        if (walked.is(ExpressionKind::Variable)) {
            for (const NameUse* use : context_.model.usesOf(walked.text)) {
                const Statement& statement = context_.statements()[use->statement];
                if (use->isRead() || use->kind == NameUseKind::Parameter) continue;
                if (statement.values.size() == 1 && statement.values[0].is(ExpressionKind::Table)) {
                    isUnordered = isUnordered || hasUnorderedKeys(statement.values[0]);
                }
                isUnordered = isUnordered || isFilledByCount(*use);
            }
        }
        if (!isUnordered) return;
        context_.report("W410", statement_->index, walked,
                        "keys come in the order of their texts, 10 before 9; walk "
                        "numbers with `ipairs` or a counting loop");
    }
    [[nodiscard]] static bool hasUnorderedKeys(const Expression& table) {
        std::vector<std::string> numbers;
        int position = 0;
        for (const std::string& key : table.keys) {
            if (key.empty()) numbers.push_back(std::to_string(++position));
            const bool isNumber =
                !key.empty() && key.find_first_not_of("0123456789") == std::string::npos;
            if (isNumber) numbers.push_back(key);
        }
        const auto byNumber = [](const std::string& a, const std::string& b) {
            return a.size() != b.size() ? a.size() < b.size() : a < b;
        };
        std::vector<std::string> byText = numbers;
        std::sort(numbers.begin(), numbers.end(), byNumber);
        std::sort(byText.begin(), byText.end());
        return numbers != byText;
    }
    /// `t[i] = ...` in a loop that counts from below 10 to 10 and further, where `t` is a table.
    [[nodiscard]] bool isFilledByCount(const NameUse& use) const {
        if (use.kind != NameUseKind::ElementWrite) return false;
        const ValueKinds kinds = context_.kinds.ofName(use.name, use.function);
        if (!kinds.isTable || kinds.isArray || kinds.isUnknown) return false;
        const Statement& statement = context_.statements()[use.statement];
        for (const AssignmentTarget& target : statement.targets) {
            if (target.token != use.token || target.keys.size() != 1) continue;
            for (std::size_t block = context_.model.blockAround(use.statement); block != kNoLine;
                 block = context_.model.blockAround(block)) {
                const Statement& loop = context_.statements()[block];
                if (loop.kind() != LineKind::For || !isNumericForLine(*loop.line)) continue;
                const bool isCount = target.keys[0].isName(loop.line->tokens[1]);
                const Expression& limit = loop.values[1];
                if (isCount && limit.is(ExpressionKind::Int) && limit.text.size() > 1) return true;
            }
        }
        return false;
    }

    /// `for i, x in list` spreads the elements.
    void checkElements(const Expression& iterator) {
        bool isSpread = true;
        const auto holdsOthers = [](const Expression& array) {
            return array.is(ExpressionKind::Array) && !array.children.empty() &&
                   std::all_of(array.children.begin(), array.children.end(),
                               [](const Expression& element) { return element.isLiteral(); });
        };
        if (holdsOthers(iterator)) isSpread = false;
        if (iterator.is(ExpressionKind::Variable)) {
            static const std::set<std::string> counts = {"i",     "j",      "k",     "n",
                                                         "index", "key",    "pos",   "idx",
                                                         "no",    "number", "count", "position"};
            const std::string& first = statement_->line->tokens[statement_->loopTokens[0]];
            bool isKnown = false;
            for (const NameUse* use : context_.model.usesOf(iterator.text)) {
                const Statement& statement = context_.statements()[use->statement];
                if (use->isRead() || statement.values.size() != 1 ||
                    statement.targets.size() != 1 || !statement.targets[0].keys.empty()) {
                    continue;
                }
                const Expression& value = statement.values[0];
                if (!value.is(ExpressionKind::Array) || value.children.empty()) continue;
                isKnown = true;
                if (holdsOthers(value)) isSpread = false;
            }
            if (!isKnown && counts.contains(first)) isSpread = false;
        }
        if (isSpread) return;
        context_.report("W414", statement_->index, iterator,
                        "the first variable gets the element here; for its position too, write "
                        "`in ipairs(...)`");
    }

    /// How many results a call gives at most, as far as is known; 1 if nothing is.
    [[nodiscard]] std::size_t resultsOf(const Expression& call) const {
        std::size_t most = 1;
        for (const std::size_t function : context_.scriptCallees(call)) {
            const FunctionModel& model = context_.functions()[function];
            for (std::size_t i = model.first; i < model.last; ++i) {
                const Statement& statement = context_.statements()[i];
                if (statement.function == function && statement.kind() == LineKind::Return) {
                    most = std::max(most, statement.values.size());
                }
            }
        }
        return most;
    }
    [[nodiscard]] bool isSeveral(const Expression& expression) const {
        if (!expression.is(ExpressionKind::Call)) return false;
        bool isMethod = false;
        return context_.libraryCallee(expression, statement_->function, isMethod) == "pcall" ||
               resultsOf(expression) > 1;
    }
    void reportSeveral(const Expression& call, const std::string& what) {
        context_.report(
            "W407", statement_->index, call,
            "this call gives several results, and " + what + "; assign them to names first");
    }

    /// Several results are one value, except where an assignment takes them apart.
    void checkSeveralResults() {
        const LineKind kind = statement_->kind();
        for (const Expression& value : statement_->values) {
            visitExpressions(value, [this](const Expression& expression) { checkUse(expression); });
        }
        for (const AssignmentTarget& target : statement_->targets) {
            for (const Expression& key : target.keys) {
                visitExpressions(key,
                                 [this](const Expression& expression) { checkUse(expression); });
                if (isSeveral(key)) reportSeveral(key, "a key must be one");
            }
        }
        const bool isCondition = kind == LineKind::If || kind == LineKind::ElseIf ||
                                 kind == LineKind::While || kind == LineKind::Until;
        for (const Expression& value : statement_->values) {
            if (!isSeveral(value)) continue;
            if (isCondition) {
                reportSeveral(value, "they are true whatever they are");
            } else if (!statement_->targets.empty() && !statement_->targets[0].keys.empty() &&
                       statement_->targets.size() == 1) {
                reportSeveral(value, "an element keeps them as one");
            } else if (statement_->values.size() > 1 && kind != LineKind::For) {
                reportSeveral(value, "among other values they stay one");
            }
        }
    }
    void checkUse(const Expression& expression) {
        switch (expression.kind) {
            case ExpressionKind::Call: {
                bool isMethod = false;
                const std::string native =
                    context_.libraryCallee(expression, statement_->function, isMethod);
                // These two take them apart or pass them on.
                if (native == "select" || native == "typeOf" || native == "type") return;
                for (std::size_t i = 0; i < expression.argumentCount(); ++i) {
                    if (isSeveral(expression.argument(i))) {
                        reportSeveral(expression.argument(i), "they are one argument");
                    }
                }
                break;
            }
            case ExpressionKind::Array:
            case ExpressionKind::Table:
                for (const Expression& child : expression.children) {
                    if (isSeveral(child)) reportSeveral(child, "they are one element");
                }
                break;
            case ExpressionKind::Unary:
            case ExpressionKind::Binary:
                for (const Expression& child : expression.children) {
                    if (isSeveral(child)) reportSeveral(child, "they are one operand");
                }
                break;
            case ExpressionKind::Index:
                if (isSeveral(expression.children[0])) {
                    reportSeveral(expression.children[0], "they cannot be indexed");
                }
                break;
            default: break;
        }
    }

    CheckContext& context_;
    const Statement* statement_ = nullptr;
};

}  // namespace

void checkContainers(CheckContext& context) { ContainerChecks(context).run(); }
