// Input that the program cannot trust, through the program as a user runs it: values of a definition
// file that cannot be read or lie outside their range, an unknown keyword, --strict, and the files of
// the command line (found as given or in the home tree, missing, with blanks and "./" in the path, a
// fresh home folder) and of a script.
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "cell/cell_records.h"
#include "platform/messages.h"
#include "run/control/problem.h"
#include "support/program_run.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::FileLines;
using tervo::test::ProgramHome;
using tervo::test::ReadFile;
using tervo::test::RunProgram;
using tervo::test::TempFolder;
using tervo::test::WriteFile;

namespace {

const fs::path kSource = TERVO_SOURCE_DIR;

// The shipped CIGS cell with line `number` (from 1) replaced.
std::string CigsWithLine(int number, const std::string& line) {
    std::vector<std::string> lines = FileLines((kSource / "home/def/cigs.def").string());
    lines.at(static_cast<size_t>(number - 1)) = line;
    std::string text;
    for (const std::string& l : lines) text += l + "\n";
    return text;
}

bool AnyMessageHolds(const std::string& phrase) {
    for (const auto& m : ReportedMessages())
        if ((m.title + "\n" + m.text).find(phrase) != std::string::npos) return true;
    return false;
}

// Runs in `folder` as the working folder, and goes back to the one before at its end.
struct WorkingFolder {
    fs::path before = fs::current_path();
    explicit WorkingFolder(const fs::path& folder) { fs::current_path(folder); }
    ~WorkingFolder() { fs::current_path(before); }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;
};

// The name of the first layer of a definition file, as read.
std::string FirstLayerName(const std::string& path) {
    if (Laad_data_uit_file(path) != 0) return "(not loaded)";
    return zonnecel.layer[0].name;
}

} // namespace

TEST(InputChecks, AnAbsorberValueThatCannotBeTrustedIsAWarningNamingFileLineAndLayerAndStrictRefusesIt) {
    ProgramHome home;
    ErrorMessageMode = 0;
    // Line 51 is the thickness of the CIGS absorber, line 60 its band gap.
    const std::pair<int, const char*> cases[] = {
        {51, "d : nan [m]"}, {51, "d : 1e999 [m]"}, {51, "d : abc [m]"},   {51, "d : -2e-6 [m]"},
        {51, "d : 0 [m]"},   {60, "Eg : abc"},      {60, "Egg : 1.2 [eV]"}};
    for (const auto& [line, text] : cases) {
        SCOPED_TRACE(text);
        WriteFile(home / "cell.def", CigsWithLine(line, text));
        ClearReportedMessages();
        EXPECT_EQ(
            RunProgram({"--home", home.path.string(), "--save-def", home / "copy.def", home / "cell.def"}),
            3);
        EXPECT_TRUE(AnyMessageHolds("cell.def\", line " + std::to_string(line) + ", layer 1 (CIGS): "));
        EXPECT_TRUE(AnyMessageHolds(text));
        EXPECT_EQ(RunProgram({"--strict", "--home", home.path.string(), "--save-def", home / "strict.def",
                              home / "cell.def"}),
                  2);
        EXPECT_FALSE(fs::exists(home.path / "strict.def"));
    }

    // A run on such a cell says so in its summary and in the head of its result file; under
    // --strict nothing is calculated.
    WriteFile(home / "cell.def", CigsWithLine(51, "d : nan [m]"));
    const std::string dark = (kSource / "examples/actions/dark_iv.act").string();
    std::string out;
    EXPECT_EQ(RunProgram({"--home", home.path.string(), home / "cell.def", dark}, &out), 3);
    EXPECT_NE(out.find("(read with 1 warnings)"), std::string::npos) << out;
    const std::string iv = ReadFile(home / "results/cell.iv");
    EXPECT_NE(iv.find("reading warning :\t\"" + (home / "cell.def") +
                      "\", line 51, layer 1 (CIGS): no number "
                      "could be read in \"d : nan [m]\""),
              std::string::npos)
        << iv.substr(0, 800);
    fs::remove(home.path / "results/cell.iv");
    EXPECT_EQ(RunProgram({"--strict", "--home", home.path.string(), home / "cell.def", dark}), 2);
    EXPECT_FALSE(fs::exists(home.path / "results/cell.iv"));
}

TEST(InputChecks, FilesOfTheCommandLineAreTakenAsGivenOrFromTheHomeTreeAndOneFoundNowhereRefusesTheRun) {
    ProgramHome home;
    TempFolder work;
    WorkingFolder here(work.path);
    ErrorMessageMode = 0;
    const std::string h = home.path.string();
    const std::string cigs = ReadFile((kSource / "home/def/cigs.def").string());
    auto named = [&](const std::string& name) {
        std::string text = cigs;
        text.replace(text.find("name : CIGS"), 11, "name : " + name);
        return text;
    };
    // A bare name in the working folder, which the home tree does not hold.
    WriteFile(work / "mycell.def", named("here"));
    ASSERT_EQ(RunProgram({"--home", h, "--save-def", home / "a.def", "mycell.def"}), 0);
    EXPECT_EQ(FirstLayerName(home / "a.def"), "here");

    // A name in both places: the working folder's, said in one line.
    fs::create_directories(home.path / "def");
    WriteFile(home / "def/mycell.def", named("there"));
    std::string out;
    ASSERT_EQ(RunProgram({"--home", h, "--save-def", home / "b.def", "mycell.def"}, &out), 0);
    EXPECT_EQ(FirstLayerName(home / "b.def"), "here");
    EXPECT_NE(out.find("\"mycell.def\": took " + (work / "mycell.def") + " from the working folder, not " +
                       (home / "def/mycell.def")),
              std::string::npos)
        << out;

    // Blanks and "./" and "../" in a path.
    fs::create_directories(work.path / "my dir");
    WriteFile(work / "my dir/my cell.def", named("spaced"));
    ASSERT_EQ(RunProgram({"--home", h, "--save-def", home / "c.def", "./my dir/../my dir/my cell.def"}), 0);
    EXPECT_EQ(FirstLayerName(home / "c.def"), "spaced");

    // An action list found nowhere: status 2, and an earlier result stays as it was.
    WriteFile(home / "results/mycell.iv", "earlier");
    ClearReportedMessages();
    EXPECT_EQ(RunProgram({"--home", h, "mycell.def", "./nosuch.act"}, &out), 2);
    EXPECT_TRUE(AnyMessageHolds("\"./nosuch.act\" was not found in the working folder"));
    // So does a spectrum that cannot be used (a wavelength twice), before anything is calculated.
    WriteFile(work / "twice.spe", "400 1\n500 2\n400 2\n");
    EXPECT_EQ(RunProgram({"--home", h, "mycell.def", "twice.spe"}), 2);
    EXPECT_EQ(ReadFile(home / "results/mycell.iv"), "earlier");
    EXPECT_EQ(std::distance(fs::directory_iterator(home.path / "results"), fs::directory_iterator()), 1);

    // A script whose cell cannot be loaded refuses its calculation.
    WriteFile(work / "run.script",
              "clear simulations\nload definition nosuch.def\naction iv.doiv\ncalculate\n"
              "save result.iv s.iv\n");
    ClearReportedMessages();
    EXPECT_EQ(RunProgram({"--home", h, "run.script"}), 2);
    EXPECT_TRUE(AnyMessageHolds("could not be loaded; the calculation is refused"));
    // The save finds nothing calculated: its file holds the script's header alone, no figure.
    const std::string saved = ReadFile(home / "results/s.iv");
    EXPECT_EQ(saved.find("Voc"), std::string::npos) << saved;
    EXPECT_EQ(saved.find("nan"), std::string::npos) << saved;
}

TEST(InputChecks, AFreshHomeFolderGetsTheStandardSpectrumAndRunsTheLightIVOfAShippedCell) {
    TempFolder parent;
    const std::string fresh = parent / "new home";
    std::string out;
    ErrorMessageMode = 0;
    ASSERT_EQ(RunProgram({"--home", fresh, (kSource / "examples/cells/gaas_homojunction.def").string(),
                          (kSource / "examples/actions/light_iv.act").string()},
                         &out),
              0)
        << out;
    EXPECT_TRUE(fs::is_regular_file(fs::path(fresh) / "spectrum/AM1_5G 1 sun.spe"));
    EXPECT_NE(out.find("gaas_homojunction: Voc = "), std::string::npos) << out;
    EXPECT_NE(ReadFile(fresh + "/results/gaas_homojunction.iv").find("Voc ="), std::string::npos);
}
