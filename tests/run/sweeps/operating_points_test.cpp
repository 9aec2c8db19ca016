// Operating points of whole p-n junctions against the physics of the junction: the equilibrium band
// bending and field, the dark current of a short-base diode with recombination at the contacts only,
// the radiative dark current of a thick junction; the voltage walk at its limits and the first point
// of a sweep.  (Reverse bias to -1 V and the sign of the reverse current are run by the C-V tests.)  Expected
// values come from the textbook formulas with the constants of the program.
#include "run/sweeps/operating_points.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <tuple>

#include "cell/working_settings.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/run_cells.h"
#include "solver/gummel.h"

namespace tervo {
namespace {

using namespace run_test;
constexpr double eps0 = 8.854e-12;

// Silicon-like, 1 µm of each side at 1e17 /cm3; minority carriers taken at the contacts at Smin.
struct Junction {
    Material m;
    double Na = 1e23, Nd = 1e23, dp = 1e-6, dn = 1e-6, Smin = 1e7;
};

InputParameters Cell(const Junction& j) {
    return PN(j.m, j.dp, j.Na, j.dn, j.Nd, j.Smin);
}

std::unique_ptr<Device> AtEquilibrium(const InputParameters& in) {
    auto d = Build(in);
    equilibrium(*d->cv);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    return d;
}

// The dark current (mA/cm2) after a walk from the present state to V.
double CurrentAt(CalculationVariables& cv, double V) {
    WalkTo(cv, V);
    extraheer_stroom(cv, 0);
    return cv.J_median;
}

// Potential in volt of a point, the left contact at 0.
double Potential(const CalculationVariables& cv, int i) {
    return cv.psi[At(i)] * kT;
}

// Field in V/m at the last point of layer j from the three points at that end (one-sided, second
// order, unequal steps), the way the field of the result files is formed.
double FieldAtLastPoint(const CalculationVariables& cv, int layer) {
    const int i = cv.mesh.last_point[At(layer)];
    const double h1 = cv.mesh.x_m[At(i - 1)] - cv.mesh.x_m[At(i - 2)],
                 h2 = cv.mesh.x_m[At(i)] - cv.mesh.x_m[At(i - 1)];
    return -(Potential(cv, i - 2) * h2 / (h1 * (h1 + h2)) - Potential(cv, i - 1) * (h1 + h2) / (h1 * h2) +
             Potential(cv, i) * (2 * h2 + h1) / (h2 * (h1 + h2)));
}

int Nearest(const CalculationVariables& cv, double x) {
    int best = 0;
    for (int i = 0; i < cv.mesh.n_points; ++i)
        if (std::fabs(cv.mesh.x_m[At(i)] - x) < std::fabs(cv.mesh.x_m[At(best)] - x)) best = i;
    return best;
}

TEST(Equilibrium, BuiltInPotentialPoissonPeakFieldFlatFermiLevelsAndAWalkThatEndsAtTheFirstFailedStep) {
    const Junction j;
    const auto d = AtEquilibrium(Cell(j));
    CalculationVariables& cv = *d->cv;
    ASSERT_EQ(EquilibriumConvergenceFailure, 0);
    // Band bending between the middles of the two layers, far from the depletion region (about
    // 0.1 µm) and from the contacts.
    const double ni2 = j.m.ni2();
    const double Vbi = kT * std::log(j.Na * j.Nd / ni2);
    const double bulkP = Potential(cv, Nearest(cv, j.dp / 2));
    EXPECT_NEAR(Potential(cv, Nearest(cv, j.dp + j.dn / 2)) - bulkP, Vbi, 1e-3);

    // Peak field at the junction from the first integral of Poisson's equation in Boltzmann
    // statistics.  With phi the potential (in kT/q) relative to the neutral bulk of one side, p0 and
    // n0 the bulk densities of that side:
    //   E^2 = (2 kT q / (eps eps0)) [p0 (exp(-phi) + phi - 1) + n0 (exp(phi) - phi - 1)]   (kT in V).
    // The junction potential phi_j is where the two sides give the same field (no interface charge,
    // one permittivity); on the n side phi_n = phi_j - Vbi/kT.
    const double pP = Majority(j.Na, ni2), nP = ni2 / pP, nN = Majority(j.Nd, ni2), pN = ni2 / nN;
    const double vbi = std::log(pP * nN / ni2);
    auto g = [](double p0, double n0, double phi) {
        return p0 * (std::exp(-phi) + phi - 1) + n0 * (std::exp(phi) - phi - 1);
    };
    double lo = 0, hi = vbi;
    for (int k = 0; k < 200; ++k) {
        const double mid = (lo + hi) / 2;
        (g(pP, nP, mid) < g(pN, nN, mid - vbi) ? lo : hi) = mid;
    }
    const double phiJ = (lo + hi) / 2;
    const double Epeak = std::sqrt(2 * kT * q / (j.m.eps * eps0) * g(pP, nP, phiJ));
    // The field points from n to p, that is to the left: negative.
    EXPECT_NEAR(FieldAtLastPoint(cv, 0) / -Epeak, 1.0, 0.01) << "peak field " << Epeak << " V/m";
    EXPECT_NEAR(Potential(cv, cv.mesh.last_point[0]) - bulkP, phiJ * kT, 1e-3);

    // Both quasi-Fermi levels at the level of the left contact, with no current, when the full
    // system is solved at V = 0.
    ASSERT_EQ(onder_belichting(cv), 0);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    for (int i = 0; i < cv.mesh.n_points; ++i)
        ASSERT_LT(std::max(std::fabs(cv.EFn[At(i)]), std::fabs(cv.EFp[At(i)])), 1e-6) << i;
    extraheer_stroom(cv, 0);
    EXPECT_LT(std::fabs(cv.J_median), 1e-12);

    // Steps below a nanovolt and failed states are not walked.
    const auto before = std::make_unique<CalculationVariables>(cv);
    volgende_iv_punt(cv, 0.0, 1e-10, 2); // below a nanovolt: no step
    EXPECT_EQ(std::tuple(CONVERGENTIEFALING, cv.V_applied, cv.iteration_count),
              std::tuple(0, 0.0, before->iteration_count));
    EXPECT_EQ(cv.psi, before->psi);
    cv.iteration_count = -1; // a failed state is not solved again
    EXPECT_EQ(onder_belichting(cv), -1);
    EXPECT_EQ(CONVERGENTIEFALING, 1);

    // One outer pass is never enough for a new voltage: the walk ends at the first failed step.
    InputParameters in = Cell({});
    in.convergence.maxiter = 1;
    const auto one = AtEquilibrium(in);
    volgende_iv_punt(*one->cv, 0.0, 0.4, 3);
    EXPECT_EQ(std::tuple(CONVERGENTIEFALING, one->cv->iteration_count), std::tuple(1, -1));
    EXPECT_NEAR(one->cv->V_applied, 0.2, 1e-12);
}

// The guess after a step of the light in a junction of a wide gap, where the faintest light raises
// the minority densities by tens of kT: the solve from the guess ends at the state that the solve
// without it reaches, to the last digits of the current and with the current the same through the
// stack.  Under low injection the guess is the solution, and the solve from it takes at most a step
// of each equation where the one without it takes a step of the clamp after the other.
TEST(LightStep, TheGuessForANewGenerationLeadsToTheStateTheSolveWithoutItReaches) {
    Junction j;
    j.m.Eg = 2.0;
    j.m.Krad = 1e-16; // m3/s
    auto guided = AtEquilibrium(Cell(j));
    auto plain = AtEquilibrium(Cell(j));
    for (const double G : {1e17, 1e27}) { // /m3 s: 1e-10 of a sun, then some 30 mA/cm2 in 2 µm
        for (Device* d : {guided.get(), plain.get()}) {
            d->cv->generation = d->light.get();
            d->Illuminate(G);
        }
        ASSERT_TRUE(GuessCarriersForNewGeneration(*guided->cv));
        ASSERT_EQ(onder_belichting(*guided->cv), 0);
        ASSERT_EQ(onder_belichting(*plain->cv), 0);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        extraheer_stroom(*guided->cv, 0);
        extraheer_stroom(*plain->cv, 0);
        EXPECT_NEAR(guided->cv->J_median / plain->cv->J_median, 1.0, 1e-7) << G;
        EXPECT_LT(guided->cv->J_spread, 1e-7 * std::fabs(guided->cv->J_median)) << G;
        EXPECT_LE(guided->cv->inner_iterations, 3) << G;
        EXPECT_GT(plain->cv->inner_iterations, 20) << G;
    }
}

// With recombination at the contacts only, the dark current of the short-base diode, on the fixed
// first mesh and on the mesh that adapts to the solution during the passes; with radiative
// recombination only, that of the whole volume of a thick junction.
TEST(DarkCurrent, ShortBaseDiodeOnBothMeshesAndRadiativeRecombinationInAThickJunctionGiveTheirClosedForms) {
    const Keep<MeshSettings> keepMesh(meshSettings);
    for (const int adaptive : {0, 1}) {
        SCOPED_TRACE(adaptive);
        meshSettings.recalculateMesh = adaptive;
        const Junction j;
        const auto d = AtEquilibrium(Cell(j));
        CalculationVariables& cv = *d->cv;
        const int firstMeshPoints = cv.mesh.n_points;
        const double Dn = j.m.mu_n * kT, Dp = j.m.mu_p * kT;
        const double Vbi = kT * std::log(j.Na * j.Nd / j.m.ni2());
        for (const double V : {0.3, 0.35, 0.4, 0.45, 0.5}) {
            SCOPED_TRACE(V);
            const double J = CurrentAt(cv, V);
            ASSERT_GT(cv.iteration_count, 0);
            // Neutral widths of the two sides, depletion approximation.
            const double W =
                std::sqrt(2 * j.m.eps * eps0 * (Vbi - V - 2 * kT) / q * (j.Na + j.Nd) / (j.Na * j.Nd));
            const double neutralP = j.dp - W * j.Nd / (j.Na + j.Nd),
                         neutralN = j.dn - W * j.Na / (j.Na + j.Nd);
            const double J0 =
                q * j.m.ni2() *
                (Dn / (j.Na * (neutralP + Dn / j.Smin)) + Dp / (j.Nd * (neutralN + Dp / j.Smin)));
            // Forward current flows from the p side on the left to the n side on the right: positive.
            EXPECT_NEAR(J / (J0 * std::expm1(V / kT) * 0.1), 1.0, 0.05); // A/m2 -> mA/cm2
            EXPECT_TRUE(cv.J_converged) << "current not constant through the cell";
        }
        EXPECT_TRUE(!adaptive || cv.mesh.n_points > firstMeshPoints) << "the junction region is refined";
    }

    // Minority carriers are reflected at the contacts: all recombination is radiative, in the bulk.
    Junction j{.m = {.Krad = 1e-18}, .dp = 5e-6, .dn = 5e-6, .Smin = 0};
    const auto d = AtEquilibrium(Cell(j));
    // Diffusion lengths sqrt(D / (Krad N)) of 114 µm (electrons) and 72 µm (holes) are much longer
    // than the layers: both quasi-Fermi levels stay flat (the mean minority density of a side is
    // tanh(d/L) / (d/L) > 0.998 of its edge value) and np = ni^2 exp(V/kT) in the whole thickness.
    for (const double V : {0.3, 0.4}) {
        const double J0 = q * j.m.Krad * j.m.ni2() * (j.dp + j.dn);
        EXPECT_NEAR(CurrentAt(*d->cv, V) / (J0 * std::expm1(V / kT) * 0.1), 1.0, 0.05) << "at " << V << " V";
    }
}

// The first point of a sweep.  Three known states of the dark junction: the short circuit at 0 V,
// the working point at 0.25 V and the present state at 0.5 V (voltages that the walks reach
// exactly, so that ties are ties).  Each carries a mark in a slot of `meshAlpha` that nothing reads
// in a two-layer cell, so that the state a sweep started from can be told after the walk.
class StartingPoint : public ::testing::Test {
protected:
    static constexpr double Vw = 0.25, c = 0.5;
    static constexpr size_t MARK = 6;

    void SetUp() override {
        wp.voltage = Vw;
        wp.numberofpoints = 3;
        Generation_Mode = pausestatus = 0;
        zonnecel.signV = 1;
        d = AtEquilibrium(Cell({}));
        shortCircuit = Marked(*d->cv, 0, 0, 1);
        working = Marked(*shortCircuit, Vw, 4, 2);
        present = Marked(*shortCircuit, c, 6, 3);
        CopyCalculationVariables(*d->cv, *present);
    }
    void TearDown() override { zonnecel.signV = 1; }
    std::unique_ptr<CalculationVariables> Marked(const CalculationVariables& from, double V, int points,
                                                 int mark) {
        auto s = std::make_unique<CalculationVariables>(from);
        if (points) volgende_iv_punt(*s, 0, V, points);
        EXPECT_EQ(CONVERGENTIEFALING, 0);
        s->meshAlpha[MARK] = mark;
        return s;
    }
    int Start(double& start, double& stop) {
        return CalculateStartingPoint(start, stop, *d->cv, *shortCircuit, *working, "I(V)", 3);
    }
    // 1 short circuit, 2 working point, 3 present state.
    double Origin() const { return d->cv->meshAlpha[MARK]; }

    Keep<WorkPoint> keepWp{wp};
    std::unique_ptr<Device> d;
    std::unique_ptr<CalculationVariables> shortCircuit, working, present;
};

TEST_F(StartingPoint, TheSweepStartsFromTheRightKnownStateAtTheRightEndOrReportsAFailedStart) {
    struct Case {
        double Vworking, start, stop;
        int mode, origin;
        double newStart, newStop, at;
    };
    const int FROM = SWEEP_FROM_START;
    for (const Case& k :
         {// An end at a known voltage starts there and the other end becomes the stop.
          Case{Vw, 0, 0.4, FROM, 1, 0, 0.4, 0}, Case{Vw, 0.4, 0, FROM, 1, 0, 0.4, 0},
          Case{Vw, Vw, 0.8, FROM, 2, Vw, 0.8, Vw}, Case{Vw, -0.2, Vw, FROM, 2, Vw, -0.2, Vw},
          Case{Vw, c, 0.9, FROM, 3, c, 0.9, c}, Case{Vw, 0.9, c, FROM, 3, c, 0.9, c},
          // One voltage from the nearest known state: nearest to 0 V, the short circuit; nearer to
          // the working point than to 0 V and not farther than the present state, the working
          // point (also on a tie); strictly nearest to the present state, the present state.
          Case{Vw, 0.05, 0.05, FROM, 1, 0.05, 0.05, 0.05}, Case{Vw, 0.27, 0.27, FROM, 2, 0.27, 0.27, 0.27},
          Case{Vw, 0.375, 0.375, FROM, 2, 0.375, 0.375, 0.375},
          Case{Vw, 0.48, 0.48, FROM, 3, 0.48, 0.48, 0.48},
          // A range around 0 V or the working point starts there for two branches, made rising.
          Case{Vw, -1, 1, SWEEP_AROUND_ZERO, 1, -1, 1, 0}, Case{Vw, 1, -1, SWEEP_AROUND_ZERO, 1, -1, 1, 0},
          Case{Vw, 0.45, 0.2, SWEEP_AROUND_WORKING, 2, 0.2, 0.45, Vw},
          // Other ranges: the end nearer to 0 V than the start is, from the short circuit, swapped.
          Case{Vw, -0.8, -0.5, FROM, 1, -0.5, -0.8, -0.5},
          // The working point lies nearer to the start than 0 V does; it is taken although the
          // present state lies nearer still: the order of the list decides, not the distance.
          Case{Vw, 0.45, 0.9, FROM, 2, 0.45, 0.9, 0.45},
          // Only the present state lies nearer than 0 V.
          Case{-0.3, 0.4, 0.9, FROM, 3, 0.4, 0.9, 0.4}}) {
        SCOPED_TRACE(testing::Message() << k.start << " .. " << k.stop);
        CopyCalculationVariables(*d->cv, *present);
        wp.voltage = k.Vworking;
        double start = k.start, stop = k.stop;
        const int mode = Start(start, stop);
        EXPECT_EQ(std::tuple(mode, Origin(), start, stop),
                  std::tuple(k.mode, k.origin, k.newStart, k.newStop));
        EXPECT_EQ(d->cv->V_applied, k.at);
        EXPECT_EQ(CONVERGENTIEFALING, 0);
    }
    // None lies nearer: with the working point and the present state at 0 V, a falling request is
    // made rising and starts from the short circuit.
    wp.voltage = 0;
    CopyCalculationVariables(*d->cv, *shortCircuit);
    d->cv->meshAlpha[MARK] = 3;
    double start = 0.8, stop = 0.5;
    const int mode = Start(start, stop);
    EXPECT_EQ(std::tuple(mode, Origin(), start, stop), std::tuple(FROM, 1.0, 0.5, 0.8));
    EXPECT_NEAR(d->cv->V_applied, 0.5, 1e-12);

    // A failed first point is reported in the user's convention.
    wp.voltage = Vw;
    working->iteration_count = -1;
    zonnecel.signV = -1;
    ClearReportedMessages();
    double from = 0.4, to = 0.9;
    EXPECT_EQ(Start(from, to), SWEEP_FAILED);
    ExpectOneMessage("Calculating first point of I(V) from working point",
                     "from V = -0.250 Volt to V = -0.400 V: convergence failure at V = -0.250 Volt");
}

} // namespace
} // namespace tervo
