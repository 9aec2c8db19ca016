#include "app/main_job.h"

#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/work_point.h"
#include "run/results/ac_result_files.h"
#include "run/results/convergence_file.h"
#include "run/results/extraction.h"
#include "run/results/result_files.h"
#include "run/results/result_list.h"
#include "setup/parameter_sets.h"

namespace tervo {

namespace {

// The definition's name without folder and extension: the stem of the result files.
std::string ResultStem(const std::string& definitionPath) {
    std::string drive, folder, file;
    SplitPath(definitionPath, drive, folder, file);
    const size_t dot = file.rfind('.');
    return dot == std::string::npos ? file : file.substr(0, dot);
}

std::string ResultPath(const std::string& stem, const char* extension) {
    return MakePathname(MakePathname(GetProjectDir(), "results"), stem + "." + extension);
}

} // namespace

std::string MainJobSummary(const std::string& definitionName, const DataListElement* element) {
    std::string line = definitionName + ":";
    if (lastCalculationResult != 0 && !element) return line + " the calculation failed (see the messages)";
    if (!element || !element->actie.IV.calculate) {
        return line + FmtStr("%s< working point V = %f[p4] V, J = %f[e2p4] mA/cm2",
                             wp.voltage * zonnecel.signV, JWorkingPoint * zonnecel.signJ);
    }
    const SolarCellParameters& p = element->parameters;
    if (wp.dark)
        return line +
               FmtStr("%s< dark I-V of %i points (no cell parameters in the dark)", element->actie.IV.done);
    auto value = [&p](int valid, int extrapolated, const std::string& text, bool isJsc = false) {
        if (!valid) return std::string("n/a");
        if (FigureCutOff(p, extrapolated, isJsc)) return CutFigureText(p);
        return extrapolated ? text + " (extrapolated)" : text;
    };
    line += " Voc = " + value(p.VocValid, p.VocExtrapolated, FmtStr("%f[p4] V", p.Voc));
    line += ", Jsc = " + value(p.JscValid, p.JscExtrapolated, FmtStr("%f[p3] mA/cm2", p.Jsc), true);
    line += ", FF = " + value(p.FFValid, p.FFExtrapolated, FmtStr("%f[p2] %%", p.FF));
    line += ", eta = " + value(p.etaValid, p.etaExtrapolated, FmtStr("%f[p2] %%", p.eta));
    if (lastCalculationResult != 0) line += " (the calculation stopped early; see the messages)";
    return line;
}

int RunMainJob(const std::string& definitionPath, std::string& summary) {
    // The result files of the main job hold its own curves: a job run before in the same process
    // (a test, a driver that runs several) leaves none of its curves in them.
    wis_alles();
    const DataListElement* before = pointer_naar_huidige();
    Simulate(SINGLE_SHOT);
    const std::string stem = ResultStem(definitionPath);
    // Only a curve of this run is saved: a run that failed before its sweeps made no new element.
    const DataListElement* element = pointer_naar_huidige();
    if (element == before) element = nullptr;
    // Once a result file cannot be written (a folder that may not be written, a full disk), the
    // others would fail alike: the first failure is told and the rest are not tried.
    bool saved = true;
    if (element && element->actie.IV.calculate && element->actie.IV.done > 0)
        saved = SaveResultFile(RESULT_IV, ResultPath(stem, "iv")) == 0;
    if (saved && element && element->actie.QE.calculate && element->actie.QE.done > 0)
        saved = SaveResultFile(RESULT_QE, ResultPath(stem, "qe")) == 0;
    if (saved && element && element->actie.CV.calculate && element->actie.CV.done > 0)
        saved = SaveAcResultFile(RESULT_CV, ResultPath(stem, "cv")) == 0;
    if (saved && element && element->actie.Cf.calculate && element->actie.Cf.done > 0)
        saved = SaveAcResultFile(RESULT_CF, ResultPath(stem, "cf")) == 0;
    if (saved && WorkPointConvergenceFailure == 0) {
        // The band diagram of the working point, on its own mesh.
        CopyCalculationVariables(currentCalcVars, werkpuntcv);
        Full_x_Dependence(currentCalcVars);
        update_eb_panel(currentCalcVars, 1);
        saved = SaveResultFile(RESULT_EB, ResultPath(stem, "eb")) == 0;
    }
    if (saved && element && !element->convergence.empty())
        saved = SaveConvergenceFile(*element, ResultPath(stem, "conv")) == 0;
    summary = MainJobSummary(stem, element);
    if (!saved) {
        summary += " (not all results could be saved; see the messages)";
        return WorseExitStatus(LastCalculationStatus(), EXIT_FAILED);
    }
    return LastCalculationStatus();
}

} // namespace tervo
