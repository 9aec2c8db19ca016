// The action settings, their files, the consistency rules of sweeps and light, and the check of the
// files that a problem names.
#include "run/control/action_list.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <tuple>

#include "cell/cell_records.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/work_point.h"
#include "run/run_cells.h"
#include "support/temp_folder.h"

namespace fs = std::filesystem;
using namespace tervo;
using tervo::test::WriteFile;

namespace {

// A home tree of its own, and the session's records at their defaults.
class ActionList : public ::testing::Test {
protected:
    test::TempFolder home;
    std::string oldHome = GetProjectDir();

    void SetUp() override {
        for (const char* d : {"def", "spectrum", "generation", "filter", "grading", "absorption", "optcapt"})
            fs::create_directories(home.path / d);
        SetProjectDir(home.path.string());
        ErrorMessageMode = 2;
        FreshSettings();
        InitialiseCellDefinition(current_cell);
        InitialiseCellDefinition(zonnecel);
        IPV_Mode = Generation_Mode = secondGeneration_Mode = pausestatus = 0;
        AllFilesFound = kortberekend = 1;
    }
    void FreshSettings() {
        InitialiseActionPanel(actionPanel);
        wp = secondwp = WorkPoint{};
        InitialiseWorkPoint(wp);
        InitialiseWorkPoint(secondwp);
    }
    void TearDown() override { SetProjectDir(oldHome); }
    std::string In(const char* folder, const char* name) { return (home.path / folder / name).string(); }
};

// The same settings: values that pass through a logarithm or a rounded step agree closely, the
// rest exactly.
void ExpectSameSettings(ActionPanelSettings got, const ActionPanelSettings& want) {
    for (auto [g, w] : {std::pair{&got.first, &want.first}, std::pair{&got.second, &want.second}}) {
        EXPECT_NEAR(g->ND, w->ND, 1e-6);
        EXPECT_NEAR(g->transmission, w->transmission, 1e-4);
        g->ND = w->ND;
        g->transmission = w->transmission;
    }
    for (auto [g, w] : {std::pair{&got.IV, &want.IV}, std::pair{&got.CV, &want.CV},
                        std::pair{&got.Cf, &want.Cf}, std::pair{&got.QE, &want.QE}}) {
        EXPECT_NEAR(g->increment, w->increment, 1e-12);
        g->increment = w->increment;
    }
    EXPECT_TRUE(got == want);
}

} // namespace

TEST_F(ActionList, SavedListsReadBackTheSame) {
    WriteFile(In("spectrum", "lamp.spe"), "400 1\n500 2\n");
    WriteFile(In("spectrum", "blue.spe"), "400 1\n500 2\n");
    WriteFile(In("generation", "g1.gen"), "0 1e20\n");
    WriteFile(In("generation", "g2.gen"), "0 1e20\n");
    wp.spectrumFile = "lamp.spe";
    secondwp.spectrumFile = In("spectrum", "blue.spe");
    wp.generationFile = In("generation", "g1.gen");
    secondwp.generationFile = "g2.gen";
    ActionPanelSettings& a = actionPanel;
    a.first = {310.25, 0.6125, 2.5e5, 7, 0, 1, 1, 350.5, 1100.25, 1.0, 10.0, 80.5};
    a.second = {280.5, -0.25, 1e6, 9, 0, 1, 0, 0, 2000, 0.5, 100 * std::pow(10.0, -0.5), 60};
    a.pause = a.stopAfterVoc = a.MIS_CV_calculate = 1;
    a.IV = {1, -0.2, 0.8, 41, 0.025};
    a.CV = {1, -1.0, 0.5, 31, 0.05};
    a.Cf = {1, 1e3, 1e7, 17, 4};
    a.QE = {1, 350, 950, 31, 20};
    const ActionPanelSettings saved = actionPanel;
    ASSERT_EQ(SaveActionList("round"), 0) << "a bare name without extension is completed in def";
    ASSERT_EQ(SaveWP2Settings("initial.wp2"), 0);

    FreshSettings();
    const size_t warnings = ReadingWarnings().size();
    ASSERT_EQ(LoadActionList(In("def", "round")), 0);
    EXPECT_EQ(ReadingWarnings().size(), warnings) << "every line the writer writes is one the reader knows";
    ActionPanelSettings expected = saved;
    expected.second.numberofpoints = 5; // not read back: it stays at its default
    ExpectSameSettings(actionPanel, expected);
    EXPECT_EQ(std::tuple(wp.spectrumFile, secondwp.spectrumFile, wp.generationFile),
              std::tuple(In("spectrum", "lamp.spe"), In("spectrum", "blue.spe"), In("generation", "g1.gen")));
    EXPECT_EQ(std::tuple(Generation_Mode, AllFilesFound, kortberekend), std::tuple(1, 1, 0));

    // The file of the second working point loads into the second working point only.
    FreshSettings();
    actionPanel.first.temperature = 333;
    kortberekend = 1;
    secondGeneration_Mode = 0;
    ASSERT_EQ(LoadWP2Settings("initial.wp2"), 0);
    ActionPanelSettings only;
    only.first.temperature = 333;
    only.second = expected.second;
    ExpectSameSettings(actionPanel, only);
    EXPECT_EQ(secondwp.generationFile, In("generation", "g2.gen"));
    EXPECT_EQ(std::tuple(secondGeneration_Mode, kortberekend), std::tuple(1, 0));
}

TEST_F(ActionList, HandWrittenFileReadsByKeyInAnyCaseAndOrder) {
    WriteFile(In("generation", "b.gen"), "0 1e20\n");
    const std::string longTail(119 - std::string("pause : 1").size(), ' ');
    WriteFile(
        In("def", "old.act"),
        "> saved by hand\n* another remark\n\nTEMPERATURE : 280 K\ncolour of the curves : blue\n"
        "generation file : a.gen\ngeneration from file : 0\nSecondworkpoint generation from file : 1\n"
        "Secondworkpoint generation file : b.gen\nSecondworkpoint Number of points : 9\nRs present : 1\n"
        "Rs : 2.5\nRsh present : 1\nRsh : 200\niv_POINTS : 11\nTemperature :" +
            std::string(120, ' ') + "350\npause : 1" + longTail +
            "dark : 0\nneutral density : 2\ntransmission : 50 %\ndark : 1\n");
    actionPanel.first.dark = 0;
    ASSERT_EQ(SetActionPanelFromFile("old.act"), 0);
    // The later temperature line has its number beyond the 119 characters that are read: a warning,
    // and the temperature before it stays.  The tail of a long line is no line of its own; the last
    // dark wins.
    EXPECT_EQ(std::tuple(actionPanel.first.temperature, actionPanel.pause, actionPanel.first.dark),
              std::tuple(280.0, 1, 1));
    EXPECT_NEAR(actionPanel.first.transmission, 50, 1e-12);
    EXPECT_NEAR(actionPanel.first.ND, 0.30103, 1e-5) << "the transmission line came later";
    EXPECT_DOUBLE_EQ(actionPanel.first.lambda_long, 2000) << "a missing key keeps its default";
    EXPECT_EQ(wp.generationName, "*.gen") << "generation file is ignored while generation from file is off";
    EXPECT_EQ(secondwp.generationFile, In("generation", "b.gen"));
    EXPECT_EQ(std::tuple(actionPanel.second.numberofpoints, actionPanel.Rs, actionPanel.RshPresent,
                         actionPanel.Gsh, actionPanel.IV.points),
              std::tuple(5, 2.5, 1, 0.005, 11));

    const ActionPanelSettings before = actionPanel;
    const size_t messages = ReportedMessages().size();
    EXPECT_EQ(SetActionPanelFromFile("no such list.act"), -1);
    EXPECT_TRUE(actionPanel == before);
    EXPECT_EQ(ReportedMessages().size(), messages) << "a missing action list is passed over in silence";
}

// Points and step of a sweep after an edit.
std::pair<int, double> Lin(SweepSettings s, SweepEdit edit) {
    ChangeNumberOfPointsLin(s, edit);
    return {s.points, s.increment};
}
std::pair<int, double> Log(SweepSettings s, SweepEdit edit) {
    ChangeNumberOfPointsLog(s, edit);
    return {s.points, s.increment};
}

// Settings that the panel keeps consistent: the points and step of a sweep after an edit, within
// 2001 points; cut-off wavelengths of at least 1 nm; the shunt as resistance or conductance; the
// light as transmission or neutral density.  The working point that is read from them.
TEST_F(ActionList, EditsKeepTheSettingsConsistentAndTheWorkingPointIsReadInTheCellsConventionAndSIUnits) {
    using E = SweepEdit;
    EXPECT_EQ(Lin({1, 0, 1, 5, 0.1}, E::Increment), std::pair(11, 0.1));
    EXPECT_EQ(Lin({1, 0, 1, 5, 0.35}, E::Range), std::pair(4, 1.0 / 3)); // 2.86 steps round to 3
    EXPECT_EQ(Lin({1, -1, 1, 5, 0.1}, E::Points), std::pair(5, 0.5));    // the step follows n
    ClearReportedMessages();
    EXPECT_EQ(Lin({1, 0, 2, 2001, 0.001}, E::Increment).first, 2001); // at the limit: no warning
    EXPECT_TRUE(ReportedMessages().empty());
    EXPECT_EQ(Lin({1, 0, 10, 5, 0.001}, E::Increment), std::pair(2001, 10.0 / 2000));
    run_test::ExpectOneMessage("Warning !", "Number of calculation points is limited to 2001!");
    EXPECT_EQ(Log({1, 1e3, 1e4, 5, 2.4}, E::Range).first, 3); // 2.4 a decade rounds to 2 steps
    EXPECT_EQ(Log({1, 0, 1e6, 9, 5}, E::Range).first, 9);     // no logarithm of 0 Hz: left alone

    WorkPointSettings w;
    w.lambda_short = -5;
    w.lambda_long = -3;
    CheckCutoffWavelengths(w);
    EXPECT_EQ(std::pair(w.lambda_short, w.lambda_long), std::pair(1.0, 2.0));
    ActionPanelSettings shunt;
    shunt.Gsh = 0; // no shunt conductance: an infinite resistance
    Rsh_Gsh(shunt, 0);
    EXPECT_EQ(std::pair(shunt.Rsh, shunt.Gsh), std::pair(1e30, 0.0));
    EXPECT_EQ(NeutralDensityOfTransmission(0), 30); // no light: a finite density
    wp.power_cutoff = 1000;
    actionPanel.first.transmission = 25;
    UpdateIllumination(1, IntensityView::Transmission);
    EXPECT_NEAR(wp.power_incident, 250, 1e-9);

    // The working point in the cell's convention and in SI units.
    zonnecel.voltageAppliedTo = 1; // voltage at the right contact: the calculation's voltage is minus it
    zonnecel.referenceSystem = 1;
    wp.conventionsShown = 1;
    wp.power_cutoff = 800;
    ActionPanelSettings& a = actionPanel;
    a.first = {300, 0.5, 1e6, 5, 0, 0, 1, 300, 900, 1, 10, 100};
    a.RsPresent = a.RshPresent = 1;
    a.Rs = 2;     // ohm cm2
    a.Gsh = 0.01; // S/cm2
    WorkPoint first;
    ReadWorkPoint(first, 1);
    EXPECT_EQ(std::tuple(zonnecel.signV, zonnecel.signJ, first.voltageReference, first.voltage),
              std::tuple(-1, -1, 1, -0.5));
    EXPECT_NEAR(first.power_incident, 80, 1e-9);
    EXPECT_NEAR(first.Rs, 2e-4, 1e-18); // ohm m2
    EXPECT_NEAR(first.Gsh, 100, 1e-12); // S/m2
    wp.conventionsShown = 0;            // a cell without conventions: voltages as they are
    ReadWorkPoint(wp, 1);
    EXPECT_EQ(std::tuple(zonnecel.signV, wp.voltage), std::tuple(1, 0.5));
}

TEST_F(ActionList, MissingFilesAreCountedOrReplacedByTheirModelsAndAFreshWorkingPointDropsThem) {
    WriteFile(In("spectrum", "lamp.spe"), "400 1\n");
    WriteFile(In("spectrum", "AM1_5G 1 sun.spe"), "400 1\n");
    wp.spectrumFile = "lamp.spe"; // found in its folder: rewritten to the full path
    wp.generationFile = "not used.gen";
    secondwp.generationFromFile = actionPanel.second.generationFromFile = 1;
    secondwp.generationFile = "gone.gen";
    secondwp.spectrumFile = "gone too.spe";
    CellDefinition& c = current_cell;
    c.numberOfLayers = 2;
    c.rightContact.opticalFilter = c.leftContact.opticalFilter = 1;
    c.rightContact.wavelengthIndependent = c.leftContact.wavelengthIndependent = 0;
    c.rightContact.filterFile = "front.ftr";
    c.leftContact.filterFile = "back.ftr";
    LayerParameters& l0 = c.layer[0];
    l0.name = "absorber";
    l0.material.Eg.law = LAW_FROM_FILE;
    l0.material.Eg.gradingFile = "eg.grd";
    l0.compositionType = 0;
    l0.material.absorptionA = 1;
    l0.material.absorptionFileA = "a.abs";
    l0.material.absorptionB = 1; // pure A: the B file is not used
    l0.material.absorptionFileB = "b.abs";
    l0.srhteller = 2;
    l0.srh[1][0].numberOfLevels = 2;
    for (auto& level : l0.srh[1]) {
        level.Nt.law = LAW_FROM_FILE;
        level.Nt.gradingFile = "nt.grd";
    }
    l0.srh[1][1].optCaptHoles.fromFile = 1;
    l0.srh[1][1].optCaptHoles.fileName = "holes.opt";
    c.layer[1].name = "window";
    c.layer[1].composition.law = LAW_FROM_FILE;
    c.layer[1].composition.gradingFile = "y.grd";
    zonnecel = current_cell;
    zonnecel.layer[1].composition.gradingFile = "other.grd"; // names another file: left alone

    EXPECT_EQ(CanAllFilesBeFound(3), 0);
    EXPECT_EQ(std::tuple(AllFilesFound, secondwp.generationFromFile), std::tuple(0, 1))
        << "mode 3 only counts";
    EXPECT_EQ(wp.spectrumFile, In("spectrum", "lamp.spe"));
    IPV_Mode = 1;
    const size_t from = ReportedMessages().size();
    EXPECT_EQ(CanAllFilesBeFound(2), 1);
    // The generation file and the spectrum of the second working point; both filters, the gap
    // grading and the absorption file of the absorber, its defect density grading and optical
    // capture file, the composition grading of the window.
    ASSERT_EQ(ReportedMessages().size(), from + 9);
    EXPECT_EQ(ReportedMessages()[from].title + "|" + ReportedMessages()[from].text,
              "Error whilst checking files for existence|Generation file (initial wp) " +
                  In("generation", "gone.gen") + " not found; illumination mode set to internal TERVO model");
    EXPECT_EQ(std::tuple(AllFilesFound, secondwp.generationFromFile, actionPanel.second.generationFromFile,
                         secondGeneration_Mode, secondwp.spectrumName),
              std::tuple(1, 0, 0, 0, std::string("AM1_5G 1 sun.spe")));
    for (const CellDefinition* cell : {&current_cell, &zonnecel}) { // the same file in both: both change
        const LayerParameters& l = cell->layer[0];
        EXPECT_EQ(std::tuple(cell->rightContact.wavelengthIndependent, l.material.Eg.law,
                             l.material.absorptionA, l.srh[1][1].Nt.law, l.srh[1][1].optCaptHoles.fromModel),
                  std::tuple(1, LAW_LINEAR, 0, LAW_LINEAR, 1));
    }
    EXPECT_EQ(std::pair(current_cell.layer[1].composition.law, zonnecel.layer[1].composition.law),
              (std::pair<int, int>(LAW_LINEAR, LAW_FROM_FILE)));
    EXPECT_EQ(CanAllFilesBeFound(3), 1) << "after the replacements nothing is missing";

    // Mode 1 would show a list; with no screen it replaces and logs as mode 2.
    wp.generationFromFile = 1;
    wp.generationFile = "gone.gen";
    EXPECT_EQ(std::tuple(CanAllFilesBeFound(1), wp.generationFromFile), std::tuple(1, 0));

    // A fresh working point keeps the files that exist, completed in their folders, and falls back
    // to the standard spectrum and no problem for those that do not.
    WriteFile(In("def", "cell.def"), "layer\n");
    WorkPoint w;
    w.definitionFile = "cell.def";
    w.spectrumFile = "lamp.spe";
    w.generationFile = "gone.gen";
    w.temperature = 200;
    w.numberofpoints = 8;
    InitialiseWorkPoint(w);
    EXPECT_EQ(
        std::tuple(w.definitionFile, w.spectrumFile, w.generationFile, w.temperature, w.numberofpoints),
        std::tuple(In("def", "cell.def"), In("spectrum", "lamp.spe"), In("generation", "*.gen"), 300.0, 8));
    w.spectrumFile = "gone.spe";
    w.definitionFile = "gone.def";
    InitialiseWorkPoint(w);
    EXPECT_EQ(std::pair(w.spectrumFile, w.definitionFile),
              std::pair(In("spectrum", "AM1_5G 1 sun.spe"), std::string("new problem")));
}
