// The Gummel iteration: its tridiagonal solvers against a dense LU solve, the limits on the Newton
// steps, the agreement of the separate and the lumped carrier schemes, a restart from a solution,
// and the current over a heterointerface.
#include "solver/gummel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "run/control/driver.h"
#include "run/results/extraction.h"
#include "run/sweeps/operating_points.h"
#include "setup/generation.h"
#include "solver/interface_recombination.h"
#include "solver/small_linalg.h"

namespace tervo {
namespace {

size_t At(int i) {
    return static_cast<size_t>(i);
}

void Uniform(Profile& p, double value) {
    p.law = LAW_UNIFORM;
    p.pureA = p.pureB = p.leftValue = p.rightValue = value;
}

// p-type absorber, thin n-type window of wider gap and lower affinity, n+ contact layer; radiative
// recombination throughout.
InputParameters ThreeLayerCell() {
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    CellDefinition& c = in.cellParas;
    c.numberOfLayers = 3;
    const double d[3] = {2e-6, 0.05e-6, 0.2e-6}, Eg[3] = {1.15, 2.4, 3.3}, chi[3] = {4.5, 4.2, 4.4};
    const double eps[3] = {13.6, 10, 9}, Na[3] = {2e22, 0, 0}, Nd[3] = {0, 5e22, 1e24};
    for (size_t i = 0; i < 3; ++i) {
        MaterialParameters& m = c.layer[i].material;
        m.d = d[i];
        Uniform(m.Eg, Eg[i]);
        Uniform(m.chi, chi[i]);
        Uniform(m.eps, eps[i]);
        Uniform(m.Nc, 2.2e24);
        Uniform(m.Nv, 1.8e25);
        Uniform(m.Na, Na[i]);
        Uniform(m.Nd, Nd[i]);
        Uniform(m.mu_n, 0.01);
        Uniform(m.mu_p, 0.0025);
        Uniform(m.K_rad, 1e-16);
        UpdateThicknessInProfiles_Layer(c.layer[i]);
    }
    c.leftContact.Fi_m = 4.5 + 1.15 - 0.0259 * std::log(1.8e25 / 2e22);
    c.rightContact.Fi_m = 4.4 + 0.0259 * std::log(2.2e24 / 1e24);
    c.leftContact.Sn = c.leftContact.Sp = c.rightContact.Sn = c.rightContact.Sp = 1e5;
    return in;
}

struct Problem {
    std::unique_ptr<CalculationParameters> P = std::make_unique<CalculationParameters>();
    std::unique_ptr<CalculationVariables> cv = std::make_unique<CalculationVariables>();
    std::unique_ptr<GenerationParameters> g = std::make_unique<GenerationParameters>();
    int n() const { return cv->mesh.n_points; }
};

std::unique_ptr<Problem> Make(const InputParameters& in) {
    auto p = std::make_unique<Problem>();
    parameterset1_to_3(in, *p->P, 300, nullptr, 0);
    InitialiseCalculationVariables(*p->cv);
    EXPECT_EQ(CreateCalculationVariables(*p->cv, p->g.get(), *p->P, 1, 0), 0);
    return p;
}

// ---------------------------------------------------------------------------------------------------
// Linear solvers.

// Dense solution of the system that J (with interface elements) and rhs describe.
std::vector<double> DenseSolve(const CalculationVariables& cv, const trimatrix& J,
                               const InterfaceExtra* extra, std::vector<double> rhs) {
    const int n = cv.mesh.n_points;
    matrix A(n, n);
    for (int i = 0; i < n; ++i)
        for (int k = -1; k <= 1; ++k)
            if (i + k >= 0 && i + k < n) A[i][i + k] = J[i][At(k + 1)];
    for (int j = 0; extra != nullptr && j + 1 < cv.mesh.number_of_layers; ++j) {
        const int i = cv.mesh.last_point[At(j)];
        A[i][i + 2] = (*extra)[At(j)];
    }
    std::vector<int> pivot;
    EXPECT_EQ(lu_decomposition(A, pivot), 0);
    lu_solve(A, pivot, rhs.data());
    return rhs;
}

// A random tridiagonal system with rows of sizes over six decades, like those of the equations.
void RandomSystem(int n, trimatrix& J, std::vector<double>& rhs, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
    for (int i = 0; i < n; ++i) {
        const double size = std::pow(10.0, 3 * u(rng));
        J[i] = {size * u(rng), size * (5 + u(rng)), size * u(rng)};
        rhs[At(i)] = size * u(rng);
    }
}

TEST(LinearSolvers, ThomasWithAndWithoutInterfaceElementsAgreesWithDenseLU) {
    auto p = Make(ThreeLayerCell());
    const CalculationVariables& cv = *p->cv;
    const int n = p->n();
    std::mt19937 rng(7);
    trimatrix J(n);
    std::vector<double> rhs(At(n)), delta(At(n));
    for (int trial = 0; trial < 5; ++trial) {
        RandomSystem(n, J, rhs, rng);
        InterfaceExtra extra{};
        for (int j = 0; j < 2; ++j) extra[At(j)] = J[cv.mesh.last_point[At(j)]][1] * 0.4;
        const std::vector<double> withExtra = DenseSolve(cv, J, &extra, rhs);
        const std::vector<double> plain = DenseSolve(cv, J, nullptr, rhs);
        trimatrix Jcopy = J;
        std::vector<double> rhsCopy = rhs;
        ASSERT_EQ(bereken_delta_psi_Gummel(*p->cv, Jcopy, extra, rhsCopy, delta), 0);
        for (int i = 0; i < n; ++i)
            ASSERT_NEAR(delta[At(i)], withExtra[At(i)], 1e-12 * (1 + std::fabs(withExtra[At(i)]))) << i;
        Jcopy = J;
        rhsCopy = rhs;
        ASSERT_EQ(bereken_delta_u_of_v_Gummel(*p->cv, Jcopy, rhsCopy, delta), 0);
        for (int i = 0; i < n; ++i)
            ASSERT_NEAR(delta[At(i)], plain[At(i)], 1e-12 * (1 + std::fabs(plain[At(i)]))) << i;
    }
}

TEST(LinearSolvers, BlockThomasWithTwoByTwoBlocksAgreesWithDenseLU) {
    const int n = 60;
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> u(-1, 1);
    uv_trimatrix A(n);
    uv_row rhs(n), x(n);
    matrix D(2 * n, 2 * n);
    std::vector<double> b(At(2 * n));
    for (int i = 0; i < n; ++i) {
        for (int r = 0; r < 2; ++r) {
            for (int c = 0; c < 2; ++c) {
                A.main[At(i)][r][c] = (r == c ? 4 : 0) + u(rng);
                if (i > 0) A.sub[At(i)][r][c] = u(rng);
                if (i + 1 < n) A.super[At(i)][r][c] = u(rng);
                D[2 * i + r][2 * i + c] = A.main[At(i)][r][c];
                if (i > 0) D[2 * i + r][2 * (i - 1) + c] = A.sub[At(i)][r][c];
                if (i + 1 < n) D[2 * i + r][2 * (i + 1) + c] = A.super[At(i)][r][c];
            }
            rhs[i][r] = u(rng);
            b[At(2 * i + r)] = rhs[i][r];
        }
    }
    std::vector<int> pivot;
    ASSERT_EQ(lu_decomposition(D, pivot), 0);
    lu_solve(D, pivot, b.data());
    ASSERT_EQ(tridiagonal_2x2(A, rhs, x, n), 0);
    for (int i = 0; i < n; ++i)
        for (int r = 0; r < 2; ++r) EXPECT_NEAR(x[i][r], b[At(2 * i + r)], 1e-12) << i << "," << r;

    A.main[0] = matrix_2x2{}; // an exactly singular first block
    EXPECT_EQ(tridiagonal_2x2(A, rhs, x, n), -1);
}

TEST(LinearSolvers, AZeroPivotIsReportedWithItsMeshPoint) {
    auto p = Make(ThreeLayerCell());
    const int n = p->n();
    trimatrix J(n);
    std::vector<double> rhs(At(n), 1.0), delta(At(n));
    for (int i = 0; i < n; ++i) J[i] = {1.0, 2.0, 1.0};
    // Row 1 eliminated against row 0 leaves 2 - 1 * 2 = 0.
    J[0] = {0.0, 1.0, 2.0};
    J[1] = {1.0, 2.0, 1.0};
    ASSERT_EQ(bereken_delta_u_of_v_Gummel(*p->cv, J, rhs, delta), -1);
    EXPECT_EQ(LastLUDecompositionError(),
              "bereken_delta_u_of_v_Gummel: alpha = 0 during forward substitution, meshpoint i = 1 ");
    J[0] = {0.0, 0.0, 1.0};
    InterfaceExtra extra{};
    ASSERT_EQ(bereken_delta_psi_Gummel(*p->cv, J, extra, rhs, delta), -1);
    EXPECT_EQ(LastLUDecompositionError(),
              "bereken_delta_psi_Gummel: main[0] = 0 at left contact, at start algorithm");
}

// ---------------------------------------------------------------------------------------------------
// Limits on the Newton steps.

TEST(Clamping, PotentialStepKeepsItsShapeAndCarrierStepsStayWithinTheirQuasiFermiLimit) {
    auto p = Make(ThreeLayerCell());
    CalculationVariables& cv = *p->cv;
    const int n = p->n();
    std::vector<double> step(At(n));
    for (int i = 0; i < n; ++i) step[At(i)] = 5.0 * std::sin(0.1 * i);
    const double m = maximum_psi_array(step, n);
    std::vector<double> clamped = step;
    clamping_psi(cv, clamped, 0.5, m);
    for (int i = 0; i < n; ++i) EXPECT_DOUBLE_EQ(clamped[At(i)], step[At(i)] * 0.5 / m);
    EXPECT_DOUBLE_EQ(maximum_psi_array(clamped, n), 0.5);

    // A step that would take a + u below zero at one point is cut, with all others, to a fall of
    // exactly clamp_n in the quasi-Fermi level there.
    cv.a_n = 2.0;
    for (int i = 0; i < n; ++i) {
        cv.u[At(i)] = 1.0 + 0.01 * i;
        cv.EFn[At(i)] = std::log(cv.a_n + cv.u[At(i)]);
    }
    const MeshArray before = cv.EFn;
    std::vector<double> du(At(n), 0.01);
    du[5] = -2 * (cv.a_n + cv.u[5]);
    EXPECT_EQ(clamping_u_or_v(cv, du, 0.5, -1), 1);
    EXPECT_NEAR(cv.EFn[5] - before[5], -0.5, 1e-12);
    EXPECT_NEAR(cv.max_dEFn, 0.5, 1e-12);
    const double factor = du[5] / (-2 * (2.0 + 1.05));
    EXPECT_NEAR(cv.u[7] - (1.07), 0.01 * factor, 1e-14);
    for (int i = 0; i < n; ++i) ASSERT_NEAR(cv.EFn[At(i)], std::log(cv.a_n + cv.u[At(i)]), 1e-15);
    // A step below the termination test is applied but reports no movement.
    std::vector<double> tiny(At(n), 1e-6);
    EXPECT_EQ(clamping_u_or_v(cv, tiny, 0.5, -1), 0);
}

// ---------------------------------------------------------------------------------------------------
// Whole solves.

TEST(Schemes, SeparateAndLumpedCarrierBlocksReachTheSameForwardBiasState) {
    InputParameters in = ThreeLayerCell();
    auto separate = Make(in);
    in.convergence.methodChoice = 12;
    auto lumped = Make(in);
    for (Problem* p : {separate.get(), lumped.get()}) {
        equilibrium(*p->cv);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        volgende_iv_punt(*p->cv, 0.0, 0.6, 7);
        ASSERT_EQ(CONVERGENTIEFALING, 0);
        extraheer_stroom(*p->cv, 0);
    }
    EXPECT_EQ(lumped->P->convergence.method, 12);
    const CalculationVariables &a = *separate->cv, &b = *lumped->cv;
    EXPECT_NEAR(b.J_median / a.J_median, 1.0, 1e-3);
    for (int i = 0; i < separate->n(); ++i) {
        ASSERT_NEAR(a.psi[At(i)], b.psi[At(i)], 2e-3) << i;
        ASSERT_NEAR(a.EFn[At(i)], b.EFn[At(i)], 2e-3) << i;
        ASSERT_NEAR(a.EFp[At(i)], b.EFp[At(i)], 2e-3) << i;
    }
}

TEST(Schemes, ASolveStartedFromItsOwnSolutionEndsInTheFirstPassWithoutSteps) {
    auto p = Make(ThreeLayerCell());
    CalculationVariables& cv = *p->cv;
    equilibrium(cv);
    volgende_iv_punt(cv, 0.0, 0.5, 6);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    ASSERT_EQ(los_totaal_dc_stelsel_op_Gummel(cv), 0);
    EXPECT_EQ(cv.iteration_count, 1);
    EXPECT_EQ(cv.psi_iterations, 0);
    EXPECT_EQ(cv.u_iterations, 0);
    EXPECT_EQ(cv.v_iterations, 0);
}

TEST(Interfaces, ThermionicCurrentOverAHeterointerfaceEqualsTheLinkCurrentsBesideIt) {
    auto p = Make(ThreeLayerCell());
    CalculationVariables& cv = *p->cv;
    equilibrium(cv);
    volgende_iv_punt(cv, 0.0, 0.5, 6);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
    const int saved = calculation_of_current;
    calculation_of_current = 0; // the link currents as they are
    extraheer_stroom(cv, 0);
    calculation_of_current = saved;
    const double J = std::fabs(cv.J_median);
    for (int j = 0; j < 2; ++j) {
        const int last = cv.mesh.last_point[At(j)], first = cv.mesh.first_point[At(j + 1)];
        const double jn = thermionic_current_n(cv, j), jp = thermionic_current_p(cv, j);
        // Between the middle of the last link of one layer, the interface and the middle of the first
        // link of the next only the recombination of two half links of 0.1 nm is lost.
        EXPECT_NEAR(jn, j_n[At(last - 1)], 1e-3 * J) << "electrons, interface " << j;
        EXPECT_NEAR(jn, j_n[At(first)], 1e-3 * J) << "electrons, interface " << j;
        EXPECT_NEAR(jp, j_p[At(last - 1)], 1e-3 * J) << "holes, interface " << j;
        EXPECT_NEAR(jp, j_p[At(first)], 1e-3 * J) << "holes, interface " << j;
        // Electrons injected into the absorber carry the current; the valence-band offset of
        // 0.95 eV blocks the holes.
        EXPECT_GT(std::fabs(jn), 0.9 * J);
    }
}

} // namespace
} // namespace tervo
