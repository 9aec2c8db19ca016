// Start-up: file types and folders, name completion, the home tree, the version banner, the status
// line and illumination labels.  (The shipped standard spectrum is checked with the spectrum reader.)
#include "run/control/startup.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>

#include "platform/files.h"
#include "platform/messages.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::TempFolder;
using tervo::test::WriteFile;

TEST(FileTypes, TheLastExtensionInAnyCaseDecidesAndUnknownKindsGoToTheResults) {
    // A few kinds, not the whole table: the rules that decide are what can break.  A dot in a folder
    // is no extension of the file.
    for (const auto& [path, type] : {std::pair<const char*, int>{"c.def", FILETYPE_DEF},
                                     {"CELL.DEF", FILETYPE_DEF},
                                     {"My.Cell.Gen", FILETYPE_GENERATION},
                                     {"t.ter", FILETYPE_ALL_SETTINGS},
                                     {"t.tervo", FILETYPE_ALL_SETTINGS},
                                     {"x.scr", -1},
                                     {"noext", -1},
                                     {"/data/run.v2/cell.iv", FILETYPE_IV},
                                     {"/data/run.v2/cell", -1}})
        EXPECT_EQ(DetermineTERVOFiletype(path), type) << path;
    for (const auto& [type, folder] : {std::pair<int, const char*>{FILETYPE_WP2, "def"},
                                       {FILETYPE_CURVEFIT_SETTINGS, "bdf"},
                                       {-1, "results"},
                                       {99, "results"}})
        EXPECT_STREQ(TERVOFileTypeFolder(type), folder) << type;
}

TEST(FileTypes, CompletionOfNamesAndLookUp) {
    TempFolder home;
    ASSERT_GE(SetTERVOHome(home.path.string()), 0);
    std::string full, name;
    CheckTERVOPaths(&full, &name, "cell.def   ", FILETYPE_DEF);
    EXPECT_EQ(full + "|" + name, home / "def/cell.def" + "|cell.def");
    CheckTERVOPaths(&full, &name, "sub/cell.def  ", FILETYPE_DEF);
    EXPECT_EQ(full + "|" + name, "sub/cell.def|cell.def");
    CheckTERVOPaths(&full, nullptr, "/abs/AM0.spe", FILETYPE_SPECTRUM);
    EXPECT_EQ(full, "/abs/AM0.spe");
    std::string same = "sun.spe "; // output and input may be one string
    CheckTERVOPaths(&same, nullptr, same, FILETYPE_SPECTRUM);
    EXPECT_EQ(same, home / "spectrum/sun.spe");
    CheckTERVOPaths(nullptr, nullptr, same, FILETYPE_SPECTRUM); // no outputs: nothing happens

    WriteFile(home / "def/found.def", "> a cell\n");
    WriteFile(home / "def/empty.def", "");
    std::string path = "found.def";
    EXPECT_EQ(IsFileFound(path, FILETYPE_DEF), 1);
    EXPECT_EQ(path, home / "def/found.def");
    EXPECT_EQ(IsFileFound(path, FILETYPE_DEF), 1); // a full path is found as it is
    path = "found.def";
    EXPECT_EQ(IsFileFound(path, FILETYPE_SCRIPT), 0); // looked for in the wrong folder
    EXPECT_EQ(path, home / "script/found.def");
    // Zero bytes, no name and a folder count as not found.
    for (std::string none : {"empty.def", "", "def"}) EXPECT_EQ(IsFileFound(none, FILETYPE_DEF), 0) << none;
}

TEST(HomeFolder, MissingSubFoldersAreCreatedAndTheDefaultIsTheFolderOfTheExecutable) {
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
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_NE((ReportedMessages()[0].title + ReportedMessages()[0].text).find("script"), std::string::npos);
    EXPECT_TRUE(fs::is_directory(blocked.path / "materials")); // the others are still made

    EXPECT_EQ(DefaultHomeFolder("whatever"), fs::read_symlink("/proc/self/exe").parent_path().string());
}

TEST(VersionBanner, ComposedFromTheProgramFileDate) {
    TempFolder folder;
    const std::string program = folder / "tervo";
    WriteFile(program, "x");
    std::tm local{};
    std::istringstream("28-11-2019 23:59:01") >> std::get_time(&local, "%d-%m-%Y %H:%M:%S");
    local.tm_isdst = -1;
    fs::last_write_time(program, std::chrono::file_clock::from_sys(
                                     std::chrono::system_clock::from_time_t(std::mktime(&local))));
    SetVersion("./tervo", program);
    EXPECT_EQ(VERSION, "TERVO 3.2.01 ORVALD-LAB: Version ./tervo, dated 28-11-2019, 23:59:01");

    int day = 0, month = 0, year = 0, hours = 0, minutes = 0, seconds = 0;
    EXPECT_EQ(GetTERVOFileDate(program, day, month, year), 0);
    EXPECT_EQ(GetTERVOFileTime(program, hours, minutes, seconds), 0);
    EXPECT_EQ(std::tuple(day, month, year, hours, minutes, seconds), std::tuple(28, 11, 2019, 23, 59, 1));
    EXPECT_EQ(GetTERVOFileDate(folder / "absent", day, month, year), -1);
    // The fresh problem has no file: it carries the present date.
    EXPECT_EQ(GetTERVOFileDate("New Problem", day, month, year), 0);
    EXPECT_EQ(year, GetSystemDateTime().year);
    EXPECT_TRUE(day >= 1 && month >= 1);
}

TEST(Messages, StatusLineIlluminationAndErrorHandling) {
    StatusMessage(3);
    EXPECT_EQ(std::tuple(statusLine.text, statusLine.red), std::tuple("Set Problem", false));
    StatusMessage(4);
    EXPECT_EQ(std::tuple(statusLine.text, statusLine.red, statusLine.active),
              std::tuple("Unfound files in problem\nDouble click to check / correct", true, true));
    StatusMessage(9);
    EXPECT_EQ(std::tuple(statusLine.text, statusLine.red, statusLine.active),
              std::tuple("Status unknown", true, false));

    EXPECT_EQ(std::tuple(IlluminationMessage(GraphPanel::IV, 1, -1, 0, 0).label,
                         IlluminationMessage(GraphPanel::IV, 0, -1, 0, 0).label),
              std::tuple("dark", "light->"));
    const auto right = IlluminationMessage(GraphPanel::BandDiagram, 0, 1, 0, 0);
    EXPECT_EQ(std::tuple(right.label, right.legend, illuminationTexts[0].label),
              std::tuple("<-light", "last curve, <-light", "<-light"));
    EXPECT_EQ(IlluminationMessage(GraphPanel::QE, 0, -1, 1e5, 0.25).label, "light->, 0.250 V");
    EXPECT_EQ(IlluminationMessage(GraphPanel::Cf, 1, -1, 1e5, -0.5).label, "dark, -0.500 Vdc");
    const auto cv = IlluminationMessage(GraphPanel::CV, 0, -1, 1e5, 0.0).label;
    EXPECT_TRUE(cv.rfind("light->, ", 0) == 0 && cv.find("1.00e+05 Hz") != std::string::npos) << cv;

    ErrorMessageMode = 0;
    ErrorHandlingSetting = 7; // no such setting: reported, the mode stays
    ClearReportedMessages();
    ErrorHandling();
    EXPECT_EQ(std::tuple(ErrorMessageMode, ReportedMessages().size()), std::tuple(0, 1u));
    ErrorHandlingSetting = 2;
    ErrorHandling();
    EXPECT_EQ(ErrorMessageMode, 2);
    ErrorMessageMode = ErrorHandlingSetting = 0;
}
