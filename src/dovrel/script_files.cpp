#include "dovrel/script_files.h"

#include <algorithm>
#include <filesystem>

#include "dovrel/text_file.h"

namespace {

void addBelow(const std::filesystem::path& folder, std::string_view suffix,
              std::vector<std::string>& files) {
    namespace fs = std::filesystem;
    std::vector<std::string> found;
    for (auto at = fs::recursive_directory_iterator(folder); at != fs::end(at); ++at) {
        const std::string name = at->path().filename().string();
        if (at->is_directory() && name.starts_with('.')) {
            at.disable_recursion_pending();
        } else if (name.ends_with(suffix) && at->is_regular_file()) {
            const std::string path = at->path().string();
            // The working directory needs no name.
            found.push_back(path.starts_with("./") ? path.substr(2) : path);
        }
    }
    std::sort(found.begin(), found.end());
    files.insert(files.end(), found.begin(), found.end());
}

}  // namespace

std::vector<std::string> findScripts(const std::vector<std::string>& paths,
                                     std::string_view suffix) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        std::error_code failure;
        if (path == "-") {
            files.push_back(path);
        } else if (fs::is_directory(path, failure)) {
            addBelow(path, suffix, files);
        } else if (fs::exists(path, failure)) {
            files.push_back(path);
        } else {
            throw FileError("failed to open file: " + path);
        }
    }
    return files;
}
