#include "dovrel/dap/debug_channel.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>
#include <system_error>
#include <utility>

#include "dovrel/protocol/message_stream.h"
#include "interpreter/dovrel_script.h"

namespace {

/// How long a script that does not come to its next statement has, once the editor has gone.
constexpr std::chrono::seconds kTimeToEnd{2};

/// A descriptor as the buffer of an input stream.
class DescriptorBuffer : public std::streambuf {
public:
    explicit DescriptorBuffer(int descriptor) : descriptor_(descriptor) {}

protected:
    int_type underflow() override {
        const ssize_t count = read(descriptor_, bytes_.data(), bytes_.size());
        if (count <= 0) return traits_type::eof();
        setg(bytes_.data(), bytes_.data(), bytes_.data() + count);
        return traits_type::to_int_type(bytes_[0]);
    }

private:
    int descriptor_;
    std::array<char, 1U << 14U> bytes_{};
};

int requireDescriptor(int descriptor) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category());
    return descriptor;
}

/// The part of `text` that ends with a whole character; the rest waits for more.
std::size_t wholeCharacters(const std::string& text) {
    std::size_t end = text.size();
    for (std::size_t back = 1; back <= 3 && back <= text.size(); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if (byte < 0x80U) break;
        if (byte < 0xC0U) continue;
        const std::size_t length = byte >= 0xF0U ? 4 : byte >= 0xE0U ? 3 : 2;
        if (length > back) end = text.size() - back;
        break;
    }
    return end;
}

}  // namespace

DebugChannel::DebugChannel() {
    const int input = requireDescriptor(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    protocol_ = requireDescriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    const int nothing = requireDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    requireDescriptor(dup2(nothing, STDIN_FILENO));
    close(nothing);
    output_.category = "stdout";
    errors_.category = "stderr";
    redirect(STDOUT_FILENO, output_);
    redirect(STDERR_FILENO, errors_);
    // It ends with the input, or with the process: a read cannot be interrupted.
    std::thread([this, input] { readRequests(input); }).detach();
}

DebugChannel::~DebugChannel() {
    flushOutput();
    // The last writers of the pipes, so that their readers come to an end.
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    output_.reader.join();
    errors_.reader.join();
}

void DebugChannel::redirect(int stream, Pipe& pipe) {
    std::array<int, 2> ends{};
    requireDescriptor(pipe2(ends.data(), O_CLOEXEC));
    requireDescriptor(dup2(ends[1], stream));
    close(ends[1]);
    pipe.readEnd = ends[0];
    pipe.reader = std::thread([this, &pipe] { readOutput(pipe); });
}

void DebugChannel::readOutput(Pipe& pipe) {
    std::array<char, 1U << 14U> bytes{};
    std::string waiting;
    while (true) {
        const ssize_t count = read(pipe.readEnd, bytes.data(), bytes.size());
        if (count <= 0) break;
        pipe.isBusy = true;
        waiting.append(bytes.data(), static_cast<std::size_t>(count));
        const std::size_t whole = wholeCharacters(waiting);
        if (whole > 0) {
            sendEvent("output",
                      {{"category", pipe.category}, {"output", waiting.substr(0, whole)}});
            waiting.erase(0, whole);
        }
        pipe.isBusy = false;
    }
    if (!waiting.empty()) {
        sendEvent("output", {{"category", pipe.category}, {"output", waiting}});
    }
    close(pipe.readEnd);
}

void DebugChannel::flushOutput() {
    std::cout.flush();
    std::cerr.flush();
    static_cast<void>(std::fflush(stdout));
    static_cast<void>(std::fflush(stderr));
    // A reader may be between its read and its note of it, so nothing twice in a row counts.
    int quiet = 0;
    for (int round = 0; round < 2000 && quiet < 3; ++round) {
        int left = 0;
        int more = 0;
        ioctl(output_.readEnd, FIONREAD, &left);
        ioctl(errors_.readEnd, FIONREAD, &more);
        const bool isQuiet = left == 0 && more == 0 && !output_.isBusy && !errors_.isBusy;
        quiet = isQuiet ? quiet + 1 : 0;
        std::this_thread::sleep_for(std::chrono::microseconds(isQuiet ? 200 : 500));
    }
}

void DebugChannel::readRequests(int input) {
    DescriptorBuffer buffer(input);
    std::istream stream(&buffer);
    while (const auto content = readMessage(stream)) {
        Json request = Json::parse(*content, nullptr, false);
        if (request.is_discarded() || !request.is_object()) continue;
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(std::move(request));
            hasNews_ = true;
        }
        changed_.notify_one();
    }
    {
        const std::lock_guard lock(mutex_);
        isClosed_ = true;
        hasNews_ = true;
    }
    changed_.notify_one();
    // A script that waits for something does not see that the editor has gone.
    RunContext::current().watch.interrupt();
    std::this_thread::sleep_for(kTimeToEnd);
    std::_Exit(1);
}

std::optional<DebugChannel::Json> DebugChannel::next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isClosed_ || !requests_.empty(); });
    lock.unlock();
    return nextIfAny();
}

std::optional<DebugChannel::Json> DebugChannel::nextIfAny() {
    const std::lock_guard lock(mutex_);
    if (requests_.empty()) return std::nullopt;
    Json request = std::move(requests_.front());
    requests_.pop_front();
    hasNews_ = isClosed_ || !requests_.empty();
    return request;
}

bool DebugChannel::isClosed() {
    const std::lock_guard lock(mutex_);
    return isClosed_ && requests_.empty();
}

void DebugChannel::send(Json message) {
    const std::lock_guard lock(sendMutex_);
    message["seq"] = ++sequence_;
    const std::string content =
        message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    const std::string data =
        "Content-Length: " + std::to_string(content.size()) + "\r\n\r\n" + content;
    for (std::size_t at = 0; at < data.size();) {
        const ssize_t count = write(protocol_, data.data() + at, data.size() - at);
        if (count <= 0) return;  // the editor has gone
        at += static_cast<std::size_t>(count);
    }
}

void DebugChannel::sendEvent(const std::string& event, Json body) {
    send({{"type", "event"}, {"event", event}, {"body", std::move(body)}});
}

void DebugChannel::sendResponse(const Json& request, Json body) {
    send({{"type", "response"},
          {"request_seq", request.value("seq", 0)},
          {"command", request.value("command", "")},
          {"success", true},
          {"body", std::move(body)}});
}

void DebugChannel::sendFailure(const Json& request, const std::string& message) {
    send({{"type", "response"},
          {"request_seq", request.value("seq", 0)},
          {"command", request.value("command", "")},
          {"success", false},
          {"message", message},
          {"body", {{"error", {{"id", 1}, {"format", message}, {"showUser", true}}}}}});
}
