#include "run/results/convergence_file.h"

#include "platform/format.h"
#include "run/control/startup.h"
#include "run/results/result_text.h"

namespace tervo {

std::string ConvergenceTable(const DataListElement& element) {
    std::string text;
    AppendLine(text, "curve\tpoint\tswept value\touter passes\tinner iterations\tlast dpsi (kT)\tlast dEFn "
                     "(kT)\tlast dEFp (kT)\tstatus");
    for (const ConvergenceRow& r : element.convergence) {
        // The swept value is a voltage for the I-V and C-V curves, a frequency (Hz) for C-f and a
        // wavelength (nm) for QE.
        AppendLine(text, FmtStr("%s<%s\t%i\t%f[p6e2]\t%i\t%i\t%f[p3e2]\t%f[p3e2]\t%f[p3e2]\t%s", r.curve,
                                r.point, r.value + 0.0, r.passes, r.inner, r.dpsi + 0.0, r.dFn + 0.0,
                                r.dFp + 0.0, PointStatusText(r.status)));
    }
    return text;
}

int SaveConvergenceFile(const DataListElement& element, const std::string& path) {
    const std::string text = ConvergenceTable(element);
    return WriteResultToPath(path, FILETYPE_IV, "conv",
                             [&text](TextFile& file) { return WriteText(file, text) < 0 ? -1 : 0; });
}

} // namespace tervo
