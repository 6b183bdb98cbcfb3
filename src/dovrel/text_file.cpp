#include "dovrel/text_file.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>

std::string readTextFile(const std::string& path) {
    if (path == "-") {
        return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    }
    std::error_code ignored;
    std::ifstream file(path, std::ios::binary);
    // A directory opens as a stream but cannot be read.
    if (!file || std::filesystem::is_directory(path, ignored)) {
        throw FileError("failed to open file: " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeTextFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) throw FileError("failed to write file: " + path);
}

void replaceTextFile(const std::string& path, const std::string& text) {
    namespace fs = std::filesystem;
    std::error_code failure;
    // Through a link to the file itself, which would else become a file of its own.
    const fs::path target = fs::canonical(path, failure);
    if (failure) throw FileError("failed to open file: " + path);
    fs::path written = target;
    written += ".dovrel-new";
    {
        std::ofstream file(written, std::ios::binary | std::ios::trunc);
        file << text;
        file.close();
        if (!file) {
            fs::remove(written, failure);
            throw FileError("failed to write file: " + path);
        }
    }
    fs::permissions(written, fs::status(target).permissions(), failure);
    fs::rename(written, target, failure);
    if (failure) {
        std::error_code ignored;
        fs::remove(written, ignored);
        throw FileError("failed to write file: " + path);
    }
}
