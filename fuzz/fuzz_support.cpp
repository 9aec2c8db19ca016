#include "fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "app/command_line.h"
#include "platform/messages.h"
#include "run/control/problem.h"
#include "run/control/startup.h"
#include "script/script_runner.h"

namespace tervo::fuzz {

namespace {

std::string homeFolder;

void RemoveHome() {
    std::error_code ec;
    if (!homeFolder.empty()) std::filesystem::remove_all(homeFolder, ec);
}

} // namespace

const std::string& Home() {
    if (!homeFolder.empty()) return homeFolder;
    // A folder in memory where there is one: every file written is synced to its disk.
    std::error_code ec;
    const std::filesystem::path memory("/dev/shm");
    const std::filesystem::path base =
        std::filesystem::is_directory(memory, ec) && access(memory.c_str(), W_OK) == 0
            ? memory
            : std::filesystem::temp_directory_path();
    std::string pattern = (base / "tervo_fuzz_XXXXXX").string();
    if (!mkdtemp(pattern.data())) {
        std::perror("tervo fuzz: no temporary home folder");
        std::abort();
    }
    homeFolder = pattern + "/";
    std::atexit(RemoveHome);
    const std::filesystem::path spectrum = std::filesystem::path(homeFolder) / "spectrum";
    std::filesystem::create_directories(spectrum);
    std::filesystem::copy_file(std::filesystem::path(TERVO_SOURCE_DIR) / "home/spectrum/AM1_5G 1 sun.spe",
                               spectrum / "AM1_5G 1 sun.spe");
    // The shipped cells and action lists, for scripts that load them by their bare names.
    const std::filesystem::path source(TERVO_SOURCE_DIR);
    std::filesystem::create_directories(std::filesystem::path(homeFolder) / "def");
    for (const char* folder : {"home/def", "examples/cells", "examples/actions"})
        for (const auto& entry : std::filesystem::directory_iterator(source / folder))
            if (entry.is_regular_file())
                std::filesystem::copy_file(
                    entry.path(), std::filesystem::path(homeFolder) / "def" / entry.path().filename(),
                    std::filesystem::copy_options::overwrite_existing);
    if (chdir(homeFolder.c_str()) != 0) {
        std::perror("tervo fuzz: cannot enter the home folder");
        std::abort();
    }
    SetTERVOHome(homeFolder);
    InitialiseProgram();
    ErrorMessageMode = 2;
    return homeFolder;
}

std::string WriteInput(const std::uint8_t* data, std::size_t size, const std::string& relativePath) {
    const std::string path = Home() + relativePath;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    return path;
}

void ResetMessages() {
    Home();
    CloseErrorLog();
    ErrorMessageNumber = 0;
    ClearReportedMessages();
    ErrorMessageMode = 2;
}

void ResetProgramState() {
    ResetMessages();
    InitialiseProgram();
    CreateNewProblem();
    ErrorMessageMode = 2;
}

} // namespace tervo::fuzz
