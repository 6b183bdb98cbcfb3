#include "dovrel/script_model.h"

#include <algorithm>
#include <utility>

#include "frontend/line_preparation.h"

namespace {

bool opensBlock(LineKind kind) {
    switch (kind) {
        case LineKind::If:
        case LineKind::While:
        case LineKind::For:
        case LineKind::Repeat:
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: return true;
        default: return false;
    }
}

/// How a call names a function that is stored under a literal key.
std::string elementName(const std::string& table, const std::string& key) {
    return table + "[\"" + key + "\"]";
}

void collectReads(const Expression& expression, const Statement& statement,
                  std::vector<NameUse>& uses) {
    const auto add = [&](const Expression& name, NameUseKind kind) {
        uses.push_back({name.text, kind, statement.index, name.token, statement.function});
    };
    if (expression.is(ExpressionKind::Variable)) add(expression, NameUseKind::Read);
    for (std::size_t i = 0; i < expression.children.size(); ++i) {
        const Expression& child = expression.children[i];
        if (i == 0 && expression.is(ExpressionKind::Call) && child.is(ExpressionKind::Variable)) {
            add(child, NameUseKind::Call);
        } else {
            collectReads(child, statement, uses);
        }
    }
}

}  // namespace

void readStatement(Statement& statement) {
    const ParsedScriptLine& line = *statement.line;
    const auto readAt = [&](std::size_t position) {
        statement.values.push_back(readExpression(line, position));
        return position;
    };
    switch (line.kind) {
        case LineKind::Plain:
            if (line.assignment == nullptr) {
                readAt(0);
                break;
            }
            for (const ParsedAssignmentTarget& target : line.assignment->targets) {
                AssignmentTarget read;
                read.name = line.tokens[target.nameToken];
                read.token = target.nameToken;
                for (const TokenRange& range : target.indexRanges) {
                    std::size_t position = range.first;
                    read.keys.push_back(readExpression(line, position));
                }
                statement.targets.push_back(std::move(read));
            }
            for (const TokenRange& range : line.assignment->valueRanges) readAt(range.first);
            break;
        case LineKind::If:
        case LineKind::ElseIf:
        case LineKind::While:
        case LineKind::Until: readAt(1); break;
        case LineKind::Return:
            for (std::size_t position = 1; position < line.tokens.size(); ++position) {
                position = readAt(position);
            }
            break;
        case LineKind::For:
            if (isNumericForLine(line)) {
                statement.loopTokens.push_back(1);
                for (std::size_t position = 3; position < line.tokens.size(); ++position) {
                    position = readAt(position);
                }
            } else {
                statement.loopTokens = line.forHeader->genericVariables;
                readAt(statement.loopTokens.back() + 2);
            }
            break;
        default: break;
    }
}

void readFunctionHeader(Statement& statement, FunctionModel& function) {
    const ParsedScriptLine& line = *statement.line;
    function.isDecay = line.kind == LineKind::DecayFunction;
    function.nameToken = line.kind == LineKind::Function ? 1 : 2;
    if (!statement.isReadable) return;
    AssignmentTarget target;
    target.token = function.nameToken;
    target.name = line.tokens[target.token];
    std::size_t position = function.nameToken + 1;
    while (line.tokens[position] == "[") {
        target.keys.push_back(readExpression(line, ++position));
        ++position;  // "]"
    }
    function.isElement = !target.keys.empty();
    function.name = target.name;
    if (target.keys.size() == 1 && target.keys[0].is(ExpressionKind::TextLiteral)) {
        function.name = elementName(target.name, target.keys[0].text);
    }
    for (++position; position < line.tokens.size(); ++position) {
        if (line.tokens[position] == "...") function.isVariadic = true;
        if (!line.tokenAnalysis[position].isIdentifier) continue;
        function.parameters.push_back(line.tokens[position]);
        function.parameterTokens.push_back(position);
    }
    statement.targets.push_back(std::move(target));
}

void collectUses(const Statement& statement, std::vector<NameUse>& uses) {
    const ParsedScriptLine& line = *statement.line;
    for (const AssignmentTarget& target : statement.targets) {
        NameUseKind kind = NameUseKind::Write;
        if (!target.keys.empty()) {
            kind = NameUseKind::ElementWrite;
        } else if (statement.declaresFunction()) {
            kind = NameUseKind::Declaration;
        } else if (statement.isCompound()) {
            kind = NameUseKind::Compound;
        }
        // A compound operator writes what the name leads to, whatever stands in front.
        if (kind == NameUseKind::Write || kind == NameUseKind::Declaration ||
            kind == NameUseKind::ElementWrite) {
            if (line.assignmentScope == ScopeTarget::Native) kind = NameUseKind::Native;
            if (line.assignmentScope == ScopeTarget::Local) kind = NameUseKind::Local;
        }
        uses.push_back({target.name, kind, statement.index, target.token, statement.function});
        for (const Expression& key : target.keys) collectReads(key, statement, uses);
    }
    for (const std::size_t token : statement.loopTokens) {
        uses.push_back({line.tokens[token], NameUseKind::LoopVariable, statement.index, token,
                        statement.function});
    }
    for (const Expression& value : statement.values) collectReads(value, statement, uses);
}

ScriptModel::ScriptModel(const ParsedSource& source, const std::vector<bool>& readable)
    : source_(source) {
    const std::vector<ParsedScriptLine>& lines = source.lines();
    functions_.emplace_back();
    functions_[0].last = lines.size();
    statements_.resize(lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        statements_[i].line = &lines[i];
        statements_[i].index = i;
        statements_[i].isReadable = readable[i];
        if (readable[i]) readStatement(statements_[i]);
    }
    nestBlocks();
    collectNames();
    closeCalls();
}

void ScriptModel::nestBlocks() {
    struct Open {
        std::size_t opener = 0;
        std::size_t branch = 0;    // the opener, or its latest branch
        std::size_t function = 0;  // that goes on behind the block
    };
    around_.assign(statements_.size(), kNoLine);
    std::vector<Open> open;
    std::size_t function = 0;
    for (std::size_t i = 0; i < statements_.size(); ++i) {
        Statement& statement = statements_[i];
        const LineKind kind = statement.kind();
        const bool branches = (kind == LineKind::ElseIf || kind == LineKind::Else) &&
                              !open.empty() &&
                              statements_[open.back().opener].kind() == LineKind::If;
        const bool closes =
            !open.empty() &&
            (kind == LineKind::End || (kind == LineKind::Until &&
                                       statements_[open.back().opener].kind() == LineKind::Repeat));
        if (closes || branches) {
            around_[i] = around_[open.back().opener];
        } else if (!open.empty()) {
            around_[i] = open.back().branch;
        }
        if (branches) open.back().branch = i;
        if (closes) {
            // The condition of an `until` belongs to the function around its block.
            if (statements_[open.back().opener].declaresFunction()) {
                functions_[function].last = i;
                function = open.back().function;
            }
            open.pop_back();
        }
        statement.function = function;
        if (!opensBlock(kind)) continue;
        open.push_back({i, i, function});
        if (!statement.declaresFunction()) continue;
        FunctionModel model;
        model.header = i;
        model.first = i + 1;
        model.last = statements_.size();
        model.parent = function;
        readFunctionHeader(statement, model);
        function = functions_.size();
        if (!model.name.empty()) functionsByName_[model.name].push_back(function);
        functions_.push_back(std::move(model));
    }
    for (FunctionModel& model : functions_) {
        std::size_t used = 0;
        bool isReturn = false;
        for (std::size_t i = model.first; i < model.last && used < 2; ++i) {
            if (statements_[i].kind() == LineKind::Empty) continue;
            ++used;
            isReturn = statements_[i].kind() == LineKind::Return;
        }
        model.isOneReturn = used == 1 && isReturn && !model.isVariadic && !model.isDecay;
    }
    functions_[0].isOneReturn = false;
}

void ScriptModel::collectNames() {
    for (const Statement& statement : statements_) collectUses(statement, uses_);
    for (std::size_t i = 1; i < functions_.size(); ++i) {
        for (std::size_t p = 0; p < functions_[i].parameters.size(); ++p) {
            uses_.push_back({functions_[i].parameters[p], NameUseKind::Parameter,
                             functions_[i].header, functions_[i].parameterTokens[p], i});
        }
    }
    ownNames_.resize(functions_.size());
    for (const NameUse& use : uses_) {
        usesByName_[use.name].push_back(&use);
        if (!use.isRead()) writesByName_[use.name].push_back(&use);
        if (!use.isOwn()) continue;
        ownNames_[use.function].insert(use.name);
        owners_[use.name].insert(use.function);
    }
}

std::set<std::size_t> ScriptModel::calleesOf(std::size_t first, std::size_t last) const {
    std::set<std::size_t> called;
    const auto addName = [&](const std::string& name) {
        for (const std::size_t function : functionsCalled(name)) {
            called.insert(function);
            if (!callees_.empty()) {
                called.insert(callees_[function].begin(), callees_[function].end());
            }
        }
    };
    for (std::size_t i = first; i < last; ++i) {
        const auto visit = [&](const Expression& expression) {
            // A function that is passed on is called by whoever gets it.
            if (expression.is(ExpressionKind::Variable)) addName(expression.text);
            if (expression.is(ExpressionKind::Index) &&
                expression.children[0].is(ExpressionKind::Variable) &&
                expression.children[1].is(ExpressionKind::TextLiteral)) {
                addName(elementName(expression.children[0].text, expression.children[1].text));
            }
        };
        for (const Expression& value : statements_[i].values) visitExpressions(value, visit);
        for (const AssignmentTarget& target : statements_[i].targets) {
            for (const Expression& key : target.keys) visitExpressions(key, visit);
        }
    }
    return called;
}

void ScriptModel::closeCalls() {
    std::vector<std::set<std::size_t>> direct(functions_.size());
    for (std::size_t i = 0; i < statements_.size(); ++i) {
        const std::set<std::size_t> called = calleesOf(i, i + 1);
        direct[statements_[i].function].insert(called.begin(), called.end());
    }
    callees_.resize(functions_.size());
    for (std::size_t i = 0; i < functions_.size(); ++i) {
        std::vector<std::size_t> open(direct[i].begin(), direct[i].end());
        while (!open.empty()) {
            const std::size_t next = open.back();
            open.pop_back();
            if (!callees_[i].insert(next).second) continue;
            open.insert(open.end(), direct[next].begin(), direct[next].end());
        }
    }
}

const std::vector<const NameUse*>& ScriptModel::usesOf(const std::string& name) const {
    static const std::vector<const NameUse*> none;
    const auto found = usesByName_.find(name);
    return found == usesByName_.end() ? none : found->second;
}

const std::vector<const NameUse*>& ScriptModel::writesOf(const std::string& name) const {
    static const std::vector<const NameUse*> none;
    const auto found = writesByName_.find(name);
    return found == writesByName_.end() ? none : found->second;
}

const std::set<std::size_t>& ScriptModel::ownersOf(const std::string& name) const {
    static const std::set<std::size_t> none;
    const auto found = owners_.find(name);
    return found == owners_.end() ? none : found->second;
}

std::vector<std::size_t> ScriptModel::functionsCalled(const std::string& name) const {
    const auto found = functionsByName_.find(name);
    return found == functionsByName_.end() ? std::vector<std::size_t>() : found->second;
}

std::size_t ScriptModel::blockEnd(std::size_t statement) const {
    const ParsedScriptLine& line = *statements_[statement].line;
    const std::size_t end = line.nextBranch != kNoLine ? line.nextBranch : line.matchingEnd;
    return std::min(end, statements_.size());
}

bool ValueKinds::isOnlyInt() const {
    return isInt && !(isFloat || isText || isTruth || isNil || isArray || isTable || isFunction ||
                      isMulti || isUnknown);
}

bool ValueKinds::isOnlyFloat() const {
    return isFloat && !(isInt || isText || isTruth || isNil || isArray || isTable || isFunction ||
                        isMulti || isUnknown);
}

bool ValueKinds::isOnlyText() const {
    return isText && !(isInt || isFloat || isTruth || isNil || isArray || isTable || isFunction ||
                       isMulti || isUnknown);
}

bool ValueKinds::isOnlyArray() const {
    return isArray && !(isInt || isFloat || isTruth || isNil || isText || isTable || isFunction ||
                        isMulti || isUnknown);
}

void ValueKinds::add(const ValueKinds& other) {
    isInt = isInt || other.isInt;
    isFloat = isFloat || other.isFloat;
    isText = isText || other.isText;
    isTruth = isTruth || other.isTruth;
    isNil = isNil || other.isNil;
    isArray = isArray || other.isArray;
    isTable = isTable || other.isTable;
    isFunction = isFunction || other.isFunction;
    isMulti = isMulti || other.isMulti;
    isUnknown = isUnknown || other.isUnknown;
}

ValueKinds KindEstimate::ofCall(const Expression& call) const {
    ValueKinds kinds;
    const Expression& callee = call.callee();
    std::string name = callee.text;
    std::string base = callee.text;
    if (callee.is(ExpressionKind::Index) && callee.children[0].is(ExpressionKind::Variable) &&
        callee.children[1].is(ExpressionKind::TextLiteral)) {
        base = callee.children[0].text;
        name = base + '.' + callee.children[1].text;
    } else if (!callee.is(ExpressionKind::Variable)) {
        kinds.isUnknown = true;
        return kinds;
    }
    static const std::set<std::string> ints = {"len",        "push",       "getTimeMs",
                                               "reserve",    "string.len", "utf8.len",
                                               "math.floor", "math.ceil",  "os.time"};
    static const std::set<std::string> floats = {"math.sin", "math.cos",  "math.rad",
                                                 "math.log", "math.sqrt", "os.clock"};
    static const std::set<std::string> texts = {
        "toString",     "tostring",     "typeOf",     "type",       "gsub",
        "string.upper", "string.lower", "string.sub", "string.rep", "string.format",
        "string.char",  "table.concat", "string.gsub"};
    static const std::set<std::string> arrays = {"array", "keys", "string.gmatch"};
    if (!model_.writesOf(base).empty()) {
        kinds.isUnknown = true;
    } else if (ints.contains(name)) {
        kinds.isInt = true;
    } else if (floats.contains(name)) {
        kinds.isFloat = true;
    } else if (texts.contains(name)) {
        kinds.isText = true;
    } else if (arrays.contains(name)) {
        kinds.isArray = true;
    } else {
        kinds.isUnknown = true;
    }
    return kinds;
}

ValueKinds KindEstimate::ofBinary(const Expression& expression, std::size_t function) const {
    ValueKinds kinds;
    const int operation = expression.operation;
    if (operation >= kEqual && operation <= kGreaterEqual) {
        kinds.isTruth = true;
        return kinds;
    }
    if (operation == kDivide || operation == kIntDivide) {
        (operation == kDivide ? kinds.isFloat : kinds.isInt) = true;
        return kinds;
    }
    const ValueKinds left = of(expression.children[0], function);
    const ValueKinds right = of(expression.children[1], function);
    if (operation == kAnd || operation == kOr) {
        kinds = left;
        kinds.add(right);
        return kinds;
    }
    if (operation == kPower) {
        kinds.isInt = kinds.isFloat = true;
        return kinds;
    }
    if (operation == kAdd && (left.isOnlyText() || right.isOnlyText())) {
        kinds.isText = true;
        return kinds;
    }
    if (left.isOnlyInt() && right.isOnlyInt()) {
        kinds.isInt = true;
    } else if ((left.isOnlyFloat() || left.isOnlyInt()) &&
               (right.isOnlyFloat() || right.isOnlyInt())) {
        kinds.isFloat = true;
    } else {
        kinds.isUnknown = true;
    }
    return kinds;
}

ValueKinds KindEstimate::of(const Expression& expression, std::size_t function) const {
    const bool isOperation =
        expression.is(ExpressionKind::Binary) || expression.is(ExpressionKind::Unary);
    if (!isOperation || depth_ > 0 || !withCompounds_) return ofNode(expression, function);
    const auto found = knownOperations_.find(&expression);
    if (found != knownOperations_.end()) return found->second;
    const ValueKinds kinds = ofNode(expression, function);
    knownOperations_.emplace(&expression, kinds);
    return kinds;
}

ValueKinds KindEstimate::ofNode(const Expression& expression, std::size_t function) const {
    ++steps_;
    ValueKinds kinds;
    switch (expression.kind) {
        case ExpressionKind::Nil: kinds.isNil = true; break;
        case ExpressionKind::Int: kinds.isInt = true; break;
        case ExpressionKind::Float: kinds.isFloat = true; break;
        case ExpressionKind::TextLiteral: kinds.isText = true; break;
        case ExpressionKind::Truth: kinds.isTruth = true; break;
        case ExpressionKind::Array: kinds.isArray = true; break;
        case ExpressionKind::Table: kinds.isTable = true; break;
        case ExpressionKind::Variadic:
        case ExpressionKind::Index: kinds.isUnknown = true; break;
        case ExpressionKind::Variable: return ofName(expression.text, function);
        case ExpressionKind::Call: return ofCall(expression);
        case ExpressionKind::Binary: return ofBinary(expression, function);
        case ExpressionKind::Unary:
            if (expression.text == "#") {
                kinds.isInt = true;
            } else if (expression.text == "-" || expression.text == "+") {
                return of(expression.children[0], function);
            } else {
                kinds.isTruth = true;
            }
            break;
    }
    return kinds;
}

ValueKinds KindEstimate::ofName(const std::string& name, std::size_t function) const {
    const bool isOwn = model_.ownNames(function).contains(name);
    ValueKinds unknown;
    unknown.isUnknown = true;
    Known& known = withCompounds_ ? known_ : knownBeforeCompounds_;
    const auto key = std::make_pair(name, isOwn ? function : kNoLine);
    const auto [place, isNew] = known.emplace(key, unknown);
    if (!isNew) return place->second;
    ++depth_;
    const ValueKinds kinds = workOut(name, function);
    --depth_;
    known[key] = kinds;
    return kinds;
}

ValueKinds KindEstimate::workOut(const std::string& name, std::size_t function) const {
    ValueKinds kinds;
    const bool isOwn = model_.ownNames(function).contains(name);
    bool isWritten = false;
    for (const NameUse* use : model_.writesOf(name)) {
        // A variable of another function is another variable, as a rule.
        if (isOwn ? use->function != function : model_.ownNames(use->function).contains(name)) {
            continue;
        }
        const Statement& statement = model_.statements()[use->statement];
        isWritten = true;
        switch (use->kind) {
            case NameUseKind::Declaration: kinds.isFunction = true; break;
            case NameUseKind::Compound: {
                // Numbers keep their kind, and "+" can make a text of anything.
                if (withCompounds_ && statement.values.size() == 1 &&
                    statement.targets.size() == 1) {
                    const ValueKinds added = of(statement.values[0], function);
                    if (added.isText || added.isUnknown) kinds.isUnknown = true;
                }
                break;
            }
            case NameUseKind::LoopVariable:
                if (isNumericForLine(*statement.line)) {
                    kinds.isInt = true;
                } else {
                    kinds.isUnknown = true;
                }
                break;
            case NameUseKind::Write:
            case NameUseKind::Native:
            case NameUseKind::Local: {
                std::size_t at = 0;
                while (at < statement.targets.size() && statement.targets[at].token != use->token) {
                    ++at;
                }
                if (statement.declaresFunction()) {
                    kinds.isFunction = true;
                } else if (statement.targets.size() == 1 && statement.values.empty()) {
                    kinds.isNil = true;
                } else if (statement.values.size() == statement.targets.size() &&
                           at < statement.values.size() && statement.targets[at].keys.empty()) {
                    kinds.add(of(statement.values[at], use->function));
                } else {
                    kinds.isUnknown = true;
                }
                break;
            }
            case NameUseKind::ElementWrite: break;  // changes what it holds, not what it is
            default: kinds.isUnknown = true; break;
        }
    }
    if (!isWritten) kinds.isUnknown = true;
    return kinds;
}

ValueKinds KindEstimate::beforeCompounds(const std::string& name, std::size_t function) const {
    withCompounds_ = false;
    const ValueKinds kinds = ofName(name, function);
    withCompounds_ = true;
    return kinds;
}
