#include "random_program.h"

#include <utility>

namespace {

// Precedences as the language has them, with one for what needs no parentheses anywhere.
constexpr int kOr = 1;
constexpr int kAnd = 2;
constexpr int kEquality = 3;
constexpr int kOrder = 4;
constexpr int kSum = 5;
constexpr int kProduct = 6;
constexpr int kUnary = 7;
constexpr int kPower = 8;
constexpr int kPrimary = 9;

constexpr const char* kDeclarations =
    "i1 = 3; i2 = -7; i3 = 16777217; f1 = 0.5; f2 = -2.25; b1 = true; b2 = false\n"
    "s1 = \"text\"; s2 = \"5\"; n1 = nil; p = 4; q = 1.5; v = nil; ok = nil; e = nil\n"
    "k1 = 1; k2 = 2; w1 = 0; w2 = 0; counter = 0\n"
    "a1 = [1, 2.5, true, \"s\", nil]; a2 = [5, 0]; t1 = {n: 1, m: \"x\"}; t2 = {2, n: 0.5}\n"
    // No statement changes it: a walk may or may not see what its body adds.
    "fixed = {7, n: 1.5}\n"
    "function two(p, q)\nreturn p, q\nend\n"
    "function count(p)\ncounter += 1\nreturn p\nend\n"
    "function risky(p)\nif p == 3\nerror(\"boom \" + p)\nend\nreturn p\nend\n";

ProgramText word(const std::string& text) { return {text, text, kPrimary}; }

ProgramText joined(std::initializer_list<ProgramText> parts) {
    ProgramText result{"", "", kPrimary};
    for (const ProgramText& part : parts) {
        result.plain += part.plain;
        result.probed += part.probed;
    }
    return result;
}

/// The operator as it stands in a string literal of a script.
std::string quoted(const std::string& op) { return op == "\\" ? "\"\\\\\"" : "\"" + op + "\""; }

}  // namespace

std::vector<std::string> RandomProgram::variables() {
    return {"i1", "i2", "i3", "f1", "f2", "b1", "b2", "s1", "s2", "n1", "p",  "q",
            "v",  "ok", "e",  "k1", "k2", "w1", "w2", "a1", "a2", "t1", "t2", "counter"};
}

std::string RandomProgram::scalarName() {
    if (inFunction_ && chance(60)) return oneOf({"p", "q"});
    if (loops_ > 0 && chance(25)) return loops_ == 1 ? "k1" : oneOf({"k1", "k2"});
    return oneOf({"i1", "i2", "i3", "f1", "f2", "b1", "b2", "s1", "s2", "n1"});
}

/// What suits a variable, most of the time.
RandomProgram::Want RandomProgram::wantFor(const std::string& name) {
    if (chance(8)) return anyWant();
    switch (name[0]) {
        case 'f': return Want::Float;
        case 'b': return Want::Bool;
        case 's': return Want::String;
        case 'n': return anyWant();
        default: return Want::Int;
    }
}

// -------------------------------------------------------------------------------- expressions

/// The text in parentheses where what stands around it binds tighter, and sometimes elsewhere.
ProgramText RandomProgram::operand(const Text& text, int level) {
    if (text.level >= level && !chance(5)) return text;
    return {"(" + text.plain + ")", text.probed, kPrimary};
}

ProgramText RandomProgram::binary(const Text& left, const std::string& op, int level,
                                  const Text& right) {
    // "^" groups to the right and takes a unary there, all others group to the left.
    const bool isPower = level == kPower;
    const Text a = operand(left, isPower ? kPrimary : level);
    const Text b = operand(right, isPower ? kUnary : level + 1);
    return {a.plain + " " + op + " " + b.plain, "(" + a.probed + " " + op + " " + b.probed + ")",
            level};
}

ProgramText RandomProgram::operated(const Text& left, const std::string& op, int level,
                                    const Text& right) {
    Text result = binary(left, op, level, right);
    result.probed = "operate(" + quoted(op) + ", " + left.probed + ", " + right.probed + ")";
    return result;
}

ProgramText RandomProgram::literal(bool isFloat) {
    if (isFloat) {
        return word(oneOf({"0.5", "1.5", "2.0", "0.0", "0.1", "3.25", "7.75", "1.0", "16777216.0",
                           "5000000000.0"}));
    }
    return word(oneOf(
        {"0", "1", "2", "3", "4", "5", "7", "8", "10", "100", "65536", "16777217", "2147483647"}));
}

ProgramText RandomProgram::leaf(Want want) {
    if (chance(4)) want = anyWant();
    if (inFunction_ && want != Want::String && chance(50)) return word(oneOf({"p", "q"}));
    switch (want) {
        case Want::Int: return chance(50) ? literal(false) : word(oneOf({"i1", "i2", "i3"}));
        case Want::Float: return chance(40) ? literal(true) : word(oneOf({"f1", "f2"}));
        case Want::Bool: return word(oneOf({"true", "false", "b1", "b2"}));
        case Want::String: return word(oneOf({"\"a\"", "\"xyz\"", "\"12\"", "\"\"", "s1", "s2"}));
        case Want::Any: break;
    }
    return chance(5) ? word("nil") : word(scalarName());
}

ProgramText RandomProgram::expression(Want want, int depth) {
    if (byTokens_ && chance(8)) return countingCall(0);
    if (mayRaise_ && chance(10)) {
        const Text argument = byTokens_ && chance(40) ? countingCall(0) : leaf(Want::Int);
        return joined({word("risky("), argument, word(")")});
    }
    if (depth <= 0 || chance(20)) return leaf(want);
    if (chance(4)) want = anyWant();
    if (want == Want::Any) want = static_cast<Want>(below(4));
    if (chance(10)) return nativeCall(want, depth);
    if (want == Want::String) return joinedTexts(depth);
    if (chance(12)) return element(depth);
    if (chance(10)) return scriptCall(depth);
    if (want == Want::Bool) return chance(60) ? comparison(depth) : logic(want, depth);
    if (chance(12)) return unary(want, depth);
    if (chance(10)) return logic(want, depth);
    return arithmetic(want, depth);
}

ProgramText RandomProgram::arithmetic(Want want, int depth) {
    // "^" seldom, since two ints under it are allowed to differ.
    const std::string op = chance(3) ? "^" : oneOf({"+", "-", "*", "/", "\\", "%"});
    const int level = op == "^" ? kPower : op == "+" || op == "-" ? kSum : kProduct;
    const Text left = expression(chance(60) ? Want::Int : want, depth - 1);
    // What divides is mostly known to be no zero.
    Text right = chance(level == kProduct ? 65 : 30)
                     ? word(oneOf({"1", "2", "3", "0.5", "1.5", "7"}))
                     : expression(chance(60) ? Want::Int : want, depth - 1);
    if (chance(3)) right = word(containerName());
    return operated(left, op, level, right);
}

/// Never one long text beside another: they would double in loops.
ProgramText RandomProgram::joinedTexts(int depth) {
    Text right = word("\"b\"");
    if (chance(30)) right = leaf(Want::Int);
    if (chance(40)) right = joined({word("toString("), expression(Want::Any, 1), word(")")});
    Text left = chance(50) ? leaf(Want::String) : expression(Want::String, depth - 1);
    if (chance(30)) std::swap(left, right);
    return operated(left, "+", kSum, right);
}

ProgramText RandomProgram::comparison(int depth) {
    const std::string op = oneOf({"==", "!=", "<", ">", "<=", ">="});
    const Want want = chance(20) ? Want::String : chance(50) ? Want::Int : Want::Float;
    const Text left = expression(want, depth - 1);
    const Text right = chance(3) ? word(containerName()) : expression(want, depth - 1);
    return binary(left, op, op == "==" || op == "!=" ? kEquality : kOrder, right);
}

ProgramText RandomProgram::logic(Want want, int depth) {
    const Text left = expression(chance(70) ? Want::Bool : want, depth - 1);
    if (chance(30)) {
        const std::string plain =
            chance(50) ? "not (" + left.plain + ")" : "!" + operand(left, kPrimary).plain;
        return {plain, "(not (truth(" + left.probed + ")))", kUnary};
    }
    const bool isAnd = chance(50);
    const Text right = expression(want, depth - 1);
    Text tested = left;
    tested.probed = "truth(" + left.probed + ")";
    return binary(tested, isAnd ? "and" : "or", isAnd ? kAnd : kOr, right);
}

ProgramText RandomProgram::unary(Want want, int depth) {
    if (chance(30)) {
        const std::string name = chance(85) ? containerName() : scalarName();
        return {"#" + name, "(#" + name + ")", kUnary};
    }
    const Text negated = expression(want, depth - 1);
    return {"-(" + negated.plain + ")", "(-(" + negated.probed + "))", kUnary};
}

ProgramText RandomProgram::element(int depth) {
    const std::string base = chance(8) ? scalarName() : chance(15) ? "s1" : containerName();
    Text key = chance(50) ? word(oneOf({"1", "2", "3", "\"n\"", "\"m\"", "2.0", "\"1\""}))
                          : expression(Want::Int, depth - 1);
    if (chance(5)) key = leaf(Want::Bool);
    if (chance(8)) key = logic(Want::Int, 1);
    Text result = {base + "[" + key.plain + "]", "element(" + base + ", " + key.probed + ")",
                   kPrimary};
    if (chance(15)) {
        // An element of an element, which mostly fails: in its base or in its last key.
        if (chance(50)) result = {base + "[\"deep\"]", "element(" + base + ", \"deep\")", kPrimary};
        Text last = expression(Want::Int, depth - 1);
        if (chance(20)) last = operated(word("1"), "\\", kProduct, word("0"));
        result.plain += "[" + last.plain + "]";
        result.probed = "element(" + result.probed + ", " + last.probed + ")";
    }
    return result;
}

ProgramText RandomProgram::nativeCall(Want want, int depth) {
    const auto of = [&](const std::string& name, const Text& argument) {
        return joined({word(name + "("), argument, word(")")});
    };
    const auto ofTwo = [&](const std::string& name, const Text& first, const Text& second) {
        return joined({word(name + "("), first, word(", "), second, word(")")});
    };
    const Text text = leaf(Want::String);
    switch (below(want == Want::String ? 3 : 9)) {
        case 0: return of("toString", expression(Want::Any, depth - 1));
        case 1: return of("string[\"upper\"]", text);
        case 2: return ofTwo("string[\"sub\"]", text, expression(Want::Int, depth - 1));
        case 3: return of("toNumber", expression(Want::String, depth - 1));
        case 4: return of("len", chance(60) ? word(containerName()) : text);
        case 5:
            return of("math[\"" + oneOf({"floor", "ceil", "abs", "sqrt"}) + "\"]",
                      expression(chance(50) ? Want::Int : Want::Float, depth - 1));
        case 6:
            return ofTwo("math[\"" + oneOf({"min", "max"}) + "\"]",
                         expression(Want::Int, depth - 1), expression(Want::Float, depth - 1));
        case 7: return ofTwo("string[\"byte\"]", text, expression(Want::Int, depth - 1));
        default: return of("string[\"len\"]", text);
    }
}

ProgramText RandomProgram::scriptCall(int depth) {
    if (functions_.empty()) return leaf(Want::Any);
    const std::string name = functions_[below(static_cast<std::uint32_t>(functions_.size()))];
    return joined({word(name + "("), expression(Want::Int, depth - 1), word(", "),
                   expression(chance(50) ? Want::Int : Want::Any, depth - 1), word(")")});
}

/// A call that shows how often it is made.
ProgramText RandomProgram::countingCall(int depth) {
    const bool before = std::exchange(byTokens_, false);
    const Text result = joined({word("count("), expression(Want::Int, depth), word(")")});
    byTokens_ = before;
    return result;
}

/// Calls with effects in the places that every tier evaluates once: at the root of a value, and as
/// whole arguments of such a call.
ProgramText RandomProgram::countingValue(int depth) {
    if (chance(50)) return countingCall(depth);
    return joined({word(oneOf({"long1(", "count("})), countingCall(depth), word(", "),
                   countingCall(depth), word(")")});
}

/// A small key, so that no array grows without bounds.
ProgramText RandomProgram::storeKey(int depth) {
    if (chance(60)) return word(oneOf({"1", "2", "3", "4", "\"n\"", "\"m\"", "2.0"}));
    const Text key = expression(Want::Int, depth);
    return operated(operated(key, "%", kProduct, word("4")), "+", kSum, word("2"));
}

ProgramText RandomProgram::condition(int depth) {
    const Text tested = expression(chance(80) ? Want::Bool : Want::Any, depth);
    return {tested.plain, "truth(" + tested.probed + ")", tested.level};
}

std::string RandomProgram::freeExpression() {
    byTokens_ = true;
    mayRaise_ = chance(20);
    const Text result = expression(anyWant(), 4);
    byTokens_ = false;
    mayRaise_ = false;
    return result.plain;
}

// --------------------------------------------------------------------------------- statements

ProgramText RandomProgram::statement(int depth) {
    const std::uint32_t kind = below(100);
    if (depth > 0 && loops_ < 2 && kind < 12) return loop(depth);
    if (depth > 0 && kind < 27) return branch(depth);
    if (kind < 40) return elementAssignment();
    if (kind < 50) return severalTargets();
    if (kind < 58) return protectedCall();
    if (kind < 63) return countingValue(2);
    if (kind < 66) return scriptCall(2);
    if (kind < 76) return compoundAssignment();
    return assignment();
}

ProgramText RandomProgram::assignment() {
    if (chance(10)) return joined({word(scalarName() + " = "), countingValue(2)});
    const std::string name = scalarName();
    const bool isLocal = loops_ > 0 && chance(15);
    return joined({word(isLocal ? "local i1 = " : name + " = "), expression(wantFor(name), 3)});
}

ProgramText RandomProgram::compoundAssignment() {
    const std::string name = scalarName();
    std::string op = chance(3) ? "^" : oneOf({"+", "-", "*", "/", "\\", "%"});
    if (name[0] == 's' && chance(80)) op = "+";
    const Text value = expression(wantFor(name), 2);
    return {name + " " + op + "= " + value.plain,
            name + " " + op + "= compound(" + quoted(op) + ", " + value.probed + ", " + name + ")",
            0};
}

ProgramText RandomProgram::elementAssignment() {
    const std::string base = containerName();
    const Text key = storeKey(1);
    // The value of an element is always evaluated by tokens.
    byTokens_ = true;
    const Text value = expression(anyWant(), 2);
    byTokens_ = false;
    if (chance(5)) {
        return base[0] == 'a' ? joined({word(base + " = ["), value, word(", 2]")})
                              : joined({word(base + " = {n: "), value, word(", 7}")});
    }
    if (chance(10)) {
        return joined({word(base + "[\"deep\"]["), key, word("] = "), value});
    }
    const std::string op = chance(70) ? "=" : oneOf({"+=", "-=", "*=", "/=", "\\=", "%=", "^="});
    return joined({word(base + "["), key, word("] " + op + " "), value});
}

ProgramText RandomProgram::severalTargets() {
    const std::string name = scalarName();
    const std::string first = name + ", ";
    const std::string second = scalarName();
    const Text one = expression(wantFor(name), 2);
    const Text two = expression(wantFor(second), 2);
    switch (below(3)) {
        case 0: return joined({word(first + second + " = two("), one, word(", "), two, word(")")});
        case 1:
            return joined({word(first + containerName() + "["), storeKey(1), word("] = "), one,
                           word(", "), two});
        default: return joined({word(first + second + " = "), one, word(", "), two});
    }
}

ProgramText RandomProgram::protectedCall() {
    const Text argument = expression(Want::Any, 2);
    if (chance(15)) {
        return joined({word("ok, e = pcall(" + oneOf({"math[\"sqrt\"]", "len", "toNumber"}) + ", "),
                       argument, word(")")});
    }
    std::string name = oneOf({"risky1", "risky2", "two"});
    if (chance(60)) name = functions_[below(static_cast<std::uint32_t>(functions_.size()))];
    return joined({word("ok, e = pcall(" + name + ", "), expression(Want::Int, 2), word(", "),
                   argument, word(")")});
}

ProgramText RandomProgram::block(int depth) {
    Text result = joined({statement(depth - 1), word("\n")});
    while (chance(40)) result = joined({result, statement(depth - 1), word("\n")});
    return result;
}

ProgramText RandomProgram::branch(int depth) {
    Text result = joined({word("if "), condition(depth), word("\n"), block(depth)});
    if (chance(30)) {
        result = joined({result, word("elseif "), condition(depth), word("\n"), block(depth)});
    }
    if (chance(60)) result = joined({result, word("else\n"), block(depth)});
    return joined({result, word("end")});
}

ProgramText RandomProgram::loop(int depth) {
    ++loops_;
    const std::string k = loops_ == 1 ? "k1" : "k2";
    const std::string w = loops_ == 1 ? "w1" : "w2";
    const Text step = word(w + " = " + w + " + 1\n");
    Text body = block(depth);
    if (chance(30)) {
        body = joined({body, word("if "), condition(1), word("\nbreak\nend\n")});
    }
    Text more = condition(1);
    more.plain = "(" + more.plain + ")";
    Text result;
    switch (below(5)) {
        case 0:
        case 1: {
            const Text limit = operated(expression(Want::Int, 1), "%", kProduct, word("4"));
            result = joined({word("for " + k + " = " + oneOf({"0", "1"}) + ", "), limit, word("\n"),
                             body, word("end")});
            break;
        }
        case 2:
            result = joined({word("for " + k + ", v in " + oneOf({"pairs", "ipairs"}) + "(" +
                                  oneOf({"[3, 0.5, \"x\"]", "fixed"}) + ")\n"),
                             body, word("end")});
            break;
        case 3:
            result = joined({word(w + " = 0\nwhile " + w + " < 3 and "), more, word("\n"), step,
                             body, word("end")});
            break;
        default:
            result = joined(
                {word(w + " = 0\nrepeat\n"), step, body, word("until " + w + " >= 3 or "), more});
            break;
    }
    --loops_;
    return result;
}

// ------------------------------------------------------------------------------- declarations

ProgramText RandomProgram::oneLineFunction(const std::string& name) {
    const Text value = expression(chance(70) ? Want::Int : Want::Any, 3);
    return joined({word("function " + name + "(p, q)\nreturn "), value, word("\nend\n")});
}

ProgramText RandomProgram::longFunction(const std::string& name) {
    return joined({word("function " + name + "(p, q)\np = "), expression(Want::Int, 2),
                   word("\nif "), condition(2), word("\nreturn "), expression(Want::Any, 2),
                   word("\nend\nnative m = "), expression(Want::Any, 1), word("\nreturn "),
                   expression(Want::Int, 2), word("\nend\n")});
}

ProgramText RandomProgram::declarations() {
    Text result = word(kDeclarations);
    inFunction_ = true;
    for (const char* name : {"one1", "long1", "one2", "long2", "one3"}) {
        const bool isLong = name[0] == 'l';
        result = joined({result, isLong ? longFunction(name) : oneLineFunction(name)});
        functions_.emplace_back(name);
    }
    mayRaise_ = true;
    result = joined({result, oneLineFunction("risky1"), longFunction("risky2")});
    mayRaise_ = false;
    inFunction_ = false;
    // A member of a table can be called as well.
    functions_.emplace_back("functions[\"f\"]");
    return joined({result, word("functions = {f: one1}\n")});
}
