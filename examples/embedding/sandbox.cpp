// Scripts that nobody has read, each on a thread of its own with limits: whatever they try, they end
// with an error that says which limit it was, and the program goes on.
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "dovrel/dovrel.h"

namespace {

struct Task {
    const char* what;
    const char* script;
    std::string outcome;
};

void runTask(Task& task) {
    dovrel::Options options = dovrel::Options::sandbox();
    // The memory and the depth are enough to tell; a machine may be slow.
    options.limits.time = std::chrono::seconds(60);
    dovrel::Interpreter interpreter(options);
    std::string printed;
    interpreter.setOutput([&](std::string_view text) {
        if (printed.size() < 1000) printed += text;
    });
    try {
        interpreter.run(task.script, "task");
        task.outcome = printed;
    } catch (const dovrel::Error& error) {
        task.outcome = std::string(error.isStop() ? "stopped: " : "failed: ") +
                       std::string(error.message()) + '\n';
    }
}

/// Stops a script from another thread.
void runWithButton() {
    dovrel::Interpreter interpreter;
    std::thread button;
    interpreter.define("ready", [&] {
        button = std::thread([&] { interpreter.interrupt(); });
    });
    try {
        interpreter.run("ready()\nwhile true\nend");
    } catch (const dovrel::Error& error) {
        std::cout << "the button: " << error.message() << '\n';
    }
    button.join();
}

}  // namespace

int main() {
    std::vector<Task> tasks = {
        {"good", "print('the answer is', 6 * 7)", ""},
        {"endless", "while true\nend", ""},
        {"greedy", "a = []\nwhile true\n push(a, string['rep']('x', 100000))\nend", ""},
        {"deep", "function f(n)\n native x = f(n + 1)\n return x\nend\nf(1)", ""},
        {"curious", "io['open']('/etc/passwd')", ""},
        {"stubborn", "function work()\n while true\n end\nend\nwhile true\n pcall(work)\nend", ""},
    };
    std::vector<std::thread> threads;
    for (Task& task : tasks) threads.emplace_back([&task] { runTask(task); });
    for (std::thread& thread : threads) thread.join();
    for (const Task& task : tasks) std::cout << task.what << ": " << task.outcome;
    runWithButton();
}
