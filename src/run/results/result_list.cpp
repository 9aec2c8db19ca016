#include "run/results/result_list.h"

#include "platform/files.h"
#include "platform/format.h"
#include "run/control/driver.h"

namespace tervo {

std::list<DataListElement> resultList;

void InitialiseSolarCellParameters(SolarCellParameters& p) {
    p = SolarCellParameters{};
}

bool FigureCutOff(const SolarCellParameters& p, int extrapolated, bool isJsc) {
    return extrapolated != 0 && (p.cut != 0 || (p.beyondSweep != 0 && !isJsc));
}

std::string CutFigureText(const SolarCellParameters& p) {
    if (p.cut) return FmtStr("%s<n/a (curve cut at V = %f[p4] V)", p.cutVoltage);
    return FmtStr("%s<n/a (Voc beyond the end of the sweep at |V| = %f[p4] V)", p.sweepEnd);
}

const char* PointStatusText(PointStatus status) {
    switch (status) {
    case PointStatus::Converged:
        return "converged";
    case PointStatus::ConvergedCoupled:
        return "converged by the coupled scheme";
    case PointStatus::RecoveredByHalving:
        return "recovered by step halving";
    case PointStatus::RecoveredByCoupled:
        return "recovered by the coupled scheme";
    case PointStatus::Cut:
        return "cut";
    }
    return "";
}

DataListElement* pointer_naar_eerste() {
    return resultList.empty() ? nullptr : &resultList.front();
}

DataListElement* pointer_naar_huidige() {
    return resultList.empty() ? nullptr : &resultList.back();
}

void InitialiseDataListElement(DataListElement& e, int number, const Actie& a, const WorkPoint& w) {
    e = DataListElement{};
    e.number = number;
    e.actie = a;
    e.wp = w;
    e.plotHandles.fill(NO_PLOT);
    e.curveColours.fill(0);
    e.batchParameterKinds.fill(-1);
    e.definitionIndex = -1;
    InitialiseSolarCellParameters(e.parameters);
    const DateTime now = GetSystemDateTime();
    Fmt(e.started, "%s[w30q]<%i-%i-%i at %i:%i[w2p0]:%i[w2p0]", now.day, now.month, now.year, now.hours,
        now.minutes, now.seconds);
}

void FreeDataListElement(DataListElement& e) {
    for (std::vector<double>* curve :
         {&e.iv_as,   &e.ivcurrent, &e.rec_v_as,     &e.ivleftcontact, &e.ivrightcontact, &e.ivifr,
          &e.ivbulk,  &e.recSRH,    &e.recRadiative, &e.recAuger,      &e.cv_as,          &e.cvcap,
          &e.cvcon,   &e.cvMott,    &e.cvW,          &e.cvN,           &e.cf_as,          &e.cfcap,
          &e.cfcon,   &e.cfZre,     &e.cfZim,        &e.cfZmagn,       &e.cfZphase,       &e.qe_as,
          &e.hv_as,   &e.qe,        &e.AS_as,        &e.AS_plot,       &e.AS_Et,          &e.AS_Nt,
          &e.AS_deriv}) {
        std::vector<double>().swap(*curve); // gives the memory back, not only the size
    }
}

DataListElement& AppendDataListElement(int number, const Actie& a, const WorkPoint& w) {
    DataListElement& e = resultList.emplace_back();
    InitialiseDataListElement(e, number, a, w);
    return e;
}

void wis_alles() {
    for (DataListElement& e : resultList) FreeDataListElement(e);
    resultList.clear();
    kleurindex = 0;
    SingleShotSimulationNumber = 0;
    BatchSimulationNumber = 0;
    CurveFitSimulationNumber = 0;
}

void MakeShortcurvename(const DataListElement& e, std::string& name) {
    if (e.batchParameterCount >= 1 || e.batchDefinitionVaried == 1)
        Fmt(name, "%s<Batch %i: step %i/%i", e.number, e.batchStep, e.batchSteps);
    else if (e.fitParameterCount >= 1)
        Fmt(name, "%s<CurveFit %i: step %i/%i", e.number, e.fitStep + 1, e.fitSteps);
    else
        Fmt(name, "%s<Singleshot %i", e.number);
}

} // namespace tervo
