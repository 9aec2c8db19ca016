// The coupled Newton iteration: its Jacobian against finite differences of the residuals on a junction
// where every term is at work, its block solve against a dense LU solve, its solution (and that of the
// lumped carrier blocks) against a tightly converged Gummel solution, and its policies at the limit.
#include "solver/coupled_newton.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/messages.h"
#include "run/results/extraction.h"
#include "run/sweeps/point_recovery.h"
#include "solver/bulk_recombination.h"
#include "solver/gummel.h"
#include "solver/interface_recombination.h"
#include "support/test_cells.h"

namespace tervo {
namespace {

using namespace defect_test;

// A p-type absorber with an acceptor-like defect, a window of wider gap and an acceptor trap at the
// interface, under light at 0.4 V forward bias (after a ramp of the light, as the driver does it).
std::unique_ptr<Device> LitJunction(int halfCellTerms = 0, int scheme = 11, double termination = 1e-3) {
    const Material absorber{1.15, 4.5, 13.6, 2.2e24, 1.8e25, 0.01, 0.0025, 1e5, 1e-16};
    Material window = absorber;
    window.Eg = 2.4, window.chi = 4.3, window.eps = 10;
    InputParameters in = Stack({{absorber, 1e-6, 0, 1e22}, {window, 0.1e-6, 5e23, 0}});
    AddDefect(in.cellParas.layer[0], DEFECT_ACCEPTOR, 1, 1e21, 1e-19, 3e-19, {0.5, 0, 0, 0});
    AddInterfaceDefect(in, DEFECT_ACCEPTOR, 1e16, 0.6);
    ConvergenceParameters& c = in.convergence;
    c.interfaceBoxTerms = halfCellTerms;
    c.coupling_scheme = scheme;
    c.gummelPassesFirst = 2;
    c.termination_psi = c.termination_Fn = c.termination_Fp = termination;
    auto d = Build(in);
    equilibrium(*d->cv);
    for (const double G : {1e17, 1e22, 1e27}) {
        d->Illuminate(G);
        onder_belichting(*d->cv);
        EXPECT_EQ(CONVERGENTIEFALING, 0) << G;
    }
    WalkTo(*d->cv, 0.4);
    return d;
}

// Minus the derivative of the three residuals by variable c (0 psi, 1 u, 2 v) at point k, by central
// differences.  With `holdInterface` the interface terms keep their values of the unperturbed state.
void DifferenceColumn(CalculationVariables& cv, int k, int c, bool holdInterface, Phiuv_row& out) {
    const size_t K = At(k);
    double* x = c == 0 ? &cv.psi[K] : (c == 1 ? &cv.u[K] : &cv.v[K]);
    const double x0 = *x;
    const double h = 1e-4 * (c == 0 ? 1.0 : std::fabs(x0 + (c == 1 ? cv.a_n : cv.a_p)));
    auto residuals = [&](double value, double sign) {
        *x = value;
        update_psivar(cv);
        cv.EFn[K] = std::log(cv.a_n + cv.u[K]);
        cv.EFp[K] = -std::log(cv.a_p + cv.v[K]);
        InitialiseTunnelCurrent(cv, 0);
        ASSERT_GE(totale_rdcbijdrage_multilevel(cv), 0);
        if (!holdInterface) totale_ifrdcbijdrage(cv);
        MeshArray F;
        for (int r = 0; r < 3; ++r) {
            (r == 0   ? bereken_stelsel_psi_Gummel
             : r == 1 ? bereken_stelsel_u_Gummel
                      : bereken_stelsel_v_Gummel)(cv, F);
            for (int i = 0; i < cv.mesh.n_points; ++i) out[i][r] += -sign * F[At(i)] / (2 * h);
        }
    };
    out = Phiuv_row{};
    residuals(x0 + h, 1);
    residuals(x0 - h, -1);
    residuals(x0, 0);
}

// Every element of the coupled Jacobian against the differences, column by column.  An error counts
// against 1e-6 of the element plus 1e-10 of its row, each element weighed by what it contributes for
// a change of 1 kT in the potential or in the quasi-Fermi level of its column: the differences of
// small elements in rows of large ones are lost in rounding.  Elements that the Jacobian leaves out
// by design are passed over (`skip`).  The worst error in units of that tolerance is returned.
template <typename Skip>
double WorstDifference(Device& d, bool holdInterface, Skip skip, std::string& where) {
    CalculationVariables& cv = *d.cv;
    const MeshBlock& m = cv.mesh;
    const int n = m.n_points;
    auto s = std::make_unique<CoupledSystem>();
    EXPECT_TRUE(RefreshRecombination(cv));
    bereken_stelsel_phiuv(cv, *s);
    auto step = [&](int k, int c) {
        return k < 0 || k >= n ? 0.0 : c == 0 ? 1.0 : c == 1 ? cv.a_n + cv.u[At(k)] : cv.a_p + cv.v[At(k)];
    };
    // The element of row (i, r) by variable c at point k.
    auto element = [&](int i, int r, int c, int k) {
        const size_t I = At(i), R = At(r), C = At(c);
        if (k == i - 1) return s->J.sub[I][R][C];
        if (k == i) return s->J.main[I][R][C];
        if (k == i + 1) return s->J.super[I][R][C];
        return k == i + 2 && i == m.last_point[0] ? s->coupling[0][R][C] : 0.0;
    };
    const auto column = std::make_unique<Phiuv_row>();
    double worst = 0;
    for (int c = 0; c < 3; ++c) {
        for (int k = 0; k < n; ++k) {
            DifferenceColumn(cv, k, c, holdInterface, *column);
            for (int i = std::max(0, k - 2); i <= std::min(n - 1, k + 2); ++i) {
                for (int r = 0; r < 3; ++r) {
                    if (skip(i, r, c, k)) continue;
                    double rowScale = 0;
                    for (int cc = 0; cc < 3; ++cc)
                        for (int kk = i - 1; kk <= i + 2; ++kk)
                            rowScale += std::fabs(element(i, r, cc, kk)) * step(kk, cc);
                    const double a = element(i, r, c, k), f = (*column)[i][r];
                    const double size = std::max(std::fabs(a), std::fabs(f));
                    const double error =
                        std::fabs(a - f) * step(k, c) / (1e-10 * rowScale + 1e-6 * size * step(k, c));
                    if (error > worst) {
                        worst = error;
                        std::ostringstream o;
                        o << std::setprecision(12) << "row " << i << "." << r << ", column " << k << "." << c
                          << ": " << a << " against " << f;
                        where = o.str();
                    }
                }
            }
        }
    }
    return worst;
}

TEST(CoupledJacobian, EveryElementIsMinusTheDerivativeOfItsResidual) {
    // The Jacobian leaves out how the interface rates depend on psi and how the Poisson row over the
    // interface depends on u and v through the trap charge.  Everything else must be exact.
    const auto d = LitJunction();
    const MeshBlock& m = d->cv->mesh;
    const int e = m.n_points - 1, iL = m.last_point[0], iR = m.first_point[1];
    std::string where;
    const double worst = WorstDifference(
        *d, false,
        [&](int i, int r, int c, int k) {
            // The contact potentials are fixed: their rows have no derivative.  The trap charge moves with
            // psi at both interface points, which the row takes as one.
            if (r == 0) return i == 0 || i == e || (i == iL && (c != 0 || k == iL || k == iR));
            return c == 0 && (i == iL || i == iR);
        },
        where);
    EXPECT_LT(worst, 1.0) << where;
    // With the interface terms held, the elements of the carrier rows by psi at the interface are
    // exact as well.
    const double held = WorstDifference(
        *d, true, [&](int i, int r, int c, int) { return r == 0 || c != 0 || (i != iL && i != iR); }, where);
    EXPECT_LT(held, 1.0) << where;
}

// A random diagonally dominant block tridiagonal system of B x B blocks, into `A` and `rhs` and into
// the dense matrix D; the right-hand side of D is returned.
template <int B, typename Blocks, typename Row>
std::vector<double> RandomBlockSystem(int n, Blocks& A, Row& rhs, matrix& D, std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
    std::vector<double> b(At(B * n));
    for (int i = 0; i < n; ++i) {
        for (int r = 0; r < B; ++r) {
            for (int c = 0; c < B; ++c) {
                A.main[At(i)][r][c] = D[B * i + r][B * i + c] = (r == c ? 2 * B : 0) + u(rng);
                if (i > 0) A.sub[At(i)][r][c] = D[B * i + r][B * (i - 1) + c] = u(rng);
                if (i + 1 < n) A.super[At(i)][r][c] = D[B * i + r][B * (i + 1) + c] = u(rng);
            }
            b[At(B * i + r)] = rhs[i][r] = u(rng);
        }
    }
    return b;
}

std::vector<double> DenseSolve(matrix D, std::vector<double> b) {
    std::vector<int> pivot;
    EXPECT_EQ(lu_decomposition(D, pivot), 0);
    lu_solve(D, pivot, b.data());
    return b;
}

TEST(BlockSolvers, TwoAndThreeByThreeBlocksWithInterfaceCouplingAgreeWithDenseLUAndRefuseASingularBlock) {
    std::mt19937 rng(11);
    const int n = 22;
    uv_trimatrix A2(n);
    uv_row rhs2(n), x2(n);
    matrix D2(2 * n, 2 * n);
    std::vector<double> b2 = RandomBlockSystem<2>(n, A2, rhs2, D2, rng);
    b2 = DenseSolve(D2, b2);
    ASSERT_EQ(tridiagonal_2x2(A2, rhs2, x2, n), 0);
    for (int i = 0; i < 2 * n; ++i) EXPECT_NEAR(x2[i / 2][i % 2], b2[At(i)], 1e-12) << i;

    MeshBlock mesh; // three layers of 7, 9 and 6 points
    mesh.number_of_layers = 3;
    mesh.n_points = n;
    mesh.first_point = {0, 7, 16};
    mesh.last_point = {6, 15, 21};
    auto A = std::make_unique<Phiuv_trimatrix>();
    auto rhs = std::make_unique<Phiuv_row>(), x = std::make_unique<Phiuv_row>();
    matrix D(3 * n, 3 * n);
    std::vector<double> b = RandomBlockSystem<3>(n, *A, *rhs, D, rng);
    Phiuv_coupling_row coupling{};
    coupling[0][0][0] = D[3 * 6][3 * 8] = 0.7; // the second interface keeps a zero coupling
    b = DenseSolve(D, b);
    ASSERT_EQ(tridiagonal_3x3(*A, coupling, *rhs, *x, mesh), 0);
    for (int i = 0; i < 3 * n; ++i) EXPECT_NEAR((*x)[i / 3][i % 3], b[At(i)], 1e-12) << i;

    A2.main[0] = matrix_2x2{};
    A->main[0][2] = {0, 0, 0};
    EXPECT_EQ(tridiagonal_2x2(A2, rhs2, x2, n), -1);
    EXPECT_EQ(tridiagonal_3x3(*A, coupling, *rhs, *x, mesh), -1);
    matrix zero(2, 2); // the dense reference refuses a singular matrix too
    std::vector<int> pivot;
    EXPECT_EQ(lu_decomposition(zero, pivot), -1);
}

TEST(Schemes, LumpedAndCoupledBlocksMeetATightGummelSolutionAndTheCoupledLimitFollowsItsPolicy) {
    // The Gummel blocks end where their steps fall below 1e-3 kT, which leaves currents a few 1e-4 off a
    // tightly converged solution at high injection; the coupled iteration applies its last Newton step
    // and lands closer.  The half-cell terms are on: the coupled Jacobian leaves out some of their
    // derivatives, and the Newton iteration must still converge in a few steps.
    // The schemes as they stand, without the coupled finish that the sweep recovery gives a solve.
    const int recovery = sweepRecovery;
    sweepRecovery = 0;
    auto tight = LitJunction(1, 11, 1e-8), lumped = LitJunction(1, 12), coupled = LitJunction(1, 14);
    for (const double V : {0.6, 0.75, 0.85}) {
        for (Device* d : {tight.get(), lumped.get(), coupled.get()}) {
            WalkTo(*d->cv, V);
            extraheer_stroom(*d->cv, 0);
        }
        EXPECT_NEAR(lumped->cv->J_median / tight->cv->J_median, 1.0, 1e-3) << V;
        EXPECT_NEAR(coupled->cv->J_median / tight->cv->J_median, 1.0, 1e-4) << V;
        EXPECT_EQ(lumped->P->convergence.active_scheme, 12);
        EXPECT_EQ(coupled->P->convergence.active_scheme, 13);
        EXPECT_EQ(coupled->cv->iteration_count, 2) << "one pass of the blocks, one coupled";
        EXPECT_LE(coupled->cv->coupled_iterations, 5);
    }
    // At its limit, from a state kicked by 2 kT: policy 1 reports and fails, 4 goes on.
    CalculationVariables& cv = *coupled->cv;
    coupled->P->convergence.maxiter_psi = 1;
    for (const int policy : {1, 4}) {
        for (int i = 1; i < cv.mesh.n_points - 1; ++i) cv.psi[At(i)] += 2 * std::sin(M_PI * cv.mesh.x[At(i)]);
        update_psivar(cv);
        coupled->P->convergence.failAction_psi = policy;
        ClearReportedMessages();
        EXPECT_EQ(fully_coupled_iteration(cv), policy == 1 ? -1 : 0);
        EXPECT_EQ(cv.v_iterations, policy == 1 ? -1 : 2);
        ASSERT_EQ(ReportedMessages().size(), policy == 1 ? 1u : 0u);
        for (const ReportedMessage& m : ReportedMessages())
            EXPECT_EQ(m.text.substr(0, 107),
                      "Max no of iterations exceeded during fully coupled calculation of "
                      "variables psi, u and v\nIteration count: 2");
    }
    sweepRecovery = recovery;
}

} // namespace
} // namespace tervo
