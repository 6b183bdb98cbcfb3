#include "dovrel/test_library.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "dovrel/text_difference.h"
#include "dovrel/value_display.h"
#include "eval/errors.h"
#include "library/natives.h"
#include "value/operators.h"
#include "value/table.h"

namespace {

/// Where two values differ first: the indices that lead there, and what stands there.
struct Difference {
    std::string path;
    Variable actual;
    Variable expected;
    bool isMissing = false;  // in the actual value
    bool isExtra = false;    // in the expected value
};

class Comparison {
public:
    std::optional<Difference> run(const Variable& actual, const Variable& expected) {
        return compare(actual, expected, {});
    }

private:
    std::optional<Difference> compare(const Variable& actual, const Variable& expected,
                                      const std::string& path) {
        if (actual.type == VarType::Array && expected.type == VarType::Array) {
            return compareArrays(actual, expected, path);
        }
        if (actual.type == VarType::Table && expected.type == VarType::Table) {
            return compareTables(actual, expected, path);
        }
        if (actual.type == VarType::Multi && expected.type == VarType::Multi) {
            return compareElements(actual.asMulti()->values, expected.asMulti()->values, path);
        }
        if (variablesEqual(actual, expected)) return std::nullopt;
        return Difference{path, actual, expected};
    }

    /// Containers that hold themselves are compared once: a pair that is being compared is equal so
    /// far.
    bool isUnderWay(const void* a, const void* b) { return !seen_.insert({a, b}).second; }

    std::optional<Difference> compareArrays(const Variable& actual, const Variable& expected,
                                            const std::string& path) {
        if (isUnderWay(actual.asArray().get(), expected.asArray().get())) return std::nullopt;
        return compareElements(*actual.asArray(), *expected.asArray(), path);
    }
    template <typename Elements>
    std::optional<Difference> compareElements(const Elements& actual, const Elements& expected,
                                              const std::string& path) {
        const std::size_t count = std::max<std::size_t>(actual.size(), expected.size());
        for (std::size_t i = 0; i < count; ++i) {
            const std::string here = path + '[' + std::to_string(i + 1) + ']';
            const Variable a = i < actual.size() ? actual[i] : Variable();
            const Variable b = i < expected.size() ? expected[i] : Variable();
            // A missing element is none that is absent.
            if (i >= actual.size() || i >= expected.size()) {
                return Difference{here, a, b, i >= actual.size(), i >= expected.size()};
            }
            if (auto found = compare(a, b, here)) return found;
        }
        return std::nullopt;
    }

    std::optional<Difference> compareTables(const Variable& actual, const Variable& expected,
                                            const std::string& path) {
        const TableStorage& a = *actual.asTable();
        const TableStorage& b = *expected.asTable();
        if (isUnderWay(&a, &b)) return std::nullopt;
        std::set<std::string> keys;
        for (const auto& [key, value] : a) keys.emplace(key->text);
        for (const auto& [key, value] : b) keys.emplace(key->text);
        for (const std::string& key : keys) {
            const std::string here = path + "[\"" + key + "\"]";
            const Variable* left = a.find(key);
            const Variable* right = b.find(key);
            if (left == nullptr || right == nullptr) {
                return Difference{here, left == nullptr ? Variable() : *left,
                                  right == nullptr ? Variable() : *right, left == nullptr,
                                  right == nullptr};
            }
            if (auto found = compare(*left, *right, here)) return found;
        }
        return std::nullopt;
    }

    std::set<std::pair<const void*, const void*>> seen_;
};

bool isLongText(const Variable& value) {
    return value.type == VarType::String && value.asString().find('\n') != std::string::npos;
}

/// The message that the test has given, in front of what was found.
std::string withMessage(Arguments args, std::size_t index, const std::string& text) {
    if (index >= args.size() || args[index].isNil()) return text;
    return args[index].toString() + '\n' + text;
}

/// What the last of them has said; the script may raise something else behind it.
std::string& lastExpectation() {
    static std::string message;
    return message;
}

Variable fail(DovrelScript& interpreter, const std::string& message) {
    lastExpectation() = message;
    interpreter.raiseScriptErrorSoft(message);
    return {};
}

Variable expectEqual(DovrelScript& interpreter, Arguments args) {
    if (args.size() < 2 || args.size() > 3) {
        throwPlainError("expect_equal(actual, expected[, message]) requires 2 or 3 arguments");
    }
    const std::string difference = describeDifference(args[0], args[1]);
    if (difference.empty()) return {};
    return fail(interpreter, withMessage(args, 2, difference));
}

std::optional<double> numberOf(const Variable& value) {
    if (value.type == VarType::Int) return value.asInt();
    if (value.type == VarType::Float) return static_cast<double>(value.asFloat());
    return std::nullopt;
}

Variable expectNear(DovrelScript& interpreter, Arguments args) {
    if (args.size() < 2 || args.size() > 4) {
        throwPlainError(
            "expect_near(actual, expected[, tolerance[, message]]) requires 2 to 4 arguments");
    }
    const std::optional<double> actual = numberOf(args[0]);
    const std::optional<double> expected = numberOf(args[1]);
    const bool hasTolerance = args.size() > 2 && !args[2].isNil();
    const std::optional<double> tolerance =
        hasTolerance ? numberOf(args[2]) : std::optional<double>(0.0001);
    if (!tolerance) throwPlainError("expect_near: the tolerance must be a number");
    if (actual && expected && std::fabs(*actual - *expected) <= *tolerance) return {};
    std::string text = "expected: " + showValue(args[1]);
    if (tolerance) {
        text += ", give or take " + (hasTolerance ? showValue(args[2]) : std::string("0.0001"));
    }
    text += "\nactual:   " + showValue(args[0]);
    return fail(interpreter, withMessage(args, 3, text));
}

/// `expect_error(f, text, argument...)`: the message of the error that a call raises.
Variable expectError(DovrelScript& interpreter, Arguments args) {
    if (args.empty()) throwPlainError("expect_error(f[, text, ...]) requires a function");
    std::vector<Variable> call = {args[0]};
    for (std::size_t i = 2; i < args.size(); ++i) call.push_back(args[i]);
    const Variable result = interpreter.protectedCall(Arguments(call));
    if (interpreter.softErrorUnwinding() || result.type != VarType::Multi) return {};
    const std::vector<Variable>& values = result.asMulti()->values;
    if (values.empty()) return {};
    if (isTruthy(values[0])) {
        std::string text = "expected an error";
        if (values.size() > 1) text += ", and the call gave " + showValue(values[1]);
        return fail(interpreter, text);
    }
    const std::string message = values.size() > 1 ? values[1].toString() : std::string();
    if (args.size() > 1 && args[1].type == VarType::String &&
        message.find(args[1].asString()) == std::string::npos) {
        return fail(interpreter, "expected an error with: " + args[1].asString() +
                                     "\nactual:                 " + message);
    }
    return Variable(message);
}

Variable skipTest(DovrelScript&, Arguments args) {
    throw TestSkipped{args.empty() ? std::string() : args[0].toString()};
}

}  // namespace

std::string describeDifference(const Variable& actual, const Variable& expected) {
    const auto difference = Comparison().run(actual, expected);
    if (!difference) return {};
    if (isLongText(difference->actual) && difference->expected.type == VarType::String) {
        const std::string& wanted = difference->expected.asString();
        const std::string& got = difference->actual.asString();
        std::string text = "the texts differ";
        if (!difference->path.empty()) text += " at " + difference->path;
        std::string lines = unifiedDifference(wanted, got, "expected", "actual");
        if (lines.empty()) return text + ": one of them ends in a line end";
        lines.pop_back();
        return text + '\n' + lines;
    }
    std::string text = "expected: " + showValue(expected) + "\nactual:   " + showValue(actual);
    if (!difference->path.empty()) {
        text += "\nat " + difference->path + ": expected " +
                (difference->isExtra ? "nothing" : showValue(difference->expected)) + ", actual " +
                (difference->isMissing ? "nothing" : showValue(difference->actual));
    }
    return text;
}

void addTestLibrary(DovrelScript& interpreter) {
    interpreter.pushFunction("expect_equal", expectEqual);
    interpreter.pushFunction("expect_near", expectNear);
    interpreter.pushFunction("expect_error", expectError);
    interpreter.pushFunction("skip", skipTest);
}

bool isExpectation(const std::string& message) {
    return !message.empty() && message == lastExpectation();
}
