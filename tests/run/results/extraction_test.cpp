// The band-diagram file of solved cells against the physics of the state: band gap, Boltzmann
// densities from the bands and quasi-Fermi levels, the law of mass action, the field as the slope of
// the bands, radiative recombination from the densities, and the integrals of generation and of the
// recombination in the bulk and at an interface against the terminal current.
#include "solved_cells.h"

namespace tervo::results_test {
namespace {

// A p-n homojunction of 1 µm + 1 µm (p on the left unless `nLeft`), silicon-like and doped 1e23 /m^3,
// between contacts at the flat-band work functions.
InputParameters MakeCell(double Krad = 0, bool nLeft = false) {
    Material si;
    si.Krad = Krad;
    const double N = 1e23;
    const Slab p{si, 1e-6, 0, N}, n{si, 1e-6, N, 0};
    InputParameters in = nLeft ? Stack({n, p}, 1e7) : Stack({p, n}, 1e7);
    in.cellParas.leftContact.contactType = nLeft ? -1 : 1;
    in.cellParas.rightContact.contactType = nLeft ? 1 : -1;
    return in;
}

using BandFile = ResultsTest;

TEST_F(BandFile, EquilibriumJunctionGapMassActionFieldAsSlopeAndCumulativeGeneration) {
    const auto d = Solve(MakeCell(), 0);
    const Material si;
    const MeshBlock& mesh = d->cv->mesh;
    EbFile eb = WriteBandFile(*d->cv);
    ASSERT_EQ(eb.rows.size(), static_cast<size_t>(mesh.n_points));
    const auto& r = eb.rows;
    double peak = 0;
    for (size_t i = 0; i < r.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_NEAR(r[i][EC] - r[i][EV], si.Eg, 2e-8);
        EXPECT_EQ(r[i][FN], 0.0);
        EXPECT_EQ(r[i][FP], 0.0);
        EXPECT_NEAR(r[i][N_] * r[i][P_] / (si.ni2() * 1e-12), 1.0, 1e-6);
        EXPECT_LT(std::fabs(r[i][JTOT]), 1e-12);
        peak = std::max(peak, std::fabs(r[i][E]));
    }

    // The field: Ec in eV over x in cm is the field in V/cm (E = -dphi/dx, Ec = -q phi + const).
    ASSERT_GT(peak, 1e4);
    for (size_t j = 0; j < 2; ++j) {
        const size_t first = static_cast<size_t>(mesh.first_point[j]),
                     last = static_cast<size_t>(mesh.last_point[j]);
        for (size_t i = first + 1; i < last; ++i)
            EXPECT_NEAR(r[i][E], (r[i + 1][EC] - r[i - 1][EC]) / ((r[i + 1][X] - r[i - 1][X]) * 1e-4),
                        0.01 * peak)
                << "point " << i;
        // The one-sided values at the ends of a layer join their neighbours inside it.
        EXPECT_NEAR(r[first][E], r[first + 1][E], 0.02 * peak);
        EXPECT_NEAR(r[last][E], r[last - 1][E], 0.02 * peak);
    }
    // The junction field points from the n side to the p side: towards the left contact.
    EXPECT_LT(r[static_cast<size_t>(mesh.last_point[0])][E], -0.9 * peak);

    // A uniform 1e21 /cm3/s set on the state: 2 µm of it make q G d = 32.04 mA/cm2, gathered from the
    // illuminated side.
    const double Gcm = 1e21, total = q * Gcm * 2e-4 * 1e3;
    const ScaleParameters& s = d->P->scale;
    for (size_t j = 0; j < 2; ++j)
        for (int k = mesh.first_point[j]; k <= mesh.last_point[j]; ++k)
            d->light->G[At(k)] = Gcm * 1e6 * s.length * s.length / (s.density[j] * s.diffusion);
    for (const int side : {-1, 1}) {
        SCOPED_TRACE(side);
        d->light->side = side;
        eb = WriteBandFile(*d->cv);
        const size_t n = eb.rows.size(), middle = static_cast<size_t>(mesh.last_point[0]);
        EXPECT_NEAR(eb.rows[side == -1 ? n - 1 : 0][GC] / total, 1.0, 1e-6);
        EXPECT_LT(eb.rows[side == -1 ? 0 : n - 1][GC], 1e-3 * total);
        EXPECT_NEAR(eb.rows[middle][GC] / total, 0.5, 0.01);
    }
}

// A junction with radiative recombination in the bulk and a mid-gap level at the interface, in forward
// bias either way round: with n on the left the forward current is negative.
TEST_F(BandFile, UnderForwardBiasDensitiesFollowTheQuasiFermiLevelsAndTheLossesMakeTheCurrent) {
    const double Krad = 1e-14; // m^3/s
    const Material si;
    for (const bool nLeft : {false, true}) {
        SCOPED_TRACE(nLeft ? "n on the left" : "p on the left");
        InputParameters in = MakeCell(Krad, nLeft);
        AddInterfaceDefect(in, DEFECT_NEUTRAL, 1e13, si.Eg / 2);
        const double V = nLeft ? -0.4 : 0.4, sign = nLeft ? -1 : 1;
        const auto d = Solve(in, V);
        const EbFile eb = WriteBandFile(*d->cv);
        const auto& r = eb.rows;
        const size_t n = r.size(), nEnd = nLeft ? 0 : n - 1, pEnd = nLeft ? n - 1 : 0;
        EXPECT_NEAR(r[nEnd][FN] - r[pEnd][FP], 0.4, 1e-6);
        double bulk = 0; // recombination current of the bulk, mA/cm2
        size_t junction = 0;
        for (size_t i = 0; i < n; ++i) {
            SCOPED_TRACE(i);
            EXPECT_NEAR(r[i][N_] / (si.Nc * 1e-6 * std::exp((r[i][FN] - r[i][EC]) / kT)), 1.0, 1e-6);
            EXPECT_NEAR(r[i][P_] / (si.Nv * 1e-6 * std::exp((r[i][EV] - r[i][FP]) / kT)), 1.0, 1e-6);
            EXPECT_NEAR(r[i][JN] + r[i][JP] + r[i][JNT] + r[i][JPT], r[i][JTOT],
                        1e-7 * std::fabs(r[i][JTOT]));
            if (i > 0) bulk += 0.5 * (r[i][R] + r[i - 1][R]) * (r[i][X] - r[i - 1][X]) * 1e-4 * q * 1e3;
            if (i > 0 && r[i][X] == r[i - 1][X]) junction = i; // the double point of the interface
            // Radiative recombination B (np - ni^2), B in cm3/s, inside the layers.
            const double np = r[i][N_] * r[i][P_];
            if (i == 0 || i == n - 1 || std::fabs(r[i][X] - 1.0) < 1e-9) continue;
            EXPECT_NEAR(r[i][R], Krad * 1e6 * (np - si.ni2() * 1e-12), 1e-6 * Krad * 1e6 * np);
        }
        // The current is what recombines: in the bulk, at the interface, and the minority carriers
        // taken by the contacts (electrons at the p-type one, holes at the n-type one).
        const double J = d->cv->J_median, js = std::stod(Cells(eb.interfaceLines.at(4)).at(10));
        ASSERT_GT(sign * J, 0);
        ASSERT_GT(bulk, 0.1 * sign * J);
        ASSERT_GT(js, 0.05 * sign * J);
        EXPECT_NEAR((sign * (bulk + js) + r[pEnd][JN] + r[nEnd][JP]) / J, 1.0, 0.01);
        // The cumulative recombination, from either side, grows by every loss and ends at the current;
        // the interface adds its own at the double point.
        EXPECT_NEAR(r[n - 1][RLR] / J, 1.0, 0.01);
        EXPECT_NEAR(r[0][RRL] / J, 1.0, 0.01);
        for (size_t i = 1; i < n; ++i) {
            EXPECT_GE(r[i][RLR] / J, r[i - 1][RLR] / J - 1e-9) << "point " << i;
            EXPECT_LE(r[i][RRL] / J, r[i - 1][RRL] / J + 1e-9) << "point " << i;
        }
        ASSERT_GT(junction, 0u);
        EXPECT_NEAR(sign * (r[junction][RLR] - r[junction - 1][RLR]), js, 0.02 * js);
        EXPECT_NEAR(sign * (r[junction - 1][RRL] - r[junction][RRL]), js, 0.02 * js);
    }
}

} // namespace
} // namespace tervo::results_test
