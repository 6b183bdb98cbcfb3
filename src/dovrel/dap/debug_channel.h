// The two ways of a debugger's process: messages to and from the editor, and what the script
// prints. Both would go by the standard streams, so the script gets others.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

/// Takes over the standard streams of the process: standard input and output carry the protocol,
/// the script reads nothing, and what it writes comes out as `output` events.
class DebugChannel {
public:
    using Json = nlohmann::json;

    /// Raises std::system_error if the streams cannot be taken over.
    DebugChannel();
    ~DebugChannel();
    DebugChannel(const DebugChannel&) = delete;
    DebugChannel& operator=(const DebugChannel&) = delete;

    /// The next request, waiting for it; nothing once the editor has gone.
    [[nodiscard]] std::optional<Json> next();
    /// The next request if there is one already.
    [[nodiscard]] std::optional<Json> nextIfAny();
    /// There is a request, or the editor has gone. Costs next to nothing.
    [[nodiscard]] bool hasNews() const { return hasNews_.load(std::memory_order_relaxed); }
    [[nodiscard]] bool isClosed();

    void sendEvent(const std::string& event, Json body = Json::object());
    void sendResponse(const Json& request, Json body = Json::object());
    /// `message` is shown to the user.
    void sendFailure(const Json& request, const std::string& message);

    /// Waits until all that the script has written so far has been sent.
    void flushOutput();

private:
    struct Pipe {
        const char* category = nullptr;
        int readEnd = -1;
        std::thread reader;
        std::atomic<bool> isBusy{false};
    };

    void send(Json message);
    void readRequests(int input);
    void readOutput(Pipe& pipe);
    void redirect(int stream, Pipe& pipe);

    int protocol_ = -1;  // the descriptor for messages to the editor
    std::mutex sendMutex_;
    std::int64_t sequence_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Json> requests_;
    bool isClosed_ = false;
    std::atomic<bool> hasNews_{false};
    Pipe output_;
    Pipe errors_;
};
