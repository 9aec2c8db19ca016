// The I-V and QE result files and the header of result files, line by line, for simulations filled by
// hand.
#include "run/results/result_files.h"

#include <chrono>
#include <ctime>

#include "platform/files.h"
#include "run/control/startup.h"
#include "solved_cells.h"

namespace tervo::results_test {
namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string ReadAll(const std::string& path) {
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

// A file whose last change is set to a known local date and time.
std::string StampedFile(const std::string& path, int day, int month, int year, int h, int m, int s) {
    test::WriteFile(path, "x\n");
    std::tm tm{};
    tm.tm_year = year - 1900, tm.tm_mon = month - 1, tm.tm_mday = day;
    tm.tm_hour = h, tm.tm_min = m, tm.tm_sec = s, tm.tm_isdst = -1;
    fs::last_write_time(
        path, std::chrono::file_clock::from_sys(std::chrono::system_clock::from_time_t(std::mktime(&tm))));
    return path;
}

class ResultFiles : public ResultsTest {
protected:
    std::string savedVersion = VERSION;
    void SetUp() override {
        ResultsTest::SetUp();
        VERSION = "TERVO test banner";
        ActionListMode = ACTIONLIST_TRUNCATE;
    }
    void TearDown() override {
        ResultsTest::TearDown();
        VERSION = savedVersion;
        ActionListMode = ACTIONLIST_TRUNCATE;
    }

    // A dark single shot whose definition file was last saved on 1 February 2024 at 10:05:07.
    DataListElement& Simulation(int number) {
        WorkPoint w;
        w.definitionFile = StampedFile(dir / "cell.def", 1, 2, 2024, 10, 5, 7);
        w.voltage = 0.25; // dark, 300 K, 1 MHz
        Actie a;
        a.IV.calculate = 1;
        DataListElement& e = AppendDataListElement(number, a, w);
        e.started = "3-4-2025 at 9:05:07";
        return e;
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

    std::string IvFile() {
        TextFile f = OpenFile(dir / "out.iv", FileMode::Write);
        EXPECT_EQ(iv_naar_file(OUTPUT_TO_OPEN_FILE, &f), 0);
        CloseFile(f);
        return ReadAll(dir / "out.iv");
    }

    std::vector<std::string> Header(const DataListElement* e, int fromWorkpoint = 0) {
        std::string text;
        EXPECT_EQ(ComposeOutputHeader(text, e, HEADER_IV, 1, fromWorkpoint), 0);
        return Lines(text);
    }
};

TEST_F(ResultFiles, EachSimulationWithCurrentsGetsAFullBlockInListOrderAndUnreachedRowsFollowTheMode) {
    FillCurve(Simulation(1), 10, 3);
    DataListElement& qeOnly = Simulation(2);
    qeOnly.actie.IV.calculate = 0;
    qeOnly.actie.QE.calculate = 1;
    DataListElement& cvOnly = Simulation(3);
    cvOnly.actie.IV.calculate = 0;
    cvOnly.actie.CV.calculate = 1; // C-V points carry currents
    FillCurve(cvOnly, 3, 3);
    struct Case {
        int mode;
        size_t filler;
        std::string row;
    };
    for (const Case& c : {Case{ACTIONLIST_TRUNCATE, 0, ""},
                          Case{ACTIONLIST_FILLZEROS, 7, "0.0\t0.0\t0.0\t0.0\t0.0\t0.0\t0.0\t0.0\t0.0"},
                          Case{ACTIONLIST_FILLWHITE, 7, " \t \t \t \t \t \t \t \t "}}) {
        SCOPED_TRACE(c.mode);
        ActionListMode = c.mode;
        const std::vector<std::string> lines = Lines(IvFile());
        // Each header is whole (16 lines), with the column line and a blank behind it; the rows that
        // were reached, those that were not as the mode has it, and two blank lines.
        const size_t columnLine = 16, firstRow = 18, second = firstRow + 3 + c.filler + 2;
        ASSERT_EQ(lines.size(), second + firstRow + 3 + 2);
        for (size_t k : {size_t{0}, second}) {
            EXPECT_EQ(lines[k], "TERVO test banner");
            EXPECT_EQ(lines[k + 2], "Single shot simulation #\t" + std::string(k ? "3" : "1"));
            EXPECT_EQ(lines[k + columnLine].substr(0, 8), "    v(V)");
            EXPECT_EQ(lines[k + firstRow + 2].substr(0, 11), "   0.200000");
        }
        EXPECT_EQ(lines[second - 2] + lines[second - 1] + lines[lines.size() - 2] + lines.back(), "");
        for (size_t i = 0; i < c.filler; ++i) EXPECT_EQ(lines[firstRow + 3 + i], c.row);
    }
}

TEST_F(ResultFiles, EmptyListsAndMissingStatesAreReportedAndWriteNothing) {
    TextFile f = OpenFile(dir / "empty.iv", FileMode::Write);
    EXPECT_EQ(iv_naar_file(OUTPUT_TO_OPEN_FILE, &f), -1);
    Simulation(1).actie.IV.calculate = 0; // a list without I-V or C-V curves has nothing either
    EXPECT_EQ(iv_naar_file(OUTPUT_TO_OPEN_FILE, &f), -1);
    const auto state = std::make_unique<CalculationVariables>();
    EXPECT_EQ(eb_naar_file(OUTPUT_TO_OPEN_FILE, &f, *state), -1);
    std::string text = "kept";
    EXPECT_EQ(ComposeOutputHeader(text, nullptr, HEADER_IV, 1, 0), -1);
    EXPECT_EQ(text, "kept");
    CloseFile(f);
    EXPECT_EQ(ReadAll(dir / "empty.iv"), "");
    std::string all;
    for (const auto& m : ReportedMessages()) all += m.title + "|" + m.text + "\n";
    const std::string iv =
        "Function Save or Show|No IV-calculation is made yet: nothing to save or to show !\n";
    EXPECT_EQ(
        all,
        iv + iv +
            "Function Save or Show Energy Bands|No calculation is made yet: nothing to save or to show !\n"
            "Function WriteOutputHeader():|No simulation list was found!\n");

    // Saving to a path adds the extension; a path that cannot be written is reported.
    ClearReportedMessages();
    FillCurve(Simulation(2), 2, 2);
    EXPECT_EQ(SaveResultFile(RESULT_IV, dir / "saved"), 0);
    EXPECT_EQ(Lines(ReadAll(dir / "saved.iv")).at(0), "TERVO test banner");
    EXPECT_EQ(SaveResultFile(RESULT_IV, dir / "no such folder/x.iv"), -1);
    EXPECT_EQ(ReportedMessages().size(), 1u);
}

TEST_F(ResultFiles, QeFileHasABlockPerQeSimulationAndCutCurvesFollowTheMode) {
    EXPECT_EQ(qe_naar_file(OUTPUT_TO_SCREEN, nullptr), -1);
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].text, "No QE calculation is made yet: nothing to save or to show !");

    FillCurve(Simulation(1), 2, 2); // an I-V simulation has no block here
    for (const int number : {2, 3}) {
        DataListElement& e = Simulation(number);
        e.actie.IV.calculate = 0;
        e.actie.QE.calculate = 1;
        e.actie.QE.points = 3;
        e.actie.QE.done = 2; // cut after two wavelengths
        e.qe_as = {400, 826.5, 0};
        e.qe = {99.5, 1.25e-3, 0};
        e.hv_as = {3.1, 1.5, 0};
    }
    ActionListMode = ACTIONLIST_FILLZEROS;
    EXPECT_EQ(SaveResultFile(RESULT_QE, dir / "saved"), 0);
    const std::vector<std::string> lines = Lines(ReadAll(dir / "saved.qe"));
    const size_t second = Find(lines, "Single shot simulation #\t3");
    EXPECT_EQ(Find(lines, "Single shot simulation #\t1"), lines.size());
    ASSERT_LT(second, lines.size());
    // Each block: two rows reached, the third filled, three blank lines.
    for (const size_t end : {second - 2, lines.size()}) {
        EXPECT_EQ(lines[end - 5].substr(0, 13), "   826.500000");
        EXPECT_EQ(lines[end - 4], "0.0\t0.0\t0.0");
        EXPECT_EQ(lines[end - 3] + lines[end - 2] + lines[end - 1], "");
    }
    // The screen gets the same text.
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(qe_naar_file(OUTPUT_TO_SCREEN, nullptr), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), ReadAll(dir / "saved.qe"));
}

TEST_F(ResultFiles, HeaderConventionLinesFollowTheVoltageAndCurrentReference) {
    DataListElement& e = Simulation(1);
    std::vector<std::string> h = Header(&e);
    ASSERT_EQ(h.size(), 16u); // without conventions the working point is followed by two blank lines
    EXPECT_EQ(h[12], "Workpoint bias voltage\t    0.2500\tVolt");
    EXPECT_EQ(h[14] + h[15], "");
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
            EXPECT_EQ(h[18], "");
        }
    }
    // Light from the left.
    e.wp.dark = 0;
    e.wp.side = 0;
    EXPECT_EQ(Header(&e).at(10), "Illumination from the left");
}

TEST_F(ResultFiles, HeaderOfTheWorkingPointAndOfAFreshProblem) {
    DataListElement& e = Simulation(4);
    e.wp.definitionFile = "new problem";
    const DateTime now = GetSystemDateTime();
    std::vector<std::string> h = Header(&e);
    EXPECT_EQ(h[2], "Single shot simulation #\t4");
    EXPECT_EQ(h[5], "problem definition file :\tnew problem");
    const std::string today =
        FmtStr("%s<last saved: \t%i[w2p0]-%i[w2p0]-%i[w4] at ", now.day, now.month, now.year);
    EXPECT_EQ(h[6].substr(0, today.size()), today);

    wp = WorkPoint{};
    wp.definitionFile = dir / "cell.def";
    wp.temperature = 250.5;
    wp.frequency = 12345;
    LastWorkPointSimulationDate = "9-9-2025 at 1:2:3";
    h = Header(nullptr, 1);
    EXPECT_EQ(h[1] + "|" + h[2], "Simulation of I-V curves|Workpoint calculation: \t9-9-2025 at 1:2:3");
    EXPECT_EQ(h[4], "problem definition file :\t" + (dir / "cell.def"));
    EXPECT_EQ(h[5], "last saved: \t01-02-2024 at 10:05:07");
    EXPECT_EQ(h[10] + "|" + h[12], "Temperature\t  250.50\tK|Frequency\t  1.2345e+04\tHz");
}

} // namespace
} // namespace tervo::results_test
