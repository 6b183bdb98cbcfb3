// Files and what is read from them: W417 to W419.
#include <algorithm>
#include <set>
#include <string>
#include <string_view>

#include "dovrel/check_context.h"

namespace {

/// "r", "w" or "a", with a "+" or a "b" behind it.
bool isUsualMode(std::string_view mode) {
    static const std::set<std::string_view> kModes = {"r",   "w",   "a",   "r+",  "w+",  "a+",
                                                      "rb",  "wb",  "ab",  "rt",  "wt",  "at",
                                                      "r+b", "w+b", "a+b", "rb+", "wb+", "ab+"};
    return kModes.contains(mode);
}

bool isReadOfLine(const Expression& value) {
    return value.is(ExpressionKind::Call) && value.argumentCount() == 0 &&
           value.callee().is(ExpressionKind::Index) &&
           value.callee().children[1].is(ExpressionKind::TextLiteral) &&
           value.callee().children[1].text == "read";
}

class FileChecks {
public:
    explicit FileChecks(CheckContext& context) : context_(context) {}

    void run() {
        context_.forEachExpression([this](const Expression& expression, const Statement&) {
            const bool isText = expression.is(ExpressionKind::TextLiteral);
            handlesReturns_ = handlesReturns_ ||
                              (isText && expression.text.find('\r') != std::string::npos) ||
                              (isText && expression.text.find("\\s") != std::string::npos) ||
                              (isText && expression.text.find("%s") != std::string::npos);
        });
        context_.forEachExpression(
            [this](const Expression& expression, const Statement& statement) {
                checkMode(expression, statement);
                checkShown(expression, statement);
                checkLine(expression, statement);
            });
        for (const Statement& statement : context_.statements()) checkStore(statement);
    }

private:
    /// Something is assigned to `name`, and `predicate` holds for all that is.
    template <typename Predicate>
    [[nodiscard]] bool isOnly(const std::string& name, const Predicate& predicate) const {
        bool isAny = false;
        for (const NameUse* use : context_.model.usesOf(name)) {
            if (use->isRead() || use->kind == NameUseKind::ElementWrite) continue;
            const Statement& statement = context_.statements()[use->statement];
            const bool isPlain = statement.isPlainAssignment() && statement.targets.size() == 1 &&
                                 statement.values.size() == 1;
            if (!isPlain || use->kind == NameUseKind::Parameter ||
                !predicate(statement.values[0])) {
                return false;
            }
            isAny = true;
        }
        return isAny && !context_.assignedElsewhere.contains(name);
    }
    [[nodiscard]] bool isFile(const Expression& expression) const {
        const auto opens = [&](const Expression& value) {
            return context_.isUntouchedLibrary("io") &&
                   (value.isCallOfMember("io", "open") || value.isCallOfMember("io", "popen"));
        };
        return opens(expression) ||
               (expression.is(ExpressionKind::Variable) && isOnly(expression.text, opens));
    }

    void checkMode(const Expression& call, const Statement& statement) {
        if (!call.isCallOfMember("io", "open") || !context_.isUntouchedLibrary("io") ||
            call.argumentCount() != 2) {
            return;
        }
        const Expression& mode = call.argument(1);
        if (!mode.is(ExpressionKind::TextLiteral) || isUsualMode(mode.text)) return;
        const auto has = [&](char letter) { return mode.text.find(letter) != std::string::npos; };
        std::string effect = "this opens for reading";
        if (has('w')) {
            effect = "this empties the file";
        } else if (has('a')) {
            effect = "this writes at the end of the file";
        }
        context_.report("W417", statement.index, mode,
                        effect + ": only the letters r, w, a and + are looked for");
    }

    /// `print(file)`, and everything else that makes a text of it.
    void checkShown(const Expression& expression, const Statement& statement) {
        const auto report = [&](const Expression& shown) {
            context_.report("W418", statement.index, shown,
                            "a file object is a table of functions, and this shows these; read "
                            "from it: `[\"read\"](\"*a\")`");
        };
        if (expression.is(ExpressionKind::Call) &&
            expression.callee().is(ExpressionKind::Variable)) {
            const std::string& name = expression.callee().text;
            const bool shows = name == "print" || name == "toString" || name == "len";
            if (!shows || !context_.isUntouchedLibrary(name)) return;
            for (std::size_t i = 0; i < expression.argumentCount(); ++i) {
                // What opening gives is shown to see whether it is absent.
                const Expression& shown = expression.argument(i);
                if (shown.is(ExpressionKind::Variable) && isFile(shown)) report(shown);
            }
        }
    }

    /// `file["name"] = ...`.
    void checkStore(const Statement& statement) {
        for (const AssignmentTarget& target : statement.targets) {
            if (target.keys.empty()) continue;
            Expression name;
            name.kind = ExpressionKind::Variable;
            name.text = target.name;
            if (!isFile(name)) continue;
            context_.report("W418", statement.index, target.token,
                            quoted(target.name) +
                                " is a file object, and this stores nothing in its file; write to "
                                "it: `[\"write\"](...)`");
        }
    }

    /// `line == "yes"`, where `line` was read.
    void checkLine(const Expression& comparison, const Statement& statement) {
        if (handlesReturns_ || !comparison.is(ExpressionKind::Binary) ||
            (comparison.operation != kEqual && comparison.operation != kNotEqual)) {
            return;
        }
        for (std::size_t side = 0; side < 2; ++side) {
            const Expression& line = comparison.children[side];
            const Expression& text = comparison.children[1 - side];
            if (!text.is(ExpressionKind::TextLiteral)) continue;
            const auto isLine = [&](const Expression& value) {
                return isReadOfLine(value) && isOpenedFile(value.callee().children[0]);
            };
            const bool isRead =
                isLine(line) || (line.is(ExpressionKind::Variable) && isOnly(line.text, isLine));
            if (!isRead) continue;
            context_.report("W419", statement.index, line,
                            "a line of a file from another system ends in a carriage return, and "
                            "equals nothing then; take it off: `gsub(line, \"\\r$\", \"\")`");
        }
    }
    /// Opened by a name: what a command writes, or somebody at the terminal, has no such ends.
    [[nodiscard]] bool isOpenedFile(const Expression& expression) const {
        const auto opens = [&](const Expression& value) {
            return value.isCallOfMember("io", "open") && context_.isUntouchedLibrary("io") &&
                   value.argumentCount() > 0 &&
                   !(value.argument(0).is(ExpressionKind::TextLiteral) &&
                     value.argument(0).text.starts_with("/dev/"));
        };
        return opens(expression) ||
               (expression.is(ExpressionKind::Variable) && isOnly(expression.text, opens));
    }

    CheckContext& context_;
    bool handlesReturns_ = false;  // somewhere the script takes carriage returns off
};

}  // namespace

void checkFiles(CheckContext& context) { FileChecks(context).run(); }
