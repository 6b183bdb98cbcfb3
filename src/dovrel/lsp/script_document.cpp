#include "dovrel/lsp/script_document.h"

#include <algorithm>

bool isOwnKind(NameUseKind kind) {
    return kind == NameUseKind::Native || kind == NameUseKind::Local ||
           kind == NameUseKind::Parameter || kind == NameUseKind::LoopVariable;
}

Outline::Outline(const std::vector<std::shared_ptr<const Chunk>>& chunks) {
    std::size_t base = 0;
    for (const auto& chunk : chunks) {
        for (const LineFacts& facts : chunk->lines) {
            OutlineLine& line = lines_.emplace_back();
            line.facts = &facts;
            line.base = base;
        }
        base += chunk->size;
    }
    functions_.emplace_back().last = static_cast<std::uint32_t>(lines_.size());
    nest();
}

/// By the rules by which the front end links blocks; a block that nothing closes ends with the
/// text.
void Outline::nest() {
    std::vector<std::uint32_t> open;
    std::uint32_t function = 0;
    const auto openKind = [&] { return lines_[open.back()].facts->kind; };
    for (std::uint32_t i = 0; i < lines_.size(); ++i) {
        OutlineLine& line = lines_[i];
        const LineKind kind = line.facts->kind;
        const bool closes =
            !open.empty() &&
            (kind == LineKind::End || (kind == LineKind::Until && openKind() == LineKind::Repeat));
        const bool branches = !open.empty() && openKind() == LineKind::If &&
                              (kind == LineKind::ElseIf || kind == LineKind::Else);
        if (closes) {
            lines_[open.back()].partner = i;
            if (lines_[open.back()].declared != 0) {
                functions_[function].last = i;
                function = functions_[function].parent;
            }
            open.pop_back();
        }
        if (branches) {
            line.around = lines_[open.back()].around;
        } else {
            line.around = open.empty() ? kNoIndex : open.back();
        }
        line.function = function;
        if (line.facts->function != nullptr) {
            line.declared = static_cast<std::uint32_t>(functions_.size());
            functions_.push_back({line.facts->function.get(), i, i + 1,
                                  static_cast<std::uint32_t>(lines_.size()), function});
            function = line.declared;
            open.push_back(i);
        } else if (kind == LineKind::If || kind == LineKind::While || kind == LineKind::For ||
                   kind == LineKind::Repeat) {
            open.push_back(i);
        }
        for (const NameFact& name : line.facts->names) {
            if (isOwnKind(name.kind)) owned_.emplace_back(functionOf(line, name), name.name);
        }
    }
}

std::uint32_t Outline::lineAt(std::size_t offset) const {
    const auto next = std::upper_bound(
        lines_.begin(), lines_.end(), offset,
        [](std::size_t at, const OutlineLine& line) { return at < line.range().first; });
    if (next == lines_.begin()) return kNoIndex;
    return static_cast<std::uint32_t>(next - lines_.begin()) - 1;
}

bool Outline::owns(std::uint32_t function, NameId name) const {
    if (!isSorted_) {
        std::sort(owned_.begin(), owned_.end());
        isSorted_ = true;
    }
    return std::binary_search(owned_.begin(), owned_.end(), std::pair(function, name));
}

ScriptDocument::ScriptDocument(LineReader& reader, std::string uri, std::string path,
                               std::string text)
    : reader_(reader), uri_(std::move(uri)), path_(std::move(path)) {
    replaceText(std::move(text));
}

std::size_t ScriptDocument::chunkAt(std::size_t offset) const {
    const auto next = std::upper_bound(chunkStarts_.begin(), std::prev(chunkStarts_.end()), offset);
    return static_cast<std::size_t>(next - chunkStarts_.begin()) - 1;
}

void ScriptDocument::replaceText(std::string text) {
    text_ = std::move(text);
    lineStarts_ = LineStarts(text_);
    chunks_.clear();
    for (std::size_t at = 0; at < text_.size();) chunks_.push_back(readChunk(at, at));
    countStarts(0);
    outline_.reset();
    ++revision_;
}

void ScriptDocument::replace(SourceRange range, std::string_view text) {
    const std::size_t removed = range.last - range.first;
    text_.replace(range.first, removed, text);
    lineStarts_.replace(text_, range.first, removed, text.size());
    outline_.reset();
    ++revision_;

    // The first chunk that has looked at what has changed.
    std::size_t first = chunks_.empty() ? 0 : chunkAt(range.first);
    for (std::size_t i = first; i-- > 0;) {
        if (chunkStarts_[i + 1] + 2 * kLongestStringBytes < range.first) break;
        if (chunkStarts_[i] + chunks_[i]->reach > range.first) first = i;
    }
    // From there on, up to where an old chunk begins behind the change.
    std::size_t at = chunks_.empty() ? 0 : chunkStarts_[first];
    std::size_t last = first;
    std::vector<std::shared_ptr<const Chunk>> fresh;
    const std::size_t changeEnd = range.first + text.size();
    while (true) {
        if (at >= changeEnd) {
            const std::size_t before = at - text.size() + removed;
            while (last < chunks_.size() && chunkStarts_[last] < before) ++last;
            if (last == chunks_.size() || chunkStarts_[last] == before) {
                if (last < chunks_.size() || at == text_.size()) break;
            }
        }
        if (at == text_.size()) {
            last = chunks_.size();
            break;
        }
        fresh.push_back(readChunk(at, at));
    }
    const auto begin = chunks_.begin() + static_cast<std::ptrdiff_t>(first);
    const auto place = chunks_.erase(begin, chunks_.begin() + static_cast<std::ptrdiff_t>(last));
    chunks_.insert(place, fresh.begin(), fresh.end());
    countStarts(first);
}

std::shared_ptr<const Chunk> ScriptDocument::readChunk(std::size_t start, std::size_t& end) const {
    const SplitChunk split = splitChunk(text_, start);
    end = split.end;
    auto chunk = std::make_shared<Chunk>();
    chunk->size = static_cast<std::uint32_t>(split.end - start);
    chunk->reach = static_cast<std::uint32_t>(split.reach - start);
    chunk->comments = split.comments;
    chunk->isOpen = split.isOpen;
    chunk->lines.reserve(split.lines.size());
    for (const SplitChunk::Line& line : split.lines) {
        chunk->lines.push_back(reader_.read(line.split, line.closer));
        // What an open bracket holds is not read to its end.
        if (split.isOpen && &line == &split.lines.back()) chunk->lines.back().isReadable = false;
    }
    return chunk;
}

void ScriptDocument::countStarts(std::size_t from) {
    chunkStarts_.resize(chunks_.size() + 1);
    if (from == 0) chunkStarts_[0] = 0;
    for (std::size_t i = from; i < chunks_.size(); ++i) {
        chunkStarts_[i + 1] = chunkStarts_[i] + chunks_[i]->size;
    }
}

const Outline& ScriptDocument::outline() const {
    if (!outline_) outline_.emplace(chunks_);
    return *outline_;
}

std::vector<SourceRange> ScriptDocument::comments() const {
    std::vector<SourceRange> comments;
    for (std::size_t i = 0; i < chunks_.size(); ++i) {
        for (const ChunkRange& comment : chunks_[i]->comments) {
            comments.push_back({chunkStarts_[i] + comment.first, chunkStarts_[i] + comment.last});
        }
    }
    return comments;
}
