// Random programs, each run statement by statement in three interpreters:
//
//   tokens   nothing is compiled: the token-stream evaluator, which defines the language
//   tiers    everything that compiles goes through the tiers
//   probed   by tokens, with natives around the operations on which the tiers may differ
//
// After each statement all variables, and the error if there is one, must be the same. A difference
// is allowed only where a native of the probed run has seen a case that explains it: these cases
// are the enumerators of `Rule`. The probed run itself must always agree with the run by tokens.
//
// What the programs leave out are the differences in how often, and in which order, something is
// evaluated: functions with effects stand only where every tier evaluates them once, and a callee
// is a plain name or a member of a table. A function with several results is called only for
// several targets: cutting its results to the first takes a compiled call.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "compiled_text.h"
#include "random_program.h"
#include "value/operators.h"

namespace {

enum Rule : std::size_t {
    kPowerOfInts,    // "^" of two ints: an int by tokens, a float in the scalar tier
    kInexactInt,     // an int that no float holds, beside a float: narrowed first by tokens only
    kBoolRemainder,  // "%" of a bool: a float in the general tier only
    kWideFloat,      // "\" of a float beyond an int: the scalar tier keeps its low 32 bits
    kTruthOfZero,    // the number 0: false in the scalar tiers only
    kBoolPosition,   // a bool as the key of an array: a position where the int tier takes it
    kMixedCompound,  // `x += v` of mixed kinds: fails half-way in the bytecode executor
    kRuleCount,
};

constexpr std::array<const char*, kRuleCount> kRuleNames = {
    "power of ints", "inexact int",   "bool remainder", "wide float",
    "truth of zero", "bool position", "mixed compound",
};

/// The rules whose case the statement under test has met in the probed run.
std::array<bool, kRuleCount> met{};

// ------------------------------------------------------------------------------- the natives

bool isInexact(const Variable& value) {
    return value.type == VarType::Int &&
           static_cast<double>(static_cast<float>(value.asInt())) != value.asInt();
}

bool isWide(const Variable& value) {
    return value.type == VarType::Float && !(std::fabs(value.asFloat()) < 2147483648.0F);
}

void meetOperation(const Variable& left, char op, const Variable& right) {
    const auto either = [&](VarType type) { return left.type == type || right.type == type; };
    switch (op) {
        case '^':
            if (left.type == VarType::Int && right.type == VarType::Int) met[kPowerOfInts] = true;
            break;
        case '%':
            if (either(VarType::Bool)) met[kBoolRemainder] = true;
            [[fallthrough]];
        case '+':
        case '-':
        case '*':
            if (either(VarType::Float) && (isInexact(left) || isInexact(right))) {
                met[kInexactInt] = true;
            }
            break;
        case '\\':
            if (isWide(left) || isWide(right)) met[kWideFloat] = true;
            break;
        default: break;
    }
}

Variable operate(DovrelScript&, Arguments args) {
    const char op = args[0].asString()[0];
    meetOperation(args[1], op, args[2]);
    return performOperation(args[1], op, args[2]);
}

Variable truth(DovrelScript&, Arguments args) {
    const Variable& value = args[0];
    if ((value.type == VarType::Int && value.asInt() == 0) ||
        (value.type == VarType::Float && value.asFloat() == 0.0F)) {
        met[kTruthOfZero] = true;
    }
    return value;
}

Variable element(DovrelScript& interpreter, Arguments args) {
    if (args[0].type == VarType::Array && args[1].type == VarType::Bool) {
        met[kBoolPosition] = true;
    }
    return interpreter.getIndexedValue(args[0], args[1]);
}

Variable compound(DovrelScript&, Arguments args) {
    const char op = args[0].asString()[0];
    const Variable& value = args[1];
    const Variable& target = args[2];
    meetOperation(target, op, value);
    if (target.isNumeric() && value.isNumeric() && op != '^') {
        const bool becomesFloat = op == '/' || (op != '\\' && value.type == VarType::Float);
        if (target.type == VarType::Bool || (target.type == VarType::Int && becomesFloat) ||
            (target.type == VarType::Float && op == '\\')) {
            met[kMixedCompound] = true;
        }
    }
    return value;
}

// ---------------------------------------------------------------------------------- one run

/// The message of a report or of a bare error, without its place.
std::string bareMessage(const std::string& message) {
    static const std::string kOpening = "DovrelScript error: ";
    if (message.compare(0, kOpening.size(), kOpening) != 0) return message;
    return message.substr(kOpening.size(), message.find('\n') - kOpening.size());
}

/// The sign of a not-a-number is the processor's affair.
std::string shownAlike(const Variable& value) {
    if (value.type == VarType::Float && std::isnan(value.asFloat())) return "nan";
    // A one-line function under `pcall` fails with a bare message in the tiers; by tokens some
    // messages have a place.
    if (value.type == VarType::String) return "string " + bareMessage(value.asString());
    return shown(value);
}

class Run {
public:
    Run() = default;

    /// The error of `source`, or an empty text.
    std::string run(const std::string& source) {
        try {
            interpreter.runScript(source);
        } catch (const std::exception& error) {
            return bareMessage(error.what());
        }
        return {};
    }
    /// All variables, one a line.
    [[nodiscard]] std::string state() const {
        std::string result;
        for (const std::string& name : RandomProgram::variables()) {
            const Variable& value = interpreter.globalValues[interpreter.globalSlots.at(name)];
            std::string text;
            try {
                text = shownAlike(value);
            } catch (const std::exception& error) {
                text = error.what();  // spoiled by a compound assignment of mixed kinds
            }
            result.append(name).append(" = ").append(text).append("\n");
        }
        return result;
    }

    DovrelScript interpreter;
};

struct Tally {
    int statements = 0;
    int errors = 0;
    int differences = 0;
    std::array<int, kRuleCount> explained{};
    int failures = 0;
};

/// Runs a program until its runs part or its texts grow long.
void runProgram(std::uint32_t seed, Tally& tally) {
    RandomProgram program(seed);
    Run tokens;
    Run tiers;
    Run probed;
    tokens.interpreter.compileExpressions = false;
    probed.interpreter.compileExpressions = false;
    probed.interpreter.pushFunction("operate", operate);
    probed.interpreter.pushFunction("truth", truth);
    probed.interpreter.pushFunction("element", element);
    probed.interpreter.pushFunction("compound", compound);

    const ProgramText declarations = program.declarations();
    ASSERT_EQ(tokens.run(declarations.plain), "") << declarations.plain;
    ASSERT_EQ(tiers.run(declarations.plain), "") << declarations.plain;
    ASSERT_EQ(probed.run(declarations.probed), "") << declarations.probed;

    std::string before = tokens.state();
    for (int i = 0; i < 12; ++i) {
        const ProgramText statement = program.statement();
        met.fill(false);
        const std::string error = tokens.run(statement.plain);
        const std::string state = tokens.state();
        const std::string tiersError = tiers.run(statement.plain);
        const std::string tiersState = tiers.state();
        const std::string probedError = probed.run(statement.probed);
        const std::string probedState = probed.state();
        ++tally.statements;
        if (!error.empty()) ++tally.errors;

        const auto story = [&](const std::string& text) {
            return "seed " + std::to_string(seed) + "\n" + declarations.plain + "---- with\n" +
                   before + "---- runs\n" + text + "\n";
        };
        if (probedError != error || probedState != state) {
            ++tally.failures;
            ADD_FAILURE() << "the probed run parts from the run by tokens\n"
                          << story(statement.probed) << "---- tokens\n"
                          << error << "\n"
                          << state << "---- probed\n"
                          << probedError << "\n"
                          << probedState;
            return;
        }
        if (tiersError != error || tiersState != state) {
            ++tally.differences;
            bool isExplained = false;
            for (std::size_t rule = 0; rule < kRuleCount; ++rule) {
                if (met[rule]) ++tally.explained[rule];
                isExplained = isExplained || met[rule];
            }
            if (!isExplained) {
                ++tally.failures;
                ADD_FAILURE() << "the tiers part from the run by tokens, and no rule tells why\n"
                              << story(statement.plain) << "---- tokens\n"
                              << error << "\n"
                              << state << "---- tiers\n"
                              << tiersError << "\n"
                              << tiersState;
            }
            return;
        }
        if (state.size() > 4000) return;
        before = state;
    }
}

TEST(TiersAgree, OnRandomPrograms) {
    Tally tally;
    constexpr std::uint32_t kPrograms = 2000;
    for (std::uint32_t seed = 1; seed <= kPrograms && tally.failures < 3; ++seed) {
        runProgram(seed, tally);
        ASSERT_FALSE(HasFatalFailure());
    }
    if (tally.failures > 0) return;

    // The programs are worth something only if most of their statements succeed, if few of them are
    // excused, and if each rule is needed.
    EXPECT_GE(tally.statements, 8000);
    EXPECT_LE(tally.errors, tally.statements / 2);
    EXPECT_LE(tally.differences, tally.statements / 20);
    for (std::size_t rule = 0; rule < kRuleCount; ++rule) {
        EXPECT_GE(tally.explained[rule], 1) << kRuleNames[rule];
    }
    RecordProperty("statements", tally.statements);
    RecordProperty("differences", tally.differences);
}

}  // namespace
