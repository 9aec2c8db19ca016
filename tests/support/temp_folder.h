// A fresh empty folder under the system's temporary folder, removed at the end of the test, and the
// writing of a small text file into it.
#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

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

} // namespace tervo::test
