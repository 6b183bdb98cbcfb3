// `dovrel repl`: the prompt.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

#include "dovrel/commands.h"
#include "dovrel/library_reference.h"
#include "dovrel/line_editor.h"
#include "dovrel/prompt_session.h"
#include "dovrel/reference_text.h"
#include "dovrel/terminal.h"
#include "dovrel/value_display.h"
#include "eval/errors.h"

namespace {

constexpr const char* kPrompt = "dv> ";
constexpr const char* kContinuation = "..> ";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// Where the history is kept: DOVREL_HISTORY, which may be empty for nowhere, else below the user's
/// directory for such things.
std::string historyPath() {
    if (const char* path = std::getenv("DOVREL_HISTORY")) return path;
    std::string folder = environment("XDG_STATE_HOME");
    if (folder.empty() && !environment("HOME").empty()) {
        folder = environment("HOME") + "/.local/state";
    }
    return folder.empty() ? folder : folder + "/dovrel/history";
}

/// Where lines come from: a terminal with an editor, or anything else, without prompts.
class LineSource {
public:
    virtual ~LineSource() = default;
    virtual LineEditor::Outcome read(const std::string& prompt, std::string& line) = 0;
    virtual void remember(const std::string& input) = 0;
};

class TerminalSource : public LineSource {
public:
    TerminalSource(const PromptSession& session, bool isColoured)
        : editor_(historyPath(),
                  [&session](std::string_view line) { return session.complete(line); }),
          isColoured_(isColoured) {}
    LineEditor::Outcome read(const std::string& prompt, std::string& line) override {
        return editor_.read(prompt, isColoured_, line);
    }
    void remember(const std::string& input) override { editor_.remember(input); }

private:
    LineEditor editor_;
    bool isColoured_;
};

class PlainSource : public LineSource {
public:
    LineEditor::Outcome read(const std::string&, std::string& line) override {
        return std::getline(std::cin, line) ? LineEditor::Outcome::Line : LineEditor::Outcome::End;
    }
    void remember(const std::string&) override {}
};

class Prompt {
public:
    Prompt() : palette_(1), errorPalette_(2) {
        isTerminal_ = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 &&
                      environment("TERM") != "dumb";
        if (isTerminal_) {
            source_ = std::make_unique<TerminalSource>(session_, palette_.isOn());
            std::cout << "dovrel " DOVREL_COMPANION_VERSION
                         "; :help tells what there is, Ctrl-D leaves\n";
        } else {
            source_ = std::make_unique<PlainSource>();
        }
    }

    int run() {
        std::string input;
        while (readInput(input)) {
            if (input == "exit" || input == "quit" || input == ":quit" || input == ":q") break;
            if (input.starts_with(':')) {
                runCommand(input);
            } else {
                tell(session_.run(input));
            }
        }
        // At a terminal whoever sits there has seen it.
        return hasFailed_ && !isTerminal_ ? kFailure : kSuccess;
    }

private:
    /// Lines until they are a whole input. False at the end of all.
    bool readInput(std::string& input) {
        input.clear();
        for (;;) {
            std::string line;
            const auto outcome = source_->read(input.empty() ? kPrompt : kContinuation, line);
            if (outcome == LineEditor::Outcome::Cancelled) {
                input.clear();
                continue;
            }
            if (outcome == LineEditor::Outcome::End) {
                // What is not whole is run as it stands, for its message.
                return !input.empty();
            }
            if (input.empty() && line.find_first_not_of(" \t\r") == std::string::npos) continue;
            input += line;
            if (input.starts_with(':')) {
                source_->remember(input);
                return true;
            }
            if (!isUnfinished(input)) {
                source_->remember(inOneLine(input));
                return true;
            }
            input += '\n';
        }
    }

    void tell(const PromptResult& result) {
        std::cout << std::flush;
        if (result.isInterrupted) {
            std::cerr << errorPalette_.paint(Colour::Yellow, "interrupted") << '\n';
        } else if (!result.report.empty()) {
            hasFailed_ = true;
            tellReport(result.report);
        } else if (result.value) {
            std::cout << palette_.paint(Colour::Green, showValue(*result.value)) << '\n';
        }
        std::cout << std::flush;
    }
    /// Without the hint, which is always the same.
    void tellReport(std::string_view report) {
        std::string_view rest = report;
        if (isLocatedReport(report)) rest.remove_prefix(kReportMarker.size() + 1);
        const std::size_t hint = rest.find("\n  hint: ");
        rest = rest.substr(0, std::min(hint, rest.size()));
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::cerr << errorPalette_.paint(Colour::Red, "error:") << ' '
                  << errorPalette_.paint(Colour::Bold, rest.substr(0, end)) << rest.substr(end)
                  << '\n';
    }

    void runCommand(const std::string& input) {
        const std::size_t space = std::min(input.find(' '), input.size());
        const std::string command = input.substr(0, space);
        std::string argument = input.substr(space);
        argument.erase(0, std::min(argument.find_first_not_of(' '), argument.size()));
        while (!argument.empty() && argument.back() == ' ') argument.pop_back();
        if (command == ":help") {
            help(argument);
        } else if (command == ":load" && !argument.empty()) {
            tell(session_.runFile(argument));
        } else if (command == ":names") {
            listNames();
        } else if (command == ":reset") {
            session_.reset();
        } else if (command == ":time" && !argument.empty()) {
            time(argument);
        } else if (command == ":type" && !argument.empty()) {
            type(argument);
        } else {
            hasFailed_ = true;
            std::cerr << errorPalette_.paint(Colour::Red, "error:") << ' ' << command
                      << " is no command, or needs more; :help lists them\n";
        }
    }

    void help(const std::string& name) {
        if (name.empty()) {
            std::cout
                << "Lines are run as they come; a block goes on until it is closed. The value of "
                   "an\n"
                   "expression is shown. Ctrl-C drops the line or stops what runs, Ctrl-D "
                   "leaves.\n\n"
                   "  :help NAME   the reference of a library function, such as len or string.sub\n"
                   "  :load FILE   run a script\n"
                   "  :names       the globals that you have made\n"
                   "  :reset       forget all variables\n"
                   "  :time LINE   run a line and tell how long it took\n"
                   "  :type VALUE  the kind of an expression's value\n"
                   "  :quit        leave\n";
            return;
        }
        const LibraryReference& reference = LibraryReference::ofLibrary();
        const std::string text = referenceText(reference, name, palette_);
        if (!text.empty()) {
            std::cout << text;
            return;
        }
        std::cerr << "nothing is called " << name;
        if (const auto nearest = reference.nearest(name)) {
            std::cerr << "; did you mean " << *nearest << '?';
        }
        std::cerr << '\n';
    }
    void listNames() {
        for (const std::string& name : session_.ownGlobals()) {
            std::string shown = showValue(*session_.global(name));
            constexpr std::size_t kMost = 60;
            if (shown.size() > kMost) shown = shown.substr(0, kMost) + "...";
            std::cout << palette_.paint(Colour::Bold, name) << " = " << shown << '\n';
        }
    }
    void time(const std::string& text) {
        const auto start = std::chrono::steady_clock::now();
        const PromptResult result = session_.run(text);
        const std::chrono::duration<double, std::milli> taken =
            std::chrono::steady_clock::now() - start;
        tell(result);
        std::printf("%.3f ms\n", taken.count());
        std::fflush(stdout);
    }
    void type(const std::string& expression) {
        PromptResult result = session_.evaluate(expression);
        if (!result.report.empty() || result.isInterrupted) {
            tell(result);
            return;
        }
        std::cout << describeKind(result.value.value_or(Variable())) << std::endl;
    }

    PromptSession session_;
    Palette palette_;
    Palette errorPalette_;
    std::unique_ptr<LineSource> source_;
    bool hasFailed_ = false;
    bool isTerminal_ = false;
};

}  // namespace

int runReplCommand() { return Prompt().run(); }
