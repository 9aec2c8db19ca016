#include "run/sweeps/qe_sweep.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "cell/cell_records.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "run/results/extraction.h"
#include "run/results/result_list.h"
#include "run/sweeps/operating_points.h"
#include "run/sweeps/point_recovery.h"
#include "setup/absorption.h"
#include "setup/mesh.h"
#include "setup/spectrum.h"
#include "solver/discrete_equations.h"

namespace tervo {

namespace {

// The index of the first wavelength of `gp` that equals `lambda` exactly, or -1.
int ExactIndex(const GenerationParameters& gp, double lambda) {
    const int n = std::min(gp.numberOfWavelengths, static_cast<int>(gp.lambda.size()));
    for (int k = 0; k < n; ++k)
        if (gp.lambda[At(k)] == lambda) return k;
    return -1;
}

// The optical cross sections of every defect level of the problem on the given wavelengths: taken
// again from the file form and normalised as the problem's normalisation does, since the
// interpolation onto one spectrum keeps only that spectrum's wavelengths.
void OpticalCaptureOnWavelengths(CalculationParameters& P, const std::vector<double>& wavelengths) {
    const CellDefinition& cell = parameterset1.cellParas;
    const int layers = std::clamp(P.numberOfLayers, 0, MAX_LAYERS);
    const int n = static_cast<int>(wavelengths.size());
    for (int j = 0; j < layers; ++j) {
        const double rate = P.scale.rate[At(j)];
        if (rate == 0) continue;
        for (int d = 0; d < std::clamp(P.defectsPerLayer[At(j)], 0, MAX_DEFECTS); ++d) {
            for (int l = 0; l < MAX_LEVELS; ++l) {
                const BulkRecombinationParameters& source = cell.layer[At(j)].srh[At(d)][At(l)];
                BulkRecombinationParameters& target = P.srh[At(j)][At(d)][At(l)];
                target.optCaptElectrons = source.optCaptElectrons;
                target.optCaptHoles = source.optCaptHoles;
                for (OpticalCaptureProperties* o : {&target.optCaptElectrons, &target.optCaptHoles}) {
                    for (double& sigma : o->sigmas) sigma /= rate;
                    InterpolateOpticalCaptureProperties(*o, wavelengths.data(), n);
                }
            }
        }
    }
}

// The guess of a wavelength: the solution of the stored working point on the present mesh of `cv`,
// so that no wavelength inherits the probe of the one before.
void StartFromWorkingPoint(CalculationVariables& cv) {
    if (&cv == &werkpuntcv) return;
    const CalculationVariables& w = werkpuntcv;
    const int layers = cv.mesh.number_of_layers;
    InterpolateAndCopy(cv.psi.data(), w.psi.data(), cv.mesh, w.mesh, layers);
    InterpolateAndCopy(cv.u.data(), w.u.data(), cv.mesh, w.mesh, layers);
    InterpolateAndCopy(cv.v.data(), w.v.data(), cv.mesh, w.mesh, layers);
    update_psivar(cv);
    // Quasi-Fermi levels that agree with the carrier variables just set.
    const int n = std::clamp(cv.mesh.n_points, 0, MAX_MESH_POINTS);
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        if (cv.a_n + cv.u[I] > 0) cv.EFn[I] = std::log(cv.a_n + cv.u[I]);
        if (cv.a_p + cv.v[I] > 0) cv.EFp[I] = -std::log(cv.a_p + cv.v[I]);
    }
}

// The probe at wavelength l (nm): power P (W/m2) and photon flux F (per m2 and second) by the QE
// mode of the bias light, constant power (0) or constant number of photons (any other value).
void ProbeLight(const GenerationParameters& bias, double l, double& P, double& F) {
    if (bias.QEmode == 0) {
        P = bias.incidentPower;
        F = l * PHOTON_FLUX_CONSTANT * P;
    } else {
        F = bias.numberOfPhotons;
        P = F / (PHOTON_FLUX_CONSTANT * l);
    }
}

// The curve into the present element of the result list: `points` values of each array, the first
// `done` of them calculated.
void StoreCurve(const std::vector<double>& lambda, const std::vector<double>& qe, int points, int done) {
    DataListElement* element = pointer_naar_huidige();
    if (element == nullptr) return;
    element->qe_as.assign(At(points), 0.0);
    element->hv_as.assign(At(points), 0.0);
    element->qe.assign(At(points), 0.0);
    for (int i = 0; i < done; ++i) {
        const size_t I = At(i);
        element->qe_as[I] = lambda[I];
        element->hv_as[I] = HC_OVER_Q_NM / lambda[I];
        element->qe[I] = qe[I];
    }
    element->actie.QE.points = points;
    element->actie.QE.done = done;
}

} // namespace

void AddSpectra(const GenerationParameters& spectrum, const GenerationParameters& mono,
                GenerationParameters& total) {
    std::vector<double> all;
    for (const GenerationParameters* gp : {&spectrum, &mono}) {
        const int n = std::min(gp->numberOfWavelengths, static_cast<int>(gp->lambda.size()));
        all.insert(all.end(), gp->lambda.begin(), gp->lambda.begin() + std::max(n, 0));
    }
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    total.lambda = std::move(all);
    total.numberOfWavelengths = static_cast<int>(total.lambda.size());
    if (total.numberOfWavelengths == 0) total.lambda.clear();
}

void AddPower(GenerationParameters& gp, double lambda, double P) {
    const int k = ExactIndex(gp, lambda);
    if (k < 0 || At(k) >= gp.watt_lambda.size()) return;
    gp.watt_lambda[At(k)] += P;
}

void AddIncomingFluxes(const GenerationParameters& spectrum, const GenerationParameters& mono,
                       GenerationParameters& total) {
    const int n = std::min(total.numberOfWavelengths, static_cast<int>(total.lambda.size()));
    total.incomingFlux_us.assign(At(std::max(n, 0)), 0.0);
    // The wavelengths of the sum rise without repeats (AddSpectra): each is found by bisection.
    const auto begin = total.lambda.begin(), end = total.lambda.begin() + std::max(n, 0);
    for (const GenerationParameters* part : {&spectrum, &mono}) {
        const int m = std::min({part->numberOfWavelengths, static_cast<int>(part->lambda.size()),
                                static_cast<int>(part->incomingFlux_us.size())});
        for (int k = 0; k < m; ++k) {
            const double l = part->lambda[At(k)];
            const auto at = std::lower_bound(begin, end, l);
            if (at != end && *at == l) total.incomingFlux_us[At(at - begin)] += part->incomingFlux_us[At(k)];
        }
    }
}

void calcqe(CalculationVariables& cv, Actie& action) {
    SweepAction& request = action.QE;
    request.done = 0;
    QEConvergenceFailure = cv.iteration_count == -1 ? 1 : 0;
    if (request.points > MAX_NUM_CALCULATION_STEPS) {
        TERVOErrorMessage(
            "Error from function calcqe()",
            FmtStr("%s<There are more than MAX_NUM_CALCULATION_STEPS = %i QE points to calculate",
                   MAX_NUM_CALCULATION_STEPS));
        return;
    }
    const int points = std::max(request.points, 0);
    if (points > 0 && !(request.start > 0 && request.stop > 0)) {
        TERVOErrorMessage("While calculating QE...",
                          FmtStr("%s<The wavelengths of a QE calculation must be positive: from %f[p2] to "
                                 "%f[p2] nm.\nNo QE calculation was done",
                                 request.start, request.stop));
        StoreCurve({}, {}, points, 0);
        return;
    }

    GenerationParameters& bias = cv.generation != nullptr ? *cv.generation : generatieparameters;
    // The probe and the sum of bias and probe: records of their own, so that the bias light stays as
    // it is.  (They hold per-point arrays of the largest mesh and live on the heap.)
    auto mono = std::make_unique<GenerationParameters>();
    auto total = std::make_unique<GenerationParameters>();
    InitialiseGenerationParameters(*mono, &bias);
    InitialiseGenerationParameters(*total, &bias);
    std::vector<double> lambda(At(points));
    for (int i = 0; i < points; ++i)
        lambda[At(i)] =
            points > 1 ? request.start + (request.stop - request.start) * i / (points - 1) : request.start;
    mono->lambda = lambda;
    mono->watt_lambda.assign(At(points), 0.0);
    mono->numberOfWavelengths = points;
    AddSpectra(bias, *mono, *total);

    CalculationParameters* P = cv.parameters;
    if (IPV_Mode == 1 && P != nullptr) OpticalCaptureOnWavelengths(*P, total->lambda);

    // The power of the bias light wherever its wavelengths lie in the sum.
    total->watt_lambda.assign(total->lambda.size(), 0.0);
    const int biasCount = std::min({bias.numberOfWavelengths, static_cast<int>(bias.lambda.size()),
                                    static_cast<int>(bias.watt_lambda.size())});
    for (int k = 0; k < biasCount; ++k) AddPower(*total, bias.lambda[At(k)], bias.watt_lambda[At(k)]);

    // The absorption and the filters do not change with the probe: once, before the wavelengths.
    int optics = 1;
    for (GenerationParameters* gp : {total.get(), mono.get()}) {
        if (!bepaal_alfa(cv, *gp)) optics = 0;
        if (!BerekenFilterSpectra(*gp, parameterset1)) optics = 0;
    }
    if (!optics) QEConvergenceFailure = 1; // the readers have said why

    const double J0 = JWorkingPoint;
    GenerationParameters* const biasPointer = cv.generation;
    cv.illumination = &bias;
    cv.monochromatic = mono.get();
    cv.generation = total.get();

    std::vector<double> qe(At(points), 0.0);
    int done = 0;
    std::vector<ConvergenceRow> rows;
    for (int i = 0; i < points && QEConvergenceFailure == 0; ++i) {
        if (pausestatus && Pause(0) != 1) break;
        const double l = lambda[At(i)];
        statusLine.text = FmtStr("%s< QE at %f Volt, from %f[w8p2] to %f[w8p2] nm: %f nm",
                                 wp.voltage * zonnecel.signV, request.start, request.stop, l);
        double power = 0, F = 0;
        ProbeLight(bias, l, power, F);
        AddPower(*mono, l, power);

        // The probe alone (no neutral density or cut-off acts on it), then the sum of both lights.
        // Without light-dependent absorption by defects the generation is linear in the light of each
        // wavelength: the sum's G is the bias light's G, made once on the mesh, plus the probe's.
        // With it, the occupation of the defects sees the fluxes of the whole sum.
        CalculateIncomingFluxes(*mono, PHOTON_FLUX_CONSTANT, 1);
        CalculateOpticalGeneration(cv, *mono, 0, IPV_Mode == 1);
        AddIncomingFluxes(bias, *mono, *total);
        if (IPV_Mode == 1)
            CalculateOpticalGeneration(cv, *total, Generation_Mode, true);
        else
            AddQEGeneration(bias, *mono, *total);

        StartFromWorkingPoint(cv);
        onder_belichting(cv);
        if (CONVERGENTIEFALING == 1) QEConvergenceFailure = 1;
        rows.push_back(MakeConvergenceRow(cv, "QE", i + 1, l,
                                          QEConvergenceFailure ? PointStatus::Cut : PointStatus::Converged));
        AddPower(*mono, l, -power);

        if (QEConvergenceFailure) {
            if (i > 0)
                TERVOErrorMessage(
                    "While calculating QE...",
                    FmtStr("%s<Convergence failure at lambda = %f[p2] nm.\nQE calculation cut at "
                           "lambda = %f[p2] nm.",
                           l, lambda[At(i - 1)]));
            else
                TERVOErrorMessage("While calculating QE...",
                                  FmtStr("%s<Convergence failure at lambda = %f[p2] nm.\nNo QE calculation "
                                         "was done",
                                         l));
            break;
        }
        done = i + 1;
        update_eb_panel(cv, 0);
        // The extracted current is the conventional current from the left contact to the right one,
        // mA/cm2; times 10 it is A/m2, and per photon current q F, times 100, a percentage.  In a cell
        // with its p side on the left the collected photo-current flows from right to left, so the
        // sign is kept with a minus: such a cell's QE is positive, and a probe that raises the current
        // instead shows as a negative efficiency rather than passing for a collected one.  A cell with
        // its n side on the left drives its photo-current the other way and has its QE negative.
        qe[At(i)] = -(cv.J_median - J0) * 1000.0 / (F * Q_ELEM);
    }

    request.done = done;
    StoreCurve(lambda, qe, points, done);
    if (DataListElement* element = pointer_naar_huidige())
        element->convergence.insert(element->convergence.end(), rows.begin(), rows.end());

    // The bias light alone again, and the optical data of the defects on its wavelengths.
    cv.generation = biasPointer;
    cv.illumination = nullptr;
    cv.monochromatic = nullptr;
    if (IPV_Mode == 1 && P != nullptr) {
        const int n = std::min(bias.numberOfWavelengths, static_cast<int>(bias.lambda.size()));
        OpticalCaptureOnWavelengths(*P, std::vector<double>(bias.lambda.begin(), bias.lambda.begin() + n));
    }
}

} // namespace tervo
