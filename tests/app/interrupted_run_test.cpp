// A run of the program that is killed, or that cannot write its results, leaves nothing half-written
// and says why.  The killed runs start the real executable, since a kill ends the whole process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <random>
#include <thread>

#include "platform/messages.h"
#include "support/program_run.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::ProgramHome;
using tervo::test::ReadFile;
using tervo::test::RunProgram;
using tervo::test::TempFolder;

extern char** environ;

namespace {

const fs::path kSource = TERVO_SOURCE_DIR;
const char* const kResults[] = {"gaas_homojunction.iv", "gaas_homojunction.eb"};

// A light I-V of 9 points on the shipped GaAs cell, a fraction of a second.
const char* kShortAction = "dark : 0\nspectrum file :AM1_5G 1 sun.spe\nIV_startV : 0\nIV_stopV : 1.04\n"
                           "IV_points : 9\nIV_calculate : 1\n";

// The program started on that cell and action list in `home`, its terminal output dropped.
pid_t StartRun(const ProgramHome& home) {
    const std::string program = std::string(TERVO_BINARY_DIR) + "/tervo";
    std::vector<std::string> words{program, "--home", home.path.string(),
                                   (kSource / "examples/cells/gaas_homojunction.def").string(),
                                   home / "short.act"};
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int failed = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? -1 : pid;
}

// A result file without the line that holds the time the calculation started: what two complete
// runs of the same cell write alike, byte for byte.
std::string WithoutStartTime(const std::string& text) {
    const size_t at = text.find("Calculation started");
    if (at == std::string::npos) return text;
    const size_t end = text.find('\n', at);
    return text.substr(0, at) + (end == std::string::npos ? "" : text.substr(end + 1));
}

// The temporary files of unfinished writes: hidden files of the results folder.
int HiddenFiles(const fs::path& folder) {
    int count = 0;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().filename().string().front() == '.') ++count;
    return count;
}

} // namespace

TEST(InterruptedRun, AKilledRunLeavesEachResultFileAbsentPreviousOrComplete) {
    ProgramHome home;
    tervo::test::WriteFile(home / "short.act", kShortAction);
    const fs::path results = home.path / "results";
    const auto start = std::chrono::steady_clock::now();
    const pid_t first = StartRun(home);
    ASSERT_GT(first, 0) << "the program " TERVO_BINARY_DIR "/tervo could not be started";
    int status = 0;
    waitpid(first, &status, 0);
    const auto runTime = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::vector<std::string> complete;
    for (const char* name : kResults)
        complete.push_back(WithoutStartTime(ReadFile((results / name).string())));
    ASSERT_NE(complete[0].find("Voc ="), std::string::npos); // the trailer of a complete I-V file

    std::mt19937 random(20261125);
    std::uniform_real_distribution<double> share(0.0, 1.2);
    int killedWhileWriting = 0;
    for (int run = 0; run < 50; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        // Every other run starts with no results at all, the others over what the run before left.
        if (run % 2 == 0)
            for (const char* name : kResults) fs::remove(results / name);
        bool previous[std::size(kResults)];
        for (size_t k = 0; k < std::size(kResults); ++k) previous[k] = fs::exists(results / kResults[k]);
        const int hiddenBefore = HiddenFiles(results);
        const pid_t pid = StartRun(home);
        ASSERT_GT(pid, 0);
        if (run % 4 < 2) {
            // At a random moment of the whole run ...
            std::this_thread::sleep_for(
                std::chrono::duration_cast<std::chrono::microseconds>(runTime * share(random)));
        } else {
            // ... or as soon as a result file is being written.
            while (HiddenFiles(results) == hiddenBefore && waitpid(pid, &status, WNOHANG) == 0) {
            }
        }
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        if (HiddenFiles(results) > hiddenBefore) ++killedWhileWriting;
        for (size_t k = 0; k < std::size(kResults); ++k) {
            const fs::path file = results / kResults[k];
            if (!fs::exists(file)) {
                EXPECT_FALSE(previous[k]) << file << " was there before the run and is gone";
                continue;
            }
            EXPECT_EQ(WithoutStartTime(ReadFile(file.string())), complete[k]) << file << " is not complete";
        }
    }
    // The check above means something only if some kills hit a write.
    EXPECT_GT(killedWhileWriting, 0);
    std::cout << killedWhileWriting << " of 50 kills came while a result file was being written\n";
}

TEST(InterruptedRun, AResultsFolderThatCannotBeWrittenAndAHomeThatCannotBeMadeAreToldOnce) {
    ProgramHome home;
    const fs::path results = home.path / "results";
    fs::create_directories(results);
    fs::permissions(results, fs::perms::owner_read | fs::perms::owner_exec);
    if (access(results.c_str(), W_OK) == 0) {
        // Permissions do not bind this user (root): a folder of the system that no one writes in.
        fs::permissions(results, fs::perms::owner_all);
        fs::remove(results);
        fs::create_directory_symlink("/sys", results);
    }
    ErrorMessageMode = 0;
    ClearReportedMessages();
    const std::string cell = (kSource / "examples/cells/gaas_homojunction.def").string();
    const std::string action = (kSource / "examples/actions/light_iv.act").string();
    EXPECT_EQ(RunProgram({"--home", home.path.string(), cell, action}), 1);
    int told = 0;
    for (const auto& m : ReportedMessages())
        told += m.text.find("could not be written") != std::string::npos &&
                m.text.find("gaas_homojunction.iv") != std::string::npos;
    EXPECT_EQ(told, 1);
    EXPECT_EQ(ReportedMessages().size(), 1u);
    if (!fs::is_symlink(results)) fs::permissions(results, fs::perms::owner_all);

    // A home folder below a file cannot be made: the run is refused before anything is read.
    TempFolder place;
    tervo::test::WriteFile(place / "file", "");
    ClearReportedMessages();
    EXPECT_EQ(RunProgram({"--home", place / "file/home", cell, action}), 2);
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_NE(ReportedMessages()[0].text.find(place / "file/home"), std::string::npos);
}
