#include "library/file_handle.h"

#include <csignal>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <ios>
#include <system_error>
#include <vector>

namespace {

// A line from a pipe comes in pieces of this size, for which scripts are prepared.
constexpr std::size_t kLongestPipePiece = 4095;
constexpr std::size_t kReadSize = std::size_t{64} << 10;

/// While it lives, writing to a broken pipe or past the limit on a file's size fails like any other
/// write instead of ending the process. The signals are held back in this thread only, since
/// commands started meanwhile would inherit a disposition of the whole process.
class WriteSignalsHeldBack {
public:
    WriteSignalsHeldBack() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGPIPE);
        sigaddset(&signals_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signals_, &previous_);
    }
    ~WriteSignalsHeldBack() {
        const std::timespec atOnce{};
        while (sigtimedwait(&signals_, nullptr, &atOnce) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    WriteSignalsHeldBack(const WriteSignalsHeldBack&) = delete;
    WriteSignalsHeldBack& operator=(const WriteSignalsHeldBack&) = delete;

private:
    sigset_t signals_{};
    sigset_t previous_{};
};

}  // namespace

std::shared_ptr<FileHandle> FileHandle::openFile(const std::string& path, std::string_view mode) {
    // The standard library opens a directory for reading and fails at the first read.
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return nullptr;

    const auto has = [mode](char letter) { return mode.find(letter) != std::string_view::npos; };
    auto handle = std::make_shared<FileHandle>();
    handle->writable_ = has('w') || has('a') || has('+');
    handle->readable_ = !handle->writable_ || has('r') || has('+');

    std::ios::openmode flags = std::ios::binary;
    if (handle->readable_) flags |= std::ios::in;
    if (handle->writable_) flags |= std::ios::out;
    if (has('a')) {
        flags |= std::ios::app;
    } else if (has('w')) {
        flags |= std::ios::trunc;
    }
    handle->stream_ = std::make_unique<std::fstream>(path, flags);
    return handle->stream_->is_open() ? handle : nullptr;
}

std::shared_ptr<FileHandle> FileHandle::openPipe(const std::string& command,
                                                 const std::string& mode) {
    std::FILE* const pipe = popen(command.c_str(), mode.c_str());
    if (pipe == nullptr) return nullptr;
    auto handle = std::make_shared<FileHandle>();
    handle->pipe_.reset(pipe);
    return handle;
}

std::shared_ptr<FileHandle> FileHandle::openLines(LineSource nextLine) {
    auto handle = std::make_shared<FileHandle>();
    handle->lines_ = std::move(nextLine);
    return handle;
}

std::optional<std::string> FileHandle::readLine() {
    if (lines_) return lines_();
    if (pipe_ != nullptr) return readPipeLine();
    if (stream_ == nullptr || !readable_) return std::nullopt;
    std::string line;
    if (!std::getline(*stream_, line)) return std::nullopt;
    return line;
}

std::optional<std::string> FileHandle::readAll() {
    if (lines_) {
        std::string text;
        while (const std::optional<std::string> line = lines_()) (text += *line) += '\n';
        return text;
    }
    if (pipe_ != nullptr) return readPipeToEnd();
    if (stream_ == nullptr || !readable_) return std::nullopt;
    return readStreamToEnd();
}

std::optional<std::string> FileHandle::readPipeLine() {
    std::string line;
    int byte = 0;
    while (line.size() < kLongestPipePiece && (byte = getc_unlocked(pipe_.get())) != EOF) {
        if (byte == '\n') return line;
        line += static_cast<char>(byte);
    }
    if (line.empty()) return std::nullopt;
    return line;
}

std::string FileHandle::readPipeToEnd() {
    std::string text;
    std::vector<char> buffer(kReadSize);
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe_.get())) {
        text.append(buffer.data(), count);
    }
    return text;
}

std::string FileHandle::readStreamToEnd() {
    std::string text;
    std::vector<char> buffer(kReadSize);
    const auto wanted = static_cast<std::streamsize>(buffer.size());
    // Past the stream and from its buffer, so that reaching the end leaves no mark on the stream
    // and it can still be written to.
    try {
        std::streamsize count = 0;
        do {
            count = stream_->rdbuf()->sgetn(buffer.data(), wanted);
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } while (count == wanted);
    } catch (const std::ios_base::failure&) {
        // A device that cannot be read ends where the error is.
    }
    return text;
}

void FileHandle::write(std::string_view text) {
    const WriteSignalsHeldBack held;
    stream_->write(text.data(), static_cast<std::streamsize>(text.size()));
    stream_->flush();
}

void FileHandle::close() {
    if (stream_ != nullptr) {
        // What a failed flush has left behind is tried once more here.
        const WriteSignalsHeldBack held;
        stream_.reset();
    }
    pipe_.reset();
    lines_ = nullptr;
}
