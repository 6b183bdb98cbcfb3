// A text is cut as the front end cuts it, but for what is broken in it.
#include "dovrel/lsp/script_chunks.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dovrel/source_text.h"

namespace {

std::vector<std::string> cutLines(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const SplitChunk chunk = splitChunk(text, at);
        EXPECT_GT(chunk.end, at);
        for (const SplitChunk::Line& line : chunk.lines) lines.push_back(line.split.joined);
        at = chunk.end;
    }
    return lines;
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    const SourceText source(text);
    for (const SplitLine& line : source.lines()) lines.push_back(line.joined);
    return lines;
}

using Lines = std::vector<std::string>;

}  // namespace

TEST(ScriptChunks, SoundTextsAreCutAsTheFrontEndCutsThem) {
    for (const char* text : {
             "x = 1\ny = 2\n",
             "\n\n  x = 1  \n\t\n",
             "a = 1; b = 2;; c = 3\n",
             "f(1,\n  2, @@ two\n\n  3)\ny = 1\n",
             "t = {\n  a: 1, b: [1,\n 2]}; x = t\n",
             "s = \"one\n  two\"\nx = 1\n",
             "s = 'it\\'s \\\\' + \"@@; (\"\n",
             "s = \"a\\\nb\"\n",
             "x = 1 @@ (\ny = 2",
             "a = 1\r\nf(\r\n2)\r\n",
             "x = [\nif,\nend_of\n]\ny = 1\n",
             ") x = 1\n]\n",
         }) {
        EXPECT_EQ(cutLines(text), splitLines(text)) << text;
    }
}

TEST(ScriptChunks, AStringThatTheNextLinesDoNotCloseEndsWithItsLine) {
    EXPECT_EQ(cutLines("x = \"open\ny = 1\n"), (Lines{"x = \"open", "y = 1"}));
    // The quote that should open the next string closes this one, and a word touches it.
    EXPECT_EQ(cutLines("print(\"open)\nprint(\"two\")\n"),
              (Lines{"print(\"open)", "print(\"two\")"}));
    EXPECT_EQ(cutLines("x = \"open\nprint(\"\")\n"), (Lines{"x = \"open", "print(\"\")"}));
    const SplitChunk chunk = splitChunk("x = 'open\n", 0);
    ASSERT_EQ(chunk.lines.size(), 1U);
    EXPECT_EQ(chunk.lines[0].closer, '\'');
}

TEST(ScriptChunks, AnOpenBracketEndsInFrontOfAStatement) {
    EXPECT_EQ(cutLines("f(1,\nfunction g()\nend\n"), (Lines{"f(1,", "function g()", "end"}));
    EXPECT_EQ(cutLines("t = {a: 1,\n  if x\n"), (Lines{"t = {a: 1,", "if x"}));
    EXPECT_EQ(cutLines("f(1\nend @@ note\nend\n").size(), 2U);
    EXPECT_TRUE(splitChunk("f(1,\nreturn 2\n", 0).isOpen);
    EXPECT_FALSE(splitChunk("f(1,\n2)\n", 0).isOpen);
}

TEST(ScriptChunks, ReachTellsWhatHasBeenLookedAt) {
    // Nothing behind a line that ends concerns it.
    EXPECT_EQ(splitChunk("x = 1\ny = 2\n", 0).reach, 6U);
    // A text may go on at its end.
    EXPECT_EQ(splitChunk("x = 1", 0).reach, 6U);
    // The search for the end of a string has gone to the end of the text.
    EXPECT_GT(splitChunk("x = \"open\ny = 2\n", 0).reach, 16U);
}
