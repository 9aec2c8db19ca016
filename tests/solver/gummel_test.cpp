// The Gummel iteration: its tridiagonal solvers against a dense LU solve, the limits on the Newton steps, the
// current over a heterointerface, a restart from a solution, the ends of the outer loop, and the policies at
// the limit of an inner iteration.
#include "solver/gummel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include "platform/messages.h"
#include "run/results/extraction.h"
#include "solver/interface_recombination.h"
#include "solver/small_linalg.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

using namespace defect_test;

// p-type absorber, thin n-type window of wider gap and lower affinity, n+ contact layer; radiative
// recombination throughout.
InputParameters ThreeLayerCell() {
    Material absorber{1.15, 4.5, 13.6, 2.2e24, 1.8e25, 0.01, 0.0025, 1e5, 1e-16};
    Material window = absorber, contact = absorber;
    window.Eg = 2.4, window.chi = 4.2, window.eps = 10;
    contact.Eg = 3.3, contact.chi = 4.4, contact.eps = 9;
    return Stack({{absorber, 2e-6, 0, 2e22}, {window, 0.05e-6, 5e22, 0}, {contact, 0.2e-6, 1e24, 0}});
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

TEST(LinearSolvers, ThomasWithAndWithoutInterfaceElementsAgreesWithDenseLUAndReportsAZeroPivot) {
    auto p = Build(ThreeLayerCell());
    const CalculationVariables& cv = *p->cv;
    const int n = p->points();
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
    // A zero pivot is reported with its mesh point: row 1 eliminated against row 0 leaves
    // 2 - 1 * 2 = 0.
    for (int i = 0; i < n; ++i) J[i] = {1.0, 2.0, 1.0};
    J[0] = {0.0, 1.0, 2.0};
    std::fill(rhs.begin(), rhs.end(), 1.0);
    ASSERT_EQ(bereken_delta_u_of_v_Gummel(*p->cv, J, rhs, delta), -1);
    EXPECT_EQ(LastLUDecompositionError(),
              "bereken_delta_u_of_v_Gummel: alpha = 0 during forward substitution, meshpoint i = 1 ");
    J[0] = {0.0, 0.0, 1.0};
    InterfaceExtra none{};
    ASSERT_EQ(bereken_delta_psi_Gummel(*p->cv, J, none, rhs, delta), -1);
    EXPECT_EQ(LastLUDecompositionError(),
              "bereken_delta_psi_Gummel: main[0] = 0 at left contact, at start algorithm");
}

// ---------------------------------------------------------------------------------------------------
// Limits on the Newton steps.

TEST(Clamping, PotentialStepKeepsItsShapeAndCarrierStepsStayWithinTheirQuasiFermiLimit) {
    auto p = Build(ThreeLayerCell());
    CalculationVariables& cv = *p->cv;
    const int n = p->points();
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

// The cell solved at 0.5 V forward bias.
std::unique_ptr<Device> SolvedAtHalfAVolt() {
    auto p = Build(ThreeLayerCell());
    equilibrium(*p->cv);
    volgende_iv_punt(*p->cv, 0.0, 0.5, 6);
    EXPECT_EQ(CONVERGENTIEFALING, 0);
    return p;
}

TEST(Schemes, InterfaceCurrentsMatchTheLinksARestartEndsAtOnceAndARepeatedCurrentEndsTheSolve) {
    auto p = SolvedAtHalfAVolt();
    CalculationVariables& cv = *p->cv;
    // The thermionic current over each heterointerface equals the link currents beside it.
    const int saved = calculation_of_current;
    calculation_of_current = 0; // the link currents as they are
    extraheer_stroom(cv, 0);
    calculation_of_current = saved;
    const double scale = std::fabs(cv.J_median);
    for (int j = 0; j < 2; ++j) {
        const int last = cv.mesh.last_point[At(j)], first = cv.mesh.first_point[At(j + 1)];
        const double jn = thermionic_current_n(cv, j), jp = thermionic_current_p(cv, j);
        // Between the middle of the last link of one layer, the interface and the middle of the first
        // link of the next only the recombination of two half links of 0.1 nm is lost.
        EXPECT_NEAR(jn, j_n[At(last - 1)], 1e-3 * scale) << "electrons, interface " << j;
        EXPECT_NEAR(jn, j_n[At(first)], 1e-3 * scale) << "electrons, interface " << j;
        EXPECT_NEAR(jp, j_p[At(last - 1)], 1e-3 * scale) << "holes, interface " << j;
        EXPECT_NEAR(jp, j_p[At(first)], 1e-3 * scale) << "holes, interface " << j;
        // Electrons injected into the absorber carry the current; the valence-band offset of
        // 0.95 eV blocks the holes.
        EXPECT_GT(std::fabs(jn), 0.9 * scale);
    }
    // Started from its own solution the solve ends in the first pass without a step.
    ASSERT_EQ(los_totaal_dc_stelsel_op_Gummel(cv), 0);
    EXPECT_EQ(std::tuple(cv.iteration_count, cv.psi_iterations, cv.u_iterations, cv.v_iterations),
              std::tuple(1, 0, 0, 0));
    // Inner iterations that can never meet their termination test move in every pass, so only the
    // total current can end the solve before the pass limit.  It is first formed in pass 6 (over a
    // quarter of 20) and repeats in pass 7; without that test the point would fail at the limit.
    extraheer_stroom(cv, 0);
    const double J = cv.J_median;
    ConvergenceParameters& c = p->P->convergence;
    c.maxiter = 20;
    c.termination_psi = c.termination_Fn = c.termination_Fp = 0;
    c.maxiter_psi = c.maxiter_u = c.maxiter_v = 2;
    c.failAction_psi = c.failAction_u = c.failAction_v = 4;
    ASSERT_EQ(los_totaal_dc_stelsel_op_Gummel(cv), 0);
    EXPECT_EQ(cv.iteration_count, 7);
    EXPECT_EQ(cv.psi_iterations, 3) << "psi still moved in the last pass";
    extraheer_stroom(cv, 0);
    EXPECT_NEAR(cv.J_median / J, 1.0, 1e-5) << "the extra passes only refine the solution";
}

TEST(IterationLimit, EachPolicyReportsFailsOrGoesOnWithTheLastIterate) {
    // At the limit of an inner iteration: policy 1 reports and fails, 2 fails, 3 reports and goes on,
    // 4 goes on.  A failure marks the count -1; psi fails by its count alone, the carriers also by the
    // result, and the separate carrier iteration marks the whole point as failed.  Going on keeps
    // the iterate reached and counts one step over the limit.  A solve under policy 3 or 4 must end
    // with a usable state, under 1 or 2 the sweep must see the failure.
    auto p = SolvedAtHalfAVolt();
    CalculationVariables& cv = *p->cv;
    ConvergenceParameters& c = p->P->convergence;
    // Kick psi and the electrons by 2 kT in the middle of the absorber: more than one step to undo.
    for (int i = 1; i < cv.mesh.last_point[0]; ++i) {
        const double bump = 2 * std::sin(M_PI * cv.mesh.x[At(i)] / cv.mesh.x[At(cv.mesh.last_point[0])]);
        cv.psi[At(i)] += bump;
        cv.u[At(i)] = (cv.a_n + cv.u[At(i)]) * std::exp(bump) - cv.a_n;
        cv.EFn[At(i)] += bump;
    }
    update_psivar(cv);
    const auto kicked = std::make_unique<CalculationVariables>(cv);
    c.maxiter_psi = c.maxiter_u = 1;
    struct Row {
        int policy, messages;
        bool fails;
    };
    // Each inner iteration from the kicked state, with the messages it reported.
    auto run = [&](auto iteration, const char* title) {
        *p->cv = *kicked;
        cv.iteration_count = 5;
        ClearReportedMessages();
        const int result = iteration();
        for (const ReportedMessage& m : ReportedMessages()) EXPECT_EQ(m.title, title);
        return std::pair(result, ReportedMessages().size());
    };
    const size_t mid = At(cv.mesh.last_point[0] / 2);
    for (const Row row : {Row{1, 1, true}, Row{2, 0, true}, Row{3, 1, false}, Row{4, 0, false}}) {
        SCOPED_TRACE(row.policy);
        c.failAction_psi = c.failAction_u = c.failAction_v = row.policy;
        const int count = row.fails ? -1 : 2;
        const auto expected = std::pair(0, At(row.messages));
        EXPECT_EQ(run([&] { return psi_iteratie_Gummel(cv, 0); }, "Error in psi_iteratie_Gummel()"),
                  expected);
        EXPECT_EQ(cv.psi_iterations, count);
        EXPECT_NE(cv.psi[mid], kicked->psi[mid]);
        EXPECT_EQ(cv.iteration_count, 5);
        if (row.messages) {
            EXPECT_EQ(ReportedMessages()[0].text, "Max no of iterations exceeded during Gummel-calculation "
                                                  "of variable psi\nIteration count: 1");
        }
        const auto failed = std::pair(row.fails ? -1 : 0, At(row.messages));
        EXPECT_EQ(run([&] { return u_or_v_iteratie_Gummel(cv, -1); }, "Error in u_or_v_iteratie_Gummel()"),
                  failed);
        EXPECT_EQ(cv.u_iterations, count);
        EXPECT_EQ(cv.iteration_count, row.fails ? -1 : 5);
        EXPECT_NE(cv.u[mid], kicked->u[mid]);
        if (row.messages) {
            EXPECT_EQ(ReportedMessages()[0].text.rfind(
                          "Max no of iterations exceeded during Gummel-calculation "
                          "of variable 'u' (function of electron density)\nMax. dEFn: ",
                          0),
                      0u);
        }
        EXPECT_EQ(run([&] { return uv_iteratie_Gummel(cv); }, "Error in uv_iteratie_Gummel()"), failed);
        EXPECT_EQ(cv.u_iterations, count);
        EXPECT_EQ(cv.v_iterations, count);
        EXPECT_EQ(cv.iteration_count, 5) << "the lumped iteration leaves the mark to the outer loop";
    }
}

} // namespace
} // namespace tervo
