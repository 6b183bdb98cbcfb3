// Names that lead to another variable than one thinks, since functions see the variables of their
// callers: W201, W202, W207 to W210.
#include <algorithm>
#include <string>
#include <vector>

#include "dovrel/check_context.h"

namespace {

class ScopeChecks {
public:
    explicit ScopeChecks(CheckContext& context) : context_(context) {}

    void run() {
        checkNativesInBranches();
        checkNativesBehindUses();
        checkNativesBehindLoops();
        checkCallersVariables();
        checkHidingLocals();
        checkHiddenLibrary();
    }

private:
    [[nodiscard]] LineKind kindAt(std::size_t statement) const {
        return context_.statements()[statement].kind();
    }
    [[nodiscard]] std::string functionName(std::size_t function) const {
        return function == 0 ? "the top of the script"
                             : quoted(context_.functions()[function].name);
    }
    [[nodiscard]] std::string lineNumber(std::size_t statement) const {
        return std::to_string(context_.statements()[statement].line->lineNumber + 1);
    }

    /// The innermost `for` around a statement in its function, which has the frame that `native`
    /// writes to; kNoLine for that of the call.
    [[nodiscard]] std::size_t frameOf(std::size_t statement) const {
        for (std::size_t at = context_.model.blockAround(statement); at != kNoLine;
             at = context_.model.blockAround(at)) {
            if (kindAt(at) == LineKind::For) return at;
            if (context_.statements()[at].declaresFunction()) break;
        }
        return kNoLine;
    }
    /// The innermost branch or `while` around a statement, within the frame of its `native`s, that
    /// does not end by leaving the function. kNoLine if there is none.
    [[nodiscard]] std::size_t branchAround(std::size_t statement) const {
        for (std::size_t at = context_.model.blockAround(statement); at != kNoLine;
             at = context_.model.blockAround(at)) {
            switch (kindAt(at)) {
                case LineKind::If:
                case LineKind::ElseIf:
                case LineKind::Else:
                case LineKind::While:
                    if (!endsByLeaving(at)) return at;
                    break;
                case LineKind::Repeat: break;
                default: return kNoLine;
            }
        }
        return kNoLine;
    }
    [[nodiscard]] bool endsByLeaving(std::size_t opener) const {
        for (std::size_t i = context_.model.blockEnd(opener); i-- > opener + 1;) {
            if (kindAt(i) == LineKind::Empty) continue;
            return kindAt(i) == LineKind::Return && context_.model.blockAround(i) == opener;
        }
        return false;
    }

    [[nodiscard]] bool isDeclaredBefore(const NameUse& use) const {
        const auto& uses = context_.model.usesOf(use.name);
        return std::any_of(uses.begin(), uses.end(), [&](const NameUse* other) {
            if (other->function != use.function) return false;
            if (other->kind == NameUseKind::Parameter) return true;
            return other->kind == NameUseKind::Native && other->statement < use.statement &&
                   frameOf(other->statement) == frameOf(use.statement) &&
                   branchAround(other->statement) == kNoLine;
        });
    }

    void checkNativesInBranches() {
        for (std::size_t function = 1; function < context_.functions().size(); ++function) {
            std::vector<const NameUse*> conditional;
            for (const NameUse& use : context_.model.uses()) {
                if (use.function != function || use.kind != NameUseKind::Native ||
                    isDeclaredBefore(use)) {
                    continue;
                }
                const NameUse* moves = nullptr;  // whether this one is there or not, moves `use`
                for (const NameUse* other : conditional) {
                    if (frameOf(other->statement) == frameOf(use.statement) &&
                        !isInside(use.statement, branchAround(other->statement))) {
                        moves = other;
                    }
                }
                if (moves != nullptr) {
                    context_.report("W201", use.statement, use.token,
                                    quoted(use.name) + " changes its place with the `native` of " +
                                        "line " + lineNumber(moves->statement) +
                                        ", which is not always declared; declare it in front of "
                                        "that");
                }
                if (branchAround(use.statement) == kNoLine) continue;
                conditional.push_back(&use);
                if (!isReadOutside(use)) continue;
                context_.report("W201", use.statement, use.token,
                                quoted(use.name) +
                                    " is declared only if this block runs, and read " +
                                    "behind it; declare it at the top of the function");
            }
        }
    }
    [[nodiscard]] bool isInside(std::size_t statement, std::size_t opener) const {
        return statement > opener && statement < context_.model.blockEnd(opener);
    }
    [[nodiscard]] bool isReadOutside(const NameUse& use) const {
        const auto& uses = context_.model.usesOf(use.name);
        return std::any_of(uses.begin(), uses.end(), [&](const NameUse* other) {
            return other->function == use.function && other->isRead() &&
                   other->statement > use.statement &&
                   !isInside(other->statement, branchAround(use.statement));
        });
    }

    void checkNativesBehindUses() {
        for (const NameUse& use : context_.model.uses()) {
            const bool writes = use.kind == NameUseKind::Write || use.kind == NameUseKind::Compound;
            if (!writes || use.function == 0) continue;
            const NameUse* native = nullptr;
            bool isCovered = false;
            for (const NameUse* other : context_.model.writesOf(use.name)) {
                if (other->function != use.function || !other->isOwn()) continue;
                const bool isBefore = other->statement < use.statement;
                if (other->kind != NameUseKind::Native) {
                    isCovered = isCovered || isBefore || other->kind == NameUseKind::Parameter;
                } else if (isBefore && isInFrame(use.statement, frameOf(other->statement))) {
                    isCovered = true;
                } else {
                    native = other;
                }
            }
            if (isCovered || native == nullptr) continue;
            context_.report("W202", use.statement, use.token,
                            "this writes another " + quoted(use.name) + " than the `native` one " +
                                "of line " + lineNumber(native->statement) +
                                ", which does not exist here");
        }
    }
    /// A `for` drops the natives of its body.
    void checkNativesBehindLoops() {
        for (const NameUse& use : context_.model.uses()) {
            if (!use.isRead() || context_.runsUnknownCode || isGlobal(use.name)) continue;
            const NameUse* native = nullptr;
            bool isElsewhere = false;
            for (const NameUse* other : context_.model.writesOf(use.name)) {
                const bool isGone = other->kind == NameUseKind::Native &&
                                    other->function == use.function &&
                                    !isInFrame(use.statement, frameOf(other->statement));
                // What is written inside of the loop is the native one.
                const bool isOfLoop = other->kind != NameUseKind::Native && !other->isOwn() &&
                                      native != nullptr &&
                                      isInFrame(other->statement, frameOf(native->statement)) &&
                                      other->statement > native->statement;
                if (isGone) native = other;
                isElsewhere = isElsewhere || !(isGone || isOfLoop);
            }
            if (isElsewhere || native == nullptr || use.statement < native->statement) continue;
            context_.report("W202", use.statement, use.token,
                            quoted(use.name) + " is the absent value here: the loop of the " +
                                "`native` one of line " + lineNumber(native->statement) +
                                " has dropped it");
        }
    }
    [[nodiscard]] bool isInFrame(std::size_t statement, std::size_t frame) const {
        return frame == kNoLine ||
               (statement > frame && statement < context_.model.blockEnd(frame));
    }

    [[nodiscard]] bool isGlobal(const std::string& name) const {
        const auto& uses = context_.model.writesOf(name);
        return context_.assignedElsewhere.contains(name) || CheckContext::isLibraryGlobal(name) ||
               std::any_of(uses.begin(), uses.end(), [&](const NameUse* use) {
                   return !use->isOwn() && use->kind != NameUseKind::Compound &&
                          (use->function == 0 || callersWith(use->name, use->function).empty()) &&
                          !context_.model.ownNames(use->function).contains(name);
               });
    }
    /// The functions that may call `function` and have a `name` of their own.
    [[nodiscard]] std::vector<std::size_t> callersWith(const std::string& name,
                                                       std::size_t function) const {
        std::vector<std::size_t> callers;
        for (const std::size_t owner : context_.model.ownersOf(name)) {
            if (context_.model.callees(owner).contains(function)) callers.push_back(owner);
        }
        return callers;
    }

    /// Reads and writes of what belongs to whoever calls.
    void checkCallersVariables() {
        std::set<std::string> told;
        for (const NameUse& use : context_.model.uses()) {
            if (use.function == 0 || use.isOwn() ||
                context_.model.ownNames(use.function).contains(use.name)) {
                continue;
            }
            const bool isWrite =
                use.kind == NameUseKind::Write || use.kind == NameUseKind::Compound;
            const std::vector<std::size_t> callers = callersWith(use.name, use.function);
            if (callers.empty()) {
                checkOthersVariable(use, told);
                continue;
            }
            if (!isWrite && isGlobal(use.name)) continue;
            const std::string code = isWrite ? "W207" : "W210";
            if (!told.insert(code + use.name + '/' + std::to_string(use.function)).second) continue;
            if (isWrite) {
                context_.report("W207", use.statement, use.token,
                                "this changes the " + quoted(use.name) + " of " +
                                    functionName(callers[0]) + ", which calls " +
                                    functionName(use.function) +
                                    "; declare it `native` if it is meant for the function alone");
            } else {
                context_.report("W210", use.statement, use.token,
                                quoted(use.name) + " is a variable of " + functionName(callers[0]) +
                                    ", and another call may leave another variable in its place; "
                                    "pass it as an argument");
            }
        }
    }
    /// A name that only functions have that do not call this one: nobody's here.
    void checkOthersVariable(const NameUse& use, std::set<std::string>& told) {
        if (!use.isRead() || isGlobal(use.name) || !context_.isAssigned(use.name) ||
            context_.runsUnknownCode || isForeignValue(use.name)) {
            return;
        }
        if (!told.insert("W204" + use.name + '/' + std::to_string(use.function)).second) return;
        context_.report("W204", use.statement, use.token,
                        quoted(use.name) + " is a variable of another function, and no variable " +
                            "here; pass it as an argument");
    }

    /// `local x` around a call of something that has an `x` in its frame.
    void checkHidingLocals() {
        for (const NameUse& use : context_.model.uses()) {
            if (use.kind != NameUseKind::Local) continue;
            const std::size_t around = context_.model.blockAround(use.statement);
            const std::size_t end =
                around == kNoLine ? context_.statements().size() : context_.model.blockEnd(around);
            for (const std::size_t callee : context_.model.calleesOf(use.statement + 1, end)) {
                const NameUse* hidden = frameVariable(callee, use.name);
                if (hidden == nullptr) continue;
                const bool isParameter = hidden->kind == NameUseKind::Parameter;
                const bool isLoop = hidden->kind == NameUseKind::LoopVariable;
                context_.report("W208", use.statement, use.token,
                                "this hides the " +
                                    std::string(isParameter ? "parameter "
                                                : isLoop    ? "loop variable "
                                                            : "`native` ") +
                                    quoted(use.name) + " of " + functionName(callee) +
                                    ", which is called in this block; use `native`, or another "
                                    "name");
                break;
            }
        }
    }
    [[nodiscard]] const NameUse* frameVariable(std::size_t function,
                                               const std::string& name) const {
        for (const NameUse* use : context_.model.usesOf(name)) {
            if (use->function == function && use->isOwn() && use->kind != NameUseKind::Local) {
                return use;
            }
        }
        return nullptr;
    }

    /// Variables with the name of something in the library that what is called needs.
    void checkHiddenLibrary() {
        std::set<std::string> told;
        for (const NameUse& use : context_.model.uses()) {
            if (use.isRead() || !CheckContext::isLibraryGlobal(use.name)) continue;
            const bool isGlobal = !use.isOwn() && use.function == 0;
            if (isGlobal ? replacesFunction(use) : !use.isOwn()) continue;
            const NameUse* user = nullptr;
            for (const NameUse* other : context_.model.usesOf(use.name)) {
                if (other->kind != NameUseKind::Call && !isIndexed(*other)) continue;
                const bool sees =
                    isGlobal ? true
                             : context_.model.callees(use.function).contains(other->function) &&
                                   !context_.model.ownNames(other->function).contains(use.name);
                if (sees) user = other;
            }
            if (user == nullptr) continue;
            if (!told.insert(use.name + '/' + std::to_string(use.function)).second) continue;
            context_.report("W209", use.statement, use.token,
                            "this hides the library's " + quoted(use.name) + " from " +
                                functionName(user->function) + ", which uses it in line " +
                                lineNumber(user->statement));
        }
    }
    /// A use as a table of the library: by the name of one of its members.
    [[nodiscard]] bool isIndexed(const NameUse& use) const {
        const auto& tokens = context_.statements()[use.statement].line->tokens;
        if (use.kind != NameUseKind::Read || use.token + 2 >= tokens.size() ||
            tokens[use.token + 1] != "[" || !isQuotedToken(tokens[use.token + 2])) {
            return false;
        }
        const std::string member = decodeStringToken(tokens[use.token + 2]);
        return LibraryReference::ofLibrary().find(use.name + '.' + member) != nullptr;
    }
    /// What takes the place of the function may be another one, on purpose.
    [[nodiscard]] bool replacesFunction(const NameUse& use) const {
        if (use.kind != NameUseKind::Write) return true;
        const ValueKinds kinds = context_.kinds.ofName(use.name, use.function);
        return kinds.isFunction || kinds.isUnknown || kinds.isTable;
    }

    CheckContext& context_;
};

}  // namespace

void checkScopes(CheckContext& context) { ScopeChecks(context).run(); }
