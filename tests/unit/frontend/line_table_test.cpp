// Lines that are read when they are needed are the lines that are read at once.
#include "frontend/line_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "exec/bytecode_file.h"
#include "exec/bytecode_program.h"
#include "frontend/tokeniser.h"
#include "interpreter/dovrel_script.h"

namespace {

/// Texts of fragments that matter to the front end, in no order that makes sense.
class RandomText {
public:
    explicit RandomText(std::uint32_t seed) : random_(seed) {}

    std::string next() {
        static constexpr auto kFragments = std::to_array<std::string_view>(
            {"\n",     "\n",         "\n",      "\n",     ";",         " ",       "\t",    "\r",
             "\v",     "if ",        "elseif",  "else",   "end",       "while ",  "for ",  "repeat",
             "until ", "local ",     "native ", "decay ", "function ", "return ", "break", " in ",
             "not ",   "and",        "a",       "b1",     "x_$",       "true",    "flse",  "0",
             "12",     "4294967296", "1.5",     "1.2.3",  "7up",       "=",       "==",    "+=",
             "-",      "~=",         "~",       "&&",     "&",         "@@ c",    "@",     "(",
             ")",      "[",          "]",       "{",      "}",         ",",       ":",     ".",
             "\"",     "'",          "\\",      "\"t\"",  "'u v'",     "\\\n"});
        std::string text;
        for (auto left = random_() % 60; left > 0; --left) {
            text += kFragments[random_() % kFragments.size()];
        }
        return text;
    }

private:
    std::mt19937 random_;
};

class LineTableTest : public testing::Test {
protected:
    std::unique_ptr<UnreadLines> unread(const std::string& text) {
        return std::make_unique<UnreadLines>(interpreter, text);
    }
    /// What stops the reading, with the line that the report shows.
    template <typename Reading>
    static std::string errorOf(const Reading& reading) {
        try {
            reading();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return {};
    }

    DovrelScript interpreter;
};

void expectSameLine(const ParsedScriptLine& line, const ParsedScriptLine& wanted) {
    EXPECT_EQ(line.source, wanted.source);
    EXPECT_EQ(line.lineNumber, wanted.lineNumber);
    EXPECT_EQ(line.tokens, wanted.tokens);
    ASSERT_EQ(line.tokenAnalysis.size(), wanted.tokenAnalysis.size());
    for (std::size_t i = 0; i < line.tokenAnalysis.size(); ++i) {
        EXPECT_EQ(line.tokenAnalysis[i].name, wanted.tokenAnalysis[i].name);
        EXPECT_EQ(line.tokenAnalysis[i].intValue, wanted.tokenAnalysis[i].intValue);
    }
    EXPECT_EQ(line.kind, wanted.kind);
    EXPECT_EQ(line.assignmentScope, wanted.assignmentScope);
    EXPECT_EQ(line.matchingEnd, wanted.matchingEnd);
    EXPECT_EQ(line.nextBranch, wanted.nextBranch);
    EXPECT_EQ(line.isFastAssignment, wanted.isFastAssignment);
    EXPECT_EQ(line.assignment == nullptr, wanted.assignment == nullptr);
    EXPECT_EQ(line.condition.valid, wanted.condition.valid);
    EXPECT_EQ(line.expression.nodes.size(), wanted.expression.nodes.size());
}

TEST_F(LineTableTest, HasTheLinesThatParsingGives) {
    RandomText texts(1);
    std::size_t lines = 0;
    std::size_t errors = 0;
    for (int i = 0; i < 10000; ++i) {
        const std::string text = texts.next();
        SCOPED_TRACE(text);
        std::vector<ParsedScriptLine> wanted;
        const std::string error = errorOf([&] { wanted = interpreter.parseLines(text); });
        const std::string shown = *interpreter.currentLine;
        LineTable table;
        // A line whose strings the splitter has seen closed must be one that can be read later.
        ASSERT_EQ(errorOf([&] { table = LineTable(unread(text)); }), error);
        EXPECT_EQ(*interpreter.currentLine, shown);
        if (!error.empty()) {
            ++errors;
            continue;
        }
        ASSERT_EQ(table.size(), wanted.size());
        const LineTable whole(wanted);
        for (std::size_t at = 0; at < wanted.size(); ++at) {
            SCOPED_TRACE(at);
            const LineFacts facts = table.factsOf(at);
            const LineFacts known = whole.factsOf(at);
            EXPECT_EQ(facts.kind, known.kind);
            EXPECT_EQ(facts.isEmpty, known.isEmpty);
            EXPECT_EQ(facts.isLocal, known.isLocal);
            EXPECT_EQ(facts.isNumericFor, known.isNumericFor);
            EXPECT_EQ(facts.matchingEnd, known.matchingEnd);
            EXPECT_EQ(facts.nextBranch, known.nextBranch);
            EXPECT_EQ(table.scopeOf(at), whole.scopeOf(at));
            EXPECT_EQ(table.lineNumberOf(at), whole.lineNumberOf(at));
            if (table.isPlainStore(at)) {
                ASSERT_NE(wanted[at].assignment, nullptr);
                EXPECT_TRUE(wanted[at].assignment->isSimple());
            }
            expectSameLine(table[at], wanted[at]);
            ++lines;
        }
    }
    EXPECT_GT(lines, 10000U);
    EXPECT_GT(errors, 300U);
}

TEST_F(LineTableTest, ReadsALineOnce) {
    LineTable table(unread("a = 1\nb = 2"));
    const ParsedScriptLine* first = &table[0];
    EXPECT_EQ(&table[1], &table.forRunning(1));
    EXPECT_EQ(&table[0], first);
}

TEST_F(LineTableTest, UsesOneRecordForLinesThatRunOnce) {
    LineTable table(unread("a = 1\nb = f(\"two\", 3)\nlocal c = 4"));
    const std::vector<ParsedScriptLine> wanted =
        interpreter.parseLines("a = 1\nb = f(\"two\", 3)\nlocal c = 4");
    for (std::size_t i = 0; i < 3; ++i) table.setRunsOnce(i);
    const ParsedScriptLine* first = &table.forRunning(0);
    for (const std::size_t i : {0U, 1U, 2U, 1U, 1U, 0U}) {
        const ParsedScriptLine& line = table.forRunning(i);
        EXPECT_EQ(&line, first);
        expectSameLine(line, wanted[i]);
        EXPECT_TRUE(table.isPassing(i));
    }
    // A look leaves it as it is.
    ParsedScriptLine own;
    EXPECT_EQ(&table.lookAt(2, own), &own);
    expectSameLine(own, wanted[2]);
    expectSameLine(table.forRunning(0), wanted[0]);
    // Somebody else wants to keep one.
    expectSameLine(table[1], wanted[1]);
    EXPECT_FALSE(table.isPassing(1));
    EXPECT_EQ(&table.lookAt(1, own), &table[1]);
    EXPECT_EQ(&table.forRunning(1), &table[1]);
    EXPECT_NE(&table.forRunning(1), first);
}

TEST_F(LineTableTest, TakesAParseThatIsTooLongForItsMemory) {
    std::string text = "x = f(";
    for (int i = 0; i < 500; ++i) text += std::to_string(i) + " + a, ";
    LineTable table(unread(text + "1)\ny = 1\n" + text + "2)"));
    for (std::size_t i = 0; i < 3; ++i) table.setRunsOnce(i);
    const std::vector<ParsedScriptLine> wanted =
        interpreter.parseLines(text + "1)\ny = 1\n" + text + "2)");
    for (const std::size_t i : {0U, 1U, 2U}) expectSameLine(table.forRunning(i), wanted[i]);
}

TEST_F(LineTableTest, ReadsALongLineWithItsText) {
    std::string text(5000, '-');
    LineTable table(unread("x = 1\ny = " + text + "1"));
    for (std::size_t i = 0; i < 2; ++i) table.setRunsOnce(i);
    EXPECT_TRUE(table.isPassing(0));
    EXPECT_FALSE(table.isPassing(1));
}

TEST_F(LineTableTest, IsCopiedWithAllRecords) {
    const LineTable table(unread("a = 1\nif a\nend"));
    const LineTable copy = table;
    const std::vector<ParsedScriptLine> wanted = interpreter.parseLines("a = 1\nif a\nend");
    ASSERT_EQ(copy.records().size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) expectSameLine(copy.records()[i], wanted[i]);
}

TEST_F(LineTableTest, MakesTheSameProgram) {
    const std::string text =
        "a = 1\nb = a, 2\nprint(a)\nlocal c\nif a == 1\n for i = 1, 3\n  a += i\n end\nelse\n "
        "f(\nend"
        "\n)\nend\nfunction f(x)\n return x\nend\nrepeat\n a = f(a) x\nuntil a > 9\nwhile "
        "b\nbreak\nend";
    const std::shared_ptr<BytecodeProgram> read = interpreter.readProgram(text, true);
    EXPECT_EQ(serializeBytecode(*read),
              serializeBytecode(interpreter.compileToBytecodeInternal(text)));
    EXPECT_TRUE(std::any_of(read->code.begin(), read->code.end(), [](const auto& instruction) {
        return instruction.opcode == static_cast<std::uint16_t>(BytecodeOp::Unread);
    }));
}

TEST_F(LineTableTest, KeepsOfAProgramThatRunsOnceWhatMayRunAgain) {
    const std::shared_ptr<BytecodeProgram> program = interpreter.readProgram(
        "a = 1\nif a == 1\n b = 2\nend\nfunction f(x)\n y = x\n return y\nend\nfunction g()\n z = "
        "1\n"
        " return z\nend\nf(1)\nf(2)",
        true);
    static_cast<void>(interpreter.runBytecodeProgram(program));
    for (const std::size_t line : {0U, 1U, 2U, 12U, 13U}) {
        EXPECT_TRUE(program->lines.isPassing(line)) << line;
    }
    for (const std::size_t line : {5U, 6U, 9U, 10U}) {
        EXPECT_FALSE(program->lines.isPassing(line)) << line;
    }
}

TEST_F(LineTableTest, TokensAndTheirClassesAreThoseOfTheSingleSteps) {
    RandomText texts(2);
    std::size_t tokens = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string text = texts.next();
        std::replace(text.begin(), text.end(), '\n', ' ');
        std::vector<TokenAnalysis> analysis;
        if (!errorOf([&] { interpreter.readTokens(text, analysis); }).empty()) continue;
        std::size_t at = 0;
        std::string_view token;
        std::size_t count = 0;
        for (; nextToken(text, at, token); ++count) {
            ASSERT_LT(count, analysis.size()) << text;
            EXPECT_EQ(interpreter.tokenTexts[count], token);
            const TokenAnalysis wanted = interpreter.analyseToken(token);
            const TokenAnalysis& known = analysis[count];
            EXPECT_EQ(known.name, wanted.name) << token;
            EXPECT_EQ(known.intValue, wanted.intValue) << token;
            EXPECT_EQ(known.isIdentifier, wanted.isIdentifier) << token;
            EXPECT_EQ(known.isTrue, wanted.isTrue) << token;
            EXPECT_EQ(known.isFalse, wanted.isFalse) << token;
            EXPECT_EQ(known.isNumeric, wanted.isNumeric) << token;
            EXPECT_EQ(known.isFloat, wanted.isFloat) << token;
            EXPECT_EQ(known.hasIntValue, wanted.hasIntValue) << token;
        }
        EXPECT_EQ(analysis.size(), count) << text;
        tokens += count;
    }
    EXPECT_GT(tokens, 10000U);
}

}  // namespace
