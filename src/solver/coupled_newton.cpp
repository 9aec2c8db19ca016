#include "solver/coupled_newton.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <span>
#include <string>

#include "cell/working_settings.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "setup/generation.h"
#include "solver/bulk_recombination.h"
#include "solver/gummel.h"

namespace tervo {

namespace {

// Positions of the variables in a block.
constexpr int PSI = 0, U = 1, V = 2;

// The scratch of the coupled iteration, made at its first use and kept for the life of the process:
// a Newton step allocates nothing.
CoupledSystem& Scratch() {
    static const std::unique_ptr<CoupledSystem> scratch = std::make_unique<CoupledSystem>();
    return *scratch;
}

// The couplings of electrons and holes through the recombination, in the rows of u and v: the bulk
// rate at inner points, the rates of the interface defects at the two points of an interface.  `iu`
// and `iv` are the positions of u and v in a block, so that the lumped 2x2 carrier system and the
// 3x3 coupled one share these elements.  Contact rows have none.
template <typename Blocks>
void CarrierCrossDerivatives(const CalculationVariables& cv, Blocks& blocks, int iu, int iv) {
    const CalculationParameters& P = *cv.parameters;
    const RecDcTerms& dc = cv.recombination.dc;
    const IfrDcTerms& ifr = cv.recombination.ifr;
    const MeshBlock& mesh = cv.mesh;
    const size_t u = At(iu), v = At(iv);
    const int layers = std::clamp(mesh.number_of_layers, 0, MAX_LAYERS);
    const int e = MeshPoints(cv) - 1;
    for (int j = 0; j < layers; ++j) {
        const int first = mesh.first_point[At(j)];
        const int last = mesh.last_point[At(j)];
        const double Db = (P.D_n[At(last)] + P.D_n[At(first)]) / 2;
        const double Dpb = (P.D_p[At(last)] + P.D_p[At(first)]) / 2;
        for (int i = first; i <= last; ++i) {
            const size_t I = At(i);
            if (i == 0 || i == e) continue;
            if (i == first) {
                const size_t k = At(j - 1);
                const double wn = 2 * mesh.h[I] / (P.D_n[I + 1] + P.D_n[I]);
                const double wp = 2 * mesh.h[I] / (P.D_p[I + 1] + P.D_p[I]);
                blocks.sub[I][u][v] = cv.exp_min_psi[I] * wn * ifr.dRn_right_dv_left[k] / P.Nc_eff[I];
                blocks.main[I][u][v] = cv.exp_min_psi[I] * wn * ifr.dRn_right_dv_right[k] / P.Nc_eff[I];
                blocks.sub[I][v][u] = cv.exp_psi[I] * wp * ifr.dRp_right_du_left[k] / P.Nv_eff[I];
                blocks.main[I][v][u] = cv.exp_psi[I] * wp * ifr.dRp_right_du_right[k] / P.Nv_eff[I];
            } else if (i == last) {
                const size_t k = At(j);
                const double wn = 2 * mesh.h[I - 1] / (P.D_n[I - 1] + P.D_n[I]);
                const double wp = 2 * mesh.h[I - 1] / (P.D_p[I - 1] + P.D_p[I]);
                blocks.main[I][u][v] = cv.exp_min_psi[I] * wn * ifr.dRn_left_dv_left[k] / P.Nc_eff[I];
                blocks.super[I][u][v] = cv.exp_min_psi[I] * wn * ifr.dRn_left_dv_right[k] / P.Nc_eff[I];
                blocks.main[I][v][u] = cv.exp_psi[I] * wp * ifr.dRp_left_du_left[k] / P.Nv_eff[I];
                blocks.super[I][v][u] = cv.exp_psi[I] * wp * ifr.dRp_left_du_right[k] / P.Nv_eff[I];
            } else {
                const double hs = mesh.h[I - 1] + mesh.h[I];
                blocks.main[I][u][v] = cv.exp_min_psi[I] * hs * hs * dc.dR_dv[I] * 0.25 / (P.Nc_eff[I] * Db);
                blocks.main[I][v][u] = cv.exp_psi[I] * hs * hs * dc.dR_du[I] * 0.25 / (P.Nv_eff[I] * Dpb);
            }
        }
    }
}

// The derivatives by psi of the carrier rows, and by u and v of the inner Poisson rows.  In the
// carrier rows psi acts through the Bernoulli factors of the two links of a point and through the
// exp(-/+psi) that turns the rates of the box into the variable u or v; the interface rates
// themselves are held, as the rates of the half cells at contacts and interfaces are.
void PotentialCrossDerivatives(const CalculationVariables& cv, Phiuv_trimatrix& b) {
    const CalculationParameters& P = *cv.parameters;
    const RecDcTerms& dc = cv.recombination.dc;
    const IfrDcTerms& ifr = cv.recombination.ifr;
    const MeshBlock& mesh = cv.mesh;
    const double* u = cv.u.data();
    const double* v = cv.v.data();
    const int layers = std::clamp(mesh.number_of_layers, 0, MAX_LAYERS);
    const int e = MeshPoints(cv) - 1;
    if (e < 1) return;
    for (int j = 0; j < layers; ++j) {
        const int first = mesh.first_point[At(j)];
        const int last = mesh.last_point[At(j)];
        const double Db = (P.D_n[At(last)] + P.D_n[At(first)]) / 2;
        const double Dpb = (P.D_p[At(last)] + P.D_p[At(first)]) / 2;
        const double lambda = P.scale.lambda2[At(j)];
        for (int i = first; i <= last; ++i) {
            const size_t I = At(i);
            matrix_3x3& main = b.main[I];
            if (i == 0) {
                main[U][PSI] = (u[0] - u[1]) * cv.dBn_min[1];
                b.super[0][U][PSI] = -main[U][PSI];
                main[V][PSI] = -(v[0] - v[1]) * cv.dBp_plus[1];
                b.super[0][V][PSI] = -main[V][PSI];
            } else if (i == e) {
                main[U][PSI] = -(u[e - 1] - u[e]) * cv.dBn_plus[I];
                b.sub[I][U][PSI] = -main[U][PSI];
                main[V][PSI] = (v[e - 1] - v[e]) * cv.dBp_min[I];
                b.sub[I][V][PSI] = -main[V][PSI];
            } else if (i == first) {
                // First point of a layer after an interface: the link to the right, and the interface
                // rate of this side, which enters the row through exp(-psi) / Nc_eff (exp(psi) / Nv_eff).
                const double wn = 2 * mesh.h[I] / (P.D_n[I + 1] + P.D_n[I]);
                const double wp = 2 * mesh.h[I] / (P.D_p[I + 1] + P.D_p[I]);
                const double du = (u[i + 1] - u[i]) * cv.dBn_min[I + 1];
                const double dv = (v[i + 1] - v[i]) * cv.dBp_plus[I + 1];
                main[U][PSI] = -du - wn * (cv.exp_min_psi[I] / P.Nc_eff[I]) * ifr.Rn_right[At(j - 1)];
                b.super[I][U][PSI] = du;
                main[V][PSI] = dv + wp * (cv.exp_psi[I] / P.Nv_eff[I]) * ifr.Rp_right[At(j - 1)];
                b.super[I][V][PSI] = -dv;
            } else if (i == last) {
                // Last point of a layer before an interface.
                const double wn = 2 * mesh.h[I - 1] / (P.D_n[I - 1] + P.D_n[I]);
                const double wp = 2 * mesh.h[I - 1] / (P.D_p[I - 1] + P.D_p[I]);
                const double du = (u[i - 1] - u[i]) * cv.dBn_plus[I];
                const double dv = (v[i - 1] - v[i]) * cv.dBp_min[I];
                main[U][PSI] = -du - wn * (cv.exp_min_psi[I] / P.Nc_eff[I]) * ifr.Rn_left[At(j)];
                b.sub[I][U][PSI] = du;
                main[V][PSI] = dv + wp * (cv.exp_psi[I] / P.Nv_eff[I]) * ifr.Rp_left[At(j)];
                b.sub[I][V][PSI] = -dv;
            } else {
                const double hl = mesh.h[I - 1];
                const double hr = mesh.h[I];
                const double hs = hl + hr;
                const double r = dc.R[I] - (cv.generation != nullptr ? cv.generation->G[I] : 0.0);
                // Poisson: the free carriers and the charge in defects at fixed psi.
                main[PSI][U] = hs * hs * (cv.exp_psi[I] * P.Nc_eff[I] - dc.drho_du[I]) / (4 * lambda);
                main[PSI][V] = hs * hs * (-dc.drho_dv[I] - cv.exp_min_psi[I] * P.Nv_eff[I]) / (4 * lambda);
                // Electrons: X is the source term of the box (generation, recombination, tunnelling).
                const double Xn =
                    cv.btb_n_in[I] - hs * r / 2 - (cv.jn_tun[I] - cv.jn_tun[I - 1]) - cv.btb_n_out[I];
                const double Sn = cv.exp_min_psi[I] * (hs / 2) / (P.Nc_eff[I] * Db);
                const double Ln = 0.25 * cv.dBn_plus[I] * (hs / hl) * ((P.D_n[I - 1] + P.D_n[I]) / Db);
                const double Rn = 0.25 * cv.dBn_min[I + 1] * (hs / hr) * ((P.D_n[I + 1] + P.D_n[I]) / Db);
                main[U][PSI] =
                    Sn * (hs * dc.dR_dpsi[I] / 2 + Xn) - (u[i - 1] - u[i]) * Ln - (u[i + 1] - u[i]) * Rn;
                b.sub[I][U][PSI] = (u[i - 1] - u[i]) * Ln;
                b.super[I][U][PSI] = (u[i + 1] - u[i]) * Rn;
                // Holes.
                const double Xp =
                    cv.btb_p_in[I] - (cv.jp_tun[I] - cv.jp_tun[I - 1]) - cv.btb_p_out[I] - hs * r / 2;
                const double Sp = cv.exp_psi[I] * (hs / 2) / (P.Nv_eff[I] * Dpb);
                const double Lp = 0.25 * cv.dBp_min[I] * (hs / hl) * ((P.D_p[I - 1] + P.D_p[I]) / Dpb);
                const double Rp = 0.25 * cv.dBp_plus[I + 1] * (hs / hr) * ((P.D_p[I + 1] + P.D_p[I]) / Dpb);
                main[V][PSI] =
                    Sp * (hs * dc.dR_dpsi[I] / 2 - Xp) + (v[i - 1] - v[i]) * Lp + (v[i + 1] - v[i]) * Rp;
                b.sub[I][V][PSI] = -(v[i - 1] - v[i]) * Lp;
                b.super[I][V][PSI] = -(v[i + 1] - v[i]) * Rp;
            }
        }
    }
}

// Copies one of the three tridiagonal Jacobians onto the diagonal element `d` of the blocks.
void PlaceOnDiagonal(const trimatrix& J, int n, int d, Phiuv_trimatrix& b) {
    const size_t D = At(d);
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        b.sub[I][D][D] = J[i][0];
        b.main[I][D][D] = J[i][1];
        b.super[I][D][D] = J[i][2];
    }
}

// Each scalar row of the block system and its right-hand side divided by the largest magnitude in
// the row.  The rows of Poisson's equation and of the two continuity equations differ by many orders
// of magnitude in high injection (the carrier variables span e^40 and more through a thick absorber),
// and the block elimination without pivoting between blocks overflows or loses every digit unless the
// rows are brought to one scale.  The solution of the system is the same.
void EquilibrateRows(Phiuv_trimatrix& J, Phiuv_coupling_row& coupling, Phiuv_row& rhs,
                     const MeshBlock& mesh) {
    const int n = std::clamp(mesh.n_points, 0, MAX_MESH_POINTS);
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        // The layer whose last point this is, for the coupling element of its Poisson row.
        int layer = -1;
        for (int j = 0; j + 1 < mesh.number_of_layers; ++j)
            if (mesh.last_point[At(j)] == i) layer = j;
        for (size_t r = 0; r < 3; ++r) {
            double largest = 0;
            for (size_t c = 0; c < 3; ++c)
                largest = std::max({largest, std::fabs(J.sub[I][r][c]), std::fabs(J.main[I][r][c]),
                                    std::fabs(J.super[I][r][c])});
            if (layer >= 0) largest = std::max(largest, std::fabs(coupling[At(layer)][r][0]));
            if (!(largest > 0) || !std::isfinite(largest)) continue;
            const double f = 1.0 / largest;
            for (size_t c = 0; c < 3; ++c) {
                J.sub[I][r][c] *= f;
                J.main[I][r][c] *= f;
                J.super[I][r][c] *= f;
                if (layer >= 0) coupling[At(layer)][r][c] *= f;
            }
            rhs[I][r] *= f;
        }
    }
}

// The largest change of a carrier's quasi-Fermi level that a step asks for, over the points where the
// step is above the resolution of the carrier variable itself.  In high injection the offset of the
// variable (a_n or a_p, e^(V/kT) and more) nearly cancels the variable at the far contact, where the
// density is that of equilibrium: there the sum offset + w holds few digits, the elimination leaves a
// step of the size of that rounding, and the relative change it seems to ask for never falls below
// the termination.  Such a step is no movement.
double ResolvableStep(const CalculationVariables& cv, std::span<const double> step, int carrier) {
    const MeshArray& w = carrier < 0 ? cv.u : cv.v;
    const double offset = carrier < 0 ? cv.a_n : cv.a_p;
    const double resolution = 1e3 * std::numeric_limits<double>::epsilon();
    double largest = 0;
    for (size_t i = 0; i < At(MeshPoints(cv)); ++i) {
        const double scale = std::max(std::fabs(w[i]), std::fabs(offset));
        if (std::fabs(step[i]) <= resolution * scale) continue;
        const double ratio = step[i] / (offset + w[i]);
        largest = std::max(largest, ratio > -1 ? std::fabs(std::log1p(ratio)) : HUGE_VAL);
    }
    return largest;
}

bool AllFinite(const Phiuv_row& x, int n) {
    for (int i = 0; i < n; ++i)
        if (!std::isfinite(x[i][PSI]) || !std::isfinite(x[i][U]) || !std::isfinite(x[i][V])) return false;
    return true;
}

// The report at the limit of the coupled iteration.
std::string LimitReport(const CalculationVariables& cv, int count) {
    std::string text =
        "Max no of iterations exceeded during fully coupled calculation of variables psi, u and v";
    Fmt(text, "%s[a]<\nIteration count: %i", count);
    Fmt(text, "%s[a]<\nmaximum psi : %f[w10p2e2]", cv.max_dpsi);
    Fmt(text, "%s[a]<\nmaximum dEFn: %f[w10p2e2]", cv.max_dEFn);
    Fmt(text, "%s[a]<\nmaximum dEFp: %f[w10p2e2]", cv.max_dEFp);
    Fmt(text, "%s[a]<\nNumber of sparse elements: %i", 0);
    return text;
}

} // namespace

// ---------------------------------------------------------------------------------------------------

void AddCrossDerivativesToJacobian2x2(CalculationVariables& cv, uv_trimatrix& blocks) {
    CarrierCrossDerivatives(cv, blocks, 0, 1);
}

void AddCrossDerivativesToJacobian3x3(CalculationVariables& cv, Phiuv_trimatrix& blocks) {
    CarrierCrossDerivatives(cv, blocks, U, V);
    PotentialCrossDerivatives(cv, blocks);
}

void bereken_stelsel_phiuv(CalculationVariables& cv, CoupledSystem& s) {
    const int n = MeshPoints(cv);
    bereken_jac_psi_Gummel(cv, s.Jpsi, s.extra);
    bereken_jac_u_Gummel(cv, s.Ju);
    bereken_jac_v_Gummel(cv, s.Jv);
    for (int i = 0; i < n; ++i) s.J.sub[At(i)] = s.J.main[At(i)] = s.J.super[At(i)] = matrix_3x3{};
    PlaceOnDiagonal(s.Jpsi, n, PSI, s.J);
    PlaceOnDiagonal(s.Ju, n, U, s.J);
    PlaceOnDiagonal(s.Jv, n, V, s.J);
    for (int j = 0; j < MAX_LAYERS; ++j) {
        s.coupling[At(j)] = matrix_3x3{};
        if (j < MAX_INTERFACES) s.coupling[At(j)][PSI][PSI] = s.extra[At(j)];
    }
    AddCrossDerivativesToJacobian3x3(cv, s.J);

    bereken_stelsel_psi_Gummel(cv, s.F);
    for (int i = 0; i < n; ++i) s.rhs[i][PSI] = s.F[At(i)];
    bereken_stelsel_u_Gummel(cv, s.F);
    for (int i = 0; i < n; ++i) s.rhs[i][U] = s.F[At(i)];
    bereken_stelsel_v_Gummel(cv, s.F);
    for (int i = 0; i < n; ++i) s.rhs[i][V] = s.F[At(i)];
}

int tridiagonal_3x3(const Phiuv_trimatrix& A, const Phiuv_coupling_row& coupling, const Phiuv_row& rhs,
                    Phiuv_row& x, const MeshBlock& mesh) {
    const int n = std::clamp(mesh.n_points, 0, MAX_MESH_POINTS);
    const int layers = std::clamp(mesh.number_of_layers, 0, MAX_LAYERS);
    if (n == 0) return 0;
    // G[i] takes the place of the super-diagonal block of row i-1 after elimination; E[j] that of the
    // interface coupling of the last row of layer j, which reaches over the first point of layer j+1.
    std::array<matrix_3x3, MAX_MESH_POINTS> G;
    std::array<matrix_3x3, MAX_LAYERS> E{};
    matrix_3x3 P = A.main[0];
    double det = determinant_3x3(P);
    if (det == 0.0) return -1;
    matrix_3x3 Pinv = invert_3x3(P, det);
    x[0] = multiply_3matrix_x_3vector(Pinv, rhs[0]);
    for (int j = 0; j < layers; ++j) {
        const int first = mesh.first_point[At(j)];
        const int last = mesh.last_point[At(j)];
        for (int i = std::max(first, 1); i <= last; ++i) {
            const size_t I = At(i);
            G[I] = multiply_3matrix_x_3matrix(Pinv, A.super[I - 1]);
            // Eliminating the interface row from the first row of this layer carried the interface
            // coupling, which reaches this point, into that row's super-diagonal block.
            if (j > 0 && i == first + 1)
                G[I] = subtract_3x3(G[I], multiply_3matrix_x_3matrix(
                                              Pinv, multiply_3matrix_x_3matrix(A.sub[I - 1], E[At(j - 1)])));
            P = subtract_3x3(A.main[I], multiply_3matrix_x_3matrix(A.sub[I], G[I]));
            det = determinant_3x3(P);
            if (det == 0.0) return -1;
            Pinv = invert_3x3(P, det);
            x[i] = multiply_3matrix_x_3vector(
                Pinv, subtract_3x1(rhs[i], multiply_3matrix_x_3vector(A.sub[I], x[i - 1])));
            if (i == last && j + 1 < layers) E[At(j)] = multiply_3matrix_x_3matrix(Pinv, coupling[At(j)]);
        }
    }
    for (int j = layers - 1; j >= 0; --j) {
        const int first = mesh.first_point[At(j)];
        const int last = mesh.last_point[At(j)];
        for (int i = last; i >= first; --i) {
            if (i < n - 1) x[i] = subtract_3x1(x[i], multiply_3matrix_x_3vector(G[At(i + 1)], x[i + 1]));
            if (i == last && j + 1 < layers)
                x[i] = subtract_3x1(x[i], multiply_3matrix_x_3vector(E[At(j)], x[i + 2]));
        }
    }
    return 0;
}

int bereken_delta_phiuv(CalculationVariables& cv, const Phiuv_trimatrix& J,
                        const Phiuv_coupling_row& coupling, const Phiuv_row& rhs, Phiuv_row& delta) {
    return tridiagonal_3x3(J, coupling, rhs, delta, cv.mesh);
}

int fully_coupled_iteration(CalculationVariables& cv) {
    const ConvergenceParameters& c = cv.parameters->convergence;
    const bool recalculateMesh = meshSettings.recalculateMesh != 0;
    const int limit = c.maxiter_psi;
    const int policy = c.failAction_psi;
    CoupledSystem& s = Scratch();
    cv.psi_iterations = 0;
    int count = 0;
    int result = 0;
    for (;;) {
        if (!RefreshRecombination(cv)) {
            count = result = -1;
            break;
        }
        // Tunnelling adds no terms to these rows: this build has no tunnelling model.
        bereken_stelsel_phiuv(cv, s);
        const int n = MeshPoints(cv);
        // A step that is not finite (a pivot block near enough to singular, an overflow in the
        // exponentials) would pass every test below as "not moving": it is a failure.
        EquilibrateRows(s.J, s.coupling, s.rhs, cv.mesh);
        if (bereken_delta_phiuv(cv, s.J, s.coupling, s.rhs, s.delta) < 0 || !AllFinite(s.delta, n)) {
            count = result = -1;
            break;
        }

        // The potential: one factor on the whole step, so that its shape is kept.  The test counts a
        // step of exactly termination_psi as movement.
        for (int i = 0; i < n; ++i) s.step[At(i)] = s.delta[i][PSI] * c.damping_psi;
        const double m = maximum_psi_array(s.step, n);
        cv.max_dpsi = m;
        clamping_psi(cv, s.step, c.clamp_psi, m);
        const bool psiMoving = c.termination_psi <= m;
        for (int i = 0; i < n; ++i) cv.psi[At(i)] += s.step[At(i)];
        update_psivar(cv);
        // The carriers, each limited in its quasi-Fermi level.  A carrier moves only where its step is
        // above the resolution of its own variable (see ResolvableStep).
        for (int i = 0; i < n; ++i) s.step[At(i)] = s.delta[i][U] * c.damping_n;
        const bool uResolved = ResolvableStep(cv, s.step, -1) > c.termination_Fn;
        const bool uMoving = clamping_u_or_v(cv, s.step, c.clamp_n, -1) != 0 && uResolved;
        for (int i = 0; i < n; ++i) s.step[At(i)] = s.delta[i][V] * c.damping_p;
        const bool vResolved = ResolvableStep(cv, s.step, 1) > c.termination_Fp;
        const bool vMoving = clamping_u_or_v(cv, s.step, c.clamp_p, 1) != 0 && vResolved;
        if (!psiMoving && !uMoving && !vMoving) break;

        ++count;
        cv.psi_iterations = count;
        if (recalculateMesh) AdaptMeshToIterate(cv, s.oldMesh);
        IterateFt(cv);
        if (count > limit) {
            if (policy == 1 || policy == 3)
                TERVOErrorMessage("Error in fully_coupled_iteration()", LimitReport(cv, count));
            if (policy != 3 && policy != 4) count = result = -1;
            break;
        }
    }
    // The last step, below the termination, was still applied: the recombination records follow it,
    // so that the rates a result file shows belong to the state it shows.
    if (result == 0 && !RefreshRecombination(cv)) count = result = -1;
    cv.psi_iterations = cv.u_iterations = cv.v_iterations = cv.coupled_iterations = count;
    return result;
}

} // namespace tervo
