// Words and signs of other languages that are read here, but mean something else: W305, W306, W404,
// W416.
#include <string>

#include "dovrel/check_context.h"

namespace {

class WordChecks {
public:
    explicit WordChecks(CheckContext& context) : context_(context) {}

    void run() {
        for (const Statement& statement : context_.statements()) {
            checkRest(statement);
            checkTrailingComma(statement);
            checkLoneWord(statement);
        }
        checkValues();
        context_.forEachExpression(
            [this](const Expression& expression, const Statement& statement) {
                checkPattern(expression, statement);
            });
    }

private:
    /// What stands behind `else`, `end`, `repeat` and `break` is not read.
    void checkRest(const Statement& statement) {
        const auto& tokens = statement.line->tokens;
        const LineKind kind = statement.kind();
        const bool standsAlone = kind == LineKind::Else || kind == LineKind::End ||
                                 kind == LineKind::Repeat || kind == LineKind::Break;
        if (!standsAlone || tokens.size() < 2) return;
        if (kind == LineKind::Else && tokens[1] == "if") {
            context_.report("W305", statement.index, 1,
                            "what stands behind `else` is not read, so this asks nothing; write "
                            "`elseif`");
            return;
        }
        context_.report("W306", statement.index, 1,
                        "what stands behind " + quoted(tokens[0]) + " is not read");
    }

    void checkTrailingComma(const Statement& statement) {
        const auto& tokens = statement.line->tokens;
        if (!statement.isAssignment() || tokens.back() != ",") return;
        context_.report("W416", statement.index, tokens.size() - 1,
                        "nothing follows this comma; the line does not go on in the next one");
    }

    void checkLoneWord(const Statement& statement) {
        if (!statement.isExpression() || !statement.values[0].is(ExpressionKind::Variable)) return;
        const std::string& name = statement.values[0].text;
        if (!isForeignStatement(name) || context_.isAssigned(name)) return;
        std::string message = quoted(name) + " is no word of this language and does nothing";
        if (name == "continue") message += "; put the rest of the body into an `if`";
        if (name == "exit" || name == "quit") message += "; `return` at the top ends the script";
        if (name == "next")
            message = "`next` alone does nothing; put the rest of the body into an `if`";
        context_.report("W305", statement.index, 0, message);
    }

    void checkValues() {
        for (const NameUse& use : context_.model.uses()) {
            if (!isForeignValue(use.name) || context_.runsUnknownCode) continue;
            if (use.name == "nil" && !use.isRead()) {
                context_.report("W305", use.statement, use.token,
                                "`nil` is a name like any other: it is absent only as long as "
                                "nothing is assigned to it");
                continue;
            }
            if (!use.isRead() || context_.isAssigned(use.name)) continue;
            std::string word = "`not` is the absent value";
            if (use.name == "True" || use.name == "TRUE") word = "write `true`";
            if (use.name == "False" || use.name == "FALSE") word = "write `false`";
            context_.report("W305", use.statement, use.token,
                            quoted(use.name) +
                                " is no word of this language but a name without a value; " + word);
        }
    }

    void checkPattern(const Expression& expression, const Statement& statement) {
        if (!expression.is(ExpressionKind::Call)) return;
        bool isMethod = false;
        const std::string name = context_.libraryCallee(expression, statement.function, isMethod);
        const bool takesPattern = name == "gsub" || name == "string.gsub" ||
                                  name == "string.find" || name == "string.match" ||
                                  name == "string.gmatch";
        const std::size_t index = isMethod ? 0 : 1;
        if (!takesPattern || expression.argumentCount() <= index) return;
        const Expression& pattern = expression.argument(index);
        if (!pattern.is(ExpressionKind::TextLiteral) || pattern.text.starts_with("re:") ||
            (pattern.text.starts_with("/") && pattern.text.find('/', 1) != std::string::npos) ||
            pattern.text.find("[^") == std::string::npos) {
            return;
        }
        // As a plain text the fourth argument of `find` makes it no pattern at all.
        if (name == "string.find" && expression.argumentCount() > index + 2) return;
        context_.report("W404", statement.index, pattern,
                        "`[^...]` negates nothing in a pattern of this kind: it takes `^` as well; "
                        "write `re:` in front, or a class such as `%A`");
    }

    CheckContext& context_;
};

}  // namespace

void checkWords(CheckContext& context) { WordChecks(context).run(); }
