#include "run/control/work_point.h"

#include <vector>

#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "setup/absorption.h"

namespace tervo {

WorkPoint wp;
WorkPoint secondwp;
WorkPoint wp_vorig;
Actie actie;

namespace {

constexpr const char* STANDARD_SPECTRUM = "AM1_5G 1 sun.spe";
constexpr const char* GENERATION_PATTERN = "*.gen";

std::string InTypeFolder(int filetype, const std::string& name) {
    std::string path;
    CheckTERVOPaths(&path, nullptr, name, filetype);
    return path;
}

} // namespace

void SetStandardSpectrum(WorkPoint& w) {
    w.spectrumName = STANDARD_SPECTRUM;
    w.spectrumFile = InTypeFolder(FILETYPE_SPECTRUM, STANDARD_SPECTRUM);
}

void InitialiseWorkPoint(WorkPoint& w) {
    const WorkPoint old = w;
    w = WorkPoint{};
    w.numberofpoints = old.numberofpoints;

    std::string definition = old.definitionFile;
    if (IsFileFound(definition, FILETYPE_DEF)) w.definitionFile = definition;

    std::string spectrum = old.spectrumFile;
    if (IsFileFound(spectrum, FILETYPE_SPECTRUM)) {
        w.spectrumFile = spectrum;
        CheckTERVOPaths(nullptr, &w.spectrumName, spectrum, FILETYPE_SPECTRUM);
    } else {
        SetStandardSpectrum(w);
    }

    std::string generation = old.generationFile;
    if (IsFileFound(generation, FILETYPE_GENERATION)) {
        w.generationFile = generation;
        CheckTERVOPaths(nullptr, &w.generationName, generation, FILETYPE_GENERATION);
    } else {
        w.generationName = GENERATION_PATTERN;
        w.generationFile = InTypeFolder(FILETYPE_GENERATION, GENERATION_PATTERN);
    }
}

int SetGenerationPath(int filetype, const std::string& path) {
    std::string full = path;
    if (!IsFileFound(full, filetype)) {
        TERVOErrorMessage("Error whilst opening a file of the command line",
                          FmtStr("%s[q]<The %s file \"%s[q]\" was not found.",
                                 filetype == FILETYPE_SPECTRUM ? "spectrum" : "generation", path));
        return -1;
    }
    std::string name;
    CheckTERVOPaths(nullptr, &name, full, filetype);
    if (filetype == FILETYPE_SPECTRUM) {
        wp.spectrumFile = full;
        wp.spectrumName = name;
        kortberekend = 0;
        return 0;
    }
    std::vector<double> x, G;
    if (GetGenerationFromFile(full, 100.0, x, G) <= 0) return -1;
    wp.generationFile = full;
    wp.generationName = name;
    wp.generationFromFile = 1;
    actionPanel.first.generationFromFile = 1;
    wp.idealLightCurrent = GenerationFileCurrent(x, G);
    kortberekend = 0;
    return 0;
}

} // namespace tervo
