#include "run/results/extraction.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/files.h"
#include "platform/format.h"
#include "platform/index.h"
#include "solver/bulk_recombination.h"
#include "solver/defects.h"
#include "solver/discrete_equations.h"
#include "solver/gummel.h"
#include "solver/interface_recombination.h"

namespace tervo {

MeshArray j_n{};
MeshArray j_p{};
MeshArray jn_tunnel{};
MeshArray jp_tunnel{};
MeshArray j_tot{};

BandDiagram bandenschema{};
ConcentrationProfiles concentraties{};
FieldProfile veld{};
DefectOccupations bezettingen{};
std::string LastWorkPointSimulationDate;

namespace {

int Layers(const CalculationVariables& cv) {
    return std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
}

// The energy of a defect level in the reference it is given in: the level itself, the centre of a
// uniform band or a Gaussian (the middle of its symmetric axis), or the band-side edge of a tail
// (the first sample of its axis).
double LevelEnergy(const std::vector<RecLevelData>& samples, int type) {
    if (type == EDIST_UNIFORM || type == EDIST_GAUSS) return (samples.front().E + samples.back().E) / 2;
    return samples.front().E;
}

// The first `count` values of a per-point array of a level record (fewer if it holds fewer).
std::vector<double> Head(const std::vector<double>& values, size_t count) {
    return {values.begin(), values.begin() + static_cast<std::ptrdiff_t>(std::min(count, values.size()))};
}

// The points of a layer that a level record covers, within the mesh.
int CoveredPoints(const RecLevelData& data, int n) {
    return std::clamp(std::min(static_cast<int>(data.Nt.size()), n - data.first), 0, MAX_MESH_POINTS);
}

} // namespace

void update_eb_panel(CalculationVariables& cv, int show) {
    if (cv.parameters == nullptr) return;
    // The recombination and tunnelling terms of the final state: a solve leaves those of its last
    // iterate, and the tunnel currents are rebuilt from zero since the interface terms add to them.
    InitialiseTunnelCurrent(cv, 0);
    IterateFt(cv);
    totale_rdcbijdrage_multilevel(cv);
    totale_ifrdcbijdrage(cv);
    // Tunnelling inside the bands (intraband over the interfaces for both carriers, into the four
    // contact and carrier combinations, band to band) belongs here, after the recombination terms
    // and before the currents, once the tunnelling models exist.
    if (show) {
        extraheer_bandenschema(cv);
        extraheer_concentraties(cv);
        extraheer_veld(cv);
    }
    extraheer_stroom(cv, show);
    const DateTime now = GetSystemDateTime();
    Fmt(LastWorkPointSimulationDate, "%s[w80]<%i-%i-%i at %i:%i:%i", now.day, now.month, now.year, now.hours,
        now.minutes, now.seconds);
}

void extraheer_bandenschema(const CalculationVariables& cv, BandDiagram& out) {
    out.n_points = 0;
    if (cv.parameters == nullptr) return;
    const CalculationParameters& P = *cv.parameters;
    const int n = MeshPoints(cv);
    out.n_points = n;
    if (n == 0) return;
    const double Ec0 = P.Fi_m_left - P.chi[0];
    for (int k = 0; k < n; ++k) {
        const size_t i = At(k);
        out.Ec[i] = Ec0 - (P.chi[i] - P.chi[0]) - cv.psi[i] * P.kT;
        out.Ev[i] = out.Ec[i] - P.Eg[i];
        out.Fn[i] = P.kT * cv.EFn[i];
        out.Fp[i] = P.kT * cv.EFp[i];
    }
    out.defectLevels.clear();
    const RecombinationData& r = cv.recombination;
    for (int j = 0; j < Layers(cv); ++j) {
        for (int d = 0; d < MAX_DEFECTS; ++d) {
            const EDistribution& energy = P.srh[At(j)][At(d)][0].energy;
            for (int k = 0; k < MAX_LEVELS; ++k) {
                const std::vector<RecLevelData>& samples = r.rec_levels[At(j)][At(d)][At(k)];
                if (samples.empty()) continue;
                const double E = LevelEnergy(samples, energy.type);
                DefectLevelLine line;
                line.layer = j;
                line.defect = d;
                line.level = k;
                line.first = samples.front().first;
                line.E.resize(At(CoveredPoints(samples.front(), n)));
                for (size_t q = 0; q < line.E.size(); ++q) {
                    const size_t i = At(line.first) + q;
                    switch (energy.reference) {
                    case 1: // above the intrinsic level
                        line.E[q] =
                            E + out.Ev[i] + P.Eg[i] / 2 + (P.kT / 2) * std::log(P.Nv_norm[i] / P.Nc_norm[i]);
                        break;
                    case 2: // below the conduction band
                        line.E[q] = out.Ec[i] - E;
                        break;
                    default: // above the valence band
                        line.E[q] = E + out.Ev[i];
                        break;
                    }
                }
                out.defectLevels.push_back(std::move(line));
            }
        }
    }
}

void extraheer_bandenschema(CalculationVariables& cv) {
    extraheer_bandenschema(cv, bandenschema);
}

void extraheer_concentraties(const CalculationVariables& cv, ConcentrationProfiles& out) {
    out.n_points = 0;
    if (cv.parameters == nullptr) return;
    const CalculationParameters& P = *cv.parameters;
    const RecDcTerms& dc = cv.recombination.dc;
    out.n_points = MeshPoints(cv);
    for (int j = 0; j < Layers(cv); ++j) {
        const double N = P.scale.density[At(j)];
        const int first = cv.mesh.first_point[At(j)];
        const int last = std::min(cv.mesh.last_point[At(j)], out.n_points - 1);
        for (int k = first; k <= last; ++k) {
            const size_t i = At(k);
            out.n[i] = N * (cv.a_n + cv.u[i]) * cv.exp_psi[i] * P.Nc_eff[i] * 1e-6;
            out.p[i] = N * (cv.a_p + cv.v[i]) * cv.exp_min_psi[i] * P.Nv_eff[i] * 1e-6;
            out.netCharge[i] =
                std::fabs(N * P.doping[i] + N * dc.rho[i] + 1e6 * (out.p[i] - out.n[i])) * 1e-6;
        }
        // The edge points carry the charge of the interface or contact region; the graph shows the
        // bulk value next to them.
        if (last - first >= 2) {
            out.netCharge[At(first)] = out.netCharge[At(first + 1)];
            out.netCharge[At(last)] = out.netCharge[At(last - 1)];
        }
    }
}

void extraheer_concentraties(CalculationVariables& cv) {
    extraheer_concentraties(cv, concentraties);
}

void FieldStrength(const CalculationVariables& cv, MeshArray& E) {
    const int n = MeshPoints(cv);
    std::fill(E.begin(), E.begin() + n, 0.0);
    if (cv.parameters == nullptr) return;
    const double factor = cv.parameters->kT / cv.parameters->scale.length; // kT/q per unit of x, V/m
    const MeshArray& psi = cv.psi;
    const auto& x = cv.mesh.x;
    for (int j = 0; j < Layers(cv); ++j) {
        const int first = cv.mesh.first_point[At(j)];
        const int last = std::min(cv.mesh.last_point[At(j)], n - 1);
        if (last <= first) continue;
        if (last == first + 1) {
            const double slope = (psi[At(last)] - psi[At(first)]) / (x[At(last)] - x[At(first)]);
            E[At(first)] = E[At(last)] = -factor * slope;
            continue;
        }
        for (int k = first + 1; k < last; ++k) {
            const size_t i = At(k);
            const double h1 = x[i] - x[i - 1];
            const double h2 = x[i + 1] - x[i];
            E[i] = -factor * (h1 * psi[i + 1] / ((h1 + h2) * h2) + (h2 - h1) * psi[i] / (h1 * h2) -
                              h2 * psi[i - 1] / ((h1 + h2) * h1));
        }
        {
            // One-sided at the first point, on the first three points of the layer.
            const size_t i = At(first);
            const double h1 = x[i + 1] - x[i];
            const double h2 = x[i + 2] - x[i + 1];
            const double slope = -psi[i] * (2 * h1 + h2) / (h1 * (h1 + h2)) +
                                 psi[i + 1] * (h1 + h2) / (h1 * h2) - psi[i + 2] * h1 / (h2 * (h1 + h2));
            E[i] = -factor * slope;
        }
        {
            // One-sided at the last point, on the last three points of the layer.
            const size_t i = At(last);
            const double h1 = x[i - 1] - x[i - 2];
            const double h2 = x[i] - x[i - 1];
            const double slope = psi[i - 2] * h2 / (h1 * (h1 + h2)) - psi[i - 1] * (h1 + h2) / (h1 * h2) +
                                 psi[i] * (2 * h2 + h1) / (h2 * (h1 + h2));
            E[i] = -factor * slope;
        }
    }
}

void extraheer_veld(const CalculationVariables& cv, FieldProfile& out) {
    out.n_points = cv.parameters != nullptr ? MeshPoints(cv) : 0;
    FieldStrength(cv, out.E);
}

void extraheer_veld(CalculationVariables& cv) {
    extraheer_veld(cv, veld);
    ExtractOccupations(cv, bezettingen);
}

void ExtractOccupations(const CalculationVariables& cv, DefectOccupations& out) {
    out = DefectOccupations{};
    if (cv.parameters == nullptr) return;
    const CalculationParameters& P = *cv.parameters;
    const RecombinationData& r = cv.recombination;
    const int n = MeshPoints(cv);
    out.n_points = n;
    for (int j = 0; j < Layers(cv); ++j) {
        for (int d = 0; d < MAX_DEFECTS; ++d) {
            const auto& levels = r.rec_levels[At(j)][At(d)];
            if (levels[0].empty()) continue;
            const int type = P.srh[At(j)][At(d)][0].energy.type;
            if (type != EDIST_SINGLE) out.distributions.push_back({j, d, type});
            for (int k = 0; k < MAX_LEVELS; ++k) {
                for (size_t m = 0; m < levels[At(k)].size(); ++m) {
                    const RecLevelData& data = levels[At(k)][m];
                    const size_t count = At(CoveredPoints(data, n));
                    OccupationColumn c;
                    c.layer = j;
                    c.defect = d;
                    c.level = k;
                    c.sublevel = static_cast<int>(m);
                    c.aard = data.aard;
                    c.first = data.first;
                    c.electrons = Head(data.f_t, count);
                    c.holes = Head(data.een_min_f_t, count);
                    out.columns.push_back(std::move(c));
                }
            }
        }
    }
}

void Calc_Generation(const CalculationVariables& cv, GenerationRecombinationProfiles& out) {
    out = GenerationRecombinationProfiles{};
    if (cv.parameters == nullptr) return;
    const CalculationParameters& P = *cv.parameters;
    const RecombinationData& r = cv.recombination;
    const ScaleParameters& s = P.scale;
    const int n = MeshPoints(cv);
    out.n_points = n;
    out.x_um.assign(cv.mesh.x_um.begin(), cv.mesh.x_um.begin() + n);
    if (cv.generation != nullptr)
        ExtractGeneration(cv, *cv.generation, 1e-6, out.Geh);
    else
        out.Geh.assign(At(n), 0.0);
    for (std::vector<double>* a : {&out.total, &out.SRH, &out.radiative, &out.auger}) a->assign(At(n), 0.0);

    // A normalised rate of layer j in /cm3/s.
    auto perCm3 = [&](int j) { return s.density[At(j)] * s.diffusion / (s.length * s.length) * 1e-6; };
    for (int j = 0; j < Layers(cv); ++j) {
        const double f = perCm3(j);
        const int last = std::min(cv.mesh.last_point[At(j)], n - 1);
        for (int k = cv.mesh.first_point[At(j)]; k <= last; ++k) {
            const size_t i = At(k);
            out.total[i] = r.dc.R[i] * f;
            out.SRH[i] = r.dc_defects.R[i] * f;
            out.radiative[i] = r.dc_radiative.R[i] * f;
            out.auger[i] = r.dc_auger.R[i] * f;
        }
        for (int d = 0; d < MAX_DEFECTS; ++d) {
            const auto& levels = r.rec_levels[At(j)][At(d)];
            if (levels[0].empty()) continue;
            const int type = P.srh[At(j)][At(d)][0].energy.type;
            const int samples = static_cast<int>(levels[0].size());
            for (int k = 0; k < MAX_LEVELS; ++k) {
                if (levels[At(k)].size() != levels[0].size()) continue;
                LevelGenerationRecombination g;
                g.layer = j;
                g.defect = d;
                g.level = k;
                g.first = levels[0][0].first;
                const size_t count = At(CoveredPoints(levels[0][0], n));
                for (std::vector<double>* a : {&g.IPV_Gn, &g.Gnth, &g.Rnth, &g.IPV_Gp, &g.Gpth, &g.Rpth})
                    a->assign(count, 0.0);
                for (int m = 0; m < samples; ++m) {
                    // The trapezoid weight of the sample; the density of the first level serves the
                    // whole defect, as in the occupation statistics.
                    const double w = TrapezoidWeight(r.axis[At(j)][At(d)], samples, m, type) * f;
                    const RecLevelData& L = levels[At(k)][At(m)];
                    const std::vector<double>& Nt = levels[0][At(m)].Nt;
                    for (size_t q = 0; q < count && q < L.f_t.size(); ++q) {
                        const size_t i = At(g.first) + q;
                        const double nDensity = (cv.a_n + cv.u[i]) * cv.exp_psi[i] * P.Nc_eff[i];
                        const double pDensity = (cv.a_p + cv.v[i]) * cv.exp_min_psi[i] * P.Nv_eff[i];
                        const double upper = L.f_t[q] * Nt[q] * w;
                        const double lower = L.een_min_f_t[q] * Nt[q] * w;
                        g.IPV_Gn[q] += L.g_n_max[q] * upper;
                        g.Gnth[q] += L.e_n[q] * upper;
                        g.Rnth[q] += L.c_n[q] * nDensity * lower;
                        g.IPV_Gp[q] += L.g_p_max[q] * lower;
                        g.Gpth[q] += L.e_p[q] * lower;
                        g.Rpth[q] += L.c_p[q] * pDensity * upper;
                    }
                }
                out.levels.push_back(std::move(g));
            }
        }
    }
}

void CumulativeRecombination(CalculationVariables& cv, RecombinationBalance& out) {
    out = RecombinationBalance{};
    if (cv.parameters == nullptr) return;
    const CalculationParameters& P = *cv.parameters;
    const MeshBlock& mesh = cv.mesh;
    const int n = MeshPoints(cv);
    const int layers = Layers(cv);
    out.n_points = n;
    if (n < 2 || layers < 1) return;

    std::vector<int> layerOf(At(n), 0);
    for (int j = 0; j < layers; ++j)
        for (int k = mesh.first_point[At(j)]; k <= std::min(mesh.last_point[At(j)], n - 1); ++k)
            layerOf[At(k)] = j;
    // A normalised rate times a normalised length in layer j as mA/cm2.
    auto toCurrent = [&](int j) {
        return P.scale.density[At(j)] * P.scale.diffusion * Q_ELEM / P.scale.length * 0.1;
    };
    // The integral of a rate over the box of point i, as the continuity equations take it: half of
    // the two intervals beside an inner point; at the edge of a layer the half interval inside it,
    // with the rate (3 R_i + R_neighbour)/4, when the equations count those half-cells at all.
    const bool halfCells = P.convergence.interfaceBoxTerms != 0;
    auto box = [&](const MeshArray& rate, int i) {
        const int j = layerOf[At(i)];
        const int first = mesh.first_point[At(j)];
        const int last = std::min(mesh.last_point[At(j)], n - 1);
        const size_t I = At(i);
        double integral = 0;
        // (The index tests repeat what first < i < last already says, for the optimiser's sake.)
        const bool hasLeft = I > 0;
        const bool hasRight = I + 1 < rate.size();
        if (last <= first)
            integral = 0;
        else if (i == first && hasRight)
            integral = halfCells ? mesh.h[I] * (3 * rate[I] + rate[I + 1]) / 8 : 0.0;
        else if (i == last && hasLeft)
            integral = halfCells ? mesh.h[I - 1] * (3 * rate[I] + rate[I - 1]) / 8 : 0.0;
        else if (hasLeft && hasRight)
            integral = (mesh.h[I - 1] + mesh.h[I]) / 2 * rate[I];
        return integral * toCurrent(j);
    };

    const MeshArray& R = cv.recombination.dc.R;
    MeshArray net{};
    for (size_t i = 0; i < At(n); ++i) net[i] = R[i] - (cv.generation != nullptr ? cv.generation->G[i] : 0.0);

    // The currents of the links next to the contacts; the state's own current summary is kept.
    const double median = cv.J_median, spread = cv.J_spread;
    const int converged = cv.J_converged;
    const auto links = std::make_unique<CurrentProfiles>();
    CalculateCurrentProfiles(cv, 0, *links);
    cv.J_median = median;
    cv.J_spread = spread;
    cv.J_converged = converged;

    // At the contacts themselves: the conventional electron current rises by q (R - G) along x, the
    // hole current falls by as much.
    const int e = n - 1;
    const double Jn_left = links->j_n[0] - box(net, 0);
    const double Jp_left = links->j_p[0] + box(net, 0);
    const double Jn_right = links->j_n[At(e - 1)] + box(net, e);
    const double Jp_right = links->j_p[At(e - 1)] - box(net, e);
    const bool electronsLeft = P.dopingSignLeft[0] != -1;
    const bool electronsRight = P.dopingSignRight[At(layers - 1)] == 1;
    // Electrons leaving through the left contact move in -x: a positive conventional current.
    out.minorityLeft = electronsLeft ? Jn_left : -Jp_left;
    out.minorityRight = electronsRight ? -Jn_right : Jp_right;
    out.sign = electronsLeft ? 1 : -1;

    // Recombination at interface j, with the capture by tunnelling, each side with its own scale.
    const IfrDcTerms& ifr = cv.recombination.ifr;
    std::vector<double> atInterface(At(std::max(layers - 1, 0)), 0.0);
    for (int j = 0; j + 1 < layers; ++j)
        atInterface[At(j)] =
            ifr.Rn_left_tunnel[At(j)] * toCurrent(j) + ifr.Rn_right_tunnel[At(j)] * toCurrent(j + 1);

    double sum = out.minorityLeft;
    for (int i = 0; i < n; ++i) {
        const int j = layerOf[At(i)];
        if (j > 0 && i == mesh.first_point[At(j)]) sum += atInterface[At(j - 1)];
        sum += box(R, i);
        if (i == e) sum += out.minorityRight;
        out.fromLeft[At(i)] = sum;
    }
    sum = out.minorityRight;
    for (int i = e; i >= 0; --i) {
        const int j = layerOf[At(i)];
        if (j + 1 < layers && i == mesh.last_point[At(j)]) sum += atInterface[At(j)];
        sum += box(R, i);
        if (i == 0) sum += out.minorityLeft;
        out.fromRight[At(i)] = sum;
    }
    out.total = out.fromLeft[At(e)];
}

void extraheer_stroom(CalculationVariables& cv, int show) {
    (void)show; // no screen to draw on
    if (cv.parameters == nullptr) return;
    const auto profiles = std::make_unique<CurrentProfiles>();
    CalculateCurrentProfiles(cv, calculation_of_current, *profiles);
    j_n = profiles->j_n;
    j_p = profiles->j_p;
    jn_tunnel = profiles->jn_tunnel;
    jp_tunnel = profiles->jp_tunnel;
    j_tot = profiles->j_tot;
}

void ExtractGeneration(const CalculationVariables& cv, const GenerationParameters& gp, double factor,
                       std::vector<double>& target) {
    const int n = MeshPoints(cv);
    target.assign(At(n), 0.0);
    if (cv.parameters == nullptr) return;
    const ScaleParameters& s = cv.parameters->scale;
    const double perLength2 = s.diffusion / (s.length * s.length);
    for (int j = 0; j < Layers(cv); ++j) {
        const double scale = factor * s.density[At(j)] * perLength2;
        const int last = std::min(cv.mesh.last_point[At(j)], n - 1);
        for (int k = cv.mesh.first_point[At(j)]; k <= last; ++k) target[At(k)] = scale * gp.G[At(k)];
    }
}

} // namespace tervo
