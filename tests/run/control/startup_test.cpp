// Start-up: file types and folders, name completion, the home tree, the version banner, the status
// line and illumination labels, and the shipped standard spectrum.
#include "run/control/startup.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::TempFolder;
using tervo::test::WriteFile;

namespace {

// Sets the change time of a file to a local calendar time.
void SetFileTime(const std::string& path, int day, int month, int year, int hours, int minutes, int seconds) {
    std::tm local{};
    local.tm_mday = day;
    local.tm_mon = month - 1;
    local.tm_year = year - 1900;
    local.tm_hour = hours;
    local.tm_min = minutes;
    local.tm_sec = seconds;
    local.tm_isdst = -1;
    const std::time_t t = std::mktime(&local);
    fs::last_write_time(path, std::chrono::file_clock::from_sys(std::chrono::system_clock::from_time_t(t)));
}

bool AnyMessageHolds(const std::string& phrase) {
    for (const auto& m : ReportedMessages()) {
        if (m.text.find(phrase) != std::string::npos || m.title.find(phrase) != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

TEST(FileTypes, TheLastExtensionInAnyCaseDecidesAndUnknownKindsGoToTheResults) {
    // A few kinds, not the whole table: the rules that decide are what can break.
    const std::vector<std::pair<std::string, int>> types = {{"c.def", FILETYPE_DEF},
                                                            {"CELL.DEF", FILETYPE_DEF},
                                                            {"My.Cell.Gen", FILETYPE_GENERATION},
                                                            {"t.ter", FILETYPE_ALL_SETTINGS},
                                                            {"t.tervo", FILETYPE_ALL_SETTINGS},
                                                            {"x.scr", -1},
                                                            {"noext", -1},
                                                            // A dot in a folder is no extension of the file.
                                                            {"/data/run.v2/cell.iv", FILETYPE_IV},
                                                            {"/data/run.v2/cell", -1}};
    for (const auto& [path, type] : types) EXPECT_EQ(DetermineTERVOFiletype(path), type) << path;
    EXPECT_STREQ(TERVOFileTypeFolder(FILETYPE_WP2), "def");
    EXPECT_STREQ(TERVOFileTypeFolder(FILETYPE_CURVEFIT_SETTINGS), "bdf");
    EXPECT_STREQ(TERVOFileTypeFolder(-1), "results");
    EXPECT_STREQ(TERVOFileTypeFolder(99), "results");
}

TEST(FileTypes, CompletionOfNamesAndLookUp) {
    TempFolder home;
    ASSERT_GE(SetTERVOHome(home.path.string()), 0);

    std::string full, name;
    CheckTERVOPaths(&full, &name, "cell.def   ", FILETYPE_DEF);
    EXPECT_EQ(full, home / "def/cell.def");
    EXPECT_EQ(name, "cell.def");
    CheckTERVOPaths(&full, &name, "sub/cell.def  ", FILETYPE_DEF);
    EXPECT_EQ(full, "sub/cell.def");
    EXPECT_EQ(name, "cell.def");
    CheckTERVOPaths(&full, nullptr, "/abs/AM0.spe", FILETYPE_SPECTRUM);
    EXPECT_EQ(full, "/abs/AM0.spe");
    // Output and input may be one string.
    std::string same = "sun.spe ";
    CheckTERVOPaths(&same, nullptr, same, FILETYPE_SPECTRUM);
    EXPECT_EQ(same, home / "spectrum/sun.spe");
    CheckTERVOPaths(nullptr, nullptr, same, FILETYPE_SPECTRUM); // no outputs: nothing happens

    WriteFile(home / "def/startup_found_cell.def", "> a cell\n");
    WriteFile(home / "def/startup_empty_cell.def", "");
    std::string path = "startup_found_cell.def";
    EXPECT_EQ(IsFileFound(path, FILETYPE_DEF), 1);
    EXPECT_EQ(path, home / "def/startup_found_cell.def");
    EXPECT_EQ(IsFileFound(path, FILETYPE_DEF), 1); // a full path is found as it is
    path = "startup_empty_cell.def";
    EXPECT_EQ(IsFileFound(path, FILETYPE_DEF), 0); // zero bytes count as not found
    path = "startup_found_cell.def";
    EXPECT_EQ(IsFileFound(path, FILETYPE_SCRIPT), 0); // looked for in the wrong folder
    EXPECT_EQ(path, home / "script/startup_found_cell.def");
    path = "";
    EXPECT_EQ(IsFileFound(path, FILETYPE_DEF), 0);
    path = "def"; // a folder is no file
    EXPECT_EQ(IsFileFound(path, FILETYPE_DEF), 0);
}

TEST(HomeFolder, MissingSubFoldersAreCreated) {
    TempFolder home;
    fs::create_directories(home.path / "def");
    fs::create_directories(home.path / "results");
    WriteFile(home / "def/keep.def", "> kept\n");
    EXPECT_EQ(SetTERVOHome(home.path.string()), 11);
    EXPECT_EQ(GetProjectDir(), home.path.string());
    for (const char* sub : TERVO_FOLDERS) EXPECT_TRUE(fs::is_directory(home.path / sub)) << sub;
    EXPECT_TRUE(fs::exists(home.path / "def/keep.def"));
    EXPECT_EQ(SetTERVOHome(home.path.string()), 0); // complete now

    TempFolder blocked;
    WriteFile(blocked / "script", "a file where a folder should be");
    ClearReportedMessages();
    EXPECT_EQ(SetTERVOHome(blocked.path.string()), -1);
    EXPECT_TRUE(AnyMessageHolds("script"));
    EXPECT_TRUE(fs::is_directory(blocked.path / "materials")); // the others are still made
}

TEST(HomeFolder, DefaultIsTheFolderOfTheExecutable) {
    const fs::path exe = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(DefaultHomeFolder("whatever"), exe.parent_path().string());
}

// ---------------------------------------------------------------------------------------------
// Version banner and file dates

TEST(VersionBanner, ComposedFromTheProgramFileDate) {
    EXPECT_EQ(ComposeVersion("/opt/tervo/tervo", 4, 3, 2021, 5, 6, 7),
              "TERVO 3.2.01 ORVALD-LAB: Version /opt/tervo/tervo, dated 04-03-2021, 05:06:07");

    TempFolder folder;
    const std::string program = folder / "tervo";
    WriteFile(program, "x");
    SetFileTime(program, 28, 11, 2019, 23, 59, 1);
    SetVersion("./tervo", program);
    EXPECT_EQ(VERSION, "TERVO 3.2.01 ORVALD-LAB: Version ./tervo, dated 28-11-2019, 23:59:01");

    int day = 0, month = 0, year = 0, hours = 0, minutes = 0, seconds = 0;
    EXPECT_EQ(GetTERVOFileDate(program, day, month, year), 0);
    EXPECT_EQ(GetTERVOFileTime(program, hours, minutes, seconds), 0);
    EXPECT_EQ(std::vector<int>({day, month, year, hours, minutes, seconds}),
              std::vector<int>({28, 11, 2019, 23, 59, 1}));

    EXPECT_EQ(GetTERVOFileDate(folder / "absent", day, month, year), -1);

    // The fresh problem has no file: it carries the present date.
    const DateTime now = GetSystemDateTime();
    EXPECT_EQ(GetTERVOFileDate("New Problem", day, month, year), 0);
    EXPECT_EQ(year, now.year);
    EXPECT_GE(day, 1);
    EXPECT_GE(month, 1);
}

// ---------------------------------------------------------------------------------------------
// Status line, illumination label, error handling

TEST(Messages, StatusLineIlluminationAndErrorHandling) {
    StatusMessage(3);
    EXPECT_EQ(statusLine.text, "Set Problem");
    EXPECT_FALSE(statusLine.red);
    StatusMessage(4);
    EXPECT_EQ(statusLine.text, "Unfound files in problem\nDouble click to check / correct");
    EXPECT_TRUE(statusLine.red && statusLine.active);
    StatusMessage(9);
    EXPECT_EQ(statusLine.text, "Status unknown");
    EXPECT_TRUE(statusLine.red);
    EXPECT_FALSE(statusLine.active);

    EXPECT_EQ(IlluminationMessage(GraphPanel::IV, 1, -1, 0, 0).label, "dark");
    EXPECT_EQ(IlluminationMessage(GraphPanel::IV, 0, -1, 0, 0).label, "light->");
    const auto right = IlluminationMessage(GraphPanel::BandDiagram, 0, 1, 0, 0);
    EXPECT_EQ(right.label, "<-light");
    EXPECT_EQ(right.legend, "last curve, <-light");
    EXPECT_EQ(illuminationTexts[0].label, "<-light");
    EXPECT_EQ(IlluminationMessage(GraphPanel::QE, 0, -1, 1e5, 0.25).label, "light->, 0.250 V");
    EXPECT_EQ(IlluminationMessage(GraphPanel::Cf, 1, -1, 1e5, -0.5).label, "dark, -0.500 Vdc");
    const auto cv = IlluminationMessage(GraphPanel::CV, 0, -1, 1e5, 0.0).label;
    EXPECT_EQ(cv.rfind("light->, ", 0), 0u) << cv;
    EXPECT_NE(cv.find("1.00e+05 Hz"), std::string::npos) << cv;

    ErrorMessageMode = 0;
    ErrorHandlingSetting = 7;
    ClearReportedMessages();
    ErrorHandling();
    EXPECT_EQ(ErrorMessageMode, 0);
    EXPECT_EQ(ReportedMessages().size(), 1u);
    ErrorHandlingSetting = 2;
    ErrorHandling();
    EXPECT_EQ(ErrorMessageMode, 2);
    ErrorMessageMode = 0;
    ErrorHandlingSetting = 0;
}

// ---------------------------------------------------------------------------------------------
// The shipped standard spectrum

TEST(StandardSpectrum, OneSunOfPowerAndTheRightPhotonFlux) {
    const std::string path = std::string(TERVO_SOURCE_DIR) + "/home/spectrum/AM1_5G 1 sun.spe";
    std::ifstream in(path);
    ASSERT_TRUE(in.is_open()) << path;
    constexpr double h = 6.62607015e-34;  // J s
    constexpr double c = 2.99792458e8;    // m/s
    constexpr double q = 1.602176634e-19; // C
    double power = 0;                     // W/m2
    double photons = 0;                   // per m2 and second
    double previous = 0;
    int count = 0;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        double lambda = 0, p = 0;
        if (!(fields >> lambda >> p)) continue; // comment lines
        EXPECT_GT(lambda, previous);
        EXPECT_GE(p, 0.0);
        previous = lambda;
        power += p;
        photons += p * lambda * 1e-9 / (h * c);
        ++count;
    }
    EXPECT_EQ(count, 2002);
    EXPECT_LE(count, MAX_SPECTRUM_LINES);
    EXPECT_NEAR(power, 1000.0, 5.0);
    EXPECT_NEAR(q * photons * 0.1, 68.98, 68.98 * 0.005); // mA/cm2
}
