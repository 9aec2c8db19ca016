// Cells that several test folders build, in file form (SI), set up as the driver sets them up.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <memory>

#include "platform/index.h"
#include "run/control/driver.h"
#include "run/sweeps/operating_points.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo::defect_test {

inline constexpr double kT = 0.0259; // V at 300 K
inline constexpr double q = 1.602e-19;

inline void Uniform(Profile& p, double value) {
    p.law = LAW_UNIFORM;
    p.dependence = DEP_UNIFORM;
    p.pureA = p.pureB = p.leftValue = p.rightValue = p.lawPar1 = value;
}

// A semiconductor of silicon-like properties; no band-to-band recombination unless K_rad (m^3/s) or
// the Auger coefficients C_n, C_p (m^6/s) are set.
struct Material {
    double Eg = 1.12, chi = 4.05, eps = 11.9, Nc = 2.8e25, Nv = 1.04e25, mu_n = 0.05, mu_p = 0.02, vth = 1e5;
    double Krad = 0, Cn = 0, Cp = 0;
    double ni2() const { return Nc * Nv * std::exp(-Eg / kT); }
};

inline void SetLayer(LayerParameters& layer, const Material& m, double d, double Nd, double Na) {
    MaterialParameters& p = layer.material;
    p.d = d;
    const std::pair<Profile*, double> values[] = {
        {&p.Eg, m.Eg},      {&p.chi, m.chi},    {&p.eps, m.eps},      {&p.Nc, m.Nc},       {&p.Nv, m.Nv},
        {&p.Nd, Nd},        {&p.Na, Na},        {&p.mu_n, m.mu_n},    {&p.mu_p, m.mu_p},   {&p.v_th_n, m.vth},
        {&p.v_th_p, m.vth}, {&p.K_rad, m.Krad}, {&p.c_n_auger, m.Cn}, {&p.c_p_auger, m.Cp}};
    for (const auto& [profile, value] : values) Uniform(*profile, value);
    UpdateThicknessInProfiles_Layer(layer);
}

// Adds a defect of `levels` levels with total density Nt (/m^3), cross sections (m^2) and level
// energies Et[k] (eV in `reference`).  The first level type follows the defect type.
inline void AddDefect(LayerParameters& layer, int defectType, int levels, double Nt, double sigma_n,
                      double sigma_p, const std::array<double, MAX_LEVELS>& Et, int reference = 0,
                      int distribution = EDIST_SINGLE, double Ekar = 0.1) {
    static constexpr int firstLevelType[] = {0, 3, 4, 3, 5, 4, 0}; // by defect type
    const int d = layer.srhteller++;
    for (int k = 0; k < MAX_LEVELS; ++k) {
        BulkRecombinationParameters& level = layer.srh[At(d)][At(k)];
        InitialiseBulkRecombinationParameters(level, layer.layernumber, d);
        level.type = defectType;
        level.numberOfLevels = levels;
        level.aard = firstLevelType[defectType] == 0 ? 0 : firstLevelType[defectType] - k;
        level.sigma_n = sigma_n;
        level.sigma_p = sigma_p;
        level.energy.type = distribution;
        level.energy.Ekar = Ekar;
        level.energy.Et = Et[At(k)];
        level.energy.reference = reference;
        DeterminePeakToTotal(level.energy);
        Uniform(level.Nt, Nt);
    }
}

inline double Majority(double N, double ni2) {
    return N / 2 + std::sqrt(N * N / 4 + ni2);
}
// Work functions that put a contact at the flat band of a neutral region of the given density.
inline double WorkFunctionForHoles(const Material& m, double p) {
    return m.chi + m.Eg - kT * std::log(m.Nv / p);
}
inline double WorkFunctionForElectrons(const Material& m, double n) {
    return m.chi + kT * std::log(m.Nc / n);
}

inline InputParameters EmptyCell(int layers) {
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    in.cellParas.numberOfLayers = layers;
    in.cellParas.leftContact.flatband = in.cellParas.rightContact.flatband = 0;
    for (int j = 0; j < layers; ++j) in.cellParas.layer[At(j)].layernumber = j;
    return in;
}

// One layer of a stack: material, thickness (m), donor and acceptor densities (/m^3).
struct Slab {
    Material m;
    double d, Nd, Na;
};

// Work function of a contact at the flat band of the neutral outer region of a slab.
inline double FlatBandWorkFunction(const Slab& s) {
    const double net = s.Nd - s.Na;
    return net > 0 ? WorkFunctionForElectrons(s.m, Majority(net, s.m.ni2()))
                   : WorkFunctionForHoles(s.m, Majority(-net, s.m.ni2()));
}

// Layers from left to right with flat-band contacts that pass both carriers with velocity S (m/s).
inline InputParameters Stack(std::initializer_list<Slab> slabs, double S = 1e5) {
    InputParameters in = EmptyCell(static_cast<int>(slabs.size()));
    CellDefinition& c = in.cellParas;
    int j = 0;
    for (const Slab& s : slabs) SetLayer(c.layer[At(j++)], s.m, s.d, s.Nd, s.Na);
    c.leftContact.Fi_m = FlatBandWorkFunction(*slabs.begin());
    c.rightContact.Fi_m = FlatBandWorkFunction(*(slabs.end() - 1));
    c.leftContact.Sn = c.leftContact.Sp = c.rightContact.Sn = c.rightContact.Sp = S;
    return in;
}

// A single level at the first interface, Et (eV) in `reference`, density N (/m^2), with cross sections
// that differ on the two sides and for the two carriers.
inline InterfaceRecombinationParameters& AddInterfaceDefect(InputParameters& in, int type, double N,
                                                            double Et, int reference = 0,
                                                            int distribution = EDIST_SINGLE) {
    InterfaceRecombinationParameters& x = in.cellParas.interface[0].defect[0];
    in.cellParas.interface[0].numberOfDefects = 1;
    InitialiseInterfaceRecombinationParameters(x, 0, 0);
    x.type = type;
    x.N = N;
    x.energy = EDistribution{distribution, 0.04, 0, Et, reference};
    x.sigma_nleft = 2e-19;
    x.sigma_nright = 5e-20;
    x.sigma_pleft = 1e-19;
    x.sigma_pright = 3e-19;
    return x;
}

struct Device {
    std::unique_ptr<CalculationParameters> P = std::make_unique<CalculationParameters>();
    std::unique_ptr<CalculationVariables> cv = std::make_unique<CalculationVariables>();
    std::unique_ptr<GenerationParameters> light = std::make_unique<GenerationParameters>();
    int points() const { return cv->mesh.n_points; }
    double N(int j) const { return P->scale.density[At(j)]; } // density scale of layer j, /m^3
    // Electron and hole densities at point i of layer j, /m^3.
    double n(int i, int j) const {
        return (cv->a_n + cv->u[At(i)]) * cv->exp_psi[At(i)] * P->Nc_eff[At(i)] * N(j);
    }
    double p(int i, int j) const {
        return (cv->a_p + cv->v[At(i)]) * cv->exp_min_psi[At(i)] * P->Nv_eff[At(i)] * N(j);
    }
    // A normalised bulk rate of layer j in /m^3 s.
    double rate(double R, int j) const {
        return R * N(j) * P->scale.diffusion / (P->scale.length * P->scale.length);
    }
    // Uniform generation G (/m^3 s) on the whole mesh, in the scale of layer j.
    void Illuminate(double G, int j = 0) {
        for (int i = 0; i < points(); ++i) light->G[At(i)] = G / rate(1.0, j);
    }
};

inline std::unique_ptr<Device> Build(const InputParameters& in, const double* wavelengths = nullptr,
                                     int n = 0) {
    auto d = std::make_unique<Device>();
    parameterset1_to_3(in, *d->P, 300, wavelengths, n);
    InitialiseCalculationVariables(*d->cv);
    EXPECT_EQ(CreateCalculationVariables(*d->cv, d->light.get(), *d->P, 1, 0), 0);
    return d;
}

// Steady state at V, reached from the present one in steps of at most 50 mV.
inline void WalkTo(CalculationVariables& cv, double V) {
    const int steps = std::max(1, static_cast<int>(std::ceil(std::fabs(V - cv.V_applied) / 0.05)));
    volgende_iv_punt(cv, cv.V_applied, V, steps + 1);
    ASSERT_EQ(CONVERGENTIEFALING, 0);
}

} // namespace tervo::defect_test
