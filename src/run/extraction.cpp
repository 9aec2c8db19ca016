#include "run/extraction.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/files.h"
#include "platform/format.h"
#include "solver/bulk_recombination.h"
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
std::string LastWorkPointSimulationDate;

namespace {

size_t At(int i) {
    return static_cast<size_t>(i);
}

int Points(const CalculationVariables& cv) {
    return std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
}

int Layers(const CalculationVariables& cv) {
    return std::clamp(cv.mesh.number_of_layers, 0, MAX_LAYERS);
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
    const int n = Points(cv);
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
    // The energies of the defect levels in each layer join the diagram here once the bulk defects
    // take part in the solution: relative to Ev, to the intrinsic level or to Ec by their reference.
}

void extraheer_bandenschema(CalculationVariables& cv) {
    extraheer_bandenschema(cv, bandenschema);
}

void extraheer_concentraties(const CalculationVariables& cv, ConcentrationProfiles& out) {
    out.n_points = 0;
    if (cv.parameters == nullptr) return;
    const CalculationParameters& P = *cv.parameters;
    const RecDcTerms& dc = cv.recombination.dc;
    out.n_points = Points(cv);
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
    const int n = Points(cv);
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
    out.n_points = cv.parameters != nullptr ? Points(cv) : 0;
    FieldStrength(cv, out.E);
    // The occupation of the defect levels (electron and hole form, per layer, defect, level and
    // energy sub-level) is gathered here for the graphs and the occupation file once the bulk
    // defects take part in the solution.
}

void extraheer_veld(CalculationVariables& cv) {
    extraheer_veld(cv, veld);
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
    const int n = Points(cv);
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
