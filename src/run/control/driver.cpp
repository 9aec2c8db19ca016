#include "run/control/driver.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "cell/cell_records.h"
#include "cell/structure_ops.h"
#include "cell/working_settings.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "run/control/action_list.h"
#include "run/control/startup.h"
#include "run/control/work_point.h"
#include "run/results/extraction.h"
#include "run/results/result_list.h"
#include "run/sweeps/cf_sweep.h"
#include "run/sweeps/cv_sweep.h"
#include "run/sweeps/iv_sweep.h"
#include "run/sweeps/operating_points.h"
#include "run/sweeps/point_recovery.h"
#include "run/sweeps/qe_sweep.h"
#include "setup/absorption.h"
#include "setup/generation.h"
#include "setup/spectrum.h"

namespace tervo {

int Calculationmode = -1;
int secondGeneration_Mode = 0;
int META_Mode = 0;
int pausestatus = 0;
int equiberekend = 0;
int kortberekend = 0;
int werkberekend = 0;
int AllFilesFound = 1;
int SingleShotSimulationNumber = 0;
int BatchSimulationNumber = 0;
int CurveFitSimulationNumber = 0;
int CONVERGENTIEFALING = 0;
int EquilibriumConvergenceFailure = 1;
int ShortCircuitConvergenceFailure = 1;
int WorkPointConvergenceFailure = 1;
int FirstIVPointConvergenceFailure = 1;
int FirstCVPointConvergenceFailure = 1;
int IVConvergenceFailure = 1;
int CVConvergenceFailure = 1;
int CfConvergenceFailure = 1;
int QEConvergenceFailure = 1;
int cvbezig = 0;
int workpointFromPreviousBatch = 0;
double JShortCircuit = 0;
double JWorkingPoint = 0;
std::string deffilenamevorig;
int versieschatting = 0;
int stopRequested = 0;
int lastCalculationResult = 0;

int Pause(int /*panel*/) {
    // Without a user a pause point only looks at the stop flag.
    return stopRequested ? 0 : 1;
}

void MarkNothingCalculated() {
    equiberekend = 0;
    kortberekend = 0;
    werkberekend = 0;
}

// ---------------------------------------------------------------------------------------------
// The simulation driver
// ---------------------------------------------------------------------------------------------

void InitialiseDiagnostics() {
    versieschatting = 0;
    calculation_of_current = 1;
}

void SetProblem(int silent) {
    if (!silent) {
        // Without a screen the edited cell is accepted as it stands.
        AllFilesFound = CanAllFilesBeFound(2);
        if (AllFilesFound) {
            zonnecel = current_cell;
            parameterset2_to_1(zonnecel);
            MarkNothingCalculated();
            if (zonnecel.numberOfLayers > 0) {
                const double T = actionPanel.first.temperature;
                CheckContactsWithActualLayerParameters(-1, zonnecel.leftContact, zonnecel.layer[0],
                                                       CONTACT_FIELD_FI_M, T, parameterset1.convergence);
                CheckContactsWithActualLayerParameters(
                    1, zonnecel.rightContact,
                    zonnecel.layer[static_cast<size_t>(zonnecel.numberOfLayers - 1)], CONTACT_FIELD_FI_M, T,
                    parameterset1.convergence);
                current_cell = zonnecel;
            }
        }
    }
    // The batch's list of definition files arrives with the batch.
}

int CheckConvergenceFailure(int& flag, const std::string& name, int /*dark*/, double vReached,
                            double /*vWanted*/, CalculationVariables& cv, int /*ipmode*/) {
    if (cv.iteration_count != -1) {
        flag = 0;
        update_eb_panel(cv, 1);
        return 1;
    }
    flag = 1;
    TERVOErrorMessage(
        FmtStr("%s<Calculating %s...", name),
        FmtStr("%s<Convergence failure calculating for V = %f[p3] Volt", vReached * zonnecel.signV));
    statusLine.text = FmtStr("%s<No %s calculated (convergence failure)", name);
    statusLine.red = true;
    return 0;
}

namespace {

// The light of the working point into the generation record: spectrum, cut-off, neutral density,
// filters.  0 on failure (reported by the readers).
int PrepareIllumination(GenerationParameters& gp, WorkPoint& w) {
    gp.cutoffOn = w.cutoff;
    gp.shortCutoff = w.lambda_short;
    gp.longCutoff = w.lambda_long;
    gp.transmission = std::pow(10.0, -w.ND);
    gp.side = w.side == 1 ? 1 : -1;
    SpectrumSettings light;
    light.dark = w.dark;
    light.spectrumFile = w.spectrumFile;
    light.cutoff = w.cutoff;
    light.lambda_short = w.lambda_short;
    light.lambda_long = w.lambda_long;
    light.ND = w.ND;
    const int n = bepaal_spectrum(light, gp.lambda, gp.watt_lambda);
    if (n <= 0) return 0;
    // The absorption data are read anew for each calculation: a file may have changed since.
    ForgetAlphaRows(gp);
    gp.numberOfWavelengths = n;
    w.power_spectrum = light.power_spectrum;
    w.power_cutoff = light.power_cutoff;
    w.power_incident = light.power_incident;
    return BerekenFilterSpectra(gp, parameterset1);
}

// The generation of the working point's light on the mesh of `cv`.  0 when a generation file
// cannot be used.
int ComputeGeneration(CalculationVariables& cv, GenerationParameters& gp, const WorkPoint& w) {
    if (Generation_Mode == 0) {
        CalculateIncomingFluxes(gp, PHOTON_FLUX_CONSTANT, 0);
        CalculateOpticalGeneration(cv, gp, 0, IPV_Mode == 1);
        return 1;
    }
    return bereken_generatie_uit_file(cv, gp, w.dark, w.generationFile, w.attenuation);
}

// One solve after the light changed, from the guess of the carriers for the new generation; when
// that solve fails, once more from the state before the guess, as without it.
void SolveUnderNewLight(CalculationVariables& cv, SolvedState& kept) {
    if (cv.iteration_count == -1) {
        onder_belichting(cv);
        return;
    }
    KeepSolvedState(kept, cv);
    if (GuessCarriersForNewGeneration(cv)) {
        onder_belichting(cv);
        if (!CONVERGENTIEFALING) return;
    }
    RestoreSolvedState(cv, kept);
    onder_belichting(cv);
}

// The short circuit under light, from equilibrium.  With a fixed mesh the light is ramped up in equal
// steps of its logarithm from 1e-10 of its strength, so that each solve starts near its answer.
void SolveShortCircuit(CalculationVariables& cv, GenerationParameters& gp, const WorkPoint& w) {
    CopyCalculationVariables(cv, evenwichtcv);
    Full_x_Dependence(cv);
    SolvedState kept;
    if (meshSettings.recalculateMesh == 0) {
        const int n = std::max(w.numberofpoints, 2);
        const int points = cv.mesh.n_points;
        const std::vector<double> full(gp.G.begin(), gp.G.begin() + points);
        for (int i = 0; i < n; ++i) {
            const double factor = std::pow(1e-10, 1.0 - static_cast<double>(i) / (n - 1));
            for (int j = 0; j < points; ++j)
                gp.G[static_cast<size_t>(j)] = full[static_cast<size_t>(j)] * factor;
            SolveUnderNewLight(cv, kept);
            if (CONVERGENTIEFALING) break;
        }
        std::copy(full.begin(), full.end(), gp.G.begin());
    } else {
        SolveUnderNewLight(cv, kept);
    }
}

} // namespace

namespace {

// Every stage counts as failed until it has converged; a run from the previous batch step starts at
// its stored working point and skips equilibrium and short circuit.
void ResetStageFlags(bool fromPrevious) {
    CONVERGENTIEFALING = 0;
    EquilibriumConvergenceFailure = fromPrevious ? 0 : 1;
    ShortCircuitConvergenceFailure = fromPrevious ? 0 : 1;
    WorkPointConvergenceFailure = 1;
    FirstIVPointConvergenceFailure = IVConvergenceFailure = 1;
    FirstCVPointConvergenceFailure = CVConvergenceFailure = 1;
    CfConvergenceFailure = QEConvergenceFailure = 1;
    cvbezig = 0;
}

// The working point and what to do there: the measuring pass of a metastable run uses the second
// working point and calculates no sweep of its own.
void ReadWorkPointAndAction(int metaPass) {
    if (metaPass == 1) {
        ReadWorkPoint(secondwp, 0);
        wp = secondwp;
    } else {
        ReadWorkPoint(wp, 1);
    }
    if (metaPass == 0) {
        ReadActie(actie);
        for (SweepAction* a : {&actie.QE, &actie.IV, &actie.CV, &actie.Cf}) a->done = 0;
        actie.IV.start *= zonnecel.signV;
        actie.IV.stop *= zonnecel.signV;
        actie.CV.start *= zonnecel.signV;
        actie.CV.stop *= zonnecel.signV;
        if (MIS_mode == 1) actie.CV.calculate = actionPanel.MIS_CV_calculate;
    } else {
        for (SweepAction* a : {&actie.QE, &actie.IV, &actie.CV, &actie.Cf}) a->calculate = a->done = 0;
    }
    Generation_Mode = wp.generationFromFile;
    if (IPV_Mode) Generation_Mode = 0;
    if (wp.temperature == wp_vorig.temperature && parameterset1.name == deffilenamevorig)
        kortberekend = werkberekend = 0;
    if (metaPass == 0) {
        kleurindex = kleurindex % 15 + 1;
        kl = kleurindex;
    }
}

// The problem on its mesh, with the light of the working point; the state starts without light.
bool SetUpProblemOnMesh(CalculationVariables& cv, GenerationParameters& gp, int metaPass) {
    if (!PrepareIllumination(gp, wp)) return false;
    if (IPV_Mode) ReadOpticalCaptureParameters(parameterset1, wp.temperature);
    parameterset1_to_3(parameterset1, parameterset3, wp.temperature, gp.lambda.data(),
                       gp.numberOfWavelengths);
    InitialiseCalculationVariables(cv);
    for (int i = 0; i < parameterset3.numberOfLayers; ++i)
        cv.meshAlpha[static_cast<size_t>(i)] = wp.dark ? 0.0 : ExtractAlpha(parameterset3, 300, i);
    if (CreateCalculationVariables(cv, &gp, parameterset3, 1, metaPass) != 0) return false;
    if (!bepaal_alfa(cv, gp)) return false;
    CreateCalculationVariables(cv, &gp, parameterset3, 0, metaPass);
    // With no incoming flux the generation is zero everywhere.
    std::fill(gp.G.begin(), gp.G.end(), 0.0);
    cv.generation = &gp;
    return true;
}

// Equilibrium (Poisson's equation alone, dark, V = 0), then the short circuit under the light of the
// working point; both states are stored.
bool SolveEquilibriumAndShortCircuit(CalculationVariables& cv, GenerationParameters& gp) {
    equilibrium(cv);
    CopyCalculationVariables(evenwichtcv, cv);
    if (!CheckConvergenceFailure(EquilibriumConvergenceFailure, "equilibrium", 1, 0, 0, cv, 0)) return false;
    equiberekend = 1;
    if (!ComputeGeneration(cv, gp, wp)) return false;
    if (!wp.dark) {
        if (Pause(0) != 1) return false;
        SolveShortCircuit(cv, gp, wp);
        if (!CONVERGENTIEFALING && cv.iteration_count != -1) {
            extraheer_stroom(cv, 0);
            JShortCircuit = cv.J_median;
            CopyCalculationVariables(kortsluitcv, cv);
        } else {
            JShortCircuit = 0;
            cv.iteration_count = -1;
        }
        if (!CheckConvergenceFailure(ShortCircuitConvergenceFailure, "short circuit", wp.dark, 0, 0, cv, 0))
            return false;
    } else {
        CopyCalculationVariables(kortsluitcv, evenwichtcv);
        Full_x_Dependence(kortsluitcv);
        JShortCircuit = 0;
        ShortCircuitConvergenceFailure = 0;
    }
    kortberekend = 1;
    return true;
}

// The working point: the short circuit itself at 0 V, else a walk from the short circuit (or from
// the previous batch step's state) to the working voltage; the state is stored.
bool SolveWorkingPoint(CalculationVariables& cv, bool fromPrevious, int metaPass) {
    if (wp.voltage == 0 && !fromPrevious && metaPass == 0) {
        CopyCalculationVariables(werkpuntcv, kortsluitcv);
        Full_x_Dependence(werkpuntcv);
        JWorkingPoint = JShortCircuit;
        WorkPointConvergenceFailure = 0;
    } else {
        if (Pause(0) != 1) return false;
        if (fromPrevious) {
            Full_x_Dependence(cv);
            volgende_iv_punt(cv, cv.V_applied, wp.voltage, 2);
        } else {
            CopyCalculationVariables(cv, kortsluitcv);
            Full_x_Dependence(cv);
            WalkWithRecovery(cv, 0, wp.voltage, std::max(wp.numberofpoints, 2), "the working point");
        }
        if (cv.iteration_count != -1) {
            extraheer_stroom(cv, 0);
            JWorkingPoint = cv.J_median;
            CopyCalculationVariables(werkpuntcv, cv);
        } else {
            JWorkingPoint = 0;
        }
        if (!CheckConvergenceFailure(WorkPointConvergenceFailure, "working point", wp.dark, cv.V_applied,
                                     wp.voltage, cv, 0))
            return false;
    }
    werkberekend = 1;
    return true;
}

// The state of the stored working point, on its mesh and with its light, where the C-f and QE sweeps
// start.
bool ReturnToWorkingPoint(CalculationVariables& cv, GenerationParameters& gp) {
    if (Pause(0) != 1) return false;
    CopyCalculationVariables(cv, werkpuntcv);
    Full_x_Dependence(cv);
    if (Generation_Mode == 0 && !bepaal_alfa(cv, gp)) return false;
    return ComputeGeneration(cv, gp, wp);
}

// The sweeps that the action asks for, in their fixed order, into a new element of the result list.
bool RunSweeps(CalculationVariables& cv, GenerationParameters& gp, const BatchRecord* batch,
               const CurveFitterRecord* curvefitter) {
    const bool anySweep =
        actie.IV.calculate || actie.CV.calculate || actie.Cf.calculate || actie.QE.calculate;
    if (anySweep) {
        const int number = batch         ? BatchSimulationNumber
                           : curvefitter ? CurveFitSimulationNumber
                                         : SingleShotSimulationNumber;
        DataListElement& element = AppendDataListElement(number, actie, wp);
        element.definitionName = parameterset1.name;
    }
    if (actie.IV.calculate) {
        const int mode =
            CalculateStartingPoint(actie.IV.start, actie.IV.stop, cv, kortsluitcv, werkpuntcv, "I(V)", 3);
        if (mode == 1 || mode == 6 || mode == 7) FirstIVPointConvergenceFailure = 0;
        if (calciv(cv, actie, mode) != 1) return false;
        if (DataListElement* element = pointer_naar_huidige()) element->actie.IV.done = actie.IV.done;
    }
    if (actie.CV.calculate) {
        const int mode =
            CalculateStartingPoint(actie.CV.start, actie.CV.stop, cv, kortsluitcv, werkpuntcv, "C(V)", 4);
        if (mode == 1 || mode == 6 || mode == 7) FirstCVPointConvergenceFailure = 0;
        // calccv merges its points into the element's I-V curve and sets both counts itself.
        if (calccv(cv, actie, mode) != 1) return false;
    }
    if (actie.Cf.calculate) {
        cvbezig = 1;
        if (!ReturnToWorkingPoint(cv, gp)) return false;
        update_eb_panel(cv, 0);
        const int result = calccf(cv, actie);
        cvbezig = 0;
        if (result != 1) return false;
    }
    if (actie.QE.calculate) {
        if (!ReturnToWorkingPoint(cv, gp)) return false;
        onder_belichting(cv);
        update_eb_panel(cv, 0);
        calcqe(cv, actie);
        if (QEConvergenceFailure)
            TERVOErrorMessage("Calculating quantum efficiency...", "Convergence failure");
    }
    return true;
}

} // namespace

int calculate(const BatchRecord* batch, const CurveFitterRecord* curvefitter, int metaPass) {
    CalculationVariables& cv = currentCalcVars;
    GenerationParameters& gp = generatieparameters;
    if (metaPass == 1) workpointFromPreviousBatch = 0;
    if (workpointFromPreviousBatch == 1) {
        CopyCalculationVariables(cv, werkpuntcv);
    } else {
        // A flat-band contact follows the layer behind it, whatever changed that layer.
        Recalculate_Workfunctions(zonnecel, actionPanel.first.temperature, parameterset1.convergence);
        parameterset2_to_1(zonnecel);
    }
    const bool fromPrevious = workpointFromPreviousBatch == 1;
    ResetStageFlags(fromPrevious);
    ReadWorkPointAndAction(metaPass);

    if (!fromPrevious && !SetUpProblemOnMesh(cv, gp, metaPass)) return -1;
    if (metaPass == 0) {
        wp_vorig = wp;
        deffilenamevorig = parameterset1.name;
    }
    if (!fromPrevious && !SolveEquilibriumAndShortCircuit(cv, gp)) return -1;
    if (EquilibriumConvergenceFailure == 0 && ShortCircuitConvergenceFailure == 0 &&
        !SolveWorkingPoint(cv, fromPrevious, metaPass))
        return -1;
    if (WorkPointConvergenceFailure) return -1;
    if (!RunSweeps(cv, gp, batch, curvefitter)) return -1;
    workpointFromPreviousBatch = 0;
    return 0;
}

int calculate_withMeta(const BatchRecord* batch, const CurveFitterRecord* curvefitter) {
    // Metastable defects arrive later: without them a simulation is one plain pass.
    return calculate(batch, curvefitter, 0);
}

int LastCalculationStatus() {
    if (lastCalculationResult != 0) return EXIT_FAILED;
    // A calculation that asked for a sweep made the newest element of the result list; a cut I-V or
    // C-V curve has a point marked cut in its convergence record.
    const bool anySweep =
        actie.IV.calculate || actie.CV.calculate || actie.Cf.calculate || actie.QE.calculate;
    const DataListElement* element = anySweep ? pointer_naar_huidige() : nullptr;
    if (element == nullptr) return EXIT_RAN;
    for (const ConvergenceRow& row : element->convergence)
        if (row.status == PointStatus::Cut) return EXIT_FAILED;
    const bool cut = (element->actie.Cf.calculate && CfConvergenceFailure == 1) ||
                     (element->actie.QE.calculate && QEConvergenceFailure == 1);
    return cut ? EXIT_FAILED : EXIT_RAN;
}

void Simulate(int request) {
    Calculationmode = request;
    workpointFromPreviousBatch = 0;
    switch (request) {
    case SINGLE_SHOT:
        ++SingleShotSimulationNumber;
        lastCalculationResult = calculate_withMeta(nullptr, nullptr);
        break;
    default:
        TERVOErrorMessage("Simulate",
                          "Batch runs, recordings and curve fits are not available in this build yet.");
        lastCalculationResult = -1;
        break;
    }
}

} // namespace tervo
