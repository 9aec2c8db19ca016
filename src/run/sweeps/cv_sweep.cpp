#include "run/sweeps/cv_sweep.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "platform/analysis.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "run/results/extraction.h"
#include "run/results/result_list.h"
#include "run/sweeps/iv_sweep.h"
#include "run/sweeps/operating_points.h"
#include "run/sweeps/small_signal_current.h"
#include "run/sweeps/sweep_points.h"
#include "solver/ac_system.h"

namespace tervo {
namespace {

// The arrays of one C-V sweep, one entry a voltage.
struct CVWork {
    std::vector<double> v_cell, v_as, dcstroom, ifrdcstroom, recdcstroom, recSRH, recRadiative, recAuger,
        leftMinority, rightMinority, mho_re, mho_im, Capaciteit, Geleidbaarheid, een_op_C2, een_breedte,
        schijndotering;
    explicit CVWork(int n) {
        for (std::vector<double>* a : all()) a->assign(At(n), 0.0);
    }
    std::array<std::vector<double>*, 17> all() {
        return {&v_cell,       &v_as,           &dcstroom,     &ifrdcstroom,   &recdcstroom,   &recSRH,
                &recRadiative, &recAuger,       &leftMinority, &rightMinority, &mho_re,        &mho_im,
                &Capaciteit,   &Geleidbaarheid, &een_op_C2,    &een_breedte,   &schijndotering};
    }
};

// Exchange sort of index lists by their values, ascending.
void SortWithIndex(std::vector<double>& v, std::vector<int>& index) {
    const size_t n = v.size();
    for (size_t a = 0; a + 1 < n; ++a)
        for (size_t b = a + 1; b < n; ++b)
            if (v[b] < v[a]) {
                std::swap(v[a], v[b]);
                std::swap(index[a], index[b]);
            }
}

} // namespace

void merge_IV_and_CV(int nIV, const double* ivVoltages, int nCV, const double* cvVoltages, int& count,
                     std::vector<int>& index, std::vector<int>& source) {
    nIV = std::max(nIV, 0);
    nCV = std::max(nCV, 0);
    index.assign(At(nIV + nCV), 0);
    source.assign(At(nIV + nCV), 0);
    if (nIV == 0) {
        for (int k = 0; k < nCV; ++k) {
            index[At(k)] = k;
            source[At(k)] = 2;
        }
        count = nCV;
        return;
    }
    std::vector<double> iv(ivVoltages, ivVoltages + nIV), cvv(cvVoltages, cvVoltages + nCV);
    std::vector<int> ivIndex(At(nIV)), cvIndex(At(nCV));
    for (int k = 0; k < nIV; ++k) ivIndex[At(k)] = k;
    for (int k = 0; k < nCV; ++k) cvIndex[At(k)] = k;
    SortWithIndex(iv, ivIndex);
    SortWithIndex(cvv, cvIndex);
    int a = 0, b = 0, m = 0;
    double lastKept = -1e99;
    while (a < nIV && b < nCV) {
        const bool takeCV = cvv[At(b)] < iv[At(a)];
        const double v = takeCV ? cvv[At(b)] : iv[At(a)];
        if (std::fabs(v - lastKept) > SAME_VOLTAGE_TOLERANCE) {
            index[At(m)] = takeCV ? cvIndex[At(b)] : ivIndex[At(a)];
            source[At(m)] = takeCV ? 2 : 1;
            ++m;
            lastKept = v;
        }
        (takeCV ? b : a)++;
    }
    // The rest of the longer list; a point that repeats the last kept voltage is still left out, so
    // that a voltage of both curves is never doubled.
    auto tail = [&](const std::vector<double>& v, const std::vector<int>& idx, int from, int n, int src) {
        for (int k = from; k < n; ++k) {
            if (std::fabs(v[At(k)] - lastKept) <= SAME_VOLTAGE_TOLERANCE) continue;
            index[At(m)] = idx[At(k)];
            source[At(m)] = src;
            ++m;
            lastKept = v[At(k)];
        }
    };
    tail(iv, ivIndex, a, nIV, 1);
    tail(cvv, cvIndex, b, nCV, 2);
    count = m;
}

void MottSchottkyAnalysis(const double* V, const double* C, int n, const MottSchottkySettings& nw,
                          double* width, double* doping) {
    for (int i = 0; i < n; ++i) width[At(i)] = doping[At(i)] = 0.0;
    const int window = nw.fitPoints;
    if (window < 1 || window >= n) return;
    std::vector<double> y(At(n)), fitted(At(window));
    for (int i = 0; i < n; ++i) y[At(i)] = 1.0 / (C[At(i)] * C[At(i)]);
    const int h = window / 2;
    for (int i = 0; i < n; ++i) {
        width[At(i)] = nw.epsilon * 8.854e-6 / C[At(i)];
        int from = i - h;
        int order = nw.orderMiddle;
        if (i < h) {
            from = 0;
            order = nw.orderEdges;
        } else if (i >= n - h) {
            from = n - window;
            order = nw.orderEdges;
        }
        // A polynomial needs fewer coefficients than points.
        order = std::clamp(order, 1, window - 1);
        std::vector<double> c(At(order + 1), 0.0);
        double mse = 0;
        if (PolyFit(V + from, y.data() + from, window, order, fitted.data(), c.data(), mse) != 0) continue;
        double slope = 0;
        for (int k = 1; k <= order; ++k) slope += c[At(k)] * k * std::pow(V[At(i)], k - 1);
        doping[At(i)] = slope != 0 ? -2e-6 / (slope * nw.epsilon * 1.602e-19 * 8.854e-12) : 0.0;
    }
}

int calccv(CalculationVariables& cv, Actie& action, int mode) {
    SweepAction& req = action.CV;
    if (req.points > MAX_NUM_CALCULATION_STEPS) {
        TERVOErrorMessage(
            "Error in function calccv()",
            FmtStr("%s<There are more than MAX_NUM_CALCULATION_STEPS = %i C(V) points to calculate",
                   MAX_NUM_CALCULATION_STEPS));
        return 0;
    }
    const int points = std::max(req.points, 0);
    CVConvergenceFailure = 0;
    req.done = 0;
    int done = 0;
    CVWork w(points);
    for (int i = 0; i < points; ++i)
        w.v_cell[At(i)] = points > 1 ? req.start + i * (req.stop - req.start) / (points - 1) : req.start;

    amplitude = 1.0;
    omega_us = 6.283185307179586 * wp.frequency;
    omega = omega_us * cv.parameters->scale.time;

    SweepWalk walk = StartSweepWalk(cv, w.v_cell, points, mode, "C(V)");
    std::vector<ConvergenceRow> rows;
    const bool twoBranches = walk.twoBranches;

    const double signV = zonnecel.signV, signJ = zonnecel.signJ;
    for (int i = 0; i < points; ++i) {
        if (pausestatus) {
            const int answer = Pause(0);
            if (answer != 1) return answer;
        }
        statusLine.text =
            FmtStr("%s<Calculating C(V) at %f[w8p2e2] Hz from %f[p3] V to %f[p3] V: V = %f[p3] Volt",
                   wp.frequency, req.start * signV, req.stop * signV, w.v_cell[At(i)] * signV);
        const PointStatus status = i > 0 ? StepToSweepPoint(cv, walk, w.v_cell, i) : walk.firstStatus;
        if (CONVERGENTIEFALING == 1) {
            CVConvergenceFailure = 1;
            const double previous = VoltageBeforeSweepPoint(walk, w.v_cell, i);
            TERVOErrorMessage(
                "While calculating C(V)...",
                FmtStr("%s<Convergence failure at V = %f[p6] Volt\nC(V) calculation cut at V = %f[p6] Volt",
                       w.v_cell[At(i)] * signV, previous * signV) +
                    RetriesText(walk.last));
            rows.push_back(MakeConvergenceRow(cv, "C-V", static_cast<int>(rows.size()) + 1,
                                              w.v_cell[At(i)] * signV, PointStatus::Cut));
            break;
        }
        done = i + 1;
        rows.push_back(MakeConvergenceRow(cv, "C-V", static_cast<int>(rows.size()) + 1,
                                          w.v_cell[At(i)] * signV, status));
        StoreSteadyStatePoint(cv, w, i);
        const size_t I = At(i);

        // The small-signal solve at the same state; the admittance is the mean of the total current.
        // A small-signal system that cannot be formed cuts the curve before this point, as a failed DC
        // point does, with a log entry of its own.
        if (bereken_klein_signaal(cv) != 1) {
            CVConvergenceFailure = 1;
            done = i;
            TERVOErrorMessage(
                "While calculating C(V)...",
                FmtStr("%s<Small-signal solution failed at V = %f[p6] Volt\nC(V) calculation cut "
                       "at V = %f[p6] Volt",
                       w.v_cell[I] * signV, VoltageBeforeSweepPoint(walk, w.v_cell, i) * signV));
            rows.back().status = PointStatus::Cut;
            break;
        }
        extraheer_kleinsignaalstroom(cv);
        const Admittance y = WithShuntAndSeries(SmallSignalAdmittance(cv), wp.RshPresent != 0, wp.Gsh,
                                                wp.RsPresent != 0, wp.Rs);
        w.mho_re[I] = y.re;
        w.mho_im[I] = y.im;
        w.Geleidbaarheid[I] = y.re;
        w.Capaciteit[I] = y.im / omega_us; // F/m2
        w.een_op_C2[I] = 1.0 / (w.Capaciteit[I] * w.Capaciteit[I]);
    }
    req.done = done;

    DataListElement* element = pointer_naar_huidige();
    if (element != nullptr) {
        // Merge with the element's I-V curve, both in the user's convention.
        const bool hasIV = !element->iv_as.empty() && element->actie.IV.done > 0;
        const int nIV = hasIV ? std::min(element->actie.IV.done, static_cast<int>(element->iv_as.size())) : 0;
        std::vector<double> cvUser(At(done));
        for (int k = 0; k < done; ++k) cvUser[At(k)] = w.v_as[At(k)] * signV;
        int m = 0;
        std::vector<int> index, source;
        merge_IV_and_CV(nIV, element->iv_as.data(), done, cvUser.data(), m, index, source);
        struct MergedPoint {
            double v, rec, current, bulk, left, right, ifr, srh, rad, auger;
        };
        std::vector<MergedPoint> merged(At(m));
        auto value = [](const std::vector<double>& a, int k) { return At(k) < a.size() ? a[At(k)] : 0.0; };
        for (int k = 0; k < m; ++k) {
            const int s = index[At(k)];
            MergedPoint& p = merged[At(k)];
            if (source[At(k)] == 1) {
                const DataListElement& e = *element;
                p = {value(e.iv_as, s),   value(e.rec_v_as, s),      value(e.ivcurrent, s),
                     value(e.ivbulk, s),  value(e.ivleftcontact, s), value(e.ivrightcontact, s),
                     value(e.ivifr, s),   value(e.recSRH, s),        value(e.recRadiative, s),
                     value(e.recAuger, s)};
            } else {
                const size_t S = At(s);
                p = {w.v_as[S] * signV,         w.v_as[S] * signV,
                     w.dcstroom[S] * signJ,     w.recdcstroom[S],
                     w.leftMinority[S] * signJ, w.rightMinority[S] * signJ,
                     w.ifrdcstroom[S],          w.recSRH[S],
                     w.recRadiative[S],         w.recAuger[S]};
            }
        }
        // The C-V curve itself in ascending voltage when it was walked in two branches.
        if (twoBranches) {
            for (int a = 0; a + 1 < done; ++a)
                for (int b = a + 1; b < done; ++b)
                    if (w.v_as[At(b)] < w.v_as[At(a)])
                        for (std::vector<double>* v : w.all()) std::swap((*v)[At(a)], (*v)[At(b)]);
        }
        // The merged curve by ascending voltage.
        for (int a = 0; a + 1 < m; ++a)
            for (int b = a + 1; b < m; ++b)
                if (merged[At(b)].v < merged[At(a)].v) std::swap(merged[At(a)], merged[At(b)]);
        DataListElement& e = *element;
        for (auto* a : {&e.iv_as, &e.rec_v_as, &e.ivcurrent, &e.ivbulk, &e.ivleftcontact, &e.ivrightcontact,
                        &e.ivifr, &e.recSRH, &e.recRadiative, &e.recAuger})
            a->assign(At(m), 0.0);
        for (int k = 0; k < m; ++k) {
            const MergedPoint& p = merged[At(k)];
            const size_t K = At(k);
            e.iv_as[K] = p.v;
            e.rec_v_as[K] = p.rec;
            e.ivcurrent[K] = p.current;
            e.ivbulk[K] = p.bulk;
            e.ivleftcontact[K] = p.left;
            e.ivrightcontact[K] = p.right;
            e.ivifr[K] = p.ifr;
            e.recSRH[K] = p.srh;
            e.recRadiative[K] = p.rad;
            e.recAuger[K] = p.auger;
        }
        e.actie.IV.points = e.actie.IV.done = m;
        // A cut of the I-V sweep stays with the merged curve: its figures are not taken past the cut
        // even where points of the C-V sweep lie beyond it.
        const SolarCellParameters before = e.parameters;
        IVParameters(e.iv_as.data(), e.ivcurrent.data(), m, IV_SIMULATION, nullptr);
        if (before.cut) {
            e.parameters.cut = before.cut;
            e.parameters.cutVoltage = before.cutVoltage;
        }
        e.convergence.insert(e.convergence.end(), rows.begin(), rows.end());

        // Mott-Schottky on the walked voltages, then the units of the result list.
        MottSchottkyAnalysis(w.v_cell.data(), w.Capaciteit.data(), done, NW, w.een_breedte.data(),
                             w.schijndotering.data());
        const size_t N = At(done);
        e.cv_as.assign(N, 0.0);
        e.cvcap.assign(N, 0.0);
        e.cvcon.assign(N, 0.0);
        e.cvMott.assign(N, 0.0);
        e.cvW.assign(N, 0.0);
        e.cvN.assign(N, 0.0);
        for (size_t k = 0; k < N; ++k) {
            e.cv_as[k] = w.v_as[k] * signV;
            e.cvcap[k] = w.Capaciteit[k] * 100000;
            e.cvcon[k] = w.Geleidbaarheid[k] * 0.0001;
            e.cvMott[k] = w.een_op_C2[k] / (100000.0 * 100000.0);
            e.cvW[k] = w.een_breedte[k];
            e.cvN[k] = w.schijndotering[k];
        }
        e.actie.CV.points = points;
        e.actie.CV.done = done;
    }
    return 1;
}

} // namespace tervo
