// The steady-state solver on a three-layer thin-film cell: the equilibrium solve, and one solve of a
// voltage step in forward bias, the unit of work that every point of a sweep costs, by the separate
// Gummel blocks (scheme 11), the lumped carrier blocks (12), and one pass of separate blocks followed
// by the coupled Newton iteration (14 from its second pass).
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>

#include "run/control/driver.h"
#include "run/sweeps/operating_points.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"
#include "solver/gummel.h"

namespace {

using namespace tervo;

void Uniform(Profile& p, double value) {
    p.law = LAW_UNIFORM;
    p.pureA = p.pureB = p.leftValue = p.rightValue = value;
}

// A p-type absorber of 2 µm, a 50 nm n-type buffer and a 200 nm n+ window, with radiative and
// Auger recombination.
InputParameters ThreeLayerCell() {
    InputParameters in;
    InitialiseConvergenceParameters(in.convergence);
    InitialiseCellDefinition(in.cellParas);
    CellDefinition& c = in.cellParas;
    c.numberOfLayers = 3;
    const double d[3] = {2e-6, 0.05e-6, 0.2e-6}, Eg[3] = {1.15, 2.4, 3.3}, chi[3] = {4.5, 4.2, 4.4};
    const double eps[3] = {13.6, 10, 9}, Na[3] = {2e22, 0, 0}, Nd[3] = {0, 5e22, 1e24};
    for (size_t i = 0; i < 3; ++i) {
        MaterialParameters& m = c.layer[i].material;
        m.d = d[i];
        Uniform(m.Eg, Eg[i]);
        Uniform(m.chi, chi[i]);
        Uniform(m.eps, eps[i]);
        Uniform(m.Nc, 2.2e24);
        Uniform(m.Nv, 1.8e25);
        Uniform(m.Na, Na[i]);
        Uniform(m.Nd, Nd[i]);
        Uniform(m.mu_n, 0.01);
        Uniform(m.mu_p, 0.0025);
        Uniform(m.K_rad, 1e-16);
        Uniform(m.c_n_auger, 1e-42);
        Uniform(m.c_p_auger, 1e-42);
        UpdateThicknessInProfiles_Layer(c.layer[i]);
    }
    c.leftContact.Fi_m = 4.5 + 1.15 - 0.0259 * std::log(1.8e25 / 2e22);
    c.rightContact.Fi_m = 4.4 + 0.0259 * std::log(2.2e24 / 1e24);
    c.leftContact.Sn = c.leftContact.Sp = c.rightContact.Sn = c.rightContact.Sp = 1e5;
    return in;
}

struct Problem {
    std::unique_ptr<CalculationParameters> P = std::make_unique<CalculationParameters>();
    std::unique_ptr<CalculationVariables> cv = std::make_unique<CalculationVariables>();
    std::unique_ptr<CalculationVariables> start = std::make_unique<CalculationVariables>();
    std::unique_ptr<GenerationParameters> g = std::make_unique<GenerationParameters>();
};

std::unique_ptr<Problem> Make(int scheme = 11) {
    auto p = std::make_unique<Problem>();
    InputParameters in = ThreeLayerCell();
    in.convergence.coupling_scheme = scheme;
    in.convergence.gummelPassesFirst = 2;
    parameterset1_to_3(in, *p->P, 300, nullptr, 0);
    InitialiseCalculationVariables(*p->cv);
    CreateCalculationVariables(*p->cv, p->g.get(), *p->P, 1, 0);
    return p;
}

void Report(benchmark::State& state, const CalculationVariables& cv) {
    state.counters["mesh_points"] = cv.mesh.n_points;
    state.counters["outer_passes"] = cv.iteration_count;
    state.counters["psi_iterations"] = cv.psi_iterations;
    state.counters["u_iterations"] = cv.u_iterations;
    state.counters["v_iterations"] = cv.v_iterations;
    state.counters["inner_iterations"] = cv.inner_iterations;
}

void BM_Equilibrium(benchmark::State& state) {
    auto p = Make();
    for (auto _ : state) {
        equilibrium(*p->cv);
        benchmark::DoNotOptimize(p->cv->psi.data());
    }
    if (CONVERGENTIEFALING) state.SkipWithError("equilibrium did not converge");
    Report(state, *p->cv);
}
BENCHMARK(BM_Equilibrium)->Unit(benchmark::kMillisecond);

// One step of 50 mV, from the solution at 0.50 V to 0.55 V, by the scheme of the argument.
void BM_ForwardBiasSolve(benchmark::State& state) {
    auto p = Make(static_cast<int>(state.range(0)));
    equilibrium(*p->cv);
    volgende_iv_punt(*p->cv, 0.0, 0.5, 11);
    if (CONVERGENTIEFALING) {
        state.SkipWithError("no solution at 0.5 V to start from");
        return;
    }
    *p->start = *p->cv;
    for (auto _ : state) {
        state.PauseTiming();
        *p->cv = *p->start;
        volgende_schatting(*p->cv, 0.55, 0.05);
        state.ResumeTiming();
        los_totaal_dc_stelsel_op_Gummel(*p->cv);
    }
    if (p->cv->iteration_count < 0) state.SkipWithError("the step to 0.55 V did not converge");
    Report(state, *p->cv);
}
BENCHMARK(BM_ForwardBiasSolve)->Arg(11)->Arg(12)->Arg(14)->Unit(benchmark::kMillisecond);

} // namespace
