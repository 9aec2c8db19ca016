#include "solver/bulk_recombination.h"

#include <algorithm>
#include <cmath>

#include "platform/index.h"
#include "setup/absorption.h"
#include "setup/generation.h"
#include "solver/defects.h"
#include "solver/discrete_equations.h"

namespace tervo {

namespace {

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

namespace {

// The band-to-band mechanisms that act somewhere on the mesh: a coefficient of 0 everywhere leaves
// the mechanism out.
struct BandToBand {
    bool radiative = false;
    bool auger = false;
};

BandToBand ActiveBandToBand(const CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    const auto n = static_cast<long>(MeshPoints(cv));
    auto nonzero = [](double x) { return x != 0.0; };
    BandToBand b;
    b.radiative = std::any_of(P.K_rad.begin(), P.K_rad.begin() + n, nonzero);
    b.auger = std::any_of(P.C_n.begin(), P.C_n.begin() + n, nonzero) ||
              std::any_of(P.C_p.begin(), P.C_p.begin() + n, nonzero);
    return b;
}

// Radiative recombination at point i added to the rate terms that `need` names.
void AddRadiative(const CalculationVariables& cv, size_t i, const RecombinationTerms& need, RecDcTerms& out) {
    const CalculationParameters& P = *cv.parameters;
    // np - ni^2 = Nc_eff Nv_eff ((a_n + u)(a_p + v) - 1): exp(psi) cancels.
    const double B = P.Nv_eff[i] * P.Nc_eff[i] * P.K_rad[i];
    const double wn = cv.a_n + cv.u[i];
    const double wp = cv.a_p + cv.v[i];
    if (need.rate) out.R[i] += (wn * wp - 1) * B;
    if (need.rateByU) out.dR_du[i] += wp * B;
    if (need.rateByV) out.dR_dv[i] += wn * B;
}

// Auger recombination at point i added to the rate terms that `need` names.
void AddAuger(const CalculationVariables& cv, size_t i, const RecombinationTerms& need, RecDcTerms& out) {
    const CalculationParameters& P = *cv.parameters;
    const double wn = cv.a_n + cv.u[i];
    const double wp = cv.a_p + cv.v[i];
    const double n = wn * cv.exp_psi[i] * P.Nc_eff[i];
    const double p = wp * cv.exp_min_psi[i] * P.Nv_eff[i];
    const double A = P.Nv_eff[i] * P.Nc_eff[i];
    const double d = wn * wp - 1;
    const double c = p * P.C_p[i] + n * P.C_n[i];
    if (need.rate) out.R[i] += c * d * A;
    if (need.rateByPsi) out.dR_dpsi[i] += (n * P.C_n[i] - p * P.C_p[i]) * d * A;
    if (need.rateByU) out.dR_du[i] += c * wp * A + d * cv.exp_psi[i] * P.Nc_eff[i] * A * P.C_n[i];
    if (need.rateByV) out.dR_dv[i] += c * wn * A + d * cv.exp_min_psi[i] * P.Nv_eff[i] * A * P.C_p[i];
}

// The arrays of a record that `need` names, each once, as members.
template <typename F>
void ForNeededArrays(const RecombinationTerms& need, F f) {
    if (need.charge) {
        f(&RecDcTerms::rho);
        f(&RecDcTerms::drho_dpsi);
    }
    if (need.chargeByCarriers) {
        f(&RecDcTerms::drho_du);
        f(&RecDcTerms::drho_dv);
    }
    if (need.rate) f(&RecDcTerms::R);
    if (need.rateByPsi) f(&RecDcTerms::dR_dpsi);
    if (need.rateByU) f(&RecDcTerms::dR_du);
    if (need.rateByV) f(&RecDcTerms::dR_dv);
}

// The band-to-band terms that `need` names into `out` on the whole mesh: the mechanisms of `b` summed
// at the inner points of each layer, 0 elsewhere and in the charge arrays (these mechanisms hold no
// charge).
void WriteBandToBand(const CalculationVariables& cv, BandToBand b, const RecombinationTerms& need,
                     RecDcTerms& out) {
    const auto n = static_cast<long>(MeshPoints(cv));
    ForNeededArrays(need, [&](MeshArray RecDcTerms::*a) { std::fill_n((out.*a).begin(), n, 0.0); });
    if (!b.radiative && !b.auger) return;
    ForInnerPoints(cv, [&](size_t i) {
        if (b.radiative) AddRadiative(cv, i, need, out);
        if (b.auger) AddAuger(cv, i, need, out);
    });
}

int AddAllDefects(CalculationVariables& cv, const RecombinationTerms& need, RecDcTerms& out) {
    const RecombinationData& r = cv.recombination;
    const int layers =
        std::clamp(std::min(cv.parameters->numberOfLayers, cv.mesh.number_of_layers), 0, MAX_LAYERS);
    for (int j = 0; j < layers; ++j)
        for (int d = 0; d < MAX_DEFECTS; ++d) {
            if (r.rec_levels[At(j)][At(d)][0].empty()) continue;
            const int result = AddDefectTerms(cv, j, d, need, out);
            if (result < 0) return result;
        }
    return 1;
}

} // namespace

void rdcbijdrage_radiative(CalculationVariables& cv, RecDcTerms& out) {
    rec_dc_initialisatie(out, MeshPoints(cv));
    ForInnerPoints(cv, [&](size_t i) { AddRadiative(cv, i, ALL_TERMS, out); });
}

void rdcbijdrage_auger(CalculationVariables& cv, RecDcTerms& out) {
    rec_dc_initialisatie(out, MeshPoints(cv));
    ForInnerPoints(cv, [&](size_t i) { AddAuger(cv, i, ALL_TERMS, out); });
}

int totale_rdcbijdrage_multilevel(CalculationVariables& cv, const RecombinationTerms& need) {
    RefreshRecdataForMesh(cv);
    RecombinationData& r = cv.recombination;
    const BandToBand b = ActiveBandToBand(cv);
    const auto n = At(MeshPoints(cv));
    // Each share holds the terms of the same iterate as the sum, so that what a solve leaves behind
    // agrees with itself whichever step came last.
    ForNeededArrays(need, [&](MeshArray RecDcTerms::*a) { std::fill_n((r.dc_defects.*a).begin(), n, 0.0); });
    const int result = AddAllDefects(cv, need, r.dc_defects);
    if (result < 0) return result;
    WriteBandToBand(cv, BandToBand{b.radiative, false}, need, r.dc_radiative);
    WriteBandToBand(cv, BandToBand{false, b.auger}, need, r.dc_auger);
    ForNeededArrays(need, [&](MeshArray RecDcTerms::*a) {
        const MeshArray &d = r.dc_defects.*a, &rad = r.dc_radiative.*a, &aug = r.dc_auger.*a;
        MeshArray& sum = r.dc.*a;
        for (size_t i = 0; i < n; ++i) sum[i] = d[i] + rad[i] + aug[i];
    });
    return 1;
}

// ---------------------------------------------------------------------------------------------------
// Impurity photovoltaic mode.

namespace {

// Calls f(level record, its optical capture data of electrons, of holes) for every level sample.
template <typename F>
void ForEachOpticalLevel(CalculationVariables& cv, F f) {
    CalculationParameters& P = *cv.parameters;
    for (int j = 0; j < MAX_LAYERS; ++j)
        for (int d = 0; d < MAX_DEFECTS; ++d)
            for (int k = 0; k < MAX_LEVELS; ++k) {
                const BulkRecombinationParameters& level = P.srh[At(j)][At(d)][At(k)];
                for (RecLevelData& data : cv.recombination.rec_levels[At(j)][At(d)][At(k)])
                    f(data, level.optCaptElectrons, level.optCaptHoles);
            }
}

bool HasData(const OpticalCaptureProperties& o) {
    return o.count > 0 && static_cast<int>(o.sigmas.size()) >= o.count;
}

double RelativeChange(const std::vector<double>& before, const std::vector<double>& after) {
    double change = 0;
    for (size_t q = 0; q < after.size() && q < before.size(); ++q) {
        const double d = std::fabs(before[q] - after[q]);
        change = std::max(change, after[q] != 0.0 ? d / std::fabs(after[q]) : d);
    }
    return change;
}

} // namespace

void CalculateGnpMax(CalculationVariables& cv, int count, int first, RecLevelData& data) {
    std::fill(data.g_n_max.begin(), data.g_n_max.end(), 0.0);
    std::fill(data.g_p_max.begin(), data.g_p_max.end(), 0.0);
    if (cv.generation == nullptr || cv.parameters == nullptr) return;
    const GenerationParameters& gp = *cv.generation;
    const BulkRecombinationParameters& level =
        cv.parameters->srh[At(data.layer)][At(data.defect)][At(data.level)];
    const OpticalCaptureProperties& electrons = level.optCaptElectrons;
    const OpticalCaptureProperties& holes = level.optCaptHoles;
    const size_t points = data.g_n_max.size();
    for (int l = first; l < first + count; ++l) {
        if (l < 0 || l >= gp.numberOfWavelengths || gp.fluxPoints < data.first + static_cast<int>(points) ||
            gp.flux.size() < FluxIndex(gp, l, gp.fluxPoints))
            continue;
        // A photon absorbed by an occupied level lifts its electron into the conduction band; one
        // absorbed by an empty level lifts an electron from the valence band into it, a hole emitted.
        // So the electron cross section, whose model threshold is the distance Eg - Et to the
        // conduction band, drives the optical emission of electrons g_n from the occupied share, and
        // the hole cross section (threshold Et) that of holes g_p from the empty share: paired the
        // other way round, a level would emit electrons under photons below its electron threshold.
        const bool e = HasData(electrons) && l >= electrons.firstWavelength &&
                       l < electrons.firstWavelength + electrons.count;
        const bool h =
            HasData(holes) && l >= holes.firstWavelength && l < holes.firstWavelength + holes.count;
        if (!e && !h) continue;
        const double sn = e ? electrons.sigmas[At(l - electrons.firstWavelength)] : 0.0;
        const double sp = h ? holes.sigmas[At(l - holes.firstWavelength)] : 0.0;
        for (size_t q = 0; q < points; ++q) {
            const double phi = gp.flux[FluxIndex(gp, l, data.first + static_cast<int>(q))];
            data.g_n_max[q] += phi * sn;
            data.g_p_max[q] += phi * sp;
        }
    }
}

int IterateFt(CalculationVariables& cv) {
    if (Generation_Mode != 0 || IPV_Mode != 1 || cv.generation == nullptr || cv.parameters == nullptr) {
        cv.ft_iterations = 0;
        return 1;
    }
    RefreshRecdataForMesh(cv);
    GenerationParameters& gp = *cv.generation;
    // The wavelengths that the optical spectra of the levels cover.
    int first = gp.numberOfWavelengths - 1, last = 0;
    ForEachOpticalLevel(
        cv, [&](RecLevelData&, const OpticalCaptureProperties& e, const OpticalCaptureProperties& h) {
            for (const OpticalCaptureProperties* o : {&e, &h}) {
                if (!HasData(*o)) continue;
                first = std::min(first, o->firstWavelength);
                last = std::max(last, o->firstWavelength + o->count - 1);
            }
        });
    first = std::max(first, 0);
    last = std::min(last, gp.numberOfWavelengths - 1);
    const int count = last - first + 1;

    // The loop alternates the occupation of the levels under the present optical rates and the
    // sub-gap absorption that this occupation causes, until occupations and optical rates of all
    // levels change by less than termination_Ft.
    const ConvergenceParameters& settings = cv.parameters->convergence;
    const int layers =
        std::clamp(std::min(cv.parameters->numberOfLayers, cv.mesh.number_of_layers), 0, MAX_LAYERS);
    int iterations = 0;
    double change = 1.0;
    while (iterations < settings.maxiter_Ft && change > settings.termination_Ft) {
        ForEachOpticalLevel(
            cv, [](RecLevelData& data, const OpticalCaptureProperties&, const OpticalCaptureProperties&) {
                data.f_tOld = data.f_t;
                data.een_min_f_tOld = data.een_min_f_t;
                data.g_n_maxOld = data.g_n_max;
                data.g_p_maxOld = data.g_p_max;
            });
        for (int j = 0; j < layers; ++j)
            for (int d = 0; d < MAX_DEFECTS; ++d) {
                const int n = cv.recombination.n_energy_points[At(j)][At(d)];
                for (int m = 0; m < n; ++m)
                    AddDefectSample(cv, j, d, m, 0.0, OCCUPATION_ONLY, cv.recombination.dc);
            }
        for (int l = first; l <= last; ++l) CalculateFluxesEverywhere(cv, gp, l, 0, Rfront);
        change = 0.0;
        ForEachOpticalLevel(
            cv, [&](RecLevelData& data, const OpticalCaptureProperties&, const OpticalCaptureProperties&) {
                CalculateGnpMax(cv, count, first, data);
                change = std::max({change, RelativeChange(data.f_tOld, data.f_t),
                                   RelativeChange(data.een_min_f_tOld, data.een_min_f_t),
                                   RelativeChange(data.g_n_maxOld, data.g_n_max),
                                   RelativeChange(data.g_p_maxOld, data.g_p_max)});
            });
        ++iterations;
    }
    CalculateGeneration(cv, gp);
    ForEachOpticalLevel(
        cv, [](RecLevelData& data, const OpticalCaptureProperties&, const OpticalCaptureProperties&) {
            data.f_tOld.clear();
            data.een_min_f_tOld.clear();
            data.g_n_maxOld.clear();
            data.g_p_maxOld.clear();
        });
    cv.ft_iterations = iterations;
    return iterations < settings.maxiter_Ft ? 1 : 0;
}

} // namespace tervo
