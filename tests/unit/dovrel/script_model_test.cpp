// How much work the estimate of kinds takes, which no report shows.
#include "dovrel/script_model.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "dovrel/source_text.h"
#include "host/large_stack.h"

namespace {

/// The steps that it takes to ask for the kinds of each expression in `text`, one after the other,
/// as the checks do. `nodes` becomes the number of expressions.
std::size_t stepsForAll(const std::string& text, std::size_t& nodes) {
    std::size_t steps = 0;
    nodes = 0;
    runOnLargeStack([&] {
        const ParsedSource source(text);
        const ScriptModel model(source, std::vector<bool>(source.lines().size(), true));
        const KindEstimate kinds(model);
        for (const Statement& statement : model.statements()) {
            for (const Expression& value : statement.values) {
                visitExpressions(value, [&](const Expression& expression) {
                    ++nodes;
                    static_cast<void>(kinds.of(expression, statement.function));
                });
            }
        }
        steps = kinds.stepsTaken();
    });
    return steps;
}

std::string repeated(const std::string& part, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += part;
    return text;
}

TEST(KindEstimate, TakesALongLineInOneRound) {
    for (const std::string& text :
         {"x = 1" + repeated(" + 1", 2000), "x = a" + repeated(" or b", 2000),
          "x = " + repeated("- ", 2000) + "1", "x = 1\nx += 1" + repeated(" + x", 2000)}) {
        std::size_t nodes = 0;
        const std::size_t steps = stepsForAll(text + '\n', nodes);
        EXPECT_GT(nodes, 2000U);
        EXPECT_LE(steps, 4 * nodes) << text.substr(0, 20);
    }
}

TEST(KindEstimate, GivesTheSameWhenAskedAgain) {
    const ParsedSource source("x = y\ny = x + 1\nz = y + 'a'\nz = 1\nw = -(z + 2)\n");
    const ScriptModel model(source, std::vector<bool>(source.lines().size(), true));
    const KindEstimate kinds(model);
    for (int round = 0; round < 2; ++round) {
        for (const Statement& statement : model.statements()) {
            const ValueKinds found = kinds.of(statement.values[0], 0);
            EXPECT_EQ(found.isOnlyText(), statement.index == 2) << statement.index;
            EXPECT_EQ(found.isOnlyInt(), statement.index == 3) << statement.index;
        }
    }
}

}  // namespace
