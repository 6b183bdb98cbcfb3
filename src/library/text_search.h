// Looking for a text in another one, without a case that takes the product of their lengths.
#pragma once

#include <cstring>
#include <string_view>

/// The offset of the first `part` in `text` at or behind `from`; npos if there is none.
[[nodiscard]] inline std::size_t findText(std::string_view text, std::string_view part,
                                          std::size_t from) {
    // Short ones are found faster by the standard library, which compares at each place where the
    // first byte stands: a long text of one byte in a longer one would take it hours.
    constexpr std::size_t kShort = 32;
    if (part.size() < kShort || from > text.size()) return text.find(part, from);
    const void* const found =
        memmem(text.data() + from, text.size() - from, part.data(), part.size());
    if (found == nullptr) return std::string_view::npos;
    return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}
