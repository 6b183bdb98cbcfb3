// The evaluator and the skipper must accept the same texts. Here they meet on expressions from a
// seeded generator, whole ones and broken ones. Tokens of length zero are left out: no text has
// them, and only the entry of the evaluator passes over them.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "interpreter/dovrel_script.h"

namespace {

using Tokens = std::vector<std::string>;

/// What became of one pass over a token sequence.
struct Outcome {
    std::string failure;  // the whole report or message, empty on success
    std::size_t position = 0;
    std::string lastToken;
    std::size_t lastTokenIndex = 0;
};

class Generator {
public:
    explicit Generator(std::uint32_t seed) : random_(seed) {}

    Tokens expression(int depth) {
        Tokens tokens;
        appendExpression(tokens, depth);
        return tokens;
    }
    /// Takes out, puts in or exchanges a few tokens.
    void damage(Tokens& tokens) {
        for (std::size_t changes = 1 + below(3); changes > 0; --changes) {
            const std::size_t at = below(tokens.size() + 1);
            const auto place = tokens.begin() + static_cast<std::ptrdiff_t>(at);
            switch (below(4)) {
                case 0:
                    if (at < tokens.size()) tokens.erase(place);
                    break;
                case 1:
                    if (at < tokens.size()) tokens[at] = anyToken();
                    break;
                case 2: tokens.resize(at); break;
                default: tokens.insert(place, anyToken());
            }
        }
    }
    Tokens noise() {
        Tokens tokens;
        for (std::size_t count = below(12); count > 0; --count) tokens.push_back(anyToken());
        return tokens;
    }

private:
    std::size_t below(std::size_t count) { return random_() % count; }
    template <std::size_t Count>
    std::string pick(const std::array<std::string_view, Count>& texts) {
        return std::string(texts[below(Count)]);
    }
    /// Operators that fail for no operands are the likeliest, so that many values get through.
    std::string binaryOperator() {
        static constexpr std::array<std::string_view, 24> kOperators = {
            "==", "!=", "~=", "and", "or", "&&", "||", "==", "!=", "and", "or", "+",
            "-",  "*",  "/",  "\\",  "%",  "^",  "<",  ">",  "<=", ">=",  "+",  "or"};
        return pick(kOperators);
    }
    std::string atom() {
        static constexpr std::array<std::string_view, 18> kAtoms = {
            "1",     "2",    "3.5",  ".5",  "99999999999", "'a'", "\"it's\"", "true", "flse",
            "false", "nil_", "name", "...", "f",           "f",   "list",     "t",    "not"};
        return pick(kAtoms);
    }
    std::string anyToken() {
        static constexpr std::array<std::string_view, 32> kOthers = {
            "(",  ")",   "[",  "]",     "{",   "}",   ",",  ":",   "=",    ";",     "#",
            "!",  "not", "-",  "+",     "a.b", "1e5", ".",  "end", "else", "1.2.3", "é",
            "..", "'",   "''", "until", "+=",  "if",  "-1", "&",   "if",   "$v"};
        switch (below(4)) {
            case 0: return atom();
            case 1: return binaryOperator();
            default: return pick(kOthers);
        }
    }
    void appendExpression(Tokens& tokens, int depth) {
        appendOperand(tokens, depth);
        while (below(3) == 0) {
            tokens.push_back(binaryOperator());
            appendOperand(tokens, depth);
        }
    }
    void appendOperand(Tokens& tokens, int depth) {
        switch (below(12)) {
            case 0: tokens.emplace_back("not"); break;
            case 1: tokens.emplace_back("!"); break;
            case 2: tokens.emplace_back(below(2) == 0 ? "-" : "+"); break;
            default: break;
        }
        if (depth <= 0) {
            tokens.push_back(atom());
            return;
        }
        switch (below(9)) {
            case 0:
                tokens.emplace_back("(");
                appendExpression(tokens, depth - 1);
                tokens.emplace_back(")");
                break;
            case 1:
                tokens.emplace_back("[");
                appendList(tokens, depth, "]", true);
                break;
            case 2: appendTable(tokens, depth); break;
            case 3:
                tokens.emplace_back("f");
                tokens.emplace_back("(");
                appendList(tokens, depth, ")", false);
                break;
            case 4:
                tokens.emplace_back(below(2) == 0 ? "list" : "t");
                tokens.emplace_back("[");
                appendExpression(tokens, depth - 1);
                tokens.emplace_back("]");
                break;
            default: tokens.push_back(atom());
        }
    }
    void appendList(Tokens& tokens, int depth, std::string_view closer, bool trailingComma) {
        const std::size_t count = below(3);
        for (std::size_t i = 0; i < count; ++i) {
            appendExpression(tokens, depth - 1);
            if (i + 1 < count || (trailingComma && below(4) == 0)) tokens.emplace_back(",");
        }
        tokens.emplace_back(closer);
    }
    void appendTable(Tokens& tokens, int depth) {
        tokens.emplace_back("{");
        for (std::size_t count = below(3); count > 0; --count) {
            switch (below(3)) {
                case 0:
                    tokens.push_back(below(2) == 0 ? "key" : "'quoted'");
                    tokens.emplace_back(below(2) == 0 ? ":" : "=");
                    break;
                case 1:
                    tokens.emplace_back("[");
                    tokens.push_back(below(2) == 0 ? "1" : "'k'");
                    tokens.emplace_back("]");
                    tokens.emplace_back(below(2) == 0 ? ":" : "=");
                    break;
                default: break;
            }
            // An entry that begins with "[" would be a bracket key.
            Tokens value = expression(depth - 1);
            if (value.front() == "[") tokens.emplace_back("+");
            tokens.insert(tokens.end(), value.begin(), value.end());
            if (count > 1 || below(4) == 0) tokens.emplace_back(",");
        }
        tokens.emplace_back("}");
    }

    std::mt19937 random_;
};

class SkipAgrees : public testing::Test {
protected:
    SkipAgrees() {
        interpreter_.runScript(
            "list = [1, 'two']\nt = {k: 1, two: 'x'}\nfunction f()\n  return f\nend");
    }

    template <typename Pass>
    Outcome run(Pass pass) {
        Outcome outcome;
        interpreter_.lastToken.clear();
        interpreter_.lastTokenIndex = 0;
        interpreter_.currentLine = nullptr;
        try {
            pass(outcome.position);
        } catch (const std::exception& error) {
            outcome.failure = error.what();
        }
        outcome.lastToken = interpreter_.lastToken;
        outcome.lastTokenIndex = interpreter_.lastTokenIndex;
        return outcome;
    }
    /// A failure that only a value can show, so that the skipper has nothing to say about it.
    static bool isOfAValue(const std::string& failure) {
        for (const std::string_view message :
             {"Invalid numeric format", "Invalid table key", "Unary '-' requires"}) {
            if (failure.starts_with("DovrelScript error: " + std::string(message))) return true;
        }
        // What is raised below the parser has no location here.
        return !failure.starts_with("DovrelScript error:");
    }
    static std::string shown(const Tokens& tokens) {
        std::string text;
        for (const std::string& token : tokens) text += "<" + token + "> ";
        return text;
    }
    void compare(const Tokens& tokens) {
        if (tokens.empty()) return;

        std::vector<TokenAnalysis> analysis;
        for (const std::string& token : tokens) {
            analysis.push_back(interpreter_.analyseToken(token));
        }
        const Outcome evaluated = run([&](std::size_t& position) {
            static_cast<void>(interpreter_.evaluateExpression(tokens, position, &analysis));
        });
        const Outcome skipped = run([&](std::size_t& position) {
            interpreter_.skipExpression(tokens, position, 1, &analysis);
        });
        if (evaluated.failure.empty()) {
            ASSERT_EQ(skipped.failure, "") << shown(tokens);
            ASSERT_EQ(skipped.position, evaluated.position) << shown(tokens);
            ++accepted_;
        } else if (isOfAValue(evaluated.failure)) {
            ++undecided_;
            return;
        } else {
            ASSERT_EQ(skipped.failure, evaluated.failure) << shown(tokens);
            ++refused_;
        }
        ASSERT_EQ(skipped.lastToken, evaluated.lastToken) << shown(tokens);
        ASSERT_EQ(skipped.lastTokenIndex, evaluated.lastTokenIndex) << shown(tokens);
    }

    DovrelScript interpreter_;
    int accepted_ = 0;
    int refused_ = 0;
    int undecided_ = 0;
};

TEST_F(SkipAgrees, OnWholeExpressions) {
    Generator generator(20231);
    for (int i = 0; i < 20000; ++i) {
        compare(generator.expression(3));
        if (HasFatalFailure()) return;
    }
    // Whole expressions parse; what fails, fails for its values.
    EXPECT_EQ(refused_, 0);
    EXPECT_GT(accepted_, 5000);
}

TEST_F(SkipAgrees, OnBrokenExpressions) {
    Generator generator(20232);
    for (int i = 0; i < 40000; ++i) {
        Tokens tokens = generator.expression(2);
        generator.damage(tokens);
        compare(tokens);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(accepted_, 5000);
    EXPECT_GT(refused_, 5000);
}

TEST_F(SkipAgrees, OnNoise) {
    Generator generator(20233);
    for (int i = 0; i < 40000; ++i) {
        compare(generator.noise());
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(accepted_, 2000);
    EXPECT_GT(refused_, 5000);
}

// The skipped side of a deciding operand is stepped over by the evaluator as it stands.
TEST_F(SkipAgrees, BehindADecidingOperand) {
    Generator generator(20234);
    for (int i = 0; i < 20000; ++i) {
        Tokens tokens = generator.expression(2);
        if (i % 2 == 0) generator.damage(tokens);
        if (tokens.empty()) continue;
        Tokens guarded = {"true", "or"};
        guarded.insert(guarded.end(), tokens.begin(), tokens.end());
        std::size_t end = 0;
        const Outcome skipped = run([&](std::size_t& position) {
            interpreter_.skipExpression(tokens, position, 2, nullptr);
            end = position;
        });
        const Outcome evaluated = run([&](std::size_t& position) {
            interpreter_.skipExpression(guarded, position, 2, nullptr);
            ASSERT_EQ(position, 1U);
            position = 0;
            static_cast<void>(interpreter_.evaluateExpression(guarded, position, nullptr));
        });
        if (!skipped.failure.empty()) {
            ASSERT_EQ(evaluated.failure, skipped.failure) << shown(tokens);
        } else if (evaluated.failure.empty()) {
            ASSERT_GE(evaluated.position, end + 2) << shown(tokens);
        }
    }
}

}  // namespace
