// The positions that errors show: the line of a statement, and the last token.
#include <algorithm>
#include <utility>

#include "exec/machine.h"

const MachineStatement& Machine::statementAt(const MachineCode& code, Pc pc) const {
    const auto index = static_cast<std::uint32_t>(pc - code.code.data());
    const auto behind = std::upper_bound(
        code.statements.begin(), code.statements.end(), index,
        [](std::uint32_t i, const MachineStatement& statement) { return i < statement.first; });
    return behind == code.statements.begin() ? *behind : *std::prev(behind);
}

void Machine::showLine(const MachineCode& code, const MachineStatement& statement) {
    static_cast<void>(code);
    interpreter_.selectLine(lineOf(statement.line));
}

void Machine::showLastToken() {
    const MachineCode& code = *lastTokenCode_;
    const Pc at = std::exchange(lastToken_, nullptr);
    const TokenSite& site = code.tokenMarks[static_cast<std::size_t>(at->d())];
    interpreter_.lastToken = site.line->tokens[site.token];
    interpreter_.lastTokenIndex = site.token;
}

/// Makes the position what it is at `pc`: the line, and the last token if the tokens' rules are
/// followed.
void Machine::showPosition(const MachineCode& code, Pc pc) {
    showToken();
    if (!code.statements.empty()) {
        const MachineStatement& statement = statementAt(code, pc);
        const bool isKept = pc->op == Op::ForNext && (pc->m & kLinesAreKept) != 0;
        if (!statement.runsCode && !code.forTurns && !isKept) showLine(code, statement);
    }
    const auto index = static_cast<std::uint32_t>(pc - code.code.data());
    const auto site =
        std::lower_bound(code.tokens.begin(), code.tokens.end(), index,
                         [](const TokenSite& known, std::uint32_t i) { return known.at < i; });
    if (site != code.tokens.end() && site->at == index) {
        interpreter_.lastToken = site->line->tokens[site->token];
        interpreter_.lastTokenIndex = site->token;
    }
}

/// The same for an instruction that has failed; `token` is the first of its statement.
void Machine::showFailure(const Activation& at, Pc pc, std::string& token) {
    const MachineCode& code = *at.code;
    token = "script";
    showPosition(code, pc);
    if (code.statements.empty() || code.isTurnLine) return;
    if (pc->op == Op::ForNext && (pc->m & kCountsOutside) != 0) {
        token = "for";
        return;
    }
    const ParsedScriptLine& line = code.program->lines[statementAt(code, pc).line];
    if (!line.tokens.empty()) token = line.tokens[0];
}
