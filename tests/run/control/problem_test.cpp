// Loading a definition into the session and saving the session's cell.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>

#include "cell/cell_records.h"
#include "cell/working_settings.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/problem.h"
#include "run/control/work_point.h"
#include "run/run_cells.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::run_test::Keep;

namespace {

// A home of its own; the session records that loading a cell sets are put back afterwards, so that
// the cell's mesh, light and contact settings do not leak into the tests that follow.
struct Home : test::TempFolder {
    const std::string project = GetProjectDir();
    Keep<MeshSettings> mesh{meshSettings};
    Keep<MottSchottkySettings> mottSchottky{NW};
    Keep<WorkPoint> workPoint{wp};
    Keep<double> reflection{Rfront}, transmission{Tfront};
    Keep<InputParameters> problem{parameterset1};
    Keep<CellDefinition> cell{zonnecel}, editorCell{current_cell};
    Home() {
        for (const char* d : {"def", "absorption", "filter", "grading"}) fs::create_directories(path / d);
        SetProjectDir(path.string());
        ErrorMessageMode = 2;
    }
    ~Home() { SetProjectDir(project); }
};

} // namespace

TEST(Problem, LoadBringsTheCellAndItsSettingsIntoTheSessionOrReportsWhyNot) {
    Home home;
    fs::copy_file(std::string(TERVO_SOURCE_DIR) + "/examples/cells/cdte.def", home / "def/cdte.def");
    wp.Rs = 0;
    ASSERT_EQ(Laad_data_uit_file("cdte.def"), 0); // a bare name is looked for in def
    EXPECT_EQ(std::tuple(parameterset1.name, zonnecel.numberOfLayers, zonnecel.layer[0].name,
                         current_cell.layer[2].name, current_layers[1].name),
              std::tuple("cdte.def", 3, "CdTe", "SnO2", "CdS"));
    // The working settings of the file; Tfront, written after Rfront, sets it again as 1 - Tfront.
    EXPECT_NEAR(Rfront, 0.05, 1e-12);
    EXPECT_EQ(std::tuple(Tfront, wp.RsPresent, wp.Rs, wp.side, equiberekend),
              std::tuple(0.95, 1, 1e-4, 1, 0));

    // A missing file and one that is no definition are reported, each in one message, and leave the
    // cell alone.
    const size_t before = ReportedMessages().size();
    EXPECT_EQ(Laad_data_uit_file("nothing here.def"), -1);
    EXPECT_EQ(ReportedMessages().size(), before + 1);
    test::WriteFile(home / "def/garbage.def", std::string("\x7f\x45\x4c\x46\x02\x01", 6));
    EXPECT_EQ(Laad_data_uit_file("garbage.def"), -1);
    ASSERT_EQ(ReportedMessages().size(), before + 2);
    EXPECT_NE(ReportedMessages().back().text.find("holds no layer"), std::string::npos);
    EXPECT_EQ(std::tuple(zonnecel.numberOfLayers, zonnecel.layer[0].name), std::tuple(3, "CdTe"));
}
