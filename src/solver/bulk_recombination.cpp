#include "solver/bulk_recombination.h"

#include <algorithm>

#include "solver/discrete_equations.h"

namespace tervo {

namespace {

size_t At(int i) {
    return static_cast<size_t>(i);
}

int Points(const CalculationVariables& cv) {
    return std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
}

template <typename F>
void ForEachArray(RecDcTerms& t, F f) {
    for (MeshArray* a : {&t.rho, &t.drho_dpsi, &t.drho_du, &t.drho_dv, &t.R, &t.dR_dpsi, &t.dR_du, &t.dR_dv})
        f(*a);
}

// Calls f(i) for the inner points of every layer: the band-to-band terms leave the first and the
// last point of each layer at 0.
template <typename F>
void ForInnerPoints(const CalculationVariables& cv, F f) {
    const int layers = std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
    for (int j = 0; j < layers; ++j)
        for (int i = cv.mesh.first_point[At(j)] + 1; i < cv.mesh.last_point[At(j)]; ++i) f(At(i));
}

} // namespace

void rec_dc_initialisatie(RecDcTerms& terms, int n) {
    const size_t m = At(std::clamp(n, 0, MAX_MESH_POINTS));
    ForEachArray(terms, [m](MeshArray& a) { std::fill(a.begin(), a.begin() + static_cast<long>(m), 0.0); });
}

void tel_dc_termen_op(const RecDcTerms& a, const RecDcTerms& b, RecDcTerms& sum, int n) {
    const size_t m = At(std::clamp(n, 0, MAX_MESH_POINTS));
    const std::array<const MeshArray*, 8> A{&a.rho, &a.drho_dpsi, &a.drho_du, &a.drho_dv,
                                            &a.R,   &a.dR_dpsi,   &a.dR_du,   &a.dR_dv};
    const std::array<const MeshArray*, 8> B{&b.rho, &b.drho_dpsi, &b.drho_du, &b.drho_dv,
                                            &b.R,   &b.dR_dpsi,   &b.dR_du,   &b.dR_dv};
    const std::array<MeshArray*, 8> S{&sum.rho, &sum.drho_dpsi, &sum.drho_du, &sum.drho_dv,
                                      &sum.R,   &sum.dR_dpsi,   &sum.dR_du,   &sum.dR_dv};
    for (size_t k = 0; k < 8; ++k)
        for (size_t i = 0; i < m; ++i) (*S[k])[i] = (*A[k])[i] + (*B[k])[i];
}

void maal_dc_termen(double factor, const RecDcTerms& in, RecDcTerms& out, int n) {
    const size_t m = At(std::clamp(n, 0, MAX_MESH_POINTS));
    const std::array<const MeshArray*, 8> I{&in.rho, &in.drho_dpsi, &in.drho_du, &in.drho_dv,
                                            &in.R,   &in.dR_dpsi,   &in.dR_du,   &in.dR_dv};
    const std::array<MeshArray*, 8> O{&out.rho, &out.drho_dpsi, &out.drho_du, &out.drho_dv,
                                      &out.R,   &out.dR_dpsi,   &out.dR_du,   &out.dR_dv};
    for (size_t k = 0; k < 8; ++k)
        for (size_t i = 0; i < m; ++i) (*O[k])[i] = factor * (*I[k])[i];
}

void rdcbijdrage_radiative(CalculationVariables& cv, RecDcTerms& out) {
    rec_dc_initialisatie(out, Points(cv));
    const CalculationParameters& P = *cv.parameters;
    ForInnerPoints(cv, [&](size_t i) {
        // np - ni^2 = Nc_eff Nv_eff ((a_n + u)(a_p + v) - 1): exp(psi) cancels.
        const double B = P.Nv_eff[i] * P.Nc_eff[i] * P.K_rad[i];
        const double wn = cv.a_n + cv.u[i];
        const double wp = cv.a_p + cv.v[i];
        out.R[i] = (wn * wp - 1) * B;
        out.dR_dpsi[i] = 0;
        out.dR_du[i] = wp * B;
        out.dR_dv[i] = wn * B;
    });
}

void rdcbijdrage_auger(CalculationVariables& cv, RecDcTerms& out) {
    rec_dc_initialisatie(out, Points(cv));
    const CalculationParameters& P = *cv.parameters;
    ForInnerPoints(cv, [&](size_t i) {
        const double wn = cv.a_n + cv.u[i];
        const double wp = cv.a_p + cv.v[i];
        const double n = wn * cv.exp_psi[i] * P.Nc_eff[i];
        const double p = wp * cv.exp_min_psi[i] * P.Nv_eff[i];
        const double A = P.Nv_eff[i] * P.Nc_eff[i];
        const double d = wn * wp - 1;
        const double c = p * P.C_p[i] + n * P.C_n[i];
        out.R[i] = c * d * A;
        out.dR_dpsi[i] = (n * P.C_n[i] - p * P.C_p[i]) * d * A;
        out.dR_du[i] = c * wp * A + d * cv.exp_psi[i] * P.Nc_eff[i] * A * P.C_n[i];
        out.dR_dv[i] = c * wn * A + d * cv.exp_min_psi[i] * P.Nv_eff[i] * A * P.C_p[i];
    });
}

int totale_rdcbijdrage_multilevel(CalculationVariables& cv) {
    const int n = Points(cv);
    RecombinationData& r = cv.recombination;
    rec_dc_initialisatie(r.dc, n);
    // Bulk defects add their terms to r.dc here, defect by defect, each summed over its energy axis;
    // a negative result of a defect is returned at once.  No defect levels are built on the mesh yet,
    // so the defect share is zero.
    maal_dc_termen(1.0, r.dc, r.dc_defects, n);
    rdcbijdrage_radiative(cv, r.dc_radiative);
    rdcbijdrage_auger(cv, r.dc_auger);
    tel_dc_termen_op(r.dc, r.dc_radiative, r.dc, n);
    tel_dc_termen_op(r.dc, r.dc_auger, r.dc, n);
    return 1;
}

int IterateFt(CalculationVariables& cv) {
    if (Generation_Mode != 0 || IPV_Mode != 1) {
        cv.ft_iterations = 0;
        return 1;
    }
    // The loop alternates defect occupation and the sub-gap absorption that the occupation causes,
    // until the occupations and optical emission rates of all levels change by less than
    // termination_Ft.  It covers the wavelengths that the optical spectra of the levels span; with no
    // level holding optical capture data that range is empty, nothing changes, and the first pass
    // ends the loop with the band-to-band generation as it is.
    const ConvergenceParameters& settings = cv.parameters->convergence;
    int count = 0;
    double change = 1.0;
    while (count < settings.maxiter_Ft && change > settings.termination_Ft) {
        change = 0.0;
        ++count;
    }
    cv.ft_iterations = count;
    return count < settings.maxiter_Ft ? 1 : 0;
}

} // namespace tervo
