// The C-V file after an I-V sweep of the same simulation: each row carries the currents of its own
// voltage, in the mA/cm2 of the column titles.
#include "run/results/ac_result_files.h"

#include "platform/files.h"
#include "solved_cells.h"

namespace tervo::results_test {
namespace {

class CvFile : public ResultsTest {};

TEST_F(CvFile, EachRowCarriesTheCurrentsOfItsOwnVoltage) {
    // The I-V sweep ran from -0.2 V; the C-V points at 0.0 and 0.2 V were merged into its curve, which
    // holds them at indices 2 and 4.  The current is 100 mA/cm2 per volt, the bulk loss 50 A/m2 per
    // volt, stored in A/m2 like that of the I-V curve and written in mA/cm2.
    Actie a;
    a.IV.calculate = a.CV.calculate = 1;
    DataListElement& e = AppendDataListElement(1, a, WorkPoint{});
    e.actie.IV.points = e.actie.IV.done = 5;
    e.iv_as = {-0.2, -0.1, 0.0, 0.1, 0.2};
    e.ivcurrent = {-20, -10, 0, 10, 20};
    e.ivbulk = {-10, -5, 0, 5, 10};
    for (auto* c : {&e.ivifr, &e.ivleftcontact, &e.ivrightcontact}) c->assign(5, 0.0);
    e.actie.CV.points = e.actie.CV.done = 2;
    e.cv_as = {0.0, 0.2};
    e.cvcap = {1e-7, 2e-7};
    e.cvcon = {1e-3, 2e-3};
    TextFile f = OpenFile(dir / "out.cv", FileMode::Write);
    ASSERT_EQ(cv_naar_file(OUTPUT_TO_OPEN_FILE, &f), 0);
    CloseFile(f);
    const std::vector<std::string> lines = test::FileLines(dir / "out.cv");
    // The rows follow the column titles and a blank line.
    const size_t title =
        Find(lines, "    v(V)\t   C(nF/cm2)\t    G(S/cm2)\t  jtot(mA/cm2)\t   jbulk(mA/cm2)\t    "
                    "jifr(mA/cm2)\t  jminor_left(mA/cm2)\t  jminor_right(mA/cm2)");
    ASSERT_LE(title + 4, lines.size());
    for (size_t k = 0; k < 2; ++k) {
        const std::vector<std::string> cells = Cells(lines[title + 2 + k]);
        ASSERT_EQ(cells.size(), 8u) << lines[title + 2 + k];
        const double v = std::stod(cells[0]);
        EXPECT_DOUBLE_EQ(v, e.cv_as[k]);
        EXPECT_NEAR(std::stod(cells[3]), 100 * v, 1e-9) << "jtot at " << v << " V";
        EXPECT_NEAR(std::stod(cells[4]), 0.1 * 50 * v, 1e-9) << "jbulk at " << v << " V";
    }
}

} // namespace
} // namespace tervo::results_test
