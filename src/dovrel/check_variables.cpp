// Names that are misspelt, unused, or belong to nobody: W20x.
#include <algorithm>
#include <string>
#include <vector>

#include "dovrel/check_context.h"

namespace {

class VariableChecks {
public:
    explicit VariableChecks(CheckContext& context) : context_(context) {}

    void run() {
        checkNeverAssigned();
        checkLibraryMembers();
        checkUnused();
        checkMadeGlobals();
    }

private:
    [[nodiscard]] std::vector<std::string> knownNames() const {
        std::vector<std::string> names;
        const auto add = [&](const std::string& name) {
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        };
        for (const NameUse& use : context_.model.uses()) {
            if (!use.isRead()) add(use.name);
        }
        for (const std::string& name : LibraryReference::ofLibrary().names()) {
            const LibraryName split = splitLibraryName(name);
            if (split.table != "file") add(split.table.empty() ? split.member : split.table);
        }
        return names;
    }

    void checkNeverAssigned() {
        if (context_.runsUnknownCode) return;
        const std::vector<std::string> known = knownNames();
        std::set<std::string> told;
        for (const NameUse& use : context_.model.uses()) {
            if (!use.isRead() || context_.isAssigned(use.name) ||
                CheckContext::isLibraryGlobal(use.name) || use.name == "args" ||
                isForeignValue(use.name) || isLoneWord(use) || !told.insert(use.name).second) {
                continue;
            }
            std::string message =
                quoted(use.name) + " is read and never assigned: it is the " + "absent value";
            // A method of another language's texts is what this is as often as a slip.
            if (const auto nearest = nearestName(use.name, known)) {
                message += "; did you mean " + quoted(*nearest) + '?';
            }
            context_.report("W204", use.statement, use.token, message);
        }
    }
    /// A name alone in its line, which another check tells of.
    [[nodiscard]] bool isLoneWord(const NameUse& use) const {
        const Statement& statement = context_.statements()[use.statement];
        return statement.isExpression() && statement.values[0].is(ExpressionKind::Variable);
    }

    void checkLibraryMembers() {
        const LibraryReference& library = LibraryReference::ofLibrary();
        context_.forEachExpression([&](const Expression& expression, const Statement& statement) {
            if (!expression.is(ExpressionKind::Index) ||
                !expression.children[1].is(ExpressionKind::TextLiteral)) {
                return;
            }
            const Expression& base = expression.children[0];
            const std::string& member = expression.children[1].text;
            std::string table;
            if (base.is(ExpressionKind::Variable) && isLibraryTable(base.text) &&
                context_.isUntouchedLibrary(base.text) &&
                !context_.model.ownNames(statement.function).contains(base.text)) {
                table = base.text;
            } else if (context_.kinds.of(base, statement.function).isOnlyText()) {
                table = "string";
            } else {
                return;
            }
            const std::string name = table + "[\"" + member + "\"]";
            if (library.find(name) != nullptr) return;
            std::string message = "the library has no " + name;
            if (const auto nearest = library.nearest(name)) {
                message += "; did you mean " + quoted(*nearest) + '?';
            }
            context_.report("W205", statement.index, expression.children[1], message);
        });
    }
    [[nodiscard]] static bool isLibraryTable(const std::string& name) {
        const auto& entries = LibraryReference::ofLibrary().entries();
        return std::any_of(entries.begin(), entries.end(), [&](const LibraryEntry& entry) {
            return splitLibraryName(entry.names[0]).table == name && name != "file";
        });
    }

    void checkUnused() {
        if (context_.runsUnknownCode) return;
        for (const NameUse& use : context_.model.uses()) {
            const bool isVariable = use.kind == NameUseKind::Native ||
                                    use.kind == NameUseKind::Local ||
                                    use.kind == NameUseKind::Parameter;
            if (!isVariable || use.name.starts_with('_') || isFirstOf(use) == false) continue;
            if (isReadFrom(use) || isOneOfSeveral(use)) continue;
            if (use.kind == NameUseKind::Parameter && isCalledByOthers(use.function)) continue;
            const char* what = use.kind == NameUseKind::Parameter ? "the parameter " : "";
            context_.report("W206", use.statement, use.token,
                            what + quoted(use.name) +
                                " is never read; begin its name with `_` if "
                                "that is meant");
        }
    }
    /// The first declaration of a name in its function; the others are told of with it.
    [[nodiscard]] bool isFirstOf(const NameUse& use) const {
        const auto& uses = context_.model.writesOf(use.name);
        return std::none_of(uses.begin(), uses.end(), [&](const NameUse* other) {
            return other->isOwn() && other->function == use.function &&
                   (other->statement < use.statement ||
                    (other->statement == use.statement && other->token < use.token));
        });
    }
    /// Read in the function, or where a function that it may call has no such name of its own.
    [[nodiscard]] bool isReadFrom(const NameUse& use) const {
        const auto& callees = context_.model.callees(use.function);
        const auto& uses = context_.model.usesOf(use.name);
        return std::any_of(uses.begin(), uses.end(), [&](const NameUse* other) {
            if (!other->isRead() && other->kind != NameUseKind::ElementWrite) return false;
            // The top's variables stay for all.
            return other->function == use.function || use.function == 0 ||
                   (callees.contains(other->function) &&
                    !context_.model.ownNames(other->function).contains(use.name));
        });
    }
    /// `a, b = f()` takes what it does not need to get at what it needs; a function is told of by
    /// its name.
    [[nodiscard]] bool isOneOfSeveral(const NameUse& use) const {
        const Statement& statement = context_.statements()[use.statement];
        return use.kind != NameUseKind::Parameter && statement.targets.size() > 1;
    }
    /// Its parameters follow from how it is called from elsewhere.
    [[nodiscard]] bool isCalledByOthers(std::size_t function) const {
        const FunctionModel& model = context_.functions()[function];
        if (model.isElement) return true;
        const auto& uses = context_.model.usesOf(model.name);
        return std::any_of(uses.begin(), uses.end(),
                           [](const NameUse* use) { return use->kind == NameUseKind::Read; });
    }

    /// Assignments in functions to names that are nobody's: they make globals.
    void checkMadeGlobals() {
        std::set<std::string> told;
        for (const NameUse& use : context_.model.uses()) {
            const bool writes =
                use.kind == NameUseKind::Write || use.kind == NameUseKind::ElementWrite;
            if (!writes || use.function == 0) continue;
            if (context_.model.ownNames(use.function).contains(use.name)) continue;
            if (context_.assignedElsewhere.contains(use.name) ||
                CheckContext::isLibraryGlobal(use.name)) {
                continue;
            }
            // An element is stored into what is there; only without a container one is made.
            if (use.kind == NameUseKind::ElementWrite && isGivenAtTop(use.name)) continue;
            if (belongsToCaller(use) || !isScratch(use)) continue;
            if (!told.insert(use.name + '/' + std::to_string(use.function)).second) continue;
            const std::string& function = context_.functions()[use.function].name;
            const bool isMade = !isGivenAtTop(use.name);
            context_.report("W203", use.statement, use.token,
                            std::string(isMade ? "this makes" : "this changes") + " the global " +
                                quoted(use.name) + " from within " + quoted(function) +
                                "; declare it `native` if it is meant for the function alone");
        }
    }
    [[nodiscard]] bool belongsToCaller(const NameUse& use) const {
        const auto& owners = context_.model.ownersOf(use.name);
        return std::any_of(owners.begin(), owners.end(), [&](std::size_t owner) {
            return context_.model.callees(owner).contains(use.function);
        });
    }
    [[nodiscard]] bool isGivenAtTop(const std::string& name) const {
        const auto& writes = context_.model.writesOf(name);
        return std::any_of(writes.begin(), writes.end(),
                           [](const NameUse* use) { return use->function == 0; });
    }
    /// Whoever reads the name has written it before, so that nobody keeps anything in it or is told
    /// anything by it. A global that is only read somewhere is meant to be one.
    [[nodiscard]] bool isScratch(const NameUse& use) const {
        std::set<std::size_t> writers;
        bool isReadHere = false;
        for (const NameUse* other : usesInOrder(use.name)) {
            if (context_.model.ownNames(other->function).contains(use.name)) continue;
            const bool reads = other->isRead() || other->kind == NameUseKind::Compound;
            if (!reads) {
                writers.insert(other->function);
            } else if (!writers.contains(other->function)) {
                return false;
            }
            isReadHere = isReadHere || (reads && other->function == use.function);
        }
        // A flag is set here and asked for elsewhere.
        return isReadHere || writers.size() == 1;
    }
    /// In the order of the text; of one statement what it reads stands first.
    [[nodiscard]] std::vector<const NameUse*> usesInOrder(const std::string& name) const {
        std::vector<const NameUse*> uses = context_.model.usesOf(name);
        std::stable_sort(uses.begin(), uses.end(), [](const NameUse* a, const NameUse* b) {
            if (a->statement != b->statement) return a->statement < b->statement;
            return a->isRead() && !b->isRead();
        });
        return uses;
    }

    CheckContext& context_;
};

}  // namespace

void checkVariables(CheckContext& context) { VariableChecks(context).run(); }
