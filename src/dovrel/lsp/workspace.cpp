#include "dovrel/lsp/workspace.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <system_error>
#include <utility>

#include "dovrel/script_files.h"
#include "dovrel/text_file.h"

namespace {

/// Folders may hold anything; beyond this the rest of a folder is left alone.
constexpr std::size_t kMostFiles = 5000;
constexpr std::uintmax_t kLargestFile = std::uintmax_t{8} << 20;

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string pathOfUri(std::string_view uri) {
    constexpr std::string_view kScheme = "file://";
    if (!uri.starts_with(kScheme)) return {};
    uri.remove_prefix(kScheme.size());
    // The host, which is empty or this one.
    const std::size_t slash = uri.find('/');
    if (slash == std::string_view::npos) return {};
    uri.remove_prefix(slash);
    std::string path;
    for (std::size_t i = 0; i < uri.size(); ++i) {
        const int high = uri[i] == '%' && i + 2 < uri.size() ? hexValue(uri[i + 1]) : -1;
        const int low = high >= 0 ? hexValue(uri[i + 2]) : -1;
        if (low >= 0) {
            path += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            path += uri[i];
        }
    }
    return path;
}

std::string uriOfPath(const std::filesystem::path& path) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string uri = "file://";
    for (const char c : path.string()) {
        const bool isPlain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                             std::string_view("-._~/").find(c) != std::string_view::npos;
        if (isPlain) {
            uri += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            uri += '%';
            uri += kDigits[byte >> 4U];
            uri += kDigits[byte & 15U];
        }
    }
    return uri;
}

void Workspace::addFolder(const std::string& path) {
    if (path.empty() || std::find(folders_.begin(), folders_.end(), path) != folders_.end()) return;
    folders_.push_back(path);
    foldersAreRead_ = false;
}

void Workspace::removeFolder(const std::string& path) {
    std::erase(folders_, path);
    std::erase_if(documents_, [&](const auto& entry) {
        return !entry.second->isOpen && !isInFolder(entry.second->path());
    });
}

bool Workspace::isInFolder(const std::string& path) const {
    return std::any_of(folders_.begin(), folders_.end(), [&](const std::string& folder) {
        return path.starts_with(folder) && (path.size() == folder.size() || folder.ends_with('/') ||
                                            path[folder.size()] == '/');
    });
}

ScriptDocument& Workspace::open(const std::string& uri, std::string text, std::int64_t version) {
    const std::string path = pathOfUri(uri);
    // The same file may have been read from its folder under another spelling.
    if (!path.empty()) documents_.erase(uriOfPath(path));
    auto& document = documents_[uri];
    document = std::make_unique<ScriptDocument>(reader_, uri, path, std::move(text));
    document->isOpen = true;
    document->version = version;
    return *document;
}

void Workspace::close(const std::string& uri) {
    const auto found = documents_.find(uri);
    if (found == documents_.end()) return;
    const std::string path = found->second->path();
    documents_.erase(found);
    if (foldersAreRead_ && isInFolder(path)) readFile(path);
}

void Workspace::fileChanged(const std::string& uri) {
    const std::string path = pathOfUri(uri);
    if (path.empty() || !foldersAreRead_) return;
    const bool isOpen = std::any_of(documents_.begin(), documents_.end(), [&](const auto& entry) {
        return entry.second->isOpen && entry.second->path() == path;
    });
    if (isOpen) return;
    documents_.erase(uriOfPath(path));
    if (isInFolder(path)) readFile(path);
}

ScriptDocument* Workspace::findOpen(const std::string& uri) {
    const auto found = documents_.find(uri);
    return found != documents_.end() && found->second->isOpen ? found->second.get() : nullptr;
}

std::vector<const ScriptDocument*> Workspace::documents() const {
    if (!foldersAreRead_) readFolders();
    std::vector<const ScriptDocument*> all;
    for (const auto& [uri, document] : documents_) all.push_back(document.get());
    return all;
}

void Workspace::readFolders() const {
    foldersAreRead_ = true;
    for (const std::string& folder : folders_) {
        std::vector<std::string> paths;
        try {
            paths = findScripts({folder});
        } catch (const std::exception&) {
            continue;  // a folder that has gone, or may not be read
        }
        if (paths.size() > kMostFiles) paths.resize(kMostFiles);
        for (const std::string& path : paths) readFile(path);
    }
}

void Workspace::readFile(const std::string& path) const {
    const bool isKnown = std::any_of(documents_.begin(), documents_.end(), [&](const auto& entry) {
        return entry.second->path() == path;
    });
    if (isKnown) return;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error || size > kLargestFile) return;
    try {
        const std::string uri = uriOfPath(path);
        documents_[uri] = std::make_unique<ScriptDocument>(reader_, uri, path, readTextFile(path));
    } catch (const FileError&) {
        return;
    }
}
