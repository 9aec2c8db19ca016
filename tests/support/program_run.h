// The whole program run in-process as from a shell, in a home folder of its own that holds the
// standard spectrum; standard output is captured.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "support/temp_folder.h"

namespace tervo::test {

struct ProgramHome : TempFolder {
    ProgramHome() {
        std::filesystem::create_directories(path / "spectrum");
        std::filesystem::copy_file(std::filesystem::path(TERVO_SOURCE_DIR) / "home/spectrum/AM1_5G 1 sun.spe",
                                   path / "spectrum/AM1_5G 1 sun.spe");
    }
};

// The exit status of `tervo arguments...`; what it printed goes into `out` when asked for.
inline int RunProgram(const std::vector<std::string>& arguments, std::string* out = nullptr) {
    std::vector<std::string> words{"tervo"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    ::testing::internal::CaptureStdout();
    const int status = RunTervo(static_cast<int>(words.size()), argv.data());
    const std::string text = ::testing::internal::GetCapturedStdout();
    if (out) *out = text;
    return status;
}

} // namespace tervo::test
