// Random expressions, each evaluated by the interpreter and by the reference evaluator, which
// computes each step plainly: the same value or error, the same calls in the same order, the same
// soft error. Where a tier that declines makes the next one evaluate a call again, the reference
// evaluates it again too, so the test fails on a shortcut that a script could notice.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <exception>
#include <string>

#include "compiled_text.h"
#include "random_program.h"
#include "reference_tiers.h"

namespace {

/// The calls of `count`, with their arguments, in order.
std::string trace;

Variable count(DovrelScript&, Arguments args) {
    trace += shown(args[0]) + ";";
    return args[0];
}

std::string shownAlike(const Variable& value) {
    if (value.type == VarType::Float && std::isnan(value.asFloat())) return "nan";
    return shown(value);
}

std::string bareMessage(const std::string& message) {
    const std::string opening = "DovrelScript error: ";
    if (message.rfind(opening, 0) != 0) return message;
    return message.substr(opening.size(), message.find('\n') - opening.size());
}

/// In which place an expression stands.
enum class Place { Whole, Argument, Assigned, Condition, GuardCondition };
constexpr std::uint32_t kPlaces = 5;

/// One side: an interpreter, and how it evaluates.
class Side {
public:
    explicit Side(bool isReference) : isReference_(isReference) {}

    void declare(const std::string& declarations, bool nativeCount) {
        interpreter_.runScript(declarations);
        if (nativeCount) interpreter_.pushFunction("count", count);
    }

    /// Everything that can be seen of one evaluation.
    std::string outcome(const std::string& text, Place place, bool isProtected) {
        trace.clear();
        if (isProtected) {
            // As one level below a protected call.
            interpreter_.protectedCallDepths.push_back(0);
            interpreter_.callDepth = 1;
        }
        std::string result;
        try {
            result = evaluated(text, place);
        } catch (const std::exception& error) {
            // The statement of an assignment makes a report, where there is none yet.
            result =
                "raises " + (place == Place::Assigned ? bareMessage(error.what()) : error.what());
        }
        result += "\ncalls " + trace + " " + shown(global("counter")) + "\nsoft error " +
                  (interpreter_.softErrorPending ? interpreter_.softErrorMessage : "none");
        interpreter_.softErrorPending = false;
        interpreter_.noteAttention();
        interpreter_.softErrorMessage.clear();
        interpreter_.protectedCallDepths.clear();
        interpreter_.callDepth = 0;
        return result;
    }

private:
    std::string evaluated(const std::string& text, Place place) {
        CompiledText compiled(interpreter_, text);
        EXPECT_TRUE(compiled.expression.valid) << text;
        // A call alone is assigned by another way, and evaluated as it is anywhere.
        if (place == Place::Assigned && compiled.expression.isCall()) place = Place::Whole;
        if (isReference_) {
            ReferenceTiers tiers(interpreter_, compiled.expression, compiled.analysis);
            switch (place) {
                case Place::Whole: return shownAlike(tiers.whole());
                case Place::Argument: return shownAlike(tiers.general());
                case Place::Assigned: {
                    const Variable value = tiers.assigned();
                    return interpreter_.softErrorUnwinding() ? "nothing" : shownAlike(value);
                }
                case Place::Condition: return tiers.condition(Tiers::BoolFirst) ? "yes" : "no";
                case Place::GuardCondition:
                    return tiers.condition(Tiers::ScalarOnly) ? "yes" : "no";
            }
        }
        switch (place) {
            case Place::Whole:
                return shownAlike(
                    interpreter_.evaluateFastExpression(compiled.expression, compiled.analysis));
            case Place::Argument:
                return shownAlike(interpreter_.evaluateFastExpressionNode(
                    compiled.expression, compiled.expression.root, compiled.analysis));
            case Place::Assigned: return assigned(text);
            case Place::Condition:
            case Place::GuardCondition: break;
        }
        ParsedScriptLine line;
        line.tokens = compiled.tokens;
        line.tokenAnalysis = compiled.analysis;
        line.condition = compiled.expression;
        const Tiers tiers = place == Place::Condition ? Tiers::BoolFirst : Tiers::ScalarOnly;
        return interpreter_.evaluateCondition(line, "if", tiers) ? "yes" : "no";
    }

    std::string assigned(const std::string& text) {
        interpreter_.pushVariable("target", Variable(std::string("nothing")));
        interpreter_.runScript("target = " + text);
        const Variable target = global("target");
        return interpreter_.softErrorPending ? target.toString() : shownAlike(target);
    }

    const Variable& global(const std::string& name) {
        return interpreter_.globalValues[interpreter_.globalSlots.at(name)];
    }

    using Tiers = DovrelScript::ConditionTiers;

    DovrelScript interpreter_;
    bool isReference_;
};

TEST(TiersFollowTheirRules, OnRandomExpressions) {
    int failures = 0;
    int succeeded = 0;
    int withCalls = 0;
    int withSoftErrors = 0;
    for (std::uint32_t seed = 1; seed <= 400 && failures < 3; ++seed) {
        RandomProgram program(seed);
        const std::string declarations = program.declarations().plain;
        Side wanted(true);
        Side actual(false);
        // A native without an id declines behind its arguments, a script function before them.
        const bool nativeCount = seed % 2 == 0;
        wanted.declare(declarations, nativeCount);
        actual.declare(declarations, nativeCount);
        for (std::uint32_t i = 0; i < 100 && failures < 3; ++i) {
            const std::string text = program.freeExpression();
            const auto place = static_cast<Place>(i % kPlaces);
            const std::string wantedOutcome = wanted.outcome(text, place, i % 3 == 0);
            const std::string actualOutcome = actual.outcome(text, place, i % 3 == 0);
            if (wantedOutcome != actualOutcome) {
                ++failures;
                ADD_FAILURE() << "seed " << seed << ", place " << i % kPlaces << "\n"
                              << declarations << "----\n"
                              << text << "\n---- by the rules\n"
                              << wantedOutcome << "\n---- by the interpreter\n"
                              << actualOutcome;
                break;
            }
            if (wantedOutcome.rfind("raises", 0) != 0) ++succeeded;
            if (text.find("count(") != std::string::npos) ++withCalls;
            if (wantedOutcome.find("boom") != std::string::npos) ++withSoftErrors;
        }
    }
    if (failures > 0) return;
    EXPECT_GE(succeeded, 15000);
    EXPECT_GE(withCalls, 5000);
    EXPECT_GE(withSoftErrors, 50);
}

}  // namespace
