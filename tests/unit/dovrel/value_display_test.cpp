// Values as the prompt shows them.
#include "dovrel/value_display.h"

#include <gtest/gtest.h>

#include <string>

#include "dovrel/prompt_session.h"

namespace {

/// What the prompt shows for an expression. `after` runs behind it: what holds itself is never
/// freed unless it is emptied.
std::string shown(const std::string& text, const std::string& after = "") {
    PromptSession session;
    const PromptResult result = session.run(text);
    EXPECT_EQ(result.report, "");
    const std::string value = result.value ? showValue(*result.value) : "";
    EXPECT_EQ(session.run(after).report, "");
    return value;
}

TEST(ShowValue, TellsKindsApart) {
    EXPECT_EQ(shown("1"), "1");
    EXPECT_EQ(shown("1.0"), "1.000000");
    EXPECT_EQ(shown("'1'"), "\"1\"");
    EXPECT_EQ(shown("not"), "not");
    EXPECT_EQ(shown("true"), "true");
    EXPECT_EQ(shown("'a\"b\\\\c\\n\\t'"), "\"a\\\"b\\\\c\\n\\t\"");
    EXPECT_EQ(shown("string[\"char\"](27, 65, 127)"), "\"<1b>A<7f>\"");
    EXPECT_EQ(shown("{b: [1, {}], a: 'x', \"two words\": 1, 10: 2}"),
              "{10: 2, a: \"x\", b: [1, {}], \"two words\": 1}");
}

TEST(ShowValue, ShowsTheParametersOfFunctions) {
    EXPECT_EQ(shown("function f(a, ...); return a; end; f"), "function f(a, ...)");
    EXPECT_EQ(shown("decay function f(); print(1); end; f"), "decay function f()");
    EXPECT_EQ(shown("len"), "function len of the library");
}

TEST(ShowValue, EndsForWhatHoldsItselfAndForWhatIsLong) {
    EXPECT_EQ(shown("a = [1]; push(a, a); a", "clear(a)"), "[1, [...]]");
    EXPECT_EQ(shown("t = {}; t['t'] = t; t", "clear(t)"), "{t: {...}}");
    EXPECT_EQ(shown("a = []; for i = 1, 1000; push(a, i); end; [a[1], a]").substr(0, 10),
              "[1, [1, 2,");
    EXPECT_LT(shown("string['rep']('x', 100000)").size(), 3000U);
    EXPECT_LT(shown("a = []; for i = 1, 1000; push(a, 7); end; a").size(), 500U);
}

TEST(ShowValue, ShowsSeveralResults) {
    EXPECT_EQ(shown("function f(a); return a, 'b'; end; f(1)"), "1, \"b\"");
}

TEST(PromptSession, ShowsNothingForStatementsAndForCallsWithoutAResult) {
    PromptSession session;
    EXPECT_FALSE(session.run("x = 1").value);
    EXPECT_FALSE(session.run("push([], 1); x = 2").value);
    EXPECT_FALSE(session.run("collectGarbage()").value);
    EXPECT_FALSE(session.run("if true; 5; end").value);
    EXPECT_FALSE(session.run("").value);
    EXPECT_TRUE(session.run("x").value);
    EXPECT_EQ(session.ownGlobals(), std::vector<std::string>{"x"});
}

TEST(PromptSession, GoesOnBehindAnError) {
    PromptSession session;
    EXPECT_NE(session.run("function f(n); native m = n; error('oh'); end; f(1)").report, "");
    EXPECT_NE(session.run("x = 'a' * 2").report, "");
    EXPECT_NE(session.run("break").report, "");
    EXPECT_EQ(showValue(*session.run("1 + 1").value), "2");
    EXPECT_EQ(showValue(*session.evaluate("f").value), "function f(n)");
}

TEST(IsUnfinished, AsksForWhatIsOpen) {
    for (const char* text : {"if a", "f(1,", "x = \"a", "function f()", "while a; if b; end",
                             "repeat", "t = {\n a: [1]"}) {
        EXPECT_TRUE(isUnfinished(text)) << text;
    }
    for (const char* text : {"", "x = 1", "if a; end", "repeat; until a", "end", "x = 1)", "1 +",
                             "@@ if", "f(\"(\")", "while a; if b; end; end"}) {
        EXPECT_FALSE(isUnfinished(text)) << text;
    }
}

TEST(InOneLine, JoinsStatements) {
    EXPECT_EQ(inOneLine("function f()\n    return 1  @@ one\nend\n"),
              "function f(); return 1; end");
    EXPECT_EQ(inOneLine("x = [1,\n  2]; y = 2"), "x = [1, 2]; y = 2");
    EXPECT_EQ(inOneLine("@@ nothing"), "");
}

TEST(Complete, OffersNamesWordsKeysAndCommands) {
    PromptSession session;
    static_cast<void>(session.run("counts = {red: 1, green: 2}; text = 'a'"));
    const auto candidates = [&](const char* line) { return session.complete(line).candidates; };
    using Names = std::vector<std::string>;
    EXPECT_EQ(candidates("x = cou"), Names{"counts"});
    EXPECT_EQ(candidates("counts[\"r"), Names{"red\"]"});
    EXPECT_EQ(candidates("counts['"), (Names{"green']", "red']"}));
    EXPECT_EQ(candidates("text[\"upp"), Names{"upper\"]"});
    EXPECT_EQ(candidates("nobody[\"u"), Names{});
    EXPECT_EQ(candidates("els"), (Names{"else", "elseif"}));
    EXPECT_EQ(candidates(":lo"), Names{":load"});
    EXPECT_EQ(candidates(":help math[\"fl"), Names{"math[\"floor\"]"});
    EXPECT_EQ(candidates("x = "), Names{});
}

}  // namespace
