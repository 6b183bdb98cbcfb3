// The frames in which editors and their servers exchange JSON: a header with the length of the
// content, a blank line, the content.
#pragma once

#include <cstddef>
#include <istream>
#include <optional>
#include <ostream>
#include <string>

/// Content beyond this length is passed over: no message of an editor is as long, and a wrong
/// length must not take the machine's memory.
inline constexpr std::size_t kLongestMessage = std::size_t{256} << 20;

/// The content of the next message, or nothing at the end of the input. Headers other than the
/// length are passed over, and so is a header without one.
[[nodiscard]] std::optional<std::string> readMessage(std::istream& in);

/// Writes `content` as one message and flushes.
void writeMessage(std::ostream& out, const std::string& content);
