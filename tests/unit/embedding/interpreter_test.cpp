// The library as a host sees it: values, calls, natives, errors, redirected output and input.
#include <gtest/gtest.h>

#include <clocale>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/dovrel.h"

namespace {

using dovrel::Error;
using dovrel::Interpreter;
using dovrel::Kind;
using dovrel::Reason;
using dovrel::Value;

/// The Error that `work` raises.
template <class Work>
Error errorOf(Work work) {
    try {
        work();
    } catch (const Error& error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return Error("none");
}

TEST(Embedding, GivesTheValueOfAScript) {
    Interpreter interpreter;
    EXPECT_EQ(interpreter.run("return 6 * 7").as<int>(), 42);
    EXPECT_EQ(interpreter.run("'a' + 'b'").as<std::string>(), "ab");
    EXPECT_EQ(interpreter.run("return 7 / 2").as<double>(), 3.5);
    EXPECT_TRUE(interpreter.run("return 1 < 2").as<bool>());
    EXPECT_TRUE(interpreter.run("x = 1").isNil());
    EXPECT_EQ(interpreter.global("x").as<int>(), 1);
}

TEST(Embedding, GlobalsGoBothWays) {
    Interpreter interpreter;
    interpreter.setGlobal("name", "world");
    interpreter.setGlobal("count", 3);
    interpreter.setGlobal("ratio", 0.5);
    interpreter.setGlobal("ready", true);
    EXPECT_EQ(interpreter.run("return name + toString(count) + toString(ratio) + toString(ready)")
                  .as<std::string>(),
              "world30.500000true");
    EXPECT_TRUE(interpreter.global("nobody").isNil());
    EXPECT_EQ(interpreter.global("print").kind(), Kind::Function);
}

TEST(Embedding, CallsFunctionsOfScripts) {
    Interpreter interpreter;
    interpreter.run(
        "function add(a, b)\n native sum = a + b\n return sum\nend\n"
        "function pair(a)\n return a, a + 1\nend\n"
        "function total(...)\n native sum = 0\n for i = 1, 3\n  sum += select(i, ...)\n"
        " end\n return sum\nend");
    EXPECT_EQ(interpreter.call("add", 2, 3).as<int>(), 5);
    EXPECT_EQ(interpreter.call("add", "x", "y").as<std::string>(), "xy");
    const std::vector<Value> both = interpreter.call("pair", 7).spread();
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(both[1].as<int>(), 8);
    EXPECT_EQ(interpreter.call("pair", 7).first().as<int>(), 7);
    const Value add = interpreter.global("add");
    EXPECT_EQ(add(20, 22).as<int>(), 42);
    const Error error = errorOf([&] { interpreter.call("nobody"); });
    EXPECT_EQ(error.reason(), Reason::Usage);
    EXPECT_EQ(error.message(), "there is no function 'nobody'");
}

TEST(Embedding, ContainersAreReferences) {
    Interpreter interpreter;
    Value list = interpreter.arrayOf(std::vector<int>{1, 2, 3});
    interpreter.setGlobal("list", list);
    interpreter.run("push(list, 4)\nlist[1] = 'one'");
    EXPECT_EQ(list.size(), 4U);
    EXPECT_EQ(list[1].as<std::string>(), "one");
    EXPECT_TRUE(list[9].isNil());
    list.set(2, 2.5);
    list.push(interpreter.tableOf({{"deep", 1}}));
    list.set(7, "behind");
    EXPECT_EQ(interpreter.run("return toString(list)").as<std::string>(),
              "[one, 2.500000, 3, 4, {deep: 1}, not, behind]");
    EXPECT_EQ(list[5]["deep"].as<int>(), 1);

    Value table = interpreter.run("return {b: 2, a: 1, c: {1, 2}}");
    table.set("d", 4);
    EXPECT_TRUE(table.erase("b"));
    EXPECT_FALSE(table.erase("b"));
    std::string keys;
    for (const Value& key : table.keys()) keys += key.as<std::string>();
    EXPECT_EQ(keys, "acd");
    EXPECT_EQ(table["c"].size(), 2U);
    EXPECT_EQ(table["c"][2].as<int>(), 2);
    EXPECT_TRUE(table["c"] == table["c"]);
    EXPECT_FALSE(table["c"] == interpreter.arrayOf(std::vector<int>{1, 2}));

    const auto numbers = interpreter.run("return [1, 2, 3]").as<std::vector<int>>();
    EXPECT_EQ(numbers, (std::vector<int>{1, 2, 3}));
    const auto entries = interpreter.run("return {a: 1, b: 2}").as<std::map<std::string, double>>();
    EXPECT_EQ(entries, (std::map<std::string, double>{{"a", 1.0}, {"b", 2.0}}));
}

TEST(Embedding, RefusesWhatIsOfAnotherKind) {
    Interpreter interpreter;
    const auto messageOf = [](auto work) { return std::string(errorOf(work).message()); };
    EXPECT_EQ(messageOf([] { (void)Value("x").as<int>(); }), "expected an int, and got a string");
    EXPECT_EQ(messageOf([] { (void)Value(1.5).as<int>(); }), "expected an int, and got a float");
    EXPECT_EQ(messageOf([] { (void)Value().as<bool>(); }), "expected a boolean, and got nil");
    EXPECT_EQ(messageOf([] { (void)Value(true).as<double>(); }),
              "expected a number, and got a boolean");
    EXPECT_EQ(messageOf([] { (void)Value(3000000000U); }),
              "the number does not fit into the type that it is wanted in");
    EXPECT_EQ(messageOf([] { (void)Value(300).as<std::uint8_t>(); }),
              "the number does not fit into the type that it is wanted in");
    EXPECT_EQ(messageOf([] { (void)Value(1).size(); }),
              "expected an array, a table or a string, and got an int");
    EXPECT_EQ(messageOf([&] { (void)interpreter.makeArray().as<std::string>(); }),
              "expected a string, and got an array");
    EXPECT_EQ(messageOf([] { (void)Value(1)[1]; }), "expected an array or a table, and got an int");
    interpreter.run("function pair()\n return 1, 2\nend");
    EXPECT_EQ(messageOf([&] { (void)interpreter.call("pair").as<int>(); }),
              "expected an int, and got several values");
    EXPECT_EQ(messageOf([&] { interpreter.makeArray().set("x", 1); }),
              "a position of an array is an int from 1 on");
    EXPECT_EQ(messageOf([&] { interpreter.makeTable().set(Value(), 1); }),
              "Table key must be string, number, or bool");
    EXPECT_EQ(messageOf([&] { Value(1)(); }), "expected a function, and got an int");
    EXPECT_EQ(messageOf([&] { interpreter.makeTable().push(1); }),
              "expected an array, and got a table");
    EXPECT_EQ(messageOf([&] { (void)interpreter.global("print").keys(); }),
              "expected an array or a table, and got a function");
    Interpreter other;
    EXPECT_EQ(messageOf([&] { other.setGlobal("x", interpreter.makeArray()); }),
              "the value is of another interpreter");
}

TEST(Embedding, NativesTakeTypedArguments) {
    Interpreter interpreter;
    int calls = 0;
    interpreter.define("scale", [&calls](double number, std::optional<int> times) {
        ++calls;
        return number * times.value_or(2);
    });
    interpreter.define("shout", [](std::string_view text) { return std::string(text) + "!"; });
    interpreter.define("sum", [](const std::vector<int>& numbers) {
        int total = 0;
        for (const int number : numbers) total += number;
        return total;
    });
    interpreter.define("count", [](std::string_view first, dovrel::Arguments rest) {
        return std::string(first) + std::to_string(rest.size());
    });
    interpreter.define("both", [] { return std::vector<Value>{1, "two"}; });
    interpreter.define("again", [](Interpreter& inner, const Value& function) {
        return function(inner.global("base"), 1);
    });
    interpreter.define("nothing", [] {});
    EXPECT_EQ(interpreter.run("return scale(1.5)").as<double>(), 3.0);
    EXPECT_EQ(interpreter.run("return scale(3, 3)").as<double>(), 9.0);
    EXPECT_EQ(interpreter.run("return shout('hi')").as<std::string>(), "hi!");
    EXPECT_EQ(interpreter.run("return sum([1, 2, 3])").as<int>(), 6);
    EXPECT_EQ(interpreter.run("return count('n', 1, 2, 3)").as<std::string>(), "n3");
    EXPECT_EQ(interpreter.run("a, b = both()\nreturn b + toString(a)").as<std::string>(), "two1");
    EXPECT_EQ(interpreter
                  .run("base = 41\nfunction plus(a, b)\n x = a + b\n return x\nend\n"
                       "return again(plus)")
                  .as<int>(),
              42);
    EXPECT_TRUE(interpreter.run("return nothing()").isNil());
    EXPECT_EQ(calls, 2);

    const auto messageOf = [&](const char* script) {
        return std::string(errorOf([&] { interpreter.run(script); }).message());
    };
    EXPECT_EQ(messageOf("scale()"), "scale requires 1 to 2 arguments, and got 0");
    EXPECT_EQ(messageOf("shout()"), "shout requires exactly 1 argument, and got 0");
    EXPECT_EQ(messageOf("count()"), "count requires at least 1 argument, and got 0");
    EXPECT_EQ(messageOf("scale('x')"), "scale: argument 1: expected a number, and got a string");
    EXPECT_EQ(messageOf("sum([1, 'x'])"), "sum: argument 1: expected an int, and got a string");
    EXPECT_EQ(interpreter
                  .run("ok, message = pcall(shout, 1)\n"
                       "return message")
                  .as<std::string>(),
              "shout: argument 1: expected a string, and got an int");
}

TEST(Embedding, ExceptionsOfNativesAreErrorsOfTheScript) {
    Interpreter interpreter;
    interpreter.define("fail", [] { throw std::runtime_error("no such thing"); });
    interpreter.define("alien", [] { throw 42; });
    const Error error = errorOf([&] { interpreter.run("x = 1\nfail()", "main.dv"); });
    EXPECT_EQ(error.reason(), Reason::Script);
    EXPECT_EQ(error.message(), "no such thing");
    EXPECT_EQ(error.line(), 2);
    EXPECT_EQ(interpreter.run("ok, message = pcall(fail)\nreturn message").as<std::string>(),
              "no such thing");
    // What is no standard exception is none of the script's business.
    EXPECT_THROW(interpreter.run("pcall(alien)"), int);
    EXPECT_EQ(interpreter.run("return 1").as<int>(), 1);
}

TEST(Embedding, ErrorsHaveTheirPartsAsFields) {
    Interpreter interpreter;
    const Error error =
        errorOf([&] { interpreter.run("a = 1\n  b = len(lst)\n", "scripts/main.dv"); });
    EXPECT_EQ(error.reason(), Reason::Script);
    EXPECT_FALSE(error.isStop());
    EXPECT_EQ(error.message(), "len(x) expects an array, table, or string");
    EXPECT_EQ(error.script(), "scripts/main.dv");
    EXPECT_EQ(error.line(), 2);
    EXPECT_EQ(error.nearToken(), "b");
    EXPECT_EQ(error.sourceLine(), "b = len(lst)");
    EXPECT_EQ(error.hint(), "check spelling, operators, parentheses, and quote matching");
    EXPECT_EQ(std::string_view(error.what()).substr(0, 19), "DovrelScript error:");
    EXPECT_NE(std::string_view(error.what()).find("\n  hint: check"), std::string_view::npos);
    const Error open = errorOf([&] { interpreter.run("x = 1\nif x\n"); });
    EXPECT_EQ(open.message(), "Missing 'end' for if block");
    EXPECT_EQ(open.script(), "");
}

TEST(Embedding, GoesOnAfterAnError) {
    Interpreter interpreter;
    interpreter.run(
        "function deep(n)\n if n == 0\n  error('bottom')\n end\n"
        " local x = deep(n - 1)\n return x\nend");
    for (int i = 0; i < 3; ++i) {
        const Error error = errorOf([&] { interpreter.call("deep", 20); });
        EXPECT_EQ(error.message(), "bottom");
    }
    EXPECT_EQ(interpreter.run("ok, m = pcall(deep, 3)\nreturn m").as<std::string>(), "bottom");
    EXPECT_THROW(interpreter.run("for i = 1, 10\n local y = nobody()\nend"), Error);
    EXPECT_EQ(interpreter.run("y = 5\nreturn y").as<int>(), 5);
}

TEST(Embedding, AnErrorInARunOfANativeIsTheNatives) {
    Interpreter interpreter;
    std::string seen;
    interpreter.define("attempt", [&](Interpreter& inner, std::string_view text) {
        try {
            inner.run(text);
        } catch (const Error& error) {
            seen = error.message();
            return false;
        }
        return true;
    });
    // The protected call around the native is not the one that the inner script is in.
    EXPECT_EQ(interpreter
                  .run("ok, done = pcall(attempt, \"error('inside')\")\n"
                       "return toString(ok) + toString(done)")
                  .as<std::string>(),
              "truefalse");
    EXPECT_EQ(seen, "inside");
    EXPECT_EQ(interpreter.run("function f()\n attempt('x = nobody()')\n return 3\nend\nreturn f()")
                  .as<int>(),
              3);
}

TEST(Embedding, OutputAndInputAreTheHosts) {
    Interpreter interpreter;
    std::string printed;
    interpreter.setOutput([&](std::string_view text) { printed += text; });
    int line = 0;
    interpreter.setInput([&]() -> std::optional<std::string> {
        if (line == 3) return std::nullopt;
        return "line " + std::to_string(++line);
    });
    interpreter.run(
        "print('a', 1)\nf = io['open']('/dev/stdin')\nprint(f['read']())\n"
        "print(f['read']('*a'))\nprint(f['read']())");
    EXPECT_EQ(printed, "a 1\nline 1\nline 2\nline 3\n\nnot\n");
}

TEST(Embedding, ValuesOutliveTheInterpreterAsNothing) {
    Value list;
    Value text;
    {
        Interpreter interpreter;
        list = interpreter.run("return [1, 2]");
        text = interpreter.run("return 'kept'");
        interpreter.setGlobal("list", list);
    }
    EXPECT_EQ(text.as<std::string>(), "kept");
    EXPECT_EQ(errorOf([&] { (void)list.size(); }).message(), "the interpreter has ended");
}

TEST(Embedding, NativesMayHoldValuesOfTheirInterpreter) {
    auto interpreter = std::make_unique<Interpreter>();
    auto alive = std::make_shared<int>(1);
    const Value list = interpreter->makeArray();
    interpreter->define("add", [list, alive](const Value& value) { list.push(value); });
    interpreter->run("add(1)\nadd(2)\nadd = 0");
    EXPECT_EQ(list.size(), 2U);
    interpreter->define("add", [list, alive] {});
    interpreter.reset();
    EXPECT_EQ(alive.use_count(), 1);
}

TEST(Embedding, NumbersAreWrittenAsInEveryLocale) {
    const char* const before = std::setlocale(LC_ALL, nullptr);
    const std::string kept = before;
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no such locale here";
    Interpreter interpreter;
    EXPECT_EQ(interpreter.run("return toString(toNumber('1.5') + 1.25)").as<std::string>(),
              "2.750000");
    std::setlocale(LC_ALL, kept.c_str());
}

TEST(Embedding, RunsFiles) {
    const std::string path = testing::TempDir() + "dovrel_embedding_file.dv";
    std::FILE* const file = std::fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fputs("x = 20\nreturn x + nobody\n", file);
    std::fclose(file);
    dovrel::Options options = dovrel::Options::sandbox();
    Interpreter interpreter(options);
    const Error error = errorOf([&] { interpreter.runFile(path); });
    EXPECT_EQ(error.script(), path);
    EXPECT_EQ(error.line(), 2);
    EXPECT_EQ(interpreter.global("x").as<int>(), 20);
    EXPECT_EQ(errorOf([&] { interpreter.runFile("no/such.dv"); }).message(),
              "Failed to open script file: no/such.dv");
    std::remove(path.c_str());
}

}  // namespace
