// The list of simulations of a session: one element a simulation, with a copy of its working point
// and action, all its curves, what a batch or a curve fit varied in it, and the cell parameters of
// its I-V curve.
#pragma once

#include <array>
#include <list>
#include <string>
#include <vector>

#include "run/control/work_point.h"

namespace tervo {

// Voc, Jsc, FF and efficiency of an I-V curve, with the maximum power point, and for each of the
// four whether it could be determined and whether it rests on extrapolation.
struct SolarCellParameters {
    double Voc = 0;   // V
    double Jsc = 0;   // mA/cm2, a magnitude
    double FF = 0;    // %
    double eta = 0;   // %, or the collection efficiency when the generation comes from a file
    double J_MPP = 0; // mA/cm2
    double V_MPP = 0; // V
    int VocExtrapolated = 0;
    int JscExtrapolated = 0;
    int FFExtrapolated = 0;
    int etaExtrapolated = 0;
    int VocValid = 0;
    int JscValid = 0;
    int FFValid = 0;
    int etaValid = 0;
    // The curve was cut at cutVoltage (V, user's convention): a figure that rests on extrapolation
    // reaches past the last solved point and is not given.
    int cut = 0;
    double cutVoltage = 0;
    // Voc was extrapolated by more than the curve's last step beyond its end at |V| = sweepEnd: the
    // figures that rest on Voc and on the power beyond the end are not given.
    int beyondSweep = 0;
    double sweepEnd = 0;

    bool operator==(const SolarCellParameters&) const = default;
};

// Nothing known: all values 0, nothing valid, nothing extrapolated.
void InitialiseSolarCellParameters(SolarCellParameters& p);

// Whether a figure with this extrapolation flag can be given, and the reason when it cannot:
// "n/a (curve cut at V = ... V)" for an extrapolation past the point where a cut curve ends, "n/a
// (Voc beyond the end of the sweep at |V| = ... V)" for Voc and the figures on it extrapolated far past
// the end of a curve (the short-circuit current is extrapolated towards 0 V, not past the end).
bool FigureCutOff(const SolarCellParameters& p, int extrapolated, bool isJsc = false);
std::string CutFigureText(const SolarCellParameters& p);

inline constexpr int NUMBER_OF_PLOT_HANDLES = 19;
inline constexpr int NUMBER_OF_CURVE_COLOURS = 10;
inline constexpr int MAX_LISTED_PARAMETERS = 9; // batch or fit parameters kept per simulation
inline constexpr int NO_PLOT = -2;              // plot handle of a curve that is not on a graph

// One simulation.  The curves are empty until a sweep fills them; the `points` and `done` of each
// sweep in `actie` are their sizes.
// Two points of a curve closer than this in voltage (V) are one point: the merge of an I-V and a C-V
// curve keeps one of them, and a C-V row finds its currents on the merged curve by it.
inline constexpr double SAME_VOLTAGE_TOLERANCE = 1e-5;

// How a point of a curve was reached.
enum class PointStatus { Converged, ConvergedCoupled, RecoveredByHalving, RecoveredByCoupled, Cut };
const char* PointStatusText(PointStatus status);

// The figures of one point for the convergence record.
struct ConvergenceRow {
    std::string curve;                 // "I-V", "C-V", "C-f", "QE"
    int point = 0;                     // in the order of calculation, from 1
    double value = 0;                  // the swept value: V (user's convention), Hz or nm
    int passes = 0;                    // outer passes of the last solve, -1 when it failed
    int inner = 0;                     // inner Newton iterations of that solve, all passes
    double dpsi = 0, dFn = 0, dFp = 0; // last updates, kT
    PointStatus status = PointStatus::Converged;
};
struct DataListElement {
    int number = 0; // number of the simulation in its own series (single shot, batch, curve fit)
    WorkPoint wp;   // the working point at the start of the simulation
    Actie actie;    // the action of the simulation
    // I-V
    std::vector<double> iv_as, ivcurrent, rec_v_as, ivleftcontact, ivrightcontact, ivifr, ivbulk, recSRH,
        recRadiative, recAuger;
    // C-V
    std::vector<double> cv_as, cvcap, cvcon, cvMott, cvW, cvN;
    // C-f
    std::vector<double> cf_as, cfcap, cfcon, cfZre, cfZim, cfZmagn, cfZphase;
    // QE
    std::vector<double> qe_as, hv_as, qe;
    // Admittance analysis of the C-f curve, empty until it has run.
    std::vector<double> AS_as, AS_plot, AS_Et, AS_Nt, AS_deriv;
    double AS_W = 0; // depletion width of that analysis, cm
    std::array<int, NUMBER_OF_PLOT_HANDLES> plotHandles{};
    std::array<int, NUMBER_OF_CURVE_COLOURS> curveColours{};
    // Batch.
    std::array<std::string, MAX_LISTED_PARAMETERS> batchParameterNames;
    std::array<int, MAX_LISTED_PARAMETERS> batchParameterKinds{};
    std::array<double, MAX_LISTED_PARAMETERS> batchParameterValues{};
    int batchParameterCount = 0; // 0 for no batch
    int batchStep = 0;
    int batchSteps = 0;
    int batchDefinitionVaried = 0; // 1 if the definition file is a batch parameter
    short recordingFlag = 0;       // 1 for a batch with recording
    std::string definitionName;
    int definitionIndex = -1; // index of the definition in the batch's list
    SolarCellParameters parameters;
    std::string started; // "day-month-year at hh:mm:ss" of the creation, at most 30 characters
    // Curve fit.
    int fitParameterCount = 0; // 0 for no curve fit
    int fitStep = 0;           // counted from 0
    int fitSteps = 0;
    std::array<double, MAX_LISTED_PARAMETERS> fitParameterValues{};
    std::array<std::string, MAX_LISTED_PARAMETERS> fitParameterNames;
    int fitMeasurementIndex = 0;
    std::string fitMeasurementName;
    int fitMeasurementFixed = 0; // 1 if a parameter is fixed for this measurement
    std::string fitFixedParameterText;
    // How each point of the curves was reached, in the order of calculation.
    std::vector<ConvergenceRow> convergence;
};

// The list of the session, first simulation first.  The list owns its elements and their curves;
// an element keeps its place in memory while others are appended, so a reference to the present
// element stays good until `wis_alles`.  Walking the list takes the place of following `next`.
extern std::list<DataListElement> resultList;

// The head of the list, and the present (last) element; null for an empty list.
DataListElement* pointer_naar_eerste();
DataListElement* pointer_naar_huidige();

// Fresh values for a new simulation: curves empty, plot handles NO_PLOT, colours 0, parameter
// names empty and kinds -1, `definitionIndex` -1, no cell parameters, `started` the present time;
// with `number` and copies of `a` and `w`.
void InitialiseDataListElement(DataListElement& element, int number, const Actie& a, const WorkPoint& w);

// Frees all curves of an element.
void FreeDataListElement(DataListElement& element);

// Appends an element for a new simulation, initialised as above, and makes it the present one.
DataListElement& AppendDataListElement(int number, const Actie& a, const WorkPoint& w);

// Empties the list and resets what rests on it: the colour index and the three simulation counters.
void wis_alles();

// The short name of an element's curve on a graph: "Batch n: step i/N" for a batch step,
// "CurveFit n: step i/N" (i from 1) for a fit step, else "Singleshot n".
void MakeShortcurvename(const DataListElement& element, std::string& name);

} // namespace tervo
