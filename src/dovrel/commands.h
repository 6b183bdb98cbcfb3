// The commands of `dovrel`: what each takes from the command line, and the function that runs it.
// command_line.cpp reads the options; each command has a file of its own. A command returns the
// exit status of the program and lets exceptions that it cannot answer to the command line, which
// prints them.
#pragma once

#include <string>
#include <vector>

/// Exit statuses. `run` gives those of the interpreter, which are the first two.
enum ExitStatus : int {
    kSuccess = 0,
    kFailure = 1,  // a script failed, a check found something, a test failed
    kMisuse = 2,   // wrong arguments, or a file that cannot be read or written
};

struct RunOptions {
    bool hasText = false;                // `-e`
    std::string text;                    // what `-e` gave
    std::vector<std::string> arguments;  // the file, unless there is a text, then the script's own
};

struct DocOptions {
    std::vector<std::string> names;
    bool listsNames = false;
};

struct FormatOptions {
    std::vector<std::string> paths;
    bool checks = false;           // write nothing, tell what is not laid out
    bool showsDifference = false;  // write nothing, show what would change
};

struct CheckOptions {
    std::vector<std::string> paths;
    std::string format = "text";  // "text", "json" or "sarif"
    bool isStrict = false;        // warnings count as errors for the exit status
    std::string explained;        // the code of `--explain`
    bool listsCodes = false;
};

struct TestOptions {
    std::vector<std::string> paths = {"."};
    std::string filter;        // of "file:test": a part of it, or a pattern with wildcards
    std::string junitPath;     // empty for none
    double timeLimit = 60;     // seconds for each test; 0 for none
    bool listsTests = false;   // run nothing
    bool showsOutput = false;  // what tests write comes as they write it
};

int runRunCommand(const RunOptions& options);
int runDocCommand(const DocOptions& options);
int runFormatCommand(const FormatOptions& options);
int runCheckCommand(const CheckOptions& options);
int runReplCommand();
int runTestCommand(const TestOptions& options);
/// The language server over standard input and output; see lsp/lsp_command.cpp.
int runLspCommand();
/// The debugger over standard input and output; see dap/dap_command.cpp.
int runDapCommand();
