// The general and numerical settings at the head of a definition file (clamping, termination,
// iteration limits, defect sampling, tunnelling switches, QE mode, mesh and Mott-Schottky settings),
// and the working-point section at its end (illumination side, internal reflection, series and shunt
// resistance, sign conventions).
#include <algorithm>

#include "cell/definition_reader.h"
#include "platform/format.h"
#include "platform/text_util.h"

namespace tervo::defread {

namespace {

// An iteration limit beyond this makes a point that does not converge look like a hang: no solve
// that has not converged in 100000 passes will.
constexpr int MAX_ITERATION_LIMIT = 100000;

using Entry = KeyEntry<DefReader>;
constexpr KeyMatch NoCase = KeyMatch::NoCase;

// A switch of a tunnelling mechanism for the whole cell; once one is seen, the switches of the
// elements no longer turn the mechanisms on.
void TunnelSwitch(DefReader& r, int& flag) {
    r.Integer(flag, false, 0, 1);
    r.tunnelFlagLineSeen = true;
}

void ReadMottSchottkyLine(DefReader& r) {
    MottSchottkySettings& ms = r.S.ms;
    int v = 0;
    if (r.Holds("#")) {
        if (r.Integer(v, true, 0, MAX_LAYERS)) ms.layer = v - 1; // 0: no sheet chosen
    } else if (r.Holds("side")) {
        if (r.Integer(v, true, -1, 1)) ms.side = v;
    } else if (r.Holds("analysis number of points")) {
        r.Integer(ms.fitPoints, true);
    } else if (r.Holds("analysis polynomial order middle")) {
        r.Integer(ms.orderMiddle, true);
    } else if (r.Holds("analysis polynomial order edges")) {
        r.Integer(ms.orderEdges, true);
    }
}

// The keys of the numerical settings, in the order in which they are tried.
constexpr auto kConvergenceKeys = std::to_array<Entry>({
    {"clamp_psi", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.clamp_psi); }},
    {"clamp_n", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.clamp_n); }},
    {"clamp_p", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.clamp_p); }},
    {"clamp_meta", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.clamp_meta); }},
    {"termination_psi", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.termination_psi); }},
    {"termination_Fn", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.termination_Fn); }},
    {"termination_Fp", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.termination_Fp); }},
    {"termination_Meta_full", NoCase,
     [](DefReader& r, DefReader&) { r.Number(r.P.convergence.termination_Meta_full); }},
    {"maxmetaiter_full", NoCase,
     [](DefReader& r, DefReader&) {
         r.Integer(r.P.convergence.maxmetaiter_full, false, 0, MAX_ITERATION_LIMIT);
     }},
    {"usemetaclamping", NoCase, [](DefReader& r, DefReader&) { r.Integer(r.P.convergence.usemetaclamping); }},
    // One limit for the outer loop and every inner iteration.
    {"maxiter", NoCase,
     [](DefReader& r, DefReader&) {
         ConvergenceParameters& c = r.P.convergence;
         if (r.Integer(c.maxiter, false, 1, MAX_ITERATION_LIMIT))
             c.maxiter_psi_start = c.maxiter_psi = c.maxiter_u = c.maxiter_v = c.maxiter;
     }},
    {"defectdiscretisations", NoCase,
     [](DefReader& r, DefReader&) {
         int& n = r.P.convergence.defectdiscretisations;
         int read = n;
         if (!r.Integer(read)) return;
         n = std::clamp(read, 1, MAX_DEFECT_DISCRETISATIONS);
         if (n != read)
             r.Warn(
                 FmtStr("%s[q]<the number of energy samples of a distributed defect in \"%s\" is limited to "
                        "%i .. %i; %i is taken.",
                        TrimRight(r.line), 1, MAX_DEFECT_DISCRETISATIONS, n));
     }},
    {"widthtail", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.widthtail); }},
    {"widthgauss", NoCase, [](DefReader& r, DefReader&) { r.Number(r.P.convergence.widthgauss); }},
    {"TunnelMassChoice", NoCase,
     [](DefReader& r, DefReader&) { r.Integer(r.P.convergence.TunnelMassChoice); }},
    {"TunnelBtoB_allowed", NoCase,
     [](DefReader& r, DefReader&) { TunnelSwitch(r, r.P.convergence.TunnelBtoB_allowed); }},
    {"Tunnelcontact_allowed", NoCase,
     [](DefReader& r, DefReader&) { TunnelSwitch(r, r.P.convergence.Tunnelcontact_allowed); }},
    {"Tunneliface_allowed", NoCase,
     [](DefReader& r, DefReader&) { TunnelSwitch(r, r.P.convergence.Tunneliface_allowed); }},
    {"Tunnelintraband_allowed", NoCase,
     [](DefReader& r, DefReader&) { TunnelSwitch(r, r.P.convergence.Tunnelintraband_allowed); }},
    {"QE calculation mode", NoCase, [](DefReader& r, DefReader&) { r.Integer(r.S.qeMode, true, 0, 1); }},
    {"number of photons", NoCase,
     [](DefReader& r, DefReader&) { r.Number(r.S.numberOfPhotons, false, Range::NonNegative); }},
    {"incident power", NoCase,
     [](DefReader& r, DefReader&) { r.Number(r.S.incidentPower, false, Range::NonNegative); }},
    {"recalculate mesh", NoCase,
     [](DefReader& r, DefReader&) { r.Integer(r.S.mesh.recalculateMesh, false, 0, 1); }},
    {"maximum ratio between neighbouring points", NoCase,
     [](DefReader& r, DefReader&) { r.Number(r.S.mesh.maximumRatio); }},
    {"minimum ratio between neighbouring points", NoCase,
     [](DefReader& r, DefReader&) { r.Number(r.S.mesh.minimumRatio); }},
    {"generation limit", NoCase, [](DefReader& r, DefReader&) { r.Number(r.S.mesh.generationLimit); }},
    {"recombination limit", NoCase, [](DefReader& r, DefReader&) { r.Number(r.S.mesh.recombinationLimit); }},
    {"Mott-Schottky", NoCase, [](DefReader& r, DefReader&) { ReadMottSchottkyLine(r); }},
    {"Mott Schottky", NoCase, [](DefReader& r, DefReader&) { ReadMottSchottkyLine(r); }},
    {"Include charge in defects", NoCase,
     [](DefReader& r, DefReader&) { r.Integer(r.P.convergence.includeChargeInDefects, true); }},
});

// A line that changes the sign conventions of the cell.
void ConventionLine(DefReader& r, int& field) {
    if (r.Integer(field, true)) {
        r.S.conventionsShown = 1;
        r.P.convergence.changeOfReferences = 1;
        r.referenceLinesRead = true;
    }
}

// The keys of the working-point section, in the order in which they are tried.
constexpr auto kWorkingPointKeys = std::to_array<Entry>({
    {"illuminated", NoCase, [](DefReader& r, DefReader&) { r.S.side = r.Holds("left") ? 0 : 1; }},
    {"internal Rfront", NoCase,
     [](DefReader& r, DefReader&) {
         if (r.Number(r.S.Rfront, false, Range::Fraction)) r.S.Tfront = 1 - r.S.Rfront;
     }},
    {"internal Tfront", NoCase,
     [](DefReader& r, DefReader&) {
         if (r.Number(r.S.Tfront, false, Range::Fraction)) r.S.Rfront = 1 - r.S.Tfront;
     }},
    {"Series resistance :", NoCase, [](DefReader& r, DefReader&) { r.Integer(r.S.RsPresent, true, 0, 1); }},
    {"Rs [Ohm.m2]", NoCase, [](DefReader& r, DefReader&) { r.Number(r.S.Rs, true, Range::NonNegative); }},
    {"Shunt conductance :", NoCase, [](DefReader& r, DefReader&) { r.Integer(r.S.GshPresent, true, 0, 1); }},
    {"Gsh [S/m2]", NoCase, [](DefReader& r, DefReader&) { r.Number(r.S.Gsh, true, Range::NonNegative); }},
    {"voltage V applied to", NoCase,
     [](DefReader& r, DefReader&) { ConventionLine(r, r.cell().voltageAppliedTo); }},
    {"cell reference system", NoCase,
     [](DefReader& r, DefReader&) { ConventionLine(r, r.cell().referenceSystem); }},
});

} // namespace

void ReadConvergenceLine(DefReader& r) {
    if (!ReadKeyedLine(r, kConvergenceKeys, r)) r.WarnUnknownKey();
}

void ReadWorkingPointLine(DefReader& r) {
    if (ReadKeyedLine(r, kWorkingPointKeys, r))
        r.workingPointLineRead = true;
    else
        r.WarnUnknownKey();
}

} // namespace tervo::defread
