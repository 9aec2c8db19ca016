// What the defects show in the results: the generation-recombination and occupation files against
// Fermi-Dirac statistics and the capture-emission balance.
#include "solved_cells.h"

namespace tervo::results_test {
namespace {

// Fermi-Dirac occupation of a level at E with the Fermi level at 0 (both eV on the band scale).
double FermiDirac(double E) {
    return 1 / (1 + std::exp(E / kT));
}

class DefectResults : public ResultsTest {
protected:
    // The generation or occupation file of a state, saved as a simulation of the result list; the
    // name gets the kind's extension.
    std::vector<std::string> GenerationFile(CalculationVariables& cv, int content) {
        CopyCalculationVariables(currentCalcVars, cv);
        const ResultFileKind kind = content == GENFILE_OCCUPATION ? RESULT_OCC : RESULT_GEN;
        if (pointer_naar_huidige() == nullptr) AppendDataListElement(1, actie, wp);
        EXPECT_EQ(SaveResultFile(kind, dir / "state"), 0);
        InitialiseCalculationVariables(currentCalcVars);
        return test::FileLines(dir / (content == GENFILE_OCCUPATION ? "state.occ" : "state.gen"));
    }
};

// A silicon-like p-n junction, 1 µm of each doped 1e22 /m^3, between contacts at the flat-band work
// functions of the doping alone, with a single acceptor level in the lower half of the gap on the p
// side and a Gaussian acceptor band on the n side.
InputParameters JunctionWithAcceptors() {
    const Material si;
    InputParameters in = Stack({{si, 1e-6, 0, 1e22}, {si, 1e-6, 1e22, 0}});
    in.cellParas.leftContact.contactType = 1;
    in.cellParas.rightContact.contactType = -1;
    // Capture cross-sections of 1e-19 m^2 for both carriers.
    AddDefect(in.cellParas.layer[0], DEFECT_ACCEPTOR, 1, 1e20, 1e-19, 1e-19, {0.4, 0, 0, 0});
    AddDefect(in.cellParas.layer[1], DEFECT_ACCEPTOR, 1, 1e20, 1e-19, 1e-19, {0.7, 0, 0, 0}, 0, EDIST_GAUSS,
              0.05);
    return in;
}

// The occupation file in equilibrium: the single level on the p side and every sample of the
// Gaussian band on the n side filled by Fermi-Dirac statistics, each in its own columns.
void ExpectFermiDiracOccupation(const Table& t, const std::vector<std::vector<double>>& bands, int lastP) {
    double lowest = 1, highest = 0; // of the single level across the p layer
    for (size_t i = 0; i < t.value.size(); ++i) {
        SCOPED_TRACE(i);
        const auto& row = t.value[i];
        const double Ev = bands[i][EV];
        if (static_cast<int>(i) <= lastP) {
            EXPECT_NEAR(row[2], FermiDirac(Ev + 0.4), 1e-6);
            EXPECT_NEAR(row[3], 1 - FermiDirac(Ev + 0.4), 1e-6);
            lowest = std::min(lowest, row[2]);
            highest = std::max(highest, row[2]);
            for (size_t c = 4; c < t.titles.size(); ++c) EXPECT_EQ(t.text[i][c], "");
        } else {
            EXPECT_EQ(t.text[i][2] + t.text[i][3], "");
            // Seven samples over six widths around the centre: one width apart.
            for (int m = 0; m < 7; ++m)
                EXPECT_NEAR(row[4 + 2 * At(m)], FermiDirac(Ev + 0.7 + (m - 3) * 0.05), 1e-6)
                    << "sample " << m;
        }
    }
    // The level runs through the Fermi level in the depletion region.
    EXPECT_LT(lowest, 0.01);
    EXPECT_GT(highest, 0.99);
}

TEST_F(DefectResults,
       OccupationFollowsFermiDiracInEquilibriumAndCaptureAndEmissionMakeTheShockleyReadHallRate) {
    const double vth = 1e5; // m/s
    for (const double V : {0.0, 0.4}) {
        SCOPED_TRACE(V);
        wis_alles();
        const auto d = Solve(JunctionWithAcceptors(), V);
        const auto bands = WriteBandFile(*d->cv).rows;
        const std::vector<std::string> occ = GenerationFile(*d->cv, GENFILE_OCCUPATION);
        // The legend of eleven lines names the distributions that are not single levels; the table follows.
        const size_t legend = Find(occ, "Legend:");
        ASSERT_LT(legend + 11, occ.size());
        EXPECT_EQ(occ[legend + 9] + "|" + occ[legend + 10], "layer 2, defect 1: gauss|");
        const Table f = ReadTable(occ, legend + 11);
        ASSERT_EQ(f.titles.size(), 2u + 2u * 8u); // index, x, and a pair for the level and each sample
        EXPECT_EQ(f.titles[1] + "|" + f.titles[2] + "|" + f.titles[3] + "|" + f.titles[4] + "|" +
                      f.titles[17],
                  "x (µm)|f_t(electrons)1,1,1,1 {0/-}|f_t(holes)1,1,1,1 {0/-}|f_t(electrons)2,1,1,1 {0/-}|"
                  "f_t(holes)2,1,1,7 {0/-}");
        ASSERT_EQ(f.value.size(), bands.size());
        if (V == 0) ExpectFermiDiracOccupation(f, bands, d->cv->mesh.last_point[0]);
        const std::vector<std::string> lines = GenerationFile(*d->cv, GENFILE_GENERATION);
        // A legend of fifteen lines, then x, G, the total and the three kinds of recombination, and
        // eight terms per level.
        const Table t = ReadTable(lines, Find(lines, "Legend:") + 15);
        ASSERT_EQ(t.titles.size(), 6u + 16u);
        EXPECT_EQ(t.titles[6] + "|" + t.titles[21], "net Gn1,1,1 (#/cm3.s)|Rpth2,1,1 (#/cm3.s)");
        ASSERT_EQ(t.value.size(), bands.size());

        double peak = 0;
        for (const auto& row : t.value) peak = std::max(peak, std::fabs(row[3]));
        ASSERT_GE(peak, V > 0 ? 1e15 : 0.0);
        for (size_t i = 0; i < t.value.size(); ++i) {
            SCOPED_TRACE(i);
            const auto& row = t.value[i];
            const bool pSide = static_cast<int>(i) <= d->cv->mesh.last_point[0];
            const size_t own = pSide ? 6 : 14, other = pSide ? 14 : 6;
            for (size_t c = 0; c < 8; ++c) EXPECT_EQ(t.text[i][other + c], "");
            // Electrons and holes recombine through the level in pairs, at the SRH rate of the cell;
            // the net terms are differences of capture and emission, which agree to their digits in
            // equilibrium.
            const double tolerance = 1e-6 * peak + 1e-8 * (row[own + 3] + row[own + 7]);
            EXPECT_NEAR(-row[own], row[3], tolerance);
            EXPECT_NEAR(row[own + 4], row[own], tolerance);
            EXPECT_NEAR(row[2], row[3], tolerance) << "only defects recombine";
            if (V == 0) {
                // Detailed balance: every capture is matched by its emission.
                EXPECT_GT(row[own + 3], 0.0);
                EXPECT_NEAR(row[own + 2] / row[own + 3], 1.0, 1e-6);
                EXPECT_NEAR(row[own + 6] / row[own + 7], 1.0, 1e-6);
            }
            // Capture of electrons: sigma vth n (1 - f) Nt, from the band file's density and the
            // occupation file's empty share of the level.
            if (!pSide) continue;
            EXPECT_NEAR(row[own + 3] / (1e-19 * vth * bands[i][N_] * 1e6 * f.value[i][3] * 1e14), 1.0, 1e-5);
        }
    }
}

} // namespace
} // namespace tervo::results_test
