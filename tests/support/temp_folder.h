// A fresh empty folder under the system's temporary folder, removed at the end of the test, and the
// writing and reading of small text files.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace tervo::test {

struct TempFolder {
    std::filesystem::path path;
    TempFolder() {
        std::random_device random;
        path = std::filesystem::temp_directory_path() /
               ("tervo_test_" + std::to_string(random()) + std::to_string(random()));
        std::filesystem::create_directories(path);
    }
    ~TempFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    std::string operator/(const std::string& name) const { return (path / name).string(); }
};

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path);
    out << text;
}

// The bytes of a file; "" for one that cannot be read.
inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The lines of a text, or the fields of a line, without their separators.
inline std::vector<std::string> Lines(const std::string& text, char separator = '\n') {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
    return parts;
}
inline std::vector<std::string> FileLines(const std::string& path) {
    return Lines(ReadFile(path));
}
inline std::vector<std::string> Cells(const std::string& row, char separator = '\t') {
    return Lines(row, separator);
}

} // namespace tervo::test
