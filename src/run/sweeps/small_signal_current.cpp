#include "run/sweeps/small_signal_current.h"

#include <algorithm>
#include <complex>

#include "platform/index.h"
#include "solver/ac_system.h"
#include "solver/discrete_equations.h"

namespace tervo {

int teken_Jn = 1;
int teken_Jp = 1;
int teken_Jdisplacement = 1;
MeshArray del_jn_re{}, del_jn_im{}, del_jp_re{}, del_jp_im{}, J_displ_re{}, J_displ_im{}, del_j_tot_re{},
    del_j_tot_im{};

namespace {

using cd = std::complex<double>;

struct Deviations {
    cd psi, Fn, Fp;
};

Deviations At_(int i) {
    const size_t I = At(i);
    return {cd(del_Psi_re[I], del_Psi_im[I]), cd(amplitude + del_u_re[I], del_u_im[I]),
            cd(del_v_re[I], del_v_im[I])};
}

// Small-signal current through the link from point i to i + 1, from left to right, normalised
// (times N_j D0 q / L gives A/m2).  The steady link currents are D G B (w_i - w_(i+1)) / h for
// electrons and the opposite for holes, with G = Nc_eff exp(psi_i), B = Bn_min of the link, and the
// mirror for holes.
void LinkCurrent(const CalculationVariables& cv, int i, cd& jn, cd& jp) {
    const CalculationParameters& P = *cv.parameters;
    const size_t I = At(i);
    const double h = cv.mesh.h[I];
    const Deviations a = At_(i), b = At_(i + 1);
    {
        const double D = (P.D_n[I] + P.D_n[I + 1]) / 2 / h;
        const double G = P.Nc_eff[I] * cv.exp_psi[I];
        const double B = cv.Bn_min[I + 1];
        const double dB = cv.dBn_min[I + 1]; // d B / d psi_i; d B / d psi_(i+1) = -dB
        const double Wd = u_difference(cv, i + 1, i);
        const cd flux = D * (G * B * Wd * a.psi + G * dB * Wd * (a.psi - b.psi) +
                             G * B * ((cv.a_n + cv.u[I + 1]) * b.Fn - (cv.a_n + cv.u[I]) * a.Fn));
        // Electrons flowing into point i from the right carry current to the right.
        jn = flux;
    }
    {
        const double D = (P.D_p[I] + P.D_p[I + 1]) / 2 / h;
        const double G = P.Nv_eff[I] * cv.exp_min_psi[I];
        const double B = cv.Bp_plus[I + 1];
        const double dB = cv.dBp_plus[I + 1]; // d B / d psi_(i+1); d B / d psi_i = -dB
        const double Wd = v_difference(cv, i + 1, i);
        const cd flux = D * (-G * B * Wd * a.psi - G * dB * Wd * (a.psi - b.psi) +
                             G * B * (-(cv.a_p + cv.v[I + 1]) * b.Fp + (cv.a_p + cv.v[I]) * a.Fp));
        // Holes flowing into point i from the right carry current to the left.
        jp = -flux;
    }
}

} // namespace

void extraheer_kleinsignaalstroom(const CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    const int layers = std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
    const double L = P.scale.length;
    const double* h = cv.mesh.h.data();
    for (MeshArray* a : {&del_jn_re, &del_jn_im, &del_jp_re, &del_jp_im, &J_displ_re, &J_displ_im,
                         &del_j_tot_re, &del_j_tot_im})
        a->fill(0.0);
    std::array<cd, MAX_MESH_POINTS> jn{}, jp{};
    for (int j = 0; j < layers; ++j) {
        const int first = cv.mesh.first_point[At(j)];
        const int last = cv.mesh.last_point[At(j)];
        if (last <= first) continue;
        const double f = P.scale.density[At(j)] * P.scale.diffusion * Q_ELEM / L;
        std::array<cd, MAX_MESH_POINTS> ln{}, lp{};
        for (int i = first; i < last; ++i) {
            LinkCurrent(cv, i, ln[At(i)], lp[At(i)]);
            ln[At(i)] *= f;
            lp[At(i)] *= f;
        }
        jn[At(first)] = ln[At(first)];
        jp[At(first)] = lp[At(first)];
        jn[At(last)] = ln[At(last - 1)];
        jp[At(last)] = lp[At(last - 1)];
        for (int i = first + 1; i < last; ++i) {
            jn[At(i)] = 0.5 * (ln[At(i - 1)] + ln[At(i)]);
            jp[At(i)] = 0.5 * (lp[At(i - 1)] + lp[At(i)]);
        }
        // Displacement current i omega eps eps0 E with E = -(kT/L) dpsi/dx.
        const double k = omega_us * P.kT / L * EPS0;
        for (int i = first; i <= last; ++i) {
            const size_t I = At(i);
            double dre, dim, e;
            if (i == first) {
                dre = del_Psi_re[I + 1] - del_Psi_re[I];
                dim = del_Psi_im[I + 1] - del_Psi_im[I];
                dre /= h[I];
                dim /= h[I];
                e = (P.eps[I + 1] + P.eps[I]) / 2;
            } else if (i == last) {
                dre = (del_Psi_re[I] - del_Psi_re[I - 1]) / h[I - 1];
                dim = (del_Psi_im[I] - del_Psi_im[I - 1]) / h[I - 1];
                e = (P.eps[I - 1] + P.eps[I]) / 2;
            } else {
                dre = (del_Psi_re[I + 1] - del_Psi_re[I - 1]) / (h[I - 1] + h[I]);
                dim = (del_Psi_im[I + 1] - del_Psi_im[I - 1]) / (h[I - 1] + h[I]);
                e = P.eps[I];
            }
            J_displ_re[I] = dim * e * k;
            J_displ_im[I] = -dre * e * k;
        }
    }
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        del_jn_re[I] = jn[I].real();
        del_jn_im[I] = jn[I].imag();
        del_jp_re[I] = jp[I].real();
        del_jp_im[I] = jp[I].imag();
        del_j_tot_re[I] = del_jn_re[I] + del_jp_re[I] + J_displ_re[I];
        del_j_tot_im[I] =
            teken_Jn * del_jn_im[I] + teken_Jp * del_jp_im[I] + teken_Jdisplacement * J_displ_im[I];
    }
}

Admittance SmallSignalAdmittance(const CalculationVariables& cv) {
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    Admittance y;
    if (n == 0) return y;
    for (int i = 0; i < n; ++i) {
        y.re += del_j_tot_re[At(i)];
        y.im += del_j_tot_im[At(i)];
    }
    const double kT = cv.parameters->kT;
    y.re = y.re / amplitude / kT / n;
    y.im = y.im / amplitude / kT / n;
    return y;
}

Admittance WithShuntAndSeries(Admittance y, bool shunt, double Gsh, bool series, double Rs) {
    if (shunt) y.re += Gsh;
    if (series) {
        const double m = y.im * y.im + y.re * y.re;
        const double z_im = -y.im / m;
        const double z_re = Rs + y.re / m;
        const double mz = z_im * z_im + z_re * z_re;
        y.re = z_re / mz;
        y.im = -z_im / mz;
    }
    return y;
}

} // namespace tervo
