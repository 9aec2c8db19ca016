#include "setup/defect_levels.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "platform/index.h"
#include "platform/messages.h"

namespace tervo {

namespace {

int LayersOnMesh(const CalculationVariables& cv) {
    if (cv.parameters == nullptr) return 0;
    return std::clamp(std::min(cv.parameters->numberOfLayers, cv.mesh.number_of_layers), 0, MAX_LAYERS);
}

// Samples of a distribution: one for a single level, else the setting, within 1 .. 100.
int SamplesOf(int type, int discretisations) {
    return type == EDIST_SINGLE ? 1 : std::clamp(discretisations, 1, MAX_ENERGY_POINTS);
}

// Energy of level k of a defect on the scale of its reference.  With a correlation energy U the levels
// follow the first one at steps of U: adding one more electron to the defect costs U more.  On a scale
// counted down from the conduction band a step up in energy is a step down in value.
double LevelCentre(const DefectLevels& levels, int k) {
    const EDistribution& first = levels[0].energy;
    if (first.correlated == 0 || k == 0) return levels[At(k)].energy.Et;
    const double step = first.reference == 2 ? -first.correlationEnergy : first.correlationEnergy;
    return first.Et + k * step;
}

// Level energy above the valence band at point i for a value E given in `reference`.
double AboveValenceBand(const CalculationParameters& P, int reference, double E, size_t i) {
    switch (reference) {
    case 1:
        return E + P.Eg[i] / 2 + (P.kT / 2) * std::log(P.Nv_norm[i] / P.Nc_norm[i]);
    case 2:
        return P.Eg[i] - E;
    default:
        return E;
    }
}

// Linear interpolation of a per-point array of a layer from an old mesh onto the new one, by
// position; outside the old points the end value holds.
void CarryOver(const std::vector<double>& oldValues, const MeshArray& oldX, int oldFirst,
               std::vector<double>& newValues, const MeshArray& newX, int newFirst) {
    const size_t m = oldValues.size();
    if (m == 0 || newValues.empty()) return;
    // The new positions rise, so the search for each goes on from where the one before stopped:
    // every old interval passed then lies below this position too.
    size_t j = 0;
    double previous = -std::numeric_limits<double>::infinity();
    for (size_t k = 0; k < newValues.size(); ++k) {
        const double x = newX[At(newFirst) + k];
        if (!(x >= previous)) j = 0;
        previous = x;
        while (j + 1 < m && oldX[At(oldFirst) + j + 1] < x) ++j;
        if (j + 1 >= m) {
            newValues[k] = oldValues[m - 1];
            continue;
        }
        const double x0 = oldX[At(oldFirst) + j], x1 = oldX[At(oldFirst) + j + 1];
        if (x <= x0 || x1 <= x0) {
            newValues[k] = oldValues[j];
            continue;
        }
        const double t = std::min((x - x0) / (x1 - x0), 1.0);
        newValues[k] = oldValues[j] + t * (oldValues[j + 1] - oldValues[j]);
    }
}

void MarkBuilt(CalculationVariables& cv) {
    RecombinationData& r = cv.recombination;
    r.builtPoints = MeshPoints(cv);
    r.builtX = cv.mesh.x;
    r.builtFor = cv.parameters;
}

} // namespace

// ---------------------------------------------------------------------------------------------------
// Energy distributions.

EnergyAxis bereken_energie_as(int type, double W, double Et, int n, double widthtail, double widthgauss) {
    EnergyAxis axis;
    n = std::clamp(n, 1, MAX_ENERGY_POINTS);
    if (type == EDIST_SINGLE || n == 1) {
        axis.E[0] = Et;
        return axis;
    }
    double dE = 0, start = Et, sign = 1;
    switch (type) {
    case EDIST_UNIFORM:
        dE = W / (n - 1);
        start = Et - W / 2;
        break;
    case EDIST_GAUSS:
        dE = W * widthgauss / (n - 1);
        start = Et - W * widthgauss / 2;
        break;
    case EDIST_CBTAIL:
        dE = W * widthtail / (n - 1);
        sign = -1;
        break;
    case EDIST_VBTAIL:
        dE = W * widthtail / (n - 1);
        break;
    default:
        axis.E[0] = Et;
        return axis;
    }
    for (int k = 0; k < n; ++k) {
        axis.E[At(k)] = start + sign * k * dE;
        axis.dE[At(k)] = k + 1 < n ? dE : 0.0;
    }
    return axis;
}

double EnergyDistributionWeight(int type, double E, double Ec, double W) {
    switch (type) {
    case EDIST_GAUSS:
        return std::exp(-(E - Ec) * (E - Ec) / (W * W));
    case EDIST_CBTAIL:
        return std::exp((E - Ec) / W);
    case EDIST_VBTAIL:
        return std::exp(-(E - Ec) / W);
    default:
        return 1.0;
    }
}

int DistributionTypeOnScale(int type, int reference, bool interface) {
    const bool downwards = interface ? reference == 4 : reference == 2;
    if (!downwards) return type;
    if (type == EDIST_CBTAIL) return EDIST_VBTAIL;
    if (type == EDIST_VBTAIL) return EDIST_CBTAIL;
    return type;
}

double TrapezoidWeight(const EnergyAxis& axis, int n, int m, int type) {
    if (type == EDIST_SINGLE) return 1.0;
    if (n < 2 || m < 0 || m >= n) return 0.0;
    double w = 0;
    if (m > 0) w += axis.dE[At(m - 1)] / 2;
    if (m + 1 < n) w += axis.dE[At(m)] / 2;
    return w;
}

int ChargeOfStateZero(int aard) {
    static constexpr std::array<int, NDEFLEVTYPE> charge{0, -2, -1, 0, 1, 2, 3};
    return aard >= 0 && aard < NDEFLEVTYPE ? charge[At(aard)] : 0;
}

// ---------------------------------------------------------------------------------------------------
// Bulk level records.

void r_input_energie(CalculationVariables& cv, double E, BulkRecombinationParameters& level,
                     RecLevelData& data) {
    const CalculationParameters& P = *cv.parameters;
    const int layer = data.layer;
    const int first = cv.mesh.first_point[At(layer)];
    const int count = cv.mesh.last_point[At(layer)] - first + 1;
    const size_t m = At(std::max(count, 0));
    data.first = first;
    data.E = E;
    data.aard = level.aard;
    for (std::vector<double>* a : {&data.Nt, &data.c_n, &data.c_p, &data.e_n, &data.e_p}) a->assign(m, 0.0);

    // Degeneracy of the transition k of a defect with K levels: (K - k)/(1 + k) ways to add the
    // electron against ways to remove it, unless the defect asks for factors of one.
    const int K = std::clamp(data.n_levels, 1, MAX_LEVELS);
    const int k = data.level;
    const double g = level.energy.degeneracyOne ? 1.0 : static_cast<double>(K - k) / (1.0 + k);

    // Density: the spatial profile times the peak-to-total factor times the weight of E.
    const int type = DistributionTypeOnScale(level.energy.type, level.energy.reference, false);
    const double w = EnergyDistributionWeight(type, E, level.energy.Et, level.energy.Ekar);
    MeshArray profile{};
    level.layernumber = layer;
    Full_Nt_x_Dependence(cv, level, profile.data(), w);

    const double kT = P.kT;
    for (size_t q = 0; q < m; ++q) {
        const size_t i = At(first) + q;
        data.c_n[q] = P.vth_n[i] * level.sigma_n;
        data.c_p[q] = P.vth_p[i] * level.sigma_p;
        const double Et = AboveValenceBand(P, level.energy.reference, E, i);
        data.e_n[q] = P.Nc_norm[i] * (data.c_n[q] / g) * std::exp(-(P.Eg[i] - Et) / kT);
        data.e_p[q] = P.Nv_norm[i] * g * data.c_p[q] * std::exp(-Et / kT);
        data.Nt[q] = profile[i];
    }
}

namespace {

using BulkLevelRecords = decltype(RecombinationData::rec_levels);
using InterfaceLevelRecords = decltype(RecombinationData::ifr_levels);

// The bulk level records on the present mesh; with `old` (and the positions `oldX` of the mesh it was
// built on) the occupations and optical rates are carried over.
void BuildBulkLevels(CalculationVariables& cv, const BulkLevelRecords* old, const MeshArray* oldX) {
    FreeRecdataStructures(cv);
    RecombinationData& r = cv.recombination;
    MarkBuilt(cv);
    if (cv.parameters == nullptr) return;
    CalculationParameters& P = *cv.parameters;
    const int layers = LayersOnMesh(cv);
    for (int j = 0; j < layers; ++j) {
        const int defects = std::clamp(P.defectsPerLayer[At(j)], 0, MAX_DEFECTS);
        const int first = cv.mesh.first_point[At(j)];
        const int count = std::max(cv.mesh.last_point[At(j)] - first + 1, 0);
        for (int d = 0; d < defects; ++d) {
            DefectLevels& levels = P.srh[At(j)][At(d)];
            const int K = std::clamp(levels[0].numberOfLevels, 1, MAX_LEVELS);
            const int type = levels[0].energy.type;
            const int n = SamplesOf(type, P.defectdiscretisations);
            r.n_energy_points[At(j)][At(d)] = n;
            for (int k = 0; k < K; ++k) {
                // The level as the defect sees it: its place in the defect, and with a correlation
                // energy its energy relative to the first level.
                BulkRecombinationParameters level = levels[At(k)];
                level.energy.type = type;
                level.energy.reference = levels[0].energy.reference;
                level.energy.Ekar = levels[0].energy.Ekar;
                level.energy.degeneracyOne = levels[0].energy.degeneracyOne;
                level.energy.Et = LevelCentre(levels, k);
                DeterminePeakToTotal(level.energy);
                DeterminePeakToTotal(levels[At(k)].energy);
                const int scaleType = DistributionTypeOnScale(type, level.energy.reference, false);
                const EnergyAxis axis = bereken_energie_as(scaleType, level.energy.Ekar, level.energy.Et, n,
                                                           P.widthtail, P.widthgauss);
                if (k == 0) r.axis[At(j)][At(d)] = axis;
                std::vector<RecLevelData>& samples = r.rec_levels[At(j)][At(d)][At(k)];
                samples.assign(At(n), RecLevelData{});
                for (int m = 0; m < n; ++m) {
                    RecLevelData& data = samples[At(m)];
                    data.layer = j;
                    data.defect = d;
                    data.level = k;
                    data.n_levels = K;
                    r_input_energie(cv, axis.E[At(m)], level, data);
                    data.f_t.assign(At(count), 0.5);
                    data.een_min_f_t.assign(At(count), 0.5);
                    data.g_n_max.assign(At(count), 0.0);
                    data.g_p_max.assign(At(count), 0.0);
                    if (old == nullptr) continue;
                    const auto& before = (*old)[At(j)][At(d)][At(k)];
                    if (At(m) >= before.size()) continue;
                    const RecLevelData& o = before[At(m)];
                    CarryOver(o.f_t, *oldX, o.first, data.f_t, cv.mesh.x, first);
                    CarryOver(o.een_min_f_t, *oldX, o.first, data.een_min_f_t, cv.mesh.x, first);
                    CarryOver(o.g_n_max, *oldX, o.first, data.g_n_max, cv.mesh.x, first);
                    CarryOver(o.g_p_max, *oldX, o.first, data.g_p_max, cv.mesh.x, first);
                }
                // Each sample holds the density of the distribution at its energy, Ntotal times the
                // peak-to-total factor times w(E), and the recombination sums the samples by the
                // trapezoid rule.  That sum is the total the user gave only as far as the sampling
                // resolves the distribution: seven samples over the seven widths of a tail hold about
                // 1.11 times it (the steps of 7/6 of a width overshoot the exponential), a Gaussian
                // over six widths within 1e-4 of it, a uniform band exactly the total.
            }
        }
    }
}

} // namespace

void CreateRecdataStructures(CalculationVariables& cv, const RecombinationData* old) {
    BuildBulkLevels(cv, old != nullptr ? &old->rec_levels : nullptr, old != nullptr ? &old->builtX : nullptr);
}

void FreeRecdataStructures(CalculationVariables& cv) {
    RecombinationData& r = cv.recombination;
    for (auto& layer : r.rec_levels)
        for (auto& defect : layer)
            for (auto& level : defect) level.clear();
    for (auto& layer : r.n_energy_points) layer.fill(0);
}

// ---------------------------------------------------------------------------------------------------
// Interface level records.

void ifr_input_energie(CalculationVariables& cv, double E, const InterfaceRecombinationParameters& params,
                       IfrLevelData& data) {
    const CalculationParameters& P = *cv.parameters;
    const int j = data.interface;
    const size_t i = At(cv.mesh.last_point[At(j)]);      // left side
    const size_t k = At(cv.mesh.first_point[At(j + 1)]); // right side
    const double kT = P.kT;
    const double Eg = P.Eg[i];
    // Band offsets at the interface: the conduction band of the right side lies dchi below that of
    // the left side, its valence band dEv above.
    const double dchi = P.chi[k] - P.chi[i];
    const double dEv = Eg - dchi - P.Eg[k];
    const double EiLeft = Eg / 2 + (kT / 2) * std::log(P.Nv_norm[i] / P.Nc_norm[i]);
    const double EiRight = P.Eg[k] / 2 + (kT / 2) * std::log(P.Nv_norm[k] / P.Nc_norm[k]);

    // The energy above the left valence band, from the reference of the defect.  A value given
    // above a band edge or intrinsic level of the right side sits at that energy in the densities of
    // the right side too.
    auto aboveLeftEv = [&](double value) {
        switch (params.energy.reference) {
        case 1:
        case 5:
            return value + EiLeft;
        case 2:
            return Eg - value;
        case 3:
            return value + std::max(dEv, 0.0);
        case 4:
            return (dchi > 0 ? Eg - dchi : Eg) - value;
        case 6:
            return value + EiRight + dEv;
        case 8:
            return value + dEv;
        default: // 0 and 7: above the left valence band
            return value;
        }
    };
    data.aard = params.type;
    data.tunnel_flag = params.tunnelling;
    data.tunnel_mass_n = params.relElectronMass;
    data.tunnel_mass_p = params.relHoleMass;
    data.gamma_n_left = data.gamma_n_right = data.gamma_p_left = data.gamma_p_right = 0.0;
    data.E_trap = aboveLeftEv(E);
    data.c_n_left = P.vth_n[i] * params.sigma_nleft;
    data.c_p_left = P.vth_p[i] * params.sigma_pleft;
    data.c_n_right = P.vth_n[k] * params.sigma_nright;
    data.c_p_right = P.vth_p[k] * params.sigma_pright;
    data.n1_left = P.Nc_norm[i] * std::exp(-(Eg - data.E_trap) / kT);
    data.n1_right = P.Nc_norm[k] * std::exp(-(Eg - data.E_trap - dchi) / kT);
    data.p1_left = P.Nv_norm[i] * std::exp(-data.E_trap / kT);
    data.p1_right = P.Nv_norm[k] * std::exp(-(data.E_trap - dEv) / kT);
    const int type = DistributionTypeOnScale(params.energy.type, params.energy.reference, true);
    data.Nt = params.N * EnergyDistributionWeight(type, E, params.energy.Et, params.energy.Ekar);
}

namespace {

// The interface level records; with `old` the occupations are carried over.
void BuildInterfaceLevels(CalculationVariables& cv, const InterfaceLevelRecords* old) {
    FreeIFRecdataStructures(cv);
    if (cv.parameters == nullptr) return;
    CalculationParameters& P = *cv.parameters;
    RecombinationData& r = cv.recombination;
    const int interfaces = std::max(LayersOnMesh(cv) - 1, 0);
    for (int j = 0; j < interfaces; ++j) {
        const int defects = std::clamp(P.defectsPerInterface[At(j)], 0, MAX_IFDEFECTS);
        for (int d = 0; d < defects; ++d) {
            InterfaceRecombinationParameters& params = P.interfaceDefect[At(j)][At(d)];
            DeterminePeakToTotal(params.energy);
            const int n = SamplesOf(params.energy.type, P.defectdiscretisations);
            r.n_ifr_points[At(j)][At(d)] = n;
            const int scaleType = DistributionTypeOnScale(params.energy.type, params.energy.reference, true);
            const EnergyAxis axis = bereken_energie_as(scaleType, params.energy.Ekar, params.energy.Et, n,
                                                       P.widthtail, P.widthgauss);
            r.ifr_axis[At(j)][At(d)] = axis;
            std::vector<IfrLevelData>& samples = r.ifr_levels[At(j)][At(d)];
            samples.assign(At(n), IfrLevelData{});
            for (int m = 0; m < n; ++m) {
                IfrLevelData& data = samples[At(m)];
                data.interface = j;
                data.defect = d;
                ifr_input_energie(cv, axis.E[At(m)], params, data);
                if (old == nullptr) continue;
                const auto& before = (*old)[At(j)][At(d)];
                if (At(m) >= before.size()) continue;
                data.f_t = before[At(m)].f_t;
                data.een_min_f_t = before[At(m)].een_min_f_t;
            }
        }
    }
}

} // namespace

void CreateIFRecdataStructures(CalculationVariables& cv, const RecombinationData* old) {
    BuildInterfaceLevels(cv, old != nullptr ? &old->ifr_levels : nullptr);
}

void FreeIFRecdataStructures(CalculationVariables& cv) {
    RecombinationData& r = cv.recombination;
    for (auto& interface : r.ifr_levels)
        for (auto& defect : interface) defect.clear();
    for (auto& interface : r.n_ifr_points) interface.fill(0);
}

bool RecdataMatchesMesh(const CalculationVariables& cv) {
    const RecombinationData& r = cv.recombination;
    const int n = MeshPoints(cv);
    if (r.builtFor != cv.parameters || r.builtPoints != n) return false;
    return std::equal(cv.mesh.x.begin(), cv.mesh.x.begin() + n, r.builtX.begin());
}

void RefreshRecdataForMesh(CalculationVariables& cv) {
    if (RecdataMatchesMesh(cv)) return;
    // Only the level records are needed from the old state, and they are moved out of it, not copied
    // with the rest of the record; the sums are formed anew anyway.
    const BulkLevelRecords oldBulk = std::move(cv.recombination.rec_levels);
    const InterfaceLevelRecords oldInterface = std::move(cv.recombination.ifr_levels);
    const MeshArray oldX = cv.recombination.builtX;
    BuildBulkLevels(cv, &oldBulk, &oldX);
    BuildInterfaceLevels(cv, &oldInterface);
}

} // namespace tervo
