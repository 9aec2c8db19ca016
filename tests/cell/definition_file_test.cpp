// The definition file: reading of the present and the old forms, the writers, and the reader's
// behaviour on bad input.
#include <gtest/gtest.h>

#include <filesystem>

#include "cell/definition_file.h"
#include "cell/expect_values.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using namespace tervo;
using namespace tervo::test;

namespace {

const fs::path kSource = TERVO_SOURCE_DIR;
const std::string kOldForms = (kSource / "tests/cell/data/old_forms.def").string();

// Messages reported while running f.
template <typename F>
std::vector<ReportedMessage> Reported(F f) {
    ErrorMessageMode = 2; // to the log, never to the screen
    const size_t before = ReportedMessages().size();
    f();
    return {ReportedMessages().begin() + static_cast<long>(before), ReportedMessages().end()};
}

int Read(const std::string& path, InputParameters& p, DefinitionWorkingSettings& s) {
    return lees_structuurfile(path, p, s);
}

// Writes the definition to `path` and gives the path back.
std::string Write(const InputParameters& p, const DefinitionWorkingSettings& s, DefinitionWriter w,
                  const std::string& path) {
    TextFile f = OpenFile(path, FileMode::Write);
    EXPECT_TRUE(f.IsOpen());
    EXPECT_EQ(WriteDefinitionFile(f, p, s, "TERVO 3.2.01 test banner", w), 0);
    CloseFile(f);
    return path;
}

// Writes a text file and gives its path back.
std::string Put(const TempFolder& dir, const std::string& name, const std::string& text) {
    WriteFile(dir / name, text);
    return dir / name;
}

// A written file without its first two lines, the banner and the date it was saved.
std::string Body(const std::string& text) {
    const size_t second = text.find('\n', text.find('\n') + 1);
    return second == std::string::npos ? "" : text.substr(second + 1);
}

} // namespace

// Every shipped and test definition is read and written by either writer; what either writer wrote
// is read and written by the other in the same bytes (but for the banner and the date), and the cells
// the program saved itself come out as they are on disk.  A field that the reader or a writer loses,
// or a number written with too few digits, changes the bytes; a line that a writer writes and the
// reader does not know is a reading warning.
TEST(DefinitionFile, RoundTripOfEveryShippedFile) {
    std::vector<std::string> files;
    for (const char* dir : {"home/def", "tests/cell/data", "examples"})
        for (const auto& e : fs::recursive_directory_iterator(kSource / dir))
            if (e.path().extension() == ".def") files.push_back(e.path().string());
    ASSERT_GE(files.size(), 5u);
    for (const std::string& path : files) {
        SCOPED_TRACE(path);
        TempFolder dir;
        // Reads `file` into fresh records, writes them with `writer` under `name` and gives the path.
        auto rewritten = [&](const std::string& file, DefinitionWriter writer, const std::string& name) {
            InputParameters p;
            DefinitionWorkingSettings s;
            const size_t warnings = ReadingWarnings().size();
            EXPECT_EQ(Read(file, p, s), 1);
            EXPECT_EQ(ReadingWarnings().size(), warnings) << file;
            return Write(p, s, writer, dir / name);
        };
        const std::string compact = rewritten(path, DefinitionWriter::Compact, "c.def");
        const std::string interactive = rewritten(path, DefinitionWriter::Interactive, "i.def");
        EXPECT_EQ(Body(ReadFile(rewritten(interactive, DefinitionWriter::Compact, "ic.def"))),
                  Body(ReadFile(compact)));
        EXPECT_EQ(Body(ReadFile(rewritten(compact, DefinitionWriter::Interactive, "ci.def"))),
                  Body(ReadFile(interactive)));
        if (ReadFile(path).starts_with("> TERVO")) {
            EXPECT_EQ(Body(ReadFile(compact)), Body(ReadFile(path)));
        }
    }
}

// One and nine numbers on a line are the forms of the stored cells that the round trip reads.
TEST(DefinitionFile, ProfileLinesByTheirCountOfNumbers) {
    Profile p;
    // Seven numbers: lawPar3 = lawPar2; parabolic: both parameters carry the unit.
    InputLineToProfile("chi :\t4.1\t4.3\t0.2\t0.7\t4.1\t4.3\t2\t[eV]", p);
    ExpectExact(p.law, LAW_PARABOLIC, p.dependence, DEP_COMPOSITION, p.unitPar1, 1, p.unitPar2, 1);
    ExpectDoubles(p.lawPar2, 0.7, p.lawPar3, 0.7, p.rightValue, 4.3);
    // Eight numbers; exponential: only the first parameter carries the unit.
    InputLineToProfile("chi :\t4.1\t4.3\t0.2\t0.7\t0.9\t4.1\t4.3\t4\t[eV]", p);
    ExpectExact(p.law, LAW_EXPONENTIAL, p.unitPar1, 1, p.unitPar2, 0);
    EXPECT_DOUBLE_EQ(p.lawPar3, 0.9);
    // A -2 in one of the last three places reads as absent: eight numbers.
    InputLineToProfile("Nd(x) :\t1e22\t1e23\t1\t2\t3\t1e22\t1e23\t 1\t -2\t[/m^3]", p);
    EXPECT_EQ(p.dependence, DEP_COMPOSITION);

    // Law 12 with nine numbers: the grading file stands behind them.
    SetProjectDir("/home/h");
    InputLineToProfile("composition grading :\t0\t1\t0\t0\t0\t0\t1\t12\t 1\tgrad y.grd\t[-]", p);
    EXPECT_EQ(p.law, LAW_FROM_FILE);
    EXPECT_EQ(p.gradingFile, "/home/h/grading/grad y.grd");
}

TEST(DefinitionFile, DefectTypesAndLevelTypes) {
    TempFolder dir;
    const std::string head = "layer\n\nname : x\nd : 1e-6\n\nsrhrecombination\n\n";
    const std::string tail = "\nfront contact\n\nSn : 1e5\n\nworking point\n\nilluminated from : left\n";
    InputParameters p;
    DefinitionWorkingSettings s;
    ASSERT_EQ(
        Read(Put(dir, "a.def", head + "type : doubledonor ( 1 level(s) )\nsigma_n : 1e-19\n" + tail), p, s),
        1);
    ExpectExact(p.cellParas.layer[0].srh[0][0].type, DEFECT_DOUBLEDONOR, s.side, 0);
    const std::string multi = head + "type : custom multilevel ( 3 level(s) )\nleveltype : +/0\t0/-\t-/2-\n" +
                              "sigma_n : 1e-19\t2e-19\t3e-19\t[m^2]\nEt : 0.1\t0.2\t0.3\t[eV]\n" + tail;
    ASSERT_EQ(Read(Put(dir, "b.def", multi), p, s), 1);
    const DefectLevels& d = p.cellParas.layer[0].srh[0];
    ExpectExact(d[0].numberOfLevels, 3, d[0].aard, 4, d[1].aard, 3, d[2].aard, 2);
    ExpectDoubles(d[2].sigma_n, 3e-19, d[1].energy.Et, 0.2);

    // Any line of a layer that begins with a lower case d is its thickness.
    ASSERT_EQ(Read(Put(dir, "c.def", "layer\n\nname : x\ndikte 3.5e-7\n" + tail), p, s), 1);
    EXPECT_DOUBLE_EQ(p.cellParas.layer[0].material.d, 3.5e-7);
}

// The old cell is read without complaint and written by the interactive writer character for
// character as the stored copy, down to the last line that has no line end.  The copy shows how the
// old forms read: no convergence section keeps the defaults; "left contact" with a Fi_m line and no
// flatband line is a fixed work function, "right contact" without Fi_m a flatband one; "v_th :" sets
// both velocities; one-number lines are uniform profiles; "absorptionmodel :" gives one model for both
// pure materials and a file model clears the coefficients; the first defect's single density serves
// both sides, "Ecor" comes without the correlated flag and no reference line means above EV (left,
// 7, at an interface); the valence-band tail's densities are peak densities per eV, held as totals.
TEST(DefinitionFile, OldFormsReadAndWrittenByTheInteractiveWriter) {
    TempFolder dir;
    InputParameters p;
    DefinitionWorkingSettings s;
    EXPECT_TRUE(Reported([&] { ASSERT_EQ(Read(kOldForms, p, s), 1); }).empty());
    // The remarks are read without their "> ".
    ASSERT_EQ(problemRemarks.size(), 2u);
    EXPECT_EQ(problemRemarks[0],
              " An old definition: no convergence section, contacts named left and right,");
    // Not written but derived: the cut-off wavelength of the absorption follows Eg, and the tail's
    // peak-to-total factor is 1/Ekar; the holes' velocity copied from the electrons' keeps its own id.
    const LayerParameters& a = p.cellParas.layer[0];
    EXPECT_EQ(a.material.v_th_p.variableId, VAR_VTHP);
    ExpectWithin(1e-9, a.material.absorption.pureA, 1239.977 / 1.15, a.srh[1][0].energy.peakToTotal,
                 1 / 0.05);
    const std::string text = ReadFile(Write(p, s, DefinitionWriter::Interactive, dir / "w.def"));
    EXPECT_EQ(text.rfind("> TERVO 3.2.01 test banner Problem definition file\n> last saved by TERVO: \t", 0),
              0u);
    EXPECT_EQ(Body(text), Body(ReadFile((kSource / "tests/cell/data/old_forms_interactive.txt").string())));
}

// Files the reader refuses (-1) or reads with complaints (1), with the messages it gives, each looked
// for in "|title|text|".
TEST(DefinitionFileBadInput, MissingTruncatedIncompleteOverfullAndUnreadableFiles) {
    TempFolder dir;
    const std::string whole = ReadFile(kOldForms), incomplete = "|The def-file is empty or incomplete: ";
    const std::string body = "layer\n\nname : x\nd : 1e-6\n\nfront contact\n\nSn : 1e5\n\nworking point\n";
    const std::string tail = "front contact\n\nSn : 1\nworking point\nilluminated from : left\n";
    std::string binary, layers,
        defects = "layer\n\nname : x\nd : 1e-6\n\nsrhrecombination\n\ntype : neutral\n";
    for (int i = 0; i < 4000; ++i) binary += static_cast<char>((i * 37 + 11) % 256);
    for (int i = 0; i < 8; ++i) layers += "layer\n\nname : L" + std::to_string(i) + "\nd : 1e-7\n\n";
    for (int i = 0; i < 7; ++i) defects += "next\n\ntype : acceptor\n";
    const std::string opening =
        "|Function lees_structuurfile(): Error occured during opening the def-file !|";
    const std::string cut =
        "|Error whilst reading the def file (in ReadNonEmptyNonCommentLine()" + incomplete;
    const std::string
        noNumber = "no number could be read in ",
        words = "convergence\n\nclamp_psi : lots\nmaxiter : 99\n\nback contact\n\nSn : 1e999\n\nlayer\n\n"
                "name : x\nd : thick\n\nfront contact\n\nSn : 1\nworking point\nilluminated from : left\n";
    // Name, text, result, and the messages.  No file (its folder does not exist either), an empty one,
    // a shipped cell cut in the middle of a layer, one that ends directly behind the head of the
    // working point and one that does not, and unreadable numbers that are reported and keep the
    // values before them.
    const std::tuple<const char*, std::string, int, std::vector<std::string>> cases[] = {
        {"no folder/none.def", "", -1, {opening}},
        {"empty.def", "", -1, {incomplete + (dir / "empty.def") + " ends at line 0"}},
        {"cut.def", whole.substr(0, whole.size() / 2), -1, {cut}},
        {"wp0.def", body, -1, {incomplete + (dir / "wp0.def") + " ends at line 10"}},
        {"wp1.def", body + "internal Rfront : 0.1", 1, {}},
        {"nolayer.def", "back contact\n\nSn : 1\n\n" + tail, -1, {}},
        {"eight.def",
         layers + tail,
         -1,
         {"eight.def\", line 36, layer 8: the file declares more than 7 layers"}},
        {"defects.def", defects + "\n" + tail, -1, {"more than 7 defects"}},
        // Counts far beyond an integer are refused before any conversion, and the model of optical
        // capture gets no refractive index of 0 to divide by.
        {"counts.def",
         "layer\n\nname : x\nd : 1e-6\nTunneling in layer: 1e12\n\nsrhrecombination\n\n"
         "optical capture of electrons, n: 0\ntype : acceptor (1e12 level(s) )\n" +
             tail,
         -1,
         {"counts.def\", line 5, layer 1 (x): the value 1e+12 in \"Tunneling in layer: 1e12\" must be a "
          "whole "
          "number from 0 to 1",
          "line 9, layer 1 (x), defect 1: the value 0 in \"optical capture of electrons, n: 0\" must be "
          "above 0",
          "line 10, layer 1 (x), defect 1: the count of levels in \"type : acceptor (1e12 level(s) )\" must "
          "be 1 "
          "to 4"}},
        {"n.def",
         words,
         1,
         {"n.def\", line 3, convergence: " + noNumber + "\"clamp_psi : lots\"", "line 8, back contact",
          "line 13, layer 1 (x)"}}};
    InputParameters p;
    DefinitionWorkingSettings s;
    for (const auto& [name, text, result, messages] : cases) {
        SCOPED_TRACE(name);
        const auto msgs = Reported([&] { EXPECT_EQ(Read(Put(dir, name, text), p, s), result); });
        ASSERT_EQ(msgs.size(), messages.size());
        for (size_t i = 0; i < msgs.size(); ++i) {
            const std::string m = "|" + msgs[i].title + "|" + msgs[i].text + "|";
            EXPECT_NE(m.find(messages[i]), std::string::npos) << m;
        }
        if (name == std::string("wp1.def")) ExpectDoubles(s.Rfront, 0.1, s.Tfront, 0.9);
    }
    ExpectDoubles(p.convergence.clamp_psi, 0.5, p.cellParas.leftContact.Sn, 1000,
                  p.cellParas.layer[0].material.d, 2e-6);
    ExpectExact(p.convergence.maxiter, 99, p.convergence.maxiter_v, 99);
    // Binary garbage: refused, no crash; what it says is free.
    Reported([&] { EXPECT_EQ(Read(Put(dir, "bin.def", binary), p, s), -1); });
    // Energy samples of distributed defects beyond their limit are clamped where they are read.
    const std::string samples =
        "convergence\n\ndefectdiscretisations : 250\n\n" + body + "internal Rfront : 0";
    const auto clamped = Reported([&] { EXPECT_EQ(Read(Put(dir, "samples.def", samples), p, s), 1); });
    ASSERT_EQ(clamped.size(), 1u);
    EXPECT_NE(
        clamped[0].text.find("samples.def\", line 3, convergence: the number of energy samples of a "
                             "distributed defect in \"defectdiscretisations : 250\" is limited to 1 .. 100; "
                             "100 is taken."),
        std::string::npos)
        << clamped[0].text;
    EXPECT_EQ(p.convergence.defectdiscretisations, 100);
}

// The readers for batch use give the same cell and leave the session's remarks alone.
TEST(DefinitionFile, BatchReadersLeaveTheRemarksAlone) {
    ResetRemarks("session");
    problemRemarks.push_back(" kept");
    const std::string path = (kSource / "examples/cells/graded_cigs.def").string();
    CellDefinition cell;
    ASSERT_EQ(ReadCeldefVariableFromDefFile(path, cell), 1);
    EXPECT_EQ(problemRemarks, std::vector<std::string>{" kept"});
    EXPECT_EQ(problemRemarksName, "session");
    ShortCellDefinition s;
    ASSERT_EQ(ReadShortCeldefVariableFromDefFile(path, s), 1);
    // Material 1 is Eg.
    ExpectExact(cell.numberOfLayers, 2, cell.layer[0].composition.law, LAW_LINEAR, s.numberOfLayers, 2,
                s.layer[0].compositionLaw, LAW_LINEAR, s.layer[0].material[1].law, LAW_PARABOLIC,
                s.layer[0].srh[1][0].energyType, EDIST_CBTAIL, s.interface[0].defect[0].energyType,
                EDIST_UNIFORM);
    EXPECT_EQ(ReadShortCeldefVariableFromDefFile((kSource / "no such file.def").string(), s), -1);
}
