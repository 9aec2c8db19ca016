// The definition file: the walk through its sections, each read by its own reader
// (cell/definition_reader.h), and the readers for batch use.
#include "cell/definition_file.h"

#include <memory>

#include "cell/definition_reader.h"
#include "cell/grading.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "platform/text_util.h"

namespace tervo {

using namespace defread;

namespace {

int ReadDefinition(DefReader& r) {
    InputParameters& p = r.P;
    if (!r.Next()) return -1;
    // Numerical settings.
    if (r.Holds("convergence")) {
        r.where = "convergence";
        while (r.Next()) {
            if (r.Holds("back contact") || r.Holds("left contact") || StartsLayer(r) || r.Holds("name"))
                break;
            ReadConvergenceLine(r);
        }
        if (r.failed) return -1;
    }
    // The left contact.
    if (StartsWithNoCase(r.line, "back contact") || StartsWithNoCase(r.line, "left contact")) {
        r.where = "back contact";
        ContactReadState st;
        while (r.Next()) {
            // A file without layers goes on with the right contact; it is refused below.
            if (StartsLayer(r) || r.Holds("front contact") || r.Holds("right contact") ||
                r.Holds("working point") || r.Holds("spectrumfile"))
                break;
            ReadContactLine(r, p.cellParas.leftContact, st);
        }
        if (r.failed) return -1;
        FinishContact(p.cellParas.leftContact, st);
    }
    // Layers, defects, metastable defects and interfaces, up to the right contact.
    for (;;) {
        if (r.Holds("front contact") || r.Holds("right contact") || r.Holds("spectrumfile") ||
            r.Holds("working point"))
            break;
        bool ok = true;
        const bool haveLayer = p.cellParas.numberOfLayers > 0;
        if (StartsLayer(r)) {
            ok = ReadLayerSection(r);
        } else if (haveLayer && r.Holds("srhrecombination")) {
            ok = ReadDefectSection(r);
        } else if (haveLayer && r.Holds("Metastable properties")) {
            ok = ReadMetaSection(r);
        } else if (haveLayer && StartsWithNoCase(r.TrimLeft(), "interface properties")) {
            ok = ReadInterfacePropertiesSection(r);
        } else if (haveLayer && r.Holds("interface recombination")) {
            ok = ReadInterfaceDefectSection(r);
        } else if (!haveLayer) {
            return -1; // not a definition: no layer before other data
        } else {
            r.WarnUnknownKey(); // a line that belongs to no section
            ok = r.Next();
        }
        if (!ok || r.failed) return -1;
    }
    if (p.cellParas.numberOfLayers == 0) return -1;
    // The right contact and the working point.
    if (r.Holds("front contact") || r.Holds("right contact")) {
        r.where = "front contact";
        ContactReadState st;
        bool ended = false;
        while (r.Next()) {
            if (r.Holds("spectrumfile") || r.Holds("working point")) {
                ended = true;
                break;
            }
            ReadContactLine(r, p.cellParas.rightContact, st);
        }
        if (!ended || r.failed) return -1;
        FinishContact(p.cellParas.rightContact, st);
    }
    if (StartsWithNoCase(r.TrimLeft(), "working point")) {
        r.where = "working point";
        while (r.Next(r.workingPointLineRead)) {
            if (r.Holds("spectrumfile")) break;
            ReadWorkingPointLine(r);
        }
        if (r.failed) return -1; // the end came before any working point line
    }
    FinishLayers(r);
    return 1;
}

} // namespace

int lees_structuurfile(const std::string& path, InputParameters& p, DefinitionWorkingSettings& settings,
                       int noRemarks) {
    FreeCellDefinition(p.cellParas);
    if (noRemarks) {
        // Keep the session's remarks: initialise without touching them.
        const auto keep = problemRemarks;
        const auto keepName = problemRemarksName;
        InitialiseInputParameters(p);
        problemRemarks = keep;
        problemRemarksName = keepName;
    } else {
        InitialiseInputParameters(p);
    }
    InitialiseCellDefinition(p.cellParas);
    const MeshSettings meshDefaults = settings.mesh;
    settings = DefinitionWorkingSettings{};
    settings.mesh = meshDefaults;
    InitialiseMeshSettings(settings.mesh);

    DefReader r(p, settings);
    r.path = path;
    r.noRemarks = noRemarks;
    r.file = OpenFile(path, FileMode::Read);
    if (!r.file.IsOpen()) {
        TERVOErrorMessage("Function lees_structuurfile(): Error occured during opening the def-file !",
                          path + ": " + IoErrorText(r.file.lastError));
        return -1;
    }
    if (!noRemarks) ResetRemarks(BaseName(path));

    const size_t warningsBefore = ReadingWarnings().size();
    if (ReadDefinition(r) != 1) return -1;
    const size_t warnings = ReadingWarnings().size() - warningsBefore;
    if (StrictReading && warnings > 0) {
        TERVOErrorMessage(kReadTitle,
                          FmtStr("%s[q]<\"%s\" was refused: it needed %i warning(s), and --strict "
                                 "refuses every file that needs one.",
                                 path, static_cast<int>(warnings)));
        return -1;
    }
    return 1;
}
int ReadCeldefVariableFromDefFile(const std::string& path, CellDefinition& cell) {
    const auto p = std::make_unique<InputParameters>();
    DefinitionWorkingSettings s;
    const int r = lees_structuurfile(path, *p, s, 1);
    if (r == 1) cell = p->cellParas;
    return r;
}

int ReadShortCeldefVariableFromDefFile(const std::string& path, ShortCellDefinition& shortCell) {
    const auto cell = std::make_unique<CellDefinition>();
    const int r = ReadCeldefVariableFromDefFile(path, *cell);
    if (r == 1) LongToShortCellDefinition(*cell, shortCell);
    return r;
}

} // namespace tervo
