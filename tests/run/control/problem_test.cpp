// Loading a definition into the session and saving the session's cell.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cell/cell_records.h"
#include "cell/definition_file.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/problem.h"
#include "run/control/work_point.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace fs = std::filesystem;
using namespace tervo;

namespace {

struct Home {
    fs::path path = fs::temp_directory_path() / ("tervo_problem_" + std::to_string(::getpid()));
    Home() {
        for (const char* d : {"def", "absorption", "filter", "grading"}) fs::create_directories(path / d);
        SetProjectDir(path.string());
        ErrorMessageMode = 2;
    }
    ~Home() { fs::remove_all(path); }
};

size_t MessagesHolding(size_t from, const std::string& text) {
    size_t n = 0;
    for (size_t i = from; i < ReportedMessages().size(); ++i)
        if ((ReportedMessages()[i].title + ReportedMessages()[i].text).find(text) != std::string::npos) ++n;
    return n;
}

} // namespace

TEST(Problem, LoadBringsTheCellInUserFormAndTheSettingsIntoTheSession) {
    Home home;
    fs::copy_file(fs::path(TERVO_SOURCE_DIR) / "examples/cells/cdte.def", home.path / "def/cdte.def");
    wp.Rs = 0;
    ASSERT_EQ(Laad_data_uit_file("cdte.def"), 0); // a bare name is looked for in def
    EXPECT_EQ(parameterset1.name, "cdte.def");
    EXPECT_EQ(zonnecel.numberOfLayers, 3);
    const LayerParameters& cdte = zonnecel.layer[0];
    EXPECT_EQ(cdte.name, "CdTe");
    EXPECT_DOUBLE_EQ(cdte.material.d, 4.0);              // µm
    EXPECT_DOUBLE_EQ(cdte.material.Na.leftValue, 2e14);  // /cm^3
    EXPECT_DOUBLE_EQ(cdte.material.mu_n.leftValue, 320); // cm^2/Vs
    EXPECT_DOUBLE_EQ(cdte.srh[0][0].sigma_n, 1e-13);     // cm^2
    EXPECT_DOUBLE_EQ(zonnecel.leftContact.Sn, 1e7);      // cm/s
    EXPECT_EQ(current_cell.layer[2].name, "SnO2");
    EXPECT_EQ(current_layers[1].name, "CdS");
    // The working settings of the file.
    EXPECT_NEAR(Rfront, 0.05, 1e-12); // Tfront, written after it, sets it again as 1 - Tfront
    EXPECT_DOUBLE_EQ(Tfront, 0.95);
    EXPECT_EQ(wp.RsPresent, 1);
    EXPECT_DOUBLE_EQ(wp.Rs, 1e-4);
    EXPECT_EQ(wp.side, 1);
    EXPECT_EQ(equiberekend, 0);
}

TEST(Problem, SavedCellLoadsBackTheSame) {
    Home home;
    ASSERT_EQ(Laad_data_uit_file((fs::path(TERVO_SOURCE_DIR) / "examples/cells/graded_cigs.def").string()),
              0);
    const CellDefinition before = zonnecel;
    ASSERT_EQ(SaveDefinitionFileToPath("copy.def"), 0);
    ASSERT_TRUE(fs::exists(home.path / "def/copy.def"));
    CreateNewProblem();
    EXPECT_EQ(zonnecel.numberOfLayers, 0);
    ASSERT_EQ(Laad_data_uit_file("copy.def"), 0);
    ASSERT_EQ(zonnecel.numberOfLayers, before.numberOfLayers);
    const MaterialParameters& a = before.layer[0].material;
    const MaterialParameters& b = zonnecel.layer[0].material;
    EXPECT_EQ(b.Eg.law, LAW_PARABOLIC);
    EXPECT_NEAR(b.Eg.lawPar1, a.Eg.lawPar1, 1e-9);
    EXPECT_NEAR(b.Na.rightValue, a.Na.rightValue, 1e-6 * a.Na.rightValue);
    EXPECT_EQ(zonnecel.layer[0].srhteller, 2);
    EXPECT_NEAR(zonnecel.layer[0].srh[1][0].sigma_p, before.layer[0].srh[1][0].sigma_p, 1e-30);
    EXPECT_EQ(zonnecel.interface[0].defect[0].energy.reference, 4);
    EXPECT_EQ(zonnecel.voltageAppliedTo, -1);
}

TEST(Problem, UnreadableFilesAreReportedAndLeaveTheCellAlone) {
    Home home;
    ASSERT_EQ(Laad_data_uit_file((fs::path(TERVO_SOURCE_DIR) / "home/def/cigs.def").string()), 0);
    const size_t before = ReportedMessages().size();
    EXPECT_EQ(Laad_data_uit_file("nothing here.def"), -1);
    EXPECT_EQ(MessagesHolding(before, "File not loaded"), 1u);
    std::ofstream(home.path / "def/garbage.def", std::ios::binary)
        << std::string("\x7f\x45\x4c\x46\x02\x01", 6);
    EXPECT_EQ(Laad_data_uit_file("garbage.def"), -1);
    EXPECT_EQ(MessagesHolding(before, "holds no layer"), 1u);
    EXPECT_EQ(zonnecel.numberOfLayers, 3); // still the cell loaded first
    EXPECT_EQ(zonnecel.layer[0].name, "CIGS");
}

TEST(Problem, InteractiveSaveWarnsAboutSideFilesOutsideTheirFolders) {
    Home home;
    ASSERT_EQ(Laad_data_uit_file((fs::path(TERVO_SOURCE_DIR) / "tests/cell/data/old_forms.def").string()), 0);
    const size_t before = ReportedMessages().size();
    ASSERT_EQ(data_naar_file("saved.def"), 0);
    // The buffer layer takes its absorption from cds.abs for both pure materials: two warnings.
    EXPECT_EQ(MessagesHolding(before, "The absorptionfile  'cds.abs', used in layer 2 of this def-file"), 2u);
    EXPECT_EQ(MessagesHolding(before, "isn't saved yet"), 1u);
    EXPECT_EQ(parameterset1.name, "saved.def");
    // With the file in its folder the save is silent.
    std::ofstream(home.path / "absorption/cds.abs") << "500 1e7\n";
    const size_t second = ReportedMessages().size();
    ASSERT_EQ(data_naar_file("saved.def"), 0);
    EXPECT_EQ(ReportedMessages().size(), second);
    InputParameters back;
    DefinitionWorkingSettings s;
    EXPECT_EQ(lees_structuurfile((home.path / "def/saved.def").string(), back, s), 1);
    EXPECT_EQ(back.cellParas.layer[1].material.absorptionFileB, "cds.abs");
}
