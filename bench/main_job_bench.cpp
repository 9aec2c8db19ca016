// The main job on the shipped example cells: the light I-V of the example action list on each cell,
// the 75-point light J-V of the plain perovskite-type cell, the graded CIGS cell once more on a fixed
// mesh (its own definition with the mesh recalculation switched off), and the QE of the CdTe cell.
//
// For each case one row of counters:
//   wall_ms         whole process: the `tervo` executable run as a child process on the action list
//                   as it stands, median of 5 runs
//   cpu_ms          the child's user + system time (wait4), median of the same runs
//   peak_MiB        the child's peak resident memory (wait4), median of the same runs
//   before_first_ms set-up, equilibrium, short circuit and working point, in this process: a single
//                   shot with every sweep switched off, median of 5; processor time, so that other
//                   work on the machine does not stretch it (as also the next)
//   ms_per_point    (single shot with the sweep - single shot without) / points done, medians of 3
//   mesh_points     points of the mesh after the sweep
//   passes_per_pt   outer passes per point of the sweep, from its convergence record
//
// Then the stress set: the shipped CIGS cell over absorber thickness 0.3 .. 100 µm and doping 1e14 ..
// 1e18 /cm3 and with a 0.4 eV spike at the buffer, the light I-V of the example action list, and the
// p-i-n cell with a 2 and a 10 µm i-layer swept into high injection, as a whole process each: wall_ms, the
// exit status, the points reached, and `complete` 1 when no point was cut.
//
// The children are started by a small process that is split off before anything else of this program
// runs: a child's peak memory counts from the size of the process it was started from, and this one
// stays as small as the program was at its start.  `floor_MiB` is the peak of a child that does
// nothing: a figure at it says the child's own peak lies below it.
#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cell/working_settings.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/control/problem.h"
#include "run/control/work_point.h"
#include "run/results/result_list.h"
#include "run/sweeps/operating_points.h"
#include "setup/parameter_sets.h"
#include "support/stress_set.h"

namespace {

using namespace tervo;

const std::string kSource = TERVO_SOURCE_DIR;
const std::string kTervo = TERVO_EXECUTABLE;

// ---------------------------------------------------------------------------------------------------
// Child processes.

struct ChildFigures {
    double wall = 0; // s
    double cpu = 0;  // user + system, s
    double peak = 0; // MiB
    int status = -1; // exit status, -1 when it did not exit normally
};

// The small process that starts the children: it reads one command a line (words separated by tabs)
// and answers with the wall time, the processor time, the peak memory in KiB and the exit status.
struct Spawner {
    int toSpawner = -1, fromSpawner = -1;
    Spawner() {
        int request[2], answer[2];
        if (pipe(request) != 0 || pipe(answer) != 0) return;
        const pid_t pid = fork();
        if (pid < 0) return;
        if (pid == 0) {
            close(request[1]);
            close(answer[0]);
            Serve(request[0], answer[1]);
            _exit(0);
        }
        close(request[0]);
        close(answer[1]);
        toSpawner = request[1];
        fromSpawner = answer[0];
    }
    ~Spawner() {
        if (toSpawner >= 0) close(toSpawner);
        if (fromSpawner >= 0) close(fromSpawner);
        while (wait(nullptr) > 0) {
        }
    }
    static void Serve(int in, int out) {
        std::string line;
        char c = 0;
        while (read(in, &c, 1) == 1) {
            if (c != '\n') {
                line += c;
                continue;
            }
            std::vector<std::string> words;
            std::stringstream split(line);
            for (std::string w; std::getline(split, w, '\t');) words.push_back(w);
            line.clear();
            std::vector<char*> argv;
            for (std::string& w : words) argv.push_back(w.data());
            argv.push_back(nullptr);
            timespec t0{}, t1{};
            clock_gettime(CLOCK_MONOTONIC, &t0);
            const pid_t child = fork();
            if (child == 0) {
                const int devnull = open("/dev/null", O_RDWR);
                dup2(devnull, 0);
                dup2(devnull, 1);
                dup2(devnull, 2);
                execv(argv[0], argv.data());
                _exit(127);
            }
            int status = 0;
            rusage usage{};
            wait4(child, &status, 0, &usage);
            clock_gettime(CLOCK_MONOTONIC, &t1);
            const double wall = static_cast<double>(t1.tv_sec - t0.tv_sec) +
                                1e-9 * static_cast<double>(t1.tv_nsec - t0.tv_nsec);
            char reply[128];
            const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                               1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
            const int n = std::snprintf(reply, sizeof reply, "%.9f %.6f %ld %d\n", wall, cpu, usage.ru_maxrss,
                                        WIFEXITED(status) ? WEXITSTATUS(status) : -1);
            if (write(out, reply, static_cast<size_t>(n)) != n) return;
        }
    }
    ChildFigures Run(const std::vector<std::string>& argv) const {
        ChildFigures f;
        if (toSpawner < 0) return f;
        std::string line;
        for (const std::string& w : argv) line += (line.empty() ? "" : "\t") + w;
        line += '\n';
        if (write(toSpawner, line.data(), line.size()) != static_cast<ssize_t>(line.size())) return f;
        std::string reply;
        char c = 0;
        while (read(fromSpawner, &c, 1) == 1 && c != '\n') reply += c;
        long kib = 0;
        std::sscanf(reply.c_str(), "%lf %lf %ld %d", &f.wall, &f.cpu, &kib, &f.status);
        f.peak = static_cast<double>(kib) / 1024.0;
        return f;
    }
};

// Split off at the start of the program, before the benchmarks make it grow.
Spawner spawner;

// Processor time of this process: unlike the wall clock, not stretched by other work on the machine.
double CpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double Median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v.size() % 2 ? v[v.size() / 2] : 0.5 * (v[v.size() / 2 - 1] + v[v.size() / 2]);
}

// ---------------------------------------------------------------------------------------------------
// The job in this process.

struct Case {
    std::string cell;    // definition file
    std::string actions; // action list
    bool qe = false;     // the sweep measured is the QE, not the I-V
    bool fixedMesh = false;
};

bool Load(const Case& c) {
    ErrorMessageMode = 2; // the log, never the screen
    SetProjectDir(kSource + "/home");
    InitialiseWorkPoint(wp);
    InitialiseWorkPoint(secondwp);
    InitialiseActionPanel(actionPanel);
    if (Laad_data_uit_file(c.cell) != 0 || LoadActionList(c.actions) != 0) return false;
    if (c.fixedMesh) meshSettings.recalculateMesh = 0;
    actionPanel.CV.calculate = actionPanel.Cf.calculate = actionPanel.MIS_CV_calculate = 0;
    actionPanel.IV.calculate = c.qe ? 0 : 1;
    actionPanel.QE.calculate = c.qe ? 1 : 0;
    return true;
}

// One single shot with the measured sweep on or off: seconds, or a negative value on failure.
double SingleShot(const Case& c, bool sweep, int& done) {
    SweepSettings& s = c.qe ? actionPanel.QE : actionPanel.IV;
    const SweepSettings kept = s;
    s.calculate = sweep ? 1 : 0;
    wis_alles();
    const double start = CpuSeconds();
    Simulate(SINGLE_SHOT);
    const double seconds = CpuSeconds() - start;
    s = kept;
    if (lastCalculationResult != 0) return -1;
    done = 0;
    if (sweep && pointer_naar_huidige() != nullptr)
        done = c.qe ? pointer_naar_huidige()->actie.QE.done : pointer_naar_huidige()->actie.IV.done;
    return seconds;
}

// Outer passes per point of the sweep measured, from the convergence record of the last single shot.
double PassesPerPoint(const Case& c) {
    int done = 0;
    if (SingleShot(c, true, done) < 0 || pointer_naar_huidige() == nullptr) return 0;
    const char* curve = c.qe ? "QE" : "I-V";
    double passes = 0;
    int points = 0;
    for (const ConvergenceRow& row : pointer_naar_huidige()->convergence)
        if (row.curve == curve && row.passes > 0) {
            passes += row.passes;
            ++points;
        }
    return points > 0 ? passes / points : 0;
}

std::filesystem::path FixedMeshCopy(const std::string& cell) {
    const std::filesystem::path copy = std::filesystem::temp_directory_path() /
                                       ("fixed_mesh_" + std::filesystem::path(cell).filename().string());
    std::ifstream in(cell);
    std::ofstream out(copy);
    for (std::string line; std::getline(in, line);)
        out << (line.rfind("recalculate mesh", 0) == 0
                    ? "recalculate mesh :  0 (0: fixed mesh, 1: adaptive mesh)"
                    : line)
            << '\n';
    return copy;
}

void MainJob(benchmark::State& state, Case c) {
    if (c.fixedMesh) c.cell = FixedMeshCopy(c.cell).string();
    std::vector<double> walls, cpus, peaks;
    for (int i = 0; i < 5; ++i) {
        const ChildFigures f = spawner.Run({kTervo, c.cell, c.actions});
        if (f.status != 0 && f.status != 1) {
            state.SkipWithError(("tervo ended with status " + std::to_string(f.status)).c_str());
            return;
        }
        walls.push_back(f.wall);
        cpus.push_back(f.cpu);
        peaks.push_back(f.peak);
    }
    if (!Load(c)) {
        state.SkipWithError(("cannot load " + c.cell).c_str());
        return;
    }
    std::vector<double> off, on;
    int done = 0;
    for (auto _ : state) {
        for (int i = 0; i < 5; ++i) off.push_back(SingleShot(c, false, done));
        for (int i = 0; i < 3; ++i) on.push_back(SingleShot(c, true, done));
    }
    if (*std::min_element(off.begin(), off.end()) < 0 || *std::min_element(on.begin(), on.end()) < 0) {
        state.SkipWithError("the single shot failed");
        return;
    }
    const double meshPoints = currentCalcVars.mesh.n_points;
    const double before = Median(off);
    state.counters["wall_ms"] = 1e3 * Median(walls);
    state.counters["cpu_ms"] = 1e3 * Median(cpus);
    state.counters["peak_MiB"] = Median(peaks);
    state.counters["before_first_ms"] = 1e3 * before;
    state.counters["ms_per_point"] = 1e3 * (Median(on) - before) / std::max(done, 1);
    state.counters["points"] = done;
    state.counters["mesh_points"] = meshPoints;
    state.counters["passes_per_pt"] = PassesPerPoint(c);
    state.counters["floor_MiB"] = spawner.Run({"/bin/true"}).peak;
}

const std::string kCells = kSource + "/examples/cells/";
const std::string kLightIV = kSource + "/examples/actions/light_iv.act";

} // namespace

BENCHMARK_CAPTURE(MainJob, perovskite_jv_75,
                  Case{kCells + "perovskite.def", kSource + "/bench/light_jv_75.act"})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MainJob, perovskite_light_iv, Case{kCells + "perovskite.def", kLightIV})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MainJob, cigs_light_iv, Case{kSource + "/home/def/cigs.def", kLightIV})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MainJob, cdte_light_iv, Case{kCells + "cdte.def", kLightIV})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MainJob, cdte_qe_61, Case{kCells + "cdte.def", kSource + "/bench/qe_61.act", true})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MainJob, gaas_light_iv, Case{kCells + "gaas_homojunction.def", kLightIV})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MainJob, graded_cigs_light_iv, Case{kCells + "graded_cigs.def", kLightIV})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MainJob, graded_cigs_fixed_mesh_light_iv,
                  Case{kCells + "graded_cigs.def", kLightIV, false, true})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

namespace {

// One variant of the stress set as a whole process in a home folder of its own.
void StressVariantRun(benchmark::State& state, tervo::test::StressVariant v) {
    namespace fs = std::filesystem;
    const fs::path home = fs::temp_directory_path() / ("tervo_stress_" + v.Name());
    fs::remove_all(home);
    fs::create_directories(home);
    std::ifstream shipped(kSource + "/" + v.BaseCell());
    std::stringstream text;
    text << shipped.rdbuf();
    const fs::path cell = home / (v.Name() + ".def");
    std::ofstream(cell) << tervo::test::StressDefinition(text.str(), v);
    ChildFigures f;
    for (auto _ : state)
        f = spawner.Run({kTervo, "--home", home.string(), cell.string(), kSource + "/" + v.Actions()});
    std::ifstream conv(home / "results" / (v.Name() + ".conv"));
    int points = 0, cut = 0;
    for (std::string line; std::getline(conv, line);) {
        if (line.rfind("I-V\t", 0) != 0) continue;
        if (line.find("\tcut") != std::string::npos)
            ++cut;
        else
            ++points;
    }
    state.counters["wall_ms"] = 1e3 * f.wall;
    state.counters["status"] = f.status;
    state.counters["points"] = points;
    state.counters["complete"] = cut == 0 && f.status == 0 ? 1 : 0;
    fs::remove_all(home);
}

const int registered = [] {
    for (const tervo::test::StressVariant& v : tervo::test::StressGrid(false))
        benchmark::RegisterBenchmark(("StressSet/" + v.Name()).c_str(), StressVariantRun, v)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    return 0;
}();

} // namespace
