// Operating points of whole cells against the physics of p-n junctions: the equilibrium band bending
// and field, the dark current of a short-base diode with recombination at the contacts only, the
// radiative dark current of a thick junction, and the behaviour of the voltage walk at its limits.
// The cells are built in file form (SI) and run as the driver runs them: normalisation, state and
// mesh, equilibrium, then steps of voltage.  Expected values are computed here from the textbook
// formulas with the constants of the program.
#include "run/sweeps/operating_points.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "cell/cell_records.h"
#include "cell/working_settings.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"
#include "solver/discrete_equations.h"
#include "solver/gummel.h"

namespace tervo {
namespace {

constexpr double kT = 0.0259; // V at 300 K
constexpr double q = 1.602e-19;
constexpr double eps0 = 8.854e-12;

size_t At(int i) {
    return static_cast<size_t>(i);
}

void Uniform(Profile& p, double value) {
    p.law = LAW_UNIFORM;
    p.pureA = p.pureB = p.leftValue = p.rightValue = value;
}

// A semiconductor of silicon-like properties, file form.
struct Material {
    double Eg = 1.12, chi = 4.05, eps = 11.9;
    double Nc = 2.8e25, Nv = 1.04e25;
    double mu_n = 0.05, mu_p = 0.02;
    double Krad = 0;
    double ni2() const { return Nc * Nv * std::exp(-Eg / kT); }
};

void SetLayer(LayerParameters& layer, const Material& m, double d, double Nd, double Na) {
    MaterialParameters& p = layer.material;
    p.d = d;
    Uniform(p.Eg, m.Eg);
    Uniform(p.chi, m.chi);
    Uniform(p.eps, m.eps);
    Uniform(p.Nc, m.Nc);
    Uniform(p.Nv, m.Nv);
    Uniform(p.Nd, Nd);
    Uniform(p.Na, Na);
    Uniform(p.mu_n, m.mu_n);
    Uniform(p.mu_p, m.mu_p);
    Uniform(p.v_th_n, 1e5);
    Uniform(p.v_th_p, 1e5);
    Uniform(p.K_rad, m.Krad);
    Uniform(p.c_n_auger, 0);
    Uniform(p.c_p_auger, 0);
    UpdateThicknessInProfiles_Layer(layer);
}

// Majority-carrier density of a neutral layer in Boltzmann statistics: N + ni^2 / n0 = n0.
double Majority(double N, double ni2) {
    return N / 2 + std::sqrt(N * N / 4 + ni2);
}

// A p-n homojunction: p-type layer on the left (next to the left contact), n-type on the right,
// with contacts at the flat-band work functions of the two neutral layers.
struct Junction {
    Material m;
    double Na = 1e23, Nd = 1e23; // /m^3
    double dp = 1e-6, dn = 1e-6; // m
    double Sn_left = 1e7, Sp_left = 1e7, Sn_right = 1e7, Sp_right = 1e7;
};

InputParameters MakeCell(const Junction& j) {
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    CellDefinition& c = in.cellParas;
    c.numberOfLayers = 2;
    SetLayer(c.layer[0], j.m, j.dp, 0, j.Na);
    SetLayer(c.layer[1], j.m, j.dn, j.Nd, 0);
    const double ni2 = j.m.ni2();
    c.leftContact.flatband = 0;
    c.rightContact.flatband = 0;
    c.leftContact.Fi_m = j.m.chi + j.m.Eg - kT * std::log(j.m.Nv / Majority(j.Na, ni2));
    c.rightContact.Fi_m = j.m.chi + kT * std::log(j.m.Nc / Majority(j.Nd, ni2));
    c.leftContact.Sn = j.Sn_left;
    c.leftContact.Sp = j.Sp_left;
    c.rightContact.Sn = j.Sn_right;
    c.rightContact.Sp = j.Sp_right;
    return in;
}

// The problem as the driver sets it up: normalised parameters, a state with its first mesh, and a
// generation record without light.
struct Device {
    std::unique_ptr<CalculationParameters> P = std::make_unique<CalculationParameters>();
    std::unique_ptr<CalculationVariables> cv = std::make_unique<CalculationVariables>();
    std::unique_ptr<GenerationParameters> dark = std::make_unique<GenerationParameters>();
};

std::unique_ptr<Device> Build(const InputParameters& in) {
    auto d = std::make_unique<Device>();
    parameterset1_to_3(in, *d->P, 300, nullptr, 0);
    InitialiseCalculationVariables(*d->cv);
    EXPECT_EQ(CreateCalculationVariables(*d->cv, d->dark.get(), *d->P, 1, 0), 0);
    return d;
}

// Potential in volt of a point, the left contact at 0.
double Potential(const CalculationVariables& cv, int i) {
    return cv.psi[At(i)] * kT;
}

// Field in V/m at the last point of layer j from the three points at that end (one-sided,
// second order, unequal steps), the way the field of the result files is formed.
double FieldAtLastPoint(const CalculationVariables& cv, int layer) {
    const int i = cv.mesh.last_point[At(layer)];
    const double x0 = cv.mesh.x_m[At(i - 2)], x1 = cv.mesh.x_m[At(i - 1)], x2 = cv.mesh.x_m[At(i)];
    const double p0 = Potential(cv, i - 2), p1 = Potential(cv, i - 1), p2 = Potential(cv, i);
    const double h1 = x1 - x0, h2 = x2 - x1;
    const double dpdx =
        p0 * h2 / (h1 * (h1 + h2)) - p1 * (h1 + h2) / (h1 * h2) + p2 * (2 * h2 + h1) / (h2 * (h1 + h2));
    return -dpdx;
}

// Index of the mesh point nearest to x (m).
int Nearest(const CalculationVariables& cv, double x) {
    int best = 0;
    for (int i = 0; i < cv.mesh.n_points; ++i)
        if (std::fabs(cv.mesh.x_m[At(i)] - x) < std::fabs(cv.mesh.x_m[At(best)] - x)) best = i;
    return best;
}

// The dark current (mA/cm2) after a walk from the present state to V in steps of about 0.05 V.
double WalkTo(CalculationVariables& cv, double V) {
    const int steps = std::max(1, static_cast<int>(std::ceil(std::fabs(V - cv.V_applied) / 0.05)));
    volgende_iv_punt(cv, cv.V_applied, V, steps + 1);
    extraheer_stroom(cv, 0);
    return cv.J_median;
}

TEST(Equilibrium, HomojunctionHasTheBuiltInPotentialFlatFermiLevelsAndThePoissonPeakField) {
    const Junction j;
    const auto d = Build(MakeCell(j));
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    ASSERT_EQ(EquilibriumConvergenceFailure, 0);
    ASSERT_GE(cv.iteration_count, 1);

    // Band bending between the two neutral regions, read in the middle of each layer, far from the
    // depletion region (about 0.1 µm) and from the contacts.
    const double ni2 = j.m.ni2();
    const double Vbi = kT * std::log(j.Na * j.Nd / ni2);
    const double bending = Potential(cv, Nearest(cv, j.dp + j.dn / 2)) - Potential(cv, Nearest(cv, j.dp / 2));
    EXPECT_NEAR(bending, Vbi, 1e-3) << "built-in potential kT ln(Na Nd / ni^2) = " << Vbi;

    // Peak field at the junction from the first integral of Poisson's equation in Boltzmann
    // statistics.  With phi the potential (in kT/q) relative to the neutral bulk of one side, p0 and
    // n0 the bulk densities of that side:
    //   E^2 = (2 kT q / (eps eps0)) [p0 (exp(-phi) + phi - 1) + n0 (exp(phi) - phi - 1)]   (kT in V).
    // The junction potential phi_j is where the two sides give the same field (no interface charge,
    // one permittivity); on the n side phi_n = phi_j - Vbi/kT.
    const double pP = Majority(j.Na, ni2), nP = ni2 / pP;
    const double nN = Majority(j.Nd, ni2), pN = ni2 / nN;
    const double vbi = std::log(pP * nN / ni2); // kT/q, exactly the potential step between the bulks
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
    EXPECT_NEAR(Potential(cv, cv.mesh.last_point[0]) - Potential(cv, Nearest(cv, j.dp / 2)), phiJ * kT, 1e-3);

    // The carriers are in equilibrium: both quasi-Fermi levels at the level of the left contact.
    for (int i = 0; i < cv.mesh.n_points; ++i) {
        ASSERT_DOUBLE_EQ(cv.EFn[At(i)], 0.0);
        ASSERT_DOUBLE_EQ(cv.EFp[At(i)], 0.0);
    }
    // ... and they stay there when the full system is solved at V = 0.
    ASSERT_EQ(onder_belichting(cv), 0);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    double largest = 0;
    for (int i = 0; i < cv.mesh.n_points; ++i)
        largest = std::max({largest, std::fabs(cv.EFn[At(i)]), std::fabs(cv.EFp[At(i)])});
    EXPECT_LT(largest, 1e-6);
    extraheer_stroom(cv, 0);
    EXPECT_LT(std::fabs(cv.J_median), 1e-12);
}

// Neutral width of each side of an abrupt junction at bias V, depletion approximation.
struct Widths {
    double p, n;
};
Widths NeutralWidths(const Junction& j, double V) {
    const double Vbi = kT * std::log(j.Na * j.Nd / j.m.ni2());
    const double W = std::sqrt(2 * j.m.eps * eps0 * (Vbi - V - 2 * kT) / q * (j.Na + j.Nd) / (j.Na * j.Nd));
    return {j.dp - W * j.Nd / (j.Na + j.Nd), j.dn - W * j.Na / (j.Na + j.Nd)};
}

// On the fixed first mesh and on the mesh that adapts to the solution during the passes.
class ShortBaseDiode : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { meshSettings.recalculateMesh = GetParam(); }
    void TearDown() override { meshSettings.recalculateMesh = 0; }
};

TEST_P(ShortBaseDiode, WithContactRecombinationOnlyTheDarkCurrentFollowsTheIdealDiode) {
    const Junction j;
    const auto d = Build(MakeCell(j));
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    const int firstMeshPoints = cv.mesh.n_points;

    const double Dn = j.m.mu_n * kT, Dp = j.m.mu_p * kT;
    const double ni2 = j.m.ni2();
    double previous = 0;
    for (const double V : {0.3, 0.35, 0.4, 0.45, 0.5}) {
        const double J = WalkTo(cv, V);
        ASSERT_EQ(CONVERGENTIEFALING, 0) << "at " << V << " V";
        ASSERT_GT(cv.iteration_count, 0);
        const Widths w = NeutralWidths(j, V);
        const double J0 =
            q * ni2 * (Dn / (j.Na * (w.p + Dn / j.Sn_left)) + Dp / (j.Nd * (w.n + Dp / j.Sp_right)));
        const double expected = J0 * std::expm1(V / kT) * 0.1; // A/m2 -> mA/cm2
        // Forward current flows from the p side on the left to the n side on the right: positive.
        EXPECT_NEAR(J / expected, 1.0, 0.05) << "at " << V << " V: expected " << expected << " mA/cm2";
        EXPECT_TRUE(cv.J_converged) << "current not constant through the cell at " << V << " V";
        if (previous != 0) {
            const double ideality = 0.05 / (kT * std::log(J / previous));
            EXPECT_NEAR(ideality, 1.0, 0.02) << "between " << V - 0.05 << " and " << V << " V";
        }
        previous = J;
    }
    if (GetParam() == 1) {
        EXPECT_GT(cv.mesh.n_points, firstMeshPoints) << "the junction region is refined";
    }
}

INSTANTIATE_TEST_SUITE_P(FixedAndAdaptiveMesh, ShortBaseDiode, ::testing::Values(0, 1));

TEST(DarkCurrent, RadiativeRecombinationInAThickJunctionGivesQKradNi2W) {
    Junction j;
    j.m.Krad = 1e-18; // m^3/s
    j.dp = j.dn = 5e-6;
    // Minority carriers are reflected at the contacts, majority carriers pass freely: all
    // recombination is radiative, in the bulk.
    j.Sn_left = 0;
    j.Sp_right = 0;
    const auto d = Build(MakeCell(j));
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    // Diffusion lengths sqrt(D / (Krad N)) of 114 µm (electrons) and 72 µm (holes) are much longer
    // than the layers: both quasi-Fermi levels stay flat (the mean minority density of a side is
    // tanh(d/L) / (d/L) > 0.998 of its edge value) and np = ni^2 exp(V/kT) in the whole thickness W.
    const double W = j.dp + j.dn;
    for (const double V : {0.3, 0.4}) {
        const double J = WalkTo(cv, V);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        const double J0 = q * j.m.Krad * j.m.ni2() * W;
        EXPECT_NEAR(J / (J0 * std::expm1(V / kT) * 0.1), 1.0, 0.05) << "at " << V << " V";
    }
}

TEST(CurrentExtraction, PointCurrentsWithTheRecombinationInsideTheLinksVanishAtABlockingContact) {
    Junction j;
    j.m.Krad = 1e-16; // strong radiative recombination: the minority currents change inside links
    j.Sn_left = 0;    // the left contact takes no electrons
    j.Sp_right = 0;   // the right contact takes no holes
    const auto d = Build(MakeCell(j));
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    const double J = WalkTo(cv, 0.45);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    // A link value is the current in the middle of the link next to the contact: it carries the
    // recombination of that half link.  The point value with the recombination inside the links
    // taken into account is the current at the contact itself, which is zero for the blocked carrier.
    const int saved = calculation_of_current;
    calculation_of_current = 1;
    extraheer_stroom(cv, 0);
    const double linkLeft = j_n[0];
    const double linkRight = j_p[At(cv.mesh.n_points - 1)];
    const double total = cv.J_median;
    ASSERT_GT(std::fabs(linkLeft), 1e-6 * std::fabs(J));
    ASSERT_GT(std::fabs(linkRight), 1e-6 * std::fabs(J));
    calculation_of_current = 2;
    extraheer_stroom(cv, 0);
    calculation_of_current = saved;
    EXPECT_LT(std::fabs(j_n[0]), 1e-4 * std::fabs(linkLeft));
    EXPECT_LT(std::fabs(j_p[At(cv.mesh.n_points - 1)]), 1e-4 * std::fabs(linkRight));
    // The correction moves current between electrons and holes and leaves the total alone.
    EXPECT_NEAR(cv.J_median / total, 1.0, 1e-12);
    calculation_of_current = saved;
}

TEST(VoltageWalk, ReverseToMinusOneAndForwardToPointEightVoltConvergeOnTheDefaultSettings) {
    const Junction j;
    const auto d = Build(MakeCell(j));
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    const auto equilibriumState = std::make_unique<CalculationVariables>(cv);

    volgende_iv_punt(cv, 0.0, -1.0, 11);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    EXPECT_GT(cv.iteration_count, 0);
    EXPECT_DOUBLE_EQ(cv.V_applied, -1.0);
    // The contact potential follows the applied voltage.
    EXPECT_NEAR(cv.psi[At(cv.mesh.n_points - 1)] * kT, d->P->Fi_m_left - d->P->Fi_m_right + 1.0, 1e-12);
    extraheer_stroom(cv, 0);
    const double reverse = cv.J_median;

    CopyCalculationVariables(cv, *equilibriumState);
    volgende_iv_punt(cv, 0.0, 0.8, 17);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    EXPECT_GT(cv.iteration_count, 0);
    EXPECT_DOUBLE_EQ(cv.V_applied, 0.8);
    extraheer_stroom(cv, 0);
    // Rectification: the reverse current saturates at a tiny negative value, the forward current is
    // large and positive.
    EXPECT_LT(reverse, 0);
    EXPECT_GT(cv.J_median, -1e6 * reverse);
}

TEST(VoltageWalk, StepsBelowANanovoltAndFailedStatesAreNotWalked) {
    const auto d = Build(MakeCell(Junction{}));
    CalculationVariables& cv = *d->cv;
    equilibrium(cv);
    const auto before = std::make_unique<CalculationVariables>(cv);
    volgende_iv_punt(cv, 0.0, 1e-10, 2);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    EXPECT_EQ(cv.V_applied, 0.0);
    EXPECT_EQ(cv.psi, before->psi);
    EXPECT_EQ(cv.iteration_count, before->iteration_count);

    cv.iteration_count = -1;
    volgende_iv_punt(cv, 0.0, 0.1, 2);
    EXPECT_EQ(CONVERGENTIEFALING, 1);
    EXPECT_EQ(cv.V_applied, 0.0);
    EXPECT_EQ(onder_belichting(cv), -1);
    EXPECT_EQ(CONVERGENTIEFALING, 1);
}

TEST(VoltageWalk, AnImpossibleSolveReportsAndReturns) {
    // One outer pass is never enough for a new voltage: the pass ends by its limit and the point
    // counts as not converged.
    InputParameters in = MakeCell(Junction{});
    in.convergence.maxiter = 1;
    {
        const auto d = Build(in);
        CalculationVariables& cv = *d->cv;
        equilibrium(cv);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        volgende_iv_punt(cv, 0.0, 0.4, 3);
        EXPECT_EQ(CONVERGENTIEFALING, 1);
        EXPECT_EQ(cv.iteration_count, -1);
        EXPECT_NEAR(cv.V_applied, 0.2, 1e-12) << "the walk ends at the first failed step";
    }
    // An inner limit of one Newton step with the policy "report and fail": the potential iteration
    // of equilibrium gives up with the message of its title and text.
    in.convergence.maxiter_psi_start = 1;
    in.convergence.failAction_psi = 1;
    ClearReportedMessages();
    const auto d = Build(in);
    equilibrium(*d->cv);
    EXPECT_EQ(CONVERGENTIEFALING, 1);
    EXPECT_EQ(EquilibriumConvergenceFailure, 1);
    EXPECT_EQ(d->cv->iteration_count, -1);
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].title, "Error in psi_iteratie_Gummel()");
    EXPECT_EQ(ReportedMessages()[0].text,
              "Max no of iterations exceeded during Gummel-calculation of variable psi\nIteration count: 1");
}

// ---------------------------------------------------------------------------------------------
// The first point of a sweep.
//
// Three known states of the dark junction: the short circuit at 0 V, the working point at 0.25 V
// and the present state at 0.5 V (voltages that the walks reach exactly, so that ties are ties).  Each
// carries a mark in a slot of `meshAlpha` that nothing reads in a two-layer cell (layer 6), so that the state
// a sweep started from can be told after the walk.
class StartingPoint : public ::testing::Test {
protected:
    static constexpr double Vw = 0.25;
    static constexpr double c = 0.5;
    static constexpr size_t MARK = 6;

    void SetUp() override {
        savedWp = wp;
        wp.voltage = Vw;
        wp.numberofpoints = 3;
        Generation_Mode = 0;
        pausestatus = 0;
        zonnecel.signV = 1;
        d = Build(MakeCell(Junction{}));
        equilibrium(*d->cv);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        shortCircuit = std::make_unique<CalculationVariables>(*d->cv);
        shortCircuit->meshAlpha[MARK] = 1;
        working = std::make_unique<CalculationVariables>(*shortCircuit);
        volgende_iv_punt(*working, 0, Vw, 4);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        working->meshAlpha[MARK] = 2;
        present = std::make_unique<CalculationVariables>(*shortCircuit);
        volgende_iv_punt(*present, 0, c, 6);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        present->meshAlpha[MARK] = 3;
        Reset();
    }
    void TearDown() override {
        wp = savedWp;
        zonnecel.signV = 1;
    }

    // The working state back at the present voltage.
    void Reset() { CopyCalculationVariables(*d->cv, *present); }

    int Start(double& start, double& stop) {
        return CalculateStartingPoint(start, stop, *d->cv, *shortCircuit, *working, "I(V)", 3);
    }
    // 1 short circuit, 2 working point, 3 present state.
    double Origin() const { return d->cv->meshAlpha[MARK]; }

    std::unique_ptr<Device> d;
    std::unique_ptr<CalculationVariables> shortCircuit, working, present;
    WorkPoint savedWp;
};

TEST_F(StartingPoint, AnEndAtAKnownVoltageStartsThereAndTheOtherEndBecomesTheStop) {
    struct Case {
        double start, stop;
        double origin, newStart, newStop;
    };
    for (const Case& k : {Case{0, 0.4, 1, 0, 0.4}, Case{0.4, 0, 1, 0, 0.4}, Case{Vw, 0.8, 2, Vw, 0.8},
                          Case{-0.2, Vw, 2, Vw, -0.2}, Case{c, 0.9, 3, c, 0.9}, Case{0.9, c, 3, c, 0.9}}) {
        Reset();
        double start = k.start, stop = k.stop;
        EXPECT_EQ(Start(start, stop), SWEEP_FROM_START) << k.start << " .. " << k.stop;
        EXPECT_EQ(Origin(), k.origin) << k.start << " .. " << k.stop;
        EXPECT_EQ(start, k.newStart);
        EXPECT_EQ(stop, k.newStop);
        EXPECT_NEAR(d->cv->V_applied, k.newStart, 1e-12);
    }
    // The start at the working point is the stored state itself: a copy, no solve.
    Reset();
    double start = Vw, stop = 0.8;
    Start(start, stop);
    EXPECT_EQ(d->cv->psi, working->psi);
    EXPECT_EQ(d->cv->u, working->u);
}

TEST_F(StartingPoint, OneVoltageIsReachedFromTheNearestKnownState) {
    // Nearest to 0 V: short circuit; nearer to the working point than to 0 V and not farther than
    // the present state: working point (also on a tie with the present state); strictly nearest to
    // the present state: present state.
    for (const auto& [V, origin] :
         std::vector<std::pair<double, double>>{{0.05, 1}, {0.27, 2}, {0.375, 2}, {0.48, 3}}) {
        Reset();
        double start = V, stop = V;
        EXPECT_EQ(Start(start, stop), SWEEP_FROM_START);
        EXPECT_EQ(Origin(), origin) << V;
        EXPECT_NEAR(d->cv->V_applied, V, 1e-12);
        EXPECT_EQ(CONVERGENTIEFALING, 0);
    }
}

TEST_F(StartingPoint, ARangeAroundZeroOrTheWorkingPointStartsThereForTwoBranches) {
    double start = -1, stop = 1;
    EXPECT_EQ(Start(start, stop), SWEEP_AROUND_ZERO);
    EXPECT_EQ(Origin(), 1);
    EXPECT_EQ(d->cv->V_applied, 0.0);
    EXPECT_EQ(start, -1);
    EXPECT_EQ(stop, 1);
    // A falling request is made rising.
    Reset();
    start = 1;
    stop = -1;
    EXPECT_EQ(Start(start, stop), SWEEP_AROUND_ZERO);
    EXPECT_EQ(start, -1);
    EXPECT_EQ(stop, 1);
    Reset();
    start = 0.45;
    stop = 0.2;
    EXPECT_EQ(Start(start, stop), SWEEP_AROUND_WORKING);
    EXPECT_EQ(Origin(), 2);
    EXPECT_EQ(d->cv->V_applied, Vw);
    EXPECT_EQ(start, 0.2);
    EXPECT_EQ(stop, 0.45);
}

TEST_F(StartingPoint, OtherRangesStartAtTheEndThatTheFirstNearerKnownStateReaches) {
    struct Case {
        double Vworking, start, stop;
        double origin, newStart, newStop;
    };
    for (const Case& k : {
             // The end nearer to 0 V than the start is: from the short circuit, swapped.
             Case{Vw, -0.8, -0.5, 1, -0.5, -0.8},
             // The working point lies nearer to the start than 0 V does; it is taken although the
             // present state lies nearer still: the order of the list decides, not the distance.
             Case{Vw, 0.45, 0.9, 2, 0.45, 0.9},
             // Only the present state lies nearer than 0 V.
             Case{-0.3, 0.4, 0.9, 3, 0.4, 0.9},
         }) {
        Reset();
        wp.voltage = k.Vworking;
        double start = k.start, stop = k.stop;
        EXPECT_EQ(Start(start, stop), SWEEP_FROM_START);
        EXPECT_EQ(Origin(), k.origin) << k.start << " .. " << k.stop;
        EXPECT_EQ(start, k.newStart);
        EXPECT_EQ(stop, k.newStop);
        EXPECT_NEAR(d->cv->V_applied, k.newStart, 1e-12);
    }
    // None lies nearer: with the working point and the present state at 0 V, a falling request is
    // made rising and starts from the short circuit.
    wp.voltage = 0;
    CopyCalculationVariables(*d->cv, *shortCircuit);
    d->cv->meshAlpha[MARK] = 3;
    double start = 0.8, stop = 0.5;
    EXPECT_EQ(Start(start, stop), SWEEP_FROM_START);
    EXPECT_EQ(Origin(), 1);
    EXPECT_EQ(start, 0.5);
    EXPECT_EQ(stop, 0.8);
    EXPECT_NEAR(d->cv->V_applied, 0.5, 1e-12);
}

TEST_F(StartingPoint, AFailedFirstPointIsReportedInTheUsersConvention) {
    working->iteration_count = -1;
    zonnecel.signV = -1;
    ClearReportedMessages();
    double start = 0.4, stop = 0.9;
    EXPECT_EQ(Start(start, stop), SWEEP_FAILED);
    ASSERT_EQ(ReportedMessages().size(), 1u);
    EXPECT_EQ(ReportedMessages()[0].title, "Calculating first point of I(V) from working point");
    EXPECT_EQ(ReportedMessages()[0].text,
              "from V = -0.250 Volt to V = -0.400 V: convergence failure at V = -0.250 Volt");
}

TEST(ReorderVoltages, TheSweepWalksUpFromTheStartVoltageThenDownFromIt) {
    std::vector<double> v{-0.2, -0.1, 0, 0.1, 0.2, 0.3};
    int split = -1;
    ReorderVoltagesAroundStartVoltage(v.data(), 6, 0, split);
    EXPECT_EQ(v, (std::vector<double>{0.1, 0.2, 0.3, 0, -0.1, -0.2}));
    EXPECT_EQ(split, 3);
    // A start voltage at an end or outside leaves the sweep alone.
    std::vector<double> w{0, 0.1, 0.2};
    split = -1;
    ReorderVoltagesAroundStartVoltage(w.data(), 3, 0, split);
    EXPECT_EQ(w, (std::vector<double>{0, 0.1, 0.2}));
    EXPECT_EQ(split, -1);
}

} // namespace
} // namespace tervo
