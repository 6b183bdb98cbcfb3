// Calls that run several times within their statement. Where a calculation cannot be computed as
// numbers it starts again as values, so that what has run by then runs again. The steps of the
// evaluators are gone through here with counters in place of values, for calls of functions whose
// results are numbers.
#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dovrel/check_context.h"

namespace {

/// The natives that the number way computes, by how it takes their arguments.
const std::set<std::string>& nativesOnValues() {
    static const std::set<std::string> names = {"toNumber", "len", "string.len", "string.byte",
                                                "utf8.len"};
    return names;
}
const std::set<std::string>& nativesOnNumbers() {
    static const std::set<std::string> names = {"getTimeMs", "math.floor", "math.ceil", "math.abs",
                                                "math.min",  "math.max",   "math.sin",  "math.cos",
                                                "math.rad",  "math.log",   "math.sqrt"};
    return names;
}
/// Natives with a number of their own, which the number way leaves alone before it evaluates
/// anything.
const std::set<std::string>& nativesDeclined() {
    static const std::set<std::string> names = {
        "assert",        "toString",   "error",       "pcall",        "load",
        "pairs",         "ipairs",     "next",        "select",       "collectGarbage",
        "string.upper",  "string.sub", "string.find", "string.match", "string.gmatch",
        "string.format", "gsub",       "string.gsub", "table.insert", "table.remove",
        "table.concat",  "table.sort"};
    return names;
}

/// Natives whose call can be noticed.
bool hasEffect(const std::string& native) {
    static const std::set<std::string> effects = {"print",
                                                  "random",
                                                  "math.random",
                                                  "push",
                                                  "pop",
                                                  "reserve",
                                                  "set",
                                                  "clear",
                                                  "erase",
                                                  "table.insert",
                                                  "table.remove",
                                                  "table.sort",
                                                  "error",
                                                  "kill",
                                                  "pcall",
                                                  "load",
                                                  "loadstring",
                                                  "loadFile",
                                                  "loadfile",
                                                  "runFile",
                                                  "dofile",
                                                  "io.open",
                                                  "io.popen",
                                                  "math.randomSeed",
                                                  "math.randomseed"};
    return effects.contains(native);
}

class RepeatedCalls {
public:
    explicit RepeatedCalls(CheckContext& context) : context_(context) {}

    void run() {
        for (const Statement& statement : context_.statements()) {
            statement_ = &statement;
            for (const AssignmentTarget& target : statement.targets) {
                for (const Expression& key : target.keys) examine(key, Way::Whole);
            }
            for (const Expression& value : statement.values) examine(value, wayOf(statement));
        }
    }

private:
    enum class Way { Whole, Condition, Values, Clause, DirectCall };

    [[nodiscard]] static Way wayOf(const Statement& statement) {
        switch (statement.kind()) {
            case LineKind::If:
            case LineKind::ElseIf:
            case LineKind::While:
            case LineKind::Until: return Way::Condition;
            case LineKind::For: return statement.values.size() > 1 ? Way::Clause : Way::Whole;
            case LineKind::Plain:
                if (statement.targets.empty()) return Way::Whole;
                // Only the value of one name is computed as a number; elements go by tokens.
                if (statement.targets.size() != 1 || !statement.targets[0].keys.empty()) {
                    return statement.targets.size() == 1 ? Way::Values : Way::Whole;
                }
                return statement.values.size() == 1 ? Way::DirectCall : Way::Whole;
            default: return Way::Whole;
        }
    }

    void examine(const Expression& expression, Way way) {
        bool hasCall = false;
        bool byTokens = way == Way::Values;
        visitExpressions(expression, [&](const Expression& part) {
            hasCall = hasCall || part.is(ExpressionKind::Call);
            byTokens = byTokens || part.is(ExpressionKind::Array) ||
                       part.is(ExpressionKind::Table) || part.is(ExpressionKind::Variadic);
        });
        if (!hasCall || byTokens) return;
        goals_.clear();
        known_.clear();
        open_ = {};
        if (way == Way::Condition) {
            countCondition(expression);
        } else if (way == Way::DirectCall && expression.is(ExpressionKind::Call) &&
                   expression.callee().is(ExpressionKind::Variable)) {
            for (std::size_t i = 0; i < expression.argumentCount(); ++i) {
                countWhole(expression.argument(i));
            }
            count(expression);
        } else {
            countWhole(expression);
        }
        tell(way);
    }

    void tell(Way way) {
        for (const auto& [call, count] : counts()) {
            if (count < 2 || !canBeNoticed(*call)) continue;
            const std::string where = way == Way::Condition ? "condition" : "calculation";
            context_.report("W302", statement_->index, *call,
                            "this call may run " + std::to_string(count) + " times: the " + where +
                                " is tried as a number first; assign its result to a name before");
        }
    }

    // A tier that declines leaves its operands to the next one, at each level of an expression
    // anew. So the same steps are gone through very often, and each is worked out only once: its
    // result, the calls in it, and the steps that it takes. How often it is taken is added up at
    // the end.

    /// What is done with an expression.
    enum class Step : std::uint8_t { Values, Numbers, Truth };
    struct Goal {
        bool result = false;
        std::vector<const Expression*> calls;
        std::vector<std::size_t> parts;  // indices of goals that were reached before
    };

    void count(const Expression& call) { open_.calls.push_back(&call); }
    template <typename Work>
    bool once(Step step, const Expression& expression, const Work& work) {
        const auto key = std::make_pair(&expression, step);
        const auto found = known_.find(key);
        std::size_t index = 0;
        if (found != known_.end()) {
            index = found->second;
        } else {
            Goal around = std::exchange(open_, {});
            open_.result = work();
            index = goals_.size();
            goals_.push_back(std::exchange(open_, std::move(around)));
            known_.emplace(key, index);
        }
        open_.parts.push_back(index);
        return goals_[index].result;
    }
    [[nodiscard]] std::map<const Expression*, int> counts() const {
        constexpr int most = 1'000'000;
        std::map<const Expression*, int> calls;
        std::vector<int> times(goals_.size(), 0);
        const auto take = [&](const Goal& goal, int count) {
            for (const Expression* call : goal.calls) {
                calls[call] = std::min(most, calls[call] + count);
            }
            for (const std::size_t part : goal.parts) {
                times[part] = std::min(most, times[part] + count);
            }
        };
        take(open_, 1);
        for (std::size_t i = goals_.size(); i-- > 0;) {
            if (times[i] > 0) take(goals_[i], times[i]);
        }
        return calls;
    }

    /// A call whose repetition makes a difference, as far as can be told.
    [[nodiscard]] bool canBeNoticed(const Expression& call) const {
        bool isMethod = false;
        const std::string native = context_.libraryCallee(call, statement_->function, isMethod);
        if (!native.empty()) return hasEffect(native);
        const std::vector<std::size_t> functions = context_.scriptCallees(call);
        if (functions.empty()) return true;
        return std::any_of(functions.begin(), functions.end(),
                           [this](std::size_t function) { return changesSomething(function); });
    }

    [[nodiscard]] bool changesSomething(std::size_t function) const {
        std::set<std::size_t> all = context_.model.callees(function);
        all.insert(function);
        return std::any_of(all.begin(), all.end(), [this](std::size_t one) {
            const FunctionModel& model = context_.functions()[one];
            for (std::size_t i = model.first; i < model.last; ++i) {
                if (context_.statements()[i].function != one) continue;
                if (changesSomething(context_.statements()[i])) return true;
            }
            return false;
        });
    }

    [[nodiscard]] bool changesSomething(const Statement& statement) const {
        for (const AssignmentTarget& target : statement.targets) {
            const bool isOwn = context_.model.ownNames(statement.function).contains(target.name);
            if (!isOwn || !target.keys.empty()) return true;
        }
        bool found = false;
        for (const Expression& value : statement.values) {
            visitExpressions(value, [&](const Expression& part) {
                if (!part.is(ExpressionKind::Call)) return;
                bool isMethod = false;
                const std::string native =
                    context_.libraryCallee(part, statement.function, isMethod);
                const bool isUnknown = native.empty() && context_.scriptCallees(part).empty();
                found = found || isUnknown || hasEffect(native);
            });
        }
        return found;
    }

    /// `evaluateFastExpression`.
    void countWhole(const Expression& expression) {
        if (expression.is(ExpressionKind::Call)) {
            countValues(expression);
            return;
        }
        if (countJoined(expression)) return;
        if (countNumbers(expression)) return;
        countValues(expression);
    }

    void countCondition(const Expression& expression) {
        if (countTruth(expression)) return;
        if (countNumbers(expression)) return;
        countWhole(expression);
    }

    /// The general tier: everything once.
    void countValues(const Expression& expression) {
        if (expression.children.empty()) return;
        once(Step::Values, expression, [&] {
            for (const Expression& child : expression.children) countValues(child);
            if (expression.is(ExpressionKind::Call)) count(expression);
            return true;
        });
    }

    /// The form for chains of "+" over text literals and `toString`. True if it has the value.
    bool countJoined(const Expression& expression) {
        std::vector<const Expression*> leaves;
        flatten(expression, leaves);
        if (leaves.size() < 2) return false;
        const auto joins = [](const Expression* leaf) {
            return leaf->is(ExpressionKind::TextLiteral) ||
                   (leaf->isCallOf("toString") && leaf->argumentCount() == 1);
        };
        // With a first leaf of another form it does not begin.
        for (const Expression* leaf : leaves) {
            if (!joins(leaf)) return false;
            if (leaf->is(ExpressionKind::Call)) countValues(*leaf);
        }
        return true;
    }
    static void flatten(const Expression& expression, std::vector<const Expression*>& leaves) {
        if (expression.is(ExpressionKind::Binary) && expression.operation == kAdd) {
            flatten(expression.children[0], leaves);
            flatten(expression.children[1], leaves);
        } else {
            leaves.push_back(&expression);
        }
    }

    /// The bool tier. True if it has the value.
    bool countTruth(const Expression& expression) {
        if (expression.children.empty()) return findTruth(expression);
        return once(Step::Truth, expression, [&] { return findTruth(expression); });
    }
    bool findTruth(const Expression& expression) {
        if (expression.is(ExpressionKind::Binary)) {
            if (expression.operation == kAnd || expression.operation == kOr) {
                for (const Expression& child : expression.children) {
                    if (!countTruth(child) && !countNumbers(child)) return false;
                }
                return true;
            }
            if (expression.operation >= kEqual && expression.operation <= kGreaterEqual) {
                return countNumbers(expression.children[0]) && countNumbers(expression.children[1]);
            }
        }
        if (expression.is(ExpressionKind::Unary) &&
            (expression.text == "not" || expression.text == "!")) {
            return countTruth(expression.children[0]) || countNumbers(expression.children[0]);
        }
        return false;
    }

    static bool isLeaf(const Expression& expression) {
        return expression.is(ExpressionKind::Variable) || expression.isLiteral();
    }

    /// The scalar tier. True if it has the value.
    bool countNumbers(const Expression& expression) {
        if (expression.children.empty()) return findNumbers(expression);
        return once(Step::Numbers, expression, [&] { return findNumbers(expression); });
    }
    bool findNumbers(const Expression& expression) {
        switch (expression.kind) {
            case ExpressionKind::TextLiteral: return false;
            case ExpressionKind::Index:
                return countElement(expression.children[0]) && countKey(expression.children[1]);
            case ExpressionKind::Call: return countNumberOfCall(expression);
            case ExpressionKind::Unary:
            case ExpressionKind::Binary:
                return std::all_of(expression.children.begin(), expression.children.end(),
                                   [this](const Expression& child) { return countNumbers(child); });
            case ExpressionKind::Variable:
                return !context_.kinds.ofName(expression.text, statement_->function).isOnlyText();
            default: return true;
        }
    }
    bool countKey(const Expression& key) {
        return key.is(ExpressionKind::TextLiteral) || countNumbers(key);
    }
    /// What is indexed needs to be no number.
    bool countElement(const Expression& base) {
        if (base.is(ExpressionKind::Index)) {
            return countElement(base.children[0]) && countKey(base.children[1]);
        }
        if (isLeaf(base)) return true;
        countValues(base);
        return true;
    }

    bool countNumberOfCall(const Expression& call) {
        bool isMethod = false;
        const std::string native = context_.libraryCallee(call, statement_->function, isMethod);
        if (!isMethod && nativesDeclined().contains(native)) return false;
        if (!isMethod && nativesOnNumbers().contains(native)) {
            for (std::size_t i = 0; i < call.argumentCount(); ++i) {
                if (!countNumbers(call.argument(i))) return false;
            }
            count(call);
            return true;
        }
        const bool onValues = !isMethod && nativesOnValues().contains(native);
        const std::vector<std::size_t> functions = context_.scriptCallees(call);
        const bool isShort =
            !functions.empty() &&
            std::all_of(functions.begin(), functions.end(), [this](std::size_t function) {
                return context_.functions()[function].isOneReturn;
            });
        bool leaves = true;
        for (std::size_t i = 0; i < call.argumentCount(); ++i) {
            leaves = leaves && isLeaf(call.argument(i));
        }
        // A callee that is bound to decline is asked before arguments that nobody can notice.
        if (!onValues && !isShort && leaves) return false;
        for (std::size_t i = 0; i < call.argumentCount(); ++i) countValues(call.argument(i));
        if (!onValues && !isShort) return false;
        count(call);
        return true;
    }

    CheckContext& context_;
    const Statement* statement_ = nullptr;
    std::vector<Goal> goals_;  // each behind those that it takes
    std::map<std::pair<const Expression*, Step>, std::size_t> known_;
    Goal open_;  // the one that is being worked out; at the end the whole
};

}  // namespace

void checkRepeatedCalls(CheckContext& context) { RepeatedCalls(context).run(); }
