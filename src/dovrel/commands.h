// The commands of `dovrel`: what each takes from the command line, and the function that runs it.
// command_line.cpp reads the options; each command has a file of its own. A command returns the
// exit status of the program and lets exceptions that it cannot answer to the command line, which
// prints them.
#pragma once

#include <cstddef>
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
    std::string checked = "off";         // "warn" or "error" to tell what happens in silence
};

struct ProfileOptions {
    RunOptions script;
    std::size_t lines = 20;  // how many lines the table shows
    bool annotates = false;  // show the sources as well
    std::string svgPath;     // of the flame graph; empty for none
    std::string outputPath;  // of the report; empty for standard error
};

struct TraceOptions {
    RunOptions script;
    std::vector<std::string> functions;  // only these, if there are any
    std::vector<std::string> lines;      // "12", "12-20", "total.dv:12-20"; only these
    std::vector<std::string> variables;  // only what is assigned to these
    bool showsErrorsOnly = false;        // nothing but the chain of calls at an error
    std::string outputPath;              // empty for standard error
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
    std::string filter;            // of "file:test": a part of it, or a pattern with wildcards
    std::string junitPath;         // empty for none
    double timeLimit = 60;         // seconds for each test; 0 for none
    std::string checked = "warn";  // as of a run
    bool listsTests = false;       // run nothing
    bool showsOutput = false;      // what tests write comes as they write it
    bool countsLines = false;      // tell which lines of the scripts under test have run
    std::string coverageHtmlPath;  // these imply it; empty for none
    std::string coverageLcovPath;
    double leastCoverage = 0;  // in percent; less is a failure
};

int runRunCommand(const RunOptions& options);
int runDocCommand(const DocOptions& options);
int runFormatCommand(const FormatOptions& options);
int runCheckCommand(const CheckOptions& options);
int runReplCommand();
int runProfileCommand(const ProfileOptions& options);
int runTraceCommand(const TraceOptions& options);
int runTestCommand(const TestOptions& options);
/// The language server over standard input and output; see lsp/lsp_command.cpp.
int runLspCommand();
/// The debugger over standard input and output; see dap/dap_command.cpp.
int runDapCommand();
