#include "solver/ac_recombination.h"

#include <algorithm>
#include <array>
#include <complex>

#include "platform/index.h"
#include "solver/defects.h"

namespace tervo {
namespace {

using cd = std::complex<double>;

void Add(complex3x3& block, int r, int c, cd value) {
    block[r][c].re += value.real();
    block[r][c].im += value.imag();
}

// Solves the small dense complex system A x = b (size m) by Gaussian elimination with partial
// pivoting; A and b are overwritten.
template <size_t N>
void SolveSmall(std::array<std::array<cd, N>, N>& A, std::array<cd, N>& b, int m) {
    for (int k = 0; k < m; ++k) {
        int best = k;
        for (int r = k + 1; r < m; ++r)
            if (std::abs(A[At(r)][At(k)]) > std::abs(A[At(best)][At(k)])) best = r;
        std::swap(A[At(k)], A[At(best)]);
        std::swap(b[At(k)], b[At(best)]);
        const cd pivot = A[At(k)][At(k)];
        for (int r = k + 1; r < m; ++r) {
            const cd factor = A[At(r)][At(k)] / pivot;
            if (factor == cd(0)) continue;
            for (int c = k; c < m; ++c) A[At(r)][At(c)] -= factor * A[At(k)][At(c)];
            b[At(r)] -= factor * b[At(k)];
        }
    }
    for (int k = m - 1; k >= 0; --k) {
        cd s = b[At(k)];
        for (int c = k + 1; c < m; ++c) s -= A[At(k)][At(c)] * b[At(c)];
        b[At(k)] = s / A[At(k)][At(k)];
    }
}

// Real steady derivatives of a rate without charge into the electron and hole rows.
void AddSteady(const CalculationVariables& cv, const RecDcTerms& t, AcTerms& out) {
    const int layers = std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
    for (int j = 0; j < layers; ++j) {
        for (int i = cv.mesh.first_point[At(j)] + 1; i < cv.mesh.last_point[At(j)]; ++i) {
            const size_t I = At(i);
            const double w = -(cv.mesh.h[I - 1] + cv.mesh.h[I]) / 2;
            const double col[3] = {w * t.dR_dpsi[I], w * (cv.a_n + cv.u[I]) * t.dR_du[I],
                                   -w * (cv.a_p + cv.v[I]) * t.dR_dv[I]};
            for (int c = 0; c < 3; ++c) {
                out[I][1][c].re += col[c];
                out[I][2][c].re += col[c];
            }
        }
    }
}

} // namespace

int acr_bijdrage_een_niveau_multilevel(const CalculationVariables& cv, int layer, int defect,
                                       int energy_index, double omega, double weight, AcTerms& out) {
    if (layer < 0 || layer >= MAX_LAYERS || defect < 0 || defect >= MAX_DEFECTS) return -1;
    const auto& levels = cv.recombination.rec_levels[At(layer)][At(defect)];
    const size_t m = At(energy_index);
    if (energy_index < 0 || levels[0].size() <= m) return -1;
    const int K = std::clamp(levels[0][m].n_levels, 1, MAX_LEVELS);
    std::array<const RecLevelData*, MAX_LEVELS> L{};
    for (int k = 0; k < K; ++k) {
        if (levels[At(k)].size() <= m) return -1;
        L[At(k)] = &levels[At(k)][m];
    }
    const CalculationParameters& P = *cv.parameters;
    const int first = L[0]->first;
    const int last = cv.mesh.last_point[At(layer)];
    const int q0 = ChargeOfStateZero(L[0]->aard);
    const bool charged = L[0]->aard != DEFLEVTYPE_NEUTRAL;
    // A level without charge stores nothing, so it follows any signal with its steady response.
    const double w_eff = charged ? omega : 0.0;
    constexpr size_t S = MAX_LEVELS + 1;

    for (size_t q = 0; q < L[0]->Nt.size(); ++q) {
        const int i = first + static_cast<int>(q);
        if (i <= first || i >= last) continue; // inner points only
        const size_t I = At(i);
        const double n = (cv.a_n + cv.u[I]) * cv.exp_psi[I] * P.Nc_eff[I];
        const double p = (cv.a_p + cv.v[I]) * cv.exp_min_psi[I] * P.Nv_eff[I];
        // Steady occupations of the states: f_0 the lower state of level 0, f_(k+1) the upper of k.
        std::array<double, S> f{};
        f[0] = L[0]->een_min_f_t[q];
        for (int k = 0; k < K; ++k) f[At(k + 1)] = L[At(k)]->f_t[q];
        std::array<double, MAX_LEVELS> A{}, B{}, cn{}, cp{}, en{}, ep{};
        for (int k = 0; k < K; ++k) {
            const RecLevelData& d = *L[At(k)];
            cn[At(k)] = d.c_n[q];
            cp[At(k)] = d.c_p[q];
            en[At(k)] = d.e_n[q] + d.g_n_max[q];
            ep[At(k)] = d.e_p[q] + d.g_p_max[q];
            A[At(k)] = cn[At(k)] * n + ep[At(k)]; // state k to k+1 (an electron gained)
            B[At(k)] = cp[At(k)] * p + en[At(k)]; // state k+1 to k (an electron lost)
        }
        const double hs = cv.mesh.h[I - 1] + cv.mesh.h[I];
        const double Nt = L[0]->Nt[q] * weight;
        // The carrier deviations of a unit dpsi, dFn, dFp.
        const double dn[3] = {n, n, 0};
        const double dp[3] = {-p, 0, -p};
        for (int r = 0; r < 3; ++r) {
            // i omega df_k = J_(k-1) - J_k, J_k = A_k df_k - B_k df_(k+1) + drive_k, and sum df = 0 in
            // place of the last state's equation (the equations sum to zero).
            std::array<std::array<cd, S>, S> M{};
            std::array<cd, S> rhs{};
            for (int k = 0; k < K; ++k) {
                const size_t a = At(k);
                M[a][a] += cd(0, w_eff);
                // + J_k
                M[a][a] += A[a];
                M[a][a + 1] -= B[a];
                rhs[a] -= cn[a] * dn[r] * f[a] - cp[a] * dp[r] * f[a + 1];
                // - J_(k-1)
                if (k > 0) {
                    M[a][a - 1] -= A[a - 1];
                    M[a][a] += B[a - 1];
                    rhs[a] += cn[a - 1] * dn[r] * f[a - 1] - cp[a - 1] * dp[r] * f[a];
                }
            }
            for (int k = 0; k <= K; ++k) M[At(K)][At(k)] = 1.0;
            rhs[At(K)] = 0.0;
            SolveSmall(M, rhs, K + 1);
            cd charge = 0, Rn = 0, Rp = 0;
            for (int k = 0; k <= K; ++k) charge += static_cast<double>(q0 - k) * rhs[At(k)];
            for (int k = 0; k < K; ++k) {
                const size_t a = At(k);
                Rn += cn[a] * dn[r] * f[a] + cn[a] * n * rhs[a] - en[a] * rhs[a + 1];
                Rp += cp[a] * dp[r] * f[a + 1] + cp[a] * p * rhs[a + 1] - ep[a] * rhs[a];
            }
            if (charged) Add(out[I], 0, r, Nt * charge);
            Add(out[I], 1, r, -(hs / 2) * Nt * Rn);
            Add(out[I], 2, r, -(hs / 2) * Nt * Rp);
        }
    }
    return 1;
}

void acr_bijdrage_radiative(const CalculationVariables& cv, AcTerms& out) {
    AddSteady(cv, cv.recombination.dc_radiative, out);
}

void acr_bijdrage_auger(const CalculationVariables& cv, AcTerms& out) {
    AddSteady(cv, cv.recombination.dc_auger, out);
}

void ifracbijdrage_een_niveau(const CalculationVariables& cv, const IfrLevelData& data, double omega,
                              double weight, IfrAcTerms& out) {
    const int j = data.interface;
    if (j < 0 || j + 1 >= std::min(cv.mesh.number_of_layers, MAX_LAYERS)) return;
    const CalculationParameters& P = *cv.parameters;
    const size_t J = At(j);
    const size_t iL = At(cv.mesh.last_point[J]);
    const size_t iR = At(cv.mesh.first_point[J + 1]);
    const double nL = (cv.a_n + cv.u[iL]) * cv.exp_psi[iL] * P.Nc_eff[iL];
    const double nR = (cv.a_n + cv.u[iR]) * cv.exp_psi[iR] * P.Nc_eff[iR];
    const double pL = (cv.a_p + cv.v[iL]) * cv.exp_min_psi[iL] * P.Nv_eff[iL];
    const double pR = (cv.a_p + cv.v[iR]) * cv.exp_min_psi[iR] * P.Nv_eff[iR];
    const double cnL = data.c_n_left, cnR = data.c_n_right, cpL = data.c_p_left, cpR = data.c_p_right;
    const double n1L = data.n1_left, n1R = data.n1_right, p1L = data.p1_left, p1R = data.p1_right;
    // A fills an empty trap, B empties a full one.
    const double A = p1R * cpR + nR * cnR + p1L * cpL + nL * cnL;
    const double B = pR * cpR + n1R * cnR + pL * cpL + n1L * cnL;
    const double D = A + B;
    if (!(D > 0)) return;
    const double f = A / D, g = B / D;
    const bool charged = data.aard == 1 || data.aard == 2;
    const cd relax = 1.0 / cd(D, charged ? omega : 0.0);
    const double Nt = data.Nt * weight;
    const double kL = 1.0 / (P.scale.density[J] * P.scale.length);
    const double kR = 1.0 / (P.scale.density[J + 1] * P.scale.length);
    IfrAcBlock& o = out[J];
    // Unit deviations of the six unknowns (dpsi, dFn, dFp at iL, then at iR).
    for (int side = 0; side < 2; ++side) {
        for (int r = 0; r < 3; ++r) {
            double dnL = 0, dnR = 0, dpL = 0, dpR = 0;
            const double dn = r == 0 || r == 1 ? 1.0 : 0.0;
            const double dp = r == 0 || r == 2 ? -1.0 : 0.0;
            (side == 0 ? dnL : dnR) = dn * (side == 0 ? nL : nR);
            (side == 0 ? dpL : dpR) = dp * (side == 0 ? pL : pR);
            const double dA = cnL * dnL + cnR * dnR;
            const double dB = cpL * dpL + cpR * dpR;
            const cd df = (dA * g - dB * f) * relax;
            complex3x3& L = side == 0 ? o.left_left : o.left_right;
            complex3x3& R = side == 0 ? o.right_left : o.right_right;
            if (charged) Add(L, 0, r, -Q_ELEM * Nt * df);
            // Net capture from each side: Rn = cn (n (1 - f) - n1 f), Rp = cp (p f - p1 (1 - f)).
            Add(L, 1, r, -Nt * cnL * kL * (dnL * g - (nL + n1L) * df));
            Add(R, 1, r, -Nt * cnR * kR * (dnR * g - (nR + n1R) * df));
            Add(L, 2, r, -Nt * cpL * kL * (dpL * f + (pL + p1L) * df));
            Add(R, 2, r, -Nt * cpR * kR * (dpR * f + (pR + p1R) * df));
        }
    }
}

void totale_ifracbijdrage(const CalculationVariables& cv, double omega, IfrAcTerms& out) {
    out = IfrAcTerms{};
    const RecombinationData& r = cv.recombination;
    const int interfaces = std::clamp(cv.mesh.number_of_layers - 1, 0, MAX_INTERFACES);
    for (int j = 0; j < interfaces; ++j) {
        for (int d = 0; d < MAX_IFDEFECTS; ++d) {
            const auto& samples = r.ifr_levels[At(j)][At(d)];
            const int n = std::min(r.n_ifr_points[At(j)][At(d)], static_cast<int>(samples.size()));
            if (n <= 0) continue;
            const int type = cv.parameters->interfaceDefect[At(j)][At(d)].energy.type;
            for (int m = 0; m < (type == EDIST_SINGLE ? 1 : n); ++m) {
                const double w = TrapezoidWeight(r.ifr_axis[At(j)][At(d)], n, m, type);
                if (w != 0.0) ifracbijdrage_een_niveau(cv, samples[At(m)], omega, w, out);
            }
        }
    }
}

int totale_acr_bijdrage_multilevel(const CalculationVariables& cv, double omega, AcTerms& out) {
    const int n = MeshPoints(cv);
    out.assign(At(n), complex3x3{});
    const RecombinationData& r = cv.recombination;
    const int layers =
        std::clamp(std::min(cv.parameters->numberOfLayers, cv.mesh.number_of_layers), 0, MAX_LAYERS);
    for (int j = 0; j < layers; ++j) {
        for (int d = 0; d < MAX_DEFECTS; ++d) {
            if (r.rec_levels[At(j)][At(d)][0].empty()) continue;
            const int type = cv.parameters->srh[At(j)][At(d)][0].energy.type;
            const int samples = static_cast<int>(r.rec_levels[At(j)][At(d)][0].size());
            for (int m = 0; m < samples; ++m) {
                const double w = TrapezoidWeight(r.axis[At(j)][At(d)], samples, m, type);
                if (w == 0.0) continue;
                const int result = acr_bijdrage_een_niveau_multilevel(cv, j, d, m, omega, w, out);
                if (result < 0) return result;
            }
        }
    }
    acr_bijdrage_radiative(cv, out);
    acr_bijdrage_auger(cv, out);
    return 1;
}

} // namespace tervo
