#include "run/control/problem.h"

#include <memory>

#include "cell/definition_file.h"
#include "cell/structure_ops.h"
#include "cell/working_settings.h"
#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"
#include "run/control/action_list.h"
#include "run/control/driver.h"
#include "run/control/startup.h"
#include "run/control/work_point.h"
#include "setup/generation.h"
#include "setup/parameter_sets.h"

namespace tervo {

namespace {

// The settings that the file carries beside the cell, taken from the session.
DefinitionWorkingSettings SessionSettings() {
    DefinitionWorkingSettings s;
    s.qeMode = generatieparameters.QEmode;
    s.numberOfPhotons = generatieparameters.numberOfPhotons;
    s.incidentPower = generatieparameters.incidentPower;
    s.mesh = meshSettings;
    s.ms = NW;
    s.side = wp.side;
    s.Rfront = Rfront;
    s.Tfront = Tfront;
    s.RsPresent = wp.RsPresent;
    s.Rs = wp.Rs;
    s.GshPresent = wp.RshPresent;
    s.Gsh = wp.Gsh;
    s.conventionsShown = wp.conventionsShown;
    s.ipvMode = IPV_Mode;
    return s;
}

// Brings the settings read from a file into the session.
void ApplySettings(const DefinitionWorkingSettings& s) {
    generatieparameters.QEmode = s.qeMode;
    generatieparameters.numberOfPhotons = s.numberOfPhotons;
    generatieparameters.incidentPower = s.incidentPower;
    meshSettings = s.mesh;
    NW.layer = s.ms.layer;
    NW.side = s.ms.side;
    NW.fitPoints = s.ms.fitPoints;
    NW.orderMiddle = s.ms.orderMiddle;
    NW.orderEdges = s.ms.orderEdges;
    wp.side = s.side;
    secondwp.side = s.side;
    generatieparameters.side = s.side == 0 ? -1 : 1;
    Rfront = s.Rfront;
    Tfront = s.Tfront;
    wp.RsPresent = secondwp.RsPresent = s.RsPresent;
    wp.Rs = secondwp.Rs = s.Rs;
    wp.RshPresent = secondwp.RshPresent = s.GshPresent;
    wp.Gsh = secondwp.Gsh = s.Gsh;
    wp.conventionsShown = s.conventionsShown;
    IPV_Mode = s.ipvMode;
    if (IPV_Mode) {
        // Optical capture needs the internal optical model: no generation from a file.
        Generation_Mode = 0;
        secondGeneration_Mode = 0;
        wp.generationFromFile = 0;
        secondwp.generationFromFile = 0;
    }
}

void CopyToEditors() {
    current_cell = zonnecel;
    current_layers = zonnecel.layer;
    current_interfaces = zonnecel.interface;
}

} // namespace

int Laad_data_uit_file(const std::string& path) {
    std::string fullPath;
    std::string name;
    CheckTERVOPaths(&fullPath, &name, path, 0);
    long long size = 0;
    if (path.empty() || GetFileSize(fullPath, size) != 0) {
        TERVOErrorMessage("File not loaded", FmtStr("%s[q]<File not loaded: %s[q] (not found)", fullPath));
        return -1;
    }
    const size_t messagesBefore = ReportedMessages().size();
    DefinitionWorkingSettings settings = SessionSettings();
    // Read aside, so that a file that fails leaves the session's problem as it was; on the heap, as
    // the record is some 150 kB.
    const auto read = std::make_unique<InputParameters>();
    InputParameters& loaded = *read;
    if (lees_structuurfile(fullPath, loaded, settings) != 1) {
        // The reader is silent about a file without any layer; a user who named it is told.
        if (ReportedMessages().size() == messagesBefore)
            TERVOErrorMessage(
                "Error whilst reading the def file",
                FmtStr("%s[q]<File not loaded: %s[q] holds no layer; it is not a definition file.",
                       fullPath));
        return -1;
    }
    loaded.name = name;
    loaded.path = fullPath;
    parameterset1 = loaded;
    parameterset1_to_2(zonnecel, parameterset1);
    // The file holds no work function for a flat-band contact: it follows from the layer behind it.
    if (zonnecel.numberOfLayers > 0) {
        const double T = actionPanel.first.temperature;
        if (zonnecel.leftContact.flatband == 1)
            CheckContactsWithActualLayerParameters(-1, zonnecel.leftContact, zonnecel.layer[0],
                                                   CONTACT_FIELD_FI_M, T, parameterset1.convergence);
        if (zonnecel.rightContact.flatband == 1)
            CheckContactsWithActualLayerParameters(
                1, zonnecel.rightContact, zonnecel.layer[static_cast<size_t>(zonnecel.numberOfLayers - 1)],
                CONTACT_FIELD_FI_M, T, parameterset1.convergence);
    }
    CopyToEditors();
    ApplySettings(settings);
    wp.definitionFile = fullPath;
    MarkNothingCalculated();
    return 0;
}

void CreateNewProblem() {
    FreeCellDefinition(zonnecel);
    InitialiseParameterset2(zonnecel);
    CopyToEditors();
    ResetRemarks("new problem");
    parameterset1.name = "new problem";
    parameterset1.path.clear();
    wp.definitionFile = "new problem";
    MarkNothingCalculated();
    Generation_Mode = 0;
    IPV_Mode = 0;
}

int SaveDefinitionFile(TextFile& file) {
    parameterset2_to_1(zonnecel);
    return WriteDefinitionFile(file, parameterset1, SessionSettings(), VERSION, DefinitionWriter::Compact);
}

int SaveDefinitionFileToPath(const std::string& path) {
    std::string fullPath;
    CheckTERVOPaths(&fullPath, nullptr, path, 0);
    return WriteWholeFile(fullPath, "Error whilst saving the def file", SaveDefinitionFile);
}

namespace {

// A side file named by its base name must stand in its folder of the home tree to be found when the
// definition is opened again.
bool InItsFolder(const std::string& name, const char* folder) {
    std::string drive, dir, file;
    SplitPath(name, drive, dir, file);
    long long size = 0;
    return GetFileSize(MakePathname(MakePathname(GetProjectDir(), folder), file), size) == 0;
}

void WarnAboutSideFiles(const CellDefinition& cell, const std::string& defName) {
    const ContactParameters* contacts[2] = {&cell.leftContact, &cell.rightContact};
    for (int side = 0; side < 2; ++side) {
        const ContactParameters& c = *contacts[side];
        if (c.opticalFilter && !c.wavelengthIndependent && !c.filterFile.empty() &&
            !InItsFolder(c.filterFile, "filter"))
            TERVOErrorMessage("Warning !",
                              "The filterfile  '" + c.filterFile + "', used at the " +
                                  (side == 0 ? "leftContact" : "rightContact") +
                                  " of this def-file isn't saved yet in the map \\tervo23\\filter\\. "
                                  "\nPlease save this file in this map. Otherwise, opening this "
                                  "def-file '" +
                                  defName + "' in the future will cause an error.");
    }
    for (int i = 0; i < cell.numberOfLayers && i < MAX_LAYERS; ++i) {
        const MaterialParameters& m = cell.layer[static_cast<size_t>(i)].material;
        const std::pair<bool, const std::string*> files[2] = {{m.absorptionA == 1, &m.absorptionFileA},
                                                              {m.absorptionB == 1, &m.absorptionFileB}};
        for (int k = 0; k < 2; ++k) {
            const std::string& name = *files[k].second;
            if (!files[k].first || name.empty() || InItsFolder(name, "absorption")) continue;
            TERVOErrorMessage("Warning !",
                              "The absorptionfile  '" + name + "', used in layer " + std::to_string(i + 1) +
                                  " of this def-file " + (k == 0 ? "is not" : "isn't") +
                                  " saved yet in the map [current TERVO-directory]\\absorption\\. "
                                  "\nPlease save this file in this map. Otherwise, opening this "
                                  "def-file '" +
                                  defName + "' in the future will cause an error.");
        }
    }
}

} // namespace

int data_naar_file(const std::string& path) {
    std::string fullPath;
    std::string name;
    CheckTERVOPaths(&fullPath, &name, path, 0);
    if (path.empty()) {
        TERVOErrorMessage("Error !", "An error occured during selection of the filename.");
        return -1;
    }
    parameterset2_to_1(current_cell);
    const int status =
        WriteWholeFile(fullPath, "Function data_naar_file(): Error occured during saving the selected file !",
                       [](TextFile& file) {
                           return WriteDefinitionFile(file, parameterset1, SessionSettings(), VERSION,
                                                      DefinitionWriter::Interactive);
                       });
    if (status != 0) return -1;
    WarnAboutSideFiles(parameterset1.cellParas, name);
    parameterset1.name = name;
    parameterset1.path = fullPath;
    MarkNothingCalculated();
    return 0;
}

} // namespace tervo
