// Files of text, as the commands read and write them.
#pragma once

#include <stdexcept>
#include <string>

/// A file that cannot be read or written; the text names it.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The whole content of a file, or of standard input for "-". Raises FileError.
[[nodiscard]] std::string readTextFile(const std::string& path);

/// Writes `text` as a file, a new one or over what is there. Raises FileError.
void writeTextFile(const std::string& path, const std::string& text);

/// Replaces a file by `text`, all at once: a reader finds the old content or the new one. The
/// rights of the file stay. Raises FileError.
void replaceTextFile(const std::string& path, const std::string& text);
