#include "solver/defects.h"

#include <algorithm>
#include <cmath>

#include "platform/index.h"
#include "platform/messages.h"
#include "solver/bulk_recombination.h"

namespace tervo {

// ---------------------------------------------------------------------------------------------------
// Occupation, charge and recombination of one bulk defect.

int rdcbijdrage_een_niveau_multilevel(CalculationVariables& cv, int layer, int defect, int energy_index,
                                      RecDcTerms& out) {
    if (layer < 0 || layer >= MAX_LAYERS || defect < 0 || defect >= MAX_DEFECTS) return -1;
    auto& levels = cv.recombination.rec_levels[At(layer)][At(defect)];
    const size_t m = At(energy_index);
    if (energy_index < 0 || levels[0].size() <= m) return -1;
    const int K = std::clamp(levels[0][m].n_levels, 1, MAX_LEVELS);
    std::array<RecLevelData*, MAX_LEVELS> L{};
    for (int k = 0; k < K; ++k) {
        if (levels[At(k)].size() <= m) return -1;
        L[At(k)] = &levels[At(k)][m];
    }
    const CalculationParameters& P = *cv.parameters;
    const int first = L[0]->first;
    const size_t count = L[0]->Nt.size();
    const int q0 = ChargeOfStateZero(L[0]->aard);
    const bool charged = L[0]->aard != DEFLEVTYPE_NEUTRAL;

    for (size_t q = 0; q < count; ++q) {
        const size_t i = At(first) + q;
        const double wn = cv.a_n + cv.u[i];
        const double wp = cv.a_p + cv.v[i];
        const double En = cv.exp_psi[i] * P.Nc_eff[i];     // dn/du
        const double Fp = cv.exp_min_psi[i] * P.Nv_eff[i]; // dp/dv
        const double n = wn * En;
        const double p = wp * Fp;
        const double NcNv = P.Nv_eff[i] * P.Nc_eff[i];

        // Ratios of neighbouring states and their derivatives (psi at fixed u and v: dn = n, dp = -p).
        std::array<double, MAX_LEVELS> r{}, dr_psi{}, dr_u{}, dr_v{};
        for (int k = 0; k < K; ++k) {
            const RecLevelData& d = *L[At(k)];
            const double gn = d.g_n_max[q], gp = d.g_p_max[q];
            const double A = gp + d.e_p[q] + d.c_n[q] * n; // electron gained
            const double B = gn + d.e_n[q] + d.c_p[q] * p; // electron lost
            r[At(k)] = A / B;
            dr_psi[At(k)] = (d.c_n[q] * n * B + A * d.c_p[q] * p) / (B * B);
            dr_u[At(k)] = En * d.c_n[q] / B;
            dr_v[At(k)] = -r[At(k)] * Fp * d.c_p[q] / B;
        }

        // Unnormalised weights of the K + 1 states, kept within range by a common factor (the
        // occupations and their derivatives do not depend on it).
        std::array<double, MAX_LEVELS + 1> W{}, dW_psi{}, dW_u{}, dW_v{};
        W[0] = 1;
        for (int k = 0; k < K; ++k) {
            const size_t a = At(k), b = At(k + 1);
            W[b] = r[a] * W[a];
            dW_psi[b] = dr_psi[a] * W[a] + r[a] * dW_psi[a];
            dW_u[b] = dr_u[a] * W[a] + r[a] * dW_u[a];
            dW_v[b] = dr_v[a] * W[a] + r[a] * dW_v[a];
            if (W[b] > 1e150) {
                const double s = 1.0 / W[b];
                for (size_t c = 0; c <= b; ++c) {
                    W[c] *= s;
                    dW_psi[c] *= s;
                    dW_u[c] *= s;
                    dW_v[c] *= s;
                }
            }
        }
        double S = 0, S_psi = 0, S_u = 0, S_v = 0;
        for (int k = 0; k <= K; ++k) {
            S += W[At(k)];
            S_psi += dW_psi[At(k)];
            S_u += dW_u[At(k)];
            S_v += dW_v[At(k)];
        }
        std::array<double, MAX_LEVELS + 1> f{}, df_psi{}, df_u{}, df_v{};
        int full = -1;
        for (int k = 0; k <= K; ++k) {
            const size_t a = At(k);
            f[a] = W[a] / S;
            df_psi[a] = (dW_psi[a] - (S_psi / S) * W[a]) / S;
            df_u[a] = (dW_u[a] - (S_u / S) * W[a]) / S;
            df_v[a] = (dW_v[a] - (S_v / S) * W[a]) / S;
            if (f[a] > 0.999999) full = k;
        }
        // A state that holds nearly all defects takes minus the sum of the others' derivatives, so
        // that the derivatives of the occupations add up to exactly 0 despite the cancellation.
        if (full >= 0) {
            double sp = 0, su = 0, sv = 0;
            for (int k = 0; k <= K; ++k) {
                if (k == full) continue;
                sp += df_psi[At(k)];
                su += df_u[At(k)];
                sv += df_v[At(k)];
            }
            df_psi[At(full)] = -sp;
            df_u[At(full)] = -su;
            df_v[At(full)] = -sv;
        }

        const double Nt = L[0]->Nt[q];
        double rho = 0, rho_psi = 0, rho_u = 0, rho_v = 0;
        if (charged) {
            int charge = q0;
            for (int k = 0; k <= K; ++k, --charge) {
                rho += f[At(k)] * Nt * charge;
                rho_psi += df_psi[At(k)] * Nt * charge;
                rho_u += df_u[At(k)] * Nt * charge;
                rho_v += df_v[At(k)] * Nt * charge;
            }
        }

        // Net recombination through each level: U (f_k + f_(k+1)) / T, with U = c_n c_p (np - ni^2)
        // less the optical terms and T the sum of all rates of the level.
        double R = 0, R_psi = 0, R_u = 0, R_v = 0;
        const double excess = wn * wp - 1;
        for (int k = 0; k < K; ++k) {
            const RecLevelData& d = *L[At(k)];
            const size_t a = At(k), b = At(k + 1);
            const double cn = d.c_n[q], cp = d.c_p[q], en = d.e_n[q], ep = d.e_p[q];
            const double gn = d.g_n_max[q], gp = d.g_p_max[q];
            const double U = excess * NcNv * cp * cn - gp * en - gn * ep - gp * gn;
            const double T = gn + gp + en + ep + cp * p + cn * n;
            const double s = f[a] + f[b];
            const double ds_psi = df_psi[a] + df_psi[b];
            const double ds_u = df_u[a] + df_u[b];
            const double ds_v = df_v[a] + df_v[b];
            const double dU_u = wp * NcNv * cp * cn, dU_v = wn * NcNv * cp * cn;
            const double dT_psi = cn * n - cp * p, dT_u = cn * En, dT_v = cp * Fp;
            R += U * s / T;
            R_psi += -s * U * dT_psi / (T * T) + U * ds_psi / T;
            R_u += s * (dU_u * T - U * dT_u) / (T * T) + U * ds_u / T;
            R_v += s * (dU_v * T - U * dT_v) / (T * T) + U * ds_v / T;
        }

        out.rho[i] = rho;
        out.drho_dpsi[i] = rho_psi;
        out.drho_du[i] = rho_u;
        out.drho_dv[i] = rho_v;
        out.R[i] = R * Nt;
        out.dR_dpsi[i] = R_psi * Nt;
        out.dR_du[i] = R_u * Nt;
        out.dR_dv[i] = R_v * Nt;
        for (int k = 0; k < K; ++k) {
            L[At(k)]->f_t[q] = f[At(k + 1)];
            L[At(k)]->een_min_f_t[q] = f[At(k)];
        }
    }
    return 1;
}

int rdcbijdrage_distributie_multilevel(CalculationVariables& cv, int layer, int defect,
                                       const EnergyAxis& axis, int type, RecDcTerms& out) {
    const int n = cv.recombination.n_energy_points[At(layer)][At(defect)];
    rec_dc_initialisatie(out, MeshPoints(cv));
    if (type == EDIST_SINGLE) {
        const int result = rdcbijdrage_een_niveau_multilevel(cv, layer, defect, 0, out);
        return result < 0 ? -1 : 1;
    }
    if (n < 2) return 1; // one sample spans no interval: the trapezoid sum is empty
    const int first = cv.mesh.first_point[At(layer)];
    const int last = cv.mesh.last_point[At(layer)];
    // Two records of the process for the neighbouring samples of the trapezoid sum, made once: a
    // record is 64 kB, too much to make and clear at every Newton step.  The points in use are cleared.
    static RecDcTerms previousSample, currentSample;
    RecDcTerms* previous = &previousSample;
    RecDcTerms* current = &currentSample;
    rec_dc_initialisatie(*previous, MeshPoints(cv));
    rec_dc_initialisatie(*current, MeshPoints(cv));
    if (rdcbijdrage_een_niveau_multilevel(cv, layer, defect, 0, *previous) < 0) return -1;
    for (int m = 1; m < n; ++m) {
        if (rdcbijdrage_een_niveau_multilevel(cv, layer, defect, m, *current) < 0) return -1 - m;
        const double w = axis.dE[At(m - 1)] / 2;
        const std::array<MeshArray*, 8> O{&out.rho, &out.drho_dpsi, &out.drho_du, &out.drho_dv,
                                          &out.R,   &out.dR_dpsi,   &out.dR_du,   &out.dR_dv};
        const std::array<const MeshArray*, 8> A{&previous->rho,     &previous->drho_dpsi, &previous->drho_du,
                                                &previous->drho_dv, &previous->R,         &previous->dR_dpsi,
                                                &previous->dR_du,   &previous->dR_dv};
        const std::array<const MeshArray*, 8> B{&current->rho,     &current->drho_dpsi, &current->drho_du,
                                                &current->drho_dv, &current->R,         &current->dR_dpsi,
                                                &current->dR_du,   &current->dR_dv};
        for (size_t a = 0; a < 8; ++a)
            for (int i = first; i <= last; ++i) (*O[a])[At(i)] += ((*A[a])[At(i)] + (*B[a])[At(i)]) * w;
        std::swap(previous, current);
    }
    return 1;
}

} // namespace tervo
