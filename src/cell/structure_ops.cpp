#include "cell/structure_ops.h"

#include <cmath>
#include <numbers>

#include "cell/grading.h"

namespace tervo {

namespace {

double Sign(double x) {
    return x > 0 ? 1.0 : x < 0 ? -1.0 : 0.0;
}

// Energies and point widths on which a distributed level is summed.
void LevelAxis(const EDistribution& e, const NeutralLayerData& data, std::vector<double>& E,
               std::vector<double>& w) {
    const int n = e.type == EDIST_SINGLE ? 1 : std::max(data.discretisations, 2);
    const double W = e.Ekar;
    double dE = 0, first = e.Et;
    switch (e.type) {
    case EDIST_UNIFORM:
        dE = W / (n - 1);
        first = e.Et - W / 2;
        break;
    case EDIST_GAUSS:
        dE = W * data.widthgauss / (n - 1);
        first = e.Et - W * data.widthgauss / 2;
        break;
    case EDIST_CBTAIL:
        dE = -W * data.widthtail / (n - 1);
        break; // from the edge downwards
    case EDIST_VBTAIL:
        dE = W * data.widthtail / (n - 1);
        break;
    default:
        break;
    }
    E.resize(static_cast<size_t>(n));
    w.resize(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) E[static_cast<size_t>(k)] = first + k * dE;
    // The width of a point: half the distance of its neighbours, half the one distance at the ends.
    for (int k = 0; k < n; ++k) {
        if (n == 1 || n == 2) {
            w[static_cast<size_t>(k)] = 1;
        } else if (k == 0 || k == n - 1) {
            w[static_cast<size_t>(k)] = std::fabs(dE) / 2;
        } else {
            w[static_cast<size_t>(k)] = std::fabs(dE);
        }
    }
}

// Share of the density at energy E of a distributed level (per eV).
double Weight(const EDistribution& e, double E) {
    const double W = e.Ekar;
    switch (e.type) {
    case EDIST_UNIFORM:
        return 1 / W;
    case EDIST_GAUSS:
        return std::exp(-(E - e.Et) * (E - e.Et) / (W * W)) / (std::sqrt(std::numbers::pi) * W);
    case EDIST_CBTAIL:
        return std::exp((E - e.Et) / W) / W;
    case EDIST_VBTAIL:
        return std::exp((e.Et - E) / W) / W;
    default:
        return 1;
    }
}

} // namespace

double NChargedInDefects(const NeutralLayerData& d, double n, double p) {
    const double ni = std::sqrt(d.Nc * d.Nv) * std::exp(-d.Eg / (2 * d.kT));
    const double Ei = d.Eg / 2 + d.kT / 2 * std::log(d.Nv / d.Nc);
    double Q = 0;
    std::vector<double> E, w;
    for (const NeutralLayerDefect& def : d.defects) {
        if (def.type != DEFECT_ACCEPTOR && def.type != DEFECT_DONOR) continue;
        LevelAxis(def.energy, d, E, w);
        // The samples of a distribution together hold exactly its total density, however coarse the
        // axis, as they do in the solver.
        double sum = 0;
        for (size_t k = 0; k < E.size(); ++k) sum += Weight(def.energy, E[k]) * w[k];
        for (size_t k = 0; k < E.size(); ++k) {
            const double Nk = def.energy.type == EDIST_SINGLE || sum <= 0
                                  ? def.Nt
                                  : Weight(def.energy, E[k]) * w[k] / sum * def.Nt;
            const double n1 = ni * std::exp((E[k] - Ei) / d.kT);
            const double p1 = ni * std::exp((Ei - E[k]) / d.kT);
            const double D = (n + n1) * def.sigma_n + (p + p1) * def.sigma_p;
            if (D <= 0) continue;
            const double f = (n * def.sigma_n + p1 * def.sigma_p) / D;
            Q += def.type == DEFECT_ACCEPTOR ? -Nk * f : Nk * (1 - f);
        }
    }
    return Q;
}

NeutralFermiLevel CalculateNeutralBulkEquilibriumFermiLevel(const NeutralLayerData& d) {
    const double kT = d.kT;
    const double ni = std::sqrt(d.Nc * d.Nv) * std::exp(-d.Eg / (2 * kT));
    const double Ei = d.Eg / 2 + kT / 2 * std::log(d.Nv / d.Nc);
    double Ef = Ei;
    if (d.Nd > 10 * ni + d.Na)
        Ef = d.Eg - kT * std::log(d.Nc / (d.Nd - d.Na));
    else if (d.Na > 10 * ni + d.Nd)
        Ef = kT * std::log(d.Nv / (d.Na - d.Nd));
    auto n_of = [&](double e) { return d.Nc * std::exp(-(d.Eg - e) / kT); };
    auto p_of = [&](double e) { return d.Nv * std::exp(-e / kT); };
    NeutralFermiLevel r;
    double n = n_of(Ef), p = p_of(Ef);
    if (p - n != 0) {
        double s = Sign(p - n);
        double step = 0.1 * d.Eg * s;
        Ef += step;
        // Walk the Fermi level until the net charge changes sign, then back with a shorter step.
        for (int round = 0; std::fabs(step) > 1e-7 * kT && round < 100; ++round) {
            n = n_of(Ef);
            p = p_of(Ef);
            const double t = NChargedInDefects(d, n, p) + d.Nd + p - n - d.Na;
            const double sNew = Sign(t);
            if (t == 0) step = 0;
            if (sNew != s) step *= -0.3;
            s = sNew;
            Ef += step;
        }
    }
    r.N = std::fabs(NChargedInDefects(d, n_of(Ef), p_of(Ef)) + d.Nd - d.Na);
    r.toEC = d.Eg - Ef;
    r.toEV = Ef;
    r.type = Ef > Ei ? -1 : Ef < Ei ? 1 : 0;
    return r;
}

NeutralLayerData NeutralDataOfLayerEdge(const LayerParameters& layer, int side, double temperature,
                                        const ConvergenceParameters& convergence) {
    const bool left = side < 0;
    auto at = [&](const Profile& p) { return left ? p.leftValue : p.rightValue; };
    const MaterialParameters& m = layer.material;
    const double tr = temperature / 300;
    NeutralLayerData d;
    d.kT = 0.0259 * tr;
    d.Nc = at(m.Nc) * std::pow(tr, 1.5);
    d.Nv = at(m.Nv) * std::pow(tr, 1.5);
    d.Nd = at(m.Nd);
    d.Na = at(m.Na);
    d.Eg = at(m.Eg);
    d.discretisations = convergence.defectdiscretisations;
    d.widthtail = convergence.widthtail;
    d.widthgauss = convergence.widthgauss;
    for (int k = 0; k < layer.srhteller && k < MAX_DEFECTS; ++k) {
        const BulkRecombinationParameters& lv = layer.srh[static_cast<size_t>(k)][0];
        NeutralLayerDefect def;
        def.type = lv.type;
        def.sigma_n = lv.sigma_n;
        def.sigma_p = lv.sigma_p;
        def.Nt = at(lv.Nt);
        def.energy = lv.energy;
        // The level's energy above the valence band.
        if (lv.energy.reference == 1)
            def.energy.Et = lv.energy.Et + d.Eg / 2 + d.kT / 2 * std::log(d.Nv / d.Nc);
        else if (lv.energy.reference == 2)
            def.energy.Et = d.Eg - lv.energy.Et;
        def.energy.reference = 0;
        d.defects.push_back(def);
    }
    return d;
}

void CheckContactsWithActualLayerParameters(int side, ContactParameters& c, const LayerParameters& layer,
                                            int editedField, double temperature,
                                            const ConvergenceParameters& convergence) {
    if (side != -1 && side != 1) return;
    const NeutralLayerData d = NeutralDataOfLayerEdge(layer, side, temperature, convergence);
    const double chi = side < 0 ? layer.material.chi.leftValue : layer.material.chi.rightValue;
    int type = 0;
    double dist = 0;
    if (convergence.includeChargeInDefects == 0) {
        const double N = std::fabs(d.Na - d.Nd);
        type = d.Na > d.Nd ? 1 : d.Na < d.Nd ? -1 : 0;
        if (type == 0) return;
        dist = type < 0 ? d.kT * std::log(d.Nc / N) : d.kT * std::log(d.Nv / N);
    } else {
        const NeutralFermiLevel f = CalculateNeutralBulkEquilibriumFermiLevel(d);
        type = f.type;
        if (type == 0) return;
        dist = type < 0 ? f.toEC : f.toEV;
    }
    const bool n = type < 0;
    if (c.flatband == 1) {
        c.Fi_m = n ? chi + dist : chi + d.Eg - dist;
        c.contactBarrier = dist;
        c.majorityBarrier = 0;
    } else if (editedField == CONTACT_FIELD_MAJORITY_BARRIER) {
        c.contactBarrier = dist + c.majorityBarrier;
        c.Fi_m = n ? chi + c.contactBarrier : chi + d.Eg - c.contactBarrier;
    } else if (editedField == CONTACT_FIELD_CONTACT_BARRIER) {
        c.majorityBarrier = c.contactBarrier - dist;
        c.Fi_m = n ? chi + c.contactBarrier : chi + d.Eg - c.contactBarrier;
    } else {
        c.contactBarrier = n ? c.Fi_m - chi : chi + d.Eg - c.Fi_m;
        c.majorityBarrier = c.contactBarrier - dist;
    }
    c.contactType = type;
}

void Recalculate_Workfunctions(CellDefinition& cell, double temperature,
                               const ConvergenceParameters& convergence) {
    if (cell.numberOfLayers < 1) return;
    const std::pair<ContactParameters*, int> contacts[2] = {{&cell.leftContact, 0},
                                                            {&cell.rightContact, cell.numberOfLayers - 1}};
    for (int k = 0; k < 2; ++k) {
        ContactParameters& c = *contacts[k].first;
        if (c.flatband != 1 || c.recalculate != 1) continue;
        LayerParameters& layer = cell.layer[static_cast<size_t>(contacts[k].second)];
        RecalculateLeftRightValues(layer, -1);
        CheckContactsWithActualLayerParameters(k == 0 ? -1 : 1, c, layer, CONTACT_FIELD_FI_M, temperature,
                                               convergence);
    }
}

} // namespace tervo
