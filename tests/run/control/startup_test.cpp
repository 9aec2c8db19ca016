// Start-up: file types and folders, name completion and the home tree.  (The shipped
// standard spectrum is checked with the spectrum reader.)
#include "run/control/startup.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "platform/files.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::TempFolder;
using tervo::test::WriteFile;

TEST(FileTypes, TheLastExtensionInAnyCaseDecidesAndUnknownKindsGoToTheResults) {
    // A few kinds, not the whole table: the rules that decide are what can break.  A dot in a folder
    // is no extension of the file.
    for (const auto& [path, type] : {std::pair<const char*, int>{"c.def", FILETYPE_DEF},
                                     {"My.Cell.Gen", FILETYPE_GENERATION},
                                     {"x.scr", -1},
                                     {"/data/run.v2/cell.iv", FILETYPE_IV},
                                     {"/data/run.v2/cell", -1}})
        EXPECT_EQ(DetermineTERVOFiletype(path), type) << path;
    for (const auto& [type, folder] : {std::pair<int, const char*>{FILETYPE_WP2, "def"},
                                       {FILETYPE_CURVEFIT_SETTINGS, "bdf"},
                                       {-1, "results"},
                                       {99, "results"}})
        EXPECT_STREQ(TERVOFileTypeFolder(type), folder) << type;
}

TEST(HomeFolder, MissingSubFoldersAreCreatedNamesAreCompletedInThemAndTheDefaultIsBesideTheProgram) {
    TempFolder home;
    fs::create_directories(home.path / "def");
    fs::create_directories(home.path / "results");
    WriteFile(home / "def/keep.def", "> kept\n");
    EXPECT_EQ(SetTERVOHome(home.path.string()), 11);
    for (const char* sub : TERVO_FOLDERS) EXPECT_TRUE(fs::is_directory(home.path / sub)) << sub;
    EXPECT_TRUE(fs::exists(home.path / "def/keep.def"));
    EXPECT_EQ(SetTERVOHome(home.path.string()), 0); // complete now

    // A bare name is completed in the folder of its kind, a name with a folder is left as it is.
    std::string full, name;
    CheckTERVOPaths(&full, &name, "sub/cell.def  ", FILETYPE_DEF);
    EXPECT_EQ(full + "|" + name, "sub/cell.def|cell.def");
    std::string same = "sun.spe "; // output and input may be one string
    CheckTERVOPaths(&same, nullptr, same, FILETYPE_SPECTRUM);
    EXPECT_EQ(same, home / "spectrum/sun.spe");
    CheckTERVOPaths(nullptr, nullptr, same, FILETYPE_SPECTRUM); // no outputs: nothing happens
    WriteFile(home / "def/empty.def", "");
    std::string path = "keep.def";
    EXPECT_EQ(IsFileFound(path, FILETYPE_SCRIPT), 0); // looked for in the wrong folder
    EXPECT_EQ(path, home / "script/keep.def");
    // Zero bytes, no name and a folder count as not found.
    for (std::string none : {"empty.def", "", "def"}) EXPECT_EQ(IsFileFound(none, FILETYPE_DEF), 0) << none;

    EXPECT_EQ(DefaultHomeFolder("whatever"), fs::read_symlink("/proc/self/exe").parent_path().string());
}
