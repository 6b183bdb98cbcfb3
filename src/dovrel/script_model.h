// What the checks know of a script: its statements as trees, its functions, and where each name is
// used. Nothing runs: what a script does with its names at run time is estimated, and where that is
// impossible the checks keep silent.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "dovrel/expression_tree.h"
#include "dovrel/source_text.h"

/// What an assignment writes to: `name`, or an element that `keys` lead to.
struct AssignmentTarget {
    std::string name;
    std::size_t token = 0;
    std::vector<Expression> keys;
};

/// One logical line. What does not belong to its kind is empty.
struct Statement {
    const ParsedScriptLine* line = nullptr;
    std::size_t index = 0;     // of the line
    std::size_t function = 0;  // index of the function that it belongs to; 0 for the top
    bool isReadable = true;    // no error was found in it; if false, it has no trees
    std::vector<AssignmentTarget> targets;
    std::vector<Expression> values;       // assigned, returned, the clauses of a `for`, conditions
    std::vector<std::size_t> loopTokens;  // the variables of a `for`

    [[nodiscard]] LineKind kind() const { return line->kind; }
    [[nodiscard]] bool isAssignment() const {
        return line->kind == LineKind::Plain && line->assignment != nullptr;
    }
    [[nodiscard]] bool isPlainAssignment() const {
        return isAssignment() && line->assignment->isPlain;
    }
    [[nodiscard]] bool isCompound() const { return isAssignment() && !line->assignment->isPlain; }
    [[nodiscard]] bool declaresFunction() const {
        return line->kind >= LineKind::Function && line->kind <= LineKind::LocalFunction;
    }
    /// An expression and nothing else.
    [[nodiscard]] bool isExpression() const {
        return line->kind == LineKind::Plain && line->assignment == nullptr && !values.empty();
    }
};

/// A function, or the top of the script, which is function 0.
struct FunctionModel {
    std::string name;  // empty for the top
    std::size_t nameToken = 0;
    std::size_t header = 0;  // its statement; 0 for the top
    std::size_t first = 0;   // its body: the statements [first, last)
    std::size_t last = 0;
    bool isDecay = false;
    bool isVariadic = false;
    bool isElement = false;  // stored under an index
    std::vector<std::string> parameters;
    std::vector<std::size_t> parameterTokens;
    std::size_t parent = 0;
    /// It is one `return`, so that a call needs no frame and may be computed as a number.
    bool isOneReturn = false;
};

enum class NameUseKind {
    Read,
    Call,          // read as what a call calls
    Write,         // `x = ...`
    Compound,      // `x += ...`
    ElementWrite,  // `x[...] = ...`
    Native,        // `native x = ...`
    Local,         // `local x`
    Parameter,
    LoopVariable,
    Declaration,  // `function x(...)`; of a native or local one it is Native or Local
};

struct NameUse {
    std::string name;
    NameUseKind kind = NameUseKind::Read;
    std::size_t statement = 0;
    std::size_t token = 0;
    std::size_t function = 0;  // the one whose variable it could be: of a parameter its own
    [[nodiscard]] bool isRead() const {
        return kind == NameUseKind::Read || kind == NameUseKind::Call;
    }
    /// Makes a variable of the function or block.
    [[nodiscard]] bool isOwn() const {
        return kind == NameUseKind::Native || kind == NameUseKind::Local ||
               kind == NameUseKind::Parameter || kind == NameUseKind::LoopVariable;
    }
};

/// The steps by which the model reads a line, for those who look at lines one by one: the language
/// server does not make a model of a whole script for each key.

/// Fills in the trees of a statement whose `line` is set and free of errors.
void readStatement(Statement& statement);
/// Fills in what the header of a function tells, and the statement's target. An unreadable header
/// gives its kind alone.
void readFunctionHeader(Statement& statement, FunctionModel& function);
/// Appends the uses of names in a statement, the parameters of a function left out.
void collectUses(const Statement& statement, std::vector<NameUse>& uses);

class ScriptModel {
public:
    /// `readable` tells for each line of `source` whether it is free of errors.
    ScriptModel(const ParsedSource& source, const std::vector<bool>& readable);

    [[nodiscard]] const ParsedSource& source() const { return source_; }
    [[nodiscard]] const std::vector<Statement>& statements() const { return statements_; }
    [[nodiscard]] const std::vector<FunctionModel>& functions() const { return functions_; }
    [[nodiscard]] const std::vector<NameUse>& uses() const { return uses_; }
    /// All uses of a name, in the order of the statements; the parameters stand last.
    [[nodiscard]] const std::vector<const NameUse*>& usesOf(const std::string& name) const;
    /// The same without those that only read it: a name may be read very often.
    [[nodiscard]] const std::vector<const NameUse*>& writesOf(const std::string& name) const;
    /// Functions of the script that are called by `name`.
    [[nodiscard]] std::vector<std::size_t> functionsCalled(const std::string& name) const;
    /// All names that a function makes for itself.
    [[nodiscard]] const std::set<std::string>& ownNames(std::size_t function) const {
        return ownNames_[function];
    }
    /// The functions that make a variable called `name` for themselves.
    [[nodiscard]] const std::set<std::size_t>& ownersOf(const std::string& name) const;
    /// The functions that a function may call, directly or through others; itself only in a circle.
    [[nodiscard]] const std::set<std::size_t>& callees(std::size_t function) const {
        return callees_[function];
    }
    /// The same for the calls in the statements [first, last).
    [[nodiscard]] std::set<std::size_t> calleesOf(std::size_t first, std::size_t last) const;
    /// The statement that closes the block that `statement` opens; the count of statements if none
    /// does. Of a branch, the one that ends the branch.
    [[nodiscard]] std::size_t blockEnd(std::size_t statement) const;
    /// The statement that opens the innermost block around `statement`, or kNoLine at the top.
    [[nodiscard]] std::size_t blockAround(std::size_t statement) const {
        return around_[statement];
    }

private:
    void nestBlocks();
    void collectNames();
    void closeCalls();

    const ParsedSource& source_;
    std::vector<Statement> statements_;
    std::vector<FunctionModel> functions_;
    std::vector<NameUse> uses_;
    std::map<std::string, std::vector<const NameUse*>> usesByName_;
    std::map<std::string, std::vector<const NameUse*>> writesByName_;
    std::vector<std::set<std::string>> ownNames_;
    std::map<std::string, std::set<std::size_t>> owners_;
    std::vector<std::set<std::size_t>> callees_;
    std::vector<std::size_t> around_;
    std::map<std::string, std::vector<std::size_t>> functionsByName_;
};

/// The kinds of values that an expression may have, as far as its form tells.
struct ValueKinds {
    bool isInt = false;
    bool isFloat = false;
    bool isText = false;
    bool isTruth = false;
    bool isNil = false;
    bool isArray = false;
    bool isTable = false;
    bool isFunction = false;
    bool isMulti = false;
    bool isUnknown = false;

    [[nodiscard]] bool isOnlyInt() const;
    [[nodiscard]] bool isOnlyFloat() const;
    [[nodiscard]] bool isOnlyText() const;
    [[nodiscard]] bool isOnlyArray() const;
    void add(const ValueKinds& other);
};

/// Estimates kinds. A variable has those of all values that are assigned to its name.
class KindEstimate {
public:
    explicit KindEstimate(const ScriptModel& model) : model_(model) {}
    /// Of an expression in `function`.
    [[nodiscard]] ValueKinds of(const Expression& expression, std::size_t function) const;
    /// How many nodes have been looked at: it grows with the script, however often `of` is asked.
    [[nodiscard]] std::size_t stepsTaken() const { return steps_; }
    [[nodiscard]] ValueKinds ofName(const std::string& name, std::size_t function) const;
    /// The same without what compound assignments may make of it.
    [[nodiscard]] ValueKinds beforeCompounds(const std::string& name, std::size_t function) const;

private:
    [[nodiscard]] ValueKinds ofCall(const Expression& call) const;
    [[nodiscard]] ValueKinds workOut(const std::string& name, std::size_t function) const;
    [[nodiscard]] ValueKinds ofBinary(const Expression& expression, std::size_t function) const;
    [[nodiscard]] ValueKinds ofNode(const Expression& expression, std::size_t function) const;

    const ScriptModel& model_;
    /// What is known of a name: of a function's own, or of the global if the function is kNoLine. A
    /// name that is being worked out is unknown, since names refer to each other in circles.
    using Known = std::map<std::pair<std::string, std::size_t>, ValueKinds>;
    mutable Known known_;
    mutable Known knownBeforeCompounds_;
    mutable bool withCompounds_ = true;
    /// Names that are being worked out, each inside of the one before.
    mutable std::size_t depth_ = 0;
    /// What is known of an operation: the checks ask for one after the other, and each needs those
    /// in it. Only while no name is being worked out, which would be unknown in it. The nodes are
    /// the model's, and an expression belongs to one function.
    mutable std::unordered_map<const Expression*, ValueKinds> knownOperations_;
    mutable std::size_t steps_ = 0;
};
