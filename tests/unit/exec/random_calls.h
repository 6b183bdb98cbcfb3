// Random programs of calls: of one-line functions, functions with a frame, natives and entries of
// tables, in all places of expressions, on values of all kinds. Some of the callees note that they
// ran, some exchange other callees, some fail.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

class RandomCalls {
public:
    explicit RandomCalls(std::uint32_t seed) : engine_(seed) {}

    /// The functions and the variables, which the programs are about.
    static std::string declarations() {
        return R"(log = ""
count = 0
x = 1
y = 2.5
z = "z"
n = 3
a = [1, 2.5, "three", true]
function note(v)
    log = log + toString(v) + ","
    count = count + 1
    return v
end
function twice(v)
    return v + v
end
function mix(v, w)
    return v * 2 - w
end
function pick(v, w)
    return v[w]
end
function constant()
    return 7
end
function hollow(v)
    return absent
end
function outer(v)
    return v + n
end
function less(v, w)
    return v < w
end
function told(v)
    return note(v)
end
function sum(v, w)
    return note(v) + note(w)
end
function divided(v, w)
    return v % w
end
function change(v)
    count = count + 1
    if count % 5 == 2
        twice, told = told, twice
    end
    return v
end
function deep(v)
    if v < 1
        return 1
    end
    local down = v - 1
    return deep(down) + mix(down, 1)
end
function text(v)
    return "<" + toString(v) + ">"
end
function guarded(v)
    if v == 3
        error("three")
    end
    return v + 1
end
function fails(v)
    if count % 3 == 1
        error("failed")
    end
    return v
end
function two(v)
    return v, 5
end
function nothing(v)
    n = n
end
t = {"twice": twice, "pick": pick, "told": told, "note": note, "abs": math["abs"], "value": 4}
)";
    }

    std::string statement() {
        const std::string target = pick(std::array{"x", "y", "z", "own"});
        switch (below(11)) {
            case 0: return target + " += " + expression(2);
            case 1: return target + " -= " + expression(2);
            case 2: return call(2);
            case 3: return "ok, e = pcall(" + callee() + ", " + expression(1) + ")";
            case 4:  // never an array, which could hold itself
                return "a[" + std::to_string(1 + below(4)) + "] = 0 + (" + expression(2) + ")";
            case 5:
                return "for k = 1, 2\n" + target + " = " + expression(2) + "\n" + call(1) + "\nend";
            case 6:
                return "if " + expression(2) + pick(std::array{" < ", " == ", " >= "}) +
                       expression(1) + "\nx = x + 1\nend";
            default: return target + " = " + expression(3);
        }
    }

    std::string expression(int depth) {
        if (depth == 0 || below(6) == 0) return leaf();
        if (below(2) == 0) return call(depth);
        return expression(depth - 1) +
               pick(std::array{" + ", " + ", " - ", " * ", " % ", " < ", " == "}) +
               (below(3) == 0 ? "(" + expression(depth - 1) + ")" : expression(depth - 1));
    }

    std::uint32_t below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(engine_()) % limit;
    }

private:
    template <std::size_t count>
    std::string pick(const std::array<const char*, count>& texts) {
        return texts[below(count)];
    }
    std::string leaf() {
        return pick(std::array{"x",    "y",     "n",    "n",    "turn", "1",           "2",
                               "3",    "0",     "2.5",  "z",    "a",    "t",           "absent",
                               "true", "\"s\"", "a[1]", "a[2]", "a[3]", "t[\"value\"]"});
    }
    std::string callee() {
        return pick(std::array{"note",        "twice",      "mix",           "pick",
                               "constant",    "hollow",     "outer",         "less",
                               "told",        "sum",        "divided",       "change",
                               "deep",        "text",       "guarded",       "fails",
                               "two",         "nothing",    "t[\"twice\"]",  "t[\"pick\"]",
                               "t[\"told\"]", "t[\"abs\"]", "t[\"absent\"]", "math[\"floor\"]",
                               "toString",    "len",        "absent",        "x"});
    }
    std::string call(int depth) {
        const std::string name = callee();
        if (name == "deep") return "deep(" + std::to_string(below(4)) + ")";
        if (below(12) == 0) return name + "()";
        std::string arguments = expression(depth - 1);
        if (below(2) == 0) arguments += ", " + expression(depth - 1);
        return name + "(" + arguments + ")";
    }

    std::mt19937 engine_;
};
