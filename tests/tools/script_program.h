// The main program of those beside it, which run one script in a way of their own.
#pragma once

#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "host/large_stack.h"

/// The bytes of a file; raises std::runtime_error if there is none.
inline std::string readScript(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("failed to open file: " + path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Calls `run(source, path)` for the script that the command line names, and tells of an error as
/// `dovrelscript` does. The exit status.
template <typename Run>
int runScriptProgram(int argc, char** argv, const Run& run) {
    if (argc != 2) {
        std::cerr << "Usage: " << argv[0] << " <script.dv>\n";
        return 1;
    }
    int status = 1;
    runOnLargeStack([&] {
        try {
            run(readScript(argv[1]), std::string(argv[1]));
            status = 0;
        } catch (const std::exception& error) {
            std::cerr << "dovrelscript: " << error.what() << std::endl;
        }
    });
    return status;
}
