// Numbers that come out as another kind, or as nothing: W40x.
#include <algorithm>
#include <string>

#include "dovrel/check_context.h"
#include "frontend/line_preparation.h"

namespace {

class NumberChecks {
public:
    explicit NumberChecks(CheckContext& context) : context_(context) {}

    void run() {
        for (const Statement& statement : context_.statements()) {
            statement_ = &statement;
            checkTruthOfCall();
            checkDroppedZero();
            checkCompound();
            checkEndlessCount();
            for (const Expression& value : statement.values) checkPower(value, false);
            const auto visit = [this](const Expression& expression) {
                checkSub(expression);
                checkStandaloneNot(expression);
            };
            for (const AssignmentTarget& target : statement.targets) {
                for (const Expression& key : target.keys) visitExpressions(key, visit);
            }
            for (const Expression& value : statement.values) visitExpressions(value, visit);
        }
    }

private:
    [[nodiscard]] ValueKinds kindsOf(const Expression& expression) const {
        return context_.kinds.of(expression, statement_->function);
    }

    /// `if f()`, where `f` is of several lines and gives a number.
    void checkTruthOfCall() {
        const LineKind kind = statement_->kind();
        if (kind != LineKind::If && kind != LineKind::ElseIf && kind != LineKind::While &&
            kind != LineKind::Until) {
            return;
        }
        for (const Expression& condition : statement_->values) examineTruth(condition);
    }
    void examineTruth(const Expression& condition) {
        const bool isNegation = condition.is(ExpressionKind::Unary) &&
                                (condition.text == "not" || condition.text == "!");
        const bool isLogic = condition.is(ExpressionKind::Binary) &&
                             (condition.operation == kAnd || condition.operation == kOr);
        if (isNegation || isLogic) {
            for (const Expression& child : condition.children) examineTruth(child);
            return;
        }
        if (!condition.is(ExpressionKind::Call)) return;
        for (const std::size_t function : context_.scriptCallees(condition)) {
            const FunctionModel& model = context_.functions()[function];
            if (model.isOneReturn || !givesNumber(function)) continue;
            context_.report("W405", statement_->index, condition,
                            "the number 0 is true here, since " + quoted(model.name) +
                                " is a function of several lines; compare it, as in `!= 0`");
            return;
        }
    }
    [[nodiscard]] bool givesNumber(std::size_t function) const {
        const FunctionModel& model = context_.functions()[function];
        for (std::size_t i = model.first; i < model.last; ++i) {
            const Statement& statement = context_.statements()[i];
            if (statement.function != function || statement.kind() != LineKind::Return ||
                statement.values.size() != 1) {
                continue;
            }
            const ValueKinds kinds = context_.kinds.of(statement.values[0], function);
            if (kinds.isInt || kinds.isFloat) return true;
        }
        return false;
    }

    /// `x = n or 5`, where the left side is a number.
    void checkDroppedZero() {
        const bool isValue =
            statement_->isPlainAssignment() || statement_->kind() == LineKind::Return;
        if (!isValue) return;
        for (const AssignmentTarget& target : statement_->targets) {
            if (!target.keys.empty()) return;
        }
        for (const Expression& value : statement_->values) {
            if (value.is(ExpressionKind::Binary) && value.operation == kOr) examineOr(value);
        }
    }
    void examineOr(const Expression& value) {
        const Expression& left = value.children[0];
        const Expression& right = value.children[1];
        bool isPlain = true;
        visitExpressions(value, [&](const Expression& part) {
            isPlain = isPlain && !part.is(ExpressionKind::Call) &&
                      !part.is(ExpressionKind::Array) && !part.is(ExpressionKind::Table) &&
                      !part.is(ExpressionKind::Variadic);
        });
        const ValueKinds of = kindsOf(left);
        const ValueKinds other = kindsOf(right);
        if (isPlainNumberCall(left) &&
            (right.is(ExpressionKind::Index) || other.isOnlyInt() || other.isOnlyFloat())) {
            isPlain = true;
            visitExpressions(right, [&](const Expression& part) {
                isPlain = isPlain && !part.is(ExpressionKind::Call);
            });
            const bool isZero = right.is(ExpressionKind::Int) && right.text == "0";
            if (!isPlain || isZero || other.isOnlyText()) return;
            reportDroppedZero(value);
            return;
        }
        const bool mayBeNumber = of.isInt || of.isFloat || (of.isUnknown && !of.isText);
        const bool isZero = right.is(ExpressionKind::Int) && right.text == "0";
        if (!isPlain || !mayBeNumber || isZero || !(other.isOnlyInt() || other.isOnlyFloat()))
            return;
        reportDroppedZero(value);
    }
    void reportDroppedZero(const Expression& value) {
        context_.report("W401", statement_->index, value.token,
                        "a 0 on the left is dropped too; ask for the absent value: "
                        "`if x == not`");
    }
    /// `toNumber(text)`, which is computed as a number, without another call in it.
    [[nodiscard]] bool isPlainNumberCall(const Expression& expression) const {
        bool isMethod = false;
        if (!expression.is(ExpressionKind::Call) || expression.argumentCount() != 1 ||
            context_.libraryCallee(expression, statement_->function, isMethod) != "toNumber") {
            return false;
        }
        bool isPlain = true;
        visitExpressions(expression.argument(0), [&](const Expression& part) {
            isPlain = isPlain && !part.is(ExpressionKind::Call);
        });
        return isPlain;
    }

    void checkCompound() {
        if (!statement_->isCompound() || statement_->targets.size() != 1 ||
            statement_->values.size() != 1 || !statement_->targets[0].keys.empty()) {
            return;
        }
        const AssignmentTarget& target = statement_->targets[0];
        const char operation = statement_->line->assignment->operation;
        const ValueKinds of = context_.kinds.beforeCompounds(target.name, statement_->function);
        const ValueKinds by = kindsOf(statement_->values[0]);
        const std::string full = target.name + " = " + target.name + ' ' + operation + " ...";
        std::string trouble;
        if (operation == '^') return;
        if (of.isOnlyInt()) {
            if (by.isOnlyText() && operation == '+') {
                trouble = "this makes a text of the number " + quoted(target.name);
            } else if (operation == '/' || by.isOnlyFloat()) {
                trouble = quoted(target.name) + " is an int, and this would make it a float: it " +
                          "fails with bad_variant_access; write " + quoted(full) +
                          " or begin with a float";
            }
        } else if (of.isOnlyFloat() && operation == '\\') {
            trouble = quoted(target.name) +
                      " is a float, and this would make it an int: it fails " +
                      "with bad_variant_access; write " + quoted(full);
        } else if (of.isOnlyFloat() && by.isOnlyText() && operation == '+') {
            trouble = "this makes a text of the number " + quoted(target.name);
        }
        if (!trouble.empty()) context_.report("W402", statement_->index, target.token, trouble);
    }

    void checkEndlessCount() {
        if (statement_->kind() != LineKind::For || statement_->values.size() < 2) return;
        const Expression& limit = statement_->values[1];
        if (!limit.is(ExpressionKind::Int) || limit.text != "2147483647") return;
        context_.report("W308", statement_->index, limit,
                        "no int is larger than this one: the count wraps around and the loop has "
                        "no end");
    }

    /// `isCertain` if what stands around makes one kind of it in any case.
    void checkPower(const Expression& expression, bool isCertain) {
        const bool isPower =
            expression.is(ExpressionKind::Binary) && expression.operation == kPower;
        if (isPower && !isCertain && kindsOf(expression.children[0]).isOnlyInt() &&
            kindsOf(expression.children[1]).isOnlyInt()) {
            context_.report("W406", statement_->index, expression,
                            "this power of ints is a float or an int, depending on where it "
                            "stands; write `math[\"floor\"](...)` for an int, or add 0.0 for a "
                            "float");
            return;  // what stands in it is of no kind that matters
        }
        if (expression.is(ExpressionKind::Call)) {
            isCertain = expression.isCallOfMember("math", "floor") ||
                        expression.isCallOfMember("math", "ceil");
        } else if (expression.is(ExpressionKind::Binary)) {
            const int operation = expression.operation;
            isCertain = isCertain || operation == kDivide || operation == kIntDivide ||
                        (operation >= kEqual && operation <= kGreaterEqual) ||
                        kindsOf(expression.children[0]).isOnlyFloat() ||
                        kindsOf(expression.children[1]).isOnlyFloat();
        }
        for (const Expression& child : expression.children) checkPower(child, isCertain);
    }

    /// `string["sub"](s, i, j)` with a `j` that may come out as 0.
    void checkSub(const Expression& expression) {
        if (!expression.is(ExpressionKind::Call)) return;
        bool isMethod = false;
        if (context_.libraryCallee(expression, statement_->function, isMethod) != "string.sub") {
            return;
        }
        const std::size_t last = isMethod ? 1 : 2;
        if (expression.argumentCount() != last + 1) return;
        const Expression& end = expression.argument(last);
        const bool isZero = end.is(ExpressionKind::Int) && end.text == "0";
        const bool isComputed = end.is(ExpressionKind::Binary) && end.operation == kSubtract;
        if (!isZero && !isComputed) return;
        context_.report("W403", statement_->index, end,
                        isZero
                            ? "an end of 0 is the end of the text"
                            : "where this comes out as 0, the result goes to the end of the text");
    }

    /// `not - 1`.
    void checkStandaloneNot(const Expression& expression) {
        if (!expression.is(ExpressionKind::Binary)) return;
        const Expression& left = expression.children[0];
        const bool isComparison =
            expression.operation == kEqual || expression.operation == kNotEqual;
        if (!left.is(ExpressionKind::Nil) || left.parenthesised || isComparison) return;
        context_.report("W412", statement_->index, left,
                        "in front of an operator `not` is the absent value and negates nothing; "
                        "put what it shall negate into parentheses");
    }

    CheckContext& context_;
    const Statement* statement_ = nullptr;
};

}  // namespace

void checkNumbers(CheckContext& context) { NumberChecks(context).run(); }
