// A program that plug-ins extend. It offers them natives in a table, a C++ object behind them, and
// calls back what they have registered. A plug-in that fails is reported and left out.
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "dovrel/dovrel.h"

namespace {

/// What plug-ins work on.
class Document {
public:
    void insert(std::string line) { lines_.push_back(std::move(line)); }
    [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
    [[nodiscard]] std::string& line(int number) {
        const auto index = static_cast<std::size_t>(number) - 1;
        if (index >= lines_.size()) {
            throw std::out_of_range("there is no line " + std::to_string(number));
        }
        return lines_[index];
    }

private:
    std::vector<std::string> lines_;
};

class Editor {
public:
    Editor() {
        // Scripts write editor["insert"](...).
        interpreter_.setGlobal(
            "editor",
            interpreter_.tableOf({
                {"insert", interpreter_.makeFunction("editor.insert", [this](std::string line) {
                     document_.insert(std::move(line));
                 })},
                // What the document raises is an error of the script.
                {"line", interpreter_.makeFunction("editor.line", [this](int number) {
                     return document_.line(number);
                 })},
                {"count", interpreter_.makeFunction("editor.count", [this] {
                     return document_.lines().size();
                 })},
                {"command", interpreter_.makeFunction(
                                "editor.command",
                                [this](std::string name, const dovrel::Value& function) {
                                    commands_[name] = function;
                                })},
                {"join", interpreter_.makeFunction(
                             "editor.join",
                             [](std::string_view separator, dovrel::Arguments parts) {
                                 std::string text;
                                 for (const dovrel::Value& part : parts) {
                                     if (!text.empty()) text += separator;
                                     text += part.toString();
                                 }
                                 return text;
                             })},
            }));
    }

    void load(std::string_view name, std::string_view text) {
        try {
            interpreter_.run(text, name);
        } catch (const dovrel::Error& error) {
            std::cout << "plug-in left out: " << error.script() << ':' << error.line() << ": "
                      << error.message() << '\n';
        }
    }
    void command(const std::string& name) {
        try {
            commands_.at(name)();
        } catch (const dovrel::Error& error) {
            std::cout << name << ": " << error.message() << '\n';
        }
    }
    void show() const {
        for (const std::string& line : document_.lines()) std::cout << "| " << line << '\n';
    }

private:
    Document document_;
    // Before what holds values of it, so that it ends behind them.
    dovrel::Interpreter interpreter_;
    std::map<std::string, dovrel::Value> commands_;
};

}  // namespace

int main() {
    Editor editor;
    editor.load("greeting.dv",
                "function greet()\n"
                "    editor['insert'](editor['join'](', ', 'hello', 1, 2.5))\n"
                "end\n"
                "editor['command']('greet', greet)\n");
    editor.load("shouting.dv",
                "function shout()\n"
                "    editor['insert'](string['upper'](editor['line'](editor['count']())) + '!')\n"
                "end\n"
                "editor['command']('shout', shout)\n");
    editor.load("broken.dv", "x = 1\neditor['insert'](x)\n");
    editor.command("shout");
    editor.command("greet");
    editor.command("shout");
    editor.show();
}
