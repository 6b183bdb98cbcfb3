// Random statements for tests that run the same program in several ways. The same seed gives the
// same program.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

/// A piece of program in two spellings: as a user writes it, and with every operation on which the
/// tiers may differ routed through a native that can look at the operands:
///
///     operate("+", a, b)      a + b; in the same way - * / \ % ^
///     truth(v)                v, which is about to be tested for truth
///     element(c, k)           c[k]
///     compound("+", v, x)     v, which is about to be applied in `x += v`
///
/// `level` is the precedence of the outermost operator of the plain spelling.
struct ProgramText {
    std::string plain;
    std::string probed;
    int level = 0;
};

class RandomProgram {
public:
    explicit RandomProgram(std::uint32_t seed) : random_(seed) {}

    /// The variables and functions that the statements use. To be run first.
    ProgramText declarations();
    /// The next statement, of one line or several.
    ProgramText statement() { return statement(2); }

    /// An expression that compiles. It may call `count`, which counts its calls, and `risky`, which
    /// raises a soft error for a 3, wherever an operand can stand.
    std::string freeExpression();

    /// The variables that a statement may change.
    static std::vector<std::string> variables();

private:
    using Text = ProgramText;

    /// What an expression should give. Now and then it gives something else, so that tiers decline
    /// and errors arise.
    enum class Want : std::uint32_t { Int, Float, Bool, String, Any };

    std::uint32_t below(std::uint32_t count) {
        return static_cast<std::uint32_t>(random_()) % count;
    }
    bool chance(std::uint32_t percent) { return below(100) < percent; }
    std::string oneOf(std::initializer_list<const char*> choices) {
        return choices.begin()[below(static_cast<std::uint32_t>(choices.size()))];
    }
    Want anyWant() { return static_cast<Want>(below(5)); }
    std::string scalarName();
    Want wantFor(const std::string& name);
    std::string containerName() { return oneOf({"a1", "a2", "t1", "t2"}); }

    Text expression(Want want, int depth);
    Text leaf(Want want);
    Text literal(bool isFloat);
    Text element(int depth);
    Text arithmetic(Want want, int depth);
    Text joinedTexts(int depth);
    Text comparison(int depth);
    Text logic(Want want, int depth);
    Text unary(Want want, int depth);
    Text nativeCall(Want want, int depth);
    Text scriptCall(int depth);
    Text countingCall(int depth);
    Text countingValue(int depth);
    Text storeKey(int depth);
    Text condition(int depth);

    Text statement(int depth);
    Text assignment();
    Text compoundAssignment();
    Text elementAssignment();
    Text severalTargets();
    Text protectedCall();
    Text branch(int depth);
    Text loop(int depth);
    Text block(int depth);
    Text oneLineFunction(const std::string& name);
    Text longFunction(const std::string& name);

    Text operand(const Text& text, int level);
    Text binary(const Text& left, const std::string& op, int level, const Text& right);
    Text operated(const Text& left, const std::string& op, int level, const Text& right);

    std::mt19937 random_;
    std::vector<std::string> functions_;  // those declared so far; each calls only earlier ones
    bool inFunction_ = false;             // p and q are parameters
    bool mayRaise_ = false;               // `risky` may be called
    bool byTokens_ = false;               // no tier evaluates this, so `count` may be called
    int loops_ = 0;                       // loops around the statement
};
