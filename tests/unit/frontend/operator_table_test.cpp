#include "frontend/operator_table.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace {

int precedenceOf(std::string_view token) {
    return kPrecedence[static_cast<std::size_t>(classifyBinaryOperator(token))];
}

TEST(ClassifyBinaryOperator, NumbersAllOperators) {
    EXPECT_EQ(classifyBinaryOperator("or"), 1);
    EXPECT_EQ(classifyBinaryOperator("||"), 1);
    EXPECT_EQ(classifyBinaryOperator("and"), 2);
    EXPECT_EQ(classifyBinaryOperator("&&"), 2);
    EXPECT_EQ(classifyBinaryOperator("=="), 3);
    EXPECT_EQ(classifyBinaryOperator("!="), 4);
    EXPECT_EQ(classifyBinaryOperator("~="), 4);
    EXPECT_EQ(classifyBinaryOperator("<"), 5);
    EXPECT_EQ(classifyBinaryOperator(">"), 6);
    EXPECT_EQ(classifyBinaryOperator("<="), 7);
    EXPECT_EQ(classifyBinaryOperator(">="), 8);
    EXPECT_EQ(classifyBinaryOperator("+"), 9);
    EXPECT_EQ(classifyBinaryOperator("-"), 10);
    EXPECT_EQ(classifyBinaryOperator("*"), 11);
    EXPECT_EQ(classifyBinaryOperator("/"), 12);
    EXPECT_EQ(classifyBinaryOperator("\\"), 13);
    EXPECT_EQ(classifyBinaryOperator("%"), 14);
    EXPECT_EQ(classifyBinaryOperator("^"), 15);
}

TEST(ClassifyBinaryOperator, GivesZeroForEverythingElse) {
    for (const char* token :
         {"",    "=", "+=", "-=", "*=", "/=", "\\=", "%=",    "^=",   "!",  "~",   "&",    "|",
          "#",   "(", ")",  "[",  "]",  "{",  "}",   ",",     ":",    ";",  "not", "Or",   "AND",
          "xor", "a", "1",  "..", "<<", "**", "===", "\"+\"", "\xFF", " +", "+ ",  "andy", "o"}) {
        EXPECT_EQ(classifyBinaryOperator(token), 0) << token;
    }
}

TEST(Precedence, RisesFromOrToPower) {
    EXPECT_EQ(precedenceOf("or"), 1);
    EXPECT_EQ(precedenceOf("and"), 2);
    EXPECT_EQ(precedenceOf("=="), 3);
    EXPECT_EQ(precedenceOf("~="), 3);
    for (const char* token : {"<", ">", "<=", ">="}) EXPECT_EQ(precedenceOf(token), 4) << token;
    EXPECT_EQ(precedenceOf("+"), 5);
    EXPECT_EQ(precedenceOf("-"), 5);
    for (const char* token : {"*", "/", "\\", "%"}) EXPECT_EQ(precedenceOf(token), 6) << token;
    EXPECT_EQ(precedenceOf("^"), 7);
    EXPECT_EQ(precedenceOf("="), 0);
}

TEST(RightLevel, IsOneHigherForAllButPower) {
    EXPECT_EQ(rightLevel(kOr), 2);
    EXPECT_EQ(rightLevel(kAnd), 3);
    EXPECT_EQ(rightLevel(kNotEqual), 4);
    EXPECT_EQ(rightLevel(kGreaterEqual), 5);
    EXPECT_EQ(rightLevel(kSubtract), 6);
    EXPECT_EQ(rightLevel(kModulo), 7);
    EXPECT_EQ(rightLevel(kPower), 7);
}

TEST(IsStandaloneNotBoundary, KnowsWhatCannotBeginAnOperand) {
    for (const char* token : {"",   ")",  "]",  "}",   ",",  "%",    "*",      "+",   "-",
                              "/",  "\\", "^",  "<",   ">",  "<=",   ">=",     "==",  "!=",
                              "~=", "&&", "||", "and", "or", "else", "elseif", "end", "until"}) {
        EXPECT_TRUE(isStandaloneNotBoundary(token)) << token;
    }
    for (const char* token : {"(", "[", "{", "!", "#", "not", "a", "1", "\"a\"", "=", ":", ";",
                              "+=", "true", "if", "while", "return", "nil", "..."}) {
        EXPECT_FALSE(isStandaloneNotBoundary(token)) << token;
    }
}

}  // namespace
