// The one layout of scripts: indentation, blanks between tokens, blank lines. Comments and line
// breaks stay where they are.
#pragma once

#include <stdexcept>
#include <string>

/// A text that cannot be laid out; the message says why.
class FormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// `text` in the layout. The result means the same: its tokens and comments are compared with those
/// of `text`, and it is laid out already. Raises FormatError where a string is not closed.
[[nodiscard]] std::string formatScript(const std::string& text);
