#include "dovrel/protocol/message_stream.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace {

constexpr std::string_view kLengthHeader = "content-length:";

/// The length that a header line gives, if it is the one that gives it.
std::optional<std::size_t> lengthIn(const std::string& header) {
    std::string lowered = header;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (!lowered.starts_with(kLengthHeader)) return std::nullopt;
    std::size_t at = kLengthHeader.size();
    while (at < header.size() && header[at] == ' ') ++at;
    std::size_t length = 0;
    const auto [end, error] =
        std::from_chars(header.data() + at, header.data() + header.size(), length);
    if (error != std::errc() || end == header.data() + at) return std::nullopt;
    return length;
}

}  // namespace

std::optional<std::string> readMessage(std::istream& in) {
    std::optional<std::size_t> length;
    std::string header;
    while (std::getline(in, header)) {
        if (!header.empty() && header.back() == '\r') header.pop_back();
        if (!header.empty()) {
            if (const auto found = lengthIn(header)) length = found;
            continue;
        }
        if (!length) continue;
        if (*length > kLongestMessage) {
            in.ignore(static_cast<std::streamsize>(*length));
            length.reset();
            continue;
        }
        std::string content(*length, '\0');
        in.read(content.data(), static_cast<std::streamsize>(content.size()));
        if (static_cast<std::size_t>(in.gcount()) != content.size()) return std::nullopt;
        return content;
    }
    return std::nullopt;
}

void writeMessage(std::ostream& out, const std::string& content) {
    out << "Content-Length: " << content.size() << "\r\n\r\n" << content;
    out.flush();
}
