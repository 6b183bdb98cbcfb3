#include "dovrel/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dovrel/commands.h"

namespace {

constexpr const char* kVersion = "dovrel " DOVREL_COMPANION_VERSION;

/// Help as CLI11 writes it, with a usage of our own where a command has one.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        const auto found = usages_.find(app->get_name());
        if (found == usages_.end()) return CLI::Formatter::make_usage(app, std::move(name));
        return "Usage: " + found->second + "\n";
    }
    void setUsage(const std::string& command, std::string usage) {
        usages_[command] = std::move(usage);
    }

private:
    std::map<std::string, std::string> usages_;
};

/// The commands that run a script with arguments of its own.
bool runsScript(const std::string& command) {
    return command == "run" || command == "profile" || command == "trace";
}

/// An option of these commands that takes the next argument.
bool takesValue(const std::string& option) {
    static const std::set<std::string> kOptions = {"-e",     "--svg",      "--lines",   "--output",
                                                   "--line", "--function", "--variable"};
    return kOptions.contains(option);
}

/// Takes from the arguments of such a command what belongs to the script: the file and all behind
/// it, which no option of ours may be looked for in. `arguments` is left with the options.
std::vector<std::string> takeScriptArguments(std::vector<std::string>& arguments) {
    std::size_t at = 1;
    bool hasText = false;
    for (; at < arguments.size(); ++at) {
        const std::string& argument = arguments[at];
        if (argument == "--" || argument == "-" || argument.empty() || argument[0] != '-') break;
        if (takesValue(argument)) ++at;
        hasText = hasText || argument.starts_with("-e");
    }
    at = std::min(at, arguments.size());
    std::vector<std::string> own(arguments.begin() + static_cast<std::ptrdiff_t>(at),
                                 arguments.end());
    arguments.resize(at);
    if (!own.empty() && own.front() == "--") own.erase(own.begin());
    return own;
}

/// The commands with their options.
class CommandLine {
public:
    CommandLine()
        : app_("Tools for those who write scripts for dovrelscript", "dovrel"),
          help_(std::make_shared<HelpFormatter>()) {
        help_->column_width(28);
        app_.formatter(help_);
        app_.set_version_flag("--version", kVersion, "Print the version and exit");
        app_.set_help_flag("-h,--help", "Print this help and exit");
        app_.require_subcommand(1);
        app_.footer("'dovrel COMMAND --help' tells of one command.");
        help_->setUsage("dovrel", "dovrel COMMAND [ARGUMENT..]");
        addRun();
        addRepl();
        addCheck();
        addFormat();
        addTest();
        addProfile();
        addTrace();
        addDoc();
        addLsp();
        addDap();
    }

    int run(std::vector<std::string> arguments) {
        if (!arguments.empty() && runsScript(arguments.front())) {
            RunOptions& script = arguments.front() == "run"       ? run_
                                 : arguments.front() == "profile" ? profile_.script
                                                                  : trace_.script;
            script.arguments = takeScriptArguments(arguments);
        }
        if (!arguments.empty() && !arguments.front().starts_with('-') &&
            std::find(commands_.begin(), commands_.end(), arguments.front()) == commands_.end()) {
            std::cerr << "dovrel: there is no command " << arguments.front()
                      << "\nTry 'dovrel --help'.\n";
            return kMisuse;
        }
        // Alone it takes nothing, least of all the file behind it.
        std::replace(arguments.begin(), arguments.end(), std::string("--checked"),
                     std::string("--checked=warn"));
        // The parser takes them from the end.
        std::reverse(arguments.begin(), arguments.end());
        try {
            app_.parse(std::move(arguments));
        } catch (const CLI::ParseError& error) {
            return answer(error);
        }
        return chosen_();
    }

private:
    /// Help and version are errors of status 0 to the parser.
    int answer(const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app_.exit(error);
        const auto commands = app_.get_subcommands();
        const std::string name = commands.empty() ? "dovrel" : "dovrel " + commands[0]->get_name();
        std::cerr << name << ": " << error.what() << "\nTry '" << name << " --help'.\n";
        return kMisuse;
    }

    CLI::App* addCommand(const char* name, const char* description, std::function<int()> action) {
        CLI::App* command = app_.add_subcommand(name, description);
        commands_.emplace_back(name);
        command->set_version_flag("--version", kVersion, "Print the version and exit");
        command->callback([this, action = std::move(action)] { chosen_ = action; });
        return command;
    }

    static CLI::Option* addPaths(CLI::App* command, std::vector<std::string>& paths) {
        return command
            ->add_option("FILE", paths,
                         "A script, \"-\" for standard input, or a directory for all\n"
                         "scripts below it")
            ->required();
    }

    static void addText(CLI::App* command, RunOptions& script) {
        command
            ->add_option_function<std::string>(
                "-e",
                [&script](const std::string& text) {
                    script.text = text;
                    script.hasText = true;
                },
                "Run this text in place of a file")
            ->type_name("TEXT");
    }

    /// `--checked` alone is `--checked=warn`.
    static void addChecked(CLI::App* command, std::string& mode, const char* description) {
        command->add_option("--checked", mode, description)
            ->type_name("warn|error|off")
            ->check(CLI::IsMember({"warn", "error", "off"}));
    }

    void addRun() {
        CLI::App* command = addCommand("run", "Run a script with arguments",
                                       [this] { return runRunCommand(run_); });
        addText(command, run_);
        addChecked(command, run_.checked,
                   "Tell what the language does in silence and is likely\n"
                   "to be a mistake; with \"error\" make each an error");
        help_->setUsage("run",
                        "dovrel run [OPTION..] FILE [ARGUMENT..]\n"
                        "       dovrel run [OPTION..] - [ARGUMENT..]\n"
                        "       dovrel run [OPTION..] -e TEXT [ARGUMENT..]");
        command->footer(
            "\"-\" is standard input. The script finds its arguments in the global array args.\n"
            "The exit status is 1 after an error, and 0 otherwise.");
    }

    void addRepl() {
        CLI::App* command = addCommand("repl", "Offer a prompt", [] { return runReplCommand(); });
        command->footer(
            "Its history is kept in the file that DOVREL_HISTORY names, or in dovrel/history "
            "below\n"
            "XDG_STATE_HOME or ~/.local/state. ~/.editrc may change its keys.");
    }

    void addCheck() {
        CLI::App* command = addCommand("check", "Find mistakes without running anything",
                                       [this] { return runCheckCommand(check_); });
        addPaths(command, check_.paths)->required(false);
        command->add_option("--format", check_.format, "How to write what was found")
            ->type_name("text|json|sarif")
            ->check(CLI::IsMember({"text", "json", "sarif"}));
        command->add_flag("--strict", check_.isStrict, "Give status 1 for warnings too");
        command->add_option("--explain", check_.explained, "Tell what a code means")
            ->type_name("CODE");
        command->add_flag("--codes", check_.listsCodes, "List all codes");
        command->footer(
            "The exit status is 1 for errors. A comment \"@@ dovrel: allow CODE\" behind a line "
            "or\n"
            "in front of it silences a code there, and \"@@ dovrel: allow-file CODE\" in the "
            "file.");
    }

    void addFormat() {
        CLI::App* command = addCommand("format", "Lay scripts out in the one layout",
                                       [this] { return runFormatCommand(format_); });
        addPaths(command, format_.paths);
        command->add_flag("--check", format_.checks,
                          "Write nothing; name the files that are laid out differently");
        command->add_flag("--diff", format_.showsDifference,
                          "Write nothing; show what would change");
        command->footer(
            "The exit status is 1 if --check has found something, and 2 if a file cannot be laid\n"
            "out; that one stays as it is.");
    }

    void addTest() {
        CLI::App* command = addCommand("test", "Run the tests of scripts",
                                       [this] { return runTestCommand(test_); });
        command->add_option("PATH", test_.paths,
                            "A file of tests, or a directory for all files *_test.dv\n"
                            "below it; the working directory if there is none");
        command
            ->add_option("--filter", test_.filter,
                         "Only tests whose \"FILE:NAME\" holds this text, or is like\n"
                         "this pattern")
            ->type_name("TEXT");
        command->add_option("--junit", test_.junitPath, "Write the results to a file as JUnit XML")
            ->type_name("FILE");
        command
            ->add_option("--timeout", test_.timeLimit,
                         "The time for each test; 60 if there is none, 0 for any time")
            ->type_name("SECONDS")
            ->check(CLI::NonNegativeNumber);
        command->add_flag("--list", test_.listsTests, "List the tests and run none");
        addChecked(command, test_.checked,
                   "What to do with what the language does in silence and is\n"
                   "likely to be a mistake; \"warn\" if it is not told");
        command->add_flag("--coverage", test_.countsLines,
                          "Tell which lines of the scripts that tests load have run");
        command
            ->add_option("--coverage-html", test_.coverageHtmlPath,
                         "The same as a page for a browser, with the sources")
            ->type_name("FILE");
        command
            ->add_option("--coverage-lcov", test_.coverageLcovPath,
                         "The same as an lcov tracefile, for other programs")
            ->type_name("FILE");
        command
            ->add_option("--coverage-least", test_.leastCoverage,
                         "Fail if less than this part of the lines has run")
            ->type_name("PERCENT")
            ->check(CLI::Range(0.0, 100.0));
        command->add_flag("--output", test_.showsOutput,
                          "Show what tests write, and not that of failed ones alone");
        command->footer(
            "A test is a global function whose name begins with test_; each is called in an\n"
            "interpreter of its own, which has run its file. It fails if it raises an error.\n"
            "Beside assert there are expect_equal, expect_near, expect_error and skip.\n"
            "The exit status is 1 if a test has failed or none was found.");
    }

    void addProfile() {
        CLI::App* command = addCommand("profile", "Tell where the time of a script goes",
                                       [this] { return runProfileCommand(profile_); });
        addText(command, profile_.script);
        command
            ->add_option("--lines", profile_.lines,
                         "How many lines the table shows; 20 if it is not told")
            ->type_name("COUNT");
        command->add_flag("--annotate", profile_.annotates,
                          "Show the source as well, each line with its count and time");
        command->add_option("--svg", profile_.svgPath, "Draw a flame graph into this file")
            ->type_name("FILE");
        command
            ->add_option("--output", profile_.outputPath,
                         "Write the report to this file, not to standard error")
            ->type_name("FILE");
        help_->setUsage("profile",
                        "dovrel profile [OPTION..] FILE [ARGUMENT..]\n"
                        "       dovrel profile [OPTION..] -e TEXT [ARGUMENT..]");
        command->footer(
            "Own time is that of a function or line without the functions that it calls. Ctrl-C\n"
            "ends the script, and shows what there is. The exit status is that of 'dovrel run'.");
    }

    void addTrace() {
        CLI::App* command = addCommand("trace", "Show each statement and what it assigns",
                                       [this] { return runTraceCommand(trace_); });
        addText(command, trace_.script);
        command->add_option("--function", trace_.functions, "Only statements of this function")
            ->type_name("NAME")
            ->allow_extra_args(false);
        command
            ->add_option("--line", trace_.lines, "Only these lines: 12, 12-20, or total.dv:12-20")
            ->type_name("LINES")
            ->allow_extra_args(false);
        command
            ->add_option("--variable", trace_.variables, "Only what is assigned to this variable")
            ->type_name("NAME")
            ->allow_extra_args(false);
        command->add_flag("--errors", trace_.showsErrorsOnly,
                          "Nothing but the calls and variables at an error");
        command
            ->add_option("--output", trace_.outputPath,
                         "Write the trace to this file, not to standard error")
            ->type_name("FILE");
        help_->setUsage("trace",
                        "dovrel trace [OPTION..] FILE [ARGUMENT..]\n"
                        "       dovrel trace [OPTION..] -e TEXT [ARGUMENT..]");
        command->footer(
            "Filters may be given several times. At an error that nothing catches, the chain of\n"
            "calls is shown with the line and the variables of each. The exit status is that of\n"
            "'dovrel run'.");
    }

    void addDoc() {
        CLI::App* command =
            addCommand("doc", "Show the reference of a library function or constant",
                       [this] { return runDocCommand(doc_); });
        command->add_option("NAME", doc_.names,
                            "A name such as len, string.sub or string[\"sub\"], or a chapter");
        command->add_flag("--names", doc_.listsNames, "List all names, one a line");
        command->footer("Without a name the chapters are listed.");
    }

    void addLsp() {
        CLI::App* command = addCommand("lsp", "Serve an editor", [] { return runLspCommand(); });
        // Editors add it by habit; there is no other way.
        command->add_flag("--stdio", usesStdio_, "Speak over standard input and output, as always");
        command->footer(
            "The language server: an editor starts it and speaks the Language Server Protocol\n"
            "with it, over standard input and output.");
    }

    void addDap() {
        CLI::App* command =
            addCommand("dap", "Debug a script in an editor", [] { return runDapCommand(); });
        command->footer(
            "The debugger: an editor starts it for each run and speaks the Debug Adapter Protocol\n"
            "with it, over standard input and output.");
    }

    CLI::App app_;
    std::shared_ptr<HelpFormatter> help_;
    std::vector<std::string> commands_;
    std::function<int()> chosen_;
    RunOptions run_;
    CheckOptions check_;
    FormatOptions format_;
    TestOptions test_;
    ProfileOptions profile_;
    TraceOptions trace_;
    DocOptions doc_;
    bool usesStdio_ = true;
};

}  // namespace

int runCommandLine(int argc, char** argv) {
    try {
        return CommandLine().run({argv + std::min(argc, 1), argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "dovrel: " << error.what() << '\n';
        return kMisuse;
    }
}
