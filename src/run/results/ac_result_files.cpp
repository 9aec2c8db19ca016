#include "run/results/ac_result_files.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "cell/working_settings.h"
#include "platform/format.h"
#include "platform/index.h"
#include "platform/messages.h"
#include "run/control/startup.h"
#include "run/results/result_files.h"
#include "run/results/result_list.h"
#include "run/results/result_text.h"
#include "run/sweeps/small_signal_current.h"
#include "solver/ac_system.h"

namespace tervo {
namespace {

constexpr int CF_COLUMNS = 7;

void CFBlock(std::string& text, const DataListElement& e) {
    ComposeOutputHeader(text, &e, HEADER_CF, 1, 0);
    AppendLine(text,
               FmtStr("%s<       f(Hz)\t   C(nF/cm2)\t    G(S/cm2)\t   Z.re(ohm.cm2)\t   Z.im(ohm.cm2)\t "
                      "Z.magn(ohm.cm2)\t      Z.phase(°)"));
    AppendBlank(text);
    AppendCurveRows(text, e.actie.Cf.points, e.actie.Cf.done, e.cf_as.size(), CF_COLUMNS, [&](int i) {
        return FmtStr("%s< %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t "
                      "%f[w16p8e2]\t %f[w12p6]",
                      CurveValue(e.cf_as, i), CurveValue(e.cfcap, i), CurveValue(e.cfcon, i),
                      CurveValue(e.cfZre, i), CurveValue(e.cfZim, i), CurveValue(e.cfZmagn, i),
                      CurveValue(e.cfZphase, i));
    });
    AppendBlank(text);
    AppendBlank(text);
}

// The point of the element's I-V curve at the voltage v of a C-V point.  After a C-V sweep the I-V
// curve holds the merged points of both sweeps, sorted by voltage, so the same index would name
// another voltage; the merge keeps one point within SAME_VOLTAGE_TOLERANCE of every C-V voltage.  Without
// such a point (a C-V curve that was never merged) the index of the C-V point itself.
int CurrentIndexAt(const DataListElement& e, double v, int i) {
    for (size_t k = 0; k < e.iv_as.size(); ++k)
        if (std::fabs(e.iv_as[k] - v) <= SAME_VOLTAGE_TOLERANCE) return static_cast<int>(k);
    return i;
}

// C-V blocks: the curve with the currents of its points, taken from the I-V curve at the same voltage.
void CVBlock(std::string& text, const DataListElement& e) {
    ComposeOutputHeader(text, &e, HEADER_CV, 1, 0);
    const int points = std::max(e.actie.CV.points, 0);
    const int done = std::min(std::max(e.actie.CV.done, 0), points);
    const bool mott = done > NW.fitPoints;
    if (done < 4) {
        AppendLine(text,
                   FmtStr("%s<    v(V)\t   C(nF/cm2)\t    G(S/cm2)\t  jtot(mA/cm2)\t   jbulk(mA/cm2)\t    "
                          "jifr(mA/cm2)\t  jminor_left(mA/cm2)\t  jminor_right(mA/cm2)"));
    } else {
        const int layer = std::clamp(NW.layer, 0, MAX_LAYERS - 1);
        AppendLine(text, FmtStr(NW.side < 0
                                    ? "%s<relative dielectric constant used to calculate W and Napp: epsilon "
                                      "=\t%f\tat left side of layer\t%i\t%s"
                                    : "%s<relative dielectric constant used to calculate W and Napp: epsilon "
                                      "=\t%f\tat right side of layer\t%i\t%s",
                                NW.epsilon, layer + 1, zonnecel.layer[At(layer)].name));
        AppendBlank(text);
        AppendLine(
            text, FmtStr("%s<    v(V)\t   C(nF/cm2)\t    G(S/cm2)\t       W(µm)\t  Napp(/cm3)\t    "
                         "jtot(mA/cm2)\t   jbulk(mA/cm2)\tjifr(mA/cm2)\t  jopp_n(mA/cm2)\t  jopp_p(mA/cm2)"));
    }
    AppendBlank(text);
    // The bulk and interface losses of the I-V part are kept in A/m2, like those of the .iv file:
    // 0.1 brings them to the mA/cm2 of their columns.
    AppendCurveRows(text, points, done, e.cv_as.size(), mott ? 10 : 8, [&](int i) {
        const int j = CurrentIndexAt(e, CurveValue(e.cv_as, i), i);
        if (mott)
            return FmtStr("%s< %f[w12p6]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t "
                          "%f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]",
                          CurveValue(e.cv_as, i), CurveValue(e.cvcap, i), CurveValue(e.cvcon, i),
                          CurveValue(e.cvW, i), CurveValue(e.cvN, i), CurveValue(e.ivcurrent, j),
                          0.1 * CurveValue(e.ivbulk, j), 0.1 * CurveValue(e.ivifr, j),
                          CurveValue(e.ivleftcontact, j), CurveValue(e.ivrightcontact, j));
        return FmtStr("%s< %f[w12p6]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]\t "
                      "%f[w16p8e2]\t %f[w16p8e2]\t %f[w16p8e2]",
                      CurveValue(e.cv_as, i), CurveValue(e.cvcap, i), CurveValue(e.cvcon, i),
                      CurveValue(e.ivcurrent, j), 0.1 * CurveValue(e.ivbulk, j), 0.1 * CurveValue(e.ivifr, j),
                      CurveValue(e.ivleftcontact, j), CurveValue(e.ivrightcontact, j));
    });
    AppendBlank(text);
    AppendBlank(text);
}

} // namespace

int cv_naar_file(int mode, TextFile* file) {
    return WriteCurveBlocks(
        mode, file, [](const DataListElement& e) { return e.actie.CV.calculate != 0; }, CVBlock,
        "No CV-calculation is made yet: nothing to save or to show !");
}

int ac_naar_file(int mode, TextFile* file, const CalculationVariables& cv) {
    if (resultList.empty() || cv.parameters == nullptr || cv.mesh.n_points < 1) {
        TERVOErrorMessage("Function Save or Show ac Energy Bands",
                          "No ac-calculation is made yet: nothing to save or to show !");
        return -1;
    }
    if (!IsResultOutputMode(mode)) return -1;
    std::string text;
    if (ComposeOutputHeader(text, pointer_naar_huidige(), HEADER_AC_BANDS, 1, 0) != 0) return -1;
    AppendLine(text, FmtStr("%s<Calculation at actual bias voltage\t%f[w10p4]\tVolt",
                            cv.V_applied * zonnecel.signV));
    AppendLine(text,
               FmtStr("%s<Calculation at actual frequency\t%f[w12e2p4]\tHz", omega_us / 6.283185307179586));
    AppendBlank(text);
    AppendLine(text, FmtStr("%s<bulk"));
    AppendBlank(text);
    AppendLine(
        text,
        FmtStr("%s[w*q]<i\tx (µm)\tjn.re(mA/cm2)\tjn.im(mA/cm2)\tjp.re(mA/cm2)\tjp.im(mA/cm2)\tjdispl.re("
               "mA/cm2)\tjdispl.im(mA/cm2)\t j.re (mA/cm2)\tj.im (mA/cm2)\tpsi.re(#kT/q)\t psi.im "
               "(#kT/q)\t Fn.re (#kT)\t Fn.im (#kT)\t Fp.re (#kT)\t Fp.im (#kT)",
               599));
    AppendBlank(text);
    const int n = std::min(cv.mesh.n_points, MAX_MESH_POINTS);
    for (int i = 0; i < n; ++i) {
        const size_t I = At(i);
        AppendLine(
            text,
            FmtStr("%s[w*q]<%i[w3]\t%f[w13p6]\t%f[w15p6e2]\t%f[w15p6e2]\t%f[w15p6e2]\t%f[w15p6e2]\t%f["
                   "w15p6e2]\t%f[w15p6e2]\t%f[w15p6e2]\t%f[w15p6e2]\t%f[w13p6]\t%f[w13p6]\t%f[w13p6]\t%f["
                   "w13p6]\t%f[w13p6]\t%f[w13p6]",
                   599, i, cv.mesh.x_um[I], del_jn_re[I] * 0.1, del_jn_im[I] * 0.1, del_jp_re[I] * 0.1,
                   del_jp_im[I] * 0.1, J_displ_re[I] * 0.1, J_displ_im[I] * 0.1, del_j_tot_re[I] * 0.1,
                   del_j_tot_im[I] * 0.1, del_Psi_re[I], del_Psi_im[I], amplitude + del_u_re[I], del_u_im[I],
                   del_v_re[I], del_v_im[I]));
    }
    return EmitResultText(mode, file, text);
}

int cf_naar_file(int mode, TextFile* file) {
    return WriteCurveBlocks(
        mode, file, [](const DataListElement& e) { return e.actie.Cf.calculate != 0; }, CFBlock,
        "No C-f calculation is made yet: nothing to save or to show !");
}

int SaveAcResultFile(AcResultFileKind kind, const std::string& path) {
    const int filetype = kind == RESULT_CV ? FILETYPE_CV : kind == RESULT_CF ? FILETYPE_CF : FILETYPE_AC;
    const char* extension = kind == RESULT_CV ? "cv" : kind == RESULT_CF ? "cf" : "ac";
    return WriteResultToPath(path, filetype, extension, [&](TextFile& file) {
        if (kind == RESULT_CF) return cf_naar_file(OUTPUT_TO_OPEN_FILE, &file);
        if (kind == RESULT_CV) return cv_naar_file(OUTPUT_TO_OPEN_FILE, &file);
        return ac_naar_file(OUTPUT_TO_OPEN_FILE, &file, currentCalcVars);
    });
}

} // namespace tervo
