#include "dovrel/line_editor.h"

#include <histedit.h>
#include <langinfo.h>
#include <locale.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <cwchar>
#include <deque>
#include <filesystem>
#include <fstream>
#include <utility>

#include "dovrel/terminal.h"

namespace {

constexpr std::size_t kHistorySize = 1000;
constexpr char kLiteral = '\1';  // around what takes no columns in a prompt
constexpr wchar_t kCancel = 3;

volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t resized = 0;
volatile std::sig_atomic_t continued = 0;

void noteSignal(int number) {
    if (number == SIGINT) interrupted = 1;
    if (number == SIGWINCH) resized = 1;
    if (number == SIGCONT) continued = 1;
}

/// While a line is read the signals of the terminal are noted, and come in only while it waits.
class SignalGuard {
public:
    SignalGuard() {
        struct sigaction action {};
        action.sa_handler = noteSignal;
        sigemptyset(&action.sa_mask);
        sigset_t blocked;
        sigemptyset(&blocked);
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            sigaction(kSignals[i], &action, &before_[i]);
            sigaddset(&blocked, kSignals[i]);
        }
        sigprocmask(SIG_BLOCK, &blocked, &mask_);
    }
    ~SignalGuard() {
        sigprocmask(SIG_SETMASK, &mask_, nullptr);
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            sigaction(kSignals[i], &before_[i], nullptr);
        }
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

    [[nodiscard]] const sigset_t& waitingMask() const { return mask_; }

private:
    static constexpr std::array<int, 3> kSignals = {SIGINT, SIGWINCH, SIGCONT};
    std::array<struct sigaction, 3> before_{};
    sigset_t mask_{};
};

/// The user's encoding, for the editor alone: scripts run without a locale. UTF-8 where none is
/// set.
class LocaleGuard {
public:
    LocaleGuard() : own_(newlocale(LC_CTYPE_MASK, "", nullptr)) {
        if (own_ != nullptr && std::string_view(nl_langinfo_l(CODESET, own_)) == "ANSI_X3.4-1968") {
            freelocale(own_);
            own_ = nullptr;
        }
        if (own_ == nullptr) own_ = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        if (own_ != nullptr) before_ = uselocale(own_);
    }
    ~LocaleGuard() {
        if (own_ == nullptr) return;
        uselocale(before_);
        freelocale(own_);
    }
    LocaleGuard(const LocaleGuard&) = delete;
    LocaleGuard& operator=(const LocaleGuard&) = delete;

private:
    locale_t own_ = nullptr;
    locale_t before_ = nullptr;
};

std::string commonBeginning(const std::vector<std::string>& texts) {
    std::string common = texts.front();
    for (const std::string& text : texts) {
        const auto [end, other] =
            std::mismatch(common.begin(), common.end(), text.begin(), text.end());
        static_cast<void>(other);
        common.erase(end, common.end());
    }
    return common;
}

std::string inColumns(const std::vector<std::string>& texts) {
    std::size_t widest = 0;
    for (const std::string& text : texts) widest = std::max(widest, text.size());
    const std::size_t columns = std::max<std::size_t>(1, terminalWidth() / (widest + 2));
    std::string shown;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const bool isLast = i % columns == columns - 1 || i + 1 == texts.size();
        shown += texts[i];
        if (isLast) {
            shown += '\n';
        } else {
            shown.append(widest + 2 - texts[i].size(), ' ');
        }
    }
    return shown;
}

}  // namespace

class LineEditor::Implementation {
public:
    Implementation(std::string historyPath, Completer completer)
        : historyPath_(std::move(historyPath)), completer_(std::move(completer)) {
        const LocaleGuard locale;
        editor_ = el_init("dovrel", stdin, stdout, stderr);
        history_ = history_init();
        HistEvent event{};
        history(history_, &event, H_SETSIZE, static_cast<int>(kHistorySize));
        history(history_, &event, H_SETUNIQUE, 1);
        el_set(editor_, EL_CLIENTDATA, this);
        el_set(editor_, EL_EDITOR, "emacs");
        el_set(editor_, EL_HIST, history, history_);
        el_set(editor_, EL_PROMPT_ESC, givePrompt, kLiteral);
        el_set(editor_, EL_GETCFN, readCharacter);
        el_set(editor_, EL_ADDFN, "dovrel-complete", "Complete a name", complete);
        el_set(editor_, EL_ADDFN, "dovrel-cancel", "Drop the line", cancel);
        el_set(editor_, EL_ADDFN, "dovrel-paste", "Take in what is pasted", paste);
        el_set(editor_, EL_BIND, "^I", "dovrel-complete", nullptr);
        el_set(editor_, EL_BIND, "^C", "dovrel-cancel", nullptr);
        el_set(editor_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
        el_set(editor_, EL_BIND, "\x1b[200~", "dovrel-paste", nullptr);
        el_source(editor_, nullptr);
        loadHistory();
    }
    ~Implementation() {
        el_end(editor_);
        history_end(history_);
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;

    Outcome read(const std::string& prompt, bool isColoured, std::string& line) {
        prompt_ = prompt;
        if (isColoured && !prompt.empty()) {
            // Behind the last character the editor would drop what takes no columns.
            const std::size_t last = prompt.size() - 1;
            prompt_ = std::string(1, kLiteral) + "\x1b[1;34m" + kLiteral + prompt.substr(0, last) +
                      kLiteral + "\x1b[0m" + kLiteral + prompt.substr(last);
        }
        if (!pasted_.empty()) return takePasted(prompt, line);
        const LocaleGuard locale;
        const SignalGuard signals;
        waitingMask_ = &signals.waitingMask();
        cancelled_ = false;
        el_resize(editor_);
        // In front of the prompt: what is typed as soon as that is seen would be shown twice.
        el_set(editor_, EL_PREP_TERM, 1);
        write("\x1b[?2004h");
        int count = 0;
        const char* text = el_gets(editor_, &count);
        write("\x1b[?2004l");
        waitingMask_ = nullptr;
        if (text == nullptr || count <= 0) {
            write("\n");
            return Outcome::End;
        }
        if (cancelled_) {
            pasted_.clear();
            return Outcome::Cancelled;
        }
        line.assign(text, static_cast<std::size_t>(count));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        return Outcome::Line;
    }

    void remember(const std::string& line) {
        if (line.find_first_not_of(" \t") == std::string::npos || line == lastRemembered_) return;
        lastRemembered_ = line;
        const LocaleGuard locale;
        HistEvent event{};
        history(history_, &event, H_ENTER, line.c_str());
        if (historyPath_.empty()) return;
        std::ofstream file(historyPath_, std::ios::app | std::ios::binary);
        file << line + '\n';
    }

private:
    static Implementation& of(EditLine* editor) {
        void* data = nullptr;
        el_get(editor, EL_CLIENTDATA, &data);
        return *static_cast<Implementation*>(data);
    }
    static void write(std::string_view text) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
    }
    static char* givePrompt(EditLine* editor) { return of(editor).prompt_.data(); }

    /// Lines of a paste that the editor has not seen.
    Outcome takePasted(const std::string& prompt, std::string& line) {
        line = std::move(pasted_.front());
        pasted_.pop_front();
        // The last piece has no line end: it is for the user to go on with.
        if (pasted_.empty()) {
            const std::string rest = std::exchange(line, {});
            if (rest.empty()) return read(prompt_, false, line);
            el_push(editor_, rest.c_str());
            return read(prompt, prompt_ != prompt, line);
        }
        write(prompt + line + '\n');
        return Outcome::Line;
    }

    /// One byte of the terminal, or nothing at its end. Signals come in here.
    bool readByte(char& byte) {
        for (;;) {
            if (interrupted != 0) return false;
            if (resized != 0 || continued != 0) {
                if (continued != 0) el_set(editor_, EL_PREP_TERM, 1);
                resized = 0;
                continued = 0;
                el_resize(editor_);
                el_set(editor_, EL_REFRESH);
            }
            pollfd terminal{STDIN_FILENO, POLLIN, 0};
            // Not for ever: where the program has a second thread, a signal may come in on that.
            const timespec soon{0, 250'000'000};
            const int ready = ppoll(&terminal, 1, &soon, waitingMask_);
            if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
            if (ready < 0) return false;
            const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
            if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            return count == 1;
        }
    }

    static int readCharacter(EditLine* editor, wchar_t* character) {
        Implementation& self = of(editor);
        std::mbstate_t state{};
        for (;;) {
            char byte = 0;
            if (!self.readByte(byte)) {
                if (interrupted == 0) return 0;
                interrupted = 0;
                *character = kCancel;
                return 1;
            }
            const std::size_t length = std::mbrtowc(character, &byte, 1, &state);
            if (length == static_cast<std::size_t>(-2)) continue;  // goes on with the next byte
            if (length == static_cast<std::size_t>(-1)) {
                state = {};
                continue;  // no character of this encoding
            }
            return 1;
        }
    }

    static unsigned char cancel(EditLine* editor, int) {
        of(editor).cancelled_ = true;
        // The editor leaves a line of several rows properly only by itself.
        el_push(editor, "\n");
        return CC_NORM;
    }

    static unsigned char complete(EditLine* editor, int) {
        Implementation& self = of(editor);
        const LineInfo* info = el_line(editor);
        const std::string before(info->buffer, info->cursor);
        // In front of everything else Tab indents.
        if (before.find_first_not_of(' ') == std::string::npos) {
            return el_insertstr(editor, "    ") == 0 ? CC_REFRESH : CC_ERROR;
        }
        const Completion completion = self.completer_(before);
        if (completion.candidates.empty()) return CC_ERROR;
        const std::string common = commonBeginning(completion.candidates);
        if (common.size() > completion.length) {
            return el_insertstr(editor, common.c_str() + completion.length) == 0 ? CC_REFRESH
                                                                                 : CC_ERROR;
        }
        if (completion.candidates.size() == 1) return CC_ERROR;
        write("\n" + inColumns(completion.candidates));
        return CC_REDISPLAY;
    }

    /// What the terminal marks as pasted is taken as it is: no key in it means anything.
    static unsigned char paste(EditLine* editor, int) {
        constexpr std::string_view kEnd = "\x1b[201~";
        Implementation& self = of(editor);
        std::string text;
        char byte = 0;
        while (!text.ends_with(kEnd) && self.readByte(byte)) text += byte;
        if (text.ends_with(kEnd)) text.resize(text.size() - kEnd.size());
        std::deque<std::string> lines(1);
        for (std::size_t i = 0; i < text.size(); ++i) {
            const char c = text[i];
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
            if (c == '\n' || c == '\r') {
                lines.emplace_back();
            } else if (c == '\t') {
                lines.back() += "    ";
            } else if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) {
                lines.back() += c;
            }
        }
        if (!lines.front().empty()) el_insertstr(editor, lines.front().c_str());
        lines.pop_front();
        if (!lines.empty()) {
            self.pasted_ = std::move(lines);
            el_push(editor, "\n");
        }
        return CC_REFRESH;
    }

    void loadHistory() {
        if (historyPath_.empty()) return;
        std::error_code ignored;
        const std::filesystem::path folder = std::filesystem::path(historyPath_).parent_path();
        if (!folder.empty()) std::filesystem::create_directories(folder, ignored);
        std::deque<std::string> lines;
        std::size_t count = 0;
        {
            std::ifstream file(historyPath_, std::ios::binary);
            for (std::string line; std::getline(file, line); ++count) {
                lines.push_back(std::move(line));
                if (lines.size() > kHistorySize) lines.pop_front();
            }
        }
        HistEvent event{};
        for (const std::string& line : lines) {
            if (!line.empty()) history(history_, &event, H_ENTER, line.c_str());
        }
        if (!lines.empty()) lastRemembered_ = lines.back();
        if (count <= 2 * kHistorySize) return;
        std::ofstream file(historyPath_, std::ios::trunc | std::ios::binary);
        for (const std::string& line : lines) file << line << '\n';
    }

    std::string historyPath_;
    Completer completer_;
    EditLine* editor_ = nullptr;
    History* history_ = nullptr;
    std::string prompt_;
    std::string lastRemembered_;
    std::deque<std::string> pasted_;
    const sigset_t* waitingMask_ = nullptr;
    bool cancelled_ = false;
};

LineEditor::LineEditor(const std::string& historyPath, Completer completer)
    : implementation_(std::make_unique<Implementation>(historyPath, std::move(completer))) {}

LineEditor::~LineEditor() = default;

LineEditor::Outcome LineEditor::read(const std::string& prompt, bool isColoured,
                                     std::string& line) {
    return implementation_->read(prompt, isColoured, line);
}

void LineEditor::remember(const std::string& line) { implementation_->remember(line); }
