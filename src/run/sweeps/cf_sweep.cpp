#include "run/sweeps/cf_sweep.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "run/results/result_list.h"
#include "run/sweeps/small_signal_current.h"
#include "solver/ac_system.h"

namespace tervo {
double CfFrequency(double start, double stop, int n, int i) {
    if (n < 2) return start;
    return std::pow(10.0, ((n - 1 - i) * std::log10(start) + i * std::log10(stop)) / (n - 1));
}

CfPoint MakeCfPoint(double y_re, double y_im, double omega_us) {
    CfPoint p;
    const double G = y_re;
    const double C = omega_us != 0 ? y_im / omega_us : 0.0;
    double Zre = 0, Zim = 0;
    if (G != 0 || C != 0) {
        // Z = 1 / (G + j omega C), ohm m2.
        const double m = G * G + y_im * y_im;
        Zre = G / m;
        Zim = -y_im / m;
    }
    p.C = C * 100000;                  // F/m2 to nF/cm2
    p.G = std::max(G * 0.0001, 1e-12); // S/m2 to S/cm2, floored after the scaling
    p.Zre = Zre * 10000;               // ohm m2 to ohm cm2
    p.Zim = Zim * 10000;
    p.Zmagn = std::sqrt(p.Zre * p.Zre + p.Zim * p.Zim);
    p.Zphase = std::atan2(p.Zim, p.Zre) * 57.29577951308232;
    return p;
}

int calccf(CalculationVariables& cv, Actie& action) {
    SweepAction& cf = action.Cf;
    cf.done = 0;
    if (cv.iteration_count == -1) {
        CfConvergenceFailure = 1;
        return 0;
    }
    CfConvergenceFailure = 0;
    const int points = cf.points;
    if (points > MAX_NUM_CALCULATION_STEPS) {
        TERVOErrorMessage(
            "Error in function calccf()",
            FmtStr("%s<There are more than MAX_NUM_CALCULATION_STEPS = %i C(f) points to calculate",
                   MAX_NUM_CALCULATION_STEPS));
        return 0;
    }
    if (points < 2 || !(cf.start > 0) || !(cf.stop > 0)) {
        TERVOErrorMessage("Error in function calccf()",
                          "A C(f) sweep needs at least 2 points and frequencies above 0 Hz.");
        return 0;
    }
    amplitude = 1.0;
    std::vector<CfPoint> curve(At(points));
    std::vector<double> f(At(points), 0.0);
    int done = 0;
    for (int i = 0; i < points; ++i) {
        f[At(i)] = CfFrequency(cf.start, cf.stop, points, i);
        omega_us = 6.283185307179586 * f[At(i)];
        omega = cv.parameters->scale.time * omega_us;
        if (i > 0 && pausestatus) {
            const int answer = Pause(0);
            if (answer != 1) return answer;
        }
        statusLine.text =
            FmtStr("%s<Calculating C(f) at %f[p3] V from %f[w8p2e2] Hz to %f[w8p2e2] Hz: f = %f[w8p2e2] Hz",
                   wp.voltage * zonnecel.signV, cf.start, cf.stop, f[At(i)]);
        if (bereken_klein_signaal(cv) != 1) {
            CfConvergenceFailure = 1;
            TERVOErrorMessage(
                "While calculating C(f)...",
                FmtStr("%s<Small-signal solution failed at f = %f[w8p2e2] Hz\nC(f) calculation cut",
                       f[At(i)]));
            break;
        }
        extraheer_kleinsignaalstroom(cv);
        done = i + 1;
        const Admittance y = WithShuntAndSeries(SmallSignalAdmittance(cv), wp.RshPresent != 0, wp.Gsh,
                                                wp.RsPresent != 0, wp.Rs);
        curve[At(i)] = MakeCfPoint(y.re, y.im, omega_us);
    }
    cf.done = done;

    DataListElement* element = pointer_naar_huidige();
    if (element != nullptr) {
        const size_t N = At(points);
        for (std::vector<double>* a : {&element->cf_as, &element->cfcap, &element->cfcon, &element->cfZre,
                                       &element->cfZim, &element->cfZmagn, &element->cfZphase})
            a->assign(N, 0.0);
        for (size_t k = 0; k < At(done); ++k) {
            element->cf_as[k] = f[k];
            element->cfcap[k] = curve[k].C;
            element->cfcon[k] = curve[k].G;
            element->cfZre[k] = curve[k].Zre;
            element->cfZim[k] = curve[k].Zim;
            element->cfZmagn[k] = curve[k].Zmagn;
            element->cfZphase[k] = curve[k].Zphase;
        }
        element->actie.Cf.points = points;
        element->actie.Cf.done = done;
    }
    return 1;
}

} // namespace tervo
