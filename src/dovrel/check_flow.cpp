// Statements that never run, do nothing, or run elsewhere: W301, W303, W304, W307 and E104.
#include <algorithm>
#include <set>
#include <string>

#include "dovrel/check_context.h"

namespace {

class FlowChecks {
public:
    explicit FlowChecks(CheckContext& context) : context_(context) {}

    void run() {
        for (const Statement& statement : context_.statements()) {
            closers_.insert(statement.line->matchingEnd);
            closers_.insert(statement.line->nextBranch);
        }
        for (const Statement& statement : context_.statements()) {
            statement_ = &statement;
            checkUnreachable();
            checkBreak();
            checkLoneExpression();
            checkCloser();
        }
        for (const FunctionModel& function : context_.functions()) checkDecay(function);
    }

private:
    [[nodiscard]] const Statement& at(std::size_t index) const {
        return context_.statements()[index];
    }
    [[nodiscard]] static bool closes(LineKind kind) {
        return kind == LineKind::End || kind == LineKind::ElseIf || kind == LineKind::Else ||
               kind == LineKind::Until;
    }

    void checkUnreachable() {
        if (statement_->kind() != LineKind::Return && statement_->kind() != LineKind::Break) return;
        std::size_t next = statement_->index + 1;
        while (next < context_.statements().size() && at(next).kind() == LineKind::Empty) ++next;
        if (next >= context_.statements().size() || closes(at(next).kind())) return;
        const char* word = statement_->kind() == LineKind::Return ? "`return`" : "`break`";
        context_.report("W301", next, 0, std::string("this never runs: it stands behind ") + word);
    }

    void checkBreak() {
        if (statement_->kind() != LineKind::Break) return;
        for (std::size_t block = context_.model.blockAround(statement_->index); block != kNoLine;
             block = context_.model.blockAround(block)) {
            switch (at(block).kind()) {
                case LineKind::While:
                case LineKind::For:
                case LineKind::Repeat: return;
                default: break;
            }
            if (at(block).declaresFunction()) break;
        }
        context_.report("E104", statement_->index, 0, "break used outside a loop");
    }

    /// An expression that is no call does nothing.
    void checkLoneExpression() {
        if (!statement_->isExpression()) return;
        const Expression& expression = statement_->values[0];
        if (expression.is(ExpressionKind::Call) ||
            (expression.is(ExpressionKind::Variable) &&
             (isForeignStatement(expression.text) || isForeignValue(expression.text)))) {
            return;
        }
        const std::string& first = statement_->line->tokens[0];
        const bool isContinuation =
            expression.is(ExpressionKind::Unary) || first == "-" || first == "+";
        std::string message = "this line is an expression, whose value is dropped";
        if (isContinuation) {
            message = "this line does not go on with the one before; open a bracket there";
        } else if (expression.is(ExpressionKind::Variable)) {
            message = quoted(expression.text) + " alone does nothing; a call needs `()`";
        }
        bool hasCall = false;
        visitExpressions(expression, [&](const Expression& part) {
            hasCall = hasCall || part.is(ExpressionKind::Call);
        });
        // `f() or g()` runs what it needs to.
        if (hasCall && !isContinuation) return;
        context_.report("W304", statement_->index, expression, message);
    }

    void checkCloser() {
        const LineKind kind = statement_->kind();
        if (!closes(kind)) return;
        if (closers_.contains(statement_->index)) return;
        context_.report("W307", statement_->index, 0,
                        quoted(statement_->line->tokens[0]) +
                            " does nothing here: no block that it could belong to is open");
    }

    void checkDecay(const FunctionModel& function) {
        if (!function.isDecay) return;
        for (std::size_t i = function.first; i < function.last; ++i) {
            const bool opens = at(i).kind() == LineKind::If || at(i).kind() == LineKind::While ||
                               at(i).kind() == LineKind::For || at(i).kind() == LineKind::Repeat ||
                               at(i).declaresFunction();
            if (!opens || context_.model.blockAround(i) != function.header) continue;
            context_.report("W303", i, 0,
                            "a block in the body of a decay function ends in the wrong place; put "
                            "it into a function that the body calls");
        }
    }

    CheckContext& context_;
    const Statement* statement_ = nullptr;
    std::set<std::size_t> closers_;  // the statements that close a block or begin a branch of one
};

}  // namespace

void checkFlow(CheckContext& context) { FlowChecks(context).run(); }
