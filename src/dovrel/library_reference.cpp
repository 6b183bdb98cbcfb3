#include "dovrel/library_reference.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

std::string_view libraryDocument();  // docs/library.md, put into the executable by the build

namespace {

std::string lowered(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

/// Blank lines at both ends taken off.
std::string trimmedLines(const std::string& text) {
    const std::size_t first = text.find_first_not_of('\n');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of('\n') - first + 1) + '\n';
}

/// The names of a heading such as `toString, tostring`.
std::vector<std::string> splitNames(std::string_view heading) {
    std::vector<std::string> names;
    while (!heading.empty()) {
        const std::size_t comma = std::min(heading.find(", "), heading.size());
        names.emplace_back(heading.substr(0, comma));
        heading.remove_prefix(std::min(comma + 2, heading.size()));
    }
    return names;
}

}  // namespace

LibraryReference::LibraryReference(std::string_view document) {
    std::string chapterOf;
    std::vector<std::size_t> chapterEntries;  // chapter of each entry
    bool inBlock = false;
    bool inEntry = false;
    while (!document.empty()) {
        const std::size_t end = std::min(document.find('\n'), document.size());
        const std::string_view line = document.substr(0, end);
        document.remove_prefix(std::min(end + 1, document.size()));
        if (line.starts_with("```")) inBlock = !inBlock;
        if (!inBlock && line.starts_with("## ")) {
            chapters_.push_back({std::string(line.substr(3)), {}, {}});
            inEntry = false;
        } else if (!inBlock && line.starts_with("### ") && !chapters_.empty()) {
            entries_.push_back({splitNames(line.substr(4)), chapters_.back().title, {}});
            chapterEntries.push_back(chapters_.size() - 1);
            inEntry = true;
        } else if (!chapters_.empty()) {
            std::string& text = inEntry ? entries_.back().text : chapters_.back().text;
            text.append(line) += '\n';
        }
    }
    for (LibraryChapter& chapter : chapters_) chapter.text = trimmedLines(chapter.text);
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        entries_[i].text = trimmedLines(entries_[i].text);
        chapters_[chapterEntries[i]].entries.push_back(&entries_[i]);
    }
}

const LibraryReference& LibraryReference::ofLibrary() {
    static const LibraryReference reference(libraryDocument());
    return reference;
}

std::vector<std::string> LibraryReference::names() const {
    std::vector<std::string> names;
    for (const LibraryEntry& entry : entries_) {
        names.insert(names.end(), entry.names.begin(), entry.names.end());
    }
    return names;
}

const LibraryEntry* LibraryReference::find(std::string_view name) const {
    const LibraryName wanted = splitLibraryName(name);
    for (const LibraryEntry& entry : entries_) {
        for (const std::string& other : entry.names) {
            const LibraryName known = splitLibraryName(other);
            if (known.table == wanted.table && known.member == wanted.member) return &entry;
        }
    }
    return nullptr;
}

std::vector<const LibraryEntry*> LibraryReference::findMembers(std::string_view member) const {
    std::vector<const LibraryEntry*> found;
    for (const LibraryEntry& entry : entries_) {
        for (const std::string& name : entry.names) {
            const LibraryName known = splitLibraryName(name);
            if (!known.table.empty() && known.member == member) found.push_back(&entry);
        }
    }
    return found;
}

const LibraryChapter* LibraryReference::findChapter(std::string_view title) const {
    const std::string wanted = lowered(title);
    const auto found = std::find_if(
        chapters_.begin(), chapters_.end(),
        [&](const LibraryChapter& chapter) { return lowered(chapter.title) == wanted; });
    return found == chapters_.end() ? nullptr : &*found;
}

std::optional<std::string> LibraryReference::nearest(std::string_view name) const {
    // Compared in the shorter form, in which the two halves of a name count alike.
    const auto plain = [](std::string_view written) {
        const LibraryName split = splitLibraryName(written);
        return split.table.empty() ? split.member : split.table + '.' + split.member;
    };
    const std::vector<std::string> known = names();
    std::vector<std::string> plainNames;
    for (const std::string& written : known) plainNames.push_back(plain(written));
    const auto found = nearestName(plain(name), plainNames);
    if (!found) return std::nullopt;
    const auto at = std::find(plainNames.begin(), plainNames.end(), *found);
    return known[static_cast<std::size_t>(at - plainNames.begin())];
}

LibraryName splitLibraryName(std::string_view name) {
    const std::size_t bracket = name.find('[');
    if (bracket != std::string_view::npos && name.size() >= bracket + 5 && name.back() == ']') {
        const std::string_view key = name.substr(bracket + 1, name.size() - bracket - 2);
        if ((key.front() == '"' || key.front() == '\'') && key.back() == key.front()) {
            return {std::string(name.substr(0, bracket)),
                    std::string(key.substr(1, key.size() - 2))};
        }
    }
    const std::size_t dot = name.find('.');
    if (dot != std::string_view::npos) {
        return {std::string(name.substr(0, dot)), std::string(name.substr(dot + 1))};
    }
    return {{}, std::string(name)};
}

std::size_t spellingDistance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1,
                                               std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t changed = a[i - 1] == b[j - 1] ? 0 : 1;
            cost[i][j] =
                std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + changed});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

std::optional<std::string> nearestName(std::string_view name,
                                       const std::vector<std::string>& names) {
    const std::size_t allowed = std::min<std::size_t>(3, std::max<std::size_t>(1, name.size() / 3));
    std::optional<std::string> nearest;
    std::size_t least = allowed + 1;
    for (const std::string& other : names) {
        if (other == name || (name.size() < 2 || other.size() < 2)) continue;
        // Capitals are what is confused most.
        std::size_t distance = spellingDistance(name, other);
        if (lowered(name) == lowered(other)) distance = 0;
        if (distance < least) {
            least = distance;
            nearest = other;
        }
    }
    return nearest;
}
