#include "program_generator.h"

namespace {

constexpr int kMostStatements = 40;
constexpr int kDeepestBlock = 3;

constexpr const char* kDeclarations =
    "i1 = 3; i2 = -7; b1 = true; s1 = \"text\"; s2 = \"5\"; n1 = nil\n"
    "w0 = 0; w1 = 0; w2 = 0; w3 = 0; w4 = 0; ok = nil; e = nil\n"
    "a1 = [1, 2, true, \"s\", nil]; a2 = [5, 0]; t1 = {n: 1, m: \"x\"}; t2 = {2, n: 3}\n";

constexpr const char* kFunctions =
    "f1 = 0.5\n"
    "function one(p, q)\nreturn p + q\nend\n"
    "function two(p, q)\nreturn p, q\nend\n"
    "function guarded(p)\nif p == 3\nerror(\"boom\")\nend\nreturn p\nend\n"
    "function risky(p)\nif p == 3\nerror(\"risky \" + p)\nend\nreturn p\nend\n"
    "function many(p, ...)\na, b = ...\nreturn select(\"#\", ...)\nend\n"
    "function deep(p)\nif p < 1\nreturn 0\nend\nreturn 1 + deep(p - 1)\nend\n"
    "decay function later(p)\nprint(\"turn\", p)\np += 1\nprint(\"turn\", p)\nend\n"
    "functions = {f: one, g: risky}\n";

}  // namespace

std::string ProgramGenerator::program() {
    std::string text = kDeclarations;
    if (!plain_) text += kFunctions;
    for (int i = 0; i < kMostStatements && data_ != end_; ++i) {
        text += !plain_ && pick(4) != 0 ? protectedPart(i) : statement(0);
    }
    return text + "print(i1, i2, b1, s1, s2, n1, a1, a2, t1[\"n\"], t2[1])\n";
}

/// A few statements whose error does not end the program.
std::string ProgramGenerator::protectedPart(int number) {
    const std::string name = "part" + std::to_string(number);
    std::string body = statement(1);
    for (unsigned int more = pick(3); more > 0; --more) body += statement(1);
    return "function " + name + "()\n" + body + "end\nok, e = pcall(" + name + ")\nprint(ok, e)\n";
}

// -------------------------------------------------------------------------------- expressions

std::string ProgramGenerator::scalarVariable() {
    if (plain_) return oneOf({"i1", "i2", "b1", "s1", "s2", "n1"});
    return oneOf({"i1", "i2", "f1", "b1", "s1", "s2", "n1", "p", "q", "l1", "x", "undefined"});
}

std::string ProgramGenerator::container() { return oneOf({"a1", "a2", "t1", "t2"}); }

std::string ProgramGenerator::literal() {
    if (plain_) {
        return oneOf({"0", "1", "2", "3", "7", "100", "65536", "2147483647", "\"a\"", "\"12\"",
                      "\"\"", "true", "false", "nil"});
    }
    return oneOf({"0",     "1",          "2",       "3",         "7",        "100",
                  "65536", "2147483647", "\"a\"",   "\"12\"",    "\"\"",     "true",
                  "false", "nil",        "0.5",     "1.5",       "16777217", "5000000000.0",
                  "-1",    "'it'",       "\"%d+\"", "\"a-12\"",  "[1, 2]",   "{n: 1}",
                  "[]",    "{}",         "one",     "2147483648"});
}

std::string ProgramGenerator::key() {
    return oneOf({"1", "\"n\"", "2", "3", "\"m\"", "9", "i1", "s2"});
}

std::string ProgramGenerator::operation(int depth) {
    if (plain_) {
        // Ints that cannot leave 32 bits by much, and no divisor that may be zero.
        const std::string op = oneOf({"+", "-", "*", "\\", "%"});
        const bool divides = op == "\\" || op == "%";
        return "(" + oneOf({"i1", "i2", "3", "65536"}) + " " + op + " " +
               (divides ? oneOf({"3", "7"}) : oneOf({"i2", "i1", "2", "2147483647"})) + ")";
    }
    const std::string op = oneOf({"+", "-", "*", "/", "\\", "%", "^", "==", "!=", "<", "<=", ">",
                                  ">=", "and", "or", "+", "-"});
    const std::string left = expression(depth - 1);
    return "(" + left + " " + op + " " + expression(depth - 1) + ")";
}

std::string ProgramGenerator::nativeCall(int depth) {
    const std::string a = expression(depth - 1);
    switch (pick(plain_ ? 2 : 16)) {
        case 0: return "toString(" + a + ")";
        case 1: return "len(" + oneOf({"s1", "a1", "t2", "a2"}) + ")";
        case 2: return "typeOf(" + a + ")";
        case 3: return "toNumber(" + a + ")";
        case 4: return "string[\"sub\"](s1, " + a + ", " + literal() + ")";
        case 5: return "string[\"format\"](\"%d %s %5.2f|%x\", i1, " + a + ", f1, i2)";
        case 6: return "math[\"floor\"](" + a + ")";
        case 7: return "math[\"max\"](" + a + ", " + expression(depth - 1) + ")";
        case 8: return "string[\"find\"](" + a + ", \"(%a)%d?\")";
        case 9: return "string[\"gsub\"](s1, \"%w\", " + literal() + ")";
        case 10: return "table[\"concat\"](a2, " + literal() + ")";
        case 11: return "get(" + container() + ", " + a + ")";
        case 12: return "keys(" + container() + ")";
        case 13: return "s1[\"upper\"]()";
        case 14: return "select(" + a + ", 1, " + literal() + ")";
        default: return "math[\"random\"](1, " + literal() + ")";
    }
}

std::string ProgramGenerator::scriptCall(int depth) {
    const std::string a = expression(depth - 1);
    switch (pick(8)) {
        case 0: return "one(" + a + ", " + expression(depth - 1) + ")";
        case 1: return "risky(" + a + ")";
        case 2: return "guarded(" + a + ")";
        case 3: return "two(" + a + ", 1)";
        case 4: return "many(1, " + a + ", 2)";
        case 5: return "functions[" + oneOf({"\"f\"", "\"g\"", "\"h\""}) + "](" + a + ", 2)";
        case 6: return "deep(" + oneOf({"3", "7", "20", "i1"}) + ")";
        default: return oneOf({"u0", "u1", "u2"}) + "(" + a + ")";
    }
}

std::string ProgramGenerator::expression(int depth) {
    if (depth <= 0) return pick(2) == 0 ? literal() : scalarVariable();
    switch (pick(plain_ ? 7 : 12)) {
        case 0: return literal();
        case 1: return scalarVariable();
        case 2: return operation(depth);
        case 3: return nativeCall(depth);
        case 4:
            return plain_ ? oneOf({"a1[1]", "a2[2]", "t1[\"n\"]", "t2[1]", "t2[9]"})
                          : container() + "[" + key() + "]";
        case 5: return "(" + oneOf({"not ", ""}) + oneOf({"b1", "true", "n1"}) + ")";
        case 6: return "\"" + oneOf({"a", "b", ""}) + "\" + toString(" + scalarVariable() + ")";
        case 7: return "-" + scalarVariable();
        case 8: return "not " + expression(depth - 1);
        case 9: return scriptCall(depth);
        case 10: return container();
        default: return container() + "[" + expression(depth - 1) + "]";
    }
}

std::string ProgramGenerator::condition() {
    if (!plain_) return expression(2);
    switch (pick(4)) {
        case 0:
            return oneOf({"i1", "i2"}) + oneOf({" < ", " == ", " >= ", " != "}) +
                   oneOf({"3", "i1", "0"});
        case 1: return oneOf({"b1", "true", "n1", "not b1"});
        case 2: return "i1 > 1 and " + oneOf({"b1", "i2 < 0"});
        default: return "b1 or i2 == " + oneOf({"1", "i1"});
    }
}

/// What may go into a container: never one that exists already.
std::string ProgramGenerator::storable() {
    switch (pick(4)) {
        case 0: return oneOf({"1", "2", "nil", "\"v\"", "true"});
        case 1: return "toString(" + expression(1) + ")";
        case 2: return plain_ ? "len(s1)" : oneOf({"[1, 2]", "{n: 5}", "0.25", "-3"});
        default: return "(i2 + 1)";
    }
}

// ---------------------------------------------------------------------------------- statements

std::string ProgramGenerator::statement(int depth) {
    const bool mayNest = depth < kDeepestBlock;
    switch (pick(plain_ ? 9 : 17)) {
        case 0: return "print(" + expression(2) + ")\n";
        case 1: return assignment();
        case 2:
            return (plain_ ? oneOf({"t1[\"m\"]", "t2[9]", "a1[2]", "a2[1]"})
                           : container() + "[" + key() + "]") +
                   (plain_ ? " = " : oneOf({" = ", " += "})) + storable() + "\n";
        case 3: return mayNest ? branch(depth) : assignment();
        case 4: return mayNest ? countedLoop(depth) : assignment();
        case 5: return mayNest ? numericFor(depth) : assignment();
        case 6: return mayNest ? genericFor(depth) : assignment();
        case 7: return containerCall();
        case 8: return loops_ > 0 ? "if " + condition() + "\nbreak\nend\n" : "local l1 = i1\n";
        case 9: return severalTargets();
        case 10:
            return "ok, e = pcall(" +
                   oneOf({"risky", "guarded", "one", "error", "deep", "nil", "two",
                          "string[\"rep\"]"}) +
                   ", " + expression(1) + ")\nprint(ok, e)\n";
        case 11: return mayNest ? function(depth) : assignment();
        case 12:
            return oneOf({"local ", "native "}) + oneOf({"l1", "x", "i1"}) + " = " + expression(2) +
                   "\n";
        case 13:
            return oneOf({"later(1)", "later(i1)", "kill()", "risky(i1)", "collectgarbage()"}) +
                   "\n";
        case 14: return expression(3) + "\n";
        case 15:
            return oneOf({"assert(b1)", "assert(i1, \"no\")", "return i1",
                          "n1 = load(\"return 1 + 1\")()", "print(load(\"x = \"))",
                          "error(\"end \" + i1)"}) +
                   "\n";
        // One of them costs all that stands behind it, so they are seldom.
        default: return pick(8) == 7 ? oddity() : expression(3) + "\n";
    }
}

std::string ProgramGenerator::block(int depth) {
    std::string text;
    const unsigned int count = pick(4);
    for (unsigned int i = 0; i < count; ++i) text += statement(depth + 1);
    return text;
}

std::string ProgramGenerator::assignment() {
    const std::string target = oneOf({"i1", "i2", "b1", "s1", "s2", "n1"});
    if (!plain_) {
        const std::string op = oneOf({" = ", " += ", " -= ", " *= ", " /= "});
        return target + op + expression(3) + "\n";
    }
    // Each keeps its kind, so that the int arithmetic stays one.
    if (target[0] == 'i') return target + oneOf({" = ", " += ", " -= "}) + operation(1) + "\n";
    if (target[0] == 'b') return target + " = " + condition() + "\n";
    if (target[0] == 's') return target + " = toString(" + expression(1) + ")\n";
    return target + " = " + expression(2) + "\n";
}

std::string ProgramGenerator::severalTargets() {
    const std::string targets = oneOf({"i1, i2", "s1, t1[\"n\"]", "n1, b1, x", "a1[1], i1"});
    // Scalars only, where a target is an element.
    const bool isElement = targets.find('[') != std::string::npos;
    switch (isElement ? pick(2) : pick(4)) {
        case 0: return targets + " = " + storable() + ", " + storable() + "\n";
        case 1: return targets + " = two(1, " + storable() + ")\n";
        case 2: return targets + " = " + scriptCall(2) + "\n";
        default:
            return targets + " = pcall(" + oneOf({"risky", "two", "guarded", "one"}) + ", " +
                   expression(1) + ", 2)\n";
    }
}

std::string ProgramGenerator::branch(int depth) {
    std::string text = "if " + condition() + "\n" + block(depth);
    if (pick(3) == 1) text += "elseif " + condition() + "\n" + block(depth);
    if (pick(2) == 1) text += "else\n" + block(depth);
    return text + "end\n";
}

std::string ProgramGenerator::countedLoop(int depth) {
    const std::string counter = "w" + std::to_string(depth);
    const bool repeats = pick(2) == 1;
    std::string text = counter + " = 0\n";
    text += repeats ? "repeat\n" : "while " + counter + " < " + oneOf({"3", "1", "5"}) + "\n";
    text += counter + " += 1\n";
    ++loops_;
    text += block(depth);
    --loops_;
    return text + (repeats ? "until " + counter + " >= 2\n" : "end\n");
}

std::string ProgramGenerator::numericFor(int depth) {
    std::string text = "for k" + std::to_string(depth) + " = " +
                       oneOf({"1, 3", "3, 1, -1", "1, 5, 2", "2, 1", "i1, i1"});
    if (!plain_ && pick(8) == 7) text += ", " + expression(1);
    ++loops_;
    text += "\n" + block(depth);
    --loops_;
    if (!plain_ && pick(4) == 1) text += "k" + std::to_string(depth) + " += 1\n";
    return text + "print(k" + std::to_string(depth) + ")\nend\n";
}

std::string ProgramGenerator::genericFor(int depth) {
    const std::string names = "g" + std::to_string(depth) + ", h" + std::to_string(depth);
    std::string source = oneOf({"pairs(a2)", "ipairs(t2)", "pairs([1, 2])", "ipairs(a2)"});
    if (!plain_) {
        source = oneOf({"pairs(a1)", "ipairs(t2)", "pairs(t1)", "a2", "keys(t1)", "i1",
                        "ipairs(s1)", "string[\"gmatch\"](\"a-1 b-2\", \"(%a+)%-(%d+)\")",
                        "pairs(string[\"byte\"](s1, 1, 3))", "string[\"gmatch\"](s1, \"%d+\")"});
    }
    ++loops_;
    std::string text = "for " + names + " in " + source + "\n" + block(depth);
    --loops_;
    return text + "print(" + names + ")\nend\n";
}

std::string ProgramGenerator::function(int depth) {
    const std::string name = "u" + std::to_string(functions_++ % 3);
    const std::string word =
        oneOf({"function ", "local function ", "native function ", "decay function "});
    const int outside = loops_;
    loops_ = 0;
    std::string body = pick(2) == 0 ? "" : block(depth);
    loops_ = outside;
    if (pick(4) != 3) body += "return " + expression(2) + "\n";
    return word + name + "(p" + oneOf({"", ", q", ", ..."}) + ")\n" + body + "end\n";
}

std::string ProgramGenerator::containerCall() {
    switch (pick(plain_ ? 3 : 8)) {
        case 0: return "push(a2, " + storable() + ")\n";
        case 1: return plain_ ? "t2[9] = nil\n" : "t2[" + key() + "] = nil\n";
        case 2: return plain_ ? "push(a1, i1)\n" : "pop(a2)\n";
        case 3: return "table[\"sort\"](a2)\n";
        case 4: return "table[\"insert\"](a1, " + storable() + ")\n";
        case 5: return "table[\"remove\"](a1, " + literal() + ")\n";
        case 6: return "clear(" + container() + ")\n";
        default:
            return "function less(p, q)\nreturn " + oneOf({"p < q", "true", "q == p"}) +
                   "\nend\ntable[\"sort\"](a2, less)\n";
    }
}

/// What a user gets wrong.
std::string ProgramGenerator::oddity() {
    return oneOf({"a.b\n", "x = (1 + \n", "i1 i2\n", "t1[ = 3\n", "for i = 1\nend\n", "end\n",
                  "print(1,)\n", "if\nend\n", "function ()\nend\n", "x = {a: }\n", "a, = 1\n",
                  "break\n", "until i1\n", "\"open\n", "while true\n", "@@ only this\n"});
}
