// Start-up: command-line scanning, file types and folders, name completion, the home tree, the
// version banner, the whole process through RunTervo, and the shipped standard spectrum.
#include "app/command_line.h"
#include "run/control/startup.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/problem.h"

namespace fs = std::filesystem;
using namespace tervo;

namespace {

CommandLineFiles Parse(const std::string& line) {
    return ParseCommandLine(line);
}

// A fresh empty folder under the system's temporary folder, removed at the end of the test.
struct TempFolder {
    fs::path path;
    TempFolder() {
        std::random_device random;
        path = fs::temp_directory_path() /
               ("tervo_startup_" + std::to_string(random()) + std::to_string(random()));
        fs::create_directories(path);
    }
    ~TempFolder() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    std::string operator/(const std::string& name) const { return (path / name).string(); }
};

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path);
    out << text;
}

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

// Runs the whole process on the given arguments; stdout is captured into `out`.
int RunProcess(const std::vector<std::string>& arguments, std::string* out = nullptr) {
    std::vector<std::string> words{"tervo"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    const int status = RunTervo(static_cast<int>(words.size()), argv.data());
    const std::string text = testing::internal::GetCapturedStdout();
    if (out) *out = text;
    return status;
}

bool AnyMessageHolds(const std::string& phrase) {
    for (const auto& m : ReportedMessages()) {
        if (m.text.find(phrase) != std::string::npos || m.title.find(phrase) != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Scanning the command line

TEST(CommandLineScan, NamesMayHoldBlanksAndDots) {
    EXPECT_EQ(Parse("my cell.def ").def, "my cell.def");
    EXPECT_EQ(Parse("a.b.def ").def, "a.b.def");
    // Text in front of a name belongs to it.
    EXPECT_EQ(Parse("y x.def ").def, "y x.def");
    // Relative folders are dots too, and only the last one before the extension ends the name.
    EXPECT_EQ(Parse("../cells/v1.2/a.def ").def, "../cells/v1.2/a.def");

    std::string text = "a.b.def";
    std::string name;
    ASSERT_EQ(ExtractFilename(text, name), 1);
    EXPECT_EQ(name, "a.b");
    EXPECT_EQ(text, "def");
    std::string ext;
    ASSERT_EQ(ExtractExtensionname(text, ext), 1);
    EXPECT_EQ(ext, "def");
    EXPECT_EQ(text, "");
}

TEST(CommandLineScan, SeveralFilesAndTheEndOfTheScan) {
    const auto both = Parse("x.def y.act ");
    EXPECT_EQ(both.def, "x.def");
    EXPECT_EQ(both.act, "y.act");

    // A word without a dot ends the scan and is dropped.
    const auto cut = Parse("x.def y ");
    EXPECT_EQ(cut.def, "x.def");
    EXPECT_TRUE(cut.act.empty() && cut.all.empty() && cut.script.empty());

    // A file named twice in one kind keeps the last; an unknown extension is passed over.
    const auto twice = Parse("a.def q.xyz b.DEF ");
    EXPECT_EQ(twice.def, "b.DEF");
    EXPECT_TRUE(twice.act.empty() && twice.spectrum.empty());

    const auto none = Parse("");
    EXPECT_TRUE(none.def.empty() && none.script.empty());
}

TEST(CommandLineScan, EveryKindAndItsLongFormAnyCase) {
    const auto s = Parse("a.DEF b.Act c.wp2 d.ter e.SPE f.gen g.sbf h.srf i.scr ");
    EXPECT_EQ(s.def, "a.DEF");
    EXPECT_EQ(s.act, "b.Act");
    EXPECT_EQ(s.wp2, "c.wp2");
    EXPECT_EQ(s.all, "d.ter");
    EXPECT_EQ(s.spectrum, "e.SPE");
    EXPECT_EQ(s.gen, "f.gen"); // a generation file, never a result
    EXPECT_EQ(s.batch, "g.sbf");
    EXPECT_EQ(s.record, "h.srf");
    EXPECT_EQ(s.script, "i.scr");

    const auto l = Parse("a.definition b.action d.tervo f.generation g.batch h.record i.script ");
    EXPECT_EQ(l.def, "a.definition");
    EXPECT_EQ(l.act, "b.action");
    EXPECT_EQ(l.all, "d.tervo");
    EXPECT_EQ(l.gen, "f.generation");
    EXPECT_EQ(l.batch, "g.batch");
    EXPECT_EQ(l.record, "h.record");
    EXPECT_EQ(l.script, "i.script");
}

TEST(CommandLineScan, ReturnCodesAtTheEdges) {
    std::string text = " .def";
    std::string name = "old";
    EXPECT_EQ(ExtractFilename(text, name), 0); // only a blank before the dot
    EXPECT_EQ(name, "");
    EXPECT_EQ(text, ".def");

    text = "no dot here";
    EXPECT_EQ(ExtractFilename(text, name), -1);
    EXPECT_EQ(text, "");

    text = "x."; // a dot at the very end is the dot of the extension
    EXPECT_EQ(ExtractFilename(text, name), 1);
    EXPECT_EQ(name, "x");
    EXPECT_EQ(text, "");

    std::string ext = "old";
    text = "";
    EXPECT_EQ(ExtractExtensionname(text, ext), -1);
    EXPECT_EQ(ext, "");
    text = "  y.def";
    EXPECT_EQ(ExtractExtensionname(text, ext), 0);
    EXPECT_EQ(ext, "");
    EXPECT_EQ(text, "y.def");
    text = "act   z.def";
    EXPECT_EQ(ExtractExtensionname(text, ext), 1);
    EXPECT_EQ(ext, "act");
    EXPECT_EQ(text, "z.def");

    // An extension with a character other than a letter or digit is passed over whole and does not
    // leak into the next name.
    const auto s = Parse("x.d-f y.def ");
    EXPECT_EQ(s.def, "y.def");
}

TEST(CommandLineScan, CapacitiesOfBufferAndSlots) {
    ClearReportedMessages();
    const std::string word(99, 'w'); // 100 characters with its blank
    std::vector<std::string> words{"tervo"};
    for (int i = 0; i < 14; ++i) words.push_back(word + std::to_string(i % 10));
    std::vector<const char*> argv;
    for (auto& w : words) argv.push_back(w.c_str());
    const std::string buffer = JoinCommandLine(static_cast<int>(argv.size()), argv.data());
    // 13 arguments of 101 characters fill 1313 > 1300: twelve are kept whole.
    EXPECT_EQ(buffer.size(), 12u * 101u);
    EXPECT_EQ(buffer.substr(0, 101), words[1] + " ");
    EXPECT_EQ(buffer.back(), ' ');
    EXPECT_EQ(ReportedMessages().size(), 1u);

    const std::vector<const char*> shortLine{"tervo", "a.def", "b.act"};
    EXPECT_EQ(JoinCommandLine(3, shortLine.data()), "a.def b.act ");

    ClearReportedMessages();
    CommandLineFiles files;
    AttributeFile(std::string(255, 'n'), "def", files); // 259 characters fit
    EXPECT_EQ(files.def.size(), 259u);
    AttributeFile(std::string(256, 'm'), "act", files); // 260 do not
    EXPECT_TRUE(files.act.empty());
    EXPECT_EQ(ReportedMessages().size(), 1u);
}

// ---------------------------------------------------------------------------------------------
// File types, folders and completion of names

TEST(FileTypes, ExtensionsAndDefaultFolders) {
    const std::vector<std::pair<std::string, int>> types = {
        {"c.def", 0},     {"s.spe", 1},       {"a.abs", 2},  {"f.ftr", 3},  {"g.gen", 4},
        {"o.opt", 5},     {"b.bdf", 6},       {"a.act", 8},  {"b.sbf", 9},  {"r.srf", 10},
        {"x.script", 11}, {"t.tervo", 13},    {"t.ter", 13}, {"e.eb", 14},  {"a.ac", 16},
        {"i.iv", 17},     {"c.cv", 18},       {"c.cf", 19},  {"q.qe", 20},  {"g.grad", 26},
        {"w.wp2", 30},    {"m.material", 31}, {"x.scf", -1}, {"x.scr", -1}, {"noext", -1},
        {"CELL.DEF", 0},  {"My.Cell.Gen", 4}};
    for (const auto& [path, type] : types) EXPECT_EQ(DetermineTERVOFiletype(path), type) << path;
    // A dot in a folder is no extension of the file.
    EXPECT_EQ(DetermineTERVOFiletype("/data/run.v2/cell.iv"), 17);
    EXPECT_EQ(DetermineTERVOFiletype("/data/run.v2/cell"), -1);

    const std::vector<std::pair<int, std::string>> folders = {
        {0, "def"},        {8, "def"},       {13, "def"},       {30, "def"},     {1, "spectrum"},
        {2, "absorption"}, {3, "filter"},    {4, "generation"}, {5, "optcapt"},  {6, "bdf"},
        {7, "bdf"},        {9, "bdf"},       {10, "bdf"},       {12, "bdf"},     {28, "bdf"},
        {11, "script"},    {14, "results"},  {15, "results"},   {20, "results"}, {23, "results"},
        {25, "results"},   {-1, "results"},  {99, "results"},   {26, "grading"}, {27, "measurements"},
        {29, "scaling"},   {31, "materials"}};
    for (const auto& [type, folder] : folders) EXPECT_EQ(TERVOFileTypeFolder(type), folder) << type;
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

TEST(Summary, ListsEveryLayerInUserUnits) {
    const CellDefinition saved = zonnecel;
    zonnecel.numberOfLayers = 2;
    zonnecel.layer[0].name = "absorber";
    zonnecel.layer[0].material.d = 2.5;
    zonnecel.layer[0].material.Eg.leftValue = 1.15;
    zonnecel.layer[0].material.Eg.rightValue = 1.15;
    zonnecel.layer[1].name = "window";
    zonnecel.layer[1].material.Eg.leftValue = 3.3;
    zonnecel.layer[1].material.Eg.rightValue = 3.6; // graded
    zonnecel.layer[2].name = "not in the stack";
    const std::string text = LoadedCellSummary("cell.def", true);
    zonnecel = saved;

    EXPECT_NE(text.find("cell.def"), std::string::npos);
    EXPECT_NE(text.find("Layers: 2"), std::string::npos);
    EXPECT_NE(text.find("absorber"), std::string::npos);
    EXPECT_NE(text.find("2.5000 µm"), std::string::npos) << text;
    EXPECT_NE(text.find("Eg = 1.150 eV"), std::string::npos) << text;
    EXPECT_NE(text.find("Eg = 3.300 .. 3.600 eV"), std::string::npos) << text;
    EXPECT_NE(text.find("window"), std::string::npos);
    EXPECT_EQ(text.find("not in the stack"), std::string::npos);

    EXPECT_NE(LoadedCellSummary("x.def", false).find("not loaded"), std::string::npos);
}

// ---------------------------------------------------------------------------------------------
// The whole process

TEST(RunTervo, VersionHelpAndWrongOptions) {
    std::string out;
    EXPECT_EQ(RunProcess({"--version"}, &out), 0);
    EXPECT_EQ(out, VERSION + "\n");
    EXPECT_EQ(out.rfind("TERVO 3.2.01 ORVALD-LAB: Version tervo, dated ", 0), 0u) << out;

    TempFolder home;
    EXPECT_EQ(RunProcess({"--home", home.path.string(), "--help"}, &out), 0);
    EXPECT_NE(out.find(home.path.string()), std::string::npos);
    EXPECT_NE(out.find(".script"), std::string::npos);
    EXPECT_NE(out.find("--save-def"), std::string::npos);

    ClearReportedMessages();
    EXPECT_EQ(RunProcess({"cell.def", "--frobnicate"}), 2);
    EXPECT_TRUE(AnyMessageHolds("--frobnicate"));
    EXPECT_EQ(RunProcess({"--home"}), 2); // a folder must follow
    // A home folder that does not exist yet is made with its whole tree; one that cannot be made
    // (a file stands in its way) ends the process.
    // (A definition that cannot be loaded ends the process with status 1.)
    EXPECT_EQ(RunProcess({"--home", home / "absent", "startup_missing.def"}), 1);
    EXPECT_TRUE(fs::is_directory(home.path / "absent" / "spectrum"));
    EXPECT_TRUE(AnyMessageHolds("startup_missing.def"));
    std::ofstream(home.path / "blocker") << "x";
    EXPECT_EQ(RunProcess({"--home", (home.path / "blocker" / "sub").string()}), 2);
}

TEST(RunTervo, FilesThatCannotBeReadEndTheProcessCleanly) {
    TempFolder home;
    ClearReportedMessages();
    std::string out;
    // A cell that cannot be loaded is reported and ends the run with status 1, so that shell loops
    // and job schedulers see it; a missing action file is reported, not dropped in silence.
    EXPECT_EQ(RunProcess({"--home", home.path.string(), "startup_missing.def", "plan.act"}, &out), 1);
    EXPECT_TRUE(AnyMessageHolds("startup_missing"));
    EXPECT_TRUE(AnyMessageHolds("plan.act"));
    EXPECT_NE(out.find("not loaded"), std::string::npos) << out;
    for (const char* sub : TERVO_FOLDERS) EXPECT_TRUE(fs::is_directory(home.path / sub)) << sub;
    EXPECT_EQ(GetProjectDir(), fs::absolute(home.path).lexically_normal().string());

    ClearReportedMessages();
    EXPECT_EQ(
        RunProcess({"--home", home.path.string(), "--save-def", home / "out.def", "startup_missing.def"}), 1);
    EXPECT_FALSE(fs::exists(home.path / "out.def"));
    EXPECT_EQ(RunProcess({"--home", home.path.string(), "--save-def", home / "out.def"}),
              1); // nothing to save
    EXPECT_FALSE(fs::exists(home.path / "out.def"));
}

TEST(RunTervo, SaveDefinitionCopiesTheCellOfTheCommandLine) {
    TempFolder home;
    ASSERT_GE(SetTERVOHome(home.path.string()), 0);
    CreateNewProblem();
    zonnecel.numberOfLayers = 1; // the fresh problem has no layer in use; take its first
    zonnecel.layer[0].name = "absorber";
    zonnecel.layer[0].material.d = 1.7; // µm
    ASSERT_EQ(SaveDefinitionFileToPath(home / "def/startup_in.def"), 0);

    // A bare name is found in the def folder of the home tree.
    std::string out;
    ASSERT_EQ(
        RunProcess({"--home", home.path.string(), "--save-def", home / "copy.def", "startup_in.def"}, &out),
        0);
    EXPECT_NE(out.find("Definition file: startup_in.def"), std::string::npos) << out;
    EXPECT_NE(out.find("Layers: 1"), std::string::npos) << out;
    EXPECT_NE(out.find("absorber"), std::string::npos) << out;
    EXPECT_NE(out.find("d = 1.7000 µm"), std::string::npos) << out;

    // The copy holds the cell that was loaded.
    CreateNewProblem();
    ASSERT_EQ(Laad_data_uit_file(home / "copy.def"), 0);
    EXPECT_EQ(zonnecel.numberOfLayers, 1);
    EXPECT_EQ(zonnecel.layer[0].name, "absorber");
    EXPECT_NEAR(zonnecel.layer[0].material.d, 1.7, 1e-9);
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
