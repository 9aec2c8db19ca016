// The list of simulations, and the I-V and QE result files for simulations filled by hand: a block
// per simulation in list order, the rows of cut curves as the mode has them, empty lists, and the date
// and convention lines of the header.
#include "run/results/result_files.h"

#include <chrono>
#include <ctime>
#include <iomanip>

#include "platform/files.h"
#include "run/control/startup.h"
#include "solved_cells.h"

namespace tervo::results_test {
namespace {

// Elements are appended without moving the earlier ones, and cleared with the counters that number
// them.
TEST_F(ResultsTest, ListElementsStayWhereTheyAreAsOthersAreAppendedAndAreClearedWithTheCounters) {
    Actie a;
    a.IV = {1, 0, 0.8, 17, 0};
    DataListElement& first = AppendDataListElement(1, a, wp);
    first.iv_as.assign(17, 0.1); // a sweep fills its curve
    for (int i = 2; i <= 50; ++i) AppendDataListElement(i, a, wp);
    // A sweep keeps its element while later ones are appended.
    ASSERT_EQ(resultList.size(), 50u);
    EXPECT_EQ(pointer_naar_eerste(), &first) << "appending never moves an element";
    EXPECT_EQ(pointer_naar_huidige()->number, 50);
    EXPECT_EQ(first.iv_as.size(), 17u);
    EXPECT_TRUE(pointer_naar_huidige()->iv_as.empty());

    wis_alles();
    EXPECT_TRUE(resultList.empty());
    EXPECT_EQ(pointer_naar_huidige(), nullptr);
    // The counters are cleared with the list, even with an empty one.
    kleurindex = 7;
    SingleShotSimulationNumber = 4;
    BatchSimulationNumber = 2;
    CurveFitSimulationNumber = 3;
    wis_alles();
    EXPECT_EQ((std::vector{kleurindex, SingleShotSimulationNumber, BatchSimulationNumber,
                           CurveFitSimulationNumber}),
              std::vector(4, 0));
}

class ResultFiles : public ResultsTest {
protected:
    // A dark single shot at 0.25 V, 300 K, 1 MHz, with its I-V sweep on, of a definition file last
    // saved on 1 February 2024 at 10:05:07 local time.
    DataListElement& Simulation(int number) {
        WorkPoint w;
        w.definitionFile = dir / "cell.def";
        test::WriteFile(w.definitionFile, "x\n");
        std::tm t{};
        std::istringstream("01-02-2024 10:05:07") >> std::get_time(&t, "%d-%m-%Y %H:%M:%S");
        t.tm_isdst = -1;
        const auto stamp = std::chrono::system_clock::from_time_t(std::mktime(&t));
        fs::last_write_time(w.definitionFile, std::chrono::file_clock::from_sys(stamp));
        w.voltage = 0.25;
        Actie a;
        a.IV.calculate = 1;
        return AppendDataListElement(number, a, w);
    }
    // An I-V curve of `points` points of which `done` were reached: v = 0.1 i, J = -10 + i.
    static void FillCurve(DataListElement& e, int points, int done) {
        e.actie.IV.points = points;
        e.actie.IV.done = done;
        for (auto* c : {&e.iv_as, &e.ivcurrent, &e.rec_v_as, &e.ivleftcontact, &e.ivrightcontact, &e.ivifr,
                        &e.ivbulk, &e.recSRH, &e.recRadiative, &e.recAuger})
            c->assign(static_cast<size_t>(points), 0.0);
        for (size_t i = 0; i < static_cast<size_t>(done); ++i) {
            e.iv_as[i] = 0.1 * static_cast<double>(i);
            e.ivcurrent[i] = -10.0 + static_cast<double>(i);
        }
    }
    // A QE curve of three wavelengths cut after two, and no I-V curve.
    static void FillQe(DataListElement& e) {
        e.actie.IV.calculate = 0;
        e.actie.QE.calculate = 1;
        e.actie.QE.points = 3;
        e.actie.QE.done = 2;
        e.qe_as = {400, 826.5, 0};
        e.qe = {99.5, 1.25e-3, 0};
        e.hv_as = {3.1, 1.5, 0};
    }
    std::vector<std::string> Header(const DataListElement* e) {
        std::string text;
        EXPECT_EQ(ComposeOutputHeader(text, e, HEADER_IV, 1, 0), 0);
        return test::Lines(text);
    }
};

TEST_F(ResultFiles, EachSimulationGetsAFullBlockInListOrderAndUnreachedRowsFollowTheMode) {
    FillCurve(Simulation(1), 10, 3);
    FillQe(Simulation(2));
    DataListElement& cvOnly = Simulation(3);
    cvOnly.actie.IV.calculate = 0;
    cvOnly.actie.CV.calculate = 1; // C-V points carry currents
    FillCurve(cvOnly, 3, 3);
    FillQe(Simulation(4));
    struct Case {
        int mode;
        size_t filler;
        std::string row, qeRow;
    };
    for (const Case& c :
         {Case{ACTIONLIST_TRUNCATE, 0, "", ""},
          Case{ACTIONLIST_FILLZEROS, 7, "0.0\t0.0\t0.0\t0.0\t0.0\t0.0\t0.0\t0.0\t0.0", "0.0\t0.0\t0.0"},
          Case{ACTIONLIST_FILLWHITE, 7, " \t \t \t \t \t \t \t \t ", " \t \t "}}) {
        SCOPED_TRACE(c.mode);
        ActionListMode = c.mode;
        ASSERT_EQ(SaveResultFile(RESULT_IV, dir / "out"), 0);
        std::vector<std::string> lines = test::FileLines(dir / "out.iv");
        // Each header is whole (16 lines), with the column line and a blank behind it; the rows that
        // were reached, those that were not as the mode has it, and two blank lines.
        const size_t firstRow = 18, second = firstRow + 3 + c.filler + 2;
        ASSERT_EQ(lines.size(), second + firstRow + 3 + 2);
        for (size_t k : {size_t{0}, second}) {
            EXPECT_EQ(lines[k + 2], "Single shot simulation #\t" + std::string(k ? "3" : "1"));
            EXPECT_EQ(lines[k + firstRow + 2].substr(0, 11), "   0.200000");
        }
        for (size_t i = 0; i < c.filler; ++i) EXPECT_EQ(lines[firstRow + 3 + i], c.row);

        // The QE file: a block for each QE simulation, two rows reached and the third as the mode has
        // it, three blank lines.
        ASSERT_EQ(SaveResultFile(RESULT_QE, dir / "out"), 0);
        lines = test::FileLines(dir / "out.qe");
        const size_t next = Find(lines, "Single shot simulation #\t4") - 2;
        ASSERT_LT(next, lines.size());
        EXPECT_EQ(lines[2], "Single shot simulation #\t2");
        const size_t filled = c.qeRow.empty() ? 0 : 1;
        for (const size_t end : {next, lines.size()}) {
            EXPECT_EQ(lines[end - 4 - filled].substr(0, 13), "   826.500000");
            EXPECT_EQ(filled ? lines[end - 4] : "", c.qeRow);
            EXPECT_EQ(lines[end - 3] + lines[end - 2] + lines[end - 1], "");
        }
    }
    // The screen gets the text of the file.
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(qe_naar_file(OUTPUT_TO_SCREEN, nullptr), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), test::ReadFile(dir / "out.qe"));
}

TEST_F(ResultFiles, EmptyListsAndMissingStatesAreReportedAndWriteNothing) {
    TextFile f = OpenFile(dir / "empty.iv", FileMode::Write);
    EXPECT_EQ(iv_naar_file(OUTPUT_TO_OPEN_FILE, &f), -1);
    EXPECT_EQ(qe_naar_file(OUTPUT_TO_OPEN_FILE, &f), -1);
    EXPECT_EQ(SaveResultFile(RESULT_GEN, dir / "empty"), -1);
    Simulation(1).actie.IV.calculate = 0; // a list without I-V or C-V curves has nothing either
    EXPECT_EQ(iv_naar_file(OUTPUT_TO_OPEN_FILE, &f), -1);
    const auto state = std::make_unique<CalculationVariables>();
    EXPECT_EQ(eb_naar_file(OUTPUT_TO_OPEN_FILE, &f, *state), -1);
    std::string text = "kept";
    EXPECT_EQ(ComposeOutputHeader(text, nullptr, HEADER_IV, 1, 0), -1);
    EXPECT_EQ(text, "kept");
    CloseFile(f);
    EXPECT_EQ(test::ReadFile(dir / "empty.iv"), "");
    // One message for each refusal; the text of the first stands for the others.
    ASSERT_EQ(ReportedMessages().size(), 6u);
    EXPECT_EQ(ReportedMessages()[0].title + "|" + ReportedMessages()[0].text,
              "Function Save or Show|No IV-calculation is made yet: nothing to save or to show !");

    // A path that cannot be written is reported.
    ClearReportedMessages();
    FillCurve(Simulation(2), 2, 2);
    EXPECT_EQ(SaveResultFile(RESULT_IV, dir / "no such folder/x.iv"), -1);
    EXPECT_EQ(ReportedMessages().size(), 1u);
}

TEST_F(ResultFiles, HeaderDateAndConventionLinesFollowTheVoltageAndCurrentReference) {
    DataListElement& e = Simulation(1);
    std::vector<std::string> h = Header(&e);
    ASSERT_EQ(h.size(), 16u); // without conventions the working point is followed by two blank lines
    EXPECT_EQ(h[6], "last saved: \t01-02-2024 at 10:05:07"); // padded, day first
    e.wp.conventionsShown = 1;
    zonnecel.signV = -1; // the working point is shown in the user's convention
    for (const int v : {1, -1}) {
        for (const int c : {1, -1}) {
            e.wp.voltageReference = v;
            e.wp.currentReference = c;
            h = Header(&e);
            ASSERT_EQ(h.size(), 19u);
            EXPECT_EQ(h[12], "Workpoint bias voltage\t   -0.2500\tVolt");
            // V is applied to the contact the voltage is not referred to, and counted there.
            const char* applied = v == 1 ? "right" : "left";
            EXPECT_EQ(h[15], FmtStr("Voltage reference convention: voltage referred to %s contact, voltage V "
                                    "applied to %s contact",
                                    v == 1 ? "left" : "right", applied));
            EXPECT_EQ(h[16], FmtStr("Current reference convention: current positive when %s the %s contact",
                                    c == 1 ? "entering" : "leaving", applied));
            EXPECT_EQ(h[17],
                      FmtStr("Power generated by the cell: = %sV*I; power consumed by the cell = %sV*I",
                             c == 1 ? "-" : "+", c == 1 ? "+" : "-"));
        }
    }
    // Light from the left.
    e.wp.dark = 0;
    e.wp.side = 0;
    EXPECT_EQ(Header(&e).at(10), "Illumination from the left");
}

} // namespace
} // namespace tervo::results_test
