#include "solver/gummel.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cell/working_settings.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "setup/absorption.h"
#include "setup/generation.h"
#include "setup/mesh.h"
#include "solver/bulk_recombination.h"
#include "solver/coupled_newton.h"
#include "solver/interface_recombination.h"

namespace tervo {

int issueMeshWarning = 1;
int meshPassesLimit = 10;
int gummelPassesBeforeNewton = 0;

namespace {

// Failure policies at the inner limit: 1 report and fail, 2 fail, 3 report and go on, 4 go on.
bool PolicyReports(int policy) {
    return policy == 1 || policy == 3;
}

// The Newton step of a whole vector, with the entry of largest magnitude and its sign.
double SignedLargest(std::span<const double> delta, int n) {
    double best = 0;
    for (size_t i = 0; i < At(n); ++i)
        if (std::fabs(delta[i]) > std::fabs(best)) best = delta[i];
    return best;
}

// Row scaling of a tridiagonal system: each row and its right-hand side multiplied by the power of two
// that brings the largest magnitude among them into [1, 2), so that the pivots of the elimination are
// of order one.  A power of two scales without rounding: the elimination gives the
// same numbers as on the unscaled rows, only safe from overflow and underflow.
void ScaleRow(std::array<double, 3>& row, double& rhs, double* extra) {
    double s = std::max({std::fabs(row[0]), std::fabs(row[1]), std::fabs(row[2]), std::fabs(rhs)});
    if (extra != nullptr) s = std::max(s, std::fabs(*extra));
    if (s == 0.0 || !std::isfinite(s)) return;
    // The exponent field of s gives 2^-e directly while it stays a normal number; else one division.
    const auto field = static_cast<int>((std::bit_cast<std::uint64_t>(s) >> 52) & 0x7ff);
    const double scale = field > 1 && field < 2045
                             ? std::bit_cast<double>(static_cast<std::uint64_t>(2046 - field) << 52)
                             : 1.0 / s;
    row[0] *= scale;
    row[1] *= scale;
    row[2] *= scale;
    rhs *= scale;
    if (extra != nullptr) *extra *= scale;
}

// Scratch of the inner iterations at the capacity of the mesh, made once for the process (the program
// is single-threaded): the Newton steps of a sweep allocate nothing.  Two, for the lumped carrier
// iteration that forms the systems of u and v side by side.
struct ScalarSystem {
    trimatrix J{MAX_MESH_POINTS};
    std::array<double, MAX_MESH_POINTS> rhs;
    std::array<double, MAX_MESH_POINTS> delta;
};

ScalarSystem& ScalarScratch(int which) {
    static std::array<ScalarSystem, 2> scratch;
    return scratch[At(which)];
}

struct BlockSystem {
    uv_trimatrix blocks{MAX_MESH_POINTS};
    uv_row rhs{MAX_MESH_POINTS};
    uv_row delta{MAX_MESH_POINTS};
};

BlockSystem& BlockScratch() {
    static BlockSystem scratch;
    return scratch;
}

} // namespace

// What derives from the mesh after an adaptive change (or a return to an earlier mesh): the exponentials and
// Bernoulli factors of psi, quasi-Fermi levels consistent with the interpolated carrier variables, and the
// generation profiles on the new points.  The internal optical model computes them anew; a generation profile
// from a file is carried over by linear interpolation, which is what reading the file onto the new mesh gives
// between the points of the old one.
void RefreshAfterMeshChange(CalculationVariables& cv, const MeshBlock& oldMesh) {
    update_psivar(cv);
    for (size_t i = 0; i < At(MeshPoints(cv)); ++i) {
        if (cv.a_n + cv.u[i] > 0) cv.EFn[i] = std::log(cv.a_n + cv.u[i]);
        if (cv.a_p + cv.v[i] > 0) cv.EFp[i] = -std::log(cv.a_p + cv.v[i]);
    }
    for (GenerationParameters* g : {cv.generation, cv.illumination, cv.monochromatic}) {
        if (g == nullptr) continue;
        if (Generation_Mode == 0) {
            bepaal_alfa(cv, *g);
            CalculateOpticalGeneration(cv, *g, 0, IPV_Mode == 1);
        } else {
            const MeshArray old = g->G;
            InterpolateAndCopy(g->G.data(), old.data(), cv.mesh, oldMesh, cv.mesh.number_of_layers);
        }
    }
}

// ---------------------------------------------------------------------------------------------------

void Set_an_And_ap(CalculationVariables& cv, double& a_n, double& a_p) {
    const ConvergenceParameters& c = cv.parameters->convergence;
    const double alpha = c.contactExponent;
    const double beta = c.contactShare;
    const double gamma = c.contactPrefactor;
    if (c.contactExponential == 1) {
        a_n = gamma * std::exp(cv.V_norm * beta * alpha);
        a_p = gamma * std::exp(-cv.V_norm * (1 - beta) * alpha);
    } else {
        a_n = gamma / (1 + 1 / cv.exp_V);
        a_p = gamma / (1 + cv.exp_V);
    }
}

void InitialiseTunnelCurrent(CalculationVariables& cv, int which) {
    const auto n = static_cast<long>(MeshPoints(cv));
    auto clear = [n](MeshArray& a) { std::fill(a.begin(), a.begin() + n, 0.0); };
    if (which != 1) {
        clear(cv.jn_tun);
        cv.tun_n_left.fill(0.0);
        cv.tun_n_right.fill(0.0);
        cv.tun_n_contact_left = cv.tun_n_contact_right = 0.0;
    }
    if (which != -1) {
        clear(cv.jp_tun);
        cv.tun_p_left.fill(0.0);
        cv.tun_p_right.fill(0.0);
        cv.tun_p_contact_left = cv.tun_p_contact_right = 0.0;
    }
    for (MeshArray* a :
         {&cv.btb_n_in, &cv.btb_n_out, &cv.btb_p_in, &cv.btb_p_out, &cv.btb_current_n, &cv.btb_current_p})
        clear(*a);
}

double maximum_psi_array(std::span<const double> vec, int n) {
    double m = 0.0;
    for (size_t i = 0; i < At(std::min<int>(n, static_cast<int>(vec.size()))); ++i)
        m = std::max(m, std::fabs(vec[i]));
    return m;
}

void clamping_psi(CalculationVariables& cv, std::span<double> delta, double clamp, double max) {
    if (!(max > clamp)) return;
    const double factor = max / clamp;
    for (size_t i = 0; i < At(MeshPoints(cv)); ++i) delta[i] /= factor;
}

int clamping_u_or_v(CalculationVariables& cv, std::span<double> delta, double clamp, int carrier) {
    const bool electrons = carrier == -1;
    const int n = MeshPoints(cv);
    MeshArray& w = electrons ? cv.u : cv.v;
    const double offset = electrons ? cv.a_n : cv.a_p;
    const ConvergenceParameters& c = cv.parameters->convergence;
    const double termination = electrons ? c.termination_Fn : c.termination_Fp;

    // The step of the quasi-Fermi level at a point is ln(1 + delta / (offset + w)); one common factor
    // keeps the largest fall and the largest rise within `clamp`.
    double lo = 0;
    for (size_t i = 0; i < At(n); ++i) lo = std::min(lo, delta[i] / (offset + w[i]));
    const double lowest = std::exp(-clamp) - 1;
    double dlo = 0;
    if (lo >= lowest) {
        dlo = -std::log1p(lo);
    } else {
        const double factor = lo / lowest;
        for (size_t i = 0; i < At(n); ++i) delta[i] /= factor;
        dlo = clamp;
    }
    double hi = 0;
    for (size_t i = 0; i < At(n); ++i) hi = std::max(hi, delta[i] / (offset + w[i]));
    const double highest = std::exp(clamp) - 1;
    double dhi = 0;
    if (hi <= highest) {
        dhi = std::log1p(hi);
    } else {
        const double factor = hi / highest;
        for (size_t i = 0; i < At(n); ++i) delta[i] /= factor;
        dhi = clamp;
    }
    const double change = std::fabs(dlo) <= std::fabs(dhi) ? dhi : dlo;
    (electrons ? cv.max_dEFn : cv.max_dEFp) = change;

    for (size_t i = 0; i < At(n); ++i) {
        w[i] += delta[i];
        if (electrons)
            cv.EFn[i] = std::log(cv.a_n + cv.u[i]);
        else
            cv.EFp[i] = -std::log(cv.a_p + cv.v[i]);
    }
    return std::fabs(change) > termination ? 1 : 0;
}

// ---------------------------------------------------------------------------------------------------
// Linear solvers.

int bereken_delta_u_of_v_Gummel(CalculationVariables& cv, trimatrix& J, std::span<double> rhs,
                                std::span<double> delta) {
    const int n = MeshPoints(cv);
    if (n == 0) return 0;
    for (int i = 0; i < n; ++i) ScaleRow(J[i], rhs[At(i)], nullptr);
    // Thomas elimination with one division a row: the inverse of the pivot serves the next row's
    // multiplier and this row's unknown.
    std::array<double, MAX_MESH_POINTS> t;
    double alpha = J[0][1];
    if (alpha == 0.0)
        return LUDecompositionError(
            "bereken_delta_u_of_v_Gummel: main[0] = 0 at left contact, at start algorithm");
    double inverse = 1 / alpha;
    delta[0] = rhs[0] * inverse;
    for (int i = 1; i < n; ++i) {
        const size_t I = At(i);
        t[I] = J[i - 1][2] * inverse;
        alpha = J[i][1] - t[I] * J[i][0];
        if (alpha == 0.0) {
            std::string text;
            Fmt(text,
                "%s<bereken_delta_u_of_v_Gummel: alpha = 0 during forward substitution, meshpoint i = %i ",
                i);
            return LUDecompositionError(text);
        }
        inverse = 1 / alpha;
        delta[I] = (rhs[I] - delta[I - 1] * J[i][0]) * inverse;
    }
    for (int i = n - 2; i >= 0; --i) delta[At(i)] -= delta[At(i + 1)] * t[At(i + 1)];
    return 0;
}

int bereken_delta_psi_Gummel(CalculationVariables& cv, trimatrix& J, InterfaceExtra& extra,
                             std::span<double> rhs, std::span<double> delta) {
    const int n = MeshPoints(cv);
    const int layers = std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
    if (n == 0) return 0;
    const auto& first = cv.mesh.first_point;
    const auto& last = cv.mesh.last_point;
    for (int j = 0; j < layers; ++j) {
        for (int i = first[At(j)]; i <= last[At(j)]; ++i) {
            const bool interfaceRow = i == last[At(j)] && j + 1 < layers;
            ScaleRow(J[i], rhs[At(i)], interfaceRow ? &extra[At(j)] : nullptr);
        }
    }
    // Thomas elimination with the one element per interface row that couples the last point of a
    // layer to the second point of the next layer: it is carried along in e[j].
    std::array<double, MAX_MESH_POINTS> t;
    std::array<double, MAX_LAYERS> e{};
    double alpha = J[0][1];
    if (alpha == 0.0)
        return LUDecompositionError(
            "bereken_delta_psi_Gummel: main[0] = 0 at left contact, at start algorithm");
    double inverse = 1 / alpha;
    delta[0] = rhs[0] * inverse;
    for (int j = 0; j < layers; ++j) {
        e[At(j)] = 0.0;
        for (int i = std::max(first[At(j)], 1); i <= last[At(j)]; ++i) {
            const size_t I = At(i);
            t[I] = J[i - 1][2] * inverse;
            if (j > 0 && i == first[At(j)] + 1) t[I] -= J[i - 1][0] * e[At(j - 1)] * inverse;
            alpha = J[i][1] - t[I] * J[i][0];
            if (alpha == 0.0) {
                std::string text;
                Fmt(text,
                    "%s<bereken_delta_psi_Gummel: alpha = 0 during forward substitution, meshpoint i = %i, "
                    "layer j = %i",
                    i, j);
                return LUDecompositionError(text);
            }
            inverse = 1 / alpha;
            delta[I] = (rhs[I] - delta[I - 1] * J[i][0]) * inverse;
            if (i == last[At(j)] && j + 1 < layers) e[At(j)] = extra[At(j)] * inverse;
        }
    }
    for (int j = layers - 1; j >= 0; --j) {
        for (int i = last[At(j)]; i >= first[At(j)]; --i) {
            if (i > n - 2) continue;
            delta[At(i)] -= delta[At(i + 1)] * t[At(i + 1)];
            if (i == last[At(j)] && j + 1 < layers) delta[At(i)] -= delta[At(i + 2)] * e[At(j)];
        }
    }
    return 0;
}

int tridiagonal_2x2(const uv_trimatrix& A, const uv_row& rhs, uv_row& x, int n) {
    if (n <= 0) return 0;
    if (n > MAX_MESH_POINTS) n = MAX_MESH_POINTS;
    std::array<matrix_2x2, MAX_MESH_POINTS> G;
    matrix_2x2 P = A.main[0];
    if (determinant(P) == 0.0) return -1;
    matrix_2x2 Pinv = invert_2x2(P);
    x[0] = multiply_2matrix_x_2vector(Pinv, rhs[0]);
    for (int i = 1; i < n; ++i) {
        const size_t I = At(i);
        G[I] = multiply_2matrix_x_2matrix(Pinv, A.super[I - 1]);
        P = subtract_2x2(A.main[I], multiply_2matrix_x_2matrix(A.sub[I], G[I]));
        if (determinant(P) == 0.0) return -1;
        Pinv = invert_2x2(P);
        x[i] = multiply_2matrix_x_2vector(
            Pinv, subtract_2x1(rhs[i], multiply_2matrix_x_2vector(A.sub[I], x[i - 1])));
    }
    for (int i = n - 2; i >= 0; --i)
        x[i] = subtract_2x1(x[i], multiply_2matrix_x_2vector(G[At(i + 1)], x[i + 1]));
    return 0;
}

int bereken_delta_uv_Gummel(CalculationVariables& cv, const uv_trimatrix& J, const uv_row& rhs,
                            uv_row& delta) {
    return tridiagonal_2x2(J, rhs, delta, MeshPoints(cv));
}

// ---------------------------------------------------------------------------------------------------
// Inner iterations.

bool RefreshRecombination(CalculationVariables& cv, const RecombinationTerms& need) {
    InitialiseTunnelCurrent(cv, 0);
    if (totale_rdcbijdrage_multilevel(cv, need) < 0) return false;
    totale_ifrdcbijdrage(cv, need);
    return true;
}

int AdaptMeshToIterate(CalculationVariables& cv, MeshBlock& previous) {
    MeshRefinementSources sources;
    sources.recombination = cv.recombination.dc.R.data();
    const int result = RecalculateIntervals(cv, sources, &previous);
    if (result == -1) issueMeshWarning = 0;
    if (result == 1) RefreshAfterMeshChange(cv, previous);
    return result;
}

namespace {

// Counts one more step of an inner iteration.  Past its limit the iteration ends, with the report
// that its policy asks for (1 and 3 report); `text` composes the report only then.  True when the
// limit is passed.
template <typename Text>
bool StepPastLimit(int& count, int limit, int policy, const char* title, Text text) {
    ++count;
    if (count <= limit) return false;
    if (PolicyReports(policy)) TERVOErrorMessage(title, text());
    return true;
}

} // namespace

int psi_iteratie_Gummel(CalculationVariables& cv, int equilibrium) {
    const ConvergenceParameters& c = cv.parameters->convergence;
    const int limit = equilibrium ? c.maxiter_psi_start : c.maxiter_psi;
    const int n = MeshPoints(cv);
    ScalarSystem& s = ScalarScratch(0);
    InterfaceExtra extra{};
    cv.psi_iterations = 0;
    int count = 0;
    int result = 0;
    for (;;) {
        if (!RefreshRecombination(cv, POISSON_TERMS)) {
            count = -1;
            result = -1;
            break;
        }
        bereken_stelsel_psi_Gummel(cv, s.rhs);
        bereken_jac_psi_Gummel(cv, s.J, extra);
        if (bereken_delta_psi_Gummel(cv, s.J, extra, s.rhs, s.delta) < 0) {
            count = -1;
            result = -1;
            break;
        }
        const double m = maximum_psi_array(s.delta, n);
        cv.max_dpsi = SignedLargest(s.delta, n);
        if (m <= c.termination_psi) break; // converged: the small step is not applied
        if (StepPastLimit(count, limit, c.failAction_psi, "Error in psi_iteratie_Gummel()", [&] {
                std::string text = "Max no of iterations exceeded during Gummel-calculation of variable psi";
                Fmt(text, "%s[a]<\nIteration count: %i", limit);
                return text;
            })) {
            if (c.failAction_psi == 1 || c.failAction_psi == 2) count = -1;
            break;
        }
        for (size_t i = 0; i < At(n); ++i) s.delta[i] *= c.damping_psi;
        clamping_psi(cv, s.delta, c.clamp_psi, m);
        for (size_t i = 0; i < At(n); ++i) cv.psi[i] += s.delta[i];
        update_psivar(cv);
    }
    cv.psi_iterations = count;
    return result;
}

// The carrier iterations.  Each Newton step forms the recombination terms of its own carrier: the
// Poisson iteration before them formed only the charge terms.
int u_or_v_iteratie_Gummel(CalculationVariables& cv, int carrier) {
    const bool electrons = carrier == -1;
    const ConvergenceParameters& c = cv.parameters->convergence;
    const int limit = electrons ? c.maxiter_u : c.maxiter_v;
    const int policy = electrons ? c.failAction_u : c.failAction_v;
    const double damping = electrons ? c.damping_n : c.damping_p;
    const double clamp = electrons ? c.clamp_n : c.clamp_p;
    const int n = MeshPoints(cv);
    ScalarSystem& s = ScalarScratch(0);
    int count = 0;
    int result = 0;
    for (;;) {
        if (!RefreshRecombination(cv, electrons ? ELECTRON_TERMS : HOLE_TERMS)) {
            count = -1;
            result = -1;
            break;
        }
        // Tunnelling (intraband, to the contacts, band to band) adds its terms and the sparse
        // off-band elements of the carrier here when it is switched on; without it the system is
        // purely tridiagonal.
        if (electrons) {
            bereken_jac_u_Gummel(cv, s.J);
            bereken_stelsel_u_Gummel(cv, s.rhs);
        } else {
            bereken_jac_v_Gummel(cv, s.J);
            bereken_stelsel_v_Gummel(cv, s.rhs);
        }
        if (bereken_delta_u_of_v_Gummel(cv, s.J, s.rhs, s.delta) < 0) {
            count = -1;
            result = -1;
            break;
        }
        for (size_t i = 0; i < At(n); ++i) s.delta[i] *= damping;
        if (!clamping_u_or_v(cv, s.delta, clamp, carrier)) break;
        if (StepPastLimit(count, limit, policy, "Error in u_or_v_iteratie_Gummel()", [&] {
                std::string text = "Max no of iterations exceeded during Gummel-calculation of variable ";
                if (electrons) {
                    text += "'u' (function of electron density)";
                    Fmt(text, "%s[a]<\nMax. dEFn: %f[w10p2e2]", cv.max_dEFn);
                } else {
                    text += "'v' (function of hole density)";
                    Fmt(text, "%s[a]<\nMax. dEFp: %f[w10p2e2]", cv.max_dEFp);
                }
                Fmt(text, "%s[a]<\nIteration count: %i", count);
                Fmt(text, "%s[a]<\nNumber of sparse elements: %i", 0);
                return text;
            })) {
            if (policy != 3 && policy != 4) {
                cv.iteration_count = -1;
                count = -1;
                result = -1;
            }
            break;
        }
    }
    (electrons ? cv.u_iterations : cv.v_iterations) = count;
    return result;
}

int uv_iteratie_Gummel(CalculationVariables& cv) {
    const ConvergenceParameters& c = cv.parameters->convergence;
    const int limit = c.maxiter_u;
    const int policy = c.failAction_u;
    const int n = MeshPoints(cv);
    ScalarSystem& su = ScalarScratch(0);
    ScalarSystem& sv = ScalarScratch(1);
    BlockSystem& b = BlockScratch();
    uv_trimatrix& blocks = b.blocks;
    uv_row& rhs = b.rhs;
    uv_row& delta = b.delta;
    int count = 0;
    int result = 0;
    for (;;) {
        if (!RefreshRecombination(cv, CARRIER_TERMS)) {
            count = -1;
            result = -1;
            break;
        }
        bereken_jac_u_Gummel(cv, su.J);
        bereken_jac_v_Gummel(cv, sv.J);
        bereken_stelsel_u_Gummel(cv, su.rhs);
        bereken_stelsel_v_Gummel(cv, sv.rhs);
        for (int i = 0; i < n; ++i) {
            const size_t I = At(i);
            blocks.sub[I] = matrix_2x2{};
            blocks.main[I] = matrix_2x2{};
            blocks.super[I] = matrix_2x2{};
            blocks.sub[I][0][0] = su.J[i][0];
            blocks.main[I][0][0] = su.J[i][1];
            blocks.super[I][0][0] = su.J[i][2];
            blocks.sub[I][1][1] = sv.J[i][0];
            blocks.main[I][1][1] = sv.J[i][1];
            blocks.super[I][1][1] = sv.J[i][2];
            rhs[i] = vector_2x1{{su.rhs[I], sv.rhs[I]}};
        }
        AddCrossDerivativesToJacobian2x2(cv, blocks);
        if (bereken_delta_uv_Gummel(cv, blocks, rhs, delta) < 0) {
            count = -1;
            result = -1;
            break;
        }
        for (int i = 0; i < n; ++i) {
            su.delta[At(i)] = delta[i][0] * c.damping_n;
            sv.delta[At(i)] = delta[i][1] * c.damping_p;
        }
        const int uMoving = clamping_u_or_v(cv, su.delta, c.clamp_n, -1);
        const int vMoving = clamping_u_or_v(cv, sv.delta, c.clamp_p, 1);
        if (!uMoving && !vMoving) break;
        if (StepPastLimit(count, limit, policy, "Error in uv_iteratie_Gummel()", [&] {
                std::string text =
                    "Max no of iterations exceeded during Gummel-calculation of variables u and v (lumped)";
                Fmt(text, "%s[a]<\nIteration count: %i", count);
                Fmt(text, "%s[a]<\nmaximum dEFn: %f[w10p2e2]", cv.max_dEFn);
                Fmt(text, "%s[a]<\nmaximum dEFp: %f[w10p2e2]", cv.max_dEFp);
                Fmt(text, "%s[a]<\nNumber of sparse elements: %i", 0);
                return text;
            })) {
            if (policy != 3 && policy != 4) {
                count = -1;
                result = -1;
            }
            break;
        }
    }
    cv.u_iterations = cv.v_iterations = count;
    return result;
}

// ---------------------------------------------------------------------------------------------------
// The outer loop.

int los_totaal_dc_stelsel_op_Gummel(CalculationVariables& cv) {
    ConvergenceParameters& c = cv.parameters->convergence;
    const bool recalculateMesh = meshSettings.recalculateMesh != 0;
    const int cutoff = static_cast<int>(0.25 * c.maxiter);
    cv.iteration_count = 0;
    cv.inner_iterations = 0;
    InitialiseTunnelCurrent(cv, 0);
    cv.max_dpsi = cv.max_dEFn = cv.max_dEFp = 1e30;
    double J1 = 0.0, J2 = 0.0;
    bool psiMoved = true, uMoved = true, vMoved = true, ftMoved = true;
    int meshResult = 0;
    int meshPasses = 0;
    std::unique_ptr<CurrentProfiles> profiles;
    auto fail = [&cv]() {
        cv.iteration_count = -1;
        return -1;
    };

    // With the coupled finish on, the separate blocks (11, 12 and any unknown code) hand over to the
    // coupled iteration after gummelPassesBeforeNewton passes, or at once when a pass stands still.
    const bool newtonFinish =
        gummelPassesBeforeNewton > 0 && c.coupling_scheme != 13 && c.coupling_scheme != 14;
    int k = 0;
    bool finishNow = false; // the Gummel passes stand still: one coupled pass ends the solve
    for (;;) {
        ++k;
        cv.iteration_count = k;
        // Scheme 14 approaches the solution by the robust separate blocks and finishes with the
        // coupled Newton iteration, which converges fast once it is close.
        if (c.coupling_scheme == 14)
            c.active_scheme = k < c.gummelPassesFirst ? 11 : 13;
        else if (newtonFinish && (k > gummelPassesBeforeNewton || finishNow))
            c.active_scheme = 13;
        else
            c.active_scheme = c.coupling_scheme;

        if (c.active_scheme == 13) {
            // One coupled iteration carries its own mesh adaptation and occupation update and runs
            // until nothing moves: the pass has nothing left to do.
            if (fully_coupled_iteration(cv) < 0 || cv.psi_iterations == -1) return fail();
            cv.inner_iterations += cv.psi_iterations;
            psiMoved = uMoved = vMoved = ftMoved = false;
            meshResult = 0;
        } else {
            if (psi_iteratie_Gummel(cv, 0) < 0 || cv.psi_iterations == -1) return fail();
            psiMoved = cv.psi_iterations >= 1;
            if (c.active_scheme == 12) {
                if (uv_iteratie_Gummel(cv) < 0 || cv.u_iterations == -1) return fail();
                uMoved = vMoved = cv.u_iterations >= 1;
            } else { // 11, and any unknown code
                if (u_or_v_iteratie_Gummel(cv, -1) < 0 || cv.u_iterations == -1) return fail();
                uMoved = cv.u_iterations >= 1;
                if (u_or_v_iteratie_Gummel(cv, 1) < 0 || cv.v_iterations == -1) return fail();
                vMoved = cv.v_iterations >= 1;
            }
            cv.inner_iterations +=
                cv.psi_iterations + cv.u_iterations + (c.active_scheme == 12 ? 0 : cv.v_iterations);

            if (recalculateMesh) {
                static MeshBlock previous; // made once for the process (single-threaded)
                meshResult = AdaptMeshToIterate(cv, previous);
            }
            if (meshResult == 1 && !psiMoved && !uMoved && !vMoved && !ftMoved) {
                ++meshPasses;
                if (meshPasses > meshPassesLimit) meshResult = 0;
            } else {
                meshPasses = 0;
            }
            IterateFt(cv);
            ftMoved = cv.ft_iterations >= 2;
        }

        if (k >= c.maxiter) break;
        if (k > cutoff) {
            // From a quarter of the limit on, a total current that repeats one of the two before it
            // ends the solve, even while single variables still creep.
            if (!profiles) profiles = std::make_unique<CurrentProfiles>();
            CalculateCurrentProfiles(cv, calculation_of_current, *profiles);
            const double J = cv.J_median;
            const double tol = std::max(c.currentToleranceAbs, c.currentToleranceRel * std::fabs(J));
            if (std::fabs(J - J1) < tol || std::fabs(J - J2) < tol) break;
            J2 = J1;
            J1 = J;
        }
        if (!psiMoved && !uMoved && !vMoved && !ftMoved && meshResult != 1) {
            // A Gummel pass that moves nothing leaves the state within the termination of its last
            // steps, which at high injection (or after a guess that was already that close) hides
            // errors well above those of a Newton step: with the coupled finish on, one coupled pass
            // takes the state to within the square of that distance.
            if (newtonFinish && c.active_scheme != 13 && k < c.maxiter) {
                finishNow = true;
                continue;
            }
            break;
        }
    }
    cv.iteration_count = k < c.maxiter ? k : -1;
    return 0;
}

} // namespace tervo
