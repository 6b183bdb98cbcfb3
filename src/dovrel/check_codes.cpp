// The codes of `dovrel check` with their explanations.
#include <algorithm>
#include <array>
#include <cctype>

#include "dovrel/findings.h"

namespace {

constexpr Severity kError = Severity::Error;
constexpr Severity kWarning = Severity::Warning;

constexpr std::array kCodes = {
    CheckCode{
        "E101", kError, "a string without its end",
        R"(A quote has no partner, so that the string goes on over the lines behind it. Nothing of
the script runs. Told at the first string that goes over a line end, since few are meant to.

    name = "Ada
    print("hello")

Close the string; write \" for a quote inside of one.)"},
    CheckCode{
        "E102", kError, "a block without its end",
        R"(An `if`, `while`, `for` or function lacks its `end`, or a `repeat` its `until`. Nothing of
the script runs. The indentation tells which block it is.

    if a b() end

lacks its `end` too: a statement ends with its line or at a `;`. Write `if a; b(); end`.)"},
    CheckCode{
        "E103", kError, "a line that cannot be read",
        R"(The line fails with this message when it runs, and not before: a mistake in a line that
never runs is never found by running the script.

    if count then
    total = price * * 2

A condition ends with its line, without `then` or `do`; `@@` begins a comment; an element is
written t["name"], without a dot.)"},
    CheckCode{
        "E104", kError, "a break outside of a loop",
        R"(`break` leaves the innermost loop of its function. Without one the script fails when it
gets there. A function cannot leave a loop of its caller: `return` from it.)"},
    CheckCode{
        "E105", kError, "a bracket without its partner",
        R"(A line goes on in the next one while a bracket is open. One that is never closed takes in
the rest of the script, which then fails as one line.)"},
    CheckCode{
        "W201", kWarning, "a native in a branch",
        R"(The place in the script that reads a variable remembers where it has found it, and does not
look at the name again. A `native` that is declared in one call and not in the next one moves the
variables that are declared behind it, and a read may then get a neighbour.

    function f(a)
        if a
            native x = 1
        end
        native y = 2
        return y
    end

Declare what a function uses at its top, always and in the same order.)"},
    CheckCode{
        "W202", kWarning, "a name that is native and plain",
        R"(An assignment in front of the `native` of its name, or outside of the loop that it belongs
to, writes another variable: a caller's, or a global.

    function f()
        x = 1
        native x = 2
    end

Declare it before it is written for the first time. A `for` keeps its own variables and drops them at
its `end`, so that behind the loop the name is absent: declare it in front of the loop.)"},
    CheckCode{
        "W203", kWarning, "a global made or changed by a function",
        R"(A plain assignment writes the variable that its name finds, in the callers as well, and
makes a global where it finds none. The function writes this name before it reads it, and nobody
else reads it, so it is likely to be meant for the function alone.

    function f()
        i = 0
        ...

Write `native i = 0`. Give a global that is meant its first value at the top of the script.)"},
    CheckCode{
        "W204", kWarning, "a name that is never assigned",
        R"(The name is read and nothing is ever assigned to it, so that it is always the absent value.
That is no error by itself; the message comes where the absent value does not fit, if at all.

    list = [1, 2]
    print(len(lst))

It is a misspelt name, as a rule, or a variable of another function, which this one does not see.)"},
    CheckCode{
        "W205", kWarning, "a library entry that does not exist",
        R"(The library's table has no such member, so that this is the absent value, and a call of it
fails. `dovrel doc` lists what there is.)"},
    CheckCode{
        "W206", kWarning, "a variable or parameter that is never read",
        R"(Nothing reads it, neither here nor in what is called from here. Perhaps another name was
meant. A name that begins with `_` is passed over.)"},
    CheckCode{
        "W207", kWarning, "an assignment to a variable of a caller",
        R"(Scoping is dynamic: a plain assignment writes the variable that its name finds, and the
variables of all callers are found.

    function inner()
        level = 1
    end
    function outer()
        native level = 5
        inner()
        print(level)
    end

prints 1. Write `native level = 1` in `inner`, or return the value.)"},
    CheckCode{
        "W208", kWarning, "a local that hides a parameter",
        R"(Variables of blocks are looked for before those of calls, also where the blocks are those of a
caller. A `local` hides every parameter, loop variable and `native` of its name in all that is
called from its block.

    function greet(name)
        print(name)
    end
    if true
        local name = "mine"
        greet("Ada")
    end

prints "mine". Use `native` or another name.)"},
    CheckCode{
        "W209", kWarning, "a hidden library function",
        R"(The functions of the library are ordinary globals, and a variable of the same name hides them
from everything that is called while it exists.

    function count(list)
        return len(list)
    end
    function f(len)
        return count([1, 2]) + len
    end

Choose another name.)"},
    CheckCode{
        "W210", kWarning, "a variable of a caller that is read",
        R"(The function reads a variable that belongs to whoever calls it. The place in the script
remembers where it has found the variable, and not its name: after a call from elsewhere it may get
the neighbour of what it asks for. Pass such things as arguments.)"},
    CheckCode{"W301", kWarning, "code that never runs",
              R"(Nothing runs behind a `return` or `break` in the same block.)"},
    CheckCode{"W302", kWarning, "a call that may run several times",
              R"(A calculation or a condition is tried as a number first. Where that turns out to be
impossible, because a function of several lines is called for one, it starts again as a value, and
the calls in arguments run again. In a condition it is tried up to four times.

    x = 1 + f(g())
    if f(g()) == 1

Here `g` runs twice, and four times. Assign its result to a name in front of the line. Only calls are
told of that print or change something, or of which nothing is known.)"},
    CheckCode{
        "W303", kWarning, "a block in a decay body",
        R"(The blocks of a decay function end in the wrong places: the turns of a coroutine count the
lines of the body, and the blocks those of the script. Write the body as plain statements and put
conditions and loops into functions that it calls.)"},
    CheckCode{
        "W304", kWarning, "a line that is only an expression",
        R"(The value of the line is dropped. A line does not go on behind an operator, or with one in
the next line:

    total = price
            + tax

is two statements, of which the second does nothing. Put the whole into parentheses. A function is
called with `()` only. That the value of a function's last expression is its result is nothing to
rely on: write `return`.)"},
    CheckCode{
        "W305", kWarning, "a word of another language",
        R"(This word is a name like any other here, and has no value: `nil`, `None` and `True` are absent
and so false, and `continue`, `exit` or `pass` alone do nothing. What stands behind `else` is not
read, so that `else if x` asks nothing.

The absent value is `not`, the truths are `true` and `false`, and the word is `elseif`. There is no
way to go on with the next round of a loop but an `if`.)"},
    CheckCode{
        "W306", kWarning, "text that is not read",
        R"(`end`, `else`, `repeat` and `break` stand alone: what follows in their line is not read. Put a
`;` or a line end between.)"},
    CheckCode{
        "W307", kWarning, "an end of nothing",
        R"(An `end`, `else`, `elseif` or `until` that has no block in front does nothing. Perhaps a block
ends too early: look at the lines before.)"},
    CheckCode{
        "W308", kWarning, "a count without an end",
        R"(Ints wrap around: behind 2147483647 comes -2147483648, which is within the limit.)"},
    CheckCode{
        "W401", kWarning, "a 0 that `or` drops",
        R"(In a value that is computed as a number, 0 is false, so that `n or 5` is 5 for an `n` of 0.

    if n == not
        n = 5
    end

asks for the absent value alone.)"},
    CheckCode{
        "W402", kWarning, "a compound assignment that mixes kinds",
        R"(`+=` and its like work in place and cannot change the kind of a number: an int with a float on
the right, `/=` of an int and `\=` of a float fail with bad_variant_access. `+=` with a text makes a
text of a number. Write `n = n + 0.5`, or begin with 0.0.)"},
    CheckCode{
        "W403", kWarning, "a part of a text up to 0",
        R"(An end of 0 stands for the end of the text in string["sub"]. A computed end that comes out as
0 gives the whole rest where one expects an empty text. Test it first.)"},
    CheckCode{
        "W404", kWarning, "a set that is not negated",
        R"(In a pattern of the language's own `[^a]` matches a caret or an `a`. Write a regular expression,
"re:[^a]", or a class such as %A.)"},
    CheckCode{
        "W405", kWarning, "a 0 that is true",
        R"(In a condition the number 0 is false, but what a function of several lines gives is a value,
and as a value 0 is true. Compare it: `if f() != 0`.)"},
    CheckCode{
        "W406", kWarning, "a power of ints",
        R"(2 ^ 3 is 8.000000 where it is computed as a number, as in `x = 2 ^ 3`, and 8 where it is
computed as a value, as in `print(2 ^ 3)`. Ask for the kind that is needed: math["floor"](2 ^ 3), or
2 ^ 3 + 0.0.)"},
    CheckCode{
        "W407", kWarning, "several results as one value",
        R"(The results of `return a, b` are one value until an assignment to several names takes them
apart. As an argument, an element or an operand they stay one, which prints as [multivalue] and is
true in every condition. `pcall` gives several results always.

    first, second = f()
    print(first))"},
    CheckCode{
        "W408", kWarning, "a float as a key",
        R"(The keys of a table are texts, and that of a float has six decimals: t[1.0] is the key
"1.000000", and not t[1].)"},
    CheckCode{
        "W409", kWarning, "an absent value that is stored",
        R"(Storing the absent value keeps the key: `contains` and the walks still find it. `erase(t, k)`
removes it.)"},
    CheckCode{
        "W410", kWarning, "keys in the order of texts",
        R"(A walk goes by the texts of the keys, so that 10 comes before 9. Walk the numbers with
`ipairs` or a counting loop, or sort an array of them.)"},
    CheckCode{
        "W411", kWarning, "a key that makes a table of an array",
        R"(A key that is no position turns the array of that variable into a table. Other names of the
same array keep the array, and the two part. Begin with a table: `{}`.)"},
    CheckCode{
        "W412", kWarning, "a `not` in front of an operator",
        R"(In front of a binary operator, `+` and `-` included, `not` is the absent value and negates
nothing: `not -1` is the absent value minus 1, which fails. Write `not (-1)`.)"},
    CheckCode{
        "W413", kWarning, "a position below 1",
        R"(Positions count from 1, and an index does not count from the end: list[0] and text[-1] are
absent. The functions of the table `string` do count from the end.)"},
    CheckCode{
        "W414", kWarning, "a walk that spreads its elements",
        R"(An array is walked as it is: with several variables an element that is an array is spread over
them, and any other goes to the first one. `for i, name in list` gives `i` the element. Write
`for i, name in ipairs(list)`.)"},
    CheckCode{
        "W415", kWarning, "a for that does not call a replaced function",
        R"(`for ... in pairs(x)` is recognised when the line is read, and walks `x` itself. If the script
has replaced `pairs`, the loop walks `x` as an array, and does not call the replacement. Put the call
into parentheses: `in (pairs(x))`.)"},
    CheckCode{
        "W416", kWarning, "a comma with nothing behind it",
        R"(The values of an assignment may end in a comma, which means nothing. The line does not go on
in the next one. In the arguments of a call such a comma is an error.)"},
    CheckCode{
        "W417", kWarning, "a mode that io.open does not know",
        R"(The letters r, w, a and + are looked for in the mode, and all else is ignored: "rw" and "write"
empty the file, "read" writes at its end because of its `a`, and "x" reads. Write "r", "w" or "a",
with a "+" behind it for both reading and writing.)"},
    CheckCode{
        "W418", kWarning, "a file object as if it were its content",
        R"(What io["open"] gives is a table of the functions `read`, `write` and `close`. To print it shows
these, and a key that is stored there changes nothing in the file.

    print(file["read"]("*a"))
    file["write"](text))"},
    CheckCode{
        "W419", kWarning, "a line that may end in a carriage return",
        R"(A line feed alone ends a line. Files from other systems have a carriage return in front of it,
which stays: the line looks right when it is printed, and yet it equals nothing and is no number. Take
it off:

    line = gsub(line, "\r$", ""))"},
};

}  // namespace

std::span<const CheckCode> allCheckCodes() { return kCodes; }

const CheckCode* findCheckCode(std::string_view code) {
    const auto same = [](char a, char b) {
        return std::toupper(static_cast<unsigned char>(a)) == b;
    };
    const auto found = std::find_if(kCodes.begin(), kCodes.end(), [&](const CheckCode& one) {
        return std::equal(code.begin(), code.end(), one.code.begin(), one.code.end(), same);
    });
    return found == kCodes.end() ? nullptr : &*found;
}
