// The functions for C: who owns what, what fails and how that is told.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "dovrel/dovrel_c.h"

namespace {

struct Free {
    void operator()(dovrel_interpreter* interpreter) const { dovrel_free(interpreter); }
    void operator()(dovrel_value* value) const { dovrel_value_free(value); }
};
using Interpreter = std::unique_ptr<dovrel_interpreter, Free>;
using Value = std::unique_ptr<dovrel_value, Free>;

Value run(const Interpreter& interpreter, std::string_view text, const char* name = nullptr) {
    return Value(dovrel_run(interpreter.get(), text.data(), text.size(), name));
}

std::int32_t integerOf(const Value& value) {
    std::int32_t number = -1;
    EXPECT_TRUE(dovrel_to_integer(value.get(), &number)) << dovrel_last_error()->message;
    return number;
}

std::string textOf(const Value& value) {
    std::size_t length = 0;
    const char* const bytes = dovrel_bytes(value.get(), &length);
    if (bytes == nullptr) return std::string("failed: ") + dovrel_last_error()->message;
    EXPECT_EQ(bytes[length], '\0');
    return {bytes, length};
}

TEST(CInterface, RunsCallsAndKeepsGlobals) {
    const Interpreter interpreter(dovrel_new(nullptr));
    ASSERT_NE(interpreter, nullptr);
    EXPECT_EQ(integerOf(run(interpreter,
                            "base = 40\nfunction add(a, b)\n return a + b\nend\n"
                            "return base + 2")),
              42);
    const Value two(dovrel_integer(2));
    const Value three(dovrel_integer(3));
    const dovrel_value* const both[] = {two.get(), three.get()};
    EXPECT_EQ(integerOf(Value(dovrel_call(interpreter.get(), "add", both, 2))), 5);
    const Value add(dovrel_global(interpreter.get(), "add"));
    EXPECT_EQ(dovrel_kind_of(add.get()), DOVREL_FUNCTION);
    EXPECT_EQ(integerOf(Value(dovrel_call_value(add.get(), both, 2))), 5);
    const std::string_view bytes("a\0b", 3);
    const Value text(dovrel_text(bytes.data(), bytes.size()));
    ASSERT_TRUE(dovrel_set_global(interpreter.get(), "text", text.get()));
    EXPECT_EQ(integerOf(run(interpreter, "return len(text)")), 3);
    EXPECT_EQ(textOf(run(interpreter, "return text")), bytes);
    EXPECT_EQ(textOf(Value(dovrel_shown(three.get()))), "3");
}

TEST(CInterface, KindsAndConversions) {
    const Interpreter interpreter(dovrel_new(nullptr));
    const auto kindOf = [&](std::string_view text) {
        return dovrel_kind_of(run(interpreter, text).get());
    };
    EXPECT_EQ(kindOf("return not"), DOVREL_NIL);
    EXPECT_EQ(kindOf("return true"), DOVREL_BOOLEAN);
    EXPECT_EQ(kindOf("return 1"), DOVREL_INTEGER);
    EXPECT_EQ(kindOf("return 1.5"), DOVREL_FLOAT);
    EXPECT_EQ(kindOf("return ''"), DOVREL_TEXT);
    EXPECT_EQ(kindOf("return [1]"), DOVREL_ARRAY);
    EXPECT_EQ(kindOf("return {a: 1}"), DOVREL_TABLE);
    EXPECT_EQ(kindOf("function f()\n return 1, 2\nend\nreturn f()"), DOVREL_SEVERAL);
    EXPECT_EQ(dovrel_kind_of(nullptr), DOVREL_NIL);
    bool truth = false;
    EXPECT_TRUE(dovrel_to_boolean(run(interpreter, "return 1 < 2").get(), &truth));
    EXPECT_TRUE(truth);
    double number = 0;
    EXPECT_TRUE(dovrel_to_float(Value(dovrel_float(0.5)).get(), &number));
    EXPECT_EQ(number, 0.5);
    EXPECT_TRUE(dovrel_to_float(Value(dovrel_integer(2)).get(), &number));
    EXPECT_EQ(number, 2);
    EXPECT_FALSE(dovrel_is_true(Value(dovrel_boolean(false)).get()));
    EXPECT_TRUE(dovrel_is_true(Value(dovrel_integer(0)).get()));
    // What is refused leaves the place alone.
    EXPECT_FALSE(dovrel_to_float(nullptr, &number));
    EXPECT_EQ(number, 2);
    EXPECT_STREQ(dovrel_last_error()->message, "expected a number, and got nil");
}

TEST(CInterface, ContainersAreReferences) {
    const Interpreter interpreter(dovrel_new(nullptr));
    const Value list(dovrel_array(interpreter.get()));
    const Value table(dovrel_table(interpreter.get()));
    const Value one(dovrel_integer(1));
    const Value seven(dovrel_integer(7));
    ASSERT_TRUE(dovrel_push(list.get(), one.get()));
    ASSERT_TRUE(dovrel_push(list.get(), nullptr));
    ASSERT_TRUE(dovrel_set(list.get(), one.get(), seven.get()));
    ASSERT_TRUE(dovrel_set_field(table.get(), "list", list.get()));
    ASSERT_TRUE(dovrel_set_field(table.get(), "b", one.get()));
    ASSERT_TRUE(dovrel_set_global(interpreter.get(), "table", table.get()));
    run(interpreter, "push(table['list'], 'three')");
    std::size_t size = 0;
    ASSERT_TRUE(dovrel_size(list.get(), &size));
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(integerOf(Value(dovrel_get_at(list.get(), 1))), 7);
    EXPECT_EQ(textOf(Value(dovrel_get_at(Value(dovrel_get_field(table.get(), "list")).get(), 3))),
              "three");
    EXPECT_EQ(integerOf(Value(dovrel_get(list.get(), one.get()))), 7);

    std::string seen;
    const auto visit = [](const dovrel_value* key, const dovrel_value* value, void* user) {
        std::string& text = *static_cast<std::string*>(user);
        text += textOf(Value(dovrel_shown(key))) + '=' + textOf(Value(dovrel_shown(value))) + ' ';
        return text.size() < 20;
    };
    EXPECT_TRUE(dovrel_each(table.get(), visit, &seen));
    EXPECT_EQ(seen, "b=1 list=[7, not, three] ");
    seen.clear();
    EXPECT_TRUE(dovrel_each(list.get(), visit, &seen));
    EXPECT_EQ(seen, "1=7 2=not 3=three ");
    EXPECT_FALSE(dovrel_each(one.get(), visit, &seen));
    EXPECT_STREQ(dovrel_last_error()->message, "expected an array or a table, and got an int");
}

TEST(CInterface, ErrorsHaveTheirParts) {
    const Interpreter interpreter(dovrel_new(nullptr));
    EXPECT_EQ(run(interpreter, "a = 1\n  b = len(lst)\n", "scripts/main.dv"), nullptr);
    const dovrel_error* const error = dovrel_last_error();
    EXPECT_EQ(error->reason, DOVREL_BY_SCRIPT);
    EXPECT_STREQ(error->message, "len(x) expects an array, table, or string");
    EXPECT_STREQ(error->script, "scripts/main.dv");
    EXPECT_EQ(error->line, 2);
    EXPECT_STREQ(error->near_token, "b");
    EXPECT_STREQ(error->source_line, "b = len(lst)");
    EXPECT_STREQ(error->hint, "check spelling, operators, parentheses, and quote matching");
    EXPECT_EQ(std::string_view(error->report).substr(0, 19), "DovrelScript error:");
    // Another thread has failures of its own.
    std::thread([] { EXPECT_STREQ(dovrel_last_error()->message, ""); }).join();
    EXPECT_EQ(dovrel_call(interpreter.get(), "nobody", nullptr, 0), nullptr);
    EXPECT_EQ(dovrel_last_error()->reason, DOVREL_BY_USAGE);
    EXPECT_STREQ(dovrel_last_error()->message, "there is no function 'nobody'");
    EXPECT_EQ(dovrel_last_error()->line, 0);
    EXPECT_STREQ(dovrel_last_error()->hint, "");
    EXPECT_EQ(dovrel_run(nullptr, "", 0, nullptr), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "there is no interpreter");
    EXPECT_EQ(dovrel_run_file(interpreter.get(), "no/such.dv"), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "Failed to open script file: no/such.dv");
    EXPECT_EQ(integerOf(run(interpreter, "return a")), 1);
}

TEST(CInterface, NoExceptionOfTheHostLeavesIt) {
    const Interpreter interpreter(dovrel_new(nullptr));
    const Value list(dovrel_array(interpreter.get()));
    ASSERT_TRUE(dovrel_push(list.get(), nullptr));
    using Visit = bool (*)(const dovrel_value*, const dovrel_value*, void*);
    const auto messageOf = [&](Visit visit) {
        EXPECT_FALSE(dovrel_each(list.get(), visit, nullptr));
        return std::string(dovrel_last_error()->message);
    };
    EXPECT_EQ(messageOf([](const dovrel_value*, const dovrel_value*, void*) -> bool {
                  throw std::runtime_error("of the host");
              }),
              "of the host");
    EXPECT_EQ(dovrel_last_error()->reason, DOVREL_BY_USAGE);
    EXPECT_EQ(messageOf([](const dovrel_value*, const dovrel_value*, void*) -> bool { throw 42; }),
              "an exception of an unknown type");
    EXPECT_EQ(messageOf([](const dovrel_value*, const dovrel_value*, void*) -> bool {
                  throw std::bad_alloc();
              }),
              "out of memory");
    EXPECT_EQ(dovrel_last_error()->reason, DOVREL_MEMORY);
}

struct Counter {
    int calls = 0;
    int releases = 0;
    Value kept;
};

void release(void* user) { ++static_cast<Counter*>(user)->releases; }

/// Counts, keeps its first argument, and gives two results.
bool count(dovrel_interpreter*, const dovrel_value* const* arguments, std::size_t size,
           dovrel_value** result, void* user) {
    Counter& counter = *static_cast<Counter*>(user);
    ++counter.calls;
    if (size == 0) return dovrel_fail("count what?");
    counter.kept.reset(dovrel_copy(arguments[0]));
    const Value calls(dovrel_integer(counter.calls));
    const dovrel_value* const values[] = {calls.get(), arguments[0]};
    *result = dovrel_several(values, 2);
    return true;
}

TEST(CInterface, NativesHaveAUserAndGiveErrors) {
    Counter counter;
    Interpreter interpreter(dovrel_new(nullptr));
    ASSERT_TRUE(dovrel_define(interpreter.get(), "count", count, &counter, release));
    EXPECT_EQ(textOf(run(interpreter, "n, t = count('x')\nreturn toString(n) + t")), "1x");
    EXPECT_EQ(textOf(counter.kept), "x");
    EXPECT_EQ(textOf(run(interpreter, "ok, message = pcall(count)\nreturn message")),
              "count what?");
    EXPECT_EQ(run(interpreter, "x = 1\ncount()", "main.dv"), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "count what?");
    EXPECT_EQ(dovrel_last_error()->line, 2);
    const auto mute = [](dovrel_interpreter*, const dovrel_value* const*, std::size_t,
                         dovrel_value**, void*) { return false; };
    ASSERT_TRUE(dovrel_define(interpreter.get(), "mute", mute, nullptr, nullptr));
    EXPECT_EQ(run(interpreter, "mute()"), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "a function of the host has failed");

    EXPECT_EQ(counter.releases, 0);
    EXPECT_EQ(dovrel_function(nullptr, count, &counter, release), nullptr);
    EXPECT_EQ(counter.releases, 1);
    const Value function(dovrel_function(interpreter.get(), count, &counter, release));
    interpreter.reset();
    EXPECT_EQ(counter.releases, 3);
    // A value that is left of it comes to nothing.
    EXPECT_EQ(dovrel_call_value(function.get(), nullptr, 0), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "the interpreter has ended");
}

TEST(CInterface, ANativeMayRunScriptsAndPassTheirErrorsOn) {
    const Interpreter interpreter(dovrel_new(nullptr));
    const auto attempt = [](dovrel_interpreter* inner, const dovrel_value* const* arguments,
                            std::size_t, dovrel_value** result, void*) {
        std::size_t length = 0;
        const char* const text = dovrel_bytes(arguments[0], &length);
        if (text == nullptr) return false;
        *result = dovrel_run(inner, text, length, "inner.dv");
        return *result != nullptr;
    };
    ASSERT_TRUE(dovrel_define(interpreter.get(), "attempt", attempt, nullptr, nullptr));
    EXPECT_EQ(integerOf(run(interpreter, "return attempt('return 6 * 7')")), 42);
    EXPECT_EQ(run(interpreter, "attempt(5)"), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "expected a string, and got an int");
    EXPECT_EQ(run(interpreter, "attempt(\"error('inside')\")", "outer.dv"), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "inside");
    // The end of a turn is the scheduler's, and no error of the script.
    EXPECT_EQ(textOf(run(interpreter,
                         "log = 'begun'\n"
                         "decay function turn()\n attempt('kill()')\n log += ', gone on'\nend\n"
                         "turn()\nx = 1\nx = 2\nreturn log")),
              "begun");
}

TEST(CInterface, LimitsAndInterruptionsEndAScript) {
    dovrel_options options = dovrel_sandbox_options();
    EXPECT_FALSE(options.files);
    EXPECT_EQ(options.nanoseconds, 1'000'000'000U);
    options.statements = 100'000;
    options.nanoseconds = 0;
    const Interpreter interpreter(dovrel_new(&options));
    EXPECT_EQ(run(interpreter, "while true\nend"), nullptr);
    EXPECT_EQ(dovrel_last_error()->reason, DOVREL_STATEMENTS);
    EXPECT_EQ(run(interpreter, "io['open']('x')"), nullptr);
    EXPECT_STREQ(dovrel_last_error()->message, "io['open']: scripts may not use files here");

    const Interpreter endless(dovrel_new(nullptr));
    std::thread button;
    struct User {
        std::thread& button;
        dovrel_interpreter* interpreter;
    } user{button, endless.get()};
    const auto ready = [](dovrel_interpreter*, const dovrel_value* const*, std::size_t,
                          dovrel_value**, void* given) {
        const User& held = *static_cast<User*>(given);
        held.button = std::thread(dovrel_interrupt, held.interpreter);
        return true;
    };
    ASSERT_TRUE(dovrel_define(endless.get(), "ready", ready, &user, nullptr));
    EXPECT_EQ(run(endless, "pcall(ready)\nwhile true\nend"), nullptr);
    EXPECT_EQ(dovrel_last_error()->reason, DOVREL_INTERRUPTED);
    button.join();
}

TEST(CInterface, OutputIsTheHosts) {
    const Interpreter interpreter(dovrel_new(nullptr));
    std::string printed;
    const auto write = [](const char* text, std::size_t length, void* user) {
        static_cast<std::string*>(user)->append(text, length);
    };
    ASSERT_TRUE(dovrel_set_output(interpreter.get(), write, &printed));
    run(interpreter, "print('a', 1)");
    EXPECT_EQ(printed, "a 1\n");
    EXPECT_TRUE(dovrel_set_output(interpreter.get(), nullptr, nullptr));
}

}  // namespace
