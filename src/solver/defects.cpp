#include "solver/defects.h"

#include <algorithm>
#include <cmath>

#include "platform/index.h"
#include "platform/messages.h"

namespace tervo {

namespace {

// The level records of one energy sample of a defect, one per level.
struct Sample {
    std::array<RecLevelData*, MAX_LEVELS> L{};
    int K = 0;
};

bool FindSample(CalculationVariables& cv, int layer, int defect, int energy_index, Sample& s) {
    if (layer < 0 || layer >= MAX_LAYERS || defect < 0 || defect >= MAX_DEFECTS) return false;
    auto& levels = cv.recombination.rec_levels[At(layer)][At(defect)];
    const size_t m = At(energy_index);
    if (energy_index < 0 || levels[0].size() <= m) return false;
    s.K = std::clamp(levels[0][m].n_levels, 1, MAX_LEVELS);
    for (int k = 0; k < s.K; ++k) {
        if (levels[At(k)].size() <= m) return false;
        s.L[At(k)] = &levels[At(k)][m];
    }
    return true;
}

bool AnyRate(const RecombinationTerms& need) {
    return need.rate || need.rateByPsi || need.rateByU || need.rateByV;
}

// The carriers at point i: w = a + u (a + v) and the derivatives of n by u and of p by v.
struct Carriers {
    double wn, wp, En, Fp, n, p;
};

Carriers CarriersAt(const CalculationVariables& cv, size_t i) {
    const CalculationParameters& P = *cv.parameters;
    Carriers c;
    c.wn = cv.a_n + cv.u[i];
    c.wp = cv.a_p + cv.v[i];
    c.En = cv.exp_psi[i] * P.Nc_eff[i];     // dn/du
    c.Fp = cv.exp_min_psi[i] * P.Nv_eff[i]; // dp/dv
    c.n = c.wn * c.En;
    c.p = c.wp * c.Fp;
    return c;
}

// A defect with one level: two states, occupied with f = A / (A + B), so that the occupation, the
// charge and the rate U / (A + B) of the level take their closed forms.  Derivatives by psi are at
// fixed u and v: dn = n, dp = -p.
void AddOneLevel(CalculationVariables& cv, RecLevelData& d, double weight, const RecombinationTerms& need,
                 RecDcTerms& out) {
    const CalculationParameters& P = *cv.parameters;
    const size_t first = At(d.first);
    const size_t count = d.Nt.size();
    const int q0 = ChargeOfStateZero(d.aard);
    const bool charged = d.aard != DEFLEVTYPE_NEUTRAL;
    const bool charge = charged && need.charge;
    const bool chargeByCarriers = charged && need.chargeByCarriers;
    const bool rate = AnyRate(need);
    for (size_t q = 0; q < count; ++q) {
        const size_t i = first + q;
        const Carriers c = CarriersAt(cv, i);
        const double cn = d.c_n[q], cp = d.c_p[q], en = d.e_n[q], ep = d.e_p[q];
        const double gn = d.g_n_max[q], gp = d.g_p_max[q];
        const double A = gp + ep + cn * c.n; // electron gained
        const double B = gn + en + cp * c.p; // electron lost
        const double invT = 1.0 / (A + B);
        const double f = A * invT, g = B * invT; // occupied, empty
        d.f_t[q] = f;
        d.een_min_f_t[q] = g;
        const double wNt = weight * d.Nt[q];
        // The occupied state holds one charge less than the empty one: drho = -Nt df.
        const double k2 = wNt * invT * invT;
        if (charge) {
            out.rho[i] += wNt * (q0 * g + (q0 - 1) * f);
            out.drho_dpsi[i] -= k2 * (cn * c.n * B + A * cp * c.p);
        }
        if (chargeByCarriers) {
            out.drho_du[i] -= k2 * c.En * cn * B;
            out.drho_dv[i] += k2 * A * c.Fp * cp;
        }
        if (!rate) continue;
        // U = c_n c_p (np - ni^2) less the optical terms; R = Nt U / T.
        const double NcNv = P.Nv_eff[i] * P.Nc_eff[i];
        const double U = (c.wn * c.wp - 1) * NcNv * cp * cn - gp * en - gn * ep - gp * gn;
        const double k = wNt * invT;
        if (need.rate) out.R[i] += k * U;
        if (need.rateByPsi) out.dR_dpsi[i] -= k * U * (cn * c.n - cp * c.p) * invT;
        if (need.rateByU) out.dR_du[i] += k * (c.wp * NcNv * cp * cn - U * cn * c.En * invT);
        if (need.rateByV) out.dR_dv[i] += k * (c.wn * NcNv * cp * cn - U * cp * c.Fp * invT);
    }
}

// A defect with K >= 2 levels: the K + 1 states follow from the ratios of neighbouring states.  Only
// the derivative directions that the needed terms read are formed.
void AddLevels(CalculationVariables& cv, const Sample& s, double weight, const RecombinationTerms& need,
               RecDcTerms& out) {
    constexpr size_t PSI = 0, U = 1, V = 2;
    const CalculationParameters& P = *cv.parameters;
    const int K = s.K;
    const RecLevelData& L0 = *s.L[0];
    const int first = L0.first;
    const size_t count = L0.Nt.size();
    const int q0 = ChargeOfStateZero(L0.aard);
    const bool charged = L0.aard != DEFLEVTYPE_NEUTRAL;
    const bool charge = charged && need.charge;
    const bool chargeByCarriers = charged && need.chargeByCarriers;
    const bool rate = AnyRate(need);
    const std::array<bool, 3> dir{charge || need.rateByPsi, chargeByCarriers || need.rateByU,
                                  chargeByCarriers || need.rateByV};
    using States = std::array<double, MAX_LEVELS + 1>;

    for (size_t q = 0; q < count; ++q) {
        const size_t i = At(first) + q;
        const Carriers c = CarriersAt(cv, i);

        // Ratios of neighbouring states and their derivatives.
        std::array<double, MAX_LEVELS> r{};
        std::array<std::array<double, MAX_LEVELS>, 3> dr{};
        for (int k = 0; k < K; ++k) {
            const RecLevelData& d = *s.L[At(k)];
            const size_t a = At(k);
            const double A = d.g_p_max[q] + d.e_p[q] + d.c_n[q] * c.n; // electron gained
            const double B = d.g_n_max[q] + d.e_n[q] + d.c_p[q] * c.p; // electron lost
            r[a] = A / B;
            if (dir[PSI]) dr[PSI][a] = (d.c_n[q] * c.n * B + A * d.c_p[q] * c.p) / (B * B);
            if (dir[U]) dr[U][a] = c.En * d.c_n[q] / B;
            if (dir[V]) dr[V][a] = -r[a] * c.Fp * d.c_p[q] / B;
        }

        // Unnormalised weights of the K + 1 states, kept within range by a common factor (the
        // occupations and their derivatives do not depend on it).
        States W{};
        std::array<States, 3> dW{};
        W[0] = 1;
        for (int k = 0; k < K; ++k) {
            const size_t a = At(k), b = At(k + 1);
            W[b] = r[a] * W[a];
            for (size_t x = 0; x < 3; ++x)
                if (dir[x]) dW[x][b] = dr[x][a] * W[a] + r[a] * dW[x][a];
            if (W[b] > 1e150) {
                const double scale = 1.0 / W[b];
                for (size_t e = 0; e <= b; ++e) {
                    W[e] *= scale;
                    for (size_t x = 0; x < 3; ++x) dW[x][e] *= scale;
                }
            }
        }
        double S = 0;
        std::array<double, 3> dS{};
        for (int k = 0; k <= K; ++k) {
            S += W[At(k)];
            for (size_t x = 0; x < 3; ++x) dS[x] += dW[x][At(k)];
        }
        States f{};
        std::array<States, 3> df{};
        int full = -1;
        for (int k = 0; k <= K; ++k) {
            const size_t a = At(k);
            f[a] = W[a] / S;
            for (size_t x = 0; x < 3; ++x)
                if (dir[x]) df[x][a] = (dW[x][a] - (dS[x] / S) * W[a]) / S;
            if (f[a] > 0.999999) full = k;
        }
        // A state that holds nearly all defects takes minus the sum of the others' derivatives, so
        // that the derivatives of the occupations add up to exactly 0 despite the cancellation.
        if (full >= 0) {
            for (size_t x = 0; x < 3; ++x) {
                if (!dir[x]) continue;
                double sum = 0;
                for (int k = 0; k <= K; ++k)
                    if (k != full) sum += df[x][At(k)];
                df[x][At(full)] = -sum;
            }
        }
        for (int k = 0; k < K; ++k) {
            s.L[At(k)]->f_t[q] = f[At(k + 1)];
            s.L[At(k)]->een_min_f_t[q] = f[At(k)];
        }

        const double wNt = weight * L0.Nt[q];
        if (charge || chargeByCarriers) {
            double rho = 0;
            std::array<double, 3> drho{};
            int z = q0;
            for (int k = 0; k <= K; ++k, --z) {
                rho += f[At(k)] * z;
                for (size_t x = 0; x < 3; ++x) drho[x] += df[x][At(k)] * z;
            }
            if (charge) {
                out.rho[i] += wNt * rho;
                out.drho_dpsi[i] += wNt * drho[PSI];
            }
            if (chargeByCarriers) {
                out.drho_du[i] += wNt * drho[U];
                out.drho_dv[i] += wNt * drho[V];
            }
        }
        if (!rate) continue;

        // Net recombination through each level: U (f_k + f_(k+1)) / T, with U = c_n c_p (np - ni^2)
        // less the optical terms and T the sum of all rates of the level.
        const double NcNv = P.Nv_eff[i] * P.Nc_eff[i];
        const double excess = c.wn * c.wp - 1;
        double R = 0, R_psi = 0, R_u = 0, R_v = 0;
        for (int k = 0; k < K; ++k) {
            const RecLevelData& d = *s.L[At(k)];
            const size_t a = At(k), b = At(k + 1);
            const double cn = d.c_n[q], cp = d.c_p[q], en = d.e_n[q], ep = d.e_p[q];
            const double gn = d.g_n_max[q], gp = d.g_p_max[q];
            const double Uk = excess * NcNv * cp * cn - gp * en - gn * ep - gp * gn;
            const double T = gn + gp + en + ep + cp * c.p + cn * c.n;
            const double sum = f[a] + f[b];
            R += Uk * sum / T;
            if (need.rateByPsi)
                R_psi += -sum * Uk * (cn * c.n - cp * c.p) / (T * T) + Uk * (df[PSI][a] + df[PSI][b]) / T;
            if (need.rateByU)
                R_u += sum * (c.wp * NcNv * cp * cn * T - Uk * cn * c.En) / (T * T) +
                       Uk * (df[U][a] + df[U][b]) / T;
            if (need.rateByV)
                R_v += sum * (c.wn * NcNv * cp * cn * T - Uk * cp * c.Fp) / (T * T) +
                       Uk * (df[V][a] + df[V][b]) / T;
        }
        if (need.rate) out.R[i] += wNt * R;
        if (need.rateByPsi) out.dR_dpsi[i] += wNt * R_psi;
        if (need.rateByU) out.dR_du[i] += wNt * R_u;
        if (need.rateByV) out.dR_dv[i] += wNt * R_v;
    }
}

// Zeroes the points of a layer in the eight arrays of `out`.
void ClearLayer(const RecLevelData& level, RecDcTerms& out) {
    const size_t first = At(level.first);
    const size_t last = std::min(first + level.Nt.size(), At(MAX_MESH_POINTS));
    for (MeshArray* a :
         {&out.rho, &out.drho_dpsi, &out.drho_du, &out.drho_dv, &out.R, &out.dR_dpsi, &out.dR_du, &out.dR_dv})
        std::fill(a->begin() + static_cast<long>(first), a->begin() + static_cast<long>(last), 0.0);
}

int AddDistribution(CalculationVariables& cv, int layer, int defect, const EnergyAxis& axis, int type,
                    const RecombinationTerms& need, RecDcTerms& out) {
    if (type == EDIST_SINGLE) return AddDefectSample(cv, layer, defect, 0, 1.0, need, out) < 0 ? -1 : 1;
    const int n = cv.recombination.n_energy_points[At(layer)][At(defect)];
    if (n < 2) return 1; // one sample spans no interval: the trapezoid sum is empty
    // Each sample enters once, with the sum of the half steps on its two sides.
    for (int m = 0; m < n; ++m)
        if (AddDefectSample(cv, layer, defect, m, TrapezoidWeight(axis, n, m, type), need, out) < 0)
            return -1 - m;
    return 1;
}

} // namespace

// ---------------------------------------------------------------------------------------------------
// Occupation, charge and recombination of one bulk defect.

int AddDefectSample(CalculationVariables& cv, int layer, int defect, int energy_index, double weight,
                    const RecombinationTerms& need, RecDcTerms& out) {
    Sample s;
    if (!FindSample(cv, layer, defect, energy_index, s)) return -1;
    // A neutral defect holds no charge: a step that reads only the charge has nothing to take from
    // it, and the occupations are formed anew by every step that does.
    const bool chargeOnly = (need.charge || need.chargeByCarriers) && !AnyRate(need);
    if (chargeOnly && s.L[0]->aard == DEFLEVTYPE_NEUTRAL) return 1;
    if (s.K == 1)
        AddOneLevel(cv, *s.L[0], weight, need, out);
    else
        AddLevels(cv, s, weight, need, out);
    return 1;
}

int AddDefectTerms(CalculationVariables& cv, int layer, int defect, const RecombinationTerms& need,
                   RecDcTerms& out) {
    if (layer < 0 || layer >= MAX_LAYERS || defect < 0 || defect >= MAX_DEFECTS) return -1;
    const int type = cv.parameters->srh[At(layer)][At(defect)][0].energy.type;
    return AddDistribution(cv, layer, defect, cv.recombination.axis[At(layer)][At(defect)], type, need, out);
}

int rdcbijdrage_een_niveau_multilevel(CalculationVariables& cv, int layer, int defect, int energy_index,
                                      RecDcTerms& out) {
    Sample s;
    if (!FindSample(cv, layer, defect, energy_index, s)) return -1;
    ClearLayer(*s.L[0], out);
    return AddDefectSample(cv, layer, defect, energy_index, 1.0, ALL_TERMS, out);
}

int rdcbijdrage_distributie_multilevel(CalculationVariables& cv, int layer, int defect,
                                       const EnergyAxis& axis, int type, RecDcTerms& out) {
    rec_dc_initialisatie(out, MeshPoints(cv));
    return AddDistribution(cv, layer, defect, axis, type, ALL_TERMS, out);
}

} // namespace tervo
