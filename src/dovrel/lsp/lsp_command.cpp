// `dovrel lsp`: the language server over standard input and output. One thread reads, one answers,
// one checks: answers must not wait for a check of the whole script.
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "dovrel/commands.h"
#include "dovrel/lsp/language_server.h"
#include "dovrel/protocol/message_stream.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How long nothing must have changed before a document is checked.
constexpr std::chrono::milliseconds kCheckDelay{200};

/// What the threads tell the one that answers.
struct Event {
    enum class Kind { Message, EndOfInput, Checked } kind = Kind::Message;
    std::string message;
    CheckAnswer answer;
};

class EventQueue {
public:
    void push(Event event) {
        {
            const std::lock_guard lock(mutex_);
            events_.push_back(std::move(event));
        }
        changed_.notify_one();
    }
    /// The next event; nothing once `until` has passed.
    std::optional<Event> pop(std::optional<Clock::time_point> until) {
        std::unique_lock lock(mutex_);
        const auto hasEvent = [this] { return !events_.empty(); };
        if (until) {
            if (!changed_.wait_until(lock, *until, hasEvent)) return std::nullopt;
        } else {
            changed_.wait(lock, hasEvent);
        }
        Event event = std::move(events_.front());
        events_.pop_front();
        return event;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Event> events_;
};

/// Runs one check at a time on a thread of its own, whose stack has room for brackets as deep as
/// runCheckJob() takes them.
class Checker {
public:
    explicit Checker(std::shared_ptr<EventQueue> events) : events_(std::move(events)) {}
    ~Checker() { join(); }
    Checker(const Checker&) = delete;
    Checker& operator=(const Checker&) = delete;

    [[nodiscard]] bool isBusy() const { return isBusy_; }
    void start(CheckJob job) {
        join();
        job_ = std::move(job);
        isBusy_ = true;
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, kStackOfCheck);
        hasThread_ = pthread_create(&thread_, &attributes, run, this) == 0;
        pthread_attr_destroy(&attributes);
        // A system without room for the thread gets its answers late.
        if (!hasThread_) run(this);
    }
    /// The event of the running check has arrived.
    void finish() { isBusy_ = false; }

private:
    static constexpr std::size_t kStackOfCheck = std::size_t{1} << 30;  // as far as it is used

    static void* run(void* self) {
        auto& checker = *static_cast<Checker*>(self);
        Event event;
        event.kind = Event::Kind::Checked;
        event.answer = runCheckJob(checker.job_);
        checker.events_->push(std::move(event));
        return nullptr;
    }
    void join() {
        if (hasThread_) pthread_join(thread_, nullptr);
        hasThread_ = false;
    }

    std::shared_ptr<EventQueue> events_;
    CheckJob job_;
    pthread_t thread_{};
    bool hasThread_ = false;
    bool isBusy_ = false;
};

void readInput(const std::shared_ptr<EventQueue>& events) {
    while (auto message = readMessage(std::cin)) {
        Event event;
        event.message = std::move(*message);
        events->push(std::move(event));
    }
    Event event;
    event.kind = Event::Kind::EndOfInput;
    events->push(std::move(event));
}

/// The editor waits for the end of the process, and not for a check that nobody will see.
int leave(const Checker& checker, int status) {
    std::cout.flush();
    if (checker.isBusy()) std::_Exit(status);
    return status;
}

}  // namespace

int runLspCommand() {
    std::ios::sync_with_stdio(false);
    // A read would flush the output, in the middle of what another thread writes.
    std::cin.tie(nullptr);
    const auto events = std::make_shared<EventQueue>();
    LanguageServer server([](const std::string& message) { writeMessage(std::cout, message); });
    // It ends with the input, or with the process: a read cannot be interrupted.
    std::thread([events] { readInput(events); }).detach();
    Checker checker(events);
    std::optional<Clock::time_point> due;
    while (!server.hasExited()) {
        const bool waits = due.has_value() && !checker.isBusy();
        auto event = events->pop(waits ? due : std::nullopt);
        if (!event) {
            due.reset();
            if (auto job = server.takeCheck()) checker.start(std::move(*job));
            if (server.wantsCheck()) due = Clock::now();
            continue;
        }
        switch (event->kind) {
            case Event::Kind::Message: {
                const bool isKnown =
                    server.wantsCheck() && event->message.find("/did") == std::string::npos;
                server.take(event->message);
                if (server.wantsCheck() && !isKnown) due = Clock::now() + kCheckDelay;
                break;
            }
            case Event::Kind::Checked:
                checker.finish();
                server.finishCheck(event->answer);
                break;
            case Event::Kind::EndOfInput: return leave(checker, kFailure);
        }
    }
    return leave(checker, server.exitStatus());
}
