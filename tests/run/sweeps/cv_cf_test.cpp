// The C-V and C-f sweeps on a whole junction, the Mott-Schottky analysis, and the layouts that the
// shipped examples do not write: the .ac file and the C-V file of a cut curve.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/format.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "run/results/ac_result_files.h"
#include "run/results/result_files.h"
#include "run/results/result_list.h"
#include "run/run_cells.h"
#include "run/sweeps/cf_sweep.h"
#include "run/sweeps/cv_sweep.h"
#include "run/sweeps/operating_points.h"
#include "run/sweeps/small_signal_current.h"
#include "support/temp_folder.h"

namespace tervo {
namespace {

using namespace run_test;

class Sweeps : public ::testing::Test {
protected:
    test::TempFolder dir;
    Keep<WorkPoint> keepWp{wp};
    Keep<CellDefinition> keepCell{zonnecel};
    Keep<MottSchottkySettings> keepNW{NW};
    void SetUp() override {
        zonnecel.signV = zonnecel.signJ = 1;
        ActionListMode = ACTIONLIST_TRUNCATE;
        wp.RsPresent = wp.RshPresent = 0;
        NW = MottSchottkySettings{};
        NW.epsilon = 11.9;
        wis_alles();
        ClearReportedMessages();
    }
    void TearDown() override { wis_alles(); }
    // A p/n+ junction, the p side (1e16 /cm3, 1 µm) on the left, the n+ side (1e18 /cm3, 0.2 µm) on
    // the right, solved at V.
    std::unique_ptr<Device> Junction(double V) {
        InputParameters in = Stack({{Material{}, 1.0e-6, 0, 1e22}, {Material{}, 0.2e-6, 1e24, 0}});
        in.convergence.termination_psi = in.convergence.termination_Fn = in.convergence.termination_Fp =
            1e-10;
        auto d = Build(in);
        equilibrium(*d->cv);
        EXPECT_EQ(onder_belichting(*d->cv), 0);
        WalkTo(*d->cv, V);
        return d;
    }
    // A C-V request from `mode` on a new list element, with the frequency of the working point.
    const DataListElement& CV(CalculationVariables& cv, Actie& a, double start, double stop, int points,
                              int mode = SWEEP_FROM_START) {
        a.CV = {1, start, stop, points, 0};
        AppendDataListElement(1, a, wp);
        EXPECT_EQ(calccv(cv, a, mode), 1);
        return *pointer_naar_huidige();
    }
    std::vector<std::string> Written(const std::function<int(int, TextFile*)>& writer) {
        TextFile f = OpenFile(dir / "out.txt", FileMode::Write);
        EXPECT_EQ(writer(OUTPUT_TO_OPEN_FILE, &f), 0);
        CloseFile(f);
        return FileLines(dir / "out.txt");
    }
};

// The indices of the lines that begin with `head`.
std::vector<size_t> Starting(const std::vector<std::string>& lines, const std::string& head) {
    std::vector<size_t> found;
    for (size_t k = 0; k < lines.size(); ++k)
        if (lines[k].rfind(head, 0) == 0) found.push_back(k);
    return found;
}

TEST(CfPoints, ANegativeConductanceIsStoredAsTheFloorAndTheImpedanceKeepsTheTrueValue) {
    const double w = 2 * M_PI * 1e3;
    const CfPoint p = MakeCfPoint(-1e-3, w * 1e-3, w);
    EXPECT_EQ(p.G, 1e-12);
    EXPECT_LT(p.Zre, 0.0);
}

TEST(MergeIVAndCV, KeepsOnePointPerVoltageWithTheIVPointWinningATie) {
    // The sources (1 I-V, 2 C-V) and indices of the merged points.
    auto merge = [](const std::vector<double>& iv, const std::vector<double>& cv) {
        int m = 0;
        std::vector<int> index, source;
        merge_IV_and_CV(static_cast<int>(iv.size()), iv.empty() ? nullptr : iv.data(),
                        static_cast<int>(cv.size()), cv.data(), m, index, source);
        source.resize(At(m));
        index.resize(At(m));
        return std::pair(source, index);
    };
    using V = std::vector<int>;
    // Without an I-V curve: the C-V points in their own order.
    EXPECT_EQ(merge({}, {0.3, 0.1, 0.2}), std::pair(V{2, 2, 2}, V{0, 1, 2}));
    // The same voltages: every merged point comes from I-V.
    EXPECT_EQ(merge({0, 0.1, 0.2}, {0.2, 0.1, 0}), std::pair(V{1, 1, 1}, V{0, 1, 2}));
    // A C-V point 5e-6 V beside an I-V point is dropped; one in between and one beyond are kept.
    EXPECT_EQ(merge({0, 0.1, 0.2}, {0.1 + 5e-6, 0.05, 0.3}), std::pair(V{1, 2, 1, 1, 2}, V{0, 1, 1, 2, 2}));
}

TEST(MottSchottky, ApparentDopingOfAnIdealOneSidedJunctionAndNoneWithoutAWindow) {
    // 1/C^2 = 2 (Vbi - V) / (q eps eps0 N), N = 1e22 /m3: the analysis gives 1e16 /cm3 everywhere.
    const double eps = 11.9, N = 1e22, Vbi = 0.8;
    std::vector<double> V, C;
    for (int i = 0; i < 6; ++i) {
        V.push_back(-1.0 + 0.1 * i);
        C.push_back(std::sqrt(1.602e-19 * eps * 8.854e-12 * N / (2 * (Vbi - V.back()))));
    }
    MottSchottkySettings nw;
    nw.epsilon = eps;
    std::vector<double> W(6), Napp(6);
    MottSchottkyAnalysis(V.data(), C.data(), 6, nw, W.data(), Napp.data());
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(Napp[i] / 1e16, 1.0, 1e-6) << i;
        EXPECT_NEAR(W[i], eps * 8.854e-12 / C[i] * 1e6, 1e-9);
    }
    // fitPoints not below the number of points: nothing is computed.
    nw.fitPoints = 6;
    MottSchottkyAnalysis(V.data(), C.data(), 6, nw, W.data(), Napp.data());
    EXPECT_EQ(std::tuple(W[0], Napp[3]), std::tuple(0.0, 0.0));
}

TEST_F(Sweeps, CvGivesTheDopingAndMergesIntoTheIVCurveCfTheSmallSignalSolveAndBothStopAtAFailedState) {
    auto d = Junction(-1.0);
    CalculationVariables& cv = *d->cv;
    wp.frequency = 1e4;
    Actie a;
    const DataListElement& e = CV(cv, a, -1.0, -0.5, 11);
    // C-V without an I-V curve: the element has an I-V curve of the same points.
    ASSERT_EQ(std::tuple(CVConvergenceFailure, a.CV.done, e.cvN.size(), e.actie.IV.done, e.iv_as.size()),
              std::tuple(0, 11, 11u, 11, 11u));
    EXPECT_EQ(statusLine.text, "Calculating C(V) at 1.00e+04 Hz from -1.000 V to -0.500 V: V = -0.500 Volt");
    // The apparent doping is that of the lightly doped p side, 1e16 /cm3.
    for (size_t k = 0; k < 11; ++k) {
        EXPECT_NEAR(e.cvN[k] / 1e16, 1.0, 0.03) << "V = " << e.cv_as[k];
        EXPECT_NEAR(e.iv_as[k], e.cv_as[k], 1e-12);
    }
    EXPECT_LT(e.ivcurrent[0], 0.0) << "a reverse-biased diode draws a small negative current";

    // C-f at the last C-V point, -0.5 V, with falling frequencies.
    a.Cf = {1, 1e6, 1e2, 5, 0};
    AppendDataListElement(1, a, wp);
    // The last C-V point solved once more: the conductance of the reverse-biased junction is tiny and
    // rests on the last digits of the state, which a single step of the sweep leaves less settled.
    ASSERT_EQ(onder_belichting(cv), 0);
    ASSERT_EQ(calccf(cv, a), 1);
    EXPECT_EQ(std::tuple(CfConvergenceFailure, a.Cf.done), std::tuple(0, 5));
    // The status line follows the sweep to its last frequency.
    EXPECT_EQ(statusLine.text, "Calculating C(f) at " + FmtStr("%s<%f[p3]", wp.voltage) +
                                   " V from 1.00e+06 Hz to 1.00e+02 Hz: f = 1.00e+02 Hz");
    const DataListElement& f = *pointer_naar_huidige();
    ASSERT_EQ(f.cf_as.size(), 5u);
    // Logarithmic steps from start to stop, here downwards.  Without traps the depletion capacitance
    // does not depend on the frequency: eps/W, about 25 nF/cm2.
    for (size_t k = 0; k < 5; ++k) {
        EXPECT_NEAR(f.cf_as[k], std::pow(10.0, 6 - static_cast<double>(k)), 1e-12 * f.cf_as[k]);
        EXPECT_NEAR(f.cfcap[k] / f.cfcap[0], 1.0, 1e-3) << k;
        EXPECT_TRUE(f.cfcap[k] > 20 && f.cfcap[k] < 30) << f.cfcap[k];
    }
    // The .ac file of the last solve (100 Hz): bias and frequency above the profiles, one row a mesh
    // point.
    const std::vector<std::string> ac =
        Written([&](int m, TextFile* file) { return ac_naar_file(m, file, cv); });
    const size_t top = Starting(ac, "i\tx (µm)").at(0);
    EXPECT_NEAR(std::stod(ac[top - 5].substr(35)), -0.5, 1e-9);
    EXPECT_NEAR(std::stod(ac[top - 4].substr(32)), 1e2, 1e-6);
    const int n = cv.mesh.n_points;
    ASSERT_EQ(ac.size(), top + 2 + static_cast<size_t>(n));
    for (const size_t i : {size_t{0}, At(n - 1)}) {
        const std::vector<std::string> cells = Cells(ac[top + 2 + i]);
        ASSERT_EQ(cells.size(), 16u);
        EXPECT_NEAR(std::stod(cells[8]), del_j_tot_re[i] * 0.1, 1e-6 * std::fabs(del_j_tot_re[i] * 0.1));
        EXPECT_NEAR(std::stod(cells[9]), del_j_tot_im[i] * 0.1, 1e-6 * std::fabs(del_j_tot_im[i] * 0.1));
    }

    // Shunt over the cell, series resistance outside both: the admittance of the cell alone at
    // 1 MHz, G + i w C, in S/m2.  At the lower frequencies the conductance of this junction lies
    // below the floor of 1e-12 S/cm2 of the files or is rounding of either sign, so that the value
    // kept is not the one the small-signal solve gave.
    const double w6 = 2 * M_PI * 1e6;
    ASSERT_GT(f.cfcon[0], 1e-9);
    const std::complex<double> y(f.cfcon[0] * 1e4, w6 * f.cfcap[0] * 1e-5);
    wp.RshPresent = wp.RsPresent = 1;
    wp.Gsh = 50;  // S/m2
    wp.Rs = 2e-4; // ohm m2
    ASSERT_EQ(calccf(cv, a), 1);
    const DataListElement& e2 = *pointer_naar_huidige();
    const std::complex<double> Y = 1.0 / (2e-4 + 1.0 / (y + 50.0));
    EXPECT_NEAR(e2.cfcap[0], Y.imag() / w6 * 1e5, 1e-9 * e2.cfcap[0]);
    EXPECT_NEAR(e2.cfcon[0], Y.real() * 1e-4, 1e-9 * e2.cfcon[0]);
    EXPECT_NEAR(e2.cfZre[0], (1.0 / Y).real() * 1e4, 1e-9 * e2.cfZre[0]);
    wp.RshPresent = wp.RsPresent = 0;

    // A state that fails from the next step on: C-f refuses it, C-V keeps the points before the cut.
    WalkTo(cv, -1.0);
    cv.iteration_count = -1;
    const DataListElement& cf = AppendDataListElement(1, a, wp);
    EXPECT_EQ(calccf(cv, a), 0);
    EXPECT_EQ(std::tuple(CfConvergenceFailure, a.Cf.done, cf.cf_as.size()), std::tuple(1, 0, 0u));
    wp.frequency = 1e4;
    ClearReportedMessages();
    const DataListElement& cut = CV(cv, a, -1.0, -0.6, 5);
    // Only the point that was solved is stored, in the C-V curve and in the merged I-V curve; the
    // points behind the cut are never written as numbers.
    ASSERT_EQ(std::tuple(CVConvergenceFailure, a.CV.done, cut.actie.CV.points, cut.actie.CV.done,
                         cut.actie.IV.done, cut.cv_as.size()),
              std::tuple(1, 1, 5, 1, 1, 1u));
    EXPECT_NEAR(cut.cv_as[0], -1.0, 1e-12);
    EXPECT_GT(cut.cvcap[0], 0.0);
    ExpectOneMessage("While calculating C(V)...",
                     "Convergence failure at V = -0.900000 Volt\nC(V) calculation cut at V = -1.000000 Volt");
    // Too few points for the Mott-Schottky analysis: the file has the plain columns and the one row.
    const std::vector<std::string> lines = Written(cv_naar_file);
    const std::vector<size_t> head = Starting(lines, "    v(V)\t   C(nF/cm2)\t    G(S/cm2)\t  jtot");
    ASSERT_EQ(head.size(), 1u);
    EXPECT_EQ(std::tuple(lines[head[0] + 2].substr(0, 13), lines[head[0] + 3]),
              std::tuple("    -1.000000", ""));
}

} // namespace
} // namespace tervo
