// The main job on the shipped examples: one single shot with the light I-V of the example action
// list (equilibrium, light ramp to the short circuit, working point and the 41-point sweep), and the
// I-V sweep alone from the stored states, which is what a batch step or a fit evaluation repeats.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/control/problem.h"
#include "run/control/work_point.h"
#include "run/results/result_list.h"
#include "run/sweeps/iv_sweep.h"
#include "run/sweeps/operating_points.h"
#include "setup/parameter_sets.h"

namespace {

using namespace tervo;

const std::string kSource = TERVO_SOURCE_DIR;

// Loads a cell and the light I-V action list, with the home folder of the source tree (spectrum).
bool LoadExample(const std::string& cell) {
    ErrorMessageMode = 2; // the log, never the screen
    SetProjectDir(kSource + "/home");
    InitialiseWorkPoint(wp);
    InitialiseWorkPoint(secondwp);
    InitialiseActionPanel(actionPanel);
    if (Laad_data_uit_file(cell) != 0) return false;
    return LoadActionList(kSource + "/examples/actions/light_iv.act") == 0;
}

void Report(benchmark::State& state, double seconds, int sweepPoints) {
    state.counters["mesh_points"] = currentCalcVars.mesh.n_points;
    state.counters["sweep_points"] = sweepPoints;
    state.counters["ms_per_point"] =
        benchmark::Counter(1e3 * seconds / std::max(sweepPoints, 1), benchmark::Counter::kAvgIterations);
}

void WholeSingleShot(benchmark::State& state, const std::string& cell) {
    if (!LoadExample(cell)) {
        state.SkipWithError(("cannot load " + cell).c_str());
        return;
    }
    int points = 0;
    double seconds = 0;
    for (auto _ : state) {
        wis_alles();
        const auto start = std::chrono::steady_clock::now();
        Simulate(SINGLE_SHOT);
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (lastCalculationResult != 0) {
            state.SkipWithError("the single shot failed");
            return;
        }
        points = pointer_naar_huidige()->actie.IV.done;
    }
    Report(state, seconds, points);
}

void IVSweepAlone(benchmark::State& state, const std::string& cell) {
    if (!LoadExample(cell)) {
        state.SkipWithError(("cannot load " + cell).c_str());
        return;
    }
    wis_alles();
    Simulate(SINGLE_SHOT); // the stored states of equilibrium, short circuit and working point
    if (lastCalculationResult != 0) {
        state.SkipWithError("the single shot failed");
        return;
    }
    const Actie request = actie;
    int points = 0;
    double seconds = 0;
    for (auto _ : state) {
        wis_alles();
        actie = request;
        AppendDataListElement(1, actie, wp);
        const auto start = std::chrono::steady_clock::now();
        const int mode = CalculateStartingPoint(actie.IV.start, actie.IV.stop, currentCalcVars, kortsluitcv,
                                                werkpuntcv, "I(V)", 3);
        calciv(currentCalcVars, actie, mode);
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        points = actie.IV.done;
    }
    Report(state, seconds, points);
}

const std::string kCigs = kSource + "/home/def/cigs.def";
const std::string kCdte = kSource + "/examples/cells/cdte.def";
const std::string kGaAs = kSource + "/examples/cells/gaas_homojunction.def";
const std::string kGraded = kSource + "/examples/cells/graded_cigs.def";

} // namespace

BENCHMARK_CAPTURE(WholeSingleShot, cigs_3_layers, kCigs)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WholeSingleShot, cdte_3_layers, kCdte)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WholeSingleShot, gaas_homojunction, kGaAs)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WholeSingleShot, graded_cigs_adaptive_mesh, kGraded)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(IVSweepAlone, cigs_3_layers, kCigs)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(IVSweepAlone, cdte_3_layers, kCdte)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(IVSweepAlone, gaas_homojunction, kGaAs)->Unit(benchmark::kMillisecond);
