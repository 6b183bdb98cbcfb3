// The scripts that the server knows: those that are open, and those in the folders of the editor.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/lsp/script_document.h"

/// The path of a `file:` URI; empty for any other.
[[nodiscard]] std::string pathOfUri(std::string_view uri);
[[nodiscard]] std::string uriOfPath(const std::filesystem::path& path);

class Workspace {
public:
    Workspace() : reader_(names_) {}

    [[nodiscard]] NameTable& names() { return names_; }
    [[nodiscard]] const NameTable& names() const { return names_; }

    void addFolder(const std::string& path);
    void removeFolder(const std::string& path);
    [[nodiscard]] const std::vector<std::string>& folders() const { return folders_; }

    ScriptDocument& open(const std::string& uri, std::string text, std::int64_t version);
    /// The file of a document that closes is read again, if it is one of a folder.
    void close(const std::string& uri);
    /// A file has changed on the disk, or has gone. An open one is the editor's and stays.
    void fileChanged(const std::string& uri);
    /// Null if the document is not open.
    [[nodiscard]] ScriptDocument* findOpen(const std::string& uri);

    /// All that is open and all of the folders, by name. The folders are read at the first call.
    [[nodiscard]] std::vector<const ScriptDocument*> documents() const;

private:
    void readFolders() const;
    void readFile(const std::string& path) const;
    [[nodiscard]] bool isInFolder(const std::string& path) const;

    NameTable names_;
    mutable LineReader reader_;
    std::vector<std::string> folders_;
    // By their URIs, as written by uriOfPath or by the editor.
    mutable std::map<std::string, std::unique_ptr<ScriptDocument>> documents_;
    mutable bool foldersAreRead_ = false;
};
