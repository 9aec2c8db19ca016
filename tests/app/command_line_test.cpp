// The command line: scanning names into the file slots, the summary of the loaded cell, and the
// whole process through RunTervo with its options and exit statuses.
#include "app/command_line.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/problem.h"
#include "run/control/startup.h"
#include "support/program_run.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::RunProgram;
using tervo::test::TempFolder;
using tervo::test::WriteFile;

namespace {

CommandLineFiles Parse(const std::string& line) {
    return ParseCommandLine(line);
}

// Runs the whole process on the given arguments; stdout is captured into `out`.

bool AnyMessageHolds(const std::string& phrase) {
    for (const auto& m : ReportedMessages()) {
        if (m.text.find(phrase) != std::string::npos || m.title.find(phrase) != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

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

TEST(RunTervo, VersionHelpAndWrongOptions) {
    std::string out;
    EXPECT_EQ(RunProgram({"--version"}, &out), 0);
    EXPECT_EQ(out, VERSION + "\n");
    EXPECT_EQ(out.rfind("TERVO 3.2.01 ORVALD-LAB: Version tervo, dated ", 0), 0u) << out;

    TempFolder home;
    EXPECT_EQ(RunProgram({"--home", home.path.string(), "--help"}, &out), 0);
    EXPECT_NE(out.find(home.path.string()), std::string::npos);
    EXPECT_NE(out.find(".script"), std::string::npos);
    EXPECT_NE(out.find("--save-def"), std::string::npos);

    ClearReportedMessages();
    EXPECT_EQ(RunProgram({"cell.def", "--frobnicate"}), 2);
    EXPECT_TRUE(AnyMessageHolds("--frobnicate"));
    EXPECT_EQ(RunProgram({"--home"}), 2); // a folder must follow
    // A home folder that does not exist yet is made with its whole tree; one that cannot be made
    // (a file stands in its way) ends the process.
    // (A definition that cannot be loaded ends the process with status 1.)
    EXPECT_EQ(RunProgram({"--home", home / "absent", "startup_missing.def"}), 1);
    EXPECT_TRUE(fs::is_directory(home.path / "absent" / "spectrum"));
    EXPECT_TRUE(AnyMessageHolds("startup_missing.def"));
    std::ofstream(home.path / "blocker") << "x";
    EXPECT_EQ(RunProgram({"--home", (home.path / "blocker" / "sub").string()}), 2);
}

TEST(RunTervo, FilesThatCannotBeReadEndTheProcessCleanly) {
    TempFolder home;
    ClearReportedMessages();
    std::string out;
    // A cell that cannot be loaded is reported and ends the run with status 1, so that shell loops
    // and job schedulers see it; a missing action file is reported, not dropped in silence.
    EXPECT_EQ(RunProgram({"--home", home.path.string(), "startup_missing.def", "plan.act"}, &out), 1);
    EXPECT_TRUE(AnyMessageHolds("startup_missing"));
    EXPECT_TRUE(AnyMessageHolds("plan.act"));
    EXPECT_NE(out.find("not loaded"), std::string::npos) << out;
    for (const char* sub : TERVO_FOLDERS) EXPECT_TRUE(fs::is_directory(home.path / sub)) << sub;
    EXPECT_EQ(GetProjectDir(), fs::absolute(home.path).lexically_normal().string());

    ClearReportedMessages();
    EXPECT_EQ(
        RunProgram({"--home", home.path.string(), "--save-def", home / "out.def", "startup_missing.def"}), 1);
    EXPECT_FALSE(fs::exists(home.path / "out.def"));
    EXPECT_EQ(RunProgram({"--home", home.path.string(), "--save-def", home / "out.def"}),
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
        RunProgram({"--home", home.path.string(), "--save-def", home / "copy.def", "startup_in.def"}, &out),
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
