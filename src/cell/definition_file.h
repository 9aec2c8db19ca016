// The definition file (".def"): one problem as plain text, read by key prefixes in a fixed order and
// written in the present form.  Values in the file are in the file form (SI units).
#pragma once

#include <string>
#include <vector>

#include "cell/cell_records.h"
#include "cell/working_settings.h"
#include "platform/text_file.h"

namespace tervo {

inline constexpr int DEF_LINE_LIMIT = 255; // characters of a line that the reader takes

// What a definition file carries beside the cell: numerical and working-point settings that the
// session keeps elsewhere.  The loader brings them into the session; the writer takes them from it.
struct DefinitionWorkingSettings {
    int qeMode = 1; // QE calculation mode of the generation record
    double numberOfPhotons = 1e19;
    double incidentPower = 10;
    MeshSettings mesh;
    MottSchottkySettings ms; // layer, side, fitPoints, orderMiddle, orderEdges
    int side = 1;            // working point: 0 light from the left, 1 from the right
    double Rfront = 0;       // internal reflection at the front
    double Tfront = 1;       // internal transmission at the front
    int RsPresent = 0;
    double Rs = 0; // Ohm m2
    int GshPresent = 0;
    double Gsh = 0;           // S/m2
    int conventionsShown = 0; // the file held the voltage and reference lines
    int ipvMode = 0;          // a defect has optical capture data from a file
};

// The remarks of the problem: the comment lines of its file, each without its first character.
extern std::vector<std::string> problemRemarks;
extern std::string problemRemarksName; // the problem the remarks belong to
void ResetRemarks(const std::string& problemName);

// Reads a line that is not a comment; comment lines (starting with > < * ! / \) are added to the
// remarks unless noRemarks is set.  Result: the length of the line, -1 for an I/O error, -2 at the
// end of the file.  lineNumber, if given, counts every physical line read.
int ReadNonCommentLine(TextFile& file, std::string& buffer, int maximum, int noRemarks,
                       int* lineNumber = nullptr);
// The first non-comment line that holds a non-blank character, or -1, -2; reports an I/O error
// and the end of the file when asked to.
int ReadNonEmptyNonCommentLine(TextFile& file, std::string& buffer, int maximum, int noRemarks,
                               int reportIOErrors, int reportEnd, int* lineNumber = nullptr);

// A profile line: up to nine numbers behind the key (see the reader for the old forms).
void InputLineToProfile(const std::string& line, Profile& p);
void InputLineToShortProfile(const std::string& line, ShortProfile& p);
// Writes a profile line; exponent selects the e2 form of the numbers.
int ProfileToOutputLine(TextFile& file, const Profile& p, const std::string& name, const std::string& unit,
                        int exponent, int width, int precision);

// Reads a definition file into `p` (file form) and `settings`.  1 when read, -1 when not.  A file
// that cannot be opened, an I/O error, an incomplete file and a file beyond the capacities are
// reported; a file without any layer is not.  With noRemarks the remarks are left alone.
int lees_structuurfile(const std::string& path, InputParameters& p, DefinitionWorkingSettings& settings,
                       int noRemarks = 0);

// Which of the two writers: the full one of the interactive save, or the compact one used by
// scripts and the all-settings file.
enum class DefinitionWriter { Interactive, Compact };

// Writes the problem `p` (file form) with `settings`; `version` is the banner of the program.
// 0, or -1 on a write error.
int WriteDefinitionFile(TextFile& file, const InputParameters& p, const DefinitionWorkingSettings& settings,
                        const std::string& version, DefinitionWriter writer);

// Readers for batch use: the same grammar, no effect on remarks or working settings.  1 or -1.
int ReadCeldefVariableFromDefFile(const std::string& path, CellDefinition& cell);
int ReadShortCeldefVariableFromDefFile(const std::string& path, ShortCellDefinition& cell);

} // namespace tervo
