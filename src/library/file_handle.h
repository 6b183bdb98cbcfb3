// An open file or pipe, as the methods of a file object see it. Bytes pass through unchanged, zero
// bytes included, and no failure is ever raised or signalled.
#pragma once

#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// Gives a line without its line feed, or nothing at the end.
using LineSource = std::function<std::optional<std::string>()>;

class FileHandle {
public:
    /// Opens a file; null if that fails. A mode without "w", "a" and "+" reads; with one of them
    /// the file is written, and an "r" or a "+" makes it readable too. "a" appends, "w" alone
    /// truncates. Nothing else in a mode matters.
    [[nodiscard]] static std::shared_ptr<FileHandle> openFile(const std::string& path,
                                                              std::string_view mode);
    /// Starts a command; null if that fails. `mode` is what `popen` takes.
    [[nodiscard]] static std::shared_ptr<FileHandle> openPipe(const std::string& command,
                                                              const std::string& mode);

    /// A file to read, whose lines come from `nextLine`.
    [[nodiscard]] static std::shared_ptr<FileHandle> openLines(LineSource nextLine);

    FileHandle() = default;
    ~FileHandle() { close(); }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    /// The next line without its line feed; nothing at the end or on a handle that cannot be read.
    /// A pipe gives a line of more than 4095 bytes in pieces.
    [[nodiscard]] std::optional<std::string> readLine();
    /// What is left, empty at the end; nothing on a handle that cannot be read.
    [[nodiscard]] std::optional<std::string> readAll();

    [[nodiscard]] bool isWritable() const { return stream_ != nullptr && writable_; }
    /// Writes `text` and flushes. The handle must be writable.
    void write(std::string_view text);

    /// Closes the file, or waits for the command to end; its exit status is dropped. The handle can
    /// be neither read nor written any more. May be repeated.
    void close();

private:
    struct PipeCloser {
        void operator()(std::FILE* pipe) const { pclose(pipe); }
    };

    [[nodiscard]] std::optional<std::string> readPipeLine();
    [[nodiscard]] std::string readPipeToEnd();
    [[nodiscard]] std::string readStreamToEnd();

    // One stream for both directions, so that they share the position and the state: once a line
    // has been looked for at the end of the file, nothing is written any more. Kept.
    std::unique_ptr<std::fstream> stream_;
    bool readable_ = false;
    bool writable_ = false;
    // Read only: a command cannot be written to, whatever its mode.
    std::unique_ptr<std::FILE, PipeCloser> pipe_;
    LineSource lines_;
};
