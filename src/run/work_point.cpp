#include "run/work_point.h"

#include "platform/files.h"

namespace tervo {

WorkPoint wp;
WorkPoint secondwp;
WorkPoint wp_vorig;
Actie actie;

void InitialiseWorkPoint(WorkPoint& w) {
    w = WorkPoint{};
    w.spectrumName = "AM1_5G 1 sun.spe";
    w.spectrumFile = MakePathname(MakePathname(GetProjectDir(), "spectrum"), w.spectrumName);
    w.generationName = "*.gen";
    w.generationFile = MakePathname(MakePathname(GetProjectDir(), "generation"), w.generationName);
}

} // namespace tervo
