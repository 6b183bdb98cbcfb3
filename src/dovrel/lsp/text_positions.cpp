#include "dovrel/lsp/text_positions.h"

#include <algorithm>

namespace {

/// The number of bytes of the character at `at`; 1 for bytes that begin none.
std::size_t characterLength(std::string_view text, std::size_t at) {
    const auto byteAt = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    std::size_t length = 1;
    if (byteAt(at) >= 0xF0 && byteAt(at) < 0xF8) {
        length = 4;
    } else if (byteAt(at) >= 0xE0) {
        length = byteAt(at) < 0xF0 ? 3 : 1;
    } else if (byteAt(at) >= 0xC0) {
        length = 2;
    }
    if (at + length > text.size()) return 1;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(at + i) & 0xC0U) != 0x80U) return 1;
    }
    return length;
}

std::size_t unitsOfCharacter(std::size_t length, PositionEncoding encoding) {
    if (encoding == PositionEncoding::Utf8) return length;
    return length == 4 ? 2 : 1;
}

/// A line begins at `at`: behind a line feed, or behind a carriage return that has none.
bool beginsLine(std::string_view text, std::size_t at) {
    if (text[at - 1] == '\n') return true;
    return text[at - 1] == '\r' && (at == text.size() || text[at] != '\n');
}

}  // namespace

LineStarts::LineStarts(std::string_view text) : starts_{0} {
    for (std::size_t at = 1; at <= text.size(); ++at) {
        if (beginsLine(text, at)) starts_.push_back(at);
    }
}

void LineStarts::replace(std::string_view text, std::size_t first, std::size_t removed,
                         std::size_t inserted) {
    // A carriage return in front of the change, or a line feed behind it, may belong to a pair now.
    const std::size_t from = std::max<std::size_t>(first, 1);
    const std::size_t oldEnd = first + removed + 1;
    const std::size_t newEnd = std::min(first + inserted + 1, text.size());
    const auto begin = std::lower_bound(starts_.begin() + 1, starts_.end(), from);
    const auto end = std::upper_bound(begin, starts_.end(), oldEnd);
    for (auto later = end; later != starts_.end(); ++later) *later = *later - removed + inserted;
    std::vector<std::size_t> fresh;
    for (std::size_t at = from; at <= newEnd; ++at) {
        if (beginsLine(text, at)) fresh.push_back(at);
    }
    const auto place = starts_.erase(begin, end);
    starts_.insert(place, fresh.begin(), fresh.end());
}

std::size_t LineStarts::lineOf(std::size_t offset) const {
    const auto next = std::upper_bound(starts_.begin(), starts_.end(), offset);
    return static_cast<std::size_t>(next - starts_.begin()) - 1;
}

std::size_t LineStarts::offsetOf(std::string_view text, EditorPosition position,
                                 PositionEncoding encoding) const {
    if (position.line >= starts_.size()) return text.size();
    std::size_t at = starts_[position.line];
    const std::size_t next =
        position.line + 1 < starts_.size() ? starts_[position.line + 1] : text.size();
    std::size_t units = 0;
    while (at < next && text[at] != '\n' && text[at] != '\r') {
        const std::size_t length = characterLength(text, at);
        units += unitsOfCharacter(length, encoding);
        if (units > position.character) break;
        at += length;
    }
    return at;
}

EditorPosition LineStarts::positionOf(std::string_view text, std::size_t offset,
                                      PositionEncoding encoding) const {
    offset = std::min(offset, text.size());
    const std::size_t line = lineOf(offset);
    return {line, unitsOf(text.substr(starts_[line], offset - starts_[line]), encoding)};
}

std::size_t unitsOf(std::string_view text, PositionEncoding encoding) {
    if (encoding == PositionEncoding::Utf8) return text.size();
    std::size_t units = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = characterLength(text, at);
        units += unitsOfCharacter(length, encoding);
        at += length;
    }
    return units;
}
