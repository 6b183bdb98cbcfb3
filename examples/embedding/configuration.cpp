// A configuration file that is a script: it can compute what it sets. The program takes what it needs,
// with defaults, and says where the file is wrong.
#include <iostream>
#include <string>
#include <vector>

#include "dovrel/dovrel.h"

namespace {

struct Settings {
    std::string host = "localhost";
    int port = 80;
    double timeout = 1.0;
    std::vector<std::string> paths;
};

Settings readSettings(std::string_view text, std::string_view name) {
    // A configuration file is read by whoever finds it: it gets no more than it needs.
    dovrel::Interpreter interpreter(dovrel::Options::sandbox());
    interpreter.setGlobal("processors", 4);
    interpreter.run(text, name);

    Settings settings;
    settings.host = interpreter.global("host").valueOr(settings.host);
    settings.port = interpreter.global("port").valueOr(settings.port);
    settings.timeout = interpreter.global("timeout").valueOr(settings.timeout);
    settings.paths = interpreter.global("paths").valueOr(settings.paths);
    return settings;
}

}  // namespace

int main() {
    const Settings settings = readSettings(
        "host = 'example.org'\n"
        "base = 8000\n"
        "port = base + 80\n"
        "timeout = processors / 8\n"
        "paths = []\n"
        "for i, part in ipairs(['bin', 'lib'])\n"
        "    push(paths, '/opt/' + part)\n"
        "end\n",
        "server.conf");
    std::cout << settings.host << ':' << settings.port << ", timeout " << settings.timeout << '\n';
    for (const std::string& path : settings.paths) std::cout << "path " << path << '\n';

    try {
        readSettings("host = 'example.org'\nport = 8000 + nobody\n", "server.conf");
    } catch (const dovrel::Error& error) {
        std::cout << error.script() << ':' << error.line() << ": " << error.message() << '\n';
    }
    try {
        readSettings("port = 'eighty'\n", "server.conf");
    } catch (const dovrel::Error& error) {
        std::cout << "port: " << error.message() << '\n';
    }
}
