#include "run/sweeps/iv_sweep.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "cell/cell_records.h"
#include "platform/analysis.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/results/extraction.h"
#include "run/sweeps/operating_points.h"
#include "run/sweeps/sweep_points.h"

namespace tervo {

namespace {

// The extracted currents are the conventional current density in +x, which is the current that a
// consumer at the left contact, where the voltage is applied, sees entering there: a forward-biased
// diode draws a positive current, generated power has V J < 0, and the series and shunt resistance
// add V = Rs J and J = Gsh V.  The minority currents at the contacts keep that sign too, so that a
// loss of carriers through a contact is positive like the recombination losses.

// ---------------------------------------------------------------------------------------------
// The sweep

// The arrays of one sweep, one entry a voltage.
struct IVWork {
    std::vector<double> v_cell;        // over the cell proper, V
    std::vector<double> v_as;          // external: v_cell plus the drop on the series resistance
    std::vector<double> dcstroom;      // total current, mA/cm2
    std::vector<double> ifrdcstroom;   // lost at the interfaces, A/m2
    std::vector<double> recdcstroom;   // lost in the bulk, A/m2
    std::vector<double> recSRH;        // bulk loss by defects, A/m2
    std::vector<double> recRadiative;  // by radiative recombination, A/m2
    std::vector<double> recAuger;      // by Auger recombination, A/m2
    std::vector<double> leftMinority;  // minority current at the left contact, mA/cm2
    std::vector<double> rightMinority; // at the right contact, mA/cm2

    explicit IVWork(int n)
        : v_cell(At(n)), v_as(At(n)), dcstroom(At(n)), ifrdcstroom(At(n)), recdcstroom(At(n)), recSRH(At(n)),
          recRadiative(At(n)), recAuger(At(n)), leftMinority(At(n)), rightMinority(At(n)) {}

    // All arrays, so that they can be moved and sorted together.
    std::array<std::vector<double>*, 10> all() {
        return {&v_cell, &v_as,         &dcstroom, &ifrdcstroom,  &recdcstroom,
                &recSRH, &recRadiative, &recAuger, &leftMinority, &rightMinority};
    }
};

// The factor that turns a normalised rate times a normalised length in layer j into A/m2.
double LayerCurrentFactor(const CalculationParameters& P, int layer) {
    const ScaleParameters& s = P.scale;
    return s.diffusion * s.density[At(layer)] * Q_ELEM / s.length;
}

// Trapezoidal integral over the stack of a normalised rate, in A/m2.  The weight of a point is half
// the width of the intervals beside it; the double point of an interface has a zero interval
// between its two halves, so each half counts only towards its own layer.
double IntegratedRate(const CalculationVariables& cv, const MeshArray& R) {
    const CalculationParameters& P = *cv.parameters;
    const MeshBlock& m = cv.mesh;
    double sum = 0;
    for (int j = 0; j < m.number_of_layers; ++j) {
        const double f = LayerCurrentFactor(P, j);
        for (int k = m.first_point[At(j)]; k <= m.last_point[At(j)]; ++k) {
            const double left = k > 0 ? m.h[At(k - 1)] : 0.0;
            const double right = k < m.n_points - 1 ? m.h[At(k)] : 0.0;
            sum += R[At(k)] * f * (left + right) / 2;
        }
    }
    return sum;
}

// Drops the points of a first branch after point i: the second branch, which begins at `split`,
// moves up to follow point i.
void DropRestOfFirstBranch(IVWork& w, int i, int split, int points) {
    for (std::vector<double>* a : w.all()) {
        std::vector<double>& v = *a;
        std::move(v.begin() + split, v.begin() + points, v.begin() + i + 1);
    }
}

// Exchange sort of the first n points by ascending external voltage, all arrays together.
void SortByExternalVoltage(IVWork& w, int n) {
    auto arrays = w.all();
    for (int a = 0; a < n - 1; ++a)
        for (int b = a + 1; b < n; ++b)
            if (w.v_as[At(b)] < w.v_as[At(a)])
                for (std::vector<double>* v : arrays) std::swap((*v)[At(a)], (*v)[At(b)]);
}

// ---------------------------------------------------------------------------------------------
// The analysis

// The line through (x1, y1) and (x2, y2) at x = 0.
double LineAtZero(double x1, double y1, double x2, double y2) {
    return y1 - x1 * (y2 - y1) / (x2 - x1);
}

// The first of three neighbouring points around index i of an n-point curve: i - 1, held so that
// all three lie on the curve.
int ThreePointStart(int i, int n) {
    if (i < 2) return 0;
    if (i >= n - 2) return n - 3;
    return i - 1;
}

// Jsc: the current at 0 V as a magnitude.
void FindJsc(const double* V, const double* J, int n, SolarCellParameters& p) {
    p.JscValid = 1;
    p.JscExtrapolated = V[0] * V[n - 1] > 0 ? 1 : 0;
    if (n == 2) {
        p.Jsc = std::fabs(LineAtZero(V[0], J[0], V[1], J[1]));
        return;
    }
    if (p.JscExtrapolated) {
        // From the end of the curve nearest to 0 V.
        const int end = V[0] <= 0 ? n - 1 : 0;
        const int step = V[0] <= 0 ? -1 : 1;
        int other = end + step;
        if (V[other] == V[end]) other += step;
        if (V[other] == V[end]) {
            p.JscValid = 0;
            p.Jsc = 0;
            return;
        }
        p.Jsc = std::fabs(LineAtZero(V[end], J[end], V[other], J[other]));
        return;
    }
    // The first point at 0 V or the first sign change of the voltage.
    int i = 0;
    for (; i < n - 2; ++i) {
        if (std::fabs(V[i]) <= 1e-10) break;
        const bool bothBelow = V[i] < 1e-10 && V[i + 1] < 1e-10;
        const bool bothAbove = V[i] > -1e-10 && V[i + 1] > -1e-10;
        if (!bothBelow && !bothAbove) break;
    }
    const int k = ThreePointStart(i, n);
    // The parabola through the three points at V = 0, in the Lagrange form.
    double value = 0;
    for (int a = k; a < k + 3; ++a) {
        double term = J[a];
        for (int b = k; b < k + 3; ++b)
            if (b != a) term *= (0 - V[b]) / (V[a] - V[b]);
        value += term;
    }
    p.Jsc = std::fabs(value);
}

// Voc: the voltage at zero current as a magnitude.
void FindVoc(const double* V, const double* J, int n, SolarCellParameters& p) {
    p.VocValid = 1;
    p.VocExtrapolated = J[0] * J[n - 1] > 0 ? 1 : 0;
    auto invalid = [&p]() {
        p.VocValid = 0;
        p.Voc = 0;
    };
    if (n == 2) {
        if (J[0] == J[1]) return invalid();
        p.Voc = std::fabs(LineAtZero(J[0], V[0], J[1], V[1]));
    } else if (p.VocExtrapolated) {
        // From the end of the curve nearest to the sign change of a current that rises with V.
        const int end = J[0] <= 0 ? n - 1 : 0;
        const int step = J[0] <= 0 ? -1 : 1;
        int other = end + step;
        if (J[other] == J[end]) other += step;
        if (J[other] == J[end]) return invalid();
        p.Voc = std::fabs(LineAtZero(J[end], V[end], J[other], V[other]));
        // A chord of the last two points carried further than their own distance is a guess.
        if (std::fabs(p.Voc - std::fabs(V[end])) > std::fabs(V[end] - V[other])) {
            p.beyondSweep = 1;
            p.sweepEnd = std::fabs(V[end]);
        }
    } else {
        int i = 0;
        while (i < n - 2 && !(J[i + 1] * J[i] <= 0)) ++i;
        const int k = ThreePointStart(i, n);
        const double x1 = V[k], x2 = V[k + 1], x3 = V[k + 2];
        const double y1 = J[k], y2 = J[k + 1], y3 = J[k + 2];
        if (y1 == y2 || y2 == y3 || y1 == y3) return invalid();
        // J(V) = A V^2 - B V + C through the three points.
        const double a = y1 / ((x1 - x2) * (x1 - x3));
        const double b = y2 / ((x2 - x1) * (x2 - x3));
        const double c = y3 / ((x3 - x1) * (x3 - x2));
        const double A = a + b + c;
        const double B = (x2 + x3) * a + (x1 + x3) * b + (x1 + x2) * c;
        const double C = x2 * x3 * a + x1 * x3 * b + x1 * x2 * c;
        const double D = B * B - 4 * A * C;
        if (D <= 0 || A == 0) {
            // No real root of the parabola (or no parabola at all): the chord of the outer points.
            p.Voc = (y1 * x3 - y3 * x1) / (y1 - y3);
        } else {
            const double r1 = (B - std::sqrt(D)) / (2 * A);
            const double r2 = (B + std::sqrt(D)) / (2 * A);
            const double lo = std::min(x1, x3), hi = std::max(x1, x3);
            p.Voc = (r1 > lo && r1 < hi) ? r1 : r2;
        }
        p.Voc = std::fabs(p.Voc);
    }
    if (p.Voc > 10) invalid();
}

// The maximum power point: the point of the curve with the largest generated power -J V, refined
// between its neighbours by a fit of the current (exponential) or of the power (parabola).
// Returns the largest power, mW/cm2.
double FindMaximumPower(const double* V, const double* J, int n, SolarCellParameters& p) {
    p.FFExtrapolated = 1;
    p.etaExtrapolated = 1;
    auto P = [V, J](int i) { return -J[i] * V[i]; };
    if (n == 2) {
        const int m = P(0) <= P(1) ? 1 : 0;
        p.J_MPP = std::fabs(J[m]);
        p.V_MPP = std::fabs(V[m]);
        return P(m);
    }
    double Pmax = P(0);
    int m = 0;
    int first = -1;
    if (P(1) > Pmax) {
        Pmax = P(1);
        m = 1;
        first = 1;
    }
    for (int i = 2; i < n; ++i) {
        int direction = -1;
        if (P(i) > Pmax) {
            Pmax = P(i);
            m = i;
            direction = 1;
        }
        // The power turned: the maximum lies inside the curve.
        if (direction != first) {
            p.FFExtrapolated = 0;
            p.etaExtrapolated = 0;
        }
    }
    p.J_MPP = std::fabs(J[m]);
    p.V_MPP = std::fabs(V[m]);
    if (m == 0 || m == n - 1) return Pmax;

    const double Vl = V[m - 1], V0 = V[m], Vr = V[m + 1];
    const double Jl = J[m - 1], J0 = J[m], Jr = J[m + 1];
    const bool rising = Jr > J0 && J0 > Jl;
    const bool evenlySpaced = 2 * J0 == Jl + Jr;
    const bool exponential = rising && !evenlySpaced;
    if (J0 * V0 == Jr * Vr) {
        p.V_MPP = std::fabs((V0 + Vr) / 2);
        p.J_MPP = std::fabs((J0 + Jr) / 2);
        return P(m);
    }
    if (J0 * V0 == Jl * Vl) {
        p.V_MPP = std::fabs((V0 + Vl) / 2);
        p.J_MPP = std::fabs((J0 + Jl) / 2);
        return P(m);
    }
    if (!exponential) {
        if (!(rising && evenlySpaced)) return Pmax;
        // A current that rises linearly: the power is a parabola through the three powers.
        const double Qm = P(m - 1), Q0 = P(m), Qp = P(m + 1);
        const double a = (V0 - Vl) * Qp + (Vl - Vr) * Q0 + (Vr - V0) * Qm;
        const double b = (Vl * Vl - V0 * V0) * Qp + (Vr * Vr - Vl * Vl) * Q0 + (V0 * V0 - Vr * Vr) * Qm;
        const double c = (V0 - Vl) * V0 * Vl * Qp + (Vl - Vr) * Vr * Vl * Q0 + (Vr - V0) * Vr * V0 * Qm;
        const double d = (Vr - Vl) * (V0 - Vr) * (Vl - V0);
        if (a == 0 || d == 0) return Pmax;
        const double Vmpp = -b / (2 * a);
        if (Vmpp == 0) return Pmax;
        const double power = (c + Vmpp * b + Vmpp * Vmpp * a) / d;
        p.V_MPP = std::fabs(Vmpp);
        p.J_MPP = std::fabs(power / Vmpp);
        return power;
    }
    // An exponentially rising current J(V) = a + b exp(c V) through the three points.  b exp(c V) is
    // formed as (J0 - Jl) exp(c (V - Vl)) / (r - 1), the same quantity as b = (J0 - Jl) / (r^(V0/dV) -
    // r^(Vl/dV)) times exp(c V), without the powers of r that overflow far from 0 V.
    const double r = (Jr - J0) / (J0 - Jl);
    const double dV = V0 - Vl;
    const double a = (Jl * Jr - J0 * J0) / (Jl + Jr - 2 * J0);
    const double c = std::log(r) / dV;
    auto bexp = [&](double v) { return (J0 - Jl) * std::exp(c * (v - Vl)) / (r - 1); };
    // P = -V J(V) has its maximum where dP/dV = -g(V) changes sign.
    auto g = [&](double v) { return a + (1 + c * v) * bexp(v); };
    double low = V0, high = Vr;
    if (!(g(V0) <= 0)) {
        low = Vl;
        high = V0;
    }
    double mid = (low + high) / 2;
    for (int step = 0; step < 10; ++step) {
        mid = (low + high) / 2;
        (g(mid) <= 0 ? low : high) = mid;
    }
    const double Jmpp = -(a + bexp(mid));
    const double power = Jmpp * mid;
    if (!std::isfinite(power)) return Pmax;
    p.V_MPP = std::fabs(mid);
    p.J_MPP = std::fabs(Jmpp);
    return power;
}

} // namespace

int AnalyseIVCurve(const double* V, const double* J, int n, const IVIllumination& light,
                   SolarCellParameters& result) {
    if (light.dark || n < 2 || V == nullptr || J == nullptr || V[1] == V[0]) return 0;
    SolarCellParameters p;
    InitialiseSolarCellParameters(p);
    FindJsc(V, J, n, p);
    FindVoc(V, J, n, p);
    const double Pmax = FindMaximumPower(V, J, n, p);

    const double Pin = light.generationFromFile ? 1000.0 : light.incidentPower;
    if (Pin <= 0) {
        p.eta = 0;
    } else if (light.generationFromFile) {
        // The collected part of the ideal light current of the generation profile.
        const double ideal = light.attenuation * light.idealLightCurrent * 0.01;
        p.eta = ideal > 0 ? p.Jsc * 100 / ideal : 0;
    } else {
        p.eta = Pmax * 1000 / Pin;
    }

    if (p.VocValid && p.JscValid && p.Voc != 0 && p.Jsc != 0) {
        p.FF = Pmax * 100 / p.Voc / p.Jsc;
        p.FFValid = 1;
    } else {
        p.FF = 0;
        p.FFValid = 0;
    }
    if (!(p.FF > 0 && p.FF <= 150)) {
        p.FF = 0;
        p.FFValid = 0;
    }
    if (!(p.eta > 0 && p.eta <= 1000)) {
        p.eta = 0;
        p.etaValid = 0;
    } else {
        p.etaValid = 1;
    }
    if (p.VocExtrapolated || p.JscExtrapolated) p.FFExtrapolated = 1;
    result = p;
    return 1;
}

int IVParameters(const double* V, const double* J, int n, int kind, SolarCellParameters* target,
                 const MeasuredIllumination* measurement) {
    if (n < 2 || V == nullptr || J == nullptr) return 0;
    std::vector<double> v(V, V + n), j(J, J + n);
    IVIllumination light;
    SolarCellParameters* destination = target;
    if (kind == IV_MEASUREMENT) {
        if (measurement == nullptr) return 0;
        light.dark = measurement->dark;
        light.incidentPower = measurement->incidentPower;
    } else {
        // Back from the user's convention to the internal one: the signs are their own inverses.
        for (double& x : v) x *= zonnecel.signV;
        for (double& x : j) x *= zonnecel.signJ;
        WorkPoint fresh;
        const WorkPoint* w = &wp;
        if (kind == IV_SCRIPT) {
            fresh = wp;
            ReadWorkPoint(fresh, 1);
            w = &fresh;
        } else if (kind == IV_SIMULATION) {
            DataListElement* present = pointer_naar_huidige();
            destination = present != nullptr ? &present->parameters : nullptr;
        } else {
            return 0;
        }
        light.dark = w->dark;
        light.incidentPower = w->power_incident;
        light.generationFromFile = w->generationFromFile;
        light.attenuation = w->attenuation;
        light.idealLightCurrent = w->idealLightCurrent;
    }
    if (destination == nullptr) return 0;
    return AnalyseIVCurve(v.data(), j.data(), n, light, *destination);
}

LossChannelValues LossChannelsOfState(const CalculationVariables& cv) {
    const CalculationParameters& P = *cv.parameters;
    const MeshBlock& m = cv.mesh;
    const RecombinationData& r = cv.recombination;
    LossChannelValues v;
    for (int j = 0; j + 1 < m.number_of_layers; ++j) {
        const size_t J = At(j);
        // The interface rates are normalised per side with the density scale of that side's layer.
        v.interfaces += (r.ifr.Rn_left[J] * P.scale.density[J] + r.ifr.Rn_right[J] * P.scale.density[J + 1]) *
                        P.scale.diffusion / P.scale.length * Q_ELEM;
    }
    v.bulk = IntegratedRate(cv, r.dc.R);
    v.srh = IntegratedRate(cv, r.dc_defects.R);
    v.radiative = IntegratedRate(cv, r.dc_radiative.R);
    v.auger = IntegratedRate(cv, r.dc_auger.R);
    // At an n-type contact (code -1) the holes are the minority, else the electrons.  A loss is
    // positive whatever the carrier and the side: electrons leaving to the left and holes leaving to
    // the right carry a positive conventional current, the other two a negative one.
    const int last = m.n_points - 1;
    const int layers = std::max(m.number_of_layers, 1);
    v.leftMinority = P.dopingSignLeft[0] == -1 ? -j_p[0] : j_n[0];
    v.rightMinority = P.dopingSignRight[At(layers - 1)] == 1 ? -j_n[At(last)] : j_p[At(last)];
    return v;
}

int calciv(CalculationVariables& cv, Actie& action, int mode) {
    SweepAction& iv = action.IV;
    if (iv.points > MAX_NUM_CALCULATION_STEPS) {
        TERVOErrorMessage(
            "Error from function calciv()",
            FmtStr("%s<There are more than MAX_NUM_CALCULATION_STEPS = %i I(V) points to calculate",
                   MAX_NUM_CALCULATION_STEPS));
        return 0;
    }
    int points = std::max(iv.points, 0);
    IVConvergenceFailure = 0;
    iv.done = 0;
    int done = 0;
    IVWork w(points);
    for (int i = 0; i < points; ++i)
        w.v_cell[At(i)] = points > 1 ? iv.start + i * (iv.stop - iv.start) / (points - 1) : iv.start;

    // Two branches walk away from a known state inside the range: first upwards, then, after a
    // return to the stored state, downwards.
    SweepWalk walk = StartSweepWalk(cv, w.v_cell, points, mode, "I(V)");
    const bool twoBranches = walk.twoBranches;
    int& split = walk.split;
    std::vector<ConvergenceRow> rows;
    double cutAt = 0;

    for (int i = 0; i < points; ++i) {
        if (pausestatus) {
            const int answer = Pause(0);
            if (answer != 1) return answer;
        }
        const PointStatus status = i > 0 ? StepToSweepPoint(cv, walk, w.v_cell, i) : walk.firstStatus;
        if (CONVERGENTIEFALING == 1) {
            const double previous = VoltageBeforeSweepPoint(walk, w.v_cell, i);
            if (IVConvergenceFailure == 0) cutAt = previous; // the first cut ends the upper branch
            IVConvergenceFailure = 1;
            TERVOErrorMessage(
                "While calculating I(V) ...",
                FmtStr("%s<Convergence failure at V = %f[p6] Volt.\nI(V) calculation cut at V = "
                       "%f[p6] Volt.",
                       w.v_cell[At(i)], previous) +
                    RetriesText(walk.last));
            rows.push_back(MakeConvergenceRow(cv, "I-V", static_cast<int>(rows.size()) + 1,
                                              w.v_cell[At(i)] * zonnecel.signV, PointStatus::Cut));
            // With the retries on, a cut of the upper branch leaves the lower one to be walked: the
            // curve loses its end beyond the cut, not the points on the other side of the start.
            if (sweepRecovery && twoBranches && i < split && split < points) {
                DropRestOfFirstBranch(w, i - 1, split, points);
                points = points + i - split;
                split = i;
                --i;
                continue;
            }
            break;
        }
        done = i + 1;
        rows.push_back(MakeConvergenceRow(cv, "I-V", static_cast<int>(rows.size()) + 1,
                                          w.v_cell[At(i)] * zonnecel.signV, status));
        StoreSteadyStatePoint(cv, w, i);
        const size_t I = At(i);

        // Stop after Voc: the current changed sign between this point and the one before.
        if (actionPanel.stopAfterVoc && i > 0 && w.dcstroom[I] * w.dcstroom[I - 1] < 0) {
            if (twoBranches && i < split) {
                DropRestOfFirstBranch(w, i, split, points);
                points = points + i - split + 1;
                split = i + 1;
            } else if (i > split) {
                points = i + 1;
            }
        }
    }
    iv.done = done;

    if (twoBranches) SortByExternalVoltage(w, done);

    DataListElement* element = pointer_naar_huidige();
    if (element != nullptr) {
        const double signV = zonnecel.signV, signJ = zonnecel.signJ;
        // Arrays of the size of the (possibly shortened) sweep; the points reached are filled.
        const size_t N = At(points);
        const size_t filled = At(done);
        auto store = [N, filled](std::vector<double>& to, const std::vector<double>& from, double factor) {
            to.assign(N, 0.0);
            for (size_t k = 0; k < filled; ++k) to[k] = from[k] * factor;
        };
        element->actie.IV.points = points;
        element->actie.IV.done = done;
        store(element->iv_as, w.v_as, signV);
        store(element->rec_v_as, w.v_cell, signV);
        store(element->ivcurrent, w.dcstroom, signJ);
        store(element->ivleftcontact, w.leftMinority, signJ);
        store(element->ivrightcontact, w.rightMinority, signJ);
        store(element->ivifr, w.ifrdcstroom, 1.0);
        store(element->ivbulk, w.recdcstroom, 1.0);
        store(element->recSRH, w.recSRH, 1.0);
        store(element->recRadiative, w.recRadiative, 1.0);
        store(element->recAuger, w.recAuger, 1.0);
        IVParameters(element->iv_as.data(), element->ivcurrent.data(), done, IV_SIMULATION, nullptr);
        if (IVConvergenceFailure == 1) {
            element->parameters.cut = 1;
            element->parameters.cutVoltage = cutAt * signV;
        }
        element->convergence.insert(element->convergence.end(), rows.begin(), rows.end());
    }
    return 1;
}

} // namespace tervo
